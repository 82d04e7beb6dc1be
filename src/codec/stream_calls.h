// The exported stream functions, their arguments checked.
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

VX_STATUS message_to_stream(MsgObj& object, uint32_t first, uint32_t last, VX_TRANSFER_SYNTAX syntax,
                            void* user, VX_STREAM_OUTPUT callback);
// `offset` may be null. VX_VALUE_TOO_LARGE if it is wanted and 32 bits do not hold it.
VX_STATUS stream_to_message(MsgObj& object, uint32_t first, uint32_t last, VX_TRANSFER_SYNTAX syntax,
                            uint32_t& error_tag, uint32_t* offset, void* user, VX_STREAM_INPUT callback);
VX_STATUS stream_length(MsgObj& object, uint32_t first, uint32_t last, VX_TRANSFER_SYNTAX syntax,
                        uint32_t& length);

// Whether sequences of an object are written with undefined lengths where the configuration decides.
bool undefined_lengths_of(const MsgObj& object);
// An offset of the stream for an interface of 32 bits: VX_VALUE_TOO_LARGE, unless `status` is a failure
// already.
VX_STATUS narrow_offset(uint64_t offset, VX_STATUS status, uint32_t& narrow);

}  // namespace vx
