#include "config/shared_library.h"

#include <dlfcn.h>

#include <string>

#include "config/config.h"
#include "frame/log.h"
#include "frame/state.h"

namespace vx {

bool open_shared_library(const char* file, const Symbol* symbols, std::size_t count) {
  return open_shared_library(std::span(&file, 1), symbols, count);
}

bool open_shared_library(std::span<const char* const> files, const Symbol* symbols, std::size_t count) {
  void* library = nullptr;
  const char* file = "";
  std::string reason;  // why the first is not there
  const std::string folder = library_initialized() ? config_text(VX_CFG_PEGASUS_OPCODE_PATH) : "";
  for (std::size_t i = 0; library == nullptr && i < files.size(); ++i) {
    file = files[i];
    if (!folder.empty()) library = dlopen((folder + "/" + file).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (library != nullptr || !reason.empty()) continue;
    const char* fault = dlerror();
    reason = fault != nullptr ? fault : file;
  }
  if (library == nullptr) {
    VX_LOG_WARN("VXI_openCodec", "%s", reason.c_str());
    return false;
  }
  for (std::size_t i = 0; i < count; ++i) {
    *symbols[i].address = dlsym(library, symbols[i].name);
    if (*symbols[i].address == nullptr) {
      VX_LOG_WARN("VXI_openCodec", "%s lacks %s", file, symbols[i].name);
      return false;
    }
  }
  return true;
}

}  // namespace vx
