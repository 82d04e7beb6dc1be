// The accepting side: who is let in, with which contexts and roles, and what the library answers by itself.
#include "association/acceptor.h"

#include <atomic>

#include "net/peers.h"
#include "net/wire.h"

namespace vx::test {
namespace {

using wire::Clock;
using wire::kCt;
using wire::kExplicit;
using wire::kImplicit;
using wire::kVerification;
using wire::seconds_since;

constexpr char kMr[] = "1.2.840.10008.5.1.4.1.1.4";

std::string request_for(const std::string& items, const std::string& user = {},
                        const std::string& called = "US") {
  return wire::associate(1, wire::item(0x10, wire::kContextName) + items + wire::user_information(user),
                         called);
}
std::string identity(int type, int response) {
  const std::string primary = "user";
  return wire::item(0x58, std::string{static_cast<char>(type), static_cast<char>(response)} + wire::be16(4) +
                              primary + wire::be16(0));
}
std::string role(std::string_view uid, int scu, int scp) {
  return wire::item(
      0x54, wire::be16(uid.size()) + std::string(uid) + static_cast<char>(scu) + static_cast<char>(scp));
}

class Acceptor : public NetTest {
 protected:
  void SetUp() override {
    NetTest::SetUp();
    set_bool(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, false);
    set_int(VX_CFG_ARTIM_TIMEOUT, 2);
    make_list("Images", {{"STANDARD_CT", {IMPLICIT_LITTLE_ENDIAN, EXPLICIT_LITTLE_ENDIAN}},
                         {"STANDARD_MR", {EXPLICIT_LITTLE_ENDIAN}}});
    make_list("Both",
              {{"STANDARD_CT", {IMPLICIT_LITTLE_ENDIAN}}, {"STANDARD_ECHO", {IMPLICIT_LITTLE_ENDIAN}}});
  }
  VX_STATUS wait(int32_t& id, int32_t timeout = 10, const char* list = "Images") {
    return VX_Wait_For_Association_On_Port(list, timeout, -1, port_, &id);
  }
  // Runs a peer against the port while the test waits.
  std::thread peer(const std::function<void(RawPeer&)>& script) {
    return std::thread([this, script] {
      RawPeer raw = RawPeer::connect(port_);
      script(raw);
    });
  }
  // What the peer gets for a request that the acceptor answers by itself.
  Pdu answer_to(const std::string& bytes, VX_STATUS expected, const char* list = "Images") {
    Pdu answer;
    std::thread other = peer([&](RawPeer& raw) {
      raw.send(bytes);
      raw.receive(answer);
    });
    int32_t id = -1;
    const VX_STATUS status = wait(id, 1, list);
    EXPECT_EQ(status, expected);
    if (status == VX_NORMAL_COMPLETION) {
      EXPECT_EQ(VX_Accept_Association(id), VX_NORMAL_COMPLETION);
      VX_Abort_Association(&id);
    }
    other.join();
    return answer;
  }
  // Results by context ID of an A-ASSOCIATE-AC, and its parameters.
  std::string results(const Pdu& answer) {
    EXPECT_EQ(answer.type, kAssociateAc);
    std::string text;
    for (std::size_t at = 68; at + 4 <= answer.body.size();) {
      const auto byte = [&](std::size_t offset) { return static_cast<uint8_t>(answer.body[at + offset]); };
      if (byte(0) == 0x21) {
        text += std::to_string(byte(4)) + ":" + std::to_string(byte(6));
        const std::size_t length = byte(10) * 256U + byte(11);
        if (byte(6) == 0) text += "=" + answer.body.substr(at + 12, length);
        text += ' ';
      }
      at += 4U + byte(2) * 256U + byte(3);
    }
    return text;
  }
};

TEST(Roles, AreNegotiatedByTheTable) {
  constexpr uint8_t kNo = 0xFF;
  struct Row {
    Roles requester, entry, answer;
    bool accepted;
  };
  constexpr Row kRows[] = {
      {{1, 0}, {1, 0}, {0, 0}, false},
      {{1, 0}, {0, 1}, {1, 0}, true},
      {{1, 0}, {1, 1}, {1, 0}, true},
      {{1, 0}, {kNo, kNo}, {kNo, kNo}, true},
      {{0, 1}, {1, 0}, {0, 1}, true},
      {{0, 1}, {0, 1}, {0, 0}, false},
      {{0, 1}, {1, 1}, {0, 1}, true},
      {{0, 1}, {kNo, kNo}, {0, 0}, false},
      {{1, 1}, {1, 0}, {0, 1}, true},
      {{1, 1}, {0, 1}, {1, 0}, true},
      {{1, 1}, {1, 1}, {1, 1}, true},
      {{1, 1}, {kNo, kNo}, {kNo, kNo}, true},
      {{0, 0}, {1, 1}, {0, 0}, false},
      {{kNo, kNo}, {1, 0}, {kNo, kNo}, false},
      {{kNo, kNo}, {0, 1}, {kNo, kNo}, true},
      {{kNo, kNo}, {1, 1}, {kNo, kNo}, true},
      {{kNo, kNo}, {kNo, kNo}, {kNo, kNo}, true},
      {{1, kNo}, {1, 1}, {0, 0}, false},
  };
  for (const Row& row : kRows) {
    Roles answer{9, 9};
    EXPECT_EQ(negotiate_roles(row.requester, row.entry, answer), row.accepted);
    EXPECT_EQ(answer.scu, row.answer.scu) << int{row.requester.scu} << int{row.requester.scp};
    EXPECT_EQ(answer.scp, row.answer.scp);
  }
  EXPECT_EQ(negotiate_window(0, 5), 5);
  EXPECT_EQ(negotiate_window(5, 0), 5);
  EXPECT_EQ(negotiate_window(0, 0), 0);
  EXPECT_EQ(negotiate_window(5, 3), 3);
  EXPECT_EQ(negotiate_window(5, kNoWindow), 1);
  EXPECT_EQ(negotiate_window(kNoWindow, 5), kNoWindow);
}

TEST_F(Acceptor, ChecksItsArguments) {
  int32_t id = 5;
  int32_t app = 5;
  EXPECT_EQ(VX_Wait_For_Association(nullptr, 0, &app, &id), VX_NULL_POINTER_PARM);
  EXPECT_EQ(id, -1);
  EXPECT_EQ(app, -1);
  EXPECT_EQ(VX_Wait_For_Association("Images", 0, nullptr, &id), VX_NULL_POINTER_PARM);
  EXPECT_EQ(wait(id, 0, ""), VX_INVALID_SERVICE_LIST_NAME);
  EXPECT_EQ(wait(id, 0, "Nobody"), VX_INVALID_SERVICE_LIST_NAME);
  EXPECT_TRUE(has_log("Service List \"Nobody\" is not configured"));
  EXPECT_EQ(VX_Wait_For_Association_On_Port("Images", 0, -1, 0, &id), VX_INVALID_PORT_NUMBER);
  EXPECT_EQ(VX_Wait_For_Association_On_Port("Images", 0, 77, port_, &id), VX_INVALID_APPLICATION_ID);
  SS_Functions half{};
  EXPECT_EQ(VX_Wait_For_Secure_Association("Images", 0, &app, &id, &half, nullptr), VX_NULL_VALUE);
  EXPECT_EQ(VX_Wait_For_Secure_Association("Images", 0, &app, &id, nullptr, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(wait(id, 0), VX_TIMEOUT);
  EXPECT_EQ(VX_Accept_Association(4711), VX_INVALID_ASSOCIATION_ID);
  EXPECT_EQ(VX_Reject_Association(4711, 1), VX_INVALID_ASSOCIATION_ID);
  int32_t socket = -1;
  EXPECT_EQ(VX_Get_Listen_Socket_For_Port(port_, &socket), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Close_Listen_Port(port_), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Get_Listen_Socket_For_Port(port_, &socket), VX_INVALID_PORT_NUMBER);
  VX_Release_Application(&app_);
  EXPECT_EQ(wait(id, 0), VX_NO_APPLICATIONS_REGISTERED);
}

TEST_F(Acceptor, ChoosesAmongTheProposedContexts) {
  // Its own order decides about the transfer syntax; verification is always taken.
  EXPECT_EQ(
      results(answer_to(
          request_for(wire::context(1, kCt, {kExplicit, kImplicit}) + wire::context(3, kMr, {kImplicit}) +
                      wire::context(5, "1.2.3", {kImplicit}) + wire::context(7, kVerification, {kExplicit}) +
                      wire::context(9, kCt, {kExplicit})),
          VX_NORMAL_COMPLETION)),
      "1:0=1.2.840.10008.1.2 3:3 5:3 7:0=1.2.840.10008.1.2.1 9:0=1.2.840.10008.1.2.1 ");
  // A repeated class, when only one context of it is wanted, falls although the first was refused.
  set_bool(VX_CFG_ACCEPT_MULTIPLE_PRES_CONTEXTS, false);
  EXPECT_EQ(
      results(answer_to(request_for(wire::context(1, kCt, {"1.2.840.10008.1.2.2"}) +
                                    wire::context(3, kCt, {kImplicit}) + wire::context(5, kMr, {kExplicit})),
                        VX_NORMAL_COMPLETION)),
      "1:3 3:1 5:0=1.2.840.10008.1.2.1 ");
  // A class of its own, by its related general class or by its being storage.
  const std::string common = wire::item(0x57, wire::be16(5) + "1.2.3" + wire::be16(17) + "1.2.840.10008.4.2" +
                                                  wire::be16(27) + wire::be16(25) + kCt);
  const std::string own =
      request_for(wire::context(1, "1.2.3", {kExplicit}) + wire::context(3, kMr, {kExplicit}), common);
  EXPECT_EQ(results(answer_to(own, VX_NORMAL_COMPLETION)), "1:3 3:0=1.2.840.10008.1.2.1 ");
  set_bool(VX_CFG_ACCEPT_RELATED_GENERAL_SERVICES, true);
  // The association needs a service for what it accepted.
  const Pdu related = answer_to(own, VX_NORMAL_COMPLETION);
  EXPECT_EQ(results(related), "1:0=1.2.840.10008.1.2.1 3:0=1.2.840.10008.1.2.1 ");
}

TEST_F(Acceptor, RolesGoBackInTheAnswer) {
  make_list("Provider", {{"STANDARD_CT", {IMPLICIT_LITTLE_ENDIAN}, 1, 1}});
  const Pdu answer = answer_to(request_for(wire::context(1, kCt, {kImplicit}), role(kCt, 0, 1)),
                               VX_NORMAL_COMPLETION, "Provider");
  EXPECT_NE(answer.body.find(role(kCt, 0, 1)), std::string::npos);
  EXPECT_EQ(results(answer), "1:0=1.2.840.10008.1.2 ");
}

TEST_F(Acceptor, RejectsByItselfAndWaitsOn) {
  const auto rejected = [this](const std::string& bytes) {
    const Pdu answer = answer_to(bytes, VX_TIMEOUT);
    EXPECT_EQ(answer.type, kAssociateRj);
    return answer.body;
  };
  const std::string context = wire::context(1, kCt, {kImplicit});
  EXPECT_EQ(rejected(request_for(context, {}, "OTHER")), std::string("\0\1\1\7", 4));
  EXPECT_TRUE(has_log("Unacceptable Called_application_title: OTHER"));
  EXPECT_EQ(rejected(request_for(wire::context(1, "1.2.3", {kImplicit}))), std::string("\0\1\1\1", 4));
  EXPECT_TRUE(has_log("No acceptable presentation contexts"));
  EXPECT_EQ(rejected(wire::associate(1, wire::item(0x10, "1.2") + context, "US")),
            std::string("\0\1\1\2", 4));
  std::string version = request_for(context);
  version[7] = 2;
  EXPECT_EQ(rejected(version), std::string("\0\1\2\2", 4));
  EXPECT_TRUE(has_log("Unacceptable Protocol Version: 2"));
  set_text(VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES, "SOME,OTHER");
  EXPECT_EQ(answer_to(request_for(context, {}, "OTHER"), VX_NORMAL_COMPLETION).type, kAssociateAc);
  // The time that a rejected peer took is gone.
  std::thread late = peer([&](RawPeer& raw) {
    ::usleep(900'000);
    raw.send(request_for(context, {}, "WRONG"));
    Pdu answer;
    raw.receive(answer);
  });
  int32_t id = -1;
  const auto begun = Clock::now();
  EXPECT_EQ(wait(id, 2), VX_TIMEOUT);
  EXPECT_LT(seconds_since(begun), 3.2);
  late.join();
}

TEST_F(Acceptor, TheApplicationAcceptsAfterItHasLooked) {
  const uint8_t own[] = {7, 7};
  const auto run = [&](const char* negotiated) {
    Pdu answer;
    std::thread other = peer([&](RawPeer& raw) {
      raw.send(request_for(wire::context(1, kCt, {kImplicit}),
                           wire::item(0x53, wire::be16(4) + wire::be16(2)) +
                               wire::item(0x56, wire::be16(25) + kCt + "theirs")));
      raw.receive(answer);
      raw.send(kReleaseRequest);
      Pdu last;
      raw.receive(last);
      EXPECT_EQ(last.type, kReleaseRp);
    });
    int32_t id = -1;
    int32_t app = -1;
    set_int(VX_CFG_TCPIP_LISTEN_PORT, port_);
    EXPECT_EQ(VX_Wait_For_Association("Images", 10, &app, &id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(app, app_);
    AssocInfo info;
    EXPECT_EQ(VX_Get_Association_Info(id, &info), VX_NORMAL_COMPLETION);
    EXPECT_STREQ(info.RemoteApplicationTitle, "CALLING");
    EXPECT_STREQ(info.RemoteImplementationClassUID, "1.2.3.4");
    EXPECT_EQ(info.RemoteMaximumPDUSize, 16384U);
    EXPECT_EQ(info.MaxOperationsInvoked, 1);
    int32_t message = new_message("STANDARD_CT", C_STORE_RSP);
    EXPECT_EQ(VX_Send_Response_Message(id, 0, message), VX_STATE_VIOLATION);
    VX_Free_Message(&message);
    EXPECT_EQ(VX_Accept_Association(id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Accept_Association(id), VX_NO_REQUEST_PENDING);
    EXPECT_EQ(VX_Reject_Association(id, 1), VX_NO_REQUEST_PENDING);
    EXPECT_EQ(read(id).status, VX_ASSOCIATION_CLOSED);
    other.join();
    const std::string extended = wire::item(0x56, wire::be16(25) + kCt + negotiated);
    EXPECT_EQ(answer.body.find(extended) != std::string::npos, *negotiated != '\0');
    EXPECT_EQ(answer.body.find("theirs"), std::string::npos);
  };
  run("");
  ASSERT_EQ(VX_Set_Negotiation_Info(app_, "STANDARD_CT", own, 2), VX_NORMAL_COMPLETION);
  run("\7\7");
}

TEST_F(Acceptor, RejectionsOfTheApplication) {
  struct Case {
    int32_t reason;
    const char* bytes;  // null: only the connection closes
  };
  for (const Case& c : {Case{1, "\0\2\1\1"}, Case{2, "\0\1\1\3"}, Case{3, "\0\2\3\1"}, Case{4, "\0\2\3\2"},
                        Case{5, "\0\1\1\7"}, Case{6, "\0\1\1\2"}, Case{13, "\0\1\3\3"}, Case{14, nullptr},
                        Case{99, "\0\1\1\1"}, Case{-1, "\0\1\1\1"}}) {
    Pdu answer;
    bool answered = false;
    std::thread other = peer([&](RawPeer& raw) {
      raw.send(request_for(wire::context(1, kCt, {kImplicit})));
      answered = raw.receive(answer);
    });
    int32_t id = -1;
    ASSERT_EQ(wait(id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Reject_Association(id, c.reason), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Accept_Association(id), VX_INVALID_ASSOCIATION_ID);
    other.join();
    EXPECT_EQ(answered, c.bytes != nullptr) << c.reason;
    if (answered) {
      EXPECT_EQ(answer.body, std::string(c.bytes, 4)) << c.reason;
    }
  }
  EXPECT_TRUE(has_log("Illegal reject reason"));
}

TEST_F(Acceptor, AnswersAUserIdentity) {
  const auto accept_with = [this](const std::string& user, const char* response, VX_STATUS expected) {
    Pdu answer;
    std::thread other = peer([&](RawPeer& raw) {
      raw.send(request_for(wire::context(1, kCt, {kImplicit}), user));
      raw.receive(answer);
    });
    int32_t id = -1;
    EXPECT_EQ(wait(id), VX_NORMAL_COMPLETION);
    const auto length = static_cast<uint16_t>(response != nullptr ? std::strlen(response) : 0);
    EXPECT_EQ(VX_Accept_Association_With_Identity(id, response, length), expected);
    VX_Abort_Association(&id);
    other.join();
    return answer.body;
  };
  EXPECT_NE(accept_with(identity(3, 1), "ticket", VX_NORMAL_COMPLETION)
                .find(wire::item(0x59, wire::be16(6) + "ticket")),
            std::string::npos);
  EXPECT_NE(accept_with(identity(5, 1), "token!", VX_NORMAL_COMPLETION)
                .find(wire::item(0x59, wire::be16(6) + "token!")),
            std::string::npos);
  EXPECT_NE(accept_with(identity(1, 1), nullptr, VX_NORMAL_COMPLETION).find(wire::item(0x59, wire::be16(0))),
            std::string::npos);
  accept_with(identity(1, 1), "x", VX_STATE_VIOLATION);
  accept_with(identity(3, 0), "x", VX_STATE_VIOLATION);
  accept_with("", "x", VX_STATE_VIOLATION);
}

// --- Verification ---

Bytes echo_request(uint32_t id) {
  const Bytes uid(std::string(kVerification) + '\0');
  return pdu(4, pdv(1, false, true,
                    command_group({{0x00000002, uid},
                                   {0x00000100, little16(C_ECHO_RQ)},
                                   {0x00000110, little16(id)},
                                   {0x00000800, little16(0x0101)}})));
}

TEST_F(Acceptor, VerificationIsAnsweredByTheLibrary) {
  const std::string request = request_for(wire::context(1, kVerification, {kImplicit}));
  const std::string by_title = request_for(wire::context(1, kVerification, {kImplicit}), {}, "ANY_ECHO");
  for (const std::string& bytes : {request, by_title}) {
    std::vector<Bytes> answers;
    std::thread other = peer([&](RawPeer& raw) {
      raw.send(bytes);
      Pdu answer;
      raw.receive(answer);
      EXPECT_EQ(answer.type, kAssociateAc);
      for (uint32_t id = 5; id < 8; ++id) {
        raw.send(echo_request(id));
        if (!raw.receive(answer)) break;
        answers.push_back(answer.body);
      }
      raw.send(kReleaseRequest);
      EXPECT_TRUE(raw.receive(answer));
      EXPECT_EQ(answer.type, kReleaseRp);
    });
    int32_t id = -1;
    EXPECT_EQ(wait(id, 2), VX_TIMEOUT);
    other.join();
    ASSERT_EQ(answers.size(), 3U);
    for (uint32_t i = 0; i < 3; ++i) {
      EXPECT_NE(answers[i].find(element(0x00000120, little16(5 + i))), std::string::npos);
      EXPECT_NE(answers[i].find(element(0x00000100, little16(C_ECHO_RSP))), std::string::npos);
    }
  }
  // The title is not the application's, and nobody answers by that name.
  set_bool(VX_CFG_AUTO_ECHO_SUPPORT, false);
  const Pdu refused = answer_to(request, VX_TIMEOUT);
  EXPECT_EQ(refused.type, kAssociateRj);
  EXPECT_EQ(refused.body, std::string("\0\1\1\1", 4));
  // A list with the service leaves it to the application.
  EXPECT_EQ(answer_to(request, VX_NORMAL_COMPLETION, "Both").type, kAssociateAc);
}

// --- Connections in other hands ---

TEST_F(Acceptor, ASocketIsTakenAndProcessedElsewhere) {
  const std::string request = request_for(wire::context(1, kCt, {kImplicit}));
  const auto process = [&](const std::string& bytes, int32_t& id) {
    std::thread other = peer([bytes](RawPeer& raw) {
      raw.send(bytes);
      Pdu answer;
      raw.receive(answer);
    });
    int32_t socket = -1;
    EXPECT_EQ(VX_Wait_For_Connection_On_Port(10, port_, &socket), VX_NORMAL_COMPLETION);
    EXPECT_GT(socket, 0);
    int32_t app = -1;
    const VX_STATUS status = VX_Process_Association_Request(socket, "Images", &app, &id);
    if (status == VX_NORMAL_COMPLETION) {
      EXPECT_EQ(app, app_);
      VX_Accept_Association(id);
      VX_Abort_Association(&id);
    }
    other.join();
    return status;
  };
  int32_t id = -1;
  EXPECT_EQ(process(request, id), VX_NORMAL_COMPLETION);
  EXPECT_EQ(process(request_for(wire::context(1, "1.2.3", {kImplicit})), id), VX_ASSOCIATION_REJECTED);
  EXPECT_EQ(process(request.substr(0, 50), id), VX_NEGOTIATION_ABORTED);
  EXPECT_EQ(process("GET / HTTP/1.0\r\n\r\n", id), VX_NEGOTIATION_ABORTED);
  EXPECT_EQ(process(wire::pdu(4, wire::pdv(1, 3, "x")), id), VX_NEGOTIATION_ABORTED);
  EXPECT_EQ(id, -1);
  int32_t socket = -1;
  EXPECT_EQ(VX_Wait_For_Connection_On_Port(0, port_, &socket), VX_TIMEOUT);
  EXPECT_EQ(VX_Wait_For_Connection_On_Port(0, 0, &socket), VX_INVALID_PORT_NUMBER);
}

TEST_F(Acceptor, ASilentConnectionIsDroppedWithoutAWord) {
  bool answered = true;
  std::thread other = peer([&](RawPeer& raw) {
    Pdu answer;
    answered = raw.receive(answer);
  });
  int32_t id = -1;
  const auto begun = Clock::now();
  EXPECT_EQ(wait(id, 10), VX_NEGOTIATION_ABORTED);
  EXPECT_NEAR(seconds_since(begun), 2, 0.9);
  EXPECT_TRUE(has_log("ARTIM timeout before receiving Associate-RQ, association aborted"));
  other.join();
  EXPECT_FALSE(answered);
}

TEST_F(Acceptor, SixteenAtOnceEachInItsThread) {
  set_int(VX_CFG_MAX_PENDING_CONNECTIONS, 64);
  constexpr int kPeers = 16;
  constexpr int kMessages = 20;
  std::atomic<int> received{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kPeers; ++i) {
    threads.emplace_back([&] {
      int32_t id = -1;
      if (wait(id, 20) != VX_NORMAL_COMPLETION || VX_Accept_Association(id) != VX_NORMAL_COMPLETION) return;
      for (Read got = read(id); got.status == VX_NORMAL_COMPLETION; got = read(id)) {
        ++received;
        VX_Free_Message(&got.id);
        int32_t answer = new_message("STANDARD_CT", C_STORE_RSP);
        EXPECT_EQ(VX_Send_Response_Message(id, 0, answer), VX_NORMAL_COMPLETION);
        VX_Free_Message(&answer);
      }
    });
  }
  for (int i = 0; i < kPeers; ++i) {
    threads.emplace_back([&] {
      ::usleep(100'000);
      const int32_t port = port_;
      int32_t id = -1;
      ASSERT_EQ(VX_Open_Association(app_, &id, "US", &port, "127.0.0.1", "Images"), VX_NORMAL_COMPLETION);
      for (int n = 0; n < kMessages; ++n) {
        int32_t message =
            new_message("STANDARD_CT", C_STORE_RQ, {{0x00080018, "1.2.3"}, {0x00001000, "1.2.3"}});
        EXPECT_EQ(VX_Send_Request_Message(id, message), VX_NORMAL_COMPLETION);
        VX_Free_Message(&message);
        Read answer = read(id);
        EXPECT_EQ(answer.status, VX_NORMAL_COMPLETION);
        VX_Free_Message(&answer.id);
      }
      EXPECT_EQ(VX_Close_Association(&id), VX_NORMAL_COMPLETION);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(received, kPeers * kMessages);
}

}  // namespace
}  // namespace vx::test
