#include "operation.h"

#include "base/session.h"
#include "base/tags.h"
#include "server/metrics.h"

namespace vexal {
namespace {

constexpr char kPlain[] = "text/plain; charset=utf-8";

// A question that the index answers at once, whatever it holds.
HttpResponse readiness(Holdings& holdings) {
  std::vector<ObjectFile> none;
  const std::string error = holdings.objects({{tags::kSOPInstanceUID, VX_VR_UI, "2.25.0"}}, nullptr, none);
  if (error.empty()) return HttpResponse::text(200, kPlain, "ready\n");
  // What is wrong is for the log: everyone may ask.
  report("health", error);
  return HttpResponse::text(503, kPlain, "the index does not answer\n");
}

std::unique_ptr<HttpWork> health(const HttpRequest& request, Holdings& holdings) {
  const std::string what = request.path.size() == 2 ? request.path[1] : "";
  if (what == "live") return answer_with(HttpResponse::text(200, kPlain, "live\n"));
  if (what == "ready") return answer_by([&holdings] { return readiness(holdings); });
  return answer_with(HttpResponse::problem(404, "There is no such resource."));
}

bool is_reading(const HttpRequest& request) {
  return request.method == "GET" || request.method == "HEAD";
}

std::unique_ptr<HttpWork> refuse_method() {
  HttpResponse answer = HttpResponse::problem(405, "This resource takes GET.");
  answer.with("Allow", "GET");
  return answer_with(std::move(answer));
}

}  // namespace

void serve_operation(WebService& web, Holdings& holdings) {
  web.serve_openly("health", [&holdings](HttpRequest& request) {
    return is_reading(request) ? health(request, holdings) : refuse_method();
  });
  web.serve_also("metrics", [](HttpRequest& request) {
    HttpResponse refusal;
    if (!is_reading(request)) return refuse_method();
    if (!WebGate::allows(request, kMayRead, refusal)) return answer_with(std::move(refusal));
    return answer_by([] { return HttpResponse::text(200, "text/plain; version=0.0.4", metrics_text()); });
  });
}

}  // namespace vexal
