#include "dimse/pdv_writer.h"

#include <algorithm>
#include <cstring>

#include "config/config.h"
#include "connection/pdu.h"
#include "frame/log.h"
#include "frame/pool.h"

namespace vx {
namespace {

constexpr uint32_t kLeastMaximum = 8;  // room for two bytes of value
constexpr uint32_t kLeastBuffer = 4096;
constexpr uint32_t kMostBuffer = 16U << 20;
constexpr uint32_t kUnlimitedBuffer = 64234;  // without a limit of our own

}  // namespace

VX_STATUS PdvWriter::open(uint8_t context_id, bool has_data_set) {
  const uint32_t limit = pdu_maximum_length();
  const uint32_t own = limit != 0 ? std::min(limit, kMostBuffer) : kUnlimitedBuffer;
  const uint32_t peer = dul_->peerMaximumPduLength & ~uint32_t{1};
  uint32_t size = own;
  if (dul_->peerMaximumPduLength != 0 && peer < own - kPduHeader) size = peer + uint32_t{kPduHeader};
  if (size < kLeastMaximum + kPduHeader) {
    VX_LOG_ERR("SetMessage", "The maximum PDU length of the peer (%u) leaves no room for data",
               dul_->peerMaximumPduLength);
    return VX_SYSTEM_ERROR;
  }
  most_ = size - uint32_t{kPdvHeader};
  const uint32_t buffer = std::max(size, kLeastBuffer);
  if (session_.PduBufferSize != buffer) {
    release(session_.PduBuffer);
    session_.PduBuffer = static_cast<uint8_t*>(allocate_raw(buffer));
    session_.PduBufferSize = session_.PduBuffer != nullptr ? buffer : 0;
  }
  if (session_.PduBuffer == nullptr) {
    VX_LOG_WARN("SetMessage", "Unable to allocate PDU buffer of size: %ld", static_cast<long>(buffer));
    return VX_SYSTEM_ERROR;
  }
  base_ = session_.PduBuffer;
  end_ = base_ + buffer;
  context_id_ = context_id;
  has_data_set_ = has_data_set;
  reset();
  return kOk;
}

void PdvWriter::reset() {
  fragment_ = base_;
  write_ = base_ + kPdvHeader;
  length_ = 0;
}

VX_STATUS PdvWriter::put(const uint8_t* data, uint32_t size) {
  while (size > 0) {
    const uint32_t left = most_ - length_;
    if (size > left && !holds()) {
      if (const VX_STATUS status = send(false, false, data, left); status != kOk) return status;
      reset();
      data += left;
      size -= left;
      continue;
    }
    const uint32_t part = std::min({size, left, room()});
    if (part == 0) {
      if (const VX_STATUS status = complete(false); status != kOk) return status;
      continue;
    }
    std::memcpy(write_, data, part);
    write_ += part;
    length_ += part;
    data += part;
    size -= part;
  }
  return kOk;
}

VX_STATUS PdvWriter::finish() {
  if (length_ % 2 != 0) {
    constexpr uint8_t kPad = 0;
    if (const VX_STATUS status = put(&kPad, 1); status != kOk) return status;
  }
  return complete(true);
}

// Sends the fragment, or keeps it if the next one fits behind it.
VX_STATUS PdvWriter::complete(bool last) {
  constexpr uint32_t kNextFragment = kPdvHeader + 2;
  if (!holds() || room() < kNextFragment) {
    const VX_STATUS status = send(last, false, nullptr, 0);
    reset();
    return status;
  }
  const VX_STATUS status = send(last, true, nullptr, 0);
  fragment_ = write_;
  write_ += kPdvHeader;
  length_ = 0;
  return status;
}

VX_STATUS PdvWriter::send(bool last, bool hold, const uint8_t* tail, uint32_t tail_length) {
  PdvToSend pdv{};
  pdv.ContextId = context_id_;
  pdv.IsData = is_data_;
  pdv.IsLast = last;
  pdv.Hold = hold;
  pdv.Buffer = base_;
  pdv.BufferLength = static_cast<uint32_t>(write_ - base_);
  pdv.FragmentStart = fragment_;
  pdv.Tail = tail_length != 0 ? tail : nullptr;
  pdv.TailLength = tail_length;
  pdv.ValueLength = length_ + tail_length;
  const int32_t status = DUL_write_pdvs(&dul_, &pdv);
  if (status == DUL_NORMAL) return kOk;
  VX_LOG_ERR("SendPDVs", "DUL_write_pdvs error: %s", DUL_Status_Text(status));
  return VX_CANNOT_COMPLY;
}

}  // namespace vx
