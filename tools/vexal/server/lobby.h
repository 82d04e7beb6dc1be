// Connections whose request has not come yet, or waits for a thread.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "rights.h"

namespace vexal {

class Lobby {
 public:
  using Clock = std::chrono::steady_clock;

  // `secure`: a TLS handshake comes first.
  Lobby(bool secure, std::chrono::seconds patience);
  ~Lobby();
  Lobby(const Lobby&) = delete;
  Lobby& operator=(const Lobby&) = delete;

  // Takes a connection; when there are too many, the oldest one of the address with the most goes.
  void add(int socket);
  bool empty() const { return waiting_.empty(); }
  void drop_one();

  // What poll() has to look at, appended; milliseconds until something has to be done without an event.
  int prepare(std::vector<pollfd>& entries) const;
  // What poll() found, in the same order. Connections that are late, gone or say nothing sensible are closed.
  void look(const pollfd* entries);
  // Gives connections whose request is there, in the order in which it came, to `serve`; it says whether it
  // could take this one. `left`: of the time for the request.
  void hand_out(
      const std::function<bool(int socket, const AddressBytes& address, Clock::duration left)>& serve);

 private:
  struct Connection {
    int socket;
    AddressBytes address;
    Clock::time_point deadline;  // for the request to come
    bool ready = false;          // it is there
    Clock::duration left{};      // of that time then: waiting for a thread does not count
  };
  enum class Look { Wait, Ready, Close };
  Look look_at(const Connection& connection) const;

  bool secure_;
  std::chrono::seconds patience_;
  std::size_t most_;
  std::vector<Connection> waiting_;
};

// Whom an address stands for: a host, or in IPv6 the network of one.
AddressBytes host_of(const AddressBytes& address);

}  // namespace vexal
