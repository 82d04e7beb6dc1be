#pragma once
// Reading line-oriented text and keeping account of what is wrong with it.

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vxdata {

// Faults found in the data, each with the line it stands on. The program goes on after a fault so that
// one run shows them all.
class Problems {
 public:
  void error(const std::string& file, int line, const std::string& text);
  void warning(const std::string& file, int line, const std::string& text);
  int errors() const { return errors_; }
  int warnings() const { return warnings_; }

 private:
  int errors_ = 0;
  int warnings_ = 0;
};

// An input or output that could not be used at all: ends the program with exit code 2.
struct Unusable {
  std::string text;
};

struct Line {
  int number = 0;
  std::string text;
};

// The lines of a file that are neither blank nor comments, without their line ends.
std::vector<Line> read_lines(const std::string& path);

std::vector<std::string> split(std::string_view text, char separator);
std::string trim(std::string_view text);

struct TagText {
  uint32_t tag = 0;
  bool block_free = false;  // written gggg,xxee: a private attribute in whatever block it lies
};

// "0008,0016", "60xx,3000" (the repeating group's base) or "0043,xx6F".
std::optional<TagText> parse_tag(std::string_view text);
std::string tag_text(uint32_t tag);

struct Multiplicity {
  uint8_t low = 1;
  uint8_t high = 1;
};

// "1", "3", "1-8", "1-n", "2-2n"; 255 stands for no limit.
std::optional<Multiplicity> parse_vm(std::string_view text);
std::string vm_text(Multiplicity vm);

// The codes of the binary files: the index in AE, AS, CS ... SQ.
inline constexpr int kVrUn = 24;
inline constexpr int kVrSq = 30;
std::optional<int> vr_code(std::string_view letters);
const char* vr_letters(int code);
bool is_text_vr(int code);
bool is_number_vr(int code);

bool is_private(uint32_t tag);

std::string printable(std::string_view text);

template <class... Args>
std::string format(const char* pattern, Args... args) {
  const int size = std::snprintf(nullptr, 0, pattern, args...);
  std::string text(size < 0 ? 0 : static_cast<size_t>(size), '\0');
  std::snprintf(text.data(), text.size() + 1, pattern, args...);
  return text;
}

}  // namespace vxdata
