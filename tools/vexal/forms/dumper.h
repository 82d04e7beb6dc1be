// The listing of one file, for people or as JSON.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/tag_path.h"
#include "files/charset.h"
#include "files/files.h"

namespace vexal {

struct DumpSettings {
  std::size_t width = 64;
  bool json = false;
  std::vector<std::vector<PathStep>> paths;
};

// Private creators of the object at hand, by group and block.
class Creators {
 public:
  void add(uint32_t tag, const char* code) {
    known_.push_back({(tag & 0xFFFF0000U) | ((tag & 0xFFU) << 8), code});
  }
  const char* find(uint32_t tag) const {
    const uint32_t block = tag & 0xFFFFFF00U;
    for (auto it = known_.rbegin(); it != known_.rend(); ++it) {
      if (it->first == block) return it->second.c_str();
    }
    return nullptr;
  }

 private:
  std::vector<std::pair<uint32_t, std::string>> known_;
};

// The pieces of a numeric or bulk value, joined up to a limit.
struct Gathered {
  std::string bytes;
  std::size_t limit = 0;
  uint64_t total = 0;
};

class Dumper {
 public:
  // With `streaming`, what is ready goes to standard output as the listing grows.
  Dumper(const DicomFile& file, const DumpSettings& settings, std::string& out, bool streaming);

  void object(int32_t id, int depth);

  // One attribute out of its object, `root` holding it. Only the library knows what lies between.
  void single(int32_t root, int32_t id, uint32_t tag, VX_VR vr, int32_t count, bool first);

  void attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, int depth, Creators& creators,
                 bool first);

 private:
  static constexpr std::size_t kFlushAt = 65536;
  void flush();

  // A file object has every attribute that a meta group may have; those without a value are not in the file.
  static bool in_file(int32_t id, uint32_t tag, VX_VR vr, int32_t count);
  void append_name(uint32_t tag, const Creators& creators);
  void text_attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, int depth, Creators& creators);
  void text_items(int32_t id, uint32_t tag, int depth);

  bool full() const { return settings_.width != 0 && value_.size() > settings_.width; }
  void cut();
  uint64_t text_value(int32_t id, uint32_t tag, VX_VR vr, int32_t count, Creators& creators);

  // A text that is larger than the buffer: as much of it as the width asks.
  void text_beyond(int32_t id, uint32_t tag, int32_t number, uint32_t whole,
                   const std::function<void(std::string_view)>& add);

  // Text that is UTF-8, or ought to be where no set is named, needs no conversion.
  bool needs_conversion() const { return !all_known_ || (!charset_.empty() && charset_ != "ISO_IR 192"); }

  // The values, decoded if it can be done. What the library has to say is said once a file.
  std::vector<TextValue> decoded(int32_t id, uint32_t tag, int32_t count);

  // The value once more, out of its character sets. True if more of it is there than is shown.
  bool text_beyond_ascii(int32_t id, uint32_t tag, VX_VR vr, int32_t count);
  void json_beyond_ascii(int32_t id, uint32_t tag, int32_t count);
  uint64_t numeric_value(int32_t id, uint32_t tag, VX_VR vr, const std::string& wide);
  uint64_t bulk_value(int32_t id, uint32_t tag);
  void json_attribute(int32_t id, uint32_t tag, VX_VR vr, int32_t count, Creators& creators, bool first);
  void json_items(int32_t id, uint32_t tag);
  void json_texts(int32_t id, uint32_t tag, VX_VR vr, int32_t count, Creators& creators);
  void json_numbers(int32_t id, uint32_t tag, VX_VR vr, const std::string& wide);
  void json_bulk(int32_t id, uint32_t tag);

  const DicomFile& file_;
  const DumpSettings& settings_;
  std::string& out_;
  bool streaming_;
  std::string charset_;    // that text of the object at hand starts in
  bool all_known_ = true;  // all that holds the object has been seen
  bool told_ = false;
  std::string text_;   // buffer of the library's texts
  std::string value_;  // the value shown
  Gathered gathered_;
};

}  // namespace vexal
