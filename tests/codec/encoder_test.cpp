#include "codec/writer.h"

#include <fstream>

#include "codec/streams.h"
#include "frame/pool.h"
#include "model/object.h"

namespace {

using namespace streams;
using support::LibraryTest;

constexpr uint32_t kSequence = 0x00081140;

class Encoder : public LibraryTest {
 protected:
  static void set(int32_t id, uint32_t tag, const char* value) {
    VX_Add_Nonstandard_Attribute(id, tag, VX_VR_LO);
    VX_Set_Value_From_String(id, tag, value);
  }
  static void set_bytes(int32_t id, uint32_t tag, VX_VR vr, const std::string& value) {
    VX_Add_Nonstandard_Attribute(id, tag, vr);
    ASSERT_EQ(VX_Set_Value_From_Buffer(id, tag, value.data(), static_cast<uint32_t>(value.size())),
              VX_NORMAL_COMPLETION);
  }
  static int32_t add_item(int32_t id, uint32_t tag) {
    int32_t item = -1;
    EXPECT_EQ(VX_Open_Empty_Item(&item), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Set_Next_Value_From_Int(id, tag, item), VX_NORMAL_COMPLETION);
    return item;
  }
  // What a writer makes of an object.
  static std::string run(vx::StreamWriter& writer, VX_TRANSFER_SYNTAX syntax, int32_t id) {
    Sink sink;
    vx::syntax_encoding(syntax, writer.encoding);
    writer.UserInfo = &sink;
    EXPECT_EQ(vx::encode_object(writer, *vx::find_object(id), 0, 0xFFFFFFFFU), VX_NORMAL_COMPLETION);
    return sink.bytes;
  }
  // An object with everything whose length could go wrong.
  static void fill(int32_t id) {
    set(id, 0x00080008, "A");
    VX_Set_Next_Value_From_String(id, 0x00080008, "B");
    VX_Set_Next_Value_To_NULL(id, 0x00080008);
    set(id, 0x00080016, "1.2.3");
    const int32_t item = add_item(id, kSequence);
    set(item, 0x00081155, "1.2.3.4");
    set_bytes(item, 0x00420011, VX_VR_OB, "odd");
    set(add_item(item, kSequence), 0x00100020, "deep");
    add_item(id, kSequence);
    VX_Add_Private_Block(id, "ACME 1.0", 0x0009);
    VX_Add_Private_Attribute(id, "ACME 1.0", 0x0009, 0x02, VX_VR_US);
    VX_Set_pValue_From_Int(id, "ACME 1.0", 0x0009, 0x02, 7);
    VX_Add_Private_Block(id, "EMPTY", 0x000B);
    VX_Set_Value_To_NULL(id, 0x0040A730);
    set_bytes(id, 0x00990002, VX_VR_UN, "????");
    VX_Set_Value_From_Double(id, 0x00189306, 1.5);
    set(id, 0x0040A160, std::string(300, 'x').c_str());
    for (const uint32_t group : {0x0008U, 0x0009U, 0x0018U, 0x0040U}) {
      VX_Add_Nonstandard_Attribute(id, group << 16, VX_VR_UL);
      VX_Add_Standard_Attribute(id, group << 16);
    }
    set_bytes(id, 0x7FE00010, VX_VR_OW, std::string(1000, 'p'));
  }
};

TEST_F(Encoder, BytesOfEachVr) {
  struct Case {
    uint32_t tag;
    const char* value;
    std::string_view little, big;
  };
  const Case cases[] = {
      {0x00100010, "Doe", {"\x10\0\x10\0PN\4\0Doe ", 12}, {"\0\x10\0\x10PN\0\4Doe ", 12}},
      {0x00080018, "1.2", {"\10\0\30\0UI\4\0001.2\0", 12}, {"\0\10\0\30UI\0\0041.2\0", 12}},
      {0x00280010, "258", {"\x28\0\x10\0US\2\0\2\1", 10}, {"\0\x28\0\x10US\0\2\1\2", 10}},
      {0x0072007C, "66051", {"\x72\0\x7C\0UL\4\0\3\2\1\0", 12}, {"\0\x72\0\x7CUL\0\4\0\1\2\3", 12}},
      {0x00280009, "66051", {"\x28\0\11\0AT\4\0\1\0\3\2", 12}, {"\0\x28\0\11AT\0\4\0\1\2\3", 12}},
      {0x00720074, "1", {"r\0t\0FL\4\0\0\0\x80\x3F", 12}, {"\0r\0tFL\0\4\x3F\x80\0\0", 12}},
  };
  for (const Case& c : cases) {
    const Object message;
    ASSERT_EQ(VX_Set_Value_From_String(message, c.tag, c.value), VX_NORMAL_COMPLETION);
    EXPECT_EQ(encode(message, EXPLICIT_LITTLE_ENDIAN), c.little);
    EXPECT_EQ(encode(message, EXPLICIT_BIG_ENDIAN), c.big);
  }
  const Object odd;
  set_bytes(odd, 0x00420011, VX_VR_OB, "odd");
  EXPECT_EQ(encode(odd, IMPLICIT_LITTLE_ENDIAN), std::string("\x42\0\x11\0\4\0\0\0odd\0", 12));
}

TEST_F(Encoder, NullEmptyAndNothing) {
  const Object message;
  Sink sink;
  EXPECT_EQ(VX_Message_To_Stream(message, 0, 0xFFFFFFFFU, EXPLICIT_LITTLE_ENDIAN, &sink, &message_output),
            VX_MESSAGE_EMPTY);
  EXPECT_TRUE(sink.sizes.empty());
  VX_Add_Standard_Attribute(message, 0x00100020);
  EXPECT_EQ(encode(message, EXPLICIT_LITTLE_ENDIAN), "");  // one last call, with nothing
  VX_Set_Value_To_NULL(message, 0x00100020);
  VX_Set_Value_To_NULL(message, kSequence);
  const std::string header = Writer().header(kSequence, "SQ", 0).str();
  EXPECT_EQ(encode(message, EXPLICIT_LITTLE_ENDIAN), header + Writer().header(0x00100020, "LO", 0).str());
  set_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ, true);
  EXPECT_EQ(encode_range(message, 0, kSequence),
            Writer().header(kSequence, "SQ", 0xFFFFFFFFU).sequence_end().str());
}

TEST_F(Encoder, ValuesTooLongForTheirHeader) {
  const Object message;
  set(message, 0x001021B0, std::string(70001, 'x').c_str());
  encode(message, EXPLICIT_LITTLE_ENDIAN, VX_INVALID_LENGTH_FOR_VR);
  EXPECT_TRUE(has_log("exceeds the space available to an EXPLICIT value length"));
  EXPECT_EQ(encode(message, IMPLICIT_BIG_ENDIAN).size(), 8U + 70002U);
  set_bool(VX_CFG_EXPLICIT_VR_TO_UN_FOR_LENGTH_GT_64K, true);
  for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN}) {
    const Object numbers;
    VX_Set_Value_From_Int(numbers, 0x0072007C, 0x01020304);
    for (int i = 1; i < 20000; ++i) VX_Set_Next_Value_From_Int(numbers, 0x0072007C, i);
    const std::string stream = encode(numbers, syntax);
    EXPECT_EQ(stream.substr(4, 4), std::string("UN\0\0", 4));
    EXPECT_EQ(stream.substr(12, 4), std::string("\4\3\2\1", 4));  // UN is little endian everywhere
    const Object again;
    EXPECT_EQ(decode(again, stream, syntax).status, VX_NORMAL_COMPLETION);
    EXPECT_EQ(text(again, 0x0072007C), text(numbers, 0x0072007C));
  }
}

TEST_F(Encoder, UnknownGoesOutUnderTheLettersOfTheConfiguration) {
  set_text(VX_CFG_UNKNOWN_VR_CODE, "OB");
  const Object message;
  set_bytes(message, 0x00990002, VX_VR_UN, "??");
  EXPECT_EQ(encode(message, EXPLICIT_LITTLE_ENDIAN), elements({{0x00990002, "OB", "??"}}));
}

// What nobody has touched goes out as it came in.
TEST_F(Encoder, AStreamKeepsItsForm) {
  using namespace std::string_literals;
  struct Case {
    uint32_t tag;
    const char* vr;
    std::string value, kept;
    std::string texts{};  // as they are read
  };
  const Case cases[] = {
      {0x00080008, "CS", "A \\B\\ ", "A \\B\\ ", "A\\B\\ "},
      {0x0008040C, "UV", "12345678", "12345678"},
      {0x00081030, "LO", "AB\0\\CD"s, "AB\0\\CD"s, "AB\\CD"},
      {0x00081080, "LO", "AB\0\0"s, "AB\0\0"s, "AB"},
      {0x00081155, "UI", "1.2 ", "1.2 ", "1.2"},
      {0x00090010, "LO", "A\\B\x01", "A\\B\x01", "A\\B\x01"},
      {0x00091001, "UV", "abcdefgh", "abcdefgh"},
      {0x00091002, "UN", "odd", "odd\0"s},
      {0x00101020, "DS", "1,5 ", "1,5 ", "1.5"},
      {0x00101030, "DS", std::string(301, '1'), std::string(301, '1') + " ", std::string(301, '1')},
      {0x00104000, "LT", "a\0b "s, "a\0b "s, "a"},
      {0x00280010, "US", "\x01\x02", "\x01\x02", "513"},
  };
  set_bool(VX_CFG_ALLOW_COMMA_IN_DS_FL_FD_STRINGS, true);
  Writer in;
  Writer out;
  for (const Case& c : cases) in.element(c.tag, c.vr, c.value);
  for (const Case& c : cases) out.element(c.tag, c.vr, c.kept);
  ASSERT_EQ(VX_Keep_Stream_Form(1), VX_NORMAL_COMPLETION);
  const Object message(in.str(), EXPLICIT_LITTLE_ENDIAN, 2);
  for (const Case& c : cases) {
    EXPECT_EQ(c.texts.empty() ? "" : text(message, c.tag), c.texts) << std::hex << c.tag;
  }
  EXPECT_EQ(encode(message, EXPLICIT_LITTLE_ENDIAN), out.str());
  const Object again;
  const std::string big = encode(message, EXPLICIT_BIG_ENDIAN);
  EXPECT_NE(big.find("87654321"), std::string::npos);
  EXPECT_EQ(decode(again, big, EXPLICIT_BIG_ENDIAN).status, VX_NORMAL_COMPLETION);
  EXPECT_EQ(encode(again, EXPLICIT_LITTLE_ENDIAN), out.str());
  // A value that is set is written by the rules, and so is all in an object that was read by them.
  VX_Set_Next_Value_From_String(message, 0x00081030, "E");
  VX_Set_Value_From_String(message, 0x00081080, "F");
  EXPECT_EQ(encode_range(message, 0x00081030, 0x00081080),
            elements({{0x00081030, "LO", "AB\\CD\\E "}, {0x00081080, "LO", "F "}}));
  ASSERT_EQ(VX_Keep_Stream_Form(0), VX_NORMAL_COMPLETION);
  const Object ruled;
  decode(ruled, out.str(), EXPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(encode_range(ruled, 0x0008040C, 0x00081080),
            elements({{0x0008040C, "UN", "12345678"}, {0x00081030, "LO", "AB"}, {0x00081080, "LO", "AB"}}));
}

TEST_F(Encoder, LettersOfVrsWithoutACode) {
  const Object message;
  char letters[3] = "";
  EXPECT_EQ(VX_Get_VR_Letters(message, 0x00990002, letters), VX_INVALID_TAG);
  set_bytes(message, 0x00990002, VX_VR_UN, "12345678");
  set(message, 0x00100020, "ID");
  EXPECT_EQ(VX_Set_VR_Letters(message, 0x00100020, "UV"), VX_INCOMPATIBLE_VR);
  EXPECT_EQ(VX_Set_VR_Letters(message, 0x00990002, "LO"), VX_INVALID_VR_CODE);
  for (const char* vr : {"OV", "SV", "UV", "UN"}) {
    EXPECT_EQ(VX_Set_VR_Letters(message, 0x00990002, vr), VX_NORMAL_COMPLETION);
    EXPECT_EQ(VX_Get_VR_Letters(message, 0x00990002, letters), VX_NORMAL_COMPLETION);
    EXPECT_STREQ(letters, vr);
    EXPECT_EQ(encode_range(message, 0x00990000), elements({{0x00990002, vr, "12345678"}}));
  }
  // Those of the standard are known where the stream has none, which the dictionary tells.
  ASSERT_EQ(VX_Keep_Stream_Form(1), VX_NORMAL_COMPLETION);
  std::ifstream table(VEXAL_SOURCE_DIR "/data/dictionary.tsv");
  int wide = 0;
  for (std::string line; std::getline(table, line);) {
    const std::size_t vr = line.find("\tUN/");
    if (line.empty() || line[0] == '#' || vr != 9) continue;
    const auto tag = static_cast<uint32_t>(std::stoul(line.substr(0, 4) + line.substr(5, 4), nullptr, 16));
    const Object read;
    decode(read, elements({{tag, "", "12345678"}}, IMPLICIT_LITTLE_ENDIAN), IMPLICIT_LITTLE_ENDIAN);
    EXPECT_EQ(VX_Get_VR_Letters(read, tag, letters), VX_NORMAL_COMPLETION) << line;
    EXPECT_EQ(line.substr(13, 2), letters) << line;
    ++wide;
  }
  EXPECT_EQ(wide, 11);
  EXPECT_EQ(VX_Add_Nonstandard_Attribute(message, 0xFFFEE00D, VX_VR_LO), VX_INVALID_TAG);
  EXPECT_EQ(VX_Add_Standard_Attribute(message, 0xFFFEE000), VX_INVALID_TAG);
  EXPECT_EQ(VX_Set_Value_From_String(message, 0xFFFEE0DD, "1"), VX_INVALID_TAG);
}

TEST_F(Encoder, EveryBlockIsEvenHoweverOddTheValues) {
  const Object message;
  set_bytes(message, 0x00420011, VX_VR_OB, std::string(201, 'b'));
  for (uint32_t i = 0; i < 3; ++i) {  // UN is not padded: only a decoder stores it odd
    decode(message, Writer().element(0x00990010 + i, "UN", std::string(401, 'u')).raw("x").str(),
           EXPLICIT_LITTLE_ENDIAN, 0, 0, 0x00990010 + i);
  }
  set(message, 0x00A00010, "behind");
  for (const VX_TRANSFER_SYNTAX syntax : kNative) {
    const std::string stream = encode(message, syntax);
    if (syntax == DEFLATED_EXPLICIT_LITTLE_ENDIAN) continue;
    const Object again;
    EXPECT_EQ(decode(again, stream, syntax, 2).status, VX_NORMAL_COMPLETION);
    EXPECT_EQ(vr(again, 0x00A00010) == VX_VR_UN ? bytes(again, 0x00A00010) : text(again, 0x00A00010),
              "behind")
        << syntax;
  }
}

TEST_F(Encoder, LengthsAgreeWithTheStreamUnderEveryKey) {
  constexpr VX_BOOL_KEY kKeys[] = {VX_CFG_EXPORT_UN_VR_TO_MEDIA,
                                   VX_CFG_EXPORT_UN_VR_TO_NETWORK,
                                   VX_CFG_EXPORT_PRIVATE_ATTRIBUTES_TO_MEDIA,
                                   VX_CFG_EXPORT_PRIVATE_ATTRIBUTES_TO_NETWORK,
                                   VX_CFG_EXPORT_GROUP_LENGTHS_TO_MEDIA,
                                   VX_CFG_EXPORT_GROUP_LENGTHS_TO_NETWORK,
                                   VX_CFG_EXPORT_EMPTY_PRIVATE_CREATOR_CODES,
                                   VX_CFG_EXPLICIT_VR_TO_UN_FOR_LENGTH_GT_64K};
  const Object message;
  fill(message);
  for (unsigned keys = 0; keys < 256; ++keys) {
    for (int i = 0; i < 8; ++i) set_bool(kKeys[i], (keys >> i & 1) != 0);
    for (const VX_TRANSFER_SYNTAX syntax : {IMPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN, RLE}) {
      for (const auto destination :
           {vx::Destination::Media, vx::Destination::Stream, vx::Destination::Network}) {
        for (const bool undefined : {false, true}) {
          SCOPED_TRACE(testing::Message() << "keys " << keys << " syntax " << syntax << " destination "
                                          << static_cast<int>(destination) << undefined);
          vx::StreamWriter writer;
          writer.destination = destination;
          writer.UndefinedLengths = undefined;
          writer.MessageCallback = &message_output;
          const std::size_t size = run(writer, syntax, message).size();
          uint64_t length = 0;
          const vx::LengthQuery query{writer.encoding, destination, undefined, 0};
          ASSERT_EQ(vx::run_length(*vx::find_object(message), 0, 0xFFFFFFFFU, query, length),
                    VX_NORMAL_COMPLETION);
          ASSERT_EQ(length, size);
        }
      }
    }
  }
}

TEST_F(Encoder, GroupLengthsCountWhatFollowsInTheirGroup) {
  const Object message;
  fill(message);
  for (const VX_TRANSFER_SYNTAX syntax : {IMPLICIT_LITTLE_ENDIAN, EXPLICIT_LITTLE_ENDIAN}) {
    for (const bool undefined : {false, true}) {
      set_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ, undefined);
      for (const uint32_t group : {0x0008U, 0x0009U, 0x0018U, 0x0040U}) {
        const std::string all =
            encode(message, syntax, VX_NORMAL_COMPLETION, group << 16, (group << 16) | 0xFFFF);
        uint32_t value = 0;
        EXPECT_EQ(VX_Get_Value_To_UInt(message, group << 16, &value), VX_NORMAL_COMPLETION);
        EXPECT_EQ(value, all.size() - 12);
        // The range may end inside the group: its length is that of the whole group all the same.
        EXPECT_EQ(encode(message, syntax, VX_NORMAL_COMPLETION, group << 16, group << 16), all.substr(0, 12));
      }
    }
  }
  const Object alone;
  VX_Add_Standard_Attribute(alone, 0x00020000);
  EXPECT_EQ(encode(alone, EXPLICIT_LITTLE_ENDIAN), Writer().header(0x00020000, "UL", 4).u32(0).str());
}

TEST_F(Encoder, StreamLengthOfRanges) {
  const Object message;
  fill(message);
  uint32_t length = 7;
  EXPECT_EQ(VX_Get_Stream_Length(message, 0, 0xFFFFFFFFU, nullptr, RLE), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Get_Stream_Length(message, 0, 0xFFFFFFFFU, &length, 5), VX_INVALID_TRANSFER_SYNTAX);
  for (const uint32_t last : {0U, 0x0008FFFFU, 0x00091002U, 0xFFFFFFFFU}) {
    EXPECT_EQ(VX_Get_Stream_Length(message, 0, last, &length, EXPLICIT_LITTLE_ENDIAN), VX_NORMAL_COMPLETION);
    EXPECT_EQ(length, encode_range(message, 0, last).size());
  }
}

TEST_F(Encoder, TagListAndGroupLengthsOfADirectory) {
  const Object message;
  fill(message);
  const uint32_t list[] = {0x00080016, kSequence, 0x00180000, 0};
  vx::StreamWriter writer;
  writer.TagList = list;
  writer.NoGroupLengths = true;
  writer.RawCallback = [](void* user, uint32_t, uint32_t size, void* data, int32_t first, int32_t last) {
    return static_cast<Sink*>(user)->take(size, data, first, last);
  };
  const Object read(run(writer, EXPLICIT_LITTLE_ENDIAN, message));
  EXPECT_FALSE(has(read, 0x00080000));
  EXPECT_FALSE(has(read, 0x00080008));
  EXPECT_TRUE(has(item(read, kSequence), 0x00081155));
  EXPECT_TRUE(has(read, 0x00189306));
  EXPECT_FALSE(has(read, 0x7FE00010));
}

TEST_F(Encoder, ReferencesOfDirectoryRecordsBecomeOffsets) {
  const Object message;
  VX_Add_Nonstandard_Attribute(message, 0x00041400, VX_VR_UL);
  VX_Set_Value_From_UInt(message, 0x00041400, 1234);
  VX_Add_Nonstandard_Attribute(message, 0x00041420, VX_VR_UL);
  VX_Set_Value_From_UInt(message, 0x00041420, 0);
  const int32_t table[] = {1234, 396, 77, 500};
  for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN}) {
    vx::StreamWriter writer;
    writer.OffsetTable = table;
    writer.OffsetCount = 2;
    writer.MessageCallback = &message_output;
    EXPECT_EQ(run(writer, syntax, message),
              Writer(syntax).header(0x00041400, "UL", 4).u32(396).header(0x00041420, "UL", 4).u32(0).str());
  }
}

TEST_F(Encoder, ARefusalEndsTheEncodeWhereverItComes) {
  set_int(VX_CFG_WORK_BUFFER_SIZE, 1024);
  const Object message;
  fill(message);
  for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, DEFLATED_EXPLICIT_LITTLE_ENDIAN}) {
    Sink whole;
    ASSERT_EQ(VX_Message_To_Stream(message, 0, 0xFFFFFFFFU, syntax, &whole, &message_output),
              VX_NORMAL_COMPLETION);
    ASSERT_GT(whole.sizes.size(), 1U);
    for (int at = 0; at < static_cast<int>(whole.sizes.size()); ++at) {
      Sink sink;
      sink.refuse_at = at;
      EXPECT_EQ(VX_Message_To_Stream(message, 0, 0xFFFFFFFFU, syntax, &sink, &message_output),
                VX_CALLBACK_CANNOT_COMPLY);
      EXPECT_EQ(sink.sizes.size(), static_cast<std::size_t>(at));
      EXPECT_EQ(sink.bytes, whole.bytes.substr(0, sink.bytes.size()));
    }
  }
}

TEST_F(Encoder, AllocationFailuresEndInAStatus) {
  const Object message;
  fill(message);
  VX_STATUS status = VX_SYSTEM_ERROR;
  uint64_t n = 1;
  for (; status != VX_NORMAL_COMPLETION && n < 100; ++n) {
    Sink sink;
    vx::fail_allocation_after(n);
    status = VX_Message_To_Stream(message, 0, 0xFFFFFFFFU, DEFLATED_EXPLICIT_LITTLE_ENDIAN, &sink,
                                  &message_output);
    vx::fail_allocation_after(0);
    EXPECT_TRUE(status == VX_NORMAL_COMPLETION || status == VX_SYSTEM_ERROR || status == VX_ZLIB_ERROR)
        << status;
  }
  EXPECT_GT(n, 3U);
  const std::string stream = encode(message, DEFLATED_EXPLICIT_LITTLE_ENDIAN);
  status = VX_SYSTEM_ERROR;
  for (n = 1; status != VX_NORMAL_COMPLETION && n < 1000; ++n) {
    const Object read;
    vx::fail_allocation_after(n);
    status = decode(read, stream, DEFLATED_EXPLICIT_LITTLE_ENDIAN, 20).status;
    vx::fail_allocation_after(0);
  }
  EXPECT_GT(n, 20U);
}

}  // namespace
