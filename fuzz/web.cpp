// What clients of the web services send: targets, headers, bodies of several parts, tokens. The first byte
// says which of them the input is.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "dicomweb/target.h"
#include "http/accept.h"
#include "http/http_message.h"
#include "http/jwt.h"
#include "http/multipart.h"
#include "http/web_gate.h"

namespace {

void read_target(std::string_view text) {
  vexal::HttpRequest request;
  if (!vexal::parse_target(text, request)) return;
  for (const std::string& segment : request.path) {
    if (segment.empty() || segment == ".." || segment.find('/') != std::string::npos) std::abort();
  }
  const vexal::WebTarget target = vexal::parse_web_target(request.path);
  if (target.study.find_first_not_of("0123456789.") != std::string::npos) std::abort();
}

void read_accept(std::string_view text) {
  double last = 1;
  for (const vexal::MediaRange& range : vexal::parse_accept(text)) {
    if (range.quality > last || range.quality <= 0) std::abort();
    last = range.quality;
    range.takes("application/dicom+json");
  }
  vexal::header_parameter(text, "boundary");
  vexal::header_in(text, "Content-Type");
}

// The bytes of all parts, with a bar behind each.
struct Joined final : vexal::MultipartReader::Taker {
  std::string begin(std::string_view headers) override {
    return vexal::header_in(headers, "X").empty() ? "" : "X";
  }
  std::string take(std::string_view bytes) override {
    text += bytes;
    return "";
  }
  std::string end() override {
    text += '|';
    return "";
  }
  std::string text;
};

// However the body is cut, the parts are the same.
void read_parts(std::string_view text) {
  Joined whole;
  Joined pieces;
  vexal::MultipartReader at_once("a", whole);
  vexal::MultipartReader piecewise("a", pieces);
  const std::string error = at_once.feed(text);
  std::string later;
  for (std::size_t i = 0; i < text.size() && later.empty(); ++i) later = piecewise.feed(text.substr(i, 1));
  if (error.empty() && later.empty() && at_once.complete() && whole.text != pieces.text) std::abort();
}

void read_token(std::string_view text) {
  static vexal::JwtKeys keys;
  static const std::string fault =
      keys.load("{\"keys\":[{\"kty\":\"oct\",\"k\":\"c3Nzc3Nzc3Nzc3Nzc3Nzc3Nzc3Nzc3Nzc3Nzc3Nzc3M\"}]}");
  vexal::JwtClaims claims;
  keys.check(text, "archive", 1000000000, claims);
  vexal::JwtKeys others;
  others.load(std::string(text));
  unsigned rights = 0;
  vexal::parse_web_rights(std::string(text), rights);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  constexpr void (*kReaders[])(std::string_view) = {read_target, read_accept, read_parts, read_token};
  kReaders[data[0] % 4](text);
  return 0;
}
