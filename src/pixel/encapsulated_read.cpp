// Delivering an encapsulated value: whole, frame by frame, or one frame by its number.
#include <algorithm>
#include <cstring>

#include "config/config.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "model/seams.h"
#include "pixel/encapsulated.h"
#include "pixel/image.h"
#include "pixel/offset_table.h"
#include "pixel/standard.h"
#include "pixel/strip.h"

namespace vx {
namespace {

constexpr char kFrameFunction[] = "VX_Get_Frame_To_Function";

// The call that ends each delivery.
VX_STATUS closing_call(MsgObj& object, const TagObj& attribute, void* user,
                       VX_Get_Encapsulated_Callback callback) {
  return callback(object.ID, attribute.Tag, user, 0, nullptr, 0, 1);
}

VX_STATUS without_data(const TagObj& attribute) {
  return attribute.ValueCount < 1 ? VX_EMPTY_VALUE : VX_NULL_VALUE;
}

VX_STATUS check_readable(MsgObj& object, const TagObj& attribute) {
  if (attribute.VR < VX_VR_SS || attribute.VR == VX_VR_UN || attribute.VR == VX_VR_SQ)
    return VX_INCOMPATIBLE_VR;
  uint64_t bytes = 0;
  return frame_bytes(object, bytes);
}

// Puts the walk in front of an item; `offset` counts from the first fragment on.
void place_walk(OFFSET_TABLE_CONTEXT& context, uint32_t offset, uint32_t frame) {
  context.State = VXI_SEGMENT_WAITING_DELIMITER;
  context.SegmentRemaining = 0;
  context.FrameBytes = 0;
  context.FrameIndex = frame;
  context.LastFrame = false;
  context.ExpectMoreFrames = false;
  context.Position = context.HeadBytes + offset;
  if (context.Position < context.PieceStart) context.Piece = nullptr;
}

VX_STATUS start_value(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT*& context) {
  context = new_encapsulation(object, true);
  if (context == nullptr) return VX_SYSTEM_ERROR;
  if (VX_STATUS status = read_head(object, attribute, *context); status != kOk) {
    release_encapsulation_state(object);
    return status;
  }
  place_walk(*context, 0, 0);
  return find_fragments(object, attribute, *context);
}

// --- One frame ---

// Offsets of frames in a value without a table are noted as they are found.
VX_STATUS note_offset(OFFSET_TABLE_CONTEXT& context, uint32_t frame, uint32_t offset) {
  OffsetTable*& table = context.AuxiliaryTable;
  if (table == nullptr && !append_offset(table, context.AuxiliaryRoom, 0)) return VX_SYSTEM_ERROR;
  const uint32_t count = table->count();
  if (frame == count) return append_offset(table, context.AuxiliaryRoom, offset) ? kOk : VX_SYSTEM_ERROR;
  if (frame != 0 && frame < count) {
    std::memcpy(reinterpret_cast<uint8_t*>(table->Entries) + 4 * std::size_t{frame}, &offset, sizeof offset);
    return kOk;
  }
  VX_LOG_ERR(kFrameFunction,
             "Unable to update auxiliary offset table with <%d> entries, invalid frame number <%d>",
             static_cast<int>(count), static_cast<int>(frame));
  return VX_INVALID_VALUE_NUMBER;
}

// Where the walk to a frame may begin: the frame itself by the value's table, else the nearest known one.
VX_STATUS find_frame_offset(const OFFSET_TABLE_CONTEXT& context, uint32_t frame, uint32_t& known,
                            uint32_t& offset) {
  const OffsetTable* table = context.TableUsable ? context.MainTable : context.AuxiliaryTable;
  known = 0;
  offset = 0;
  if (table == nullptr || table->count() == 0) return VX_EMPTY_VALUE;
  known = std::min(frame, table->count() - 1);
  offset = table->entry(known);
  return known == frame ? kOk : VX_NO_MORE_VALUES;
}

VX_STATUS walk_to_frame(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context, uint32_t frame,
                        void* user, VX_Get_Encapsulated_Callback callback) {
  uint32_t at = 0;
  uint32_t offset = 0;
  VX_STATUS status = settle_table(object, attribute, context, frame);
  if (status != kOk) return status;
  status = find_frame_offset(context, frame, at, offset);
  if (status == VX_NO_MORE_VALUES && context.TableUsable) {
    VX_LOG_ERR(kFrameFunction, "Unable to access frame from main offset table, out of range error");
    return status;
  }
  place_walk(context, offset, at);
  const uint32_t frames = frame_count(object);
  for (;; ++at) {
    const bool wanted = at == frame;
    Stripper stripper(object, attribute, context, {callback, user}, true, object.Decompressor);
    stripper.start_frame();
    status = stripper.walk(wanted);
    if (status == kOk || status == VX_END_OF_DATA) {
      context.LastFrame = true;
      const bool complete = wanted && (status == VX_END_OF_DATA || context.DeliveredBytes != 0);
      return complete ? kOk : VX_NO_MORE_VALUES;
    }
    if (status != VX_END_OF_FRAME) break;
    if (!context.TableUsable && at + 1 < frames) {
      const uint32_t next = context.Position + context.SegmentRemaining - context.HeadBytes;
      if (VX_STATUS noted = note_offset(context, at + 1, next); noted != kOk) return noted;
    }
    if (wanted) return kOk;
  }
  VX_LOG_ERR(kFrameFunction, "Unable to access frame <%d>, error <%s>", static_cast<int>(at),
             status_text(status));
  return status;
}

VX_STATUS get_encapsulated_frame(MsgObj& object, TagObj& attribute, uint32_t frame, void* user,
                                 VX_Get_Encapsulated_Callback callback) {
  if (attribute.Length == 0) return without_data(attribute);
  OFFSET_TABLE_CONTEXT* context = encapsulation(object);
  if (context == nullptr || context->HeadBytes == 0) {
    if (VX_STATUS status = start_value(object, attribute, context); status != kOk) return status;
  }
  query_image_header_if_wanted(object, attribute);
  const VX_STATUS status = walk_to_frame(object, attribute, *context, frame, user, callback);
  return status == kOk ? closing_call(object, attribute, user, callback) : status;
}

// Frames of single bits follow each other without a gap: behind the first one they begin at a byte only by
// chance.
bool starts_at_a_byte(MsgObj& object, uint32_t frame) {
  uint32_t bits = 0;
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t samples = 0;
  read_number(object, kBitsAllocated, bits);
  read_number(object, kRows, rows);
  read_number(object, kColumns, columns);
  read_number(object, kSamplesPerPixel, samples);
  return bits != 1 || frame == 0 || uint64_t{rows} * columns * samples % 8 == 0;
}

VX_STATUS get_native_frame(MsgObj& object, TagObj& attribute, uint32_t frame, void* user,
                           VX_Get_Encapsulated_Callback callback) {
  if (frame >= frame_count(object)) return VX_NO_MORE_VALUES;
  if (attribute.Length == 0 && attribute.Storage != Stored::ByCallback) return without_data(attribute);
  uint64_t bytes = 0;
  if (VX_STATUS status = frame_bytes(object, bytes); status != kOk) return status;
  if (!starts_at_a_byte(object, frame)) return VX_EMPTY_VALUE;
  uint64_t start = 0;
  if (__builtin_mul_overflow(bytes, uint64_t{frame}, &start) || start > UINT32_MAX ||
      bytes > UINT32_MAX - start) {
    return VX_NO_MORE_VALUES;
  }
  ValueSource source(object, attribute);
  ValueObj* piece = nullptr;
  uint32_t piece_start = 0;
  auto position = static_cast<uint32_t>(start);
  for (uint64_t left = bytes; left != 0;) {
    const uint8_t* data = nullptr;
    uint32_t size = 0;
    if (VX_STATUS status = source.at(position, piece, piece_start, data, size); status != kOk) return status;
    if (size == 0) return VX_NO_MORE_VALUES;
    size = static_cast<uint32_t>(std::min<uint64_t>(size, left));
    const VX_STATUS status =
        callback(object.ID, attribute.Tag, user, size, const_cast<uint8_t*>(data), left == bytes ? 1 : 0, 0);
    if (status != kOk) return status;
    left -= size;
    position += size;
  }
  return closing_call(object, attribute, user, callback);
}

}  // namespace

VX_STATUS get_encapsulated(MsgObj& object, TagObj& attribute, void* user,
                           VX_Get_Encapsulated_Callback callback, bool next) {
  VX_STATUS status = VX_INCOMPATIBLE_VR;
  if (attribute.VR < VX_VR_SS || attribute.VR == VX_VR_UN || attribute.VR == VX_VR_SQ) return status;
  VX_TRANSFER_SYNTAX syntax = 0;
  if (status = encapsulated_syntax(object, syntax); status != kOk) return status;
  if (status = check_readable(object, attribute); status != kOk) return status;
  query_image_header_if_wanted(object, attribute);
  if (attribute.Length == 0) return without_data(attribute);
  OFFSET_TABLE_CONTEXT* context = encapsulation(object);
  if (!next || context == nullptr || context->HeadBytes == 0) {
    if (status = start_value(object, attribute, context); status != kOk) return status;
  }
  if (context->LastFrame) return VX_NO_MORE_VALUES;
  if (status = settle_table(object, attribute, *context, context->FrameIndex); status != kOk) return status;
  Stripper stripper(object, attribute, *context, {callback, user}, false, object.Decompressor);
  stripper.start_frame();
  status = stripper.walk(true);
  if (status == VX_END_OF_FRAME) {
    const VX_STATUS closed = closing_call(object, attribute, user, callback);
    return closed == kOk ? VX_END_OF_FRAME : closed;
  }
  if (status != kOk && status != VX_END_OF_DATA) return status;
  context->LastFrame = true;
  return closing_call(object, attribute, user, callback);
}

VX_STATUS get_frame(MsgObj& object, TagObj& attribute, int32_t frame, void* user,
                    VX_Get_Encapsulated_Callback callback) {
  if (VX_STATUS status = check_readable(object, attribute); status != kOk) return status;
  if (frame < 0) return VX_EMPTY_VALUE;
  VX_TRANSFER_SYNTAX syntax = 0;
  const bool encapsulated = encapsulated_syntax(object, syntax) == kOk;
  const auto number = static_cast<uint32_t>(frame);
  const VX_STATUS status = encapsulated ? get_encapsulated_frame(object, attribute, number, user, callback)
                                        : get_native_frame(object, attribute, number, user, callback);
  if (status != kOk) {
    VX_LOG_ERR(kFrameFunction, "Failed to retrieve frame <%d>, error: %s", static_cast<int>(frame),
               status_text(status));
  }
  return status;
}

VX_STATUS get_offset_table(MsgObj& object, TagObj& attribute, void* user,
                           VX_Get_Encapsulated_Callback callback) {
  VX_TRANSFER_SYNTAX syntax = 0;
  if (encapsulated_syntax(object, syntax) != kOk) return VX_EMPTY_VALUE;
  OFFSET_TABLE_CONTEXT read{};
  const OFFSET_TABLE_CONTEXT* context = encapsulation(object);
  VX_STATUS status = kOk;
  if (context == nullptr) {
    status = read_head(object, attribute, read);
    context = &read;
  }
  const OffsetTable* table = context->MainTable;
  if (status == kOk && (table == nullptr || table->Length == 0)) status = VX_EMPTY_VALUE;
  if (status == kOk) {
    // Length and entries follow each other, and the machine's order is the one that is asked for.
    status = callback(object.ID, attribute.Tag, user, table->Length + 4,
                      const_cast<uint32_t*>(&table->Length), 1, 0);
    if (status == kOk) status = closing_call(object, attribute, user, callback);
  }
  release(read.MainTable);
  return status;
}

}  // namespace vx
