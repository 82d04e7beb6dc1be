// Value chains: pieces, cursors, storing and clearing.
#include "model/values.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstring>
#include <new>
#include <unordered_set>
#include <vector>

#include "config/config.h"
#include "frame/checked.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "model/callbacks.h"
#include "model/file_values.h"
#include "model/seams.h"

namespace vx {
static_assert(std::endian::native == std::endian::little);
namespace {

// Numeric values count by number: their cursor has no place in the chain.
bool counts_by_number(const TagObj& attribute) {
  return is_numeric_vr(attribute.VR) || attribute.Storage == Stored::InFile;
}

void free_chain(ValueObj* value) {
  while (value != nullptr) {
    ValueObj* next = value->Next;
    free_value(value);
    value = next;
  }
}

// The items go before the chain: each loses one reference, and whoever takes the last one away frees the
// item.
void drop_items(const TagObj& attribute, bool free_items) {
  for (ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    auto* item = static_cast<MsgObj*>(value->Data);
    value->Data = nullptr;
    if (item == nullptr) continue;
    const int32_t id = item->ID;
    const int32_t left = adjust_references(*item, -1);
    if (!free_items) continue;
    if (left <= 0) {
      free_item(*item, false);
    } else if (log_enabled(VX_LOG_T1)) {
      log_line(VX_LOG_T1, nullptr, "Item %d was not freed because a message is referencing it.", id);
    }
  }
}

void reset_value_fields(TagObj& attribute) {
  drop_kept_text(attribute);
  attribute.FirstValue = attribute.LastValue = nullptr;
  attribute.CursorValue = attribute.CursorPrevious = nullptr;
  attribute.CursorNumber = 0;
  attribute.ValueCount = 0;
  attribute.Length = 0;
}

void clear_chain(TagObj& attribute, bool free_items) {
  if (attribute.VR == VX_VR_SQ) drop_items(attribute, free_items);
  free_chain(attribute.FirstValue);
  reset_value_fields(attribute);
}

bool swaps_as_words(int32_t vr) {
  return vr >= VX_VR_OW && vr <= VX_VR_OF;
}

// True if bytes from a stream change on their way into memory.
bool changes_order(int32_t vr, StoreFlags flags) {
  if (!flags.from_stream) return false;
  return vr == VX_VR_AT || (flags.big_endian && (is_numeric_vr(vr) || swaps_as_words(vr)));
}

// In a stream a tag is its group, then its element, each in the stream's order.
void copy_tags(uint8_t* to, const uint8_t* from, uint32_t length, bool big_endian) {
  for (uint32_t i = 0; i < length; i += 4) {
    uint32_t word;
    std::memcpy(&word, from + i, sizeof word);
    word = big_endian ? __builtin_bswap32(word) : std::rotl(word, 16);
    std::memcpy(to + i, &word, sizeof word);
  }
}

void copy_in_order(int32_t vr, void* destination, const void* source, uint32_t length, StoreFlags flags) {
  if (!changes_order(vr, flags)) {
    std::memcpy(destination, source, length);
  } else if (vr != VX_VR_AT) {
    copy_swapped(destination, source, length, vr_width(vr));
  } else {
    copy_tags(static_cast<uint8_t*>(destination), static_cast<const uint8_t*>(source), length,
              flags.big_endian);
  }
}

VX_STATUS provide(MsgObj& object, TagObj& attribute, void* data, uint32_t length, bool first, bool last) {
  int32_t is_last = last ? 1 : 0;
  return call_value_callback(object, attribute, VX_PROVIDE_DATA, &length, &data, first, &is_last);
}

// Hands bytes over as they lie; swapped ones in pieces through a buffer. `hand(data, size, first, last)`.
template <typename Hand>
VX_STATUS hand_over(const TagObj& attribute, const void* data, uint32_t length, StoreFlags flags, Hand hand) {
  if (!changes_order(attribute.VR, flags)) return hand(data, length, flags.first, flags.last);
  const uint32_t piece = std::min(work_buffer_size() & ~7U, length);
  void* buffer = allocate_raw(piece);
  if (buffer == nullptr) return VX_SYSTEM_ERROR;
  VX_STATUS status = kOk;
  const auto* from = static_cast<const uint8_t*>(data);
  bool first = flags.first;
  for (uint32_t left = length; left != 0 && status == kOk; first = false) {
    const uint32_t size = std::min(piece, left);
    copy_in_order(attribute.VR, buffer, from, size, flags);
    from += size;
    left -= size;
    status = hand(buffer, size, first, flags.last && left == 0);
  }
  release(buffer);
  return status;
}

VX_STATUS store_in_callback(MsgObj& object, TagObj& attribute, const void* data, uint32_t length,
                            StoreFlags flags) {
  if (flags.first || attribute.Length == kUndefinedLength) attribute.Length = 0;
  if (!checked_add(attribute.Length, length, attribute.Length)) return VX_VALUE_TOO_LARGE;
  attribute.ValueCount = 1;
  return hand_over(attribute, data, length, flags,
                   [&](const void* bytes, uint32_t size, bool first, bool last) {
                     return provide(object, attribute, const_cast<void*>(bytes), size, first, last);
                   });
}

// Room for `length` more bytes at the end of the last piece, or null: the piece moves. Capacity doubles, so
// that values which come one by one are not copied each time.
void* grow_last(TagObj& attribute, uint32_t length, uint32_t limit) {
  ValueObj* last = attribute.LastValue;
  const uint32_t wanted = last->Length + length;
  const uint32_t capacity = piece_capacity(*last);
  if (wanted > capacity) {
    const uint32_t doubled = capacity > limit / 2 ? std::max(limit, wanted) : capacity * 2;
    last = grow_piece(attribute, last, std::max({wanted, doubled, 8U}));
    if (last == nullptr) return nullptr;
  }
  void* room = static_cast<uint8_t*>(last->Data) + last->Length;
  last->Length = wanted;
  return room;
}

// A piece of `length` unset bytes at the tail, or room in the last piece of a numeric value.
VX_STATUS extend_chain(TagObj& attribute, uint32_t length, void*& room) {
  uint32_t total;
  if (!checked_add(attribute.Length, length, total) || total == kUndefinedLength) return VX_VALUE_TOO_LARGE;
  const bool numeric = is_numeric_vr(attribute.VR);
  const int32_t count = numeric ? static_cast<int32_t>(length / vr_width(attribute.VR)) : 1;
  if (count > INT32_MAX - attribute.ValueCount) return VX_TOO_MANY_VALUES;
  const ValueObj* last = attribute.LastValue;
  if (numeric && last != nullptr && last->Data != nullptr) {
    const uint32_t limit = work_buffer_size();
    if (last->Length < limit && length <= limit - last->Length) {
      room = grow_last(attribute, length, limit);
      if (room == nullptr) return VX_SYSTEM_ERROR;
      attribute.ValueCount += count;
      attribute.Length = total;
      return kOk;
    }
  }
  ValueObj* value = new_piece(attribute, length);
  if (value == nullptr) return VX_SYSTEM_ERROR;
  append_value(attribute, value, count, length);
  room = value->Data;
  return kOk;
}

VX_STATUS store_in_file(MsgObj& object, TagObj& attribute, const void* data, uint32_t length,
                        StoreFlags flags) {
  return hand_over(attribute, data, length, flags,
                   [&](const void* bytes, uint32_t size, bool first, bool last) {
                     return append_to_file(object, attribute, bytes, size, first, last);
                   });
}

bool holds(const MsgObj& object, std::vector<const MsgObj*>& work, const MsgObj* wanted) {
  for (const TagObj* attribute = object.FirstTag; attribute != nullptr; attribute = attribute->Next) {
    if (attribute->VR != VX_VR_SQ) continue;
    for (const ValueObj* value = attribute->FirstValue; value != nullptr; value = value->Next) {
      const auto* item = static_cast<const MsgObj*>(value->Data);
      if (item == wanted) return true;
      if (item != nullptr && item->FirstTag != nullptr) work.push_back(item);
    }
  }
  return false;
}

// True if `item` holds `wanted`, directly or deeper.
bool reaches(const MsgObj& item, const MsgObj* wanted) {
  std::unordered_set<const MsgObj*> seen;
  std::vector<const MsgObj*> work{&item};
  while (!work.empty()) {
    const MsgObj* object = work.back();
    work.pop_back();
    if (seen.insert(object).second && holds(*object, work, wanted)) return true;
  }
  return false;
}

}  // namespace

// --- Pieces ---

ValueObj* new_value(uint32_t length) {
  auto* value = static_cast<ValueObj*>(allocate_raw(sizeof(ValueObj) + std::size_t{length}));
  if (value == nullptr) {
    VX_LOG_ERR("VXI_newValueObj", "Unable to allocate new ValueObj to store value");
    return nullptr;
  }
  value->Length = length;
  value->Capacity = 0;
  value->Data = length == 0 ? nullptr : value + 1;
  value->Next = nullptr;
  return value;
}

ValueObj* new_piece(TagObj& attribute, uint32_t length) {
  ValueObj& own = attribute.OwnPiece;
  if (length > sizeof attribute.OwnBytes || own.Capacity == kOwnPiece) return new_value(length);
  own = {length, kOwnPiece, length == 0 ? nullptr : attribute.OwnBytes, nullptr};
  return &own;
}

uint32_t piece_capacity(const ValueObj& piece) {
  return piece.Capacity == kOwnPiece ? sizeof(TagObj::OwnBytes) : std::max(piece.Capacity, piece.Length);
}

ValueObj* grow_piece(TagObj& attribute, ValueObj* piece, uint32_t capacity) {
  ValueObj* grown;
  if (piece->Capacity == kOwnPiece) {
    grown = new_value(capacity);
    if (grown == nullptr) return nullptr;
    grown->Length = piece->Length;
    grown->Next = piece->Next;
    std::memcpy(grown->Data, piece->Data, piece->Length);
    free_value(piece);
  } else {
    grown = static_cast<ValueObj*>(reallocate(sizeof(ValueObj) + std::size_t{capacity}, piece));
    if (grown == nullptr) return nullptr;
    grown->Data = grown + 1;
  }
  grown->Capacity = capacity;
  if (grown == piece) return grown;
  // The piece in front points to it; only a chain of several pieces has to be searched.
  ValueObj** link = &attribute.FirstValue;
  while (*link != piece) link = &(*link)->Next;
  *link = grown;
  if (attribute.LastValue == piece) attribute.LastValue = grown;
  return grown;
}

void free_value(ValueObj* value) {
  if (value != nullptr && value->Capacity == kOwnPiece) {
    value->Capacity = 0;
  } else {
    release(value);
  }
}

bool keep_text(TagObj& attribute, std::string_view bytes) {
  const std::size_t pad = bytes.size() % 2;
  ValueObj* kept = new_value(static_cast<uint32_t>(bytes.size() + pad));
  if (kept == nullptr) return false;
  auto* to = static_cast<char*>(kept->Data);
  std::memcpy(to, bytes.data(), bytes.size());
  if (pad != 0) to[bytes.size()] = attribute.VR == VX_VR_UI ? '\0' : ' ';
  attribute.KeptText = kept;
  attribute.DecoderMark = kKeptText;
  return true;
}

void release_kept_text(TagObj& attribute) {
  free_value(attribute.KeptText);
  attribute.KeptText = nullptr;
  attribute.DecoderMark = 0;
}

void append_value(TagObj& attribute, ValueObj* value, int32_t count, uint32_t length) {
  drop_kept_text(attribute);
  if (attribute.LastValue == nullptr) {
    attribute.FirstValue = value;
  } else {
    attribute.LastValue->Next = value;
  }
  attribute.LastValue = value;
  attribute.ValueCount += count;
  attribute.Length += length;
}

VX_STATUS append_null(TagObj& attribute) {
  if (attribute.Storage == Stored::InFile) return append_null_to_file(attribute);
  ValueObj* value = new_piece(attribute, 0);
  if (value == nullptr) return VX_SYSTEM_ERROR;
  append_value(attribute, value, 1, 0);
  return kOk;
}

VX_STATUS append_item(TagObj& attribute, MsgObj& item) {
  ValueObj* value = new_piece(attribute, 0);
  if (value == nullptr) return VX_SYSTEM_ERROR;
  value->Length = 1;
  value->Data = &item;
  append_value(attribute, value, 1, 1);
  return kOk;
}

VX_STATUS adopt_item(MsgObj* holder, const TagObj& attribute, MsgObj* item) {
  if (item == nullptr || item->ObjectKind != Kind::Item) return VX_INVALID_VALUE_FOR_VR;
  if (holder != nullptr) {
    if (holder == item) return VX_INVALID_VALUE_FOR_VR;
    // Only a holder that lies in a sequence itself can be inside the item, and only in one that has
    // something.
    const bool nested = std::atomic_ref<int32_t>(holder->RefCount).load(std::memory_order_relaxed) > 0;
    if (nested && item->FirstTag != nullptr) {
      try {
        if (reaches(*item, holder)) return VX_INVALID_VALUE_FOR_VR;
      } catch (const std::bad_alloc&) {
        return VX_SYSTEM_ERROR;
      }
    }
    item->ParentID = holder->ID;
  }
  item->PrivateTag = is_private(attribute.Tag) ? attribute.Tag : 0;
  adjust_references(*item, 1);
  return kOk;
}

// --- Clearing and storing ---

void clear_value(MsgObj& object, TagObj& attribute, bool keep_callback, bool free_items) {
  if (attribute.Storage == Stored::ByCallback) {
    if (config_bool(VX_CFG_USE_FREE_DATA_CALLBACK)) {
      const VX_STATUS status =
          call_value_callback(object, attribute, VX_FREE_DATA, nullptr, nullptr, false, nullptr);
      if (status != kOk) {
        VX_LOG_WARN("VXI_clearValue",
                    "Unexpected return status when calling registered callback with FREE_DATA: %s",
                    status_text(status));
      }
    }
    if (!keep_callback) {
      drop_binding(object, attribute);
      attribute.Storage = Stored::InMemory;
    }
  } else if (attribute.Storage == Stored::InFile) {
    release_file_value(attribute);
    attribute.Storage = Stored::InMemory;
  }
  clear_chain(attribute, free_items);
  if (attribute.Tag == kPixelData && object.EncapsulationState != nullptr &&
      release_encapsulation_state != nullptr) {
    release_encapsulation_state(object);
  }
}

VX_STATUS store_value(MsgObj& object, TagObj& attribute, const void* data, uint32_t length,
                      StoreFlags flags) {
  if (data == nullptr || length == 0) {
    if (!flags.last || attribute.Storage == Stored::InMemory) return kOk;
    if (attribute.Storage == Stored::InFile)
      return append_to_file(object, attribute, nullptr, 0, false, true);
    return provide(object, attribute, nullptr, 0, flags.first, true);
  }
  if (attribute.VR == VX_VR_SQ) return VX_INCOMPATIBLE_VR;
  if (changes_order(attribute.VR, flags) && length % vr_width(attribute.VR) != 0) {
    return VX_INVALID_LENGTH_FOR_VR;
  }
  if (flags.first) attribute.ValueCount = 0;
  if (attribute.Storage == Stored::ByCallback)
    return store_in_callback(object, attribute, data, length, flags);
  if (flags.first && attribute.Storage == Stored::InMemory && goes_to_file(object, attribute, length)) {
    clear_chain(attribute, false);
    if (VX_STATUS status = begin_file_value(object, attribute); status != kOk) return status;
  }
  if (attribute.Storage == Stored::InFile) return store_in_file(object, attribute, data, length, flags);
  void* room = nullptr;
  const VX_STATUS status = reserve_value(object, attribute, length, flags.first, room);
  if (status == kOk) copy_in_order(attribute.VR, room, data, length, flags);
  return status;
}

VX_STATUS reserve_value(MsgObj& /*object*/, TagObj& attribute, uint32_t length, bool first, void*& data) {
  data = nullptr;
  if (attribute.Storage != Stored::InMemory) return VX_SYSTEM_ERROR;
  if (first) clear_chain(attribute, false);
  return length == 0 ? kOk : extend_chain(attribute, length, data);
}

void copy_swapped(void* destination, const void* source, std::size_t length, uint32_t width) {
  auto* to = static_cast<uint8_t*>(destination);
  const auto* from = static_cast<const uint8_t*>(source);
  const auto run = [&]<typename Word>(Word (*reverse)(Word)) {
    for (std::size_t i = 0; i + sizeof(Word) <= length; i += sizeof(Word)) {
      Word word;
      std::memcpy(&word, from + i, sizeof word);
      word = reverse(word);
      std::memcpy(to + i, &word, sizeof word);
    }
  };
  switch (width) {
    case 2:
      return run(+[](uint16_t w) -> uint16_t { return __builtin_bswap16(w); });
    case 4:
      return run(+[](uint32_t w) -> uint32_t { return __builtin_bswap32(w); });
    case 8:
      return run(+[](uint64_t w) -> uint64_t { return __builtin_bswap64(w); });
    default:
      if (to != from) std::memcpy(to, from, length);
  }
}

// --- Cursors ---

void cursor_first(const TagObj& attribute, ValueCursor& cursor) {
  cursor.number = 1;
  cursor.value = counts_by_number(attribute) ? nullptr : attribute.FirstValue;
  cursor.previous = nullptr;
}

VX_STATUS cursor_next(const TagObj& attribute, ValueCursor& cursor) {
  if (counts_by_number(attribute)) {
    if (cursor.number < INT32_MAX) ++cursor.number;
    return kOk;
  }
  if (cursor.value == nullptr) {
    if (cursor.number != 0) return VX_NO_MORE_VALUES;
    cursor_first(attribute, cursor);
    return cursor.value == nullptr ? VX_NO_MORE_VALUES : kOk;
  }
  ++cursor.number;
  cursor.previous = cursor.value;
  cursor.value = cursor.value->Next;
  return cursor.value == nullptr ? VX_NO_MORE_VALUES : kOk;
}

VX_STATUS cursor_nth(const TagObj& attribute, ValueCursor& cursor, int32_t number) {
  if (number < 1) return VX_NO_MORE_VALUES;
  if (counts_by_number(attribute)) {
    cursor = {number, nullptr, nullptr};
    return kOk;
  }
  if (cursor.value == nullptr || cursor.number > number) cursor_first(attribute, cursor);
  if (cursor.value == nullptr) return VX_NO_MORE_VALUES;
  while (cursor.number < number) {
    const VX_STATUS status = cursor_next(attribute, cursor);
    if (status != kOk) return status;
  }
  return kOk;
}

ValueCursor get_cursor(const TagObj& attribute) {
  if (is_numeric_vr(attribute.VR)) return {attribute.CursorNumber, nullptr, nullptr};
  return {attribute.CursorNumber, attribute.CursorValue, attribute.CursorPrevious};
}

void set_cursor(TagObj& attribute, const ValueCursor& cursor) {
  attribute.CursorNumber = cursor.number;
  // A number has no place in the chain, and the fields lie on another line of the cache.
  if (is_numeric_vr(attribute.VR)) return;
  attribute.CursorValue = cursor.value;
  attribute.CursorPrevious = cursor.previous;
}

const void* numeric_value(const TagObj& attribute, int32_t number) {
  if (number < 1) return nullptr;
  const uint64_t width = vr_width(attribute.VR);
  uint64_t offset = (static_cast<uint64_t>(number) - 1) * width;
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    if (offset < value->Length) {
      if (value->Length - offset < width || value->Data == nullptr) return nullptr;
      return static_cast<const uint8_t*>(value->Data) + offset;
    }
    offset -= value->Length;
  }
  return nullptr;
}

}  // namespace vx
