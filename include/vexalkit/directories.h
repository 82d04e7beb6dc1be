/** @file
 * DICOMDIR in memory and on disk. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_DIRECTORIES_H
#define VEXALKIT_DIRECTORIES_H

#include "files.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Directories in memory (PS3.10 section 8, PS3.3 annex F) ------------------------------------------- */

/**
 * A directory is a file of service "DICOMDIR": VX_Create_File, then VX_Open_File or the functions below, then
 * VX_Write_File. Its records are items of (0004,1220), a tree of entities: the records at one place of it.
 * While it is in memory (0004,1200), (0004,1202), (0004,1400), (0004,1420) and (0004,1504) hold item ids;
 * they are written as offsets. Opening a directory whose offsets lead nowhere gives
 * VX_INVALID_DIRECTORY_RECORD_OFFSET, one with a record that is met twice VX_SYSTEM_ERROR; the tree then
 * holds what can be reached.
 *
 * All answer VX_INVALID_DICOMDIR_ID unless DirID is such a directory; VX_INVALID_ITEM_ID: no record of it;
 * VX_UNABLE_TO_GET_ITEM_ID: a chain of records is broken. Threads may use one directory; those that walk it
 * with VX_Dir_Next_Record need entities of their own, since each has one iterator. RecordName is the item's
 * name, such as "DIR_REC_PATIENT", and belongs to the item.
 */

/**
 * The root entity and its first record. An empty root gives RecordID 0 and IsLast 1.
 * VX_UNABLE_TO_GET_ITEM_ID: there is no root; VX_Dir_Add_Entity makes it.
 */
VX_API VX_STATUS VX_Dir_Root_Entity(int32_t DirID, int32_t* EntityID, int32_t* RecordID,
                                    const char** RecordName, int32_t* IsLast);

/**
 * The first record of an entity, from which VX_Dir_Next_Record goes on. An empty root gives RecordID 0 and
 * IsLast 1. VX_INVALID_ENTITY_ID.
 */
VX_API VX_STATUS VX_Dir_First_Record(int32_t DirID, int32_t EntityID, int32_t* RecordID,
                                     const char** RecordName, int32_t* IsLast);

/**
 * The next record of an entity. At the end RecordID is 0, IsLast 1 and RecordName null. VX_INVALID_ENTITY_ID.
 */
VX_API VX_STATUS VX_Dir_Next_Record(int32_t DirID, int32_t EntityID, int32_t* RecordID,
                                    const char** RecordName, int32_t* IsLast);

/**
 * The entity below a record and its first record; EntityID and FirstRecordID are 0 if there is none.
 */
VX_API VX_STATUS VX_Dir_Next_Entity(int32_t DirID, int32_t RecordID, int32_t* EntityID,
                                    int32_t* FirstRecordID, const char** RecordName, int32_t* IsLast);

/**
 * The number of records in the tree. VX_UNABLE_TO_GET_ITEM_ID: there is no root.
 */
VX_API VX_STATUS VX_Dir_Root_Count(int32_t DirID, int32_t* Count);

/**
 * The number of records of an entity. VX_INVALID_ENTITY_ID.
 */
VX_API VX_STATUS VX_Dir_Entity_Count(int32_t DirID, int32_t EntityID, int32_t* Count);

/**
 * The number of records from a record down, itself included.
 */
VX_API VX_STATUS VX_Dir_Item_Count(int32_t DirID, int32_t RecordID, int32_t* Count);

/**
 * Makes the entity below a record, with one record, whose type (0004,1430) comes from its name;
 * ParentRecordID 0 makes the root. VX_ENTITY_ALREADY_EXISTS: RecordID is then its first record, EntityID 0.
 * The record is there, but PS3.3 section F.4 does not have it at this place: VX_INVALID_LOWER_DIR_RECORD,
 * VX_INVALID_DIR_RECORD_TYPE. VX_MSGFILE_ERROR.
 */
VX_API VX_STATUS VX_Dir_Add_Entity(int32_t DirID, int32_t ParentRecordID, const char* RecordName,
                                   int32_t* EntityID, int32_t* RecordID);

/**
 * Appends a record to an entity. VX_INVALID_ENTITY_ID, and as VX_Dir_Add_Entity.
 */
VX_API VX_STATUS VX_Dir_Add_Record(int32_t DirID, int32_t EntityID, const char* RecordName,
                                   int32_t* RecordID);

/**
 * Deletes a record and all below. An entity that loses its last record goes, unless it is the root.
 */
VX_API VX_STATUS VX_Dir_Delete_Record(int32_t DirID, int32_t RecordID);

/**
 * Deletes all records below a record.
 */
VX_API VX_STATUS VX_Dir_Delete_Referenced_Entity(int32_t DirID, int32_t RecordID);

/**
 * Makes a multi-referenced file record, which stands outside the tree, and refers RecordID to it. It goes
 * with its last reference.
 */
VX_API VX_STATUS VX_Dir_Open_MRDR(int32_t DirID, int32_t RecordID, const char* RecordName, int32_t* MrdrID);

/**
 * Refers a record to such a record, in place of a former one. VX_INVALID_MRDR_ID.
 */
VX_API VX_STATUS VX_Dir_Reference_MRDR(int32_t DirID, int32_t RecordID, int32_t MrdrID);

/**
 * Drops the reference, if there is one.
 */
VX_API VX_STATUS VX_Dir_Remove_Ref_MRDR(int32_t DirID, int32_t RecordID);

/**
 * Sorts each entity by record type, then by the attributes that tell records of the type apart (names and ids
 * of patients, dates and times of studies, instance numbers); empty values go last. (0004,1220) then has the
 * records in the order of a walk; those that no chain reaches are dropped.
 */
VX_API VX_STATUS VX_Dir_Sort(int32_t DirID);

/**
 * Packs the attributes of a record from (0004,1505) on into the bytes of their stream, until one of them is
 * asked for: a large directory takes less memory. DICOMDIR_STREAM_STORAGE does the same while a directory is
 * read.
 */
VX_API VX_STATUS VX_Dir_Stream_Directory_Record(int32_t DirID, int32_t RecordID);

/* ---- Directories on disk ------------------------------------------------------------------------------- */

/**
 * A directory of any size, read record by record and changed in place. A RecordID is the id of a record's
 * item, with which its attributes are read; those of a new record are set. Nothing is written before
 * VX_DDH_Update. The directory is freed with VX_Free_File; the functions that read and write whole files
 * refuse it with VX_INVALID_FILE_ID.
 *
 * VX_INVALID_RECORD_ID: no record, or directory where one may stand. Reading:
 * VX_INVALID_DIRECTORY_RECORD_OFFSET: an offset leads nowhere or back to where it came from;
 * VX_UNEXPECTED_EOD. Threads may use one directory.
 */

/** What a record is, by (0004,1430). */
typedef enum {
  VX_DIR_PATIENT = 0,
  VX_DIR_STUDY = 1,
  VX_DIR_SERIES = 2,
  VX_DIR_IMAGE = 3,
  VX_DIR_RT_DOSE = 4,
  VX_DIR_RT_STRUCTURE_SET = 5,
  VX_DIR_RT_PLAN = 6,
  VX_DIR_RT_TREAT_RECORD = 7,
  VX_DIR_PRESENTATION = 8,
  VX_DIR_WAVEFORM = 9,
  VX_DIR_SR_DOCUMENT = 10,
  VX_DIR_KEY_OBJECT_DOC = 11,
  VX_DIR_SPECTROSCOPY = 12,
  VX_DIR_RAW_DATA = 13,
  VX_DIR_REGISTRATION = 14,
  VX_DIR_FIDUCIAL = 15,
  VX_DIR_HANGING_PROTOCOL = 16,
  VX_DIR_ENCAP_DOC = 17,
  VX_DIR_HL7_STRUC_DOC = 18,
  VX_DIR_VALUE_MAP = 19,
  VX_DIR_STEREOMETRIC = 20,
  VX_DIR_PALETTE = 21,
  VX_DIR_IMPLANT = 22,
  VX_DIR_IMPLANT_GROUP = 23,
  VX_DIR_IMPLANT_ASSY = 24,
  VX_DIR_MEASUREMENT = 25,
  VX_DIR_SURFACE = 26,
  VX_DIR_SURFACE_SCAN = 27,
  VX_DIR_TRACT = 28,
  VX_DIR_ASSESSMENT = 29,
  VX_DIR_PRIVATE = 30,
  VX_DIR_UNKNOWN = 31
} VX_DIR_RECORD_TYPE;

/**
 * Called for a record of a traversal. 0: go down into it, then on; 1: leave this level; 2: on without going
 * down; 3: end the whole; anything else ends it with VX_CALLBACK_CANNOT_COMPLY. It may release, delete and
 * add records, but neither update nor free the directory.
 */
typedef int32_t (*VX_DDH_TRAVERSE_CALLBACK)(int32_t RecordID, void* UserInfo);

/**
 * Makes an empty directory on disk, in place of a former file of the name, and opens it. FileSetID may be
 * null. SourceID, 0 for none, names a file whose groups 0002 and 0004 go into it but for records.
 * VX_INVALID_MESSAGE_ID; VX_CALLBACK_CANNOT_COMPLY: the file can not be written; and as VX_DDH_Open.
 */
VX_API VX_STATUS VX_DDH_Create(const char* FileName, const char* FileSetID, int32_t SourceID, int32_t* DirID);

/**
 * Opens a directory; an update that was cut off is undone first. VX_CALLBACK_CANNOT_COMPLY: there is no such
 * file; VX_INVALID_FILE: not a directory in little endian; VX_INVALID_TRANSFER_SYNTAX; and as VX_Open_File.
 */
VX_API VX_STATUS VX_DDH_Open(const char* FileName, int32_t* DirID);

/**
 * Brings the file up to date: new records go to its end, offsets change in place. It is whole or not done;
 * after a failure the changes wait for the next call. VX_INVALID_DICOMDIR_ID; VX_CALLBACK_CANNOT_COMPLY: the
 * file can not be written, or another program updates it; VX_INVALID_FILE: it has changed since it was
 * opened, holds more than padding behind the records, or the write failed; VX_VALUE_TOO_LARGE: it would reach
 * beyond 4 GiB; VX_INVALID_DIRECTORY_RECORD_OFFSET; VX_STATE_VIOLATION: called in a traversal.
 */
VX_API VX_STATUS VX_DDH_Update(int32_t DirID);

/**
 * Adds a record at the end of the level below ParentID, a record or the directory. Type is a text of
 * (0004,1430), the SOP class UID of what the record refers to, or null for what stands at that depth.
 * VX_INVALID_LOWER_DIR_RECORD; VX_INVALID_DIR_RECORD_TYPE: nothing may lie below such a parent.
 */
VX_API VX_STATUS VX_DDH_Add_Record(int32_t ParentID, const char* Type, int32_t* RecordID);

/**
 * Marks a record for removal at the next update and forgets what is below it; its id is dead.
 */
VX_API VX_STATUS VX_DDH_Delete_Record(int32_t RecordID);

/**
 * Lets a record and all below go from memory: their ids are dead, the records are read again when they are
 * reached. What waits for an update stays.
 */
VX_API VX_STATUS VX_DDH_Release_Record(int32_t RecordID);

/**
 * The first record below ParentID, a record or the directory; 0 if there is none.
 */
VX_API VX_STATUS VX_DDH_Get_First_Lower_Record(int32_t ParentID, int32_t* RecordID);

/**
 * The next record of the level; 0 at the end.
 */
VX_API VX_STATUS VX_DDH_Get_Next_Record(int32_t RecordID, int32_t* NextID);

/**
 * The record above; 0 at the root.
 */
VX_API VX_STATUS VX_DDH_Get_Parent_Record(int32_t RecordID, int32_t* ParentID);

/**
 * The type of a record; VX_DIR_UNKNOWN for a text that has no number.
 */
VX_API VX_STATUS VX_DDH_Get_Record_Type(int32_t RecordID, VX_DIR_RECORD_TYPE* Type);

/**
 * Calls back for each record below StartID, a record or the directory, from the first one down.
 */
VX_API VX_STATUS VX_DDH_Traverse_Records(int32_t StartID, void* UserInfo, VX_DDH_TRAVERSE_CALLBACK Callback);

/**
 * Copies attributes from (0004,1421) on from one object to another, from file to file all but those that lead
 * to records. TagList, ended by 0, names what is copied, a tag with element 0000 its whole group; null: all.
 * VX_INVALID_MESSAGE_ID, VX_SYSTEM_ERROR.
 */
VX_API VX_STATUS VX_DDH_Copy_Values(int32_t SourceID, int32_t DestID, const uint32_t* TagList);

#ifdef __cplusplus
}
#endif

#endif
