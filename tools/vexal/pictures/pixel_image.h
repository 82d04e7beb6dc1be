// Frames of an image and what people see of them: stored bytes, modality and VOI transformations, overlays.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "drawing/picture.h"
#include "files/files.h"
#include "files/fragments.h"
#include "images/frame_source.h"
#include "images/recode.h"
#include "rendering/grey.h"
#include "rendering/image_description.h"

namespace vexal {

class PixelImage {
 public:
  // An error text, empty on success.
  std::string open(const std::string& path);
  DicomFile& file() { return file_; }
  const DicomFile& file() const { return file_; }
  const ImageDescription& description() const { return image_; }
  bool compressed() const { return compressed_; }
  const Encapsulated& fragments() const { return encapsulated_; }
  const StoredValue& value() const { return value_; }
  // The stored bytes of a frame (from 0), decompressed.
  std::string frame(uint32_t number, Bytes& bytes);
  // Its compressed form; of a video all of it, as the first.
  std::string code_stream(uint32_t number, Bytes& bytes);
  // Code streams that it has, or an error text.
  std::string count_streams(uint32_t& count);
  // All its frames are one stream.
  bool is_video() { return compressed_ && find_frames().empty() && decoder_->is_video(); }
  // The samples of a colour lie together.
  bool is_planar() const;
  // Frames so far whose code stream lacks its end.
  uint32_t cut_short() const { return decoder_ != nullptr ? decoder_->cut_short() : 0; }
  // Whose attributes shape a frame's grey, and what its colours mean.
  GreySources sources(uint32_t number) const;
  // A frame by these, its stored bytes beside it.
  std::string show(uint32_t number, const GreySources& sources, const RenderOptions& options, Bytes& bytes,
                   Picture& picture);
  // A frame by its own attributes, with overlays.
  std::string render(uint32_t number, const RenderOptions& options, Picture& picture);
  // Why the last frame's colours were taken as they stand; empty if all went well.
  const std::string& profile_fault() const { return profile_fault_; }

 private:
  std::string read_description();
  std::string find_frames();

  DicomFile file_;
  ImageDescription image_;
  Encapsulated encapsulated_;
  StoredValue value_;
  std::unique_ptr<FrameDecoder> decoder_;  // from the first frame on that is asked for
  uint32_t pixels_ = 0;                    // the attribute that holds them
  bool compressed_ = false;
  std::string profile_fault_;
};

}  // namespace vexal
