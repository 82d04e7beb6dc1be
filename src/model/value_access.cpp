// What the public value functions do whatever the native type.
#include <algorithm>
#include <cstring>

#include "config/config.h"
#include "frame/log.h"
#include "frame/patience.h"
#include "frame/pool.h"
#include "model/callbacks.h"
#include "model/file_values.h"
#include "model/held.h"
#include "model/values.h"

namespace vx {
namespace {

// What an attribute of length 0 reads as.
VX_STATUS without_data(const TagObj& attribute) {
  return attribute.ValueCount < 1 ? VX_EMPTY_VALUE : VX_NULL_VALUE;
}

VX_STATUS numeric_length(const TagObj& attribute, uint32_t& length) {
  const uint32_t width = vr_width(attribute.VR);
  length = width;
  if (attribute.Length % width == 0) return kOk;
  VX_LOG_WARN("VX_Get_Value_Length", "Total attribute length (%d) not a multiple of size ",
              static_cast<int>(attribute.Length));
  VX_LOG_WARN("VX_Get_Value_Length", "for VR (%s): %d, The length might be truncated.",
              vr_letters(attribute.VR), static_cast<int>(width));
  if (config_bool(VX_CFG_ALLOW_INVALID_LENGTH_FOR_VR)) length = attribute.Length;
  return kOk;
}

// The next piece of a text that is one value whatever the number of pieces that it came in.
VX_STATUS extend_text(TagObj& attribute, const void* data, uint32_t length) {
  drop_kept_text(attribute);
  ValueObj* last = attribute.LastValue;
  if (length > kUndefinedLength - 1 - attribute.Length) return VX_VALUE_TOO_LARGE;
  const uint32_t wanted = last->Length + length;
  if (wanted > piece_capacity(*last)) {
    last = grow_piece(attribute, last, wanted > UINT32_MAX / 2 ? wanted : wanted * 2);
    if (last == nullptr) return VX_SYSTEM_ERROR;
  }
  std::memcpy(static_cast<uint8_t*>(last->Data) + last->Length, data, length);
  last->Length = wanted;
  attribute.Length = wanted;
  return kOk;
}

VX_STATUS store_piece(MsgObj& object, TagObj& attribute, const void* data, uint32_t length, bool first,
                      bool last) {
  if (!first && is_text_vr(attribute.VR) && attribute.Storage == Stored::InMemory &&
      attribute.FirstValue != nullptr && attribute.FirstValue == attribute.LastValue &&
      attribute.FirstValue->Data != nullptr) {
    return extend_text(attribute, data, length);
  }
  return store_value(object, attribute, data, length, {.first = first, .last = last});
}

// Unlinks the value under the cursor, or the first one, and moves the cursor to the one in front.
VX_STATUS unlink_current(TagObj& attribute, ValueObj*& taken) {
  drop_kept_text(attribute);
  ValueObj* previous = attribute.CursorPrevious;
  taken = previous == nullptr ? attribute.FirstValue : attribute.CursorValue;
  if (taken == nullptr) return VX_NO_MORE_VALUES;
  (previous == nullptr ? attribute.FirstValue : previous->Next) = taken->Next;
  if (attribute.LastValue == taken) attribute.LastValue = previous;
  ValueCursor cursor;
  if (previous == nullptr) {
    cursor_first(attribute, cursor);
  } else {
    cursor_nth(attribute, cursor, attribute.CursorNumber - 1);
  }
  set_cursor(attribute, cursor);
  return kOk;
}

}  // namespace

VX_STATUS value_count(const TagObj& attribute, int32_t& count) {
  count = 0;
  if (attribute.Length == 0 && attribute.ValueCount <= 1) return without_data(attribute);
  count = is_bulk_vr(attribute.VR) || attribute.Storage == Stored::ByCallback ? 1 : attribute.ValueCount;
  return kOk;
}

VX_STATUS value_length(MsgObj& object, TagObj& attribute, int32_t number, uint32_t& length) {
  length = 0;
  if (number < 1) return VX_INVALID_VALUE_NUMBER;
  if (attribute.Storage == Stored::ByCallback) {
    const VX_STATUS status = ask_length(object, attribute, length);
    if (status != kOk) return VX_CALLBACK_CANNOT_COMPLY;
    return length == 0 ? VX_EMPTY_VALUE : kOk;
  }
  if (attribute.Length == 0) return without_data(attribute);
  if (is_bulk_vr(attribute.VR)) {
    length = attribute.Length;
    return kOk;
  }
  if (number > attribute.ValueCount) return VX_INVALID_VALUE_NUMBER;
  if (is_numeric_vr(attribute.VR)) return numeric_length(attribute, length);
  ValueCursor cursor;
  if (attribute.Storage == Stored::InFile) {
    length = file_block_length(attribute, number);
    return kOk;
  }
  if (cursor_nth(attribute, cursor, number) != kOk) return VX_INVALID_VALUE_NUMBER;
  length = attribute.VR == VX_VR_SQ ? static_cast<uint32_t>(attribute.ValueCount) : cursor.value->Length;
  return kOk;
}

VX_STATUS value_to_buffer(const TagObj& attribute, uint32_t size, void* buffer, uint32_t& length) {
  if (attribute.VR != VX_VR_UN && attribute.VR != VX_VR_OB && attribute.VR != VX_VR_OW) {
    return VX_INCOMPATIBLE_VR;
  }
  if (attribute.Storage == Stored::ByCallback) return VX_CALLBACK_REGISTERED;
  if (attribute.Length == 0) {
    if (attribute.ValueCount == 0) return VX_EMPTY_VALUE;
    length = 0;
    if (size != 0) *static_cast<char*>(buffer) = '\0';
    return VX_NULL_VALUE;
  }
  length = 0;
  PieceWalk walk(attribute);
  while (const ValueObj* value = walk.next()) {
    if (value->Length > size - length) {
      length = value->Length;
      return VX_BUFFER_TOO_SMALL;
    }
    if (value->Length != 0) std::memcpy(static_cast<uint8_t*>(buffer) + length, value->Data, value->Length);
    length += value->Length;
  }
  return walk.status();
}

VX_STATUS value_to_function(MsgObj& object, TagObj& attribute, void* user, VX_READER_FUNCTION function) {
  const int32_t vr = attribute.VR;
  if (!is_numeric_vr(vr) && !is_bulk_vr(vr) && vr != VX_VR_UR && vr != VX_VR_UT) return VX_INCOMPATIBLE_VR;
  if (attribute.Storage == Stored::ByCallback) return read_from_callback(object, attribute, user, function);
  if (attribute.Length == 0) return without_data(attribute);
  uint32_t total = 0;
  bool first = true;
  const Held held(object, Hold::Value, &attribute);
  PieceWalk walk(attribute);
  while (const ValueObj* value = walk.next()) {
    total += value->Length;
    const bool last = total >= attribute.Length;
    attribute.ReadFinished = last ? 1 : 0;
    attribute.ReadStarted = 1;
    if (function(object.ID, attribute.Tag, user, value->Length, value->Data, first ? 1 : 0, last ? 1 : 0) !=
        kOk) {
      return VX_CALLBACK_CANNOT_COMPLY;
    }
    if (last) break;
    first = false;
  }
  return walk.status() == kOk ? kOk : VX_EMPTY_VALUE;
}

VX_STATUS value_from_buffer(MsgObj& object, TagObj& attribute, const void* buffer, uint32_t length) {
  if (attribute.ValueCount == INT32_MAX) return VX_TOO_MANY_VALUES;
  if (!is_bulk_vr(attribute.VR)) return VX_INCOMPATIBLE_VR;
  if (length % 2 != 0 && attribute.VR != VX_VR_OB) {
    VX_LOG_ERR("VX_Set_Value_From_Buffer",
               "Odd length buffer with an Unknown/OW/OL/OF/OD VR passed to VX_Set_Value_From_Buffer: "
               "tag=0x%8.8lX, length=%ld ",
               static_cast<unsigned long>(attribute.Tag), static_cast<long>(length));
    return VX_INVALID_VALUE_FOR_VR;
  }
  clear_value(object, attribute, false, false);
  return store_value(object, attribute, buffer, length, {});
}

VX_STATUS value_from_function(MsgObj& object, TagObj& attribute, void* user, VX_WRITER_FUNCTION function) {
  const int32_t vr = attribute.VR;
  if ((!is_bulk_vr(vr) || vr == VX_VR_UN) && vr != VX_VR_UR && vr != VX_VR_UT) return VX_INCOMPATIBLE_VR;
  const Held held(object, Hold::Value, &attribute);
  Patience patience;
  for (bool first = true;;) {
    int32_t size = 0;
    void* data = nullptr;
    int32_t last = 0;
    if (function(object.ID, attribute.Tag, first ? 1 : 0, user, &size, &data, &last) != kOk ||
        (last == 0 && patience.ends(static_cast<std::size_t>(size)))) {
      if (!first) clear_value(object, attribute, true, false);
      return VX_CALLBACK_CANNOT_COMPLY;
    }
    if (size == 0) {
      if (last == 0) continue;
      // A value that lives with a callback must still be told of its end.
      return first ? kOk : store_value(object, attribute, nullptr, 0, {.first = false, .last = true});
    }
    if (size % 2 != 0) return VX_CALLBACK_DATA_SIZE_UNEVEN;
    if (size < 0) return VX_CALLBACK_DATA_SIZE_NEGATIVE;
    if (data == nullptr) {
      if (!first) clear_value(object, attribute, true, false);
      return VX_CALLBACK_PARM_ERROR;
    }
    if (first) clear_value(object, attribute, true, false);
    const VX_STATUS status =
        store_piece(object, attribute, data, static_cast<uint32_t>(size), first, last != 0);
    if (status != kOk || last != 0) return status;
    first = false;
  }
}

VX_STATUS delete_current_value(MsgObj& object, TagObj& attribute) {
  if (is_numeric_vr(attribute.VR) || (is_bulk_vr(attribute.VR) && attribute.VR != VX_VR_UN)) {
    return VX_INCOMPATIBLE_VR;
  }
  if (attribute.Length == 0) {
    if (attribute.ValueCount == 0 || attribute.ValueCount < attribute.CursorNumber) return VX_EMPTY_VALUE;
    if (attribute.ValueCount == 1) return VX_NULL_VALUE;
  }
  if (attribute.Storage == Stored::InFile) {
    const int32_t number = std::max(attribute.CursorNumber, 1);
    const VX_STATUS status = delete_file_block(object, attribute, number);
    if (status == kOk) attribute.CursorNumber = std::max(number - 1, 1);
    return status;
  }
  ValueObj* taken = nullptr;
  VX_STATUS status = unlink_current(attribute, taken);
  if (status != kOk) return status;
  --attribute.ValueCount;
  attribute.Length -= attribute.VR == VX_VR_SQ ? 1 : taken->Length;
  if (attribute.VR == VX_VR_SQ && taken->Data != nullptr) {
    auto& item = *static_cast<MsgObj*>(taken->Data);
    const int32_t id = item.ID;
    if (adjust_references(item, -1) <= 0) status = free_item(item, false);
    if (status != kOk) {
      VX_LOG_ERR("VX_Delete_Current_Value", "Item %d does not freed : status = %u\n", id,
                 static_cast<unsigned>(status));
    }
  }
  free_value(taken);
  return status;
}

VX_STATUS swap_value(TagObj& attribute) {
  if (attribute.VR == VX_VR_OB) return kOk;
  if (!is_bulk_vr(attribute.VR) || attribute.VR == VX_VR_UN) return VX_INCOMPATIBLE_VR;
  if (attribute.Storage == Stored::ByCallback) return VX_CALLBACK_REGISTERED;
  if (attribute.Storage == Stored::InFile) return VX_TEMP_FILE_ERROR;
  if (attribute.Length == 0) return without_data(attribute);
  const uint32_t width = vr_width(attribute.VR);
  uint8_t* split[8];  // the bytes so far of an element that lies in two pieces or more
  uint32_t have = 0;
  for (ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    auto* bytes = static_cast<uint8_t*>(value->Data);
    uint32_t left = value->Length;
    while (left != 0 && have != 0) {
      split[have++] = bytes++;
      --left;
      if (have < width) continue;
      for (uint32_t i = 0; i < width / 2; ++i) std::swap(*split[i], *split[width - 1 - i]);
      have = 0;
    }
    const uint32_t whole = left - left % width;
    copy_swapped(bytes, bytes, whole, width);
    for (uint32_t i = whole; i < left; ++i) split[have++] = bytes + i;
  }
  return kOk;
}

VX_STATUS set_null(MsgObj& object, TagObj& attribute) {
  clear_value(object, attribute, false, config_bool(VX_CFG_RELEASE_SQ_ITEMS));
  return append_null(attribute);
}

VX_STATUS set_next_null(TagObj& attribute) {
  if (!is_text_vr(attribute.VR) || is_one_value_text(attribute.VR)) return VX_INCOMPATIBLE_VR;
  if (attribute.ValueCount == INT32_MAX) return VX_TOO_MANY_VALUES;
  return append_null(attribute);
}

}  // namespace vx
