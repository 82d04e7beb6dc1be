/* clang-format off */
/** @mainpage VexalKit
 * A DICOM toolkit behind a flat C interface.
 *
 * Conventions, which hold for every function unless its comment says otherwise.
 *
 * @par Status
 * A function returns a VX_STATUS: VX_NORMAL_COMPLETION (1) or one of the codes from 4000 up.
 * VX_Error_Message gives the text of a code.
 *
 * @par Order
 * A function answers in this order, which its own comment does not repeat:
 * 1. The library is not initialised: VX_LIBRARY_NOT_INITIALIZED, nothing is written.
 * 2. A required pointer is null: VX_NULL_POINTER_PARM.
 * 3. A handle is unknown: VX_INVALID_APPLICATION_ID, VX_INVALID_MESSAGE_ID, VX_INVALID_ITEM_ID,
 *    VX_INVALID_FILE_ID or VX_INVALID_ASSOCIATION_ID. Steps 2 and 3 may come in either order.
 * 4. The work; outputs are written only when a call gets this far. VX_SYSTEM_ERROR stands for
 *    memory that could not be had, in every function.
 *
 * @par Handles
 * Non-negative int32_t; -1 is none. A function that yields a handle writes -1 where it can not; a
 * function that frees writes -1 through the pointer. Messages, items and files share one number
 * space.
 *
 * @par Tags
 * uint32_t, the group in the high half, the element in the low half. A tag is private when its
 * group is odd and none of 1, 3, 5, 7 and 0xFFFF.
 *
 * @par Strings
 * NUL-terminated bytes in, copied by the library; out they are copied into the caller's buffer,
 * whose size is in bytes and counts the NUL.
 *
 * @par Memory
 * Nothing that the library hands out is freed by the caller, other than by the function of this
 * interface that takes its handle.
 *
 * @par Threads
 * Any thread may call any function, except VX_Library_Initialization, VX_Library_Reset and
 * VX_Library_Release, which must run alone. Two threads may use different objects freely; on one
 * object, calls that change values or move value cursors must be serialised by the caller.
 *
 * @par Functions of the caller
 * They run on the thread that made the call, and may call this interface. Meanwhile the
 * object at hand can be read; a call that would change or delete the attribute that the function
 * is called for, or, where it is called for a whole object, anything of it or of its items,
 * answers VX_STATE_VIOLATION. An object that is freed loses its handle at once, and its memory
 * after the call. One that gives data may answer with no bytes, but not more than 100,000 times in
 * a row: then, as for data without a buffer, the call that asked fails.
 *
 * @par Log
 * A failure writes its place and reason to the log at the point of failure.
 *
 * "PS3.n" in a comment names the part of the DICOM standard that a fact comes from.
 */
#ifndef VEXALKIT_H
#define VEXALKIT_H

#include "vexalkit/base.h"               /* what every topic uses: statuses, value representations, transfer syntaxes, commands */
#include "vexalkit/configuration.h"      /* settings and services */
#include "vexalkit/log.h"                /* log messages, their destinations and receivers */
#include "vexalkit/dictionary.h"         /* the data dictionary */
#include "vexalkit/library.h"            /* the life of the library, applications, memory */
#include "vexalkit/objects.h"            /* messages and items, their attributes */
#include "vexalkit/values.h"             /* values of any kind, and values that a function of the caller holds */
#include "vexalkit/conversion.h"         /* values from native types and back, UTF-16 text */
#include "vexalkit/private_attributes.h" /* private blocks and their attributes (PS3.5 section 7.8) */
#include "vexalkit/streams.h"            /* encoded data sets: transfer syntaxes, encoding, decoding */
#include "vexalkit/pixel_data.h"         /* encapsulated values, frames and compression */
#include "vexalkit/code_streams.h"       /* what compressed frames say of their image */
#include "vexalkit/associations.h"       /* associations: negotiation, requesting, accepting, listening, secure channels */
#include "vexalkit/capture.h"            /* functions that see every byte of the network */
#include "vexalkit/messages.h"           /* DIMSE messages on an association (PS3.7) */
#include "vexalkit/files.h"              /* Part 10 files (PS3.10 section 7) */
#include "vexalkit/directories.h"        /* DICOMDIR in memory and on disk */
#include "vexalkit/validation.h"         /* objects against the rules of their service */
#include "vexalkit/deidentification.h"    /* objects without what identifies the patient (PS3.15 annex E) */
#include "vexalkit/rules.h"              /* the rules themselves */
#include "vexalkit/reports.h"            /* structured reports: the tree of nodes */
#include "vexalkit/report_content.h"     /* structured reports: the content of nodes */
#include "vexalkit/text_forms.h"         /* JSON, XML and listings */

#endif
