// Frames of an image and what people see of them: stored bytes, modality and VOI transformations, overlays.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "drawing/picture.h"
#include "files/files.h"
#include "files/fragments.h"
#include "functional_groups.h"
#include "grey.h"
#include "image_description.h"
#include "images/frame_source.h"
#include "images/recode.h"

namespace vexal {

class PixelImage {
 public:
  // An error text, empty on success.
  std::string open(const std::string& path);
  DicomFile& file() { return file_; }
  const DicomFile& file() const { return file_; }
  // Its frames are those that are there.
  const ImageDescription& description() const { return image_; }
  // In words, that it says that it has more frames than that; empty if it does not say so.
  const std::string& missing_frames() const { return missing_; }
  bool compressed() const { return compressed_; }
  const Encapsulated& fragments() const { return encapsulated_; }
  const StoredValue& value() const { return value_; }
  // The stored bytes of a frame (from 0), decompressed.
  std::string frame(uint32_t number, Bytes& bytes);
  // Of a compressed image whose frames can be told apart, else null, and why there is none.
  const FrameDecoder* decoder() const { return decoder_.get(); }
  const std::string& decoder_fault() const { return decoder_fault_; }
  // Its compressed form; of a video all of it, as the first.
  std::string code_stream(uint32_t number, Bytes& bytes);
  // All its frames are one stream.
  bool is_video() const { return decoder_ != nullptr && decoder_->is_video(); }
  // What was met in the code streams of its frames so far, or behind its last native frame; empty if there is
  // nothing to tell.
  std::string finding() const { return decoder_ != nullptr ? decoder_->form().notes->told() : surplus_; }
  // Samples of all colours of a plane stand together.
  bool is_planar() const;
  const FunctionalGroups& groups() const;
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
  void find_frames();
  uint64_t native_frame_bits() const;
  void count_native_frames();
  void follow(const FrameForm& form);

  DicomFile file_;
  mutable std::optional<FunctionalGroups> groups_;  // found when they are asked for
  ImageDescription image_;
  Encapsulated encapsulated_;
  StoredValue value_;
  std::unique_ptr<FrameDecoder> decoder_;
  uint32_t pixels_ = 0;  // the attribute that holds them
  bool compressed_ = false;
  std::string decoder_fault_;
  std::string missing_;
  std::string surplus_;
  std::string profile_fault_;
};

}  // namespace vexal
