#include "mllp.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/session.h"
#include "base/thrown.h"

namespace vexal {
namespace {

constexpr char kStart = '\x0B';
constexpr char kEnd[] = "\x1C\x0D";
constexpr std::size_t kMostConnections = 32;
constexpr std::size_t kMostBytes = 1U << 20;
constexpr auto kSilence = std::chrono::minutes(5);
constexpr auto kPatience = std::chrono::seconds(30);
constexpr int kLook = 1000;    // milliseconds between looks at who is late
constexpr int kAnswer = 5000;  // for a peer to take an answer

bool send_all(int socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
      continue;
    }
    pollfd entry{socket, POLLOUT, 0};
    if (errno != EAGAIN || ::poll(&entry, 1, kAnswer) <= 0) return false;
  }
  return true;
}

int listen_on(const std::string& host, const std::string& port, std::string& error) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (const int fault = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found); fault != 0) {
    error = ::gai_strerror(fault);
    return -1;
  }
  const int on = 1;
  int socket = ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (socket >= 0) ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (socket < 0 || ::bind(socket, found->ai_addr, found->ai_addrlen) != 0 || ::listen(socket, 64) != 0) {
    error = std::strerror(errno);
    if (socket >= 0) ::close(socket);
    socket = -1;
  }
  ::freeaddrinfo(found);
  return socket;
}

}  // namespace

std::string MllpListener::start(const std::string& where, Handler handler) {
  const std::size_t colon = where.rfind(':');
  std::string host = colon == std::string::npos ? "127.0.0.1" : where.substr(0, colon);
  const std::string port = where.substr(colon == std::string::npos ? 0 : colon + 1);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos ||
      std::stoi(port) < 1 || std::stoi(port) > 65535 || host.empty())
    return "give PORT or ADDRESS:PORT";
  std::string error;
  listener_ = listen_on(host, port, error);
  if (listener_ < 0) return error;
  if (::pipe2(wake_, O_CLOEXEC) != 0) return std::strerror(errno);
  handler_ = std::move(handler);
  thread_ = std::thread(&MllpListener::run, this);
  return "";
}

void MllpListener::stop() {
  if (thread_.joinable()) {
    while (::write(wake_[1], "", 1) < 0 && errno == EINTR) {
    }
    thread_.join();
  }
  for (const Connection& connection : connections_) ::close(connection.socket);
  connections_.clear();
  for (int* descriptor : {&listener_, &wake_[0], &wake_[1]}) {
    if (*descriptor >= 0) ::close(*descriptor);
    *descriptor = -1;
  }
}

void MllpListener::let_in() {
  const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (socket < 0) return;
  if (connections_.size() == kMostConnections) {
    // The one that has been silent longest goes.
    const auto oldest = std::min_element(connections_.begin(), connections_.end(),
                                         [](const auto& a, const auto& b) { return a.since < b.since; });
    ::close(oldest->socket);
    connections_.erase(oldest);
  }
  connections_.push_back({socket, "", Clock::now()});
}

bool MllpListener::is_late(const Connection& connection) {
  return Clock::now() - connection.since >
         (connection.pending.empty() ? Clock::duration(kSilence) : Clock::duration(kPatience));
}

bool MllpListener::read(Connection& connection) {
  char bytes[65536];
  const ssize_t got = ::recv(connection.socket, bytes, sizeof bytes, 0);
  if (got < 0) return errno == EAGAIN || errno == EINTR;
  if (got == 0) return false;
  if (connection.pending.empty()) connection.since = Clock::now();
  connection.pending.append(bytes, static_cast<std::size_t>(got));
  return answer_all(connection);
}

bool MllpListener::answer_all(Connection& connection) {
  std::string& pending = connection.pending;
  for (;;) {
    // Between messages there may be ends of lines.
    const std::size_t start = pending.find_first_not_of("\r\n");
    if (start == std::string::npos) {
      pending.clear();
      return true;
    }
    if (pending[start] != kStart) {
      report("HL7", "a connection does not begin a message as MLLP wants it, and is closed");
      return false;
    }
    const std::size_t end = pending.find(kEnd, start);
    if (end == std::string::npos && pending.size() <= kMostBytes) return true;
    if (end == std::string::npos) {
      report("HL7", "a message is larger than is taken: its connection is closed");
      return false;
    }
    const std::string answer = handler_(pending.substr(start + 1, end - start - 1));
    if (!send_all(connection.socket, kStart + answer + kEnd)) return false;
    pending.erase(0, end + 2);
    connection.since = Clock::now();
  }
}

void MllpListener::run() {
  std::vector<pollfd> entries;
  for (;;) {
    entries.assign({{wake_[0], POLLIN, 0}, {listener_, POLLIN, 0}});
    for (const Connection& connection : connections_) entries.push_back({connection.socket, POLLIN, 0});
    if (::poll(entries.data(), entries.size(), kLook) < 0 && errno != EINTR) return;
    if (entries[0].revents != 0) return;
    for (std::size_t i = connections_.size(); i-- > 0;) {
      bool good = false;
      try {
        good = entries[i + 2].revents != 0 ? read(connections_[i]) : !is_late(connections_[i]);
      } catch (const std::exception&) {
        report("HL7", words_of(std::current_exception()));
      }
      if (good) continue;
      ::close(connections_[i].socket);
      connections_.erase(connections_.begin() + static_cast<std::ptrdiff_t>(i));
    }
    if ((entries[1].revents & POLLIN) != 0) let_in();
  }
}

}  // namespace vexal
