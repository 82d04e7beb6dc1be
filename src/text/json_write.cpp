// Objects to JSON. The text is emitted directly; it is the one that jansson dumps with sorted keys.
#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>
#include <cstring>

#include "codec/stream_form.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/values.h"
#include "model/vr.h"
#include "text/bulk_text.h"
#include "text/json.h"
#include "text/number_text.h"
#include "text/text_output.h"
#include "text/utf8.h"

namespace vx {

namespace {

constexpr char kFunction[] = "VX_Message_To_Json";
constexpr uint32_t kFirstDataSetTag = 0x00040000U;  // groups 0000 and 0002 are no part of the model

// Below the data set, and no part of the groups that stand there.
bool is_stray(uint32_t tag) {
  return tag < kFirstDataSetTag && tag_group(tag) % 2 != 0 && tag_element(tag) != 0;
}

// What a reader that takes every number for a double does not round (PS3.18 section F.2.3.1).
constexpr std::size_t kExactDigits = 15;

std::atomic<bool> indent_setting{false};

// A text that is the JSON number which reads back as this very text.
bool is_own_number(std::string_view text, bool decimal) {
  char again[40];
  std::to_chars_result end{};
  std::from_chars_result read{};
  if (int64_t whole = 0; text.size() <= 18) {
    read = std::from_chars(text.data(), text.data() + text.size(), whole);
    if (read.ec == std::errc{} && read.ptr == text.data() + text.size()) {
      end = std::to_chars(again, again + sizeof again, whole);
      return std::string_view(again, static_cast<std::size_t>(end.ptr - again)) == text;
    }
  }
  double real = 0;
  // A reader cuts what is longer than a DS may be.
  if (!decimal || text.size() > 16 || text.find('.') == std::string_view::npos) return false;
  read = std::from_chars(text.data(), text.data() + text.size(), real);
  if (read.ec != std::errc{} || read.ptr != text.data() + text.size() || !std::isfinite(real)) return false;
  end = std::to_chars(again, again + sizeof again, real);
  return std::string_view(again, static_cast<std::size_t>(end.ptr - again)) == text;
}

class JsonWriter {
 public:
  JsonWriter(TextOutput& output, int32_t options, bool indent)
      : output_(output),
        out_(output.text()),
        options_(options),
        standard_((options & VX_JSON_STANDARD) != 0),
        indent_(indent) {}
  VX_STATUS object(MsgObj& object, const TextSet& inherited);

 private:
  // Brackets, commas and line ends.
  void open(char bracket) {
    out_ += bracket;
    ++level_;
    fresh_ = true;
  }
  void close(char bracket) {
    --level_;
    if (!fresh_) line();
    out_ += bracket;
    fresh_ = false;
  }
  void line() {
    if (!indent_) return;
    out_ += '\n';
    out_.append(static_cast<std::size_t>(level_) * 4, ' ');
  }
  void next() {
    if (!fresh_) out_ += indent_ ? "," : ", ";
    fresh_ = false;
    line();
  }
  void key(std::string_view name) {
    next();
    out_ += '"';
    out_ += name;
    out_ += "\": ";
  }
  void string(std::string_view text, const TextSet& set);
  void quoted(std::string_view text) { ((out_ += '"') += text) += '"'; }

  bool admitted(const TagObj& attribute) const;
  VX_STATUS attribute(MsgObj& object, TagObj& attribute, const TextSet& set);
  VX_STATUS values(const TagObj& attribute, const TextSet& set);
  VX_STATUS bulk(MsgObj& object, TagObj& attribute);
  VX_STATUS items(const TagObj& attribute, const TextSet& set);
  void person(std::string_view name, const TextSet& set);
  void number(const TagObj& attribute, int32_t number);
  template <typename T>
  void real(T value, int prescribed, int exact);

  TextOutput& output_;
  std::string& out_;
  const int32_t options_;
  const bool standard_;
  const bool indent_;
  std::string work_;
  std::string name_;
  int level_ = 0;
  bool fresh_ = true;
  bool whole_ = true;  // all bytes of the attribute are text in its set
};

void JsonWriter::string(std::string_view text, const TextSet& set) {
  out_ += '"';
  for (const char c : to_utf8(text, set, false, work_, whole_)) {
    const auto byte = static_cast<uint8_t>(c);
    if (!standard_) {
      const char* escape = c == '<'    ? "&lt;"
                           : c == '>'  ? "&gt;"
                           : c == '&'  ? "&amp;"
                           : c == '"'  ? "&quot;"
                           : c == '\'' ? "&apos;"
                                       : nullptr;
      if (escape != nullptr) {
        out_ += escape;
        continue;
      }
      if (byte > 0 && byte < 0x20) {
        const char reference[] = {'&', '#', static_cast<char>('0' + byte / 10),
                                  static_cast<char>('0' + byte % 10), ';'};
        out_.append(reference, sizeof reference);
        continue;
      }
    }
    if (c == '"' || c == '\\') {
      out_ += '\\';
      out_ += c;
    } else if (byte >= 0x20) {
      out_ += c;
    } else {
      static constexpr char kShort[] = "\b\f\n\r\t";
      static constexpr char kLetters[] = "bfnrt";
      out_ += '\\';
      if (const void* at = std::memchr(kShort, c, 5); at != nullptr) {
        out_ += kLetters[static_cast<const char*>(at) - kShort];
      } else {
        const char escape[] = {'u', '0', '0', kHexDigits[byte >> 4], kHexDigits[byte & 15U]};
        out_.append(escape, sizeof escape);
      }
    }
  }
  out_ += '"';
}

bool JsonWriter::admitted(const TagObj& attribute) const {
  if (tag_element(attribute.Tag) == 0) return false;
  if (standard_ && attribute.Tag < kFirstDataSetTag) return false;
  return (options_ & VX_JSON_EXCLUDE_PRIVATE) == 0 || !is_private(attribute.Tag);
}

VX_STATUS JsonWriter::object(MsgObj& object, const TextSet& inherited) {
  const TextSet set = text_set_of(object, inherited);
  open('{');
  for (TagObj* a = object.FirstTag; a != nullptr; a = a->Next) {
    if (!admitted(*a)) {
      if (standard_ && is_stray(a->Tag)) {
        VX_LOG_WARN(kFunction, "(%04X,%04X) is no part of a data set and is left out", tag_group(a->Tag),
                    tag_element(a->Tag));
      }
      continue;
    }
    VX_STATUS status = attribute(object, *a, set);
    set_cursor(*a, {});
    if (!whole_) {
      VX_LOG_WARN(kFunction, "(%04X,%04X) has bytes that are no text in its character set", tag_group(a->Tag),
                  tag_element(a->Tag));
    }
    whole_ = true;
    if (a->DecoderMark == kKeptText) warn_of_rest(kFunction, *a);
    if (status == kOk) status = output_.pause();
    if (status == kOk) continue;
    VX_LOG_ERR(
        kFunction,
        "jsWriteDcmAttribute failed to write DICOM attribute for attribute %4.4X%4.4X to JSON, error \"%s\"",
        tag_group(a->Tag), tag_element(a->Tag), status_text(status));
    return status;
  }
  close('}');
  return kOk;
}

VX_STATUS JsonWriter::attribute(MsgObj& object, TagObj& attribute, const TextSet& set) {
  NumberText name;
  key(tag_text(attribute.Tag, name));
  open('{');
  VX_STATUS status = kOk;
  const bool held = attribute.Storage == Stored::ByCallback;
  const bool has_value =
      held || (attribute.ValueCount != 0 && !(attribute.ValueCount == 1 && attribute.Length == 0));
  if (!has_value) {
  } else if (attribute.VR == VX_VR_SQ) {
    if ((options_ & VX_JSON_EXCLUDE_SEQUENCES) == 0) status = items(attribute, set);
  } else if (is_bulk_vr(attribute.VR)) {
    status = bulk(object, attribute);
  } else if (held) {
    VX_LOG_WARN(kFunction, "Value of attribute %4.4X%4.4X is held by a callback and left out",
                tag_group(attribute.Tag), tag_element(attribute.Tag));
  } else {
    status = values(attribute, set);
  }
  if (status != kOk) return status;
  char letters[2];
  key("vr");
  quoted(stream_letters(attribute, letters));
  close('}');
  return kOk;
}

VX_STATUS JsonWriter::items(const TagObj& attribute, const TextSet& set) {
  key("Value");
  open('[');
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    auto* item = static_cast<MsgObj*>(value->Data);
    if (item == nullptr) continue;
    next();
    const VX_STATUS status = object(*item, set);
    if (status != kOk) {
      VX_LOG_ERR(kFunction, "jsWriteDcmItem failed for attribute %lX, error \"%s\"",
                 static_cast<unsigned long>(attribute.Tag), status_text(status));
      return status;
    }
  }
  close(']');
  return kOk;
}

VX_STATUS JsonWriter::bulk(MsgObj& object, TagObj& attribute) {
  const bool pixels = attribute.Tag == kPixelData;
  const int32_t wanted = pixels ? VX_JSON_INCLUDE_PIXEL_DATA : VX_JSON_INCLUDE_BULK;
  if ((options_ & wanted) == 0 && (pixels || attribute.VR != VX_VR_UN)) return kOk;
  // Encapsulated data has no inline form in the model (PS3.18 section F.2.7).
  if (standard_ && is_in_fragments(object, attribute)) {
    VX_LOG_WARN(kFunction, "Encapsulated Pixel Data has no inline form in JSON and is left out");
    return kOk;
  }
  if (standard_ && wide_integers(attribute, work_)) {
    key("Value");
    open('[');
    NumberText digits;
    for (std::size_t at = 0; at < work_.size(); at += kWideWidth) {
      next();
      const std::string_view number = wide_text(attribute, work_.data() + at, digits);
      number.size() <= kExactDigits ? static_cast<void>(out_ += number) : quoted(number);
    }
    close(']');
    return kOk;
  }
  const bool was_fresh = fresh_;
  const std::size_t before = output_.size();
  key("InlineBinary");
  out_ += '"';
  const std::size_t start = output_.size();
  if (const VX_STATUS status = add_base64(object, attribute, output_); status != kOk) {
    VX_LOG_ERR(kFunction, "VX_Get_Value_To_Function failed for attribute %lX with status %s",
               static_cast<unsigned long>(attribute.Tag), status_text(status));
    return status;
  }
  if (output_.size() == start) {
    out_.resize(out_.size() - (start - before));
    fresh_ = was_fresh;
  } else {
    out_ += '"';
  }
  return kOk;
}

// Up to three groups; a last one that is empty is kept, so that the text comes back as it was.
void JsonWriter::person(std::string_view name, const TextSet& set) {
  static constexpr std::string_view kGroups[] = {"Alphabetic", "Ideographic", "Phonetic"};
  name = to_utf8(name, set, true, name_, whole_);
  open('{');
  for (std::size_t i = 0; i < 3; ++i) {
    const std::size_t end = i < 2 ? name.find('=') : std::string_view::npos;
    const std::string_view group = name.substr(0, end);
    const bool last = end == std::string_view::npos;
    if (!group.empty() || (last && i > 0)) {
      key(kGroups[i]);
      string(group, TextSet{});
    }
    if (last) break;
    name.remove_prefix(end + 1);
  }
  close('}');
}

template <typename T>
void JsonWriter::real(T value, int prescribed, int exact) {
  NumberText text;
  if (!std::isfinite(value)) {
    quoted(std::isnan(value) ? (standard_ ? "NaN" : "nan") : value < 0 ? "-inf" : "inf");
    return;
  }
  if (!standard_) return quoted(real_text(value, prescribed, exact, text));
  const char* end = std::to_chars(text, text + kNumberText, value).ptr;
  const std::string_view digits(text, static_cast<std::size_t>(end - text));
  out_ += digits;
  // A real without a point would be read as an integer, which has fewer digits and no negative zero.
  if (digits.find_first_of(".e") == std::string_view::npos) out_ += ".0";
}

void JsonWriter::number(const TagObj& attribute, int32_t number) {
  NumberText text;
  if (attribute.VR == VX_VR_FL) return real(numeric_at<float>(attribute, number), 7, 9);
  if (attribute.VR == VX_VR_FD) return real(numeric_at<double>(attribute, number), 16, 17);
  if (attribute.VR == VX_VR_AT) return quoted(tag_text(numeric_at<uint32_t>(attribute, number), text));
  const std::string_view digits = whole_text(attribute, number, text);
  standard_ ? static_cast<void>(out_ += digits) : quoted(digits);
}

VX_STATUS JsonWriter::values(const TagObj& attribute, const TextSet& set) {
  key("Value");
  open('[');
  ValueCursor cursor;
  cursor_first(attribute, cursor);
  for (int32_t n = 1; n <= attribute.ValueCount; ++n) {
    if (n > 1 && !is_numeric_vr(attribute.VR)) {
      if (const VX_STATUS status = cursor_next(attribute, cursor); status != kOk) return status;
    }
    next();
    if (is_numeric_vr(attribute.VR)) {
      number(attribute, n);
      continue;
    }
    char scratch[80];
    std::string_view text;
    const VX_STATUS status = view_text(attribute, cursor, scratch, text);
    if (status != kOk && status != VX_NULL_VALUE) {
      VX_LOG_WARN(kFunction, "jsWriteDcmText for attribute 0x%8.8X value[%d] returns \"%s\"", attribute.Tag,
                  n, status_text(status));
      if (n == attribute.ValueCount) return status;
      text = {};
    }
    const bool is_null = status != kOk || text.empty();
    if (standard_ && is_null) {
      out_ += "null";
    } else if (attribute.VR == VX_VR_PN) {
      is_null ? (open('{'), close('}')) : person(text, set);
    } else if (standard_ && (attribute.VR == VX_VR_IS || attribute.VR == VX_VR_DS) &&
               is_own_number(text, attribute.VR == VX_VR_DS)) {
      out_ += text;
    } else {
      string(text, set);
    }
  }
  close(']');
  return kOk;
}

}  // namespace

VX_STATUS object_to_json(MsgObj& object, int32_t options, void* user, VX_STREAM_OUTPUT callback) {
  if ((options & VX_JSON_INDENT) != 0) indent_setting.store(true, std::memory_order_relaxed);
  const Guard guard(object.Semaphore);
  bool elsewhere = false;
  VX_STATUS status = prepare_for_text(object, elsewhere);
  if (status == kOk && object.FirstTag == nullptr) {
    VX_LOG_INF(kFunction, "Message has no attributes.");
    return VX_MESSAGE_EMPTY;
  }
  TextOutput output(object, user, callback, elsewhere);
  JsonWriter json(output, options, indent_setting.load(std::memory_order_relaxed));
  if (status == kOk) status = json.object(object, TextSet{});
  if (status == kOk) status = output.finish();
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "MessageToJson failed to write DICOM message to JSON, error \"%s\"",
               status_text(status));
  }
  return status;
}

}  // namespace vx
