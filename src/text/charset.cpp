#include "text/charset.h"

#include <atomic>

#include "frame/log.h"
#include "model/charset_scan.h"
#include "text/charset_rows.h"

namespace vx {
namespace {

constexpr char16_t kReplacement = u'\xFFFD';
constexpr std::string_view kDefaultName = "ISO_IR 100";

bool is_ascii(std::string_view text) {
  for (const char byte : text) {
    if (static_cast<uint8_t>(byte) >= 0x80) return false;
  }
  return true;
}

bool is_utf8(const TextCharsets& sets) {
  return sets.count == 1 && sets.rows[0]->kind == CharsetKind::Utf8;
}

void append_code_point(char32_t c, std::u16string& out) {
  if (c >= 0x10000) {
    out += static_cast<char16_t>(0xD7C0 + (c >> 10));
    out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  } else {
    out += static_cast<char16_t>(c);
  }
}

// The code point at `at`, which moves behind it; halves of a pair by themselves are U+FFFD.
char32_t next_code_point(std::u16string_view text, std::size_t& at) {
  const char32_t unit = text[at++];
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit < 0xDC00 && at < text.size() && (text[at] & 0xFC00) == 0xDC00) {
    return 0x10000 + ((unit & 0x3FF) << 10) + (text[at++] & 0x3FF);
  }
  return kReplacement;
}

// What ISO 2022 has in its two halves.
struct Halves {
  const CharsetRow* g0 = nullptr;  // a set of pairs or of JIS X 0201; null: ASCII
  const CharsetRow* g1 = nullptr;  // null: nothing
};

Halves first_halves(const TextCharsets& sets) {
  Halves halves;
  const CharsetRow* const first = sets.rows[0];
  if (first->kind == CharsetKind::Katakana) halves.g0 = first;
  if (first->kind == CharsetKind::Katakana || !first->g1.empty()) halves.g1 = first;
  return halves;
}

bool is_pairs(const CharsetRow* row) {
  return row != nullptr && row->kind == CharsetKind::LowPairs;
}

class ExtendedDecoder {
 public:
  ExtendedDecoder(const TextCharsets& sets, bool person_name, std::u16string& out)
      : first_(first_halves(sets)), now_(first_), person_name_(person_name), out_(out) {
    // Some writers leave out the escape sequence of the one set that high bytes can mean.
    for (int i = 0; i < sets.count && fallback_ == nullptr; ++i) {
      if (!sets.rows[i]->g1.empty()) fallback_ = sets.rows[i];
    }
  }

  bool decode(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
      const auto byte = static_cast<uint8_t>(text[at]);
      if (byte == 0x1B) {
        at += escape(text.substr(at + 1)) + 1;
        continue;
      }
      std::size_t end = at + 1;
      if (unknown_) {
        end = std::min(text.find('\x1B', at), text.size());
        whole_ &= append_utf16(text.substr(at, end - at), out_);
      } else if (byte >= 0x80) {
        while (end < text.size() && static_cast<uint8_t>(text[end]) >= 0x80) ++end;
        high(text.substr(at, end - at));
      } else if (byte > 0x20 && byte < 0x7F && is_pairs(now_.g0)) {
        while (end < text.size() && text[end] > 0x20 && text[end] < 0x7F) ++end;
        whole_ &= decode_run(*now_.g0, text.substr(at, end - at), out_);
      } else {
        out_ += char16_t{byte};
        if (ends_sets(byte)) now_ = {first_.g0, first_.g1 != nullptr ? first_.g1 : now_.g1};
      }
      at = end;
    }
    return whole_;
  }

 private:
  bool ends_sets(uint8_t byte) const {
    return (byte >= 0x09 && byte <= 0x0D) || (person_name_ && (byte == '^' || byte == '='));
  }

  void high(std::string_view run) {
    const CharsetRow* const row = now_.g1 != nullptr ? now_.g1 : fallback_;
    if (row != nullptr) {
      whole_ &= decode_run(*row, run, out_);
    } else {
      out_.append(run.size(), kReplacement);
      whole_ = false;
    }
  }

  // The length of the escape sequence behind the ESC.
  std::size_t escape(std::string_view behind) {
    bool g1 = false;
    std::size_t length = 0;
    const CharsetRow* const row = find_charset_escape(behind, g1, length);
    unknown_ = row == nullptr;
    if (unknown_) {
      VX_LOG_WARN("VXI_DecodeText", "Unknown escape sequence in string value, decoding as Unicode");
      out_ += u'\x1B';
      return 0;
    }
    (g1 ? now_.g1 : now_.g0) = row->kind == CharsetKind::Ascii ? nullptr : row;
    return length;
  }

  const Halves first_;
  Halves now_;
  const CharsetRow* fallback_ = nullptr;
  bool person_name_;
  bool unknown_ = false;
  bool whole_ = true;
  std::u16string& out_;
};

class ExtendedEncoder {
 public:
  ExtendedEncoder(const TextCharsets& sets, std::string& out, char substitute)
      : sets_(sets), first_(first_halves(sets)), now_(first_), out_(out), substitute_(substitute) {}

  bool encode(std::u16string_view text) {
    for (std::size_t at = 0; at < text.size();) {
      const char32_t c = next_code_point(text, at);
      if (is_delimiter(c)) {
        return_to_first();
        out_ += static_cast<char>(c);
      } else if (c < 0x80) {
        ascii(static_cast<char>(c));
      } else if (!beyond_ascii(c)) {
        ascii(substitute_);
        whole_ = false;
      }
    }
    return_to_first();
    return whole_;
  }

 private:
  static bool is_delimiter(char32_t c) {
    return c == '=' || c == '^' || c == '\\' || c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f';
  }

  void escape(std::string_view sequence) { out_.append(1, '\x1B').append(sequence); }

  void reset_g0() {
    if (now_.g0 == first_.g0) return;
    escape(first_.g0 != nullptr ? first_.g0->g0 : "(B");
    now_.g0 = first_.g0;
  }

  void return_to_first() {
    const bool changed = now_.g1 != first_.g1;
    const bool pairs = changed && now_.g1 != nullptr && now_.g1->kind == CharsetKind::HighPairs;
    const bool had_g0 = now_.g0 != first_.g0;
    reset_g0();
    if (changed) {
      if (first_.g1 != nullptr) {
        escape(first_.g1->g1);
      } else if (!pairs && !had_g0) {
        escape("(B");
      }
    }
    now_ = first_;
    current_ = 0;
  }

  void ascii(char c) {
    reset_g0();
    out_ += c;
  }

  bool beyond_ascii(char32_t c) {
    for (const bool exact : {true, false}) {
      if (beyond_ascii(c, current_, exact)) return true;
      for (int i = 0; i < sets_.count; ++i) {
        if (i != current_ && beyond_ascii(c, i, exact)) return true;
      }
    }
    return false;
  }

  bool beyond_ascii(char32_t c, int index, bool exact) {
    const CharsetRow* const row = sets_.rows[index];
    char bytes[kMaxCharBytes];
    const std::size_t length = encode_char(*row, c, exact, bytes);
    if (length == 0) return false;
    const bool low = row->kind == CharsetKind::LowPairs;
    const CharsetRow*& half = low ? now_.g0 : now_.g1;
    if (half != row) escape(low ? row->g0 : row->g1);
    half = row;
    current_ = index;
    out_.append(bytes, length);
    return true;
  }

  const TextCharsets& sets_;
  const Halves first_;
  Halves now_;
  int current_ = 0;
  bool whole_ = true;
  std::string& out_;
  char substitute_;
};

bool encode_with_one(const CharsetRow& row, std::u16string_view text, std::string& out, char substitute) {
  bool whole = true;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = next_code_point(text, at);
    char bytes[kMaxCharBytes];
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (const std::size_t length = encode_char(row, c, false, bytes); length != 0) {
      out.append(bytes, length);
    } else {
      out += substitute;
      whole = false;
    }
  }
  return whole;
}

// While ICU is off: the bytes as ISO_IR 100, said once a process.
void decode_latin1(std::string_view text, std::u16string& out) {
  static std::atomic<bool> told = false;
  if (!told.exchange(true)) {
    VX_LOG_WARN("VXI_DecodeText", "Unicode library not initialized, text is read as ISO_IR 100");
  }
  for (const char byte : text) out += char16_t{static_cast<uint8_t>(byte)};
}

}  // namespace

TextCharsets text_charsets(std::span<const std::string_view> names, std::string_view* unknown) {
  TextCharsets sets;
  const bool several = names.size() > 1;
  for (const std::string_view name : names.first(std::min<std::size_t>(names.size(), TextCharsets::kMax))) {
    const CharsetRow* row = find_charset(name.empty() ? "ISO 2022 IR 6" : name);
    if (row == nullptr) {
      if (unknown != nullptr && unknown->empty()) *unknown = name;
      sets.known = false;
      row = find_charset(kDefaultName);
    }
    const CharsetRow* const extended = extended_charset(*row);
    if (several && extended != nullptr) row = extended;
    sets.rows[sets.count++] = row;
    // A set without code extensions stands alone.
    if (several && extended == nullptr) {
      sets.rows[0] = row;
      sets.count = 1;
      return sets;
    }
  }
  if (sets.count == 0) sets.rows[sets.count++] = find_charset("ISO_IR 6");
  sets.extended = !sets.rows[0]->g0.empty() || !sets.rows[0]->g1.empty();
  return sets;
}

VX_STATUS text_charsets(MsgObj& object, TextCharsets& sets) {
  std::string_view names[kMaxCharsetNames];
  int count = 0;
  const VX_STATUS status = charset_names(object, names, count);
  if (status != kOk) return status;
  std::string_view unknown;
  sets = text_charsets(std::span<const std::string_view>(names, static_cast<std::size_t>(count)), &unknown);
  if (!unknown.empty()) {
    VX_LOG_WARN("VXI_DecodeText", "Unknown character set %.*s. Decoding using charset %s",
                static_cast<int>(unknown.size()), unknown.data(), kDefaultName.data());
  }
  return kOk;
}

TextResult decode_text(const TextCharsets& sets, std::string_view text, bool person_name,
                       std::u16string& utf16) {
  if (is_utf8(sets)) return append_utf16(text, utf16) ? TextResult::Whole : TextResult::Lost;
  if (is_ascii(text) && text.find('\x1B') == std::string_view::npos) {
    utf16.append(text.begin(), text.end());
    return TextResult::Whole;
  }
  const IcuUse use;
  if (!use.loaded()) {
    decode_latin1(text, utf16);
    return TextResult::NoIcu;
  }
  const bool whole = sets.extended ? ExtendedDecoder(sets, person_name, utf16).decode(text)
                                   : decode_run(*sets.rows[0], text, utf16);
  return whole ? TextResult::Whole : TextResult::Lost;
}

TextResult encode_text(const TextCharsets& sets, std::u16string_view utf16, std::string& bytes,
                       char substitute) {
  if (is_utf8(sets)) {
    append_utf8(utf16, bytes);
    return TextResult::Whole;
  }
  const IcuUse use;
  if (!use.loaded()) {
    const bool whole = encode_with_one(*find_charset("ISO_IR 6"), utf16, bytes, substitute);
    return whole ? TextResult::Whole : TextResult::NoIcu;
  }
  const bool whole = sets.extended ? ExtendedEncoder(sets, bytes, substitute).encode(utf16)
                                   : encode_with_one(*sets.rows[0], utf16, bytes, substitute);
  return whole ? TextResult::Whole : TextResult::Lost;
}

TextResult decode_text(const TextCharsets& sets, std::string_view text, bool person_name, std::string& utf8) {
  if (is_ascii(text) && text.find('\x1B') == std::string_view::npos) {
    utf8 += text;
    return TextResult::Whole;
  }
  std::u16string wide;
  const TextResult result = decode_text(sets, text, person_name, wide);
  append_utf8(wide, utf8);
  return result;
}

TextResult encode_text(const TextCharsets& sets, std::string_view utf8, std::string& bytes, char substitute) {
  if (is_ascii(utf8)) {
    bytes += utf8;
    return TextResult::Whole;
  }
  std::u16string wide;
  const bool valid = append_utf16(utf8, wide);
  const TextResult result = encode_text(sets, wide, bytes, substitute);
  return result == TextResult::Whole && !valid ? TextResult::Lost : result;
}

void append_utf8(std::u16string_view utf16, std::string& utf8) {
  for (std::size_t at = 0; at < utf16.size();) {
    const char32_t c = next_code_point(utf16, at);
    const auto tail = [&](int shift) { utf8 += static_cast<char>(0x80 | ((c >> shift) & 0x3F)); };
    if (c < 0x80) {
      utf8 += static_cast<char>(c);
    } else if (c < 0x800) {
      utf8 += static_cast<char>(0xC0 | (c >> 6));
      tail(0);
    } else if (c < 0x10000) {
      utf8 += static_cast<char>(0xE0 | (c >> 12));
      tail(6);
      tail(0);
    } else {
      utf8 += static_cast<char>(0xF0 | (c >> 18));
      tail(12);
      tail(6);
      tail(0);
    }
  }
}

bool append_utf16(std::string_view utf8, std::u16string& utf16) {
  bool valid = true;
  for (std::size_t at = 0; at < utf8.size();) {
    const auto first = static_cast<uint8_t>(utf8[at++]);
    if (first < 0x80) {
      utf16 += char16_t{first};
      continue;
    }
    const int tail = first >= 0xC2 && first < 0xE0 ? 1 : first >= 0xE0 && first < 0xF0 ? 2 : 3;
    char32_t c = first & (0x3FU >> tail);
    bool good = first >= 0xC2 && first < 0xF5;
    const std::size_t resume = at;
    for (int i = 0; good && i < tail; ++i) {
      good = at < utf8.size() && (static_cast<uint8_t>(utf8[at]) & 0xC0) == 0x80;
      if (good) c = (c << 6) | (static_cast<uint8_t>(utf8[at++]) & 0x3FU);
    }
    constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    good = good && c >= kLeast[tail] && c < 0x110000 && (c < 0xD800 || c > 0xDFFF);
    if (!good) at = resume;
    valid &= good;
    append_code_point(good ? c : char32_t{kReplacement}, utf16);
  }
  return valid;
}

}  // namespace vx
