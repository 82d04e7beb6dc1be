#include "tls.h"

#include "base/opened_library.h"

namespace vexal {
namespace {

const char* text_or_null(const std::string& text) {
  return text.empty() ? nullptr : text.c_str();
}

}  // namespace

Tls::~Tls() {
  if (tls_ != nullptr) free_(tls_);
}

bool Tls::set_up(const Args& args, bool acceptor, const std::string& host) {
  if (!args.has("--tls")) {
    for (const char* name : {"--tls-cert", "--tls-key", "--tls-ca", "--tls-profile", "--tls-no-verify"}) {
      if (!args.has(name)) continue;
      complain("%s: needs --tls", name);
      return false;
    }
    return true;
  }
  const std::string profile = args.get("--tls-profile", "bcp195");
  if (profile != "bcp195" && profile != "bcp195-strict") {
    complain("--tls-profile %s: give bcp195 or bcp195-strict", profile.c_str());
    return false;
  }
  decltype(&vexal_tls_new) make = nullptr;
  decltype(&vexal_tls_functions) table = nullptr;
  const SoughtSymbol symbols[] = {
      {"vexal_tls_new", make}, {"vexal_tls_free", free_}, {"vexal_tls_functions", table}};
  if (const std::string fault = open_library(VEXAL_TLS_LIBRARY, symbols); !fault.empty()) {
    complain("--tls: %s", fault.c_str());
    return false;
  }
  const std::string certificate = args.get("--tls-cert");
  const std::string key = args.get("--tls-key");
  const std::string authorities = args.get("--tls-ca");
  VexalTlsOptions options{};
  options.Certificate = text_or_null(certificate);
  options.Key = text_or_null(key);
  options.Authorities = text_or_null(authorities);
  options.Host = text_or_null(host);
  options.Acceptor = acceptor ? 1 : 0;
  options.Strict = profile == "bcp195-strict" ? 1 : 0;
  options.NoVerify = args.has("--tls-no-verify") ? 1 : 0;
  char problem[256] = "";
  tls_ = make(&options, problem, sizeof problem);
  functions_ = table();
  if (tls_ == nullptr)
    complain("--tls: %s%s", problem, acceptor && certificate.empty() ? "; name it with --tls-cert" : "");
  return tls_ != nullptr;
}

}  // namespace vexal
