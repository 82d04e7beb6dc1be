#include "sr_document.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <span>

#include "base/object_values.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "files/charset.h"

namespace vexal {
namespace {

constexpr const char* kTypes[] = {"TEXT",      "CODE",  "NUM",      "DATETIME",  "DATE",   "TIME",
                                  "UIDREF",    "PNAME", "SCOORD",   "TCOORD",    "TCOORD", "TCOORD",
                                  "COMPOSITE", "IMAGE", "WAVEFORM", "CONTAINER", "",       "SCOORD3D"};
constexpr const char* kRelationships[] = {"CONTAINS",        "HAS OBS CONTEXT", "HAS ACQ CONTEXT",
                                          "HAS CONCEPT MOD", "HAS PROPERTIES",  "INFERRED FROM",
                                          "SELECTED FROM"};
constexpr const char* kSpatial[] = {"POINT",   "MULTIPOINT", "POLYLINE", "CIRCLE",
                                    "ELLIPSE", "POLYGON",    "ELLIPSOID"};
constexpr const char* kTemporal[] = {"POINT", "MULTIPOINT", "SEGMENT", "MULTISEGMENT", "BEGIN", "END"};
constexpr const char* kContinuity[] = {"SEPARATE", "CONTINUOUS"};

int32_t find(std::span<const char* const> terms, std::string_view text) {
  const auto found = std::find(terms.begin(), terms.end(), text);
  return found == terms.end() ? -1 : static_cast<int32_t>(found - terms.begin());
}

SrCode code_of(int32_t object, uint32_t tag) {
  const int32_t item = item_of(object, tag);
  if (item < 0) return {};
  SrCode code{text_of(item, tags::kCodeValue), text_of(item, tags::kCodingSchemeDesignator),
              text_of(item, tags::kCodeMeaning)};
  if (code.value.empty()) code.value = text_of(item, tags::kLongCodeValue);
  if (code.value.empty()) code.value = text_of(item, tags::kURNCodeValue);
  return code;
}

std::vector<std::string> values_of(int32_t object, uint32_t tag) {
  int32_t count = 0;
  std::vector<TextValue> values;
  std::vector<std::string> texts;
  if (VX_Get_Attribute_Info(object, tag, nullptr, &count) != VX_NORMAL_COMPLETION) return texts;
  read_texts(object, tag, count, false, values);
  texts.reserve(values.size());
  for (TextValue& value : values) texts.push_back(std::move(value.bytes));
  return texts;
}

// The shortest texts that read back as the same numbers.
std::vector<std::string> floats_of(int32_t object, uint32_t tag) {
  std::vector<std::string> values;
  float value = 0;
  for (VX_STATUS status = VX_Get_Value_To_Float(object, tag, &value); status == VX_NORMAL_COMPLETION;
       status = VX_Get_Next_Value_To_Float(object, tag, &value)) {
    char text[32];
    values.emplace_back(text, std::to_chars(text, text + sizeof text, value).ptr);
  }
  return values;
}

void read_number(SrNode& node) {
  const int32_t item = item_of(node.id, tags::kMeasuredValueSequence);
  if (item >= 0) {
    node.value = text_of(item, tags::kNumericValue);
    node.unit = code_of(item, tags::kMeasurementUnitsCodeSequence);
  }
  node.qualifier = code_of(node.id, tags::kNumericValueQualifierCodeSequence);
}

void read_object(SrNode& node) {
  const int32_t item = item_of(node.id, tags::kReferencedSOPSequence);
  if (item < 0) return;
  node.sop_class = text_of(item, tags::kReferencedSOPClassUID);
  node.sop_instance = text_of(item, tags::kReferencedSOPInstanceUID);
  if (node.type == SRH_IMAGE) node.data = values_of(item, tags::kReferencedFrameNumber);
  if (node.type == SRH_WAVEFORM) node.data = values_of(item, tags::kReferencedWaveformChannels);
}

void read_target(SrNode& node) {
  int32_t target = 0;
  char location[81];
  if (VX_SRH_Get_Reference(node.id, &target) == VX_NORMAL_COMPLETION &&
      VX_SR_Get_Location(target, sizeof location, location) == VX_NORMAL_COMPLETION) {
    node.target = location;
    VX_SRH_Get_NodeType(target, &node.target_type);
  }
}

void read_content(SrNode& node) {
  node.concept_name = code_of(node.id, tags::kConceptNameCodeSequence);
  if (const uint32_t tag = sr_text_tag(node.type); tag != 0) node.value = text_of(node.id, tag);
  switch (node.type) {
    case SRH_CODE:
      node.code = code_of(node.id, tags::kConceptCodeSequence);
      break;
    case SRH_NUM:
      read_number(node);
      break;
    case SRH_SCOORD3D:
      node.frame_of_reference = text_of(node.id, tags::kReferencedFrameOfReferenceUID);
      [[fallthrough]];
    case SRH_SCOORD:
      node.graphic = text_of(node.id, tags::kGraphicType);
      node.data = floats_of(node.id, tags::kGraphicData);
      break;
    case SRH_TCOORD_D:
    case SRH_TCOORD_O:
    case SRH_TCOORD_R:
      node.graphic = text_of(node.id, tags::kTemporalRangeType);
      node.data = values_of(node.id, sr_times_tag(node.type));
      break;
    case SRH_COMPOSITE:
    case SRH_IMAGE:
    case SRH_WAVEFORM:
      read_object(node);
      break;
    case SRH_CONTAINER:
      node.graphic = text_of(node.id, tags::kContinuityOfContent);
      node.template_id = text_of(item_of(node.id, tags::kContentTemplateSequence), tags::kTemplateIdentifier);
      break;
    case SRH_REFERENCE:
      read_target(node);
      break;
    default:
      if (node.type < 0) node.other_type = text_of(node.id, tags::kValueType);
  }
}

std::string join(const std::vector<std::string>& values, std::size_t in_group) {
  std::string text;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i != 0) text += i % in_group == 0 ? ' ' : ',';
    text += values[i];
  }
  return text;
}

}  // namespace

std::string sr_texts_of(int32_t object, uint32_t tag) {
  int32_t count = 0;
  std::vector<TextValue> values;
  if (VX_Get_Attribute_Info(object, tag, nullptr, &count) != VX_NORMAL_COMPLETION) return {};
  read_texts(object, tag, count, false, values);
  std::string text;
  for (const TextValue& value : values) {
    if (&value != &values.front()) text += '\\';
    text += value.bytes;
  }
  text.resize(text.find_last_not_of(' ') + 1);
  return text;
}

uint32_t sr_text_tag(int32_t type) {
  switch (type) {
    case SRH_TEXT:
      return tags::kTextValue;
    case SRH_DATETIME:
      return tags::kDateTime;
    case SRH_DATE:
      return tags::kDate;
    case SRH_TIME:
      return tags::kTime;
    case SRH_UIDREF:
      return tags::kUID;
    case SRH_PNAME:
      return tags::kPersonName;
    default:
      return 0;
  }
}

uint32_t sr_times_tag(int32_t type) {
  return type == SRH_TCOORD_D   ? tags::kReferencedDateTime
         : type == SRH_TCOORD_O ? tags::kReferencedTimeOffsets
                                : tags::kReferencedSamplePositions;
}

const char* sr_type_name(int32_t type) {
  return type < 0 || type >= static_cast<int32_t>(std::size(kTypes)) ? "" : kTypes[type];
}

const char* sr_relationship_name(int32_t relationship) {
  const bool known = relationship >= 0 && relationship < static_cast<int32_t>(std::size(kRelationships));
  return known ? kRelationships[relationship] : "";
}

int32_t sr_relationship(std::string_view name) {
  return find(kRelationships, name);
}

int32_t sr_term(int32_t type, std::string_view graphic) {
  if (type == SRH_CONTAINER) return find(kContinuity, graphic);
  return find(type == SRH_SCOORD || type == SRH_SCOORD3D ? std::span<const char* const>(kSpatial)
                                                         : std::span<const char* const>(kTemporal),
              graphic);
}

std::string sr_value_text(const SrNode& node) {
  switch (node.type) {
    case SRH_CODE:
      return node.code.meaning;
    case SRH_NUM:
      if (node.value.empty()) return node.qualifier.meaning;
      return node.unit.value.empty() ? node.value : node.value + " " + node.unit.value;
    case SRH_SCOORD:
      return node.graphic + " " + join(node.data, 2);
    case SRH_SCOORD3D:
      return node.graphic + " " + join(node.data, 3);
    case SRH_TCOORD_D:
    case SRH_TCOORD_O:
    case SRH_TCOORD_R:
      return node.graphic + " " + join(node.data, 1);
    case SRH_COMPOSITE:
    case SRH_IMAGE:
    case SRH_WAVEFORM:
      return node.data.empty() ? node.sop_instance : node.sop_instance + " [" + join(node.data, 1) + "]";
    case SRH_REFERENCE:
      return "-> " + (node.target.empty() ? "?" : node.target);
    default:
      return node.value;
  }
}

SrNode sr_read_node(int32_t id) {
  SrNode node;
  node.id = id;
  VX_SRH_Get_NodeType(id, &node.type);
  read_content(node);
  return node;
}

// The program shows one report and ends.
SrDocument::~SrDocument() {
  if (is_tree_) file_.abandon();
}

bool SrDocument::open(const std::string& path) {
  VX_STATUS status = file_.open(path, {.keep_values_out = false});
  if (status != VX_NORMAL_COMPLETION) {
    report(path, file_.problem());
    return false;
  }
  charset_ = sr_texts_of(file_.id(), tags::kSpecificCharacterSet);
  lost_text_ = make_utf8(file_) != 0;
  status = file_.become_message("SR", C_STORE_RQ);
  if (status == VX_NORMAL_COMPLETION) status = VX_Message_To_SR(file_.id());
  if (status != VX_NORMAL_COMPLETION) {
    report(path, VX_Error_Message(status));
    return false;
  }
  is_tree_ = true;
  if (text_of(file_.id(), tags::kValueType).empty()) {
    report(path, "it is no structured report: there is no (0040,A040) ValueType");
    return false;
  }
  return true;
}

void SrDocument::judge_text(const SrNode& node) const {
  for (const std::string* text :
       {&node.concept_name.value, &node.concept_name.meaning, &node.value, &node.code.value,
        &node.code.meaning, &node.unit.meaning, &node.qualifier.meaning}) {
    if (is_utf8(*text)) continue;
    report(file_.path(), node.location + ": \"" + *text + "\": no text in UTF-8");
    lost_text_ = true;
  }
}

void SrDocument::walk(const std::function<void(const std::vector<SrNode>& path)>& visit) const {
  SrNode root = sr_read_node(file_.id());
  root.location = "1";
  std::vector<SrNode> path;
  judge_text(root);
  path.push_back(std::move(root));
  visit(path);
  std::size_t places = 0;
  bool first = true;
  while (!path.empty()) {
    SrNode node;
    int32_t last = 0;
    (first ? VX_SRH_Get_First_Child : VX_SRH_Get_Next_Child)(path.back().id, &node.id, &node.relationship,
                                                             &node.type, &last);
    first = node.id != 0;
    if (node.id == 0) {
      path.pop_back();
      continue;
    }
    node.depth = static_cast<int>(path.size());
    node.place = ++places;
    node.parent = path.back().place;
    char location[81] = "";
    VX_SR_Get_Location(node.id, sizeof location, location);
    node.location = location;
    read_content(node);
    judge_text(node);
    path.push_back(std::move(node));
    visit(path);
  }
}

std::vector<SrNode> SrDocument::nodes() const {
  std::vector<SrNode> all;
  walk([&](const std::vector<SrNode>& path) { all.push_back(path.back()); });
  return all;
}

}  // namespace vexal
