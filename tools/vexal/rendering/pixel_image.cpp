#include "pixel_image.h"

#include <algorithm>

#include "base/attributes.h"
#include "base/object_values.h"
#include "base/tags.h"
#include "base/values.h"
#include "colour.h"
#include "files/absent_pixels.h"
#include "overlays.h"
#include "shutters.h"

namespace vexal {
namespace {

constexpr uint64_t kLargestFrame = uint64_t{1} << 31;

}  // namespace

// --- Opening ---

std::string PixelImage::open(const std::string& path) {
  if (file_.open(path, {}) != VX_NORMAL_COMPLETION) return file_.problem();
  for (const uint32_t tag : {tags::kPixelData, tags::kFloatPixelData, tags::kDoubleFloatPixelData}) {
    if (pixels_ == 0 && has_attribute(file_.id(), tag)) pixels_ = tag;
  }
  if (std::string absent = absence_of_pixels(file_.id(), file_.syntax()); !absent.empty()) return absent;
  if (pixels_ == 0) return "it has no Pixel Data";
  if (!file_.has_meta()) file_.set_syntax(file_.syntax());
  if (std::string problem = read_description(); !problem.empty()) return problem;
  compressed_ = !is_uncompressed(file_.syntax());
  if (compressed_ && image_.real) return "floating point pixels are not compressed";
  if (std::string problem = value_.open(file_, file_.id(), pixels_); !problem.empty()) return problem;
  if (compressed_) {
    const auto read = [this](uint64_t offset, void* buffer, std::size_t length) {
      return value_.read_at(offset, buffer, length);
    };
    encapsulated_ = read_items(read, value_.size());
    vexal::find_frames(encapsulated_, image_.frames, read);
    find_frames();  // what is wrong there is said when a frame is asked for
  } else {
    count_native_frames();
  }
  return "";
}

uint64_t PixelImage::native_frame_bits() const {
  const bool packed =
      image_.photometric.starts_with("YBR_FULL_422") || image_.photometric.starts_with("YBR_PARTIAL_422");
  return uint64_t{image_.rows} * image_.columns * (packed ? 2 : image_.samples) * image_.allocated;
}

// A number of frames is no more than a claim: nothing is made ready for those that are not there.
void PixelImage::count_native_frames() {
  const uint64_t bits = native_frame_bits();
  const auto there = static_cast<uint32_t>(std::clamp<uint64_t>(value_.size() * 8 / bits, 1, image_.frames));
  const uint64_t used = (bits * there + 7) / 8;
  if (there < image_.frames)
    missing_ = "frame " + std::to_string(there + 1) + " of " + std::to_string(image_.frames) +
               " and what follows it: the value of " + std::to_string(value_.size()) +
               " bytes ends before it does";
  else if (value_.size() > used + 1)  // more than a pad
    surplus_ = "behind its last frame are " + std::to_string(value_.size() - used) + " bytes more";
  image_.frames = there;
}

std::string PixelImage::read_description() {
  const int32_t id = file_.id();
  image_.rows = number_of(id, tags::kRows);
  image_.columns = number_of(id, tags::kColumns);
  image_.samples = number_of(id, tags::kSamplesPerPixel, 1);
  image_.allocated = number_of(id, tags::kBitsAllocated);
  image_.stored = number_of(id, tags::kBitsStored, image_.allocated);
  image_.high = number_of(id, tags::kHighBit, image_.stored - 1);
  image_.is_signed = number_of(id, tags::kPixelRepresentation) == 1;
  image_.planar = number_of(id, tags::kPlanarConfiguration);
  image_.frames = std::max(number_of(id, tags::kNumberOfFrames, 1), 1U);
  image_.photometric = text_of(id, tags::kPhotometricInterpretation);
  image_.real = pixels_ != tags::kPixelData;
  if (image_.real) {  // their size is that of the attribute's numbers
    image_.stored = image_.allocated = pixels_ == tags::kFloatPixelData ? 32 : 64;
    image_.high = image_.stored - 1;
  }
  const uint32_t a = image_.allocated;
  const bool possible =
      image_.rows != 0 && image_.columns != 0 && image_.rows <= 65535 && image_.columns <= 65535 &&
      (image_.samples == 1 || image_.samples == 3) &&
      (a == 1 || a == 8 || a == 16 || a == 32 || image_.real) && image_.stored != 0 && image_.stored <= a &&
      image_.high < a && image_.high + 1 >= image_.stored &&
      uint64_t{image_.rows} * image_.columns * image_.samples * ((a + 7) / 8) < kLargestFrame;
  return possible ? "" : "its pixel description is none that can be shown";
}

bool PixelImage::is_planar() const {
  return image_.samples == 3 && image_.planar == 1 &&
         (!compressed_ || file_.syntax() == RLE || holds_native_frames(file_.syntax()));
}

void PixelImage::find_frames() {
  auto decoder = std::make_unique<FrameDecoder>();
  decoder_fault_ = decoder->open(file_);
  if (!decoder_fault_.empty()) {  // each frame is a fragment at least
    const auto most = static_cast<uint32_t>(std::max<std::size_t>(encapsulated_.fragments.size(), 1));
    image_.frames = std::min(image_.frames, most);
    return;
  }
  decoder_ = std::move(decoder);
  if (!decoder_->form().notes->corrected.empty()) follow(decoder_->form());
}

// What the code streams say takes the place of what the object says.
void PixelImage::follow(const FrameForm& form) {
  const auto number = [&form](uint32_t tag) { return static_cast<uint32_t>(number_in(form.text(tag))); };
  image_.rows = number(tags::kRows);
  image_.columns = number(tags::kColumns);
  image_.allocated = number(tags::kBitsAllocated);
  image_.stored = number(tags::kBitsStored);
  image_.high = number(tags::kHighBit);
  image_.is_signed = number(tags::kPixelRepresentation) == 1;
  image_.planar = number(tags::kPlanarConfiguration);
  if (image_.samples == number(tags::kSamplesPerPixel)) return;
  image_.samples = number(tags::kSamplesPerPixel);
  image_.photometric = form.text(tags::kPhotometricInterpretation);
}

std::string PixelImage::code_stream(uint32_t number, Bytes& bytes) {
  bytes.clear();
  return decoder_ != nullptr ? decoder_->code_stream(number, bytes) : decoder_fault_;
}

std::string PixelImage::frame(uint32_t number, Bytes& bytes) {
  bytes.clear();
  if (number >= image_.frames) return "there is no such frame";
  if (compressed_) {
    if (decoder_ == nullptr) return decoder_fault_;
    if (std::string problem = decoder_->frame(number, bytes); !problem.empty()) return problem;
    const uint64_t bits = decoder_->frame_bits();
    if (bytes.size() < (bits + 7) / 8) return "the frame is too short";
    bytes.resize((bits + 7) / 8);
    return "";
  }
  const uint64_t bits = native_frame_bits();
  // Frames of single bits follow each other without a gap.
  const uint64_t start = bits * number;
  if ((start + bits + 7) / 8 > value_.size()) return "the value ends before this frame does";
  return read_bits(value_, start, bits, bytes) ? "" : "can not read";
}

// --- Rendering ---

const FunctionalGroups& PixelImage::groups() const {
  if (!groups_) groups_.emplace(file_.id());
  return *groups_;
}

GreySources PixelImage::sources(uint32_t number) const {
  const int32_t id = file_.id();
  GreySources sources;
  sources.image = sources.modality = sources.presentation = id;
  sources.profile = profile_holder(id, optical_path_of(id, groups(), image_.frames, number));
  const auto group = [&](uint32_t sequence) {
    const int32_t item = groups().item(number, sequence);
    return item >= 0 ? item : id;
  };
  sources.rescale = group(tags::kPixelValueTransformationSequence);
  sources.voi = group(tags::kFrameVOILUTSequence);
  sources.voi_table = has_attribute(sources.voi, tags::kVOILUTSequence) ? sources.voi : id;
  sources.light_first = image_.photometric == "MONOCHROME1";
  return sources;
}

std::string PixelImage::show(uint32_t number, const GreySources& sources, const RenderOptions& options,
                             Bytes& bytes, Picture& picture) {
  std::string problem = frame(number, bytes);
  if (!problem.empty()) return problem;
  const int32_t id = file_.id();
  picture.width = image_.columns;
  picture.height = image_.rows;
  picture.bits = 8;
  const bool grey = image_.photometric.starts_with("MONOCHROME") && image_.samples == 1;
  if (options.bits != 8 && !grey) return "only grey has 16 bits";
  if (grey) {
    GreyScale scale;
    problem = scale.read(image_, sources, options);
    if (!problem.empty()) return problem;
    scale.apply(bytes, picture);
    add_supplement(id, image_, bytes, picture);
    return "";
  }
  if (image_.photometric.starts_with("PALETTE") && image_.samples == 1) {
    problem = show_palette(id, image_, bytes, picture);
  } else if (image_.samples == 3 && image_.allocated >= 8) {
    problem = show_colour(image_, is_planar(), bytes, picture);
  } else {
    return "photometric interpretation " + image_.photometric + " can not be shown";
  }
  if (!problem.empty()) return problem;
  if (options.icc) profile_fault_ = apply_profile(sources.profile, picture);
  if (options.invert) {
    for (uint8_t& byte : picture.bytes) byte = static_cast<uint8_t>(255 - byte);
  }
  return "";
}

std::string PixelImage::render(uint32_t number, const RenderOptions& options, Picture& picture) {
  Bytes bytes;
  std::string problem = show(number, sources(number), options, bytes, picture);
  if (!problem.empty()) return problem;
  const int32_t id = file_.id();
  const int32_t of_frame = groups().item(number, tags::kFrameDisplayShutterSequence);
  const int32_t shutters = of_frame >= 0 ? of_frame : id;
  if (options.shutters)
    draw_shutters({shutters, id, &bytes}, image_, number, pixel_shape(id, groups(), number), picture);
  if (!options.overlays) return "";
  const uint32_t shutter = shutter_overlay(shutters);
  const std::size_t pixel_bytes = std::size_t{picture.samples} * picture.bits / 8;
  for (uint32_t group = kFirstOverlay; group <= kLastOverlay; group += kNextOverlay) {
    Overlay overlay;
    if (group == shutter || !overlay.read(id, group, image_, number, &bytes)) continue;
    overlay.each([&](uint32_t column, uint32_t row) {
      const std::size_t pixel = std::size_t{row} * picture.width + column;
      std::fill_n(picture.bytes.data() + pixel * pixel_bytes, pixel_bytes, uint8_t{255});
    });
  }
  return "";
}

}  // namespace vexal
