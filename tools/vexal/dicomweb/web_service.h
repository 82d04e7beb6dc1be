// DICOM web services of an archive over HTTP (PS3.18).
#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/args.h"
#include "holdings/holdings.h"
#include "http/http_server.h"
#include "http/web_gate.h"
#include "server/storage.h"
#include "target.h"

namespace vexal {

// Rows of the option table of a server with web services.
#define VEXAL_WEB_SERVICE_OPTIONS                                                                          \
  {"--web", "PORT", "web services at http://HOST:PORT/dicom-web (PS3.18); with --tls, https"},             \
      {"--web-url", "URL",                                                                                 \
       "how clients reach the web server, as http://archive.example; goes into answers (default: as each " \
       "request names it)"},                                                                               \
      {"--web-connections", "N", "connections of web clients at once; more wait (default 64)"},            \
      VEXAL_WEB_GATE_OPTIONS

class WebService {
 public:
  WebService(Holdings& holdings, StorageOptions& storage) : holdings_(holdings), storage_(storage) {}

  // Reads the options; false after a line on standard error.
  bool read(const Args& args);
  // Whether --web was given.
  bool wanted() const { return options_.port != 0; }
  // Requests whose path begins with this segment ("": no segment) go to another handler, once the gate has
  // let them pass; it looks at their rights itself. Before start().
  void serve_also(const std::string& segment, HttpHandler handler) { others_[segment] = std::move(handler); }
  // Likewise for a segment that everyone may ask for: the gate is not asked.
  void serve_openly(const std::string& segment, HttpHandler handler) { open_[segment] = std::move(handler); }
  // Listens, if it was, and says so where everyone who reaches the port may do everything. False after a line
  // on standard error.
  bool start();
  void stop() { server_.stop(); }

 private:
  void warn_if_open() const;
  std::unique_ptr<HttpWork> handle(HttpRequest& request);
  std::unique_ptr<HttpWork> serve(HttpRequest& request, const WebTarget& target);
  std::string root_of(const HttpRequest& request) const;

  Holdings& holdings_;
  StorageOptions& storage_;
  HttpServerOptions options_;
  WebGate gate_;
  std::map<std::string, HttpHandler> others_;
  std::map<std::string, HttpHandler> open_;
  std::string url_;
  bool quiet_ = false;
  HttpServer server_;
};

}  // namespace vexal
