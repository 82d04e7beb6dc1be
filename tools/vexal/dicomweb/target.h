// What the paths of DICOM web services name (PS3.18 section 8.2 and chapter 10).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vexal {

enum class WebResource {
  Nothing,  // no path of these services
  Service,  // their root
  Studies,  // collections
  Series,
  Instances,
  Objects,  // what a study, series or instance holds
  Metadata,
  Rendered,
  Thumbnail,
  Frames,
  Bulkdata,
};

struct WebTarget {
  WebResource resource = WebResource::Nothing;
  std::string study;
  std::string series;
  std::string instance;
  std::vector<uint32_t> frames;  // from 1, as they were asked for; with Rendered and Thumbnail too
  std::string bulk;              // "7FE00010", or "00400275.1.00091010": tags and items from 1
};

// Of the segments of a path behind the root of the services. UIDs are of digits and dots, and what is no
// resource is Nothing.
WebTarget parse_web_target(const std::vector<std::string>& path);

// "1,3,5" with numbers from 1 on, in their order; false if it is no such list or has more than 65536 numbers.
bool parse_frame_list(const std::string& text, std::vector<uint32_t>& frames);

}  // namespace vexal
