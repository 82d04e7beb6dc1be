#include "text/json_text.h"
#include "frame/text.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "text/utf8.h"

namespace vx {

namespace {

// Brackets up to this size are passed over by looking for their end, longer ones by the table.
constexpr std::size_t kLong = 512;

enum Class : uint8_t { kPlain, kQuote, kBackslash, kControl, kHigh };
constexpr std::array<uint8_t, 256> kStringClass = [] {
  std::array<uint8_t, 256> classes{};
  for (std::size_t i = 0; i < 0x20; ++i) classes[i] = kControl;
  for (std::size_t i = 0x80; i < 256; ++i) classes[i] = kHigh;
  classes['"'] = kQuote;
  classes['\\'] = kBackslash;
  return classes;
}();

// Four hexadecimal digits, -1 if they are not.
int32_t unit_at(std::string_view text, std::size_t at) {
  if (text.size() < at + 4) return -1;
  int32_t unit = 0;
  for (std::size_t i = at; i < at + 4; ++i) {
    const int digit = hex_digit(text[i]);
    if (digit < 0) return -1;
    unit = unit * 16 + digit;
  }
  return unit;
}

// The code point of the escape whose "\u" stands at `at`, and its length; -1 if there is none.
int32_t code_at(std::string_view text, std::size_t at, std::size_t& length) {
  const int32_t unit = unit_at(text, at + 2);
  length = 6;
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit > 0xDBFF || text.substr(at + 6, 2) != "\\u") return -1;
  const int32_t low = unit_at(text, at + 8);
  if (low < 0xDC00 || low > 0xDFFF) return -1;
  length = 12;
  return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

void append_utf8(std::string& out, int32_t code) {
  const auto put = [&](int32_t byte) { out += static_cast<char>(byte); };
  if (code < 0x80) return put(code);
  if (code < 0x800) {
    put(0xC0 | (code >> 6));
  } else if (code < 0x10000) {
    put(0xE0 | (code >> 12));
    put(0x80 | ((code >> 6) & 0x3F));
  } else {
    put(0xF0 | (code >> 18));
    put(0x80 | ((code >> 12) & 0x3F));
    put(0x80 | ((code >> 6) & 0x3F));
  }
  put(0x80 | (code & 0x3F));
}

constexpr std::string_view kEscapes = "\"\\/bfnrt";
constexpr std::string_view kEscaped = "\"\\/\b\f\n\r\t";

}  // namespace

JsonText::JsonText(std::string_view text) : text_(text) {
  check();
  if (fault_.reason == nullptr) return;
  const std::string_view before = text_.substr(0, fault_.offset);
  fault_.line = 1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  fault_.column = 1 + (before.size() - (before.rfind('\n') + 1));
}

void JsonText::refuse(std::size_t at, const char* reason) {
  fault_ = {reason, std::min(at, text_.size())};
  if (at >= text_.size()) fault_.reason = "premature end of input";
}

std::size_t JsonText::skip_blanks(std::size_t at) const {
  while (at < text_.size() &&
         (text_[at] == ' ' || text_[at] == '\n' || text_[at] == '\r' || text_[at] == '\t'))
    ++at;
  return at;
}

void JsonText::check() {
  std::vector<std::size_t> open;  // the rows in long_ of the brackets around a place
  std::size_t at = top_ = skip_blanks(0);
  while (true) {
    const char c = at < text_.size() ? text_[at] : '\0';
    if (c == '{' || c == '[') {
      if (open.size() >= kMaxJsonDepth) return refuse(at, "too many levels");
      open.push_back(long_.size());
      long_.push_back({at, 0});
      at = skip_blanks(at + 1);
      if (at >= text_.size() || text_[at] != (c == '{' ? '}' : ']')) {
        if (c == '{' && !check_key(at)) return;
        continue;
      }
    } else if (!check_scalar(at)) {
      return;
    }
    // Behind a value: brackets that end here, or a comma.
    while (true) {
      if (open.empty()) {
        if (skip_blanks(at) < text_.size()) refuse(skip_blanks(at), "end of text expected");
        return;
      }
      at = skip_blanks(at);
      Extent& row = long_[open.back()];
      const bool object = text_[row.begin] == '{';
      if (at < text_.size() && text_[at] == (object ? '}' : ']')) {
        ++at;
        row.end = at;
        // What lies inside a short one is shorter and was dropped before.
        if (at - row.begin < kLong) long_.pop_back();
        open.pop_back();
        continue;
      }
      if (at >= text_.size() || text_[at] != ',') return refuse(at, "',' or a closing bracket expected");
      at = skip_blanks(at + 1);
      if (object && !check_key(at)) return;
      break;
    }
  }
}

// A key and the colon behind it.
bool JsonText::check_key(std::size_t& at) {
  if (at >= text_.size() || text_[at] != '"') return refuse(at, "a key expected"), false;
  if (!check_string(at)) return false;
  at = skip_blanks(at);
  if (at >= text_.size() || text_[at] != ':') return refuse(at, "':' expected"), false;
  at = skip_blanks(at + 1);
  return true;
}

bool JsonText::check_scalar(std::size_t& at) {
  const char c = at < text_.size() ? text_[at] : '\0';
  if (c == '"') return check_string(at);
  if (c == '-' || is_digit(c)) return check_number(at);
  for (const std::string_view word : {"true", "false", "null"}) {
    if (text_.substr(at, word.size()) != word) continue;
    at += word.size();
    return true;
  }
  // A word that the end of the text cuts is none that is wrong.
  refuse(at, "a value expected");
  return false;
}

bool JsonText::check_string(std::size_t& at) {
  const std::size_t begin = at + 1;
  bool high = false;
  for (std::size_t i = begin;; ++i) {
    if (i >= text_.size()) return refuse(i, ""), false;
    const uint8_t sort = kStringClass[static_cast<uint8_t>(text_[i])];
    if (sort == kPlain) continue;
    if (sort == kQuote) {
      const std::string_view content = text_.substr(begin, i - begin);
      if (const std::size_t good = high ? valid_utf8(content) : content.size(); good != content.size())
        return refuse(begin + good, "no UTF-8"), false;
      at = i + 1;
      return true;
    }
    if (sort == kHigh) {
      high = true;
    } else if (sort == kControl) {
      return refuse(i, "a control character in a string"), false;
    } else if (i + 1 < text_.size() && text_[i + 1] == 'u') {
      std::size_t length = 0;
      if (code_at(text_, i, length) < 0) return refuse(i, "an invalid \\u escape"), false;
      i += length - 1;
    } else {
      if (++i < text_.size() && kEscapes.find(text_[i]) == std::string_view::npos)
        return refuse(i - 1, "an invalid escape"), false;
    }
  }
}

bool JsonText::check_number(std::size_t& at) {
  const auto digits = [&] {
    const std::size_t begin = at;
    while (at < text_.size() && is_digit(text_[at])) ++at;
    return at > begin;
  };
  const auto is = [&](char a, char b) { return at < text_.size() && (text_[at] == a || text_[at] == b); };
  const std::size_t begin = at;
  if (is('-', '-')) ++at;
  const bool zero = is('0', '0');
  const std::size_t whole = at;
  bool good = digits() && (!zero || at == whole + 1);
  if (good && is('.', '.')) {
    ++at;
    good = digits();
  }
  if (good && is('e', 'E')) {
    ++at;
    if (is('+', '-')) ++at;
    good = digits();
  }
  if (!good) refuse(begin, "an invalid number");
  return good;
}

JsonKind JsonText::kind(std::size_t at) const {
  switch (text_[at]) {
    case '{':
      return JsonKind::Object;
    case '[':
      return JsonKind::Array;
    case '"':
      return JsonKind::String;
    case 't':
      return JsonKind::True;
    case 'f':
      return JsonKind::False;
    case 'n':
      return JsonKind::Null;
    default:
      return JsonKind::Number;
  }
}

// Behind the string that begins at `at`.
std::size_t JsonText::string_end(std::size_t at) const {
  for (++at; text_[at] != '"'; ++at) {
    if (text_[at] == '\\') ++at;
  }
  return at + 1;
}

std::size_t JsonText::end(std::size_t at) const {
  const char c = text_[at];
  if (c == '"') return string_end(at);
  if (c != '{' && c != '[') {
    while (at < text_.size() && std::string_view(" \n\r\t,]}").find(text_[at]) == std::string_view::npos)
      ++at;
    return at;
  }
  std::size_t depth = 0;
  for (std::size_t i = at; i < at + kLong;) {
    const char one = text_[i];
    if (one == '"') {
      i = string_end(i);
      continue;
    }
    ++i;
    if (one == '{' || one == '[') {
      ++depth;
    } else if ((one == '}' || one == ']') && --depth == 0) {
      return i;
    }
  }
  return std::lower_bound(long_.begin(), long_.end(), at,
                          [](const Extent& one, std::size_t begin) { return one.begin < begin; })
      ->end;
}

std::string_view JsonText::string(std::size_t at, std::string& work) const {
  if (text_[at] != '"') return {};
  const std::size_t end = string_end(at) - 1;
  const std::string_view content = text_.substr(at + 1, end - at - 1);
  std::size_t mark = content.find('\\');
  if (mark == std::string_view::npos) return content;
  work.clear();
  std::size_t done = 0;
  for (; mark != std::string_view::npos; mark = content.find('\\', done)) {
    work += content.substr(done, mark - done);
    const char c = content[mark + 1];
    std::size_t length = 2;
    if (c == 'u') {
      append_utf8(work, code_at(content, mark, length));
    } else {
      work += kEscaped[kEscapes.find(c)];
    }
    done = mark + length;
  }
  work += content.substr(done);
  return work;
}

JsonText::Place JsonText::inside(std::size_t at) const {
  Place place;
  place.next = skip_blanks(at + 1);
  place.keyed = text_[at] == '{';
  return place;
}

bool JsonText::next(Place& place) const {
  std::size_t at = place.next;
  if (place.value != 0) {
    at = skip_blanks(end(place.value));
    if (text_[at] == ',') at = skip_blanks(at + 1);
  }
  if (text_[at] == '}' || text_[at] == ']') return false;
  if (place.keyed) {
    place.key = at;
    at = skip_blanks(skip_blanks(string_end(at)) + 1);
  }
  place.value = at;
  return true;
}

}  // namespace vx
