// The walk over the items of an encapsulated value: resumable at every byte, because pieces of a value end
// where they will.
#pragma once

#include <cstdint>

#include "pixel/encapsulated.h"

namespace vx {

// The pieces of a value, from memory or from the callback that holds it.
class ValueSource {
 public:
  ValueSource(MsgObj& object, TagObj& attribute) : object_(object), attribute_(attribute) {}
  ~ValueSource();
  ValueSource(const ValueSource&) = delete;
  ValueSource& operator=(const ValueSource&) = delete;
  // Bytes from `position` on, valid until the next call; none behind the end. `piece` and `piece_start`
  // remember the place in a chain. VX_CALLBACK_CANNOT_COMPLY.
  VX_STATUS at(uint32_t position, ValueObj*& piece, uint32_t& piece_start, const uint8_t*& data,
               uint32_t& size);
  // A piece that copy() may search from, where it is known.
  void begin_at(ValueObj* piece, uint32_t start) {
    piece_ = piece;
    piece_start_ = start;
  }
  // Copies n bytes; VX_ENCAPSULATED_TOO_SHORT if there are fewer.
  VX_STATUS copy(uint32_t position, uint32_t n, void* to);
  // Bytes of the whole value; kUndefinedLength if nobody knows.
  uint32_t length() const { return attribute_.Length; }

 private:
  VX_STATUS from_callback(uint32_t position, const uint8_t*& data, uint32_t& size);
  VX_STATUS from_file(uint32_t position, const uint8_t*& data, uint32_t& size);
  MsgObj& object_;
  TagObj& attribute_;
  bool first_ = true;
  ValueObj* piece_ = nullptr;  // of copy()
  uint32_t piece_start_ = 0;
  ValueObj* block_ = nullptr;  // owned: the block of a file that was read last
  int32_t block_number_ = 0;
  uint32_t block_start_ = 0;
};

// Where the data of the fragments goes. kOk goes on.
struct StripSink {
  VX_Get_Encapsulated_Callback callback;
  void* user;
  bool quiet = false;  // its refusal is not worth a line in the log
};

class Stripper {
 public:
  // `frame_mode`: one frame at a time is asked for. `decoder` may be null.
  Stripper(MsgObj& object, TagObj& attribute, OFFSET_TABLE_CONTEXT& context, StripSink sink, bool frame_mode,
           void* decoder);

  // A new frame starts at the context's position.
  void start_frame();
  // Walks until VX_END_OF_FRAME, VX_END_OF_DATA (behind the last frame), a failure, or kOk:
  // the value ended without telling. `emit`: the data goes to the sink.
  VX_STATUS walk(bool emit);

 private:
  VX_STATUS strip(const uint8_t* data, uint32_t size, uint32_t& used);
  VX_STATUS header_byte(uint8_t byte);
  VX_STATUS fragment_data(const uint8_t* data, uint32_t size);
  VX_STATUS misplaced(const char* state);
  VX_STATUS end_of_sequence();
  VX_STATUS end_of_fragment(bool& frame_ended);
  const OffsetTable* table() const;
  bool table_frame_size(uint64_t& size, bool& last) const;
  VX_STATUS decode(const uint8_t* data, uint32_t size, bool frame_ended);
  VX_STATUS call_decoder(const void* data, uint32_t size, bool last, const void*& out, uint32_t& out_size);
  VX_STATUS decoder_failed(const char* format, VX_STATUS status);
  VX_STATUS deliver(const void* data, uint32_t size, bool frame_ended, bool& complete);
  VX_STATUS complete_frame(bool told);
  VX_STATUS end_of_frame();
  void skip_to_next_frame();

  MsgObj& object_;
  TagObj& attribute_;
  OFFSET_TABLE_CONTEXT& c_;
  StripSink sink_;
  const bool frame_mode_;
  VX_COMPRESSION_CALLBACK decoder_;
  ValueSource source_;
  uint64_t frame_size_ = 0;
  uint32_t frames_ = 1;
  bool emit_ = true;
};

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
