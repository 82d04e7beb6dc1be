// Services and transfer syntaxes that the configuration does not have, added while the library runs:
// VX_Add_Service, VX_Add_Transfer_Syntax.
#pragma once

#include <cstddef>
#include <string_view>

#include "config/services.h"

namespace vx {

// The service of a storage class, made unless it is there. Null: the text is no UID, or there are too many.
const SopObj* add_service(std::string_view uid);
const SopObj* find_added_service(std::string_view name);
const SopObj* find_added_service_by_uid(std::string_view uid);
const SopObj* find_added_service_by_number(int32_t number);

// The code of a syntax, given out unless it is there; 0 as above.
VX_TRANSFER_SYNTAX add_syntax(std::string_view uid);
VX_TRANSFER_SYNTAX find_added_syntax(std::string_view uid);  // 0: none
// The UID, which lives as long as the tables; empty for other codes.
std::string_view added_syntax_uid(VX_TRANSFER_SYNTAX syntax);
inline constexpr VX_TRANSFER_SYNTAX kFirstAddedSyntax = 1000;
constexpr bool is_added_syntax(VX_TRANSFER_SYNTAX syntax) {
  return syntax >= kFirstAddedSyntax;
}
bool has_added_syntaxes();

// Forgets all of them.
void drop_added();

}  // namespace vx
