// vexal dir: DICOMDIR files made, changed, listed and checked.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "commands.h"
#include "file_set.h"
#include "files.h"
#include "json.h"
#include "names.h"
#include "session.h"
#include "tag_path.h"

namespace vexal {
namespace {

namespace fs = std::filesystem;

constexpr Option kOptions[] = {
    {"--id", "TEXT", "File-set ID of a new directory"},
    {"--patient", "ID", "remove: the patients with this Patient ID"},
    {"--uid", "UID", "remove: the study, series or instance of this UID"},
    {"--json", nullptr, "list: one JSON object a record"},
    {"--any-names", nullptr, "take files whose names a DICOMDIR may not have, such as lower case or dots"},
    {"--fast", nullptr, "check: leave the files themselves alone"},
};

constexpr uint32_t kFileId = 0x00041500;
constexpr uint32_t kRecordType = 0x00041430;
constexpr uint32_t kClassInFile = 0x00041510;
constexpr uint32_t kInstanceInFile = 0x00041511;
constexpr uint32_t kSyntaxInFile = 0x00041512;
constexpr uint32_t kPatientId = 0x00100020;
constexpr uint32_t kStudyUid = 0x0020000D;
constexpr uint32_t kSeriesUid = 0x0020000E;
constexpr uint32_t kLastKey = 0x7FDFFFFF;  // nothing in a record comes from behind it

std::string text_of(int32_t object, uint32_t tag) {
  char buffer[1024];
  if (VX_Get_Value_To_String(object, tag, sizeof buffer, buffer) != VX_NORMAL_COMPLETION) return {};
  std::string text = buffer;
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
  return text;
}

// --- Types of records (PS3.3 sections F.4 and F.5) ---

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
    {"1.1.11", "PRESENTATION"},
    {"1.1.9", "WAVEFORM"},
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
    {"1.1.67", "VALUE MAP"},
    {"1.1.68", "SURFACE SCAN"},
    {"1.1.77.1.5.3", "STEREOMETRIC"},
    {"1.1.78", "MEASUREMENT"},
    {"1.1.80.1", "MEASUREMENT"},
    {"1.1.90.1", "ASSESSMENT"},
    {"1.1.104", "ENCAP DOC"},
    {"38.1", "HANGING PROTOCOL"},
    {"39.1", "PALETTE"},
    {"43.1", "IMPLANT"},
    {"44.1", "IMPLANT ASSY"},
    {"45.1", "IMPLANT GROUP"},
};

std::string type_of_class(const std::string& uid) {
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

constexpr std::string_view kAtRoot[] = {"HANGING PROTOCOL", "PALETTE", "IMPLANT", "IMPLANT ASSY",
                                        "IMPLANT GROUP"};
bool stands_at_root(std::string_view type) {
  return std::find(std::begin(kAtRoot), std::end(kAtRoot), type) != std::end(kAtRoot);
}

// Whether the standard has `type` below `parent`; "" is the root.
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

std::string item_name(std::string type) {
  std::replace(type.begin(), type.end(), ' ', '_');
  return "DIR_REC_" + type;
}

// --- A directory in memory ---

struct Record {
  int32_t id = 0;
  int32_t parent = 0;
  int depth = 0;
  std::string type;
};

class Directory {
 public:
  Directory() { VX_Register_Application(&application_, "VEXAL_DIR"); }
  ~Directory() {
    if (id_ >= 0) VX_Free_File(&id_);
    VX_Release_Application(&application_);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  bool make(const std::string& path, const std::string& file_set);
  // False after a line on standard error; a directory with broken offsets opens with `broken` set.
  bool open(const std::string& path, bool allow_broken);
  bool save();
  int32_t id() const { return id_; }
  const std::string& problem() const { return problem_; }
  const fs::path& folder() const { return folder_; }
  // All records of the tree, each before those below it.
  std::vector<Record> records() const;
  // A record below a parent, 0 for the root; 0 if it could not be made.
  int32_t add(int32_t parent, const std::string& type);

 private:
  int32_t id_ = -1;
  int32_t application_ = -1;
  std::string path_;
  std::string problem_;
  fs::path folder_;
  std::map<int32_t, int32_t> entities_;  // by the record above
};

bool Directory::make(const std::string& path, const std::string& file_set) {
  path_ = path;
  folder_ = fs::absolute(path).parent_path();
  const VX_STATUS status = VX_Create_File(&id_, "DICOMDIR", "DICOMDIR", C_STORE_RQ);
  if (status != VX_NORMAL_COMPLETION) {
    report(path, VX_Error_Message(status));
    return false;
  }
  VX_Set_Value_From_String(id_, 0x00020010, "1.2.840.10008.1.2.1");
  VX_Set_Value_From_UInt(id_, 0x00041212, 0);
  VX_Set_Value_From_UInt(id_, 0x00041200, 0);
  VX_Set_Value_From_UInt(id_, 0x00041202, 0);
  VX_Set_Value_To_NULL(id_, 0x00041220);
  if (file_set.empty()) return VX_Set_Value_To_NULL(id_, 0x00041130) == VX_NORMAL_COMPLETION;
  if (VX_Set_Value_From_String(id_, 0x00041130, file_set.c_str()) == VX_NORMAL_COMPLETION) return true;
  complain("--id %s: a File-set ID has up to 16 capital letters, digits, blanks and underscores",
           file_set.c_str());
  return false;
}

bool Directory::open(const std::string& path, bool allow_broken) {
  path_ = path;
  folder_ = fs::absolute(path).parent_path();
  FileSource source;
  const std::string error = source.open(path);
  if (!error.empty()) {
    report(path, error);
    return false;
  }
  VX_STATUS status = VX_Create_File(&id_, "DICOMDIR", "DICOMDIR", C_STORE_RQ);
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Open_File(application_, id_, &source, FileSource::file_input);
  if (status != VX_NORMAL_COMPLETION) problem_ = VX_Error_Message(status);
  int32_t count = 0;
  const bool linked = id_ >= 0 && VX_Dir_Root_Count(id_, &count) == VX_NORMAL_COMPLETION;
  if (problem_.empty() && !linked) problem_ = "it is no DICOMDIR: there is no offset of a first record";
  if (problem_.empty() || (allow_broken && linked)) return true;
  report(path, problem_);
  return false;
}

bool Directory::save() {
  FileSink sink;
  std::string error = sink.open(path_);
  if (error.empty()) {
    const VX_STATUS status = VX_Write_File(id_, 0, &sink, FileSink::file_output);
    error = status == VX_NORMAL_COMPLETION ? sink.commit() : VX_Error_Message(status);
  }
  if (!error.empty()) report(path_, error);
  return error.empty();
}

std::vector<Record> Directory::records() const {
  std::vector<Record> found;
  struct Open {
    int32_t entity;
    int32_t record;
    int32_t parent;
    int depth;
  };
  Open root{};
  int32_t last = 0;
  const char* name = nullptr;
  if (VX_Dir_Root_Entity(id_, &root.entity, &root.record, &name, &last) != VX_NORMAL_COMPLETION) return found;
  std::vector<Open> levels = {root};
  while (!levels.empty()) {
    Open& level = levels.back();
    if (level.record == 0) {
      levels.pop_back();
      continue;
    }
    const Record record{level.record, level.parent, level.depth, text_of(level.record, kRecordType)};
    found.push_back(record);
    if (VX_Dir_Next_Record(id_, level.entity, &level.record, &name, &last) != VX_NORMAL_COMPLETION) {
      level.record = 0;
    }
    Open below{0, 0, record.id, record.depth + 1};
    if (VX_Dir_Next_Entity(id_, record.id, &below.entity, &below.record, &name, &last) ==
        VX_NORMAL_COMPLETION) {
      levels.push_back(below);
    }
  }
  return found;
}

// The library's table lacks some pairs of the standard: the caller has asked ours.
int32_t Directory::add(int32_t parent, const std::string& type) {
  int32_t record = 0;
  int32_t entity = entities_[parent];
  const std::string name = item_name(type);
  VX_STATUS status = VX_ENTITY_ALREADY_EXISTS;
  if (entity == 0) {
    status = VX_Dir_Add_Entity(id_, parent, name.c_str(), &entity, &record);
    if (status == VX_ENTITY_ALREADY_EXISTS) {
      int32_t last = 0;
      const char* ignored = nullptr;
      status = parent == 0 ? VX_Dir_Root_Entity(id_, &entity, &record, &ignored, &last)
                           : VX_Dir_Next_Entity(id_, parent, &entity, &record, &ignored, &last);
      if (status == VX_NORMAL_COMPLETION) status = VX_ENTITY_ALREADY_EXISTS;
    }
    entities_[parent] = entity;
  }
  if (status == VX_ENTITY_ALREADY_EXISTS) status = VX_Dir_Add_Record(id_, entity, name.c_str(), &record);
  const bool there = status == VX_NORMAL_COMPLETION || status == VX_INVALID_LOWER_DIR_RECORD;
  if (!there) problem_ = VX_Error_Message(status);
  return there ? record : 0;
}

// --- File IDs (PS3.10 section 8.5) ---

std::string file_id_of(int32_t record) {
  std::string text;
  char part[256];
  for (VX_STATUS status = VX_Get_Value_To_String(record, kFileId, sizeof part, part);
       status == VX_NORMAL_COMPLETION;
       status = VX_Get_Next_Value_To_String(record, kFileId, sizeof part, part)) {
    std::string component = part;
    while (!component.empty() && component.back() == ' ') component.pop_back();
    text += (text.empty() ? "" : "/") + component;
  }
  return text;
}

bool is_file_id_part(const std::string& part) {
  return !part.empty() && part.size() <= 8 && std::all_of(part.begin(), part.end(), [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
}

// The components of a path below a folder; empty with a reason if it can be no File ID.
std::vector<std::string> file_id_parts(const fs::path& file, const fs::path& folder, bool any_names,
                                       std::string& reason) {
  std::vector<std::string> parts;
  const fs::path below = fs::absolute(file).lexically_normal().lexically_relative(folder.lexically_normal());
  for (const fs::path& part : below) parts.push_back(part.string());
  if (parts.empty() || parts[0] == ".." || parts[0] == ".") {
    reason = "it does not lie below the folder of the DICOMDIR";
  } else if (parts.size() > 8) {
    reason = "it lies more than 8 levels deep";
  } else if (!any_names && !std::all_of(parts.begin(), parts.end(), is_file_id_part)) {
    reason =
        "names in a DICOMDIR have up to 8 capital letters, digits and underscores (--any-names takes it)";
  }
  if (!reason.empty()) parts.clear();
  return parts;
}

// --- Adding files ---

// What records of a type hold beside their references, by the library's templates.
struct Keys {
  std::vector<uint32_t> copied;       // from the file; 0 at the end
  std::map<uint32_t, bool> required;  // whether null will do
};

// The tags of the findings of a validation that have a status.
std::vector<uint32_t> findings_of(int32_t record, VX_STATUS wanted) {
  std::vector<uint32_t> tags;
  ValErrObj* finding = nullptr;
  for (VX_STATUS status = VX_Validate_Message(record, &finding, VX_Errors_Only); finding != nullptr;) {
    if (finding->Status == wanted && finding->Tag > kSyntaxInFile) tags.push_back(finding->Tag);
    status = VX_Get_Next_Validate_Error(record, &finding);
    if (status != VX_NORMAL_COMPLETION) break;
  }
  return tags;
}

// An empty record tells by its findings what has to be there, and one of nulls what may not be null.
Keys learn_keys(const std::string& type) {
  Keys keys;
  int32_t record = -1;
  keys.copied.push_back(0x00080005);
  if (VX_Open_Item(&record, item_name(type).c_str()) == VX_NORMAL_COMPLETION) {
    uint32_t tag = 0;
    for (VX_STATUS status = VX_Get_First_Attribute(record, &tag, nullptr, nullptr);
         status == VX_NORMAL_COMPLETION; status = VX_Get_Next_Attribute(record, &tag, nullptr, nullptr)) {
      if (tag > kSyntaxInFile && tag != 0x00080005) keys.copied.push_back(tag);
    }
    for (const uint32_t missing : findings_of(record, VX_REQUIRED_VALUE_MISSING)) {
      keys.required[missing] = true;
      VX_Set_Value_To_NULL(record, missing);
    }
    for (const uint32_t null : findings_of(record, VX_VALUE_MAY_NOT_BE_NULL)) keys.required[null] = false;
    VX_Free_Item(&record);
  }
  keys.copied.push_back(0);
  return keys;
}

class Builder {
 public:
  Builder(Directory& directory, bool any_names) : directory_(directory), any_names_(any_names) {}
  // Takes over what the directory has.
  void learn();
  bool add(const std::string& path);

 private:
  int32_t level(int32_t parent, const char* type, const std::string& key, DicomFile& file,
                std::string& reason);
  bool fill(int32_t record, const std::string& type, DicomFile& file, std::string& reason);
  int32_t place(const std::string& type, DicomFile& file, std::string& reason);

  const Keys& keys_of(const std::string& type) {
    const auto known = keys_.find(type);
    return known != keys_.end() ? known->second : keys_.emplace(type, learn_keys(type)).first->second;
  }

  Directory& directory_;
  const bool any_names_;
  std::map<std::string, Keys> keys_;
  std::map<std::string, int32_t> known_;  // patients, studies and series by parent, type and key
  std::map<std::string, int32_t> files_;  // by upper case File ID
  std::set<std::string> instances_;
};

std::string level_key(int32_t parent, const std::string& type, const std::string& key) {
  return std::to_string(parent) + "\n" + type + "\n" + key;
}
constexpr std::pair<std::string_view, uint32_t> kLevelKeys[] = {
    {"PATIENT", kPatientId}, {"STUDY", kStudyUid}, {"SERIES", kSeriesUid}};

void Builder::learn() {
  for (const Record& record : directory_.records()) {
    for (const auto& [type, tag] : kLevelKeys) {
      if (record.type == type)
        known_[level_key(record.parent, record.type, text_of(record.id, tag))] = record.id;
    }
    const std::string file_id = file_id_of(record.id);
    if (file_id.empty()) continue;
    files_[upper(file_id)] = record.id;
    instances_.insert(text_of(record.id, kInstanceInFile));
  }
}

// The attributes of the record's type that the file has; those that may be null where it has none.
bool Builder::fill(int32_t record, const std::string& type, DicomFile& file, std::string& reason) {
  const Keys& keys = keys_of(type);
  const VX_STATUS status = VX_DDH_Copy_Values(file.id(), record, keys.copied.data());
  if (status != VX_NORMAL_COMPLETION) {
    reason = VX_Error_Message(status);
    return false;
  }
  for (const auto& [tag, may_be_null] : keys.required) {
    int32_t count = 0;
    if (VX_Get_Value_Count(record, tag, &count) == VX_NORMAL_COMPLETION && count > 0) continue;
    if (!may_be_null) {
      reason = "it lacks " + describe_tag(tag) + ", which a record of type " + type + " has to have";
      return false;
    }
    VX_Set_Value_To_NULL(record, tag);
  }
  return true;
}

// A record that is complete goes into little room: without what the template offered and nobody filled, and
// packed.
void shrink(int32_t directory, int32_t record) {
  std::vector<uint32_t> unfilled;
  uint32_t tag = 0;
  int32_t count = 0;
  for (VX_STATUS status = VX_Get_First_Attribute(record, &tag, nullptr, &count);
       status == VX_NORMAL_COMPLETION; status = VX_Get_Next_Attribute(record, &tag, nullptr, &count)) {
    if (count == 0) unfilled.push_back(tag);
  }
  for (const uint32_t each : unfilled) VX_Delete_Attribute(record, each);
  VX_Dir_Stream_Directory_Record(directory, record);
}

int32_t Builder::level(int32_t parent, const char* type, const std::string& key, DicomFile& file,
                       std::string& reason) {
  if (key.empty()) {
    reason = std::string("it has no key of a ") + type + " record";
    return 0;
  }
  int32_t& known = known_[level_key(parent, type, key)];
  if (known != 0) return known;
  const int32_t record = directory_.add(parent, type);
  if (record == 0) reason = directory_.problem();
  if (record != 0 && fill(record, type, file, reason)) {
    shrink(directory_.id(), record);
    return known = record;
  }
  if (record != 0) VX_Dir_Delete_Record(directory_.id(), record);
  return 0;
}

// The record that the file's own goes below, 0 for the root or, with a reason, none.
int32_t Builder::place(const std::string& type, DicomFile& file, std::string& reason) {
  if (stands_at_root(type)) return 0;
  int32_t parent = level(0, "PATIENT", text_of(file.id(), kPatientId), file, reason);
  if (parent == 0 || type == "HL7 STRUC DOC") return parent;
  parent = level(parent, "STUDY", text_of(file.id(), kStudyUid), file, reason);
  return parent != 0 ? level(parent, "SERIES", text_of(file.id(), kSeriesUid), file, reason) : 0;
}

bool Builder::add(const std::string& path) {
  const CurrentFile current(path);
  std::string reason;
  const auto refuse = [&path](const std::string& why) {
    report(path, why + ": left out");
    return false;
  };
  const auto parts = file_id_parts(path, directory_.folder(), any_names_, reason);
  if (parts.empty()) return refuse(reason);
  std::string file_id;
  for (const std::string& part : parts) file_id += (file_id.empty() ? "" : "/") + part;
  if (const auto old = files_.find(upper(file_id)); old != files_.end()) {
    // The file takes the place of what the directory says of it.
    instances_.erase(text_of(old->second, kInstanceInFile));
    VX_Dir_Delete_Record(directory_.id(), old->second);
    files_.erase(old);
  }
  DicomFile file;
  const VX_STATUS status = file.open(path, {.last_tag = kLastKey});
  if (status != VX_NORMAL_COMPLETION) return refuse(file.problem());
  if (!file.has_meta()) return refuse("it has no meta group");
  const std::string sop_class = text_of(file.id(), 0x00020002);
  const std::string instance = text_of(file.id(), 0x00020003);
  if (sop_class.empty() || instance.empty()) return refuse("it does not say what it is");
  if (sop_class == "1.2.840.10008.1.3.10") return refuse("it is a DICOMDIR itself");
  if (!instances_.insert(instance).second) return refuse("another file holds the same instance");
  const std::string type = type_of_class(sop_class);
  const int32_t parent = place(type, file, reason);
  int32_t record = reason.empty() ? directory_.add(parent, type) : 0;
  if (record == 0 && reason.empty()) reason = directory_.problem();
  if (record != 0 && !fill(record, type, file, reason)) {
    VX_Dir_Delete_Record(directory_.id(), record);
    record = 0;
  }
  if (record == 0) {
    instances_.erase(instance);
    return refuse(reason);
  }
  VX_Set_Value_From_String(record, kFileId, parts[0].c_str());
  for (std::size_t i = 1; i < parts.size(); ++i)
    VX_Set_Next_Value_From_String(record, kFileId, parts[i].c_str());
  VX_Set_Value_From_String(record, kClassInFile, sop_class.c_str());
  VX_Set_Value_From_String(record, kInstanceInFile, instance.c_str());
  VX_Set_Value_From_String(record, kSyntaxInFile, text_of(file.id(), 0x00020010).c_str());
  shrink(directory_.id(), record);
  files_[upper(file_id)] = record;
  return true;
}

// Patients, studies and series without anything below.
void drop_empty(Directory& directory) {
  for (bool again = true; again;) {
    again = false;
    for (const Record& record : directory.records()) {
      int32_t count = 0;
      const bool holds_others = record.type == "PATIENT" || record.type == "STUDY" || record.type == "SERIES";
      if (!holds_others || VX_Dir_Item_Count(directory.id(), record.id, &count) != VX_NORMAL_COMPLETION)
        continue;
      if (count == 1)
        again = VX_Dir_Delete_Record(directory.id(), record.id) == VX_NORMAL_COMPLETION || again;
    }
  }
}

int add_files(Directory& directory, const std::vector<std::string>& paths, bool any_names) {
  bool failed = false;
  Builder builder(directory, any_names);
  builder.learn();
  const fs::path own = directory.folder() / "DICOMDIR";
  for (const std::string& path : expand_paths(paths, failed)) {
    if (fs::absolute(path).lexically_normal() == own.lexically_normal()) continue;
    if (!builder.add(path)) failed = true;
  }
  drop_empty(directory);
  int32_t count = 0;
  if (VX_Dir_Root_Count(directory.id(), &count) == VX_NORMAL_COMPLETION) VX_Dir_Sort(directory.id());
  if (!directory.save()) return kUsage;
  return failed ? kFindings : kSuccess;
}

// --- The subcommands ---

std::vector<std::string> rest_of(const Args& args) {
  return {args.paths.begin() + 2, args.paths.end()};
}

int create(const Args& args, const std::string& path) {
  Directory directory;
  if (!directory.make(path, args.get("--id"))) return kUsage;
  std::vector<std::string> files = rest_of(args);
  if (files.empty()) files.push_back(directory.folder().string());
  return add_files(directory, files, args.has("--any-names"));
}

int add(const Args& args, const std::string& path) {
  Directory directory;
  if (!directory.open(path, false)) return kUsage;
  return add_files(directory, rest_of(args), args.has("--any-names"));
}

int remove(const Args& args, const std::string& path) {
  Directory directory;
  if (!directory.open(path, false)) return kUsage;
  std::set<std::string> file_ids;
  for (const std::string& file : rest_of(args)) {
    const fs::path below = fs::absolute(file).lexically_normal().lexically_relative(directory.folder());
    file_ids.insert(upper(below.generic_string()));
  }
  const std::string patient = args.get("--patient");
  const std::string uid = args.get("--uid");
  const auto is_meant = [&](const Record& record) {
    if (file_ids.count(upper(file_id_of(record.id))) != 0) return true;
    if (!patient.empty() && record.type == "PATIENT" && text_of(record.id, kPatientId) == patient)
      return true;
    if (uid.empty()) return false;
    const uint32_t tag = record.type == "STUDY"    ? kStudyUid
                         : record.type == "SERIES" ? kSeriesUid
                                                   : kInstanceInFile;
    return text_of(record.id, tag) == uid;
  };
  int removed = 0;
  for (const Record& record : directory.records()) {
    int32_t count = 0;
    // What lay below a removed one is gone already.
    if (VX_Dir_Item_Count(directory.id(), record.id, &count) != VX_NORMAL_COMPLETION || !is_meant(record))
      continue;
    if (VX_Dir_Delete_Record(directory.id(), record.id) == VX_NORMAL_COMPLETION) ++removed;
  }
  if (removed == 0) {
    report(path, "no record is of that file, patient or UID");
    return kFindings;
  }
  drop_empty(directory);
  return directory.save() ? kSuccess : kUsage;
}

// What tells records of a type apart, for people.
std::string describe_record(int32_t id, const std::string& type) {
  constexpr uint32_t kTags[] = {0x00100010, kPatientId, 0x00080020, 0x00081030,
                                0x00080060, 0x00200011, 0x00200013};
  std::string text;
  for (const uint32_t tag : kTags) {
    const std::string value = text_of(id, tag);
    if (!value.empty()) text += "  " + value;
  }
  const std::string file_id = file_id_of(id);
  if (!file_id.empty()) text += "  " + file_id;
  return type + text;
}

void print_record(int32_t id, int depth, const std::string& type, bool json) {
  if (!json) {
    std::printf("%*s%s\n", depth * 2, "", describe_record(id, type).c_str());
    return;
  }
  std::string line = "{\"depth\":" + std::to_string(depth) + ",\"type\":";
  append_json(line, type);
  const auto member = [&line](const char* name, const std::string& value) {
    if (value.empty()) return;
    line += std::string(",\"") + name + "\":";
    append_json(line, value);
  };
  member("file", file_id_of(id));
  member("class", text_of(id, kClassInFile));
  member("instance", text_of(id, kInstanceInFile));
  member("syntax", text_of(id, kSyntaxInFile));
  member("patient", text_of(id, kPatientId));
  member("name", text_of(id, 0x00100010));
  member("study", text_of(id, kStudyUid));
  member("series", text_of(id, kSeriesUid));
  std::printf("%s}\n", line.c_str());
}

// Record by record from the disk: a directory of any size takes little memory. No more records than the file
// has room for: where offsets lead to one on many ways, there would be no end.
class Listing {
 public:
  Listing(uintmax_t file_size, bool json) : left_(file_size / kLeastRecord), json_(json) {}
  VX_STATUS below(int32_t parent, int depth);

 private:
  static constexpr uintmax_t kLeastRecord = 16;
  uintmax_t left_;
  const bool json_;
};

VX_STATUS Listing::below(int32_t parent, int depth) {
  int32_t id = 0;
  VX_STATUS status = VX_DDH_Get_First_Lower_Record(parent, &id);
  while (status == VX_NORMAL_COMPLETION && id != 0) {
    if (left_-- == 0) return VX_INVALID_DIRECTORY_RECORD_OFFSET;
    print_record(id, depth, text_of(id, kRecordType), json_);
    status = below(id, depth + 1);
    if (status != VX_NORMAL_COMPLETION) break;
    int32_t next = 0;
    status = VX_DDH_Get_Next_Record(id, &next);
    VX_DDH_Release_Record(id);
    id = next;
  }
  return status;
}

int list(const Args& args, const std::string& path) {
  const CurrentFile current(path);
  const bool json = args.has("--json");
  int32_t id = -1;
  VX_STATUS status = VX_NORMAL_COMPLETION;
  {
    const MutedWarnings muted;
    status = VX_DDH_Open(path.c_str(), &id);
  }
  if (status == VX_NORMAL_COMPLETION) {
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    status = Listing(error ? 0 : size, json).below(id, 0);
    VX_Free_File(&id);
    if (status == VX_NORMAL_COMPLETION) return kSuccess;
    report(path, VX_Error_Message(status));
    return kFindings;
  }
  // Big endian, and what else is not read in place.
  Directory directory;
  if (!directory.open(path, true)) return kUsage;
  for (const Record& record : directory.records()) print_record(record.id, record.depth, record.type, json);
  return directory.problem().empty() ? kSuccess : kFindings;
}

// --- Checking ---

class Check {
 public:
  Check(Directory& directory, std::string path, bool fast)
      : directory_(directory), path_(std::move(path)), fast_(fast) {}
  int run();

 private:
  void found(const std::string& text) {
    std::printf("%s: %s\n", path_.c_str(), text.c_str());
    ++findings_;
  }
  void check_record(const Record& record, const std::string& parent_type);
  void check_file(const Record& record, const std::string& file_id);
  void check_uid(const Record& record);
  void check_rest(std::size_t reached);
  void check_rules();

  Directory& directory_;
  const std::string path_;
  const bool fast_;
  int findings_ = 0;
  std::set<std::string> uids_;
  std::set<fs::path> listed_;
};

void Check::check_uid(const Record& record) {
  const uint32_t tag = record.type == "STUDY"    ? kStudyUid
                       : record.type == "SERIES" ? kSeriesUid
                                                 : kInstanceInFile;
  const std::string uid = text_of(record.id, tag);
  if (!uid.empty() && !uids_.insert(uid).second) found("two records for " + uid);
}

void Check::check_file(const Record& record, const std::string& file_id) {
  const fs::path file = find_file(directory_.folder(), file_id);
  if (file.empty()) {
    found(file_id + ": there is no such file");
    return;
  }
  listed_.insert(file.lexically_normal());
  if (fast_) return;
  const CurrentFile current(file.string());
  DicomFile object;
  if (object.open(file.string(), {.last_tag = 0x0002FFFF}) != VX_NORMAL_COMPLETION) {
    found(file_id + ": " + object.problem());
    return;
  }
  constexpr std::pair<uint32_t, uint32_t> kPairs[] = {
      {kClassInFile, 0x00020002}, {kInstanceInFile, 0x00020003}, {kSyntaxInFile, 0x00020010}};
  for (const auto& [in_record, in_file] : kPairs) {
    const std::string said = text_of(record.id, in_record);
    const std::string is = text_of(object.id(), in_file);
    if (said != is) found(file_id + ": " + describe_tag(in_record) + " is " + said + ", the file has " + is);
  }
}

void Check::check_record(const Record& record, const std::string& parent_type) {
  if (!may_stand_below(parent_type, record.type)) {
    found("a record of type " + record.type + " may not stand " +
          (parent_type.empty() ? "at the root" : "below " + parent_type));
  }
  int32_t in_use = 0xFFFF;
  VX_Get_Value_To_Int(record.id, 0x00041410, &in_use);
  if (in_use == 0) found("a record of type " + record.type + " is marked as out of use");
  check_uid(record);
  const std::string file_id = file_id_of(record.id);
  if (!file_id.empty()) check_file(record, file_id);
}

// Records that no chain reaches, and files that no record names.
void Check::check_rest(std::size_t reached) {
  std::size_t all = 0;
  for (const int32_t id : sequence_items(directory_.id(), 0x00041220)) {
    if (text_of(id, kRecordType) != "MRDR") ++all;
  }
  if (all > reached) found(std::to_string(all - reached) + " records are in the file, but in no chain");
  if (fast_) return;
  bool failed = false;
  for (const std::string& path : expand_paths({directory_.folder().string()}, failed)) {
    const fs::path file = fs::path(path).lexically_normal();
    if (listed_.count(file) != 0 || fs::equivalent(file, path_)) continue;
    DicomFile object;
    const MutedWarnings muted;
    if (object.open(path, {.last_tag = 0x0002FFFF}) == VX_NORMAL_COMPLETION && object.has_meta()) {
      found(file.lexically_relative(directory_.folder()).string() + ": the file has no record");
    }
  }
}

void Check::check_rules() {
  ValErrObj* error = nullptr;
  for (VX_STATUS status = VX_Validate_File(directory_.id(), &error, VX_Errors_Only);
       status == VX_DOES_NOT_VALIDATE && error != nullptr;) {
    found(describe_tag(error->Tag) + ": " + VX_Error_Message(error->Status));
    if (VX_Get_Next_Validate_Error(directory_.id(), &error) != VX_NORMAL_COMPLETION) break;
  }
}

int Check::run() {
  if (!directory_.problem().empty()) found(directory_.problem());
  const std::vector<Record> records = directory_.records();
  std::map<int32_t, std::string> types;
  for (const Record& record : records) {
    types[record.id] = record.type;
    check_record(record, record.parent != 0 ? types[record.parent] : std::string());
  }
  check_rest(records.size());
  check_rules();
  std::printf("%s: %zu records, %d findings\n", path_.c_str(), records.size(), findings_);
  return findings_ == 0 ? kSuccess : kFindings;
}

int check(const Args& args, const std::string& path) {
  const CurrentFile current(path);
  Directory directory;
  if (!directory.open(path, true)) return kUsage;
  return Check(directory, path, args.has("--fast")).run();
}

// Anew from the files that are there; what is known of the file-set stays.
int repair(const Args& args, const std::string& path) {
  std::string file_set = args.get("--id");
  if (!args.has("--id")) {
    DicomFile old;
    const MutedWarnings muted;
    old.open(path, {.last_tag = 0x00041200});
    if (old.readable()) file_set = text_of(old.id(), 0x00041130);
  }
  Directory directory;
  if (!directory.make(path, file_set)) return kUsage;
  std::vector<std::string> files = rest_of(args);
  if (files.empty()) files.push_back(directory.folder().string());
  return add_files(directory, files, args.has("--any-names"));
}

struct Action {
  const char* name;
  int (*run)(const Args& args, const std::string& path);
};
constexpr Action kActions[] = {{"create", create}, {"add", add},     {"remove", remove},
                               {"list", list},     {"check", check}, {"repair", repair}};

int run(const Args& args) {
  if (args.paths.size() < 2) {
    complain("dir needs an action and a DICOMDIR; --help tells more");
    return kUsage;
  }
  for (const Action& action : kActions) {
    if (args.paths[0] == action.name) return action.run(args, args.paths[1]);
  }
  complain("dir %s: create, add, remove, list, check or repair", args.paths[0].c_str());
  return kUsage;
}

}  // namespace

const Command kDir = {
    "dir",
    "ACTION DICOMDIR [OPTION...] [FILE...]",
    "make, change, list and check DICOMDIR files",
    "create   makes a DICOMDIR of the files, by default of all in its folder\n"
    "add      adds files, or renews what it says of them\n"
    "remove   removes the records of files, of a patient or of a UID; the files stay\n"
    "list     shows the records; works on directories of any size\n"
    "check    finds offsets, records and files that do not fit\n"
    "repair   makes it anew from the files, when the old one can not be read\n"
    "The files lie below the folder of the DICOMDIR. The new one replaces the old one only\n"
    "when it is complete.",
    kOptions,
    run};

}  // namespace vexal
