// The automatic checks of an association request.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "association/acceptor.h"
#include "association/negotiation.h"
#include "config/config.h"
#include "frame/log.h"
#include "frame/text.h"

namespace vx {
namespace {

// Why a request is refused; the first reason's text counts.
struct Refusal {
  bool failed = false;
  RejectSource source = kRejectedByUser;
  uint8_t reason = kNoReasonGiven;  // one of that source
  char* text;
  std::size_t size;

  __attribute__((format(printf, 3, 4))) void refuse(uint8_t why, const char* format, ...) {
    failed = true;
    reason = why;
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, size, format, values);
    va_end(values);
  }
};

void check_protocol(const AssociationParameters& parameters, Refusal& refusal) {
  if (!config_bool(VX_CFG_ACCEPT_ANY_PROTOCOL_VERSION) && (parameters.protocolVersion & 1) == 0) {
    refusal.refuse(kProtocolNotSupported, "Unacceptable Protocol Version: %d", parameters.protocolVersion);
    refusal.source = kRejectedByAcse;
  }
  if (!config_bool(VX_CFG_ACCEPT_ANY_CONTEXT_NAME) &&
      !equals_ignoring_case(parameters.applicationContextName, config_text(VX_CFG_LOCAL_APPL_CONTEXT_NAME))) {
    refusal.refuse(kContextNameNotSupported, "Unacceptable Application_context_name: %s",
                   parameters.applicationContextName);
  }
}

void check_names(const SesObj& session, bool echo, Refusal& refusal) {
  const AssociationParameters& parameters = *session.Parameters;
  const char* called = parameters.calledTitle;
  if (!refusal.failed && !echo && !config_bool(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE) &&
      std::strcmp(called, session.Application->Title) != 0 && !accepts_title(called)) {
    refusal.refuse(kCalledTitleUnknown, "Unacceptable Called_application_title: %s", called);
  }
  if (!refusal.failed && !config_bool(VX_CFG_ACCEPT_ANY_HOSTNAME) &&
      std::strcmp(parameters.callingHostName, "unknown") == 0) {
    refusal.refuse(kNoReasonGiven, "Unable to lookup remote hostname for IP address: %s",
                   parameters.callingAddress);
  }
}

void prepare_answer(AssociationParameters& parameters, const ServiceList& list) {
  parameters.maximumPduLength = pdu_maximum_length();
  std::memcpy(parameters.remoteImplementationClassUid, parameters.implementationClassUid,
              sizeof parameters.remoteImplementationClassUid);
  std::memcpy(parameters.remoteImplementationVersion, parameters.implementationVersion,
              sizeof parameters.remoteImplementationVersion);
  config_text(VX_CFG_IMPLEMENTATION_CLASS_UID, parameters.implementationClassUid, 65);
  if (*parameters.implementationVersion != '\0') {
    config_text(VX_CFG_IMPLEMENTATION_VERSION, parameters.implementationVersion, 17);
  }
  parameters.maxOperationsInvoked =
      negotiate_window(parameters.maxOperationsInvoked, list.maxOperationsInvoked);
  parameters.maxOperationsPerformed =
      negotiate_window(parameters.maxOperationsPerformed, list.maxOperationsPerformed);
}

}  // namespace

bool VXI_Validate_Association(SesObj& session, bool echo, char (&reason)[128]) {
  AssociationParameters& parameters = *session.Parameters;
  log_association_parameters(parameters, ParameterLog::Request);
  Refusal refusal{};
  refusal.text = reason;
  refusal.size = sizeof reason;
  reason[0] = '\0';
  check_protocol(parameters, refusal);
  check_names(session, echo, refusal);
  prepare_answer(parameters, *session.Services);
  if (!refusal.failed && !choose_contexts(session))
    refusal.refuse(kNoReasonGiven, "No acceptable presentation contexts");
  if (!refusal.failed) return true;
  log_association_parameters(parameters, ParameterLog::Response);
  DUL_associate_reject(session.Dul, kRejectedPermanently, refusal.reason, refusal.source);
  DUL_drop_association(session.Dul);
  return false;
}

}  // namespace vx
