#include "codec/stream_input.h"

#include <algorithm>
#include <cstring>

#include "codec/zlib_memory.h"
#include "config/config.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/patience.h"
#include "frame/pool.h"

namespace vx {

namespace {

constexpr char kInflate[] = "VXI_inflate";
constexpr std::size_t kMinScratch = 4096;
constexpr std::size_t kMinOutput = 1U << 16;

}  // namespace

StreamInput::StreamInput(const ReadRequest& request, const void* bytes, std::size_t length)
    : request_(request),
      cursor_(static_cast<const uint8_t*>(bytes)),
      end_(cursor_ + length),
      end_offset_(length),
      is_last_(true) {}

StreamInput::~StreamInput() {
  if (zstream_ != nullptr) {
    inflateEnd(zstream_);
    release(zstream_);
  }
  release(output_);
  release(scratch_);
  for (uint8_t* bytes : resumed_) release(bytes);
}

VX_STATUS StreamInput::call_input(uint32_t& size, void*& data, int32_t& last) {
  const int32_t first = is_first_ ? 1 : 0;
  if (request_.MessageInput != nullptr) {
    return request_.MessageInput(request_.ObjectID, request_.UserInfo, first, &size, &data, &last);
  }
  if (request_.FileInput != nullptr) {
    return request_.FileInput(request_.FileName, request_.UserInfo, &size, &data, first, &last);
  }
  return request_.NetworkInput(request_.ConnectionID, request_.UserInfo, &size, &data, first, &last);
}

VX_STATUS StreamInput::read_block(Span& block) {
  if (request_.MessageInput == nullptr && request_.FileInput == nullptr && request_.NetworkInput == nullptr) {
    return is_last_ ? VX_END_OF_DATA : VX_CALLBACK_PARM_ERROR;
  }
  Patience patience;
  for (;;) {
    if (is_last_) return VX_END_OF_DATA;
    uint32_t size = 0;
    void* data = nullptr;
    int32_t last = 0;
    if (call_input(size, data, last) != kOk) return VX_CALLBACK_CANNOT_COMPLY;
    is_first_ = false;
    is_last_ = last != 0;
    if (patience.ends(size)) return VX_CALLBACK_CANNOT_COMPLY;
    if (size == 0) continue;
    if (data == nullptr) return VX_CALLBACK_PARM_ERROR;
    if (size % 2 != 0 && zstream_ == nullptr && !request_.Deflate) {
      const bool file = request_.FileInput != nullptr || request_.NetworkInput != nullptr;
      if (!file || !config_bool(VX_CFG_ORVEN_OPEN_FILE)) {
        if (!tolerate_odd_) return VX_CALLBACK_DATA_SIZE_UNEVEN;
        odd_seen_ = true;
      }
    }
    block = {static_cast<const uint8_t*>(data), size};
    return kOk;
  }
}

VX_STATUS StreamInput::next_block(Span& block) {
  return zstream_ != nullptr ? inflate_block(block) : read_block(block);
}

// The window is used up: the rest of the block, or the next block, becomes the window.
VX_STATUS StreamInput::refill() {
  if (rest_.size == 0) {
    if (VX_STATUS status = next_block(rest_); status != kOk) return status;
  }
  cursor_ = rest_.data;
  end_ = cursor_ + rest_.size;
  end_offset_ += rest_.size;
  rest_ = {};
  return kOk;
}

bool StreamInput::grow_scratch(std::size_t n) {
  if (n <= scratch_size_) return true;
  const std::size_t size = std::max({n, scratch_size_ * 2, kMinScratch});
  auto* grown = static_cast<uint8_t*>(reallocate(size, scratch_));
  if (grown == nullptr) return false;
  scratch_ = grown;
  scratch_size_ = size;
  return true;
}

// Brings n bytes together in the scratch buffer, which grows as they come in.
VX_STATUS StreamInput::gather(std::size_t n) {
  if (cursor_ == end_) {
    if (VX_STATUS status = refill(); status != kOk) return status;
    if (available() >= n) return kOk;
  }
  std::size_t have = available();
  const bool in_scratch = scratch_ != nullptr && cursor_ >= scratch_ && cursor_ < scratch_ + scratch_size_;
  const auto at = in_scratch ? static_cast<std::size_t>(cursor_ - scratch_) : 0;
  if (!grow_scratch(have)) return VX_SYSTEM_ERROR;
  if (have != 0) std::memmove(scratch_, in_scratch ? scratch_ + at : cursor_, have);
  VX_STATUS status = kOk;
  while (have < n) {
    if (rest_.size == 0) {
      status = next_block(rest_);
      if (status != kOk) break;
    }
    const std::size_t part = std::min(n - have, rest_.size);
    if (!grow_scratch(have + part)) {
      status = VX_SYSTEM_ERROR;
      break;
    }
    std::memcpy(scratch_ + have, rest_.data, part);
    rest_.data += part;
    rest_.size -= part;
    have += part;
    end_offset_ += part;
  }
  cursor_ = scratch_;
  end_ = scratch_ + have;
  return status;
}

VX_STATUS StreamInput::discard(uint64_t n) {
  while (n > 0) {
    if (VX_STATUS status = need_any(); status != kOk) return status;
    const auto part = static_cast<std::size_t>(std::min<uint64_t>(n, available()));
    cursor_ += part;
    n -= part;
  }
  return kOk;
}

// --- Inflate ---

VX_STATUS StreamInput::start_inflate() {
  // What was read as plain bytes is deflated: the window first, which may lie in the scratch buffer that the
  // inflated bytes are going to need.
  raw_[0] = {cursor_, available()};
  if (raw_[0].size <= sizeof carried_) {
    std::copy_n(cursor_, raw_[0].size, carried_);
    raw_[0].data = carried_;
  }
  raw_[1] = rest_;
  output_size_ = std::clamp(raw_[0].size + raw_[1].size, kMinOutput, kMaxInflated);
  zstream_ = new_zlib_stream();
  output_ = static_cast<uint8_t*>(allocate_raw(output_size_));
  if (zstream_ == nullptr || output_ == nullptr) {
    release(zstream_);
    zstream_ = nullptr;
    return VX_SYSTEM_ERROR;
  }
  if (const int result = inflateInit2(zstream_, -15); result != Z_OK) {
    VX_LOG_ERR(kInflate, "Unexpected error with inflateInit2: (%d)%s: %s", result, zError(result),
               zlib_message(*zstream_));
    release(zstream_);
    zstream_ = nullptr;
    return VX_ZLIB_ERROR;
  }
  VX_LOG_INF(kInflate, "Inflate resources allocated");
  end_offset_ -= available();
  cursor_ = end_ = nullptr;
  rest_ = {};
  return kOk;
}

VX_STATUS StreamInput::more_deflated() {
  Span block;
  for (Span& raw : raw_) {
    if (block.size == 0) std::swap(block, raw);
  }
  if (block.size == 0) {
    const VX_STATUS status = read_block(block);
    if (status == VX_END_OF_DATA) {
      VX_LOG_ERR(kInflate, "Unexpected error: Last flags don't match (VXI_inflate)");
      return VX_ZLIB_ERROR;
    }
    if (status != kOk) return status;
  }
  zstream_->next_in = const_cast<Bytef*>(block.data);
  zstream_->avail_in = static_cast<uInt>(block.size);
  return kOk;
}

// The deflated data is complete: nothing may follow but the byte that makes its length even, in this block or
// the next.
VX_STATUS StreamInput::check_stream_end() {
  std::size_t trailing = zstream_->avail_in + raw_[0].size + raw_[1].size;
  while (!is_last_) {
    Span block;
    const VX_STATUS status = read_block(block);
    if (status == VX_END_OF_DATA) break;
    if (status != kOk) return status;
    trailing += block.size;
    if (trailing > 1) {
      VX_LOG_ERR(kInflate, "Unexpected error: Last flags don't match (VXI_inflate)");
      return VX_ZLIB_ERROR;
    }
  }
  return kOk;
}

// Output is handed on whenever the buffer is full, so that its size does not follow the inflated length.
VX_STATUS StreamInput::inflate_block(Span& block) {
  for (;;) {
    if (inflate_status_ != kOk) return inflate_status_;
    if (stream_ended_) return VX_END_OF_DATA;
    if (zstream_->avail_in == 0 && !output_full_) {
      if (VX_STATUS status = more_deflated(); status != kOk) return status;
    }
    zstream_->next_out = output_;
    zstream_->avail_out = static_cast<uInt>(output_size_);
    const bool first = zstream_->total_in == 0;
    const int result = inflate(zstream_, Z_NO_FLUSH);
    output_full_ = zstream_->avail_out == 0;
    const std::size_t produced = output_size_ - zstream_->avail_out;
    if (result == Z_STREAM_END) {
      stream_ended_ = true;
      inflate_status_ = check_stream_end();
    } else if (result != Z_OK && result != Z_BUF_ERROR) {
      VX_LOG_ERR(kInflate,
                 first ? "Unexpected error with inflate: (%d)%s: %s"
                       : "Unexpected error with subsequent inflate: (%d)%s: %s",
                 result, zError(result), zlib_message(*zstream_));
      inflate_status_ = VX_ZLIB_ERROR;
    }
    if (produced > 0) {
      block = {output_, produced};
      return kOk;
    }
  }
}

// --- Stopping and going on ---

namespace {

// Both spans, one behind the other; null if there is no memory, or nothing to copy.
bool join(const uint8_t* a, std::size_t a_size, const uint8_t* b, std::size_t b_size, uint8_t*& out,
          std::size_t& size) {
  size = a_size + b_size;
  out = nullptr;
  if (size == 0) return true;
  out = static_cast<uint8_t*>(allocate_raw(size));
  if (out == nullptr) return false;
  if (a_size != 0) std::memcpy(out, a, a_size);
  if (b_size != 0) std::memcpy(out + a_size, b, b_size);
  return true;
}

}  // namespace

VX_STATUS StreamInput::save(DecodeRest& rest) {
  rest.Started = true;
  rest.InputEnded = is_last_;
  if (!join(cursor_, available(), rest_.data, rest_.size, rest.Plain, rest.PlainLength)) {
    return VX_SYSTEM_ERROR;
  }
  if (zstream_ == nullptr) return kOk;
  // Of the two raw spans at most the second one is left: zlib has taken the first.
  const Span left = raw_[0].size != 0 ? raw_[0] : raw_[1];
  if (!join(zstream_->next_in, zstream_->avail_in, left.data, left.size, rest.Raw, rest.RawLength)) {
    return VX_SYSTEM_ERROR;
  }
  rest.OutputFull = output_full_;
  rest.StreamEnded = stream_ended_;
  rest.InflateStatus = inflate_status_;
  rest.Zlib = zstream_;
  zstream_ = nullptr;
  return kOk;
}

VX_STATUS StreamInput::resume(DecodeRest& rest) {
  is_first_ = !rest.Started;
  is_last_ = rest.InputEnded;
  std::swap(resumed_[0], rest.Plain);
  std::swap(resumed_[1], rest.Raw);
  cursor_ = resumed_[0];
  end_ = cursor_ + rest.PlainLength;
  end_offset_ = rest.PlainLength;
  if (rest.Zlib == nullptr) return kOk;
  output_ = static_cast<uint8_t*>(allocate_raw(kMinOutput));
  if (output_ == nullptr) return VX_SYSTEM_ERROR;
  output_size_ = kMinOutput;
  std::swap(zstream_, rest.Zlib);
  zstream_->avail_in = 0;
  raw_[0] = {resumed_[1], rest.RawLength};
  output_full_ = rest.OutputFull;
  stream_ended_ = rest.StreamEnded;
  inflate_status_ = rest.InflateStatus;
  return kOk;
}

VX_STATUS StreamInput::finish() {
  if (zstream_ == nullptr) return kOk;
  const int result = inflateEnd(zstream_);
  if (result != Z_OK) {
    VX_LOG_ERR(kInflate, "Unexpected error with inflateEnd: (%d)%s", result, zError(result));
  } else {
    VX_LOG_INF(kInflate, "Inflate resources released");
  }
  release(zstream_);
  zstream_ = nullptr;
  stream_ended_ = true;
  return result == Z_OK ? kOk : VX_ZLIB_ERROR;
}

}  // namespace vx
