#include "model/message_info_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "frame/byte_order.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"
#include "model/convert.h"
#include "model/dictionary.h"
#include "model/seams.h"
#include "model/values.h"
#include "model/vr.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_Read_Message_Info";
constexpr uint32_t kSignature = 0xF003F003;
constexpr uint32_t kMarker = 0xF002F002;
constexpr std::size_t kEntrySize = 6;
constexpr std::size_t kRecordSize = 8;
constexpr std::size_t kMaxData = 0xFFFF;

enum Parameter : uint16_t {
  kLastEnumerated = 1000,
  kLastDefined = 1999,
  kConditionName = 2000,
  kConditionRule = 2001,
  kOtherwise = 2002,
  kVrLetters = 9500,
  kDefaultValue = 9600,
  kCreatorCode = 9700,
  kAttributeType = 9999,
};

// The file, read through the C library's buffer: a template is a run of small records.
class InfoFile {
 public:
  explicit InfoFile(const char* path) : path_(path), file_(std::fopen(path, "rbe")) {}
  ~InfoFile() {
    if (file_ != nullptr) std::fclose(file_);
  }
  InfoFile(const InfoFile&) = delete;
  InfoFile& operator=(const InfoFile&) = delete;

  bool is_open() const { return file_ != nullptr; }
  const char* path() const { return path_; }
  // The bytes read; short at the end of the file or on an error.
  std::size_t read(void* bytes, std::size_t size) {
    errno = 0;
    return std::fread(bytes, 1, size, file_);
  }
  bool read16(uint16_t& value) {
    uint8_t bytes[2];
    if (read(bytes, sizeof bytes) != sizeof bytes) return false;
    value = load16(bytes, true);
    return true;
  }
  bool read32(uint32_t& value) {
    uint8_t bytes[4];
    if (read(bytes, sizeof bytes) != sizeof bytes) return false;
    value = load32(bytes, true);
    return true;
  }
  bool seek(uint64_t position) { return ::fseeko(file_, static_cast<off_t>(position), SEEK_SET) == 0; }
  bool skip(long bytes) { return std::fseek(file_, bytes, SEEK_CUR) == 0; }
  bool at_end() const { return std::feof(file_) != 0; }
  static const char* error() { return system_error_text(errno); }

 private:
  const char* path_;
  std::FILE* file_;
};

struct Directories {
  uint32_t message_offset = 0;
  uint16_t message_count = 0;
  uint32_t command_offset = 0;
  uint32_t item_offset = 0;
  uint16_t item_count = 0;
  uint32_t info_offset = 0;
};

#define FAIL(...)                       \
  do {                                  \
    VX_LOG_ERR(kFunction, __VA_ARGS__); \
    return false;                       \
  } while (0)

bool read_signature(InfoFile& file) {
  uint32_t tag = 0;
  uint16_t parameter = 0;
  uint16_t length = 0;
  const char* missing = nullptr;
  if (!file.read32(tag)) {
    missing = "tag";
  } else if (!file.read16(parameter)) {
    missing = "parm ID";
  } else if (!file.read16(length)) {
    missing = "length";
  }
  if (missing != nullptr) {
    if (file.at_end()) FAIL("End of Info file reached.");
    FAIL("Error reading file signature %s: %s.", missing, InfoFile::error());
  }
  if (tag == kSignature && parameter == 0 && length == 0) return true;
  FAIL("%s is not a valid VexalKit-3 Message Info file.", file.path());
}

bool read_preamble(InfoFile& file, Directories& out) {
  const char* missing = nullptr;
  if (!file.read32(out.message_offset)) {
    missing = "msg offset";
  } else if (!file.read16(out.message_count)) {
    missing = "msg length";
  } else if (!file.read32(out.command_offset)) {
    missing = "cmd offset";
  } else if (!file.read32(out.item_offset)) {
    missing = "item offset";
  } else if (!file.read16(out.item_count)) {
    missing = "item length";
  } else if (!file.read32(out.info_offset)) {
    missing = "info offset";
  }
  if (missing == nullptr) return true;
  VX_LOG_ERR(kFunction, "Error reading preamble %s: %s.", missing, InfoFile::error());
  FAIL("Unable to read preamble from %s.", file.path());
}

uint64_t entry_position(uint32_t offset, int32_t number) {
  return offset + kEntrySize * static_cast<uint64_t>(number - 1);
}

bool seek_to(InfoFile& file, uint64_t position) {
  if (file.seek(position)) return true;
  FAIL("Unable to seek in %s: %s", file.path(), InfoFile::error());
}

bool locate_command(InfoFile& file, const Directories& directories, const TemplateRequest& request) {
  for (;;) {
    uint16_t command = 0;
    if (!file.read16(command)) FAIL("Unable to read cmd from %s: %s", file.path(), InfoFile::error());
    if (command == 0) {
      FAIL("Unable to find %s in Info file. Incompatible vexalkit.srv and info.pfl files.", request.name);
    }
    if (command != request.command) {
      if (!file.skip(4)) FAIL("Unable to seek in %s: %s", file.path(), InfoFile::error());
      continue;
    }
    uint32_t offset = 0;
    if (!file.read32(offset)) FAIL("Unable to read offset from %s: %s", file.path(), InfoFile::error());
    return seek_to(file, static_cast<uint64_t>(directories.info_offset) + offset);
  }
}

bool locate_service(InfoFile& file, const Directories& directories, const TemplateRequest& request) {
  if (request.number < 0) FAIL("Cannot find requested service %s.", request.name);
  if (request.number < 1 || request.number > directories.message_count) {
    FAIL("This service is not in the info file: %s.", request.name);
  }
  if (!seek_to(file, entry_position(directories.message_offset, request.number))) return false;
  uint16_t number = 0;
  uint32_t offset = 0;
  if (!file.read16(number)) FAIL("Unable to read msg from %s: %s", file.path(), InfoFile::error());
  if (number != request.number) {
    FAIL("Invalid format to %s: private services numbered incorrectly", file.path());
  }
  if (!file.read32(offset)) FAIL("Unable to read msg offset from %s: %s", file.path(), InfoFile::error());
  if (!seek_to(file, static_cast<uint64_t>(directories.command_offset) + offset)) return false;
  return locate_command(file, directories, request);
}

bool locate_item(InfoFile& file, const Directories& directories, const TemplateRequest& request) {
  if (request.number < 0) FAIL("Unknown Item requested: %s.", request.name);
  if (request.number < 1 || request.number > directories.item_count) {
    FAIL("This item is not in the info file: %s.", request.name);
  }
  if (!seek_to(file, entry_position(directories.item_offset, request.number))) return false;
  uint16_t number = 0;
  uint32_t offset = 0;
  if (!file.read16(number)) FAIL("Unable to read item from %s: %s", file.path(), InfoFile::error());
  if (!file.read32(offset)) FAIL("Unable to read item offset from %s: %s", file.path(), InfoFile::error());
  if (file.seek(static_cast<uint64_t>(directories.info_offset) + offset)) return true;
  FAIL("Error seeking ITEM %ud in %s: %s", static_cast<unsigned>(request.number), file.path(),
       InfoFile::error());
}

bool locate(InfoFile& file, const TemplateRequest& request) {
  Directories directories;
  if (!read_signature(file) || !read_preamble(file, directories)) return false;
  return request.command != 0 ? locate_service(file, directories, request)
                              : locate_item(file, directories, request);
}

void free_values(TagObj& attribute) {
  while (attribute.FirstValue != nullptr) {
    ValueObj* next = attribute.FirstValue->Next;
    free_value(attribute.FirstValue);
    attribute.FirstValue = next;
  }
  attribute.LastValue = nullptr;
  attribute.ValueCount = 0;
  attribute.Length = 0;
}

void free_rules(ValTagObj* rules) {
  if (rules == nullptr) return;
  while (void* value = list_remove_head(rules->ValidValues)) release(value);
  release(const_cast<char*>(rules->Condition));
  pool_free(Pool::ValTagObj, rules);
}

void free_attribute(TagObj* attribute) {
  if (attribute == nullptr) return;
  free_values(*attribute);
  free_rules(attribute->Template);
  pool_free(Pool::TagObj, attribute);
}

// Builds the chain of a template out of the records of a body.
class Builder {
 public:
  explicit Builder(MsgTemplate& target) : target_(target) {}
  ~Builder() { free_attribute(current_); }
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;

  // One record; data has room for a NUL behind it, and has one.
  VX_STATUS record(uint32_t tag, uint16_t parameter, std::string_view data);
  VX_STATUS finish();

 private:
  VX_STATUS start(uint32_t tag);
  VX_STATUS valid_value(uint16_t number, bool enumerated, std::string_view data);
  VX_STATUS default_value(std::string_view data);
  VX_STATUS condition(std::string_view data, bool named);
  VX_STATUS attach_creator();
  bool to_stored_form(std::string_view& data, char (&binary)[8]) const;
  VX_STATUS append_text(TagObj& attribute, std::string_view text);
  void link(TagObj* attribute, TagObj* behind);

  MsgTemplate& target_;
  TagObj* last_ = nullptr;
  TagObj* current_ = nullptr;
  char creator_[kMaxCreatorCode + 1] = {};
};

TagObj* new_attribute(uint32_t tag) {
  auto* attribute = new_object<TagObj>(Pool::TagObj);
  if (attribute == nullptr) return nullptr;
  attribute->Tag = tag;
  attribute->Storage = Stored::InMemory;
  attribute->Template = new_object<ValTagObj>(Pool::ValTagObj);
  if (attribute->Template == nullptr) {
    pool_free(Pool::TagObj, attribute);
    return nullptr;
  }
  attribute->Template->AttributeType = kTypeNotSet;
  attribute->VR = VX_VR_UN;
  attribute->VMLow = 1;
  attribute->VMHigh = 255;
  return attribute;
}

VX_STATUS Builder::start(uint32_t tag) {
  if (current_ != nullptr) {
    const VX_STATUS status = finish();
    if (status != kOk) return status;
  }
  creator_[0] = '\0';
  current_ = new_attribute(tag);
  return current_ == nullptr ? VX_SYSTEM_ERROR : kOk;
}

void Builder::link(TagObj* attribute, TagObj* behind) {
  TagObj* next = behind == nullptr ? target_.FirstTag : behind->Next;
  attribute->Previous = behind;
  attribute->Next = next;
  (behind == nullptr ? target_.FirstTag : behind->Next) = attribute;
  if (next != nullptr) {
    next->Previous = attribute;
  } else {
    last_ = attribute;
  }
}

// Values of numeric VRs take their binary form. False if they have none.
bool Builder::to_stored_form(std::string_view& data, char (&binary)[8]) const {
  if (is_text_vr(current_->VR)) return true;
  uint32_t length = 0;
  if (convert_text_to_binary(current_->VR, data, binary, length) != kOk) return false;
  data = {binary, length};
  return true;
}

VX_STATUS Builder::valid_value(uint16_t number, bool enumerated, std::string_view data) {
  if (data.empty()) return kOk;
  char binary[8];
  if (current_->VR != VX_VR_SQ && !to_stored_form(data, binary)) {
    VX_LOG_ERR(kFunction, "Failed to read valid value for tag 0x%X", current_->Tag);
    return VX_MSGFILE_ERROR;
  }
  auto* value = static_cast<ValidValueObj*>(allocate(sizeof(ValidValueObj) + data.size() + 1));
  if (value == nullptr || list_add_tail(current_->Template->ValidValues, value) == nullptr) {
    VX_LOG_ERR(kFunction, "Unable to allocate new Valid Value Object");
    release(value);
    return VX_SYSTEM_ERROR;
  }
  auto* bytes = reinterpret_cast<char*>(value + 1);
  std::memcpy(bytes, data.data(), data.size());
  value->Length = static_cast<uint32_t>(data.size());
  value->ValueNumber = number;
  value->IsEnumerated = enumerated ? 1 : 0;
  value->Value = bytes;
  if (number > current_->Template->MaxValueNumber) current_->Template->MaxValueNumber = number;
  return kOk;
}

// A value with a NUL behind its bytes, which its length does not count.
VX_STATUS Builder::append_text(TagObj& attribute, std::string_view text) {
  const auto length = static_cast<uint32_t>(text.size());
  ValueObj* value = new_value(length + 1);
  if (value == nullptr) {
    VX_LOG_ERR(kFunction, "Unable to allocate new Value Object");
    return VX_SYSTEM_ERROR;
  }
  std::memcpy(value->Data, text.data(), text.size());
  static_cast<char*>(value->Data)[length] = '\0';
  value->Length = length;
  append_value(attribute, value, 1, length);
  return kOk;
}

VX_STATUS Builder::default_value(std::string_view data) {
  if (data.empty()) return kOk;
  if (data == "<null>") {
    free_values(*current_);
    return append_null(*current_) == kOk ? kOk : VX_SYSTEM_ERROR;
  }
  char binary[8];
  if (!to_stored_form(data, binary)) {
    VX_LOG_ERR(kFunction, "Failed to read default for tag 0x%X", current_->Tag);
    return VX_MSGFILE_ERROR;
  }
  return append_text(*current_, data);
}

// By the name of a predicate, or as a rule that stands at the place itself.
VX_STATUS Builder::condition(std::string_view data, bool named) {
  if (data.empty()) return kOk;
  char* name = duplicate_text(data.data());
  if (name == nullptr) return VX_SYSTEM_ERROR;
  release(const_cast<char*>(current_->Template->Condition));
  current_->Template->Condition = name;
  current_->Template->ConditionRule = named ? std::string_view() : std::string_view(name);
  if (named && find_condition != nullptr && !find_condition(data, current_->Template->ConditionRule)) {
    VX_LOG_WARN(kFunction, "Unknown validate function: %s", name);
  }
  return kOk;
}

VX_STATUS Builder::record(uint32_t tag, uint16_t parameter, std::string_view data) {
  if (current_ != nullptr && tag < current_->Tag) {
    VX_LOG_ERR(kFunction, "Message is not in tag/parm sequence");
    return VX_MSGFILE_ERROR;
  }
  if (current_ == nullptr || tag > current_->Tag) {
    const VX_STATUS status = start(tag);
    if (status != kOk) return status;
  }
  if (parameter >= 1 && parameter <= kLastEnumerated) return valid_value(parameter, true, data);
  if (parameter > kLastEnumerated && parameter <= kLastDefined) {
    return valid_value(static_cast<uint16_t>(parameter - kLastEnumerated), false, data);
  }
  switch (parameter) {
    case kConditionName:
    case kConditionRule:
      return condition(data, parameter == kConditionName);
    case kOtherwise:
      current_->Template->MayBePresent = data == "may";
      return kOk;
    case kVrLetters: {
      const int32_t vr = data.size() < 2 ? -1 : vr_from_letters(data[0], data[1]);
      if (vr < 0 || vr == VX_VR_UN) {
        VX_LOG_ERR(kFunction, "Invalid VR Code in message.");
        return VX_MSGFILE_ERROR;
      }
      current_->VR = vr;
      return kOk;
    }
    case kDefaultValue:
      return default_value(data);
    case kCreatorCode:
      copy_text(creator_, sizeof creator_, data);
      return kOk;
    case kAttributeType:
      current_->Template->AttributeType = attribute_type_from_text(data.data(), data.size());
      if (current_->Template->AttributeType != kTypeNotSet) return kOk;
      VX_LOG_ERR(kFunction, "Invalid Cond.Type in message.");
      return VX_MSGFILE_ERROR;
    default:
      return kOk;
  }
}

// The chain gets the creator attribute of the current attribute's block, unless it has it.
VX_STATUS Builder::attach_creator() {
  const uint32_t tag = (current_->Tag & 0xFFFF0000U) | (tag_element(current_->Tag) >> 8);
  TagObj* behind = last_;
  while (behind != nullptr && behind->Tag > tag) behind = behind->Previous;
  if (behind != nullptr && behind->Tag == tag) return kOk;
  TagObj* creator = new_attribute(tag);
  if (creator == nullptr) return VX_SYSTEM_ERROR;
  creator->Template->AttributeType = kType1;
  creator->VR = VX_VR_LO;
  creator->VMLow = 0;
  creator->VMHigh = 1;
  char code[kMaxCreatorCode + 2];
  std::size_t length = std::strlen(creator_);
  std::memcpy(code, creator_, length);
  if (length % 2 != 0) code[length++] = ' ';
  const VX_STATUS status = append_text(*creator, {code, length});
  if (status != kOk) {
    free_attribute(creator);
    return status;
  }
  link(creator, behind);
  return kOk;
}

VX_STATUS Builder::finish() {
  if (current_ == nullptr) return kOk;
  TagObj& attribute = *current_;
  if (attribute.Template->AttributeType == kTypeNotSet) {
    VX_LOG_ERR(kFunction, "No type code for tag 0x%8.8X in Message File.", attribute.Tag);
    return VX_MSGFILE_ERROR;
  }
  DictInfo info{};
  if (dictionary_lookup(attribute.Tag, creator_, info) == kOk) {
    // Values read for another class of VR do not have this one's form.
    const bool same_form = attribute.VR == info.vr || (is_text_vr(attribute.VR) && is_text_vr(info.vr));
    if (!same_form && attribute.Length != 0) free_values(attribute);
    attribute.VR = info.vr;
    attribute.VMLow = info.vm_low;
    attribute.VMHigh = info.vm_high;
  } else if (attribute.VR == VX_VR_UN) {
    if (is_private(attribute.Tag)) {
      VX_LOG_ERR(kFunction, "No dictionary entry for private tag 0x%4.4X, \"%s\", 0x%2.2X in Message File.",
                 tag_group(attribute.Tag), creator_, tag_element(attribute.Tag) & 0xFFU);
    } else {
      VX_LOG_ERR(kFunction, "No dictionary entry for tag 0x%8.8X in Message File.", attribute.Tag);
    }
    return VX_MSGFILE_ERROR;
  }
  if (creator_[0] != '\0' && is_private(attribute.Tag) && tag_element(attribute.Tag) >= 0x1000) {
    const VX_STATUS status = attach_creator();
    if (status != kOk) return status;
  }
  link(current_, last_);
  current_ = nullptr;
  return kOk;
}

struct RecordHeader {
  uint32_t tag;
  uint16_t parameter;
  uint16_t length;
};

// 1 for a header, 0 at the end of the file, -1 for part of one or an error.
int read_header(InfoFile& file, RecordHeader& header) {
  uint8_t bytes[kRecordSize];
  const std::size_t got = file.read(bytes, sizeof bytes);
  if (got == 0 && file.at_end()) return 0;
  if (got != sizeof bytes) return -1;
  header = {load32(bytes, true), load16(bytes + 4, true), load16(bytes + 6, true)};
  return 1;
}

VX_STATUS read_body(InfoFile& file, char* data, MsgTemplate& out) {
  RecordHeader header{};
  int got = read_header(file, header);
  if (got != 1 || header.tag != kMarker || header.parameter != 0 || header.length != 0) {
    VX_LOG_ERR(kFunction, "Cannot find beginning of message.");
    return VX_MSGFILE_ERROR;
  }
  Builder builder(out);
  while ((got = read_header(file, header)) == 1 && header.tag != kMarker) {
    if (file.read(data, header.length) != header.length) {
      VX_LOG_ERR(kFunction, "%s: Unexpected EOF", file.path());
      return VX_MSGFILE_ERROR;
    }
    data[header.length] = '\0';
    const VX_STATUS status = builder.record(header.tag, header.parameter, {data, header.length});
    if (status != kOk) return status;
  }
  if (got < 0) {
    VX_LOG_ERR(kFunction, "Error reading message info file.");
    return VX_MSGFILE_ERROR;
  }
  return builder.finish();
}

#undef FAIL

}  // namespace

bool has_no_template(uint16_t command) {
  return command == C_STORE_RSP || command == N_DELETE_RQ || command == N_DELETE_RSP ||
         command == C_ECHO_RQ || command == C_ECHO_RSP;
}

void free_template_parts(MsgTemplate& message_template) {
  release(message_template.Name);
  message_template.Name = nullptr;
  while (message_template.FirstTag != nullptr) {
    TagObj* next = message_template.FirstTag->Next;
    free_attribute(message_template.FirstTag);
    message_template.FirstTag = next;
  }
}

VX_STATUS read_template(const TemplateRequest& request, MsgTemplate& out) {
  out = MsgTemplate{};
  InfoFile file(request.path);
  if (!file.is_open() && !has_no_template(request.command)) {
    VX_LOG_ERR(kFunction, "Could not open message info file %s: (%d):%s", request.path, errno,
               InfoFile::error());
    return VX_MSGFILE_ERROR;
  }
  if (file.is_open() && !locate(file, request)) {
    VX_LOG_ERR(kFunction, "Error getting offset in info file.");
    return VX_MSGFILE_ERROR;
  }
  out.Command = request.command;
  out.Name = duplicate_text(request.name);
  auto* data = static_cast<char*>(allocate_raw(kMaxData + 1));
  VX_STATUS status = out.Name == nullptr || data == nullptr ? VX_SYSTEM_ERROR : kOk;
  if (status == kOk && file.is_open()) status = read_body(file, data, out);
  release(data);
  if (status != kOk) free_template_parts(out);
  return status;
}

}  // namespace vx
