#include "model/attributes.h"
#include "model/file_values.h"

#include <cstddef>
#include <cstring>

#include "frame/log.h"
#include "frame/pool.h"
#include "model/deferred.h"
#include "model/dictionary.h"
#include "model/held.h"
#include "model/message_info.h"
#include "model/seams.h"
#include "model/tag_index.h"
#include "model/values.h"

namespace vx {
namespace {

// An index pays once a table has more attributes than a walk goes through in a few cache lines.
constexpr int32_t kIndexFrom = 32;
constexpr int kLongWalk = 8;
constexpr uint32_t kNear = 0x100;

// The first attribute from `at` on whose tag is not below `tag`. All of the functions in this block run under
// the object's semaphore. False after too many steps.
bool walk_forward(TagObj*& at, uint32_t tag, int limit) {
  for (int steps = 0; at != nullptr && at->Tag < tag; at = at->Next) {
    if (++steps > limit) return false;
  }
  return true;
}
bool walk_backward(TagObj*& at, uint32_t tag, int limit) {
  for (int steps = 0; at->Previous != nullptr && at->Previous->Tag >= tag; at = at->Previous) {
    if (++steps > limit) return false;
  }
  return true;
}

// The same for the whole table: from the cursor, and from the head, where what everyone asks for lies.
bool walk(MsgObj& object, uint32_t tag, TagObj*& at) {
  const int limit = object.AttributeCount > kIndexFrom ? kLongWalk : INT32_MAX;
  at = object.CurrentTag != nullptr ? object.CurrentTag : object.FirstTag;
  if (at->Tag < tag) return walk_forward(at, tag, limit);
  if (walk_backward(at, tag, limit)) return true;
  at = object.FirstTag;
  return walk_forward(at, tag, limit);
}

TagObj* plain_search(MsgObj& object, uint32_t tag) {
  TagObj* at = object.FirstTag;
  while (at != nullptr && at->Tag < tag) at = at->Next;
  return at;
}

TagPlace search(MsgObj& object, uint32_t tag) {
  // Most searches are for the place behind the last attribute, the cursor's own, or the one behind it. The
  // neighbour is only looked at when it may be the one: in a large table it costs a cache miss.
  if (object.LastTag == nullptr || object.LastTag->Tag < tag) return {nullptr, false};
  TagObj* at = object.CurrentTag;
  if (at != nullptr) {
    if (at->Tag == tag) return {at, true};
    if (tag > at->Tag && tag - at->Tag <= kNear && at->Next != nullptr && at->Next->Tag >= tag)
      return place_at(at->Next, tag);
  }
  if (object.Index == nullptr) {
    if (walk(object, tag, at)) return place_at(at, tag);
    object.Index = build_index(object.FirstTag);
    if (object.Index == nullptr) return place_at(plain_search(object, tag), tag);
  }
  return index_lower_bound(*object.Index, tag);
}

// The same, and the cursor goes to the place.
TagPlace search_and_move(MsgObj& object, uint32_t tag) {
  const TagPlace place = search(object, tag);
  object.CurrentTag = place.at != nullptr ? place.at : object.LastTag;
  return place;
}

void link_before(MsgObj& object, TagObj& attribute, TagObj* behind) {
  TagObj* previous = behind != nullptr ? behind->Previous : object.LastTag;
  attribute.Next = behind;
  attribute.Previous = previous;
  (previous != nullptr ? previous->Next : object.FirstTag) = &attribute;
  (behind != nullptr ? behind->Previous : object.LastTag) = &attribute;
  object.CurrentTag = &attribute;
  if (++object.AttributeCount == 1) object.NextTag = &attribute;
  if (object.Index != nullptr && !index_insert(*object.Index, attribute)) {
    free_index(object.Index);
    object.Index = nullptr;
  }
}

void unlink(MsgObj& object, TagObj& attribute) {
  if (object.Index != nullptr) index_erase(*object.Index, attribute.Tag);
  TagObj* next = attribute.Next;
  TagObj* previous = attribute.Previous;
  (previous != nullptr ? previous->Next : object.FirstTag) = next;
  (next != nullptr ? next->Previous : object.LastTag) = previous;
  if (object.CurrentTag == &attribute) object.CurrentTag = object.FirstTag;
  if (object.NextTag == &attribute) object.NextTag = object.FirstTag;
  attribute.Next = attribute.Previous = nullptr;
  --object.AttributeCount;
}

void keep_removed(MsgObj& object, TagObj& attribute) {
  TagObj** place = &object.RemovedTags;
  while (*place != nullptr && (*place)->Tag < attribute.Tag) place = &(*place)->Next;
  attribute.Next = *place;
  *place = &attribute;
}

TagObj* take_removed(MsgObj& object, uint32_t tag) {
  TagObj** place = &object.RemovedTags;
  while (*place != nullptr && (*place)->Tag < tag) place = &(*place)->Next;
  TagObj* found = *place;
  if (found == nullptr || found->Tag != tag) return nullptr;
  *place = found->Next;
  return found;
}

void reset_record(TagObj& attribute) {
  release(attribute.AuxBuffer);
  const TagObj old = attribute;
  attribute = TagObj{};
  attribute.Tag = old.Tag;
  attribute.VR = old.VR;
  attribute.VMLow = old.VMLow;
  attribute.VMHigh = old.VMHigh;
  attribute.Template = old.Template;
  attribute.Storage = Stored::InMemory;
}

TagObj* make_record(MsgObj& object, uint32_t tag, int32_t vr, uint16_t vm_low, uint16_t vm_high) {
  TagObj* attribute = object.RemovedTags == nullptr || is_private(tag) ? nullptr : take_removed(object, tag);
  if (attribute != nullptr) {
    reset_record(*attribute);
    return attribute;
  }
  attribute = new_object<TagObj>(Pool::TagObj);
  if (attribute == nullptr) return nullptr;
  attribute->Tag = tag;
  attribute->VR = vr;
  attribute->VMLow = vm_low;
  attribute->VMHigh = vm_high;
  attribute->Storage = Stored::InMemory;
  return attribute;
}

// A removed attribute stays known when validation would miss it.
bool stays_known(const TagObj& attribute) {
  const uint16_t group = tag_group(attribute.Tag);
  return group % 2 == 0 && group >= 8 && attribute.Template != nullptr &&
         attribute.Template->AttributeType != kType3;
}

// The value goes when the attribute is out of the table: callbacks then run without the object's lock.
void dispose(MsgObj& object, TagObj& attribute) {
  if (!stays_known(attribute)) {
    free_tag(object, &attribute, true);
    return;
  }
  clear_value(object, attribute, false, true);
  const Guard guard(object.Semaphore);
  keep_removed(object, attribute);
}

VX_STATUS tell(const TagObj& attribute, uint32_t* tag, VX_VR* vr, int32_t* count) {
  if (tag != nullptr) *tag = attribute.Tag;
  if (vr != nullptr) *vr = attribute.VR;
  if (count != nullptr) *count = is_bulk_vr(attribute.VR) ? 1 : attribute.ValueCount;
  return kOk;
}

VX_STATUS next_under_guard(MsgObj& object, uint32_t* tag, VX_VR* vr, int32_t* count) {
  if (object.FirstTag == nullptr) return VX_MESSAGE_EMPTY;
  TagObj* attribute = object.NextTag;
  if (attribute == nullptr) return VX_NO_MORE_ATTRIBUTES;
  object.NextTag = attribute->Next;
  return tell(*attribute, tag, vr, count);
}

// A repeating group takes after its base group when the object holds the base attribute.
VX_STATUS add_repeating(MsgObj& object, uint32_t tag, TagObj*& out) {
  const TagObj* base = find_tag(object, repeating_base(tag));
  if (base == nullptr) return VX_NOT_FOUND;
  const VX_STATUS status = new_tag(object, tag, base->VR, base->VMLow, base->VMHigh, &out);
  if (status == kOk) {
    out->Template = base->Template;
  } else if (status != VX_TAG_ALREADY_EXISTS) {
    VX_LOG_ERR("VXI_newTag", "VXI_newTag failed: %s", status_text(status));
    return VX_SYSTEM_ERROR;
  }
  return kOk;
}

}  // namespace

TagObj* find_tag(MsgObj& object, uint32_t tag) {
  const Guard guard(object.Semaphore);
  const TagPlace place = search_and_move(object, tag);
  return place.found ? place.at : nullptr;
}

TagObj* lower_bound_tag(MsgObj& object, uint32_t tag) {
  const Guard guard(object.Semaphore);
  return search(object, tag).at;
}

VX_STATUS new_tag(MsgObj& object, uint32_t tag, int32_t vr, uint16_t vm_low, uint16_t vm_high, TagObj** out) {
  if (out != nullptr) *out = nullptr;
  if (!is_vr(vr)) return VX_INVALID_VR_CODE;
  if (tag_group(tag) == kStructureGroup) return VX_INVALID_TAG;
  const Guard guard(object.Semaphore);
  const TagPlace place = search_and_move(object, tag);
  if (place.found) {
    if (out != nullptr) *out = place.at;
    return VX_TAG_ALREADY_EXISTS;
  }
  TagObj* attribute = make_record(object, tag, vr, vm_low, vm_high);
  if (attribute == nullptr) return VX_SYSTEM_ERROR;
  link_before(object, *attribute, place.at);
  object.TemplatePending = 1;
  object.FirstOfFrame = 1;
  object.Started = 0;
  if (out != nullptr) *out = attribute;
  return kOk;
}

VX_STATUS find_or_add_tag(MsgObj& object, uint32_t tag, const char* creator, TagObj*& out) {
  VX_STATUS status = decode_up_to(object, tag);
  if (status != kOk) return status;
  out = find_tag(object, tag);
  if (out != nullptr) return kOk;
  if (is_repeating(tag)) {
    status = add_repeating(object, tag, out);
    if (status != VX_NOT_FOUND) return status;
  }
  if (object.TemplateApplied != 0) return VX_INVALID_TAG;
  DictInfo info{};
  if (dictionary_lookup(tag, creator, info) != kOk) return VX_INVALID_TAG;
  status = new_tag(object, tag, info.vr, 1, 255, &out);
  return status == VX_TAG_ALREADY_EXISTS ? kOk : status;
}

VX_STATUS find_to_change(MsgObj& object, uint32_t tag, TagObj*& out) {
  if (anything_held() && is_growth_held(object) && find_tag(object, tag) == nullptr)
    return VX_STATE_VIOLATION;
  const VX_STATUS status = find_or_add_tag(object, tag, "", out);
  return status == kOk && is_value_held(object, *out) ? VX_STATE_VIOLATION : status;
}

VX_STATUS add_standard_attribute(MsgObj& object, uint32_t tag, TagObj** out) {
  DictInfo info{};
  if (out != nullptr) *out = nullptr;
  if (dictionary_lookup(tag, {}, info) != kOk) return VX_INVALID_TAG;
  return new_tag(object, tag, info.vr, 1, 255, out);
}

VX_STATUS add_nonstandard_attribute(MsgObj& object, uint32_t tag, int32_t vr, TagObj** out) {
  DictInfo info{};
  if (out != nullptr) *out = nullptr;
  if (dictionary_lookup(tag, {}, info) == kOk) return VX_INVALID_TAG;
  return new_tag(object, tag, vr, 1, 255, out);
}

VX_STATUS delete_attribute(MsgObj& object, uint32_t tag) {
  const VX_STATUS status = decode_up_to(object, tag);
  if (status != kOk) return status;
  TagObj* attribute;
  {
    const Guard guard(object.Semaphore);
    attribute = find_tag(object, tag);
    if (attribute == nullptr) return VX_INVALID_TAG;
    unlink(object, *attribute);
  }
  dispose(object, *attribute);
  return kOk;
}

VX_STATUS delete_range(MsgObj& object, uint32_t first, uint32_t last) {
  const VX_STATUS status = decode_all(object);
  if (status != kOk) return status;
  for (;;) {
    TagObj* attribute;
    {
      const Guard guard(object.Semaphore);
      attribute = search(object, first).at;
      object.CurrentTag = object.FirstTag;
      if (attribute == nullptr || attribute->Tag > last) return kOk;
      // The next search starts here, unless this is the last round.
      object.CurrentTag = attribute->Next;
      unlink(object, *attribute);
    }
    dispose(object, *attribute);
  }
}

void free_tag(MsgObj& object, TagObj* attribute, bool free_items) {
  clear_value(object, *attribute, false, free_items);
  release(attribute->AuxBuffer);
  pool_free(Pool::TagObj, attribute);
}

void free_all_tags(MsgObj& object) {
  free_index(object.Index);
  object.Index = nullptr;
  TagObj* chains[] = {object.FirstTag, object.RemovedTags};
  object.FirstTag = object.LastTag = object.RemovedTags = object.CurrentTag = object.NextTag = nullptr;
  object.AttributeCount = 0;
  for (TagObj* attribute : chains) {
    while (attribute != nullptr) {
      TagObj* next = attribute->Next;
      free_tag(object, attribute, true);
      attribute = next;
    }
  }
}

VX_STATUS first_attribute(MsgObj& object, uint32_t* tag, VX_VR* vr, int32_t* count) {
  const VX_STATUS status = decode_all(object);
  if (status != kOk) return status;
  const Guard guard(object.Semaphore);
  object.NextTag = object.FirstTag;
  return next_under_guard(object, tag, vr, count);
}

VX_STATUS next_attribute(MsgObj& object, uint32_t* tag, VX_VR* vr, int32_t* count) {
  const VX_STATUS status = decode_all(object);
  if (status != kOk) return status;
  const Guard guard(object.Semaphore);
  return next_under_guard(object, tag, vr, count);
}

VX_STATUS attribute_info(MsgObj& object, uint32_t tag, VX_VR* vr, int32_t* count) {
  const VX_STATUS status = decode_up_to(object, tag);
  if (status != kOk) return status;
  const Guard guard(object.Semaphore);
  TagObj* attribute = find_tag(object, tag);
  if (attribute == nullptr) return VX_INVALID_TAG;
  object.NextTag = attribute;
  return next_under_guard(object, nullptr, vr, count);
}

VX_STATUS find_attribute(int32_t id, uint32_t tag, MsgObj*& object, TagObj*& attribute) {
  object = find_object(id);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  const VX_STATUS status = decode_up_to(*object, tag);
  if (status != kOk) return status;
  attribute = find_tag(*object, tag);
  return attribute != nullptr ? kOk : VX_INVALID_TAG;
}

// --- Change of VR ---

namespace {

int32_t pieces(const TagObj& attribute) {
  int32_t count = 0;
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) ++count;
  return count;
}

void free_pieces(ValueObj* value) {
  while (value != nullptr) {
    ValueObj* next = value->Next;
    free_value(value);
    value = next;
  }
}

// A bulk value is cut anywhere. As numbers no value may lie across a cut, and a text has none at all: its
// pieces are its values.
bool must_join(const TagObj& attribute, int32_t vr) {
  if (attribute.Storage != Stored::InMemory || attribute.FirstValue == attribute.LastValue) return false;
  if (is_text_vr(vr)) return is_bulk_vr(attribute.VR);
  if (!is_numeric_vr(vr)) return false;
  for (const ValueObj* value = attribute.FirstValue; value != attribute.LastValue; value = value->Next) {
    if (value->Length % vr_width(vr) != 0) return true;
  }
  return false;
}

void copy_pieces(const TagObj& attribute, void* to) {
  auto* at = static_cast<uint8_t*>(to);
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    if (value->Length != 0) std::memcpy(at, value->Data, value->Length);
    at += value->Length;
  }
}

VX_STATUS join_pieces(TagObj& attribute) {
  ValueObj* whole = new_value(attribute.Length);
  if (whole == nullptr) return VX_SYSTEM_ERROR;
  copy_pieces(attribute, whole->Data);
  free_pieces(attribute.FirstValue);
  attribute.FirstValue = attribute.LastValue = whole;
  return kOk;
}

// The bytes stay; the count follows the new class. Bytes can not turn into items.
VX_STATUS replace_vr(TagObj& attribute, int32_t vr) {
  if (vr == VX_VR_SQ && (attribute.Length != 0 || attribute.Storage != Stored::InMemory))
    return VX_VR_ALREADY_VALID;
  if (must_join(attribute, vr)) {
    if (VX_STATUS status = join_pieces(attribute); status != kOk) return status;
  }
  if (attribute.Length != 0 && attribute.Storage == Stored::InMemory) {
    attribute.ValueCount =
        is_numeric_vr(vr) ? static_cast<int32_t>(attribute.Length / vr_width(vr)) : pieces(attribute);
  }
  attribute.VR = vr;
  set_cursor(attribute, {});
  return kOk;
}

void put_back(TagObj& attribute, const TagObj& old) {
  attribute.VR = old.VR;
  attribute.FirstValue = old.FirstValue;
  attribute.LastValue = old.LastValue;
  attribute.ValueCount = old.ValueCount;
  attribute.Length = old.Length;
  attribute.Storage = old.Storage;
  attribute.DecoderMark = old.DecoderMark;
}

// The bytes of a chain in one run: the piece itself, or a copy in `copy`.
VX_STATUS gather(const TagObj& attribute, const void*& bytes, void*& copy) {
  copy = nullptr;
  bytes = attribute.FirstValue->Data;
  if (attribute.FirstValue->Next == nullptr) return kOk;
  copy = allocate_raw(attribute.Length);
  if (copy == nullptr) {
    VX_LOG_ERR("VX_Set_Value_Representation", "Unable to allocate temporary buffer to store tag's value");
    return VX_SYSTEM_ERROR;
  }
  copy_pieces(attribute, copy);
  bytes = copy;
  return kOk;
}

// The old chain is kept aside until the new value stands, so that a failure loses nothing.
VX_STATUS reinterpret(MsgObj& object, TagObj& attribute, int32_t vr) {
  const void* bytes;
  void* copy;
  VX_STATUS status = gather(attribute, bytes, copy);
  if (status != kOk) return status;
  const TagObj old = attribute;
  attribute.FirstValue = attribute.LastValue = nullptr;
  attribute.ValueCount = 0;
  attribute.Length = 0;
  set_cursor(attribute, {});
  attribute.VR = vr;
  status = convert_from_un(object, attribute, bytes, old.Length);
  release(copy);
  if (status == kOk) {
    free_pieces(old.FirstValue);
  } else {
    clear_value(object, attribute, false, true);
    put_back(attribute, old);
  }
  return status;
}

}  // namespace

VX_STATUS set_value_representation(MsgObj& object, TagObj& attribute, int32_t vr) {
  if (!is_vr(vr)) return VX_INVALID_VR_CODE;
  if (attribute.Storage == Stored::InFile && (attribute.VR == VX_VR_UN || !is_bulk_vr(vr))) {
    if (VX_STATUS status = load_file_value(object, attribute); status != kOk) return status;
  }
  switch (attribute.VR) {
    case VX_VR_OB:
    case VX_VR_OW:
    case VX_VR_OL:
    case VX_VR_OD:
    case VX_VR_OF:
      return replace_vr(attribute, vr);
    case VX_VR_US:
      return vr == VX_VR_SS || vr == VX_VR_OW ? replace_vr(attribute, vr) : VX_VR_ALREADY_VALID;
    case VX_VR_SS:
      return vr == VX_VR_US || vr == VX_VR_OW ? replace_vr(attribute, vr) : VX_VR_ALREADY_VALID;
    case VX_VR_UN:
      if (attribute.Length == 0 || attribute.FirstValue == nullptr) return replace_vr(attribute, vr);
      return reinterpret(object, attribute, vr);
    default:
      return VX_VR_ALREADY_VALID;
  }
}

}  // namespace vx
