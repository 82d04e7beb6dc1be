// Between the files of service lists: the lists themselves, and what makes and finds their records.
#pragma once

#include <cstring>
#include <span>

#include "association/service_lists.h"
#include "frame/list.h"
#include "frame/lock.h"

namespace vx::service_lists {

// A service under a name of its own, with what it is proposed with.
struct NamedService {
  char name[130];
  ServiceEntry entry;
};

// The three lists and their locks, in the order in which the locks are taken.
struct Lists {
  CObList services;  // of ServiceList
  Lock services_lock;
  CObList named;  // of NamedService
  Lock named_lock;
  CObList syntaxes;  // of SyntaxList
  Lock syntaxes_lock;
};
extern constinit Lists g_lists;

template <typename T>
T* find_named(const CObList& list, const char* name) {
  for (CNode* node = list.Head; node != nullptr; node = node->Next) {
    auto* record = static_cast<T*>(node->Data);
    if (std::strcmp(record->name, name) == 0) return record;
  }
  return nullptr;
}
void unlink_record(CObList& list, const void* record);

bool is_echo(const SopObj* service);
bool copy_bytes(const void* data, uint32_t length, uint8_t*& out);

// Adds a list; the caller holds the lock. Null after a line in the log.
SyntaxList* add_syntax_list(const char* function, const char* name,
                            std::span<const VX_TRANSFER_SYNTAX> syntaxes);
// A list of empty entries that is in no list yet; null after a line in the log.
ServiceList* new_list(const char* function, const char* name, std::size_t count);
// Null is fine.
void free_list(SyntaxList* list);
void free_list(ServiceList* list);

// The function that lines about the lists of the profile name.
inline constexpr char kGetSyntaxList[] = "VXI_GetSyntaxList";
inline constexpr char kGetServiceNumbers[] = "VXI_GetServiceNumbers";
// From the applications profile, into the lists. The caller holds the lock. Null when the section is not
// there, or after a line in the log.
SyntaxList* load_syntax_list(const char* name);
ServiceList* load_service_list(const char* name);

}  // namespace vx::service_lists
