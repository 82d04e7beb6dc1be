// Messages on an association (PS3.7).
#pragma once

#include <cstdint>
#include <string_view>

#include "association/service_lists.h"
#include "connection/session.h"
#include "connection/upper_layer.h"
#include "model/object.h"

namespace vx {

// Attributes of the command group.
namespace command_tag {
inline constexpr uint32_t kGroupLength = 0x00000000U;
inline constexpr uint32_t kLengthToEnd = 0x00000001U;
inline constexpr uint32_t kAffectedClass = 0x00000002U;
inline constexpr uint32_t kRequestedClass = 0x00000003U;
inline constexpr uint32_t kRecognitionCode = 0x00000010U;
inline constexpr uint32_t kCommand = 0x00000100U;
inline constexpr uint32_t kMessageId = 0x00000110U;
inline constexpr uint32_t kRespondedMessageId = 0x00000120U;
inline constexpr uint32_t kInitiator = 0x00000200U;
inline constexpr uint32_t kReceiver = 0x00000300U;
inline constexpr uint32_t kMoveDestination = 0x00000600U;
inline constexpr uint32_t kPriority = 0x00000700U;
inline constexpr uint32_t kDataSetType = 0x00000800U;
inline constexpr uint32_t kStatus = 0x00000900U;
inline constexpr uint32_t kAffectedInstance = 0x00001000U;
inline constexpr uint32_t kRequestedInstance = 0x00001001U;
inline constexpr uint32_t kEventType = 0x00001002U;
inline constexpr uint32_t kActionType = 0x00001008U;
}  // namespace command_tag

inline constexpr uint32_t kLastCommandTag = 0x0000FFFFU;
inline constexpr uint32_t kFirstDataTag = 0x00010000U;
inline constexpr uint32_t kLastDataTag = 0xFFFFFFFFU;
inline constexpr uint32_t kNoDataSet = 0x0101;

constexpr bool is_response(uint16_t command) {
  return (command & 0x8000U) != 0;
}
// A request that waits for a response.
constexpr bool is_operation(uint16_t command) {
  return !is_response(command) && command != C_CANCEL_RQ;
}
inline constexpr uint32_t kPending = 0xFF00;
inline constexpr uint32_t kPendingWithWarning = 0xFF01;
// More responses to the same request will follow this one.
constexpr bool is_pending_response(uint16_t command, uint32_t status) {
  return (command == C_FIND_RSP || command == C_GET_RSP || command == C_MOVE_RSP) &&
         (status == kPending || status == kPendingWithWarning);
}
// The Unified Procedure Step classes share their instances (PS3.4 annex CC): which of them a UID names.
enum class StepClass : uint8_t { None, Push, Watch, Pull, Event };
StepClass procedure_step_class(std::string_view uid);
inline constexpr char kProcedureStepPush[] = "1.2.840.10008.5.1.4.34.6.1";

// Traces of a message at levels T7 and T2.
void log_command_group(MsgObj& message, bool received, uint8_t context_id);
void log_message(MsgObj& message, bool received, uint8_t context_id);

// --- Sending ---

// What a message is sent as.
struct SendPlan {
  uint16_t command = 0;
  RequestRecord* new_request = nullptr;  // owned until it is listed
  RequestRecord* matched = nullptr;      // the request that this response answers
  uint8_t context_id = 0;
  VX_TRANSFER_SYNTAX syntax = 0;
  const AcceptedContext* context = nullptr;
  uint32_t status = 0;
  bool has_data_set = false;
};
// Makes the command group complete and picks the presentation context. On failure nothing is left in `plan`.
// VX_INVALID_MESSAGE_ID, VX_SYSTEM_ERROR, VX_REQUIRED_ATTRIBUTE_MISSING, VX_MAX_OPERATIONS_EXCEEDED,
// VX_UNACCEPTABLE_SERVICE.
VX_STATUS SetMessage(SesObj& session, MsgObj& message, const char* service_name, SendPlan& plan);
// Whether an entry serves a message that has a transfer syntax set, or none.
bool fits_syntax(const MsgObj& message, const AcceptedContext& entry);
// Stores a number, adding the attribute as US if it is missing.
VX_STATUS store_command_number(MsgObj& message, uint32_t tag, uint32_t value);

// Messages by their handles; `service_name` may be null.
VX_STATUS send_request(int32_t association, int32_t message, const char* service_name);
VX_STATUS send_response(int32_t association, uint32_t status, int32_t message);
VX_STATUS send_from_callback(int32_t association, const char* service_name, void* user,
                             VX_VALUE_CALLBACK callback);

// Both take a session that is marked busy. VX_ASSOCIATION_ABORTED: it is gone. A failure before anything was
// sent leaves it as it was.
VX_STATUS SendMessageTo(SesObj* session, MsgObj& message, const char* service_name);
VX_STATUS SendMessageFromCallback(SesObj* session, const char* service_name, void* user,
                                  VX_VALUE_CALLBACK callback);

// --- Receiving ---

struct ReadResult {
  int32_t message = -1;
  const char* service = nullptr;
  uint16_t command = 0;
};
VX_STATUS read_message(int32_t id, int32_t timeout, uint32_t stop_tag, ReadResult& result);
// `message` becomes -1 when the message is gone.
VX_STATUS continue_message(int32_t id, uint32_t stop_tag, int32_t& message);
VX_STATUS continue_to_stream(int32_t id, int32_t& message, void* user, VX_STREAM_OUTPUT callback);
VX_STATUS read_to_stream(int32_t id, int32_t timeout, ReadResult& result, const char* file_name, void* user,
                         VX_STREAM_OUTPUT callback);

}  // namespace vx
