/** @file
 * Private blocks and their attributes (PS3.5 section 7.8). The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_PRIVATE_ATTRIBUTES_H
#define VEXALKIT_PRIVATE_ATTRIBUTES_H

#include "values.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Private attributes (PS3.5 section 7.8) ------------------------------------------------------------ */

/**
 * A private attribute is named by creator code (trailing blanks do not count), group and low byte of the
 * element; the library finds the block. VX_INVALID_GROUP: the group is not private; VX_NOT_FOUND: the object
 * has no block of this creator; VX_TOO_MANY_BLOCKS: all 240 blocks are taken. In the pValue functions a
 * missing block, and in those that set a missing attribute too, gives VX_INVALID_PRIVATE_CODE.
 */
/**
 * Adds the creator; one that is there is no fault. VX_INVALID_GROUP, VX_TOO_MANY_BLOCKS;
 * VX_INVALID_PRIVATE_CODE: a code without characters.
 */
VX_API VX_STATUS VX_Add_Private_Block(int32_t MsgID, const char* PrivateCode, uint16_t Group);

/**
 * Deletes the creator and all attributes of its block. VX_INVALID_GROUP, VX_NOT_FOUND.
 */
VX_API VX_STATUS VX_Delete_Private_Block(int32_t MsgID, const char* PrivateCode, uint16_t Group);

/**
 * Adds an attribute. One that the dictionary knows takes its VR from there and adds the block; for any other
 * the block must exist, and VR counts. VX_TAG_ALREADY_EXISTS, VX_INVALID_VR_CODE, VX_INVALID_GROUP,
 * VX_NOT_FOUND.
 */
VX_API VX_STATUS VX_Add_Private_Attribute(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                          uint8_t Element, VX_VR VR);

/**
 * Deletes one attribute. VX_INVALID_GROUP, VX_NOT_FOUND, VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Delete_Private_Attribute(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element);

/**
 * As VX_Get_Attribute_Info.
 */
VX_API VX_STATUS VX_Get_pAttribute_Info(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element, VX_VR* VR, int32_t* Count);

/**
 * As VX_Set_Value_Representation.
 */
VX_API VX_STATUS VX_Set_pValue_Representation(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, VX_VR VR);

/** As VX_Get_Value_Count. */
VX_API VX_STATUS VX_Get_pValue_Count(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                     int32_t* Count);
/** As VX_Get_Value_Length. */
VX_API VX_STATUS VX_Get_pValue_Length(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                      int32_t ValueNumber, uint32_t* Length);
/** As VX_Get_Value. */
VX_API VX_STATUS VX_Get_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                               VX_DATA_TYPE DataType, uint32_t BufferSize, void* Buffer, uint32_t* Length);
/** As VX_Get_Next_Value. */
VX_API VX_STATUS VX_Get_Next_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                    VX_DATA_TYPE DataType, uint32_t BufferSize, void* Buffer,
                                    uint32_t* Length);
/** As VX_Get_Value_To_Buffer. */
VX_API VX_STATUS VX_Get_pValue_To_Buffer(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, uint32_t BufferSize, void* Buffer,
                                         uint32_t* Length);
/** As VX_Get_Value_To_Function. */
VX_API VX_STATUS VX_Get_pValue_To_Function(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, void* UserInfo, VX_READER_FUNCTION Function);
/** As VX_Set_Value. */
VX_API VX_STATUS VX_Set_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                               VX_DATA_TYPE DataType, const void* Value);
/** As VX_Set_Next_Value. */
VX_API VX_STATUS VX_Set_Next_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                    VX_DATA_TYPE DataType, const void* Value);
/** As VX_Set_Value_From_Buffer. */
VX_API VX_STATUS VX_Set_pValue_From_Buffer(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, const void* Buffer, uint32_t Length);
/** As VX_Set_Value_From_Function. */
VX_API VX_STATUS VX_Set_pValue_From_Function(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, void* UserInfo, VX_WRITER_FUNCTION Function);
/** As VX_Set_Value_To_NULL. */
VX_API VX_STATUS VX_Set_pValue_To_NULL(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                       uint8_t Element);
/** As VX_Set_Next_Value_To_NULL. */
VX_API VX_STATUS VX_Set_Next_pValue_To_NULL(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element);
/** As VX_Set_Value_To_Empty. */
VX_API VX_STATUS VX_Set_pValue_To_Empty(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element);

/** As VX_Set_Value_From_String. */
VX_API VX_STATUS VX_Set_pValue_From_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, const char* Value);
/** As VX_Set_Next_Value_From_String. */
VX_API VX_STATUS VX_Set_Next_pValue_From_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, const char* Value);
/** As VX_Set_Value_From_Int. */
VX_API VX_STATUS VX_Set_pValue_From_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element, int32_t Value);
/** As VX_Set_Next_Value_From_Int. */
VX_API VX_STATUS VX_Set_Next_pValue_From_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, int32_t Value);
/** As VX_Set_Value_From_UInt. */
VX_API VX_STATUS VX_Set_pValue_From_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, uint32_t Value);
/** As VX_Set_Next_Value_From_UInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, uint32_t Value);
/** As VX_Set_Value_From_ShortInt. */
VX_API VX_STATUS VX_Set_pValue_From_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, int16_t Value);
/** As VX_Set_Next_Value_From_ShortInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                  uint8_t Element, int16_t Value);
/** As VX_Set_Value_From_UShortInt. */
VX_API VX_STATUS VX_Set_pValue_From_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, uint16_t Value);
/** As VX_Set_Next_Value_From_UShortInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                   uint8_t Element, uint16_t Value);
/** As VX_Set_Value_From_LongInt. */
VX_API VX_STATUS VX_Set_pValue_From_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element, int32_t Value);
/** As VX_Set_Next_Value_From_LongInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                 uint8_t Element, int32_t Value);
/** As VX_Set_Value_From_ULongInt. */
VX_API VX_STATUS VX_Set_pValue_From_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, uint32_t Value);
/** As VX_Set_Next_Value_From_ULongInt. */
VX_API VX_STATUS VX_Set_Next_pValue_From_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                  uint8_t Element, uint32_t Value);
/** As VX_Set_Value_From_Float. */
VX_API VX_STATUS VX_Set_pValue_From_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                          uint8_t Element, float Value);
/** As VX_Set_Next_Value_From_Float. */
VX_API VX_STATUS VX_Set_Next_pValue_From_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element, float Value);
/** As VX_Set_Value_From_Double. */
VX_API VX_STATUS VX_Set_pValue_From_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, double Value);
/** As VX_Set_Next_Value_From_Double. */
VX_API VX_STATUS VX_Set_Next_pValue_From_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, double Value);

/** As VX_Get_Value_To_String. */
VX_API VX_STATUS VX_Get_pValue_To_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, int32_t BufferSize, char* Buffer);
/** As VX_Get_Next_Value_To_String. */
VX_API VX_STATUS VX_Get_Next_pValue_To_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, int32_t BufferSize, char* Buffer);
/** As VX_Get_Value_To_Int. */
VX_API VX_STATUS VX_Get_pValue_To_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                      int32_t* Value);
/** As VX_Get_Next_Value_To_Int. */
VX_API VX_STATUS VX_Get_Next_pValue_To_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, int32_t* Value);
/** As VX_Get_Value_To_UInt. */
VX_API VX_STATUS VX_Get_pValue_To_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                       uint8_t Element, uint32_t* Value);
/** As VX_Get_Next_Value_To_UInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element, uint32_t* Value);
/** As VX_Get_Value_To_ShortInt. */
VX_API VX_STATUS VX_Get_pValue_To_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, int16_t* Value);
/** As VX_Get_Next_Value_To_ShortInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, int16_t* Value);
/** As VX_Get_Value_To_UShortInt. */
VX_API VX_STATUS VX_Get_pValue_To_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element, uint16_t* Value);
/** As VX_Get_Next_Value_To_UShortInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                 uint8_t Element, uint16_t* Value);
/** As VX_Get_Value_To_LongInt. */
VX_API VX_STATUS VX_Get_pValue_To_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                          uint8_t Element, int32_t* Value);
/** As VX_Get_Next_Value_To_LongInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element, int32_t* Value);
/** As VX_Get_Value_To_ULongInt. */
VX_API VX_STATUS VX_Get_pValue_To_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, uint32_t* Value);
/** As VX_Get_Next_Value_To_ULongInt. */
VX_API VX_STATUS VX_Get_Next_pValue_To_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, uint32_t* Value);
/** As VX_Get_Value_To_Float. */
VX_API VX_STATUS VX_Get_pValue_To_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element, float* Value);
/** As VX_Get_Next_Value_To_Float. */
VX_API VX_STATUS VX_Get_Next_pValue_To_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, float* Value);
/** As VX_Get_Value_To_Double. */
VX_API VX_STATUS VX_Get_pValue_To_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, double* Value);
/** As VX_Get_Next_Value_To_Double. */
VX_API VX_STATUS VX_Get_Next_pValue_To_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, double* Value);

#ifdef __cplusplus
}
#endif

#endif
