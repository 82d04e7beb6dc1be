/** @file
 * Part 10 files (PS3.10 section 7). The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_FILES_H
#define VEXALKIT_FILES_H

#include "streams.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

/**
 * Gives the next block of a file.
 * @param FileName  the name that the file object carries; valid during the call.
 * @param UserInfo  as the caller passed it.
 * @param DataSize  [out] bytes of the block, an even number, unless the data set is deflated or
 *     ORVEN_OPEN_FILE is on; 0 with IsLast 0 asks to be called again.
 * @param DataBuffer  [out] the block, the callback's own; it must stay valid until the next call or the end
 *     of the read.
 * @param IsFirst  1 on the first call, else 0.
 * @param IsLast  [out] not 0: this is the last block.
 * @return VX_NORMAL_COMPLETION to go on; anything else ends the read with VX_CALLBACK_CANNOT_COMPLY.
 */
typedef VX_STATUS (*VX_FILE_INPUT)(const char* FileName, void* UserInfo, uint32_t* DataSize,
                                   void** DataBuffer, int32_t IsFirst, int32_t* IsLast);

/**
 * Takes the next block of a file.
 * @param FileName  the name that the file object carries; valid during the call.
 * @param UserInfo  as the caller passed it.
 * @param DataSize  bytes of the block, an even number; 0 is possible with IsLast 1.
 * @param DataBuffer  the block; valid during the call.
 * @param IsFirst  1 on the first call, else 0.
 * @param IsLast  1 on the last call, else 0; after a failure there is no such call.
 * @return VX_NORMAL_COMPLETION to go on; anything else ends the write with VX_CALLBACK_CANNOT_COMPLY.
 */
typedef VX_STATUS (*VX_FILE_OUTPUT)(const char* FileName, void* UserInfo, uint32_t DataSize, void* DataBuffer,
                                    int32_t IsFirst, int32_t IsLast);

/* ---- Files (PS3.10 section 7) -------------------------------------------------------------------------- */

/**
 * Makes a file object with the attributes of the meta group and those of a template.
 * A service or command that the configuration lacks gives a file without a template and normal status.
 * @param FileID  [out] the file, freed with VX_Free_File; -1 after a failure.
 * @param FileName  name that the file functions are told; the library opens no file of that name.
 * @param ServiceName  service of the template; one that begins with "DICOMDIR", in any case, makes a
 *     directory.
 * @param Command  command of the template, for instance C_STORE_RQ.
 * @retval VX_INVALID_COMMAND  no such command.
 * @retval VX_MSGFILE_ERROR  the template could not be read.
 */
VX_API VX_STATUS VX_Create_File(int32_t* FileID, const char* FileName, const char* ServiceName,
                                uint16_t Command);

/**
 * Makes a file object with the attributes of the meta group only.
 * @param FileID  [out] the file, freed with VX_Free_File; -1 after a failure.
 * @param FileName  name that the file functions are told.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Create_Empty_File(int32_t* FileID, const char* FileName);

/**
 * Turns a message into a file, with a zero preamble, the attributes of the meta group and without group 0000.
 * @param MsgID  the message, which from then on is a file of the same ID.
 * @param FileName  name that the file functions are told.
 * @retval VX_INVALID_MESSAGE_ID  also an object that is no message.
 */
VX_API VX_STATUS VX_Message_To_File(int32_t MsgID, const char* FileName);

/**
 * Turns a file or directory into a message, without group 0002.
 * @param FileID  the file, which from then on is a message of the same ID.
 * @retval VX_INVALID_FILE_ID  also an object that is neither.
 */
VX_API VX_STATUS VX_File_To_Message(int32_t FileID);

/**
 * Frees a file with its values; a message or an item is freed the same way.
 * @param FileID  [in,out] the file; becomes -1.
 * @retval VX_INVALID_FILE_ID  also a structured report.
 */
VX_API VX_STATUS VX_Free_File(int32_t* FileID);

/**
 * Clears all values of a file; the attributes stay, private creators apart (EMPTY_PRIVATE_CREATOR_CODES).
 * @param FileID  file or directory.
 * @retval VX_INVALID_MESSAGE_ID  an object that is neither.
 */
VX_API VX_STATUS VX_Empty_File(int32_t FileID);

/**
 * Copies the name of a file object.
 * @param FileID  file or directory.
 * @param FileName  [out] the name; untouched after a failure.
 * @param BufferSize  bytes of FileName, its NUL counted.
 * @retval VX_BUFFER_TOO_SMALL  nothing was copied.
 * @retval VX_INVALID_FILE_ID  also an object that is neither.
 */
VX_API VX_STATUS VX_Get_Filename(int32_t FileID, char* FileName, int32_t BufferSize);

/**
 * Gives a file object another name.
 * @param FileID  file or directory.
 * @param FileName  the name.
 * @retval VX_INVALID_FILE_ID  also an object that is neither.
 */
VX_API VX_STATUS VX_Reset_Filename(int32_t FileID, const char* FileName);

/**
 * Copies the preamble of a file object (PS3.10 section 7.1) out.
 * @param FileID  file or directory.
 * @param Preamble  [out] its 128 bytes.
 * @retval VX_INVALID_FILE_ID  also an object that is neither.
 */
VX_API VX_STATUS VX_Get_File_Preamble(int32_t FileID, char* Preamble);

/**
 * Sets the preamble of a file object (PS3.10 section 7.1).
 * @param FileID  file or directory.
 * @param Preamble  128 bytes.
 * @retval VX_INVALID_FILE_ID  also an object that is neither.
 */
VX_API VX_STATUS VX_Set_File_Preamble(int32_t FileID, const char* Preamble);

/**
 * Tells how many bytes VX_Write_File would write, without padding and deflation.
 * Of the meta group what has a value counts: before the first write that is less than VX_Write_File makes of
 * it.
 * @param FileID  file or directory.
 * @param Length  [out] the bytes; 0xFFFFFFFF if a value is of undefined length, 0 after a failure.
 * @retval VX_INVALID_FILE_ID  also an object that is neither.
 * @retval VX_INVALID_TRANSFER_SYNTAX  (0002,0010) names no transfer syntax.
 * @retval VX_CALLBACK_CANNOT_COMPLY  a value callback refused, or told a length that can not be.
 * @retval VX_INVALID_LENGTH_FOR_VR  an item or a sequence is too long for its length field.
 * @retval VX_INVALID_VALUE_FOR_VR  more than 128 sequences within each other.
 * @retval VX_VALUE_TOO_LARGE  32 bits do not hold the sum.
 */
VX_API VX_STATUS VX_Get_File_Length(int32_t FileID, uint32_t* Length);

/**
 * Reads a file from Callback into a file object, which keeps what it holds.
 * The values of attributes that the application holds by callback go to that callback. What was read before a
 * failure stays.
 * @param ApplicationID  the application whose value callbacks count.
 * @param FileID  file or directory, but none that is worked on in its place on disk.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  gives the blocks; it must not use the object.
 * @retval VX_INVALID_FILE_ID  also an object that is no such file.
 * @retval VX_INVALID_FILE  the prefix is not "DICM", with FORCE_DICM_IN_PREFIX off.
 * @retval VX_INVALID_TRANSFER_SYNTAX  (0002,0010) names no transfer syntax.
 * @retval VX_INVALID_DIRECTORY_RECORD_OFFSET,VX_SYSTEM_ERROR  records of a directory refer to none, or in a
 *     circle.
 * @return Otherwise a status that VX_Stream_To_Message has for its stream and its callback.
 */
VX_API VX_STATUS VX_Open_File(int32_t ApplicationID, int32_t FileID, void* UserInfo, VX_FILE_INPUT Callback);

/**
 * Reads a file from Callback, but leaves the values that a callback of the application holds where they are.
 * The callback is told their lengths and their offsets in the file, with VX_PROVIDE_LENGTH_KEPT.
 * @retval VX_VALUE_TOO_LARGE  also an offset beyond 32 bits.
 * @copydetails VX_Open_File
 */
VX_API VX_STATUS VX_Open_File_Bypass_OBOW(int32_t ApplicationID, int32_t FileID, void* UserInfo,
                                          VX_FILE_INPUT Callback);

/**
 * Reads a file from Callback up to a tag, which is the last one read.
 * @param Tag  the tag; the first one above it ends the read.
 * @param Offset  [out] offset in the file of the element where reading stopped, or of the end of the file;
 *     after a failure that of the element in hand.
 * @retval VX_VALUE_TOO_LARGE  also an offset beyond 32 bits, *Offset being 0xFFFFFFFF.
 * @copydetails VX_Open_File
 */
VX_API VX_STATUS VX_Open_File_Upto_Tag(int32_t ApplicationID, int32_t FileID, void* UserInfo, uint32_t Tag,
                                       uint32_t* Offset, VX_FILE_INPUT Callback);

/**
 * Reads a file from Callback up to a tag, whose attribute is there but its value unread.
 * Of a bulk VR the attribute has its length. A file that is written from the object gets VX_TOO_FEW_VALUES
 * unless the attribute is given a value. VX_INVALID_FILE_ID stands also for a directory, VX_VALUE_TOO_LARGE
 * for an offset beyond 32 bits, *Offset being 0xFFFFFFFF.
 * @param Tag  the tag.
 * @param Offset  [out] offset in the file of the value, or of what follows it if it is a text or numbers;
 *     without such an attribute as VX_Open_File_Upto_Tag.
 * @copydetails VX_Open_File
 */
VX_API VX_STATUS VX_Open_File_Upto_Tag_Bypass_Value(int32_t ApplicationID, int32_t FileID, void* UserInfo,
                                                    uint32_t Tag, uint32_t* Offset, VX_FILE_INPUT Callback);

/**
 * Writes a file to Callback: preamble, meta group in explicit little endian, the rest in the syntax that
 * (0002,0010) names.
 * What has no value of (0002,0001), (0002,0002), (0002,0003), (0002,0012) and (0002,0013) is filled in first.
 * What VX_Message_To_Stream says of changes to the object holds here too.
 * @param FileID  file or directory, but none that is worked on in its place on disk.
 * @param Pad  above 0, even and at most WORK_BUFFER_SIZE: the length of the file becomes a multiple of it by
 *     (FFFC,FFFC), unless it can not be known, for a value of undefined length or deflation; 0: no padding.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  takes the blocks; what it got before a failure is not taken back.
 * @retval VX_INVALID_FILE_ID  also an object that is no such file.
 * @retval VX_INVALID_PAD  Pad is odd, negative or too large.
 * @retval VX_INVALID_TRANSFER_SYNTAX  (0002,0010) names no transfer syntax.
 * @retval VX_VALUE_TOO_LARGE  a directory whose records lie beyond 32 bits.
 * @return Otherwise a status that VX_Message_To_Stream has for values and its callback.
 */
VX_API VX_STATUS VX_Write_File(int32_t FileID, int32_t Pad, void* UserInfo, VX_FILE_OUTPUT Callback);

/**
 * Writes a file to Callback, the value callbacks of an application bound first and released after.
 * @param ApplicationID  the application.
 * @copydetails VX_Write_File
 */
VX_API VX_STATUS VX_Write_File_By_Callback(int32_t ApplicationID, int32_t FileID, int32_t Pad, void* UserInfo,
                                           VX_FILE_OUTPUT Callback);

#ifdef __cplusplus
}
#endif

#endif
