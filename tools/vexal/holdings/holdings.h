// All that an archive holds: the index of its objects, and the objects wherever they lie.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "catalog.h"
#include "server/storage.h"

namespace vexal {

// Rows of an option table: where all that is held lies.
#define VEXAL_HOLDINGS_OPTIONS                                                                               \
  {"--index", "postgresql://USER@HOST/DATABASE",                                                             \
   "keep the index in PostgreSQL instead of a file in --dir, for any number of servers; the password as "    \
   "PGPASSWORD or in the file PGPASSFILE"},                                                                  \
  {                                                                                                          \
    "--store", "s3://BUCKET/PREFIX",                                                                         \
        "keep objects in S3-compatible storage instead of --dir, which then holds the index and what is on " \
        "its way; ?endpoint=URL&region=NAME&ca=PEM may follow; credentials as AWS_ACCESS_KEY_ID and "        \
        "AWS_SECRET_ACCESS_KEY, or in a file of them"                                                        \
  }

// An object of the archive as a file to read: the stored one itself, or a copy that goes with this.
class LocalObject {
 public:
  // With the path of that file.
  const ObjectFile& file() const { return file_; }

 private:
  friend class Holdings;
  ObjectFile file_;
  LocalCopy copy_;
};

// The store at an address, a folder or "s3://...". An error text, empty on success.
std::string open_store(const std::string& address, const StorageOptions& options,
                       std::unique_ptr<ObjectStore>& store);
// Enters the object of a local file in an index, as what lies under a key.
ObjectIndex::Entered enter_file(ObjectIndex& index, const std::string& path, const std::string& key,
                                const std::string& expected, std::string& error);

// Any number of threads may call all of it at once.
class Holdings {
 public:
  // Opens store and index as the command line and the options say, brings the one up to date with the other
  // where both are in the folder, and tells the options of both. An error text, empty on success.
  // `upkeep`: it is not brought up to date, for that is what will be done with it.
  std::string open(const Args& args, StorageOptions& options, bool upkeep = false);
  Catalog& catalog() { return catalog_; }
  ObjectStore& store() { return *store_; }

  // Calls `take` for each entity of the level that matches, with a value for each key, until it gives false.
  // What the index lacks and an object of the entity tells is read from that.
  std::string find(
      Level level, const std::vector<CatalogKey>& keys, const Catalog::Stop& stop,
      const std::function<bool(const std::vector<std::string>& values, const std::string& charset)>& take);
  // All instances that match; their paths are keys of the store, and they are read through fetch().
  std::string objects(const std::vector<CatalogKey>& keys, const Catalog::Stop& stop,
                      std::vector<ObjectFile>& found) {
    return catalog_.files(keys, stop, found);
  }
  // Brings an object to where it can be read. An error text, empty on success.
  std::string fetch(const ObjectFile& object, LocalObject& local);
  // Bytes from an offset on, fewer at the end of the object: for what needs only part of it.
  std::string read(const ObjectFile& object, uint64_t offset, std::size_t length, std::string& bytes) {
    return store_->read(object.path, offset, length, bytes);
  }
  // Takes an object away, and then its row; it may have gone meanwhile. An error text, empty on success.
  std::string remove(const ObjectFile& object);
  // Whether it lies in the store with the size that it was stored with.
  std::string look_for(const ObjectFile& object, bool& there);

 private:
  Catalog catalog_;
  std::unique_ptr<ObjectStore> store_;
};

}  // namespace vexal
