// Base64 (RFC 4648), written as the bytes come.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vx {

class Base64Writer {
 public:
  // With `lines`, CR LF behind each 76 characters and behind the last ones.
  explicit Base64Writer(std::string& out, bool lines = false) : out_(out), lines_(lines) {}
  void add(const void* data, std::size_t size);
  void finish();  // the padding

 private:
  void add_groups(const uint8_t* bytes, std::size_t count);

  std::string& out_;
  const bool lines_;
  std::size_t column_ = 0;
  uint8_t rest_[3] = {};
  std::size_t kept_ = 0;
};

// Bytes outside the alphabet are passed over; the padding ends the text. `clean` tells whether there were
// any.
std::string decode_base64(std::string_view text, bool& clean);

}  // namespace vx
