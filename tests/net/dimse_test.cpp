// Whole exchanges between two ends of the library.
#include <algorithm>
#include <atomic>
#include <mutex>

#include "pairs.h"

namespace vx::test {
namespace {

class DimseTest : public PairTest {
 protected:
  // An open message of a service without its template.
  static int32_t bare(const char* service, uint16_t command,
                      const std::vector<std::pair<uint32_t, const char*>>& texts) {
    int32_t id = -1;
    EXPECT_EQ(VX_Open_Empty_Message(&id), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Set_Service_Command(id, service, command), VX_NORMAL_COMPLETION)
        << service << " " << command;
    for (const auto& [tag, text] : texts) {
      VX_Add_Standard_Attribute(id, tag);
      EXPECT_EQ(VX_Set_Value_From_String(id, tag, text), VX_NORMAL_COMPLETION) << std::hex << tag;
    }
    return id;
  }
  void end(Pair& pair) {
    std::thread closer([&] { EXPECT_EQ(VX_Close_Association(&pair.requester), VX_NORMAL_COMPLETION); });
    EXPECT_EQ(read(pair.acceptor).status, VX_ASSOCIATION_CLOSED);
    closer.join();
  }
};

// The maximum length is for P-DATA alone: many contexts do not count against it, 0 is no limit, and what is
// small or huge works. A profile gives such numbers without bounds.
TEST_F(DimseTest, AnyMaximumLengthCarriesManyContexts) {
  std::vector<Listed> rows(127, Listed{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}});
  make_list("Many", rows);
  const Bytes pixels(300001 * 2, 'p');
  for (const int32_t maximum : {0, 1, 129, 4096, 64234, 0x7FFFFFFF}) {
    config().long_values[VX_CFG_PDU_MAXIMUM_LENGTH] = maximum;
    Pair pair = connect("Many");
    ASSERT_GE(pair.requester, 0) << maximum;
    int32_t sent = new_message("STANDARD_CT", C_STORE_RQ, {{0x00001000, "1.2.3.4"}, {0x00080018, "1.2.3.4"}});
    VX_Add_Standard_Attribute(sent, 0x7FE00010);
    ASSERT_EQ(VX_Set_Value_From_Buffer(sent, 0x7FE00010, pixels.data(), static_cast<uint32_t>(pixels.size())),
              VX_NORMAL_COMPLETION);
    std::thread sender(
        [&] { EXPECT_EQ(VX_Send_Request_Message(pair.requester, sent), VX_NORMAL_COMPLETION); });
    Read got = read(pair.acceptor);
    sender.join();
    ASSERT_EQ(got.status, VX_NORMAL_COMPLETION) << maximum << " " << VX_Error_Message(got.status);
    EXPECT_EQ(data_set(got.id), data_set(sent)) << maximum;
    VX_Free_Message(&got.id);
    VX_Free_Message(&sent);
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
      int32_t request = bare(row.service, row.request, row.fields);
      ASSERT_EQ(VX_Send_Request_Message(client, request), VX_NORMAL_COMPLETION);
      Read got = read(server);
      ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
      EXPECT_EQ(got.command, row.request);
      EXPECT_EQ(got.service, row.service);
      for (const auto& [tag, value] : row.fields) EXPECT_EQ(text(got.id, tag), value) << std::hex << tag;
      EXPECT_EQ(text(got.id, 0x00000110), text(request, 0x00000110));
      VX_Free_Message(&got.id);
      const auto answer = static_cast<uint16_t>(row.request | 0x8000);
      std::vector<uint32_t> statuses = {0};
      if (row.pending) statuses = {0xFF00, 0xFF01, 0};
      for (const uint32_t status : statuses) {
        int32_t response = bare(row.service, answer, {});
        ASSERT_EQ(VX_Send_Response_Message(server, status, response), VX_NORMAL_COMPLETION);
        got = read(client);
        ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
        EXPECT_EQ(got.command, answer);
        EXPECT_EQ(got.service, row.service);
        EXPECT_EQ(text(got.id, 0x00000120), text(request, 0x00000110));
        uint32_t told = 1;
        VX_Get_Value_To_UInt(got.id, 0x00000900, &told);
        EXPECT_EQ(told, status);
        VX_Free_Message(&got.id);
        VX_Free_Message(&response);
      }
      int32_t late = bare(row.service, answer, {});
      EXPECT_EQ(VX_Send_Response_Message(server, 0, late), VX_REQUIRED_ATTRIBUTE_MISSING) << "it is answered";
      VX_Free_Message(&late);
      VX_Free_Message(&request);
    }
  }
  end(pair);
}

TEST_F(DimseTest, OperationsInFlightAreAnsweredInAnyOrder) {
  make_list("Async", {{"STANDARD_ECHO", {IMPLICIT_LITTLE_ENDIAN}}}, 16, 16);
  Pair pair = connect("Async");
  AssocInfo info;
  ASSERT_EQ(VX_Get_Association_Info(pair.requester, &info), VX_NORMAL_COMPLETION);
  EXPECT_EQ(info.MaxOperationsInvoked, 16);
  std::vector<uint32_t> ids;
  for (int i = 0; i < 17; ++i) {
    int32_t echo = new_message("STANDARD_ECHO", C_ECHO_RQ);
    const VX_STATUS status = VX_Send_Request_Message(pair.requester, echo);
    EXPECT_EQ(status, i < 16 ? VX_NORMAL_COMPLETION : VX_MAX_OPERATIONS_EXCEEDED);
    uint32_t id = 0;
    VX_Get_Value_To_UInt(echo, 0x00000110, &id);
    if (i < 16) ids.push_back(id);
    VX_Free_Message(&echo);
  }
  for (int i = 0; i < 16; ++i) {
    Read got = read(pair.acceptor);
    ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
    VX_Free_Message(&got.id);
  }
  for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
    int32_t response = new_message("STANDARD_ECHO", C_ECHO_RSP);
    VX_Set_Value_From_UInt(response, 0x00000120, *id);
    ASSERT_EQ(VX_Send_Response_Message(pair.acceptor, 0, response), VX_NORMAL_COMPLETION);
    VX_Free_Message(&response);
    Read got = read(pair.requester);
    ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
    uint32_t answered = 0;
    VX_Get_Value_To_UInt(got.id, 0x00000120, &answered);
    EXPECT_EQ(answered, *id);
    VX_Free_Message(&got.id);
  }
  end(pair);
}

TEST_F(DimseTest, ComponentsOfAMetaClass) {
  make_list("Print", {{"BASIC_GRAYSCALE_PRINT_MANAGEMENT", {IMPLICIT_LITTLE_ENDIAN}}});
  Pair pair = connect("Print");
  int32_t request = bare("BASIC_FILM_SESSION", N_CREATE_RQ, {{0x00001000, "1.2.3"}, {0x20000010, "1"}});
  ASSERT_EQ(VX_Send_Request_Message_For_Service(pair.requester, request, "BASIC_GRAYSCALE_PRINT_MANAGEMENT"),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(request, 0x00000002), "1.2.840.10008.5.1.1.1") << "the component's class";
  Read got = read(pair.acceptor);
  ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
  EXPECT_EQ(got.service, "BASIC_FILM_SESSION");
  char name[64];
  EXPECT_EQ(VX_Get_Meta_ServiceName(pair.acceptor, name, sizeof name), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(name, "BASIC_GRAYSCALE_PRINT_MANAGEMENT");
  EXPECT_EQ(VX_Get_Meta_ServiceName(pair.acceptor, name, 5), VX_BUFFER_TOO_SMALL);
  VX_Free_Message(&got.id);
  VX_Free_Message(&request);
  int32_t response = bare("BASIC_FILM_SESSION", N_CREATE_RSP, {});
  EXPECT_EQ(VX_Send_Response_Message(pair.acceptor, 0, response), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(response, 0x00001000), "1.2.3") << "repeated from the request";
  VX_Free_Message(&response);
  got = read(pair.requester);
  EXPECT_EQ(got.status, VX_NORMAL_COMPLETION);
  VX_Free_Message(&got.id);
  end(pair);
}

// Pixel data that the applications hold.
struct Pixels {
  Bytes bytes;
  std::size_t at = 0;

  static VX_STATUS hold(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                        void** data, int32_t first, int32_t* last) {
    auto& pixels = *static_cast<Pixels*>(user);
    switch (request) {
      case VX_REQUEST_LENGTH:
        *size = static_cast<uint32_t>(pixels.bytes.size());
        break;
      case VX_REQUEST_DATA:
        if (first != 0) pixels.at = 0;
        *size = static_cast<uint32_t>(std::min<std::size_t>(10000, pixels.bytes.size() - pixels.at));
        *data = pixels.bytes.data() + pixels.at;
        pixels.at += *size;
        *last = pixels.at == pixels.bytes.size() ? 1 : 0;
        break;
      case VX_PROVIDE_DATA:
        pixels.bytes.append(static_cast<const char*>(*data), *size);
        break;
      default:
        break;
    }
    return VX_NORMAL_COMPLETION;
  }
};

TEST_F(DimseTest, ValuesThatTheApplicationHolds) {
  make_list("Ct", {{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}}});
  int32_t sender = -1;
  ASSERT_EQ(VX_Register_Application(&sender, "SENDER"), VX_NORMAL_COMPLETION);
  Pixels sent{Bytes(123456, '\3')};
  Pixels kept{};
  ASSERT_EQ(VX_Register_Callback_Function(sender, 0x7FE00010, &sent, Pixels::hold), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Register_Callback_Function(app_, 0x7FE00010, &kept, Pixels::hold), VX_NORMAL_COMPLETION);
  Pair pair;
  std::thread acceptor([&, receiver = app_] { pair.acceptor = wait_and_accept("Ct", receiver); });
  app_ = sender;
  pair.requester = open_when_ready("Ct");
  acceptor.join();
  int32_t ct = bare("STANDARD_CT", C_STORE_RQ, {{0x00001000, "1.2.3"}, {0x00100010, "A^B"}});
  VX_Add_Standard_Attribute(ct, 0x7FE00010);
  ASSERT_EQ(VX_Send_Request_Message(pair.requester, ct), VX_NORMAL_COMPLETION);
  Read got = read(pair.acceptor);
  ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(got.id, 0x00100010), "A^B");
  EXPECT_TRUE(kept.bytes == sent.bytes) << kept.bytes.size();
  VX_Free_Message(&got.id);
  VX_Free_Message(&ct);
  end(pair);
}

// Sessions of many threads, a part of which are aborted from outside.
TEST_F(DimseTest, ManySessionsAndAborts) {
  constexpr int kSessions = 16;
  make_list("Many", {{"STANDARD_ECHO", {IMPLICIT_LITTLE_ENDIAN}}, {"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}}});
  std::atomic<int> served{0};
  std::vector<std::thread> servers;
  std::vector<int32_t> accepted(kSessions, -1);
  std::mutex mutex;
  std::thread acceptor([&] {
    for (int i = 0; i < kSessions; ++i) {
      const int32_t id = wait_and_accept("Many");
      const std::lock_guard guard(mutex);
      accepted[static_cast<std::size_t>(i)] = id;
      servers.emplace_back([&, id] {
        for (;;) {
          Read got = read(id, 10);
          if (got.status != VX_NORMAL_COMPLETION) break;
          VX_Free_Message(&got.id);
          int32_t response = got.command == C_ECHO_RQ ? new_message("STANDARD_ECHO", C_ECHO_RSP)
                                                      : new_message("STANDARD_CT", C_STORE_RSP);
          const VX_STATUS status = VX_Send_Response_Message(id, 0, response);
          VX_Free_Message(&response);
          if (status != VX_NORMAL_COMPLETION) break;
          ++served;
        }
      });
    }
  });
  std::vector<std::thread> clients;
  std::vector<std::atomic<int32_t>> ids(kSessions);
  std::atomic<int> whole{0};
  for (std::size_t i = 0; i < kSessions; ++i) {
    ids[i] = -1;
    clients.emplace_back([&, i] {
      int32_t id = open_when_ready("Many");
      ids[i] = id;
      int32_t ct = bare("STANDARD_CT", C_STORE_RQ, {{0x00001000, "1.2.3"}, {0x00100010, "A^B"}});
      VX_Add_Standard_Attribute(ct, 0x7FE00010);
      const Bytes pixels(100000, 'p');
      VX_Set_Value_From_Buffer(ct, 0x7FE00010, pixels.data(), static_cast<uint32_t>(pixels.size()));
      bool good = true;
      for (int n = 0; good && n < 30; ++n) {
        good = VX_Send_Request_Message(id, ct) == VX_NORMAL_COMPLETION;
        Read got{};
        if (good) got = read(id, 10);
        good = good && got.status == VX_NORMAL_COMPLETION;
        if (got.id >= 0) VX_Free_Message(&got.id);
      }
      VX_Free_Message(&ct);
      if (good) ++whole;
      if (good) VX_Close_Association(&id);
    });
  }
  ::usleep(100000);
  // Every fourth is aborted, wherever it is.
  for (std::size_t i = 0; i < kSessions; i += 4) {
    int32_t id = ids[i];
    if (id >= 0) VX_Abort_Association(&id);
  }
  for (std::thread& client : clients) client.join();
  acceptor.join();
  for (std::thread& server : servers) server.join();
  EXPECT_GE(whole, kSessions - 4);
  EXPECT_GE(served, 30 * (kSessions - 4));
}

}  // namespace
}  // namespace vx::test
