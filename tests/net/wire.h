// What the network's tests share: an upper-layer handle over one end of a socket pair, the peer's end in the
// test's hands, and PDUs as bytes.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "connection/session.h"
#include "connection/state_machine.h"
#include "connection/transport_wait.h"
#include "frame/lock.h"
#include "support.h"

namespace wire {

using Clock = std::chrono::steady_clock;
inline double seconds_since(Clock::time_point begun) {
  return std::chrono::duration<double>(Clock::now() - begun).count();
}

inline std::string be16(std::size_t value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}
inline std::string be32(std::size_t value) {
  return be16(value >> 16 & 0xFFFF) + be16(value & 0xFFFF);
}
inline std::string item(uint8_t type, std::string_view content) {
  return std::string{static_cast<char>(type), '\0'} + be16(content.size()) + std::string(content);
}
inline std::string pdu(uint8_t type, std::string_view body) {
  return std::string{static_cast<char>(type), '\0'} + be32(body.size()) + std::string(body);
}
inline std::string short_pdu(uint8_t type, uint8_t b7 = 0, uint8_t b8 = 0, uint8_t b9 = 0) {
  return pdu(type, std::string{'\0', static_cast<char>(b7), static_cast<char>(b8), static_cast<char>(b9)});
}
inline std::string pdv(uint8_t context, uint8_t control, std::string_view value) {
  return be32(value.size() + 2) + std::string{static_cast<char>(context), static_cast<char>(control)} +
         std::string(value);
}
inline std::string title(std::string text) {
  text.resize(16, ' ');
  return text;
}
inline std::string context(uint8_t id, std::string_view abstract,
                           std::initializer_list<std::string_view> syntaxes) {
  std::string content = std::string{static_cast<char>(id), '\0', '\0', '\0'} + item(0x30, abstract);
  for (const std::string_view syntax : syntaxes) content += item(0x40, syntax);
  return item(0x20, content);
}
inline constexpr char kContextName[] = "1.2.840.10008.3.1.1.1";
inline constexpr char kVerification[] = "1.2.840.10008.1.1";
inline constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";
inline constexpr char kImplicit[] = "1.2.840.10008.1.2";
inline constexpr char kExplicit[] = "1.2.840.10008.1.2.1";
inline std::string associate(uint8_t type, const std::string& items, const std::string& called = "CALLED",
                             const std::string& calling = "CALLING") {
  return pdu(type, be16(1) + be16(0) + title(called) + title(calling) + std::string(32, '\0') + items);
}
inline std::string user_information(const std::string& extra = {}) {
  return item(0x50, item(0x51, be32(16384)) + item(0x52, "1.2.3.4") + extra);
}
inline std::string simple_request(const std::string& called = "CALLED") {
  return associate(1, item(0x10, kContextName) + context(1, kVerification, {kImplicit}) + user_information(),
                   called);
}
inline std::string simple_accept() {
  const std::string answer = std::string("\1\0\0\0", 4) + item(0x40, kImplicit);
  return associate(2, item(0x10, kContextName) + item(0x21, answer) + user_information());
}

// Both ends of a connection over loopback, the first one as the library has its sockets.
inline void connected_pair(int (&ends)[2]) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  ends[1] = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::connect(ends[1], reinterpret_cast<sockaddr*>(&address), size), 0);
  ends[0] = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  ASSERT_GE(ends[0], 0);
  ASSERT_EQ(vx::SetSocketOptions(ends[0]), vx::TL_NORMAL);
  ::close(listener);
}

// The peer's end of a connection.
class Peer {
 public:
  explicit Peer(int socket = -1) : socket_(socket) {}
  ~Peer() { close(); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  void adopt(int socket) {
    close();
    socket_ = socket;
  }
  int socket() const { return socket_; }
  void send(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
  }
  void end() const { ::shutdown(socket_, SHUT_WR); }
  void close() {
    if (socket_ >= 0) ::close(socket_);
    socket_ = -1;
  }
  // Everything up to the end of the stream, or until nothing came for a while.
  std::string receive(int milliseconds = 200, std::size_t enough = SIZE_MAX) const {
    std::string all;
    char block[4096];
    pollfd entry{socket_, POLLIN, 0};
    while (all.size() < enough && ::poll(&entry, 1, milliseconds) > 0) {
      const ssize_t got = ::recv(socket_, block, std::min(sizeof block, enough - all.size()), 0);
      if (got <= 0) break;
      all.append(block, static_cast<std::size_t>(got));
    }
    return all;
  }

 private:
  int socket_;
};

class WireTest : public support::LibraryTest {
 protected:
  std::string profile_lines() override {
    return "[DUL_PARMS]\nARTIM_TIMEOUT = 1\nASSOC_REPLY_TIMEOUT = 1\nRELEASE_TIMEOUT = 1\n"
           "INACTIVITY_TIMEOUT = 1\nWRITE_TIMEOUT = 1\nCONNECT_TIMEOUT = 1\n";
  }
  void TearDown() override {
    drop();
    LibraryTest::TearDown();
  }
  void drop() {
    vx::free_association(dul_);
    dul_ = nullptr;
    vx::free_association_parameters(parameters_);
    parameters_ = nullptr;
  }
  // A handle in a state, its peer in the test's hands.
  void connect(vx::State state, bool acceptor, uint32_t maximum = 16384) {
    drop();
    int ends[2];
    connected_pair(ends);
    vx::DulStatus status = vx::DUL_NORMAL;
    dul_ = vx::Create_Association_Handle(maximum, acceptor, status);
    ASSERT_NE(dul_, nullptr);
    dul_->transport = vx::TL_Create_Transport(nullptr, nullptr);
    dul_->transport->socket = ends[0];
    dul_->state = state;
    peer_.adopt(ends[1]);
    parameters_ = vx::new_association_parameters();
  }
  bool alive() const { return vx::dul_alive(dul_); }

  vx::DUL_Association* dul_ = nullptr;
  vx::AssociationParameters* parameters_ = nullptr;
  Peer peer_;
};

}  // namespace wire
