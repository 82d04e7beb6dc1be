// The life of the library inside the program: configuration, log, problems.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "args.h"
#include "vexalkit.h"

namespace vexal {

class Session {
 public:
  Session() = default;
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  // Finds the configuration, or falls back to the one inside the program; false after a line on standard
  // error.
  bool start(const Args& args);

 private:
  bool started_ = false;
};

// The vexal.ini in force; empty for the settings inside the program.
const std::string& configuration_file();
// Where the configuration in force came from, for people.
const std::string& configuration_source();
// True if it is the one inside the program.
bool is_embedded_configuration();

// The file that the calling thread works on: named in front of what the library logs on this thread.
class CurrentFile {
 public:
  explicit CurrentFile(const std::string& path);
  ~CurrentFile();
  CurrentFile(const CurrentFile&) = delete;
  CurrentFile& operator=(const CurrentFile&) = delete;
};

// While it lives, what the library logs on this thread below an error is not shown; errors too, where they
// are expected.
class MutedWarnings {
 public:
  explicit MutedWarnings(bool errors_too = false);
  ~MutedWarnings();
  MutedWarnings(const MutedWarnings&) = delete;
  MutedWarnings& operator=(const MutedWarnings&) = delete;

 private:
  const bool warnings_before_;
  const bool errors_before_;
};

// True if a decoder has filled up a frame on this thread since the last call: it had too little data for it.
bool frame_was_filled_up();

// While it lives, counts the errors and warnings that certain functions of the library log on this thread.
// What others say meanwhile, of values that are kept as they are, is shown with --verbose only.
class LogWatch {
 public:
  explicit LogWatch(bool (*watched)(std::string_view function));
  ~LogWatch();
  LogWatch(const LogWatch&) = delete;
  LogWatch& operator=(const LogWatch&) = delete;
  std::size_t count() const { return count_; }
  // Of a line that a function logs: whether it counts.
  bool sees(std::string_view function) {
    const bool counts = watched_(function);
    count_ += counts ? 1 : 0;
    return counts;
  }

 private:
  bool (*watched_)(std::string_view function);
  std::size_t count_ = 0;
};

// While it lives, the lines that the library logs on this thread are kept: some things it says nowhere else.
// With `Holds`, they are not shown either, unless show() asks for it or --verbose was given.
class LogLines {
 public:
  enum class Kind { Listens, Holds };
  explicit LogLines(Kind kind = Kind::Listens);
  ~LogLines();
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;
  // What follows these words in the first line that begins with them; null if none does.
  const char* behind(std::string_view words) const;
  // The same of the line that follows one with this head.
  const char* below(std::string_view head, std::string_view words) const;
  void show() const;
  // Takes a line; true if it is to be held back.
  bool take(int type, const char* line);

 private:
  Kind kind_;
  std::vector<std::pair<int, std::string>> lines_;  // with their types
  LogLines* outer_;
};

// One line about a file: "PATH: offset 12 (0028,0010) Rows: text".
void report(const std::string& path, const std::string& text);
std::string describe_failure(VX_STATUS status, int64_t offset, uint32_t tag);

}  // namespace vexal
