// The requesting side against a peer that says what it is told to.
#include "association/requester.h"

#include "net/peers.h"

namespace vx::test {
namespace {

class RequesterTest : public NetTest {
 protected:
  void SetUp() override {
    NetTest::SetUp();
    make_list("Two", {{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN}},
                      {"STANDARD_ECHO", {IMPLICIT_LITTLE_ENDIAN}}});
  }
  // Opens against a peer that runs `script`.
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
  // One that accepts, with a changed answer, and waits for the end.
  static auto accepting(uint32_t maximum, const std::function<void(AssociationParameters&)>& change = {}) {
    return [=](RawPeer& raw) {
      raw.accept(maximum, change);
      raw.await_abort();
    };
  }
  void TearDown() override {
    if (peer_.joinable()) peer_.join();
    NetTest::TearDown();
  }

  RawListener listener_;
  std::thread peer_;
};

TEST_F(RequesterTest, ArgumentsAreChecked) {
  const int32_t port = listener_.port();
  const int32_t high = 65536;
  const int32_t negative = -1;
  const int32_t dead = free_port();
  const char* host = "127.0.0.1";
  const std::string long_host(40, 'h');
  const struct {
    const char* title;
    const int32_t* port;
    const char* host;
    const char* list;
    VX_STATUS status;
  } rows[] = {{nullptr, &port, host, "Two", VX_NULL_POINTER_PARM},
              {"T", &high, host, "Two", VX_INVALID_PORT_NUMBER},
              {"T", &negative, host, "Two", VX_INVALID_PORT_NUMBER},
              {"T", &port, host, "", VX_INVALID_SERVICE_LIST_NAME},
              {"T", &port, "", "Two", VX_INVALID_HOST_NAME},
              {"T", &port, long_host.c_str(), "Two", VX_INVALID_HOST_NAME},
              {"", &port, host, "Two", VX_INVALID_APPLICATION_TITLE},
              {"12345678901234567", &port, host, "Two", VX_INVALID_APPLICATION_TITLE},
              {"NOT_THERE", nullptr, host, "Two", VX_CONFIG_INFO_MISSING},
              {"T", &port, host, "Nobody", VX_CONFIG_INFO_MISSING},
              {"T", &dead, host, "Two", VX_CONNECTION_FAILED},
              {"T", &port, "no.such.host.invalid", "Two", VX_UNKNOWN_HOST_NAME}};
  int32_t id = 5;
  for (const auto& row : rows) {
    id = 5;
    EXPECT_EQ(VX_Open_Association(app_, &id, row.title, row.port, row.host, row.list), row.status);
    EXPECT_EQ(id, -1);
  }
  EXPECT_TRUE(has_log("Application title \"NOT_THERE\" is not configured"));
  EXPECT_TRUE(has_log("Service List \"Nobody\" is not configured"));
  EXPECT_EQ(VX_Open_Association(app_, nullptr, "T", &port, host, "Two"), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Open_Association(77, &id, "T", &port, host, "Two"), VX_INVALID_APPLICATION_ID);
  SS_Functions half{};
  EXPECT_EQ(VX_Open_Secure_Association(app_, &id, "T", &port, host, "Two", &half, nullptr), VX_NULL_VALUE);
  EXPECT_EQ(VX_Open_Secure_Association(app_, &id, "T", &port, host, "Two", nullptr, nullptr),
            VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Open_Association_With_Identity(app_, &id, "T", &port, host, "Two", nullptr, nullptr,
                                              kNameAndPasscode, 0, "me", 2, nullptr, 0),
            VX_CONFIG_INFO_MISSING);
  EXPECT_TRUE(has_log("Primary and Secondary fields must be supplied"));
  int32_t unknown = 4711;
  EXPECT_EQ(VX_Close_Association(&unknown), VX_INVALID_ASSOCIATION_ID);
  EXPECT_EQ(VX_Abort_Association(&unknown), VX_INVALID_ASSOCIATION_ID);
}

TEST_F(RequesterTest, ReportsTellWhatWasNegotiatedUntilTheFirstMessage) {
  int32_t id = -1;
  const auto change = [](AssociationParameters& answer) {
    copy_text(answer.calledTitle, sizeof answer.calledTitle, "themselves");  // begins with THEM
    copy_text(answer.implementationClassUid, kUid, "9.8.7");
    copy_text(answer.implementationVersion, sizeof answer.implementationVersion, "RAW1");
    copy_text(answer.contexts[0].acceptedTransferSyntax, kUid, kImplicit);
    answer.contexts[1].result = kAbstractSyntaxNotSupported;
    set_extended_negotiation(answer.contexts[0], "\x01\x02", 2);
  };
  ASSERT_OK(open_against(accepting(20000, change), id));
  EXPECT_GE(id, 10000);
  AssocInfo info;
  ASSERT_OK(VX_Get_Association_Info(id, &info));
  EXPECT_EQ(joined(info.NumberOfProposedContexts, info.NumberOfAcceptedContexts, info.LocalApplicationTitle,
                   info.RemoteHostName, info.RemoteIPAddress, info.RemoteImplementationClassUID,
                   info.RemoteImplementationVersion, info.RemoteMaximumPDUSize, info.MaxOperationsInvoked),
            "2,1,US,127.0.0.1,127.0.0.1,9.8.7,RAW1,20000,1,");
  EXPECT_GE(info.Socket, 0);
  ServiceInfo service;
  ASSERT_OK(VX_Get_First_Acceptable_Service(id, &service));
  EXPECT_EQ(joined(service.ServiceName, service.SyntaxType, service.PresentationContextId,
                   service.RoleNegotiated, service.SopClassUid),
            joined("STANDARD_CT", IMPLICIT_LITTLE_ENDIAN, 1, 0, kCt));
  EXPECT_EQ(VX_Get_Next_Acceptable_Service(id, &service), VX_END_OF_LIST);
  const void* data = nullptr;
  uint32_t length = 0;
  ASSERT_OK(VX_Get_Negotiation_Info(id, "STANDARD_CT", &data, &length));
  EXPECT_EQ(length, 2U);
  EXPECT_EQ(VX_Get_Negotiation_Info(id, "STANDARD_ECHO", &data, &length), VX_EXT_INFO_UNAVAILABLE);
  EXPECT_EQ(VX_Get_Negotiation_Info(id, "NOBODY", &data, &length), VX_UNKNOWN_SERVICE);
  uint16_t field = 7;
  EXPECT_OK(VX_Get_User_Identity_Length(id, VX_PRIMARY_FIELD, &field));
  EXPECT_EQ(field, 0);
  EXPECT_EQ(VX_Get_User_Identity_Length(id, 3, &field), VX_SYSTEM_ERROR);
  EXPECT_EQ(VX_Set_Negotiation_Info_For_Association(id, "STANDARD_CT", "x", 1), VX_NO_REQUEST_PENDING);
  char name[64];
  EXPECT_EQ(VX_Get_Meta_ServiceName(id, name, sizeof name), VX_NOT_FOUND);
  EXPECT_EQ(VX_Send_Request_Message(id, new_message("STANDARD_ECHO", C_ECHO_RQ)), VX_UNACCEPTABLE_SERVICE)
      << "that context was refused";
  EXPECT_EQ(VX_Get_Association_Info(id, &info), VX_STATE_VIOLATION) << "too late";
  EXPECT_EQ(VX_Get_First_Acceptable_Service(id, &service), VX_STATE_VIOLATION);
  EXPECT_OK(VX_Abort_Association(&id));
  EXPECT_EQ(id, -1);
}

// What the arguments leave open comes from the profile, which is read once.
TEST_F(RequesterTest, RemoteApplicationsOfTheProfile) {
  const int32_t port = listener_.port();
  const auto open = [&](const int32_t* to, const char* host, const char* list) {
    int32_t id = -1;
    std::thread peer([&] {
      RawPeer raw = listener_.accept();
      accepting(16384)(raw);
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
  EXPECT_EQ(open(nullptr, "127.1", "Two"), "2 127.1")
      << "a record that fits what is given is used as it stands";
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
  };
  const Row rows[] = {
      {"Unacceptable Called_application_title",
       [](AssociationParameters& a) { copy_text(a.calledTitle, sizeof a.calledTitle, "OTHER"); }},
      {"Unacceptable Application_context_name",
       [](AssociationParameters& a) { copy_text(a.applicationContextName, kUid, "1.2.840.1"); }},
      {"Unacceptable Implem_class_uid",
       [](AssociationParameters& a) { copy_text(a.implementationClassUid, kUid, "9.9"); }},
      {"No Contexts acceptable",
       [](AssociationParameters& a) {
         for (PresentationContext& context : contexts_of(a)) context.result = kAbstractSyntaxNotSupported;
       }},
      {"A Transfer Syntax was returned that was NOT proposed",
       [](AssociationParameters& a) { copy_text(a.contexts[0].acceptedTransferSyntax, kUid, "1.2.3.99"); }},
      {"A Transfer Syntax was returned that was NOT proposed",
       [](AssociationParameters& a) { copy_text(a.contexts[0].acceptedTransferSyntax, kUid, ""); }},
  };
  for (const Row& row : rows) {
    clear_log();
    set_bool(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, &row != &rows[0]);
    set_bool(VX_CFG_ACCEPT_DIFFERENT_IC_UID, &row != &rows[2]);
    Bytes last;
    int32_t id = 3;
    const auto script = [&](RawPeer& raw) {
      raw.accept(16384, row.change);
      last = raw.await_abort();
    };
    EXPECT_EQ(open_against(script, id), VX_ASSOCIATION_REJECTED) << row.text;
    EXPECT_EQ(id, -1);
    EXPECT_EQ(last, short_pdu(kAbort)) << row.text;
    EXPECT_TRUE(has_log(std::string("Unacceptable association response: ") + row.text)) << row.text;
  }
}

TEST_F(RequesterTest, RejectionsAndOtherEnds) {
  set_int(VX_CFG_ASSOC_REPLY_TIMEOUT, 1);
  const struct {
    const char* what;
    Bytes answer;
    bool stays;
    VX_STATUS status;
  } rows[] = {{"rejected", short_pdu(3, 1, 1, 7), false, VX_ASSOCIATION_REJECTED},
              {"aborted", short_pdu(7), false, VX_NEGOTIATION_ABORTED},
              {"no PDU", "garbage", false, VX_NEGOTIATION_ABORTED},
              {"closed without an answer", "", false, VX_NEGOTIATION_ABORTED},
              {"silent", "", true, VX_NEGOTIATION_ABORTED}};
  for (const auto& row : rows) {
    int32_t id = -1;
    const auto script = [&](RawPeer& raw) {
      raw.receive();
      raw.send(row.answer);
      if (row.stays) raw.await_abort();
    };
    EXPECT_EQ(open_against(script, id), row.status) << row.what;
  }
  EXPECT_TRUE(has_log("|  Result code 1: Permanent Rejection"));
  EXPECT_TRUE(has_log("|  Result reason 7: Unacceptable Called AP Title"));
  EXPECT_EQ(state().sessions.find(10000), nullptr);
}

TEST_F(RequesterTest, TheProposalFollowsTheList) {
  const VX_TRANSFER_SYNTAX nameless[] = {PRIVATE_SYNTAX_1, 0};
  set_text(VX_CFG_PRIVATE_SYNTAX_1_SYNTAX, "1.9.9");
  ASSERT_OK(VX_NewSyntaxList("nameless", nameless));
  set_text(VX_CFG_PRIVATE_SYNTAX_1_SYNTAX, "");
  ASSERT_OK(VX_NewServiceFromName("none", "STANDARD_MR", "nameless", 0xFF, 0xFF));
  ASSERT_OK(VX_NewServiceWithExtInfoFromName("ct", "STANDARD_CT", nullptr, 1, 0, "ab", 2));
  ASSERT_OK(VX_NewServiceFromName("cr", "STANDARD_CR", nullptr, 0, 1));
  ASSERT_OK(VX_Set_Negotiation_Info(app_, "STANDARD_CR", "xyz", 3));
  const char* services[] = {"none", "ct", "cr", nullptr};
  ASSERT_OK(VX_NewProposedServiceListAsync("Mixed", services, 5, 2));
  int32_t id = -1;
  std::string seen;
  const auto look = [&seen](AssociationParameters& asked) {
    for (const PresentationContext& c : contexts_of(asked)) {
      seen += joined(c.id, c.abstractSyntax, c.transferSyntaxCount, c.scuRole, c.scpRole,
                     c.extendedNegotiationLength);
    }
    seen += joined(asked.maxOperationsInvoked, asked.maxOperationsPerformed);
    asked.maxOperationsInvoked = 3;
    // The first one-sided role is refused: that context is of no use.
    asked.contexts[0].scuRole = asked.contexts[0].scpRole = 0;
  };
  ASSERT_OK(open_against(accepting(0, look), id, "Mixed"));
  EXPECT_EQ(seen, joined(1, kCt, 3, 1, 0, 2, 3, "1.2.840.10008.5.1.4.1.1.1", 3, 0, 1, 3, 5, 2));
  EXPECT_TRUE(has_log("No valid transfer syntaxes for service: STANDARD_MR"));
  AssocInfo info;
  ASSERT_OK(VX_Get_Association_Info(id, &info));
  ServiceInfo service;
  ASSERT_OK(VX_Get_First_Acceptable_Service(id, &service));
  EXPECT_EQ(joined(info.NumberOfAcceptedContexts, info.MaxOperationsInvoked, service.ServiceName,
                   service.RoleNegotiated),
            "1,3,STANDARD_CR,1,");
  EXPECT_OK(VX_Abort_Association(&id));
}

TEST_F(RequesterTest, CloseTakesWhatThePeerSays) {
  const Bytes reply = short_pdu(kReleaseRp);
  const struct {
    const char* what;
    Bytes answer;
    VX_STATUS status;
    std::vector<uint8_t> types;  // that the peer hears
    bool hangs_up = false;
  } rows[] = {
      {"A-RELEASE-RP", reply, VX_NORMAL_COMPLETION, {kReleaseRq}},
      {"data in flight", data_pdu(1, kLast, "ab"), VX_NORMAL_COMPLETION, {kReleaseRq}},
      {"collision", kReleaseRequest + reply, VX_NORMAL_COMPLETION, {kReleaseRq, kReleaseRp}},
      {"A-ABORT", short_pdu(kAbort), VX_ASSOCIATION_ABORTED, {kReleaseRq}},
      {"silence", "", VX_ASSOCIATION_ABORTED, {kReleaseRq}},
      {"the end", "", VX_ASSOCIATION_ABORTED, {kReleaseRq}, true},
  };
  set_int(VX_CFG_RELEASE_TIMEOUT, 1);
  for (const auto& row : rows) {
    int32_t id = -1;
    std::vector<uint8_t> types;
    const auto script = [&](RawPeer& raw) {
      raw.accept(16384);
      for (Pdu got; raw.receive(got);) {
        types.push_back(got.type);
        if (types.size() == 1) raw.send(row.answer);
        if (row.hangs_up) return;
      }
    };
    ASSERT_OK(open_against(script, id));
    EXPECT_EQ(VX_Close_Association(&id), row.status) << row.what;
    EXPECT_EQ(id, -1);
    peer_.join();
    EXPECT_EQ(types, row.types) << row.what;
  }
  // An application takes its associations along.
  int32_t id = -1;
  Bytes last;
  const auto script = [&](RawPeer& raw) {
    raw.accept(16384);
    last = raw.heard(-1, 10);
    raw.send(reply);
  };
  ASSERT_OK(open_against(script, id));
  EXPECT_OK(VX_Release_Application(&app_));
  peer_.join();
  EXPECT_EQ(last, kReleaseRequest);
  EXPECT_EQ(VX_Close_Association(&id), VX_INVALID_ASSOCIATION_ID);
}

}  // namespace
}  // namespace vx::test
