// Blocks from files and to files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "base/session.h"
#include "base/uid.h"
#include "files.h"

namespace vexal {
namespace {

constexpr std::size_t kBlock = 256 * 1024;
// What stands in for bytes that nobody looks at. One library-wide block of zeros.
char dummy_block[1 << 20];

std::string system_text(const std::string& what, int error) {
  return what + ": " + std::strerror(error);
}

// Asking for it changes it for a moment, so that it is asked for once.
mode_t creation_mask() {
  static const mode_t mask = [] {
    const mode_t now = ::umask(077);
    ::umask(now);
    return now;
  }();
  return mask;
}

std::string folder_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// The new name of a file, made to last.
std::string sync_folder(const std::string& path) {
  const int fd = ::open(folder_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return system_text("can not open the folder", errno);
  const int error = ::fsync(fd) != 0 ? errno : 0;
  ::close(fd);
  return error != 0 ? system_text("can not write the folder", error) : "";
}

}  // namespace

FileSource::~FileSource() {
  close();
}

void FileSource::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

std::string FileSource::open(const std::string& path) {
  close();
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) return system_text("can not open", errno);
  struct stat status {};
  if (::fstat(fd_, &status) != 0) return system_text("can not open", errno);
  if (S_ISDIR(status.st_mode)) return "is a folder";
  seekable_ = S_ISREG(status.st_mode);
  size_ = seekable_ ? static_cast<uint64_t>(status.st_size) : 0;
  position_ = 0;
  skip_from_ = skip_to_ = 0;
  preamble_given_ = false;
  missing_preamble_ = false;
  return "";
}

int64_t read_whole(int fd, uint64_t offset, void* buffer, std::size_t length) {
  auto* out = static_cast<char*>(buffer);
  std::size_t done = 0;
  while (done < length) {
    const ssize_t got = ::pread(fd, out + done, length - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<int64_t>(done);
}

int64_t FileSource::read_at(uint64_t offset, void* buffer, std::size_t length) const {
  return read_whole(fd_, offset, buffer, length);
}

void FileSource::skip(uint64_t stream_offset, uint64_t length) {
  if (!seekable_ || stream_offset < offset_shift()) return;
  skip_from_ = stream_offset - offset_shift();
  skip_to_ = std::min(skip_from_ + length, size_);
}

VX_STATUS FileSource::next(uint32_t* size, void** data, int32_t* last) {
  if (missing_preamble_ && !preamble_given_) {
    preamble_given_ = true;
    block_.resize(kBlock);
    std::memset(block_.data(), 0, 128);
    std::memcpy(block_.data() + 128, "DICM", 4);
    *size = 132;
    *data = block_.data();
    *last = size_ == 0 ? 1 : 0;
    return VX_NORMAL_COMPLETION;
  }
  if (position_ >= skip_from_ && position_ < skip_to_) {
    const uint64_t length = std::min<uint64_t>(sizeof dummy_block, skip_to_ - position_);
    position_ += length;
    *size = static_cast<uint32_t>(length);
    *data = dummy_block;
    *last = position_ >= size_ ? 1 : 0;
    return VX_NORMAL_COMPLETION;
  }
  const std::size_t wanted =
      seekable_ ? static_cast<std::size_t>(std::min<uint64_t>(kBlock, size_ - std::min(size_, position_)))
                : kBlock;
  block_.resize(std::max<std::size_t>(wanted, 132));
  std::size_t done = 0;
  bool ended = false;
  while (done < wanted) {
    const ssize_t got =
        seekable_ ? ::pread(fd_, block_.data() + done, wanted - done, static_cast<off_t>(position_ + done))
                  : ::read(fd_, block_.data() + done, wanted - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return VX_CALLBACK_CANNOT_COMPLY;
    if (got == 0) {
      ended = true;
      break;
    }
    done += static_cast<std::size_t>(got);
  }
  position_ += done;
  *size = static_cast<uint32_t>(done);
  *data = block_.data();
  *last = ended || (seekable_ && position_ >= size_) ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

VX_STATUS FileSource::file_input(const char*, void* user, uint32_t* size, void** data, int32_t,
                                 int32_t* last) {
  return static_cast<FileSource*>(user)->next(size, data, last);
}

VX_STATUS FileSource::message_input(int32_t, void* user, int32_t, uint32_t* size, void** data,
                                    int32_t* last) {
  return static_cast<FileSource*>(user)->next(size, data, last);
}

FileSink::~FileSink() {
  drop();
}

void FileSink::drop() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  if (!temporary_.empty() && !nameless_) ::unlink(temporary_.c_str());
  temporary_.clear();
  nameless_ = false;
}

// Where the system can do it, the file has no name at all until it is complete: nothing to clean up, whatever
// happens, and one change of the folder instead of three.
std::string FileSink::open(const std::string& path, mode_t mode) {
  static const bool can_be_nameless = ::access("/proc/self/fd", F_OK) == 0;
  drop();
  path_ = path;
  mode_ = mode;
  fd_ = can_be_nameless
            ? ::open(folder_of(path).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode != 0 ? mode : 0666)
            : -1;
  nameless_ = fd_ >= 0;
  if (nameless_) {
    temporary_ = "/proc/self/fd/" + std::to_string(fd_);
  } else {
    const std::string error = open_named(path);
    if (!error.empty()) return error;
  }
  // Where the mask takes nothing away, the file was made with its mode.
  const bool as_made = nameless_ && (mode & creation_mask()) == 0;
  if (mode != 0 && !as_made && ::fchmod(fd_, mode) != 0) return system_text("can not set the mode", errno);
  buffer_.resize(kBlock);
  used_ = 0;
  error_ = 0;
  watched_ = nullptr;
  mark_ = -1;
  left_out_ = nullptr;
  skipped_ = 0;
  return "";
}

std::string FileSink::open_named(const std::string& path) {
  std::string name = path + ".XXXXXX";
  fd_ = ::mkostemp(name.data(), O_CLOEXEC);
  if (fd_ < 0) return system_text("can not create a file beside it", errno);
  temporary_ = name;
  // Temporary files are born private.
  return ::fchmod(fd_, 0666 & ~creation_mask()) == 0 ? "" : system_text("can not set the mode", errno);
}

bool FileSink::write_all(const char* data, std::size_t length) {
  while (length > 0) {
    const ssize_t done = ::write(fd_, data, length);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) {
      error_ = errno;
      return false;
    }
    data += done;
    length -= static_cast<std::size_t>(done);
  }
  return true;
}

bool FileSink::flush() {
  const std::size_t length = used_;
  used_ = 0;
  return write_all(buffer_.data(), length);
}

bool FileSink::write(const void* data, std::size_t length) {
  const char* bytes = static_cast<const char*>(data);
  if (data == watched_) {
    mark_ = ::lseek(fd_, 0, SEEK_CUR) + static_cast<off_t>(used_);
    watched_ = nullptr;  // others may come to lie at that address
  }
  if (data == left_out_) return skip(length);
  if (length >= kBlock / 2) return flush() && write_all(bytes, length);
  if (length > buffer_.size() - used_ && !flush()) return false;
  std::memcpy(buffer_.data() + used_, bytes, length);
  used_ += length;
  return true;
}

std::string FileSink::patch(uint64_t behind_start, const void* data, std::size_t length) {
  if (mark_ < 0) return "the place to fill in is not known";
  const auto* bytes = static_cast<const char*>(data);
  auto at = static_cast<off_t>(static_cast<uint64_t>(mark_) + behind_start);
  while (length > 0) {
    const ssize_t done = ::pwrite(fd_, bytes, length, at);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) {
      error_ = errno;
      return problem();
    }
    bytes += done;
    at += done;
    length -= static_cast<std::size_t>(done);
  }
  return "";
}

bool FileSink::skip(uint64_t length) {
  if (!flush()) return false;
  skipped_ += length;
  if (::lseek(fd_, static_cast<off_t>(length), SEEK_CUR) >= 0) return true;
  error_ = errno;
  return false;
}

std::string FileSink::problem() const {
  return error_ != 0 ? system_text("can not write", error_) : "";
}

std::string FileSink::place(
    const std::function<std::string(const std::string& temporary, std::string& final_path)>& choose) {
  return flush() ? choose(temporary_, path_) : system_text("can not write", error_);
}

std::string FileSink::commit(bool durable) {
  if (!flush()) return system_text("can not write", error_);
  if (durable && ::fsync(fd_) != 0) return system_text("can not write", errno);
  const bool in_place = nameless_ && give_name(path_);
  if (!in_place) {
    if (nameless_ && errno != EEXIST) return system_text("can not give it its name", errno);
    const std::string error = become_like_the_old();
    if (!error.empty()) return error;
  }
  if (::close(std::exchange(fd_, -1)) != 0) return system_text("can not write", errno);
  if (!in_place && ::rename(temporary_.c_str(), path_.c_str()) != 0)
    return system_text("can not replace it", errno);
  temporary_.clear();
  return durable ? sync_folder(path_) : "";
}

// False, with errno, if something else has that name.
bool FileSink::give_name(const std::string& name) {
  if (::linkat(AT_FDCWD, temporary_.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) return false;
  nameless_ = false;
  temporary_ = name;
  return true;
}

// Ready to replace a file that may be there, under a name beside it. A link is replaced itself, and what it
// leads to has no say. Nothing that runs under another's rights is made, and another's file opens nothing up.
std::string FileSink::become_like_the_old() {
  struct stat old {};
  if (::lstat(path_.c_str(), &old) == 0) {
    struct stat target {};
    const bool link = S_ISLNK(old.st_mode);
    const bool folder = link && ::stat(path_.c_str(), &target) == 0 && S_ISDIR(target.st_mode);
    if (folder || (!link && !S_ISREG(old.st_mode))) return "is there and no file";
    mode_t mode = old.st_mode & 0777;
    if (old.st_uid != ::geteuid()) mode &= 0666 & ~creation_mask();
    if (!link && mode_ == kUsualMode && ::fchmod(fd_, mode) != 0)
      return system_text("can not set the mode", errno);
  }
  if (nameless_ && !give_name(path_ + "." + new_uid()))
    return system_text("can not create a file beside it", errno);
  return "";
}

// False, with errno, if something else has that name.
bool FileSink::take_free_name(const std::string& name) {
  if (nameless_) return give_name(name);
  if (::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) != 0) return false;
  temporary_ = name;
  return true;
}

// A file of that name has the bytes of this one.
bool FileSink::equals(const std::string& name) const {
  const int other = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  struct stat theirs {};
  struct stat ours {};
  bool same = other >= 0 && ::fstat(other, &theirs) == 0 && ::fstat(fd_, &ours) == 0 &&
              S_ISREG(theirs.st_mode) && theirs.st_size == ours.st_size;
  std::vector<char> blocks(same ? 2 * kBlock : 0);
  for (uint64_t at = 0; same && at < static_cast<uint64_t>(ours.st_size); at += kBlock) {
    const int64_t got = read_whole(fd_, at, blocks.data(), kBlock);
    same = got > 0 && read_whole(other, at, blocks.data() + kBlock, kBlock) == got &&
           std::memcmp(blocks.data(), blocks.data() + kBlock, static_cast<std::size_t>(got)) == 0;
  }
  if (other >= 0) ::close(other);
  return same;
}

std::string FileSink::commit_beside(unsigned& number) {
  if (!flush()) return system_text("can not write", error_);
  const std::string whole = path_;
  const std::size_t stem = whole.size() - std::filesystem::path(whole).extension().string().size();
  for (;; ++number) {
    path_ = number == 1 ? whole : whole.substr(0, stem) + "-" + std::to_string(number) + whole.substr(stem);
    if (take_free_name(path_)) {
      temporary_.clear();
      return ::close(std::exchange(fd_, -1)) == 0 ? "" : system_text("can not write", errno);
    }
    if (errno != EEXIST) return system_text("can not give it its name", errno);
    if (!equals(path_)) continue;
    drop();
    return "";
  }
}

std::string FileSink::commit_new(const std::string& path, bool durable, Naming& naming) {
  naming = Naming::Done;
  if (!flush()) return system_text("can not write", error_);
  if (durable && ::fsync(fd_) != 0) return system_text("can not write", errno);
  if (!take_free_name(path)) {
    if (errno != EEXIST && errno != ENOENT) return system_text("can not give it its name", errno);
    naming = errno == EEXIST ? Naming::Taken : Naming::NoFolder;
    return "";
  }
  temporary_.clear();
  path_ = path;
  std::string error = ::close(std::exchange(fd_, -1)) == 0 ? "" : system_text("can not write", errno);
  if (error.empty() && durable) error = sync_folder(path_);
  if (!error.empty()) ::unlink(path_.c_str());
  return error;
}

VX_STATUS FileSink::file_output(const char*, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& sink = *static_cast<FileSink*>(user);
  return sink.write(data, size) ? VX_NORMAL_COMPLETION : VX_CALLBACK_CANNOT_COMPLY;
}

namespace {

// The regular files below a folder. False if some of it can not be looked into, after a line for each.
bool collect_files(const std::string& folder, std::vector<std::string>& files) {
  namespace fs = std::filesystem;
  bool complete = true;
  const auto note = [&complete](const fs::path& path, const std::error_code& error) {
    report(path.string(), "can not be looked into: " + error.message());
    complete = false;
  };
  std::vector<fs::path> folders = {folder};
  while (!folders.empty()) {
    const fs::path here = std::move(folders.back());
    folders.pop_back();
    std::error_code error;
    for (fs::directory_iterator it(here, error), end; !error && it != end; it.increment(error)) {
      std::error_code fault;  // of links that lead nowhere too, which are passed over
      if (it->is_directory(fault) && !it->is_symlink(fault)) {
        folders.push_back(it->path());
      } else if (it->is_regular_file(fault)) {
        files.push_back(it->path().string());
      } else if (fault == std::errc::permission_denied) {
        note(it->path(), fault);
      }
    }
    if (error) note(here, error);
  }
  return complete;
}

}  // namespace

std::vector<std::string> expand_paths(const std::vector<std::string>& paths, bool& failed) {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  for (const std::string& path : paths) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
      std::error_code ignored;
      if (error && !fs::exists(path, ignored)) {
        report(path, "can not open: " + error.message());
        failed = true;
      } else {
        files.push_back(path);
      }
      continue;
    }
    std::vector<std::string> inside;
    if (!collect_files(path, inside)) failed = true;
    std::sort(inside.begin(), inside.end());
    files.insert(files.end(), inside.begin(), inside.end());
  }
  return files;
}

}  // namespace vexal
