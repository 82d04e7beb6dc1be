// HTTP with a DICOM web server (PS3.18), through libcurl, which is opened when it is first needed: the other
// subcommands start without it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/args.h"

struct curl_slist;

namespace vexal {

// Rows of an option table.
#define VEXAL_WEB_OPTIONS                                                                                  \
  {"--user", "NAME[:PASSWORD]", "credentials; the password may stand in VEXAL_WEB_PASSWORD"},              \
      {"--token", "TOKEN", "bearer token; may stand in VEXAL_WEB_TOKEN"},                                  \
      {"--header", "TEXT", "a further header of each request, 'Name: value'; may be repeated"},            \
      {"--timeout", "S", "seconds to wait for the connection, and in silence for an answer (default 30)"}, \
      {"--tls-ca", "PEM", "trust these authorities instead of the system's"},                              \
      {"--tls-cert", "PEM", "own certificate"}, {"--tls-key", "PEM", "key of the own certificate"}, {      \
    "--tls-no-verify", nullptr, "take any certificate of the server"                                       \
  }

// Whom a request goes to, and as whom.
struct WebPeer {
  std::string url;  // without a slash at its end, and without a user: it is shown
  std::string credentials;
  // "aws:amz:REGION:s3": requests are signed with the credentials, which do not go out themselves.
  std::string signing;
  std::vector<std::string> headers;
  std::string authorities;
  std::string certificate;
  std::string key;
  bool verify = true;
  long timeout = 30;

  // Opens libcurl: to be called before the first client is made where read() is not. An error text, empty on
  // success.
  static std::string open_library();
  // False after a line on standard error. Opens libcurl.
  bool read(const Args& args, const std::string& address);
};

struct WebAnswer {
  std::string problem;  // why there is no whole answer; empty: `status` is the server's
  long status = 0;
  std::string content_type;
  std::string tag;      // ETag, as it stands
  int64_t length = -1;  // of the body, where that is told
  std::string text;     // the body that no taker got

  bool good() const { return problem.empty() && status >= 200 && status < 300; }
  // "404: not found", with what the server says.
  std::string describe() const;
};

// A body that is sent: pieces one after the other.
struct WebBody {
  std::string content_type;
  uint64_t size = 0;
  // Bytes from an offset on, as many as fit; -1 on failure.
  std::function<int64_t(uint64_t offset, char* buffer, std::size_t size)> read;
};

// What comes with a good status; an error text ends the transfer.
using WebTaker = std::function<std::string(const std::string& content_type, std::string_view bytes)>;

struct WebRequest {
  const char* method = "GET";  // or HEAD, PUT, POST, DELETE
  std::string resource;        // follows the URL of the peer
  std::vector<std::string> headers;
  const WebBody* body = nullptr;  // of PUT and POST
  const WebTaker* taker = nullptr;
};

// One connection, kept open between requests. Not for two threads at once.
class WebClient {
 public:
  explicit WebClient(const WebPeer& peer);
  ~WebClient();
  WebClient(const WebClient&) = delete;
  WebClient& operator=(const WebClient&) = delete;

  // Without a taker the body goes into the answer, which may not grow large. Redirects are followed to the
  // same scheme, host and port only.
  WebAnswer send(const WebRequest& request);
  WebAnswer get(const std::string& resource, const char* accept, const WebTaker& taker);
  WebAnswer post(const std::string& resource, const char* accept, const WebBody& body);

 private:
  struct Transfer;
  curl_slist* prepare(Transfer& transfer, char* told);
  void prepare_method(Transfer& transfer);
  std::string redirect(const Transfer& transfer) const;

  const WebPeer& peer_;
  void* handle_;
};

// A text as part of a query. What browsers leave alone stays, such as ^ and *: not every server decodes it.
std::string percent_encoded(std::string_view text);
std::string percent_decoded(std::string_view text);

}  // namespace vexal
