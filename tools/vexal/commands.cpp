#include "commands.h"

#include <array>

namespace vexal {

std::span<const Command> commands() {
  static const std::array<Command, 5> kCommands = {kDump, kConvert, kModify, kLookup, kConfig};
  return kCommands;
}

}  // namespace vexal
