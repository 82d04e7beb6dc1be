// Command lines: a subcommand describes its options as a table, and one parser reads them all.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vexal {

// Exit codes of the program.
enum Exit : int { kSuccess = 0, kFindings = 1, kUsage = 2, kNetwork = 3 };

struct Option {
  const char* name;   // with its dashes: "--json"
  const char* value;  // name of its value in the help; null for a switch
  const char* help;
};

struct Command;

// Rows of the option table of a server.
#define VEXAL_SERVICE_OPTIONS                                                                          \
  {"--options", "FILE",                                                                                \
   "read what the command line and the environment leave out from this file: a line each, an option "  \
   "without its dashes and its value, the port as 'port'; in the environment, --max-size of serve is " \
   "VEXAL_SERVE_MAX_SIZE, the port VEXAL_SERVE_PORT"},                                                 \
  {                                                                                                    \
    "--log", "FORMAT", "text (default) or json: how lines on standard error are written"               \
  }

class Args {
 public:
  // False after a line on standard error.
  bool parse(std::span<const Option> options, std::span<char* const> words);
  // Adds what a command with VEXAL_SERVICE_OPTIONS finds elsewhere: the command line counts before the
  // environment, that before the file. False after a line on standard error.
  bool add_sources(const Command& command);
  bool has(std::string_view name) const { return values_.find(name) != values_.end(); }
  // The last value given, or `otherwise`.
  std::string get(std::string_view name, std::string_view otherwise = "") const;
  // All values of all options, in the order given: for options whose order counts.
  const std::vector<std::pair<std::string, std::string>>& in_order() const { return in_order_; }
  std::vector<std::string> all(std::string_view name) const;
  // A number from low to high; false after a line on standard error. Absent: value is left alone.
  bool number(std::string_view name, long low, long high, long& value) const;

  std::vector<std::string> paths;  // what stands without an option

 private:
  void set(std::string_view name, std::string_view value);
  std::set<std::string, std::less<>> names() const;
  bool add(const Option& option, const std::string& place, std::string_view value);
  bool add_environment(const Command& command);
  bool add_file(const Command& command, const std::string& path);

  std::map<std::string, std::string, std::less<>> values_;
  std::vector<std::pair<std::string, std::string>> in_order_;
};

struct Command {
  const char* name;
  const char* arguments;
  const char* summary;
  const char* details;  // further help, may be empty
  std::span<const Option> options;
  int (*run)(const Args& args);
};

std::span<const Command> commands();

// Options that every subcommand takes.
std::span<const Option> common_options();

// One line on standard error, "vexal: ..." in front, and one on standard output. What is in them steers no
// terminal.
void complain(const char* format, ...) __attribute__((format(printf, 1, 2)));
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vexal
