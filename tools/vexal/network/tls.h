// TLS for associations, as the options ask for it. OpenSSL comes into the program only with it.
#pragma once

#include <string>

#include "base/args.h"
#include "vexalkit.h"
#include "vexaltls.h"

namespace vexal {

// Rows of an option table.
#define VEXAL_TLS_OPTIONS                                                                                    \
  {"--tls", nullptr, "secure the association with TLS 1.2 or 1.3 (BCP 195)"},                                \
      {"--tls-cert", "PEM", "own certificate with its chain; an acceptor needs one"},                        \
      {"--tls-key", "PEM", "private key of the certificate (default: in the same file)"},                    \
      {"--tls-ca", "PEM", "certificates that peers must descend from (default: the system's)"},              \
      {"--tls-profile", "NAME", "bcp195 (default), or bcp195-strict: 256-bit forward-secret suites only"}, { \
    "--tls-no-verify", nullptr, "take any certificate; an acceptor then asks for none"                       \
  }

// One TLS set-up, used by all associations of a run. It outlives them.
class Tls {
 public:
  Tls() = default;
  ~Tls();
  Tls(const Tls&) = delete;
  Tls& operator=(const Tls&) = delete;

  // Reads the options; false after a line on standard error. `host` is whom a requester's peer must prove to
  // be.
  bool set_up(const Args& args, bool acceptor, const std::string& host);
  bool on() const { return tls_ != nullptr; }
  // For VX_Open_Secure_Association and its kin.
  const SS_Functions* functions() const { return functions_; }
  void* context() const { return tls_; }

 private:
  VexalTls* tls_ = nullptr;
  const SS_Functions* functions_ = nullptr;
  void (*free_)(VexalTls*) = nullptr;
};

}  // namespace vexal
