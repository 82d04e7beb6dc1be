#include "media/file.h"

#include <cstring>
#include <string_view>

#include "codec/message_syntax.h"
#include "codec/stream_calls.h"
#include "codec/writer.h"
#include "config/services.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"
#include "media/directory.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/message_info.h"
#include "model/seams.h"
#include "model/values.h"

namespace vx {

namespace {

struct MetaAttribute {
  uint32_t tag;
  int32_t vr;
};
constexpr MetaAttribute kMetaAttributes[] = {
    {0x00020000U, VX_VR_UL}, {0x00020001U, VX_VR_OB}, {0x00020002U, VX_VR_UI}, {0x00020003U, VX_VR_UI},
    {0x00020010U, VX_VR_UI}, {0x00020012U, VX_VR_UI}, {0x00020013U, VX_VR_SH}, {0x00020016U, VX_VR_AE},
    {0x00020017U, VX_VR_AE}, {0x00020018U, VX_VR_AE}, {0x00020100U, VX_VR_UI}, {0x00020102U, VX_VR_OB},
};
constexpr uint32_t kPreambleLength = sizeof(FileInfo::Preamble) + sizeof(FileInfo::Prefix);

bool names_directory(std::string_view service) {
  constexpr std::string_view kDirectory = "DICOMDIR";
  return equals_ignoring_case(service.substr(0, kDirectory.size()), kDirectory);
}

void release_file_info(FileInfo* info) {
  if (info == nullptr) return;
  release(info->FileName);
  release(info);
}

FileInfo* new_file_info(const char* file_name) {
  auto* info = static_cast<FileInfo*>(allocate(sizeof(FileInfo)));
  if (info == nullptr) return nullptr;
  std::memcpy(info->Prefix, "DICM", sizeof info->Prefix);
  info->FileName = duplicate_text(file_name);
  if (info->FileName != nullptr) return info;
  release(info);
  return nullptr;
}

VX_STATUS add_meta_attributes(MsgObj& object) {
  for (const MetaAttribute& meta : kMetaAttributes) {
    const VX_STATUS status = new_tag(object, meta.tag, meta.vr, 1, 1, nullptr);
    if (status != kOk && status != VX_TAG_ALREADY_EXISTS) return status;
  }
  return kOk;
}

VX_STATUS open_file_object(Kind kind, const char* service, const char* file_name, MsgObj*& out) {
  VX_STATUS status = open_object(kind, service, out);
  if (status != kOk) return status;
  out->File = new_file_info(file_name);
  status = out->File != nullptr ? add_meta_attributes(*out) : VX_SYSTEM_ERROR;
  if (status == kOk) return status;
  VX_LOG_ERR("VX_Create_File", "Out Of Memory");
  free_object(*out, "VX_Create_File", VX_INVALID_FILE_ID);
  out = nullptr;
  return VX_SYSTEM_ERROR;
}

// The template of the service, and the records of a directory.
VX_STATUS fill_by_service(MsgObj& object, const char* service, uint16_t command) {
  const SopObj* known = find_service(service);
  if (known != nullptr) object.ServiceNumber = known->number;
  if (known != nullptr && check_service_command(service, command) == kOk) {
    const VX_STATUS status = fill_from_template(object, 0, false);
    if (status != kOk) return status == VX_SYSTEM_ERROR ? status : VX_MSGFILE_ERROR;
  } else if (std::strcmp(service, kNoName) != 0) {
    const char* name = command_name(command);
    log_line(VX_LOG_T7, "VX_Create_File", "WARNING: No Service %s, Command %s in info file.", service,
             name != nullptr ? name : "");
  }
  return object.ObjectKind == Kind::Dicomdir ? create_directory_records(object) : kOk;
}

}  // namespace

VX_STATUS create_file(const char* file_name, const char* service, uint16_t command, MsgObj*& out) {
  out = nullptr;
  if (!is_valid_command(command)) return VX_INVALID_COMMAND;
  VX_STATUS status =
      open_file_object(names_directory(service) ? Kind::Dicomdir : Kind::File, service, file_name, out);
  if (status != kOk) return status;
  out->Command = command;
  status = fill_by_service(*out, service, command);
  if (status == kOk) return status;
  free_object(*out, "VX_Create_File", VX_INVALID_FILE_ID);
  out = nullptr;
  return status;
}

VX_STATUS create_empty_file(const char* file_name, MsgObj*& out) {
  out = nullptr;
  return open_file_object(Kind::File, kNoName, file_name, out);
}

VX_STATUS message_to_file(MsgObj& object, const char* file_name) {
  if (object.ObjectKind != Kind::Message) return VX_INVALID_MESSAGE_ID;
  FileInfo* info = new_file_info(file_name);
  if (info == nullptr || add_meta_attributes(object) != kOk) {
    VX_LOG_ERR("VX_Message_To_File", "Out Of Memory");
    release_file_info(info);
    return VX_SYSTEM_ERROR;
  }
  object.File = info;
  object.ObjectKind = Kind::File;
  return delete_range(object, 0, 0x0000FFFFU);
}

VX_STATUS file_to_message(MsgObj& object) {
  free_file_info(object);
  if (object.DirectoryInfo != nullptr) release_directory_records(object);
  const VX_STATUS status = delete_range(object, 0x00020000U, 0x0002FFFFU);
  object.ObjectKind = Kind::Message;
  return status;
}

VX_STATUS rename_file(MsgObj& object, const char* file_name) {
  char* copy = duplicate_text(file_name);
  if (copy == nullptr) return VX_SYSTEM_ERROR;
  release(object.File->FileName);
  object.File->FileName = copy;
  return kOk;
}

void free_file_info(MsgObj& object) {
  release_file_info(object.File);
  object.File = nullptr;
}

VX_STATUS empty_file(MsgObj& object) {
  if (!is_file(object)) return VX_INVALID_MESSAGE_ID;
  Guard lock(object.Semaphore);
  empty_object(object);
  forget_tree(object);
  return kOk;
}

VX_STATUS file_length(MsgObj& object, uint64_t& length) {
  constexpr char kFunction[] = "VX_Get_File_Length";
  length = 0;
  VX_TRANSFER_SYNTAX syntax = 0;
  if (VX_STATUS status = file_syntax(object, syntax); status != kOk) {
    VX_LOG_ERR(kFunction, "Invalid transfer syntax UID encountered in file object: %s", status_text(status));
    return VX_INVALID_TRANSFER_SYNTAX;
  }
  LengthQuery query;
  query.destination = Destination::Media;
  query.undefined_lengths = undefined_lengths_of(object);
  length = kPreambleLength;
  // The meta group, and what stands in the data set before and behind it by number.
  struct Part {
    VX_TRANSFER_SYNTAX syntax;
    uint32_t first;
    uint32_t last;
  };
  const Part parts[] = {{EXPLICIT_LITTLE_ENDIAN, 0x00020000U, 0x0002FFFFU},
                        {syntax, 0, 0x0001FFFFU},
                        {syntax, 0x00030000U, 0xFFFFFFFFU}};
  for (const Part& part : parts) {
    uint64_t bytes = 0;
    syntax_encoding(part.syntax, query.encoding);
    const VX_STATUS status = run_length(object, part.first, part.last, query, bytes);
    if (status != kOk) {
      VX_LOG_ERR(kFunction, "Internal call to VX_Get_Stream_Length failed: %s", status_text(status));
      length = 0;
      return status;
    }
    if (bytes == kUndefinedLength || length == kUndefinedLength) {
      length = kUndefinedLength;
    } else {
      length += bytes;
    }
  }
  return kOk;
}

VX_STATUS file_length(MsgObj& object, uint32_t& length) {
  uint64_t wide = 0;
  length = 0;
  const VX_STATUS status = file_length(object, wide);
  if (status != kOk) return status;
  if (wide > kUndefinedLength) return VX_VALUE_TOO_LARGE;
  length = static_cast<uint32_t>(wide);
  return status;
}

}  // namespace vx
