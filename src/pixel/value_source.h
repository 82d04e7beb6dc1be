// The bytes of an encapsulated value, wherever it lies, without a copy where there is one piece to point
// into.
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

// The pieces of a value, from memory or from the callback that holds it.
class ValueSource {
 public:
  ValueSource(MsgObj& object, TagObj& attribute) : object_(object), attribute_(attribute) {}
  ~ValueSource();
  ValueSource(const ValueSource&) = delete;
  ValueSource& operator=(const ValueSource&) = delete;
  // Bytes from `position` on, valid until the next call; none behind the end. `piece` and `piece_start`
  // remember the place in a chain. VX_CALLBACK_CANNOT_COMPLY.
  VX_STATUS at(uint32_t position, ValueObj*& piece, uint32_t& piece_start, const uint8_t*& data,
               uint32_t& size);
  // A piece that copy() may search from, where it is known.
  void begin_at(ValueObj* piece, uint32_t start) {
    piece_ = piece;
    piece_start_ = start;
  }
  // Copies n bytes; VX_ENCAPSULATED_TOO_SHORT if there are fewer.
  VX_STATUS copy(uint32_t position, uint32_t n, void* to);
  // Bytes of the whole value; kUndefinedLength if nobody knows.
  uint32_t length() const { return attribute_.Length; }

 private:
  VX_STATUS from_callback(uint32_t position, const uint8_t*& data, uint32_t& size);
  VX_STATUS from_file(uint32_t position, const uint8_t*& data, uint32_t& size);
  MsgObj& object_;
  TagObj& attribute_;
  bool first_ = true;
  ValueObj* piece_ = nullptr;  // of copy()
  uint32_t piece_start_ = 0;
  ValueObj* block_ = nullptr;  // owned: the block of a file that was read last
  int32_t block_number_ = 0;
  uint32_t block_start_ = 0;
};

}  // namespace vx
