// The encoder: one walk turns an object into a stream.
#pragma once

#include <cstdint>

#include "config/transfer_syntax.h"
#include "model/object.h"

namespace vx {

enum class Destination { Media = 0, Stream = 1, Network = 2 };

using ConnectionOutput = VX_STATUS (*)(int32_t connection, void* user, uint32_t size, void* data,
                                       int32_t first, int32_t last);
using RawOutput = VX_STATUS (*)(void* user, uint32_t follows, uint32_t size, void* data, int32_t first,
                                int32_t last);

// What one encode is asked for.
struct StreamWriter {
  int32_t MsgID = -1;
  Destination destination = Destination::Stream;
  VX_STREAM_OUTPUT MessageCallback = nullptr;  // the first of the four that is set is used
  VX_FILE_OUTPUT FileCallback = nullptr;
  ConnectionOutput ConnectionCallback = nullptr;
  RawOutput RawCallback = nullptr;
  int32_t ConnectionID = -1;
  const char* FileName = nullptr;
  void* UserInfo = nullptr;
  int32_t ApplicationID = 0;  // whose value callbacks apply; 0 for none
  Encoding encoding{};        // in force at the start
  Encoding next{};            // of the data set, with MetaPending
  bool MetaPending = false;   // the meta group of a file comes first
  bool Deflate = false;
  bool BeforeDeflate = false;  // deflate begins with the first attribute from kFirstDeflatedTag on
  bool UndefinedLengths = false;
  bool NoGroupLengths = false;
  bool KeepGroupLengths = false;         // what they count follows in part from elsewhere
  const uint32_t* TagList = nullptr;     // zero-ended
  const int32_t* OffsetTable = nullptr;  // pairs of item id and file offset
  uint32_t OffsetCount = 0;
};

// Walks the object from first to last tag and ends with the last flush. The statuses of VX_Message_To_Stream.
VX_STATUS encode_object(const StreamWriter& writer, MsgObj& object, uint32_t first, uint32_t last);

// --- lengths: the same rules without output ---

struct LengthQuery {
  Encoding encoding{};
  Destination destination = Destination::Stream;
  bool undefined_lengths = false;
  int32_t application_id = 0;
};
// Bytes of the attributes from first to last; kUndefinedLength if one is undefined. 64 bits, for the caller
// to judge.
VX_STATUS run_length(MsgObj& object, uint32_t first, uint32_t last, const LengthQuery& query,
                     uint64_t& length);

}  // namespace vx
