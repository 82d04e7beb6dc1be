// Bytes under every choice of character sets: the first two bytes choose two sets.
#include "../tools/vexal/base/printable.h"

#include <cstddef>
#include <cstdint>

#include "library.h"
#include "text/charset.h"

namespace {

constexpr std::string_view kNames[] = {
    "",
    "ISO_IR 100",
    "ISO_IR 144",
    "ISO_IR 13",
    "ISO_IR 166",
    "ISO_IR 192",
    "GB18030",
    "GBK",
    "ISO 2022 IR 100",
    "ISO 2022 IR 13",
    "ISO 2022 IR 87",
    "ISO 2022 IR 159",
    "ISO_IR 203",
    "ISO 2022 IR 149",
    "ISO 2022 IR 58",
    "ISO 2022 IR 126",
};

// Two characters that some sets have under one code, and read as the second.
constexpr std::string_view kSpellings[][2] = {{"\u2014", "\u2015"}, {"\u00B7", "\u30FB"}};

std::string as_read(std::string text) {
  for (const auto& [from, to] : kSpellings) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
      text.replace(at, from.size(), to);
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  static const VX_STATUS enabled = vx::enable_unicode(true);
  if (enabled != VX_NORMAL_COMPLETION) __builtin_trap();
  if (size < 2) return 0;
  const std::string_view names[] = {kNames[data[0] % 16], kNames[data[1] % 16]};
  const std::size_t count = 1 + (data[0] >> 7);
  const vx::TextCharsets sets = vx::text_charsets({names, count});
  const std::string_view text(reinterpret_cast<const char*>(data) + 2, size - 2);
  std::string utf8;
  const vx::TextResult decoded = vx::decode_text(sets, text, (data[1] & 0x80) != 0, utf8);
  // What of it a terminal gets.
  std::string terminal;
  vexal::ShownText shown(terminal, data[1] % 2 == 0 ? 0 : 16);
  vexal::show_broken(shown, text, std::string(names[0]), (data[1] & 0x80) != 0);
  if (!vexal::is_utf8(terminal)) __builtin_trap();
  for (const char c : terminal) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) __builtin_trap();
  }

  std::string bytes;
  const vx::TextResult encoded = vx::encode_text(sets, utf8, bytes);
  // What came over whole, and went back whole, is the same text. Escape sequences to nowhere apart.
  if (decoded != vx::TextResult::Whole || encoded != vx::TextResult::Whole) return 0;
  if (utf8.find('\x1B') != std::string::npos) return 0;
  std::string again;
  vx::decode_text(sets, bytes, false, again);
  if (as_read(again) != as_read(utf8)) __builtin_trap();
  return 0;
}
