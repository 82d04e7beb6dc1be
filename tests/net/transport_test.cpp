// Connections and listening ports over loopback.
#include <fcntl.h>

#include "connection/socket.h"
#include "net/peers.h"

namespace vx::test {
namespace {

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
  struct Closes {
    void operator()(TL_Transport* transport) const { TL_Close_Transport(transport); }
  };
  using Owned = std::unique_ptr<TL_Transport, Closes>;
  // Who is accepted and closed at once may have failed already.
  static Owned connect_to(int32_t port) {
    Owned client(TL_Create_Transport(nullptr, nullptr));
    TL_Connect(*client, "127.0.0.1", std::to_string(port).c_str(), 5);
    return client;
  }
  static TlStatus accept(Owned& server, int32_t timeout, TL_ListenPortObj* listener) {
    TL_Transport* transport = nullptr;
    const TlStatus status = TL_Wait_For_Connection(transport, timeout, listener, 0);
    server.reset(transport);
    return status;
  }
  TL_ListenPortObj* listener_ = nullptr;
};

TEST_F(Transport, ConnectsAndTellsWhoIsThere) {
  const int32_t port = listen();
  Owned server;
  Owned client = connect_to(port);
  ASSERT_EQ(accept(server, 5, listener_), TL_NORMAL);
  EXPECT_STREQ(server->remoteAddress, "127.0.0.1");
  EXPECT_NE(server->remoteName, nullptr);
  EXPECT_EQ(client->remoteName, nullptr);
  EXPECT_EQ(joined(client->isRequester, client->localAddress.ss_family), joined(1, AF_INET));
  EXPECT_NE(::fcntl(server->socket, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(::fcntl(server->socket, F_GETFL) & O_NONBLOCK, 0);
  client.reset();
  // Without reverse look-ups there is no name.
  set_bool(VX_CFG_ACCEPT_ANY_HOSTNAME, true);
  client = connect_to(port);
  ASSERT_EQ(accept(server, 0, listener_), TL_NORMAL);
  EXPECT_EQ(server->remoteName, nullptr);
  client.reset();
  EXPECT_EQ(accept(server, 0, listener_), TL_TIMED_OUT);
  // A port that is closed refuses, and a name that nobody has is not found.
  ASSERT_OK(close_listen_port(port, nullptr));
  client.reset(TL_Create_Transport(nullptr, nullptr));
  EXPECT_EQ(TL_Connect(*client, "127.0.0.1", std::to_string(port).c_str(), 5), TL_CONNECT_FAILED);
  EXPECT_TRUE(has_log("(10061)Connection refused"));
  EXPECT_EQ(client->socket, -1);
  EXPECT_EQ(TL_Connect(*client, "no-such-host.invalid", "104", 5), TL_UNKNOWN_HOST);
  EXPECT_TRUE(has_log("Cannot resolve AVAILABLE address no-such-host.invalid"));
}

TEST_F(Transport, AnAddressInsideIpv6IsShownAsItIs) {
  const Owned client = connect_to(listen(nullptr));
  Owned server;
  ASSERT_EQ(accept(server, 5, listener_), TL_NORMAL);
  EXPECT_STREQ(server->remoteAddress, "127.0.0.1");
  EXPECT_EQ(server->remoteAddressRaw.ss_family, AF_INET);
}

TEST_F(Transport, ClosingAPortWakesTheThreadsThatWait) {
  const int32_t port = listen();
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([port] {
      TL_ListenPortObj* held = nullptr;
      ASSERT_EQ(TL_Prepare_Listen_Port(port, "127.0.0.1", held), TL_NORMAL);
      Owned server;
      EXPECT_EQ(accept(server, -1, held), TL_TIMED_OUT);
      release_listen_port(held);
    });
  }
  pause(100);
  const auto begun = Clock::now();
  EXPECT_OK(close_listen_port(port, "127.0.0.1"));
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
        Owned server;
        if (accept(server, 20, listener_) != TL_NORMAL) return;
        ++taken;
      }
    });
  }
  std::vector<Owned> clients;
  for (int i = 0; i < kConnections; ++i) clients.push_back(connect_to(port));
  const auto begun = Clock::now();
  while (taken < kConnections && seconds_since(begun) < 5) std::this_thread::yield();
  EXPECT_EQ(taken, kConnections);
  close_listen_port(port, nullptr);
  for (std::thread& thread : threads) thread.join();
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
  EXPECT_OK(close_listen_port(port + 2, "127.0.0.1")) << "it listens on all addresses";
}

// A slow reader gets what was sent before a close that resets the connection.
TEST_F(Transport, AHardCloseLosesNothing) {
  set_int(VX_CFG_TCPIP_SEND_BUFFER_SIZE, 2 << 20);
  TL_Transport* transport = connected(peer_);
  const Bytes bytes(600'000, 'x');
  iovec piece{const_cast<char*>(bytes.data()), bytes.size()};
  ASSERT_EQ(TL_Write("test", *transport, &piece, 1, 5), TL_NORMAL);
  Bytes got;
  std::thread reader([&] {
    pause(200);
    got = peer_.heard(1000);
  });
  TL_Close_Transport(transport);
  reader.join();
  EXPECT_EQ(got.size(), bytes.size());
}

TEST_F(Transport, WaitsAsLongAsItIsTold) {
  const Owned transport(connected(peer_));
  const auto wait = [&](int32_t timeout, bool for_reading) {
    return WaitForSocketEvent(timeout, for_reading, transport.get(), transport->socket);
  };
  auto begun = Clock::now();
  EXPECT_EQ(wait(0, true), 0);
  EXPECT_LT(seconds_since(begun), 0.2);
  begun = Clock::now();
  EXPECT_EQ(wait(2, true), 0);
  EXPECT_NEAR(seconds_since(begun), 2, 0.3);
  EXPECT_GT(wait(-1, false), 0);
  transport->abortFlag.store(1);
  EXPECT_EQ(wait(-1, true), 0);
}

// Descriptors above the limit of a set of select.
TEST_F(Transport, ManyDescriptors) {
  const Owned transport(connected(peer_));
  const int high = ::fcntl(transport->socket, F_DUPFD_CLOEXEC, 1500);
  if (high < 0) GTEST_SKIP() << "the process may not open so many files";
  ::close(std::exchange(transport->socket, high));
  peer_.send("ab");
  char bytes[2];
  uint32_t count = 0;
  EXPECT_EQ(TL_Read(*transport, bytes, 2, count, 5, 5), TL_NORMAL);
}

}  // namespace
}  // namespace vx::test
