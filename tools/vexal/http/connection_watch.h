// Connections that are late, whatever they are late with, are ended from outside.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace vexal {

// One connection; its own thread says until when the peer has to have done its part.
class WatchedConnection {
 public:
  // Looks at a descriptor of its own, so that it may be closed whenever its owner likes.
  explicit WatchedConnection(int socket);
  ~WatchedConnection();
  WatchedConnection(const WatchedConnection&) = delete;
  WatchedConnection& operator=(const WatchedConnection&) = delete;

  void expect_within(unsigned seconds);
  // While it lives, nothing is expected of the peer: the time does not count.
  class Pause {
   public:
    explicit Pause(WatchedConnection* connection);
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    WatchedConnection* connection_;
    int64_t left_ = 0;
  };
  // Ends it if it is late.
  void look(std::chrono::steady_clock::time_point now);

 private:
  int socket_;
  std::atomic<int64_t> deadline_{0};  // of the steady clock, in its ticks; 0: none
};

class ConnectionWatch {
 public:
  ConnectionWatch();
  ~ConnectionWatch();
  ConnectionWatch(const ConnectionWatch&) = delete;
  ConnectionWatch& operator=(const ConnectionWatch&) = delete;

  void add(WatchedConnection& connection);
  void remove(WatchedConnection& connection);

 private:
  void run(const std::stop_token& stop);

  std::mutex mutex_;
  std::vector<WatchedConnection*> all_;
  std::jthread thread_;
};

}  // namespace vexal
