// A directory on disk: records are read one by one when they are reached, new ones go to the end of the file,
// and what changes in old ones are four bytes of an offset.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/transfer_syntax.h"
#include "media/file_op.h"
#include "model/object.h"

namespace vx {

struct RecordNode;

// What a level of records hangs on: a directory or a record. Both start with this.
struct LevelHead {
  int32_t Kind;  // kDirectoryHandler or kDirectoryRecord
  RecordNode* FirstLower;
  RecordNode* LastLower;
  uint32_t LowerOffset;  // of the first record below, as on file; 0: none
  // Brent's search for a loop among the offsets of the level.
  uint32_t Tortoise;
  uint32_t Steps;
  uint32_t Limit;
  uint32_t Depth;  // of levels above
};

// A traversal under way: the callback may let go of what it stands on.
struct RecordWalk {
  std::vector<RecordNode*> path{};  // the record that was handed out stands last
  bool cut = false;                 // what stood behind the last is gone
  bool gone = false;                // so is the directory
  RecordWalk* outer = nullptr;
};

// What DirectoryInfo of a directory points to.
struct DirectoryHandler : LevelHead {
  MsgObj* Object;  // the directory, with what stands ahead of (0004,1220)
  FileOp* File;
  uint64_t SequenceLengthPosition;
  uint32_t SequenceLength;  // kUndefinedLength: undefined
  uint32_t AppendOffset;    // where the sequence ends; 0 until worked out
  uint32_t LastRecordOffset;
  bool HasLastOffset;  // the file has a value of (0004,1202)
  Encoding encoding;
  bool OffsetWarned;
  RecordWalk* Walks;
};

// A record that has been reached, or, as a gap, several that lie behind one another and were released.
struct RecordNode : LevelHead {
  MsgObj* Item;  // null while released; its DirectoryInfo points back
  LevelHead* Parent;
  RecordNode* Next;  // linked on demand
  RecordNode* Previous;
  uint32_t NextOffset;
  uint32_t Offset;  // of the item tag; 0: not on file yet
  uint32_t Count;   // of records; above 1 for a gap
  bool Deleted;
};

// --- Finding ---

// Null unless the object is a directory on disk.
DirectoryHandler* directory_handler(const MsgObj& object);
// The node of a record's item, or null.
RecordNode* record_node(const MsgObj& object);
DirectoryHandler& handler_of(LevelHead& head);

// --- Reading ---

// What a record tells of its place, without an item.
struct RecordLinks {
  uint32_t next = 0;
  uint32_t lower = 0;
  uint64_t next_position = 0;  // of the value of 4 bytes; 0: there is none
  uint64_t lower_position = 0;
  uint32_t length = 0;  // of the item
};
// Bytes in which records are looked at: the file, or what is going to be appended to it.
struct RecordBytes {
  FileOp* file;
  std::string_view appended;
  uint64_t appended_at;
};
VX_STATUS read_links(const DirectoryHandler& handler, const RecordBytes& bytes, uint32_t offset,
                     RecordLinks& links);
// Decodes the record at an offset into an item of its own. VX_INVALID_DIRECTORY_RECORD_OFFSET,
// VX_UNEXPECTED_EOD.
VX_STATUS read_record(DirectoryHandler& handler, uint32_t offset, MsgObj*& item);
// The position behind the last record of a sequence of undefined length.
VX_STATUS find_sequence_end(DirectoryHandler& handler, uint64_t& end);
// Where records may lie; behind the last one.
uint64_t records_end(const DirectoryHandler& handler);

// The first record of a level and the next one, with their items; null at the end.
VX_STATUS first_lower(LevelHead& head, RecordNode*& node);
VX_STATUS next_of(RecordNode& node, RecordNode*& next);
VX_STATUS load_item(RecordNode& node);
// Links all of a level, without items for what is not reached yet.
VX_STATUS link_level(LevelHead& head);
// Splits the last record off a gap; the node itself if it is none.
VX_STATUS last_of_gap(RecordNode& node, RecordNode*& last);
// Reads a file's attributes up to a tag; `offset` is the position behind them.
VX_STATUS read_up_to(FileOp& file, MsgObj& object, uint32_t last_tag, uint32_t& offset);
// An open directory whose attributes ahead of the records have been read.
VX_STATUS open_handler(const char* path, MsgObj*& directory);
VX_STATUS create_directory_file(const char* path, const char* file_set, int32_t source_id);

// --- Nodes ---

RecordNode* new_node(LevelHead& parent);
void append_node(RecordNode& node);
void attach_item(RecordNode& node, MsgObj& item);
void release_item(RecordNode& node);
// The nodes below go, with their items; what is not on file yet goes for good.
void release_below(LevelHead& head);
// The same, but changes that wait for an update stay.
void let_go(RecordNode& node);
void free_node(RecordNode* node);
// A node that was let go, and its neighbours like it, become one.
void merge_released(RecordNode& node);

// Frees what DirectoryInfo of a directory holds, and of a record's item that goes.
void release_handler(MsgObj& directory);
void forget_item(MsgObj& item);

// --- Changing ---

// Calls back for each record below, as VX_DDH_Traverse_Records.
VX_STATUS traverse(DirectoryHandler& handler, LevelHead& start, void* user,
                   VX_DDH_TRAVERSE_CALLBACK callback);
VX_STATUS add_record_node(LevelHead& parent, const char* type, RecordNode*& node);
VX_STATUS update_directory(DirectoryHandler& handler);
VX_STATUS copy_values(MsgObj& source, MsgObj& destination, const uint32_t* tag_list);

}  // namespace vx
