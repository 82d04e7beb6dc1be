#include "association/acceptor.h"
#include "association/negotiation.h"
#include "association/seams.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "config/config.h"
#include "connection/socket.h"
#include "frame/log.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_Wait_For_Association";

// --- Applications ---

bool is_ordinary(const void* object, const void*) {
  return static_cast<const AppObj*>(object)->ID != state().EchoApplicationID;
}
bool has_title(const void* object, const void* title) {
  return std::strcmp(static_cast<const AppObj*>(object)->Title, static_cast<const char*>(title)) == 0;
}

AppObj* default_application() {
  return static_cast<AppObj*>(state().applications.find_if(is_ordinary, nullptr));
}

// Who an association is for, and what it may use.
struct Recipient {
  AppObj* app;
  ServiceList* list;
  bool echo;  // the title asked for the library's own responder
};

bool asks_for_echo(std::string_view title) {
  return title.size() > 4 && (title.ends_with("_ECHO") || title.ends_with("_echo"));
}

Recipient find_recipient(const char* called_title, AppObj* wanted, AppObj* otherwise, ServiceList* list) {
  if (wanted != nullptr) return {wanted, list, false};
  AppObj* own = find_application(state().EchoApplicationID);
  auto* found = static_cast<AppObj*>(state().applications.find_if(has_title, called_title));
  const bool echo = found == nullptr && own != nullptr && asks_for_echo(called_title);
  if (!echo && found == nullptr) return {otherwise, list, false};
  if (!echo && found != own) return {found, list, false};
  ServiceList* echo_list = VXI_GetServiceNumbers(kEchoServiceList);
  return {own, echo_list != nullptr ? echo_list : list, echo};
}

// --- The wait ---

VX_STATUS check_wait(const WaitRequest& request, AppObj*& wanted, ServiceList*& list) {
  if (default_application() == nullptr) return VX_NO_APPLICATIONS_REGISTERED;
  if (request.application_id != -1) {
    wanted = find_application(request.application_id);
    if (wanted == nullptr) return VX_INVALID_APPLICATION_ID;
  }
  list = *request.service_list != '\0' ? VXI_GetServiceNumbers(request.service_list) : nullptr;
  if (list != nullptr) return kOk;
  VX_LOG_ERR(kFunction, "Service List \"%s\" is not configured", request.service_list);
  return VX_INVALID_SERVICE_LIST_NAME;
}

VX_STATUS wait_status(DulStatus status) {
  if (status == DUL_NO_ASSOCIATION) return VX_TIMEOUT;
  if (status == DUL_INTERRUPTED) return VX_SYSTEM_CALL_INTERRUPTED;
  VX_LOG_ERR(kFunction, "DUL_wait_for_associate_RQ error: %s", DUL_Status_Text(status));
  return VX_NEGOTIATION_ABORTED;
}

// A session with the request of the next peer.
VX_STATUS receive_session(const WaitRequest& request, int32_t timeout, AppObj* wanted, ServiceList* list,
                          SesObj*& session, bool& echo) {
  AssociationParameters* parameters = new_association_parameters();
  if (parameters == nullptr) return VX_SYSTEM_ERROR;
  DUL_Association* dul = nullptr;
  const DulStatus status =
      DUL_wait_for_associate_RQ(timeout, request.port, request.address, pdu_maximum_length(), parameters,
                                &dul, request.socket, request.functions, request.application_context);
  if (status != DUL_NORMAL) {
    free_association_parameters(parameters);
    return wait_status(status);
  }
  AppObj* otherwise = default_application();
  const Recipient recipient = find_recipient(parameters->calledTitle, wanted, otherwise, list);
  session = recipient.app != nullptr ? new_session(*recipient.app, false) : nullptr;
  if (session == nullptr) {
    free_association(dul);
    free_association_parameters(parameters);
    return VX_SYSTEM_ERROR;
  }
  session->Parameters = parameters;
  session->Dul = dul;
  session->Services = recipient.list;
  session->RequestPending = 1;
  session->FromSocket = request.socket > 0 ? 1 : 0;
  echo = recipient.echo;
  return kOk;
}

void log_rejection(const SesObj& session, const char* reason) {
  const AssociationParameters& parameters = *session.Parameters;
  log_line(VX_LOG_T6, kFunction, "Validate Association failed:");
  log_line(VX_LOG_T6, kFunction, "|  %s", reason);
  VX_LOG_WARN(kFunction, "Association automatically rejected:");
  VX_LOG_WARN(kFunction, "|  %s", reason);
  if (log_enabled(VX_LOG_T3)) return;  // the parameters are in the log already
  if (*parameters.callingAddress != '\0') {
    VX_LOG_WARN(kFunction, "|  Calling_presentation_address: %s (%s)", parameters.callingHostName,
                parameters.callingAddress);
  } else {
    VX_LOG_WARN(kFunction, "|  Calling_presentation_address: %s", parameters.callingHostName);
  }
  VX_LOG_WARN(kFunction, "|  Calling_application_title: %s", parameters.callingTitle);
}

// The library answers a verification by itself, unless the application's list holds the service.
bool is_echo_session(const SesObj& session) {
  const bool own_list = std::strcmp(session.Services->name, kEchoServiceList) == 0;
  return session.AcceptedEntryCount == 1 && (own_list || !session.Services->hasEcho) &&
         session.AcceptedEntries[0].Service != nullptr &&
         std::strcmp(session.AcceptedEntries[0].Service->name, kEchoServiceName) == 0;
}

enum class Outcome { Pending, Rejected, Echo, Failed };

Outcome settle(SesObj* session, bool echo) {
  char reason[128];
  if (!VXI_Validate_Association(*session, echo, reason)) {
    log_rejection(*session, reason);
    free_session(session);
    return Outcome::Rejected;
  }
  if (!attach_session(*session)) {
    abort_session(session);
    return Outcome::Failed;
  }
  session->MaxOperationsInvoked = session->Parameters->maxOperationsInvoked;
  session->MaxOperationsPerformed = session->Parameters->maxOperationsPerformed;
  if (!is_echo_session(*session)) return Outcome::Pending;
  HandleEchoSession(session);
  return Outcome::Echo;
}

// Whole seconds that are left, rounded up.
int32_t seconds_of(int64_t nanoseconds) {
  return static_cast<int32_t>((nanoseconds + kSecond - 1) / kSecond);
}

// --- The answer ---

struct RejectRow {
  RejectResult result;
  RejectSource source;
  uint8_t reason;
  const char* text;
};
// By the application's reason, from 1; row 0 stands for any other.
constexpr RejectRow kRejectRows[] = {
    {kRejectedPermanently, kRejectedByUser, 1, "Permanent rejection, no reason given"},
    {kRejectedTransiently, kRejectedByUser, 1, "Transient rejection, no reason given"},
    {kRejectedPermanently, kRejectedByUser, 3, "Permanent rejection, Calling AE title not recognized"},
    {kRejectedTransiently, kRejectedByPresentation, 1, "Transient rejection, temporary congestion"},
    {kRejectedTransiently, kRejectedByPresentation, 2, "Transient rejection, local limit exceeded"},
    {kRejectedPermanently, kRejectedByUser, 7, "Permanent rejection, Called AE title not recognized"},
    {kRejectedPermanently, kRejectedByUser, 2, "Permanent rejection, Application context name not supported"},
    {kRejectedPermanently, kRejectedByUser, 8, "Permanent rejection, Calling AE qualifier not recognized"},
    {kRejectedPermanently, kRejectedByUser, 9,
     "Permanent rejection, Calling AP invocation identifier not recognized"},
    {kRejectedPermanently, kRejectedByUser, 10,
     "Permanent rejection, Calling AE invocation identifier not recognized"},
    {kRejectedPermanently, kRejectedByUser, 11, "Permanent rejection, Called AE qualifier not recognized"},
    {kRejectedPermanently, kRejectedByUser, 12,
     "Permanent rejection, Called AP invocation identifier not recognized"},
    {kRejectedPermanently, kRejectedByUser, 13,
     "Permanent rejection, Called AE invocation identifier not recognized"},
    {kRejectedPermanently, kRejectedByPresentation, 3,
     "Permanent rejection, Called Presentation address unknown"},
    {kRejectedPermanently, kRejectedByPresentation, 4,
     "Permanent rejection, Presentation protocol version not supported"},
    {kRejectedPermanently, kRejectedByPresentation, 5,
     "Permanent rejection, No Presentation Service Access Point (SAP) available"},
};

// A session whose request waits for the application's answer, marked busy.
VX_STATUS enter_pending(int32_t id, const char* function, SesObj*& session) {
  if (const VX_STATUS status = enter_session(id, function, session); status != kOk) return status;
  if (session->Parameters != nullptr && session->RequestPending != 0) return kOk;
  const VX_STATUS left = leave_session(session);
  return left == kOk ? VX_NO_REQUEST_PENDING : left;
}

bool takes_response(int32_t identity_type) {
  return identity_type >= kKerberosTicket && identity_type <= kJsonWebToken;
}

VX_STATUS prepare_identity(const char* function, AssociationParameters& parameters,
                           const IdentityResponse* identity) {
  if (identity == nullptr) {
    parameters.sendUserIdentityResponse = false;
    if (parameters.userIdentityResponseRequested != 0) {
      VX_LOG_WARN(function,
                  "User Identity response requested in Association Request PDU, but not supplied for the "
                  "Association Accept PDU.");
    }
    return kOk;
  }
  const char* wrong = nullptr;
  if (parameters.userIdentityType == kNoIdentity) {
    wrong =
        "Attempting to accept association with user identity information when the association request did "
        "not "
        "contain user identity information.";
  } else if (parameters.userIdentityResponseRequested == 0) {
    wrong =
        "Attempting to accept association with user identity information when the association request "
        "explicitly did not ask for a server response.";
  } else if (identity->data != nullptr && identity->length > 0 &&
             !takes_response(parameters.userIdentityType)) {
    wrong =
        "Attempting to accept association with a user identity Server Response when the user identity type "
        "in "
        "the request forbids response information.";
  }
  if (wrong != nullptr) {
    VX_LOG_ERR(function, "%s", wrong);
    return VX_STATE_VIOLATION;
  }
  if (takes_response(parameters.userIdentityType) && identity->length > 0) {
    if (identity->data == nullptr) return VX_NULL_POINTER_PARM;
    if (!set_identity_response(parameters, identity->data, identity->length)) return VX_SYSTEM_ERROR;
  }
  parameters.sendUserIdentityResponse = true;
  return kOk;
}

VX_STATUS send_acceptance(SesObj* session) {
  settle_extended_negotiation(*session);
  log_association_parameters(*session->Parameters, ParameterLog::Response);
  const DulStatus status = DUL_associate_accept(session->Dul, session->Parameters);
  if (status != DUL_NORMAL) {
    VX_LOG_ERR("VX_Accept_Association", "DUL_associate_accept error: %s", DUL_Status_Text(status));
    abort_session(session);
    return VX_ASSOCIATION_ABORTED;
  }
  drop_parameters(*session);
  session->RequestPending = 0;
  return leave_session(session);
}

}  // namespace

VX_STATUS wait_for_association(const WaitRequest& request, int32_t& application_id, int32_t& association_id) {
  AppObj* wanted = nullptr;
  ServiceList* list = nullptr;
  if (const VX_STATUS status = check_wait(request, wanted, list); status != kOk) return status;
  const bool from_socket = request.socket > 0;
  int64_t left = request.timeout * kSecond;
  for (;;) {
    const int64_t begun = monotonic_now();
    SesObj* session = nullptr;
    bool echo = false;
    const int32_t timeout = request.timeout > 0 ? seconds_of(left) : request.timeout;
    const VX_STATUS status = receive_session(request, timeout, wanted, list, session, echo);
    if (status != kOk) return status;
    const int32_t id = session->AssociationID;
    const int32_t app = session->ApplicationID;
    switch (settle(session, echo)) {
      case Outcome::Pending:
        if (const VX_STATUS left_status = leave_session(session); left_status != kOk) return left_status;
        application_id = app;
        association_id = id;
        return kOk;
      case Outcome::Failed:
        return VX_SYSTEM_ERROR;
      case Outcome::Echo:
        if (from_socket) return VX_ASSOCIATION_CLOSED;
        break;
      case Outcome::Rejected:
        if (from_socket) return VX_ASSOCIATION_REJECTED;
        left -= monotonic_now() - begun;
        if (request.timeout > 0 && left <= 0) return VX_TIMEOUT;
        break;
    }
  }
}

VX_STATUS wait_for_connection(int32_t timeout, int32_t port, const char* address, int32_t& socket) {
  TL_ListenPortObj* listener = nullptr;
  if (TL_Prepare_Listen_Port(port, address, listener) != TL_NORMAL) return VX_SYSTEM_ERROR;
  const TlStatus status = wait_for_socket(socket, timeout, *listener);
  release_listen_port(listener);
  if (status == TL_NORMAL) return kOk;
  if (status == TL_TIMED_OUT) return VX_TIMEOUT;
  VX_LOG_ERR("VXI_Wait_For_Connection", "Error on TL_Wait_For_Connection call");
  return VX_NEGOTIATION_ABORTED;
}

void settle_extended_negotiation(SesObj& session) {
  const Guard session_guard(session_lock());  // the application may be released meanwhile
  Lock unused;
  AppObj* app = session.Application;
  const Guard guard(app != nullptr ? app->NegotiationSemaphore : unused);
  for (PresentationContext& context : contexts_of(*session.Parameters)) {
    if (context.extendedNegotiation == nullptr || context.negotiationInfoSet) continue;
    const SopObj* service =
        context.result == kAccepted ? find_service_by_uid(context.abstractSyntax) : nullptr;
    const bool known = app != nullptr && service != nullptr;
    const NegotiationRecord* own = known ? find_negotiation_info(*app, service->number) : nullptr;
    if (own == nullptr || own->length > 0xFFFF ||
        !set_extended_negotiation(context, own->data, static_cast<uint16_t>(own->length))) {
      set_extended_negotiation(context, nullptr, 0);
    }
  }
}

VX_STATUS accept_association(const char* function, int32_t id, const IdentityResponse* identity) {
  SesObj* session = nullptr;
  if (const VX_STATUS status = enter_pending(id, function, session); status != kOk) return status;
  const VX_STATUS status = prepare_identity(function, *session->Parameters, identity);
  if (status == kOk) return send_acceptance(session);
  const VX_STATUS left = leave_session(session);
  return left == kOk ? status : left;
}

VX_STATUS reject_association(int32_t id, int32_t reason) {
  constexpr char kName[] = "VX_Reject_Association";
  SesObj* session = nullptr;
  if (const VX_STATUS status = enter_pending(id, kName, session); status != kOk) return status;
  const bool named = reason >= 1 && reason < static_cast<int32_t>(std::size(kRejectRows));
  const RejectRow& row = kRejectRows[named ? reason : 0];
  log_association_parameters(*session->Parameters, ParameterLog::Response);
  VX_LOG_INF(kName, "User rejecting association: %s", row.text);
  const DulStatus status = DUL_associate_reject(session->Dul, row.result, row.reason, row.source);
  if (status != DUL_NORMAL) VX_LOG_ERR(kName, "DUL_associate_reject error %s", DUL_Status_Text(status));
  free_session(session);
  return kOk;
}

}  // namespace vx
