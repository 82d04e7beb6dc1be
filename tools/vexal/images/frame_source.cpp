#include "frame_source.h"
#include "base/object_values.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/values.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace vexal {
namespace {

constexpr uint64_t kLargestFrame = uint64_t{1} << 31;

// Bits of one native frame; 0 if the object does not say, or says nonsense.
uint64_t native_frame_bits(int32_t id) {
  const uint32_t bits = number_of(id, tags::kBitsAllocated, 0);
  const uint32_t rows = number_of(id, tags::kRows, 0);
  const uint32_t columns = number_of(id, tags::kColumns, 0);
  // Two pixels share their colour there (PS3.3 section C.7.6.3.1.2).
  const uint32_t samples = text_of(id, tags::kPhotometricInterpretation).starts_with("YBR_FULL_422")
                               ? 2
                               : number_of(id, tags::kSamplesPerPixel, 1);
  if (rows > UINT16_MAX || columns > UINT16_MAX || samples > 255 || bits > 64) return 0;
  if (bits != 1 && bits % 8 != 0) return 0;
  const uint64_t all = uint64_t{rows} * columns * samples * bits;
  return all <= 8 * kLargestFrame ? all : 0;
}

// MPEG2, MPEG-4 and HEVC.
bool is_video_syntax(VX_TRANSFER_SYNTAX syntax) {
  return syntax == MPEG2_MPML || (syntax >= MPEG2_MPHL && syntax <= MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2) ||
         (syntax >= HEVC_H265_MP_LEVEL_5_1 && syntax <= FRAGMENTABLE_MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2);
}

}  // namespace

VX_STATUS StoredValue::gather(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& value = *static_cast<StoredValue*>(user);
  value.problem_ = value.taken_.append(data, size);
  value.size_ += size;
  return value.problem_.empty() ? VX_NORMAL_COMPLETION : VX_CANNOT_COMPLY;
}

// A value that the library holds, which is a small one or comes from a deflated stream, is taken out of it.
std::string StoredValue::open(const DicomFile& file, int32_t object, uint32_t tag) {
  if (const KeptValue* kept = file.kept(object, tag); kept != nullptr) {
    source_ = &file.source();
    offset_ = kept->offset;
    size_ = file.kept_size(*kept);
    const bool big = file.syntax() == EXPLICIT_BIG_ENDIAN || file.syntax() == IMPLICIT_BIG_ENDIAN;
    VX_VR vr = VX_VR_OB;
    VX_Get_Attribute_Info(object, tag, &vr, nullptr);
    if (big) width_ = element_width(vr);
    return "";
  }
  const VX_STATUS status = VX_Get_Value_To_Function(object, tag, this, guarded<gather>);
  if (!problem_.empty()) return problem_;
  return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

bool StoredValue::read_at(uint64_t offset, void* buffer, std::size_t length) const {
  if (source_ == nullptr) return taken_.read_at(offset, buffer, length);
  if (offset > size_ || length > size_ - offset) return false;
  if (width_ > 1) return read_swapped(offset, buffer, length);
  return source_->read_at(offset_ + offset, buffer, length) == static_cast<int64_t>(length);
}

// Elements are turned around as a whole, wherever what is asked for begins and ends.
bool StoredValue::read_swapped(uint64_t offset, void* buffer, std::size_t length) const {
  const uint64_t begin = offset - offset % width_;
  const uint64_t end = std::min(size_, (offset + length + width_ - 1) / width_ * width_);
  Bytes elements;
  elements.resize(end - begin);
  if (source_->read_at(offset_ + begin, elements.data(), elements.size()) !=
      static_cast<int64_t>(elements.size())) {
    return false;
  }
  for (char* at = elements.data(); at + width_ <= elements.data() + elements.size(); at += width_)
    std::reverse(at, at + width_);
  std::memcpy(buffer, elements.data() + (offset - begin), length);
  return true;
}

std::string FrameSource::open(const DicomFile& file, int32_t object, VX_TRANSFER_SYNTAX syntax) {
  encapsulated_ = !is_uncompressed(syntax);
  video_ = is_video_syntax(syntax);
  if (std::string problem = value_.open(file, object, tags::kPixelData); !problem.empty()) return problem;
  uint32_t frames = number_of(object, tags::kNumberOfFrames, 1);
  if (frames == 0 || frames > INT32_MAX) frames = 1;
  return encapsulated_ ? find_encapsulated(frames) : find_native(object, frames);
}

bool read_bits(const StoredValue& value, uint64_t first, uint64_t count, Bytes& bytes) {
  const std::size_t before = bytes.size();
  const uint64_t begin = first / 8;
  const auto held = static_cast<std::size_t>((first + count + 7) / 8 - begin);
  bytes.resize(before + held);
  char* at = bytes.data() + before;
  if (!value.read_at(begin, at, held)) return false;
  const auto size = static_cast<std::size_t>((count + 7) / 8);
  if (const auto shift = static_cast<uint32_t>(first % 8); shift != 0) {
    for (std::size_t i = 0; i < size; ++i) {
      const uint32_t next = i + 1 < held ? static_cast<uint8_t>(at[i + 1]) : 0;
      at[i] = static_cast<char>((static_cast<uint8_t>(at[i]) | next << 8) >> shift);
    }
  }
  bytes.resize(before + size);
  if (count % 8 != 0) at[size - 1] = static_cast<char>(at[size - 1] & ((1 << count % 8) - 1));
  return true;
}

void BitJoiner::add(const Bytes& frame, uint64_t bits, bool last, Bytes& out) {
  const std::size_t before = out.size();
  out.resize(before + static_cast<std::size_t>((carried_ + bits + 7) / 8));
  char* to = out.data() + before;
  for (uint64_t done = 0; done < bits; done += 8) {
    const auto part = static_cast<uint32_t>(std::min<uint64_t>(8, bits - done));
    const uint32_t byte = static_cast<uint8_t>(frame.data()[done / 8]) & ((1U << part) - 1);
    carry_ |= byte << carried_;
    carried_ += part;
    if (carried_ < 8) continue;
    *to++ = static_cast<char>(carry_);
    carry_ >>= 8;
    carried_ -= 8;
  }
  if (last && carried_ != 0) {
    *to++ = static_cast<char>(carry_);
    carry_ = carried_ = 0;
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
}

std::string FrameSource::find_native(int32_t object, uint32_t frames) {
  frame_bits_ = native_frame_bits(object);
  if (frame_bits_ == 0) return "its pixel description has no frames that can be compressed";
  const uint64_t there = value_.size() * 8 / frame_bits_;
  const uint64_t wanted = (frame_bits_ * frames + 7) / 8;
  surplus_ = value_.size() > wanted + 1 ? value_.size() - wanted : 0;
  count_ = static_cast<uint32_t>(std::min<uint64_t>(frames, there));
  // A pad of a byte may hold frames of a few bits.
  if (there >= frames && (there == frames || surplus_ == 0)) return "";
  return "its pixel data has " + std::to_string(value_.size()) + " bytes, which are no " +
         std::to_string(frames) + " frames of " +
         (frame_bits_ % 8 == 0 ? std::to_string(frame_bits_ / 8) : std::to_string(frame_bits_) + " bits");
}

std::string FrameSource::find_encapsulated(uint32_t frames) {
  const auto read = [this](uint64_t offset, void* buffer, std::size_t length) {
    return value_.read_at(offset, buffer, length);
  };
  items_ = read_items(read, value_.size());
  if (video_ && !items_.fragments.empty()) {
    items_.starts = {0};
    count_ = 1;
    return "";
  }
  find_frames(items_, frames, read);
  find_frames_by_table(items_, frames);
  count_ = static_cast<uint32_t>(items_.starts.size());
  if (count_ != 0) return "";
  return "its " + std::to_string(items_.fragments.size()) + " fragments can not be told apart as " +
         std::to_string(frames) + " frames";
}

namespace {

// Where a fragment begins in what all of them hold.
uint64_t stream_offset(const Encapsulated& items, std::size_t fragment) {
  constexpr uint64_t kHeader = 8;
  return items.fragments[fragment].offset - kHeader * fragment;
}

}  // namespace

uint64_t FrameSource::stream_size() const {
  const std::size_t count = items_.fragments.size();
  return count == 0 ? 0 : stream_offset(items_, count - 1) + items_.fragments[count - 1].length;
}

bool FrameSource::read_stream(uint64_t offset, void* buffer, std::size_t length) const {
  // The last fragment that does not begin behind the offset.
  std::size_t low = 0;
  for (std::size_t high = items_.fragments.size(); high - low > 1;) {
    const std::size_t middle = low + (high - low) / 2;
    (stream_offset(items_, middle) <= offset ? low : high) = middle;
  }
  auto* to = static_cast<char*>(buffer);
  for (; length != 0; ++low) {
    if (low >= items_.fragments.size()) return false;
    const Fragment& fragment = items_.fragments[low];
    const uint64_t inside = offset - stream_offset(items_, low);
    if (inside > fragment.length) return false;
    const auto part = static_cast<std::size_t>(std::min<uint64_t>(length, fragment.length - inside));
    if (!value_.read_at(fragment.data + inside, to, part)) return false;
    to += part;
    offset += part;
    length -= part;
  }
  return true;
}

std::string FrameSource::read(uint32_t number, Bytes& bytes, std::size_t most) const {
  const std::size_t before = bytes.size();
  if (!encapsulated_)
    return read_bits(value_, number * frame_bits_, frame_bits_, bytes) ? "" : "can not read";
  for (std::size_t i = items_.starts[number]; i < items_.end_of_frame(number); ++i) {
    const Fragment& fragment = items_.fragments[i];
    const std::size_t at = bytes.size();
    const std::size_t part = std::min<std::size_t>(fragment.length, most - (at - before));
    if (at - before + part > kLargestFrame) return "its code stream is beyond 2 GiB";
    bytes.resize(at + part);
    if (!value_.read_at(fragment.data, bytes.data() + at, part)) return "can not read";
  }
  return "";
}

}  // namespace vexal
