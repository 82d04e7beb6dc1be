// The default configuration inside the program, pointed at the data files beside it.
#include "embedded.h"

#include <unistd.h>

#include <filesystem>
#include <string>

extern "C" ConfigRecord* vexal_embedded_config();
extern "C" const DictionaryRecord* vexal_embedded_dictionary();

namespace vexal {
namespace {

// The templates of an installed program lie under ../share, those of a build folder one level further up.
std::string find_templates() {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  for (const char* way : {"../share/vexalkit", "../../share/vexalkit"}) {
    const fs::path file = program.parent_path() / way / "vexalkit.msg";
    if (fs::exists(file, error)) return file.lexically_normal().string();
  }
  return "";
}

}  // namespace

ConfigRecord* embedded_config() {
  // Filled once: the library works with this record, in all threads, when its tables are asked for again.
  static ConfigRecord* const record = [] {
    static const std::string templates = find_templates();
    ConfigRecord* made = vexal_embedded_config();
    made->string_values[VX_CFG_MSG_INFO_FILE] = templates.c_str();
    made->string_values[VX_CFG_TEMP_FILE_DIRECTORY] = "/tmp";
    return made;
  }();
  return record;
}

const DictionaryRecord* embedded_dictionary() {
  return vexal_embedded_dictionary();
}

}  // namespace vexal
