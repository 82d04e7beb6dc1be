#include "association/service_lists.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "association/service_list_calls.h"
#include "config/config.h"
#include "config/transfer_syntax.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/named_locks.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {
namespace {

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
constinit Lists g_lists{};
const NamedLock kNamedLocks[] = {{"S.serviceListHeadSemaphore", g_lists.services_lock},
                                 {"S.serviceNameListHeadSemaphore", g_lists.named_lock},
                                 {"S.syntaxListHeadSemaphore", g_lists.syntaxes_lock}};

template <typename T>
T* find_named(const CObList& list, const char* name) {
  for (CNode* node = list.Head; node != nullptr; node = node->Next) {
    auto* record = static_cast<T*>(node->Data);
    if (std::strcmp(record->name, name) == 0) return record;
  }
  return nullptr;
}

void unlink_record(CObList& list, const void* record) {
  list_remove(list, list_find(list, record));
}

bool begins_with(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && equals_ignoring_case(text.substr(0, prefix.size()), prefix);
}

// --- Syntax lists ---

void free_list(SyntaxList* list) {
  if (list == nullptr) return;
  release(list->syntaxes);
  pool_free(Pool::SyntaxListObj, list);
}

// Adds a list; the caller holds the lock. Null after a line in the log.
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

SyntaxList* load_syntax_list(const char* name) {
  constexpr char kFunction[] = "VXI_GetSyntaxList";
  ProfileSection section(name);
  ProfileEntry entry{};
  if (!section.found()) return nullptr;
  if (!section.next(entry) || !equals_ignoring_case(entry.key, "SYNTAXES_SUPPORTED")) {
    VX_LOG_ERR(kFunction, "Syntax List \"%s\" is not a syntax list", name);
    return nullptr;
  }
  const int32_t count = parse_int32(entry.value);
  if (count < 1) {
    VX_LOG_ERR(kFunction, "Trouble accessing %s", name);
    VX_LOG_ERR(kFunction, "|   SYNTAXES_SUPPORTED must be > 1");
    return nullptr;
  }
  std::vector<VX_TRANSFER_SYNTAX> syntaxes;
  while (syntaxes.size() < static_cast<std::size_t>(count)) {
    if (!section.next(entry)) {
      VX_LOG_ERR(kFunction, "Too few syntaxes listed for syntax list [%s]", name);
      return nullptr;
    }
    VX_TRANSFER_SYNTAX syntax = 0;
    if (syntax_from_name(entry.value, syntax) != kOk) {
      VX_LOG_ERR(kFunction, "%s is an unknown transfer syntax", entry.value);
      return nullptr;
    }
    syntaxes.push_back(syntax);
  }
  return add_syntax_list(kFunction, name, syntaxes);
}

// --- Service lists ---

void free_list(ServiceList* list) {
  if (list == nullptr) return;
  for (int32_t i = 0; list->entries != nullptr && i < list->count; ++i)
    release(list->entries[i].extendedInfo);
  release(list->entries);
  pool_free(Pool::ServListObj, list);
}

// A list of empty entries that is in no list yet; null after a line in the log.
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

// One service list while its section is read.
class ListLoader {
 public:
  explicit ListLoader(ServiceList& list) : list_(list) {}

  bool take(const ProfileEntry& entry) {
    for (const Rule& rule : kRules) {
      const std::string_view prefix = rule.prefix;
      if (!begins_with(entry.key, prefix)) continue;
      const int32_t number = parse_int32(std::string_view(entry.key).substr(prefix.size()));
      ServiceEntry* target = number >= 1 && number <= list_.count ? &list_.entries[number - 1] : nullptr;
      if (target == nullptr && rule.numbered) {
        if (rule.out_of_range != nullptr) warn_out_of_range(rule, entry.value);
        return true;
      }
      return (this->*rule.take)(target, entry.value);
    }
    return true;
  }

  // What the section left out.
  bool complete() {
    for (int32_t i = 0; i < list_.count; ++i) {
      ServiceEntry& entry = list_.entries[i];
      if (entry.service == nullptr) {
        VX_LOG_ERR(kFunction, "Service name for service number %d missing", i + 1);
        return false;
      }
      if (entry.syntaxList == nullptr) entry.syntaxList = VXI_GetSyntaxList(kDefaultSyntaxList);
      if (entry.syntaxList == nullptr) {
        VX_LOG_ERR(kFunction, "Unable to set default syntax list");
        return false;
      }
    }
    return true;
  }

  static constexpr char kFunction[] = "VXI_GetServiceNumbers";

 private:
  struct Rule {
    const char* prefix;
    bool numbered;
    const char* out_of_range;  // what the warning calls it; null: no warning
    bool (ListLoader::*take)(ServiceEntry*, const char*);
  };

  static void warn_out_of_range(const Rule& rule, const char* value) {
    VX_LOG_WARN(kFunction, "Found %s %s assigned in list out of range", rule.out_of_range, value);
  }

  bool take_invoked(ServiceEntry*, const char* value) {
    return take_window(list_.maxOperationsInvoked, value);
  }
  bool take_performed(ServiceEntry*, const char* value) {
    return take_window(list_.maxOperationsPerformed, value);
  }
  static bool take_window(uint16_t& window, const char* value) {
    window = static_cast<uint16_t>(std::min(parse_uint32(value), uint32_t{kNoWindow} - 1));
    return true;
  }

  bool take_extended(ServiceEntry* entry, const char* value) {
    std::vector<uint8_t> bytes;
    std::string_view rest = trim(value);
    while (!rest.empty()) {
      const std::string_view word = rest.substr(0, rest.find(' '));
      uint32_t byte = 0;
      if (!read_byte(word, byte)) {
        VX_LOG_ERR(kFunction, "Invalid extended negotiation, not using value: %s", value);
        return true;
      }
      bytes.push_back(static_cast<uint8_t>(byte));
      rest = trim_left(rest.substr(word.size()));
    }
    release(entry->extendedInfo);
    entry->extendedInfo = nullptr;
    entry->extendedInfoLength = 0;
    if (bytes.empty()) return true;
    if (!copy_bytes(bytes.data(), static_cast<uint32_t>(bytes.size()), entry->extendedInfo)) return false;
    entry->extendedInfoLength = static_cast<uint32_t>(bytes.size());
    return true;
  }
  static bool read_byte(std::string_view word, uint32_t& byte) {
    if (begins_with(word, "0x")) word.remove_prefix(2);
    if (word.empty()) return false;
    for (const char c : word) {
      const int digit = hex_digit(c);
      if (digit < 0) return false;
      byte = byte * 16 + static_cast<uint32_t>(digit);
      if (byte > 0xFF) return false;
    }
    return true;
  }

  bool take_related(ServiceEntry* entry, const char* value) {
    copy_text(entry->relatedGeneralList, sizeof entry->relatedGeneralList, value);
    return true;
  }
  bool take_class(ServiceEntry* entry, const char* value) {
    copy_text(entry->serviceClassUid, sizeof entry->serviceClassUid, value);
    return true;
  }
  bool take_service(ServiceEntry* entry, const char* value) {
    entry->service = find_service(value);
    if (entry->service == nullptr) VX_LOG_ERR(kFunction, "%s is an unknown service", value);
    if (is_echo(entry->service)) list_.hasEcho = true;
    return entry->service != nullptr;
  }
  bool take_syntaxes(ServiceEntry* entry, const char* value) {
    entry->syntaxList = VXI_GetSyntaxList(value);
    if (entry->syntaxList == nullptr) VX_LOG_ERR(kFunction, "Syntax List was not loaded");
    return entry->syntaxList != nullptr;
  }
  bool take_role(ServiceEntry* entry, const char* value) {
    struct Role {
      const char* name;
      uint8_t scu, scp;
    };
    static constexpr Role kRoles[] = {{"SCU", 1, 0}, {"SCP", 0, 1}, {"BOTH", 1, 1}};
    for (const Role& role : kRoles) {
      if (!equals_ignoring_case(value, role.name)) continue;
      entry->scuRole = role.scu;
      entry->scpRole = role.scp;
      return true;
    }
    VX_LOG_WARN(kFunction, "Found an invalid role definition:  '%s'. Role must be SCU, SCP, or BOTH.", value);
    return true;
  }

  // In this order: a longer prefix comes before the one that it begins with.
  static const Rule kRules[8];
  ServiceList& list_;
};

const ListLoader::Rule ListLoader::kRules[8] = {
    {"MAX_OPERATIONS_INVOKED", false, nullptr, &ListLoader::take_invoked},
    {"MAX_OPERATIONS_PERFORMED", false, nullptr, &ListLoader::take_performed},
    {"EXT_NEG_INFO_", true, nullptr, &ListLoader::take_extended},
    {"REL_GENERAL_", true, nullptr, &ListLoader::take_related},
    {"SERVICE_CLASS_", true, nullptr, &ListLoader::take_class},
    {"SERVICE_", true, "service", &ListLoader::take_service},
    {"SYNTAX_LIST_", true, "syntax list", &ListLoader::take_syntaxes},
    {"ROLE_", true, "role", &ListLoader::take_role},
};

ServiceList* load_service_list(const char* name) {
  constexpr const char* kFunction = ListLoader::kFunction;
  ProfileSection section(name);
  ProfileEntry entry{};
  if (!section.found()) return nullptr;
  if (!section.next(entry) || !equals_ignoring_case(entry.key, "SERVICES_SUPPORTED")) {
    VX_LOG_ERR(
        kFunction,
        "Service List \"%s\" is not a valid service list.  SERVICES_SUPPORTED must be first item in list",
        name);
    return nullptr;
  }
  const int32_t count = parse_int32(entry.value);
  if (count < 1) {
    VX_LOG_ERR(kFunction, "Trouble accessing %s", name);
    VX_LOG_ERR(kFunction, "|   SERVICES_SUPPORTED must be greater than 1");
    return nullptr;
  }
  ServiceList* list = new_list(kFunction, name, static_cast<std::size_t>(count));
  if (list == nullptr) return nullptr;
  ListLoader loader(*list);
  bool good = true;
  while (good && section.next(entry)) good = loader.take(entry);
  if (good && loader.complete() && list_add_tail(g_lists.services, list) != nullptr) return list;
  free_list(list);
  return nullptr;
}

// The list that answers verification.
void make_echo_list() {
  if (find_named<ServiceList>(g_lists.services, kEchoServiceList) != nullptr) return;
  const SopObj* echo = find_service(kEchoServiceName);
  SyntaxList* syntaxes = VXI_GetSyntaxList(kDefaultSyntaxList);
  if (echo == nullptr || syntaxes == nullptr) return;
  ServiceList* list = new_list(ListLoader::kFunction, kEchoServiceList, 1);
  if (list == nullptr) return;
  list->entries[0].service = echo;
  list->entries[0].syntaxList = syntaxes;
  list->hasEcho = true;
  if (list_add_tail(g_lists.services, list) == nullptr) free_list(list);
}

}  // namespace

// --- The applications profile ---

ProfileSection::ProfileSection(const char* name) {
  const char* const* text = config().applications;
  if (text == nullptr) return;
  const std::size_t length = std::strlen(name);
  for (; *text != nullptr; ++text) {
    if (**text != '[' || std::strncmp(*text + 1, name, length) != 0) continue;
    if (std::strcmp(*text + 1 + length, "]") != 0) continue;
    next_ = text + 1;
    return;
  }
}

// A syntax stands alone, without a key: behind the first entry of a section that counts syntaxes, each text
// is one.
bool ProfileSection::next(ProfileEntry& entry) {
  if (next_ == nullptr || *next_ == nullptr || **next_ == '[') return false;
  if (syntaxes_) {
    entry = {"", *next_++};
    return true;
  }
  entry.key = *next_++;
  if (*next_ == nullptr || **next_ == '[') return false;
  entry.value = *next_++;
  syntaxes_ = equals_ignoring_case(entry.key, "SYNTAXES_SUPPORTED");
  return true;
}

// --- Look-ups ---

SyntaxList* VXI_GetSyntaxList(const char* name) {
  constexpr VX_TRANSFER_SYNTAX kDefaults[] = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN,
                                              EXPLICIT_BIG_ENDIAN, IMPLICIT_BIG_ENDIAN};
  constexpr char kFunction[] = "VXI_GetSyntaxList";
  const Guard guard(g_lists.syntaxes_lock);
  if (find_named<SyntaxList>(g_lists.syntaxes, kDefaultSyntaxList) == nullptr) {
    add_syntax_list(kFunction, kDefaultSyntaxList, kDefaults);
  }
  if (name == nullptr) {
    VX_LOG_ERR(kFunction, "NULL AsyntaxNameList parm!!");
    return nullptr;
  }
  SyntaxList* list = find_named<SyntaxList>(g_lists.syntaxes, name);
  return list != nullptr || std::strlen(name) >= sizeof SyntaxList::name ? list : load_syntax_list(name);
}

ServiceList* VXI_GetServiceNumbers(const char* name) {
  const Guard guard(g_lists.services_lock);
  make_echo_list();
  if (name == nullptr) {
    VX_LOG_ERR(ListLoader::kFunction, "NULL AserviceListName parm!!");
    return nullptr;
  }
  ServiceList* list = find_named<ServiceList>(g_lists.services, name);
  return list != nullptr || std::strlen(name) >= sizeof ServiceList::name ? list : load_service_list(name);
}

NegotiationRecord* find_negotiation_info(AppObj& app, int32_t service_number) {
  for (CNode* node = app.NegotiationInfo.Head; node != nullptr; node = node->Next) {
    auto* record = static_cast<NegotiationRecord*>(node->Data);
    if (record->serviceNumber == service_number) return record;
  }
  return nullptr;
}

void drop_service_lists() {
  g_lists.services = g_lists.named = g_lists.syntaxes = CObList{};
}

// --- Lists made by the application ---

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

// --- Extended negotiation data of an application ---

VX_STATUS set_negotiation_info(AppObj& app, const SopObj& service, const void* data, uint32_t length) {
  uint8_t* copy = nullptr;
  if (!copy_bytes(data, length, copy)) return VX_SYSTEM_ERROR;
  const Guard guard(app.NegotiationSemaphore);
  NegotiationRecord* record = find_negotiation_info(app, service.number);
  if (record == nullptr) {
    record = new_object<NegotiationRecord>(Pool::ExtInfoObj);
    if (record == nullptr || list_add_tail(app.NegotiationInfo, record) == nullptr) {
      pool_free(Pool::ExtInfoObj, record);
      release(copy);
      return VX_SYSTEM_ERROR;
    }
    record->serviceNumber = service.number;
    record->serviceUid = service.uid;
  }
  release(record->data);
  record->data = copy;
  record->length = length;
  return kOk;
}

VX_STATUS clear_negotiation_info(AppObj& app, const SopObj& service) {
  const Guard guard(app.NegotiationSemaphore);
  NegotiationRecord* record = find_negotiation_info(app, service.number);
  if (record == nullptr) return VX_NO_INFO_REGISTERED;
  unlink_record(app.NegotiationInfo, record);
  release(record->data);
  pool_free(Pool::ExtInfoObj, record);
  return kOk;
}

void free_negotiation_info(AppObj& app) {
  const Guard guard(app.NegotiationSemaphore);
  while (app.NegotiationInfo.Head != nullptr) {
    auto* record = static_cast<NegotiationRecord*>(list_remove_head(app.NegotiationInfo));
    release(record->data);
    pool_free(Pool::ExtInfoObj, record);
  }
}

}  // namespace vx
