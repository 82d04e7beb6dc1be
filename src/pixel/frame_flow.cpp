#include "pixel/frame_flow.h"

#include <span>

#include "frame/limits.h"
#include "frame/log.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/values.h"
#include "pixel/compression_attributes.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VX_Duplicate_Message";

}  // namespace

const std::vector<uint8_t>& BitFrames::add(const void* data, uint32_t size, bool last) {
  bytes_.clear();
  for (const uint8_t byte : std::span(static_cast<const uint8_t*>(data), size)) {
    const auto part = static_cast<uint32_t>(std::min<uint64_t>(8, in_left_));
    held_ |= (byte & ((1U << part) - 1)) << held_bits_;
    held_bits_ += part;
    if ((in_left_ -= part) == 0) in_left_ = in_;
    while (held_bits_ != 0 && held_bits_ >= std::min<uint64_t>(8, out_left_)) give();
  }
  if (last && held_bits_ != 0) give();
  return bytes_;
}

void BitFrames::give() {
  const auto part = static_cast<uint32_t>(std::min<uint64_t>({8, out_left_, held_bits_}));
  bytes_.push_back(static_cast<uint8_t>(held_ & ((1U << part) - 1)));
  held_ >>= part;
  held_bits_ -= part;
  if ((out_left_ -= part) == 0) out_left_ = out_;
}

uint64_t uneven_bits(MsgObj& object) {
  uint64_t bits = 0;
  return frame_bits(object, bits) == kOk && bits % 8 != 0 ? bits : 0;
}

VX_STATUS FrameFeeder::begin() {
  clear_value(target_, attribute_, true, false);
  if (VX_STATUS status = measure_frame(); status != kOk) return status;
  target_.Started = 0;
  start_frame();
  return kOk;
}

VX_STATUS FrameFeeder::feed(const void* data, uint32_t size, bool last) {
  if (data == nullptr && size != 0) return VX_CALLBACK_PARM_ERROR;
  const auto* bytes = static_cast<const uint8_t*>(data);
  while (size != 0 && frames_done_ < frame_count_) {
    const uint32_t part = std::min(size, static_cast<uint32_t>(target_.FrameBytesLeft));
    const bool ends = part == static_cast<uint32_t>(target_.FrameBytesLeft);
    if (VX_STATUS status = pass_on(bytes, part, ends); status != kOk) return status;
    target_.FrameBytesLeft -= static_cast<int32_t>(part);
    bytes += part;
    size -= part;
    if (ends) {
      if (VX_STATUS status = end_frame(); status != kOk) return status;
    }
  }
  extra_bytes_ += size;
  return last ? finish() : kOk;
}

VX_STATUS FrameFeeder::require(uint32_t tag, uint32_t& value, const char* text) {
  if (read_number(target_, tag, value) == kOk) return kOk;
  VX_LOG_ERR(kFunction, "%s", text);
  return VX_CALLBACK_CANNOT_COMPLY;
}

VX_STATUS FrameFeeder::measure_frame() {
  uint32_t bits = 0;
  uint32_t rows = 0;
  uint32_t columns = 0;
  VX_STATUS status = require(kBitsAllocated, bits, "Bits Allocated is required by the compressor\n");
  if (status == kOk) status = require(kRows, rows, "rows is required by the compressor\n");
  if (status == kOk) status = require(kColumns, columns, "columns is required by the compressor\n");
  if (status != kOk) return status;
  char photometric[21];
  if (read_text(target_, kPhotometric, photometric, sizeof photometric) != kOk) {
    VX_LOG_ERR(kFunction, "Photometric Interpretation is required by the compressor\n");
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  uint32_t samples = 0;
  if (status = read_samples(photometric, samples); status != kOk) return status;
  if (is_packed_422(photometric)) samples = 2;
  uint64_t size =
      uint64_t{bits / 8} * std::min(columns, 0xFFFFU) * std::min(rows, 0xFFFFU) * std::min(samples, 0xFFU);
  if (bits == 1) frame_bytes(target_, size);
  if (size == 0 || size > kMaxFrame || bits > 64) return VX_CALLBACK_CANNOT_COMPLY;
  target_.FrameSize = static_cast<int32_t>(size);
  return kOk;
}

VX_STATUS FrameFeeder::read_samples(std::string_view photometric, uint32_t& samples) {
  VX_STATUS status = read_number(target_, kSamplesPerPixel, samples);
  if (status == kOk) return kOk;
  samples = photometric.starts_with("MONOCHROME") ? 1 : 3;
  if (status == VX_EMPTY_VALUE || status == VX_NULL_VALUE) {
    VX_LOG_WARN(kFunction, "Sample Per Pixel has no values default value will be used\n");
  } else if (status != VX_INVALID_TAG) {
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  TagObj* attribute = nullptr;
  if (find_or_add_tag(target_, kSamplesPerPixel, "", attribute) != kOk) {
    VX_LOG_ERR(kFunction, "Failed to add the tag Sample Per Pixel\n");
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  if (set_value(target_, *attribute, VX_UINT_TYPE, &samples, true) != kOk) {
    VX_LOG_ERR(kFunction, "Failed to set the default value to tag Sample Per Pixel\n");
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  return kOk;
}

void FrameFeeder::start_frame() {
  target_.FrameBytesLeft = target_.FrameSize;
  target_.FirstOfFrame = 1;
}

VX_STATUS FrameFeeder::pass_on(const void* data, uint32_t size, bool last) {
  if (codec_.present()) {
    if (VX_STATUS status = codec_.call(data, size, last, data, size); status != kOk) return status;
  }
  if (size == 0) return kOk;
  const VX_STATUS status =
      store_fragment(target_, attribute_, data, size, {!stored_, target_.FirstOfFrame != 0});
  stored_ = true;
  target_.FirstOfFrame = 0;
  return status;
}

VX_STATUS FrameFeeder::end_frame() {
  ++frames_done_;
  target_.Started = 1;
  start_frame();
  return codec_.finish();
}

VX_STATUS FrameFeeder::finish() {
  codec_.abandon();
  if (frames_done_ == frame_count_) {
    if (extra_bytes_ != 0) {
      VX_LOG_WARN(
          kFunction,
          "There are %d bytes more than the current frame size of %d . The padding characters will be "
          "ignored\n",
          static_cast<int>(std::min<uint64_t>(extra_bytes_, INT32_MAX)), target_.FrameSize);
    }
    return kOk;
  }
  const auto missing = static_cast<unsigned long>(target_.FrameBytesLeft);
  // What is short of the last frame may be so by its pads; a frame of which nothing is there is missing.
  const bool whole_missing =
      target_.FrameBytesLeft == target_.FrameSize || frames_done_ + 1 < frame_count_ || frames_done_ == 0;
  if (whole_missing) {
    VX_LOG_ERR(
        kFunction,
        "Unable to duplicate, size of pixel data too small and not a full frame.  Missing data: %lu bytes "
        "of %lu bytes in frame.",
        missing, static_cast<unsigned long>(target_.FrameSize));
    return VX_CANNOT_COMPLY;
  }
  log_line(VX_LOG_T8, kFunction,
           "When duplicating, size of pixel data was not a multiple of the frame size.  Could be padding.  "
           "Expected remaining data: %lu",
           missing);
  return kOk;
}

}  // namespace vx
