#include "printable.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "hex.h"
#include "vexalkit.h"

namespace vexal {
namespace {

constexpr bool is_plain(char c) {
  return static_cast<unsigned char>(c - 0x20) < 0x7F - 0x20;
}

constexpr char kUtf8[] = "ISO_IR 192";

std::u16string decode(const std::string& charset, std::string_view bytes) {
  std::u16string text(bytes.size() + 1, u'\0');
  int32_t length = 0;
  const VX_STATUS status =
      VX_Byte_To_Unicode(charset.c_str(), bytes.data(), static_cast<int32_t>(bytes.size()),
                         static_cast<int32_t>(text.size()), &length, text.data());
  text.resize(status == VX_NORMAL_COMPLETION ? static_cast<std::size_t>(length) : 0);
  return text;
}

bool is_whole(std::u16string_view text) {
  return !text.empty() && text.find(u'\xFFFD') == std::u16string_view::npos;
}

// Bytes of an escape sequence (ISO 2022: ESC, intermediate bytes, a final one), 0 if it is none.
std::size_t escape_length(std::string_view text) {
  std::size_t end = 1;
  while (end < text.size() && text[end] >= 0x20 && text[end] < 0x30) ++end;
  return end > 1 && end < text.size() && text[end] >= 0x30 && text[end] < 0x7F ? end + 1 : 0;
}

bool takes_g1(std::string_view escape) {
  const char half = escape[1] == '$' && escape.size() > 3 ? escape[2] : escape[1];
  return half == ')' || half == '-';
}

}  // namespace

bool is_steering(char32_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || (c >= 0x2028 && c <= 0x202E) ||
         (c >= 0x2066 && c <= 0x2069) || (c >= 0xD800 && c < 0xE000) || (c >= 0xFFF9 && c <= 0xFFFB) ||
         c == 0xFEFF || c >= 0xE0000;
}

std::size_t utf8_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  std::size_t length = 0;
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) length = 2;
  if (lead >= 0xE0 && lead < 0xF0) length = 3;
  if (lead >= 0xF0 && lead < 0xF5) length = 4;
  if (length == 0 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
  }
  if (lead == 0xE0 && byte(1) < 0xA0) return 0;
  if (lead == 0xED && byte(1) >= 0xA0) return 0;
  if (lead == 0xF0 && byte(1) < 0x90) return 0;
  if (lead == 0xF4 && byte(1) >= 0x90) return 0;
  return length;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

char32_t utf8_code_point(std::string_view character) {
  char32_t c = static_cast<unsigned char>(character[0]);
  if (character.size() > 1) c &= 0x7FU >> character.size();
  for (const char byte : character.substr(1)) c = (c << 6) | (static_cast<unsigned char>(byte) & 0x3FU);
  return c;
}

void ShownText::add_run(std::string_view ascii) {
  if (limit_ != 0 && ascii.size() > limit_ - used_) {
    ascii = ascii.substr(0, limit_ - used_);
    cut_ = true;
  }
  out_ += ascii;
  used_ += ascii.size();
}

void ShownText::add_character(std::string_view utf8, std::size_t columns) {
  cut_ = cut_ || (limit_ != 0 && columns > limit_ - used_);
  if (cut_) return;
  out_ += utf8;
  used_ += columns;
}

void ShownText::add_byte(char byte) {
  std::string escape = "\\x";
  append_hex(escape, static_cast<unsigned char>(byte), 2);
  add_character(escape, escape.size());
}

// Takes plain characters off the head of a text. False if it has none.
bool ShownText::add_plain(std::string_view& text) {
  std::size_t end = 0;
  while (end < text.size() && is_plain(text[end])) ++end;
  add_run(text.substr(0, end));
  text.remove_prefix(end);
  return end > 0;
}

bool ShownText::add_ascii(std::string_view text) {
  while (!text.empty() && !cut_) {
    if (add_plain(text)) continue;
    if (static_cast<unsigned char>(text[0]) >= 0x80 || text[0] == '\x1B') return false;
    add_byte(text[0]);
    text.remove_prefix(1);
  }
  return true;
}

void ShownText::add_bytes(std::string_view text) {
  while (!text.empty() && !cut_) {
    if (add_plain(text)) continue;
    add_byte(text[0]);
    text.remove_prefix(1);
  }
}

void ShownText::add_code_point(char32_t c) {
  char escape[16];
  if (c < 0x80 && !is_steering(c)) {
    const char byte = static_cast<char>(c);
    add_run({&byte, 1});
  } else if (c < 0x80) {
    add_byte(static_cast<char>(c));
  } else if (is_steering(c)) {
    const int used =
        std::snprintf(escape, sizeof escape, c < 0x10000 ? "\\u%04X" : "\\U%08X", static_cast<unsigned>(c));
    add_character(escape, static_cast<std::size_t>(used));
  } else {
    std::string utf8;
    append_utf8(utf8, c);
    add_character(utf8, 1);
  }
}

void ShownText::add_utf8(std::string_view text) {
  while (!text.empty() && !cut_) {
    if (add_plain(text)) continue;
    const std::size_t length = utf8_length(text);
    if (length < 2) {
      add_byte(text[0]);
      text.remove_prefix(1);
      continue;
    }
    const char32_t c = utf8_code_point(text.substr(0, length));
    if (is_steering(c)) {
      add_code_point(c);
    } else {
      add_character(text.substr(0, length), 1);
    }
    text.remove_prefix(length);
  }
}

void ShownText::add_unicode(std::u16string_view text) {
  for (std::size_t at = 0; at < text.size() && !cut_;) add_code_point(next_code_point(text, at));
}

void show_broken(ShownText& out, std::string_view bytes, const std::string& charset, bool person_name) {
  if (charset.empty() || charset == kUtf8) {
    out.add_utf8(bytes);
    return;
  }
  constexpr std::size_t kLongest = 4;  // bytes of a character
  std::string halves[2];               // the escape sequences in force
  for (std::size_t at = 0; at < bytes.size() && !out.is_cut();) {
    const char c = bytes[at];
    const std::size_t escape = c == '\x1B' ? escape_length(bytes.substr(at)) : 0;
    if (escape != 0 && decode(charset, bytes.substr(at, escape)).empty()) {
      halves[takes_g1(bytes.substr(at, escape)) ? 1 : 0] = bytes.substr(at, escape);
      at += escape;
      continue;
    }
    if ((c >= '\t' && c <= '\r') || (person_name && (c == '^' || c == '='))) halves[0] = halves[1] = "";
    std::size_t taken = 0;
    for (std::size_t n = 1; taken == 0 && n <= std::min(kLongest, bytes.size() - at); ++n) {
      const std::u16string text = decode(charset, halves[0] + halves[1] + std::string(bytes.substr(at, n)));
      if (!is_whole(text)) continue;
      out.add_unicode(text);
      taken = n;
    }
    if (taken == 0) out.add_byte(c);
    at += std::max<std::size_t>(taken, 1);
  }
}

std::string shown(std::string_view utf8) {
  std::string out;
  ShownText(out).add_utf8(utf8);
  return out;
}

void append_utf8(std::string& out, char32_t c) {
  const auto put = [&](char32_t byte) { out += static_cast<char>(byte); };
  const auto tail = [&](unsigned shift) { put(0x80U | ((c >> shift) & 0x3FU)); };
  if (c < 0x80) {
    put(c);
  } else if (c < 0x800) {
    put(0xC0U | (c >> 6U));
    tail(0);
  } else if (c < 0x10000) {
    put(0xE0U | (c >> 12U));
    tail(6);
    tail(0);
  } else {
    put(0xF0U | (c >> 18U));
    tail(12);
    tail(6);
    tail(0);
  }
}

void append_utf16(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out += static_cast<char16_t>(c);
  } else {
    out += static_cast<char16_t>(0xD7C0 + (c >> 10U));
    out += static_cast<char16_t>(0xDC00 + (c & 0x3FFU));
  }
}

char32_t next_code_point(std::u16string_view text, std::size_t& at) {
  const char32_t unit = text[at++];
  if ((unit & 0xFC00U) != 0xD800 || at == text.size() || (text[at] & 0xFC00U) != 0xDC00) return unit;
  return 0x10000 + ((unit & 0x3FFU) << 10U) + (text[at++] & 0x3FFU);
}

}  // namespace vexal
