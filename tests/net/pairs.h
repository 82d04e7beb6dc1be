// Both ends of an association in one process.
#pragma once

#include "peers.h"

namespace vx::test {

class PairTest : public NetTest {
 protected:
  // Waits for one association and accepts it.
  int32_t wait_and_accept(const char* list) { return wait_and_accept(list, app_); }
  int32_t wait_and_accept(const char* list, int32_t app) {
    int32_t id = -1;
    const VX_STATUS status = VX_Wait_For_Association_On_Port(list, 20, app, port_, &id);
    EXPECT_EQ(status, VX_NORMAL_COMPLETION) << VX_Error_Message(status);
    if (status == VX_NORMAL_COMPLETION) {
      EXPECT_EQ(VX_Accept_Association(id), VX_NORMAL_COMPLETION);
    }
    return id;
  }
  // Both ends in this process: the requester's and the acceptor's ID.
  struct Pair {
    int32_t requester = -1;
    int32_t acceptor = -1;
  };
  Pair connect(const char* list) {
    Pair pair;
    std::thread acceptor([&] { pair.acceptor = wait_and_accept(list); });
    pair.requester = open_when_ready(list);
    acceptor.join();
    return pair;
  }
  int32_t open_when_ready(const char* list) {
    for (int tries = 0; tries < 100; ++tries) {
      int32_t id = -1;
      if (VX_Open_Association(app_, &id, "THEM", &port_, "127.0.0.1", list) == VX_NORMAL_COMPLETION)
        return id;
      ::usleep(20000);
    }
    ADD_FAILURE() << "no association";
    return -1;
  }
};

}  // namespace vx::test
