// Exported functions of service lists, and of the extended negotiation data of an application.
#include "association/service_list_calls.h"
#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/state.h"

using namespace vx;

namespace {

VX_STATUS make_service(const char* function, const char* name, const char* text,
                       const SopObj* (*find)(std::string_view), const NewService& wanted) {
  VX_REQUIRE_LIBRARY();
  if (name == nullptr) {
    VX_LOG_ERR(function, "NULL Service Name");
    return VX_SYSTEM_ERROR;
  }
  VX_REQUIRE_POINTER(text);
  return no_throw([&] { return new_service(function, name, find(text), wanted); });
}

VX_STATUS make_list(const char* function, const char* name, const char* const* services, uint16_t invoked,
                    uint16_t performed) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(name);
  VX_REQUIRE_POINTER(services);
  return no_throw([&] { return new_proposed_list(function, name, services, invoked, performed); });
}

// Frees a list by its name.
VX_STATUS free_by_name(const char* function, const char* name, const char* what,
                       VX_STATUS (*free_it)(const char*)) {
  VX_REQUIRE_LIBRARY();
  if (name == nullptr) {
    VX_LOG_ERR(function, "%s", what);
    return VX_SYSTEM_ERROR;
  }
  return free_it(name);
}

}  // namespace

extern "C" {

VX_STATUS VX_NewSyntaxList(const char* SyntaxListName, const VX_TRANSFER_SYNTAX* Syntaxes) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(SyntaxListName);
  VX_REQUIRE_POINTER(Syntaxes);
  return no_throw([&] { return new_syntax_list(SyntaxListName, Syntaxes); });
}

VX_STATUS VX_NewServiceFromName(const char* Name, const char* ServiceName, const char* SyntaxListName,
                                uint8_t SCURole, uint8_t SCPRole) {
  return make_service("VX_NewServiceFromName", Name, ServiceName, find_service,
                      {SyntaxListName, SCURole, SCPRole, nullptr, 0});
}

VX_STATUS VX_NewServiceFromUID(const char* Name, const char* Uid, const char* SyntaxListName, uint8_t SCURole,
                               uint8_t SCPRole) {
  return make_service("VX_NewServiceFromUID", Name, Uid, find_service_by_uid,
                      {SyntaxListName, SCURole, SCPRole, nullptr, 0});
}

VX_STATUS VX_NewServiceWithExtInfoFromName(const char* Name, const char* ServiceName,
                                           const char* SyntaxListName, uint8_t SCURole, uint8_t SCPRole,
                                           const void* ExtInfo, uint32_t ExtInfoLength) {
  return make_service("VX_NewServiceWithExtInfoFromName", Name, ServiceName, find_service,
                      {SyntaxListName, SCURole, SCPRole, ExtInfo, ExtInfoLength});
}

VX_STATUS VX_NewServiceWithExtInfoFromUID(const char* Name, const char* Uid, const char* SyntaxListName,
                                          uint8_t SCURole, uint8_t SCPRole, const void* ExtInfo,
                                          uint32_t ExtInfoLength) {
  return make_service("VX_NewServiceWithExtInfoFromUID", Name, Uid, find_service_by_uid,
                      {SyntaxListName, SCURole, SCPRole, ExtInfo, ExtInfoLength});
}

VX_STATUS VX_NewProposedServiceList(const char* ServiceListName, const char* const* ServiceNames) {
  return make_list("VX_NewProposedServiceList", ServiceListName, ServiceNames, 1, 1);
}

VX_STATUS VX_NewProposedServiceListAsync(const char* ServiceListName, const char* const* ServiceNames,
                                         uint16_t MaxOperationsInvoked, uint16_t MaxOperationsPerformed) {
  return make_list("VX_NewProposedServiceListAsync", ServiceListName, ServiceNames, MaxOperationsInvoked,
                   MaxOperationsPerformed);
}

VX_STATUS VX_FreeServiceList(const char* ServiceListName) {
  return free_by_name("VX_FreeServiceList", ServiceListName, "Empty Service List", free_service_list);
}

VX_STATUS VX_FreeService(const char* Name) {
  return free_by_name("VX_FreeService", Name, "Empty Service Name", free_service);
}

VX_STATUS VX_FreeSyntaxList(const char* SyntaxListName) {
  return free_by_name("VX_FreeSyntaxList", SyntaxListName, "NULL Syntax List", free_syntax_list);
}

VX_STATUS VX_Set_Negotiation_Info(int32_t ApplicationID, const char* ServiceName, const void* Data,
                                  uint32_t Length) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ServiceName);
  VX_REQUIRE_POINTER(Data);
  AppObj* app = find_application(ApplicationID);
  if (app == nullptr) return VX_INVALID_APPLICATION_ID;
  const SopObj* service = find_service(ServiceName);
  return service != nullptr ? set_negotiation_info(*app, *service, Data, Length) : VX_UNKNOWN_SERVICE;
}

VX_STATUS VX_Clear_Negotiation_Info(int32_t ApplicationID, const char* ServiceName) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ServiceName);
  AppObj* app = find_application(ApplicationID);
  if (app == nullptr) return VX_INVALID_APPLICATION_ID;
  const SopObj* service = find_service(ServiceName);
  return service != nullptr ? clear_negotiation_info(*app, *service) : VX_UNKNOWN_SERVICE;
}

}  // extern "C"
