// Orders of HL7 (ORM^O01, OMI^O23) as entries of a worklist.
#pragma once

#include <string>

namespace vexal {

class Orders {
 public:
  // The entries go into a folder of a worklist, a DICOM file each.
  explicit Orders(std::string folder) : folder_(std::move(folder)) {}

  // Does what a message asks for; what it answers. An entry that is acknowledged is on the disk.
  std::string take(const std::string& message) const;

 private:
  std::string folder_;
};

}  // namespace vexal
