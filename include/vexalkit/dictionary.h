/** @file
 * The data dictionary. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_DICTIONARY_H
#define VEXALKIT_DICTIONARY_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

/** One attribute of a dictionary. */
typedef struct DictEntry {
  const struct DictEntry* Next; /* next of the chain, or null */
  uint32_t Tag;                 /* 0xGGGG00EE for a private tag */
  int32_t VR;                   /* a VX_VR */
  uint16_t VMLow;               /* least number of values */
  uint16_t VMHigh;              /* greatest number of values; 255: no limit */
  const char* Name;             /* at most 99 bytes; null: empty */
  const char* PrivateCode;      /* creator code without trailing blanks; null for a standard tag */
} DictEntry;

/** The number of chains of a dictionary. */
enum { VX_DICTIONARY_CHAINS = 850 };

/**
 * A finished dictionary: chain n holds the entries whose Tag modulo VX_DICTIONARY_CHAINS is n.
 * It belongs to the program, which keeps it unchanged until the next reset or the release.
 */
typedef struct DictionaryRecord {
  const char* version;            /* VX_BUILD_VERSION, or null */
  const DictEntry* const* chains; /* VX_DICTIONARY_CHAINS of them, null for one without entries */
} DictionaryRecord;

/**
 * Called once by VX_Library_Initialization and by each VX_Library_Reset.
 * @return the record; null is a failure.
 */
typedef const DictionaryRecord* (*VX_DICTIONARY_FUNCTION)(void);

/* ---- Data dictionary ----------------------------------------------------------------------------------- */

/**
 * Gives the name of a tag.
 * @param Tag  a standard tag; a tag of a repeating group is found by the entry of its first group. The group
 *   length of a private group has a name too.
 * @param Buffer  [out] the name; untouched where there is none.
 * @param BufferSize  bytes of Buffer, its NUL counted; 100 hold every name.
 * @retval VX_INVALID_TAG  the dictionary lacks the tag.
 * @retval VX_MISSING_CONFIG_PARM  there is no dictionary.
 * @retval VX_BUFFER_TOO_SMALL  as much of the name as fits was copied, with a NUL; nothing for a BufferSize
 *   below 1, and nothing of the name of a private group length.
 */
VX_API VX_STATUS VX_Get_Tag_Info(uint32_t Tag, char* Buffer, int32_t BufferSize);

/**
 * Gives the name of a tag, its VR and its number of values.
 * @param VR  [out] the VR, after the settings ATT_..._USE_UT_VR and ATT_0074100A_USE_ST_VR; where several are
 *   possible, the one that the dictionary chose. Written, as the next two, as soon as the tag is found and
 *   BufferSize is above 0.
 * @param VMLow  [out] the least number of values.
 * @param VMHigh  [out] the greatest number of values; 255: no limit.
 * @retval VX_NULL_POINTER_PARM  for Tag 0 too.
 * @copydetails VX_Get_Tag_Info
 */
VX_API VX_STATUS VX_Get_Tags_Dict_Info(uint32_t Tag, char* Buffer, int32_t BufferSize, VX_VR* VR,
                                       uint16_t* VMLow, uint16_t* VMHigh);

/**
 * Gives the name of a private attribute.
 * @param PrivateCode  the creator code; trailing blanks do not count.
 * @param Group  the group.
 * @param Element  the low byte of the element.
 * @param Buffer  [out] the name; untouched where there is none.
 * @param BufferSize  bytes of Buffer, its NUL counted; 100 hold every name.
 * @retval VX_INVALID_TAG  the dictionary lacks the attribute, or the group is not private.
 * @retval VX_MISSING_CONFIG_PARM  there is no dictionary.
 * @retval VX_BUFFER_TOO_SMALL  as much of the name as fits was copied, with a NUL.
 */
VX_API VX_STATUS VX_Get_pTag_Info(const char* PrivateCode, uint16_t Group, uint8_t Element, char* Buffer,
                                  int32_t BufferSize);

/**
 * Gives the name of a private attribute, its VR and its number of values.
 * @param VR  [out] the VR. Written, as the next two, as soon as the attribute is found and BufferSize is
 *   above 0.
 * @param VMLow  [out] the least number of values.
 * @param VMHigh  [out] the greatest number of values; 255: no limit.
 * @copydetails VX_Get_pTag_Info
 */
VX_API VX_STATUS VX_Get_pTags_Dict_Info(const char* PrivateCode, uint16_t Group, uint8_t Element,
                                        char* Buffer, int32_t BufferSize, VX_VR* VR, uint16_t* VMLow,
                                        uint16_t* VMHigh);

/**
 * Gives the keyword of a standard tag, made from its name as PS3.6 section 6 does.
 * @param Tag  a standard tag.
 * @param Buffer  [out] the keyword; untouched after a failure.
 * @param BufferSize  bytes of Buffer, its NUL counted.
 * @retval VX_INVALID_TAG  the dictionary lacks the tag, or it is private.
 * @retval VX_MISSING_CONFIG_PARM  there is no dictionary.
 * @retval VX_BUFFER_TOO_SMALL  nothing was copied.
 */
VX_API VX_STATUS VX_Get_Tag_Keyword(uint32_t Tag, char* Buffer, int32_t BufferSize);

#ifdef __cplusplus
}
#endif

#endif
