// Dictionary files: whatever a file holds, what was loaded of it is found again under its own key.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "frame/seams.h"
#include "model/dictionary.h"
#include "model/dictionary_table.h"
#include "model/object.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto* file = new vx::DictionaryFile;
  const VX_STATUS status = vx::read_dictionary_bytes(reinterpret_cast<const char*>(data), size, *file);
  if (status != VX_NORMAL_COMPLETION && status != VX_DDFILE_ERROR) std::abort();
  vx::install_dictionary(file);
  for (const DictEntry& entry : file->entries) {
    if (entry.VR < 0 || entry.VR > VX_VR_SQ) std::abort();
    if (vx::is_repeating(entry.Tag) || (vx::is_private(entry.Tag) && vx::tag_element(entry.Tag) == 0))
      continue;
    const std::string_view code = entry.PrivateCode == nullptr ? std::string_view() : entry.PrivateCode;
    vx::DictInfo info{};
    if (vx::dictionary_lookup(entry.Tag, code, info) != VX_NORMAL_COMPLETION || info.name == nullptr)
      std::abort();
    char keyword[16];
    vx::dictionary_keyword(entry.Tag, keyword, sizeof keyword);
  }
  vx::dictionary_drop();
  return 0;
}
