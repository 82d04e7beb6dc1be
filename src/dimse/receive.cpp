// Reading messages.

#include "codec/decode_rest.h"
#include "codec/reader.h"
#include "config/config.h"
#include "dimse/receive_parts.h"
#include "frame/log.h"
#include "frame/no_throw.h"

namespace vx {
namespace receiving {
namespace {

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

}  // namespace

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

VX_STATUS fail_read(SesObj*& session, MsgObj*& message, const PdvReader& reader, VX_STATUS fault,
                    const char* name) {
  drop_message(message);
  const VX_STATUS status =
      reader.outcome() != ReadOutcome::Arrived ? outcome_status(*session, reader, name) : fault;
  return status == VX_TIMEOUT && !abort_was_requested(*session) ? status : end_session(session, status);
}

VX_STATUS improper(VX_STATUS decoding) {
  VX_LOG_ERR(kFunction, "Message received encoded improperly %s", status_text(decoding));
  return VX_INVALID_MESSAGE_RECEIVED;
}

VX_STATUS leave(SesObj* session, VX_STATUS status, int32_t& message_id) {
  if (session == nullptr || leave_session(session) == kOk) return status;
  MsgObj* message = find_object(message_id);
  drop_message(message);
  message_id = -1;
  return VX_ASSOCIATION_ABORTED;
}

VX_STATUS find_current(const SesObj& session, int32_t id, MsgObj*& message) {
  message = find_object(id);
  if (message == nullptr) return VX_INVALID_MESSAGE_ID;
  if (message->StreamResume != nullptr && session.Dul->currentMessage == id) return kOk;
  VX_LOG_ERR(kFunction, "Can't continue. No additional data");
  return VX_INVALID_MESSAGE_ID;
}

}  // namespace receiving

namespace {

using namespace command_tag;
using namespace receiving;

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
  ReadCommand command;
  status = judge_command(*session, *message, reader.context_id(), command);
  log_command_group(*message, true, reader.context_id());
  if (status == kOk && command.has_data_set) {
    status = read_data(*session, *message, reader, stop_tag);
  }
  if (status != kOk || reader.released()) return fail_read(session, message, reader, status);
  log_message(*message, true, reader.context_id());
  result.message = message->ID;
  result.service = message->ServiceName;
  result.command = command.command;
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

}  // namespace vx
