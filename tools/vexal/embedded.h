// What the program carries inside: the default configuration, the dictionary, keywords and UIDs.
#pragma once

#include <string_view>

#include "vexalkit.h"

namespace vexal {

// Builders for VX_Library_Initialization.
ConfigRecord* embedded_config();
const DictionaryRecord* embedded_dictionary();

// One line a standard tag, ascending: eight hex digits, TAB, keyword, LF.
std::string_view embedded_keywords();
// One line a UID: UID, TAB, name, TAB, kind, LF.
std::string_view embedded_uids();

}  // namespace vexal
