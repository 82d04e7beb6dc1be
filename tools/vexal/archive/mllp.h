// Messages of HL7 over its minimal lower layer protocol.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace vexal {

// Takes connections on a thread of its own: 32 at once, messages of 1 MiB, 30 s for the rest of one that has
// begun, 5 minutes of silence.
class MllpListener {
 public:
  // What a message is answered with.
  using Handler = std::function<std::string(const std::string& message)>;

  MllpListener() = default;
  ~MllpListener() { stop(); }
  MllpListener(const MllpListener&) = delete;
  MllpListener& operator=(const MllpListener&) = delete;

  // "PORT" of this machine alone, or "ADDRESS:PORT", an IPv6 address in brackets. An error text, empty on
  // success.
  std::string start(const std::string& where, Handler handler);
  void stop();

 private:
  using Clock = std::chrono::steady_clock;
  struct Connection {
    int socket = -1;
    std::string pending;
    Clock::time_point since;  // the last message, or the first byte of the one that comes
  };
  void run();
  void let_in();
  // False: the connection is to end.
  bool read(Connection& connection);
  bool answer_all(Connection& connection);
  static bool is_late(const Connection& connection);

  Handler handler_;
  int listener_ = -1;
  int wake_[2] = {-1, -1};
  std::vector<Connection> connections_;
  std::thread thread_;
};

}  // namespace vexal
