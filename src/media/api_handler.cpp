#include "frame/no_throw.h"
#include "frame/state.h"
#include "media/directory.h"
#include "media/handler.h"
#include "media/record_types.h"
#include "vexalkit.h"

namespace {

using vx::DirectoryHandler;
using vx::LevelHead;
using vx::RecordNode;

// Calls with the directory of a record, locked. VX_INVALID_RECORD_ID.
template <typename Call>
VX_STATUS with_record(int32_t id, Call&& call) {
  const vx::MsgObj* item = vx::find_object(id);
  if (item == nullptr || vx::record_node(*item) == nullptr) return VX_INVALID_RECORD_ID;
  vx::MsgObj* directory = vx::find_object(item->ParentID);
  if (directory == nullptr || vx::directory_handler(*directory) == nullptr) return VX_INVALID_RECORD_ID;
  const vx::Guard lock(directory->Semaphore);
  // It may have gone while the lock was waited for.
  item = vx::find_object(id);
  RecordNode* node = item != nullptr ? vx::record_node(*item) : nullptr;
  if (node == nullptr) return VX_INVALID_RECORD_ID;
  return vx::no_throw([&] { return call(*vx::directory_handler(*directory), *node); });
}

template <typename Call>
VX_STATUS with_directory(int32_t id, VX_STATUS bad_id, Call&& call) {
  vx::MsgObj* directory = vx::find_object(id);
  if (directory == nullptr) return bad_id;
  const vx::Guard lock(directory->Semaphore);
  DirectoryHandler* handler = vx::directory_handler(*directory);
  if (handler == nullptr) return bad_id;
  return vx::no_throw([&] { return call(*handler); });
}

// Calls for a record or a directory.
template <typename Call>
VX_STATUS with_level(int32_t id, Call&& call) {
  const vx::MsgObj* object = vx::find_object(id);
  if (object != nullptr && vx::directory_handler(*object) != nullptr) {
    return with_directory(id, VX_INVALID_RECORD_ID, [&](DirectoryHandler& handler) {
      return call(handler, static_cast<LevelHead&>(handler));
    });
  }
  return with_record(id, [&](DirectoryHandler& handler, RecordNode& node) {
    return call(handler, static_cast<LevelHead&>(node));
  });
}

VX_STATUS tell(VX_STATUS status, const RecordNode* node, int32_t& id) {
  if (status == vx::kOk) id = node != nullptr ? node->Item->ID : 0;
  return status;
}

}  // namespace

VX_STATUS VX_DDH_Open(const char* FileName, int32_t* DirID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(FileName);
  VX_REQUIRE_POINTER(DirID);
  *DirID = -1;
  return vx::no_throw([&] {
    vx::MsgObj* directory = nullptr;
    const VX_STATUS status = vx::open_handler(FileName, directory);
    if (status == vx::kOk) *DirID = directory->ID;
    return status;
  });
}

VX_STATUS VX_DDH_Create(const char* FileName, const char* FileSetID, int32_t SourceID, int32_t* DirID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(FileName);
  VX_REQUIRE_POINTER(DirID);
  *DirID = -1;
  const VX_STATUS status =
      vx::no_throw([&] { return vx::create_directory_file(FileName, FileSetID, SourceID); });
  return status == vx::kOk ? VX_DDH_Open(FileName, DirID) : status;
}

VX_STATUS VX_DDH_Update(int32_t DirID) {
  VX_REQUIRE_LIBRARY();
  return with_directory(DirID, VX_INVALID_DICOMDIR_ID, vx::update_directory);
}

VX_STATUS VX_DDH_Add_Record(int32_t ParentID, const char* Type, int32_t* RecordID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RecordID);
  return with_level(ParentID, [&](DirectoryHandler&, LevelHead& parent) {
    RecordNode* node = nullptr;
    const VX_STATUS status = vx::add_record_node(parent, Type, node);
    return tell(status, node, *RecordID);
  });
}

VX_STATUS VX_DDH_Delete_Record(int32_t RecordID) {
  VX_REQUIRE_LIBRARY();
  return with_record(RecordID, [](DirectoryHandler&, RecordNode& node) -> VX_STATUS {
    node.Deleted = true;
    vx::release_below(node);
    vx::release_item(node);
    return vx::kOk;
  });
}

VX_STATUS VX_DDH_Release_Record(int32_t RecordID) {
  VX_REQUIRE_LIBRARY();
  return with_record(RecordID, [](DirectoryHandler& handler, RecordNode& node) -> VX_STATUS {
    if (node.Offset == 0) return vx::kOk;
    vx::let_go(node);
    if (handler.Walks == nullptr) vx::merge_released(node);
    return vx::kOk;
  });
}

VX_STATUS VX_DDH_Get_First_Lower_Record(int32_t ParentID, int32_t* RecordID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RecordID);
  return with_level(ParentID, [&](DirectoryHandler&, LevelHead& parent) {
    RecordNode* node = nullptr;
    const VX_STATUS status = vx::first_lower(parent, node);
    return tell(status, node, *RecordID);
  });
}

VX_STATUS VX_DDH_Get_Next_Record(int32_t RecordID, int32_t* NextID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(NextID);
  return with_record(RecordID, [&](DirectoryHandler&, RecordNode& node) {
    RecordNode* next = nullptr;
    const VX_STATUS status = vx::next_of(node, next);
    return tell(status, next, *NextID);
  });
}

VX_STATUS VX_DDH_Get_Parent_Record(int32_t RecordID, int32_t* ParentID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ParentID);
  return with_record(RecordID, [&](DirectoryHandler& handler, RecordNode& node) -> VX_STATUS {
    *ParentID = 0;
    if (node.Parent == &handler) return vx::kOk;
    auto& parent = static_cast<RecordNode&>(*node.Parent);
    return tell(vx::load_item(parent), &parent, *ParentID);
  });
}

VX_STATUS VX_DDH_Get_Record_Type(int32_t RecordID, VX_DIR_RECORD_TYPE* Type) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Type);
  *Type = VX_DIR_UNKNOWN;
  return with_record(RecordID, [&](DirectoryHandler&, RecordNode& node) -> VX_STATUS {
    *Type = static_cast<VX_DIR_RECORD_TYPE>(vx::record_type_code(vx::record_type(*node.Item)));
    return vx::kOk;
  });
}

VX_STATUS VX_DDH_Traverse_Records(int32_t StartID, void* UserInfo, VX_DDH_TRAVERSE_CALLBACK Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  return with_level(StartID, [&](DirectoryHandler& handler, LevelHead& start) {
    return vx::traverse(handler, start, UserInfo, Callback);
  });
}

VX_STATUS VX_DDH_Copy_Values(int32_t SourceID, int32_t DestID, const uint32_t* TagList) {
  VX_REQUIRE_LIBRARY();
  vx::MsgObj* source = vx::find_object(SourceID);
  vx::MsgObj* destination = vx::find_object(DestID);
  if (source == nullptr || destination == nullptr) return VX_INVALID_MESSAGE_ID;
  return vx::no_throw([&] { return vx::copy_values(*source, *destination, TagList); });
}
