#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;

class File : public LibraryTest {
 protected:
  std::string profile_lines() override {
    return "[ASSOC_PARMS]\nIMPLEMENTATION_CLASS_UID = 1.2.3.4\nIMPLEMENTATION_VERSION = TEST_1\n";
  }
  void SetUp() override {
    LibraryTest::SetUp();
    ASSERT_EQ(VX_Register_Application(&app_, "FILES"), VX_NORMAL_COMPLETION);
  }
  static int32_t make(const char* syntax) {
    int32_t id = -1;
    EXPECT_EQ(VX_Create_Empty_File(&id, "name"), VX_NORMAL_COMPLETION);
    if (syntax != nullptr) VX_Set_Value_From_String(id, 0x00020010, syntax);
    VX_Set_Value_From_String(id, 0x00080016, "1.2.840.10008.5.1.4.1.1.7");
    VX_Set_Value_From_String(id, 0x00080018, "1.2.3.4.5");
    VX_Set_Value_From_String(id, 0x00100010, "Doe^J");
    return id;
  }
  static std::string write(int32_t id, int32_t pad = 0, VX_STATUS expected = VX_NORMAL_COMPLETION) {
    Sink sink;
    EXPECT_EQ(VX_Write_File(id, pad, &sink, &file_output), expected);
    return sink.bytes;
  }
  VX_STATUS read(int32_t id, const std::string& stream, std::size_t block = 0) const {
    Source source{stream, block};
    return VX_Open_File(app_, id, &source, &file_input);
  }
  static std::string with_meta(const std::string& meta, const std::string& data_set) {
    return std::string(128, '\0') + "DICM" + meta + data_set;
  }
  int32_t app_ = -1;
};

constexpr const char* kSyntaxes[] = {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2",
                                     "1.2.840.10008.1.2.1.99"};

TEST_F(File, WrittenAndReadInEverySyntax) {
  for (const char* syntax : kSyntaxes) {
    int32_t id = make(syntax);
    std::string preamble(128, 'p');
    EXPECT_EQ(VX_Set_File_Preamble(id, preamble.c_str()), VX_NORMAL_COMPLETION);
    const std::string stream = write(id);
    EXPECT_EQ(stream.substr(0, 132), preamble + "DICM");
    EXPECT_EQ(stream.substr(132, 8), std::string("\2\0\0\0UL\4\0", 8));
    for (const std::size_t block : {0UL, 2UL, 30UL}) {
      int32_t again = -1;
      ASSERT_EQ(VX_Create_Empty_File(&again, "again"), VX_NORMAL_COMPLETION);
      EXPECT_EQ(read(again, stream, block), VX_NORMAL_COMPLETION);
      EXPECT_EQ(text(again, 0x00100010), "Doe^J");
      EXPECT_EQ(text(again, 0x00020002), "1.2.840.10008.5.1.4.1.1.7");
      EXPECT_EQ(text(again, 0x00020003), "1.2.3.4.5");
      EXPECT_EQ(text(again, 0x00020012), "1.2.3.4");
      EXPECT_EQ(text(again, 0x00020013), "TEST_1");
      EXPECT_EQ(bytes(again, 0x00020001), std::string("\0\1", 2));
      EXPECT_EQ(write(again), stream);
      VX_Free_File(&again);
    }
    VX_Free_File(&id);
  }
}

TEST_F(File, TheMetaGroupEndsWhereItEnds) {
  const auto meta = [](const char* syntax, int error, bool length = true) {
    Writer rest;
    std::string uid = syntax;
    uid.resize((uid.size() + 1) & ~std::size_t{1}, '\0');
    rest.element(0x00020010, "UI", uid).element(0x00020013, "SH", "OTHER ");
    Writer all;
    const auto size = static_cast<uint32_t>(static_cast<int>(rest.str().size()) + error);
    if (length) all.header(0x00020000, "UL", 4).u32(size);
    return all.raw(rest.str()).str();
  };
  const std::pair<const char*, VX_TRANSFER_SYNTAX> syntaxes[] = {
      {kSyntaxes[0], IMPLICIT_LITTLE_ENDIAN},
      {kSyntaxes[1], EXPLICIT_LITTLE_ENDIAN},
      {kSyntaxes[2], EXPLICIT_BIG_ENDIAN},
      {kSyntaxes[3], DEFLATED_EXPLICIT_LITTLE_ENDIAN}};
  for (const auto& [uid, syntax] : syntaxes) {
    const Object source;
    VX_Set_Value_From_String(source, 0x00080005, "ISO_IR 100");
    VX_Set_Value_From_String(source, 0x00100020, "ID");
    const std::string data_set = encode(source, syntax, VX_NORMAL_COMPLETION, 0x00080000);
    struct Case {
      const char* what;
      std::string meta;
    };
    const Case cases[] = {{"right", meta(uid, 0)},
                          {"missing", meta(uid, 0, false)},
                          {"short", meta(uid, -14)},
                          {"shorter than the syntax", meta(uid, -40)},
                          {"long", meta(uid, 2000)}};
    for (const Case& c : cases) {
      for (const std::size_t block : {0UL, 2UL}) {
        SCOPED_TRACE(testing::Message() << uid << " " << c.what << " " << block);
        int32_t id = -1;
        VX_Create_Empty_File(&id, "x");
        EXPECT_EQ(read(id, with_meta(c.meta, data_set), block), VX_NORMAL_COMPLETION);
        EXPECT_EQ(text(id, 0x00020013), "OTHER");
        EXPECT_EQ(text(id, 0x00100020), "ID");
        VX_Free_File(&id);
      }
    }
  }
}

TEST_F(File, WhatTheFirstElementTells) {
  const std::string uid("1.2.840.10008.1.2\0", 18);
  const std::string implicit_meta = Writer(IMPLICIT_LITTLE_ENDIAN).element(0x00020010, "", uid).str();
  const std::string data = Writer(IMPLICIT_LITTLE_ENDIAN).element(0x00100020, "", "ID").str();
  for (const std::string& stream : {with_meta(implicit_meta, data), with_meta("", data)}) {
    int32_t id = -1;
    VX_Create_Empty_File(&id, "x");
    EXPECT_EQ(read(id, stream), VX_NORMAL_COMPLETION);
    EXPECT_EQ(text(id, 0x00100020), "ID");
    VX_Free_File(&id);
  }
  set_bool(VX_CFG_REJECT_INVALID_VR, true);
  int32_t id = -1;
  VX_Create_Empty_File(&id, "x");
  EXPECT_EQ(read(id, with_meta(implicit_meta, data)), VX_INVALID_VR_IN_STREAM);
  VX_Free_File(&id);
}

TEST_F(File, Faults) {
  const std::string id_element = Writer().element(0x00100020, "LO", "ID").str();
  struct Case {
    const char* what;
    std::string stream;
    bool force;
    VX_STATUS status;
  };
  std::string no_prefix =
      with_meta(Writer().element(0x00020010, "UI", "1.2.840.10008.1.2.1 ").str(), id_element);
  no_prefix.replace(128, 4, std::string(4, '\0'));
  const Case cases[] = {
      {"empty", "", true, VX_UNEXPECTED_EOD},
      {"131 bytes", std::string(130, 'x'), true, VX_UNEXPECTED_EOD},
      {"no prefix", no_prefix, false, VX_INVALID_FILE},
      {"no prefix, forced", no_prefix, true, VX_NORMAL_COMPLETION},
      {"unknown syntax", with_meta(Writer().element(0x00020010, "UI", "1.2.3.4 ").str(), id_element), true,
       VX_INVALID_TRANSFER_SYNTAX},
      {"null syntax", with_meta(Writer().element(0x00020010, "UI", "").str(), id_element), true,
       VX_INVALID_TRANSFER_SYNTAX},
      {"command group",
       with_meta(Writer().element(0x00020010, "UI", "1.2.840.10008.1.2.1 ").str(),
                 Writer().element(0x00000002, "UI", "1.2 ").str()),
       true, VX_OUT_OF_ORDER_TAG},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    set_bool(VX_CFG_FORCE_DICM_IN_PREFIX, c.force);
    int32_t id = -1;
    VX_Create_Empty_File(&id, "x");
    EXPECT_EQ(read(id, c.stream), c.status);
    VX_Free_File(&id);
  }
  EXPECT_TRUE(has_log("Invalid DICOM file prefix '0000' in 'x'"));
  int32_t id = -1;
  VX_Create_Empty_File(&id, "x");
  EXPECT_EQ(VX_Open_File(-1, id, nullptr, &file_input), VX_INVALID_APPLICATION_ID);
  EXPECT_EQ(VX_Open_File(app_, id + 1, nullptr, &file_input), VX_INVALID_FILE_ID);
  // Blocks of odd length: refused, unless the file is deflated or the configuration takes them.
  const std::string odd =
      with_meta(Writer().element(0x00020010, "UI", "1.2.840.10008.1.2.1 ").str(), id_element + "x");
  EXPECT_EQ(read(id, odd), VX_CALLBACK_DATA_SIZE_UNEVEN);
  set_bool(VX_CFG_ORVEN_OPEN_FILE, true);
  EXPECT_EQ(read(id, odd), VX_UNEXPECTED_EOD);
  VX_Free_File(&id);
}

TEST_F(File, PaddingAndLength) {
  for (const char* syntax : kSyntaxes) {
    const bool deflated = syntax == kSyntaxes[3];
    for (const int32_t pad : {2, 64, 1024}) {
      int32_t id = make(syntax);
      VX_Set_Value_To_NULL(id, 0x0040A730);
      const std::string plain = write(id);
      uint32_t length = 0;
      EXPECT_EQ(VX_Get_File_Length(id, &length), VX_NORMAL_COMPLETION);
      if (!deflated) {
        EXPECT_EQ(length, plain.size());
      }
      const std::string padded = write(id, pad);
      if (deflated) {
        EXPECT_EQ(padded, plain);
        EXPECT_TRUE(has_log("file is not padded"));
      } else {
        EXPECT_EQ(padded.size() % static_cast<std::size_t>(pad), 0U);
        EXPECT_GE(padded.size(), plain.size() + 10);
        EXPECT_LT(padded.size(), plain.size() + 14 + static_cast<std::size_t>(pad));
        EXPECT_EQ(padded.substr(padded.size() - 2), std::string(2, '\0'));
        EXPECT_EQ(write(id, pad), padded);
      }
      VX_Free_File(&id);
    }
  }
  int32_t id = make(kSyntaxes[1]);
  for (const int32_t pad : {3, -2, 1 << 20}) EXPECT_EQ(write(id, pad, VX_INVALID_PAD), "");
  VX_Free_File(&id);
  id = make(nullptr);
  EXPECT_EQ(write(id, 0, VX_INVALID_TRANSFER_SYNTAX), "");
  uint32_t length = 7;
  EXPECT_EQ(VX_Get_File_Length(id, &length), VX_INVALID_TRANSFER_SYNTAX);
  EXPECT_EQ(length, 0U);
  VX_Free_File(&id);
}

TEST_F(File, BecomesAMessageAndBack) {
  int32_t id = make(kSyntaxes[1]);
  EXPECT_EQ(VX_Message_To_File(id, "x"), VX_INVALID_MESSAGE_ID);
  ASSERT_EQ(VX_File_To_Message(id), VX_NORMAL_COMPLETION);
  EXPECT_FALSE(has(id, 0x00020010));
  EXPECT_EQ(text(id, 0x00100010), "Doe^J");
  EXPECT_EQ(VX_File_To_Message(id), VX_INVALID_FILE_ID);
  VX_Set_Value_From_Int(id, 0x00000110, 5);
  ASSERT_EQ(VX_Message_To_File(id, "other"), VX_NORMAL_COMPLETION);
  EXPECT_FALSE(has(id, 0x00000110));
  EXPECT_TRUE(has(id, 0x00020102));
  char name[6];
  EXPECT_EQ(VX_Get_Filename(id, name, 5), VX_BUFFER_TOO_SMALL);
  EXPECT_EQ(VX_Get_Filename(id, name, 6), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(name, "other");
  EXPECT_EQ(VX_Reset_Filename(id, "new"), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Get_Filename(id, name, 6), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(name, "new");
  EXPECT_EQ(VX_Empty_File(id), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(id, 0x00100010), VX_Error_Message(VX_EMPTY_VALUE));
  int32_t freed = id;
  EXPECT_EQ(VX_Free_File(&freed), VX_NORMAL_COMPLETION);
  EXPECT_EQ(freed, -1);
  EXPECT_EQ(VX_Empty_File(id), VX_INVALID_FILE_ID);
  const Object message;
  EXPECT_EQ(VX_Empty_File(message), VX_INVALID_MESSAGE_ID);
}

TEST_F(File, MadeForAService) {
  int32_t id = 5;
  EXPECT_EQ(VX_Create_File(&id, "x", "STANDARD_CT", 0x7777), VX_INVALID_COMMAND);
  EXPECT_EQ(id, -1);
  ASSERT_EQ(VX_Create_File(&id, "x", "NO_SUCH_SERVICE", C_STORE_RQ), VX_NORMAL_COMPLETION);
  const char* name = nullptr;
  uint16_t command = 0;
  EXPECT_EQ(VX_Get_Message_Service(id, &name, &command), VX_NORMAL_COMPLETION);
  EXPECT_STREQ(name, "NO_SUCH_SERVICE");
  EXPECT_EQ(command, C_STORE_RQ);
  EXPECT_TRUE(has(id, 0x00020013));
  char preamble[128];
  EXPECT_EQ(VX_Get_File_Preamble(id, preamble), VX_NORMAL_COMPLETION);
  EXPECT_EQ(std::string(preamble, 128), std::string(128, '\0'));
  VX_Free_File(&id);
  VX_Library_Release();
  ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Create_File(&id, "x", "STANDARD_CT", C_STORE_RQ), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(has(id, 0x00280010));
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x300A00B0, "x"), VX_INVALID_TAG);  // the template closes the table
  VX_Free_File(&id);
}

TEST_F(File, NoTruncationAndNoSingleByteChangeDoesHarm) {
  for (const char* syntax : kSyntaxes) {
    int32_t id = make(syntax);
    const std::string stream = write(id);
    VX_Free_File(&id);
    for (std::size_t at = 0; at < stream.size(); ++at) {
      for (const int change : {-1, 0x01, 0x80, 0xFF}) {
        std::string bad = stream;
        if (change < 0) {
          bad.resize(at & ~std::size_t{1});
        } else {
          bad[at] = static_cast<char>(bad[at] ^ change);
        }
        VX_Create_Empty_File(&id, "x");
        const VX_STATUS status = read(id, bad, at % 2 == 0 ? 0 : 14);
        EXPECT_TRUE(status == VX_NORMAL_COMPLETION || status >= 4000);
        VX_Free_File(&id);
      }
    }
  }
}

}  // namespace
