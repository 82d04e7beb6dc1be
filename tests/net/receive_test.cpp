// Reading messages from a peer that sends what it is told to, however it is cut.
#include <algorithm>

#include "net/peers.h"

namespace vx::test {
namespace {

// The contexts of the list, in its order.
struct Context {
  uint8_t id;
  VX_TRANSFER_SYNTAX syntax;
};
constexpr Context kContexts[] = {{1, IMPLICIT_LITTLE_ENDIAN},
                                 {3, EXPLICIT_LITTLE_ENDIAN},
                                 {5, EXPLICIT_BIG_ENDIAN},
                                 {7, DEFLATED_EXPLICIT_LITTLE_ENDIAN}};

// A syntax in which data sets can be compared: without VRs a private value is only bytes.
VX_TRANSFER_SYNTAX plain(VX_TRANSFER_SYNTAX syntax) {
  return syntax == DEFLATED_EXPLICIT_LITTLE_ENDIAN ? EXPLICIT_LITTLE_ENDIAN : syntax;
}

Bytes command_pdu(uint8_t context, const Bytes& command = store_command()) {
  return data_pdu(context, kCommand | kLast, command);
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
    disconnect();
    NetTest::TearDown();
  }
  void disconnect() {
    peer_.close();
    if (id_ >= 0) VX_Abort_Association(&id_);
  }
  void connect(const char* list) {
    disconnect();
    std::thread acceptor([this] {
      peer_ = listener_.accept();
      peer_.accept(16384);
    });
    id_ = open(list, listener_.port());
    acceptor.join();
    ASSERT_GE(id_, 0);
  }
  // That the association has ended with the last read.
  void expect_gone() {
    EXPECT_EQ(read(id_, 0).status, VX_INVALID_ASSOCIATION_ID);
    id_ = -1;
  }

  // A small object with a sequence, a private block and a large value.
  static Message make_sample() {
    Message message = new_message("STANDARD_CT", C_STORE_RQ,
                                  {{0x00080016, kCt},
                                   {0x00080018, "1.2.3.4"},
                                   {0x00080060, "CT"},
                                   {0x00100010, "Doe^Jane"},
                                   {0x0020000D, "1.2.3"},
                                   {0x00280010, "258"}});
    VX_Add_Private_Block(message, "ACME 1.0", 0x0019);
    for (const uint8_t element : {uint8_t{0x10}, uint8_t{0x11}}) {
      VX_Add_Private_Attribute(message, "ACME 1.0", 0x0019, element, VX_VR_LO);
      EXPECT_OK(VX_Set_pValue_From_String(message, "ACME 1.0", 0x0019, element, "private"));
    }
    int32_t item = -1;
    VX_Open_Empty_Item(&item);
    set_texts(item, {{0x00081155, "1.5"}});
    VX_Add_Standard_Attribute(message, 0x00081140);
    EXPECT_OK(VX_Set_Value_From_Int(message, 0x00081140, item));
    set_pixels(message, Bytes(64, '\7'));
    return message;
  }
  // A message in P-DATA-TF PDUs, its data set cut into values of `part` bytes, `together` of them to a PDU.
  static Bytes cut(uint8_t context, const Bytes& data, std::size_t part, std::size_t together = 1) {
    Bytes out = command_pdu(context);
    Bytes body;
    std::size_t count = 0;
    for (std::size_t at = 0; at < data.size(); at += part) {
      const bool last = at + part >= data.size();
      body += pdv(context, last ? kLast : kData, data.substr(at, part));
      if (++count % together != 0 && !last) continue;
      out += pdu(4, body);
      body.clear();
    }
    return out;
  }
  void answer() {
    EXPECT_OK(respond(id_, "STANDARD_CT", C_STORE_RSP));
    peer_.receive();
  }

  RawListener listener_;
  RawPeer peer_;
  int32_t id_ = -1;
};

VX_STATUS take(int32_t, void* user, uint32_t size, void* data, int32_t first, int32_t last) {
  auto& bytes = *static_cast<Bytes*>(user);
  EXPECT_EQ(first != 0, bytes.empty());
  bytes.append(static_cast<const char*>(data), size);
  if (last != 0) bytes += '$';
  return VX_NORMAL_COMPLETION;
}

// Stops before, at and behind every tag, with the data cut at every place.
TEST_F(ReceiveTest, StopsAndGoesOnAtEveryCut) {
  const Message sent = make_sample();
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
      SCOPED_TRACE(testing::Message()
                   << context.syntax << " " << first << std::hex << " " << stop << " " << second);
      peer_.send(command_pdu(context.id) + data_pdu(context.id, kData, data.substr(0, first)) +
                 data_pdu(context.id, kLast, data.substr(first)));
      Read got = read(id_, 10, stop);
      ASSERT_OK(got.status);
      EXPECT_EQ(text(got.id, 0x00100010), stop >= 0x00100010 ? "Doe^Jane" : "");
      EXPECT_EQ(read(id_).status, VX_MUST_CONTINUE_BEFORE_READING);
      // Nothing is left to go past behind the last tag; a read of the command alone has begun nothing.
      const bool behind = stop < 0x7FE00010 && second < (stop == 0x00010000 ? stop : next_tag(stop));
      EXPECT_EQ(VX_Continue_Read_Message_To_Tag(id_, second, got.id.id()),
                behind ? VX_INVALID_TAG : VX_NORMAL_COMPLETION);
      EXPECT_EQ(text(got.id, 0x00100010), std::max(stop, second) >= 0x00100010 ? "Doe^Jane" : "");
      ASSERT_OK(VX_Continue_Read_Message(id_, got.id.id()));
      EXPECT_EQ(data_set(got.id, plain(context.syntax)), expected);
      EXPECT_EQ(VX_Continue_Read_Message(id_, got.id.id()), VX_INVALID_MESSAGE_ID);
      answer();
    }
  }
}

// In every syntax and cut, with one value or three to a PDU; the rest behind a stop comes as a stream.
TEST_F(ReceiveTest, WholeAndAsAStream) {
  constexpr uint32_t kNoStop = 0xFFFFFFFF;
  const Message sent = make_sample();
  for (const Context& context : kContexts) {
    const Bytes data = data_set(sent, context.syntax);
    const Bytes inflated = data_set(sent, plain(context.syntax));
    for (const uint32_t stop : {kNoStop, 0x00010000U, 0x00080018U, 0x00191010U, 0x7FE00010U}) {
      for (const std::size_t part :
           {std::size_t{2}, std::size_t{4}, std::size_t{14}, std::size_t{50}, data.size()}) {
        SCOPED_TRACE(testing::Message() << context.syntax << std::hex << " " << stop << " " << part);
        peer_.send(cut(context.id, data, part, part % 4 == 2 ? 3 : 1));
        Read got = read(id_, 10, stop);
        ASSERT_OK(got.status);
        VX_TRANSFER_SYNTAX syntax = 0;
        EXPECT_OK(VX_Get_Message_Transfer_Syntax(got.id, &syntax));
        EXPECT_EQ(joined(got.service, got.command, syntax),
                  joined("STANDARD_CT", C_STORE_RQ, context.syntax));
        // What was decoded, and the rest, are the whole.
        const bool raw = stop == 0x00010000;
        Bytes rest = stop == kNoStop ? "$" : "";
        ASSERT_OK(!rest.empty() ? VX_NORMAL_COMPLETION
                                : VX_Continue_Read_Message_To_Stream(id_, got.id.id(), &rest, take));
        const Bytes front = raw ? "" : data_set(got.id, plain(context.syntax));
        EXPECT_EQ(front + rest, (raw ? data : inflated) + '$');
        answer();
      }
    }
  }
}

TEST_F(ReceiveTest, AMessageThatIsDroppedHalfwayIsPassedOver) {
  const Message sent = make_sample();
  const Bytes data = data_set(sent, EXPLICIT_LITTLE_ENDIAN);
  for (const uint32_t stop : {0x00010000U, 0x00080018U, 0x7FE10000U}) {
    peer_.send(cut(3, data, 40));
    ASSERT_OK(read(id_, 10, stop).status);
    peer_.send(cut(3, data, 1000));
    const Read got = read(id_);
    ASSERT_OK(got.status) << std::hex << stop;
    EXPECT_EQ(data_set(got.id), data);
    answer();
    answer();
  }
}

TEST_F(ReceiveTest, TimeOuts) {
  const auto begun = Clock::now();
  EXPECT_EQ(read(id_, 0).status, VX_TIMEOUT);
  EXPECT_LT(seconds_since(begun), 0.5);
  EXPECT_EQ(read(id_, 1).status, VX_TIMEOUT);
  set_int(VX_CFG_INACTIVITY_TIMEOUT, 1);
  const Bytes whole = cut(3, data_set(make_sample()), 100);
  // Silence within a message: between two PDUs, behind a header, and within one.
  const std::size_t command = command_pdu(3).size();
  for (const std::size_t length : {command, command + 6, std::size_t{3}, std::size_t{20}, whole.size() - 1}) {
    peer_.send(whole.substr(0, length));
    EXPECT_EQ(read(id_, 5).status, VX_INACTIVITY_TIMEOUT) << length;
    expect_gone();
    connect("All");
  }
  // The same while a message is being continued.
  peer_.send(whole.substr(0, command + 112 + 6));
  Read got = read(id_, 5, 0x00080018);
  ASSERT_OK(got.status);
  EXPECT_EQ(VX_Continue_Read_Message(id_, got.id.id()), VX_INACTIVITY_TIMEOUT);
  EXPECT_EQ(got.id, -1);
  expect_gone();
}

TEST_F(ReceiveTest, EndsOfTheAssociation) {
  const Bytes whole = cut(3, data_set(make_sample()), 50);
  const Bytes abort = short_pdu(kAbort);
  const std::size_t command = command_pdu(3).size();
  const struct {
    const char* what;
    Bytes bytes;
    VX_STATUS status;
  } rows[] = {
      {"release between messages", kReleaseRequest, VX_ASSOCIATION_CLOSED},
      {"release behind the command", whole.substr(0, command) + kReleaseRequest, VX_ASSOCIATION_CLOSED},
      {"release inside an element", whole.substr(0, command + 62) + kReleaseRequest, VX_ASSOCIATION_CLOSED},
      {"release inside the command", data_pdu(3, kCommand, store_command().substr(0, 30)) + kReleaseRequest,
       VX_ASSOCIATION_CLOSED},
      {"abort between messages", abort, VX_ASSOCIATION_ABORTED},
      {"abort inside an element", whole.substr(0, command + 62) + abort, VX_ASSOCIATION_ABORTED},
      {"hang-up between messages", "", VX_NETWORK_SHUT_DOWN},
      {"hang-up inside a value", whole.substr(0, command + 20), VX_NETWORK_SHUT_DOWN},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    connect("All");
    peer_.send(row.bytes);
    peer_.end();
    EXPECT_EQ(read(id_).status, row.status);
    expect_gone();
    EXPECT_EQ(peer_.heard(), row.status == VX_ASSOCIATION_CLOSED ? short_pdu(kReleaseRp) : "");
  }
  EXPECT_TRUE(has_log("Transport unexpectedly closed"));
}

TEST_F(ReceiveTest, MessagesThatAreRefused) {
  const Bytes good = store_command();
  const Bytes data = data_set(make_sample());
  struct Row {
    Bytes bytes;
    const char* text;
    VX_STATUS status = VX_INVALID_MESSAGE_RECEIVED;
  };
  const Row rows[] = {
      {command_pdu(1, store_command(kCt, 0x1234)), "Invalid command (0x1234) in message received"},
      {command_pdu(1, command_group({{0x00000002, kCt}})), "No command in received message"},
      {command_pdu(1, command_group({{0x00000100, le16(C_STORE_RQ)}})),
       "No dataset code in received message"},
      {command_pdu(1, store_command("1.2.3.99")), "Invalid SOP Class UID (1.2.3.99) received"},
      {command_pdu(1, command_group({{0x00000100, le16(C_STORE_RQ)}, {0x00000800, le16(0)}})),
       "Error Decoding message ID field"},
      {command_pdu(99), "Invalid presentation context in P-DATA PDU received (99)"},
      {command_pdu(1, store_command(kMr)),
       "Invalid presentation context in P-DATA PDU received (1) for service STANDARD_MR"},
      {command_pdu(1, "garbage in place of a command!"), "No command in received message"},
      {command_pdu(3) + data_pdu(3, kLast, data.substr(0, 41) + "\1"), "Message received encoded improperly"},
      {command_pdu(3) + data_pdu(1, kLast, data), "Command/dataset contexts different"},
      {data_pdu(3, kLast, data), "Unexpected PDV type on read", VX_SYSTEM_ERROR},
      {data_pdu(3, kCommand, good.substr(0, 20)) + command_pdu(1, good.substr(20)),
       "Context unexpectedly changed", VX_SYSTEM_ERROR},
      {pdu(4, be32(400) + Bytes(10, '\0')), "PDV Lengths don't add up correctly", VX_NETWORK_SHUT_DOWN},
  };
  for (const Row& row : rows) {
    connect("All");
    clear_log();
    peer_.send(row.bytes);
    EXPECT_EQ(read(id_).status, row.status) << row.text;
    EXPECT_TRUE(has_log(row.text)) << row.text;
    expect_gone();
  }
  // What does not belong in a command is passed over, on both sides of a cut.
  connect("All");
  clear_log();
  const Bytes more =
      store_command(kCt, C_STORE_RQ, kNoDataSet) + element(0x00080058, "1.2") + element(0x00080060, "CT");
  peer_.send(data_pdu(1, kCommand, more.substr(0, more.size() - 6)) +
             command_pdu(1, more.substr(more.size() - 6)));
  const Read odd = read(id_);
  EXPECT_OK(odd.status);
  EXPECT_TRUE(has_log("The command holds (0008,0058) and what is behind it, ignored"));
  EXPECT_EQ(text(odd.id, 0x00080060), "");
  // Any context will do where the configuration says so, as long as it was accepted.
  connect("WithEcho");
  set_bool(VX_CFG_ACCEPT_ANY_PRESENTATION_CONTEXT, true);
  peer_.send(command_pdu(3, store_command(kCt, C_STORE_RQ, kNoDataSet)) + command_pdu(99));
  EXPECT_OK(read(id_).status);
  EXPECT_EQ(read(id_).status, VX_INVALID_MESSAGE_RECEIVED);
  id_ = -1;
  EXPECT_EQ(read(4711, 0, 0x0000FFFF).status, VX_INVALID_TAG);
}

TEST_F(ReceiveTest, ResponsesFindTheirRequests) {
  const Message request = make_sample();
  set_texts(request, {{0x00001000, "1.2.3.4"}});
  VX_Set_Message_Transfer_Syntax(request, IMPLICIT_LITTLE_ENDIAN);
  ASSERT_OK(VX_Send_Request_Message(id_, request));
  EXPECT_OK(VX_Send_Request_Message(id_, request)) << "no window was negotiated";
  const uint32_t id = number(request, 0x00000110);
  const auto response = [](uint32_t to, uint32_t status) {
    return command_pdu(1, command_group({{0x00000100, le16(C_STORE_RSP)},
                                         {0x00000120, le16(to)},
                                         {0x00000800, le16(kNoDataSet)},
                                         {0x00000900, le16(status)}}));
  };
  peer_.send(response(id, 0xB000) + response(id, 0) + response(77, 0));
  Read answer = read(id_);
  ASSERT_OK(answer.status);
  EXPECT_EQ(answer.service, "STANDARD_CT");
  EXPECT_EQ(number(answer.id, 0x00000900), 0xB000U);
  EXPECT_OK(read(id_).status) << "the second request";
  // One that answers nothing is taken for what its class says, or refused.
  EXPECT_EQ(read(id_).status, VX_INVALID_MESSAGE_RECEIVED);
  EXPECT_TRUE(has_log("Invalid responding message ID received: 77"));
  id_ = -1;
}

TEST_F(ReceiveTest, ADataSetAsAFile) {
  const Message sent = make_sample();
  for (const Context& context : kContexts) {
    const Bytes data = data_set(sent, context.syntax);
    peer_.send(cut(context.id, data, 60));
    Bytes taken;
    const char* service = nullptr;
    uint16_t command = 0;
    ASSERT_OK(VX_Read_To_Stream(id_, 10, &service, &command, nullptr, &taken, take));
    EXPECT_EQ(joined(service, command), joined("STANDARD_CT", C_STORE_RQ));
    EXPECT_TRUE(taken.ends_with(data + '$'));
    Bytes file =
        Bytes(128, '\0') + "DICM" + taken.substr(0, taken.size() - 1);  // with the head that it lacks
    Message read_back;
    VX_Create_Empty_File(read_back.id(), "x");
    EXPECT_OK(VX_Open_File(app_, read_back, &file, give_whole));
    EXPECT_EQ(joined(text(read_back, 0x00020003), text(read_back, 0x00020016), text(read_back, 0x00100010)),
              "1.2.3.4,THEM,Doe^Jane,");
    answer();
  }
}

// --- More than one thread ---

TEST_F(ReceiveTest, ASecondThreadIsSentAwayAndAnAbortIsHeard) {
  const Bytes whole = cut(3, Bytes(2000, 'x'), 1000);
  for (const std::size_t left :
       {whole.size(), std::size_t{500}, std::size_t{1012}}) {  // idle, in a PDU, between two
    connect("All");
    const int32_t id = std::exchange(id_, -1);
    peer_.send(whole.substr(0, whole.size() - left));
    Read result;
    std::thread reader([&] { result = read(id, -1); });
    pause(200);
    const auto begun = Clock::now();
    clear_log();
    EXPECT_EQ(read(id, 10).status, VX_SYSTEM_ERROR);
    EXPECT_TRUE(has_log("Function call made when another thread was accessing network"));
    int32_t copy = id;
    EXPECT_EQ(VX_Close_Association(&copy), VX_SYSTEM_ERROR);
    EXPECT_EQ(copy, id);
    EXPECT_EQ(VX_Send_Request_Message(id, bare("STANDARD_CT", C_STORE_RQ)), VX_SYSTEM_ERROR);
    AssocInfo info;
    EXPECT_OK(VX_Get_Association_Info(id, &info)) << "reports do not mind";
    EXPECT_LT(seconds_since(begun), 0.2);
    EXPECT_OK(VX_Abort_Association(&copy));
    EXPECT_EQ(copy, -1);
    reader.join();
    EXPECT_LT(seconds_since(begun), 1.5);
    EXPECT_EQ(result.status, VX_ASSOCIATION_ABORTED) << left;
    EXPECT_EQ(read(id, 0).status, VX_INVALID_ASSOCIATION_ID);
  }
  // An application that goes ends the reads of others.
  connect("All");
  Read result;
  std::thread reader([&] { result = read(id_, -1); });
  pause(200);
  EXPECT_OK(VX_Release_Application(&app_));
  reader.join();
  EXPECT_EQ(result.status, VX_ASSOCIATION_ABORTED);
  id_ = -1;
}

TEST_F(ReceiveTest, ASinkThatRefusesOrFreesTheMessage) {
  const Bytes whole = cut(3, data_set(make_sample()), 50);
  static VX_STATUS answer_of_sink;
  const auto sink = [](int32_t id, void*, uint32_t, void*, int32_t, int32_t) -> VX_STATUS {
    VX_Free_Message(&id);
    return answer_of_sink;
  };
  for (const VX_STATUS answer : {VX_NORMAL_COMPLETION, VX_CANNOT_COMPLY}) {
    peer_.send(whole);
    Read got = read(id_, 10, 0x00080018);
    ASSERT_OK(got.status) << "the association stands";
    answer_of_sink = answer;
    const bool taken = answer == VX_NORMAL_COMPLETION;
    EXPECT_EQ(VX_Continue_Read_Message_To_Stream(id_, got.id.id(), nullptr, sink),
              taken ? VX_NORMAL_COMPLETION : VX_CALLBACK_CANNOT_COMPLY);
    EXPECT_EQ(VX_Free_Message(got.id.id()), VX_INVALID_MESSAGE_ID);
    EXPECT_EQ(got.id == -1, !taken);
  }
  expect_gone();
}

}  // namespace
}  // namespace vx::test
