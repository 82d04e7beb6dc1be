#include "model/dictionary.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/config.h"
#include "frame/limits.h"
#include "frame/lock.h"
#include "frame/seams.h"
#include "frame/state.h"
#include "frame/text.h"
#include "model/dictionary_table.h"
#include "model/object.h"

namespace vx {
namespace {

// Written while the library starts and ends, read without a lock in between.
struct Table {
  const DictEntry* const* chains;  // null while there is no dictionary
  bool ready_made;                 // a caller's record, which needs no DICTIONARY_FILE
  DictionaryFile* file;            // owned; null for a caller's record
  uint32_t shift;                  // of the hash, to a slot number
  uint32_t mask;
};
Table table;
// The hash beside the chains; owned. Null if there was no memory, and for a caller's record until lookups are
// many: a program that asks a few times should not pay for a walk over all entries.
std::atomic<const DictEntry**> table_slots;
std::atomic<uint32_t> chain_walks;
constexpr uint32_t kWalksBeforeHash = 2048;  // the hash takes as long as several thousand walks
const DictEntry* file_chains[VX_DICTIONARY_CHAINS];

uint32_t first_slot(uint32_t tag, uint32_t code_hash) {
  const uint64_t key = (static_cast<uint64_t>(code_hash) << 32) | tag;
  return static_cast<uint32_t>((key * 0x9E3779B97F4A7C15U) >> table.shift);
}

std::string_view code_of(const DictEntry& entry) {
  return entry.PrivateCode == nullptr ? std::string_view() : std::string_view(entry.PrivateCode);
}

// The slot that holds the key, or the free one where it belongs. Standard tags have no code.
const DictEntry*& probe(const DictEntry** slots, uint32_t tag, std::string_view code) {
  const bool is_private_tag = is_private(tag);
  for (uint32_t at = first_slot(tag, is_private_tag ? hash_code(code) : 0);; ++at) {
    const DictEntry*& slot = slots[at & table.mask];
    if (slot == nullptr) return slot;
    if (slot->Tag == tag && (!is_private_tag || code_of(*slot) == code)) return slot;
  }
}

const DictEntry** make_slots(std::size_t entries) {
  uint32_t bits = 6;
  while ((std::size_t{1} << bits) < entries * 2) ++bits;
  table.shift = 64 - bits;
  table.mask = (1U << bits) - 1;
  const std::size_t size = sizeof(DictEntry*) << bits;
  auto* slots = static_cast<const DictEntry**>(std::calloc(1, size));
  if (slots != nullptr) touch_memory(slots, size);
  return slots;
}

void hash_chains() {
  const Guard guard(state().dictionSemaphore);
  if (table_slots.load(std::memory_order_relaxed) != nullptr) return;
  std::size_t count = 0;
  for (int i = 0; i < VX_DICTIONARY_CHAINS; ++i) {
    for (const DictEntry* entry = table.chains[i]; entry != nullptr; entry = entry->Next) ++count;
  }
  const DictEntry** slots = make_slots(count);
  if (slots == nullptr) return;
  for (int i = 0; i < VX_DICTIONARY_CHAINS; ++i) {
    for (const DictEntry* entry = table.chains[i]; entry != nullptr; entry = entry->Next) {
      const DictEntry*& slot = probe(slots, entry->Tag, code_of(*entry));
      if (slot == nullptr) slot = entry;
    }
  }
  table_slots.store(slots, std::memory_order_release);
}

const DictEntry* find_entry(uint32_t tag, std::string_view code) {
  if (const DictEntry** slots = table_slots.load(std::memory_order_acquire)) return probe(slots, tag, code);
  if (table.chains == nullptr) return nullptr;
  if (chain_walks.fetch_add(1, std::memory_order_relaxed) == kWalksBeforeHash) hash_chains();
  for (const DictEntry* entry = table.chains[tag % VX_DICTIONARY_CHAINS]; entry != nullptr;
       entry = entry->Next) {
    if (entry->Tag == tag && (!is_private(tag) || code_of(*entry) == code)) return entry;
  }
  return nullptr;
}

// The text of DICTIONARY_FILE that was last seen to have a value. Looking into a text takes a lock, which has
// no place in every lookup; its address does not.
std::atomic<const char*> seen_file;

bool has_dictionary_file() {
  const char*& setting = config().string_values[VX_CFG_DICTIONARY_FILE];
  const char* text = std::atomic_ref<const char*>(setting).load(std::memory_order_relaxed);
  if (text == seen_file.load(std::memory_order_relaxed)) return true;
  if (config_first_char(VX_CFG_DICTIONARY_FILE) == '\0') return false;
  seen_file.store(text, std::memory_order_relaxed);
  return true;
}

int32_t override_vr(uint32_t tag, int32_t vr) {
  switch (tag) {
    case 0x00081190:
      return config_bool(VX_CFG_ATT_00081190_USE_UT_VR) ? VX_VR_UT : vr;
    case 0x00287FE0:
      return config_bool(VX_CFG_ATT_00287FE0_USE_UT_VR) ? VX_VR_UT : vr;
    case 0x0040E010:
      return config_bool(VX_CFG_ATT_0040E010_USE_UT_VR) ? VX_VR_UT : vr;
    case 0x0074100A:
      return config_bool(VX_CFG_ATT_0074100A_USE_ST_VR) ? VX_VR_ST : vr;
    default:
      return vr;
  }
}

}  // namespace

uint32_t hash_code(std::string_view code) {
  constexpr uint64_t kFactor = 0x9E3779B97F4A7C15U;
  uint64_t hash = code.size() * kFactor;
  while (code.size() >= 8) {
    uint64_t word = 0;
    std::memcpy(&word, code.data(), 8);
    hash = (hash ^ word) * kFactor;
    hash ^= hash >> 29;
    code.remove_prefix(8);
  }
  uint64_t word = 0;
  if (!code.empty()) std::memcpy(&word, code.data(), code.size());
  hash = (hash ^ word) * kFactor;
  return static_cast<uint32_t>(hash >> 32) | 1U;
}

void install_dictionary(DictionaryFile* file) {
  table.file = file;
  table.chains = file_chains;
  const DictEntry** slots = make_slots(file->entries.size());
  for (DictEntry& entry : file->entries) {
    const DictEntry*& head = file_chains[entry.Tag % VX_DICTIONARY_CHAINS];
    entry.Next = head;
    head = &entry;
    // A later entry hides an earlier one of the same key, as at the head of a chain.
    if (slots != nullptr) probe(slots, entry.Tag, code_of(entry)) = &entry;
  }
  table_slots.store(slots, std::memory_order_release);
}

void install_dictionary(const DictEntry* const* chains) {
  table.chains = chains;
  table.ready_made = true;
}

VX_STATUS dictionary_take_record(const DictionaryRecord* record) {
  dictionary_drop();
  if (record == nullptr || record->chains == nullptr) return VX_DDFILE_ERROR;
  if (record->version != nullptr && std::strcmp(record->version, library_banner()) != 0) {
    return VX_INVALID_VERSION;
  }
  install_dictionary(record->chains);
  return kOk;
}

void dictionary_drop() {
  std::free(table_slots.exchange(nullptr));
  chain_walks.store(0, std::memory_order_relaxed);
  delete table.file;
  table = Table{};
  seen_file.store(nullptr, std::memory_order_relaxed);
  std::memset(file_chains, 0, sizeof file_chains);
}

VX_STATUS dictionary_lookup(uint32_t tag, std::string_view creator, DictInfo& info) {
  if (!table.ready_made && !has_dictionary_file()) return VX_MISSING_CONFIG_PARM;
  if (is_private(tag)) {
    if (tag_element(tag) == 0) {
      info = {VX_VR_UL, 1, 1, nullptr};
      return kOk;
    }
    tag &= 0xFFFF00FFU;
    creator = trim_right(creator.substr(0, kMaxCreatorCode));
  } else if (is_repeating(tag)) {
    tag = repeating_base(tag);
  }
  const DictEntry* entry = find_entry(tag, creator);
  if (entry == nullptr) return VX_INVALID_TAG;
  info = {override_vr(tag, entry->VR), entry->VMLow, entry->VMHigh,
          entry->Name == nullptr ? "" : entry->Name};
  return kOk;
}

VX_STATUS dictionary_describe(uint32_t tag, std::string_view creator, DictInfo& info, char* buffer,
                              int32_t size) {
  if (size < 1) return VX_BUFFER_TOO_SMALL;
  const VX_STATUS status = dictionary_lookup(tag, creator, info);
  if (status != kOk) return status;
  const auto room = static_cast<std::size_t>(size);
  if (info.name != nullptr) return copy_text(buffer, room, info.name) ? kOk : VX_BUFFER_TOO_SMALL;
  // "Group 0009 Length": whole or not at all.
  char name[24];
  const int length = std::snprintf(name, sizeof name, "Group %04X Length", tag_group(tag));
  if (static_cast<std::size_t>(length) >= room) return VX_BUFFER_TOO_SMALL;
  copy_text(buffer, room, {name, static_cast<std::size_t>(length)});
  return kOk;
}

VX_STATUS dictionary_name(uint32_t tag, std::string_view creator, char* buffer, int32_t size) {
  DictInfo info{};
  return dictionary_describe(tag, creator, info, buffer, size);
}

}  // namespace vx
