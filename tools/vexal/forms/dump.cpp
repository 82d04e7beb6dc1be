// vexal dump: what is in a file, for people or as JSON.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>

#include "base/commands.h"
#include "base/json.h"
#include "base/names.h"
#include "base/parallel.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/typed_numbers.h"
#include "files/charset.h"
#include "files/files.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--tag", "PATH", "show this attribute only, also inside sequences (may be repeated)"},
    {"--json", nullptr, "one JSON object a file, one line each"},
    {"--width", "N", "show at most N characters of a value, 0 for all (default 64)"},
    {"--threads", "N", "files read at once (default: the processors)"},
};

struct DumpSettings {
  std::size_t width = 64;
  bool json = false;
  std::vector<std::vector<PathStep>> paths;
};

// Private creators of the object at hand, by group and block.
class Creators {
 public:
  void clear() { known_.clear(); }
  void add(uint32_t tag, const char* code) {
    known_.push_back({(tag & 0xFFFF0000U) | ((tag & 0xFFU) << 8), code});
  }
  const char* find(uint32_t tag) const {
    const uint32_t block = tag & 0xFFFFFF00U;
    for (auto it = known_.rbegin(); it != known_.rend(); ++it) {
      if (it->first == block) return it->second.c_str();
    }
    return nullptr;
  }

 private:
  std::vector<std::pair<uint32_t, std::string>> known_;
};

constexpr bool is_text(VX_VR vr) {
  return vr <= VX_VR_UI;
}
constexpr bool is_numeric(VX_VR vr) {
  return vr >= VX_VR_SS && vr <= VX_VR_FD;
}

void append_number(std::string& out, uint64_t value) {
  char text[24];
  const auto end = std::to_chars(text, text + sizeof text, value);
  out.append(text, end.ptr);
}

void append_hex4(std::string& out, uint32_t value) {
  static const char kDigits[] = "0123456789ABCDEF";
  const char text[4] = {kDigits[(value >> 12) & 15U], kDigits[(value >> 8) & 15U],
                        kDigits[(value >> 4) & 15U], kDigits[value & 15U]};
  out.append(text, 4);
}

uint32_t numeric_width(VX_VR vr) {
  return vr == VX_VR_SS || vr == VX_VR_US ? 2 : vr == VX_VR_FD || vr == VX_VR_UN ? 8 : 4;
}

// One number of a numeric VR, or of SV or UV in one of VX_VR_UN, in the machine's byte order.
void append_numeric(std::string& out, VX_VR vr, const std::string& wide, const char* bytes) {
  char text[32];
  std::to_chars_result end{};
  const auto read = [&](auto value) {
    std::memcpy(&value, bytes, sizeof value);
    return value;
  };
  switch (vr) {
    case VX_VR_SS:
      end = std::to_chars(text, text + sizeof text, read(int16_t{}));
      break;
    case VX_VR_US:
      end = std::to_chars(text, text + sizeof text, read(uint16_t{}));
      break;
    case VX_VR_SL:
      end = std::to_chars(text, text + sizeof text, read(int32_t{}));
      break;
    case VX_VR_FL:
      end = std::to_chars(text, text + sizeof text, read(float{}));
      break;
    case VX_VR_FD:
      end = std::to_chars(text, text + sizeof text, read(double{}));
      break;
    case VX_VR_AT:
      out += format_tag(read(uint32_t{}));
      return;
    case VX_VR_UN:
      end = wide == "SV" ? std::to_chars(text, text + sizeof text, read(int64_t{}))
                         : std::to_chars(text, text + sizeof text, read(uint64_t{}));
      break;
    default:
      end = std::to_chars(text, text + sizeof text, read(uint32_t{}));
      break;
  }
  out.append(text, end.ptr);
}

// The pieces of a numeric or bulk value, joined up to a limit.
struct Gathered {
  std::string bytes;
  std::size_t limit = 0;
  uint64_t total = 0;
};

VX_STATUS gather(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& gathered = *static_cast<Gathered*>(user);
  gathered.total += size;
  if (gathered.bytes.size() < gathered.limit) {
    gathered.bytes.append(static_cast<const char*>(data),
                          std::min<std::size_t>(size, gathered.limit - gathered.bytes.size()));
  }
  return VX_NORMAL_COMPLETION;
}

class Dumper {
 public:
  // With `streaming`, what is ready goes to standard output as the listing grows.
  Dumper(const DicomFile& file, const DumpSettings& settings, std::string& out, bool streaming)
      : file_(file), settings_(settings), out_(out), streaming_(streaming) {
    // More characters than are shown, of four bytes at most.
    text_.resize(settings.width == 0 ? 65536 : std::max<std::size_t>(settings.width * 4 + 8, 256));
  }

  void object(int32_t id, int depth) {
    const std::string outer = charset_;
    Creators creators;
    uint32_t tag = 0;
    VX_VR vr = 0;
    int32_t count = 0;
    bool first = true;
    VX_STATUS status = VX_Get_First_Attribute(id, &tag, &vr, &count);
    while (status == VX_NORMAL_COMPLETION) {
      if (in_file(id, tag, vr, count)) {
        attribute(id, tag, vr, count, depth, creators, first);
        first = false;
        if (streaming_ && out_.size() >= kFlushAt) flush();
      }
      status = VX_Get_Next_Attribute(id, &tag, &vr, &count);
    }
    charset_ = outer;
  }

  // One attribute out of its object, `root` holding it. Only the library knows what lies between.
  void single(int32_t root, int32_t id, uint32_t tag, VX_VR vr, int32_t count, bool first) {
    Creators creators;
    charset_ = first_charset(id, first_charset(root, ""));
    all_known_ = false;
    attribute(id, tag, vr, count, 0, creators, first);
  }

  void attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, int depth, Creators& creators,
                 bool first) {
    if (tag == kSpecificCharacterSet) charset_ = first_charset(id, charset_);
    if (settings_.json) {
      json_attribute(id, tag, vr, count, creators, first);
    } else {
      text_attribute(id, tag, vr, count, depth, creators);
    }
  }

 private:
  static constexpr std::size_t kFlushAt = 65536;
  void flush() {
    std::fwrite(out_.data(), 1, out_.size(), stdout);
    out_.clear();
  }

  // A file object has every attribute that a meta group may have; those without a value are not in the file.
  static bool in_file(int32_t id, uint32_t tag, VX_VR vr, int32_t count) {
    if ((tag >> 16) != 2) return true;
    return count > 0 && (vr != VX_VR_OB || VX_Get_Value_Count(id, tag, &count) != VX_EMPTY_VALUE);
  }

  // --- names ---

  void append_name(uint32_t tag, const Creators& creators) {
    if (!is_private(tag)) {
      const std::string_view keyword = tag_keyword(tag);
      out_ += keyword.empty() ? "-" : keyword;
      return;
    }
    if ((tag & 0xFFFFU) == 0) {
      out_ += "GroupLength";
      return;
    }
    if ((tag & 0xFFFFU) <= 0xFF) {
      out_ += "PrivateCreator";
      return;
    }
    char name[128];
    const char* creator = creators.find(tag);
    if (creator != nullptr &&
        VX_Get_pTag_Info(creator, static_cast<uint16_t>(tag >> 16), static_cast<uint8_t>(tag), name,
                         sizeof name) == VX_NORMAL_COMPLETION) {
      out_ += name;
    } else {
      out_ += "-";
    }
  }

  // --- text ---

  void text_attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, int depth, Creators& creators) {
    out_.append(static_cast<std::size_t>(depth) * 2, ' ');
    out_ += '(';
    append_hex4(out_, tag >> 16);
    out_ += ',';
    append_hex4(out_, tag & 0xFFFFU);
    out_ += ") ";
    const std::string wide = vr == VX_VR_UN ? letters_of(id, tag) : "";
    out_ += wide.empty() ? vr_letters(vr) : wide.c_str();
    out_ += ' ';
    uint64_t length = 0;
    value_.clear();
    if (vr == VX_VR_SQ) {
      append_number(value_, static_cast<uint64_t>(count));
      value_ += count == 1 ? " item" : " items";
    } else if (is_text(vr)) {
      length = text_value(id, tag, vr, count, creators);
    } else if (is_numeric(vr) || is_wide_integer(wide)) {
      length = numeric_value(id, tag, vr, wide);
    } else {
      length = bulk_value(id, tag);
    }
    char digits[24];
    if (vr == VX_VR_SQ) {
      out_ += "       -";
    } else if (length == kUndefined) {
      out_ += "   undef";
    } else {
      const auto end = std::to_chars(digits, digits + sizeof digits, length);
      const auto used = static_cast<std::size_t>(end.ptr - digits);
      out_.append(used < 8 ? 8 - used : 0, ' ');
      out_.append(digits, used);
    }
    out_ += "  ";
    const std::size_t name_at = out_.size();
    append_name(tag, creators);
    const std::size_t name_used = out_.size() - name_at;
    if (!value_.empty()) {
      out_.append(name_used < 32 ? 32 - name_used : 0, ' ');
      out_ += "  ";
      out_ += value_;
    }
    out_ += '\n';
    if (vr == VX_VR_SQ) text_items(id, tag, depth);
  }

  void text_items(int32_t id, uint32_t tag, int depth) {
    const std::vector<int32_t> items = sequence_items(id, tag);
    for (std::size_t i = 0; i < items.size(); ++i) {
      out_.append(static_cast<std::size_t>(depth) * 2 + 2, ' ');
      out_ += '[';
      append_number(out_, i);
      out_ += "]\n";
      object(items[i], depth + 2);
    }
    // The walk of this object goes on behind the sequence.
    VX_Get_Attribute_Info(id, tag, nullptr, nullptr);
  }

  bool full() const { return settings_.width != 0 && value_.size() > settings_.width; }
  void cut() {
    if (!full()) return;
    value_.resize(settings_.width);
    value_ += "...";
  }

  uint64_t text_value(int32_t id, uint32_t tag, VX_VR vr, int32_t count, Creators& creators) {
    const auto size = static_cast<uint32_t>(text_.size());
    uint64_t length = 0;
    ShownText shown(value_, settings_.width);
    const bool text = has_charset(vr);
    const bool convert = text && needs_conversion();
    bool ascii = true;  // so far, where that is asked
    const auto add = [&](std::string_view bytes) {
      if (convert) {
        ascii = ascii && shown.add_ascii(bytes);
      } else if (text) {
        shown.add_utf8(bytes);
      } else {
        shown.add_bytes(bytes);
      }
    };
    uint32_t used = 0;  // a text may hold NULs
    VX_STATUS status = VX_Get_Value(id, tag, VX_STRING_TYPE, size, text_.data(), &used);
    for (int32_t number = 1;; ++number) {
      if (status == VX_NORMAL_COMPLETION) {
        length += used;
        if (!shown.is_cut()) add({text_.data(), used});
      } else if (status == VX_BUFFER_TOO_SMALL) {
        uint32_t whole = 0;
        VX_Get_Value_Length(id, tag, number, &whole);
        length += whole;
        if (!shown.is_cut()) text_beyond(id, tag, number, whole, add);
      } else if (status != VX_NULL_VALUE) {
        break;
      }
      if (number >= count) break;
      ++length;
      shown.add_ascii("\\");
      status = VX_Get_Next_Value(id, tag, VX_STRING_TYPE, size, text_.data(), &used);
    }
    bool is_cut = shown.is_cut();
    if (!ascii) is_cut = text_beyond_ascii(id, tag, vr, count);
    if (is_cut) value_ += "...";
    if (is_private(tag) && (tag & 0xFFFFU) >= 0x10 && (tag & 0xFFFFU) <= 0xFF)
      creators.add(tag, text_.data());
    return length;
  }

  // A text that is larger than the buffer: as much of it as the width asks.
  template <typename Add>
  void text_beyond(int32_t id, uint32_t tag, int32_t number, uint32_t whole, const Add& add) {
    if (settings_.width != 0) {
      add(text_.data());
      return;
    }
    std::string all(static_cast<std::size_t>(whole) + 2, '\0');
    VX_STATUS status = VX_Get_Value_To_String(id, tag, static_cast<int32_t>(all.size()), all.data());
    for (int32_t i = 1; i < number; ++i) {
      status = VX_Get_Next_Value_To_String(id, tag, static_cast<int32_t>(all.size()), all.data());
    }
    if (status == VX_NORMAL_COMPLETION) add({all.data(), whole});
  }

  // --- text beyond ASCII ---

  // Text that is UTF-8, or ought to be where no set is named, needs no conversion.
  bool needs_conversion() const { return !all_known_ || (!charset_.empty() && charset_ != "ISO_IR 192"); }

  // The values, decoded if it can be done. What the library has to say is said once a file.
  std::vector<TextValue> decoded(int32_t id, uint32_t tag, int32_t count) {
    std::optional<MutedWarnings> quiet;
    if (told_) quiet.emplace();
    told_ = true;
    std::vector<TextValue> values;
    read_texts(id, tag, count, needs_conversion() && load_charsets(), values);
    return values;
  }

  // The value once more, out of its character sets. True if more of it is there than is shown.
  bool text_beyond_ascii(int32_t id, uint32_t tag, VX_VR vr, int32_t count) {
    value_.clear();
    ShownText shown(value_, settings_.width);
    bool first = true;
    for (const TextValue& value : decoded(id, tag, count)) {
      if (!first) shown.add_ascii("\\");
      first = false;
      if (value.unicode.empty()) {
        shown.add_utf8(value.bytes);
      } else if (value.unicode.find(u'\xFFFD') != std::u16string::npos) {
        const MutedWarnings quiet;
        show_broken(shown, value.bytes, charset_, vr == VX_VR_PN);
      } else {
        shown.add_unicode(value.unicode);
      }
    }
    return shown.is_cut();
  }

  void json_beyond_ascii(int32_t id, uint32_t tag, int32_t count) {
    bool first = true;
    for (const TextValue& value : decoded(id, tag, count)) {
      if (!first) out_ += ',';
      first = false;
      if (value.is_null) {
        out_ += "null";
      } else if (value.unicode.empty()) {
        append_json(out_, value.bytes);
      } else {
        std::string utf8;
        for (std::size_t at = 0; at < value.unicode.size();)
          append_utf8(utf8, next_code_point(value.unicode, at));
        append_json(out_, utf8);
      }
    }
  }

  uint64_t numeric_value(int32_t id, uint32_t tag, VX_VR vr, const std::string& wide) {
    const uint32_t width = numeric_width(vr);
    gathered_.bytes.clear();
    gathered_.total = 0;
    gathered_.limit = settings_.width == 0 ? SIZE_MAX : (settings_.width + 1) * width;
    VX_Get_Value_To_Function(id, tag, &gathered_, gather);
    for (std::size_t at = 0; at + width <= gathered_.bytes.size() && !full(); at += width) {
      if (at != 0) value_ += '\\';
      append_numeric(value_, vr, wide, gathered_.bytes.data() + at);
    }
    cut();
    return gathered_.total;
  }

  uint64_t bulk_value(int32_t id, uint32_t tag) {
    static const char kDigits[] = "0123456789abcdef";
    if (const KeptValue* kept = file_.kept(id, tag)) {
      value_ = kept->length == kUndefined ? "encapsulated, at byte " : "at byte ";
      append_number(value_, kept->offset);
      return kept->length;
    }
    gathered_.bytes.clear();
    gathered_.total = 0;
    gathered_.limit = settings_.width == 0 ? SIZE_MAX : settings_.width / 3 + 1;
    VX_Get_Value_To_Function(id, tag, &gathered_, gather);
    for (const char c : gathered_.bytes) {
      if (full()) break;
      if (!value_.empty()) value_ += ' ';
      value_ += kDigits[static_cast<unsigned char>(c) >> 4];
      value_ += kDigits[static_cast<unsigned char>(c) & 15U];
    }
    if (gathered_.total > gathered_.bytes.size() || full()) {
      if (settings_.width != 0) value_.resize(std::min(value_.size(), settings_.width));
      value_ += "...";
    }
    return gathered_.total;
  }

  // --- JSON ---

  void json_attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, Creators& creators, bool first) {
    if (!first) out_ += ',';
    out_ += "{\"tag\":\"";
    append_hex4(out_, tag >> 16);
    append_hex4(out_, tag & 0xFFFFU);
    out_ += "\",\"vr\":\"";
    const std::string wide = vr == VX_VR_UN ? letters_of(id, tag) : "";
    out_ += wide.empty() ? vr_letters(vr) : wide.c_str();
    out_ += "\",\"keyword\":\"";
    if (!is_private(tag)) out_ += tag_keyword(tag);
    out_ += '"';
    if (const char* creator = is_private(tag) ? creators.find(tag) : nullptr) {
      out_ += ",\"creator\":";
      append_json(out_, creator);
    }
    if (vr == VX_VR_SQ) {
      json_items(id, tag);
    } else if (is_text(vr)) {
      json_texts(id, tag, vr, count, creators);
    } else if (is_numeric(vr) || is_wide_integer(wide)) {
      json_numbers(id, tag, vr, wide);
    } else {
      json_bulk(id, tag);
    }
    out_ += '}';
  }

  void json_items(int32_t id, uint32_t tag) {
    out_ += ",\"items\":[";
    const std::vector<int32_t> items = sequence_items(id, tag);
    for (std::size_t i = 0; i < items.size(); ++i) {
      out_ += i == 0 ? "[" : ",[";
      object(items[i], 0);
      out_ += ']';
    }
    out_ += ']';
    VX_Get_Attribute_Info(id, tag, nullptr, nullptr);
  }

  void json_texts(int32_t id, uint32_t tag, VX_VR vr, int32_t count, Creators& creators) {
    out_ += ",\"value\":[";
    const std::size_t start = out_.size();
    const bool may_convert = has_charset(vr) && needs_conversion();
    bool ascii = true;
    if (text_.size() < 65536) text_.resize(65536);
    uint32_t used = 0;
    const auto next = [&](auto* get) {
      return get(id, tag, VX_STRING_TYPE, static_cast<uint32_t>(text_.size()), text_.data(), &used);
    };
    VX_STATUS status = next(VX_Get_Value);
    for (int32_t number = 1; number <= count; ++number) {
      if (status == VX_BUFFER_TOO_SMALL) {  // grow and read from the start again
        uint32_t whole = 0;
        VX_Get_Value_Length(id, tag, number, &whole);
        text_.resize(static_cast<std::size_t>(whole) + 2);
        status = next(VX_Get_Value);
        for (int32_t i = 1; i < number; ++i) status = next(VX_Get_Next_Value);
      }
      if (number > 1) out_ += ',';
      if (status == VX_NORMAL_COMPLETION) {
        const std::string_view text(text_.data(), used);
        ascii = ascii && (!may_convert || is_ascii(text));
        append_json(out_, text);
      } else if (status == VX_NULL_VALUE) {
        out_ += "null";
      } else {
        break;
      }
      if (number < count) status = next(VX_Get_Next_Value);
    }
    if (!ascii) {
      out_.resize(start);
      json_beyond_ascii(id, tag, count);
    }
    out_ += ']';
    if (is_private(tag) && (tag & 0xFFFFU) >= 0x10 && (tag & 0xFFFFU) <= 0xFF)
      creators.add(tag, text_.data());
  }

  void json_numbers(int32_t id, uint32_t tag, VX_VR vr, const std::string& wide) {
    const uint32_t width = numeric_width(vr);
    gathered_ = {"", SIZE_MAX, 0};
    VX_Get_Value_To_Function(id, tag, &gathered_, gather);
    out_ += ",\"value\":[";
    for (std::size_t at = 0; at + width <= gathered_.bytes.size(); at += width) {
      if (at != 0) out_ += ',';
      const char* bytes = gathered_.bytes.data() + at;
      if (vr == VX_VR_AT) {
        out_ += '"';
        uint32_t value = 0;
        std::memcpy(&value, bytes, sizeof value);
        append_hex4(out_, value >> 16);
        append_hex4(out_, value & 0xFFFFU);
        out_ += '"';
      } else if (vr == VX_VR_FD) {
        double value = 0;
        std::memcpy(&value, bytes, sizeof value);
        append_json(out_, value);
      } else if (vr == VX_VR_FL) {
        float value = 0;
        std::memcpy(&value, bytes, sizeof value);
        append_json(out_, static_cast<double>(value));
      } else {
        append_numeric(out_, vr, wide, bytes);
      }
    }
    out_ += ']';
  }

  void json_bulk(int32_t id, uint32_t tag) {
    static const char kDigits[] = "0123456789abcdef";
    if (const KeptValue* kept = file_.kept(id, tag)) {
      out_ += ",\"offset\":";
      append_number(out_, kept->offset);
      out_ += ",\"length\":";
      if (kept->length == kUndefined) {
        out_ += "null";
      } else {
        append_number(out_, kept->length);
      }
      return;
    }
    gathered_ = {"", settings_.width == 0 ? SIZE_MAX : settings_.width / 2, 0};
    VX_Get_Value_To_Function(id, tag, &gathered_, gather);
    out_ += ",\"length\":";
    append_number(out_, gathered_.total);
    out_ += ",\"hex\":\"";
    for (const char c : gathered_.bytes) {
      out_ += kDigits[static_cast<unsigned char>(c) >> 4];
      out_ += kDigits[static_cast<unsigned char>(c) & 15U];
    }
    out_ += '"';
  }

  static constexpr uint32_t kUndefined = 0xFFFFFFFFU;
  const DicomFile& file_;
  const DumpSettings& settings_;
  std::string& out_;
  bool streaming_;
  std::string charset_;    // that text of the object at hand starts in
  bool all_known_ = true;  // all that holds the object has been seen
  bool told_ = false;
  std::string text_;   // buffer of the library's texts
  std::string value_;  // the value shown
  Gathered gathered_;
};

// The attributes that --tag names; a file without them is no fault.
void dump_selection(Dumper& dumper, const DicomFile& file, const DumpSettings& settings) {
  bool first = true;
  for (const auto& path : settings.paths) {
    std::vector<Place> places;
    resolve_path(file.id(), path, false, places);
    for (const Place& place : places) {
      VX_VR vr = 0;
      int32_t count = 0;
      if (VX_Get_Attribute_Info(place.object, place.tag, &vr, &count) != VX_NORMAL_COMPLETION) continue;
      dumper.single(file.id(), place.object, place.tag, vr, count, first);
      first = false;
    }
  }
}

FileResult dump_file(const std::string& path, const DumpSettings& settings, bool many) {
  CurrentFile current(path);
  FileResult result;
  DicomFile file;
  const VX_STATUS status = file.open(path, {});
  if (status != VX_NORMAL_COMPLETION) {
    report(path, file.problem());
    result.exit = kUsage;
    if (!file.readable()) return result;
  }
  std::string& out = result.output;
  if (settings.json) {
    out += "{\"file\":";
    append_json(out, path);
    char uid[65];
    if (VX_Get_Transfer_Syntax_From_Enum(file.syntax(), uid, sizeof uid) == VX_NORMAL_COMPLETION) {
      out += ",\"transferSyntax\":";
      append_json(out, std::string_view(uid));
    }
    if (status != VX_NORMAL_COMPLETION) {
      out += ",\"problem\":";
      append_json(out, file.problem());
    }
    out += ",\"elements\":[";
  } else if (many) {
    out += "# " + shown(path) + "\n";
  }
  Dumper dumper(file, settings, out, !many);
  if (settings.paths.empty()) {
    dumper.object(file.id(), 0);
  } else {
    dump_selection(dumper, file, settings);
  }
  if (settings.json) out += "]}\n";
  return result;
}

int run(const Args& args) {
  DumpSettings settings;
  settings.json = args.has("--json");
  long width = 64;
  long threads = default_threads();
  if (!args.number("--width", 0, 1000000, width) || !args.number("--threads", 1, 256, threads)) return kUsage;
  settings.width = static_cast<std::size_t>(width);
  for (const std::string& text : args.all("--tag")) {
    std::vector<PathStep> path;
    const std::string error = parse_path(text, path);
    if (!error.empty()) {
      complain("--tag %s: %s", text.c_str(), error.c_str());
      return kUsage;
    }
    settings.paths.push_back(std::move(path));
  }
  if (args.paths.empty()) {
    complain("dump needs a file or folder; --help tells more");
    return kUsage;
  }
  bool failed = false;
  const std::vector<std::string> files = expand_paths(args.paths, failed);
  const bool many = files.size() > 1;
  const int worst = for_each_file(files, static_cast<unsigned>(threads),
                                  [&](const std::string& path) { return dump_file(path, settings, many); });
  return failed ? static_cast<int>(kUsage) : worst;
}

}  // namespace

const Command kDump = {
    "dump",
    "[OPTION...] PATH...",
    "list the attributes of files and folders",
    "A line is: tag, VR, length in bytes, keyword (or the name in a private dictionary), value.\n"
    "A large value stays in the file; its place is shown. A file that breaks off is listed as far\n"
    "as it could be read, with exit status 2.",
    kOptions,
    run};

}  // namespace vexal
