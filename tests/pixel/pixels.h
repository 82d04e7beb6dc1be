// Images for tests, the callbacks that carry frames, and hashes of what came out.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "model/attributes.h"
#include "model/values.h"
#include "support.h"
#include "vexalkit.h"

namespace pixels {

inline constexpr uint32_t kPixelData = 0x7FE00010;

struct Image {
  int rows = 0, columns = 0, samples = 1, allocated = 8, stored = 8, is_signed = 0, planar = 0;
  int frames = 1;
  std::string photometric = "MONOCHROME2";

  std::size_t frame_size() const {
    const int count = photometric.rfind("YBR_FULL_422", 0) == 0 ? 2 : samples;
    return static_cast<std::size_t>(rows) * columns * count * (allocated / 8);
  }
};

inline void describe(int32_t id, const Image& image) {
  VX_Set_Value_From_Int(id, 0x00280002, image.samples);
  VX_Set_Value_From_String(id, 0x00280004, image.photometric.c_str());
  if (image.samples > 1) {
    VX_Add_Nonstandard_Attribute(id, 0x00280006, VX_VR_US);
    VX_Set_Value_From_Int(id, 0x00280006, image.planar);
  }
  if (image.frames != 1) VX_Set_Value_From_Int(id, 0x00280008, image.frames);
  VX_Set_Value_From_Int(id, 0x00280010, image.rows);
  VX_Set_Value_From_Int(id, 0x00280011, image.columns);
  VX_Set_Value_From_Int(id, 0x00280100, image.allocated);
  VX_Set_Value_From_Int(id, 0x00280101, image.stored);
  VX_Set_Value_From_Int(id, 0x00280102, image.stored - 1);
  VX_Set_Value_From_Int(id, 0x00280103, image.is_signed);
}

// A frame that is given in pieces; the last flag comes with the last of them, or with one of size 0.
struct Feed {
  std::string bytes;
  std::size_t piece = 0;  // 0: whole
  bool late_last = false;
  std::size_t at = 0;
};
inline VX_STATUS feed(int32_t, uint32_t, int32_t, void* user, uint32_t* size, void** data, int32_t* last) {
  auto& f = *static_cast<Feed*>(user);
  const std::size_t part = std::min(f.piece == 0 ? f.bytes.size() : f.piece, f.bytes.size() - f.at);
  *data = f.bytes.data() + f.at;
  *size = static_cast<uint32_t>(part);
  f.at += part;
  *last = f.at == f.bytes.size() && (!f.late_last || part == 0) ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

// What a delivery brought, and whether its calls were in order.
struct Taken {
  std::string bytes;
  int calls = 0, lasts = 0;
};
inline VX_STATUS take(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t first, int32_t last) {
  auto& t = *static_cast<Taken*>(user);
  EXPECT_EQ(t.lasts, 0) << "a call behind the last";
  if (last != 0) {
    EXPECT_EQ(size, 0U);
    ++t.lasts;
    return VX_NORMAL_COMPLETION;
  }
  EXPECT_EQ(first != 0, t.calls == 0);
  ++t.calls;
  t.bytes.append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

inline VX_STATUS set_frame(int32_t id, bool first, Feed feeder) {
  return first ? VX_Set_Encapsulated_Value_From_Function(id, kPixelData, &feeder, &feed)
               : VX_Set_Next_Encapsulated_Value_From_Function(id, kPixelData, &feeder, &feed);
}
inline VX_STATUS get_frame(int32_t id, int32_t number, std::string& bytes) {
  Taken taken;
  const VX_STATUS status = VX_Get_Frame_To_Function(id, number, &taken, &take);
  EXPECT_EQ(taken.lasts, status == VX_NORMAL_COMPLETION ? 1 : 0);
  bytes = taken.bytes;
  return status;
}
// Frames one after the other; the status of the last delivery.
inline VX_STATUS get_frames(int32_t id, std::vector<std::string>& frames) {
  frames.clear();
  VX_STATUS status = VX_END_OF_FRAME;
  while (status == VX_END_OF_FRAME) {
    Taken taken;
    status = frames.empty() ? VX_Get_Encapsulated_Value_To_Function(id, kPixelData, &taken, &take)
                            : VX_Get_Next_Encapsulated_Value_To_Function(id, kPixelData, &taken, &take);
    if (status != VX_NORMAL_COMPLETION && status != VX_END_OF_FRAME) break;
    frames.push_back(taken.bytes);
  }
  return status;
}

inline std::string value(int32_t id) {
  std::string bytes(1 << 24, '\0');
  uint32_t length = 0;
  EXPECT_EQ(
      VX_Get_Value_To_Buffer(id, kPixelData, static_cast<uint32_t>(bytes.size()), bytes.data(), &length),
      VX_NORMAL_COMPLETION);
  bytes.resize(length);
  return bytes;
}
// Stores a value in pieces of the size, which have nothing to do with its items.
inline void set_value(int32_t id, const std::string& bytes, std::size_t piece) {
  VX_Add_Standard_Attribute(id, kPixelData);
  vx::MsgObj& object = *vx::find_object(id);
  vx::TagObj& attribute = *vx::find_tag(object, kPixelData);
  attribute.VR = VX_VR_OB;
  vx::clear_value(object, attribute, false, false);
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    const std::size_t part = std::min(piece, bytes.size() - at);
    ASSERT_EQ(vx::store_value(object, attribute, bytes.data() + at, static_cast<uint32_t>(part),
                              {.first = at == 0, .last = at + part == bytes.size()}),
              VX_NORMAL_COMPLETION);
  }
}

inline std::string le32(uint32_t v) {
  std::string bytes(4, '\0');
  std::memcpy(bytes.data(), &v, 4);
  return bytes;
}
inline std::string item(std::string_view data) {
  return std::string("\xFE\xFF\x00\xE0", 4) + le32(static_cast<uint32_t>(data.size())) + std::string(data);
}
inline std::string table(const std::vector<uint32_t>& offsets) {
  std::string entries;
  for (const uint32_t offset : offsets) entries += le32(offset);
  return item(entries);
}
inline const std::string kDelimiter("\xFE\xFF\xDD\xE0\0\0\0\0", 8);

// Noise with runs, smooth parts and edges, the same each time; values keep to the bits stored.
inline std::string picture(const Image& image, uint32_t seed) {
  std::string bytes(image.frame_size(), '\0');
  uint32_t state = seed * 2654435761U + 1;
  const std::size_t width = static_cast<std::size_t>(image.allocated / 8);
  const std::size_t count = bytes.size() / width;
  int32_t value = 0;
  const int32_t low = image.is_signed != 0 ? -(1 << (image.stored - 1)) : 0;
  const int32_t high = low + static_cast<int32_t>((1U << image.stored) - 1);
  for (std::size_t i = 0; i < count; ++i) {
    state = state * 1664525U + 1013904223U;
    const uint32_t roll = state >> 24;
    if (roll < 20) {
      value = low + static_cast<int32_t>((state >> 4) % (1U << image.stored));
    } else if (roll < 160) {
      value += static_cast<int32_t>((state >> 8) % 7) - 3;
    }
    value = std::clamp(value, low, high);
    const int64_t sample = value;
    std::memcpy(bytes.data() + i * width, &sample, width);
  }
  return bytes;
}

struct Codecs {
  VX_COMPRESSION_CALLBACK compressor = nullptr;
  VX_COMPRESSION_CALLBACK decompressor = nullptr;
};
inline constexpr Codecs kGeneral{VX_General_Compressor, VX_General_Decompressor};
inline Codecs codecs_of(VX_TRANSFER_SYNTAX syntax) {
  if (syntax == RLE) return {VX_RLE_Compressor, VX_RLE_Decompressor};
  if (syntax >= HTJ2K_LOSSLESS) return kGeneral;  // of later years
  return syntax == EXPLICIT_LITTLE_ENDIAN ? Codecs{}
                                          : Codecs{VX_Standard_Compressor, VX_Standard_Decompressor};
}

inline std::string no_frame(VX_STATUS status) {
  return "#" + std::to_string(status);
}

class PixelTest : public support::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    ASSERT_EQ(VX_Open_Empty_Message(&id_), VX_NORMAL_COMPLETION);
  }
  // A message of the syntax with the image's description and the codec pair.
  void prepare(VX_TRANSFER_SYNTAX syntax, const Image& image, Codecs codecs = {}) {
    VX_Empty_Message(id_);
    ASSERT_EQ(VX_Set_Message_Transfer_Syntax(id_, syntax), VX_NORMAL_COMPLETION);
    describe(id_, image);
    ASSERT_EQ(VX_Register_Compression_Callbacks(id_, codecs.compressor, codecs.decompressor),
              VX_NORMAL_COMPLETION);
  }
  // A frame, or no_frame of the status.
  std::string frame(int32_t number) const { return frame_of(id_, number); }
  static std::string frame_of(int32_t id, int32_t number) {
    std::string bytes;
    const VX_STATUS status = get_frame(id, number, bytes);
    return status == VX_NORMAL_COMPLETION ? bytes : no_frame(status);
  }
  // All of them, one after the other.
  std::vector<std::string> all_frames() const {
    std::vector<std::string> frames;
    EXPECT_EQ(get_frames(id_, frames), VX_NORMAL_COMPLETION);
    return frames;
  }
  int32_t id_ = -1;
};

}  // namespace pixels
