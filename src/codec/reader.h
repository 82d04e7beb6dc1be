// The decoder: fills an object from a stream.
#pragma once

#include <cstdint>
#include <vector>

#include "codec/decode_rest.h"
#include "config/transfer_syntax.h"
#include "model/object.h"

namespace vx {

using ConnectionInput = VX_STATUS (*)(int32_t connection, void* user, uint32_t* size, void** data,
                                      int32_t first, int32_t* last);

// Where the records of a directory were read.
struct RecordOffset {
  uint64_t offset;  // of the item tag
  MsgObj* record;
};
struct DirectoryRead {
  bool save_records = false;  // what a record holds beside its references stays undecoded
  bool met = false;           // the sequence has been read
  std::vector<RecordOffset> records{};
};
inline constexpr uint32_t kDirectoryRecords = 0x00041220U;
inline constexpr uint32_t kFirstRecordKey = 0x00041505U;  // the first tag behind a record's references

// What one decode is asked for and what it tells.
struct ReadRequest {
  VX_STREAM_INPUT MessageInput = nullptr;  // the first of the three that is set is used
  VX_FILE_INPUT FileInput = nullptr;
  ConnectionInput NetworkInput = nullptr;
  int32_t ObjectID = -1;  // for MessageInput; set by decode_object
  int32_t ConnectionID = -1;
  const char* FileName = nullptr;
  void* UserInfo = nullptr;
  int32_t ApplicationID = 0;
  Encoding encoding{};
  uint32_t StartTag = 0;
  uint32_t EndTag = 0xFFFFFFFFU;
  bool StopAtEnd = false;
  bool KeepValuesOut = false;
  bool Deflate = false;
  bool BeforeDeflate = false;
  bool LogFailure = false;
  // For a reader that stops and goes on: where a former decode stopped, or null; afterwards where this one
  // stopped before a tag above EndTag, or null if it came to the end.
  DecodeRest** Rest = nullptr;
  bool OpenItem =
      false;  // the stream is the content of an item of undefined length, and ends with its delimiter
  DirectoryRead* Directory = nullptr;  // of a directory; may be null

  uint32_t ErrorTag = 0;    // out
  uint64_t StopOffset = 0;  // out
};
// Decodes into the object, whose lock is held throughout. Files start with preamble and prefix. The statuses
// of VX_Stream_To_Message.
VX_STATUS decode_object(MsgObj& object, ReadRequest& request);

// True for the syntaxes whose data set is compressed as a whole.
constexpr bool is_deflated(VX_TRANSFER_SYNTAX syntax) {
  return syntax == DEFLATED_EXPLICIT_LITTLE_ENDIAN || syntax == JPIP_REFERENCED_DEFLATE ||
         syntax == JPIP_HTJ2K_REFERENCED_DEFLATE;
}
// The first tag from which a stream that is asked to be deflated is: what comes before stays plain.
inline constexpr uint32_t kFirstDeflatedTag = 0x00040000U;

}  // namespace vx
