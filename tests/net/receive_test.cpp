// Reading messages from a peer that sends what it is told to, however it is cut.
#include <algorithm>
#include <chrono>
#include <mutex>

#include "peers.h"

namespace vx::test {
namespace {

constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kEcho[] = "1.2.840.10008.1.1";

// The contexts of the list, in its order.
struct Context {
  uint8_t id;
  VX_TRANSFER_SYNTAX syntax;
};
constexpr Context kContexts[] = {{1, IMPLICIT_LITTLE_ENDIAN},
                                 {3, EXPLICIT_LITTLE_ENDIAN},
                                 {5, EXPLICIT_BIG_ENDIAN},
                                 {7, DEFLATED_EXPLICIT_LITTLE_ENDIAN}};
constexpr uint8_t kEchoContext = 9;

// A syntax in which data sets can be compared: without VRs a private value is only bytes.
VX_TRANSFER_SYNTAX plain(VX_TRANSFER_SYNTAX syntax) {
  return syntax == DEFLATED_EXPLICIT_LITTLE_ENDIAN ? EXPLICIT_LITTLE_ENDIAN : syntax;
}

Bytes echo_command(uint32_t id) {
  return command_group({{0x00000002, kEcho},
                        {0x00000100, little16(C_ECHO_RQ)},
                        {0x00000110, little16(id)},
                        {0x00000800, little16(0x0101)}});
}
Bytes one_pdu(uint8_t context, bool data, bool last, const Bytes& value) {
  return pdu(4, pdv(context, data, last, value));
}

class ReceiveTest : public NetTest {
 protected:
  void SetUp() override {
    NetTest::SetUp();
    make_list("All", {{"STANDARD_CT", {IMPLICIT_LITTLE_ENDIAN}},
                      {"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}},
                      {"STANDARD_CT", {EXPLICIT_BIG_ENDIAN}},
                      {"STANDARD_CT", {DEFLATED_EXPLICIT_LITTLE_ENDIAN}}});
    make_list("WithEcho",
              {{"STANDARD_CT", {IMPLICIT_LITTLE_ENDIAN}}, {"STANDARD_ECHO", {IMPLICIT_LITTLE_ENDIAN}}});
    connect("All");
  }
  void TearDown() override {
    peer_.reset();
    if (id_ >= 0) VX_Abort_Association(&id_);
    NetTest::TearDown();
  }
  void connect(const char* list) {
    peer_.reset();
    if (id_ >= 0) VX_Abort_Association(&id_);
    std::thread acceptor([this] {
      peer_ = std::make_unique<RawPeer>(listener_.accept());
      peer_->accept(16384);
    });
    id_ = open(list, listener_.port());
    acceptor.join();
    ASSERT_GE(id_, 0);
  }
  void send(const Bytes& bytes) { peer_->send(bytes); }

  // A small object with a sequence, a private block and a large value.
  int32_t sample() {
    const int32_t id = new_message("STANDARD_CT", C_STORE_RQ,
                                   {{0x00080016, kCt},
                                    {0x00080018, "1.2.3.4"},
                                    {0x00080060, "CT"},
                                    {0x00100010, "Doe^Jane"},
                                    {0x0020000D, "1.2.3"}});
    VX_Add_Private_Block(id, "ACME 1.0", 0x0019);
    VX_Add_Private_Attribute(id, "ACME 1.0", 0x0019, 0x10, VX_VR_LO);
    VX_Add_Private_Attribute(id, "ACME 1.0", 0x0019, 0x11, VX_VR_LO);
    EXPECT_EQ(VX_Set_pValue_From_String(id, "ACME 1.0", 0x0019, 0x10, "first"), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Set_pValue_From_String(id, "ACME 1.0", 0x0019, 0x11, "second"), VX_NORMAL_COMPLETION);
    int32_t item = -1;
    VX_Open_Empty_Item(&item);
    VX_Add_Standard_Attribute(item, 0x00081155);
    VX_Set_Value_From_String(item, 0x00081155, "1.5");
    VX_Add_Standard_Attribute(id, 0x00081140);
    EXPECT_EQ(VX_Set_Value_From_Int(id, 0x00081140, item), VX_NORMAL_COMPLETION);
    VX_Add_Standard_Attribute(id, 0x00280010);
    VX_Set_Value_From_UInt(id, 0x00280010, 258);
    VX_Add_Standard_Attribute(id, 0x7FE00010);
    const Bytes pixels(64, '\7');
    EXPECT_EQ(VX_Set_Value_From_Buffer(id, 0x7FE00010, pixels.data(), 64), VX_NORMAL_COMPLETION);
    return id;
  }
  // A message in P-DATA-TF PDUs, its data set cut into values of `part` bytes, `together` of them to a PDU.
  static Bytes cut(uint8_t context, const Bytes& data, std::size_t part, std::size_t together = 1) {
    Bytes out = one_pdu(context, false, true, store_command(kCt));
    Bytes body;
    std::size_t count = 0;
    for (std::size_t at = 0; at < data.size(); at += part) {
      const bool last = at + part >= data.size();
      body += pdv(context, true, last, data.substr(at, part));
      if (++count % together != 0 && !last) continue;
      out += pdu(4, body);
      body.clear();
    }
    return out;
  }
  void answer(int32_t request_context = 1) {
    static_cast<void>(request_context);
    int32_t response = new_message("STANDARD_CT", C_STORE_RSP);
    EXPECT_EQ(VX_Send_Response_Message(id_, 0, response), VX_NORMAL_COMPLETION);
    VX_Free_Message(&response);
    Pdu got;
    EXPECT_TRUE(peer_->receive(got));
  }

  RawListener listener_;
  std::unique_ptr<RawPeer> peer_;
  int32_t id_ = -1;
};

VX_STATUS take(int32_t, void* user, uint32_t size, void* data, int32_t first, int32_t last) {
  auto& bytes = *static_cast<Bytes*>(user);
  EXPECT_EQ(first != 0, bytes.empty());
  bytes.append(static_cast<const char*>(data), size);
  if (last != 0) bytes += '$';
  return VX_NORMAL_COMPLETION;
}

TEST_F(ReceiveTest, WholeInEverySyntaxAndEveryCut) {
  int32_t sent = sample();
  for (const Context& context : kContexts) {
    const Bytes data = data_set(sent, context.syntax);
    const Bytes expected = data_set(sent, plain(context.syntax));
    for (const std::size_t part :
         {std::size_t{2}, std::size_t{4}, std::size_t{6}, std::size_t{14}, std::size_t{50}, data.size()}) {
      for (const std::size_t together : {1, 3}) {
        send(cut(context.id, data, part, together));
        Read got = read(id_);
        ASSERT_EQ(got.status, VX_NORMAL_COMPLETION) << context.syntax << " " << part;
        EXPECT_EQ(got.service, "STANDARD_CT");
        EXPECT_EQ(got.command, C_STORE_RQ);
        VX_TRANSFER_SYNTAX syntax = 0;
        EXPECT_EQ(VX_Get_Message_Transfer_Syntax(got.id, &syntax), VX_NORMAL_COMPLETION);
        EXPECT_EQ(syntax, context.syntax);
        EXPECT_EQ(data_set(got.id, plain(context.syntax)), expected) << context.syntax << " " << part;
        VX_Free_Message(&got.id);
        answer();
      }
    }
  }
  VX_Free_Message(&sent);
}

// Stops before, at and behind every tag, with the data cut at every place.
TEST_F(ReceiveTest, StopsAndGoesOnAtEveryCut) {
  int32_t sent = sample();
  constexpr uint32_t kTags[] = {0x00080016, 0x00080018, 0x00080060, 0x00081140, 0x00100010, 0x00190010,
                                0x00191010, 0x00191011, 0x0020000D, 0x00280010, 0x7FE00010};
  constexpr uint32_t kStops[] = {0x00010000, 0x00080016, 0x00080017, 0x00081140, 0x00190010,
                                 0x00191010, 0x00280010, 0x7FE00010, 0x7FE10000};
  const auto next_tag = [&](uint32_t stop) { return *std::upper_bound(kTags, std::end(kTags), stop); };
  for (const Context& context : kContexts) {
    const Bytes data = data_set(sent, context.syntax);
    const Bytes expected = data_set(sent, plain(context.syntax));
    for (std::size_t first = 2; first < data.size(); first += 2) {
      const uint32_t stop = kStops[first / 2 % std::size(kStops)];
      const uint32_t second = kStops[(first / 2 + first / 18) % std::size(kStops)];
      send(one_pdu(context.id, false, true, store_command(kCt)) +
           one_pdu(context.id, true, false, data.substr(0, first)) +
           one_pdu(context.id, true, true, data.substr(first)));
      Read got = read(id_, 10, stop);
      ASSERT_EQ(got.status, VX_NORMAL_COMPLETION)
          << context.syntax << " " << first << " " << std::hex << stop;
      const std::string name = text(got.id, 0x00100010);
      EXPECT_EQ(name, stop >= 0x00100010 ? "Doe^Jane" : "") << std::hex << stop;
      EXPECT_EQ(read(id_).status, VX_MUST_CONTINUE_BEFORE_READING);
      // Nothing is left to go past behind the last tag; a read of the command alone has begun nothing.
      const bool behind = stop < 0x7FE00010 && second < (stop == 0x00010000 ? stop : next_tag(stop));
      EXPECT_EQ(VX_Continue_Read_Message_To_Tag(id_, second, &got.id),
                behind ? VX_INVALID_TAG : VX_NORMAL_COMPLETION)
          << std::hex << stop << " " << second;
      EXPECT_EQ(text(got.id, 0x00100010), std::max(stop, second) >= 0x00100010 ? "Doe^Jane" : "");
      ASSERT_EQ(VX_Continue_Read_Message(id_, &got.id), VX_NORMAL_COMPLETION)
          << context.syntax << " " << first << " " << std::hex << stop;
      EXPECT_EQ(data_set(got.id, plain(context.syntax)), expected)
          << context.syntax << " " << first << " " << std::hex << stop;
      EXPECT_EQ(VX_Continue_Read_Message(id_, &got.id), VX_INVALID_MESSAGE_ID);
      VX_Free_Message(&got.id);
      answer();
    }
  }
  VX_Free_Message(&sent);
}

TEST_F(ReceiveTest, TheRestAsAStream) {
  int32_t sent = sample();
  for (const Context& context : kContexts) {
    const Bytes data = data_set(sent, context.syntax);
    const Bytes inflated = data_set(sent, plain(context.syntax));
    for (const uint32_t stop : {0x00010000U, 0x00080018U, 0x00191010U, 0x7FE00010U}) {
      for (const std::size_t part : {std::size_t{2}, std::size_t{36}, data.size()}) {
        send(cut(context.id, data, part));
        Read got = read(id_, 10, stop);
        ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
        Bytes rest;
        ASSERT_EQ(VX_Continue_Read_Message_To_Stream(id_, &got.id, &rest, take), VX_NORMAL_COMPLETION);
        ASSERT_FALSE(rest.empty());
        EXPECT_EQ(rest.back(), '$');
        rest.pop_back();
        // What was decoded, and the rest, are the whole.
        const bool raw = stop == 0x00010000;
        const Bytes& whole = raw ? data : inflated;
        const Bytes front = raw ? "" : data_set(got.id, plain(context.syntax));
        EXPECT_EQ(front + rest, whole) << context.syntax << " " << std::hex << stop << " " << part;
        VX_Free_Message(&got.id);
        answer();
      }
    }
  }
  VX_Free_Message(&sent);
}

TEST_F(ReceiveTest, AMessageThatIsDroppedHalfwayIsPassedOver) {
  int32_t sent = sample();
  const Bytes data = data_set(sent, EXPLICIT_LITTLE_ENDIAN);
  for (const uint32_t stop : {0x00010000U, 0x00080018U, 0x7FE10000U}) {
    send(cut(3, data, 40));
    Read got = read(id_, 10, stop);
    ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
    VX_Free_Message(&got.id);
    send(cut(3, data, 1000));
    got = read(id_);
    ASSERT_EQ(got.status, VX_NORMAL_COMPLETION) << std::hex << stop;
    EXPECT_EQ(data_set(got.id), data);
    VX_Free_Message(&got.id);
    answer();
    answer();
  }
  VX_Free_Message(&sent);
}

TEST_F(ReceiveTest, TimeOuts) {
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  EXPECT_EQ(read(id_, 0).status, VX_TIMEOUT);
  EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(500));
  EXPECT_EQ(read(id_, 1).status, VX_TIMEOUT);
  set_int(VX_CFG_INACTIVITY_TIMEOUT, 1);
  int32_t sent = sample();
  const Bytes whole = cut(3, data_set(sent), 100);
  // Silence within a message: between two PDUs, behind a header, and within one.
  const std::size_t command = one_pdu(3, false, true, store_command(kCt)).size();
  const std::pair<std::size_t, VX_STATUS> rows[] = {{command, VX_INACTIVITY_TIMEOUT},
                                                    {command + 6, VX_INACTIVITY_TIMEOUT},
                                                    {3, VX_INACTIVITY_TIMEOUT},
                                                    {20, VX_INACTIVITY_TIMEOUT},
                                                    {whole.size() - 1, VX_INACTIVITY_TIMEOUT}};
  for (const auto& [length, status] : rows) {
    send(whole.substr(0, length));
    EXPECT_EQ(read(id_, 5).status, status) << length;
    EXPECT_EQ(read(id_, 0).status, VX_INVALID_ASSOCIATION_ID);
    id_ = -1;
    connect("All");
  }
  // The same while a message is being continued.
  send(whole.substr(0, command + 112 + 6));
  Read got = read(id_, 5, 0x00080018);
  ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Continue_Read_Message(id_, &got.id), VX_INACTIVITY_TIMEOUT);
  EXPECT_EQ(got.id, -1);
  id_ = -1;
  VX_Free_Message(&sent);
}

TEST_F(ReceiveTest, EndsOfTheAssociation) {
  int32_t sent = sample();
  const Bytes whole = cut(3, data_set(sent), 50);
  const Bytes abort = pdu(7, Bytes(4, '\0'));
  const std::size_t command = one_pdu(3, false, true, store_command(kCt)).size();
  struct Row {
    const char* what;
    Bytes bytes;
    bool hang_up;
    VX_STATUS status;
  };
  const Row rows[] = {
      {"release between messages", kReleaseRequest, false, VX_ASSOCIATION_CLOSED},
      {"release behind the command", whole.substr(0, command) + kReleaseRequest, false,
       VX_ASSOCIATION_CLOSED},
      {"release inside an element", whole.substr(0, command + 62) + kReleaseRequest, false,
       VX_ASSOCIATION_CLOSED},
      {"release inside the command",
       one_pdu(3, false, false, store_command(kCt).substr(0, 30)) + kReleaseRequest, false,
       VX_ASSOCIATION_CLOSED},
      {"abort between messages", abort, false, VX_ASSOCIATION_ABORTED},
      {"abort inside an element", whole.substr(0, command + 62) + abort, false, VX_ASSOCIATION_ABORTED},
      {"hang-up between messages", "", true, VX_NETWORK_SHUT_DOWN},
      {"hang-up inside a value", whole.substr(0, command + 20), true, VX_NETWORK_SHUT_DOWN},
  };
  for (const Row& row : rows) {
    connect("All");
    send(row.bytes);
    if (row.hang_up) peer_->close();
    std::thread closer;
    Pdu got;
    if (row.status == VX_ASSOCIATION_CLOSED) {
      closer = std::thread([&] {
        EXPECT_TRUE(peer_->receive(got)) << row.what;
        peer_->close();
      });
    }
    EXPECT_EQ(read(id_).status, row.status) << row.what;
    EXPECT_EQ(read(id_).status, VX_INVALID_ASSOCIATION_ID) << row.what;
    id_ = -1;
    if (closer.joinable()) {
      closer.join();
      EXPECT_EQ(got.type, kReleaseRp) << row.what;
    }
  }
  VX_Free_Message(&sent);
}

TEST_F(ReceiveTest, MessagesThatAreRefused) {
  const auto command = [](const char* uid, uint32_t field, uint32_t data_type) {
    return command_group({{0x00000002, uid},
                          {0x00000100, little16(field)},
                          {0x00000110, little16(7)},
                          {0x00000800, little16(data_type)},
                          {0x00001000, "1.2"}});
  };
  const Bytes good = store_command(kCt);
  int32_t sent = sample();
  const Bytes data = data_set(sent, EXPLICIT_LITTLE_ENDIAN);
  struct Row {
    Bytes bytes;
    const char* text;
    VX_STATUS status = VX_INVALID_MESSAGE_RECEIVED;
  };
  const Row rows[] = {
      {one_pdu(1, false, true, command(kCt, 0x1234, 0x0101)), "Invalid command (0x1234) in message received"},
      {one_pdu(1, false, true, command_group({{0x00000002, kCt}})), "No command in received message"},
      {one_pdu(1, false, true, command_group({{0x00000100, little16(C_STORE_RQ)}})),
       "No dataset code in received message"},
      {one_pdu(1, false, true, command("1.2.3.99", C_STORE_RQ, 0x0101)),
       "Invalid SOP Class UID (1.2.3.99) received"},
      {one_pdu(1, false, true,
               command_group({{0x00000100, little16(C_STORE_RQ)}, {0x00000800, little16(0)}})),
       "Error Decoding message ID field"},
      {one_pdu(99, false, true, good), "Invalid presentation context in P-DATA PDU received (99)"},
      {one_pdu(1, false, true, command("1.2.840.10008.5.1.4.1.1.4", C_STORE_RQ, 0x0101)),
       "Invalid presentation context in P-DATA PDU received (1) for service STANDARD_MR"},
      {one_pdu(1, false, true, "garbage in place of a command!"), "No command in received message"},
      {one_pdu(3, false, true, good) + one_pdu(3, true, true, data.substr(0, 41) + "\1"),
       "Message received encoded improperly"},
      {one_pdu(3, false, true, good) + one_pdu(1, true, true, data), "Command/dataset contexts different"},
      {one_pdu(3, true, true, data), "Unexpected PDV type on read", VX_SYSTEM_ERROR},
      {one_pdu(3, false, false, good.substr(0, 20)) + one_pdu(1, false, true, good.substr(20)),
       "Context unexpectedly changed", VX_SYSTEM_ERROR},
      {pdu(4, big32(400) + Bytes(10, '\0')), "PDV Lengths don't add up correctly", VX_NETWORK_SHUT_DOWN},
  };
  for (const Row& row : rows) {
    connect("All");
    clear_log();
    send(row.bytes);
    EXPECT_EQ(read(id_).status, row.status) << row.text;
    EXPECT_TRUE(has_log(row.text)) << row.text;
    EXPECT_EQ(read(id_).status, VX_INVALID_ASSOCIATION_ID) << row.text;
    id_ = -1;
  }
  // What does not belong in a command is passed over, on both sides of a cut.
  connect("All");
  clear_log();
  const Bytes more =
      command(kCt, C_STORE_RQ, 0x0101) + element(0x00080058, "1.2") + element(0x00080060, "CT");
  send(one_pdu(1, false, false, more.substr(0, more.size() - 6)) +
       one_pdu(1, false, true, more.substr(more.size() - 6)));
  Read odd = read(id_);
  EXPECT_EQ(odd.status, VX_NORMAL_COMPLETION);
  EXPECT_TRUE(has_log("The command holds (0008,0058) and what is behind it, ignored"));
  EXPECT_EQ(text(odd.id, 0x00080060), "");
  VX_Free_Message(&odd.id);
  // Any context will do where the configuration says so, as long as it was accepted.
  connect("WithEcho");
  set_bool(VX_CFG_ACCEPT_ANY_PRESENTATION_CONTEXT, true);
  send(one_pdu(3, false, true, command(kCt, C_STORE_RQ, 0x0101)));
  Read got = read(id_);
  EXPECT_EQ(got.status, VX_NORMAL_COMPLETION);
  VX_Free_Message(&got.id);
  send(one_pdu(99, false, true, good));
  EXPECT_EQ(read(id_).status, VX_INVALID_MESSAGE_RECEIVED);
  id_ = -1;
  EXPECT_EQ(read(4711, 0, 0x0000FFFF).status, VX_INVALID_TAG);
  VX_Free_Message(&sent);
}

TEST_F(ReceiveTest, VerificationIsAnsweredWhereTheListLacksIt) {
  // The list with the service hands it over.
  connect("WithEcho");
  send(one_pdu(3, false, true, echo_command(21)));
  Read got = read(id_);
  ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
  EXPECT_EQ(got.command, C_ECHO_RQ);
  EXPECT_EQ(got.service, "STANDARD_ECHO");
  VX_Free_Message(&got.id);
  int32_t response = new_message("STANDARD_ECHO", C_ECHO_RSP);
  EXPECT_EQ(VX_Send_Response_Message(id_, 0, response), VX_NORMAL_COMPLETION);
  VX_Free_Message(&response);
  Pdu answer;
  ASSERT_TRUE(peer_->receive(answer));
  EXPECT_NE(answer.body.find(element(0x00000120, little16(21))), Bytes::npos);
  EXPECT_NE(answer.body.find(element(0x00000900, little16(0))), Bytes::npos);
  EXPECT_NE(answer.body.find(element(0x00000002, kEcho)), Bytes::npos);
}

TEST_F(ReceiveTest, ResponsesFindTheirRequests) {
  int32_t request = sample();
  VX_Set_Value_From_String(request, 0x00001000, "1.2.3.4");
  VX_Set_Message_Transfer_Syntax(request, IMPLICIT_LITTLE_ENDIAN);
  ASSERT_EQ(VX_Send_Request_Message(id_, request), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Send_Request_Message(id_, request), VX_NORMAL_COMPLETION) << "no window was negotiated";
  Pdu got;
  uint32_t id = 0;
  VX_Get_Value_To_UInt(request, 0x00000110, &id);
  const auto response = [](uint32_t to, uint32_t status) {
    return one_pdu(1, false, true,
                   command_group({{0x00000100, little16(C_STORE_RSP)},
                                  {0x00000120, little16(to)},
                                  {0x00000800, little16(0x0101)},
                                  {0x00000900, little16(status)}}));
  };
  send(response(id, 0xB000));
  Read answer = read(id_);
  ASSERT_EQ(answer.status, VX_NORMAL_COMPLETION);
  EXPECT_EQ(answer.service, "STANDARD_CT");
  uint32_t status = 0;
  VX_Get_Value_To_UInt(answer.id, 0x00000900, &status);
  EXPECT_EQ(status, 0xB000U);
  VX_Free_Message(&answer.id);
  // One that answers nothing is taken for what its class says, or refused.
  send(response(id, 0) + response(77, 0));
  answer = read(id_);
  EXPECT_EQ(answer.status, VX_NORMAL_COMPLETION) << "the second request";
  VX_Free_Message(&answer.id);
  EXPECT_EQ(read(id_).status, VX_INVALID_MESSAGE_RECEIVED);
  EXPECT_TRUE(has_log("Invalid responding message ID received: 77"));
  id_ = -1;
  VX_Free_Message(&request);
}

TEST_F(ReceiveTest, ADataSetAsAFile) {
  int32_t sent = sample();
  for (const Context& context : kContexts) {
    const Bytes data = data_set(sent, context.syntax);
    send(cut(context.id, data, 60));
    Bytes file;
    const char* service = nullptr;
    uint16_t command = 0;
    ASSERT_EQ(VX_Read_To_Stream(id_, 10, &service, &command, nullptr, &file, take), VX_NORMAL_COMPLETION);
    EXPECT_STREQ(service, "STANDARD_CT");
    EXPECT_EQ(command, C_STORE_RQ);
    ASSERT_EQ(file.back(), '$');
    file.pop_back();
    EXPECT_TRUE(file.ends_with(data));
    // With the head that it lacks it is a file.
    Bytes whole = Bytes(128, '\0') + "DICM" + file;
    int32_t read_back = -1;
    VX_Create_Empty_File(&read_back, "x");
    const auto give = [](const char*, void* user, uint32_t* size, void** bytes, int32_t,
                         int32_t* last) -> VX_STATUS {
      auto& all = *static_cast<Bytes*>(user);
      *size = static_cast<uint32_t>(all.size());
      *bytes = all.data();
      *last = 1;
      return VX_NORMAL_COMPLETION;
    };
    EXPECT_EQ(VX_Open_File(app_, read_back, &whole, give), VX_NORMAL_COMPLETION);
    EXPECT_EQ(text(read_back, 0x00020003), "1.2.3.4");
    EXPECT_EQ(text(read_back, 0x00020016), "THEM");
    EXPECT_EQ(text(read_back, 0x00100010), "Doe^Jane");
    VX_Free_File(&read_back);
    answer();
  }
  VX_Free_Message(&sent);
}

// --- More than one thread ---

TEST_F(ReceiveTest, ASecondThreadIsSentAwayAndAnAbortIsHeard) {
  using Clock = std::chrono::steady_clock;
  for (const int where : {0, 1, 2}) {  // idle, within a PDU, between two PDUs of a message
    connect("All");
    const int32_t id = id_;
    id_ = -1;
    const Bytes whole = cut(3, Bytes(2000, 'x'), 1000);
    if (where != 0) send(whole.substr(0, where == 1 ? whole.size() - 500 : whole.size() - 1012));
    Read result{};
    std::thread reader([&] { result = read(id, -1); });
    ::usleep(200000);
    const auto begin = Clock::now();
    clear_log();
    EXPECT_EQ(read(id, 10).status, VX_SYSTEM_ERROR);
    EXPECT_TRUE(has_log("Function call made when another thread was accessing network"));
    int32_t copy = id;
    EXPECT_EQ(VX_Close_Association(&copy), VX_SYSTEM_ERROR);
    EXPECT_EQ(copy, id);
    int32_t echo = new_message("STANDARD_CT", C_STORE_RQ);
    EXPECT_EQ(VX_Send_Request_Message(id, echo), VX_SYSTEM_ERROR);
    VX_Free_Message(&echo);
    AssocInfo info;
    EXPECT_EQ(VX_Get_Association_Info(id, &info), VX_NORMAL_COMPLETION) << "reports do not mind";
    EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(200));
    EXPECT_EQ(VX_Abort_Association(&copy), VX_NORMAL_COMPLETION);
    EXPECT_EQ(copy, -1);
    reader.join();
    EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(1500));
    EXPECT_EQ(result.status, VX_ASSOCIATION_ABORTED) << where;
    EXPECT_EQ(read(id, 0).status, VX_INVALID_ASSOCIATION_ID);
  }
}

TEST_F(ReceiveTest, AnApplicationThatGoesEndsTheReadsOfOthers) {
  const int32_t id = id_;
  id_ = -1;
  Read result{};
  std::thread reader([&] { result = read(id, -1); });
  ::usleep(200000);
  EXPECT_EQ(VX_Release_Application(&app_), VX_NORMAL_COMPLETION);
  reader.join();
  EXPECT_EQ(result.status, VX_ASSOCIATION_ABORTED);
}

TEST_F(ReceiveTest, ASinkThatRefusesOrFreesTheMessage) {
  int32_t sent = sample();
  const auto free_it = [](int32_t id, void*, uint32_t, void*, int32_t, int32_t) -> VX_STATUS {
    VX_Free_Message(&id);
    return VX_NORMAL_COMPLETION;
  };
  send(cut(3, data_set(sent), 50));
  Read got = read(id_, 10, 0x00080018);
  ASSERT_EQ(got.status, VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Continue_Read_Message_To_Stream(id_, &got.id, nullptr, free_it), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Free_Message(&got.id), VX_INVALID_MESSAGE_ID);
  send(cut(3, data_set(sent), 50));
  got = read(id_, 10, 0x00080018);
  ASSERT_EQ(got.status, VX_NORMAL_COMPLETION) << "the association stands";
  const auto refuse = [](int32_t id, void*, uint32_t, void*, int32_t, int32_t) -> VX_STATUS {
    VX_Free_Message(&id);
    return VX_CANNOT_COMPLY;
  };
  EXPECT_EQ(VX_Continue_Read_Message_To_Stream(id_, &got.id, nullptr, refuse), VX_CALLBACK_CANNOT_COMPLY);
  EXPECT_EQ(got.id, -1);
  EXPECT_EQ(read(id_).status, VX_INVALID_ASSOCIATION_ID);
  id_ = -1;
  VX_Free_Message(&sent);
}

}  // namespace
}  // namespace vx::test
