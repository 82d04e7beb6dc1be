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

/** One attribute of the Data Dictionary. */
typedef struct DictEntry {
  const struct DictEntry* Next; /* next of the chain */
  uint32_t Tag;                 /* 0xGGGG00EE for a private tag */
  int32_t VR;
  uint16_t VMLow;
  uint16_t VMHigh;         /* 255: no limit */
  const char* Name;        /* at most 99 bytes */
  const char* PrivateCode; /* creator code without trailing blanks; null for a standard tag */
} DictEntry;

enum { VX_DICTIONARY_CHAINS = 850 };

/** A finished dictionary: chain n holds the entries whose Tag modulo VX_DICTIONARY_CHAINS is n. */
typedef struct DictionaryRecord {
  const char* version; /* VX_BUILD_VERSION, or null */
  const DictEntry* const* chains;
} DictionaryRecord;

typedef const DictionaryRecord* (*VX_DICTIONARY_FUNCTION)(void);

/* ---- Data dictionary ----------------------------------------------------------------------------------- */

/**
 * The name of a tag. VX_INVALID_TAG: the dictionary lacks it; VX_MISSING_CONFIG_PARM: there is no dictionary;
 * VX_BUFFER_TOO_SMALL: as much of the name as fits was copied.
 */
VX_API VX_STATUS VX_Get_Tag_Info(uint32_t Tag, char* Buffer, int32_t BufferSize);

/**
 * Name, VR and bounds of the number of values (255: no limit) of a tag. As VX_Get_Tag_Info;
 * VX_NULL_POINTER_PARM for Tag 0 too.
 */
VX_API VX_STATUS VX_Get_Tags_Dict_Info(uint32_t Tag, char* Buffer, int32_t BufferSize, VX_VR* VR,
                                       uint16_t* VMLow, uint16_t* VMHigh);

/**
 * As VX_Get_Tag_Info, for a private attribute by creator code, group and low byte of the element.
 */
VX_API VX_STATUS VX_Get_pTag_Info(const char* PrivateCode, uint16_t Group, uint8_t Element, char* Buffer,
                                  int32_t BufferSize);

/**
 * As VX_Get_Tags_Dict_Info, for a private attribute.
 */
VX_API VX_STATUS VX_Get_pTags_Dict_Info(const char* PrivateCode, uint16_t Group, uint8_t Element,
                                        char* Buffer, int32_t BufferSize, VX_VR* VR, uint16_t* VMLow,
                                        uint16_t* VMHigh);

/**
 * The keyword of a standard tag, made from its name as PS3.6 section 6 does. VX_INVALID_TAG,
 * VX_MISSING_CONFIG_PARM; VX_BUFFER_TOO_SMALL, nothing copied.
 */
VX_API VX_STATUS VX_Get_Tag_Keyword(uint32_t Tag, char* Buffer, int32_t BufferSize);

#ifdef __cplusplus
}
#endif

#endif
