// The program's private folder for what does not fit in memory: one for each process, cleared at its end, or
// by the next process where it did not get that far.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vexal {

// Clears what dead processes left, and makes the folder that belongs to this one; large values of the library
// go there from now on. A failure shows when the folder is needed.
void prepare_temp_folder();
// Where the folder of this process is, which is made; a failure shows when something is put there.
const std::string& temp_folder_path();

// Bytes laid down to be read again: in memory while they are few, then in a file of that folder, which has no
// name, so that nothing of it outlives the process.
class Spill {
 public:
  Spill() = default;
  ~Spill();
  Spill(const Spill&) = delete;
  Spill& operator=(const Spill&) = delete;

  // An error text, empty on success.
  std::string append(const void* data, std::size_t length);
  uint64_t size() const { return size_; }
  // False if not all of them are there. For several threads at once.
  bool read_at(uint64_t offset, void* buffer, std::size_t length) const;

 private:
  std::string to_file();
  std::string write(const char* data, std::size_t length);

  int fd_ = -1;
  uint64_t size_ = 0;
  std::string memory_;
};

}  // namespace vexal
