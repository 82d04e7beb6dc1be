#include "commands.h"

#include <array>

namespace vexal {

std::span<const Command> commands() {
  static const std::array<Command, 6> kCommands = {kDump, kValidate, kConvert, kModify, kLookup, kConfig};
  return kCommands;
}

}  // namespace vexal
