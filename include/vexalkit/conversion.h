/** @file
 * Values from native types and back, UTF-16 text. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_CONVERSION_H
#define VEXALKIT_CONVERSION_H

#ifndef __cplusplus
#include <uchar.h>
#endif

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Setting values from native types ------------------------------------------------------------------ */

/**
 * Sets the first value from a text, dropping all others.
 * A text VR takes it as it is, less its padding if REMOVE_PADDING_CHARS is on; an empty text is a value
 * without data. Other VRs but the bulk ones take a decimal number: SS and US its low 16 bits, SQ the handle
 * of an item, which the sequence then references. After a failure other than the first three the attribute is
 * empty, or with the next function as it was, unless the status says that the value is stored.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute, added if need be.
 * @param Value  NUL-terminated, copied. A comma is a point in DS, FL and FD if
 *   ALLOW_COMMA_IN_DS_FL_FD_STRINGS is on, and refused with VX_INVALID_VALUE_FOR_VR if not, as is a text
 *   above 256 bytes; the attribute then stays as it was.
 * @retval VX_INVALID_TAG  the object has no such attribute and does not take it.
 * @retval VX_TOO_MANY_VALUES  there are 2147483647.
 * @retval VX_INCOMPATIBLE_VR  a bulk VR.
 * @retval VX_INVALID_VALUE_FOR_VR  the text breaks the rules of its text VR (PS3.5 section 6.2), and is
 *   stored all the same; for another VR it is no number, or names no item that the sequence can take: there
 *   is none, or it holds the sequence itself.
 * @retval VX_INVALID_CHARS_IN_VALUE  the text has characters that its VR does not allow, and is stored all
 *   the same.
 * @retval VX_VALUE_TOO_LARGE  a name in (0008,0005) has more than 16 bytes; the text is stored.
 * @retval VX_VALUE_OUT_OF_RANGE  the number does not fit FL or FD.
 * @retval VX_INVALID_ENCAPSULATED_PIXEL_DATA  the item has encapsulated pixel data, and the object is not
 *   encapsulated.
 */
VX_API VX_STATUS VX_Set_Value_From_String(int32_t MsgID, uint32_t Tag, const char* Value);
/**
 * Adds a value from a text behind the last.
 * @copydetails VX_Set_Value_From_String
 */
VX_API VX_STATUS VX_Set_Next_Value_From_String(int32_t MsgID, uint32_t Tag, const char* Value);

/**
 * Sets the first value from an int32_t, dropping all others.
 * - DS and IS take the number as text: a floating one as DS with the most digits that fit 16 characters, as
 *   IS without its fraction.
 * - The integer VRs take integers, and floating numbers that are whole. SS and US take the low 16 bits of an
 *   Int or UInt, and refuse a LongInt or ULongInt that does not fit. AT takes the types of 32 bits only.
 * - FL and FD take any number. They and SL take an unsigned integer as the signed one of the same bits.
 * - SQ takes the handle of an item, which the sequence then references.
 *
 * After a failure other than the first two the attribute is empty, or with a next function as it was, unless
 * the status says that the value is stored.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute, added if need be.
 * @param Value  the number.
 * @retval VX_INVALID_TAG  the object has no such attribute and does not take it.
 * @retval VX_TOO_MANY_VALUES  there are 2147483647.
 * @retval VX_INCOMPATIBLE_VR  the VR does not take this type. A bulk VR keeps its value in any case.
 * @retval VX_VALUE_OUT_OF_RANGE  the number does not fit, or is not whole.
 * @retval VX_INVALID_VALUE_FOR_VR  the text breaks the rules of DS or IS (PS3.5 section 6.2), and is stored
 *   all the same; or there is no such item, or it holds the sequence itself.
 * @retval VX_INVALID_CHARS_IN_VALUE  the number is infinite or none, and its text is stored all the same.
 * @retval VX_INVALID_ENCAPSULATED_PIXEL_DATA  the item has encapsulated pixel data, and the object is not
 *   encapsulated.
 */
VX_API VX_STATUS VX_Set_Value_From_Int(int32_t MsgID, uint32_t Tag, int32_t Value);
/**
 * Adds a value from an int32_t behind the last.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Next_Value_From_Int(int32_t MsgID, uint32_t Tag, int32_t Value);

/**
 * Sets the first value from a uint32_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Value_From_UInt(int32_t MsgID, uint32_t Tag, uint32_t Value);
/**
 * Adds a value from a uint32_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Next_Value_From_UInt(int32_t MsgID, uint32_t Tag, uint32_t Value);

/**
 * Sets the first value from an int16_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Value_From_ShortInt(int32_t MsgID, uint32_t Tag, int16_t Value);
/**
 * Adds a value from an int16_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Next_Value_From_ShortInt(int32_t MsgID, uint32_t Tag, int16_t Value);

/**
 * Sets the first value from a uint16_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Value_From_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t Value);
/**
 * Adds a value from a uint16_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Next_Value_From_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t Value);

/**
 * Sets the first value from an int32_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Value_From_LongInt(int32_t MsgID, uint32_t Tag, int32_t Value);
/**
 * Adds a value from an int32_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Next_Value_From_LongInt(int32_t MsgID, uint32_t Tag, int32_t Value);

/**
 * Sets the first value from a uint32_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Value_From_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t Value);
/**
 * Adds a value from a uint32_t.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Next_Value_From_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t Value);

/**
 * Sets the first value from a float.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Value_From_Float(int32_t MsgID, uint32_t Tag, float Value);
/**
 * Adds a value from a float.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Next_Value_From_Float(int32_t MsgID, uint32_t Tag, float Value);

/**
 * Sets the first value from a double.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Value_From_Double(int32_t MsgID, uint32_t Tag, double Value);
/**
 * Adds a value from a double.
 * @copydetails VX_Set_Value_From_Int
 */
VX_API VX_STATUS VX_Set_Next_Value_From_Double(int32_t MsgID, uint32_t Tag, double Value);

/* ---- Reading values into native types ------------------------------------------------------------------ */

/**
 * Reads the first value as a text, and puts the value cursor on it.
 * A text VR gives its text as it is stored, FL 7 digits, FD 16, AT its tag as a decimal number, SQ the handle
 * of the item. With RETURN_COMMA_IN_DS_FL_FD_STRINGS a comma stands for the point of DS, FL and FD.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param BufferSize  bytes of Buffer, its NUL counted; 2 or more.
 * @param Buffer  [out] the text; empty after a failure, but untouched for VX_INVALID_TAG, and cut for
 *   VX_BUFFER_TOO_SMALL.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INCOMPATIBLE_VR  a bulk VR.
 * @retval VX_EMPTY_VALUE  no value yet.
 * @retval VX_NULL_VALUE  the value has no data.
 * @retval VX_BUFFER_TOO_SMALL  as much of the text as fits was copied, with a NUL. The cursor stays on the
 *   value.
 */
VX_API VX_STATUS VX_Get_Value_To_String(int32_t MsgID, uint32_t Tag, int32_t BufferSize, char* Buffer);
/**
 * Moves the value cursor on and reads there, as a text.
 * @retval VX_NO_MORE_VALUES  there is no further value.
 * @copydetails VX_Get_Value_To_String
 */
VX_API VX_STATUS VX_Get_Next_Value_To_String(int32_t MsgID, uint32_t Tag, int32_t BufferSize, char* Buffer);

/**
 * Reads the first value as an int32_t, and puts the value cursor on it.
 * Numbers come from DS, IS, the numeric VRs and SQ, which gives the handle of the item. An integer loses its
 * fraction. UInt and ULongInt give 2147483647 for a DS or IS above that; Double gives its value.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param Value  [out] the number; undefined after VX_VALUE_OUT_OF_RANGE, untouched after another failure.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INCOMPATIBLE_VR  another VR.
 * @retval VX_EMPTY_VALUE  no value yet.
 * @retval VX_NULL_VALUE  the value has no data.
 * @retval VX_INCOMPATIBLE_VALUE  the text of a DS or IS is no number, or has more than 49 bytes.
 * @retval VX_VALUE_OUT_OF_RANGE  the number does not fit the type.
 */
VX_API VX_STATUS VX_Get_Value_To_Int(int32_t MsgID, uint32_t Tag, int32_t* Value);
/**
 * Moves the value cursor on and reads there, as an int32_t.
 * @retval VX_NO_MORE_VALUES  there is no further value.
 * @copydetails VX_Get_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Next_Value_To_Int(int32_t MsgID, uint32_t Tag, int32_t* Value);

/**
 * Reads the first value as a uint32_t.
 * @copydetails VX_Get_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Value_To_UInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);
/**
 * Reads the next value as a uint32_t.
 * @copydetails VX_Get_Next_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Next_Value_To_UInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);

/**
 * Reads the first value as an int16_t.
 * @copydetails VX_Get_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Value_To_ShortInt(int32_t MsgID, uint32_t Tag, int16_t* Value);
/**
 * Reads the next value as an int16_t.
 * @copydetails VX_Get_Next_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Next_Value_To_ShortInt(int32_t MsgID, uint32_t Tag, int16_t* Value);

/**
 * Reads the first value as a uint16_t.
 * @copydetails VX_Get_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Value_To_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t* Value);
/**
 * Reads the next value as a uint16_t.
 * @copydetails VX_Get_Next_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Next_Value_To_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t* Value);

/**
 * Reads the first value as an int32_t.
 * @copydetails VX_Get_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Value_To_LongInt(int32_t MsgID, uint32_t Tag, int32_t* Value);
/**
 * Reads the next value as an int32_t.
 * @copydetails VX_Get_Next_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Next_Value_To_LongInt(int32_t MsgID, uint32_t Tag, int32_t* Value);

/**
 * Reads the first value as a uint32_t.
 * @copydetails VX_Get_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Value_To_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);
/**
 * Reads the next value as a uint32_t.
 * @copydetails VX_Get_Next_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Next_Value_To_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);

/**
 * Reads the first value as a float.
 * @copydetails VX_Get_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Value_To_Float(int32_t MsgID, uint32_t Tag, float* Value);
/**
 * Reads the next value as a float.
 * @copydetails VX_Get_Next_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Next_Value_To_Float(int32_t MsgID, uint32_t Tag, float* Value);

/**
 * Reads the first value as a double.
 * @copydetails VX_Get_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Value_To_Double(int32_t MsgID, uint32_t Tag, double* Value);
/**
 * Reads the next value as a double.
 * @copydetails VX_Get_Next_Value_To_Int
 */
VX_API VX_STATUS VX_Get_Next_Value_To_Double(int32_t MsgID, uint32_t Tag, double* Value);

/* ---- Unicode ------------------------------------------------------------------------------------------- */

/**
 * Loads or unloads ICU, which stands behind the conversion of text in the character sets of (0008,0005) to
 * UTF-16 and back (PS3.3 section C.12.1.1.2, PS3.5 section 6.1).
 * It is not loaded at the start, and the functions below give VX_CANNOT_COMPLY while it is not. Unloading
 * waits for conversions. Needs no initialised library.
 * @param Enable  non-zero loads, zero unloads.
 * @retval VX_CANNOT_COMPLY  no version of ICU is to be had.
 */
VX_API VX_STATUS VX_Enable_Unicode_Conversion(int32_t Enable);

/**
 * Decodes text to UTF-16.
 * Under a set with code extensions, escape sequences are followed. U+FFFD stands for bytes that are no
 * character; no NUL is added. Needs no initialised library.
 * @param Charset  one defined term of (0008,0005); null or empty for the default repertoire. An unknown one
 *   is read as ISO_IR 100, with a warning in the log.
 * @param Bytes  the text.
 * @param Length  its bytes; negative: up to the NUL.
 * @param BufferChars  UTF-16 code units that Buffer holds.
 * @param OutLength  [out] code units of the whole text, also for VX_BUFFER_TOO_SMALL.
 * @param Buffer  [out] the text; untouched after a failure.
 * @retval VX_CANNOT_COMPLY  ICU is not loaded.
 * @retval VX_BUFFER_TOO_SMALL  OutLength tells what Buffer must hold.
 */
VX_API VX_STATUS VX_Byte_To_Unicode(const char* Charset, const char* Bytes, int32_t Length,
                                    int32_t BufferChars, int32_t* OutLength, char16_t* Buffer);
/**
 * Encodes UTF-16 text under up to six character sets, the first of them in force at the start, at the end and
 * at delimiters.
 * The byte 1A stands for a character that is in none of them, with a warning in the log; no NUL is added.
 * Needs no initialised library.
 * @param Charsets  defined terms of (0008,0005), in their order; null or empty ones for the default
 *   repertoire. May be null where Count is 0.
 * @param Count  how many; 0 for the default repertoire.
 * @param Text  the text.
 * @param Length  its code units; negative: up to the NUL.
 * @param BufferSize  bytes of Buffer.
 * @param OutLength  [out] bytes of the whole text, also for VX_BUFFER_TOO_SMALL.
 * @param Buffer  [out] the text; untouched after a failure.
 * @retval VX_CANNOT_COMPLY  ICU is not loaded; there are more than six sets, or one that is not known, or,
 *   among several, one that takes no part in code extensions.
 * @retval VX_BUFFER_TOO_SMALL  OutLength tells what Buffer must hold.
 */
VX_API VX_STATUS VX_Unicode_To_Byte(const char* const* Charsets, int32_t Count, const char16_t* Text,
                                    int32_t Length, int32_t BufferSize, int32_t* OutLength, char* Buffer);

/**
 * Sets the first value of an attribute of VR LO, LT, PN, SH, ST, UC or UT from UTF-16, in the character sets
 * of the object or of its holders.
 * The byte 1A stands for a character that is in none of them, with a warning in the log.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute, added if need be.
 * @param Length  code units of Text; negative: up to the NUL. A NUL ends the text in any case.
 * @param Text  the text, copied.
 * @retval VX_CANNOT_COMPLY  ICU is not loaded.
 * @retval VX_INCOMPATIBLE_VR  another VR.
 * @return Otherwise as VX_Set_Value_From_String.
 */
VX_API VX_STATUS VX_Set_Value_From_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t Length,
                                                 const char16_t* Text);
/**
 * Adds a value from UTF-16 behind the last.
 * @copydetails VX_Set_Value_From_UnicodeString
 */
VX_API VX_STATUS VX_Set_Next_Value_From_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t Length,
                                                      const char16_t* Text);
/**
 * Reads the first value of an attribute of VR LO, LT, PN, SH, ST, UC or UT as UTF-16, and puts the value
 * cursor on it.
 * U+FFFD stands for bytes that are no character. A value without data has length 0, with normal status.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute.
 * @param BufferChars  UTF-16 code units that Buffer holds.
 * @param OutLength  [out] code units of the whole text, also for VX_BUFFER_TOO_SMALL; untouched after another
 *   failure.
 * @param Buffer  [out] the text, with a NUL behind it where there is room; untouched after a failure.
 * @retval VX_NULL_POINTER_PARM  also for a BufferChars below 1.
 * @retval VX_CANNOT_COMPLY  ICU is not loaded.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INCOMPATIBLE_VR  another VR.
 * @retval VX_VALUE_TOO_LARGE  a name in (0008,0005) has more than 16 bytes.
 * @retval VX_EMPTY_VALUE  no value yet.
 * @retval VX_BUFFER_TOO_SMALL  OutLength tells what Buffer must hold. The cursor stays on the value.
 */
VX_API VX_STATUS VX_Get_Value_To_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t BufferChars,
                                               int32_t* OutLength, char16_t* Buffer);
/**
 * Moves the value cursor on and reads there, as UTF-16.
 * @retval VX_NO_MORE_VALUES  there is no further value.
 * @copydetails VX_Get_Value_To_UnicodeString
 */
VX_API VX_STATUS VX_Get_Next_Value_To_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t BufferChars,
                                                    int32_t* OutLength, char16_t* Buffer);

#ifdef __cplusplus
}
#endif

#endif
