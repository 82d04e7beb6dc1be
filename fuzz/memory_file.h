// Files in memory, for what opens files by their names.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace fuzz {

class MemoryFile {
 public:
  MemoryFile(const uint8_t* bytes, std::size_t size) : fd_(::memfd_create("input", MFD_CLOEXEC)) {
    if (fd_ < 0 || ::write(fd_, bytes, size) != static_cast<ssize_t>(size)) std::abort();
  }
  ~MemoryFile() { ::close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  int fd_;
};

// Where the second of two files begins that come one behind the other, with the size of the first in two
// bytes before both.
inline std::size_t second_file(const uint8_t* data, std::size_t size) {
  return 2 + std::min<std::size_t>(size - 2, data[0] + 256U * data[1]);
}

}  // namespace fuzz
