// Where the objects lie that an index knows.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "files/files.h"

namespace vexal {

// A file to read: one that stays, or a copy that goes with this.
class LocalCopy {
 public:
  LocalCopy() = default;
  ~LocalCopy() { set(""); }
  LocalCopy(const LocalCopy&) = delete;
  LocalCopy& operator=(const LocalCopy&) = delete;

  // What was there before goes first.
  void set(std::string path, bool temporary = false);
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  bool temporary_ = false;
};

struct ListedObject {
  std::string key;
  uint64_t size = 0;
  int64_t modified = 0;  // seconds since 1970
};

// Whole files under keys such as STUDY/SERIES/INSTANCE.dcm. A key is given once: nothing that lies there is
// ever written again, so that any number of servers may use one store. All functions may be called on many
// threads at once, and give an error text, empty on success.
class ObjectStore {
 public:
  virtual ~ObjectStore() = default;

  // Takes in a file that is written to its end, from the folder that the sink was opened in for this store.
  // It is whole under its key when this returns, or not there: NAME.dcm, or NAME-RANDOM.dcm.
  virtual std::string put(FileSink& sink, const std::string& name, std::string& key) = 0;
  // The same under this very key, where nothing lies yet and nobody else will put anything meanwhile.
  virtual std::string put_under(FileSink& sink, const std::string& key) = 0;
  // Brings an object to where it can be read as a file.
  virtual std::string fetch(const std::string& key, LocalCopy& local) = 0;
  // Bytes from an offset on, fewer at the end of the object.
  virtual std::string read(const std::string& key, uint64_t offset, std::size_t length,
                           std::string& bytes) = 0;
  // No size: there is no such object.
  virtual std::string look_for(const std::string& key, std::optional<uint64_t>& size) = 0;
  // What is not there is no failure.
  virtual std::string remove(const std::string& key) = 0;
  // All objects whose keys begin with `prefix`, in order of their keys within a folder, until `take` gives
  // false.
  virtual std::string list(const std::string& prefix,
                           const std::function<bool(const ListedObject&)>& take) = 0;
  // Where an object lies, for people.
  virtual std::string place_of(const std::string& key) const = 0;
};

// The folders below `folder` that a name with slashes needs; what lies there in the place of one, a link
// included, is not followed.
std::string make_folders_of(const std::string& folder, const std::string& name, mode_t mode);

}  // namespace vexal
