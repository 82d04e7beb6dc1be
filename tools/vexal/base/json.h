// JSON text, appended to a string.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vexal {

// A string in quotes. What would steer a terminal is escaped. Bytes that are not UTF-8 are taken as ISO
// 8859-1, so that the result always is JSON.
void append_json(std::string& out, std::string_view text);
// A number that reads back as the same double; null for what JSON can not hold.
void append_json(std::string& out, double value);
void append_json(std::string& out, int64_t value);

}  // namespace vexal
