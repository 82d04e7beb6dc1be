/** @file
 * Objects against the rules of their service. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_VALIDATION_H
#define VEXALKIT_VALIDATION_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

/** One finding of a validation; the library owns it. */
typedef struct ValErrObj {
  uint32_t Tag;
  int32_t MsgItemID;   /* the object that the finding lies in: the item's own ID inside a sequence */
  int32_t ValueNumber; /* from 1; 0 where the attribute as a whole is concerned */
  VX_STATUS Status;    /* what was found */
} ValErrObj;

/** What a validation records. */
typedef int32_t ValidationLevel;

enum { VX_Errors_Only = 1, VX_Errors_And_Warnings = 2, VX_All_Findings = 3 };

/* ---- Validation ---------------------------------------------------------------------------------------- */

/**
 * Checks a message, an item or a file, with all items below, against the template of its service and command
 * or item type (VX_Set_Service_Command). VX_MESSAGE_VALIDATES: there is nothing to report, *ErrInfo is null.
 * VX_DOES_NOT_VALIDATE: *ErrInfo is the first finding. Findings stay the library's and valid until the object
 * is validated again or freed; those of items stand in the list of the object that was asked for. An item
 * without a type takes the first one that its sequence allows. No other thread may change the object
 * meanwhile.
 *
 * A finding's status is one of, as an error: VX_REQUIRED_ATTRIBUTE_MISSING, VX_REQUIRED_VALUE_MISSING,
 * VX_VALUE_MAY_NOT_BE_NULL, VX_VALUE_NOT_ALLOWED, VX_TOO_FEW_VALUES (for an optional attribute as
 * NULL_TYPE3_VALIDATION says), VX_TOO_MANY_VALUES, VX_INVALID_VR_CODE, VX_INVALID_VALUE_FOR_VR,
 * VX_INVALID_CHARS_IN_VALUE, VX_NOT_ONE_OF_ENUMERATED_VALUES, VX_NOT_ONE_OF_DEFINED_TERMS (an item of a type
 * that its sequence does not take); as a warning: VX_NON_SERVICE_ATTRIBUTE, VX_NOT_ONE_OF_DEFINED_TERMS (a
 * value); else: VX_NO_CONDITION_FUNCTION, VX_UNABLE_TO_CHECK_CONDITION.
 *
 * VX_INVALID_MESSAGE_ID; VX_MSGFILE_ERROR: the object has no service and command or item type, or the
 * template could not be read; VX_NOT_FOUND: the template names a private block that the object lacks;
 * VX_SYSTEM_ERROR: VX_Get_Next_Validate_Error then gives what was found so far.
 */
VX_API VX_STATUS VX_Validate_Message(int32_t MsgID, ValErrObj** ErrInfo, ValidationLevel Level);

/**
 * The same for a file.
 */
VX_API VX_STATUS VX_Validate_File(int32_t FileID, ValErrObj** ErrInfo, ValidationLevel Level);

/**
 * The same for one attribute and what lies below it. An attribute that is absent is added without a value.
 * VX_INVALID_TAG: it can not be, or lies in group 0, 1 or 2; else as VX_Validate_Message.
 */
VX_API VX_STATUS VX_Validate_Attribute(int32_t MsgID, uint32_t Tag, ValErrObj** ErrInfo,
                                       ValidationLevel Level);

/**
 * The next finding of the last validation of this object. VX_END_OF_LIST, *ErrInfo then null: all were handed
 * out, or the object was never validated. VX_INVALID_MESSAGE_ID.
 */
VX_API VX_STATUS VX_Get_Next_Validate_Error(int32_t MsgID, ValErrObj** ErrInfo);

#ifdef __cplusplus
}
#endif

#endif
