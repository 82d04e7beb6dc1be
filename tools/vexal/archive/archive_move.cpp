// vexal archive move: all objects to another store, under the same keys.
#include <atomic>
#include <cstring>
#include <filesystem>
#include <map>

#include "base/parallel.h"
#include "base/session.h"
#include "upkeep.h"

namespace vexal {
namespace {

constexpr unsigned kAtOnce = 4;

bool same_bytes(const std::string& one, const std::string& other) {
  constexpr std::size_t kBlock = 1U << 20;
  FileSource a;
  FileSource b;
  if (!a.open(one).empty() || !b.open(other).empty() || a.size() != b.size()) return false;
  std::string of_a(kBlock, '\0');
  std::string of_b(kBlock, '\0');
  for (uint64_t at = 0; at < a.size();) {
    const int64_t got = a.read_at(at, of_a.data(), kBlock);
    if (got <= 0 || b.read_at(at, of_b.data(), kBlock) != got ||
        std::memcmp(of_a.data(), of_b.data(), static_cast<std::size_t>(got)) != 0)
      return false;
    at += static_cast<uint64_t>(got);
  }
  return true;
}

struct Move {
  ObjectStore& from;
  ObjectStore& to;
  std::string workshop;  // files that are put into `to` are made here
  mode_t mode;
  bool deep;
  std::atomic<std::size_t> copied{0};
  std::atomic<std::size_t> there{0};

  std::string copy(const ObjectFile& row);
};

// What is there was read back when it was put there.
std::string Move::copy(const ObjectFile& row) {
  LocalCopy ours;
  LocalCopy theirs;
  std::optional<uint64_t> size;
  std::string error = to.look_for(row.path, size);
  if (!error.empty()) return error;
  const bool fresh = !size.has_value();
  if (!fresh && !deep && *size == row.size) return ++there, "";
  error = from.fetch(row.path, ours);
  FileSink sink;
  if (error.empty() && fresh) error = sink.open(workshop + "/moved.dcm", mode);
  if (error.empty() && fresh) error = copy_file(ours.path(), sink);
  if (error.empty() && fresh) error = to.put_under(sink, row.path);
  if (error.empty()) error = to.fetch(row.path, theirs);
  if (!error.empty()) return error;
  if (!same_bytes(ours.path(), theirs.path())) {
    if (fresh) to.remove(row.path);
    return to.place_of(row.path) + (fresh ? ": is not what was put there" : ": is there with other content");
  }
  ++(fresh ? copied : there);
  return "";
}

}  // namespace

int move_archive(Upkeep& upkeep) {
  const std::string address = upkeep.args.get("--to-store");
  if (address.empty()) {
    complain("move needs --to-store");
    return kUsage;
  }
  std::unique_ptr<ObjectStore> to;
  std::string error = open_store(address, upkeep.storage, to);
  const bool is_folder = error.empty() && !address.starts_with("s3://");
  std::error_code failure;
  if (is_folder) std::filesystem::create_directories(address, failure);
  if (failure) error = address + ": " + failure.message();
  if (!error.empty()) {
    complain("--to-store: %s", error.c_str());
    return kUsage;
  }
  Move move{upkeep.holdings.store(), *to, is_folder ? address : upkeep.storage.folder, upkeep.storage.mode,
            upkeep.args.has("--deep")};
  constexpr std::size_t kPage = 1000;
  std::map<std::string, ObjectFile> page;
  int exit = kSuccess;
  const auto copy_page = [&] {
    std::vector<std::string> keys;
    for (const auto& [key, row] : page) keys.push_back(key);
    exit = std::max(exit, for_each_file(keys, kAtOnce, [&](const std::string& key) {
                      FileResult result;
                      const std::string fault = move.copy(page.at(key));
                      if (!fault.empty()) report(key, fault);
                      result.exit = fault.empty() ? kSuccess : kFindings;
                      return result;
                    }));
    page.clear();
    return "";
  };
  error = each_row(upkeep.holdings.catalog(), [&](const ObjectFile& row) {
    page.emplace(row.path, row);
    return page.size() == kPage ? copy_page() : "";
  });
  if (error.empty()) error = copy_page();
  if (!error.empty()) {
    complain("%s", error.c_str());
    return kUsage;
  }
  print_cells(upkeep, {{"copied", std::to_string(move.copied)}, {"there", std::to_string(move.there)}});
  return exit;
}

}  // namespace vexal
