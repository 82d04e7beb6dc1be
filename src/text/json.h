// The JSON form of an object: the toolkit's own (numbers are strings, text is escaped as in XML) and the
// DICOM JSON Model (PS3.18 annex F).
#pragma once

#include "model/object.h"

namespace vx {

// The statuses of VX_Message_To_Json. Nothing reaches the callback unless the whole text could be made.
VX_STATUS object_to_json(MsgObj& object, int32_t options, void* user, VX_STREAM_OUTPUT callback);
// The statuses of VX_Json_To_Message. The input is consumed as the parser asks for it.
VX_STATUS json_to_object(MsgObj& object, int32_t options, void* user, VX_TEXT_INPUT callback);

}  // namespace vx
