// The library's doubly linked list of pointers that it does not own. Zeroed bytes are an empty list.
#pragma once

#include <cstdint>
#include <type_traits>

namespace vx {

struct CNode {
  CNode* Next;
  CNode* Previous;
  void* Data;
};

struct CObList {
  CNode* Head;
  CNode* Tail;
  int32_t Count;
};
static_assert(std::is_trivially_destructible_v<CObList>);

// The node, or null if there is no memory.
CNode* list_add_head(CObList& list, void* data);
CNode* list_add_tail(CObList& list, void* data);
CNode* list_insert_before(CObList& list, CNode* position, void* data);
// Takes a node out and gives its data; null for an empty list or a null node.
void* list_remove(CObList& list, CNode* node);
void* list_remove_head(CObList& list);
void* list_remove_tail(CObList& list);
void list_clear(CObList& list);
CNode* list_find(const CObList& list, const void* data, CNode* after = nullptr);
CNode* list_at(const CObList& list, int32_t index);
bool list_append_all(CObList& list, const CObList& other);
bool list_prepend_all(CObList& list, const CObList& other);

}  // namespace vx
