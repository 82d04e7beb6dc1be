#include "dumper.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>

#include "base/attributes.h"
#include "base/hex.h"
#include "base/json.h"
#include "base/names.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/typed_numbers.h"

namespace vexal {
namespace {

void append_number(std::string& out, uint64_t value) {
  char text[24];
  const auto end = std::to_chars(text, text + sizeof text, value);
  out.append(text, end.ptr);
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

VX_STATUS gather(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& gathered = *static_cast<Gathered*>(user);
  gathered.total += size;
  if (gathered.bytes.size() < gathered.limit) {
    gathered.bytes.append(static_cast<const char*>(data),
                          std::min<std::size_t>(size, gathered.limit - gathered.bytes.size()));
  }
  return VX_NORMAL_COMPLETION;
}

}  // namespace

Dumper::Dumper(const DicomFile& file, const DumpSettings& settings, std::string& out, bool streaming)
    : file_(file), settings_(settings), out_(out), streaming_(streaming) {
  // More characters than are shown, of four bytes at most.
  text_.resize(settings.width == 0 ? 65536 : std::max<std::size_t>(settings.width * 4 + 8, 256));
}

void Dumper::object(int32_t id, int depth) {
  const std::string outer = charset_;
  Creators creators;
  bool first = true;
  for_each_attribute(id, [&](uint32_t tag, VX_VR vr, int32_t count) {
    if (in_file(id, tag, vr, count)) {
      attribute(id, tag, vr, count, depth, creators, first);
      first = false;
      if (streaming_ && out_.size() >= kFlushAt) flush();
    }
  });
  charset_ = outer;
}

void Dumper::single(int32_t root, int32_t id, uint32_t tag, VX_VR vr, int32_t count, bool first) {
  Creators creators;
  charset_ = first_charset(id, first_charset(root, ""));
  all_known_ = false;
  attribute(id, tag, vr, count, 0, creators, first);
}

void Dumper::attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, int depth, Creators& creators,
                       bool first) {
  if (tag == tags::kSpecificCharacterSet) charset_ = first_charset(id, charset_);
  if (settings_.json) {
    json_attribute(id, tag, vr, count, creators, first);
  } else {
    text_attribute(id, tag, vr, count, depth, creators);
  }
}

void Dumper::flush() {
  std::fwrite(out_.data(), 1, out_.size(), stdout);
  out_.clear();
}

bool Dumper::in_file(int32_t id, uint32_t tag, VX_VR vr, int32_t count) {
  if ((tag >> 16) != 2) return true;
  return count > 0 && (vr != VX_VR_OB || VX_Get_Value_Count(id, tag, &count) != VX_EMPTY_VALUE);
}

void Dumper::append_name(uint32_t tag, const Creators& creators) {
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

void Dumper::text_attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, int depth,
                            Creators& creators) {
  out_.append(static_cast<std::size_t>(depth) * 2, ' ');
  out_ += format_tag(tag);
  out_ += ' ';
  const std::string wide = vr == VX_VR_UN ? letters_of(id, tag) : "";
  out_ += wide.empty() ? vr_letters(vr) : wide.c_str();
  out_ += ' ';
  uint64_t length = 0;
  value_.clear();
  if (vr == VX_VR_SQ) {
    // The library counts a value where there is none.
    const std::size_t items = sequence_items(id, tag).size();
    append_number(value_, items);
    value_ += items == 1 ? " item" : " items";
  } else if (is_text_vr(vr)) {
    length = text_value(id, tag, vr, count, creators);
  } else if (is_number_vr(vr) || is_wide_integer(wide)) {
    length = numeric_value(id, tag, vr, wide);
  } else {
    length = bulk_value(id, tag);
  }
  char digits[24];
  if (vr == VX_VR_SQ) {
    out_ += "       -";
  } else if (length == kUndefinedLength) {
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

void Dumper::text_items(int32_t id, uint32_t tag, int depth) {
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

void Dumper::cut() {
  if (!full()) return;
  value_.resize(settings_.width);
  value_ += "...";
}

uint64_t Dumper::text_value(int32_t id, uint32_t tag, VX_VR vr, int32_t count, Creators& creators) {
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
  if (is_private(tag) && (tag & 0xFFFFU) >= 0x10 && (tag & 0xFFFFU) <= 0xFF) creators.add(tag, text_.data());
  return length;
}

void Dumper::text_beyond(int32_t id, uint32_t tag, int32_t number, uint32_t whole,
                         const std::function<void(std::string_view)>& add) {
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

std::vector<TextValue> Dumper::decoded(int32_t id, uint32_t tag, int32_t count) {
  std::optional<MutedWarnings> quiet;
  if (told_) quiet.emplace();
  told_ = true;
  std::vector<TextValue> values;
  read_texts(id, tag, count, needs_conversion() && load_charsets(), values);
  return values;
}

bool Dumper::text_beyond_ascii(int32_t id, uint32_t tag, VX_VR vr, int32_t count) {
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

uint64_t Dumper::numeric_value(int32_t id, uint32_t tag, VX_VR vr, const std::string& wide) {
  const uint32_t width = numeric_width(vr);
  gathered_.bytes.clear();
  gathered_.total = 0;
  gathered_.limit = settings_.width == 0 ? SIZE_MAX : (settings_.width + 1) * width;
  VX_Get_Value_To_Function(id, tag, &gathered_, guarded<gather>);
  for (std::size_t at = 0; at + width <= gathered_.bytes.size() && !full(); at += width) {
    if (at != 0) value_ += '\\';
    append_numeric(value_, vr, wide, gathered_.bytes.data() + at);
  }
  cut();
  return gathered_.total;
}

uint64_t Dumper::bulk_value(int32_t id, uint32_t tag) {
  if (const KeptValue* kept = file_.kept(id, tag)) {
    value_ = kept->length == kUndefinedLength ? "encapsulated, at byte " : "at byte ";
    append_number(value_, kept->offset);
    return kept->length;
  }
  gathered_.bytes.clear();
  gathered_.total = 0;
  gathered_.limit = settings_.width == 0 ? SIZE_MAX : settings_.width / 3 + 1;
  VX_Get_Value_To_Function(id, tag, &gathered_, guarded<gather>);
  append_bytes(value_, gathered_.bytes, " ");
  if (gathered_.total > gathered_.bytes.size() || full()) {
    if (settings_.width != 0) value_.resize(std::min(value_.size(), settings_.width));
    value_ += "...";
  }
  return gathered_.total;
}

// --- JSON ---

void Dumper::json_beyond_ascii(int32_t id, uint32_t tag, int32_t count) {
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

void Dumper::json_attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, Creators& creators,
                            bool first) {
  if (!first) out_ += ',';
  out_ += "{\"tag\":\"";
  append_hex(out_, tag, 8);
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
  } else if (is_text_vr(vr)) {
    json_texts(id, tag, vr, count, creators);
  } else if (is_number_vr(vr) || is_wide_integer(wide)) {
    json_numbers(id, tag, vr, wide);
  } else {
    json_bulk(id, tag);
  }
  out_ += '}';
}

void Dumper::json_items(int32_t id, uint32_t tag) {
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

void Dumper::json_texts(int32_t id, uint32_t tag, VX_VR vr, int32_t count, Creators& creators) {
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
  if (is_private(tag) && (tag & 0xFFFFU) >= 0x10 && (tag & 0xFFFFU) <= 0xFF) creators.add(tag, text_.data());
}

void Dumper::json_numbers(int32_t id, uint32_t tag, VX_VR vr, const std::string& wide) {
  const uint32_t width = numeric_width(vr);
  gathered_ = {"", SIZE_MAX, 0};
  VX_Get_Value_To_Function(id, tag, &gathered_, guarded<gather>);
  out_ += ",\"value\":[";
  for (std::size_t at = 0; at + width <= gathered_.bytes.size(); at += width) {
    if (at != 0) out_ += ',';
    const char* bytes = gathered_.bytes.data() + at;
    if (vr == VX_VR_AT) {
      out_ += '"';
      uint32_t value = 0;
      std::memcpy(&value, bytes, sizeof value);
      append_hex(out_, value, 8);
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

void Dumper::json_bulk(int32_t id, uint32_t tag) {
  if (const KeptValue* kept = file_.kept(id, tag)) {
    out_ += ",\"offset\":";
    append_number(out_, kept->offset);
    out_ += ",\"length\":";
    if (kept->length == kUndefinedLength) {
      out_ += "null";
    } else {
      append_number(out_, kept->length);
    }
    return;
  }
  gathered_ = {"", settings_.width == 0 ? SIZE_MAX : settings_.width / 2, 0};
  VX_Get_Value_To_Function(id, tag, &gathered_, guarded<gather>);
  out_ += ",\"length\":";
  append_number(out_, gathered_.total);
  out_ += ",\"hex\":\"";
  append_bytes(out_, gathered_.bytes);
  out_ += '"';
}

}  // namespace vexal
