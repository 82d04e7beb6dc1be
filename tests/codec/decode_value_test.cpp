#include <cstring>

#include "codec/streams.h"
#include "model/object.h"

namespace {

using namespace streams;
using support::LibraryTest;

class DecodeValue : public LibraryTest {};

constexpr uint32_t kPixels = 0x7FE00010;

std::string counting(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
  return bytes;
}
std::string swapped(std::string bytes, std::size_t width) {
  for (std::size_t i = 0; i + width <= bytes.size(); i += width) {
    std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(i),
                 bytes.begin() + static_cast<std::ptrdiff_t>(i + width));
  }
  return bytes;
}
int pieces(int32_t id, uint32_t tag) {
  int count = 0;
  for (const vx::TagObj* a = vx::find_object(id)->FirstTag; a != nullptr; a = a->Next) {
    if (a->Tag != tag) continue;
    for (const vx::ValueObj* value = a->FirstValue; value != nullptr; value = value->Next) ++count;
  }
  return count;
}

TEST_F(DecodeValue, TextsAreCutAndSplit) {
  struct Case {
    const char* vr;
    std::string_view stream;
    const char* expected;
  };
  constexpr Case kCases[] = {
      {"LO", "A\\\\BC ", "A\\<null>\\BC"},
      {"LO", "\\ ", "<null>\\ "},
      {"LO", "AB  ", "AB "},
      {"LO", "    ", "    "},
      {"LO", {"A\0", 2}, "A"},
      {"UI", {"1.2\\1.3\0", 8}, "1.2\\1.3"},
      {"LT", "a\\b ", "a\\b"},
      {"DS", "1 \\22 ", "1\\22"},
      {"CS", "lower case", "lower case"},  // bad characters are kept
  };
  for (const Case& c : kCases) {
    const Object message(elements({{0x00100020, c.vr, c.stream}}));
    EXPECT_EQ(text(message, 0x00100020), c.expected) << c.vr << " " << c.stream;
  }
  set_bool(VX_CFG_REMOVE_SINGLE_TRAILING_SPACE, false);
  const Object message(elements({{0x00100020, "LO", "A "}}));
  EXPECT_EQ(text(message, 0x00100020), "A ");
}

TEST_F(DecodeValue, BackslashesInsideWideCharactersDoNotSplit) {
  const std::string kanji = "A=\x1B$B;3\\ED\x1B(B\\BC";
  const Object message(elements(
      {{0x00080005, "CS", "\\ISO 2022 IR 87 "}, {0x00100010, "PN", kanji}, {0x00100020, "LO", "A\\B "}}));
  EXPECT_EQ(count(message, 0x00100010), 2);
  EXPECT_EQ(text(message, 0x00100020), "A\\B");
}

TEST_F(DecodeValue, BulkDataOfAnySizeInEveryOrder) {
  struct Case {
    uint32_t tag;
    const char* vr;
    std::size_t width;
  };
  constexpr Case kCases[] = {{0x00420011, "OB", 1},
                             {kPixels, "OW", 2},
                             {0x00660040, "OL", 4},
                             {0x00660016, "OF", 4},
                             {0x00720073, "OD", 8}};
  for (const Case& c : kCases) {
    for (const std::size_t size : {8UL, 1000UL, 131072UL, 1500000UL}) {
      const std::string value = counting(size);
      for (const std::size_t block : {0UL, 6UL, 65530UL}) {
        if (block == 6 && size > 200000) continue;
        SCOPED_TRACE(testing::Message() << c.vr << " " << size << " in blocks of " << block);
        for (const VX_TRANSFER_SYNTAX syntax : {EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN}) {
          const std::string stream = syntax == EXPLICIT_LITTLE_ENDIAN ? value : swapped(value, c.width);
          const Object message(elements({{c.tag, c.vr, stream}}, syntax), syntax, block);
          EXPECT_TRUE(bytes(message, c.tag) == value) << syntax;
        }
      }
    }
  }
}

TEST_F(DecodeValue, AnAnnouncedLengthTakesNoMemoryBeforeItsBytes) {
  for (const uint32_t length : {0xFFFFFFFEU, 0x80000000U, 0x7FFFFFFEU}) {
    for (const char* vr : {"OB", "OW", "UN", "UT", "SQ"}) {
      const Object message;
      const uint64_t before = support::memory().total;
      const Writer stream = std::move(Writer().header(0x0040A160, vr, length).raw("abcdefgh"));
      const Decoded result = decode(message, stream.str(), EXPLICIT_LITTLE_ENDIAN, 2);
      EXPECT_TRUE(result.status == VX_UNEXPECTED_EOD || result.status == VX_VALUE_TOO_LARGE ||
                  result.status == VX_INVALID_VALUE_FOR_VR)
          << vr << " " << result.status;
      EXPECT_LT(support::memory().total - before, 3U << 20) << vr;
      EXPECT_TRUE(vr[0] != 'O' || bytes(message, 0x0040A160) == "abcdefgh") << vr;
    }
  }
}

TEST_F(DecodeValue, PiecesEndWithFrames) {
  const std::string value = counting(8 * 65536);
  const std::string stream = elements({{0x00280008, "IS", "8 "}, {kPixels, "OB", value}});
  const Object message(stream);
  EXPECT_EQ(pieces(message, kPixels), 8);
  EXPECT_TRUE(bytes(message, kPixels) == value);
  // Frames of one byte are not worth pieces.
  const Object tiny(elements({{0x00280008, "IS", "524288"}, {kPixels, "OB", value}}));
  EXPECT_LT(pieces(tiny, kPixels), 4);
}

// --- Encapsulated values ---

constexpr char kDelimiter[] = "\xFE\xFF\xDD\xE0\0\0\0\0";

std::string fragments(bool delimited) {
  Writer w;
  w.item(4).u32(0).item(6).raw("frame1").item(4).raw("more").item(0);
  if (delimited) w.sequence_end();
  return w.str();
}

TEST_F(DecodeValue, EncapsulatedValuesAreKeptAsTheyLie) {
  for (const bool delimited : {true, false}) {
    std::string value = fragments(delimited);
    const std::string stream = Writer().header(kPixels, "OB", 0xFFFFFFFFU).raw(value).str();
    if (!delimited) value += std::string(kDelimiter, 8);
    for (const std::size_t block : {2UL, 16UL, 0UL}) {
      const Object message;
      EXPECT_EQ(decode(message, stream, RLE, block).status, VX_NORMAL_COMPLETION);
      EXPECT_EQ(bytes(message, kPixels), value);
      EXPECT_EQ(pieces(message, kPixels), 5);
      EXPECT_EQ(encode(message, RLE).substr(12), value);
    }
  }
  EXPECT_TRUE(has_log("(7FE0,0010): End of file encountered before sequence delimiter encountered"));
}

TEST_F(DecodeValue, EncapsulatedFaults) {
  const auto status = [](const std::string& value, VX_TRANSFER_SYNTAX syntax = RLE) {
    const Object message;
    return decode(message, Writer().header(kPixels, "OB", 0xFFFFFFFFU).raw(value).str(), syntax).status;
  };
  EXPECT_EQ(status(Writer().item(0).tag(0x00100010).u32(0).str()), VX_INVALID_VALUE_FOR_VR);
  EXPECT_EQ(status(Writer().item(0).item().str()), VX_INVALID_VALUE_FOR_VR);
  EXPECT_EQ(status(Writer().item(0).item(100).raw("short ").str()), VX_UNEXPECTED_EOD);
  EXPECT_EQ(status(Writer().item(0).tag(0xFFFEE000).str()), VX_UNEXPECTED_EOD);
  EXPECT_EQ(status(Writer().item(0).sequence_end().str(), EXPLICIT_LITTLE_ENDIAN), VX_NORMAL_COMPLETION);
  EXPECT_TRUE(has_log("Undefined length pixel data encountered in non-encapsulated transfer syntax"));
  const Object native;
  EXPECT_EQ(decode(native, elements({{kPixels, "OW", "abcd"}}), JPEG_BASELINE).status,
            VX_INVALID_VALUE_FOR_VR);
  EXPECT_TRUE(has_log("Defined length pixel data encountered in encapsulated transfer syntax"));
}

TEST_F(DecodeValue, AnIconKeepsTheSyntaxItWasReadIn) {
  Writer icon;
  icon.item().header(kPixels, "OB", 0xFFFFFFFFU).item(0).item(2).raw("ab").sequence_end().item_end();
  const Object message(Writer().header(0x00880200, "SQ", 0xFFFFFFFFU).raw(icon.str()).sequence_end(),
                       JPEG_BASELINE);
  VX_TRANSFER_SYNTAX syntax = 0;
  EXPECT_EQ(VX_Get_Message_Transfer_Syntax(item(message, 0x00880200), &syntax), VX_NORMAL_COMPLETION);
  EXPECT_EQ(syntax, JPEG_BASELINE);
}

}  // namespace
