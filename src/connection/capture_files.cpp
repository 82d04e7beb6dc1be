// The capture of the library: files in a sniffer's form, in which each piece of data stands in a made-up
// Ethernet, IPv4 and TCP frame.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "config/config.h"
#include "connection/capture.h"
#include "frame/lock.h"
#include "frame/log.h"
#include "frame/named_locks.h"

namespace vx {
namespace {

constexpr std::size_t kHeaderSize = 128;
constexpr std::size_t kRecordSize = 82;
constexpr std::size_t kCountOffset = 16;
constexpr int32_t kMostData = 32000;  // of one record
constexpr std::size_t kMostPart = 255;
constexpr std::size_t kMostPath = 259;
constexpr uint32_t kFirstSequence = 1000;
constexpr uint32_t kLastSequence = 32000;

enum Flags : uint8_t { kFin = 0x01, kSyn = 0x02, kPush = 0x08, kAck = 0x10 };

// A file that is written to; it stays open while a stream or the shared mode holds it.
struct CaptureFile {
  std::string name;
  int fd = -1;
  int64_t FileLength = 0;  // of the records
  uint32_t PacketCount = 0;

  CaptureFile() = default;
  CaptureFile(const CaptureFile&) = delete;
  CaptureFile& operator=(const CaptureFile&) = delete;
  ~CaptureFile() { close(); }
  void close() {
    if (fd >= 0) ::close(fd);
    fd = -1;
  }
};

struct CaptureSide {
  uint32_t Address;  // as on the wire
  uint16_t Port;     // as on the wire
  uint32_t Sequence;
  uint32_t Acknowledge;
};

struct CaptureStream {
  std::array<uint8_t, kRecordSize> PacketBuffer{};
  CaptureSide SideA{};
  CaptureSide SideB{};
  std::shared_ptr<CaptureFile> File;
  bool SharedFile = false;
  bool Failed = false;
};

Lock captureSemaphore;
const NamedLock kNamedLock("S.captureSemaphore", captureSemaphore);
std::string g_base_path;                    // under captureSemaphore
std::string g_shared_path;                  // under captureSemaphore
std::shared_ptr<CaptureFile> g_shared;      // under captureSemaphore
int32_t g_current_file_number = 0;          // under captureSemaphore
std::array<uint8_t, kHeaderSize> g_header;  // under captureSemaphore
std::atomic<int64_t> g_most_bytes{0};       // of a file's records; 0 for no limit
std::atomic<int32_t> g_number_of_files{1};  // 1: no rotation
std::atomic<bool> g_rewrite{false};         // the rotation begins anew at its end
std::atomic<int64_t> g_begun{0};            // the second of the last Initialize
std::atomic<uint32_t> g_initial_sequence{kFirstSequence};
std::atomic<int64_t> g_last_second{0};
std::atomic<uint32_t> g_same_second_count{0};

void put_little(uint8_t* at, uint64_t value, int width) {
  for (int i = 0; i < width; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}
void put_big(uint8_t* at, uint32_t value, int width) {
  for (int i = 0; i < width; ++i) at[i] = static_cast<uint8_t>(value >> (8 * (width - 1 - i)));
}

// --- Files ---

// A file that is there already is taken over only if it is this user's, and has no other name: what another
// user made or linked there would let them read along, or have something else overwritten.
bool is_ours(const CaptureFile& file) {
  struct stat info {};
  return file.fd >= 0 && ::fstat(file.fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_nlink == 1 &&
         info.st_uid == ::geteuid() && ::flock(file.fd, LOCK_EX | LOCK_NB) == 0 &&
         ::fchmod(file.fd, 0600) == 0;
}

// Gives nothing after a line in the log. A file of the rotation is unlinked first, so that a connection that
// writes to it still keeps its records.
std::shared_ptr<CaptureFile> start_capture_file(const std::string& name, bool unlink_first) {
  static constexpr char kFunction[] = "VXI_StartNewCapFile";
  auto file = std::make_shared<CaptureFile>();
  file->name = name;
  if (unlink_first) ::unlink(name.c_str());
  file->fd = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (!is_ours(*file) || ::ftruncate(file->fd, 0) != 0) {
    VX_LOG_ERR(kFunction, "Unable to open %s", name.c_str());
    return nullptr;
  }
  if (::pwrite(file->fd, g_header.data(), g_header.size(), 0) != static_cast<ssize_t>(g_header.size())) {
    VX_LOG_ERR(kFunction, "Unable to write to %s", name.c_str());
    return nullptr;
  }
  return file;
}

// "net.cap" and 1 give "net001.cap"; empty when a part is too long.
std::string numbered_path(const std::string& base, int32_t number) {
  const std::size_t slash = base.rfind('/');
  const std::size_t name_at = slash == std::string::npos ? 0 : slash + 1;
  std::size_t dot = base.rfind('.');
  if (dot == std::string::npos || dot < name_at) dot = base.size();
  if (name_at > kMostPart || dot - name_at > kMostPart || base.size() - dot > kMostPart) return {};
  char digits[16];
  std::snprintf(digits, sizeof digits, "%.3d", number);
  std::string path = base.substr(0, dot) + digits + base.substr(dot);
  return path.size() > kMostPath ? std::string() : path;
}

// False when the connection goes unrecorded.
bool next_file_of_rotation(CaptureStream& stream) {
  const int32_t most = g_number_of_files.load();
  int32_t number = g_current_file_number >= most ? most + 1 : g_current_file_number + 1;
  if (number > most) {
    if (!g_rewrite.load()) return false;
    number = 1;
  }
  g_current_file_number = number;
  const std::string path = numbered_path(g_base_path, number);
  if (path.empty()) {
    VX_LOG_ERR("VXI_CAP_openNextFile", "Unable to open %s", g_base_path.c_str());
    return false;
  }
  stream.File = start_capture_file(path, true);
  return stream.File != nullptr;
}

bool open_shared_file(CaptureStream& stream) {
  stream.SharedFile = true;
  if (g_shared != nullptr && g_shared_path != g_base_path) g_shared = nullptr;
  if (g_shared == nullptr) {
    g_shared_path = g_base_path;
    g_shared = start_capture_file(g_base_path, false);
  }
  stream.File = g_shared;
  return g_shared != nullptr;
}

bool open_next_file(CaptureStream& stream) {
  const std::string path = config_text(VX_CFG_CAPTURE_FILE);
  const Guard guard(captureSemaphore);
  if (!path.empty()) g_base_path = path;
  const bool rotates = g_number_of_files.load() != 1 && g_most_bytes.load() >= 1;
  return rotates ? next_file_of_rotation(stream) : open_shared_file(stream);
}

// --- Records ---

// RFC 1071, to be finished.
uint32_t add_words(uint32_t sum, const uint8_t* bytes, std::size_t size) {
  uint64_t total = sum;
  for (std::size_t i = 0; i + 1 < size; i += 2) total += static_cast<uint32_t>(bytes[i] << 8 | bytes[i + 1]);
  if (size % 2 != 0) total += static_cast<uint32_t>(bytes[size - 1] << 8);
  while (total >> 16 != 0) total = (total & 0xFFFF) + (total >> 16);
  return static_cast<uint32_t>(total);
}
uint32_t finish(uint32_t sum) {
  return ~sum & 0xFFFF;
}

// Microseconds since the capture began, one apart within a second.
void put_time(uint8_t* at) {
  const int64_t now = ::time(nullptr);
  uint32_t count = 0;
  if (g_last_second.exchange(now) == now) {
    count = g_same_second_count.fetch_add(1) + 1;
  } else {
    g_same_second_count.store(0);
  }
  const uint64_t elapsed = static_cast<uint64_t>(std::max<int64_t>(0, now - g_begun.load())) * 1'000'000;
  put_little(at, elapsed + count, 4);
  put_little(at + 4, elapsed >> 32, 4);
}

uint32_t next_initial_sequence() {
  uint32_t value = g_initial_sequence.load();
  uint32_t next = 0;
  do {
    next = value + 1 > kLastSequence ? kFirstSequence : value + 1;
  } while (!g_initial_sequence.compare_exchange_weak(value, next));
  return next;
}

void build_record(CaptureStream& stream, const CaptureSide& source, const CaptureSide& destination,
                  uint8_t flags, const uint8_t* data, int32_t length) {
  uint8_t* record = stream.PacketBuffer.data();
  const auto size = static_cast<uint32_t>(length);
  stream.PacketBuffer.fill(0);
  put_time(record);
  put_little(record + 10, size + 54, 2);
  put_big(record + 40, 0x0800, 2);
  record[42] = 0x45;
  put_big(record + 44, size + 40, 2);
  put_big(record + 46, 0x05A3, 2);
  record[50] = 100;
  record[51] = 6;
  std::memcpy(record + 54, &source.Address, 4);
  std::memcpy(record + 58, &destination.Address, 4);
  put_big(record + 52, finish(add_words(0, record + 42, 20)), 2);
  std::memcpy(record + 62, &source.Port, 2);
  std::memcpy(record + 64, &destination.Port, 2);
  put_big(record + 66, source.Sequence, 4);
  put_big(record + 70, source.Acknowledge, 4);
  put_big(record + 74, 0x5000U | flags, 2);
  put_big(record + 76, 30000, 2);
  uint32_t sum = add_words(6 + size + 20, record + 54, 8);  // the pseudo-header
  sum = add_words(sum, record + 62, 20);
  put_big(record + 78, finish(add_words(sum, data, size)), 2);
}

int fail(CaptureStream& stream) {
  if (!stream.SharedFile) stream.File = nullptr;
  stream.Failed = true;
  return 1;
}

int write_record(CaptureStream& stream, const uint8_t* data, int32_t length) {
  static constexpr char kFunction[] = "VXI_CAP_writePacket";
  CaptureFile& file = *stream.File;
  const auto size = static_cast<std::size_t>(length);
  iovec pieces[] = {{stream.PacketBuffer.data(), kRecordSize}, {const_cast<uint8_t*>(data), size}};
  const auto end = static_cast<off_t>(kHeaderSize) + static_cast<off_t>(file.FileLength);
  const ssize_t written = ::pwritev(file.fd, pieces, length > 0 ? 2 : 1, end);
  if (written != static_cast<ssize_t>(kRecordSize + size)) {
    const bool in_header = written < static_cast<ssize_t>(kRecordSize);
    if (::ftruncate(file.fd, end) != 0)
      VX_LOG_ERR(kFunction, "Unable to seek to end of %s", file.name.c_str());
    VX_LOG_ERR(kFunction, in_header ? "Unable to write ptk header in %s" : "Unable to write pkt data in %s",
               file.name.c_str());
    return fail(stream);
  }
  file.FileLength += written;
  ++file.PacketCount;
  uint8_t count[4];
  put_little(count, file.PacketCount, 4);
  if (::pwrite(file.fd, count, sizeof count, kCountOffset) != sizeof count) {
    VX_LOG_ERR(kFunction, "Unable to update file header in %s", file.name.c_str());
    return fail(stream);
  }
  return 0;
}

int write_packet_locked(CaptureStream& stream, CaptureSide& source, CaptureSide& destination, uint8_t flags,
                        const uint8_t* data, int32_t length) {
  static constexpr char kFunction[] = "VXI_CAP_writePacket";
  if (stream.Failed) {
    if (!stream.SharedFile) stream.File = nullptr;
    return 0;
  }
  if (stream.File == nullptr) {
    VX_LOG_ERR(kFunction, "NULL pointer error");
    return fail(stream);
  }
  // The capture was stopped; if it runs again, this connection has no part in it.
  if (stream.File->fd < 0) {
    stream.Failed = true;
    return 0;
  }
  if (data != nullptr && length < 1) {
    VX_LOG_ERR(kFunction, "Invalid data length: %ld", static_cast<long>(length));
    return fail(stream);
  }
  const int64_t most = g_most_bytes.load();
  if (most > 0 && stream.File->FileLength > most) return 0;
  if ((flags & kSyn) != 0) source.Sequence = next_initial_sequence();
  build_record(stream, source, destination, flags, data, length);
  if (write_record(stream, data, length) != 0) return 1;
  const uint32_t grown = length > 0 ? static_cast<uint32_t>(length) : (flags & (kSyn | kFin)) != 0 ? 1 : 0;
  if (grown > 0) {
    source.Sequence += grown;
    destination.Acknowledge = source.Sequence;
  }
  return 0;
}

int write_packet(CaptureStream& stream, CaptureSide& source, CaptureSide& destination, uint8_t flags,
                 const uint8_t* data = nullptr, int32_t length = 0) {
  if (!stream.SharedFile) return write_packet_locked(stream, source, destination, flags, data, length);
  const Guard guard(captureSemaphore);
  return write_packet_locked(stream, source, destination, flags, data, length);
}

// --- The table ---

CaptureSide side_of(const sockaddr* address) {
  const auto* inet = reinterpret_cast<const sockaddr_in*>(address);
  return {inet->sin_addr.s_addr, inet->sin_port, 0, 0};
}

bool is_recorded(const sockaddr* address) {
  return address->sa_family != AF_INET6;
}

// What each function of a stream tests first: false when it is to give `result` at once.
bool ready(CaptureStream* stream, const sockaddr* sender, int32_t& result) {
  result = 0;
  if (!is_recorded(sender)) return false;
  if (stream == nullptr) {
    VX_LOG_ERR("VXI_CAP_getSourceDest", "NULL pointer error");
    result = 1;
    return false;
  }
  if (!stream->Failed) return true;
  if (!stream->SharedFile) stream->File = nullptr;
  return false;
}

struct Direction {
  CaptureSide& source;
  CaptureSide& destination;
};

Direction direction_from(CaptureStream& stream, const sockaddr* sender) {
  const CaptureSide from = side_of(sender);
  if (from.Address == stream.SideA.Address && from.Port == stream.SideA.Port) {
    return {stream.SideA, stream.SideB};
  }
  return {stream.SideB, stream.SideA};
}

struct Step {
  bool forth;  // from the source
  uint8_t flags;
};
constexpr Step kHandshake[] = {{true, kSyn}, {false, kSyn | kAck}, {true, kAck}};
constexpr Step kFarewell[] = {{true, kFin | kAck}, {false, kAck}, {false, kFin | kAck}, {true, kAck}};

template <std::size_t Count>
int write_steps(CaptureStream& stream, const sockaddr* sender, const Step (&steps)[Count]) {
  const Direction way = direction_from(stream, sender);
  for (const Step& step : steps) {
    CaptureSide& from = step.forth ? way.source : way.destination;
    CaptureSide& to = step.forth ? way.destination : way.source;
    if (write_packet(stream, from, to, step.flags) != 0) return 1;
  }
  return 0;
}

int32_t initialization(void*, int32_t file_size, const char* file, int32_t files, int32_t rewrite) {
  if (file == nullptr) {
    VX_LOG_ERR("VXI_CAP_initialization", "NULL pointer error");
    return 1;
  }
  const Guard guard(captureSemaphore);
  try {
    g_base_path = file;
  } catch (const std::bad_alloc&) {
    return 1;
  }
  const int64_t now = ::time(nullptr);
  g_header.fill(0);
  std::memcpy(g_header.data(), "XCP", 4);
  std::memcpy(g_header.data() + 4, "001.100", 8);
  put_little(g_header.data() + 12, static_cast<uint64_t>(now), 4);
  put_little(g_header.data() + 60, 10'000'000, 4);
  g_begun.store(now);
  g_most_bytes.store(file_size >= 1 && file_size <= 31 ? 32768 : static_cast<int64_t>(file_size) * 1024);
  g_number_of_files.store(files > 0 ? files : 1);
  g_rewrite.store(rewrite != 0);
  return 0;
}

void stop(void*) {
  const Guard guard(captureSemaphore);
  if (g_shared != nullptr) g_shared->close();
  g_shared = nullptr;
}

void* open_stream(void*, const sockaddr* begun, const sockaddr* other) {
  auto stream = std::unique_ptr<CaptureStream>(new (std::nothrow) CaptureStream);
  if (stream == nullptr || !is_recorded(begun)) return stream.release();
  stream->SideA = side_of(begun);
  stream->SideB = side_of(other);
  try {
    stream->Failed = !open_next_file(*stream);
  } catch (const std::bad_alloc&) {
    stream->Failed = true;
  }
  return stream.release();
}

void close_stream(void*, void* stream) {
  delete static_cast<CaptureStream*>(stream);
}

int32_t connection_opened(void*, void* handle, const sockaddr* begun, const sockaddr*) {
  auto* stream = static_cast<CaptureStream*>(handle);
  int32_t result = 0;
  return ready(stream, begun, result) ? write_steps(*stream, begun, kHandshake) : result;
}

int32_t connection_closing(void*, void* handle, const sockaddr* ends, const sockaddr*) {
  auto* stream = static_cast<CaptureStream*>(handle);
  int32_t result = 0;
  if (!ready(stream, ends, result)) return result;
  result = write_steps(*stream, ends, kFarewell);
  if (!stream->SharedFile) stream->File = nullptr;
  return result;
}

int32_t data_sent(void*, void* handle, const sockaddr* sender, const sockaddr*, const void* data,
                  int32_t length) {
  auto* stream = static_cast<CaptureStream*>(handle);
  int32_t result = 0;
  if (!ready(stream, sender, result)) return result;
  if (length < 0) {
    VX_LOG_ERR("VXI_CAP_dataSent", "Invalid data length parm: %ld", static_cast<long>(length));
    return fail(*stream);
  }
  const Direction way = direction_from(*stream, sender);
  const auto* bytes = static_cast<const uint8_t*>(data);
  for (int32_t done = 0; done < length;) {
    const int32_t part = std::min(length - done, kMostData);
    if (write_packet(*stream, way.source, way.destination, kPush | kAck, bytes + done, part) != 0) return 1;
    done += part;
  }
  return 0;
}

}  // namespace

const NetworkCaptureCallbacks& capture_files() {
  static constexpr NetworkCaptureCallbacks kTable = {
      nullptr,           initialization,     stop,     open_stream, close_stream,
      connection_opened, connection_closing, data_sent};
  return kTable;
}

}  // namespace vx
