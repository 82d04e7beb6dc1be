#include "syslog.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "files/curl_library.h"
#include "network/network.h"

namespace vexal {
namespace {

constexpr int kFacility = 10;  // security and authorization
constexpr int kNotice = 5;
constexpr long kPatience = 10;  // seconds for a connection, and for a message to go out
constexpr std::size_t kMostDatagram = 65000;

class LogFile : public SyslogTarget {
 public:
  ~LogFile() override {
    if (fd_ >= 0) ::close(fd_);
  }
  std::string open(const std::string& path) {
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
    return fd_ >= 0 ? "" : std::strerror(errno);
  }
  std::string send(const std::string& line) override {
    const std::string whole = line + "\n";
    const ssize_t written = ::write(fd_, whole.data(), whole.size());
    if (written == static_cast<ssize_t>(whole.size())) return "";
    const std::string error = written < 0 ? std::strerror(errno) : "the disk is full";
    // A part of a line would make the next one unreadable.
    if (written > 0 && ::write(fd_, "\n", 1) != 1) return error;
    return error;
  }

 private:
  int fd_ = -1;
};

class Datagrams : public SyslogTarget {
 public:
  Datagrams(std::string host, std::string port) : host_(std::move(host)), port_(std::move(port)) {}
  std::size_t most() const override { return kMostDatagram; }
  std::string send(const std::string& line) override {
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (const int fault = ::getaddrinfo(host_.c_str(), port_.c_str(), &hints, &found); fault != 0)
      return host_ + ": " + ::gai_strerror(fault);
    std::string error = "no address";
    for (const addrinfo* at = found; at != nullptr && !error.empty(); at = at->ai_next) {
      const int fd = ::socket(at->ai_family, at->ai_socktype | SOCK_CLOEXEC, at->ai_protocol);
      const bool sent =
          fd >= 0 && ::sendto(fd, line.data(), line.size(), 0, at->ai_addr, at->ai_addrlen) >= 0;
      error = sent ? "" : std::strerror(errno);
      if (fd >= 0) ::close(fd);
    }
    ::freeaddrinfo(found);
    return error;
  }

 private:
  std::string host_;
  std::string port_;
};

// A connection, plain or over TLS, on which each message has its length in front (RFC 5425 section 4.3,
// RFC 6587).
class Stream : public SyslogTarget {
 public:
  Stream(SyslogOptions options, std::string address)
      : options_(std::move(options)), address_(std::move(address)) {}
  ~Stream() override { close(); }

  std::string send(const std::string& line) override {
    if (connection_ != nullptr && is_closed()) close();
    if (connection_ == nullptr) {
      if (const std::string error = connect(); !error.empty()) return error;
    }
    const std::string whole = std::to_string(line.size()) + " " + line;
    const std::string error = send_all(whole);
    if (!error.empty()) close();
    return error;
  }

 private:
  std::string connect() {
    const Curl& c = curl();
    connection_ = c.init();
    if (connection_ == nullptr) return "no memory";
    c.set(connection_, CURLOPT_URL, address_.c_str());
    c.set(connection_, CURLOPT_CONNECT_ONLY, 1L);
    c.set(connection_, CURLOPT_NOSIGNAL, 1L);
    c.set(connection_, CURLOPT_PROXY, "");
    c.set(connection_, CURLOPT_CONNECTTIMEOUT, kPatience);
    c.set(connection_, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!options_.authorities.empty()) c.set(connection_, CURLOPT_CAINFO, options_.authorities.c_str());
    if (!options_.certificate.empty()) c.set(connection_, CURLOPT_SSLCERT, options_.certificate.c_str());
    if (!options_.key.empty()) c.set(connection_, CURLOPT_SSLKEY, options_.key.c_str());
    const CURLcode result = c.perform(connection_);
    if (result == CURLE_OK) return "";
    close();
    return options_.url + ": " + c.error_text(result);
  }

  int descriptor() const {
    curl_socket_t socket = CURL_SOCKET_BAD;
    curl().info(connection_, CURLINFO_ACTIVESOCKET, &socket);
    return socket;
  }

  // A repository says nothing: what can be read is the end of the connection.
  bool is_closed() const {
    pollfd entry{descriptor(), POLLIN | POLLRDHUP, 0};
    return entry.fd < 0 ||
           (::poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0);
  }

  std::string send_all(std::string_view bytes) {
    while (!bytes.empty()) {
      std::size_t sent = 0;
      const CURLcode result = curl().send(connection_, bytes.data(), bytes.size(), &sent);
      bytes.remove_prefix(sent);
      if (result == CURLE_OK) continue;
      if (result != CURLE_AGAIN) return options_.url + ": " + curl().error_text(result);
      pollfd entry{descriptor(), POLLOUT, 0};
      if (::poll(&entry, 1, kPatience * 1000) <= 0) return options_.url + ": takes nothing";
    }
    return "";
  }

  void close() {
    if (connection_ != nullptr) curl().cleanup(connection_);
    connection_ = nullptr;
  }

  SyslogOptions options_;
  std::string address_;  // as libcurl has it
  CURL* connection_ = nullptr;
};

// HOST or HOST:PORT, an IPv6 address in brackets; false if it is neither.
bool split_address(std::string_view text, const char* usual_port, std::string& host, std::string& port) {
  const std::size_t colon = text.ends_with(']') ? std::string_view::npos : text.rfind(':');
  host = text.substr(0, colon);
  port = colon == std::string_view::npos ? usual_port : std::string(text.substr(colon + 1));
  return !host.empty() && !port.empty() && port.size() <= 5 &&
         port.find_first_not_of("0123456789") == std::string::npos && std::stoi(port) <= 65535 &&
         host.find_first_of("/@?# ") == std::string::npos &&
         (host.find(':') == std::string::npos || host.starts_with('[')) &&
         host.starts_with('[') == host.ends_with(']');
}

}  // namespace

std::string syslog_line(const std::string& message, const std::string& time) {
  char host[256] = "-";
  if (::gethostname(host, sizeof host - 1) != 0 || *host == '\0') std::strcpy(host, "-");
  return "<" + std::to_string(kFacility * 8 + kNotice) + ">1 " + time + " " + host + " vexal " +
         std::to_string(::getpid()) + " DICOM+RFC3881 - \xEF\xBB\xBF" + message;
}

std::unique_ptr<SyslogTarget> open_syslog(const SyslogOptions& options, std::string& error) {
  const std::string& url = options.url;
  if (url.starts_with("file:") && url.size() > 5) {
    auto file = std::make_unique<LogFile>();
    error = file->open(url.substr(5));
    return error.empty() ? std::unique_ptr<SyslogTarget>(std::move(file)) : nullptr;
  }
  struct Scheme {
    std::string_view start;
    const char* port;
    const char* curl;
  };
  constexpr Scheme kSchemes[] = {
      {"tls://", "6514", "https://"}, {"tcp://", "601", "http://"}, {"udp://", "514", nullptr}};
  for (const Scheme& scheme : kSchemes) {
    std::string host;
    std::string port;
    if (!url.starts_with(scheme.start) ||
        !split_address(std::string_view(url).substr(scheme.start.size()), scheme.port, host, port))
      continue;
    if (scheme.curl == nullptr) {
      if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
      return std::make_unique<Datagrams>(host, port);
    }
    error = open_curl();
    if (!error.empty()) return nullptr;
    return std::make_unique<Stream>(options, scheme.curl + host + ":" + port);
  }
  error = "give tls://HOST[:PORT], tcp://HOST[:PORT], udp://HOST[:PORT] or file:PATH";
  return nullptr;
}

}  // namespace vexal
