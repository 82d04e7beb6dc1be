// Reading and writing of files through the caller's functions.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "codec/message_syntax.h"
#include "codec/reader.h"
#include "codec/stream_calls.h"
#include "codec/writer.h"
#include "config/config.h"
#include "frame/app.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "media/directory.h"
#include "media/file.h"
#include "model/attributes.h"
#include "model/callbacks.h"
#include "model/convert.h"
#include "model/values.h"

namespace vx {

namespace {

constexpr char kWrite[] = "VX_Write_File";
constexpr uint32_t kMetaVersion = 0x00020001U;
constexpr uint32_t kMetaClass = 0x00020002U;
constexpr uint32_t kMetaInstance = 0x00020003U;
constexpr uint32_t kImplementationClass = 0x00020012U;
constexpr uint32_t kImplementationVersion = 0x00020013U;
constexpr uint32_t kSopClass = 0x00080016U;
constexpr uint32_t kSopInstance = 0x00080018U;
constexpr uint32_t kPadding = 0xFFFCFFFCU;
constexpr uint32_t kLeastPadding = 2;
constexpr char kDirectoryClass[] = "1.2.840.10008.1.3.10";
constexpr std::size_t kUidLength = 64;

bool has_value(const TagObj* attribute) {
  return attribute != nullptr && attribute->ValueCount > 0;
}

std::string text_of(MsgObj& object, uint32_t tag) {
  const TagObj* attribute = find_tag(object, tag);
  char scratch[80];
  std::string_view text;
  ValueCursor cursor;
  if (!has_value(attribute)) return {};
  cursor_first(*attribute, cursor);
  if (view_text(*attribute, cursor, scratch, text) != kOk) return {};
  return std::string(text);
}

VX_STATUS meta_attribute(MsgObj& object, uint32_t tag, int32_t vr, TagObj*& out) {
  const VX_STATUS status = new_tag(object, tag, vr, 1, 1, &out);
  return status == VX_TAG_ALREADY_EXISTS ? kOk : status;
}

// Sets a text unless there is a value. A value that fails the check of its VR is stored all the same.
VX_STATUS fill_text(MsgObj& object, uint32_t tag, int32_t vr, const std::string& text) {
  TagObj* attribute = nullptr;
  if (VX_STATUS status = meta_attribute(object, tag, vr, attribute); status != kOk) return status;
  if (has_value(attribute)) return kOk;
  return set_text(object, *attribute, text, true, nullptr);
}

// The same from the configuration, where a failure ends the write.
VX_STATUS fill_configured(MsgObj& object, uint32_t tag, int32_t vr, VX_STRING_KEY key, const char* getting,
                          const char* coding) {
  TagObj* attribute = nullptr;
  VX_STATUS status = meta_attribute(object, tag, vr, attribute);
  if (status != kOk) {
    VX_LOG_ERR(kWrite, "Error getting Media %s from file object: %s", getting, status_text(status));
    return VX_SYSTEM_ERROR;
  }
  status = fill_text(object, tag, vr, config_text(key));
  if (status == kOk || has_value(attribute)) return kOk;
  VX_LOG_ERR(kWrite, "Error Coding %s field: %s", coding, status_text(status));
  return VX_SYSTEM_ERROR;
}

}  // namespace

// A UID below that of the implementation, from the time of day, the thread and the object: at most `most`
// characters of what these give, then filled up to `least`.
std::string generated_uid(const MsgObj& object, std::size_t most, std::size_t least) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto hundredths = std::chrono::duration_cast<std::chrono::milliseconds>(now).count() / 10;
  const auto part = static_cast<uint32_t>(hundredths % 100);
  const auto second = static_cast<uint32_t>(hundredths / 100 % 60);
  const auto minute = static_cast<uint32_t>(hundredths / 6000 % 60);
  const auto hour = static_cast<uint32_t>(hundredths / 360000 % 24);
  uint32_t random = (hour * 100 + second) * 100 + minute + part;
  const auto next = [&random] {
    random = random * 1103515245U + 12345U;
    return random >> 16 & 0x7FFFU;
  };
  char text[512];
  // A component of a UID must not start with a zero: the second 0 counts as 60.
  std::snprintf(text, sizeof text, "%s.%u.%u%u.%d%u", config_text(VX_CFG_IMPLEMENTATION_CLASS_UID).c_str(),
                current_thread_number(), second == 0 ? 60U : second, part, static_cast<int>(1 + next()),
                static_cast<uint32_t>(object.ID));
  std::string uid = std::string(text).substr(0, most);
  while (uid.size() < least) {
    uid += uid.size() % 6 == 0 ? '.' : static_cast<char>('1' + next() % 9);
  }
  return uid;
}

namespace {

VX_STATUS fill_version(MsgObj& object) {
  constexpr uint8_t kVersion[] = {0, 1};
  TagObj* attribute = nullptr;
  VX_STATUS status = meta_attribute(object, kMetaVersion, VX_VR_OB, attribute);
  if (status == kOk && !has_value(attribute)) {
    status = store_value(object, *attribute, kVersion, sizeof kVersion, {});
  }
  if (status == kOk) return status;
  VX_LOG_ERR(kWrite, "Error setting file meta info version to file object: %s", status_text(status));
  return VX_SYSTEM_ERROR;
}

// What identifies the object in the meta group. Without it the file is written all the same.
void fill_identity(MsgObj& object, uint32_t tag, const std::string& uid, const char* what) {
  VX_STATUS status = uid.empty() && !has_value(find_tag(object, tag)) ? VX_EMPTY_VALUE
                                                                      : fill_text(object, tag, VX_VR_UI, uid);
  if (status == VX_INVALID_VALUE_FOR_VR || status == VX_INVALID_CHARS_IN_VALUE) status = kOk;
  if (status == kOk) return;
  VX_LOG_ERR(kWrite, "Error setting File meta storage sop %s uid to file object: %s", what,
             status_text(status));
}

// --- Padding ---

VX_STATUS set_padding(MsgObj& object, uint32_t length) {
  TagObj* attribute = nullptr;
  VX_STATUS status = new_tag(object, kPadding, VX_VR_OB, 1, 1, &attribute);
  if (status != kOk && status != VX_TAG_ALREADY_EXISTS) {
    VX_LOG_ERR(kWrite, "Error adding pad attribute (FFFC,FFFC) to file object: %s", status_text(status));
    return status;
  }
  attribute->VR = VX_VR_OB;
  void* bytes = nullptr;
  status = reserve_value(object, *attribute, length, true, bytes);
  if (status == kOk) {
    std::memset(bytes, 0, length);
  } else {
    VX_LOG_ERR(kWrite, "Error setting pad attribute (FFFC,FFFC) in file object: %s", status_text(status));
  }
  return status;
}

// Brings the length of the file to a multiple of `pad`, as far as the length can be known.
VX_STATUS pad_file(MsgObj& object, uint32_t pad, bool deflated) {
  uint64_t length = 0;
  VX_STATUS status = file_length(object, length);
  if (status != kOk) return status;
  if (deflated || length == kUndefinedLength) {
    VX_LOG_WARN(kWrite, "The length of %s cannot be known: file is not padded",
                deflated ? "a deflated file" : "a value");
    return kOk;
  }
  status = set_padding(object, kLeastPadding);
  if (status == kOk) status = file_length(object, length);
  if (status != kOk) return status;
  return set_padding(object, pad - static_cast<uint32_t>((length - kLeastPadding) % pad));
}

VX_STATUS prepare_writer(MsgObj& object, StreamWriter& writer) {
  VX_TRANSFER_SYNTAX syntax = 0;
  const VX_STATUS status = file_syntax(object, syntax);
  if (status != kOk) {
    VX_LOG_ERR(kWrite,
               status == VX_INVALID_TRANSFER_SYNTAX ? "Unknown transfer syntax UID in file object:  %s"
                                                    : "Unable to get transfer syntax UID in file object:  %s",
               status_text(status));
    return VX_INVALID_TRANSFER_SYNTAX;
  }
  writer.MsgID = object.ID;
  writer.destination = Destination::Media;
  writer.FileName = object.File->FileName;
  syntax_encoding(EXPLICIT_LITTLE_ENDIAN, writer.encoding);
  syntax_encoding(syntax, writer.next);
  writer.MetaPending = true;
  writer.Deflate = is_deflated(syntax);
  writer.BeforeDeflate = true;
  writer.UndefinedLengths = undefined_lengths_of(object);
  return kOk;
}

// The callbacks of an application are bound while a file is written.
class BoundCallbacks {
 public:
  BoundCallbacks(int32_t application_id, MsgObj& object)
      : app_(application_id != 0 ? find_application(application_id) : nullptr), object_(object) {
    if (app_ != nullptr) bind_all(*app_, object_);
  }
  ~BoundCallbacks() {
    if (app_ != nullptr) unbind_all(*app_, object_);
  }
  BoundCallbacks(const BoundCallbacks&) = delete;
  BoundCallbacks& operator=(const BoundCallbacks&) = delete;

 private:
  AppObj* app_;
  MsgObj& object_;
};

}  // namespace

VX_STATUS fill_meta_group(MsgObj& object) {
  VX_STATUS status = fill_configured(object, kImplementationClass, VX_VR_UI, VX_CFG_IMPLEMENTATION_CLASS_UID,
                                     "Implementation Class UID", "Implementation Class UID");
  if (status == kOk) {
    status = fill_configured(object, kImplementationVersion, VX_VR_SH, VX_CFG_IMPLEMENTATION_VERSION,
                             "Implementation Version Name", "Implementation Version Name");
  }
  if (status == kOk) status = fill_version(object);
  if (status != kOk) return status;
  const bool directory = object.ObjectKind == Kind::Dicomdir;
  std::string sop_class = text_of(object, kSopClass);
  if (sop_class.empty() && directory) sop_class = kDirectoryClass;
  fill_identity(object, kMetaClass, sop_class, "class");
  const bool generate = directory && !has_value(find_tag(object, kMetaInstance));
  fill_identity(object, kMetaInstance,
                generate ? generated_uid(object, kUidLength - 1, kUidLength) : text_of(object, kSopInstance),
                "instance");
  return status;
}

VX_STATUS read_file(MsgObj& object, const FileRead& read) try {
  constexpr char kFunction[] = "VX_Open_File";
  ReadRequest request;
  request.FileInput = read.callback;
  request.FileName = object.File->FileName;
  request.UserInfo = read.user;
  request.ApplicationID = read.application_id;
  syntax_encoding(EXPLICIT_LITTLE_ENDIAN, request.encoding);
  request.EndTag = read.last_tag;
  request.StopAtEnd = read.stop_at_tag;
  request.KeepValuesOut = read.keep_values_out;
  DirectoryRead directory;
  directory.save_records = config_bool(VX_CFG_DICOMDIR_STREAM_STORAGE);
  if (directory_state(object) != nullptr) request.Directory = &directory;
  Guard lock(object.Semaphore);
  VX_STATUS status = decode_object(object, request);
  const uint16_t group = tag_group(request.ErrorTag);
  const uint16_t element = tag_element(request.ErrorTag);
  if (status != kOk && object.ObjectKind == Kind::Dicomdir) {
    VX_LOG_ERR(kFunction, "Error encountered while parsing DICOMDIR:");
    VX_LOG_ERR(kFunction, "| (%.4x,%.4x) %s", group, element, status_text(status));
  } else if (status != kOk) {
    VX_LOG_WARN(kFunction, "Error with tag (%.4x,%.4x) at byte offset %llu when parsing file", group, element,
                static_cast<unsigned long long>(request.StopOffset));
  }
  if (directory.met) {
    const VX_STATUS linked = link_directory(object, directory.records, status == kOk);
    if (status == kOk) status = linked;
  }
  return read.offset != nullptr ? narrow_offset(request.StopOffset, status, *read.offset) : status;
} catch (const std::bad_alloc&) {
  return VX_SYSTEM_ERROR;
}

VX_STATUS write_file(MsgObj& object, int32_t application_id, int32_t pad, void* user,
                     VX_FILE_OUTPUT callback) try {
  if (pad < 0 || pad % 2 != 0 || pad > config_int(VX_CFG_WORK_BUFFER_SIZE)) return VX_INVALID_PAD;
  const BoundCallbacks bound(application_id, object);
  StreamWriter writer;
  VX_STATUS status = prepare_writer(object, writer);
  if (status == kOk) status = fill_meta_group(object);
  if (status == kOk && pad > 0) {
    status = pad_file(object, static_cast<uint32_t>(pad), writer.Deflate);
  }
  std::vector<int32_t> offsets;
  if (status == kOk && directory_state(object) != nullptr) {
    status = record_offsets(object, writer, offsets);
    writer.OffsetTable = offsets.data();
    writer.OffsetCount = static_cast<uint32_t>(offsets.size() / 2);
  }
  if (status != kOk) return status;
  writer.FileCallback = callback;
  writer.UserInfo = user;
  writer.ApplicationID = application_id;
  return encode_object(writer, object, 0, 0xFFFFFFFFU);
} catch (const std::bad_alloc&) {
  return VX_SYSTEM_ERROR;
}

}  // namespace vx
