// Records of a directory on disk as they are reached.
#include <algorithm>
#include <cstring>
#include <new>

#include "codec/reader.h"
#include "config/services.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "media/directory.h"
#include "media/handler.h"
#include "model/attributes.h"
#include "model/deferred.h"
#include "model/vr.h"

namespace vx {

using namespace directory_tags;

namespace {

constexpr char kFunction[] = "DecodeRecord";
constexpr uint32_t kItemHeader = 8;
constexpr uint32_t kItem = 0xFFFEE000U;
constexpr uint32_t kSequenceDelimiter = 0xFFFEE0DDU;
constexpr uint32_t kDeepest = 1024;  // levels
constexpr uint32_t kLeastRecord = 16;

// Gives the decoder a stretch of the file.
struct Stretch {
  FileOp* file;
  uint64_t at;
  uint64_t end;
};

VX_STATUS give(const char*, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  if (user == nullptr) {
    VX_LOG_ERR(kFunction, "Null data in file read callback");
    return VX_CANNOT_COMPLY;
  }
  auto& stretch = *static_cast<Stretch*>(user);
  const uint64_t left = stretch.end - stretch.at;
  // Whole blocks are even, as the decoder wants them.
  const auto wanted = static_cast<uint32_t>(std::min<uint64_t>(left, stretch.file->BufferSize & ~1U));
  uint32_t available = 0;
  const uint8_t* bytes = view_file(*stretch.file, stretch.at, std::max(wanted, 1U), available);
  if (bytes == nullptr) {
    VX_LOG_ERR(kFunction, "File callback failed to read data");
    return VX_CANNOT_COMPLY;
  }
  available = std::min(available, wanted);
  stretch.at += available;
  *size = available;
  *data = const_cast<uint8_t*>(bytes);
  *last = available < wanted || stretch.at >= stretch.end ? 1 : 0;
  return kOk;
}

const uint8_t* look(const RecordBytes& bytes, uint64_t at, uint32_t length) {
  if (!bytes.appended.empty() && at >= bytes.appended_at) {
    const uint64_t from = at - bytes.appended_at;
    const bool there = from + length <= bytes.appended.size();
    return there ? reinterpret_cast<const uint8_t*>(bytes.appended.data()) + from : nullptr;
  }
  uint32_t available = 0;
  const uint8_t* found = view_file(*bytes.file, at, length, available);
  return available == length ? found : nullptr;
}

// Of an element in front of the references; false for one that can not be passed over.
bool element_size(const Encoding& encoding, const RecordBytes& bytes, uint64_t at, uint32_t& header,
                  uint32_t& length) {
  const uint8_t* head = look(bytes, at, 8);
  if (head == nullptr) return false;
  header = 8;
  if (!encoding.explicit_vr) {
    length = load32(head + 4, false);
    return length != kUndefinedLength;
  }
  const int32_t vr = vr_from_letters(static_cast<char>(head[4]), static_cast<char>(head[5]));
  length = load16(head + 6, false);
  if (vr >= 0 && !has_long_header(vr)) return true;
  header = 12;
  head = look(bytes, at, 12);
  if (head == nullptr) return false;
  length = load32(head + 8, false);
  return length != kUndefinedLength;
}

VX_STATUS note_reference(const RecordBytes& bytes, uint64_t at, uint32_t length, uint32_t& value,
                         uint64_t& position) {
  if (length == 0) return kOk;
  const uint8_t* found = length == 4 ? look(bytes, at, 4) : nullptr;
  if (found == nullptr) return VX_INVALID_DIRECTORY_RECORD_OFFSET;
  value = load32(found, false);
  position = at;
  return kOk;
}

}  // namespace

uint64_t records_end(const DirectoryHandler& handler) {
  if (handler.SequenceLength == kUndefinedLength) return handler.File->Size;
  return std::min(handler.SequenceLengthPosition + 4 + handler.SequenceLength, handler.File->Size);
}

VX_STATUS read_links(const DirectoryHandler& handler, const RecordBytes& bytes, uint32_t offset,
                     RecordLinks& links) {
  links = {};
  const uint8_t* head = look(bytes, offset, kItemHeader);
  if (head == nullptr) {
    VX_LOG_ERR(kFunction, "Failed to read DICOMDIR record at offset %u", offset);
    return VX_UNEXPECTED_EOD;
  }
  if (load_tag(head, false) != kItem) {
    VX_LOG_ERR(kFunction, "DICOMDIR record item tag (FFFE,E000) not found at offset %u", offset);
    return VX_INVALID_DIRECTORY_RECORD_OFFSET;
  }
  links.length = load32(head + 4, false);
  const uint64_t content = uint64_t{offset} + kItemHeader;
  const uint64_t end = links.length == kUndefinedLength ? ~uint64_t{0} : content + links.length;
  for (uint64_t at = content; at + 8 <= end;) {
    head = look(bytes, at, 8);
    if (head == nullptr) return VX_UNEXPECTED_EOD;
    const uint32_t tag = load_tag(head, false);
    if (tag > kLower) break;
    uint32_t header = 0;
    uint32_t length = 0;
    if (!element_size(handler.encoding, bytes, at, header, length)) return VX_INVALID_DIRECTORY_RECORD_OFFSET;
    VX_STATUS status = kOk;
    if (tag == kNext) status = note_reference(bytes, at + header, length, links.next, links.next_position);
    if (tag == kLower) status = note_reference(bytes, at + header, length, links.lower, links.lower_position);
    if (status != kOk) {
      VX_LOG_ERR(kFunction, "Tag 0x%X has a value of %u bytes in directory record at offset %u", tag, length,
                 offset);
      return status;
    }
    at += uint64_t{header} + length;
  }
  return kOk;
}

// --- Records as items ---

namespace {

// Fills an item, which may be null for a record that is only passed over; `next` is the position behind it.
VX_STATUS decode_record(DirectoryHandler& handler, uint64_t offset, MsgObj& item, uint64_t& next) {
  FileOp& file = *handler.File;
  uint32_t available = 0;
  const uint8_t* head = view_file(file, offset, kItemHeader, available);
  if (head == nullptr || available < kItemHeader) {
    next = offset;
    if (head != nullptr && available == 0) return VX_END_OF_DATA;
    VX_LOG_ERR(kFunction, "Failed to read DICOMDIR record at offset %llu",
               static_cast<unsigned long long>(offset));
    return VX_UNEXPECTED_EOD;
  }
  const uint32_t tag = load_tag(head, false);
  const uint32_t length = load32(head + 4, false);
  next = offset;
  if (tag == kSequenceDelimiter) return VX_END_OF_LIST;
  if (tag != kItem) {
    VX_LOG_ERR(kFunction, "DICOMDIR record item tag (FFFE,E000) not found at offset %llu",
               static_cast<unsigned long long>(offset));
    return VX_INVALID_DIRECTORY_RECORD_OFFSET;
  }
  if (length == 0) {
    VX_LOG_ERR(kFunction, "DICOMDIR record item length is zero at offset %llu",
               static_cast<unsigned long long>(offset));
    return VX_UNEXPECTED_EOD;
  }
  const uint64_t content = offset + kItemHeader;
  const bool open_end = length == kUndefinedLength;
  const uint64_t end = open_end ? file.Size : std::min(content + length, file.Size);
  Stretch stretch{&file, content, end};
  ReadRequest request;
  request.encoding = handler.encoding;
  request.FileInput = give;
  request.FileName = file.Path;
  request.UserInfo = &stretch;
  request.OpenItem = open_end;
  const VX_STATUS status =
      content + (open_end ? 0 : length) > file.Size ? VX_UNEXPECTED_EOD : decode_object(item, request);
  if (status != kOk) return status;
  next = open_end ? content + request.StopOffset + kItemHeader : content + length;
  return kOk;
}

VX_STATUS broken(VX_STATUS status) {
  return status == VX_END_OF_LIST || status == VX_END_OF_DATA ? VX_INVALID_DIRECTORY_RECORD_OFFSET : status;
}

// A reference of a record that was read; none counts as 0.
VX_STATUS item_reference(DirectoryHandler& handler, MsgObj& item, uint32_t tag, uint32_t offset,
                         uint32_t& value) {
  int32_t stored = 0;
  value = 0;
  const bool next = tag == kNext;
  const VX_STATUS status = get_reference(item, tag, stored);
  value = static_cast<uint32_t>(stored);
  if (status == kOk) return kOk;
  const TagObj* attribute = find_tag(item, tag);
  if (attribute != nullptr && attribute->Length > 0) {
    VX_LOG_ERR(kFunction,
               next ? "Failed to retrieve next reocrd offset value at %u, %s "
                    : "Failed to retrieve Lower Level Record offset at %u, %s",
               offset, status_text(status));
    return VX_INVALID_DIRECTORY_RECORD_OFFSET;
  }
  if (!handler.OffsetWarned) {
    VX_LOG_WARN(kFunction,
                next ? "Failed to retrieve Offset of Next Directory Record value from record at %u"
                     : "Failed to retrieve Offset of Lower Level Directory Record value from record at %u ",
                offset);
    handler.OffsetWarned = true;
  }
  return kOk;
}

// What an offset must be before anybody follows it: even, inside the sequence, of no record above and of none
// that this level has had.
VX_STATUS check_offset(const DirectoryHandler& handler, LevelHead& head, uint32_t offset) {
  const uint64_t first = handler.SequenceLengthPosition + 4;
  bool valid = offset % 2 == 0 && offset >= first && uint64_t{offset} + kItemHeader <= records_end(handler) &&
               head.Depth < kDeepest;
  for (const LevelHead* at = &head; valid && at->Kind == kDirectoryRecord;) {
    const auto* node = static_cast<const RecordNode*>(at);
    valid = node->Offset != offset;
    at = node->Parent;
  }
  if (valid && head.Limit != 0 && offset == head.Tortoise) valid = false;
  if (!valid) {
    VX_LOG_ERR(kFunction, "Offset %u of a directory record leads nowhere or back", offset);
    return VX_INVALID_DIRECTORY_RECORD_OFFSET;
  }
  if (++head.Steps > head.Limit) {
    head.Tortoise = offset;
    head.Limit = head.Limit == 0 ? 1 : head.Limit * 2;
    head.Steps = 0;
  }
  return kOk;
}

}  // namespace

VX_STATUS read_record(DirectoryHandler& handler, uint32_t offset, MsgObj*& item) {
  item = nullptr;
  if (!handler.File->IsOpen) {
    VX_LOG_ERR(kFunction, "Reading record from closed Directory file.");
    return VX_SYSTEM_ERROR;
  }
  if (offset == 0) return VX_INVALID_DIRECTORY_RECORD_OFFSET;
  VX_STATUS status = open_object(Kind::Item, kNoName, item);
  if (status != kOk) return status;
  uint64_t next = 0;
  status = broken(decode_record(handler, offset, *item, next));
  if (status == kOk) status = name_record(*item);
  if (status == kOk) {
    adjust_references(*item, 1);
    return kOk;
  }
  free_item(*item, true);
  item = nullptr;
  return status;
}

VX_STATUS find_sequence_end(DirectoryHandler& handler, uint64_t& end) {
  constexpr char kWhere[] = "VX_DDH_Update";
  uint64_t at = handler.LastRecordOffset;
  if (!handler.HasLastOffset || at == 0) {
    VX_LOG_WARN(kWhere, "Failed to retrieve Offset of Last Directory Record of The Root Entity value");
    at = handler.LowerOffset != 0 ? handler.LowerOffset : handler.SequenceLengthPosition + 4;
  }
  VX_STATUS status = kOk;
  while (status == kOk) {
    MsgObj* item = nullptr;
    status = open_object(Kind::Item, kNoName, item);
    if (status != kOk) return status;
    uint64_t next = at;
    status = decode_record(handler, at, *item, next);
    free_item(*item, true);
    at = next;
  }
  end = at;
  if (status == VX_END_OF_LIST) return kOk;
  if (status != VX_END_OF_DATA) return status;
  VX_LOG_WARN(kWhere, "No Sequence Delimiter Element found in DICOMDIR");
  return kOk;
}

VX_STATUS load_item(RecordNode& node) {
  if (node.Item != nullptr) return kOk;
  DirectoryHandler& handler = handler_of(node);
  MsgObj* item = nullptr;
  uint32_t next = 0;
  uint32_t lower = 0;
  VX_STATUS status = read_record(handler, node.Offset, item);
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "Failed to read directory record at offset %u: %s", node.Offset,
               status_text(status));
    return status;
  }
  status = item_reference(handler, *item, kNext, node.Offset, next);
  if (status == kOk) status = item_reference(handler, *item, kLower, node.Offset, lower);
  RecordNode* rest = nullptr;
  if (status == kOk && node.Count > 1) {
    rest = next != 0 ? new_node(*node.Parent) : nullptr;
    if (rest == nullptr) status = VX_INVALID_DIRECTORY_RECORD_OFFSET;
  }
  if (status != kOk) {
    adjust_references(*item, -1);
    free_item(*item, true);
    return status;
  }
  attach_item(node, *item);
  if (node.FirstLower == nullptr) node.LowerOffset = lower;
  if (rest == nullptr) return kOk;
  rest->Offset = next;
  rest->NextOffset = node.NextOffset;
  rest->Count = node.Count - 1;
  rest->Previous = &node;
  rest->Next = node.Next;
  (node.Next != nullptr ? node.Next->Previous : node.Parent->LastLower) = rest;
  node.Next = rest;
  node.NextOffset = next;
  node.Count = 1;
  return kOk;
}

namespace {

// The record at an offset becomes the last linked one of a level.
VX_STATUS link_at(LevelHead& head, uint32_t offset, RecordNode*& node) {
  DirectoryHandler& handler = handler_of(head);
  node = nullptr;
  VX_STATUS status = check_offset(handler, head, offset);
  MsgObj* item = nullptr;
  if (status == kOk) status = read_record(handler, offset, item);
  if (status != kOk) return status;
  uint32_t next = 0;
  uint32_t lower = 0;
  status = item_reference(handler, *item, kNext, offset, next);
  if (status == kOk) status = item_reference(handler, *item, kLower, offset, lower);
  RecordNode* fresh = status == kOk ? new_node(head) : nullptr;
  if (fresh == nullptr) {
    adjust_references(*item, -1);
    free_item(*item, true);
    return status == kOk ? VX_SYSTEM_ERROR : status;
  }
  fresh->Offset = offset;
  fresh->NextOffset = next;
  fresh->LowerOffset = lower;
  append_node(*fresh);
  attach_item(*fresh, *item);
  node = fresh;
  return kOk;
}

// From a node on, or from the end of what is linked, the first that is not deleted.
VX_STATUS reach(LevelHead& head, RecordNode* node, RecordNode*& found) {
  found = nullptr;
  for (;; node = node->Next) {
    if (node == nullptr) {
      const RecordNode* tail = head.LastLower;
      const uint32_t offset = tail != nullptr ? tail->NextOffset : head.LowerOffset;
      if (offset == 0) return kOk;
      if (const VX_STATUS status = link_at(head, offset, node); status != kOk) return status;
    }
    if (node->Deleted) continue;
    found = node;
    return load_item(*node);
  }
}

}  // namespace

VX_STATUS first_lower(LevelHead& head, RecordNode*& node) {
  return reach(head, head.FirstLower, node);
}

VX_STATUS next_of(RecordNode& node, RecordNode*& next) {
  return reach(*node.Parent, node.Next, next);
}

VX_STATUS link_level(LevelHead& head) {
  DirectoryHandler& handler = handler_of(head);
  const RecordBytes bytes{handler.File, {}, 0};
  for (;;) {
    RecordNode* tail = head.LastLower;
    const uint32_t offset = tail != nullptr ? tail->NextOffset : head.LowerOffset;
    if (offset == 0) return kOk;
    RecordLinks links;
    VX_STATUS status = check_offset(handler, head, offset);
    if (status == kOk) status = read_links(handler, bytes, offset, links);
    if (status != kOk) return status;
    const bool held = tail == nullptr || tail->Item != nullptr || tail->FirstLower != nullptr ||
                      tail->Deleted || tail->Offset == 0 || handler.Walks != nullptr;
    if (!held) {
      ++tail->Count;
      tail->NextOffset = links.next;
      continue;
    }
    RecordNode* node = new_node(head);
    if (node == nullptr) return VX_SYSTEM_ERROR;
    node->Offset = offset;
    node->NextOffset = links.next;
    node->LowerOffset = links.lower;
    append_node(*node);
  }
}

VX_STATUS last_of_gap(RecordNode& node, RecordNode*& last) {
  last = &node;
  if (node.Count == 1) return kOk;
  DirectoryHandler& handler = handler_of(node);
  const RecordBytes bytes{handler.File, {}, 0};
  RecordLinks links;
  uint32_t offset = node.Offset;
  for (uint32_t step = 1; step < node.Count; ++step) {
    const VX_STATUS status = read_links(handler, bytes, offset, links);
    if (status != kOk || links.next == 0) return VX_INVALID_DIRECTORY_RECORD_OFFSET;
    offset = links.next;
  }
  VX_STATUS status = read_links(handler, bytes, offset, links);
  if (status == kOk && links.next != node.NextOffset) status = VX_INVALID_DIRECTORY_RECORD_OFFSET;
  if (status != kOk) return status;
  RecordNode* tail = new_node(*node.Parent);
  if (tail == nullptr) return VX_SYSTEM_ERROR;
  tail->Offset = offset;
  tail->NextOffset = node.NextOffset;
  tail->LowerOffset = links.lower;
  tail->Previous = &node;
  tail->Next = node.Next;
  (node.Next != nullptr ? node.Next->Previous : node.Parent->LastLower) = tail;
  node.Next = tail;
  node.NextOffset = offset;
  --node.Count;
  last = tail;
  return kOk;
}

// --- The walk ---

VX_STATUS traverse(DirectoryHandler& handler, LevelHead& start, void* user,
                   VX_DDH_TRAVERSE_CALLBACK callback) {
  RecordWalk walk;
  walk.outer = handler.Walks;
  handler.Walks = &walk;
  const uint64_t most = handler.File->Size / kLeastRecord;
  uint64_t visits = 0;
  RecordNode* node = nullptr;
  VX_STATUS status = first_lower(start, node);
  const auto leave = [&walk] {
    RecordNode* left = walk.path.back();
    walk.path.pop_back();
    return left;
  };
  const auto step = [&](RecordNode* from) {
    const VX_STATUS moved = next_of(*from, node);
    if (walk.outer == nullptr) merge_released(*from);
    return moved;
  };
  while (status == kOk) {
    if (node == nullptr) {
      if (walk.path.empty()) break;
      status = step(leave());
      continue;
    }
    // More visits than there is room for records: one is reached on many ways.
    if (node->Offset != 0 && ++visits > most) {
      status = VX_INVALID_DIRECTORY_RECORD_OFFSET;
      break;
    }
    walk.path.push_back(node);
    walk.cut = false;
    const int32_t answer = callback(node->Item->ID, user);
    if (walk.gone) return VX_INVALID_RECORD_ID;
    if (answer == 3) break;
    if (answer < 0 || answer > 3) {
      status = VX_CALLBACK_CANNOT_COMPLY;
      break;
    }
    if (walk.path.empty()) break;  // the directory itself was let go
    if (answer == 1 && !walk.cut) {
      leave();
      node = nullptr;
    } else if (answer == 0 && !walk.cut && !walk.path.back()->Deleted) {
      status = first_lower(*walk.path.back(), node);
    } else {
      status = step(leave());
    }
  }
  handler.Walks = walk.outer;
  return status;
}

}  // namespace vx
