// The command group of a message that is sent (PS3.7 sections 9.3 and 10.3, annex E).
#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>

#include "codec/writer.h"
#include "config/config.h"
#include "dimse/dimse.h"
#include "frame/log.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/values.h"

namespace vx {
namespace {

using namespace command_tag;

constexpr char kFunction[] = "SetMessage";
constexpr uint32_t kMostMessageId = 32000;

// What a command has to carry.
enum CommandNeeds : uint16_t {
  kNeedsClass = 1,             // (0000,0002)
  kNeedsPriority = 2,          // (0000,0700)
  kNeedsEchoPriority = 4,      // the same, with SEND_ECHO_PRIORITY
  kNeedsInstance = 8,          // (0000,1000), with SEND_SOP_INSTANCE_UID
  kNeedsRequested = 16,        // (0000,0003), (0000,1001)
  kNeedsMoveDestination = 32,  // (0000,0600)
  kNeedsEventType = 64,        // (0000,1002)
  kNeedsActionType = 128,      // (0000,1008)
  kCopiesInstance = 256,       // a response that repeats the instance of its request
  kCopiesOnSuccess = 512       // the same, with status 0
};
struct CommandRule {
  uint16_t command;
  uint16_t needs;
};
constexpr CommandRule kRules[] = {
    {C_STORE_RQ, kNeedsClass | kNeedsPriority | kNeedsInstance},
    {C_STORE_RSP, kCopiesInstance},
    {C_GET_RQ, kNeedsClass | kNeedsPriority},
    {C_GET_RSP, 0},
    {C_FIND_RQ, kNeedsClass | kNeedsPriority},
    {C_FIND_RSP, 0},
    {C_MOVE_RQ, kNeedsClass | kNeedsPriority | kNeedsMoveDestination},
    {C_MOVE_RSP, 0},
    {C_ECHO_RQ, kNeedsClass | kNeedsEchoPriority},
    {C_ECHO_RSP, 0},
    {C_CANCEL_RQ, 0},
    {N_EVENT_REPORT_RQ, kNeedsClass | kNeedsInstance | kNeedsEventType},
    {N_EVENT_REPORT_RSP, kCopiesInstance},
    {N_GET_RQ, kNeedsRequested},
    {N_GET_RSP, kCopiesInstance},
    {N_SET_RQ, kNeedsRequested},
    {N_SET_RSP, kCopiesInstance},
    {N_ACTION_RQ, kNeedsRequested | kNeedsActionType},
    {N_ACTION_RSP, kCopiesInstance},
    {N_CREATE_RQ, kNeedsClass},
    {N_CREATE_RSP, kCopiesOnSuccess},
    {N_DELETE_RQ, kNeedsRequested},
    {N_DELETE_RSP, kCopiesInstance},
};

// One counter for the process: 0, 1, ..., 32000, 1, 2, ...
uint32_t next_message_id() {
  static std::atomic<uint32_t> next{0};
  uint32_t id = next.load(std::memory_order_relaxed);
  while (!next.compare_exchange_weak(id, id >= kMostMessageId ? 1 : id + 1, std::memory_order_relaxed)) {
  }
  return id;
}

bool has_value(const TagObj* attribute) {
  return attribute != nullptr && attribute->ValueCount > 0 && attribute->Length > 0;
}

VX_STATUS ensure(MsgObj& message, uint32_t tag, int32_t vr, TagObj*& attribute) {
  const VX_STATUS status = new_tag(message, tag, vr, 1, 1, &attribute);
  return status == VX_TAG_ALREADY_EXISTS ? kOk : status;
}

// The work of one SetMessage, in the order in which the group is made.
class CommandBuilder {
 public:
  CommandBuilder(SesObj& session, MsgObj& message, const char* service_name, SendPlan& plan)
      : session_(session), message_(message), service_name_(service_name), plan_(plan) {}

  VX_STATUS run() {
    VX_STATUS(CommandBuilder::*const steps[])
    () = {
        &CommandBuilder::classify,        &CommandBuilder::message_id,     &CommandBuilder::prior_operation,
        &CommandBuilder::window,          &CommandBuilder::context,        &CommandBuilder::group_length,
        &CommandBuilder::copy_instance,   &CommandBuilder::affected_class, &CommandBuilder::requested_class,
        &CommandBuilder::recognition,     &CommandBuilder::command,        &CommandBuilder::titles,
        &CommandBuilder::destination,     &CommandBuilder::priority,       &CommandBuilder::data_set_type,
        &CommandBuilder::required_fields, &CommandBuilder::length_to_end,
    };
    for (const auto step : steps) {
      if (const VX_STATUS status = (this->*step)(); status != kOk) return status;
    }
    return kOk;
  }

 private:
  bool needs(uint16_t bits) const { return (rule_->needs & bits) != 0; }
  bool response() const { return is_response(plan_.command); }

  static VX_STATUS coding_failed(const char* field, VX_STATUS status) {
    VX_LOG_ERR(kFunction, "Error Coding %s field: %s", field, status_text(status));
    return VX_SYSTEM_ERROR;
  }
  static VX_STATUS missing(uint32_t tag) {
    VX_LOG_ERR(kFunction, "Required attribute (0000,%4.4X) missing", tag_element(tag));
    return VX_REQUIRED_ATTRIBUTE_MISSING;
  }
  VX_STATUS store_number(uint32_t tag, uint32_t value, const char* field) {
    const VX_STATUS status = store_command_number(message_, tag, value);
    return status == kOk ? kOk : coding_failed(field, status);
  }
  // A text is stored as it is, also one that its VR does not like.
  VX_STATUS store_text(uint32_t tag, int32_t vr, std::string_view text, const char* field) {
    TagObj* attribute = nullptr;
    const VX_STATUS status = ensure(message_, tag, vr, attribute);
    if (status != kOk) return coding_failed(field, status);
    return store_text(*attribute, text, field);
  }
  VX_STATUS store_text(TagObj& attribute, std::string_view text, const char* field) {
    const VX_STATUS status = set_text(message_, attribute, text, true, nullptr);
    return status == kOk || has_value(&attribute) ? kOk : coding_failed(field, status);
  }

  VX_STATUS classify() {
    plan_.command = message_.Command;
    const auto* rule = std::find_if(std::begin(kRules), std::end(kRules),
                                    [this](const CommandRule& row) { return row.command == plan_.command; });
    if (rule == std::end(kRules)) {
      VX_LOG_ERR(kFunction, "Invalid Command type in Message");
      return VX_SYSTEM_ERROR;
    }
    rule_ = rule;
    if (!is_operation(plan_.command)) return kOk;
    plan_.new_request = new_request();
    return plan_.new_request != nullptr ? kOk : VX_SYSTEM_ERROR;
  }

  VX_STATUS message_id() {
    const bool wanted =
        is_operation(plan_.command) || (response() && config_bool(VX_CFG_SEND_MSG_ID_RESPONSE));
    if (!wanted) return kOk;
    TagObj* attribute = nullptr;
    VX_STATUS status = ensure(message_, kMessageId, VX_VR_US, attribute);
    if (status != kOk) return coding_failed("message ID", status);
    uint32_t id = 0;
    if (has_value(attribute)) {
      status = get_number(*attribute, true, VX_UINT_TYPE, &id);
      if (status != kOk) {
        VX_LOG_ERR(kFunction, "Error Decoding message ID field: %s", status_text(status));
        return VX_SYSTEM_ERROR;
      }
    } else {
      id = next_message_id();
      if (status = store_number(kMessageId, id, "message ID"); status != kOk) return status;
    }
    if (plan_.new_request != nullptr) plan_.new_request->MessageId = id;
    return kOk;
  }

  VX_STATUS prior_operation() {
    if (is_operation(plan_.command)) return kOk;
    if (response()) read_status();
    TagObj* attribute = nullptr;
    VX_STATUS status = ensure(message_, kRespondedMessageId, VX_VR_US, attribute);
    if (status != kOk) return coding_failed("response message ID", status);
    status = has_value(attribute) ? named_request(*attribute) : oldest_request();
    if (status != kOk || plan_.command != N_CREATE_RSP) return status;
    const bool named = plan_.matched != nullptr && *plan_.matched->InstanceUid != '\0';
    return named || has_value(find_tag(message_, kAffectedInstance)) ? kOk : missing(kAffectedInstance);
  }
  void read_status() {
    TagObj* attribute = find_tag(message_, kStatus);
    const VX_STATUS status =
        attribute != nullptr ? get_number(*attribute, true, VX_UINT_TYPE, &plan_.status) : VX_INVALID_TAG;
    if (status != kOk) {
      VX_LOG_WARN(kFunction, "Error Decoding response status field: %s", status_text(status));
    }
  }
  VX_STATUS named_request(TagObj& attribute) {
    uint32_t id = 0;
    const VX_STATUS status = get_number(attribute, true, VX_UINT_TYPE, &id);
    if (status != kOk) {
      VX_LOG_ERR(kFunction, "Error Decoding response message ID field: %s", status_text(status));
      return VX_SYSTEM_ERROR;
    }
    if (!response()) return kOk;
    plan_.matched = find_request(session_, session_.ReceivedRequests, id);
    if (plan_.matched == nullptr) {
      VX_LOG_WARN(kFunction, "Invalid Value for (0000,%4.4X): %d.  Unknown prior message ID ",
                  tag_element(kRespondedMessageId), static_cast<int>(id));
    }
    return kOk;
  }
  VX_STATUS oldest_request() {
    RequestRecord* oldest = nullptr;
    {
      const Guard guard(session_.RequestSemaphore);
      oldest = response() ? session_.ReceivedRequests.Head : session_.PendingRequests.Head;
    }
    if (oldest == nullptr) return missing(kRespondedMessageId);
    if (response()) plan_.matched = oldest;
    return store_number(kRespondedMessageId, oldest->MessageId, "response message ID");
  }

  // What one side invokes the other performs: the window speaks of the requester's operations.
  VX_STATUS window() {
    const uint16_t most =
        session_.IsRequester != 0 ? session_.MaxOperationsInvoked : session_.MaxOperationsPerformed;
    if (plan_.new_request == nullptr || most == 0) return kOk;
    const Guard guard(session_.RequestSemaphore);
    if (session_.PendingRequests.Count < most) return kOk;
    VX_LOG_WARN(kFunction,
                "Maximum outstanding request messages already met (%d), cannot send another request at this "
                "time until responses read",
                most);
    return VX_MAX_OPERATIONS_EXCEEDED;
  }

  template <typename Test>
  const AcceptedContext* find_context(Test test) const {
    for (const AcceptedContext& entry : accepted_of(session_)) {
      if (test(entry) && fits_syntax(message_, entry)) return &entry;
    }
    return nullptr;
  }
  const AcceptedContext* context_of_service() const {
    return find_context(
        [this](const AcceptedContext& entry) { return entry.ServiceNumber == message_.ServiceNumber; });
  }
  // The entry of the service list that bears the name says on which context the message goes.
  const AcceptedContext* named_context() const {
    for (const ServiceEntry& listed : entries_of(*session_.Services)) {
      if (listed.service->name == nullptr || std::strcmp(listed.service->name, service_name_) != 0) continue;
      return find_context(
          [&listed](const AcceptedContext& entry) { return entry.ServiceNumber == listed.service->number; });
    }
    return nullptr;
  }
  VX_STATUS context() {
    const AcceptedContext* road = nullptr;  // gives ID and syntax
    if (plan_.matched != nullptr) {
      plan_.context = road = find_context(
          [this](const AcceptedContext& entry) { return entry.ContextId == plan_.matched->ContextId; });
    } else {
      plan_.context = road = context_of_service();
      if (is_operation(plan_.command) && service_name_ != nullptr) road = named_context();
    }
    if (plan_.context != nullptr && road != nullptr) {
      plan_.context_id = road->ContextId;
      plan_.syntax = road->TransferSyntax;
      return kOk;
    }
    if (log_enabled(VX_LOG_T7)) log_no_context();
    return VX_UNACCEPTABLE_SERVICE;
  }
  void log_no_context() const {
    if (message_.SyntaxSet != 0) {
      log_line(VX_LOG_T7, kFunction,
               "Unable to find presentation context for %s message with transfer syntax set to %s",
               message_.ServiceName, syntax_display_name(message_.TransferSyntax));
    } else {
      log_line(VX_LOG_T7, kFunction,
               "Unable to find presentation context for %s message with no transfer syntax set",
               message_.ServiceName);
    }
  }

  VX_STATUS group_length() {
    TagObj* attribute = nullptr;
    const VX_STATUS status = ensure(message_, kGroupLength, VX_VR_UL, attribute);
    return status == kOk ? kOk : coding_failed("group length", status);
  }

  VX_STATUS copy_instance() {
    const bool copies = needs(kCopiesInstance) || (needs(kCopiesOnSuccess) && plan_.status == 0);
    if (!copies || plan_.matched == nullptr || *plan_.matched->InstanceUid == '\0') return kOk;
    TagObj* attribute = find_tag(message_, kAffectedInstance);
    if (has_value(attribute)) return kOk;
    const VX_STATUS status =
        store_text(kAffectedInstance, VX_VR_UI, plan_.matched->InstanceUid, "Affected SOP instance uid");
    return status;
  }

  VX_STATUS wrong_class(std::string_view uid) const {
    VX_LOG_ERR(kFunction, "Incorrect value for attribute (0000,%4.4X) in C_FIND_RQ: %.*s",
               tag_element(kAffectedClass), static_cast<int>(uid.size()), uid.data());
    return VX_SYSTEM_ERROR;
  }
  VX_STATUS affected_class() {
    const bool wanted = response() || (needs(kNeedsClass) && config_bool(VX_CFG_SEND_SOP_CLASS_UID));
    if (!wanted) return kOk;
    TagObj* attribute = nullptr;
    VX_STATUS status = ensure(message_, kAffectedClass, VX_VR_UI, attribute);
    if (status != kOk) return coding_failed("Affected SOP Class", status);
    if (has_value(attribute)) return kOk;
    if (response() && plan_.matched == nullptr) return missing(kAffectedClass);
    const bool own =
        !response() || plan_.matched->Service == nullptr || plan_.matched->Service->uid == nullptr;
    std::string_view uid = own ? plan_.context->SopClassUid : plan_.matched->Service->uid;
    if (const StepClass step = procedure_step_class(uid); step != StepClass::None) {
      const bool find = plan_.command == C_FIND_RQ || plan_.command == C_FIND_RSP;
      if (find && (step == StepClass::Push || step == StepClass::Event)) return wrong_class(uid);
      if (!find) uid = kProcedureStepPush;
    }
    return store_text(*attribute, uid, "Affected SOP Class");
  }

  VX_STATUS requested_class() {
    if (!needs(kNeedsRequested)) return kOk;
    TagObj* attribute = nullptr;
    const VX_STATUS status = ensure(message_, kRequestedClass, VX_VR_UI, attribute);
    if (status != kOk) return coding_failed("Requested SOP Class", status);
    if (has_value(attribute)) return kOk;
    std::string_view uid = plan_.context->SopClassUid;
    if (procedure_step_class(uid) != StepClass::None) uid = kProcedureStepPush;
    return store_text(*attribute, uid, "Requested SOP Class");
  }

  VX_STATUS recognition() {
    if (!config_bool(VX_CFG_SEND_RECOGNITION_CODE)) return kOk;
    return store_text(kRecognitionCode, VX_VR_SH, "ACR-NEMA 2.0", "recognition");
  }

  VX_STATUS command() {
    if (plan_.new_request != nullptr) {
      plan_.new_request->ServiceNumber = plan_.context->ServiceNumber;
      plan_.new_request->ContextId = plan_.context_id;
    }
    return store_number(kCommand, plan_.command, "command");
  }

  VX_STATUS titles() {
    if (config_first_char(VX_CFG_INITIATOR_NAME) == '\0' || config_first_char(VX_CFG_RECEIVER_NAME) == '\0') {
      return kOk;
    }
    const std::string initiator = config_text(VX_CFG_INITIATOR_NAME);
    const std::string receiver = config_text(VX_CFG_RECEIVER_NAME);
    const bool forth = is_operation(plan_.command);
    const VX_STATUS status = store_text(kInitiator, VX_VR_LO, forth ? initiator : receiver, "initiator");
    return status == kOk ? store_text(kReceiver, VX_VR_LO, forth ? receiver : initiator, "receiver") : status;
  }

  VX_STATUS destination() { return needs(kNeedsMoveDestination) ? require(kMoveDestination) : kOk; }
  VX_STATUS require(uint32_t tag) { return has_value(find_tag(message_, tag)) ? kOk : missing(tag); }

  VX_STATUS priority() {
    const bool wanted = needs(kNeedsPriority) ||
                        (needs(kNeedsEchoPriority) && config_bool(VX_CFG_SEND_ECHO_PRIORITY)) ||
                        (response() && config_bool(VX_CFG_SEND_RESPONSE_PRIORITY));
    if (!wanted || has_value(find_tag(message_, kPriority))) return kOk;
    return store_number(kPriority, 0, "priority");
  }

  VX_STATUS data_set_type() {
    constexpr uint32_t kFirstMeta = 0x00020000U;
    constexpr uint32_t kLastMeta = 0x0002FFFFU;
    const TagObj* attribute = lower_bound_tag(message_, kFirstMeta);
    if (attribute != nullptr && attribute->Tag <= kLastMeta) delete_range(message_, kFirstMeta, kLastMeta);
    attribute = lower_bound_tag(message_, kFirstDataTag);
    while (attribute != nullptr && attribute->ValueCount == 0 && attribute->Storage != Stored::ByCallback) {
      attribute = attribute->Next;
    }
    plan_.has_data_set = attribute != nullptr;
    return store_number(kDataSetType, plan_.has_data_set ? 0 : kNoDataSet, "dataset type");
  }

  VX_STATUS required_fields() {
    struct Row {
      uint16_t bit;
      uint32_t tag;
    };
    constexpr Row kRows[] = {{kNeedsInstance, kAffectedInstance},
                             {kNeedsRequested, kRequestedInstance},
                             {kNeedsEventType, kEventType},
                             {kNeedsActionType, kActionType}};
    for (const Row& row : kRows) {
      if (!needs(row.bit)) continue;
      if (row.bit == kNeedsInstance && !config_bool(VX_CFG_SEND_SOP_INSTANCE_UID)) continue;
      if (const VX_STATUS status = require(row.tag); status != kOk) return status;
    }
    return kOk;
  }

  VX_STATUS length_to_end() {
    if (!config_bool(VX_CFG_SEND_LENGTH_TO_END)) return kOk;
    TagObj* attribute = nullptr;
    VX_STATUS status = ensure(message_, kLengthToEnd, VX_VR_UL, attribute);
    if (status != kOk) return coding_failed("length to end", status);
    LengthQuery query;
    query.destination = Destination::Network;
    query.undefined_lengths = config_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ);
    query.application_id = session_.ApplicationID;
    syntax_encoding(IMPLICIT_LITTLE_ENDIAN, query.encoding);
    uint64_t command = 0;
    uint64_t data = 0;
    if (run_length(message_, kAffectedClass, kLastCommandTag, query, command) != kOk) return kOk;
    syntax_encoding(plan_.syntax, query.encoding);
    if (run_length(message_, kFirstDataTag, kLastDataTag, query, data) != kOk) return kOk;
    if (command >= kUndefinedLength || data >= kUndefinedLength - command) return kOk;
    const auto total = static_cast<uint32_t>(command + data);
    status = set_value(message_, *attribute, VX_ULONGINT_TYPE, &total, true);
    return status == kOk ? kOk : coding_failed("length to end", status);
  }

  SesObj& session_;
  MsgObj& message_;
  const char* service_name_;
  SendPlan& plan_;
  const CommandRule* rule_ = nullptr;
};

}  // namespace

bool fits_syntax(const MsgObj& message, const AcceptedContext& entry) {
  return message.SyntaxSet == 0 || message.TransferSyntax == entry.TransferSyntax;
}

VX_STATUS store_command_number(MsgObj& message, uint32_t tag, uint32_t value) {
  TagObj* attribute = nullptr;
  const VX_STATUS status = ensure(message, tag, VX_VR_US, attribute);
  if (status != kOk) return status;
  // Numbers of the command group are 16 bits wide.
  const auto narrow = static_cast<uint16_t>(value);
  return set_value(message, *attribute, VX_USHORTINT_TYPE, &narrow, true);
}

VX_STATUS SetMessage(SesObj& session, MsgObj& message, const char* service_name, SendPlan& plan) {
  const VX_STATUS status = CommandBuilder(session, message, service_name, plan).run();
  if (status == kOk) return kOk;
  free_request(plan.new_request);
  plan = SendPlan{};
  return status;
}

}  // namespace vx
