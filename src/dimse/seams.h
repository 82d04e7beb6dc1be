// The calls that go from the network to its neighbours. A weak one is null in a build that lacks its layer.
#pragma once

#include <cstdint>
#include <cstdio>

#include "model/object.h"

namespace vx {

// text: lists an object at level T2 when the stream is null.
[[gnu::weak]] void list_object(int32_t id, std::FILE* stream);

// media: files and messages become each other.
VX_STATUS create_empty_file(const char* file_name, MsgObj*& out);
VX_STATUS message_to_file(MsgObj& object, const char* file_name);
VX_STATUS file_to_message(MsgObj& object);
// media: reads up to a tag, and tells at which offset it stopped.
VX_STATUS read_file_up_to(MsgObj& object, int32_t application_id, uint32_t last_tag, void* user,
                          VX_FILE_INPUT callback, uint32_t& offset);

}  // namespace vx
