#include "vexaltls.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

struct VexalTls {
  SSL_CTX* context = nullptr;
  std::string host;
  bool verify = true;

  ~VexalTls() { SSL_CTX_free(context); }
};

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kHandshakeTime{15};  // for the whole handshake, where nobody says otherwise
constexpr int kRestTime = 30;                       // seconds for the rest of a read that has begun

enum : int32_t { kDone = 0, kFailed = 1, kTimedOut = 2 };

// Suites of TLS 1.2; those of 1.3 are all fit (RFC 9325).
constexpr char kSuites[] = "ECDHE+AESGCM:DHE+AESGCM:ECDHE+CHACHA20:DHE+CHACHA20:!aNULL:!PSK";
constexpr char kStrictSuites[] = "ECDHE+AES256+AESGCM:DHE+AES256+AESGCM:ECDHE+CHACHA20:!aNULL:!PSK";
constexpr char kStrictSuites13[] = "TLS_AES_256_GCM_SHA384:TLS_CHACHA20_POLY1305_SHA256";

std::string openssl_problem() {
  const unsigned long code = ERR_get_error();
  ERR_clear_error();
  if (ERR_SYSTEM_ERROR(code)) return std::strerror(ERR_GET_REASON(code));
  const char* reason = code != 0 ? ERR_reason_error_string(code) : nullptr;
  return reason != nullptr ? reason : "unknown problem";
}

bool is_address(const std::string& host) {
  unsigned char bytes[16];
  return inet_pton(AF_INET, host.c_str(), bytes) == 1 || inet_pton(AF_INET6, host.c_str(), bytes) == 1;
}

// One connection.
struct Channel {
  SSL* ssl;
  int socket;

  ~Channel() { SSL_free(ssl); }

  // Waits for what OpenSSL said it wants. kDone when it is there.
  int32_t wait(int result, Clock::time_point deadline) const {
    const int wanted = SSL_get_error(ssl, result);
    if (wanted != SSL_ERROR_WANT_READ && wanted != SSL_ERROR_WANT_WRITE) return kFailed;
    pollfd entry{socket, static_cast<short>(wanted == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT), 0};
    for (;;) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      const int ready = ::poll(&entry, 1, static_cast<int>(std::clamp<long>(left, 0, INT_MAX)));
      if (ready > 0) return kDone;
      if (ready == 0) return kTimedOut;
      if (errno != EINTR) return kFailed;
    }
  }

  // The receive time-out of the socket is what the caller has left for it.
  Clock::duration handshake_time() const {
    timeval left{};
    socklen_t size = sizeof left;
    if (::getsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &left, &size) != 0 ||
        (left.tv_sec == 0 && left.tv_usec == 0))
      return kHandshakeTime;
    return std::chrono::seconds(left.tv_sec) + std::chrono::microseconds(left.tv_usec);
  }

  bool handshake(bool acceptor) const {
    const Clock::time_point deadline = Clock::now() + handshake_time();
    for (;;) {
      ERR_clear_error();
      const int result = acceptor ? SSL_accept(ssl) : SSL_connect(ssl);
      if (result == 1) return true;
      const int32_t outcome = wait(result, deadline);
      if (outcome == kDone) continue;
      const long verdict = SSL_get_verify_result(ssl);
      VXlog(VX_LOG_ERROR, "TLS: %s",
            outcome == kTimedOut   ? "the peer did not finish the handshake in time"
            : verdict != X509_V_OK ? X509_verify_cert_error_string(verdict)
                                   : openssl_problem().c_str());
      return false;
    }
  }
};

Clock::time_point after(int32_t seconds) {
  constexpr int32_t kEver = 10 * 365 * 86400;
  return Clock::now() + std::chrono::seconds(seconds < 0 ? kEver : seconds);
}

bool expect_host(SSL* ssl, const std::string& host) {
  if (is_address(host)) return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), host.c_str()) == 1;
  return SSL_set1_host(ssl, host.c_str()) == 1 && SSL_set_tlsext_host_name(ssl, host.c_str()) == 1;
}

int32_t open_channel(int32_t socket, int32_t role, void* application, void** out) {
  const auto& tls = *static_cast<const VexalTls*>(application);
  SSL* ssl = SSL_new(tls.context);
  auto channel = std::unique_ptr<Channel>(ssl != nullptr ? new (std::nothrow) Channel{ssl, socket} : nullptr);
  if (channel == nullptr) {
    SSL_free(ssl);
    return kFailed;
  }
  if (SSL_set_fd(ssl, socket) != 1) return kFailed;
  if (role == 0 && tls.verify && !expect_host(ssl, tls.host)) return kFailed;
  if (!channel->handshake(role == 1)) return kFailed;
  *out = channel.release();
  return kDone;
}

// The library takes what one call delivers as the whole read, so this one waits for all of it.
int32_t read_channel(void* secure, void*, void* buffer, uint32_t length, uint32_t* count, int32_t timeout) {
  auto& channel = *static_cast<Channel*>(secure);
  Clock::time_point deadline = after(timeout);
  for (*count = 0; *count < length;) {
    ERR_clear_error();
    std::size_t got = 0;
    const int result = SSL_read_ex(channel.ssl, static_cast<char*>(buffer) + *count, length - *count, &got);
    if (result == 1) {
      if (*count == 0) deadline = after(kRestTime);
      *count += static_cast<uint32_t>(got);
      continue;
    }
    const int32_t outcome = channel.wait(result, deadline);
    if (outcome == kTimedOut) return *count == 0 ? kTimedOut : kFailed;
    if (outcome != kDone) return kFailed;
  }
  return kDone;
}

int32_t write_channel(void* secure, void*, const void* buffer, uint32_t length, uint32_t* count,
                      int32_t timeout) {
  auto& channel = *static_cast<Channel*>(secure);
  const Clock::time_point deadline = after(timeout);
  for (*count = 0; *count < length;) {
    ERR_clear_error();
    std::size_t put = 0;
    const int result =
        SSL_write_ex(channel.ssl, static_cast<const char*>(buffer) + *count, length - *count, &put);
    if (result == 1) {
      *count += static_cast<uint32_t>(put);
      continue;
    }
    if (const int32_t outcome = channel.wait(result, deadline); outcome != kDone) return outcome;
  }
  return kDone;
}

void close_channel(void* secure, void*) {
  auto* channel = static_cast<Channel*>(secure);
  if (channel == nullptr) return;
  ERR_clear_error();
  if (SSL_is_init_finished(channel->ssl) != 0) SSL_shutdown(channel->ssl);
  delete channel;
}

std::string load_certificate(SSL_CTX* context, const VexalTlsOptions& options) {
  if (options.Certificate == nullptr) {
    return options.Acceptor != 0 ? "an acceptor needs a certificate of its own" : "";
  }
  const char* key = options.Key != nullptr ? options.Key : options.Certificate;
  if (SSL_CTX_use_certificate_chain_file(context, options.Certificate) != 1) {
    return std::string(options.Certificate) + ": " + openssl_problem();
  }
  if (SSL_CTX_use_PrivateKey_file(context, key, SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_check_private_key(context) != 1) {
    return std::string(key) + ": " + openssl_problem();
  }
  return "";
}

std::string load_authorities(SSL_CTX* context, const VexalTlsOptions& options) {
  if (options.Authorities == nullptr) {
    SSL_CTX_set_default_verify_paths(context);
    return "";
  }
  if (SSL_CTX_load_verify_locations(context, options.Authorities, nullptr) != 1) {
    return std::string(options.Authorities) + ": " + openssl_problem();
  }
  if (options.Acceptor != 0)
    SSL_CTX_set_client_CA_list(context, SSL_load_client_CA_file(options.Authorities));
  return "";
}

std::string set_up(VexalTls& tls, const VexalTlsOptions& options) {
  tls.context = SSL_CTX_new(options.Acceptor != 0 ? TLS_server_method() : TLS_client_method());
  if (tls.context == nullptr || SSL_CTX_set_min_proto_version(tls.context, TLS1_2_VERSION) != 1 ||
      SSL_CTX_set_cipher_list(tls.context, options.Strict != 0 ? kStrictSuites : kSuites) != 1 ||
      (options.Strict != 0 && SSL_CTX_set_ciphersuites(tls.context, kStrictSuites13) != 1)) {
    return openssl_problem();
  }
  SSL_CTX_set_mode(tls.context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  SSL_CTX_set_options(tls.context, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
  // A session that is taken up again would pass the certificates by.
  SSL_CTX_set_session_cache_mode(tls.context, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_num_tickets(tls.context, 0);
  tls.verify = options.NoVerify == 0;
  if (options.Host != nullptr) tls.host = options.Host;
  if (tls.verify && options.Acceptor == 0 && tls.host.empty())
    return "the host that the peer must prove to be is missing";
  const int demand = options.Acceptor != 0 ? SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0;
  SSL_CTX_set_verify(tls.context, tls.verify ? SSL_VERIFY_PEER | demand : SSL_VERIFY_NONE, nullptr);
  const std::string problem = load_certificate(tls.context, options);
  return problem.empty() ? load_authorities(tls.context, options) : problem;
}

}  // namespace

VexalTls* vexal_tls_new(const VexalTlsOptions* Options, char* Problem, size_t ProblemSize) try {
  auto tls = std::make_unique<VexalTls>();
  const std::string problem = Options != nullptr ? set_up(*tls, *Options) : "no options";
  if (Problem != nullptr && ProblemSize != 0) std::snprintf(Problem, ProblemSize, "%s", problem.c_str());
  return problem.empty() ? tls.release() : nullptr;
} catch (const std::bad_alloc&) {
  if (Problem != nullptr && ProblemSize != 0) std::snprintf(Problem, ProblemSize, "no memory");
  return nullptr;
}

void vexal_tls_free(VexalTls* Tls) {
  delete Tls;
}

const SS_Functions* vexal_tls_functions() {
  static const SS_Functions kFunctions = {open_channel, read_channel, write_channel, close_channel};
  return &kFunctions;
}
