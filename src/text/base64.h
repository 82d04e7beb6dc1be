// Base64 (RFC 4648), written as the bytes come.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vx {

class Base64Writer {
 public:
  explicit Base64Writer(std::string& out) : out_(out) {}
  void add(const void* data, std::size_t size);
  void finish();  // the padding

 private:
  std::string& out_;
  uint8_t rest_[3] = {};
  std::size_t kept_ = 0;
};

// Bytes outside the alphabet are passed over; the padding ends the text. `clean` tells whether there were
// any.
std::string decode_base64(std::string_view text, bool& clean);

}  // namespace vx
