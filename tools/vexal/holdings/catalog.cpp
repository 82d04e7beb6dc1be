#include "catalog.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <optional>

#include "base/session.h"
#include "base/thrown.h"
#include "folder_follower.h"

namespace vexal {
namespace {

constexpr auto kTags = [] {
  std::array<uint32_t, kColumnCount + 1> tags{tags::kSpecificCharacterSet};
  for (std::size_t i = 0; i < kColumnCount; ++i) tags[i + 1] = kColumns[i].tag;
  return tags;
}();
static_assert(kTags[0] < kTags[1]);

constexpr std::size_t kMostTogether = 64;    // objects of one transaction
constexpr int kServerWriters = 3;            // transactions at a time, where there can be several
constexpr std::size_t kFirstPage = 256;      // rows of a query's first answers
constexpr std::size_t kLargestPage = 8192;   // and of the later ones
constexpr std::size_t kPageBytes = 1 << 20;  // of values that a query holds
constexpr uintmax_t kQuicklyChecked = 64 << 20;
constexpr auto kPatience = std::chrono::milliseconds(500);

ObjectFile object_of(const SqlRow& row, int first) {
  ObjectFile file;
  file.path = row.text(first);
  file.sop_class = row.text(first + 1);
  file.instance = row.text(first + 2);
  file.syntax = static_cast<VX_TRANSFER_SYNTAX>(row.number(first + 3));
  file.size = static_cast<uint64_t>(row.number(first + 4));
  file.whole = row.number(first + 5) != 0;
  return file;
}

}  // namespace

Catalog::Catalog() = default;

Catalog::~Catalog() {
  follower_.reset();
  if (lock_ >= 0) ::close(lock_);
}

std::span<const uint32_t> Catalog::wanted() const {
  return kTags;
}

std::string Catalog::open_database(bool& damaged, bool& fresh) {
  const DatabaseOptions database{options_.durable, false, options_.mode};
  SqlOutcome outcome = rows_.open(options_.address, database, 4);
  if (outcome.good()) outcome = queries_.open(options_.address, database, 8);
  if (outcome.good()) {
    outcome = rows_.read([&](Database& connection) -> SqlOutcome {
      std::error_code none;
      if (!connection.is_server() && std::filesystem::file_size(options_.address, none) <= kQuicklyChecked) {
        std::string told;
        SqlOutcome checked = connection.run("PRAGMA quick_check(1)", {}, [&](const SqlRow& row) {
          told = row.text(0);
          return false;
        });
        if (!checked.good()) return checked;
        if (told != "ok") return {SqlOutcome::Kind::Damaged, options_.address + ": " + told, 0};
      }
      return make_catalog(connection, options_.follows, fresh);
    });
  }
  damaged = outcome.kind == SqlOutcome::Kind::Damaged;
  return outcome.problem;
}

// A damaged index is made anew, if no other process uses it.
std::string Catalog::remake() {
  rows_.close();
  queries_.close();
  if (::flock(lock_, LOCK_EX | LOCK_NB) != 0)
    return options_.address + " is damaged, and in use by another process: stop that first";
  for (const char* end : {"", "-wal", "-shm"}) ::unlink((options_.address + end).c_str());
  bool damaged = false;
  bool fresh = false;
  const std::string error = open_database(damaged, fresh);
  ::flock(lock_, LOCK_SH);
  return error;
}

std::string Catalog::open(const CatalogOptions& options) {
  options_ = options;
  if (options_.address.empty()) options_.address = options_.folder + "/index.sqlite";
  if (options_.follows) {
    const std::string lock = options_.folder + "/index.sqlite.lock";
    lock_ = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, options_.mode);
    if (lock_ < 0 || ::flock(lock_, LOCK_SH) != 0) return lock + ": " + std::strerror(errno);
  }
  bool damaged = false;
  bool fresh = false;
  std::string error = open_database(damaged, fresh);
  if (damaged && options_.follows) {
    report(options_.address, "is damaged and made anew from the files: " + error);
    error = remake();
  }
  if (!error.empty() || !options_.follows) return error;
  follower_ = std::make_unique<FolderFollower>(*this, options_.folder);
  follower_->wait(kPatience);
  return "";
}

void Catalog::settle() {
  if (follower_ != nullptr) follower_->wait(std::nullopt);
}

std::string Catalog::key_of(const std::string& instance, std::string& key) {
  key.clear();
  return rows_
      .read([&](Database& database) {
        return database.run("SELECT object_key FROM instance WHERE SOPInstanceUID = ?", {instance},
                            [&](const SqlRow& row) {
                              key = row.text(0);
                              return false;
                            });
      })
      .problem;
}

// ---- Rows come and go ----

// A series that has lost its last instance goes, and so does its study.
SqlOutcome Catalog::prune(Database& database, int64_t series) {
  int64_t study = 0;
  const SqlValue id[] = {series};
  SqlOutcome outcome = read_number(database, "SELECT study FROM series WHERE id = ?", id, study);
  if (outcome.good())
    outcome = database.run(
        "DELETE FROM series WHERE id = ? AND NOT EXISTS (SELECT 1 FROM instance WHERE series = ?)",
        {series, series});
  if (outcome.good() && outcome.changed > 0)
    outcome =
        database.run("DELETE FROM study WHERE id = ? AND NOT EXISTS (SELECT 1 FROM series WHERE study = ?)",
                     {study, study});
  return outcome;
}

std::string Catalog::drop(const std::string& instance, const std::string& key) {
  return rows_
      .write([&](Database& database) {
        int64_t series = 0;
        const SqlValue values[] = {instance, key};
        const std::string sql =
            std::string("SELECT series FROM instance WHERE SOPInstanceUID = ? AND object_key = ?") +
            database.row_lock();
        SqlOutcome outcome = read_number(database, sql, values, series);
        if (!outcome.good() || series == 0) return outcome;
        outcome =
            database.run("DELETE FROM instance WHERE SOPInstanceUID = ? AND object_key = ?", {instance, key});
        return outcome.good() ? prune(database, series) : outcome;
      })
      .problem;
}

SqlOutcome Catalog::add(Database& database, const Entry& entry, bool with_study, bool& added) {
  const CatalogStatements& statements = catalog_statements();
  const CatalogRow& row = entry.row;
  const std::string& study = row.values[kUidColumns[0]];
  const std::string& series = row.values[kUidColumns[1]];
  std::vector<SqlValue> values;
  SqlOutcome outcome;
  if (with_study) {
    const std::string folded = folded_name(row.values[kPatientNameColumn]);
    add_values(row, CatalogTable::Study, values, folded);
    outcome = database.run(statements.add_study, values);
    if (!outcome.good()) return outcome;
    values.clear();
    add_values(row, CatalogTable::Series, values, "");
    values.emplace_back(study);
    outcome = database.run(statements.add_series, values);
    if (!outcome.good()) return outcome;
    values.clear();
  }
  add_values(row, CatalogTable::Instance, values, "");
  const ObjectFile& file = entry.file;
  for (const SqlValue& value :
       {SqlValue(file.path), SqlValue(int64_t{file.syntax}), SqlValue(static_cast<int64_t>(file.size)),
        SqlValue(file.whole ? 1 : 0), SqlValue(entry.modified), SqlValue(series), SqlValue(study)})
    values.push_back(value);
  outcome = database.run(statements.add_instance, values);
  added = outcome.good() && outcome.changed == 1;
  return outcome;
}

// Within a transaction. What comes of it, short of a failure, goes into the entry.
SqlOutcome Catalog::enter_one(Database& database, Entry& entry) {
  bool added = false;
  entry.result = Entered::Done;
  SqlOutcome outcome;
  if (entry.expected.empty()) outcome = add(database, entry, false, added);
  if (!outcome.good() || added) return outcome;
  // Its study or its series is new, or there is such an instance.
  std::string there;
  int64_t series = 0;
  const std::string& uid = entry.row.values[kUidColumns[2]];
  outcome = database.run(
      std::string("SELECT object_key, series FROM instance WHERE SOPInstanceUID = ?") + database.row_lock(),
      {uid}, [&](const SqlRow& row) {
        there = row.text(0);
        series = row.number(1);
        return false;
      });
  if (!outcome.good()) return outcome;
  // By a commit of which nobody heard; one that takes its own place is entered anew.
  if (there == entry.file.path && there != entry.expected) return outcome;
  if (there != entry.expected) {
    entry.result = Entered::Conflict;
    return outcome;
  }
  if (series != 0) {
    outcome = database.run("DELETE FROM instance WHERE SOPInstanceUID = ?", {uid});
    if (outcome.good()) outcome = prune(database, series);
  }
  if (outcome.good()) outcome = add(database, entry, true, added);
  // Somebody else was quicker: from the start.
  if (outcome.good() && !added) outcome = {SqlOutcome::Kind::Busy, "the index is changed all the time", 0};
  return outcome;
}

// All in one transaction; where that fails, each in its own.
void Catalog::write(std::span<Entry* const> entries) noexcept {
  try {
    SqlOutcome outcome;
    // What was committed with nobody hearing of it is found to be there.
    for (int attempt = 0; attempt < 2; ++attempt) {
      outcome = rows_.write([&](Database& database) {
        SqlOutcome one;
        for (Entry* entry : entries) {
          one = enter_one(database, *entry);
          if (!one.good()) break;
        }
        return one;
      });
      if (outcome.kind != SqlOutcome::Kind::Lost) break;
    }
    if (outcome.good()) return;
    using Kind = SqlOutcome::Kind;
    if (entries.size() == 1 || outcome.kind == Kind::Lost || outcome.kind == Kind::Busy) {
      for (Entry* entry : entries) {
        entry->result = Entered::Failed;
        entry->error = outcome.problem;
      }
    } else {
      for (std::size_t i = 0; i < entries.size(); ++i) write(entries.subspan(i, 1));
    }
  } catch (...) {
    note_thrown();
    for (Entry* entry : entries) {
      entry->result = Entered::Failed;
      entry->error = "no memory";  // short enough to need none
    }
  }
}

// Objects that come at the same time are committed together: a thread that writes takes along what waits.
void Catalog::enter(Entry& entry) {
  std::vector<Entry*> together;
  together.reserve(kMostTogether);
  std::unique_lock lock(mutex_);
  waiting_.push_back(&entry);
  const int most = rows_.is_server() ? kServerWriters : 1;
  written_.wait(lock, [&] { return entry.done || writers_ < most; });
  if (entry.done) return;
  ++writers_;
  while (!entry.done && !waiting_.empty()) {
    const std::size_t count = std::min(waiting_.size(), kMostTogether);
    together.assign(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(count));
    waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(count));
    lock.unlock();
    write(together);
    lock.lock();
    for (Entry* one : together) one->done = true;
    written_.notify_all();
  }
  --writers_;
  written_.notify_all();
  written_.wait(lock, [&] { return entry.done; });
}

ObjectIndex::Entered Catalog::enter(const StoredObject& stored, const HeadScan& scan,
                                    const std::string& expected, std::string& error) {
  Entry entry;
  entry.file.path = stored.key;
  entry.file.sop_class = stored.sop_class;
  entry.file.instance = stored.instance;
  entry.file.syntax = stored.syntax;
  entry.file.size = stored.size;
  // The library looks at the data set up to (0008,0018).
  entry.file.whole = scan.first_tag() <= tags::kSOPInstanceUID && stored.bytes % 2 == 0;
  entry.expected = expected;
  const MutedWarnings muted;
  Message kept;
  kept.id = scan.make_message();
  if (kept.id < 0) {
    error = "its attributes can not be read";
    return Entered::Failed;
  }
  entry.row.read(kept.id, stored.sop_class, stored.instance);
  if (options_.follows) entry.modified = modified_time(options_.folder + "/" + stored.key);
  enter(entry);
  error = entry.error;
  return entry.result;
}

// ---- Queries ----

namespace {

// A row that outlives its statement.
class CopiedRow : public SqlRow {
 public:
  CopiedRow(const SqlRow& row, int width) {
    texts_.reserve(static_cast<std::size_t>(width));
    for (int i = 0; i < width; ++i) texts_.emplace_back(row.text(i));
  }
  std::string_view text(int column) const override { return texts_[static_cast<std::size_t>(column)]; }
  int64_t number(int column) const override {
    int64_t number = 0;
    const std::string_view digits = text(column);
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
  }
  bool is_null(int column) const override { return text(column).empty(); }
  std::size_t bytes() const {
    std::size_t sum = 0;
    for (const std::string& one : texts_) sum += one.size() + sizeof one;
    return sum;
  }

 private:
  std::vector<std::string> texts_;
};

bool same_entity(Level level, const CatalogQuery::Place& one, const CatalogQuery::Place& other) {
  if (level == Level::Patient) return one.uid == other.uid;
  const std::size_t table = static_cast<std::size_t>(level) - 1;
  return one.ids[table] == other.ids[table];
}

}  // namespace

// A page of rows at a time: they are matched, and answers go out at the pace of the peer, while nothing of
// the database is held.
std::string Catalog::walk(Level level, const std::vector<CatalogKey>& keys, const Stop& stop,
                          const Taker& take) {
  std::optional<CatalogQuery> query;
  CatalogQuery::Place last;
  CatalogQuery::Place told;  // the entity of the last answer
  told.uid.clear();
  std::vector<std::string> values;
  std::string charset;
  std::size_t most = kFirstPage;
  for (bool more = true; more; most = std::min(most * 4, kLargestPage)) {
    std::vector<CopiedRow> page;
    std::size_t bytes = 0;
    const SqlOutcome outcome = queries_.read([&](Database& database) {
      if (!query) query.emplace(level, keys, database);
      return query->page(database, last, most, stop, [&](const SqlRow& row) {
        page.emplace_back(row, query->width());
        bytes += page.back().bytes();
        return bytes < kPageBytes;
      });
    });
    if (!outcome.good()) return outcome.problem;
    more = page.size() == most || bytes >= kPageBytes;
    for (const CopiedRow& row : page) {
      if (stop && stop()) return "the query was stopped";
      last = CatalogQuery::place_of(row);
      if (same_entity(level, last, told) || !query->read(row, values, charset)) continue;
      told = last;
      if (!take(row, values, charset)) return "";
    }
  }
  return "";
}

std::string Catalog::find(
    Level level, const std::vector<CatalogKey>& keys, const Stop& stop,
    const std::function<bool(const std::vector<std::string>& values, const std::string& charset)>& take) {
  return walk(level, keys, stop,
              [&](const SqlRow&, const std::vector<std::string>& values, const std::string& charset) {
                return take(values, charset);
              });
}

std::string Catalog::files(const std::vector<CatalogKey>& keys, const Stop& stop,
                           std::vector<ObjectFile>& found) {
  const int first = CatalogQuery::first_of_object(keys.size());
  std::string error = walk(Level::Image, keys, stop, [&](const SqlRow& row, const auto&, const std::string&) {
    found.push_back(object_of(row, first));
    return true;
  });
  std::sort(found.begin(), found.end(),
            [](const ObjectFile& one, const ObjectFile& other) { return one.path < other.path; });
  return error;
}

std::string Catalog::representative(const std::vector<CatalogKey>& keys, ObjectFile& object) {
  const int first = CatalogQuery::first_of_object(keys.size());
  return walk(Level::Image, keys, nullptr,
              [&](const SqlRow& row, const std::vector<std::string>& values, const std::string&) {
                // A value that reads as a pattern stands for itself here.
                const bool same = std::equal(
                    keys.begin(), keys.end(), values.begin(),
                    [](const CatalogKey& key, const std::string& value) { return key.value == value; });
                if (same) object = object_of(row, first);
                return !same;
              });
}

std::string Catalog::rows_behind(const std::string& instance, std::size_t count,
                                 std::vector<ObjectFile>& found) {
  found.clear();
  return queries_
      .read([&](Database& database) {
        return database.run(
            "SELECT object_key, SOPClassUID, SOPInstanceUID, syntax, size, whole FROM instance WHERE "
            "SOPInstanceUID > ? ORDER BY SOPInstanceUID LIMIT ?",
            {instance, static_cast<int64_t>(count)}, [&](const SqlRow& row) {
              found.push_back(object_of(row, 0));
              return true;
            });
      })
      .problem;
}

}  // namespace vexal
