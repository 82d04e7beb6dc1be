#include "model/charset_scan.h"

#include <algorithm>

#include "config/config.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/vr.h"

namespace vx {
namespace {

constexpr uint32_t kCharacterSetTag = 0x00080005;
constexpr std::size_t kMaxNameBytes = 16;
constexpr char kFunction[] = "VXI_ScanCharacter";
constexpr char kNamesFunction[] = "VXI_GetSpecificCharSetValue";

enum : uint32_t {
  kIr6 = 0x1,
  kIr100 = 0x2,
  kIr101 = 0x4,
  kIr109 = 0x8,
  kIr110 = 0x10,
  kIr144 = 0x20,
  kIr127 = 0x40,
  kIr126 = 0x80,
  kIr138 = 0x100,
  kIr148 = 0x200,
  kIr166 = 0x400,
  kIr13 = 0x800,
  kUtf8 = 0x1000,
  kGb18030 = 0x2000,
  kIr87 = 0x20000,
  kIr159 = 0x40000,
  kIr149 = 0x80000,
  kIr58 = 0x100000,
  kGbk = 0x200000,
  kIr203 = 0x400000,
};
// Sets that ESC ( B belongs to: all that have ASCII as G0.
constexpr uint32_t kAsciiSets = 0x7FF | kIr203;

struct NameRow {
  std::string_view text;
  uint32_t bit;
};
// Sets that stand alone: the whole name.
constexpr NameRow kWholeSets[] = {{"GB18030", kGb18030}, {"ISO_IR 192", kUtf8}, {"GBK", kGbk}};
// Sets known by the end of their name, wherever it stands. IR 138 before IR 13.
constexpr NameRow kSingleByteSets[] = {
    {"IR 6", kIr6},     {"IR 100", kIr100}, {"IR 101", kIr101}, {"IR 109", kIr109}, {"IR 110", kIr110},
    {"IR 126", kIr126}, {"IR 127", kIr127}, {"IR 138", kIr138}, {"IR 13", kIr13},   {"IR 144", kIr144},
    {"IR 148", kIr148}, {"IR 166", kIr166}, {"IR 203", kIr203},
};
// Sets that exist under code extensions only.
constexpr NameRow kMultiByteSets[] = {{"149", kIr149}, {"87", kIr87}, {"159", kIr159}, {"58", kIr58}};

constexpr std::string_view kExtended = "ISO 2022 IR ";
constexpr std::string_view kPlain = "ISO_IR ";

// `several`: names without code extensions mean the ones with them.
void add_name(std::string_view name, bool several, uint32_t& mask) {
  for (const NameRow& row : kWholeSets) {
    if (name == row.text) {
      mask = row.bit;
      return;
    }
  }
  const bool plain = several && name.starts_with(kPlain);
  if (plain || name.find("ISO 2022 IR") != std::string_view::npos) mask |= kCodeExtensions;
  for (const NameRow& row : kSingleByteSets) {
    if (name.find(row.text) != std::string_view::npos) {
      mask |= row.bit;
      return;
    }
  }
  if (!plain && !name.starts_with(kExtended)) return;
  const std::string_view number = name.substr(plain ? kPlain.size() : kExtended.size());
  for (const NameRow& row : kMultiByteSets) {
    if (number == row.text) mask |= row.bit;
  }
}

// The values up to the first empty one behind the first.
VX_STATUS read_names(const TagObj& attribute, std::string_view (&names)[kMaxCharsetNames], int& count) {
  count = 0;
  if (attribute.Length == 0) return kOk;
  if (!is_text_vr(attribute.VR)) {
    VX_LOG_ERR(kNamesFunction, "VXI_GetValue failed with status: %s", status_text(VX_INCOMPATIBLE_VR));
    return VX_INCOMPATIBLE_VR;
  }
  if (attribute.FirstValue == nullptr) {
    VX_LOG_ERR(kNamesFunction, "VXI_SetFirst(Next)Accessed failed with status: %s",
               status_text(VX_NO_MORE_VALUES));
    return VX_NO_MORE_VALUES;
  }
  for (const ValueObj* value = attribute.FirstValue; value != nullptr && count < kMaxCharsetNames;
       value = value->Next) {
    std::string_view name;
    if (value->Data != nullptr) name = trim({static_cast<const char*>(value->Data), value->Length});
    if (name.empty() && count > 0) break;
    if (name.size() > kMaxNameBytes) {
      VX_LOG_ERR(kNamesFunction, "VXI_GetValue failed with status: %s", status_text(VX_VALUE_TOO_LARGE));
      return VX_VALUE_TOO_LARGE;
    }
    names[count++] = name;
  }
  return kOk;
}

const TagObj* find_names(MsgObj& object) {
  MsgObj* holder = &object;
  for (int level = 0; level <= kMaxNesting && holder != nullptr; ++level) {
    const TagObj* attribute = lower_bound_tag(*holder, kCharacterSetTag);
    if (attribute != nullptr && attribute->Tag == kCharacterSetTag) return attribute;
    if (holder->ParentID <= 0) break;
    holder = find_object(holder->ParentID);
  }
  return nullptr;
}

uint8_t byte_at(std::string_view text, std::size_t position) {
  return static_cast<uint8_t>(text[position]);
}

// A run of characters of two bytes from 0xA0 up, from `at` to the next ESC, NUL or low byte.
Scan take_high_pairs(std::string_view text, std::size_t at, std::size_t& position, int& characters, int set) {
  for (; at < text.size(); at += 2, ++characters) {
    const uint8_t first = byte_at(text, at);
    if (first == 0x1B || first == 0) break;
    position = at;
    if (first < 0xA0) return Scan::Single;
    if (at + 1 == text.size()) {
      VX_LOG_ERR(kFunction, "IR %d insufficient buffer length", set);
      return Scan::Invalid;
    }
    const uint8_t second = byte_at(text, at + 1);
    if (second < 0xA0) {
      VX_LOG_ERR(kFunction, "IR %d second byte out of encoding range %02x, %02x", set, first, second);
      return Scan::Invalid;
    }
  }
  position = at - 1;
  return Scan::Taken;
}

// A run of characters of two 7-bit bytes, from `at` to the next ESC or NUL.
Scan take_low_pairs(std::string_view text, std::size_t at, std::size_t& position, int& characters, int set,
                    unsigned low, unsigned high) {
  for (; at < text.size(); at += 2, ++characters) {
    const uint8_t first = byte_at(text, at);
    if (first == 0x1B || first == 0) break;
    position = at;
    if (at + 1 == text.size()) {
      VX_LOG_ERR(kFunction, "IR %d insufficent buffer length", set);
      return Scan::Invalid;
    }
    const uint8_t second = byte_at(text, at + 1);
    const unsigned pair = (static_cast<unsigned>(first) << 8) | second;
    if (pair < low || pair > high) {
      VX_LOG_ERR(kFunction, "IR %d character out of range %02x, %02x", set, first, second);
      return Scan::Invalid;
    }
  }
  position = at - 1;
  return Scan::Taken;
}

enum class Run : uint8_t { None, Low87, Low159, High };
struct Escape {
  std::string_view bytes;  // behind the ESC
  uint32_t needs;
  uint32_t active;
  int set;
  Run run;
};
constexpr Escape kEscapes[] = {
    {"(B", kAsciiSets, kIr6, 6, Run::None},    {"(J", kIr13, kIr13, 13, Run::None},
    {")I", kIr13, kIr13, 13, Run::None},       {"$B", kIr87, kIr87, 87, Run::Low87},
    {"$(D", kIr159, kIr159, 159, Run::Low159}, {"$(C", kIr149, kIr149, 149, Run::High},
    {"$)C", kIr149, kIr149, 149, Run::High},   {"$)A", kIr58, kIr58, 58, Run::High},
    {"-A", kIr100, kIr100, 100, Run::None},    {"-B", kIr101, kIr101, 101, Run::None},
    {"-C", kIr109, kIr109, 109, Run::None},    {"-D", kIr110, kIr110, 110, Run::None},
    {"-F", kIr126, kIr126, 126, Run::None},    {"-G", kIr127, kIr127, 127, Run::None},
    {"-H", kIr138, kIr138, 138, Run::None},    {"-L", kIr144, kIr144, 144, Run::None},
    {"-M", kIr148, kIr148, 148, Run::None},    {"-T", kIr166, kIr166, 166, Run::None},
    {"-b", kIr203, kIr203, 203, Run::None},
};

const Escape* find_escape(std::string_view behind) {
  for (const Escape& escape : kEscapes) {
    if (behind.starts_with(escape.bytes)) return &escape;
  }
  return nullptr;
}

void log_unexpected(const Escape& escape, bool error) {
  const auto a = static_cast<uint8_t>(escape.bytes[0]);
  const auto b = static_cast<uint8_t>(escape.bytes[1]);
  const uint32_t level = error ? VX_LOG_ERROR : VX_LOG_WARNING;
  if (escape.bytes.size() == 3) {
    log_line(level, kFunction, "Unexpected ISO IR %d escape sequence found: ESC %02x %02x %02x", escape.set,
             a, b, static_cast<uint8_t>(escape.bytes[2]));
  } else {
    log_line(level, kFunction, "Unexpected ISO IR %d escape sequence found: ESC %02x%s %02x", escape.set, a,
             escape.set == 126 ? "," : "", b);
  }
}

Scan take_escape(std::string_view text, std::size_t& position, uint32_t values_mask, uint32_t& active_mask,
                 int& characters) {
  if ((values_mask & kCodeExtensions) == 0) {
    VX_LOG_ERR(kFunction, "Specific Character Set doesn't contain code extension but ESC character found");
    return Scan::Invalid;
  }
  const std::string_view behind = text.substr(position + 1);
  if (behind.size() < 2) {
    VX_LOG_ERR(kFunction, "Insufficient input in escape sequence");
    return Scan::Invalid;
  }
  const Escape* escape = find_escape(behind);
  if (escape == nullptr) {
    VX_LOG_ERR(kFunction, "%s escape sequence found: ESC %02x %02x",
               behind[0] == '-' ? "Unexpected" : "Unknown", static_cast<uint8_t>(behind[0]),
               static_cast<uint8_t>(behind[1]));
    return Scan::Invalid;
  }
  if ((values_mask & escape->needs) == 0) {
    const bool error = escape->active != kIr6;
    log_unexpected(*escape, error);
    if (error) return Scan::Invalid;
  }
  active_mask = escape->active;
  const std::size_t next = position + 1 + escape->bytes.size();
  switch (escape->run) {
    case Run::Low87:
      return take_low_pairs(text, next, position, characters, 87, 0x2121, 0x737E);
    case Run::Low159:
      return take_low_pairs(text, next, position, characters, 159, 0x2220, 0x6D6D);
    case Run::High:
      return take_high_pairs(text, next, position, characters, escape->set);
    case Run::None:
      break;
  }
  position = next - 1;
  return Scan::Taken;
}

Scan take_gb(std::string_view text, std::size_t& position, bool four_bytes, int& characters) {
  const uint8_t first = byte_at(text, position);
  if (first < 0x81 || first > 0xFE) return Scan::Single;
  const std::size_t left = text.size() - position;
  std::size_t length = 2;
  if (four_bytes && left > 1) {
    const uint8_t second = byte_at(text, position + 1);
    if (second >= 0x2A && second <= 0x39) length = 4;
  }
  if (left < length) {
    VX_LOG_ERR(kFunction, "Insufficient input in %s byte sequence", four_bytes ? "GB18030" : "GBK");
    return Scan::Invalid;
  }
  position += length - 1;
  ++characters;
  return Scan::Taken;
}

Scan take_utf8(std::string_view text, std::size_t& position, int& characters) {
  const uint8_t first = byte_at(text, position);
  std::size_t length = 0;
  if ((first & 0xE0) == 0xC0) {
    length = 2;
  } else if ((first & 0xF0) == 0xE0) {
    length = 3;
  } else if ((first & 0xF8) == 0xF0) {
    length = 4;
  } else if ((first & 0xFC) == 0xF8) {
    length = 5;
  } else if ((first & 0xFE) == 0xFC) {
    length = 6;
  } else {
    return Scan::Single;
  }
  if (first == 0xC0 || first == 0xC1 || length >= 5) {
    VX_LOG_WARN(kFunction, "Unexpected UTF-8 %d-byte control code found: %02x", static_cast<int>(length),
                first);
  }
  position = std::min(position + length, text.size()) - 1;
  ++characters;
  return Scan::Taken;
}

// Bytes of an escape sequence, ESC included, and whether it leaves G0 with characters of two bytes.
std::size_t escape_length(std::string_view text, bool& pairs) {
  if (text.size() >= 3 && text[1] == '$') {
    if (text[2] == 'B' || text[2] == '@') {
      pairs = true;
      return 3;
    }
    if (text[2] == '(' && text.size() >= 4) {
      pairs = true;
      return 4;
    }
  }
  if (text.size() >= 2 && text[1] == '(') pairs = false;
  return 1;
}

}  // namespace

VX_STATUS charset_names(MsgObj& object, std::string_view (&names)[kMaxCharsetNames], int& count) {
  count = 0;
  const TagObj* attribute = find_names(object);
  return attribute != nullptr ? read_names(*attribute, names, count) : kOk;
}

VX_STATUS charset_masks(MsgObj& object, CharsetMasks& masks) {
  masks = CharsetMasks{};
  std::string_view names[kMaxCharsetNames];
  int count = 0;
  const VX_STATUS status = charset_names(object, names, count);
  if (status != kOk) {
    VX_LOG_ERR("VXI_GetCharSetMasks", "VXI_GetSpecificCharSetValue failed with status: %s",
               status_text(status));
    return status;
  }
  if (count == 0) return kOk;
  const bool several = count > 1;
  uint32_t mask = 0;
  for (int i = 0; i < count; ++i) {
    if (names[i].empty()) {
      mask |= kIr6;
    } else {
      add_name(names[i], several, mask);
    }
    if (i == 0) masks.first = mask & ~kCodeExtensions;
  }
  masks.values = mask;
  return kOk;
}

VX_STATUS charset_masks(MsgObj& object, CharsetCache* cache, CharsetMasks& masks) {
  if (cache == nullptr) return charset_masks(object, masks);
  if (!cache->known) {
    cache->status = charset_masks(object, cache->masks);
    cache->known = true;
  }
  masks = cache->masks;
  return cache->status;
}

Scan scan_character(std::string_view text, std::size_t& position, uint32_t values_mask, uint32_t& active_mask,
                    int& characters) {
  if (byte_at(text, position) == 0x1B) {
    return take_escape(text, position, values_mask, active_mask, characters);
  }
  switch (values_mask) {
    case kIr149 | kCodeExtensions | kIr6:
    case kIr58 | kCodeExtensions | kIr6: {
      if (byte_at(text, position) == 0) return Scan::Single;
      const int set = (values_mask & kIr149) != 0 ? 149 : 58;
      return take_high_pairs(text, position, position, characters, set);
    }
    case kGb18030:
      return take_gb(text, position, true, characters);
    case kGbk:
      return take_gb(text, position, false, characters);
    case kUtf8:
      return take_utf8(text, position, characters);
    default:
      return Scan::Single;
  }
}

bool check_default_character(uint32_t tag, uint8_t byte, uint32_t active_mask, int& told) {
  constexpr int kMaxTold = 8;
  if ((active_mask & kIr6) == 0 || byte < 0xA0) return true;
  if (told++ < kMaxTold) {
    VX_LOG_WARN("VXI_CheckDefaultChar",
                "Character (0x%02X) invalid for ISO-IR 6 character set in attribute (%04X,%04X)", byte,
                tag_group(tag), tag_element(tag));
  }
  return config_bool(VX_CFG_TOLERATE_INVALID_IN_DEFAULT_CHARSET);
}

bool is_single_byte(const CharsetMasks& masks) {
  return (masks.values & (kCodeExtensions | kUtf8 | kGb18030 | kGbk)) == 0;
}

SplitMode needs_escape_aware_split(const CharsetMasks& masks) {
  if (masks.values == kGb18030 || masks.values == kGbk) return kSplitDoubleByte;
  if ((masks.values & kCodeExtensions) != 0 && (masks.values & (kIr87 | kIr159)) != 0) return kSplitEscapes;
  return kSplitPlain;
}

std::size_t split_point(std::string_view text, std::size_t start, SplitMode mode) {
  const std::size_t backslash = text.find('\\', start);
  if (backslash == std::string_view::npos) return text.size();
  if (mode == kSplitPlain) return backslash;
  bool pairs = false;
  for (std::size_t at = start; at < text.size();) {
    const uint8_t byte = byte_at(text, at);
    if (mode == kSplitEscapes && byte == 0x1B) {
      at += escape_length(text.substr(at), pairs);
    } else if (pairs) {
      at += at + 1 < text.size() && byte_at(text, at + 1) == 0x1B ? 1 : 2;
    } else if (byte == '\\') {
      return at;
    } else {
      at += mode == kSplitDoubleByte && byte >= 0x81 && byte <= 0xFE ? 2 : 1;
    }
  }
  return text.size();
}

}  // namespace vx
