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

/**
 * Takes a block of an encoded stream.
 * @param MsgID  the object that is encoded or read.
 * @param UserInfo  as the caller passed it.
 * @param DataSize  bytes of the block; even, unless the function that calls says otherwise. 0 is possible
 *     with IsLast 1.
 * @param DataBuffer  the block; valid during the call.
 * @param IsFirst  1 on the first call, else 0.
 * @param IsLast  1 on the last call, else 0; after a failure there is no such call.
 * @return VX_NORMAL_COMPLETION to go on; anything else ends the work with VX_CALLBACK_CANNOT_COMPLY.
 */
typedef VX_STATUS (*VX_STREAM_OUTPUT)(int32_t MsgID, void* UserInfo, uint32_t DataSize, void* DataBuffer,
                                      int32_t IsFirst, int32_t IsLast);

/**
 * Gives the next block of an encoded stream.
 * @param MsgID  the object that is filled.
 * @param UserInfo  as the caller passed it.
 * @param IsFirst  1 on the first call, else 0.
 * @param DataSize  [out] bytes of the block, an even number unless the stream is deflated; 0 with IsLast 0
 *     asks to be called again.
 * @param DataBuffer  [out] the block, the callback's own; it must stay valid until the next call or the end
 *     of the decode.
 * @param IsLast  [out] not 0: this is the last block.
 * @return VX_NORMAL_COMPLETION to go on; anything else ends the work with VX_CALLBACK_CANNOT_COMPLY.
 */
typedef VX_STATUS (*VX_STREAM_INPUT)(int32_t MsgID, void* UserInfo, int32_t IsFirst, uint32_t* DataSize,
                                     void** DataBuffer, int32_t* IsLast);

/* ---- Transfer syntaxes --------------------------------------------------------------------------------- */

/**
 * Copies the UID of a transfer syntax as the configuration has it now.
 * @param Syntax  one of the codes of VX_TRANSFER_SYNTAX.
 * @param Uid  [out] the UID; untouched after a failure.
 * @param BufferSize  bytes of Uid, its NUL counted.
 * @retval VX_INVALID_TRANSFER_SYNTAX  no such code, or the configuration gives it no UID.
 * @retval VX_BUFFER_TOO_SMALL  nothing was copied.
 */
VX_API VX_STATUS VX_Get_Transfer_Syntax_From_Enum(VX_TRANSFER_SYNTAX Syntax, char* Uid, int32_t BufferSize);

/**
 * Tells which transfer syntax has a UID.
 * Letters are compared without regard to case. Of several syntaxes that the configuration gives one UID,
 * IMPLICIT_LITTLE_ENDIAN comes first and the private ones come last.
 * @param Uid  [in,out] the UID; blanks at its end are cut off in place.
 * @param Syntax  [out] the code.
 * @retval VX_INVALID_TRANSFER_SYNTAX  no syntax has this UID; *Syntax is IMPLICIT_LITTLE_ENDIAN.
 */
VX_API VX_STATUS VX_Get_Enum_From_Transfer_Syntax(char* Uid, VX_TRANSFER_SYNTAX* Syntax);

/**
 * Sets the transfer syntax that an object carries.
 * A message and an item that holds Pixel Data (7FE0,0010) keep a code; a file, and any other item of a
 * private sequence, keeps the UID as the value of (0002,0010).
 * @param MsgID  message, item or file.
 * @param Syntax  code of a syntax that has a UID in the configuration.
 * @retval VX_INVALID_MESSAGE_ID  also an object that carries no syntax.
 * @retval VX_INVALID_TRANSFER_SYNTAX  no such code, or the configuration gives it no UID.
 * @retval VX_BUFFER_TOO_SMALL  the configuration gives it a UID of more than 64 bytes.
 */
VX_API VX_STATUS VX_Set_Message_Transfer_Syntax(int32_t MsgID, VX_TRANSFER_SYNTAX Syntax);

/**
 * Reads the transfer syntax that an object carries.
 * @param MsgID  as for VX_Set_Message_Transfer_Syntax.
 * @param Syntax  [out] the code; after a failure untouched, or IMPLICIT_LITTLE_ENDIAN where the UID is of no
 *     syntax.
 * @retval VX_INVALID_MESSAGE_ID  also an object that carries no syntax.
 * @retval VX_STATE_VIOLATION  no syntax was set for a message or an item.
 * @retval VX_INVALID_TAG,VX_EMPTY_VALUE,VX_NULL_VALUE  a file without (0002,0010) or without a value there.
 * @retval VX_INVALID_TRANSFER_SYNTAX  the value of (0002,0010) is the UID of no syntax.
 */
VX_API VX_STATUS VX_Get_Message_Transfer_Syntax(int32_t MsgID, VX_TRANSFER_SYNTAX* Syntax);

/**
 * Forgets the transfer syntax of a message or item; of a file it only checks that (0002,0010) names one.
 * @param MsgID  message, item that holds Pixel Data, or file.
 * @retval VX_INVALID_MESSAGE_ID  also any other object.
 * @retval VX_INVALID_TAG,VX_EMPTY_VALUE,VX_NULL_VALUE,VX_INVALID_TRANSFER_SYNTAX  as
 *     VX_Get_Message_Transfer_Syntax; files only.
 */
VX_API VX_STATUS VX_Reset_Message_Transfer_Syntax(int32_t MsgID);

/* ---- Streams ------------------------------------------------------------------------------------------- */

/**
 * Encodes the attributes of a range of tags and hands the stream over in blocks.
 * Attributes without a value are left out. A file begins with its preamble and prefix, and its meta group is
 * in Syntax as well: VX_Write_File makes a file of PS3.10. In a deflated syntax groups below 0004 stay plain.
 * The values of group lengths that are there are brought up to date; with an encapsulated syntax Pixel Data
 * becomes OB. The object must not change meanwhile.
 * @param MsgID  message, item or file.
 * @param StartTag,EndTag  the range, both included; 0 and 0xFFFFFFFF for all.
 * @param Syntax  transfer syntax to write.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  takes the blocks; what it got before a failure is not taken back.
 * @retval VX_INVALID_TRANSFER_SYNTAX  no such code.
 * @retval VX_MESSAGE_EMPTY  the object has no attribute; Callback was not called.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Callback or a value callback refused, or a value callback told a length
 *     that is odd, or undefined where Syntax is not encapsulated.
 * @retval VX_INVALID_LENGTH_FOR_VR  a value, an item or a sequence is too long for its length field.
 * @retval VX_TOO_FEW_VALUES  a value callback ended before the length that it had told, or a value was left
 *     in its file.
 * @retval VX_INVALID_VALUE_FOR_VR  more than 128 sequences within each other.
 * @retval VX_TEMP_FILE_ERROR  a value could not be read from its temporary file.
 * @retval VX_ZLIB_ERROR  deflating failed.
 */
VX_API VX_STATUS VX_Message_To_Stream(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                      VX_TRANSFER_SYNTAX Syntax, void* UserInfo, VX_STREAM_OUTPUT Callback);

/**
 * Decodes a stream into an object, which keeps what it holds.
 * An attribute that has a value gets the new one. For a file the stream is a whole file of PS3.10: Syntax is
 * then that of the meta group, which names the other one. What was read before a failure stays.
 * @param MsgID  message, item or file.
 * @param StartTag  attributes below it are skipped.
 * @param EndTag  the first tag above it ends the decode; 0xFFFFFFFF reads all.
 * @param Syntax  transfer syntax of the stream.
 * @param ErrorTag  [out] the tag in hand when the decode failed, else 0.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  gives the blocks; it must not use the object.
 * @retval VX_INVALID_TRANSFER_SYNTAX  no such code, or a file that names none.
 * @retval VX_INVALID_FILE  a file whose prefix is not "DICM", with FORCE_DICM_IN_PREFIX off.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Callback refused, or a value callback did.
 * @retval VX_CALLBACK_PARM_ERROR  Callback told a size and gave no buffer.
 * @retval VX_CALLBACK_DATA_SIZE_UNEVEN  Callback gave a block of odd size; a deflated stream may have such.
 * @retval VX_UNEXPECTED_EOD  the stream ends within an element.
 * @retval VX_INVALID_VALUE_FOR_VR  items or delimiters are not where they must be, more than 128 sequences
 *     within each other, or native Pixel Data in an encapsulated syntax.
 * @retval VX_OUT_OF_ORDER_TAG  a tag below the one before it, with ALLOW_OUT_OF_ORDER_TAGS off.
 * @retval VX_INVALID_VR_IN_STREAM  unknown letters of a VR, with REJECT_INVALID_VR on.
 * @retval VX_INVALID_LENGTH_FOR_VR  numbers of a length that is no multiple of their size, with
 *     ALLOW_INVALID_LENGTH_FOR_VR off.
 * @retval VX_VALUE_TOO_LARGE  a text or numbers of 2 GB or more, or a value of more bytes than 32 bits count.
 * @retval VX_TEMP_FILE_ERROR  a large value could not be written to its temporary file.
 * @retval VX_ZLIB_ERROR  inflating failed, or the deflated data and the stream do not end together.
 */
VX_API VX_STATUS VX_Stream_To_Message(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                      VX_TRANSFER_SYNTAX Syntax, uint32_t* ErrorTag, void* UserInfo,
                                      VX_STREAM_INPUT Callback);

/**
 * Decodes a stream into an object, and tells where the decode stopped.
 * VX_VALUE_TOO_LARGE stands also for an offset beyond 32 bits, *Offset being 0xFFFFFFFF.
 * @param Offset  [out] offset in the (inflated) stream of the element where the decode stopped, or of the
 *     end.
 * @copydetails VX_Stream_To_Message
 */
VX_API VX_STATUS VX_Stream_To_Message_With_Offset(int32_t MsgID, uint32_t StartTag, uint32_t EndTag,
                                                  VX_TRANSFER_SYNTAX Syntax, uint32_t* ErrorTag,
                                                  uint32_t* Offset, void* UserInfo, VX_STREAM_INPUT Callback);

/**
 * Tells how many bytes VX_Message_To_Stream would write, without deflation.
 * Preamble and prefix of a file do not count. Value callbacks are asked for lengths, and group lengths are
 * brought up to date.
 * @param MsgID  message, item or file.
 * @param StartTag,EndTag  the range of tags, both included.
 * @param Length  [out] the bytes; 0xFFFFFFFF if a value is of undefined length, 0 after a failure.
 * @param Syntax  transfer syntax to write.
 * @retval VX_INVALID_TRANSFER_SYNTAX  no such code.
 * @retval VX_CALLBACK_CANNOT_COMPLY  a value callback refused, or told a length that can not be.
 * @retval VX_INVALID_LENGTH_FOR_VR  an item or a sequence is too long for its length field.
 * @retval VX_INVALID_VALUE_FOR_VR  more than 128 sequences within each other.
 * @retval VX_VALUE_TOO_LARGE  32 bits do not hold the sum.
 */
VX_API VX_STATUS VX_Get_Stream_Length(int32_t MsgID, uint32_t StartTag, uint32_t EndTag, uint32_t* Length,
                                      VX_TRANSFER_SYNTAX Syntax);

/**
 * Makes decoders and encoders keep the form of what they hand on, in all threads, from their next call on.
 * For programs that hand objects on as they came. They then
 * - write a text whose values nobody has set since it was read byte for byte as it was read: its padding,
 *   what stands behind a NUL. LO, LT, PN, SH, ST, UC and UT go on behind a NUL and may hold it, DS any text;
 * - leave private creators at their places whatever their text is;
 * - write OV, SV and UV (PS3.5 section 6.2) under their letters, in text forms too, see VX_Get_VR_Letters;
 * - write a NUL behind every value of odd length, also of UN, OW, OL, OD and OF.
 * @param Keep  not 0: as above; 0, as at the start and after VX_Library_Reset: the rules as they are
 *     elsewhere.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Keep_Stream_Form(int32_t Keep);

/**
 * Bounds what the decoders of the calling thread take, from the next call on.
 * For programs that decode what strangers send: an object takes up to fifty times its bytes where it is made
 * of nothing but small parts. A stream with more parts gives VX_VALUE_TOO_LARGE. Parts are elements and items
 * of all levels, values of texts, and each 256 bytes of what is held in memory; a part takes 500 bytes of
 * memory at the most. Values that go to files (LARGE_DATA_STORE) or stay in theirs do not count.
 * @param Most  the parts; 0, as at the start of a thread: no limit.
 * @return VX_NORMAL_COMPLETION.
 */
VX_API VX_STATUS VX_Limit_Decoder(uint32_t Most);

/**
 * Copies the two letters of an attribute's VR.
 * They are those of its code, but for VX_VR_UN those of OV, SV or UV where the attribute is known to have one
 * of them.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param Letters  [out] the letters and a NUL, at least 3 bytes; untouched after a failure.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 */
VX_API VX_STATUS VX_Get_VR_Letters(int32_t MsgID, uint32_t Tag, char* Letters);

/**
 * Makes an attribute of VX_VR_UN one of OV, SV or UV, or UN again.
 * Encoders write the letters, and the value in the byte order of the stream. In the object it is little
 * endian.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param Letters  "OV", "SV", "UV" or "UN".
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INVALID_VR_CODE  other letters.
 * @retval VX_INCOMPATIBLE_VR  the attribute is of another VR.
 */
VX_API VX_STATUS VX_Set_VR_Letters(int32_t MsgID, uint32_t Tag, const char* Letters);

#ifdef __cplusplus
}
#endif

#endif
