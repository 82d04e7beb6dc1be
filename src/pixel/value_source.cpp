#include "pixel/value_source.h"

#include <algorithm>
#include <cstring>

#include "frame/log.h"
#include "model/callbacks.h"
#include "model/file_values.h"
#include "model/values.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_stripItems";

}  // namespace

VX_STATUS ValueSource::at(uint32_t position, ValueObj*& piece, uint32_t& piece_start, const uint8_t*& data,
                          uint32_t& size) {
  data = nullptr;
  size = 0;
  if (attribute_.Storage == Stored::ByCallback) return from_callback(position, data, size);
  if (attribute_.Storage == Stored::InFile) return from_file(position, data, size);
  if (piece == nullptr || position < piece_start) {
    piece = attribute_.FirstValue;
    piece_start = 0;
  }
  while (piece != nullptr && position - piece_start >= piece->Length) {
    piece_start += piece->Length;
    piece = piece->Next;
  }
  if (piece == nullptr) return kOk;
  data = static_cast<const uint8_t*>(piece->Data) + (position - piece_start);
  size = piece->Length - (position - piece_start);
  return kOk;
}

ValueSource::~ValueSource() {
  if (block_ != nullptr) free_value(block_);
}

VX_STATUS ValueSource::from_file(uint32_t position, const uint8_t*& data, uint32_t& size) {
  int32_t number = std::max(block_number_, 1);
  uint32_t start = block_start_;
  if (position < start) {
    number = 1;
    start = 0;
  }
  uint32_t length = 0;
  for (; number <= attribute_.ValueCount; ++number, start += length) {
    length = file_block_length(attribute_, number);
    if (position - start < length) break;
  }
  if (number > attribute_.ValueCount) return kOk;
  if (block_ == nullptr || number != block_number_) {
    if (block_ != nullptr) free_value(block_);
    block_number_ = 0;
    block_start_ = 0;
    if (VX_STATUS status = read_file_block(attribute_, number, block_); status != kOk) return status;
    block_number_ = number;
    block_start_ = start;
  }
  data = static_cast<const uint8_t*>(block_->Data) + (position - start);
  size = block_->Length - (position - start);
  return kOk;
}

VX_STATUS ValueSource::from_callback(uint32_t position, const uint8_t*& data, uint32_t& size) {
  if (attribute_.Length != kUndefinedLength && position >= attribute_.Length) return kOk;
  uint32_t length = attribute_.ValueOffset + position;
  void* bytes = nullptr;
  int32_t last = 0;
  const VX_STATUS status =
      call_value_callback(object_, attribute_, VX_REQUEST_DATA_AT_OFFSET, &length, &bytes, first_, &last);
  first_ = false;
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "Registered callback function returned an error: %s", status_text(status));
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  if (length > INT32_MAX) {
    VX_LOG_ERR(kFunction, "Callback returned length > %d", INT32_MAX);
    return VX_CALLBACK_CANNOT_COMPLY;
  }
  if (length != 0 && bytes == nullptr) return VX_CALLBACK_CANNOT_COMPLY;
  length = std::min(length, attribute_.Length - position);  // an undefined length is the largest number
  data = static_cast<const uint8_t*>(bytes);
  size = length;
  return kOk;
}

VX_STATUS ValueSource::copy(uint32_t position, uint32_t n, void* to) {
  auto* out = static_cast<uint8_t*>(to);
  while (n != 0) {
    const uint8_t* data = nullptr;
    uint32_t size = 0;
    if (VX_STATUS status = at(position, piece_, piece_start_, data, size); status != kOk) return status;
    if (size == 0) return VX_ENCAPSULATED_TOO_SHORT;
    size = std::min(size, n);
    std::memcpy(out, data, size);
    out += size;
    position += size;
    n -= size;
  }
  return kOk;
}

}  // namespace vx
