// vexal sr show --json. What the members of a node have no room for goes into "more", in the DICOM JSON
// Model, so that sr build makes the same data set again.
#include <jansson.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

#include "charset.h"
#include "json.h"
#include "names.h"
#include "sr_document.h"
#include "tag_path.h"
#include "text_forms.h"

namespace vexal {
namespace {

using Tags = std::initializer_list<uint32_t>;

// Told by keyword in front of the tree, apart from what the root's node tells.
bool is_head_text(uint32_t tag, VX_VR vr) {
  const bool content = tag == 0x0040A010 || tag == 0x0040A040 || tag == 0x0040A050;
  // A backslash does not part these.
  const bool one_text = vr == VX_VR_LT || vr == VX_VR_ST || vr == VX_VR_UT || vr == VX_VR_UR;
  return tag > 0x0002FFFF && vr <= VX_VR_UI && !content && !one_text && !tag_keyword(tag).empty();
}

// --- What the members of a node tell ---

// The only item of a sequence, -1 if there is none or more.
int32_t only_item(int32_t object, uint32_t tag) {
  const std::vector<int32_t> items = sequence_items(object, tag);
  return items.size() == 1 ? items[0] : -1;
}

// Calls visit(tag, vr, count) for each attribute.
template <typename Visit>
void for_each_attribute(int32_t object, Visit visit) {
  uint32_t tag = 0;
  VX_VR vr = 0;
  int32_t count = 0;
  for (VX_STATUS status = VX_Get_First_Attribute(object, &tag, &vr, &count); status == VX_NORMAL_COMPLETION;
       status = VX_Get_Next_Attribute(object, &tag, &vr, &count)) {
    visit(tag, vr, count);
  }
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

bool tells_code(const SrNode& node, uint32_t tag, const SrCode& code) {
  return !code.value.empty() && !code.scheme.empty() && !code.meaning.empty() &&
         holds_just(only_item(node.id, tag), {0x00080100, 0x00080102, 0x00080104});
}

bool tells_number(const SrNode& node) {
  const int32_t item = only_item(node.id, 0x0040A300);
  if (item < 0) return false;
  if (node.value.empty()) return holds_just(item, {});
  return holds_just(item, {0x004008EA, 0x0040A30A}) && !node.unit.empty() && !node.unit.scheme.empty() &&
         holds_just(only_item(item, 0x004008EA), {0x00080100, 0x00080102, 0x00080104});
}

bool tells_object(const SrNode& node) {
  const int32_t item = only_item(node.id, 0x00081199);
  if (item < 0 || node.sop_class.empty() || node.sop_instance.empty()) return false;
  std::size_t numbers = 0;
  bool good = true;
  for_each_attribute(item, [&](uint32_t tag, VX_VR, int32_t count) {
    if (tag == 0x00081160 || tag == 0x0040A0B0) {
      numbers = static_cast<std::size_t>(count);
    } else {
      good = good && count == 1 && (tag == 0x00081150 || tag == 0x00081155);
    }
  });
  return good && numbers == node.data.size();
}

bool tells_template(const SrNode& node) {
  const int32_t item = only_item(node.id, 0x0040A504);
  return holds_just(item, {0x00080105, 0x0040DB00}) && sr_text_of(item, 0x00080105) == "DCMR";
}

bool is_whole_region(const SrNode& node, std::size_t dimensions) {
  return sr_term(node.type, node.graphic) >= 0 && !node.data.empty() && node.data.size() % dimensions == 0;
}

bool tells_times(const SrNode& node) {
  return node.type >= SRH_TCOORD_D && node.type <= SRH_TCOORD_R && !node.data.empty() &&
         sr_term(node.type, node.graphic) >= 0;
}

// Whether the node's members tell all of an attribute. What makes the value of a node goes together: all of
// it is told, or none.
bool is_told(const SrNode& node, uint32_t tag, int32_t count) {
  switch (tag) {
    case 0x0040A730:  // the nodes below
      return true;
    case 0x0040A010:
      return node.relationship >= 0;
    case 0x0040A040:
      return !node.other_type.empty() || node.type >= 0;
    case 0x0040A043:
      return tells_code(node, tag, node.concept_name);
    case 0x0040A504:
      return node.type == SRH_CONTAINER && sr_term(node.type, node.graphic) >= 0 && tells_template(node);
    case 0x0040A050:
      return node.type == SRH_CONTAINER && sr_term(node.type, node.graphic) >= 0;
    case 0x0040A168:
      return node.type == SRH_CODE && tells_code(node, tag, node.code);
    case 0x0040A300:
      return node.type == SRH_NUM && tells_number(node);
    case 0x0040A301:
      return node.type == SRH_NUM && tells_number(node) && tells_code(node, tag, node.qualifier);
    case 0x00700022:
    case 0x00700023:
      return (node.type == SRH_SCOORD && is_whole_region(node, 2)) ||
             (node.type == SRH_SCOORD3D && is_whole_region(node, 3));
    case 0x30060024:
      return node.type == SRH_SCOORD3D && is_whole_region(node, 3) && !node.frame_of_reference.empty();
    case 0x0040A130:
      return tells_times(node);
    case 0x0040A13A:
    case 0x0040A138:
    case 0x0040A132:
      return tells_times(node) && node.type == sr_times_type(tag);
    case 0x00081199:
      return node.type >= SRH_COMPOSITE && node.type <= SRH_WAVEFORM && tells_object(node);
    case 0x0040DB73:
      return node.type == SRH_REFERENCE && !node.target.empty();
    default:
      return count <= 1 && tag == sr_text_tag(node.type);
  }
}

// --- More ---

json_t* to_json(int32_t object, int32_t options) {
  std::string text;
  TextSink sink{&text};
  if (VX_Message_To_Json(object, &sink, options, TextSink::take) != VX_NORMAL_COMPLETION)
    return json_object();
  json_t* found = json_loadb(text.data(), text.size(), 0, nullptr);
  return found != nullptr ? found : json_object();
}

void append_more(std::string& out, const SrNode& node, bool head) {
  struct Attribute {
    uint32_t tag;
    VX_VR vr;
    int32_t count;
  };
  std::vector<Attribute> all;  // first: a look at one attribute moves the walk
  for_each_attribute(node.id, [&](uint32_t tag, VX_VR vr, int32_t count) {
    if (tag > 0x0002FFFF && !(head && is_head_text(tag, vr))) all.push_back({tag, vr, count});
  });
  std::vector<uint32_t> tags;
  std::vector<uint32_t> sequences;
  for (const Attribute& attribute : all) {
    if (is_told(node, attribute.tag, attribute.count)) continue;
    (attribute.vr == VX_VR_SQ ? sequences : tags).push_back(attribute.tag);
  }
  if (tags.empty() && sequences.empty()) return;
  constexpr int32_t kAll = VX_JSON_STANDARD | VX_JSON_INCLUDE_BULK | VX_JSON_INCLUDE_PIXEL_DATA;
  json_t* more = json_object();
  char key[12];
  if (!tags.empty()) {
    json_t* texts = to_json(node.id, kAll | VX_JSON_EXCLUDE_SEQUENCES);
    for (const uint32_t tag : tags) {
      std::snprintf(key, sizeof key, "%08X", static_cast<unsigned>(tag));
      json_object_set(more, key, json_object_get(texts, key));
    }
    json_decref(texts);
  }
  for (const uint32_t tag : sequences) {
    std::snprintf(key, sizeof key, "%08X", static_cast<unsigned>(tag));
    json_t* items = json_array();
    for (const int32_t item : sequence_items(node.id, tag)) json_array_append_new(items, to_json(item, kAll));
    json_object_set_new(more, key, json_pack("{s:s, s:o}", "vr", "SQ", "Value", items));
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

void append_node(std::string& out, const SrNode& node) {
  out += "{\"location\": ";
  append_json(out, node.location);
  append_field(out, "relationship", sr_relationship_name(node.relationship));
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
  append_field(out, "target", node.target);
  if (!node.data.empty()) {
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
  append_more(out, node, node.depth == 0);
}

void append_attributes(std::string& out, const SrDocument& document) {
  std::vector<uint32_t> tags;
  for_each_attribute(document.id(), [&](uint32_t tag, VX_VR vr, int32_t) {
    if (is_head_text(tag, vr)) tags.push_back(tag);
  });
  bool first = true;
  for (const uint32_t tag : tags) {
    out += first ? "\n    " : ",\n    ";
    first = false;
    append_json(out, tag_keyword(tag));
    out += ": ";
    append_json(out, tag == kSpecificCharacterSet ? document.charset() : sr_texts_of(document.id(), tag));
  }
}

}  // namespace

void show_json(const SrDocument& document) {
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
    append_node(out, node);
    if (out.size() > 65536) {
      std::fwrite(out.data(), 1, out.size(), stdout);
      out.clear();
    }
  });
  for (; depth > 0; --depth) out += "}]";
  out += "}\n}\n";
  std::fwrite(out.data(), 1, out.size(), stdout);
}

}  // namespace vexal
