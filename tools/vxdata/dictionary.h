#pragma once
// The data dictionary: text tables in, binary file out, and back.

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "text.h"

namespace vxdata {

struct DictionaryEntry {
  uint32_t tag = 0;  // a private tag stands without its block: 0xGGGG00EE
  int vr = kVrUn;
  Multiplicity vm;
  std::string name;
  std::string keyword;
  std::string creator;  // of a private attribute
  bool retired = false;
  const std::string* file = nullptr;
  int line = 0;
};

class Dictionary {
 public:
  // Reads one text table; call it once a file, then sort().
  void read_text(const std::string& path, Problems& problems);
  // Brings the entries into the order of the binary file and reports entries that stand twice.
  void sort(Problems& problems);

  const std::vector<DictionaryEntry>& entries() const { return entries_; }
  // A tag with its block number, or any tag of a repeating group, is found as well.
  const DictionaryEntry* find(uint32_t tag, std::string_view creator = {}) const;

  std::string to_binary() const;
  void from_binary(const std::string& path, std::string_view bytes);
  std::string to_text() const;

 private:
  void read_public_line(const Line& line, const std::string& path, uint32_t& previous, Problems& problems);
  void read_private_line(const Line& line, const std::string& path, const std::string& creator,
                         uint32_t& previous, Problems& problems);

  std::vector<DictionaryEntry> entries_;
  std::deque<std::string> files_;  // entries point into it
  std::unordered_map<std::string, size_t> index_;
};

}  // namespace vxdata
