#include "temp_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>

#include "files.h"
#include "vexalkit.h"

namespace vexal {
namespace {

constexpr char kPrefix[] = "vexal-tmp-";
// Values of this size and more that the library would hold in memory go to a file.
constexpr int32_t kLargeValue = 64 << 20;
constexpr std::size_t kMostInMemory = 1 << 20;

std::string folder_of_folders() {
  const char* set = std::getenv("TMPDIR");
  return set != nullptr && *set != '\0' ? set : "/tmp";
}

int open_folder(const std::string& path) {
  return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// The lock on an open folder says that its owner lives; it goes with the process, however that ends.
bool lock(int folder) {
  return ::flock(folder, LOCK_EX | LOCK_NB) == 0;
}

void remove_folder(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

// A folder of that name which belongs to this user, whose owner is gone.
void clear_if_dead(const std::string& path) {
  const int folder = open_folder(path);
  if (folder < 0) return;
  struct stat status {};
  if (::fstat(folder, &status) == 0 && status.st_uid == ::geteuid() && lock(folder)) remove_folder(path);
  ::close(folder);
}

void clear_dead_folders(const std::string& where) {
  DIR* entries = ::opendir(where.c_str());
  if (entries == nullptr) return;
  while (const dirent* entry = ::readdir(entries)) {
    if (std::strncmp(entry->d_name, kPrefix, sizeof kPrefix - 1) == 0) {
      clear_if_dead(where + "/" + entry->d_name);
    }
  }
  ::closedir(entries);
}

class TempFolder {
 public:
  TempFolder() : problem_(create()) {}
  ~TempFolder() {
    if (fd_ < 0) return;
    remove_folder(path_);
    ::close(fd_);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  const std::string& path() const { return path_; }
  const std::string& problem() const { return problem_; }

 private:
  // Between its birth and its lock, a folder looks like that of a dead process: then another one is made.
  std::string create() {
    const std::string where = folder_of_folders();
    clear_dead_folders(where);
    for (;;) {
      path_ = where + "/" + kPrefix + "XXXXXX";
      if (::mkdtemp(path_.data()) == nullptr) {
        return "can not make a folder in " + where + ": " + std::strerror(errno);
      }
      fd_ = open_folder(path_);
      struct stat status {};
      if (fd_ >= 0 && lock(fd_) && ::fstat(fd_, &status) == 0 && status.st_nlink != 0) return "";
      const int error = fd_ < 0 ? errno : 0;
      if (fd_ >= 0) ::close(fd_);
      fd_ = -1;
      ::rmdir(path_.c_str());
      if (error != 0 && error != ENOENT) return path_ + ": " + std::strerror(error);
    }
  }

  std::string path_;
  int fd_ = -1;
  std::string problem_;
};

TempFolder& temp_folder() {
  static TempFolder folder;
  return folder;
}

}  // namespace

void prepare_temp_folder() {
  const TempFolder& folder = temp_folder();
  if (!folder.problem().empty()) return;
  VX_Set_String_Config_Value(VX_CFG_TEMP_FILE_DIRECTORY, folder.path().c_str());
  VX_Set_Int_Config_Value(VX_CFG_LARGE_DATA_SIZE, kLargeValue);
  VX_Set_Int_Config_Value(VX_CFG_OBOW_BUFFER_SIZE, 1 << 18);
  VX_Set_String_Config_Value(VX_CFG_LARGE_DATA_STORE, "FILE");
}

const std::string& temp_folder_path() {
  return temp_folder().path();
}

Spill::~Spill() {
  if (fd_ >= 0) ::close(fd_);
}

std::string Spill::append(const void* data, std::size_t length) {
  const char* bytes = static_cast<const char*>(data);
  if (fd_ < 0 && length <= kMostInMemory - memory_.size()) {
    memory_.append(bytes, length);
    size_ += length;
    return "";
  }
  std::string problem = fd_ < 0 ? to_file() : "";
  if (problem.empty()) problem = write(bytes, length);
  if (problem.empty()) size_ += length;
  return problem;
}

std::string Spill::to_file() {
  const TempFolder& folder = temp_folder();
  if (!folder.problem().empty()) return folder.problem();
  std::string path = folder.path() + "/value-XXXXXX";
  fd_ = ::mkostemp(path.data(), O_CLOEXEC);
  if (fd_ < 0) return folder.path() + ": " + std::strerror(errno);
  ::unlink(path.c_str());
  return write(memory_.data(), memory_.size());
}

std::string Spill::write(const char* data, std::size_t length) {
  while (length > 0) {
    const ssize_t done = ::write(fd_, data, length);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return "can not write in " + temp_folder().path() + ": " + std::strerror(errno);
    data += done;
    length -= static_cast<std::size_t>(done);
  }
  return "";
}

bool Spill::read_at(uint64_t offset, void* buffer, std::size_t length) const {
  if (offset > size_ || length > size_ - offset) return false;
  if (fd_ >= 0) return read_whole(fd_, offset, buffer, length) == static_cast<int64_t>(length);
  std::memcpy(buffer, memory_.data() + offset, length);
  return true;
}

}  // namespace vexal
