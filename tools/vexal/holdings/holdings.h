// All that an archive holds: the index of its objects, and the objects wherever they lie.
#pragma once

#include <string>
#include <vector>

#include "catalog.h"
#include "server/storage.h"

namespace vexal {

// An object of the archive as a file to read: the stored one itself, or a copy that goes with this.
class LocalObject {
 public:
  LocalObject() = default;
  ~LocalObject();
  LocalObject(const LocalObject&) = delete;
  LocalObject& operator=(const LocalObject&) = delete;

  const ObjectFile& file() const { return file_; }

 private:
  friend class Holdings;
  ObjectFile file_;
  std::string copy_;  // removed at the end; empty: the archive's own file
};

// Any number of threads may call all of it at once.
class Holdings {
 public:
  // Opens index and store as the options say and brings the one up to date with the other. An error text,
  // empty on success.
  std::string open(const StorageOptions& options);

  // What place_object() enters objects in.
  ObjectIndex& index() { return catalog_; }

  // Calls `take` for each entity of the level that matches, with a value for each key, until it gives false.
  std::string find(
      Level level, const std::vector<CatalogKey>& keys, const Catalog::Stop& stop,
      const std::function<bool(const std::vector<std::string>& values, const std::string& charset)>& take) {
    return catalog_.find(level, keys, stop, take);
  }
  // All instances that match; what they are read through is fetch().
  std::string objects(const std::vector<CatalogKey>& keys, const Catalog::Stop& stop,
                      std::vector<ObjectFile>& found) {
    return catalog_.files(keys, stop, found);
  }
  // Brings an object to where it can be read. An error text, empty on success.
  std::string fetch(const ObjectFile& object, LocalObject& local);

 private:
  Catalog catalog_;
};

}  // namespace vexal
