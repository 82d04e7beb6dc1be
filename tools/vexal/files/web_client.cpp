#include "web_client.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>

#include "base/hex.h"
#include "base/thrown.h"
#include "curl_library.h"

namespace vexal {
namespace {

constexpr std::size_t kMostText =
    32U << 20;  // of an answer that is kept in memory; parsed, it takes many times that
constexpr int kMostRedirects = 5;
constexpr std::size_t kMostTold = 300;  // of what a server says of a failure
constexpr std::size_t kSendBuffer = 1U << 20;

// Scheme, host and port of a URL; empty if it is none.
std::string origin_of(const char* text) {
  const Curl& c = curl();
  std::string origin;
  CURLU* url = c.url();
  if (url != nullptr && c.url_set(url, CURLUPART_URL, text, 0) == CURLUE_OK) {
    for (const CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT}) {
      char* content = nullptr;
      if (c.url_get(url, part, &content, CURLU_DEFAULT_PORT) == CURLUE_OK) (origin += content) += ' ';
      c.free(content);
    }
  }
  c.url_cleanup(url);
  std::transform(origin.begin(), origin.end(), origin.begin(),
                 [](unsigned char letter) { return std::tolower(letter); });
  return origin;
}

const char* environment(const char* name) {
  const char* text = std::getenv(name);
  return text != nullptr ? text : "";
}

// Where the authority of a URL lies, from its first character to the one behind its last.
std::pair<std::size_t, std::size_t> authority_of(const std::string& url) {
  const std::size_t scheme = url.find("://");
  const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
  return {start, std::min(url.find_first_of("/?#", start), url.size())};
}

// Takes off a URL what it says of a user.
std::string take_user(std::string& url) {
  const auto [start, end] = authority_of(url);
  const std::size_t at = std::string_view(url).substr(0, end).rfind('@');
  if (at == std::string::npos || at < start) return "";
  std::string user = percent_decoded(std::string_view(url).substr(start, at - start));
  url.erase(start, at + 1 - start);
  return user;
}

// What stands for a port may be a password that was cut off.
bool has_proper_port(const std::string& url) {
  const auto [start, end] = authority_of(url);
  const std::string authority = url.substr(start, end - start);
  const std::size_t colon = authority.rfind(':');
  return colon == std::string::npos || authority.ends_with(']') ||
         authority.find_first_not_of("0123456789", colon + 1) == std::string::npos;
}

// A header by its name in lower case.
bool begins_with(std::string_view header, std::string_view name) {
  return header.size() >= name.size() &&
         std::equal(name.begin(), name.end(), header.begin(),
                    [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b); });
}

bool tells_a_secret(const std::string& header) {
  return begins_with(header, "authorization:");
}

}  // namespace

std::string WebPeer::open_library() {
  const std::string fault = open_curl();
  return fault.empty() ? "" : "web services need " + fault;
}

bool WebPeer::read(const Args& args, const std::string& address) {
  url = address;
  credentials = args.get("--user", take_user(url));
  while (!url.empty() && url.back() == '/') url.pop_back();
  if (!url.starts_with("http://") && !url.starts_with("https://")) {
    complain("%s: give the URL of the web services, such as http://host:8042/dicom-web", url.c_str());
    return false;
  }
  if (!has_proper_port(url)) {
    complain("the port in the URL is no number; of a password, write / ? # and @ as %%2F %%3F %%23 and %%40");
    return false;
  }
  if (!args.number("--timeout", 1, 86400, timeout)) return false;
  if (!credentials.empty() && credentials.find(':') == std::string::npos)
    credentials += std::string(":") + environment("VEXAL_WEB_PASSWORD");
  const std::string token = args.get("--token", environment("VEXAL_WEB_TOKEN"));
  headers = args.all("--header");
  if (!token.empty()) headers.push_back("Authorization: Bearer " + token);
  for (const std::string& header : headers) {
    if (header.find(':') != std::string::npos && header.find_first_of("\r\n") == std::string::npos) continue;
    complain("--header: write 'Name: value'");  // it may be a secret
    return false;
  }
  const bool secret = !credentials.empty() || std::any_of(headers.begin(), headers.end(), tells_a_secret);
  if (secret && url.starts_with("http://") && !args.has("--quiet"))
    complain(
        "warning: without TLS the password or token can be read on the network; an https URL protects it");
  authorities = args.get("--tls-ca");
  certificate = args.get("--tls-cert");
  key = args.get("--tls-key");
  verify = !args.has("--tls-no-verify");
  const std::string fault = open_library();
  if (!fault.empty()) complain("%s", fault.c_str());
  return fault.empty();
}

std::string WebAnswer::describe() const {
  if (!problem.empty()) return problem;
  std::string told = "HTTP status " + std::to_string(status);
  std::string body = text.substr(0, kMostTold);
  for (char& c : body) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  body.erase(0, std::min(body.find_first_not_of(' '), body.size()));
  if (!body.empty()) told += ": " + body;
  return told;
}

std::string percent_encoded(std::string_view text) {
  constexpr std::string_view kReserved = "\"#<>&=+%";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x7F && kReserved.find(c) == std::string_view::npos) {
      out += c;
    } else {
      out += '%';
      append_hex(out, byte, 2);
    }
  }
  return out;
}

std::string percent_decoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned byte = 0;
    const char* digits = text.data() + i + 1;
    if (text[i] == '%' && text.size() - i > 2 &&
        std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      out += static_cast<char>(byte);
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

// One request and its answer, for the callbacks.
struct WebClient::Transfer {
  explicit Transfer(const WebRequest& asked) : request(asked) {}

  const WebRequest& request;
  void* handle = nullptr;
  uint64_t sent = 0;
  WebAnswer answer;
  std::string problem;
  std::exception_ptr thrown;

  bool take(std::string_view bytes) {
    if (answer.status == 0) {
      const char* type = nullptr;
      curl().info(handle, CURLINFO_RESPONSE_CODE, &answer.status);
      if (curl().info(handle, CURLINFO_CONTENT_TYPE, &type) == CURLE_OK && type != nullptr)
        answer.content_type = type;
    }
    if (request.taker != nullptr && answer.status >= 200 && answer.status < 300) {
      problem = (*request.taker)(answer.content_type, bytes);
    } else if (bytes.size() > kMostText - answer.text.size()) {
      problem = "the answer is larger than " + std::to_string(kMostText >> 20) +
                " MiB; ask for less, as with --limit";
    } else {
      answer.text.append(bytes);
    }
    return problem.empty();
  }

  static std::size_t on_answer(char* data, std::size_t, std::size_t size, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    try {
      if (transfer.take({data, size})) return size;
    } catch (...) {
      transfer.thrown = std::current_exception();
    }
    return CURL_WRITEFUNC_ERROR;
  }

  static std::size_t on_header(char* data, std::size_t, std::size_t size, void* user) {
    const std::string_view line(data, size);
    constexpr std::string_view kTag = "etag:";
    if (!begins_with(line, kTag)) return size;
    std::string_view value = line.substr(kTag.size());
    while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
    while (!value.empty() && value.back() <= ' ') value.remove_suffix(1);
    if (value.size() <= kMostTold) static_cast<Transfer*>(user)->answer.tag = value;
    return size;
  }

  static std::size_t on_send(char* buffer, std::size_t width, std::size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    const int64_t got = transfer.request.body->read(transfer.sent, buffer, width * count);
    if (got < 0) {
      transfer.problem = "can not be read to its end";
      return CURL_READFUNC_ABORT;
    }
    transfer.sent += static_cast<uint64_t>(got);
    return static_cast<std::size_t>(got);
  }

  // A connection that the server had closed meanwhile, or a login: from the start again.
  static int on_rewind(void* user, curl_off_t offset, int origin) {
    if (origin != SEEK_SET) return CURL_SEEKFUNC_CANTSEEK;
    static_cast<Transfer*>(user)->sent = static_cast<uint64_t>(offset);
    return CURL_SEEKFUNC_OK;
  }
};

WebClient::WebClient(const WebPeer& peer) : peer_(peer), handle_(curl().init()) {}

WebClient::~WebClient() {
  if (handle_ != nullptr) curl().cleanup(handle_);
}

WebAnswer WebClient::get(const std::string& resource, const char* accept, const WebTaker& taker) {
  return send({"GET", resource, {"Accept: " + std::string(accept)}, nullptr, taker ? &taker : nullptr});
}

WebAnswer WebClient::post(const std::string& resource, const char* accept, const WebBody& body) {
  return send({"POST", resource, {"Accept: " + std::string(accept), "Expect:"}, &body, nullptr});
}

// Everything but the address. The list of headers goes to whoever frees it behind the request.
curl_slist* WebClient::prepare(Transfer& transfer, char* told) {
  const Curl& c = curl();
  c.reset(handle_);  // the connection stays
  curl_slist* headers = nullptr;
  for (const std::string& header : transfer.request.headers) headers = c.append(headers, header.c_str());
  for (const std::string& header : peer_.headers) headers = c.append(headers, header.c_str());
  c.set(handle_, CURLOPT_PROTOCOLS_STR, "http,https");
  c.set(handle_, CURLOPT_NOSIGNAL, 1L);
  c.set(handle_, CURLOPT_USERAGENT, "vexal");
  c.set(handle_, CURLOPT_ERRORBUFFER, told);
  c.set(handle_, CURLOPT_CONNECTTIMEOUT, peer_.timeout);
  c.set(handle_, CURLOPT_LOW_SPEED_LIMIT, 1L);
  c.set(handle_, CURLOPT_LOW_SPEED_TIME, peer_.timeout);
  c.set(handle_, CURLOPT_WRITEFUNCTION, Transfer::on_answer);
  c.set(handle_, CURLOPT_WRITEDATA, &transfer);
  c.set(handle_, CURLOPT_HEADERFUNCTION, Transfer::on_header);
  c.set(handle_, CURLOPT_HEADERDATA, &transfer);
  if (!peer_.credentials.empty()) {
    c.set(handle_, CURLOPT_USERPWD, peer_.credentials.c_str());
    if (peer_.signing.empty()) {
      c.set(handle_, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
    } else {
      c.set(handle_, CURLOPT_AWS_SIGV4, peer_.signing.c_str());
    }
  }
  if (!peer_.authorities.empty()) c.set(handle_, CURLOPT_CAINFO, peer_.authorities.c_str());
  if (!peer_.certificate.empty()) c.set(handle_, CURLOPT_SSLCERT, peer_.certificate.c_str());
  if (!peer_.key.empty()) c.set(handle_, CURLOPT_SSLKEY, peer_.key.c_str());
  if (!peer_.verify) {
    c.set(handle_, CURLOPT_SSL_VERIFYPEER, 0L);
    c.set(handle_, CURLOPT_SSL_VERIFYHOST, 0L);
  }
  if (transfer.request.body != nullptr && !transfer.request.body->content_type.empty())
    headers = c.append(headers, ("Content-Type: " + transfer.request.body->content_type).c_str());
  prepare_method(transfer);
  c.set(handle_, CURLOPT_HTTPHEADER, headers);
  return headers;
}

void WebClient::prepare_method(Transfer& transfer) {
  const Curl& c = curl();
  const std::string_view method = transfer.request.method;
  if (method == "HEAD") c.set(handle_, CURLOPT_NOBODY, 1L);
  if (method == "DELETE") c.set(handle_, CURLOPT_CUSTOMREQUEST, "DELETE");
  const WebBody* body = transfer.request.body;
  if (body == nullptr) return;
  const auto size = static_cast<curl_off_t>(body->size);
  if (method == "PUT") {
    c.set(handle_, CURLOPT_UPLOAD, 1L);
    c.set(handle_, CURLOPT_INFILESIZE_LARGE, size);
  } else {
    c.set(handle_, CURLOPT_POST, 1L);
    c.set(handle_, CURLOPT_POSTFIELDSIZE_LARGE, size);
  }
  c.set(handle_, CURLOPT_UPLOAD_BUFFERSIZE, static_cast<long>(kSendBuffer));
  c.set(handle_, CURLOPT_READFUNCTION, Transfer::on_send);
  c.set(handle_, CURLOPT_READDATA, &transfer);
  c.set(handle_, CURLOPT_SEEKFUNCTION, Transfer::on_rewind);
  c.set(handle_, CURLOPT_SEEKDATA, &transfer);
}

WebAnswer WebClient::send(const WebRequest& request) {
  const Curl& c = curl();
  Transfer transfer(request);
  if (handle_ == nullptr) {
    transfer.answer.problem = "no memory";
    return transfer.answer;
  }
  transfer.handle = handle_;
  char told[CURL_ERROR_SIZE] = "";
  curl_slist* headers = prepare(transfer, told);
  std::string url = peer_.url + request.resource;
  WebAnswer& answer = transfer.answer;
  for (int redirects = 0;; ++redirects) {
    c.set(handle_, CURLOPT_URL, url.c_str());
    const CURLcode code = c.perform(handle_);
    if (code == CURLE_OK) {
      curl_off_t length = -1;
      c.info(handle_, CURLINFO_RESPONSE_CODE, &answer.status);
      if (c.info(handle_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length) == CURLE_OK) answer.length = length;
    } else {
      if (transfer.thrown != nullptr) transfer.problem = words_of(transfer.thrown);
      answer.problem = !transfer.problem.empty() ? transfer.problem
                       : *told != '\0'           ? told
                                                 : c.error_text(code);
    }
    const std::string next = answer.problem.empty() ? redirect(transfer) : "";
    if (next.empty()) break;
    if (redirects == kMostRedirects || origin_of(next.c_str()) != origin_of(url.c_str())) {
      // What is sent along, passwords too, is for this server alone.
      answer.problem =
          redirects == kMostRedirects ? "redirects without end" : "redirects to another server: " + next;
      break;
    }
    url = next;
    answer = {};
    transfer.sent = 0;
  }
  c.free_list(headers);
  return std::move(answer);
}

// Where the server sends the request on to; empty if it does not.
std::string WebClient::redirect(const Transfer& transfer) const {
  const long status = transfer.answer.status;
  const bool same_request = status == 307 || status == 308;
  const bool other = status == 301 || status == 302 || status == 303;
  char* next = nullptr;
  if (!same_request && (!other || transfer.request.body != nullptr)) return "";
  if (curl().info(handle_, CURLINFO_REDIRECT_URL, &next) != CURLE_OK || next == nullptr) return "";
  return next;
}

}  // namespace vexal
