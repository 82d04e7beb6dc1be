// Pixel data in another transfer syntax, frame by frame: in bounded memory, on several threads where there
// are several frames, and with the same result on any number of them.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "files/files.h"
#include "files/temp_folder.h"
#include "frame_form.h"
#include "frame_source.h"

namespace vexal {

// Comes before threads and conversions: the temporary folder, and a heap that suits frames.
void prepare_recoding();

class FrameConveyor;
class FrameWorker;

// The frames of an image, decompressed one by one; several threads may ask for frames at once.
class FrameDecoder {
 public:
  FrameDecoder();
  ~FrameDecoder();
  // Finds the frames of the file's outermost object, whose Pixel Data is compressed. The file has to stay
  // open. An error text, empty on success.
  std::string open(const DicomFile& file);
  // Adds the bytes of a frame (from 0): as the object describes them, but in the photometric interpretation
  // that its decompressor gives. Colour that is stored at half the width comes whole. An error text, empty on
  // success.
  std::string frame(uint32_t number, Bytes& bytes);
  // Likewise in its compressed form, which needs no decoder.
  std::string code_stream(uint32_t number, Bytes& bytes) const;
  const FrameForm& form() const { return form_; }
  const FrameSource& source() const { return source_; }
  // Bits of each frame.
  uint64_t frame_bits() const { return form_.image_bits(); }
  // All frames are one stream then.
  bool is_video() const { return source_.is_video(); }

 private:
  FrameSource source_;
  FrameForm form_;
  std::string fault_;  // why they can not be decompressed
  std::mutex mutex_;
  std::vector<std::unique_ptr<FrameWorker>> idle_;  // one for each thread that asks at the same time
};

// Takes the place of the Pixel Data of a file in what the library writes or sends.
class RecodedPixels {
 public:
  enum class When {
    AsWritten,  // what can be is converted by write()
    Ahead       // all is converted before: nothing fails later
  };
  RecodedPixels();
  ~RecodedPixels();
  RecodedPixels(const RecodedPixels&) = delete;
  RecodedPixels& operator=(const RecodedPixels&) = delete;

  // True if the pixels of the file have another form under `target`.
  static bool needed(const DicomFile& file, VX_TRANSFER_SYNTAX target);
  // Converts, and brings the attributes of the object in line; the object is then to be given `target`. The
  // file has to stay open while this lives. An error text, empty on success.
  std::string attach(DicomFile& file, VX_TRANSFER_SYNTAX target, unsigned threads, When when);
  // Writes the object of the file, with these pixels where they were attached. An error text, empty on
  // success.
  std::string write(const DicomFile& file, FileSink& sink, int32_t pad);
  // Why the pixels could not be had, if that was the error.
  const std::string& problem() const { return problem_; }
  // What of the image did not come through although all went well; empty if nothing is missing.
  std::string finding() const;

 private:
  std::string convert_first();
  std::string convert_all();
  std::string store(const Bytes& frame, uint32_t number);
  bool has_right_size(const Bytes& frame, uint32_t number) const;
  std::string bring_in_line(DicomFile& file);
  std::string tell_of_loss(int32_t id) const;
  bool fits_late_table() const;
  bool fits_late_frame() const;
  std::string place_late_frame(FileSink& sink);
  std::string head() const;
  void note_item(uint32_t number);
  bool next_piece(bool first, bool& ended);
  bool can_place() const;
  bool place_others(bool& ended);
  bool next_of_spill(bool first, bool& ended);
  static VX_STATUS callback(int32_t id, uint32_t tag, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                            void** data, int32_t first, int32_t* last);

  int32_t application_ = -1;
  FrameSource source_;
  FrameForm form_;
  unsigned threads_ = 1;
  std::unique_ptr<FrameConveyor> conveyor_;
  bool spilled_ = false;  // all is converted and lies in spill_, as in the value behind its offset table
  Spill spill_;
  bool late_table_ = false;        // the offsets are filled in behind the last frame
  bool late_frame_ = false;        // the only one is decoded when all around it is in the file
  std::vector<uint32_t> offsets_;  // of the frames in the value
  FileSink* sink_ = nullptr;
  FrameForm::Attributes changes_;  // of attributes
  std::string method_;             // of a lossy compression, and what it says of itself
  std::string description_;
  bool joins_ = false;  // frames of single bits that do not end at a byte
  BitJoiner joiner_;
  Bytes joined_;
  Bytes first_frame_;
  uint64_t frame_bytes_ = 0;  // of each frame, where the value is not encapsulated
  uint64_t length_ = 0;       // of that value
  std::string path_;
  std::string problem_;

  // The reading of the value.
  Bytes piece_;
  uint64_t given_ = 0;  // of its bytes, behind the offset table
  uint32_t frame_ = 0;
  bool placed_ = false;  // the others lie in the file before the library gives them
};

}  // namespace vexal
