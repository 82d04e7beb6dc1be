// A server of HTTP over libmicrohttpd, which is opened when the first server starts: the other subcommands
// start without it.
#pragma once

#include <memory>
#include <string>

#include "http_message.h"

namespace vexal {

struct HttpServerOptions {
  int port = 0;
  std::string address{};      // to listen on; empty: all of them
  unsigned most = 64;         // connections at once; more wait
  unsigned most_of_one = 32;  // of these, from one address
  unsigned timeout = 30;      // seconds for a handshake and a head, and for each 256 KiB of a body either way
  unsigned idle = 60;         // seconds that a connection may wait for its next request
  uint64_t most_body = 0;     // bytes of a body; 0: no limit here
  std::string certificate{};  // PEM files; with a certificate, the server speaks TLS 1.2 and 1.3
  std::string key{};          // empty: in the file of the certificate
  bool strict = false;        // 256-bit suites only
};

class HttpServer {
 public:
  HttpServer();
  ~HttpServer();  // as stop()
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // Listens, and serves on threads of its own, one for each connection. An error text, empty on success.
  std::string start(const HttpServerOptions& options, HttpHandler handler);
  // The port that it listens on, also where the options left the choice to the system.
  int port() const;
  // Takes no more connections, lets requests under way come to their end for a moment, and ends all.
  void stop();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vexal
