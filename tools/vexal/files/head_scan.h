// The attributes at the start of a data set, picked out while its bytes pass by.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "vexalkit.h"

namespace vexal {

// Goes over a data set of any size in any encoding and keeps the attributes that are wanted, at the top level
// alone. Everything else is passed over where it lies, so that its memory does not grow with what a peer
// sends.
class HeadScan {
 public:
  enum class State {
    Reading,   // wants more bytes
    Complete,  // all that is wanted has come, or can not come any more
    Damaged,   // the bytes are no data set
    TooLarge   // inflated, it is larger than allowed
  };

  // `wanted`: tags in ascending order, which outlive this. `most_inflated`: bytes that a deflated data set
  // may grow to, looked at to its end; 0: no limit, and its end is left alone.
  void start(VX_TRANSFER_SYNTAX syntax, std::span<const uint32_t> wanted, uint64_t most_inflated = 0);
  State take(const void* data, std::size_t size);
  // No more comes: what ends within an element or a sequence is damaged.
  void end();
  State state() const { return state_; }
  // Wants more bytes, if only to see how many there are.
  bool goes_on() const {
    return state_ == State::Reading ||
           (state_ == State::Complete && inflater_ != nullptr && most_inflated_ != 0);
  }
  // Bytes from here on that need not be looked at.
  uint64_t passing_over() const { return inflater_ == nullptr && !keeping_ ? left_ : 0; }
  void pass_over(uint64_t bytes) { left_ -= bytes; }

  // Of the data set; 0: none has come.
  uint32_t first_tag() const { return first_tag_; }
  bool has(uint32_t tag) const { return find(tag) != nullptr; }
  // As it is encoded, without padding at its end; "" if it has not come.
  std::string text(uint32_t tag) const;
  // What was kept, as a message of the library, which the caller frees; -1 if it can not be read.
  int32_t make_message() const;

 private:
  struct Kept {
    uint32_t tag;
    std::size_t offset;  // of its value
    std::size_t length;
  };
  struct Level {  // of what has no length of its own
    bool items;   // a sequence; otherwise an item
    bool implicit;
  };
  struct EndInflate {
    void operator()(z_stream* stream) const {
      inflateEnd(stream);
      delete stream;
    }
  };
  const Kept* find(uint32_t tag) const;
  void take_plain(const char* data, std::size_t size);
  void take_deflated(const char* data, std::size_t size);
  bool take_header(const char*& data, std::size_t& size);
  void begin_element(uint32_t tag, const char* vr, uint32_t length, std::size_t header);
  void begin_in_sequence(uint32_t tag, uint32_t length);
  bool implicit() const { return levels_.empty() ? implicit_ : levels_.back().implicit; }
  uint32_t number(const char* bytes, std::size_t width) const;

  std::span<const uint32_t> wanted_;
  State state_ = State::Complete;
  VX_TRANSFER_SYNTAX syntax_ = 0;  // of what is kept
  uint32_t first_tag_ = 0;
  bool implicit_ = false;
  bool big_ = false;
  char header_[12] = {};
  std::size_t have_ = 0;  // of the header
  uint64_t left_ = 0;     // of the value
  bool keeping_ = false;
  std::vector<Level> levels_;
  std::string bytes_;
  std::vector<Kept> kept_;
  std::unique_ptr<z_stream, EndInflate> inflater_;
  uint64_t inflated_ = 0;
  uint64_t most_inflated_ = 0;
};

// Lets the scan look at a file with preamble and meta group; `most_inflated` as for start(). An error text,
// empty on success.
std::string scan_file(const std::string& path, std::span<const uint32_t> wanted, HeadScan& scan,
                      uint64_t most_inflated = 0);

// Whether two files hold the same data set byte for byte in the same transfer syntax. False where one of them
// can not be read.
bool same_data_set(const std::string& one, const std::string& other);

}  // namespace vexal
