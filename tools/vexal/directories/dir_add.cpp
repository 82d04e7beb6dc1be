// Files of a file-set into its DICOMDIR.
#include <algorithm>
#include <map>
#include <set>

#include "base/args.h"
#include "base/attributes.h"
#include "base/names.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "dir.h"
#include "files/file_set.h"
#include "files/files.h"

namespace vexal {
namespace {

namespace fs = std::filesystem;

bool is_file_id_part(const std::string& part) {
  return !part.empty() && part.size() <= 8 && std::all_of(part.begin(), part.end(), [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
}

// Whether a name comes back from a record as it was: a backslash parts components, blanks at the ends are
// padding.
bool is_any_name(const std::string& part) {
  return part.front() != ' ' && part.back() != ' ' && std::none_of(part.begin(), part.end(), [](char c) {
           return c == '\\' || static_cast<unsigned char>(c) < 0x20;
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
  } else if (!std::all_of(parts.begin(), parts.end(), is_any_name)) {
    reason = "no record can hold a name with backslashes, control characters or blanks at its ends";
  } else if (has_link(folder, parts)) {
    reason = "a symbolic link is no file of the file-set";
  }
  if (!reason.empty()) parts.clear();
  return parts;
}

constexpr uint32_t kLastKey = 0x53FFFFFF;  // nothing in a record comes from behind it

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
    if (finding->Status == wanted && finding->Tag > tags::kReferencedTransferSyntaxUIDInFile)
      tags.push_back(finding->Tag);
    status = VX_Get_Next_Validate_Error(record, &finding);
    if (status != VX_NORMAL_COMPLETION) break;
  }
  return tags;
}

// An empty record tells by its findings what has to be there, and one of nulls what may not be null.
Keys learn_keys(const std::string& type) {
  Keys keys;
  int32_t record = -1;
  keys.copied.push_back(tags::kSpecificCharacterSet);
  if (VX_Open_Item(&record, record_item_name(type).c_str()) == VX_NORMAL_COMPLETION) {
    for_each_attribute(record, [&](uint32_t tag, VX_VR, int32_t) {
      if (tag > tags::kReferencedTransferSyntaxUIDInFile && tag != tags::kSpecificCharacterSet)
        keys.copied.push_back(tag);
    });
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
  Builder(Directory& directory, bool any_names, const StandIns& stand_ins)
      : directory_(directory), any_names_(any_names), stand_ins_(stand_ins) {}
  // Takes over what the directory has.
  void learn();
  bool add(const std::string& path);

 private:
  int32_t level(int32_t parent, const char* type, const std::string& key, DicomFile& file,
                std::string& reason);
  bool fill(int32_t record, const std::string& type, DicomFile& file, std::string& reason);
  int32_t place(const std::string& type, DicomFile& file, std::string& reason);
  int32_t describe(const std::string& type, DicomFile& file, std::string& reason);
  bool is_other_file(int32_t record, const std::string& file_id, const std::string& path) const;

  const Keys& keys_of(const std::string& type) {
    const auto known = keys_.find(type);
    return known != keys_.end() ? known->second : keys_.emplace(type, learn_keys(type)).first->second;
  }

  Directory& directory_;
  const bool any_names_;
  const StandIns& stand_ins_;
  std::map<std::string, Keys> keys_;
  std::map<std::string, int32_t> known_;  // patients, studies and series by parent, type and key
  std::map<std::string, int32_t> files_;  // by upper case File ID
  std::set<std::string> instances_;
};

std::string level_key(int32_t parent, const std::string& type, const std::string& key) {
  return std::to_string(parent) + "\n" + type + "\n" + key;
}
constexpr std::pair<std::string_view, uint32_t> kLevelKeys[] = {
    {"PATIENT", tags::kPatientID}, {"STUDY", tags::kStudyInstanceUID}, {"SERIES", tags::kSeriesInstanceUID}};

void Builder::learn() {
  for (const Record& record : directory_.records()) {
    for (const auto& [type, tag] : kLevelKeys) {
      if (record.type == type)
        known_[level_key(record.parent, record.type, text_of(record.id, tag))] = record.id;
    }
    const std::string file_id = file_id_of(record.id);
    if (file_id.empty()) continue;
    files_[upper(file_id)] = record.id;
    instances_.insert(text_of(record.id, tags::kReferencedSOPInstanceUIDInFile));
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
    if (VX_Get_Value_Count(record, tag, &count) == VX_NORMAL_COMPLETION && count > 0 &&
        (may_be_null || !stand_ins_.contains(tag) || !text_of(record, tag).empty()))
      continue;
    if (const auto stand_in = stand_ins_.find(tag); !may_be_null && stand_in != stand_ins_.end()) {
      set_all_text(record, tag, stand_in->second);
      continue;
    }
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
  for_each_attribute(record, [&](uint32_t tag, VX_VR, int32_t count) {
    if (count == 0) unfilled.push_back(tag);
  });
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
  int32_t parent = level(0, "PATIENT", text_of(file.id(), tags::kPatientID), file, reason);
  if (parent == 0 || type == "HL7 STRUC DOC") return parent;
  parent = level(parent, "STUDY", text_of(file.id(), tags::kStudyInstanceUID), file, reason);
  return parent != 0 ? level(parent, "SERIES", text_of(file.id(), tags::kSeriesInstanceUID), file, reason)
                     : 0;
}

// Of the content of a report, a record has what modifies the name of the whole (PS3.3 section F.5); when it
// was verified stands in the items of those who did it.
void reduce_report(int32_t file) {
  const std::vector<int32_t> nodes = sequence_items(file, tags::kContentSequence);
  VX_Set_Value_To_Empty(file, tags::kContentSequence);
  bool modified = false;
  for (int32_t node : nodes) {
    if (text_of(node, tags::kRelationshipType) != "HAS CONCEPT MOD") {
      VX_Free_Item(&node);
      continue;
    }
    VX_Set_Next_Value_From_Int(file, tags::kContentSequence, node);
    modified = true;
  }
  if (!modified) VX_Delete_Attribute(file, tags::kContentSequence);
  if (text_of(file, tags::kVerificationFlag) != "VERIFIED") return;
  std::string last;
  for (const int32_t observer : sequence_items(file, tags::kVerifyingObserverSequence)) {
    last = std::max(last, text_of(observer, tags::kVerificationDateTime));
  }
  if (!last.empty()) VX_Set_Value_From_String(file, tags::kVerificationDateTime, last.c_str());
}

// A DICOMDIR has no compressed pixels, and its records may be without an icon.
void drop_compressed_icon(int32_t file) {
  for (const int32_t icon : sequence_items(file, tags::kIconImageSequence)) {
    VX_TRANSFER_SYNTAX syntax = 0;
    if (VX_Get_Message_Transfer_Syntax(icon, &syntax) == VX_NORMAL_COMPLETION && !is_uncompressed(syntax)) {
      VX_Delete_Attribute(file, tags::kIconImageSequence);
      return;
    }
  }
}

// The file's own record, filled but for its references; 0 with a reason.
int32_t Builder::describe(const std::string& type, DicomFile& file, std::string& reason) {
  drop_compressed_icon(file.id());
  if (type == "SR DOCUMENT" || type == "KEY OBJECT DOC") reduce_report(file.id());
  const int32_t parent = place(type, file, reason);
  if (!reason.empty()) return 0;
  const int32_t record = directory_.add(parent, type);
  if (record == 0) reason = directory_.problem();
  if (record == 0 || fill(record, type, file, reason)) return record;
  VX_Dir_Delete_Record(directory_.id(), record);
  return 0;
}

// Whether a record that has the file's name but for its case is of another file, which is there, too.
bool Builder::is_other_file(int32_t record, const std::string& file_id, const std::string& path) const {
  const std::string name = file_id_of(record);
  if (name == file_id) return false;
  std::error_code error;
  const fs::path other = find_file(directory_.folder(), name);
  return !other.empty() && !fs::equivalent(other, path, error);
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
  DicomFile file;
  const VX_STATUS status = file.open(path, {.last_tag = kLastKey});
  if (status != VX_NORMAL_COMPLETION) return refuse(file.problem());
  if (!file.has_meta()) return refuse("it has no meta group");
  const std::string sop_class = text_of(file.id(), tags::kMediaStorageSOPClassUID);
  const std::string instance = text_of(file.id(), tags::kMediaStorageSOPInstanceUID);
  if (sop_class.empty() || instance.empty()) return refuse("it does not say what it is");
  if (sop_class == kDirectoryClass) return refuse("it is a DICOMDIR itself");
  // The file takes the place of what the directory says of it, once that is known to be possible.
  int32_t& known = files_[upper(file_id)];
  const std::string old_instance = known != 0 ? text_of(known, tags::kReferencedSOPInstanceUIDInFile) : "";
  if (instance != old_instance && instances_.count(instance) != 0)
    return refuse("another file holds the same instance");
  if (known != 0 && is_other_file(known, file_id, path))
    return refuse("the name of another file differs from its in case alone");
  int32_t below = 0;
  if (known != 0 && VX_Dir_Item_Count(directory_.id(), known, &below) == VX_NORMAL_COMPLETION && below > 1)
    return refuse("its record has others below it");
  const int32_t record = describe(record_type_of_class(sop_class), file, reason);
  if (record == 0) return refuse(reason);
  VX_Set_Value_From_String(record, tags::kReferencedFileID, parts[0].c_str());
  for (std::size_t i = 1; i < parts.size(); ++i)
    VX_Set_Next_Value_From_String(record, tags::kReferencedFileID, parts[i].c_str());
  VX_Set_Value_From_String(record, tags::kReferencedSOPClassUIDInFile, sop_class.c_str());
  VX_Set_Value_From_String(record, tags::kReferencedSOPInstanceUIDInFile, instance.c_str());
  VX_Set_Value_From_String(record, tags::kReferencedTransferSyntaxUIDInFile,
                           text_of(file.id(), tags::kTransferSyntaxUID).c_str());
  shrink(directory_.id(), record);
  if (known != 0) VX_Dir_Delete_Record(directory_.id(), known);
  instances_.erase(old_instance);
  instances_.insert(instance);
  known = record;
  return true;
}

}  // namespace

std::set<int32_t> empty_records(const Directory& directory) {
  std::set<int32_t> found;
  for (const Record& record : directory.records()) {
    int32_t count = 0;
    const bool holds_others = record.type == "PATIENT" || record.type == "STUDY" || record.type == "SERIES";
    if (holds_others && VX_Dir_Item_Count(directory.id(), record.id, &count) == VX_NORMAL_COMPLETION &&
        count == 1)
      found.insert(record.id);
  }
  return found;
}

void drop_empty_records(Directory& directory, const std::set<int32_t>& but) {
  for (bool again = true; again;) {
    again = false;
    for (const int32_t record : empty_records(directory)) {
      if (but.count(record) == 0)
        again = VX_Dir_Delete_Record(directory.id(), record) == VX_NORMAL_COMPLETION || again;
    }
  }
}

int add_files(Directory& directory, const std::vector<std::string>& paths, bool any_names,
              const StandIns& stand_ins) {
  bool failed = false;
  bool taken = false;
  Builder builder(directory, any_names, stand_ins);
  builder.learn();
  const std::set<int32_t> empty_before = empty_records(directory);
  const fs::path own = fs::absolute(directory.path()).lexically_normal();
  for (const std::string& path : expand_paths(paths, failed)) {
    if (fs::absolute(path).lexically_normal() == own) continue;
    (builder.add(path) ? taken : failed) = true;
  }
  if (failed && !taken) {
    report(directory.path(), "nothing to put into it: left as it is");
    return kFindings;
  }
  drop_empty_records(directory, empty_before);
  int32_t count = 0;
  if (VX_Dir_Root_Count(directory.id(), &count) == VX_NORMAL_COMPLETION) VX_Dir_Sort(directory.id());
  if (!directory.save()) return kUsage;
  return failed ? kFindings : kSuccess;
}

}  // namespace vexal
