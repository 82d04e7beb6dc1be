// What DICOM web servers answer in JSON (PS3.18 annex F).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/tag_path.h"

struct json_t;

namespace vexal {

class WebDocument {
 public:
  // An error text, empty on success. What is no array counts as its one object.
  std::string read(std::string_view text);
  std::size_t size() const;
  // All values at a path of the object at `index`, joined by backslashes.
  std::string values_at(std::size_t index, const std::vector<PathStep>& path) const;
  // The number of items of a sequence of the object.
  std::size_t items(std::size_t index, uint32_t sequence) const;

 private:
  struct Drop {
    void operator()(json_t* value) const;
  };
  const json_t* object(std::size_t index) const;
  std::unique_ptr<json_t, Drop> root_;
};

}  // namespace vexal
