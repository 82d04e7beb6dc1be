// vexal dir check: what in a DICOMDIR does not fit itself or the files.
#include <cstdio>
#include <map>
#include <set>

#include "base/args.h"
#include "base/names.h"
#include "base/printable.h"
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

class Check {
 public:
  Check(Directory& directory, std::string path, bool fast, std::vector<std::string>& faults)
      : directory_(directory), path_(std::move(path)), fast_(fast), faults_(faults) {}
  std::size_t run();  // the number of records

 private:
  void found(std::string text) { faults_.push_back(std::move(text)); }
  void check_record(const Record& record, const std::string& parent_type);
  void check_file(const Record& record, const std::string& file_id);
  void check_uid(const Record& record);
  void check_rest(std::size_t reached);
  void check_rules();

  Directory& directory_;
  const std::string path_;
  const bool fast_;
  std::vector<std::string>& faults_;
  std::set<std::string> uids_;
  std::set<fs::path> listed_;
};

void Check::check_uid(const Record& record) {
  const std::string uid = text_of(record.id, uid_tag_of(record.type));
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
  if (object.open(file.string(), {.last_tag = tags::kLastOfMeta}) != VX_NORMAL_COMPLETION) {
    found(file_id + ": " + object.problem());
    return;
  }
  constexpr std::pair<uint32_t, uint32_t> kPairs[] = {
      {tags::kReferencedSOPClassUIDInFile, tags::kMediaStorageSOPClassUID},
      {tags::kReferencedSOPInstanceUIDInFile, tags::kMediaStorageSOPInstanceUID},
      {tags::kReferencedTransferSyntaxUIDInFile, tags::kTransferSyntaxUID}};
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
  VX_Get_Value_To_Int(record.id, tags::kRecordInUseFlag, &in_use);
  if (in_use == 0) found("a record of type " + record.type + " is marked as out of use");
  check_uid(record);
  const std::string file_id = file_id_of(record.id);
  if (!file_id.empty()) check_file(record, file_id);
}

// Records that no chain reaches, and files that no record names.
void Check::check_rest(std::size_t reached) {
  std::size_t all = 0;
  for (const int32_t id : sequence_items(directory_.id(), tags::kDirectoryRecordSequence)) {
    if (text_of(id, tags::kDirectoryRecordType) != "MRDR") ++all;
  }
  if (all > reached) found(std::to_string(all - reached) + " records are in the file, but in no chain");
  if (fast_) return;
  bool failed = false;
  for (const std::string& path : expand_paths({directory_.folder().string()}, failed)) {
    const fs::path file = fs::path(path).lexically_normal();
    std::error_code ignored;
    if (listed_.count(file) != 0 || fs::equivalent(file, path_, ignored)) continue;
    DicomFile object;
    const MutedWarnings muted;
    if (object.open(path, {.last_tag = tags::kLastOfMeta}) == VX_NORMAL_COMPLETION && object.has_meta()) {
      found(file.lexically_relative(directory_.folder()).string() + ": the file has no record");
    }
  }
  if (failed) found("not all of its folder can be looked into");
}

void Check::check_rules() {
  ValErrObj* error = nullptr;
  for (VX_STATUS status = VX_Validate_File(directory_.id(), &error, VX_Errors_Only);
       status == VX_DOES_NOT_VALIDATE && error != nullptr;) {
    found(describe_tag(error->Tag) + ": " + VX_Error_Message(error->Status));
    if (VX_Get_Next_Validate_Error(directory_.id(), &error) != VX_NORMAL_COMPLETION) break;
  }
}

std::size_t Check::run() {
  if (!directory_.problem().empty()) found(directory_.problem());
  const std::vector<Record> records = directory_.records();
  std::map<int32_t, std::string> types;
  for (const Record& record : records) {
    types[record.id] = record.type;
    check_record(record, record.parent != 0 ? types[record.parent] : std::string());
  }
  check_rest(records.size());
  check_rules();
  return records.size();
}

}  // namespace

bool directory_faults(const std::string& path, bool fast, std::vector<std::string>& faults,
                      std::size_t& records) {
  const CurrentFile current(path);
  Directory directory;
  if (!directory.open(path, true)) return false;
  records = Check(directory, path, fast, faults).run();
  return true;
}

int check_directory(const std::string& path, bool fast) {
  std::vector<std::string> faults;
  std::size_t records = 0;
  if (!directory_faults(path, fast, faults, records)) return kUsage;
  for (const std::string& fault : faults) say("%s: %s", path.c_str(), fault.c_str());
  say("%s: %zu records, %zu findings", path.c_str(), records, faults.size());
  return faults.empty() ? kSuccess : kFindings;
}

}  // namespace vexal
