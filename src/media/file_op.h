// The file under a directory handler: reads through a window, writes that are all or nothing to the caller.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "frame/status.h"

namespace vx {

struct FileOp {
  char* Path;  // owned
  uint32_t BufferSize;
  uint8_t* Buffer;  // owned; the window
  bool ReadOnly;
  bool IsOpen;
  int Handle;
  uint64_t WindowStart;
  uint32_t WindowLength;
  uint64_t Size;
  dev_t Device;
  ino_t Inode;
};

// Null after a line in the log. The file is opened read-only; failures log "Can't open file in %s mode, ...".
FileOp* open_file_op(const char* path);
// Null is fine.
void free_file_op(FileOp* file);
// Opens the same path for changes. VX_CALLBACK_CANNOT_COMPLY; VX_INVALID_FILE: it is another file now.
VX_STATUS make_writable(FileOp& file);
// Takes the lock that all who change a directory take, or gives it back; false if another holds it.
bool lock_file(const FileOp& file, bool on);
// Whether path, size and file still are what was opened.
bool is_unchanged(const FileOp& file);
// Takes down the size.
bool refresh_size(FileOp& file);

// Up to `length` bytes at an offset (at most BufferSize); the pointer lives until the next read. Fewer at the
// end of the file; null on a failure.
const uint8_t* view_file(FileOp& file, uint64_t offset, uint32_t length, uint32_t& available);

bool write_file_at(FileOp& file, uint64_t offset, const void* data, std::size_t length);
bool reserve_file(FileOp& file, uint64_t length);
bool cut_file(FileOp& file, uint64_t length);
bool sync_file(FileOp& file);
// A file of its own, complete and on disk when true comes back.
bool write_whole_file(const char* path, const void* data, std::size_t length);
bool replace_file(const std::string& from, const char* to);
// True also where nothing of that name is. It is gone for good when true comes back.
bool remove_file(const std::string& path);

// For tests: what happens to the n-th write, cut, sync or removal from now; 0 switches off. Killed: half of
// what is written arrives, then the process ends.
enum class FileFault { Once, ForGood, Killed };
void fail_file_change_after(int n, FileFault fault);
bool may_change_file();

}  // namespace vx
