// JPEG-LS through CharLS.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include <charls/charls.h>

#include "config/shared_library.h"
#include "pixel/codec.h"
#include "pixel/jpeg.h"

namespace vx {
namespace {

struct JpegLsLibrary {
  decltype(&::charls_jpegls_decoder_create) decoder_create;
  decltype(&::charls_jpegls_decoder_destroy) decoder_destroy;
  decltype(&::charls_jpegls_decoder_set_source_buffer) set_source;
  decltype(&::charls_jpegls_decoder_read_header) read_header;
  decltype(&::charls_jpegls_decoder_get_frame_info) get_frame_info;
  decltype(&::charls_jpegls_decoder_get_interleave_mode) get_interleave_mode;
  decltype(&::charls_jpegls_decoder_get_destination_size) get_destination_size;
  decltype(&::charls_jpegls_decoder_decode_to_buffer) decode;
  decltype(&::charls_jpegls_encoder_create) encoder_create;
  decltype(&::charls_jpegls_encoder_destroy) encoder_destroy;
  decltype(&::charls_jpegls_encoder_set_frame_info) set_frame_info;
  decltype(&::charls_jpegls_encoder_set_near_lossless) set_near;
  decltype(&::charls_jpegls_encoder_set_interleave_mode) set_interleave_mode;
  decltype(&::charls_jpegls_encoder_get_estimated_destination_size) estimate;
  decltype(&::charls_jpegls_encoder_set_destination_buffer) set_destination;
  decltype(&::charls_jpegls_encoder_encode_from_buffer) encode;
  decltype(&::charls_jpegls_encoder_get_bytes_written) bytes_written;
};
JpegLsLibrary lib;

bool load_library() {
  static const bool loaded = [] {
    const auto at = [](auto& function) { return reinterpret_cast<void**>(&function); };
    const Symbol symbols[] = {
        {"charls_jpegls_decoder_create", at(lib.decoder_create)},
        {"charls_jpegls_decoder_destroy", at(lib.decoder_destroy)},
        {"charls_jpegls_decoder_set_source_buffer", at(lib.set_source)},
        {"charls_jpegls_decoder_read_header", at(lib.read_header)},
        {"charls_jpegls_decoder_get_frame_info", at(lib.get_frame_info)},
        {"charls_jpegls_decoder_get_interleave_mode", at(lib.get_interleave_mode)},
        {"charls_jpegls_decoder_get_destination_size", at(lib.get_destination_size)},
        {"charls_jpegls_decoder_decode_to_buffer", at(lib.decode)},
        {"charls_jpegls_encoder_create", at(lib.encoder_create)},
        {"charls_jpegls_encoder_destroy", at(lib.encoder_destroy)},
        {"charls_jpegls_encoder_set_frame_info", at(lib.set_frame_info)},
        {"charls_jpegls_encoder_set_near_lossless", at(lib.set_near)},
        {"charls_jpegls_encoder_set_interleave_mode", at(lib.set_interleave_mode)},
        {"charls_jpegls_encoder_get_estimated_destination_size", at(lib.estimate)},
        {"charls_jpegls_encoder_set_destination_buffer", at(lib.set_destination)},
        {"charls_jpegls_encoder_encode_from_buffer", at(lib.encode)},
        {"charls_jpegls_encoder_get_bytes_written", at(lib.bytes_written)},
    };
    return open_shared_library("libcharls.so.2", symbols, std::size(symbols));
  }();
  return loaded;
}

constexpr auto kFine = charls_jpegls_errc::success;

struct Decoder {
  charls_jpegls_decoder* handle = lib.decoder_create();
  ~Decoder() { lib.decoder_destroy(handle); }
};
struct Encoder {
  charls_jpegls_encoder* handle = lib.encoder_create();
  ~Encoder() { lib.encoder_destroy(handle); }
};

int status_of(charls_jpegls_errc code) {
  switch (code) {
    case charls_jpegls_errc::success:
      return kCodecDone;
    case charls_jpegls_errc::not_enough_memory:
      return kCodecNoMemory;
    case charls_jpegls_errc::source_buffer_too_small:
      return kCodecShort;
    case charls_jpegls_errc::invalid_encoded_data:
      return kCodecBadCode;
    case charls_jpegls_errc::encoding_not_supported:
    case charls_jpegls_errc::parameter_value_not_supported:
      return kCodecUnsupported;
    default:
      return kCodecRefused;
  }
}

void widen(const uint8_t* from, std::size_t samples, uint8_t* to) {
  for (std::size_t i = 0; i < samples; ++i) {
    to[2 * i] = from[i];
    to[2 * i + 1] = 0;
  }
}

int read_shape(const uint8_t* data, std::size_t size, CodecHead& head) {
  jpeg::Shape shape;
  if (jpeg::Fault fault = jpeg::query(data, size, shape); fault != jpeg::kNone) return fault;
  if (shape.process != 0xF7) return kCodecUnsupported;
  head = {shape.rows, shape.columns, shape.components, shape.precision};
  return kCodecDone;
}

// The whole of a stream, as the library takes it.
int decode(const ImageAttributes& image, const CodecHead& head, const uint8_t* data, std::size_t size,
           uint8_t* frame) {
  const Decoder decoder;
  if (decoder.handle == nullptr) return kCodecNoMemory;
  charls_jpegls_errc code = lib.set_source(decoder.handle, data, size);
  if (code == kFine) code = lib.read_header(decoder.handle);
  charls_frame_info info{};
  charls_interleave_mode mode{};
  std::size_t wanted = 0;
  if (code == kFine) code = lib.get_frame_info(decoder.handle, &info);
  if (code == kFine) code = lib.get_interleave_mode(decoder.handle, &mode);
  if (code == kFine) code = lib.get_destination_size(decoder.handle, 0, &wanted);
  if (code != kFine) return status_of(code);
  const std::size_t width = head.precision > 8 ? 2 : 1;
  const std::size_t pixels = std::size_t{image.Rows} * image.Columns;
  const std::size_t samples = image.SamplesPerPixel;
  if (info.width != image.Columns || info.height != image.Rows || wanted != pixels * samples * width) {
    return kCodecOtherImage;
  }
  const bool by_plane = samples > 1 && static_cast<int>(mode) == 0;
  const bool widens = width == 1 && image.BitsAllocated == 16;
  std::vector<uint8_t> other(by_plane || widens ? wanted : 0);
  uint8_t* target = other.empty() ? frame : other.data();
  code = lib.decode(decoder.handle, target, wanted, 0);
  if (code != kFine) return status_of(code);
  if (by_plane) {
    interleave(other.data(), pixels, samples, width, frame);
    if (widens) std::copy_n(frame, wanted, other.data());
  }
  if (widens) widen(other.data(), pixels * samples, frame);
  extend_sign(image, frame, head.precision);
  return kCodecDone;
}

int decompress(const ImageAttributes& image, const DecodeSettings&, const uint8_t* data, std::size_t size,
               uint8_t* frame, CodecResult&) try {
  CodecHead head;
  if (int status = read_shape(data, size, head); status != kCodecDone) return status;
  if (head.rows != image.Rows || head.columns != image.Columns || head.components != image.SamplesPerPixel ||
      image.BitsAllocated < 8 || head.precision < 2 || head.precision > image.BitsAllocated) {
    return kCodecOtherImage;
  }
  if (!load_library()) return kCodecNotLoaded;
  // The library searches long for an end that is not there.
  return decode_to_end(data, size, [&](const uint8_t* stream, std::size_t length) {
    return decode(image, head, stream, length, frame);
  });
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

// The stream knows no signs: at either end of their range an error would make the largest sample the
// smallest.
template <typename Sample>
bool any_at_ends(const void* source, std::size_t count, uint32_t precision, int near) {
  const auto* samples = static_cast<const Sample*>(source);
  const int middle = 1 << (precision - 1);
  return std::any_of(samples, samples + count,
                     [&](Sample v) { return v >= middle - near && v < middle + near; });
}
bool turns_signs(const ImageAttributes& image, const void* source, uint32_t precision, int near) {
  if (image.PixelRepresentation == 0 || near == 0) return false;
  const std::size_t count = image.FrameSize / image.sample_bytes();
  return precision > 8 ? any_at_ends<uint16_t>(source, count, precision, near)
                       : any_at_ends<uint8_t>(source, count, precision, near);
}

int compress(const ImageAttributes& image, const CodecSettings& settings, const uint8_t* frame,
             std::vector<uint8_t>& out) try {
  if (!load_library()) return kCodecNotLoaded;
  uint32_t precision = image.BitsStored;
  std::vector<uint16_t> samples;
  const void* source = frame;
  bool fits = true;
  if (image.BitsAllocated == 16 && !(image.BitsStored > 8 && is_plain(image, frame))) {
    fits = strip_high_bits(image, frame, samples);
    if (!fits) std::memcpy(samples.data(), frame, samples.size() * 2);
    source = samples.data();
  } else if (image.BitsAllocated != 16) {
    fits = bytes_fit(image, frame);
  }
  if (!fits) {
    if (settings.near != 0) return kCodecHighBits;
    precision = image.BitsAllocated;
  }
  // The library takes samples of one byte where the precision allows it.
  std::vector<uint8_t> narrow;
  if (image.BitsAllocated == 16 && precision <= 8) {
    narrow.assign(samples.begin(), samples.end());
    source = narrow.data();
  }
  if (precision < 2) return kCodecUnsupported;
  const Encoder encoder;
  if (encoder.handle == nullptr) return kCodecNoMemory;
  const charls_frame_info info{image.Columns, image.Rows, static_cast<int32_t>(precision),
                               static_cast<int32_t>(image.SamplesPerPixel)};
  // Beyond half the largest sample the library does not work.
  int near = std::min(settings.near, ((1 << precision) - 1) / 2);
  if (turns_signs(image, source, precision, near)) near = 0;
  const auto mode = static_cast<charls_interleave_mode>(image.SamplesPerPixel > 1 ? 1 : 0);
  std::size_t room = 0;
  std::size_t written = 0;
  charls_jpegls_errc code = lib.set_frame_info(encoder.handle, &info);
  if (code == kFine) code = lib.set_near(encoder.handle, near);
  if (code == kFine) code = lib.set_interleave_mode(encoder.handle, mode);
  if (code == kFine) code = lib.estimate(encoder.handle, &room);
  if (code != kFine) return status_of(code);
  room += room / 2 + 4096;
  const std::unique_ptr<uint8_t[]> stream(new uint8_t[room]);  // little of it is used, and so takes memory
  code = lib.set_destination(encoder.handle, stream.get(), room);
  const std::size_t bytes =
      std::size_t{image.Rows} * image.Columns * image.SamplesPerPixel * (precision > 8 ? 2 : 1);
  if (code == kFine) code = lib.encode(encoder.handle, source, bytes, 0);
  if (code == kFine) code = lib.bytes_written(encoder.handle, &written);
  if (code != kFine) return status_of(code);
  out.assign(stream.get(), stream.get() + written);
  return kCodecDone;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

}  // namespace

const Codec kJpegLsCodec{"OP_JLSP", "OP_JLSE",  load_library,  read_shape,
                         compress,  decompress, jpeg::find_end};

}  // namespace vx
