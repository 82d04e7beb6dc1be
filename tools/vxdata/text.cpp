#include "text.h"

#include <fstream>

#include "model/vr.h"

namespace vxdata {
namespace {

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

std::optional<uint32_t> hex(std::string_view text) {
  uint32_t value = 0;
  for (const char c : text) {
    const int digit = hex_digit(c);
    if (digit < 0) return std::nullopt;
    value = value << 4 | static_cast<uint32_t>(digit);
  }
  return value;
}

std::optional<unsigned> small_number(std::string_view text) {
  if (text.empty() || text.size() > 3) return std::nullopt;
  unsigned value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<unsigned>(c - '0');
  }
  return value;
}

}  // namespace

void Problems::error(const std::string& file, int line, const std::string& text) {
  ++errors_;
  std::fprintf(stderr, "%s:%d: error: %s\n", file.c_str(), line, text.c_str());
}

void Problems::warning(const std::string& file, int line, const std::string& text) {
  ++warnings_;
  std::fprintf(stderr, "%s:%d: warning: %s\n", file.c_str(), line, text.c_str());
}

std::vector<Line> read_lines(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Unusable{path + ": can't be opened"};
  std::vector<Line> lines;
  std::string text;
  for (int number = 1; std::getline(in, text); ++number) {
    if (!text.empty() && text.back() == '\r') text.pop_back();
    if (text.empty() || text.front() == '#' || text.find_first_not_of(" \t") == std::string::npos) continue;
    lines.push_back({number, text});
  }
  if (in.bad()) throw Unusable{path + ": can't be read"};
  return lines;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t at = 0; at <= text.size(); ++at) {
    if (at < text.size() && text[at] != separator) continue;
    parts.emplace_back(text.substr(start, at - start));
    start = at + 1;
  }
  return parts;
}

std::string trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(" \t") - first + 1));
}

std::optional<TagText> parse_tag(std::string_view text) {
  if (text.size() != 9 || text[4] != ',') return std::nullopt;
  std::string digits;
  digits.append(text.substr(0, 4)).append(text.substr(5));
  TagText result;
  if (digits.substr(2, 2) == "xx") {
    if (digits[0] != '5' && digits[0] != '6') return std::nullopt;
    digits[2] = digits[3] = '0';
  } else if (digits.substr(4, 2) == "xx") {
    digits[4] = digits[5] = '0';
    result.block_free = true;
  }
  const auto value = hex(digits);
  if (!value) return std::nullopt;
  result.tag = *value;
  return result;
}

std::string tag_text(uint32_t tag) {
  const uint32_t group = tag >> 16;
  if (group == 0x5000 || group == 0x6000) return format("%02Xxx,%04X", group >> 8, tag & 0xFFFF);
  return format("%04X,%04X", group, tag & 0xFFFF);
}

std::optional<Multiplicity> parse_vm(std::string_view text) {
  const size_t dash = text.find('-');
  const auto low = small_number(text.substr(0, dash));
  if (!low || *low > 254) return std::nullopt;
  if (dash == std::string_view::npos) {
    return Multiplicity{static_cast<uint8_t>(*low), static_cast<uint8_t>(*low)};
  }
  std::string_view high = text.substr(dash + 1);
  if (!high.empty() && high.back() == 'n') {
    high.remove_suffix(1);
    if (!high.empty() && !small_number(high)) return std::nullopt;
    return Multiplicity{static_cast<uint8_t>(*low), 255};
  }
  const auto last = small_number(high);
  if (!last || *last < *low || *last > 254) return std::nullopt;
  return Multiplicity{static_cast<uint8_t>(*low), static_cast<uint8_t>(*last)};
}

std::string vm_text(Multiplicity vm) {
  if (vm.high == 255) return format("%d-n", vm.low);
  if (vm.high == vm.low) return format("%d", vm.low);
  return format("%d-%d", vm.low, vm.high);
}

std::optional<int> vr_code(std::string_view letters) {
  const int code = letters.size() == 2 ? vx::vr_from_letters(letters[0], letters[1]) : -1;
  return code >= 0 ? std::optional(code) : std::nullopt;
}

const char* vr_letters(int code) {
  return vx::vr_letters(code);
}

bool is_text_vr(int code) {
  return vx::is_text_vr(code);
}

bool is_number_vr(int code) {
  return vx::is_numeric_vr(code);
}

bool is_private(uint32_t tag) {
  const uint32_t group = tag >> 16;
  return (group & 1) != 0 && group != 1 && group != 3 && group != 5 && group != 7 && group != 0xFFFF;
}

std::string printable(std::string_view text) {
  std::string result;
  for (const char c : text) result += c >= ' ' && c <= '~' ? c : '?';
  return result;
}

}  // namespace vxdata
