#include <cstring>

#include "frame/app.h"
#include "frame/state.h"
#include "frame/text.h"
#include "media/file.h"
#include "media/handler.h"
#include "model/held.h"
#include "model/object.h"
#include "vexalkit.h"

namespace {

// The object of a file handle, or null.
vx::MsgObj* find_file(int32_t id) {
  vx::MsgObj* object = vx::find_object(id);
  return object != nullptr && vx::is_file(*object) ? object : nullptr;
}

// True while a function of the caller runs for the file, which then stays as it is.
bool is_held(const vx::MsgObj& object) {
  return vx::is_range_held(object, 0, 0xFFFFFFFFU);
}

// Null also for a directory on disk, which has functions of its own.
vx::MsgObj* find_whole_file(int32_t id) {
  vx::MsgObj* object = find_file(id);
  return object != nullptr && vx::directory_handler(*object) == nullptr ? object : nullptr;
}

VX_STATUS open_file(int32_t file_id, const vx::FileRead& read, bool plain_file_only = false) {
  if (vx::find_application(read.application_id) == nullptr) return VX_INVALID_APPLICATION_ID;
  vx::MsgObj* object = find_whole_file(file_id);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  if (plain_file_only && object->ObjectKind != vx::Kind::File) return VX_INVALID_FILE_ID;
  if (is_held(*object)) return VX_STATE_VIOLATION;
  return vx::read_file(*object, read);
}

}  // namespace

VX_STATUS VX_Create_File(int32_t* FileID, const char* FileName, const char* ServiceName, uint16_t Command) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(FileID);
  vx::end_parked_objects();
  VX_REQUIRE_POINTER(FileName);
  VX_REQUIRE_POINTER(ServiceName);
  vx::MsgObj* object = nullptr;
  const VX_STATUS status = vx::create_file(FileName, ServiceName, Command, object);
  *FileID = object != nullptr ? object->ID : -1;
  return status;
}

VX_STATUS VX_Create_Empty_File(int32_t* FileID, const char* FileName) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(FileID);
  vx::end_parked_objects();
  VX_REQUIRE_POINTER(FileName);
  vx::MsgObj* object = nullptr;
  const VX_STATUS status = vx::create_empty_file(FileName, object);
  *FileID = object != nullptr ? object->ID : -1;
  return status;
}

VX_STATUS VX_Message_To_File(int32_t MsgID, const char* FileName) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(FileName);
  vx::MsgObj* object = vx::find_object(MsgID);
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  if (is_held(*object)) return VX_STATE_VIOLATION;
  return vx::message_to_file(*object, FileName);
}

VX_STATUS VX_File_To_Message(int32_t FileID) {
  VX_REQUIRE_LIBRARY();
  vx::MsgObj* object = find_file(FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  if (is_held(*object)) return VX_STATE_VIOLATION;
  return vx::file_to_message(*object);
}

VX_STATUS VX_Free_File(int32_t* FileID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(FileID);
  vx::end_parked_objects();
  vx::MsgObj* object = vx::find_object(*FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  const VX_STATUS status = vx::free_object(*object, "VX_Free_File", VX_INVALID_FILE_ID);
  if (status == vx::kOk) *FileID = -1;
  return status;
}

VX_STATUS VX_Empty_File(int32_t FileID) {
  VX_REQUIRE_LIBRARY();
  vx::MsgObj* object = vx::find_object(FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  if (is_held(*object)) return VX_STATE_VIOLATION;
  return vx::empty_file(*object);
}

VX_STATUS VX_Get_Filename(int32_t FileID, char* FileName, int32_t BufferSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(FileName);
  vx::MsgObj* object = find_file(FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  const char* name = object->File->FileName;
  if (BufferSize < 1 || std::strlen(name) >= static_cast<std::size_t>(BufferSize)) return VX_BUFFER_TOO_SMALL;
  vx::copy_text(FileName, static_cast<std::size_t>(BufferSize), name);
  return vx::kOk;
}

VX_STATUS VX_Reset_Filename(int32_t FileID, const char* FileName) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(FileName);
  vx::MsgObj* object = find_file(FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  if (is_held(*object)) return VX_STATE_VIOLATION;
  return vx::rename_file(*object, FileName);
}

VX_STATUS VX_Get_File_Preamble(int32_t FileID, char* Preamble) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Preamble);
  vx::MsgObj* object = find_file(FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  std::memcpy(Preamble, object->File->Preamble, sizeof object->File->Preamble);
  return vx::kOk;
}

VX_STATUS VX_Set_File_Preamble(int32_t FileID, const char* Preamble) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Preamble);
  vx::MsgObj* object = find_file(FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  std::memcpy(object->File->Preamble, Preamble, sizeof object->File->Preamble);
  return vx::kOk;
}

VX_STATUS VX_Get_File_Length(int32_t FileID, uint32_t* Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Length);
  vx::MsgObj* object = find_file(FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  return vx::file_length(*object, *Length);
}

VX_STATUS VX_Open_File(int32_t ApplicationID, int32_t FileID, void* UserInfo, VX_FILE_INPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  return open_file(FileID, {.application_id = ApplicationID, .user = UserInfo, .callback = Callback});
}

VX_STATUS VX_Open_File_Bypass_OBOW(int32_t ApplicationID, int32_t FileID, void* UserInfo,
                                   VX_FILE_INPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  return open_file(
      FileID,
      {.application_id = ApplicationID, .user = UserInfo, .callback = Callback, .keep_values_out = true});
}

VX_STATUS VX_Open_File_Upto_Tag(int32_t ApplicationID, int32_t FileID, void* UserInfo, uint32_t Tag,
                                uint32_t* Offset, VX_FILE_INPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Offset);
  VX_REQUIRE_POINTER(Callback);
  return open_file(FileID, {.application_id = ApplicationID,
                            .user = UserInfo,
                            .callback = Callback,
                            .last_tag = Tag,
                            .offset = Offset});
}

VX_STATUS VX_Open_File_Upto_Tag_Bypass_Value(int32_t ApplicationID, int32_t FileID, void* UserInfo,
                                             uint32_t Tag, uint32_t* Offset, VX_FILE_INPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Offset);
  VX_REQUIRE_POINTER(Callback);
  return open_file(FileID,
                   {.application_id = ApplicationID,
                    .user = UserInfo,
                    .callback = Callback,
                    .last_tag = Tag,
                    .stop_at_tag = true,
                    .offset = Offset},
                   true);
}

VX_STATUS VX_Write_File(int32_t FileID, int32_t Pad, void* UserInfo, VX_FILE_OUTPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  vx::MsgObj* object = find_whole_file(FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  return vx::write_file(*object, 0, Pad, UserInfo, Callback);
}

VX_STATUS VX_Write_File_By_Callback(int32_t ApplicationID, int32_t FileID, int32_t Pad, void* UserInfo,
                                    VX_FILE_OUTPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  if (vx::find_application(ApplicationID) == nullptr) return VX_INVALID_APPLICATION_ID;
  vx::MsgObj* object = find_whole_file(FileID);
  if (object == nullptr) return VX_INVALID_FILE_ID;
  return vx::write_file(*object, ApplicationID, Pad, UserInfo, Callback);
}
