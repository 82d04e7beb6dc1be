// Frames as native Pixel Data has them, each in an item of its own (PS3.5 annex A): as they are, or deflated.
#include <cstring>
#include <new>

#include <zlib.h>

#include "config/config.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/state.h"
#include "pixel/codec.h"

namespace vx {
namespace {

bool load_nothing() {
  return true;
}
// Such a frame says nothing of its image.
int query_nothing(const uint8_t*, std::size_t, CodecHead&) {
  return kCodecUnsupported;
}
// Nor of its end: that is where its bytes end.
std::size_t find_nothing(const uint8_t*, std::size_t, std::size_t&) {
  return 0;
}

// --- As they are ---

int wrap(const ImageAttributes& image, const CodecSettings&, const uint8_t* frame,
         std::vector<uint8_t>& out) try {
  out.assign(frame, frame + image.FrameSize);
  return kCodecDone;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

// Frames of an odd number of bytes have a pad.
int unwrap(const ImageAttributes& image, const DecodeSettings&, const uint8_t* data, std::size_t size,
           uint8_t* frame, CodecResult&) {
  if (size < image.FrameSize) return kCodecShort;
  if (size > std::size_t{image.FrameSize} + image.FrameSize % 2) return kCodecTrailing;
  std::memcpy(frame, data, image.FrameSize);
  return kCodecDone;
}

// --- Deflated ---

constexpr int kMemoryLevel = 8;

int deflate_frame(const ImageAttributes& image, const CodecSettings&, const uint8_t* frame,
                  std::vector<uint8_t>& out) try {
  z_stream stream{};
  const int level = config_int(VX_CFG_DEFLATE_COMPRESSION_LEVEL);
  if (::deflateInit2(&stream, level, Z_DEFLATED, -MAX_WBITS, kMemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK)
    return kCodecNoMemory;
  try {
    out.resize(::deflateBound(&stream, image.FrameSize));
  } catch (const std::bad_alloc&) {
    ::deflateEnd(&stream);
    throw;
  }
  stream.next_in = const_cast<uint8_t*>(frame);
  stream.avail_in = image.FrameSize;
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  const int status = ::deflate(&stream, Z_FINISH);
  ::deflateEnd(&stream);
  if (status != Z_STREAM_END) return kCodecRefused;
  out.resize(stream.total_out);
  return kCodecDone;
} catch (const std::bad_alloc&) {
  return kCodecNoMemory;
}

// `taken` gets how much of the data the stream has. What it holds beyond the frame and a pad is not made.
int inflate_frame(int window_bits, const ImageAttributes& image, const uint8_t* data, std::size_t size,
                  uint8_t* frame, std::size_t& taken) {
  z_stream stream{};
  if (::inflateInit2(&stream, window_bits) != Z_OK) return kCodecNoMemory;
  stream.next_in = const_cast<uint8_t*>(data);
  stream.avail_in = static_cast<uInt>(size);
  stream.next_out = frame;
  stream.avail_out = image.FrameSize;
  int status = ::inflate(&stream, Z_FINISH);
  const bool full = stream.avail_out == 0;
  uint8_t behind[2];
  uInt more = 0;
  if (full && status != Z_STREAM_END) {
    stream.next_out = behind;
    stream.avail_out = sizeof behind;
    status = ::inflate(&stream, Z_FINISH);
    more = sizeof behind - stream.avail_out;
  }
  ::inflateEnd(&stream);
  taken = size - stream.avail_in;
  if (more > image.FrameSize % 2) return kCodecTrailing;
  if (status == Z_STREAM_END) return full ? kCodecDone : kCodecShort;
  if (status == Z_BUF_ERROR) return kCodecShort;
  return status == Z_MEM_ERROR ? kCodecNoMemory : kCodecBadCode;
}

bool has_zlib_header(const uint8_t* data, std::size_t size) {
  return size > 2 && (data[0] & 0x0F) == Z_DEFLATED && (data[0] * 256 + data[1]) % 31 == 0;
}

int inflate(const ImageAttributes& image, const DecodeSettings&, const uint8_t* data, std::size_t size,
            uint8_t* frame, CodecResult& result) {
  std::size_t taken = 0;
  int status = inflate_frame(-MAX_WBITS, image, data, size, frame, taken);
  if (status != kCodecDone && has_zlib_header(data, size)) {
    const int wrapped = inflate_frame(MAX_WBITS, image, data, size, frame, taken);
    if (wrapped == kCodecDone) {
      VX_LOG_WARN("VX_General_Decompressor", "A deflated frame has the header of zlib, which is passed over");
    }
    status = wrapped;
  }
  if (status == kCodecDone) result.used = taken;
  return status;
}

}  // namespace

const Codec kNativeCodec{"NATIVE", "NATIVE", load_nothing, query_nothing, wrap, unwrap, find_nothing, true};
const Codec kDeflatedCodec{"DEFLATE",     "INFLATE", load_nothing, query_nothing,
                           deflate_frame, inflate,   find_nothing, true};

}  // namespace vx
