// JPEG 2000 through OpenJPEG, code streams in memory.
#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include <openjpeg.h>
#include <sys/mman.h>

#include "config/config.h"
#include "config/shared_library.h"
#include "frame/limits.h"
#include "frame/state.h"
#include "pixel/codec_jpeg2000.h"
#include "pixel/jpeg2000_stream.h"
#include "pixel/thread_share.h"

namespace vx {
namespace {

struct Jpeg2000Library {
  decltype(&::opj_create_decompress) create_decompress;
  decltype(&::opj_set_default_decoder_parameters) default_decoder;
  decltype(&::opj_setup_decoder) setup_decoder;
  decltype(&::opj_codec_set_threads) set_threads;
  decltype(&::opj_read_header) read_header;
  decltype(&::opj_decode) decode;
  decltype(&::opj_destroy_codec) destroy_codec;
  decltype(&::opj_image_create) image_create;
  decltype(&::opj_image_destroy) image_destroy;
  decltype(&::opj_stream_create) stream_create;
  decltype(&::opj_stream_destroy) stream_destroy;
  decltype(&::opj_stream_set_read_function) set_read;
  decltype(&::opj_stream_set_write_function) set_write;
  decltype(&::opj_stream_set_skip_function) set_skip;
  decltype(&::opj_stream_set_seek_function) set_seek;
  decltype(&::opj_stream_set_user_data) set_user_data;
  decltype(&::opj_stream_set_user_data_length) set_user_data_length;
  decltype(&::opj_create_compress) create_compress;
  decltype(&::opj_set_default_encoder_parameters) default_encoder;
  decltype(&::opj_setup_encoder) setup_encoder;
  decltype(&::opj_start_compress) start_compress;
  decltype(&::opj_encode) encode;
  decltype(&::opj_end_compress) end_compress;
  decltype(&::opj_image_tile_create) image_tile_create;
  decltype(&::opj_write_tile) write_tile;
  decltype(&::opj_set_decode_area) set_decode_area;
  decltype(&::opj_read_tile_header) read_tile_header;
  decltype(&::opj_decode_tile_data) decode_tile_data;
};
Jpeg2000Library lib;

bool load_library() {
  static const bool loaded = [] {
    const auto at = [](auto& function) { return reinterpret_cast<void**>(&function); };
    const Symbol symbols[] = {
        {"opj_create_decompress", at(lib.create_decompress)},
        {"opj_set_default_decoder_parameters", at(lib.default_decoder)},
        {"opj_setup_decoder", at(lib.setup_decoder)},
        {"opj_codec_set_threads", at(lib.set_threads)},
        {"opj_read_header", at(lib.read_header)},
        {"opj_decode", at(lib.decode)},
        {"opj_destroy_codec", at(lib.destroy_codec)},
        {"opj_image_create", at(lib.image_create)},
        {"opj_image_destroy", at(lib.image_destroy)},
        {"opj_stream_create", at(lib.stream_create)},
        {"opj_stream_destroy", at(lib.stream_destroy)},
        {"opj_stream_set_read_function", at(lib.set_read)},
        {"opj_stream_set_write_function", at(lib.set_write)},
        {"opj_stream_set_skip_function", at(lib.set_skip)},
        {"opj_stream_set_seek_function", at(lib.set_seek)},
        {"opj_stream_set_user_data", at(lib.set_user_data)},
        {"opj_stream_set_user_data_length", at(lib.set_user_data_length)},
        {"opj_create_compress", at(lib.create_compress)},
        {"opj_set_default_encoder_parameters", at(lib.default_encoder)},
        {"opj_setup_encoder", at(lib.setup_encoder)},
        {"opj_start_compress", at(lib.start_compress)},
        {"opj_encode", at(lib.encode)},
        {"opj_end_compress", at(lib.end_compress)},
        {"opj_image_tile_create", at(lib.image_tile_create)},
        {"opj_write_tile", at(lib.write_tile)},
        {"opj_set_decode_area", at(lib.set_decode_area)},
        {"opj_read_tile_header", at(lib.read_tile_header)},
        {"opj_decode_tile_data", at(lib.decode_tile_data)},
    };
    return open_shared_library("libopenjp2.so.7", symbols, std::size(symbols));
  }();
  return loaded;
}

// --- Streams in memory ---

struct Memory {
  const uint8_t* data = nullptr;        // reading
  std::vector<uint8_t>* out = nullptr;  // writing
  std::size_t size = 0;
  std::size_t at = 0;
};
OPJ_SIZE_T read_memory(void* buffer, OPJ_SIZE_T count, void* user) {
  auto& memory = *static_cast<Memory*>(user);
  const std::size_t n = std::min(count, memory.size - memory.at);
  if (n == 0) return static_cast<OPJ_SIZE_T>(-1);
  std::memcpy(buffer, memory.data + memory.at, n);
  memory.at += n;
  return n;
}
OPJ_SIZE_T write_memory(void* buffer, OPJ_SIZE_T count, void* user) {
  auto& memory = *static_cast<Memory*>(user);
  try {
    if (memory.at + count > memory.out->size()) memory.out->resize(memory.at + count);
  } catch (...) {
    return static_cast<OPJ_SIZE_T>(-1);
  }
  std::memcpy(memory.out->data() + memory.at, buffer, count);
  memory.at += count;
  return count;
}
OPJ_OFF_T skip_memory(OPJ_OFF_T count, void* user) {
  auto& memory = *static_cast<Memory*>(user);
  if (count < 0) return -1;
  const std::size_t limit = memory.out != nullptr ? memory.out->size() : memory.size;
  const std::size_t n = std::min(static_cast<std::size_t>(count), limit - std::min(limit, memory.at));
  memory.at += n;
  return static_cast<OPJ_OFF_T>(n);
}
OPJ_BOOL seek_memory(OPJ_OFF_T position, void* user) {
  auto& memory = *static_cast<Memory*>(user);
  const std::size_t limit = memory.out != nullptr ? memory.out->size() : memory.size;
  if (position < 0 || static_cast<std::size_t>(position) > limit) return OPJ_FALSE;
  memory.at = static_cast<std::size_t>(position);
  return OPJ_TRUE;
}

struct Handles {
  opj_codec_t* codec = nullptr;
  opj_stream_t* stream = nullptr;
  opj_image_t* image = nullptr;
  ~Handles() {
    if (stream != nullptr) lib.stream_destroy(stream);
    if (codec != nullptr) lib.destroy_codec(codec);
    if (image != nullptr) lib.image_destroy(image);
  }
};

opj_stream_t* open_stream(Memory& memory, bool input) {
  opj_stream_t* stream = lib.stream_create(std::size_t{64} * 1024, input ? OPJ_TRUE : OPJ_FALSE);
  if (stream == nullptr) return nullptr;
  if (input) {
    lib.set_read(stream, read_memory);
  } else {
    lib.set_write(stream, write_memory);
  }
  lib.set_skip(stream, skip_memory);
  lib.set_seek(stream, seek_memory);
  lib.set_user_data(stream, &memory, nullptr);
  lib.set_user_data_length(stream, input ? memory.size : 0);
  return stream;
}

// The library's own threads; if the system gives none, the caller's does it all.
void share_out(opj_codec_t* codec, unsigned threads) {
  if (threads < 2) return;
  const SignalsBlocked blocked;
  lib.set_threads(codec, static_cast<int>(threads));
}

// --- Large frames ---

// The library keeps 32 bits of a sample, of an image that it compresses twice. A frame of more samples goes
// through it by tiles.
constexpr uint64_t kLargeFrame = uint64_t{1} << 25;
constexpr uint32_t kTileSide = 2048;

bool is_large(const ImageAttributes& image) {
  return uint64_t{image.Rows} * image.Columns * image.SamplesPerPixel > kLargeFrame &&
         (image.BitsAllocated == 8 || image.BitsAllocated == 16);
}

// A part of the frame; in the library's tiles the samples of a component lie together.
struct TileArea {
  uint32_t x, y, width, height;
};

// Rows of a tile that one thread moves.
struct Band {
  uint32_t first, last;
};

// Calls move(band) for all rows, on several threads.
template <typename Move>
void by_bands(unsigned threads, uint32_t rows, Move move) {
  constexpr uint32_t kBand = 256;
  run_parts(threads, (rows + kBand - 1) / kBand, [&](std::size_t part) {
    const auto first = static_cast<uint32_t>(part) * kBand;
    move(Band{first, std::min(first + kBand, rows)});
  });
}

template <typename Sample, typename Coded>
void cut_tile(const ImageAttributes& image, const uint8_t* frame, const TileArea& area, const Band& band,
              uint8_t* tile) {
  const std::size_t samples = image.SamplesPerPixel;
  for (std::size_t s = 0; s < samples; ++s) {
    for (std::size_t y = band.first; y < band.last; ++y) {
      const uint8_t* from = frame + (((area.y + y) * image.Columns + area.x) * samples + s) * sizeof(Sample);
      uint8_t* to = tile + (s * area.height + y) * area.width * sizeof(Coded);
      for (uint32_t x = 0; x < area.width; ++x, from += samples * sizeof(Sample), to += sizeof(Coded)) {
        Sample sample;
        std::memcpy(&sample, from, sizeof sample);
        const auto coded = static_cast<Coded>(sample);
        std::memcpy(to, &coded, sizeof coded);
      }
    }
  }
}

template <typename Coded, typename Sample>
void put_tile(const ImageAttributes& image, const uint8_t* tile, const TileArea& area, const Band& band,
              uint8_t* frame) {
  const std::size_t samples = image.SamplesPerPixel;
  for (std::size_t s = 0; s < samples; ++s) {
    for (std::size_t y = band.first; y < band.last; ++y) {
      const uint8_t* from = tile + (s * area.height + y) * area.width * sizeof(Coded);
      uint8_t* to = frame + (((area.y + y) * image.Columns + area.x) * samples + s) * sizeof(Sample);
      for (uint32_t x = 0; x < area.width; ++x, to += samples * sizeof(Sample), from += sizeof(Coded)) {
        Coded coded;
        std::memcpy(&coded, from, sizeof coded);
        const auto sample = static_cast<Sample>(coded);
        std::memcpy(to, &sample, sizeof sample);
      }
    }
  }
}

int write_tiles(const ImageAttributes& image, uint32_t precision, const uint8_t* frame, unsigned threads,
                opj_codec_t* codec, opj_stream_t* stream) {
  const auto cut = image.BitsAllocated == 8 ? cut_tile<uint8_t, uint8_t>
                   : precision <= 8         ? cut_tile<uint16_t, uint8_t>
                                            : cut_tile<uint16_t, uint16_t>;
  std::vector<uint8_t> tile;
  uint32_t number = 0;
  for (uint32_t y = 0; y < image.Rows; y += kTileSide) {
    for (uint32_t x = 0; x < image.Columns; x += kTileSide) {
      const TileArea area{x, y, std::min(kTileSide, image.Columns - x), std::min(kTileSide, image.Rows - y)};
      tile.resize(std::size_t{area.width} * area.height * image.SamplesPerPixel * (precision <= 8 ? 1 : 2));
      by_bands(threads, area.height, [&](const Band& band) { cut(image, frame, area, band, tile.data()); });
      if (lib.write_tile(codec, number++, tile.data(), static_cast<OPJ_UINT32>(tile.size()), stream) ==
          OPJ_FALSE)
        return kCodecRefused;
    }
  }
  return kCodecDone;
}

// The header is read. Each tile must come, as nothing else fills the frame.
int read_tiles(const ImageAttributes& image, const jpeg2000::StreamHead& head, unsigned threads,
               opj_codec_t* codec, opj_stream_t* stream, const opj_image_t& described, uint8_t* frame) {
  const bool narrow = head.image.precision <= 8;
  const auto put = image.BitsAllocated == 8 ? put_tile<uint8_t, uint8_t>
                   : !narrow                ? put_tile<uint16_t, uint16_t>
                   : head.is_signed         ? put_tile<int8_t, uint16_t>
                                            : put_tile<uint8_t, uint16_t>;
  std::vector<uint8_t> tile;
  std::vector<bool> seen;
  uint64_t pixels = 0;
  for (;;) {
    OPJ_UINT32 number = 0;
    OPJ_UINT32 size = 0;
    OPJ_UINT32 components = 0;
    OPJ_INT32 x0 = 0;
    OPJ_INT32 y0 = 0;
    OPJ_INT32 x1 = 0;
    OPJ_INT32 y1 = 0;
    OPJ_BOOL more = OPJ_FALSE;
    if (lib.read_tile_header(codec, stream, &number, &size, &x0, &y0, &x1, &y1, &components, &more) ==
        OPJ_FALSE)
      return kCodecBadCode;
    if (more == OPJ_FALSE) break;
    const int64_t left = int64_t{x0} - described.x0;
    const int64_t top = int64_t{y0} - described.y0;
    const int64_t width = int64_t{x1} - x0;
    const int64_t height = int64_t{y1} - y0;
    if (left < 0 || top < 0 || width <= 0 || height <= 0 || left + width > image.Columns ||
        top + height > image.Rows || components != image.SamplesPerPixel ||
        size != static_cast<uint64_t>(width * height) * components * (narrow ? 1 : 2)) {
      return kCodecOtherImage;
    }
    if (number >= seen.size()) seen.resize(std::size_t{number} + 1);
    if (seen[number]) return kCodecBadCode;
    seen[number] = true;
    tile.resize(size);
    if (lib.decode_tile_data(codec, number, tile.data(), size, stream) == OPJ_FALSE) return kCodecBadCode;
    const TileArea area{static_cast<uint32_t>(left), static_cast<uint32_t>(top), static_cast<uint32_t>(width),
                        static_cast<uint32_t>(height)};
    by_bands(threads, area.height, [&](const Band& band) { put(image, tile.data(), area, band, frame); });
    pixels += static_cast<uint64_t>(width * height);
  }
  return pixels == uint64_t{image.Rows} * image.Columns ? kCodecDone : kCodecShort;
}

// --- Decompression ---

bool is_image(const opj_image_t& decoded, const ImageAttributes& image) {
  if (decoded.numcomps != image.SamplesPerPixel) return false;
  for (uint32_t i = 0; i < decoded.numcomps; ++i) {
    const opj_image_comp_t& component = decoded.comps[i];
    if (component.w != image.Columns || component.h != image.Rows || component.data == nullptr) return false;
  }
  return true;
}

// Eight pixels a byte, the first in the lowest bit.
void pack_bits(const opj_image_t& decoded, std::size_t pixels, uint8_t* frame) {
  const std::size_t stride = decoded.numcomps;
  std::memset(frame, 0, (pixels * stride + 7) / 8);
  for (std::size_t i = 0; i < pixels * stride; ++i) {
    const OPJ_INT32 value = decoded.comps[i % stride].data[i / stride];
    frame[i / 8] = static_cast<uint8_t>(frame[i / 8] | ((value & 1) << (i % 8)));
  }
}

template <typename Sample, std::size_t kStride>
void copy_plane(const OPJ_INT32* from, std::size_t pixels, uint8_t* to) {
  for (std::size_t i = 0; i < pixels; ++i, to += kStride * sizeof(Sample)) {
    const auto sample = static_cast<Sample>(from[i]);
    std::memcpy(to, &sample, sizeof sample);
  }
}

// Pixels from `first` on.
template <typename Sample>
void copy_samples(const opj_image_t& decoded, std::size_t first, std::size_t pixels, uint8_t* frame) {
  const std::size_t stride = decoded.numcomps;
  for (std::size_t s = 0; s < stride; ++s) {
    const OPJ_INT32* from = decoded.comps[s].data + first;
    uint8_t* to = frame + (first * stride + s) * sizeof(Sample);
    if (stride == 1) {
      copy_plane<Sample, 1>(from, pixels, to);
      continue;
    }
    if (stride == 3) {
      copy_plane<Sample, 3>(from, pixels, to);
      continue;
    }
    for (std::size_t i = 0; i < pixels; ++i, to += stride * sizeof(Sample)) {
      const auto sample = static_cast<Sample>(from[i]);
      std::memcpy(to, &sample, sizeof sample);
    }
  }
}

// Pages of samples that have been taken go back at once: those of the frame then come in their place, not on
// top of them.
void give_back(OPJ_INT32* samples, std::size_t count) {
  constexpr std::uintptr_t kPage = 4096;
  const auto begin = (reinterpret_cast<std::uintptr_t>(samples) + kPage - 1) / kPage * kPage;
  const auto end = reinterpret_cast<std::uintptr_t>(samples + count) / kPage * kPage;
  if (begin < end) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
}

// The frame's pages are new, and the system makes them where they are first written: on each thread some.
void take_samples(const ImageAttributes& image, unsigned threads, const opj_image_t& decoded,
                  uint8_t* frame) {
  const auto copy = image.BitsAllocated == 32   ? copy_samples<uint32_t>
                    : image.BitsAllocated == 16 ? copy_samples<uint16_t>
                                                : copy_samples<uint8_t>;
  // Smaller ones the allocator keeps for the next frame.
  const bool large = uint64_t{image.Rows} * image.Columns > kLargeFrame / 2;
  by_bands(threads, image.Rows, [&](const Band& band) {
    const std::size_t columns = image.Columns;
    const std::size_t first = band.first * columns;
    const std::size_t pixels = (band.last - band.first) * columns;
    copy(decoded, first, pixels, frame);
    for (uint32_t s = 0; large && s < decoded.numcomps; ++s) give_back(decoded.comps[s].data + first, pixels);
  });
}

// A stream that does not say so may hold the bits of signed samples all the same.
void give_sign(const ImageAttributes& image, const jpeg2000::StreamHead& head, uint8_t* frame) {
  const bool tolerant = library_initialized() && config_bool(VX_CFG_COMPRESSION_J2K_SIGNED_TOLERANCE);
  if (!head.is_signed && !tolerant) extend_sign(image, frame, head.image.precision);
}

int decode(const ImageAttributes& image, const jpeg2000::StreamHead& head, unsigned threads,
           const uint8_t* data, std::size_t size, uint8_t* frame) {
  Memory memory{data, nullptr, size, 0};
  Handles handles;
  handles.codec = lib.create_decompress(OPJ_CODEC_J2K);
  handles.stream = open_stream(memory, true);
  if (handles.codec == nullptr || handles.stream == nullptr) return kCodecNoMemory;
  share_out(handles.codec, threads);
  opj_dparameters_t parameters;
  lib.default_decoder(&parameters);
  if (lib.setup_decoder(handles.codec, &parameters) == OPJ_FALSE ||
      lib.read_header(handles.stream, handles.codec, &handles.image) == OPJ_FALSE) {
    return kCodecRefused;
  }
  if (is_large(image) && head.tiles > 1) {
    if (lib.set_decode_area(handles.codec, handles.image, 0, 0, 0, 0) == OPJ_FALSE) return kCodecRefused;
    const int status = read_tiles(image, head, threads, handles.codec, handles.stream, *handles.image, frame);
    if (status == kCodecDone) give_sign(image, head, frame);
    return status;
  }
  if (lib.decode(handles.codec, handles.stream, handles.image) == OPJ_FALSE) return kCodecBadCode;
  if (!is_image(*handles.image, image)) return kCodecOtherImage;
  if (image.BitsAllocated == 1) {
    pack_bits(*handles.image, std::size_t{image.Rows} * image.Columns, frame);
    return kCodecDone;
  }
  take_samples(image, threads, *handles.image, frame);
  give_sign(image, head, frame);
  return kCodecDone;
}

}  // namespace

int jpeg2000::decompress(const ImageAttributes& image, const DecodeSettings& settings, const uint8_t* data,
                         std::size_t size, uint8_t* frame, CodecResult&) try {
  unwrap(data, size);
  StreamHead head;
  if (int status = read_size_segment(data, size, head); status != kCodecDone) return status;
  const int state = inspect(data, size);
  if (state != kCodecDone && state != kCodecDamaged) return state;
  const bool collections =
      image.TransferSyntax == JPEG_2000_MC_LOSSLESS_ONLY || image.TransferSyntax == JPEG_2000_MC;
  if (collections && head.image.components > image.SamplesPerPixel) return kCodecCollection;
  if (head.image.rows != image.Rows || head.image.columns != image.Columns ||
      head.image.components != image.SamplesPerPixel || head.image.precision > image.BitsAllocated) {
    return kCodecOtherImage;
  }
  if (head.image.precision > kMostJpeg2000Bits) return kCodecUnsupported;
  const uint64_t samples = uint64_t{image.Rows} * image.Columns * image.SamplesPerPixel;
  if (samples > kMaxFrame / sizeof(OPJ_INT32)) return kCodecTooLarge;  // the library keeps them all so wide
  if (!load_library()) return kCodecNotLoaded;
  const int status = decode_to_end(data, size, [&](const uint8_t* stream, std::size_t length) {
    return decode(image, head, settings.threads, stream, length, frame);
  });
  return status == kCodecDone ? state : status;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

// --- Compression ---

bool jpeg2000::is_rgb(const ImageAttributes& image) {
  return image.SamplesPerPixel == 3 && image.photometric().starts_with("RGB");
}

uint32_t jpeg2000::coded_precision(const ImageAttributes& image, bool lossless, const uint8_t* frame) {
  const bool fits = image.BitsAllocated == 8 ? bytes_fit(image, frame) : high_bits_repeat(image, frame);
  if (fits) return image.BitsStored;
  return lossless && image.BitsAllocated <= 16 ? image.BitsAllocated : 0;
}

namespace {

// Bits a pixel before, over bits a pixel after.
float rate_of(const CodecSettings& settings, uint64_t bits) {
  const uint64_t target = std::max<uint64_t>(settings.milli_bits, 1);
  return static_cast<float>(static_cast<double>(bits) * 1000 / static_cast<double>(target));
}

template <typename Sample>
void fill_plane(const uint8_t* from, std::size_t pixels, std::size_t stride, OPJ_INT32* to) {
  for (std::size_t i = 0; i < pixels; ++i, from += stride * sizeof(Sample)) {
    Sample sample;
    std::memcpy(&sample, from, sizeof sample);
    to[i] = static_cast<OPJ_INT32>(sample);
  }
}
using PlaneFill = void (*)(const uint8_t*, std::size_t, std::size_t, OPJ_INT32*);
PlaneFill plane_fill(const ImageAttributes& image) {
  const bool is_signed = image.PixelRepresentation != 0;
  if (image.BitsAllocated == 8) return is_signed ? fill_plane<int8_t> : fill_plane<uint8_t>;
  return is_signed ? fill_plane<int16_t> : fill_plane<uint16_t>;
}

// Room for the frame as the codec wants it, a plane a sample; null without memory. Of a large one only what
// it is.
opj_image_t* make_image(const ImageAttributes& image, uint32_t precision) {
  opj_image_cmptparm_t layout[kMaxSamples]{};
  for (uint32_t i = 0; i < image.SamplesPerPixel; ++i) {
    layout[i].dx = layout[i].dy = 1;
    layout[i].w = image.Columns;
    layout[i].h = image.Rows;
    layout[i].prec = precision;
    layout[i].sgnd = image.PixelRepresentation;
  }
  const OPJ_COLOR_SPACE space = jpeg2000::is_rgb(image)      ? OPJ_CLRSPC_SRGB
                                : image.SamplesPerPixel == 3 ? OPJ_CLRSPC_SYCC
                                                             : OPJ_CLRSPC_GRAY;
  opj_image_t* made =
      (is_large(image) ? lib.image_tile_create : lib.image_create)(image.SamplesPerPixel, layout, space);
  if (made == nullptr) return nullptr;
  made->x1 = image.Columns;
  made->y1 = image.Rows;
  return made;
}

void fill_image(const ImageAttributes& image, const uint8_t* frame, unsigned threads, opj_image_t& made) {
  const PlaneFill fill = plane_fill(image);
  by_bands(threads, image.Rows, [&](const Band& band) {
    const std::size_t first = std::size_t{band.first} * image.Columns;
    const std::size_t pixels = std::size_t{band.last - band.first} * image.Columns;
    for (std::size_t s = 0; s < image.SamplesPerPixel; ++s)
      fill(frame + (first * image.SamplesPerPixel + s) * image.sample_bytes(), pixels, image.SamplesPerPixel,
           made.comps[s].data + first);
  });
}

int compress(const ImageAttributes& image, const CodecSettings& settings, const uint8_t* frame,
             std::vector<uint8_t>& out) try {
  if (!load_library()) return kCodecNotLoaded;
  const uint32_t precision = jpeg2000::coded_precision(image, settings.lossless, frame);
  if (precision == 0) return kCodecHighBits;
  const bool rgb = jpeg2000::is_rgb(image);
  Handles handles;
  handles.image = make_image(image, precision);
  if (handles.image == nullptr) return kCodecNoMemory;
  const bool large = is_large(image);
  if (!large) fill_image(image, frame, settings.threads, *handles.image);
  opj_cparameters_t parameters;
  lib.default_encoder(&parameters);
  parameters.tcp_numlayers = 1;
  parameters.cp_disto_alloc = 1;
  parameters.tcp_rates[0] =
      settings.lossless ? 0 : rate_of(settings, uint64_t{precision} * image.SamplesPerPixel);
  parameters.irreversible = settings.lossless ? 0 : 1;
  parameters.tcp_mct = rgb ? 1 : 0;
  // Each resolution halves the image.
  const auto halvings = static_cast<int>(std::bit_width(std::min(image.Rows, image.Columns))) - 1;
  parameters.numresolution = std::min(6, halvings + 1);
  if (large) {
    parameters.tile_size_on = OPJ_TRUE;
    parameters.cp_tdx = parameters.cp_tdy = static_cast<int>(kTileSide);
  }
  out.clear();
  Memory memory{nullptr, &out, 0, 0};
  handles.codec = lib.create_compress(OPJ_CODEC_J2K);
  handles.stream = open_stream(memory, false);
  if (handles.codec == nullptr || handles.stream == nullptr) return kCodecNoMemory;
  share_out(handles.codec, settings.threads);
  if (lib.setup_encoder(handles.codec, &parameters, handles.image) == OPJ_FALSE ||
      lib.start_compress(handles.codec, handles.image, handles.stream) == OPJ_FALSE) {
    return kCodecRefused;
  }
  if (large) {
    const int status = write_tiles(image, precision, frame, settings.threads, handles.codec, handles.stream);
    if (status != kCodecDone) return status;
  } else if (lib.encode(handles.codec, handles.stream) == OPJ_FALSE) {
    return kCodecRefused;
  }
  return lib.end_compress(handles.codec, handles.stream) == OPJ_FALSE ? kCodecRefused : kCodecDone;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

}  // namespace

const Codec kJpeg2000Codec{
    "OP_J2KP", "OP_J2KE", load_library, jpeg2000::query, compress, jpeg2000::decompress, jpeg2000::find_end};

}  // namespace vx
