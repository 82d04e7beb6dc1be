#include "model/callbacks.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "config/config.h"
#include "frame/log.h"
#include "frame/patience.h"
#include "frame/pool.h"
#include "frame/seams.h"
#include "model/attributes.h"
#include "model/held.h"
#include "model/private_blocks.h"
#include "model/values.h"

namespace vx {
namespace {

bool is_private_record(const CBObj& record) {
  return record.PrivateFunction != nullptr;
}

// True if two registrations are for the same attribute. A key needs no function: a tag of 0 makes it private.
bool same_attribute(const CBObj& record, const CBObj& key) {
  if (key.Tag != 0) return !is_private_record(record) && record.Tag == key.Tag;
  return is_private_record(record) && record.Group == key.Group && record.Element == key.Element &&
         std::strcmp(record.PrivateCode, key.PrivateCode) == 0;
}

CNode* find_registration(const AppObj& app, const CBObj& key) {
  CNode* node = app.Callbacks.Head;
  while (node != nullptr && !same_attribute(*static_cast<CBObj*>(node->Data), key)) node = node->Next;
  return node;
}

// An application mostly has none: then nothing is locked.
bool has_registrations(AppObj& app) {
  return std::atomic_ref<int32_t>(app.Callbacks.Count).load(std::memory_order_relaxed) != 0;
}

// The attribute that a registration is for in this object, or null.
TagObj* attribute_of(MsgObj& object, const CBObj& record) {
  if (!is_private_record(record)) return find_tag(object, record.Tag);
  uint32_t tag;
  if (private_tag(object, record.PrivateCode, record.Group, record.Element, tag) != kOk) return nullptr;
  return find_tag(object, tag);
}

// A copy of the first registration from `index` on for which `wanted` holds; index moves behind it. Copies
// let the list's lock go before an object's lock is taken: the decoder comes here with the object's lock
// held.
template <typename Test>
bool next_registration(AppObj& app, int32_t& index, CBObj& record, Test wanted) {
  const Guard guard(app.CallbackSemaphore);
  for (const CNode* node = list_at(app.Callbacks, index); node != nullptr; node = node->Next) {
    ++index;
    if (wanted(*static_cast<const CBObj*>(node->Data))) {
      record = *static_cast<const CBObj*>(node->Data);
      return true;
    }
  }
  return false;
}

bool any_registration(const CBObj&) {
  return true;
}

void bind(MsgObj& object, TagObj& attribute, const CBObj& record) {
  const bool bound = attribute.Storage == Stored::ByCallback;
  if (attribute.ValueCount > 0 && (is_private_record(record) || !bound)) return;
  if (!is_bulk_vr(attribute.VR) || attribute.VR == VX_VR_UN) {
    VX_LOG_ERR("VXI_bindCallback", "Ignoring callback for non-OB/OW/OL/OD/OF tag: 0x%8.8lX",
               static_cast<unsigned long>(attribute.Tag));
    return;
  }
  auto* copy = new_object<CBObj>(Pool::CBObj);
  if (copy == nullptr) return;
  *copy = record;
  copy->Tag = attribute.Tag;
  if (bound) unbind_one(object, attribute);
  clear_value(object, attribute, true, false);
  if (list_add_tail(object.Callbacks, copy) == nullptr) {
    pool_free(Pool::CBObj, copy);
    return;
  }
  attribute.Storage = Stored::ByCallback;
}

CNode* find_bound(MsgObj& object, uint32_t tag) {
  CNode* node = object.Callbacks.Head;
  while (node != nullptr && static_cast<CBObj*>(node->Data)->Tag != tag) node = node->Next;
  return node;
}

void free_records(CObList& list) {
  while (list.Head != nullptr) pool_free(Pool::CBObj, list_remove_head(list));
}

}  // namespace

// --- Registration ---

VX_STATUS register_callback(AppObj& app, const CBObj& wanted) {
  const Guard guard(app.CallbackSemaphore);
  const CNode* node = find_registration(app, wanted);
  if (node != nullptr) {
    *static_cast<CBObj*>(node->Data) = wanted;
    return kOk;
  }
  auto* record = new_object<CBObj>(Pool::CBObj);
  if (record == nullptr) return VX_SYSTEM_ERROR;
  *record = wanted;
  if (list_add_tail(app.Callbacks, record) != nullptr) return kOk;
  pool_free(Pool::CBObj, record);
  return VX_SYSTEM_ERROR;
}

VX_STATUS release_callback(AppObj& app, const CBObj& key) {
  const Guard guard(app.CallbackSemaphore);
  CNode* node = find_registration(app, key);
  if (node == nullptr) return VX_INVALID_TAG;
  pool_free(Pool::CBObj, list_remove(app.Callbacks, node));
  return kOk;
}

void release_application_callbacks(AppObj& app) {
  const Guard guard(app.CallbackSemaphore);
  free_records(app.Callbacks);
}

// --- Binding ---

void bind_all(AppObj& app, MsgObj& object) {
  if (!has_registrations(app)) return;
  CBObj record;
  for (int32_t index = 0; next_registration(app, index, record, any_registration);) {
    TagObj* attribute = attribute_of(object, record);
    if (attribute != nullptr) bind(object, *attribute, record);
  }
}

void bind_one(int32_t application_id, MsgObj& object, TagObj& attribute) {
  if (application_id <= 0) return;
  AppObj* app = find_application(application_id);
  if (app == nullptr || !has_registrations(*app)) return;
  const uint32_t tag = attribute.Tag;
  const auto may_fit = [tag](const CBObj& record) {
    if (!is_private_record(record)) return record.Tag == tag;
    return record.Group == tag_group(tag) && record.Element == (tag & 0xFFU);
  };
  CBObj record;
  for (int32_t index = 0; next_registration(*app, index, record, may_fit);) {
    if (attribute_of(object, record) == &attribute) return bind(object, attribute, record);
  }
}

void unbind_all(AppObj& app, MsgObj& object) {
  if (!has_registrations(app)) return;
  CBObj record;
  for (int32_t index = 0; next_registration(app, index, record, any_registration);) {
    TagObj* attribute = attribute_of(object, record);
    if (attribute == nullptr || attribute->Storage != Stored::ByCallback) continue;
    attribute->ValueCount = 0;
    attribute->Length = 0;
    attribute->Storage = Stored::InMemory;
    drop_binding(object, *attribute);
  }
}

void unbind_one(MsgObj& object, TagObj& attribute) {
  clear_value(object, attribute, false, false);
}

CBObj* find_binding(MsgObj& object, const TagObj& attribute) {
  const CNode* node = find_bound(object, attribute.Tag);
  return node != nullptr ? static_cast<CBObj*>(node->Data) : nullptr;
}

void drop_binding(MsgObj& object, const TagObj& attribute) {
  CNode* node = find_bound(object, attribute.Tag);
  if (node != nullptr) pool_free(Pool::CBObj, list_remove(object.Callbacks, node));
}

void free_bindings(MsgObj& object) {
  free_records(object.Callbacks);
}

// --- Requests ---

VX_STATUS call_value_callback(MsgObj& object, TagObj& attribute, VX_CALLBACK_REQUEST request, uint32_t* size,
                              void** data, bool first, int32_t* last) {
  const CBObj* found = find_binding(object, attribute);
  if (found == nullptr) return VX_NO_CALLBACK;
  // Callbacks may count on all three pointers. The record may go during the call.
  uint32_t no_size = 0;
  void* no_data = nullptr;
  int32_t not_last = 0;
  if (size == nullptr) size = &no_size;
  if (data == nullptr) data = &no_data;
  if (last == nullptr) last = &not_last;
  const int32_t is_first = first ? 1 : 0;
  const Held held(object, Hold::Value, &attribute);
  if (!is_private_record(*found)) {
    return found->Function(object.ID, attribute.Tag, found->UserInfo, request, size, data, is_first, last);
  }
  const CBObj record = *found;
  return record.PrivateFunction(object.ID, record.PrivateCode, record.Group, record.Element, record.UserInfo,
                                request, size, data, is_first, last);
}

VX_STATUS ask_length(MsgObj& object, TagObj& attribute, uint32_t& length) {
  length = 0;
  if (attribute.Storage != Stored::ByCallback) return VX_NO_CALLBACK;
  const VX_STATUS status =
      call_value_callback(object, attribute, VX_REQUEST_LENGTH, &length, nullptr, true, nullptr);
  return status == kOk ? kOk : VX_CALLBACK_CANNOT_COMPLY;
}

VX_STATUS read_from_callback(MsgObj& object, TagObj& attribute, void* user, VX_READER_FUNCTION function) {
  uint32_t length;
  if (ask_length(object, attribute, length) != kOk) return VX_CALLBACK_CANNOT_COMPLY;
  if (length == 0) return VX_EMPTY_VALUE;
  uint32_t left = length;
  int32_t last = 0;
  const Held held(object, Hold::Value, &attribute);
  Patience patience;
  for (bool first = true; last == 0; first = false) {
    uint32_t size = 0;
    void* data = nullptr;
    if (call_value_callback(object, attribute, VX_REQUEST_DATA, &size, &data, first, &last) != kOk) {
      return VX_CALLBACK_CANNOT_COMPLY;
    }
    if (size > INT32_MAX) {
      VX_LOG_ERR("VX_Get_Value_To_Function",
                 "Unable to pass length to callback, Registered Callback returned length > %d", INT32_MAX);
      return VX_CALLBACK_CANNOT_COMPLY;
    }
    if (last == 0 && patience.ends(size)) return VX_CALLBACK_CANNOT_COMPLY;
    size = std::min(size, left);
    left -= size;
    last = last != 0 || left == 0 ? 1 : 0;
    if (data == nullptr && size != 0) return VX_CALLBACK_CANNOT_COMPLY;
    if (function(object.ID, attribute.Tag, user, size, data, first ? 1 : 0, last) != kOk) {
      return VX_CALLBACK_CANNOT_COMPLY;
    }
  }
  return kOk;
}

}  // namespace vx
