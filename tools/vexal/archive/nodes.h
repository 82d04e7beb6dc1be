// The nodes that an archive knows by their titles.
#pragma once

#include <map>
#include <string>

#include "base/args.h"

namespace vexal {

struct Node {
  std::string host;
  int32_t port;
};
using Nodes = std::map<std::string, Node>;  // by title

// What --node says, each TITLE=HOST:PORT. False after a line on standard error.
bool read_nodes(const Args& args, Nodes& nodes);

}  // namespace vexal
