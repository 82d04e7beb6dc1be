// The line format that the ini file and the profiles share.
#pragma once

#include <string>
#include <string_view>

#include "frame/limits.h"

namespace vx {

// A line without the characters that do not print, without a comment and without outer blanks. Bytes from
// 0x80 on belong to texts in other encodings and stay.
std::string clean_line(std::string_view line);

// The entries of a file, one at a time.
class ProfileReader {
 public:
  enum class Result : unsigned char { Entry, End, Failed };
  struct Entry {
    std::string section;       // empty before the first section line
    bool new_section = false;  // the first entry of its section
    std::string key;
    std::string value;
  };

  // Values take at most value_limit bytes with their terminator.
  ProfileReader(std::string_view content, std::size_t value_limit)
      : content_(without_mark(content)), rest_(content_), value_limit_(value_limit) {}
  Result next(Entry& entry);
  void rewind();

 private:
  // Some editors put a byte order mark first.
  static std::string_view without_mark(std::string_view content) {
    return content.starts_with("\xEF\xBB\xBF") ? content.substr(3) : content;
  }
  std::string_view content_;
  std::string_view rest_;
  std::size_t value_limit_;
  std::string section_;
  bool new_section_ = false;
};

// A whole file. `error` gets the system's error number when it can not be opened or read.
bool read_file(const char* path, std::string& content, int& error, bool& opened);

}  // namespace vx
