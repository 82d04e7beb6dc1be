// Modality performed procedure steps that lie in a folder, a DICOM file each (PS3.4 annex F).
#pragma once

#include <mutex>
#include <string>

#include "server/request.h"

namespace vexal {

class ProcedureSteps {
 public:
  explicit ProcedureSteps(std::string folder) : folder_(std::move(folder)) {}

  // N-CREATE and N-SET: the status to answer with. `instance` is filled with the UID of the step, made up
  // where a creation names none.
  uint16_t create(int32_t message, std::string& instance);
  uint16_t set(int32_t message, std::string& instance);
  // A step that was just created is gone again.
  void take_back(const std::string& instance);

 private:
  std::string path_of(const std::string& instance) const { return folder_ + "/" + instance + ".dcm"; }

  std::string folder_;
  std::mutex mutex_;  // a step is read, changed and written by one at a time
};

}  // namespace vexal
