// Objects that strangers sent, decoded by a server: in bounded memory and room.
#pragma once

#include <functional>
#include <string>

#include "files/files.h"

namespace vexal {

// Before the first of them.
void prepare_bounded_files();

// One that is open. What has many parts takes turns: few are open at once, as long as this lives.
class BoundedFile {
 public:
  BoundedFile() = default;
  ~BoundedFile();
  BoundedFile(const BoundedFile&) = delete;
  BoundedFile& operator=(const BoundedFile&) = delete;

  // Opens it whole. problem() of the file, or a text of its own, where it fails.
  VX_STATUS open(DicomFile& file, const std::string& path, std::string& problem);
  // As open(), of what opens the file by itself: it is called again where the file has many parts.
  std::string open(const std::string& path, const std::function<std::string()>& work);
  // It has many parts, and others wait until this goes.
  bool has_turn() const { return has_turn_; }

 private:
  bool has_turn_ = false;
};

}  // namespace vexal
