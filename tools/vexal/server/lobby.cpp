#include "lobby.h"

#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace vexal {
namespace {

// More than this many, and some go.
constexpr std::size_t kMostWaiting = 2048;

// A request is there when all of it has come; of a long one as much as a connection holds for sure.
constexpr uint32_t kMostOfRequest = 32 * 1024;

// All descriptors that the system lets this program have; a third of them may wait.
std::size_t most_waiting() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return kMostWaiting;
  if (limit.rlim_cur < limit.rlim_max) {
    const rlimit raised{limit.rlim_max, limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  return std::clamp<std::size_t>(limit.rlim_cur / 3, 1, kMostWaiting);
}

// poll() calls a socket readable from this many bytes on.
void set_low_mark(int socket, uint32_t bytes) {
  const int mark = static_cast<int>(bytes);
  ::setsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &mark, sizeof mark);
}

// A-ABORT by the provider: a PDU that is none, or none that may come first (PS3.8 section 9.3.8).
void turn_away(int socket, uint8_t type) {
  const uint8_t reason = type >= 1 && type <= 7 ? 2 : 1;
  const uint8_t abort[10] = {7, 0, 0, 0, 0, 4, 0, 0, 2, reason};
  [[maybe_unused]] const ssize_t ignored = ::send(socket, abort, sizeof abort, MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace

AddressBytes host_of(const AddressBytes& address) {
  const AddressBytes mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  AddressBytes host = address;
  if (!std::equal(mapped.begin(), mapped.begin() + 12, host.begin()))
    std::fill(host.begin() + 8, host.end(), 0);
  return host;
}

Lobby::Lobby(bool secure, std::chrono::seconds patience)
    : secure_(secure), patience_(patience), most_(most_waiting()) {}

Lobby::~Lobby() {
  for (const Connection& connection : waiting_) ::close(connection.socket);
}

void Lobby::add(int socket) try {
  if (waiting_.size() >= most_) drop_one();
  waiting_.push_back({socket, host_of(peer_address(socket)), Clock::now() + patience_});
} catch (...) {
  ::close(socket);
  throw;
}

void Lobby::drop_one() {
  std::map<AddressBytes, std::size_t> counts;
  for (const Connection& connection : waiting_) ++counts[connection.address];
  const auto most = std::max_element(counts.begin(), counts.end(),
                                     [](const auto& a, const auto& b) { return a.second < b.second; });
  if (most == counts.end()) return;
  const auto oldest = std::find_if(waiting_.begin(), waiting_.end(),
                                   [&](const Connection& c) { return c.address == most->first; });
  ::close(oldest->socket);
  waiting_.erase(oldest);
}

int Lobby::prepare(std::vector<pollfd>& entries) const {
  int wait = 60000;
  for (const Connection& connection : waiting_) {
    entries.push_back(
        {connection.socket, static_cast<short>(connection.ready ? POLLRDHUP : POLLIN | POLLRDHUP), 0});
    if (connection.ready) continue;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(connection.deadline - Clock::now()).count();
    wait = std::min(wait, static_cast<int>(std::clamp<long>(left, 0, 60000)));
  }
  return wait;
}

Lobby::Look Lobby::look_at(const Connection& connection) const {
  uint8_t head[6];
  const std::size_t wanted = secure_ ? 5 : 6;
  const ssize_t got = ::recv(connection.socket, head, wanted, MSG_PEEK | MSG_DONTWAIT);
  if (got == 0) return Look::Close;
  if (got < 0) return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? Look::Wait : Look::Close;
  uint32_t whole = static_cast<uint32_t>(wanted);
  if (static_cast<std::size_t>(got) == wanted) {
    // The first record of TLS, of which a handshake is type 22; or an A-ASSOCIATE-RQ.
    if (head[0] != (secure_ ? 22 : 1)) {
      if (!secure_) turn_away(connection.socket, head[0]);
      return Look::Close;
    }
    const uint64_t length =
        secure_ ? (uint64_t{head[3]} << 8 | head[4])
                : (uint64_t{head[2]} << 24 | uint64_t{head[3]} << 16 | uint64_t{head[4]} << 8 | head[5]);
    whole = static_cast<uint32_t>(std::min<uint64_t>(wanted + length, kMostOfRequest));
  }
  int there = 0;
  if (::ioctl(connection.socket, FIONREAD, &there) != 0) return Look::Close;
  if (static_cast<std::size_t>(got) == wanted && static_cast<uint32_t>(there) >= whole) return Look::Ready;
  set_low_mark(connection.socket, whole);
  return Look::Wait;
}

void Lobby::look(const pollfd* entries) {
  std::vector<Connection> rest;
  rest.reserve(waiting_.size());
  const Clock::time_point now = Clock::now();
  for (std::size_t i = 0; i < waiting_.size(); ++i) {
    Connection connection = waiting_[i];
    const short events = entries[i].revents;
    Look found = Look::Wait;
    if (!connection.ready && (events & POLLIN) != 0) found = look_at(connection);
    if (found == Look::Ready) {
      connection.ready = true;
      connection.left = connection.deadline - now;
    }
    // A peer that has gone, or is late; what it said before is not waited for.
    const bool gone = (events & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
    if (found == Look::Close || gone || (!connection.ready && now >= connection.deadline)) {
      ::close(connection.socket);
    } else {
      rest.push_back(connection);
    }
  }
  waiting_.swap(rest);
}

void Lobby::hand_out(
    const std::function<bool(int socket, const AddressBytes& address, Clock::duration left)>& serve) {
  std::erase_if(waiting_, [&](const Connection& connection) {
    if (!connection.ready) return false;
    set_low_mark(connection.socket, 1);
    return serve(connection.socket, connection.address, connection.left);
  });
}

}  // namespace vexal
