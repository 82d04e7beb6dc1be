#include "pixel/standard_checks.h"

#include <cstdarg>

#include "config/transfer_syntax.h"
#include "frame/log.h"
#include "pixel/codec_jpeg2000.h"
#include "pixel/standard.h"

namespace vx {
namespace {

enum class Family { None, Baseline, Extended, Lossless, JpegLs, Jpeg2000, JpegXl };

Family family_of(VX_TRANSFER_SYNTAX syntax) {
  switch (syntax) {
    case JPEG_BASELINE:
      return Family::Baseline;
    case JPEG_EXTENDED_2_4:
      return Family::Extended;
    case JPEG_LOSSLESS_HIER_14:
      return Family::Lossless;
    case JPEG_LS_LOSSLESS:
    case JPEG_LS_LOSSY:
      return Family::JpegLs;
    case JPEG_2000_LOSSLESS_ONLY:
    case JPEG_2000:
    case HTJ2K_LOSSLESS:
    case HTJ2K_LOSSLESS_RPCL:
    case HTJ2K:
      return Family::Jpeg2000;
    case JPEG_XL_LOSSLESS:
    case JPEG_XL_RECOMPRESSION:
    case JPEG_XL:
      return Family::JpegXl;
    default:
      return Family::None;
  }
}

bool is_grey(const ImageAttributes& image) {
  return image.photometric().starts_with("MONOCHROME");
}
bool is_rgb(const ImageAttributes& image) {
  return image.photometric().starts_with("RGB");
}
bool is_jpeg2000_colour(const ImageAttributes& image) {
  return image.photometric().starts_with("YBR_ICT") || image.photometric().starts_with("YBR_RCT");
}
bool is_packed(const ImageAttributes& image) {
  return is_packed_422(image.photometric());
}
bool is_colour_of_8(const ImageAttributes& image) {
  return image.SamplesPerPixel == 3 && image.BitsAllocated == 8 && image.BitsStored == 8;
}

// A check that an image of the family must pass; the two texts are those of the compressor and the
// decompressor.
struct ImageCheck {
  Family family;
  bool (*passes)(const ImageAttributes& image, bool compresses);
  const char* compressor;
  const char* decompressor;
  bool strict = false;  // not for the general compressor
};
constexpr ImageCheck kChecks[] = {
    {Family::Baseline, [](const ImageAttributes& i, bool) { return i.BitsStored == 8; },
     "BASELINE requires bits stored = 8", "BASELINE must be 8 bits stored. VX_Standard_Decompressor"},
    {Family::Extended,
     [](const ImageAttributes& i, bool) {
       return i.BitsStored == 8 || i.BitsStored == 10 || i.BitsStored == 12;
     },
     "EXTENDED_2_4 requires bits stored = 8,10,or 12",
     "EXTENDED_2_4 must be 8,10, or 12 bits stored. VX_Standard_Decompressor"},
    {Family::Baseline,
     [](const ImageAttributes& i, bool c) {
       return !c || !is_grey(i) || i.BitsStored != 8 || i.BitsAllocated != 16;
     },
     "No support for LOSSY bits allocated=16, bits stored=8. VX_Standard_Compressor", ""},
    {Family::Extended,
     [](const ImageAttributes& i, bool c) {
       return !c || !is_grey(i) || i.BitsStored != 8 || i.BitsAllocated != 16;
     },
     "No support for LOSSY bits allocated=16, bits stored=8. VX_Standard_Compressor", ""},
    {Family::Lossless, [](const ImageAttributes& i, bool) { return i.BitsStored >= 2 && i.BitsStored <= 16; },
     "LOSSLESS requires bits stored between 2 and 16. VX_Standard_Compressor",
     "LOSSLESS requires bits stored between 2 and 16. VX_Standard_Decompressor"},
    {Family::Lossless, [](const ImageAttributes& i, bool) { return !is_packed(i); },
     "LOSSLESS YBR_FULL_422 not supported", "LOSSLESS YBR_FULL_422 not supported. VX_Standard_Decompressor"},
    {Family::JpegLs, [](const ImageAttributes& i, bool) { return !is_packed(i); },
     "JLS YBR_FULL_422 not supported", "JPEG-LS: YBR_FULL_422 not supported. VX_Standard_Decompressor"},
    {Family::JpegLs, [](const ImageAttributes& i, bool) { return !is_rgb(i) || is_colour_of_8(i); },
     "JPEG-LS: RGB requires 3 samples per pixel, 8 bits allocated and 8 bits stored. VX_Standard_Compressor",
     "JPEG-LS: RGB requires 3 samples per pixel, 8 bits allocated and 8 bits stored. "
     "VX_Standard_Decompressor",
     true},
    {Family::JpegLs,
     [](const ImageAttributes& i, bool) { return !is_grey(i) || i.BitsAllocated >= i.BitsStored; },
     "JPEG-LS: grayscale requires bits allocated to be >= bits stored. VX_Standard_Compressor",
     "JPEG-LS: grayscale requires bits allocated to be >= bits stored. VX_Standard_Decompressor"},
    {Family::JpegLs, [](const ImageAttributes& i, bool) { return is_grey(i) || is_rgb(i); },
     "Unsupported photometric interpretation %s. VX_Standard_Compressor",
     "Unsupported photometric interpretation %s. VX_Standard_Decompressor", true},
    {Family::Jpeg2000, [](const ImageAttributes& i, bool) { return !is_packed(i); },
     "J2K YBR_FULL_422 not supported", "JPEG_2000 YBR_FULL_422 not supported. VX_Standard_Decompressor"},
    {Family::Jpeg2000,
     [](const ImageAttributes& i, bool c) {
       return (!is_rgb(i) && (c || !is_jpeg2000_colour(i))) || is_colour_of_8(i);
     },
     "JPEG_2000 RGB requires 3 samples per pixel, 8 bits allocated and 8 bits stored. VX_Standard_Compressor",
     "JPEG_2000 RGB requires 3 samples per pixel, 8 bits allocated and 8 bits stored. "
     "VX_Standard_Decompressor",
     true},
    {Family::Jpeg2000,
     [](const ImageAttributes& i, bool) { return !is_grey(i) || i.BitsAllocated >= i.BitsStored; },
     "JPEG_2000 grayscale requires bits allocated to be >= bits stored. VX_Standard_Compressor",
     "JPEG_2000 grayscale requires bits allocated to be >= bits stored. VX_Standard_Decompressor"},
    {Family::Jpeg2000,
     [](const ImageAttributes& i, bool c) {
       return is_grey(i) || is_rgb(i) || (!c && is_jpeg2000_colour(i));
     },
     "Unsupported photometric interpretation %s. VX_Standard_Compressor",
     "Unsupported photometric interpretation %s. VX_Standard_Decompressor", true},
};

// Not those of the standard compressor, whose syntaxes are fixed.
bool is_general(Family family) {
  return family == Family::JpegXl;
}

// What the general compressor asks of an image, beside the checks that it shares.
struct GeneralCheck {
  bool (*passes)(const ImageAttributes& image);
  const char* text;
};
constexpr GeneralCheck kGeneralChecks[] = {
    {[](const ImageAttributes& i) {
       const bool wide = i.TransferSyntax == HTJ2K_LOSSLESS || i.TransferSyntax == HTJ2K_LOSSLESS_RPCL;
       return i.BitsAllocated == 8 || i.BitsAllocated == 16 ||
              (wide && i.BitsAllocated == 32 && i.BitsStored <= kMostJpeg2000Bits);
     },
     "This transfer syntax takes 8 or 16 bits allocated; HTJ2K without loss also 32 with up to 24 stored"},
    {[](const ImageAttributes& i) { return i.BitsStored != 0 && i.BitsStored <= i.BitsAllocated; },
     "Bits Stored must be 1 to Bits Allocated"},
    {[](const ImageAttributes& i) { return i.SamplesPerPixel == 1 || i.SamplesPerPixel == 3; },
     "Samples per Pixel must be 1 or 3"},
    {[](const ImageAttributes& i) { return i.TransferSyntax != JPEG_XL_RECOMPRESSION; },
     "This transfer syntax keeps JPEG streams: what is none has to become one first"},
    {[](const ImageAttributes& i) { return family_of(i.TransferSyntax) != Family::JpegXl || !is_packed(i); },
     "This transfer syntax does not take YBR_FULL_422"},
    {[](const ImageAttributes& i) {
       const bool lossy = is_lossy_target(i.TransferSyntax) || i.TransferSyntax == JPEG_LS_LOSSY;
       return !lossy || !i.photometric().starts_with("PALETTE");
     },
     "Numbers of a palette's colours can not be compressed with loss"},
    {[](const ImageAttributes& i) {
       const Family family = family_of(i.TransferSyntax);
       return i.SamplesPerPixel == 1 || is_colour_of_8(i) ||
              (family != Family::Baseline && family != Family::Extended);
     },
     "Colour takes 8 bits in this transfer syntax"},
};

}  // namespace

VX_STATUS refuse(const char* function, const char* format, ...) {
  va_list values;
  va_start(values, format);
  log_line_v(VX_LOG_ERROR, function, format, values);
  va_end(values);
  return VX_CALLBACK_CANNOT_COMPLY;
}

VX_STATUS check_image(const Direction& direction, const char* function, const ImageAttributes& image) {
  if (direction.any && keeps_layout(image.TransferSyntax)) return kOk;
  const Family family = family_of(image.TransferSyntax);
  const bool decodes_any = direction.any && !direction.compresses;
  const bool known = decodes_any ? codec_for(image.TransferSyntax) != nullptr
                                 : family != Family::None && (direction.any || !is_general(family));
  if (!known) {
    return refuse(function, "Transfer syntax unsupported by %s: %s ", direction.function,
                  syntax_display_name(image.TransferSyntax));
  }
  if (decodes_any) {
    const bool wide = image.BitsAllocated == 32 && family == Family::Jpeg2000;
    return wide || image.BitsAllocated <= 16 ? kOk : refuse(function, "Bits Allocated is beyond 16");
  }
  for (const GeneralCheck& check : kGeneralChecks) {
    if (direction.any && !check.passes(image)) return refuse(function, "%s", check.text);
  }
  for (const ImageCheck& check : kChecks) {
    if (check.family != family || (check.strict && direction.any)) continue;
    if (check.passes(image, direction.compresses)) continue;
    log_line(VX_LOG_ERROR, function, direction.compresses ? check.compressor : check.decompressor,
             image.PhotometricInterpretation);
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  return kOk;
}

}  // namespace vx
