#include "opened_library.h"

#include <dlfcn.h>

namespace vexal {

std::string open_library(const char* file, std::span<const SoughtSymbol> symbols) {
  const auto reason = [file] {
    const char* text = ::dlerror();
    return std::string(text != nullptr ? text : file);
  };
  void* library = ::dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return reason();
  for (const SoughtSymbol& symbol : symbols) {
    *symbol.address = ::dlsym(library, symbol.name);
    if (*symbol.address == nullptr) return reason();
  }
  return "";
}

}  // namespace vexal
