// The items of an encapsulated value (PS3.5 section A.4), and the frames that they make.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vexal {

inline constexpr uint32_t kItem = 0xE000FFFE;       // as it lies in a little endian stream
inline constexpr uint32_t kDelimiter = 0xE0DDFFFE;  // likewise

// In the order of the stream.
struct Fragment {
  uint64_t offset = 0;  // of its item, counted from the first one
  uint64_t data = 0;    // of its bytes in the value
  uint32_t length = 0;
};
struct Encapsulated {
  std::vector<uint32_t> table;
  std::vector<Fragment> fragments;
  std::vector<std::size_t> starts;  // the fragment that each frame begins with; empty if that can not be told
  bool sound = true;                // items to the end and a delimiter

  std::size_t end_of_frame(std::size_t frame) const {
    return frame + 1 < starts.size() ? starts[frame + 1] : fragments.size();
  }
};

// Fills the buffer from the value; false if it ends before.
using ValueReader = std::function<bool(uint64_t offset, void* buffer, std::size_t length)>;

// The first `size` bytes of a value as a file. An error text, empty on success.
std::string copy_to_file(const ValueReader& read, uint64_t size, const std::string& path);

// The items of a value of `size` bytes, without their frames.
Encapsulated read_items(const ValueReader& read, uint64_t size);
// Tells the frames by the fragments alone: one for each, or by the marks of the code streams.
void find_frames(Encapsulated& value, uint32_t frames, const ValueReader& read);
// Where that was in vain, by an offset table that fits.
void find_frames_by_table(Encapsulated& value, uint32_t frames);

// Adds 32 bits as they lie in a little endian stream.
template <typename Container>
void append32(Container& bytes, uint32_t value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace vexal
