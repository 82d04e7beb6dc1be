// What all frames of an image have in common, and what can be done with them in which transfer syntax.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/tags.h"
#include "files/files.h"
#include "stream_head.h"
#include "vexalkit.h"

namespace vexal {

// A transfer syntax that someone names: a UID, or one of VEXAL_SYNTAX_NAMES.
bool find_syntax(const std::string& text, VX_TRANSFER_SYNTAX& syntax);
#define VEXAL_SYNTAX_NAMES                                                                                \
  "a UID, or implicit, explicit, big-endian, deflated, rle, jpeg, jpeg-12, jpeg-lossless, jpeg-ls, jpeg-" \
  "ls-near, jpeg2000, jpeg2000-lossy, htj2k, htj2k-rpcl, htj2k-lossy, jpeg-xl, jpeg-xl-recompressed, "    \
  "jpeg-xl-lossy, encapsulated, deflated-frames"

// Items hold frames as they are without encapsulation, as such or deflated (PS3.5 annex A).
bool holds_native_frames(VX_TRANSFER_SYNTAX syntax);
bool can_decompress(VX_TRANSFER_SYNTAX syntax);
// Frames go between JPEG and JPEG XL without a pixel being touched.
bool keeps_jpeg_streams(VX_TRANSFER_SYNTAX from, VX_TRANSFER_SYNTAX to);
// Null: there is none.
VX_COMPRESSION_CALLBACK compressor_of(VX_TRANSFER_SYNTAX syntax);
// Loses something of the image: the result is another instance (PS3.3 section C.7.6.1.1.5).
bool is_lossy(VX_TRANSFER_SYNTAX syntax);

// What all frames of an image have in common.
struct FrameForm {
  using Attributes = AttributeTexts;
  // What came of the frames, whichever thread made them.
  struct Notes {
    std::atomic<uint32_t> cut_short{0};  // frames whose stream lacks its end
    std::atomic<uint32_t> damaged{0};    // frames of which part is wrong
    std::atomic<uint32_t> going_on{0};   // frames with more than a pad behind it
    std::atomic<bool> lost{false};       // something of the image
    std::string corrected;               // attributes that the code streams contradict
    void take_flaws();                   // of the frame that this thread has decoded
    std::string told() const;            // in words; empty if there is nothing to tell
  };
  VX_TRANSFER_SYNTAX from = 0;
  VX_TRANSFER_SYNTAX to = 0;
  bool decodable = false;      // the library has a codec that takes the frames apart
  bool keeps_streams = false;  // keeps_jpeg_streams
  VX_VR vr = VX_VR_OB;
  Attributes stored;      // as the object has them
  Attributes attributes;  // as the codecs are to see them
  std::shared_ptr<Notes> notes = std::make_shared<Notes>();
  FrameForm() = default;
  FrameForm(VX_TRANSFER_SYNTAX source, VX_TRANSFER_SYNTAX target);
  // The attributes of an object, and what the first of its code streams says.
  void read(int32_t object, const FrameSource& source);
  void relabel(const char* photometric);
  bool has_half_colour() const;          // two pixels share a sample of each colour
  std::string text(uint32_t tag) const;  // of an attribute, "" if it is not there
  std::string stored_text(uint32_t tag) const;
  VX_COMPRESSION_CALLBACK compressor() const;  // into `to`; null: there is none
  bool loses() const;                          // what comes of the frames is another instance
  uint64_t image_bits() const;                 // of a frame without compression
  bool unwraps = false;                        // what its items hold are native frames
  bool unpacks = false;                        // half colour becomes whole on the way to the compressor
  bool compresses_alone = false;               // frames that are compressed leave all attributes as they are
  bool tile = false;                           // frames are parts of a picture whose edges need not fill them
  std::optional<CodeStreamObj> head;           // of the first code stream
  // Why this code stream can not belong to the image; empty if it can.
  std::string fault_of_stream(const void* data, std::size_t size) const;
  std::string fault_of_head(const CodeStreamObj& stream) const;  // likewise, where there is a first one
  bool decompresses() const { return !is_uncompressed(from) && !unwraps; }
  bool compresses() const { return !is_uncompressed(to); }
  // What a decoder gives is what is to be: no object has to be made of it.
  bool decodes_alone() const {
    return decompresses() && !compresses() && !has_half_colour() && image_bits() % 8 == 0;
  }

 private:
  bool fits_tile(const CodeStreamObj& stream) const;
};

// Attributes that codecs look at, or say about their work.
inline constexpr uint32_t kImageTags[] = {tags::kImageType,
                                          tags::kDerivationDescription,
                                          tags::kSamplesPerPixel,
                                          tags::kPhotometricInterpretation,
                                          tags::kPlanarConfiguration,
                                          tags::kRows,
                                          tags::kColumns,
                                          tags::kBitsAllocated,
                                          tags::kBitsStored,
                                          tags::kHighBit,
                                          tags::kPixelRepresentation,
                                          tags::kLossyImageCompression,
                                          tags::kLossyImageCompressionRatio,
                                          tags::kLossyImageCompressionMethod,
                                          tags::kTotalPixelMatrixColumns,
                                          tags::kTotalPixelMatrixRows};
// Why frames of this form can not be decompressed; empty if they can.
std::string decompression_fault(const FrameForm& form);
// A text without a number is 0.
uint64_t number_in(const std::string& text);

}  // namespace vexal
