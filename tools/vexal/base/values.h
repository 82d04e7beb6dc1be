// Values of objects as text, and the words that become names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "vexalkit.h"

namespace vexal {

// The first value of an attribute as text without padding, "" if there is none.
std::string text_of(int32_t object, uint32_t tag);
// All values, joined by backslashes.
std::string all_text_of(int32_t object, uint32_t tag);
// The other way round; values that break the rules of their VR are set all the same. "" leaves it without a
// value.
void set_all_text(int32_t object, uint32_t tag, const std::string& values);

// What the library calls a SOP class; "" if it does not know it.
std::string service_of_class(const std::string& sop_class);
std::string uid_of_syntax(VX_TRANSFER_SYNTAX syntax);

// A word in the name of a file: letters, digits, dot, dash and underscore, no more than 64 of them, the first
// of them a letter or digit.
bool is_safe_name(std::string_view name);

}  // namespace vexal
