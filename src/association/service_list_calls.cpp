// Lists that the application makes.
#include <algorithm>
#include <cstring>
#include <vector>

#include "association/service_list_calls.h"
#include "association/service_list_parts.h"
#include "config/transfer_syntax.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {

using namespace service_lists;

VX_STATUS new_syntax_list(const char* name, const VX_TRANSFER_SYNTAX* syntaxes) {
  constexpr char kFunction[] = "VX_NewSyntaxList";
  const Guard guard(g_lists.syntaxes_lock);
  if (VXI_GetSyntaxList(name) != nullptr) return VX_DUPLICATE_NAME;
  std::size_t count = 0;
  for (; syntaxes[count] != 0; ++count) {
    char uid[68];
    if (syntax_uid(syntaxes[count], uid, sizeof uid) == 0) return VX_SYSTEM_ERROR;
    if (std::find(syntaxes, syntaxes + count, syntaxes[count]) != syntaxes + count)
      return VX_DUPLICATE_SYNTAX;
  }
  if (count == 0) {
    VX_LOG_ERR(kFunction, "Empty syntax list");
    return VX_EMPTY_LIST;
  }
  if (std::strlen(name) >= sizeof SyntaxList::name) {
    VX_LOG_ERR(kFunction, "Syntax list name \"%s\" is too long", name);
    return VX_SYSTEM_ERROR;
  }
  return add_syntax_list(kFunction, name, {syntaxes, count}) != nullptr ? kOk : VX_SYSTEM_ERROR;
}

VX_STATUS new_service(const char* function, const char* name, const SopObj* service,
                      const NewService& wanted) {
  const Guard guard(g_lists.named_lock);
  if (find_named<NamedService>(g_lists.named, name) != nullptr) return VX_DUPLICATE_NAME;
  if (service == nullptr) return VX_INVALID_SOP_CLASS_UID;
  if (std::strlen(name) >= sizeof NamedService::name) {
    VX_LOG_ERR(function, "Service name \"%s\" is too long", name);
    return VX_SYSTEM_ERROR;
  }
  SyntaxList* syntaxes =
      VXI_GetSyntaxList(wanted.syntax_list != nullptr ? wanted.syntax_list : kDefaultSyntaxList);
  if (syntaxes == nullptr) {
    VX_LOG_WARN(function, "Bad Syntax List Name");
    return VX_SYSTEM_ERROR;
  }
  auto* record = static_cast<NamedService*>(allocate(sizeof(NamedService)));
  if (record == nullptr) {
    VX_LOG_ERR(function, "No memory for service name list");
    return VX_SYSTEM_ERROR;
  }
  copy_text(record->name, sizeof record->name, name);
  ServiceEntry& entry = record->entry;
  entry.service = service;
  entry.syntaxList = syntaxes;
  entry.scuRole = wanted.scu_role;
  entry.scpRole = wanted.scp_role;
  const char* failure = nullptr;
  if (wanted.info != nullptr && wanted.info_length != 0) {
    if (copy_bytes(wanted.info, wanted.info_length, entry.extendedInfo)) {
      entry.extendedInfoLength = wanted.info_length;
    } else {
      failure = "No memory for extended negotiation information";
    }
  }
  if (failure == nullptr && list_add_tail(g_lists.named, record) == nullptr) {
    failure = "Unable to add service name to system service name list";
  }
  if (failure == nullptr) return kOk;
  VX_LOG_ERR(function, "%s", failure);
  release(entry.extendedInfo);
  release(record);
  return VX_SYSTEM_ERROR;
}

namespace {

// The named services of a null-ended array; each may come once.
VX_STATUS resolve_services(const char* function, const char* const* names,
                           std::vector<const NamedService*>& services) {
  for (; *names != nullptr; ++names) {
    if (**names == '\0') {
      VX_LOG_ERR(function, "NULL Name Specifid for Service");
      return VX_SYSTEM_ERROR;
    }
    const auto* service = find_named<NamedService>(g_lists.named, *names);
    if (service == nullptr) {
      VX_LOG_ERR(function, "Missing Service %s", *names);
      return VX_MISSING_NAME;
    }
    if (std::find(services.begin(), services.end(), service) != services.end()) {
      VX_LOG_ERR(function, "Duplicate Service");
      return VX_DUPLICATE_NAME;
    }
    services.push_back(service);
  }
  if (!services.empty()) return kOk;
  VX_LOG_ERR(function, "Bad service list name");
  return VX_SYSTEM_ERROR;
}

void copy_entry(const char* function, const ServiceEntry& from, ServiceEntry& to) {
  to = from;
  to.extendedInfo = nullptr;
  to.extendedInfoLength = 0;
  if (from.extendedInfo == nullptr) return;
  if (copy_bytes(from.extendedInfo, from.extendedInfoLength, to.extendedInfo)) {
    to.extendedInfoLength = from.extendedInfoLength;
  } else {
    VX_LOG_ERR(function, "No memory for extended info.  Extended info will not be negotiated.");
  }
}

}  // namespace

VX_STATUS new_proposed_list(const char* function, const char* name, const char* const* services,
                            uint16_t invoked, uint16_t performed) {
  if (*name == '\0') {
    VX_LOG_ERR(function, "Empty service list name");
    return VX_SYSTEM_ERROR;
  }
  if (std::strlen(name) >= sizeof ServiceList::name) {
    VX_LOG_ERR(function, "Service list name \"%s\" is too long", name);
    return VX_SYSTEM_ERROR;
  }
  const Guard guard(g_lists.services_lock);
  if (VXI_GetServiceNumbers(name) != nullptr) return VX_DUPLICATE_NAME;
  const Guard named_guard(g_lists.named_lock);
  std::vector<const NamedService*> found;
  if (const VX_STATUS status = resolve_services(function, services, found); status != kOk) return status;
  ServiceList* list = new_list(function, name, found.size());
  if (list == nullptr) return VX_SYSTEM_ERROR;
  // A window of one operation each way is what goes without saying.
  const bool window = invoked != 1 || performed != 1;
  list->maxOperationsInvoked = window ? invoked : kNoWindow;
  list->maxOperationsPerformed = window ? performed : kNoWindow;
  for (std::size_t i = 0; i < found.size(); ++i) {
    copy_entry(function, found[i]->entry, list->entries[i]);
    if (is_echo(found[i]->entry.service)) list->hasEcho = true;
  }
  if (list_add_tail(g_lists.services, list) != nullptr) return kOk;
  VX_LOG_ERR(function, "No memory for service node");
  free_list(list);
  return VX_SYSTEM_ERROR;
}

VX_STATUS free_service_list(const char* name) {
  const Guard guard(g_lists.services_lock);
  auto* list = find_named<ServiceList>(g_lists.services, name);
  if (list == nullptr) return VX_INVALID_SERVICE_LIST_NAME;
  unlink_record(g_lists.services, list);
  free_list(list);
  return kOk;
}

VX_STATUS free_service(const char* name) {
  const Guard guard(g_lists.named_lock);
  auto* service = find_named<NamedService>(g_lists.named, name);
  if (service == nullptr) return VX_INVALID_SERVICE_NAME;
  unlink_record(g_lists.named, service);
  release(service->entry.extendedInfo);
  release(service);
  return kOk;
}

namespace {

// The caller holds the lock of the service lists.
bool is_referenced(const SyntaxList& list) {
  for (CNode* node = g_lists.services.Head; node != nullptr; node = node->Next) {
    for (const ServiceEntry& entry : entries_of(*static_cast<ServiceList*>(node->Data))) {
      if (entry.syntaxList == &list) return true;
    }
  }
  return false;
}

}  // namespace

// A list that a service list goes on using is only forgotten; its memory goes with the pool.
VX_STATUS free_syntax_list(const char* name) {
  constexpr char kFunction[] = "VX_FreeSyntaxList";
  const Guard services_guard(g_lists.services_lock);
  const Guard named_guard(g_lists.named_lock);
  const Guard guard(g_lists.syntaxes_lock);
  auto* list = find_named<SyntaxList>(g_lists.syntaxes, name);
  if (list == nullptr) {
    VX_LOG_ERR(kFunction, "Syntax List was not loaded");
    return VX_INVALID_SYNTAX_NAME;
  }
  for (CNode* node = g_lists.named.Head; node != nullptr; node = node->Next) {
    if (static_cast<NamedService*>(node->Data)->entry.syntaxList != list) continue;
    VX_LOG_ERR(kFunction, "Syntax List In Use");
    return VX_SYNTAX_IN_USE;
  }
  unlink_record(g_lists.syntaxes, list);
  if (!is_referenced(*list)) free_list(list);
  return kOk;
}

}  // namespace vx
