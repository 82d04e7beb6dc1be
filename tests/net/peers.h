// What the network's tests share: PDUs as bytes, a peer that says what it is told to, an upper-layer handle
// over one end of a connection, and the two sides of the library.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "config/config.h"
#include "config/transfer_syntax.h"
#include "connection/pdu.h"
#include "connection/session.h"
#include "connection/state_machine.h"
#include "connection/transport_wait.h"
#include "dimse/dimse.h"
#include "frame/lock.h"
#include "frame/text.h"
#include "support.h"

#define EXPECT_OK(call) EXPECT_EQ(call, VX_NORMAL_COMPLETION)
#define ASSERT_OK(call) ASSERT_EQ(call, VX_NORMAL_COMPLETION)

namespace vx::test {

using Bytes = std::string;
using Clock = std::chrono::steady_clock;
inline double seconds_since(Clock::time_point begun) {
  return std::chrono::duration<double>(Clock::now() - begun).count();
}
inline void pause(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// Values as one text, a comma behind each.
template <typename... Values>
std::string joined(const Values&... values) {
  std::ostringstream out;
  const auto plain = [](const auto& value) {
    if constexpr (requires { +value; }) return +value;  // a byte is a number
    if constexpr (!requires { +value; }) return std::string(value);
  };
  ((out << plain(values) << ','), ...);
  return out.str();
}

// --- Bytes ---

inline constexpr char kContextName[] = "1.2.840.10008.3.1.1.1";
inline constexpr char kVerification[] = "1.2.840.10008.1.1";
inline constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";
inline constexpr char kMr[] = "1.2.840.10008.5.1.4.1.1.4";
inline constexpr char kImplicit[] = "1.2.840.10008.1.2";
inline constexpr char kExplicit[] = "1.2.840.10008.1.2.1";

template <typename... Values>
Bytes bytes_of(Values... values) {
  return {static_cast<char>(values)...};
}
inline Bytes be16(std::size_t value) {
  return bytes_of(value >> 8, value);
}
inline Bytes be32(std::size_t value) {
  return be16(value >> 16 & 0xFFFF) + be16(value & 0xFFFF);
}
inline Bytes le16(uint32_t value) {
  return bytes_of(value, value >> 8);
}
inline Bytes le32(uint32_t value) {
  return le16(value) + le16(value >> 16);
}
inline Bytes counted(std::string_view text) {
  return be16(text.size()) + Bytes(text);
}
inline Bytes item(uint8_t type, std::string_view content) {
  return bytes_of(type, 0) + counted(content);
}
inline Bytes pdu(uint8_t type, std::string_view body) {
  return bytes_of(type, 0) + be32(body.size()) + Bytes(body);
}
inline Bytes short_pdu(uint8_t type, uint8_t b7 = 0, uint8_t b8 = 0, uint8_t b9 = 0) {
  return pdu(type, bytes_of(0, b7, b8, b9));
}
inline Bytes pdv(uint8_t context, int control, std::string_view value) {
  return be32(value.size() + 2) + bytes_of(context, control) + Bytes(value);
}
// A P-DATA-TF with one PDV.
inline constexpr int kData = 0, kCommand = kCommandBit, kLast = kLastBit;
inline Bytes data_pdu(uint8_t context, int control, std::string_view value) {
  return pdu(kPDataTf, pdv(context, control, value));
}
inline Bytes context(uint8_t id, std::string_view abstract,
                     std::initializer_list<std::string_view> syntaxes) {
  Bytes content = bytes_of(id, 0, 0, 0) + item(0x30, abstract);
  for (const std::string_view syntax : syntaxes) content += item(0x40, syntax);
  return item(0x20, content);
}
inline Bytes answered(uint8_t id, uint8_t result, std::string_view syntax) {
  return item(0x21, bytes_of(id, 0, result, 0) + item(0x40, syntax));
}
inline Bytes role(std::string_view uid, int scu, int scp) {
  return item(0x54, counted(uid) + bytes_of(scu, scp));
}
inline Bytes identity(int type, int response, std::string_view first, std::string_view second = {}) {
  return item(0x58, bytes_of(type, response) + counted(first) + counted(second));
}
inline Bytes associate(uint8_t type, const Bytes& items, Bytes called = "CALLED", Bytes calling = "CALLING") {
  called.resize(16, ' ');
  calling.resize(16, ' ');
  return pdu(type, be16(1) + be16(0) + called + calling + Bytes(32, '\0') + items);
}
inline Bytes user_information(const Bytes& extra = {}) {
  return item(0x50, item(0x51, be32(16384)) + item(0x52, "1.2.3.4") + extra);
}
inline Bytes request_for(const Bytes& contexts, const Bytes& user = {}, const Bytes& called = "US") {
  return associate(kAssociateRq, item(0x10, kContextName) + contexts + user_information(user), called);
}
inline Bytes simple_request() {
  return request_for(context(1, kVerification, {kImplicit}));
}
inline Bytes simple_accept() {
  return associate(kAssociateAc, item(0x10, kContextName) + answered(1, 0, kImplicit) + user_information());
}
inline const Bytes kReleaseRequest = short_pdu(kReleaseRq);

// An element in implicit little endian.
inline Bytes element(uint32_t tag, Bytes value) {
  value.resize(value.size() + value.size() % 2);
  return le16(tag >> 16) + le16(tag) + le32(static_cast<uint32_t>(value.size())) + value;
}
using Fields = std::vector<std::pair<uint32_t, Bytes>>;
inline Bytes command_group(const Fields& fields) {
  Bytes rest;
  for (const auto& [tag, value] : fields) rest += element(tag, value);
  return element(0, le32(static_cast<uint32_t>(rest.size()))) + rest;
}
inline Bytes store_command(const char* sop_class = kCt, uint32_t field = C_STORE_RQ, uint32_t data_set = 0) {
  return command_group({{0x00000002, sop_class},
                        {0x00000100, le16(field)},
                        {0x00000110, le16(7)},
                        {0x00000800, le16(data_set)},
                        {0x00001000, "1.2.3.4"}});
}
inline Bytes echo_command(uint32_t id) {
  return command_group({{0x00000002, kVerification},
                        {0x00000100, le16(C_ECHO_RQ)},
                        {0x00000110, le16(id)},
                        {0x00000800, le16(kNoDataSet)}});
}

// --- Sockets ---

inline sockaddr_in loopback(int32_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

struct Pdu {
  uint8_t type = 0;
  Bytes body;  // without the header
};

// The other end of a connection.
class RawPeer {
 public:
  explicit RawPeer(int fd = -1) : fd_(fd) {
    const int on = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  ~RawPeer() { close(); }
  RawPeer(RawPeer&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  RawPeer& operator=(RawPeer&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  static RawPeer connect(int32_t port) {
    const sockaddr_in address = loopback(port);
    for (int tries = 0; tries < 200; ++tries) {
      RawPeer peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
      if (::connect(peer.fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return peer;
      pause(10);
    }
    ADD_FAILURE() << "no connection";
    return RawPeer();
  }

  int socket() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  void end() const { ::shutdown(fd_, SHUT_WR); }
  void close() {
    if (fd_ >= 0) ::close(release());
  }
  void send(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t part = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (part <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(part));
    }
  }
  // Everything up to the end of the stream, or until nothing came for a while.
  Bytes heard(int milliseconds = 200, std::size_t enough = SIZE_MAX) const {
    Bytes all;
    char block[4096];
    pollfd entry{fd_, POLLIN, 0};
    while (all.size() < enough && ::poll(&entry, 1, milliseconds) > 0) {
      const ssize_t got = ::recv(fd_, block, std::min(sizeof block, enough - all.size()), 0);
      if (got <= 0) break;
      all.append(block, static_cast<std::size_t>(got));
    }
    return all;
  }
  // The next PDU. False when the other side is gone.
  bool receive(Pdu& out) const {
    const Bytes head = heard(-1, kPduHeader);
    if (head.size() < kPduHeader) return false;
    out.type = static_cast<uint8_t>(head[0]);
    std::size_t length = 0;
    for (const char byte : head.substr(2)) length = length << 8 | static_cast<uint8_t>(byte);
    out.body = heard(-1, length);
    return out.body.size() == length;
  }
  Pdu receive() const {
    Pdu out;
    receive(out);
    return out;
  }
  // Until the other side aborts or goes.
  Bytes await_abort() const { return heard(-1, kShortPdu); }

  // Accepts every context with its first syntax. `change` may alter the answer.
  void accept(uint32_t maximum, const std::function<void(AssociationParameters&)>& change = {}) const {
    const Pdu asked = receive();
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
  int fd_;
};

// A port of the system's choice that waits for connections.
class RawListener {
 public:
  RawListener() : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(0);
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
  RawPeer accept(int flags = 0) const { return RawPeer(::accept4(fd_, nullptr, nullptr, flags)); }

 private:
  int fd_;
  int32_t port_ = 0;
};
// A port that nobody listens on.
inline int32_t free_port() {
  return RawListener().port();
}

// A transport over one end of a connection, and the peer at the other.
inline TL_Transport* connected(RawPeer& peer, const SS_Functions* functions = nullptr,
                               void* channel = nullptr) {
  const RawListener listener;
  peer = RawPeer::connect(listener.port());
  TL_Transport* transport = TL_Create_Transport(functions, channel);
  transport->socket = listener.accept(SOCK_NONBLOCK | SOCK_CLOEXEC).release();
  EXPECT_EQ(SetSocketOptions(transport->socket), TL_NORMAL);
  return transport;
}

// --- Fixtures ---

// A handle of the upper layer, its peer in the test's hands.
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
    peer_.close();  // whom a close would wait for
    free_association(std::exchange(dul_, nullptr));
    free_association_parameters(std::exchange(parameters_, nullptr));
  }
  static DUL_Association* make(State state, bool acceptor, TL_Transport* transport,
                               uint32_t maximum = 16384) {
    DulStatus status = DUL_NORMAL;
    DUL_Association* dul = Create_Association_Handle(maximum, acceptor, status);
    dul->transport = transport;
    dul->state = state;
    return dul;
  }
  void connect(State state, bool acceptor, uint32_t maximum = 16384) {
    drop();
    dul_ = make(state, acceptor, connected(peer_), maximum);
    parameters_ = new_association_parameters();
  }
  bool alive() const { return dul_alive(dul_); }

  DUL_Association* dul_ = nullptr;
  AssociationParameters* parameters_ = nullptr;
  RawPeer peer_;
};

// A message that goes with its scope.
class Message {
 public:
  Message() = default;
  Message(Message&& other) noexcept : id_(std::exchange(other.id_, -1)) {}
  Message& operator=(Message&& other) noexcept {
    std::swap(id_, other.id_);
    return *this;
  }
  ~Message() {
    if (id_ >= 0) VX_Free_Message(&id_);
  }
  operator int32_t() const { return id_; }
  int32_t* id() { return &id_; }

 private:
  int32_t id_ = -1;
};

// What an application holds, or has encoded: given in pieces, from an offset if asked to, and taken.
struct Held {
  Bytes bytes;
  std::size_t piece = 10000;
  std::size_t at = 0;
  int resumed = 0;

  static VX_STATUS call(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                        void** data, int32_t first, int32_t* last) {
    auto& held = *static_cast<Held*>(user);
    if (request == VX_REQUEST_LENGTH) *size = static_cast<uint32_t>(held.bytes.size());
    if (request == VX_PROVIDE_DATA) held.bytes.append(static_cast<const char*>(*data), *size);
    if (request != VX_REQUEST_DATA && request != VX_REQUEST_DATA_AT_OFFSET) return VX_NORMAL_COMPLETION;
    if (first != 0) held.at = request == VX_REQUEST_DATA_AT_OFFSET ? *size : 0;
    if (request == VX_REQUEST_DATA_AT_OFFSET) ++held.resumed;
    *size = static_cast<uint32_t>(std::min(held.piece, held.bytes.size() - held.at));
    *data = held.bytes.data() + held.at;
    held.at += *size;
    *last = held.at == held.bytes.size() ? 1 : 0;
    return VX_NORMAL_COMPLETION;
  }
};

// A file that lies in memory.
inline VX_STATUS give_whole(const char*, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& bytes = *static_cast<Bytes*>(user);
  *size = static_cast<uint32_t>(bytes.size());
  *data = bytes.data();
  *last = 1;
  return VX_NORMAL_COMPLETION;
}

// A library with its full data, and an application that opens associations and waits for them.
class NetTest : public support::LibraryTest {
 protected:
  void SetUp() override {
    ASSERT_OK(begin_with_full_data());
    for (const VX_BOOL_KEY key :
         {VX_CFG_ACCEPT_ANY_HOSTNAME, VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, VX_CFG_TCPIP_DISABLE_NAGLE}) {
      set_bool(key, true);
    }
    VX_Set_Log_Destination(VX_CFG_INFO_MESSAGE, VX_LOG_OFF);
    ASSERT_OK(VX_Register_Application(&app_, "US"));
    port_ = free_port();
  }

  // Makes a service list of (service, syntaxes, roles) rows.
  struct Listed {
    const char* service;
    std::vector<VX_TRANSFER_SYNTAX> syntaxes;
    uint8_t scu = VX_NO_ROLE;
    uint8_t scp = VX_NO_ROLE;
  };
  void make_list(const std::string& list, const std::vector<Listed>& rows, uint16_t window = 1) {
    std::vector<std::string> names;
    for (Listed row : rows) {
      names.push_back(list + std::to_string(names.size()));
      const char* name = names.back().c_str();
      row.syntaxes.push_back(0);
      ASSERT_OK(VX_NewSyntaxList(name, row.syntaxes.data()));
      ASSERT_OK(VX_NewServiceFromName(name, row.service, name, row.scu, row.scp));
    }
    std::vector<const char*> services;
    for (const std::string& name : names) services.push_back(name.c_str());
    services.push_back(nullptr);
    ASSERT_OK(VX_NewProposedServiceListAsync(list.c_str(), services.data(), window, window));
  }

  // --- As requester ---

  int32_t open(const char* list, int32_t port) {
    int32_t id = -1;
    EXPECT_OK(VX_Open_Association(app_, &id, "THEM", &port, "127.0.0.1", list));
    return id;
  }

  // --- As acceptor ---

  VX_STATUS wait(int32_t& id, int32_t timeout, const char* list) {
    return VX_Wait_For_Association_On_Port(list, timeout, -1, port_, &id);
  }
  // Both ends of an association.
  struct Pair {
    int32_t requester = -1;
    int32_t acceptor = -1;
  };
  int32_t wait_and_accept(const char* list, int32_t app) {
    int32_t id = -1;
    EXPECT_OK(VX_Wait_For_Association_On_Port(list, 20, app, port_, &id));
    EXPECT_OK(VX_Accept_Association(id));
    return id;
  }
  int32_t open_when_ready(const char* list, int32_t app) {
    int32_t id = -1;
    for (int tries = 0; tries < 100; ++tries) {
      if (VX_Open_Association(app, &id, "THEM", &port_, "127.0.0.1", list) == VX_NORMAL_COMPLETION) return id;
      pause(20);
    }
    ADD_FAILURE() << "no association";
    return id;
  }
  Pair connect(const char* list, int32_t requester = -1) {
    Pair pair;
    std::thread acceptor([&] { pair.acceptor = wait_and_accept(list, app_); });
    pair.requester = open_when_ready(list, requester >= 0 ? requester : app_);
    acceptor.join();
    return pair;
  }
  void end(Pair& pair) {
    std::thread closer([&] { EXPECT_OK(VX_Close_Association(&pair.requester)); });
    EXPECT_EQ(read(pair.acceptor).status, VX_ASSOCIATION_CLOSED);
    closer.join();
  }

  // --- Messages ---

  using Texts = std::vector<std::pair<uint32_t, const char*>>;
  static void set_texts(int32_t id, const Texts& texts) {
    for (const auto& [tag, text] : texts) {
      VX_Add_Standard_Attribute(id, tag);
      EXPECT_OK(VX_Set_Value_From_String(id, tag, text)) << std::hex << tag;
    }
  }
  static Message new_message(const char* service, uint16_t command, const Texts& texts = {}) {
    Message message;
    EXPECT_OK(VX_Open_Message(message.id(), service, command));
    set_texts(message, texts);
    return message;
  }
  // The same without the attributes of its template.
  static Message bare(const char* service, uint16_t command, const Texts& texts = {}) {
    Message message;
    EXPECT_OK(VX_Open_Empty_Message(message.id()));
    EXPECT_OK(VX_Set_Service_Command(message, service, command)) << service << " " << command;
    set_texts(message, texts);
    return message;
  }
  static void set_pixels(int32_t id, const Bytes& pixels) {
    VX_Add_Standard_Attribute(id, 0x7FE00010);
    EXPECT_OK(VX_Set_Value_From_Buffer(id, 0x7FE00010, pixels.data(), static_cast<uint32_t>(pixels.size())));
  }
  static VX_STATUS respond(int32_t association, const char* service, uint16_t command, uint32_t status = 0) {
    return VX_Send_Response_Message(association, status, bare(service, command));
  }
  struct Read {
    VX_STATUS status = VX_SYSTEM_ERROR;
    Message id;
    std::string service;
    uint16_t command = 0;
  };
  static Read read(int32_t association, int32_t timeout = 10, uint32_t stop = 0xFFFFFFFF) {
    Read out;
    const char* service = nullptr;
    out.status =
        stop == 0xFFFFFFFF
            ? VX_Read_Message(association, timeout, out.id.id(), &service, &out.command)
            : VX_Read_Message_To_Tag(association, timeout, stop, out.id.id(), &service, &out.command);
    if (service != nullptr) out.service = service;
    return out;
  }
  static std::string text(int32_t id, uint32_t tag) {
    char buffer[256] = "";
    return VX_Get_Value_To_String(id, tag, sizeof buffer, buffer) == VX_NORMAL_COMPLETION ? buffer : "";
  }
  static uint32_t number(int32_t id, uint32_t tag) {
    uint32_t value = 0xFFFFFFFF;
    VX_Get_Value_To_UInt(id, tag, &value);
    return value;
  }
  // The data set as a stream.
  static Bytes data_set(int32_t id, VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN) {
    Bytes bytes;
    const auto take = [](int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) -> VX_STATUS {
      static_cast<Bytes*>(user)->append(static_cast<const char*>(data), size);
      return VX_NORMAL_COMPLETION;
    };
    EXPECT_OK(VX_Message_To_Stream(id, 0x00010000, 0xFFFFFFFF, syntax, &bytes, take));
    return bytes;
  }

  int32_t app_ = -1;
  int32_t port_ = 0;
};

}  // namespace vx::test
