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

// What decoders have met in code streams on this thread since the last call.
struct StreamFlaws {
  bool cut_short = false;  // no end: what was missing of the image, if anything was, was filled up
  bool goes_on = false;    // behind the end there is more than a pad
  bool damaged = false;    // part of the image is wrong
};
StreamFlaws take_stream_flaws();
// True if the file opened last on this thread has a tag twice, or an element that no object can hold, so that
// what is written of it lacks a value; a line on standard error has told which. Once for each file.
bool values_were_lost();

// While it lives, what the library logs on this thread is held back, unless --verbose was given: some things
// it says nowhere else.
class LogLines {
 public:
  // `passes`: errors and warnings of these functions are shown as they come, and counted; the others are of
  // values that are kept as they are, and forgotten.
  explicit LogLines(bool (*passes)(std::string_view function) = nullptr);
  ~LogLines();
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;
  std::size_t passed() const { return passed_; }
  // What follows these words in the first line that begins with them; null if none does.
  const char* behind(std::string_view words) const;
  void show() const;
  // Takes a line; true if it is held back.
  bool take(int type, std::string_view function, const char* line);

 private:
  bool (*passes_)(std::string_view function);
  std::size_t passed_ = 0;
  std::vector<std::pair<int, std::string>> lines_;  // with their types
  LogLines* outer_;
};

// One line about a file: "PATH: offset 12 (0028,0010) Rows: text".
void report(const std::string& path, const std::string& text);
std::string describe_failure(VX_STATUS status, int64_t offset, uint32_t tag);

}  // namespace vexal
