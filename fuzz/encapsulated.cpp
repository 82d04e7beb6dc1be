// Encapsulated values on hostile bytes, taken apart in pieces of any size, with and without a decompressor of
// any syntax; and RLE frames of any bytes, which must come back. The first bytes describe the image.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "library.h"
#include "model/attributes.h"
#include "model/values.h"
#include "vexalkit.h"

namespace {

constexpr uint32_t kPixelData = 0x7FE00010;

void require(bool condition) {
  if (!condition) __builtin_trap();
}

VX_STATUS take(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& bytes = *static_cast<std::string*>(user);
  if (size != 0) bytes.append(static_cast<const char*>(data), std::min<uint32_t>(size, 65536));
  return bytes.size() < (1U << 20) ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
}
VX_STATUS give(int32_t, uint32_t, int32_t, void* user, uint32_t* size, void** data, int32_t* last) {
  auto& bytes = *static_cast<std::string*>(user);
  *size = static_cast<uint32_t>(bytes.size());
  *data = bytes.data();
  *last = 1;
  return VX_NORMAL_COMPLETION;
}

void add_number(int32_t id, uint32_t tag, int32_t value) {
  vx::TagObj* attribute = nullptr;
  vx::new_tag(*vx::find_object(id), tag, tag == 0x00280008 ? VX_VR_IS : VX_VR_US, 1, 1, &attribute);
  VX_Set_Value_From_Int(id, tag, value);
}

// Stored as it is, in pieces that have nothing to do with its items.
void store(int32_t id, std::string_view bytes, std::size_t piece) {
  vx::MsgObj& object = *vx::find_object(id);
  vx::TagObj* attribute = nullptr;
  vx::new_tag(object, kPixelData, VX_VR_OB, 1, 1, &attribute);
  attribute = vx::find_tag(object, kPixelData);
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    const std::size_t part = std::min(piece, bytes.size() - at);
    vx::store_value(object, *attribute, bytes.data() + at, static_cast<uint32_t>(part),
                    {.first = at == 0, .last = at + part == bytes.size()});
  }
}

void read_all(int32_t id) {
  std::string bytes;
  VX_Get_Offset_Table_To_Function(id, &bytes, &take);
  VX_STATUS status = VX_Get_Encapsulated_Value_To_Function(id, kPixelData, &bytes, &take);
  for (int i = 0; i < 64 && status == VX_END_OF_FRAME; ++i) {
    status = VX_Get_Next_Encapsulated_Value_To_Function(id, kPixelData, &bytes, &take);
  }
  for (const int frame : {1, 0, 2, 7}) {
    bytes.clear();
    VX_Get_Frame_To_Function(id, frame, &bytes, &take);
    VX_Get_Next_Encapsulated_Value_To_Function(id, kPixelData, &bytes, &take);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  if (size < 6) return 0;
  int32_t id = -1;
  require(VX_Open_Empty_Message(&id) == VX_NORMAL_COMPLETION);
  static constexpr VX_TRANSFER_SYNTAX kSyntaxes[] = {
      RLE,           JPEG_LOSSLESS_HIER_14,     JPEG_LS_LOSSLESS,
      JPEG_BASELINE, ENCAPSULATED_UNCOMPRESSED, DEFLATED_IMAGE_FRAMES};
  const VX_TRANSFER_SYNTAX syntax = kSyntaxes[(data[0] >> 4) % std::size(kSyntaxes)];
  VX_Set_Message_Transfer_Syntax(id, syntax);
  const int samples = (data[0] & 1) != 0 ? 3 : 1;
  const int bits = (data[0] & 2) != 0 ? 16 : 8;
  const int rows = 1 + data[1] % 8;
  const int columns = 1 + data[2];
  add_number(id, 0x00280002, samples);
  vx::TagObj* attribute = nullptr;
  vx::new_tag(*vx::find_object(id), 0x00280004, VX_VR_CS, 1, 1, &attribute);
  VX_Set_Value_From_String(id, 0x00280004, samples == 3 ? "RGB" : "MONOCHROME2");
  if (samples == 3) add_number(id, 0x00280006, (data[0] & 4) != 0 ? 1 : 0);
  add_number(id, 0x00280008, data[3] % 9);
  add_number(id, 0x00280010, rows);
  add_number(id, 0x00280011, columns);
  add_number(id, 0x00280100, bits);
  add_number(id, 0x00280101, bits);
  add_number(id, 0x00280103, 0);
  const bool decodes = (data[0] & 8) != 0;
  const auto decompressor = syntax == RLE ? VX_RLE_Decompressor : VX_General_Decompressor;
  VX_Register_Compression_Callbacks(id, nullptr, decodes ? decompressor : nullptr);
  const std::size_t piece = 1 + data[4];
  const std::string_view rest(reinterpret_cast<const char*>(data) + 5, size - 5);
  store(id, rest, piece);
  read_all(id);
  // The same bytes as pixels.
  VX_Set_Message_Transfer_Syntax(id, RLE);
  std::string frame(rest);
  frame.resize(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns) *
               static_cast<std::size_t>(samples) * static_cast<std::size_t>(bits / 8));
  frame.resize(frame.size() + frame.size() % 2);
  VX_Set_Value_From_Int(id, 0x00280008, 1);
  VX_Register_Compression_Callbacks(id, VX_RLE_Compressor, VX_RLE_Decompressor);
  require(VX_Set_Encapsulated_Value_From_Function(id, kPixelData, &frame, &give) == VX_NORMAL_COMPLETION);
  require(VX_Close_Encapsulated_Value(id, kPixelData) == VX_NORMAL_COMPLETION);
  std::string back;
  require(VX_Get_Frame_To_Function(id, 0, &back, &take) == VX_NORMAL_COMPLETION);
  require(back == frame);
  VX_Free_Message(&id);
  return 0;
}
