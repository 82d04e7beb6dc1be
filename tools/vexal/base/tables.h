// Lines and cells of a text table.
#pragma once

#include <algorithm>
#include <string_view>

namespace vexal {

// Takes the first line off a text; false at its end. Comment lines and empty ones are passed over.
inline bool next_line(std::string_view& text, std::string_view& line) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.front() != '#') return true;
  }
  return false;
}

// Takes the first cell off a line; empty when there is none left.
inline std::string_view next_cell(std::string_view& line) {
  const std::size_t end = std::min(line.find('\t'), line.size());
  const std::string_view cell = line.substr(0, end);
  line.remove_prefix(std::min(end + 1, line.size()));
  return cell;
}

}  // namespace vexal
