// Reading messages.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include "codec/decode_rest.h"
#include "codec/reader.h"
#include "codec/stream_input.h"
#include "config/config.h"
#include "dimse/dimse.h"
#include "dimse/pdv_reader.h"
#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/pool.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/held.h"
#include "model/values.h"

namespace vx {
namespace {

using namespace command_tag;

constexpr char kFunction[] = "VX_Read_Message";
constexpr int32_t kLongWait = 60;  // seconds, for a data set that is being read with a time-out of 0

VX_STATUS give_pdv(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  const uint8_t* bytes = nullptr;
  bool is_last = false;
  if (!static_cast<PdvReader*>(user)->next(bytes, *size, is_last)) return VX_CANNOT_COMPLY;
  *data = const_cast<uint8_t*>(bytes);
  *last = is_last ? 1 : 0;
  return kOk;
}

void drop_message(MsgObj*& message) {
  if (message != nullptr) free_object(*message, kFunction, VX_INVALID_MESSAGE_ID);
  message = nullptr;
}

// The session goes, with an A-ABORT if another thread wants it to.
VX_STATUS end_session(SesObj*& session, VX_STATUS status) {
  if (abort_was_requested(*session)) {
    abort_session(session);
    status = VX_ASSOCIATION_ABORTED;
  } else {
    free_session(session);
  }
  session = nullptr;
  return status;
}

// What a read that did not get its bytes comes to. `name` is the function of the log's line.
VX_STATUS outcome_status(const SesObj& session, const PdvReader& reader, const char* name) {
  switch (reader.outcome()) {
    case ReadOutcome::TimedOut:
      if (!reader.silent_within()) return VX_TIMEOUT;
      [[fallthrough]];
    case ReadOutcome::Silent:
      VX_LOG_ERR(kFunction, "Inactivity timeout in %s, closing connection", name);
      return VX_INACTIVITY_TIMEOUT;
    case ReadOutcome::Release:
      DUL_release_response(session.Dul);
      return VX_ASSOCIATION_CLOSED;
    case ReadOutcome::Aborted:
      return VX_ASSOCIATION_ABORTED;
    case ReadOutcome::PeerAborted:
      VX_LOG_ERR(kFunction, "Network peer aborted the association");
      return VX_ASSOCIATION_ABORTED;
    case ReadOutcome::ShutDown:
      VX_LOG_ERR(kFunction, "Network connection unexpectedly shutdown");
      return VX_NETWORK_SHUT_DOWN;
    default:
      VX_LOG_ERR(kFunction, "Read error %d occurred", static_cast<int>(reader.outcome()));
      return VX_SYSTEM_ERROR;
  }
}

// Ends a read that failed: the message goes, and so does the session, unless nothing of a message had come.
// What the peer did counts for more than what it left half said.
VX_STATUS fail_read(SesObj*& session, MsgObj*& message, const PdvReader& reader, VX_STATUS fault,
                    const char* name = kFunction) {
  drop_message(message);
  const VX_STATUS status =
      reader.outcome() != ReadOutcome::Arrived ? outcome_status(*session, reader, name) : fault;
  return status == VX_TIMEOUT && !abort_was_requested(*session) ? status : end_session(session, status);
}

VX_STATUS improper(VX_STATUS decoding) {
  VX_LOG_ERR(kFunction, "Message received encoded improperly %s", status_text(decoding));
  return VX_INVALID_MESSAGE_RECEIVED;
}

VX_STATUS invalid(const char* format, ...) __attribute__((format(printf, 1, 2)));
VX_STATUS invalid(const char* format, ...) {
  va_list values;
  va_start(values, format);
  log_line_v(VX_LOG_ERROR, kFunction, format, values);
  va_end(values);
  return VX_INVALID_MESSAGE_RECEIVED;
}

// --- The command ---

VX_STATUS read_number(MsgObj& message, uint32_t tag, uint32_t& value) {
  TagObj* attribute = find_tag(message, tag);
  return attribute != nullptr ? get_number(*attribute, true, VX_UINT_TYPE, &value) : VX_INVALID_TAG;
}

VX_STATUS read_text(MsgObj& message, uint32_t tag, char (&scratch)[80], std::string_view& text) {
  const TagObj* attribute = find_tag(message, tag);
  if (attribute == nullptr) return VX_INVALID_TAG;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  return view_text(*attribute, cursor, scratch, text);
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

// --- The data set ---

// Decodes up to a tag. What is left stays with the message.
VX_STATUS decode_data(const SesObj& session, MsgObj& message, PdvReader& reader, uint32_t stop_tag) {
  auto* rest = static_cast<DecodeRest*>(message.StreamResume);
  message.StreamResume = nullptr;
  const bool stops = stop_tag != kLastDataTag;
  ReadRequest request;
  request.NetworkInput = give_pdv;
  request.UserInfo = &reader;
  request.ApplicationID = session.ApplicationID;
  request.StartTag = rest != nullptr ? rest->NextTag : kFirstDataTag;
  request.EndTag = stop_tag;
  request.LogFailure = true;
  request.Deflate = is_deflated(message.TransferSyntax);
  syntax_encoding(message.TransferSyntax, request.encoding);
  if (stops || rest != nullptr) request.Rest = &rest;
  VX_STATUS status = decode_object(message, request);
  if (status == kOk && stops && rest == nullptr && !reader.released()) {
    // The data set has ended before the tag: the message may still be continued, with nothing more to come.
    rest = new_decode_rest();
    if (rest == nullptr) return VX_SYSTEM_ERROR;
    rest->Started = rest->InputEnded = true;
    rest->NextTag = kFirstDataTag;
  }
  if (status != kOk) {
    free_decode_rest(rest);
    return status;
  }
  if (rest != nullptr) rest->ContextId = reader.context_id();
  message.StreamResume = rest;
  return kOk;
}

// A data set that is to be stopped at its very beginning is left to whoever goes on, untouched.
VX_STATUS postpone_data(MsgObj& message, uint8_t context_id) {
  DecodeRest* rest = new_decode_rest();
  if (rest == nullptr) return VX_SYSTEM_ERROR;
  rest->NextTag = kFirstDataTag;
  rest->LastTag = kLastCommandTag;
  rest->ContextId = context_id;
  message.StreamResume = rest;
  return kOk;
}

void note_stop(SesObj& session, const MsgObj& message, uint32_t stop_tag) {
  session.Dul->currentMessage = stop_tag == kLastDataTag ? -1 : message.ID;
  const auto* rest = static_cast<const DecodeRest*>(message.StreamResume);
  session.ReadEnded = rest == nullptr || rest->InputEnded ? 1 : 0;
}

// --- One read ---

// A message that was read in part and then freed: what is left of it is passed over.
bool skip_rest(SesObj& session, PdvReader& reader) {
  const uint8_t* data = nullptr;
  uint32_t size = 0;
  bool last = session.ReadEnded != 0;
  if (!last) reader.begin_data();
  while (!last) {
    if (!reader.next(data, size, last) || reader.released()) return false;
  }
  session.Dul->currentMessage = -1;
  session.Dul->midMessage = 0;
  return true;
}

// Some archives send elements of a data set within the command, such as (0008,0058) of a C-GET-RSP: they are
// passed over.
bool pass_over_rest(const DecodeRest& rest, PdvReader& reader) {
  VX_LOG_WARN(kFunction, "The command holds (%4.4X,%4.4X) and what is behind it, ignored",
              tag_group(rest.NextTag), tag_element(rest.NextTag));
  const uint8_t* data = nullptr;
  uint32_t size = 0;
  bool last = false;
  while (!reader.ended() && !reader.released()) {
    if (!reader.next(data, size, last)) return false;
  }
  return true;
}

VX_STATUS read_command(MsgObj& message, PdvReader& reader) {
  DecodeRest* rest = nullptr;
  ReadRequest request;
  request.NetworkInput = give_pdv;
  request.UserInfo = &reader;
  request.EndTag = kLastCommandTag;
  request.LogFailure = true;
  syntax_encoding(IMPLICIT_LITTLE_ENDIAN, request.encoding);
  request.Rest = &rest;
  VX_STATUS status = decode_object(message, request);
  if (status == kOk && rest != nullptr && !pass_over_rest(*rest, reader)) status = VX_CALLBACK_CANNOT_COMPLY;
  if (status == kOk && !reader.ended() && !reader.released()) status = VX_INVALID_TAG;
  free_decode_rest(rest);
  if (status == kOk || status == VX_CALLBACK_CANNOT_COMPLY) return status;
  log_command_group(message, true, reader.context_id());
  return improper(status);
}

VX_STATUS read_data(SesObj& session, MsgObj& message, PdvReader& reader, uint32_t stop_tag) {
  const uint8_t command_context = reader.context_id();
  VX_STATUS status = kOk;
  if (stop_tag == kFirstDataTag) {
    status = postpone_data(message, command_context);
  } else {
    reader.begin_data();
    status = decode_data(session, message, reader, stop_tag);
    if (status != kOk) return status == VX_CALLBACK_CANNOT_COMPLY ? status : improper(status);
    if (!reader.released() && reader.context_id() != command_context) {
      return invalid("Command/dataset contexts different");
    }
  }
  if (status == kOk && is_alive(session)) note_stop(session, message, stop_tag);
  return status;
}

// The session is gone if it is null afterwards.
VX_STATUS ReadMessageToTag(SesObj*& session, int32_t timeout, uint32_t stop_tag, ReadResult& result) {
  if (session->RequestPending != 0) return VX_STATE_VIOLATION;
  if (!is_alive(*session)) return end_session(session, VX_ASSOCIATION_ABORTED);
  DUL_Association& dul = *session->Dul;
  const MsgObj* current = find_object(dul.currentMessage);
  if (current != nullptr && current->StreamResume != nullptr) return VX_MUST_CONTINUE_BEFORE_READING;
  MsgObj* message = nullptr;
  dul.midMessage = 0;
  if (dul.currentMessage != -1) {
    PdvReader rest(&dul, timeout);
    if (!skip_rest(*session, rest)) return fail_read(session, message, rest, VX_SYSTEM_ERROR);
  }
  PdvReader reader(&dul, timeout);
  VX_STATUS status = open_object(Kind::Message, kNoName, message);
  if (status != kOk) return status;
  status = read_command(*message, reader);
  if (status != kOk || reader.released()) return fail_read(session, message, reader, status);
  CommandReader command(*session, *message, reader.context_id());
  status = command.run();
  log_command_group(*message, true, reader.context_id());
  if (status == kOk && command.has_data_set()) {
    status = read_data(*session, *message, reader, stop_tag);
  }
  if (status != kOk || reader.released()) return fail_read(session, message, reader, status);
  log_message(*message, true, reader.context_id());
  result.message = message->ID;
  result.service = message->ServiceName;
  result.command = command.command();
  return kOk;
}

// --- Verification that the application does not see ---

bool answers_itself(const SesObj& session, const ReadResult& result) {
  return result.command == C_ECHO_RQ && !session.Services->hasEcho && config_bool(VX_CFG_AUTO_ECHO_SUPPORT);
}

void drop_result(ReadResult& result) {
  MsgObj* message = find_object(result.message);
  drop_message(message);
  result = ReadResult{};
}

VX_STATUS answer_echo(SesObj*& session) {
  MsgObj* response = nullptr;
  VX_STATUS status = open_message(kEchoServiceName, C_ECHO_RSP, response);
  if (status != kOk) {
    VX_LOG_ERR(kFunction, "Unable to open echo response message");
  } else {
    status = store_command_number(*response, kStatus, 0);
    if (status == kOk) status = SendMessageTo(session, *response, nullptr);
    drop_message(response);
    if (status == kOk) return kOk;
    VX_LOG_ERR(kFunction, "Unable to send echo response message");
    if (status == VX_ASSOCIATION_ABORTED) session = nullptr;
  }
  if (session != nullptr) abort_session(session);
  session = nullptr;
  return VX_ASSOCIATION_ABORTED;
}

// Leaves the guard, if the session is still there.
VX_STATUS leave(SesObj* session, VX_STATUS status, int32_t& message_id) {
  if (session == nullptr || leave_session(session) == kOk) return status;
  MsgObj* message = find_object(message_id);
  drop_message(message);
  message_id = -1;
  return VX_ASSOCIATION_ABORTED;
}

VX_STATUS check_stop_tag(uint32_t stop_tag) {
  if (stop_tag >= kFirstDataTag) return kOk;
  VX_LOG_ERR(kFunction, "The value of the stop tag should have a value within the data set");
  return VX_INVALID_TAG;
}

}  // namespace

VX_STATUS read_message(int32_t id, int32_t timeout, uint32_t stop_tag, ReadResult& result) {
  if (const VX_STATUS status = check_stop_tag(stop_tag); status != kOk) return status;
  SesObj* session = nullptr;
  VX_STATUS status = enter_session(id, kFunction, session);
  if (status != kOk) return status;
  for (;;) {
    status = no_throw([&] { return ReadMessageToTag(session, timeout, stop_tag, result); });
    if (status != kOk || !answers_itself(*session, result)) break;
    drop_result(result);
    status = no_throw([&] { return answer_echo(session); });
    if (status != kOk) break;
  }
  return leave(session, status, result.message);
}

// --- Going on ---

namespace {

// The message that the association is in the middle of.
VX_STATUS find_current(const SesObj& session, int32_t id, MsgObj*& message) {
  message = find_object(id);
  if (message == nullptr) return VX_INVALID_MESSAGE_ID;
  if (message->StreamResume != nullptr && session.Dul->currentMessage == id) return kOk;
  VX_LOG_ERR(kFunction, "Can't continue. No additional data");
  return VX_INVALID_MESSAGE_ID;
}

VX_STATUS continue_read(SesObj*& session, uint32_t stop_tag, int32_t& id) {
  if (session->RequestPending != 0) return VX_STATE_VIOLATION;
  if (!is_alive(*session)) return end_session(session, VX_ASSOCIATION_ABORTED);
  MsgObj* message = nullptr;
  VX_STATUS status = find_current(*session, id, message);
  if (status != kOk) return status;
  const auto& rest = *static_cast<const DecodeRest*>(message->StreamResume);
  if (stop_tag < rest.NextTag) {
    VX_LOG_ERR(kFunction, "Can't continue. Already read message past stop tag.");
    return VX_INVALID_TAG;
  }
  session->Dul->midMessage = 0;
  PdvReader reader(session->Dul, kLongWait);
  reader.begin_data();
  reader.expect_context(rest.ContextId);
  status = decode_data(*session, *message, reader, stop_tag);
  if (status != kOk || reader.released()) {
    id = -1;
    if (status != kOk && status != VX_CALLBACK_CANNOT_COMPLY) status = improper(status);
    return fail_read(session, message, reader, status);
  }
  note_stop(*session, *message, stop_tag);
  return kOk;
}

}  // namespace

VX_STATUS continue_message(int32_t association, uint32_t stop_tag, int32_t& message) {
  if (const VX_STATUS status = check_stop_tag(stop_tag); status != kOk) return status;
  SesObj* session = nullptr;
  VX_STATUS status = enter_session(association, "VX_Continue_Read_Message", session);
  if (status != kOk) return status;
  status = no_throw([&] { return continue_read(session, stop_tag, message); });
  return leave(session, status, message);
}

// --- Streams ---

namespace {

constexpr char kToStream[] = "ReadMessageToStream";

// Hands a stream over; the flags span all of it.
struct Receiver {
  int32_t message;
  void* user;
  VX_STREAM_OUTPUT callback;
  bool first = true;
  bool refused = false;

  VX_STATUS give(const uint8_t* data, std::size_t size, bool last) {
    const VX_STATUS status = callback(message, user, static_cast<uint32_t>(size), const_cast<uint8_t*>(data),
                                      first ? 1 : 0, last ? 1 : 0);
    first = false;
    refused = status != kOk;
    return status;
  }
};

// The rest of the data set as it came; behind a part of a deflated one that was decoded it comes inflated.
VX_STATUS pump(MsgObj& message, PdvReader& reader, Receiver& receiver) {
  auto* rest = static_cast<DecodeRest*>(message.StreamResume);
  message.StreamResume = nullptr;
  ReadRequest request;
  request.NetworkInput = give_pdv;
  request.UserInfo = &reader;
  request.Deflate = true;  // lengths need not be even
  StreamInput in(request);
  VX_STATUS status = in.resume(*rest);
  free_decode_rest(rest);
  bool last = false;
  while (status == kOk && !last) {
    status = in.need_any();
    if (reader.released()) return kOk;
    if (status == VX_END_OF_DATA) return receiver.give(nullptr, 0, true);
    if (status != kOk) break;
    last = in.at_last();
    status = receiver.give(in.bytes(), in.available(), last);
    in.advance(in.available());
  }
  return status;
}

VX_STATUS ReadMessageToStream(SesObj*& session, int32_t& id, Receiver& receiver) {
  if (session->RequestPending != 0) return VX_STATE_VIOLATION;
  if (!is_alive(*session)) return end_session(session, VX_ASSOCIATION_ABORTED);
  if (session->ReceivedRequests.Head == nullptr) {
    VX_LOG_ERR(kToStream,
               "Can't continue.  No record of receiving first part of message.  Response may have been sent "
               "before entire message read.");
    return VX_INVALID_MESSAGE_ID;
  }
  MsgObj* message = nullptr;
  if (const VX_STATUS status = find_current(*session, id, message); status != kOk) return status;
  const int32_t inactivity = config_int(VX_CFG_INACTIVITY_TIMEOUT);
  session->Dul->midMessage = 0;
  PdvReader reader(session->Dul, inactivity > 0 ? inactivity : kLongWait);
  reader.begin_data();
  reader.expect_context(static_cast<const DecodeRest*>(message->StreamResume)->ContextId);
  const Held held(*message, Hold::All);
  VX_STATUS status = pump(*message, reader, receiver);
  if (status == kOk && !reader.released()) {
    session->Dul->currentMessage = -1;
    return kOk;
  }
  id = -1;
  if (receiver.refused) {
    VX_LOG_ERR(kToStream, "User callback cound not process data");
    drop_message(message);
    return end_session(session, VX_CALLBACK_CANNOT_COMPLY);
  }
  if (reader.outcome() == ReadOutcome::TimedOut) {
    // The message has begun, even if nothing of this part of it came.
    session->Dul->midMessage = 1;
  }
  if (status != kOk && reader.outcome() == ReadOutcome::Arrived) status = improper(status);
  return fail_read(session, message, reader, status, kToStream);
}

VX_STATUS stream_rest(int32_t association, int32_t& message, Receiver& receiver) {
  SesObj* session = nullptr;
  VX_STATUS status = enter_session(association, "VX_Continue_Read_Message_To_Stream", session);
  if (status != kOk) return status;
  status = no_throw([&] { return ReadMessageToStream(session, message, receiver); });
  return leave(session, status, message);
}

// --- A received data set as a file ---

constexpr char kReadToStream[] = "VX_Read_To_Stream";

VX_STATUS failed(const char* what, VX_STATUS status) {
  VX_LOG_ERR(kReadToStream, "%s failed with error %d (%s)", what, status, status_text(status));
  return status;
}

struct MetaText {
  uint32_t from;  // an attribute of the command; 0: a setting
  VX_STRING_KEY key;
  uint32_t tag;
  int32_t vr;
  const char* reading;
  const char* writing;
};
constexpr MetaText kMetaTexts[] = {
    {kAffectedClass, 0, 0x00020002U, VX_VR_UI, "VX_ATT_AFFECTED_SOP_CLASS_UID",
     "VX_ATT_MEDIA_STORAGE_SOP_CLASS_UID"},
    {kAffectedInstance, 0, 0x00020003U, VX_VR_UI, "VX_ATT_AFFECTED_SOP_INSTANCE_UID",
     "VX_ATT_MEDIA_STORAGE_SOP_INSTANCE_UID"},
    {0, VX_CFG_IMPLEMENTATION_CLASS_UID, 0x00020012U, VX_VR_UI, "IMPLEMENTATION_CLASS_UID",
     "MEDIA_IMPLEMENTATION_CLASS_UID"},
    {0, VX_CFG_IMPLEMENTATION_VERSION, 0x00020013U, VX_VR_SH, "VX_Get_String_Config_Value",
     "VX_Set_Value_From_String"},
};

VX_STATUS add_text(MsgObj& message, uint32_t tag, int32_t vr, std::string_view text) {
  TagObj* attribute = nullptr;
  const VX_STATUS status = new_tag(message, tag, vr, 1, 1, &attribute);
  if (status != kOk && status != VX_TAG_ALREADY_EXISTS) return status;
  return set_text(message, *attribute, text, true, nullptr);
}

VX_STATUS add_version(MsgObj& message) {
  constexpr uint8_t kVersion[] = {0, 1};
  TagObj* attribute = nullptr;
  const VX_STATUS status = new_tag(message, 0x00020001U, VX_VR_OB, 1, 1, &attribute);
  if (status != kOk && status != VX_TAG_ALREADY_EXISTS) return status;
  return store_value(message, *attribute, kVersion, sizeof kVersion, {});
}

VX_STATUS add_meta(MsgObj& message) {
  VX_STATUS status = add_version(message);
  if (status != kOk) return failed("VX_ATT_FILE_META_INFORMATION_VERSION", status);
  char syntax[80];
  if (syntax_uid(message.TransferSyntax, syntax, sizeof syntax) == 0) {
    return failed("VX_Get_Transfer_Syntax_From_Enum", VX_INVALID_TRANSFER_SYNTAX);
  }
  status = add_text(message, 0x00020010U, VX_VR_UI, syntax);
  if (status != kOk) return failed("VX_ATT_TRANSFER_SYNTAX_UID", status);
  for (const MetaText& row : kMetaTexts) {
    char scratch[80];
    std::string_view view;
    if (row.from != 0) status = read_text(message, row.from, scratch, view);
    if (status != kOk) return failed(row.reading, status);
    const std::string text = row.from != 0 ? std::string(view) : config_text(row.key);
    status = add_text(message, row.tag, row.vr, text);
    if (status != kOk) return failed(row.writing, status);
  }
  return kOk;
}

VX_STATUS add_source(MsgObj& message, int32_t association) {
  char title[sizeof SesObj::RemoteTitle] = "";
  {
    const SessionReport session(association);
    if (session.get() != nullptr) {
      copy_text(title, sizeof title, remote_title(*session.get(), session->Parameters));
    }
  }
  if (*title == '\0') return kOk;
  const VX_STATUS status = add_text(message, 0x00020016U, VX_VR_AE, title);
  return status == kOk ? kOk : failed("VX_ATT_SOURCE_APPLICATION_ENTITY_TITLE", status);
}

// The meta group, without the head of a file before it and without the last flag: the data set follows.
struct MetaGroup {
  Receiver& receiver;
  uint32_t skip = sizeof(FileInfo::Preamble) + sizeof(FileInfo::Prefix);
};
VX_STATUS give_meta(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& meta = *static_cast<MetaGroup*>(user);
  const uint32_t skipped = std::min(size, meta.skip);
  meta.skip -= skipped;
  if (skipped == size) return kOk;
  return meta.receiver.give(static_cast<const uint8_t*>(data) + skipped, size - skipped, false);
}

VX_STATUS stream_as_file(int32_t association, int32_t& id, const char* file_name, Receiver& receiver) {
  MsgObj* message = find_object(id);
  if (message == nullptr) return VX_INVALID_MESSAGE_ID;
  const VX_TRANSFER_SYNTAX syntax = message->TransferSyntax;
  VX_STATUS status = add_meta(*message);
  if (status == kOk) status = add_source(*message, association);
  if (status != kOk) return status;
  char made[80];
  std::snprintf(made, sizeof made, "session%dmsg%did%ld", association, id,
                static_cast<long>(std::time(nullptr)));
  status = VX_Message_To_File(id, file_name != nullptr ? file_name : made);
  if (status != kOk) return failed("VX_Message_To_File", status);
  status = VX_Set_Message_Transfer_Syntax(id, syntax);
  if (status != kOk) return failed("VX_Set_Message_Transfer_Syntax", status);
  MetaGroup meta{receiver};
  status = VX_Message_To_Stream(id, 0x00020000U, 0x0002FFFFU, EXPLICIT_LITTLE_ENDIAN, &meta, give_meta);
  if (status != kOk) return failed("VX_Message_To_Stream", status);
  status = stream_rest(association, id, receiver);
  return status == kOk ? kOk : failed("VX_Continue_Read_Message_To_Stream", status);
}

}  // namespace

VX_STATUS continue_to_stream(int32_t association, int32_t& message, void* user, VX_STREAM_OUTPUT callback) {
  Receiver receiver{message, user, callback};
  return stream_rest(association, message, receiver);
}

VX_STATUS read_to_stream(int32_t association, int32_t timeout, ReadResult& result, const char* file_name,
                         void* user, VX_STREAM_OUTPUT callback) {
  VX_STATUS status = read_message(association, timeout, kFirstDataTag, result);
  if (status != kOk) return status;
  const SopObj* service = find_service(result.service);
  result.service = service != nullptr ? service->name : "";
  Receiver receiver{result.message, user, callback};
  status = stream_as_file(association, result.message, file_name, receiver);
  if (result.message >= 0) {
    const VX_STATUS freed = VX_Free_Message(&result.message);
    if (freed != kOk && status == kOk) status = failed("VX_Free_Message", freed);
  }
  return status;
}

}  // namespace vx
