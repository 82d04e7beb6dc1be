// A directory in memory: the tree of entities over the items of (0004,1220). Where the file has offsets of
// records, the attributes that chain them hold item ids here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "codec/reader.h"
#include "codec/writer.h"
#include "model/object.h"
#include "model/seams.h"

namespace vx {

// The records at one place of the tree.
struct EntityObj {
  int32_t EntityID;
  int32_t ParentRecordID;   // 0: the root
  int32_t CurrentRecordID;  // iterator of VX_Dir_Next_Record; 0: before the first
  int32_t LastRecordID;
  int32_t RecordCount;
  EntityObj* NextInBucket;
};

inline constexpr std::size_t kEntityBuckets = 4096;

// What DirectoryInfo of a directory points to.
struct DirectoryState {
  int32_t Kind;  // kDirectoryInMemory
  EntityObj* Root;
  int32_t Count;                       // of the records in the tree
  int32_t HighEntityID;                // no entity has a higher id
  EntityObj* Buckets[kEntityBuckets];  // by the low bits of the id
};

namespace directory_tags {
inline constexpr uint32_t kFirst = 0x00041200U;
inline constexpr uint32_t kLast = 0x00041202U;
inline constexpr uint32_t kNext = 0x00041400U;
inline constexpr uint32_t kInUse = 0x00041410U;
inline constexpr uint32_t kLower = 0x00041420U;
inline constexpr uint32_t kType = 0x00041430U;
inline constexpr uint32_t kMrdr = 0x00041504U;
inline constexpr uint32_t kMrdrCount = 0x00041600U;
}  // namespace directory_tags

// --- Values of the chain ---

// VX_UNABLE_TO_GET_ITEM_ID if there is no such value of 4 bytes.
VX_STATUS get_reference(MsgObj& object, uint32_t tag, int32_t& value);
VX_STATUS set_reference(MsgObj& object, uint32_t tag, int32_t value);
// The type of a record without blanks at its end; empty if it has none.
std::string record_type(MsgObj& record);
// What a new record has: no references, in use, the type that its name tells.
VX_STATUS fill_new_record(MsgObj& record, std::string_view type);

// --- The tree ---

// Null unless the object is a directory with a tree.
DirectoryState* directory_state(MsgObj& object);
// The tree goes; the records are not touched.
void forget_tree(MsgObj& object);
// The record, if it is one of this directory; in its tree with `in_tree`. VX_INVALID_ITEM_ID.
VX_STATUS find_record(MsgObj& directory, int32_t id, bool in_tree, MsgObj*& record);
EntityObj* find_entity(DirectoryState& state, int32_t id);
// Null after a line in the log if there is no memory or no id.
EntityObj* new_entity(DirectoryState& state, int32_t parent_id);
void free_entity(DirectoryState& state, EntityObj* entity);
// The record's entity below, or null.
EntityObj* entity_below(MsgObj& directory, MsgObj& record);
// VX_UNABLE_TO_GET_ITEM_ID.
VX_STATUS first_record(MsgObj& directory, const EntityObj& entity, int32_t& id);
// The records of an entity in the order of their chain. VX_UNABLE_TO_GET_ITEM_ID: the chain is broken.
VX_STATUS records_of(MsgObj& directory, const EntityObj& entity, std::vector<MsgObj*>& records);

// A record as the walking functions hand it out.
struct RecordPlace {
  int32_t entity = 0;
  int32_t record = 0;  // 0: none
  const char* name = nullptr;
  bool last = true;
};
VX_STATUS root_entity(MsgObj& directory, RecordPlace& place);
VX_STATUS begin_entity(MsgObj& directory, int32_t entity_id, RecordPlace& place);
VX_STATUS next_record(MsgObj& directory, int32_t entity_id, RecordPlace& place);
VX_STATUS lower_entity(MsgObj& directory, int32_t record_id, RecordPlace& place);
VX_STATUS count_below(MsgObj& directory, int32_t record_id, int32_t& count);

// --- Changes ---

// Parent 0: the root, if it has no records yet.
VX_STATUS add_entity(MsgObj& directory, int32_t parent_id, const char* name, int32_t& entity_id,
                     int32_t& record_id);
VX_STATUS add_record(MsgObj& directory, int32_t entity_id, const char* name, int32_t& record_id);
VX_STATUS delete_record(MsgObj& directory, int32_t record_id);
VX_STATUS delete_lower_records(MsgObj& directory, int32_t record_id);
VX_STATUS open_mrdr(MsgObj& directory, int32_t record_id, const char* name, int32_t& mrdr_id);
VX_STATUS reference_mrdr(MsgObj& directory, int32_t record_id, int32_t mrdr_id);
VX_STATUS remove_mrdr_reference(MsgObj& directory, int32_t record_id);
VX_STATUS sort_directory(MsgObj& directory);
// The attribute that holds all records, or null: a file may have it with another VR.
TagObj* find_records(MsgObj& directory);
// The same; added if it is missing, without a null value.
VX_STATUS record_sequence(MsgObj& directory, TagObj*& sequence);

// --- Reading and writing ---

// Offsets into ids, then the tree. `complete`: the read did not fail; otherwise what can not be found is cut
// off in silence. VX_INVALID_DIRECTORY_RECORD_OFFSET; VX_SYSTEM_ERROR: a record is met twice. The tree holds
// what could be linked in any case.
VX_STATUS link_directory(MsgObj& directory, const std::vector<RecordOffset>& records, bool complete);
// Pairs of item id and offset in the file, as the encoder takes them. VX_VALUE_TOO_LARGE.
VX_STATUS record_offsets(MsgObj& directory, const StreamWriter& writer, std::vector<int32_t>& pairs);

}  // namespace vx
