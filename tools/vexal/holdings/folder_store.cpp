#include "folder_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "base/uid.h"

namespace vexal {

namespace fs = std::filesystem;

std::string FolderStore::name_file(FileSink& sink, const std::string& key, FileSink::Naming& naming) {
  constexpr int kTries = 20;  // the folder may go as soon as it is made, where it is empty
  naming = FileSink::Naming::NoFolder;
  std::string error;
  for (int i = 0; i < kTries && error.empty() && naming == FileSink::Naming::NoFolder; ++i) {
    error = make_folders_of(folder_, key, mode_);
    if (error.empty()) error = sink.commit_new(place_of(key), durable_, naming);
  }
  return error.empty() && naming == FileSink::Naming::NoFolder
             ? place_of(key) + ": its folder goes all the time"
             : error;
}

std::string FolderStore::put(FileSink& sink, const std::string& name, std::string& key) {
  FileSink::Naming naming = FileSink::Naming::Done;
  key = name + ".dcm";
  std::string error = name_file(sink, key, naming);
  if (!error.empty() || naming == FileSink::Naming::Done) return error;
  key = name + "-" + random_name() + ".dcm";
  error = name_file(sink, key, naming);
  return error.empty() && naming == FileSink::Naming::Taken ? place_of(key) + " is there" : error;
}

std::string FolderStore::put_under(FileSink& sink, const std::string& key) {
  FileSink::Naming naming = FileSink::Naming::Done;
  const std::string error = name_file(sink, key, naming);
  return error.empty() && naming == FileSink::Naming::Taken ? place_of(key) + " is there" : error;
}

std::string FolderStore::fetch(const std::string& key, LocalCopy& local) {
  local.set(place_of(key));
  return "";
}

std::string FolderStore::read(const std::string& key, uint64_t offset, std::size_t length,
                              std::string& bytes) {
  const int fd = ::open(place_of(key).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return place_of(key) + ": " + std::strerror(errno);
  bytes.resize(length);
  const int64_t got = read_whole(fd, offset, bytes.data(), length);
  const int error = errno;
  ::close(fd);
  bytes.resize(static_cast<std::size_t>(std::max<int64_t>(got, 0)));
  return got < 0 ? place_of(key) + ": " + std::strerror(error) : "";
}

std::string FolderStore::look_for(const std::string& key, std::optional<uint64_t>& size) {
  size.reset();
  struct stat status {};
  if (::lstat(place_of(key).c_str(), &status) != 0)
    return errno == ENOENT || errno == ENOTDIR ? "" : place_of(key) + ": " + std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return place_of(key) + " is there and no file";
  size = static_cast<uint64_t>(status.st_size);
  return "";
}

std::string FolderStore::remove(const std::string& key) {
  if (::unlink(place_of(key).c_str()) != 0 && errno != ENOENT)
    return place_of(key) + ": " + std::strerror(errno);
  // Folders that are empty now go too; put() makes them again.
  std::string name = key;
  for (std::size_t slash = name.rfind('/'); slash != std::string::npos; slash = name.rfind('/')) {
    name.resize(slash);
    if (::rmdir((folder_ + "/" + name).c_str()) != 0) break;
  }
  return "";
}

std::string FolderStore::list(const std::string& prefix,
                              const std::function<bool(const ListedObject&)>& take) {
  std::vector<std::string> waiting = {""};
  while (!waiting.empty()) {
    const std::string here = std::move(waiting.back());
    waiting.pop_back();
    std::error_code error;
    std::vector<std::string> names;
    for (fs::directory_iterator it(folder_ + "/" + here, error), end; !error && it != end;
         it.increment(error)) {
      std::string name = here + it->path().filename().string();
      std::error_code ignored;
      if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
        name += '/';
        // Only what can lie below the prefix.
        if (name.starts_with(prefix) || prefix.starts_with(name)) waiting.push_back(std::move(name));
      } else if (name.ends_with(".dcm") && name.starts_with(prefix)) {
        names.push_back(std::move(name));
      }
    }
    if (error == std::errc::no_such_file_or_directory && !here.empty()) continue;  // gone meanwhile
    if (error) return folder_ + "/" + here + ": " + error.message();
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
      struct stat status {};
      if (::lstat(place_of(name).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
      if (!take({name, static_cast<uint64_t>(status.st_size), status.st_mtim.tv_sec})) return "";
    }
  }
  return "";
}

}  // namespace vexal
