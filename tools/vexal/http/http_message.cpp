#include "http_message.h"

#include <strings.h>

#include <algorithm>

#include "base/json.h"
#include "files/files.h"

namespace vexal {
namespace {

constexpr struct {
  unsigned status;
  const char* name;
} kNames[] = {
    {200, "OK"},
    {202, "Accepted"},
    {204, "No Content"},
    {206, "Partial Content"},
    {304, "Not Modified"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {415, "Unsupported Media Type"},
    {416, "Range Not Satisfiable"},
    {422, "Unprocessable Content"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {503, "Service Unavailable"},
};

bool same_name(std::string_view one, std::string_view other) {
  return one.size() == other.size() && ::strncasecmp(one.data(), other.data(), one.size()) == 0;
}

int digit_of(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool parse_query(std::string_view text, HttpFields& query) {
  constexpr std::size_t kMostParameters = 1024;
  while (!text.empty()) {
    const std::string_view part = text.substr(0, text.find('&'));
    text.remove_prefix(std::min(part.size() + 1, text.size()));
    if (part.empty()) continue;
    if (query.size() == kMostParameters) return false;
    const std::size_t equals = std::min(part.find('='), part.size());
    std::string name;
    std::string value;
    if (!decode_percent(part.substr(0, equals), true, name) ||
        !decode_percent(part.substr(std::min(equals + 1, part.size())), true, value))
      return false;
    query.emplace_back(std::move(name), std::move(value));
  }
  return true;
}

class Fixed final : public HttpWork {
 public:
  explicit Fixed(std::function<HttpResponse()> make) : make_(std::move(make)) {}
  HttpResponse answer() override { return make_(); }

 private:
  std::function<HttpResponse()> make_;
};

}  // namespace

std::string HttpRequest::header(std::string_view name) const {
  std::string text;
  for (const auto& [key, value] : headers) {
    if (!same_name(key, name)) continue;
    if (!text.empty()) text += ", ";
    text += value;
  }
  return text;
}

const std::string* HttpRequest::parameter(std::string_view name) const {
  const auto found =
      std::find_if(query.begin(), query.end(), [&](const auto& field) { return field.first == name; });
  return found != query.end() ? &found->second : nullptr;
}

bool decode_percent(std::string_view text, bool plus_is_space, std::string& out) {
  out.clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      const int high = i + 2 < text.size() ? digit_of(text[i + 1]) : -1;
      const int low = high >= 0 ? digit_of(text[i + 2]) : -1;
      if (low < 0) return false;
      c = static_cast<char>(high * 16 + low);
      i += 2;
    } else if (c == '+' && plus_is_space) {
      c = ' ';
    }
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) return false;
    out += c;
  }
  return true;
}

bool parse_target(std::string_view target, HttpRequest& request) {
  request.path.clear();
  request.query.clear();
  if (!target.starts_with('/')) return false;
  const std::size_t mark = target.find('?');
  std::string_view path = target.substr(1, mark == std::string_view::npos ? mark : mark - 1);
  while (!path.empty()) {
    const std::string_view part = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(part.size() + 1, path.size()));
    std::string segment;
    if (!decode_percent(part, false, segment) || segment == "." || segment == "..") return false;
    if (segment.find('/') != std::string::npos) return false;
    if (!segment.empty()) request.path.push_back(std::move(segment));
  }
  return mark == std::string_view::npos || parse_query(target.substr(mark + 1), request.query);
}

HttpBody HttpBody::of_text(std::string text) {
  HttpBody body;
  body.length = text.size();
  body.read = [text = std::move(text), at = std::size_t{0}](char* buffer, std::size_t size) mutable {
    const std::size_t count = text.copy(buffer, size, at);
    at += count;
    return static_cast<int64_t>(count);
  };
  return body;
}

HttpBody HttpBody::of_file(const std::string& path, uint64_t offset, uint64_t length) {
  HttpBody body;
  const auto source = std::make_shared<FileSource>();
  if (!source->open(path).empty()) return body;
  body.length = length;
  body.read = [source, at = offset, left = length](char* buffer, std::size_t size) mutable -> int64_t {
    const auto count = static_cast<std::size_t>(std::min<uint64_t>(size, left));
    const int64_t got = source->read_at(at, buffer, count);
    if (got < 0 || (got == 0 && count != 0)) return -1;
    at += static_cast<uint64_t>(got);
    left -= static_cast<uint64_t>(got);
    return got;
  };
  return body;
}

std::string read_small_file(const std::string& path, std::string& text) {
  constexpr uint64_t kMost = 1U << 20;
  FileSource source;
  if (std::string error = source.open(path); !error.empty()) return error;
  if (source.size() > kMost) return "is too large";
  text.resize(source.size());
  const int64_t got = source.read_at(0, text.data(), text.size());
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return text.empty() ? "is empty or can not be read" : "";
}

HttpResponse HttpResponse::text(unsigned status, std::string content_type, std::string text) {
  HttpResponse response;
  response.status = status;
  response.with("Content-Type", std::move(content_type));
  response.body = HttpBody::of_text(std::move(text));
  return response;
}

HttpResponse HttpResponse::problem(unsigned status, std::string_view detail) {
  std::string body = "{\"title\":";
  append_json(body, std::string_view(name_of_status(status)));
  body += ",\"status\":" + std::to_string(status) + ",\"detail\":";
  append_json(body, detail);
  body += "}\n";
  return text(status, "application/problem+json", std::move(body));
}

const char* name_of_status(unsigned status) {
  const auto* row =
      std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& r) { return r.status == status; });
  return row != std::end(kNames) ? row->name : "Status";
}

std::unique_ptr<HttpWork> answer_by(std::function<HttpResponse()> make) {
  return std::make_unique<Fixed>(std::move(make));
}

std::unique_ptr<HttpWork> answer_with(HttpResponse response) {
  const auto held = std::make_shared<HttpResponse>(std::move(response));
  return answer_by([held] { return std::move(*held); });
}

}  // namespace vexal
