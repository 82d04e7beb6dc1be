// Exported functions of the accepting side and of listening ports.
#include <atomic>

#include "association/acceptor.h"
#include "connection/transport.h"
#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/state.h"

using namespace vx;

namespace {

VX_STATUS check_functions(const SS_Functions* functions) {
  VX_REQUIRE_POINTER(functions);
  const bool whole = functions->SS_Open != nullptr && functions->SS_Read != nullptr &&
                     functions->SS_Write != nullptr && functions->SS_Close != nullptr;
  return whole ? kOk : VX_NULL_VALUE;
}

// What all wait and process functions share. `application` may be null: the caller has chosen it.
VX_STATUS wait_and_report(const WaitRequest& request, int32_t* application, bool names_application,
                          int32_t* association, bool secure) {
  VX_REQUIRE_LIBRARY();
  if (association != nullptr) *association = -1;
  if (names_application && application != nullptr) *application = -1;
  VX_REQUIRE_POINTER(association);
  if (names_application) VX_REQUIRE_POINTER(application);
  VX_REQUIRE_POINTER(request.service_list);
  if (secure) {
    if (const VX_STATUS status = check_functions(request.functions); status != kOk) return status;
  }
  int32_t ignored = -1;
  return no_throw([&] {
    return wait_for_association(request, names_application ? *application : ignored, *association);
  });
}

WaitRequest on_default_port(const char* list, int32_t timeout) {
  WaitRequest request{};
  request.service_list = list;
  request.timeout = timeout;
  return request;
}

WaitRequest on_port(const char* list, int32_t timeout, int32_t application, int32_t port,
                    const char* address) {
  WaitRequest request = on_default_port(list, timeout);
  request.application_id = application;
  request.port = port;
  request.address = address;
  return request;
}

WaitRequest on_socket(const char* list, int32_t socket) {
  WaitRequest request = on_default_port(list, 0);
  request.socket = socket;
  return request;
}

WaitRequest secured(WaitRequest request, const SS_Functions* functions, void* context) {
  request.functions = functions;
  request.application_context = context;
  return request;
}

VX_STATUS wait_on_port(const WaitRequest& request, int32_t* association, bool secure) {
  VX_REQUIRE_LIBRARY();
  if (association != nullptr) *association = -1;
  VX_REQUIRE_POINTER(association);
  VX_REQUIRE_POINTER(request.service_list);
  if (request.port < 1 || request.port > 65535) return VX_INVALID_PORT_NUMBER;
  return wait_and_report(request, nullptr, false, association, secure);
}

// Without an address the port is the default one when it is none itself.
VX_STATUS wait_on_address(WaitRequest request, int32_t* association, bool secure) {
  if (request.address == nullptr && request.port < 1) request.port = -1;
  if (request.port != -1) return wait_on_port(request, association, secure);
  return wait_and_report(request, nullptr, false, association, secure);
}

VX_STATUS process(const WaitRequest& request, int32_t* application, int32_t* association, bool secure) {
  VX_REQUIRE_LIBRARY();
  if (application != nullptr) *application = -1;
  if (association != nullptr) *association = -1;
  VX_REQUIRE_POINTER(application);
  VX_REQUIRE_POINTER(association);
  if (request.socket < 1) return VX_SYSTEM_ERROR;
  return wait_and_report(request, application, true, association, secure);
}

VX_STATUS take_connection(int32_t timeout, int32_t port, const char* address, int32_t* socket) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(socket);
  *socket = -1;
  if (port != -1 && (port < 1 || port > 65535)) return VX_INVALID_PORT_NUMBER;
  return no_throw([&] { return wait_for_connection(timeout, port, address, *socket); });
}

}  // namespace

extern "C" {

VX_STATUS VX_Wait_For_Association(const char* ServiceList, int32_t Timeout, int32_t* ApplicationID,
                                  int32_t* AssociationID) {
  return wait_and_report(on_default_port(ServiceList, Timeout), ApplicationID, true, AssociationID, false);
}

VX_STATUS VX_Wait_For_Association_On_Port(const char* ServiceList, int32_t Timeout, int32_t ApplicationID,
                                          int32_t Port, int32_t* AssociationID) {
  return wait_on_port(on_port(ServiceList, Timeout, ApplicationID, Port, nullptr), AssociationID, false);
}

VX_STATUS VX_Wait_For_Association_On_Address(const char* ServiceList, int32_t Timeout, int32_t ApplicationID,
                                             int32_t Port, const char* Address, int32_t* AssociationID) {
  return wait_on_address(on_port(ServiceList, Timeout, ApplicationID, Port, Address), AssociationID, false);
}

VX_STATUS VX_Wait_For_Secure_Association(const char* ServiceList, int32_t Timeout, int32_t* ApplicationID,
                                         int32_t* AssociationID, const SS_Functions* Functions,
                                         void* ApplicationContext) {
  return wait_and_report(secured(on_default_port(ServiceList, Timeout), Functions, ApplicationContext),
                         ApplicationID, true, AssociationID, true);
}

VX_STATUS VX_Wait_For_Secure_Association_On_Port(const char* ServiceList, int32_t Timeout,
                                                 int32_t ApplicationID, int32_t Port, int32_t* AssociationID,
                                                 const SS_Functions* Functions, void* ApplicationContext) {
  return wait_on_port(
      secured(on_port(ServiceList, Timeout, ApplicationID, Port, nullptr), Functions, ApplicationContext),
      AssociationID, true);
}

VX_STATUS VX_Wait_For_Secure_Association_On_Address(const char* ServiceList, int32_t Timeout,
                                                    int32_t ApplicationID, int32_t Port, const char* Address,
                                                    int32_t* AssociationID, const SS_Functions* Functions,
                                                    void* ApplicationContext) {
  return wait_on_address(
      secured(on_port(ServiceList, Timeout, ApplicationID, Port, Address), Functions, ApplicationContext),
      AssociationID, true);
}

VX_STATUS VX_Process_Association_Request(int32_t Socket, const char* ServiceList, int32_t* ApplicationID,
                                         int32_t* AssociationID) {
  return process(on_socket(ServiceList, Socket), ApplicationID, AssociationID, false);
}

VX_STATUS VX_Process_Secure_Association_Request(int32_t Socket, const char* ServiceList,
                                                int32_t* ApplicationID, int32_t* AssociationID,
                                                const SS_Functions* Functions, void* ApplicationContext) {
  return process(secured(on_socket(ServiceList, Socket), Functions, ApplicationContext), ApplicationID,
                 AssociationID, true);
}

VX_STATUS VX_Wait_For_Connection(int32_t Timeout, int32_t* Socket) {
  return take_connection(Timeout, -1, nullptr, Socket);
}

VX_STATUS VX_Wait_For_Connection_On_Port(int32_t Timeout, int32_t Port, int32_t* Socket) {
  return take_connection(Timeout, Port == -1 ? 0 : Port, nullptr, Socket);
}

VX_STATUS VX_Wait_For_Connection_On_Address(int32_t Timeout, int32_t Port, const char* Address,
                                            int32_t* Socket) {
  return take_connection(Timeout,
                         Address == nullptr && Port < 1 ? -1
                         : Port == -1                   ? 0
                                                        : Port,
                         Address, Socket);
}

VX_STATUS VX_Accept_Association(int32_t AssociationID) {
  VX_REQUIRE_LIBRARY();
  return no_throw([&] { return accept_association("VX_Accept_Association", AssociationID, nullptr); });
}

VX_STATUS VX_Accept_Association_With_Identity(int32_t AssociationID, const void* ServerResponse,
                                              uint16_t ServerResponseLength) {
  VX_REQUIRE_LIBRARY();
  const IdentityResponse identity{ServerResponse, ServerResponseLength};
  return no_throw(
      [&] { return accept_association("VX_Accept_Association_With_Identity", AssociationID, &identity); });
}

VX_STATUS VX_Reject_Association(int32_t AssociationID, int32_t Reason) {
  VX_REQUIRE_LIBRARY();
  return no_throw([&] { return reject_association(AssociationID, Reason); });
}

VX_STATUS VX_Accept_Unknown_Contexts(int32_t Accept) {
  VX_REQUIRE_LIBRARY();
  std::atomic_ref(state().AcceptUnknown).store(Accept, std::memory_order_relaxed);
  return kOk;
}

VX_STATUS VX_Get_Listen_Socket(int32_t* Socket) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Socket);
  return no_throw([&] { return get_default_listen_socket(*Socket); });
}

VX_STATUS VX_Get_Listen_Socket_For_Port(int32_t Port, int32_t* Socket) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Socket);
  return get_listen_socket(Port, *Socket);
}

VX_STATUS VX_Close_Listen_Port(int32_t Port) {
  VX_REQUIRE_LIBRARY();
  return close_listen_port(Port, nullptr);
}

VX_STATUS VX_Close_Listen_Port_On_Address(int32_t Port, const char* Address) {
  VX_REQUIRE_LIBRARY();
  return close_listen_port(Port, Address);
}

}  // extern "C"
