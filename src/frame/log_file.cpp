#include "frame/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace vx {
namespace {

constexpr char kEndMark = 0x04;

// Numbers of old files beyond this are not looked for.
constexpr int32_t kMostOldFiles = 999;

bool is_regular_file(const char* path) {
  struct stat info {};
  return ::stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

// The name of an old file: the log's path with its extension replaced.
std::string old_file_name(std::string_view path, int32_t number) {
  const std::size_t slash = path.rfind('/');
  const std::size_t base = slash == std::string_view::npos ? 0 : slash + 1;
  const std::size_t dot = path.rfind('.');
  if (dot != std::string_view::npos && dot > base) path = path.substr(0, dot);
  char extension[16];
  std::snprintf(extension, sizeof extension, ".L%2.2d", number);
  return std::string(path) + extension;
}

// Makes the log file the newest of the old ones. The oldest goes when all numbers are taken.
void roll(const char* path, int32_t history) {
  if (!is_regular_file(path)) return;
  const int32_t last = std::clamp(history - 1, 0, kMostOldFiles);
  std::vector<int32_t> existing;
  for (int32_t number = 1; number <= last; ++number) {
    if (::access(old_file_name(path, number).c_str(), F_OK) == 0) existing.push_back(number);
  }
  if (existing.size() == static_cast<std::size_t>(last)) {
    ::unlink(old_file_name(path, 1).c_str());
    if (!existing.empty()) existing.erase(existing.begin());
  }
  int32_t next = 1;
  for (const int32_t number : existing) {
    if (number != next) std::rename(old_file_name(path, number).c_str(), old_file_name(path, next).c_str());
    ++next;
  }
  std::rename(path, old_file_name(path, next).c_str());
}

bool write_at(int fd, const char* bytes, std::size_t size, int64_t position) {
  while (size != 0) {
    const ssize_t done = position < 0 ? ::write(fd, bytes, size) : ::pwrite(fd, bytes, size, position);
    if (done <= 0) return false;
    bytes += done;
    size -= static_cast<std::size_t>(done);
    if (position >= 0) position += done;
  }
  return true;
}

}  // namespace

void LogFile::set_path(std::string_view path) {
  if (path == path_) return;
  close();
  const std::size_t length = std::min(path.size(), sizeof path_ - 1);
  std::memcpy(path_, path.data(), length);
  path_[length] = '\0';
  restart();
}

void LogFile::restart() {
  needs_start_ = true;
  full_ = false;
  line_ = 0;
}

void LogFile::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool LogFile::open_for_update() {
  fd_ = ::open(path_, O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
  if (fd_ < 0) return false;
  struct stat info {};
  regular_ = ::fstat(fd_, &info) == 0 && S_ISREG(info.st_mode);
  return true;
}

bool LogFile::start(const LogFileLayout& layout) {
  const int32_t record_size = layout.line_length + 2;
  if (full_ && !layout.backup && fd_ >= 0 && record_size == record_size_) {
    // The log goes on over its oldest lines.
    line_ = 0;
  } else {
    close();
    if (layout.backup) roll(path_, layout.history);
    if (!open_for_update()) return false;
    line_ = 0;
    record_size_ = record_size;
    if (regular_) {
      if (::ftruncate(fd_, 0) != 0) return false;
      if (layout.fill &&
          (::ftruncate(fd_, int64_t{layout.lines} * record_size) != 0 || !write_at(fd_, &kEndMark, 1, 0))) {
        return false;
      }
    }
  }
  full_ = false;
  needs_start_ = false;
  return true;
}

// A record is free when it begins with the end mark or a zero byte. Looks from `begin` to the end of the
// file, then from its start.
bool LogFile::find_free_record(int64_t begin, int64_t& position) {
  struct stat info {};
  if (::fstat(fd_, &info) != 0) return false;
  bool wrapped = false;
  position = begin;
  for (;;) {
    char first = kEndMark;
    if (position < info.st_size && ::pread(fd_, &first, 1, position) != 1) return false;
    if (position + record_size_ <= info.st_size) {
      if (first == kEndMark || first == '\0') return true;
      position += record_size_;
    } else {
      if (position + 1 == info.st_size && first == kEndMark) return true;
      if (info.st_size == 0) position = 0;
      if (info.st_size == 0 || wrapped) return true;
      wrapped = true;
      position = 0;
    }
    if (wrapped && position == begin) {
      std::printf("writing over log at line: %ld\n", static_cast<long>(begin / record_size_));
      return true;
    }
  }
}

bool LogFile::write(std::string_view piece, const LogFileLayout& layout) {
  if (needs_start_) {
    if (!start(layout)) return false;
  } else if (fd_ < 0 && !open_for_update()) {
    return false;
  }
  // The record, its line end and the end mark go out in one write, so that a reader sees all or nothing.
  char record[kLongestRecord + 3];
  const auto text_size = static_cast<std::size_t>(record_size_ - 2);
  std::memset(record, ' ', text_size);
  std::memcpy(record, piece.data(), std::min(piece.size(), text_size));
  record[text_size] = '\r';
  record[text_size + 1] = '\n';
  record[text_size + 2] = kEndMark;
  const bool last = line_ >= layout.lines - 1;
  bool written = false;
  if (!regular_) {
    written = write_at(fd_, record, text_size + 2, -1);
  } else {
    const int64_t begin = line_ < layout.lines ? int64_t{line_} * record_size_ : 0;
    int64_t position = 0;
    written =
        find_free_record(begin, position) && write_at(fd_, record, text_size + (last ? 2 : 3), position);
    if (written && last && !layout.backup) written = write_at(fd_, &kEndMark, 1, 0);
  }
  if (!written) {
    std::fputs("error writting to log file\n", stdout);
    return false;
  }
  if (!regular_) return true;
  if (last) {
    needs_start_ = true;
    full_ = true;
  } else {
    ++line_;
  }
  return true;
}

}  // namespace vx
