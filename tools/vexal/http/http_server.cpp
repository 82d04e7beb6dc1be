#include "http_server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "base/opened_library.h"
#include "base/session.h"
#include "base/thrown.h"
#include "connection_watch.h"
#include "files/files.h"
#include "server/metrics.h"

namespace vexal {
namespace {

constexpr std::size_t kMostHead = 64U << 10;  // bytes of a request line and headers
constexpr std::size_t kBlock = 128U << 10;    // bytes of a body that are asked for at once
constexpr uint64_t kBytesForPatience = 256U << 10;
constexpr uint64_t kMostPassedOver = 64U << 20;  // of a body that is not wanted

struct Mhd {
  decltype(&MHD_start_daemon) start = nullptr;
  decltype(&MHD_stop_daemon) stop = nullptr;
  decltype(&MHD_quiesce_daemon) quiesce = nullptr;
  decltype(&MHD_is_feature_supported) supports = nullptr;
  decltype(&MHD_get_connection_info) info = nullptr;
  decltype(&MHD_get_connection_values) values = nullptr;
  decltype(&MHD_create_response_from_callback) make_response = nullptr;
  decltype(&MHD_add_response_header) add_header = nullptr;
  decltype(&MHD_queue_response) queue = nullptr;
  decltype(&MHD_destroy_response) drop_response = nullptr;
};

std::string open_mhd(Mhd& mhd) {
  const SoughtSymbol symbols[] = {{"MHD_start_daemon", mhd.start},
                                  {"MHD_stop_daemon", mhd.stop},
                                  {"MHD_quiesce_daemon", mhd.quiesce},
                                  {"MHD_is_feature_supported", mhd.supports},
                                  {"MHD_get_connection_info", mhd.info},
                                  {"MHD_get_connection_values", mhd.values},
                                  {"MHD_create_response_from_callback", mhd.make_response},
                                  {"MHD_add_response_header", mhd.add_header},
                                  {"MHD_queue_response", mhd.queue},
                                  {"MHD_destroy_response", mhd.drop_response}};
  const std::string fault = open_library("libmicrohttpd.so.12", symbols);
  return fault.empty() ? "" : "web services need libmicrohttpd: " + fault;
}

// BCP 195 in the words of GnuTLS, which libmicrohttpd brings: suites with forward secrecy and authenticated
// encryption alone.
constexpr char kSuites[] =
    "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2:-KX-ALL:+ECDHE-ECDSA:+ECDHE-RSA:+DHE-RSA:"
    "-CIPHER-ALL:+AES-256-GCM:+CHACHA20-POLY1305:-MAC-ALL:+AEAD";
constexpr char kSmallerKeys[] = ":+AES-128-GCM";

std::string address_text(const sockaddr* address) {
  char text[INET6_ADDRSTRLEN] = "";
  if (address->sa_family == AF_INET) {
    ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof text);
  } else if (address->sa_family == AF_INET6) {
    ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text, sizeof text);
  }
  const std::string_view shown = text;
  constexpr std::string_view kMapped = "::ffff:";
  return std::string(shown.starts_with(kMapped) ? shown.substr(kMapped.size()) : shown);
}

// A socket that listens, on both kinds of addresses where the system has both. -1 on failure, with errno.
int listen_on(const std::string& address, int port) {
  addrinfo hints{};
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const std::string service = std::to_string(port);
  if (::getaddrinfo(address.empty() ? nullptr : address.c_str(), service.c_str(), &hints, &found) != 0) {
    errno = EADDRNOTAVAIL;
    return -1;
  }
  int listener = -1;
  for (const int family : {AF_INET6, AF_INET}) {
    for (const addrinfo* one = found; one != nullptr && listener < 0; one = one->ai_next) {
      if (one->ai_family != family) continue;
      listener = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (listener < 0) continue;
      const int on = 1;
      const int off = 0;
      ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
      if (family == AF_INET6) ::setsockopt(listener, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
      if (::bind(listener, one->ai_addr, one->ai_addrlen) == 0 && ::listen(listener, 512) == 0) continue;
      const int reason = errno;
      ::close(listener);
      listener = -1;
      errno = reason;
    }
  }
  ::freeaddrinfo(found);
  return listener;
}

// What one request is at: made when its first line is there, and gone when its answer is.
struct Exchange {
  HttpRequest request;
  std::string target;
  bool begun = false;
  std::unique_ptr<HttpWork> work;
  WatchedConnection* watch = nullptr;
  uint64_t received = 0;
  uint64_t passed_over = 0;
  bool wanted = true;  // what comes of the body
};

HttpResponse make_answer(Exchange& exchange) {
  const WatchedConnection::Pause pause(exchange.watch);
  return exchange.work->answer();
}

// A body that libmicrohttpd asks for, with what it needs to watch the peer.
struct Outgoing {
  HttpBody body;
  WatchedConnection* watch;
  unsigned timeout;
};

}  // namespace

struct HttpServer::State {
  Mhd mhd;
  HttpServerOptions options;
  HttpHandler handler;
  std::string certificate;
  std::string key;
  std::string suites;
  int port = 0;
  MHD_Daemon* daemon = nullptr;
  std::atomic<unsigned> under_way{0};
  std::unique_ptr<ConnectionWatch> watch;

  std::string begin();
  MHD_Result serve(MHD_Connection* connection, const char* method, const char* body, std::size_t* size,
                   Exchange& exchange);
  void read_head(MHD_Connection* connection, const char* method, Exchange& exchange) const;
  MHD_Result send(MHD_Connection* connection, Exchange& exchange, HttpResponse response) const;
  WatchedConnection* watch_of(MHD_Connection* connection) const;

  // Called by libmicrohttpd, which knows no exceptions.
  static void* on_target(void* self, const char* target, MHD_Connection* connection) noexcept;
  static MHD_Result on_request(void* self, MHD_Connection* connection, const char* url, const char* method,
                               const char* version, const char* body, std::size_t* size,
                               void** exchange) noexcept;
  static void on_completed(void* self, MHD_Connection* connection, void** exchange,
                           MHD_RequestTerminationCode code) noexcept;
  static void on_connection(void* self, MHD_Connection* connection, void** watched,
                            MHD_ConnectionNotificationCode code) noexcept;
};

namespace {

ssize_t read_body(void* user, uint64_t, char* buffer, std::size_t size) noexcept {
  auto& outgoing = *static_cast<Outgoing*>(user);
  try {
    int64_t got = 0;
    {
      const WatchedConnection::Pause pause(outgoing.watch);
      got = outgoing.body.read(buffer, size);
    }
    if (outgoing.watch != nullptr) outgoing.watch->expect_within(outgoing.timeout);
    if (got > 0) return static_cast<ssize_t>(got);
    return got == 0 ? MHD_CONTENT_READER_END_OF_STREAM : MHD_CONTENT_READER_END_WITH_ERROR;
  } catch (...) {
    note_thrown();
    return MHD_CONTENT_READER_END_WITH_ERROR;
  }
}

void drop_body(void* user) noexcept {
  delete static_cast<Outgoing*>(user);
}

void no_log(void*, const char*, va_list) noexcept {}

// Targets are decoded by parse_target() alone.
std::size_t leave_escaped(void*, MHD_Connection*, char* text) noexcept {
  return std::strlen(text);
}

}  // namespace

WatchedConnection* HttpServer::State::watch_of(MHD_Connection* connection) const {
  const MHD_ConnectionInfo* info = mhd.info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  return info != nullptr ? static_cast<WatchedConnection*>(info->socket_context) : nullptr;
}

void* HttpServer::State::on_target(void* self, const char* target, MHD_Connection* connection) noexcept {
  auto& state = *static_cast<State*>(self);
  try {
    auto exchange = std::make_unique<Exchange>();
    exchange->target = target;
    exchange->watch = state.watch_of(connection);
    if (exchange->watch != nullptr) exchange->watch->expect_within(state.options.timeout);
    ++state.under_way;
    return exchange.release();
  } catch (...) {
    note_thrown();
    return nullptr;
  }
}

MHD_Result HttpServer::State::on_request(void* self, MHD_Connection* connection, const char*,
                                         const char* method, const char*, const char* body, std::size_t* size,
                                         void** exchange) noexcept {
  if (*exchange == nullptr) return MHD_NO;
  auto& state = *static_cast<State*>(self);
  auto& one = *static_cast<Exchange*>(*exchange);
  try {
    return state.serve(connection, method, body, size, one);
  } catch (...) {
    note_thrown();
  }
  try {
    return state.send(connection, one, HttpResponse::problem(500, "The request could not be worked on."));
  } catch (...) {
    return MHD_NO;
  }
}

void HttpServer::State::on_completed(void* self, MHD_Connection*, void** exchange,
                                     MHD_RequestTerminationCode) noexcept {
  auto& state = *static_cast<State*>(self);
  auto* one = static_cast<Exchange*>(*exchange);
  if (one == nullptr) return;
  if (one->watch != nullptr) one->watch->expect_within(state.options.idle);
  *exchange = nullptr;
  delete one;
  --state.under_way;
}

void HttpServer::State::on_connection(void* self, MHD_Connection* connection, void** watched,
                                      MHD_ConnectionNotificationCode code) noexcept {
  auto& state = *static_cast<State*>(self);
  try {
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
      const MHD_ConnectionInfo* info = state.mhd.info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
      auto one = std::make_unique<WatchedConnection>(info->connect_fd);
      one->expect_within(state.options.timeout);
      state.watch->add(*one);
      *watched = one.release();
    } else if (*watched != nullptr) {
      auto* one = static_cast<WatchedConnection*>(*watched);
      state.watch->remove(*one);
      delete one;
      *watched = nullptr;
    }
  } catch (...) {
    note_thrown();
  }
}

void HttpServer::State::read_head(MHD_Connection* connection, const char* method, Exchange& exchange) const {
  exchange.request.method = method;
  exchange.request.secure = !certificate.empty();
  mhd.values(
      connection, MHD_HEADER_KIND,
      [](void* user, MHD_ValueKind, const char* name, const char* value) noexcept -> MHD_Result {
        try {
          static_cast<HttpFields*>(user)->emplace_back(name, value != nullptr ? value : "");
          return MHD_YES;
        } catch (...) {
          return MHD_NO;
        }
      },
      &exchange.request.headers);
  const MHD_ConnectionInfo* info = mhd.info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  if (info != nullptr && info->client_addr != nullptr)
    exchange.request.address = address_text(info->client_addr);
}

MHD_Result HttpServer::State::serve(MHD_Connection* connection, const char* method, const char* body,
                                    std::size_t* size, Exchange& exchange) {
  if (!exchange.begun) {
    exchange.begun = true;
    read_head(connection, method, exchange);
    const std::string announced = exchange.request.header("Content-Length");
    const bool has_body =
        !exchange.request.header("Transfer-Encoding").empty() || (!announced.empty() && announced != "0");
    if (!parse_target(exchange.target, exchange.request))
      return send(connection, exchange, HttpResponse::problem(400, "The target is none that can be served."));
    if (options.most_body != 0 && std::strtoull(announced.c_str(), nullptr, 10) > options.most_body)
      return send(connection, exchange, HttpResponse::problem(413, "The body is larger than is taken."));
    exchange.work = handler(exchange.request);
    if (has_body && !exchange.work->takes_body()) return send(connection, exchange, make_answer(exchange));
    if (exchange.watch != nullptr) exchange.watch->expect_within(options.timeout);
    return MHD_YES;
  }
  if (*size == 0) return send(connection, exchange, make_answer(exchange));
  // As much time again for each 256 KiB that came, as long as they come.
  const uint64_t before = exchange.received / kBytesForPatience;
  exchange.received += *size;
  if (exchange.watch != nullptr && exchange.received / kBytesForPatience != before)
    exchange.watch->expect_within(options.timeout);
  const WatchedConnection::Pause pause(exchange.watch);
  if (options.most_body != 0 && exchange.received > options.most_body) return MHD_NO;
  if (exchange.wanted) exchange.wanted = exchange.work->take({body, *size});
  // The peer gets its answer if it comes to an end soon.
  if (!exchange.wanted && (exchange.passed_over += *size) > kMostPassedOver) return MHD_NO;
  *size = 0;
  return MHD_YES;
}

MHD_Result HttpServer::State::send(MHD_Connection* connection, Exchange& exchange,
                                   HttpResponse response) const {
  count(response.status < 400   ? Metric::WebRequests
        : response.status < 500 ? Metric::WebRefusals
                                : Metric::WebFaults);
  if (exchange.watch != nullptr) exchange.watch->expect_within(options.timeout);
  const bool empty = !response.body.read;
  const uint64_t size = empty ? 0 : response.body.length.value_or(MHD_SIZE_UNKNOWN);
  auto outgoing = std::make_unique<Outgoing>();
  *outgoing = {std::move(response.body), exchange.watch, options.timeout};
  MHD_Response* made = mhd.make_response(size, std::min<uint64_t>(std::max<uint64_t>(size, 1), kBlock),
                                         read_body, outgoing.get(), drop_body);
  if (made == nullptr) return MHD_NO;
  outgoing.release();
  bool whole = true;
  HttpFields& headers = exchange.request.answer_headers;
  headers.insert(headers.end(), response.headers.begin(), response.headers.end());
  for (const auto& [name, value] : headers)
    whole = mhd.add_header(made, name.c_str(), value.c_str()) == MHD_YES && whole;
  const MHD_Result result = whole ? mhd.queue(connection, response.status, made) : MHD_NO;
  mhd.drop_response(made);
  return result;
}

std::string HttpServer::State::begin() {
  std::string error = open_mhd(mhd);
  if (!error.empty()) return error;
  unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL |
                   MHD_USE_ITC | MHD_USE_ERROR_LOG;
  std::vector<MHD_OptionItem> secure;
  if (!options.certificate.empty()) {
    if (mhd.supports(MHD_FEATURE_TLS) != MHD_YES) return "this libmicrohttpd was built without TLS";
    const std::string& of_key = options.key.empty() ? options.certificate : options.key;
    error = read_small_file(options.certificate, certificate);
    if (!error.empty()) return options.certificate + ": " + error;
    error = read_small_file(of_key, key);
    if (!error.empty()) return of_key + ": " + error;
    suites = kSuites + std::string(options.strict ? "" : kSmallerKeys);
    flags |= MHD_USE_TLS;
    secure = {{MHD_OPTION_HTTPS_MEM_CERT, 0, certificate.data()},
              {MHD_OPTION_HTTPS_MEM_KEY, 0, key.data()},
              {MHD_OPTION_HTTPS_PRIORITIES, 0, suites.data()}};
  }
  secure.push_back({MHD_OPTION_END, 0, nullptr});
  const int listener = listen_on(options.address, options.port);
  if (listener < 0)
    return "port " + std::to_string(options.port) + ": can not listen on it: " + std::strerror(errno);
  sockaddr_storage name{};
  socklen_t length = sizeof name;
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&name), &length);
  // Both kinds of addresses have the port in the same place.
  port = ntohs(reinterpret_cast<const sockaddr_in*>(&name)->sin_port);
  watch = std::make_unique<ConnectionWatch>();
  daemon = mhd.start(flags, 0, nullptr, nullptr, on_request, this, MHD_OPTION_EXTERNAL_LOGGER, no_log,
                     nullptr, MHD_OPTION_LISTEN_SOCKET, listener, MHD_OPTION_CONNECTION_LIMIT, options.most,
                     MHD_OPTION_PER_IP_CONNECTION_LIMIT, options.most_of_one,
                     MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMostHead, MHD_OPTION_URI_LOG_CALLBACK, on_target,
                     this, MHD_OPTION_UNESCAPE_CALLBACK, leave_escaped, nullptr, MHD_OPTION_NOTIFY_COMPLETED,
                     on_completed, this, MHD_OPTION_NOTIFY_CONNECTION, on_connection, this,
                     MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_ARRAY, secure.data(), MHD_OPTION_END);
  if (daemon != nullptr) return "";
  ::close(listener);
  return options.certificate.empty() ? "the server can not be started"
                                     : "the server can not be started; does the key fit the certificate?";
}

HttpServer::HttpServer() = default;

HttpServer::~HttpServer() {
  stop();
}

std::string HttpServer::start(const HttpServerOptions& options, HttpHandler handler) {
  state_ = std::make_unique<State>();
  state_->options = options;
  state_->handler = std::move(handler);
  std::string error = state_->begin();
  if (!error.empty()) state_.reset();
  return error;
}

int HttpServer::port() const {
  return state_ != nullptr ? state_->port : 0;
}

void HttpServer::stop() {
  if (state_ == nullptr) return;
  const int listener = state_->mhd.quiesce(state_->daemon);
  if (listener >= 0) ::close(listener);
  for (int i = 0; i < 100 && state_->under_way.load() != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  state_->mhd.stop(state_->daemon);
  state_.reset();
}

}  // namespace vexal
