// The head of a clinical document (HL7 CDA), as far as an object repeats it.
#pragma once

#include <string>
#include <string_view>

namespace vexal {

struct CdaHead {
  std::string id_root{}, id_extension{};
  std::string code{}, code_system{}, code_name{};
  std::string title{};
};

// The name of the root element without its prefix; "" if the text is no XML.
std::string_view xml_root(std::string_view text);
// What stands right below the root, as far as the text goes.
CdaHead read_cda_head(std::string_view text);

}  // namespace vexal
