// What leaves: command groups, fragments, windows; against a peer that takes everything down.
#include <mutex>

#include "peers.h"

namespace vx::test {
namespace {

constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";

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
    const bool no_data = command.find(element(0x00000800, little16(0x0101))) != Bytes::npos;
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
      RawPeer raw = listener_.accept();
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
      ::usleep(10000);
    }
    ADD_FAILURE() << "message " << n << " did not come";
    return {};
  }
  static bool holds(const Bytes& bytes, uint32_t tag, const Bytes& value) {
    return bytes.find(element(tag, value)) != Bytes::npos;
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
  int32_t ct =
      new_message("STANDARD_CT", C_STORE_RQ,
                  {{0x00080016, kCt}, {0x00080018, "1.2.3"}, {0x00001000, "1.2.3"}, {0x00100010, "A^B"}});
  VX_Set_Message_Transfer_Syntax(ct, EXPLICIT_LITTLE_ENDIAN);
  for (const Row& row : rows) {
    // Values below and above what goes out without a copy, and one that ends a fragment to the byte.
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{150}, std::size_t{own - 12}, std::size_t{300001}}) {
      if (row.maximum == 8 && size > 1000) continue;
      VX_Add_Standard_Attribute(ct, 0x7FE00010);
      const Bytes pixels = [size] {
        Bytes bytes(size + size % 2, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 + i / 256);
        return bytes;
      }();
      if (!pixels.empty()) {
        ASSERT_EQ(
            VX_Set_Value_From_Buffer(ct, 0x7FE00010, pixels.data(), static_cast<uint32_t>(pixels.size())),
            VX_NORMAL_COMPLETION);
      }
      messages_.clear();
      start(row.maximum);
      ASSERT_EQ(VX_Send_Request_Message(id_, ct), VX_NORMAL_COMPLETION) << row.maximum;
      const Received got = message(0);
      EXPECT_TRUE(got.good) << row.maximum << " " << size;
      EXPECT_LE(got.longest, row.longest) << row.maximum;
      if (size > 100000) {
        EXPECT_EQ(got.longest, row.longest);
      }
      EXPECT_EQ(got.data, data_set(ct)) << row.maximum << " " << size;
      EXPECT_TRUE(holds(got.command, 0x00000100, little16(C_STORE_RQ)));
      EXPECT_EQ(got.command.substr(8, 4), little32(static_cast<uint32_t>(got.command.size() - 12)));
      VX_Abort_Association(&id_);
      peer_.join();
    }
  }
  start(7);
  EXPECT_EQ(VX_Send_Request_Message(id_, ct), VX_SYSTEM_ERROR) << "no room for data at all";
  VX_Free_Message(&ct);
}

TEST_F(SendTest, CommandGroupsAreMadeComplete) {
  start(16384);
  int32_t echo = new_message("STANDARD_ECHO", C_ECHO_RQ);
  ASSERT_EQ(VX_Send_Request_Message(id_, echo), VX_NORMAL_COMPLETION);
  Received got = message(0);
  uint32_t first_id = 0;
  VX_Get_Value_To_UInt(echo, 0x00000110, &first_id);
  EXPECT_EQ(got.command, command_group({{0x00000002, "1.2.840.10008.1.1"},
                                        {0x00000100, little16(C_ECHO_RQ)},
                                        {0x00000110, little16(first_id)},
                                        {0x00000800, little16(0x0101)}}));
  EXPECT_TRUE(got.data.empty());
  EXPECT_EQ(got.context, 5);

  // The same message again keeps its ID; a new one gets the next.
  ASSERT_EQ(VX_Send_Request_Message(id_, echo), VX_NORMAL_COMPLETION);
  EXPECT_EQ(message(1).command, got.command);
  int32_t find = new_message("STUDY_ROOT_QR_FIND", C_FIND_RQ, {{0x00100020, "X"}, {0x00080052, "STUDY"}});
  ASSERT_EQ(VX_Send_Request_Message(id_, find), VX_NORMAL_COMPLETION);
  got = message(2);
  EXPECT_TRUE(holds(got.command, 0x00000110, little16(first_id + 1)));
  EXPECT_TRUE(holds(got.command, 0x00000700, little16(0)));
  EXPECT_TRUE(holds(got.command, 0x00000800, little16(0)));
  EXPECT_EQ(got.data, data_set(find, IMPLICIT_LITTLE_ENDIAN));

  // A C-CANCEL-RQ names the oldest request, and is none itself.
  int32_t cancel = new_message("STUDY_ROOT_QR_FIND", C_CANCEL_RQ);
  ASSERT_EQ(VX_Send_Request_Message(id_, cancel), VX_NORMAL_COMPLETION);
  got = message(3);
  EXPECT_TRUE(holds(got.command, 0x00000120, little16(first_id)));
  EXPECT_EQ(got.command.find(little16(0) + little16(0x0110)), Bytes::npos);

  int32_t move = new_message("STUDY_ROOT_QR_MOVE", C_MOVE_RQ, {{0x00100020, "X"}});
  EXPECT_EQ(VX_Send_Request_Message(id_, move), VX_REQUIRED_ATTRIBUTE_MISSING);
  EXPECT_TRUE(has_log("Required attribute (0000,0600) missing"));
  int32_t store = new_message("STANDARD_CT", C_STORE_RQ, {{0x00100020, "X"}});
  EXPECT_EQ(VX_Send_Request_Message(id_, store), VX_REQUIRED_ATTRIBUTE_MISSING) << "no instance";
  int32_t response = new_message("STANDARD_CT", C_STORE_RSP);
  EXPECT_EQ(VX_Send_Response_Message(id_, 0, response), VX_REQUIRED_ATTRIBUTE_MISSING) << "nothing to answer";
  int32_t mr = new_message("STANDARD_MR", C_STORE_RQ);
  EXPECT_EQ(VX_Send_Request_Message(id_, mr), VX_UNACCEPTABLE_SERVICE);
  EXPECT_EQ(VX_Send_Request_Message(id_, 99), VX_INVALID_MESSAGE_ID);
  EXPECT_EQ(VX_Send_Request_Message(4711, echo), VX_INVALID_ASSOCIATION_ID);
  for (int32_t* id : {&echo, &find, &cancel, &move, &store, &response, &mr}) VX_Free_Message(id);
}

TEST_F(SendTest, TheSyntaxOfTheContextIsUsed) {
  start(16384);
  int32_t ct = new_message("STANDARD_CT", C_STORE_RQ, {{0x00001000, "1.2.3"}, {0x00080060, "CT"}});
  VX_Add_Standard_Attribute(ct, 0x00280010);
  VX_Set_Value_From_UInt(ct, 0x00280010, 258);
  ASSERT_EQ(VX_Set_Message_Transfer_Syntax(ct, EXPLICIT_BIG_ENDIAN), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Send_Request_Message(id_, ct), VX_NORMAL_COMPLETION);
  EXPECT_EQ(message(0).context, 3);
  EXPECT_EQ(message(0).data, data_set(ct, EXPLICIT_BIG_ENDIAN));
  VX_Reset_Message_Transfer_Syntax(ct);
  ASSERT_EQ(VX_Send_Request_Message_For_Service(id_, ct, "STANDARD_CT"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(message(1).context, 1);
  EXPECT_EQ(message(1).data, data_set(ct, EXPLICIT_LITTLE_ENDIAN));
  EXPECT_EQ(VX_Send_Request_Message_For_Service(id_, ct, "NOBODY"), VX_UNACCEPTABLE_SERVICE);
  VX_Set_Message_Transfer_Syntax(ct, RLE);
  EXPECT_EQ(VX_Send_Request_Message(id_, ct), VX_UNACCEPTABLE_SERVICE);
  VX_Free_Message(&ct);
}

// A file in memory, handed out in pieces, that can be asked to go on from an offset.
struct File {
  Bytes bytes;
  std::size_t piece;
  std::size_t at = 0;
  int resumed = 0;

  static VX_STATUS give(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                        void** data, int32_t first, int32_t* last) {
    auto& file = *static_cast<File*>(user);
    if (request == VX_REQUEST_DATA_AT_OFFSET) {
      file.at = *size;
      ++file.resumed;
    } else if (first != 0) {
      file.at = 0;
    }
    const std::size_t part = std::min(file.piece, file.bytes.size() - file.at);
    *data = file.bytes.data() + file.at;
    *size = static_cast<uint32_t>(part);
    file.at += part;
    *last = file.at == file.bytes.size() ? 1 : 0;
    return VX_NORMAL_COMPLETION;
  }
};

Bytes file_of(int32_t message, VX_TRANSFER_SYNTAX syntax) {
  int32_t copy = -1;
  EXPECT_EQ(VX_Create_Empty_File(&copy, "x"), VX_NORMAL_COMPLETION);
  char uid[80];
  VX_Get_Transfer_Syntax_From_Enum(syntax, uid, sizeof uid);
  Bytes meta;
  const auto put = [&](const char* vr, uint32_t tag, Bytes value) {
    if (value.size() % 2 != 0) value += '\0';
    meta += little16(tag >> 16) + little16(tag) + vr + little16(static_cast<uint32_t>(value.size())) + value;
  };
  put("UI", 0x00020002, kCt);
  put("UI", 0x00020003, "1.2.3.4");
  put("UI", 0x00020010, uid);
  VX_Free_File(&copy);
  Bytes data;
  const auto take = [](int32_t, void* user, uint32_t size, void* bytes, int32_t, int32_t) -> VX_STATUS {
    static_cast<Bytes*>(user)->append(static_cast<const char*>(bytes), size);
    return VX_NORMAL_COMPLETION;
  };
  EXPECT_EQ(VX_Message_To_Stream(message, 0x00010000, 0xFFFFFFFF, syntax, &data, take), VX_NORMAL_COMPLETION);
  return Bytes(128, '\0') + "DICM" + little16(2) + little16(0) + "UL" + little16(4) +
         little32(static_cast<uint32_t>(meta.size())) + meta + data;
}

TEST_F(SendTest, ADataSetThatTheApplicationHasEncoded) {
  make_list("Stored", {{"STANDARD_CT", {EXPLICIT_LITTLE_ENDIAN}},
                       {"STANDARD_CT", {EXPLICIT_BIG_ENDIAN}},
                       {"STANDARD_CT", {DEFLATED_EXPLICIT_LITTLE_ENDIAN}}});
  int32_t ct =
      new_message("STANDARD_CT", C_STORE_RQ,
                  {{0x00080016, kCt}, {0x00080018, "1.2.3.4"}, {0x00100010, "A^B"}, {0x00080060, "CT"}});
  VX_Add_Standard_Attribute(ct, 0x7FE00010);
  const Bytes pixels(20000, '\5');
  VX_Set_Value_From_Buffer(ct, 0x7FE00010, pixels.data(), 20000);
  start(4096, "Stored");
  std::size_t count = 0;
  for (const VX_TRANSFER_SYNTAX syntax :
       {EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN, DEFLATED_EXPLICIT_LITTLE_ENDIAN}) {
    for (const std::size_t piece : {std::size_t{2}, std::size_t{500}, std::size_t{100000}}) {
      File file{file_of(ct, syntax), piece};
      const VX_STATUS status = count % 2 == 0
                                   ? VX_Send_Request(id_, 0, &file, File::give)
                                   : VX_Send_Request_For_Service(id_, "STANDARD_CT", 0, &file, File::give);
      ASSERT_EQ(status, VX_NORMAL_COMPLETION) << syntax << " " << piece;
      EXPECT_EQ(file.resumed, 1);
      const Received got = message(count++);
      EXPECT_TRUE(got.good);
      EXPECT_EQ(got.data, data_set(ct, syntax)) << syntax << " " << piece;
      EXPECT_TRUE(holds(got.command, 0x00000002, kCt));
      EXPECT_TRUE(holds(got.command, 0x00001000, "1.2.3.4"));
    }
  }
  File nothing{"", 1};
  EXPECT_NE(VX_Send_Request(id_, 0, &nothing, File::give), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Send_Request(id_, 0, &nothing, nullptr), VX_NULL_POINTER_PARM);
  File again{file_of(ct, EXPLICIT_LITTLE_ENDIAN), 1000};
  EXPECT_EQ(VX_Send_Request(id_, 0, &again, File::give), VX_NORMAL_COMPLETION) << "the association stands";
  VX_Free_Message(&ct);
}

TEST_F(SendTest, TheWindowIsKept) {
  make_list("Async", {{"STUDY_ROOT_QR_FIND", {IMPLICIT_LITTLE_ENDIAN}}}, 3, 1);
  start(16384, "Async");
  int32_t cancel = new_message("STUDY_ROOT_QR_FIND", C_CANCEL_RQ);
  for (int i = 0; i < 5; ++i) {
    int32_t find = new_message("STUDY_ROOT_QR_FIND", C_FIND_RQ, {{0x00100020, "X"}});
    EXPECT_EQ(VX_Send_Request_Message(id_, find), i < 3 ? VX_NORMAL_COMPLETION : VX_MAX_OPERATIONS_EXCEEDED)
        << i;
    VX_Free_Message(&find);
  }
  EXPECT_EQ(VX_Send_Request_Message(id_, cancel), VX_NORMAL_COMPLETION) << "no operation of its own";
  message(3);
  EXPECT_EQ(messages_.size(), 4U) << "nothing of the others left";
  VX_Free_Message(&cancel);
}

TEST_F(SendTest, ABrokenConnectionEndsTheAssociation) {
  peer_ = std::thread([this] {
    RawPeer raw = listener_.accept();
    raw.accept(16384);
  });
  id_ = open("All", listener_.port());
  peer_.join();
  int32_t echo = new_message("STANDARD_ECHO", C_ECHO_RQ);
  VX_STATUS status = VX_NORMAL_COMPLETION;
  for (int i = 0; i < 100 && status == VX_NORMAL_COMPLETION; ++i) {
    status = VX_Send_Request_Message(id_, echo);
    ::usleep(1000);
  }
  EXPECT_EQ(status, VX_ASSOCIATION_ABORTED);
  EXPECT_EQ(VX_Send_Request_Message(id_, echo), VX_INVALID_ASSOCIATION_ID);
  id_ = -1;
  VX_Free_Message(&echo);
}

}  // namespace
}  // namespace vx::test
