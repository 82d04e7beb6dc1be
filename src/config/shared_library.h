// Libraries that are opened when they are first needed, so that a start pays nothing for them.
#pragma once

#include <cstddef>
#include <span>

namespace vx {

struct Symbol {
  const char* name;
  void** address;
};
// Opens a library, from the folder of PEGASUS_OPCODE_PATH if that has it, and finds its symbols. False after
// a line in the log. It stays open for the life of the process.
bool open_shared_library(const char* file, const Symbol* symbols, std::size_t count);
// Likewise the first of several names, of versions that are alike, that the machine has.
bool open_shared_library(std::span<const char* const> files, const Symbol* symbols, std::size_t count);

}  // namespace vx
