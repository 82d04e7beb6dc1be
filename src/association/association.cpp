// The parameters of an association at level T3, and what both sides make of the accepted contexts.
#include <cstdio>
#include <string>

#include "association/negotiation.h"
#include "config/transfer_syntax.h"
#include "connection/pdu.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {
namespace {

#define LINE(...) log_line(VX_LOG_T3, nullptr, __VA_ARGS__)

constexpr int kMostShownBytes = 30;

const char* identity_line(int32_t type) {
  switch (type) {
    case kUserName:
      return "|  User Identity Type: Username";
    case kNameAndPasscode:
      return "|  User Identity Type: Username and Passcode";
    case kKerberosTicket:
      return "|  User Identity Type: Kerberos Service Ticket";
    case kSamlAssertion:
      return "|  User Identity Type: SAML Assertion";
    default:
      return nullptr;
  }
}

void log_identity_type(int32_t type) {
  if (const char* line = identity_line(type)) {
    LINE("%s", line);
  } else {
    LINE("|  User Identity Type: %d", type);
  }
}

void log_window(const char* name, uint16_t value) {
  if (value == kWindowAbsent) {
    LINE("|  %s: %s", name, "Not Sent");
  } else {
    LINE("|  %s: %u", name, value);
  }
}

void log_identity(const AssociationParameters& parameters, bool request) {
  if (request) {
    if (parameters.userIdentityType == kNoIdentity) {
      LINE("|  User Identity: Not Sent");
      return;
    }
    log_identity_type(parameters.userIdentityType);
    LINE(parameters.userIdentityResponseRequested != 0 ? "|  User Identity: Positive Response Requested"
                                                       : "|  User Identity: Positive Response Not Requested");
    LINE("|  User Identity Primary Field Length: %d", parameters.userIdentityPrimaryLength);
    LINE("|  User Identity Secondary Field Length: %d", parameters.userIdentitySecondaryLength);
    return;
  }
  if (!parameters.sendUserIdentityResponse && !parameters.receivedUserIdentityResponse) {
    LINE("|  User Identity Response: Not Sent");
    return;
  }
  LINE("|  User Identity Response: Sent");
  log_identity_type(parameters.userIdentityType);
  LINE("|  User Identity Server Response Length: %d", parameters.userIdentityResponseLength);
}

// "UID (name)", or the UID alone.
std::string with_name(const char* uid, const char* name) {
  return name != nullptr && *name != '\0' ? std::string(uid) + " (" + name + ")" : std::string(uid);
}
std::string syntax_text(const char* uid) {
  VX_TRANSFER_SYNTAX syntax = 0;
  const bool known = *uid != '\0' && syntax_from_uid(uid, syntax) == kOk;
  return with_name(uid, known ? syntax_display_name(syntax) : nullptr);
}

std::string role_text(uint8_t value, const char* role, bool request) {
  char text[80];
  if (value > 1 && value != kRoleAbsent) {
    std::snprintf(text, sizeof text, "ILLEGAL RESPONSE: 0x%2x", value);
  } else if (request) {
    const char* verb = value == 0 ? "doesn't support" : "supports";
    if (value == kRoleAbsent) {
      std::snprintf(text, sizeof text, "Not sent (requestor supports %s)", role);
    } else {
      std::snprintf(text, sizeof text, "%d: requestor %s %s role", value, verb, role);
    }
  } else if (value == kRoleAbsent) {
    std::snprintf(text, sizeof text, "Not sent (remote accepts requestor %s role)", role);
  } else {
    std::snprintf(text, sizeof text, "%d: remote %s requestor %s role", value,
                  value == 0 ? "rejects" : "accepts", role);
  }
  return text;
}

std::string result_text(uint8_t result) {
  static constexpr const char* kTexts[] = {"Accepted", "REJECTED: By User", "REJECTED: No reason given",
                                           "REJECTED: Abstract syntax", "REJECTED: Transfer syntax"};
  if (result < std::size(kTexts)) return kTexts[result];
  if (result == kNoAnswer) return "REJECTED: NO RESPONSE!";
  char text[32];
  std::snprintf(text, sizeof text, "ILLEGAL RESPONSE: 0x%2x", result);
  return text;
}

void log_proposal(const PresentationContext& context, int number) {
  LINE("|  (%d)Proposed Transfer Syntaxes:", number);
  for (int32_t i = 0; i < context.transferSyntaxCount; ++i) {
    LINE("|    %s", syntax_text(context.transferSyntaxes[i].uid).c_str());
  }
  if (*context.serviceClassUid == '\0') return;
  const bool storage = std::string_view(context.serviceClassUid) == "1.2.840.10008.4.2";
  LINE("|  (%d)Service Class UID: %s%s", number, context.serviceClassUid, storage ? " (Storage)" : "");
  if (context.relatedClassCount > 0) LINE("|  (%d)Related General SOP Class UIDs:", number);
  for (int32_t i = 0; i < context.relatedClassCount; ++i) {
    const SopObj* service = find_service_by_uid(context.relatedClasses[i]);
    LINE("|    %s",
         with_name(context.relatedClasses[i], service != nullptr ? service->name : nullptr).c_str());
  }
}

void log_details(const PresentationContext& context, int number, bool request) {
  LINE("|  (%d)SCU Role: %s", number, role_text(context.scuRole, "SCU", request).c_str());
  LINE("|  (%d)SCP Role: %s", number, role_text(context.scpRole, "SCP", request).c_str());
  if (context.extendedNegotiation == nullptr || context.extendedNegotiationLength == 0) {
    LINE("|  (%d)No extended application info", number);
    return;
  }
  LINE("|  (%d)Ext_info_length: %u", number, context.extendedNegotiationLength);
  std::string bytes;
  for (int i = 0; i < context.extendedNegotiationLength && i < kMostShownBytes; ++i) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02x", context.extendedNegotiation[i]);
    bytes += pair;
  }
  LINE("|  (%d)Ext_info_buffer: %s", number, bytes.c_str());
}

void log_context(const PresentationContext& context, int number, bool request) {
  const SopObj* service = find_service_by_uid(context.abstractSyntax);
  LINE("|  (%d)Pres_context_id: %d", number, context.id);
  LINE("|  (%d)Abstract_syntax: %s", number,
       with_name(context.abstractSyntax, service != nullptr ? service->name : nullptr).c_str());
  if (request) {
    log_proposal(context, number);
  } else if (context.result == kAccepted) {
    LINE("|  (%d)Result_transfer_syntax: %s", number, syntax_text(context.acceptedTransferSyntax).c_str());
  }
  if (context.result == kAccepted) log_details(context, number, request);
  if (!request) LINE("|  (%d)Negotiation Result: %s", number, result_text(context.result).c_str());
}

}  // namespace

void log_association_parameters(const AssociationParameters& parameters, ParameterLog mode) {
  if (!log_enabled(VX_LOG_T3)) return;
  const bool request = mode == ParameterLog::Request;
  LINE("%s Association Parameters:", request ? "REQUEST" : "RESPONSE");
  LINE("|  Calling_presentation_address: %s",
       with_name(parameters.callingHostName, parameters.callingAddress).c_str());
  LINE("|  Called_presentation_address: %s:%s", parameters.calledHostName, parameters.calledPort);
  LINE("|  Called_application_title: %s", parameters.calledTitle);
  LINE("|  Calling_application_title: %s", parameters.callingTitle);
  LINE("|  Application_context_name: %s", parameters.applicationContextName);
  LINE("|  PDU_maximum_length: %lu", static_cast<unsigned long>(parameters.maximumPduLength));
  LINE("|  Implem_class_uid: %s", parameters.implementationClassUid);
  LINE("|  Version_name: %s", parameters.implementationVersion);
  log_window("Max_operations_invoked", parameters.maxOperationsInvoked);
  log_window("Max_operations_performed", parameters.maxOperationsPerformed);
  log_identity(parameters, request);
  LINE("|  PRESENTATION CONTEXTS:");
  int number = 0;
  for (const PresentationContext& context : contexts_of(parameters)) {
    if (context.id != 0) log_context(context, ++number, request);
  }
}

// --- Accepted entries ---

namespace {

bool is_usable(const PresentationContext& context) {
  return context.id != 0 && context.result == kAccepted;
}

void fill_entry(AcceptedContext& entry, const PresentationContext& context, const SopObj& service,
                VX_TRANSFER_SYNTAX syntax, bool meta) {
  entry.ContextId = context.id;
  entry.Service = &service;
  entry.ServiceNumber = service.number;
  entry.ServiceCommands = service.commands;
  copy_text(entry.SopClassUid, sizeof entry.SopClassUid, service.uid != nullptr ? service.uid : "");
  copy_text(entry.TransferSyntaxUid, sizeof entry.TransferSyntaxUid, context.acceptedTransferSyntax);
  entry.TransferSyntax = syntax;
  entry.IsMeta = meta ? 1 : 0;
}

}  // namespace

VX_STATUS make_accepted_entries(SesObj& session) {
  const auto contexts = contexts_of(*session.Parameters);
  std::size_t room = 0;
  for (const PresentationContext& context : contexts) {
    const SopObj* service = is_usable(context) ? find_service_by_uid(context.abstractSyntax) : nullptr;
    if (service == nullptr) continue;
    room += 1;
    if (service->kind == kMetaService) room += static_cast<std::size_t>(service->sop_class_count);
  }
  auto* entries = static_cast<AcceptedContext*>(allocate(room * sizeof(AcceptedContext)));
  if (entries == nullptr) return VX_SYSTEM_ERROR;
  int32_t count = 0;
  for (const PresentationContext& context : contexts) {
    const SopObj* service = is_usable(context) ? find_service_by_uid(context.abstractSyntax) : nullptr;
    if (service == nullptr) continue;
    VX_TRANSFER_SYNTAX syntax = 0;
    if (*context.acceptedTransferSyntax == '\0' ||
        syntax_from_uid(context.acceptedTransferSyntax, syntax) != kOk) {
      VX_LOG_ERR("SetValidContext", "INVALID TRANSFER SYNTAX FOUND: %s", context.acceptedTransferSyntax);
      release(entries);
      return VX_INVALID_TRANSFER_SYNTAX;
    }
    const bool meta = service->kind == kMetaService;
    fill_entry(entries[count++], context, *service, syntax, meta);
    for (int32_t i = 0; meta && i < service->sop_class_count; ++i) {
      const SopObj* component = find_service_by_number(service->sop_classes[i]);
      if (component != nullptr) fill_entry(entries[count++], context, *component, syntax, true);
    }
  }
  const Guard guard(session_lock());
  release(session.AcceptedEntries);
  session.AcceptedEntries = entries;
  session.AcceptedEntryCount = count;
  return kOk;
}

}  // namespace vx
