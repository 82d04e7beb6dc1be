#include "text/charset_rows.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "frame/log.h"
#include "text/charset.h"

namespace vx {
namespace {

using Set = CharsetKind;
constexpr CharsetRow kRows[] = {
    {"ISO_IR 6", "iso-ir-6", Set::Ascii, "", ""},
    {"ISO_IR 192", "utf-8", Set::Utf8, "", ""},
    {"GB18030", "gb18030", Set::Multi, "", ""},
    {"ISO_IR 100", "iso-ir-100", Set::Single, "", ""},
    {"ISO_IR 101", "iso-ir-101", Set::Single, "", ""},
    {"ISO_IR 109", "iso-ir-109", Set::Single, "", ""},
    {"ISO_IR 110", "iso-ir-110", Set::Single, "", ""},
    {"ISO_IR 144", "iso-ir-144", Set::Single, "", ""},
    {"ISO_IR 127", "iso-ir-127", Set::Single, "", ""},
    {"ISO_IR 126", "iso-ir-126", Set::Single, "", ""},
    {"ISO_IR 138", "iso-ir-138", Set::Single, "", ""},
    {"ISO_IR 148", "iso-ir-148", Set::Single, "", ""},
    {"ISO_IR 13", "cp943", Set::Katakana, "", ""},
    {"ISO_IR 166", "tis620.2533", Set::Single, "", "", 0xA0, 0xFB},
    {"ISO_IR 203", "iso-8859-15", Set::Single, "", ""},
    {"GBK", "GBK", Set::Multi, "", ""},
    {"ISO 2022 IR 6", "iso-ir-6", Set::Ascii, "(B", ""},
    {"ISO 2022 IR 100", "iso-ir-100", Set::Single, "", "-A"},
    {"ISO 2022 IR 101", "iso-ir-101", Set::Single, "", "-B"},
    {"ISO 2022 IR 109", "iso-ir-109", Set::Single, "", "-C"},
    {"ISO 2022 IR 110", "iso-ir-110", Set::Single, "", "-D"},
    {"ISO 2022 IR 144", "iso-ir-144", Set::Single, "", "-L"},
    {"ISO 2022 IR 127", "iso-ir-127", Set::Single, "", "-G"},
    {"ISO 2022 IR 126", "iso-ir-126", Set::Single, "", "-F"},
    {"ISO 2022 IR 138", "iso-ir-138", Set::Single, "", "-H"},
    {"ISO 2022 IR 148", "iso-ir-148", Set::Single, "", "-M"},
    {"ISO 2022 IR 13", "cp943", Set::Katakana, "(J", ")I"},
    {"ISO 2022 IR 166", "tis620.2533", Set::Single, "", "-T", 0xA0, 0xFB},
    {"ISO 2022 IR 203", "iso-8859-15", Set::Single, "", "-b"},
    {"ISO 2022 IR 87", "ISO-2022-JP1", Set::LowPairs, "$B", ""},
    {"ISO 2022 IR 159", "ISO-2022-JP1", Set::LowPairs, "$(D", ""},
    {"ISO 2022 IR 149", "iso-ir-149", Set::HighPairs, "", "$)C"},
    {"ISO 2022 IR 58", "GB2312", Set::HighPairs, "", "$)A"},
};
constexpr std::size_t kRowCount = std::size(kRows);

// Characters that ICU has another code point for than the tables of the Unicode consortium, which the other
// tools go by, or that are written with either.
struct Spelling {
  std::string_view row;
  char16_t icu;
  char16_t other;
  bool decoded;  // as `other`
};
constexpr Spelling kSpellings[] = {
    {"ISO 2022 IR 87", 0xFF5E, 0x301C, true},   {"ISO 2022 IR 87", 0x2225, 0x2016, true},
    {"ISO 2022 IR 87", 0xFF0D, 0x2212, true},   {"ISO 2022 IR 87", 0xFFE0, 0x00A2, true},
    {"ISO 2022 IR 87", 0xFFE1, 0x00A3, true},   {"ISO 2022 IR 87", 0xFFE2, 0x00AC, true},
    {"ISO 2022 IR 87", 0x2015, 0x2014, false},  {"ISO 2022 IR 58", 0x00B4, 0xFF07, true},
    {"ISO 2022 IR 58", 0x2015, 0x2014, false},  {"ISO 2022 IR 58", 0x30FB, 0x00B7, false},
    {"ISO 2022 IR 149", 0x2015, 0x2014, false},
};

// The C interface of ICU, as far as it is used.
struct UConverter;
using OpenConverter = UConverter* (*)(const char*, int*);
using CloseConverter = void (*)(UConverter*);
using ToUChars = int32_t (*)(UConverter*, char16_t*, int32_t, const char*, int32_t, int*);
using FromUChars = int32_t (*)(UConverter*, char*, int32_t, const char16_t*, int32_t, int*);

struct Converter {
  std::mutex lock;
  bool tried = false;
  UConverter* handle = nullptr;
  std::array<char16_t, 128> upper{};  // Set::Single: characters of the bytes from 0x80 up
  std::array<bool, 128>
      written{};  // of several bytes that are read as one character, the one that is written
};

struct Icu {
  std::shared_mutex lock;  // shared by conversions; alone for loading and unloading
  void* library = nullptr;
  OpenConverter open = nullptr;
  CloseConverter close = nullptr;
  ToUChars decode = nullptr;
  FromUChars encode = nullptr;
  Converter converters[kRowCount];
};
Icu& icu() {
  static Icu state;
  return state;
}

constexpr int kNewest = 99;
constexpr int kOldest = 49;
constexpr char kLoad[] = "VXI_LoadUnicodeLibrary";

// A version that the process already has comes first. It stays mapped when it is closed: ICU has caches of
// its own, which would leak with it.
void* open_library(int& version) {
  char name[32] = "";
  for (const int extra : {RTLD_NOLOAD, 0}) {
    for (version = kNewest; version >= kOldest; --version) {
      std::snprintf(name, sizeof name, "libicuuc.so.%d", version);
      void* const library = dlopen(name, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE | extra);
      if (library != nullptr) return library;
    }
  }
  VX_LOG_ERR(kLoad, "Fail to load shared library, %s", "libicuuc.so");
  return nullptr;
}

template <typename Function>
bool find_entry(void* library, int version, const char* name, Function& entry) {
  char full[64];
  std::snprintf(full, sizeof full, "%s_%d", name, version);
  void* address = dlsym(library, full);
  if (address == nullptr) address = dlsym(library, name);
  if (address == nullptr) VX_LOG_ERR(kLoad, "Fail to map call from libicuuc.so.%d, %s", version, full);
  entry = reinterpret_cast<Function>(address);
  return address != nullptr;
}

bool load(Icu& state) {
  int version = 0;
  void* const library = open_library(version);
  if (library == nullptr) return false;
  if (!find_entry(library, version, "ucnv_open", state.open) ||
      !find_entry(library, version, "ucnv_close", state.close) ||
      !find_entry(library, version, "ucnv_toUChars", state.decode) ||
      !find_entry(library, version, "ucnv_fromUChars", state.encode)) {
    dlclose(library);
    return false;
  }
  state.library = library;
  return true;
}

void unload(Icu& state) {
  for (Converter& converter : state.converters) {
    if (converter.handle != nullptr) state.close(converter.handle);
    converter.handle = nullptr;
    converter.tried = false;
  }
  dlclose(state.library);
  state.library = nullptr;
}

// The row's converter, its lock held by the caller. The outcome of opening is remembered.
bool open_converter(const CharsetRow& row, Converter& converter) {
  if (converter.tried) return converter.handle != nullptr;
  converter.tried = true;
  int status = 0;
  converter.handle = icu().open(row.icu, &status);
  if (status > 0 || converter.handle == nullptr) {
    converter.handle = nullptr;
    VX_LOG_ERR("VXI_OpenCharset", "u_open return NULL converter for %s", row.icu);
    return false;
  }
  if (row.kind != Set::Single) return true;
  for (std::size_t i = 0; i < converter.upper.size(); ++i) {
    const auto code = static_cast<uint8_t>(0x80 + i);
    const char byte = static_cast<char>(code);
    char16_t units[4] = {};
    status = 0;
    const int32_t count = icu().decode(converter.handle, units, 4, &byte, 1, &status);
    const bool has = status <= 0 && count == 1 && code >= row.lowest && code <= row.highest;
    converter.upper[i] = has ? units[0] : u'\xFFFD';
    char back[4] = {};
    status = 0;
    converter.written[i] = has && icu().encode(converter.handle, back, 4, units, 1, &status) == 1 &&
                           status <= 0 && back[0] == byte;
  }
  return true;
}

Converter& converter_of(const CharsetRow& row) {
  return icu().converters[&row - kRows];
}

constexpr char16_t kReplacement = u'\xFFFD';
constexpr char kSubstitute = '\x1A';

// Bytes without 1A: some converters write that for what is no character.
bool decode_piece(const CharsetRow& row, Converter& converter, std::string_view bytes, std::u16string& out) {
  std::string stateful;
  if (row.kind == Set::LowPairs) {
    stateful.append(1, '\x1B').append(row.g0).append(bytes);
    bytes = stateful;
  }
  const std::size_t before = out.size();
  out.resize(before + bytes.size() * 2 + 4);
  int status = 0;
  const int32_t count =
      icu().decode(converter.handle, out.data() + before, static_cast<int32_t>(out.size() - before),
                   bytes.data(), static_cast<int32_t>(bytes.size()), &status);
  const bool good = status <= 0 && count >= 0;
  if (!good) {
    VX_LOG_ERR("VXI_DecodeText", "Error U_TO_UCHARS, charset %s, len %d, status %d", row.icu,
               static_cast<int>(bytes.size()), status);
  }
  out.resize(before + (good ? static_cast<std::size_t>(count) : 0));
  if (!good) out += kReplacement;
  std::replace(out.begin() + static_cast<std::ptrdiff_t>(before), out.end(), char16_t{kSubstitute},
               kReplacement);
  for (const Spelling& spelling : kSpellings) {
    if (spelling.decoded && spelling.row == row.name)
      std::replace(out.begin() + static_cast<std::ptrdiff_t>(before), out.end(), spelling.icu,
                   spelling.other);
  }
  return good && out.find(kReplacement, before) == std::u16string::npos;
}

bool decode_by_icu(const CharsetRow& row, Converter& converter, std::string_view bytes, std::u16string& out) {
  bool whole = true;
  for (;;) {
    const std::size_t end = bytes.find(kSubstitute);
    if (end != 0 && !bytes.empty()) whole &= decode_piece(row, converter, bytes.substr(0, end), out);
    if (end == std::string_view::npos) return whole;
    out += char16_t{kSubstitute};
    bytes.remove_prefix(end + 1);
  }
}

bool in_ranges(const CharsetRow& row, std::string_view bytes) {
  const auto first = static_cast<uint8_t>(bytes[0]);
  if (row.kind == Set::Multi) return bytes.size() > 1;
  if (bytes.size() != 2) return false;
  const auto second = static_cast<uint8_t>(bytes[1]);
  if (row.kind == Set::HighPairs) return first >= 0xA1 && first <= 0xFE && second >= 0xA1 && second <= 0xFE;
  return first >= 0x21 && first <= 0x7E && second >= 0x21 && second <= 0x7E;
}

std::size_t encode_by_icu(const CharsetRow& row, Converter& converter, char32_t c,
                          char (&bytes)[kMaxCharBytes]) {
  char16_t units[2];
  int32_t length = 1;
  if (c < 0x10000) {
    units[0] = static_cast<char16_t>(c);
  } else {
    units[0] = static_cast<char16_t>(0xD7C0 + (c >> 10));
    units[1] = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    length = 2;
  }
  char text[kMaxCharBytes];
  int status = 0;
  const int32_t count =
      icu().encode(converter.handle, text, static_cast<int32_t>(sizeof text), units, length, &status);
  if (status > 0 || count <= 0 || count > static_cast<int32_t>(sizeof text)) return 0;
  char16_t back[8];
  status = 0;
  const int32_t units_back = icu().decode(converter.handle, back, 8, text, count, &status);
  if (status > 0 || units_back != length || !std::equal(units, units + length, back)) return 0;
  std::string_view result(text, static_cast<std::size_t>(count));
  if (row.kind == Set::LowPairs) {
    if (result[0] != '\x1B' || !result.substr(1).starts_with(row.g0)) return 0;
    result.remove_prefix(1 + row.g0.size());
    result = result.substr(0, result.rfind('\x1B'));
  }
  if (result.empty() || !in_ranges(row, result)) return 0;
  return result.copy(bytes, kMaxCharBytes);
}

bool decode_katakana(std::string_view bytes, std::u16string& out) {
  bool whole = true;
  for (const char byte : bytes) {
    const auto code = static_cast<uint8_t>(byte);
    const bool katakana = code >= 0xA1 && code <= 0xDF;
    whole &= code < 0x80 || katakana;
    out += code < 0x80 ? char16_t{code}
           : katakana  ? static_cast<char16_t>(0xFF61 + code - 0xA1)
                       : kReplacement;
  }
  return whole;
}

}  // namespace

const CharsetRow* find_charset(std::string_view name) {
  const auto row = std::find_if(std::begin(kRows), std::end(kRows),
                                [=](const CharsetRow& candidate) { return candidate.name == name; });
  return row == std::end(kRows) ? nullptr : row;
}

const CharsetRow* find_charset_escape(std::string_view behind, bool& g1, std::size_t& length) {
  for (const CharsetRow& row : kRows) {
    for (const std::string_view escape : {row.g0, row.g1}) {
      if (escape.empty() || !behind.starts_with(escape)) continue;
      g1 = escape == row.g1;
      length = escape.size();
      return &row;
    }
  }
  return nullptr;
}

const CharsetRow* extended_charset(const CharsetRow& row) {
  if (!row.g0.empty() || !row.g1.empty()) return &row;
  constexpr std::string_view kPlain = "ISO_IR ";
  if (!row.name.starts_with(kPlain)) return nullptr;
  return find_charset("ISO 2022 IR " + std::string(row.name.substr(kPlain.size())));
}

IcuUse::IcuUse() : lock_(icu().lock), loaded_(icu().library != nullptr) {}

VX_STATUS enable_unicode(bool enable) {
  Icu& state = icu();
  const std::unique_lock alone(state.lock);
  if (!enable) {
    if (state.library == nullptr) {
      VX_LOG_ERR("VX_Enable_Unicode_Conversion", "ICU4C library not initialized");
    } else {
      unload(state);
    }
    return kOk;
  }
  if (state.library != nullptr || load(state)) return kOk;
  VX_LOG_ERR("VX_Enable_Unicode_Conversion", "Can't initialize Unicode library, check dependencies path");
  return VX_CANNOT_COMPLY;
}

bool unicode_enabled() {
  return IcuUse().loaded();
}

bool charset_available(const CharsetRow& row) {
  if (row.kind == Set::Ascii || row.kind == Set::Utf8 || row.kind == Set::Katakana) return true;
  const IcuUse use;
  if (!use.loaded()) return true;
  Converter& converter = converter_of(row);
  const std::lock_guard lock(converter.lock);
  return open_converter(row, converter);
}

bool decode_run(const CharsetRow& row, std::string_view bytes, std::u16string& out) {
  switch (row.kind) {
    case Set::Utf8:
      return append_utf16(bytes, out);
    case Set::Katakana:
      return decode_katakana(bytes, out);
    default:
      break;
  }
  if (row.kind != Set::LowPairs &&
      std::all_of(bytes.begin(), bytes.end(), [](char byte) { return static_cast<uint8_t>(byte) < 0x80; })) {
    out.append(bytes.begin(), bytes.end());
    return true;
  }
  bool whole = true;
  const auto append_table = [&](const char16_t* upper) {
    for (const char byte : bytes) {
      const auto code = static_cast<uint8_t>(byte);
      const char16_t unit = code < 0x80 ? code : upper != nullptr ? upper[code - 0x80] : kReplacement;
      whole &= unit != kReplacement;
      out += unit;
    }
    return whole;
  };
  if (row.kind == Set::Ascii) return append_table(nullptr);
  Converter& converter = converter_of(row);
  const std::lock_guard lock(converter.lock);
  if (!open_converter(row, converter)) return append_table(nullptr);
  if (row.kind == Set::Single) return append_table(converter.upper.data());
  return decode_by_icu(row, converter, bytes, out);
}

std::size_t encode_char(const CharsetRow& row, char32_t c, bool exact, char (&bytes)[kMaxCharBytes]) {
  if (row.kind == Set::Ascii || row.kind == Set::Utf8) return 0;
  if (row.kind == Set::Katakana) {
    if (c < 0xFF61 || c > 0xFF9F) return 0;
    bytes[0] = static_cast<char>(c - 0xFF61 + 0xA1);
    return 1;
  }
  Converter& converter = converter_of(row);
  const std::lock_guard lock(converter.lock);
  if (!open_converter(row, converter)) return 0;
  if (row.kind != Set::Single) {
    // The one character of JIS X 0212 that the converter would rather have in JIS X 0208.
    if (c == 0x2116 && row.g0 == "$(D") return std::string_view("\x22\x71").copy(bytes, kMaxCharBytes);
    std::size_t length = encode_by_icu(row, converter, c, bytes);
    for (const Spelling& spelling : kSpellings) {
      if (length == 0 && spelling.other == c && spelling.row == row.name && (spelling.decoded || !exact))
        length = encode_by_icu(row, converter, spelling.icu, bytes);
    }
    return length;
  }
  for (std::size_t at = 0; at < converter.upper.size(); ++at) {
    if (converter.upper[at] != c || !converter.written[at]) continue;
    bytes[0] = static_cast<char>(0x80 + at);
    return 1;
  }
  return 0;
}

}  // namespace vx
