// The stream decoder, on hostile bytes; the first byte chooses the transfer syntax and the size of the
// blocks. What was read must be writable, at the length that was computed, and read back as what it was.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "library.h"
#include "text/listing.h"
#include "vexalkit.h"

namespace {

struct Source {
  std::string_view bytes;
  std::size_t block;
  std::size_t at = 0;
};
VX_STATUS input(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  auto& source = *static_cast<Source*>(user);
  const std::size_t part = std::min(source.block, source.bytes.size() - source.at);
  *data = const_cast<char*>(source.bytes.data()) + source.at;
  *size = static_cast<uint32_t>(part);
  source.at += part;
  *last = source.at == source.bytes.size() ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}
VX_STATUS output(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}
void require(bool condition) {
  if (!condition) __builtin_trap();
}

VX_STATUS decode(int32_t id, std::string_view bytes, VX_TRANSFER_SYNTAX syntax, std::size_t block) {
  Source source{bytes, block};
  uint32_t tag = 0;
  return VX_Stream_To_Message(id, 0, 0xFFFFFFFFU, syntax, &tag, &source, &input);
}
bool encode(int32_t id, VX_TRANSFER_SYNTAX syntax, std::string& bytes) {
  bytes.clear();
  return VX_Message_To_Stream(id, 0, 0xFFFFFFFFU, syntax, &bytes, &output) == VX_NORMAL_COMPLETION;
}

void write_and_read_back(int32_t id, VX_TRANSFER_SYNTAX syntax) {
  std::string bytes;
  if (!encode(id, syntax, bytes)) return;
  require(bytes.size() % 2 == 0);
  uint32_t length = 0;
  if (syntax != DEFLATED_EXPLICIT_LITTLE_ENDIAN) {
    require(VX_Get_Stream_Length(id, 0, 0xFFFFFFFFU, &length, syntax) == VX_NORMAL_COMPLETION);
    require(length == 0xFFFFFFFFU || length + length % 2 == bytes.size());
  }
  int32_t again = -1;
  std::string second;
  require(VX_Open_Empty_Message(&again) == VX_NORMAL_COMPLETION);
  decode(again, bytes, syntax, bytes.size());
  encode(again, syntax, second);
  VX_Free_Message(&again);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  if (size == 0) return 0;
  const VX_TRANSFER_SYNTAX syntax =
      IMPLICIT_LITTLE_ENDIAN + (data[0] & 0x7F) % (JPIP_REFERENCED_DEFLATE - 99);
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, (size - 1) & ~std::size_t{1});
  int32_t id = -1;
  require(VX_Open_Empty_Message(&id) == VX_NORMAL_COMPLETION);
  decode(id, bytes, syntax, (data[0] & 0x80) != 0 ? 2 : std::max<std::size_t>(bytes.size(), 1));
  for (const VX_TRANSFER_SYNTAX other : {IMPLICIT_LITTLE_ENDIAN, EXPLICIT_LITTLE_ENDIAN, EXPLICIT_BIG_ENDIAN,
                                         DEFLATED_EXPLICIT_LITTLE_ENDIAN, RLE}) {
    write_and_read_back(id, other);
  }
  static std::FILE* const sink = std::fopen("/dev/null", "w");
  vx::list_object(id, sink);
  VX_Free_Message(&id);
  return 0;
}
