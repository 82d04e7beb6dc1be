#include "pixel/image.h"

#include <cstring>

#include "codec/message_syntax.h"
#include "config/transfer_syntax.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/values.h"

namespace vx {
namespace {

VX_STATUS view_first(MsgObj& object, uint32_t tag, char (&scratch)[80], std::string_view& text) {
  const TagObj* attribute = find_tag(object, tag);
  if (attribute == nullptr) return VX_INVALID_TAG;
  int32_t count = 0;
  if (VX_STATUS status = value_count(*attribute, count); status != kOk) return status;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  return view_text(*attribute, cursor, scratch, text);
}

VX_STATUS refuse(const char* function, const char* format, const char* argument) {
  VXlog_Function(function, VX_LOG_ERROR, format, argument);
  return VX_CALLBACK_CANNOT_COMPLY;
}

bool starts_with_any(std::string_view text, std::initializer_list<std::string_view> names) {
  for (const std::string_view name : names) {
    if (text.starts_with(name)) return true;
  }
  return false;
}

struct NumberRule {
  uint32_t tag;
  uint32_t ImageAttributes::*field;
  const char* missing;
};
constexpr NumberRule kSizes[] = {
    {kRows, &ImageAttributes::Rows, "Message must contain VX_ATT_ROWS: %s"},
    {kColumns, &ImageAttributes::Columns, "Message must contain VX_ATT_COLUMNS: %s"},
    {kPixelRepresentation, &ImageAttributes::PixelRepresentation,
     "Message must contain VX_ATT_PIXEL_REPRESENTATION: %s"},
    {kSamplesPerPixel, &ImageAttributes::SamplesPerPixel,
     "Message must contain VX_ATT_SAMPLES_PER_PIXEL: %s"},
};

VX_STATUS check_photometric(const char* function, const ImageAttributes& image) {
  const std::string_view name = image.photometric();
  if (image.TransferSyntax == RLE) {
    if (name == "YBR_FULL" || starts_with_any(name, {"MONOCHROME", "RGB", "PALETTE COLOR"})) return kOk;
    return refuse(function, "%s",
                  "Message must be MONOCHROME, RGB, YBR_FULL or PALETTE COLOR for RLE compression");
  }
  if (starts_with_any(name, {"MONOCHROME", "RGB", "YBR_ICT", "YBR_RCT", "YBR_FULL_422"})) return kOk;
  return refuse(function, "%s", "Message must be MONOCHROME, RGB, YBR_ICT, YBR_RCT, or YBR_FULL_422");
}

// What is odd but does not stop a run.
void judge_samples(const char* function, const ImageAttributes& image) {
  const std::string_view name = image.photometric();
  const bool grey = name.starts_with("MONOCHROME");
  const bool colour = starts_with_any(name, {"RGB", "YBR_ICT", "YBR_RCT", "YBR_FULL_422"});
  if ((grey && image.SamplesPerPixel > 1) || (colour && image.SamplesPerPixel < 2)) {
    VXlog_Function(function, VX_LOG_ERROR, "Invalid VX_ATT_SAMPLES_PER_PIXEL [%d] for %s",
                   static_cast<int>(image.SamplesPerPixel), image.PhotometricInterpretation);
  }
}

}  // namespace

VX_STATUS read_number(MsgObj& object, uint32_t tag, uint32_t& value) {
  char scratch[80];
  std::string_view text;
  value = 0;
  const VX_STATUS status = view_first(object, tag, scratch, text);
  if (status == kOk) value = parse_uint32(text);
  return status;
}

VX_STATUS read_text(MsgObj& object, uint32_t tag, char* buffer, std::size_t size) {
  char scratch[80];
  std::string_view text;
  buffer[0] = '\0';
  const VX_STATUS status = view_first(object, tag, scratch, text);
  if (status == kOk) copy_text(buffer, size, trim(text));
  return status;
}

uint32_t frame_count(MsgObj& object) {
  uint32_t frames = 0;
  read_number(object, kNumberOfFrames, frames);
  return frames == 0 || frames > INT32_MAX ? 1 : frames;
}

VX_STATUS frame_bits(MsgObj& object, uint64_t& all) {
  uint32_t bits = 0;
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t samples = 0;
  read_number(object, kBitsAllocated, bits);
  read_number(object, kRows, rows);
  read_number(object, kColumns, columns);
  read_number(object, kSamplesPerPixel, samples);
  if (bits == 0 || rows == 0 || columns == 0 || samples == 0) return VX_EMPTY_VALUE;
  // Larger numbers do not fit the attributes' own VR.
  if (bits > UINT16_MAX || rows > UINT16_MAX || columns > UINT16_MAX || samples > UINT16_MAX)
    return VX_EMPTY_VALUE;
  char photometric[21];
  read_text(object, kPhotometric, photometric, sizeof photometric);
  if (is_packed_422(photometric)) samples = 2;
  const uint64_t of_sample = bits == 1 ? 1 : (bits + 7) / 8 * 8;
  if (__builtin_mul_overflow(static_cast<uint64_t>(rows) * columns, samples * of_sample, &all) ||
      all > UINT64_MAX - 7) {
    return VX_EMPTY_VALUE;
  }
  return kOk;
}

VX_STATUS frame_bytes(MsgObj& object, uint64_t& bytes) {
  const VX_STATUS status = frame_bits(object, bytes);
  bytes = (bytes + 7) / 8;
  return status;
}

bool is_encapsulated_syntax(VX_TRANSFER_SYNTAX syntax) {
  Encoding encoding{};
  return syntax_encoding(syntax, encoding) == kOk && encoding.encapsulated;
}

VX_STATUS encapsulated_syntax(MsgObj& object, VX_TRANSFER_SYNTAX& syntax) {
  syntax = object.TransferSyntax;
  if (object.SyntaxSet != 0 && is_encapsulated_syntax(syntax)) return kOk;
  if (is_file(object) && file_syntax(object, syntax) == kOk && is_encapsulated_syntax(syntax)) return kOk;
  return VX_INVALID_TRANSFER_SYNTAX;
}

VX_STATUS read_image_attributes(MsgObj& object, const char* function, ImageAttributes& image, bool any) {
  image = {};
  if (object.SyntaxSet != 0) {
    image.TransferSyntax = object.TransferSyntax;
  } else {
    char uid[80];
    VX_STATUS status = read_text(object, 0x00020010U, uid, sizeof uid);
    if (status != kOk) return refuse(function, "error getting tag 0x00020010: %s", status_text(status));
    status = syntax_from_uid(uid, image.TransferSyntax);
    if (status != kOk)
      return refuse(function, "Unable to convert transfer syntax string: %s", status_text(status));
  }
  const TagObj* pixels = find_tag(object, kPixelData);
  if (pixels == nullptr) {
    return refuse(function, "Message must contain pixel data VR: %s", status_text(VX_INVALID_TAG));
  }
  image.PixelDataVR = pixels->VR;
  VX_STATUS status = read_text(object, kPhotometric, image.PhotometricInterpretation,
                               sizeof image.PhotometricInterpretation);
  if (status != kOk) {
    return refuse(function, "Message must contain VX_ATT_PHOTOMETRIC_INTERPRETATION: %s",
                  status_text(status));
  }
  if (status = any ? kOk : check_photometric(function, image); status != kOk) return status;
  status = read_number(object, kBitsStored, image.BitsStored);
  if (status != kOk)
    return refuse(function, "Message must contain VX_ATT_BITS_STORED: %s", status_text(status));
  status = read_number(object, kBitsAllocated, image.BitsAllocated);
  const uint32_t bits = image.BitsAllocated;
  const bool known = bits == 8 || bits == 16;
  if (status != kOk || (!known && (!any || (bits != 1 && (bits % 8 != 0 || bits == 0 || bits > 64))))) {
    return refuse(function, "%s", "Message must contain VX_ATT_BITS_ALLOCATED, and must be 8 or 16");
  }
  for (const NumberRule& rule : kSizes) {
    status = read_number(object, rule.tag, image.*rule.field);
    if (status != kOk) return refuse(function, rule.missing, status_text(status));
  }
  judge_samples(function, image);
  if (image.SamplesPerPixel > 1) {
    read_number(object, kPlanarConfiguration, image.PlanarConfiguration);
    if (image.PlanarConfiguration != 0) {
      VXlog_Function(function, VX_LOG_ERROR, "Error. Planar Configuration is not 0: %d",
                     static_cast<int>(image.PlanarConfiguration));
    }
  }
  uint64_t bytes = 0;
  if (frame_bytes(object, bytes) != kOk || bytes > kMaxFrame || image.SamplesPerPixel > kMaxSamples) {
    return refuse(function, "%s", "The size of the image is not to be had or beyond the limit of a frame");
  }
  image.FrameSize = static_cast<uint32_t>(bytes);
  return kOk;
}

}  // namespace vx
