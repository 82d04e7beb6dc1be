// Where an object lies: under its name in a folder, or in the store of an index.
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <mutex>

#include "base/session.h"
#include "base/tags.h"
#include "base/uid.h"
#include "base/values.h"
#include "storage.h"

namespace vexal {
namespace {

using Outcome = StoredObject::Outcome;

// Objects of one instance are placed one after the other.
std::mutex& mutex_of(const std::string& instance) {
  static std::mutex mutexes[64];
  return mutexes[std::hash<std::string>()(instance) % std::size(mutexes)];
}

// Fills in the study and the series, and the name below the folder of all objects that these make.
std::string choose_name(const std::string& temporary, const StorageOptions& options, StoredObject& stored,
                        const HeadScan* scan, std::string& name) {
  name = stored.instance;
  if (!options.tree) return "";
  HeadScan own;
  if (scan == nullptr) {
    const std::string error = scan_file(temporary, kTreeTags, own);
    if (!error.empty()) return error;
    scan = &own;
  }
  stored.study = scan->text(tags::kStudyInstanceUID);
  stored.series = scan->text(tags::kSeriesInstanceUID);
  // Palettes and the like belong to no study.
  if (!is_safe_name(stored.study)) stored.study = "no-study";
  if (!is_safe_name(stored.series)) stored.series = "no-series";
  name = stored.study + "/" + stored.series + "/" + stored.instance;
  return "";
}

// What is to be done with an object of which there is one already; `place` is where, for people.
std::string compare_with(const std::string& there, const std::string& place, const std::string& fresh,
                         const StorageOptions& options, StoredObject& stored) {
  if (same_data_set(fresh, there)) {
    stored.outcome = Outcome::Repeated;
  } else if (options.duplicates == StorageOptions::Duplicates::Replace) {
    stored.outcome = Outcome::Replaced;
    report(stored.instance, "replaces other content in " + place);
  } else if (options.duplicates == StorageOptions::Duplicates::Keep) {
    stored.outcome = Outcome::Kept;
    report(stored.instance, "is there with other content, which is kept: " + place);
  } else {
    stored.outcome = Outcome::Refused;
    return "is there with other content: " + place;
  }
  return "";
}

std::string place_in_folder(FileSink& sink, const StorageOptions& options, StoredObject& stored,
                            const HeadScan* scan) {
  std::string path;
  std::string error = sink.place([&](const std::string& temporary, std::string& final_path) {
    std::string name;
    std::string failure = choose_name(temporary, options, stored, scan, name);
    if (failure.empty()) failure = make_folders_of(options.folder, name, options.mode);
    if (!failure.empty()) return failure;
    final_path = path = options.folder + "/" + name + ".dcm";
    struct stat status {};
    stored.outcome = Outcome::Stored;
    if (::lstat(path.c_str(), &status) != 0) return failure;
    return S_ISREG(status.st_mode) ? compare_with(path, path, temporary, options, stored)
                                   : path + " is there and no file";
  });
  if (error.empty() && (stored.outcome == Outcome::Stored || stored.outcome == Outcome::Replaced)) {
    error = sink.commit(options.durable);
    if (!error.empty()) stored.outcome = Outcome::Failed;
  } else {
    sink.drop();
    if (!error.empty() && stored.outcome != Outcome::Refused) stored.outcome = Outcome::Failed;
  }
  if (error.empty() && stored.outcome != Outcome::Kept) stored.path = path;
  return error;
}

// An object on its way into the store and the index, where other servers may be at the same instance.
class Placement {
 public:
  Placement(FileSink& sink, const StorageOptions& options, StoredObject& stored, const HeadScan& scan)
      : sink_(sink),
        index_(*options.index),
        store_(*options.store),
        options_(options),
        stored_(stored),
        scan_(scan) {}
  // An error text, empty if the object is there.
  std::string run();

 private:
  std::string judge();
  std::string put();
  std::string enter(bool& again);
  std::string withdraw(const std::string& error);

  FileSink& sink_;
  ObjectIndex& index_;
  ObjectStore& store_;
  const StorageOptions& options_;
  StoredObject& stored_;
  const HeadScan& scan_;
  std::string known_;  // the key that the index has for the instance
};

// What becomes of the object beside the one that the index knows.
std::string Placement::judge() {
  stored_.outcome = Outcome::Stored;
  if (known_.empty()) return "";
  std::optional<uint64_t> size;
  std::string error = store_.look_for(known_, size);
  // A row whose object has gone vouches for nothing.
  if (!error.empty() || !size.has_value()) return error;
  LocalCopy there;
  LocalCopy own;
  error = store_.fetch(known_, there);
  if (error.empty() && !stored_.key.empty()) error = store_.fetch(stored_.key, own);
  if (!error.empty()) return error;
  const std::string place = store_.place_of(known_);
  if (!own.path().empty()) return compare_with(there.path(), place, own.path(), options_, stored_);
  return sink_.place([&](const std::string& temporary, std::string&) {
    return compare_with(there.path(), place, temporary, options_, stored_);
  });
}

std::string Placement::put() {
  std::string name;
  std::string error = sink_.place([&](const std::string& temporary, std::string&) {
    struct stat status {};
    if (::stat(temporary.c_str(), &status) != 0) return std::string("has gone");
    stored_.size = static_cast<uint64_t>(status.st_size);
    return choose_name(temporary, options_, stored_, &scan_, name);
  });
  // The key of an object that has gone may be about to be dropped: no other gets it.
  if (name + ".dcm" == known_) name += "-" + random_name();
  if (error.empty()) error = store_.put(sink_, name, stored_.key);
  if (!error.empty()) stored_.key.clear();
  stored_.path = error.empty() ? store_.place_of(stored_.key) : "";
  return error;
}

// `again`: another server was faster.
std::string Placement::enter(bool& again) {
  std::string error;
  const ObjectIndex::Entered entered = index_.enter(stored_, scan_, known_, error);
  again = entered == ObjectIndex::Entered::Conflict;
  if (entered != ObjectIndex::Entered::Done) return error;
  // Nobody finds the older one any more.
  if (!known_.empty()) {
    if (const std::string failure = store_.remove(known_); !failure.empty())
      report(store_.place_of(known_), "is left over: " + failure);
  }
  return "";
}

// The object does not stay, unless the index has it in spite of what it said, or does not tell.
std::string Placement::withdraw(const std::string& error) {
  sink_.drop();
  if (stored_.key.empty()) return error;
  std::string known;
  if (!index_.key_of(stored_.instance, known).empty() || known == stored_.key) return error;
  if (const std::string failure = store_.remove(stored_.key); !failure.empty())
    report(store_.place_of(stored_.key), "is left over: " + failure);
  return error;
}

std::string Placement::run() {
  constexpr int kTries = 20;
  std::string error;
  for (int i = 0; i < kTries; ++i) {
    error = index_.key_of(stored_.instance, known_);
    if (error.empty() && !known_.empty() && known_ == stored_.key) return "";
    if (error.empty()) error = judge();
    const bool to_store = stored_.outcome == Outcome::Stored || stored_.outcome == Outcome::Replaced;
    if (error.empty() && !to_store) {
      withdraw("");
      const bool kept = stored_.outcome == Outcome::Kept;
      stored_.key = kept ? "" : known_;
      stored_.path = kept ? "" : store_.place_of(known_);
      return "";
    }
    if (error.empty() && stored_.key.empty()) error = put();
    bool again = false;
    if (error.empty()) error = enter(again);
    if (error.empty() && !again) return "";
    if (!error.empty()) break;
  }
  if (error.empty()) error = "others store it all the time";
  if (stored_.outcome != Outcome::Refused) stored_.outcome = Outcome::Failed;
  withdraw(error);
  stored_.key.clear();
  stored_.path.clear();
  return error;
}

}  // namespace

std::string place_object(FileSink& sink, const StorageOptions& options, StoredObject& stored,
                         const HeadScan* scan) {
  const std::lock_guard lock(mutex_of(stored.instance));
  if (options.index == nullptr) return place_in_folder(sink, options, stored, scan);
  return Placement(sink, options, stored, *scan).run();
}

}  // namespace vexal
