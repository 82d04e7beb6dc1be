#include "holdings.h"

#include <unistd.h>

namespace vexal {

LocalObject::~LocalObject() {
  if (!copy_.empty()) ::unlink(copy_.c_str());
}

std::string Holdings::open(const StorageOptions& options) {
  return catalog_.open(options.folder, options.durable, options.mode);
}

std::string Holdings::fetch(const ObjectFile& object, LocalObject& local) {
  local.file_ = object;
  return "";
}

}  // namespace vexal
