/** @file
 * Private blocks and their attributes (PS3.5 section 7.8). The conventions stand in vexalkit.h.
 *
 * A private attribute is named by the creator code of its block, of which trailing blanks do not count, its
 * group and the low byte of its element; the library finds the block.
 *
 * @par Statuses of functions that are "as" another
 * VX_INVALID_GROUP: the group is not private. VX_INVALID_PRIVATE_CODE: the object has no such block, or, for
 * a function that sets a value or empties the attribute, no such attribute: none is added. VX_INVALID_TAG:
 * the block has no such attribute, for all others.
 */
#ifndef VEXALKIT_PRIVATE_ATTRIBUTES_H
#define VEXALKIT_PRIVATE_ATTRIBUTES_H

#include "values.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Private attributes (PS3.5 section 7.8) ------------------------------------------------------------ */

/**
 * Adds the creator of a private block at the first free place of its group; one that is there is no fault.
 * @param MsgID  message, item or file.
 * @param PrivateCode  the creator code, copied without trailing blanks.
 * @param Group  the group.
 * @retval VX_INVALID_GROUP  the group is not private.
 * @retval VX_TOO_MANY_BLOCKS  all 240 blocks of the group are taken.
 * @retval VX_INVALID_PRIVATE_CODE  the code has no characters.
 * @retval VX_SYSTEM_ERROR  also for a code that breaks the rules of LO (PS3.5 section 6.2);
 *   ALLOW_INVALID_PRIVATE_CREATOR_CODES lets characters pass that LO does not allow.
 */
VX_API VX_STATUS VX_Add_Private_Block(int32_t MsgID, const char* PrivateCode, uint16_t Group);

/**
 * Deletes a creator and all attributes of its block.
 * @param MsgID  message, item or file.
 * @param PrivateCode  the creator code.
 * @param Group  the group.
 * @retval VX_INVALID_GROUP  the group is not private.
 * @retval VX_NOT_FOUND  the object has no such block.
 */
VX_API VX_STATUS VX_Delete_Private_Block(int32_t MsgID, const char* PrivateCode, uint16_t Group);

/**
 * Adds a private attribute, without a value.
 * One that the dictionary knows takes its VR from there, and its block is added if need be.
 * @param MsgID  message, item or file.
 * @param PrivateCode  the creator code.
 * @param Group  the group.
 * @param Element  the low byte of the element.
 * @param VR  its VR, if the dictionary does not know the attribute.
 * @retval VX_TAG_ALREADY_EXISTS  the object has it, and it stays as it is.
 * @retval VX_INVALID_GROUP  the group is not private.
 * @retval VX_INVALID_VR_CODE  there is no such VR.
 * @retval VX_NOT_FOUND  the object has no such block, and the dictionary does not know the attribute.
 * @retval VX_TOO_MANY_BLOCKS  the same, and all 240 blocks of the group are taken.
 */
VX_API VX_STATUS VX_Add_Private_Attribute(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                          uint8_t Element, VX_VR VR);

/**
 * Deletes a private attribute with its values; its creator stays.
 * @param MsgID  message, item or file.
 * @param PrivateCode  the creator code.
 * @param Group  the group.
 * @param Element  the low byte of the element.
 * @retval VX_INVALID_GROUP  the group is not private.
 * @retval VX_NOT_FOUND  the object has no such block.
 * @retval VX_INVALID_TAG  the block has no such attribute.
 */
VX_API VX_STATUS VX_Delete_Private_Attribute(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element);

/**
 * As VX_Get_Attribute_Info, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param VR,Count  [out] as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Get_pAttribute_Info(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element, VX_VR* VR, int32_t* Count);

/**
 * As VX_Set_Value_Representation, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param VR  the new VR.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Set_pValue_Representation(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, VX_VR VR);

/**
 * As VX_Get_Value_Count, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param Count  [out] as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Get_pValue_Count(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                     int32_t* Count);
/**
 * As VX_Get_Value_Length, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param ValueNumber  as there; it is looked at first, and below 1 Length stays untouched.
 * @param Length  [out] as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Get_pValue_Length(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                      int32_t ValueNumber, uint32_t* Length);
/**
 * As VX_Get_Value, for a private attribute.
 * RETURN_COMMA_IN_DS_FL_FD_STRINGS has no effect.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param DataType,BufferSize  as there.
 * @param Buffer,Length  [out] as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Get_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                               VX_DATA_TYPE DataType, uint32_t BufferSize, void* Buffer, uint32_t* Length);
/** As VX_Get_Next_Value, for a private attribute. @copydetails VX_Get_pValue */
VX_API VX_STATUS VX_Get_Next_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                    VX_DATA_TYPE DataType, uint32_t BufferSize, void* Buffer,
                                    uint32_t* Length);
/**
 * As VX_Get_Value_To_Buffer, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param BufferSize  as there.
 * @param Buffer,Length  [out] as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Get_pValue_To_Buffer(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, uint32_t BufferSize, void* Buffer,
                                         uint32_t* Length);
/**
 * As VX_Get_Value_To_Function, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param UserInfo,Function  as there; Function gets the whole tag, its block included.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Get_pValue_To_Function(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, void* UserInfo, VX_READER_FUNCTION Function);
/**
 * As VX_Set_Value, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param DataType,Value  as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Set_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                               VX_DATA_TYPE DataType, const void* Value);
/** As VX_Set_Next_Value, for a private attribute. @copydetails VX_Set_pValue */
VX_API VX_STATUS VX_Set_Next_pValue(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                    VX_DATA_TYPE DataType, const void* Value);
/**
 * As VX_Set_Value_From_Buffer, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param Buffer,Length  as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Set_pValue_From_Buffer(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, const void* Buffer, uint32_t Length);
/**
 * As VX_Set_Value_From_Function, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param UserInfo,Function  as there; Function gets the whole tag, its block included.
 * @return as there, or a status that the top of this topic tells; VX_SYSTEM_ERROR stands for
 *   VX_TEMP_FILE_ERROR too.
 */
VX_API VX_STATUS VX_Set_pValue_From_Function(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, void* UserInfo, VX_WRITER_FUNCTION Function);
/**
 * As VX_Set_Value_To_NULL, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @return as there, or a status that the top of this topic tells; VX_INVALID_TAG for a missing attribute.
 */
VX_API VX_STATUS VX_Set_pValue_To_NULL(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                       uint8_t Element);
/** As VX_Set_Next_Value_To_NULL, for a private attribute. @copydetails VX_Set_pValue_To_NULL */
VX_API VX_STATUS VX_Set_Next_pValue_To_NULL(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element);
/**
 * As VX_Set_Value_To_Empty, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Set_pValue_To_Empty(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element);

/**
 * As VX_Set_Value_From_String, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param Value  as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Set_pValue_From_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, const char* Value);
/** As VX_Set_Next_Value_From_String, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_Next_pValue_From_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, const char* Value);
/** As VX_Set_Value_From_Int, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_pValue_From_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element, int32_t Value);
/** As VX_Set_Next_Value_From_Int, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_Next_pValue_From_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, int32_t Value);
/** As VX_Set_Value_From_UInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_pValue_From_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, uint32_t Value);
/** As VX_Set_Next_Value_From_UInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_Next_pValue_From_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, uint32_t Value);
/** As VX_Set_Value_From_ShortInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_pValue_From_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, int16_t Value);
/** As VX_Set_Next_Value_From_ShortInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_Next_pValue_From_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                  uint8_t Element, int16_t Value);
/** As VX_Set_Value_From_UShortInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_pValue_From_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, uint16_t Value);
/** As VX_Set_Next_Value_From_UShortInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_Next_pValue_From_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                   uint8_t Element, uint16_t Value);
/** As VX_Set_Value_From_LongInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_pValue_From_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element, int32_t Value);
/** As VX_Set_Next_Value_From_LongInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_Next_pValue_From_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                 uint8_t Element, int32_t Value);
/** As VX_Set_Value_From_ULongInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_pValue_From_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, uint32_t Value);
/** As VX_Set_Next_Value_From_ULongInt, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_Next_pValue_From_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                  uint8_t Element, uint32_t Value);
/** As VX_Set_Value_From_Float, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_pValue_From_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                          uint8_t Element, float Value);
/** As VX_Set_Next_Value_From_Float, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_Next_pValue_From_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element, float Value);
/** As VX_Set_Value_From_Double, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_pValue_From_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, double Value);
/** As VX_Set_Next_Value_From_Double, for a private attribute. @copydetails VX_Set_pValue_From_String */
VX_API VX_STATUS VX_Set_Next_pValue_From_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, double Value);

/**
 * As VX_Get_Value_To_String, for a private attribute.
 * RETURN_COMMA_IN_DS_FL_FD_STRINGS has no effect.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param BufferSize  as there.
 * @param Buffer  [out] as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Get_pValue_To_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, int32_t BufferSize, char* Buffer);
/** As VX_Get_Next_Value_To_String, for a private attribute. @copydetails VX_Get_pValue_To_String */
VX_API VX_STATUS VX_Get_Next_pValue_To_String(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, int32_t BufferSize, char* Buffer);
/**
 * As VX_Get_Value_To_Int, for a private attribute.
 * @param MsgID,PrivateCode,Group,Element  the object, and the attribute in it.
 * @param Value  [out] as there.
 * @return as there, or a status that the top of this topic tells.
 */
VX_API VX_STATUS VX_Get_pValue_To_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group, uint8_t Element,
                                      int32_t* Value);
/** As VX_Get_Next_Value_To_Int, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_Next_pValue_To_Int(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, int32_t* Value);
/** As VX_Get_Value_To_UInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_pValue_To_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                       uint8_t Element, uint32_t* Value);
/** As VX_Get_Next_Value_To_UInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_Next_pValue_To_UInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element, uint32_t* Value);
/** As VX_Get_Value_To_ShortInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_pValue_To_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, int16_t* Value);
/** As VX_Get_Next_Value_To_ShortInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_Next_pValue_To_ShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, int16_t* Value);
/** As VX_Get_Value_To_UShortInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_pValue_To_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                            uint8_t Element, uint16_t* Value);
/** As VX_Get_Next_Value_To_UShortInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_Next_pValue_To_UShortInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                 uint8_t Element, uint16_t* Value);
/** As VX_Get_Value_To_LongInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_pValue_To_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                          uint8_t Element, int32_t* Value);
/** As VX_Get_Next_Value_To_LongInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_Next_pValue_To_LongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element, int32_t* Value);
/** As VX_Get_Value_To_ULongInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_pValue_To_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                           uint8_t Element, uint32_t* Value);
/** As VX_Get_Next_Value_To_ULongInt, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_Next_pValue_To_ULongInt(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                                uint8_t Element, uint32_t* Value);
/** As VX_Get_Value_To_Float, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_pValue_To_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                        uint8_t Element, float* Value);
/** As VX_Get_Next_Value_To_Float, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_Next_pValue_To_Float(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                             uint8_t Element, float* Value);
/** As VX_Get_Value_To_Double, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_pValue_To_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                         uint8_t Element, double* Value);
/** As VX_Get_Next_Value_To_Double, for a private attribute. @copydetails VX_Get_pValue_To_Int */
VX_API VX_STATUS VX_Get_Next_pValue_To_Double(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                              uint8_t Element, double* Value);

#ifdef __cplusplus
}
#endif

#endif
