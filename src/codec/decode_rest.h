// What a decode that stopped before a tag goes on from. All of it lies in the pools.
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "model/object.h"

namespace vx {

struct DecodeRest {
  uint32_t NextTag;   // the tag that the decode stopped before
  uint32_t LastTag;   // the last one that was decoded
  uint8_t ContextId;  // the reader's, of the network
  bool Started;       // bytes of the stream have been taken
  bool InputEnded;    // the last block has been taken
  uint8_t* Plain;     // owned; the next bytes of the stream, inflated if it is deflated
  std::size_t PlainLength;
  z_stream* Zlib;  // owned; of a deflated stream
  uint8_t* Raw;    // owned; deflated bytes that wait for it
  std::size_t RawLength;
  bool OutputFull;
  bool StreamEnded;
  VX_STATUS InflateStatus;
  uint8_t* Creators;  // owned; the private blocks so far
  std::size_t CreatorsLength;
};
static_assert(std::is_trivially_destructible_v<DecodeRest>);

DecodeRest* new_decode_rest();
// Null is fine.
void free_decode_rest(DecodeRest* rest);

}  // namespace vx
