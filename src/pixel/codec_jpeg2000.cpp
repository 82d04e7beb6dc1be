// JPEG 2000 through OpenJPEG, code streams in memory.
#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include <openjpeg.h>

#include "config/config.h"
#include "config/shared_library.h"
#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/state.h"
#include "pixel/codec.h"

namespace vx {
namespace {

struct Jpeg2000Library {
  decltype(&::opj_create_decompress) create_decompress;
  decltype(&::opj_set_default_decoder_parameters) default_decoder;
  decltype(&::opj_setup_decoder) setup_decoder;
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
};
Jpeg2000Library lib;

bool load_library() {
  static const bool loaded = [] {
    const auto at = [](auto& function) { return reinterpret_cast<void**>(&function); };
    const Symbol symbols[] = {
        {"opj_create_decompress", at(lib.create_decompress)},
        {"opj_set_default_decoder_parameters", at(lib.default_decoder)},
        {"opj_setup_decoder", at(lib.setup_decoder)},
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
    };
    return open_shared_library("libopenjp2.so.7", symbols, std::size(symbols));
  }();
  return loaded;
}

// --- The code stream (ISO/IEC 15444-1 annex A) ---

constexpr uint16_t kStart = 0xFF4F;
constexpr uint16_t kSize = 0xFF51;
constexpr uint16_t kTilePart = 0xFF90;
constexpr uint16_t kStreamEnd = 0xFFD9;
constexpr uint32_t kCodeStreamBox = 0x6A703263U;

// Some writers put a whole file around the code stream.
void unwrap(const uint8_t*& data, std::size_t& size) {
  static constexpr uint8_t kSignature[] = {0, 0, 0, 12, 'j', 'P', ' ', ' '};
  if (size < sizeof kSignature || std::memcmp(data, kSignature, sizeof kSignature) != 0) return;
  std::size_t at = 0;
  while (size - at >= 8) {
    const uint64_t length = load32(data + at, true);
    if (load32(data + at + 4, true) == kCodeStreamBox) {
      const std::size_t head = length == 1 ? 16 : 8;
      if (size - at < head) return;
      data += at + head;
      size -= at + head;
      return;
    }
    if (length < 8 || length > size - at) return;
    at += static_cast<std::size_t>(length);
  }
}

struct CodeStreamHead {
  CodecHead image;
  bool is_signed = false;
};

int read_size_segment(const uint8_t* data, std::size_t size, CodeStreamHead& head) {
  if (size < 4 || load16(data, true) != kStart || load16(data + 2, true) != kSize) return kCodecNotAStream;
  if (size < 4 + 38 + 3) return kCodecShort;
  const uint8_t* p = data + 4;
  const uint32_t components = load16(p + 36, true);
  if (components == 0 || components > kMaxSamples) return kCodecUnsupported;
  if (size - 4 < 38 + 3 * std::size_t{components}) return kCodecShort;
  const uint64_t x1 = load32(p + 4, true);
  const uint64_t y1 = load32(p + 8, true);
  const uint64_t x0 = load32(p + 12, true);
  const uint64_t y0 = load32(p + 16, true);
  const uint64_t tile_x = load32(p + 20, true);
  const uint64_t tile_y = load32(p + 24, true);
  if (x1 <= x0 || y1 <= y0 || tile_x == 0 || tile_y == 0) return kCodecBadMarker;
  if (x1 - x0 > UINT16_MAX || y1 - y0 > UINT16_MAX) return kCodecTooLarge;
  // The library keeps kilobytes for each tile.
  const uint64_t tiles = ((x1 + tile_x - 1) / tile_x) * ((y1 + tile_y - 1) / tile_y);
  if (tiles > 64 && tiles > (x1 - x0) * (y1 - y0) / 1024) return kCodecTooLarge;
  head.image = {static_cast<uint32_t>(y1 - y0), static_cast<uint32_t>(x1 - x0), components,
                (p[38] & 0x7FU) + 1U};
  head.is_signed = (p[38] & 0x80U) != 0;
  for (std::size_t i = 0; i < components; ++i) {
    const uint8_t* c = p + 38 + 3 * i;
    if (c[0] != p[38] || c[1] != 1 || c[2] != 1) return kCodecUnsupported;
  }
  return kCodecDone;
}

int query(const uint8_t* data, std::size_t size, CodecHead& head) {
  unwrap(data, size);
  CodeStreamHead found;
  const int status = read_size_segment(data, size, found);
  head = found.image;
  return status;
}

// From tile part to tile part by their lengths.
std::size_t find_end(const uint8_t* data, std::size_t size, std::size_t& from) {
  std::size_t at = from;
  while (size - at >= 2) {
    const uint16_t marker = load16(data + at, true);
    if (marker == kStreamEnd) return at + 2;
    if (marker == kStart) {
      at += 2;
    } else if (marker == kTilePart) {
      if (size - at < 12) break;
      const std::size_t length = load32(data + at + 6, true);
      if (length < 14) {  // unknown, or broken: only the end of the data tells
        at = size;
        break;
      }
      if (length > size - at) break;
      at += length;
    } else if ((marker >> 8) == 0xFF) {
      if (size - at < 4) break;
      const std::size_t length = load16(data + at + 2, true);
      if (length + 2 > size - at) break;
      at += 2 + length;
    } else {
      at = size;
      break;
    }
  }
  from = at;
  return 0;
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

template <typename Sample>
void copy_samples(const opj_image_t& decoded, std::size_t pixels, uint8_t* frame) {
  const std::size_t stride = decoded.numcomps;
  for (std::size_t s = 0; s < stride; ++s) {
    const OPJ_INT32* from = decoded.comps[s].data;
    uint8_t* to = frame + s * sizeof(Sample);
    for (std::size_t i = 0; i < pixels; ++i, to += stride * sizeof(Sample)) {
      const auto sample = static_cast<Sample>(from[i]);
      std::memcpy(to, &sample, sizeof sample);
    }
  }
}

int decode(const ImageAttributes& image, const CodeStreamHead& head, const uint8_t* data, std::size_t size,
           uint8_t* frame) {
  Memory memory{data, nullptr, size, 0};
  Handles handles;
  handles.codec = lib.create_decompress(OPJ_CODEC_J2K);
  handles.stream = open_stream(memory, true);
  if (handles.codec == nullptr || handles.stream == nullptr) return kCodecNoMemory;
  opj_dparameters_t parameters;
  lib.default_decoder(&parameters);
  if (lib.setup_decoder(handles.codec, &parameters) == OPJ_FALSE ||
      lib.read_header(handles.stream, handles.codec, &handles.image) == OPJ_FALSE) {
    return kCodecRefused;
  }
  if (lib.decode(handles.codec, handles.stream, handles.image) == OPJ_FALSE) return kCodecBadCode;
  if (!is_image(*handles.image, image)) return kCodecOtherImage;
  const std::size_t pixels = std::size_t{image.Rows} * image.Columns;
  if (image.BitsAllocated == 1) {
    pack_bits(*handles.image, pixels, frame);
    return kCodecDone;
  }
  if (image.BitsAllocated == 16) {
    copy_samples<uint16_t>(*handles.image, pixels, frame);
  } else {
    copy_samples<uint8_t>(*handles.image, pixels, frame);
  }
  // A stream that does not say so may hold the bits of signed samples all the same.
  const bool tolerant = library_initialized() && config_bool(VX_CFG_COMPRESSION_J2K_SIGNED_TOLERANCE);
  if (!head.is_signed && !tolerant) extend_sign(image, frame, head.image.precision);
  return kCodecDone;
}

int decompress(const ImageAttributes& image, const DecodeSettings&, const uint8_t* data, std::size_t size, uint8_t* frame,
               CodecResult&) try {
  unwrap(data, size);
  CodeStreamHead head;
  if (int status = read_size_segment(data, size, head); status != kCodecDone) return status;
  if (head.image.rows != image.Rows || head.image.columns != image.Columns ||
      head.image.components != image.SamplesPerPixel || head.image.precision > image.BitsAllocated) {
    return kCodecOtherImage;
  }
  const uint64_t samples = uint64_t{image.Rows} * image.Columns * image.SamplesPerPixel;
  if (samples > kMaxFrame / sizeof(OPJ_INT32)) return kCodecTooLarge;  // the library keeps them all so wide
  if (!load_library()) return kCodecNotLoaded;
  return decode_to_end(data, size, [&](const uint8_t* stream, std::size_t length) {
    return decode(image, head, stream, length, frame);
  });
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

// --- Compression ---

// Bits a pixel before, over bits a pixel after.
float rate_of(const CodecSettings& settings, uint64_t bits) {
  const uint64_t target = std::max<uint64_t>(settings.milli_bits, 1);
  return static_cast<float>(static_cast<double>(bits) * 1000 / static_cast<double>(target));
}

bool is_rgb(const ImageAttributes& image) {
  return image.SamplesPerPixel == 3 && image.photometric().starts_with("RGB");
}

// The frame as the codec wants it, a plane a sample; null without memory.
opj_image_t* make_image(const ImageAttributes& image, const uint8_t* frame, uint32_t precision) {
  opj_image_cmptparm_t layout[kMaxSamples]{};
  for (uint32_t i = 0; i < image.SamplesPerPixel; ++i) {
    layout[i].dx = layout[i].dy = 1;
    layout[i].w = image.Columns;
    layout[i].h = image.Rows;
    layout[i].prec = precision;
    layout[i].sgnd = image.PixelRepresentation;
  }
  const OPJ_COLOR_SPACE space = is_rgb(image)                ? OPJ_CLRSPC_SRGB
                                : image.SamplesPerPixel == 3 ? OPJ_CLRSPC_SYCC
                                                             : OPJ_CLRSPC_GRAY;
  opj_image_t* made = lib.image_create(image.SamplesPerPixel, layout, space);
  if (made == nullptr) return nullptr;
  made->x1 = image.Columns;
  made->y1 = image.Rows;
  const std::size_t pixels = std::size_t{image.Rows} * image.Columns;
  const std::size_t stride = image.SamplesPerPixel;
  for (std::size_t s = 0; s < stride; ++s) {
    OPJ_INT32* to = made->comps[s].data;
    for (std::size_t i = 0; i < pixels; ++i) {
      const std::size_t at = i * stride + s;
      if (image.BitsAllocated == 16) {
        int16_t value;  // with the sign that the object gives it
        std::memcpy(&value, frame + 2 * at, sizeof value);
        to[i] = image.PixelRepresentation != 0 ? value : static_cast<uint16_t>(value);
      } else {
        to[i] = image.PixelRepresentation != 0 ? static_cast<int8_t>(frame[at]) : frame[at];
      }
    }
  }
  return made;
}

int compress(const ImageAttributes& image, const CodecSettings& settings, const uint8_t* frame,
             std::vector<uint8_t>& out) try {
  if (!load_library()) return kCodecNotLoaded;
  uint32_t precision = image.BitsStored;
  std::vector<uint16_t> stripped;
  const bool fits =
      image.BitsAllocated == 16 ? strip_high_bits(image, frame, stripped) : bytes_fit(image, frame);
  if (!fits) {
    if (!settings.lossless) return kCodecHighBits;
    precision = image.BitsAllocated;
  }
  const bool rgb = is_rgb(image);
  Handles handles;
  handles.image = make_image(image, frame, precision);
  if (handles.image == nullptr) return kCodecNoMemory;
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
  out.clear();
  Memory memory{nullptr, &out, 0, 0};
  handles.codec = lib.create_compress(OPJ_CODEC_J2K);
  handles.stream = open_stream(memory, false);
  if (handles.codec == nullptr || handles.stream == nullptr) return kCodecNoMemory;
  if (lib.setup_encoder(handles.codec, &parameters, handles.image) == OPJ_FALSE ||
      lib.start_compress(handles.codec, handles.image, handles.stream) == OPJ_FALSE ||
      lib.encode(handles.codec, handles.stream) == OPJ_FALSE ||
      lib.end_compress(handles.codec, handles.stream) == OPJ_FALSE) {
    return kCodecRefused;
  }
  return kCodecDone;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

}  // namespace

const Codec kJpeg2000Codec{"OP_J2KP", "OP_J2KE", load_library, query, compress, decompress, find_end};

}  // namespace vx
