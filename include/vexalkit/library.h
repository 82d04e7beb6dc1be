/** @file
 * The life of the library, applications, memory. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_LIBRARY_H
#define VEXALKIT_LIBRARY_H

#include "configuration.h"
#include "dictionary.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Version ------------------------------------------------------------------------------------------- */

#define VX_VERSION_STRING "5.3.0"
/** The version text that a ready-built ConfigRecord or DictionaryRecord carries (or a null pointer). */
#define VX_BUILD_VERSION "VexalKit, Version 5.3.0"

/* ---- Types --------------------------------------------------------------------------------------------- */

/** Stored and never called: templates come from the Message Info File. */
typedef void* (*VX_MESSAGE_INFO_FUNCTION)(void);

/** Gets the code of a fault, for instance 0xC0000005, on the thread that faulted, inside a signal handler. */
typedef void (*VX_EXCEPTION_HANDLER)(uint32_t Code);

/** Told of a transfer of PDVs: EventCode 3 after a write, 4 after a read. */
typedef void (*VX_TRANSFER_FUNCTION)(int32_t EventCode, void* UserData, void* Context);

/* ---- Lifecycle ----------------------------------------------------------------------------------------- */

/**
 * Starts the library. With ConfigFunction and DictionaryFunction null, finds and reads vexal.ini, the three
 * profiles that it names and the dictionary file; otherwise the functions supply ready-built records. The ini
 * file is the one that VX_Set_VexalINI or the environment variable VEXAL_INI names; else one in the folders
 * of PATH; else /etc/vexal.ini; else the one that was installed beside the library.
 * VX_LIBRARY_ALREADY_INITIALIZED; VX_NO_VEXAL_INI: no ini file was found; VX_CONFIG_INFO_ERROR: a profile is
 * missing or wrong; VX_INVALID_VERSION: a ready-built record is of another version; VX_DDFILE_ERROR,
 * VX_MISSING_CONFIG_PARM: the dictionary could not be read, and the library stays initialised, so that
 * VX_Library_Release is the way out. Must run alone.
 */
VX_API VX_STATUS VX_Library_Initialization(VX_CONFIG_FUNCTION ConfigFunction,
                                           VX_DICTIONARY_FUNCTION DictionaryFunction,
                                           VX_MESSAGE_INFO_FUNCTION MessageInfoFunction);

/**
 * Drops every object, voids every handle and reads the configuration and the dictionary anew.
 * VX_CONFIG_INFO_ERROR, VX_INVALID_VERSION, VX_DDFILE_ERROR, VX_MISSING_CONFIG_PARM. Must run alone.
 */
VX_API VX_STATUS VX_Library_Reset(void);

/**
 * Ends the library and gives all its memory back; VX_Library_Initialization may follow. Must run alone.
 */
VX_API VX_STATUS VX_Library_Release(void);

/**
 * Names the ini file of the next initialisation; null removes the name. The name lives until the release.
 * VX_LIBRARY_ALREADY_INITIALIZED once the library runs.
 */
VX_API VX_STATUS VX_Set_VexalINI(const char* Path);

/**
 * Registers an application entity under its title of 1 to 16 bytes; ApplicationID gets its handle.
 * VX_INVALID_LENGTH_FOR_TITLE, VX_ALREADY_REGISTERED.
 */
VX_API VX_STATUS VX_Register_Application(int32_t* ApplicationID, const char* ApplicationTitle);

/**
 * Releases an application with its registered callbacks and its associations: these are closed, or aborted
 * where another thread is inside one. ApplicationID becomes -1.
 */
VX_API VX_STATUS VX_Release_Application(int32_t* ApplicationID);

/**
 * The text of a status, a constant string; "Unknown Error" for a number that is none. Works at any time.
 */
VX_API const char* VX_Error_Message(VX_STATUS Status);

/**
 * Copies the version, "5.3.0". VX_BUFFER_TOO_SMALL below 6 bytes. Works at any time.
 */
VX_API VX_STATUS VX_Get_Version_String(int32_t BufferSize, char* Buffer);

/**
 * Stores a handler for faults of the process, or none with null, and starts the exception filter if
 * ALLOW_LIBRARY_EXCEPTION_HANDLER is on. On SIGSEGV, SIGBUS, SIGILL and SIGFPE the filter writes what
 * happened to the standard error, calls the handler and goes on to the signal's former action, which as a
 * rule ends the process. Answers VX_NORMAL_COMPLETION.
 */
VX_API VX_STATUS VX_Set_Library_Exception_Handler(VX_EXCEPTION_HANDLER Handler);

/**
 * Has Function called after each transfer of presentation data values while ALLOW_LIBRARY_EXCEPTION_HANDLER
 * is on; null ends it. Context is the library's own. Answers VX_NORMAL_COMPLETION.
 */
VX_API VX_STATUS VX_Set_Exception(void* UserData, VX_TRANSFER_FUNCTION Function);

/* ---- Memory -------------------------------------------------------------------------------------------- */

/**
 * Gives completely free blocks of the pools back to the system, for at most MaxSeconds (0: no limit).
 * VX_VALUE_OUT_OF_RANGE below 0. A call during another thread's clean-up returns at once.
 */
VX_API VX_STATUS VX_Cleanup_Memory(int32_t MaxSeconds);

/**
 * TotalBytes gets the bytes of all blocks and buffers held, FreeBytes those of blocks that have a free slot,
 * plus all direct buffers. Slots that a thread keeps at hand count as free.
 */
VX_API VX_STATUS VX_Report_Memory(uint64_t* TotalBytes, uint64_t* FreeBytes);

#ifdef __cplusplus
}
#endif

#endif
