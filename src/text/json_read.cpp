// JSON to objects: maps the values of a text that was found good onto attributes.
#include <algorithm>
#include <charconv>
#include <string>
#include <vector>

#include "config/services.h"
#include "frame/byte_order.h"
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
#include "text/json.h"
#include "text/json_text.h"
#include "text/text_blocks.h"

namespace vx {

namespace {

constexpr char kFunction[] = "VX_Json_To_Message";

struct Member {
  uint32_t tag;
  std::size_t value;  // its place in the text
};

// A key is eight hexadecimal digits.
bool read_tag(std::string_view key, uint32_t& tag) {
  return key.size() == 8 && read_number(key, tag, 16);
}

class JsonReader {
 public:
  JsonReader(const JsonText& text, int32_t options)
      : text_(text), standard_((options & VX_JSON_STANDARD) != 0) {}
  VX_STATUS members(FillTarget& target, std::size_t object);

 private:
  // Members of an object by name; of those that stand there twice, the last.
  template <std::size_t N>
  void pick(std::size_t object, const char* const (&names)[N], std::size_t (&values)[N]);
  VX_STATUS member(FillTarget& target, const Member& member);
  VX_STATUS value(FillTarget& target, TagObj& attribute, const std::size_t (&parts)[4], std::string_view vr);
  VX_STATUS creator(FillTarget& target, uint32_t tag, const std::size_t (&parts)[4]);
  VX_STATUS find_private(FillTarget& target, uint32_t tag, int32_t vr, TagObj*& attribute);
  VX_STATUS find_standard(FillTarget& target, uint32_t tag, int32_t vr, TagObj*& attribute);
  VX_STATUS items(FillTarget& target, TagObj& attribute, std::size_t value);
  VX_STATUS wide_integers(FillTarget& target, TagObj& attribute, std::string_view vr, std::size_t values);
  VX_STATUS values(FillTarget& target, TagObj& attribute, std::size_t values);
  VX_STATUS person(FillTarget& target, TagObj& attribute, std::size_t name, bool first);
  VX_STATUS element(FillTarget& target, TagObj& attribute, std::size_t value, bool first);
  VX_STATUS number(FillTarget& target, TagObj& attribute, std::string_view number, bool first);
  VX_STATUS binary_numbers(FillTarget& target, TagObj& attribute, std::string_view base64);
  VX_STATUS text(FillTarget& target, TagObj& attribute, std::string_view text, bool first);

  bool is(std::size_t value, JsonKind kind) const { return value != 0 && text_.kind(value) == kind; }
  std::string_view string(std::size_t value) {
    return value != 0 ? text_.string(value, string_) : std::string_view();
  }

  const JsonText& text_;
  const bool standard_;
  std::string string_;  // with its escapes undone
  std::string plain_;
  std::string bytes_;
  std::size_t lost_ = 0;  // values and members that are not in the object now, or not as they were
};

template <std::size_t N>
void JsonReader::pick(std::size_t object, const char* const (&names)[N], std::size_t (&values)[N]) {
  std::fill(std::begin(values), std::end(values), 0);
  for (auto place = text_.inside(object); text_.next(place);) {
    const std::string_view key = text_.string(place.key, string_);
    bool known = false;
    for (std::size_t i = 0; i < N; ++i) {
      if (key != names[i]) continue;
      known = true;
      if (values[i] != 0)
        VX_LOG_WARN(kFunction, "Member \"%s\" at byte %zu replaces an earlier one", names[i], place.key);
      values[i] = place.value;
    }
    if (known) continue;
    VX_LOG_WARN(kFunction, "Member \"%.64s\" at byte %zu is none of the form, and is passed over",
                std::string(key).c_str(), place.key);
  }
}

// By their tags, in the order of the document where these are equal.
VX_STATUS JsonReader::members(FillTarget& target, std::size_t object) {
  std::vector<Member> members;
  VX_STATUS result = kOk;
  for (auto place = text_.inside(object); text_.next(place);) {
    Member member{0, place.value};
    const std::string_view key = text_.string(place.key, string_);
    if (read_tag(key, member.tag)) {
      members.push_back(member);
      continue;
    }
    VX_LOG_ERR(kFunction, "JsonToMessage failed to add attribute '%.64s': %s.", std::string(key).c_str(),
               status_text(VX_INVALID_TAG));
    result = VX_INVALID_TAG;
    ++lost_;
  }
  const auto below = [](const Member& a, const Member& b) { return a.tag < b.tag; };
  if (!std::is_sorted(members.begin(), members.end(), below))
    std::stable_sort(members.begin(), members.end(), below);
  for (std::size_t i = 0; i < members.size(); ++i) {
    const Member& one = members[i];
    if (i + 1 < members.size() && members[i + 1].tag == one.tag) {
      VX_LOG_WARN(kFunction, "Attribute 0x%8.8X at byte %zu replaces an earlier one", one.tag,
                  members[i + 1].value);
      continue;
    }
    const std::size_t lost = lost_;
    const VX_STATUS status = member(target, one);
    if (status == kOk) continue;
    result = status;
    if (lost_ == lost) {
      VX_LOG_INF(kFunction, "Attribute '0x%8.8X' is stored as it is: %s", one.tag, status_text(status));
      continue;
    }
    VX_LOG_ERR(kFunction, "JsonToMessage failed to add attribute '0x%8.8X': %s.", one.tag,
               status_text(status));
    VX_LOG_ERR(kFunction, "|   at byte %zu of the text", one.value);
  }
  const VX_STATUS finished = target.finish();
  return finished != kOk ? finished : result;
}

enum { kVr, kInlineBinary, kValue, kBulkDataUri };

VX_STATUS JsonReader::creator(FillTarget& target, uint32_t tag, const std::size_t (&parts)[4]) {
  std::string_view code;
  std::string bytes;
  if (parts[kValue] == 0 && is(parts[kInlineBinary], JsonKind::String)) {  // of VR UN
    bytes = bytes_of_base64(target, tag, string(parts[kInlineBinary]));
    code = creator_of_bytes(bytes);
  } else if (is(parts[kValue], JsonKind::Array)) {
    auto place = text_.inside(parts[kValue]);
    if (text_.next(place)) code = string(place.value);
    if (text_.next(place))
      VX_LOG_WARN(kFunction, "Private creator 0x%8.8X has more than one value; the first is taken", tag);
    if (!standard_) code = unescape(code, plain_);
    bool whole = true;
    code = target.encoded(tag, code, bytes_, whole);
  }
  if (code.empty() || code.size() >= kMaxCreatorCode || code.find('\0') != std::string_view::npos)
    return VX_REQUIRED_VALUE_MISSING;
  std::string name(code);
  const VX_STATUS status = add_private_block(target.object, name, tag_group(tag), nullptr, tag, kFunction);
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "Unable to add private creator (%.4X,%.4x) \"%s\": %s (ignoring)", tag_group(tag),
               tag_element(tag), name.c_str(), status_text(status));
    return status;
  }
  target.note_creator(tag, std::move(name));
  return kOk;
}

// The block that the document names may lie elsewhere in the object.
VX_STATUS JsonReader::find_private(FillTarget& target, uint32_t tag, int32_t vr, TagObj*& attribute) {
  if (tag_element(tag) < 0x1000) return VX_INVALID_TAG;
  const std::string code = target.creator(tag);
  if (code.empty()) {
    VX_LOG_ERR(kFunction, "Unable to add private attribute (%.4X,%.4X), error [%s]", tag_group(tag),
               tag_element(tag), status_text(VX_NOT_FOUND));
    return VX_NOT_FOUND;
  }
  const auto element = static_cast<uint8_t>(tag & 0xFFU);
  VX_STATUS status = add_private_attribute(target.object, code, tag_group(tag), element, vr);
  if (status != kOk && status != VX_TAG_ALREADY_EXISTS) {
    VX_LOG_ERR(kFunction, "Unable to add private attribute (%.4X,%.4x) \"%s\": %s (ignoring)", tag_group(tag),
               tag_element(tag), code.c_str(), status_text(status));
    return status;
  }
  uint32_t place = 0;
  status = private_tag(target.object, code, tag_group(tag), element, place);
  if (status != kOk) return status;
  attribute = find_tag(target.object, place);
  return attribute != nullptr ? VX_STATUS{kOk} : VX_STATUS{VX_INVALID_TAG};
}

VX_STATUS JsonReader::find_standard(FillTarget& target, uint32_t tag, int32_t vr, TagObj*& attribute) {
  attribute = find_tag(target.object, tag);
  if (attribute != nullptr) return kOk;
  VX_STATUS status = add_standard_attribute(target.object, tag, &attribute);
  if (status == VX_INVALID_TAG) status = add_nonstandard_attribute(target.object, tag, vr, &attribute);
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "Error adding tag (%4.4x,%4.4x): \"%s\"", tag_group(tag), tag_element(tag),
               status_text(status));
  } else if (attribute == nullptr) {
    return VX_SYSTEM_ERROR;
  }
  return status;
}

VX_STATUS JsonReader::member(FillTarget& target, const Member& member) {
  static constexpr const char* kNames[] = {"vr", "InlineBinary", "Value", "BulkDataURI"};
  std::size_t parts[4] = {};
  char letters[2] = {};
  if (is(member.value, JsonKind::Object)) {
    pick(member.value, kNames, parts);
    if (const std::string_view vr = string(parts[kVr]); vr.size() == 2) vr.copy(letters, 2);
  }
  const std::string_view vr_name(letters, 2);
  const int32_t vr = vr_of_document(vr_name);
  if (vr < 0) {
    VX_LOG_ERR(kFunction,
               "jsMessageCreateDcmAttribute failed to create DICOM attribute 0x%8.8X, error \"%s\"",
               member.tag, status_text(VX_INVALID_VR_IN_STREAM));
    ++lost_;
    return VX_INVALID_VR_IN_STREAM;
  }
  // The length of a private group belongs to no block; every writer makes it anew.
  if (is_private(member.tag) && tag_element(member.tag) == 0) return kOk;
  TagObj* attribute = nullptr;
  const bool is_creator = is_private_creator(member.tag);
  VX_STATUS status = is_creator               ? creator(target, member.tag, parts)
                     : is_private(member.tag) ? find_private(target, member.tag, vr, attribute)
                                              : find_standard(target, member.tag, vr, attribute);
  if (status != kOk) ++lost_;
  if (status != kOk || is_creator) return status;
  take_vr(target, *attribute, vr, vr_name);
  status = value(target, *attribute, parts, vr_name);
  if (vr != VX_VR_SQ && !is_stored(status, vr)) ++lost_;
  target.filled(*attribute);
  return status;
}

VX_STATUS JsonReader::value(FillTarget& target, TagObj& attribute, const std::size_t (&parts)[4],
                            std::string_view vr_name) {
  const int32_t vr = attribute.VR;
  if (vr == VX_VR_SQ) return items(target, attribute, parts[kValue]);
  int part = kInlineBinary;
  while (part <= kBulkDataUri && parts[part] == 0) ++part;
  const std::size_t value = part <= kBulkDataUri ? parts[part] : 0;
  if (value == 0 || is(value, JsonKind::Null)) return set_null(target.object, attribute);
  if (part == kValue && is_wide_integer(vr_name)) return wide_integers(target, attribute, vr_name, value);
  if (is_bulk_vr(vr)) {
    if (part != kInlineBinary || !is(value, JsonKind::String)) {
      VX_LOG_ERR(kFunction, "Attribute value 0x%8.8X doesn't contain Base64 encoded string", attribute.Tag);
      return VX_INCOMPATIBLE_VALUE;
    }
    std::string bytes = bytes_of_base64(target, attribute.Tag, string(value));
    return fill_bytes(target, attribute, bytes);
  }
  if (part == kValue) return values(target, attribute, value);
  if (!is(value, JsonKind::String) || is_text_vr(vr) != (part == kBulkDataUri)) return VX_INCOMPATIBLE_VALUE;
  if (!is_text_vr(vr)) return binary_numbers(target, attribute, string(value));
  VX_LOG_WARN(kFunction, "The value of attribute 0x%8.8X lies elsewhere; its URI is stored", attribute.Tag);
  return text(target, attribute, string(value), true);
}

VX_STATUS JsonReader::items(FillTarget& target, TagObj& attribute, std::size_t value) {
  bool first = true;
  VX_STATUS result = kOk;
  if (is(value, JsonKind::Array)) {
    for (auto place = text_.inside(value); text_.next(place); first = false) {
      if (target.depth >= kMaxNesting) {
        ++lost_;
        return VX_INVALID_VALUE_FOR_VR;
      }
      MsgObj* item = nullptr;
      VX_STATUS status = open_object(Kind::Item, kNoName, item);
      if (status != kOk) {
        VX_LOG_ERR(kFunction, "Failed to create a new Item for attribute '0x%8.8X': %s.", attribute.Tag,
                   status_text(status));
        ++lost_;
        return status;
      }
      const int32_t id = item->ID;
      status = set_value(target.object, attribute, VX_INT_TYPE, &id, first);
      if (status != kOk) {
        VX_LOG_ERR(kFunction, "Failed to add item '%d' to sequence attribute '0x%8.8X': %s.", id,
                   attribute.Tag, status_text(status));
        free_item(*item, true);
        ++lost_;
        return status;
      }
      FillTarget inner{*item, target.set, target.depth + 1, kFunction, &target};
      const std::size_t lost = lost_;
      const bool is_item = is(place.value, JsonKind::Object);
      status = is_item ? members(inner, place.value) : VX_INCOMPATIBLE_VALUE;
      if (!is_item) ++lost_;
      if (status != kOk) result = status;
      if (lost_ != lost) {
        VX_LOG_ERR(kFunction, "Failed to add item '%d' to sequence attribute '0x%8.8X': %s.", id,
                   attribute.Tag, status_text(status));
      }
    }
  } else if (value != 0 && !is(value, JsonKind::Null)) {
    VX_LOG_WARN(kFunction, "Sequence 0x%8.8X has no array of items, and is left empty", attribute.Tag);
  }
  return first ? set_null(target.object, attribute) : result;
}

VX_STATUS JsonReader::wide_integers(FillTarget& target, TagObj& attribute, std::string_view vr,
                                    std::size_t values) {
  if (!is(values, JsonKind::Array)) return VX_INCOMPATIBLE_VALUE;
  std::string bytes;
  for (auto place = text_.inside(values); text_.next(place);) {
    const bool number = is(place.value, JsonKind::Number);
    const VX_STATUS status =
        append_wide_integer(vr, number ? text_.number(place.value) : string(place.value), bytes);
    if (status != kOk) return status;
  }
  return fill_bytes(target, attribute, bytes);
}

// Little-endian numbers in Base64.
VX_STATUS JsonReader::binary_numbers(FillTarget& target, TagObj& attribute, std::string_view base64) {
  const std::string bytes = bytes_of_base64(target, attribute.Tag, base64);
  const std::size_t width = vr_width(attribute.VR);
  if (width == 0 || bytes.size() % width != 0) {
    VX_LOG_WARN(kFunction, "Bytes that make no whole number are left out of attribute 0x%8.8X",
                attribute.Tag);
  }
  if (width == 0 || bytes.size() < width) return set_null(target.object, attribute);
  const auto length = static_cast<uint32_t>(std::min<std::size_t>(bytes.size() / width * width, 0xFFFFFFF0U));
  clear_value(target.object, attribute, false, false);
  if (attribute.VR == VX_VR_AT) {  // one word each, not a pair of halves
    for (uint32_t at = 0; at < length; at += 4) {
      const uint32_t tag = load32(bytes.data() + at, false);
      const VX_STATUS status = set_value(target.object, attribute, VX_UINT_TYPE, &tag, at == 0);
      if (status != kOk) return status;
    }
    return kOk;
  }
  StoreFlags flags;
  flags.from_stream = true;
  return store_value(target.object, attribute, bytes.data(), length, flags);
}

VX_STATUS JsonReader::text(FillTarget& target, TagObj& attribute, std::string_view text, bool first) {
  if (text.find('\0') != std::string_view::npos) {
    ++lost_;
    return VX_INVALID_CHARS_IN_VALUE;
  }
  if (!standard_) text = unescape(text, plain_);
  return fill_text(target, attribute, text, first, bytes_);
}

VX_STATUS JsonReader::person(FillTarget& target, TagObj& attribute, std::size_t name, bool first) {
  static constexpr const char* kGroups[] = {"Alphabetic", "Ideographic", "Phonetic"};
  std::size_t groups[3] = {};
  pick(name, kGroups, groups);
  std::string all;
  std::size_t signs = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    if (!is(groups[i], JsonKind::String)) continue;
    for (; signs < i; ++signs) all += '=';
    const std::string_view group = string(groups[i]);
    if (i < 2 && group.find('=') != std::string_view::npos)
      VX_LOG_WARN(kFunction, "A group of a name of attribute 0x%8.8X makes more groups", attribute.Tag);
    all += group;
  }
  return text(target, attribute, all, first);
}

bool fits(int32_t vr, std::string_view whole) {
  const int bits = static_cast<int>(vr_width(vr)) * 8;
  const bool has_sign = vr == VX_VR_SS || vr == VX_VR_SL;
  int64_t value = 0;
  return read_number(whole, value) && value >= (has_sign ? -(int64_t{1} << (bits - 1)) : 0) &&
         value < int64_t{1} << (has_sign ? bits - 1 : bits);
}

// A number as a text that fits the VR.
VX_STATUS JsonReader::number(FillTarget& target, TagObj& attribute, std::string_view number, bool first) {
  constexpr std::size_t kDecimalString = 16;
  const int32_t vr = attribute.VR;
  char text[40];
  const bool whole = number.find_first_of(".eE") == std::string_view::npos;
  const bool as_it_is = whole || (is_text_vr(vr) && vr != VX_VR_IS && vr != VX_VR_DS) ||
                        (vr == VX_VR_DS && number.size() <= kDecimalString);
  if (!as_it_is) {
    double real = 0;
    const auto read = std::from_chars(number.data(), number.data() + number.size(), real);
    if (read.ec != std::errc{}) return VX_VALUE_OUT_OF_RANGE;
    auto end = std::to_chars(text, text + sizeof text, real);
    for (int digits = 15; vr == VX_VR_DS && digits > 0 && end.ptr > text + kDecimalString; --digits) {
      end = std::to_chars(text, text + sizeof text, real, std::chars_format::general, digits);
    }
    number = {text, static_cast<std::size_t>(end.ptr - text)};
    double again = real;
    std::from_chars(number.data(), number.data() + number.size(), again);
    if (again != real) {
      VX_LOG_WARN(kFunction, "A number of attribute 0x%8.8X is rounded to the 16 characters of a DS",
                  attribute.Tag);
    }
  }
  if (!is_text_vr(vr) && !fits(vr, number)) return VX_VALUE_OUT_OF_RANGE;
  CharsetCache* charsets = is_text_vr(vr) ? &target.charsets : nullptr;
  return set_text(target.object, attribute, number, first, charsets);
}

VX_STATUS JsonReader::element(FillTarget& target, TagObj& attribute, std::size_t value, bool first) {
  const JsonKind kind = text_.kind(value);
  const int32_t vr = attribute.VR;
  if (kind == JsonKind::Null) return fill_null(target, attribute, first);
  if (vr == VX_VR_PN)
    return kind == JsonKind::Object ? person(target, attribute, value, first) : VX_INCOMPATIBLE_VALUE;
  const bool is_number = kind == JsonKind::Number;
  const std::string_view content = is_number ? text_.number(value) : string(value);
  if (vr == VX_VR_FL || vr == VX_VR_FD) {
    return content.empty() ? fill_null(target, attribute, first)
                           : fill_real(target, attribute, content, first);
  }
  if (vr == VX_VR_AT && !is_number) return fill_tag(target, attribute, content, 16, first);
  if (vr == VX_VR_AT) {
    uint32_t tag = 0;
    if (!read_number(content, tag)) return VX_VALUE_OUT_OF_RANGE;
    return set_value(target.object, attribute, VX_UINT_TYPE, &tag, first);
  }
  if (is_number) return number(target, attribute, content, first);
  if (is_text_vr(vr)) return text(target, attribute, content, first);
  if (content.empty()) return fill_null(target, attribute, first);
  return set_text(target.object, attribute, content, first, nullptr);
}

VX_STATUS JsonReader::values(FillTarget& target, TagObj& attribute, std::size_t values) {
  if (!is(values, JsonKind::Array)) {
    VX_LOG_ERR(kFunction, "Incompatible JSON value type for attribute 0x%8.8X", attribute.Tag);
    return VX_INCOMPATIBLE_VALUE;
  }
  VX_STATUS result = kOk;
  bool first = true;
  for (auto place = text_.inside(values); text_.next(place);) {
    const JsonKind kind = text_.kind(place.value);
    const bool is_name = attribute.VR == VX_VR_PN;
    if (!is_name && kind != JsonKind::Null && kind != JsonKind::String && kind != JsonKind::Number) {
      VX_LOG_WARN(kFunction,
                  "A value of attribute 0x%8.8X is of a type that it can not have, and is passed over",
                  attribute.Tag);
      continue;
    }
    const VX_STATUS status = element(target, attribute, place.value, first);
    first = false;
    if (status == kOk) continue;
    if (!is_stored(status, attribute.VR)) ++lost_;
    result = status;
  }
  return first ? set_null(target.object, attribute) : result;
}

}  // namespace

VX_STATUS json_to_object(MsgObj& object, int32_t options, void* user, VX_TEXT_INPUT callback) {
  GatheredText gathered;
  TextInput input(object, user, callback);
  const VX_STATUS given = input.each([&](std::string_view block) {
    gathered.add(block);
    return true;
  });
  if (given != kOk) {
    VX_LOG_ERR(kFunction, "JsonCallback failed, unable to read JSON data");
    VX_LOG_ERR(kFunction, "JsonToMessage failed, unable to read JSON data");
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  const JsonText text(gathered.text());
  if (const JsonText::Fault& fault = text.fault(); fault.reason != nullptr) {
    VX_LOG_ERR(kFunction, "JsonToMessage failed, unable to read JSON data");
    VX_LOG_ERR(kFunction, "|   line %zu, column %zu: %s", fault.line, fault.column, fault.reason);
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  if (text.kind(text.top()) != JsonKind::Object) {
    VX_LOG_ERR(kFunction, "JsonToMessage failed, unable to parse JSON data");
    return VX_SYSTEM_ERROR;
  }
  const Guard guard(object.Semaphore);
  if (const VX_STATUS status = decode_all(object); status != kOk) return status;
  FillTarget target{object, text_set_of(object, TextSet{}), 0, kFunction};
  return JsonReader(text, options).members(target, text.top());
}

}  // namespace vx
