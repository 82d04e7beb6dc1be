#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;

class DecodeAttribute : public LibraryTest {
 protected:
  static void add_block(int32_t id, const char* code, const char* value) {
    ASSERT_EQ(VX_Add_Private_Block(id, code, 0x0009), VX_NORMAL_COMPLETION);
    if (value == nullptr) return;
    ASSERT_EQ(VX_Add_Private_Attribute(id, code, 0x0009, 0x01, VX_VR_LO), VX_NORMAL_COMPLETION);
    ASSERT_EQ(VX_Set_pValue_From_String(id, code, 0x0009, 0x01, value), VX_NORMAL_COMPLETION);
  }
};

// A creator, one element of its block.
std::string block(uint32_t creator, const char* code, const char* value,
                  VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN) {
  const uint32_t tag = (creator & 0xFFFF0000U) | ((creator & 0xFFU) << 8) | 1;
  return elements({{creator, "LO", code}, {tag, "LO", value}}, syntax);
}

TEST_F(DecodeAttribute, PrivateBlocksMoveToWhereTheObjectHasRoom) {
  struct Case {
    const char* what;
    const char* held;        // creator that the object has at (0009,0010)
    const char* held_value;  // in its element 01; null for an empty block
    uint32_t stream_creator;
    bool duplicates;
    uint32_t expected;  // where the stream's element 01 is found; 0: nowhere
  };
  constexpr Case kCases[] = {
      {"empty object", nullptr, nullptr, 0x00090011, false, 0x00091101},
      {"the same creator, empty block, elsewhere", "ACME 1.0", nullptr, 0x00090011, false, 0x00091001},
      {"the same creator, empty block, same place", "ACME 1.0", nullptr, 0x00090010, false, 0x00091001},
      {"the same creator with values", "ACME 1.0", "old ", 0x00090011, false, 0},
      {"the same creator with values, duplicates allowed", "ACME 1.0", "old ", 0x00090011, true, 0x00091101},
      {"another creator at its place", "OTHER", nullptr, 0x00090010, false, 0x00091101},
      {"another creator elsewhere", "OTHER", nullptr, 0x00090012, false, 0x00091201},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    set_bool(VX_CFG_ALLOW_DUPLICATE_CREATOR_CODES, c.duplicates);
    for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN}) {
      const Object message;
      if (c.held != nullptr) add_block(message, c.held, c.held_value);
      ASSERT_EQ(decode(message, block(c.stream_creator, "ACME 1.0 ", "new", syntax), syntax).status,
                VX_NORMAL_COMPLETION);
      if (c.held_value != nullptr) {
        EXPECT_EQ(text(message, 0x00091001), c.held_value);
      }
      for (const uint32_t tag : {0x00091001U, 0x00091101U, 0x00091201U}) {
        if (tag == c.expected) {
          EXPECT_EQ(text(message, tag), "new");
          EXPECT_EQ(vr(message, tag), VX_VR_LO);  // in implicit: from the dictionary, by the creator
        } else if (c.held_value == nullptr || tag != 0x00091001U) {
          EXPECT_FALSE(has(message, tag));
        }
      }
    }
  }
  EXPECT_TRUE(has_log("Ignoring duplicate private creator code: (0009,0011) ACME 1.0"));
}

TEST_F(DecodeAttribute, BothBlocksOfOneCreatorInAStreamMeet) {
  const Object message(elements({{0x00090010, "LO", "ACME 1.0"},
                                 {0x00090011, "LO", "ACME 1.0"},
                                 {0x00091001, "LO", "first "},
                                 {0x00091102, "US", {"\1\0", 2}}}));
  EXPECT_EQ(text(message, 0x00091001), "first");
  EXPECT_EQ(text(message, 0x00091002), "1");
  EXPECT_FALSE(has(message, 0x00090011));
}

TEST_F(DecodeAttribute, PrivateElementsWithoutACreator) {
  const std::string stream = elements({{0x00091001, "LO", "orphan"}});
  const Object dropped(stream);
  EXPECT_FALSE(has(dropped, 0x00091001));
  set_bool(VX_CFG_ALLOW_INVALID_PRIVATE_ATTRIBUTES, true);
  const Object kept(stream);
  EXPECT_EQ(text(kept, 0x00091001), "orphan");
}

TEST_F(DecodeAttribute, ItemsOfPrivateSequencesMayLeaveTheCreatorToTheirHolder) {
  const std::string inner = elements({{0x00091001, "UN", "inside"}});
  const std::string items = Writer().item(static_cast<uint32_t>(inner.size())).raw(inner).str();
  const Object message(elements({{0x00090010, "LO", "ACME 1.0"}, {0x00091003, "SQ", items}}));
  EXPECT_EQ(text(item(message, 0x00091003), 0x00091001), "inside");  // LO by the dictionary
}

TEST_F(DecodeAttribute, UnknownInAStreamIsReadAsTheDictionarySays) {
  const std::string id = elements({{0x00081155, "", "1.2 "}}, IMPLICIT_LITTLE_ENDIAN);
  const std::string sequence =
      Writer(IMPLICIT_LITTLE_ENDIAN).item(static_cast<uint32_t>(id.size())).raw(id).str();
  const std::string broken = Writer(IMPLICIT_LITTLE_ENDIAN).item(100).raw(id).str();
  for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN}) {
    const Object message;
    const std::string stream = elements({{0x00081140, "UN", sequence},
                                         {0x00100020, "UN", "A\\B "},
                                         {0x00280010, "UN", {"\1\2", 2}},
                                         {0x00281201, "UN", {"\1\2\3\4", 4}},
                                         {0x0040A730, "UN", broken},
                                         {0x00990001, "UN", "who?"}},
                                        syntax);
    ASSERT_EQ(decode(message, stream, syntax, 2).status, VX_NORMAL_COMPLETION);
    EXPECT_EQ(text(item(message, 0x00081140), 0x00081155), "1.2");
    EXPECT_EQ(text(message, 0x00100020), "A\\B");
    EXPECT_EQ(text(message, 0x00280010), "513");
    EXPECT_EQ(bytes(message, 0x00281201), std::string("\1\2\3\4", 4));
    EXPECT_EQ(vr(message, 0x00281201), VX_VR_OW);
    EXPECT_EQ(vr(message, 0x0040A730), VX_VR_UN);  // what cannot be converted stays as it came
    EXPECT_EQ(bytes(message, 0x0040A730), broken);
    EXPECT_EQ(vr(message, 0x00990001), VX_VR_UN);
  }
  EXPECT_TRUE(has_log("Unable to convert tag (0040,A730) from UN to SQ, ignoring"));
}

TEST_F(DecodeAttribute, UnknownOfUndefinedLengthIsASequenceOfImplicitItems) {
  const Writer items = std::move(Writer(IMPLICIT_LITTLE_ENDIAN)
                                     .item()
                                     .element(0x00081150, "", "1.2 ")
                                     .element(0x00081155, "", "1.3 ")
                                     .item_end()
                                     .item()
                                     .item_end()
                                     .sequence_end());
  for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN}) {
    Writer stream(syntax);
    stream.header(0x00081140, "UN", 0xFFFFFFFFU).raw(items.str()).element(0x00100020, "LO", "ID");
    const Object message(stream.str(), syntax, 2);
    EXPECT_EQ(vr(message, 0x00081140), VX_VR_SQ);
    EXPECT_EQ(text(item(message, 0x00081140), 0x00081155), "1.3");
    EXPECT_EQ(text(message, 0x00100020), "ID");
    // The same passed over.
    const Object rest(stream.str(), syntax, 2, 0x00100000);
    EXPECT_EQ(text(rest, 0x00100020), "ID");
  }
  // Explicit items are told from implicit ones.
  const std::string odd = Writer()
                              .header(0x00081140, "UN", 0xFFFFFFFFU)
                              .item()
                              .element(0x00081155, "UI", "1.4 ")
                              .item_end()
                              .sequence_end()
                              .str();
  const Object message(odd);
  EXPECT_EQ(text(item(message, 0x00081140), 0x00081155), "1.4");
}

TEST_F(DecodeAttribute, DuplicatesReplaceUnlessTheFilterKeepsTheFirst) {
  const std::string items = Writer().item(0).item(0).str();
  const std::string one = Writer().item(0);
  const Object message(elements({{0x00081140, "SQ", items},
                                 {0x00081140, "SQ", one},
                                 {0x00100020, "LO", "one "},
                                 {0x00100020, "LO", "two "}}));
  EXPECT_EQ(text(message, 0x00100020), "two");
  EXPECT_EQ(count(message, 0x00081140), 1);
  EXPECT_TRUE(has_log("Tag 00100020 is duplicated"));
  EXPECT_TRUE(has_log("Tag 00100020 new value will be used"));
}

TEST_F(DecodeAttribute, LengthsThatDoNotFitTheVr) {
  const std::string stream = Writer().element(0x00280010, "US", {"\1\2\3\4\5\6\7", 3}).raw("x").str();
  const Object message;
  const Decoded result = decode(message, stream, EXPLICIT_LITTLE_ENDIAN);
  EXPECT_EQ(result.status, VX_INVALID_LENGTH_FOR_VR);
  EXPECT_EQ(result.error_tag, 0x00280010U);
  set_bool(VX_CFG_ALLOW_INVALID_LENGTH_FOR_VR, true);
  const Object tolerant;
  EXPECT_EQ(decode(tolerant, stream, EXPLICIT_LITTLE_ENDIAN).status, VX_UNEXPECTED_EOD);  // the byte behind
  EXPECT_EQ(text(tolerant, 0x00280010), "513");
}

TEST_F(DecodeAttribute, TheVrOfTheStreamWins) {
  const Object message(elements({{0x00100020, "SH", "ab"}, {0x00280106, "SS", {"\xFF\xFF", 2}}}));
  EXPECT_EQ(vr(message, 0x00100020), VX_VR_SH);
  EXPECT_EQ(text(message, 0x00280106), "-1");
}

TEST_F(DecodeAttribute, TheFilterDropsOrKeepsTheFirst) {
  set_text(VX_CFG_DECODER_TAG_FILTER, "DUP00100020, G0028");
  const std::string stream = Writer()
                                 .element(0x00100020, "LO", "one ")
                                 .element(0x00100020, "LO", "two ")
                                 .element(0x00280010, "US", {"\1\0", 2})
                                 .header(0x00281201, "OW", 0xFFFFFFFFU)
                                 .item(0)
                                 .item(4)
                                 .raw("abcd")
                                 .sequence_end()
                                 .element(0x0040A160, "UT", "end ")
                                 .str();
  const Object message(stream, EXPLICIT_LITTLE_ENDIAN, 2);
  EXPECT_EQ(text(message, 0x00100020), "one");
  EXPECT_FALSE(has(message, 0x00280010));
  EXPECT_FALSE(has(message, 0x00281201));
  EXPECT_EQ(text(message, 0x0040A160), "end");
}

}  // namespace
