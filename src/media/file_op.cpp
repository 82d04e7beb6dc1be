#include "media/file_op.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "config/config.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/seams.h"

namespace vx {

namespace {

constexpr char kOpen[] = "OpenFileOp";

// What is open, for the end of the library: it drops its memory without looking at it.
std::mutex handles_mutex;
std::vector<int>& handles() {
  static auto* const list = new std::vector<int>;
  return *list;
}
void note_handle(int handle) {
  const std::lock_guard guard(handles_mutex);
  handles().push_back(handle);
}
void close_handle(int handle) {
  const std::lock_guard guard(handles_mutex);
  auto& list = handles();
  const auto at = std::find(list.begin(), list.end(), handle);
  if (at == list.end()) return;
  list.erase(at);
  ::close(handle);
}

std::atomic<int> changes_left{-1};
std::atomic<FileFault> fault_kind{FileFault::Once};

// Whether this change is the one that fails, or one behind it.
bool is_due() {
  const int left = changes_left.load();
  if (left < 0) return false;
  if (left > 1) {
    changes_left.store(left - 1);
    return false;
  }
  if (fault_kind.load() == FileFault::Once) changes_left.store(-1);
  return true;
}
bool dies() {
  return fault_kind.load() == FileFault::Killed;
}

int open_path(const char* path, bool read_only) {
  const int handle = ::open(path, (read_only ? O_RDONLY : O_RDWR) | O_CLOEXEC);
  if (handle < 0) {
    VX_LOG_ERR(kOpen, "Can't open file in %s mode, %s, error: %s", read_only ? "rb" : "rb+", path,
               std::strerror(errno));
  }
  return handle;
}

bool take_state(FileOp& file, int handle) {
  struct stat state {};
  if (::fstat(handle, &state) != 0 || !S_ISREG(state.st_mode)) {
    VX_LOG_ERR(kOpen, "Can't open file in %s mode, %s, error: %s", "rb", file.Path, "not a regular file");
    return false;
  }
  file.Size = static_cast<uint64_t>(state.st_size);
  file.Device = state.st_dev;
  file.Inode = state.st_ino;
  return true;
}

bool write_all(int handle, uint64_t offset, const void* data, std::size_t length) {
  if (is_due()) {
    if (dies()) {
      static_cast<void>(::pwrite(handle, data, length / 2, static_cast<off_t>(offset)) < 0);
      ::raise(SIGKILL);
    }
    errno = ENOSPC;
    return false;
  }
  const auto* bytes = static_cast<const char*>(data);
  while (length > 0) {
    const ssize_t written = ::pwrite(handle, bytes, length, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    offset += static_cast<uint64_t>(written);
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

// A name comes or goes for good only once its folder is on disk.
void sync_folder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const int handle = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (handle < 0) return;
  ::fsync(handle);
  ::close(handle);
}

}  // namespace

void media_drop() {
  const std::lock_guard guard(handles_mutex);
  for (const int handle : handles()) ::close(handle);
  handles().clear();
}

void fail_file_change_after(int n, FileFault fault) {
  changes_left.store(n > 0 ? n : -1);
  fault_kind.store(fault);
}

bool may_change_file() {
  if (!is_due()) return true;
  if (dies()) ::raise(SIGKILL);
  errno = ENOSPC;
  return false;
}

FileOp* open_file_op(const char* path) {
  auto* file = static_cast<FileOp*>(allocate(sizeof(FileOp)));
  if (file == nullptr) return nullptr;
  file->Handle = -1;
  file->ReadOnly = true;
  file->BufferSize = std::max(work_buffer_size(), 4096U);
  file->Path = duplicate_text(path);
  file->Buffer = file->Path != nullptr ? static_cast<uint8_t*>(allocate_raw(file->BufferSize)) : nullptr;
  const int handle = file->Buffer != nullptr ? open_path(path, true) : -1;
  if (handle >= 0 && take_state(*file, handle)) {
    file->Handle = handle;
    file->IsOpen = true;
    note_handle(handle);
    return file;
  }
  if (handle >= 0) ::close(handle);
  free_file_op(file);
  return nullptr;
}

void free_file_op(FileOp* file) {
  if (file == nullptr) return;
  if (file->IsOpen) close_handle(file->Handle);
  release(file->Buffer);
  release(file->Path);
  release(file);
}

VX_STATUS make_writable(FileOp& file) {
  if (!file.ReadOnly) return kOk;
  const int handle = open_path(file.Path, false);
  if (handle < 0) return VX_CALLBACK_CANNOT_COMPLY;
  struct stat state {};
  const bool same = ::fstat(handle, &state) == 0 && state.st_ino == file.Inode && state.st_dev == file.Device;
  if (!same) {
    ::close(handle);
    return VX_INVALID_FILE;
  }
  note_handle(handle);
  close_handle(file.Handle);
  file.Handle = handle;
  file.ReadOnly = false;
  return kOk;
}

bool lock_file(const FileOp& file, bool on) {
  struct flock range {};
  range.l_type = static_cast<short>(on ? F_WRLCK : F_UNLCK);
  range.l_whence = SEEK_SET;
  return ::fcntl(file.Handle, F_OFD_SETLK, &range) == 0;
}

bool is_unchanged(const FileOp& file) {
  struct stat now {};
  return ::stat(file.Path, &now) == 0 && now.st_ino == file.Inode && now.st_dev == file.Device &&
         static_cast<uint64_t>(now.st_size) == file.Size;
}

bool refresh_size(FileOp& file) {
  file.WindowLength = 0;
  return take_state(file, file.Handle);
}

const uint8_t* view_file(FileOp& file, uint64_t offset, uint32_t length, uint32_t& available) {
  available = 0;
  if (!file.IsOpen || length > file.BufferSize) return nullptr;
  const bool inside = offset >= file.WindowStart && offset + length <= file.WindowStart + file.WindowLength;
  if (!inside) {
    uint32_t filled = 0;
    file.WindowLength = 0;
    while (filled < file.BufferSize) {
      const ssize_t got = ::pread(file.Handle, file.Buffer + filled, file.BufferSize - filled,
                                  static_cast<off_t>(offset + filled));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return nullptr;
      if (got == 0) break;
      filled += static_cast<uint32_t>(got);
    }
    file.WindowStart = offset;
    file.WindowLength = filled;
  }
  const auto skip = static_cast<uint32_t>(offset - file.WindowStart);
  available = std::min(length, file.WindowLength - skip);
  return file.Buffer + skip;
}

bool write_file_at(FileOp& file, uint64_t offset, const void* data, std::size_t length) {
  file.WindowLength = 0;
  return write_all(file.Handle, offset, data, length);
}

// A file system that cannot reserve tells when it is full in the write.
bool reserve_file(FileOp& file, uint64_t length) {
  if (length <= file.Size) return true;
  if (!may_change_file()) return false;
  const int result = ::fallocate(file.Handle, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(file.Size),
                                 static_cast<off_t>(length - file.Size));
  return result == 0 || errno == EOPNOTSUPP || errno == ENOSYS;
}

bool cut_file(FileOp& file, uint64_t length) {
  file.WindowLength = 0;
  return may_change_file() && ::ftruncate(file.Handle, static_cast<off_t>(length)) == 0;
}

bool sync_file(FileOp& file) {
  return may_change_file() && ::fdatasync(file.Handle) == 0;
}

bool write_whole_file(const char* path, const void* data, std::size_t length) {
  const int handle = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (handle < 0) return false;
  const bool written = write_all(handle, 0, data, length) && ::fsync(handle) == 0;
  if (written) sync_folder(path);
  return ::close(handle) == 0 && written;
}

bool replace_file(const std::string& from, const char* to) {
  if (!may_change_file() || ::rename(from.c_str(), to) != 0) return false;
  sync_folder(to);
  return true;
}

bool remove_file(const std::string& path) {
  if (!may_change_file()) return false;
  if (::unlink(path.c_str()) != 0) return errno == ENOENT;
  sync_folder(path);
  return true;
}

}  // namespace vx
