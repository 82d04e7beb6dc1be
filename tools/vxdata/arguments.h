#pragma once
// The words of a command line, after the name of the command.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vxdata {

// A command line that can't be understood: exit code 2 with a pointer to --help.
struct WrongUsage {
  std::string text;
};

class Arguments {
 public:
  // Options are words that begin with a dash and take the next word; the rest are inputs.
  Arguments(int argc, char** argv, std::vector<std::string_view> allowed);

  std::string option(std::string_view name) const;    // empty when not given
  std::string required(std::string_view name) const;  // throws WrongUsage
  const std::vector<std::string>& inputs() const { return inputs_; }
  const std::vector<std::string>& inputs(size_t least, size_t most) const;

 private:
  std::vector<std::pair<std::string, std::string>> options_;
  std::vector<std::string> inputs_;
};

}  // namespace vxdata
