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

/**
 * Is told of a fault, on the thread that faulted and inside a signal handler, which sets the bounds to what
 * it may do.
 * @param Code  the kind of fault, 0xC0000005 for an access to memory that is not there, for instance.
 */
typedef void (*VX_EXCEPTION_HANDLER)(uint32_t Code);

/**
 * Is told of a transfer of presentation data values.
 * @param EventCode  3 after a write, 4 after a read.
 * @param UserData  what VX_Set_Exception was given.
 * @param Context  the library's own record of the transfer, without a meaning for the caller.
 */
typedef void (*VX_TRANSFER_FUNCTION)(int32_t EventCode, void* UserData, void* Context);

/* ---- Lifecycle ----------------------------------------------------------------------------------------- */

/**
 * Starts the library: configuration, services, log and dictionary.
 * The ini file is the one that VX_Set_VexalINI named or else the environment variable VEXAL_INI; without
 * either the first vexal.ini in the folders of PATH, /etc/vexal.ini, or the one that was installed beside the
 * library. It names the profiles, and these the dictionary file. Must run alone.
 * @param ConfigFunction  gives a ready-built configuration; null: the ini file and its profiles are read.
 * @param DictionaryFunction  gives a ready-built dictionary; null: the file that the setting DICTIONARY_FILE
 *   names is read.
 * @param MessageInfoFunction  may be null; kept and never called.
 * @retval VX_LIBRARY_ALREADY_INITIALIZED  nothing was changed.
 * @retval VX_NO_VEXAL_INI  no ini file was found, or the named one can not be opened.
 * @retval VX_CONFIG_INFO_ERROR  a profile is missing or malformed, ConfigFunction gave null, or there is no
 *   service at all. In the last case the library is initialised.
 * @retval VX_INVALID_VERSION  a ready-built record is of another version. If it is the dictionary, the
 *   library is initialised.
 * @retval VX_DDFILE_ERROR  the dictionary file can not be read, or DictionaryFunction gave none. The library
 *   is initialised, as after the next status, and VX_Library_Release is the way out.
 * @retval VX_MISSING_CONFIG_PARM  DICTIONARY_FILE is not set.
 */
VX_API VX_STATUS VX_Library_Initialization(VX_CONFIG_FUNCTION ConfigFunction,
                                           VX_DICTIONARY_FUNCTION DictionaryFunction,
                                           VX_MESSAGE_INFO_FUNCTION MessageInfoFunction);

/**
 * Starts the library anew: every object and association goes and every handle is void, then configuration and
 * dictionary are read again.
 * What setters changed is lost, and the log receivers are taken away; the functions given to
 * VX_Library_Initialization are called again. After a failure the library counts as initialised, and
 * VX_Library_Release is the way out. Must run alone.
 * @retval VX_CONFIG_INFO_ERROR  the ini file or a profile is missing or malformed, ConfigFunction gave null,
 *   or there is no service at all.
 * @retval VX_INVALID_VERSION  a ready-built record is of another version.
 * @retval VX_DDFILE_ERROR  the dictionary can not be read.
 * @retval VX_MISSING_CONFIG_PARM  DICTIONARY_FILE is not set.
 */
VX_API VX_STATUS VX_Library_Reset(void);

/**
 * Ends the library and gives all its memory back; VX_Library_Initialization may follow.
 * Every handle is void; the name of the ini file and the log receivers are forgotten. Must run alone.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Library_Release(void);

/**
 * Names the ini file of the next initialisation. Works only while the library is not initialised.
 * @param Path  the file, copied, and forgotten at the release; one environment variable in it, as $(NAME), is
 *   replaced by its value when the file is read. Null removes the name.
 * @retval VX_LIBRARY_ALREADY_INITIALIZED  the name is as it was.
 */
VX_API VX_STATUS VX_Set_VexalINI(const char* Path);

/**
 * Registers an application entity under its title.
 * @param ApplicationID  [out] its handle; -1 after a failure.
 * @param ApplicationTitle  1 to 16 bytes, copied.
 * @retval VX_INVALID_LENGTH_FOR_TITLE  the title is empty or longer than 16 bytes.
 * @retval VX_ALREADY_REGISTERED  an application has this title. VEXAL_ECHO is the library's own.
 */
VX_API VX_STATUS VX_Register_Application(int32_t* ApplicationID, const char* ApplicationTitle);

/**
 * Releases an application with its registered callbacks and its associations.
 * An association is closed, or aborted where another thread is inside a call on it.
 * @param ApplicationID  [in,out] the handle; -1 afterwards, untouched after a failure.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Release_Application(int32_t* ApplicationID);

/**
 * Gives the text of a status. Works at any time.
 * @param Status  any number.
 * @return a constant string, never null; "Unknown Error" for a number that is no status.
 */
VX_API const char* VX_Error_Message(VX_STATUS Status);

/**
 * Copies the version of the library, "5.3.0". Works at any time.
 * @param BufferSize  bytes of Buffer, 6 or more.
 * @param Buffer  [out] the text; untouched after a failure.
 * @retval VX_BUFFER_TOO_SMALL  BufferSize is below 6.
 */
VX_API VX_STATUS VX_Get_Version_String(int32_t BufferSize, char* Buffer);

/**
 * Stores a handler for faults of the process, and starts the exception filter if the setting
 * ALLOW_LIBRARY_EXCEPTION_HANDLER is on.
 * On SIGSEGV, SIGBUS, SIGILL and SIGFPE the filter writes what happened to the standard error, calls the
 * handler and goes on to the signal's former action, which as a rule ends the process. VX_Library_Release
 * ends the filter; the handler is kept. Needs no initialised library.
 * @param Handler  null: the filter calls nothing.
 * @return VX_NORMAL_COMPLETION, even if the filter could not be started.
 */
VX_API VX_STATUS VX_Set_Library_Exception_Handler(VX_EXCEPTION_HANDLER Handler);

/**
 * Has a function called after each transfer of presentation data values while ALLOW_LIBRARY_EXCEPTION_HANDLER
 * is on.
 * It is called on the thread that transfers, for all associations. Needs no initialised library.
 * @param UserData  handed to Function as it is; may be null, and belongs to the caller.
 * @param Function  null ends the calls.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Set_Exception(void* UserData, VX_TRANSFER_FUNCTION Function);

/* ---- Memory -------------------------------------------------------------------------------------------- */

/**
 * Gives completely free blocks of the pools back to the system.
 * A call that ran out of time goes on with the next pool in the next call. During another thread's clean-up a
 * call does nothing.
 * @param MaxSeconds  when to stop, in seconds; 0: no limit.
 * @retval VX_VALUE_OUT_OF_RANGE  MaxSeconds is negative.
 */
VX_API VX_STATUS VX_Cleanup_Memory(int32_t MaxSeconds);

/**
 * Reports the memory that the library holds, and per pool in the log at level T1.
 * @param TotalBytes  [out] bytes of all blocks and of all buffers outside them.
 * @param FreeBytes  [out] bytes of the blocks with at least one free slot, and again of all buffers outside
 *   blocks. A slot that a thread keeps at hand counts as free.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Report_Memory(uint64_t* TotalBytes, uint64_t* FreeBytes);

#ifdef __cplusplus
}
#endif

#endif
