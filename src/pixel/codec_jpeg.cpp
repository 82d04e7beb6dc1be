// JPEG: 8 bits through libjpeg, the other processes through the codec beside this file.
#include <algorithm>
#include <atomic>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "config/shared_library.h"
#include "frame/byte_order.h"
#include "pixel/codec.h"
#include "pixel/jpeg.h"
#include "pixel/jpeg_strips.h"
#include "pixel/thread_share.h"

extern "C" {
#include <jerror.h>
#include <jpeglib.h>
}

namespace vx {
namespace {

struct JpegLibrary {
  decltype(&::jpeg_std_error) std_error;
  decltype(&::jpeg_CreateDecompress) create_decompress;
  decltype(&::jpeg_destroy_decompress) destroy_decompress;
  decltype(&::jpeg_read_header) read_header;
  decltype(&::jpeg_start_decompress) start_decompress;
  decltype(&::jpeg_read_scanlines) read_scanlines;
  decltype(&::jpeg_resync_to_restart) resync_to_restart;
  decltype(&::jpeg_CreateCompress) create_compress;
  decltype(&::jpeg_destroy_compress) destroy_compress;
  decltype(&::jpeg_set_defaults) set_defaults;
  decltype(&::jpeg_set_colorspace) set_colorspace;
  decltype(&::jpeg_add_quant_table) add_quant_table;
  decltype(&::jpeg_start_compress) start_compress;
  decltype(&::jpeg_write_scanlines) write_scanlines;
  decltype(&::jpeg_finish_compress) finish_compress;
};
JpegLibrary lib;

bool load_library() {
  static const bool loaded = [] {
    const auto at = [](auto& function) { return reinterpret_cast<void**>(&function); };
    const Symbol symbols[] = {
        {"jpeg_std_error", at(lib.std_error)},
        {"jpeg_CreateDecompress", at(lib.create_decompress)},
        {"jpeg_destroy_decompress", at(lib.destroy_decompress)},
        {"jpeg_read_header", at(lib.read_header)},
        {"jpeg_start_decompress", at(lib.start_decompress)},
        {"jpeg_read_scanlines", at(lib.read_scanlines)},
        {"jpeg_resync_to_restart", at(lib.resync_to_restart)},
        {"jpeg_CreateCompress", at(lib.create_compress)},
        {"jpeg_destroy_compress", at(lib.destroy_compress)},
        {"jpeg_set_defaults", at(lib.set_defaults)},
        {"jpeg_set_colorspace", at(lib.set_colorspace)},
        {"jpeg_add_quant_table", at(lib.add_quant_table)},
        {"jpeg_start_compress", at(lib.start_compress)},
        {"jpeg_write_scanlines", at(lib.write_scanlines)},
        {"jpeg_finish_compress", at(lib.finish_compress)},
    };
    return open_shared_library("libjpeg.so.62", symbols, std::size(symbols));
  }();
  return loaded;
}

int status_of(jpeg::Fault fault) {
  return fault;  // the first numbers of both tables are the same
}

// --- The library's errors: the way out of a call is a jump, past frames without destructors ---

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf out;
  bool ran_out;    // of data, and the library went on without
  bool bad_codes;  // were passed over
  uint32_t short_line;
};

ErrorManager& errors_of(j_common_ptr info) {
  return *reinterpret_cast<ErrorManager*>(info->err);
}
void leave(j_common_ptr info) {
  std::longjmp(errors_of(info).out, 1);
}
void note_message(j_common_ptr info, int level) {
  if (level >= 0) return;
  ErrorManager& errors = errors_of(info);
  ++errors.base.num_warnings;
  if (errors.base.msg_code == JWRN_HUFF_BAD_CODE) errors.bad_codes = true;
  if (errors.base.msg_code == JWRN_HIT_MARKER && !errors.ran_out) {
    errors.ran_out = true;
    errors.short_line = reinterpret_cast<j_decompress_ptr>(info)->output_scanline;
  }
}
void print_nothing(j_common_ptr) {}

void set_up(ErrorManager& errors) {
  lib.std_error(&errors.base);
  errors.base.error_exit = leave;
  errors.base.emit_message = note_message;
  errors.base.output_message = print_nothing;
}

int status_of(const ErrorManager& errors) {
  switch (errors.base.msg_code) {
    case JERR_OUT_OF_MEMORY:
      return kCodecNoMemory;
    case JERR_NO_SOI:
      return kCodecNotAStream;
    case JERR_NO_HUFF_TABLE:
    case JERR_NO_QUANT_TABLE:
    case JERR_BAD_HUFF_TABLE:
      return kCodecBadTable;
    case JERR_SOF_UNSUPPORTED:
    case JERR_BAD_PRECISION:
      return kCodecUnsupported;
    default:
      return kCodecRefused;
  }
}

// --- Decompression ---

constexpr JOCTET kEnd[] = {0xFF, JPEG_EOI};

struct Input {
  jpeg_source_mgr base;
  const uint8_t* rest;  // behind the head of a strip
  std::size_t rest_size;
  bool exhausted;
};
void ignore(j_decompress_ptr) {}
boolean give_more(j_decompress_ptr info) {
  auto* input = reinterpret_cast<Input*>(info->src);
  if (input->rest_size != 0) {
    input->base.next_input_byte = input->rest;
    input->base.bytes_in_buffer = std::exchange(input->rest_size, 0);
    return TRUE;
  }
  input->exhausted = true;
  input->base.next_input_byte = kEnd;
  input->base.bytes_in_buffer = sizeof kEnd;
  return TRUE;
}
void skip(j_decompress_ptr info, long count) {
  if (count <= 0) return;
  if (static_cast<std::size_t>(count) >= info->src->bytes_in_buffer) {
    give_more(info);
    return;
  }
  info->src->next_input_byte += count;
  info->src->bytes_in_buffer -= static_cast<std::size_t>(count);
}

// An image that calls itself RGB is that, unless its stream says by a marker that it holds YCbCr, or has its
// chrominance subsampled, which only YCbCr has.
bool holds_ycc(const jpeg_decompress_struct& info) {
  if (info.saw_Adobe_marker != 0) return info.Adobe_transform != 0;
  if (info.saw_JFIF_marker != 0) return true;
  return info.comp_info[0].h_samp_factor != info.comp_info[1].h_samp_factor ||
         info.comp_info[0].v_samp_factor != info.comp_info[1].v_samp_factor;
}

// Two pixels of YCbCr into Y Y Cb Cr.
void pack_422(const uint8_t* row, uint32_t columns, uint8_t* out) {
  for (uint32_t x = 0; x < columns; x += 2, row += 6, out += 4) {
    out[0] = row[0];
    out[1] = row[3];
    out[2] = static_cast<uint8_t>((row[1] + row[4] + 1) / 2);
    out[3] = static_cast<uint8_t>((row[2] + row[5] + 1) / 2);
  }
}
void unpack_422(const uint8_t* in, uint32_t columns, uint8_t* row) {
  for (uint32_t x = 0; x < columns; x += 2, in += 4, row += 6) {
    row[0] = in[0];
    row[3] = in[1];
    row[1] = row[4] = in[2];
    row[2] = row[5] = in[3];
  }
}

struct DecodeJob {
  const ImageAttributes& image;
  bool to_rgb;
  const uint8_t* data;
  std::size_t size;
  const uint8_t* rest;  // of the stream, behind the head of a strip
  std::size_t rest_size;
  jpeg::Strip rows;
  uint8_t* frame;
  uint8_t* row;  // of three components, for packed images and what is skipped
  CodecResult& result;
};

void read_rows(jpeg_decompress_struct& info, const DecodeJob& job, std::size_t width, bool pack) {
  const uint32_t columns = job.image.Columns;
  JSAMPROW row = job.row;
  for (uint32_t skipped = 0; skipped < job.rows.skipped; ++skipped) lib.read_scanlines(&info, &row, 1);
  for (std::size_t y = job.rows.first; y < job.rows.first + job.rows.count; ++y) {
    if (!pack) row = job.frame + y * width;
    lib.read_scanlines(&info, &row, 1);
    if (pack) pack_422(job.row, columns, job.frame + y * columns * 2);
  }
}

int decode_8bit(const DecodeJob& job) {
  const ImageAttributes& image = job.image;
  jpeg_decompress_struct info;
  ErrorManager errors{};
  Input input{};
  std::memset(&info, 0, sizeof info);
  set_up(errors);
  info.err = &errors.base;
  if (setjmp(errors.out) != 0) {
    lib.destroy_decompress(&info);
    return status_of(errors);
  }
  lib.create_decompress(&info, JPEG_LIB_VERSION, sizeof info);
  input.rest = job.rest;
  input.rest_size = job.rest_size;
  input.base = {job.data, job.size, ignore, give_more, skip, lib.resync_to_restart, ignore};
  info.src = &input.base;
  lib.read_header(&info, TRUE);
  const bool packed = is_packed_422(image.photometric());
  const bool colour = packed || image.SamplesPerPixel == 3;
  const int components = colour ? 3 : 1;
  int status = kCodecDone;
  if (info.image_width != image.Columns || info.image_height != job.rows.height ||
      info.num_components != components || (!colour && image.SamplesPerPixel != 1)) {
    status = kCodecOtherImage;
  } else {
    if (!colour) {
      info.out_color_space = info.jpeg_color_space = JCS_GRAYSCALE;
    } else if (packed) {
      info.jpeg_color_space = JCS_YCbCr;
      info.out_color_space = job.to_rgb ? JCS_RGB : JCS_YCbCr;
      if (!job.to_rgb) info.do_fancy_upsampling = FALSE;
    } else if (image.photometric().starts_with("RGB")) {
      info.jpeg_color_space = holds_ycc(info) ? JCS_YCbCr : JCS_RGB;
      info.out_color_space = JCS_RGB;
    } else {
      info.out_color_space = info.jpeg_color_space = JCS_YCbCr;  // as it is
    }
    info.dct_method = JDCT_ISLOW;
    lib.start_decompress(&info);
    const std::size_t width = std::size_t{image.Columns} * static_cast<std::size_t>(components);
    read_rows(info, job, width, packed && !job.to_rgb);
    if (errors.bad_codes) {
      status = kCodecBadCode;
    } else if (errors.ran_out) {
      status = kCodecDataShort;
      job.result.missing_bytes = static_cast<uint32_t>((image.Rows - errors.short_line) * width);
    } else if (input.exhausted) {
      status = kCodecBadEnd;
    }
  }
  lib.destroy_decompress(&info);
  return status;
}

// Strips side by side. False: there are none, or something is wrong with the stream, and a decode of the
// whole tells what.
bool decode_strips(const ImageAttributes& image, const DecodeSettings& settings, const uint8_t* data,
                   std::size_t size, uint8_t* frame) {
  constexpr unsigned kPerThread = 4;  // as some take longer than others
  jpeg::Strips cut;
  if (settings.threads < 2 || !jpeg::find_strips(data, size, kPerThread * settings.threads, cut))
    return false;
  std::atomic<bool> good{true};
  run_parts(settings.threads, cut.strips.size(), [&](std::size_t part) {
    if (!good) return;
    const jpeg::Strip& strip = cut.strips[part];
    std::vector<uint8_t> head = cut.head;
    store16(head.data() + cut.height_at, static_cast<uint16_t>(strip.height), true);
    std::vector<uint8_t> row(std::size_t{image.Columns} * 3);
    CodecResult result;
    const auto left = static_cast<std::size_t>(data + size - strip.data);
    if (decode_8bit({image, settings.to_rgb, head.data(), head.size(), strip.data, left, strip, frame,
                     row.data(), result}) != kCodecDone)
      good = false;
  });
  return good;
}

// Samples of 8 bits in an image that gives them 16.
void widen(uint8_t* frame, std::size_t samples) {
  for (std::size_t i = samples; i-- > 0;) {
    frame[2 * i] = frame[i];
    frame[2 * i + 1] = 0;
  }
}

// The cosine transform has 12 bits; what it makes of an image of fewer may overshoot their range.
template <typename Sample>
void clamp_samples(uint8_t* frame, std::size_t size, int low, int high) {
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    Sample v;
    std::memcpy(&v, frame + i, 2);
    v = static_cast<Sample>(std::clamp<int>(v, low, high));
    std::memcpy(frame + i, &v, 2);
  }
}
void clamp_to_stored(const ImageAttributes& image, uint8_t* frame) {
  const int range = 1 << image.BitsStored;
  if (image.PixelRepresentation == 0) return clamp_samples<uint16_t>(frame, image.FrameSize, 0, range - 1);
  clamp_samples<int16_t>(frame, image.FrameSize, -range / 2, range / 2 - 1);
}

int decode_own(const ImageAttributes& image, unsigned threads, const uint8_t* data, std::size_t size,
               jpeg::Shape& shape, uint8_t* frame) {
  if (shape.rows != image.Rows || shape.columns != image.Columns ||
      shape.components != image.SamplesPerPixel || shape.precision > image.BitsAllocated) {
    return kCodecOtherImage;
  }
  const uint32_t precision = shape.precision;
  const jpeg::Fault fault = jpeg::decode(data, size, shape, image.BitsAllocated == 16, frame, threads);
  if (fault != jpeg::kNone) return status_of(fault);
  extend_sign(image, frame, precision);
  if (shape.process != 0xC3 && image.BitsStored != 0 && image.BitsStored < precision)
    clamp_to_stored(image, frame);
  return shape.ends_well ? kCodecDone : kCodecBadEnd;
}

int decompress(const ImageAttributes& image, const DecodeSettings& settings, const uint8_t* data,
               std::size_t size, uint8_t* frame, CodecResult& result) try {
  jpeg::Shape shape;
  if (jpeg::Fault fault = jpeg::query(data, size, shape); fault != jpeg::kNone) return status_of(fault);
  if (shape.process == 0xC3 || shape.precision == 12)
    return decode_own(image, settings.threads, data, size, shape, frame);
  if (shape.process > 0xC2 || shape.precision != 8 || image.BitsAllocated < 8) return kCodecUnsupported;
  if (shape.process == 0xC2 && jpeg::has_too_many_scans(data, size)) return kCodecUnsupported;
  if (!load_library()) return kCodecNotLoaded;
  const bool packed = is_packed_422(image.photometric());
  if (packed && !settings.to_rgb && image.Columns % 2 != 0) return kCodecOddColumns;
  int status = kCodecDone;
  if (shape.rows != image.Rows || !decode_strips(image, settings, data, size, frame)) {
    std::vector<uint8_t> row(packed ? std::size_t{image.Columns} * 3 : 0);
    const jpeg::Strip whole{nullptr, image.Rows, 0, 0, image.Rows};
    status = decode_8bit({image, settings.to_rgb, data, size, nullptr, 0, whole, frame, row.data(), result});
  }
  const bool decoded = status == kCodecDone || status == kCodecDataShort || status == kCodecBadEnd;
  if (decoded && image.BitsAllocated == 16) widen(frame, image.FrameSize / 2);
  if (decoded) extend_sign(image, frame, 8);
  return status;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

int query(const uint8_t* data, std::size_t size, CodecHead& head) {
  jpeg::Shape shape;
  const jpeg::Fault fault = jpeg::query(data, size, shape);
  head = {shape.rows, shape.columns, shape.components, shape.precision};
  return status_of(fault);
}

// --- Compression ---

// Tables K.1 and K.2.
constexpr unsigned int kLuminance[64] = {
    16, 11,  10,  16, 24, 40, 51, 61, 12,  12,  14,  19,  26, 58, 60, 55,  14,  13,  16,  24, 40, 57,
    69, 56,  14,  17, 22, 29, 51, 87, 80,  62,  18,  22,  37, 56, 68, 109, 103, 77,  24,  35, 55, 64,
    81, 104, 113, 92, 49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98,  112, 100, 103, 99};
constexpr unsigned int kChrominance[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                           24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                           99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                           99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

struct Output {
  jpeg_destination_mgr base;
  std::vector<uint8_t>* bytes;
  bool no_memory;
};
constexpr std::size_t kOutputStep = 64 * 1024;

void begin_output(j_compress_ptr) {}
// The buffer is full: it doubles. The exception must not cross the library.
boolean grow_output(j_compress_ptr info) {
  auto* output = reinterpret_cast<Output*>(info->dest);
  const std::size_t used = output->bytes->size();
  try {
    output->bytes->resize(used * 2);
  } catch (...) {
    output->no_memory = true;
    leave(reinterpret_cast<j_common_ptr>(info));
  }
  output->base.next_output_byte = output->bytes->data() + used;
  output->base.free_in_buffer = output->bytes->size() - used;
  return TRUE;
}
void end_output(j_compress_ptr info) {
  auto* output = reinterpret_cast<Output*>(info->dest);
  output->bytes->resize(output->bytes->size() - output->base.free_in_buffer);
}

struct EncodeJob {
  const ImageAttributes& image;
  const CodecSettings& settings;
  const uint8_t* frame;
  uint8_t* row;
  std::vector<uint8_t>& out;
};

// The quality setting of the library rounds percentages; a table that is scaled here keeps to the factor.
void set_table(jpeg_compress_struct& info, int number, const unsigned int (&table)[64], int factor) {
  unsigned int scaled[64];
  for (std::size_t i = 0; i < 64; ++i) {
    const int64_t value = (static_cast<int64_t>(table[i]) * std::max(factor, 0) + 16) / 32;
    scaled[i] = static_cast<unsigned int>(std::clamp<int64_t>(value, 1, 255));
  }
  lib.add_quant_table(&info, number, scaled, 100, TRUE);
}

int encode_8bit(const EncodeJob& job) {
  const ImageAttributes& image = job.image;
  jpeg_compress_struct info;
  ErrorManager errors{};
  Output output{};
  std::memset(&info, 0, sizeof info);
  set_up(errors);
  info.err = &errors.base;
  if (setjmp(errors.out) != 0) {
    lib.destroy_compress(&info);
    return output.no_memory ? static_cast<int>(kCodecNoMemory) : status_of(errors);
  }
  lib.create_compress(&info, JPEG_LIB_VERSION, sizeof info);
  output.base = {job.out.data(), job.out.size(), begin_output, grow_output, end_output};
  output.bytes = &job.out;
  info.dest = &output.base;
  const bool packed = is_packed_422(image.photometric());
  const bool colour = packed || image.SamplesPerPixel == 3;
  info.image_width = image.Columns;
  info.image_height = image.Rows;
  info.input_components = colour ? 3 : 1;
  const bool rgb = colour && image.photometric().starts_with("RGB");
  info.in_color_space = rgb ? JCS_RGB : colour ? JCS_YCbCr : JCS_GRAYSCALE;
  lib.set_defaults(&info);
  if (colour) {
    // Without subsampling the image keeps its label, and so do its samples.
    lib.set_colorspace(&info, rgb && !job.settings.subsample ? JCS_RGB : JCS_YCbCr);
    info.comp_info[0].h_samp_factor = packed || job.settings.subsample ? 2 : 1;
    info.comp_info[0].v_samp_factor = 1;
  }
  set_table(info, 0, kLuminance, job.settings.luminance);
  set_table(info, 1, kChrominance, job.settings.chrominance);
  info.dct_method = JDCT_ISLOW;
  info.optimize_coding = TRUE;
  lib.start_compress(&info, TRUE);
  const std::size_t width = std::size_t{image.Columns} * (packed ? 2 : colour ? 3 : 1);
  for (std::size_t y = 0; y < image.Rows; ++y) {
    const uint8_t* line = job.frame + y * width;
    if (packed) unpack_422(line, image.Columns, job.row);
    JSAMPROW row = packed ? job.row : const_cast<uint8_t*>(line);
    lib.write_scanlines(&info, &row, 1);
  }
  lib.finish_compress(&info);
  lib.destroy_compress(&info);
  return kCodecDone;
}

int compress(const ImageAttributes& image, const CodecSettings& settings, const uint8_t* frame,
             std::vector<uint8_t>& out) try {
  if (image.BitsAllocated == 16) {
    std::vector<uint16_t> samples;
    if (!strip_high_bits(image, frame, samples)) return kCodecHighBits;
    // The process has 12 bits, and what is signed has its sign in the last of them.
    for (std::size_t i = 0; image.PixelRepresentation != 0 && i < samples.size(); ++i)
      samples[i] = static_cast<uint16_t>((frame[2 * i] | frame[2 * i + 1] << 8) & 0xFFF);
    const jpeg::Source source{image.Rows, image.Columns, image.SamplesPerPixel, 12, true, samples.data()};
    return status_of(jpeg::encode_extended12(source, settings.luminance, out));
  }
  if (!load_library()) return kCodecNotLoaded;
  const bool packed = is_packed_422(image.photometric());
  if (packed && image.Columns % 2 != 0) return kCodecOddColumns;
  std::vector<uint8_t> row(packed ? std::size_t{image.Columns} * 3 : 0);
  out.assign(std::max<std::size_t>(image.FrameSize / 4, kOutputStep), 0);
  return encode_8bit({image, settings, frame, row.data(), out});
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

int compress_lossless(const ImageAttributes& image, const CodecSettings&, const uint8_t* frame,
                      std::vector<uint8_t>& out) try {
  const bool wide = image.BitsAllocated == 16;
  jpeg::Source source{image.Rows, image.Columns, image.SamplesPerPixel, image.BitsStored, wide, frame};
  std::vector<uint16_t> samples;
  if (!wide) {
    if (!bytes_fit(image, frame)) source.precision = 8;
  } else if (is_plain(image, frame)) {
    source.samples = frame;
  } else if (strip_high_bits(image, frame, samples)) {
    source.samples = samples.data();
  } else {
    // Something stands above the image: all of it is kept.
    std::memcpy(samples.data(), frame, samples.size() * 2);
    source.samples = samples.data();
    source.precision = 16;
  }
  return status_of(jpeg::encode_lossless(source, out));
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

bool nothing_to_load() {
  return true;
}

}  // namespace

const Codec kJpegCodec{"OP_D2SEPLUS", "OP_SE2DPLUS", load_library,  query,
                       compress,      decompress,    jpeg::find_end};
const Codec kJpegLosslessCodec{"OP_LIP3PLUS",     "OP_LIE3PLUS", nothing_to_load, query,
                               compress_lossless, decompress,    jpeg::find_end};

}  // namespace vx
