// The objects of a folder, indexed in SQLite: one row an instance, queries by the attributes of its levels.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "network/sender.h"
#include "server/storage.h"

struct sqlite3;
struct sqlite3_stmt;

namespace vexal {

enum class Level { Patient, Study, Series, Image };

// A key of a query: an attribute and what it has to match (PS3.4 section C.2.2.2); empty for anything.
struct CatalogKey {
  uint32_t tag = 0;
  VX_VR vr = 0;
  std::string value;
};

class Catalog : public ObjectIndex {
 public:
  // Asked now and then while a query runs; true ends it.
  using Stop = std::function<bool()>;

  Catalog() = default;
  ~Catalog() override;
  Catalog(const Catalog&) = delete;
  Catalog& operator=(const Catalog&) = delete;

  // Opens or makes the index in a folder, whose file gets this mode. Where it is that of the files in this
  // folder, it is brought up to date: files without a row are read, rows without a file go, and an index that
  // is damaged is made anew. An error text, empty on success.
  std::string open(const std::string& folder, bool durable, mode_t mode, bool of_files = true);

  // A row that was entered stays whatever becomes of the process.
  std::span<const uint32_t> wanted() const override;
  std::string key_of(const std::string& instance, std::string& key) override;
  Entered enter(const StoredObject& stored, const HeadScan& scan, const std::string& expected,
                std::string& error) override;
  std::string drop(const std::string& instance, const std::string& key) override;

  // Calls `take` for each entity of the level that matches, with a value for each key, until it gives false.
  // No lock is held meanwhile.
  std::string find(
      Level level, const std::vector<CatalogKey>& keys, const Stop& stop,
      const std::function<bool(const std::vector<std::string>& values, const std::string& charset)>& take);
  // All instances that match, with their keys as paths.
  std::string files(const std::vector<CatalogKey>& keys, const Stop& stop, std::vector<ObjectFile>& found);

  // The next rows behind that of an instance, in order of instances; "" begins.
  std::string rows_behind(const std::string& instance, std::size_t count, std::vector<ObjectFile>& found);

  // Whether the catalog keeps the value of this attribute.
  static bool keeps(uint32_t tag);

 private:
  class Reader;
  std::string open_index(const std::string& path, bool durable, bool& damaged);
  std::string synchronise();
  std::string drop_row(const std::string& path);
  std::string enter_file(const std::string& name);
  // The path of the file is its key.
  Entered insert(const ObjectFile& file, int32_t object, const std::string& expected, std::string& error);
  std::string select_files(const std::string& rest, const std::vector<std::string>& bound, const Stop& stop,
                           std::vector<ObjectFile>& found);
  std::string read_key(const std::string& instance, std::string& key);
  std::string problem(const std::string& what) const;
  bool run(const std::string& sql);
  void close();

  std::string index_path_;
  std::string folder_;
  bool of_files_ = true;
  std::mutex mutex_;  // over the connection that writes
  sqlite3* database_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  std::mutex readers_mutex_;
  std::vector<sqlite3*> readers_;  // idle ones
};

}  // namespace vexal
