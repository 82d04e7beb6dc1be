#include "sr_form.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "base/names.h"
#include "base/printable.h"
#include "base/tags.h"
#include "sr_document.h"

namespace vexal {
namespace {

// --- Members of nodes ---

enum Form { kString, kScalar, kCode, kList, kNodes, kObject };
constexpr const char* kForms[] = {
    "a text", "a text or a number", "a code", "a list of numbers or texts", "a list of nodes", "an object"};

struct MemberRow {
  const char* name;
  Form form;
};
constexpr MemberRow kMembers[] = {
    {"location", kString}, {"relationship", kString}, {"type", kString},   {"concept", kCode},
    {"value", kScalar},    {"code", kCode},           {"unit", kCode},     {"qualifier", kCode},
    {"kind", kString},     {"template", kString},     {"class", kString},  {"instance", kString},
    {"study", kString},    {"series", kString},       {"by", kString},     {"frame_of_reference", kString},
    {"target", kString},   {"data", kList},           {"content", kNodes}, {"more", kObject},
};

// Beside those that every node may have.
struct TypeRow {
  const char* type;
  const char* needed;
  const char* others;
};
constexpr TypeRow kTypeRows[] = {
    {"TEXT", "value", ""},
    {"CODE", "code", ""},
    {"NUM", "", "value unit qualifier"},
    {"DATETIME", "value", ""},
    {"DATE", "value", ""},
    {"TIME", "value", ""},
    {"UIDREF", "value", ""},
    {"PNAME", "value", ""},
    {"SCOORD", "kind data", ""},
    {"SCOORD3D", "kind data frame_of_reference", ""},
    {"TCOORD", "kind data", "by"},
    {"COMPOSITE", "class instance", "study series"},
    {"IMAGE", "class instance", "study series data"},
    {"WAVEFORM", "class instance", "study series data"},
    {"CONTAINER", "", "kind template"},
};
constexpr char kOfAll[] = "location relationship type concept content more";
constexpr char kOfReferences[] = "location relationship target more";

bool is_listed(std::string_view list, std::string_view name) {
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(' '), list.size());
    if (list.substr(0, end) == name) return true;
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return false;
}

std::string quoted(std::string_view name) {
  return '"' + shown(name) + '"';
}

bool is_scalar(const json_t* value) {
  return json_is_string(value) || json_is_number(value);
}

std::string code_form_fault(const json_t* code) {
  const char* key = nullptr;
  json_t* value = nullptr;
  json_object_foreach(const_cast<json_t*>(code), key, value) {
    if (!is_listed("code scheme meaning", key)) return ": unknown member " + quoted(key);
    if (!json_is_string(value)) return ": " + quoted(key) + " is no text";
  }
  return {};
}

std::string form_fault(const MemberRow& row, const json_t* value) {
  const std::string name = quoted(row.name);
  bool good = false;
  switch (row.form) {
    case kString:
      good = json_is_string(value);
      break;
    case kScalar:
      good = is_scalar(value);
      break;
    case kCode:
      if (json_is_object(value)) {
        const std::string fault = code_form_fault(value);
        return fault.empty() ? fault : name + fault;
      }
      break;
    case kList:
    case kNodes:
      good = json_is_array(value);
      for (std::size_t i = 0; good && i < json_array_size(value); ++i) {
        const json_t* each = json_array_get(value, i);
        if (row.form == kList ? !is_scalar(each) : !json_is_object(each))
          return name + ": element " + std::to_string(i + 1) + " is no " +
                 (row.form == kList ? "number or text" : "node");
      }
      break;
    case kObject:
      good = json_is_object(value);
  }
  return good ? std::string() : name + " is not " + kForms[row.form];
}

// --- "more": the DICOM JSON Model (PS3.18 annex F) ---

std::string more_fault(const json_t* more);

std::string attribute_fault(const char* key, const json_t* attribute) {
  const bool is_tag = std::strlen(key) == 8 && std::strspn(key, "0123456789ABCDEFabcdef") == 8;
  if (!is_tag) return quoted(key) + " is no tag of eight hexadecimal digits";
  if (!json_is_object(attribute)) return quoted(key) + " is no object";
  const char* member = nullptr;
  json_t* value = nullptr;
  json_object_foreach(const_cast<json_t*>(attribute), member, value) {
    if (!is_listed("vr Value InlineBinary", member))
      return quoted(key) + ": unknown member " + quoted(member);
  }
  const char* vr = json_string_value(json_object_get(attribute, "vr"));
  if (vr == nullptr || std::strlen(vr) != 2) return quoted(key) + " has no \"vr\"";
  const json_t* values = json_object_get(attribute, "Value");
  if (values != nullptr && !json_is_array(values)) return quoted(key) + ": \"Value\" is no list";
  for (std::size_t i = 0; std::strcmp(vr, "SQ") == 0 && i < json_array_size(values); ++i) {
    const std::string fault = more_fault(json_array_get(values, i));
    if (!fault.empty()) return quoted(key) + ", item " + std::to_string(i + 1) + ": " + fault;
  }
  return {};
}

std::string more_fault(const json_t* more) {
  if (!json_is_object(more)) return "is no object";
  const char* key = nullptr;
  json_t* attribute = nullptr;
  json_object_foreach(const_cast<json_t*>(more), key, attribute) {
    std::string fault = attribute_fault(key, attribute);
    if (!fault.empty()) return fault;
  }
  return {};
}

constexpr uint32_t kMostPositions = 0xFFFFFFFFU;
constexpr uint32_t kMostFrames = 0x7FFFFFFFU;
constexpr uint32_t kMostChannels = 0xFFFFU;

std::string number_fault(int32_t type, const std::string& text) {
  float coordinate = 0;
  uint64_t number = 0;
  switch (type) {
    case SRH_SCOORD:
    case SRH_SCOORD3D:
      return sr_float(text, coordinate) ? "" : "is no number of single precision";
    case SRH_TCOORD_D:
      return sr_fits(tags::kReferencedDateTime, text) ? "" : "is no date and time";
    case SRH_TCOORD_O:
      return sr_fits(tags::kReferencedTimeOffsets, text) ? "" : "is no number of up to 16 characters";
    case SRH_TCOORD_R:
      return sr_unsigned(text, kMostPositions, number) ? "" : "is no position from 0 to 4294967295";
    case SRH_IMAGE:
      return sr_unsigned(text, kMostFrames, number) && number > 0 ? "" : "is no frame from 1 to 2147483647";
    default:
      return sr_unsigned(text, kMostChannels, number) ? "" : "is no channel from 0 to 65535";
  }
}

}  // namespace

namespace {

// Most texts of a report: short, plain and of a few attributes. They need no library to be told good.
bool is_plain(uint32_t tag, const std::string& text) {
  constexpr std::pair<uint32_t, std::size_t> kMost[] = {{tags::kCodeValue, 16},
                                                        {tags::kCodingSchemeDesignator, 16},
                                                        {tags::kCodeMeaning, 64},
                                                        {tags::kTextValue, 65536}};
  const auto* const row =
      std::find_if(std::begin(kMost), std::end(kMost), [tag](const auto& each) { return each.first == tag; });
  return row != std::end(kMost) && text.size() <= row->second && !text.empty() && text.front() != ' ' &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < 0x7F && c != '\\'; });
}

}  // namespace

// Text beyond ASCII is judged by its characters: the object learns of its character set only when it is
// whole.
bool sr_fits(uint32_t tag, const std::string& text) {
  static const int32_t scratch = [] {
    int32_t id = -1;
    VX_Open_Empty_Item(&id);
    return id;
  }();
  if (text.empty()) return false;
  if (is_plain(tag, text)) return true;
  // The library's UR is one with an authority behind "//"; a URN has none.
  if (tag == tags::kURNCodeValue) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c > 0x20 && c < 0x7F; }) &&
           text.find_first_of("\"<>\\^`{|}") == std::string::npos;
  }
  // Nor is a date of an object a range of dates.
  const std::string_view vr = standard_vr(tag);
  if ((vr == "DA" || vr == "TM") && text.find('-') != std::string::npos) return false;
  const bool ascii =
      std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (!ascii && !is_listed("LO LT PN SH ST UC UT", vr)) return false;
  std::string plain;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = std::max<std::size_t>(utf8_length(std::string_view(text).substr(at)), 1);
    plain += length == 1 ? text[at] : 'x';
    at += length;
  }
  return VX_Set_Value_From_String(scratch, tag, plain.c_str()) == VX_NORMAL_COMPLETION;
}

bool sr_all_fit(uint32_t tag, const std::string& texts) {
  for (std::size_t from = 0; from <= texts.size();) {
    const std::size_t end = std::min(texts.find('\\', from), texts.size());
    if (end > from && !sr_fits(tag, texts.substr(from, end - from))) return false;
    from = end + 1;
  }
  return true;
}

uint32_t sr_code_tag(const std::string& code) {
  if (!sr_needs_scheme(code)) return tags::kURNCodeValue;
  const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80; };
  const auto continued = std::count_if(code.begin(), code.end(), continues);
  return code.size() - static_cast<std::size_t>(continued) > 16 ? tags::kLongCodeValue : tags::kCodeValue;
}

bool sr_needs_scheme(const std::string& code) {
  return !code.starts_with("urn:") && !code.starts_with("http://") && !code.starts_with("https://");
}

bool sr_float(const std::string& text, float& value) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end && std::isfinite(value);
}

bool sr_unsigned(const std::string& text, uint64_t most, uint64_t& value) {
  const char* start =
      text.data() + std::min(text.find_first_not_of(' '), text.size());  // an IS may be padded
  const char* end = text.data() + text.find_last_not_of(' ') + 1;
  const auto [stop, error] = std::from_chars(start, std::max(start, end), value);
  return error == std::errc() && stop == end && value <= most;
}

std::string sr_data_fault(int32_t type, const std::vector<std::string>& data) {
  for (std::size_t i = 0; i < data.size(); ++i) {
    const std::string fault = number_fault(type, data[i]);
    if (!fault.empty()) return "element " + std::to_string(i + 1) + ", " + quoted(data[i]) + ", " + fault;
  }
  if (type == SRH_IMAGE) return {};
  if (data.empty()) return type == SRH_WAVEFORM ? "" : "is empty";
  if (type == SRH_SCOORD && data.size() % 2 != 0) return "a point has two coordinates";
  if (type == SRH_SCOORD3D && data.size() % 3 != 0) return "a point has three coordinates";
  if (type == SRH_WAVEFORM && data.size() % 2 != 0) return "a channel is a pair of a group and its channel";
  return {};
}

bool sr_is_head_text(uint32_t tag, std::string_view vr) {
  const bool content =
      tag == tags::kRelationshipType || tag == tags::kValueType || tag == tags::kContinuityOfContent;
  return tag > tags::kLastOfMeta && !content && !tag_keyword(tag).empty() &&
         is_listed("AE AS CS DA DS DT IS LO PN SH TM UC UI", vr);
}

std::string sr_scalar(const json_t* value) {
  if (const char* text = json_string_value(value); text != nullptr) return text;
  if (json_is_integer(value)) return std::to_string(json_integer_value(value));
  if (!json_is_real(value)) return {};
  char digits[40];
  return {digits, std::to_chars(digits, digits + sizeof digits, json_real_value(value)).ptr};
}

std::string sr_member(const json_t* object, const char* name) {
  return sr_scalar(json_object_get(object, name));
}

std::vector<std::string> sr_data(const json_t* node) {
  const json_t* data = json_object_get(node, "data");
  std::vector<std::string> texts;
  texts.reserve(json_array_size(data));
  for (std::size_t i = 0; i < json_array_size(data); ++i) texts.push_back(sr_scalar(json_array_get(data, i)));
  return texts;
}

bool sr_more_has(const json_t* node, uint32_t tag) {
  const json_t* more = json_object_get(node, "more");
  return more != nullptr && json_object_get(more, tag_key(tag).c_str()) != nullptr;
}

bool sr_is_bare(const json_t* node) {
  if (sr_more_has(node, tags::kValueType)) return true;
  if (json_object_get(node, "type") != nullptr || json_object_get(node, "more") == nullptr) return false;
  return json_object_get(node, "target") == nullptr ||
         sr_more_has(node, tags::kReferencedContentItemIdentifier);
}

bool sr_is_reference(const json_t* node) {
  return json_object_get(node, "target") != nullptr && !sr_is_bare(node);
}

std::string sr_check_document(const json_t* document) {
  if (!json_is_object(document)) return "the document is no object";
  const char* key = nullptr;
  json_t* value = nullptr;
  json_object_foreach(const_cast<json_t*>(document), key, value) {
    if (!is_listed("attributes report", key)) return "unknown member " + quoted(key);
    if (!json_is_object(value)) return quoted(key) + " is no object";
  }
  if (json_object_get(document, "report") == nullptr) return "there is no \"report\"";
  json_object_foreach(json_object_get(document, "attributes"), key, value) {
    if (!json_is_string(value)) return "\"attributes\": " + quoted(key) + " is no text";
  }
  return {};
}

std::string sr_check_node(const json_t* node, bool root) {
  const char* key = nullptr;
  json_t* value = nullptr;
  json_object_foreach(const_cast<json_t*>(node), key, value) {
    const MemberRow* row =
        std::find_if(std::begin(kMembers), std::end(kMembers),
                     [key](const MemberRow& candidate) { return std::strcmp(candidate.name, key) == 0; });
    if (row == std::end(kMembers)) return "unknown member " + quoted(key);
    std::string fault = form_fault(*row, value);
    if (!fault.empty()) return fault;
  }
  const json_t* more = json_object_get(node, "more");
  std::string fault = more != nullptr ? more_fault(more) : std::string();
  if (!fault.empty()) return "\"more\": " + fault;
  if (sr_is_bare(node)) return {};
  const bool reference = sr_is_reference(node);
  const std::string type = sr_member(node, "type");
  const TypeRow* row = std::find_if(std::begin(kTypeRows), std::end(kTypeRows),
                                    [&type](const TypeRow& candidate) { return type == candidate.type; });
  if (!reference && row == std::end(kTypeRows))
    return json_object_get(node, "type") == nullptr ? "there is neither a \"type\" nor a \"target\""
                                                    : "\"type\": " + quoted(type) + " is none";
  if (root && (reference || type != "CONTAINER")) return "the root is a CONTAINER";
  json_object_foreach(const_cast<json_t*>(node), key, value) {
    const bool may =
        reference ? is_listed(kOfReferences, key)
                  : is_listed(kOfAll, key) || is_listed(row->needed, key) || is_listed(row->others, key);
    if (!may)
      return (reference ? std::string("a reference") : "a node of type " + type) + " has no " + quoted(key);
  }
  for (std::string_view needed = reference ? "" : row->needed; !needed.empty();) {
    const std::string name(needed.substr(0, needed.find(' ')));
    if (json_object_get(node, name.c_str()) == nullptr) return "there is no " + quoted(name);
    needed.remove_prefix(std::min(name.size() + 1, needed.size()));
  }
  if (type != "NUM" && json_is_number(json_object_get(node, "value"))) return "\"value\" is not a text";
  return {};
}

}  // namespace vexal
