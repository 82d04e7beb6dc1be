// Options of a server from the environment and from a file, for units and containers.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>

#include "args.h"
#include "log_lines.h"

namespace vexal {
namespace {

constexpr char kPort[] = "port";  // what stands without an option on a command line

// "VEXAL_SERVE_MAX_SIZE" for "--max-size" of serve.
std::string variable_of(const Command& command, std::string_view option) {
  std::string name = "VEXAL_" + std::string(command.name) + "_" +
                     std::string(option.substr(std::min(option.find_first_not_of('-'), option.size())));
  for (char& c : name) c = c == '-' ? '_' : c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return name;
}

// Whether a switch is on; false after a line on standard error where that is not said.
bool read_switch(const std::string& place, std::string_view text, bool& on) {
  constexpr std::string_view kOn[] = {"", "1", "on", "true", "yes"};
  constexpr std::string_view kOff[] = {"0", "off", "false", "no"};
  on = std::find(std::begin(kOn), std::end(kOn), text) != std::end(kOn);
  if (on || std::find(std::begin(kOff), std::end(kOff), text) != std::end(kOff)) return true;
  complain("%s: %s is neither yes nor no", place.c_str(), std::string(text).c_str());
  return false;
}

std::string_view trimmed(std::string_view text) {
  constexpr char kBlanks[] = " \t\r";
  const std::size_t from = text.find_first_not_of(kBlanks);
  return from == std::string_view::npos ? "" : text.substr(from, text.find_last_not_of(kBlanks) + 1 - from);
}

}  // namespace

bool Args::add(const Option& option, const std::string& place, std::string_view value) {
  bool on = true;
  if (option.value == nullptr && !read_switch(place, value, on)) return false;
  if (option.value != nullptr && value.empty()) {
    complain("%s: %s needs a value: %s", place.c_str(), option.name + 2, option.value);
    return false;
  }
  if (on) set(option.name, option.value != nullptr ? value : "");
  return true;
}

bool Args::add_environment(const Command& command) {
  const auto value_of = [&](std::string_view name, std::string& variable) {
    variable = variable_of(command, name);
    return std::getenv(variable.c_str());
  };
  std::string variable;
  const std::set<std::string, std::less<>> given = names();
  for (const Option& option : command.options) {
    const char* value = value_of(option.name, variable);
    if (value == nullptr || given.contains(option.name)) continue;
    // An option that may be repeated has a line for each value.
    std::string_view rest = value;
    do {
      const std::size_t end = std::min(rest.find('\n'), rest.size());
      if (!add(option, variable, trimmed(rest.substr(0, end)))) return false;
      rest.remove_prefix(std::min(end + 1, rest.size()));
    } while (!rest.empty());
  }
  if (const char* port = value_of(kPort, variable); port != nullptr && paths.empty())
    paths.emplace_back(port);
  return true;
}

bool Args::add_file(const Command& command, const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    complain("--options %s: can not be read", path.c_str());
    return false;
  }
  const std::set<std::string, std::less<>> given = names();
  const bool has_port = !paths.empty();
  std::string text;
  for (std::size_t number = 1; std::getline(file, text); ++number) {
    const std::string_view line = trimmed(text);
    if (line.empty() || line[0] == '#') continue;
    const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
    const std::string name(line.substr(0, end));
    const std::string_view value = trimmed(line.substr(end));
    const std::string place = path + ":" + std::to_string(number);
    if (name == kPort) {
      if (!has_port) paths.emplace_back(value);
      continue;
    }
    const auto option = std::find_if(command.options.begin(), command.options.end(),
                                     [&](const Option& row) { return row.name == "--" + name; });
    if (option == command.options.end()) {
      complain("%s: unknown option %s; vexal %s --help lists the options, which stand here without dashes",
               place.c_str(), name.c_str(), command.name);
      return false;
    }
    if (!given.contains(option->name) && !add(*option, place, value)) return false;
  }
  return true;
}

bool Args::add_sources(const Command& command) {
  constexpr std::string_view kOptionsFile = "--options";
  const bool takes = std::any_of(command.options.begin(), command.options.end(),
                                 [&](const Option& option) { return option.name == kOptionsFile; });
  if (!takes) return true;
  if (!add_environment(command) || (has(kOptionsFile) && !add_file(command, get(kOptionsFile)))) return false;
  const std::string format = get("--log", "text");
  if (format != "text" && format != "json") {
    complain("--log %s: give text or json", format.c_str());
    return false;
  }
  if (format == "json") log_in_json();
  return true;
}

}  // namespace vexal
