// The nodes of a directory on disk: linked, let go, merged.
#include "frame/pool.h"
#include "media/handler.h"
#include "model/deferred.h"

namespace vx {

DirectoryHandler* directory_handler(const MsgObj& object) {
  const bool is_handler =
      is_file(object) && object.DirectoryInfo != nullptr && directory_sort(object) == kDirectoryHandler;
  return is_handler ? static_cast<DirectoryHandler*>(object.DirectoryInfo) : nullptr;
}

RecordNode* record_node(const MsgObj& object) {
  const bool is_record = object.ObjectKind == Kind::Item && object.DirectoryInfo != nullptr &&
                         directory_sort(object) == kDirectoryRecord;
  return is_record ? static_cast<RecordNode*>(object.DirectoryInfo) : nullptr;
}

DirectoryHandler& handler_of(LevelHead& head) {
  LevelHead* at = &head;
  while (at->Kind == kDirectoryRecord) at = static_cast<RecordNode*>(at)->Parent;
  return *static_cast<DirectoryHandler*>(at);
}

RecordNode* new_node(LevelHead& parent) {
  auto* node = static_cast<RecordNode*>(allocate(sizeof(RecordNode)));
  if (node == nullptr) return nullptr;
  node->Kind = kDirectoryRecord;
  node->Parent = &parent;
  node->Depth = parent.Depth + 1;
  node->Count = 1;
  return node;
}

void append_node(RecordNode& node) {
  LevelHead& head = *node.Parent;
  node.Previous = head.LastLower;
  (node.Previous != nullptr ? node.Previous->Next : head.FirstLower) = &node;
  head.LastLower = &node;
}

void attach_item(RecordNode& node, MsgObj& item) {
  item.DirectoryInfo = static_cast<LevelHead*>(&node);
  item.ParentID = handler_of(node).Object->ID;
  node.Item = &item;
}

void release_item(RecordNode& node) {
  MsgObj* item = node.Item;
  if (item == nullptr) return;
  node.Item = nullptr;
  int32_t references = 0;
  {
    // Not held while the item goes: the lock goes with it.
    const Guard lock(item->Semaphore);
    item->DirectoryInfo = nullptr;
    references = adjust_references(*item, -1);
  }
  if (references <= 0) free_item(*item, false);
}

void forget_item(MsgObj& item) {
  if (RecordNode* node = record_node(item)) node->Item = nullptr;
  item.DirectoryInfo = nullptr;
}

void free_node(RecordNode* node) {
  release_item(*node);
  release(node);
}

void release_below(LevelHead& head) {
  for (RecordWalk* walk = head.FirstLower != nullptr ? handler_of(head).Walks : nullptr; walk != nullptr;
       walk = walk->outer) {
    for (std::size_t i = 0; i + 1 < walk->path.size(); ++i) {
      if (walk->path[i] != &head) continue;
      walk->path.resize(i + 1);
      walk->cut = true;
    }
    if (head.Kind == kDirectoryHandler && !walk->path.empty()) {
      walk->path.clear();
      walk->cut = true;
    }
  }
  // Level by level: the children of what goes take its place at the front of the list.
  RecordNode* node = head.FirstLower;
  head.FirstLower = head.LastLower = nullptr;
  head.Tortoise = head.Steps = head.Limit = 0;
  while (node != nullptr) {
    RecordNode* next = node->Next;
    if (node->LastLower != nullptr) {
      node->LastLower->Next = next;
      next = node->FirstLower;
    }
    free_node(node);
    node = next;
  }
}

namespace {

bool waits_for_update(const RecordNode& node) {
  return node.Offset == 0 || node.Deleted;
}

bool has_changes_below(const RecordNode& node) {
  std::vector<const RecordNode*> open = {node.FirstLower};
  while (!open.empty()) {
    const RecordNode* at = open.back();
    open.pop_back();
    for (; at != nullptr; at = at->Next) {
      if (waits_for_update(*at)) return true;
      if (at->FirstLower != nullptr) open.push_back(at->FirstLower);
    }
  }
  return false;
}

bool is_let_go(const RecordNode& node) {
  return node.Item == nullptr && node.FirstLower == nullptr && !waits_for_update(node);
}

// `later` follows `node` on file and in the chain, and nothing is known of either but where they lie.
void swallow(RecordNode& node, RecordNode& later) {
  node.Count += later.Count;
  node.NextOffset = later.NextOffset;
  node.Next = later.Next;
  (later.Next != nullptr ? later.Next->Previous : node.Parent->LastLower) = &node;
  free_node(&later);
}

}  // namespace

void let_go(RecordNode& node) {
  release_item(node);
  if (!has_changes_below(node)) {
    release_below(node);
    return;
  }
  std::vector<RecordNode*> open = {node.FirstLower};
  while (!open.empty()) {
    RecordNode* at = open.back();
    open.pop_back();
    for (; at != nullptr; at = at->Next) {
      if (at->Offset != 0) release_item(*at);
      if (at->FirstLower != nullptr) open.push_back(at->FirstLower);
    }
  }
}

void merge_released(RecordNode& node) {
  RecordNode* at = &node;
  if (!is_let_go(*at)) return;
  RecordNode* next = at->Next;
  if (next != nullptr && is_let_go(*next) && at->NextOffset == next->Offset) swallow(*at, *next);
  RecordNode* previous = at->Previous;
  if (previous != nullptr && is_let_go(*previous) && previous->NextOffset == at->Offset)
    swallow(*previous, *at);
}

void release_handler(MsgObj& directory) {
  DirectoryHandler* handler = directory_handler(directory);
  if (handler == nullptr) return;
  release_below(*handler);
  for (RecordWalk* walk = handler->Walks; walk != nullptr; walk = walk->outer) walk->gone = true;
  free_file_op(handler->File);
  release(handler);
}

}  // namespace vx
