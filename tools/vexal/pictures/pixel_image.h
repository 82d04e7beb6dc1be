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
#include "images/frame_source.h"
#include "images/recode.h"

namespace vexal {

struct ImageDescription {
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t samples = 1;
  uint32_t allocated = 0;
  uint32_t stored = 0;
  uint32_t high = 0;
  bool is_signed = false;
  uint32_t planar = 0;
  uint32_t frames = 1;
  std::string photometric;
  bool real = false;  // floating point
};

struct RenderOptions {
  std::optional<double> center;
  std::optional<double> width;
  int window = 1;  // which of the image's own; 0: the whole range of its values
  bool invert = false;
  bool overlays = true;
};

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
  std::string frame(uint32_t number, std::string& bytes);
  // Its compressed form; of a video all of it, as the first.
  std::string code_stream(uint32_t number, std::string& bytes);
  // Code streams that it has, or an error text.
  std::string count_streams(uint32_t& count);
  // Frames so far whose code stream lacks its end.
  uint32_t cut_short() const { return decoder_ != nullptr ? decoder_->cut_short() : 0; }
  std::string render(uint32_t number, const RenderOptions& options, Picture& picture);

 private:
  std::string read_description();
  std::string find_frames();
  bool is_planar() const;
  // The value of a pixel before all transformations, whatever kind of number it is.
  double plain_value(const std::string& bytes, std::size_t index) const;
  std::string grey(uint32_t number, const std::string& bytes, const RenderOptions& options, Picture& picture);
  std::string palette(const std::string& bytes, Picture& picture);
  std::string colour(const std::string& bytes, Picture& picture);
  void draw_overlays(uint32_t number, const std::string& bytes, Picture& picture);
  int32_t stored_value(const std::string& bytes, std::size_t index) const;
  // The item that holds a frame's part of a functional group, or the object itself.
  int32_t group_item(uint32_t frame, uint32_t sequence) const;

  DicomFile file_;
  ImageDescription image_;
  Encapsulated encapsulated_;
  StoredValue value_;
  std::unique_ptr<FrameDecoder> decoder_;  // from the first frame on that is asked for
  uint32_t pixels_ = 0;                    // the attribute that holds them
  bool compressed_ = false;
};

}  // namespace vexal
