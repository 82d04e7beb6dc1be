#include "association/service_lists.h"

#include <algorithm>

#include "association/service_list_parts.h"
#include "config/transfer_syntax.h"
#include "frame/log.h"
#include "frame/named_locks.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {
namespace service_lists {

constinit Lists g_lists{};

namespace {

const NamedLock kNamedLocks[] = {{"S.serviceListHeadSemaphore", g_lists.services_lock},
                                 {"S.serviceNameListHeadSemaphore", g_lists.named_lock},
                                 {"S.syntaxListHeadSemaphore", g_lists.syntaxes_lock}};

}  // namespace

void unlink_record(CObList& list, const void* record) {
  list_remove(list, list_find(list, record));
}

// --- Syntax lists ---

void free_list(SyntaxList* list) {
  if (list == nullptr) return;
  release(list->syntaxes);
  pool_free(Pool::SyntaxListObj, list);
}

SyntaxList* add_syntax_list(const char* function, const char* name,
                            std::span<const VX_TRANSFER_SYNTAX> syntaxes) {
  auto* list = new_object<SyntaxList>(Pool::SyntaxListObj);
  if (list == nullptr) {
    VX_LOG_ERR(function, "No memory for syntax node");
    return nullptr;
  }
  copy_text(list->name, sizeof list->name, name);
  list->syntaxes = static_cast<VX_TRANSFER_SYNTAX*>(allocate_raw(syntaxes.size_bytes()));
  if (list->syntaxes == nullptr) {
    VX_LOG_ERR(function, "No memory for transfer syntax list");
  } else {
    list->count = static_cast<int32_t>(syntaxes.size());
    std::copy(syntaxes.begin(), syntaxes.end(), list->syntaxes);
    if (list_add_tail(g_lists.syntaxes, list) != nullptr) return list;
    VX_LOG_ERR(function, "Could not add new transfer syntax list");
  }
  free_list(list);
  return nullptr;
}

// --- Service lists ---

void free_list(ServiceList* list) {
  if (list == nullptr) return;
  for (int32_t i = 0; list->entries != nullptr && i < list->count; ++i)
    release(list->entries[i].extendedInfo);
  release(list->entries);
  pool_free(Pool::ServListObj, list);
}

ServiceList* new_list(const char* function, const char* name, std::size_t count) {
  auto* list = new_object<ServiceList>(Pool::ServListObj);
  if (list == nullptr) {
    VX_LOG_ERR(function, "No memory for service list");
    return nullptr;
  }
  copy_text(list->name, sizeof list->name, name);
  list->entries = static_cast<ServiceEntry*>(allocate(count * sizeof(ServiceEntry)));
  if (list->entries == nullptr) {
    VX_LOG_ERR(function, "No memory for service numbers");
    free_list(list);
    return nullptr;
  }
  list->count = static_cast<int32_t>(count);
  for (ServiceEntry& entry : std::span(list->entries, count)) entry.scuRole = entry.scpRole = kNoRole;
  list->maxOperationsInvoked = list->maxOperationsPerformed = kNoWindow;
  return list;
}

bool copy_bytes(const void* data, uint32_t length, uint8_t*& out) {
  out = static_cast<uint8_t*>(allocate_raw(length));
  if (out != nullptr) std::memcpy(out, data, length);
  return out != nullptr;
}

bool is_echo(const SopObj* service) {
  return service != nullptr && service->name != nullptr && std::strcmp(service->name, kEchoServiceName) == 0;
}

}  // namespace service_lists

using namespace service_lists;

namespace {

// The list that answers verification.
void make_echo_list() {
  if (find_named<ServiceList>(g_lists.services, kEchoServiceList) != nullptr) return;
  const SopObj* echo = find_service(kEchoServiceName);
  SyntaxList* syntaxes = VXI_GetSyntaxList(kDefaultSyntaxList);
  if (echo == nullptr || syntaxes == nullptr) return;
  ServiceList* list = new_list(kGetServiceNumbers, kEchoServiceList, 1);
  if (list == nullptr) return;
  list->entries[0].service = echo;
  list->entries[0].syntaxList = syntaxes;
  list->hasEcho = true;
  if (list_add_tail(g_lists.services, list) == nullptr) free_list(list);
}

}  // namespace

// --- Look-ups ---

SyntaxList* VXI_GetSyntaxList(const char* name) {
  constexpr VX_TRANSFER_SYNTAX kDefaults[] = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN,
                                              EXPLICIT_BIG_ENDIAN, IMPLICIT_BIG_ENDIAN};
  const Guard guard(g_lists.syntaxes_lock);
  if (find_named<SyntaxList>(g_lists.syntaxes, kDefaultSyntaxList) == nullptr) {
    add_syntax_list(kGetSyntaxList, kDefaultSyntaxList, kDefaults);
  }
  if (name == nullptr) {
    VX_LOG_ERR(kGetSyntaxList, "NULL AsyntaxNameList parm!!");
    return nullptr;
  }
  SyntaxList* list = find_named<SyntaxList>(g_lists.syntaxes, name);
  return list != nullptr || std::strlen(name) >= sizeof SyntaxList::name ? list : load_syntax_list(name);
}

ServiceList* VXI_GetServiceNumbers(const char* name) {
  const Guard guard(g_lists.services_lock);
  make_echo_list();
  if (name == nullptr) {
    VX_LOG_ERR(kGetServiceNumbers, "NULL AserviceListName parm!!");
    return nullptr;
  }
  ServiceList* list = find_named<ServiceList>(g_lists.services, name);
  return list != nullptr || std::strlen(name) >= sizeof ServiceList::name ? list : load_service_list(name);
}

void drop_service_lists() {
  g_lists.services = g_lists.named = g_lists.syntaxes = CObList{};
}

}  // namespace vx
