// Exported functions of the report tree.
#include <algorithm>
#include <cstring>

#include "frame/no_throw.h"
#include "frame/state.h"
#include "sr/tree.h"
#include "vexalkit.h"

using namespace vx;

namespace {

using ChildStep = SrRecObj* (*)(SrRecObj& node, bool& last);

VX_STATUS walk_children(int32_t id, int32_t* child, int32_t* is_last, VX_STATUS bad_id, ChildStep step) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(child);
  VX_REQUIRE_POINTER(is_last);
  const Guard lock(tree_lock());
  SrRecObj* node = find_node(id);
  if (node == nullptr) return bad_id;
  bool last = true;
  const SrRecObj* found = step(*node, last);
  *child = found != nullptr ? found->Object->ID : 0;
  *is_last = last ? 1 : 0;
  return kOk;
}

MsgObj* find_message(int32_t id) {
  MsgObj* object = id < 1 ? nullptr : find_object(id);
  return object != nullptr && object->ObjectKind == Kind::Message ? object : nullptr;
}

void drop_tree(SrRecObj& root) {
  MsgObj& message = *root.Object;
  drop_children(root);
  release_node(root);
  message.ObjectKind = Kind::Message;
}

}  // namespace

VX_STATUS VX_SR_Add_Root(int32_t MsgID, int32_t* RootID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RootID);
  const Guard lock(tree_lock());
  MsgObj* message = find_message(MsgID);
  if (message == nullptr) return VX_INVALID_MESSAGE_ID;
  const VX_STATUS status = add_root(*message);
  if (status == kOk) *RootID = MsgID;
  return status;
}

VX_STATUS VX_SR_Add_Child(int32_t ParentID, int32_t ChildID) {
  VX_REQUIRE_LIBRARY();
  const Guard lock(tree_lock());
  return no_throw([&] { return add_child(ParentID, ChildID, true); });
}

VX_STATUS VX_SR_Get_Root(int32_t NodeID, int32_t* RootID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RootID);
  const Guard lock(tree_lock());
  SrRecObj* node = find_node(NodeID);
  if (node == nullptr) return VX_INVALID_SR_ID;
  SrRecObj& root = root_of(*node);
  root.ChildCursor = root.FirstChild;
  *RootID = root.Object->ID;
  return kOk;
}

VX_STATUS VX_SR_Get_First_Child(int32_t NodeID, int32_t* ChildID, int32_t* IsLast) {
  return walk_children(NodeID, ChildID, IsLast, VX_INVALID_SR_ID, first_child);
}

VX_STATUS VX_SR_Get_Next_Child(int32_t NodeID, int32_t* ChildID, int32_t* IsLast) {
  return walk_children(NodeID, ChildID, IsLast, VX_INVALID_MESSAGE_ID, next_child);
}

VX_STATUS VX_SR_Get_Child_Count(int32_t NodeID, int32_t* Count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  const Guard lock(tree_lock());
  const MsgObj* object = find_object(NodeID);
  if (object == nullptr || object->ReportNode == nullptr) return VX_UNABLE_TO_GET_SR_ID;
  if (object->ObjectKind != Kind::SrItem) return VX_INVALID_SR_ID;
  *Count = static_cast<const SrRecObj*>(object->ReportNode)->ChildCount;
  return kOk;
}

VX_STATUS VX_SR_Get_Location(int32_t NodeID, uint32_t BufferSize, char* Location) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Location);
  if (BufferSize == 0) return VX_NULL_POINTER_PARM;
  const Guard lock(tree_lock());
  const SrRecObj* node = find_node(NodeID);
  if (node == nullptr) return VX_INVALID_SR_ID;
  char text[kMaxLocation + 1];
  write_location(*node, text);
  // 80 characters and their end take 81 bytes.
  const std::size_t length =
      std::min<std::size_t>(std::min(BufferSize, kMaxLocation + 1) - 1, std::strlen(text));
  std::memcpy(Location, text, length);
  Location[length] = '\0';
  return kOk;
}

VX_STATUS VX_SR_Delete_Child(int32_t NodeID) {
  VX_REQUIRE_LIBRARY();
  const Guard lock(tree_lock());
  SrRecObj* node = find_node(NodeID);
  if (node == nullptr) return VX_INVALID_SR_ID;
  if (node->Parent == nullptr) return VX_INVALID_MESSAGE_ID;
  delete_child(*node);
  return kOk;
}

VX_STATUS VX_SR_To_Message(int32_t RootID) {
  VX_REQUIRE_LIBRARY();
  const Guard lock(tree_lock());
  SrRecObj* node = RootID < 1 ? nullptr : find_node(RootID);
  if (node == nullptr) return VX_INVALID_SR_ID;
  drop_tree(root_of(*node));
  return kOk;
}

VX_STATUS VX_Message_To_SR(int32_t MsgID) {
  VX_REQUIRE_LIBRARY();
  const Guard lock(tree_lock());
  MsgObj* message = find_message(MsgID);
  if (message == nullptr) return VX_INVALID_MESSAGE_ID;
  return no_throw([&] { return build_tree(*message); });
}

VX_STATUS VX_SRH_Free_SR(int32_t RootID) {
  VX_REQUIRE_LIBRARY();
  const Guard lock(tree_lock());
  SrRecObj* root = RootID < 1 ? nullptr : find_node(RootID);
  if (root == nullptr || root->Parent != nullptr) return VX_INVALID_SR_ID;
  MsgObj& message = *root->Object;
  drop_tree(*root);
  return free_object(message, "VX_SRH_Free_SR", VX_INVALID_SR_ID);
}
