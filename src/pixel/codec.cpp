#include "pixel/codec.h"

#include <cstring>
#include <type_traits>

namespace vx {
namespace {

struct Row {
  int status;
  const char* text;
};
constexpr Row kTexts[] = {
    {kCodecDone, "no error"},
    {kCodecNoMemory, "out of memory"},
    {kCodecNotAStream, "the data is no stream of this codec"},
    {kCodecBadMarker, "a marker segment is broken"},
    {kCodecUnsupported, "the stream uses a process that is not supported"},
    {kCodecBadTable, "a table is missing or broken"},
    {kCodecBadCode, "the coded data is broken"},
    {kCodecShort, "the data ends before the image"},
    {kCodecTooLarge, "the image is too large for the codec"},
    {kCodecOtherImage, "the stream holds an image of another size or depth"},
    {kCodecHighBits, "samples have bits above Bits Stored"},
    {kCodecRefused, "the codec refused the data"},
    {kCodecNotLoaded, "the codec's library is not installed"},
    {kCodecOddColumns, "YBR_FULL_422 needs an even number of columns"},
    {kCodecTrailing, "the data goes on behind the image"},
    {kCodecExtensions, "the stream uses extensions of JPEG 2000 Part 2"},
    {kCodecCollection, "the stream is a component collection, which holds several frames"},
    {kCodecNoJpeg, "the stream does not hold what a JPEG stream is rebuilt from"},
    {kCodecOtherProcess, "the stream is of a process that the transfer syntax does not take"},
    {kCodecBadEnd, "the end of image is missing"},
    {kCodecDamaged, "markers stand among the data of the image"},
    {kCodecDataShort, "data of the image is missing"},
};

struct SyntaxCodec {
  VX_TRANSFER_SYNTAX syntax;
  const Codec* codec;
};
constexpr SyntaxCodec kCodecs[] = {
    {JPEG_BASELINE, &kJpegCodec},
    {JPEG_EXTENDED_2_4, &kJpegCodec},
    {JPEG_LOSSLESS_HIER_14, &kJpegLosslessCodec},
    {JPEG_2000_LOSSLESS_ONLY, &kJpeg2000Codec},
    {JPEG_2000, &kJpeg2000Codec},
    {JPEG_2000_MC_LOSSLESS_ONLY, &kJpeg2000Codec},
    {JPEG_2000_MC, &kJpeg2000Codec},
    {HTJ2K_LOSSLESS, &kHtj2kCodec},
    {HTJ2K_LOSSLESS_RPCL, &kHtj2kCodec},
    {HTJ2K, &kHtj2kCodec},
    {JPEG_XL_LOSSLESS, &kJpegXlCodec},
    {JPEG_XL_RECOMPRESSION, &kJpegXlCodec},
    {JPEG_XL, &kJpegXlCodec},
    {JPEG_LS_LOSSLESS, &kJpegLsCodec},
    {JPEG_LS_LOSSY, &kJpegLsCodec},
    {JPEG_SPEC_NON_HIER_6_8, &kJpegCodec},
    {JPEG_FULL_PROG_NON_HIER_10_12, &kJpegCodec},
    {JPEG_LOSSLESS_NON_HIER_14, &kJpegLosslessCodec},
    {ENCAPSULATED_UNCOMPRESSED, &kNativeCodec},
    {DEFLATED_IMAGE_FRAMES, &kDeflatedCodec},
};

// With the bits above Bits Stored as copies of its highest, where that is a sign, or as zeros.
template <typename Sample>
Sample repeated(Sample sample, int shift, bool is_signed) {
  using Signed = std::make_signed_t<Sample>;
  const auto raised = static_cast<Sample>(sample << shift);
  if (is_signed) return static_cast<Sample>(static_cast<Signed>(raised) >> shift);
  return static_cast<Sample>(raised >> shift);
}

template <typename Sample>
bool repeats(const ImageAttributes& image, const uint8_t* frame) {
  const int shift = static_cast<int>(8 * sizeof(Sample) - image.BitsStored);
  const bool is_signed = image.PixelRepresentation != 0;
  uint32_t differing = 0;
  for (std::size_t i = 0; i < image.FrameSize / sizeof(Sample); ++i) {
    Sample sample;
    std::memcpy(&sample, frame + i * sizeof sample, sizeof sample);
    differing |= sample ^ repeated(sample, shift, is_signed);
  }
  return differing == 0;
}

template <typename Sample>
void extend(uint8_t* frame, std::size_t size, int shift) {
  for (std::size_t at = 0; at + sizeof(Sample) <= size; at += sizeof(Sample)) {
    Sample sample;
    std::memcpy(&sample, frame + at, sizeof sample);
    sample = repeated(sample, shift, true);
    std::memcpy(frame + at, &sample, sizeof sample);
  }
}

}  // namespace

const char* codec_text(int status) {
  for (const Row& row : kTexts) {
    if (row.status == status) return row.text;
  }
  return "unknown error";
}

const Codec* codec_for(VX_TRANSFER_SYNTAX syntax) {
  for (const SyntaxCodec& row : kCodecs) {
    if (row.syntax == syntax) return row.codec;
  }
  return nullptr;
}

bool keeps_layout(VX_TRANSFER_SYNTAX syntax) {
  const Codec* codec = codec_for(syntax);
  return syntax == RLE || (codec != nullptr && codec->keeps_layout);
}

bool has_end(const uint8_t* data, std::size_t size) {
  while (size > 2 && data[size - 1] == 0) --size;
  return size >= 2 && data[size - 2] == 0xFF && data[size - 1] == 0xD9;
}

void interleave(const uint8_t* planes, std::size_t pixels, std::size_t samples, std::size_t width,
                uint8_t* out) {
  for (std::size_t s = 0; s < samples; ++s) {
    const uint8_t* from = planes + s * pixels * width;
    uint8_t* to = out + s * width;
    for (std::size_t i = 0; i < pixels; ++i, from += width, to += samples * width)
      std::memcpy(to, from, width);
  }
}

bool high_bits_repeat(const ImageAttributes& image, const uint8_t* frame) {
  if (image.BitsStored >= image.BitsAllocated) return true;
  return image.BitsAllocated == 32 ? repeats<uint32_t>(image, frame) : repeats<uint16_t>(image, frame);
}

bool strip_high_bits(const ImageAttributes& image, const uint8_t* frame, std::vector<uint16_t>& samples) {
  samples.resize(image.FrameSize / 2);
  std::memcpy(samples.data(), frame, samples.size() * 2);
  if (image.BitsStored >= 16) return true;
  const auto mask = static_cast<uint16_t>((1U << image.BitsStored) - 1);
  for (uint16_t& sample : samples) sample = sample & mask;
  return high_bits_repeat(image, frame);
}

bool is_plain(const ImageAttributes& image, const uint8_t* frame) {
  if (image.BitsAllocated != 16 || reinterpret_cast<std::uintptr_t>(frame) % alignof(uint16_t) != 0)
    return false;
  const auto* samples = reinterpret_cast<const uint16_t*>(frame);
  uint32_t all = 0;
  for (std::size_t i = 0; i < image.FrameSize / 2; ++i) all |= samples[i];
  // Below zero a sample that has no sign above Bits Stored would get one on the way back.
  const bool keeps_sign = image.PixelRepresentation != 0 && image.BitsStored < 16;
  return (all >> (image.BitsStored - (keeps_sign ? 1 : 0))) == 0;
}

bool bytes_fit(const ImageAttributes& image, const uint8_t* frame) {
  if (image.BitsStored >= 8) return true;
  uint8_t all = 0;
  for (uint32_t i = 0; i < image.FrameSize; ++i) all |= frame[i];
  // Below zero a byte has its sign above Bits Stored, or lacks it: both stay as they are in all eight bits.
  return (all >> (image.BitsStored - (image.PixelRepresentation != 0 ? 1 : 0))) == 0;
}

void extend_sign(const ImageAttributes& image, uint8_t* frame, uint32_t precision) {
  if (image.PixelRepresentation == 0 || precision == 0 || precision >= image.BitsAllocated) return;
  const int shift = static_cast<int>(image.BitsAllocated - precision);
  if (image.BitsAllocated == 8) return extend<uint8_t>(frame, image.FrameSize, shift);
  if (image.BitsAllocated == 32) return extend<uint32_t>(frame, image.FrameSize, shift);
  extend<uint16_t>(frame, image.FrameSize, shift);
}

}  // namespace vx
