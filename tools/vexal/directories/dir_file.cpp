// A DICOMDIR in memory: opened, changed and saved under a lock.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "base/session.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/values.h"
#include "dir.h"
#include "files/file_set.h"
#include "files/files.h"

namespace vexal {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds kPatience{60};

// Waits until `lock` can be had; false, with errno, if it can not.
template <typename Lock>
bool wait_for(Lock lock) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (lock() != 0) {
    if (errno != EINTR && errno != EWOULDBLOCK && errno != EAGAIN && errno != EACCES) return false;
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

bool is_busy(int error) {
  return error == EWOULDBLOCK || error == EAGAIN || error == EACCES || error == EINTR;
}

}  // namespace

// --- Keys ---

uint32_t uid_tag_of(std::string_view record_type) {
  return record_type == "STUDY"    ? tags::kStudyInstanceUID
         : record_type == "SERIES" ? tags::kSeriesInstanceUID
                                   : tags::kReferencedSOPInstanceUIDInFile;
}

std::string file_id_of(int32_t record) {
  std::string text;
  char part[256];
  for (VX_STATUS status = VX_Get_Value_To_String(record, tags::kReferencedFileID, sizeof part, part);
       status == VX_NORMAL_COMPLETION;
       status = VX_Get_Next_Value_To_String(record, tags::kReferencedFileID, sizeof part, part)) {
    std::string component = part;
    while (!component.empty() && component.back() == ' ') component.pop_back();
    text += (text.empty() ? "" : "/") + component;
  }
  return text;
}

// --- Locking ---

DirectoryLock::~DirectoryLock() {
  if (file_ >= 0) ::close(file_);
  if (folder_ >= 0) ::close(folder_);
}

std::string DirectoryLock::take(const std::string& path) {
  constexpr char kBusy[] = "another program has been changing it for a minute";
  const fs::path folder = fs::absolute(path).parent_path();
  folder_ = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder_ < 0) return "can not open its folder: " + std::string(std::strerror(errno));
  // Some network file systems have no locks of folders; what follows works there.
  if (!wait_for([this] { return ::flock(folder_, LOCK_EX | LOCK_NB); }) && is_busy(errno)) return kBusy;
  file_ = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (file_ < 0) return {};  // new, or read-only: then the library's functions do not change it either
  struct flock range {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  if (!wait_for([&] { return ::fcntl(file_, F_OFD_SETLK, &range); }) && is_busy(errno)) return kBusy;
  return {};
}

// --- The directory ---

Directory::Directory() {
  VX_Register_Application(&application_, "VEXAL_DIR");
}

Directory::~Directory() {
  if (id_ >= 0) VX_Free_File(&id_);
  VX_Release_Application(&application_);
}

bool Directory::lock_to_replace(const std::string& path, bool may_be_damaged) {
  const std::string error = lock_.take(path);
  if (!error.empty()) {
    report(path, error);
    return false;
  }
  std::error_code ignored;
  if (!fs::exists(fs::symlink_status(path, ignored))) return true;
  // Whatever else has that name is worth more than a DICOMDIR.
  const MutedWarnings muted;
  DicomFile old;
  old.open(path, {.last_tag = tags::kLastOfMeta});
  if (old.readable() && text_of(old.id(), tags::kMediaStorageSOPClassUID) == kDirectoryClass) return true;
  if (may_be_damaged && upper(fs::path(path).filename().string()) == "DICOMDIR") return true;
  report(path, "is there and no DICOMDIR: left alone");
  return false;
}

bool Directory::open_to_change(const std::string& path) {
  const std::string error = lock_.take(path);
  if (!error.empty()) report(path, error);
  return error.empty() && open(path, false);
}

bool Directory::make(const std::string& path, const std::string& file_set) {
  path_ = path;
  folder_ = fs::absolute(path).parent_path();
  const VX_STATUS status = VX_Create_File(&id_, "DICOMDIR", "DICOMDIR", C_STORE_RQ);
  if (status != VX_NORMAL_COMPLETION) {
    report(path, VX_Error_Message(status));
    return false;
  }
  VX_Set_Value_From_UInt(id_, tags::kFileSetConsistencyFlag, 0);
  VX_Set_Value_From_UInt(id_, tags::kOffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity, 0);
  VX_Set_Value_From_UInt(id_, tags::kOffsetOfTheLastDirectoryRecordOfTheRootDirectoryEntity, 0);
  VX_Set_Value_To_NULL(id_, tags::kDirectoryRecordSequence);
  if (file_set.empty()) return VX_Set_Value_To_NULL(id_, tags::kFileSetID) == VX_NORMAL_COMPLETION;
  if (VX_Set_Value_From_String(id_, tags::kFileSetID, file_set.c_str()) == VX_NORMAL_COMPLETION) return true;
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
    status = VX_Open_File(application_, id_, &source, guarded<FileSource::file_input>);
  if (status != VX_NORMAL_COMPLETION) problem_ = VX_Error_Message(status);
  int32_t count = 0;
  const bool linked = id_ >= 0 && VX_Dir_Root_Count(id_, &count) == VX_NORMAL_COMPLETION;
  if (problem_.empty() && !linked) problem_ = "it is no DICOMDIR: there is no offset of a first record";
  if (problem_.empty() || (allow_broken && linked)) return true;
  report(path, problem_);
  return false;
}

// A DICOMDIR is in explicit VR little endian, whatever it was read from (PS3.10 section 8.6).
bool Directory::save() {
  VX_STATUS status = VX_Set_Message_Transfer_Syntax(id_, EXPLICIT_LITTLE_ENDIAN);
  FileSink sink;
  std::string error = status == VX_NORMAL_COMPLETION ? sink.open(path_) : VX_Error_Message(status);
  if (error.empty()) {
    status = VX_Write_File(id_, 0, &sink, guarded<FileSink::file_output>);
    error = status == VX_NORMAL_COMPLETION ? sink.commit(true) : sink.problem();
    if (status != VX_NORMAL_COMPLETION && error.empty()) error = VX_Error_Message(status);
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
    const Record record{level.record, level.parent, level.depth,
                        text_of(level.record, tags::kDirectoryRecordType)};
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
  int32_t entity = 0;
  const std::string name = record_item_name(type);
  const MutedWarnings muted(true);
  VX_STATUS status = VX_Dir_Add_Entity(id_, parent, name.c_str(), &entity, &record);
  if (status == VX_ENTITY_ALREADY_EXISTS) {
    int32_t last = 0;
    const char* ignored = nullptr;
    status = parent == 0 ? VX_Dir_Root_Entity(id_, &entity, &record, &ignored, &last)
                         : VX_Dir_Next_Entity(id_, parent, &entity, &record, &ignored, &last);
    if (status == VX_NORMAL_COMPLETION) status = VX_Dir_Add_Record(id_, entity, name.c_str(), &record);
  }
  const bool there = status == VX_NORMAL_COMPLETION || status == VX_INVALID_LOWER_DIR_RECORD;
  if (!there) problem_ = VX_Error_Message(status);
  return there ? record : 0;
}

}  // namespace vexal
