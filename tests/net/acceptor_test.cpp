// The accepting side: who is let in, with which contexts and roles, and what the library answers by itself.
#include "association/acceptor.h"

#include <sstream>

#include "net/peers.h"

namespace vx::test {
namespace {

const Bytes kCtRequest = request_for(context(1, kCt, {kImplicit}));

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
  using NetTest::wait;
  VX_STATUS wait(int32_t& id, int32_t timeout = 10) { return wait(id, timeout, "Images"); }
  // Runs a peer against the port while the test waits.
  std::thread peer(const std::function<void(RawPeer&)>& script) {
    return std::thread([this, script] {
      RawPeer raw = RawPeer::connect(port_);
      script(raw);
    });
  }
  // One that asks, and takes the answer down.
  std::thread asking(const Bytes& bytes, Pdu& answer) {
    return peer([bytes, &answer](RawPeer& raw) {
      raw.send(bytes);
      raw.receive(answer);
    });
  }
  // What the peer gets for a request that the acceptor answers by itself.
  Pdu answer_to(const Bytes& bytes, VX_STATUS expected, const char* list = "Images") {
    Pdu answer;
    std::thread other = asking(bytes, answer);
    int32_t id = -1;
    const VX_STATUS status = wait(id, 1, list);
    EXPECT_EQ(status, expected);
    if (status == VX_NORMAL_COMPLETION) {
      EXPECT_OK(VX_Accept_Association(id));
      VX_Abort_Association(&id);
    }
    other.join();
    return answer;
  }
  // Results by context ID of an A-ASSOCIATE-AC, with the syntaxes of those accepted.
  std::string results(const Bytes& bytes, const char* list = "Images") {
    const Pdu answer = answer_to(bytes, VX_NORMAL_COMPLETION, list);
    EXPECT_EQ(answer.type, kAssociateAc);
    std::string text;
    for (std::size_t at = 68; at + 4 <= answer.body.size();) {
      const auto byte = [&](std::size_t offset) { return static_cast<uint8_t>(answer.body[at + offset]); };
      if (byte(0) == 0x21) {
        text += std::to_string(byte(4)) + ":" + std::to_string(byte(6));
        if (byte(6) == 0) text += "=" + answer.body.substr(at + 12, byte(10) * 256U + byte(11));
        text += ' ';
      }
      at += 4U + byte(2) * 256U + byte(3);
    }
    return text;
  }
};

// What the requester says of itself, what the entry of the list offers, and the answer, each as SCU and SCP
// (- is no role item); a refused context ends with x.
TEST(Roles, AreNegotiatedByTheTable) {
  const auto roles = [](const std::string& text) {
    const auto digit = [](char c) { return static_cast<uint8_t>(c == '-' ? 0xFF : c - '0'); };
    return Roles{digit(text[0]), digit(text[1])};
  };
  std::istringstream rows(
      "10 10 00x 10 01 10 10 11 10 10 -- --  01 10 01 01 01 00x 01 11 01 01 -- 00x  11 10 01 11 01 10 11 11 "
      "11 "
      "11 -- --  00 11 00x -- 10 --x -- 01 -- -- 11 -- -- -- --  1- 11 00x");
  for (std::string requester, entry, expected; rows >> requester >> entry >> expected;) {
    Roles answer{9, 9};
    EXPECT_EQ(negotiate_roles(roles(requester), roles(entry), answer), !expected.ends_with('x')) << requester;
    EXPECT_EQ(answer.scu, roles(expected).scu) << requester << entry;
    EXPECT_EQ(answer.scp, roles(expected).scp) << requester << entry;
  }
  struct {
    uint16_t peer, own, answer;
  } const windows[] = {{0, 5, 5}, {5, 0, 5},         {0, 0, 0},
                       {5, 3, 3}, {5, kNoWindow, 1}, {kNoWindow, 5, kNoWindow}};
  for (const auto& row : windows) EXPECT_EQ(negotiate_window(row.peer, row.own), row.answer) << row.peer;
}

TEST_F(Acceptor, ChecksItsArguments) {
  int32_t id = 5;
  int32_t app = 5;
  EXPECT_EQ(VX_Wait_For_Association(nullptr, 0, &app, &id), VX_NULL_POINTER_PARM);
  EXPECT_EQ(joined(id, app), "-1,-1,");
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
  EXPECT_OK(VX_Get_Listen_Socket_For_Port(port_, &socket));
  EXPECT_OK(VX_Close_Listen_Port(port_));
  EXPECT_EQ(VX_Get_Listen_Socket_For_Port(port_, &socket), VX_INVALID_PORT_NUMBER);
  VX_Release_Application(&app_);
  EXPECT_EQ(wait(id, 0), VX_NO_APPLICATIONS_REGISTERED);
}

TEST_F(Acceptor, ChoosesAmongTheProposedContexts) {
  // Its own order decides about the transfer syntax; verification is always taken.
  EXPECT_EQ(results(request_for(context(1, kCt, {kExplicit, kImplicit}) + context(3, kMr, {kImplicit}) +
                                context(5, "1.2.3", {kImplicit}) + context(7, kVerification, {kExplicit}) +
                                context(9, kCt, {kExplicit}))),
            "1:0=1.2.840.10008.1.2 3:3 5:3 7:0=1.2.840.10008.1.2.1 9:0=1.2.840.10008.1.2.1 ");
  // A repeated class, when only one context of it is wanted, falls although the first was refused.
  set_bool(VX_CFG_ACCEPT_MULTIPLE_PRES_CONTEXTS, false);
  EXPECT_EQ(results(request_for(context(1, kCt, {"1.2.840.10008.1.2.2"}) + context(3, kCt, {kImplicit}) +
                                context(5, kMr, {kExplicit}))),
            "1:3 3:1 5:0=1.2.840.10008.1.2.1 ");
  // A class of its own, by its related general class: the association needs a service for what it accepted.
  const Bytes own =
      request_for(context(1, "1.2.3", {kExplicit}) + context(3, kMr, {kExplicit}),
                  item(0x57, counted("1.2.3") + counted("1.2.840.10008.4.2") + counted(counted(kCt))));
  EXPECT_EQ(results(own), "1:3 3:0=1.2.840.10008.1.2.1 ");
  set_bool(VX_CFG_ACCEPT_RELATED_GENERAL_SERVICES, true);
  EXPECT_EQ(results(own), "1:0=1.2.840.10008.1.2.1 3:0=1.2.840.10008.1.2.1 ");
  // Roles go back in the answer.
  make_list("Provider", {{"STANDARD_CT", {IMPLICIT_LITTLE_ENDIAN}, 1, 1}});
  const Pdu answer =
      answer_to(request_for(context(1, kCt, {kImplicit}), role(kCt, 0, 1)), VX_NORMAL_COMPLETION, "Provider");
  EXPECT_NE(answer.body.find(role(kCt, 0, 1)), Bytes::npos);
}

TEST_F(Acceptor, RejectsByItselfAndWaitsOn) {
  const Bytes context_of_ct = context(1, kCt, {kImplicit});
  Bytes version = kCtRequest;
  version[7] = 2;
  const struct {
    Bytes request;
    Bytes answer;
    const char* line;
  } rows[] = {{request_for(context_of_ct, {}, "OTHER"), bytes_of(0, 1, 1, 7),
               "Unacceptable Called_application_title: OTHER"},
              {request_for(context(1, "1.2.3", {kImplicit})), bytes_of(0, 1, 1, 1),
               "No acceptable presentation contexts"},
              {associate(1, item(0x10, "1.2") + context_of_ct, "US"), bytes_of(0, 1, 1, 2),
               "Unacceptable Application_context_name: 1.2"},
              {version, bytes_of(0, 1, 2, 2), "Unacceptable Protocol Version: 2"}};
  std::vector<std::thread> peers;
  Pdu answers[std::size(rows)];
  // The time that rejected peers took is gone.
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    peers.push_back(peer([&, i](RawPeer& raw) {
      pause(static_cast<int>(400 * i));
      raw.send(rows[i].request);
      raw.receive(answers[i]);
    }));
  }
  int32_t id = -1;
  const auto begun = Clock::now();
  EXPECT_EQ(wait(id, 3), VX_TIMEOUT);
  EXPECT_LT(seconds_since(begun), 3.8);
  for (std::thread& one : peers) one.join();
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    EXPECT_EQ(answers[i].type, kAssociateRj) << rows[i].line;
    EXPECT_EQ(answers[i].body, rows[i].answer) << rows[i].line;
    EXPECT_TRUE(has_log(rows[i].line)) << rows[i].line;
  }
  set_text(VX_CFG_ACCEPT_LIST_OF_APPLICATION_TITLES, "SOME,OTHER");
  EXPECT_EQ(answer_to(rows[0].request, VX_NORMAL_COMPLETION).type, kAssociateAc);
}

TEST_F(Acceptor, TheApplicationAcceptsAfterItHasLooked) {
  const auto run = [&](const char* negotiated) {
    Pdu answer;
    std::thread other = peer([&](RawPeer& raw) {
      raw.send(request_for(context(1, kCt, {kImplicit}) + context(3, kVerification, {kImplicit}),
                           item(0x53, be16(4) + be16(2)) + item(0x56, counted(kCt) + "theirs")));
      raw.receive(answer);
      // A list without verification leaves that to the library.
      raw.send(data_pdu(3, kCommand | kLast, echo_command(21)));
      const Bytes echo = raw.receive().body;
      for (const Bytes& part : {element(0x00000100, le16(C_ECHO_RSP)), element(0x00000120, le16(21)),
                                element(0x00000900, le16(0))}) {
        EXPECT_NE(echo.find(part), Bytes::npos);
      }
      raw.send(kReleaseRequest);
      EXPECT_EQ(raw.receive().type, kReleaseRp);
    });
    int32_t id = -1;
    int32_t app = -1;
    set_int(VX_CFG_TCPIP_LISTEN_PORT, port_);
    EXPECT_OK(VX_Wait_For_Association("Images", 10, &app, &id));
    EXPECT_EQ(app, app_);
    AssocInfo info;
    EXPECT_OK(VX_Get_Association_Info(id, &info));
    EXPECT_EQ(joined(info.RemoteApplicationTitle, info.RemoteImplementationClassUID,
                     info.RemoteMaximumPDUSize, info.MaxOperationsInvoked),
              "CALLING,1.2.3.4,16384,1,");
    EXPECT_EQ(respond(id, "STANDARD_CT", C_STORE_RSP), VX_STATE_VIOLATION);
    EXPECT_OK(VX_Accept_Association(id));
    EXPECT_EQ(VX_Accept_Association(id), VX_NO_REQUEST_PENDING);
    EXPECT_EQ(VX_Reject_Association(id, 1), VX_NO_REQUEST_PENDING);
    EXPECT_EQ(read(id).status, VX_ASSOCIATION_CLOSED);
    other.join();
    const Bytes extended = item(0x56, counted(kCt) + negotiated);
    EXPECT_EQ(answer.body.find(extended) != Bytes::npos, *negotiated != '\0');
    EXPECT_EQ(answer.body.find("theirs"), Bytes::npos);
  };
  run("");
  ASSERT_OK(VX_Set_Negotiation_Info(app_, "STANDARD_CT", "\7\7", 2));
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
    std::thread other = asking(kCtRequest, answer);
    int32_t id = -1;
    ASSERT_OK(wait(id));
    EXPECT_OK(VX_Reject_Association(id, c.reason));
    EXPECT_EQ(VX_Accept_Association(id), VX_INVALID_ASSOCIATION_ID);
    other.join();
    EXPECT_EQ(answer.body, c.bytes != nullptr ? Bytes(c.bytes, 4) : "") << c.reason;
  }
  EXPECT_TRUE(has_log("Illegal reject reason"));
}

TEST_F(Acceptor, AnswersAUserIdentity) {
  const struct {
    Bytes user;
    const char* response;
    VX_STATUS expected;
    Bytes answered;
  } rows[] = {{identity(3, 1, "user"), "ticket", VX_NORMAL_COMPLETION, item(0x59, counted("ticket"))},
              {identity(5, 1, "user"), "token!", VX_NORMAL_COMPLETION, item(0x59, counted("token!"))},
              {identity(1, 1, "user"), nullptr, VX_NORMAL_COMPLETION, item(0x59, counted(""))},
              {identity(1, 1, "user"), "x", VX_STATE_VIOLATION, ""},
              {identity(3, 0, "user"), "x", VX_STATE_VIOLATION, ""},
              {"", "x", VX_STATE_VIOLATION, ""}};
  for (const auto& row : rows) {
    Pdu answer;
    std::thread other = asking(request_for(context(1, kCt, {kImplicit}), row.user), answer);
    int32_t id = -1;
    EXPECT_OK(wait(id));
    const auto length = static_cast<uint16_t>(row.response != nullptr ? std::strlen(row.response) : 0);
    EXPECT_EQ(VX_Accept_Association_With_Identity(id, row.response, length), row.expected);
    VX_Abort_Association(&id);
    other.join();
    EXPECT_NE(answer.body.find(row.answered), Bytes::npos);
  }
}

// --- Verification ---

TEST_F(Acceptor, VerificationIsAnsweredByTheLibrary) {
  std::vector<Bytes> answers;
  const auto verify = [&](const Bytes& request) {
    const RawPeer raw = RawPeer::connect(port_);
    raw.send(request);
    EXPECT_EQ(raw.receive().type, kAssociateAc);
    for (uint32_t id = 5; id < 8; ++id) {
      raw.send(data_pdu(1, kCommand | kLast, echo_command(id)));
      answers.push_back(raw.receive().body);
    }
    raw.send(kReleaseRequest);
    EXPECT_EQ(raw.receive().type, kReleaseRp);
  };
  std::thread other([&] {  // both within one wait
    verify(simple_request());
    verify(request_for(context(1, kVerification, {kImplicit}), {}, "ANY_ECHO"));
  });
  int32_t id = -1;
  EXPECT_EQ(wait(id, 2), VX_TIMEOUT);
  other.join();
  ASSERT_EQ(answers.size(), 6U);
  for (uint32_t i = 0; i < 6; ++i) {
    EXPECT_NE(answers[i].find(element(0x00000120, le16(5 + i % 3))), Bytes::npos);
    EXPECT_NE(answers[i].find(element(0x00000100, le16(C_ECHO_RSP))), Bytes::npos);
  }
  // The title is not the application's, and nobody answers by that name.
  set_bool(VX_CFG_AUTO_ECHO_SUPPORT, false);
  const Pdu refused = answer_to(simple_request(), VX_TIMEOUT);
  EXPECT_EQ(refused.type, kAssociateRj);
  EXPECT_EQ(refused.body, bytes_of(0, 1, 1, 1));
  // A list with the service leaves it to the application.
  EXPECT_EQ(answer_to(simple_request(), VX_NORMAL_COMPLETION, "Both").type, kAssociateAc);
}

// --- Connections in other hands ---

TEST_F(Acceptor, ASocketIsTakenAndProcessedElsewhere) {
  const std::pair<Bytes, VX_STATUS> rows[] = {
      {kCtRequest, VX_NORMAL_COMPLETION},
      {request_for(context(1, "1.2.3", {kImplicit})), VX_ASSOCIATION_REJECTED},
      {kCtRequest.substr(0, 50), VX_NEGOTIATION_ABORTED},
      {"GET / HTTP/1.0\r\n\r\n", VX_NEGOTIATION_ABORTED},
      {data_pdu(1, kCommand | kLast, "x"), VX_NEGOTIATION_ABORTED}};
  int32_t socket = -1;
  for (const auto& [bytes, expected] : rows) {
    Pdu answer;
    std::thread other = asking(bytes, answer);
    EXPECT_OK(VX_Wait_For_Connection_On_Port(10, port_, &socket));
    EXPECT_GT(socket, 0);
    int32_t app = -1;
    int32_t id = 5;
    EXPECT_EQ(VX_Process_Association_Request(socket, "Images", &app, &id), expected);
    EXPECT_EQ(app, expected == VX_NORMAL_COMPLETION ? app_ : -1);
    EXPECT_EQ(id >= 0, expected == VX_NORMAL_COMPLETION);
    if (id >= 0) VX_Accept_Association(id);
    if (id >= 0) VX_Abort_Association(&id);
    other.join();
  }
  EXPECT_EQ(VX_Wait_For_Connection_On_Port(0, port_, &socket), VX_TIMEOUT);
  EXPECT_EQ(VX_Wait_For_Connection_On_Port(0, 0, &socket), VX_INVALID_PORT_NUMBER);
}

TEST_F(Acceptor, ASilentConnectionIsDroppedWithoutAWord) {
  set_int(VX_CFG_ARTIM_TIMEOUT, 1);
  Pdu answer;
  std::thread other = asking("", answer);
  int32_t id = -1;
  const auto begun = Clock::now();
  EXPECT_EQ(wait(id, 10), VX_NEGOTIATION_ABORTED);
  EXPECT_NEAR(seconds_since(begun), 1, 0.9);
  EXPECT_TRUE(has_log("ARTIM timeout before receiving Associate-RQ, association aborted"));
  other.join();
  EXPECT_EQ(answer.type, 0);
}

}  // namespace
}  // namespace vx::test
