// Part 10 files: a message with preamble, prefix and meta group (PS3.10 section 7).
#pragma once

#include <cstdint>
#include <string>

#include "model/object.h"

namespace vx {

VX_STATUS create_file(const char* file_name, const char* service, uint16_t command, MsgObj*& out);
VX_STATUS create_empty_file(const char* file_name, MsgObj*& out);
VX_STATUS message_to_file(MsgObj& object, const char* file_name);
VX_STATUS file_to_message(MsgObj& object);
VX_STATUS rename_file(MsgObj& object, const char* file_name);
// The length of the file as written without padding; kUndefinedLength if a value is of undefined length.
VX_STATUS file_length(MsgObj& object, uint64_t& length);
// The same as VX_Get_File_Length gives it.
VX_STATUS file_length(MsgObj& object, uint32_t& length);
// Empties the object, as VX_Empty_File. VX_INVALID_MESSAGE_ID unless it is a file.
VX_STATUS empty_file(MsgObj& object);

// What a read is asked for beyond the object.
struct FileRead {
  int32_t application_id = 0;
  void* user = nullptr;
  VX_FILE_INPUT callback = nullptr;
  uint32_t last_tag = 0xFFFFFFFFU;
  bool stop_at_tag = false;
  bool keep_values_out = false;
  uint32_t* offset = nullptr;  // may be null
};
VX_STATUS read_file(MsgObj& object, const FileRead& read);

// `application_id` 0: values that are bound already stay so, none is bound.
VX_STATUS write_file(MsgObj& object, int32_t application_id, int32_t pad, void* user,
                     VX_FILE_OUTPUT callback);

std::string generated_uid(const MsgObj& object, std::size_t most, std::size_t least);
// Fills the attributes of the meta group that have no value.
VX_STATUS fill_meta_group(MsgObj& object);

}  // namespace vx
