// What the actions of vexal dir share: a DICOMDIR in memory, the types of its records, and what is done with
// them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "vexalkit.h"

namespace vexal {

// The first value of a key, without blanks at its end.
// The UID that tells records of a type apart: of a study, a series or an instance.
uint32_t uid_tag_of(std::string_view record_type);
// (0004,1500) with slashes between its components.
std::string file_id_of(int32_t record);

// --- Types of records (PS3.3 sections F.4 and F.5) ---

std::string record_type_of_class(const std::string& sop_class);
bool stands_at_root(std::string_view type);
// Whether the standard has `type` below `parent`; "" is the root.
bool may_stand_below(std::string_view parent, std::string_view type);
// The library's name of records of a type.
std::string record_item_name(std::string type);

// --- A directory in memory ---

struct Record {
  int32_t id = 0;
  int32_t parent = 0;
  int depth = 0;
  std::string type;
};

// While it lives, nobody else changes a DICOMDIR: neither this program in another process nor the library's
// functions on the disk. Between processes of this program the folder is what is locked, for a new DICOMDIR
// takes the place of the old.
class DirectoryLock {
 public:
  DirectoryLock() = default;
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;
  // Waits for others. An error text, empty on success.
  std::string take(const std::string& path);

 private:
  int folder_ = -1;
  int file_ = -1;
};

class Directory {
 public:
  Directory();
  ~Directory();
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  // Each is false after a line on standard error.
  bool make(const std::string& path, const std::string& file_set);
  bool open(const std::string& path, bool allow_broken);  // broken offsets are then a problem() only
  bool open_to_change(const std::string& path);           // locked until the end
  bool save();
  // Before make(): locked until the end, and what is there may be replaced: a DICOMDIR, or what is left of
  // one.
  bool lock_to_replace(const std::string& path, bool may_be_damaged);

  int32_t id() const { return id_; }
  const std::string& problem() const { return problem_; }
  const std::string& path() const { return path_; }
  const std::filesystem::path& folder() const { return folder_; }
  // All records of the tree, each before those below it.
  std::vector<Record> records() const;
  // A record below a parent, 0 for the root; 0 if it could not be made.
  int32_t add(int32_t parent, const std::string& type);

 private:
  int32_t id_ = -1;
  int32_t application_ = -1;
  std::string path_;
  std::string problem_;
  std::filesystem::path folder_;
  DirectoryLock lock_;
};

// --- What is done with it ---

// Values of attributes that a record has to have, for files that have none.
using StandIns = std::map<uint32_t, std::string>;
// Files and what lies in folders, then saved. The exit code.
int add_files(Directory& directory, const std::vector<std::string>& paths, bool any_names,
              const StandIns& stand_ins = {});
// Patients, studies and series without anything below.
std::set<int32_t> empty_records(const Directory& directory);
// They go, but for those that were there before.
void drop_empty_records(Directory& directory, const std::set<int32_t>& but);
int list_records(const std::string& path, bool json);
// What does not fit, a line each, and the number of records; `fast`: without looking into the files. False,
// after a line on standard error, if it can not be read.
bool directory_faults(const std::string& path, bool fast, std::vector<std::string>& faults,
                      std::size_t& records);
int check_directory(const std::string& path, bool fast);

}  // namespace vexal
