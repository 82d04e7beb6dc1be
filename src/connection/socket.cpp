#include "connection/socket.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "frame/status.h"

namespace vx {
namespace {

struct ErrorNumber {
  int error;
  int number;
};
constexpr ErrorNumber kErrorNumbers[] = {
    {EINTR, 10004},         {EBADF, 10009},        {EACCES, 10013},          {EFAULT, 10014},
    {EINVAL, 10022},        {EMFILE, 10024},       {EWOULDBLOCK, 10035},     {EINPROGRESS, 10036},
    {EALREADY, 10037},      {ENOTSOCK, 10038},     {EDESTADDRREQ, 10039},    {EMSGSIZE, 10040},
    {EPROTOTYPE, 10041},    {ENOPROTOOPT, 10042},  {EPROTONOSUPPORT, 10043}, {ESOCKTNOSUPPORT, 10044},
    {EOPNOTSUPP, 10045},    {EPFNOSUPPORT, 10046}, {EAFNOSUPPORT, 10047},    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049}, {ENETDOWN, 10050},     {ENETUNREACH, 10051},     {ENETRESET, 10052},
    {ECONNABORTED, 10053},  {ECONNRESET, 10054},   {EPIPE, 10054},           {ENOBUFS, 10055},
    {EISCONN, 10056},       {ENOTCONN, 10057},     {ESHUTDOWN, 10058},       {ETOOMANYREFS, 10059},
    {ETIMEDOUT, 10060},     {ECONNREFUSED, 10061}, {ELOOP, 10062},           {ENAMETOOLONG, 10063},
    {EHOSTDOWN, 10064},     {EHOSTUNREACH, 10065},
};

std::string look_up_name(const sockaddr_storage& address, int flags) {
  char host[NI_MAXHOST];
  const int result = getnameinfo(reinterpret_cast<const sockaddr*>(&address), address_size(address), host,
                                 sizeof host, nullptr, 0, flags);
  return result == 0 ? host : "";
}

}  // namespace

int socket_error_number(int error) {
  for (const ErrorNumber& row : kErrorNumbers) {
    if (row.error == error) return row.number;
  }
  return error;
}

const char* socket_error_text(int error) {
  return system_error_text(error == EPIPE ? ECONNRESET : error);
}

int64_t monotonic_now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

int open_socket(int family, int type, int protocol) {
  return ::socket(family, type | SOCK_CLOEXEC, protocol);
}

int accept_socket(int listener, sockaddr_storage& peer) {
  socklen_t size = sizeof peer;
  const int socket =
      accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (socket >= 0) unmap_address(peer);
  return socket;
}

bool make_nonblocking(int socket) {
  const int flags = fcntl(socket, F_GETFL);
  return flags >= 0 && fcntl(socket, F_SETFL, flags | O_NONBLOCK) == 0;
}

bool set_option(int socket, int level, int option, int value) {
  return setsockopt(socket, level, option, &value, sizeof value) == 0;
}

bool set_linger(int socket, bool reset_on_close) {
  const linger value{reset_on_close ? 1 : 0, 0};
  return setsockopt(socket, SOL_SOCKET, SO_LINGER, &value, sizeof value) == 0;
}

void set_receive_timeout(int socket, int64_t nanoseconds) {
  constexpr int64_t kMicrosecond = 1000;
  const timeval value{static_cast<time_t>(nanoseconds / kSecond),
                      static_cast<suseconds_t>(nanoseconds % kSecond / kMicrosecond)};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &value, sizeof value);
}

int pending_error(int socket) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

int poll_socket(int socket, bool for_reading, int64_t nanoseconds) {
  pollfd entry{socket, static_cast<short>(for_reading ? POLLIN : POLLOUT), 0};
  const timespec wait{nanoseconds / kSecond, nanoseconds % kSecond};
  const int result = ppoll(&entry, 1, &wait, nullptr);
  if (result > 0 && (entry.revents & POLLNVAL) != 0) {
    errno = EBADF;
    return -1;
  }
  return result;
}

long receive_some(int socket, void* buffer, std::size_t size) {
  return recv(socket, buffer, size, 0);
}

long send_some(int socket, iovec* pieces, int count) {
  msghdr message{};
  message.msg_iov = pieces;
  message.msg_iovlen = static_cast<std::size_t>(count);
  return sendmsg(socket, &message, MSG_NOSIGNAL);
}

int unacknowledged(int socket) {
  int waiting = 0;
  if (ioctl(socket, SIOCOUTQ, &waiting) != 0 || waiting == 0) return 0;
  // A connection that the peer has reset keeps its count.
  tcp_info info{};
  socklen_t size = sizeof info;
  const bool known = getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0;
  return known && info.tcpi_state == TCP_CLOSE ? 0 : waiting;
}

void pause_for(int64_t nanoseconds) {
  const timespec wait{nanoseconds / kSecond, nanoseconds % kSecond};
  nanosleep(&wait, nullptr);
}

void unmap_address(sockaddr_storage& address) {
  if (address.ss_family != AF_INET6) return;
  sockaddr_in6 wide{};
  std::memcpy(&wide, &address, sizeof wide);
  if (!IN6_IS_ADDR_V4MAPPED(&wide.sin6_addr)) return;
  sockaddr_in plain{};
  plain.sin_family = AF_INET;
  plain.sin_port = wide.sin6_port;
  std::memcpy(&plain.sin_addr, &wide.sin6_addr.s6_addr[12], sizeof plain.sin_addr);
  address = {};
  std::memcpy(&address, &plain, sizeof plain);
}

socklen_t address_size(const sockaddr_storage& address) {
  return address.ss_family == AF_INET    ? sizeof(sockaddr_in)
         : address.ss_family == AF_INET6 ? sizeof(sockaddr_in6)
                                         : sizeof(sockaddr_storage);
}

std::string numeric_host(const sockaddr_storage& address) {
  return look_up_name(address, NI_NUMERICHOST);
}

std::string host_name(const sockaddr_storage& address) {
  return look_up_name(address, NI_NOFQDN);
}

}  // namespace vx
