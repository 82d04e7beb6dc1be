#include "payload.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "base/thrown.h"

namespace vexal {
namespace {

constexpr uint64_t kPiece = 256 * 1024;
constexpr uint64_t kMostBytes = kUndefinedLength - 1;  // the longest even length

constexpr char kTooLarge[] = "is too large: a value of DICOM has less than 4 GiB";

}  // namespace

Payload Payload::of(std::string bytes) {
  Payload payload;
  const uint64_t size = bytes.size();
  payload.add({.bytes = std::move(bytes), .length = size});
  return payload;
}

Payload Payload::of(std::shared_ptr<const FileSource> file, uint64_t offset, uint64_t length) {
  Payload payload;
  payload.add({.read =
                   [file = std::move(file)](uint64_t at, void* buffer, std::size_t size) {
                     return file->read_at(at, buffer, size) == static_cast<int64_t>(size);
                   },
               .offset = offset,
               .length = length});
  return payload;
}

Payload Payload::of(std::shared_ptr<const Spill> spill, uint64_t offset, uint64_t length) {
  Payload payload;
  payload.add(
      {.read = [spill = std::move(spill)](uint64_t at, void* buffer,
                                          std::size_t size) { return spill->read_at(at, buffer, size); },
       .offset = offset,
       .length = length});
  return payload;
}

void Payload::add(Stretch stretch) {
  stretch.start = size_;
  size_ += stretch.length;
  stretches_.push_back(std::move(stretch));
}

void Payload::append(const Payload& other) {
  for (const Stretch& stretch : other.stretches_) add(stretch);
}

bool Payload::read_at(uint64_t offset, void* buffer, std::size_t length) const {
  auto* out = static_cast<char*>(buffer);
  auto stretch = std::upper_bound(stretches_.begin(), stretches_.end(), offset,
                                  [](uint64_t at, const Stretch& s) { return at < s.start + s.length; });
  for (; length != 0 && stretch != stretches_.end(); ++stretch) {
    const uint64_t skip = offset - stretch->start;
    const auto part = static_cast<std::size_t>(std::min<uint64_t>(length, stretch->length - skip));
    const uint64_t at = stretch->offset + skip;
    if (stretch->read == nullptr) {
      std::memcpy(out, stretch->bytes.data() + at, part);
    } else if (!stretch->read(at, out, part)) {
      return false;
    }
    out += part;
    length -= part;
    offset += part;
  }
  return length == 0;
}

PayloadValue::~PayloadValue() {
  if (application_ >= 0) VX_Release_Application(&application_);
}

std::string PayloadValue::set_native(const std::vector<Payload>& frames) {
  for (const Payload& frame : frames) value_.append(frame);
  if (value_.size() > kMostBytes) return kTooLarge;
  if (value_.size() % 2 != 0) value_.append(Payload::of(std::string(1, '\0')));
  return "";
}

std::string PayloadValue::set_items(const std::vector<Payload>& frames, bool with_table) {
  items_ = true;
  std::vector<uint32_t> offsets;
  Payload items;
  for (const Payload& frame : frames) {
    if (frame.size() > kMostBytes) return kTooLarge;
    if (items.size() > kUndefinedLength) with_table = false;  // no room in it for that place
    offsets.push_back(static_cast<uint32_t>(items.size()));
    const bool odd = frame.size() % 2 != 0;
    std::string header;
    append32(header, kItem);
    append32(header, static_cast<uint32_t>(frame.size() + (odd ? 1 : 0)));
    items.append(Payload::of(std::move(header)));
    items.append(frame);
    if (odd) items.append(Payload::of(std::string(1, '\0')));
  }
  if (!with_table) offsets.clear();
  std::string table;
  append32(table, kItem);
  append32(table, static_cast<uint32_t>(offsets.size() * sizeof(uint32_t)));
  for (const uint32_t offset : offsets) append32(table, offset);
  value_ = Payload::of(std::move(table));
  value_.append(items);
  std::string end;
  append32(end, kDelimiter);
  append32(end, 0);
  value_.append(Payload::of(std::move(end)));
  return "";
}

std::string PayloadValue::bind(int32_t object, uint32_t tag, VX_VR vr) {
  static std::atomic<uint32_t> counter{0};
  VX_STATUS status =
      VX_Register_Application(&application_, ("MAKE_" + std::to_string(counter.fetch_add(1))).c_str());
  if (status == VX_NORMAL_COMPLETION) {
    VX_Set_Value_To_Empty(object, tag);
    VX_Set_Value_Representation(object, tag, vr);
    status = VX_Register_Callback_Function(application_, tag, this, guarded<callback>);
  }
  if (status == VX_NORMAL_COMPLETION) status = VX_Set_Message_Callbacks(application_, object);
  return status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

bool PayloadValue::next(bool first) {
  if (first) given_ = 0;
  const auto size = static_cast<std::size_t>(std::min(kPiece, value_.size() - given_));
  piece_.resize(size);
  if (!value_.read_at(given_, piece_.data(), size)) {
    problem_ = "can not be read to its end";
    return false;
  }
  given_ += size;
  return true;
}

VX_STATUS PayloadValue::callback(int32_t, uint32_t, void* user, VX_CALLBACK_REQUEST request, uint32_t* size,
                                 void** data, int32_t first, int32_t* last) {
  auto& value = *static_cast<PayloadValue*>(user);
  switch (request) {
    case VX_REQUEST_LENGTH:
      *size = value.items_ ? kUndefinedLength : static_cast<uint32_t>(value.value_.size());
      return VX_NORMAL_COMPLETION;
    case VX_REQUEST_DATA:
      if (!value.next(first != 0)) return VX_CANNOT_COMPLY;
      *size = static_cast<uint32_t>(value.piece_.size());
      *data = value.piece_.data();
      *last = value.given_ == value.value_.size() ? 1 : 0;
      return VX_NORMAL_COMPLETION;
    case VX_FREE_DATA:
      return VX_NORMAL_COMPLETION;
    default:
      return VX_CANNOT_COMPLY;
  }
}

}  // namespace vexal
