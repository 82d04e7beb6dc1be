// Where the frames of an encapsulated value begin: its table, whether that can be believed, and what takes
// its place.
#pragma once

#include <cstdint>

#include "pixel/encapsulated.h"

namespace vx {

// Gives the decompressor its release call, if it waits for one.
VX_STATUS release_decoder(MsgObj& object, OFFSET_TABLE_CONTEXT& context);
// The table that frames are found by: the value's own, or one that was made by walking it and is complete.
// Null if there is none.
const OffsetTable* table_in_use(const OFFSET_TABLE_CONTEXT& context, uint32_t frames);
// Where the value has no table and as many fragments as frames, each fragment is a frame; where it has more,
// a frame begins with a code stream. The auxiliary table is made from them.
VX_STATUS find_fragments(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context);
// Passes over a table that does not fit the fragments of a frame, before any of them is delivered.
VX_STATUS settle_table(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context, uint32_t frame);
// Reads the head of the value into the context, and judges its table. VX_ENCAPSULATED_TOO_SHORT,
// VX_MISSING_DELIMITER, VX_SYSTEM_ERROR.
VX_STATUS read_head(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context);

}  // namespace vx
