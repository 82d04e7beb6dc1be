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

/**
 * Gives the next block of a text. MsgID and UserInfo are those of the call; IsFirst is 1 in the first call,
 * else 0. DataSize gets the number of bytes, any from 0, DataBuffer the bytes, which stay the caller's and
 * valid until the next call or the end of the reading, and IsLast 1 with the last block. A status other than
 * VX_NORMAL_COMPLETION ends the reading.
 */
typedef VX_STATUS (*VX_TEXT_INPUT)(int32_t MsgID, void* UserInfo, uint32_t* DataSize, void** DataBuffer,
                                   int32_t IsFirst, int32_t* IsLast);

/* ---- JSON (PS3.18 annex F) ----------------------------------------------------------------------------- */

/** Options of VX_Message_To_Json; VX_JSON_STANDARD also of VX_Json_To_Message_With_Options. */
typedef enum {
  VX_JSON_INCLUDE_BULK = 1,       /* values of OB, OW, OL, OD and OF other than Pixel Data */
  VX_JSON_INCLUDE_PIXEL_DATA = 2, /* the value of (7FE0,0010) */
  VX_JSON_EXCLUDE_SEQUENCES = 4,  /* sequences without their items */
  VX_JSON_EXCLUDE_PRIVATE = 8,    /* no private attributes, nor their creators */
  VX_JSON_INDENT = 16,            /* by 4; stays on for all later calls of the process */
  VX_JSON_STANDARD = 32           /* the DICOM JSON Model to the letter, see below */
} VX_JSON_OPTION;

/**
 * Writes an object as one JSON object.
 * Left out are group lengths and, with a warning, values that a callback holds, unless they are of a bulk VR.
 * By default the form is the toolkit's own: numbers are strings, a null value among others is an empty
 * string, and <, >, &, quotes and control characters in texts are written as XML references. With
 * VX_JSON_STANDARD numbers are JSON numbers (IS and DS where the number reads back as the same text), null
 * values are null, texts are as they are, groups 0000 and 0002 are left out, and so is encapsulated Pixel
 * Data, which has no inline form. Values of UN are always written.
 *
 * Text is UTF-8; without VX_Enable_Unicode_Conversion, bytes of other character sets than ISO_IR 192 become
 * the code points of the same value. Only where values are held by callbacks or on temporary files does the
 * text lie in memory as a whole before it goes out.
 * @param MsgID  message, item or file.
 * @param UserInfo  handed to Callback as it is; may be null.
 * @param Options  sum of VX_JSON_OPTION codes, or 0.
 * @param Callback  gets the text in blocks, the last one padded with a blank where the sum would be odd. It
 *   is called only for an object that can be written as a whole.
 * @retval VX_MESSAGE_EMPTY  the object has no attributes.
 * @retval VX_INVALID_VALUE_FOR_VR  sequences are nested beyond 128 levels.
 * @retval VX_CALLBACK_CANNOT_COMPLY  a bulk value that a callback holds can not be read.
 * @retval VX_EMPTY_VALUE  a callback that holds a bulk value tells length 0, or such a value on a temporary
 *   file can not be read.
 * @retval VX_TEMP_FILE_ERROR  a text on a temporary file can not be read.
 * @retval VX_SYSTEM_ERROR  Callback answered another status than VX_NORMAL_COMPLETION, or no memory.
 */
VX_API VX_STATUS VX_Message_To_Json(int32_t MsgID, void* UserInfo, int32_t Options,
                                    VX_STREAM_OUTPUT Callback);

/**
 * Adds the attributes of a JSON object in the toolkit's own form to an object, which keeps what it holds.
 * An attribute that is there gets the new value and the VR of the document. Private blocks are found or added
 * by their creators; of two members with one key the last holds, with a warning. The text is read as a whole
 * and found good before the object is touched; brackets may be nested 1024 deep. A number is taken as it is
 * written, of SV and UV too, which are stored as UN.
 *
 * Text goes into the object's character sets; what these can not hold becomes `?`, with a warning. Text
 * beyond ASCII in an object without (0008,0005) is UTF-8, and (0008,0005) becomes ISO_IR 192. All else that
 * is not taken as it stands has a warning.
 *
 * From VX_INVALID_TAG on, the statuses below are of single members: the others are taken all the same, the
 * log has the place of each bad one, and the last of them gives the status.
 * @param MsgID  message, item or file.
 * @param UserInfo  handed to Callback as it is; may be null.
 * @param Callback  gives the text, in UTF-8; it is called until it sets IsLast.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Callback failed, or the text is no JSON; the log has the place. The
 *   object is as it was.
 * @retval VX_SYSTEM_ERROR  the text is JSON but no object, and the object is as it was; or no memory.
 * @retval VX_INVALID_TAG  a key is no tag of eight hexadecimal digits, or such an attribute can not be.
 * @retval VX_INVALID_VR_IN_STREAM  a member has no VR.
 * @retval VX_REQUIRED_VALUE_MISSING  a private creator has no code, or one of more than 512 bytes.
 * @retval VX_NOT_FOUND  a private attribute has no creator.
 * @retval VX_TOO_MANY_BLOCKS  the group has no place for another private block.
 * @retval VX_INCOMPATIBLE_VALUE  a value is of a type that its VR does not take.
 * @retval VX_VALUE_OUT_OF_RANGE  a number does not fit its VR.
 * @retval VX_VALUE_TOO_LARGE  a value has 4 GiB or more.
 * @retval VX_INVALID_VALUE_FOR_VR  a value breaks a rule of its VR, and is stored if it is a text; or
 *   sequences are nested beyond 128 levels.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters; or one value has a backslash, which divides
 *   it, or characters that the object's character sets lack. It is stored, unless it has a NUL.
 */
VX_API VX_STATUS VX_Json_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback);

/**
 * As VX_Json_To_Message for a document in the form that Options tells.
 * @param Options  VX_JSON_STANDARD for the standard's form, whose texts are taken as they stand; else 0.
 *   Other bits count for nothing.
 * @copydetails VX_Json_To_Message
 */
VX_API VX_STATUS VX_Json_To_Message_With_Options(int32_t MsgID, void* UserInfo, int32_t Options,
                                                 VX_TEXT_INPUT Callback);

/* ---- XML ----------------------------------------------------------------------------------------------- */

/** Options of the XML writers. */
typedef enum {
  VX_XML_INCLUDE_BULK = 1,       /* values of OB, OW, OL, OD and OF other than Pixel Data */
  VX_XML_INCLUDE_PIXEL_DATA = 2, /* the value of (7FE0,0010) */
  VX_XML_EXCLUDE_SEQUENCES = 4,  /* native form: sequences without their items; else no sequences */
  VX_XML_EXCLUDE_PRIVATE = 8,    /* no private attributes, nor their creators */
  VX_XML_BASE64 = 16,            /* toolkit's form: bulk values in Base64, not in hexadecimal */
  VX_XML_INDENT = 32             /* native form: on many lines */
} VX_XML_OPTION;

/**
 * Writes an object as XML of the toolkit's own form.
 * The root tells the kind (DcmMessage, DcmFile, DICOMDIR, DcmItem); below it stand one section for the meta
 * group of a file and one for the data set, with an Attribute element for each attribute that has a value, be
 * it null. Left out are group lengths, groups below 0008 (of a file and a directory those below 0004) and,
 * with a warning, values that a callback holds, unless they are of a bulk VR. Values of UN are always
 * written. Text is UTF-8, made as in VX_Message_To_Json.
 * @param MsgID  message, item or file.
 * @param UserInfo  handed to Callback as it is; may be null.
 * @param Options  sum of VX_XML_OPTION codes, or 0.
 * @param Callback  gets the text, as in VX_Message_To_Json.
 * @return The statuses of VX_Message_To_Json, for the same reasons.
 */
VX_API VX_STATUS VX_Message_To_XML(int32_t MsgID, void* UserInfo, int32_t Options, VX_STREAM_OUTPUT Callback);

/**
 * As VX_Message_To_XML, in the form of the Native DICOM Model (PS3.19 section A.1).
 * In it stand all groups, attributes without a value too, and control characters that XML can not hold become
 * U+FFFD, with a warning.
 * @copydetails VX_Message_To_XML
 */
VX_API VX_STATUS VX_Message_To_XML_Native(int32_t MsgID, void* UserInfo, int32_t Options,
                                          VX_STREAM_OUTPUT Callback);

/**
 * Adds the attributes of a document in the toolkit's own form to an object, which keeps what it holds.
 * An attribute that is there gets the new value and the VR of the document. The text is UTF-8; it is read as
 * a whole and found good before the object is touched. Values that break a rule of their VR are stored all
 * the same; other bad values and attributes are passed over with a line in the log, and do not change the
 * status. Character sets are as for VX_Json_To_Message.
 * @param MsgID  message, item or file.
 * @param UserInfo  handed to Callback as it is; may be null.
 * @param Callback  gives the text once; it is called until it sets IsLast.
 * @retval VX_INVALID_TAG  an Attribute element outside of items has no tag of eight hexadecimal digits; what
 *   stands before it is kept, the rest is not read.
 * @retval VX_SYSTEM_ERROR  the text is no well-formed XML, has a document type declaration, is nested beyond
 *   128 levels of sequences or is another document, and the object is as it was; or no memory.
 * @return Also the status of a Callback that fails, or VX_NULL_POINTER_PARM for one that gives bytes without
 *   a buffer; the object is as it was.
 */
VX_API VX_STATUS VX_XML_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback);

/**
 * As VX_XML_To_Message for a document in the form of the Native DICOM Model (PS3.19 section A.1).
 * An attribute without a tag ends the reading here too, but with VX_NORMAL_COMPLETION, and so does a private
 * creator that can not be added. A document without attributes is no failure. Values are taken in the order
 * of their numbers. An element of a private block may be named without the block, as (gggg,00ee). Values that
 * lie elsewhere (BulkData) are not fetched, with a warning. Here the text may be in any encoding that libxml2
 * reads. VX_SYSTEM_ERROR stands also for a libxml2 that can not be opened.
 * @copydetails VX_XML_To_Message
 */
VX_API VX_STATUS VX_XML_Native_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback);

/* ---- Listing ------------------------------------------------------------------------------------------- */

/**
 * Lists an object and its items for people to read.
 * It does nothing before initialisation. LIST_SQ_DEPTH_LIMIT, LIST_VALUE_LIMIT, LIST_UN_ATTRIBUTES and
 * EXPORT_PRIVATE_ATTRIBUTES_TO_NETWORK say what is listed. No other thread may use the object meanwhile.
 * @param MsgID  message, item or file; of an unknown one the listing says that it is none.
 * @param FileName  file to write, whose contents are lost; null, or one that can not be opened, is the
 *   standard output.
 */
VX_API void VX_List_Message(int32_t MsgID, const char* FileName);

/**
 * As VX_List_Message; either takes messages, items and files.
 * @param ItemID  as MsgID there.
 * @param FileName  as there.
 */
VX_API void VX_List_Item(int32_t ItemID, const char* FileName);

/**
 * As VX_List_Message; either takes messages, items and files.
 * @param FileID  as MsgID there.
 * @param FileName  as there.
 */
VX_API void VX_List_File(int32_t FileID, const char* FileName);

#ifdef __cplusplus
}
#endif

#endif
