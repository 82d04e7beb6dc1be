// Objects to XML. The text is emitted directly, and handed over when it is whole.
#include <algorithm>

#include "codec/stream_form.h"
#include "config/services.h"
#include "frame/limits.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/dictionary.h"
#include "model/private_blocks.h"
#include "model/values.h"
#include "model/vr.h"
#include "text/bulk_text.h"
#include "text/number_text.h"
#include "text/text_output.h"
#include "text/utf8.h"
#include "text/xml.h"

namespace vx {

namespace {

constexpr uint32_t kTransferSyntaxUid = 0x00020010U;
constexpr uint32_t kSopClassUid = 0x00080016U;
constexpr uint32_t kFirstDataSetTag = 0x00080000U;
constexpr uint32_t kFirstDirectoryTag = 0x00040000U;
constexpr std::size_t kOwnNameLimit = 64;
constexpr char kNames[] = "VXI_GetAttributeName";  // what it tells keeps nothing from being written
constexpr std::string_view kModel = "http://dicom.nema.org/PS3.19/models/NativeDICOM";

std::string_view number_text(const TagObj& attribute, int32_t number, XmlForm form, NumberText& text) {
  if (attribute.VR == VX_VR_FL) return real_text(numeric_at<float>(attribute, number), 7, 9, text);
  if (attribute.VR == VX_VR_FD) return real_text(numeric_at<double>(attribute, number), 16, 17, text);
  return attribute.VR == VX_VR_AT && form == XmlForm::Native
             ? tag_text(numeric_at<uint32_t>(attribute, number), text)
             : whole_text(attribute, number, text);
}

class XmlWriter {
 public:
  XmlWriter(TextOutput& output, XmlForm form, int32_t options)
      : output_(output), out_(output.text()), form_(form), options_(options) {}
  VX_STATUS native(MsgObj& object);
  VX_STATUS own(MsgObj& object);

 private:
  // What the walk of one object has at hand.
  struct Scope {
    MsgObj& object;
    TextSet set;
    uint32_t first;
    uint32_t last;
    int depth;
  };
  const char* function() const {
    return form_ == XmlForm::Own ? "VX_Message_To_XML" : "VX_Message_To_XML_Native";
  }
  bool has(int32_t option) const { return (options_ & option) != 0; }
  void line() {
    if (!has(VX_XML_INDENT)) return;
    out_ += '\n';
    out_.append(static_cast<std::size_t>(level_), ' ');
  }
  void numbered(const char* name, int32_t number) {
    line();
    (((out_ += '<') += name) += " number=\"") += std::to_string(number);
    out_ += '"';
  }
  void end(const char* name) { ((out_ += "</") += name) += '>'; }
  void escape(std::string_view utf8);
  void field(const char* name, std::string_view utf8) {
    ((out_ += ' ') += name) += "=\"";
    escape(utf8);
    out_ += '"';
  }
  std::string_view name_of(const TagObj& attribute, std::string_view creator);

  VX_STATUS attributes(const Scope& scope);
  VX_STATUS attribute(const Scope& scope, TagObj& attribute);
  bool wants(const TagObj& attribute) const;
  VX_STATUS own_content(const Scope& scope, TagObj& attribute);
  VX_STATUS native_content(const Scope& scope, TagObj& attribute, bool wanted);
  VX_STATUS native_value(const Scope& scope, TagObj& attribute);
  VX_STATUS own_bulk(const Scope& scope, TagObj& attribute);
  VX_STATUS items(const Scope& scope, const TagObj& attribute);
  VX_STATUS values(const Scope& scope, const TagObj& attribute);
  VX_STATUS section(const Scope& scope, const char* name, bool data_set);
  void person(std::string_view name);
  template <std::size_t N>
  void parts(std::string_view text, char separator, const char* const (&names)[N], bool groups);

  TextOutput& output_;
  std::string& out_;
  const XmlForm form_;
  const int32_t options_;
  std::string work_;
  char name_[kMaxName + 64] = "";
  int level_ = 0;
  bool replaced_ = false;  // a character that XML can not hold was met
  bool whole_ = true;      // all bytes of the attribute are text in its set
};

void XmlWriter::escape(std::string_view utf8) {
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const char c = utf8[i];
    const auto byte = static_cast<uint8_t>(c);
    const char* name = c == '<'    ? "&lt;"
                       : c == '>'  ? "&gt;"
                       : c == '&'  ? "&amp;"
                       : c == '"'  ? "&quot;"
                       : c == '\'' ? "&apos;"
                                   : nullptr;
    if (name != nullptr) {
      out_ += name;
    } else if (byte != 0 && byte < 0x20 && (form_ == XmlForm::Own || c == '\t' || c == '\n' || c == '\r')) {
      const char reference[] = {'&', '#', static_cast<char>('0' + byte / 10),
                                static_cast<char>('0' + byte % 10), ';'};
      out_.append(reference, sizeof reference);
    } else if (byte < 0x20) {
      out_ += "\xEF\xBF\xBD";
      replaced_ = true;
    } else if (const std::string_view three = utf8.substr(i, 3);
               three == "\xEF\xBF\xBE" || three == "\xEF\xBF\xBF") {  // no characters either
      out_ += "\xEF\xBF\xBD";
      replaced_ = true;
      i += 2;
    } else {
      out_ += c;
    }
  }
}

std::string_view XmlWriter::name_of(const TagObj& attribute, std::string_view creator) {
  const uint32_t tag = attribute.Tag;
  if (is_private(tag)) {
    if (is_private_creator(tag)) {
      if (!creator.empty()) return "Private Creator Code";
      VX_LOG_ERR(kNames, "Invalid Private Creator Code, error \"%s\"", status_text(VX_NOT_FOUND));
      return "Undefined";
    }
    if (creator.empty()) {
      VX_LOG_ERR(kNames, "No valid private creator code exists for private attribute, error \"%s\"",
                 status_text(VX_NOT_FOUND));
      return "ILLEGAL Private Attribute - No Creator Code";
    }
    if (dictionary_name(tag, creator, name_, sizeof name_) != kOk) return "Private";
  } else if (form_ == XmlForm::Native) {
    if (dictionary_keyword(tag, name_, sizeof name_) != kOk) return "Unknown";
  } else if (dictionary_name(tag, {}, name_, sizeof name_) != kOk) {
    return "Non-standard attribute name";
  }
  const std::string_view name(name_);
  return form_ == XmlForm::Own ? name.substr(0, kOwnNameLimit) : name;
}

VX_STATUS XmlWriter::attributes(const Scope& scope) {
  for (TagObj* a = scope.object.FirstTag; a != nullptr; a = a->Next) {
    if (a->Tag < scope.first || a->Tag > scope.last || tag_element(a->Tag) == 0) continue;
    if (has(VX_XML_EXCLUDE_PRIVATE) && is_private(a->Tag)) continue;
    VX_STATUS status = attribute(scope, *a);
    set_cursor(*a, {});
    if (!whole_) {
      VX_LOG_WARN(function(), "(%04X,%04X) has bytes that are no text in its character set",
                  tag_group(a->Tag), tag_element(a->Tag));
    }
    whole_ = true;
    if (a->DecoderMark == kKeptText) warn_of_rest(function(), *a);
    if (status == kOk) status = output_.pause();
    if (status == kOk) continue;
    VX_LOG_ERR(function(), "%s failed to write DICOM attribute for attribute %4.4X%4.4X to XML",
               scope.depth == 0 ? "xmlTextWriteDcmMessage" : "xmlTextWriteDcmItem", tag_group(a->Tag),
               tag_element(a->Tag));
    return status;
  }
  return kOk;
}

bool has_value(const TagObj& attribute) {
  return attribute.Storage == Stored::ByCallback ||
         (attribute.ValueCount != 0 && !(attribute.ValueCount == 1 && attribute.Length == 0));
}

// The first value of a text attribute; empty if there is none.
std::string_view text_of(const TagObj* attribute, char (&scratch)[80]) {
  std::string_view text;
  if (attribute == nullptr || !has_value(*attribute) || !is_text_vr(attribute->VR)) return text;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  return view_text(*attribute, cursor, scratch, text) == kOk ? text : std::string_view();
}

// If the content of an attribute is to be written.
bool XmlWriter::wants(const TagObj& attribute) const {
  const bool bulk = is_bulk_vr(attribute.VR);
  if (!bulk && attribute.Storage == Stored::ByCallback) {
    VX_LOG_WARN(function(), "Value of attribute %4.4X%4.4X is held by a callback and left out",
                tag_group(attribute.Tag), tag_element(attribute.Tag));
    return false;
  }
  if (attribute.VR == VX_VR_SQ) return !has(VX_XML_EXCLUDE_SEQUENCES);
  if (attribute.Tag == kPixelData) return has(VX_XML_INCLUDE_PIXEL_DATA);
  return !bulk || attribute.VR == VX_VR_UN || has(VX_XML_INCLUDE_BULK);
}

VX_STATUS XmlWriter::attribute(const Scope& scope, TagObj& attribute) {
  const bool wanted = wants(attribute);
  const bool own = form_ == XmlForm::Own;
  if (own && (!wanted || (attribute.ValueCount == 0 && attribute.Storage != Stored::ByCallback))) return kOk;
  char scratch[80];
  std::string_view creator;
  if (is_private_creator(attribute.Tag)) {
    creator = text_of(&attribute, scratch);
  } else if (is_private(attribute.Tag)) {
    creator = creator_of(scope.object, attribute.Tag);
  }
  NumberText tag;
  line();
  out_ += own ? "<Attribute" : "<DicomAttribute";
  field(own ? "Tag" : "tag", tag_text(attribute.Tag, tag));
  char letters[2];
  field(own ? "VR" : "vr", stream_letters(attribute, letters));
  field(own ? "Name" : "keyword", name_of(attribute, creator));
  if (!creator.empty())
    field(own ? "PCode" : "privateCreator", to_utf8(creator, scope.set, false, work_, whole_));
  return own ? own_content(scope, attribute) : native_content(scope, attribute, wanted);
}

// From the last field of its head to its end, as the two that follow.
VX_STATUS XmlWriter::own_content(const Scope& scope, TagObj& attribute) {
  if (attribute.VR == VX_VR_SQ) {
    field("Length", std::to_string(attribute.ValueCount));
    out_ += '>';
    if (has_value(attribute)) {
      out_ += '\n';
      if (const VX_STATUS status = items(scope, attribute); status != kOk) return status;
    }
    out_ += "</Attribute>\n";
    return kOk;
  }
  if (is_bulk_vr(attribute.VR)) return own_bulk(scope, attribute);
  // Length stands in front of the text that it counts.
  const std::size_t head = out_.size();
  if (has_value(attribute)) {
    if (const VX_STATUS status = values(scope, attribute); status != kOk) return status;
  }
  out_.insert(head, " Length=\"" + std::to_string(out_.size() - head) + "\">");
  out_ += "</Attribute>\n";
  return kOk;
}

VX_STATUS XmlWriter::native_content(const Scope& scope, TagObj& attribute, bool wanted) {
  out_ += '>';
  const std::size_t start = output_.size();
  ++level_;
  const VX_STATUS status = wanted && has_value(attribute) ? native_value(scope, attribute) : VX_STATUS{kOk};
  --level_;
  if (output_.size() == start) {
    out_.back() = '/';
    out_ += '>';
  } else {
    line();
    end("DicomAttribute");
  }
  return status;
}

VX_STATUS XmlWriter::native_value(const Scope& scope, TagObj& attribute) {
  if (attribute.VR == VX_VR_SQ) return items(scope, attribute);
  if (!is_bulk_vr(attribute.VR)) return values(scope, attribute);
  if (wide_integers(attribute, work_)) {
    NumberText digits;
    for (std::size_t at = 0; at < work_.size(); at += kWideWidth) {
      numbered("Value", static_cast<int32_t>(at / kWideWidth) + 1);
      (out_ += '>') += wide_text(attribute, work_.data() + at, digits);
      end("Value");
    }
    return kOk;
  }
  const std::size_t before = output_.size();
  line();
  out_ += "<InlineBinary>";
  const std::size_t start = output_.size();
  const VX_STATUS status = add_base64(scope.object, attribute, output_);
  if (status != kOk) {
    VX_LOG_ERR(function(), "VX_Get_Value_To_Function failed for attribute 0x%8.8X, error \"%s\"",
               attribute.Tag, status_text(status));
  }
  if (output_.size() == start) {
    out_.resize(out_.size() - (start - before));
  } else {
    end("InlineBinary");
  }
  return status;
}

// The rest of the element behind its name.
VX_STATUS XmlWriter::own_bulk(const Scope& scope, TagObj& attribute) {
  const auto head = [&](std::size_t length) {
    return std::string(has(VX_XML_BASE64) ? " Encoding=\"Base64\"" : "") + " Length=\"" +
           std::to_string(length) + "\">";
  };
  // The length of a value that is fetched is known behind it.
  const bool here = attribute.Storage == Stored::InMemory;
  std::size_t length = 0;
  std::size_t place = 0;
  if (here) {
    for (const ValueObj* piece = attribute.FirstValue; piece != nullptr; piece = piece->Next)
      length += piece->Data != nullptr ? piece->Length : 0;
    out_ += head(length);
  } else {
    place = output_.cut();
  }
  length = 0;
  const VX_STATUS status = has(VX_XML_BASE64) ? add_base64_lines(scope.object, attribute, output_, length)
                                              : add_hex(scope.object, attribute, output_, length);
  if (status != kOk) {
    VX_LOG_ERR(function(), "VX_Get_Value_To_Function failed for tag: %lX with status %s",
               static_cast<unsigned long>(attribute.Tag), status_text(status));
    return status;
  }
  if (!here) output_.amend(place, head(length));
  out_ += "</Attribute>\n";
  return kOk;
}

VX_STATUS XmlWriter::items(const Scope& scope, const TagObj& attribute) {
  int32_t number = 0;
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    auto* item = static_cast<MsgObj*>(value->Data);
    if (item == nullptr) continue;
    const bool own = form_ == XmlForm::Own;
    own ? static_cast<void>(out_ += "<Item") : numbered("Item", ++number);
    out_ += own ? ">\n" : ">";
    ++level_;
    const Scope inner{*item, text_set_of(*item, scope.set), own ? scope.first : 0, 0xFFFFFFFFU,
                      scope.depth + 1};
    const VX_STATUS status = attributes(inner);
    --level_;
    if (status != kOk) return status;
    if (!own) line();
    end("Item");
    if (own) out_ += '\n';
  }
  return kOk;
}

VX_STATUS XmlWriter::values(const Scope& scope, const TagObj& attribute) {
  const bool numeric = is_numeric_vr(attribute.VR);
  const bool person_name = attribute.VR == VX_VR_PN;
  const char* element = person_name ? "PersonName" : "Value";
  ValueCursor cursor;
  cursor_first(attribute, cursor);
  for (int32_t n = 1; n <= attribute.ValueCount; ++n) {
    char scratch[80];
    NumberText digits;
    std::string_view text;
    if (numeric) {
      text = number_text(attribute, n, form_, digits);
    } else {
      VX_STATUS status = kOk;
      if (n > 1) status = cursor_next(attribute, cursor);
      if (status == kOk) status = view_text(attribute, cursor, scratch, text);
      if (status == VX_NULL_VALUE) {
        text = {};
      } else if (status != kOk) {
        return status;
      }
      text = to_utf8(text, scope.set, person_name, work_, whole_);
    }
    if (form_ == XmlForm::Own) {
      if (n > 1) out_ += '\\';
      escape(text);
      continue;
    }
    numbered(element, n);
    if (text.empty()) {
      out_ += "/>";
      continue;
    }
    out_ += '>';
    if (person_name) {
      person(text);
      line();
    } else {
      escape(text);
    }
    end(element);
  }
  return kOk;
}

// Text in parts that have names. What is more than the names stays in the last part. Empty parts are left
// out, but for the last one, so that the text comes back as it was.
template <std::size_t N>
void XmlWriter::parts(std::string_view text, char separator, const char* const (&names)[N], bool groups) {
  static constexpr const char* kComponents[] = {"FamilyName", "GivenName", "MiddleName", "NamePrefix",
                                                "NameSuffix"};
  ++level_;
  for (std::size_t i = 0; i < N; ++i) {
    const std::size_t stop = i + 1 < N ? text.find(separator) : std::string_view::npos;
    const std::string_view part = text.substr(0, stop);
    const bool last = stop == std::string_view::npos;
    if (!part.empty() || (last && i > 0)) {
      line();
      ((out_ += '<') += names[i]) += '>';
      if (!groups) {
        escape(part);
      } else if (!part.empty()) {
        parts(part, '^', kComponents, false);
        line();
      }
      end(names[i]);
    }
    if (last) break;
    text.remove_prefix(stop + 1);
  }
  --level_;
}

void XmlWriter::person(std::string_view name) {
  static constexpr const char* kGroups[] = {"Alphabetic", "Ideographic", "Phonetic"};
  parts(name, '=', kGroups, true);
}

VX_STATUS XmlWriter::native(MsgObj& object) {
  out_ += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<NativeDicomModel";
  field("xsi:schemaLocation", kModel);
  field("xmlns:xsi", "http://www.w3.org/2001/XMLSchema-instance");
  field("xmlns", kModel);
  out_ += '>';
  ++level_;
  const VX_STATUS status = attributes({object, text_set_of(object, TextSet{}), 0, 0xFFFFFFFFU, 0});
  --level_;
  if (status != kOk) return status;
  line();
  out_ += "</NativeDicomModel>\n";
  if (replaced_) VX_LOG_WARN(function(), "Characters that XML can not hold were replaced by U+FFFD");
  return kOk;
}

VX_STATUS XmlWriter::section(const Scope& scope, const char* name, bool data_set) {
  MsgObj& object = scope.object;
  char scratch[80];
  (out_ += '<') += name;
  const char* unknown = "Unknown Service";
  if (object.ObjectKind == Kind::File) {
    const SopObj* service = find_service_by_uid(text_of(find_tag(object, kSopClassUid), scratch));
    field("Service", service != nullptr ? service->name : unknown);
    field("Command", "C_STORE_RQ");
  } else if (object.ObjectKind == Kind::Message) {
    const bool named = object.ServiceName != nullptr && std::string_view(object.ServiceName) != kNoName;
    field("Service", named ? object.ServiceName : unknown);
    const char* command = command_name(object.Command);
    field("Command", command != nullptr ? command : "null");
  }
  if (data_set) {
    const std::string_view syntax = text_of(find_tag(object, kTransferSyntaxUid), scratch);
    if (!syntax.empty()) field("TransferSyntax", to_utf8(syntax, scope.set, false, work_, whole_));
  }
  out_ += ">\n";
  if (const VX_STATUS status = attributes(scope); status != kOk) return status;
  end(name);
  out_ += '\n';
  return kOk;
}

VX_STATUS XmlWriter::own(MsgObj& object) {
  const Kind kind = object.ObjectKind;
  const char* root = kind == Kind::Message    ? "DcmMessage"
                     : kind == Kind::File     ? "DcmFile"
                     : kind == Kind::Dicomdir ? "DICOMDIR"
                                              : "DcmItem";
  ((out_ += "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<") += root) += ">\n";
  const TextSet set = text_set_of(object, TextSet{});
  if (kind == Kind::File) {
    const VX_STATUS status = section({object, set, 0x00020000U, 0x0002FFFFU, 0}, "FileMetaInfo", false);
    if (status != kOk) return status;
  }
  // A directory may be open as a file.
  const uint32_t first = kind == Kind::Dicomdir || kind == Kind::File ? kFirstDirectoryTag : kFirstDataSetTag;
  for (const TagObj* a = object.FirstTag; a != nullptr && a->Tag < first; a = a->Next) {
    if (tag_group(a->Tag) == 0 || tag_group(a->Tag) == 2 || tag_element(a->Tag) == 0) continue;
    VX_LOG_WARN(function(), "(%04X,%04X) is no part of a data set and is left out", tag_group(a->Tag),
                tag_element(a->Tag));
  }
  const VX_STATUS status = section({object, set, first, 0xFFFFFFFFU, 0}, "DataSet", true);
  if (status != kOk) return status;
  end(root);
  out_ += '\n';
  if (replaced_) VX_LOG_WARN(function(), "Characters that XML can not hold were replaced by U+FFFD");
  return kOk;
}

}  // namespace

VX_STATUS object_to_xml(MsgObj& object, XmlForm form, int32_t options, void* user,
                        VX_STREAM_OUTPUT callback) {
  const char* function = form == XmlForm::Own ? "VX_Message_To_XML" : "VX_Message_To_XML_Native";
  const Guard guard(object.Semaphore);
  bool elsewhere = false;
  VX_STATUS status = prepare_for_text(object, elsewhere);
  if (status == kOk && object.FirstTag == nullptr) {
    VX_LOG_INF(function, "Message has no attributes.");
    return VX_MESSAGE_EMPTY;
  }
  TextOutput output(object, user, callback, elsewhere);
  XmlWriter xml(output, form, form == XmlForm::Own ? options & ~VX_XML_INDENT : options);
  if (status == kOk) status = form == XmlForm::Own ? xml.own(object) : xml.native(object);
  if (status == kOk) status = output.finish();
  if (status != kOk) {
    VX_LOG_ERR(function, "Failed to convert %s to XML : %s", kind_label(object.ObjectKind),
               status_text(status));
  }
  return status;
}

}  // namespace vx
