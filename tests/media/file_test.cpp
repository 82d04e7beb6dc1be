#include "media/media.h"

namespace {

using namespace media;
using support::LibraryTest;

std::string with_meta(const std::string& meta, const std::string& data_set) {
  return std::string(128, '\0') + "DICM" + meta + data_set;
}

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
    EXPECT_EQ(new_file(&id), VX_NORMAL_COMPLETION);
    if (syntax != nullptr) VX_Set_Value_From_String(id, 0x00020010, syntax);
    VX_Set_Value_From_String(id, 0x00080016, "1.2.840.10008.5.1.4.1.1.7");
    VX_Set_Value_From_String(id, 0x00080018, "1.2.3.4.5");
    VX_Set_Value_From_String(id, 0x00100010, "Doe^J");
    return id;
  }
  VX_STATUS read(int32_t id, const std::string& stream, std::size_t block = 0) const {
    return read_file(app_, id, stream, block);
  }
  int32_t app_ = -1;
};

constexpr const char* kSyntaxes[] = {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2",
                                     "1.2.840.10008.1.2.1.99"};

TEST_F(File, WrittenAndReadInEverySyntax) {
  for (const char* syntax : kSyntaxes) {
    const Object id(make(syntax));
    const std::string preamble(128, 'p');
    EXPECT_EQ(VX_Set_File_Preamble(id, preamble.c_str()), VX_NORMAL_COMPLETION);
    const std::string stream = write_file(id);
    EXPECT_EQ(stream.substr(0, 132), preamble + "DICM");
    EXPECT_EQ(stream.substr(132, 8), std::string("\2\0\0\0UL\4\0", 8));
    for (const std::size_t block : {0UL, 2UL, 30UL}) {
      const Object again(new_file);
      EXPECT_EQ(read(again, stream, block), VX_NORMAL_COMPLETION);
      for (const auto& [tag, value] : {std::pair{0x00100010U, "Doe^J"},
                                       {0x00020002U, "1.2.840.10008.5.1.4.1.1.7"},
                                       {0x00020003U, "1.2.3.4.5"},
                                       {0x00020012U, "1.2.3.4"},
                                       {0x00020013U, "TEST_1"}}) {
        EXPECT_EQ(text(again, tag), value);
      }
      EXPECT_EQ(bytes(again, 0x00020001), std::string("\0\1", 2));
      EXPECT_EQ(write_file(again), stream);
    }
  }
}

TEST_F(File, TheMetaGroupEndsWhereItEnds) {
  const auto meta = [](const char* syntax, int error, bool length = true) {
    const std::string rest = file_of(elements({{0x00020013, "SH", "OTHER "}}), syntax).substr(132);
    Writer all;
    if (length)
      all.header(0x00020000, "UL", 4).u32(static_cast<uint32_t>(static_cast<int>(rest.size()) + error));
    return all.raw(rest).str();
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
    // Right, missing, short, shorter than the syntax, long.
    for (const std::string& head :
         {meta(uid, 0), meta(uid, 0, false), meta(uid, -14), meta(uid, -40), meta(uid, 2000)}) {
      for (const std::size_t block : {0UL, 2UL}) {
        SCOPED_TRACE(testing::Message() << uid << " " << testing::PrintToString(head) << " " << block);
        const Object id(new_file);
        EXPECT_EQ(read(id, with_meta(head, data_set), block), VX_NORMAL_COMPLETION);
        EXPECT_EQ(text(id, 0x00020013), "OTHER");
        EXPECT_EQ(text(id, 0x00100020), "ID");
      }
    }
  }
}

TEST_F(File, WhatTheFirstElementTells) {
  const std::string uid("1.2.840.10008.1.2\0", 18);
  const std::string implicit_meta = elements({{0x00020010, "", uid}}, IMPLICIT_LITTLE_ENDIAN);
  const std::string data = elements({{0x00100020, "", "ID"}}, IMPLICIT_LITTLE_ENDIAN);
  for (const std::string& stream : {with_meta(implicit_meta, data), with_meta("", data)}) {
    const Object id(new_file);
    EXPECT_EQ(read(id, stream), VX_NORMAL_COMPLETION);
    EXPECT_EQ(text(id, 0x00100020), "ID");
  }
  set_bool(VX_CFG_REJECT_INVALID_VR, true);
  EXPECT_EQ(read(Object(new_file), with_meta(implicit_meta, data)), VX_INVALID_VR_IN_STREAM);
}

TEST_F(File, Faults) {
  const std::string id_element = elements({{0x00100020, "LO", "ID"}});
  struct Case {
    const char* what;
    std::string stream;
    bool force;
    VX_STATUS status;
  };
  std::string no_prefix = file_of(id_element);
  no_prefix.replace(128, 4, std::string(4, '\0'));
  const Case cases[] = {
      {"empty", "", true, VX_UNEXPECTED_EOD},
      {"131 bytes", std::string(130, 'x'), true, VX_UNEXPECTED_EOD},
      {"no prefix", no_prefix, false, VX_INVALID_FILE},
      {"no prefix, forced", no_prefix, true, VX_NORMAL_COMPLETION},
      {"unknown syntax", file_of(id_element, "1.2.3.4"), true, VX_INVALID_TRANSFER_SYNTAX},
      {"null syntax", file_of(id_element, ""), true, VX_INVALID_TRANSFER_SYNTAX},
      {"command group", file_of(elements({{0x00000002, "UI", "1.2 "}})), true, VX_OUT_OF_ORDER_TAG},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    set_bool(VX_CFG_FORCE_DICM_IN_PREFIX, c.force);
    EXPECT_EQ(read(Object(new_file), c.stream), c.status);
  }
  EXPECT_TRUE(has_log("Invalid DICOM file prefix '0000' in 'x'"));
  const Object id(new_file);
  EXPECT_EQ(VX_Open_File(-1, id, nullptr, &file_input), VX_INVALID_APPLICATION_ID);
  EXPECT_EQ(VX_Open_File(app_, id + 1, nullptr, &file_input), VX_INVALID_FILE_ID);
  // Blocks of odd length: refused, unless the file is deflated or the configuration takes them.
  const std::string odd = file_of(id_element + "x");
  EXPECT_EQ(read(id, odd), VX_CALLBACK_DATA_SIZE_UNEVEN);
  set_bool(VX_CFG_ORVEN_OPEN_FILE, true);
  EXPECT_EQ(read(id, odd), VX_UNEXPECTED_EOD);
}

TEST_F(File, PaddingAndLength) {
  for (const char* syntax : kSyntaxes) {
    const bool deflated = syntax == kSyntaxes[3];
    for (const int32_t pad : {2, 64, 1024}) {
      const Object id(make(syntax));
      VX_Set_Value_To_NULL(id, 0x0040A730);
      const std::string plain = write_file(id);
      uint32_t length = 0;
      EXPECT_EQ(VX_Get_File_Length(id, &length), VX_NORMAL_COMPLETION);
      EXPECT_TRUE(deflated || length == plain.size()) << length;
      const std::string padded = write_file(id, pad);
      if (deflated) {
        EXPECT_EQ(padded, plain);
        EXPECT_TRUE(has_log("file is not padded"));
      } else {
        EXPECT_EQ(padded.size() % static_cast<std::size_t>(pad), 0U);
        EXPECT_GE(padded.size(), plain.size() + 10);
        EXPECT_LT(padded.size(), plain.size() + 14 + static_cast<std::size_t>(pad));
        EXPECT_EQ(padded.substr(padded.size() - 2), std::string(2, '\0'));
        EXPECT_EQ(write_file(id, pad), padded);
      }
    }
  }
  const Object id(make(kSyntaxes[1])), bare(make(nullptr));
  for (const int32_t pad : {3, -2, 1 << 20}) EXPECT_EQ(write_file(id, pad, VX_INVALID_PAD), "");
  EXPECT_EQ(write_file(bare, 0, VX_INVALID_TRANSFER_SYNTAX), "");
  uint32_t length = 7;
  EXPECT_EQ(VX_Get_File_Length(bare, &length), VX_INVALID_TRANSFER_SYNTAX);
  EXPECT_EQ(length, 0U);
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
  VX_Library_Release();
  ASSERT_EQ(begin_with_full_data(), VX_NORMAL_COMPLETION);
  ASSERT_EQ(VX_Create_File(&id, "x", "STANDARD_CT", C_STORE_RQ), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(has(id, 0x00280010));
  EXPECT_EQ(VX_Set_Value_From_String(id, 0x300A00B0, "x"), VX_INVALID_TAG);  // the template closes the table
}

TEST_F(File, NoTruncationAndNoSingleByteChangeDoesHarm) {
  for (const char* syntax : kSyntaxes) {
    const std::string stream = write_file(Object(make(syntax)));
    for (std::size_t at = 0; at < stream.size(); ++at) {
      for (const int change : {-1, 0x01, 0x80, 0xFF}) {
        std::string bad = stream;
        if (change < 0) {
          bad.resize(at & ~std::size_t{1});
        } else {
          bad[at] = static_cast<char>(bad[at] ^ change);
        }
        const VX_STATUS status = read(Object(new_file), bad, at % 2 == 0 ? 0 : 14);
        EXPECT_TRUE(status == VX_NORMAL_COMPLETION || status >= 4000);
      }
    }
  }
}

}  // namespace
