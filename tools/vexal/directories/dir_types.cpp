// Types of records in a DICOMDIR (PS3.3 sections F.4 and F.5).
#include <algorithm>
#include <cstring>
#include <iterator>

#include "dir.h"

namespace vexal {
namespace {

struct ClassType {
  const char* root;  // of SOP class UIDs, behind 1.2.840.10008.5.1.4.
  const char* type;
};
// The longest root that fits decides; what has none is an image.
constexpr ClassType kClassTypes[] = {
    {"1.1.481.2", "RT DOSE"},
    {"1.1.481.3", "RT STRUCTURE SET"},
    {"1.1.481.5", "RT PLAN"},
    {"1.1.481.8", "RT PLAN"},
    {"1.1.481.4", "RT TREAT RECORD"},
    {"1.1.481.6", "RT TREAT RECORD"},
    {"1.1.481.7", "RT TREAT RECORD"},
    {"1.1.481.9", "RT TREAT RECORD"},
    {"1.1.481.10", "RADIOTHERAPY"},
    {"1.1.481.11", "RADIOTHERAPY"},
    {"1.1.481.12", "RADIOTHERAPY"},
    {"1.1.481.13", "RADIOTHERAPY"},
    {"1.1.481.14", "RADIOTHERAPY"},
    {"1.1.481.15", "RADIOTHERAPY"},
    {"1.1.481.16", "RADIOTHERAPY"},
    {"1.1.481.17", "RADIOTHERAPY"},
    {"1.1.481.18", "RADIOTHERAPY"},
    {"1.1.481.19", "RADIOTHERAPY"},
    {"1.1.481.20", "RADIOTHERAPY"},
    {"1.1.481.21", "RADIOTHERAPY"},
    {"1.1.481.22", "RADIOTHERAPY"},
    {"1.1.481.25", "RADIOTHERAPY"},
    {"34.7", "PLAN"},
    {"34.10", "PLAN"},
    {"1.1.11", "PRESENTATION"},
    {"1.1.9", "WAVEFORM"},
    {"1.1.9.100", "PRESENTATION"},
    {"1.1.88", "SR DOCUMENT"},
    {"1.1.79.1", "SR DOCUMENT"},
    {"1.1.88.59", "KEY OBJECT DOC"},
    {"1.1.4.2", "SPECTROSCOPY"},
    {"1.1.66", "RAW DATA"},
    {"1.1.66.1", "REGISTRATION"},
    {"1.1.66.3", "REGISTRATION"},
    {"1.1.66.2", "FIDUCIAL"},
    {"1.1.66.4", "IMAGE"},
    {"1.1.66.5", "SURFACE"},
    {"1.1.66.6", "TRACT"},
    {"1.1.66.7", "IMAGE"},
    {"1.1.66.8", "IMAGE"},
    {"1.1.67", "VALUE MAP"},
    {"1.1.68", "SURFACE SCAN"},
    {"1.1.77.1.5.3", "STEREOMETRIC"},
    {"1.1.78", "MEASUREMENT"},
    {"1.1.80.1", "MEASUREMENT"},
    {"1.1.90.1", "ASSESSMENT"},
    {"1.1.91.1", "ANNOTATION"},
    {"1.1.104", "ENCAP DOC"},
    {"38.1", "HANGING PROTOCOL"},
    {"39.1", "PALETTE"},
    {"43.1", "IMPLANT"},
    {"44.1", "IMPLANT ASSY"},
    {"45.1", "IMPLANT GROUP"},
};

constexpr std::string_view kAtRoot[] = {"HANGING PROTOCOL", "PALETTE", "IMPLANT", "IMPLANT ASSY",
                                        "IMPLANT GROUP"};

}  // namespace

std::string record_type_of_class(const std::string& uid) {
  constexpr std::string_view kRoot = "1.2.840.10008.5.1.4.";
  if (!uid.starts_with(kRoot)) return "PRIVATE";
  const std::string tail = uid.substr(kRoot.size()) + ".";
  const ClassType* best = nullptr;
  for (const ClassType& row : kClassTypes) {
    const bool fits = tail.starts_with(std::string(row.root) + ".");
    if (fits && (best == nullptr || std::strlen(row.root) > std::strlen(best->root))) best = &row;
  }
  return best != nullptr ? best->type : "IMAGE";
}

bool stands_at_root(std::string_view type) {
  return std::find(std::begin(kAtRoot), std::end(kAtRoot), type) != std::end(kAtRoot);
}

bool may_stand_below(std::string_view parent, std::string_view type) {
  if (type == "PRIVATE") return true;
  if (parent.empty()) return type == "PATIENT" || stands_at_root(type);
  if (parent == "PATIENT") return type == "STUDY" || type == "HL7 STRUC DOC";
  if (parent == "STUDY") return type == "SERIES";
  if (parent == "PRIVATE") return true;
  if (parent != "SERIES") return false;
  constexpr std::string_view kNotInSeries[] = {"PATIENT", "STUDY", "SERIES", "HL7 STRUC DOC", "MRDR"};
  return !stands_at_root(type) &&
         std::find(std::begin(kNotInSeries), std::end(kNotInSeries), type) == std::end(kNotInSeries);
}

std::string record_item_name(std::string type) {
  std::replace(type.begin(), type.end(), ' ', '_');
  return "DIR_REC_" + type;
}

}  // namespace vexal
