// Who may do what at a server: by calling title, by address.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "base/args.h"

namespace vexal {

enum Right : unsigned { kMayStore = 1, kMayQuery = 2, kMayRetrieve = 4, kAllRights = 7 };

// An address of 16 bytes, of IPv4 as it is mapped into IPv6.
using AddressBytes = std::array<uint8_t, 16>;
// Of a text; false if it is none.
bool parse_address(const std::string& text, AddressBytes& bytes);
// Of the peer of a connected socket; zeros if it can not be told.
AddressBytes peer_address(int socket);

class AccessRules {
 public:
  // The options --allow. False after a line on standard error.
  bool read(const Args& args);
  bool empty() const { return rules_.empty(); }
  // What a peer may do: all that the rules it fits give it together. 0: no rule fits.
  unsigned rights_of(const std::string& title, const std::string& address) const;

 private:
  struct Rule {
    std::string title;  // "" for any
    bool by_address = false;
    AddressBytes address{};
    unsigned bits = 128;  // of the address that count
    unsigned rights = kAllRights;
  };
  static std::string parse(std::string text, Rule& rule);

  std::vector<Rule> rules_;
};

}  // namespace vexal
