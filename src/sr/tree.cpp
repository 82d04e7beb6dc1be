#include "sr/tree.h"

#include <charconv>
#include <cstring>

#include "frame/log.h"
#include "frame/named_locks.h"
#include "frame/pool.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/seams.h"
#include "model/values.h"

namespace vx {
namespace {

static_assert(sizeof(SrRecObj) <= 64);

SrRecObj* new_node(MsgObj& object) {
  auto* node = static_cast<SrRecObj*>(allocate(sizeof(SrRecObj)));
  if (node == nullptr) return nullptr;
  node->Object = &object;
  object.ReportNode = node;
  return node;
}

void link_last(SrRecObj& parent, SrRecObj& node) {
  node.Parent = &parent;
  node.PrevSibling = parent.LastChild;
  node.Position = parent.LastChild != nullptr ? parent.LastChild->Position + 1 : 1;
  (parent.LastChild != nullptr ? parent.LastChild->NextSibling : parent.FirstChild) = &node;
  parent.LastChild = &node;
  parent.ChildCursor = &node;
  ++parent.ChildCount;
}

void unlink(SrRecObj& node) {
  SrRecObj& parent = *node.Parent;
  SrRecObj* const left = node.PrevSibling;
  SrRecObj* const right = node.NextSibling;
  (left != nullptr ? left->NextSibling : parent.FirstChild) = right;
  (right != nullptr ? right->PrevSibling : parent.LastChild) = left;
  parent.ChildCursor = left != nullptr ? left : right;
  --parent.ChildCount;
  for (SrRecObj* later = right; later != nullptr; later = later->NextSibling) --later->Position;
  node.Parent = node.PrevSibling = node.NextSibling = nullptr;
}

// Only the first node of a branch or a row that is too deep is worth a line.
void log_long_location(const SrRecObj& node) {
  char text[kMaxLocation + 1];
  if (write_location(node, text) || !write_location(*node.Parent, text)) return;
  if (node.PrevSibling != nullptr && !write_location(*node.PrevSibling, text)) return;
  write_location(*node.Parent, text);
  VX_LOG_ERR("CreateNewLocation",
             "CreateNewLocation:  Location string '%s.%d' is greater than 80 characters.  Setting to NULL",
             text, static_cast<int>(node.Position));
}

// Takes the item out of the parent's sequence without freeing it.
void remove_from_sequence(MsgObj& parent, MsgObj& item) {
  TagObj* attribute = find_tag(parent, kContentSequence);
  if (attribute == nullptr) return;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  while (cursor.value != nullptr && cursor.value->Data != &item) {
    if (cursor_next(*attribute, cursor) != kOk) return;
  }
  if (cursor.value == nullptr) return;
  set_cursor(*attribute, cursor);
  adjust_references(item, 1);
  delete_current_value(parent, *attribute);
  adjust_references(item, -1);
}

}  // namespace

static const NamedLock kNamedLock("S.SRRecListSemaphore", tree_lock());

Lock& tree_lock() {
  static constinit Lock lock;
  return lock;
}

SrRecObj* find_node(int32_t id) {
  const MsgObj* object = find_object(id);
  if (object == nullptr || object->ObjectKind != Kind::SrItem) return nullptr;
  return static_cast<SrRecObj*>(object->ReportNode);
}

SrRecObj& root_of(SrRecObj& node) {
  SrRecObj* root = &node;
  while (root->Parent != nullptr) root = root->Parent;
  return *root;
}

VX_STATUS add_root(MsgObj& message) {
  SrRecObj* root = new_node(message);
  if (root == nullptr) return VX_SYSTEM_ERROR;
  root->Position = 1;
  message.ObjectKind = Kind::SrItem;
  return kOk;
}

VX_STATUS add_child(int32_t parent_id, int32_t child_id, bool write) {
  if (child_id < 1) return VX_INVALID_ITEM_ID;
  SrRecObj* parent = find_node(parent_id);
  MsgObj* child = find_object(child_id);
  if (parent == nullptr || child == nullptr) return VX_INVALID_SR_ID;
  // A node without its kind is the rest of an addition that failed: it stays as it is.
  if (child->ObjectKind != Kind::Item || child->ReportNode != nullptr) return VX_INVALID_ITEM_ID;
  SrRecObj* node = new_node(*child);
  if (node == nullptr) return VX_SYSTEM_ERROR;
  link_last(*parent, *node);
  log_long_location(*node);
  if (write) {
    TagObj* attribute = nullptr;
    VX_STATUS status = find_to_change(*parent->Object, kContentSequence, attribute);
    if (status == kOk) status = set_value(*parent->Object, *attribute, VX_INT_TYPE, &child_id, false);
    if (status != kOk) return status;
  }
  child->ObjectKind = Kind::SrItem;
  return kOk;
}

SrRecObj* first_child(SrRecObj& node, bool& last) {
  last = node.ChildCount <= 1;
  if (node.FirstChild != nullptr) node.ChildCursor = node.FirstChild->NextSibling;
  return node.FirstChild;
}

SrRecObj* next_child(SrRecObj& node, bool& last) {
  SrRecObj* child = node.ChildCursor;
  if (child != nullptr) node.ChildCursor = child->NextSibling;
  last = child == nullptr || child->NextSibling == nullptr;
  return child;
}

SrRecObj* next_in_tree(SrRecObj* node, const SrRecObj& top) {
  if (node->FirstChild != nullptr) return node->FirstChild;
  while (node != &top && node->NextSibling == nullptr) node = node->Parent;
  return node == &top ? nullptr : node->NextSibling;
}

void release_node(SrRecObj& node) {
  if (node.Object->ReportNode != &node) {
    VX_LOG_ERR("VXI_releaseSrRecObj", "Internal error, could not find SR Rec object to free");
    return;
  }
  node.Object->ReportNode = nullptr;
  release(&node);
}

// From the leaves up, always the first: no stack, whatever the depth.
void drop_children(SrRecObj& top) {
  SrRecObj* node = &top;
  for (;;) {
    while (node->FirstChild != nullptr) node = node->FirstChild;
    if (node == &top) break;
    SrRecObj* parent = node->Parent;
    parent->FirstChild = node->NextSibling;
    node->Object->ObjectKind = Kind::Item;
    release_node(*node);
    node = parent;
  }
  top.LastChild = top.ChildCursor = nullptr;
  top.ChildCount = 0;
}

void delete_child(SrRecObj& node) {
  MsgObj& item = *node.Object;
  MsgObj& parent = *node.Parent->Object;
  unlink(node);
  drop_children(node);
  release_node(node);
  item.ObjectKind = Kind::Item;
  remove_from_sequence(parent, item);
}

VX_STATUS build_tree(MsgObj& message) {
  VX_STATUS status = decode_all(message);
  if (status == kOk) status = add_root(message);
  if (status != kOk) return status;
  auto& root = *static_cast<SrRecObj*>(message.ReportNode);
  for (SrRecObj* node = &root; node != nullptr; node = next_in_tree(node, root)) {
    const TagObj* attribute = find_tag(*node->Object, kContentSequence);
    if (attribute == nullptr || attribute->VR != VX_VR_SQ) continue;
    for (const ValueObj* value = attribute->FirstValue; value != nullptr; value = value->Next) {
      if (value->Data == nullptr) break;
      if (add_child(node->Object->ID, static_cast<const MsgObj*>(value->Data)->ID, false) != kOk) break;
    }
  }
  return kOk;
}

bool write_location(const SrRecObj& node, char (&text)[kMaxLocation + 1]) {
  char scratch[kMaxLocation];
  char* start = scratch + sizeof scratch;  // written from the right
  for (const SrRecObj* at = &node; at != nullptr; at = at->Parent) {
    char digits[12];
    const char* end = std::to_chars(digits, digits + sizeof digits, at->Position).ptr;
    const auto length = end - digits;
    const bool point = at != &node;
    if (start - scratch < length + (point ? 1 : 0)) {
      text[0] = '\0';
      return false;
    }
    if (point) *--start = '.';
    start -= length;
    std::memcpy(start, digits, static_cast<std::size_t>(length));
  }
  const auto length = static_cast<std::size_t>(scratch + sizeof scratch - start);
  std::memcpy(text, start, length);
  text[length] = '\0';
  return true;
}

// Whatever the road by which an object of a tree goes, no record is left that points to it.
void release_report_node(MsgObj& object) {
  const Guard lock(tree_lock());
  auto& node = *static_cast<SrRecObj*>(object.ReportNode);
  if (node.Parent != nullptr) unlink(node);
  drop_children(node);
  release_node(node);
}

}  // namespace vx
