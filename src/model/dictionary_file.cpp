#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "codec/byte_order.h"
#include "config/config.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "frame/seams.h"
#include "model/dictionary_table.h"
#include "model/object.h"
#include "model/vr.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VXI_Load_Dictionary";
constexpr uint32_t kVariableNames = 0xF006F006;
constexpr uint32_t kFixedNames = 0xF005F005;
constexpr std::size_t kFixedNameSize = 64;
constexpr std::size_t kCodeSize = kMaxCreatorCode;
constexpr std::size_t kHeaderSize = 8;

// The first piece that is read, at least and at most; and the end of what may still be a dictionary.
constexpr std::size_t kSmallestRead = 64U << 10;
constexpr std::size_t kLargestFirstRead = 64U << 20;
constexpr std::size_t kLargestFile = 512U << 20;

// Takes the parts of a record; every read is bounds-checked.
class Cursor {
 public:
  Cursor(char* bytes, std::size_t size) : at_(bytes), end_(bytes + size) {}
  std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
  char* take(std::size_t size) {
    if (left() < size) return nullptr;
    char* bytes = at_;
    at_ += size;
    return bytes;
  }
  // A text up to its NUL, which is taken too.
  char* take_text(std::size_t& length) {
    auto* nul = static_cast<char*>(std::memchr(at_, 0, left()));
    if (nul == nullptr) return nullptr;
    char* text = at_;
    length = static_cast<std::size_t>(nul - text);
    at_ = nul + 1;
    return text;
  }

 private:
  char* at_;
  char* end_;
};

struct Record {
  uint32_t tag = 0;
  int32_t vr = 0;
  uint8_t low = 0;
  uint8_t high = 0;
  char* name = nullptr;
  char* code = nullptr;
};

bool unreadable(const char* part, int error) {
  VX_LOG_ERR(kFunction, "Error reading a %s from the data dictionary file: %s", part,
             system_error_text(error));
  return false;
}

bool take_name(Cursor& cursor, bool fixed, Record& record) {
  std::size_t length = 0;
  if (fixed) {
    record.name = cursor.take(kFixedNameSize);
    if (record.name != nullptr) record.name[kFixedNameSize - 1] = '\0';
  } else {
    record.name = cursor.take_text(length);
    if (record.name != nullptr && length > kMaxName) record.name[kMaxName] = '\0';
  }
  return record.name != nullptr || unreadable("name", 0);
}

bool take_code(Cursor& cursor, Record& record) {
  record.code = cursor.take(kCodeSize);
  if (record.code == nullptr) return unreadable("name", 0);
  record.code[kCodeSize - 1] = '\0';
  std::size_t length = std::strlen(record.code);
  while (length > 0 && record.code[length - 1] == ' ') --length;
  record.code[length] = '\0';
  return true;
}

bool take_header(Cursor& cursor, Record& record) {
  const std::size_t left = cursor.left();
  const char* header = cursor.take(kHeaderSize);
  if (header == nullptr) {
    return unreadable(left < 4 ? "tag" : left < 6 ? "VR" : left < 7 ? "VM_low" : "VM_high", 0);
  }
  record.tag = load32(header, true);
  record.vr = load16(header + 4, true);
  record.low = static_cast<uint8_t>(header[6]);
  record.high = static_cast<uint8_t>(header[7]);
  return true;
}

// Tags rise; for private ones it is tag and code together.
struct Order {
  bool any = false;
  uint32_t tag = 0;
  const char* code = "";

  bool accept(const Record& record) {
    const bool rises = !any || record.tag > tag;
    if (is_private(record.tag)) {
      if (!rises && std::strcmp(record.code, code) == 0) {
        VX_LOG_ERR(kFunction, "Private dictionary sequence: %8.8lx,%s follows %8.8lx,%s",
                   static_cast<unsigned long>(record.tag), record.code, static_cast<unsigned long>(tag),
                   code);
        return false;
      }
      code = record.code;
    } else if (!rises) {
      VX_LOG_ERR(kFunction, "Dictionary sequence: %8.8lx follows %8.8lx",
                 static_cast<unsigned long>(record.tag), static_cast<unsigned long>(tag));
      return false;
    }
    any = true;
    tag = record.tag;
    return true;
  }
};

DictEntry to_entry(const Record& record) {
  DictEntry entry{};
  entry.Tag = is_private(record.tag) ? record.tag & 0xFFFF00FFU : record.tag;
  entry.VR = record.vr;
  entry.VMLow = record.low;
  entry.VMHigh = record.high;
  entry.Name = record.name;
  entry.PrivateCode = record.code;
  return entry;
}

class Descriptor {
 public:
  explicit Descriptor(const char* path) : fd_(::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

bool known_signature(const char* bytes, std::size_t size) {
  if (size < 4) return true;  // too short to tell; the parser does
  const uint32_t tag = load32(bytes, true);
  return tag == kVariableNames || tag == kFixedNames;
}

// The whole file in one buffer. Its size is only a first guess: the buffer grows with what is there.
VX_STATUS read_all(int fd, char*& bytes, std::size_t& size) {
  struct stat info {};
  std::size_t capacity = kSmallestRead;
  if (::fstat(fd, &info) == 0 && info.st_size > 0) {
    capacity = std::clamp(static_cast<std::size_t>(info.st_size) + 1, kSmallestRead, kLargestFirstRead);
  }
  bytes = static_cast<char*>(std::malloc(capacity));
  size = 0;
  while (bytes != nullptr) {
    const ssize_t got = ::read(fd, bytes + size, capacity - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      unreadable("tag", errno);
      return VX_DDFILE_ERROR;
    }
    if (got == 0) return kOk;
    size += static_cast<std::size_t>(got);
    if (!known_signature(bytes, size)) return kOk;
    if (size < capacity) continue;
    if (capacity >= kLargestFile) {
      unreadable("tag", EFBIG);
      return VX_DDFILE_ERROR;
    }
    capacity *= 2;
    auto* grown = static_cast<char*>(std::realloc(bytes, capacity));
    if (grown == nullptr) break;
    bytes = grown;
  }
  VX_LOG_ERR(kFunction, "Out of Memory!");
  return VX_SYSTEM_ERROR;
}

VX_STATUS load(DictionaryFile& file) {
  const std::string configured = config_text(VX_CFG_DICTIONARY_FILE);
  if (configured.empty()) return VX_MISSING_CONFIG_PARM;
  std::string path;
  if (!expand_path(configured.c_str(), path)) {
    VX_LOG_ERR(kFunction, "Can't open %s", configured.c_str());
    return VX_DDFILE_ERROR;
  }
  return read_dictionary_file(path.c_str(), file);
}

}  // namespace

DictionaryFile::~DictionaryFile() {
  std::free(bytes);
}

VX_STATUS parse_dictionary(char* bytes, std::size_t size, std::vector<DictEntry>& entries) {
  Cursor cursor(bytes, size);
  Order order;
  bool fixed = false;
  for (bool first = true; cursor.left() > 0; first = false) {
    Record record;
    if (!take_header(cursor, record)) return VX_DDFILE_ERROR;
    if (first && record.tag != kVariableNames && record.tag != kFixedNames) {
      VX_LOG_ERR(kFunction, "A data dictionary generated by release 2.3.3 or later must be used");
      return VX_DDFILE_ERROR;
    }
    if (first) fixed = record.tag == kFixedNames;
    if (!take_name(cursor, fixed, record)) return VX_DDFILE_ERROR;
    if (first) continue;
    if (!is_vr(record.vr)) {
      unreadable("VR", EINVAL);
      return VX_DDFILE_ERROR;
    }
    if (is_private(record.tag) && !take_code(cursor, record)) return VX_DDFILE_ERROR;
    if (!order.accept(record)) return VX_DDFILE_ERROR;
    entries.push_back(to_entry(record));
  }
  return kOk;
}

VX_STATUS read_dictionary_file(const char* path, DictionaryFile& file) {
  const Descriptor descriptor(path);
  if (descriptor.get() < 0) {
    VX_LOG_ERR(kFunction, "Can't open %s", path);
    return VX_DDFILE_ERROR;
  }
  std::size_t size = 0;
  VX_STATUS status = read_all(descriptor.get(), file.bytes, size);
  if (status == kOk) {
    // Private records, the larger ones, are the bulk of a large file.
    file.entries.reserve(std::max<std::size_t>(size / 300, 64));
    status = parse_dictionary(file.bytes, size, file.entries);
  }
  if (status == VX_DDFILE_ERROR) VX_LOG_ERR(kFunction, "Error reading %s", path);
  return status;
}

VX_STATUS dictionary_load_file() {
  dictionary_drop();
  try {
    auto file = std::make_unique<DictionaryFile>();
    const VX_STATUS status = load(*file);
    if (status == VX_MISSING_CONFIG_PARM) return status;
    install_dictionary(file.release());
    return status;
  } catch (const std::bad_alloc&) {
    VX_LOG_ERR(kFunction, "Out of Memory!");
    return VX_SYSTEM_ERROR;
  }
}

}  // namespace vx
