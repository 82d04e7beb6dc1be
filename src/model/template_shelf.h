// What is read from the Message Info File once for each service and command, or item, and kept until the
// pools are dropped.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>

#include "frame/pool.h"
#include "model/info_records.h"

namespace vx {

// Contents have a Name and a Command. All calls under templateSemaphore.
template <typename Contents>
class Shelf {
 public:
  const Contents* find(const char* name, uint16_t command) const {
    const uint32_t hash = hash_name(name);
    for (const Book* book = buckets_[hash % kBuckets]; book != nullptr; book = book->next) {
      if (book->hash == hash && book->contents.Command == command &&
          std::strcmp(book->contents.Name, name) == 0) {
        return &book->contents;
      }
    }
    return nullptr;
  }
  // Null if there is no memory.
  const Contents* add(const Contents& contents) {
    auto* book = static_cast<Book*>(allocate(sizeof(Book)));
    if (book == nullptr) return nullptr;
    const uint32_t hash = hash_name(contents.Name);
    *book = {contents, hash, buckets_[hash % kBuckets]};
    buckets_[hash % kBuckets] = book;
    return &book->contents;
  }
  void drop() { std::memset(buckets_, 0, sizeof buckets_); }

 private:
  struct Book {
    Contents contents;
    uint32_t hash;
    Book* next;
  };
  static_assert(std::is_trivially_destructible_v<Book>);  // it lives in the pools
  static constexpr std::size_t kBuckets = 512;
  static uint32_t hash_name(const char* name) {
    uint32_t hash = 2166136261U;
    for (; *name != '\0'; ++name) hash = (hash ^ static_cast<uint8_t>(*name)) * 16777619U;
    return hash;
  }
  Book* buckets_[kBuckets];  // zero to begin with: shelves are static
};

// The number of a service, or of an item for command 0; -1 if the configuration does not know it.
int32_t template_number(const char* name, uint16_t command);
// The path of MSG_INFO_FILE. VX_MSGFILE_ERROR, after a line in the log.
VX_STATUS info_file_path(std::string& path);

// Calls read(request) with the file of the configuration.
template <typename Read>
VX_STATUS read_configured(const char* name, uint16_t command, Read read) try {
  std::string path;
  const VX_STATUS status = info_file_path(path);
  return status != kOk ? status : read({path.c_str(), name, command, template_number(name, command)});
} catch (const std::bad_alloc&) {
  return VX_SYSTEM_ERROR;
}

}  // namespace vx
