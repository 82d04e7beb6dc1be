// The frames of an object's Pixel Data, read one by one from where they lie.
#pragma once

#include <cstdint>
#include <string>

#include "files/files.h"
#include "files/fragments.h"
#include "files/temp_folder.h"

namespace vexal {

// A value of an object, read where it lies, in little endian.
class StoredValue {
 public:
  // The file has to stay open. An error text, empty on success.
  std::string open(const DicomFile& file, int32_t object, uint32_t tag);
  uint64_t size() const { return size_; }
  // False if not all of that is there. Several threads may read at once.
  bool read_at(uint64_t offset, void* buffer, std::size_t length) const;

 private:
  static VX_STATUS gather(int32_t id, uint32_t tag, void* user, uint32_t size, void* data, int32_t first,
                          int32_t last);
  bool read_swapped(uint64_t offset, void* buffer, std::size_t length) const;

  uint64_t size_ = 0;
  // It lies in its file, or here.
  const FileSource* source_ = nullptr;
  uint64_t offset_ = 0;
  uint32_t width_ = 1;  // of elements that lie in the other byte order
  Spill taken_;
  std::string problem_;
};

// Adds `count` bits of a value, from bit `first` on, to `bytes`: eight a byte, the first in the lowest bit,
// zeros behind the last. False if not all of that is there.
bool read_bits(const StoredValue& value, uint64_t first, uint64_t count, Bytes& bytes);

// Puts frames of single bits behind each other without a gap (PS3.5 section 8.1.1).
class BitJoiner {
 public:
  // Adds what has become whole bytes; with the last frame, all.
  void add(const Bytes& frame, uint64_t bits, bool last, Bytes& out);

 private:
  uint32_t carry_ = 0;
  uint32_t carried_ = 0;  // bits of it
};

class FrameSource {
 public:
  // Finds the frames of an object of the file, the outermost or an item, whose pixel data stands in `syntax`.
  // The file has to stay open. An error text, empty on success.
  std::string open(const DicomFile& file, int32_t object, VX_TRANSFER_SYNTAX syntax);
  uint32_t count() const { return count_; }
  bool encapsulated() const { return encapsulated_; }
  // Bytes behind the last native frame that are no frame and more than a pad.
  uint64_t surplus() const { return surplus_; }
  // A video is one stream, whatever the number of its frames.
  bool is_video() const { return video_; }
  // Adds the stored bytes of a frame; a code stream in several fragments comes in one piece. Several threads
  // may do so at once. At most the first `most` bytes of a code stream. An error text, empty on success.
  std::string read(uint32_t number, Bytes& bytes, std::size_t most = SIZE_MAX) const;
  // All fragments as one stream: its bytes, and a part of them. False if not all of that is there.
  uint64_t stream_size() const;
  bool read_stream(uint64_t offset, void* buffer, std::size_t length) const;

 private:
  std::string find_native(int32_t object, uint32_t frames);
  std::string find_encapsulated(uint32_t frames);

  bool encapsulated_ = false;
  bool video_ = false;
  uint32_t count_ = 0;
  uint64_t frame_bits_ = 0;  // of each native frame
  uint64_t surplus_ = 0;
  Encapsulated items_;
  StoredValue value_;
};

}  // namespace vexal
