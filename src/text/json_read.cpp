// JSON to objects: jansson parses, this maps its values onto attributes.
#include <jansson.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
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
#include "text/base64.h"
#include "text/json.h"
#include "text/utf8.h"

namespace vx {

namespace {

constexpr char kFunction[] = "VX_Json_To_Message";
constexpr uint32_t kSpecificCharacterSet = 0x00080005U;

struct Drop {
  void operator()(json_t* value) const { json_decref(value); }
};
using Document = std::unique_ptr<json_t, Drop>;

// The input function's blocks, handed to jansson as it asks.
struct Input {
  int32_t id;
  void* user;
  VX_TEXT_INPUT function;
  const char* data = nullptr;
  std::size_t left = 0;
  bool first = true;
  bool last = false;
};

std::size_t read_input(void* buffer, std::size_t size, void* user) {
  auto& input = *static_cast<Input*>(user);
  while (input.left == 0) {
    if (input.last) return 0;
    uint32_t given = 0;
    void* data = nullptr;
    int32_t last = 0;
    const VX_STATUS status = input.function(input.id, input.user, &given, &data, input.first ? 1 : 0, &last);
    if (status != VX_NORMAL_COMPLETION || (data == nullptr && given != 0)) {
      VX_LOG_ERR(kFunction, "JsonCallback failed, unable to read JSON data");
      return static_cast<std::size_t>(-1);
    }
    input.first = false;
    input.last = last != 0;
    input.data = static_cast<const char*>(data);
    input.left = given;
  }
  const std::size_t part = std::min(size, input.left);
  std::memcpy(buffer, input.data, part);
  input.data += part;
  input.left -= part;
  return part;
}

struct Member {
  uint32_t tag;
  const json_t* value;
};

// A key is eight hexadecimal digits.
bool read_tag(std::string_view key, uint32_t& tag) {
  if (key.size() != 8) return false;
  const auto result = std::from_chars(key.data(), key.data() + 8, tag, 16);
  return result.ec == std::errc{} && result.ptr == key.data() + 8;
}

std::string_view string_of(const json_t* value) {
  return json_is_string(value) ? std::string_view(json_string_value(value), json_string_length(value))
                               : std::string_view();
}

// The escapes that the toolkit's own form writes, undone.
std::string_view unescape(std::string_view text, std::string& work) {
  static constexpr struct {
    std::string_view name;
    char c;
  } kNames[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
  if (text.find('&') == std::string_view::npos) return text;
  std::string plain;
  plain.reserve(text.size());
  while (!text.empty()) {
    const auto* name = std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& row) {
      return text.substr(0, row.name.size()) == row.name;
    });
    if (name != std::end(kNames)) {
      plain += name->c;
      text.remove_prefix(name->name.size());
      continue;
    }
    int code = 0;
    if (text.size() >= 5 && text[0] == '&' && text[1] == '#' && text[4] == ';' &&
        std::from_chars(text.data() + 2, text.data() + 4, code).ptr == text.data() + 4 && code >= 1 &&
        code <= 31) {
      plain += static_cast<char>(code);
      text.remove_prefix(5);
      continue;
    }
    plain += text.front();
    text.remove_prefix(1);
  }
  work = std::move(plain);
  return work;
}

// What reading one object has at hand.
struct Target {
  MsgObj& object;
  TextSet set;
  int depth;
  CharsetCache charsets{};
  std::vector<std::pair<uint32_t, std::string>> creators{};  // by group and block of the document
};

class JsonReader {
 public:
  explicit JsonReader(int32_t options) : standard_((options & VX_JSON_STANDARD) != 0) {}
  VX_STATUS members(Target& target, const json_t* document);

 private:
  VX_STATUS member(Target& target, const Member& member);
  VX_STATUS creator(Target& target, const Member& member);
  VX_STATUS find_private(Target& target, uint32_t tag, int32_t vr, TagObj*& attribute);
  VX_STATUS find_standard(Target& target, uint32_t tag, int32_t vr, TagObj*& attribute);
  VX_STATUS items(Target& target, TagObj& attribute, const json_t* value);
  VX_STATUS bulk(Target& target, TagObj& attribute, const json_t* value);
  VX_STATUS wide_integers(Target& target, TagObj& attribute, const json_t* values);
  VX_STATUS values(Target& target, TagObj& attribute, const json_t* values);
  VX_STATUS person(Target& target, TagObj& attribute, const json_t* name, bool first);
  VX_STATUS element(Target& target, TagObj& attribute, const json_t* value, bool first);
  VX_STATUS numbers(Target& target, TagObj& attribute, std::string_view base64);
  VX_STATUS text(Target& target, TagObj& attribute, std::string_view text, bool first);

  const bool standard_;
  std::string work_;
  std::string bytes_;
};

VX_STATUS add_null(Target& target, TagObj& attribute, bool first) {
  return first ? set_null(target.object, attribute) : set_next_null(attribute);
}

VX_STATUS JsonReader::members(Target& target, const json_t* document) {
  std::vector<Member> members;
  members.reserve(json_object_size(document));
  VX_STATUS result = VX_NORMAL_COMPLETION;
  // The iteration of a constant object does not change it.
  auto* object = const_cast<json_t*>(document);
  for (void* at = json_object_iter(object); at != nullptr; at = json_object_iter_next(object, at)) {
    Member member{0, json_object_iter_value(at)};
    if (read_tag(json_object_iter_key(at), member.tag)) {
      members.push_back(member);
      continue;
    }
    VX_LOG_ERR(kFunction, "JsonToMessage failed to add attribute '%.64s': %s.", json_object_iter_key(at),
               status_text(VX_INVALID_TAG));
    result = VX_INVALID_TAG;
  }
  std::stable_sort(members.begin(), members.end(),
                   [](const Member& a, const Member& b) { return a.tag < b.tag; });
  for (const Member& one : members) {
    const VX_STATUS status = member(target, one);
    if (status == VX_NORMAL_COMPLETION) continue;
    VX_LOG_ERR(kFunction, "JsonToMessage failed to add attribute '0x%8.8X': %s.", one.tag,
               status_text(status));
    result = status;
  }
  return result;
}

VX_STATUS JsonReader::creator(Target& target, const Member& member) {
  const json_t* values = json_object_get(member.value, "Value");
  const json_t* first = json_array_get(values, 0);
  if (!json_is_string(first)) return VX_REQUIRED_VALUE_MISSING;
  std::string work;
  std::string_view code = string_of(first);
  if (!standard_) code = unescape(code, work);
  code = from_utf8(code, target.set, bytes_);
  if (code.empty() || code.size() >= kMaxCreatorCode || code.find('\0') != std::string_view::npos)
    return VX_REQUIRED_VALUE_MISSING;
  const std::string name(code);
  const VX_STATUS status =
      add_private_block(target.object, name, tag_group(member.tag), nullptr, member.tag, kFunction);
  if (status != VX_NORMAL_COMPLETION) {
    VX_LOG_ERR(kFunction, "Unable to add private creator (%.4X,%.4x) \"%s\": %s (ignoring)",
               tag_group(member.tag), tag_element(member.tag), name.c_str(), status_text(status));
    return status;
  }
  target.creators.emplace_back((member.tag & 0xFFFF0000U) | ((member.tag & 0xFFU) << 8), name);
  return VX_NORMAL_COMPLETION;
}

// The block that the document names may lie elsewhere in the object.
VX_STATUS JsonReader::find_private(Target& target, uint32_t tag, int32_t vr, TagObj*& attribute) {
  if (tag_element(tag) < 0x1000) return VX_INVALID_TAG;
  const auto known = std::find_if(target.creators.rbegin(), target.creators.rend(),
                                  [&](const auto& row) { return row.first == (tag & 0xFFFFFF00U); });
  const std::string code =
      known != target.creators.rend() ? known->second : std::string(creator_of(target.object, tag));
  if (code.empty()) {
    VX_LOG_ERR(kFunction, "Unable to add private attribute (%.4X,%.4X), error [%s]", tag_group(tag),
               tag_element(tag), status_text(VX_NOT_FOUND));
    return VX_NOT_FOUND;
  }
  const auto element = static_cast<uint8_t>(tag & 0xFFU);
  VX_STATUS status = add_private_attribute(target.object, code, tag_group(tag), element, vr);
  if (status != VX_NORMAL_COMPLETION && status != VX_TAG_ALREADY_EXISTS) {
    VX_LOG_ERR(kFunction, "Unable to add private attribute (%.4X,%.4x) \"%s\": %s (ignoring)", tag_group(tag),
               tag_element(tag), code.c_str(), status_text(status));
    return status;
  }
  uint32_t place = 0;
  status = private_tag(target.object, code, tag_group(tag), element, place);
  if (status != VX_NORMAL_COMPLETION) return status;
  attribute = find_tag(target.object, place);
  return attribute != nullptr ? VX_STATUS{VX_NORMAL_COMPLETION} : VX_STATUS{VX_INVALID_TAG};
}

VX_STATUS JsonReader::find_standard(Target& target, uint32_t tag, int32_t vr, TagObj*& attribute) {
  attribute = find_tag(target.object, tag);
  if (attribute != nullptr) return VX_NORMAL_COMPLETION;
  VX_STATUS status = add_standard_attribute(target.object, tag, &attribute);
  if (status == VX_INVALID_TAG) status = add_nonstandard_attribute(target.object, tag, vr, &attribute);
  if (status != VX_NORMAL_COMPLETION) {
    VX_LOG_ERR(kFunction, "Error adding tag (%4.4x,%4.4x): \"%s\"", tag_group(tag), tag_element(tag),
               status_text(status));
  } else if (attribute == nullptr) {
    return VX_SYSTEM_ERROR;
  }
  return status;
}

bool is_wide_integer(std::string_view vr) {
  return vr == "SV" || vr == "UV";
}

VX_STATUS JsonReader::member(Target& target, const Member& member) {
  const std::string_view letters = string_of(json_object_get(member.value, "vr"));
  int32_t vr = letters.size() == 2 ? vr_from_letters(letters[0], letters[1]) : -1;
  // The VRs of 64 bits have no code here: their bytes are kept.
  if (letters == "OV" || is_wide_integer(letters)) vr = VX_VR_UN;
  if (vr < 0) {
    VX_LOG_ERR(kFunction,
               "jsMessageCreateDcmAttribute failed to create DICOM attribute 0x%8.8X, error \"%s\"",
               member.tag, status_text(VX_INVALID_VR_IN_STREAM));
    return VX_INVALID_VR_IN_STREAM;
  }
  if (is_private_creator(member.tag)) return creator(target, member);
  TagObj* attribute = nullptr;
  VX_STATUS status = is_private(member.tag) ? find_private(target, member.tag, vr, attribute)
                                            : find_standard(target, member.tag, vr, attribute);
  if (status != VX_NORMAL_COMPLETION) return status;
  // What the document says of its values holds.
  if (attribute->VR != vr) {
    clear_value(target.object, *attribute, false, true);
    attribute->VR = vr;
  }
  if (vr == VX_VR_SQ) return items(target, *attribute, json_object_get(member.value, "Value"));
  for (const char* name : {"InlineBinary", "Value", "BulkDataURI"}) {
    const json_t* value = json_object_get(member.value, name);
    if (value == nullptr) continue;
    if (json_is_null(value)) break;
    if (is_wide_integer(letters) && std::strcmp(name, "Value") == 0)
      return wide_integers(target, *attribute, value);
    if (is_bulk_vr(vr)) {
      if (std::strcmp(name, "InlineBinary") == 0) return bulk(target, *attribute, value);
      VX_LOG_ERR(kFunction, "Attribute value 0x%8.8X doesn't contain Base64 encoded string", member.tag);
      return VX_INCOMPATIBLE_VALUE;
    }
    if (std::strcmp(name, "Value") == 0) {
      status = values(target, *attribute, value);
    } else if (!json_is_string(value) || (is_text_vr(vr) != (std::strcmp(name, "BulkDataURI") == 0))) {
      return VX_INCOMPATIBLE_VALUE;
    } else if (is_text_vr(vr)) {
      status = text(target, *attribute, string_of(value), true);
    } else {
      status = numbers(target, *attribute, string_of(value));
    }
    if (attribute->Tag == kSpecificCharacterSet) {
      target.set = text_set_of(target.object, target.set);
      target.charsets.known = false;
    }
    return status;
  }
  return set_null(target.object, *attribute);
}

VX_STATUS JsonReader::items(Target& target, TagObj& attribute, const json_t* value) {
  if (json_array_size(value) == 0) return set_null(target.object, attribute);
  if (target.depth >= kMaxNesting) return VX_INVALID_VALUE_FOR_VR;
  VX_STATUS result = VX_NORMAL_COMPLETION;
  for (std::size_t i = 0; i < json_array_size(value); ++i) {
    MsgObj* item = nullptr;
    VX_STATUS status = open_object(Kind::Item, kNoName, item);
    if (status != VX_NORMAL_COMPLETION) {
      VX_LOG_ERR(kFunction, "Failed to create a new Item for attribute '0x%8.8X': %s.", attribute.Tag,
                 status_text(status));
      return status;
    }
    const int32_t id = item->ID;
    status = set_value(target.object, attribute, VX_INT_TYPE, &id, i == 0);
    if (status != VX_NORMAL_COMPLETION) {
      VX_LOG_ERR(kFunction, "Failed to add item '%d' to sequence attribute '0x%8.8X': %s.", id, attribute.Tag,
                 status_text(status));
      free_item(*item, true);
      return status;
    }
    Target inner{*item, target.set, target.depth + 1};
    const json_t* element = json_array_get(value, i);
    result = json_is_object(element) ? members(inner, element) : VX_INCOMPATIBLE_VALUE;
    if (result != VX_NORMAL_COMPLETION) {
      VX_LOG_ERR(kFunction, "Failed to add item '%d' to sequence attribute '0x%8.8X': %s.", id, attribute.Tag,
                 status_text(result));
    }
  }
  return result;
}

std::string decode(std::string_view base64, uint32_t tag) {
  bool clean = true;
  std::string bytes = decode_base64(base64, clean);
  if (!clean) {
    VX_LOG_WARN(kFunction, "Characters that are no Base64 were passed over in attribute 0x%8.8X", tag);
  }
  return bytes;
}

VX_STATUS store_bulk(Target& target, TagObj& attribute, std::string& bytes) {
  if (bytes.empty()) return set_null(target.object, attribute);
  if (bytes.size() % 2 != 0) bytes += '\0';
  if (bytes.size() >= kUndefinedLength) return VX_VALUE_TOO_LARGE;
  const VX_STATUS status =
      value_from_buffer(target.object, attribute, bytes.data(), static_cast<uint32_t>(bytes.size()));
  if (status != VX_NORMAL_COMPLETION) {
    VX_LOG_ERR(kFunction, "Failed to set value for attribute 0x%8.8X, error \"%s\"", attribute.Tag,
               status_text(status));
  }
  return status;
}

VX_STATUS JsonReader::bulk(Target& target, TagObj& attribute, const json_t* value) {
  if (!json_is_string(value)) {
    VX_LOG_ERR(kFunction, "Attribute value 0x%8.8X doesn't contain Base64 encoded string", attribute.Tag);
    return VX_INCOMPATIBLE_VALUE;
  }
  std::string bytes = decode(string_of(value), attribute.Tag);
  if (std::endian::native == std::endian::big && vr_width(attribute.VR) > 1) {
    bytes.resize(bytes.size() / vr_width(attribute.VR) * vr_width(attribute.VR));
    copy_swapped(bytes.data(), bytes.data(), bytes.size(), vr_width(attribute.VR));
  }
  return store_bulk(target, attribute, bytes);
}

VX_STATUS JsonReader::wide_integers(Target& target, TagObj& attribute, const json_t* values) {
  if (!json_is_array(values)) return VX_INCOMPATIBLE_VALUE;
  std::string bytes;
  for (std::size_t i = 0; i < json_array_size(values); ++i) {
    const json_t* value = json_array_get(values, i);
    uint64_t number = 0;
    if (json_is_integer(value)) {
      number = static_cast<uint64_t>(json_integer_value(value));
    } else {
      const std::string_view digits = string_of(value);
      int64_t negative = 0;
      const char* end = digits.data() + digits.size();
      const bool minus = !digits.empty() && digits.front() == '-';
      const auto read =
          minus ? std::from_chars(digits.data(), end, negative) : std::from_chars(digits.data(), end, number);
      if (digits.empty() || read.ec != std::errc{} || read.ptr != end) return VX_INCOMPATIBLE_VALUE;
      if (minus) number = static_cast<uint64_t>(negative);
    }
    for (unsigned shift = 0; shift < 64; shift += 8) bytes += static_cast<char>((number >> shift) & 0xFFU);
  }
  return store_bulk(target, attribute, bytes);
}

// Little-endian numbers in Base64.
VX_STATUS JsonReader::numbers(Target& target, TagObj& attribute, std::string_view base64) {
  const std::string bytes = decode(base64, attribute.Tag);
  const std::size_t width = vr_width(attribute.VR);
  if (bytes.size() < width) return set_null(target.object, attribute);
  const auto length = static_cast<uint32_t>(std::min<std::size_t>(bytes.size() / width * width, 0xFFFFFFF0U));
  clear_value(target.object, attribute, false, false);
  StoreFlags flags;
  if (attribute.VR == VX_VR_AT) {  // one word each, not a pair of halves
    for (uint32_t at = 0; at < length; at += 4) {
      const uint32_t tag = load32(bytes.data() + at, false);
      const VX_STATUS status = set_value(target.object, attribute, VX_UINT_TYPE, &tag, at == 0);
      if (status != VX_NORMAL_COMPLETION) return status;
    }
    return VX_NORMAL_COMPLETION;
  }
  flags.from_stream = true;
  return store_value(target.object, attribute, bytes.data(), length, flags);
}

VX_STATUS JsonReader::text(Target& target, TagObj& attribute, std::string_view text, bool first) {
  if (text.find('\0') != std::string_view::npos) return VX_INVALID_CHARS_IN_VALUE;
  if (!standard_) text = unescape(text, work_);
  text = from_utf8(text, target.set, bytes_);
  if (text.empty()) return add_null(target, attribute, first);
  CharsetCache* charsets = attribute.Tag > kSpecificCharacterSet ? &target.charsets : nullptr;
  return set_text(target.object, attribute, text, first, charsets);
}

VX_STATUS JsonReader::person(Target& target, TagObj& attribute, const json_t* name, bool first) {
  std::string all;
  std::size_t groups = 0;
  std::size_t at = 0;
  for (const char* group : {"Alphabetic", "Ideographic", "Phonetic"}) {
    if (const json_t* value = json_object_get(name, group); json_is_string(value)) {
      for (; groups < at; ++groups) all += '=';
      all += string_of(value);
    }
    ++at;
  }
  return text(target, attribute, all, first);
}

// A number as a text that fits the VR.
std::string_view number_text(const json_t* value, int32_t vr, char (&text)[40]) {
  constexpr std::size_t kDecimalString = 16;
  std::to_chars_result end{};
  if (json_is_integer(value)) {
    end = std::to_chars(text, text + sizeof text, static_cast<int64_t>(json_integer_value(value)));
  } else {
    const double real = json_real_value(value);
    end = std::to_chars(text, text + sizeof text, real);
    for (int digits = 15; vr == VX_VR_DS && digits > 0 && end.ptr > text + kDecimalString; --digits) {
      end = std::to_chars(text, text + sizeof text, real, std::chars_format::general, digits);
    }
  }
  return {text, static_cast<std::size_t>(end.ptr - text)};
}

// FL and FD go in as what they are: denormal numbers, NaN and infinities too.
VX_STATUS set_real(Target& target, TagObj& attribute, const json_t* value, bool first) {
  double real = json_number_value(value);
  float narrow = static_cast<float>(std::abs(real) <= std::numeric_limits<float>::max() ? real : 0);
  bool fits = std::abs(real) <= std::numeric_limits<float>::max() || attribute.VR == VX_VR_FD;
  if (json_is_string(value)) {
    const std::string_view text = string_of(value);
    const char* end = text.data() + text.size();
    const auto read = attribute.VR == VX_VR_FL ? std::from_chars(text.data(), end, narrow)
                                               : std::from_chars(text.data(), end, real);
    if (read.ec == std::errc::invalid_argument || read.ptr != end) return VX_INVALID_VALUE_FOR_VR;
    fits = read.ec == std::errc{};
  }
  if (!fits) return VX_VALUE_OUT_OF_RANGE;
  return attribute.VR == VX_VR_FL ? set_value(target.object, attribute, VX_FLOAT_TYPE, &narrow, first)
                                  : set_value(target.object, attribute, VX_DOUBLE_TYPE, &real, first);
}

VX_STATUS JsonReader::element(Target& target, TagObj& attribute, const json_t* value, bool first) {
  if (json_is_null(value)) return add_null(target, attribute, first);
  if (attribute.VR == VX_VR_PN) {
    if (!json_is_object(value)) return VX_INCOMPATIBLE_VALUE;
    return person(target, attribute, value, first);
  }
  const bool real = attribute.VR == VX_VR_FL || attribute.VR == VX_VR_FD;
  if (json_is_string(value)) {
    std::string_view content = string_of(value);
    if (attribute.VR != VX_VR_AT) {
      if (is_text_vr(attribute.VR)) return text(target, attribute, content, first);
      if (content.empty()) return add_null(target, attribute, first);
      if (real) return set_real(target, attribute, value, first);
      return set_text(target.object, attribute, content, first, nullptr);
    }
    std::string digits(content);
    std::erase(digits, ',');
    uint32_t tag = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), tag, 16);
    if (digits.empty() || read.ec != std::errc{} || read.ptr != digits.data() + digits.size())
      return VX_INVALID_VALUE_FOR_VR;
    return set_value(target.object, attribute, VX_UINT_TYPE, &tag, first);
  }
  if (!json_is_number(value)) return VX_NORMAL_COMPLETION;
  if (real) return set_real(target, attribute, value, first);
  if (attribute.VR == VX_VR_AT) {
    const json_int_t number = json_integer_value(value);
    if (!json_is_integer(value) || number < 0 || number > 0xFFFFFFFFLL) return VX_VALUE_OUT_OF_RANGE;
    const auto tag = static_cast<uint32_t>(number);
    return set_value(target.object, attribute, VX_UINT_TYPE, &tag, first);
  }
  char scratch[40];
  CharsetCache* charsets = is_text_vr(attribute.VR) ? &target.charsets : nullptr;
  return set_text(target.object, attribute, number_text(value, attribute.VR, scratch), first, charsets);
}

VX_STATUS JsonReader::values(Target& target, TagObj& attribute, const json_t* values) {
  if (!json_is_array(values)) {
    VX_LOG_ERR(kFunction, "Incompatible JSON value type for attribute 0x%8.8X", attribute.Tag);
    return VX_INCOMPATIBLE_VALUE;
  }
  if (json_array_size(values) == 0) return set_null(target.object, attribute);
  VX_STATUS result = VX_NORMAL_COMPLETION;
  for (std::size_t i = 0; i < json_array_size(values); ++i) {
    const VX_STATUS status = element(target, attribute, json_array_get(values, i), i == 0);
    if (status != VX_NORMAL_COMPLETION) result = status;
  }
  return result;
}

}  // namespace

VX_STATUS json_to_object(MsgObj& object, int32_t options, void* user, VX_TEXT_INPUT callback) {
  Input input{object.ID, user, callback};
  json_error_t error;
  const Document document(json_load_callback(&read_input, &input, JSON_DECODE_ANY | JSON_ALLOW_NUL, &error));
  if (document == nullptr) {
    VX_LOG_ERR(kFunction, "JsonToMessage failed, unable to read JSON data");
    VX_LOG_ERR(kFunction, "|   line %d, column %d: %s", error.line, error.column, error.text);
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  if (!json_is_object(document.get())) {
    VX_LOG_ERR(kFunction, "JsonToMessage failed, unable to parse JSON data");
    return VX_SYSTEM_ERROR;
  }
  const Guard guard(object.Semaphore);
  if (const VX_STATUS status = decode_all(object); status != VX_NORMAL_COMPLETION) return status;
  Target target{object, text_set_of(object, TextSet{}), 0};
  return JsonReader(options).members(target, document.get());
}

}  // namespace vx
