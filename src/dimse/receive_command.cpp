// What the command group of a received message says (PS3.7 sections 9.3 and 10.3).
#include <cstdarg>
#include <cstring>
#include <string>

#include "config/config.h"
#include "dimse/receive_parts.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/values.h"

namespace vx::receiving {

using namespace command_tag;

VX_STATUS invalid(const char* format, ...) {
  va_list values;
  va_start(values, format);
  log_line_v(VX_LOG_ERROR, kFunction, format, values);
  va_end(values);
  return VX_INVALID_MESSAGE_RECEIVED;
}

VX_STATUS read_text(MsgObj& message, uint32_t tag, char (&scratch)[80], std::string_view& text) {
  const TagObj* attribute = find_tag(message, tag);
  if (attribute == nullptr) return VX_INVALID_TAG;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  return view_text(*attribute, cursor, scratch, text);
}

namespace {

VX_STATUS read_number(MsgObj& message, uint32_t tag, uint32_t& value) {
  TagObj* attribute = find_tag(message, tag);
  return attribute != nullptr ? get_number(*attribute, true, VX_UINT_TYPE, &value) : VX_INVALID_TAG;
}

// The commands that name their class and instance in (0000,0003) and (0000,1001).
bool has_requested_class(uint16_t command) {
  return command == N_GET_RQ || command == N_SET_RQ || command == N_ACTION_RQ || command == N_DELETE_RQ;
}
bool has_instance(uint16_t command) {
  return command != C_FIND_RQ && command != C_GET_RQ && command != C_MOVE_RQ && command != C_ECHO_RQ;
}
// The commands that may come for any of the procedure step classes under the name of the first.
bool serves_any_step_class(uint16_t command) {
  return command == N_GET_RQ || command == N_SET_RQ || command == N_ACTION_RQ || command == N_CREATE_RQ ||
         command == N_EVENT_REPORT_RQ;
}

// What the command group of a received message says.
class CommandReader {
 public:
  CommandReader(SesObj& session, MsgObj& message, uint8_t context_id)
      : session_(session), message_(message), context_id_(context_id) {}

  VX_STATUS run() {
    uint32_t command = 0;
    if (read_number(message_, kCommand, command) != kOk) return invalid("No command in received message");
    if (!is_valid_command(static_cast<uint16_t>(command))) {
      return invalid("Invalid command (0x%4.4X) in message received", command);
    }
    command_ = static_cast<uint16_t>(command);
    if (read_number(message_, kDataSetType, data_set_type_) != kOk) {
      return invalid("No dataset code in received message");
    }
    VX_STATUS status = is_operation(command_) ? take_request() : find_request_of();
    if (status == kOk) status = find_context();
    if (status != kOk) return status;
    if (set_object_name(message_, service_->name != nullptr ? service_->name : "") != kOk) {
      VX_LOG_ERR(kFunction, "No memory for service name");
      return VX_SYSTEM_ERROR;
    }
    message_.ServiceNumber = service_->number;
    message_.Command = command_;
    return kOk;
  }

  uint16_t command() const { return command_; }
  bool has_data_set() const { return data_set_type_ != kNoDataSet; }

 private:
  VX_STATUS take_request() {
    RequestRecord* request = new_request();
    if (request == nullptr) return VX_SYSTEM_ERROR;
    add_request(session_, session_.ReceivedRequests, request);
    request->ContextId = context_id_;
    if (const VX_STATUS status = read_number(message_, kMessageId, request->MessageId); status != kOk) {
      return invalid("Error Decoding message ID field: %s", status_text(status));
    }
    const bool requested = has_requested_class(command_);
    char scratch[80];
    std::string_view uid;
    const VX_STATUS status = read_text(message_, requested ? kRequestedClass : kAffectedClass, scratch, uid);
    if (status != kOk) return invalid("Error decoding SOP class UID: %s", status_text(status));
    if (uid == kProcedureStepPush && serves_any_step_class(command_)) {
      any_entry_ = true;
      for (const AcceptedContext& entry : accepted_of(session_)) {
        if (entry.ContextId != context_id_) continue;
        uid = entry.SopClassUid;
        break;
      }
    }
    if (const VX_STATUS found = find_class(uid); found != kOk) return found;
    request->Service = service_;
    request->ServiceNumber = service_->number;
    std::string_view instance;
    if (has_instance(command_) &&
        read_text(message_, requested ? kRequestedInstance : kAffectedInstance, scratch, instance) == kOk) {
      copy_text(request->InstanceUid, sizeof request->InstanceUid, instance);
    }
    return kOk;
  }

  VX_STATUS find_class(std::string_view uid) {
    service_ = find_service_by_uid(uid);
    if (service_ != nullptr) return kOk;
    return invalid("Invalid SOP Class UID (%.*s) received", static_cast<int>(uid.size()), uid.data());
  }

  // Of a response, or of a request to cancel.
  VX_STATUS find_request_of() {
    uint32_t status_field = 0;
    if (is_response(command_)) {
      if (const VX_STATUS status = read_number(message_, kStatus, status_field); status != kOk) {
        VX_LOG_WARN(kFunction, "Error Decoding response status field: %s", status_text(status));
      }
    }
    uint32_t id = 0;
    if (const VX_STATUS status = read_number(message_, kRespondedMessageId, id); status != kOk) {
      VX_LOG_WARN(kFunction, "Error Decoding response message ID field: %s", status_text(status));
    } else if (is_response(command_)) {
      take_response(id, status_field);
    } else {
      take_cancel(id);
    }
    if (service_ != nullptr) return kOk;
    char scratch[80];
    std::string_view uid;
    const VX_STATUS status = read_text(message_, kAffectedClass, scratch, uid);
    if (status == kOk) return find_class(uid);
    return invalid("Error Decoding SOP class UID to determine presentation context is correct: %s",
                   status_text(status));
  }

  void take_cancel(uint32_t id) {
    if (const RequestRecord* request = find_request(session_, session_.ReceivedRequests, id)) {
      check_context("Invalid presentation context (%u) in C_CANCEL_RQ, expecting %u", *request);
      service_ = find_service_by_number(request->ServiceNumber);
      return;
    }
    for (const AcceptedContext& entry : accepted_of(session_)) {
      if (entry.ContextId != context_id_) continue;
      service_ = entry.Service;
      return;
    }
  }

  void take_response(uint32_t id, uint32_t status) {
    RequestRecord* request = find_request(session_, session_.PendingRequests, id);
    if (request == nullptr) {
      VX_LOG_WARN(kFunction, "Invalid responding message ID received: %u", id);
      return;
    }
    check_context("Invalid presentation context (%u) in response, expecting %u", *request);
    service_ = find_service_by_number(request->ServiceNumber);
    if (!is_pending_response(command_, status)) remove_request(session_, session_.PendingRequests, request);
  }

  void check_context(const char* text, const RequestRecord& request) const {
    if (request.ContextId == context_id_) return;
    char line[96];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(line, sizeof line, text, unsigned{context_id_}, unsigned{request.ContextId});
#pragma GCC diagnostic pop
    VX_LOG_WARN(kFunction, "%s", line);
  }

  VX_STATUS find_context() {
    constexpr char kInvalid[] = "Invalid presentation context in P-DATA PDU received (%d) for service %s";
    const bool lenient = config_bool(VX_CFG_ACCEPT_ANY_PRESENTATION_CONTEXT);
    const char* name = service_->name != nullptr ? service_->name : "";
    const AcceptedContext* found = nullptr;
    for (const AcceptedContext& entry : accepted_of(session_)) {
      if (entry.ContextId != context_id_) continue;
      const bool exact = entry.ServiceNumber == service_->number || any_entry_;
      if (!exact && !lenient) continue;
      found = &entry;
      if (exact) break;
      if (entry.IsMeta != 0) continue;  // a later component may fit
      VX_LOG_WARN(kFunction, kInvalid, context_id_, name);
      break;
    }
    if (found == nullptr) return invalid(kInvalid, context_id_, name);
    message_.SyntaxSet = 1;
    message_.TransferSyntax = found->TransferSyntax;
    return kOk;
  }

  SesObj& session_;
  MsgObj& message_;
  uint8_t context_id_;
  uint16_t command_ = 0;
  uint32_t data_set_type_ = 0;
  const SopObj* service_ = nullptr;
  bool any_entry_ = false;
};

}  // namespace

VX_STATUS judge_command(SesObj& session, MsgObj& message, uint8_t context_id, ReadCommand& read) {
  CommandReader reader(session, message, context_id);
  const VX_STATUS status = reader.run();
  read = {reader.command(), reader.has_data_set()};
  return status;
}

}  // namespace vx::receiving
