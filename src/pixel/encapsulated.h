// Encapsulated values (PS3.5 section A.4): built frame by frame and taken apart again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "model/object.h"
#include "model/values.h"

namespace vx {

inline constexpr uint32_t kItemHeader = 8;

// An offset table: what the item says, then the entries in the machine's order.
struct OffsetTable {
  uint32_t Tag;
  uint32_t Length;      // bytes of entries
  uint32_t Entries[3];  // and as many more as Length says

  uint32_t count() const { return Length / 4; }
  uint32_t entry(uint32_t index) const {
    uint32_t value;
    std::memcpy(&value, reinterpret_cast<const uint8_t*>(Entries) + 4 * std::size_t{index}, sizeof value);
    return value;
  }
};

// Where the walk over the items of a value stands; a header may be cut anywhere.
enum StripState : int {
  VXI_SEGMENT_WAITING_DELIMITER = 3,
  VXI_SEGMENT_WAITING_DELIMITER_1,
  VXI_SEGMENT_WAITING_DELIMITER_2,
  VXI_SEGMENT_WAITING_DELIMITER_3,
  VXI_SEGMENT_WAITING_LENGTH_0,
  VXI_SEGMENT_WAITING_LENGTH_1,
  VXI_SEGMENT_WAITING_LENGTH_2,
  VXI_SEGMENT_WAITING_LENGTH_3,
  VXI_SEGMENT_WAITING_DATA = 12
};

// State of the encapsulated value of an object, which owns it.
struct OFFSET_TABLE_CONTEXT {
  OffsetTable* MainTable;       // as read, or as it is being built
  OffsetTable* AuxiliaryTable;  // offsets found by walking a value whose own table is empty
  uint32_t TableRoom;           // bytes of entries that MainTable has room for
  uint32_t AuxiliaryRoom;
  uint32_t HeadBytes;         // the table's item in the value; 0: not read yet
  uint32_t FrameBytes;        // walked since the start of the frame, or written behind the table
  uint32_t FrameIndex;        // entry of the frame at hand
  uint32_t SegmentRemaining;  // bytes to come of the fragment
  uint32_t Position;          // next byte of the value
  int State;
  bool LastFrame;         // the value was read to its end
  bool ToRgb;             // a YBR_FULL_422 image is wanted as RGB
  bool TableUsable;       // MainTable fits the image and the value
  bool ExpectMoreFrames;  // a frame ended without a table; the next item shows whether there is another
  ValueObj* Piece;        // the piece of the value that Position lies in, and where it starts
  uint32_t PieceStart;

  // The frame at hand.
  uint64_t DeliveredBytes;  // given to the application
  void* Decoder;            // the decompressor's own state
  bool Decoding;            // it was called and waits for its release
  bool DecoderTold;         // that the frame ended
};

OFFSET_TABLE_CONTEXT* encapsulation(MsgObj& object);
// A fresh one in place of what there is; the auxiliary table is kept if `keep_auxiliary`. Null without
// memory.
OFFSET_TABLE_CONTEXT* new_encapsulation(MsgObj& object, bool keep_auxiliary);
// Adds an entry to a table that grows by doubling.
bool append_offset(OffsetTable*& table, uint32_t& room, uint32_t offset);

// The exported functions behind their first checks.
VX_STATUS set_encapsulated(MsgObj& object, TagObj& attribute, void* user,
                           VX_Set_Encapsulated_Callback callback, bool first_frame);
VX_STATUS close_encapsulated(MsgObj& object, TagObj& attribute);
VX_STATUS get_encapsulated(MsgObj& object, TagObj& attribute, void* user,
                           VX_Get_Encapsulated_Callback callback, bool next);
VX_STATUS get_frame(MsgObj& object, TagObj& attribute, int32_t frame, void* user,
                    VX_Get_Encapsulated_Callback callback);
VX_STATUS get_offset_table(MsgObj& object, TagObj& attribute, void* user,
                           VX_Get_Encapsulated_Callback callback);

// Stores one fragment item behind what the value holds; `first_of_value` and `first_of_frame` keep the table.
struct FragmentPlace {
  bool first_of_value;
  bool first_of_frame;
};
VX_STATUS store_fragment(MsgObj& object, TagObj& attribute, const void* data, uint32_t size,
                         FragmentPlace place);

}  // namespace vx
