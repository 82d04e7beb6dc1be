// Images for tests, the callbacks that carry frames, and hashes of what came out.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
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
  int rows = 0;
  int columns = 0;
  int samples = 1;
  int allocated = 8;
  int stored = 8;
  int is_signed = 0;
  int planar = 0;
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
  int calls = 0;
  int lasts = 0;
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
    std::memcpy(bytes.data() + i * width, &value, width);
  }
  return bytes;
}

// SHA-256 (FIPS 180-4) as lower-case digits.
inline std::string sha256(std::string_view text) {
  static const std::array<uint32_t, 64> k = [] {
    std::array<uint32_t, 64> table{};
    int n = 0;
    for (int p = 2; n < 64; ++p) {
      bool prime = true;
      for (int d = 2; d * d <= p; ++d) prime = prime && p % d != 0;
      if (!prime) continue;
      long double root = 1;
      for (int i = 0; i < 200; ++i) root -= (root * root * root - p) / (3 * root * root);
      table[static_cast<std::size_t>(n++)] =
          static_cast<uint32_t>((root - static_cast<long double>(static_cast<int>(root))) * 4294967296.0L);
    }
    return table;
  }();
  uint32_t h[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                   0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::string data(text);
  data += '\x80';
  data.append((120 - data.size() % 64) % 64, '\0');
  for (int i = 7; i >= 0; --i) data += static_cast<char>((static_cast<uint64_t>(text.size()) * 8) >> (8 * i));
  for (std::size_t at = 0; at < data.size(); at += 64) {
    uint32_t w[64];
    for (int i = 0; i < 16; ++i) {
      uint32_t v;
      std::memcpy(&v, data.data() + at + static_cast<std::size_t>(i) * 4, 4);
      w[i] = __builtin_bswap32(v);
    }
    for (int i = 16; i < 64; ++i) {
      const uint32_t a = w[i - 15], b = w[i - 2];
      w[i] = w[i - 16] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ (a >> 3)) + w[i - 7] +
             (std::rotr(b, 17) ^ std::rotr(b, 19) ^ (b >> 10));
    }
    uint32_t v[8];
    std::copy(std::begin(h), std::end(h), v);
    for (std::size_t i = 0; i < 64; ++i) {
      const uint32_t t1 = v[7] + (std::rotr(v[4], 6) ^ std::rotr(v[4], 11) ^ std::rotr(v[4], 25)) +
                          ((v[4] & v[5]) ^ (~v[4] & v[6])) + k[i] + w[i];
      const uint32_t t2 = (std::rotr(v[0], 2) ^ std::rotr(v[0], 13) ^ std::rotr(v[0], 22)) +
                          ((v[0] & v[1]) ^ (v[0] & v[2]) ^ (v[1] & v[2]));
      for (int j = 7; j > 0; --j) v[j] = v[j - 1];
      v[4] += t1;
      v[0] = t1 + t2;
    }
    for (int i = 0; i < 8; ++i) h[i] += v[i];
  }
  std::string digits;
  for (const uint32_t word : h) {
    char text8[9];
    std::snprintf(text8, sizeof text8, "%08x", word);
    digits += text8;
  }
  return digits;
}

class PixelTest : public support::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    ASSERT_EQ(VX_Open_Empty_Message(&id_), VX_NORMAL_COMPLETION);
  }
  // A message of the syntax with the image's description and the codec pair.
  void prepare(VX_TRANSFER_SYNTAX syntax, const Image& image, VX_COMPRESSION_CALLBACK compressor = nullptr,
               VX_COMPRESSION_CALLBACK decompressor = nullptr) {
    VX_Empty_Message(id_);
    ASSERT_EQ(VX_Set_Message_Transfer_Syntax(id_, syntax), VX_NORMAL_COMPLETION);
    describe(id_, image);
    ASSERT_EQ(VX_Register_Compression_Callbacks(id_, compressor, decompressor), VX_NORMAL_COMPLETION);
  }
  int32_t id_ = -1;
};

}  // namespace pixels
