#include "pixel/strip.h"

#include <algorithm>

#include "frame/log.h"
#include "model/values.h"
#include "pixel/image.h"
#include "pixel/offset_table.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_stripItems";

}  // namespace

Stripper::Stripper(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context, StripSink sink,
                   bool frame_mode, void* decoder)
    : object_(object),
      attribute_(attribute),
      c_(context),
      sink_(sink),
      frame_mode_(frame_mode),
      decoder_(reinterpret_cast<VX_COMPRESSION_CALLBACK>(decoder)),
      source_(object, attribute),
      frames_(frame_count(object)) {
  frame_bytes(object, frame_size_);
  if (context.ToRgb) frame_size_ = frame_size_ / 2 * 3;
}

void Stripper::start_frame() {
  release_decoder(object_, c_);
  c_.DeliveredBytes = 0;
  c_.DecoderTold = false;
}

VX_STATUS Stripper::walk(bool emit) {
  emit_ = emit;
  for (;;) {
    const uint8_t* data = nullptr;
    uint32_t size = 0;
    if (VX_STATUS status = source_.at(c_.Position, c_.Piece, c_.PieceStart, data, size); status != kOk) {
      release_decoder(object_, c_);
      return status;
    }
    if (size == 0) return c_.Decoding ? end_of_sequence() : kOk;
    uint32_t used = 0;
    const VX_STATUS status = strip(data, size, used);
    if (status == kOk) continue;
    if (status != VX_END_OF_FRAME && status != VX_END_OF_DATA) release_decoder(object_, c_);
    return status;
  }
}

// The context's position moves with each byte, so that a walk may end anywhere.
VX_STATUS Stripper::strip(const uint8_t* data, uint32_t size, uint32_t& used) {
  const auto advance = [&](uint32_t n) {
    used += n;
    c_.Position += n;
    c_.FrameBytes += n;
  };
  while (used < size) {
    VX_STATUS status = kOk;
    if (c_.State == VXI_SEGMENT_WAITING_DELIMITER && c_.SegmentRemaining != 0) {
      const uint32_t n = std::min(size - used, c_.SegmentRemaining);
      c_.SegmentRemaining -= n;
      advance(n);
      continue;
    }
    if (c_.State == VXI_SEGMENT_WAITING_DATA) {
      const uint32_t n = std::min(size - used, c_.SegmentRemaining);
      const uint8_t* bytes = data + used;
      c_.SegmentRemaining -= n;
      advance(n);
      status = fragment_data(bytes, n);
    } else {
      const bool length_follows = c_.State == VXI_SEGMENT_WAITING_LENGTH_3;
      status = header_byte(data[used]);
      if (status == kOk) advance(1);
      // An empty fragment has its end here.
      if (status == kOk && length_follows && c_.SegmentRemaining == 0) status = fragment_data(nullptr, 0);
    }
    if (status != kOk) return status;
  }
  return kOk;
}

VX_STATUS Stripper::misplaced(const char* state) {
  VX_LOG_ERR(kFunction, "%s is missing in [%x] ENCAP_ITEM_IDENTIFIER", state, 0xE000FFFEU);
  return VX_MISSING_DELIMITER;
}

VX_STATUS Stripper::header_byte(uint8_t byte) {
  switch (c_.State) {
    case VXI_SEGMENT_WAITING_DELIMITER:
      if (byte != 0xFE) return misplaced("VXI_SEGMENT_WAITING_DELIMITER");
      break;
    case VXI_SEGMENT_WAITING_DELIMITER_1:
      if (byte != 0xFF) return misplaced("VXI_SEGMENT_WAITING_DELIMITER_1");
      break;
    case VXI_SEGMENT_WAITING_DELIMITER_2:
      if (byte == 0xDD) return end_of_sequence();
      // The byte is looked at again when the walk goes on.
      if (c_.ExpectMoreFrames && byte == 0) {
        c_.ExpectMoreFrames = false;
        return VX_END_OF_FRAME;
      }
      if (byte != 0) return misplaced("VXI_SEGMENT_WAITING_DELIMITER_2");
      break;
    case VXI_SEGMENT_WAITING_DELIMITER_3:
      if (byte != 0xE0) return misplaced("VXI_SEGMENT_WAITING_DELIMITER_3");
      c_.SegmentRemaining = 0;
      break;
    case VXI_SEGMENT_WAITING_LENGTH_0:
    case VXI_SEGMENT_WAITING_LENGTH_1:
    case VXI_SEGMENT_WAITING_LENGTH_2:
      c_.SegmentRemaining |= static_cast<uint32_t>(byte) << (8 * (c_.State - VXI_SEGMENT_WAITING_LENGTH_0));
      break;
    default:
      c_.SegmentRemaining |= static_cast<uint32_t>(byte) << 24;
      c_.State = VXI_SEGMENT_WAITING_DATA;
      return kOk;
  }
  ++c_.State;
  return kOk;
}

// Behind the last item, or where a value without its delimiter ends: a decompressor that still waits learns
// that its frame is over.
VX_STATUS Stripper::end_of_sequence() {
  c_.ExpectMoreFrames = false;
  if (c_.Decoding && !c_.DecoderTold) {
    if (VX_STATUS status = complete_frame(true); status != kOk) return status;
  }
  if (release_decoder(object_, c_) != kOk) return VX_COMPRESSION_FAILURE;
  return VX_END_OF_DATA;
}

// One that was made counts where frames are asked for one by one.
const OffsetTable* Stripper::table() const {
  if (!c_.TableUsable && decoder_ == nullptr && !frame_mode_) return nullptr;
  return table_in_use(c_, frames_);
}

// Bytes that the frame has by the table, with its headers; false if the table does not tell.
bool Stripper::table_frame_size(uint64_t& size, bool& last) const {
  last = true;
  size = UINT64_MAX;
  const uint32_t total = source_.length();
  const uint64_t data = total == kUndefinedLength ? UINT64_MAX : uint64_t{total} - c_.HeadBytes - kItemHeader;
  const OffsetTable* offsets = table();
  if (offsets == nullptr) {
    if (frames_ == 1 && total != kUndefinedLength) size = data;
    return frames_ == 1;
  }
  const uint32_t i = c_.FrameIndex;
  if (i >= offsets->count()) return false;
  last = i + 1 >= offsets->count();
  if (!last) {
    size = offsets->entry(i + 1) - offsets->entry(i);
  } else if (total != kUndefinedLength) {
    size = data - offsets->entry(i);
  }
  return true;
}

VX_STATUS Stripper::end_of_fragment(bool& frame_ended) {
  uint64_t size = 0;
  bool last = false;
  if (!table_frame_size(size, last)) {
    frame_ended = decoder_ == nullptr && frame_mode_;
    return kOk;
  }
  // The last frame may lack the delimiter behind it.
  frame_ended = c_.FrameBytes == size || (last && c_.Position == source_.length());
  if (!frame_ended && c_.FrameBytes > size && c_.TableUsable) {
    VX_LOG_WARN(kFunction, "The offset table does not fit its value and is passed over");
    c_.TableUsable = false;
  }
  return kOk;
}

VX_STATUS Stripper::fragment_data(const uint8_t* data, uint32_t size) {
  bool frame_ended = false;
  const bool finished = c_.SegmentRemaining == 0;
  if (finished) {
    c_.State = VXI_SEGMENT_WAITING_DELIMITER;
    if (VX_STATUS status = end_of_fragment(frame_ended); status != kOk) return status;
  }
  bool complete = false;
  const void* out = data;
  uint32_t out_size = size;
  if (decoder_ != nullptr) {
    const VX_STATUS status = call_decoder(data, size, frame_ended, out, out_size);
    if (status != kOk) {
      return decoder_failed(finished ? "Decompression of the frame/fragment end failed, error [%d] \"%s\""
                                     : "Decompression of the data segment failed, error [%d] \"%s\"",
                            status);
    }
  }
  if (out_size != 0) {
    if (VX_STATUS status = deliver(out, out_size, frame_ended, complete); status != kOk) return status;
  }
  if (complete && !frame_ended) {
    if (VX_STATUS status = complete_frame(false); status != kOk) return status;
  }
  return complete || frame_ended ? end_of_frame() : kOk;
}

VX_STATUS Stripper::call_decoder(const void* data, uint32_t size, bool last, const void*& out,
                                 uint32_t& out_size) {
  void* bytes = nullptr;
  uint32_t count = 0;
  const int32_t first = c_.Decoding ? 0 : 1;
  c_.Decoding = true;
  if (last) c_.DecoderTold = true;
  const VX_STATUS status = decoder_(object_.ID, &c_.Decoder, size, const_cast<void*>(data), &count, &bytes,
                                    first, last ? 1 : 0, 0);
  out = bytes;
  out_size = bytes != nullptr ? count : 0;
  return status;
}

VX_STATUS Stripper::decoder_failed(const char* format, VX_STATUS status) {
  log_line(VX_LOG_ERROR, kFunction, format, static_cast<int>(status), status_text(status));
  release_decoder(object_, c_);
  return VX_COMPRESSION_FAILURE;
}

VX_STATUS Stripper::deliver(const void* data, uint32_t size, bool frame_ended, bool& complete) {
  if (emit_ && sink_.callback != nullptr) {
    const VX_STATUS status = sink_.callback(object_.ID, attribute_.Tag, sink_.user, size,
                                            const_cast<void*>(data), c_.DeliveredBytes == 0 ? 1 : 0, 0);
    if (status != kOk) {
      if (!sink_.quiet)
        VX_LOG_ERR(kFunction, "User callback function returned an error: %s", status_text(status));
      release_decoder(object_, c_);
      return status;
    }
  }
  c_.DeliveredBytes += size;
  if (decoder_ == nullptr) return kOk;
  // Where frames have an odd number of bytes, the decompressor pads its last piece.
  const uint64_t padded = frame_size_ + frame_size_ % 2;
  if (c_.DeliveredBytes > padded || (frame_ended && c_.DeliveredBytes < frame_size_)) {
    VX_LOG_WARN(kFunction, "Frame decompression returned %d bytes, expected frame size %d bytes",
                static_cast<int>(c_.DeliveredBytes), static_cast<int>(frame_size_));
  }
  complete = c_.DeliveredBytes >= frame_size_;
  return kOk;
}

// The closing call to a decompressor: its frame ended in a way that no call with data showed.
VX_STATUS Stripper::complete_frame(bool expects_output) {
  if (!c_.Decoding || c_.DecoderTold) return kOk;
  const void* out = nullptr;
  uint32_t out_size = 0;
  const VX_STATUS status = call_decoder(nullptr, 0, true, out, out_size);
  if (status != kOk) {
    return decoder_failed("Decompression of the unexpected data failed, error [%d] \"%s\"", status);
  }
  bool complete = false;
  return expects_output && out_size != 0 ? deliver(out, out_size, true, complete) : kOk;
}

// A frame that its decompressor ended before the table did: what is left up to the next entry is passed over.
void Stripper::skip_to_next_frame() {
  const uint64_t next = uint64_t{c_.HeadBytes} + table()->entry(c_.FrameIndex);
  const uint32_t skip = next > c_.Position ? static_cast<uint32_t>(next - c_.Position) : 0;
  c_.SegmentRemaining = skip;
  c_.FrameBytes = 0U - skip;
}

VX_STATUS Stripper::end_of_frame() {
  c_.State = VXI_SEGMENT_WAITING_DELIMITER;
  if (frame_mode_) c_.ExpectMoreFrames = false;
  const VX_STATUS released = release_decoder(object_, c_);
  if (released != kOk) {
    VX_LOG_ERR(kFunction, "Decompression of the data release failed, error [%d] \"%s\"",
               static_cast<int>(released), status_text(released));
    return VX_COMPRESSION_FAILURE;
  }
  c_.DeliveredBytes = 0;
  c_.DecoderTold = false;
  if (frames_ == 1) return VX_END_OF_DATA;
  if (const OffsetTable* offsets = table(); offsets != nullptr) {
    if (c_.FrameIndex + 1 >= offsets->count()) return VX_END_OF_DATA;
    ++c_.FrameIndex;
    skip_to_next_frame();
    return VX_END_OF_FRAME;
  }
  ++c_.FrameIndex;
  c_.FrameBytes = 0U - c_.SegmentRemaining;
  if (decoder_ != nullptr && c_.FrameIndex >= frames_) return VX_END_OF_DATA;  // what follows is padding
  if (frame_mode_) return VX_END_OF_FRAME;
  c_.ExpectMoreFrames = true;
  return kOk;
}

}  // namespace vx
