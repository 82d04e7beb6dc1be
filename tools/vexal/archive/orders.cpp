#include "orders.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <map>
#include <vector>

#include "base/hex.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "data_sets.h"
#include "files/charset.h"
#include "hl7.h"
#include "network/network.h"

namespace vexal {
namespace {

constexpr char kWorklistClass[] = "1.2.840.10008.5.1.4.31";
constexpr mode_t kMode = 0640;

// What becomes of a value.
enum class Form { Text, Name, Date, Time, Upper };

// Where an attribute of an entry comes from: the first of the places that has a value. Fields are those of
// HL7 2.5.1 chapters 3 and 4, and of the Scheduled Workflow profile, which most senders follow.
struct Source {
  const char* segment;
  std::size_t field;
  std::size_t component;
};
struct Row {
  const char* path;
  Form form;
  Source places[4];
};
constexpr Row kRows[] = {
    {"AccessionNumber", Form::Text, {{"IPC", 1, 1}, {"OBR", 18, 1}, {"ORC", 3, 1}, {"OBR", 3, 1}}},
    {"ReferringPhysicianName", Form::Name, {{"PV1", 8, 2}, {"OBR", 16, 2}}},
    {"PatientName", Form::Name, {{"PID", 5, 1}}},
    {"PatientID", Form::Text, {{"PID", 3, 1}, {"PID", 2, 1}}},
    {"IssuerOfPatientID", Form::Text, {{"PID", 3, 4}}},
    {"PatientBirthDate", Form::Date, {{"PID", 7, 1}}},
    {"PatientSex", Form::Upper, {{"PID", 8, 1}}},
    {"PatientAddress", Form::Text, {{"PID", 11, 1}}},
    {"MedicalAlerts", Form::Text, {{"OBR", 13, 1}}},
    {"AdmissionID", Form::Text, {{"PV1", 19, 1}, {"PID", 18, 1}}},
    {"CurrentPatientLocation", Form::Text, {{"PV1", 3, 1}}},
    {"StudyInstanceUID", Form::Text, {{"IPC", 3, 1}, {"ZDS", 1, 1}}},
    {"RequestingPhysician", Form::Name, {{"ORC", 12, 2}, {"OBR", 16, 2}}},
    {"RequestedProcedureDescription", Form::Text, {{"OBR", 44, 2}, {"OBR", 4, 5}, {"OBR", 4, 2}}},
    {"RequestedProcedureCodeSequence[0].CodeValue",
     Form::Text,
     {{"OBR", 44, 1}, {"OBR", 4, 4}, {"OBR", 4, 1}}},
    {"RequestedProcedureCodeSequence[0].CodingSchemeDesignator",
     Form::Text,
     {{"OBR", 44, 3}, {"OBR", 4, 6}, {"OBR", 4, 3}}},
    {"RequestedProcedureCodeSequence[0].CodeMeaning",
     Form::Text,
     {{"OBR", 44, 2}, {"OBR", 4, 5}, {"OBR", 4, 2}}},
    {"RequestedProcedureID", Form::Text, {{"IPC", 2, 1}, {"OBR", 19, 1}, {"OBR", 2, 1}, {"ORC", 2, 1}}},
    {"ReasonForTheRequestedProcedure", Form::Text, {{"OBR", 31, 2}}},
    {"RequestedProcedurePriority", Form::Text, {{"TQ1", 9, 1}, {"OBR", 5, 1}}},
    {"PlacerOrderNumberImagingServiceRequest", Form::Text, {{"ORC", 2, 1}, {"OBR", 2, 1}}},
    {"FillerOrderNumberImagingServiceRequest", Form::Text, {{"ORC", 3, 1}, {"OBR", 3, 1}}},
    {"ScheduledProcedureStepSequence[0].Modality", Form::Upper, {{"IPC", 5, 1}, {"OBR", 24, 1}}},
    {"ScheduledProcedureStepSequence[0].ScheduledStationAETitle",
     Form::Text,
     {{"IPC", 9, 1}, {"OBR", 21, 1}}},
    {"ScheduledProcedureStepSequence[0].ScheduledStationName", Form::Text, {{"IPC", 7, 1}}},
    {"ScheduledProcedureStepSequence[0].ScheduledProcedureStepStartDate",
     Form::Date,
     {{"TQ1", 7, 1}, {"OBR", 36, 1}, {"OBR", 27, 4}, {"ORC", 7, 4}}},
    {"ScheduledProcedureStepSequence[0].ScheduledProcedureStepStartTime",
     Form::Time,
     {{"TQ1", 7, 1}, {"OBR", 36, 1}, {"OBR", 27, 4}, {"ORC", 7, 4}}},
    {"ScheduledProcedureStepSequence[0].ScheduledProcedureStepDescription",
     Form::Text,
     {{"IPC", 6, 2}, {"OBR", 4, 2}}},
    {"ScheduledProcedureStepSequence[0].ScheduledProtocolCodeSequence[0].CodeValue",
     Form::Text,
     {{"IPC", 6, 1}, {"OBR", 4, 1}}},
    {"ScheduledProcedureStepSequence[0].ScheduledProtocolCodeSequence[0].CodingSchemeDesignator",
     Form::Text,
     {{"IPC", 6, 3}, {"OBR", 4, 3}}},
    {"ScheduledProcedureStepSequence[0].ScheduledProtocolCodeSequence[0].CodeMeaning",
     Form::Text,
     {{"IPC", 6, 2}, {"OBR", 4, 2}}},
    {"ScheduledProcedureStepSequence[0].ScheduledProcedureStepID",
     Form::Text,
     {{"IPC", 4, 1}, {"OBR", 20, 1}, {"OBR", 19, 1}, {"OBR", 2, 1}}},
    {"ScheduledProcedureStepSequence[0].ScheduledProcedureStepLocation", Form::Text, {{"IPC", 8, 1}}},
};

// The segments that one entry is made of, by name.
using Group = std::map<std::string_view, const Hl7Segment*>;

// An entry for each IPC, or for each OBR that has none.
std::vector<Group> groups_of(const Hl7Message& message) {
  std::vector<Group> groups;
  Group current;
  bool open = false;  // an OBR that has no entry yet
  const auto close = [&] {
    if (open) groups.push_back(current);
    open = false;
  };
  for (const Hl7Segment& segment : message.segments()) {
    const std::string_view name = segment.name;
    if (name == "ORC" || (name == "OBR" && open)) {
      close();
      for (const char* own : {"OBR", "TQ1", "IPC", "ZDS"}) current.erase(own);
    }
    current[name] = &segment;
    if (name == "OBR") open = true;
    if (name == "IPC") {
      groups.push_back(current);
      open = false;
    }
  }
  close();
  return groups;
}

// Family, given, middle, suffix, prefix of HL7 in the order of DICOM, from the component on.
std::string name_of(const Hl7Message& message, const Hl7Segment& segment, std::size_t field,
                    std::size_t first) {
  constexpr std::size_t kOrder[] = {0, 1, 2, 4, 3};
  std::string name;
  for (const std::size_t at : kOrder) {
    std::string component = message.value(segment, field, first + at);
    std::replace_if(
        component.begin(), component.end(), [](char c) { return c == '^' || c == '='; }, ' ');
    name += (at == 0 ? "" : "^") + component;
  }
  return name.substr(0, name.find_last_not_of('^') + 1);
}

// Digits from a place on; "" where there are fewer.
std::string digits_of(const std::string& text, std::size_t from, std::size_t least, std::size_t most) {
  const std::size_t end = std::min(text.find_first_not_of("0123456789"), text.size());
  return end >= from + least ? text.substr(from, std::min(end - from, most)) : "";
}

std::string value_of(const Hl7Message& message, const Group& group, const Row& row) {
  for (const Source& place : row.places) {
    const auto segment = place.segment != nullptr ? group.find(place.segment) : group.end();
    if (segment == group.end()) continue;
    std::string value = row.form == Form::Name
                            ? name_of(message, *segment->second, place.field, place.component)
                            : message.value(*segment->second, place.field, place.component);
    // "20240131120000.000+0100"
    if (row.form == Form::Date) value = digits_of(value, 0, 8, 8);
    if (row.form == Form::Time) value = digits_of(value, 8, 4, 6);
    if (row.form == Form::Upper)
      std::transform(value.begin(), value.end(), value.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
      });
    // A backslash would part values.
    std::replace(value.begin(), value.end(), '\\', ' ');
    if (!value.empty()) return value;
  }
  return "";
}

// FNV-1a of 128 bits: the same name for the same order.
std::string digest_of(const std::string& text) {
  unsigned __int128 hash = (static_cast<unsigned __int128>(0x6c62272e07bb0142U) << 64) + 0x62b821756295c58dU;
  const unsigned __int128 prime = (static_cast<unsigned __int128>(1) << 88) + 0x13b;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * prime;
  std::string digits;
  for (; hash != 0; hash /= 10)
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(hash % 10)));
  return digits;
}

const Row& row_of(std::string_view path) {
  return *std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& row) { return row.path == path; });
}

// An entry is known by its order, its procedure and its step, which stay what they are when it changes.
std::string key_of(const Hl7Message& message, const Group& group) {
  std::string key;
  for (const char* path : {"PlacerOrderNumberImagingServiceRequest", "RequestedProcedureID",
                           "ScheduledProcedureStepSequence[0].ScheduledProcedureStepID"})
    key += value_of(message, group, row_of(path)) + "\n";
  if (key == "\n\n\n") key += value_of(message, group, row_of("FillerOrderNumberImagingServiceRequest"));
  return key;
}

std::string set_value(int32_t object, const char* where, const std::string& value) {
  std::vector<PathStep> path;
  std::vector<Place> places;
  std::string error = parse_path(where, path);
  if (error.empty()) error = resolve_path(object, path, true, places);
  for (const Place& place : places) {
    VX_STATUS status = VX_NORMAL_COMPLETION;
    if (value.empty()) {
      status = VX_Set_Value_To_NULL(place.object, place.tag);
    } else if (!set_typed_text(place.object, place.tag, value, true, status)) {
      error = "is not in its character set";
    }
    if (status != VX_NORMAL_COMPLETION) error = VX_Error_Message(status);
    if (!error.empty()) return std::string(where) + ": " + error;
  }
  return error;
}

std::string write_entry(const Hl7Message& message, const Group& group, const std::string& path,
                        const std::string& digest) {
  Message entry;
  if (VX_Open_Empty_Message(&entry.id) != VX_NORMAL_COMPLETION) return "no memory";
  std::vector<std::string> values;
  for (const Row& row : kRows) values.push_back(value_of(message, group, row));
  if (!std::all_of(values.begin(), values.end(), [](const std::string& value) { return is_ascii(value); }))
    set_all_text(entry.id, tags::kSpecificCharacterSet, "ISO_IR 192");
  for (std::size_t i = 0; i < values.size(); ++i) {
    // What the standard wants with a value, or not at all.
    const bool optional = std::string_view(kRows[i].path).find("CodeSequence[0].") != std::string_view::npos;
    if (values[i].empty() && optional) continue;
    if (std::string error = set_value(entry.id, kRows[i].path, values[i]); !error.empty()) return error;
  }
  if (text_of(entry.id, tags::kStudyInstanceUID).empty())
    set_all_text(entry.id, tags::kStudyInstanceUID, "2.25." + digest);
  if (text_of(entry.id, tags::kPatientName).empty() || text_of(entry.id, tags::kPatientID).empty())
    return "PID-3 and PID-5 are needed";
  return write_part10(entry, path, {kWorklistClass, "2.25." + digest, kMode, true});
}

}  // namespace

std::string Orders::take(const std::string& bytes) const {
  char now[20] = "";
  const std::time_t seconds = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::strftime(now, sizeof now, "%Y%m%d%H%M%S", &parts);
  Hl7Message message;
  if (const std::string error = message.read(bytes); !error.empty())
    return message.answer("AR", "the message " + error, now);
  const std::string type = message.type();
  if (type != "ORM^O01" && type != "OMI^O23") return message.answer("AR", type + " is not supported", now);
  const std::vector<Group> groups = groups_of(message);
  if (groups.empty()) return message.answer("AE", "there is no OBR", now);
  for (const Group& group : groups) {
    const auto orc = group.find("ORC");
    const std::string control = orc != group.end() ? message.value(*orc->second, 1, 1) : "NW";
    const std::string state = orc != group.end() ? message.value(*orc->second, 5, 1) : "";
    const std::string digest = digest_of(key_of(message, group));
    const std::string path = folder_ + "/hl7-" + digest + ".dcm";
    const auto one_of = [](const std::string& word, std::initializer_list<const char*> words) {
      return std::find(words.begin(), words.end(), word) != words.end();
    };
    std::string error;
    if (one_of(control, {"CA", "DC", "OC", "OD", "CR"}) ||
        (control == "SC" && one_of(state, {"CM", "CA", "DC"}))) {
      if (::unlink(path.c_str()) != 0 && errno != ENOENT) error = std::strerror(errno);
    } else if (one_of(control, {"NW", "XO", "SN", "RP", "XR", "NA", "OK"})) {
      error = write_entry(message, group, path, digest);
    } else if (control != "SC") {
      return message.answer("AR", "ORC-1 " + control + " is not supported", now);
    }
    if (error.empty()) continue;
    report("HL7 message " + message.control_id(), error);
    return message.answer("AE", error, now);
  }
  return message.answer("AA", "", now);
}

}  // namespace vexal
