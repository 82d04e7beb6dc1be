// VX_Standard_Compressor, VX_Standard_Decompressor and their general twins: the gathering of a frame from its
// pieces, and the codec of its transfer syntax.
#include "pixel/standard.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "config/config.h"
#include "config/transfer_syntax.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/state.h"
#include "model/attributes.h"
#include "pixel/offset_table.h"
#include "pixel/rle.h"
#include "pixel/run.h"
#include "pixel/standard_checks.h"
#include "pixel/strip.h"
#include "pixel/thread_share.h"

namespace vx {
namespace {

constexpr char kCompressor[] = "VX_Standard_Compressor";
constexpr char kDecompressor[] = "VX_Standard_Decompressor";
constexpr char kGeneralCompressor[] = "VX_General_Compressor";
constexpr char kGeneralDecompressor[] = "VX_General_Decompressor";
constexpr uint32_t kQueryBytes = 16384;
constexpr uint32_t kTotalColumns = 0x00480006U;  // Total Pixel Matrix Columns

constexpr Direction kCompress{kCompressor, true, false};
constexpr Direction kDecompress{kDecompressor, false, false};
constexpr Direction kCompressAny{kGeneralCompressor, true, true};
constexpr Direction kDecompressAny{kGeneralDecompressor, false, true};

VX_STATUS load_codec(const Direction& direction, const char* function, const Codec& codec) {
  if (codec.load()) return kOk;
  const char* name = direction.compresses ? codec.compress_name : codec.decompress_name;
  // One of these texts has no point at its end.
  const char* end = direction.compresses && std::strcmp(name, "OP_D2SEPLUS") == 0 ? "" : ".";
  return refuse(function, "%s: failed to load Pegasus opcode %s (error: %d)%s", direction.function, name,
                static_cast<int>(kCodecNotLoaded), end);
}

// --- The header query ---

// What a query leaves on the attribute: ten words, as image files begin with.
struct BITMAPINFOHEADER {
  uint32_t Size;
  int32_t Width;
  int32_t Height;
  uint16_t Planes;
  uint16_t BitCount;
  uint32_t Compression;
  uint32_t SizeImage;
  uint32_t Rest[4];
};
static_assert(sizeof(BITMAPINFOHEADER) == 40);

// Takes the measures of the head where the object's differ.
void correct_measures(const TagObj& pixels, const char* function, ImageAttributes& image) {
  BITMAPINFOHEADER header;
  std::memcpy(&header, pixels.AuxBuffer, sizeof header);
  const auto rows = static_cast<uint32_t>(header.Height);
  const auto columns = static_cast<uint32_t>(header.Width);
  if (rows != image.Rows) {
    VX_LOG_ERR(function, "Error. Tag VX_ATT_ROWS [%d] differs from BITMAPINFOHEADER [%d], corrected",
               static_cast<int>(image.Rows), static_cast<int>(rows));
  }
  if (columns != image.Columns) {
    VX_LOG_WARN(function, "Error. Tag VX_ATT_COLS [%d] differs from BITMAPINFOHEADER [%d], corrected",
                static_cast<int>(image.Columns), static_cast<int>(columns));
  }
  const uint64_t old_pixels = uint64_t{image.Rows} * image.Columns;
  const uint64_t bytes = old_pixels == 0 ? 0 : image.FrameSize / old_pixels * rows * columns;
  if (bytes == 0 || bytes > kMaxFrame) return;
  image.Rows = rows;
  image.Columns = columns;
  image.FrameSize = static_cast<uint32_t>(bytes);
}

VX_STATUS read_attributes(MsgObj& object, bool any, ImageAttributes& image) {
  const VX_STATUS status = read_image_attributes(object, "getDicomAttributes", image, any);
  if (status != kOk || !config_bool(VX_CFG_COMPRESSION_USE_HEADER_QUERY)) return status;
  const TagObj* pixels = find_tag(object, kPixelData);
  if (pixels != nullptr && pixels->AuxBuffer != nullptr && image.TransferSyntax != RLE) {
    correct_measures(*pixels, "getHeaderAttributes", image);
  }
  return kOk;
}

VX_STATUS gather_head(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& bytes = *static_cast<std::vector<uint8_t>*>(user);
  try {
    bytes.insert(bytes.end(), static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + size);
  } catch (...) {
    return VX_SYSTEM_ERROR;
  }
  return bytes.size() < kQueryBytes ? kOk : static_cast<VX_STATUS>(VX_END_OF_DATA);
}

VX_STATUS query_image_header(MsgObj& object, TagObj& attribute) {
  constexpr char kFunction[] = "queryEncapsulatedData";
  if (attribute.VR < VX_VR_OB || attribute.VR > VX_VR_OF) return VX_INCOMPATIBLE_VR;
  VX_TRANSFER_SYNTAX syntax = 0;
  if (encapsulated_syntax(object, syntax) != kOk || syntax == RLE) return VX_INVALID_TRANSFER_SYNTAX;
  OFFSET_TABLE_CONTEXT context{};
  VX_STATUS status = read_head(object, attribute, context);
  std::vector<uint8_t> bytes;
  if (status == kOk) {
    context.State = VXI_SEGMENT_WAITING_DELIMITER;
    context.Position = context.HeadBytes;
    Stripper stripper(object, attribute, context, {gather_head, &bytes, true}, true, nullptr);
    status = stripper.walk(true);
  }
  release(context.MainTable);
  if (status != kOk && status != VX_END_OF_DATA && status != VX_END_OF_FRAME) {
    return refuse(kFunction, "stripEncapsulatedData failed. Error: %s", status_text(status));
  }
  const Codec* codec = codec_for(syntax);
  if (codec == nullptr) return VX_INVALID_TRANSFER_SYNTAX;
  if (status = load_codec(kDecompress, kFunction, *codec); status != kOk) return status;
  CodecHead head;
  if (int fault = codec->query(bytes.data(), bytes.size(), head); fault != kCodecDone) {
    return refuse(kFunction, "Pegasus responded RES_ERR.  Status = %s", codec_text(fault));
  }
  BITMAPINFOHEADER header{sizeof(BITMAPINFOHEADER),
                          static_cast<int32_t>(head.columns),
                          static_cast<int32_t>(head.rows),
                          1,
                          static_cast<uint16_t>(head.components * head.precision),
                          0,
                          0,
                          {}};
  release(attribute.AuxBuffer);
  attribute.AuxBuffer = allocate_raw(sizeof header);
  if (attribute.AuxBuffer == nullptr) return refuse(kFunction, "Failed to allocated BITMAPINFOHEADER");
  std::memcpy(attribute.AuxBuffer, &header, sizeof header);
  return kOk;
}

// --- A run ---

struct StandardContext final : RunContext {
  explicit StandardContext(const Direction& d) : RunContext(false), direction(d) {}
  const Direction& direction;
  ImageAttributes image;
  const Codec* codec = nullptr;
  std::vector<uint8_t> input;         // pieces of the frame or of the stream
  std::vector<uint8_t> OutputBuffer;  // a compressed frame
  std::unique_ptr<uint8_t[]> frame;   // a decompressed one, with room for a pad
  std::size_t searched = 0;           // of the stream, for its end
  DecodeSettings settings;
  bool tiled = false;  // frames are parts of a larger picture, whose edges need not fill them
  bool only = false;   // frame of its image
  bool delivered = false;
  bool Failed = false;
};

VX_STATUS open_run(MsgObj& object, StandardContext& run) {
  const Direction& direction = run.direction;
  ImageAttributes& image = run.image;
  if (read_attributes(object, direction.any, image) != kOk)
    return refuse(direction.function, "Failed to get image attributes.");
  const bool shapes = direction.compresses && !keeps_layout(image.TransferSyntax);
  if (shapes && image.PlanarConfiguration == 1 &&
      (image.SamplesPerPixel != 3 || (image.BitsAllocated != 8 && !direction.any))) {
    return refuse(
        direction.function,
        "Message must contain VX_ATT_PLANAR_CONFIGURATION (equal to 1) with 8 bits allocated per sample");
  }
  if (VX_STATUS status = check_image(direction, direction.function, image); status != kOk) return status;
  run.codec = codec_for(image.TransferSyntax);
  if (VX_STATUS status = load_codec(direction, direction.function, *run.codec); status != kOk) return status;
  if (shapes && is_packed_422(image.photometric()) && image.FrameSize % 4 != 0) {
    return refuse(direction.function, "YBR data should be given in a multiple of 4 bytes");
  }
  if (!direction.compresses) {
    const OFFSET_TABLE_CONTEXT* context = encapsulation(object);
    run.settings.to_rgb = context != nullptr && context->ToRgb && is_packed_422(image.photometric());
    if (run.settings.to_rgb) {
      const uint64_t bytes = uint64_t{image.Rows} * image.Columns * 3;
      if (bytes > kMaxFrame) return refuse(direction.function, "Failed to get image attributes.");
      image.FrameSize = static_cast<uint32_t>(bytes);
    }
  }
  run.only = frame_count(object) == 1;
  run.tiled = direction.any && find_tag(object, kTotalColumns) != nullptr;
  run.input.clear();
  run.searched = 0;
  run.delivered = false;
  return kOk;
}

void append(std::vector<uint8_t>& bytes, const void* data, uint32_t size) {
  const auto* from = static_cast<const uint8_t*>(data);
  bytes.insert(bytes.end(), from, from + size);
}

VX_STATUS compress(StandardContext& run, uint32_t size, const void* data, bool last, uint32_t& out_size,
                   void*& out) {
  const ImageAttributes& image = run.image;
  // A frame of an odd number of bytes may have its pad with it.
  const std::size_t room = image.FrameSize + image.FrameSize % 2;
  if (size > room - run.input.size()) {
    return refuse(run.direction.function, "Pegasus responded RES_ERR when executing.  Status = %s",
                  codec_text(kCodecOtherImage));
  }
  const bool by_planes = image.PlanarConfiguration == 1 && !run.codec->keeps_layout;
  const bool whole = last && run.input.empty() && size >= image.FrameSize && !by_planes;
  const auto* frame = static_cast<const uint8_t*>(data);
  if (!whole) {
    if (run.input.empty()) run.input.reserve(room);
    if (size != 0) append(run.input, data, size);
    if (!last) return kOk;
    if (run.input.size() < image.FrameSize) {
      refuse(run.direction.function, "Pegasus returned RES_DONE before consuming entire image.");
      return refuse(run.direction.function, "Frame size: %ld, bytes processed: %ld",
                    static_cast<long>(image.FrameSize), static_cast<long>(run.input.size()));
    }
    if (by_planes) {
      std::vector<uint8_t> pixels(run.input.size());
      interleave(run.input.data(), std::size_t{image.Rows} * image.Columns, 3, image.sample_bytes(),
                 pixels.data());
      run.input.swap(pixels);
    }
    frame = run.input.data();
  }
  const ThreadShare share(image.FrameSize);
  CodecSettings settings = codec_settings(image);
  settings.threads = share.count();
  const int status = run.codec->compress(image, settings, frame, run.OutputBuffer);
  if (status != kCodecDone) {
    return refuse(run.direction.function, "Pegasus responded RES_ERR when compressing.  Status = %s",
                  codec_text(status));
  }
  if (run.OutputBuffer.size() % 2 != 0) run.OutputBuffer.push_back(0);
  out = run.OutputBuffer.data();
  out_size = static_cast<uint32_t>(run.OutputBuffer.size());
  run.delivered = true;
  return kOk;
}

// What a decode says beside the image. False: it counts as a failure.
bool accept(const StandardContext& run, int status, const CodecResult& result) {
  if (status == kCodecBadEnd) {
    const int ignore = run.codec == &kJpegLosslessCodec ? config_int(VX_CFG_IGNORE_JPEG_BAD_SUFFIX) : -1;
    if (ignore < 0) {
      VX_LOG_WARN(kDecompressor,
                  "Invalid format of JPEG, image still decompressed. JPEG EOI marker may be bad.");
    }
    return ignore != 0;
  }
  if (status == kCodecDataShort) {
    VX_LOG_WARN(kDecompressor, "Invalid format of JPEG, %d bytes data short. ",
                static_cast<int>(result.missing_bytes));
    return true;
  }
  if (status == kCodecDamaged)
    VX_LOG_WARN(kDecompressor, "Invalid code stream, image still decompressed: %s.", codec_text(status));
  return status == kCodecDone || status == kCodecDamaged;
}

// A tile at the edge of its picture into a whole frame; the last pixel of a row and the last row go on.
void spread(const ImageAttributes& tile, const ImageAttributes& image, const uint8_t* from, uint8_t* frame) {
  const std::size_t pixel = image.FrameSize / (std::size_t{image.Rows} * image.Columns);
  const std::size_t width = image.Columns * pixel;
  for (std::size_t y = 0; y < image.Rows; ++y) {
    uint8_t* row = frame + y * width;
    if (y >= tile.Rows) {
      std::memcpy(row, row - width, width);
      continue;
    }
    std::memcpy(row, from + y * tile.Columns * pixel, tile.Columns * pixel);
    for (std::size_t x = tile.Columns; x < image.Columns; ++x)
      std::memcpy(row + x * pixel, row + (x - 1) * pixel, pixel);
  }
}

int decode(const StandardContext& run, const uint8_t* stream, std::size_t length, CodecResult& result) {
  const ImageAttributes& image = run.image;
  CodecHead head;
  if (!run.tiled || run.codec->query(stream, length, head) != kCodecDone || head.rows > image.Rows ||
      head.columns > image.Columns || (head.rows == image.Rows && head.columns == image.Columns)) {
    return run.codec->decompress(image, run.settings, stream, length, run.frame.get(), result);
  }
  ImageAttributes tile = image;
  tile.Rows = head.rows;
  tile.Columns = head.columns;
  tile.FrameSize = image.FrameSize / (image.Rows * image.Columns) * tile.Rows * tile.Columns;
  std::vector<uint8_t> pixels(tile.FrameSize);
  const int status = run.codec->decompress(tile, run.settings, stream, length, pixels.data(), result);
  spread(tile, image, pixels.data(), run.frame.get());
  return status;
}

// Where the stream ends in what is there of it, or 0. Native frames of several end by their size.
std::size_t end_of_stream(StandardContext& run, const uint8_t* stream, std::size_t length, bool last) {
  if (run.codec != &kNativeCodec) return run.codec->find_end(stream, length, run.searched);
  return last || run.only || length < run.image.FrameSize ? 0 : run.image.FrameSize;
}

// What stands behind the end of a stream and is no pad.
void tell_of_rest(const StandardContext& run, const uint8_t* rest, std::size_t size) {
  while (size != 0 && (rest[size - 1] == 0 || rest[size - 1] == 0xFF)) --size;
  if (size == 0) return;
  VX_LOG_WARN(run.direction.function, "%u bytes behind the end of the code stream are no part of the frame",
              static_cast<unsigned>(size));
}

VX_STATUS decompress(StandardContext& run, uint32_t size, const void* data, bool last, uint32_t& out_size,
                     void*& out) {
  if (run.delivered) return kOk;  // pads
  const auto* stream = static_cast<const uint8_t*>(data);
  std::size_t length = size;
  if (!run.input.empty() || size == 0) {
    if (size != 0) append(run.input, data, size);
    stream = run.input.data();
    length = run.input.size();
  }
  if (length == 0) {
    if (last) {
      VX_LOG_WARN(kDecompressor,
                  "Decompressor did not return data on AisLast call. VX_Standard_Decompressor");
    }
    return kOk;
  }
  const std::size_t end = end_of_stream(run, stream, length, last);
  if (end == 0 && !last) {
    if (run.input.empty()) append(run.input, data, size);
    return kOk;
  }
  const uint32_t frame_size = run.image.FrameSize;
  if (frame_size > kFreeFrame && frame_size / kMaxFrameRatio > length) {
    return refuse(kDecompressor, "Pegasus responded RES_ERR when decompressing.  Status = %s",
                  codec_text(kCodecTooLarge));
  }
  run.frame.reset(new uint8_t[std::size_t{frame_size} + 1]);  // each decoder that succeeds has filled it
  run.frame[frame_size] = 0;
  CodecResult result;
  const ThreadShare share(frame_size);
  run.settings.threads = share.count();
  const int status = decode(run, stream, end != 0 ? end : length, result);
  if (!accept(run, status, result)) {
    return refuse(kDecompressor, "Pegasus responded RES_ERR when decompressing.  Status = %s",
                  codec_text(status));
  }
  const std::size_t used = std::max(end, result.used);
  if (used != 0 && last) tell_of_rest(run, stream + used, length - used);
  out = run.frame.get();
  out_size = frame_size + frame_size % 2;
  run.delivered = true;
  return kOk;
}

VX_STATUS run_codec(const Direction& direction, MsgObj& object, const CodecCall& call) try {
  if (call.context == nullptr || call.out_size == nullptr || call.out == nullptr ||
      (call.size != 0 && call.data == nullptr)) {
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  *call.out_size = 0;
  *call.out = nullptr;
  if (call.first) {
    end_run(call.context);
    *call.context = static_cast<RunContext*>(new (std::nothrow) StandardContext(direction));
    if (*call.context == nullptr) {
      return refuse(direction.function,
                    direction.compresses ? "malloc failure for Context" : "malloc failure for Context.");
    }
  }
  auto* run = dynamic_cast<StandardContext*>(run_of(call.context));
  if (run == nullptr || run->Failed) return VX_CALLBACK_CANNOT_COMPLY;
  VX_STATUS status = call.first ? open_run(object, *run) : kOk;
  if (status == kOk) {
    status = (direction.compresses ? compress : decompress)(*run, call.size, call.data, call.last,
                                                            *call.out_size, *call.out);
  }
  run->Failed = status != kOk;
  return status;
} catch (const std::bad_alloc&) {
  return refuse(direction.function, "malloc failure");
}

// A call of one of the four functions.
VX_STATUS run_call(const Direction& direction, const CodecCall& call, bool is_release) {
  if (is_release) return end_run(call.context);
  MsgObj* object = library_initialized() ? find_object(call.id) : nullptr;
  if (object == nullptr) return VX_CALLBACK_CANNOT_COMPLY;
  // RLE has a codec of its own, which finds the end of a frame by its size.
  VX_TRANSFER_SYNTAX syntax = 0;
  const RunContext* run = run_of(call.context);
  const bool rle = call.first ? encapsulated_syntax(*object, syntax) == kOk && syntax == RLE
                              : run != nullptr && run->is_rle;
  if (!rle || !direction.any) return run_codec(direction, *object, call);
  return direction.compresses ? rle_compress(call, true) : rle_decompress(call, true);
}

}  // namespace

bool subsamples_rgb() {
  return config_text(VX_CFG_COMPRESSION_RGB_TRANSFORM_FORMAT) == "YBR_FULL_422";
}

bool is_lossy_target(VX_TRANSFER_SYNTAX syntax) {
  return syntax == JPEG_BASELINE || syntax == JPEG_EXTENDED_2_4 || syntax == HTJ2K ||
         (syntax == JPEG_2000 && config_bool(VX_CFG_COMPRESSION_WHEN_J2K_USE_LOSSY)) ||
         (syntax == JPEG_XL && config_int(VX_CFG_COMPRESSION_QUALITY) < 100);
}

bool is_lossy(const ImageAttributes& image) {
  // The stream knows no signs: an error could make the least sample the largest.
  const bool turns = image.TransferSyntax == JPEG_XL && image.PixelRepresentation != 0;
  return !turns && is_lossy_target(image.TransferSyntax);
}

CodecSettings codec_settings(const ImageAttributes& image) {
  CodecSettings settings;
  settings.luminance = config_int(VX_CFG_COMPRESSION_LUM_FACTOR);
  settings.chrominance = config_int(VX_CFG_COMPRESSION_CHROM_FACTOR);
  settings.subsample = subsamples_rgb();
  settings.near = image.TransferSyntax == JPEG_LS_LOSSY ? 10 : 0;
  settings.quality = config_int(VX_CFG_COMPRESSION_QUALITY);
  settings.lossless = !is_lossy(image);
  if (config_bool(VX_CFG_COMPRESSION_J2K_LOSSY_USE_QUALITY)) {
    const uint64_t bits = image.photometric().starts_with("RGB") ? 24 : image.BitsStored;
    const auto quality = static_cast<uint64_t>(std::max(config_int(VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY), 0));
    settings.milli_bits = bits * 1000 / 10 * quality;
  } else {
    const auto ratio = static_cast<uint64_t>(std::max(config_int(VX_CFG_COMPRESSION_J2K_LOSSY_RATIO), 1));
    settings.milli_bits = uint64_t{image.SamplesPerPixel} * image.BitsAllocated * 1000 / ratio;
  }
  return settings;
}

void query_image_header_if_wanted(MsgObj& object, TagObj& attribute) try {
  if (!config_bool(VX_CFG_COMPRESSION_USE_HEADER_QUERY) || attribute.AuxBuffer != nullptr) return;
  VX_TRANSFER_SYNTAX syntax = 0;
  if (encapsulated_syntax(object, syntax) != kOk || syntax == RLE) return;
  const VX_STATUS status = query_image_header(object, attribute);
  if (status == kOk) return;
  VX_LOG_ERR("VXI_QueryEncapsulatedData", "VXI_QueryEncapsulatedData failed with an error: %s",
             status_text(status));
  VX_LOG_ERR("VX_Get_Encapsulated_Value_To_Function", "VXI_QueryEncapsulatedData returned an error: %s",
             status_text(status));
  release(attribute.AuxBuffer);
  attribute.AuxBuffer = nullptr;
} catch (const std::bad_alloc&) {
}

}  // namespace vx

using namespace vx;

VX_STATUS VX_Standard_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                 uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                 int32_t Release) {
  return run_call(kCompress,
                  {MsgID, Context, DataSize, DataBuffer, OutSize, OutBuffer, IsFirst != 0, IsLast != 0},
                  Release != 0);
}

VX_STATUS VX_Standard_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                   uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                   int32_t Release) {
  return run_call(kDecompress,
                  {MsgID, Context, DataSize, DataBuffer, OutSize, OutBuffer, IsFirst != 0, IsLast != 0},
                  Release != 0);
}

VX_STATUS VX_General_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                int32_t Release) {
  return run_call(kCompressAny,
                  {MsgID, Context, DataSize, DataBuffer, OutSize, OutBuffer, IsFirst != 0, IsLast != 0},
                  Release != 0);
}

VX_STATUS VX_General_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                  uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                  int32_t Release) {
  return run_call(kDecompressAny,
                  {MsgID, Context, DataSize, DataBuffer, OutSize, OutBuffer, IsFirst != 0, IsLast != 0},
                  Release != 0);
}

VX_STATUS VX_Thread_Release(void) {
  VX_REQUIRE_LIBRARY();
  return kOk;  // the codecs keep nothing for a thread
}
