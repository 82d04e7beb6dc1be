#include "text/listing.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string>
#include <string_view>

#include "config/config.h"
#include "config/services.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/dictionary.h"
#include "model/private_blocks.h"
#include "model/seams.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {

namespace {

constexpr char kFunction[] = "VXI_listObject";
constexpr int kMaxIndent = 20;
constexpr int kIndentStep = 4;
constexpr std::size_t kMaxListedName = 50;
constexpr std::size_t kNameColumn = 15;  // of the value in a line of the log
constexpr std::size_t kStreamColumns = 50;
constexpr std::size_t kLogColumns = 60;

const char* kind_word(const MsgObj& object) {
  return object.ObjectKind == Kind::SrItem ? kind_label(Kind::Item) : kind_label(object.ObjectKind);
}
bool has_service(const MsgObj& object) {
  return object.ObjectKind == Kind::Message || is_file(object);
}

// Name and value multiplicity of an attribute as a listing shows them.
struct Title {
  std::string name;
  std::string low;
  std::string high;  // empty when the same as low
};

std::string multiplicity(uint16_t bound) {
  return bound == 255 ? "n" : std::to_string(bound);
}

// Where the lines go.
class Lines {
 public:
  explicit Lines(std::FILE* stream) : stream_(stream) {}
  bool to_log() const { return stream_ == nullptr; }
  void print(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    va_list values;
    va_start(values, format);
    if (stream_ != nullptr) {
      std::vfprintf(stream_, format, values);
      std::fputc('\n', stream_);
    } else {
      char text[512];
      std::vsnprintf(text, sizeof text, format, values);
      log_raw(VX_LOG_T2, text);
    }
    va_end(values);
  }

 private:
  std::FILE* stream_;
};

// Cuts the text of one value into lines as it comes, so that no value is held whole.
class ValueLines {
 public:
  ValueLines(Lines& lines, const char* indent, const TagObj& attribute, const Title& title)
      : lines_(lines), indent_(indent), attribute_(attribute), title_(title) {
    limit_ = config_int(VX_CFG_LIST_VALUE_LIMIT);
  }
  bool full() const { return limit_ > 0 && continuations_ >= limit_; }
  void add(std::string_view text) {
    for (char c : text) {
      const auto byte = static_cast<uint8_t>(c);
      if (byte >= 0x20 && byte < 0x7F) {
        put(c);
        continue;
      }
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02X", byte);
      for (const char* e = escape; *e != '\0'; ++e) put(*e);
    }
  }
  void finish() {
    if (used_ > 0 || !begun_) flush();
  }

 private:
  void put(char c) {
    if (full()) return;
    line_[used_++] = c;
    const std::size_t columns = !lines_.to_log() ? kStreamColumns : begun_ ? kLogColumns : kNameColumn;
    if (used_ == columns) flush();
  }
  void flush() {
    line_[used_] = '\0';
    const uint16_t group = tag_group(attribute_.Tag);
    const uint16_t element = tag_element(attribute_.Tag);
    if (lines_.to_log()) {
      if (!begun_) {
        lines_.print("%s%4.4X,%4.4X %2.2s |%.15s|%*s(%3lu)%-15s", indent_, group, element,
                     vr_letters(attribute_.VR), line_, static_cast<int>(kNameColumn - used_), "",
                     static_cast<unsigned long>(attribute_.Length), title_.name.c_str());
      } else {
        lines_.print("%s    |%s|", indent_, line_);
      }
    } else if (!begun_) {
      char length[24];
      std::snprintf(length, sizeof length, "(%7.7lu)", static_cast<unsigned long>(attribute_.Length));
      lines_.print("%s          %s |%s|", indent_, length, line_);
    } else {
      lines_.print("%s          %s |%s|", indent_, "         ", line_);
    }
    if (begun_) ++continuations_;
    begun_ = true;
    used_ = 0;
  }

  Lines& lines_;
  const char* indent_;
  const TagObj& attribute_;
  const Title& title_;
  int32_t limit_ = 0;
  int32_t continuations_ = 0;
  bool begun_ = false;
  char line_[kLogColumns + 1];
  std::size_t used_ = 0;
};

class Lister {
 public:
  explicit Lister(std::FILE* stream) : lines_(stream) {}
  void list(int32_t id, int depth);

 private:
  void head(const MsgObj& object);
  void attribute(MsgObj& object, TagObj& attribute, const char* indent, int depth);
  void title_line(const TagObj& attribute, const Title& title, const char* indent);
  void items(MsgObj& object, const TagObj& attribute, const char* indent, int depth);
  void value(const TagObj& attribute, ValueLines& out);
  Title title(MsgObj& object, const TagObj& attribute);

  Lines lines_;
};

std::string indentation(int depth) {
  return std::string(static_cast<std::size_t>(std::min(depth * kIndentStep, kMaxIndent)), ' ');
}

const char* rule(bool to_log) {
  static constexpr char kRule[] = "==================================================================";
  return to_log ? kRule + 16 : kRule;
}

void Lister::list(int32_t id, int depth) {
  const std::string indent = indentation(depth);
  MsgObj* object = find_object(id);
  if (object == nullptr || depth > kMaxNesting) {
    lines_.print("%sInvalid message/item ID: %d", indent.c_str(), id);
    return;
  }
  const char* word = kind_word(*object);
  lines_.print("%s%s", indent.c_str(), rule(lines_.to_log()));
  if (!lines_.to_log() || object->ObjectKind == Kind::Message) {
    lines_.print("%s%s ID: %d", indent.c_str(), word, id);
  }
  head(*object);
  if (object->FirstTag == nullptr) {
    lines_.print("%s%s has no attributes.", indent.c_str(), word);
  } else {
    lines_.print("%s%s Attributes:", indent.c_str(), word);
    if (!lines_.to_log()) lines_.print("%s", "");
    for (TagObj* a = object->FirstTag; a != nullptr; a = a->Next) {
      attribute(*object, *a, indent.c_str(), depth);
      set_cursor(*a, {});
    }
  }
  lines_.print("%s===== End of %s ID: %d =====", indent.c_str(), word, id);
}

void Lister::head(const MsgObj& object) {
  if (!has_service(object)) return;
  if (object.ServiceNumber >= 0) {
    lines_.print("     Service Supported: %s (%4.4d)", object.ServiceName, object.ServiceNumber);
  } else if (std::strcmp(object.ServiceName, kNoName) == 0) {
    lines_.print("     Service Supported: (Unknown Service)");
  } else {
    lines_.print("     Service Supported: %s (Unknown Service)", object.ServiceName);
  }
  const char* command = command_name(object.Command);
  lines_.print("     Command Supported: %s", command != nullptr ? command : "(null)");
  if (!is_file(object) || object.File == nullptr) return;
  lines_.print("     Filename: %s", object.File->FileName);
  constexpr std::size_t kRow = 32;
  for (std::size_t row = 0; row < sizeof object.File->Preamble; row += kRow) {
    char hex[2 * kRow + 1];
    for (std::size_t i = 0; i < kRow; ++i) {
      std::snprintf(hex + 2 * i, 3, "%.2X", static_cast<uint8_t>(object.File->Preamble[row + i]));
    }
    lines_.print("%s%s", row == 0 ? "     Prefix: " : "             ", hex);
  }
}

Title Lister::title(MsgObj& object, const TagObj& attribute) {
  const uint32_t tag = attribute.Tag;
  const auto named = [](std::string_view name, uint16_t low, uint16_t high) {
    Title t{std::string(name.substr(0, kMaxListedName)), multiplicity(low), {}};
    if (low != high) t.high = multiplicity(high);
    return t;
  };
  const auto own = [&](std::string_view name) { return named(name, attribute.VMLow, attribute.VMHigh); };
  if (is_private_creator(tag)) {
    int32_t count = 0;
    const VX_STATUS status = value_count(attribute, count);
    if (status == kOk && is_text_vr(attribute.VR)) return named("Private creator code", 1, 1);
    VX_LOG_ERR(kFunction, "Invalid Private Creator Code : %s", status_text(status));
    return own("BAD Private Creator Code");
  }
  std::string_view creator;
  const bool in_block = is_private(tag) && tag_element(tag) >= 0x100;
  if (in_block) {
    creator = creator_of(object, tag);
    if (creator.empty()) {
      char text[16];
      std::snprintf(text, sizeof text, "(%4.4X,%4.4X)", tag_group(tag), tag_element(tag));
      VX_LOG_ERR(kFunction, "No valid private creator code exists for private attribute: %s", text);
      return own("ILLEGAL Private Attribute - No Creator Code");
    }
  }
  DictInfo info{};
  if (dictionary_lookup(tag, creator, info) == kOk) {
    return named(info.name != nullptr ? info.name : "Group Length", info.vm_low, info.vm_high);
  }
  return own(in_block ? "-- private --" : "Non-standard attribute");
}

void Lister::attribute(MsgObj& object, TagObj& attribute, const char* indent, int depth) {
  if (is_private(attribute.Tag) && !config_bool(VX_CFG_EXPORT_PRIVATE_ATTRIBUTES_TO_NETWORK)) return;
  if (attribute.Length == 0 && attribute.ValueCount == 0) return;
  const Title name = title(object, attribute);
  if (attribute.VR == VX_VR_SQ && attribute.Length > 0) {
    title_line(attribute, name, indent);
    items(object, attribute, indent, depth);
    return;
  }
  if (!lines_.to_log()) title_line(attribute, name, indent);
  ValueLines out(lines_, indent, attribute, name);
  value(attribute, out);
  out.finish();
}

void Lister::title_line(const TagObj& attribute, const Title& title, const char* indent) {
  const uint16_t group = tag_group(attribute.Tag);
  const uint16_t element = tag_element(attribute.Tag);
  const char* letters = vr_letters(attribute.VR);
  if (lines_.to_log()) {
    lines_.print("%s%4.4X,%4.4X %2.2s |%.200s|%s(%3lu)%-15s", indent, group, element, letters, "",
                 "                ", static_cast<unsigned long>(attribute.Length), title.name.c_str());
    return;
  }
  lines_.print("%s%4.4X,%4.4X %-50.50s VR: %2.2s  VM: %s%s%s", indent, group, element, title.name.c_str(),
               letters, title.low.c_str(), title.high.empty() ? "" : "-", title.high.c_str());
}

void Lister::items(MsgObj& object, const TagObj& attribute, const char* indent, int depth) {
  const char* word = kind_word(object);
  const int32_t limit = config_int(VX_CFG_LIST_SQ_DEPTH_LIMIT);
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    const auto* item = static_cast<const MsgObj*>(value->Data);
    if (item == nullptr) continue;
    lines_.print("%s    %s", indent, object.ObjectKind == Kind::Message ? rule(lines_.to_log()) : "");
    if (limit > 0 && depth >= limit) continue;
    lines_.print("%s    <Sequence: Item %d of %s %d (%4.4X,%4.4X)>", indent, item->ID, word, object.ID,
                 tag_group(attribute.Tag), tag_element(attribute.Tag));
    list(item->ID, depth + 1);
    lines_.print("%s%s ID: %d (continued)", indent, word, object.ID);
  }
}

void Lister::value(const TagObj& attribute, ValueLines& out) {
  const int32_t vr = attribute.VR;
  if (attribute.ValueCount == 1 && attribute.Length == 0) return out.add("<null>");
  if (attribute.Storage == Stored::ByCallback) return out.add("<Callback routine>");
  if (attribute.Storage == Stored::InFile) return out.add("<Stored in file>");
  if (vr >= VX_VR_OB && vr <= VX_VR_OF) return out.add("<OB, OW, OL, OD or OF data>");
  if (vr == VX_VR_UN) {
    if (!config_bool(VX_CFG_LIST_UN_ATTRIBUTES)) return out.add("<UN data>");
    for (const ValueObj* piece = attribute.FirstValue; piece != nullptr && !out.full(); piece = piece->Next) {
      out.add({static_cast<const char*>(piece->Data), piece->Length});
    }
    return;
  }
  ValueCursor cursor;
  cursor_first(attribute, cursor);
  for (int32_t n = 0; n < attribute.ValueCount && !out.full(); ++n) {
    if (n > 0) {
      out.add("\\");
      if (cursor_next(attribute, cursor) != kOk) return;
    }
    char scratch[80];
    std::string_view text = "<null>";
    if (vr == VX_VR_AT) {
      const void* data = numeric_value(attribute, n + 1);
      if (data == nullptr) return;
      uint32_t tag = 0;
      std::memcpy(&tag, data, sizeof tag);
      std::snprintf(scratch, sizeof scratch, "%x,%04x", tag >> 16, tag & 0xFFFFU);
      text = scratch;
    } else if (view_text(attribute, cursor, scratch, text) != kOk) {
      text = "<null>";
    }
    out.add(text);
  }
}

}  // namespace

void list_object(int32_t id, std::FILE* stream) try {
  Lister(stream).list(id, 0);
} catch (const std::bad_alloc&) {
  VX_LOG_ERR(kFunction, "%s", status_text(VX_SYSTEM_ERROR));
}

void list_object_to(int32_t id, const char* file_name) {
  std::FILE* file = file_name != nullptr ? std::fopen(file_name, "w") : nullptr;
  list_object(id, file != nullptr ? file : stdout);
  if (file != nullptr) {
    std::fclose(file);
  } else {
    std::fflush(stdout);
  }
}

void trace_object(const MsgObj& object, bool created, bool freed) {
  if (!config_bool(VX_CFG_MSG_FILE_ITEM_OBJ_TRACE)) return;
  const char* label = kind_label(object.ObjectKind);
  if (created) {
    log_line(VX_LOG_T1, nullptr, "%s %d was created", label, object.ID);
  } else if (freed) {
    log_line(VX_LOG_T1, nullptr, "%s %d was freed", label, object.ID);
  } else {
    log_line(VX_LOG_T1, nullptr, "%s %d has %d references", label, object.ID, object.RefCount);
  }
}

}  // namespace vx
