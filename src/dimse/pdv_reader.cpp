#include "dimse/pdv_reader.h"

#include "frame/limits.h"
#include "frame/log.h"

namespace vx {

ReadOutcome PdvReader::read_pdu() {
  constexpr char kFunction[] = "VXI_ReadNextPDV";
  const int32_t status = DUL_read_pdvs(dul_, timeout_);
  if (status == DUL_PDATA_ARRIVED) return ReadOutcome::Arrived;
  if (dul_alive(dul_)) dul_->pdvCount = 0;
  switch (status) {
    case DUL_RELEASE_REQUESTED:
      return ReadOutcome::Release;
    case DUL_READ_TIMEOUT:
      return ReadOutcome::TimedOut;
    case DUL_ABORT_REQUESTED:
      return ReadOutcome::Aborted;
    case DUL_PROVIDER_ABORTED:
    case DUL_PEER_ABORTED:
      VX_LOG_INF(kFunction, "DUL_read_pdvs error: %s", DUL_Status_Text(status));
      if (dul_->fellSilent) return ReadOutcome::Silent;
      return status == DUL_PEER_ABORTED ? ReadOutcome::PeerAborted : ReadOutcome::ShutDown;
    default:
      VX_LOG_ERR(kFunction, "DUL_read_pdvs error: %s", DUL_Status_Text(status));
      return ReadOutcome::Failed;
  }
}

bool PdvReader::refuse(const char* text) {
  VX_LOG_ERR("VXI_StreamToMessageFunction", "%s", text);
  outcome_ = ReadOutcome::Failed;
  return false;
}

bool PdvReader::next(const uint8_t*& data, uint32_t& size, bool& last) {
  if (outcome_ != ReadOutcome::Arrived || !dul_alive(dul_)) {
    if (outcome_ == ReadOutcome::Arrived) outcome_ = ReadOutcome::Failed;
    return false;
  }
  while (dul_->pdvCount == 0) {
    outcome_ = read_pdu();
    if (outcome_ == ReadOutcome::Arrived) continue;  // a PDU without a value passes
    // Without a limit the wait goes on, unless a message has begun.
    if (outcome_ == ReadOutcome::TimedOut && timeout_ < 0 && dul_->midMessage == 0) continue;
    if (outcome_ != ReadOutcome::Release) return false;
    data = nullptr;
    size = 0;
    last = true;
    return true;
  }
  const PdvRecord& pdv = *dul_->pdvList;
  if (has_context_ && pdv.contextId != context_id_) return refuse("Context unexpectedly changed");
  if (pdv.isData != is_data_) return refuse("Unexpected PDV type on read");
  if (!is_data_ && (command_size_ += pdv.length) > kMaxCommand) return refuse("The command is too long");
  expect_context(pdv.contextId);
  data = pdv.data;
  size = pdv.length;
  last = ended_ = pdv.isLast;
  ++dul_->pdvList;
  --dul_->pdvCount;
  return true;
}

}  // namespace vx
