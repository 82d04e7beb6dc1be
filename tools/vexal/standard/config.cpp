// vexal config: the settings in force and where they came from.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/commands.h"
#include "base/json.h"
#include "base/session.h"
#include "base/settings_source.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--json", nullptr, "one JSON object"},
};

enum class ValueKind { Int, Long, Bool, Text, Log };

struct KeyRow {
  const char* section;
  const char* name;
  ValueKind kind;
  int32_t number;
};

constexpr KeyRow kKeys[] = {
#define VEXAL_KEY(section, name, kind) {#section, #name, ValueKind::kind, VX_CFG_##name},
#include "base/config_keys.inc"
#undef VEXAL_KEY
};

std::string log_words(uint32_t destination) {
  if ((destination & VX_LOG_OFF) != 0) return "OFF";
  std::string words;
  const auto add = [&](uint32_t bit, const char* word) {
    if ((destination & bit) != 0) words += (words.empty() ? "" : ", ") + std::string(word);
  };
  add(VX_LOG_TO_FILE, "FILE");
  add(VX_LOG_TO_MEMORY, "MEMORY");
  add(VX_LOG_TO_SCREEN, "SCREEN");
  return words;
}

std::string value_text(const KeyRow& row) {
  int32_t number = 0;
  uint32_t bits = 0;
  char text[2048] = "";
  switch (row.kind) {
    case ValueKind::Int:
      VX_Get_Int_Config_Value(row.number, &number);
      return std::to_string(number);
    case ValueKind::Long:
      VX_Get_Long_Config_Value(row.number, &number);
      return std::to_string(number);
    case ValueKind::Bool:
      VX_Get_Bool_Config_Value(row.number, &number);
      return number != 0 ? "Yes" : "No";
    case ValueKind::Text:
      VX_Get_String_Config_Value(row.number, sizeof text, text);
      return text;
    case ValueKind::Log:
      VX_Get_Log_Destination(row.number, &bits);
      return log_words(bits);
  }
  return "";
}

void append_json_value(std::string& out, const KeyRow& row, const std::string& text) {
  if (row.kind == ValueKind::Int || row.kind == ValueKind::Long) {
    out += text;
  } else if (row.kind == ValueKind::Bool) {
    out += text == "Yes" ? "true" : "false";
  } else {
    append_json(out, text);
  }
}

bool wanted(const Args& args, const KeyRow& row) {
  return args.paths.empty() ||
         std::find(args.paths.begin(), args.paths.end(), row.name) != args.paths.end() ||
         std::find(args.paths.begin(), args.paths.end(), row.section) != args.paths.end();
}

int run(const Args& args) {
  const bool json = args.has("--json");
  SettingPlaces places;
  if (!configuration_file().empty()) places.read(configuration_file());
  std::string out;
  std::string where;  // of the settings that a file has
  const char* section = "";
  bool any = false;
  if (json) {
    out = "{\"source\":";
    append_json(out, configuration_source());
    out += ",\"settings\":{";
  } else {
    out = "# " + configuration_source() + "\n";
  }
  for (const KeyRow& row : kKeys) {
    if (!wanted(args, row)) continue;
    const std::string text = value_text(row);
    const std::string place = places.find(row.name);
    if (json) {
      if (!place.empty()) {
        if (!where.empty()) where += ',';
        append_json(where, std::string_view(row.name));
        where += ':';
        append_json(where, place);
      }
      if (any) out += ',';
      append_json(out, std::string_view(row.name));
      out += ':';
      append_json_value(out, row, text);
    } else {
      if (std::strcmp(section, row.section) != 0) out += std::string(any ? "\n[" : "[") + row.section + "]\n";
      out += std::string(row.name) + " = " + text + (place.empty() ? "" : "  # " + place) + "\n";
    }
    section = row.section;
    any = true;
  }
  if (json) out += "},\"places\":{" + where + "}}\n";
  if (!any) {
    complain("there is no setting or section of that name; vexal config lists them all");
    return kFindings;
  }
  std::fputs(out.c_str(), stdout);
  return kSuccess;
}

}  // namespace

const Command kConfig = {"config",
                         "[OPTION...] [KEY|SECTION...]",
                         "show the settings in force and their source",
                         "Behind each value that a file has stand the file and the line; the others are "
                         "defaults. The program itself turns the\n"
                         "log destinations off and sends messages to standard error: it writes no log file.",
                         kOptions,
                         run};

}  // namespace vexal
