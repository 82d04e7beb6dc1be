// SHA-256 (FIPS 180-4) and its keyed form (RFC 2104): what stands for an identifier must not lead back to it.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace vx {

using Digest = std::array<uint8_t, 32>;

Digest sha256(std::string_view bytes);
Digest hmac_sha256(std::string_view key, std::string_view bytes);

}  // namespace vx
