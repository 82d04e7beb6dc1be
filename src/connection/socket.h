// What the system offers of sockets, bound to POSIX. Nothing here logs or knows of settings.
#pragma once

#include <sys/socket.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace vx {

// The number by which log lines name a socket error (10000 and up), and its text.
int socket_error_number(int error);
const char* socket_error_text(int error);

int64_t monotonic_now();  // nanoseconds
inline constexpr int64_t kSecond = 1'000'000'000;

// Every descriptor is closed on exec; -1 and errno on failure.
int open_socket(int family, int type, int protocol);
// A connection, not blocking.
int accept_socket(int listener, sockaddr_storage& peer);
bool make_nonblocking(int socket);
bool set_option(int socket, int level, int option, int value);
bool set_linger(int socket, bool reset_on_close);
// How long a blocking read may take; nanoseconds, 0 for no limit.
void set_receive_timeout(int socket, int64_t nanoseconds);
// 0 when the connection stands, else its error.
int pending_error(int socket);

// One poll; 1: ready, an error of the socket included; 0: nothing within the nanoseconds; -1 and errno.
int poll_socket(int socket, bool for_reading, int64_t nanoseconds);
// As recv and sendmsg, without a signal when the peer is gone.
long receive_some(int socket, void* buffer, std::size_t size);
long send_some(int socket, iovec* pieces, int count);
// Bytes that were sent and not yet acknowledged; 0 when that can not be told.
int unacknowledged(int socket);
void pause_for(int64_t nanoseconds);

// An IPv4 address inside IPv6 becomes a plain one.
void unmap_address(sockaddr_storage& address);
socklen_t address_size(const sockaddr_storage& address);
// Empty when there is none.
std::string numeric_host(const sockaddr_storage& address);
std::string host_name(const sockaddr_storage& address);

}  // namespace vx
