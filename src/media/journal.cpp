#include "media/journal.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "frame/byte_order.h"
#include "frame/log.h"

namespace vx {

namespace {

constexpr char kMark[] = "VXJ1";
constexpr std::size_t kMarkLength = 4;
constexpr std::size_t kHeadLength = kMarkLength + 8;
constexpr std::size_t kLargest = 64U << 20;  // of a journal that is read back

void append_number(std::string& out, uint64_t value) {
  char bytes[8];
  store32(bytes, static_cast<uint32_t>(value), false);
  store32(bytes + 4, static_cast<uint32_t>(value >> 32), false);
  out.append(bytes, sizeof bytes);
}
uint64_t number_at(const std::string& bytes, std::size_t at) {
  return load32(bytes.data() + at, false) | uint64_t{load32(bytes.data() + at + 4, false)} << 32;
}
uint32_t checksum(const char* data, std::size_t length) {
  return static_cast<uint32_t>(::crc32_z(0, reinterpret_cast<const Bytef*>(data), length));
}

// An empty text if there is none.
std::string read_text(const char* path, bool& exists) {
  std::string text;
  const int handle = ::open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  exists = handle >= 0 || errno != ENOENT;
  if (handle < 0) return text;
  char block[4096];
  for (ssize_t got = 0; text.size() < kLargest && (got = ::read(handle, block, sizeof block)) > 0;) {
    text.append(block, static_cast<std::size_t>(got));
  }
  ::close(handle);
  return text;
}

}  // namespace

Journal::Journal(FileOp& file) : file_(file), path_(std::string(file.Path) + ".vxj"), size_(file.Size) {}

bool Journal::keep(uint64_t offset, uint64_t length) {
  Piece piece{offset, {}};
  const uint64_t end = std::min(offset + length, size_);
  while (offset < end) {
    uint32_t available = 0;
    const auto part = static_cast<uint32_t>(std::min<uint64_t>(end - offset, file_.BufferSize));
    const uint8_t* bytes = view_file(file_, offset, part, available);
    if (bytes == nullptr || available < part) return false;
    piece.bytes.append(reinterpret_cast<const char*>(bytes), part);
    offset += part;
  }
  pieces_.push_back(std::move(piece));
  return true;
}

std::string Journal::encode() const {
  std::string out(kMark, kMarkLength);
  append_number(out, size_);
  for (const Piece& piece : pieces_) {
    append_number(out, piece.offset);
    append_number(out, piece.bytes.size());
    out += piece.bytes;
  }
  char sum[4];
  store32(sum, checksum(out.data(), out.size()), false);
  return out.append(sum, sizeof sum);
}

// False for one that did not come to its end: the file was not touched then. Undoing never makes a file
// larger than it is or the kept bytes reach.
bool Journal::decode(const std::string& bytes) {
  if (bytes.size() < kHeadLength + 4 || bytes.compare(0, kMarkLength, kMark) != 0) return false;
  const std::size_t end = bytes.size() - 4;
  if (load32(bytes.data() + end, false) != checksum(bytes.data(), end)) return false;
  size_ = number_at(bytes, kMarkLength);
  uint64_t reach = file_.Size;
  for (std::size_t at = kHeadLength; at < end;) {
    if (end - at < 16) return false;
    const uint64_t offset = number_at(bytes, at);
    const uint64_t length = number_at(bytes, at + 8);
    if (length > end - at - 16 || offset > reach || length > size_ - std::min(size_, offset)) return false;
    pieces_.push_back({offset, bytes.substr(at + 16, length)});
    reach = std::max(reach, offset + length);
    at += 16 + length;
  }
  return size_ <= reach;
}

bool Journal::begin() {
  const std::string bytes = encode();
  if (bytes.size() > kLargest) return false;  // nobody would read it back
  if (write_whole_file(path_.c_str(), bytes.data(), bytes.size())) return true;
  remove_file(path_);
  return false;
}

bool Journal::end() {
  return remove_file(path_);
}

bool Journal::restore() {
  for (const Piece& piece : pieces_) {
    if (!write_file_at(file_, piece.offset, piece.bytes.data(), piece.bytes.size())) return false;
  }
  return cut_file(file_, size_) && sync_file(file_) && refresh_size(file_);
}

bool Journal::undo() {
  return restore() && remove_file(path_);
}

bool Journal::recover(FileOp& file) {
  Journal journal(file);
  bool exists = false;
  read_text(journal.path_.c_str(), exists);
  if (!exists) return true;
  // Whoever holds the lock is at work, or goes away and leaves the journal to us.
  const bool read_only = file.ReadOnly;
  if (make_writable(file) != kOk) return false;
  if (!lock_file(file, true)) return true;  // its owner is at work
  const std::string bytes = read_text(journal.path_.c_str(), exists);
  bool done = true;
  if (exists) {
    const bool whole = journal.decode(bytes);
    if (whole) VX_LOG_WARN("VX_DDH_Open", "An update of %s was not finished: it is undone", file.Path);
    done = (!whole || journal.restore()) && remove_file(journal.path_);
  }
  lock_file(file, false);
  file.ReadOnly = read_only && file.ReadOnly;
  return done && refresh_size(file);
}

}  // namespace vx
