// Codecs of whole frames. Gathering the pieces of a frame and handing the result on is the same for all of
// them and stands in standard.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "pixel/image.h"

namespace vx {

// What a codec answers: 0, a fault, or one of the two that leave an image behind.
enum CodecStatus : int {
  kCodecDone = 0,
  kCodecNoMemory = -1,
  kCodecNotAStream = -2,
  kCodecBadMarker = -3,
  kCodecUnsupported = -4,
  kCodecBadTable = -5,
  kCodecBadCode = -6,
  kCodecShort = -7,
  kCodecTooLarge = -8,
  kCodecOtherImage = -9,  // sizes of the stream are not those of the image
  kCodecHighBits = -10,   // samples have bits above Bits Stored, and the process would lose them
  kCodecRefused = -11,    // by the library behind the codec
  kCodecNotLoaded = -12,
  kCodecOddColumns = -13,
  kCodecTrailing = -14,
  kCodecDamaged = -15,     // markers stand among the data of the image, which is decoded
  kCodecExtensions = -20,  // of JPEG 2000 Part 2
  kCodecCollection = -21,  // of components, of JPEG 2000 Part 2
  kCodecNoJpeg = -22,
  kCodecOtherProcess = -23,
  kCodecBadEnd = -1008,    // the end of image is missing; the image is there
  kCodecDataShort = -1562  // data of the image is missing; what there was is decoded
};
// The text of a status.
const char* codec_text(int status);

// How a frame is compressed.
struct CodecSettings {
  int luminance = 32;    // JPEG: factors of the tables of annex K; 32 takes them as they are
  int chrominance = 32;  // as above
  bool subsample = true;
  int near = 0;             // JPEG-LS: the largest error
  bool lossless = true;     // JPEG 2000, JPEG XL
  uint64_t milli_bits = 0;  // JPEG 2000: target in thousandths of a bit a pixel
  int quality = 90;         // JPEG XL, High-Throughput JPEG 2000: 1 to 100
  unsigned threads = 1;     // that may work on the frame
};

// How a stream is decompressed.
struct DecodeSettings {
  bool to_rgb = false;   // a YBR_FULL_422 image comes out as RGB, rows x columns x 3 bytes
  unsigned threads = 1;  // that may work on the frame
};

// What the head of a stream says.
struct CodecHead {
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t components = 0;
  uint32_t precision = 0;
  int is_signed = -1;  // -1: it does not say
};

// What a decode adds to its image.
struct CodecResult {
  uint32_t missing_bytes = 0;  // with kCodecDataShort
  std::size_t used = 0;        // bytes of the stream, where only the decode finds its end
};

struct Codec {
  const char* compress_name;
  const char* decompress_name;
  bool (*load)();
  int (*query)(const uint8_t* data, std::size_t size, CodecHead& head);
  // A frame as the image describes it, pixel by pixel, FrameSize bytes.
  int (*compress)(const ImageAttributes& image, const CodecSettings& settings, const uint8_t* frame,
                  std::vector<uint8_t>& out);
  // Into `frame`, FrameSize bytes.
  int (*decompress)(const ImageAttributes& image, const DecodeSettings& settings, const uint8_t* data,
                    std::size_t size, uint8_t* frame, CodecResult& result);
  // As jpeg::find_end.
  std::size_t (*find_end)(const uint8_t* data, std::size_t size, std::size_t& from);
  // Frames stay as native Pixel Data has them: planes, packed colour, samples of any size.
  bool keeps_layout = false;
};

// The codec of a transfer syntax, or null.
const Codec* codec_for(VX_TRANSFER_SYNTAX syntax);

extern const Codec kJpegCodec;
extern const Codec kJpegLosslessCodec;
extern const Codec kJpegLsCodec;
extern const Codec kJpeg2000Codec;
extern const Codec kJpegXlCodec;
extern const Codec kNativeCodec;
extern const Codec kDeflatedCodec;
extern const Codec kHtj2kCodec;

// Frames of this syntax may have their planes apart.
bool keeps_layout(VX_TRANSFER_SYNTAX syntax);

// Whether a stream of JPEG XL begins there, bare or in a container.
bool is_jpegxl(const uint8_t* data, std::size_t size);
// FFD9 ends all streams but those of RLE and JPEG XL; pads may stand behind it.
bool has_end(const uint8_t* data, std::size_t size);
// Decodes a stream by decode(data, size), which wants the end right behind the data. Where it is missing it
// is put there; what looks like pads may belong to the data. kCodecBadEnd then, if that is all that is wrong.
template <typename Decode>
int decode_to_end(const uint8_t* data, std::size_t size, Decode decode) {
  if (has_end(data, size)) return decode(data, size);
  constexpr std::size_t kMostPads = 3;
  std::vector<uint8_t> mended(data, data + size);
  mended.resize(size + 2);
  int status = kCodecShort;
  for (std::size_t pads = 0; pads <= kMostPads && pads < size; ++pads) {
    if (pads != 0 && data[size - pads] != 0 && data[size - pads] != 0xFF) break;
    mended[size - pads] = 0xFF;
    mended[size - pads + 1] = 0xD9;
    status = decode(mended.data(), size - pads + 2);
    if (status == kCodecDone) return kCodecBadEnd;
  }
  return status;
}
// Planes of samples of `width` bytes into pixels.
void interleave(const uint8_t* planes, std::size_t pixels, std::size_t samples, std::size_t width,
                uint8_t* out);
// True if samples of 16 or 32 bits have nothing above Bits Stored but the sign.
bool high_bits_repeat(const ImageAttributes& image, const uint8_t* frame);
// Samples of 16 bits with what stands above Bits Stored taken off; as high_bits_repeat.
bool strip_high_bits(const ImageAttributes& image, const uint8_t* frame, std::vector<uint16_t>& samples);
// True if such samples have nothing above Bits Stored and none needs its sign there, and lie where they can
// be read as they are.
bool is_plain(const ImageAttributes& image, const uint8_t* frame);
// Gives samples of a signed image their sign back.
void extend_sign(const ImageAttributes& image, uint8_t* frame, uint32_t precision);
// True if samples of 8 bits keep to Bits Stored.
bool bytes_fit(const ImageAttributes& image, const uint8_t* frame);

}  // namespace vx
