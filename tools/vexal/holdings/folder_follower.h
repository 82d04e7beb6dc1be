// Brings an index up to date with the folder of its objects, beside the service.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "catalog.h"

namespace vexal {

// Of a file, in nanoseconds since 1970; 0 if it has gone.
int64_t modified_time(const std::string& path);

// Follows the folder once, on a thread of its own: rows go whose files have gone or changed, and files come
// in that have no row, the first by name where two hold one instance. What comes in meanwhile over the
// network is not its business.
class FolderFollower {
 public:
  FolderFollower(Catalog& catalog, std::string folder);
  // Until it is done, or the time is over.
  void wait(std::optional<std::chrono::milliseconds> time);

 private:
  void follow(const std::stop_token& stop);
  std::string drop_rows(const std::stop_token& stop);
  std::string read_folder(const std::string& name, const std::stop_token& stop);
  std::string read_file(const std::string& name);
  std::string look_at(const std::string& name, Catalog::Entry& entry) const;
  void flush();

  Catalog& catalog_;
  std::string folder_;
  int64_t started_;
  std::vector<std::unique_ptr<Catalog::Entry>> fresh_;
  std::mutex mutex_;
  std::condition_variable finished_;
  bool done_ = false;
  std::jthread thread_;  // last: it uses all of the above
};

}  // namespace vexal
