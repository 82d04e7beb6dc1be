// Command lines: a subcommand describes its options as a table, and one parser reads them all.
#pragma once

#include <cstdint>
#include <map>
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

class Args {
 public:
  // False after a line on standard error.
  bool parse(std::span<const Option> options, std::span<char* const> words);
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
