// Associations that are for verification only: the library answers, the application sees nothing.
#include "association/acceptor.h"
#include "association/negotiation.h"
#include "association/seams.h"
#include "config/config.h"
#include "dimse/dimse.h"
#include "frame/log.h"
#include "model/attributes.h"
#include "model/object.h"

namespace vx {
namespace {

constexpr char kFunction[] = "HandleEchoSession";
constexpr int32_t kPatience = 15;  // seconds between two requests

// True to go on.
bool answer_next(int32_t association, MsgObj& response) {
  ReadResult request;
  VX_STATUS status = read_message(association, kPatience, kLastDataTag, request);
  switch (status) {
    case kOk:
      break;
    case VX_ASSOCIATION_CLOSED:
      VX_LOG_INF(kFunction, "DICOM Echo association closed");
      return false;
    case VX_TIMEOUT:
      VX_LOG_ERR(kFunction, "Timed out while handling echo response:");
      abort_association(association);
      return false;
    default:
      VX_LOG_ERR(kFunction, "Read error while handling echo request:");
      VX_LOG_ERR(kFunction, "|   %s", status_text(status));
      abort_association(association);
      return false;
  }
  if (MsgObj* message = find_object(request.message)) free_object(*message, kFunction, VX_INVALID_MESSAGE_ID);
  // The answer names the request that is open, not the one before.
  delete_attribute(response, command_tag::kRespondedMessageId);
  status = send_response(association, 0, response.ID);
  if (status == kOk) return true;
  VX_LOG_ERR(kFunction, "Error while sending echo response:");
  VX_LOG_ERR(kFunction, "|   %s", status_text(status));
  abort_association(association);
  return false;
}

// The session with the answer sent, ready for messages; -1 if it ended.
int32_t open_echo_session(SesObj* session) {
  settle_extended_negotiation(*session);
  log_association_parameters(*session->Parameters, ParameterLog::Response);
  const DulStatus status = DUL_associate_accept(session->Dul, session->Parameters);
  if (status != DUL_NORMAL) {
    VX_LOG_ERR(kFunction, "(HandleEchoSession)DUL_associate_accept error: %s", DUL_Status_Text(status));
    abort_session(session);
    return -1;
  }
  const int32_t id = session->AssociationID;
  drop_parameters(*session);
  session->RequestPending = 0;
  ServiceList* own = VXI_GetServiceNumbers(kEchoServiceList);
  if (own != nullptr) session->Services = own;  // no second responder below this one
  return leave_session(session) == kOk ? id : -1;
}

}  // namespace

void HandleEchoSession(SesObj* session) {
  if (!config_bool(VX_CFG_AUTO_ECHO_SUPPORT)) {
    if (DUL_associate_reject(session->Dul, kRejectedPermanently, kNoReasonGiven, kRejectedByUser) !=
        DUL_NORMAL) {
      VX_LOG_ERR(kFunction, "(HandleEchoSession)Unable to reject echo association");
    }
    free_session(session);
    return;
  }
  const int32_t association = open_echo_session(session);
  if (association < 0) return;
  MsgObj* response = nullptr;
  if (open_message(kEchoServiceName, C_ECHO_RSP, response) != kOk) {
    VX_LOG_ERR(kFunction, "(HandleEchoSession)Unable to open echo response message");
    abort_association(association);
    return;
  }
  while (answer_next(association, *response)) {
  }
  free_object(*response, kFunction, VX_INVALID_MESSAGE_ID);
}

}  // namespace vx
