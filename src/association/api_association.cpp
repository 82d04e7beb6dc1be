// Exported functions that open, end and report on associations.
#include <algorithm>
#include <cstring>

#include "association/requester.h"
#include "config/config.h"
#include "connection/pdu.h"
#include "connection/upper_layer.h"
#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "frame/text.h"

using namespace vx;

namespace {

VX_STATUS open_checked(int32_t* id, bool secure, const OpenRequest& request) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(id);
  *id = -1;
  VX_REQUIRE_POINTER(request.title);
  const SS_Functions* functions = request.functions;
  if (secure) VX_REQUIRE_POINTER(functions);
  if (functions != nullptr && (functions->SS_Open == nullptr || functions->SS_Read == nullptr ||
                               functions->SS_Write == nullptr || functions->SS_Close == nullptr)) {
    return VX_NULL_VALUE;
  }
  return no_throw([&] { return open_association(request, *id); });
}

// Runs report(session) on a session that still has its parameters; VX_STATE_VIOLATION for one that has not.
template <typename Report>
VX_STATUS report_on(int32_t id, VX_STATUS without_parameters, Report report) {
  const SessionReport session(id);
  if (session.get() == nullptr) return VX_INVALID_ASSOCIATION_ID;
  if (session->Parameters == nullptr) return without_parameters;
  return report(*session.get(), *session->Parameters);
}

bool has_name(const PresentationContext& context, const char* service_name) {
  const SopObj* service = find_service_by_uid(context.abstractSyntax);
  return service != nullptr && service->name != nullptr && std::strcmp(service->name, service_name) == 0;
}

VX_STATUS fill_info(const SesObj& session, const AssociationParameters& parameters, AssocInfo& info) {
  if (!is_alive(session) || session.Dul->transport == nullptr) return VX_STATE_VIOLATION;
  const TL_Transport& transport = *session.Dul->transport;
  const bool requester = session.IsRequester != 0;
  const auto copy = [](auto& to, const char* from) { copy_text(to, sizeof to, from != nullptr ? from : ""); };
  info.NumberOfProposedContexts = static_cast<uint32_t>(session.ContextCount);
  info.NumberOfAcceptedContexts = static_cast<uint32_t>(session.AcceptedContextCount);
  copy(info.RemoteApplicationTitle, requester ? parameters.calledTitle : parameters.callingTitle);
  copy(info.LocalApplicationTitle, requester ? parameters.callingTitle : parameters.calledTitle);
  copy(info.RemoteHostName, requester ? parameters.calledHostName : parameters.callingHostName);
  copy(info.RemoteIPAddress, requester ? transport.remoteAddress : parameters.callingAddress);
  info.Socket = transport.socket;
  copy(info.RemoteImplementationClassUID, parameters.remoteImplementationClassUid);
  copy(info.RemoteImplementationVersion, parameters.remoteImplementationVersion);
  info.LocalMaximumPDUSize = pdu_maximum_length();
  info.RemoteMaximumPDUSize = requester ? parameters.maximumPduLength : session.Dul->peerMaximumPduLength;
  const auto window = [](uint16_t value) { return value == kNoWindow ? uint16_t{1} : value; };
  info.MaxOperationsInvoked = window(session.MaxOperationsInvoked);
  info.MaxOperationsPerformed = window(session.MaxOperationsPerformed);
  info.UserIdentityType = parameters.userIdentityType;
  info.PositiveResponseRequested = parameters.userIdentityResponseRequested;
  info.PositiveResponseReceived = parameters.receivedUserIdentityResponse ? 1 : 0;
  return kOk;
}

// --- Acceptable services ---

constexpr std::size_t kMostServiceName = 49;
constexpr int32_t kMostRelated = 10;

int32_t negotiated_role(const PresentationContext& context, bool requester) {
  if (context.scuRole == 1 && context.scpRole == 1) return 2;
  if (context.scuRole == 0 && context.scpRole == 1) return requester ? 1 : 0;
  return requester ? 0 : 1;
}

VX_STATUS fill_service(const SesObj& session, const PresentationContext& context, const SopObj& service,
                       ServiceInfo& info) {
  constexpr char kFunction[] = "GetNextAcceptableService";
  if (std::strlen(service.name) > kMostServiceName) return VX_SYSTEM_ERROR;
  copy_text(info.ServiceName, sizeof info.ServiceName, service.name);
  if (*context.acceptedTransferSyntax == '\0' ||
      syntax_from_uid(context.acceptedTransferSyntax, info.SyntaxType) != kOk) {
    VX_LOG_ERR(kFunction, "INVALID TRANSFER SYNTAX FOUND: %s", context.acceptedTransferSyntax);
    return VX_SYSTEM_ERROR;
  }
  info.RoleNegotiated = negotiated_role(context, session.IsRequester != 0);
  info.PresentationContextId = context.id;
  copy_text(info.SopClassUid, sizeof info.SopClassUid, context.abstractSyntax);
  copy_text(info.BaseServiceClassUid, sizeof info.BaseServiceClassUid, context.serviceClassUid);
  if (context.relatedClassCount > kMostRelated) {
    VX_LOG_WARN(kFunction, "ServiceInfo structure not large enough to hold all related sop classes.");
  }
  info.RelatedClassCount = std::min(context.relatedClassCount, kMostRelated);
  for (int32_t i = 0; i < info.RelatedClassCount; ++i) {
    const SopObj* related = find_service_by_uid(context.relatedClasses[i]);
    const char* name = related != nullptr && related->name != nullptr ? related->name : "";
    copy_text(info.RelatedClasses[i].ServiceName, sizeof info.RelatedClasses[i].ServiceName, name);
    copy_text(info.RelatedClasses[i].SopClassUid, sizeof info.RelatedClasses[i].SopClassUid,
              context.relatedClasses[i]);
  }
  return kOk;
}

VX_STATUS acceptable_service(int32_t id, ServiceInfo* info, bool first) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(info);
  *info = ServiceInfo{};
  return report_on(id, VX_STATE_VIOLATION, [&](const SesObj& session, AssociationParameters& parameters) {
    int32_t& cursor = parameters.nextAcceptableService;
    if (first) cursor = 0;
    while (cursor < parameters.contextCount) {
      const PresentationContext& context = parameters.contexts[cursor++];
      const SopObj* service = context.id != 0 && context.result == kAccepted
                                  ? find_service_by_uid(context.abstractSyntax)
                                  : nullptr;
      if (service != nullptr && service->name != nullptr)
        return fill_service(session, context, *service, *info);
    }
    return VX_STATUS{VX_END_OF_LIST};
  });
}

// --- User identity ---

struct IdentityField {
  const uint8_t* data;
  uint16_t length;
};

bool identity_field(const char* function, const AssociationParameters& parameters, int32_t field,
                    IdentityField& out) {
  switch (field) {
    case VX_PRIMARY_FIELD:
      out = {parameters.userIdentityPrimary, parameters.userIdentityPrimaryLength};
      return true;
    case VX_SECONDARY_FIELD:
      out = {parameters.userIdentitySecondary, parameters.userIdentitySecondaryLength};
      return true;
    case VX_SERVER_RESPONSE:
      out = {parameters.userIdentityResponse, parameters.userIdentityResponseLength};
      return true;
    default:
      VX_LOG_ERR(function,
                 "An invalid enumerated value for USER_IDENTITY_FIELD_TYPE was passed to function: %d",
                 field);
      return false;
  }
}

// --- Meta SOP classes ---

VX_STATUS meta_service_name(SesObj& session, const char*& name) {
  const Guard guard(session.RequestSemaphore);
  const RequestRecord* newest = session.ReceivedRequests.Tail;
  if (newest == nullptr) return VX_NOT_FOUND;
  const auto entries = accepted_of(session);
  const auto entry = std::find_if(entries.begin(), entries.end(), [newest](const AcceptedContext& context) {
    return context.ContextId == newest->ContextId;
  });
  if (entry == entries.end()) return VX_NOT_FOUND;
  if (entry->IsMeta == 0) return VX_NOT_META_SOP;
  for (const ServiceEntry& listed : entries_of(*session.Services)) {
    if (listed.service->number != entry->ServiceNumber) continue;
    name = listed.service->name;
    return kOk;
  }
  return VX_NOT_FOUND;
}

}  // namespace

extern "C" {

VX_STATUS VX_Open_Association(int32_t ApplicationID, int32_t* AssociationID,
                              const char* RemoteApplicationTitle, const int32_t* RemotePort,
                              const char* RemoteHost, const char* ServiceList) {
  OpenRequest request{};
  request.application_id = ApplicationID;
  request.title = RemoteApplicationTitle;
  request.port = RemotePort;
  request.host = RemoteHost;
  request.service_list = ServiceList;
  return open_checked(AssociationID, false, request);
}

VX_STATUS VX_Open_Secure_Association(int32_t ApplicationID, int32_t* AssociationID,
                                     const char* RemoteApplicationTitle, const int32_t* RemotePort,
                                     const char* RemoteHost, const char* ServiceList,
                                     const SS_Functions* Functions, void* ApplicationContext) {
  OpenRequest request{};
  request.application_id = ApplicationID;
  request.title = RemoteApplicationTitle;
  request.port = RemotePort;
  request.host = RemoteHost;
  request.service_list = ServiceList;
  request.functions = Functions;
  request.application_context = ApplicationContext;
  return open_checked(AssociationID, true, request);
}

VX_STATUS VX_Open_Association_With_Identity(int32_t ApplicationID, int32_t* AssociationID,
                                            const char* RemoteApplicationTitle, const int32_t* RemotePort,
                                            const char* RemoteHost, const char* ServiceList,
                                            const SS_Functions* Functions, void* ApplicationContext,
                                            int32_t UserIdentityType, uint8_t PositiveResponseRequested,
                                            const void* PrimaryField, uint16_t PrimaryLength,
                                            const void* SecondaryField, uint16_t SecondaryLength) {
  const OpenRequest request{ApplicationID,
                            RemoteApplicationTitle,
                            RemotePort,
                            RemoteHost,
                            ServiceList,
                            Functions,
                            ApplicationContext,
                            UserIdentityType,
                            PositiveResponseRequested,
                            PrimaryField,
                            PrimaryLength,
                            SecondaryField,
                            SecondaryLength};
  return open_checked(AssociationID, false, request);
}

VX_STATUS VX_Close_Association(int32_t* AssociationID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(AssociationID);
  SesObj* session = nullptr;
  const VX_STATUS status = enter_session(*AssociationID, "VX_Close_Association", session);
  if (status != kOk) return status;
  *AssociationID = -1;
  return close_session(session);
}

VX_STATUS VX_Abort_Association(int32_t* AssociationID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(AssociationID);
  const VX_STATUS status = abort_association(*AssociationID);
  if (status == kOk) *AssociationID = -1;
  return status;
}

VX_STATUS VX_Get_Association_Info(int32_t AssociationID, AssocInfo* Info) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Info);
  *Info = AssocInfo{};
  return report_on(AssociationID, VX_STATE_VIOLATION,
                   [&](const SesObj& session, const AssociationParameters& parameters) {
                     return fill_info(session, parameters, *Info);
                   });
}

VX_STATUS VX_Get_First_Acceptable_Service(int32_t AssociationID, ServiceInfo* Info) {
  return acceptable_service(AssociationID, Info, true);
}

VX_STATUS VX_Get_Next_Acceptable_Service(int32_t AssociationID, ServiceInfo* Info) {
  return acceptable_service(AssociationID, Info, false);
}

VX_STATUS VX_Set_Negotiation_Info_For_Association(int32_t AssociationID, const char* ServiceName,
                                                  const void* Data, uint32_t Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ServiceName);
  VX_REQUIRE_POINTER(Data);
  if (Length > UINT16_MAX) return VX_VALUE_TOO_LARGE;
  return report_on(AssociationID, VX_NO_REQUEST_PENDING,
                   [&](const SesObj& session, const AssociationParameters& parameters) -> VX_STATUS {
                     if (session.RequestPending == 0 || session.InNetworkFunction != 0) {
                       return VX_NO_REQUEST_PENDING;
                     }
                     for (PresentationContext& context : contexts_of(parameters)) {
                       const bool fits = context.id != 0 && context.result == kAccepted &&
                                         context.extendedNegotiation != nullptr &&
                                         has_name(context, ServiceName);
                       if (!fits) continue;
                       if (!set_extended_negotiation(context, Data, static_cast<uint16_t>(Length))) {
                         return VX_SYSTEM_ERROR;
                       }
                       context.negotiationInfoSet = true;
                       return kOk;
                     }
                     return VX_UNKNOWN_SERVICE;
                   });
}

VX_STATUS VX_Get_Negotiation_Info(int32_t AssociationID, const char* ServiceName, const void** Data,
                                  uint32_t* Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ServiceName);
  VX_REQUIRE_POINTER(Data);
  VX_REQUIRE_POINTER(Length);
  *Data = nullptr;
  *Length = 0;
  return report_on(AssociationID, VX_EXT_INFO_UNAVAILABLE,
                   [&](const SesObj&, const AssociationParameters& parameters) -> VX_STATUS {
                     if (find_service(ServiceName) == nullptr) return VX_UNKNOWN_SERVICE;
                     for (const PresentationContext& context : contexts_of(parameters)) {
                       if (context.extendedNegotiation == nullptr || context.extendedNegotiationLength == 0 ||
                           !has_name(context, ServiceName)) {
                         continue;
                       }
                       *Data = context.extendedNegotiation;
                       *Length = context.extendedNegotiationLength;
                       return kOk;
                     }
                     return VX_EXT_INFO_UNAVAILABLE;
                   });
}

VX_STATUS VX_Get_Meta_ServiceName(int32_t AssociationID, char* Buffer, int32_t BufferSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Buffer);
  if (BufferSize < 1) return VX_BUFFER_TOO_SMALL;
  const SessionReport session(AssociationID);
  if (session.get() == nullptr) return VX_INVALID_ASSOCIATION_ID;
  const char* name = "";
  const VX_STATUS status = meta_service_name(*session.get(), name);
  if (status != kOk) return status;
  if (std::strlen(name) >= static_cast<std::size_t>(BufferSize)) return VX_BUFFER_TOO_SMALL;
  copy_text(Buffer, static_cast<std::size_t>(BufferSize), name);
  return kOk;
}

VX_STATUS VX_Get_User_Identity_Length(int32_t AssociationID, USER_IDENTITY_FIELD_TYPE Field,
                                      uint16_t* Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Length);
  return report_on(AssociationID, VX_STATE_VIOLATION,
                   [&](const SesObj&, const AssociationParameters& parameters) -> VX_STATUS {
                     IdentityField field{};
                     if (!identity_field("VX_Get_User_Identity_Length", parameters, Field, field)) {
                       return VX_SYSTEM_ERROR;
                     }
                     *Length = field.length;
                     return kOk;
                   });
}

VX_STATUS VX_Get_User_Identity_Info(int32_t AssociationID, USER_IDENTITY_FIELD_TYPE Field, void* Buffer,
                                    uint16_t BufferSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Buffer);
  return report_on(AssociationID, VX_STATE_VIOLATION,
                   [&](const SesObj&, const AssociationParameters& parameters) -> VX_STATUS {
                     IdentityField field{};
                     if (!identity_field("VX_Get_User_Identity_Info", parameters, Field, field)) {
                       return VX_SYSTEM_ERROR;
                     }
                     if (field.length > BufferSize) return VX_BUFFER_TOO_SMALL;
                     if (field.length != 0) std::memcpy(Buffer, field.data, field.length);
                     return kOk;
                   });
}

}  // extern "C"
