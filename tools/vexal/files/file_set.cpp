#include "file_set.h"

#include <algorithm>
#include <cctype>

namespace vexal {

namespace fs = std::filesystem;

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

bool has_link(const fs::path& folder, const std::vector<std::string>& parts) {
  std::error_code error;
  fs::path at = folder;
  return std::any_of(parts.begin(), parts.end(), [&](const std::string& part) {
    at /= part;
    return fs::is_symlink(at, error);
  });
}

fs::path find_file(const fs::path& folder, const std::string& file_id) {
  fs::path at = folder;
  std::size_t start = 0;
  while (start <= file_id.size()) {
    const std::size_t slash = std::min(file_id.find('/', start), file_id.size());
    const std::string part = file_id.substr(start, slash - start);
    start = slash + 1;
    if (part.empty() || part == "." || part == "..") return {};
    std::error_code error;
    fs::path next = at / part;
    if (!fs::exists(fs::symlink_status(next, error))) {
      next.clear();
      for (const auto& entry : fs::directory_iterator(at.empty() ? "." : at, error)) {
        const std::string name = upper(entry.path().filename().string());
        if (name == upper(part) || name == upper(part) + ".") next = at / entry.path().filename();
      }
    }
    if (next.empty() || fs::is_symlink(next, error)) return {};
    at = next;
  }
  std::error_code error;
  return fs::is_regular_file(at, error) ? at : fs::path();
}

}  // namespace vexal
