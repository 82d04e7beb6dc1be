#include "pixel/compression_attributes.h"

#include <cstdio>
#include <vector>

#include "config/config.h"
#include "frame/log.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/values.h"
#include "pixel/image.h"
#include "pixel/standard.h"

namespace vx {
namespace {

constexpr uint32_t kImageType = 0x00080008U;
constexpr uint32_t kDerivationDescription = 0x00082111U;
constexpr uint32_t kLossyImageCompression = 0x00282110U;
constexpr uint32_t kLossyRatio = 0x00282112U;
constexpr uint32_t kLossyMethod = 0x00282114U;
constexpr char kFunction[] = "VX_Duplicate_Message";

void warn(const char* format, VX_STATUS status) {
  if (status != kOk) log_line(VX_LOG_WARNING, kFunction, format, status_text(status));
}

// What a transfer syntax writes.
struct Entry {
  const char* method = "";
  std::string photometric;
  std::string description;
};

std::string print(const char* format, int first, int second) {
  char text[128];
  std::snprintf(text, sizeof text, format, first, second);
  return text;
}

Entry entry_for(const ImageAttributes& image) {
  Entry entry;
  const bool rgb = image.photometric().starts_with("RGB");
  const int luminance = config_int(VX_CFG_COMPRESSION_LUM_FACTOR);
  const int chrominance = config_int(VX_CFG_COMPRESSION_CHROM_FACTOR);
  switch (image.TransferSyntax) {
    case JPEG_BASELINE:
    case JPEG_EXTENDED_2_4:
      entry.method = "ISO_10918_1";
      if (subsamples_rgb() && (rgb || image.photometric() == "YBR_FULL")) entry.photometric = "YBR_FULL_422";
      entry.description =
          print(image.TransferSyntax == JPEG_BASELINE
                    ? "JPEG Baseline (Process 1): Luminance Factor: %d, Chrominance Factor: %d"
                    : "JPEG Extended (Process 2 & 4): Luminance Factor: %d, Chrominance Factor: %d",
                luminance, chrominance);
      break;
    case JPEG_2000_LOSSLESS_ONLY:
    case HTJ2K_LOSSLESS:
    case HTJ2K_LOSSLESS_RPCL:
      if (rgb) entry.photometric = "YBR_RCT";
      break;
    case JPEG_2000:
      if (!is_lossy_target(image.TransferSyntax)) {
        if (rgb) entry.photometric = "YBR_RCT";
        break;
      }
      entry.method = "ISO_15444_1";
      if (rgb) entry.photometric = "YBR_ICT";
      if (config_bool(VX_CFG_COMPRESSION_J2K_LOSSY_USE_QUALITY)) {
        entry.description = print("JPEG 2000 Lossy: Compression Quality parameter: %d",
                                  config_int(VX_CFG_COMPRESSION_J2K_LOSSY_QUALITY), 0);
      } else {
        char text[96];
        std::snprintf(text, sizeof text, "JPEG 2000 Lossy: Compression Ratio: %5.2f:1",
                      static_cast<double>(config_int(VX_CFG_COMPRESSION_J2K_LOSSY_RATIO)));
        entry.description = text;
      }
      break;
    case HTJ2K:
      entry.method = "ISO_15444_15";
      if (rgb) entry.photometric = "YBR_ICT";
      entry.description = print("High-Throughput JPEG 2000 Lossy: Compression Quality parameter: %d",
                                config_int(VX_CFG_COMPRESSION_QUALITY), 0);
      break;
    case JPEG_XL:
      if (!is_lossy(image)) break;
      entry.method = "ISO_18181_1";
      if (rgb) entry.photometric = "XYB";
      entry.description = print("JPEG XL Lossy: Quality: %d", config_int(VX_CFG_COMPRESSION_QUALITY), 0);
      break;
    default:
      break;
  }
  return entry;
}

bool is_jpeg2000(VX_TRANSFER_SYNTAX syntax) {
  return syntax == JPEG_2000_LOSSLESS_ONLY || syntax == JPEG_2000 || syntax == JPEG_2000_MC_LOSSLESS_ONLY ||
         syntax == JPEG_2000_MC || syntax == HTJ2K_LOSSLESS || syntax == HTJ2K_LOSSLESS_RPCL ||
         syntax == HTJ2K;
}

// The first value says that the pixels are no longer those that were acquired.
void derive_image_type(MsgObj& object) {
  TagObj* attribute = find_tag(object, kImageType);
  if (attribute == nullptr || attribute->ValueCount < 1 || attribute->Length == 0) return;
  std::vector<std::string> values;
  char scratch[80];
  std::string_view text;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  for (int32_t i = 0; i < attribute->ValueCount && cursor.value != nullptr; ++i) {
    const VX_STATUS status = view_text(*attribute, cursor, scratch, text);
    if (status != kOk && status != VX_NULL_VALUE) {
      return warn("Unable to get Image Type after compression: %s", status);
    }
    values.emplace_back(status == kOk ? text : std::string_view());
    cursor_next(*attribute, cursor);
  }
  if (values.empty()) return;
  values.front() = "DERIVED";
  for (std::size_t i = 0; i < values.size(); ++i) {
    const VX_STATUS status = values[i].empty() && i != 0
                                 ? set_next_null(*attribute)
                                 : set_text(object, *attribute, values[i], i == 0, nullptr);
    if (status != kOk) return warn("Unable to set Image Type after compression: %s", status);
  }
}

void write_lossy(MsgObj& object, const ImageAttributes& image, const Entry& entry) {
  put_text(object, kLossyImageCompression, "01");
  warn("Unable to set Lossy Image Compression after compression: %s",
       put_text(object, kLossyMethod, entry.method));
  if (!entry.description.empty()) {
    warn("Unable to set Derivation Description after compression: %s",
         put_text(object, kDerivationDescription, entry.description));
  }
  const TagObj* pixels = find_tag(object, kPixelData);
  if (pixels != nullptr && pixels->Length != 0 && pixels->Length != kUndefinedLength) {
    const double size = static_cast<double>(image.FrameSize) * frame_count(object);
    char ratio[48];
    std::snprintf(ratio, sizeof ratio, "%5.2f",
                  static_cast<double>(static_cast<float>(size / pixels->Length)));
    warn("Unable to set Lossy Compression Ratio after compression: %s", put_text(object, kLossyRatio, ratio));
  }
  derive_image_type(object);
}

}  // namespace

VX_STATUS put_text(MsgObj& object, uint32_t tag, const std::string& text) {
  TagObj* attribute = nullptr;
  const VX_STATUS status = find_or_add_tag(object, tag, "", attribute);
  return status == kOk ? set_text(object, *attribute, text, true, nullptr) : status;
}

void write_compression_attributes(MsgObj& object) {
  ImageAttributes image;
  if (read_image_attributes(object, "GetCompressionInfo", image, true) != kOk) return;
  const Entry entry = entry_for(image);
  if (!entry.photometric.empty()) {
    warn("Unable to set Photometric Interpretation after compression: %s",
         put_text(object, kPhotometric, entry.photometric));
  }
  if (*entry.method != '\0') write_lossy(object, image, entry);
}

std::string decompressed_photometric(MsgObj& source, VX_TRANSFER_SYNTAX syntax) {
  if (!config_bool(VX_CFG_UPDATE_GROUP_0028_ON_DUPLICATE)) return "";
  char photometric[21];
  if (read_text(source, kPhotometric, photometric, sizeof photometric) != kOk) return "";
  const std::string_view name = photometric;
  if (is_jpeg2000(syntax) && (name == "YBR_ICT" || name == "YBR_RCT")) return "RGB";
  if (syntax == JPEG_XL && name == "XYB") return "RGB";
  const bool jpeg = syntax == JPEG_BASELINE || syntax == JPEG_EXTENDED_2_4 || syntax == JPEG_XL_RECOMPRESSION;
  return jpeg && name == "YBR_FULL_422" && subsamples_rgb() ? "RGB" : "";
}

}  // namespace vx
