// Connections and listening ports over loopback.
#include <fcntl.h>

#include <thread>

#include "connection/socket.h"
#include "net/wire.h"

namespace {

using namespace vx;
using namespace wire;

class Transport : public WireTest {
 protected:
  // A listening port that the system chose.
  int32_t listen(const char* address = "127.0.0.1") {
    for (int32_t port = 34000 + ::getpid() % 20000;; ++port) {
      if (TL_Prepare_Listen_Port(port, address, listener_) == TL_NORMAL) return port;
      if (port > 60000) return -1;
    }
  }
  void TearDown() override {
    if (listener_ != nullptr) release_listen_port(listener_);
    WireTest::TearDown();
  }
  TL_ListenPortObj* listener_ = nullptr;
};

TEST_F(Transport, ConnectsAndTellsWhoIsThere) {
  const int32_t port = listen();
  TL_Transport* client = TL_Create_Transport(nullptr, nullptr);
  ASSERT_EQ(TL_Connect(*client, "127.0.0.1", std::to_string(port).c_str(), 5), TL_NORMAL);
  TL_Transport* server = nullptr;
  ASSERT_EQ(TL_Wait_For_Connection(server, 5, listener_, 0), TL_NORMAL);
  EXPECT_STREQ(server->remoteAddress, "127.0.0.1");
  EXPECT_NE(server->remoteName, nullptr);
  EXPECT_EQ(client->remoteName, nullptr);
  EXPECT_TRUE(client->isRequester);
  EXPECT_EQ(client->localAddress.ss_family, AF_INET);
  EXPECT_NE(::fcntl(server->socket, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(::fcntl(server->socket, F_GETFL) & O_NONBLOCK, 0);
  TL_Close_Transport(client);
  TL_Close_Transport(server);
  // Without reverse look-ups there is no name.
  set_bool(VX_CFG_ACCEPT_ANY_HOSTNAME, true);
  client = TL_Create_Transport(nullptr, nullptr);
  ASSERT_EQ(TL_Connect(*client, "127.0.0.1", std::to_string(port).c_str(), 5), TL_NORMAL);
  ASSERT_EQ(TL_Wait_For_Connection(server, 0, listener_, 0), TL_NORMAL);
  EXPECT_EQ(server->remoteName, nullptr);
  TL_Close_Transport(client);
  TL_Close_Transport(server);
  EXPECT_EQ(TL_Wait_For_Connection(server, 0, listener_, 0), TL_TIMED_OUT);
  TL_Close_Transport(server);
}

TEST_F(Transport, AnAddressInsideIpv6IsShownAsItIs) {
  const int32_t port = listen(nullptr);
  TL_Transport* client = TL_Create_Transport(nullptr, nullptr);
  ASSERT_EQ(TL_Connect(*client, "127.0.0.1", std::to_string(port).c_str(), 5), TL_NORMAL);
  TL_Transport* server = nullptr;
  ASSERT_EQ(TL_Wait_For_Connection(server, 5, listener_, 0), TL_NORMAL);
  EXPECT_STREQ(server->remoteAddress, "127.0.0.1");
  EXPECT_EQ(server->remoteAddressRaw.ss_family, AF_INET);
  TL_Close_Transport(client);
  TL_Close_Transport(server);
}

TEST_F(Transport, ARefusedConnectionSaysSo) {
  const int32_t port = listen();
  ASSERT_EQ(close_listen_port(port, nullptr), VX_NORMAL_COMPLETION);
  release_listen_port(listener_);
  listener_ = nullptr;
  TL_Transport* client = TL_Create_Transport(nullptr, nullptr);
  EXPECT_EQ(TL_Connect(*client, "127.0.0.1", std::to_string(port).c_str(), 5), TL_CONNECT_FAILED);
  EXPECT_TRUE(has_log("(10061)Connection refused"));
  EXPECT_EQ(client->socket, -1);
  EXPECT_EQ(TL_Connect(*client, "no-such-host.invalid", "104", 5), TL_UNKNOWN_HOST);
  EXPECT_TRUE(has_log("Cannot resolve AVAILABLE address no-such-host.invalid"));
  TL_Close_Transport(client);
}

TEST_F(Transport, ClosingAPortWakesTheThreadsThatWait) {
  const int32_t port = listen();
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([port] {
      TL_ListenPortObj* held = nullptr;
      ASSERT_EQ(TL_Prepare_Listen_Port(port, "127.0.0.1", held), TL_NORMAL);
      TL_Transport* server = nullptr;
      EXPECT_EQ(TL_Wait_For_Connection(server, -1, held, 0), TL_TIMED_OUT);
      TL_Close_Transport(server);
      release_listen_port(held);
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const auto begun = Clock::now();
  EXPECT_EQ(close_listen_port(port, "127.0.0.1"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(close_listen_port(port, "127.0.0.1"), VX_INVALID_PORT_NUMBER);
  for (std::thread& thread : threads) thread.join();
  EXPECT_LT(seconds_since(begun), 0.5);
  // The port can be had again at once.
  TL_ListenPortObj* again = nullptr;
  ASSERT_EQ(TL_Prepare_Listen_Port(port, "127.0.0.1", again), TL_NORMAL);
  release_listen_port(again);
}

TEST_F(Transport, ThreadsOnOnePortTakeAConnectionEach) {
  set_int(VX_CFG_MAX_PENDING_CONNECTIONS, 64);
  const int32_t port = listen();
  constexpr int kConnections = 40;
  std::atomic<int> taken{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (;;) {
        TL_Transport* server = nullptr;
        if (TL_Wait_For_Connection(server, 20, listener_, 0) == TL_NORMAL) ++taken;
        const bool woken = server->socket < 0;
        TL_Close_Transport(server);
        if (woken) return;
      }
    });
  }
  std::vector<TL_Transport*> clients;
  for (int i = 0; i < kConnections; ++i) {
    clients.push_back(TL_Create_Transport(nullptr, nullptr));
    TL_Connect(*clients.back(), "127.0.0.1", std::to_string(port).c_str(), 5);
  }
  const auto begun = Clock::now();
  while (taken < kConnections && seconds_since(begun) < 5) std::this_thread::yield();
  EXPECT_EQ(taken, kConnections);
  close_listen_port(port, nullptr);
  for (std::thread& thread : threads) thread.join();
  for (TL_Transport* client : clients) TL_Close_Transport(client);
}

TEST_F(Transport, TheDefaultPortFollowsItsSetting) {
  const int32_t port = listen();
  set_int(VX_CFG_TCPIP_LISTEN_PORT, port + 1);
  int32_t first = -1;
  ASSERT_EQ(get_default_listen_socket(first), VX_NORMAL_COMPLETION);
  set_int(VX_CFG_TCPIP_LISTEN_PORT, port + 2);
  TL_ListenPortObj* held = nullptr;
  ASSERT_EQ(TL_Prepare_Listen_Port(-1, nullptr, held), TL_NORMAL);
  release_listen_port(held);
  int32_t socket = -1;
  EXPECT_EQ(get_listen_socket(port + 1, socket), VX_INVALID_PORT_NUMBER);
  EXPECT_EQ(get_listen_socket(port + 2, socket), VX_NORMAL_COMPLETION);
  EXPECT_EQ(close_listen_port(port + 2, "127.0.0.1"), VX_NORMAL_COMPLETION) << "it listens on all addresses";
}

// A slow reader gets what was sent before a close that resets the connection.
TEST_F(Transport, AHardCloseLosesNothing) {
  set_int(VX_CFG_TCPIP_SEND_BUFFER_SIZE, 2 << 20);
  int ends[2];
  connected_pair(ends);
  Peer peer(ends[1]);
  TL_Transport* transport = TL_Create_Transport(nullptr, nullptr);
  transport->socket = ends[0];
  const std::string bytes(600'000, 'x');
  iovec piece{const_cast<char*>(bytes.data()), bytes.size()};
  ASSERT_EQ(TL_Write("test", *transport, &piece, 1, 5), TL_NORMAL);
  std::string got;
  std::thread reader([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    got = peer.receive(1000);
  });
  TL_Close_Transport(transport);
  reader.join();
  EXPECT_EQ(got.size(), bytes.size());
}

TEST_F(Transport, WaitsAsLongAsItIsTold) {
  int ends[2];
  connected_pair(ends);
  TL_Transport* transport = TL_Create_Transport(nullptr, nullptr);
  transport->socket = ends[0];
  auto begun = Clock::now();
  EXPECT_EQ(WaitForSocketEvent(0, true, transport, ends[0]), 0);
  EXPECT_LT(seconds_since(begun), 0.2);
  begun = Clock::now();
  EXPECT_EQ(WaitForSocketEvent(2, true, transport, ends[0]), 0);
  EXPECT_NEAR(seconds_since(begun), 2, 0.3);
  EXPECT_GT(WaitForSocketEvent(-1, false, transport, ends[0]), 0);
  transport->abortFlag.store(1);
  EXPECT_EQ(WaitForSocketEvent(-1, true, transport, ends[0]), 0);
  TL_Close_Transport(transport);
  ::close(ends[1]);
}

// Descriptors above the limit of a set of select.
TEST_F(Transport, ManyDescriptors) {
  int ends[2];
  connected_pair(ends);
  const int high = ::fcntl(ends[0], F_DUPFD_CLOEXEC, 1500);
  if (high < 0) GTEST_SKIP() << "the process may not open so many files";
  ::close(ends[0]);
  TL_Transport* transport = TL_Create_Transport(nullptr, nullptr);
  transport->socket = high;
  ASSERT_EQ(::send(ends[1], "ab", 2, 0), 2);
  char bytes[2];
  uint32_t count = 0;
  EXPECT_EQ(TL_Read(*transport, bytes, 2, count, 5, 5), TL_NORMAL);
  TL_Close_Transport(transport);
  ::close(ends[1]);
}

}  // namespace
