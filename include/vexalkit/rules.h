/** @file
 * What the standard asks of messages and items, as the Message Info File has it. The conventions stand in
 * vexalkit.h.
 */
#ifndef VEXALKIT_RULES_H
#define VEXALKIT_RULES_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

/** The types of attributes (PS3.5 section 7.4). */
enum { VX_RULE_TYPE_1 = 0, VX_RULE_TYPE_1C = 1, VX_RULE_TYPE_2 = 2, VX_RULE_TYPE_2C = 3, VX_RULE_TYPE_3 = 4 };

/** A value that a rule lists. */
typedef struct RuleValueObj {
  const char* Text;     /* as text, whatever the VR; of a sequence the name of an item type */
  int32_t ValueNumber;  /* the value that it is for, from 1; where no rule value of the attribute has a higher
                           one than 1, it is for every value */
  int32_t IsEnumerated; /* 1: an enumerated value; 0: a defined term, beside which others may stand */
} RuleValueObj;

/** The rule of one attribute. All that it points to is the library's and never changes. */
typedef struct RuleObj {
  uint32_t Tag;
  int32_t Type;          /* VX_RULE_TYPE_1 to VX_RULE_TYPE_3 */
  VX_VR VR;              /* of the data dictionary, else of the file; VX_VR_UN where neither knows it */
  uint16_t VMLow;        /* least number of values */
  uint16_t VMHigh;       /* greatest number of values; 255: no limit */
  int32_t MayBePresent;  /* 1: may be there where the condition does not hold */
  const char* Condition; /* name of the condition; null without one, or where the rule stands in the file */
  const char* ConditionRule; /* the condition as a rule; null where nothing can tell whether it holds */
  const char* Module;        /* title of the module or macro with its table of PS3.3, or null */
  const char* Creator;       /* private creator of a private attribute, or null */
  const char* DefaultValue;  /* as text, "<null>" for a value of length 0; null without one */
  int32_t ValueCount;
  const RuleValueObj* Values; /* in the order of the file */
} RuleObj;

/* ---- Rules --------------------------------------------------------------------------------------------- */

/**
 * Gives the rules of what messages of a service hold, or the items of a type.
 * They are read from MSG_INFO_FILE when they are first asked for, and kept.
 * @param Name  a service, or an item type.
 * @param Command  of the service; 0 for an item type.
 * @param Rules  [out] an array, ascending by tag, that lives until the next reset or the release of the
 *   library. Any number of threads may read it.
 * @param Count  [out] its length, above 0.
 * @retval VX_NOT_FOUND  no such service, command or item type, or nothing is known of what it holds.
 * @retval VX_MSGFILE_ERROR  the file can not be read, or is damaged where the rules stand.
 */
VX_API VX_STATUS VX_Get_Rules(const char* Name, uint16_t Command, const RuleObj** Rules, int32_t* Count);

/**
 * Gives the rule of one attribute.
 * @param Name  a service, or an item type.
 * @param Command  of the service; 0 for an item type.
 * @param Tag  the attribute; of a repeating group the rule of the first group holds where it has none itself.
 * @param Rule  [out] the rule, which lives as VX_Get_Rules says.
 * @retval VX_INVALID_TAG  there are rules, but none for the tag.
 * @retval VX_NOT_FOUND  no such service, command or item type, or nothing is known of what it holds.
 * @retval VX_MSGFILE_ERROR  the file can not be read, or is damaged where the rules stand.
 */
VX_API VX_STATUS VX_Find_Rule(const char* Name, uint16_t Command, uint32_t Tag, const RuleObj** Rule);

/**
 * Gives the commands of a service that VX_Get_Rules has rules for.
 * @param Service  a service; one that is not known has none.
 * @param Commands  [out] command values, in the order of the file.
 * @param Size  the number of elements of Commands; 23 hold all.
 * @param Count  [out] how many there are, written whether they fit or not.
 * @retval VX_BUFFER_TOO_SMALL  the first Size of them were written.
 * @retval VX_MSGFILE_ERROR  the file can not be read, or is damaged where the commands stand.
 */
VX_API VX_STATUS VX_Get_Rule_Commands(const char* Service, uint16_t* Commands, int32_t Size, int32_t* Count);

#ifdef __cplusplus
}
#endif

#endif
