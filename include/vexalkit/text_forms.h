/** @file
 * JSON, XML and listings. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_TEXT_FORMS_H
#define VEXALKIT_TEXT_FORMS_H

#include "streams.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

/** Gives the next block of a text, of any length; it must stay valid until the next call. */
typedef VX_STATUS (*VX_TEXT_INPUT)(int32_t MsgID, void* UserInfo, uint32_t* DataSize, void** DataBuffer,
                                   int32_t IsFirst, int32_t* IsLast);

/* ---- JSON (PS3.18 annex F) ----------------------------------------------------------------------------- */

/**
 * Options of VX_Message_To_Json; VX_JSON_STANDARD also of the reader.
 */
typedef enum {
  VX_JSON_INCLUDE_BULK = 1,       /* values of OB, OW, OL, OD and OF other than Pixel Data */
  VX_JSON_INCLUDE_PIXEL_DATA = 2, /* the value of (7FE0,0010) */
  VX_JSON_EXCLUDE_SEQUENCES = 4,  /* sequences without their items */
  VX_JSON_EXCLUDE_PRIVATE = 8,    /* no private attributes, nor their creators */
  VX_JSON_INDENT = 16,            /* by 4; stays on for all later calls of the process */
  VX_JSON_STANDARD = 32           /* the DICOM JSON Model to the letter, see below */
} VX_JSON_OPTION;

/**
 * Writes an object as one JSON object to Callback, in blocks, the last one padded with a blank to an even
 * sum. Nothing is written unless all can be. Group lengths are left out. By default the form is the toolkit's
 * own: numbers are strings, a null value among others is an empty string, and <, >, &, quotes and control
 * characters in texts are written as XML references. With VX_JSON_STANDARD numbers are JSON numbers (IS and
 * DS where the number reads back as the same text), null values are null, texts are as they are, groups 0000
 * and 0002 are left out, and so is encapsulated Pixel Data, which has no inline form. Text is UTF-8; without
 * VX_Enable_Unicode_Conversion, bytes of other character sets than ISO_IR 192 become the code points of the
 * same value. UN is always written. Only where values are held by callbacks or on temporary files does the
 * text lie in memory as a whole before it goes out.
 * VX_INVALID_MESSAGE_ID; VX_MESSAGE_EMPTY; VX_SYSTEM_ERROR: Callback refused, or no memory;
 * VX_INVALID_VALUE_FOR_VR: sequences nested beyond 128 levels; VX_CALLBACK_CANNOT_COMPLY: a value that a
 * callback holds could not be read. The object must not change meanwhile.
 */
VX_API VX_STATUS VX_Message_To_Json(int32_t MsgID, void* UserInfo, int32_t Options,
                                    VX_STREAM_OUTPUT Callback);

/**
 * Adds the attributes of a JSON object in the toolkit's own form to an object, which keeps what it holds; an
 * attribute that is there gets the new value and the VR of the document. Private blocks are found or added by
 * their creators; of two members with one key the last holds, with a warning. The text is read as a whole and
 * found good before the object is touched; brackets may be nested 1024 deep, sequences 128. A number is taken
 * as it is written, of SV and UV too, which are stored as UN. One bad member does not stop the others: the
 * log tells its place, and the status is that of the last bad one, also VX_INVALID_VALUE_FOR_VR and
 * VX_INVALID_CHARS_IN_VALUE for values that were stored all the same. VX_INVALID_MESSAGE_ID;
 * VX_CALLBACK_CANNOT_COMPLY: Callback failed, or the text is no JSON (the log has the place);
 * VX_SYSTEM_ERROR: it is no object; VX_INVALID_TAG; VX_INVALID_VR_IN_STREAM; VX_REQUIRED_VALUE_MISSING: a
 * private creator without a code; VX_NOT_FOUND: a private attribute without a creator; VX_INCOMPATIBLE_VALUE;
 * VX_VALUE_OUT_OF_RANGE. Text goes into the object's character sets; what these can not hold is `?`, with a
 * warning and VX_INVALID_CHARS_IN_VALUE, as is a backslash in one value. Text beyond ASCII in an object
 * without (0008,0005) is UTF-8, and (0008,0005) becomes ISO_IR 192. All else that is not taken as it stands
 * has a warning. Callback must not use the object.
 */
VX_API VX_STATUS VX_Json_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback);

/**
 * The same with Options: with VX_JSON_STANDARD the document is in the standard's form, and texts are taken as
 * they stand. As VX_Json_To_Message.
 */
VX_API VX_STATUS VX_Json_To_Message_With_Options(int32_t MsgID, void* UserInfo, int32_t Options,
                                                 VX_TEXT_INPUT Callback);

/* ---- XML ----------------------------------------------------------------------------------------------- */

/**
 * Options of the XML writers.
 */
typedef enum {
  VX_XML_INCLUDE_BULK = 1,       /* values of OB, OW, OL, OD and OF other than Pixel Data */
  VX_XML_INCLUDE_PIXEL_DATA = 2, /* the value of (7FE0,0010) */
  VX_XML_EXCLUDE_SEQUENCES = 4,  /* native form: sequences without their items; else no sequences */
  VX_XML_EXCLUDE_PRIVATE = 8,    /* no private attributes, nor their creators */
  VX_XML_BASE64 = 16,            /* toolkit's form: bulk values in Base64, not in hexadecimal */
  VX_XML_INDENT = 32             /* native form: on many lines */
} VX_XML_OPTION;

/**
 * Writes an object as XML of the toolkit's own form to Callback, in blocks, the last one padded with a blank
 * to an even sum. Nothing is written unless all can be. The root tells the kind (DcmMessage, DcmFile,
 * DICOMDIR, DcmItem); below it stand one section for the meta group of a File and one for the data set, with
 * an Attribute element for each attribute. Group lengths and groups below 0008 are left out (of a File and a
 * DICOMDIR those below 0004). Text is UTF-8, UN is always written. VX_INVALID_MESSAGE_ID; VX_MESSAGE_EMPTY;
 * VX_SYSTEM_ERROR: Callback refused, or no memory; VX_INVALID_VALUE_FOR_VR: sequences nested beyond 128
 * levels; VX_CALLBACK_CANNOT_COMPLY: a value that a callback holds could not be read. The object must not
 * change meanwhile.
 */
VX_API VX_STATUS VX_Message_To_XML(int32_t MsgID, void* UserInfo, int32_t Options, VX_STREAM_OUTPUT Callback);

/**
 * The same in the form of the Native DICOM Model (PS3.19 section A.1). Control characters that XML can not
 * hold become U+FFFD, with a warning.
 */
VX_API VX_STATUS VX_Message_To_XML_Native(int32_t MsgID, void* UserInfo, int32_t Options,
                                          VX_STREAM_OUTPUT Callback);

/**
 * Adds the attributes of a document in the toolkit's own form to an object, which keeps what it holds; an
 * attribute that is there gets the new value and the VR of the document. Callback is asked for the document
 * once, in blocks. Values that break a rule of their VR are stored all the same; other bad attributes are
 * passed over with a line in the log. Character sets are as for VX_Json_To_Message. VX_INVALID_MESSAGE_ID;
 * the status of a Callback that fails; VX_SYSTEM_ERROR: the text is no well-formed XML, has a document type
 * declaration, is nested beyond 128 levels of sequences or is another document, and the object is as it was;
 * or libxml2 can not be opened. Callback must not use the object.
 */
VX_API VX_STATUS VX_XML_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback);

/**
 * The same for a document in the form of the Native DICOM Model (PS3.19 section A.1). An attribute without a
 * tag ends the reading; what stands before it is kept. Values are taken in the order of their numbers. An
 * element of a private block may be named without the block, as (gggg,00ee). Values that lie elsewhere
 * (BulkData) are not fetched, with a warning.
 */
VX_API VX_STATUS VX_XML_Native_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback);

/* ---- Listing ------------------------------------------------------------------------------------------- */

/**
 * Lists an object to a file, or to the standard output with a null name or one that can not be opened. Does
 * nothing before initialisation. The caller must hold the object to itself.
 */
VX_API void VX_List_Message(int32_t MsgID, const char* FileName);

/**
 * The same for an item.
 */
VX_API void VX_List_Item(int32_t ItemID, const char* FileName);

/**
 * The same for a file.
 */
VX_API void VX_List_File(int32_t FileID, const char* FileName);

#ifdef __cplusplus
}
#endif

#endif
