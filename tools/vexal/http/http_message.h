// Requests and answers of HTTP as the handlers of the program see them, whatever carries them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vexal {

using HttpFields = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
  std::string method;
  std::vector<std::string> path;  // its segments, decoded: none is empty, "." or ".."
  HttpFields query;               // decoded, in the order given
  HttpFields headers;
  std::string address;        // of the peer
  std::string user;           // who it is, where that was proved
  unsigned rights = 0;        // what it may do, as the gate in front of the handler found
  bool secure = false;        // over TLS
  HttpFields answer_headers;  // go out with whatever the answer is

  // A header of this name, in any case; "" if there is none. Several are joined with commas.
  std::string header(std::string_view name) const;
  // The first value of a key of the query; null if there is none.
  const std::string* parameter(std::string_view name) const;
};

// Fills path and query from a target such as "/studies/1.2?limit=3". False where it is none that can be
// served: it is not decodable, holds control characters, or climbs.
bool parse_target(std::string_view target, HttpRequest& request);
// Percent signs decoded; false where they are none or stand for control characters.
bool decode_percent(std::string_view text, bool plus_is_space, std::string& out);

// Where a body comes from. Asked for its bytes one piece after the other.
struct HttpBody {
  // Bytes that were put into the buffer, as many as fit or fewer; 0 at the end, -1 on a failure, which cuts
  // the connection so that the peer sees it.
  using Read = std::function<int64_t(char* buffer, std::size_t size)>;
  Read read;                       // null: no body
  std::optional<uint64_t> length;  // where it is known; otherwise the end of the pieces is the end

  static HttpBody of_text(std::string text);
  // A part of a file, which stays open as long as the body lives. No body where it can not be opened.
  static HttpBody of_file(const std::string& path, uint64_t offset, uint64_t length);
};

struct HttpResponse {
  unsigned status = 200;
  HttpFields headers{};
  HttpBody body{};

  HttpResponse& with(std::string name, std::string value) {
    headers.emplace_back(std::move(name), std::move(value));
    return *this;
  }
  static HttpResponse text(unsigned status, std::string content_type, std::string text);
  // A body of JSON that says why (RFC 9457).
  static HttpResponse problem(unsigned status, std::string_view detail);
};

// A small file, whole. An error text, empty on success.
std::string read_small_file(const std::string& path, std::string& text);

// What a status is called (RFC 9110 section 15).
const char* name_of_status(unsigned status);

// What becomes of one request. All its calls come from one thread, which may block; other requests are served
// meanwhile.
class HttpWork {
 public:
  HttpWork() = default;
  virtual ~HttpWork() = default;
  HttpWork(const HttpWork&) = delete;
  HttpWork& operator=(const HttpWork&) = delete;

  // Whether a body is read at all. If not, answer() comes first, and the connection ends with it where a body
  // was announced.
  virtual bool takes_body() const { return false; }
  // The next bytes of the body. False: what follows is not wanted, answer() tells why.
  virtual bool take(std::string_view /*piece*/) { return false; }
  // Once, at the end.
  virtual HttpResponse answer() = 0;
};

// Gives the work for a request, whose head lives as long as the work. Called on many threads at once.
using HttpHandler = std::function<std::unique_ptr<HttpWork>(HttpRequest& request)>;

// Work that is done: the answer stands.
std::unique_ptr<HttpWork> answer_with(HttpResponse response);
// Work without a body: the answer is made when it is asked for.
std::unique_ptr<HttpWork> answer_by(std::function<HttpResponse()> make);

}  // namespace vexal
