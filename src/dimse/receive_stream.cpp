// A data set that is read as a stream, or as a file.
#include <algorithm>
#include <ctime>
#include <string>

#include "codec/decode_rest.h"
#include "codec/message_syntax.h"
#include "codec/reader.h"
#include "codec/stream_calls.h"
#include "codec/stream_input.h"
#include "config/config.h"
#include "dimse/receive_parts.h"
#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/text.h"
#include "media/file.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/held.h"
#include "model/values.h"

namespace vx {

using namespace command_tag;
using namespace receiving;

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
  status = message_to_file(*message, file_name != nullptr ? file_name : made);
  if (status != kOk) return failed("VX_Message_To_File", status);
  status = set_message_syntax(*message, syntax);
  if (status != kOk) return failed("VX_Set_Message_Transfer_Syntax", status);
  MetaGroup meta{receiver};
  status = message_to_stream(*message, 0x00020000U, 0x0002FFFFU, EXPLICIT_LITTLE_ENDIAN, &meta, give_meta);
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
  if (result.message < 0) return status;
  MsgObj* message = find_object(result.message);
  const VX_STATUS freed = message != nullptr ? free_object(*message, "VX_Free_Message", VX_INVALID_MESSAGE_ID)
                                             : VX_INVALID_MESSAGE_ID;
  return freed != kOk && status == kOk ? failed("VX_Free_Message", freed) : status;
}

}  // namespace vx
