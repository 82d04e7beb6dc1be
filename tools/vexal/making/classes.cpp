#include "classes.h"

#include <algorithm>
#include <ctime>
#include <iterator>

#include "base/attributes.h"
#include "base/uid.h"
#include "base/values.h"
#include "making.h"
#include "standard/rules.h"

namespace vexal {
namespace {

constexpr uint32_t kCapturedFrames = kTakesFrames | kSecondary;
constexpr uint32_t kSolid = kTakesDocument | kModel | kPlaced;

// The first one that takes a kind of input is its usual class. Those without a name are chosen by the frames.
constexpr ObjectClass kClasses[] = {
    {"secondary-capture", "1.2.840.10008.5.1.4.1.1.7", "OT", kTakesPicture | kSecondary},
    {"", "1.2.840.10008.5.1.4.1.1.7.2", "OT", kCapturedFrames},
    {"", "1.2.840.10008.5.1.4.1.1.7.3", "OT", kCapturedFrames},
    {"", "1.2.840.10008.5.1.4.1.1.7.4", "OT", kCapturedFrames},
    {"vl-photographic", "1.2.840.10008.5.1.4.1.1.77.1.4", "XC", kTakesPicture | kLight},
    {"vl-endoscopic", "1.2.840.10008.5.1.4.1.1.77.1.1", "ES", kTakesPicture | kLight},
    {"vl-microscopic", "1.2.840.10008.5.1.4.1.1.77.1.2", "GM", kTakesPicture | kLight},
    {"video-photographic", "1.2.840.10008.5.1.4.1.1.77.1.4.1", "XC", kTakesVideo | kLight},
    {"video-endoscopic", "1.2.840.10008.5.1.4.1.1.77.1.1.1", "ES", kTakesVideo | kLight},
    {"video-microscopic", "1.2.840.10008.5.1.4.1.1.77.1.2.1", "GM", kTakesVideo | kLight},
    {"pdf", "1.2.840.10008.5.1.4.1.1.104.1", "DOC", kTakesDocument | kPaper, InputKind::Pdf,
     "application/pdf"},
    {"cda", "1.2.840.10008.5.1.4.1.1.104.2", "DOC", kTakesDocument | kPaper, InputKind::Cda, "text/XML"},
    {"stl", "1.2.840.10008.5.1.4.1.1.104.3", "M3D", kSolid, InputKind::Stl, "model/stl"},
    {"obj", "1.2.840.10008.5.1.4.1.1.104.4", "M3D", kSolid, InputKind::Obj, "model/obj"},
    {"mtl", "1.2.840.10008.5.1.4.1.1.104.5", "M3D", kTakesDocument | kModel, InputKind::Mtl, "model/mtl"},
};
constexpr const ObjectClass& kByteFrames = kClasses[1];
constexpr const ObjectClass& kWordFrames = kClasses[2];
constexpr const ObjectClass& kColourFrames = kClasses[3];

// What objects have beside what their content says. A value in angle brackets is found when it is needed.
struct Row {
  uint32_t traits;  // one of them is enough; 0: all classes
  const char* path;
  const char* value;
};
constexpr char kThisUid[] = "<uid>";
constexpr char kToday[] = "<date>";
constexpr char kNow[] = "<time>";
constexpr char kVersion[] = "<version>";
constexpr Row kRows[] = {
    {0, "InstanceCreationDate", kToday},
    {0, "InstanceCreationTime", kNow},
    {0, "SOPInstanceUID", kThisUid},
    {0, "StudyInstanceUID", kThisUid},
    {0, "SeriesInstanceUID", kThisUid},
    {0, "SeriesNumber", "1"},
    {0, "InstanceNumber", "1"},
    {kTakesPicture | kTakesFrames | kTakesVideo, "Laterality", ""},
    {kSecondary, "ImageType", "DERIVED\\SECONDARY"},
    {kSecondary | kPaper, "ConversionType", "WSD"},
    {kSecondary, "DateOfSecondaryCapture", kToday},
    {kSecondary, "TimeOfSecondaryCapture", kNow},
    {kSecondary, "SecondaryCaptureDeviceManufacturer", "VexalKit"},
    {kSecondary, "SecondaryCaptureDeviceManufacturerModelName", "vexal make"},
    {kSecondary, "SecondaryCaptureDeviceSoftwareVersions", kVersion},
    {kTakesFrames | kPaper, "BurnedInAnnotation", "YES"},  // who it is of can be read, for all that is known
    {kLight, "ImageType", "ORIGINAL\\PRIMARY"},
    // As much as is known: some structure of a body.
    {kTakesVideo, "AnatomicRegionSequence[0].CodeValue", "123037004"},
    {kTakesVideo, "AnatomicRegionSequence[0].CodingSchemeDesignator", "SCT"},
    {kTakesVideo, "AnatomicRegionSequence[0].CodeMeaning", "Body structure"},
    {kModel, "BurnedInAnnotation", "NO"},
    {kModel, "Manufacturer", "VexalKit"},
    {kModel, "ManufacturerModelName", "vexal make"},
    {kModel, "DeviceSerialNumber", "0"},
    {kModel, "SoftwareVersions", kVersion},
    {kModel, "MeasurementUnitsCodeSequence[0].CodeValue", "mm"},
    {kModel, "MeasurementUnitsCodeSequence[0].CodingSchemeDesignator", "UCUM"},
    {kModel, "MeasurementUnitsCodeSequence[0].CodeMeaning", "mm"},
    {kPlaced, "FrameOfReferenceUID", kThisUid},
};

std::string time_text(const char* form) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, form, &parts)};
}

std::string value_of(const Row& row) {
  if (row.value == kThisUid) return new_uid();
  if (row.value == kToday) return time_text("%Y%m%d");
  if (row.value == kNow) return time_text("%H%M%S");
  if (row.value != kVersion) return row.value;
  const std::string version = VX_BUILD_VERSION;
  return version.substr(version.rfind(' ') + 1);
}

}  // namespace

const ObjectClass* find_class(const std::string& name) {
  const auto* row = std::find_if(std::begin(kClasses), std::end(kClasses),
                                 [&](const ObjectClass& c) { return *c.name != '\0' && name == c.name; });
  return row == std::end(kClasses) ? nullptr : row;
}

std::string class_names() {
  std::string names;
  for (const ObjectClass& row : kClasses) {
    if (*row.name != '\0') names += (names.empty() ? "" : ", ") + std::string(row.name);
  }
  return names;
}

const ObjectClass& usual_class(InputKind kind) {
  const uint32_t trait = is_picture(kind) ? kTakesPicture : is_document(kind) ? kTakesDocument : kTakesVideo;
  return *std::find_if(std::begin(kClasses), std::end(kClasses), [&](const ObjectClass& row) {
    return (row.traits & trait) != 0 && (trait != kTakesDocument || row.document == kind);
  });
}

const ObjectClass* class_of_frames(const Still& still) {
  if (still.samples == 3) return still.allocated == 8 ? &kColourFrames : nullptr;
  if (still.is_signed || still.photometric != "MONOCHROME2") return nullptr;
  if (still.allocated == 16) return still.stored > 8 ? &kWordFrames : nullptr;
  return still.stored == 8 ? &kByteFrames : nullptr;
}

std::string fill_class(int32_t object, const ObjectClass& row) {
  for (const Row& r : kRows) {
    if (r.traits != 0 && (r.traits & row.traits) == 0) continue;
    if (std::string problem = give(object, r.path, value_of(r)); !problem.empty()) return problem;
  }
  if (std::string problem = give(object, "Modality", row.modality); !problem.empty()) return problem;
  for (const RuleObj& rule : rules_of(service_of_class(row.uid).c_str(), C_STORE_RQ)) {
    if (rule.Type == VX_RULE_TYPE_2 && !has_attribute(object, rule.Tag))
      VX_Set_Value_To_NULL(object, rule.Tag);
  }
  return "";
}

uint32_t lacking_attribute(int32_t object, const ObjectClass& row) {
  for (const RuleObj& rule : rules_of(service_of_class(row.uid).c_str(), C_STORE_RQ)) {
    uint32_t length = 0;
    if (rule.Type == VX_RULE_TYPE_1 && rule.VR != VX_VR_SQ && rule.VR != VX_VR_OB &&
        VX_Get_Value_Length(object, rule.Tag, 1, &length) != VX_NORMAL_COMPLETION)
      return rule.Tag;
  }
  return 0;
}

}  // namespace vexal
