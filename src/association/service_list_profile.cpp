// Service lists and syntax lists of the applications profile.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "association/service_list_parts.h"
#include "config/config.h"
#include "config/transfer_syntax.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {

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

namespace service_lists {

SyntaxList* load_syntax_list(const char* name) {
  ProfileSection section(name);
  ProfileEntry entry{};
  if (!section.found()) return nullptr;
  if (!section.next(entry) || !equals_ignoring_case(entry.key, "SYNTAXES_SUPPORTED")) {
    VX_LOG_ERR(kGetSyntaxList, "Syntax List \"%s\" is not a syntax list", name);
    return nullptr;
  }
  const int32_t count = parse_int32(entry.value);
  if (count < 1) {
    VX_LOG_ERR(kGetSyntaxList, "Trouble accessing %s", name);
    VX_LOG_ERR(kGetSyntaxList, "|   SYNTAXES_SUPPORTED must be > 1");
    return nullptr;
  }
  std::vector<VX_TRANSFER_SYNTAX> syntaxes;
  while (syntaxes.size() < static_cast<std::size_t>(count)) {
    if (!section.next(entry)) {
      VX_LOG_ERR(kGetSyntaxList, "Too few syntaxes listed for syntax list [%s]", name);
      return nullptr;
    }
    VX_TRANSFER_SYNTAX syntax = 0;
    if (syntax_from_name(entry.value, syntax) != kOk) {
      VX_LOG_ERR(kGetSyntaxList, "%s is an unknown transfer syntax", entry.value);
      return nullptr;
    }
    syntaxes.push_back(syntax);
  }
  return add_syntax_list(kGetSyntaxList, name, syntaxes);
}

namespace {

bool begins_with(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && equals_ignoring_case(text.substr(0, prefix.size()), prefix);
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
        VX_LOG_ERR(kGetServiceNumbers, "Service name for service number %d missing", i + 1);
        return false;
      }
      if (entry.syntaxList == nullptr) entry.syntaxList = VXI_GetSyntaxList(kDefaultSyntaxList);
      if (entry.syntaxList == nullptr) {
        VX_LOG_ERR(kGetServiceNumbers, "Unable to set default syntax list");
        return false;
      }
    }
    return true;
  }

 private:
  struct Rule {
    const char* prefix;
    bool numbered;
    const char* out_of_range;  // what the warning calls it; null: no warning
    bool (ListLoader::*take)(ServiceEntry*, const char*);
  };

  static void warn_out_of_range(const Rule& rule, const char* value) {
    VX_LOG_WARN(kGetServiceNumbers, "Found %s %s assigned in list out of range", rule.out_of_range, value);
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
        VX_LOG_ERR(kGetServiceNumbers, "Invalid extended negotiation, not using value: %s", value);
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
    if (entry->service == nullptr) VX_LOG_ERR(kGetServiceNumbers, "%s is an unknown service", value);
    if (is_echo(entry->service)) list_.hasEcho = true;
    return entry->service != nullptr;
  }
  bool take_syntaxes(ServiceEntry* entry, const char* value) {
    entry->syntaxList = VXI_GetSyntaxList(value);
    if (entry->syntaxList == nullptr) VX_LOG_ERR(kGetServiceNumbers, "Syntax List was not loaded");
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
    VX_LOG_WARN(kGetServiceNumbers,
                "Found an invalid role definition:  '%s'. Role must be SCU, SCP, or BOTH.", value);
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

}  // namespace

ServiceList* load_service_list(const char* name) {
  ProfileSection section(name);
  ProfileEntry entry{};
  if (!section.found()) return nullptr;
  if (!section.next(entry) || !equals_ignoring_case(entry.key, "SERVICES_SUPPORTED")) {
    VX_LOG_ERR(
        kGetServiceNumbers,
        "Service List \"%s\" is not a valid service list.  SERVICES_SUPPORTED must be first item in list",
        name);
    return nullptr;
  }
  const int32_t count = parse_int32(entry.value);
  if (count < 1) {
    VX_LOG_ERR(kGetServiceNumbers, "Trouble accessing %s", name);
    VX_LOG_ERR(kGetServiceNumbers, "|   SERVICES_SUPPORTED must be greater than 1");
    return nullptr;
  }
  ServiceList* list = new_list(kGetServiceNumbers, name, static_cast<std::size_t>(count));
  if (list == nullptr) return nullptr;
  ListLoader loader(*list);
  bool good = true;
  while (good && section.next(entry)) good = loader.take(entry);
  if (good && loader.complete() && list_add_tail(g_lists.services, list) != nullptr) return list;
  free_list(list);
  return nullptr;
}

}  // namespace service_lists
}  // namespace vx
