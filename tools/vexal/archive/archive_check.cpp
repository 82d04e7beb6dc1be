// vexal archive check: index and objects side by side.
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>

#include "base/parallel.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "images/bounded_file.h"
#include "upkeep.h"

namespace vexal {
namespace {

// What lies in the store, as little of it as tells keys apart: an archive has millions.
struct Listed {
  uint64_t key;  // a hash
  uint64_t size;
  bool has_row;
};

uint64_t hash_of(const std::string& key) {
  return std::hash<std::string>()(key);
}

class Check {
 public:
  Check(Upkeep& upkeep, int64_t grace)
      : upkeep_(upkeep),
        catalog_(upkeep.holdings.catalog()),
        store_(upkeep.holdings.store()),
        repair_(upkeep.args.has("--repair")),
        deep_(upkeep.args.has("--deep")),
        young_(std::time(nullptr) - grace) {}
  // The exit code.
  int run();

 private:
  std::string list();
  Listed* find(const std::string& key);
  std::string check_row(const ObjectFile& row);
  std::string check_lost(const ObjectFile& row);
  std::string check_size(const ObjectFile& row, uint64_t size);
  std::string check_content(const ObjectFile& row);
  std::string check_rowless(const ListedObject& object);
  std::string give_row(const ListedObject& object, const std::string& path, const std::string& instance,
                       const std::string& expected);
  std::string beside(const ListedObject& object, const std::string& path, const std::string& instance,
                     const std::string& known);
  std::string put_aside(const std::string& key, const std::string& path);
  void tell(const char* what, const std::string& key, const std::string& instance, const std::string& done,
            bool mended);

  Upkeep& upkeep_;
  Catalog& catalog_;
  ObjectStore& store_;
  bool repair_;
  bool deep_;
  int64_t young_;  // what is no older stays as it is
  std::vector<Listed> listed_;
  std::size_t rows_ = 0;
  std::size_t findings_ = 0;
  std::size_t open_ = 0;  // of these, what is not as it was, or as it should be
};

void Check::tell(const char* what, const std::string& key, const std::string& instance,
                 const std::string& done, bool mended) {
  ++findings_;
  if (!mended) ++open_;
  print_cells(upkeep_, {{"what", what}, {"instance", instance}, {"key", key}, {"done", done}});
}

std::string Check::list() {
  const std::string error = store_.list("", [&](const ListedObject& object) {
    listed_.push_back({hash_of(object.key), object.size, false});
    return true;
  });
  std::sort(listed_.begin(), listed_.end(),
            [](const Listed& one, const Listed& other) { return one.key < other.key; });
  return error;
}

Listed* Check::find(const std::string& key) {
  const uint64_t hash = hash_of(key);
  const auto found = std::lower_bound(listed_.begin(), listed_.end(), hash,
                                      [](const Listed& one, uint64_t wanted) { return one.key < wanted; });
  return found != listed_.end() && found->key == hash ? &*found : nullptr;
}

std::string Check::check_row(const ObjectFile& row) {
  ++rows_;
  std::optional<uint64_t> size;
  if (Listed* listed = find(row.path)) {
    listed->has_row = true;
    size = listed->size;
  } else if (const std::string error = store_.look_for(row.path, size); !error.empty()) {
    return error;
  }
  if (!size.has_value()) return check_lost(row);
  if (*size != row.size) return check_size(row, *size);
  return deep_ ? check_content(row) : "";
}

std::string Check::check_lost(const ObjectFile& row) {
  std::string known;
  std::string error = catalog_.key_of(row.instance, known);
  if (!error.empty() || known != row.path) return error;  // it was replaced or deleted meanwhile
  if (repair_ && listed_.empty())
    return store_.place_of("") +
           ": no object lies there at all, and no row is dropped: is it the right place?";
  if (repair_) error = catalog_.drop(row.instance, row.path);
  tell("row without object", row.path, row.instance, repair_ ? "row dropped" : "", false);
  return error;
}

// What can not be read of an object as far as the index is concerned, or names another instance.
std::string head_fault(const std::string& path, std::span<const uint32_t> wanted, std::string& instance) {
  ObjectFile file;
  file.path = path;
  const MutedWarnings muted(true);
  std::string error = file.look_at();
  HeadScan scan;
  if (error.empty()) error = scan_file(path, wanted, scan);
  instance = file.instance;
  if (!error.empty()) return error;
  scan.end();
  if (scan.state() == HeadScan::State::Damaged) return "is cut off";
  const std::string inside = scan.text(tags::kSOPInstanceUID);
  return inside.empty() || inside == instance ? "" : "names " + inside + " in its data set";
}

// What can not be read of the rest.
std::string rest_fault(const std::string& path, VX_TRANSFER_SYNTAX syntax) {
  // One whose syntax is not known can only be handed on.
  if (is_unknown_syntax(syntax)) return "";
  const MutedWarnings muted(true);
  BoundedFile bounds;
  DicomFile file;
  std::string fault;
  if (bounds.open(file, path, fault) == VX_NORMAL_COMPLETION) return "";
  return fault.empty() ? file.problem() : fault;
}

std::string Check::check_size(const ObjectFile& row, uint64_t size) {
  LocalCopy local;
  std::string instance;
  std::string error = store_.fetch(row.path, local);
  if (!error.empty()) return error;
  const bool good = head_fault(local.path(), catalog_.wanted(), instance).empty() &&
                    instance == row.instance && rest_fault(local.path(), row.syntax).empty();
  const std::string what = "has " + std::to_string(size) + " bytes instead of " + std::to_string(row.size);
  if (repair_ && good) enter_file(catalog_, local.path(), row.path, row.path, error);
  if (repair_ && !good) {
    error = put_aside(row.path, local.path());
    if (error.empty()) error = catalog_.drop(row.instance, row.path);
  }
  if (!error.empty()) return error;
  // Of what is shorter now, something is lost.
  tell(what.c_str(), row.path, row.instance,
       !repair_ ? ""
       : good   ? "entered anew"
                : "moved aside",
       repair_ && good && size > row.size);
  return "";
}

std::string Check::check_content(const ObjectFile& row) {
  LocalCopy local;
  std::string error = store_.fetch(row.path, local);
  if (!error.empty()) return error;
  std::string instance;
  std::string fault = head_fault(local.path(), catalog_.wanted(), instance);
  if (fault.empty() && instance != row.instance) fault = "is " + instance;
  const bool aside = !fault.empty();
  if (fault.empty()) fault = rest_fault(local.path(), row.syntax);
  if (fault.empty()) return "";
  if (repair_ && aside) {
    error = put_aside(row.path, local.path());
    if (error.empty()) error = catalog_.drop(row.instance, row.path);
  }
  tell(("damaged: " + fault).c_str(), row.path, row.instance, repair_ && aside ? "moved aside" : "", false);
  return error;
}

// An object without a row: from a server that ended before it entered it, or of which nobody knows.
std::string Check::check_rowless(const ListedObject& object) {
  if (object.modified > young_) return "";
  if (const Listed* listed = find(object.key); listed != nullptr && listed->has_row) return "";
  LocalCopy local;
  std::string error = store_.fetch(object.key, local);
  if (!error.empty()) {
    std::optional<uint64_t> size;
    return store_.look_for(object.key, size).empty() && !size.has_value() ? "" : error;  // gone meanwhile
  }
  std::string instance;
  const std::string fault = head_fault(local.path(), catalog_.wanted(), instance);
  if (!fault.empty()) {
    if (repair_) error = put_aside(object.key, local.path());
    tell(("object without row: " + fault).c_str(), object.key, "", repair_ ? "moved aside" : "", false);
    return error;
  }
  std::string known;
  error = catalog_.key_of(instance, known);
  if (!error.empty() || known == object.key) return error;
  std::optional<uint64_t> size;
  if (!known.empty()) error = store_.look_for(known, size);
  if (!error.empty()) return error;
  return size.has_value() ? beside(object, local.path(), instance, known)
                          : give_row(object, local.path(), instance, known);
}

std::string Check::give_row(const ListedObject& object, const std::string& path, const std::string& instance,
                            const std::string& expected) {
  std::string error;
  bool entered = false;
  if (repair_)
    entered = enter_file(catalog_, path, object.key, expected, error) == ObjectIndex::Entered::Done;
  tell("object without row", object.key, instance, entered ? "entered" : "", entered);
  return error;
}

// Another object of the same instance has the row.
std::string Check::beside(const ListedObject& object, const std::string& path, const std::string& instance,
                          const std::string& known) {
  LocalCopy there;
  std::string error = store_.fetch(known, there);
  if (!error.empty()) return error;
  const bool same = same_data_set(path, there.path());
  if (repair_) error = same ? store_.remove(object.key) : put_aside(object.key, path);
  if (!error.empty()) return error;
  tell(same ? "second copy" : "other content of an instance", object.key, instance,
       !repair_ ? ""
       : same   ? "removed"
                : "moved aside",
       repair_ && same);
  return "";
}

// Under a name that makes it no object for servers that look for some.
std::string Check::put_aside(const std::string& key, const std::string& path) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(upkeep_.storage.folder) / "lost+found";
  std::error_code failure;
  fs::create_directories(folder, failure);
  std::string name = key;
  std::replace(name.begin(), name.end(), '/', '_');
  if (name.ends_with(".dcm")) name.resize(name.size() - 4);
  // What was put aside before stays.
  const std::string stem = name;
  for (int n = 2; fs::exists(folder / (name + ".lost"), failure); ++n) name = stem + "-" + std::to_string(n);
  FileSink sink;
  std::string error = sink.open(folder / (name + ".lost"), upkeep_.storage.mode);
  if (error.empty()) error = copy_file(path, sink);
  if (error.empty()) error = sink.commit(true);
  if (!error.empty()) return (folder / name).string() + ": " + error;
  return store_.remove(key);
}

int Check::run() {
  std::string error = list();
  Progress progress(2 * listed_.size());
  std::size_t done = 0;
  if (error.empty()) {
    error = each_row(catalog_, [&](const ObjectFile& row) {
      progress.step(done++);
      return check_row(row);
    });
  }
  if (error.empty()) {
    std::string failure;
    error = store_.list("", [&](const ListedObject& object) {
      progress.step(done++);
      failure = check_rowless(object);
      return failure.empty();
    });
    if (error.empty()) error = failure;
  }
  progress.end();
  if (!error.empty()) {
    complain("%s", error.c_str());
    return kUsage;
  }
  if (!upkeep_.json)
    say("%zu rows, %zu objects, %zu findings, %zu of them not mended", rows_, listed_.size(), findings_,
        open_);
  return open_ == 0 ? kSuccess : kFindings;
}

}  // namespace

int check_archive(Upkeep& upkeep) {
  long grace = 3600;
  if (!upkeep.args.number("--grace", 0, 1L << 40, grace)) return kUsage;
  return Check(upkeep, grace).run();
}

}  // namespace vexal
