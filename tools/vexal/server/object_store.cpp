#include "object_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vexal {
namespace {

// A folder of its own below the one of the objects; what lies there in its place, a link included, is not
// followed.
std::string make_folder(const std::string& path, mode_t mode) {
  const mode_t access = mode == 0 ? 0777 : mode | 0700 | ((mode & 0444) >> 2);
  if (::mkdir(path.c_str(), access) == 0) return "";
  if (errno != EEXIST) return path + ": " + std::strerror(errno);
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) ? ""
                                                                        : path + " is there and no folder";
}

}  // namespace

void LocalCopy::set(std::string path, bool temporary) {
  if (temporary_) ::unlink(path_.c_str());
  path_ = std::move(path);
  temporary_ = temporary;
}

std::string make_folders_of(const std::string& folder, const std::string& name, mode_t mode) {
  for (std::size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
    const std::string error = make_folder(folder + "/" + name.substr(0, slash), mode);
    if (!error.empty()) return error;
  }
  return "";
}

}  // namespace vexal
