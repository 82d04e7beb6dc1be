// The walk over the items of an encapsulated value: resumable at every byte, because pieces of a value end
// where they will.
#pragma once

#include <cstdint>

#include "pixel/encapsulated.h"
#include "pixel/value_source.h"

namespace vx {

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

}  // namespace vx
