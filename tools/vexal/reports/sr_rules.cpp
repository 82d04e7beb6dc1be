#include "sr_rules.h"

#include <algorithm>
#include <iterator>

#include "base/attributes.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "sr_form.h"

namespace vexal {

namespace {

// --- Relationships of the document classes (PS3.3 section A.35) ---

using Types = uint32_t;  // a bit for each value type

constexpr Types bit(int32_t type) {
  return 1U << static_cast<uint32_t>(type == SRH_TCOORD_O || type == SRH_TCOORD_R ? SRH_TCOORD_D : type);
}
constexpr Types kText = bit(SRH_TEXT);
constexpr Types kCode = bit(SRH_CODE);
constexpr Types kNum = bit(SRH_NUM);
constexpr Types kDateTime = bit(SRH_DATETIME);
constexpr Types kDate = bit(SRH_DATE);
constexpr Types kTime = bit(SRH_TIME);
constexpr Types kUidRef = bit(SRH_UIDREF);
constexpr Types kPName = bit(SRH_PNAME);
constexpr Types kScoord = bit(SRH_SCOORD);
constexpr Types kScoord3d = bit(SRH_SCOORD3D);
constexpr Types kTcoord = bit(SRH_TCOORD_D);
constexpr Types kComposite = bit(SRH_COMPOSITE);
constexpr Types kImage = bit(SRH_IMAGE);
constexpr Types kWaveform = bit(SRH_WAVEFORM);
constexpr Types kContainer = bit(SRH_CONTAINER);
constexpr Types kDates = kDateTime | kDate | kTime;
constexpr Types kObjects = kComposite | kImage | kWaveform;
constexpr Types kWords = kText | kCode | kDates | kUidRef | kPName;  // all that a person reads, but numbers
constexpr Types kFindings = kText | kCode | kNum;
constexpr Types kRegions = kScoord | kScoord3d | kTcoord;
constexpr Types kAny = 0xFFFFFFFF;

enum Way { kByValue = 1, kByReference = 2, kEither = 3 };

struct Row {
  int32_t relationship;
  Types sources;
  Types targets;
  Way way;
};

}  // namespace

struct SrClass {
  const char* uid;
  const char* name;
  const Row* rows;
  std::size_t count;
};

namespace {

// Text and codes qualify the concepts of all types.
constexpr Row kBasicText[] = {
    {SRH_CONTAINS, kContainer, kWords | kObjects | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kWords | kComposite | kContainer, kByValue},
    {SRH_HAS_ACQ_CONTEXT, kContainer | kObjects, kWords, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kText, kWords | kObjects, kByValue},
    {SRH_HAS_PROPERTIES, kPName, kWords, kByValue},
    {SRH_INFERRED_FROM, kText, kWords | kObjects, kByValue},
};
constexpr Row kEnhanced[] = {
    {SRH_CONTAINS, kContainer, kWords | kNum | kScoord | kTcoord | kObjects | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kWords | kNum | kComposite | kContainer, kByValue},
    {SRH_HAS_ACQ_CONTEXT, kContainer | kNum | kObjects, kWords | kNum, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings, kWords | kNum | kScoord | kTcoord | kObjects, kByValue},
    {SRH_HAS_PROPERTIES, kPName, kWords, kByValue},
    {SRH_INFERRED_FROM, kFindings, kWords | kNum | kScoord | kTcoord | kObjects, kByValue},
    {SRH_SELECTED_FROM, kScoord, kImage, kByValue},
    {SRH_SELECTED_FROM, kTcoord, kScoord | kImage | kWaveform, kByValue},
};
constexpr Row kComprehensive[] = {
    {SRH_CONTAINS, kContainer, kWords | kNum | kScoord | kTcoord | kObjects, kEither},
    {SRH_CONTAINS, kContainer, kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer | kFindings, kWords | kNum | kComposite, kEither},
    {SRH_HAS_ACQ_CONTEXT, kContainer | kNum | kObjects, kWords | kNum | kContainer, kEither},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings, kWords | kNum | kScoord | kTcoord | kObjects | kContainer, kEither},
    {SRH_HAS_PROPERTIES, kPName, kWords, kEither},
    {SRH_INFERRED_FROM, kFindings, kWords | kNum | kScoord | kTcoord | kObjects | kContainer, kEither},
    {SRH_SELECTED_FROM, kScoord, kImage, kEither},
    {SRH_SELECTED_FROM, kTcoord, kScoord | kImage | kWaveform, kEither},
};
constexpr Row kComprehensive3d[] = {
    {SRH_CONTAINS, kContainer, kWords | kNum | kRegions | kObjects, kEither},
    {SRH_CONTAINS, kContainer, kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer | kFindings, kWords | kNum | kComposite, kEither},
    {SRH_HAS_ACQ_CONTEXT, kContainer | kNum | kObjects, kWords | kNum | kContainer, kEither},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings, kWords | kNum | kRegions | kObjects | kContainer, kEither},
    {SRH_HAS_PROPERTIES, kPName, kWords, kEither},
    {SRH_INFERRED_FROM, kFindings, kWords | kNum | kRegions | kObjects | kContainer, kEither},
    {SRH_SELECTED_FROM, kScoord, kImage, kEither},
    {SRH_SELECTED_FROM, kTcoord, kScoord | kScoord3d | kImage | kWaveform, kEither},
};
constexpr Row kKeyObjects[] = {
    {SRH_CONTAINS, kContainer, kText | kObjects, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kText | kCode | kUidRef | kPName | kContainer, kByValue},
    {SRH_HAS_CONCEPT_MOD, kContainer, kCode, kByValue},
};
constexpr Types kCadContext = kText | kCode | kNum | kDate | kTime | kUidRef | kPName | kComposite;
constexpr Row kMammography[] = {
    {SRH_CONTAINS, kContainer, kText | kCode | kNum | kDate | kScoord | kImage | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer | kFindings, kCadContext, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kContainer, kByReference},
    {SRH_HAS_ACQ_CONTEXT, kImage, kText | kCode | kNum | kDate | kTime | kUidRef, kByValue},
    {SRH_HAS_CONCEPT_MOD, kContainer | kCode | kNum | kComposite, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings, kFindings | kDate | kUidRef | kScoord | kImage | kContainer, kEither},
    {SRH_INFERRED_FROM, kCode | kNum, kFindings | kScoord | kImage | kContainer, kEither},
    {SRH_SELECTED_FROM, kScoord, kImage, kEither},
};
constexpr Row kChest[] = {
    {SRH_CONTAINS, kContainer, kCode | kNum | kImage | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer | kFindings, kCadContext, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kContainer, kByReference},
    {SRH_HAS_ACQ_CONTEXT, kImage | kWaveform, kText | kCode | kNum | kDate | kTime, kByValue},
    {SRH_HAS_CONCEPT_MOD, kContainer | kCode | kNum | kComposite, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings,
     kFindings | kDate | kUidRef | kScoord | kTcoord | kImage | kWaveform | kContainer, kEither},
    {SRH_INFERRED_FROM, kCode | kNum, kFindings | kScoord | kTcoord | kImage | kWaveform | kContainer,
     kEither},
    {SRH_SELECTED_FROM, kScoord, kImage, kEither},
    {SRH_SELECTED_FROM, kTcoord, kScoord | kImage | kWaveform, kEither},
};
constexpr Row kColon[] = {
    {SRH_CONTAINS, kContainer, kCode | kNum | kDate | kTime | kUidRef | kImage | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer | kFindings, kCadContext, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kContainer, kByReference},
    {SRH_HAS_ACQ_CONTEXT, kImage, kText | kCode | kNum | kDate | kTime | kContainer, kEither},
    {SRH_HAS_CONCEPT_MOD, kContainer | kCode | kNum | kComposite, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings, kFindings | kDate | kUidRef | kScoord | kScoord3d | kImage | kContainer,
     kEither},
    {SRH_INFERRED_FROM, kCode | kNum, kFindings | kScoord | kScoord3d | kImage | kContainer, kEither},
    {SRH_SELECTED_FROM, kScoord, kImage, kEither},
};
constexpr Row kProcedureLog[] = {
    {SRH_CONTAINS, kContainer, kFindings | kPName | kObjects, kByValue},
    {SRH_HAS_OBS_CONTEXT, kAny, kFindings | kDateTime | kUidRef | kPName, kByValue},
    {SRH_HAS_ACQ_CONTEXT, kContainer | kObjects, kWords | kNum, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kAny & ~kContainer, kFindings | kDateTime | kUidRef | kPName, kByValue},
    {SRH_INFERRED_FROM, kFindings, kObjects, kByValue},
};
constexpr Types kDoseFacts = kText | kCode | kNum | kDateTime | kUidRef | kPName;
constexpr Row kXRayDose[] = {
    {SRH_CONTAINS, kContainer, kDoseFacts | kComposite | kImage | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kText | kCode | kDateTime | kUidRef | kPName | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kFindings, kDoseFacts | kComposite, kByValue},
    {SRH_HAS_ACQ_CONTEXT, kContainer | kComposite | kImage, kDoseFacts | kContainer, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings, kDoseFacts | kComposite | kImage | kContainer, kByValue},
    {SRH_HAS_PROPERTIES, kPName, kWords, kByValue},
    {SRH_INFERRED_FROM, kFindings, (kDoseFacts & ~kPName) | kComposite | kImage | kContainer, kByValue},
};
constexpr Row kTracerDose[] = {
    {SRH_CONTAINS, kContainer, kDoseFacts | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kFindings, kDoseFacts, kByValue},
    {SRH_HAS_ACQ_CONTEXT, kContainer, kDoseFacts | kContainer, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings | kPName, kDoseFacts | kContainer, kByValue},
    {SRH_INFERRED_FROM, kFindings, (kDoseFacts & ~kPName) | kContainer, kByValue},
};
constexpr Row kAdultEcho[] = {
    {SRH_CONTAINS, kContainer, kDoseFacts | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer | kFindings, kDoseFacts | kComposite, kByValue},
    {SRH_HAS_ACQ_CONTEXT, kContainer, kDoseFacts | kContainer, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings, kDoseFacts | kContainer, kByValue},
    {SRH_INFERRED_FROM, kFindings,
     (kDoseFacts & ~kPName) | kScoord | kTcoord | kImage | kWaveform | kContainer, kByValue},
    {SRH_SELECTED_FROM, kScoord, kImage, kByValue},
    {SRH_SELECTED_FROM, kTcoord, kWaveform, kByValue},
};
constexpr Row kImplantation[] = {
    {SRH_CONTAINS, kContainer, kFindings | kUidRef | kComposite | kImage | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kFindings | kDate | kUidRef | kPName | kComposite | kContainer,
     kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings | kUidRef | kComposite | kImage, kComposite, kByValue},
};
constexpr Row kAcquisition[] = {
    {SRH_CONTAINS, kContainer, kDoseFacts | kTime | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kWords | kNum | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kCode, kCode, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kCode, kFindings | kDateTime | kScoord3d, kByValue},
};
constexpr Row kPatientDose[] = {
    {SRH_CONTAINS, kContainer, kDoseFacts | kComposite | kImage | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer, kText | kCode | kDateTime | kUidRef | kPName | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kFindings | kComposite, kDoseFacts | kComposite, kByValue},
    {SRH_HAS_ACQ_CONTEXT, kContainer | kComposite | kImage, kDoseFacts | kContainer, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings | kComposite, kDoseFacts | kComposite | kImage | kContainer, kByValue},
    {SRH_HAS_PROPERTIES, kPName, kWords, kByValue},
    {SRH_INFERRED_FROM, kFindings, (kDoseFacts & ~kPName) | kComposite | kImage | kContainer, kByValue},
};
constexpr Types kAgentFacts = kDoseFacts | kDate;
constexpr Row kPlannedAgent[] = {
    {SRH_CONTAINS, kContainer, kAgentFacts | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer | kFindings, kAgentFacts, kByValue},
    {SRH_HAS_ACQ_CONTEXT, kContainer | kNum, kAgentFacts | kContainer, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings, kAgentFacts | kContainer, kByValue},
    {SRH_HAS_PROPERTIES, kPName, kAgentFacts & ~kNum, kByValue},
    {SRH_INFERRED_FROM, kFindings, kAgentFacts | kContainer, kByValue},
};
constexpr Row kPerformedAgent[] = {
    {SRH_CONTAINS, kContainer, kAgentFacts | kObjects | kContainer, kByValue},
    {SRH_HAS_OBS_CONTEXT, kContainer | kFindings, kAgentFacts | kComposite, kByValue},
    {SRH_HAS_ACQ_CONTEXT, kContainer | kNum | kObjects, kAgentFacts | kContainer, kByValue},
    {SRH_HAS_CONCEPT_MOD, kAny, kText | kCode, kByValue},
    {SRH_HAS_PROPERTIES, kFindings, kAgentFacts | kObjects | kContainer, kByValue},
    {SRH_HAS_PROPERTIES, kPName, kAgentFacts & ~kNum, kByValue},
    {SRH_INFERRED_FROM, kFindings, kAgentFacts | kObjects | kContainer, kByValue},
};

#define ROWS(table) table, std::size(table)
constexpr SrClass kClasses[] = {
    {"1.2.840.10008.5.1.4.1.1.88.11", "Basic Text SR", ROWS(kBasicText)},
    {"1.2.840.10008.5.1.4.1.1.88.22", "Enhanced SR", ROWS(kEnhanced)},
    {"1.2.840.10008.5.1.4.1.1.88.33", "Comprehensive SR", ROWS(kComprehensive)},
    {"1.2.840.10008.5.1.4.1.1.88.34", "Comprehensive 3D SR", ROWS(kComprehensive3d)},
    {"1.2.840.10008.5.1.4.1.1.88.40", "Procedure Log", ROWS(kProcedureLog)},
    {"1.2.840.10008.5.1.4.1.1.88.50", "Mammography CAD SR", ROWS(kMammography)},
    {"1.2.840.10008.5.1.4.1.1.88.59", "Key Object Selection Document", ROWS(kKeyObjects)},
    {"1.2.840.10008.5.1.4.1.1.88.65", "Chest CAD SR", ROWS(kChest)},
    {"1.2.840.10008.5.1.4.1.1.88.67", "X-Ray Radiation Dose SR", ROWS(kXRayDose)},
    {"1.2.840.10008.5.1.4.1.1.88.68", "Radiopharmaceutical Radiation Dose SR", ROWS(kTracerDose)},
    {"1.2.840.10008.5.1.4.1.1.88.69", "Colon CAD SR", ROWS(kColon)},
    {"1.2.840.10008.5.1.4.1.1.88.70", "Implantation Plan SR", ROWS(kImplantation)},
    {"1.2.840.10008.5.1.4.1.1.88.71", "Acquisition Context SR", ROWS(kAcquisition)},
    {"1.2.840.10008.5.1.4.1.1.88.72", "Simplified Adult Echo SR", ROWS(kAdultEcho)},
    {"1.2.840.10008.5.1.4.1.1.88.73", "Patient Radiation Dose SR", ROWS(kPatientDose)},
    {"1.2.840.10008.5.1.4.1.1.88.74", "Planned Imaging Agent Administration SR", ROWS(kPlannedAgent)},
    {"1.2.840.10008.5.1.4.1.1.88.75", "Performed Imaging Agent Administration SR", ROWS(kPerformedAgent)},
};
#undef ROWS

// "TEXT, CODE or NUM".
std::string names_of(Types types) {
  std::vector<std::string> names;
  for (int32_t type = SRH_TEXT; type <= SRH_SCOORD3D; ++type) {
    if (type == SRH_REFERENCE || type == SRH_TCOORD_O || type == SRH_TCOORD_R) continue;
    if ((types & bit(type)) != 0) names.emplace_back(sr_type_name(type));
  }
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i != 0) text += i + 1 == names.size() ? " or " : ", ";
    text += names[i];
  }
  return text;
}

// What stands in the way of a relationship, empty if nothing does.
std::string place_fault(const SrClass& document, const SrNode& parent, const SrNode& node) {
  if (parent.type < 0 || parent.type == SRH_REFERENCE || node.relationship < 0) return {};
  const bool reference = node.type == SRH_REFERENCE;
  const int32_t target = reference ? node.target_type : node.type;
  if (target < 0 || target == SRH_REFERENCE) return {};
  Types allowed = 0;
  const Way way = reference ? kByReference : kByValue;
  for (const Row* row = document.rows; row != document.rows + document.count; ++row) {
    if (row->relationship != node.relationship || (row->sources & bit(parent.type)) == 0) continue;
    if ((row->way & way) != 0) allowed |= row->targets;
  }
  if ((allowed & bit(target)) != 0) return {};
  std::string text = std::string("no ") + sr_type_name(parent.type) + " " +
                     sr_relationship_name(node.relationship) + " " + sr_type_name(target) +
                     (reference ? " by reference" : "") + " in a report of class " + document.name;
  if (allowed != 0) text += ", only " + names_of(allowed);
  return text;
}

// --- Content of the value types (PS3.3 sections C.17.3.2 and C.18) ---

class Faults {
 public:
  void need(bool good, const char* text) {
    if (!good) texts_.emplace_back(text);
  }
  void add(std::string text) {
    if (!text.empty()) texts_.push_back(std::move(text));
  }
  std::vector<std::string> take() { return std::move(texts_); }

 private:
  std::vector<std::string> texts_;
};

void check_name(const SrNode& node, Faults& faults) {
  const SrCode& name = node.concept_name;
  const bool may_lack = (node.type >= SRH_SCOORD && node.type != SRH_CONTAINER) ||
                        (node.type == SRH_CONTAINER && node.depth != 0);
  faults.need(!name.empty() || may_lack, "the concept name is missing");
  if (name.empty()) return;
  faults.need(!name.scheme.empty() || name.value.find(':') != std::string::npos,
              "the concept name has no coding scheme");
  faults.need(!name.meaning.empty(), "the concept name has no meaning");
}

// Numbers and times that are none.
void check_data(const SrNode& node, Faults& faults) {
  const std::string fault = sr_data_fault(node.type, node.data);
  if (!fault.empty()) faults.add("of the values, " + fault);
}

void check_number(const SrNode& node, Faults& faults) {
  const bool there = has_attribute(node.id, tags::kMeasuredValueSequence);
  faults.need(there, "(0040,A300) MeasuredValueSequence is missing");
  const std::size_t values = sequence_items(node.id, tags::kMeasuredValueSequence).size();
  if (values == 0) return;  // a number without value
  faults.need(values == 1, "there is more than one measured value");
  faults.need(!node.value.empty(), "the measured value has no (0040,A30A) NumericValue");
  faults.need(node.value.empty() || sr_fits(tags::kNumericValue, node.value),
              "the numeric value is no number");
  faults.need(!node.unit.value.empty(), "the number has no unit");
}

struct Graphic {
  int32_t type;
  const char* name;
  std::size_t least;  // points
  std::size_t most;   // 0: any number
};
constexpr Graphic kGraphics[] = {
    {SRH_SCOORD, "POINT", 1, 1},        {SRH_SCOORD, "MULTIPOINT", 1, 0},  {SRH_SCOORD, "POLYLINE", 1, 0},
    {SRH_SCOORD, "CIRCLE", 2, 2},       {SRH_SCOORD, "ELLIPSE", 4, 4},     {SRH_SCOORD3D, "POINT", 1, 1},
    {SRH_SCOORD3D, "MULTIPOINT", 1, 0}, {SRH_SCOORD3D, "POLYLINE", 1, 0},  {SRH_SCOORD3D, "POLYGON", 2, 0},
    {SRH_SCOORD3D, "ELLIPSE", 4, 4},    {SRH_SCOORD3D, "ELLIPSOID", 6, 6},
};

void check_region(const SrNode& node, std::size_t dimensions, Faults& faults) {
  if (node.graphic.empty() || node.data.empty() || node.data.size() % dimensions != 0) {
    faults.need(false, "the region is not whole");
    return;
  }
  check_data(node, faults);
  const auto* const row =
      std::find_if(std::begin(kGraphics), std::end(kGraphics), [&](const Graphic& candidate) {
        return candidate.type == node.type && node.graphic == candidate.name;
      });
  faults.need(row != std::end(kGraphics), "the graphic type is not known");
  if (row == std::end(kGraphics)) return;
  const std::size_t points = node.data.size() / dimensions;
  faults.need(points >= row->least && (row->most == 0 || points <= row->most),
              "the graphic type has another number of points");
}

void check_content(const SrNode& node, Faults& faults) {
  switch (node.type) {
    case SRH_TEXT:
    case SRH_DATETIME:
    case SRH_DATE:
    case SRH_TIME:
    case SRH_UIDREF:
    case SRH_PNAME:
      faults.need(!node.value.empty(), "there is no value");
      break;
    case SRH_CODE:
      faults.need(!node.code.value.empty(), "there is no code");
      break;
    case SRH_NUM:
      check_number(node, faults);
      break;
    case SRH_SCOORD:
      check_region(node, 2, faults);
      break;
    case SRH_SCOORD3D:
      check_region(node, 3, faults);
      faults.need(!node.frame_of_reference.empty(), "there is no frame of reference");
      break;
    case SRH_TCOORD_D:
    case SRH_TCOORD_O:
    case SRH_TCOORD_R:
      faults.need(!node.graphic.empty(), "there is no temporal range type");
      check_data(node, faults);
      break;
    case SRH_COMPOSITE:
    case SRH_IMAGE:
    case SRH_WAVEFORM:
      faults.need(!node.sop_class.empty() && !node.sop_instance.empty(),
                  "there is no reference to an object");
      if (!node.data.empty()) check_data(node, faults);
      break;
    case SRH_CONTAINER:
      faults.need(node.graphic == "SEPARATE" || node.graphic == "CONTINUOUS",
                  "the continuity is missing or not known");
      break;
    default:
      break;
  }
}

void check_reference(const std::vector<SrNode>& path, Faults& faults) {
  const SrNode& node = path.back();
  faults.need(!node.target.empty(), "the reference leads nowhere");
  // The target may be no ancestor: relationships by reference must not make loops.
  const bool loop = std::any_of(path.begin(), path.end() - 1, [&](const SrNode& above) {
    return !node.target.empty() && above.location == node.target;
  });
  faults.need(!loop, "the reference makes a loop");
}

}  // namespace

SrRules::SrRules(const std::string& sop_class)
    : class_(std::find_if(std::begin(kClasses), std::end(kClasses),
                          [&](const SrClass& row) { return sop_class == row.uid; })) {
  if (class_ == std::end(kClasses)) class_ = nullptr;
}

std::vector<std::string> SrRules::faults_of(const std::vector<SrNode>& path) const {
  const SrNode& node = path.back();
  const bool root = path.size() == 1;
  if (node.type < 0) return {"the value type is missing, not known or without values"};
  Faults faults;
  faults.need(root || node.relationship >= 0, "the relationship is missing or not known");
  faults.need(!root || node.type == SRH_CONTAINER, "the root is no CONTAINER");
  if (class_ != nullptr && !root) faults.add(place_fault(*class_, path[path.size() - 2], node));
  if (node.type == SRH_REFERENCE) {
    check_reference(path, faults);
    return faults.take();
  }
  check_name(node, faults);
  check_content(node, faults);
  return faults.take();
}

}  // namespace vexal
