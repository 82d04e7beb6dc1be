#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;

class DecodeSequence : public LibraryTest {};

constexpr uint32_t kSequence = 0x00081140;

std::string nested(int depth, bool defined, VX_TRANSFER_SYNTAX syntax) {
  std::string inner = elements({{0x00100020, "LO", "ID"}}, syntax);
  for (int i = 0; i < depth; ++i) {
    Writer w(syntax);
    if (defined) {
      const auto size = static_cast<uint32_t>(inner.size());
      w.header(kSequence, "SQ", size + 8).item(size).raw(inner);
    } else {
      w.header(kSequence, "SQ", 0xFFFFFFFFU).item().raw(inner).item_end().sequence_end();
    }
    inner = w.str();
  }
  return inner;
}

TEST_F(DecodeSequence, NestingEndsAtItsLimit) {
  for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN}) {
    for (const bool defined : {true, false}) {
      const Object deep;
      EXPECT_EQ(decode(deep, nested(128, defined, syntax), syntax).status, VX_NORMAL_COMPLETION);
      const std::string again = encode(deep, syntax);
      EXPECT_EQ(again, nested(128, true, syntax));
      const Object deeper;
      EXPECT_EQ(decode(deeper, nested(129, defined, syntax), syntax).status, VX_INVALID_VALUE_FOR_VR);
      const Object rest;
      EXPECT_EQ(decode(rest, nested(129, defined, syntax), syntax, 0, 0x00100000).status,
                defined ? VX_NORMAL_COMPLETION : VX_INVALID_VALUE_FOR_VR);
    }
  }
}

TEST_F(DecodeSequence, Structure) {
  const std::string id = elements({{0x00100020, "LO", "ID"}});  // 10 bytes
  const auto open = [](uint32_t length) { return std::move(Writer().header(kSequence, "SQ", length)); };
  const std::string tail = elements({{0x00100020, "LO", "OK"}});
  struct Case {
    const char* what;
    std::string stream;
    VX_STATUS status;
    uint32_t error_tag;
  };
  const Case cases[] = {
      {"undefined, no item", open(0xFFFFFFFFU).sequence_end().raw(tail).str(), VX_NORMAL_COMPLETION, 0},
      {"length 0", open(0).raw(tail).str(), VX_NORMAL_COMPLETION, 0},
      {"undefined item, defined sequence", open(26).item().raw(id).item_end().raw(tail).str(),
       VX_NORMAL_COMPLETION, 0},
      {"delimiter with a length",
       open(0xFFFFFFFFU).item().tag(0xFFFEE00D).u32(8).sequence_end().raw(tail).str(), VX_NORMAL_COMPLETION,
       0},
      {"delimiter in a defined item",
       open(0xFFFFFFFFU).item(18).raw(id).item_end().sequence_end().raw(tail).str(), VX_NORMAL_COMPLETION, 0},
      {"an element where an item is due", open(0xFFFFFFFFU).raw(id).str(), VX_INVALID_VALUE_FOR_VR,
       kSequence},
      {"no item delimiter", open(0xFFFFFFFFU).item().raw(id).str(), VX_INVALID_VALUE_FOR_VR, 0xFFFEE000},
      {"item too long for the data", open(0xFFFFFFFFU).item(50).raw(id).str(), VX_INVALID_VALUE_FOR_VR,
       0xFFFEE000},
      {"item longer than its sequence", open(12).item(10).raw(id).raw(tail).str(), VX_INVALID_VALUE_FOR_VR,
       0x00100020},
      {"no sequence delimiter", open(0xFFFFFFFFU).item(10).raw(id).str(), VX_UNEXPECTED_EOD, 0x00100020},
      {"4 bytes that are no item", open(4).raw(tail).str(), VX_INVALID_VALUE_FOR_VR, kSequence},
      {"an item at top level", Writer().item(10).raw(id).str(), VX_INVALID_VALUE_FOR_VR, 0xFFFEE000},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const Object message;
    const Decoded result = decode(message, c.stream, EXPLICIT_LITTLE_ENDIAN, 2);
    EXPECT_EQ(result.status, c.status);
    EXPECT_EQ(result.error_tag, c.error_tag);
    if (c.status == VX_NORMAL_COMPLETION) {
      EXPECT_EQ(text(message, 0x00100020), "OK");
    }
  }
}

TEST_F(DecodeSequence, ItemsOfPrivateSequencesKnowTheirHolder) {
  const std::string stream = Writer()
                                 .element(0x00090010, "LO", "ACME 1.0")
                                 .header(0x00091003, "SQ", 8)
                                 .item(0)
                                 .element(0x00100020, "LO", "ID")
                                 .str();
  const Object message(stream);
  int32_t held = item(message, 0x00091003);
  // The sequence holds the item: freeing its handle leaves it alive.
  int32_t copy = held;
  EXPECT_EQ(VX_Free_Item(&copy), VX_NORMAL_COMPLETION);
  EXPECT_EQ(VX_Get_First_Attribute(held, nullptr, nullptr, nullptr), VX_MESSAGE_EMPTY);
}

}  // namespace
