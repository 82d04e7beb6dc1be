// vexal sr show --json. What the members of a node have no room for goes into "more", in the DICOM JSON
// Model, so that sr build makes the same data set again.
#include <jansson.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

#include "base/attributes.h"
#include "base/json.h"
#include "base/names.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/values.h"
#include "files/charset.h"
#include "forms/text_forms.h"
#include "sr_document.h"
#include "sr_form.h"

namespace vexal {
namespace {

using Tags = std::initializer_list<uint32_t>;

// --- What the members of a node tell ---

// The only item of a sequence, -1 if there is none or more.
int32_t only_item(int32_t object, uint32_t tag) {
  const std::vector<int32_t> items = sequence_items(object, tag);
  return items.size() == 1 ? items[0] : -1;
}

// Whether an item holds these attributes, each with one value, and no others.
bool holds_just(int32_t item, Tags tags) {
  std::size_t found = 0;
  bool good = item >= 0;
  if (!good) return false;
  for_each_attribute(item, [&](uint32_t tag, VX_VR, int32_t count) {
    ++found;
    good = good && count == 1 && std::find(tags.begin(), tags.end(), tag) != tags.end();
  });
  return good && found == tags.size();
}

bool tells_code(int32_t object, uint32_t tag, const SrCode& code) {
  const int32_t item = only_item(object, tag);
  const uint32_t value = sr_code_tag(code.value);
  if (!sr_fits(value, code.value) || !sr_fits(tags::kCodeMeaning, code.meaning)) return false;
  if (code.scheme.empty() && !sr_needs_scheme(code.value))
    return holds_just(item, {value, tags::kCodeMeaning});
  return sr_fits(tags::kCodingSchemeDesignator, code.scheme) &&
         holds_just(item, {value, tags::kCodingSchemeDesignator, tags::kCodeMeaning});
}

int32_t count_of(int32_t object, uint32_t tag) {
  int32_t count = -1;
  return VX_Get_Attribute_Info(object, tag, nullptr, &count) == VX_NORMAL_COMPLETION ? count : -1;
}

bool tells_number(const SrNode& node) {
  if (count_of(node.id, tags::kMeasuredValueSequence) >= 0 &&
      sequence_items(node.id, tags::kMeasuredValueSequence).empty())
    return true;
  const int32_t item = only_item(node.id, tags::kMeasuredValueSequence);
  return holds_just(item, {tags::kMeasurementUnitsCodeSequence, tags::kNumericValue}) &&
         sr_fits(tags::kNumericValue, node.value) &&
         tells_code(item, tags::kMeasurementUnitsCodeSequence, node.unit);
}

// All values of an attribute, which build takes.
bool tells_data(const SrNode& node, int32_t object, uint32_t tag) {
  return count_of(object, tag) == static_cast<int32_t>(node.data.size()) &&
         sr_data_fault(node.type, node.data).empty();
}

bool tells_object(const SrNode& node, uint32_t numbers) {
  const int32_t item = only_item(node.id, tags::kReferencedSOPSequence);
  if (item < 0 || !sr_fits(tags::kReferencedSOPClassUID, node.sop_class) ||
      !sr_fits(tags::kReferencedSOPInstanceUID, node.sop_instance))
    return false;
  if (node.data.empty())
    return holds_just(item, {tags::kReferencedSOPClassUID, tags::kReferencedSOPInstanceUID});
  std::size_t others = 0;
  for_each_attribute(item, [&](uint32_t tag, VX_VR, int32_t count) {
    others += tag != numbers && (count != 1 || (tag != tags::kReferencedSOPClassUID &&
                                                tag != tags::kReferencedSOPInstanceUID))
                  ? 1
                  : 0;
  });
  return others == 0 && tells_data(node, item, numbers);
}

bool tells_template(const SrNode& node) {
  const int32_t item = only_item(node.id, tags::kContentTemplateSequence);
  return holds_just(item, {tags::kMappingResource, tags::kTemplateIdentifier}) &&
         text_of(item, tags::kMappingResource) == "DCMR" &&
         sr_fits(tags::kTemplateIdentifier, node.template_id);
}

bool tells_kind(const SrNode& node, uint32_t tag) {
  return count_of(node.id, tag) == 1 && sr_term(node.type, node.graphic) >= 0;
}

// A way from the root, as numbers that lead to the node whose place is the target; and nothing else of a
// node.
bool tells_target(const SrNode& node) {
  std::string way = sr_texts_of(node.id, tags::kReferencedContentItemIdentifier);
  std::replace(way.begin(), way.end(), '\\', '.');
  return !way.empty() && way == node.target && node.concept_name.empty() &&
         count_of(node.id, tags::kContentSequence) <= 0;
}

// Whether the node's members tell all of what makes its value.
bool tells_value(const SrNode& node) {
  switch (node.type) {
    case SRH_CODE:
      return tells_code(node.id, tags::kConceptCodeSequence, node.code);
    case SRH_NUM:
      return tells_number(node);
    case SRH_SCOORD3D:
      if (count_of(node.id, tags::kReferencedFrameOfReferenceUID) != 1 ||
          !sr_fits(tags::kReferencedFrameOfReferenceUID, node.frame_of_reference))
        return false;
      [[fallthrough]];
    case SRH_SCOORD:
      return tells_kind(node, tags::kGraphicType) && tells_data(node, node.id, tags::kGraphicData);
    case SRH_TCOORD_D:
    case SRH_TCOORD_O:
    case SRH_TCOORD_R:
      return tells_kind(node, tags::kTemporalRangeType) && tells_data(node, node.id, sr_times_tag(node.type));
    case SRH_COMPOSITE:
      return tells_object(node, 0);
    case SRH_IMAGE:
      return tells_object(node, tags::kReferencedFrameNumber);
    case SRH_WAVEFORM:
      return tells_object(node, tags::kReferencedWaveformChannels);
    case SRH_CONTAINER:
      return tells_kind(node, tags::kContinuityOfContent);
    case SRH_REFERENCE:
      return tells_target(node);
    default: {
      const uint32_t tag = sr_text_tag(node.type);
      return tag != 0 && count_of(node.id, tag) == 1 && sr_fits(tag, node.value);
    }
  }
}

// What tells_value() judges, by type. A "more" that has one of them has all.
bool makes_value(const SrNode& node, uint32_t tag) {
  switch (node.type) {
    case SRH_CODE:
      return tag == tags::kConceptCodeSequence;
    case SRH_NUM:
      return tag == tags::kMeasuredValueSequence;
    case SRH_SCOORD3D:
      if (tag == tags::kReferencedFrameOfReferenceUID) return true;
      [[fallthrough]];
    case SRH_SCOORD:
      return tag == tags::kGraphicData || tag == tags::kGraphicType;
    case SRH_TCOORD_D:
    case SRH_TCOORD_O:
    case SRH_TCOORD_R:
      return tag == tags::kTemporalRangeType || tag == sr_times_tag(node.type);
    case SRH_COMPOSITE:
    case SRH_IMAGE:
    case SRH_WAVEFORM:
      return tag == tags::kReferencedSOPSequence;
    case SRH_CONTAINER:
      return tag == tags::kContinuityOfContent;
    case SRH_REFERENCE:
      return tag == tags::kReferencedContentItemIdentifier;
    default:
      return tag != 0 && tag == sr_text_tag(node.type);
  }
}

// Whether the node's members tell all of an attribute; of a bare node they only repeat what is in "more".
bool is_told(const SrNode& node, uint32_t tag, int32_t count, bool bare) {
  switch (tag) {
    case tags::kContentSequence:  // the nodes below
      return !sequence_items(node.id, tag).empty();
    case tags::kRelationshipType:
      return count == 1 && node.relationship >= 0;
    case tags::kValueType:
      return !bare;
    case tags::kConceptNameCodeSequence:
      return tells_code(node.id, tag, node.concept_name);
    case tags::kNumericValueQualifierCodeSequence:
      return node.type == SRH_NUM && !bare && tells_code(node.id, tag, node.qualifier);
    case tags::kContentTemplateSequence:
      return node.type == SRH_CONTAINER && !bare && tells_template(node);
    default:
      return !bare && makes_value(node, tag);
  }
}

// --- More ---

// Null where it can not be told.
json_t* to_json(int32_t object, int32_t options) {
  std::string text;
  TextSink sink{&text};
  if (VX_Message_To_Json(object, &sink, options, guarded<TextSink::take>) != VX_NORMAL_COMPLETION)
    return nullptr;
  return json_loadb(text.data(), text.size(), 0, nullptr);
}

bool is_told_in_head(const SrNode& node, uint32_t tag, VX_VR vr) {
  return node.depth == 0 && standard_vr(tag) == vr_letters(vr) && sr_is_head_text(tag, standard_vr(tag)) &&
         (tag == tags::kSpecificCharacterSet || sr_all_fit(tag, sr_texts_of(node.id, tag)));
}

// JSON has no bytes, only characters; those beyond ASCII where a character set counts alone.
bool has_odd_bytes(int32_t object, uint32_t tag, VX_VR vr) {
  if (!is_text_vr(vr)) return false;
  const std::string text = sr_texts_of(object, tag);
  return has_charset(vr) ? !is_utf8(text) : !is_ascii(text);
}

void append_more(std::string& out, const SrNode& node, std::vector<std::string>& lost) {
  const bool bare = !tells_value(node) || (node.depth != 0 && node.relationship < 0);
  struct Attribute {
    uint32_t tag;
    VX_VR vr;
    int32_t count;
  };
  std::vector<Attribute> all;  // first: a look at one attribute moves the walk
  for_each_attribute(node.id, [&](uint32_t tag, VX_VR vr, int32_t count) {
    if (tag > tags::kLastOfMeta) all.push_back({tag, vr, count});
  });
  std::vector<uint32_t> tags;
  std::vector<uint32_t> sequences;
  for (const Attribute& attribute : all) {
    if (is_told(node, attribute.tag, attribute.count, bare) ||
        is_told_in_head(node, attribute.tag, attribute.vr))
      continue;
    (attribute.vr == VX_VR_SQ ? sequences : tags).push_back(attribute.tag);
    if (has_odd_bytes(node.id, attribute.tag, attribute.vr))
      lost.push_back(node.location + " " + describe_tag(attribute.tag) + ": bytes that are no characters");
  }
  if (tags.empty() && sequences.empty()) {
    if (bare) out += ", \"more\": {}";  // a node without what makes its type
    return;
  }
  constexpr int32_t kAll = VX_JSON_STANDARD | VX_JSON_INCLUDE_BULK | VX_JSON_INCLUDE_PIXEL_DATA;
  json_t* more = json_object();
  if (!tags.empty()) {
    json_t* texts = to_json(node.id, kAll | VX_JSON_EXCLUDE_SEQUENCES);
    for (const uint32_t tag : tags) {
      const std::string key = tag_key(tag);
      if (json_object_set(more, key.c_str(), json_object_get(texts, key.c_str())) != 0)
        lost.push_back(node.location + " " + describe_tag(tag) + ": can not be told in JSON");
    }
    json_decref(texts);
  }
  for (const uint32_t tag : sequences) {
    json_t* items = json_array();
    for (const int32_t item : sequence_items(node.id, tag)) {
      if (json_array_append_new(items, to_json(item, kAll)) != 0)
        lost.push_back(node.location + " " + describe_tag(tag) + ": an item can not be told in JSON");
    }
    json_object_set_new(more, tag_key(tag).c_str(), json_pack("{s:s, s:o}", "vr", "SQ", "Value", items));
  }
  char* text = json_dumps(more, JSON_SORT_KEYS);
  if (text != nullptr) out += std::string(", \"more\": ") + text;
  std::free(text);
  json_decref(more);
}

// --- Nodes ---

void append_field(std::string& out, const char* name, std::string_view value) {
  if (value.empty()) return;
  out += ", \"";
  out += name;
  out += "\": ";
  append_json(out, value);
}

void append_code(std::string& out, const char* name, const SrCode& code) {
  if (code.empty()) return;
  out += ", \"";
  out += name;
  out += "\": {\"code\": ";
  append_json(out, code.value);
  out += ", \"scheme\": ";
  append_json(out, code.scheme);
  out += ", \"meaning\": ";
  append_json(out, code.meaning);
  out += '}';
}

// Each with a comma in front of it.
void append_members(std::string& out, const SrNode& node) {
  append_field(out, "type", node.type < 0 ? node.other_type.c_str() : sr_type_name(node.type));
  append_code(out, "concept", node.concept_name);
  append_field(out, "value", node.value);
  append_code(out, "code", node.code);
  append_code(out, "unit", node.unit);
  append_code(out, "qualifier", node.qualifier);
  append_field(out, "kind", node.graphic);
  append_field(out, "template", node.template_id);
  append_field(out, "class", node.sop_class);
  append_field(out, "instance", node.sop_instance);
  append_field(out, "frame_of_reference", node.frame_of_reference);
  if (node.data.empty()) return;
  // What kind of times these are is not in the type's text.
  if (node.type == SRH_TCOORD_D) out += ", \"by\": \"datetime\"";
  if (node.type == SRH_TCOORD_O) out += ", \"by\": \"offset\"";
  out += ", \"data\": [";
  for (std::size_t i = 0; i < node.data.size(); ++i) {
    if (i != 0) out += ", ";
    append_json(out, node.data[i]);
  }
  out += ']';
}

void append_node(std::string& out, const SrNode& node, std::vector<std::string>& lost) {
  out += "{\"location\": ";
  append_json(out, node.location);
  append_field(out, "relationship", sr_relationship_name(node.relationship));
  append_field(out, "target", node.target);
  append_members(out, node);
  append_more(out, node, lost);
}

void append_attributes(std::string& out, const SrDocument& document) {
  SrNode root;
  root.id = document.id();
  std::vector<uint32_t> tags;
  for_each_attribute(document.id(), [&](uint32_t tag, VX_VR vr, int32_t) {
    if (is_told_in_head(root, tag, vr)) tags.push_back(tag);
  });
  bool first = true;
  for (const uint32_t tag : tags) {
    out += first ? "\n    " : ",\n    ";
    first = false;
    append_json(out, tag_keyword(tag));
    out += ": ";
    append_json(out,
                tag == tags::kSpecificCharacterSet ? document.charset() : sr_texts_of(document.id(), tag));
  }
}

}  // namespace

std::string sr_members(const SrNode& node) {
  std::string out = "{";
  append_members(out, node);
  if (out.size() > 1) out.erase(1, 1);  // the comma
  return out + "}";
}

bool show_json(const SrDocument& document) {
  std::vector<std::string> lost;
  std::string out = "{\n  \"attributes\": {";
  append_attributes(out, document);
  out += "\n  },\n  \"report\": ";
  int depth = 0;
  document.walk([&](const std::vector<SrNode>& path) {
    const SrNode& node = path.back();
    if (node.depth > depth) out += ", \"content\": [";
    for (; depth > node.depth; --depth) out += "}]";
    if (node.depth != 0 && !out.ends_with('[')) out += "}, ";
    depth = node.depth;
    if (depth != 0) out += "\n    ";
    append_node(out, node, lost);
    if (out.size() > 65536) {
      std::fwrite(out.data(), 1, out.size(), stdout);
      out.clear();
    }
  });
  for (; depth > 0; --depth) out += "}]";
  out += "}\n}\n";
  std::fwrite(out.data(), 1, out.size(), stdout);
  for (const std::string& each : lost) report(document.path(), each);
  return lost.empty();
}

}  // namespace vexal
