// Tokens that prove who asks: signed JSON (RFC 7519, RFC 7515), checked through OpenSSL, which is opened when
// there is a key.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vexal {

// What a token says once its signature and times hold.
struct JwtClaims {
  std::string subject;
  std::vector<std::string> words;  // of "scope", "scp", "roles" and "role"
};

class JwtKeys {
 public:
  JwtKeys();
  ~JwtKeys();
  JwtKeys(const JwtKeys&) = delete;
  JwtKeys& operator=(const JwtKeys&) = delete;

  // A public key in PEM (RSA for RS256, P-256 for ES256), or a set of keys in JSON (RFC 7517; "oct" for
  // HS256). An error text, empty on success.
  std::string load(const std::string& text);
  bool empty() const;

  // An error text, empty if the token holds at this time (seconds since 1970). `audience`: what it has to be
  // for; "" for whatever. Any number of threads may ask at once.
  std::string check(std::string_view token, const std::string& audience, int64_t now,
                    JwtClaims& claims) const;

 private:
  struct Key;
  std::string load_set(const std::string& text);
  std::vector<std::unique_ptr<Key>> keys_;
};

}  // namespace vexal
