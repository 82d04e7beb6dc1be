// Transfer syntaxes: one table, and those that were added.
#pragma once

#include <cstddef>
#include <string_view>

#include "frame/status.h"

namespace vx {

// How a stream of a syntax is written.
struct Encoding {
  VX_TRANSFER_SYNTAX syntax;
  bool big_endian;
  bool explicit_vr;
  bool encapsulated;
};

bool is_transfer_syntax(VX_TRANSFER_SYNTAX syntax);  // of the table
// An added one counts as explicit little endian and encapsulated, as all that came since PS3.5 2000 are.
// VX_INVALID_TRANSFER_SYNTAX gives implicit little endian properties.
VX_STATUS syntax_encoding(VX_TRANSFER_SYNTAX syntax, Encoding& encoding);
// The UID as configured; empty for an unknown code. Returns the length.
std::size_t syntax_uid(VX_TRANSFER_SYNTAX syntax, char* buffer, std::size_t size);
const char* syntax_display_name(VX_TRANSFER_SYNTAX syntax);
// By configured UID, without regard to case; trailing blanks and NULs do not count. An empty text finds the
// first syntax whose UID is not configured.
VX_STATUS syntax_from_uid(std::string_view uid, VX_TRANSFER_SYNTAX& syntax);
// By enumerator name, without regard to case; 0 if unknown.
VX_STATUS syntax_from_name(std::string_view name, VX_TRANSFER_SYNTAX& syntax);

}  // namespace vx
