// The requesting side: opening associations.
#pragma once

#include "association/service_lists.h"
#include "connection/session.h"

namespace vx {

struct OpenRequest {
  int32_t application_id;
  const char* title;
  const int32_t* port;       // null: from the profile
  const char* host;          // null: from the profile
  const char* service_list;  // null: from the profile
  const SS_Functions* functions;
  void* application_context;
  int32_t identity_type;
  uint8_t response_requested;
  const void* primary;
  uint16_t primary_length;
  const void* secondary;
  uint16_t secondary_length;
};
VX_STATUS open_association(const OpenRequest& request, int32_t& id);

void drop_remote_applications();

}  // namespace vx
