// The RLE codec (PS3.5 annex G): byte planes, each in PackBits.
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>

#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/state.h"
#include "pixel/image.h"
#include "pixel/rle.h"
#include "pixel/rle_layout.h"
#include "pixel/run.h"
#include "pixel/thread_share.h"

namespace vx {
namespace {

constexpr char kCompressor[] = "VX_RLE_Compressor";
constexpr char kDecompressor[] = "VX_RLE_Decompressor";
constexpr char kNoSegments[] = "The image's samples do not make the segments that an RLE frame has";

VX_STATUS refuse(const char* function, const char* text) {
  VXlog_Function(function, VX_LOG_ERROR, "%s", text);
  return VX_CALLBACK_CANNOT_COMPLY;
}

// --- Compression ---

struct RLEContext final : RunContext {
  RLEContext() : RunContext(true) {}
  ImageAttributes image;
  uint8_t* FrameBuffer = nullptr;
  uint32_t BytesBuffered = 0;
  uint8_t* OutputBuffer = nullptr;

  ~RLEContext() override {
    release(FrameBuffer);
    release(OutputBuffer);
  }
};

VX_STATUS read_image(const char* function, int32_t id, bool any, ImageAttributes& image) {
  MsgObj* object = library_initialized() ? find_object(id) : nullptr;
  if (object == nullptr) return VX_CALLBACK_CANNOT_COMPLY;
  if (VX_STATUS status = read_image_attributes(*object, "getDicomAttributes", image, any); status != kOk)
    return status;
  if (image.TransferSyntax != RLE) {
    return refuse(function, function == kCompressor ? "Compressor called for non RLE transfer syntax."
                                                    : "Decompressor called for non RLE transfer syntax.");
  }
  return kOk;
}

// Room for a frame and its pad. `text` tells of the failure and of the size.
VX_STATUS make_frame(const ImageAttributes& image, const char* text, uint8_t*& frame) {
  release(frame);
  frame = static_cast<uint8_t*>(allocate_raw(std::size_t{image.FrameSize} + 1));
  if (frame != nullptr) return kOk;
  log_line(VX_LOG_ERROR, nullptr, text, static_cast<unsigned long>(image.FrameSize));
  return VX_CALLBACK_CANNOT_COMPLY;
}

VX_STATUS gather_frame(RLEContext& context, uint32_t size, const void* data, bool last) {
  const uint32_t frame_size = context.image.FrameSize;
  if (context.FrameBuffer == nullptr) {
    constexpr char kText[] = "Unable to allocate buffer to hold frame of size %lu";
    if (VX_STATUS status = make_frame(context.image, kText, context.FrameBuffer); status != kOk)
      return status;
  }
  if (size != 0) std::memcpy(context.FrameBuffer + context.BytesBuffered, data, size);
  context.BytesBuffered += size;
  // What an image of less than a frame leaves unset goes out as zeros.
  if (last && context.BytesBuffered < frame_size)
    std::memset(context.FrameBuffer + context.BytesBuffered, 0, frame_size - context.BytesBuffered);
  return kOk;
}

VX_STATUS compress(RLEContext& context, uint32_t size, const void* data, bool last, uint32_t& out_size,
                   void*& out) {
  const ImageAttributes& image = context.image;
  const uint32_t room = image.FrameSize + image.FrameSize % 2;
  if (size > room - context.BytesBuffered) {
    VXlog_Function(kCompressor, VX_LOG_ERROR,
                   "Internal error, buffer overrun on input pixel buffer.  Frame size: %lu",
                   static_cast<unsigned long>(image.FrameSize));
    return VX_CANNOT_COMPLY;
  }
  const auto* frame = static_cast<const uint8_t*>(data);
  const bool whole = last && size >= image.FrameSize && context.BytesBuffered == 0;
  if (!whole) {  // a frame in one piece is taken from where it is
    if (VX_STATUS status = gather_frame(context, size, data, last); status != kOk || !last) return status;
    frame = context.FrameBuffer;
  }
  const uint64_t bound = rle_bound(image);
  if (bound > UINT32_MAX) return VX_CALLBACK_CANNOT_COMPLY;
  release(context.OutputBuffer);
  context.OutputBuffer = static_cast<uint8_t*>(allocate_raw(bound));
  if (context.OutputBuffer == nullptr) {
    log_line(VX_LOG_ERROR, nullptr, "Unable to allocate output buffer to hold frame of size %lu",
             static_cast<unsigned long>(image.FrameSize));
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  const ThreadShare share(image.FrameSize);
  if (!rle_encode(image, frame, share.count(), context.OutputBuffer, out_size)) {
    return refuse(kCompressor, kNoSegments);
  }
  out = context.OutputBuffer;
  return kOk;
}

// --- Decompression ---

// Spreads a run over its plane.
void put_literals(uint8_t* to, uint32_t stride, const uint8_t* from, uint32_t count) {
  if (stride == 1) {
    std::memcpy(to, from, count);
    return;
  }
  for (uint32_t i = 0; i < count; ++i, to += stride) *to = from[i];
}
void put_copies(uint8_t* to, uint32_t stride, uint8_t byte, uint32_t count) {
  if (stride == 1) {
    std::memset(to, byte, count);
    return;
  }
  for (uint32_t i = 0; i < count; ++i, to += stride) *to = byte;
}

// What encoders fill segments up with: zeros, or runs that stand for nothing.
bool is_pad(uint8_t byte) {
  return byte == 0 || byte == 0x80 || byte == 0xFF;
}
uint64_t count_surplus(const uint8_t* data, std::size_t size) {
  return size - static_cast<std::size_t>(std::count_if(data, data + size, is_pad));
}

}  // namespace

const char* RleDecoder::begin(const ImageAttributes& image, uint8_t* frame) {
  RleLayout layout;
  if (!make_layout(image, layout)) return kNoSegments;
  *this = {};
  image_ = &image;
  frame_ = frame;
  pixels_ = layout.pixels;
  return nullptr;
}

const char* RleDecoder::read_header(const uint8_t* header) {
  RleLayout layout;
  make_layout(*image_, layout);
  segments_ = load32(header, false);
  if (segments_ != layout.segments) return "The RLE header does not have the segments of the image";
  for (uint32_t i = 0; i < segments_; ++i) {
    offsets_[i] = load32(header + 4 + 4 * std::size_t{i}, false);
    if (i == 0 ? offsets_[0] != kRleHeaderBytes : offsets_[i] <= offsets_[i - 1]) {
      return "The offsets of the RLE header do not ascend from 64";
    }
  }
  offsets_[segments_] = UINT32_MAX;
  header_read_ = true;
  position_ = kRleHeaderBytes;
  start_segment(0);
  return nullptr;
}

void RleDecoder::start_segment(uint32_t index) {
  RleLayout layout;
  make_layout(*image_, layout);
  segment_ = index;
  segment_bytes_ = 0;
  stride_ = layout.planes[index].stride;
  to_ = frame_ + layout.planes[index].start;
}

// Takes as many whole runs as there are. `used` tells how much of the input that is.
const char* RleDecoder::runs(const uint8_t* data, uint32_t size, uint32_t& used) {
  used = 0;
  while (used < size && output_ < image_->FrameSize) {
    if (position_ == offsets_[segment_ + 1]) start_segment(segment_ + 1);
    const uint8_t control = data[used];
    if (segment_bytes_ == pixels_) {  // behind its last run
      if (!is_pad(control)) ++surplus_;
      ++used;
      ++position_;
      continue;
    }
    const bool literal = control < 128;
    const uint32_t count = literal ? control + 1U : 257U - control;
    const uint32_t need = control == 128 ? 1 : literal ? count + 1 : 2;
    if (control != 128 && (count > pixels_ - segment_bytes_ || need > offsets_[segment_ + 1] - position_)) {
      // Some encoders pad in the middle.
      if (count != 1 && count != 33) {
        return output_ + count > image_->FrameSize ? "RLE run crosses frame boundary"
                                                   : "RLE run crosses RLE segment boundary";
      }
      ++used;
      ++position_;
      continue;
    }
    if (need > size - used) return nullptr;
    if (control != 128) {
      if (literal) {
        put_literals(to_, stride_, data + used + 1, count);
      } else {
        put_copies(to_, stride_, data[used + 1], count);
      }
      segment_bytes_ += count;
      output_ += count;
      if (segment_bytes_ < pixels_) to_ += std::size_t{count} * stride_;
    }
    used += need;
    position_ += need;
  }
  return nullptr;
}

const char* RleDecoder::take(const uint8_t* data, uint32_t size) {
  while (size != 0 && !done()) {
    if (!header_read_) {
      const uint32_t n = std::min(size, kRleHeaderBytes - split_);
      std::memcpy(split_buffer_ + split_, data, n);
      split_ += n;
      data += n;
      size -= n;
      if (split_ < kRleHeaderBytes) return nullptr;
      split_ = 0;
      if (const char* fault = read_header(split_buffer_); fault != nullptr) return fault;
      continue;
    }
    uint32_t used = 0;
    if (split_ == 0) {
      if (const char* fault = runs(data, size, used); fault != nullptr) return fault;
      data += used;
      size -= used;
      if (done()) break;
      split_ = size;  // less than a run
      std::memcpy(split_buffer_, data, split_);
      return nullptr;
    }
    // A run that began in an earlier input grows byte by byte until it is whole.
    split_buffer_[split_++] = *data++;
    --size;
    if (const char* fault = runs(split_buffer_, split_, used); fault != nullptr) return fault;
    split_ -= used;
    if (used != 0 && split_ != 0) std::memmove(split_buffer_, split_buffer_ + used, split_);
  }
  if (size != 0) surplus_ += count_surplus(data, size);
  return nullptr;
}

bool RleDecoder::take_whole(const uint8_t* data, uint32_t size, unsigned threads) {
  const RleDecoder before = *this;
  if (threads <= 1 || header_read_ || split_ != 0 || size <= kRleHeaderBytes ||
      read_header(data) != nullptr || segments_ == 1 || offsets_[segments_ - 1] >= size) {
    *this = before;
    return false;
  }
  std::atomic<bool> whole{true};
  std::atomic<uint64_t> surplus{0};
  run_parts(threads, segments_, [&](std::size_t i) {
    RleDecoder part = *this;
    part.position_ = offsets_[i];
    part.start_segment(static_cast<uint32_t>(i));
    part.output_ = image_->FrameSize - pixels_;
    uint32_t used = 0;
    const uint32_t length = std::min(size, offsets_[i + 1]) - offsets_[i];
    const char* fault = part.runs(data + offsets_[i], length, used);
    if (fault != nullptr || !part.done()) whole = false;
    surplus += count_surplus(data + offsets_[i] + used, length - used);
  });
  if (whole) {
    output_ = image_->FrameSize;
    surplus_ = surplus;
  } else {
    *this = before;
  }
  return whole;
}

const char* RleDecoder::missing() const {
  if (done()) return nullptr;
  return split_ != 0 && header_read_ ? "RLE run incomplete" : "RLE frame incomplete";
}

namespace {

struct RLEInput final : RunContext {
  RLEInput() : RunContext(true) {}
  ImageAttributes image;
  RleDecoder decoder;
  uint8_t* FrameBuffer = nullptr;
  bool delivered = false;

  ~RLEInput() override { release(FrameBuffer); }
};

// The context of a call, made where a frame begins; null for a call that does not belong to one.
template <typename Context>
Context* run_context(const char* function, const CodecCall& call) {
  if (call.context == nullptr || (call.size != 0 && call.data == nullptr)) return nullptr;
  if (*call.context == nullptr && call.first) {
    *call.context = static_cast<RunContext*>(new (std::nothrow) Context);
    if (*call.context == nullptr) refuse(function, "VXI_newBuffer failure for Context");
  }
  return dynamic_cast<Context*>(run_of(call.context));
}

VX_STATUS decompress(RLEInput& context, uint32_t size, const void* data, bool last, uint32_t& out_size,
                     void*& out) {
  if (size != 0 && !context.decoder.done()) {
    const ThreadShare share(size);
    if (context.decoder.take_whole(static_cast<const uint8_t*>(data), size, share.count())) size = 0;
  }
  if (size != 0) {
    const char* fault = context.decoder.take(static_cast<const uint8_t*>(data), size);
    if (fault != nullptr) return refuse(kDecompressor, fault);
  }
  if (context.decoder.done()) {
    if (context.delivered) return kOk;
    context.delivered = true;
    if (const uint64_t surplus = context.decoder.surplus(); surplus != 0) {
      VX_LOG_WARN(kDecompressor, "%u bytes behind the end of the code stream are no part of the frame",
                  static_cast<unsigned>(surplus));
    }
    // Pieces of a value are even.
    context.FrameBuffer[context.image.FrameSize] = 0;
    out = context.FrameBuffer;
    out_size = context.image.FrameSize + context.image.FrameSize % 2;
    return kOk;
  }
  return last ? refuse(kDecompressor, context.decoder.missing()) : kOk;
}

}  // namespace

VX_STATUS rle_compress(const CodecCall& call, bool any) {
  if (call.out_size == nullptr || call.out == nullptr) return VX_CALLBACK_CANNOT_COMPLY;
  *call.out_size = 0;
  *call.out = nullptr;
  auto* context = run_context<RLEContext>(kCompressor, call);
  if (context == nullptr) return VX_CALLBACK_CANNOT_COMPLY;
  VX_STATUS status = kOk;
  if (call.first) {
    context->BytesBuffered = 0;
    release(context->FrameBuffer);
    context->FrameBuffer = nullptr;
    status = read_image(kCompressor, call.id, any, context->image);
  }
  if (status == kOk) status = compress(*context, call.size, call.data, call.last, *call.out_size, *call.out);
  if (status != kOk) end_run(call.context);
  return status;
}

VX_STATUS rle_decompress(const CodecCall& call, bool any) {
  if (call.out_size == nullptr || call.out == nullptr) {
    if (call.last) return kOk;
    end_run(call.context);
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  *call.out_size = 0;
  *call.out = nullptr;
  auto* context = run_context<RLEInput>(kDecompressor, call);
  if (context == nullptr) return VX_CALLBACK_CANNOT_COMPLY;
  VX_STATUS status = kOk;
  if (call.first) {
    context->delivered = false;
    status = read_image(kDecompressor, call.id, any, context->image);
    if (status == kOk) {
      constexpr char kText[] = "VXI_newBuffer failed for storing decompressed frame of size: %lu";
      status = make_frame(context->image, kText, context->FrameBuffer);
    }
    if (status == kOk) {
      const char* fault = context->decoder.begin(context->image, context->FrameBuffer);
      if (fault != nullptr) status = refuse(kDecompressor, fault);
    }
  }
  if (status == kOk)
    status = decompress(*context, call.size, call.data, call.last, *call.out_size, *call.out);
  if (status != kOk) end_run(call.context);
  return status;
}

}  // namespace vx

VX_STATUS VX_RLE_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                            uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                            int32_t Release) {
  if (Release != 0) return vx::end_run(Context);
  return vx::rle_compress(
      {MsgID, Context, DataSize, DataBuffer, OutSize, OutBuffer, IsFirst != 0, IsLast != 0}, false);
}

VX_STATUS VX_RLE_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                              uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                              int32_t Release) {
  if (Release != 0) return vx::end_run(Context);
  return vx::rle_decompress(
      {MsgID, Context, DataSize, DataBuffer, OutSize, OutBuffer, IsFirst != 0, IsLast != 0}, false);
}
