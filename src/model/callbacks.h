// Values that an application's callback holds.
#pragma once

#include <cstdint>
#include <type_traits>

#include "frame/app.h"
#include "model/object.h"

namespace vx {

// A registration of an application, or its copy that is bound to an object.
struct CBObj {
  uint32_t Tag;  // 0 for a private registration; its tag in the object once bound
  VX_VALUE_CALLBACK Function;
  char PrivateCode[514];
  uint16_t Group;
  uint8_t Element;
  VX_PRIVATE_VALUE_CALLBACK PrivateFunction;
  void* UserInfo;
};
static_assert(std::is_trivially_destructible_v<CBObj>);

// What an application registers. `wanted` carries tag and function, or code (without trailing blanks), group,
// element and private function. A registration for the same attribute is replaced. VX_SYSTEM_ERROR.
VX_STATUS register_callback(AppObj& app, const CBObj& wanted);
// Removes the registration for the attribute that `key` names. VX_INVALID_TAG: there is none.
VX_STATUS release_callback(AppObj& app, const CBObj& key);

void bind_all(AppObj& app, MsgObj& object);
// Binds the application's registration for this attribute, if there is one. Cheap for an application without
// registrations.
void bind_one(int32_t application_id, MsgObj& object, TagObj& attribute);
void unbind_all(AppObj& app, MsgObj& object);
void unbind_one(MsgObj& object, TagObj& attribute);
CBObj* find_binding(MsgObj& object, const TagObj& attribute);
// Forgets the binding of an attribute; its value is left alone.
void drop_binding(MsgObj& object, const TagObj& attribute);
void free_bindings(MsgObj& object);

// One request to the callback that holds the attribute. VX_NO_CALLBACK if none does.
VX_STATUS call_value_callback(MsgObj& object, TagObj& attribute, VX_CALLBACK_REQUEST request, uint32_t* size,
                              void** data, bool first, int32_t* last);
// Request 301; VX_NO_CALLBACK when the attribute is not bound, VX_CALLBACK_CANNOT_COMPLY.
VX_STATUS ask_length(MsgObj& object, TagObj& attribute, uint32_t& length);
// VX_Get_Value_To_Function on a bound attribute.
VX_STATUS read_from_callback(MsgObj& object, TagObj& attribute, void* user, VX_READER_FUNCTION function);

}  // namespace vx
