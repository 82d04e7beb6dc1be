#include "sr/content.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

#include "model/attributes.h"
#include "model/convert.h"
#include "model/values.h"

namespace vx {
namespace {

constexpr const char* kRelationships[] = {"CONTAINS",        "HAS OBS CONTEXT", "HAS ACQ CONTEXT",
                                          "HAS CONCEPT MOD", "HAS PROPERTIES",  "INFERRED FROM",
                                          "SELECTED FROM"};
constexpr const char* kSpatialTypes[] = {"POINT",   "MULTIPOINT", "POLYLINE", "CIRCLE",
                                         "ELLIPSE", "POLYGON",    "ELLIPSOID"};
constexpr const char* kTemporalTypes[] = {"POINT", "MULTIPOINT", "SEGMENT", "MULTISEGMENT", "BEGIN", "END"};
constexpr const char* kContinuities[] = {"SEPARATE", "CONTINUOUS"};

// Value types by the number of the node type. Null: decided otherwise.
constexpr const char* kValueTypes[] = {"TEXT",      "CODE",  "NUM",      "DATETIME",  "DATE",   "TIME",
                                       "UIDREF",    "PNAME", "SCOORD",   "TCOORD",    "TCOORD", "TCOORD",
                                       "COMPOSITE", "IMAGE", "WAVEFORM", "CONTAINER", nullptr,  "SCOORD3D"};

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.remove_suffix(1);
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  return text;
}

int32_t find_term(Terms terms, std::string_view text) {
  const auto row = std::find_if(terms.begin(), terms.end(),
                                [&](const char* term) { return term != nullptr && text == term; });
  return row == terms.end() ? -1 : static_cast<int32_t>(row - terms.begin());
}

// Place of an item in a parent's content sequence, from 1; 0 where it is not.
int32_t place_in_sequence(MsgObj& parent, const MsgObj& item) {
  const TagObj* attribute = find_tag(parent, kContentSequence);
  if (attribute == nullptr) return 0;
  int32_t place = 1;
  for (const ValueObj* value = attribute->FirstValue; value != nullptr; value = value->Next, ++place) {
    if (value->Data == &item) return place;
  }
  return 0;
}

// The node at a place of the content sequence, or null. An item without a record, such as a reference, is
// none.
SrRecObj* node_at_place(const SrRecObj& parent, int32_t place) {
  const TagObj* attribute = find_tag(*parent.Object, kContentSequence);
  if (attribute == nullptr || attribute->VR != VX_VR_SQ || place < 1) return nullptr;
  const ValueObj* value = attribute->FirstValue;
  for (; value != nullptr && place > 1; --place) value = value->Next;
  if (value == nullptr || value->Data == nullptr) return nullptr;
  auto* node = static_cast<SrRecObj*>(static_cast<const MsgObj*>(value->Data)->ReportNode);
  return node != nullptr && node->Parent == &parent ? node : nullptr;
}

// The node of an item, or that of the item that holds it.
SrRecObj* nearest_node(int32_t id) {
  SrRecObj* node = find_node(id);
  if (node != nullptr) return node;
  const MsgObj* item = find_object(id);
  return item != nullptr ? find_node(item->ParentID) : nullptr;
}

VX_STATUS fill_reference(MsgObj& item, const SrRecObj& target) {
  std::vector<int32_t> places;
  for (const SrRecObj* at = &target; at->Parent != nullptr; at = at->Parent) {
    const int32_t place = place_in_sequence(*at->Parent->Object, *at->Object);
    if (place == 0) return VX_INVALID_SR_ID;
    places.push_back(place);
  }
  places.push_back(1);  // the root
  VX_STATUS status = kOk;
  for (auto place = places.rbegin(); place != places.rend() && status == kOk; ++place) {
    status = put_value(item, kContentPath, VX_INT_TYPE, &*place, place == places.rbegin());
  }
  return status;
}

}  // namespace

Terms relationship_terms() {
  return kRelationships;
}
Terms spatial_terms() {
  return kSpatialTypes;
}
Terms temporal_terms() {
  return kTemporalTypes;
}
Terms continuity_terms() {
  return kContinuities;
}

VX_STATUS put_value(MsgObj& object, uint32_t tag, VX_DATA_TYPE type, const void* value, bool first) {
  TagObj* attribute = nullptr;
  const VX_STATUS status = find_to_change(object, tag, attribute);
  return status == kOk ? set_value(object, *attribute, type, value, first) : status;
}

VX_STATUS put_text(MsgObj& object, uint32_t tag, const char* text, bool first) {
  return text != nullptr ? put_value(object, tag, VX_STRING_TYPE, text, first) : VX_NULL_POINTER_PARM;
}

VX_STATUS put_term(MsgObj& object, uint32_t tag, Terms terms, int32_t number) {
  if (number < 0 || static_cast<std::size_t>(number) >= terms.size()) return VX_VALUE_NOT_ALLOWED;
  return put_text(object, tag, terms[static_cast<std::size_t>(number)]);
}

VX_STATUS put_item(MsgObj& object, uint32_t tag, MsgObj& item) {
  TagObj* attribute = nullptr;
  const VX_STATUS status = find_to_change(object, tag, attribute);
  if (status != kOk) return status;
  clear_value(object, *attribute, false, true);
  return set_value(object, *attribute, VX_INT_TYPE, &item.ID, true);
}

VX_STATUS put_code(MsgObj& object, uint32_t tag, const char* item_name, const Code& code) {
  if (!is_complete(code)) return VX_NULL_POINTER_PARM;
  return put_new_item(object, tag, item_name, [&](MsgObj& item) {
    VX_STATUS status = put_text(item, 0x00080100, code.value);
    if (status == kOk) status = put_text(item, 0x00080102, code.scheme);
    return status == kOk ? put_text(item, 0x00080104, code.meaning) : status;
  });
}

VX_STATUS put_concept(MsgObj& object, const Code& code) {
  return put_code(object, kConceptName, "CONCEPT_NAME_CODE_SEQUENCE", code);
}

VX_STATUS put_continuity(MsgObj& object, int32_t continuity, const char* template_id) {
  const VX_STATUS status = put_term(object, kContinuity, kContinuities, continuity);
  if (status != kOk || template_id == nullptr) return status;
  return put_new_item(object, kTemplate, "TEMPLATE_IDENTIFICATION_MACRO", [&](MsgObj& item) {
    const VX_STATUS resource = put_text(item, kMappingResource, "DCMR");
    return resource == kOk ? put_text(item, kTemplateId, template_id) : resource;
  });
}

// The attributes of the item's type come as they are touched: a report of many nodes would else be mostly
// attributes without a value.
VX_STATUS open_content(const Code& concept_name, const char* value_type, MsgObj*& out) {
  VX_STATUS status = open_object(Kind::Item, "SR_CONTENT", out);
  if (status != kOk) return status;
  if (concept_name.value != nullptr) status = put_concept(*out, concept_name);
  if (status == kOk) status = put_text(*out, kValueType, value_type);
  if (status == kOk) return kOk;
  free_item(*out, false);
  out = nullptr;
  return status;
}

VX_STATUS link_child(int32_t parent, int32_t relationship, int32_t child) {
  const Guard lock(tree_lock());
  if (relationship < 0 || static_cast<std::size_t>(relationship) >= std::size(kRelationships)) {
    return VX_VALUE_NOT_ALLOWED;
  }
  if (child < 1) return VX_INVALID_ITEM_ID;
  if (find_node(parent) == nullptr) return VX_INVALID_SR_ID;
  MsgObj* item = find_object(child);
  if (item == nullptr) return VX_INVALID_SR_ID;
  if (item->ObjectKind != Kind::Item || item->ReportNode != nullptr) return VX_INVALID_ITEM_ID;
  const VX_STATUS status = put_term(*item, kRelationship, kRelationships, relationship);
  return status == kOk ? add_child(parent, child, true) : status;
}

VX_STATUS add_reference(int32_t parent_id, int32_t relationship, int32_t target_id) {
  const Guard lock(tree_lock());
  if (relationship < 0 || static_cast<std::size_t>(relationship) >= std::size(kRelationships)) {
    return VX_VALUE_NOT_ALLOWED;
  }
  const SrRecObj* target = find_node(target_id);
  const SrRecObj* parent = find_node(parent_id);
  if (target == nullptr || parent == nullptr) return VX_INVALID_SR_ID;
  MsgObj* item = nullptr;
  VX_STATUS status = open_object(Kind::Item, "SR_CONTENT", item);
  if (status != kOk) return status;
  status = put_term(*item, kRelationship, kRelationships, relationship);
  if (status == kOk) status = fill_reference(*item, *target);
  if (status == kOk) status = put_value(*parent->Object, kContentSequence, VX_INT_TYPE, &item->ID, false);
  if (status != kOk) free_item(*item, false);
  return status;
}

VX_STATUS read_text(int32_t id, uint32_t tag, bool first, int32_t size, char* buffer) {
  MsgObj* object = nullptr;
  TagObj* attribute = nullptr;
  if (buffer == nullptr) return VX_NULL_POINTER_PARM;
  if (size > 0) buffer[0] = '\0';
  const VX_STATUS status = find_attribute(id, tag, object, attribute);
  return status == kOk ? get_text(*attribute, first, size, buffer, true) : status;
}

VX_STATUS read_number(int32_t id, uint32_t tag, bool first, VX_DATA_TYPE type, void* value) {
  MsgObj* object = nullptr;
  TagObj* attribute = nullptr;
  const VX_STATUS status = find_attribute(id, tag, object, attribute);
  return status == kOk ? get_number(*attribute, first, type, value) : status;
}

void read_part(const MsgObj& object, uint32_t tag, int32_t size, char* buffer) {
  const VX_STATUS status = read_text(object.ID, tag, true, size, buffer);
  if (status != kOk && status != VX_BUFFER_TOO_SMALL && size > 0) buffer[0] = '\0';
}

VX_STATUS read_term(int32_t id, uint32_t tag, Terms terms, int32_t& number) {
  char text[100];
  const VX_STATUS status = read_text(id, tag, true, sizeof text, text);
  if (status != kOk) return status;
  number = find_term(terms, trim(text));
  return number < 0 ? VX_INCOMPATIBLE_VALUE : kOk;
}

VX_STATUS count_of(int32_t id, uint32_t tag, int32_t& count) {
  MsgObj* object = nullptr;
  TagObj* attribute = nullptr;
  const VX_STATUS status = find_attribute(id, tag, object, attribute);
  return status == kOk ? value_count(*attribute, count) : status;
}

int32_t count_or_none(int32_t id, uint32_t tag) {
  int32_t count = 0;
  return count_of(id, tag, count) == kOk ? count : 0;
}

VX_STATUS item_of(int32_t id, uint32_t tag, MsgObj*& item) {
  MsgObj* object = nullptr;
  TagObj* attribute = nullptr;
  VX_STATUS status = find_attribute(id, tag, object, attribute);
  if (status != kOk) return status;
  if (attribute->VR != VX_VR_SQ) return VX_INCOMPATIBLE_VR;  // a stream may say anything
  int32_t item_id = -1;
  status = get_number(*attribute, true, VX_INT_TYPE, &item_id);
  if (status != kOk) return status;
  item = find_object(item_id);
  return item != nullptr ? kOk : VX_INVALID_ITEM_ID;
}

VX_STATUS node_type(int32_t id, int32_t& type) {
  char text[100];
  const VX_STATUS status = read_text(id, kValueType, true, sizeof text, text);
  if (status == VX_INVALID_TAG || status == VX_EMPTY_VALUE || status == VX_NULL_VALUE) {
    if (read_text(id, kRelationship, true, sizeof text, text) != kOk) return status;
    type = SRH_REFERENCE;
    return kOk;
  }
  if (status != kOk) return status;
  int32_t found = find_term(kValueTypes, trim(text));
  if (found == SRH_TCOORD_D) {
    constexpr uint32_t kValues[] = {kDateTimes, kOffsets, kPositions};
    const auto* value = std::find_if(std::begin(kValues), std::end(kValues),
                                     [&](uint32_t tag) { return count_or_none(id, tag) > 0; });
    found = value == std::end(kValues) ? -1 : SRH_TCOORD_D + static_cast<int32_t>(value - kValues);
  }
  if (found < 0) return VX_INCOMPATIBLE_VALUE;
  type = found;
  return kOk;
}

VX_STATUS find_reference(int32_t id, int32_t& target) {
  target = 0;
  int32_t count = 0;
  VX_STATUS status = count_of(id, kContentPath, count);
  if (status == VX_INVALID_MESSAGE_ID) return status;
  if (status != kOk || count < 1) return VX_EMPTY_VALUE;
  const Guard lock(tree_lock());
  SrRecObj* node = nearest_node(id);
  if (node == nullptr) return VX_INVALID_SR_ID;
  node = &root_of(*node);
  int32_t place = 0;
  status = read_number(id, kContentPath, true, VX_INT_TYPE, &place);  // the root's
  for (int32_t i = 1; i < count && status == kOk; ++i) {
    status = read_number(id, kContentPath, false, VX_INT_TYPE, &place);
    if (status != kOk) break;
    node = node_at_place(*node, place);
    if (node == nullptr) return VX_VALUE_OUT_OF_RANGE;
  }
  if (status == kOk) target = node->Object->ID;
  return status;
}

}  // namespace vx
