// Hands the presentation data values of a message to whoever reads it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "connection/session.h"
#include "connection/upper_layer.h"
#include "frame/status.h"

namespace vx {

enum class ReadOutcome : int32_t {
  Arrived = 1,
  ShutDown = 2011,
  PeerAborted = 2013,
  Release = 2014,
  TimedOut = 2020,
  Silent = 2022,   // within a PDU: the association is gone
  Aborted = 2021,  // another thread asked for it
  Failed = 2024
};

class PdvReader {
 public:
  PdvReader(DUL_Association* dul, int32_t timeout) : dul_(dul), timeout_(timeout) {}

  // The next value of the message. False: outcome() tells why. A release by the peer ends the message with an
  // empty last value.
  bool next(const uint8_t*& data, uint32_t& size, bool& last);
  void begin_data() {
    is_data_ = true;
    ended_ = false;
    has_context_ = false;
  }
  void expect_context(uint8_t id) {
    context_id_ = id;
    has_context_ = true;
  }
  uint8_t context_id() const { return context_id_; }
  ReadOutcome outcome() const { return outcome_; }
  bool released() const { return outcome_ == ReadOutcome::Release; }
  // The last value of the command or the data set has come.
  bool ended() const { return ended_; }
  // The peer fell silent within a message.
  bool silent_within() const { return outcome_ == ReadOutcome::TimedOut && dul_->midMessage != 0; }

 private:
  ReadOutcome read_pdu();
  bool refuse(const char* text);

  DUL_Association* dul_;
  int32_t timeout_;
  ReadOutcome outcome_ = ReadOutcome::Arrived;
  uint8_t context_id_ = 0;
  std::size_t command_size_ = 0;
  bool has_context_ = false;
  bool is_data_ = false;
  bool ended_ = false;
};

}  // namespace vx
