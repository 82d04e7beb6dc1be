#include "args.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "log_lines.h"
#include "printable.h"

namespace vexal {
namespace {

constexpr Option kCommonOptions[] = {
    {"--config", "INI", "read this vexal.ini instead of searching for one"},
    {"--verbose", nullptr, "show information messages of the library too"},
    {"--quiet", nullptr, "show no warnings"},
    {"--help", nullptr, "show this help"},
};

const Option* find_option(std::span<const Option> options, std::string_view name) {
  for (const Option& option : options) {
    if (name == option.name) return &option;
  }
  return nullptr;
}

std::string formatted(const char* format, va_list values) {
  va_list again;
  va_copy(again, values);
  std::string line(static_cast<std::size_t>(std::max(std::vsnprintf(nullptr, 0, format, again), 0)), '\0');
  va_end(again);
  std::vsnprintf(line.data(), line.size() + 1, format, values);
  return line;
}

}  // namespace

std::span<const Option> common_options() {
  return kCommonOptions;
}

void complain(const char* format, ...) {
  va_list values;
  va_start(values, format);
  put_line(kErrorLevel, "vexal", formatted(format, values));
  va_end(values);
}

void say(const char* format, ...) {
  va_list values;
  va_start(values, format);
  std::printf("%s\n", shown(formatted(format, values)).c_str());
  va_end(values);
}

bool Args::parse(std::span<const Option> options, std::span<char* const> words) {
  bool options_over = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    std::string_view word = words[i];
    if (options_over || word.size() < 2 || word[0] != '-') {
      paths.emplace_back(word);
      continue;
    }
    if (word == "--") {
      options_over = true;
      continue;
    }
    std::string_view value;
    bool has_value = false;
    if (const std::size_t equals = word.find('=');
        word.starts_with("--") && equals != std::string_view::npos) {
      value = word.substr(equals + 1);
      word = word.substr(0, equals);
      has_value = true;
    }
    const Option* option = find_option(options, word);
    if (option == nullptr) option = find_option(common_options(), word);
    if (option == nullptr) {
      complain("unknown option %s; --help lists the options", std::string(word).c_str());
      return false;
    }
    if (option->value != nullptr && !has_value) {
      if (i + 1 >= words.size()) {
        complain("%s needs a value: %s", option->name, option->value);
        return false;
      }
      value = words[++i];
    } else if (option->value == nullptr && has_value) {
      complain("%s takes no value", option->name);
      return false;
    }
    set(option->name, value);
  }
  return true;
}

void Args::set(std::string_view name, std::string_view value) {
  values_[std::string(name)] = value;
  in_order_.emplace_back(name, value);
}

std::set<std::string, std::less<>> Args::names() const {
  std::set<std::string, std::less<>> names;
  for (const auto& [name, value] : values_) names.insert(name);
  return names;
}

std::string Args::get(std::string_view name, std::string_view otherwise) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::string(otherwise) : found->second;
}

std::vector<std::string> Args::all(std::string_view name) const {
  std::vector<std::string> values;
  for (const auto& [key, value] : in_order_) {
    if (key == name) values.push_back(value);
  }
  return values;
}

bool Args::number(std::string_view name, long low, long high, long& value) const {
  if (!has(name)) return true;
  const std::string text = get(name);
  char* end = nullptr;
  errno = 0;
  const long parsed = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno != 0 || parsed < low || parsed > high) {
    complain("%s: %s is not a number from %ld to %ld", std::string(name).c_str(), text.c_str(), low, high);
    return false;
  }
  value = parsed;
  return true;
}

}  // namespace vexal
