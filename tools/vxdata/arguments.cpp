#include "arguments.h"

#include <algorithm>

namespace vxdata {

Arguments::Arguments(int argc, char** argv, std::vector<std::string_view> allowed) {
  for (int i = 0; i < argc; ++i) {
    const std::string word = argv[i];
    if (word.size() < 2 || word[0] != '-') {
      inputs_.push_back(word);
      continue;
    }
    if (std::find(allowed.begin(), allowed.end(), word) == allowed.end()) {
      throw WrongUsage{"unknown option " + word};
    }
    if (i + 1 == argc) throw WrongUsage{word + " wants a value"};
    options_.emplace_back(word, argv[++i]);
  }
}

std::string Arguments::option(std::string_view name) const {
  std::string value;
  for (const auto& [key, given] : options_) {
    if (key == name) value = given;
  }
  return value;
}

std::string Arguments::required(std::string_view name) const {
  std::string value = option(name);
  if (value.empty()) throw WrongUsage{std::string(name) + " is missing"};
  return value;
}

const std::vector<std::string>& Arguments::inputs(size_t least, size_t most) const {
  if (inputs_.size() < least) throw WrongUsage{"an input file is missing"};
  if (inputs_.size() > most) throw WrongUsage{"too many files: " + inputs_[most]};
  return inputs_;
}

}  // namespace vxdata
