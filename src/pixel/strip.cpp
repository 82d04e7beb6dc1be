#include "pixel/strip.h"

#include <algorithm>
#include <cstring>

#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "model/callbacks.h"
#include "model/file_values.h"
#include "model/seams.h"
#include "model/values.h"
#include "pixel/image.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_stripItems";

}  // namespace

// --- The pieces of a value ---

VX_STATUS ValueSource::at(uint32_t position, ValueObj*& piece, uint32_t& piece_start, const uint8_t*& data,
                          uint32_t& size) {
  data = nullptr;
  size = 0;
  if (attribute_.Storage == Stored::ByCallback) return from_callback(position, data, size);
  if (attribute_.Storage == Stored::InFile) return from_file(position, data, size);
  if (piece == nullptr || position < piece_start) {
    piece = attribute_.FirstValue;
    piece_start = 0;
  }
  while (piece != nullptr && position - piece_start >= piece->Length) {
    piece_start += piece->Length;
    piece = piece->Next;
  }
  if (piece == nullptr) return kOk;
  data = static_cast<const uint8_t*>(piece->Data) + (position - piece_start);
  size = piece->Length - (position - piece_start);
  return kOk;
}

ValueSource::~ValueSource() {
  if (block_ != nullptr) free_value(block_);
}

VX_STATUS ValueSource::from_file(uint32_t position, const uint8_t*& data, uint32_t& size) {
  int32_t number = std::max(block_number_, 1);
  uint32_t start = block_start_;
  if (position < start) {
    number = 1;
    start = 0;
  }
  uint32_t length = 0;
  for (; number <= attribute_.ValueCount; ++number, start += length) {
    length = file_block_length(attribute_, number);
    if (position - start < length) break;
  }
  if (number > attribute_.ValueCount) return kOk;
  if (block_ == nullptr || number != block_number_) {
    if (block_ != nullptr) free_value(block_);
    block_number_ = 0;
    block_start_ = 0;
    if (VX_STATUS status = read_file_block(attribute_, number, block_); status != kOk) return status;
    block_number_ = number;
    block_start_ = start;
  }
  data = static_cast<const uint8_t*>(block_->Data) + (position - start);
  size = block_->Length - (position - start);
  return kOk;
}

VX_STATUS ValueSource::from_callback(uint32_t position, const uint8_t*& data, uint32_t& size) {
  if (attribute_.Length != kUndefinedLength && position >= attribute_.Length) return kOk;
  uint32_t length = attribute_.ValueOffset + position;
  void* bytes = nullptr;
  int32_t last = 0;
  const VX_STATUS status =
      call_value_callback(object_, attribute_, VX_REQUEST_DATA_AT_OFFSET, &length, &bytes, first_, &last);
  first_ = false;
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "Registered callback function returned an error: %s", status_text(status));
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  if (length > INT32_MAX) {
    VX_LOG_ERR(kFunction, "Callback returned length > %d", INT32_MAX);
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  if (length != 0 && bytes == nullptr) return VX_CALLBACK_CANNOT_COMPLY;
  length = std::min(length, attribute_.Length - position);  // an undefined length is the largest number
  data = static_cast<const uint8_t*>(bytes);
  size = length;
  return kOk;
}

VX_STATUS ValueSource::copy(uint32_t position, uint32_t n, void* to) {
  auto* out = static_cast<uint8_t*>(to);
  while (n != 0) {
    const uint8_t* data = nullptr;
    uint32_t size = 0;
    if (VX_STATUS status = at(position, piece_, piece_start_, data, size); status != kOk) return status;
    if (size == 0) return VX_ENCAPSULATED_TOO_SHORT;
    size = std::min(size, n);
    std::memcpy(out, data, size);
    out += size;
    position += size;
    n -= size;
  }
  return kOk;
}

// --- The context ---

OFFSET_TABLE_CONTEXT* encapsulation(MsgObj& object) {
  return static_cast<OFFSET_TABLE_CONTEXT*>(object.EncapsulationState);
}

OFFSET_TABLE_CONTEXT* new_encapsulation(MsgObj& object, bool keep_auxiliary) {
  OffsetTable* auxiliary = nullptr;
  uint32_t room = 0;
  bool to_rgb = false;
  if (OFFSET_TABLE_CONTEXT* old = encapsulation(object); old != nullptr) {
    if (keep_auxiliary) {
      auxiliary = old->AuxiliaryTable;
      room = old->AuxiliaryRoom;
      old->AuxiliaryTable = nullptr;
      to_rgb = old->ToRgb;
    }
    release_encapsulation_state(object);
  }
  auto* context = static_cast<OFFSET_TABLE_CONTEXT*>(allocate(sizeof(OFFSET_TABLE_CONTEXT)));
  if (context == nullptr) {
    VX_LOG_ERR(kFunction, "Failed to allocate OFFSET_TABLE_CONTEXT");
    release(auxiliary);
    return nullptr;
  }
  context->AuxiliaryTable = auxiliary;
  context->AuxiliaryRoom = room;
  context->ToRgb = to_rgb;
  object.EncapsulationState = context;
  return context;
}

void release_encapsulation_state(MsgObj& object) {
  OFFSET_TABLE_CONTEXT* context = encapsulation(object);
  if (context == nullptr) return;
  object.EncapsulationState = nullptr;
  release_decoder(object, *context);
  release(context->MainTable);
  release(context->AuxiliaryTable);
  release(context);
}

VX_STATUS release_decoder(MsgObj& object, OFFSET_TABLE_CONTEXT& context) {
  if (!context.Decoding) return kOk;
  context.Decoding = false;
  void* bytes = nullptr;
  uint32_t size = 0;
  const auto callback = reinterpret_cast<VX_COMPRESSION_CALLBACK>(object.Decompressor);
  const VX_STATUS status =
      callback != nullptr ? callback(object.ID, &context.Decoder, 0, nullptr, &size, &bytes, 0, 0, 1) : kOk;
  context.Decoder = nullptr;
  return status;
}

namespace {

// Entries must ascend from the first fragment on and stay inside the value.
bool table_fits(const OffsetTable& table, uint32_t frames, uint32_t value_length) {
  const uint32_t count = table.count();
  if (count == 0 || table.Length % 4 != 0 || table.entry(0) != 0) return false;
  if (count != frames) {
    VX_LOG_WARN(kFunction, "Offset table with %u entries, the image has %u frames", count, frames);
  }
  const uint64_t room = value_length == kUndefinedLength ? UINT64_MAX : uint64_t{value_length};
  for (uint32_t i = 1; i < count; ++i) {
    if (table.entry(i) <= table.entry(i - 1)) return false;
  }
  return uint64_t{table.entry(count - 1)} + table.Length + 2 * kItemHeader <= room;
}

// The entries arrive in steps: an announced length is believed as far as there are bytes.
VX_STATUS read_table(ValueSource& source, uint32_t length, OFFSET_TABLE_CONTEXT& context) {
  for (uint32_t done = 0; done < length || context.MainTable == nullptr;) {
    const uint32_t step = std::min<uint32_t>(length - done, kReadChunk);
    auto* grown = static_cast<OffsetTable*>(
        reallocate(sizeof(OffsetTable) + std::size_t{done} + step, context.MainTable));
    if (grown == nullptr) return VX_SYSTEM_ERROR;
    context.MainTable = grown;
    grown->Tag = kItemTag;
    grown->Length = 0;
    VX_STATUS status =
        source.copy(kItemHeader + done, step, reinterpret_cast<uint8_t*>(grown->Entries) + done);
    if (status != kOk) return status;
    done += step;
    grown->Length = done;
  }
  context.TableRoom = length;
  return kOk;
}

}  // namespace

VX_STATUS read_head(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context) {
  ValueSource source(object, attribute);
  uint8_t header[kItemHeader];
  if (VX_STATUS status = source.copy(0, sizeof header, header); status != kOk) return status;
  if (load_tag(header, false) != kItemTag) return VX_MISSING_DELIMITER;
  const uint32_t length = load32(header + 4, false);
  const uint32_t total = source.length();
  if (length > (total == kUndefinedLength ? UINT32_MAX / 2 : total - kItemHeader))
    return VX_ENCAPSULATED_TOO_SHORT;
  release(context.MainTable);
  context.MainTable = nullptr;
  if (VX_STATUS status = read_table(source, length, context); status != kOk) return status;
  const uint32_t frames = frame_count(object);
  context.HeadBytes = kItemHeader + length;
  context.TableUsable = frames > 1 && length != 0 && table_fits(*context.MainTable, frames, total);
  if (frames > 1 && length != 0 && !context.TableUsable) {
    VX_LOG_WARN(kFunction, "The offset table does not fit its value and is passed over");
  }
  return kOk;
}

const OffsetTable* table_in_use(const OFFSET_TABLE_CONTEXT& context, uint32_t frames) {
  if (context.TableUsable) return context.MainTable;
  const OffsetTable* made = context.AuxiliaryTable;
  return made != nullptr && frames > 1 && made->count() == frames ? made : nullptr;
}

namespace {

// Offsets of frames, as many as are wanted and one more at most.
struct FoundFrames {
  OffsetTable* table = nullptr;
  uint32_t room = 0;
  uint32_t count = 0;

  bool add(uint64_t offset, uint32_t wanted) {
    return count++ > wanted || append_offset(table, room, static_cast<uint32_t>(offset));
  }
};

// If a fragment begins a code stream of JPEG, JPEG-LS or JPEG 2000, and if it ends one.
void read_marks(ValueSource& source, uint32_t at, uint32_t length, bool& begins, bool& ends) {
  uint8_t first[2] = {};
  uint8_t last[3] = {};
  begins = length >= 2 && source.copy(at, 2, first) == kOk && first[0] == 0xFF &&
           (first[1] == 0xD8 || first[1] == 0x4F);
  ends = length >= 3 && source.copy(at + length - 3, 3, last) == kOk;
  const uint8_t* end = last[2] == 0 ? last : last + 1;  // a pad may stand behind it
  ends = ends && end[0] == 0xFF && end[1] == 0xD9;
}

// True if the frame begins and ends with a fragment where the table says so.
bool table_holds(MsgObj& object, TagObj& attribute, const OFFSET_TABLE_CONTEXT& context, uint32_t frame) {
  const OffsetTable& table = *context.MainTable;
  if (attribute.Storage == Stored::ByCallback || frame >= table.count()) return true;
  ValueSource source(object, attribute);
  source.begin_at(context.Piece, context.PieceStart);
  const bool last = frame + 1 == table.count();
  const uint64_t end = uint64_t{context.HeadBytes} + (last ? 0 : table.entry(frame + 1));
  uint64_t position = uint64_t{context.HeadBytes} + table.entry(frame);
  // Of the last frame the head tells: what follows is its own.
  for (bool first = true; first || (!last && position < end); first = false) {
    uint8_t header[kItemHeader];
    if (position + kItemHeader > source.length() ||
        source.copy(static_cast<uint32_t>(position), sizeof header, header) != kOk ||
        load_tag(header, false) != kItemTag) {
      return false;
    }
    position += kItemHeader + uint64_t{load32(header + 4, false)};
  }
  return last || position == end;
}

}  // namespace

VX_STATUS find_fragments(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context) {
  const uint32_t frames = frame_count(object);
  if (frames == 1 || attribute.Storage == Stored::ByCallback || table_in_use(context, frames) != nullptr)
    return kOk;
  ValueSource source(object, attribute);
  FoundFrames fragments;
  FoundFrames streams;
  bool ended = true;
  VX_STATUS status = kOk;
  for (uint64_t position = context.HeadBytes; position + kItemHeader <= source.length();) {
    uint8_t header[kItemHeader];
    status = source.copy(static_cast<uint32_t>(position), sizeof header, header);
    if (status != kOk || load_tag(header, false) != kItemTag) break;
    const uint32_t length = load32(header + 4, false);
    const uint64_t offset = position - context.HeadBytes;
    position += kItemHeader;
    const bool follows_end = ended;
    bool begins = false;
    if (position + length <= source.length())
      read_marks(source, static_cast<uint32_t>(position), length, begins, ended);
    if (!fragments.add(offset, frames) || (begins && follows_end && !streams.add(offset, frames))) {
      status = VX_SYSTEM_ERROR;
      break;
    }
    position += length;
  }
  // Where the fragments outnumber the frames, only the code streams in them can tell.
  FoundFrames& found = fragments.count == frames ? fragments : streams;
  if (status == kOk && found.count == frames && found.table->entry(0) == 0) {
    release(context.AuxiliaryTable);
    context.AuxiliaryTable = found.table;
    context.AuxiliaryRoom = found.room;
    found.table = nullptr;
  }
  release(fragments.table);
  release(streams.table);
  return status == VX_SYSTEM_ERROR ? status : kOk;
}

VX_STATUS settle_table(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context, uint32_t frame) {
  if (!context.TableUsable || table_holds(object, attribute, context, frame)) return kOk;
  VX_LOG_WARN(kFunction, "The offset table does not fit its value and is passed over");
  context.TableUsable = false;
  return find_fragments(object, attribute, context);
}

// --- The walk ---

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
