// Building an encapsulated value.
#include <algorithm>
#include <cstring>

#include "config/config.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/patience.h"
#include "frame/pool.h"
#include "model/callbacks.h"
#include "model/file_values.h"
#include "model/seams.h"
#include "pixel/compression.h"
#include "pixel/encapsulated.h"
#include "pixel/image.h"

namespace vx {
namespace {

bool is_video(VX_TRANSFER_SYNTAX syntax) {
  return syntax == MPEG2_MPML || (syntax >= MPEG2_MPHL && syntax <= MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2) ||
         syntax == HEVC_H265_MP_LEVEL_5_1 || syntax == HEVC_H265_M10P_LEVEL_5_1;
}

std::size_t table_size(uint32_t room) {
  return sizeof(OffsetTable) + room;
}

// The table's item in stream form, into `bytes`, which has room for it.
void write_table_item(uint8_t* bytes, const OffsetTable* table) {
  const uint32_t length = table != nullptr ? table->Length : 0;
  store_tag(bytes, kItemTag, false);
  store32(bytes + 4, length, false);
  if (length != 0) std::memcpy(bytes + kItemHeader, table->Entries, length);
}

VX_STATUS provide_table(MsgObj& object, TagObj& attribute, const OffsetTable* table, uint32_t grown) {
  uint32_t size = kItemHeader + (table != nullptr ? table->Length : 0);
  auto* bytes = static_cast<uint8_t*>(allocate_raw(size));
  if (bytes == nullptr) return VX_SYSTEM_ERROR;
  write_table_item(bytes, table);
  void* data = bytes;
  const VX_STATUS status =
      call_value_callback(object, attribute, VX_PROVIDE_OFFSET_TABLE, &size, &data, grown == size, nullptr);
  release(bytes);
  if (status == kOk) {
    attribute.Length = (attribute.Length == kUndefinedLength ? 0 : attribute.Length) + grown;
    attribute.ValueCount = 1;
  }
  return status;
}

VX_STATUS write_table_to_file(MsgObj& object, TagObj& attribute, const OffsetTable* table, bool keep) {
  const uint32_t size = kItemHeader + (table != nullptr ? table->Length : 0);
  auto* bytes = static_cast<uint8_t*>(allocate_raw(size));
  if (bytes == nullptr) return VX_SYSTEM_ERROR;
  write_table_item(bytes, table);
  const VX_STATUS status = set_first_in_file(object, attribute, bytes, size, keep);
  release(bytes);
  return status;
}

VX_STATUS store_first_table(MsgObj& object, TagObj& attribute, const OffsetTable* table) {
  const uint32_t size = kItemHeader + (table != nullptr ? table->Length : 0);
  if (attribute.Storage == Stored::ByCallback) {
    attribute.Length = 0;
    return provide_table(object, attribute, table, size);
  }
  if (attribute.Storage == Stored::InFile) return write_table_to_file(object, attribute, table, false);
  void* room = nullptr;
  const VX_STATUS status = reserve_value(object, attribute, size, true, room);
  if (status == kOk) write_table_item(static_cast<uint8_t*>(room), table);
  return status;
}

// The first piece of a value in memory holds the table's item and nothing else; it grows by doubling.
VX_STATUS rewrite_table(MsgObj& object, TagObj& attribute, const OffsetTable* table) {
  if (attribute.Storage == Stored::ByCallback) return provide_table(object, attribute, table, 4);
  const uint32_t size = kItemHeader + table->Length;
  if (attribute.Storage == Stored::InFile) {
    if (file_block_length(attribute, 1) + 4 != size) return VX_SYSTEM_ERROR;
    return write_table_to_file(object, attribute, table, true);
  }
  ValueObj* piece = attribute.FirstValue;
  if (piece == nullptr || piece->Length + 4 != size) return VX_SYSTEM_ERROR;
  if (attribute.Length > kUndefinedLength - 5) return VX_VALUE_TOO_LARGE;
  if (size > piece_capacity(*piece)) {
    piece = grow_piece(attribute, piece, size * 2);
    if (piece == nullptr) return VX_SYSTEM_ERROR;
    attribute.CursorValue = attribute.CursorPrevious = nullptr;
    attribute.CursorNumber = 0;
  }
  piece->Length = size;
  attribute.Length += 4;
  write_table_item(static_cast<uint8_t*>(piece->Data), table);
  return kOk;
}

VX_STATUS begin_value(MsgObj& object, TagObj& attribute) {
  if (!config_bool(VX_CFG_CREATE_OFFSET_TABLE)) {
    release_encapsulation_state(object);
    return store_first_table(object, attribute, nullptr);
  }
  OFFSET_TABLE_CONTEXT* context = new_encapsulation(object, false);
  if (context == nullptr) return VX_SYSTEM_ERROR;
  if (!append_offset(context->MainTable, context->TableRoom, 0)) return VX_SYSTEM_ERROR;
  return store_first_table(object, attribute, context->MainTable);
}

VX_STATUS begin_frame(MsgObj& object, TagObj& attribute) {
  OFFSET_TABLE_CONTEXT* context = encapsulation(object);
  if (!config_bool(VX_CFG_CREATE_OFFSET_TABLE) || context == nullptr || context->MainTable == nullptr)
    return kOk;
  if (!append_offset(context->MainTable, context->TableRoom, context->FrameBytes)) return VX_SYSTEM_ERROR;
  return rewrite_table(object, attribute, context->MainTable);
}

VX_STATUS store_item(MsgObj& object, TagObj& attribute, const void* data, uint32_t size) {
  const uint32_t pad = size % 2;
  const auto header = [&](uint8_t* bytes) {
    store_tag(bytes, kItemTag, false);
    store32(bytes + 4, size + pad, false);
  };
  if (attribute.Storage != Stored::InMemory) {
    uint8_t bytes[kItemHeader];
    header(bytes);
    VX_STATUS status = store_value(object, attribute, bytes, sizeof bytes, {.first = false, .last = false});
    if (status == kOk) status = store_value(object, attribute, data, size, {.first = false, .last = false});
    if (status == kOk && pad != 0)
      status = store_value(object, attribute, "", 1, {.first = false, .last = false});
    return status;
  }
  if (size > kUndefinedLength - kItemHeader - 2) return VX_VALUE_TOO_LARGE;
  void* room = nullptr;
  const VX_STATUS status = reserve_value(object, attribute, kItemHeader + size + pad, false, room);
  if (status != kOk) return status;
  auto* bytes = static_cast<uint8_t*>(room);
  header(bytes);
  std::memcpy(bytes + kItemHeader, data, size);
  if (pad != 0) bytes[kItemHeader + size] = 0;
  return kOk;
}

// One call of VX_Set_Encapsulated_Value_From_Function or its Next.
class FrameWriter {
 public:
  FrameWriter(MsgObj& object, TagObj& attribute, bool first_frame, bool video)
      : object_(object),
        attribute_(attribute),
        first_of_value_(first_frame),
        video_(video),
        codec_(object, object.Compressor) {}

  VX_STATUS run(void* user, VX_Set_Encapsulated_Callback callback) {
    int32_t last = 0;
    Patience patience;
    for (bool first_pass = true; last == 0; first_pass = false) {
      uint32_t size = 0;
      void* data = nullptr;
      if (callback(object_.ID, attribute_.Tag, first_pass ? 1 : 0, user, &size, &data, &last) != kOk ||
          (last == 0 && patience.ends(size))) {
        if (!first_pass && first_frame()) remove();
        return end(VX_CALLBACK_CANNOT_COMPLY);
      }
      if (size == 0) {
        if (last != 0 && codec_.running()) {
          if (VX_STATUS status = pass_on(nullptr, 0, true); status != kOk) return end(status);
        }
        continue;
      }
      if (size % 2 != 0) return end(VX_CALLBACK_DATA_SIZE_UNEVEN);
      if (data == nullptr) {
        if (!first_pass) remove();
        return end(VX_CALLBACK_PARM_ERROR);
      }
      if (!data_seen_ && first_frame_) {
        clear_value(object_, attribute_, true, false);
        if (goes_to_file(object_, attribute_, size)) {
          if (VX_STATUS status = begin_file_value(object_, attribute_); status != kOk) return end(status);
        }
      }
      data_seen_ = true;
      if (VX_STATUS status = pass_on(data, size, last != 0); status != kOk) return end(status);
    }
    if (video_) {
      if (VX_STATUS status = patch_video_length(); status != kOk) return end(status);
    }
    return codec_.finish();
  }

 private:
  bool first_frame() const { return first_frame_; }
  void remove() { clear_value(object_, attribute_, true, false); }
  VX_STATUS end(VX_STATUS status) {
    codec_.abandon();
    return status;
  }
  // Through the compressor, if there is one, into the value.
  VX_STATUS pass_on(const void* data, uint32_t size, bool last) {
    if (codec_.present()) {
      if (VX_STATUS status = codec_.call(data, size, last, data, size); status != kOk) return status;
    }
    if (size == 0) return kOk;
    if (video_) return append_video(data, size);
    const VX_STATUS status =
        store_fragment(object_, attribute_, data, size, {first_of_value_, first_of_frame_});
    first_of_value_ = first_of_frame_ = false;
    return status;
  }
  // A video is one fragment, whose length is known at its end.
  VX_STATUS append_video(const void* data, uint32_t size) {
    uint32_t total = 0;
    if (__builtin_add_overflow(video_bytes_, size, &total) || total > kUndefinedLength - 64)
      return VX_VALUE_TOO_LARGE;
    video_bytes_ = total;
    if (first_of_value_) {
      first_of_value_ = false;
      return store_fragment(object_, attribute_, data, size, {true, true});
    }
    if (OFFSET_TABLE_CONTEXT* context = encapsulation(object_); context != nullptr)
      context->FrameBytes += size;
    return store_value(object_, attribute_, data, size, {.first = false, .last = false});
  }
  VX_STATUS patch_video_length() {
    if (video_bytes_ == 0) return kOk;
    const uint32_t length = video_bytes_ + video_bytes_ % 2;
    if (length != video_bytes_) {
      if (VX_STATUS status = store_value(object_, attribute_, "", 1, {.first = false, .last = false});
          status != kOk) {
        return status;
      }
    }
    if (attribute_.Storage == Stored::ByCallback) {
      uint32_t size = length;
      return call_value_callback(object_, attribute_, VX_PROVIDE_LENGTH, &size, nullptr, false, nullptr);
    }
    if (attribute_.Storage == Stored::InFile) return patch_fragment_length(attribute_, length);
    const ValueObj* item = attribute_.FirstValue != nullptr ? attribute_.FirstValue->Next : nullptr;
    if (item == nullptr || item->Length < kItemHeader) return VX_SYSTEM_ERROR;
    store32(static_cast<uint8_t*>(item->Data) + 4, length, false);
    return kOk;
  }

  MsgObj& object_;
  TagObj& attribute_;
  bool first_of_value_;
  const bool first_frame_ = first_of_value_;
  bool first_of_frame_ = true;
  const bool video_;
  bool data_seen_ = false;
  uint32_t video_bytes_ = 0;
  CodecRun codec_;
};

}  // namespace

bool append_offset(OffsetTable*& table, uint32_t& room, uint32_t offset) {
  const uint32_t length = table != nullptr ? table->Length : 0;
  if (length > UINT32_MAX / 2) return false;
  if (table == nullptr || length + 4 > room) {
    const uint32_t next = std::max(32U, length * 2);
    auto* grown = static_cast<OffsetTable*>(reallocate(table_size(next), table));
    if (grown == nullptr) return false;
    table = grown;
    room = next;
  }
  table->Tag = kItemTag;
  table->Length = length + 4;
  std::memcpy(reinterpret_cast<uint8_t*>(table->Entries) + length, &offset, sizeof offset);
  return true;
}

VX_STATUS store_fragment(MsgObj& object, TagObj& attribute, const void* data, uint32_t size,
                         FragmentPlace place) {
  VX_STATUS status = kOk;
  if (place.first_of_value) {
    status = begin_value(object, attribute);
  } else if (place.first_of_frame) {
    status = begin_frame(object, attribute);
  }
  if (status == kOk) status = store_item(object, attribute, data, size);
  if (status != kOk || !config_bool(VX_CFG_CREATE_OFFSET_TABLE)) return status;
  if (OFFSET_TABLE_CONTEXT* context = encapsulation(object); context != nullptr) {
    context->FrameBytes += kItemHeader + size + size % 2;
  }
  return kOk;
}

VX_STATUS set_encapsulated(MsgObj& object, TagObj& attribute, void* user,
                           VX_Set_Encapsulated_Callback callback, bool first_frame) {
  VX_TRANSFER_SYNTAX syntax = 0;
  if (VX_STATUS status = encapsulated_syntax(object, syntax); status != kOk) return status;
  release(attribute.AuxBuffer);  // the image header, which was of the former value
  attribute.AuxBuffer = nullptr;
  return FrameWriter(object, attribute, first_frame, first_frame && is_video(syntax)).run(user, callback);
}

VX_STATUS close_encapsulated(MsgObj& object, TagObj& attribute) {
  VX_TRANSFER_SYNTAX syntax = 0;
  if (VX_STATUS status = encapsulated_syntax(object, syntax); status != kOk) return status;
  if (config_bool(VX_CFG_CREATE_OFFSET_TABLE)) {
    const OFFSET_TABLE_CONTEXT* context = encapsulation(object);
    if (context == nullptr || context->FrameBytes == 0) return VX_INVALID_TAG;
  }
  uint8_t delimiter[kItemHeader] = {};
  store_tag(delimiter, kSequenceEnd, false);
  return store_value(object, attribute, delimiter, sizeof delimiter, {.first = false, .last = true});
}

}  // namespace vx
