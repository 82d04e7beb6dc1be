// Base64 (RFC 4648), also in the alphabet of URLs.
#pragma once

#include <string>
#include <string_view>

namespace vexal {

std::string base64_of(std::string_view bytes);
// False where the text is none. With `url`, the alphabet of URLs, without padding.
bool from_base64(std::string_view text, bool url, std::string& bytes);

}  // namespace vexal
