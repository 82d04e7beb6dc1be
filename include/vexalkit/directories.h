/** @file
 * DICOMDIR in memory and on disk. The conventions stand in vexalkit.h.
 *
 * @par Directories in memory (VX_Dir_)
 * Such a directory is a file of service "DICOMDIR": VX_Create_File, then VX_Open_File or the functions below,
 * then VX_Write_File. Its records are items of (0004,1220), a tree of entities: the records at one place of
 * it. While it is in memory (0004,1200), (0004,1202), (0004,1400), (0004,1420) and (0004,1504) hold item ids;
 * they are written as offsets. Opening a directory whose offsets lead nowhere gives
 * VX_INVALID_DIRECTORY_RECORD_OFFSET, one with a record that is met twice VX_SYSTEM_ERROR; the tree then
 * holds what can be reached.
 * @par
 * All functions answer VX_INVALID_DICOMDIR_ID unless DirID is such a directory. Threads may use one
 * directory; those that walk it with VX_Dir_Next_Record need entities of their own, since each has one
 * iterator.
 *
 * @par Directories on disk (VX_DDH_)
 * Such a directory may be of any size: it is read record by record and changed in place. A record's id is
 * that of its item, with which its attributes are read; those of a new record are set. Nothing is written
 * before VX_DDH_Update. VX_Free_File frees the directory and drops what was not written; the functions that
 * read and write whole files refuse it with VX_INVALID_FILE_ID. Threads may use one directory.
 */
#ifndef VEXALKIT_DIRECTORIES_H
#define VEXALKIT_DIRECTORIES_H

#include "files.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Directories in memory (PS3.10 section 8, PS3.3 annex F) ------------------------------------------- */

/**
 * Gives the root entity and its first record, on which it puts the entity's iterator.
 * @param DirID  directory in memory.
 * @param EntityID  [out] the root; 0 after a failure.
 * @param RecordID  [out] its first record, as for VX_Dir_First_Record.
 * @param RecordName  [out] its name, as for VX_Dir_First_Record.
 * @param IsLast  [out] as for VX_Dir_First_Record.
 * @retval VX_UNABLE_TO_GET_ITEM_ID  there is no root, which VX_Dir_Add_Entity makes; or the chain of records
 *   is broken.
 * @retval VX_INVALID_ITEM_ID  the chain leads to what is no record of the directory.
 */
VX_API VX_STATUS VX_Dir_Root_Entity(int32_t DirID, int32_t* EntityID, int32_t* RecordID,
                                    const char** RecordName, int32_t* IsLast);

/**
 * Gives the first record of an entity, from which VX_Dir_Next_Record goes on.
 * @param DirID  directory in memory.
 * @param EntityID  entity of it.
 * @param RecordID  [out] the record's item; 0 where there is none, as in an empty root, and after a failure,
 *   that of a wrong DirID too.
 * @param RecordName  [out] the name of the record's item, which owns it and keeps it until it is renamed or
 *   freed; null where RecordID is 0.
 * @param IsLast  [out] 0 if another record follows, else 1.
 * @retval VX_INVALID_ENTITY_ID  the directory has no such entity.
 * @retval VX_UNABLE_TO_GET_ITEM_ID  the chain of records is broken.
 * @retval VX_INVALID_ITEM_ID  the chain leads to what is no record of the directory.
 */
VX_API VX_STATUS VX_Dir_First_Record(int32_t DirID, int32_t EntityID, int32_t* RecordID,
                                     const char** RecordName, int32_t* IsLast);

/**
 * As VX_Dir_First_Record, but gives the record behind the one that was given last.
 * That is the first one before any was given. Behind the last record RecordID is 0; VX_Dir_First_Record
 * starts anew.
 * @copydetails VX_Dir_First_Record
 */
VX_API VX_STATUS VX_Dir_Next_Record(int32_t DirID, int32_t EntityID, int32_t* RecordID,
                                    const char** RecordName, int32_t* IsLast);

/**
 * Gives the entity below a record and its first record, on which it puts the entity's iterator.
 * @param DirID  directory in memory.
 * @param RecordID  record of its tree.
 * @param EntityID  [out] the entity; 0 if nothing lies below, which is no failure, and after a failure.
 * @param FirstRecordID  [out] its first record, as RecordID of VX_Dir_First_Record.
 * @param RecordName  [out] its name, as for VX_Dir_First_Record.
 * @param IsLast  [out] as for VX_Dir_First_Record.
 * @retval VX_INVALID_ITEM_ID  RecordID, or what lies below, is no record of the tree.
 * @retval VX_UNABLE_TO_GET_ITEM_ID  a chain of records is broken.
 */
VX_API VX_STATUS VX_Dir_Next_Entity(int32_t DirID, int32_t RecordID, int32_t* EntityID,
                                    int32_t* FirstRecordID, const char** RecordName, int32_t* IsLast);

/**
 * Counts the records of the tree.
 * @param DirID  directory in memory.
 * @param Count  [out] the number; untouched after a failure.
 * @retval VX_UNABLE_TO_GET_ITEM_ID  there is no root.
 */
VX_API VX_STATUS VX_Dir_Root_Count(int32_t DirID, int32_t* Count);

/**
 * Counts the records of an entity, without what lies below them.
 * @param DirID  directory in memory.
 * @param EntityID  entity of it.
 * @param Count  [out] the number; untouched after a failure.
 * @retval VX_INVALID_ENTITY_ID  the directory has no such entity.
 */
VX_API VX_STATUS VX_Dir_Entity_Count(int32_t DirID, int32_t EntityID, int32_t* Count);

/**
 * Counts the records from a record down, itself included.
 * @param DirID  directory in memory.
 * @param RecordID  record of its tree.
 * @param Count  [out] the number; of no meaning after a failure.
 * @retval VX_INVALID_ITEM_ID  RecordID is no record of the tree.
 * @retval VX_UNABLE_TO_GET_ITEM_ID  a chain of records below is broken.
 */
VX_API VX_STATUS VX_Dir_Item_Count(int32_t DirID, int32_t RecordID, int32_t* Count);

/**
 * Makes the entity below a record, with one record.
 * @param DirID  directory in memory.
 * @param ParentRecordID  record of its tree without an entity below; 0 makes the root, or fills it if it is
 *   empty.
 * @param RecordName  item name of the new record, such as "DIR_REC_PATIENT", which tells its type
 *   (0004,1430); the record has the attributes of that item's template.
 * @param EntityID  [out] the entity; 0 after a failure, but for the two statuses that leave the record.
 * @param RecordID  [out] the record; 0 after a failure, but for those two and VX_ENTITY_ALREADY_EXISTS.
 * @retval VX_ENTITY_ALREADY_EXISTS  nothing was made; RecordID is the first record of the entity that there
 *   is.
 * @retval VX_INVALID_LOWER_DIR_RECORD  the record was made, though PS3.3 section F.4 has no such record below
 *   that parent.
 * @retval VX_INVALID_DIR_RECORD_TYPE  the record was made, though its parent is of a type that can have none
 *   below.
 * @retval VX_INVALID_ITEM_ID  ParentRecordID is no record of the tree.
 * @retval VX_UNABLE_TO_GET_ITEM_ID  the parent lacks the reference to what lies below.
 * @retval VX_MSGFILE_ERROR  the template can not be read.
 * @retval VX_INVALID_VALUE_FOR_VR  the type in RecordName is no code string; VX_INVALID_CHARS_IN_VALUE where
 *   its characters are to blame.
 * @retval VX_SYSTEM_ERROR  no memory, or no number for the entity.
 */
VX_API VX_STATUS VX_Dir_Add_Entity(int32_t DirID, int32_t ParentRecordID, const char* RecordName,
                                   int32_t* EntityID, int32_t* RecordID);

/**
 * Appends a record to an entity, else as VX_Dir_Add_Entity.
 * @param DirID  directory in memory.
 * @param EntityID  entity of it.
 * @param RecordName  item name of the new record.
 * @param RecordID  [out] the record; 0 after a failure, but for the two statuses that leave the record.
 * @retval VX_INVALID_ENTITY_ID  the directory has no such entity.
 * @return Also the statuses of VX_Dir_Add_Entity but VX_ENTITY_ALREADY_EXISTS.
 */
VX_API VX_STATUS VX_Dir_Add_Record(int32_t DirID, int32_t EntityID, const char* RecordName,
                                   int32_t* RecordID);

/**
 * Deletes a record and all below, whose items are freed.
 * A multi-referenced file record goes with its last reference, an entity with its last record, unless it is
 * the root. An iterator that stands on the record goes back to the one in front; where there is none, in
 * front of all, in the root to the record behind.
 * @param DirID  directory in memory.
 * @param RecordID  record of its tree.
 * @retval VX_INVALID_ITEM_ID  RecordID is no record of the tree.
 * @retval VX_UNABLE_TO_GET_ITEM_ID  a chain of records is broken; where that is below the record, nothing was
 *   deleted.
 */
VX_API VX_STATUS VX_Dir_Delete_Record(int32_t DirID, int32_t RecordID);

/**
 * As VX_Dir_Delete_Record for all below a record, which stays itself.
 * @copydetails VX_Dir_Delete_Record
 */
VX_API VX_STATUS VX_Dir_Delete_Referenced_Entity(int32_t DirID, int32_t RecordID);

/**
 * Makes a multi-referenced file record, which stands outside the tree, and refers a record to it.
 * It goes with its last reference.
 * @param DirID  directory in memory.
 * @param RecordID  record of its tree, whose former reference is dropped.
 * @param RecordName  item name of the new record, as for VX_Dir_Add_Entity: "DIR_REC_MRDR".
 * @param MrdrID  [out] the new record's item; untouched after a failure.
 * @retval VX_INVALID_ITEM_ID  RecordID is no record of the tree.
 * @retval VX_MSGFILE_ERROR  the template can not be read.
 * @retval VX_INVALID_VALUE_FOR_VR  as for VX_Dir_Add_Entity, and so is VX_INVALID_CHARS_IN_VALUE.
 */
VX_API VX_STATUS VX_Dir_Open_MRDR(int32_t DirID, int32_t RecordID, const char* RecordName, int32_t* MrdrID);

/**
 * Refers a record to a multi-referenced file record that there is, in place of a former one.
 * @param DirID  directory in memory.
 * @param RecordID  record of its tree.
 * @param MrdrID  record of the directory outside the tree.
 * @retval VX_INVALID_MRDR_ID  MrdrID is none such.
 * @retval VX_INVALID_ITEM_ID  RecordID is no record of the tree.
 */
VX_API VX_STATUS VX_Dir_Reference_MRDR(int32_t DirID, int32_t RecordID, int32_t MrdrID);

/**
 * Drops a record's reference to a multi-referenced file record, if it has one.
 * @param DirID  directory in memory.
 * @param RecordID  record of its tree.
 * @retval VX_INVALID_ITEM_ID  RecordID is no record of the tree.
 */
VX_API VX_STATUS VX_Dir_Remove_Ref_MRDR(int32_t DirID, int32_t RecordID);

/**
 * Sorts each entity by record type, then by the attributes that tell records of the type apart.
 * These are names and ids of patients, dates and times of studies, instance numbers and the like; empty
 * values go last. (0004,1220) then has the records in the order of a walk, behind them the multi-referenced
 * file records; others that no chain reaches are dropped.
 * @param DirID  directory in memory.
 * @retval VX_UNABLE_TO_GET_ITEM_ID  there is no root, or a chain of records is broken; entities may be sorted
 *   in part.
 * @return Also the status of reading a value, which the log names.
 */
VX_API VX_STATUS VX_Dir_Sort(int32_t DirID);

/**
 * Packs the attributes of a record from (0004,1505) on into the bytes of their stream.
 * There they stay until one of them is asked for: a large directory takes less memory.
 * DICOMDIR_STREAM_STORAGE does the same while a directory is read.
 * @param DirID  directory in memory.
 * @param RecordID  record of it, in the tree or not.
 * @retval VX_INVALID_ITEM_ID  RecordID is no record of the directory.
 * @return Also the statuses of VX_Message_To_Stream where the attributes can not be encoded; they stay as
 *   they are.
 */
VX_API VX_STATUS VX_Dir_Stream_Directory_Record(int32_t DirID, int32_t RecordID);

/* ---- Directories on disk ------------------------------------------------------------------------------- */

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
 * Called for a record of a traversal, with the UserInfo of the call. It answers 0: go down into the record,
 * then on; 1: leave this level; 2: on without going down; 3: end the whole, with VX_NORMAL_COMPLETION;
 * anything else ends it with VX_CALLBACK_CANNOT_COMPLY. It may release, delete and add records, but neither
 * update nor free the directory.
 */
typedef int32_t (*VX_DDH_TRAVERSE_CALLBACK)(int32_t RecordID, void* UserInfo);

/**
 * Makes an empty directory on disk, in place of a former file of the name, and opens it.
 * @param FileName  path of the file.
 * @param FileSetID  value of (0004,1130), a code string of up to 16 characters; null or empty leaves it
 *   without one.
 * @param SourceID  file or directory whose groups 0002 and 0004 go into the new one but for records; 0 for
 *   none.
 * @param DirID  [out] the directory, which VX_Free_File frees; -1 after a failure.
 * @retval VX_INVALID_MESSAGE_ID  SourceID is no object.
 * @retval VX_CALLBACK_CANNOT_COMPLY  the file can not be written, or not opened again.
 * @retval VX_INVALID_VALUE_FOR_VR  FileSetID is no code string; VX_INVALID_CHARS_IN_VALUE where its
 *   characters are to blame. No file was made.
 * @return Also the statuses of VX_DDH_Open.
 */
VX_API VX_STATUS VX_DDH_Create(const char* FileName, const char* FileSetID, int32_t SourceID, int32_t* DirID);

/**
 * Opens a directory on disk and reads its first record.
 * An update that was cut off is undone first.
 * @param FileName  path of the file.
 * @param DirID  [out] the directory, which VX_Free_File frees; -1 after a failure.
 * @retval VX_CALLBACK_CANNOT_COMPLY  the file can not be opened.
 * @retval VX_INVALID_FILE  it is no directory, is in big endian, or an update that was cut off can not be
 *   undone.
 * @retval VX_INVALID_TRANSFER_SYNTAX  (0002,0010) names an unknown or a deflated one.
 * @retval VX_INVALID_DIRECTORY_RECORD_OFFSET  the offset of the first record leads nowhere.
 * @retval VX_UNEXPECTED_EOD  the file ends inside the first record.
 * @return Also the statuses of VX_Open_File for what stands ahead of the records.
 */
VX_API VX_STATUS VX_DDH_Open(const char* FileName, int32_t* DirID);

/**
 * Brings the file up to date: new records go to its end, offsets change in place.
 * It is whole or not done: after a failure the file is as it was and the changes wait for the next call.
 * @param DirID  directory on disk.
 * @retval VX_INVALID_DICOMDIR_ID  DirID is none such.
 * @retval VX_STATE_VIOLATION  called in a traversal of the directory.
 * @retval VX_CALLBACK_CANNOT_COMPLY  the file can not be written, or another program updates it.
 * @retval VX_INVALID_FILE  it has changed since it was opened, holds more than padding behind the records,
 *   lacks an offset that is to change, or the write failed; where that could not be undone either, the next
 *   VX_DDH_Open does it.
 * @retval VX_INVALID_DIRECTORY_RECORD_OFFSET  the end of the records can not be found.
 * @retval VX_VALUE_TOO_LARGE  the file would reach beyond 4 GiB.
 * @retval VX_SYSTEM_ERROR  no memory, or the item of a new record was freed.
 * @return Also the statuses of VX_Message_To_Stream for a new record that can not be encoded.
 */
VX_API VX_STATUS VX_DDH_Update(int32_t DirID);

/**
 * Adds a record at the end of a level; it is written by the next VX_DDH_Update.
 * The record has its type, (0004,1410) and references; the caller sets the other attributes.
 * @param ParentID  directory or record below which the level lies.
 * @param Type  text of (0004,1430), the SOP class UID of what the record refers to, or null for what stands
 *   at that depth: PATIENT, STUDY, SERIES, IMAGE, below that PRIVATE.
 * @param RecordID  [out] the record's item, the directory's; untouched after a failure.
 * @retval VX_INVALID_RECORD_ID  ParentID is no record or directory.
 * @retval VX_INVALID_LOWER_DIR_RECORD  such a record can not lie below the parent, or the class is unknown.
 * @retval VX_INVALID_DIR_RECORD_TYPE  nothing can lie below a record of the parent's type.
 * @retval VX_INVALID_VALUE_FOR_VR  Type is no code string; VX_INVALID_CHARS_IN_VALUE where its characters are
 *   to blame.
 * @return Also the other statuses of VX_DDH_Get_First_Lower_Record, as the rest of the level is looked
 *   through first.
 */
VX_API VX_STATUS VX_DDH_Add_Record(int32_t ParentID, const char* Type, int32_t* RecordID);

/**
 * Marks a record for removal at the next update and forgets what is below it.
 * Their ids are dead at once.
 * @param RecordID  record.
 * @retval VX_INVALID_RECORD_ID  RecordID is none.
 */
VX_API VX_STATUS VX_DDH_Delete_Record(int32_t RecordID);

/**
 * Lets a record and all below go from memory.
 * Their ids are dead; the records are read again when they are reached, and then have other ids. What waits
 * for an update stays, and nothing happens to a record that is not on file yet.
 * @param RecordID  record.
 * @retval VX_INVALID_RECORD_ID  RecordID is none.
 */
VX_API VX_STATUS VX_DDH_Release_Record(int32_t RecordID);

/**
 * Gives the first record below a record, or of the directory.
 * @param ParentID  directory or record.
 * @param RecordID  [out] the record's item, the directory's; 0 if there is none; untouched after a failure.
 * @retval VX_INVALID_RECORD_ID  ParentID is no record or directory.
 * @retval VX_INVALID_DIRECTORY_RECORD_OFFSET  an offset leads nowhere or back to where it came from, or
 *   levels are nested beyond 1024.
 * @retval VX_UNEXPECTED_EOD  the file ends inside a record.
 * @return Also the statuses of VX_Stream_To_Message for a record that can not be decoded.
 */
VX_API VX_STATUS VX_DDH_Get_First_Lower_Record(int32_t ParentID, int32_t* RecordID);

/**
 * Gives the next record of a level.
 * @param RecordID  record whose follower is asked for.
 * @param NextID  [out] that one's item, the directory's; 0 at the end of the level; untouched after a
 *   failure.
 * @retval VX_INVALID_RECORD_ID  RecordID is no record.
 * @return Also the other statuses of VX_DDH_Get_First_Lower_Record.
 */
VX_API VX_STATUS VX_DDH_Get_Next_Record(int32_t RecordID, int32_t* NextID);

/**
 * Gives the record above, which is read again if it was released.
 * @param RecordID  record.
 * @param ParentID  [out] the item of the one above, the directory's; 0 at the root and where it can not be
 *   read.
 * @retval VX_INVALID_RECORD_ID  RecordID is no record.
 * @return Also the other statuses of VX_DDH_Get_First_Lower_Record.
 */
VX_API VX_STATUS VX_DDH_Get_Parent_Record(int32_t RecordID, int32_t* ParentID);

/**
 * Tells the type of a record.
 * @param RecordID  record.
 * @param Type  [out] the type; VX_DIR_UNKNOWN for a text of (0004,1430) that has no number, for a record
 *   without one and after a failure.
 * @retval VX_INVALID_RECORD_ID  RecordID is no record.
 */
VX_API VX_STATUS VX_DDH_Get_Record_Type(int32_t RecordID, VX_DIR_RECORD_TYPE* Type);

/**
 * Calls back for each record below a record or of the whole directory, from the first one down.
 * @param StartID  directory or record, for which itself there is no call.
 * @param UserInfo  handed to Callback as it is; may be null.
 * @param Callback  called for each record; its answers are told with its type.
 * @retval VX_INVALID_RECORD_ID  StartID is no record or directory, or Callback freed the directory.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Callback gave an answer that is none.
 * @retval VX_INVALID_DIRECTORY_RECORD_OFFSET  an offset leads nowhere, or to a record on another way again.
 * @retval VX_UNEXPECTED_EOD  the file ends inside a record.
 * @return Also the statuses of VX_Stream_To_Message for a record that can not be decoded.
 */
VX_API VX_STATUS VX_DDH_Traverse_Records(int32_t StartID, void* UserInfo, VX_DDH_TRAVERSE_CALLBACK Callback);

/**
 * Copies attributes from one object to another, which gets them in place of its own.
 * From file to file these are all but group lengths, records and the attributes that lead to records, else
 * those from (0004,1421) on. What the source lacks is no failure.
 * @param SourceID  message, item, record or file.
 * @param DestID  message, item, record or file.
 * @param TagList  tags of what is copied, ended by 0; one with element 0000 stands for its group. Null: all.
 * @retval VX_INVALID_MESSAGE_ID  either is no object.
 * @retval VX_SYSTEM_ERROR  a value that a callback holds can not be read, or the copy can not be decoded.
 * @return Also the statuses of VX_Message_To_Stream where the attributes can not be encoded.
 */
VX_API VX_STATUS VX_DDH_Copy_Values(int32_t SourceID, int32_t DestID, const uint32_t* TagList);

#ifdef __cplusplus
}
#endif

#endif
