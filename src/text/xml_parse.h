// XML documents taken apart, before any of it reaches an object.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "text/xml.h"

namespace vx {

// One element. Namespaces do not count. An element with children has no text.
struct XmlNode {
  std::string name;
  std::vector<std::pair<std::string, std::string>> fields{};
  std::string text{};
  std::vector<XmlNode> children{};

  const std::string* field(std::string_view key) const {
    for (const auto& [name_of, value] : fields) {
      if (name_of == key) return &value;
    }
    return nullptr;
  }
};

// Elements inside elements: two for each level of sequences, and what stands around and inside them.
inline constexpr std::size_t kMaxElements = 2U * 128U + 6U;

// Both give the status of a callback that fails, or VX_SYSTEM_ERROR for anything that is no such document.
// The root of a document that libxml2 reads; `root` has no name if there is none.
VX_STATUS parse_native(MsgObj& object, void* user, VX_TEXT_INPUT callback, XmlNode& root);
// The Attribute elements of the toolkit's own form, whose control characters no XML parser takes, below a
// root without a name. The names of their fields are in small letters; texts are as they stand.
VX_STATUS parse_own(MsgObj& object, void* user, VX_TEXT_INPUT callback, XmlNode& root);
// The escapes of the toolkit's own form, undone.
std::string unescape_xml(std::string_view text);

}  // namespace vx
