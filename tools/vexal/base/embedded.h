// What the program carries inside: the default configuration, the dictionary, keywords and UIDs.
#pragma once

#include <string_view>

#include "vexalkit.h"

namespace vexal {

// Builders for VX_Library_Initialization.
ConfigRecord* embedded_config();
const DictionaryRecord* embedded_dictionary();

// data/dictionary.tsv and data/uids.tsv as they stand there.
std::string_view dictionary_table();
std::string_view uid_table();
// data/reports/: templates, context groups, and retired codes with those that replaced them.
std::string_view report_templates_table();
std::string_view report_groups_table();
std::string_view report_codes_table();

}  // namespace vexal
