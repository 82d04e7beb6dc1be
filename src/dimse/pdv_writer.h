// Cuts the bytes of a message into presentation data values, each in a PDU of its own.
#pragma once

#include <cstdint>

#include "connection/session.h"
#include "connection/upper_layer.h"
#include "frame/status.h"

namespace vx {

// Bytes are copied behind the header that their fragment gets; what fills whole fragments is sent from where
// it lies. The command of a message with a data set stays in the buffer, as long as there is room, so that it
// leaves in one write with the first of the data. A full fragment waits for the next byte: only that tells
// whether it was the last.
class PdvWriter {
 public:
  explicit PdvWriter(SesObj& session) : session_(session), dul_(session.Dul) {}
  PdvWriter(const PdvWriter&) = delete;
  PdvWriter& operator=(const PdvWriter&) = delete;

  // VX_SYSTEM_ERROR: no memory, or the peer takes no data at all.
  VX_STATUS open(uint8_t context_id, bool has_data_set);
  void begin_data() { is_data_ = true; }
  VX_STATUS put(const uint8_t* data, uint32_t size);
  VX_STATUS finish();
  // The association died in a write.
  bool dead() const { return dul_ == nullptr; }

 private:
  bool holds() const { return !is_data_ && has_data_set_; }
  uint32_t room() const { return static_cast<uint32_t>(end_ - write_); }
  VX_STATUS complete(bool last);
  VX_STATUS send(bool last, bool hold, const uint8_t* tail, uint32_t tail_length);
  void reset();

  SesObj& session_;
  DUL_Association* dul_;
  uint8_t* base_ = nullptr;
  uint8_t* end_ = nullptr;
  uint8_t* fragment_ = nullptr;  // where the header of the fragment being filled goes
  uint8_t* write_ = nullptr;
  uint32_t length_ = 0;  // value bytes of that fragment
  uint32_t most_ = 0;    // that a fragment may have
  uint8_t context_id_ = 0;
  bool is_data_ = false;
  bool has_data_set_ = false;
};

}  // namespace vx
