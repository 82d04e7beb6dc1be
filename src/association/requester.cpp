#include "association/requester.h"
#include "association/negotiation.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "config/config.h"
#include "config/transfer_syntax.h"
#include "connection/pdu.h"
#include "connection/upper_layer.h"
#include "frame/log.h"
#include "frame/named_locks.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr char kOpen[] = "VXI_Open_Association";
constexpr std::size_t kMostTitle = 16;
constexpr std::size_t kMostHost = 39;
constexpr int32_t kMostPort = 65535;
constexpr int32_t kDefaultPort = 104;

struct RemoteApplication {
  RemoteApplication* Next;
  char Title[20];
  char HostName[40];
  int32_t Port;
  char ServiceListName[130];
  bool FromProfile;  // from the profile alone, with no arguments
};
static_assert(std::is_trivially_destructible_v<RemoteApplication>);

// Remote applications that were resolved.
struct Cache {
  RemoteApplication* head;
  Lock lock;
};
constinit Cache g_cache{};
const NamedLock kNamedLock("S.appInfoListSemaphore", g_cache.lock);

bool fills_itself(const OpenRequest& request) {
  return request.port == nullptr && request.host == nullptr && request.service_list == nullptr;
}

bool matches(const RemoteApplication& remote, const OpenRequest& request) {
  return std::strcmp(remote.Title, request.title) == 0 &&
         (request.port == nullptr || remote.Port == *request.port) &&
         (request.host == nullptr || std::strcmp(remote.HostName, request.host) == 0) &&
         (request.service_list == nullptr || std::strcmp(remote.ServiceListName, request.service_list) == 0);
}

bool take_port(RemoteApplication& remote, const char* value) {
  if (*value == '\0') return true;
  const int32_t port = parse_int32(value);
  if (port < 0 || port > kMostPort) {
    VX_LOG_ERR(kOpen, "Invalid port number: %d for application entity \"%s\" ", port, remote.Title);
    return false;
  }
  remote.Port = port;
  return true;
}

// What the arguments leave open comes from the section of the title.
bool fill_from_profile(RemoteApplication& remote, const OpenRequest& request) {
  ProfileSection section(request.title);
  if (!section.found()) {
    VX_LOG_ERR(kOpen, "Application title \"%s\" is not configured", request.title);
    return false;
  }
  ProfileEntry entry{};
  while (section.next(entry)) {
    if (equals_ignoring_case(entry.key, "PORT_NUMBER") && request.port == nullptr) {
      if (!take_port(remote, entry.value)) return false;
    } else if (equals_ignoring_case(entry.key, "HOST_NAME") && request.host == nullptr) {
      copy_text(remote.HostName, sizeof remote.HostName, entry.value);
    } else if (equals_ignoring_case(entry.key, "SERVICE_LIST") && request.service_list == nullptr) {
      copy_text(remote.ServiceListName, sizeof remote.ServiceListName, entry.value);
    }
  }
  if (remote.Port < 0) {
    VX_LOG_ERR(kOpen, "|  Unable to retrieve PORT_NUMBER for %s, using 104", request.title);
    remote.Port = kDefaultPort;
  }
  const char* missing = *remote.HostName == '\0'          ? "HOST_NAME"
                        : *remote.ServiceListName == '\0' ? "SERVICE_LIST"
                                                          : nullptr;
  if (missing != nullptr) VX_LOG_ERR(kOpen, "|  Unable to retrieve %s for %s", missing, request.title);
  return missing == nullptr;
}

bool fill(RemoteApplication& remote, const OpenRequest& request) {
  copy_text(remote.Title, sizeof remote.Title, request.title);
  remote.Port = request.port != nullptr ? *request.port : -1;
  copy_text(remote.HostName, sizeof remote.HostName, request.host != nullptr ? request.host : "");
  copy_text(remote.ServiceListName, sizeof remote.ServiceListName,
            request.service_list != nullptr ? request.service_list : "");
  remote.FromProfile = fills_itself(request);
  const bool complete = request.port != nullptr && request.host != nullptr && request.service_list != nullptr;
  return complete || fill_from_profile(remote, request);
}

// The remote side as it is now; a later call may fill its record anew.
bool resolve(const OpenRequest& request, RemoteApplication& out) {
  const Guard guard(g_cache.lock);
  RemoteApplication* known = g_cache.head;
  while (known != nullptr && !matches(*known, request)) known = known->Next;
  if (known != nullptr && (known->FromProfile || !fills_itself(request))) {
    out = *known;
    return true;
  }
  if (!fill(out, request)) return false;
  if (known == nullptr) {
    known = new_object<RemoteApplication>(Pool::RemAppObj);
    if (known == nullptr) return false;
    known->Next = g_cache.head;
    g_cache.head = known;
  }
  out.Next = known->Next;
  *known = out;
  return true;
}

// --- The proposal ---

struct IdentityRule {
  int32_t type;
  bool secondary;
  const char* text;
};
constexpr IdentityRule kIdentityRules[] = {
    {kUserName, false, "Primary field should only be supplied when USERNAME User Identity specified."},
    {kNameAndPasscode, true,
     "Primary and Secondary fields must be supplied when Username and Passcode User Identity specified."},
    {kKerberosTicket, false,
     "Primary field should only be supplied when Kerberos Service Ticket User Identity specified."},
    {kSamlAssertion, false,
     "Primary field should only be supplied when SAML Assertion User Identity specified."},
};

VX_STATUS check_identity(const OpenRequest& request) {
  const bool primary = request.primary != nullptr && request.primary_length != 0;
  const bool secondary = request.secondary != nullptr && request.secondary_length != 0;
  for (const IdentityRule& rule : kIdentityRules) {
    if (rule.type != request.identity_type || (primary && secondary == rule.secondary)) continue;
    VX_LOG_ERR(kOpen, "%s", rule.text);
    return VX_CONFIG_INFO_MISSING;
  }
  return kOk;
}

bool copy_field(const void* data, uint16_t length, uint8_t*& out, uint16_t& out_length) {
  if (data == nullptr || length == 0) return true;
  out = static_cast<uint8_t*>(allocate_raw(length));
  if (out == nullptr) return false;
  std::memcpy(out, data, length);
  out_length = length;
  return true;
}

bool fill_identity(AssociationParameters& parameters, const OpenRequest& request) {
  parameters.userIdentityType = request.identity_type;
  if (request.identity_type == kNoIdentity) return true;
  parameters.userIdentityResponseRequested = request.response_requested;
  return copy_field(request.primary, request.primary_length, parameters.userIdentityPrimary,
                    parameters.userIdentityPrimaryLength) &&
         copy_field(request.secondary, request.secondary_length, parameters.userIdentitySecondary,
                    parameters.userIdentitySecondaryLength);
}

VX_STATUS add_syntaxes(PresentationContext& context, const SyntaxList& list) {
  if (!set_syntax_count(context, std::min(list.count, kMostSyntaxes))) return VX_SYSTEM_ERROR;
  int32_t count = 0;
  for (const VX_TRANSFER_SYNTAX syntax : syntaxes_of(list)) {
    char uid[kUid];
    if (syntax_uid(syntax, uid, sizeof uid) == 0) continue;
    if (count == kMostSyntaxes) {
      VX_LOG_ERR(kOpen, "Max number of transfer syntaxes for a service exceeded");
      return VX_CONFIG_INFO_MISSING;
    }
    TransferSyntaxEntry& entry = context.transferSyntaxes[count++];
    copy_text(entry.uid, sizeof entry.uid, uid);
    entry.code = syntax;
  }
  context.transferSyntaxCount = count;
  return kOk;
}

// The entry's own data, or else what the application has set for the service.
bool add_extended_negotiation(PresentationContext& context, const ServiceEntry& entry, AppObj& app) {
  constexpr uint32_t kMost = 0xFFFF;
  if (entry.extendedInfo != nullptr) {
    return set_extended_negotiation(context, entry.extendedInfo,
                                    static_cast<uint16_t>(std::min(entry.extendedInfoLength, kMost)));
  }
  const Guard guard(app.NegotiationSemaphore);
  const NegotiationRecord* record = find_negotiation_info(app, entry.service->number);
  return record == nullptr ||
         set_extended_negotiation(context, record->data,
                                  static_cast<uint16_t>(std::min(record->length, kMost)));
}

bool add_related_classes(PresentationContext& context, const ServiceEntry& entry) {
  copy_text(context.serviceClassUid, sizeof context.serviceClassUid, entry.serviceClassUid);
  if (*entry.relatedGeneralList == '\0') return true;
  const ServiceList* related = VXI_GetServiceNumbers(entry.relatedGeneralList);
  if (related == nullptr) {
    VX_LOG_WARN(kOpen, "Unknown related general service list encoded, ignoring: %s",
                entry.relatedGeneralList);
    return true;
  }
  if (!set_related_count(context, related->count)) return false;
  int32_t number = 0;
  for (const ServiceEntry& general : entries_of(*related)) {
    copy_text(context.relatedClasses[number++], kUid, general.service->uid);
  }
  return true;
}

bool has_syntax(const SyntaxList& list) {
  const auto syntaxes = syntaxes_of(list);
  return std::any_of(syntaxes.begin(), syntaxes.end(), [](VX_TRANSFER_SYNTAX syntax) {
    char uid[kUid];
    return syntax_uid(syntax, uid, sizeof uid) != 0;
  });
}

// One context for each entry of the list that has a syntax to propose; `entries` tells whose it is. Contexts
// that are not needed stay unused, at the end.
VX_STATUS build_contexts(AssociationParameters& parameters, const ServiceList& list, AppObj& app,
                         const ServiceEntry** entries) {
  if (!set_context_count(parameters, list.count)) return VX_SYSTEM_ERROR;
  int built = 0;
  for (const ServiceEntry& entry : entries_of(list)) {
    if (!has_syntax(*entry.syntaxList)) {
      VX_LOG_WARN(kOpen, "No valid transfer syntaxes for service: %s", entry.service->name);
      continue;
    }
    PresentationContext& context = parameters.contexts[built];
    entries[built] = &entry;
    context.id = static_cast<uint8_t>(2 * built + 1);
    ++built;
    copy_text(context.abstractSyntax, sizeof context.abstractSyntax, entry.service->uid);
    if (const VX_STATUS status = add_syntaxes(context, *entry.syntaxList); status != kOk) return status;
    context.scuRole = entry.scuRole;
    context.scpRole = entry.scpRole;
    if (!add_extended_negotiation(context, entry, app) || !add_related_classes(context, entry)) {
      return VX_SYSTEM_ERROR;
    }
  }
  return kOk;
}

VX_STATUS fill_parameters(AssociationParameters& parameters, const OpenRequest& request,
                          const RemoteApplication& remote, const ServiceList& list, AppObj& app,
                          const ServiceEntry** entries) {
  copy_text(parameters.calledTitle, sizeof parameters.calledTitle, remote.Title);
  copy_text(parameters.callingTitle, sizeof parameters.callingTitle, app.Title);
  config_text(VX_CFG_LOCAL_APPL_CONTEXT_NAME, parameters.applicationContextName,
              sizeof parameters.applicationContextName);
  config_text(VX_CFG_IMPLEMENTATION_CLASS_UID, parameters.implementationClassUid,
              sizeof parameters.implementationClassUid);
  char version[kMostTitle + 1];
  config_text(VX_CFG_IMPLEMENTATION_VERSION, version, sizeof version);
  copy_text(parameters.implementationVersion, sizeof parameters.implementationVersion, version);
  parameters.maximumPduLength = pdu_maximum_length();
  TL_Get_Host_Name(parameters.callingHostName, sizeof parameters.callingHostName);
  copy_text(parameters.calledHostName, sizeof parameters.calledHostName, remote.HostName);
  std::snprintf(parameters.calledPort, sizeof parameters.calledPort, "%d", remote.Port);
  parameters.maxOperationsInvoked = list.maxOperationsInvoked;
  parameters.maxOperationsPerformed = list.maxOperationsPerformed;
  const VX_STATUS status = build_contexts(parameters, list, app, entries);
  if (status != kOk) return status;
  return fill_identity(parameters, request) ? kOk : VX_SYSTEM_ERROR;
}

// --- The answer ---

bool begins_with(const char* text, const std::string& prefix) {
  return equals_ignoring_case(std::string_view(text).substr(0, prefix.size()), prefix);
}

constexpr const char* kContextResults[] = {"", "|  UL User rejection", "|  No reason given",
                                           "|  Abstract Syntax Rejected", "|  Transfer Syntax Rejected"};

void log_context_rejection(const PresentationContext& context) {
  VX_LOG_WARN(kOpen, "Presentation context %u rejected, reason 0x%2.2x", context.id, context.result);
  const SopObj* service = find_service_by_uid(context.abstractSyntax);
  if (service != nullptr) {
    VX_LOG_WARN(kOpen, "|  Abstract syntax: %s (%s)", context.abstractSyntax, service->name);
  } else {
    VX_LOG_WARN(kOpen, "|  Abstract syntax: %s", context.abstractSyntax);
  }
  VX_LOG_WARN(kOpen, "%s",
              context.result < std::size(kContextResults) ? kContextResults[context.result]
              : context.result == kNoAnswer               ? "|  Empty Value"
                                                          : "|  Unknown reason code");
}

// A service that was asked for with one role is of no use without it: such a context counts as rejected.
bool role_refused(PresentationContext& context, const ServiceEntry& entry) {
  const bool one_sided = entry.scuRole + entry.scpRole == 1;
  if (!one_sided || context.scuRole != 0 || context.scpRole != 0) return false;
  VX_LOG_WARN(kOpen, "%s role not supported by acceptor", entry.scuRole == 1 ? "SCU" : "SCP");
  context.result = kUserRejection;
  return true;
}

void count_contexts(SesObj& session, const ServiceEntry* const* entries) {
  for (PresentationContext& context : contexts_of(*session.Parameters)) {
    if (context.id == 0) break;
    ++session.ContextCount;
    const ServiceEntry& entry = *entries[&context - session.Parameters->contexts];
    if (context.result != kAccepted) {
      log_context_rejection(context);
    } else if (find_service_by_uid(context.abstractSyntax) == nullptr) {
      VX_LOG_ERR(kOpen, "Unexpected Abstract Syntax received:");
      VX_LOG_ERR(kOpen, "|  %s (Context %d)", context.abstractSyntax, context.id);
      break;
    } else if (!role_refused(context, entry)) {
      ++session.AcceptedContextCount;
    }
  }
}

// The text of the first check that fails; empty if the answer is good.
std::string check_answer(SesObj& session, const RemoteApplication& remote,
                         const ServiceEntry* const* entries) {
  AssociationParameters& answer = *session.Parameters;
  if (!config_bool(VX_CFG_ACCEPT_ANY_PROTOCOL_VERSION) && (answer.protocolVersion & 1) == 0) {
    return "Unacceptable Protocol Version: " + std::to_string(answer.protocolVersion);
  }
  if (!config_bool(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE) && !begins_with(answer.calledTitle, remote.Title)) {
    return "Unacceptable Called_application_title";
  }
  if (!config_bool(VX_CFG_ACCEPT_ANY_CONTEXT_NAME) &&
      !begins_with(answer.applicationContextName, config_text(VX_CFG_LOCAL_APPL_CONTEXT_NAME))) {
    return "Unacceptable Application_context_name";
  }
  copy_text(answer.remoteImplementationClassUid, sizeof answer.remoteImplementationClassUid,
            answer.implementationClassUid);
  if (!config_bool(VX_CFG_ACCEPT_DIFFERENT_IC_UID) &&
      !begins_with(answer.implementationClassUid, config_text(VX_CFG_IMPLEMENTATION_CLASS_UID))) {
    return "Unacceptable Implem_class_uid";
  }
  copy_text(answer.remoteImplementationVersion, sizeof answer.remoteImplementationVersion,
            answer.implementationVersion);
  if (*answer.implementationVersion != '\0' && !config_bool(VX_CFG_ACCEPT_DIFFERENT_VERSION) &&
      !begins_with(answer.implementationVersion, config_text(VX_CFG_IMPLEMENTATION_VERSION))) {
    return "Unacceptable Version_name";
  }
  count_contexts(session, entries);
  if (session.AcceptedContextCount == 0) {
    VX_LOG_WARN(kOpen, "|  No Contexts acceptable");
    return "No Contexts acceptable";
  }
  switch (make_accepted_entries(session)) {
    case kOk:
      return {};
    case VX_INVALID_TRANSFER_SYNTAX:
      return "A Transfer Syntax was returned that was NOT proposed";
    default:
      return "Error setting up contexts";
  }
}

constexpr int kAnySource = 0;
struct RejectionLine {
  int source;
  int value;
  const char* text;
};
constexpr RejectionLine kResultLines[] = {
    {kAnySource, kRejectedPermanently, "|  Result code %u: Permanent Rejection"},
    {kAnySource, kRejectedTransiently, "|  Result code %u: Transient Rejection"}};
constexpr RejectionLine kSourceLines[] = {
    {kAnySource, kRejectedByUser, "|  Result source %u: UL service user"},
    {kAnySource, kRejectedByAcse, "|  Result source %u: UL service provider (ACSE)"},
    {kAnySource, kRejectedByPresentation, "|  Result source %u: UL service provider (pres)"}};
constexpr RejectionLine kReasonLines[] = {
    {kRejectedByUser, 1, "|  Result reason %u: No reason given"},
    {kRejectedByUser, 2, "|  Result reason %u: Unacceptable application context"},
    {kRejectedByUser, 3, "|  Result reason %u: Unacceptable Calling AP Title"},
    {kRejectedByUser, 7, "|  Result reason %u: Unacceptable Called AP Title"},
    {kRejectedByUser, 8, "|  Result reason %u: Unacceptable Calling AE Qualifier"},
    {kRejectedByUser, 9, "|  Result reason %u: Unacceptable Calling AP Invocation Identifier"},
    {kRejectedByUser, 10, "|  Result reason %u: Unacceptable Calling AE Invocation Identifier"},
    {kRejectedByUser, 11, "|  Result reason %u: Unacceptable Called AE Qualifier"},
    {kRejectedByUser, 12, "|  Result reason %u: Unacceptable Called AP Invocation Identifier"},
    {kRejectedByUser, 13, "|  Result reason %u: Unacceptable Called AE Invocation Identifier"},
    {kRejectedByAcse, 1, "|   Result reason %u: No reason given"},
    {kRejectedByAcse, 2, "|  Result reason %u: Unacceptable Protocol Version"},
    {kRejectedByPresentation, 1, "|  Result reason %u: Temporary congestion"},
    {kRejectedByPresentation, 2, "|  Result reason %u: Local limit exceeded"},
    {kRejectedByPresentation, 3, "|  Result reason %u: Presentation address unknown"},
    {kRejectedByPresentation, 4, "|  Result reason %u: Presentation protocol version not supported"},
    {kRejectedByPresentation, 5, "|  Result reason %u: No Presentation Service Access Point (SAP) available"},
};

void log_rejection_line(std::span<const RejectionLine> lines, unsigned source, unsigned value,
                        const char* other) {
  const char* text = other;
  for (const RejectionLine& line : lines) {
    const bool fits = line.source == kAnySource || static_cast<unsigned>(line.source) == source;
    if (fits && static_cast<unsigned>(line.value) == value) text = line.text;
  }
  char line[128];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(line, sizeof line, text, value);
#pragma GCC diagnostic pop
  VX_LOG_WARN("AssocRequest", "%s", line);
}

void log_rejection(const AssociationParameters& parameters) {
  const unsigned source = parameters.rejectSource;
  VX_LOG_WARN("AssocRequest", "Association Rejected");
  VX_LOG_WARN("AssocRequest", "|  Codes: Result 0x%2.2x Source 0x%2.2x Reason 0x%2.2x",
              parameters.rejectResult, source, parameters.rejectReason);
  log_rejection_line(kResultLines, kAnySource, parameters.rejectResult, "|  Invalid Result code: 0x%2.2x");
  log_rejection_line(kSourceLines, kAnySource, source, "|  Invalid Result source: 0x%2.2x");
  log_rejection_line(kReasonLines, source, parameters.rejectReason, "|  Invalid Reason code: 0x%2.2x");
}

VX_STATUS request_failed(int32_t status, const AssociationParameters& parameters) {
  switch (status) {
    case DUL_PEER_REJECTED:
      log_rejection(parameters);
      return VX_ASSOCIATION_REJECTED;
    case DUL_CONNECT_FAILED:
      return VX_CONNECTION_FAILED;
    case DUL_UNKNOWN_HOST:
      return VX_UNKNOWN_HOST_NAME;
    default:
      VX_LOG_ERR("AssocRequest", "DUL_associate_request error %s", DUL_Status_Text(status));
      return VX_NEGOTIATION_ABORTED;
  }
}

// --- The open ---

VX_STATUS check_request(const OpenRequest& request) {
  if (find_application(request.application_id) == nullptr) return VX_INVALID_APPLICATION_ID;
  if (request.port != nullptr && (*request.port < 0 || *request.port > kMostPort)) {
    return VX_INVALID_PORT_NUMBER;
  }
  if (request.service_list != nullptr) {
    const std::size_t length = std::strlen(request.service_list);
    if (length == 0 || length >= sizeof RemoteApplication::ServiceListName)
      return VX_INVALID_SERVICE_LIST_NAME;
  }
  if (request.host != nullptr) {
    const std::size_t length = std::strlen(request.host);
    if (length == 0 || length > kMostHost) return VX_INVALID_HOST_NAME;
  }
  const std::size_t length = std::strlen(request.title);
  return length == 0 || length > kMostTitle ? VX_INVALID_APPLICATION_TITLE : kOk;
}

VX_STATUS negotiate(SesObj& session, const OpenRequest& request, const RemoteApplication& remote,
                    AppObj& app) {
  session.Services = VXI_GetServiceNumbers(remote.ServiceListName);
  if (session.Services == nullptr) {
    VX_LOG_ERR(kOpen, "Service List \"%s\" is not configured", remote.ServiceListName);
    return VX_CONFIG_INFO_MISSING;
  }
  if (session.Services->count > kMostContexts) {
    VX_LOG_ERR(kOpen, "Too many Services offered (Max supported in DICOM is %d)", kMostContexts);
    return VX_CONFIG_INFO_ERROR;
  }
  if (const VX_STATUS status = check_identity(request); status != kOk) return status;
  session.Parameters = new_association_parameters();
  if (session.Parameters == nullptr) return VX_SYSTEM_ERROR;
  const ServiceEntry* entries[kMostContexts] = {};
  VX_STATUS status = fill_parameters(*session.Parameters, request, remote, *session.Services, app, entries);
  if (status != kOk) return status;
  log_association_parameters(*session.Parameters, ParameterLog::Request);
  if (!attach_session(session)) return VX_SYSTEM_ERROR;
  DUL_Association* dul = nullptr;
  const int32_t result = DUL_associate_request(pdu_maximum_length(), session.Parameters, &dul,
                                               request.functions, request.application_context);
  if (result != DUL_NORMAL) return request_failed(result, *session.Parameters);
  {
    const Guard guard(session_lock());
    session.Dul = dul;
  }
  log_association_parameters(*session.Parameters, ParameterLog::Response);
  const std::string fault = check_answer(session, remote, entries);
  if (fault.empty()) {
    session.MaxOperationsInvoked = session.Parameters->maxOperationsInvoked;
    session.MaxOperationsPerformed = session.Parameters->maxOperationsPerformed;
    return kOk;
  }
  VX_LOG_WARN(kOpen, "Unacceptable association response: %s", fault.c_str());
  return VX_ASSOCIATION_REJECTED;
}

}  // namespace

VX_STATUS open_association(const OpenRequest& request, int32_t& id) {
  if (const VX_STATUS status = check_request(request); status != kOk) return status;
  RemoteApplication remote{};
  if (!resolve(request, remote)) return VX_CONFIG_INFO_MISSING;
  AppObj* app = find_application(request.application_id);
  if (app == nullptr) return VX_INVALID_APPLICATION_ID;
  SesObj* session = new_session(*app, true);
  if (session == nullptr) return VX_SYSTEM_ERROR;
  const VX_STATUS status = negotiate(*session, request, remote, *app);
  if (status != kOk) {
    abort_session(session);
    return status;
  }
  const int32_t opened = session->AssociationID;
  if (leave_session(session) != kOk) return VX_NEGOTIATION_ABORTED;
  id = opened;
  return kOk;
}

void drop_remote_applications() {
  g_cache.head = nullptr;
}

}  // namespace vx
