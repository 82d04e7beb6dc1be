// The loaded dictionary: the chains of the public record form, and a hash beside them that serves lookups.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "frame/status.h"

namespace vx {

// One read from a file: the bytes, which names and codes point into, and the entries in file order.
struct DictionaryFile {
  char* bytes = nullptr;  // owned, from malloc
  std::vector<DictEntry> entries;

  DictionaryFile() = default;
  DictionaryFile(const DictionaryFile&) = delete;
  DictionaryFile& operator=(const DictionaryFile&) = delete;
  ~DictionaryFile();
};

// Reads the file at `path`. On a failure, logged, the entries before it are there. VX_DDFILE_ERROR,
// VX_SYSTEM_ERROR.
VX_STATUS read_dictionary_file(const char* path, DictionaryFile& file);
// The records in `bytes`, which are changed in place: names and codes get their terminators.
VX_STATUS parse_dictionary(char* bytes, std::size_t size, std::vector<DictEntry>& entries);

// Puts a file, or the chains of a caller's record, in the place of the table.
void install_dictionary(DictionaryFile* file);  // taken over
void install_dictionary(const DictEntry* const* chains);

}  // namespace vx
