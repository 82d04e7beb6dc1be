/** @file
 * Values of any kind, and values that a function of the caller holds. The conventions stand in vexalkit.h.
 *
 * @par Values
 * An attribute is empty, has one value without data ("null"), or one or more values, of which those of a text
 * may be without data too. A bulk VR (OB, OW, OL, OD, OF, UN) has one value. A function that sets a value
 * adds an attribute that the object lacks, if the dictionary has it and no template closes the object.
 *
 * @par The value cursor
 * Each attribute has one: it stands on the value that was read last, and the "next" functions move it on.
 *
 * @par Statuses of any function that stores or reads values
 * VX_VALUE_TOO_LARGE: an attribute may not come to 4 GiB. VX_TEMP_FILE_ERROR: with LARGE_DATA_STORE at FILE,
 * a large value lies on temporary files, which failed.
 */
#ifndef VEXALKIT_VALUES_H
#define VEXALKIT_VALUES_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Requests of a value callback ---------------------------------------------------------------------- */

/** What the library wants of a function that holds a value. */
typedef int32_t VX_CALLBACK_REQUEST;

enum {
  VX_REQUEST_DATA = 300,          /* Out: *DataSize, *DataBuffer, *IsLast: the next piece of the value. */
  VX_REQUEST_LENGTH = 301,        /* Out: *DataSize, the total length in bytes; 0 is allowed. */
  VX_PROVIDE_DATA = 302,          /* In: a piece. Length 0 with *IsLast ends a value. */
  VX_PROVIDE_LENGTH = 303,        /* In: the length; *DataBuffer points to the uint32_t stream offset, or is
                                     null. The value follows. */
  VX_PROVIDE_LENGTH_KEPT = 304,   /* As 303, and the value will not be delivered: it stays in the stream. */
  VX_PROVIDE_OFFSET_TABLE = 305,  /* In: the item of the offset table of an encapsulated value, at its end. */
  VX_FREE_DATA = 306,             /* The library has no further use of the value (USE_FREE_DATA_CALLBACK). */
  VX_REQUEST_DATA_AT_OFFSET = 307 /* In: *DataSize, an offset in the stream that the value lay in (in the
                                     value, for one that the library made); out as for 300. */
};

/* ---- Types --------------------------------------------------------------------------------------------- */

/**
 * Takes a piece of a value.
 * @param MsgID  the object that was named.
 * @param Tag  the attribute.
 * @param UserInfo  as the caller gave it.
 * @param DataSize  bytes of the piece.
 * @param DataBuffer  the piece, valid during the call; words are in the machine's byte order.
 * @param IsFirst  1 for the first piece, else 0.
 * @param IsLast  1 for the last piece, else 0.
 * @return VX_NORMAL_COMPLETION to go on; anything else ends the call.
 */
typedef VX_STATUS (*VX_READER_FUNCTION)(int32_t MsgID, uint32_t Tag, void* UserInfo, uint32_t DataSize,
                                        void* DataBuffer, int32_t IsFirst, int32_t IsLast);

/**
 * Gives the next piece of a value.
 * @param MsgID  the object that was named.
 * @param Tag  the attribute.
 * @param IsFirst  1 for the first call, else 0.
 * @param UserInfo  as the caller gave it.
 * @param DataSize  [out] bytes of the piece, an even number; 0 for no data now. It is 0 on the way in.
 * @param DataBuffer  [out] the piece, which the function owns and keeps until it is called again or the call
 *   ends.
 * @param IsLast  [out] 1 with the last piece. It is 0 on the way in.
 * @return VX_NORMAL_COMPLETION to go on; anything else ends the call.
 */
typedef VX_STATUS (*VX_WRITER_FUNCTION)(int32_t MsgID, uint32_t Tag, int32_t IsFirst, void* UserInfo,
                                        int32_t* DataSize, void** DataBuffer, int32_t* IsLast);

/**
 * Holds a value outside the library. The pointers are never null.
 * @param MsgID  the object.
 * @param Tag  the attribute.
 * @param UserInfo  as it was registered.
 * @param Request  one of the requests above, which says which of the next arguments count.
 * @param DataSize  [in,out] bytes.
 * @param DataBuffer  [in,out] in: the library's, valid during the call; out: the function's own, which it
 *   keeps until it is called again.
 * @param IsFirst  1 for the first piece of a run, else 0.
 * @param IsLast  [in,out] 1 for the last piece, else 0.
 * @return VX_NORMAL_COMPLETION to go on; anything else fails the call that asked.
 */
typedef VX_STATUS (*VX_VALUE_CALLBACK)(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                       VX_CALLBACK_REQUEST Request, uint32_t* DataSize, void** DataBuffer,
                                       int32_t IsFirst, int32_t* IsLast);

/**
 * As VX_VALUE_CALLBACK, for a private attribute. PrivateCode, Group and Element are as they were registered,
 * trailing blanks of the code apart.
 */
typedef VX_STATUS (*VX_PRIVATE_VALUE_CALLBACK)(int32_t MsgID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element, void* UserInfo, VX_CALLBACK_REQUEST Request,
                                               uint32_t* DataSize, void** DataBuffer, int32_t IsFirst,
                                               int32_t* IsLast);

/* ---- Values of any kind -------------------------------------------------------------------------------- */

/**
 * Tells the number of values; 1 for a bulk VR and for a value that a callback holds.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param Count  [out] the number; 0 for the next two statuses.
 * @retval VX_EMPTY_VALUE  no value yet.
 * @retval VX_NULL_VALUE  one value without data.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 */
VX_API VX_STATUS VX_Get_Value_Count(int32_t MsgID, uint32_t Tag, int32_t* Count);

/**
 * Tells the length of one value.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param ValueNumber  the value, from 1; for a bulk VR, or a value that a callback holds, any.
 * @param Length  [out] bytes: of a text as it is stored, of one number, of a whole bulk value; for SQ the
 *   number of items. 0 after a failure, but for VX_INVALID_TAG.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INVALID_VALUE_NUMBER  ValueNumber is below 1, or there are fewer values.
 * @retval VX_EMPTY_VALUE  no value yet, or the callback gave a length of 0.
 * @retval VX_NULL_VALUE  no value has data.
 * @retval VX_CALLBACK_CANNOT_COMPLY  the callback that holds the value refused.
 */
VX_API VX_STATUS VX_Get_Value_Length(int32_t MsgID, uint32_t Tag, int32_t ValueNumber, uint32_t* Length);

/**
 * Copies the whole value of UN, OB or OW; words are in the machine's byte order.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param BufferSize  bytes of Buffer. VX_Get_Value_Length tells what is needed.
 * @param Buffer  [out] the value.
 * @param Length  [out] bytes copied; untouched for VX_INVALID_TAG to VX_EMPTY_VALUE below.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INCOMPATIBLE_VR  another VR.
 * @retval VX_CALLBACK_REGISTERED  a callback holds the value.
 * @retval VX_EMPTY_VALUE  no value yet.
 * @retval VX_NULL_VALUE  a value without data: Length is 0, and Buffer, if it has room, starts with a NUL.
 * @retval VX_BUFFER_TOO_SMALL  Length is the size of the piece that did not fit, and the pieces in front of
 *   it are in Buffer.
 */
VX_API VX_STATUS VX_Get_Value_To_Buffer(int32_t MsgID, uint32_t Tag, uint32_t BufferSize, void* Buffer,
                                        uint32_t* Length);

/**
 * Hands the value of a numeric or bulk VR, UR or UT over piece by piece, without a copy.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param UserInfo  handed to Function as it is; may be null.
 * @param Function  takes the pieces.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INCOMPATIBLE_VR  another VR.
 * @retval VX_EMPTY_VALUE  no value yet, its callback gave a length of 0, or its temporary file could not be
 *   read.
 * @retval VX_NULL_VALUE  a value without data.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Function refused, or the callback that holds the value.
 */
VX_API VX_STATUS VX_Get_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                          VX_READER_FUNCTION Function);

/**
 * Reads the first value in any native type, and puts the value cursor on it.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param DataType  a VX_DATA_TYPE.
 * @param BufferSize  bytes of Buffer; for a number the size of its type is enough.
 * @param Buffer  [out] the value in its type: a text with its NUL, or the bytes for VX_BUFFER_TYPE.
 * @param Length  [out] bytes of the value, the NUL of a text not counted; for a number the size of its type,
 *   also after a failure. Else 0 after a failure, but untouched for VX_INVALID_TAG, and for VX_BUFFER_TYPE
 *   the size of the piece that did not fit.
 * @retval VX_INVALID_DATA_TYPE  there is no such type.
 * @retval VX_BUFFER_TOO_SMALL  as much of a text as fits was copied, with a NUL; of a number nothing.
 * @return Otherwise as VX_Get_Value_To_String, VX_Get_Value_To_Int or VX_Get_Value_To_Buffer.
 */
VX_API VX_STATUS VX_Get_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, uint32_t BufferSize,
                              void* Buffer, uint32_t* Length);

/**
 * Moves the value cursor on and reads there.
 * @retval VX_NO_MORE_VALUES  there is no further value.
 * @retval VX_INCOMPATIBLE_VR  DataType is VX_BUFFER_TYPE.
 * @copydetails VX_Get_Value
 */
VX_API VX_STATUS VX_Get_Next_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, uint32_t BufferSize,
                                   void* Buffer, uint32_t* Length);

/**
 * Sets the first value from any native type, dropping all others.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param DataType  a VX_DATA_TYPE, VX_BUFFER_TYPE apart.
 * @param Value  points to the native type, or to a NUL-terminated text; copied.
 * @retval VX_INVALID_DATA_TYPE  there is no such type, or it is VX_BUFFER_TYPE.
 * @return Otherwise as VX_Set_Value_From_String or VX_Set_Value_From_Int.
 */
VX_API VX_STATUS VX_Set_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, const void* Value);

/**
 * Adds a value from any native type behind the last.
 * @copydetails VX_Set_Value
 */
VX_API VX_STATUS VX_Set_Next_Value(int32_t MsgID, uint32_t Tag, VX_DATA_TYPE DataType, const void* Value);

/**
 * Takes all values away; the attribute stays.
 * Items that no other sequence references are freed if RELEASE_SQ_ITEMS is on. A callback that holds the
 * value is unbound.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute, added if need be.
 * @retval VX_INVALID_TAG  the object has no such attribute and does not take it.
 */
VX_API VX_STATUS VX_Set_Value_To_Empty(int32_t MsgID, uint32_t Tag);

/**
 * Gives the attribute one value without data, and takes all others away.
 * @copydetails VX_Set_Value_To_Empty
 */
VX_API VX_STATUS VX_Set_Value_To_NULL(int32_t MsgID, uint32_t Tag);

/**
 * Adds a value without data behind the last.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute, added if need be.
 * @retval VX_INVALID_TAG  the object has no such attribute and does not take it.
 * @retval VX_INCOMPATIBLE_VR  the VR is no text, or a text of one value (LT, ST, UR, UT).
 * @retval VX_TOO_MANY_VALUES  there are 2147483647.
 */
VX_API VX_STATUS VX_Set_Next_Value_To_NULL(int32_t MsgID, uint32_t Tag);

/**
 * Replaces the value of a bulk VR by a copy of bytes.
 * A callback that holds the value is unbound.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute, added if need be.
 * @param Buffer  the bytes, words in the machine's byte order; not null, even for a Length of 0.
 * @param Length  how many: even, other than for OB. 0 leaves the attribute without a value.
 * @retval VX_INVALID_TAG  the object has no such attribute and does not take it.
 * @retval VX_INCOMPATIBLE_VR  the VR is not OB, OW, OL, OD, OF or UN.
 * @retval VX_INVALID_VALUE_FOR_VR  Length is odd.
 * @retval VX_TOO_MANY_VALUES  the value has 2147483647 pieces.
 */
VX_API VX_STATUS VX_Set_Value_From_Buffer(int32_t MsgID, uint32_t Tag, const void* Buffer, uint32_t Length);

/**
 * Fills the value of OB, OW, OL, OD, OF, UR or UT from the pieces that a function gives.
 * Where a callback holds the value, it gets the pieces, and a status of its own that is not normal is the
 * result.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute, added if need be.
 * @param UserInfo  handed to Function as it is; may be null.
 * @param Function  gives the pieces. The former value goes with its first one; without any it stays.
 * @retval VX_INVALID_TAG  the object has no such attribute and does not take it.
 * @retval VX_INCOMPATIBLE_VR  another VR.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Function refused. The value is empty, if there was a piece, as for the
 *   next.
 * @retval VX_CALLBACK_PARM_ERROR  a piece without a buffer.
 * @retval VX_CALLBACK_DATA_SIZE_UNEVEN  a piece of odd size. The pieces so far stay, as for the next.
 * @retval VX_CALLBACK_DATA_SIZE_NEGATIVE  a piece of negative size.
 */
VX_API VX_STATUS VX_Set_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                            VX_WRITER_FUNCTION Function);

/**
 * Deletes the value under the value cursor, which moves to the one before; the first if the cursor is on
 * none.
 * An item is freed unless another sequence references it.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute, of a text VR, SQ or UN.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INCOMPATIBLE_VR  another VR.
 * @retval VX_EMPTY_VALUE  no value.
 * @retval VX_NULL_VALUE  the only value has no data, and stays.
 * @retval VX_NO_MORE_VALUES  the cursor is behind the last value.
 */
VX_API VX_STATUS VX_Delete_Current_Value(int32_t MsgID, uint32_t Tag);

/**
 * Reverses the bytes of each element of an OW, OL, OD or OF value in place; OB is left alone, with normal
 * status.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INCOMPATIBLE_VR  another VR.
 * @retval VX_CALLBACK_REGISTERED  a callback holds the value.
 * @retval VX_TEMP_FILE_ERROR  the value lies on a temporary file.
 * @retval VX_EMPTY_VALUE  no value yet.
 * @retval VX_NULL_VALUE  a value without data.
 */
VX_API VX_STATUS VX_Byte_Swap_OBOW(int32_t MsgID, uint32_t Tag);

/* ---- Values held by a callback ------------------------------------------------------------------------- */

/**
 * Registers a function that holds the values of a standard attribute of VR OB, OW, OL, OD or OF.
 * When this application reads, sends, receives or writes an object, or binds its callbacks to it, the value
 * of the attribute lives with the function from then on, unless the object has a value for it already. A
 * second call replaces function and UserInfo for later bindings. A registration lasts until the release of it
 * or of the application.
 * @param ApplicationID  the application.
 * @param Tag  the attribute.
 * @param UserInfo  handed to Function as it is; may be null, and belongs to the caller.
 * @param Function  holds the values; kept in objects that it is bound to.
 * @retval VX_INVALID_TAG  Tag is 0 or private.
 */
VX_API VX_STATUS VX_Register_Callback_Function(int32_t ApplicationID, uint32_t Tag, void* UserInfo,
                                               VX_VALUE_CALLBACK Function);

/**
 * As VX_Register_Callback_Function, for a private attribute.
 * @param ApplicationID  the application.
 * @param PrivateCode  the creator code, copied; trailing blanks do not count.
 * @param Group  the group.
 * @param Element  the low byte of the element.
 * @param UserInfo  handed to Function as it is; may be null, and belongs to the caller.
 * @param Function  holds the values; kept in objects that it is bound to.
 * @retval VX_INVALID_PRIVATE_CODE  the code has more than 513 bytes.
 */
VX_API VX_STATUS VX_Register_pCallback_Function(int32_t ApplicationID, const char* PrivateCode,
                                                uint16_t Group, uint8_t Element, void* UserInfo,
                                                VX_PRIVATE_VALUE_CALLBACK Function);

/**
 * Removes a registration; bound attributes stay bound.
 * @param ApplicationID  the application.
 * @param Tag  the attribute.
 * @retval VX_INVALID_TAG  there is none.
 */
VX_API VX_STATUS VX_Release_Callback_Function(int32_t ApplicationID, uint32_t Tag);

/**
 * Removes a registration for a private attribute; bound attributes stay bound.
 * @param ApplicationID  the application.
 * @param PrivateCode,Group,Element  as they were registered; trailing blanks of the code do not count.
 * @retval VX_INVALID_TAG  there is none.
 */
VX_API VX_STATUS VX_Release_pCallback_Function(int32_t ApplicationID, const char* PrivateCode, uint16_t Group,
                                               uint8_t Element);

/**
 * Binds all registered callbacks of an application to the attributes of an object that have no value yet.
 * An attribute of another VR than OB, OW, OL, OD and OF stays as it is, with an error in the log.
 * @param ApplicationID  the application.
 * @param MsgID  message, item or file.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Set_Message_Callbacks(int32_t ApplicationID, int32_t MsgID);

#ifdef __cplusplus
}
#endif

#endif
