// The other end of an association, for tests: a peer that says what it is told to, byte by byte, and an
// acceptor of the library.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "config/config.h"
#include "config/transfer_syntax.h"
#include "connection/pdu.h"
#include "connection/session.h"
#include "connection/upper_layer.h"
#include "frame/text.h"
#include "support.h"

namespace vx::test {

using Bytes = std::string;

inline Bytes big16(uint32_t value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}
inline Bytes big32(uint32_t value) {
  return big16(value >> 16) + big16(value);
}
inline Bytes little16(uint32_t value) {
  return {static_cast<char>(value), static_cast<char>(value >> 8)};
}
inline Bytes little32(uint32_t value) {
  return little16(value) + little16(value >> 16);
}

inline Bytes pdu(uint8_t type, const Bytes& body) {
  return Bytes{static_cast<char>(type), '\0'} + big32(static_cast<uint32_t>(body.size())) + body;
}
inline Bytes pdv(uint8_t context, bool data, bool last, const Bytes& value) {
  return big32(static_cast<uint32_t>(value.size() + 2)) + static_cast<char>(context) +
         static_cast<char>((data ? 0 : 1) | (last ? 2 : 0)) + value;
}
inline const Bytes kReleaseRequest = pdu(5, Bytes(4, '\0'));

// An element in implicit little endian.
inline Bytes element(uint32_t tag, Bytes value, char pad = '\0') {
  if (value.size() % 2 != 0) value += pad;
  return little16(tag >> 16) + little16(tag) + little32(static_cast<uint32_t>(value.size())) + value;
}
inline Bytes command_group(const std::vector<std::pair<uint32_t, Bytes>>& fields) {
  Bytes rest;
  for (const auto& [tag, value] : fields) rest += element(tag, value);
  return element(0, little32(static_cast<uint32_t>(rest.size()))) + rest;
}
inline Bytes store_command(const char* sop_class, uint32_t id = 1) {
  return command_group({{0x00000002, sop_class},
                        {0x00000100, little16(C_STORE_RQ)},
                        {0x00000110, little16(id)},
                        {0x00000700, little16(0)},
                        {0x00000800, little16(0)},
                        {0x00001000, "1.2.3.4"}});
}

// A port that nobody listens on.
inline int free_port() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), size);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  ::close(fd);
  return ntohs(address.sin_port);
}

struct Pdu {
  uint8_t type = 0;
  Bytes body;  // without the header
};

// A socket that sends and receives whole PDUs.
class RawPeer {
 public:
  explicit RawPeer(int fd) : fd_(fd) {
    const int on = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  ~RawPeer() { close(); }
  RawPeer(RawPeer&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;

  static RawPeer connect(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (int tries = 0; tries < 200; ++tries) {
      const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
      if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return RawPeer(fd);
      ::close(fd);
      ::usleep(10000);
    }
    ADD_FAILURE() << "no connection";
    return RawPeer(-1);
  }

  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  void send(const Bytes& bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t part = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
      if (part <= 0) return;
      done += static_cast<std::size_t>(part);
    }
  }
  // False when the other side is gone.
  bool receive(Pdu& out) const {
    Bytes head(6, '\0');
    if (!fill(head)) return false;
    out.type = static_cast<uint8_t>(head[0]);
    uint32_t length = 0;
    for (int i = 2; i < 6; ++i)
      length = length << 8 | static_cast<uint8_t>(head[static_cast<std::size_t>(i)]);
    out.body.assign(length, '\0');
    return fill(out.body);
  }

  // Asks for one context for each UID, with these syntaxes.
  void request(const std::vector<std::string>& classes, const std::vector<VX_TRANSFER_SYNTAX>& syntaxes,
               uint32_t maximum = 16384) const {
    AssociationParameters* wanted = new_association_parameters();
    copy_text(wanted->calledTitle, sizeof wanted->calledTitle, "US");
    copy_text(wanted->callingTitle, sizeof wanted->callingTitle, "RAW");
    copy_text(wanted->applicationContextName, sizeof wanted->applicationContextName, "1.2.840.10008.3.1.1.1");
    copy_text(wanted->implementationClassUid, sizeof wanted->implementationClassUid, "1.2.3");
    wanted->maximumPduLength = maximum;
    set_context_count(*wanted, static_cast<int32_t>(classes.size()));
    for (std::size_t i = 0; i < classes.size(); ++i) {
      PresentationContext& context = wanted->contexts[i];
      context.id = static_cast<uint8_t>(2 * i + 1);
      copy_text(context.abstractSyntax, sizeof context.abstractSyntax, classes[i]);
      set_syntax_count(context, static_cast<int32_t>(syntaxes.size()));
      for (std::size_t j = 0; j < syntaxes.size(); ++j) {
        syntax_uid(syntaxes[j], context.transferSyntaxes[j].uid, kUid);
      }
    }
    std::vector<uint8_t> bytes;
    Build_Associate_PDU(*wanted, kAssociateRq, bytes);
    free_association_parameters(wanted);
    send(Bytes(bytes.begin(), bytes.end()));
    Pdu answer;
    ASSERT_TRUE(receive(answer));
    ASSERT_EQ(answer.type, kAssociateAc);
  }
  // Accepts every context with its first syntax. `change` may alter the answer.
  void accept(uint32_t maximum, const std::function<void(AssociationParameters&)>& change = {}) const {
    Pdu asked;
    ASSERT_TRUE(receive(asked));
    ASSERT_EQ(asked.type, kAssociateRq);
    const Bytes whole = pdu(asked.type, asked.body);
    AssociationParameters* parameters = new_association_parameters();
    ASSERT_EQ(parse_associate({reinterpret_cast<const uint8_t*>(whole.data()), whole.size()}, *parameters),
              DUL_NORMAL);
    parameters->maximumPduLength = maximum;
    for (PresentationContext& context : contexts_of(*parameters)) {
      context.result = kAccepted;
      copy_text(context.acceptedTransferSyntax, kUid, context.transferSyntaxes[0].uid);
    }
    if (change) change(*parameters);
    std::vector<uint8_t> bytes;
    Build_Associate_PDU(*parameters, kAssociateAc, bytes);
    free_association_parameters(parameters);
    send(Bytes(bytes.begin(), bytes.end()));
  }

 private:
  bool fill(Bytes& bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t part = ::recv(fd_, bytes.data() + done, bytes.size() - done, 0);
      if (part <= 0) return false;
      done += static_cast<std::size_t>(part);
    }
    return true;
  }

  int fd_;
};

// Waits for one connection.
class RawListener {
 public:
  RawListener() : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(fd_, reinterpret_cast<sockaddr*>(&address), size);
    ::listen(fd_, 4);
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
  }
  ~RawListener() { ::close(fd_); }
  RawListener(const RawListener&) = delete;
  RawListener& operator=(const RawListener&) = delete;
  int32_t port() const { return port_; }
  RawPeer accept() const { return RawPeer(::accept(fd_, nullptr, nullptr)); }

 private:
  int fd_;
  int32_t port_ = 0;
};

// A library with its full data, and an application that waits.
class NetTest : public support::LibraryTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
    set_bool(VX_CFG_ACCEPT_ANY_HOSTNAME, true);
    set_bool(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, true);
    set_bool(VX_CFG_TCPIP_DISABLE_NAGLE, true);
    VX_Set_Log_Destination(VX_CFG_INFO_MESSAGE, VX_LOG_OFF);
    ASSERT_EQ(VX_Register_Application(&app_, "US"), VX_NORMAL_COMPLETION);
    port_ = free_port();
  }

  // Makes a service list of (service, syntaxes, roles) rows.
  struct Listed {
    const char* service;
    std::vector<VX_TRANSFER_SYNTAX> syntaxes;
    uint8_t scu = VX_NO_ROLE;
    uint8_t scp = VX_NO_ROLE;
  };
  void make_list(const std::string& list, const std::vector<Listed>& rows, uint16_t invoked = 1,
                 uint16_t performed = 1) {
    std::vector<std::string> names;
    for (const Listed& row : rows) {
      const std::string name = list + std::to_string(names.size());
      std::vector<VX_TRANSFER_SYNTAX> syntaxes = row.syntaxes;
      syntaxes.push_back(0);
      ASSERT_EQ(VX_NewSyntaxList(name.c_str(), syntaxes.data()), VX_NORMAL_COMPLETION);
      ASSERT_EQ(VX_NewServiceFromName(name.c_str(), row.service, name.c_str(), row.scu, row.scp),
                VX_NORMAL_COMPLETION);
      names.push_back(name);
    }
    std::vector<const char*> services;
    for (const std::string& name : names) services.push_back(name.c_str());
    services.push_back(nullptr);
    ASSERT_EQ(VX_NewProposedServiceListAsync(list.c_str(), services.data(), invoked, performed),
              VX_NORMAL_COMPLETION);
  }

  int32_t open(const char* list, int32_t port) {
    int32_t id = -1;
    const VX_STATUS status = VX_Open_Association(app_, &id, "THEM", &port, "127.0.0.1", list);
    EXPECT_EQ(status, VX_NORMAL_COMPLETION) << VX_Error_Message(status);
    return id;
  }
  static int32_t new_message(const char* service, uint16_t command,
                             const std::vector<std::pair<uint32_t, const char*>>& texts = {}) {
    int32_t id = -1;
    EXPECT_EQ(VX_Open_Message(&id, service, command), VX_NORMAL_COMPLETION);
    for (const auto& [tag, text] : texts) {
      VX_Add_Standard_Attribute(id, tag);
      EXPECT_EQ(VX_Set_Value_From_String(id, tag, text), VX_NORMAL_COMPLETION) << std::hex << tag;
    }
    return id;
  }
  struct Read {
    VX_STATUS status;
    int32_t id = -1;
    std::string service;
    uint16_t command = 0;
  };
  static Read read(int32_t association, int32_t timeout = 10, uint32_t stop = 0xFFFFFFFF) {
    Read out{};
    const char* service = nullptr;
    out.status = stop == 0xFFFFFFFF
                     ? VX_Read_Message(association, timeout, &out.id, &service, &out.command)
                     : VX_Read_Message_To_Tag(association, timeout, stop, &out.id, &service, &out.command);
    if (service != nullptr) out.service = service;
    return out;
  }
  static std::string text(int32_t id, uint32_t tag) {
    char buffer[256] = "";
    return VX_Get_Value_To_String(id, tag, sizeof buffer, buffer) == VX_NORMAL_COMPLETION ? buffer : "";
  }
  // The data set as a stream.
  static Bytes data_set(int32_t id, VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN) {
    Bytes bytes;
    const auto take = [](int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) -> VX_STATUS {
      static_cast<Bytes*>(user)->append(static_cast<const char*>(data), size);
      return VX_NORMAL_COMPLETION;
    };
    EXPECT_EQ(VX_Message_To_Stream(id, 0x00010000, 0xFFFFFFFF, syntax, &bytes, take), VX_NORMAL_COMPLETION);
    return bytes;
  }

  int32_t app_ = -1;
  int32_t port_ = 0;
};

}  // namespace vx::test
