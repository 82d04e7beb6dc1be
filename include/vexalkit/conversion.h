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
 * Each function converts its argument to the form of the attribute's VR and stores it; an attribute that is
 * not there is added, as far as the object takes it. VX_Set_Value_From_... drops all earlier values,
 * VX_Set_Next_Value_From_... adds behind the last. For SQ the value is the ID of an item, which the sequence
 * then references.
 *
 * VX_INVALID_TAG, VX_TOO_MANY_VALUES, VX_NULL_POINTER_PARM (null text); VX_INCOMPATIBLE_VR: the VR does not
 * take this type; VX_VALUE_OUT_OF_RANGE: the number does not fit; VX_INVALID_ENCAPSULATED_PIXEL_DATA.
 * VX_INVALID_VALUE_FOR_VR and VX_INVALID_CHARS_IN_VALUE for a text that breaks the rules of its VR (PS3.5
 * section 6.2) come with the value stored all the same.
 */

/** Sets the first value from a NUL-terminated text. */
VX_API VX_STATUS VX_Set_Value_From_String(int32_t MsgID, uint32_t Tag, const char* Value);
/** Adds a value from a NUL-terminated text. */
VX_API VX_STATUS VX_Set_Next_Value_From_String(int32_t MsgID, uint32_t Tag, const char* Value);

/** Sets the first value from an int32_t. */
VX_API VX_STATUS VX_Set_Value_From_Int(int32_t MsgID, uint32_t Tag, int32_t Value);
/** Adds a value from an int32_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_Int(int32_t MsgID, uint32_t Tag, int32_t Value);

/** Sets the first value from a uint32_t. */
VX_API VX_STATUS VX_Set_Value_From_UInt(int32_t MsgID, uint32_t Tag, uint32_t Value);
/** Adds a value from a uint32_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_UInt(int32_t MsgID, uint32_t Tag, uint32_t Value);

/** Sets the first value from an int16_t. */
VX_API VX_STATUS VX_Set_Value_From_ShortInt(int32_t MsgID, uint32_t Tag, int16_t Value);
/** Adds a value from an int16_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_ShortInt(int32_t MsgID, uint32_t Tag, int16_t Value);

/** Sets the first value from a uint16_t. */
VX_API VX_STATUS VX_Set_Value_From_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t Value);
/** Adds a value from a uint16_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t Value);

/** Sets the first value from an int32_t. */
VX_API VX_STATUS VX_Set_Value_From_LongInt(int32_t MsgID, uint32_t Tag, int32_t Value);
/** Adds a value from an int32_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_LongInt(int32_t MsgID, uint32_t Tag, int32_t Value);

/** Sets the first value from a uint32_t. */
VX_API VX_STATUS VX_Set_Value_From_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t Value);
/** Adds a value from a uint32_t. */
VX_API VX_STATUS VX_Set_Next_Value_From_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t Value);

/** Sets the first value from a float. */
VX_API VX_STATUS VX_Set_Value_From_Float(int32_t MsgID, uint32_t Tag, float Value);
/** Adds a value from a float. */
VX_API VX_STATUS VX_Set_Next_Value_From_Float(int32_t MsgID, uint32_t Tag, float Value);

/** Sets the first value from a double. */
VX_API VX_STATUS VX_Set_Value_From_Double(int32_t MsgID, uint32_t Tag, double Value);
/** Adds a value from a double. */
VX_API VX_STATUS VX_Set_Next_Value_From_Double(int32_t MsgID, uint32_t Tag, double Value);

/* ---- Reading values into native types ------------------------------------------------------------------ */

/**
 * VX_Get_Value_To_... reads the first value and puts the attribute's cursor on it, VX_Get_Next_Value_To_...
 * moves the cursor on and reads there. Numbers come from DS, IS, the numeric VRs and SQ (the item's ID);
 * texts from all but UN and the bulk VRs.
 *
 * VX_NULL_POINTER_PARM, VX_INVALID_TAG, VX_INCOMPATIBLE_VR, VX_EMPTY_VALUE, VX_NULL_VALUE, VX_NO_MORE_VALUES;
 * VX_VALUE_OUT_OF_RANGE: the number does not fit the type; VX_INCOMPATIBLE_VALUE: the text is no number;
 * VX_BUFFER_TOO_SMALL: as much of the text as fits was copied, and the cursor stays on it.
 */

/** Reads the first value as a NUL-terminated text. */
VX_API VX_STATUS VX_Get_Value_To_String(int32_t MsgID, uint32_t Tag, int32_t BufferSize, char* Buffer);
/** Reads the next value as a NUL-terminated text. */
VX_API VX_STATUS VX_Get_Next_Value_To_String(int32_t MsgID, uint32_t Tag, int32_t BufferSize, char* Buffer);

/** Reads the first value as an int32_t. */
VX_API VX_STATUS VX_Get_Value_To_Int(int32_t MsgID, uint32_t Tag, int32_t* Value);
/** Reads the next value as an int32_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_Int(int32_t MsgID, uint32_t Tag, int32_t* Value);

/** Reads the first value as a uint32_t. */
VX_API VX_STATUS VX_Get_Value_To_UInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);
/** Reads the next value as a uint32_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_UInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);

/** Reads the first value as an int16_t. */
VX_API VX_STATUS VX_Get_Value_To_ShortInt(int32_t MsgID, uint32_t Tag, int16_t* Value);
/** Reads the next value as an int16_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_ShortInt(int32_t MsgID, uint32_t Tag, int16_t* Value);

/** Reads the first value as a uint16_t. */
VX_API VX_STATUS VX_Get_Value_To_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t* Value);
/** Reads the next value as a uint16_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_UShortInt(int32_t MsgID, uint32_t Tag, uint16_t* Value);

/** Reads the first value as an int32_t. */
VX_API VX_STATUS VX_Get_Value_To_LongInt(int32_t MsgID, uint32_t Tag, int32_t* Value);
/** Reads the next value as an int32_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_LongInt(int32_t MsgID, uint32_t Tag, int32_t* Value);

/** Reads the first value as a uint32_t. */
VX_API VX_STATUS VX_Get_Value_To_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);
/** Reads the next value as a uint32_t. */
VX_API VX_STATUS VX_Get_Next_Value_To_ULongInt(int32_t MsgID, uint32_t Tag, uint32_t* Value);

/** Reads the first value as a float. */
VX_API VX_STATUS VX_Get_Value_To_Float(int32_t MsgID, uint32_t Tag, float* Value);
/** Reads the next value as a float. */
VX_API VX_STATUS VX_Get_Next_Value_To_Float(int32_t MsgID, uint32_t Tag, float* Value);

/** Reads the first value as a double. */
VX_API VX_STATUS VX_Get_Value_To_Double(int32_t MsgID, uint32_t Tag, double* Value);
/** Reads the next value as a double. */
VX_API VX_STATUS VX_Get_Next_Value_To_Double(int32_t MsgID, uint32_t Tag, double* Value);

/* ---- Unicode ------------------------------------------------------------------------------------------- */

/**
 * Text in the character sets of (0008,0005) to UTF-16 and back (PS3.3 section C.12.1.1.2, PS3.5 section 6.1).
 * ICU stands behind it, and is loaded on request only: while it is not, all functions but the first give
 * VX_CANNOT_COMPLY. Lengths and BufferChars count UTF-16 code units. VX_BUFFER_TOO_SMALL: OutLength tells
 * what the buffer must hold. Any thread may call any of these at any time; unloading waits for conversions.
 */

/**
 * Non-zero loads ICU, zero unloads it. VX_CANNOT_COMPLY: no version of ICU is to be had. Needs no initialised
 * library.
 */
VX_API VX_STATUS VX_Enable_Unicode_Conversion(int32_t Enable);

/**
 * Decodes text. Charset is one defined term of (0008,0005), null or empty for the default repertoire; an
 * unknown one is read as ISO_IR 100, with a warning. Under a set with code extensions, escape sequences are
 * followed. Length -1: up to the NUL. U+FFFD stands for bytes that are no character; no NUL is added. Needs
 * no initialised library.
 */
VX_API VX_STATUS VX_Byte_To_Unicode(const char* Charset, const char* Bytes, int32_t Length,
                                    int32_t BufferChars, int32_t* OutLength, char16_t* Buffer);
/**
 * Encodes text under up to six sets, the first of them in force at the start, at the end and at delimiters.
 * Length -1: up to the NUL. The byte 1A stands for a character that is in none of them, with a warning in the
 * log; no NUL is added. VX_CANNOT_COMPLY: a set is not known, or takes no part in code extensions where there
 * are several. Needs no initialised library.
 */
VX_API VX_STATUS VX_Unicode_To_Byte(const char* const* Charsets, int32_t Count, const char16_t* Text,
                                    int32_t Length, int32_t BufferSize, int32_t* OutLength, char* Buffer);

/**
 * Sets the first value of an attribute of VR LO, LT, PN, SH, ST, UC or UT from UTF-16, in the character sets
 * of the object or of its holders. Length -1: up to the NUL. VX_INCOMPATIBLE_VR; else as
 * VX_Set_Value_From_String.
 */
VX_API VX_STATUS VX_Set_Value_From_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t Length,
                                                 const char16_t* Text);
/** As VX_Set_Value_From_UnicodeString, for the next value. */
VX_API VX_STATUS VX_Set_Next_Value_From_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t Length,
                                                      const char16_t* Text);
/**
 * Reads the first value as UTF-16, with a NUL behind it where there is room. A null value has length 0.
 * VX_INCOMPATIBLE_VR, VX_EMPTY_VALUE; else as VX_Get_Value_To_String.
 */
VX_API VX_STATUS VX_Get_Value_To_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t BufferChars,
                                               int32_t* OutLength, char16_t* Buffer);
/** As VX_Get_Value_To_UnicodeString, for the next value. */
VX_API VX_STATUS VX_Get_Next_Value_To_UnicodeString(int32_t MsgID, uint32_t Tag, int32_t BufferChars,
                                                    int32_t* OutLength, char16_t* Buffer);

#ifdef __cplusplus
}
#endif

#endif
