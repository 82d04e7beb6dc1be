// Deflated streams in both directions.
#include <zlib.h>

#include "codec/streams.h"

namespace {

using namespace streams;
using support::LibraryTest;

class Deflated : public LibraryTest {
 protected:
  static constexpr VX_TRANSFER_SYNTAX kSyntax = DEFLATED_EXPLICIT_LITTLE_ENDIAN;
  static VX_STATUS read(int32_t id, const std::string& stream, std::size_t block = 0, bool late_last = false,
                        uint32_t first = 0x00080000) {
    Source source{stream, block};
    source.late_last = late_last;
    uint32_t tag = 0;
    return VX_Stream_To_Message(id, first, 0xFFFFFFFFU, kSyntax, &tag, &source, &message_input);
  }
};

std::string raw_deflate(const std::string& bytes) {
  z_stream z{};
  deflateInit2(&z, 9, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&z, static_cast<uLong>(bytes.size())), '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  z.avail_in = static_cast<uInt>(bytes.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  deflate(&z, Z_FINISH);
  out.resize(out.size() - z.avail_out);
  deflateEnd(&z);
  return out;
}
// Text that does not deflate well.
std::string noise(std::size_t size) {
  std::string text(size, ' ');
  uint32_t seed = 1;
  for (char& c : text) {
    seed = seed * 1103515245U + 12345U;
    c = static_cast<char>('!' + (seed >> 16) % 90);
  }
  return text;
}

TEST_F(Deflated, ThereAndBackUnderEverySetting) {
  for (const bool flush : {false, true}) {
    for (const int32_t work : {1024, 28672}) {
      set_bool(VX_CFG_DEFLATE_ALLOW_FLUSH, flush);
      set_int(VX_CFG_WORK_BUFFER_SIZE, work);
      for (std::size_t size = 0; size < 9; ++size) {
        const Object message;
        VX_Set_Value_From_String(message, 0x00020010, "1.2.840.10008.1.2.1.99");
        VX_Set_Value_From_String(message, 0x00100020, noise(5 + size).c_str());
        VX_Set_Value_From_String(message, 0x0040A160, noise(40000 + size).c_str());
        const std::string stream = encode(message, kSyntax);
        EXPECT_EQ(stream.substr(0, 30), elements({{0x00020010, "UI", "1.2.840.10008.1.2.1.99"}}));
        for (const std::size_t block : {0UL, 2UL, 4096UL}) {
          const Object again;
          EXPECT_EQ(read(again, stream, block, size % 2 != 0, 0), VX_NORMAL_COMPLETION);
          EXPECT_EQ(encode(again, EXPLICIT_LITTLE_ENDIAN), encode(message, EXPLICIT_LITTLE_ENDIAN));
        }
      }
    }
  }
}

TEST_F(Deflated, FromTheFirstByteWhenTheRangeStartsThere) {
  const Object message;
  VX_Set_Value_From_String(message, 0x00100020, "ID");
  const std::string plain = elements({{0x00100020, "LO", "ID"}});
  const std::string stream = encode(message, kSyntax, VX_NORMAL_COMPLETION, 0x00080000);
  EXPECT_EQ(stream.substr(0, 2), raw_deflate(plain).substr(0, 2));
  const Object again;
  EXPECT_EQ(read(again, stream), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(again, 0x00100020), "ID");
}

TEST_F(Deflated, TheEndOfBothStreamsMustAgree) {
  std::string stream = raw_deflate(Writer().element(0x0040A160, "UT", noise(1000)).str());
  const auto status = [](const std::string& bytes, std::size_t block = 0) {
    const Object message;
    return read(message, bytes, block);
  };
  EXPECT_EQ(status(stream, 64), VX_NORMAL_COMPLETION);
  EXPECT_EQ(status(stream + std::string(1, '\0'), 64), VX_NORMAL_COMPLETION);  // made even
  EXPECT_EQ(status(stream + std::string(200, '\0'), 64), VX_ZLIB_ERROR);
  for (const std::size_t cut : {stream.size() - 1, stream.size() / 2, std::size_t{1}}) {
    EXPECT_EQ(status(stream.substr(0, cut)), VX_ZLIB_ERROR) << cut;
  }
  EXPECT_EQ(status("this is not deflated data at all"), VX_ZLIB_ERROR);
  const Object kept;  // what came before the fault stays
  const std::string two =
      Writer().element(0x00100020, "LO", "ID").element(0x0040A160, "UT", noise(100000)).str();
  EXPECT_EQ(read(kept, raw_deflate(two).substr(0, 60000)), VX_ZLIB_ERROR);
  EXPECT_EQ(text(kept, 0x00100020), "ID");
}

TEST_F(Deflated, AValueThatIsPassedOverCostsNoMemory) {
  const std::string stream = raw_deflate(Writer()
                                             .header(0x00420011, "OB", 64U << 20)
                                             .raw(std::string(64U << 20, '\0'))
                                             .element(0x00720063, "ST", "behind")
                                             .str());
  const Object message;
  const uint64_t before = support::memory().total;
  EXPECT_EQ(read(message, stream, 4096, false, 0x00500000), VX_NORMAL_COMPLETION);
  EXPECT_EQ(text(message, 0x00720063), "behind");
  EXPECT_LT(support::memory().total - before, 4U << 20);
}

}  // namespace
