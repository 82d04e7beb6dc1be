#include "nodes.h"

#include "network/network.h"

namespace vexal {

bool read_nodes(const Args& args, Nodes& nodes) {
  for (const std::string& text : args.all("--node")) {
    const std::size_t equals = text.find('=');
    const std::size_t colon = text.rfind(':');
    Node node{};
    if (equals == std::string::npos || colon == std::string::npos || colon < equals ||
        !is_title(text.substr(0, equals))) {
      complain("--node %s: give TITLE=HOST:PORT", text.c_str());
      return false;
    }
    node.host = text.substr(equals + 1, colon - equals - 1);
    if (!parse_port(text.substr(colon + 1), node.port)) return false;
    nodes[text.substr(0, equals)] = node;
  }
  return true;
}

}  // namespace vexal
