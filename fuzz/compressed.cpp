// Streams of every codec, hostile, for an image of the sizes that the first bytes tell. An abort of a library
// behind a codec counts as a fault of ours.
#include <cstdint>
#include <iterator>
#include <vector>

#include "library.h"
#include "pixel/codec.h"
#include "pixel/jpegxl.h"
#include "vexalkit.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  if (size < 4) return 0;
  static constexpr VX_TRANSFER_SYNTAX kSyntaxes[] = {JPEG_BASELINE,
                                                     JPEG_LOSSLESS_HIER_14,
                                                     JPEG_LS_LOSSLESS,
                                                     JPEG_2000,
                                                     HTJ2K_LOSSLESS,
                                                     HTJ2K_LOSSLESS_RPCL,
                                                     HTJ2K,
                                                     JPEG_2000_MC,
                                                     JPEG_XL_LOSSLESS,
                                                     JPEG_XL_RECOMPRESSION,
                                                     JPEG_XL};
  vx::ImageAttributes image;
  // Two bits below those of the image and two above.
  image.TransferSyntax = kSyntaxes[(data[0] % 4 + (data[0] >> 6) * 4) % std::size(kSyntaxes)];
  if (data[1] >= 0xC0) image.TransferSyntax = DEFLATED_IMAGE_FRAMES;
  image.SamplesPerPixel = (data[0] & 4) != 0 ? 3 : 1;
  image.BitsAllocated = (data[0] & 8) != 0 ? 16 : 8;
  image.BitsStored = image.BitsAllocated == 16 ? 12 : 8;
  image.PixelRepresentation = (data[0] & 16) != 0 ? 1 : 0;
  image.Rows = 1 + data[1] % 64;
  image.Columns = 1 + data[2] % 64;
  const bool packed = (data[0] & 32) != 0 && image.SamplesPerPixel == 3 && image.BitsAllocated == 8;
  const char* photometric = packed ? "YBR_FULL_422" : image.SamplesPerPixel == 3 ? "RGB" : "MONOCHROME2";
  for (std::size_t i = 0; photometric[i] != '\0'; ++i) image.PhotometricInterpretation[i] = photometric[i];
  image.FrameSize = image.Rows * image.Columns * (packed ? 2 : image.SamplesPerPixel) * image.sample_bytes();
  const vx::Codec& codec = *vx::codec_for(image.TransferSyntax);
  vx::CodecHead head;
  codec.query(data + 3, size - 3, head);
  std::size_t from = 0;
  codec.find_end(data + 3, size - 3, from);
  std::vector<uint8_t> frame(image.FrameSize);
  vx::CodecResult result;
  codec.decompress(image, {}, data + 3, size - 3, frame.data(), result);
  std::vector<uint8_t> stream;
  if (image.TransferSyntax == JPEG_XL_RECOMPRESSION && vx::kJpegCodec.query(data + 3, size - 3, head) == 0 &&
      head.rows <= 256 && head.columns <= 256) {
    vx::jpegxl::from_jpeg(data + 3, size - 3, 1, stream);
  }
  // The bytes as samples, which lossless codecs give back.
  for (std::size_t i = 0; i < frame.size(); ++i) frame[i] = data[3 + i % (size - 3)];
  std::vector<uint8_t> back(frame.size());
  vx::CodecSettings settings;
  if (packed || codec.compress(image, settings, frame.data(), stream) != vx::kCodecDone) return 0;
  if (image.TransferSyntax == JPEG_BASELINE) return 0;
  if (codec.decompress(image, {}, stream.data(), stream.size(), back.data(), result) != vx::kCodecDone ||
      back != frame) {
    __builtin_trap();
  }
  return 0;
}
