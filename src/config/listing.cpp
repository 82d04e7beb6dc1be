// The whole configuration as lines of the log.
#include <string>

#include "config/keys.h"
#include "config/record.h"
#include "config/services.h"
#include "config/transfer_syntax.h"
#include "frame/log.h"
#include "frame/seams.h"
#include "frame/state.h"

namespace vx {
namespace {

#define LINE(...) log_line(VX_LOG_T6, nullptr, __VA_ARGS__)

void list_text(VX_STRING_KEY key) {
  LINE("|  %s = %s", string_keys()[static_cast<std::size_t>(key)].name, config_text(key).c_str());
}

bool is_profile_path(VX_STRING_KEY key) {
  return key == VX_CFG_VEXALKIT_3_PROFILE || key == VX_CFG_VEXALKIT_3_SERVICES ||
         key == VX_CFG_VEXALKIT_3_APPLICATIONS;
}

void list_section(Section section) {
  LINE("[%s]", section_name(section));
  if (section == Section::VexalKit3) {
    list_text(VX_CFG_VEXALKIT_3_PROFILE);
    list_text(VX_CFG_VEXALKIT_3_SERVICES);
    list_text(VX_CFG_VEXALKIT_3_APPLICATIONS);
  }
  for (VX_INT_KEY key = 0; key < VX_INT_KEY_COUNT; ++key) {
    const IntKey& row = int_keys()[static_cast<std::size_t>(key)];
    if (row.section == section) LINE("|  %s = %d", row.name, config_int(key));
  }
  for (VX_STRING_KEY key = 0; key < VX_STRING_KEY_COUNT; ++key) {
    const StringKey& row = string_keys()[static_cast<std::size_t>(key)];
    if (row.section == section && !is_profile_path(key)) list_text(key);
  }
  for (VX_LONG_KEY key = 0; key < VX_LONG_KEY_COUNT; ++key) {
    const IntKey& row = long_keys()[static_cast<std::size_t>(key)];
    if (row.section == section) LINE("|  %s = %ld", row.name, static_cast<long>(config_long(key)));
  }
  for (VX_BOOL_KEY key = 0; key < VX_BOOL_KEY_COUNT; ++key) {
    const BoolKey& row = bool_keys()[static_cast<std::size_t>(key)];
    if (row.section == section && row.listed) LINE("|  %s = %s", row.name, config_bool(key) ? "Yes" : "No");
  }
}

std::string destination_words(uint32_t bits) {
  constexpr struct {
    uint32_t bit;
    const char* word;
  } kWords[] = {
      {VX_LOG_OFF, "Off"}, {VX_LOG_TO_FILE, "File"}, {VX_LOG_TO_MEMORY, "Mem"}, {VX_LOG_TO_SCREEN, "Screen"}};
  std::string words;
  for (const auto& row : kWords) {
    if ((bits & row.bit) == 0) continue;
    if (!words.empty()) words += ", ";
    words += row.word;
  }
  return words;
}

void list_destinations() {
  for (std::size_t i = 0; i < VX_LOG_KEY_COUNT; ++i) {
    LINE("|  %s = %s", log_keys()[i], destination_words(config().log_destinations[i]).c_str());
  }
}

void list_file(VX_STRING_KEY key) {
  LINE("=== %s ===", config_text(key).c_str());
}

void list_commands(uint32_t commands) {
  constexpr int kCommandBits = 26;
  for (int bit = 0; bit < kCommandBits; ++bit) {
    if ((commands & (uint32_t{1} << bit)) == 0) continue;
    for (const CommandRow& row : command_rows()) {
      if (row.bit != uint32_t{1} << bit) continue;
      LINE("|  COMMAND_%d = %s", bit + 1, row.name);
      break;
    }
  }
}

void list_services(const ConfigRecord& record) {
  LINE("[SERVICE_TABLE]");
  LINE("|  NUMBER_OF_SERVICES_SUPPORTED = %d", record.service_count);
  for (int32_t i = 0; i < record.service_count; ++i) {
    LINE("|  %s = %4.4d", record.service_names[i], record.service_numbers[i]);
  }
  for (int32_t i = 0; i < record.service_count; ++i) {
    LINE("[%4.4d]", record.service_numbers[i]);
    LINE("|  NAME = %s", record.service_names[i]);
    LINE("|  UID = %s", record.service_uids[i]);
    if (record.service_kinds[i] != kMetaService) {
      LINE("|  TYPE = BASE");
      list_commands(record.service_commands[i]);
      continue;
    }
    LINE("|  TYPE = META");
    LINE("|  SOP_CLASSES_INCLUDED = %d", record.sop_class_counts[i]);
    for (int32_t member = 0; member < record.sop_class_counts[i]; ++member) {
      LINE("|  SOP_CLASS_%d = %4.4d", member + 1, record.sop_classes[i][member]);
    }
  }
  LINE("[ITEM_TABLE]");
  LINE("|  NUMBER_OF_ITEMS_SUPPORTED = %d", record.item_count);
  for (int32_t i = 0; i < record.item_count; ++i) {
    LINE("|  %s = %4.4d", record.item_names[i], record.item_numbers[i]);
  }
}

void list_applications(const ConfigRecord& record) {
  if (record.applications == nullptr) return;
  int member = 0;
  for (const char* const* text = record.applications; *text != nullptr; ++text) {
    VX_TRANSFER_SYNTAX syntax = 0;
    if (**text == '[') {
      LINE("%s", *text);
      member = 0;
    } else if (syntax_from_name(*text, syntax) == kOk || text[1] == nullptr) {
      // A member of a syntax list stands without its key.
      LINE("SYNTAX_%d = %s", ++member, *text);
    } else {
      LINE("%s = %s", text[0], text[1]);
      ++text;
    }
  }
}

}  // namespace

void config_write_listing() {
  if (!log_enabled(VX_LOG_T6)) return;
  const ConfigRecord& record = config();
  LINE("%s, %s", library_banner(), library_build_date());
  LINE("%s", library_build_description());
  LINE("=== VEXAL_INI ===");
  for (int section = 0; section < kSectionCount; ++section) {
    list_section(static_cast<Section>(section));
    if (section != 0) continue;
    list_destinations();
    list_file(VX_CFG_VEXALKIT_3_PROFILE);
  }
  list_file(VX_CFG_VEXALKIT_3_SERVICES);
  list_services(record);
  list_file(VX_CFG_VEXALKIT_3_APPLICATIONS);
  list_applications(record);
}

}  // namespace vx
