#pragma once
// Runs the compiler of the data tables as a user does, in a folder of its own.

#include <sys/wait.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "support.h"

using support::read_file;

struct Outcome {
  int exit = -1;
  std::string out, err;
};

class Workshop {
 public:
  void write(const std::string& name, const std::string& text) const { folder_.write(name, text); }
  std::string read(const std::string& name) const { return folder_.read(name); }
  bool has(const std::string& name) const { return std::filesystem::exists(folder_.path(name)); }
  std::string folder() const { return folder_.path(); }

  Outcome run(const std::string& arguments) const {
    const std::string command =
        "cd '" + folder() + "' && '" VEXAL_BINARY_DIR "/tools/vxdata/vxdata' " + arguments + " >.out 2>.err";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read(".out"), read(".err")};
  }

  // The exit codes of one command over many contents of its input file, named "input" in the command.
  std::vector<int> exits(const std::string& arguments, const std::vector<std::string>& contents) const {
    for (size_t i = 0; i < contents.size(); ++i) write("input" + std::to_string(i), contents[i]);
    const std::string script = "cd '" + folder() + "' && i=0; while [ $i -lt " +
                               std::to_string(contents.size()) +
                               " ]; do mv input$i input; '" VEXAL_BINARY_DIR "/tools/vxdata/vxdata' " +
                               arguments + " >/dev/null 2>&1; echo $?; i=$((i+1)); done >.exits";
    std::vector<int> codes;
    if (std::system(script.c_str()) != 0) return codes;
    std::istringstream in(read(".exits"));
    for (int code = 0; in >> code;) codes.push_back(code);
    return codes;
  }

 private:
  support::TempFolder folder_;
};

inline const std::string kData = VEXAL_SOURCE_DIR "/data/";
inline const std::string kShare = VEXAL_BINARY_DIR "/share/vexalkit/";
inline const std::string kTables =
    " --services " + kData + "vexalkit.srv --dict " + kData + "dictionary.tsv," + kData + "private.tsv ";

// A second reader of big-endian files, written apart from the tool's own.
class Bytes {
 public:
  explicit Bytes(std::string text) : text_(std::move(text)) {}
  size_t at = 0;
  size_t size() const { return text_.size(); }
  uint32_t number(size_t width) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i) value = value * 256 + static_cast<unsigned char>(text_.at(at++));
    return value;
  }
  std::string text(size_t length) {
    at += length;
    if (at > text_.size()) throw std::out_of_range("short file");
    return text_.substr(at - length, length);
  }
  std::string to_nul() {
    std::string result;
    for (char c = text_.at(at++); c != '\0'; c = text_.at(at++)) result += c;
    return result;
  }

 private:
  std::string text_;
};
