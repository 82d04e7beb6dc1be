#include "frame/list.h"

#include "frame/pool.h"

namespace vx {
namespace {

// Links a new node behind `before`, at the head when that is null.
CNode* insert_after(CObList& list, CNode* before, void* data) {
  auto* node = new_object<CNode>(Pool::CNode);
  if (node == nullptr) return nullptr;
  node->Data = data;
  node->Previous = before;
  node->Next = before != nullptr ? before->Next : list.Head;
  (before != nullptr ? before->Next : list.Head) = node;
  (node->Next != nullptr ? node->Next->Previous : list.Tail) = node;
  ++list.Count;
  return node;
}

}  // namespace

CNode* list_add_head(CObList& list, void* data) {
  return insert_after(list, nullptr, data);
}

CNode* list_add_tail(CObList& list, void* data) {
  return insert_after(list, list.Tail, data);
}

CNode* list_insert_before(CObList& list, CNode* position, void* data) {
  return insert_after(list, position != nullptr ? position->Previous : list.Tail, data);
}

void* list_remove(CObList& list, CNode* node) {
  if (node == nullptr) return nullptr;
  (node->Previous != nullptr ? node->Previous->Next : list.Head) = node->Next;
  (node->Next != nullptr ? node->Next->Previous : list.Tail) = node->Previous;
  --list.Count;
  void* data = node->Data;
  pool_free(Pool::CNode, node);
  return data;
}

void* list_remove_head(CObList& list) {
  return list_remove(list, list.Head);
}

void* list_remove_tail(CObList& list) {
  return list_remove(list, list.Tail);
}

void list_clear(CObList& list) {
  for (CNode* node = list.Head; node != nullptr;) {
    CNode* next = node->Next;
    pool_free(Pool::CNode, node);
    node = next;
  }
  list = CObList{};
}

CNode* list_find(const CObList& list, const void* data, CNode* after) {
  CNode* node = after != nullptr ? after->Next : list.Head;
  while (node != nullptr && node->Data != data) node = node->Next;
  return node;
}

CNode* list_at(const CObList& list, int32_t index) {
  if (index < 0 || index >= list.Count) return nullptr;
  CNode* node = list.Head;
  while (index-- > 0) node = node->Next;
  return node;
}

bool list_append_all(CObList& list, const CObList& other) {
  // The count is taken first: a list may be added to itself.
  const CNode* node = other.Head;
  for (int32_t left = other.Count; left > 0; --left, node = node->Next) {
    if (list_add_tail(list, node->Data) == nullptr) return false;
  }
  return true;
}

bool list_prepend_all(CObList& list, const CObList& other) {
  const CNode* node = other.Tail;
  for (int32_t left = other.Count; left > 0; --left) {
    const CNode* previous = node->Previous;
    if (list_add_head(list, node->Data) == nullptr) return false;
    node = previous;
  }
  return true;
}

}  // namespace vx
