// Exported functions of private blocks and attributes: each finds the block and does what its counterpart for
// plain tags does.
#include "config/config.h"
#include "frame/state.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/held.h"
#include "model/private_blocks.h"
#include "model/values.h"
#include "vexalkit.h"

using namespace vx;

namespace {

// A private attribute as callers name it.
struct Triple {
  int32_t id;
  const char* code;
  uint16_t group;
  uint8_t element;
};

// Runs work(object) on the object of an ID.
template <typename Work>
VX_STATUS with_object(int32_t id, const char* code, Work work) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(code);
  MsgObj* object = find_object(id);
  return object != nullptr ? work(*object) : VX_INVALID_MESSAGE_ID;
}

// Runs work(object, tag) on the tag of a triple, whether the attribute is there or not.
template <typename Work>
VX_STATUS with_tag(const Triple& triple, Work work) {
  return with_object(triple.id, triple.code, [&](MsgObj& object) {
    uint32_t tag;
    const VX_STATUS status = private_tag(object, triple.code, triple.group, triple.element, tag);
    if (status == VX_NOT_FOUND || status == VX_TOO_MANY_BLOCKS) return VX_STATUS{VX_INVALID_PRIVATE_CODE};
    return status == kOk ? work(object, tag) : status;
  });
}

// Runs work(object, attribute); `absent` is the status for an attribute that is not there. An output that is
// null is found before the object is looked for.
template <typename Work>
VX_STATUS with_attribute(const Triple& triple, VX_STATUS absent, const void* output, Work work) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(output);
  return with_tag(triple, [&](MsgObj& object, uint32_t tag) {
    TagObj* attribute = find_tag(object, tag);
    return attribute != nullptr ? work(object, *attribute) : absent;
  });
}
template <typename Work>
VX_STATUS read_attribute(const Triple& triple, const void* output, Work work) {
  return with_attribute(triple, VX_INVALID_TAG, output, work);
}
template <typename Work>
VX_STATUS change_attribute(const Triple& triple, VX_STATUS absent, Work work) {
  return with_attribute(triple, absent, &triple, [&](MsgObj& object, TagObj& attribute) {
    return is_value_held(object, attribute) ? VX_STATE_VIOLATION : work(object, attribute);
  });
}
template <typename Work>
VX_STATUS write_attribute(const Triple& triple, Work work) {
  return change_attribute(triple, VX_INVALID_PRIVATE_CODE, work);
}

VX_STATUS read_text(const Triple& triple, bool first, int32_t size, char* buffer) {
  return read_attribute(triple, buffer, [=](MsgObj&, TagObj& attribute) {
    return get_text(attribute, first, size, buffer, false);
  });
}

VX_STATUS read_number(const Triple& triple, bool first, VX_DATA_TYPE type, void* value) {
  return read_attribute(
      triple, value, [=](MsgObj&, TagObj& attribute) { return get_number(attribute, first, type, value); });
}

VX_STATUS read_any(const Triple& triple, bool first, VX_DATA_TYPE type, uint32_t size, void* buffer,
                   uint32_t* length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(length);
  return read_attribute(triple, buffer, [=](MsgObj& object, TagObj& attribute) {
    return get_value(object, attribute, first, type, size, buffer, *length, false);
  });
}

VX_STATUS write_value(const Triple& triple, bool first, VX_DATA_TYPE type, const void* value) {
  return write_attribute(triple, [=](MsgObj& object, TagObj& attribute) {
    return set_value(object, attribute, type, value, first);
  });
}

}  // namespace

// --- Blocks and attributes ---

VX_STATUS VX_Add_Private_Block(int32_t MsgID, const char* PrivateCode, uint16_t Group) {
  return with_object(MsgID, PrivateCode, [=](MsgObj& object) {
    // A block without a name could not be found again.
    if (is_private_group(Group) && trim_right(PrivateCode).empty()) return VX_STATUS{VX_INVALID_PRIVATE_CODE};
    if (is_growth_held(object)) return VX_STATUS{VX_STATE_VIOLATION};
    return add_private_block(object, PrivateCode, Group, nullptr, 0, "VX_Add_Private_Block");
  });
}

VX_STATUS VX_Delete_Private_Block(int32_t MsgID, const char* PrivateCode, uint16_t Group) {
  return with_object(MsgID, PrivateCode, [=](MsgObj& object) {
    const uint32_t first = uint32_t{Group} << 16;
    return is_range_held(object, first, first | 0xFFFF) ? VX_STATE_VIOLATION
                                                        : delete_private_block(object, PrivateCode, Group);
  });
}

VX_STATUS VX_Add_Private_Attribute(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                   VX_VR VR) {
  return with_object(MsgID, PrivateCode, [=](MsgObj& object) {
    return is_growth_held(object) ? VX_STATE_VIOLATION
                                  : add_private_attribute(object, PrivateCode, Group, Element, VR);
  });
}

VX_STATUS VX_Delete_Private_Attribute(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                      uint8_t Element) {
  return with_object(MsgID, PrivateCode, [=](MsgObj& object) {
    uint32_t tag;
    const VX_STATUS status = private_tag(object, PrivateCode, Group, Element, tag);
    if (status == VX_TOO_MANY_BLOCKS) return VX_STATUS{VX_NOT_FOUND};
    if (status == kOk && is_range_held(object, tag, tag)) return VX_STATUS{VX_STATE_VIOLATION};
    return status == kOk ? delete_attribute(object, tag) : status;
  });
}

VX_STATUS VX_Get_pAttribute_Info(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                 VX_VR* VR, int32_t* Count) {
  return with_tag({MsgID, PrivateCode, Group, Element},
                  [=](MsgObj& object, uint32_t tag) { return attribute_info(object, tag, VR, Count); });
}

VX_STATUS VX_Set_pValue_Representation(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                       uint8_t Element, VX_VR VR) {
  return change_attribute(
      {MsgID, PrivateCode, Group, Element}, VX_INVALID_TAG,
      [=](MsgObj& object, TagObj& attribute) { return set_value_representation(object, attribute, VR); });
}

// --- Values of any kind ---

VX_STATUS VX_Get_pValue_Count(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                              int32_t* Count) {
  return read_attribute({MsgID, PrivateCode, Group, Element}, Count,
                        [=](MsgObj&, TagObj& attribute) { return value_count(attribute, *Count); });
}

VX_STATUS VX_Get_pValue_Length(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                               int32_t ValueNumber, uint32_t* Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(PrivateCode);
  VX_REQUIRE_POINTER(Length);
  if (ValueNumber < 1) return VX_INVALID_VALUE_NUMBER;
  return read_attribute({MsgID, PrivateCode, Group, Element}, Length, [=](MsgObj& object, TagObj& attribute) {
    return value_length(object, attribute, ValueNumber, *Length);
  });
}

VX_STATUS VX_Get_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                        VX_DATA_TYPE DataType, uint32_t BufferSize, void* Buffer, uint32_t* Length) {
  return read_any({MsgID, PrivateCode, Group, Element}, true, DataType, BufferSize, Buffer, Length);
}

VX_STATUS VX_Get_Next_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                             VX_DATA_TYPE DataType, uint32_t BufferSize, void* Buffer, uint32_t* Length) {
  return read_any({MsgID, PrivateCode, Group, Element}, false, DataType, BufferSize, Buffer, Length);
}

VX_STATUS VX_Get_pValue_To_Buffer(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                  uint32_t BufferSize, void* Buffer, uint32_t* Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Length);
  return read_attribute({MsgID, PrivateCode, Group, Element}, Buffer, [=](MsgObj&, TagObj& attribute) {
    return value_to_buffer(attribute, BufferSize, Buffer, *Length);
  });
}

VX_STATUS VX_Get_pValue_To_Function(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                    void* UserInfo, VX_READER_FUNCTION Function) {
  const Triple triple{MsgID, PrivateCode, Group, Element};
  return read_attribute(triple, &triple, [=](MsgObj& object, TagObj& attribute) {
    return Function != nullptr ? value_to_function(object, attribute, UserInfo, Function)
                               : VX_NULL_POINTER_PARM;
  });
}

VX_STATUS VX_Set_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                        VX_DATA_TYPE DataType, const void* Value) {
  return write_value({MsgID, PrivateCode, Group, Element}, true, DataType, Value);
}

VX_STATUS VX_Set_Next_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                             VX_DATA_TYPE DataType, const void* Value) {
  return write_value({MsgID, PrivateCode, Group, Element}, false, DataType, Value);
}

VX_STATUS VX_Set_pValue_From_Buffer(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                    const void* Buffer, uint32_t Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Buffer);
  return write_attribute({MsgID, PrivateCode, Group, Element}, [=](MsgObj& object, TagObj& attribute) {
    return value_from_buffer(object, attribute, Buffer, Length);
  });
}

VX_STATUS VX_Set_pValue_From_Function(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                      void* UserInfo, VX_WRITER_FUNCTION Function) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Function);
  const VX_STATUS status =
      write_attribute({MsgID, PrivateCode, Group, Element}, [=](MsgObj& object, TagObj& attribute) {
        return value_from_function(object, attribute, UserInfo, Function);
      });
  return status == VX_TEMP_FILE_ERROR ? VX_SYSTEM_ERROR : status;
}

VX_STATUS VX_Set_pValue_To_NULL(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element) {
  return change_attribute({MsgID, PrivateCode, Group, Element}, VX_INVALID_TAG, set_null);
}

VX_STATUS VX_Set_Next_pValue_To_NULL(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                     uint8_t Element) {
  return change_attribute({MsgID, PrivateCode, Group, Element}, VX_INVALID_TAG,
                          [](MsgObj&, TagObj& attribute) { return set_next_null(attribute); });
}

VX_STATUS VX_Set_pValue_To_Empty(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element) {
  return write_attribute({MsgID, PrivateCode, Group, Element}, [](MsgObj& object, TagObj& attribute) {
    clear_value(object, attribute, false, config_bool(VX_CFG_RELEASE_SQ_ITEMS));
    return kOk;
  });
}

// --- Texts ---

VX_STATUS VX_Set_pValue_From_String(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                    const char* Value) {
  return write_value({MsgID, PrivateCode, Group, Element}, true, VX_STRING_TYPE, Value);
}

VX_STATUS VX_Set_Next_pValue_From_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, const char* Value) {
  return write_value({MsgID, PrivateCode, Group, Element}, false, VX_STRING_TYPE, Value);
}

VX_STATUS VX_Get_pValue_To_String(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                  int32_t BufferSize, char* Buffer) {
  return read_text({MsgID, PrivateCode, Group, Element}, true, BufferSize, Buffer);
}

VX_STATUS VX_Get_Next_pValue_To_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                       uint8_t Element, int32_t BufferSize, char* Buffer) {
  return read_text({MsgID, PrivateCode, Group, Element}, false, BufferSize, Buffer);
}

// --- Numbers: four functions a native type ---

#define VX_PRIVATE_NUMBER(Name, Native, DataType)                                                            \
  VX_STATUS VX_Set_pValue_From_##Name(int32_t MsgID, const char* PrivateCode, uint16_t Group,                \
                                      uint8_t Element, Native Value) {                                       \
    return write_value({MsgID, PrivateCode, Group, Element}, true, DataType, &Value);                        \
  }                                                                                                          \
  VX_STATUS VX_Set_Next_pValue_From_##Name(int32_t MsgID, const char* PrivateCode, uint16_t Group,           \
                                           uint8_t Element, Native Value) {                                  \
    return write_value({MsgID, PrivateCode, Group, Element}, false, DataType, &Value);                       \
  }                                                                                                          \
  VX_STATUS VX_Get_pValue_To_##Name(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element, \
                                    Native* Value) {                                                         \
    return read_number({MsgID, PrivateCode, Group, Element}, true, DataType, Value);                         \
  }                                                                                                          \
  VX_STATUS VX_Get_Next_pValue_To_##Name(int32_t MsgID, const char* PrivateCode, uint16_t Group,             \
                                         uint8_t Element, Native* Value) {                                   \
    return read_number({MsgID, PrivateCode, Group, Element}, false, DataType, Value);                        \
  }

VX_PRIVATE_NUMBER(Int, int32_t, VX_INT_TYPE)
VX_PRIVATE_NUMBER(UInt, uint32_t, VX_UINT_TYPE)
VX_PRIVATE_NUMBER(ShortInt, int16_t, VX_SHORTINT_TYPE)
VX_PRIVATE_NUMBER(UShortInt, uint16_t, VX_USHORTINT_TYPE)
VX_PRIVATE_NUMBER(LongInt, int32_t, VX_LONGINT_TYPE)
VX_PRIVATE_NUMBER(ULongInt, uint32_t, VX_ULONGINT_TYPE)
VX_PRIVATE_NUMBER(Float, float, VX_FLOAT_TYPE)
VX_PRIVATE_NUMBER(Double, double, VX_DOUBLE_TYPE)
