#include "commands.h"

#include <array>

namespace vexal {

std::span<const Command> commands() {
  static const std::array kCommands = {kDump,  kValidate, kConvert,  kModify, kEcho,
                                       kStore, kReceive,  kFind,     kGet,    kMove,
                                       kMpps,  kCommit,   kTemplate, kLookup, kConfig};
  return kCommands;
}

}  // namespace vexal
