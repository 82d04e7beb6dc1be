// Files whose data set is out of order.
#pragma once

#include <shared_mutex>
#include <string>

#include "files.h"

namespace vexal {

// A data set whose tags are out of order is read all the same. The setting for that is the library's, and no
// other file must be read under it, since its own order would then go unseen.
class OrderedReader {
 public:
  // `out_of_order`: the failure of the strict reading, if that is the only one.
  VX_STATUS open(DicomFile& file, const std::string& path, std::string& out_of_order);

 private:
  std::shared_mutex mutex_;
};

}  // namespace vexal
