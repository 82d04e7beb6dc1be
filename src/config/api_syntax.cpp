#include <cstring>

#include "config/added.h"
#include "config/transfer_syntax.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "frame/text.h"

using namespace vx;

extern "C" {

VX_STATUS VX_Get_Transfer_Syntax_From_Enum(VX_TRANSFER_SYNTAX Syntax, char* Uid, int32_t BufferSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Uid);
  char text[256];
  const std::size_t length = syntax_uid(Syntax, text, sizeof text);
  if (length == 0) return VX_INVALID_TRANSFER_SYNTAX;
  if (length >= sizeof text || BufferSize < 0 || static_cast<std::size_t>(BufferSize) <= length) {
    return VX_BUFFER_TOO_SMALL;
  }
  std::memcpy(Uid, text, length + 1);
  return kOk;
}

VX_STATUS VX_Get_Enum_From_Transfer_Syntax(char* Uid, VX_TRANSFER_SYNTAX* Syntax) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Uid);
  VX_REQUIRE_POINTER(Syntax);
  const std::string_view text = trim_right(Uid);
  Uid[text.size()] = '\0';
  return syntax_from_uid(text, *Syntax);
}

VX_STATUS VX_Add_Transfer_Syntax(const char* Uid, VX_TRANSFER_SYNTAX* Syntax) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Uid);
  VX_REQUIRE_POINTER(Syntax);
  *Syntax = 0;
  return no_throw([&]() -> VX_STATUS {
    if (*Uid != '\0' && syntax_from_uid(Uid, *Syntax) == kOk) return kOk;
    *Syntax = add_syntax(Uid);
    return *Syntax != 0 ? kOk : VX_INVALID_TRANSFER_SYNTAX;
  });
}

}  // extern "C"
