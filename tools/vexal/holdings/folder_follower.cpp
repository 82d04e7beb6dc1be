#include "folder_follower.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/session.h"
#include "base/thrown.h"

namespace vexal {
namespace {

constexpr std::size_t kTogether = 64;  // objects of one transaction
constexpr std::size_t kPage = 1000;    // rows that are looked at together

int64_t nanoseconds(const timespec& time) {
  return time.tv_sec * 1000000000LL + time.tv_nsec;
}

}  // namespace

int64_t modified_time(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? nanoseconds(status.st_mtim) : 0;
}

FolderFollower::FolderFollower(Catalog& catalog, std::string folder)
    : catalog_(catalog), folder_(std::move(folder)) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  started_ = nanoseconds(now);
  thread_ = std::jthread([this](const std::stop_token& stop) {
    try {
      follow(stop);
    } catch (...) {
      report(folder_, words_of(std::current_exception()));
    }
    const std::lock_guard lock(mutex_);
    done_ = true;
    finished_.notify_all();
  });
}

void FolderFollower::wait(std::optional<std::chrono::milliseconds> time) {
  std::unique_lock lock(mutex_);
  const auto done = [&] { return done_; };
  if (time) {
    finished_.wait_for(lock, *time, done);
  } else {
    finished_.wait(lock, done);
  }
}

void FolderFollower::follow(const std::stop_token& stop) {
  std::string error = drop_rows(stop);
  if (error.empty()) error = read_folder("", stop);
  flush();
  if (!error.empty()) report(folder_, "the index can not be brought up to date: " + error);
}

std::string FolderFollower::drop_rows(const std::stop_token& stop) {
  struct Row {
    std::string instance;
    std::string key;
    int64_t size = 0;
    int64_t modified = 0;
  };
  std::vector<Row> rows(1);
  std::string last;
  while (!rows.empty() && !stop.stop_requested()) {
    rows.clear();
    const SqlOutcome outcome = catalog_.queries_.read([&](Database& database) {
      return database.run(
          "SELECT SOPInstanceUID, object_key, size, modified FROM instance WHERE SOPInstanceUID > ? ORDER BY "
          "SOPInstanceUID LIMIT ?",
          {last, static_cast<int64_t>(kPage)}, [&](const SqlRow& row) {
            rows.push_back(
                {std::string(row.text(0)), std::string(row.text(1)), row.number(2), row.number(3)});
            return true;
          });
    });
    if (!outcome.good()) return outcome.problem;
    for (const Row& row : rows) {
      struct stat status {};
      const bool same = ::lstat((folder_ + "/" + row.key).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
                        status.st_size == row.size && nanoseconds(status.st_mtim) == row.modified;
      if (same) continue;
      if (const std::string error = catalog_.drop(row.instance, row.key); !error.empty()) return error;
    }
    if (!rows.empty()) last = rows.back().instance;
  }
  return "";
}

// In the order of names, folder by folder.
std::string FolderFollower::read_folder(const std::string& name, const std::stop_token& stop) {
  const std::string path = name.empty() ? folder_ : folder_ + "/" + name;
  std::vector<std::string> names;
  DIR* folder = ::opendir(path.c_str());
  // One that goes meanwhile is none of ours.
  if (folder == nullptr) return errno == ENOENT ? "" : path + ": " + std::strerror(errno);
  while (const dirent* entry = ::readdir(folder)) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  ::closedir(folder);
  std::sort(names.begin(), names.end());
  for (const std::string& one : names) {
    if (stop.stop_requested()) return "";
    const std::string inner = name.empty() ? one : name + "/" + one;
    struct stat status {};
    if (::lstat((folder_ + "/" + inner).c_str(), &status) != 0) continue;
    std::string error;
    if (S_ISDIR(status.st_mode)) {
      error = read_folder(inner, stop);
    } else if (S_ISREG(status.st_mode) && one.ends_with(".dcm") && nanoseconds(status.st_ctim) <= started_) {
      error = read_file(inner);
    }
    if (!error.empty()) return error;
  }
  return "";
}

std::string FolderFollower::read_file(const std::string& name) {
  int64_t known = 0;
  const SqlValue key[] = {name};
  const SqlOutcome outcome = catalog_.queries_.read([&](Database& database) {
    return read_number(database, "SELECT id FROM instance WHERE object_key = ?", key, known);
  });
  if (!outcome.good() || known != 0) return outcome.problem;
  auto entry = std::make_unique<Catalog::Entry>();
  const std::string fault = look_at(name, *entry);
  // A file that is no object is not the index's business.
  if (!fault.empty()) {
    report(folder_ + "/" + name, fault);
    return "";
  }
  fresh_.push_back(std::move(entry));
  if (fresh_.size() == kTogether) flush();
  return "";
}

std::string FolderFollower::look_at(const std::string& name, Catalog::Entry& entry) const {
  entry.file.path = folder_ + "/" + name;
  std::string fault = entry.file.look_at();
  if (!fault.empty()) return fault;
  HeadScan scan;
  const MutedWarnings muted;
  Message kept;
  DicomFile whole;
  int32_t object = -1;
  if (scan_file(entry.file.path, catalog_.wanted(), scan).empty()) object = kept.id = scan.make_message();
  if (object < 0) {  // what is no file of ours, such as one without a meta group
    if (whole.open(entry.file.path, {true, catalog_.wanted().back()}) != VX_NORMAL_COMPLETION &&
        !whole.readable())
      return whole.problem();
    object = whole.id();
  }
  entry.modified = modified_time(entry.file.path);
  entry.row.read(object, entry.file.sop_class, entry.file.instance);
  entry.file.path = name;
  return "";
}

void FolderFollower::flush() {
  std::vector<Catalog::Entry*> together;
  for (const auto& entry : fresh_) together.push_back(entry.get());
  catalog_.write(together);
  for (const Catalog::Entry* entry : together) {
    if (entry->result == ObjectIndex::Entered::Failed) report(folder_ + "/" + entry->file.path, entry->error);
    if (entry->result != ObjectIndex::Entered::Conflict) continue;
    std::string there;
    catalog_.key_of(entry->row.values[kUidColumns[2]], there);
    report(folder_ + "/" + entry->file.path,
           "has the SOP Instance UID of " + folder_ + "/" + there + ", and can not be found");
  }
  fresh_.clear();
}

}  // namespace vexal
