// The log file: records of fixed length with a moving end mark, which wrap within a fixed size or roll into a
// numbered series of old files. The caller holds the lock of the log.
#pragma once

#include <climits>
#include <cstdint>
#include <string_view>

namespace vx {

inline constexpr int32_t kShortestRecord = 16;
inline constexpr int32_t kLongestRecord = 254;

struct LogFileLayout {
  int32_t line_length;  // kShortestRecord to kLongestRecord
  int32_t lines;        // at least 1
  int32_t history;
  bool backup;
  bool fill;
};

class LogFile {
 public:
  // Closes the file if it has another name; the next line starts the new one.
  void set_path(std::string_view path);
  // Forgets how far the log had come: the next line starts the file anew.
  void restart();
  void close();
  bool started() const { return !needs_start_ || full_; }  // a full one wraps or rolls
  // One record, padded with blanks; false, after a word on the standard output, if it could not be written.
  bool write(std::string_view piece, const LogFileLayout& layout);

 private:
  bool start(const LogFileLayout& layout);
  bool open_for_update();
  bool find_free_record(int64_t begin, int64_t& position);

  char path_[PATH_MAX] = {};
  int fd_ = -1;
  bool regular_ = false;  // a pipe, a terminal or the null device takes lines as they come
  bool needs_start_ = true;
  bool full_ = false;        // the last record of the file was written
  int32_t line_ = 0;         // the record that the next line goes to
  int32_t record_size_ = 0;  // of the file at hand, line end included
};

}  // namespace vx
