/** @file
 * Log messages, their destinations and receivers. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_LOG_H
#define VEXALKIT_LOG_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

/** Log destinations, a set of bits. */
enum { VX_LOG_TO_FILE = 1, VX_LOG_TO_MEMORY = 2, VX_LOG_TO_SCREEN = 4, VX_LOG_OFF = 16 };

/** Log levels, one bit each. */
enum {
  VX_LOG_T1 = 1,
  VX_LOG_T2 = 2,
  VX_LOG_T3 = 4,
  VX_LOG_T4 = 8,
  VX_LOG_T5 = 16,
  VX_LOG_T6 = 32,
  VX_LOG_T7 = 64,
  VX_LOG_T8 = 128,
  VX_LOG_T9 = 256,
  VX_LOG_INFO = 512,
  VX_LOG_WARNING = 1024,
  VX_LOG_ERROR = 2048
};

/** What an enhanced log receiver gets; valid during the call only. */
typedef struct VX_LOG_RECORD {
  int32_t Type;       /* 1 error, 2 warning, 3 info, 5 to 13 for T1 to T9, 14 unknown */
  int32_t Hour;       /* 0 to 23 */
  int32_t Minute;     /* 0 to 59 */
  int32_t Second;     /* 0 to 60 */
  int32_t Hundredths; /* 0 to 99 */
  int32_t Day;        /* day of the month, from 1 */
  int32_t Month;      /* 0 to 11 */
  int32_t Year;       /* years since 1900 */
  const char* LevelText;
  const char* Prefix;
  const char* ThreadText;
  const char* TimeText;
  const char* FunctionName; /* empty when the caller gave none */
  const char* Message;
} VX_LOG_RECORD;

/** Log receivers, called on the logging thread without a lock held. */
typedef void (*VX_LOG_FUNCTION)(int32_t Severity, const char* Line);

typedef void (*VX_ENHANCED_LOG_FUNCTION)(const VX_LOG_RECORD* Record);

/** Takes one line of the memory log; returns 1 to go on. */
typedef int32_t (*VX_MEMORY_LOG_READER)(const char* Line, int32_t IsFirst, int32_t IsLast);

/* ---- Log ----------------------------------------------------------------------------------------------- */

/**
 * Formats a message and logs it at one level.
 * @param Level  one VX_LOG_ bit, VX_LOG_ERROR for instance.
 * @param Format  as for printf, followed by its values.
 * @return 0: logged, or the level is off; 2: the log file failed; 4: Format is null or empty; 7: there is no
 * configuration yet; 8: the memory log could not be allocated. These are no VX_STATUS.
 */
VX_API int32_t VXlog(uint32_t Level, const char* Format, ...) VX_PRINTF(2, 3);

/**
 * As VXlog, with the name of a function in the line.
 * @param FunctionName  the name; null leaves its place empty.
 * @param Level  as for VXlog.
 * @param Format  as for VXlog.
 * @return as VXlog.
 */
VX_API int32_t VXlog_Function(const char* FunctionName, uint32_t Level, const char* Format, ...)
    VX_PRINTF(3, 4);

/**
 * Sets the text, of at most 10 characters, at the head of each line, without leading white space; null
 * empties it. Returns the stored text.
 */
VX_API const char* VX_Set_Log_Prefix(const char* Prefix);

/**
 * Sets the receiver of whole log lines; null takes it away. One that is named before the initialisation gets
 * the errors and warnings of the start, which then writes no log file and nothing to the screen. Reset and
 * release take it away.
 */
VX_API void VX_Register_MemoryLog_Function(VX_LOG_FUNCTION Function);

/**
 * The same for log records.
 */
VX_API void VX_Register_Enhanced_MemoryLog_Function(VX_ENHANCED_LOG_FUNCTION Function);

/**
 * Hands the memory log over, oldest line first; a non-zero Clear empties it after the last line.
 * VX_LOG_EMPTY; VX_CALLBACK_CANNOT_COMPLY as soon as Callback returns other than 1.
 */
VX_API VX_STATUS VX_MemoryLog_To_Function(int32_t Clear, VX_MEMORY_LOG_READER Callback);

#ifdef __cplusplus
}
#endif

#endif
