// XML to objects: maps the elements of a document that was taken apart onto attributes.
#include <algorithm>
#include <cctype>

#include "config/services.h"
#include "frame/limits.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/private_blocks.h"
#include "model/values.h"
#include "model/vr.h"
#include "text/fill.h"
#include "text/xml_parse.h"

namespace vx {

namespace {

// Values that a document may leave out before one that it numbers.
constexpr std::size_t kMaxGap = 1024;

bool is_blank(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; });
}

class XmlReader {
 public:
  explicit XmlReader(XmlForm form) : form_(form) {}
  // VX_CANNOT_COMPLY: an attribute ended the walk.
  VX_STATUS attributes(FillTarget& target, XmlNode holder);

 private:
  const char* function() const {
    return form_ == XmlForm::Own ? "VX_XML_To_Message" : "VX_XML_Native_To_Message";
  }
  bool own() const { return form_ == XmlForm::Own; }
  VX_STATUS attribute(FillTarget& target, XmlNode node);
  VX_STATUS creator(FillTarget& target, XmlNode node, uint32_t tag);
  TagObj* find(FillTarget& target, XmlNode node, uint32_t tag, int32_t vr);
  VX_STATUS items(FillTarget& target, TagObj& attribute, XmlNode node);
  VX_STATUS native_values(FillTarget& target, TagObj& attribute, XmlNode node, std::string_view letters);
  VX_STATUS own_values(FillTarget& target, TagObj& attribute, XmlNode node);
  VX_STATUS value(FillTarget& target, TagObj& attribute, std::string_view utf8, bool first);
  VX_STATUS bulk(FillTarget& target, TagObj& attribute, std::string_view text, bool base64);

  const XmlForm form_;
  std::string work_;
};

// Values that break a rule of their VR are stored all the same.
bool is_stored(VX_STATUS status) {
  return status == VX_NORMAL_COMPLETION || status == VX_INVALID_CHARS_IN_VALUE ||
         status == VX_INVALID_VALUE_FOR_VR;
}

VX_STATUS XmlReader::attributes(FillTarget& target, XmlNode holder) {
  for (XmlNode node = holder.child(); !node.none(); node = node.next()) {
    const VX_STATUS status = attribute(target, node);
    if (status == VX_NORMAL_COMPLETION) continue;
    if (!own()) VX_LOG_ERR(function(), "XMLNativeToMessage failed to create DICOM attribute");
    return status;
  }
  return VX_NORMAL_COMPLETION;
}

// A failure ends the walk; an attribute that is passed over is none.
VX_STATUS XmlReader::attribute(FillTarget& target, XmlNode node) {
  uint32_t tag = 0;
  const std::string_view digits = node.field(XmlField::Tag);
  if (digits.size() != 8 || !read_number(digits, tag, 16)) {
    VX_LOG_ERR(function(), "xmlMessageCreateDcmAttribute failed to convert XML to DICOM attribute");
    return VX_INVALID_TAG;
  }
  const std::string_view letters = node.field(XmlField::Vr);
  const int32_t vr = vr_of_document(letters);
  if (is_private_creator(tag)) return creator(target, node, tag);
  TagObj* attribute = find(target, node, tag, vr);
  if (attribute == nullptr) return VX_NORMAL_COMPLETION;
  take_vr(target, *attribute, vr);
  VX_STATUS status = VX_NORMAL_COMPLETION;
  if (attribute->VR == VX_VR_SQ) {
    status = items(target, *attribute, node);
  } else if (own()) {
    status = own_values(target, *attribute, node);
  } else {
    status = native_values(target, *attribute, node, letters);
  }
  if (!is_stored(status)) {
    VX_LOG_ERR(function(), "Failed to write attribute '0x%8.8X' value from XML to DICOM format", tag);
  }
  target.filled(*attribute);
  return VX_NORMAL_COMPLETION;
}

VX_STATUS XmlReader::creator(FillTarget& target, XmlNode node, uint32_t tag) {
  std::string name(node.field(XmlField::Creator));
  if (name.empty()) {
    const XmlNode value = own() ? node : node.child(XmlName::Value);
    if (!value.none()) name = own() ? unescape(value.text(), work_) : value.text();
  }
  std::string work;
  name = std::string(from_utf8(name, target.set, work));
  VX_STATUS status = VX_REQUIRED_VALUE_MISSING;
  if (!name.empty() && name.size() < kMaxCreatorCode)
    status = add_private_block(target.object, name, tag_group(tag), nullptr, tag, function());
  if (status != VX_NORMAL_COMPLETION) {
    VX_LOG_ERR(function(), "Unable to add private creator (%.4X,%.4x) %s, error \"%s\" (ignoring)",
               tag_group(tag), tag_element(tag), name.c_str(), status_text(status));
    return own() ? VX_STATUS{VX_NORMAL_COMPLETION} : status;
  }
  target.note_creator(tag, std::move(name));
  return VX_NORMAL_COMPLETION;
}

// The attribute, found or added; null if it can not be had. The block that the document names may lie
// elsewhere in the object.
TagObj* XmlReader::find(FillTarget& target, XmlNode node, uint32_t tag, int32_t vr) {
  VX_STATUS status = VX_NORMAL_COMPLETION;
  if (is_private(tag) && tag_element(tag) >= 0x1000) {
    std::string work;
    std::string code(from_utf8(node.field(XmlField::Creator), target.set, work));
    if (code.empty()) code = target.creator(tag);
    if (!code.empty()) {
      const auto element = static_cast<uint8_t>(tag & 0xFFU);
      // A document may name a creator without the element that reserves its block.
      status = code.size() < kMaxCreatorCode
                   ? add_private_block(target.object, code, tag_group(tag), nullptr,
                                       (tag & 0xFFFF0000U) | ((tag >> 8) & 0xFFU), function())
                   : VX_STATUS{VX_VALUE_TOO_LARGE};
      if (status == VX_NORMAL_COMPLETION)
        status = add_private_attribute(target.object, code, tag_group(tag), element, vr);
      uint32_t place = 0;
      if (status == VX_NORMAL_COMPLETION || status == VX_TAG_ALREADY_EXISTS)
        status = private_tag(target.object, code, tag_group(tag), element, place);
      if (status == VX_NORMAL_COMPLETION) return find_tag(target.object, place);
      VX_LOG_ERR(function(), "Unable to add private attribute (%.4X,%.4x) %s, error \"%s\" (ignoring)",
                 tag_group(tag), tag_element(tag), code.c_str(), status_text(status));
      return nullptr;
    }
  }
  TagObj* attribute = find_tag(target.object, tag);
  if (attribute != nullptr) return attribute;
  status = add_standard_attribute(target.object, tag, &attribute);
  if (status == VX_INVALID_TAG) status = add_nonstandard_attribute(target.object, tag, vr, &attribute);
  if (status == VX_NORMAL_COMPLETION) return attribute;
  VX_LOG_ERR(function(), "Failed to add tag (%4.4x,%4.4x), error \"%s\"", tag_group(tag), tag_element(tag),
             status_text(status));
  return nullptr;
}

VX_STATUS XmlReader::items(FillTarget& target, TagObj& attribute, XmlNode node) {
  if (node.child().none()) return set_null(target.object, attribute);
  if (target.depth >= kMaxNesting) return VX_CANNOT_COMPLY;
  bool first = true;
  for (XmlNode child = node.child(); !child.none(); child = child.next()) {
    if (child.name() != XmlName::Item) {
      VX_LOG_ERR(function(), "Invalid XML Item type attribute '0x%8.8X'", attribute.Tag);
      continue;
    }
    MsgObj* item = nullptr;
    VX_STATUS status = open_object(Kind::Item, kNoName, item);
    if (status != VX_NORMAL_COMPLETION) {
      VX_LOG_ERR(function(), "Failed to create a new Item for attribute '0x%8.8X', error \"%s\"",
                 attribute.Tag, status_text(status));
      return status;
    }
    const int32_t id = item->ID;
    status = set_value(target.object, attribute, VX_INT_TYPE, &id, first);
    if (status != VX_NORMAL_COMPLETION) {
      VX_LOG_ERR(function(), "Failed to add item '%d' to sequence attribute '0x%8.8X', error \"%s\"", id,
                 attribute.Tag, status_text(status));
      free_item(*item, true);
      return status;
    }
    first = false;
    FillTarget inner{*item, target.set, target.depth + 1, function()};
    attributes(inner, child);
  }
  return VX_NORMAL_COMPLETION;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// Pairs of digits, with one character between the pairs.
bool decode_hex(std::string_view text, std::string& bytes) {
  bytes.reserve((text.size() + 1) / 3);
  for (std::size_t at = 0; at < text.size(); at += 3) {
    const int high = hex_digit(text[at]);
    const int low = at + 1 < text.size() ? hex_digit(text[at + 1]) : -1;
    if (high < 0 || low < 0) return false;
    bytes += static_cast<char>(high * 16 + low);
  }
  return true;
}

VX_STATUS XmlReader::bulk(FillTarget& target, TagObj& attribute, std::string_view text, bool base64) {
  std::string bytes;
  if (base64) {
    std::string plain(text);
    std::erase_if(plain, [](unsigned char c) { return std::isspace(c) != 0; });
    bytes = bytes_of_base64(target, attribute.Tag, plain);
  } else if (!decode_hex(text, bytes)) {
    return VX_INCOMPATIBLE_VALUE;
  }
  return fill_bytes(target, attribute, bytes);
}

VX_STATUS XmlReader::value(FillTarget& target, TagObj& attribute, std::string_view utf8, bool first) {
  if (utf8.empty()) return fill_null(target, attribute, first);
  if (attribute.VR == VX_VR_AT) return fill_tag(target, attribute, utf8, own() ? 10 : 16, first);
  if (attribute.VR == VX_VR_FL || attribute.VR == VX_VR_FD) return fill_real(target, attribute, utf8, first);
  if (is_text_vr(attribute.VR)) return fill_text(target, attribute, utf8, first, work_);
  return set_text(target.object, attribute, utf8, first, nullptr);
}

// The texts of elements joined by a separator. Gaps are filled; what does not follow is not made.
template <typename Text>
std::string join(XmlNode node, std::initializer_list<XmlName> names, char separator, Text text) {
  std::string all;
  std::size_t at = 0;
  std::size_t done = 0;
  for (const XmlName name : names) {
    if (const XmlNode part = node.child(name); !part.none()) {
      all.append(at - done, separator);
      done = at;
      all += text(part);
    }
    ++at;
  }
  return all;
}

std::string person_name(XmlNode node) {
  return join(node, {XmlName::Alphabetic, XmlName::Ideographic, XmlName::Phonetic}, '=', [](XmlNode group) {
    return join(group,
                {XmlName::FamilyName, XmlName::GivenName, XmlName::MiddleName, XmlName::NamePrefix,
                 XmlName::NameSuffix},
                '^', [](XmlNode part) { return part.text(); });
  });
}

VX_STATUS XmlReader::native_values(FillTarget& target, TagObj& attribute, XmlNode node,
                                   std::string_view letters) {
  VX_STATUS result = VX_NORMAL_COMPLETION;
  std::size_t count = 0;
  if (is_wide_integer(letters)) {
    std::string bytes;
    for (XmlNode child = node.child(); !child.none(); child = child.next()) {
      if (child.name() != XmlName::Value) continue;
      const VX_STATUS status = append_wide_integer(letters, child.text(), bytes);
      if (status != VX_NORMAL_COMPLETION) return status;
    }
    if (!bytes.empty()) return fill_bytes(target, attribute, bytes);
  }
  for (XmlNode child = node.child(); !child.none(); child = child.next()) {
    const XmlName kind = child.name();
    if (kind == XmlName::BulkData) {
      VX_LOG_WARN(function(), "The value of attribute 0x%8.8X lies elsewhere and is left out", attribute.Tag);
      continue;
    }
    if (kind != XmlName::InlineBinary && kind != XmlName::Value && kind != XmlName::PersonName) continue;
    if (is_bulk_vr(attribute.VR)) return bulk(target, attribute, child.text(), kind == XmlName::InlineBinary);
    std::size_t number = 0;
    if (read_number(child.field(XmlField::Number), number) && number > count + 1 &&
        number <= count + kMaxGap) {
      for (; count + 1 < number; ++count) fill_null(target, attribute, count == 0);
    }
    const std::string name = attribute.VR == VX_VR_PN ? person_name(child) : std::string();
    const VX_STATUS status = value(
        target, attribute, attribute.VR == VX_VR_PN ? std::string_view(name) : child.text(), count == 0);
    if (is_stored(status)) {
      ++count;
    } else {
      result = status;
    }
  }
  return count == 0 && result == VX_NORMAL_COMPLETION ? set_null(target.object, attribute) : result;
}

VX_STATUS XmlReader::own_values(FillTarget& target, TagObj& attribute, XmlNode node) {
  if (is_bulk_vr(attribute.VR)) {
    const std::string_view encoding = node.field(XmlField::Encoding);
    return bulk(target, attribute, node.text(), encoding.starts_with("Base64"));
  }
  std::string scratch;
  const std::string_view plain = unescape(node.text(), scratch);
  if (plain.find('\0') != std::string_view::npos) return VX_INCOMPATIBLE_VALUE;
  if (is_one_value_text(attribute.VR)) return value(target, attribute, plain, true);
  std::string_view rest = plain;
  VX_STATUS result = VX_NORMAL_COMPLETION;
  for (bool first = true;;) {
    const std::size_t end = rest.find('\\');
    const VX_STATUS status = value(target, attribute, rest.substr(0, end), first);
    if (is_stored(status)) {
      first = false;
    } else {
      result = status;
    }
    if (end == std::string_view::npos) return result;
    rest.remove_prefix(end + 1);
  }
}

}  // namespace

VX_STATUS xml_to_object(MsgObj& object, XmlForm form, void* user, VX_TEXT_INPUT callback) {
  const bool own = form == XmlForm::Own;
  const char* function = own ? "VX_XML_To_Message" : "VX_XML_Native_To_Message";
  XmlTree tree;
  std::string root;
  VX_STATUS status =
      own ? parse_own(object, user, callback, tree) : parse_native(object, user, callback, tree, root);
  const XmlNode holder = own ? tree.document() : tree.document().child();
  if (status == VX_NORMAL_COMPLETION && !own && holder.name() != XmlName::NativeDicomModel) {
    VX_LOG_ERR(function, "XMLNativeToMessage failed, wrong XML document type %.64s", root.c_str());
    status = VX_SYSTEM_ERROR;
  }
  if (status == VX_NORMAL_COMPLETION) {
    if (!own && holder.child().none() && is_blank(holder.text())) {
      VX_LOG_ERR(function, "XMLNativeToMessage failed, empty XML document");
      return VX_NORMAL_COMPLETION;
    }
    const Guard guard(object.Semaphore);
    status = decode_all(object);
    if (status == VX_NORMAL_COMPLETION) {
      FillTarget target{object, text_set_of(object, TextSet{}), 0, function};
      status = XmlReader(form).attributes(target, holder);
      if (!own) status = VX_NORMAL_COMPLETION;
    }
  }
  if (status != VX_NORMAL_COMPLETION) {
    VX_LOG_ERR(function, "Failed to convert XML to a DICOM message: %s", status_text(status));
  }
  return status;
}

}  // namespace vx
