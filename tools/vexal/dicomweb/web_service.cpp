#include "web_service.h"

#include <algorithm>
#include <sstream>

#include "frames.h"
#include "network/network.h"
#include "retrieve.h"
#include "search.h"
#include "wado_uri.h"
#include "web_answers.h"
#include "web_audit.h"
#include "web_store.h"

namespace vexal {
namespace {

constexpr char kRoot[] = "dicom-web";
constexpr char kWado[] = "wado";

// What the services are, for programs (PS3.18 section 8.9), as far as paths and methods go.
HttpResponse describe_services(const WebContext& context);

// What each resource answers, by method.
struct Route {
  WebResource resource;
  const char* method;
  unsigned right;
  HttpResponse (*answer)(const WebContext& context);  // null: what stores, and has a body
};
constexpr Route kRoutes[] = {
    {WebResource::Service, "GET", 0, describe_services},
    {WebResource::Studies, "GET", kMayRead, search},
    {WebResource::Series, "GET", kMayRead, search},
    {WebResource::Instances, "GET", kMayRead, search},
    {WebResource::Objects, "GET", kMayRead, retrieve_objects},
    {WebResource::Metadata, "GET", kMayRead, retrieve_metadata},
    {WebResource::Bulkdata, "GET", kMayRead, retrieve_bulk},
    {WebResource::Frames, "GET", kMayRead, retrieve_frames},
    {WebResource::Rendered, "GET", kMayRead, retrieve_rendered},
    {WebResource::Thumbnail, "GET", kMayRead, retrieve_thumbnail},
    {WebResource::Studies, "POST", kMayWrite, nullptr},
    {WebResource::Objects, "POST", kMayWrite, nullptr},
};

// Objects are stored below a study or none.
bool is_route_of(const Route& route, const WebTarget& target) {
  return route.resource == target.resource && (route.answer != nullptr || target.series.empty());
}

// "GET, POST" of a target; "" for one that nothing answers.
std::string methods_of(const WebTarget& target) {
  std::string methods;
  for (const Route& route : kRoutes) {
    if (!is_route_of(route, target)) continue;
    if (!methods.empty()) methods += ", ";
    methods += route.method;
  }
  return methods.empty() ? "" : methods + ", OPTIONS";
}

// A host as a client named it, if it can stand in a URL.
bool is_host(const std::string& text) {
  constexpr std::size_t kLongest = 261;
  return !text.empty() && text.size() <= kLongest &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) {
           return std::isalnum(c) != 0 || c == '.' || c == '-' || c == ':' || c == '[' || c == ']' ||
                  c == '_';
         });
}

}  // namespace

namespace {

constexpr struct {
  const char* path;
  const char* methods;
} kPaths[] = {
    {"studies", "GET POST"},
    {"series", "GET"},
    {"instances", "GET"},
    {"studies/{study}", "GET POST"},
    {"studies/{study}/metadata", "GET"},
    {"studies/{study}/rendered", "GET"},
    {"studies/{study}/thumbnail", "GET"},
    {"studies/{study}/series", "GET"},
    {"studies/{study}/instances", "GET"},
    {"studies/{study}/series/{series}", "GET"},
    {"studies/{study}/series/{series}/metadata", "GET"},
    {"studies/{study}/series/{series}/rendered", "GET"},
    {"studies/{study}/series/{series}/thumbnail", "GET"},
    {"studies/{study}/series/{series}/instances", "GET"},
    {"studies/{study}/series/{series}/instances/{instance}", "GET"},
    {"studies/{study}/series/{series}/instances/{instance}/metadata", "GET"},
    {"studies/{study}/series/{series}/instances/{instance}/rendered", "GET"},
    {"studies/{study}/series/{series}/instances/{instance}/thumbnail", "GET"},
    {"studies/{study}/series/{series}/instances/{instance}/bulkdata/{path}", "GET"},
    {"studies/{study}/series/{series}/instances/{instance}/frames/{frames}", "GET"},
    {"studies/{study}/series/{series}/instances/{instance}/frames/{frames}/rendered", "GET"},
};

HttpResponse describe_services(const WebContext& context) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<application xmlns=\"http://wadl.dev.java.net/2009/02\">\n  <resources base=\"" +
      context.root + "\">\n";
  for (const auto& row : kPaths) {
    text += std::string("    <resource path=\"") + row.path + "\">";
    std::istringstream methods(row.methods);
    for (std::string method; methods >> method;) text += "<method name=\"" + method + "\"/>";
    text += "</resource>\n";
  }
  return HttpResponse::text(200, "application/vnd.sun.wadl+xml", text + "  </resources>\n</application>\n");
}

}  // namespace

bool WebService::read(const Args& args) {
  if (!args.has("--web")) {
    for (const char* name : {"--web-url", "--web-connections", "--web-users", "--web-keys", "--web-audience",
                             "--web-rights", "--web-origin"}) {
      if (!args.has(name)) continue;
      complain("%s: needs --web", name);
      return false;
    }
    return true;
  }
  int32_t port = 0;
  long most = 64;
  long timeout = 30;
  long most_of_one = 0;
  long idle = options_.idle;
  if (!parse_port(args.get("--web"), port) || !args.number("--web-connections", 1, 4096, most) ||
      !args.number("--timeout", 1, 86400, timeout) ||
      !args.number("--max-per-address", 1, 4096, most_of_one) || !args.number("--idle", 1, 86400, idle))
    return false;
  options_.port = port;
  options_.address = args.get("--address");
  options_.most = static_cast<unsigned>(most);
  options_.most_of_one = static_cast<unsigned>(most_of_one > 0 ? most_of_one : std::max(most / 2, 1L));
  options_.timeout = static_cast<unsigned>(timeout);
  options_.idle = static_cast<unsigned>(std::min(idle, 60L));
  if (args.has("--tls")) {
    options_.certificate = args.get("--tls-cert");
    options_.key = args.get("--tls-key");
    options_.strict = args.get("--tls-profile") == "bcp195-strict";
  }
  url_ = args.get("--web-url");
  while (url_.ends_with('/')) url_.pop_back();
  quiet_ = args.has("--quiet");
  return gate_.read(args);
}

bool WebService::start() {
  if (!wanted()) return true;
  const std::string error = server_.start(options_, [this](HttpRequest& request) { return handle(request); });
  if (!error.empty()) complain("--web %d: %s", options_.port, error.c_str());
  if (error.empty()) warn_if_open();
  return error.empty();
}

void WebService::warn_if_open() const {
  if (quiet_ || (!gate_.is_open() && !options_.certificate.empty()) || options_.address == "localhost" ||
      options_.address == "::1" || options_.address.starts_with("127."))
    return;
  complain(
      "notice: %s reaches port %d may use the web services%s",
      gate_.is_open() ? "everyone who" : "who has credentials and", options_.port,
      options_.certificate.empty() ? "; all of it, credentials too, goes over the network in the clear" : "");
}

std::string WebService::root_of(const HttpRequest& request) const {
  const std::string host = request.header("Host");
  std::string url = url_;
  if (url.empty() && is_host(host)) url = (request.secure ? "https://" : "http://") + host;
  return url + "/" + kRoot;
}

std::unique_ptr<HttpWork> WebService::handle(HttpRequest& request) {
  HttpResponse refusal;
  const std::string segment = request.path.empty() ? "" : request.path[0];
  if (const auto open = open_.find(segment); open != open_.end()) return open->second(request);
  if (gate_.stops(request, refusal)) return answer_with(std::move(refusal));
  if (const auto other = others_.find(segment); other != others_.end()) return other->second(request);
  WebTarget target;
  if (segment == kRoot) {
    target = parse_web_target({request.path.begin() + 1, request.path.end()});
  } else if (segment == kWado && request.path.size() == 1) {
    if (const std::string error = read_wado_uri(request, target); !error.empty())
      return answer_with(HttpResponse::problem(400, error));
  }
  return serve(request, target);
}

std::unique_ptr<HttpWork> WebService::serve(HttpRequest& request, const WebTarget& target) {
  const std::string methods = methods_of(target);
  if (methods.empty()) return answer_with(HttpResponse::problem(404, "There is no such resource."));
  const std::string method = request.method == "HEAD" ? "GET" : request.method;
  for (const Route& route : kRoutes) {
    if (!is_route_of(route, target) || route.method != method) continue;
    HttpResponse refusal;
    if (!WebGate::allows(request, route.right, refusal)) return answer_with(std::move(refusal));
    const std::string root = root_of(request);
    if (route.answer == nullptr) return store_work(request, storage_, target.study, root);
    const auto context = std::make_shared<WebContext>(WebContext{request, target, holdings_, root});
    return answer_by([context, &route, this] {
      if (storage_.audit != nullptr && context->request.method == "GET")
        audit_reading(*context, *storage_.audit, storage_.title);
      return route.answer(*context);
    });
  }
  HttpResponse answer;
  answer.status = 204;
  if (method != "OPTIONS") answer = HttpResponse::problem(405, "This resource takes " + methods + ".");
  answer.with("Allow", methods);
  return answer_with(std::move(answer));
}

}  // namespace vexal
