#include "config/shared_library.h"

#include <dlfcn.h>

#include <string>

#include "config/config.h"
#include "frame/log.h"
#include "frame/state.h"

namespace vx {

bool open_shared_library(const char* file, const Symbol* symbols, std::size_t count) {
  void* library = nullptr;
  std::string folder = library_initialized() ? config_text(VX_CFG_PEGASUS_OPCODE_PATH) : "";
  if (!folder.empty()) library = dlopen((folder + "/" + file).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* reason = dlerror();
    VX_LOG_WARN("VXI_openCodec", "%s", reason != nullptr ? reason : file);
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
