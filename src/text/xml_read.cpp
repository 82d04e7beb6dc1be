// XML to objects: maps the elements of a document that was taken apart onto attributes.
#include <algorithm>
#include <cctype>

#include "config/services.h"
#include "frame/limits.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/text.h"
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

// Values that the numbers of a document may leave out; they are null.
constexpr std::size_t kMaxGap = 1024;

std::size_t children(XmlNode node) {
  std::size_t count = 0;
  for (XmlNode child = node.child(); !child.none(); child = child.next()) ++count;
  return count;
}

bool is_blank(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; });
}

std::string without_blanks(std::string_view text) {
  std::string plain(text);
  std::erase_if(plain, [](unsigned char c) { return std::isspace(c) != 0; });
  return plain;
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
  bool is_without_block(XmlNode node, uint32_t tag) const;
  VX_STATUS creator(FillTarget& target, XmlNode node, uint32_t tag, bool& taken);
  TagObj* find(FillTarget& target, XmlNode node, uint32_t tag, int32_t vr);
  VX_STATUS items(FillTarget& target, TagObj& attribute, XmlNode node);
  void sort_values(TagObj& attribute, XmlNode node);
  VX_STATUS native_value(FillTarget& target, TagObj& attribute, XmlNode node, bool first);
  VX_STATUS native_values(FillTarget& target, TagObj& attribute, XmlNode node, std::string_view letters);
  VX_STATUS own_values(FillTarget& target, TagObj& attribute, XmlNode node);
  VX_STATUS value(FillTarget& target, TagObj& attribute, std::string_view utf8, bool first);
  VX_STATUS bulk(FillTarget& target, TagObj& attribute, std::string_view text, bool base64);

  struct Numbered {
    std::size_t number;
    XmlNode node;
  };
  const XmlForm form_;
  std::string work_;
  std::vector<Numbered> numbered_;  // of one attribute
};

VX_STATUS XmlReader::attributes(FillTarget& target, XmlNode holder) {
  for (XmlNode node = holder.child(); !node.none(); node = node.next()) {
    const VX_STATUS status = attribute(target, node);
    if (status == kOk) continue;
    if (!own()) VX_LOG_ERR(function(), "XMLNativeToMessage failed to create DICOM attribute");
    const VX_STATUS finished = target.finish();
    return finished != kOk ? finished : status;
  }
  return target.finish();
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
  if (is_private_creator(tag) && !is_without_block(node, tag)) {
    bool taken = true;
    const VX_STATUS status = creator(target, node, tag, taken);
    if (status != kOk || taken) return status;
  }
  TagObj* attribute = find(target, node, tag, vr);
  if (attribute == nullptr) return kOk;
  take_vr(target, *attribute, vr, letters);
  VX_STATUS status = kOk;
  if (attribute->VR == VX_VR_SQ) {
    status = items(target, *attribute, node);
  } else if (own()) {
    status = own_values(target, *attribute, node);
  } else {
    status = native_values(target, *attribute, node, letters);
  }
  if (!is_stored(status, attribute->VR)) {
    VX_LOG_ERR(function(), "Failed to write attribute '0x%8.8X' value from XML to DICOM format", tag);
  }
  target.filled(*attribute);
  return kOk;
}

// The native form names an element of a private block without its block, as (gggg,00ee), and its creator
// beside it (PS3.19 table A.1.5-2). A creator's own element has its code for value.
bool XmlReader::is_without_block(XmlNode node, uint32_t tag) const {
  if (own() || !is_private(tag) || tag_element(tag) > 0xFF) return false;
  const std::string_view code = node.field(XmlField::Creator);
  if (code.empty()) return false;
  if (!is_private_creator(tag)) return true;
  const XmlNode value = node.child(XmlName::Value);
  return node.field(XmlField::Vr) != "LO" || (!value.none() && value.text() != code);
}

// `taken` becomes false if the element names no creator.
VX_STATUS XmlReader::creator(FillTarget& target, XmlNode node, uint32_t tag, bool& taken) {
  // As it lies in the file.
  taken = !own() || !is_bulk_vr(vr_of_document(node.field(XmlField::Vr)));
  if (!taken) return kOk;
  std::string name(node.field(XmlField::Creator));
  std::string work;
  bool whole = true;
  if (name.empty() && own()) name = unescape(node.text(), work_);
  if (name.empty() && !own()) name = node.child(XmlName::Value).text();
  name = std::string(target.encoded(tag, name, work, whole));
  if (const XmlNode binary = node.child(XmlName::InlineBinary); name.empty() && !binary.none())
    name = creator_of_bytes(bytes_of_base64(target, tag, without_blanks(binary.text())));
  taken = !name.empty();
  if (!taken) return kOk;
  VX_STATUS status = VX_REQUIRED_VALUE_MISSING;
  if (name.size() < kMaxCreatorCode)
    status = add_private_block(target.object, name, tag_group(tag), nullptr, tag, function());
  if (status != kOk) {
    VX_LOG_ERR(function(), "Unable to add private creator (%.4X,%.4x) %s, error \"%s\" (ignoring)",
               tag_group(tag), tag_element(tag), name.c_str(), status_text(status));
    return own() ? VX_STATUS{kOk} : status;
  }
  target.note_creator(tag, std::move(name));
  return kOk;
}

// The attribute, found or added; null if it can not be had. The block that the document names may lie
// elsewhere in the object.
TagObj* XmlReader::find(FillTarget& target, XmlNode node, uint32_t tag, int32_t vr) {
  VX_STATUS status = kOk;
  const bool without_block = is_without_block(node, tag);
  if (without_block || (is_private(tag) && tag_element(tag) >= 0x1000)) {
    std::string work;
    bool whole = true;
    std::string code(target.encoded(tag, node.field(XmlField::Creator), work, whole));
    if (code.empty()) code = target.creator(tag);
    if (!code.empty()) {
      const auto element = static_cast<uint8_t>(tag & 0xFFU);
      // A document may name a creator without the element that reserves its block.
      status =
          code.size() < kMaxCreatorCode
              ? add_private_block(target.object, code, tag_group(tag), nullptr,
                                  without_block ? 0 : (tag & 0xFFFF0000U) | ((tag >> 8) & 0xFFU), function())
              : VX_STATUS{VX_VALUE_TOO_LARGE};
      if (status == kOk) status = add_private_attribute(target.object, code, tag_group(tag), element, vr);
      uint32_t place = 0;
      if (status == kOk || status == VX_TAG_ALREADY_EXISTS)
        status = private_tag(target.object, code, tag_group(tag), element, place);
      if (status == kOk) return find_tag(target.object, place);
      VX_LOG_ERR(function(), "Unable to add private attribute (%.4X,%.4x) %s, error \"%s\" (ignoring)",
                 tag_group(tag), tag_element(tag), code.c_str(), status_text(status));
      return nullptr;
    }
  }
  if (!own() && is_private(tag) && !is_private_creator(tag)) {
    VX_LOG_WARN(function(), "Private attribute (%04X,%04X) comes without its creator", tag_group(tag),
                tag_element(tag));
  }
  TagObj* attribute = find_tag(target.object, tag);
  if (attribute != nullptr) return attribute;
  status = add_standard_attribute(target.object, tag, &attribute);
  if (status == VX_INVALID_TAG) status = add_nonstandard_attribute(target.object, tag, vr, &attribute);
  if (status == kOk) return attribute;
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
    if (status != kOk) {
      VX_LOG_ERR(function(), "Failed to create a new Item for attribute '0x%8.8X', error \"%s\"",
                 attribute.Tag, status_text(status));
      return status;
    }
    const int32_t id = item->ID;
    status = set_value(target.object, attribute, VX_INT_TYPE, &id, first);
    if (status != kOk) {
      VX_LOG_ERR(function(), "Failed to add item '%d' to sequence attribute '0x%8.8X', error \"%s\"", id,
                 attribute.Tag, status_text(status));
      free_item(*item, true);
      return status;
    }
    first = false;
    FillTarget inner{*item, target.set, target.depth + 1, function(), &target};
    attributes(inner, child);
  }
  return kOk;
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
    bytes = bytes_of_base64(target, attribute.Tag, without_blanks(text));
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

// The texts of elements joined by a separator. Gaps are filled; what does not follow is not made. `whole`
// becomes false if there is more than these elements, or a separator in another than the last.
template <typename Text>
std::string join(XmlNode node, std::initializer_list<XmlName> names, char separator, bool& whole, Text text) {
  std::string all;
  std::size_t at = 0;
  std::size_t done = 0;
  std::size_t found = 0;
  for (const XmlName name : names) {
    if (const XmlNode part = node.child(name); !part.none()) {
      all.append(at - done, separator);
      done = at;
      const std::string content(text(part));
      if (at + 1 < names.size() && content.find(separator) != std::string::npos) whole = false;
      all += content;
      ++found;
    }
    ++at;
  }
  if (found != children(node)) whole = false;
  return all;
}

// A name by its parts; one that comes in one piece is taken as it is.
std::string person_name(XmlNode node, bool& whole) {
  if (node.child().none()) return is_blank(node.text()) ? std::string() : std::string(node.text());
  return join(node, {XmlName::Alphabetic, XmlName::Ideographic, XmlName::Phonetic}, '=', whole,
              [&whole](XmlNode group) {
                if (group.child().none()) return is_blank(group.text()) ? "" : std::string(group.text());
                return join(group,
                            {XmlName::FamilyName, XmlName::GivenName, XmlName::MiddleName,
                             XmlName::NamePrefix, XmlName::NameSuffix},
                            '^', whole, [](XmlNode part) { return part.text(); });
              });
}

// The values in the order of their numbers; one without stands behind the one before it.
void XmlReader::sort_values(TagObj& attribute, XmlNode node) {
  numbered_.clear();
  bool sorted = true;
  std::size_t last = 0;
  std::size_t limit = 0;  // of numbers, counted when one is left out
  for (XmlNode child = node.child(); !child.none(); child = child.next()) {
    const XmlName kind = child.name();
    if (kind == XmlName::BulkData) {
      VX_LOG_WARN(function(), "The value of attribute 0x%8.8X lies elsewhere and is left out", attribute.Tag);
      continue;
    }
    if (kind != XmlName::InlineBinary && kind != XmlName::Value && kind != XmlName::PersonName) {
      VX_LOG_WARN(function(), "An element of attribute 0x%8.8X is none of the form, and is passed over",
                  attribute.Tag);
      continue;
    }
    std::size_t number = last + 1;
    const std::string_view digits = child.field(XmlField::Number);
    const bool bad = !digits.empty() && !read_number(digits, number);
    if (number > last + 1 && limit == 0) limit = children(node) + kMaxGap;
    if (bad || number == 0 || (number > last + 1 && number > limit)) {
      VX_LOG_WARN(function(), "A value of attribute 0x%8.8X has the number \"%.20s\"", attribute.Tag,
                  std::string(digits).c_str());
      number = last + 1;
    }
    sorted = sorted && number > last;
    last = number;
    numbered_.push_back({number, child});
  }
  if (sorted) return;
  std::stable_sort(numbered_.begin(), numbered_.end(),
                   [](const Numbered& a, const Numbered& b) { return a.number < b.number; });
  const auto twice = [](const Numbered& a, const Numbered& b) { return a.number == b.number; };
  if (std::adjacent_find(numbered_.begin(), numbered_.end(), twice) != numbered_.end())
    VX_LOG_WARN(function(), "Two values of attribute 0x%8.8X have one number", attribute.Tag);
}

VX_STATUS XmlReader::native_value(FillTarget& target, TagObj& attribute, XmlNode node, bool first) {
  const bool is_name = attribute.VR == VX_VR_PN;
  if (node.name() == XmlName::InlineBinary || (node.name() == XmlName::PersonName && !is_name))
    return VX_INCOMPATIBLE_VALUE;
  if (!is_name) return value(target, attribute, node.text(), first);
  bool whole = true;
  const std::string name = person_name(node, whole);
  if (!whole) {
    VX_LOG_WARN(function(), "A name of attribute 0x%8.8X has parts that are none, or divide it anew",
                attribute.Tag);
  }
  return value(target, attribute, name, first);
}

VX_STATUS XmlReader::native_values(FillTarget& target, TagObj& attribute, XmlNode node,
                                   std::string_view letters) {
  sort_values(attribute, node);
  const bool wide = is_wide_integer(letters);
  if (wide && !numbered_.empty() && numbered_.front().node.name() == XmlName::Value) {
    std::string bytes;
    for (const Numbered& one : numbered_) {
      const VX_STATUS status = append_wide_integer(letters, one.node.text(), bytes);
      if (status != kOk) return status;
    }
    return fill_bytes(target, attribute, bytes);
  }
  if (is_bulk_vr(attribute.VR) && !numbered_.empty()) {
    if (numbered_.size() > 1)
      VX_LOG_WARN(function(), "Attribute 0x%8.8X has more than one value; the first is taken", attribute.Tag);
    const XmlNode first = numbered_.front().node;
    return bulk(target, attribute, first.text(), first.name() == XmlName::InlineBinary);
  }
  VX_STATUS result = kOk;
  std::size_t count = 0;
  for (const Numbered& one : numbered_) {
    for (; count + 1 < one.number; ++count) fill_null(target, attribute, count == 0);
    const VX_STATUS status = native_value(target, attribute, one.node, count == 0);
    if (is_stored(status, attribute.VR)) {
      ++count;
    } else {
      result = status;
    }
  }
  return count == 0 && result == kOk ? set_null(target.object, attribute) : result;
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
  VX_STATUS result = kOk;
  for (bool first = true;;) {
    const std::size_t end = rest.find('\\');
    const VX_STATUS status = value(target, attribute, rest.substr(0, end), first);
    if (is_stored(status, attribute.VR)) {
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
  if (status == kOk && !own && holder.name() != XmlName::NativeDicomModel) {
    VX_LOG_ERR(function, "XMLNativeToMessage failed, wrong XML document type %.64s", root.c_str());
    status = VX_SYSTEM_ERROR;
  }
  if (status == kOk) {
    if (!own && holder.child().none() && is_blank(holder.text())) {
      VX_LOG_ERR(function, "XMLNativeToMessage failed, empty XML document");
      return kOk;
    }
    const Guard guard(object.Semaphore);
    status = decode_all(object);
    if (status == kOk) {
      FillTarget target{object, text_set_of(object, TextSet{}), 0, function};
      status = XmlReader(form).attributes(target, holder);
      if (!own) status = kOk;
    }
  }
  if (status != kOk) {
    VX_LOG_ERR(function, "Failed to convert XML to a DICOM message: %s", status_text(status));
  }
  return status;
}

}  // namespace vx
