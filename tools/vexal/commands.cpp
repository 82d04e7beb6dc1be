#include "commands.h"

#include <array>

namespace vexal {

std::span<const Command> commands() {
  static const std::array<Command, 7> kCommands = {kDump,     kValidate, kConvert, kModify,
                                                   kTemplate, kLookup,   kConfig};
  return kCommands;
}

}  // namespace vexal
