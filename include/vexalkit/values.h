/** @file
 * Values of any kind, and values that a function of the caller holds. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_VALUES_H
#define VEXALKIT_VALUES_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Requests of a value callback ---------------------------------------------------------------------- */

typedef int32_t VX_CALLBACK_REQUEST;

enum {
  VX_REQUEST_DATA = 300,   /* Out: *DataSize, *DataBuffer, *IsLast. The library wants the next piece. */
  VX_REQUEST_LENGTH = 301, /* Out: *DataSize, the total length in bytes; 0 is allowed. */
  VX_PROVIDE_DATA = 302,   /* In: a piece. Length 0 with *IsLast ends a value. */
  VX_PROVIDE_LENGTH = 303, /* In: the length; *DataBuffer points to the uint32_t stream offset, or is null. */
  VX_PROVIDE_LENGTH_KEPT = 304,   /* As 303, and the value will not be delivered: it stays in the stream. */
  VX_PROVIDE_OFFSET_TABLE = 305,  /* In: the item of the offset table of an encapsulated value. */
  VX_FREE_DATA = 306,             /* The library has no further use of the value. */
  VX_REQUEST_DATA_AT_OFFSET = 307 /* In: *DataSize, an offset in the stream that the value lay in (in the
                                     value, for one that the library made); out as for 300. */
};

/* ---- Types --------------------------------------------------------------------------------------------- */

/** Takes a piece of a value. The piece is valid during the call. VX_NORMAL_COMPLETION goes on. */
typedef VX_STATUS (*VX_READER_FUNCTION)(int32_t MsgID, uint32_t Tag, void* UserInfo, uint32_t DataSize,
                                        void* DataBuffer, int32_t IsFirst, int32_t IsLast);

/** Gives the next piece of a value; the buffer must stay valid until the next call. Sizes are even. */
typedef VX_STATUS (*VX_WRITER_FUNCTION)(int32_t MsgID, uint32_t Tag, int32_t IsFirst, void* UserInfo,
                                        int32_t* DataSize, void** DataBuffer, int32_t* IsLast);

/** Holds a value outside the library; see the VX_CALLBACK_REQUEST codes. */
typedef VX_STATUS (*VX_VALUE_CALLBACK)(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                       VX_CALLBACK_REQUEST Request, uint32_t* DataSize, void** DataBuffer,
                                       int32_t IsFirst, int32_t* IsLast);

typedef VX_STATUS (*VX_PRIVATE_VALUE_CALLBACK)(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element, void* UserInfo, VX_CALLBACK_REQUEST Request,
                                               uint32_t* DataSize, void** DataBuffer, int32_t IsFirst,
                                               int32_t* IsLast);

/* ---- Values of any kind -------------------------------------------------------------------------------- */

/**
 * The number of values, 1 for a bulk VR. VX_EMPTY_VALUE: none yet; VX_NULL_VALUE: one without data; *Count is
 * then 0. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Get_Value_Count(int32_t MsgID, uint32_t Tag, int32_t* Count);

/**
 * The length in bytes of value ValueNumber, counted from 1; for a bulk VR the whole length whatever the
 * number. VX_INVALID_TAG, VX_INVALID_VALUE_NUMBER, VX_EMPTY_VALUE, VX_NULL_VALUE, VX_CALLBACK_CANNOT_COMPLY.
 */
VX_API VX_STATUS VX_Get_Value_Length(int32_t MsgID, uint32_t Tag, int32_t ValueNumber, uint32_t* Length);

/**
 * Copies the whole value of UN, OB or OW; words are in the machine's byte order. *Length is the number of
 * bytes copied. VX_INVALID_TAG, VX_INCOMPATIBLE_VR; VX_CALLBACK_REGISTERED: a callback holds the value;
 * VX_EMPTY_VALUE, *Length is left as it was; VX_NULL_VALUE, *Length is 0 and Buffer, if it has room, starts
 * with a NUL; VX_BUFFER_TOO_SMALL: *Length is the size of the piece that did not fit, and the pieces in front
 * of it are in Buffer. VX_Get_Value_Length tells the size of the whole beforehand.
 */
VX_API VX_STATUS VX_Get_Value_To_Buffer(int32_t MsgID, uint32_t Tag, uint32_t BufferSize, void* Buffer,
                                        uint32_t* Length);

/**
 * Hands the value of a numeric or bulk VR, UR or UT to Function piece by piece, without a copy.
 * VX_INVALID_TAG, VX_INCOMPATIBLE_VR, VX_EMPTY_VALUE, VX_NULL_VALUE; VX_CALLBACK_CANNOT_COMPLY: Function or a
 * value callback refused.
 */
VX_API VX_STATUS VX_Get_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                          VX_READER_FUNCTION Function);

/**
 * Reads the first value in any native type; Length gets the bytes written. VX_BUFFER_TOO_SMALL, and as the
 * typed functions below.
 */
VX_API VX_STATUS VX_Get_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, uint32_t BufferSize,
                              void* Buffer, uint32_t* Length);

/**
 * Reads the next value. VX_NO_MORE_VALUES; VX_INCOMPATIBLE_VR for VX_BUFFER_TYPE.
 */
VX_API VX_STATUS VX_Get_Next_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, uint32_t BufferSize,
                                   void* Buffer, uint32_t* Length);

/**
 * Sets the first value, dropping all others; Value points to the native type. As the typed functions below.
 */
VX_API VX_STATUS VX_Set_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, const void* Value);

/**
 * Adds a value behind the last.
 */
VX_API VX_STATUS VX_Set_Next_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, const void* Value);

/**
 * Takes the value away; the attribute stays, and is added if it was not there. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Set_Value_To_Empty(int32_t MsgID, uint32_t Tag);

/**
 * Gives the attribute one value without data. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Set_Value_To_NULL(int32_t MsgID, uint32_t Tag);

/**
 * Adds a value without data behind the last; multi-valued text VRs only, else VX_INCOMPATIBLE_VR.
 */
VX_API VX_STATUS VX_Set_Next_Value_To_NULL(int32_t MsgID, uint32_t Tag);

/**
 * Replaces a bulk value by a copy of Length bytes. VX_INVALID_TAG, VX_INCOMPATIBLE_VR, VX_TOO_MANY_VALUES;
 * VX_INVALID_VALUE_FOR_VR: an odd length, other than for OB.
 */
VX_API VX_STATUS VX_Set_Value_From_Buffer(int32_t MsgID, uint32_t Tag, const void* Buffer, uint32_t Length);

/**
 * Fills the value of OB, OW, OL, OD, OF, UR or UT from the pieces that Function gives. VX_INVALID_TAG,
 * VX_INCOMPATIBLE_VR, VX_CALLBACK_CANNOT_COMPLY, VX_CALLBACK_DATA_SIZE_UNEVEN,
 * VX_CALLBACK_DATA_SIZE_NEGATIVE, VX_CALLBACK_PARM_ERROR.
 */
VX_API VX_STATUS VX_Set_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                            VX_WRITER_FUNCTION Function);

/**
 * Deletes the value under the attribute's cursor, which moves to the one before. VX_INVALID_TAG,
 * VX_INCOMPATIBLE_VR, VX_EMPTY_VALUE, VX_NULL_VALUE, VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_Delete_Current_Value(int32_t MsgID, uint32_t Tag);

/**
 * Reverses the bytes of each element of an OW, OL, OD or OF value in place; OB is left alone. VX_INVALID_TAG,
 * VX_INCOMPATIBLE_VR, VX_CALLBACK_REGISTERED, VX_TEMP_FILE_ERROR, VX_EMPTY_VALUE, VX_NULL_VALUE.
 */
VX_API VX_STATUS VX_Byte_Swap_OBOW(int32_t MsgID, uint32_t Tag);

/* ---- Values held by a callback ------------------------------------------------------------------------- */

/**
 * Registers Function for a standard tag of VR OB, OW, OL, OD or OF: when this application reads a file or
 * binds its callbacks to a message, the value then lives with the function. A second call replaces function
 * and UserInfo. VX_INVALID_TAG for a private tag.
 */
VX_API VX_STATUS VX_Register_Callback_Function(int32_t ApplicationID, uint32_t Tag, void* UserInfo,
                                               VX_VALUE_CALLBACK Function);

/**
 * The same for a private attribute.
 */
VX_API VX_STATUS VX_Register_pCallback_Function(int32_t ApplicationID, const char* PrivateCode,
                                                uint16_t Group, uint8_t Element, void* UserInfo,
                                                VX_PRIVATE_VALUE_CALLBACK Function);

/**
 * Removes a registration; bound attributes stay bound. VX_INVALID_TAG: there is none.
 */
VX_API VX_STATUS VX_Release_Callback_Function(int32_t ApplicationID, uint32_t Tag);

/**
 * The same for a private attribute. VX_INVALID_TAG: there is none.
 */
VX_API VX_STATUS VX_Release_pCallback_Function(int32_t ApplicationID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element);

/**
 * Binds all registered callbacks to the attributes of a message that have no value yet.
 */
VX_API VX_STATUS VX_Set_Message_Callbacks(int32_t ApplicationID, int32_t MsgID);

#ifdef __cplusplus
}
#endif

#endif
