// The sort of a directory: each entity by type and the values that its type sorts by, then (0004,1220) in the
// order of a walk.
#include <algorithm>
#include <cctype>
#include <string>
#include <unordered_map>

#include "codec/saved_data.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/text.h"
#include "media/directory.h"
#include "media/record_types.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {

using namespace directory_tags;

namespace {

constexpr std::size_t kMostKeys = 3;

// What one record is compared by, read once.
struct SortKey {
  MsgObj* record = nullptr;
  int type = 0;
  struct Value {
    bool is_number = false;
    int32_t number = 0;
    std::string text;  // in lower case; empty: no value
  } values[kMostKeys];
};

void set_key(SortKey::Value& value, int32_t vr, std::string_view text) {
  text = trim(text);
  value.is_number = vr == VX_VR_IS;
  value.number = value.is_number ? parse_int32(text) : 0;
  value.text.resize(text.size());
  std::transform(text.begin(), text.end(), value.text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
}

// Looks a text of one value up in saved data, which stay saved; false for what takes a decoder to tell.
bool peek_value(const MsgObj& record, uint32_t tag, SortKey::Value& value) {
  const SavedData* saved = saved_data(record);
  if (saved == nullptr || tag < saved->FirstTag || saved->Syntax != EXPLICIT_LITTLE_ENDIAN) return false;
  const uint8_t* bytes = saved->bytes();
  uint32_t left = saved->Length;
  for (uint32_t at = 0; left >= 8;) {
    const uint32_t found = load_tag(bytes + at, false);
    const int32_t vr = vr_from_letters(static_cast<char>(bytes[at + 4]), static_cast<char>(bytes[at + 5]));
    if (found > tag) return true;
    if (vr < 0 || has_long_header(vr)) return false;
    const uint32_t length = load16(bytes + at + 6, false);
    if (length > left - 8) return false;
    if (found == tag) {
      const std::string_view text(reinterpret_cast<const char*>(bytes + at + 8), length);
      if (!is_text_vr(vr) || text.find('\\') != std::string_view::npos) return false;
      set_key(value, vr, text);
      return true;
    }
    at += 8 + length;
    left -= 8 + length;
  }
  return left == 0;
}

VX_STATUS read_value(MsgObj& record, uint32_t tag, SortKey::Value& value) {
  if (peek_value(record, tag, value)) return kOk;
  VX_STATUS status = decode_up_to(record, tag);
  const TagObj* attribute = status == kOk ? find_tag(record, tag) : nullptr;
  if (attribute == nullptr || attribute->ValueCount < 1) return status;
  char scratch[80];
  std::string_view text;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  status = view_text(*attribute, cursor, scratch, text);
  if (status != kOk) return status == VX_NULL_VALUE ? kOk : status;
  set_key(value, attribute->VR, text);
  return kOk;
}

VX_STATUS read_key(MsgObj& record, const MsgObj& other, SortKey& key) {
  key.record = &record;
  key.type = record_type_number(record_type(record));
  std::size_t at = 0;
  for (const uint32_t tag : sort_tags(key.type)) {
    const VX_STATUS status = read_value(record, tag, key.values[at++]);
    if (status == kOk) continue;
    VX_LOG_ERR("VX_Dir_Sort", "ERROR comparing item %d with item %d for tag 0x%X: %s", record.ID, other.ID,
               tag, status_text(status));
    return status;
  }
  return kOk;
}

bool comes_before(const SortKey& a, const SortKey& b) {
  if (a.type != b.type) return a.type < b.type;
  for (std::size_t i = 0; i < kMostKeys; ++i) {
    const auto& left = a.values[i];
    const auto& right = b.values[i];
    if (left.text.empty() || right.text.empty()) {
      if (left.text.empty() == right.text.empty()) continue;
      return right.text.empty();  // what has no value goes last
    }
    if (left.is_number && right.is_number) {
      if (left.number != right.number) return left.number < right.number;
    } else if (left.text != right.text) {
      return left.text < right.text;
    }
  }
  return false;
}

// Stores a chain along `records` and the references to its ends.
VX_STATUS store_chain(MsgObj& directory, EntityObj& entity, const std::vector<MsgObj*>& records) {
  VX_STATUS status = kOk;
  for (std::size_t i = 0; i < records.size() && status == kOk; ++i) {
    status = set_reference(*records[i], kNext, i + 1 < records.size() ? records[i + 1]->ID : 0);
    if (status != kOk) {
      VX_LOG_ERR("sort", "ERROR couldn't set (0004,1400) of DICOMDIR %d, record %d, to 0: %s", directory.ID,
                 records[i]->ID, status_text(status));
    }
  }
  if (status != kOk) return status;
  const int32_t first = records.empty() ? 0 : records.front()->ID;
  const int32_t last = records.empty() ? 0 : records.back()->ID;
  entity.LastRecordID = last;
  if (entity.ParentRecordID != 0) {
    MsgObj* parent = nullptr;
    status = find_record(directory, entity.ParentRecordID, true, parent);
    if (status == kOk) status = set_reference(*parent, kLower, first);
    if (status != kOk) {
      VX_LOG_ERR("sort", "ERROR couldn't set (0004,1420) of DICOMDIR %d, record %d, to %d: %s", directory.ID,
                 entity.ParentRecordID, first, status_text(status));
    }
    return status;
  }
  status = set_reference(directory, kFirst, first);
  if (status != kOk) {
    VX_LOG_ERR("sort", "ERROR couldn't set (0004,1200) of DICOMDIR %d: %s", directory.ID,
               status_text(status));
    return status;
  }
  status = set_reference(directory, kLast, last);
  if (status != kOk) {
    VX_LOG_ERR("sort", "ERROR couldn't set (0004,1202) of DICOMDIR %d: %s", directory.ID,
               status_text(status));
  }
  return status;
}

VX_STATUS sort_entity(MsgObj& directory, EntityObj& entity, std::vector<MsgObj*>& records) {
  VX_STATUS status = records_of(directory, entity, records);
  if (status != kOk) {
    VX_LOG_ERR("sort", "ERROR retrieving entity count of DICOMDIR %d, entity %d: %s", directory.ID,
               entity.EntityID, status_text(status));
    return status;
  }
  if (records.size() < 2) return kOk;
  std::vector<SortKey> keys(records.size());
  for (std::size_t i = 0; i < records.size(); ++i) {
    status = read_key(*records[i], *records[i > 0 ? i - 1 : 1], keys[i]);
    if (status != kOk) return status;
  }
  std::vector<const SortKey*> order;
  order.reserve(keys.size());
  for (const SortKey& key : keys) order.push_back(&key);
  std::stable_sort(order.begin(), order.end(),
                   [](const SortKey* a, const SortKey* b) { return comes_before(*a, *b); });
  std::transform(order.begin(), order.end(), records.begin(), [](const SortKey* key) { return key->record; });
  return store_chain(directory, entity, records);
}

// The values of the sequence in the order given, then the records outside the tree that others refer to. What
// is in neither goes.
void reorder(MsgObj& directory, TagObj& sequence, const std::vector<MsgObj*>& order) {
  std::unordered_map<const MsgObj*, ValueObj*> values;
  std::vector<ValueObj*> left;
  std::vector<ValueObj*> kept;
  kept.reserve(order.size());
  values.reserve(order.size());
  for (ValueObj* value = sequence.FirstValue; value != nullptr; value = value->Next) {
    auto* record = static_cast<MsgObj*>(value->Data);
    const bool in_tree = record != nullptr && record->EntityID != 0;
    if (!in_tree || !values.emplace(record, value).second) left.push_back(value);
  }
  for (const MsgObj* record : order) {
    const auto found = values.find(record);
    if (found == values.end()) continue;
    kept.push_back(found->second);
    values.erase(found);
  }
  for (ValueObj* value : left) {
    auto* record = static_cast<MsgObj*>(value->Data);
    if (record != nullptr && record->EntityID == 0 && record_type(*record) == "MRDR") {
      kept.push_back(value);
    } else if (record != nullptr) {
      values.emplace(record, value);
    }
  }
  ValueObj* previous = nullptr;
  sequence.FirstValue = nullptr;
  for (ValueObj* value : kept) {
    (previous != nullptr ? previous->Next : sequence.FirstValue) = value;
    value->Next = nullptr;
    previous = value;
  }
  sequence.LastValue = previous;
  sequence.ValueCount = static_cast<int32_t>(kept.size());
  sequence.Length = static_cast<uint32_t>(kept.size());
  set_cursor(sequence, {});
  for (const auto& [record, value] : values) {
    auto* dropped = static_cast<MsgObj*>(value->Data);
    free_value(value);
    if (adjust_references(*dropped, -1) <= 0) free_item(*dropped, false);
  }
  if (kept.empty()) set_null(directory, sequence);
}

}  // namespace

VX_STATUS sort_directory(MsgObj& directory) {
  DirectoryState& state = *directory_state(directory);
  if (state.Root == nullptr) {
    VX_LOG_ERR("sort", "ERROR couldn't get root entity of DICOMDIR %d: %s", directory.ID,
               status_text(VX_UNABLE_TO_GET_ITEM_ID));
    return VX_UNABLE_TO_GET_ITEM_ID;
  }
  // Depth first: what is next to visit lies on top.
  std::vector<MsgObj*> order;
  std::vector<MsgObj*> open;
  std::vector<MsgObj*> records;
  const auto visit = [&](EntityObj& entity) {
    records.clear();
    const VX_STATUS status = sort_entity(directory, entity, records);
    open.insert(open.end(), records.rbegin(), records.rend());
    return status;
  };
  VX_STATUS status = visit(*state.Root);
  while (status == kOk && !open.empty()) {
    MsgObj* record = open.back();
    open.pop_back();
    order.push_back(record);
    if (EntityObj* below = entity_below(directory, *record)) status = visit(*below);
  }
  TagObj* sequence = find_records(directory);
  if (status == kOk && sequence != nullptr && !order.empty()) reorder(directory, *sequence, order);
  return status;
}

}  // namespace vx
