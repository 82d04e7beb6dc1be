#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;

class Decoder : public LibraryTest {};

// Every class of VR, a sequence in a sequence, a private block, null values.
std::string sample(VX_TRANSFER_SYNTAX syntax) {
  Writer w(syntax);
  w.element(0x00080005, "CS", "ISO_IR 100").element(0x00080008, "CS", "A\\\\C ");
  Writer inner(syntax);
  inner.element(0x00081155, "UI", std::string_view("1.2.3\0", 6));
  Writer nested(syntax);
  nested.item(static_cast<uint32_t>(inner.str().size())).raw(inner.str());
  w.header(0x00081140, "SQ", 0xFFFFFFFFU).item();
  w.element(0x00081140, "SQ", nested.str()).item_end().item(0).sequence_end();
  w.element(0x00090010, "LO", "ACME 1.0").header(0x00091002, "US", 4).u16(1).u16(65535);
  w.element(0x00100010, "PN", "Doe^J").element(0x00101030, "DS", "").header(0x00189306, "FD", 8);
  const uint32_t one[] = {0x3FF00000U, 0U};  // 1.0
  if (syntax == IMPLICIT_BIG_ENDIAN || syntax == EXPLICIT_BIG_ENDIAN) {
    w.u32(one[0]).u32(one[1]);
  } else {
    w.u32(one[1]).u32(one[0]);
  }
  w.header(0x00280009, "AT", 8).tag(0x00181063).tag(0x7FE00010).header(0x00660040, "OL", 4).u32(0x01020304);
  return w.header(0x7FE00010, "OW", 4).u16(0x1234).u16(0x5678).str();
}

void expect_sample(int32_t id) {
  EXPECT_EQ(text(id, 0x00080008), "A\\<null>\\C");
  const int32_t outer = item(id, 0x00081140);
  EXPECT_EQ(text(item(outer, 0x00081140), 0x00081155), "1.2.3");
  EXPECT_FALSE(has(item(id, 0x00081140, 1), 0x00081140));
  EXPECT_EQ(text(id, 0x00091002), "1\\65535");
  EXPECT_EQ(text(id, 0x00100010), "Doe^J");
  EXPECT_EQ(text(id, 0x00101030), "<null>");
  EXPECT_EQ(text(id, 0x00189306), "1");
  EXPECT_EQ(text(id, 0x00280009), "1577059\\2145386512");
  EXPECT_EQ(bytes(id, 0x00660040), std::string("\x04\x03\x02\x01", 4));
  EXPECT_EQ(bytes(id, 0x7FE00010), std::string("\x34\x12\x78\x56", 4));
}

TEST_F(Decoder, AnyBlockSizeGivesTheSameInEverySyntax) {
  for (const VX_TRANSFER_SYNTAX syntax : kNative) {
    const bool deflated = syntax == DEFLATED_EXPLICIT_LITTLE_ENDIAN;
    std::string stream = sample(syntax);
    if (deflated) {
      const Object plain(stream);
      stream = encode(plain, syntax);
    }
    for (const std::size_t block : {0, 2, 6, 8, 10, 64}) {
      SCOPED_TRACE(testing::Message() << syntax << " in blocks of " << block);
      const Object message;
      const Decoded result = decode(message, stream, syntax, block);
      EXPECT_EQ(result.status, VX_NORMAL_COMPLETION);
      EXPECT_EQ(result.error_tag, 0U);
      EXPECT_TRUE(deflated || result.offset == stream.size()) << result.offset;
      expect_sample(message);
    }
  }
}

TEST_F(Decoder, EveryTruncationEndsInAStatusAndKeepsWhatWasRead) {
  for (const VX_TRANSFER_SYNTAX syntax : {IMPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN}) {
    const std::string stream = sample(syntax);
    for (std::size_t cut = 0; cut < stream.size(); cut += 2) {
      const Object message;
      const Decoded result = decode(message, stream.substr(0, cut), syntax);
      EXPECT_LE(result.offset, cut);
      EXPECT_TRUE(cut <= 18 || text(message, 0x00080005) == "ISO_IR 100") << cut;
      if (result.status == VX_NORMAL_COMPLETION) continue;
      EXPECT_TRUE(result.status == VX_UNEXPECTED_EOD || result.status == VX_INVALID_VALUE_FOR_VR) << cut;
      EXPECT_EQ(result.error_tag != 0, cut >= 8) << cut;
    }
  }
}

TEST_F(Decoder, NoSingleByteChangeDoesHarm) {
  for (const VX_TRANSFER_SYNTAX syntax : {IMPLICIT_LITTLE_ENDIAN, EXPLICIT_LITTLE_ENDIAN}) {
    const std::string stream = sample(syntax);
    for (std::size_t at = 0; at < stream.size(); ++at) {
      for (const int value : {0x00, 0x01, 0x5C, 0x7F, 0x80, 0xFE, 0xFF}) {
        std::string changed = stream;
        changed[at] = static_cast<char>(value);
        const Object message;
        const Decoded result = decode(message, changed, syntax);
        EXPECT_TRUE(result.status == VX_NORMAL_COMPLETION || result.status >= 4000);
        Sink sink;  // and what was read can be written
        VX_Message_To_Stream(message, 0, 0xFFFFFFFFU, EXPLICIT_LITTLE_ENDIAN, &sink, &message_output);
      }
    }
  }
}

TEST_F(Decoder, RangeOfTags) {
  const std::string stream = sample(EXPLICIT_LITTLE_ENDIAN);
  const Object message;
  Decoded result = decode(message, stream, EXPLICIT_LITTLE_ENDIAN, 0, 0x00100000, 0x0010FFFF);
  EXPECT_EQ(result.status, VX_NORMAL_COMPLETION);
  EXPECT_FALSE(has(message, 0x00080005));
  EXPECT_TRUE(has(message, 0x00101030));
  EXPECT_FALSE(has(message, 0x00189306));
  EXPECT_EQ(stream.substr(result.offset, 4), Writer().tag(0x00189306).str());

  const Object none;
  result = decode(none, stream, EXPLICIT_LITTLE_ENDIAN, 0, 0, 0x00080000);
  EXPECT_EQ(result.status, VX_NORMAL_COMPLETION);
  EXPECT_EQ(result.offset, 0U);
  EXPECT_EQ(VX_Get_First_Attribute(none, nullptr, nullptr, nullptr), VX_MESSAGE_EMPTY);
}

TEST_F(Decoder, OrderOfTags) {
  const std::string stream = elements({{0x00100020, "LO", "ID"}, {0x00100010, "PN", "A "}});
  const Object strict;
  const Decoded result = decode(strict, stream, EXPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(result.status, VX_OUT_OF_ORDER_TAG);
  EXPECT_EQ(result.error_tag, 0x00100010U);
  EXPECT_EQ(result.offset, 10U);
  EXPECT_TRUE(has_log("Tags not in ascending order: (0010,0010) found after (0010,0020)"));
  set_bool(VX_CFG_ALLOW_OUT_OF_ORDER_TAGS, true);
  const Object tolerant;
  EXPECT_EQ(decode(tolerant, stream, EXPLICIT_LITTLE_ENDIAN).status, VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(tolerant, 0x00100010), "A");
}

TEST_F(Decoder, LettersThatAreNoVr) {
  struct Case {
    const char* what;
    std::string stream, value;
  };
  const auto tagged = [](std::string_view rest) { return Writer().tag(0x00111001).raw(rest).str(); };
  const std::string creator = elements({{0x00110010, "LO", "X "}});
  const Case cases[] = {
      {"unknown, long form", creator + tagged({"QQ\0\0\2\0\0\0ab", 10}), "ab"},
      {"UK, short form", creator + tagged({"UK\2\0ab", 6}), "ab"},
      {"question marks, short form", creator + tagged({"??\2\0ab", 6}), "ab"},
      {"OV", creator + tagged({"OV\0\0\10\0\0\0abcdefgh", 16}), "abcdefgh"},
      {"OB with a 2-byte length where zeros belong", creator + tagged({"OB\2\0ab", 6}), "ab"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const Object message;
    EXPECT_EQ(decode(message, c.stream, EXPLICIT_LITTLE_ENDIAN).status, VX_NORMAL_COMPLETION);
    EXPECT_EQ(bytes(message, 0x00111001), c.value);
  }
  EXPECT_TRUE(
      has_log("Tag (0011,1001) of VR OB reserved bytes incorrect.  Assuming encoded as 2 byte length"));

  set_bool(VX_CFG_REJECT_INVALID_VR, true);
  const Object strict;
  EXPECT_EQ(decode(strict, cases[0].stream, EXPLICIT_LITTLE_ENDIAN).status, VX_INVALID_VR_IN_STREAM);
  EXPECT_EQ(decode(strict, cases[3].stream, EXPLICIT_LITTLE_ENDIAN).status, VX_NORMAL_COMPLETION);
}

TEST_F(Decoder, WideNumbersWithoutACodeComeOutLittleEndian) {
  const std::string stream = Writer(EXPLICIT_BIG_ENDIAN)
                                 .element(0x00110010, "LO", "X ")
                                 .element(0x00111001, "UV", std::string("\0\0\0\0\0\0\0\1", 8))
                                 .str();
  const Object message;
  for (const std::size_t block : {0, 2}) {
    ASSERT_EQ(decode(message, stream, EXPLICIT_BIG_ENDIAN, block).status, VX_NORMAL_COMPLETION);
    VX_Delete_Range(message, 0x00110000, 0x00110FFF);
    EXPECT_EQ(vr(message, 0x00111001), VX_VR_UN);
    EXPECT_EQ(bytes(message, 0x00111001), std::string("\1\0\0\0\0\0\0\0", 8));
    VX_Delete_Attribute(message, 0x00111001);
  }
}

TEST_F(Decoder, ArgumentsAndInputFunctions) {
  const Object message;
  uint32_t tag = 7;
  Source source{"", 0};
  EXPECT_EQ(VX_Stream_To_Message(message, 0, 0, 99, &tag, &source, &message_input),
            VX_INVALID_TRANSFER_SYNTAX);
  EXPECT_EQ(VX_Stream_To_Message(message, 0, 0, RLE, nullptr, &source, &message_input), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Stream_To_Message(message, 0, 0, RLE, &tag, &source, nullptr), VX_NULL_POINTER_PARM);
  EXPECT_EQ(VX_Stream_To_Message(-5, 0, 0, RLE, &tag, &source, &message_input), VX_INVALID_MESSAGE_ID);

  struct Answer {
    VX_STATUS status;
    uint32_t size;
    const char* data;
    VX_STATUS expected;
  };
  const auto run = [&](VX_STREAM_INPUT input, Answer* answer) {
    return VX_Stream_To_Message(message, 0, 0xFFFFFFFFU, IMPLICIT_LITTLE_ENDIAN, &tag, answer, input);
  };
  for (Answer answer : {Answer{0, 0, nullptr, VX_CALLBACK_CANNOT_COMPLY},
                        {VX_NORMAL_COMPLETION, 2, nullptr, VX_CALLBACK_PARM_ERROR},
                        {VX_NORMAL_COMPLETION, 3, "abc", VX_CALLBACK_DATA_SIZE_UNEVEN}}) {
    const auto give = [](int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t*) {
      *size = static_cast<Answer*>(user)->size;
      *data = const_cast<char*>(static_cast<Answer*>(user)->data);
      return static_cast<Answer*>(user)->status;
    };
    EXPECT_EQ(run(give, &answer), answer.expected);
  }
  // Empty blocks are passed over, and the first flag is up once.
  static int calls;
  calls = 0;
  EXPECT_EQ(run(
                [](int32_t, void*, int32_t first, uint32_t*, void**, int32_t* last) {
                  EXPECT_EQ(first != 0, calls == 0);
                  *last = ++calls == 4 ? 1 : 0;
                  return VX_STATUS{1};
                },
                nullptr),
            VX_NORMAL_COMPLETION);
  EXPECT_EQ(calls, 4);
}

}  // namespace
