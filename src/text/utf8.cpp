#include "text/utf8.h"

#include <algorithm>
#include <cstring>

#include "model/attributes.h"
#include "model/convert.h"
#include "model/values.h"

namespace vx {

namespace {

constexpr uint32_t kSpecificCharacterSet = 0x00080005U;

// Bytes of the well-formed character at `at`, 0 if there is none (Unicode standard, table 3-7).
std::size_t character_size(std::string_view text, std::size_t at) {
  const auto byte = [&](std::size_t n) -> uint32_t {
    return at + n < text.size() ? static_cast<uint8_t>(text[at + n]) : 0;
  };
  const auto follows = [&](std::size_t n, uint32_t low = 0x80, uint32_t high = 0xBF) {
    return byte(n) >= low && byte(n) <= high;
  };
  const uint32_t lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return follows(1) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    return follows(1, lead == 0xE0 ? 0xA0 : 0x80, lead == 0xED ? 0x9F : 0xBF) && follows(2) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    return follows(1, lead == 0xF0 ? 0x90 : 0x80, lead == 0xF4 ? 0x8F : 0xBF) && follows(2) && follows(3) ? 4
                                                                                                          : 0;
  }
  return 0;
}

}  // namespace

bool is_ascii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<uint8_t>(c) < 0x80 && c != 0x1B; });
}

std::size_t valid_utf8(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    // Eight bytes of ASCII at once: most of a document is.
    for (uint64_t word = 0; at + sizeof word <= text.size(); at += sizeof word) {
      std::memcpy(&word, text.data() + at, sizeof word);
      if ((word & 0x8080808080808080U) != 0) break;
    }
    if (at == text.size()) break;
    const std::size_t size = character_size(text, at);
    if (size == 0) break;
    at += size;
  }
  return at;
}

TextSet text_set_of(MsgObj& object, const TextSet& inherited) {
  const TagObj* attribute = find_tag(object, kSpecificCharacterSet);
  if (attribute == nullptr) return inherited;
  TextSet set;
  if (attribute->Length == 0) return set;
  set.kind = TextSet::Kind::Others;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  char scratch[80];
  std::string_view text;
  if (view_text(*attribute, cursor, scratch, text) == kOk) {
    if (text.find("ISO_IR 192") != std::string_view::npos) set.kind = TextSet::Kind::Utf8;
    set.latin1 = attribute->ValueCount == 1 && text == "ISO_IR 100";
  }
  if (unicode_enabled() && text_charsets(object, set.sets) != kOk) set.sets = {};
  return set;
}

std::string_view to_utf8(std::string_view text, const TextSet& set, bool person_name, std::string& work,
                         bool& whole) {
  if (is_ascii(text)) return text;
  if (set.kind != TextSet::Kind::Others && valid_utf8(text) == text.size()) return text;
  work.clear();
  if (set.kind == TextSet::Kind::Others && set.sets.count > 0) {
    const TextResult result = decode_text(set.sets, text, person_name, work);
    if (result == TextResult::Lost || !set.sets.known) whole = false;
    if (result != TextResult::NoIcu) return work;
    work.clear();
  }
  if (!set.latin1) whole = false;
  for (const char c : text) {
    const auto byte = static_cast<uint8_t>(c);
    if (byte < 0x80) {
      work += c;
    } else {
      work += static_cast<char>(0xC0 | (byte >> 6));
      work += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return work;
}

std::string_view from_utf8(std::string_view text, const TextSet& set, std::string& work, bool& whole) {
  if (set.kind != TextSet::Kind::Others || is_ascii(text)) return text;
  work.clear();
  if (set.sets.count > 0) {
    const TextResult result = encode_text(set.sets, text, work);
    if (result == TextResult::Lost || !set.sets.known) whole = false;
    if (result != TextResult::NoIcu) return work;
    work.clear();
  }
  if (!set.latin1) whole = false;
  for (std::size_t at = 0; at < text.size();) {
    const auto lead = static_cast<uint8_t>(text[at]);
    const std::size_t size = character_size(text, at);
    if (size == 1) {
      work += text[at];
    } else if (size == 2 && lead <= 0xC3) {
      work += static_cast<char>(((lead & 3U) << 6) | (static_cast<uint8_t>(text[at + 1]) & 0x3FU));
    } else {
      work += '?';
      whole = false;
    }
    at += std::max<std::size_t>(size, 1);
  }
  return work;
}

}  // namespace vx
