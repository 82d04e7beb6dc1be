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

/** Log destinations, a set of bits. VX_LOG_OFF holds messages back whatever other bits are set. */
enum { VX_LOG_TO_FILE = 1, VX_LOG_TO_MEMORY = 2, VX_LOG_TO_SCREEN = 4, VX_LOG_OFF = 16 };

/** Log levels, one bit each, and what the library writes there. */
enum {
  VX_LOG_T1 = 1,         /* objects made and freed, the memory report */
  VX_LOG_T2 = 2,         /* messages sent and received, as a listing */
  VX_LOG_T3 = 4,         /* parameters of associations */
  VX_LOG_T4 = 8,         /* associations that failed the checks */
  VX_LOG_T5 = 16,        /* what validation found, faults of values in a stream */
  VX_LOG_T6 = 32,        /* the configuration, at the start */
  VX_LOG_T7 = 64,        /* the command elements of messages */
  VX_LOG_T8 = 128,       /* the decoder, element by element */
  VX_LOG_T9 = 256,       /* every PDU */
  VX_LOG_INFO = 512,     /* the start, clean-ups of memory */
  VX_LOG_WARNING = 1024, /* faults that were put up with */
  VX_LOG_ERROR = 2048    /* failures; these are never off */
};

/** What an enhanced log receiver gets; valid during the call only. */
typedef struct VX_LOG_RECORD {
  int32_t Type;             /* 1 error, 2 warning, 3 info, 5 to 13 for T1 to T9, 14 unknown */
  int32_t Hour;             /* 0 to 23 */
  int32_t Minute;           /* 0 to 59 */
  int32_t Second;           /* 0 to 60 */
  int32_t Hundredths;       /* 0 to 99 */
  int32_t Day;              /* of the month, from 1 */
  int32_t Month;            /* 0 to 11 */
  int32_t Year;             /* years since 1900 */
  const char* LevelText;    /* E, W, I, T1 to T9, or UNKN_TYPE */
  const char* Prefix;       /* as VX_Set_Log_Prefix stored it */
  const char* ThreadText;   /* number of the thread, decimal */
  const char* TimeText;     /* local time, as 12-31 23:59:59 */
  const char* FunctionName; /* empty when the caller gave none */
  const char* Message;      /* without non-printing characters */
} VX_LOG_RECORD;

/**
 * Receives whole log lines, on the thread that logs and without a lock held.
 * @param Severity  1 error, 2 warning, 3 info, 4 any other level.
 * @param Line  at most 356 characters without a line end; valid during the call only.
 */
typedef void (*VX_LOG_FUNCTION)(int32_t Severity, const char* Line);

/**
 * Receives log messages with what belongs to them, as VX_LOG_FUNCTION.
 * @param Record  valid during the call only.
 */
typedef void (*VX_ENHANCED_LOG_FUNCTION)(const VX_LOG_RECORD* Record);

/**
 * Takes one line of the memory log. It may log.
 * @param Line  at most 255 characters; valid during the call only.
 * @param IsFirst  1 for the oldest line, else 0.
 * @param IsLast  1 for the newest line, else 0.
 * @return 1 to go on.
 */
typedef int32_t (*VX_MEMORY_LOG_READER)(const char* Line, int32_t IsFirst, int32_t IsLast);

/* ---- Log ----------------------------------------------------------------------------------------------- */

/**
 * Formats a message and logs it at one level.
 * A text of more than 256 characters is cut, with a warning in front of it.
 * @param Level  one VX_LOG_ bit, VX_LOG_ERROR for instance. Any other number is shown as UNKN_TYPE and goes
 *   where errors go.
 * @param Format  as for printf, followed by its values.
 * @return 0: logged, or the level is off; 2: the log file failed; 4: Format is null or empty; 7: there is no
 *   configuration yet; 8: the memory log could not be allocated. These are no VX_STATUS.
 */
VX_API int32_t VXlog(uint32_t Level, const char* Format, ...) VX_PRINTF(2, 3);

/**
 * As VXlog, with the name of a function in the line.
 * @param FunctionName  the name; null leaves its place empty.
 * @copydetails VXlog
 */
VX_API int32_t VXlog_Function(const char* FunctionName, uint32_t Level, const char* Format, ...)
    VX_PRINTF(3, 4);

/**
 * Sets the text at the head of each line. Works at any time.
 * @param Prefix  copied without leading white space, up to 10 characters; null empties it.
 * @return the stored text, the library's own, which changes with the next call.
 */
VX_API const char* VX_Set_Log_Prefix(const char* Prefix);

/**
 * Sets the receiver of whole log lines. Works at any time.
 * It gets the messages of every level that is not off, unless the log file fails. One that is named before
 * the initialisation gets the errors and warnings of the start too, which then writes no log file and nothing
 * to the screen. Reset and release take it away.
 * @param Function  null takes the receiver away.
 */
VX_API void VX_Register_MemoryLog_Function(VX_LOG_FUNCTION Function);

/**
 * Sets the receiver of log messages with what belongs to them, beside the one of whole lines.
 * @copydetails VX_Register_MemoryLog_Function
 */
VX_API void VX_Register_Enhanced_MemoryLog_Function(VX_ENHANCED_LOG_FUNCTION Function);

/**
 * Hands the memory log over, oldest line first.
 * @param Clear  non-zero empties the memory log after the last line; not after a failure.
 * @param Callback  called for each line.
 * @retval VX_LOG_EMPTY  there is no line.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Callback returned other than 1, and was not called again.
 */
VX_API VX_STATUS VX_MemoryLog_To_Function(int32_t Clear, VX_MEMORY_LOG_READER Callback);

#ifdef __cplusplus
}
#endif

#endif
