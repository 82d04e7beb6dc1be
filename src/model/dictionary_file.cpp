// The reader of dictionary files. The file is walked through a small window: most of its bytes are the
// padding of creator codes, which would cost more in fresh memory than in reading.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "config/config.h"
#include "frame/byte_order.h"
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
constexpr std::size_t kWindow = 64U << 10;
constexpr std::size_t kTextBlock = 64U << 10;
// More than any dictionary: the end for a path that leads to an endless device.
constexpr uint64_t kLargestFile = 512U << 20;

// The bytes of the file in order. A taken piece is valid until the next one is taken.
class Source {
 public:
  explicit Source(int fd) : fd_(fd), buffer_(new char[kWindow]), at_(buffer_.get()), end_(at_) {}
  Source(const char* bytes, std::size_t size) : at_(bytes), end_(bytes + size) {}

  // `size` bytes, or null at the end of the file or on an error.
  const char* take(std::size_t size) {
    if (left() < size && !fill(size)) return nullptr;
    const char* piece = at_;
    at_ += size;
    return piece;
  }
  // Bytes at hand, at least one unless the file has ended.
  std::size_t available() { return left() > 0 || fill(1) ? left() : 0; }
  int error() const { return error_; }

 private:
  std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
  bool fill(std::size_t size) {
    if (buffer_ == nullptr) return false;
    char* buffer = buffer_.get();
    std::size_t held = left();
    std::memmove(buffer, at_, held);
    while (held < size) {
      const ssize_t got = ::read(fd_, buffer + held, kWindow - held);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) error_ = errno;
      if (got > 0) total_ += static_cast<uint64_t>(got);
      if (total_ > kLargestFile) error_ = EFBIG;
      if (got <= 0 || error_ != 0) break;
      held += static_cast<std::size_t>(got);
    }
    at_ = buffer;
    end_ = buffer + held;
    return held >= size;
  }

  int fd_ = -1;
  std::unique_ptr<char[]> buffer_;  // null for bytes in memory
  const char* at_;
  const char* end_;
  uint64_t total_ = 0;
  int error_ = 0;
};

// Each creator code once, however many attributes it has.
class CodeTable {
 public:
  explicit CodeTable(NameArena& texts) : texts_(texts), slots_(2048) {}
  const char* find_or_add(std::string_view code) {
    if (count_ * 2 >= slots_.size()) grow();
    const char*& slot = place(code);
    if (slot == nullptr) {
      slot = texts_.add(code);
      ++count_;
    }
    return slot;
  }

 private:
  const char*& place(std::string_view code) {
    for (std::size_t at = hash_code(code) >> 1;; ++at) {
      const char*& slot = slots_[at & (slots_.size() - 1)];
      if (slot == nullptr || code == slot) return slot;
    }
  }
  void grow() {
    std::vector<const char*> old(slots_.size() * 2);
    old.swap(slots_);
    for (const char* code : old) {
      if (code != nullptr) place(code) = code;
    }
  }

  NameArena& texts_;
  std::vector<const char*> slots_;  // a power of two of them
  std::size_t count_ = 0;
};

struct Record {
  uint32_t tag = 0;
  int32_t vr = 0;
  uint8_t low = 0;
  uint8_t high = 0;
  char name[kMaxName + 1];
  std::size_t name_length = 0;
  const char* code = nullptr;
};

// Tags rise; for private ones it is tag and code together.
struct Order {
  bool any = false;
  uint32_t tag = 0;
  const char* code = "";

  bool accept(const Record& record) {
    const bool rises = !any || record.tag > tag;
    if (is_private(record.tag)) {
      if (!rises && record.code == code) {
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

class Reader {
 public:
  Reader(Source& source, DictionaryFile& file) : source_(source), file_(file), codes_(file.texts) {}
  bool read_all();

 private:
  bool read_header(Record& record);
  bool read_name(Record& record);
  bool read_code(Record& record);
  void add(const Record& record);
  bool failed(const char* part, int error = 0) {
    VX_LOG_ERR(kFunction, "Error reading a %s from the data dictionary file: %s", part,
               system_error_text(error != 0 ? error : source_.error()));
    return false;
  }

  Source& source_;
  DictionaryFile& file_;
  CodeTable codes_;
  bool fixed_names_ = false;
};

bool Reader::read_header(Record& record) {
  const char* header = source_.take(kHeaderSize);
  if (header == nullptr) {
    const std::size_t left = source_.available();
    return failed(left < 4 ? "tag" : left < 6 ? "VR" : left < 7 ? "VM_low" : "VM_high");
  }
  record.tag = load32(header, true);
  record.vr = load16(header + 4, true);
  record.low = static_cast<uint8_t>(header[6]);
  record.high = static_cast<uint8_t>(header[7]);
  return true;
}

// The name, cut to its greatest length.
bool Reader::read_name(Record& record) {
  std::size_t length = 0;
  if (fixed_names_) {
    const char* name = source_.take(kFixedNameSize);
    if (name == nullptr) return failed("name");
    length = ::strnlen(name, kFixedNameSize - 1);
    std::memcpy(record.name, name, length);
    record.name_length = length;
    return true;
  }
  for (;;) {
    const std::size_t available = source_.available();
    if (available == 0) return failed("name");
    const char* piece = source_.take(0);
    const auto* nul = static_cast<const char*>(std::memchr(piece, 0, available));
    const std::size_t size = nul == nullptr ? available : static_cast<std::size_t>(nul - piece);
    const std::size_t room = std::min(size, kMaxName - length);
    std::memcpy(record.name + length, piece, room);
    length += room;
    source_.take(nul == nullptr ? size : size + 1);
    if (nul != nullptr) break;
  }
  record.name_length = length;
  return true;
}

bool Reader::read_code(Record& record) {
  const char* field = source_.take(kCodeSize);
  if (field == nullptr) return failed("private code");
  std::size_t length = ::strnlen(field, kCodeSize - 1);
  while (length > 0 && field[length - 1] == ' ') --length;
  record.code = codes_.find_or_add({field, length});
  return true;
}

void Reader::add(const Record& record) {
  DictEntry entry{};
  entry.Tag = is_private(record.tag) ? record.tag & 0xFFFF00FFU : record.tag;
  entry.VR = record.vr;
  entry.VMLow = record.low;
  entry.VMHigh = record.high;
  entry.Name = file_.texts.add({record.name, record.name_length});
  entry.PrivateCode = record.code;
  file_.entries.push_back(entry);
}

bool Reader::read_all() {
  Order order;
  for (bool first = true; source_.available() > 0; first = false) {
    Record record;
    if (!read_header(record)) return false;
    if (first && record.tag != kVariableNames && record.tag != kFixedNames) {
      VX_LOG_ERR(kFunction, "A data dictionary generated by release 2.3.3 or later must be used");
      return false;
    }
    if (first) fixed_names_ = record.tag == kFixedNames;
    if (!read_name(record)) return false;
    if (first) continue;
    if (!is_vr(record.vr)) return failed("VR", EINVAL);
    if (is_private(record.tag) && !read_code(record)) return false;
    if (!order.accept(record)) return false;
    add(record);
  }
  return source_.error() == 0 || failed("tag");
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

void touch_memory(void* start, std::size_t size) {
#ifdef MADV_POPULATE_WRITE
  constexpr std::uintptr_t kPage = 4096;
  const std::uintptr_t first = (reinterpret_cast<std::uintptr_t>(start) + kPage - 1) & ~(kPage - 1);
  const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(start) + size) & ~(kPage - 1);
  // A refusal is no fault: the pages then come one by one.
  if (end > first) ::madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_WRITE);
#else
  static_cast<void>(start);
  static_cast<void>(size);
#endif
}

NameArena::~NameArena() {
  for (char* block : blocks_) delete[] block;
}

const char* NameArena::add(std::string_view text) {
  const std::size_t size = text.size() + 1;
  if (left_ < size) {
    const std::size_t block = std::max(kTextBlock, size);
    blocks_.reserve(blocks_.size() + 1);
    blocks_.push_back(next_ = new char[block]);
    left_ = block;
    touch_memory(next_, block);
  }
  char* copy = next_;
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  next_ += size;
  left_ -= size;
  return copy;
}

VX_STATUS read_dictionary_bytes(const char* bytes, std::size_t size, DictionaryFile& file) {
  Source source(bytes, size);
  return Reader(source, file).read_all() ? kOk : VX_DDFILE_ERROR;
}

VX_STATUS read_dictionary_file(const char* path, DictionaryFile& file) {
  const Descriptor descriptor(path);
  if (descriptor.get() < 0) {
    VX_LOG_ERR(kFunction, "Can't open %s", path);
    return VX_DDFILE_ERROR;
  }
  // Private records, the larger ones, are the bulk of a large file.
  struct stat info {};
  const bool sized = ::fstat(descriptor.get(), &info) == 0 && info.st_size > 0;
  file.entries.reserve(
      std::min<std::size_t>(sized ? static_cast<std::size_t>(info.st_size) / 300 : 0, 1U << 16));
  touch_memory(file.entries.data(), file.entries.capacity() * sizeof(DictEntry));
  Source source(descriptor.get());
  if (Reader(source, file).read_all()) return kOk;
  VX_LOG_ERR(kFunction, "Error reading %s", path);
  return VX_DDFILE_ERROR;
}

VX_STATUS dictionary_load_file() {
  dictionary_drop();
  try {
    auto file = std::make_unique<DictionaryFile>();
    VX_STATUS status;
    try {
      status = load(*file);
    } catch (const std::bad_alloc&) {
      VX_LOG_ERR(kFunction, "Out of Memory!");
      status = VX_SYSTEM_ERROR;
    }
    if (status != VX_MISSING_CONFIG_PARM) install_dictionary(file.release());
    return status;
  } catch (const std::bad_alloc&) {
    VX_LOG_ERR(kFunction, "Out of Memory!");
    return VX_SYSTEM_ERROR;
  }
}

}  // namespace vx
