// Opening and creating directories on disk, and copying attributes from one object to another.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "codec/message_syntax.h"
#include "codec/reader.h"
#include "codec/writer.h"
#include "config/config.h"
#include "config/services.h"
#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "media/directory.h"
#include "media/file.h"
#include "media/handler.h"
#include "media/journal.h"
#include "media/record_types.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/deferred.h"
#include "model/message_info.h"
#include "model/seams.h"
#include "model/values.h"

namespace vx {

using namespace directory_tags;

namespace {

// Reads a file up to a tag for the position behind it.
struct HeadSource {
  FileOp* file;
  uint64_t at;
};
VX_STATUS give_head(const char*, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& source = *static_cast<HeadSource*>(user);
  const uint32_t wanted = source.file->BufferSize & ~1U;
  const uint8_t* bytes = view_file(*source.file, source.at, wanted, *size);
  if (bytes == nullptr) return VX_CANNOT_COMPLY;
  source.at += *size;
  *data = const_cast<uint8_t*>(bytes);
  *last = *size < wanted ? 1 : 0;
  return kOk;
}

}  // namespace

VX_STATUS read_up_to(FileOp& file, MsgObj& object, uint32_t last_tag, uint32_t& offset) {
  HeadSource source{&file, 0};
  return read_file(object, {.user = &source, .callback = give_head, .last_tag = last_tag, .offset = &offset});
}

namespace {

VX_STATUS read_head(DirectoryHandler& handler, MsgObj& directory) {
  constexpr char kOpen[] = "VX_DDH_Open";
  uint32_t at = 0;
  const VX_STATUS status = read_up_to(*handler.File, directory, kDirectoryRecords - 1, at);
  if (status != kOk) return status == VX_CALLBACK_DATA_SIZE_UNEVEN ? VX_INVALID_FILE : status;
  VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN;
  const TagObj* uid = find_tag(directory, 0x00020010U);
  if (uid == nullptr || uid->Length == 0) {
    VX_LOG_WARN(kOpen, "Unable to get transfer syntax UID from DICOMDIR file.");
  } else if (get_message_syntax(directory, syntax) != kOk) {
    VX_LOG_ERR(kOpen, "Invalid transfer syntax UID in DICOMDIR file (%s).", handler.File->Path);
    return VX_INVALID_TRANSFER_SYNTAX;
  }
  if (syntax_encoding(syntax, handler.encoding) != kOk || is_deflated(syntax)) {
    VX_LOG_ERR(kOpen, "%s: %d", "Unusable transfer syntax", syntax);
    return VX_INVALID_TRANSFER_SYNTAX;
  }
  if (handler.encoding.big_endian) {
    VX_LOG_ERR(kOpen, "DICOMDIR encoded with big endian transfer syntax");
    return VX_INVALID_FILE;
  }
  if (!handler.encoding.explicit_vr) VX_LOG_WARN(kOpen, "DICOMDIR encoded with implicit transfer syntax");
  const uint32_t header = handler.encoding.explicit_vr ? 12 : 8;
  uint32_t available = 0;
  const uint8_t* bytes = view_file(*handler.File, at, header, available);
  if (bytes == nullptr || available < header || load_tag(bytes, false) != kDirectoryRecords) {
    VX_LOG_ERR(kOpen, "Failed to read DICOMDIR record sequence length at offset %u", at + header - 4);
    return VX_INVALID_FILE;
  }
  handler.SequenceLengthPosition = uint64_t{at} + header - 4;
  handler.SequenceLength = load32(bytes + header - 4, false);
  return kOk;
}

VX_STATUS read_ends(DirectoryHandler& handler, MsgObj& directory) {
  constexpr char kOpen[] = "VX_DDH_Open";
  int32_t first = 0;
  int32_t last = 0;
  const TagObj* attribute = find_tag(directory, kFirst);
  const bool null = attribute != nullptr && attribute->ValueCount > 0 && attribute->Length == 0;
  if (!null && get_reference(directory, kFirst, first) != kOk) {
    VX_LOG_ERR(kOpen, "Failed to retrieve Offset of First Directory Record value");
    return VX_INVALID_FILE;
  }
  handler.HasLastOffset = get_reference(directory, kLast, last) == kOk;
  if (!handler.HasLastOffset) VX_LOG_WARN(kOpen, "Failed to retrieve Offset of Last Directory Record value");
  handler.LowerOffset = static_cast<uint32_t>(first);
  handler.LastRecordOffset = static_cast<uint32_t>(last);
  return kOk;
}

}  // namespace

VX_STATUS open_handler(const char* path, MsgObj*& directory) {
  VX_STATUS status = create_empty_file("DICOMDIR", directory);
  if (status != kOk) return status;
  auto* handler = static_cast<DirectoryHandler*>(allocate(sizeof(DirectoryHandler)));
  FileOp* file = handler != nullptr ? open_file_op(path) : nullptr;
  status = handler == nullptr ? VX_SYSTEM_ERROR : file == nullptr ? VX_CALLBACK_CANNOT_COMPLY : kOk;
  if (handler != nullptr) {
    handler->Kind = kDirectoryHandler;
    handler->Object = directory;
    handler->File = file;
  }
  if (status == kOk && !Journal::recover(*file)) status = VX_INVALID_FILE;
  if (status == kOk) status = read_head(*handler, *directory);
  directory->DirectoryInfo = static_cast<LevelHead*>(handler);
  if (status == kOk) status = set_service_command(*directory, "DICOMDIR", 1);
  if (status == kOk) status = read_ends(*handler, *directory);
  RecordNode* node = nullptr;
  if (status == kOk) status = first_lower(*handler, node);
  if (status == kOk) return kOk;
  free_object(*directory, "VX_DDH_Open", VX_INVALID_FILE_ID);
  directory = nullptr;
  return status;
}

// --- Creating ---

namespace {

constexpr char kCreate[] = "VX_DDH_Create";
constexpr uint32_t kSyntax = 0x00020010U;
constexpr uint32_t kInstance = 0x00020003U;
constexpr uint32_t kFileSetId = 0x00041130U;
constexpr uint32_t kConsistency = 0x00041212U;

VX_STATUS set_text_of(MsgObj& object, uint32_t tag, int32_t vr, std::string_view text) {
  TagObj* attribute = nullptr;
  const VX_STATUS status = new_tag(object, tag, vr, 1, 1, &attribute);
  if (status != kOk && status != VX_TAG_ALREADY_EXISTS) return status;
  return text.empty() ? set_null(object, *attribute) : set_text(object, *attribute, text, true, nullptr);
}

VX_STATUS fill_identity(MsgObj& directory) {
  constexpr std::size_t kMostCharacters = 64;
  constexpr std::size_t kLeastCharacters = 60;
  const VX_STATUS status = set_text_of(directory, 0x00020002U, VX_VR_UI, "1.2.840.10008.1.3.10");
  const TagObj* instance = find_tag(directory, kInstance);
  if (status != kOk || (instance != nullptr && instance->Length > 0)) return status;
  const std::string uid = generated_uid(directory, 512, kLeastCharacters);
  if (uid.size() > kMostCharacters) {
    VX_LOG_ERR(kCreate, "Failed to create Media Storage SOP Instance UID, the length exceeds 64 bytes");
    return VX_SYSTEM_ERROR;
  }
  return set_text_of(directory, kInstance, VX_VR_UI, uid);
}

VX_STATUS fill_directory(MsgObj& directory, const char* file_set) {
  constexpr uint16_t kConsistent = 0;
  VX_STATUS status = set_text_of(directory, kSyntax, VX_VR_UI, {});
  if (status == kOk) status = set_message_syntax(directory, EXPLICIT_LITTLE_ENDIAN);
  if (status == kOk) status = set_service_command(directory, "DICOMDIR", 1);
  if (status == kOk) status = fill_identity(directory);
  if (status == kOk) {
    status =
        set_text_of(directory, kFileSetId, VX_VR_CS, file_set != nullptr ? file_set : std::string_view());
  }
  TagObj* flag = nullptr;
  if (status == kOk) status = new_tag(directory, kConsistency, VX_VR_US, 1, 1, &flag);
  if (flag != nullptr) {
    status = store_value(directory, *flag, &kConsistent, sizeof kConsistent, {});
  }
  if (status == kOk) status = set_reference(directory, kFirst, 0);
  if (status == kOk) status = set_reference(directory, kLast, 0);
  TagObj* records = nullptr;
  if (status == kOk) status = record_sequence(directory, records);
  return status == kOk ? set_null(directory, *records) : status;
}

VX_STATUS collect(const char*, void* user, uint32_t size, void* data, int32_t, int32_t) {
  static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return kOk;
}

}  // namespace

VX_STATUS create_directory_file(const char* path, const char* file_set, int32_t source_id) {
  constexpr uint32_t kGroups[] = {0x00020000U, 0x00040000U, 0};
  MsgObj* directory = nullptr;
  VX_STATUS status = create_empty_file("DICOMDIR", directory);
  if (status != kOk) return status;
  MsgObj* source = source_id != 0 ? find_object(source_id) : nullptr;
  if (source_id != 0) {
    status = source != nullptr ? copy_values(*source, *directory, kGroups) : VX_INVALID_MESSAGE_ID;
  }
  std::string bytes;
  if (status == kOk) status = fill_directory(*directory, file_set);
  if (status == kOk) status = write_file(*directory, 0, 0, &bytes, collect);
  free_object(*directory, kCreate, VX_INVALID_FILE_ID);
  if (status != kOk) return status;
  const std::string temporary = std::string(path) + ".new" + std::to_string(::getpid());
  if (write_whole_file(temporary.c_str(), bytes.data(), bytes.size()) && replace_file(temporary, path)) {
    // What was half done to a former file is of no more use.
    ::unlink((std::string(path) + ".vxj").c_str());
    return kOk;
  }
  VX_LOG_ERR("OpenFileOp", "Can't open file in %s mode, %s, error: %s", "w+b", path, std::strerror(errno));
  ::unlink(temporary.c_str());
  return VX_CALLBACK_CANNOT_COMPLY;
}

// --- Adding ---

namespace {

constexpr uint16_t kStoreRequest = 1;

// The type of records that refer to objects of a class: by the table, or by whether they have pixels.
VX_STATUS type_by_class(std::string_view uid, std::string& type) {
  type = type_of_class(uid);
  if (!type.empty()) return kOk;
  const SopObj* service = find_service_by_uid(uid);
  const MsgTemplate* rules = nullptr;
  if (service == nullptr || check_service_command(service->name, kStoreRequest) != kOk ||
      get_template(service->name, kStoreRequest, rules) != kOk || rules == nullptr) {
    return VX_INVALID_LOWER_DIR_RECORD;
  }
  const TagObj* attribute = rules->FirstTag;
  while (attribute != nullptr && attribute->Tag < kPixelData) attribute = attribute->Next;
  type = attribute != nullptr && attribute->Tag == kPixelData ? "IMAGE" : "PRIVATE";
  return kOk;
}

VX_STATUS new_type(LevelHead& parent, const char* given, std::string& type) {
  constexpr const char* kByDepth[] = {"PATIENT", "STUDY", "SERIES", "IMAGE"};
  constexpr std::size_t kLongestType = 64;
  if (given == nullptr) {
    type = parent.Depth < std::size(kByDepth) ? kByDepth[parent.Depth] : "PRIVATE";
    return kOk;
  }
  type = given;
  VX_STATUS status = type.size() > 2 && type.starts_with("1.") ? type_by_class(given, type) : kOk;
  if (status != kOk) return status;
  std::string above;
  if (parent.Kind == kDirectoryRecord) {
    auto& node = static_cast<RecordNode&>(parent);
    status = load_item(node);
    if (status != kOk) return status;
    above = record_type(*node.Item).substr(0, kLongestType);
    if (above.empty()) return VX_INVALID_DIR_RECORD_TYPE;
  }
  return check_lower_type(above, type);
}

}  // namespace

VX_STATUS add_record_node(LevelHead& parent, const char* type, RecordNode*& node) {
  std::string text;
  VX_STATUS status = new_type(parent, type, text);
  // The end of the level has to be known before anything is made.
  if (status == kOk) status = link_level(parent);
  MsgObj* item = nullptr;
  if (status == kOk) status = open_object(Kind::Item, kNoName, item);
  if (status != kOk) return status;
  status = fill_new_record(*item, text);
  if (status == kOk) status = name_record(*item);
  node = status == kOk ? new_node(parent) : nullptr;
  if (node == nullptr) {
    free_item(*item, true);
    return status == kOk ? VX_SYSTEM_ERROR : status;
  }
  adjust_references(*item, 1);
  append_node(*node);
  attach_item(*node, *item);
  return kOk;
}

// --- Copying ---

namespace {

// The stream between two objects.
struct MemStream {
  std::string Data;
  std::size_t Left = 0;  // bytes in front that are left out
};

VX_STATUS write_stream(void* user, uint32_t, uint32_t size, void* data, int32_t, int32_t) {
  if (user == nullptr) {
    VX_LOG_ERR("MemStreamWriteCbk", "Null stream in MemStreamWriteCbk");
    return VX_CANNOT_COMPLY;
  }
  static_cast<MemStream*>(user)->Data.append(static_cast<const char*>(data), size);
  return kOk;
}

VX_STATUS read_stream(int32_t, void* user, int32_t, uint32_t* size, void** data, int32_t* last) {
  if (user == nullptr) {
    VX_LOG_ERR("MemStreamReadCbk", "Null stream in MemStreamReadCbk");
    return VX_CANNOT_COMPLY;
  }
  auto& stream = *static_cast<MemStream*>(user);
  const std::size_t from = std::min(stream.Left, stream.Data.size());
  *data = stream.Data.data() + from;
  *size = static_cast<uint32_t>(stream.Data.size() - from);
  *last = 1;
  return kOk;
}

bool is_listed(const uint32_t* list, uint32_t tag) {
  if (list == nullptr) return true;
  for (; *list != 0; ++list) {
    if (*list == tag || ((*list & 0xFFFFU) == 0 && *list >> 16 == tag >> 16)) return true;
  }
  return false;
}

// What goes from one file to another: all that is listed but lengths of groups, references to records and
// records, which mean nothing there, and the transfer syntax, which would be taken for that of the stream.
std::vector<uint32_t> tags_between_files(const MsgObj& source, const uint32_t* list) {
  constexpr uint32_t kLeftOut[] = {kFirst, kLast, kConsistency, kDirectoryRecords, kSyntax};
  std::vector<uint32_t> tags;
  for (const TagObj* attribute = source.FirstTag; attribute != nullptr; attribute = attribute->Next) {
    const uint32_t tag = attribute->Tag;
    const bool left_out = std::find(std::begin(kLeftOut), std::end(kLeftOut), tag) != std::end(kLeftOut);
    if (!left_out && (tag & 0xFFFFU) != 0 && is_listed(list, tag)) tags.push_back(tag);
  }
  tags.push_back(0);
  return tags;
}

VX_STATUS copy_syntax(MsgObj& source, MsgObj& destination) {
  const TagObj* attribute = find_tag(source, kSyntax);
  char scratch[80];
  std::string_view uid;
  ValueCursor cursor;
  if (attribute == nullptr || attribute->Length == 0) return kOk;
  cursor_first(*attribute, cursor);
  const VX_STATUS status = view_text(*attribute, cursor, scratch, uid);
  return status == kOk ? set_text_of(destination, kSyntax, VX_VR_UI, uid) : status;
}

VX_STATUS encode_source(MsgObj& source, bool between_files, const uint32_t* tag_list, MemStream& stream) {
  constexpr uint32_t kFirstRecordTag = 0x00041421U;
  Guard lock(source.Semaphore);
  if (const VX_STATUS status = decode_up_to(source, 0xFFFFFFFFU); status != kOk) return status;
  std::vector<uint32_t> tags;
  if (between_files) tags = tags_between_files(source, tag_list);
  if (between_files && tags.size() == 1) return VX_MESSAGE_EMPTY;
  StreamWriter writer;
  writer.MsgID = source.ID;
  writer.destination = Destination::Stream;
  writer.RawCallback = write_stream;
  writer.UserInfo = &stream;
  syntax_encoding(EXPLICIT_LITTLE_ENDIAN, writer.encoding);
  writer.UndefinedLengths = true;
  writer.NoGroupLengths = true;
  writer.TagList = between_files ? tags.data() : tag_list;
  return encode_object(writer, source, between_files ? 0 : kFirstRecordTag, 0xFFFFFFFFU);
}

}  // namespace

VX_STATUS copy_values(MsgObj& source, MsgObj& destination, const uint32_t* tag_list) {
  constexpr std::size_t kHead = sizeof(FileInfo::Preamble) + sizeof(FileInfo::Prefix);
  const bool from_file = is_file(source);
  const bool to_file = is_file(destination);
  MemStream stream;
  if (!from_file && to_file) {
    stream.Data.assign(destination.File->Preamble, sizeof(FileInfo::Preamble));
    stream.Data.append("DICM");
  }
  if (from_file && !to_file) stream.Left = kHead;
  VX_STATUS status = encode_source(source, from_file && to_file, tag_list, stream);
  if (status == VX_MESSAGE_EMPTY) return kOk;
  if (status != kOk) return status == VX_CALLBACK_CANNOT_COMPLY ? VX_SYSTEM_ERROR : status;
  const std::size_t empty = from_file || to_file ? kHead : 0;
  if (stream.Data.size() > empty) {
    ReadRequest request;
    syntax_encoding(EXPLICIT_LITTLE_ENDIAN, request.encoding);
    request.MessageInput = read_stream;
    request.UserInfo = &stream;
    if (decode_object(destination, request) != kOk) return VX_SYSTEM_ERROR;
  }
  return from_file && to_file && is_listed(tag_list, kSyntax) ? copy_syntax(source, destination) : kOk;
}

}  // namespace vx
