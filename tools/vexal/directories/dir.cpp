// vexal dir: DICOMDIR files made, changed, listed and checked.
#include "dir.h"

#include <filesystem>
#include <set>

#include "base/commands.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "files/file_set.h"
#include "files/files.h"

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

std::vector<std::string> rest_of(const Args& args) {
  return {args.paths.begin() + 2, args.paths.end()};
}

int create(const Args& args, const std::string& path) {
  Directory directory;
  if (!directory.lock_to_replace(path, false) || !directory.make(path, args.get("--id"))) return kUsage;
  std::vector<std::string> files = rest_of(args);
  if (files.empty()) files.push_back(directory.folder().string());
  return add_files(directory, files, args.has("--any-names"));
}

int add(const Args& args, const std::string& path) {
  Directory directory;
  if (!directory.open_to_change(path)) return kUsage;
  return add_files(directory, rest_of(args), args.has("--any-names"));
}

int remove(const Args& args, const std::string& path) {
  Directory directory;
  if (!directory.open_to_change(path)) return kUsage;
  std::set<std::string> file_ids;
  for (const std::string& file : rest_of(args)) {
    const fs::path below = fs::absolute(file).lexically_normal().lexically_relative(directory.folder());
    file_ids.insert(upper(below.generic_string()));
  }
  const std::string patient = args.get("--patient");
  const std::string uid = args.get("--uid");
  const auto is_meant = [&](const Record& record) {
    if (file_ids.count(upper(file_id_of(record.id))) != 0) return true;
    if (!patient.empty() && record.type == "PATIENT" && text_of(record.id, tags::kPatientID) == patient)
      return true;
    if (uid.empty()) return false;
    return text_of(record.id, uid_tag_of(record.type)) == uid;
  };
  int removed = 0;
  const std::set<int32_t> empty_before = empty_records(directory);
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
  drop_empty_records(directory, empty_before);
  return directory.save() ? kSuccess : kUsage;
}

int list(const Args& args, const std::string& path) {
  return list_records(path, args.has("--json"));
}

int check(const Args& args, const std::string& path) {
  return check_directory(path, args.has("--fast"));
}

// Anew from the files that are there; what is known of the file-set stays.
int repair(const Args& args, const std::string& path) {
  Directory directory;
  if (!directory.lock_to_replace(path, true)) return kUsage;
  std::string file_set = args.get("--id");
  if (!args.has("--id")) {
    DicomFile old;
    const MutedWarnings muted;
    old.open(path, {.last_tag = tags::kOffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity});
    if (old.readable()) file_set = text_of(old.id(), tags::kFileSetID);
  }
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
