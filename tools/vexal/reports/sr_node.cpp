#include "sr_node.h"

#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>

#include "base/names.h"
#include "base/printable.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/values.h"
#include "sr_document.h"
#include "sr_form.h"

namespace vexal {
namespace {

// --- "more" ---

// Text that the reader of JSON asks for.
struct JsonText {
  char* text;
  static VX_STATUS give(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
    char* text = static_cast<JsonText*>(user)->text;
    *size = static_cast<uint32_t>(std::strlen(text));
    *data = text;
    *last = 1;
    return VX_NORMAL_COMPLETION;
  }
};

// Whether all of an attribute has come into the object. Where private ones come to lie is not said.
bool has_come(int32_t id, const char* key, const json_t* attribute) {
  const auto tag = static_cast<uint32_t>(std::strtoul(key, nullptr, 16));
  if ((tag >> 16) % 2 != 0) return true;
  int32_t count = 0;
  const json_t* values = json_object_get(attribute, "Value");
  return VX_Get_Attribute_Info(id, tag, nullptr, &count) == VX_NORMAL_COMPLETION &&
         (json_array_size(values) == 0 || json_array_size(values) == static_cast<std::size_t>(count));
}

// What has no member of its own goes into the object as it stands, in the DICOM JSON Model.
std::string add_more(int32_t id, const json_t* more) {
  JsonText source{json_dumps(more, JSON_COMPACT)};
  if (source.text == nullptr) return "\"more\": out of memory";
  const MutedWarnings quiet(true);  // what stops it is told with the node's place
  const VX_STATUS status =
      VX_Json_To_Message_With_Options(id, &source, VX_JSON_STANDARD, guarded<JsonText::give>);
  std::free(source.text);
  // Values that break a rule of their VR are stored all the same, as they were in the report shown.
  const bool stored = status == VX_INVALID_VALUE_FOR_VR || status == VX_INVALID_CHARS_IN_VALUE;
  if (status != VX_NORMAL_COMPLETION && !stored) return std::string("\"more\": ") + VX_Error_Message(status);
  // The reader may name the set of its text; here the report as a whole does.
  if (json_object_get(more, "00080005") == nullptr) VX_Delete_Attribute(id, tags::kSpecificCharacterSet);
  const char* key = nullptr;
  json_t* attribute = nullptr;
  json_object_foreach(const_cast<json_t*>(more), key, attribute) {
    if (!has_come(id, key, attribute)) return "\"more\": not all of " + std::string(key) + " can be taken";
  }
  return {};
}

// --- Members ---

class Filler {
 public:
  Filler(int32_t id, const json_t* node) : id_(id), node_(node) {}

  std::string fill() {
    if (!sr_is_bare(node_) && !sr_is_reference(node_)) fill_content();
    if (error_.empty() && has("concept") && !sr_more_has(node_, tags::kConceptNameCodeSequence))
      code("concept", tags::kConceptNameCodeSequence);
    const json_t* more = json_object_get(node_, "more");
    if (error_.empty() && more != nullptr) error_ = add_more(id_, more);
    return error_;
  }

 private:
  bool has(const char* member) const { return json_object_get(node_, member) != nullptr; }
  std::string text(const char* member) const { return sr_member(node_, member); }

  void fail(const char* member, const std::string& why) {
    if (error_.empty()) error_ = std::string("\"") + member + "\": " + why;
  }

  void put(const char* member, int32_t object, uint32_t tag, const std::string& value, bool first = true) {
    if (value.empty()) return fail(member, "there is no " + describe_tag(tag));
    const auto set = first ? VX_Set_Value_From_String : VX_Set_Next_Value_From_String;
    const bool taken = set(object, tag, value.c_str()) == VX_NORMAL_COMPLETION;
    if ((taken && value.find('-') == std::string::npos) || sr_fits(tag, value)) return;
    fail(member, "\"" + shown(value.substr(0, 80)) + "\" is no value of " + describe_tag(tag));
  }

  int32_t open_item(const char* member) {
    int32_t item = -1;
    const VX_STATUS status = VX_Open_Empty_Item(&item);
    if (status != VX_NORMAL_COMPLETION) fail(member, VX_Error_Message(status));
    return item;
  }
  void put_item(const char* member, int32_t object, uint32_t tag, int32_t item) {
    const VX_STATUS status = VX_Set_Value_From_Int(object, tag, item);
    if (status != VX_NORMAL_COMPLETION) fail(member, VX_Error_Message(status));
  }

  void code(const char* member, uint32_t tag, int32_t object = -1) {
    const json_t* from = json_object_get(node_, member);
    const std::string value = sr_member(from, "code");
    const std::string scheme = sr_member(from, "scheme");
    const int32_t item = open_item(member);
    put(member, item, sr_code_tag(value), value);
    if (!scheme.empty() || sr_needs_scheme(value)) put(member, item, tags::kCodingSchemeDesignator, scheme);
    put(member, item, tags::kCodeMeaning, sr_member(from, "meaning"));
    put_item(member, object < 0 ? id_ : object, tag, item);
  }

  void fill_content() {
    const std::string type = text("type");
    VX_Set_Value_From_String(id_, tags::kValueType, type.c_str());
    for (const Row& row : kRows) {
      if (type == row.type) return (this->*row.fill)(row.tag);
    }
  }

  void value(uint32_t tag) { put("value", id_, tag, text("value")); }
  void coded(uint32_t tag) { code("code", tag); }

  void number(uint32_t tag) {
    if (has("qualifier") && !sr_more_has(node_, tags::kNumericValueQualifierCodeSequence))
      code("qualifier", tags::kNumericValueQualifierCodeSequence);
    if (!has("value")) {
      if (has("unit")) fail("unit", "there is no \"value\" of it");
      VX_Set_Value_To_NULL(id_, tag);
      return;
    }
    if (!has("unit")) return fail("value", "a number has a \"unit\"");
    const int32_t item = open_item("value");
    put("value", item, tags::kNumericValue, text("value"));
    code("unit", tags::kMeasurementUnitsCodeSequence, item);
    put_item("value", id_, tag, item);
  }

  // The terms of a type; the data, all of which fits.
  bool kind(int32_t type, uint32_t tag) {
    if (sr_term(type, text("kind")) < 0) {
      fail("kind", "\"" + shown(text("kind")) + "\" is none of this type");
      return false;
    }
    put("kind", id_, tag, text("kind"));
    return true;
  }
  bool data(int32_t type, std::vector<std::string>& texts) {
    texts = sr_data(node_);
    const std::string fault = sr_data_fault(type, texts);
    if (!fault.empty()) fail("data", fault);
    return fault.empty();
  }

  void region(int32_t type, uint32_t tag) {
    std::vector<std::string> texts;
    if (!kind(type, tags::kGraphicType) || !data(type, texts)) return;
    for (std::size_t i = 0; i < texts.size(); ++i) {
      float number = 0;
      sr_float(texts[i], number);
      (i == 0 ? VX_Set_Value_From_Float : VX_Set_Next_Value_From_Float)(id_, tag, number);
    }
  }
  void plane(uint32_t tag) { region(SRH_SCOORD, tag); }
  void space(uint32_t tag) {
    region(SRH_SCOORD3D, tag);
    put("frame_of_reference", id_, tags::kReferencedFrameOfReferenceUID, text("frame_of_reference"));
  }
  void times(uint32_t tag) {
    const std::string by = has("by") ? text("by") : "position";
    const int32_t type = by == "position"   ? SRH_TCOORD_R
                         : by == "offset"   ? SRH_TCOORD_O
                         : by == "datetime" ? SRH_TCOORD_D
                                            : -1;
    if (type < 0) return fail("by", "position, offset or datetime");
    std::vector<std::string> texts;
    if (!kind(type, tag) || !data(type, texts)) return;
    put_all("data", id_, sr_times_tag(type), texts);
  }
  void put_all(const char* member, int32_t object, uint32_t tag, const std::vector<std::string>& texts) {
    for (std::size_t i = 0; i < texts.size(); ++i) put(member, object, tag, texts[i], i == 0);
  }

  void object(int32_t type, uint32_t tag, uint32_t numbers) {
    const int32_t item = open_item("class");
    put("class", item, tags::kReferencedSOPClassUID, text("class"));
    put("instance", item, tags::kReferencedSOPInstanceUID, text("instance"));
    std::vector<std::string> texts;
    if (has("data") && data(type, texts)) put_all("data", item, numbers, texts);
    put_item("instance", id_, tag, item);
    if (has("study") != has("series")) fail("study", "it goes with \"series\"");
    if (has("study") && !sr_fits(tags::kStudyInstanceUID, text("study"))) fail("study", "it is no UID");
    if (has("series") && !sr_fits(tags::kSeriesInstanceUID, text("series"))) fail("series", "it is no UID");
  }
  void composite(uint32_t tag) { object(SRH_COMPOSITE, tag, 0); }
  void image(uint32_t tag) { object(SRH_IMAGE, tag, tags::kReferencedFrameNumber); }
  void waveform(uint32_t tag) { object(SRH_WAVEFORM, tag, tags::kReferencedWaveformChannels); }

  void container(uint32_t tag) {
    if (has("kind")) {
      kind(SRH_CONTAINER, tag);
    } else {
      put("kind", id_, tag, "SEPARATE");
    }
    if (!has("template") || sr_more_has(node_, tags::kContentTemplateSequence)) return;
    const int32_t item = open_item("template");
    put("template", item, tags::kMappingResource, "DCMR");
    put("template", item, tags::kTemplateIdentifier, text("template"));
    put_item("template", id_, tags::kContentTemplateSequence, item);
  }

  struct Row {
    const char* type;
    void (Filler::*fill)(uint32_t tag);
    uint32_t tag;
  };
  static const Row kRows[15];

  const int32_t id_;
  const json_t* node_;
  std::string error_;
};

const Filler::Row Filler::kRows[15] = {
    {"TEXT", &Filler::value, tags::kTextValue},
    {"CODE", &Filler::coded, tags::kConceptCodeSequence},
    {"NUM", &Filler::number, tags::kMeasuredValueSequence},
    {"DATETIME", &Filler::value, tags::kDateTime},
    {"DATE", &Filler::value, tags::kDate},
    {"TIME", &Filler::value, tags::kTime},
    {"UIDREF", &Filler::value, tags::kUID},
    {"PNAME", &Filler::value, tags::kPersonName},
    {"SCOORD", &Filler::plane, tags::kGraphicData},
    {"SCOORD3D", &Filler::space, tags::kGraphicData},
    {"TCOORD", &Filler::times, tags::kTemporalRangeType},
    {"COMPOSITE", &Filler::composite, tags::kReferencedSOPSequence},
    {"IMAGE", &Filler::image, tags::kReferencedSOPSequence},
    {"WAVEFORM", &Filler::waveform, tags::kReferencedSOPSequence},
    {"CONTAINER", &Filler::container, tags::kContinuityOfContent},
};

// --- Members beside "more" ---

std::string without_padding(std::string text) {
  text.resize(text.find_last_not_of(' ') + 1);
  return text;
}

bool is_same(const json_t* asked, const json_t* there) {
  if (json_is_array(asked)) {
    bool same = json_array_size(asked) == json_array_size(there);
    for (std::size_t i = 0; same && i < json_array_size(asked); ++i)
      same = is_same(json_array_get(asked, i), json_array_get(there, i));
    return same;
  }
  if (json_is_object(asked)) {
    const char* key = nullptr;
    json_t* value = nullptr;
    json_object_foreach(const_cast<json_t*>(asked), key, value) {
      if (!is_same(value, json_object_get(there, key))) return false;
    }
    return true;
  }
  const std::string one = without_padding(sr_scalar(asked));
  const std::string other = without_padding(sr_scalar(there));
  float number = 0;
  float of_other = 0;
  return one == other || (sr_float(one, number) && sr_float(other, of_other) && number == of_other);
}

// --- Evidence ---

std::set<std::string> instances_of_evidence(int32_t root) {
  std::set<std::string> found;
  for (const uint32_t tag :
       {tags::kCurrentRequestedProcedureEvidenceSequence, tags::kPertinentOtherEvidenceSequence}) {
    for (const int32_t study : sequence_items(root, tag)) {
      for (const int32_t series : sequence_items(study, tags::kReferencedSeriesSequence)) {
        for (const int32_t object : sequence_items(series, tags::kReferencedSOPSequence))
          found.insert(text_of(object, tags::kReferencedSOPInstanceUID));
      }
    }
  }
  return found;
}

int32_t append_item(int32_t object, uint32_t sequence) {
  int32_t item = -1;
  int32_t count = 0;
  VX_Open_Empty_Item(&item);
  VX_Get_Attribute_Info(object, sequence, nullptr, &count);
  (count == 0 ? VX_Set_Value_From_Int : VX_Set_Next_Value_From_Int)(object, sequence, item);
  return item;
}

// The item of a sequence that has a UID, made if there is none.
int32_t item_with(int32_t object, uint32_t sequence, uint32_t tag, const std::string& uid) {
  for (const int32_t item : sequence_items(object, sequence)) {
    if (text_of(item, tag) == uid) return item;
  }
  const int32_t item = append_item(object, sequence);
  VX_Set_Value_From_String(item, tag, uid.c_str());
  return item;
}

}  // namespace

std::string sr_fill_node(int32_t id, const json_t* node) {
  return Filler(id, node).fill();
}

std::string sr_check_repeated(int32_t id, const json_t* node) {
  if (json_object_get(node, "more") == nullptr) return {};
  const std::string text = sr_members(sr_read_node(id));
  json_t* there = json_loadb(text.data(), text.size(), 0, nullptr);
  std::string fault;
  constexpr const char* kRepeated[] = {
      "type",     "concept", "value",    "code", "unit", "qualifier",         "kind",
      "template", "class",   "instance", "by",   "data", "frame_of_reference"};
  for (const char* member : kRepeated) {
    const json_t* asked = json_object_get(node, member);
    const json_t* found = json_object_get(there, member);
    const bool by_default =
        std::strcmp(member, "by") == 0 && found == nullptr && sr_scalar(asked) == "position";
    if (asked == nullptr || by_default || is_same(asked, found)) continue;
    fault = std::string("\"") + member + "\": \"more\" says otherwise";
    break;
  }
  json_decref(there);
  return fault;
}

std::string sr_add_evidence(int32_t root, const std::vector<SrReferred>& objects, bool ask) {
  std::set<std::string> known = instances_of_evidence(root);
  for (const SrReferred& object : objects) {
    if (known.count(object.instance) != 0) continue;
    if (object.study.empty()) {
      if (!ask) continue;
      return "content " + object.location + ": nothing tells the study and the series of " +
             shown(object.instance) +
             ": \"study\" and \"series\" do, or (0040,A375) in \"more\" of the report";
    }
    const int32_t study = item_with(root, tags::kCurrentRequestedProcedureEvidenceSequence,
                                    tags::kStudyInstanceUID, object.study);
    const int32_t series =
        item_with(study, tags::kReferencedSeriesSequence, tags::kSeriesInstanceUID, object.series);
    const int32_t item = append_item(series, tags::kReferencedSOPSequence);
    VX_Set_Value_From_String(item, tags::kReferencedSOPClassUID, object.sop_class.c_str());
    VX_Set_Value_From_String(item, tags::kReferencedSOPInstanceUID, object.instance.c_str());
    known.insert(object.instance);
  }
  return {};
}

}  // namespace vexal
