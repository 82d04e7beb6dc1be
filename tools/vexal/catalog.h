// The objects of a folder, indexed in SQLite: one row an instance, queries by the attributes of its levels.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "sender.h"

struct sqlite3;
struct sqlite3_stmt;

namespace vexal {

enum class Level { Patient, Study, Series, Image };

// A key of a query: an attribute and what it has to match (PS3.4 section C.2.2.2); empty for anything.
struct CatalogKey {
  uint32_t tag = 0;
  std::string value;
};

class Catalog {
 public:
  Catalog() = default;
  ~Catalog();
  Catalog(const Catalog&) = delete;
  Catalog& operator=(const Catalog&) = delete;

  // Opens or makes the index of a folder and brings it up to date: files without a row are read, rows without
  // a file go. An error text, empty on success.
  std::string open(const std::string& folder, bool durable);

  // Takes a file in, in place of an older one of the same instance. On return the row stays whatever becomes
  // of the process.
  std::string add(const std::string& path, bool& index_failed);

  // Calls `take` for each entity of the level that matches, with a value for each key, until it gives false.
  std::string find(
      Level level, const std::vector<CatalogKey>& keys,
      const std::function<bool(const std::vector<std::string>& values, const std::string& charset)>& take);
  // The files of all instances that match.
  std::string files(const std::vector<CatalogKey>& keys, std::vector<ObjectFile>& found);

  // Whether the catalog has a column or a count for this attribute.
  static bool knows(uint32_t tag);

 private:
  std::string synchronise();
  std::string problem(const std::string& what) const;
  bool drop_old_form();
  bool run(const char* sql);

  std::mutex mutex_;
  sqlite3* database_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  std::string folder_;
};

// One value against one key: list of UIDs, range, wildcards; names without regard to case (PS3.4 section
// C.2.2.2).
bool matches_key(uint32_t tag, const std::string& value, const std::string& key);

}  // namespace vexal
