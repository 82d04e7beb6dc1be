#include "connection/upper_layer.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "config/config.h"
#include "connection/exception_filter.h"
#include "connection/session.h"
#include "connection/socket.h"
#include "connection/state_machine.h"
#include "connection/transport_wait.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {
namespace {

struct StatusText {
  DulStatus status;
  const char* text;
};
constexpr StatusText kStatusTexts[] = {
    {DUL_NORMAL, "Normal completion"},
    {DUL_RELEASE_CONFIRMED, "Association release confirmed"},
    {DUL_NO_ASSOCIATION, "No association received"},
    {DUL_INTERRUPTED, "Transport Layer system call interrupted"},
    {DUL_RELEASE_REQUESTED, "Peer requested release"},
    {DUL_PDATA_ARRIVED, "Pdata arrived OK"},
    {DUL_NULL_PARAMETERS, "Null pointer to Association Parameters"},
    {DUL_INVALID_HANDLE, "Invalid Handle: wrong structure tag"},
    {DUL_NULL_HANDLE, "NULL handle received"},
    {DUL_READ_TIMEOUT, "Transport read timeout"},
    {DUL_NULL_ABORT_CODE, "Null pointer to abort code"},
    {DUL_NULL_PDV_LIST, "Null pointer to PDV list"},
    {DUL_PEER_ABORTED, "Peer aborted association"},
    {DUL_PEER_REJECTED, "Peer rejected association"},
    {DUL_PROVIDER_ABORTED, "UL Provider aborted the association"},
    {DUL_WRONG_ORDER, "Function called in wrong order"},
    {DUL_UNKNOWN_HOST, "Unknown host"},
    {DUL_UNKNOWN_REJECT_REASON, "Unknown reject reason"},
    {DUL_UNKNOWN_REJECT_RESULT, "Unknown reject result"},
    {DUL_CANT_CREATE_HANDLE, "Can't create association handle"},
    {DUL_DEFORMED_PDU, "Deformed PDU"},
    {DUL_NETWORK_ERROR, "Network I/O error"},
    {DUL_TRANSPORT_SHUTDOWN, "Transport has shut down"},
    {DUL_WRITE_TIMEOUT, "Timeout during network write"},
    {DUL_NO_MEMORY, "Insufficient memory to malloc needed structures"},
    {DUL_UNEXPECTED, "Totally unexpected!!"},
    {DUL_TRANSPORT_INIT_ERROR, "Transport initialization error"},
    {DUL_CONNECT_FAILED, "Unable to connect to remote host"},
    {DUL_UNKNOWN_PDU, "Unknown PDU type"},
    {DUL_UNKNOWN_REMOTE_NODE, "Unknown remode node"},
    {DUL_ABORT_REQUESTED, "A request from another thread was received to abort the association"},
};

DulStatus check_handle(const DUL_Association* dul) {
  if (dul == nullptr) return DUL_NULL_HANDLE;
  return dul_alive(dul) ? DUL_NORMAL : DUL_INVALID_HANDLE;
}

bool abort_asked(const DUL_Association& dul) {
  return dul.abortRequested.load(std::memory_order_relaxed) != 0;
}

bool one_of(DulStatus status, std::initializer_list<DulStatus> list) {
  return std::find(list.begin(), list.end(), status) != list.end();
}

void stop_timers(DUL_Association& dul) {
  dul.replyTimer.running = false;
  dul.inactivityTimer.running = false;
}

// Everything up to the moment must have come by then, however slowly it drips in. 0 seconds: no such moment.
void set_deadline(DUL_Association& dul, int64_t seconds) {
  dul.transport->deadline = seconds > 0 ? monotonic_now() + seconds * kSecond : 0;
}

// Reads a header and runs the event of its PDU.
DulStatus next_pdu(DUL_Association& dul, AssociationParameters* parameters) {
  uint8_t type = 0;
  const DulStatus status = VXI_nextPDUtype(dul, type);
  if (status == DUL_UNKNOWN_PDU) return run_event(dul, Event::InvalidPdu);
  return status == DUL_NORMAL ? process_PDU(type, dul, parameters) : status;
}

// --- Requester ---

DulStatus negotiate(DUL_Association& dul, AssociationParameters& parameters) {
  EventData data;
  data.parameters = &parameters;
  DulStatus status = run_event(dul, Event::TransportConfirm, data);
  if (status != DUL_NORMAL) {
    VX_LOG_ERR("DUL_associate_request", "Transport_Conn_Confirm_Event error: %s", DUL_Status_Text(status));
    run_event(dul, Event::TransportClosed);
    return DUL_PROVIDER_ABORTED;
  }
  const int32_t reply = config_int(VX_CFG_ASSOC_REPLY_TIMEOUT);
  start(dul.replyTimer, reply);
  set_deadline(dul, reply > 0 ? int64_t{reply} + std::max(config_int(VX_CFG_INACTIVITY_TIMEOUT), 0) : 0);
  status = next_pdu(dul, &parameters);
  if (one_of(status, {DUL_NORMAL, DUL_PEER_ABORTED, DUL_PEER_REJECTED})) return status;
  run_event(dul, Event::TransportClosed);
  VX_LOG_ERR("DUL_associate_request", "Error on process_PDU call: %s", DUL_Status_Text(status));
  return DUL_PROVIDER_ABORTED;
}

DulStatus request_association(DUL_Association& dul, AssociationParameters& parameters,
                              const SS_Functions* functions, void* application_context) {
  dul.transport = TL_Create_Transport(functions, application_context);
  if (dul.transport == nullptr) return DUL_PROVIDER_ABORTED;
  EventData data;
  data.host = parameters.calledHostName;
  data.port = parameters.calledPort;
  const DulStatus status = run_event(dul, Event::AssociateRequest, data);
  if (status == DUL_NORMAL) return negotiate(dul, parameters);
  run_event(dul, Event::TransportClosed);
  return status == DUL_TRANSPORT_INIT_ERROR ? DUL_PROVIDER_ABORTED : status;
}

// --- Acceptor ---

DulStatus wait_for_connection(TL_Transport*& transport, int32_t timeout, int32_t port, const char* address,
                              int accepted) {
  TL_ListenPortObj* listener = nullptr;
  if (accepted <= 0) {
    const TlStatus status = TL_Prepare_Listen_Port(port, address, listener);
    if (status != TL_NORMAL) return status == TL_NO_MEMORY ? DUL_NO_MEMORY : DUL_PROVIDER_ABORTED;
  }
  const TlStatus status = TL_Wait_For_Connection(transport, timeout, listener, accepted);
  if (listener != nullptr) release_listen_port(listener);
  if (status == TL_NORMAL) return DUL_NORMAL;
  if (transport != nullptr) TL_Close_Transport(transport);
  transport = nullptr;
  if (status == TL_TIMED_OUT) return DUL_NO_ASSOCIATION;
  VX_LOG_ERR("DUL_wait_for_associate_RQ", "Error on TL_Wait_For_Connection call");
  return DUL_PROVIDER_ABORTED;
}

bool store_peer_names(const TL_Transport& transport, AssociationParameters& parameters) {
  if (transport.remoteAddress == nullptr) {
    VX_LOG_ERR("DUL_wait_for_associate_RQ", "Internal error getting remote ip address");
    return false;
  }
  copy_text(parameters.callingAddress, sizeof parameters.callingAddress, transport.remoteAddress);
  const std::string_view address = transport.remoteAddress;
  const std::string_view name = transport.remoteName != nullptr ? transport.remoteName
                                : address == "127.0.0.1"        ? "localhost"
                                                                : "unknown";
  constexpr std::size_t kLongestHost = 39;
  copy_text(parameters.callingHostName, sizeof parameters.callingHostName, name.substr(0, kLongestHost));
  return true;
}

// From the connection to the A-ASSOCIATE-RQ everything stands under one deadline.
DulStatus receive_request(DUL_Association& dul, AssociationParameters& parameters,
                          const SS_Functions* functions, void* application_context) {
  if (!store_peer_names(*dul.transport, parameters)) return DUL_UNKNOWN_HOST;
  set_deadline(dul, dul.artimTimer.timeout);
  if (functions != nullptr) {
    dul.transport->applicationContext = application_context;
    if (!set_secure_functions(*dul.transport, *functions) ||
        !open_secure_channel(*dul.transport, ChannelRole::Acceptor)) {
      return DUL_PROVIDER_ABORTED;
    }
  }
  dul.artimTimer.running = true;
  run_event(dul, Event::TransportIndication);
  uint8_t type = 0;
  DulStatus status = VXI_nextPDUtype(dul, type);
  if (status == DUL_READ_TIMEOUT) {
    VX_LOG_ERR("DUL_wait_for_associate_RQ",
               "ARTIM timeout before receiving Associate-RQ, association aborted");
    return run_event(dul, Event::ArtimExpired);
  }
  if (status != DUL_NORMAL && status != DUL_TRANSPORT_SHUTDOWN) {
    VX_LOG_ERR("DUL_wait_for_associate_RQ", "Unexpected Error on VXI_nextPDUtype call: %s",
               DUL_Status_Text(status));
  }
  if (status == DUL_UNKNOWN_PDU) run_event(dul, Event::InvalidPdu);
  if (status == DUL_NORMAL) status = process_PDU(type, dul, &parameters);
  if (status == DUL_NORMAL) return status;
  VX_LOG_ERR("DUL_wait_for_associate_RQ", "Error on process_PDU call: %s", DUL_Status_Text(status));
  return DUL_PROVIDER_ABORTED;
}

// --- Release ---

// Both sides asked: the requester answers first, the acceptor last (PS3.8 Sta9 to Sta12).
void finish_collision(DUL_Association& dul) {
  if (dul.state == State::CollidedRequester) {
    if (run_event(dul, Event::ReleaseResponse) == DUL_NORMAL) next_pdu(dul, nullptr);
  } else if (next_pdu(dul, nullptr) == DUL_RELEASE_CONFIRMED) {
    run_event(dul, Event::ReleaseResponse);
  }
  if (dul_alive(&dul)) run_event(dul, Event::TransportClosed);
}

}  // namespace

const char* DUL_Status_Text(int32_t status) {
  for (const StatusText& row : kStatusTexts) {
    if (row.status == status) return row.text;
  }
  thread_local char unknown[80];
  std::snprintf(unknown, sizeof unknown, "Unknown Upper Layer status: %d", status);
  return unknown;
}

DulStatus DUL_associate_request(uint32_t maximum_pdu_length, AssociationParameters* parameters,
                                DUL_Association** handle, const SS_Functions* functions,
                                void* application_context) {
  if (parameters == nullptr) return DUL_NULL_PARAMETERS;
  if (handle == nullptr) return DUL_NULL_HANDLE;
  *handle = nullptr;
  DulStatus status = DUL_NORMAL;
  DUL_Association* dul = Create_Association_Handle(maximum_pdu_length, false, status);
  if (dul == nullptr) {
    VX_LOG_ERR("DUL_associate_request", "Error on Create_Association_Handle");
    return DUL_PROVIDER_ABORTED;
  }
  status = request_association(*dul, *parameters, functions, application_context);
  if (status != DUL_NORMAL) {
    free_association(dul);
    return status;
  }
  stop_timers(*dul);
  dul->transport->deadline = 0;
  *handle = dul;
  return status;
}

DulStatus DUL_wait_for_associate_RQ(int32_t timeout, int32_t port, const char* address,
                                    uint32_t maximum_pdu_length, AssociationParameters* parameters,
                                    DUL_Association** handle, int accepted_socket,
                                    const SS_Functions* functions, void* application_context) {
  if (handle == nullptr) return DUL_NULL_HANDLE;
  if (parameters == nullptr) return DUL_NULL_PARAMETERS;
  *handle = nullptr;
  TL_Transport* transport = nullptr;
  DulStatus status = wait_for_connection(transport, timeout, port, address, accepted_socket);
  if (status != DUL_NORMAL) return status;
  DUL_Association* dul = Create_Association_Handle(maximum_pdu_length, true, status);
  if (dul == nullptr) {
    VX_LOG_ERR("DUL_wait_for_associate_RQ", "Error on Create_Association_Handle call");
    TL_Close_Transport(transport);
    return DUL_PROVIDER_ABORTED;
  }
  dul->transport = transport;
  status = receive_request(*dul, *parameters, functions, application_context);
  if (status != DUL_NORMAL) {
    free_association(dul);
    return status;
  }
  dul->artimTimer.running = false;
  dul->transport->deadline = 0;
  *handle = dul;
  return status;
}

DulStatus DUL_associate_accept(DUL_Association* dul, AssociationParameters* parameters) {
  if (const DulStatus status = check_handle(dul); status != DUL_NORMAL) return status;
  if (parameters == nullptr) return DUL_NULL_PARAMETERS;
  EventData data;
  data.parameters = parameters;
  const DulStatus status = run_event(*dul, Event::AssociateAccept, data);
  if (status == DUL_NORMAL || status == DUL_WRONG_ORDER) return status;
  return run_event(*dul, Event::TransportClosed);
}

DulStatus DUL_associate_reject(DUL_Association* dul, int32_t result, int32_t reason, int32_t source) {
  if (const DulStatus status = check_handle(dul); status != DUL_NORMAL) return status;
  constexpr int32_t kReasons[] = {kNoReasonGiven, kContextNameNotSupported, kCallingTitleUnknown,
                                  kCalledTitleUnknown};
  if (std::find(std::begin(kReasons), std::end(kReasons), reason) == std::end(kReasons)) {
    VX_LOG_ERR("DUL_associate_reject", "Illegal reject reason");
    return DUL_UNKNOWN_REJECT_REASON;
  }
  if (result != kRejectedPermanently && result != kRejectedTransiently) {
    VX_LOG_ERR("DUL_associate_reject", "Illegal reject reason");
    return DUL_UNKNOWN_REJECT_RESULT;
  }
  EventData data;
  data.result = static_cast<uint8_t>(result);
  data.reason = static_cast<uint8_t>(reason);
  data.source = static_cast<uint8_t>(source);
  const DulStatus status = run_event(*dul, Event::AssociateReject, data);
  if (status != DUL_NORMAL && status != DUL_WRONG_ORDER) run_event(*dul, Event::TransportClosed);
  return status;
}

DulStatus DUL_release_request(DUL_Association* dul) {
  if (const DulStatus status = check_handle(dul); status != DUL_NORMAL) return status;
  DulStatus status = run_event(*dul, Event::ReleaseRequest);
  if (status != DUL_NORMAL) {
    if (status != DUL_WRONG_ORDER) run_event(*dul, Event::TransportClosed);
    VX_LOG_ERR("DUL_release_request", "Error on A_Release_Request_Event call: %s", DUL_Status_Text(status));
    return status;
  }
  const int32_t timeout = config_int(VX_CFG_RELEASE_TIMEOUT);
  dul->inactivityTimer.running = false;
  start(dul->replyTimer, timeout);
  set_deadline(*dul, timeout);
  status = next_pdu(*dul, nullptr);
  if (status == DUL_RELEASE_REQUESTED) finish_collision(*dul);
  if (!one_of(status, {DUL_RELEASE_CONFIRMED, DUL_PDATA_ARRIVED, DUL_PEER_ABORTED, DUL_RELEASE_REQUESTED})) {
    status = run_event(*dul, Event::TransportClosed);
  }
  if (dul_alive(dul)) {
    dul->replyTimer.running = false;
    dul->transport->deadline = 0;
  }
  return status;
}

DulStatus DUL_release_response(DUL_Association* dul) {
  if (const DulStatus status = check_handle(dul); status != DUL_NORMAL) return status;
  const DulStatus status = run_event(*dul, Event::ReleaseResponse);
  if (status == DUL_NORMAL || status == DUL_PROVIDER_ABORTED) return status;
  run_event(*dul, Event::TransportClosed);
  VX_LOG_ERR("DUL_release_response", "Error on A_Release_Response_Event call");
  return DUL_NORMAL;
}

DulStatus DUL_abort_request(DUL_Association* dul) {
  if (const DulStatus status = check_handle(dul); status != DUL_NORMAL) return status;
  const DulStatus status = run_event(*dul, Event::AbortRequest);
  if (status != DUL_NORMAL) {
    VX_LOG_ERR("DUL_abort_request", "Error on A_Abort_Request_Event call: %s", DUL_Status_Text(status));
  }
  return status;
}

DulStatus DUL_write_pdvs(DUL_Association** handle, const PdvToSend* pdv) {
  if (handle == nullptr || *handle == nullptr) return DUL_NULL_HANDLE;
  if (pdv == nullptr) return DUL_NULL_PDV_LIST;
  DUL_Association* dul = *handle;
  if (const DulStatus status = check_handle(dul); status != DUL_NORMAL) return status;
  before_transfer();
  EventData data;
  data.pdv = pdv;
  DulStatus status = run_event(*dul, Event::PDataRequest, data);
  if (status == DUL_NORMAL) after_transfer(kWritten, const_cast<PdvToSend*>(pdv));
  if (status == DUL_NORMAL || status == DUL_WRONG_ORDER) return status;
  *handle = nullptr;
  if (!abort_asked(*dul)) return run_event(*dul, Event::TransportClosed);
  status = DUL_abort_request(dul);
  if (status != DUL_NORMAL) {
    VX_LOG_ERR("DUL_write_pdvs", "DUL_abort_request error: %s", DUL_Status_Text(status));
  }
  DUL_drop_association(dul);
  return DUL_ABORT_REQUESTED;
}

DulStatus DUL_read_pdvs(DUL_Association* dul, int32_t timeout) {
  if (const DulStatus status = check_handle(dul); status != DUL_NORMAL) return status;
  if (dul->state != State::Established && dul->state != State::AwaitingReleaseReply) return DUL_WRONG_ORDER;
  before_transfer();
  if (dul->midMessage == 0) {
    start(dul->replyTimer, timeout);
  } else {
    start(dul->inactivityTimer, config_int(VX_CFG_INACTIVITY_TIMEOUT));
  }
  uint8_t type = 0;
  DulStatus status = VXI_nextPDUtype(*dul, type);
  if (status == DUL_NORMAL) {
    if (dul->midMessage == 0) {
      dul->midMessage = 1;
      start(dul->inactivityTimer, config_int(VX_CFG_INACTIVITY_TIMEOUT));
    }
    status = process_PDU(type, *dul, nullptr);
  } else if (status == DUL_UNKNOWN_PDU && !abort_asked(*dul)) {
    status = run_event(*dul, Event::InvalidPdu);
  }
  if (!one_of(status, {DUL_PDATA_ARRIVED, DUL_RELEASE_REQUESTED, DUL_PEER_ABORTED, DUL_RELEASE_CONFIRMED})) {
    if (abort_asked(*dul)) {
      status = DUL_ABORT_REQUESTED;
    } else if (status != DUL_READ_TIMEOUT) {
      status = run_event(*dul, Event::TransportClosed);
    }
  }
  stop_timers(*dul);
  if (status == DUL_PDATA_ARRIVED) after_transfer(kRead, dul);
  return status;
}

DulStatus DUL_drop_association(DUL_Association* dul) {
  if (const DulStatus status = check_handle(dul); status != DUL_NORMAL) return status;
  Destroy_Association_Handle(*dul);
  return DUL_NORMAL;
}

void free_association(DUL_Association* dul) {
  if (dul == nullptr) return;
  if (dul_alive(dul)) Destroy_Association_Handle(*dul);
  pool_free(Pool::AssocObj, dul);
}

void mark_association_abort(DUL_Association& dul) {
  dul.abortRequested.store(1);
  if (dul.transport != nullptr) mark_transport_abort(*dul.transport);
}

}  // namespace vx
