#include "charset.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <set>

#include "base/attributes.h"
#include "base/names.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/typed_numbers.h"
#include "base/values.h"

namespace vexal {
namespace {

constexpr char16_t kReplacement = u'\xFFFD';
constexpr char kSubstitute = '\x1A';  // what the library writes for a character that no set has
constexpr char kUtf8[] = "ISO_IR 192";

}  // namespace

bool is_ascii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80 && c != '\x1B'; });
}

bool has_charset(VX_VR vr) {
  return vr == VX_VR_LO || vr == VX_VR_LT || vr == VX_VR_PN || vr == VX_VR_SH || vr == VX_VR_ST ||
         vr == VX_VR_UC || vr == VX_VR_UT;
}

bool load_charsets() {
  static const bool loaded = VX_Enable_Unicode_Conversion(1) == VX_NORMAL_COMPLETION;
  return loaded;
}

VX_STATUS read_texts(int32_t id, uint32_t tag, int32_t count, bool decode, std::vector<TextValue>& values) {
  values.assign(static_cast<std::size_t>(std::max(count, 0)), {});
  std::string room(256, '\0');
  std::size_t longest = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto size = static_cast<uint32_t>(room.size());
    uint32_t used = 0;
    VX_STATUS status = i == 0 ? VX_Get_Value(id, tag, VX_STRING_TYPE, size, room.data(), &used)
                              : VX_Get_Next_Value(id, tag, VX_STRING_TYPE, size, room.data(), &used);
    if (status == VX_BUFFER_TOO_SMALL) {  // grow, and read up to here again
      uint32_t whole = 0;
      VX_Get_Value_Length(id, tag, static_cast<int32_t>(i) + 1, &whole);
      room.resize(std::max<std::size_t>(room.size() * 2, std::size_t{whole} + 2));
      i = static_cast<std::size_t>(-1);
      continue;
    }
    values[i].is_null = status == VX_NULL_VALUE;
    if (values[i].is_null) continue;
    if (status != VX_NORMAL_COMPLETION) return status;
    values[i].bytes.assign(room, 0, used);
    longest = std::max(longest, values[i].bytes.size());
  }
  std::u16string wide(decode ? longest + 2 : 0, u'\0');
  for (std::size_t i = 0; decode && i < values.size(); ++i) {
    const auto size = static_cast<int32_t>(wide.size());
    int32_t length = 0;
    const VX_STATUS status = i == 0 ? VX_Get_Value_To_UnicodeString(id, tag, size, &length, wide.data())
                                    : VX_Get_Next_Value_To_UnicodeString(id, tag, size, &length, wide.data());
    if (status != VX_NORMAL_COMPLETION) return status;
    values[i].unicode.assign(wide, 0, static_cast<std::size_t>(length));
  }
  return VX_NORMAL_COMPLETION;
}

std::string first_charset(int32_t id, const std::string& inherited) {
  int32_t count = 0;
  if (VX_Get_Attribute_Info(id, tags::kSpecificCharacterSet, nullptr, &count) != VX_NORMAL_COMPLETION)
    return inherited;
  char text[80] = "";
  VX_Get_Value_To_String(id, tags::kSpecificCharacterSet, sizeof text, text);
  std::string name = text;
  name.erase(0, name.find_first_not_of(' '));
  name.erase(name.find_last_not_of(' ') + 1);
  if (count < 2) return name;
  if (name.empty()) return "ISO 2022 IR 6";
  return name.rfind("ISO_IR ", 0) == 0 && name != kUtf8 ? "ISO 2022 IR " + name.substr(7) : name;
}

std::string utf8_text_of(int32_t object, uint32_t tag) {
  std::string text = all_text_of(object, tag);
  VX_VR vr = VX_VR_UN;
  int32_t count = 0;
  if (is_ascii(text) || VX_Get_Attribute_Info(object, tag, &vr, &count) != VX_NORMAL_COMPLETION ||
      !has_charset(vr) || !load_charsets())
    return text;
  std::vector<TextValue> values;
  read_texts(object, tag, count, true, values);
  std::string utf8;
  for (const TextValue& value : values) {
    if (value.unicode.find(u'\xFFFD') != std::u16string::npos) return text;
    if (&value != &values.front()) utf8 += '\\';
    for (std::size_t at = 0; at < value.unicode.size();)
      append_utf8(utf8, next_code_point(value.unicode, at));
  }
  return utf8;
}

bool set_typed_text(int32_t id, uint32_t tag, const std::string& text, bool first, VX_STATUS& status) {
  if (set_number(id, tag, text, first, status)) return true;
  const auto as_it_is = [&] {
    status = first ? VX_Set_Value_From_String(id, tag, text.c_str())
                   : VX_Set_Next_Value_From_String(id, tag, text.c_str());
    return true;
  };
  std::u16string wide;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = utf8_length(std::string_view(text).substr(at));
    if (length == 0) return as_it_is();
    append_utf16(wide, utf8_code_point(std::string_view(text).substr(at, length)));
    at += length;
  }
  if (is_ascii(text) || !load_charsets()) return as_it_is();
  const MutedWarnings quiet;
  const auto size = static_cast<int32_t>(wide.size());
  status = first ? VX_Set_Value_From_UnicodeString(id, tag, size, wide.data())
                 : VX_Set_Next_Value_From_UnicodeString(id, tag, size, wide.data());
  if (status == VX_INCOMPATIBLE_VR) return as_it_is();
  int32_t count = 0;
  std::vector<TextValue> values;
  VX_Get_Attribute_Info(id, tag, nullptr, &count);
  read_texts(id, tag, count, false, values);
  return values.empty() || text.find(kSubstitute) != std::string::npos ||
         values.back().bytes.find(kSubstitute) == std::string::npos;
}

namespace {

// One attribute in the new character sets.
struct NewText {
  int32_t object;
  uint32_t tag;
  std::vector<TextValue> values;
};

class Conversion {
 public:
  Conversion(int32_t object, const std::string& path, const std::vector<std::string>& names,
             const std::vector<std::string>& from)
      : id_(object), path_(path), names_(names), from_(from) {
    for (const std::string& name : names) pointers_.push_back(name.c_str());
  }

  // Reads and converts all, and changes nothing but the character set of an object that names none.
  std::string prepare();
  std::size_t lost() const { return lost_; }
  bool changes_text() const { return !texts_.empty(); }
  std::string apply();

 private:
  std::string object(int32_t id, const std::string& path, const std::string& inherited, int depth);
  std::string attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, const std::string& path,
                        const std::string& charset);
  void convert(const std::string& where, VX_VR vr, const std::string& charset, TextValue& value);
  std::string encode(std::u16string_view text) const;
  bool can_hold(char32_t c) const;

  int32_t id_;
  const std::string& path_;
  const std::vector<std::string>& names_;
  const std::vector<std::string>& from_;
  std::vector<const char*> pointers_;
  std::vector<NewText> texts_;
  std::vector<int32_t> holders_;  // objects with a (0008,0005) of their own
  std::size_t lost_ = 0;
};

VX_STATUS set_charset(int32_t id, const std::vector<std::string>& names) {
  if (names.empty()) {
    const VX_STATUS status = VX_Delete_Attribute(id, tags::kSpecificCharacterSet);
    return status == VX_INVALID_TAG ? VX_NORMAL_COMPLETION : status;
  }
  VX_STATUS status = names[0].empty()
                         ? VX_Set_Value_To_NULL(id, tags::kSpecificCharacterSet)
                         : VX_Set_Value_From_String(id, tags::kSpecificCharacterSet, names[0].c_str());
  for (std::size_t i = 1; i < names.size() && status == VX_NORMAL_COMPLETION; ++i)
    status = VX_Set_Next_Value_From_String(id, tags::kSpecificCharacterSet, names[i].c_str());
  return status;
}

std::string Conversion::prepare() {
  if (has_attribute(id_, tags::kDirectoryRecordSequence))
    return "a directory keeps its character sets: its records lie at places that it names";
  int32_t count = 0;
  if (!from_.empty() &&
      (VX_Get_Attribute_Info(id_, tags::kSpecificCharacterSet, nullptr, &count) != VX_NORMAL_COMPLETION ||
       count == 0)) {
    const VX_STATUS status = set_charset(id_, from_);
    if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  }
  return object(id_, "", "", 0);
}

std::string Conversion::object(int32_t id, const std::string& path, const std::string& inherited, int depth) {
  const std::string charset = first_charset(id, inherited);
  if (depth == 0 || has_attribute(id, tags::kSpecificCharacterSet)) holders_.push_back(id);
  std::string problem;
  for_each_attribute(id, [&](uint32_t tag, VX_VR vr, int32_t count) {
    if (vr == VX_VR_SQ) {
      const std::vector<int32_t> items = sequence_items(id, tag);
      const std::string name = path + tag_name(tag);
      for (std::size_t i = 0; i < items.size() && problem.empty(); ++i)
        problem = object(items[i], name + "[" + std::to_string(i) + "].", charset, depth + 1);
      VX_Get_Attribute_Info(id, tag, nullptr, nullptr);  // the walk goes on behind the sequence
    } else if (has_charset(vr) && (tag >> 16) > 2) {
      problem = attribute(id, tag, vr, count, path, charset);
    }
    return problem.empty();
  });
  return problem;
}

std::string Conversion::attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, const std::string& path,
                                  const std::string& charset) {
  std::vector<TextValue> values;
  VX_STATUS status = read_texts(id, tag, count, false, values);
  const auto is_plain = [](const TextValue& value) { return is_ascii(value.bytes); };
  if (status == VX_EMPTY_VALUE || std::all_of(values.begin(), values.end(), is_plain)) return "";
  if (status == VX_NORMAL_COMPLETION) status = read_texts(id, tag, count, true, values);
  if (status != VX_NORMAL_COMPLETION) return describe_tag(tag) + ": " + VX_Error_Message(status);
  const std::string where = format_tag(tag) + " " + path + tag_name(tag);
  for (TextValue& value : values) convert(where, vr, charset, value);
  texts_.push_back({id, tag, std::move(values)});
  return "";
}

std::string Conversion::encode(std::u16string_view text) const {
  // Of a character, with its escape sequences.
  const std::size_t most = pointers_.size() > 1 ? 16 : 4;
  std::string bytes((text.size() + 1) * most, '\0');
  int32_t length = 0;
  const VX_STATUS status = VX_Unicode_To_Byte(pointers_.data(), static_cast<int32_t>(pointers_.size()),
                                              text.data(), static_cast<int32_t>(text.size()),
                                              static_cast<int32_t>(bytes.size()), &length, bytes.data());
  bytes.resize(status == VX_NORMAL_COMPLETION ? static_cast<std::size_t>(length) : 0);
  return bytes;
}

bool Conversion::can_hold(char32_t c) const {
  if (c < 0x80) return true;
  std::u16string units;
  append_utf16(units, c);
  const std::string bytes = encode(units);
  return !bytes.empty() && bytes.find(kSubstitute) == std::string::npos;
}

// The value's bytes become those of the new sets. What is lost is reported and replaced.
void Conversion::convert(const std::string& where, VX_VR vr, const std::string& charset, TextValue& value) {
  if (is_ascii(value.bytes)) return;
  constexpr std::size_t kShown = 64;
  constexpr std::size_t kTold = 32;
  const MutedWarnings quiet;  // of the library, about what is reported here
  const std::u16string& text = value.unicode;
  const bool broken = text.find(kReplacement) != std::u16string::npos;
  std::string bytes = encode(text);
  const auto substitutes = [](const auto& in) { return std::count(in.begin(), in.end(), kSubstitute); };
  std::set<char32_t> missing;
  if (substitutes(bytes) != substitutes(text)) {
    std::u16string kept;
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t start = at;
      const char32_t c = next_code_point(text, at);
      if (can_hold(c)) {
        kept.append(text, start, at - start);
      } else {
        kept += u'?';
        if (c != kReplacement) missing.insert(c);
      }
    }
    bytes = encode(kept);
  }
  std::string line = where + " \"";
  ShownText old(line, kShown);
  if (broken) {
    show_broken(old, value.bytes, charset, vr == VX_VR_PN);
  } else {
    old.add_unicode(text);
  }
  line += old.is_cut() ? "...\"" : "\"";
  value.bytes = std::move(bytes);
  const bool cut = value.bytes.find('\0') != std::string::npos;  // where the library takes it to end
  if (!broken && !cut && missing.empty()) return;
  ++lost_;
  if (broken) line += ": no text in " + (charset.empty() ? "the default character set" : charset);
  if (cut) line += ": ends at a NUL";
  if (!missing.empty()) line += ": not in the new sets:";
  std::size_t told = 0;
  for (const char32_t c : missing) {
    if (++told > kTold) {
      line += " and " + std::to_string(missing.size() - kTold) + " more";
      break;
    }
    std::string utf8;
    append_utf8(utf8, c);
    char code[16];
    std::snprintf(code, sizeof code, " (U+%04X)", static_cast<unsigned>(c));
    line += " " + shown(utf8) + code;
  }
  report(path_, line);
}

std::string Conversion::apply() {
  for (const int32_t id : holders_) {
    const VX_STATUS status = set_charset(id, names_);
    if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  }
  for (const NewText& text : texts_) {
    bool first = true;
    for (const TextValue& value : text.values) {
      VX_STATUS status = VX_NORMAL_COMPLETION;
      if (value.is_null) {
        status = first ? VX_Set_Value_To_NULL(text.object, text.tag)
                       : VX_Set_Next_Value_To_NULL(text.object, text.tag);
      } else {
        status = first ? VX_Set_Value_From_String(text.object, text.tag, value.bytes.c_str())
                       : VX_Set_Next_Value_From_String(text.object, text.tag, value.bytes.c_str());
      }
      first = false;
      // What breaks a rule of its VR is stored all the same, as it was before.
      if (status != VX_NORMAL_COMPLETION && status != VX_INVALID_VALUE_FOR_VR &&
          status != VX_INVALID_CHARS_IN_VALUE)
        return describe_tag(text.tag) + ": " + VX_Error_Message(status);
    }
  }
  return "";
}

struct ShortName {
  const char* name;
  const char* term;
};
constexpr ShortName kShortNames[] = {
    {"UTF-8", kUtf8},         {"UTF8", kUtf8},           {"ASCII", ""},           {"ISO_IR 6", ""},
    {"LATIN1", "ISO_IR 100"}, {"LATIN-1", "ISO_IR 100"}, {"LATIN9", "ISO_IR 203"}};
// Sets of pairs of bytes, which can not come first.
constexpr std::string_view kNeverFirst[] = {"ISO 2022 IR 87", "ISO 2022 IR 159", "ISO 2022 IR 149",
                                            "ISO 2022 IR 58"};

}  // namespace

bool CharsetChange::read_names(const Args& args, const char* option, Names& names) const {
  const std::string given = args.get(option);
  for (std::size_t start = 0; start <= given.size();) {
    const std::size_t end = std::min(given.find_first_of(",\\", start), given.size());
    std::string name = given.substr(start, end - start);
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::toupper(c); });
    const auto* const row = std::find_if(std::begin(kShortNames), std::end(kShortNames),
                                         [&](const ShortName& candidate) { return name == candidate.name; });
    names.push_back(row == std::end(kShortNames) ? name : row->term);
    start = end + 1;
  }
  const auto* const never = std::find(std::begin(kNeverFirst), std::end(kNeverFirst), names[0]);
  if (never != std::end(kNeverFirst)) names.insert(names.begin(), "");
  if (names.size() > 1) {
    for (std::string& name : names) {
      if (name.rfind("ISO_IR ", 0) == 0 && name != kUtf8) name = "ISO 2022 IR " + name.substr(7);
    }
  } else if (names[0].empty()) {
    names.clear();
  }
  std::vector<const char*> pointers;
  for (const std::string& name : names) pointers.push_back(name.c_str());
  char bytes[16];
  int32_t length = 0;
  if (VX_Unicode_To_Byte(pointers.data(), static_cast<int32_t>(pointers.size()), u"a", 1, sizeof bytes,
                         &length, bytes) == VX_NORMAL_COMPLETION)
    return true;
  complain("%s %s: not character sets that go together; see --help", option, given.c_str());
  return false;
}

bool CharsetChange::read(const Args& args) {
  wanted_ = args.has("--charset");
  lossy_ = args.has("--lossy");
  if (!wanted_) {
    if (!lossy_ && !args.has("--charset-from")) return true;
    complain("--lossy and --charset-from go with --charset");
    return false;
  }
  if (!load_charsets()) {
    complain("--charset: ICU is not installed");
    return false;
  }
  return read_names(args, "--charset", names_) &&
         (!args.has("--charset-from") || read_names(args, "--charset-from", from_));
}

std::size_t make_utf8(const DicomFile& file) {
  if (first_charset(file.id(), "") == kUtf8 || !load_charsets()) return 0;
  const std::vector<std::string> names = {kUtf8};
  const std::vector<std::string> from;
  Conversion conversion(file.id(), file.path(), names, from);
  std::string problem = conversion.prepare();
  if (problem.empty() && conversion.changes_text()) problem = conversion.apply();
  if (!problem.empty()) report(file.path(), problem);
  return conversion.lost() + (problem.empty() ? 0 : 1);
}

std::string leave_utf8(int32_t object, const std::string& path, const std::string& charset) {
  std::vector<std::string> names;
  for (std::size_t start = 0; start <= charset.size() && !charset.empty();) {
    const std::size_t end = std::min(charset.find('\\', start), charset.size());
    names.push_back(charset.substr(start, end - start));
    start = end + 1;
  }
  std::string problem;
  const std::vector<std::string> from = {kUtf8};
  set_charset(object, from);
  Conversion conversion(object, path, names, from);
  if (charset != kUtf8 && load_charsets()) problem = conversion.prepare();
  if (!problem.empty() || charset == kUtf8) return problem;
  if (conversion.lost() != 0 && !names.empty())
    return "text that " + charset + " can not express, in " + std::to_string(conversion.lost()) + " values";
  if (conversion.changes_text() && !names.empty()) return conversion.apply();
  // Text that nothing is said of stays in UTF-8.
  const VX_STATUS status = conversion.changes_text() ? VX_NORMAL_COMPLETION : set_charset(object, names);
  return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

Exit CharsetChange::apply(const DicomFile& file, bool& write) const {
  write = true;
  if (!wanted_) return kSuccess;
  Conversion conversion(file.id(), file.path(), names_, from_);
  std::string problem = conversion.prepare();
  const std::size_t lost = conversion.lost();
  write = problem.empty() && (lost == 0 || lossy_);
  if (write) problem = conversion.apply();
  if (!problem.empty()) {
    report(file.path(), problem);
    write = false;
    return kUsage;
  }
  if (lost == 0) return kSuccess;
  report(file.path(), std::to_string(lost) + (lost == 1 ? " value" : " values") +
                          (write ? " lost something" : " would lose something: not written, see --lossy"));
  return kFindings;
}

}  // namespace vexal
