// The services and the applications profile.
#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "config/line.h"
#include "config/loader.h"
#include "config/services.h"
#include "frame/log.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr const char* kReader = "VXI_ReadServices";
constexpr std::size_t kMostServiceName = 49;

using Entries = std::vector<ProfileReader::Entry>;

LoadResult read_entries(std::string_view content, std::size_t value_limit, Entries& entries) {
  return for_each_entry(content, value_limit, [&entries](const ProfileReader::Entry& entry) {
    entries.push_back(entry);
    return LoadResult::Ok;
  });
}

bool is(std::string_view text, const char* word) {
  return equals_ignoring_case(text, word);
}

bool begins_with(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && equals_ignoring_case(text.substr(0, prefix.size()), prefix);
}

// The number of a service section; -1 for any other section.
int32_t section_number(std::string_view name) {
  std::string_view rest;
  if (name.empty() || name[0] < '0' || name[0] > '9') return -1;
  const int32_t number = parse_int32(name, &rest);
  return rest.empty() ? number : -1;
}

// The services that SERVICE_TABLE names, and the members that a meta service brings along.
std::set<int32_t> numbers_in_use(const Entries& entries) {
  std::set<int32_t> numbers;
  bool inside = false;
  for (const ProfileReader::Entry& entry : entries) {
    if (!is(entry.section, "SERVICE_TABLE")) {
      if (inside) break;
      continue;
    }
    inside = true;
    if (!is(entry.key, "NUMBER_OF_SERVICES_SUPPORTED")) numbers.insert(parse_int32(entry.value));
  }
  for (const ProfileReader::Entry& entry : entries) {
    if (!begins_with(entry.key, "SOP_CLASS_")) continue;
    if (numbers.contains(section_number(entry.section))) numbers.insert(parse_int32(entry.value));
  }
  numbers.erase(numbers.begin(), numbers.lower_bound(0));
  return numbers;
}

class ServiceTable {
 public:
  explicit ServiceTable(ProfileTables& tables) : tables_(tables) {}

  void open(int32_t number) {
    tables_.service_numbers.push_back(number);
    tables_.service_names.push_back("");
    tables_.service_uids.push_back("");
    tables_.service_commands.push_back(0);
    tables_.service_kinds.push_back(kBaseService);
    tables_.sop_class_counts.push_back(1);
    tables_.members.emplace_back();
    list_open_ = false;
  }

  bool take(const ProfileReader::Entry& entry) {
    if (is(entry.key, "NAME")) {
      take_name(entry);
    } else if (is(entry.key, "UID")) {
      tables_.service_uids.back() = tables_.texts.add(entry.value);
    } else if (is(entry.key, "TYPE")) {
      take_type(entry);
    } else if (begins_with(entry.key, "COMMAND_")) {
      take_command(entry);
    } else if (is(entry.key, "SOP_CLASSES_INCLUDED")) {
      declared_ = std::max(parse_int32(entry.value), 0);
      list_open_ = true;
    } else if (begins_with(entry.key, "SOP_CLASS_")) {
      return take_member(entry);
    }
    return true;
  }

 private:
  void take_name(const ProfileReader::Entry& entry) {
    const std::string name = entry.value.substr(0, kMostServiceName);
    if (name.size() != entry.value.size()) {
      VX_LOG_WARN(kReader, "Service name:  %s is too big.  Truncating to:  %s", entry.value.c_str(),
                  name.c_str());
    }
    tables_.service_names.back() = tables_.texts.add(name);
  }

  void take_type(const ProfileReader::Entry& entry) {
    const bool meta = is(entry.value, "META");
    if (!meta && !is(entry.value, "BASE")) {
      VX_LOG_WARN(kReader, "Invalid type code \"%s\" in [%s] section, using BASE.", entry.value.c_str(),
                  entry.section.c_str());
    }
    tables_.service_kinds.back() = meta ? kMetaService : kBaseService;
  }

  void take_command(const ProfileReader::Entry& entry) {
    for (const CommandRow& row : command_rows()) {
      if (!is(entry.value, row.name)) continue;
      tables_.service_commands.back() |= row.bit;
      return;
    }
    VX_LOG_WARN(kReader, "Invalid command (%s) ignored in [%s] section", entry.value.c_str(),
                entry.section.c_str());
  }

  bool take_member(const ProfileReader::Entry& entry) {
    if (!list_open_) {
      VX_LOG_ERR(kReader, "Invalid Placement of \"%s = %s\"", entry.key.c_str(), entry.value.c_str());
      return false;
    }
    std::vector<int32_t>& members = tables_.members.back();
    if (members.size() < static_cast<std::size_t>(declared_)) members.push_back(parse_int32(entry.value));
    return true;
  }

  ProfileTables& tables_;
  int32_t declared_ = 0;
  bool list_open_ = false;
};

// A base service counts as its own one member, so that every list has what its count says.
void close_lists(ProfileTables& tables) {
  for (std::size_t i = 0; i < tables.service_numbers.size(); ++i) {
    std::vector<int32_t>& members = tables.members[i];
    if (tables.service_kinds[i] == kBaseService) members.assign(1, tables.service_numbers[i]);
    tables.sop_class_counts[i] = static_cast<int32_t>(members.size());
    tables.sop_classes.push_back(members.data());
  }
}

}  // namespace

const char* TextArena::add(std::string_view text) {
  const std::size_t size = text.size() + 1;
  if (size > left_) {
    const std::size_t chunk = std::max(size, kChunk);
    chunks_.push_back(std::make_unique<char[]>(chunk));
    next_ = chunks_.back().get();
    left_ = chunk;
  }
  char* copy = next_;
  copy_text(copy, size, text);
  next_ += size;
  left_ -= size;
  return copy;
}

LoadResult read_services(std::string_view content, ProfileTables& tables) {
  Entries entries;
  if (const LoadResult result = read_entries(content, kServiceValueLimit, entries);
      result != LoadResult::Ok) {
    return result;
  }
  const std::set<int32_t> used = numbers_in_use(entries);
  ServiceTable services(tables);
  bool inside = false;  // of the section of a service in use
  for (const ProfileReader::Entry& entry : entries) {
    if (is(entry.section, "SERVICE_TABLE")) {
      inside = false;
    } else if (is(entry.section, "ITEM_TABLE")) {
      inside = false;
      if (is(entry.key, "NUMBER_OF_ITEMS_SUPPORTED")) continue;
      tables.item_names.push_back(tables.texts.add(entry.key));
      tables.item_numbers.push_back(parse_int32(entry.value));
    } else {
      if (entry.new_section) {
        const int32_t number = section_number(entry.section);
        inside = used.contains(number);
        if (inside) services.open(number);
      }
      if (inside && !services.take(entry)) return LoadResult::FailedRead;
    }
  }
  close_lists(tables);
  return LoadResult::Ok;
}

LoadResult read_applications(std::string_view content, ProfileTables& tables) {
  Entries entries;
  const LoadResult result = read_entries(content, kApplicationValueLimit, entries);
  if (result != LoadResult::Ok) return result;
  for (const ProfileReader::Entry& entry : entries) {
    if (entry.new_section) tables.applications.push_back(tables.texts.add("[" + entry.section + "]"));
    const bool member = begins_with(entry.key, "SYNTAX_") && !begins_with(entry.key, "SYNTAX_LIST_");
    if (!member) tables.applications.push_back(tables.texts.add(entry.key));
    tables.applications.push_back(tables.texts.add(entry.value));
  }
  tables.applications.push_back(nullptr);
  return LoadResult::Ok;
}

void publish_tables(const ProfileTables& tables, ConfigRecord& record) {
  record.service_count = static_cast<int32_t>(tables.service_numbers.size());
  record.service_names = tables.service_names.data();
  record.service_uids = tables.service_uids.data();
  record.service_commands = tables.service_commands.data();
  record.service_numbers = tables.service_numbers.data();
  record.service_kinds = tables.service_kinds.data();
  record.sop_class_counts = tables.sop_class_counts.data();
  record.sop_classes = tables.sop_classes.data();
  record.item_count = static_cast<int32_t>(tables.item_names.size());
  record.item_names = tables.item_names.data();
  record.item_numbers = tables.item_numbers.data();
  record.applications = tables.applications.empty() ? nullptr : tables.applications.data();
}

}  // namespace vx
