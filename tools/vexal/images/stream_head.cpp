#include "stream_head.h"

#include <algorithm>

#include "base/names.h"
#include "base/tags.h"
#include "frame_form.h"

namespace vexal {
namespace {

// Colour profiles and comments may stand in front of what is looked for.
constexpr std::size_t kMostHead = 64 * 1024;

class Corrector {
 public:
  explicit Corrector(AttributeTexts& attributes) : attributes_(attributes) {}

  std::string text(uint32_t tag) const {
    const auto found = find(tag);
    return found != attributes_.end() ? found->second : "";
  }
  uint64_t number(uint32_t tag) const { return number_in(text(tag)); }
  void set(uint32_t tag, const std::string& value) {
    const auto found = find(tag);
    const std::string before = text(tag);
    if (before == value) return;
    if (found != attributes_.end()) {
      attributes_[static_cast<std::size_t>(found - attributes_.begin())].second = value;
    } else {
      attributes_.emplace_back(tag, value);
    }
    told_ += (told_.empty() ? "" : ", ") + tag_name(tag) + " is " + value +
             (before.empty() ? "" : " and not " + before);
  }
  void set(uint32_t tag, uint32_t value) { set(tag, std::to_string(value)); }
  void remove(uint32_t tag) {
    std::erase_if(attributes_, [tag](const auto& row) { return row.first == tag; });
  }
  const std::string& told() const { return told_; }

 private:
  AttributeTexts::const_iterator find(uint32_t tag) const {
    return std::find_if(attributes_.begin(), attributes_.end(),
                        [tag](const auto& row) { return row.first == tag; });
  }
  AttributeTexts& attributes_;
  std::string told_;
};

// Colour that is called grey, and the other way round. Decoders give RGB of a stream that is called so.
void follow_samples(const CodeStreamObj& stream, Corrector& image) {
  const std::string photometric = image.text(tags::kPhotometricInterpretation);
  const bool grey = photometric.starts_with("MONOCHROME");
  const bool palette = photometric.starts_with("PALETTE");
  if (stream.SamplesPerPixel == 3 && grey) {
    image.set(tags::kPhotometricInterpretation, "RGB");
    image.set(tags::kPlanarConfiguration, 0);
  } else if (stream.SamplesPerPixel == 1 && !grey && !palette) {
    image.set(tags::kPhotometricInterpretation, "MONOCHROME2");
    image.remove(tags::kPlanarConfiguration);
  } else if (stream.SamplesPerPixel != (grey || palette ? 1U : 3U)) {
    return;  // nobody can tell what that is
  }
  image.set(tags::kSamplesPerPixel, stream.SamplesPerPixel);
}

// Processes that know no other number of bits beyond 8.
bool has_only_12_bits(VX_TRANSFER_SYNTAX syntax) {
  return syntax == JPEG_EXTENDED_2_4 || syntax == JPEG_SPEC_NON_HIER_6_8 ||
         syntax == JPEG_FULL_PROG_NON_HIER_10_12;
}

std::string shape_of(const CodeStreamObj& stream) {
  return std::to_string(stream.Rows) + " x " + std::to_string(stream.Columns) + " of " +
         std::to_string(stream.SamplesPerPixel) + (stream.SamplesPerPixel == 1 ? " sample" : " samples") +
         (stream.IsSigned == 1 ? " with a sign" : "");
}

}  // namespace

std::optional<CodeStreamObj> describe_stream(VX_TRANSFER_SYNTAX syntax, const void* data, std::size_t size) {
  CodeStreamObj stream{};
  if (VX_Describe_Code_Stream(syntax, data, static_cast<uint32_t>(size), &stream) != VX_NORMAL_COMPLETION)
    return std::nullopt;
  return stream;
}

std::optional<CodeStreamObj> describe_frame(const FrameSource& source, VX_TRANSFER_SYNTAX syntax,
                                            uint32_t frame) {
  Bytes bytes;
  if (frame >= source.count() || !source.read(frame, bytes, kMostHead).empty()) return std::nullopt;
  std::optional<CodeStreamObj> stream = describe_stream(syntax, bytes.data(), bytes.size());
  if (stream || bytes.size() < kMostHead) return stream;
  bytes.clear();
  if (!source.read(frame, bytes).empty()) return std::nullopt;
  return describe_stream(syntax, bytes.data(), bytes.size());
}

std::string follow_stream(VX_TRANSFER_SYNTAX syntax, const CodeStreamObj& stream, bool tile,
                          AttributeTexts& attributes) {
  Corrector image(attributes);
  if (!tile && stream.Rows <= UINT16_MAX && stream.Columns <= UINT16_MAX) {
    image.set(tags::kRows, stream.Rows);
    image.set(tags::kColumns, stream.Columns);
  }
  if (image.number(tags::kSamplesPerPixel) != stream.SamplesPerPixel) follow_samples(stream, image);
  const uint32_t bits = stream.BitsPerSample;
  const uint64_t allocated = image.number(tags::kBitsAllocated);
  if (bits > allocated && bits <= 32) {
    image.set(tags::kBitsAllocated, bits <= 8 ? 8 : bits <= 16 ? 16 : 32);
    image.set(tags::kBitsStored, bits);
    image.set(tags::kHighBit, bits - 1);
  } else if (bits > image.number(tags::kBitsStored) && bits != allocated && !has_only_12_bits(syntax)) {
    // Streams as wide as the samples' room are usual for fewer bits.
    image.set(tags::kBitsStored, bits);
    image.set(tags::kHighBit, bits - 1);
  }
  // The other way round tells nothing: many streams hold the bits of signed samples and do not say so.
  if (stream.IsSigned == 1) image.set(tags::kPixelRepresentation, 1);
  return image.told();
}

std::string stream_fault(const CodeStreamObj& stream, const CodeStreamObj& first, bool edge) {
  const bool same_size = stream.Rows == first.Rows && stream.Columns == first.Columns;
  if ((same_size || edge) && stream.SamplesPerPixel == first.SamplesPerPixel &&
      stream.IsSigned == first.IsSigned)
    return "";
  return "its code stream is " + shape_of(stream) + ", that of the first frame " + shape_of(first);
}

}  // namespace vexal
