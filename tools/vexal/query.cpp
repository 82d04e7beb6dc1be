#include "query.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "json.h"

namespace vexal {
namespace {

constexpr char kWorklistFind[] = "1.2.840.10008.5.1.4.31";

struct LevelRow {
  const char* word;
  const char* level;  // (0008,0052)
  const char* keys;   // what a find returns unless it is told otherwise
};
constexpr LevelRow kLevels[] = {
    {"patient", "PATIENT", "PatientName PatientID PatientBirthDate PatientSex"},
    {"study", "STUDY",
     "PatientName PatientID StudyDate StudyTime AccessionNumber ModalitiesInStudy StudyDescription "
     "StudyInstanceUID"},
    {"series", "SERIES", "StudyInstanceUID SeriesInstanceUID Modality SeriesNumber SeriesDescription"},
    {"image", "IMAGE", "StudyInstanceUID SeriesInstanceUID SOPInstanceUID SOPClassUID InstanceNumber"},
    {"worklist", "",
     "PatientName PatientID AccessionNumber StudyInstanceUID RequestedProcedureID "
     "ScheduledProcedureStepSequence[0].ScheduledStationAETitle ScheduledProcedureStepSequence[0].Modality "
     "ScheduledProcedureStepSequence[0].ScheduledProcedureStepStartDate "
     "ScheduledProcedureStepSequence[0].ScheduledProcedureStepStartTime "
     "ScheduledProcedureStepSequence[0].ScheduledProcedureStepDescription "
     "ScheduledProcedureStepSequence[0].ScheduledProcedureStepID"},
};

struct ModelRow {
  const char* word;
  const char* find;
  const char* move;
  const char* get;
};
// PS3.4 annex C.6.
constexpr ModelRow kModels[] = {
    {"study", "1.2.840.10008.5.1.4.1.2.2.1", "1.2.840.10008.5.1.4.1.2.2.2", "1.2.840.10008.5.1.4.1.2.2.3"},
    {"patient", "1.2.840.10008.5.1.4.1.2.1.1", "1.2.840.10008.5.1.4.1.2.1.2", "1.2.840.10008.5.1.4.1.2.1.3"},
};

template <typename Row, std::size_t N>
const Row* find_word(const Row (&rows)[N], const std::string& word) {
  const auto* row =
      std::find_if(std::begin(rows), std::end(rows), [&](const Row& r) { return word == r.word; });
  return row == std::end(rows) ? nullptr : row;
}

// One value after the other. A key may hold what its VR does not allow, such as a wildcard in a date; the
// library then stores it and says so.
bool set_values(const Place& place, const std::string& value) {
  set_all_text(place.object, place.tag, value);
  int32_t count = 0;
  return VX_Get_Value_Count(place.object, place.tag, &count) == VX_NORMAL_COMPLETION && count > 0;
}

}  // namespace

bool Query::add(const std::string& text) {
  const std::size_t equals = text.find('=');
  const std::string name = text.substr(0, equals);
  const std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
  const auto known =
      std::find_if(keys_.begin(), keys_.end(), [&](const QueryKey& key) { return key.text == name; });
  if (known != keys_.end()) {
    if (equals != std::string::npos) values_[static_cast<std::size_t>(known - keys_.begin())] = value;
    return true;
  }
  QueryKey key{name, {}};
  const std::string error = parse_path(name, key.path);
  if (!error.empty()) {
    complain("-k %s: %s", text.c_str(), error.c_str());
    return false;
  }
  keys_.push_back(std::move(key));
  values_.push_back(value);
  return true;
}

bool Query::read(const Args& args, QueryKind kind) {
  const std::string level = args.get("--level", "study");
  const std::string model = args.get("--model", "study");
  const LevelRow* row = find_word(kLevels, level);
  const ModelRow* classes = find_word(kModels, model);
  if (row == nullptr || (*row->level == '\0' && kind != QueryKind::Find)) {
    complain("--level %s: give patient, study, series or image%s", level.c_str(),
             kind == QueryKind::Find ? ", or worklist" : "");
    return false;
  }
  if (classes == nullptr || (model == "study" && level == "patient")) {
    complain(classes == nullptr ? "--model %s: give study or patient"
                                : "--model %s has no patient level: give --model patient",
             model.c_str());
    return false;
  }
  level_ = row->level;
  sop_class_ = level_.empty()            ? kWorklistFind
               : kind == QueryKind::Find ? classes->find
               : kind == QueryKind::Move ? classes->move
                                         : classes->get;
  if (kind == QueryKind::Find) {
    for (std::string rest = row->keys; !rest.empty();) {
      const std::size_t end = std::min(rest.find(' '), rest.size());
      if (!add(rest.substr(0, end))) return false;
      rest.erase(0, end + 1);
    }
  }
  for (const std::string& text : args.all("-k")) {
    if (!add(text)) return false;
  }
  if (kind != QueryKind::Find && keys_.empty()) {
    complain("name what is wanted with -k, such as -k StudyInstanceUID=1.2.3");
    return false;
  }
  return true;
}

bool Query::fill(Message& request, uint16_t command) const {
  const std::string service = service_of_class(sop_class_);
  const VX_STATUS status = request.make(service.c_str(), command);
  if (status != VX_NORMAL_COMPLETION) {
    complain("%s: %s", service.c_str(), VX_Error_Message(status));
    return false;
  }
  if (!level_.empty()) VX_Set_Value_From_String(request.id, 0x00080052, level_.c_str());
  for (std::size_t i = 0; i < keys_.size(); ++i) {
    std::vector<Place> places;
    const std::string error = resolve_path(request.id, keys_[i].path, true, places);
    for (const Place& place : places) {
      if (values_[i].empty()) {
        VX_Set_Value_To_NULL(place.object, place.tag);
      } else if (!set_values(place, values_[i])) {
        complain("-k %s=%s: can not be a value of it", keys_[i].text.c_str(), values_[i].c_str());
        return false;
      }
    }
    if (!error.empty()) {
      complain("-k %s: %s", keys_[i].text.c_str(), error.c_str());
      return false;
    }
  }
  return true;
}

std::string values_at(int32_t object, const std::vector<PathStep>& path) {
  std::vector<Place> places;
  std::string text;
  if (!resolve_path(object, path, false, places).empty()) return text;
  for (const Place& place : places) {
    const std::string values = all_text_of(place.object, place.tag);
    if (!text.empty() && !values.empty()) text += '\\';
    text += values;
  }
  return text;
}

void print_table(const std::vector<QueryKey>& keys, const std::vector<std::vector<std::string>>& rows) {
  constexpr std::size_t kWidest = 64;
  std::vector<std::size_t> widths;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    // The last step of a path is its name.
    std::size_t width = keys[i].text.size() - (keys[i].text.rfind('.') + 1);
    for (const auto& row : rows) width = std::max(width, row[i].size());
    widths.push_back(std::min(width, kWidest));
  }
  const auto print_cell = [&](std::size_t i, std::string cell) {
    if (cell.size() > kWidest) cell = cell.substr(0, kWidest - 3) + "...";
    if (i + 1 == keys.size()) {
      std::printf("%s\n", cell.c_str());
    } else {
      std::printf("%-*s  ", static_cast<int>(widths[i]), cell.c_str());
    }
  };
  for (std::size_t i = 0; i < keys.size(); ++i)
    print_cell(i, keys[i].text.substr(keys[i].text.rfind('.') + 1));
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) print_cell(i, row[i]);
  }
}

void print_json(const std::vector<QueryKey>& keys, const std::vector<std::string>& row) {
  std::string line = "{";
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (i != 0) line += ',';
    append_json(line, keys[i].text);
    line += ':';
    append_json(line, row[i]);
  }
  std::printf("%s}\n", line.c_str());
}

}  // namespace vexal
