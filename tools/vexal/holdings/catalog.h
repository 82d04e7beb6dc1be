// The index of the objects of an archive: studies, series and instances in SQLite or PostgreSQL.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "catalog_columns.h"
#include "catalog_query.h"
#include "network/sender.h"
#include "server/storage.h"
#include "sql/pool.h"

namespace vexal {

class FolderFollower;

struct CatalogOptions {
  std::string address;  // of a server's database; empty: index.sqlite in the folder
  std::string folder;
  bool follows = false;  // it is the index of the files in the folder, and can be made anew from them
  bool durable = false;  // SQLite: rows survive a crash of the system
  mode_t mode = 0640;    // SQLite: of its file
};

// Any number of threads may call all of it at once, and any number of processes may use one index. The first
// object of a study and of a series tells what is kept of these.
class Catalog : public ObjectIndex {
 public:
  // Asked now and then while a query runs; true ends it.
  using Stop = SqlStop;

  Catalog();
  ~Catalog() override;
  Catalog(const Catalog&) = delete;
  Catalog& operator=(const Catalog&) = delete;

  // Opens or makes the index. One that follows a folder is brought up to date on a thread of its own: files
  // without a row are read, rows without a file go; this waits for that a moment. An error text, empty on
  // success.
  std::string open(const CatalogOptions& options);
  // Waits until the index is up to date with its folder.
  void settle();

  // A row that was entered is committed: it stays whatever becomes of the process.
  std::span<const uint32_t> wanted() const override;
  std::string key_of(const std::string& instance, std::string& key) override;
  Entered enter(const StoredObject& stored, const HeadScan& scan, const std::string& expected,
                std::string& error) override;
  std::string drop(const std::string& instance, const std::string& key) override;

  // Calls `take` for each entity of the level that matches, in the order of their UIDs, with a value for each
  // key, until it gives false. Nothing of the database is held meanwhile.
  std::string find(
      Level level, const std::vector<CatalogKey>& keys, const Stop& stop,
      const std::function<bool(const std::vector<std::string>& values, const std::string& charset)>& take);
  // All instances that match, with their keys as paths.
  std::string files(const std::vector<CatalogKey>& keys, const Stop& stop, std::vector<ObjectFile>& found);
  // An instance whose values are just these; without a path where there is none.
  std::string representative(const std::vector<CatalogKey>& keys, ObjectFile& object);
  // The next rows behind that of an instance, in order of instances; "" begins.
  std::string rows_behind(const std::string& instance, std::size_t count, std::vector<ObjectFile>& found);

  // Whether the catalog keeps the value of this attribute.
  static bool keeps(uint32_t tag) { return find_column(tag) != nullptr; }
  // Whether it counts it, or lists it over the instances of an entity.
  static bool computes(uint32_t tag) { return is_computed(tag); }

 private:
  friend class FolderFollower;
  // One object that is to be entered.
  struct Entry {
    CatalogRow row;
    ObjectFile file;  // with its key as path
    int64_t modified = 0;
    std::string expected;
    Entered result = Entered::Failed;
    std::string error;
    bool done = false;
  };
  // Calls `take` for one row of each entity of the level that matches, until it gives false.
  using Taker = std::function<bool(const SqlRow& row, const std::vector<std::string>& values,
                                   const std::string& charset)>;
  std::string walk(Level level, const std::vector<CatalogKey>& keys, const Stop& stop, const Taker& take);
  std::string open_database(bool& damaged, bool& fresh);
  std::string remake();
  SqlOutcome enter_one(Database& database, Entry& entry);
  SqlOutcome add(Database& database, const Entry& entry, bool with_study, bool& added);
  void write(std::span<Entry* const> entries) noexcept;
  void enter(Entry& entry);
  static SqlOutcome prune(Database& database, int64_t series);

  CatalogOptions options_;
  DatabasePool rows_;     // for what is stored
  DatabasePool queries_;  // which may take their time
  int lock_ = -1;         // held by each process that uses an index which can be made anew

  std::mutex mutex_;
  std::condition_variable written_;
  std::vector<Entry*> waiting_;
  int writers_ = 0;  // threads that write for others too

  std::unique_ptr<FolderFollower> follower_;
};

}  // namespace vexal
