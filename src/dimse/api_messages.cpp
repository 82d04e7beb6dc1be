// Exported functions that send and read messages.
#include "dimse/dimse.h"
#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/state.h"

using namespace vx;

namespace {

VX_STATUS send_checked(int32_t association, const char* service_name, void* user,
                       VX_VALUE_CALLBACK callback) {
  VX_REQUIRE_LIBRARY();
  if (callback == nullptr) {
    VX_LOG_ERR("VXI_Send_Request", "Invalid user callback function");
    return VX_NULL_POINTER_PARM;
  }
  return send_from_callback(association, service_name, user, callback);
}

VX_STATUS read_into(int32_t association, int32_t timeout, uint32_t stop_tag, int32_t* id,
                    const char** service_name, uint16_t* command) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(id);
  VX_REQUIRE_POINTER(service_name);
  VX_REQUIRE_POINTER(command);
  ReadResult result;
  const VX_STATUS status = no_throw([&] { return read_message(association, timeout, stop_tag, result); });
  *id = status == kOk ? result.message : -1;
  *service_name = status == kOk ? result.service : nullptr;
  *command = result.command;
  return status;
}

}  // namespace

extern "C" {

VX_STATUS VX_Send_Request_Message(int32_t AssociationID, int32_t MsgID) {
  VX_REQUIRE_LIBRARY();
  return send_request(AssociationID, MsgID, nullptr);
}

VX_STATUS VX_Send_Request_Message_For_Service(int32_t AssociationID, int32_t MsgID, const char* ServiceName) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ServiceName);
  return send_request(AssociationID, MsgID, ServiceName);
}

VX_STATUS VX_Send_Response_Message(int32_t AssociationID, uint32_t Status, int32_t MsgID) {
  VX_REQUIRE_LIBRARY();
  return send_response(AssociationID, Status, MsgID);
}

VX_STATUS VX_Send_Request(int32_t AssociationID, int32_t Reserved, void* UserInfo,
                          VX_VALUE_CALLBACK Callback) {
  static_cast<void>(Reserved);
  return send_checked(AssociationID, nullptr, UserInfo, Callback);
}

VX_STATUS VX_Send_Request_For_Service(int32_t AssociationID, const char* ServiceName, int32_t Reserved,
                                      void* UserInfo, VX_VALUE_CALLBACK Callback) {
  static_cast<void>(Reserved);
  return send_checked(AssociationID, ServiceName, UserInfo, Callback);
}

VX_STATUS VX_Read_Message(int32_t AssociationID, int32_t Timeout, int32_t* MsgID, const char** ServiceName,
                          uint16_t* Command) {
  return read_into(AssociationID, Timeout, kLastDataTag, MsgID, ServiceName, Command);
}

VX_STATUS VX_Read_Message_To_Tag(int32_t AssociationID, int32_t Timeout, uint32_t StopTag, int32_t* MsgID,
                                 const char** ServiceName, uint16_t* Command) {
  return read_into(AssociationID, Timeout, StopTag, MsgID, ServiceName, Command);
}

VX_STATUS VX_Get_Sent_Message_ID(int32_t AssociationID, uint16_t* MessageID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(MessageID);
  *MessageID = 0;
  const SessionReport session(AssociationID);
  if (session.get() == nullptr) return VX_INVALID_ASSOCIATION_ID;
  const Guard guard(session->RequestSemaphore);
  if (session->SentMessageId < 0) return VX_STATE_VIOLATION;
  *MessageID = static_cast<uint16_t>(session->SentMessageId);
  return kOk;
}

VX_STATUS VX_Continue_Read_Message(int32_t AssociationID, int32_t* MsgID) {
  return VX_Continue_Read_Message_To_Tag(AssociationID, kLastDataTag, MsgID);
}

VX_STATUS VX_Continue_Read_Message_To_Tag(int32_t AssociationID, uint32_t StopTag, int32_t* MsgID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(MsgID);
  return no_throw([&] { return continue_message(AssociationID, StopTag, *MsgID); });
}

VX_STATUS VX_Continue_Read_Message_To_Stream(int32_t AssociationID, int32_t* MsgID, void* UserInfo,
                                             VX_STREAM_OUTPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(MsgID);
  VX_REQUIRE_POINTER(Callback);
  return no_throw([&] { return continue_to_stream(AssociationID, *MsgID, UserInfo, Callback); });
}

VX_STATUS VX_Read_To_Stream(int32_t AssociationID, int32_t Timeout, const char** ServiceName,
                            uint16_t* Command, const char* FileName, void* UserInfo,
                            VX_STREAM_OUTPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(ServiceName);
  VX_REQUIRE_POINTER(Command);
  if (Callback == nullptr) {
    VX_LOG_ERR("VX_Read_To_Stream", "Invalid user callback function");
    return VX_NULL_POINTER_PARM;
  }
  ReadResult result;
  const VX_STATUS status =
      no_throw([&] { return read_to_stream(AssociationID, Timeout, result, FileName, UserInfo, Callback); });
  *ServiceName = result.service;
  *Command = result.command;
  return status;
}

}  // extern "C"
