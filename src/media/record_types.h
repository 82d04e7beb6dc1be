// The types of directory records (PS3.3 section F.4) as tables.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "frame/status.h"

namespace vx {

struct RecordType {
  std::string_view text;  // of (0004,1430)
  uint32_t sort_tags[3];  // 0: no more
};
const RecordType* find_record_type(std::string_view text);
// The number that orders records; that of "PRIVATE" for a text that is no type.
int record_type_number(std::string_view text);
std::span<const uint32_t> sort_tags(int type_number);

// Whether a record of an item name may lie below a parent, "ROOT" at the top. VX_INVALID_LOWER_DIR_RECORD;
// VX_INVALID_DIR_RECORD_TYPE: no such parent.
VX_STATUS check_lower_item(std::string_view parent, std::string_view item_name);
// The same by type texts for a directory on disk, whose table differs; the root has no text.
VX_STATUS check_lower_type(std::string_view parent, std::string_view type);
// 0 to 30, or 31 for any other text.
int record_type_code(std::string_view text);
// Empty if the class is not listed.
std::string_view type_of_class(std::string_view uid);

// "DIR_REC_RT_DOSE" and "RT DOSE". Empty for a name that is none of a record.
std::string type_of_item(std::string_view item_name);
std::string item_of_type(std::string_view text);

}  // namespace vx
