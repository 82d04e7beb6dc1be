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

/** One finding of a validation; the library owns it, see VX_Validate_Message. */
typedef struct ValErrObj {
  uint32_t Tag;        /* the attribute, which may be absent */
  int32_t MsgItemID;   /* the object that the finding lies in: the item's own ID inside a sequence */
  int32_t ValueNumber; /* from 1; 0 where the attribute as a whole is concerned */
  VX_STATUS Status;    /* what was found; VX_Error_Message gives its text */
} ValErrObj;

/** What a validation records: findings up to this grade, the others being remarks. */
typedef int32_t ValidationLevel;

enum { VX_Errors_Only = 1, VX_Errors_And_Warnings = 2, VX_All_Findings = 3 };

/* ---- Validation ---------------------------------------------------------------------------------------- */

/**
 * Checks an object, with all items below it, against the template of its service and command.
 * For an item it is the template of the item's type. VX_Set_Service_Command sets both. An item of a sequence
 * that has no type takes the first one that its sequence allows, and a message gets the standard attributes
 * of group 0000 that it lacks, without values; groups 0000 to 0002 are not checked. Values that a callback
 * holds are not looked at.
 *
 * A finding's status is one of these. Errors: VX_REQUIRED_ATTRIBUTE_MISSING, VX_REQUIRED_VALUE_MISSING,
 * VX_VALUE_MAY_NOT_BE_NULL, VX_VALUE_NOT_ALLOWED (the attribute's condition does not hold), VX_TOO_FEW_VALUES
 * (of an optional attribute an error, a warning or a remark, as NULL_TYPE3_VALIDATION says),
 * VX_TOO_MANY_VALUES, VX_INVALID_VR_CODE (a value of VR UN), VX_INVALID_VALUE_FOR_VR,
 * VX_INVALID_CHARS_IN_VALUE, VX_NOT_ONE_OF_ENUMERATED_VALUES, VX_NOT_ONE_OF_DEFINED_TERMS (an item of a type
 * that its sequence does not take). Warnings: VX_NON_SERVICE_ATTRIBUTE (a value that the template does not
 * know), VX_NOT_ONE_OF_DEFINED_TERMS (a value). Remarks: VX_NO_CONDITION_FUNCTION,
 * VX_UNABLE_TO_CHECK_CONDITION. Each goes to the log too, at VX_LOG_T5.
 *
 * No other thread may change the object meanwhile.
 * @param MsgID  message, item or file.
 * @param ErrInfo  [out] the first finding; null where there is none, and after any failure, that of the
 *   conventions too. All findings are the library's, and end when the object is validated again or freed;
 *   those of items below stand in the list of the object that was asked for.
 * @param Level  one of ValidationLevel; a value below 1 records nothing.
 * @retval VX_MESSAGE_VALIDATES  there is nothing to report.
 * @retval VX_DOES_NOT_VALIDATE  there are findings; VX_Get_Next_Validate_Error gives those behind the first.
 * @retval VX_MSGFILE_ERROR  the object has no service and command or item type, or the template can not be
 *   read.
 * @retval VX_NOT_FOUND  the template has attributes of a private block that the object lacks.
 * @retval VX_INVALID_VALUE_FOR_VR  sequences are nested beyond 128 levels.
 * @retval VX_SYSTEM_ERROR  no memory. After this status and the one before it VX_Get_Next_Validate_Error
 *   gives what was found so far, from the first on.
 */
VX_API VX_STATUS VX_Validate_Message(int32_t MsgID, ValErrObj** ErrInfo, ValidationLevel Level);

/**
 * As VX_Validate_Message; either takes messages, items and files.
 * @param FileID  as MsgID there; an unknown one is VX_INVALID_MESSAGE_ID.
 * @param ErrInfo  [out] as there.
 * @param Level  as there.
 * @return The statuses of VX_Validate_Message.
 */
VX_API VX_STATUS VX_Validate_File(int32_t FileID, ValErrObj** ErrInfo, ValidationLevel Level);

/**
 * As VX_Validate_Message for one attribute and what lies below it.
 * An attribute that is absent is added first, without a value, so that the finding where it is required is
 * VX_REQUIRED_VALUE_MISSING.
 * @param Tag  an attribute above group 0002.
 * @retval VX_INVALID_TAG  Tag is absent and can not be added: the data dictionary does not know it, or the
 *   object was opened with all attributes of its template; or Tag lies in one of the groups 0000 to 0002.
 * @copydetails VX_Validate_Message
 */
VX_API VX_STATUS VX_Validate_Attribute(int32_t MsgID, uint32_t Tag, ValErrObj** ErrInfo,
                                       ValidationLevel Level);

/**
 * Gives the next finding of the last validation of an object.
 * @param MsgID  message, item or file that was asked for.
 * @param ErrInfo  [out] the finding, which lives as VX_Validate_Message says; null after a failure.
 * @retval VX_END_OF_LIST  all were handed out, or the object was never validated.
 */
VX_API VX_STATUS VX_Get_Next_Validate_Error(int32_t MsgID, ValErrObj** ErrInfo);

#ifdef __cplusplus
}
#endif

#endif
