// Who may do what over HTTP: users with passwords, bearer tokens, and pages of other origins.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/args.h"
#include "http_message.h"
#include "jwt.h"

namespace vexal {

enum WebRight : unsigned { kMayRead = 1, kMayWrite = 2, kMayDelete = 4 };

// Rows of an option table.
#define VEXAL_WEB_GATE_OPTIONS                                                                              \
  {"--web-users", "FILE",                                                                                   \
   "users with passwords, a line each: NAME:HASH:RIGHT,...; the hash is that of 'openssl passwd -6', the "  \
   "rights are read, write and delete"},                                                                    \
      {"--web-keys", "FILE",                                                                                \
       "keys for bearer tokens: a public key in PEM (RS256, ES256), or a set of keys in JSON (JWKS, HS256 " \
       "too); rights are words of scope or roles"},                                                         \
      {"--web-audience", "TEXT", "tokens have to be for this audience"},                                    \
      {"--web-rights", "RIGHT,...",                                                                         \
       "what clients may do without credentials: read, write, delete or none (default: read,write; none "   \
       "with --web-users or --web-keys)"},                                                                  \
  {                                                                                                         \
    "--web-origin", "ORIGIN",                                                                               \
        "pages of this origin, as https://viewer.example, may use the services; may "                       \
        "be repeated"                                                                                       \
  }

class WebGate {
 public:
  // Reads the options and their files; false after a line on standard error.
  bool read(const Args& args);
  // Nobody has to prove who he is.
  bool is_open() const { return anonymous_ != 0; }
  // Fills in user and rights of the request, and the headers that all answers to it get. True: `refusal` is
  // the answer; of pages that ask beforehand, too.
  bool stops(HttpRequest& request, HttpResponse& refusal);
  // Whether the rights suffice; otherwise `refusal` says so.
  static bool allows(const HttpRequest& request, unsigned right, HttpResponse& refusal);

 private:
  struct User {
    std::string hash;
    unsigned rights = 0;
  };
  using Clock = std::chrono::steady_clock;

  std::string read_users(const std::string& path);
  bool prove_password(const std::string& credentials, HttpRequest& request);
  bool prove_token(const std::string& token, HttpRequest& request) const;
  bool is_known(const std::string& credentials);

  std::unordered_map<std::string, User> users_;
  JwtKeys keys_;
  std::string audience_;
  std::vector<std::string> origins_;
  unsigned anonymous_ = kMayRead | kMayWrite;
  std::mutex mutex_;
  std::unordered_map<std::string, Clock::time_point> proved_;  // credentials, and how long they stay so
};

// "read,write"; false if it is no such list. "none" is 0.
bool parse_web_rights(const std::string& text, unsigned& rights);

}  // namespace vexal
