#include "commands.h"

#include <array>

namespace vexal {

std::span<const Command> commands() {
  static const std::array kCommands = {kDump,  kValidate, kConvert,  kJson,   kXml,     kModify, kDeidentify,
                                       kPixel, kMake,     kEcho,     kStore,  kReceive, kServe,  kArchive,
                                       kFind,  kGet,      kMove,     kMpps,   kCommit,  kWeb,    kDir,
                                       kSr,    kCapture,  kTemplate, kLookup, kConfig};
  return kCommands;
}

}  // namespace vexal
