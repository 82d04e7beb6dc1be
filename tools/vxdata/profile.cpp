#include "profile.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

namespace vxdata {
namespace {

struct CommandRow {
  std::string_view name;
  uint16_t value;
  uint32_t bit;
};

constexpr CommandRow kCommandRows[] = {
    {"C_STORE_RQ", 0x0001, 0x1},
    {"C_STORE_RSP", 0x8001, 0x2},
    {"C_GET_RQ", 0x0010, 0x4},
    {"C_GET_RSP", 0x8010, 0x8},
    {"C_CANCEL_RQ", 0x0FFF, 0x10},
    {"C_CANCEL_GET_RQ", 0x0FFF, 0x10},
    {"C_CANCEL_FIND_RQ", 0x0FFF, 0x10},
    {"C_CANCEL_MOVE_RQ", 0x0FFF, 0x10},
    {"C_FIND_RQ", 0x0020, 0x100},
    {"C_FIND_RSP", 0x8020, 0x200},
    {"C_MOVE_RQ", 0x0021, 0x400},
    {"C_MOVE_RSP", 0x8021, 0x800},
    {"C_ECHO_RQ", 0x0030, 0x1000},
    {"C_ECHO_RSP", 0x8030, 0x2000},
    {"N_EVENT_REPORT_RQ", 0x0100, 0x4000},
    {"N_EVENT_REPORT_RSP", 0x8100, 0x8000},
    {"N_GET_RQ", 0x0110, 0x10000},
    {"N_GET_RSP", 0x8110, 0x20000},
    {"N_SET_RQ", 0x0120, 0x40000},
    {"N_SET_RSP", 0x8120, 0x80000},
    {"N_ACTION_RQ", 0x0130, 0x100000},
    {"N_ACTION_RSP", 0x8130, 0x200000},
    {"N_CREATE_RQ", 0x0140, 0x400000},
    {"N_CREATE_RSP", 0x8140, 0x800000},
    {"N_DELETE_RQ", 0x0150, 0x1000000},
    {"N_DELETE_RSP", 0x8150, 0x2000000},
};

constexpr size_t kServiceNameLimit = 49;
constexpr size_t kValueLimit = 127;

bool same(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool starts(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && same(text.substr(0, prefix.size()), prefix);
}

int number_of(std::string_view text) {
  int value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() ? value : -1;
}

}  // namespace

uint16_t command_value(std::string_view name) {
  for (const auto& row : kCommandRows) {
    if (row.name == name) return row.value;
  }
  return 0;
}

std::string_view command_name(uint16_t value) {
  for (const auto& row : kCommandRows) {
    if (row.value == value) return row.name;
  }
  return {};
}

uint32_t command_bit(uint16_t value) {
  for (const auto& row : kCommandRows) {
    if (row.value == value) return row.bit;
  }
  return 0;
}

bool has_no_contents(uint16_t command) {
  constexpr uint16_t kCommands[] = {0x8001, 0x0030, 0x8030, 0x0FFF, 0x0110, 0x0150, 0x8150};
  for (const uint16_t one : kCommands) {
    if (one == command) return true;
  }
  return false;
}

std::vector<ProfileEntry> read_profile(const std::string& path) {
  std::vector<ProfileEntry> entries;
  std::string section;
  for (const Line& line : read_lines(path)) {
    std::string text;
    for (const char c : line.text) {
      if (c == '#') break;
      if (c >= ' ' && c <= '~') text += c;
    }
    text = trim(text);
    if (text.empty()) continue;
    if (text[0] == '[') {
      section = text.substr(1, text.size() - 2);
      continue;
    }
    const size_t end = text.find_first_of(" =,");
    std::string value = end == std::string::npos ? "" : text.substr(end);
    value.erase(0, std::min(value.find_first_not_of(" =,"), value.size()));
    entries.push_back({line.number, section, text.substr(0, end), value});
  }
  return entries;
}

void Profile::read_service_key(Service& service, const std::string& key, const std::string& value, int line,
                               Problems& problems) {
  if (same(key, "NAME")) {
    service.name = value;
  } else if (same(key, "UID")) {
    service.uid = value;
  } else if (same(key, "TYPE")) {
    service.meta = same(value, "META");
    if (!service.meta && !same(value, "BASE"))
      problems.error(path_, line, "TYPE is BASE or META, not " + value);
  } else if (starts(key, "COMMAND_")) {
    const uint16_t command = command_value(value);
    if (command == 0) {
      problems.error(path_, line, "unknown command " + value);
    } else {
      service.commands.push_back(command);
    }
  } else if (starts(key, "SOP_CLASS_")) {
    service.members.push_back(number_of(value));
  } else if (same(key, "SOP_CLASSES_INCLUDED")) {
    if (number_of(value) < 1) problems.error(path_, line, "SOP_CLASSES_INCLUDED wants a count");
  } else {
    problems.error(path_, line, "unknown key " + key);
  }
}

void Profile::read(const std::string& path, Problems& problems) {
  path_ = path;
  for (const ProfileEntry& entry : read_profile(path)) {
    const auto& [line, section, key, value] = entry;
    const int number = number_of(value);
    if (value.size() > kValueLimit)
      problems.error(path_, line, format("value of more than %zu bytes", kValueLimit));
    if (same(section, "SERVICE_TABLE") || same(section, "ITEM_TABLE")) {
      const bool services = same(section, "SERVICE_TABLE");
      if (starts(key, "NUMBER_OF_")) {
        (services ? service_count_ : item_count_) = number;
      } else if (number < 1 || number > 65535) {
        problems.error(path_, line, key + " wants a number from 1 to 65535, not " + value);
      } else if (services) {
        if (!numbers_.emplace(number, key).second)
          problems.error(path_, line, "number " + value + " stands twice");
      } else {
        if (!item_index_.emplace(key, items_.size()).second)
          problems.error(path_, line, key + " stands twice");
        items_.push_back({key, number, line});
      }
      continue;
    }
    const int own = number_of(section);
    if (own < 1) {
      problems.error(path_, line, "[" + section + "] is neither a table nor a service number");
      continue;
    }
    if (services_.empty() || services_.back().number != own) {
      services_.emplace_back();
      services_.back().number = own;
      services_.back().line = line;
    }
    read_service_key(services_.back(), key, value, line, problems);
  }
  check(problems);
}

void Profile::check(Problems& problems) {
  std::unordered_map<int, int> seen;
  for (size_t i = 0; i < services_.size(); ++i) {
    const Service& service = services_[i];
    const auto listed = numbers_.find(service.number);
    if (listed == numbers_.end() || listed->second != service.name) {
      problems.error(path_, service.line,
                     "SERVICE_TABLE has no " + service.name + format(" = %d", service.number));
    }
    if (service.name.empty() || service.name.size() > kServiceNameLimit) {
      problems.error(path_, service.line,
                     format("a service name has 1 to %zu characters", kServiceNameLimit));
    }
    if (service.uid.empty() || service.uid.size() > 64)
      problems.error(path_, service.line, "UID missing or too long");
    if (!service.meta && service.commands.empty())
      problems.error(path_, service.line, "a base service has commands");
    if (service.meta && service.members.empty())
      problems.error(path_, service.line, "a meta service has members");
    for (const int member : service.members) {
      if (numbers_.find(member) == numbers_.end()) {
        problems.error(path_, service.line, format("member %d is no service", member));
      }
    }
    if (!service_index_.emplace(service.name, i).second)
      problems.error(path_, service.line, "service stands twice");
    seen[service.number] = service.line;
  }
  for (const auto& [number, name] : numbers_) {
    if (seen.find(number) == seen.end()) problems.error(path_, 0, name + " has no section");
  }
  std::unordered_map<int, int> item_numbers;
  for (const Item& item : items_) {
    if (!item_numbers.emplace(item.number, item.line).second) {
      problems.error(path_, item.line, format("item number %d stands twice", item.number));
    }
  }
  if (service_count_ != static_cast<int>(numbers_.size())) {
    problems.error(path_, 0,
                   format("NUMBER_OF_SERVICES_SUPPORTED is %d, not %zu", service_count_, numbers_.size()));
  }
  if (item_count_ != static_cast<int>(items_.size())) {
    problems.error(path_, 0, format("NUMBER_OF_ITEMS_SUPPORTED is %d, not %zu", item_count_, items_.size()));
  }
}

const Service* Profile::service(std::string_view name) const {
  const auto at = service_index_.find(std::string(name));
  return at == service_index_.end() ? nullptr : &services_[at->second];
}

const Item* Profile::item(std::string_view name) const {
  const auto at = item_index_.find(std::string(name));
  return at == item_index_.end() ? nullptr : &items_[at->second];
}

const Service* Profile::service_of(int number) const {
  const auto at =
      std::find_if(services_.begin(), services_.end(), [&](auto& one) { return one.number == number; });
  return at == services_.end() ? nullptr : &*at;
}

const Item* Profile::item_of(int number) const {
  const auto at = std::find_if(items_.begin(), items_.end(), [&](auto& one) { return one.number == number; });
  return at == items_.end() ? nullptr : &*at;
}

}  // namespace vxdata
