// Sending messages, and ready-encoded data sets of an application.
#include <algorithm>
#include <cstring>
#include <string>

#include "codec/message_syntax.h"
#include "codec/reader.h"
#include "codec/writer.h"
#include "config/added.h"
#include "config/config.h"
#include "dimse/dimse.h"
#include "dimse/pdv_writer.h"
#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/patience.h"
#include "frame/text.h"
#include "media/file.h"
#include "model/attributes.h"
#include "model/callbacks.h"
#include "model/convert.h"
#include "model/seams.h"

namespace vx {
namespace {

constexpr uint32_t kLastFrontTag = 0x00080019U;  // of a data set whose rest comes from the application

VX_STATUS put_encoded(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t last) {
  auto& writer = *static_cast<PdvWriter*>(user);
  const VX_STATUS status = writer.put(static_cast<const uint8_t*>(data), size);
  return status == kOk && last != 0 ? writer.finish() : status;
}
// The same where more follows.
VX_STATUS put_front(int32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  return static_cast<PdvWriter*>(user)->put(static_cast<const uint8_t*>(data), size);
}

StreamWriter stream_writer(const SesObj& session, PdvWriter& writer, VX_TRANSFER_SYNTAX syntax) {
  StreamWriter stream;
  stream.destination = Destination::Network;
  stream.ConnectionCallback = put_encoded;
  stream.ConnectionID = session.AssociationID;
  stream.UserInfo = &writer;
  stream.ApplicationID = session.ApplicationID;
  stream.UndefinedLengths = config_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ);
  syntax_encoding(syntax, stream.encoding);
  return stream;
}

VX_STATUS send_command(const SesObj& session, PdvWriter& writer, MsgObj& message, uint8_t context_id) {
  StreamWriter stream = stream_writer(session, writer, IMPLICIT_LITTLE_ENDIAN);
  const VX_STATUS status = encode_object(stream, message, 0, kLastCommandTag);
  if (status == kOk) log_command_group(message, false, context_id);
  return status;
}

VX_STATUS send_data_set(const SesObj& session, PdvWriter& writer, MsgObj& message, const SendPlan& plan) {
  StreamWriter stream = stream_writer(session, writer, plan.syntax);
  stream.Deflate = is_deflated(plan.syntax);
  writer.begin_data();
  return encode_object(stream, message, kFirstDataTag, kLastDataTag);
}

void bind_callbacks(const SesObj& session, MsgObj& message) {
  AppObj* app = find_application(session.ApplicationID);
  if (app != nullptr && app->Callbacks.Count != 0) bind_all(*app, message);
}

// Lists what is outstanding from now on, and frees the session if it died.
VX_STATUS conclude(SesObj* session, const PdvWriter& writer, SendPlan& plan, VX_STATUS status) {
  if (writer.dead()) {
    free_request(plan.new_request);
    free_session(session);
    return VX_ASSOCIATION_ABORTED;
  }
  if (status != kOk) {
    free_request(plan.new_request);
    return status;
  }
  if (plan.new_request != nullptr) {
    const Guard guard(session->RequestSemaphore);
    session->SentMessageId = static_cast<int32_t>(plan.new_request->MessageId);
    add_request(*session, session->PendingRequests, plan.new_request);
  }
  if (plan.matched != nullptr && !is_pending_response(plan.command, plan.status)) {
    remove_request(*session, session->ReceivedRequests, plan.matched);
  }
  return kOk;
}

VX_STATUS not_sendable(SesObj* session) {
  free_session(session);
  return VX_ASSOCIATION_ABORTED;
}

}  // namespace

VX_STATUS SendMessageTo(SesObj* session, MsgObj& message, const char* service_name) {
  if (session->RequestPending != 0) return VX_STATE_VIOLATION;
  drop_parameters(*session);
  if (!is_alive(*session)) return not_sendable(session);
  SendPlan plan;
  VX_STATUS status = SetMessage(*session, message, service_name, plan);
  if (status != kOk) {
    VX_LOG_ERR("SendMessageTo", "SetMessage failed. Error %d (%s)", status, status_text(status));
    return status;
  }
  bind_callbacks(*session, message);
  PdvWriter writer(*session);
  status = writer.open(plan.context_id, plan.has_data_set);
  if (status == kOk) status = send_command(*session, writer, message, plan.context_id);
  if (status == kOk && plan.has_data_set) status = send_data_set(*session, writer, message, plan);
  if (status == kOk) log_message(message, false, plan.context_id);
  return conclude(session, writer, plan, status);
}

// --- A C-STORE-RQ whose data set comes from the application ---

namespace {

constexpr char kFromCallback[] = "SendMessageFromCallback";

// The application's function, as the reader of a file sees it.
struct Source {
  int32_t association;
  void* user;
  VX_VALUE_CALLBACK callback;

  VX_STATUS read(VX_CALLBACK_REQUEST request, bool first, uint32_t& size, void*& data, bool& last) const {
    int32_t is_last = 0;
    data = nullptr;
    const VX_STATUS status =
        callback(association, kLastDataTag, user, request, &size, &data, first ? 1 : 0, &is_last);
    last = is_last != 0;
    return status;
  }
};

VX_STATUS read_source(const char*, void* user, uint32_t* size, void** data, int32_t first, int32_t* last) {
  *size = 0;
  bool is_last = false;
  const VX_STATUS status =
      static_cast<const Source*>(user)->read(VX_REQUEST_DATA, first != 0, *size, *data, is_last);
  *last = is_last ? 1 : 0;
  return status;
}

// The front of the stream as a message, freed at the end.
class Front {
 public:
  ~Front() { drop(); }
  // The message, in the syntax and with the identity that the stream says.
  VX_STATUS read(const Source& source);
  MsgObj* message() const { return find_object(id_); }
  VX_TRANSFER_SYNTAX syntax() const { return syntax_; }
  const std::string& sop_class() const { return sop_class_; }
  // Where the application goes on: behind what the message holds, or for an opaque stream behind the meta
  // group.
  uint32_t offset() const { return offset_; }
  // The data set is not what can be read in pieces: deflated, or in a syntax of which only the UID is known.
  bool opaque() const { return is_deflated(syntax_) || is_added_syntax(syntax_); }

 private:
  static VX_STATUS failed(const char* what, VX_STATUS status) {
    VX_LOG_ERR(kFromCallback, "%s failed. Error %d (%s)", what, status, status_text(status));
    return status;
  }
  void drop();
  VX_STATUS find(uint32_t tag, TagObj*& attribute) const {
    MsgObj* object = nullptr;
    return find_attribute(id_, tag, object, attribute);
  }
  VX_STATUS text(uint32_t tag, std::string& out) const;
  VX_STATUS set(uint32_t tag, const std::string& value) const;
  VX_STATUS open(const Source& source, uint32_t last_tag);
  VX_STATUS find_syntax();
  void take_identity(uint32_t tag, uint32_t command, std::string& uid, const char* getting,
                     const char* setting) const;

  int32_t id_ = -1;
  VX_TRANSFER_SYNTAX syntax_ = 0;
  uint32_t offset_ = 0;
  std::string sop_class_;
};

void Front::drop() {
  if (MsgObj* object = message()) free_object(*object, kFromCallback, VX_INVALID_MESSAGE_ID);
  id_ = -1;
}

VX_STATUS Front::text(uint32_t tag, std::string& out) const {
  char buffer[80];
  TagObj* attribute = nullptr;
  VX_STATUS status = find(tag, attribute);
  if (status == kOk) status = get_text(*attribute, true, sizeof buffer, buffer, true);
  out = status == kOk ? buffer : "";
  return status;
}

VX_STATUS Front::set(uint32_t tag, const std::string& value) const {
  MsgObj* object = message();
  if (object == nullptr) return VX_INVALID_MESSAGE_ID;
  TagObj* attribute = nullptr;
  const VX_STATUS status = find_to_change(*object, tag, attribute);
  return status == kOk ? set_text(*object, *attribute, value, true, nullptr) : status;
}

VX_STATUS Front::find_syntax() {
  MsgObj* object = message();
  VX_STATUS status = object != nullptr ? get_message_syntax(*object, syntax_) : VX_INVALID_MESSAGE_ID;
  if (status == kOk) return kOk;
  std::string uid;
  status = text(0x00020010U, uid);
  if (status != kOk) return failed("Get TRANSFER_SYNTAX", status);
  status = syntax_from_uid(uid, syntax_);
  return status == kOk ? kOk : failed("VXI_ConvertSyntaxToEnum", status);
}

void Front::take_identity(uint32_t tag, uint32_t command, std::string& uid, const char* getting,
                          const char* setting) const {
  if (uid.empty()) {
    if (const VX_STATUS status = text(tag, uid); status != kOk) failed(getting, status);
  }
  if (uid.empty()) return;
  if (const VX_STATUS status = set(command, uid); status != kOk) failed(setting, status);
}

VX_STATUS Front::open(const Source& source, uint32_t last_tag) {
  drop();
  MsgObj* file = nullptr;
  VX_STATUS status = create_empty_file("", file);
  if (status != kOk) return failed("VX_Create_Empty_File", status);
  id_ = file->ID;
  const int32_t own = state().EchoApplicationID;
  status = find_application(own) != nullptr ? read_file(*file, {.application_id = own,
                                                                .user = const_cast<Source*>(&source),
                                                                .callback = read_source,
                                                                .last_tag = last_tag,
                                                                .offset = &offset_})
                                            : VX_INVALID_APPLICATION_ID;
  if (status != kOk) return failed("VX_Open_File_Upto_Tag", status);
  return find_syntax();
}

VX_STATUS Front::read(const Source& source) {
  constexpr uint32_t kLastMetaTag = 0x0002FFFFU;
  register_application(nullptr, nullptr);  // the library's own one
  VX_STATUS status = kOk;
  // Where a syntax may be one that was added, the data set is looked at only once it is known not to be.
  if (has_added_syntaxes()) status = open(source, kLastMetaTag);
  if (status == kOk && !is_added_syntax(syntax_)) status = open(source, kLastFrontTag);
  if (status != kOk) return status;
  std::string instance;
  if (const VX_STATUS got = text(0x00020002U, sop_class_); got != kOk) failed("Get (0002,0002)", got);
  if (const VX_STATUS got = text(0x00020003U, instance); got != kOk) failed("Get (0002,0003)", got);
  if (opaque()) {
    constexpr uint32_t kMetaStart = 144;
    uint32_t length = 0;
    TagObj* attribute = nullptr;
    status = find(0x00020000U, attribute);
    if (status == kOk) status = get_number(*attribute, true, VX_UINT_TYPE, &length);
    if (status != kOk) return failed("Get (0002,0000)", status);
    offset_ = kMetaStart + length;
  }
  // A message with nothing in it would be sent as one without a data set.
  if (is_added_syntax(syntax_)) set(0x00080018U, instance);
  MsgObj* object = message();
  status = object != nullptr ? file_to_message(*object) : VX_INVALID_FILE_ID;
  if (status != kOk) return failed("VX_File_To_Message", status);
  take_identity(0x00080016U, command_tag::kAffectedClass, sop_class_, "Get VX_ATT_SOP_CLASS_UID",
                "Set VX_ATT_AFFECTED_SOP_CLASS_UID");
  take_identity(0x00080018U, command_tag::kAffectedInstance, instance, "Get VX_ATT_SOP_INSTANCE_UID",
                "Set VX_ATT_AFFECTED_SOP_INSTANCE_UID");
  status = set_message_syntax(*object, syntax_);
  if (status != kOk) failed("VX_Set_Message_Transfer_Syntax", status);
  return kOk;
}

const SopObj* choose_service(const SesObj& session, const char* service_name, const std::string& sop_class,
                             const MsgObj& message) {
  if (service_name != nullptr) return find_service(service_name);
  if (const SopObj* service = find_service_by_uid(sop_class)) return service;
  for (const ServiceEntry& listed : entries_of(*session.Services)) {
    for (const AcceptedContext& entry : accepted_of(session)) {
      if (entry.ServiceNumber == listed.service->number && fits_syntax(message, entry)) return listed.service;
    }
  }
  return nullptr;
}

VX_STATUS become_store(MsgObj& message, const SopObj& service) {
  if (const VX_STATUS status = set_object_name(message, service.name); status != kOk) return status;
  message.ServiceNumber = service.number;
  message.Command = C_STORE_RQ;
  const VX_STATUS status = store_command_number(message, command_tag::kStatus, 0);
  if (status == kOk) return kOk;
  VX_LOG_ERR(kFromCallback, "Error Coding status code field: %s", status_text(status));
  return VX_SYSTEM_ERROR;
}

// The front of the data set as encoded, then the application's bytes as they come.
VX_STATUS SendMessageFromCallbackToStream(const SesObj& session, PdvWriter& writer, MsgObj& message,
                                          const SendPlan& plan, const Front& front, const Source& source) {
  constexpr char kFunction[] = "SendMessageFromCallbackToStream";
  constexpr uint32_t kMost = 0x7FFFFFFFU;
  writer.begin_data();
  VX_STATUS status = kOk;
  if (!front.opaque()) {
    StreamWriter stream = stream_writer(session, writer, plan.syntax);
    stream.ConnectionCallback = put_front;
    stream.KeepGroupLengths = true;
    status = encode_object(stream, message, kFirstDataTag, kLastFrontTag);
  }
  bool last = false;
  VX_CALLBACK_REQUEST request = VX_REQUEST_DATA_AT_OFFSET;
  Patience patience;
  for (uint32_t size = front.offset(); status == kOk && !last; size = 0) {
    void* data = nullptr;
    status = source.read(request, request == VX_REQUEST_DATA_AT_OFFSET, size, data, last);
    request = VX_REQUEST_DATA;
    if (status != kOk) break;
    if (size > kMost) {
      VX_LOG_ERR(kFunction, "%s failed. Callback returned length > %d", kFunction, static_cast<int>(kMost));
      return VX_VALUE_TOO_LARGE;
    }
    if (!last && patience.ends(size)) return VX_CALLBACK_CANNOT_COMPLY;
    if (size == 0) continue;
    if (data == nullptr) return VX_CALLBACK_PARM_ERROR;
    status = writer.put(static_cast<const uint8_t*>(data), size);
    if (status != kOk) {
      VX_LOG_ERR(kFunction, "%s failed to stream buffer. Error %d (%s)", kFunction, status,
                 status_text(status));
      return status;
    }
  }
  if (status == kOk) return writer.finish();
  VX_LOG_ERR(kFunction, "%s failed. Error %d (%s)", kFunction, status, status_text(status));
  return status;
}

}  // namespace

VX_STATUS SendMessageFromCallback(SesObj* session, const char* service_name, void* user,
                                  VX_VALUE_CALLBACK callback) {
  if (session->RequestPending != 0) return VX_STATE_VIOLATION;
  if (!is_alive(*session)) return not_sendable(session);
  const Source source{session->AssociationID, user, callback};
  Front front;
  VX_STATUS status = front.read(source);
  if (status != kOk) return status;
  MsgObj* message = front.message();
  if (message == nullptr) return VX_SYSTEM_ERROR;
  const SopObj* service = choose_service(*session, service_name, front.sop_class(), *message);
  if (service == nullptr || service->name == nullptr) {
    VX_LOG_ERR(kFromCallback, "Acceptable service not found for session [%d].", session->AssociationID);
    return VX_UNKNOWN_SERVICE;
  }
  status = become_store(*message, *service);
  if (status != kOk) return status;
  drop_parameters(*session);
  SendPlan plan;
  status = SetMessage(*session, *message, service_name, plan);
  if (status != kOk) {
    VX_LOG_ERR(kFromCallback, "SetMessage failed. Error %d (%s)", status, status_text(status));
    return status;
  }
  PdvWriter writer(*session);
  status = writer.open(plan.context_id, plan.has_data_set);
  if (status == kOk) status = send_command(*session, writer, *message, plan.context_id);
  if (status == kOk && plan.has_data_set) {
    status = SendMessageFromCallbackToStream(*session, writer, *message, plan, front, source);
  }
  return conclude(session, writer, plan, status == kOk ? kOk : VX_SYSTEM_ERROR);
}

// --- By handles ---

namespace {

// Enters the session, runs send(session) and leaves it, unless it has gone.
template <typename Send>
VX_STATUS send_inside(int32_t id, const char* function, Send send) {
  SesObj* session = nullptr;
  VX_STATUS status = enter_session(id, function, session);
  if (status != kOk) return status;
  status = no_throw([&] { return send(session); });
  if (status == VX_ASSOCIATION_ABORTED) return status;
  const VX_STATUS left = leave_session(session);
  return left == kOk ? status : left;
}

MsgObj* find_message(int32_t id) {
  MsgObj* object = find_object(id);
  return object != nullptr && object->ObjectKind == Kind::Message ? object : nullptr;
}

}  // namespace

VX_STATUS send_request(int32_t association, int32_t id, const char* service_name) {
  return send_inside(association, "VXI_Send_Request_Message", [&](SesObj* session) -> VX_STATUS {
    MsgObj* message = find_message(id);
    return message != nullptr ? SendMessageTo(session, *message, service_name) : VX_INVALID_MESSAGE_ID;
  });
}

VX_STATUS send_response(int32_t association, uint32_t status, int32_t id) {
  constexpr char kFunction[] = "VX_Send_Response_Message";
  return send_inside(association, kFunction, [&](SesObj* session) -> VX_STATUS {
    MsgObj* message = find_message(id);
    if (message == nullptr) return VX_INVALID_MESSAGE_ID;
    const VX_STATUS stored = store_command_number(*message, command_tag::kStatus, status & 0xFFFFU);
    if (stored == kOk) return SendMessageTo(session, *message, nullptr);
    VX_LOG_ERR(kFunction, "Error Coding status code field: %s", status_text(stored));
    return VX_SYSTEM_ERROR;
  });
}

VX_STATUS send_from_callback(int32_t association, const char* service_name, void* user,
                             VX_VALUE_CALLBACK callback) {
  return send_inside(association, "VXI_Send_Request", [&](SesObj* session) {
    return SendMessageFromCallback(session, service_name, user, callback);
  });
}

}  // namespace vx
