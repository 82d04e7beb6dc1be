#include "target.h"

#include <algorithm>
#include <charconv>
#include <span>

namespace vexal {
namespace {

constexpr std::size_t kMostFrames = 65536;

// The last steps of a path and what they stand for; the depth is how many UIDs come before.
struct Step {
  const char* name;
  WebResource resource;
  unsigned depths;  // bit n: behind n UIDs
};
constexpr unsigned kAtRoot = 1;
constexpr unsigned kInStudy = 2;
constexpr unsigned kInSeries = 4;
constexpr unsigned kInInstance = 8;
constexpr Step kSteps[] = {
    {"studies", WebResource::Studies, kAtRoot},
    {"series", WebResource::Series, kAtRoot | kInStudy},
    {"instances", WebResource::Instances, kAtRoot | kInStudy | kInSeries},
    {"metadata", WebResource::Metadata, kInStudy | kInSeries | kInInstance},
    {"rendered", WebResource::Rendered, kInStudy | kInSeries | kInInstance},
    {"thumbnail", WebResource::Thumbnail, kInStudy | kInSeries | kInInstance},
};
constexpr const char* kCollections[] = {"studies", "series", "instances"};

bool is_uid(const std::string& text) {
  return !text.empty() && text.size() <= 64 && text.find_first_not_of("0123456789.") == std::string::npos;
}

bool is_bulk_path(const std::string& text) {
  constexpr std::size_t kLongest = 1024;
  return !text.empty() && text.size() <= kLongest &&
         text.find_first_not_of("0123456789ABCDEFabcdef.") == std::string::npos;
}

// What stands behind an instance and takes a further segment.
void parse_frames_or_bulk(std::span<const std::string> rest, WebTarget& target) {
  if (rest.size() >= 2 && rest[0] == "frames") {
    if (!parse_frame_list(rest[1], target.frames)) return;
    if (rest.size() == 2) target.resource = WebResource::Frames;
    if (rest.size() == 3 && rest[2] == "rendered") target.resource = WebResource::Rendered;
    if (rest.size() == 3 && rest[2] == "thumbnail") target.resource = WebResource::Thumbnail;
  } else if (rest.size() == 2 && rest[0] == "bulkdata" && is_bulk_path(rest[1])) {
    target.bulk = rest[1];
    target.resource = WebResource::Bulkdata;
  }
}

}  // namespace

bool parse_frame_list(const std::string& text, std::vector<uint32_t>& frames) {
  const char* at = text.data();
  const char* end = at + text.size();
  while (frames.size() < kMostFrames) {
    uint32_t number = 0;
    const auto result = std::from_chars(at, end, number);
    if (result.ec != std::errc() || number == 0) return false;
    frames.push_back(number);
    if (result.ptr == end) return true;
    if (*result.ptr != ',') return false;
    at = result.ptr + 1;
  }
  return false;
}

WebTarget parse_web_target(const std::vector<std::string>& path) {
  WebTarget target;
  std::span<const std::string> rest(path);
  std::string* const uids[] = {&target.study, &target.series, &target.instance};
  std::size_t depth = 0;
  while (depth < 3 && rest.size() >= 2 && rest[0] == kCollections[depth] && is_uid(rest[1])) {
    *uids[depth++] = rest[1];
    rest = rest.subspan(2);
  }
  if (rest.empty()) {
    target.resource = depth == 0 ? WebResource::Service : WebResource::Objects;
  } else if (rest.size() == 1) {
    const auto* step = std::find_if(std::begin(kSteps), std::end(kSteps), [&](const Step& row) {
      return rest[0] == row.name && (row.depths >> depth & 1U) != 0;
    });
    if (step != std::end(kSteps)) target.resource = step->resource;
  } else if (depth == 3) {
    parse_frames_or_bulk(rest, target);
  }
  return target;
}

}  // namespace vexal
