#include "media/directory.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>

#include "config/services.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"
#include "media/handler.h"
#include "media/record_types.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/seams.h"
#include "model/values.h"

namespace vx {

using namespace directory_tags;

namespace {

constexpr int32_t kLowestEntityId = 100;
constexpr int32_t kCounterEnd = 31000;
constexpr int32_t kHighestEntityId = 0x7FFFFF9B;
constexpr std::size_t kLongestType = 16;  // of a CS

std::atomic<int32_t> entity_counter{kLowestEntityId};

int32_t next_counter() {
  int32_t now = entity_counter.load(std::memory_order_relaxed);
  int32_t next = 0;
  do {
    next = now >= kCounterEnd ? kLowestEntityId : now + 1;
  } while (!entity_counter.compare_exchange_weak(now, next, std::memory_order_relaxed));
  return next;
}

EntityObj*& bucket(DirectoryState& state, int32_t id) {
  return state.Buckets[static_cast<uint32_t>(id) % kEntityBuckets];
}

// Ids in use lie close together: behind the highest one there is room at once.
int32_t free_entity_id(DirectoryState& state) {
  int32_t id = next_counter();
  if (find_entity(state, id) == nullptr) return id;
  if (state.HighEntityID < kHighestEntityId) return std::max(id, state.HighEntityID) + 1;
  for (id = kLowestEntityId; id <= kHighestEntityId; ++id) {
    if (find_entity(state, id) == nullptr) return id;
  }
  return 0;
}

void free_tree(DirectoryState& state) {
  for (EntityObj*& head : state.Buckets) {
    while (EntityObj* entity = head) {
      head = entity->NextInBucket;
      pool_free(Pool::EntityObj, entity);
    }
  }
  state.Root = nullptr;
  state.Count = 0;
  state.HighEntityID = 0;
}

bool is_name_character(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ' ';
}

}  // namespace

// --- Values of the chain ---

VX_STATUS get_reference(MsgObj& object, uint32_t tag, int32_t& value) {
  value = 0;
  const TagObj* attribute = find_tag(object, tag);
  if (attribute == nullptr || (attribute->VR != VX_VR_UL && attribute->VR != VX_VR_SL) ||
      attribute->Length < sizeof value) {
    return VX_UNABLE_TO_GET_ITEM_ID;
  }
  const void* bytes = numeric_value(*attribute, 1);
  if (bytes == nullptr) return VX_UNABLE_TO_GET_ITEM_ID;
  std::memcpy(&value, bytes, sizeof value);
  return kOk;
}

VX_STATUS set_reference(MsgObj& object, uint32_t tag, int32_t value) {
  TagObj* attribute = nullptr;
  const VX_STATUS status = new_tag(object, tag, VX_VR_UL, 1, 1, &attribute);
  if (status != kOk && status != VX_TAG_ALREADY_EXISTS) return status;
  const bool fits = attribute->VR == VX_VR_UL && attribute->Length == sizeof value;
  if (fits && attribute->FirstValue != nullptr && attribute->FirstValue->Length == sizeof value) {
    std::memcpy(attribute->FirstValue->Data, &value, sizeof value);
    return kOk;
  }
  clear_value(object, *attribute, false, true);
  attribute->VR = VX_VR_UL;
  return store_value(object, *attribute, &value, sizeof value, {});
}

std::string record_type(MsgObj& record) {
  const TagObj* attribute = find_tag(record, kType);
  if (attribute == nullptr || attribute->ValueCount < 1) return {};
  char scratch[80];
  std::string_view text;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  if (view_text(*attribute, cursor, scratch, text) != kOk) return {};
  while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  return std::string(trim_right(text));
}

VX_STATUS name_record(MsgObj& record) {
  if (record.ServiceName != nullptr && std::strcmp(record.ServiceName, kNoName) != 0) return kOk;
  const std::string type = record_type(record);
  const bool valid = !type.empty() && type.size() <= kLongestType &&
                     std::all_of(type.begin(), type.end(), is_name_character);
  return valid ? set_object_name(record, item_of_type(type).c_str()) : kOk;
}

VX_STATUS fill_new_record(MsgObj& record, std::string_view type) {
  constexpr uint16_t kIsInUse = 0xFFFF;
  VX_STATUS status = set_reference(record, kLower, 0);
  if (status == kOk) status = set_reference(record, kNext, 0);
  TagObj* attribute = nullptr;
  if (status == kOk) status = new_tag(record, kInUse, VX_VR_US, 1, 1, &attribute);
  if (attribute != nullptr) {
    attribute->VR = VX_VR_US;
    status = store_value(record, *attribute, &kIsInUse, sizeof kIsInUse, {});
  }
  if (status != kOk || type.empty()) return status;
  status = new_tag(record, kType, VX_VR_CS, 1, 1, &attribute);
  if (attribute == nullptr) return status;
  return attribute->ValueCount > 0 && attribute->Length > 0
             ? kOk
             : set_text(record, *attribute, type, true, nullptr);
}

// --- The tree ---

VX_STATUS create_directory_records(MsgObj& object) {
  if (object.DirectoryInfo != nullptr) return kOk;
  auto* state = static_cast<DirectoryState*>(allocate(sizeof(DirectoryState)));
  if (state == nullptr) return VX_SYSTEM_ERROR;
  state->Kind = kDirectoryInMemory;
  object.DirectoryInfo = state;
  return kOk;
}

void release_directory_records(MsgObj& object) {
  switch (directory_sort(object)) {
    case kDirectoryInMemory:
      free_tree(*static_cast<DirectoryState*>(object.DirectoryInfo));
      release(object.DirectoryInfo);
      break;
    case kDirectoryHandler:
      release_handler(object);
      break;
    case kDirectoryRecord:
      forget_item(object);
      break;
    default:
      release(object.DirectoryInfo);
  }
  object.DirectoryInfo = nullptr;
}

DirectoryState* directory_state(MsgObj& object) {
  const bool is_tree = object.ObjectKind == Kind::Dicomdir && object.DirectoryInfo != nullptr &&
                       directory_sort(object) == kDirectoryInMemory;
  return is_tree ? static_cast<DirectoryState*>(object.DirectoryInfo) : nullptr;
}

void forget_tree(MsgObj& object) {
  if (DirectoryState* state = directory_state(object)) free_tree(*state);
}

VX_STATUS find_record(MsgObj& directory, int32_t id, bool in_tree, MsgObj*& record) {
  record = id > 0 ? find_object(id) : nullptr;
  const bool ours = record != nullptr && record->ObjectKind == Kind::Item && record->ParentID == directory.ID;
  if (!ours || (in_tree && find_entity(*directory_state(directory), record->EntityID) == nullptr)) {
    record = nullptr;
    return VX_INVALID_ITEM_ID;
  }
  return kOk;
}

EntityObj* find_entity(DirectoryState& state, int32_t id) {
  if (id <= 0) return nullptr;
  EntityObj* entity = bucket(state, id);
  while (entity != nullptr && entity->EntityID != id) entity = entity->NextInBucket;
  return entity;
}

EntityObj* new_entity(DirectoryState& state, int32_t parent_id) {
  const int32_t id = free_entity_id(state);
  if (id == 0) {
    VX_LOG_ERR("VX_Dir_Add_Entity", "No entity IDs available!!");
    return nullptr;
  }
  auto* entity = new_object<EntityObj>(Pool::EntityObj);
  if (entity == nullptr) return nullptr;
  entity->EntityID = id;
  entity->ParentRecordID = parent_id;
  EntityObj*& head = bucket(state, id);
  entity->NextInBucket = head;
  head = entity;
  state.HighEntityID = std::max(state.HighEntityID, id);
  return entity;
}

void free_entity(DirectoryState& state, EntityObj* entity) {
  EntityObj** link = &bucket(state, entity->EntityID);
  while (*link != entity) link = &(*link)->NextInBucket;
  *link = entity->NextInBucket;
  if (state.Root == entity) state.Root = nullptr;
  pool_free(Pool::EntityObj, entity);
}

EntityObj* entity_below(MsgObj& directory, MsgObj& record) {
  int32_t id = 0;
  MsgObj* lower = nullptr;
  if (get_reference(record, kLower, id) != kOk || id == 0) return nullptr;
  if (find_record(directory, id, true, lower) != kOk) return nullptr;
  EntityObj* entity = find_entity(*directory_state(directory), lower->EntityID);
  return entity->ParentRecordID == record.ID ? entity : nullptr;
}

VX_STATUS first_record(MsgObj& directory, const EntityObj& entity, int32_t& id) {
  if (entity.ParentRecordID == 0) return get_reference(directory, kFirst, id);
  MsgObj* parent = nullptr;
  const VX_STATUS status = find_record(directory, entity.ParentRecordID, true, parent);
  return status == kOk ? get_reference(*parent, kLower, id) : status;
}

VX_STATUS records_of(MsgObj& directory, const EntityObj& entity, std::vector<MsgObj*>& records) {
  int32_t id = 0;
  VX_STATUS status = first_record(directory, entity, id);
  // A chain that somebody has changed by hand may run on for ever.
  for (int32_t left = entity.RecordCount; status == kOk && id != 0; --left) {
    MsgObj* record = nullptr;
    status = left > 0 ? find_record(directory, id, true, record) : VX_UNABLE_TO_GET_ITEM_ID;
    if (status != kOk || record->EntityID != entity.EntityID) return VX_UNABLE_TO_GET_ITEM_ID;
    records.push_back(record);
    status = get_reference(*record, kNext, id);
  }
  return status;
}

// --- Walking ---

namespace {

// Hands out a record and moves the entity's iterator to it.
VX_STATUS hand_out(MsgObj& directory, EntityObj& entity, int32_t id, RecordPlace& place) {
  place = {};
  place.entity = entity.EntityID;
  if (id == 0) return kOk;
  MsgObj* record = nullptr;
  int32_t next = 0;
  VX_STATUS status = find_record(directory, id, true, record);
  if (status == kOk) status = get_reference(*record, kNext, next);
  if (status != kOk) return status;
  place.record = id;
  place.name = record->ServiceName;
  place.last = next == 0;
  entity.CurrentRecordID = id;
  return kOk;
}

VX_STATUS hand_out_first(MsgObj& directory, EntityObj& entity, RecordPlace& place) {
  int32_t id = 0;
  const VX_STATUS status = first_record(directory, entity, id);
  if (status != kOk) return status;
  entity.CurrentRecordID = 0;
  return hand_out(directory, entity, id, place);
}

}  // namespace

VX_STATUS root_entity(MsgObj& directory, RecordPlace& place) {
  EntityObj* root = directory_state(directory)->Root;
  return root != nullptr ? hand_out_first(directory, *root, place) : VX_UNABLE_TO_GET_ITEM_ID;
}

VX_STATUS begin_entity(MsgObj& directory, int32_t entity_id, RecordPlace& place) {
  EntityObj* entity = find_entity(*directory_state(directory), entity_id);
  return entity != nullptr ? hand_out_first(directory, *entity, place) : VX_INVALID_ENTITY_ID;
}

VX_STATUS next_record(MsgObj& directory, int32_t entity_id, RecordPlace& place) {
  EntityObj* entity = find_entity(*directory_state(directory), entity_id);
  if (entity == nullptr) return VX_INVALID_ENTITY_ID;
  if (entity->CurrentRecordID == 0) return hand_out_first(directory, *entity, place);
  MsgObj* record = nullptr;
  int32_t next = 0;
  VX_STATUS status = find_record(directory, entity->CurrentRecordID, true, record);
  if (status == kOk) status = get_reference(*record, kNext, next);
  return status == kOk ? hand_out(directory, *entity, next, place) : status;
}

VX_STATUS lower_entity(MsgObj& directory, int32_t record_id, RecordPlace& place) {
  MsgObj* record = nullptr;
  int32_t lower = 0;
  VX_STATUS status = find_record(directory, record_id, true, record);
  if (status == kOk) status = get_reference(*record, kLower, lower);
  if (status != kOk || lower == 0) return status;
  EntityObj* entity = entity_below(directory, *record);
  return entity != nullptr ? hand_out_first(directory, *entity, place) : VX_INVALID_ITEM_ID;
}

VX_STATUS count_below(MsgObj& directory, int32_t record_id, int32_t& count) {
  MsgObj* record = nullptr;
  VX_STATUS status = find_record(directory, record_id, true, record);
  if (status != kOk) return status;
  count = 1;
  std::vector<MsgObj*> open = {record};
  while (!open.empty()) {
    record = open.back();
    open.pop_back();
    const EntityObj* entity = entity_below(directory, *record);
    if (entity == nullptr) continue;
    const std::size_t before = open.size();
    status = records_of(directory, *entity, open);
    if (status != kOk) return status;
    count += static_cast<int32_t>(open.size() - before);
  }
  return kOk;
}

// --- Linking after a read ---

namespace {

class Linker {
 public:
  Linker(MsgObj& directory, const std::vector<RecordOffset>& records, bool complete)
      : directory_(directory), state_(*directory_state(directory)), records_(records), complete_(complete) {}
  VX_STATUS run();

 private:
  // A chain that is being followed; `last` is the record before `next`.
  struct Level {
    EntityObj* entity;
    MsgObj* last;
    int32_t next;
  };
  void resolve(MsgObj& object, uint32_t tag);
  VX_STATUS open_level(int32_t parent_id, int32_t first);
  VX_STATUS step();
  void fail(VX_STATUS status) {
    if (complete_ && status_ == kOk) status_ = status;
  }

  MsgObj& directory_;
  DirectoryState& state_;
  const std::vector<RecordOffset>& records_;  // by ascending offset
  const bool complete_;
  VX_STATUS status_ = kOk;
  int told_ = 0;
  std::vector<Level> levels_;
};

constexpr int kMostLines = 100;  // of a directory that is broken all over

void Linker::resolve(MsgObj& object, uint32_t tag) {
  int32_t value = 0;
  if (get_reference(object, tag, value) != kOk || value == 0) return;
  const auto offset = static_cast<uint32_t>(value);
  const auto found = std::lower_bound(records_.begin(), records_.end(), offset,
                                      [](const RecordOffset& r, uint64_t at) { return r.offset < at; });
  const bool known = found != records_.end() && found->offset == offset;
  if (!known) {
    if (complete_ && ++told_ <= kMostLines) {
      VX_LOG_ERR("VXI_decode", "Invalid Directory Record Offset %ld", static_cast<long>(offset));
    }
    fail(VX_INVALID_DIRECTORY_RECORD_OFFSET);
  }
  fail(set_reference(object, tag, known ? found->record->ID : 0));
}

VX_STATUS Linker::open_level(int32_t parent_id, int32_t first) {
  EntityObj* entity = new_entity(state_, parent_id);
  if (entity == nullptr) return VX_SYSTEM_ERROR;
  if (parent_id == 0) state_.Root = entity;
  levels_.push_back({entity, nullptr, first});
  return kOk;
}

// One record further. A reference that can not be followed is cut, so that nobody follows it later.
VX_STATUS Linker::step() {
  Level& level = levels_.back();
  if (level.next == 0) {
    levels_.pop_back();
    return kOk;
  }
  MsgObj* record = nullptr;
  fail(find_record(directory_, level.next, false, record));
  if (record != nullptr && record->EntityID != 0) {
    if (++told_ <= kMostLines) {
      VX_LOG_ERR("VX_Open_File", "Circular reference in DICOMDIR! item %d already referenced", record->ID);
    }
    fail(VX_SYSTEM_ERROR);
    record = nullptr;
  }
  if (record == nullptr) {
    EntityObj* entity = level.entity;
    MsgObj* parent = entity->ParentRecordID != 0 ? find_object(entity->ParentRecordID) : &directory_;
    if (level.last != nullptr) {
      set_reference(*level.last, kNext, 0);
    } else if (parent != nullptr) {
      set_reference(*parent, parent == &directory_ ? kFirst : kLower, 0);
      if (parent != &directory_) free_entity(state_, entity);
    }
    levels_.pop_back();
    return kOk;
  }
  record->EntityID = level.entity->EntityID;
  level.entity->LastRecordID = record->ID;
  ++level.entity->RecordCount;
  ++state_.Count;
  level.last = record;
  int32_t lower = 0;
  fail(get_reference(*record, kNext, level.next));
  fail(get_reference(*record, kLower, lower));
  return lower != 0 ? open_level(record->ID, lower) : kOk;
}

VX_STATUS Linker::run() {
  free_tree(state_);
  resolve(directory_, kFirst);
  resolve(directory_, kLast);
  for (const RecordOffset& at : records_) {
    at.record->EntityID = 0;
    for (const uint32_t tag : {kNext, kLower, kMrdr}) resolve(*at.record, tag);
    fail(name_record(*at.record));
  }
  int32_t first = 0;
  if (get_reference(directory_, kFirst, first) != kOk) return status_;  // there is no root
  VX_STATUS status = open_level(0, first);
  while (status == kOk && !levels_.empty()) status = step();
  return status != kOk ? status : status_;
}

}  // namespace

VX_STATUS link_directory(MsgObj& directory, const std::vector<RecordOffset>& records, bool complete) {
  Guard lock(directory.Semaphore);
  return directory_state(directory) != nullptr ? Linker(directory, records, complete).run() : kOk;
}

// --- Offsets for a write ---

VX_STATUS record_offsets(MsgObj& directory, const StreamWriter& writer, std::vector<int32_t>& pairs) {
  const TagObj* sequence = find_records(directory);
  if (sequence == nullptr) return kOk;
  LengthQuery query;
  query.destination = writer.destination;
  query.undefined_lengths = writer.UndefinedLengths;
  query.application_id = writer.ApplicationID;
  uint64_t meta = 0;
  uint64_t before = 0;
  query.encoding = writer.encoding;
  VX_STATUS status = run_length(directory, 0x00020000U, 0x0002FFFFU, query, meta);
  query.encoding = writer.next;
  if (status == kOk) status = run_length(directory, 0, 0x0001FFFFU, query, before);
  uint64_t at = sizeof(FileInfo::Preamble) + sizeof(FileInfo::Prefix) + meta + before;
  if (status == kOk) status = run_length(directory, 0x00030000U, kDirectoryRecords - 1, query, before);
  at += before + (query.encoding.explicit_vr ? 12 : 8);
  pairs.reserve(2 * static_cast<std::size_t>(std::max(sequence->ValueCount, 0)));
  for (const ValueObj* value = sequence->FirstValue; status == kOk && value != nullptr; value = value->Next) {
    auto* record = static_cast<MsgObj*>(value->Data);
    if (record == nullptr) continue;
    uint64_t length = 0;
    status = run_length(*record, 0, 0xFFFFFFFFU, query, length);
    if (status == kOk && at > 0xFFFFFFFEU) status = VX_VALUE_TOO_LARGE;
    pairs.push_back(record->ID);
    pairs.push_back(static_cast<int32_t>(static_cast<uint32_t>(at)));
    at += length + (writer.UndefinedLengths ? 16 : 8);
  }
  return status;
}

}  // namespace vx
