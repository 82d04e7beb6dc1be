// High-Throughput JPEG 2000: written by the module beside the library, but read as all of JPEG 2000 is: the
// reader of the module's library ends the process at some damaged streams, and lets others pass.
#include <algorithm>
#include <bit>
#include <cmath>
#include <new>

#include "config/shared_library.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "pixel/codec_jpeg2000.h"
#include "pixel/htj2k_module.h"

namespace vx {
namespace {

VexalHtj2kEncode encode = nullptr;

bool load_module() {
  static const bool loaded = [] {
    const Symbol symbols[] = {{"vexal_htj2k_encode", reinterpret_cast<void**>(&encode)}};
    return open_shared_library("libvexalhtj2k.so", symbols, std::size(symbols));
  }();
  return loaded;
}

// Both are opened where they are needed: a machine without the module still reads.
bool load() {
  return true;
}

// --- The table of tile parts (ISO/IEC 15444-1 section A.7.1), which the module does not write ---

constexpr uint8_t kTileLengths[] = {0xFF, 0x55, 0, 9, 0, 0x50, 0, 0, 0, 0, 0};  // of one part of tile 0
constexpr std::size_t kLengthAt = 7;                                            // of the part, in the table
constexpr std::size_t kPartLengthAt = 6;                                        // in the head of the part

struct Output {
  std::vector<uint8_t>& stream;
  std::size_t tile = 0;  // where it begins
};

int32_t append(void* user, const void* data, std::size_t size) try {
  auto& out = *static_cast<Output*>(user);
  const auto* from = static_cast<const uint8_t*>(data);
  if (data != nullptr) {
    out.stream.insert(out.stream.end(), from, from + size);
  } else {
    out.stream.insert(out.stream.end(), std::begin(kTileLengths), std::end(kTileLengths));
    out.tile = out.stream.size();
  }
  return 1;
} catch (const std::bad_alloc&) {
  return 0;
}

// --- Compression ---

// As many halvings as bring the image to 64 x 64 or less, and five at least, but none of a single sample,
// which other readers get wrong. With loss none of two rows either: what the module makes of them is not
// what went in.
uint32_t decompositions_of(const ImageAttributes& image, bool lossless) {
  const auto halvings = [](uint32_t side) { return static_cast<uint32_t>(std::bit_width(side)); };
  const uint32_t last = std::max(image.Rows, image.Columns) - 1;
  uint32_t count = std::min(std::max(5U, halvings(last / 64)), halvings(last));
  if (!lossless && image.Rows > 1) count = std::min(count, halvings(image.Rows - 1) - 1);
  return count;
}

// From one grey level at 100 to the whole range at 0, by equal factors; at half the range and above the
// module's library ends the process.
float step_of(int quality, uint32_t precision) {
  const float exponent = static_cast<float>(precision) * static_cast<float>(quality) / -100.0F;
  return std::min(std::exp2(exponent), 0.25F);
}

int compress(const ImageAttributes& image, const CodecSettings& settings, const uint8_t* frame,
             std::vector<uint8_t>& out) try {
  if (!load_module()) return kCodecNotLoaded;
  const uint32_t precision = jpeg2000::coded_precision(image, settings.lossless, frame);
  if (precision == 0) return kCodecHighBits;
  const VexalHtj2kImage described{image.Rows,
                                  image.Columns,
                                  image.SamplesPerPixel,
                                  image.sample_bytes(),
                                  precision,
                                  static_cast<int32_t>(image.PixelRepresentation),
                                  jpeg2000::is_rgb(image) ? 1 : 0,
                                  decompositions_of(image, settings.lossless),
                                  settings.lossless ? 0 : step_of(settings.quality, precision)};
  out.clear();
  Output output{out};
  char problem[256] = "";
  if (encode(&described, frame, append, &output, problem, sizeof problem) != 0) {
    VX_LOG_WARN("VXI_encodeHtj2k", "%s", problem);
    return kCodecRefused;
  }
  if (output.tile == 0 || out.size() < output.tile + 12) return kCodecRefused;
  std::copy_n(&out[output.tile + kPartLengthAt], 4, &out[output.tile - std::size(kTileLengths) + kLengthAt]);
  return kCodecDone;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

}  // namespace

const Codec kHtj2kCodec{"HTJ2K",           "HTJ2K", load, jpeg2000::query, compress, jpeg2000::decompress,
                        jpeg2000::find_end};

}  // namespace vx
