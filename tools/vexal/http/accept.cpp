#include "accept.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "multipart.h"

namespace vexal {
namespace {

constexpr std::size_t kMostRanges = 64;

std::string lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  return text.substr(0, text.find_last_not_of(" \t") + 1);
}

// Up to the next comma outside of quotes.
std::string_view next_range(std::string_view& text) {
  bool quoted = false;
  std::size_t at = 0;
  for (; at < text.size() && (quoted || text[at] != ','); ++at) {
    if (text[at] == '"') quoted = !quoted;
  }
  const std::string_view range = text.substr(0, at);
  text.remove_prefix(std::min(at + 1, text.size()));
  return trimmed(range);
}

bool is_media(std::string_view type) {
  const std::size_t slash = type.find('/');
  return slash != std::string_view::npos && slash != 0 && slash + 1 < type.size();
}

bool read_quality(const std::string& text, double& quality) {
  if (text.empty()) return true;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), quality);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() && quality > 0 && quality <= 1;
}

}  // namespace

bool MediaRange::takes(std::string_view media) const {
  if (type == media || type == "*/*") return true;
  return type.ends_with("/*") && media.starts_with(std::string_view(type).substr(0, type.size() - 1));
}

std::vector<MediaRange> parse_accept(std::string_view header) {
  std::vector<MediaRange> ranges;
  const bool silent = trimmed(header).empty();
  while (!header.empty() && ranges.size() < kMostRanges) {
    const std::string_view text = next_range(header);
    MediaRange range;
    range.type = lower(trimmed(text.substr(0, text.find(';'))));
    if (!is_media(range.type) || !read_quality(header_parameter(text, "q"), range.quality)) continue;
    range.syntax = header_parameter(text, "transfer-syntax");
    range.parts = range.type == "multipart/related";
    if (range.parts) range.type = lower(header_parameter(text, "type"));
    if (range.parts && range.type.empty()) range.type = "*/*";
    ranges.push_back(std::move(range));
  }
  if (silent) ranges.push_back({false, "*/*", "", 1});
  std::stable_sort(ranges.begin(), ranges.end(),
                   [](const MediaRange& a, const MediaRange& b) { return a.quality > b.quality; });
  return ranges;
}

}  // namespace vexal
