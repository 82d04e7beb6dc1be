// The requesting side against a peer that says what it is told to.
#include "association/requester.h"

#include <atomic>

#include "peers.h"

namespace vx::test {
namespace {

constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";

class RequesterTest : public NetTest {
 protected:
  void SetUp() override {
    NetTest::SetUp();
    make_list("Two", {{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN}},
                      {"STANDARD_ECHO", {IMPLICIT_LITTLE_ENDIAN}}});
  }
  // Opens against a peer that runs `script` after its answer.
  VX_STATUS open_against(const std::function<void(RawPeer&)>& script, int32_t& id, const char* list = "Two") {
    std::thread peer([this, script] {  // a copy: the thread goes on after this call
      RawPeer raw = listener_.accept();
      script(raw);
    });
    const int32_t port = listener_.port();
    const VX_STATUS status = VX_Open_Association(app_, &id, "THEM", &port, "127.0.0.1", list);
    if (status == VX_NORMAL_COMPLETION) {
      peer_ = std::move(peer);
    } else {
      peer.join();
    }
    return status;
  }
  void TearDown() override {
    if (peer_.joinable()) peer_.join();
    NetTest::TearDown();
  }

  RawListener listener_;
  std::thread peer_;
};

TEST_F(RequesterTest, ArgumentsAreChecked) {
  int32_t id = 5;
  const int32_t port = listener_.port();
  const int32_t high = 65536;
  const int32_t negative = -1;
  const char* host = "127.0.0.1";
  const auto open = [&](const char* title, const int32_t* to, const char* at, const char* list) {
    id = 5;
    return VX_Open_Association(app_, &id, title, to, at, list);
  };
  EXPECT_EQ(VX_Open_Association(app_, nullptr, "T", &port, host, "Two"), VX_NULL_POINTER_PARM);
  EXPECT_EQ(open(nullptr, &port, host, "Two"), VX_NULL_POINTER_PARM);
  EXPECT_EQ(id, -1);
  EXPECT_EQ(VX_Open_Association(77, &id, "T", &port, host, "Two"), VX_INVALID_APPLICATION_ID);
  EXPECT_EQ(open("T", &high, host, "Two"), VX_INVALID_PORT_NUMBER);
  EXPECT_EQ(open("T", &negative, host, "Two"), VX_INVALID_PORT_NUMBER);
  EXPECT_EQ(open("T", &port, host, ""), VX_INVALID_SERVICE_LIST_NAME);
  EXPECT_EQ(open("T", &port, "", "Two"), VX_INVALID_HOST_NAME);
  EXPECT_EQ(open("T", &port, std::string(40, 'h').c_str(), "Two"), VX_INVALID_HOST_NAME);
  EXPECT_EQ(open("", &port, host, "Two"), VX_INVALID_APPLICATION_TITLE);
  EXPECT_EQ(open("12345678901234567", &port, host, "Two"), VX_INVALID_APPLICATION_TITLE);
  EXPECT_EQ(open("NOT_THERE", nullptr, host, "Two"), VX_CONFIG_INFO_MISSING);
  EXPECT_TRUE(has_log("Application title \"NOT_THERE\" is not configured"));
  EXPECT_EQ(open("T", &port, host, "Nobody"), VX_CONFIG_INFO_MISSING);
  EXPECT_TRUE(has_log("Service List \"Nobody\" is not configured"));
  SS_Functions half{};
  EXPECT_EQ(VX_Open_Secure_Association(app_, &id, "T", &port, host, "Two", &half, nullptr), VX_NULL_VALUE);
  EXPECT_EQ(VX_Open_Secure_Association(app_, &id, "T", &port, host, "Two", nullptr, nullptr),
            VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Open_Association_With_Identity(app_, &id, "T", &port, host, "Two", nullptr, nullptr, 2, 0,
                                              "me", 2, nullptr, 0),
            VX_CONFIG_INFO_MISSING);
  EXPECT_TRUE(has_log("Primary and Secondary fields must be supplied"));
  const int32_t dead = free_port();
  EXPECT_EQ(open("T", &dead, host, "Two"), VX_CONNECTION_FAILED);
  EXPECT_EQ(open("T", &port, "no.such.host.invalid", "Two"), VX_UNKNOWN_HOST_NAME);
  int32_t unknown = 4711;
  EXPECT_EQ(VX_Close_Association(&unknown), VX_INVALID_ASSOCIATION_ID);
  EXPECT_EQ(VX_Abort_Association(&unknown), VX_INVALID_ASSOCIATION_ID);
}

TEST_F(RequesterTest, ReportsTellWhatWasNegotiatedUntilTheFirstMessage) {
  int32_t id = -1;
  ASSERT_EQ(open_against(
                [](RawPeer& raw) {
                  raw.accept(20000, [](AssociationParameters& answer) {
                    copy_text(answer.calledTitle, sizeof answer.calledTitle,
                              "themselves");  // begins with THEM
                    copy_text(answer.implementationClassUid, kUid, "9.8.7");
                    copy_text(answer.implementationVersion, sizeof answer.implementationVersion, "RAW1");
                    answer.contexts[0].result = kAccepted;
                    copy_text(answer.contexts[0].acceptedTransferSyntax, kUid, "1.2.840.10008.1.2");
                    answer.contexts[1].result = kAbstractSyntaxNotSupported;
                    set_extended_negotiation(answer.contexts[0], "\x01\x02", 2);
                  });
                  Pdu last;
                  while (raw.receive(last) && last.type != kAbort) {
                  }
                },
                id),
            VX_NORMAL_COMPLETION);
  EXPECT_GE(id, 10000);
  AssocInfo info;
  ASSERT_EQ(VX_Get_Association_Info(id, &info), VX_NORMAL_COMPLETION);
  EXPECT_EQ(info.NumberOfProposedContexts, 2U);
  EXPECT_EQ(info.NumberOfAcceptedContexts, 1U);
  EXPECT_STREQ(info.LocalApplicationTitle, "US");
  EXPECT_STREQ(info.RemoteHostName, "127.0.0.1");
  EXPECT_STREQ(info.RemoteIPAddress, "127.0.0.1");
  EXPECT_STREQ(info.RemoteImplementationClassUID, "9.8.7");
  EXPECT_STREQ(info.RemoteImplementationVersion, "RAW1");
  EXPECT_EQ(info.RemoteMaximumPDUSize, 20000U);
  EXPECT_EQ(info.MaxOperationsInvoked, 1);
  EXPECT_GE(info.Socket, 0);
  ServiceInfo service;
  ASSERT_EQ(VX_Get_First_Acceptable_Service(id, &service), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(service.ServiceName, "STANDARD_CT");
  EXPECT_EQ(service.SyntaxType, IMPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(service.PresentationContextId, 1);
  EXPECT_EQ(service.RoleNegotiated, 0);
  EXPECT_STREQ(service.SopClassUid, kCt);
  EXPECT_EQ(VX_Get_Next_Acceptable_Service(id, &service), VX_END_OF_LIST);
  const void* data = nullptr;
  uint32_t length = 0;
  ASSERT_EQ(VX_Get_Negotiation_Info(id, "STANDARD_CT", &data, &length), VX_NORMAL_COMPLETION);
  EXPECT_EQ(length, 2U);
  EXPECT_EQ(VX_Get_Negotiation_Info(id, "STANDARD_ECHO", &data, &length), VX_EXT_INFO_UNAVAILABLE);
  EXPECT_EQ(VX_Get_Negotiation_Info(id, "NOBODY", &data, &length), VX_UNKNOWN_SERVICE);
  uint16_t field = 7;
  EXPECT_EQ(VX_Get_User_Identity_Length(id, VX_PRIMARY_FIELD, &field), VX_NORMAL_COMPLETION);
  EXPECT_EQ(field, 0);
  EXPECT_EQ(VX_Get_User_Identity_Length(id, 3, &field), VX_SYSTEM_ERROR);
  EXPECT_EQ(VX_Set_Negotiation_Info_For_Association(id, "STANDARD_CT", "x", 1), VX_NO_REQUEST_PENDING);
  char name[64];
  EXPECT_EQ(VX_Get_Meta_ServiceName(id, name, sizeof name), VX_NOT_FOUND);

  int32_t echo = new_message("STANDARD_ECHO", C_ECHO_RQ);
  EXPECT_EQ(VX_Send_Request_Message(id, echo), VX_UNACCEPTABLE_SERVICE) << "that context was refused";
  EXPECT_EQ(VX_Get_Association_Info(id, &info), VX_STATE_VIOLATION) << "too late";
  EXPECT_EQ(VX_Get_First_Acceptable_Service(id, &service), VX_STATE_VIOLATION);
  VX_Free_Message(&echo);
  EXPECT_EQ(VX_Abort_Association(&id), VX_NORMAL_COMPLETION);
  EXPECT_EQ(id, -1);
}

// What the arguments leave open comes from the profile, which is read once.
TEST_F(RequesterTest, RemoteApplicationsOfTheProfile) {
  const auto script = [](RawPeer& raw) {
    raw.accept(16384);
    Pdu last;
    while (raw.receive(last) && last.type != kAbort) {
    }
  };
  const int32_t port = listener_.port();
  const auto open = [&](const int32_t* to, const char* host, const char* list) {
    int32_t id = -1;
    std::thread peer([&] {
      RawPeer raw = listener_.accept();
      script(raw);
    });
    const VX_STATUS status = VX_Open_Association(app_, &id, "VEXAL_SCP", to, host, list);
    AssocInfo info{};
    if (status == VX_NORMAL_COMPLETION) {
      VX_Get_Association_Info(id, &info);
      VX_Abort_Association(&id);
    } else {
      RawPeer::connect(port);  // lets the peer go
    }
    peer.join();
    return status == VX_NORMAL_COMPLETION
               ? std::to_string(info.NumberOfProposedContexts) + " " + info.RemoteHostName
               : std::string(VX_Error_Message(status));
  };
  EXPECT_EQ(open(&port, nullptr, nullptr), "34 127.0.0.1");
  EXPECT_EQ(open(&port, "127.1", nullptr), "34 127.1");
  EXPECT_EQ(open(&port, "127.1", "Two"), "2 127.1");
  // A record that fits what is given is used as it stands.
  EXPECT_EQ(open(nullptr, "127.1", "Two"), "2 127.1");
  int32_t id = -1;
  EXPECT_EQ(VX_Open_Association(app_, &id, "VEXAL_SCP", nullptr, nullptr, nullptr), VX_CONNECTION_FAILED)
      << "without arguments the profile counts, whatever was used before";
  EXPECT_EQ(VX_Open_Association(app_, &id, "Plain_Syntaxes", &port, nullptr, "Two"), VX_CONFIG_INFO_MISSING);
  EXPECT_TRUE(has_log("|  Unable to retrieve HOST_NAME for Plain_Syntaxes"));
}

TEST_F(RequesterTest, AnswersThatAreNotAcceptable) {
  struct Row {
    const char* text;
    std::function<void(AssociationParameters&)> change;
    std::function<void()> setting;
  };
  const std::vector<Row> rows = {
      {"Unacceptable Called_application_title",
       [](AssociationParameters& a) { copy_text(a.calledTitle, sizeof a.calledTitle, "OTHER"); },
       [] { set_bool(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, false); }},
      {"Unacceptable Application_context_name",
       [](AssociationParameters& a) { copy_text(a.applicationContextName, kUid, "1.2.840.1"); }, [] {}},
      {"Unacceptable Implem_class_uid",
       [](AssociationParameters& a) { copy_text(a.implementationClassUid, kUid, "9.9"); },
       [] { set_bool(VX_CFG_ACCEPT_DIFFERENT_IC_UID, false); }},
      {"No Contexts acceptable",
       [](AssociationParameters& a) {
         for (PresentationContext& context : contexts_of(a)) context.result = kAbstractSyntaxNotSupported;
       },
       [] {}},
      {"A Transfer Syntax was returned that was NOT proposed",
       [](AssociationParameters& a) { copy_text(a.contexts[0].acceptedTransferSyntax, kUid, "1.2.3.99"); },
       [] {}},
      {"A Transfer Syntax was returned that was NOT proposed",
       [](AssociationParameters& a) { copy_text(a.contexts[0].acceptedTransferSyntax, kUid, ""); }, [] {}},
  };
  for (const Row& row : rows) {
    clear_log();
    row.setting();
    std::atomic<bool> aborted{false};
    int32_t id = 3;
    EXPECT_EQ(open_against(
                  [&](RawPeer& raw) {
                    raw.accept(16384, row.change);
                    Pdu last;
                    while (!aborted && raw.receive(last)) aborted = last.type == kAbort;
                  },
                  id),
              VX_ASSOCIATION_REJECTED)
        << row.text;
    EXPECT_EQ(id, -1);
    EXPECT_TRUE(aborted) << row.text;
    EXPECT_TRUE(has_log(std::string("Unacceptable association response: ") + row.text)) << row.text;
    set_bool(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, true);
    set_bool(VX_CFG_ACCEPT_DIFFERENT_IC_UID, true);
  }
}

TEST_F(RequesterTest, RejectionsAndOtherEnds) {
  int32_t id = -1;
  const auto after_request = [](const Bytes& bytes) {
    return [bytes](RawPeer& raw) {
      Pdu asked;
      raw.receive(asked);
      raw.send(bytes);
    };
  };
  EXPECT_EQ(open_against(after_request(pdu(3, Bytes{'\0', '\1', '\1', '\7'})), id), VX_ASSOCIATION_REJECTED);
  EXPECT_TRUE(has_log("|  Result code 1: Permanent Rejection"));
  EXPECT_TRUE(has_log("|  Result reason 7: Unacceptable Called AP Title"));
  EXPECT_EQ(open_against(after_request(pdu(7, Bytes(4, '\0'))), id), VX_NEGOTIATION_ABORTED);
  EXPECT_EQ(open_against(after_request("garbage"), id), VX_NEGOTIATION_ABORTED);
  EXPECT_EQ(open_against(after_request(""), id), VX_NEGOTIATION_ABORTED) << "closed without an answer";
  set_int(VX_CFG_ASSOC_REPLY_TIMEOUT, 1);
  EXPECT_EQ(open_against(
                [](RawPeer& raw) {
                  Pdu asked;
                  while (raw.receive(asked)) {
                  }
                },
                id),
            VX_NEGOTIATION_ABORTED)
      << "silent";
  EXPECT_EQ(state().sessions.find(10000), nullptr);
}

TEST_F(RequesterTest, TheProposalFollowsTheList) {
  const VX_TRANSFER_SYNTAX nameless[] = {PRIVATE_SYNTAX_1, 0};
  set_text(VX_CFG_PRIVATE_SYNTAX_1_SYNTAX, "1.9.9");
  ASSERT_EQ(VX_NewSyntaxList("nameless", nameless), VX_NORMAL_COMPLETION);
  set_text(VX_CFG_PRIVATE_SYNTAX_1_SYNTAX, "");
  ASSERT_EQ(VX_NewServiceFromName("none", "STANDARD_MR", "nameless", 0xFF, 0xFF), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_NewServiceWithExtInfoFromName("ct", "STANDARD_CT", nullptr, 1, 0, "ab", 2),
            VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_NewServiceFromName("cr", "STANDARD_CR", nullptr, 0, 1), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Set_Negotiation_Info(app_, "STANDARD_CR", "xyz", 3), VX_NORMAL_COMPLETION);
  const char* services[] = {"none", "ct", "cr", nullptr};
  ASSERT_EQ(VX_NewProposedServiceListAsync("Mixed", services, 5, 2), VX_NORMAL_COMPLETION);
  int32_t id = -1;
  std::vector<std::string> seen;
  ASSERT_EQ(open_against(
                [&](RawPeer& raw) {
                  raw.accept(0, [&](AssociationParameters& asked) {
                    for (const PresentationContext& c : contexts_of(asked)) {
                      seen.push_back(std::to_string(c.id) + " " + c.abstractSyntax + " " +
                                     std::to_string(c.transferSyntaxCount) + " " + std::to_string(c.scuRole) +
                                     std::to_string(c.scpRole) + " " +
                                     std::to_string(c.extendedNegotiationLength));
                    }
                    seen.push_back(std::to_string(asked.maxOperationsInvoked) + "/" +
                                   std::to_string(asked.maxOperationsPerformed));
                    asked.maxOperationsInvoked = 3;
                    // The first one-sided role is refused: that context is of no use.
                    asked.contexts[0].scuRole = asked.contexts[0].scpRole = 0;
                  });
                  Pdu last;
                  while (raw.receive(last) && last.type != kAbort) {
                  }
                },
                id, "Mixed"),
            VX_NORMAL_COMPLETION);
  const std::vector<std::string> expected = {std::string("1 ") + kCt + " 3 10 2",
                                             "3 1.2.840.10008.5.1.4.1.1.1 3 01 3", "5/2"};
  EXPECT_EQ(seen, expected);
  EXPECT_TRUE(has_log("No valid transfer syntaxes for service: STANDARD_MR"));
  AssocInfo info;
  ASSERT_EQ(VX_Get_Association_Info(id, &info), VX_NORMAL_COMPLETION);
  EXPECT_EQ(info.NumberOfAcceptedContexts, 1U);
  EXPECT_EQ(info.MaxOperationsInvoked, 3);
  ServiceInfo service;
  ASSERT_EQ(VX_Get_First_Acceptable_Service(id, &service), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(service.ServiceName, "STANDARD_CR");
  EXPECT_EQ(service.RoleNegotiated, 1);
  EXPECT_EQ(VX_Abort_Association(&id), VX_NORMAL_COMPLETION);
}

TEST_F(RequesterTest, CloseTakesWhatThePeerSays) {
  struct Row {
    const char* what;
    Bytes answer;
    VX_STATUS status;
  };
  const Row rows[] = {
      {"A-RELEASE-RP", pdu(6, Bytes(4, '\0')), VX_NORMAL_COMPLETION},
      {"data in flight", pdu(4, pdv(1, true, true, "ab")), VX_NORMAL_COMPLETION},
      {"collision", kReleaseRequest + pdu(6, Bytes(4, '\0')), VX_NORMAL_COMPLETION},
      {"A-ABORT", pdu(7, Bytes(4, '\0')), VX_ASSOCIATION_ABORTED},
      {"nothing", "", VX_ASSOCIATION_ABORTED},
  };
  set_int(VX_CFG_RELEASE_TIMEOUT, 1);
  for (const Row& row : rows) {
    int32_t id = -1;
    std::vector<uint8_t> types;
    ASSERT_EQ(open_against(
                  [&](RawPeer& raw) {
                    raw.accept(16384);
                    Pdu got;
                    while (raw.receive(got)) {
                      types.push_back(got.type);
                      if (types.size() == 1) raw.send(row.answer);
                      if (row.answer.empty()) return;
                    }
                  },
                  id),
              VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Close_Association(&id), row.status) << row.what;
    EXPECT_EQ(id, -1);
    peer_.join();
    ASSERT_FALSE(types.empty());
    EXPECT_EQ(types[0], kReleaseRq) << row.what;
    if (row.answer.size() > 15) {
      EXPECT_EQ(types.back(), row.answer[0] == 5 ? kReleaseRp : kReleaseRq) << row.what;
    }
  }
}

TEST_F(RequesterTest, AnApplicationTakesItsAssociationsAlong) {
  int32_t id = -1;
  std::atomic<int> last_type{0};
  ASSERT_EQ(open_against(
                [&](RawPeer& raw) {
                  raw.accept(16384);
                  Pdu got;
                  raw.receive(got);
                  last_type = got.type;
                  raw.send(pdu(6, Bytes(4, '\0')));
                },
                id),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Release_Application(&app_), VX_NORMAL_COMPLETION);
  peer_.join();
  EXPECT_EQ(last_type, kReleaseRq);
  EXPECT_EQ(VX_Close_Association(&id), VX_INVALID_ASSOCIATION_ID);
}

}  // namespace
}  // namespace vx::test
