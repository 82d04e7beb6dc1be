#include "config/line.h"

#include <cerrno>
#include <cstdio>

#include "frame/log.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr std::size_t kMostName = 79;  // of a section or a key

// Far above any profile; stops at a device that never ends.
constexpr std::size_t kMostProfile = 64U << 20;

bool prints(char c) {
  return static_cast<unsigned char>(c) >= 0x20 && c != 0x7F;
}

// One line, of at most kMaxProfileLine characters; the rest of a longer one is the next line.
std::string_view take_line(std::string_view& rest) {
  const std::size_t end = rest.find('\n');
  if (end != std::string_view::npos && end <= kMaxProfileLine) {
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return line;
  }
  const std::string_view line = rest.substr(0, kMaxProfileLine);
  rest.remove_prefix(line.size());
  return line;
}

}  // namespace

std::string clean_line(std::string_view line) {
  std::string clean;
  for (const char c : line) {
    if (c == '#') break;
    if (prints(c)) clean += c;
  }
  return std::string(trim(clean));
}

ProfileReader::Result ProfileReader::next(Entry& entry) {
  while (!rest_.empty()) {
    const std::string line = clean_line(take_line(rest_));
    if (line.empty()) continue;
    std::string_view text = line;
    if (text[0] == '[') {
      // Whatever its last character is, it closes the name.
      text.remove_prefix(1);
      if (!text.empty()) text.remove_suffix(1);
      section_ = text.substr(0, kMostName);
      new_section_ = true;
      continue;
    }
    constexpr const char* kSeparators = " =,";
    const std::size_t key_end = std::min(text.find_first_of(kSeparators), text.size());
    const std::string_view key = text.substr(0, std::min(key_end, kMostName));
    text.remove_prefix(std::min(text.find_first_not_of(kSeparators, key_end), text.size()));
    if (text.size() >= value_limit_) {
      VX_LOG_ERR("VXI_ReadProfile", "Value for %s (%d characters) exceeds %d character limit",
                 std::string(key).c_str(), static_cast<int>(text.size()), static_cast<int>(value_limit_ - 1));
      return Result::Failed;
    }
    entry.section = section_;
    entry.new_section = new_section_;
    entry.key = key;
    entry.value = text;
    new_section_ = false;
    return Result::Entry;
  }
  return Result::End;
}

void ProfileReader::rewind() {
  rest_ = content_;
  section_.clear();
  new_section_ = false;
}

bool read_file(const char* path, std::string& content, int& error, bool& opened) {
  content.clear();
  std::FILE* file = std::fopen(path, "rbe");
  opened = file != nullptr;
  error = errno;
  if (file == nullptr) return false;
  char buffer[16384];
  std::size_t size = 0;
  while ((size = std::fread(buffer, 1, sizeof buffer, file)) > 0) {
    content.append(buffer, size);
    if (content.size() > kMostProfile) break;
  }
  const bool failed = std::ferror(file) != 0;
  error = failed ? errno : EFBIG;
  std::fclose(file);
  return !failed && content.size() <= kMostProfile;
}

}  // namespace vx
