// The loaded dictionary: the chains of the public record form, and a hash beside them that serves lookups.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "frame/status.h"

namespace vx {

// Takes fresh memory in one step: page by page it costs more than reading the file.
void touch_memory(void* start, std::size_t size);

// Texts that stay where they are until all go at once.
class NameArena {
 public:
  NameArena() = default;
  NameArena(const NameArena&) = delete;
  NameArena& operator=(const NameArena&) = delete;
  ~NameArena();
  // A NUL-terminated copy. Throws bad_alloc.
  const char* add(std::string_view text);

 private:
  std::vector<char*> blocks_;
  std::size_t left_ = 0;
  char* next_ = nullptr;
};

// A dictionary file in memory: entries in file order, their names, and each creator code once.
struct DictionaryFile {
  std::vector<DictEntry> entries;
  NameArena texts;
};

// Reads the file at `path`, or the bytes of one. On a failure, logged, the entries before it are there.
// VX_DDFILE_ERROR. Throws bad_alloc.
VX_STATUS read_dictionary_file(const char* path, DictionaryFile& file);
VX_STATUS read_dictionary_bytes(const char* bytes, std::size_t size, DictionaryFile& file);

// Puts a file, or the chains of a caller's record, in the place of the table.
void install_dictionary(DictionaryFile* file);  // taken over
void install_dictionary(const DictEntry* const* chains);

// A hash of a creator code, never 0.
uint32_t hash_code(std::string_view code);

}  // namespace vx
