#include "connection/state_machine.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "config/config.h"
#include "connection/session.h"
#include "connection/socket.h"
#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/pool.h"

namespace vx {
namespace {

constexpr uint32_t kRejectBody = 128;  // the longest A-ASSOCIATE-RJ body that is looked at
// The input buffer at first: room for the short PDUs, and no more than most data needs at a time.
constexpr uint32_t kLeastInput = 4096;
constexpr uint32_t kFirstInput = 1U << 20;
constexpr uint32_t kSmallestPdv = 6;  // its length field, the context ID and the control header

bool abort_asked(const DUL_Association& dul) {
  return dul.abortRequested.load(std::memory_order_relaxed) != 0;
}

// --- Reading ---

// `begun`: bytes in front of these have come already.
DulStatus Read_Transport(DUL_Association& dul, void* buffer, uint32_t length, bool begun = false) {
  constexpr int32_t kDefaultTimeout = 30;
  int32_t timeout = kDefaultTimeout;
  if (begun) {
    timeout = config_int(VX_CFG_INACTIVITY_TIMEOUT);
  } else if (dul.inactivityTimer.running) {
    timeout = dul.inactivityTimer.timeout;
  } else if (dul.replyTimer.running) {
    timeout = dul.replyTimer.timeout;
  } else if (dul.artimTimer.running) {
    timeout = dul.artimTimer.timeout;
  } else if (dul.warnDefaultTimeout) {
    dul.warnDefaultTimeout = false;
    VX_LOG_INF("Read_Transport", "Defaulting to 30 second timeout");
  }
  uint32_t count = 0;
  switch (TL_Read(*dul.transport, buffer, length, count, timeout, config_int(VX_CFG_INACTIVITY_TIMEOUT))) {
    case TL_NORMAL:
      return DUL_NORMAL;
    case TL_TIMED_OUT:
      return DUL_READ_TIMEOUT;
    default:
      dul.fellSilent = dul.transport->fellSilent;
      return DUL_TRANSPORT_SHUTDOWN;
  }
}

DulStatus Read_PDU_Head(DUL_Association& dul) {
  if (dul.readPhase == ReadPhase::Header) {
    const DulStatus status = Read_Transport(dul, dul.pduHeader, kPduHeader);
    if (status != DUL_NORMAL) {
      if (status != DUL_READ_TIMEOUT && dul.state != State::AwaitingClose && !abort_asked(dul)) {
        VX_LOG_ERR("Read_PDU_Head", "Error on Read_Transport call");
      }
      return status;
    }
    dul.pduType = dul.pduHeader[0];
    if (dul.pduType < kAssociateRq || dul.pduType > kAbort) {
      VX_LOG_ERR("Read_PDU_Head", "Unknown PDU type");
      return DUL_UNKNOWN_PDU;
    }
    dul.pduLength = load32(dul.pduHeader + 2, true);
    dul.readPhase = ReadPhase::Body;
  }
  return DUL_NORMAL;
}

// PDU_MAXIMUM_LENGTH is for P-DATA alone (PS3.8 section D.1); everything else has a limit of its own.
uint64_t most_body(const DUL_Association& dul) {
  switch (dul.pduType) {
    case kAssociateRq:
    case kAssociateAc:
      return kMaxAssociatePdu;
    case kPDataTf:
      return dul.maximumPduLength != 0 ? dul.maximumPduLength : kMaxUnlimitedPdu;
    default:
      return kLeastInput;
  }
}

bool grow_input_buffer(DUL_Association& dul, uint64_t size) {
  auto* grown = static_cast<uint8_t*>(reallocate(size, dul.inputBuffer));
  if (grown == nullptr) return false;
  dul.inputBuffer = grown;
  dul.inputBufferSize = static_cast<uint32_t>(size);
  return true;
}

DulStatus too_large(const DUL_Association& dul) {
  if (dul.pduType == kAssociateRq || dul.pduType == kAssociateAc) {
    VX_LOG_ERR(dul.pduType == kAssociateRq ? "A_Associate_RQ_PDU_Event" : "A_Associate_AC_PDU_Event",
               "PDU is too large");
    return DUL_NO_MEMORY;
  }
  VX_LOG_ERR("Read_PDU_Body", "Called with too small buffer, PDU length: %u, Buffer Size: %u", dul.pduLength,
             dul.inputBufferSize);
  return DUL_UNEXPECTED;
}

// The body, behind its header in the input buffer, which grows with what arrives. A time-out before the first
// byte leaves the header pending.
DulStatus Read_PDU_Body(DUL_Association& dul) {
  const uint64_t whole = uint64_t{dul.pduLength} + kPduHeader;
  if (dul.pduLength > most_body(dul)) return too_large(dul);
  std::memcpy(dul.inputBuffer, dul.pduHeader, kPduHeader);
  DulStatus status = DUL_NORMAL;
  for (uint64_t have = kPduHeader; have < whole && status == DUL_NORMAL;) {
    const bool begun = have != kPduHeader;
    const uint64_t step = std::min(whole, begun ? have * 2 : uint64_t{dul.inputBufferSize});
    if (step > dul.inputBufferSize && !grow_input_buffer(dul, step)) {
      status = too_large(dul);
      break;
    }
    status = Read_Transport(dul, dul.inputBuffer + have, static_cast<uint32_t>(step - have), begun);
    if (begun && status == DUL_READ_TIMEOUT) status = DUL_TRANSPORT_SHUTDOWN;
    have = step;
  }
  if (status != DUL_READ_TIMEOUT) dul.readPhase = ReadPhase::Header;
  return status;
}

DulStatus Read_PDU(DUL_Association& dul) {
  const DulStatus head = Read_PDU_Head(dul);
  if (head != DUL_NORMAL) {
    if (dul.state != State::AwaitingClose) VX_LOG_ERR("Read_PDU", "Error on Read_PDU_Head call");
    return head;
  }
  const DulStatus status = Read_PDU_Body(dul);
  if (status == DUL_NORMAL) {
    log_pdu(dul.inputBuffer, dul.pduLength + static_cast<uint32_t>(kPduHeader), nullptr, 0, true);
  }
  return status;
}

DulStatus retrieve_parameters(DUL_Association& dul, AssociationParameters& parameters) {
  const auto status =
      static_cast<DulStatus>(parse_associate({dul.inputBuffer, dul.pduLength + kPduHeader}, parameters));
  if (status == DUL_NORMAL) dul.peerMaximumPduLength = parameters.maximumPduLength;
  return status;
}

// --- P-DATA ---

// How many PDVs fill the body; 0 if they do not add up.
uint32_t count_pdvs(const DUL_Association& dul) {
  const uint8_t* body = dul.inputBuffer + kPduHeader;
  uint64_t at = 0;
  uint32_t count = 0;
  uint32_t length = 0;
  while (at + kSmallestPdv <= dul.pduLength) {
    length = load32(body + at, true);
    if (length < 2) break;
    at += uint64_t{length} + 4;
    ++count;
  }
  if (at == dul.pduLength && count != 0) return count;
  VX_LOG_ERR("Read_Pdata",
             "PDV Lengths don't add up correctly: %lu pdvs, %lu %ld length, next PDU length: %d",
             static_cast<unsigned long>(count), static_cast<unsigned long>(at),
             static_cast<long>(dul.pduLength), static_cast<int>(length));
  VX_LOG_ERR("Read_Pdata", "|  This probably indicates a malformed P DATA PDU.");
  return 0;
}

bool reserve_pdvs(DUL_Association& dul, uint32_t count) {
  if (count <= dul.pdvCapacity) return true;
  release(dul.pdvArray);
  dul.pdvCapacity = 0;
  dul.pdvArray = static_cast<PdvRecord*>(allocate_raw(std::size_t{count} * sizeof(PdvRecord)));
  if (dul.pdvArray == nullptr) {
    VX_LOG_ERR("Read_Pdata", "Unable to acquire Association pdv_info buffer");
    return false;
  }
  dul.pdvCapacity = count;
  return true;
}

DulStatus Read_Pdata(DUL_Association& dul) {
  DulStatus status = Read_PDU_Body(dul);
  if (status != DUL_NORMAL) {
    if (status != DUL_READ_TIMEOUT && !abort_asked(dul)) {
      VX_LOG_ERR("Read_Pdata", "Error on Read_PDU_Body call");
    }
    return status;
  }
  dul.pdvCount = 0;
  const uint32_t count = count_pdvs(dul);
  if (count == 0) return DUL_DEFORMED_PDU;
  if (!reserve_pdvs(dul, count)) return DUL_NO_MEMORY;
  const uint8_t* next = dul.inputBuffer + kPduHeader;
  const bool traced = log_enabled(VX_LOG_T9);
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t length = load32(next, true);
    dul.pdvArray[i] = {next + kSmallestPdv, length - 2, next[4], (next[5] & kCommandBit) == 0,
                       (next[5] & kLastBit) != 0};
    if (traced) log_pdu(dul.pduHeader, kPduHeader, next, kSmallestPdv, true);
    next += std::size_t{length} + 4;
  }
  dul.pdvCount = count;
  dul.pdvList = dul.pdvArray;
  return DUL_PDATA_ARRIVED;
}

// --- Sending ---

DulStatus write_pieces(DUL_Association& dul, const char* caller, iovec* pieces, int count) {
  switch (TL_Write(caller, *dul.transport, pieces, count, config_int(VX_CFG_WRITE_TIMEOUT))) {
    case TL_NORMAL:
      return DUL_NORMAL;
    case TL_WRITE_TIMEOUT:
      return DUL_WRITE_TIMEOUT;
    default:
      return DUL_NETWORK_ERROR;
  }
}

DulStatus send_pdu(DUL_Association& dul, const char* caller, uint8_t* pdu, std::size_t size) {
  log_pdu(pdu, static_cast<uint32_t>(size), nullptr, 0, false);
  iovec piece{pdu, size};
  return write_pieces(dul, caller, &piece, 1);
}

DulStatus send_short(DUL_Association& dul, Event event, PduType type, uint8_t b7 = 0, uint8_t b8 = 0,
                     uint8_t b9 = 0) {
  uint8_t pdu[kShortPdu];
  build_short_pdu(pdu, type, b7, b8, b9);
  return send_pdu(dul, name_of(event), pdu, sizeof pdu);
}

DulStatus send_associate(DUL_Association& dul, Event event, const AssociationParameters& parameters,
                         PduType type) {
  try {
    std::vector<uint8_t> pdu;
    if (!Build_Associate_PDU(parameters, type, pdu)) return DUL_UNEXPECTED;
    return send_pdu(dul, name_of(event), pdu.data(), pdu.size());
  } catch (const std::bad_alloc&) {
    VX_LOG_ERR(name_of(event),
               type == kAssociateRq ? "Could not malloc assocRQ_PDU" : "Could not malloc assocAC_PDU");
    return DUL_NO_MEMORY;
  }
}

// A wish of another thread goes out at once or not at all: the peer may have stopped reading.
DulStatus send_abort(DUL_Association& dul, Event event, AbortSource source, AbortReason reason) {
  if (!abort_asked(dul)) return send_short(dul, event, kAbort, 0, source, reason);
  uint8_t pdu[kShortPdu];
  build_short_pdu(pdu, kAbort, 0, source, reason);
  log_pdu(pdu, sizeof pdu, nullptr, 0, false);
  write_at_once(*dul.transport, pdu, sizeof pdu);
  return DUL_NORMAL;
}

DulStatus Send_PDV_List(DUL_Association& dul, const PdvToSend& pdv) {
  if (abort_asked(dul)) return DUL_ABORT_REQUESTED;
  build_pdv_header(pdv.FragmentStart, pdv.ValueLength, pdv.ContextId, pdv.IsData, pdv.IsLast);
  log_pdu(pdv.FragmentStart, kPdvHeader, nullptr, 0, false);
  if (pdv.Hold) return DUL_NORMAL;
  iovec pieces[] = {{pdv.Buffer, pdv.BufferLength}, {const_cast<uint8_t*>(pdv.Tail), pdv.TailLength}};
  return write_pieces(dul, "Send_PDV_List", pieces, pdv.TailLength == 0 ? 1 : 2);
}

// --- Actions ---

// What the peer still sends is dropped until it closes.
void Wait_For_Transport_Close(DUL_Association& dul) {
  constexpr int32_t kDefaultArtim = 10;
  if (dul.artimTimer.timeout < 1) dul.artimTimer.timeout = kDefaultArtim;
  dul.artimTimer.running = true;
  dul.state = State::AwaitingClose;
  if (!abort_asked(dul)) drain_transport(*dul.transport, dul.artimTimer.timeout);
  run_event(dul, Event::TransportClosed);
}

struct Step {
  DUL_Association& dul;
  Event event;
  State next;
  const EventData& data;
};

DulStatus issue_connect(const Step& step) {
  step.dul.readPhase = ReadPhase::Header;
  step.dul.state = step.next;
  switch (
      TL_Connect(*step.dul.transport, step.data.host, step.data.port, config_int(VX_CFG_CONNECT_TIMEOUT))) {
    case TL_NORMAL:
      return DUL_NORMAL;
    case TL_UNKNOWN_HOST:
      return DUL_UNKNOWN_HOST;
    case TL_CONNECT_FAILED:
      return DUL_CONNECT_FAILED;
    default:
      return DUL_TRANSPORT_INIT_ERROR;
  }
}

DulStatus send_request(const Step& step) {
  step.dul.state = step.next;
  return send_associate(step.dul, step.event, *step.data.parameters, kAssociateRq);
}

// Takes an A-ASSOCIATE-RQ or -AC that was read, or was not, into the parameters.
DulStatus take_parameters(const Step& step, DulStatus read) {
  step.dul.state = step.next;
  if (read == DUL_NORMAL) return retrieve_parameters(step.dul, *step.data.parameters);
  VX_LOG_ERR(name_of(step.event), "Error on Read_PDU call");
  return read;
}

DulStatus confirm_accept(const Step& step) {
  mark_unanswered(*step.data.parameters);
  return take_parameters(step, Read_PDU(step.dul));
}

DulStatus confirm_reject(const Step& step) {
  DUL_Association& dul = step.dul;
  const bool whole = dul.pduLength >= 4 && dul.pduLength <= kRejectBody && Read_PDU(dul) == DUL_NORMAL;
  if (whole) {
    step.data.parameters->rejectResult = dul.inputBuffer[7];
    step.data.parameters->rejectSource = dul.inputBuffer[8];
    step.data.parameters->rejectReason = dul.inputBuffer[9];
  } else {
    VX_LOG_ERR(name_of(step.event), "Error on Read_PDU_Body call");
  }
  Destroy_Association_Handle(dul);
  return whole ? DUL_PEER_REJECTED : DUL_PROVIDER_ABORTED;
}

DulStatus await_request(const Step& step) {
  step.dul.readPhase = ReadPhase::Header;
  step.dul.state = step.next;
  return DUL_NORMAL;
}

DulStatus indicate_request(const Step& step) {
  return take_parameters(step, Read_PDU(step.dul));
}

DulStatus send_accept(const Step& step) {
  const DulStatus status = send_associate(step.dul, step.event, *step.data.parameters, kAssociateAc);
  if (status == DUL_NORMAL) step.dul.state = step.next;
  return status;
}

DulStatus send_reject(const Step& step) {
  const EventData& data = step.data;
  const DulStatus status =
      send_short(step.dul, step.event, kAssociateRj, data.result, data.source, data.reason);
  if (status == DUL_NORMAL) Wait_For_Transport_Close(step.dul);
  return status;
}

DulStatus send_data(const Step& step) {
  return Send_PDV_List(step.dul, *step.data.pdv);
}

DulStatus indicate_data(const Step& step) {
  return Read_Pdata(step.dul);
}

DulStatus send_release(const Step& step) {
  step.dul.state = step.next;
  return send_short(step.dul, step.event, kReleaseRq);
}

// Reads the PDU, takes the next state and gives `result`.
DulStatus read_and(const Step& step, DulStatus result) {
  const DulStatus status = Read_PDU(step.dul);
  if (status != DUL_NORMAL) return status;
  step.dul.state = step.next;
  return result;
}

DulStatus indicate_release(const Step& step) {
  return read_and(step, DUL_RELEASE_REQUESTED);
}

DulStatus confirm_release(const Step& step) {
  const DulStatus status = Read_PDU(step.dul);
  if (status != DUL_NORMAL) return status;
  Destroy_Association_Handle(step.dul);
  return DUL_RELEASE_CONFIRMED;
}

DulStatus answer_release(const Step& step) {
  const DulStatus status = send_short(step.dul, step.event, kReleaseRp);
  if (status != DUL_NORMAL) return status;
  Wait_For_Transport_Close(step.dul);
  return DUL_PROVIDER_ABORTED;
}

DulStatus close_quietly(const Step& step) {
  Destroy_Association_Handle(step.dul);
  return DUL_PROVIDER_ABORTED;
}

DulStatus forget_connection(const Step& step) {
  Destroy_Association_Handle(step.dul);
  return DUL_NO_ASSOCIATION;
}

DulStatus answer_collision(const Step& step) {
  const DulStatus status = send_short(step.dul, step.event, kReleaseRp);
  if (status == DUL_NORMAL) step.dul.state = step.next;
  return status;
}

DulStatus confirm_collision(const Step& step) {
  return read_and(step, DUL_RELEASE_CONFIRMED);
}

DulStatus abort_as(const Step& step, AbortSource source, AbortReason reason) {
  send_abort(step.dul, step.event, source, reason);
  Wait_For_Transport_Close(step.dul);
  return step.event == Event::AbortRequest ? DUL_NORMAL : DUL_PROVIDER_ABORTED;
}

DulStatus abort_as_user(const Step& step) {
  return abort_as(step, kAbortByUser, kAbortNoReason);
}

DulStatus abort_as_provider(const Step& step) {
  return abort_as(step, kAbortByProvider, kAbortUnexpectedPdu);
}

DulStatus indicate_abort(const Step& step) {
  if (step.event == Event::ArtimExpired) return close_quietly(step);
  Read_PDU(step.dul);
  VX_LOG_ERR(name_of(step.event), "Peer aborted Association");
  Destroy_Association_Handle(step.dul);
  return DUL_PEER_ABORTED;
}

DulStatus report_closed(const Step& step) {
  if (!abort_asked(step.dul)) VX_LOG_ERR(name_of(step.event), "Transport unexpectedly closed");
  Destroy_Association_Handle(step.dul);
  return DUL_PROVIDER_ABORTED;
}

DulStatus read_and_drop(const Step& step) {
  return read_and(step, DUL_NORMAL);
}

DulStatus read_and_abort(const Step& step) {
  const DulStatus status = Read_PDU(step.dul);
  if (status != DUL_NORMAL) return status;
  return send_abort(step.dul, step.event, kAbortByProvider, kAbortUnexpectedPdu);
}

DulStatus close_connection(const Step& step) {
  return run_event(step.dul, Event::TransportClosed);
}

DulStatus refuse_abort(const Step&) {
  return DUL_TRANSPORT_INIT_ERROR;
}

using ActionFunction = DulStatus (*)(const Step& step);
// clang-format off
constexpr ActionFunction kActionFunctions[] = {
    nullptr,
    // AE-1 to AE-8
    issue_connect, send_request, confirm_accept, confirm_reject,
    await_request, indicate_request, send_accept, send_reject,
    // DT-1, DT-2
    send_data, indicate_data,
    // AR-1 to AR-10
    send_release, indicate_release, confirm_release, answer_release, close_quietly,
    indicate_data, send_data, indicate_release, answer_collision, confirm_collision,
    // AA-1 to AA-8
    abort_as_user, indicate_abort, indicate_abort, report_closed,
    forget_connection, read_and_drop, read_and_abort, abort_as_provider,
    // Close, NotOpen
    close_connection, refuse_abort,
};
// clang-format on
static_assert(std::size(kActionFunctions) == kActions);

constexpr Event kPduEvents[] = {
    Event::AssociateRqPdu, Event::AssociateAcPdu, Event::AssociateRjPdu, Event::PDataPdu,
    Event::ReleaseRqPdu,   Event::ReleaseRpPdu,   Event::AbortPdu,
};

bool is_known(State state) {
  return state >= State::Idle && state <= State::AwaitingClose;
}

bool is_pdu(Event event) {
  return std::find(std::begin(kPduEvents), std::end(kPduEvents), event) != std::end(kPduEvents);
}

DulStatus no_action(DUL_Association& dul, Event event) {
  const bool known = is_known(dul.state);
  if (known && is_pdu(event) && dul.transport != nullptr) Read_PDU(dul);
  VX_LOG_ERR(name_of(event), known ? "No action defined for state: %d" : "Invalid protocol state: %d",
             static_cast<int>(dul.state));
  return DUL_WRONG_ORDER;
}

}  // namespace

DulStatus run_event(DUL_Association& dul, Event event, const EventData& data) {
  if (event == Event::TransportClosed && !dul_alive(&dul)) return DUL_PROVIDER_ABORTED;
  const Cell cell = is_known(dul.state)
                        ? kStateTable[static_cast<std::size_t>(event)][static_cast<std::size_t>(dul.state)]
                        : Cell{};
  if (cell.action == Action::None) return no_action(dul, event);
  const State collision = dul.isAcceptor != 0 ? State::CollidedAcceptor : State::CollidedRequester;
  return kActionFunctions[static_cast<std::size_t>(cell.action)](
      {dul, event, cell.next == State::ByRole ? collision : cell.next, data});
}

DulStatus process_PDU(uint8_t type, DUL_Association& dul, AssociationParameters* parameters) {
  EventData data;
  data.parameters = parameters;
  return run_event(dul, kPduEvents[type - kAssociateRq], data);
}

DulStatus VXI_nextPDUtype(DUL_Association& dul, uint8_t& type) {
  const DulStatus status = Read_PDU_Head(dul);
  type = dul.pduType;
  if (status != DUL_NORMAL && status != DUL_READ_TIMEOUT && !abort_asked(dul)) {
    VX_LOG_ERR("VXI_nextPDUtype", "Error on Read_PDU_Head call: %s", DUL_Status_Text(status));
  }
  return status;
}

DUL_Association* Create_Association_Handle(uint32_t maximum_pdu_length, bool acceptor, DulStatus& status) {
  auto* dul = new_object<DUL_Association>(Pool::AssocObj);
  if (dul == nullptr) {
    VX_LOG_ERR("Create_Association_Handle", "Could not malloc association handle");
    status = DUL_CANT_CREATE_HANDLE;
    return nullptr;
  }
  dul->tag = kAssociationTag;
  dul->isAcceptor = acceptor ? 1 : 0;
  dul->state = State::Idle;
  dul->readPhase = ReadPhase::Header;
  dul->warnDefaultTimeout = true;
  dul->artimTimer.timeout = config_int(VX_CFG_ARTIM_TIMEOUT);
  dul->currentMessage = -1;
  dul->maximumPduLength = maximum_pdu_length;
  dul->inputBufferSize =
      std::clamp(maximum_pdu_length, kLeastInput, kFirstInput) + static_cast<uint32_t>(kPduHeader);
  dul->inputBuffer = static_cast<uint8_t*>(allocate_raw(dul->inputBufferSize));
  if (dul->inputBuffer != nullptr) {
    status = DUL_NORMAL;
    return dul;
  }
  VX_LOG_ERR("Create_Association_Handle", "malloc of input buffer failed");
  free_association(dul);
  status = DUL_NO_MEMORY;
  return nullptr;
}

void Destroy_Association_Handle(DUL_Association& dul) {
  TL_Transport* transport = nullptr;
  {
    // An abort of another thread finds the transport, or finds none.
    const Guard guard(session_lock());
    transport = dul.transport;
    dul.transport = nullptr;
    dul.tag = 0;
  }
  if (transport != nullptr) TL_Close_Transport(transport);
  release(dul.inputBuffer);
  release(dul.pdvArray);
  dul.inputBuffer = nullptr;
  dul.pdvArray = nullptr;
  dul.pdvList = nullptr;
  dul.pdvCapacity = 0;
  dul.pdvCount = 0;
}

}  // namespace vx
