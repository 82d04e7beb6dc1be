#include "connection_watch.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>

namespace vexal {

using Clock = std::chrono::steady_clock;

WatchedConnection::WatchedConnection(int socket) : socket_(::fcntl(socket, F_DUPFD_CLOEXEC, 0)) {}

WatchedConnection::~WatchedConnection() {
  if (socket_ >= 0) ::close(socket_);
}

void WatchedConnection::expect_within(unsigned seconds) {
  const auto until = Clock::now() + std::chrono::seconds(seconds);
  deadline_.store(until.time_since_epoch().count(), std::memory_order_relaxed);
}

WatchedConnection::Pause::Pause(WatchedConnection* connection) : connection_(connection) {
  if (connection_ == nullptr) return;
  const int64_t deadline = connection_->deadline_.exchange(0, std::memory_order_relaxed);
  if (deadline != 0) left_ = std::max<int64_t>(deadline - Clock::now().time_since_epoch().count(), 1);
}

WatchedConnection::Pause::~Pause() {
  if (connection_ == nullptr || left_ == 0) return;
  connection_->deadline_.store(Clock::now().time_since_epoch().count() + left_, std::memory_order_relaxed);
}

void WatchedConnection::look(Clock::time_point now) {
  const int64_t deadline = deadline_.load(std::memory_order_relaxed);
  if (deadline == 0 || now.time_since_epoch().count() < deadline) return;
  deadline_.store(0, std::memory_order_relaxed);
  ::shutdown(socket_, SHUT_RDWR);
}

ConnectionWatch::ConnectionWatch() : thread_([this](const std::stop_token& stop) { run(stop); }) {}

ConnectionWatch::~ConnectionWatch() = default;

void ConnectionWatch::add(WatchedConnection& connection) {
  const std::lock_guard lock(mutex_);
  all_.push_back(&connection);
}

void ConnectionWatch::remove(WatchedConnection& connection) {
  const std::lock_guard lock(mutex_);
  std::erase(all_, &connection);
}

void ConnectionWatch::run(const std::stop_token& stop) {
  std::condition_variable_any woken;
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    woken.wait_for(lock, stop, std::chrono::milliseconds(500), [] { return false; });
    const Clock::time_point now = Clock::now();
    for (WatchedConnection* one : all_) one->look(now);
  }
}

}  // namespace vexal
