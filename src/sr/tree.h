// The tree of nodes beside a report's message and items. Nothing of the content is copied: a node record
// hangs on its object and knows its neighbours, so that letting go of the records leaves the plain message.
#pragma once

#include <cstdint>

#include "frame/lock.h"
#include "frame/status.h"
#include "model/object.h"

namespace vx {

inline constexpr uint32_t kContentSequence = 0x0040A730;
inline constexpr uint32_t kMaxLocation = 80;

// Owned by its object (MsgObj::ReportNode). It fills a slot of 64 bytes: reports have many.
struct SrRecObj {
  MsgObj* Object;
  SrRecObj* NextSibling;
  SrRecObj* PrevSibling;
  SrRecObj* Parent;  // null for the root
  SrRecObj* FirstChild;
  SrRecObj* LastChild;
  SrRecObj* ChildCursor;  // what the next step over the children gives
  int32_t ChildCount;
  int32_t Position;  // among its siblings, from 1; locations are made of these
};

// Guards all links and the kinds of the objects. Re-entrant.
Lock& tree_lock();

// All of these with the lock held.
// The record of an object that is part of a tree, or null.
SrRecObj* find_node(int32_t id);
SrRecObj& root_of(SrRecObj& node);
VX_STATUS add_root(MsgObj& message);
// VX_INVALID_SR_ID, VX_INVALID_ITEM_ID, VX_SYSTEM_ERROR; with `write`, those of appending to the sequence.
VX_STATUS add_child(int32_t parent, int32_t child, bool write);
SrRecObj* first_child(SrRecObj& node, bool& last);
SrRecObj* next_child(SrRecObj& node, bool& last);
// The node after this one, depth first, below `top`; null at the end.
SrRecObj* next_in_tree(SrRecObj* node, const SrRecObj& top);
// Records below a node go; their objects become items again.
void drop_children(SrRecObj& node);
void release_node(SrRecObj& node);
// Out of the tree and out of the parent's sequence; the item and what it holds belong to the caller.
void delete_child(SrRecObj& node);
VX_STATUS build_tree(MsgObj& message);
// "1.2.1"; false, and an empty text, where it is longer than kMaxLocation.
bool write_location(const SrRecObj& node, char (&text)[kMaxLocation + 1]);

}  // namespace vx
