// What an object says of its image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "model/object.h"

namespace vx {

inline constexpr uint32_t kSamplesPerPixel = 0x00280002U;
inline constexpr uint32_t kPhotometric = 0x00280004U;
inline constexpr uint32_t kPlanarConfiguration = 0x00280006U;
inline constexpr uint32_t kNumberOfFrames = 0x00280008U;
inline constexpr uint32_t kRows = 0x00280010U;
inline constexpr uint32_t kColumns = 0x00280011U;
inline constexpr uint32_t kBitsAllocated = 0x00280100U;
inline constexpr uint32_t kBitsStored = 0x00280101U;
inline constexpr uint32_t kPixelRepresentation = 0x00280103U;

// The first value of an attribute as a number. VX_INVALID_TAG, VX_EMPTY_VALUE, VX_NULL_VALUE.
VX_STATUS read_number(MsgObj& object, uint32_t tag, uint32_t& value);
// The first value as text, cut to the buffer.
VX_STATUS read_text(MsgObj& object, uint32_t tag, char* buffer, std::size_t size);
// Number of Frames; 1 if it says nothing.
uint32_t frame_count(MsgObj& object);

// A photometric interpretation with two samples for each pixel, whatever Samples per Pixel says.
inline bool is_packed_422(std::string_view photometric) {
  return photometric.starts_with("YBR_FULL_422");
}
// Bits and bytes of one frame as this layer counts them: samples fill whole bytes, but for single bits.
// VX_EMPTY_VALUE: the object does not say.
VX_STATUS frame_bits(MsgObj& object, uint64_t& bits);
VX_STATUS frame_bytes(MsgObj& object, uint64_t& bytes);

// The syntax under which an object's Pixel Data stands. VX_INVALID_TRANSFER_SYNTAX unless it is an
// encapsulated one.
VX_STATUS encapsulated_syntax(MsgObj& object, VX_TRANSFER_SYNTAX& syntax);
bool is_encapsulated_syntax(VX_TRANSFER_SYNTAX syntax);

// The image as a codec sees it.
struct ImageAttributes {
  VX_TRANSFER_SYNTAX TransferSyntax = 0;
  int32_t PixelDataVR = VX_VR_OB;
  char PhotometricInterpretation[21] = {};
  uint32_t Rows = 0;
  uint32_t Columns = 0;
  uint32_t BitsAllocated = 0;
  uint32_t BitsStored = 0;
  uint32_t SamplesPerPixel = 0;
  uint32_t PlanarConfiguration = 0;
  uint32_t PixelRepresentation = 0;
  uint32_t FrameSize = 0;

  // Bytes of each plane of bytes; eight pixels share a byte where one has a single bit.
  uint32_t plane_bytes() const {
    const uint64_t pixels = uint64_t{Rows} * Columns;
    return static_cast<uint32_t>(BitsAllocated == 1 ? (pixels * SamplesPerPixel + 7) / 8 : pixels);
  }
  std::string_view photometric() const { return PhotometricInterpretation; }
  uint32_t sample_bytes() const { return (BitsAllocated + 7) / 8; }
};
// Reads them all; `function` names the caller in the log. With `any` every photometric interpretation and 1
// bit and whole bytes up to 64 bits allocated will do. VX_CALLBACK_CANNOT_COMPLY.
VX_STATUS read_image_attributes(MsgObj& object, const char* function, ImageAttributes& image,
                                bool any = false);

}  // namespace vx
