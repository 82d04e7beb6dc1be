// The accepting side: waiting, the automatic checks, the choice of presentation contexts, the answer.
#pragma once

#include <cstdint>

#include "association/service_lists.h"
#include "connection/session.h"
#include "connection/upper_layer.h"

namespace vx {

// What a wait or process function asks for.
struct WaitRequest {
  const char* service_list;
  int32_t timeout = -1;         // seconds; negative: without end, 0: one look
  int32_t application_id = -1;  // -1: chosen by the called title
  int32_t port = -1;            // -1: the default listening port
  const char* address = nullptr;
  int socket = 0;  // an accepted one, in place of a port
  const SS_Functions* functions = nullptr;
  void* application_context = nullptr;
};
// Waits until an association is there that the application must answer. Statuses as the public functions
// have them; the outputs are set on success only.
VX_STATUS wait_for_association(const WaitRequest& request, int32_t& application_id, int32_t& association_id);

// Takes a connection and hands its socket over.
VX_STATUS wait_for_connection(int32_t timeout, int32_t port, const char* address, int32_t& socket);

// The automatic checks of a request, and the answer in the session's Parameters. False: the rejection has
// been sent, the handle is dropped, and `reason` says why.
bool VXI_Validate_Association(SesObj& session, bool echo, char (&reason)[128]);
// Gives each proposed context a result and makes the session's AcceptedEntries. False if none is accepted.
bool choose_contexts(SesObj& session);

struct Roles {
  uint8_t scu;
  uint8_t scp;
};
// The answer to a role item; false if the context is refused.
bool negotiate_roles(Roles requester, Roles entry, Roles& answer);
// One value of the asynchronous operations window: the peer's and the list's give the answer.
uint16_t negotiate_window(uint16_t peer, uint16_t own);

struct IdentityResponse {
  const void* data;
  uint16_t length;
};
// `identity` may be null: the plain form. `function` is the exported function's name.
VX_STATUS accept_association(const char* function, int32_t id, const IdentityResponse* identity);
VX_STATUS reject_association(int32_t id, int32_t reason);

// The peer's extended negotiation data never goes back as it came: the application's takes its place.
void settle_extended_negotiation(SesObj& session);

}  // namespace vx
