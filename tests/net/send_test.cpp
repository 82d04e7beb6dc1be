// What leaves: command groups, fragments, windows; against a peer that takes everything down.
#include <mutex>

#include "net/peers.h"

namespace vx::test {
namespace {

// The parts of the P-DATA-TF PDUs of one message, put together again.
struct Received {
  Bytes command;
  Bytes data;
  uint32_t longest = 0;
  int pdus = 0;
  bool good = true;  // one PDV a PDU, flags where they belong
  uint8_t context = 0;

  bool take(const Pdu& got) {  // true when the message is complete
    longest = std::max(longest, static_cast<uint32_t>(got.body.size()));
    ++pdus;
    const auto byte = [&](std::size_t i) { return static_cast<uint8_t>(got.body[i]); };
    const uint32_t length =
        uint32_t{byte(0)} << 24 | uint32_t{byte(1)} << 16 | uint32_t{byte(2)} << 8 | byte(3);
    good = good && length + 4 == got.body.size() && length % 2 == 0;
    context = byte(4);
    const bool is_command = (byte(5) & 1) != 0;
    const bool last = (byte(5) & 2) != 0;
    (is_command ? command : data) += got.body.substr(6);
    good = good && (is_command ? data.empty() : command_done);
    if (is_command && last) command_done = true;
    const bool no_data = command.find(element(0x00000800, le16(0x0101))) != Bytes::npos;
    return last && (!is_command || no_data);
  }
  bool command_done = false;
};

class SendTest : public NetTest {
 protected:
  void SetUp() override {
    NetTest::SetUp();
    make_list("All", {{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}},
                      {"STANDARD_CT", {EXPLICIT_BIG_ENDIAN}},
                      {"STANDARD_ECHO", {IMPLICIT_LITTLE_ENDIAN}},
                      {"STUDY_ROOT_QR_FIND", {IMPLICIT_LITTLE_ENDIAN}},
                      {"STUDY_ROOT_QR_MOVE", {IMPLICIT_LITTLE_ENDIAN}}});
  }
  void TearDown() override {
    if (id_ >= 0) VX_Abort_Association(&id_);
    if (peer_.joinable()) peer_.join();
    NetTest::TearDown();
  }
  void start(uint32_t maximum, const char* list = "All") {
    peer_ = std::thread([this, maximum] {
      const RawPeer raw = listener_.accept();
      raw.accept(maximum);
      Received now;
      Pdu got;
      while (raw.receive(got) && got.type == kPDataTf) {
        if (!now.take(got)) continue;
        const std::lock_guard guard(mutex_);
        messages_.push_back(now);
        now = Received{};
      }
    });
    id_ = open(list, listener_.port());
  }
  // The n-th message as received.
  Received message(std::size_t n) {
    for (int tries = 0; tries < 500; ++tries) {
      {
        const std::lock_guard guard(mutex_);
        if (messages_.size() > n) return messages_[n];
      }
      pause(10);
    }
    ADD_FAILURE() << "message " << n << " did not come";
    return {};
  }
  static bool holds(const Bytes& bytes, uint32_t tag, const Bytes& value) {
    return bytes.find(element(tag, value)) != Bytes::npos;
  }
  // A Part 10 file of a message.
  static Bytes file_of(int32_t message, VX_TRANSFER_SYNTAX syntax) {
    char uid[80];
    VX_Get_Transfer_Syntax_From_Enum(syntax, uid, sizeof uid);
    Bytes meta;
    for (auto [tag, value] : Fields{{0x00020002, kCt}, {0x00020003, "1.2.3.4"}, {0x00020010, uid}}) {
      value.resize(value.size() + value.size() % 2);
      meta += le16(tag >> 16) + le16(tag) + "UI" + le16(static_cast<uint32_t>(value.size())) + value;
    }
    return Bytes(128, '\0') + "DICM" + le16(2) + le16(0) + "UL" + le16(4) +
           le32(static_cast<uint32_t>(meta.size())) + meta + data_set(message, syntax);
  }

  RawListener listener_;
  std::thread peer_;
  std::mutex mutex_;
  std::vector<Received> messages_;
  int32_t id_ = -1;
};

TEST_F(SendTest, EveryMaximumLengthIsKept) {
  struct Row {
    uint32_t maximum;
    uint32_t longest;
  };
  const uint32_t own = 64234;
  const Row rows[] = {{0, own - 6},       {8, 8},           {137, 136}, {4097, 4096}, {16384, 16384},
                      {own - 6, own - 6}, {200000, own - 6}};
  const Message ct =
      new_message("STANDARD_CT", C_STORE_RQ,
                  {{0x00080016, kCt}, {0x00080018, "1.2.3"}, {0x00001000, "1.2.3"}, {0x00100010, "A^B"}});
  VX_Set_Message_Transfer_Syntax(ct, EXPLICIT_LITTLE_ENDIAN);
  for (const Row& row : rows) {
    // Values below and above what goes out without a copy, and one that ends a fragment to the byte.
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{150}, std::size_t{own - 12}, std::size_t{300002}}) {
      if (row.maximum == 8 && size > 1000) continue;
      SCOPED_TRACE(testing::Message() << row.maximum << " " << size);
      Bytes pixels(size, '\0');
      for (std::size_t i = 0; i < size; ++i) pixels[i] = static_cast<char>(i * 31 + i / 256);
      if (size > 0) set_pixels(ct, pixels);
      messages_.clear();
      start(row.maximum);
      ASSERT_OK(VX_Send_Request_Message(id_, ct));
      const Received got = message(0);
      EXPECT_TRUE(got.good);
      EXPECT_LE(got.longest, row.longest);
      if (size > 100000) {
        EXPECT_EQ(got.longest, row.longest);
      }
      EXPECT_EQ(got.data, data_set(ct));
      EXPECT_TRUE(holds(got.command, 0x00000100, le16(C_STORE_RQ)));
      EXPECT_EQ(got.command.substr(8, 4), le32(static_cast<uint32_t>(got.command.size() - 12)));
      VX_Abort_Association(&id_);
      peer_.join();
    }
  }
  start(7);
  EXPECT_EQ(VX_Send_Request_Message(id_, ct), VX_SYSTEM_ERROR) << "no room for data at all";
}

TEST_F(SendTest, CommandGroupsAreMadeComplete) {
  start(16384);
  const Message echo = new_message("STANDARD_ECHO", C_ECHO_RQ);
  ASSERT_OK(VX_Send_Request_Message(id_, echo));
  Received got = message(0);
  const uint32_t first_id = number(echo, 0x00000110);
  EXPECT_EQ(got.command, echo_command(first_id));
  EXPECT_TRUE(got.data.empty());
  EXPECT_EQ(got.context, 5);
  // The same message again keeps its ID; a new one gets the next.
  ASSERT_OK(VX_Send_Request_Message(id_, echo));
  EXPECT_EQ(message(1).command, got.command);
  const Message find =
      new_message("STUDY_ROOT_QR_FIND", C_FIND_RQ, {{0x00100020, "X"}, {0x00080052, "STUDY"}});
  ASSERT_OK(VX_Send_Request_Message(id_, find));
  got = message(2);
  EXPECT_TRUE(holds(got.command, 0x00000110, le16(first_id + 1)));
  EXPECT_TRUE(holds(got.command, 0x00000700, le16(0)));
  EXPECT_TRUE(holds(got.command, 0x00000800, le16(0)));
  EXPECT_EQ(got.data, data_set(find, IMPLICIT_LITTLE_ENDIAN));
  // A C-CANCEL-RQ names the oldest request, and is none itself.
  ASSERT_OK(VX_Send_Request_Message(id_, new_message("STUDY_ROOT_QR_FIND", C_CANCEL_RQ)));
  got = message(3);
  EXPECT_TRUE(holds(got.command, 0x00000120, le16(first_id)));
  EXPECT_EQ(got.command.find(le16(0) + le16(0x0110)), Bytes::npos);
  // What is not sent.
  const auto sent = [&](const char* service, uint16_t command) {
    return VX_Send_Request_Message(id_, new_message(service, command, {{0x00100020, "X"}}));
  };
  EXPECT_EQ(sent("STUDY_ROOT_QR_MOVE", C_MOVE_RQ), VX_REQUIRED_ATTRIBUTE_MISSING);
  EXPECT_TRUE(has_log("Required attribute (0000,0600) missing"));
  EXPECT_EQ(sent("STANDARD_CT", C_STORE_RQ), VX_REQUIRED_ATTRIBUTE_MISSING) << "no instance";
  EXPECT_EQ(sent("STANDARD_MR", C_STORE_RQ), VX_UNACCEPTABLE_SERVICE);
  EXPECT_EQ(respond(id_, "STANDARD_CT", C_STORE_RSP), VX_REQUIRED_ATTRIBUTE_MISSING) << "nothing to answer";
  EXPECT_EQ(VX_Send_Request_Message(id_, 99), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Send_Request_Message(4711, echo), VX_INVALID_ASSOCIATION_ID);
}

TEST_F(SendTest, TheSyntaxOfTheContextIsUsed) {
  start(16384);
  const Message ct = new_message("STANDARD_CT", C_STORE_RQ,
                                 {{0x00001000, "1.2.3"}, {0x00080060, "CT"}, {0x00280010, "258"}});
  ASSERT_OK(VX_Set_Message_Transfer_Syntax(ct, EXPLICIT_BIG_ENDIAN));
  ASSERT_OK(VX_Send_Request_Message(id_, ct));
  EXPECT_EQ(message(0).context, 3);
  EXPECT_EQ(message(0).data, data_set(ct, EXPLICIT_BIG_ENDIAN));
  VX_Reset_Message_Transfer_Syntax(ct);
  ASSERT_OK(VX_Send_Request_Message_For_Service(id_, ct, "STANDARD_CT"));
  EXPECT_EQ(message(1).context, 1);
  EXPECT_EQ(message(1).data, data_set(ct, EXPLICIT_LITTLE_ENDIAN));
  EXPECT_EQ(VX_Send_Request_Message_For_Service(id_, ct, "NOBODY"), VX_UNACCEPTABLE_SERVICE);
  VX_Set_Message_Transfer_Syntax(ct, RLE);
  EXPECT_EQ(VX_Send_Request_Message(id_, ct), VX_UNACCEPTABLE_SERVICE);
}

TEST_F(SendTest, ADataSetThatTheApplicationHasEncoded) {
  make_list("Stored", {{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}},
                       {"STANDARD_CT", {EXPLICIT_BIG_ENDIAN}},
                       {"STANDARD_CT", {DEFLATED_EXPLICIT_LITTLE_ENDIAN}}});
  const Message ct =
      new_message("STANDARD_CT", C_STORE_RQ,
                  {{0x00080016, kCt}, {0x00080018, "1.2.3.4"}, {0x00100010, "A^B"}, {0x00080060, "CT"}});
  set_pixels(ct, Bytes(20000, '\5'));
  start(4096, "Stored");
  std::size_t count = 0;
  for (const VX_TRANSFER_SYNTAX syntax :
       {EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN, DEFLATED_EXPLICIT_LITTLE_ENDIAN}) {
    for (const std::size_t piece : {std::size_t{2}, std::size_t{500}, std::size_t{100000}}) {
      SCOPED_TRACE(testing::Message() << syntax << " " << piece);
      Held file{file_of(ct, syntax), piece};
      ASSERT_OK(count % 2 == 0 ? VX_Send_Request(id_, 0, &file, Held::call)
                               : VX_Send_Request_For_Service(id_, "STANDARD_CT", 0, &file, Held::call));
      EXPECT_EQ(file.resumed, 1);
      const Received got = message(count++);
      EXPECT_TRUE(got.good);
      EXPECT_EQ(got.data, data_set(ct, syntax));
      EXPECT_TRUE(holds(got.command, 0x00000002, kCt));
      EXPECT_TRUE(holds(got.command, 0x00001000, "1.2.3.4"));
    }
  }
  Held nothing{"", 1};
  EXPECT_NE(VX_Send_Request(id_, 0, &nothing, Held::call), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Send_Request(id_, 0, &nothing, nullptr), VX_NULL_POINTER_PARM);
  Held again{file_of(ct, EXPLICIT_LITTLE_ENDIAN), 1000};
  EXPECT_OK(VX_Send_Request(id_, 0, &again, Held::call)) << "the association stands";
}

TEST_F(SendTest, ABrokenConnectionEndsTheAssociation) {
  peer_ = std::thread([this] { listener_.accept().accept(16384); });
  id_ = open("All", listener_.port());
  peer_.join();
  const Message echo = new_message("STANDARD_ECHO", C_ECHO_RQ);
  VX_STATUS status = VX_NORMAL_COMPLETION;
  for (int i = 0; i < 100 && status == VX_NORMAL_COMPLETION; ++i) {
    status = VX_Send_Request_Message(id_, echo);
    pause(1);
  }
  EXPECT_EQ(status, VX_ASSOCIATION_ABORTED);
  EXPECT_EQ(VX_Send_Request_Message(id_, echo), VX_INVALID_ASSOCIATION_ID);
  id_ = -1;
}

}  // namespace
}  // namespace vx::test
