// Whole exchanges between two ends of the library.
#include <algorithm>

#include "net/peers.h"

namespace vx::test {
namespace {

using DimseTest = NetTest;

// The maximum length is for P-DATA alone: many contexts do not count against it, 0 is no limit, and what is
// small or huge works. A profile gives such numbers without bounds.
TEST_F(DimseTest, AnyMaximumLengthCarriesManyContexts) {
  make_list("Many", std::vector<Listed>(127, Listed{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}}));
  for (const int32_t maximum : {0, 1, 129, 4096, 64234, 0x7FFFFFFF}) {
    SCOPED_TRACE(maximum);
    config().long_values[VX_CFG_PDU_MAXIMUM_LENGTH] = maximum;
    Pair pair = connect("Many");
    ASSERT_GE(pair.requester, 0);
    const Message sent =
        new_message("STANDARD_CT", C_STORE_RQ, {{0x00001000, "1.2.3.4"}, {0x00080018, "1.2.3.4"}});
    set_pixels(sent, Bytes(300001 * 2, 'p'));
    std::thread sender([&] { EXPECT_OK(VX_Send_Request_Message(pair.requester, sent)); });
    const Read got = read(pair.acceptor);
    sender.join();
    ASSERT_OK(got.status);
    EXPECT_EQ(data_set(got.id), data_set(sent));
    end(pair);
  }
}

TEST_F(DimseTest, EveryCommandBothWays) {
  struct Command {
    const char* service;
    uint16_t request;
    std::vector<std::pair<uint32_t, const char*>> fields;
    bool pending;
  };
  const std::vector<Command> commands = {
      {"STANDARD_ECHO", C_ECHO_RQ, {}, false},
      {"STANDARD_CT", C_STORE_RQ, {{0x00001000, "1.2.3"}, {0x00080060, "CT"}}, false},
      {"STUDY_ROOT_QR_FIND", C_FIND_RQ, {{0x00080052, "STUDY"}, {0x00100020, "1"}}, true},
      {"STUDY_ROOT_QR_MOVE", C_MOVE_RQ, {{0x00000600, "THERE"}, {0x00080052, "STUDY"}}, true},
      {"STUDY_ROOT_QR_GET", C_GET_RQ, {{0x00080052, "STUDY"}}, true},
      {"PERFORMED_PROCEDURE_STEP", N_CREATE_RQ, {{0x00001000, "1.2.5"}, {0x00400252, "IN PROGRESS"}}, false},
      {"PERFORMED_PROCEDURE_STEP", N_SET_RQ, {{0x00001001, "1.2.5"}, {0x00400252, "COMPLETED"}}, false},
      {"PRINTER", N_GET_RQ, {{0x00001001, "1.2.840.10008.5.1.1.17"}}, false},
      {"STORAGE_COMMITMENT_PUSH",
       N_ACTION_RQ,
       {{0x00001001, "1.2.840.10008.1.20.1.1"}, {0x00001008, "1"}, {0x00081195, "1.2.6"}},
       false},
      {"STORAGE_COMMITMENT_PUSH",
       N_EVENT_REPORT_RQ,
       {{0x00001000, "1.2.840.10008.1.20.1.1"}, {0x00001002, "1"}, {0x00081195, "1.2.6"}},
       false},
      {"BASIC_FILM_SESSION", N_DELETE_RQ, {{0x00001001, "1.2.7"}}, false},
  };
  std::vector<Listed> rows;
  for (const Command& row : commands) {
    if (rows.empty() || std::string(rows.back().service) != row.service) {
      rows.push_back({row.service, {EXPLICIT_LITTLE_ENDIAN}, 1, 1});
    }
  }
  make_list("All", rows);
  Pair pair = connect("All");
  ASSERT_GE(pair.requester, 0);
  ASSERT_GE(pair.acceptor, 0);
  for (const bool forth : {true, false}) {
    const int32_t client = forth ? pair.requester : pair.acceptor;
    const int32_t server = forth ? pair.acceptor : pair.requester;
    for (const Command& row : commands) {
      SCOPED_TRACE(std::string(command_name(row.request)) + (forth ? " forth" : " back"));
      const Message request = bare(row.service, row.request, row.fields);
      ASSERT_OK(VX_Send_Request_Message(client, request));
      Read got = read(server);
      ASSERT_OK(got.status);
      EXPECT_EQ(joined(got.command, got.service), joined(row.request, row.service));
      for (const auto& [tag, value] : row.fields) EXPECT_EQ(text(got.id, tag), value) << std::hex << tag;
      EXPECT_EQ(text(got.id, 0x00000110), text(request, 0x00000110));
      const auto answer = static_cast<uint16_t>(row.request | 0x8000);
      for (const uint32_t status : {kPending, kPendingWithWarning, uint32_t{0}}) {
        if (status != 0 && !row.pending) continue;
        ASSERT_OK(respond(server, row.service, answer, status));
        got = read(client);
        ASSERT_OK(got.status);
        EXPECT_EQ(joined(got.command, got.service, number(got.id, 0x00000120), number(got.id, 0x00000900)),
                  joined(answer, row.service, number(request, 0x00000110), status));
      }
      EXPECT_EQ(respond(server, row.service, answer), VX_REQUIRED_ATTRIBUTE_MISSING) << "it is answered";
    }
  }
  end(pair);
}

TEST_F(DimseTest, OperationsInFlightAreAnsweredInAnyOrder) {
  constexpr char kFind[] = "STUDY_ROOT_QR_FIND";
  make_list("Async", {{kFind, {IMPLICIT_LITTLE_ENDIAN}}}, 16);
  Pair pair = connect("Async");
  AssocInfo info;
  ASSERT_OK(VX_Get_Association_Info(pair.requester, &info));
  EXPECT_EQ(info.MaxOperationsInvoked, 16);
  std::vector<uint32_t> ids;
  for (int i = 0; i < 17; ++i) {
    const Message find = new_message(kFind, C_FIND_RQ, {{0x00100020, "X"}});
    EXPECT_EQ(VX_Send_Request_Message(pair.requester, find),
              i < 16 ? VX_NORMAL_COMPLETION : VX_MAX_OPERATIONS_EXCEEDED);
    if (i < 16) ids.push_back(number(find, 0x00000110));
  }
  EXPECT_OK(VX_Send_Request_Message(pair.requester, new_message(kFind, C_CANCEL_RQ)))
      << "no operation of its own";
  for (int i = 0; i < 17; ++i) EXPECT_EQ(read(pair.acceptor).command, i < 16 ? C_FIND_RQ : C_CANCEL_RQ);
  for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
    const Message response = bare(kFind, C_FIND_RSP);
    VX_Add_Standard_Attribute(response, 0x00000120);
    VX_Set_Value_From_UInt(response, 0x00000120, *id);
    ASSERT_OK(VX_Send_Response_Message(pair.acceptor, 0, response));
    const Read got = read(pair.requester);
    ASSERT_OK(got.status);
    EXPECT_EQ(number(got.id, 0x00000120), *id);
  }
  end(pair);
}

TEST_F(DimseTest, ComponentsOfAMetaClass) {
  constexpr char kMeta[] = "BASIC_GRAYSCALE_PRINT_MANAGEMENT";
  make_list("Print", {{kMeta, {IMPLICIT_LITTLE_ENDIAN}}});
  Pair pair = connect("Print");
  const Message request = bare("BASIC_FILM_SESSION", N_CREATE_RQ, {{0x00001000, "1.2.3"}, {0x20000010, "1"}});
  ASSERT_OK(VX_Send_Request_Message_For_Service(pair.requester, request, kMeta));
  EXPECT_EQ(text(request, 0x00000002), "1.2.840.10008.5.1.1.1") << "the component's class";
  const Read got = read(pair.acceptor);
  ASSERT_OK(got.status);
  EXPECT_EQ(got.service, "BASIC_FILM_SESSION");
  char name[64];
  EXPECT_OK(VX_Get_Meta_ServiceName(pair.acceptor, name, sizeof name));
  EXPECT_STREQ(name, kMeta);
  EXPECT_EQ(VX_Get_Meta_ServiceName(pair.acceptor, name, 5), VX_BUFFER_TOO_SMALL);
  const Message response = bare("BASIC_FILM_SESSION", N_CREATE_RSP);
  EXPECT_OK(VX_Send_Response_Message(pair.acceptor, 0, response));
  EXPECT_EQ(text(response, 0x00001000), "1.2.3") << "repeated from the request";
  EXPECT_OK(read(pair.requester).status);
  end(pair);
}

TEST_F(DimseTest, ValuesThatTheApplicationHolds) {
  make_list("Ct", {{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}}});
  int32_t sender = -1;
  ASSERT_OK(VX_Register_Application(&sender, "SENDER"));
  Held sent{Bytes(123456, '\3')};
  Held kept;
  ASSERT_OK(VX_Register_Callback_Function(sender, 0x7FE00010, &sent, Held::call));
  ASSERT_OK(VX_Register_Callback_Function(app_, 0x7FE00010, &kept, Held::call));
  Pair pair = connect("Ct", sender);
  const Message ct = bare("STANDARD_CT", C_STORE_RQ, {{0x00001000, "1.2.3"}, {0x00100010, "A^B"}});
  VX_Add_Standard_Attribute(ct, 0x7FE00010);
  ASSERT_OK(VX_Send_Request_Message(pair.requester, ct));
  const Read got = read(pair.acceptor);
  ASSERT_OK(got.status);
  EXPECT_EQ(text(got.id, 0x00100010), "A^B");
  EXPECT_TRUE(kept.bytes == sent.bytes) << kept.bytes.size();
  end(pair);
}

// Sessions of many threads on one port, a part of which are aborted from outside.
TEST_F(DimseTest, ManySessionsAndAborts) {
  constexpr std::size_t kSessions = 16;
  constexpr int kMessages = 30;
  set_int(VX_CFG_MAX_PENDING_CONNECTIONS, 64);
  make_list("Many", {{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}}});
  std::atomic<int> served{0};
  std::atomic<int> whole{0};
  std::atomic<int32_t> ids[kSessions];
  const auto serve = [&] {
    const int32_t id = wait_and_accept("Many", app_);
    for (Read got = read(id); got.status == VX_NORMAL_COMPLETION; got = read(id)) {
      if (respond(id, "STANDARD_CT", C_STORE_RSP) != VX_NORMAL_COMPLETION) return;
      ++served;
    }
  };
  const auto ask = [&](std::atomic<int32_t>& shared) {
    int32_t id = open_when_ready("Many", app_);
    shared = id;
    const Message ct = bare("STANDARD_CT", C_STORE_RQ, {{0x00001000, "1.2.3"}, {0x00100010, "A^B"}});
    set_pixels(ct, Bytes(100000, 'p'));
    for (int n = 0; n < kMessages; ++n) {
      if (VX_Send_Request_Message(id, ct) != VX_NORMAL_COMPLETION) return;
      if (read(id).status != VX_NORMAL_COMPLETION) return;
    }
    ++whole;
    VX_Close_Association(&id);
  };
  std::vector<std::thread> threads;
  for (std::atomic<int32_t>& id : ids) {
    id = -1;
    threads.emplace_back(serve);
    threads.emplace_back(ask, std::ref(id));
  }
  pause(100);
  // Every fourth is aborted, wherever it is.
  for (std::size_t i = 0; i < kSessions; i += 4) {
    int32_t id = ids[i];
    if (id >= 0) VX_Abort_Association(&id);
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GE(whole, 12);
  EXPECT_GE(served, kMessages * 12);
}

}  // namespace
}  // namespace vx::test
