// Whether the peer of a request still wants its answers.
#pragma once

#include <chrono>

#include "server/acceptor.h"
#include "server/request.h"

namespace vexal {

// Asked often, it looks now and then.
class Patience {
 public:
  Patience(const Acceptor& acceptor, int32_t association) : acceptor_(acceptor), association_(association) {}

  bool over() {
    if (ended()) return true;
    const Clock::time_point now = Clock::now();
    if (now - last_ < std::chrono::milliseconds(100)) return false;
    last_ = now;
    return look();
  }
  // Looks whatever the time is.
  bool look() {
    if (ended()) return true;
    said_ = acceptor_.stopping() ? PeerSays::Gone : listen_to(association_);
    return ended();
  }
  void lose() { said_ = PeerSays::Gone; }
  void cancel() { said_ = PeerSays::Cancel; }
  bool ended() const { return said_ != PeerSays::Nothing; }
  bool gone() const { return said_ == PeerSays::Gone; }

 private:
  using Clock = std::chrono::steady_clock;
  const Acceptor& acceptor_;
  int32_t association_;
  PeerSays said_ = PeerSays::Nothing;
  Clock::time_point last_ = Clock::now();
};

}  // namespace vexal
