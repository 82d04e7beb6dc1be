// Part 10 files from hostile bytes; the first byte chooses the size of the blocks and the way of reading.
#include <algorithm>
#include <cstdint>
#include <string_view>

#include "library.h"
#include "vexalkit.h"

namespace {

struct Source {
  std::string_view bytes;
  std::size_t block;
  std::size_t at = 0;
};
VX_STATUS input(const char*, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& source = *static_cast<Source*>(user);
  const std::size_t part = std::min(source.block, source.bytes.size() - source.at);
  *data = const_cast<char*>(source.bytes.data()) + source.at;
  *size = static_cast<uint32_t>(part);
  source.at += part;
  *last = source.at == source.bytes.size() ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}
VX_STATUS output(const char*, void* user, uint32_t size, void*, int32_t, int32_t) {
  *static_cast<std::size_t*>(user) += size;
  return VX_NORMAL_COMPLETION;
}
// Holds pixels: takes all that it is given and has none to give.
VX_STATUS hold(int32_t, uint32_t, void*, VX_CALLBACK_REQUEST, uint32_t* size, void** data, int32_t,
               int32_t* last) {
  static char some[64];
  if (size != nullptr && data != nullptr && last != nullptr && *size > sizeof some) *size = sizeof some;
  if (data != nullptr) *data = some;
  if (last != nullptr) *last = 1;
  return VX_NORMAL_COMPLETION;
}

int32_t application() {
  static int32_t id = [] {
    int32_t app = -1;
    fuzz::start_library();
    VX_Register_Application(&app, "FUZZ");
    VX_Register_Callback_Function(app, 0x00660016, nullptr, &hold);
    VX_Set_Bool_Config_Value(VX_CFG_ORVEN_OPEN_FILE, 1);
    return app;
  }();
  return id;
}

VX_STATUS open(int32_t file, Source& source, int way) {
  uint32_t offset = 0;
  switch (way) {
    case 1:
      return VX_Open_File_Bypass_OBOW(application(), file, &source, &input);
    case 2:
      return VX_Open_File_Upto_Tag(application(), file, &source, 0x00280010, &offset, &input);
    case 3:
      return VX_Open_File_Upto_Tag_Bypass_Value(application(), file, &source, 0x7FE00010, &offset, &input);
    default:
      return VX_Open_File(application(), file, &source, &input);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  application();
  if (size == 0) return 0;
  const std::size_t block = (data[0] & 0x80) != 0 ? 2 : (data[0] & 0x40) != 0 ? 1 : size;
  Source source{{reinterpret_cast<const char*>(data) + 1, size - 1}, block};
  int32_t file = -1;
  if (VX_Create_Empty_File(&file, "fuzz") != VX_NORMAL_COMPLETION) __builtin_trap();
  open(file, source, data[0] & 3);
  std::size_t written = 0;
  uint32_t length = 0;
  const bool known = VX_Get_File_Length(file, &length) == VX_NORMAL_COMPLETION;
  if (VX_Write_File(file, (data[0] & 4) != 0 ? 64 : 0, &written, &output) == VX_NORMAL_COMPLETION) {
    if (!known || written % 2 != 0) __builtin_trap();
  }
  VX_Free_File(&file);
  return 0;
}
