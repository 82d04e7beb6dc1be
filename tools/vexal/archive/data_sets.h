// Data sets of messages as bytes, to be kept or sent later: in explicit little endian.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "network/network.h"

namespace vexal {

// False where memory fails.
bool encode_data_set(int32_t message, std::string& bytes);
// Adds what the bytes hold to an object; takes the bytes.
bool decode_data_set(int32_t object, std::string& bytes);

struct Part10 {
  std::string sop_class;
  std::string instance;
  mode_t mode;
  bool durable;  // it is on the disk when it is written
};
// Writes a message's data set as a file in explicit little endian, in place of an older one; the message is
// gone then. An error text, empty on success.
std::string write_part10(Message& message, const std::string& path, const Part10& head);

}  // namespace vexal
