// The types of directory records: their order, what sorts them, and what may lie below what.
#include "media/record_types.h"

#include <algorithm>
#include <iterator>

namespace vx {

namespace {

// In the order of their numbers.
constexpr RecordType kTypes[] = {
    {"PATIENT", {0x00100010U, 0x00100020U}},
    {"STUDY", {0x00080020U, 0x00080030U}},
    {"SERIES", {0x00080060U, 0x00200011U}},
    {"IMAGE", {0x00200013U}},
    {"OVERLAY", {0x00200022U}},
    {"MODALITY LUT", {0x00200026U}},
    {"VOI LUT", {0x00200026U}},
    {"CURVE", {0x00200024U}},
    {"TOPIC", {0x00880904U}},
    {"VISIT", {0x00380020U}},
    {"RESULTS", {0x00080012U}},
    {"INTERPRETATION", {0x40080108U}},
    {"STUDY COMPONENT", {0x00080060U}},
    {"STORED PRINT", {0x00200013U}},
    {"RT DOSE", {0x00200013U}},
    {"RT STRUCTURE SET", {0x00200013U}},
    {"RT PLAN", {0x00200013U}},
    {"RT TREAT RECORD", {0x00200013U}},
    {"PRESENTATION", {0x00700082U, 0x00700083U}},
    {"WAVEFORM", {0x00080023U, 0x00080033U}},
    {"SR DOCUMENT", {0x00080023U, 0x00080033U, 0x00200013U}},
    {"KEY OBJECT DOC", {0x00080023U, 0x00080033U, 0x00200013U}},
    {"SPECTROSCOPY", {0x00200013U}},
    {"RAW DATA", {0x00200013U}},
    {"REGISTRATION", {0x00200013U}},
    {"FIDUCIAL", {0x00200013U}},
    {"VALUE MAP", {0x00080023U, 0x00080033U, 0x00200013U}},
    {"ENCAP DOC", {0x00080023U, 0x00080033U, 0x00200013U}},
    {"HL7 STRUC DOC", {0x00080023U, 0x00080033U, 0x00200013U}},
    {"MRDR", {}},
    {"STEREOMETRIC", {0x00200013U}},
    {"MEASUREMENT", {0x00080023U, 0x00080033U}},
    {"SURFACE", {0x00080023U, 0x00080033U}},
    {"SURFACE SCAN", {0x00080023U, 0x00080033U}},
    {"TRACT", {0x00080023U, 0x00080033U}},
    {"IMPLANT", {0x00080070U, 0x00221095U, 0x00221097U}},
    {"IMPLANT ASSY", {0x00760001U, 0x00760003U, 0x00760020U}},
    {"IMPLANT GROUP", {0x00780001U, 0x00780020U}},
    {"PRIVATE", {}},
};

// What may lie below a parent; "*" stands for any other name too.
struct LowerTypes {
  std::string_view parent;
  std::string_view lower;  // each between two bars
};

constexpr std::string_view kPrivateOnly = "|PRIVATE|";

// By item name without its first part, for directories in memory.
constexpr LowerTypes kItems[] = {
    {"ROOT", "|PATIENT|HANGING_PROTOCOL|PRINT_QUEUE|IMPLANT|IMPLANT_ASSY|IMPLANT_GROUP|PRIVATE|TOPIC|"},
    {"PATIENT", "|PRIVATE|STUDY|HL7_STRUC_DOC|"},
    {"STUDY", "|PRIVATE|SERIES|VISIT|RESULTS|STUDY_COMPONENT|FILM_SESSION|"},
    {"SERIES",
     "|PRIVATE|IMAGE|STORED_PRINT|RT_DOSE|RT_STRUCTURE_SET|RT_PLAN|RT_TREAT_RECORD|OVERLAY|MODALITY_LUT|"
     "VOI_LUT|CURVE|PRESENTATION|SR_DOCUMENT|KEY_OBJECT_DOC|SPECTROSCOPY|RAW_DATA|WAVEFORM|REGISTRATION|"
     "FIDUCIAL|VALUE_MAP|ENCAP_DOC|STEREOMETRIC|MEASUREMENT|SURFACE|TRACT|"},
    {"TOPIC",
     "|PRIVATE|SERIES|FILM_SESSION|STUDY|IMAGE|STORED_PRINT|RT_DOSE|RT_STRUCTURE_SET|RT_PLAN|"
     "RT_TREAT_RECORD|OVERLAY|MODALITY_LUT|VOI_LUT|CURVE|PRESENTATION|SR_DOCUMENT|KEY_OBJECT_DOC|"
     "SPECTROSCOPY|RAW_DATA|WAVEFORM|REGISTRATION|FIDUCIAL|HL7_STRUC_DOC|VALUE_MAP|ENCAP_DOC|"},
    {"RESULTS", "|PRIVATE|INTERPRETATION|"},
    {"PRINT QUEUE", "|PRIVATE|FILM_SESSION|"},
    {"FILM SESSION", "|PRIVATE|FILM_BOX|"},
    {"FILM BOX", "|PRIVATE|IMAGE_BOX|"},
    {"IMAGE", kPrivateOnly},
    {"RT DOSE", kPrivateOnly},
    {"RT STRUCTURE SET", kPrivateOnly},
    {"RT PLAN", kPrivateOnly},
    {"RT TREAT RECORD", kPrivateOnly},
    {"PRESENTATION", kPrivateOnly},
    {"WAVEFORM", kPrivateOnly},
    {"SR DOCUMENT", kPrivateOnly},
    {"KEY OBJECT DOC", kPrivateOnly},
    {"SPECTROSCOPY", kPrivateOnly},
    {"RAW DATA", kPrivateOnly},
    {"REGISTRATION", kPrivateOnly},
    {"FIDUCIAL", kPrivateOnly},
    {"HANGING PROTOCOL", kPrivateOnly},
    {"ENCAP DOC", kPrivateOnly},
    {"HL7 STRUC DOC", kPrivateOnly},
    {"VALUE MAP", kPrivateOnly},
    {"STEREOMETRIC", kPrivateOnly},
    {"PALETTE", kPrivateOnly},
    {"IMPLANT", kPrivateOnly},
    {"IMPLANT ASSY", kPrivateOnly},
    {"IMPLANT GROUP", kPrivateOnly},
    {"MEASUREMENT", kPrivateOnly},
    {"SURFACE", kPrivateOnly},
    {"SURFACE SCAN", kPrivateOnly},
    {"TRACT", kPrivateOnly},
    {"ASSESSMENT", kPrivateOnly},
    {"CURVE", kPrivateOnly},
    {"MODALITY LUT", kPrivateOnly},
    {"VOI LUT", kPrivateOnly},
    {"OVERLAY", kPrivateOnly},
    {"VISIT", kPrivateOnly},
    {"INTERPRETATION", kPrivateOnly},
    {"STUDY COMPONENT", kPrivateOnly},
    {"IMAGE BOX", kPrivateOnly},
    {"STORED PRINT", kPrivateOnly},
    {"PRIVATE", "|*|"},
    {"MRDR", "|"},
};

// By type text, for directories on disk; the root has no text.
constexpr LowerTypes kTexts[] = {
    {"", "|PATIENT|HANGING PROTOCOL|PALETTE|IMPLANT|IMPLANT ASSY|IMPLANT GROUP|PRIVATE|TOPIC|"},
    {"PATIENT", "|STUDY|HL7 STRUC DOC|PRIVATE|"},
    {"STUDY", "|SERIES|PRIVATE|VISIT|RESULTS|STUDY COMPONENT|"},
    {"SERIES",
     "|IMAGE|RT DOSE|RT STRUCTURE SET|RT PLAN|RT TREAT RECORD|PRESENTATION|WAVEFORM|SR DOCUMENT|"
     "KEY OBJECT DOC|SPECTROSCOPY|RAW DATA|REGISTRATION|FIDUCIAL|ENCAP DOC|VALUE MAP|STEREOMETRIC|"
     "MEASUREMENT|SURFACE|TRACT|ASSESSMENT|PRIVATE|OVERLAY|MODALITY LUT|VOI LUT|CURVE|STORED PRINT|"},
    {"IMAGE", kPrivateOnly},
    {"RT DOSE", kPrivateOnly},
    {"RT STRUCTURE SET", kPrivateOnly},
    {"RT PLAN", kPrivateOnly},
    {"RT TREAT RECORD", kPrivateOnly},
    {"PRESENTATION", kPrivateOnly},
    {"WAVEFORM", kPrivateOnly},
    {"SR DOCUMENT", kPrivateOnly},
    {"KEY OBJECT DOC", kPrivateOnly},
    {"SPECTROSCOPY", kPrivateOnly},
    {"RAW DATA", kPrivateOnly},
    {"REGISTRATION", kPrivateOnly},
    {"FIDUCIAL", kPrivateOnly},
    {"HANGING PROTOCOL", kPrivateOnly},
    {"ENCAP DOC", kPrivateOnly},
    {"HL7 STRUC DOC", kPrivateOnly},
    {"VALUE MAP", kPrivateOnly},
    {"STEREOMETRIC", kPrivateOnly},
    {"PALETTE", kPrivateOnly},
    {"IMPLANT", kPrivateOnly},
    {"IMPLANT ASSY", kPrivateOnly},
    {"IMPLANT GROUP", kPrivateOnly},
    {"MEASUREMENT", kPrivateOnly},
    {"SURFACE", kPrivateOnly},
    {"SURFACE SCAN", kPrivateOnly},
    {"TRACT", kPrivateOnly},
    {"ASSESSMENT", kPrivateOnly},
    {"PRIVATE", "|*|"},
    {"TOPIC",
     "|STUDY|SERIES|IMAGE|OVERLAY|MODALITY LUT|VOI LUT|CURVE|STORED PRINT|RT DOSE|RT STRUCTURE SET|RT PLAN|"
     "RT TREAT RECORD|PRESENTATION|WAVEFORM|SR DOCUMENT|KEY OBJECT DOC|PRIVATE|"},
};

// Types as VX_DDH_Get_Record_Type numbers them.
constexpr std::string_view kCodes[] = {
    "PATIENT",
    "STUDY",
    "SERIES",
    "IMAGE",
    "RT DOSE",
    "RT STRUCTURE SET",
    "RT PLAN",
    "RT TREAT RECORD",
    "PRESENTATION",
    "WAVEFORM",
    "SR DOCUMENT",
    "KEY OBJECT DOC",
    "SPECTROSCOPY",
    "RAW DATA",
    "REGISTRATION",
    "FIDUCIAL",
    "HANGING PROTOCOL",
    "ENCAP DOC",
    "HL7 STRUC DOC",
    "VALUE MAP",
    "STEREOMETRIC",
    "PALETTE",
    "IMPLANT",
    "IMPLANT GROUP",
    "IMPLANT ASSY",
    "MEASUREMENT",
    "SURFACE",
    "SURFACE SCAN",
    "TRACT",
    "ASSESSMENT",
    "PRIVATE",
};

// Types by the SOP class of what a record refers to; the common root of the UIDs is left out.
constexpr std::string_view kUidRoot = "1.2.840.10008.";
struct ClassType {
  std::string_view type;
  std::string_view uid;
};
constexpr ClassType kClasses[] = {
    {"IMAGE", "5.1.4.1.1.13.1.3"},
    {"IMAGE", "5.1.4.1.1.13.1.1"},
    {"IMAGE", "5.1.4.1.1.13.1.2"},
    {"IMAGE", "5.1.4.1.1.2.1"},
    {"IMAGE", "5.1.4.1.1.4.3"},
    {"IMAGE", "5.1.4.1.1.4.1"},
    {"IMAGE", "5.1.4.1.1.130"},
    {"IMAGE", "5.1.4.1.1.6.2"},
    {"IMAGE", "5.1.4.1.1.12.1.1"},
    {"IMAGE", "5.1.4.1.1.12.2.1"},
    {"IMAGE", "5.1.4.1.1.77.1.5.4"},
    {"IMAGE", "5.1.4.1.1.7.2"},
    {"IMAGE", "5.1.4.1.1.7.3"},
    {"IMAGE", "5.1.4.1.1.7.1"},
    {"IMAGE", "5.1.4.1.1.7.4"},
    {"IMAGE", "5.1.4.1.1.1"},
    {"IMAGE", "5.1.4.1.1.2"},
    {"IMAGE", "5.1.4.1.1.1.1"},
    {"IMAGE", "5.1.4.1.1.1.1.1"},
    {"IMAGE", "5.1.4.1.1.1.3"},
    {"IMAGE", "5.1.4.1.1.1.3.1"},
    {"IMAGE", "5.1.4.1.1.1.2"},
    {"IMAGE", "5.1.4.1.1.1.2.1"},
    {"IMAGE", "5.1.4.1.1.4"},
    {"IMAGE", "5.1.4.1.1.20"},
    {"IMAGE", "5.1.4.1.1.5"},
    {"IMAGE", "5.1.4.1.1.77.1.5.2"},
    {"IMAGE", "5.1.4.1.1.77.1.5.1"},
    {"IMAGE", "5.1.4.1.1.128"},
    {"IMAGE", "5.1.4.1.1.481.1"},
    {"IMAGE", "5.1.4.1.1.7"},
    {"IMAGE", "5.1.4.1.1.6.1"},
    {"IMAGE", "5.1.4.1.1.3.1"},
    {"IMAGE", "5.1.4.1.1.3"},
    {"IMAGE", "5.1.4.1.1.6"},
    {"IMAGE", "5.1.4.1.1.77.1.1.1"},
    {"IMAGE", "5.1.4.1.1.77.1.2.1"},
    {"IMAGE", "5.1.4.1.1.77.1.4.1"},
    {"IMAGE", "5.1.4.1.1.77.1.1"},
    {"IMAGE", "5.1.4.1.1.77.1.2"},
    {"IMAGE", "5.1.4.1.1.77.1.4"},
    {"IMAGE", "5.1.4.1.1.77.1.3"},
    {"IMAGE", "5.1.4.1.1.12.1"},
    {"IMAGE", "5.1.4.1.1.12.3"},
    {"IMAGE", "5.1.4.1.1.12.2"},
    {"RT DOSE", "5.1.4.1.1.481.2"},
    {"RT STRUCTURE SET", "5.1.4.1.1.481.3"},
    {"RT PLAN", "5.1.4.1.1.481.5"},
    {"RT TREAT RECORD", "5.1.4.1.1.481.4"},
    {"RT TREAT RECORD", "5.1.4.1.1.481.6"},
    {"RT TREAT RECORD", "5.1.4.1.1.481.7"},
    {"PRESENTATION", "5.1.4.1.1.11.1"},
    {"PRESENTATION", "5.1.4.1.1.11.2"},
    {"PRESENTATION", "5.1.4.1.1.11.3"},
    {"WAVEFORM", "5.1.4.1.1.9.1"},
    {"WAVEFORM", "5.1.4.1.1.9.1.1"},
    {"WAVEFORM", "5.1.4.1.1.9.1.2"},
    {"WAVEFORM", "5.1.4.1.1.9.1.3"},
    {"WAVEFORM", "5.1.4.1.1.9.2.1"},
    {"WAVEFORM", "5.1.4.1.1.9.3.1"},
    {"WAVEFORM", "5.1.4.1.1.9.4.1"},
    {"WAVEFORM", "5.1.4.1.1.9.4.2"},
    {"WAVEFORM", "5.1.4.1.1.9.5.1"},
    {"WAVEFORM", "5.1.4.1.1.9.6.1"},
    {"SR DOCUMENT", "5.1.4.1.1.88.11"},
    {"SR DOCUMENT", "5.1.4.1.1.88.22"},
    {"SR DOCUMENT", "5.1.4.1.1.88.33"},
    {"SR DOCUMENT", "5.1.4.1.1.88.50"},
    {"SR DOCUMENT", "5.1.4.1.1.88.65"},
    {"SR DOCUMENT", "5.1.4.1.1.88.67"},
    {"SR DOCUMENT", "5.1.4.1.1.88.69"},
    {"KEY OBJECT DOC", "5.1.4.1.1.88.59"},
    {"SPECTROSCOPY", "5.1.4.1.1.4.2"},
    {"RAW DATA", "5.1.4.1.1.66"},
    {"REGISTRATION", "5.1.4.1.1.66.1"},
    {"REGISTRATION", "5.1.4.1.1.66.3"},
    {"FIDUCIAL", "5.1.4.1.1.66.2"},
    {"HANGING PROTOCOL", "5.1.4.38.1"},
    {"ENCAP DOC", "5.1.4.1.1.104.1"},
    {"ENCAP DOC", "5.1.4.1.1.104.2"},
    {"VALUE MAP", "5.1.4.1.1.67"},
    {"STEREOMETRIC", "5.1.4.1.1.77.1.5.3"},
    {"PALETTE", "1.5.1"},
    {"PALETTE", "1.5.2"},
    {"PALETTE", "1.5.3"},
    {"PALETTE", "1.5.4"},
    {"PALETTE", "5.1.4.39.1"},
    {"IMPLANT", "5.1.4.43.1"},
    {"IMPLANT ASSY", "5.1.4.44.1"},
    {"IMPLANT GROUP", "5.1.4.45.1"},
    {"MEASUREMENT", "5.1.4.1.1.78.1"},
    {"MEASUREMENT", "5.1.4.1.1.78.2"},
    {"MEASUREMENT", "5.1.4.1.1.78.3"},
    {"MEASUREMENT", "5.1.4.1.1.78.4"},
    {"MEASUREMENT", "5.1.4.1.1.78.5"},
    {"MEASUREMENT", "5.1.4.1.1.78.7"},
    {"MEASUREMENT", "5.1.4.1.1.78.8"},
    {"MEASUREMENT", "5.1.4.1.1.80.1"},
    {"SURFACE", "5.1.4.1.1.66.5"},
    {"SURFACE SCAN", "5.1.4.1.1.68.1"},
    {"SURFACE SCAN", "5.1.4.1.1.68.2"},
    {"TRACT", "5.1.4.1.1.66.6"},
    {"ASSESSMENT", "5.1.4.1.1.90.1"},
    {"MODALITY LUT", "5.1.4.1.1.10"},
    {"VOI LUT", "5.1.4.1.1.11"},
    {"OVERLAY", "5.1.4.1.1.8"},
    {"CURVE", "5.1.4.1.1.9"},
};

constexpr std::string_view kItemPrefix = "DIR_REC_";

const LowerTypes* find_parent(std::span<const LowerTypes> rows, std::string_view parent) {
  const auto row =
      std::find_if(rows.begin(), rows.end(), [&](const LowerTypes& r) { return r.parent == parent; });
  return row != rows.end() ? &*row : nullptr;
}

bool holds(std::string_view list, std::string_view name) {
  for (std::size_t at = list.find(name); at != std::string_view::npos; at = list.find(name, at + 1)) {
    const std::size_t end = at + name.size();
    if (at > 0 && list[at - 1] == '|' && end < list.size() && list[end] == '|') return true;
  }
  return false;
}

}  // namespace

const RecordType* find_record_type(std::string_view text) {
  const auto* row =
      std::find_if(std::begin(kTypes), std::end(kTypes), [&](const RecordType& r) { return r.text == text; });
  return row != std::end(kTypes) ? row : nullptr;
}

int record_type_number(std::string_view text) {
  const RecordType* row = find_record_type(text);
  return row != nullptr ? static_cast<int>(row - kTypes) : static_cast<int>(std::size(kTypes)) - 1;
}

std::span<const uint32_t> sort_tags(int type_number) {
  const auto& tags = kTypes[type_number].sort_tags;
  const auto* end = std::find(std::begin(tags), std::end(tags), 0U);
  return {std::begin(tags), static_cast<std::size_t>(end - std::begin(tags))};
}

VX_STATUS check_lower_item(std::string_view parent, std::string_view item_name) {
  const LowerTypes* row = find_parent(kItems, parent);
  if (row == nullptr) return VX_INVALID_DIR_RECORD_TYPE;
  if (!item_name.starts_with(kItemPrefix)) {
    return row->lower == "|*|" ? kOk : VX_INVALID_LOWER_DIR_RECORD;
  }
  const std::string_view name = item_name.substr(kItemPrefix.size());
  const bool valid = row->lower == "|*|" ? name != "MRDR" : holds(row->lower, name);
  return valid ? kOk : VX_INVALID_LOWER_DIR_RECORD;
}

VX_STATUS check_lower_type(std::string_view parent, std::string_view type) {
  const LowerTypes* row = find_parent(kTexts, parent);
  if (row == nullptr) return VX_INVALID_DIR_RECORD_TYPE;
  return row->lower == "|*|" || holds(row->lower, type) ? kOk : VX_INVALID_LOWER_DIR_RECORD;
}

int record_type_code(std::string_view text) {
  // The code behind the last one stands for any other text.
  return static_cast<int>(std::find(std::begin(kCodes), std::end(kCodes), text) - std::begin(kCodes));
}

std::string_view type_of_class(std::string_view uid) {
  if (!uid.starts_with(kUidRoot)) return {};
  const std::string_view tail = uid.substr(kUidRoot.size());
  const auto* row = std::find_if(std::begin(kClasses), std::end(kClasses),
                                 [&](const ClassType& r) { return r.uid == tail; });
  return row != std::end(kClasses) ? row->type : std::string_view();
}

std::string type_of_item(std::string_view item_name) {
  if (!item_name.starts_with(kItemPrefix)) return {};
  std::string text(item_name.substr(kItemPrefix.size()));
  std::replace(text.begin(), text.end(), '_', ' ');
  return text;
}

std::string item_of_type(std::string_view text) {
  std::string name(kItemPrefix);
  name += text;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

}  // namespace vx
