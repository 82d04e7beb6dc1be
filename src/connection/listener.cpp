// Listening ports.
#include <netdb.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "config/config.h"
#include "connection/pdu.h"
#include "connection/socket.h"
#include "connection/transport.h"
#include "connection/transport_wait.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/named_locks.h"
#include "frame/pool.h"
#include "frame/seams.h"

namespace vx {

struct TL_ListenPortObj {
  int socket = -1;
  int32_t port = 0;
  bool isDefault = false;
  std::string address;  // to bind; empty for all
  std::atomic<bool> closed{false};
  int holders = 0;  // threads that wait on it; the last one closes a port that was closed meanwhile
  Lock start_lock;
  Lock accept_lock;  // one thread at a time sees whether a connection is there and takes it
};

namespace {

// Outside the pools: a thread may still wait on a port while the library is reset.
Lock g_lock;
std::vector<TL_ListenPortObj*> g_ports;
const NamedLock kNamedLock("S.ListenPortListSemaphore", g_lock);

void destroy(TL_ListenPortObj* port) {
  if (port->socket >= 0) ::close(port->socket);
  delete port;
}

// The list's lock is held. Waiting threads wake up; the last one closes the socket.
void remove_port(TL_ListenPortObj* port) {
  std::erase(g_ports, port);
  port->closed.store(true);
  if (port->socket >= 0) ::shutdown(port->socket, SHUT_RDWR);
  if (port->holders == 0) destroy(port);
}

TL_ListenPortObj* find_port(int32_t number, const char* address) {
  for (TL_ListenPortObj* port : g_ports) {
    if (port->port != number) continue;
    if (address == nullptr || port->address.empty() || port->address == address) return port;
  }
  return nullptr;
}

TL_ListenPortObj* find_default() {
  for (TL_ListenPortObj* port : g_ports) {
    if (port->isDefault) return port;
  }
  return nullptr;
}

TL_ListenPortObj* new_port(int32_t number, const char* address, bool is_default) {
  try {
    auto port = std::make_unique<TL_ListenPortObj>();
    port->port = number;
    port->isDefault = is_default;
    if (address != nullptr) port->address = address;
    g_ports.push_back(port.get());
    return port.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

TL_ListenPortObj* default_port() {
  const int32_t number = config_int(VX_CFG_TCPIP_LISTEN_PORT);
  TL_ListenPortObj* port = find_default();
  if (port != nullptr && port->port != number) {
    VX_LOG_INF("TL_Prepare_Listen_Port",
               "Default listen port configuration has changed.  Stopping listening on port %d and starting "
               "listening on %d",
               port->port, number);
    remove_port(port);
    port = nullptr;
  }
  return port != nullptr ? port : new_port(number, nullptr, true);
}

// --- Binding ---

int bind_socket(const addrinfo& address, int32_t port) {
  const int socket = open_socket(address.ai_family, address.ai_socktype, address.ai_protocol);
  if (socket < 0) {
    VX_LOG_ERR("TL_Start_Transport_Listener", "TCP Init failure on socket call");
    VX_LOG_ERR("TL_Start_Transport_Listener", "WSAGetLastError: (%d)%s", socket_error_number(errno),
               socket_error_text(errno));
    return -1;
  }
  if (address.ai_family == AF_INET6) {
    const int only = configured_family() == AF_INET6 ? 1 : 0;
    if (!set_option(socket, IPPROTO_IPV6, IPV6_V6ONLY, only)) {
      VX_LOG_WARN("TL_Start_Transport_Listener",
                  "Problem with IPV6_V6ONLY configuration option, defaulting:");
      VX_LOG_WARN("TL_Start_Transport_Listener",
                  "TCP init error (setsockopt(IPV6_V6ONLY) call to value %d): (%d)%s", only,
                  socket_error_number(errno), socket_error_text(errno));
    }
  }
  // A restarted program gets its port although connections of its predecessor linger.
  set_option(socket, SOL_SOCKET, SO_REUSEADDR, 1);
  if (::bind(socket, address.ai_addr, address.ai_addrlen) == 0) return socket;
  const int error = errno;
  VX_LOG_ERR("TL_Start_Transport_Listener", "Failure binding listen port");
  if (error == EADDRINUSE) {
    VX_LOG_ERR("TL_Start_Transport_Listener", "Port %d already in use", port);
  } else {
    VX_LOG_ERR("TL_Start_Transport_Listener", "winsock bind error: (%d) WSAGetLastError: (%d)%s", -1,
               socket_error_number(error), socket_error_text(error));
  }
  ::close(socket);
  return -1;
}

// With any family asked for, IPv6 goes first: its socket takes both.
int bind_first(const addrinfo* head, int32_t port, const char* port_text) {
  const bool any_family = configured_family() == AF_UNSPEC;
  bool tried = false;
  for (const int family : {AF_INET6, AF_INET}) {
    for (const addrinfo* address = head; address != nullptr; address = address->ai_next) {
      if (address->ai_family != family && (any_family || family == AF_INET)) continue;
      if (!any_family && family == AF_INET) continue;
      if (tried) {
        VX_LOG_ERR("TL_Start_Transport_Listener", "Bind attempt failed, trying another address for port %s",
                   port_text);
      }
      tried = true;
      const int socket = bind_socket(*address, port);
      if (socket >= 0) return socket;
    }
  }
  return -1;
}

TlStatus TL_Start_Transport_Listener(TL_ListenPortObj& port) {
  const Guard guard(port.start_lock);
  if (port.socket >= 0) return TL_NORMAL;
  const std::string number = std::to_string(port.port);
  addrinfo wanted{};
  wanted.ai_flags = AI_PASSIVE;
  wanted.ai_family = configured_family();
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_protocol = IPPROTO_TCP;
  addrinfo* addresses = nullptr;
  const int result =
      getaddrinfo(port.address.empty() ? nullptr : port.address.c_str(), number.c_str(), &wanted, &addresses);
  if (result != 0 || addresses == nullptr) {
    VX_LOG_ERR("TL_Start_Transport_Listener", "Cannot obtain %s addrinfo for port %s: %s",
               config_text(VX_CFG_IP_TYPE).c_str(), number.c_str(), gai_strerror(result));
    return TL_SOCKET_FAILURE;
  }
  const int socket = bind_first(addresses, port.port, number.c_str());
  freeaddrinfo(addresses);
  if (socket < 0) return TL_SOCKET_FAILURE;
  if (const TlStatus status = SetSocketOptions(socket); status != TL_NORMAL) return status;
  if (::listen(socket, config_int(VX_CFG_MAX_PENDING_CONNECTIONS)) != 0) {
    VX_LOG_ERR("TL_Start_Transport_Listener", "TCP listen error: (%d)%s", socket_error_number(errno),
               socket_error_text(errno));
    ::close(socket);
    return TL_SOCKET_FAILURE;
  }
  const Guard list_guard(g_lock);
  port.socket = socket;
  if (port.closed.load()) ::shutdown(socket, SHUT_RDWR);
  return TL_NORMAL;
}

// --- Accepting ---

// A connection that died in the queue, or that another thread took.
bool is_passing(int error) {
  constexpr int kPassing[] = {EINTR,  EAGAIN,       EWOULDBLOCK, ECONNABORTED, EPROTO,      ENETDOWN,
                              ENONET, EHOSTUNREACH, EHOSTDOWN,   ENETUNREACH,  ENOPROTOOPT, EOPNOTSUPP};
  return std::find(std::begin(kPassing), std::end(kPassing), error) != std::end(kPassing);
}

TlStatus accept_connection(TL_ListenPortObj& port, int32_t timeout, TL_Transport& transport) {
  const int64_t end = timeout < 0 ? INT64_MAX : monotonic_now() + timeout * kSecond;
  for (;;) {
    const int ready = wait_until(timeout == 0 ? 0 : end, true, nullptr, port.socket);
    if (port.closed.load() || ready == 0) return TL_TIMED_OUT;
    if (ready < 0) {
      VX_LOG_ERR("TL_Wait_For_Connection", "wait connection failed: (%d)%s", socket_error_number(errno),
                 socket_error_text(errno));
      return TL_TIMED_OUT;
    }
    const Guard guard(port.accept_lock);
    int error = EAGAIN;
    if (poll_socket(port.socket, true, 0) > 0) {
      transport.socket = accept_socket(port.socket, transport.remoteAddressRaw);
      if (transport.socket >= 0) return TL_NORMAL;
      error = errno;
    }
    if (port.closed.load()) return TL_TIMED_OUT;
    if (!is_passing(error)) {
      VX_LOG_ERR("TL_Wait_For_Connection", "accept error: (%d)%s", socket_error_number(error),
                 socket_error_text(error));
      return TL_SOCKET_FAILURE;
    }
    if (timeout == 0) return TL_TIMED_OUT;
  }
}

TlStatus adopt_connection(int accepted, TL_Transport& transport) {
  socklen_t size = sizeof transport.remoteAddressRaw;
  transport.socket = accepted;
  if (getpeername(accepted, reinterpret_cast<sockaddr*>(&transport.remoteAddressRaw), &size) != 0) {
    VX_LOG_ERR("TL_Wait_For_Connection", "Error on getpeername call");
    return TL_TIMED_OUT;
  }
  unmap_address(transport.remoteAddressRaw);
  if (make_nonblocking(accepted)) return TL_NORMAL;
  VX_LOG_ERR("TL_Wait_For_Connection", "ioctlsocket FIONBIO call failed, errno [%d]",
             socket_error_number(errno));
  ::close(accepted);
  transport.socket = -1;
  return TL_SOCKET_FAILURE;
}

}  // namespace

TlStatus TL_Prepare_Listen_Port(int32_t number, const char* address, TL_ListenPortObj*& out) {
  out = nullptr;
  {
    const Guard guard(g_lock);
    if (number == -1) {
      out = default_port();
    } else {
      out = find_port(number, address);
      if (out == nullptr) out = new_port(number, address, false);
    }
    if (out == nullptr) return TL_NO_MEMORY;
    ++out->holders;
  }
  const TlStatus status = TL_Start_Transport_Listener(*out);
  if (status == TL_NORMAL) return status;
  release_listen_port(out);
  out = nullptr;
  return status;
}

void release_listen_port(TL_ListenPortObj* held) {
  const Guard guard(g_lock);
  if (--held->holders == 0 && held->closed.load()) destroy(held);
}

TlStatus TL_Wait_For_Connection(TL_Transport*& out, int32_t timeout, TL_ListenPortObj* listener,
                                int accepted) {
  out = TL_Create_Transport(nullptr, nullptr);
  if (out == nullptr) return TL_NO_POOL;
  const TlStatus status =
      accepted > 0 ? adopt_connection(accepted, *out) : accept_connection(*listener, timeout, *out);
  return status == TL_NORMAL ? complete_transport(*out, "TL_Wait_For_Connection") : status;
}

TlStatus wait_for_socket(int32_t& socket, int32_t timeout, TL_ListenPortObj& listener) {
  TL_Transport* transport = TL_Create_Transport(nullptr, nullptr);
  if (transport == nullptr) return TL_NO_POOL;
  TlStatus status = accept_connection(listener, timeout, *transport);
  if (status == TL_NORMAL) status = SetSocketOptions(transport->socket);
  if (status == TL_NORMAL) socket = transport->socket;
  TL_Free_Transport(transport);
  return status;
}

void TL_Reset() {
  const Guard guard(g_lock);
  while (!g_ports.empty()) remove_port(g_ports.back());
}

void transport_shut_down() {
  TL_Reset();
  reset_uid_padding();
}

VX_STATUS get_default_listen_socket(int32_t& socket) {
  {
    const Guard guard(g_lock);
    const TL_ListenPortObj* port = find_default();
    if (port != nullptr && port->socket >= 0) {
      socket = port->socket;
      return kOk;
    }
  }
  TL_ListenPortObj* port = nullptr;
  if (TL_Prepare_Listen_Port(-1, nullptr, port) != TL_NORMAL) return VX_SYSTEM_ERROR;
  socket = port->socket;
  release_listen_port(port);
  return kOk;
}

VX_STATUS get_listen_socket(int32_t number, int32_t& socket) {
  const Guard guard(g_lock);
  const TL_ListenPortObj* port = find_port(number, nullptr);
  if (port == nullptr) return VX_INVALID_PORT_NUMBER;
  socket = port->socket;
  return kOk;
}

VX_STATUS close_listen_port(int32_t number, const char* address) {
  const Guard guard(g_lock);
  TL_ListenPortObj* port = find_port(number, address);
  if (port == nullptr) return VX_INVALID_PORT_NUMBER;
  remove_port(port);
  return kOk;
}

}  // namespace vx
