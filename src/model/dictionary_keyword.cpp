// Keywords of the attributes that the dictionary has.

#include <string_view>

#include "frame/text.h"
#include "model/dictionary.h"
#include "model/keyword.h"
#include "model/object.h"

namespace vx {

VX_STATUS dictionary_keyword(uint32_t tag, char* buffer, int32_t size) {
  DictInfo info{};
  const VX_STATUS status = dictionary_lookup(tag, {}, info);
  if (status == VX_MISSING_CONFIG_PARM) return status;
  if (is_private(tag)) return VX_INVALID_TAG;
  if (buffer == nullptr) return VX_NULL_POINTER_PARM;
  if (size < 1) return VX_BUFFER_TOO_SMALL;
  if (status != kOk) return status;
  Keyword keyword;
  const std::string_view name = info.name == nullptr ? std::string_view() : std::string_view(info.name);
  make_keyword(tag, name.substr(0, kMaxKeywordName), keyword);
  if (keyword.view().size() >= static_cast<std::size_t>(size)) return VX_BUFFER_TOO_SMALL;
  copy_text(buffer, static_cast<std::size_t>(size), keyword.view());
  return kOk;
}

}  // namespace vx
