// Between the transport's files: waits, socket options and the steps that both sides share.
#pragma once

#include "connection/transport.h"

namespace vx {

// 1: ready; 0: the time is over, the transport's deadline has passed or an abort was asked for; -1 and errno.
int WaitForSocketEvent(int32_t timeout, bool for_reading, const TL_Transport* transport, int socket);
// The same up to a moment of the monotonic clock; INT64_MAX for no limit.
int wait_until(int64_t end, bool for_reading, const TL_Transport* transport, int socket);

// The address family that IP_TYPE asks for.
int configured_family();
// Closes the socket on failure.
TlStatus SetSocketOptions(int socket);
// Options, names and addresses of a connection whose socket and remote address stand. The socket is -1 if it
// had to be closed.
TlStatus complete_transport(TL_Transport& transport, const char* function);

bool set_secure_functions(TL_Transport& transport, const SS_Functions& functions);
// False, after a line in the log, with the table dropped.
enum class ChannelRole : int32_t { Requester = 0, Acceptor = 1 };
bool open_secure_channel(TL_Transport& transport, ChannelRole role);
// What the functions of a secure channel answer; all else is a failure.
enum ChannelResult : int32_t { kChannelDone = 0, kChannelTimedOut = 2 };

}  // namespace vx
