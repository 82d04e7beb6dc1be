// The VR value check: each text VR has one function, which applies the rules in a fixed order.

#include <algorithm>
#include <array>

#include "frame/log.h"
#include "frame/text.h"
#include "model/charset_scan.h"
#include "model/convert.h"
#include "model/dictionary.h"
#include "model/private_blocks.h"
#include "model/vr.h"

namespace vx {
namespace {

constexpr VX_STATUS kInvalid = VX_INVALID_VALUE_FOR_VR;
constexpr VX_STATUS kBadCharacter = VX_INVALID_CHARS_IN_VALUE;

// A value, and its part between leading and trailing blanks.
struct Value {
  std::string_view whole;
  std::string_view text;
  bool leading = false;
  bool trailing = false;

  std::size_t size() const { return whole.size(); }
  bool blank() const { return text.empty(); }
};

Value trim_value(std::string_view whole, bool nuls) {
  Value value{whole, whole};
  std::string_view& text = value.text;
  while (!text.empty() && text.front() == ' ') {
    text.remove_prefix(1);
    value.leading = true;
  }
  while (!text.empty() && (text.back() == ' ' || (nuls && text.back() == '\0'))) {
    if (text.back() == ' ') value.trailing = true;
    text.remove_suffix(1);
  }
  return value;
}

// Classes of bytes; a value's classes together tell whether the plain road will do.
enum : uint8_t {
  kClassControl = 1,  // below 0x20, other than those of a line end
  kClassLine = 2,     // TAB, LF, FF, CR
  kClassDelete = 4,
  kClassC1 = 8,  // 0x80 to 0x9F
  kClassHigh = 16,
  kClassEscape = 32,
  kClassBackslash = 64,
  kClassEqual = 128,
};
constexpr std::array<uint8_t, 256> kClasses = [] {
  std::array<uint8_t, 256> classes{};
  for (unsigned i = 0; i < 0x20; ++i) classes[i] = kClassControl;
  classes['\t'] = classes['\n'] = classes['\f'] = classes['\r'] = kClassLine;
  classes[0x1B] = kClassEscape;
  classes['\\'] = kClassBackslash;
  classes['='] = kClassEqual;
  classes[0x7F] = kClassDelete;
  for (unsigned i = 0x80; i < 0xA0; ++i) classes[i] = kClassC1;
  for (unsigned i = 0xA0; i < 0x100; ++i) classes[i] = kClassHigh;
  return classes;
}();
uint8_t class_of(char byte) {
  return kClasses[static_cast<uint8_t>(byte)];
}

constexpr bool is_letter(char byte) {
  return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}
// The byte at a position, NUL behind the end.
char byte_at(std::string_view text, std::size_t position) {
  return position < text.size() ? text[position] : '\0';
}

// ---- VRs of the default character repertoire ----

VX_STATUS check_ae(const Value& value) {
  if (value.size() > 16 || value.blank()) return kInvalid;
  for (const char byte : value.text) {
    if (byte < 0x20 || byte > 0x7E || byte == '\\') return kBadCharacter;
  }
  return kOk;
}

VX_STATUS check_as(const Value& value) {
  if (value.leading || value.trailing) return kBadCharacter;
  if (value.size() != 4) return kInvalid;
  for (std::size_t i = 0; i < 4; ++i) {
    const char byte = value.whole[i];
    if (is_digit(byte)) continue;
    if (byte != 'Y' && byte != 'M' && byte != 'W' && byte != 'D') return kBadCharacter;
    if (i != 3) return kInvalid;
  }
  return kOk;
}

VX_STATUS check_cs(const Value& value) {
  if (value.size() > 16) return kInvalid;
  for (const char byte : value.text) {
    const bool good = (byte >= 'A' && byte <= 'Z') || is_digit(byte) || byte == ' ' || byte == '_' ||
                      byte == '*' || byte == '?';
    if (!good) return kBadCharacter;
  }
  return kOk;
}

bool month_and_day(std::string_view text, std::size_t at) {
  const char month = text[at];
  if (month > '1' || (month == '1' && byte_at(text, at + 1) > '2')) return false;
  const char day = byte_at(text, at + 2);
  return day < '3' || (day == '3' && byte_at(text, at + 3) <= '1');
}

VX_STATUS check_da(const Value& value) {
  const std::size_t tail = value.size() - value.text.size();
  if (value.leading || value.size() < 8 || tail > 1) return kInvalid;
  int digits = 0;
  bool range = false;
  for (std::size_t i = 0; i < value.text.size(); ++i) {
    const char byte = value.text[i];
    if (byte == '-') {
      if (i > 0 && value.text[i - 1] == '-') return kInvalid;
      digits = 0;
      range = true;
    } else if (!is_digit(byte)) {
      return kBadCharacter;
    } else if (++digits == 5 && !month_and_day(value.text, i)) {
      return kInvalid;
    }
  }
  return (range ? value.size() < 19 : value.size() == 8) ? kOk : kInvalid;
}

VX_STATUS check_ds(const Value& value) {
  if (value.blank()) return kOk;
  if (value.size() > 16) return kInvalid;
  constexpr std::size_t kNone = std::string_view::npos;
  std::size_t point = kNone;
  std::size_t exponent = kNone;
  std::size_t signs[2] = {kNone, kNone};
  int points = 0;
  int exponents = 0;
  std::size_t sign_count = 0;
  for (std::size_t i = 0; i < value.text.size(); ++i) {
    const char byte = value.text[i];
    if (is_digit(byte)) continue;
    if (byte == '.') {
      point = i;
      ++points;
    } else if (byte == 'E' || byte == 'e') {
      exponent = i;
      ++exponents;
    } else if (byte == '+' || byte == '-') {
      if (sign_count < 2) signs[sign_count] = i;
      ++sign_count;
    } else {
      return kBadCharacter;
    }
  }
  if (points > 1 || exponents > 1 || sign_count > 2 || exponent == 0) return kInvalid;
  if (exponents == 1 && points == 1 && exponent < point) return kInvalid;
  const std::size_t behind = exponents == 1 ? exponent + 1 : kNone;
  switch (sign_count) {
    case 0:
      return kOk;
    case 1:
      return signs[0] == 0 || signs[0] == behind ? kOk : kInvalid;
    default:
      return signs[0] == 0 && signs[1] == behind ? kOk : kInvalid;
  }
}

VX_STATUS check_dt(const Value& value) {
  if (value.size() >= 55 || value.leading) return kInvalid;
  const std::string_view text = value.text;
  int hyphens = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char byte = text[i];
    const std::size_t behind = text.size() - 1 - i;
    if (byte == '+' || byte == '-') {
      if (byte == '-') ++hyphens;
      if (behind < 4 && (byte == '+' || behind != 0)) return kInvalid;
    } else if (byte == '.') {
      if (behind == 0) return kInvalid;
    } else if (!is_digit(byte)) {
      return kBadCharacter;
    }
  }
  if (hyphens == 0 && value.size() >= 27) return kInvalid;
  return hyphens <= 2 ? kOk : kInvalid;
}

VX_STATUS check_is(const Value& value) {
  if (value.blank()) return kOk;
  if (value.size() > 12) return kInvalid;
  std::string_view digits = value.text;
  const bool negative = digits.front() == '-';
  if (negative || digits.front() == '+') digits.remove_prefix(1);
  for (const char byte : digits) {
    if (byte == '+' || byte == '-') return kInvalid;
    if (!is_digit(byte)) return kBadCharacter;
  }
  if (digits.size() < 10) return kOk;
  if (digits.size() > 10) return kInvalid;
  return digits <= (negative ? "2147483648" : "2147483647") ? kOk : kInvalid;
}

// The digit pair that starts at `at`, `field` bytes behind the start of its time.
bool time_pair(std::string_view text, std::size_t at, std::size_t field) {
  const char next = byte_at(text, at + 1);
  if (at + 1 == text.size() || next == '-' || next == '.') return false;
  if (field != 0) return text[at] <= '5';
  return text[at] < '2' || (text[at] == '2' && next <= '3');
}

VX_STATUS check_tm(const Value& value) {
  if (value.size() > 28 || value.leading) return kInvalid;
  const std::string_view text = value.text;
  std::size_t start = 0;  // of the time at hand
  bool range = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char byte = text[i];
    const std::size_t field = i - start;
    if (byte == '-') {
      if (i < 8 && i % 2 != 0) return kInvalid;
      start = i + 1;
      range = true;
    } else if (byte == '.') {
      if (field != 6) return kInvalid;
    } else if (!is_digit(byte)) {
      return kBadCharacter;
    } else if ((field == 0 || field == 2 || field == 4) && !time_pair(text, i, field)) {
      return kInvalid;
    }
  }
  return range || value.size() < 15 ? kOk : kInvalid;
}

bool is_uri_byte(char byte) {
  return byte >= 0x21 && byte <= 0x7E && std::string_view("\"<>\\^`|").find(byte) == std::string_view::npos;
}

VX_STATUS check_ur(const Value& value) {
  if (value.leading) return kInvalid;
  const std::string_view text = value.text;
  if (text.empty()) return kOk;
  bool scheme = is_letter(text[0]);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char byte = text[i];
    if (!is_uri_byte(byte)) return kBadCharacter;
    if (i == 0 && !scheme && !text.starts_with("//")) return kInvalid;
    if (scheme) {
      if (byte == ':') {
        if (text.substr(i + 1, 2) != "//") return kInvalid;
        scheme = false;
      } else if (!is_letter(byte) && !is_digit(byte) && byte != '+' && byte != '-' && byte != '.') {
        return kBadCharacter;
      }
    } else if (byte == '%') {
      if (i + 2 >= text.size()) return kInvalid;
      if (hex_digit(text[i + 1]) < 0 || hex_digit(text[i + 2]) < 0) return kBadCharacter;
    }
  }
  return scheme ? kInvalid : kOk;
}

VX_STATUS check_ui(const Value& value) {
  if (value.size() > 64) return kInvalid;
  if (value.leading || value.trailing || value.blank()) return kBadCharacter;
  for (const char byte : value.text) {
    if (!is_digit(byte) && byte != '.') return kBadCharacter;
  }
  return kOk;
}

// ---- VRs under the Specific Character Set ----

struct TextRule {
  uint8_t bad;         // classes that can not stand by themselves
  bool leading_blank;  // may the value begin with one
  bool pieces;         // the limit holds for each piece that "=" cuts
  bool padding;        // blanks around the text count
  int limit;           // characters; 0 for none
};
constexpr uint8_t kBadAlways = kClassControl | kClassDelete | kClassC1;
constexpr TextRule kLo{kBadAlways | kClassLine | kClassBackslash, true, false, true, 64};
constexpr TextRule kSh{kBadAlways | kClassLine | kClassBackslash, true, false, true, 16};
constexpr TextRule kUc{kBadAlways | kClassLine | kClassBackslash, false, false, false, 0};
constexpr TextRule kPn{kBadAlways | kClassLine, false, true, false, 64};
constexpr TextRule kLt{kBadAlways, true, false, true, 10240};
constexpr TextRule kSt{kBadAlways, true, false, true, 1024};
constexpr TextRule kUt{kBadAlways, true, false, true, 0};

const TextRule* text_rule(int32_t vr) {
  switch (vr) {
    case VX_VR_LO:
      return &kLo;
    case VX_VR_LT:
      return &kLt;
    case VX_VR_PN:
      return &kPn;
    case VX_VR_SH:
      return &kSh;
    case VX_VR_ST:
      return &kSt;
    case VX_VR_UC:
      return &kUc;
    case VX_VR_UT:
      return &kUt;
    default:
      return nullptr;
  }
}

VX_STATUS too_long(MsgObj& object, uint32_t tag, int limit) {
  DictInfo info{};
  const std::string_view creator = is_private(tag) ? creator_of(object, tag) : std::string_view();
  const bool known = dictionary_lookup(tag, creator, info) == kOk && info.name != nullptr;
  VX_LOG_WARN("VXI_CheckLongValue", "Attribute %s (%04X,%04X): value exceeds %d characters",
              known ? info.name : "Unknown", tag_group(tag), tag_element(tag), limit);
  return kInvalid;
}

// Longest piece between "=" signs, each of which counts for the piece that it opens.
int longest_piece(std::string_view text) {
  std::size_t longest = 0;
  std::size_t start = 0;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] != '=') continue;
    longest = std::max(longest, i - start);
    start = i;
  }
  return static_cast<int>(std::max(longest, text.size() - start));
}

// The characters that count for the limit, found by walking the text under its character sets.
VX_STATUS scan_text(uint32_t tag, std::string_view text, const TextRule& rule, const CharsetMasks& masks,
                    int& longest) {
  uint32_t active = masks.first;
  int characters = 0;
  int told = 0;
  longest = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    switch (scan_character(text, i, masks.values, active, characters)) {
      case Scan::Invalid:
        return kBadCharacter;
      case Scan::Taken:
        continue;
      case Scan::Single:
        break;
    }
    const char byte = text[i];
    const uint8_t kind = class_of(byte);
    if ((kind & rule.bad) != 0 || !check_default_character(tag, static_cast<uint8_t>(byte), active, told)) {
      return kBadCharacter;
    }
    if (rule.pieces && byte == '=') {
      longest = std::max(longest, characters);
      characters = 0;
    }
    ++characters;
    // Behind a delimiter the first character set is in force again.
    if ((kind & (kClassLine | kClassBackslash)) != 0 || (rule.pieces && (byte == '=' || byte == '^'))) {
      active = masks.first;
    }
  }
  longest = std::max(longest, characters);
  return kOk;
}

VX_STATUS check_text(MsgObj& object, uint32_t tag, const Value& value, const TextRule& rule,
                     CharsetCache* charsets) {
  if (value.leading && !rule.leading_blank) return kInvalid;
  CharsetMasks masks;
  const VX_STATUS status = charset_masks(object, charsets, masks);
  if (status != kOk) return status;
  if (value.blank()) return kOk;

  uint8_t kinds = 0;
  for (const char byte : value.text) kinds |= class_of(byte);
  int longest = static_cast<int>(value.text.size());
  const bool ascii = (kinds & (kClassEscape | kClassC1 | kClassHigh)) == 0;
  const bool plain = (kinds & kClassEscape) == 0 && is_single_byte(masks) && (masks.first & 1U) == 0;
  if (ascii || plain) {
    if ((kinds & rule.bad) != 0) return kBadCharacter;
    if (rule.pieces && longest > rule.limit && (kinds & kClassEqual) != 0)
      longest = longest_piece(value.text);
  } else {
    const VX_STATUS scanned = scan_text(tag, value.text, rule, masks, longest);
    if (scanned != kOk) return scanned;
  }
  if (rule.limit == 0) return kOk;
  if (rule.padding) longest += static_cast<int>(value.size() - value.text.size());
  return longest <= rule.limit ? kOk : too_long(object, tag, rule.limit);
}

}  // namespace

VX_STATUS check_value(MsgObj& object, uint32_t tag, int32_t vr, std::string_view value,
                      CharsetCache* charsets) {
  if (value.empty() || !is_text_vr(vr)) return kOk;
  const Value trimmed = trim_value(value, vr == VX_VR_UI);
  if (const TextRule* rule = text_rule(vr)) return check_text(object, tag, trimmed, *rule, charsets);
  switch (vr) {
    case VX_VR_AE:
      return check_ae(trimmed);
    case VX_VR_AS:
      return check_as(trimmed);
    case VX_VR_CS:
      return check_cs(trimmed);
    case VX_VR_DA:
      return check_da(trimmed);
    case VX_VR_DS:
      return check_ds(trimmed);
    case VX_VR_DT:
      return check_dt(trimmed);
    case VX_VR_IS:
      return check_is(trimmed);
    case VX_VR_TM:
      return check_tm(trimmed);
    case VX_VR_UR:
      return check_ur(trimmed);
    default:
      return check_ui(trimmed);
  }
}

}  // namespace vx
