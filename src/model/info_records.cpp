#include "model/info_records.h"

#include <cerrno>
#include <cstdio>
#include <utility>

#include "frame/byte_order.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"
#include "model/message_info.h"
#include "model/vr.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_Read_Message_Info";
constexpr uint32_t kSignature = 0xF003F003;
constexpr uint32_t kMarker = 0xF002F002;
constexpr std::size_t kEntrySize = 6;
constexpr std::size_t kRecordSize = 8;
constexpr std::size_t kMaxData = 0xFFFF;
constexpr std::size_t kMaxCommands = 64;  // there are 23

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

// To the table of the commands of a service.
bool seek_commands(InfoFile& file, const Directories& directories, int32_t number) {
  if (!seek_to(file, entry_position(directories.message_offset, number))) return false;
  uint16_t given = 0;
  uint32_t offset = 0;
  if (!file.read16(given)) FAIL("Unable to read msg from %s: %s", file.path(), InfoFile::error());
  if (given != number) {
    FAIL("Invalid format to %s: private services numbered incorrectly", file.path());
  }
  if (!file.read32(offset)) FAIL("Unable to read msg offset from %s: %s", file.path(), InfoFile::error());
  return seek_to(file, static_cast<uint64_t>(directories.command_offset) + offset);
}

bool locate_service(InfoFile& file, const Directories& directories, const TemplateRequest& request) {
  if (request.number < 0) FAIL("Cannot find requested service %s.", request.name);
  if (request.number < 1 || request.number > directories.message_count) {
    FAIL("This service is not in the info file: %s.", request.name);
  }
  return seek_commands(file, directories, request.number) && locate_command(file, directories, request);
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

bool is_there(const InfoFile& file) {
  if (file.is_open()) return true;
  FAIL("Could not open message info file %s: (%d):%s", file.path(), errno, InfoFile::error());
}

VX_STATUS take_records(InfoFile& file, char* data, RecordTaker& taker) {
  RecordHeader header{};
  int got = read_header(file, header);
  if (got != 1 || header.tag != kMarker || header.parameter != 0 || header.length != 0) {
    VX_LOG_ERR(kFunction, "Cannot find beginning of message.");
    return VX_MSGFILE_ERROR;
  }
  uint32_t last = 0;
  while ((got = read_header(file, header)) == 1 && header.tag != kMarker) {
    if (file.read(data, header.length) != header.length) {
      VX_LOG_ERR(kFunction, "%s: Unexpected EOF", file.path());
      return VX_MSGFILE_ERROR;
    }
    if (header.tag < last) {
      VX_LOG_ERR(kFunction, "Message is not in tag/parm sequence");
      return VX_MSGFILE_ERROR;
    }
    last = header.tag;
    data[header.length] = '\0';
    const VX_STATUS status = taker.record(header.tag, header.parameter, {data, header.length});
    if (status != kOk) return status;
  }
  if (got < 0) {
    VX_LOG_ERR(kFunction, "Error reading message info file.");
    return VX_MSGFILE_ERROR;
  }
  return taker.finish();
}

#undef FAIL

}  // namespace

bool has_no_template(uint16_t command) {
  return command == C_STORE_RSP || command == N_DELETE_RQ || command == N_DELETE_RSP ||
         command == C_ECHO_RQ || command == C_ECHO_RSP;
}

VX_STATUS parse_vr(std::string_view data, int32_t& vr) {
  const int32_t code = data.size() < 2 ? -1 : vr_from_letters(data[0], data[1]);
  if (code < 0 || code == VX_VR_UN) {
    VX_LOG_ERR(kFunction, "Invalid VR Code in message.");
    return VX_MSGFILE_ERROR;
  }
  vr = code;
  return kOk;
}

VX_STATUS parse_type(std::string_view data, int32_t& type) {
  type = attribute_type_from_text(data.data(), data.size());
  if (type != kTypeNotSet) return kOk;
  VX_LOG_ERR(kFunction, "Invalid Cond.Type in message.");
  return VX_MSGFILE_ERROR;
}

VX_STATUS read_records(const TemplateRequest& request, RecordTaker& taker) {
  InfoFile file(request.path);
  if (!file.is_open() && has_no_template(request.command)) return taker.finish();
  if (!is_there(file)) return VX_MSGFILE_ERROR;
  if (!locate(file, request)) {
    VX_LOG_ERR(kFunction, "Error getting offset in info file.");
    return VX_MSGFILE_ERROR;
  }
  struct Buffer {  // a taker may run out of memory
    char* data = static_cast<char*>(allocate_raw(kMaxData + 1));
    ~Buffer() { release(data); }
  } buffer;
  return buffer.data == nullptr ? VX_SYSTEM_ERROR : take_records(file, buffer.data, taker);
}

VX_STATUS list_commands(const TemplateRequest& request, std::vector<uint16_t>& commands) {
  InfoFile file(request.path);
  Directories directories;
  if (!is_there(file) || !read_signature(file) || !read_preamble(file, directories)) return VX_MSGFILE_ERROR;
  if (request.number < 1 || request.number > directories.message_count) return kOk;
  if (!seek_commands(file, directories, request.number)) return VX_MSGFILE_ERROR;
  std::vector<std::pair<uint16_t, uint32_t>> bodies;
  uint16_t command = 0;
  uint32_t offset = 0;
  while (bodies.size() < kMaxCommands && file.read16(command) && command != 0 && file.read32(offset))
    bodies.emplace_back(command, offset);
  for (const auto& [known, place] : bodies) {
    RecordHeader header{};
    const bool any = file.seek(static_cast<uint64_t>(directories.info_offset) + place) &&
                     read_header(file, header) == 1 && read_header(file, header) == 1;
    if (any && header.tag != kMarker) commands.push_back(known);
  }
  return kOk;
}

}  // namespace vx
