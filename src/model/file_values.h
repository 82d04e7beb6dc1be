// Large values on temporary files: blocks of a length word and data, and an index of them in memory.
//
// An attribute with Stored::InFile has no value chain; Length and ValueCount keep their meaning, each block
// counting as one value. File 0 holds the item of an offset table, which may be replaced at any time; file 1
// the data; file 2 takes over before file 1 reaches 2 GiB. All calls need the object's lock.
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

// Bytes of one file, just below 2 GiB. Tests lower it, so that the second file is reached.
extern int64_t file_limit;
// True if a value whose first piece has `length` bytes belongs on files.
bool goes_to_file(const MsgObj& object, const TagObj& attribute, uint64_t length);
// An empty attribute takes Stored::InFile; no file exists before the first write. VX_SYSTEM_ERROR.
VX_STATUS begin_file_value(MsgObj& object, TagObj& attribute);
// Adds bytes at the end. A text is one block for each value; bulk data comes in blocks of OBOW_BUFFER_SIZE.
// `first`: what was there goes. `last`: the files are closed. A failure has cleared the value.
// VX_TEMP_FILE_ERROR, VX_SYSTEM_ERROR, VX_VALUE_TOO_LARGE.
VX_STATUS append_to_file(MsgObj& object, TagObj& attribute, const void* data, uint32_t length, bool first,
                         bool last);
// Replaces the first block by one on file 0. Without `keep` all other blocks and their files go.
VX_STATUS set_first_in_file(MsgObj& object, TagObj& attribute, const void* data, uint32_t length, bool keep);
// The length of the one fragment of a video, in the header behind the first block.
VX_STATUS patch_fragment_length(TagObj& attribute, uint32_t length);
// A block (from 1) as a new piece, which the caller frees. VX_NO_MORE_VALUES, VX_TEMP_FILE_ERROR,
// VX_EMPTY_VALUE, VX_SYSTEM_ERROR.
VX_STATUS read_file_block(const TagObj& attribute, int32_t number, ValueObj*& piece);
// The same, owned by the attribute and good until its next use.
VX_STATUS view_file_block(const TagObj& attribute, int32_t number, const ValueObj*& piece);
// One value without data at the end.
VX_STATUS append_null_to_file(TagObj& attribute);
// The bytes of a block without reading it; 0 past the end.
uint32_t file_block_length(const TagObj& attribute, int32_t number);
// The value without one block; what remains is written anew. VX_NO_MORE_VALUES.
VX_STATUS delete_file_block(MsgObj& object, TagObj& attribute, int32_t number);
// The value returns to memory.
VX_STATUS load_file_value(MsgObj& object, TagObj& attribute);
// Closes and removes the files.
void release_file_value(TagObj& attribute);
void release_all_file_values();

// The pieces of a value in order, in memory or on files; a piece is good until the next one is taken.
class PieceWalk {
 public:
  explicit PieceWalk(const TagObj& attribute) : attribute_(attribute), next_(attribute.FirstValue) {}
  ~PieceWalk();
  PieceWalk(const PieceWalk&) = delete;
  PieceWalk& operator=(const PieceWalk&) = delete;
  const ValueObj* next();  // null at the end, and when status() tells a failure
  bool more() const;
  VX_STATUS status() const { return status_; }

 private:
  const TagObj& attribute_;
  const ValueObj* next_;
  ValueObj* read_ = nullptr;
  int32_t number_ = 0;
  VX_STATUS status_ = kOk;
};

}  // namespace vx
