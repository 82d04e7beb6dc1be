#include "key_match.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "files/charset.h"

namespace vexal {
namespace {

// Where a stretch of a pattern, `?` in it for any one character, ends if it starts here; npos: it does not.
std::size_t match_at(std::string_view text, std::size_t at, std::string_view stretch) {
  for (const char c : stretch) {
    if (at >= text.size() || (c != '?' && c != text[at])) return std::string_view::npos;
    at += c == '?' ? std::max<std::size_t>(utf8_length(text.substr(at)), 1) : 1;
  }
  return at;
}

// Where it ends at the first place from here on; at the very end of the text if `last`.
std::size_t search(std::string_view text, std::size_t from, std::string_view stretch, bool last) {
  if (stretch.find('?') == std::string_view::npos) {
    if (last)
      return text.size() - from >= stretch.size() && text.ends_with(stretch) ? text.size() : text.npos;
    // In linear time, whatever the two are.
    const void* found = ::memmem(text.data() + from, text.size() - from, stretch.data(), stretch.size());
    return found == nullptr
               ? text.npos
               : static_cast<std::size_t>(static_cast<const char*>(found) - text.data()) + stretch.size();
  }
  for (std::size_t at = from; at <= text.size(); ++at) {
    const std::size_t end = match_at(text, at, stretch);
    if (end != text.npos && (!last || end == text.size())) return end;
  }
  return text.npos;
}

// `*` is any run of characters, `?` any single one.
bool matches_pattern(std::string_view text, std::string_view pattern) {
  std::size_t star = pattern.find('*');
  std::size_t at = match_at(text, 0, pattern.substr(0, star));
  if (star == pattern.npos) return at == text.size();
  while (at != text.npos) {
    const std::size_t next = pattern.find('*', star + 1);
    const std::string_view stretch = pattern.substr(star + 1, next == pattern.npos ? next : next - star - 1);
    at = search(text, at, stretch, next == pattern.npos);
    if (next == pattern.npos) break;
    star = next;
  }
  return at != text.npos;
}

std::string folded(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

// How a key matches besides a single value.
enum class Match { Text, Name, Moment, Uid, Number };

Match match_of(VX_VR vr) {
  switch (vr) {
    case VX_VR_DA:
    case VX_VR_TM:
    case VX_VR_DT:
      return Match::Moment;
    case VX_VR_UI:
      return Match::Uid;
    case VX_VR_PN:
      return Match::Name;
    case VX_VR_IS:
    case VX_VR_DS:
    case VX_VR_US:
    case VX_VR_SS:
    case VX_VR_UL:
    case VX_VR_SL:
    case VX_VR_FL:
    case VX_VR_FD:
      return Match::Number;
    default:
      return Match::Text;
  }
}

// The dash that parts the ends of a range; one before four digits at the end of a date with time is the
// offset from UTC.
std::size_t range_dash(VX_VR vr, const std::string& key) {
  std::size_t dash = key.find('-');
  if (vr != VX_VR_DT) return dash;
  const auto is_offset = [&](std::size_t at) {
    const std::size_t end = std::min(key.find('-', at + 1), key.size());
    return at >= 8 && end == at + 5 && key.compare(at + 1, 4, "1400") <= 0;
  };
  while (dash != std::string::npos && is_offset(dash)) dash = key.find('-', dash + 1);
  return dash;
}

// "20240101-20240131", open at either end. Dates and times compare as text, the shorter one as far as it
// goes.
bool in_range(const std::string& value, const std::string& key, std::size_t dash) {
  const std::string low = key.substr(0, dash);
  const std::string high = key.substr(dash + 1);
  if (value.empty()) return false;
  const auto compare = [&](const std::string& bound) {
    const std::size_t length = std::min(bound.size(), value.size());
    return value.compare(0, length, bound, 0, length);
  };
  return (low.empty() || compare(low) >= 0) && (high.empty() || compare(high) <= 0);
}

bool same_number(const std::string& value, const std::string& key) {
  char* value_end = nullptr;
  char* key_end = nullptr;
  const double one = std::strtod(value.c_str(), &value_end);
  const double other = std::strtod(key.c_str(), &key_end);
  return value_end != value.c_str() && key_end != key.c_str() && *value_end == '\0' && *key_end == '\0' &&
         one == other;
}

bool matches_one(VX_VR vr, const std::string& value, const std::string& key) {
  const Match match = match_of(vr);
  if (match == Match::Moment) {
    if (const std::size_t dash = range_dash(vr, key); dash != std::string::npos)
      return in_range(value, key, dash);
  }
  if (match == Match::Uid) return value == key || key == "*";
  if (match == Match::Number && same_number(value, key)) return true;
  if (match != Match::Name) return matches_pattern(value, key);
  // A name matches without the empty components at its end.
  const std::string name = folded(value);
  const std::string wanted = folded(key);
  const std::size_t end = name.find_last_not_of("^=");
  const std::string_view bare = std::string_view(name).substr(0, end == name.npos ? 0 : end + 1);
  return matches_pattern(bare, wanted) || (bare.size() != name.size() && matches_pattern(name, wanted));
}

}  // namespace

std::vector<std::string> values_of(const std::string& values) {
  std::vector<std::string> parts;
  for (std::size_t start = 0; start <= values.size();) {
    const std::size_t end = std::min(values.find('\\', start), values.size());
    parts.push_back(values.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

bool matches_key(VX_VR vr, const std::string& value, const std::string& key) {
  if (key.empty()) return true;
  // Any of the values may match any of the keys.
  const std::vector<std::string> values = values_of(value);
  const std::vector<std::string> wanted = values_of(key);
  return std::any_of(wanted.begin(), wanted.end(), [&](const std::string& one) {
    return std::any_of(values.begin(), values.end(),
                       [&](const std::string& part) { return matches_one(vr, part, one); });
  });
}

}  // namespace vexal
