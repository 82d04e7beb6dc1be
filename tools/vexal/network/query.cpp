#include "query.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <numeric>

#include "base/json.h"
#include "base/tags.h"
#include "base/values.h"
#include "files/charset.h"

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
  if (is_ascii(value)) {
    set_all_text(place.object, place.tag, value);
  } else {
    VX_STATUS status = VX_NORMAL_COMPLETION;
    for (std::size_t start = 0; start <= value.size();) {
      const std::size_t end = std::min(value.find('\\', start), value.size());
      if (!set_typed_text(place.object, place.tag, value.substr(start, end - start), start == 0, status))
        return false;
      start = end + 1;
    }
  }
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
  if (!level_.empty()) VX_Set_Value_From_String(request.id, tags::kQueryRetrieveLevel, level_.c_str());
  // Text beyond ASCII goes in UTF-8 unless a key says otherwise, which then has to come first.
  const auto names_charset = [](const QueryKey& key) {
    return key.path.size() == 1 && key.path[0].tag == tags::kSpecificCharacterSet;
  };
  std::vector<std::size_t> order(keys_.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_partition(order.begin(), order.end(), [&](std::size_t i) { return names_charset(keys_[i]); });
  if (std::none_of(keys_.begin(), keys_.end(), names_charset) &&
      !std::all_of(values_.begin(), values_.end(), [](const std::string& value) { return is_ascii(value); }))
    VX_Set_Value_From_String(request.id, tags::kSpecificCharacterSet, "ISO_IR 192");
  for (const std::size_t i : order) {
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

namespace {

// In a terminal; the ideographs and what goes with them take two.
std::size_t columns(std::string_view utf8) {
  std::size_t count = 0;
  while (!utf8.empty()) {
    const std::size_t length = std::max<std::size_t>(utf8_length(utf8), 1);
    const char32_t c = utf8_code_point(utf8.substr(0, length));
    const bool wide = (c >= 0x1100 && c < 0x1160) || (c >= 0x2E80 && c < 0xA4D0) ||
                      (c >= 0xAC00 && c < 0xD7A4) || (c >= 0xF900 && c < 0xFB00) ||
                      (c >= 0xFE30 && c < 0xFE70) || (c >= 0xFF00 && c < 0xFF61) ||
                      (c >= 0xFFE0 && c < 0xFFE7) || (c >= 0x1F300 && c < 0x1F650) || c >= 0x20000;
    count += wide ? 2 : 1;
    utf8.remove_prefix(length);
  }
  return count;
}

// What a peer says, as a terminal may have it.
std::string cell_of(const std::string& value) {
  constexpr std::size_t kWidest = 64;
  for (const std::size_t limit : {kWidest, kWidest - 3}) {
    std::string cell;
    ShownText text(cell, limit);
    text.add_utf8(value);
    if (!text.is_cut()) return cell;
    if (limit < kWidest) return cell + "...";
  }
  return "";
}

}  // namespace

std::string values_at(int32_t object, const std::vector<PathStep>& path) {
  std::vector<Place> places;
  std::string text;
  if (!resolve_path(object, path, false, places).empty()) return text;
  for (const Place& place : places) {
    // Of a sequence as a whole, how many items it has.
    const std::size_t items = sequence_items(place.object, place.tag).size();
    const std::string values = items != 0 ? std::to_string(items) + (items == 1 ? " item" : " items")
                                          : utf8_text_of(place.object, place.tag);
    if (!text.empty() && !values.empty()) text += '\\';
    text += values;
  }
  return text;
}

void print_table(const std::vector<QueryKey>& keys, const std::vector<std::vector<std::string>>& rows) {
  // The last step of a path is its name.
  std::vector<std::vector<std::string>> table(1);
  for (const QueryKey& key : keys) table[0].push_back(key.text.substr(key.text.rfind('.') + 1));
  for (const auto& row : rows) {
    table.emplace_back();
    std::transform(row.begin(), row.end(), std::back_inserter(table.back()), cell_of);
  }
  std::vector<std::size_t> widths(keys.size());
  for (const auto& row : table) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columns(row[i]));
  }
  for (const auto& row : table) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line.append(widths[i] - columns(row[i]) + 2, ' ');
    }
    std::printf("%s\n", line.c_str());
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
