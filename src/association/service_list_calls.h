// The exported functions of service lists, their pointers checked.
#pragma once

#include "association/service_lists.h"

namespace vx {

struct NewService {
  const char* syntax_list;  // null: the default
  uint8_t scu_role;
  uint8_t scp_role;
  const void* info;
  uint32_t info_length;
};

VX_STATUS new_syntax_list(const char* name, const VX_TRANSFER_SYNTAX* syntaxes);
VX_STATUS new_service(const char* function, const char* name, const SopObj* service,
                      const NewService& wanted);
VX_STATUS new_proposed_list(const char* function, const char* name, const char* const* services,
                            uint16_t invoked, uint16_t performed);
VX_STATUS free_service_list(const char* name);
VX_STATUS free_service(const char* name);
VX_STATUS free_syntax_list(const char* name);

VX_STATUS set_negotiation_info(AppObj& app, const SopObj& service, const void* data, uint32_t length);
VX_STATUS clear_negotiation_info(AppObj& app, const SopObj& service);

}  // namespace vx
