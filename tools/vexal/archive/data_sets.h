// Data sets of messages as bytes, to be kept or sent later: in explicit little endian.
#pragma once

#include <cstdint>
#include <string>

namespace vexal {

// False where memory fails.
bool encode_data_set(int32_t message, std::string& bytes);
// Adds what the bytes hold to an object; takes the bytes.
bool decode_data_set(int32_t object, std::string& bytes);

}  // namespace vexal
