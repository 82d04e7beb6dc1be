// XML to objects: maps the elements of a document that was taken apart onto attributes.
#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <limits>

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
#include "text/base64.h"
#include "text/utf8.h"
#include "text/xml_parse.h"

namespace vx {

namespace {

constexpr uint32_t kSpecificCharacterSet = 0x00080005U;
// Values that a document may leave out before one that it numbers.
constexpr std::size_t kMaxGap = 1024;

// What reading one object has at hand.
struct Target {
  MsgObj& object;
  TextSet set;
  int depth;
  CharsetCache charsets{};
  std::vector<std::pair<uint32_t, std::string>> creators{};  // by group and block of the document
};

bool is_blank(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; });
}

std::string_view field_of(const XmlNode& node, std::string_view key) {
  const std::string* field = node.field(key);
  return field != nullptr ? std::string_view(*field) : std::string_view();
}

const XmlNode* child_of(const XmlNode& node, std::string_view name) {
  const auto found = std::find_if(node.children.begin(), node.children.end(),
                                  [&](const XmlNode& child) { return child.name == name; });
  return found != node.children.end() ? &*found : nullptr;
}

// The whole text as a number.
template <typename T, typename... Base>
bool read_number(std::string_view text, T& value, Base... base) {
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value, base...);
  return !text.empty() && read.ec == std::errc{} && read.ptr == end;
}

class XmlReader {
 public:
  explicit XmlReader(XmlForm form) : form_(form) {}
  // VX_CANNOT_COMPLY: an attribute ended the walk.
  VX_STATUS attributes(Target& target, const std::vector<XmlNode>& nodes);

 private:
  const char* function() const {
    return form_ == XmlForm::Own ? "VX_XML_To_Message" : "VX_XML_Native_To_Message";
  }
  bool own() const { return form_ == XmlForm::Own; }
  VX_STATUS attribute(Target& target, const XmlNode& node);
  VX_STATUS creator(Target& target, const XmlNode& node, uint32_t tag);
  TagObj* find(Target& target, const XmlNode& node, uint32_t tag, int32_t vr);
  VX_STATUS items(Target& target, TagObj& attribute, const XmlNode& node);
  VX_STATUS native_values(Target& target, TagObj& attribute, const XmlNode& node, std::string_view letters);
  VX_STATUS own_values(Target& target, TagObj& attribute, const XmlNode& node);
  VX_STATUS value(Target& target, TagObj& attribute, std::string_view utf8, bool first);
  VX_STATUS bulk(Target& target, TagObj& attribute, std::string_view text, bool base64);
  VX_STATUS store_bytes(Target& target, TagObj& attribute, std::string& bytes);

  const XmlForm form_;
  std::string work_;
};

VX_STATUS add_null(Target& target, TagObj& attribute, bool first) {
  return first ? set_null(target.object, attribute) : set_next_null(attribute);
}

// Values that break a rule of their VR are stored all the same.
bool is_stored(VX_STATUS status) {
  return status == VX_NORMAL_COMPLETION || status == VX_INVALID_CHARS_IN_VALUE ||
         status == VX_INVALID_VALUE_FOR_VR;
}

VX_STATUS XmlReader::attributes(Target& target, const std::vector<XmlNode>& nodes) {
  for (const XmlNode& node : nodes) {
    const VX_STATUS status = attribute(target, node);
    if (status == VX_NORMAL_COMPLETION) continue;
    if (!own()) VX_LOG_ERR(function(), "XMLNativeToMessage failed to create DICOM attribute");
    return status;
  }
  return VX_NORMAL_COMPLETION;
}

// A failure ends the walk; an attribute that is passed over is none.
VX_STATUS XmlReader::attribute(Target& target, const XmlNode& node) {
  uint32_t tag = 0;
  const std::string_view digits = field_of(node, "tag");
  if (digits.size() != 8 || !read_number(digits, tag, 16)) {
    VX_LOG_ERR(function(), "xmlMessageCreateDcmAttribute failed to convert XML to DICOM attribute");
    return VX_INVALID_TAG;
  }
  const std::string_view letters = field_of(node, "vr");
  int32_t vr = letters.size() == 2 ? vr_from_letters(letters[0], letters[1]) : -1;
  // The VRs of 64 bits have no code here: their bytes are kept.
  if (letters == "OV" || letters == "SV" || letters == "UV") vr = VX_VR_UN;
  if (is_private_creator(tag)) return creator(target, node, tag);
  TagObj* attribute = find(target, node, tag, vr);
  if (attribute == nullptr) return VX_NORMAL_COMPLETION;
  // What the document says of its values holds.
  if (vr >= 0 && attribute->VR != vr) {
    clear_value(target.object, *attribute, false, true);
    attribute->VR = vr;
  }
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
  if (tag == kSpecificCharacterSet) {
    target.set = text_set_of(target.object, target.set);
    target.charsets.known = false;
  }
  return VX_NORMAL_COMPLETION;
}

VX_STATUS XmlReader::creator(Target& target, const XmlNode& node, uint32_t tag) {
  std::string name(field_of(node, own() ? "pcode" : "privateCreator"));
  if (name.empty()) {
    const XmlNode* value = own() ? &node : child_of(node, "Value");
    if (value != nullptr) name = own() ? unescape_xml(value->text) : value->text;
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
  target.creators.emplace_back((tag & 0xFFFF0000U) | ((tag & 0xFFU) << 8), std::move(name));
  return VX_NORMAL_COMPLETION;
}

// The attribute, found or added; null if it can not be had. The block that the document names may lie
// elsewhere in the object.
TagObj* XmlReader::find(Target& target, const XmlNode& node, uint32_t tag, int32_t vr) {
  VX_STATUS status = VX_NORMAL_COMPLETION;
  if (is_private(tag) && tag_element(tag) >= 0x1000) {
    std::string work;
    std::string code(from_utf8(field_of(node, own() ? "pcode" : "privateCreator"), target.set, work));
    if (code.empty()) {
      const auto known = std::find_if(target.creators.rbegin(), target.creators.rend(),
                                      [&](const auto& row) { return row.first == (tag & 0xFFFFFF00U); });
      code = known != target.creators.rend() ? known->second : std::string(creator_of(target.object, tag));
    }
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

VX_STATUS XmlReader::items(Target& target, TagObj& attribute, const XmlNode& node) {
  if (node.children.empty()) return set_null(target.object, attribute);
  if (target.depth >= kMaxNesting) return VX_CANNOT_COMPLY;
  bool first = true;
  for (const XmlNode& child : node.children) {
    if (child.name != "Item") {
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
    Target inner{*item, target.set, target.depth + 1};
    attributes(inner, child.children);
  }
  return VX_NORMAL_COMPLETION;
}

VX_STATUS XmlReader::store_bytes(Target& target, TagObj& attribute, std::string& bytes) {
  if (bytes.empty()) return set_null(target.object, attribute);
  const std::size_t width = vr_width(attribute.VR);
  if (std::endian::native == std::endian::big && width > 1) {
    bytes.resize(bytes.size() / width * width);
    copy_swapped(bytes.data(), bytes.data(), bytes.size(), vr_width(attribute.VR));
  }
  if (bytes.size() % 2 != 0) bytes += '\0';
  if (bytes.size() >= kUndefinedLength) return VX_VALUE_TOO_LARGE;
  const VX_STATUS status =
      value_from_buffer(target.object, attribute, bytes.data(), static_cast<uint32_t>(bytes.size()));
  if (status != VX_NORMAL_COMPLETION) {
    VX_LOG_ERR(function(), "Failed to set value for attribute 0x%8.8X, error \"%s\"", attribute.Tag,
               status_text(status));
  }
  return status;
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

VX_STATUS XmlReader::bulk(Target& target, TagObj& attribute, std::string_view text, bool base64) {
  std::string bytes;
  if (base64) {
    bool clean = true;
    std::string plain(text);
    std::erase_if(plain, [](unsigned char c) { return std::isspace(c) != 0; });
    bytes = decode_base64(plain, clean);
    if (!clean) {
      VX_LOG_WARN(function(), "Characters that are no Base64 were passed over in attribute 0x%8.8X",
                  attribute.Tag);
    }
  } else if (!decode_hex(text, bytes)) {
    return VX_INCOMPATIBLE_VALUE;
  }
  return store_bytes(target, attribute, bytes);
}

VX_STATUS XmlReader::value(Target& target, TagObj& attribute, std::string_view utf8, bool first) {
  if (utf8.empty()) return add_null(target, attribute, first);
  switch (attribute.VR) {
    case VX_VR_AT: {
      std::string digits(utf8);
      std::erase(digits, ',');
      uint32_t tag = 0;
      if (!read_number(std::string_view(digits), tag, own() ? 10 : 16)) return VX_INVALID_VALUE_FOR_VR;
      return set_value(target.object, attribute, VX_UINT_TYPE, &tag, first);
    }
    case VX_VR_FL: {  // as what they are: denormal numbers, NaN and infinities too
      float number = 0;
      if (!read_number(utf8, number)) return VX_INCOMPATIBLE_VALUE;
      return set_value(target.object, attribute, VX_FLOAT_TYPE, &number, first);
    }
    case VX_VR_FD: {
      double number = 0;
      if (!read_number(utf8, number)) return VX_INCOMPATIBLE_VALUE;
      return set_value(target.object, attribute, VX_DOUBLE_TYPE, &number, first);
    }
    default:
      break;
  }
  if (!is_text_vr(attribute.VR)) return set_text(target.object, attribute, utf8, first, nullptr);
  const std::string_view text = from_utf8(utf8, target.set, work_);
  CharsetCache* charsets = attribute.Tag > kSpecificCharacterSet ? &target.charsets : nullptr;
  return set_text(target.object, attribute, text, first, charsets);
}

// The texts of elements joined by a separator. Gaps are filled; what does not follow is not made.
template <typename Text>
std::string join(const XmlNode& node, std::initializer_list<const char*> names, char separator, Text text) {
  std::string all;
  std::size_t at = 0;
  std::size_t done = 0;
  for (const char* name : names) {
    if (const XmlNode* part = child_of(node, name); part != nullptr) {
      all.append(at - done, separator);
      done = at;
      all += text(*part);
    }
    ++at;
  }
  return all;
}

std::string person_name(const XmlNode& node) {
  return join(node, {"Alphabetic", "Ideographic", "Phonetic"}, '=', [](const XmlNode& group) {
    return join(group, {"FamilyName", "GivenName", "MiddleName", "NamePrefix", "NameSuffix"}, '^',
                [](const XmlNode& part) { return part.text; });
  });
}

// Numbers of 64 bits, which are kept as bytes.
bool add_wide(std::string_view text, std::string& bytes) {
  uint64_t number = 0;
  int64_t negative = 0;
  if (text.starts_with('-')) {
    if (!read_number(text, negative)) return false;
    number = static_cast<uint64_t>(negative);
  } else if (!read_number(text, number)) {
    return false;
  }
  for (unsigned shift = 0; shift < 64; shift += 8) bytes += static_cast<char>((number >> shift) & 0xFFU);
  return true;
}

VX_STATUS XmlReader::native_values(Target& target, TagObj& attribute, const XmlNode& node,
                                   std::string_view letters) {
  VX_STATUS result = VX_NORMAL_COMPLETION;
  std::size_t count = 0;
  if (letters == "SV" || letters == "UV") {
    std::string bytes;
    for (const XmlNode& child : node.children) {
      if (child.name == "Value" && !add_wide(child.text, bytes)) return VX_INCOMPATIBLE_VALUE;
    }
    if (!bytes.empty()) return store_bytes(target, attribute, bytes);
  }
  for (const XmlNode& child : node.children) {
    if (child.name == "BulkData") {
      VX_LOG_WARN(function(), "The value of attribute 0x%8.8X lies elsewhere and is left out", attribute.Tag);
      continue;
    }
    if (child.name != "InlineBinary" && child.name != "Value" && child.name != "PersonName") continue;
    if (is_bulk_vr(attribute.VR)) return bulk(target, attribute, child.text, child.name == "InlineBinary");
    std::size_t number = 0;
    if (read_number(field_of(child, "number"), number) && number > count + 1 && number <= count + kMaxGap) {
      for (; count + 1 < number; ++count) add_null(target, attribute, count == 0);
    }
    const std::string name = attribute.VR == VX_VR_PN ? person_name(child) : std::string();
    const VX_STATUS status =
        value(target, attribute, attribute.VR == VX_VR_PN ? name : child.text, count == 0);
    if (is_stored(status)) {
      ++count;
    } else {
      result = status;
    }
  }
  return count == 0 && result == VX_NORMAL_COMPLETION ? set_null(target.object, attribute) : result;
}

VX_STATUS XmlReader::own_values(Target& target, TagObj& attribute, const XmlNode& node) {
  if (is_bulk_vr(attribute.VR)) {
    const std::string_view encoding = field_of(node, "encoding");
    return bulk(target, attribute, node.text, encoding.starts_with("Base64"));
  }
  const std::string plain = unescape_xml(node.text);
  if (plain.find('\0') != std::string::npos) return VX_INCOMPATIBLE_VALUE;
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
  XmlNode root{""};
  VX_STATUS status =
      own ? parse_own(object, user, callback, root) : parse_native(object, user, callback, root);
  if (status == VX_NORMAL_COMPLETION && !own && root.name != "NativeDicomModel") {
    VX_LOG_ERR(function, "XMLNativeToMessage failed, wrong XML document type %.64s", root.name.c_str());
    status = VX_SYSTEM_ERROR;
  }
  if (status == VX_NORMAL_COMPLETION) {
    if (!own && root.children.empty() && is_blank(root.text)) {
      VX_LOG_ERR(function, "XMLNativeToMessage failed, empty XML document");
      return VX_NORMAL_COMPLETION;
    }
    const Guard guard(object.Semaphore);
    status = decode_all(object);
    if (status == VX_NORMAL_COMPLETION) {
      Target target{object, text_set_of(object, TextSet{}), 0};
      status = XmlReader(form).attributes(target, root.children);
      if (!own) status = VX_NORMAL_COMPLETION;
    }
  }
  if (status != VX_NORMAL_COMPLETION) {
    VX_LOG_ERR(function, "Failed to convert XML to a DICOM message: %s", status_text(status));
  }
  return status;
}

}  // namespace vx
