// Modality worklist entries that lie in a folder, a DICOM file each.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace vexal {

class Worklist {
 public:
  explicit Worklist(std::string folder) : folder_(std::move(folder)) {}

  // For each entry that matches the identifier calls `take` with a function that fills an answer in; until it
  // gives false, or until `stop`, asked for each entry, gives true. The folder is read anew for each query.
  void find(int32_t identifier, const std::function<bool()>& stop,
            const std::function<bool(const std::function<void(int32_t answer)>& fill)>& take) const;

 private:
  std::string folder_;
};

}  // namespace vexal
