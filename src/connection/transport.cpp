#include "connection/transport.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "config/config.h"
#include "connection/capture.h"
#include "connection/pdu.h"
#include "connection/socket.h"
#include "connection/transport_wait.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/seams.h"

namespace vx {
namespace {

constexpr int32_t kDefaultWait = 15;  // where a time-out must not be 0 or without end

int32_t at_least_one(int32_t timeout) {
  return timeout < 1 ? kDefaultWait : timeout;
}

bool aborted(const TL_Transport* transport) {
  return transport != nullptr && transport->abortFlag.load(std::memory_order_relaxed) != 0;
}

// --- Capture ---

template <typename... Values>
void tell_capture(bool (*function)(TL_Transport&, Values...), TL_Transport& transport,
                  std::type_identity_t<Values>... values) {
  if (function == nullptr || !config_bool(VX_CFG_NETWORK_CAPTURE)) return;
  if (!function(transport, values...)) config_set_bool(VX_CFG_NETWORK_CAPTURE, false);
}

void close_capture(TL_Transport& transport) {
  if (transport.captureStream == nullptr || capture_close_stream == nullptr) return;
  if (!capture_close_stream(transport)) config_set_bool(VX_CFG_NETWORK_CAPTURE, false);
}

// --- Addresses ---

void store_local_address(TL_Transport& transport) {
  socklen_t size = sizeof transport.localAddress;
  const bool known =
      getsockname(transport.socket, reinterpret_cast<sockaddr*>(&transport.localAddress), &size) == 0;
  if (known && size >= 8) {
    unmap_address(transport.localAddress);
    return;
  }
  transport.localAddress = {};
  transport.localAddress.ss_family = transport.remoteAddressRaw.ss_family;
}

// False if there is no memory.
bool store_text_copy(const std::string& text, char*& copy, const char* function) {
  if (text.empty()) return true;
  copy = duplicate_text(text.c_str());
  if (copy == nullptr) VX_LOG_ERR(function, "Out of Memory");
  return copy != nullptr;
}

// --- Connecting ---

class AddressList {
 public:
  AddressList(const char* host, const char* port) {
    addrinfo wanted{};
    wanted.ai_family = configured_family();
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_protocol = IPPROTO_TCP;
    result_ = getaddrinfo(host, port, &wanted, &head_);
  }
  ~AddressList() {
    if (head_ != nullptr) freeaddrinfo(head_);
  }
  AddressList(const AddressList&) = delete;
  AddressList& operator=(const AddressList&) = delete;
  const addrinfo* head() const { return result_ == 0 ? head_ : nullptr; }
  const char* error() const { return gai_strerror(result_); }

 private:
  addrinfo* head_ = nullptr;
  int result_;
};

TlStatus wait_until_connected(int socket, const char* host, int32_t timeout) {
  const int ready = WaitForSocketEvent(at_least_one(timeout), false, nullptr, socket);
  if (ready == 0) {
    VX_LOG_ERR("TL_Connect", "TCP connection timeout.  Remote system \"%s\" may not be operational.", host);
    return TL_CONNECT_FAILED;
  }
  if (ready < 0) {
    VX_LOG_ERR("TL_Connect", "TCP connection select error: (%d)%s", socket_error_number(errno),
               socket_error_text(errno));
    return TL_IO_FAILURE;
  }
  return TL_NORMAL;
}

// One attempt; on failure no socket stays open.
TlStatus TL_conAddrInfo(const addrinfo& address, const char* host, int32_t timeout, int& socket) {
  const auto refused = [host](int error) {
    VX_LOG_ERR(
        "TL_Connect",
        "TCP init connection error (first connect call, remote system \"%s\" may not be operational): (%d)%s",
        host, socket_error_number(error), socket_error_text(error));
    return TL_CONNECT_FAILED;
  };
  socket = open_socket(address.ai_family, address.ai_socktype, address.ai_protocol);
  if (socket < 0) return refused(errno);
  TlStatus status = TL_NORMAL;
  if (!make_nonblocking(socket)) {
    VX_LOG_ERR("TL_Connect", "ioctlsocket FIONBIO call failed, errno [%d]", socket_error_number(errno));
    status = TL_IO_FAILURE;
  } else if (::connect(socket, address.ai_addr, address.ai_addrlen) != 0) {
    if (errno != EINPROGRESS && errno != EINTR) {
      status = refused(errno);
    } else if ((status = wait_until_connected(socket, host, timeout)) == TL_NORMAL) {
      const int error = pending_error(socket);
      if (error != 0) status = refused(error);
    }
  }
  if (status != TL_NORMAL) {
    ::close(socket);
    socket = -1;
  }
  return status;
}

TlStatus connect_to_any(TL_Transport& transport, const char* host, const char* port, int32_t timeout) {
  const AddressList addresses(host, port);
  if (addresses.head() == nullptr) {
    VX_LOG_ERR("TL_Connect", "Cannot resolve %s address %s: %s", config_text(VX_CFG_IP_TYPE).c_str(), host,
               addresses.error());
    return TL_UNKNOWN_HOST;
  }
  TlStatus status = TL_CONNECT_FAILED;
  for (const addrinfo* address = addresses.head(); address != nullptr; address = address->ai_next) {
    status = TL_conAddrInfo(*address, host, timeout, transport.socket);
    if (status == TL_NORMAL) {
      std::memcpy(&transport.remoteAddressRaw, address->ai_addr,
                  std::min<std::size_t>(address->ai_addrlen, sizeof transport.remoteAddressRaw));
      unmap_address(transport.remoteAddressRaw);
      return TL_NORMAL;
    }
    if (address->ai_next != nullptr) {
      VX_LOG_ERR("TL_Connect", "Connection attempt failed, trying another address for %s", host);
    }
  }
  return status;
}

// --- Reading ---

// A thread that sleeps is woken late: that would cost more than all else about a short message. A few looks,
// with the processor left to others between them, meet a peer that answers at once.
constexpr int kLooks = 16;

TlStatus read_plain(TL_Transport& transport, uint8_t* buffer, uint32_t length, uint32_t& count, int32_t first,
                    int32_t rest) {
  int looks = first != 0 ? kLooks : 0;
  while (count < length) {
    if (aborted(&transport)) return count == 0 ? TL_TIMED_OUT : TL_READ_FAILED;
    const long got = receive_some(transport.socket, buffer + count, length - count);
    if (got > 0) {
      tell_capture(capture_data, transport, false, buffer + count, static_cast<uint32_t>(got));
      count += static_cast<uint32_t>(got);
      continue;
    }
    if (got == 0) return TL_READ_FAILED;
    if (errno == EINTR) continue;
    if (errno != EWOULDBLOCK && errno != EAGAIN) return TL_READ_FAILED;
    if (looks-- > 0) {
      sched_yield();
      continue;
    }
    const int ready = WaitForSocketEvent(count == 0 ? first : rest, true, &transport, transport.socket);
    if (ready > 0) continue;
    if (count == 0) {
      if (ready == 0) return TL_TIMED_OUT;
      VX_LOG_ERR("TL_Read", "Select error in TL_Read: (%d)%s", socket_error_number(errno),
                 socket_error_text(errno));
      return TL_IO_FAILURE;
    }
    transport.fellSilent = ready == 0 && !aborted(&transport);
    if (ready == 0) {
      log_line(VX_LOG_T3, "TL_Read", "Network is too slow.  Inactivity timeout occurred.");
    } else {
      log_line(VX_LOG_T3, "TL_Read", "Network error while reading message: (%d)%s",
               socket_error_number(errno), socket_error_text(errno));
    }
    return TL_READ_FAILED;
  }
  return TL_NORMAL;
}

// Seconds that a secure read may take, within the deadline; 0 seconds are left once it has passed.
int32_t within_deadline(const TL_Transport& transport, int32_t timeout) {
  if (transport.deadline == 0) return timeout;
  const int64_t left = std::max<int64_t>((transport.deadline - monotonic_now() + kSecond - 1) / kSecond, 0);
  return timeout < 0 ? static_cast<int32_t>(left) : static_cast<int32_t>(std::min<int64_t>(left, timeout));
}

// The caller's function gets a tick at a time, so that an abort is seen.
int32_t secure_read_once(TL_Transport& transport, void* buffer, uint32_t length, uint32_t& got,
                         int32_t timeout) {
  const int32_t whole = within_deadline(transport, timeout);
  const int64_t end = whole < 0 ? INT64_MAX : monotonic_now() + whole * kSecond;
  for (;;) {
    if (aborted(&transport)) return kChannelTimedOut;
    got = 0;
    const int32_t tick = whole == 0 ? 0 : 1;
    const int32_t result = transport.secureFunctions->SS_Read(
        transport.secureContext, transport.applicationContext, buffer, length, &got, tick);
    if (result != kChannelTimedOut || monotonic_now() >= end) return result;
  }
}

TlStatus read_secure(TL_Transport& transport, uint8_t* buffer, uint32_t length, uint32_t& count,
                     int32_t first, int32_t rest) {
  while (count < length) {
    uint32_t got = 0;
    const int32_t result =
        secure_read_once(transport, buffer + count, length - count, got, count == 0 ? first : rest);
    transport.fellSilent = result == kChannelTimedOut && count != 0 && !aborted(&transport);
    if (result == kChannelTimedOut) return count == 0 ? TL_TIMED_OUT : TL_READ_FAILED;
    if (result != kChannelDone || got == 0 || got > length - count) return TL_READ_FAILED;
    tell_capture(capture_data, transport, false, buffer + count, got);
    count += got;
  }
  return TL_NORMAL;
}

// --- Writing ---

std::size_t total_of(const iovec* pieces, int count) {
  std::size_t total = 0;
  for (int i = 0; i < count; ++i) total += pieces[i].iov_len;
  return total;
}

void capture_sent(TL_Transport& transport, const iovec* pieces, int count, std::size_t sent) {
  if (capture_data == nullptr || !config_bool(VX_CFG_NETWORK_CAPTURE)) return;
  for (int i = 0; i < count && sent > 0; ++i) {
    const std::size_t part = std::min(sent, pieces[i].iov_len);
    if (part > 0) {
      tell_capture(capture_data, transport, true, pieces[i].iov_base, static_cast<uint32_t>(part));
    }
    sent -= part;
  }
}

void use_up(iovec*& pieces, int& count, std::size_t sent) {
  while (count > 0 && sent >= pieces->iov_len) {
    sent -= pieces->iov_len;
    ++pieces;
    --count;
  }
  if (count > 0) {
    pieces->iov_base = static_cast<uint8_t*>(pieces->iov_base) + sent;
    pieces->iov_len -= sent;
  }
}

TlStatus write_plain(const char* caller, TL_Transport& transport, iovec* pieces, int count, int32_t timeout) {
  use_up(pieces, count, 0);
  while (count > 0) {
    if (aborted(&transport)) return TL_IO_FAILURE;
    const long sent = send_some(transport.socket, pieces, count);
    if (sent > 0) {
      transport.midWrite.store(true, std::memory_order_relaxed);
      capture_sent(transport, pieces, count, static_cast<std::size_t>(sent));
      use_up(pieces, count, static_cast<std::size_t>(sent));
      continue;
    }
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0 && errno != EWOULDBLOCK && errno != EAGAIN) {
      VX_LOG_ERR(caller, "Error in TL_Write: (%d)%s", socket_error_number(errno), socket_error_text(errno));
      return TL_WRITE_FAILED;
    }
    const int ready = WaitForSocketEvent(timeout, false, &transport, transport.socket);
    if (ready > 0) continue;
    if (ready == 0) {
      VX_LOG_ERR(caller, "Timeout in TL_Write()");
      return TL_WRITE_TIMEOUT;
    }
    VX_LOG_ERR(caller, "Select error in TL_Write: (%d)%s", socket_error_number(errno),
               socket_error_text(errno));
    return TL_IO_FAILURE;
  }
  transport.midWrite.store(false, std::memory_order_relaxed);
  return TL_NORMAL;
}

// A secure channel takes one piece: more are put together.
TlStatus write_secure(const char* caller, TL_Transport& transport, const iovec* pieces, int count,
                      int32_t timeout) {
  const std::size_t total = total_of(pieces, count);
  const void* bytes = pieces[0].iov_base;
  uint8_t* copy = nullptr;
  if (count > 1) {
    copy = static_cast<uint8_t*>(allocate_raw(total));
    if (copy == nullptr) return TL_IO_FAILURE;
    uint8_t* next = copy;
    for (int i = 0; i < count; ++i) {
      std::memcpy(next, pieces[i].iov_base, pieces[i].iov_len);
      next += pieces[i].iov_len;
    }
    bytes = copy;
  }
  uint32_t written = 0;
  transport.midWrite.store(true, std::memory_order_relaxed);
  const int32_t result =
      transport.secureFunctions->SS_Write(transport.secureContext, transport.applicationContext, bytes,
                                          static_cast<uint32_t>(total), &written, timeout);
  if (result == kChannelDone) {
    transport.midWrite.store(false, std::memory_order_relaxed);
    tell_capture(capture_data, transport, true, bytes, static_cast<uint32_t>(total));
  }
  release(copy);
  if (result == kChannelDone) return TL_NORMAL;
  VX_LOG_ERR(caller, result == kChannelTimedOut ? "TCP init error, timeout in SS_Write()"
                                                : "TCP init error, SS_Write() failure");
  return result == kChannelTimedOut ? TL_WRITE_TIMEOUT : TL_IO_FAILURE;
}

// --- Closing ---

// What was sent gets time to arrive, as the reset that closes the connection would drop it: a tick from the
// last progress, and no longer than a write may take.
void wait_for_send_queue(const TL_Transport& transport) {
  constexpr int64_t kShortest = 100'000;
  constexpr int64_t kLongest = 20'000'000;
  const int64_t begun = monotonic_now();
  const int64_t end = begun + at_least_one(config_int(VX_CFG_WRITE_TIMEOUT)) * kSecond;
  int64_t progress = begun;
  int before = INT_MAX;
  for (int64_t pause = kShortest;; pause = std::min(pause * 2, kLongest)) {
    const int left = unacknowledged(transport.socket);
    const int64_t now = monotonic_now();
    if (left == 0 || now >= end) return;
    if (left < before && !aborted(&transport)) progress = now;
    if (now - progress >= kSecond) return;
    before = left;
    pause_for(pause);
  }
}

void prepare_close(const TL_Transport& transport) {
  if (config_bool(VX_CFG_HARD_CLOSE_TCP_IP_CONNECTION)) {
    if (!transport.midWrite.load(std::memory_order_relaxed)) wait_for_send_queue(transport);
    return;
  }
  if (!aborted(&transport) && poll_socket(transport.socket, true, kSecond) > 0) return;
  if (aborted(&transport) && !transport.midWrite.load(std::memory_order_relaxed)) {
    wait_for_send_queue(transport);
  }
  if (!set_linger(transport.socket, true) && errno != EINVAL) {
    VX_LOG_WARN("TL_Close_Transport", "Set linger option on socket to force reset failed: (%d)%s",
                socket_error_number(errno), socket_error_text(errno));
  }
}

}  // namespace

int configured_family() {
  const std::string type = config_text(VX_CFG_IP_TYPE);
  return type == "IPV4" ? AF_INET : type == "IPV6" ? AF_INET6 : AF_UNSPEC;
}

TlStatus SetSocketOptions(int socket) {
  const auto buffer_size = [socket](VX_INT_KEY key, int option, const char* key_name,
                                    const char* option_name) {
    const int32_t size = config_int(key);
    if (size <= 0 || set_option(socket, SOL_SOCKET, option, size)) return;
    const int error = errno;
    VX_LOG_WARN("SetSocketOptions", "Problem with %s configuration option, defaulting:", key_name);
    VX_LOG_WARN("SetSocketOptions", "TCP init error (setsockopt(%s) call to value %d): (%d)%s", option_name,
                size, socket_error_number(error), socket_error_text(error));
  };
  if (config_bool(VX_CFG_TCPIP_DISABLE_NAGLE)) {
    if (set_option(socket, IPPROTO_TCP, TCP_NODELAY, 1)) {
      VX_LOG_INF("SetSocketOptions", "Nagle algorithm disabled.");
    } else {
      const int error = errno;
      VX_LOG_WARN("SetSocketOptions", "Unable to disable the TCP Nagle algorithm.");
      VX_LOG_WARN("SetSocketOptions", "TCP init error (setsockopt(TCP_NODELAY call to value %d): (%d)%s", 1,
                  socket_error_number(error), socket_error_text(error));
    }
  }
  if (!set_linger(socket, config_bool(VX_CFG_HARD_CLOSE_TCP_IP_CONNECTION))) {
    VX_LOG_ERR("SetSocketOptions", "Init error setting SO_LINGER: (%d)%s", socket_error_number(errno),
               socket_error_text(errno));
    ::close(socket);
    return TL_SOCKET_FAILURE;
  }
  buffer_size(VX_CFG_TCPIP_SEND_BUFFER_SIZE, SO_SNDBUF, "TCPIP_SEND_BUFFER_SIZE", "SO_SNDBUF");
  buffer_size(VX_CFG_TCPIP_RECEIVE_BUFFER_SIZE, SO_RCVBUF, "TCPIP_RECEIVE_BUFFER_SIZE", "SO_RCVBUF");
  return TL_NORMAL;
}

int wait_until(int64_t end, bool for_reading, const TL_Transport* transport, int socket) {
  if (transport != nullptr && transport->deadline != 0) {
    if (monotonic_now() >= transport->deadline) return 0;
    end = std::min(end, transport->deadline);
  }
  for (bool first = true;; first = false) {
    if (aborted(transport)) return 0;
    const int64_t left = end == INT64_MAX ? kSecond : end - monotonic_now();
    if (left <= 0 && !first) return 0;
    const int ready = poll_socket(socket, for_reading, std::clamp<int64_t>(left, 0, kSecond));
    if (ready > 0) return ready;
    if (ready < 0 && errno != EINTR) return ready;
  }
}

int WaitForSocketEvent(int32_t timeout, bool for_reading, const TL_Transport* transport, int socket) {
  const int64_t end = timeout < 0 ? INT64_MAX : timeout == 0 ? 0 : monotonic_now() + timeout * kSecond;
  return wait_until(end, for_reading, transport, socket);
}

TL_Transport* TL_Create_Transport(const SS_Functions* functions, void* application_context) {
  auto* transport = new_object<TL_Transport>(Pool::TCPObj);
  if (transport == nullptr) return nullptr;
  transport->socket = -1;
  transport->applicationContext = application_context;
  if (functions != nullptr && !set_secure_functions(*transport, *functions)) {
    pool_free(Pool::TCPObj, transport);
    return nullptr;
  }
  return transport;
}

bool set_secure_functions(TL_Transport& transport, const SS_Functions& functions) {
  transport.secureFunctions = static_cast<SS_Functions*>(allocate_raw(sizeof(SS_Functions)));
  if (transport.secureFunctions != nullptr) *transport.secureFunctions = functions;
  return transport.secureFunctions != nullptr;
}

bool open_secure_channel(TL_Transport& transport, ChannelRole role) {
  // What is left until the deadline, or of the time to connect, for whoever makes the channel.
  const int64_t left = transport.deadline != 0
                           ? std::max(transport.deadline - monotonic_now(), kSecond / 1000)
                           : at_least_one(config_int(VX_CFG_CONNECT_TIMEOUT)) * kSecond;
  set_receive_timeout(transport.socket, left);
  const bool open = transport.secureFunctions->SS_Open(transport.socket, static_cast<int32_t>(role),
                                                       transport.applicationContext,
                                                       &transport.secureContext) == kChannelDone;
  set_receive_timeout(transport.socket, 0);
  if (open) return true;
  VX_LOG_ERR(role == ChannelRole::Requester ? "TL_Connect" : "DUL_wait_for_associate_RQ",
             "Unable to establish secure connection on socket %d", transport.socket);
  release(transport.secureFunctions);
  transport.secureFunctions = nullptr;
  return false;
}

TlStatus complete_transport(TL_Transport& transport, const char* function) {
  if (const TlStatus status = SetSocketOptions(transport.socket); status != TL_NORMAL) {
    transport.socket = -1;
    return status;
  }
  if (!transport.isRequester && !config_bool(VX_CFG_ACCEPT_ANY_HOSTNAME) &&
      !store_text_copy(host_name(transport.remoteAddressRaw), transport.remoteName, function)) {
    return TL_NO_MEMORY;
  }
  if (!store_text_copy(numeric_host(transport.remoteAddressRaw), transport.remoteAddress, function)) {
    return TL_NO_MEMORY;
  }
  store_local_address(transport);
  tell_capture(capture_open_stream, transport);
  return TL_NORMAL;
}

TlStatus TL_Connect(TL_Transport& transport, const char* host, const char* port, int32_t timeout) {
  transport.isRequester = true;
  TlStatus status = connect_to_any(transport, host, port, timeout);
  if (status == TL_NORMAL) status = complete_transport(transport, "TL_Connect");
  if (status != TL_NORMAL) return status;
  if (transport.secureFunctions == nullptr || open_secure_channel(transport, ChannelRole::Requester))
    return TL_NORMAL;
  close_capture(transport);
  ::close(transport.socket);
  transport.socket = -1;
  return TL_CONNECT_FAILED;
}

TlStatus TL_Read(TL_Transport& transport, void* buffer, uint32_t length, uint32_t& count, int32_t first,
                 int32_t rest) {
  count = 0;
  auto* bytes = static_cast<uint8_t*>(buffer);
  return transport.secureFunctions != nullptr ? read_secure(transport, bytes, length, count, first, rest)
                                              : read_plain(transport, bytes, length, count, first, rest);
}

TlStatus TL_Write(const char* caller, TL_Transport& transport, iovec* pieces, int piece_count,
                  int32_t timeout) {
  timeout = at_least_one(timeout);
  return transport.secureFunctions != nullptr ? write_secure(caller, transport, pieces, piece_count, timeout)
                                              : write_plain(caller, transport, pieces, piece_count, timeout);
}

void write_at_once(TL_Transport& transport, const void* buffer, uint32_t length) {
  if (transport.socket < 0 || transport.midWrite.load(std::memory_order_relaxed)) return;
  if (transport.secureFunctions == nullptr) {
    iovec piece{const_cast<void*>(buffer), length};
    const long sent = send_some(transport.socket, &piece, 1);
    if (sent > 0) capture_sent(transport, &piece, 1, static_cast<std::size_t>(sent));
    return;
  }
  uint32_t written = 0;
  if (poll_socket(transport.socket, false, 0) <= 0) return;
  transport.secureFunctions->SS_Write(transport.secureContext, transport.applicationContext, buffer, length,
                                      &written, 1);
}

void drain_transport(TL_Transport& transport, int32_t timeout) {
  uint8_t scratch[16 * 1024];
  const int64_t end = monotonic_now() + timeout * kSecond;
  transport.deadline = transport.deadline == 0 ? end : std::min(end, transport.deadline);
  for (;;) {
    if (aborted(&transport) || monotonic_now() >= transport.deadline) return;
    if (transport.secureFunctions != nullptr) {
      uint32_t got = 0;
      if (secure_read_once(transport, scratch, sizeof scratch, got, timeout) != kChannelDone || got == 0)
        return;
      tell_capture(capture_data, transport, false, scratch, got);
      continue;
    }
    const long got = receive_some(transport.socket, scratch, sizeof scratch);
    if (got > 0) {
      tell_capture(capture_data, transport, false, scratch, static_cast<uint32_t>(got));
    } else if (got == 0 || (errno != EWOULDBLOCK && errno != EAGAIN && errno != EINTR)) {
      return;
    } else if (wait_until(end, true, &transport, transport.socket) <= 0) {
      return;
    }
  }
}

void TL_Close_Transport(TL_Transport* transport) {
  if (transport->socket >= 0) {
    close_capture(*transport);
    if (transport->secureFunctions != nullptr) {
      transport->secureFunctions->SS_Close(transport->secureContext, transport->applicationContext);
    }
    prepare_close(*transport);
    if (::close(transport->socket) != 0) {
      VX_LOG_ERR("TL_Close_Transport", "closesocket failed: errno=%d (%s)", socket_error_number(errno),
                 socket_error_text(errno));
    }
    transport->socket = -1;
  }
  TL_Free_Transport(transport);
}

void TL_Free_Transport(TL_Transport* transport) {
  close_capture(*transport);
  release(transport->remoteName);
  release(transport->remoteAddress);
  release(transport->secureFunctions);
  pool_free(Pool::TCPObj, transport);
}

void mark_transport_abort(TL_Transport& transport) {
  transport.abortFlag.store(1);
  if (transport.socket >= 0) ::shutdown(transport.socket, SHUT_RD);
}

void TL_Get_Host_Name(char* buffer, std::size_t size) {
  if (gethostname(buffer, size) != 0 || *buffer == '\0') std::snprintf(buffer, size, "localhost");
  buffer[size - 1] = '\0';
}

}  // namespace vx
