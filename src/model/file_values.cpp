#include "model/file_values.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/random.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "config/config.h"
#include "frame/log.h"
#include "model/values.h"

namespace vx {

// One block; its length word stands at Offset.
struct FileValueObj {
  uint32_t Length;
  int32_t Offset;
  int32_t File;
};

struct FileObj {
  const MsgObj* Owner;
  uint32_t Tag;
  pid_t Process;         // a child that was forked removes nothing
  bool Created[3] = {};  // files that exist
  int32_t End[3] = {};   // bytes written to each
  bool UseSecondFile = false;
  int DataHandle = -1;
  int DataFile = 1;  // what DataHandle stands on
  int TableHandle = -1;
  char FileName[3][256];
  std::vector<FileValueObj> Values;
  ValueObj* Viewed = nullptr;  // owned: the block last looked at
  FileObj* Next = nullptr;
  FileObj* Previous = nullptr;
};

int64_t file_limit = 0x7FFFFFFF;

namespace {

constexpr char kPut[] = "VXI_PutToFile";
constexpr char kRead[] = "VXI_ReadFileBlock";
constexpr int kNameTries = 16;
constexpr uint32_t kLengthWord = sizeof(uint32_t);

// All values on files: they outlive the pools that a reset drops, and go at the end of the process.
class LiveFiles {
 public:
  ~LiveFiles() { remove_all(); }
  void add(FileObj* file) {
    const std::lock_guard guard(lock_);
    file->Next = head_;
    if (head_ != nullptr) head_->Previous = file;
    head_ = file;
  }
  void take(FileObj* file) {
    const std::lock_guard guard(lock_);
    unlink(file);
  }
  void remove_all();

 private:
  void unlink(FileObj* file) {
    (file->Previous != nullptr ? file->Previous->Next : head_) = file->Next;
    if (file->Next != nullptr) file->Next->Previous = file->Previous;
    file->Next = file->Previous = nullptr;
  }
  std::mutex lock_;
  FileObj* head_ = nullptr;
};
LiveFiles live_files;

const char* system_error() {
  return std::strerror(errno);
}

void close_handle(int& handle) {
  if (handle >= 0) ::close(handle);
  handle = -1;
}

void close_handles(FileObj& file) {
  close_handle(file.DataHandle);
  close_handle(file.TableHandle);
}

void remove_file(FileObj& file, int number) {
  if (file.Created[number] && file.Process == ::getpid()) ::unlink(file.FileName[number]);
  file.Created[number] = false;
  file.End[number] = 0;
}

void remove_files(FileObj& file) {
  close_handles(file);
  for (int number = 0; number < 3; ++number) remove_file(file, number);
}

void LiveFiles::remove_all() {
  const std::lock_guard guard(lock_);
  while (head_ != nullptr) {
    FileObj* file = head_;
    unlink(file);
    remove_files(*file);
    delete file;  // what it viewed lies in the pools, which go too
  }
}

bool make_names(FileObj& file) {
  uint32_t random = 0;
  if (::getrandom(&random, sizeof random, 0) != sizeof random) return false;
  std::string folder = config_text(VX_CFG_TEMP_FILE_DIRECTORY);
  if (folder.empty() || folder.size() > 255) folder = ".";
  const char* separator = folder.back() == '/' ? "" : "/";
  for (int number = 0; number < 3; ++number) {
    const int length = std::snprintf(
        file.FileName[number], sizeof file.FileName[number], "%s%sTID%luRND%dTAG%8.8lxN%1.1d.%3.3d",
        folder.c_str(), separator, static_cast<unsigned long>(::gettid()),
        static_cast<int>(random & 0x7FFFFFFFU), static_cast<unsigned long>(file.Tag), number, file.Owner->ID);
    if (length >= static_cast<int>(sizeof file.FileName[number])) {
      VX_LOG_ERR(kPut, "Internal memory overwrite error in creating temporary file name.");
      return false;
    }
  }
  return true;
}

// A file is made once, by this process and nobody else; later it is only opened.
int open_file(FileObj& file, int number) {
  constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC;
  if (file.Created[number]) return ::open(file.FileName[number], kFlags);
  for (int tries = 0; tries < kNameTries; ++tries) {
    const int handle = ::open(file.FileName[number], kFlags | O_CREAT | O_EXCL, 0600);
    if (handle >= 0) {
      file.Created[number] = true;
      return handle;
    }
    const bool named = file.Created[0] || file.Created[1] || file.Created[2];
    if (errno != EEXIST || named || !make_names(file)) return -1;
  }
  return -1;
}

// A limit on the size of files ends as a status and not as a signal.
class NoFileSizeSignal {
 public:
  NoFileSizeSignal() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &set_, &old_);
  }
  ~NoFileSizeSignal() {
    if (raised_ && sigismember(&old_, SIGXFSZ) == 0) {
      const timespec now{};
      sigtimedwait(&set_, nullptr, &now);
    }
    const int kept = errno;
    pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    errno = kept;
  }
  NoFileSizeSignal(const NoFileSizeSignal&) = delete;
  NoFileSizeSignal& operator=(const NoFileSizeSignal&) = delete;
  void check(ssize_t written) { raised_ = raised_ || (written < 0 && errno == EFBIG); }

 private:
  sigset_t set_;
  sigset_t old_;
  bool raised_ = false;
};

bool write_at(int handle, int64_t offset, const void* head, std::size_t head_size, const void* data,
              std::size_t size) {
  NoFileSizeSignal guard;
  iovec parts[2] = {{const_cast<void*>(head), head_size}, {const_cast<void*>(data), size}};
  while (parts[0].iov_len + parts[1].iov_len != 0) {
    const ssize_t written = ::pwritev(handle, parts, 2, offset);
    guard.check(written);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    offset += written;
    auto left = static_cast<std::size_t>(written);
    for (iovec& part : parts) {
      const std::size_t taken = std::min(left, part.iov_len);
      part.iov_base = static_cast<char*>(part.iov_base) + taken;
      part.iov_len -= taken;
      left -= taken;
    }
  }
  return true;
}

// The bytes read; fewer than asked for at the end of the file and after an error.
std::size_t read_at(int handle, int64_t offset, void* to, std::size_t size) {
  std::size_t done = 0;
  errno = 0;
  while (done < size) {
    const ssize_t got =
        ::pread(handle, static_cast<char*>(to) + done, size - done, offset + static_cast<int64_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

void drop_view(FileObj& file) {
  if (file.Viewed != nullptr) free_value(file.Viewed);
  file.Viewed = nullptr;
}

VX_STATUS open_for_writing(FileObj& file, int number) {
  int& handle = number == 0 ? file.TableHandle : file.DataHandle;
  if (number != 0 && file.DataFile != number) close_handle(handle);
  if (handle < 0) handle = open_file(file, number);
  if (handle < 0) {
    VX_LOG_ERR(kPut, "Could not open temporary file (%s): %s", file.FileName[number], system_error());
    return VX_TEMP_FILE_ERROR;
  }
  if (number != 0) file.DataFile = number;
  return kOk;
}

VX_STATUS write_failed(FileObj& file, int number) {
  VX_LOG_ERR(kPut, "Error writing to temporary file: %s", file.FileName[number]);
  close_handles(file);
  return VX_TEMP_FILE_ERROR;
}

// One block at the end of a file, and its node at the head or the tail.
VX_STATUS add_block(FileObj& file, int number, const void* data, uint32_t length) {
  if (number == 1 && file.End[1] + int64_t{length} + kLengthWord >= file_limit) {
    file.UseSecondFile = true;
    number = 2;
  }
  if (file.End[number] + int64_t{length} + kLengthWord > file_limit) return VX_VALUE_TOO_LARGE;
  if (VX_STATUS status = open_for_writing(file, number); status != kOk) return status;
  const FileValueObj node{length, file.End[number], number};
  try {
    file.Values.insert(number == 0 ? file.Values.begin() : file.Values.end(), node);
  } catch (const std::bad_alloc&) {
    VX_LOG_ERR(kPut, "Failed to create value info node for temporary file. Error: %s", system_error());
    close_handles(file);
    return VX_SYSTEM_ERROR;
  }
  const int handle = number == 0 ? file.TableHandle : file.DataHandle;
  if (!write_at(handle, node.Offset, &length, sizeof length, data, length)) return write_failed(file, number);
  file.End[number] += static_cast<int32_t>(kLengthWord + length);
  return kOk;
}

// A text that is one value grows in its one block.
VX_STATUS grow_text(FileObj& file, const void* data, uint32_t length) {
  FileValueObj& node = file.Values.back();
  if (file.End[node.File] + int64_t{length} > file_limit) return VX_VALUE_TOO_LARGE;
  if (VX_STATUS status = open_for_writing(file, node.File); status != kOk) return status;
  const uint32_t total = node.Length + length;
  if (!write_at(file.DataHandle, file.End[node.File], nullptr, 0, data, length) ||
      !write_at(file.DataHandle, node.Offset, &total, sizeof total, nullptr, 0)) {
    return write_failed(file, node.File);
  }
  node.Length = total;
  file.End[node.File] += static_cast<int32_t>(length);
  return kOk;
}

VX_STATUS append_blocks(FileObj& file, TagObj& attribute, const void* data, uint32_t length) {
  if (is_one_value_text(attribute.VR) && !file.Values.empty()) return grow_text(file, data, length);
  const auto limit = static_cast<uint32_t>(std::max(config_int(VX_CFG_OBOW_BUFFER_SIZE), 1));
  const uint32_t block = is_text_vr(attribute.VR) ? length : limit;
  const auto* bytes = static_cast<const uint8_t*>(data);
  do {
    const uint32_t size = std::min(block, length);
    const VX_STATUS status = add_block(file, file.UseSecondFile ? 2 : 1, bytes, size);
    if (status != kOk) return status;
    ++attribute.ValueCount;
    bytes += size;
    length -= size;
  } while (length != 0);
  return kOk;
}

VX_STATUS open_for_reading(FileObj& file, const FileValueObj& node, const TagObj& attribute, int& handle) {
  if (node.File < 0 || node.File > 2) {
    VX_LOG_ERR(kRead, "Internal error. Temporary file to read not set properly !");
    return VX_SYSTEM_ERROR;
  }
  int& kept = node.File == 0 ? file.TableHandle : file.DataHandle;
  if (node.File != 0 && file.DataFile != node.File) close_handle(kept);
  if (kept < 0) kept = ::open(file.FileName[node.File], O_RDWR | O_NOFOLLOW | O_CLOEXEC);
  handle = kept;
  if (kept >= 0) {
    if (node.File != 0) file.DataFile = node.File;
    return kOk;
  }
  const int error = errno;
  const MsgObj& owner = *file.Owner;
  VX_LOG_ERR(kRead, "Could not open file for reading: %s", file.FileName[node.File]);
  VX_LOG_ERR(kRead, "Errno: (%d)%s", error, std::strerror(error));
  VX_LOG_ERR(kRead, "messageID = %d, Msg service = %s", owner.ID,
             owner.ServiceName != nullptr ? owner.ServiceName : "");
  switch (owner.ObjectKind) {
    case Kind::Message:
      VX_LOG_ERR(kRead, "Object is a message, command = %d", owner.Command);
      break;
    case Kind::File:
      VX_LOG_ERR(kRead, "Object is a file, command= %d", owner.Command);
      break;
    case Kind::Dicomdir:
      VX_LOG_ERR(kRead, "Object is a dicomdir");
      break;
    default:
      VX_LOG_ERR(kRead, "Object is an item");
  }
  VX_LOG_ERR(kRead, "Tag = %lx, length = %ld, valcount = %d", static_cast<unsigned long>(attribute.Tag),
             static_cast<long>(attribute.Length), attribute.ValueCount);
  return VX_TEMP_FILE_ERROR;
}

VX_STATUS read_block(FileObj& file, const TagObj& attribute, const FileValueObj& node, ValueObj*& piece) {
  int handle = -1;
  if (VX_STATUS status = open_for_reading(file, node, attribute, handle); status != kOk) return status;
  uint32_t length = 0;
  if (read_at(handle, node.Offset, &length, sizeof length) != sizeof length || length != node.Length) {
    const bool ended = errno == 0;
    VX_LOG_ERR(kRead, "The size of data block in temporary file is not valid");
    close_handles(file);
    return ended ? VX_EMPTY_VALUE : VX_TEMP_FILE_ERROR;
  }
  piece = new_value(node.Length);
  if (piece == nullptr) {
    VX_LOG_ERR(kRead, "Failed to create temporary value info block. Error: %s", system_error());
    close_handles(file);
    return VX_SYSTEM_ERROR;
  }
  if (read_at(handle, int64_t{node.Offset} + kLengthWord, piece->Data, node.Length) != node.Length) {
    VX_LOG_ERR(kRead, "Failed to read from temporary value [%d] bytes. Error: %s",
               static_cast<int>(node.Length), system_error());
    free_value(piece);
    piece = nullptr;
    close_handles(file);
    return VX_TEMP_FILE_ERROR;
  }
  // What is read to its end needs no open file: a program may hold very many values.
  if (&node == &file.Values.back()) {
    close_handles(file);
  } else if (node.File == 0) {
    close_handle(file.TableHandle);
  }
  return kOk;
}

// A value that can not be written goes, and the object stays usable.
VX_STATUS cleared(MsgObj& object, TagObj& attribute, VX_STATUS status) {
  if (status != kOk) clear_value(object, attribute, false, false);
  return status;
}

}  // namespace

bool goes_to_file(const MsgObj& object, const TagObj& attribute, uint64_t length) {
  return object.LargeDataStore != Stored::InMemory && length >= static_cast<uint64_t>(object.LargeDataSize) &&
         attribute.VR != VX_VR_SQ && !is_numeric_vr(attribute.VR) && attribute.Storage != Stored::ByCallback;
}

VX_STATUS begin_file_value(MsgObj& object, TagObj& attribute) {
  if (attribute.File == nullptr) {
    auto* file = new (std::nothrow) FileObj;
    if (file == nullptr) return VX_SYSTEM_ERROR;
    file->Owner = &object;
    file->Tag = attribute.Tag;
    file->Process = ::getpid();
    if (!make_names(*file)) {
      delete file;
      return VX_SYSTEM_ERROR;
    }
    attribute.File = file;
    live_files.add(file);
  }
  attribute.Storage = Stored::InFile;
  return kOk;
}

VX_STATUS append_to_file(MsgObj& object, TagObj& attribute, const void* data, uint32_t length, bool first,
                         bool last) {
  if (attribute.File == nullptr) return VX_SYSTEM_ERROR;
  FileObj& file = *attribute.File;
  drop_view(file);
  if (first) {
    file.Values.clear();
    attribute.Length = 0;
    attribute.ValueCount = 0;
  }
  VX_STATUS status = kOk;
  if (data != nullptr && length != 0) {
    uint32_t total = 0;
    if (__builtin_add_overflow(attribute.Length, length, &total) || total == kUndefinedLength) {
      return VX_VALUE_TOO_LARGE;
    }
    status = append_blocks(file, attribute, data, length);
    if (status != kOk) return cleared(object, attribute, status);
    attribute.Length = total;
  }
  if (last) close_handles(file);
  return status;
}

VX_STATUS set_first_in_file(MsgObj& object, TagObj& attribute, const void* data, uint32_t length, bool keep) {
  if (attribute.File == nullptr) return VX_SYSTEM_ERROR;
  FileObj& file = *attribute.File;
  drop_view(file);
  close_handle(file.TableHandle);
  remove_file(file, 0);
  if (!file.Values.empty()) {
    attribute.Length -= file.Values.front().Length;
    file.Values.erase(file.Values.begin());
  }
  if (!keep) {
    remove_files(file);
    file.Values.clear();
    file.UseSecondFile = false;
    attribute.Length = 0;
    attribute.ValueCount = 1;
  }
  uint32_t total = 0;
  if (__builtin_add_overflow(attribute.Length, length, &total) || total == kUndefinedLength) {
    return cleared(object, attribute, VX_VALUE_TOO_LARGE);
  }
  const VX_STATUS status = add_block(file, 0, data, length);
  close_handle(file.TableHandle);
  if (status != kOk) return cleared(object, attribute, status);
  attribute.Length = total;
  return kOk;
}

VX_STATUS patch_fragment_length(TagObj& attribute, uint32_t length) {
  if (attribute.File == nullptr || attribute.File->Values.size() < 2) return VX_SYSTEM_ERROR;
  FileObj& file = *attribute.File;
  const FileValueObj& header = file.Values[1];
  if (header.File == 0 || header.Length < 8) return VX_SYSTEM_ERROR;
  if (VX_STATUS status = open_for_writing(file, header.File); status != kOk) return status;
  const bool written =
      write_at(file.DataHandle, int64_t{header.Offset} + 8, &length, sizeof length, nullptr, 0);
  close_handle(file.DataHandle);
  return written ? kOk : VX_TEMP_FILE_ERROR;
}

VX_STATUS read_file_block(const TagObj& attribute, int32_t number, ValueObj*& piece) {
  piece = nullptr;
  if (attribute.File == nullptr || number < 1 ||
      static_cast<std::size_t>(number) > attribute.File->Values.size()) {
    return VX_NO_MORE_VALUES;
  }
  return read_block(*attribute.File, attribute, attribute.File->Values[static_cast<std::size_t>(number) - 1],
                    piece);
}

VX_STATUS view_file_block(const TagObj& attribute, int32_t number, const ValueObj*& piece) {
  piece = nullptr;
  if (attribute.File == nullptr) return VX_NO_MORE_VALUES;
  drop_view(*attribute.File);
  const VX_STATUS status = read_file_block(attribute, number, attribute.File->Viewed);
  piece = attribute.File->Viewed;
  return status;
}

uint32_t file_block_length(const TagObj& attribute, int32_t number) {
  if (attribute.File == nullptr || number < 1) return 0;
  const auto index = static_cast<std::size_t>(number) - 1;
  return index < attribute.File->Values.size() ? attribute.File->Values[index].Length : 0;
}

VX_STATUS delete_file_block(MsgObj& object, TagObj& attribute, int32_t number) {
  if (attribute.File == nullptr || number < 1 ||
      static_cast<std::size_t>(number) > attribute.File->Values.size()) {
    return VX_NO_MORE_VALUES;
  }
  FileObj& file = *attribute.File;
  file.Values.erase(file.Values.begin() + number - 1);
  --attribute.ValueCount;
  VX_STATUS status = load_file_value(object, attribute);
  if (status != kOk) return status;
  ValueObj* pieces = attribute.FirstValue;
  attribute.FirstValue = attribute.LastValue = nullptr;
  attribute.Length = 0;
  attribute.ValueCount = 0;
  status = begin_file_value(object, attribute);
  while (pieces != nullptr) {
    ValueObj* piece = pieces;
    pieces = piece->Next;
    if (status == kOk) {
      status = piece->Length != 0
                   ? append_to_file(object, attribute, piece->Data, piece->Length, false, false)
                   : append_null(attribute);
    }
    free_value(piece);
  }
  if (status == kOk && attribute.File != nullptr) close_handles(*attribute.File);
  return status;
}

VX_STATUS load_file_value(MsgObj& object, TagObj& attribute) {
  if (attribute.File == nullptr) return kOk;
  ValueObj* first = nullptr;
  ValueObj** tail = &first;
  ValueObj* last = nullptr;
  VX_STATUS status = kOk;
  const auto count = static_cast<int32_t>(attribute.File->Values.size());
  uint32_t total = 0;
  for (int32_t number = 1; number <= count && status == kOk; ++number) {
    status = read_file_block(attribute, number, *tail);
    if (status != kOk) break;
    last = *tail;
    total += last->Length;
    tail = &last->Next;
  }
  if (status != kOk) {
    while (first != nullptr) {
      ValueObj* next = first->Next;
      free_value(first);
      first = next;
    }
    return status;
  }
  clear_value(object, attribute, false, false);
  attribute.FirstValue = first;
  attribute.LastValue = last;
  attribute.ValueCount = count;
  attribute.Length = total;
  return kOk;
}

VX_STATUS append_null_to_file(TagObj& attribute) {
  if (attribute.File == nullptr) return VX_SYSTEM_ERROR;
  const VX_STATUS status = add_block(*attribute.File, attribute.File->UseSecondFile ? 2 : 1, nullptr, 0);
  if (status == kOk) ++attribute.ValueCount;
  close_handles(*attribute.File);
  return status;
}

void release_file_value(TagObj& attribute) {
  FileObj* file = attribute.File;
  if (file == nullptr) return;
  attribute.File = nullptr;
  drop_view(*file);
  live_files.take(file);
  remove_files(*file);
  delete file;
}

void release_all_file_values() {
  live_files.remove_all();
}

PieceWalk::~PieceWalk() {
  if (read_ != nullptr) free_value(read_);
}

bool PieceWalk::more() const {
  if (attribute_.Storage != Stored::InFile) return next_ != nullptr;
  return attribute_.File != nullptr && static_cast<std::size_t>(number_) < attribute_.File->Values.size();
}

const ValueObj* PieceWalk::next() {
  if (attribute_.Storage != Stored::InFile) {
    const ValueObj* piece = next_;
    if (piece != nullptr) next_ = piece->Next;
    return piece;
  }
  if (read_ != nullptr) free_value(read_);
  status_ = read_file_block(attribute_, ++number_, read_);
  if (status_ == VX_NO_MORE_VALUES) status_ = kOk;
  return read_;
}

}  // namespace vx
