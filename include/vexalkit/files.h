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

/** As VX_STREAM_INPUT for files; FileName is the name that the file object carries. */
typedef VX_STATUS (*VX_FILE_INPUT)(const char* FileName, void* UserInfo, uint32_t* DataSize,
                                   void** DataBuffer, int32_t IsFirst, int32_t* IsLast);

typedef VX_STATUS (*VX_FILE_OUTPUT)(const char* FileName, void* UserInfo, uint32_t DataSize, void* DataBuffer,
                                    int32_t IsFirst, int32_t IsLast);

/* ---- Files (PS3.10 section 7) -------------------------------------------------------------------------- */

/**
 * Makes a file object for a service and command, filled from the template. A service name that starts with
 * "DICOMDIR" makes a directory. VX_INVALID_COMMAND, VX_MSGFILE_ERROR.
 */
VX_API VX_STATUS VX_Create_File(int32_t* FileID, const char* FileName, const char* ServiceName,
                                uint16_t Command);

/**
 * Makes a file object with the attributes of the meta group only.
 */
VX_API VX_STATUS VX_Create_Empty_File(int32_t* FileID, const char* FileName);

/**
 * Turns a message into a file, with a zero preamble and without group 0000; the ID stays.
 * VX_INVALID_MESSAGE_ID unless it is a message.
 */
VX_API VX_STATUS VX_Message_To_File(int32_t MsgID, const char* FileName);

/**
 * Turns a file into a message, without group 0002; the ID stays. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_File_To_Message(int32_t FileID);

/**
 * Frees a file object; FileID becomes -1. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Free_File(int32_t* FileID);

/**
 * Clears all values. VX_INVALID_FILE_ID: unknown; VX_INVALID_MESSAGE_ID: not a file.
 */
VX_API VX_STATUS VX_Empty_File(int32_t FileID);

/**
 * Copies the name. VX_BUFFER_TOO_SMALL, VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Get_Filename(int32_t FileID, char* FileName, int32_t BufferSize);

/**
 * Replaces the name. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Reset_Filename(int32_t FileID, const char* FileName);

/**
 * Copies the 128 bytes of the preamble out. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Get_File_Preamble(int32_t FileID, char* Preamble);

/**
 * Copies 128 bytes in. VX_INVALID_FILE_ID.
 */
VX_API VX_STATUS VX_Set_File_Preamble(int32_t FileID, const char* Preamble);

/**
 * The bytes that VX_Write_File would write without padding and deflation; 0xFFFFFFFF if a value is of
 * undefined length. VX_INVALID_FILE_ID, VX_INVALID_TRANSFER_SYNTAX; VX_VALUE_TOO_LARGE: beyond 32 bits;
 * *Length is then 0.
 */
VX_API VX_STATUS VX_Get_File_Length(int32_t FileID, uint32_t* Length);

/**
 * Reads a whole file from Callback into the object. The values that callbacks of the application hold go
 * there. VX_INVALID_APPLICATION_ID, VX_INVALID_FILE_ID, VX_INVALID_FILE: the prefix is not "DICM" and
 * FORCE_DICM_IN_PREFIX is off; VX_INVALID_TRANSFER_SYNTAX, and as VX_Stream_To_Message.
 */
VX_API VX_STATUS VX_Open_File(int32_t ApplicationID, int32_t FileID, void* UserInfo, VX_FILE_INPUT Callback);

/**
 * The same, but for the attributes that a callback holds the value stays in the file and its offset is
 * reported. As VX_Open_File; VX_VALUE_TOO_LARGE: an offset beyond 32 bits.
 */
VX_API VX_STATUS VX_Open_File_Bypass_OBOW(int32_t ApplicationID, int32_t FileID, void* UserInfo,
                                          VX_FILE_INPUT Callback);

/**
 * Reads up to and including Tag. Offset gets the offset in the file of the element where reading stopped. As
 * VX_Open_File.
 */
VX_API VX_STATUS VX_Open_File_Upto_Tag(int32_t ApplicationID, int32_t FileID, void* UserInfo, uint32_t Tag,
                                       uint32_t* Offset, VX_FILE_INPUT Callback);

/**
 * Reads up to Tag, whose attribute is there with its length, its value unread. As VX_Open_File.
 */
VX_API VX_STATUS VX_Open_File_Upto_Tag_Bypass_Value(int32_t ApplicationID, int32_t FileID, void* UserInfo,
                                                    uint32_t Tag, uint32_t* Offset, VX_FILE_INPUT Callback);

/**
 * Writes the file to Callback: preamble, meta group in explicit little endian, the rest in the syntax that
 * (0002,0010) names. A Pad above 0, even and at most WORK_BUFFER_SIZE, pads the length to a multiple of it
 * with (FFFC,FFFC), unless lengths are undefined or deflated. VX_INVALID_FILE_ID, VX_INVALID_PAD,
 * VX_INVALID_TRANSFER_SYNTAX, and as VX_Message_To_Stream.
 */
VX_API VX_STATUS VX_Write_File(int32_t FileID, int32_t Pad, void* UserInfo, VX_FILE_OUTPUT Callback);

/**
 * The same with the value callbacks of an application bound first and released after.
 * VX_INVALID_APPLICATION_ID.
 */
VX_API VX_STATUS VX_Write_File_By_Callback(int32_t ApplicationID, int32_t FileID, int32_t Pad, void* UserInfo,
                                           VX_FILE_OUTPUT Callback);

#ifdef __cplusplus
}
#endif

#endif
