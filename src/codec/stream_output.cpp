#include "codec/stream_output.h"

#include <algorithm>
#include <cstring>

#include "codec/zlib_memory.h"
#include "config/config.h"
#include "frame/log.h"
#include "frame/pool.h"

namespace vx {

namespace {

constexpr char kDeflate[] = "VXI_deflate";
constexpr int kMemoryLevel = 8;
constexpr std::size_t kMinDeflated = 1U << 14;

}  // namespace

StreamOutput::~StreamOutput() {
  if (zstream_ != nullptr) {
    deflateEnd(zstream_);
    release(zstream_);
  }
  release(deflated_);
  release(buffer_);
}

VX_STATUS StreamOutput::open() {
  if (writer_.MessageCallback == nullptr && writer_.FileCallback == nullptr &&
      writer_.ConnectionCallback == nullptr && writer_.RawCallback == nullptr) {
    return VX_SYSTEM_ERROR;
  }
  capacity_ = std::max<std::size_t>(work_buffer_size(), kMinCapacity) & ~std::size_t{1};
  buffer_ = static_cast<uint8_t*>(allocate_raw(capacity_));
  return buffer_ != nullptr ? kOk : VX_SYSTEM_ERROR;
}

VX_STATUS StreamOutput::call(const uint8_t* data, std::size_t size, bool last, uint32_t follows) {
  void* bytes = const_cast<uint8_t*>(data);
  const auto length = static_cast<uint32_t>(size);
  const int32_t first = is_first_ ? 1 : 0;
  is_first_ = false;
  VX_STATUS status = VX_SYSTEM_ERROR;
  if (writer_.MessageCallback != nullptr) {
    status = writer_.MessageCallback(writer_.MsgID, writer_.UserInfo, length, bytes, first, last);
  } else if (writer_.FileCallback != nullptr) {
    status = writer_.FileCallback(writer_.FileName, writer_.UserInfo, length, bytes, first, last);
  } else if (writer_.ConnectionCallback != nullptr) {
    status = writer_.ConnectionCallback(writer_.ConnectionID, writer_.UserInfo, length, bytes, first, last);
  } else {
    status = writer_.RawCallback(writer_.UserInfo, follows, length, bytes, first, last);
  }
  return status == kOk ? status : VX_CALLBACK_CANNOT_COMPLY;
}

VX_STATUS StreamOutput::emit(const uint8_t* data, std::size_t size, bool last, uint32_t follows) {
  if (zstream_ == nullptr) return call(data, size, last, follows);
  const bool sync = follows == 0 && config_bool(VX_CFG_DEFLATE_ALLOW_FLUSH);
  return deflate_bytes(data, size, last ? Z_FINISH : sync ? Z_SYNC_FLUSH : Z_NO_FLUSH);
}

// An odd byte at the end of the buffer waits for the next bytes; one at the end of the stream is completed.
VX_STATUS StreamOutput::flush(bool last, uint32_t follows) {
  if (last && used_ % 2 != 0 && zstream_ == nullptr) buffer_[used_++] = 0;
  const std::size_t size = last ? used_ : used_ & ~std::size_t{1};
  if (size == 0 && !last) return kOk;
  const VX_STATUS status = emit(buffer_, size, last, follows);
  buffer_[0] = buffer_[used_ != 0 ? used_ - 1 : 0];
  used_ -= size;
  return status;
}

VX_STATUS StreamOutput::put(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  while (size > 0) {
    const std::size_t part = std::min(size, free_room());
    std::memcpy(buffer_ + used_, bytes, part);
    used_ += part;
    bytes += part;
    size -= part;
    if (used_ < capacity_) continue;
    if (VX_STATUS status = flush(false, 0); status != kOk) return status;
  }
  return kOk;
}

VX_STATUS StreamOutput::direct(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  if (size > 0 && used_ % 2 != 0) {
    buffer_[used_++] = *bytes++;
    --size;
  }
  const std::size_t even = size & ~std::size_t{1};
  VX_STATUS status = flush(false, static_cast<uint32_t>(even));
  if (status == kOk && even > 0) status = emit(bytes, even, false, 0);
  if (size != even) buffer_[used_++] = bytes[even];
  return status;
}

VX_STATUS StreamOutput::finish() {
  return flush(true, 0);
}

// --- Deflate ---

VX_STATUS StreamOutput::start_deflate() {
  if (VX_STATUS status = flush(false, 0); status != kOk) return status;
  zstream_ = new_zlib_stream();
  deflated_ = static_cast<uint8_t*>(allocate_raw(std::max(capacity_, kMinDeflated) + 2));
  if (zstream_ == nullptr || deflated_ == nullptr) {
    release(zstream_);
    zstream_ = nullptr;
    return VX_SYSTEM_ERROR;
  }
  const int result = deflateInit2(zstream_, config_int(VX_CFG_DEFLATE_COMPRESSION_LEVEL), Z_DEFLATED, -15,
                                  kMemoryLevel, Z_DEFAULT_STRATEGY);
  if (result != Z_OK) {
    VX_LOG_ERR(kDeflate, "Unexpected error with deflateInit2: (%d)%s: %s", result, zError(result),
               zlib_message(*zstream_));
    release(zstream_);
    zstream_ = nullptr;
    return VX_ZLIB_ERROR;
  }
  VX_LOG_INF(kDeflate, "Deflate resources allocated");
  // A plain byte that was left behind goes out as it is, in front of the deflated ones.
  if (used_ != 0) deflated_[deflated_used_++] = buffer_[0];
  used_ = 0;
  return kOk;
}

VX_STATUS StreamOutput::deflate_bytes(const uint8_t* data, std::size_t size, int mode) {
  zstream_->next_in = const_cast<Bytef*>(data);
  zstream_->avail_in = static_cast<uInt>(size);
  const std::size_t room = std::max(capacity_, kMinDeflated);
  const uint64_t before = deflated_total_;
  int result = Z_OK;
  do {
    const std::size_t free = room - deflated_used_;
    zstream_->next_out = deflated_ + deflated_used_;
    zstream_->avail_out = static_cast<uInt>(free);
    result = deflate(zstream_, mode);
    if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
      VX_LOG_ERR(kDeflate, "Unexpected error with deflate: (%d)%s: %s", result, zError(result),
                 zlib_message(*zstream_));
      return VX_ZLIB_ERROR;
    }
    deflated_used_ += free - zstream_->avail_out;
    deflated_total_ += free - zstream_->avail_out;
    if (result == Z_STREAM_END) break;
    if (VX_STATUS status = hand_on_deflated(false); status != kOk) return status;
  } while (zstream_->avail_out == 0);
  if (mode == Z_NO_FLUSH) return kOk;
  if (deflated_total_ == before) {
    VX_LOG_ERR(kDeflate, "There was no data after a Z_FINISH or Z_SYNC_FLUSH call to deflate");
    return VX_ZLIB_ERROR;
  }
  if (mode != Z_FINISH) return kOk;
  if (VX_STATUS status = hand_on_deflated(true); status != kOk) return status;
  return end_deflate();
}

VX_STATUS StreamOutput::hand_on_deflated(bool last) {
  if (last && deflated_used_ % 2 != 0) deflated_[deflated_used_++] = 0;
  const std::size_t even = deflated_used_ & ~std::size_t{1};
  if (even == 0 && !last) return kOk;
  const VX_STATUS status = call(deflated_, even, last, 0);
  if (deflated_used_ != even) deflated_[0] = deflated_[even];
  deflated_used_ -= even;
  return status;
}

VX_STATUS StreamOutput::end_deflate() {
  const int result = deflateEnd(zstream_);
  release(zstream_);
  zstream_ = nullptr;
  if (result != Z_OK) {
    VX_LOG_ERR(kDeflate, "Unexpected error with deflateEnd: (%d)%s", result, zError(result));
    return VX_ZLIB_ERROR;
  }
  VX_LOG_INF(kDeflate, "Deflate resources released");
  return kOk;
}

}  // namespace vx
