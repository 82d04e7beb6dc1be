// JPEG XL through libjxl.
//
// Samples go in as numbers of Bits Stored bits. The stream knows no signs: those of a signed image stand in
// it as the object has them, in two's complement of Bits Stored bits, as in JPEG Lossless and JPEG-LS.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

#include <jxl/decode.h>
#include <jxl/encode.h>
#include <jxl/thread_parallel_runner.h>

#include "config/shared_library.h"
#include "frame/byte_order.h"
#include "frame/limits.h"
#include "pixel/codec.h"
#include "pixel/jpeg.h"
#include "pixel/jpegxl.h"

namespace vx {
namespace {

struct JpegXlLibrary {
  decltype(&::JxlDecoderCreate) decoder_create;
  decltype(&::JxlDecoderDestroy) decoder_destroy;
  decltype(&::JxlDecoderSubscribeEvents) subscribe;
  decltype(&::JxlDecoderSetCoalescing) set_coalescing;
  decltype(&::JxlDecoderSetParallelRunner) set_decoder_runner;
  decltype(&::JxlDecoderSetInput) set_input;
  decltype(&::JxlDecoderSkipFrames) skip_frames;
  decltype(&::JxlDecoderReleaseInput) release_input;
  decltype(&::JxlDecoderProcessInput) process_input;
  decltype(&::JxlDecoderGetBasicInfo) get_basic_info;
  decltype(&::JxlDecoderGetFrameHeader) get_frame_header;
  decltype(&::JxlDecoderImageOutBufferSize) image_size;
  decltype(&::JxlDecoderSetImageOutBuffer) set_image;
  decltype(&::JxlDecoderSetJPEGBuffer) set_jpeg;
  decltype(&::JxlDecoderReleaseJPEGBuffer) release_jpeg;
  decltype(&::JxlEncoderCreate) encoder_create;
  decltype(&::JxlEncoderDestroy) encoder_destroy;
  decltype(&::JxlEncoderSetParallelRunner) set_encoder_runner;
  decltype(&::JxlEncoderFrameSettingsCreate) settings_create;
  decltype(&::JxlEncoderFrameSettingsSetOption) set_option;
  decltype(&::JxlEncoderInitBasicInfo) init_basic_info;
  decltype(&::JxlEncoderSetBasicInfo) set_basic_info;
  decltype(&::JxlColorEncodingSetToSRGB) to_srgb;
  decltype(&::JxlEncoderSetColorEncoding) set_color;
  decltype(&::JxlEncoderSetFrameLossless) set_lossless;
  decltype(&::JxlEncoderSetFrameDistance) set_distance;
  decltype(&::JxlEncoderAddImageFrame) add_image;
  decltype(&::JxlEncoderStoreJPEGMetadata) store_jpeg;
  decltype(&::JxlEncoderAddJPEGFrame) add_jpeg;
  decltype(&::JxlEncoderCloseInput) close_encoder;
  decltype(&::JxlEncoderProcessOutput) process_output;
};
JpegXlLibrary lib;

struct ThreadLibrary {
  decltype(&::JxlThreadParallelRunner) run;
  decltype(&::JxlThreadParallelRunnerCreate) create;
  decltype(&::JxlThreadParallelRunnerDestroy) destroy;
};
ThreadLibrary threads_lib;

template <typename Function>
void** at(Function& function) {
  return reinterpret_cast<void**>(&function);
}

bool load_library() {
  static const bool loaded = [] {
    static constexpr const char* kFiles[] = {"libjxl.so.0.7", "libjxl.so.0.8", "libjxl.so.0.9",
                                             "libjxl.so.0.10", "libjxl.so.0.11"};
    const Symbol symbols[] = {
        {"JxlDecoderCreate", at(lib.decoder_create)},
        {"JxlDecoderDestroy", at(lib.decoder_destroy)},
        {"JxlDecoderSubscribeEvents", at(lib.subscribe)},
        {"JxlDecoderSetCoalescing", at(lib.set_coalescing)},
        {"JxlDecoderSetParallelRunner", at(lib.set_decoder_runner)},
        {"JxlDecoderSetInput", at(lib.set_input)},
        {"JxlDecoderSkipFrames", at(lib.skip_frames)},
        {"JxlDecoderReleaseInput", at(lib.release_input)},
        {"JxlDecoderProcessInput", at(lib.process_input)},
        {"JxlDecoderGetBasicInfo", at(lib.get_basic_info)},
        {"JxlDecoderGetFrameHeader", at(lib.get_frame_header)},
        {"JxlDecoderImageOutBufferSize", at(lib.image_size)},
        {"JxlDecoderSetImageOutBuffer", at(lib.set_image)},
        {"JxlDecoderSetJPEGBuffer", at(lib.set_jpeg)},
        {"JxlDecoderReleaseJPEGBuffer", at(lib.release_jpeg)},
        {"JxlEncoderCreate", at(lib.encoder_create)},
        {"JxlEncoderDestroy", at(lib.encoder_destroy)},
        {"JxlEncoderSetParallelRunner", at(lib.set_encoder_runner)},
        {"JxlEncoderFrameSettingsCreate", at(lib.settings_create)},
        {"JxlEncoderFrameSettingsSetOption", at(lib.set_option)},
        {"JxlEncoderInitBasicInfo", at(lib.init_basic_info)},
        {"JxlEncoderSetBasicInfo", at(lib.set_basic_info)},
        {"JxlColorEncodingSetToSRGB", at(lib.to_srgb)},
        {"JxlEncoderSetColorEncoding", at(lib.set_color)},
        {"JxlEncoderSetFrameLossless", at(lib.set_lossless)},
        {"JxlEncoderSetFrameDistance", at(lib.set_distance)},
        {"JxlEncoderAddImageFrame", at(lib.add_image)},
        {"JxlEncoderStoreJPEGMetadata", at(lib.store_jpeg)},
        {"JxlEncoderAddJPEGFrame", at(lib.add_jpeg)},
        {"JxlEncoderCloseInput", at(lib.close_encoder)},
        {"JxlEncoderProcessOutput", at(lib.process_output)},
    };
    return open_shared_library(kFiles, symbols, std::size(symbols));
  }();
  return loaded;
}

bool load_threads() {
  static const bool loaded = [] {
    static constexpr const char* kFiles[] = {"libjxl_threads.so.0.7", "libjxl_threads.so.0.8",
                                             "libjxl_threads.so.0.9", "libjxl_threads.so.0.10",
                                             "libjxl_threads.so.0.11"};
    const Symbol symbols[] = {
        {"JxlThreadParallelRunner", at(threads_lib.run)},
        {"JxlThreadParallelRunnerCreate", at(threads_lib.create)},
        {"JxlThreadParallelRunnerDestroy", at(threads_lib.destroy)},
    };
    return open_shared_library(kFiles, symbols, std::size(symbols));
  }();
  return loaded;
}

// Threads for one frame; without them, or their library, the calling thread does it all.
struct Runner {
  void* handle = nullptr;
  explicit Runner(unsigned threads) {
    if (threads > 1 && load_threads()) handle = threads_lib.create(nullptr, threads);
  }
  ~Runner() {
    if (handle != nullptr) threads_lib.destroy(handle);
  }
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;
};

// The library keeps samples as wide as this. Little data for a large image is not to fill gigabytes either.
bool announces_too_much(uint64_t samples, std::size_t size) {
  return samples > kMaxFrame / sizeof(float) || (samples > kFreeFrame && samples / kMaxFrameRatio > size);
}

// --- Reading ---

struct Decoder {
  JxlDecoder* handle = lib.decoder_create(nullptr);
  ~Decoder() { lib.decoder_destroy(handle); }
  Decoder() = default;
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  bool open(const uint8_t* data, std::size_t size, int events) const {
    // Layers are not laid over each other: an image of several is seen to be one.
    return handle != nullptr && lib.subscribe(handle, events) == JXL_DEC_SUCCESS &&
           lib.set_coalescing(handle, JXL_FALSE) == JXL_DEC_SUCCESS &&
           lib.set_input(handle, data, size) == JXL_DEC_SUCCESS;
  }
};

int status_of(JxlDecoderStatus status) {
  return status == JXL_DEC_NEED_MORE_INPUT ? kCodecShort : kCodecBadCode;
}

// What an image may be, by its head.
int judge(const JxlBasicInfo& info, CodecHead& head) {
  if (info.xsize > UINT16_MAX || info.ysize > UINT16_MAX) return kCodecTooLarge;
  head = {info.ysize, info.xsize, info.num_color_channels, info.bits_per_sample};
  const bool plain = info.have_animation == 0 && info.have_preview == 0 && info.num_extra_channels == 0 &&
                     info.exponent_bits_per_sample == 0 && info.bits_per_sample <= 16;
  return plain ? kCodecDone : kCodecUnsupported;
}

// Up to the head, in a decoder that is open.
int read_head(const Decoder& decoder, CodecHead& head) {
  if (const JxlDecoderStatus status = lib.process_input(decoder.handle); status != JXL_DEC_BASIC_INFO)
    return status_of(status);
  JxlBasicInfo info;
  if (lib.get_basic_info(decoder.handle, &info) != JXL_DEC_SUCCESS) return kCodecRefused;
  return judge(info, head);
}

int query(const uint8_t* data, std::size_t size, CodecHead& head) {
  if (!is_jpegxl(data, size)) return kCodecNotAStream;
  if (!load_library()) return kCodecNotLoaded;
  const Decoder decoder;
  if (!decoder.open(data, size, JXL_DEC_BASIC_INFO)) return kCodecNoMemory;
  return read_head(decoder, head);
}

constexpr int kPixelEvents = JXL_DEC_BASIC_INFO | JXL_DEC_FRAME | JXL_DEC_FULL_IMAGE;

// Frames tell how long they are: they are passed over. True with the end of the last, or with `size` where
// that lies behind the data.
bool pass_over(const uint8_t* data, std::size_t size, std::size_t& end) {
  const Decoder decoder;
  CodecHead head;
  if (!decoder.open(data, size, kPixelEvents)) return false;
  lib.skip_frames(decoder.handle, SIZE_MAX / 2);
  if (read_head(decoder, head) != kCodecDone || lib.process_input(decoder.handle) != JXL_DEC_SUCCESS)
    return false;
  end = size - lib.release_input(decoder.handle);
  return true;
}

// `from` is where the end lies at the earliest: what comes in many pieces is not read with each of them.
std::size_t find_end(const uint8_t* data, std::size_t size, std::size_t& from) {
  if (size < from || !is_jpegxl(data, size) || !load_library()) return 0;
  std::size_t end = 0;
  if (pass_over(data, size, end)) {
    if (end < size) return end;
    // What is not there yet does not matter to the way over it.
    std::vector<uint8_t> longer(2 * size + 4096);
    std::memcpy(longer.data(), data, size);
    if (pass_over(longer.data(), longer.size(), end)) {
      from = end;
      return end == size ? size : 0;
    }
  }
  from = size + size / 16;
  return 0;
}

// The library spreads samples over all bits of their type.
template <typename Sample>
void scale(const Sample* from, std::size_t count, uint32_t from_bits, uint32_t to_bits, Sample* to) {
  const uint32_t have = (1U << from_bits) - 1;
  const uint32_t want = (1U << to_bits) - 1;
  for (std::size_t i = 0; i < count; ++i) to[i] = static_cast<Sample>((from[i] * want + have / 2) / have);
}

// The samples of an open decoder whose head is read, into the frame.
int read_pixels(const Decoder& decoder, const ImageAttributes& image, uint8_t* frame) {
  const JxlPixelFormat format{image.SamplesPerPixel,
                              image.BitsAllocated == 16 ? JXL_TYPE_UINT16 : JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN,
                              0};
  for (;;) {
    const JxlDecoderStatus status = lib.process_input(decoder.handle);
    if (status == JXL_DEC_FULL_IMAGE) return kCodecDone;
    if (status == JXL_DEC_FRAME) {
      JxlFrameHeader header;
      if (lib.get_frame_header(decoder.handle, &header) != JXL_DEC_SUCCESS) return kCodecRefused;
      if (header.is_last == 0 || header.layer_info.have_crop != 0) return kCodecUnsupported;
    } else if (status == JXL_DEC_NEED_IMAGE_OUT_BUFFER) {
      std::size_t bytes = 0;
      if (lib.image_size(decoder.handle, &format, &bytes) != JXL_DEC_SUCCESS) return kCodecRefused;
      if (bytes != image.FrameSize) return kCodecOtherImage;
      if (lib.set_image(decoder.handle, &format, frame, bytes) != JXL_DEC_SUCCESS) return kCodecRefused;
    } else {
      return status_of(status);
    }
  }
}

int decode(const ImageAttributes& image, const DecodeSettings& settings, const uint8_t* data,
           std::size_t size, uint8_t* frame) {
  if (!is_jpegxl(data, size)) return kCodecNotAStream;
  const Runner runner(settings.threads);
  const Decoder decoder;
  if (!decoder.open(data, size, kPixelEvents)) return kCodecNoMemory;
  if (runner.handle != nullptr) lib.set_decoder_runner(decoder.handle, threads_lib.run, runner.handle);
  CodecHead head;
  if (int status = read_head(decoder, head); status != kCodecDone) return status;
  if (head.rows != image.Rows || head.columns != image.Columns || head.components != image.SamplesPerPixel ||
      (image.BitsAllocated != 8 && image.BitsAllocated != 16) || head.precision > image.BitsAllocated ||
      is_packed_422(image.photometric())) {
    return kCodecOtherImage;
  }
  if (announces_too_much(uint64_t{head.rows} * head.columns * head.components, size)) return kCodecTooLarge;
  if (int status = read_pixels(decoder, image, frame); status != kCodecDone) return status;
  if (head.precision < image.BitsAllocated) {
    const std::size_t count = image.FrameSize / image.sample_bytes();
    if (image.BitsAllocated == 16) {
      auto* samples = reinterpret_cast<uint16_t*>(frame);
      scale(samples, count, 16, head.precision, samples);
    } else {
      scale(frame, count, 8, head.precision, frame);
    }
  }
  extend_sign(image, frame, head.precision);
  return kCodecDone;
}

// A stream that was JPEG gives what that gives: decoders of JPEG agree more closely with each other.
int decompress(const ImageAttributes& image, const DecodeSettings& settings, const uint8_t* data,
               std::size_t size, uint8_t* frame, CodecResult& result) try {
  if (!load_library()) return kCodecNotLoaded;
  if (image.TransferSyntax == JPEG_XL_RECOMPRESSION) {
    CodecHead head;
    if (int status = query(data, size, head); status != kCodecDone) return status;
    if (head.rows != image.Rows || head.columns != image.Columns) return kCodecOtherImage;
    std::vector<uint8_t> stream;
    const int status = jpegxl::to_jpeg(data, size, stream);
    if (status == kCodecDone)
      return kJpegCodec.decompress(image, settings, stream.data(), stream.size(), frame, result);
    if (status != kCodecNoJpeg) return status;
  }
  return decode(image, settings, data, size, frame);
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

// --- Writing ---

struct Encoder {
  JxlEncoder* handle = lib.encoder_create(nullptr);
  JxlEncoderFrameSettings* settings = handle != nullptr ? lib.settings_create(handle, nullptr) : nullptr;
  ~Encoder() { lib.encoder_destroy(handle); }
  Encoder() = default;
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  // All that comes of what was added.
  int finish(std::size_t expected, std::vector<uint8_t>& out) const {
    lib.close_encoder(handle);
    out.resize(expected + 4096);
    std::size_t done = 0;
    for (;;) {
      uint8_t* next = out.data() + done;
      std::size_t left = out.size() - done;
      const JxlEncoderStatus status = lib.process_output(handle, &next, &left);
      done = static_cast<std::size_t>(next - out.data());
      if (status == JXL_ENC_SUCCESS) break;
      if (status != JXL_ENC_NEED_MORE_OUTPUT) return kCodecRefused;
      if (out.size() > kMaxFrame) return kCodecTooLarge;
      out.resize(out.size() * 2);
    }
    out.resize(done);
    return kCodecDone;
  }
};

// The code stream alone: the library puts one of more than 12 bits into a container, which would only repeat
// what the object says.
void unwrap(std::vector<uint8_t>& out) {
  constexpr uint32_t kWhole = 0x6A786C63;  // jxlc
  constexpr uint32_t kPart = 0x6A786C70;   // jxlp, behind a number
  if (out.size() < 2 || out[0] == 0xFF) return;
  std::size_t kept = 0;
  for (std::size_t from = 0; out.size() - from >= 8;) {
    uint64_t length = load32(out.data() + from, true);
    const uint32_t type = load32(out.data() + from + 4, true);
    std::size_t head = 8;
    if (length == 1 && out.size() - from >= 16) {
      length = uint64_t{load32(out.data() + from + 8, true)} << 32 | load32(out.data() + from + 12, true);
      head = 16;
    }
    const std::size_t left = out.size() - from;
    const std::size_t box = length == 0 ? left : static_cast<std::size_t>(std::min<uint64_t>(length, left));
    if (type == kPart) head += 4;
    if (box < head) break;
    if (type == kWhole || type == kPart) {
      std::memmove(out.data() + kept, out.data() + from + head, box - head);
      kept += box - head;
    }
    from += box;
  }
  out.resize(kept);
}

// The library's own measure of difference, by the mapping that its programs use.
float distance_of(int quality) {
  const auto q = static_cast<float>(quality);
  const float distance = q >= 30 ? 0.1F + (100 - q) * 0.09F : 6.4F + std::pow(2.5F, (30 - q) / 5) / 6.25F;
  return std::min(distance, 15.0F);
}

// Samples as the library wants them, which are the frame's own where they fill their bytes.
struct Samples {
  const void* data;
  uint32_t precision;
  std::vector<uint8_t> narrow;
  std::vector<uint16_t> wide;
};
int prepare(const ImageAttributes& image, bool lossless, const uint8_t* frame, Samples& samples) {
  const bool is_wide = image.BitsAllocated == 16;
  samples = {frame, image.BitsStored, {}, {}};
  const bool fits = is_wide ? strip_high_bits(image, frame, samples.wide) : bytes_fit(image, frame);
  if (!fits && !lossless) return kCodecHighBits;
  if (!fits) samples.precision = image.BitsAllocated;
  if (samples.precision == image.BitsAllocated) return kCodecDone;
  if (is_wide) {
    scale(samples.wide.data(), samples.wide.size(), samples.precision, 16, samples.wide.data());
    samples.data = samples.wide.data();
  } else {
    samples.narrow.resize(image.FrameSize);
    scale(frame, image.FrameSize, samples.precision, 8, samples.narrow.data());
    samples.data = samples.narrow.data();
  }
  return kCodecDone;
}

// Above this the library takes ten times the time for some per cent of the size.
constexpr int64_t kLosslessEffort = 3;

int compress(const ImageAttributes& image, const CodecSettings& settings, const uint8_t* frame,
             std::vector<uint8_t>& out) try {
  if (image.TransferSyntax == JPEG_XL_RECOMPRESSION ||
      (image.SamplesPerPixel != 1 && image.SamplesPerPixel != 3) || image.BitsAllocated > 16)
    return kCodecUnsupported;
  if (!load_library()) return kCodecNotLoaded;
  Samples samples;
  if (int status = prepare(image, settings.lossless, frame, samples); status != kCodecDone) return status;
  const Runner runner(settings.threads);
  const Encoder encoder;
  if (encoder.settings == nullptr) return kCodecNoMemory;
  if (runner.handle != nullptr) lib.set_encoder_runner(encoder.handle, threads_lib.run, runner.handle);
  const bool grey = image.SamplesPerPixel == 1;
  JxlBasicInfo info;
  lib.init_basic_info(&info);
  info.xsize = image.Columns;
  info.ysize = image.Rows;
  info.bits_per_sample = samples.precision;
  info.num_color_channels = image.SamplesPerPixel;
  // Colours that are no RGB are not what the library's own colour space is made of.
  info.uses_original_profile = settings.lossless || (!grey && !image.photometric().starts_with("RGB"));
  JxlColorEncoding color;
  lib.to_srgb(&color, grey ? JXL_TRUE : JXL_FALSE);
  const JxlPixelFormat format{image.SamplesPerPixel,
                              image.BitsAllocated == 16 ? JXL_TYPE_UINT16 : JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN,
                              0};
  JxlEncoderStatus status = lib.set_basic_info(encoder.handle, &info);
  if (status == JXL_ENC_SUCCESS) status = lib.set_color(encoder.handle, &color);
  if (status == JXL_ENC_SUCCESS && settings.lossless) {
    status = lib.set_lossless(encoder.settings, JXL_TRUE);
    if (status == JXL_ENC_SUCCESS)
      status = lib.set_option(encoder.settings, JXL_ENC_FRAME_SETTING_EFFORT, kLosslessEffort);
  } else if (status == JXL_ENC_SUCCESS) {
    status = lib.set_distance(encoder.settings, distance_of(settings.quality));
  }
  if (status == JXL_ENC_SUCCESS)
    status = lib.add_image(encoder.settings, &format, samples.data, image.FrameSize);
  if (status != JXL_ENC_SUCCESS) return kCodecRefused;
  if (int fault = encoder.finish(image.FrameSize / 2, out); fault != kCodecDone) return fault;
  unwrap(out);
  return kCodecDone;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

}  // namespace

bool is_jpegxl(const uint8_t* data, std::size_t size) {
  static constexpr uint8_t kContainer[] = {0, 0, 0, 12, 'J', 'X', 'L', ' '};
  const bool bare = size >= 2 && data[0] == 0xFF && data[1] == 0x0A;
  return bare || (size >= sizeof kContainer && std::memcmp(data, kContainer, sizeof kContainer) == 0);
}

namespace jpegxl {

int from_jpeg(const uint8_t* data, std::size_t size, unsigned threads, std::vector<uint8_t>& out) try {
  jpeg::Shape shape;
  if (jpeg::Fault fault = jpeg::query(data, size, shape); fault != jpeg::kNone) return fault;
  if (shape.process < 0xC0 || shape.process > 0xC2 || shape.precision != 8 ||
      (shape.components != 1 && shape.components != 3) ||
      (shape.process == 0xC2 && jpeg::has_too_many_scans(data, size))) {
    return kCodecUnsupported;
  }
  if (announces_too_much(uint64_t{shape.rows} * shape.columns * shape.components, size))
    return kCodecTooLarge;
  if (!load_library()) return kCodecNotLoaded;
  {
    const Runner runner(threads);
    const Encoder encoder;
    if (encoder.settings == nullptr) return kCodecNoMemory;
    if (runner.handle != nullptr) lib.set_encoder_runner(encoder.handle, threads_lib.run, runner.handle);
    if (lib.store_jpeg(encoder.handle, JXL_TRUE) != JXL_ENC_SUCCESS ||
        lib.add_jpeg(encoder.settings, data, size) != JXL_ENC_SUCCESS) {
      return kCodecBadCode;
    }
    if (int status = encoder.finish(size, out); status != kCodecDone) return status;
  }
  std::vector<uint8_t> back;
  if (int status = to_jpeg(out.data(), out.size(), back); status != kCodecDone) return status;
  return back.size() == size && std::memcmp(back.data(), data, size) == 0 ? kCodecDone : kCodecRefused;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

int to_jpeg(const uint8_t* data, std::size_t size, std::vector<uint8_t>& out) try {
  if (!load_library()) return kCodecNotLoaded;
  if (!is_jpegxl(data, size)) return kCodecNotAStream;
  const Decoder decoder;
  if (!decoder.open(data, size, JXL_DEC_BASIC_INFO | JXL_DEC_JPEG_RECONSTRUCTION | JXL_DEC_FULL_IMAGE))
    return kCodecNoMemory;
  const std::size_t most = kFreeFrame + 64 * size;  // what comes back is not much larger
  std::size_t done = 0;
  bool has_jpeg = false;
  out.resize(2 * size + 4096);
  for (;;) {
    const JxlDecoderStatus status = lib.process_input(decoder.handle);
    if (status == JXL_DEC_FULL_IMAGE || status == JXL_DEC_SUCCESS) break;
    if (status == JXL_DEC_BASIC_INFO) {
      JxlBasicInfo info;
      CodecHead head;
      if (lib.get_basic_info(decoder.handle, &info) != JXL_DEC_SUCCESS) return kCodecRefused;
      if (int fault = judge(info, head); fault != kCodecDone) return fault;
      if (announces_too_much(uint64_t{head.rows} * head.columns * head.components, size))
        return kCodecTooLarge;
      continue;
    }
    if (status == JXL_DEC_NEED_IMAGE_OUT_BUFFER) return kCodecNoJpeg;
    if (status == JXL_DEC_JPEG_NEED_MORE_OUTPUT) {
      done = out.size() - lib.release_jpeg(decoder.handle);
      if (out.size() >= most) return kCodecTooLarge;
      out.resize(out.size() * 2);
    } else if (status == JXL_DEC_JPEG_RECONSTRUCTION) {
      has_jpeg = true;
    } else {
      return status_of(status);
    }
    if (lib.set_jpeg(decoder.handle, out.data() + done, out.size() - done) != JXL_DEC_SUCCESS)
      return kCodecRefused;
  }
  if (!has_jpeg) return kCodecNoJpeg;
  out.resize(out.size() - lib.release_jpeg(decoder.handle));
  return kCodecDone;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

}  // namespace jpegxl

const Codec kJpegXlCodec{"JPEG XL", "JPEG XL", load_library, query, compress, decompress, find_end};

}  // namespace vx
