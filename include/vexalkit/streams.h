/** @file
 * Encoded data sets: transfer syntaxes, encoding, decoding. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_STREAMS_H
#define VEXALKIT_STREAMS_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

/** Takes a block of an encoded stream, of even length, valid during the call. */
typedef VX_STATUS (*VX_STREAM_OUTPUT)(int32_t MsgID, void* UserInfo, uint32_t DataSize, void* DataBuffer,
                                      int32_t IsFirst, int32_t IsLast);

/** Gives the next block of a stream, of even length; it must stay valid until the next call. */
typedef VX_STATUS (*VX_STREAM_INPUT)(int32_t MsgID, void* UserInfo, int32_t IsFirst, uint32_t* DataSize,
                                     void** DataBuffer, int32_t* IsLast);

/* ---- Transfer syntaxes --------------------------------------------------------------------------------- */

/**
 * The UID of a transfer syntax as the configuration has it. VX_INVALID_TRANSFER_SYNTAX, VX_BUFFER_TOO_SMALL.
 */
VX_API VX_STATUS VX_Get_Transfer_Syntax_From_Enum(VX_TRANSFER_SYNTAX Syntax, char* Uid, int32_t BufferSize);

/**
 * The transfer syntax of a UID; trailing blanks of Uid are cut in place. VX_INVALID_TRANSFER_SYNTAX, *Syntax
 * then IMPLICIT_LITTLE_ENDIAN.
 */
VX_API VX_STATUS VX_Get_Enum_From_Transfer_Syntax(char* Uid, VX_TRANSFER_SYNTAX* Syntax);

/**
 * Sets the transfer syntax of a message, of an item that holds Pixel Data, or of a file, where it is the
 * value of (0002,0010). VX_INVALID_MESSAGE_ID for other objects, VX_INVALID_TRANSFER_SYNTAX.
 */
VX_API VX_STATUS VX_Set_Message_Transfer_Syntax(int32_t MsgID, VX_TRANSFER_SYNTAX Syntax);

/**
 * Reads it. VX_STATE_VIOLATION: none was set; VX_INVALID_MESSAGE_ID, VX_INVALID_TRANSFER_SYNTAX, and for a
 * file the status of reading (0002,0010).
 */
VX_API VX_STATUS VX_Get_Message_Transfer_Syntax(int32_t MsgID, VX_TRANSFER_SYNTAX* Syntax);

/**
 * Forgets it; for a file only checks that (0002,0010) names one. As VX_Get_Message_Transfer_Syntax.
 */
VX_API VX_STATUS VX_Reset_Message_Transfer_Syntax(int32_t MsgID);

/* ---- Streams ------------------------------------------------------------------------------------------- */

/**
 * Encodes the attributes from StartTag to EndTag, both included, and hands them to Callback in blocks of even
 * length; the last call has IsLast 1. VX_INVALID_TRANSFER_SYNTAX, VX_MESSAGE_EMPTY,
 * VX_CALLBACK_CANNOT_COMPLY, VX_INVALID_LENGTH_FOR_VR: a value is too long for its length field;
 * VX_TOO_FEW_VALUES: a value callback ended early; VX_ZLIB_ERROR. The object must not change meanwhile.
 */
VX_API VX_STATUS VX_Message_To_Stream(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                      VX_TRANSFER_SYNTAX Syntax, void* UserInfo, VX_STREAM_OUTPUT Callback);

/**
 * Decodes a stream into the object, which keeps what it holds. Attributes below StartTag are skipped; the
 * first tag above EndTag ends the decode. On a failure ErrorTag gets the tag in hand and what was read stays.
 * VX_INVALID_TRANSFER_SYNTAX, VX_CALLBACK_CANNOT_COMPLY, VX_CALLBACK_PARM_ERROR,
 * VX_CALLBACK_DATA_SIZE_UNEVEN, VX_UNEXPECTED_EOD, VX_INVALID_VALUE_FOR_VR: broken item structure or nesting
 * beyond the limit of 128 levels; VX_OUT_OF_ORDER_TAG, VX_INVALID_VR_IN_STREAM, VX_INVALID_LENGTH_FOR_VR,
 * VX_VALUE_TOO_LARGE, VX_ZLIB_ERROR. Callback must not use the object.
 */
VX_API VX_STATUS VX_Stream_To_Message(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                      VX_TRANSFER_SYNTAX Syntax, uint32_t* ErrorTag, void* UserInfo,
                                      VX_STREAM_INPUT Callback);

/**
 * The same; Offset gets the offset in the stream of the element where the decode stopped, or of the end.
 */
VX_API VX_STATUS VX_Stream_To_Message_With_Offset(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                                  VX_TRANSFER_SYNTAX Syntax, uint32_t* ErrorTag,
                                                  uint32_t* Offset, void* UserInfo, VX_STREAM_INPUT Callback);

/**
 * The bytes that VX_Message_To_Stream would write, without deflation; 0xFFFFFFFF if a value is of undefined
 * length. VX_INVALID_TRANSFER_SYNTAX, VX_CALLBACK_CANNOT_COMPLY, VX_VALUE_TOO_LARGE: beyond 32 bits.
 */
VX_API VX_STATUS VX_Get_Stream_Length(int32_t MsgID, uint32_t StartTag, uint32_t EndTag, uint32_t* Length,
                                      VX_TRANSFER_SYNTAX Syntax);

/**
 * For programs that hand objects on as they came. With Keep not 0, decoders and encoders of all threads, from
 * their next call on,
 * - write a text whose values nobody has set since it was read byte for byte as it was read: its padding,
 * what stands behind a NUL. The values of LO, LT, PN, SH, ST, UC and UT go on behind a NUL and may hold it;
 * - leave private creators at their places whatever their text is;
 * - write OV, SV and UV (PS3.5 section 6.2) under their letters, see VX_Get_VR_Letters;
 * - write a NUL behind every value of odd length, also of UN, OW, OL, OD and OF.
 * 0, as at the start and after VX_Library_Reset: the rules of the functions above.
 */
VX_API VX_STATUS VX_Keep_Stream_Form(int32_t Keep);

/**
 * The two letters of an attribute's VR and a NUL into a buffer of at least 3 bytes: those of its code, but
 * for VX_VR_UN those of OV, SV or UV where the attribute is known to have one of them. VX_INVALID_MESSAGE_ID,
 * VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Get_VR_Letters(int32_t MsgID, uint32_t Tag, char* Letters);

/**
 * Makes an attribute of VX_VR_UN one of "OV", "SV" or "UV", or "UN" again: encoders write the letters, and
 * the value in the byte order of the stream. In the object it is little endian. VX_INVALID_MESSAGE_ID,
 * VX_INVALID_TAG; VX_INVALID_VR_CODE: other letters; VX_INCOMPATIBLE_VR: an attribute of another VR.
 */
VX_API VX_STATUS VX_Set_VR_Letters(int32_t MsgID, uint32_t Tag, const char* Letters);

#ifdef __cplusplus
}
#endif

#endif
