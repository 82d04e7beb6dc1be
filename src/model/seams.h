// The calls that go from the model up. Each is declared here and defined in the layer named; a weak one is
// null in a build that lacks its layer.
#pragma once

#include <cstdint>
#include <string_view>

#include "model/object.h"

namespace vx {

// codec: decodes the bytes of a UN value as implicit little endian into an attribute whose VR has been set.
VX_STATUS convert_from_un(MsgObj& object, TagObj& attribute, const void* bytes, uint32_t length);
// codec: the transfer syntax of an object as VX_Get_Message_Transfer_Syntax gives it.
VX_STATUS get_message_syntax(MsgObj& object, VX_TRANSFER_SYNTAX& syntax);
// codec: drops what a read that stopped before its end left behind.
void release_stream_resume(MsgObj& object);
// media: frees the FileInfo of a file or directory.
void free_file_info(MsgObj& object);
// text: lines at level T1 when an object is opened, freed or counted.
void trace_object(const MsgObj& object, bool created, bool freed);

// validate: the rule of a condition, empty for one that can not be judged; false if no condition has the
// name. The text lives as long as the library.
[[gnu::weak]] bool find_condition(std::string_view name, std::string_view& rule);
// pixel: state of an encapsulated value.
[[gnu::weak]] void release_encapsulation_state(MsgObj& object);
// media: directory records of an object whose service becomes, or no longer is, a directory. The second
// frees all that DirectoryInfo holds, or takes a record out of its directory, and leaves it null.
[[gnu::weak]] VX_STATUS create_directory_records(MsgObj& object);
[[gnu::weak]] void release_directory_records(MsgObj& object);
// media: gives a directory record without a name that of its type. A type that can be no name is passed over.
[[gnu::weak]] VX_STATUS name_record(MsgObj& record);
// sr: takes an object out of the report tree that it is part of, with all nodes below.
[[gnu::weak]] void release_report_node(MsgObj& object);
// codec, media: stream data that is not decoded yet, up to a tag.
[[gnu::weak]] VX_STATUS decode_deferred(MsgObj& object, uint32_t tag);

}  // namespace vx
