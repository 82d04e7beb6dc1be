// TCP connections and listening ports. The only code above net/socket that knows of sockets.
//
// All waiting is done in the calling thread, in ticks of one second, so that an abort from another thread is
// seen within a tick. Time-outs are in seconds.
#pragma once

#include <sys/socket.h>
#include <sys/uio.h>

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "frame/status.h"

namespace vx {

enum TlStatus : int32_t {
  TL_NORMAL = 1,
  TL_TIMED_OUT,       // nothing came within the first time-out, or an abort came during the wait
  TL_SOCKET_FAILURE,  // socket, bind, listen, accept or linger failed
  TL_NO_MEMORY,
  TL_NO_POOL,  // no TL_Transport to be had
  TL_UNKNOWN_HOST,
  TL_CONNECT_FAILED,  // refused, timed out, or the secure channel failed
  TL_IO_FAILURE,      // a wait failed, or an abort interrupted a write
  TL_READ_FAILED,     // the peer closed, network error, abort, or inactivity after the first byte
  TL_WRITE_TIMEOUT,
  TL_WRITE_FAILED
};

// One TCP connection; owned by the upper-layer handle.
struct TL_Transport {
  int socket;           // -1 when none; cleared under session_lock()
  char* remoteName;     // owned; from the reverse look-up, null when none was made or none came back
  char* remoteAddress;  // owned; numeric
  void* secureContext;
  void* applicationContext;       // the caller's
  SS_Functions* secureFunctions;  // owned copy; null for plain sockets
  void* captureStream;            // of the network capture; null when it is off
  bool isRequester;
  sockaddr_storage localAddress;
  sockaddr_storage remoteAddressRaw;
  std::atomic<int32_t> abortFlag;
  std::atomic<bool>
      midWrite;      // bytes of a write that failed are out: nothing more can be said on this connection
  bool fellSilent;   // a read that failed had begun: the peer is stalled rather than gone
  int64_t deadline;  // monotonic nanoseconds past which every wait times out; 0 for none
};
static_assert(std::is_trivially_destructible_v<TL_Transport>);

// A listening port, in one list for the whole library.
struct TL_ListenPortObj;

// Closes and frees every listening port.
void TL_Reset();

// Finds or makes the listening port (-1: the default one, which follows TCPIP_LISTEN_PORT) and starts it. On
// success `out` is held until release_listen_port. TL_NO_MEMORY, TL_SOCKET_FAILURE.
TlStatus TL_Prepare_Listen_Port(int32_t port, const char* address, TL_ListenPortObj*& out);
void release_listen_port(TL_ListenPortObj* held);

// An unconnected transport, with copies of the secure functions; null if there is no memory.
TL_Transport* TL_Create_Transport(const SS_Functions* functions, void* application_context);
// Accepts on the listening port, or adopts `accepted` if it is above 0. `out` may be set on failure as well:
// close it. TL_TIMED_OUT also when the port is closed meanwhile.
TlStatus TL_Wait_For_Connection(TL_Transport*& out, int32_t timeout, TL_ListenPortObj* listener,
                                int accepted);
// Accepts a connection for the application, which may hand its socket back later as `accepted`: captured only
// then.
TlStatus wait_for_socket(int32_t& socket, int32_t timeout, TL_ListenPortObj& listener);
// A time-out below 1 becomes 15 seconds.
TlStatus TL_Connect(TL_Transport& transport, const char* host, const char* port, int32_t timeout);

// Reads exactly `length` bytes: `first` is the time-out for the first one, `rest` for each wait after it.
// Nothing past them is taken from the socket.
TlStatus TL_Read(TL_Transport& transport, void* buffer, uint32_t length, uint32_t& count, int32_t first,
                 int32_t rest);
// Writes all bytes of up to kMostPieces pieces, in one system call where the socket takes them. The pieces
// are used up. A time-out below 1 becomes 15 seconds.
inline constexpr int kMostPieces = 4;
TlStatus TL_Write(const char* caller, TL_Transport& transport, iovec* pieces, int piece_count,
                  int32_t timeout);

// Sends what the socket takes at once, without a wait; for the A-ABORT of another thread's wish.
void write_at_once(TL_Transport& transport, const void* buffer, uint32_t length);
// Reads and drops until the peer closes or the time-out is over.
void drain_transport(TL_Transport& transport, int32_t timeout);

// Closes the socket and frees the record. What was sent gets up to a tick to reach the peer.
void TL_Close_Transport(TL_Transport* transport);
// Frees the record and leaves the socket open.
void TL_Free_Transport(TL_Transport* transport);

// Makes another thread's wait end. The caller holds session_lock().
void mark_transport_abort(TL_Transport& transport);

// "localhost" when the system gives none.
void TL_Get_Host_Name(char* buffer, std::size_t size);

// The exported functions of listening ports, their arguments checked.
VX_STATUS get_default_listen_socket(int32_t& socket);
VX_STATUS get_listen_socket(int32_t port, int32_t& socket);
VX_STATUS close_listen_port(int32_t port, const char* address);

}  // namespace vx
