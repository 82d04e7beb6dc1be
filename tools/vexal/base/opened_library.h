// Libraries that are opened when they are first needed, so that a start pays nothing for them.
#pragma once

#include <span>
#include <string>

namespace vexal {

struct SoughtSymbol {
  template <typename Function>
  SoughtSymbol(const char* symbol, Function& function)
      : name(symbol), address(reinterpret_cast<void**>(&function)) {}
  const char* name;
  void** address;  // of a pointer to a function
};

// Opens a library by its name and finds all of its symbols. It stays open for the life of the process. An
// error text, empty on success.
std::string open_library(const char* file, std::span<const SoughtSymbol> symbols);

}  // namespace vexal
