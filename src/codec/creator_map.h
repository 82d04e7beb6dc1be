// Where the private blocks of a stream went in the object that it is read into.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/object.h"

namespace vx {

class CreatorMap {
 public:
  struct Entry {
    uint16_t group;
    uint8_t stream_block;  // low byte of the creator's element in the stream
    uint8_t block;         // the same in the object
    std::string code;
  };
  // A second creator at one place of the stream takes the place of the first.
  void add(uint32_t stream_creator, uint32_t creator, std::string_view code);
  // The entries as bytes, and back.
  std::string save() const;
  void restore(std::string_view bytes);
  bool empty() const { return entries_.empty(); }
  // The block of a private element of the stream, or null.
  const Entry* find(uint32_t stream_tag) const;

 private:
  std::vector<Entry> entries_;    // ascending by group and stream block
  mutable std::size_t last_ = 0;  // elements of one block follow one another
};

// The tag of an element of the stream once its block has moved.
constexpr uint32_t rebased_tag(uint32_t stream_tag, uint8_t block) {
  return (stream_tag & 0xFFFF00FFU) | (static_cast<uint32_t>(block) << 8);
}

}  // namespace vx
