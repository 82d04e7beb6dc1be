// By the rules of which service and command an object is to be checked.
#pragma once

#include <cstdint>
#include <string>

namespace vexal {

struct Standard {
  std::string service;
  uint16_t command = 0;
  // "STANDARD_CT", with the command where it is no storage.
  std::string title() const;
};

// Chooses by the SOP class, the level of a query and the contents; what is `named` is kept. The object gets
// service and command. An error text, empty on success.
std::string choose_standard(int32_t id, const Standard& named, Standard& standard);

}  // namespace vexal
