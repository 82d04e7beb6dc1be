#include "frame/state.h"
#include "text/listing.h"
#include "vexalkit.h"

void VX_List_Message(int32_t MsgID, const char* FileName) {
  if (vx::library_initialized()) vx::list_object_to(MsgID, FileName);
}

void VX_List_Item(int32_t ItemID, const char* FileName) {
  if (vx::library_initialized()) vx::list_object_to(ItemID, FileName);
}

void VX_List_File(int32_t FileID, const char* FileName) {
  if (vx::library_initialized()) vx::list_object_to(FileID, FileName);
}
