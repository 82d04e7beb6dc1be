// Small XML documents as their texts, through libxml2, which is opened when it is first needed.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vexal {

// An error text, empty on success.
std::string open_xml();

// Calls `take` at the end of each element with the names that lead to it, "Answer/Row/Name", and the text
// that stands directly in it. Names are without their namespaces; at most 16 levels. An error text, empty on
// success; for a document with a type declaration too, which could grow. open_xml() comes first.
std::string read_xml(std::string_view document,
                     const std::function<void(std::string_view path, std::string_view text)>& take);

}  // namespace vexal
