#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <unordered_map>

#include "engines.h"

namespace vexal {
namespace {

constexpr int kMostWaits = 10000;  // of a millisecond, for another process that writes
constexpr int kStepsToAsk = 1000;  // of the engine, between two questions whether to stop

class Row : public SqlRow {
 public:
  explicit Row(sqlite3_stmt* statement) : statement_(statement) {}
  std::string_view text(int column) const override {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    if (bytes == nullptr) return {};
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column))};
  }
  int64_t number(int column) const override { return sqlite3_column_int64(statement_, column); }
  bool is_null(int column) const override { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

 private:
  sqlite3_stmt* statement_;
};

class SqliteDatabase : public Database {
 public:
  explicit SqliteDatabase(const std::string& path) : path_(path) {}
  ~SqliteDatabase() override {
    forget();
    sqlite3_close(connection_);
  }
  SqlOutcome open(const DatabaseOptions& options);
  SqlOutcome run(std::string_view sql, std::span<const SqlValue> values, const SqlTaker& take,
                 const SqlStop& stop) override;
  SqlOutcome script(const std::string& sql) override {
    return outcome(sqlite3_exec(connection_, sql.c_str(), nullptr, nullptr, nullptr));
  }
  bool is_server() const override { return false; }
  const char* text_type() const override { return "TEXT"; }
  const char* identity_type() const override { return "INTEGER PRIMARY KEY"; }
  const char* join_function() const override { return "group_concat"; }
  const char* row_lock() const override { return ""; }  // one writes at a time
  const char* layout_lock() const override { return "SELECT 1"; }
  const std::string& address() const override { return path_; }

 private:
  const char* begin_statement() const override { return "BEGIN IMMEDIATE"; }
  SqlOutcome outcome(int result) const;
  sqlite3_stmt* prepared(std::string_view sql, bool kept);
  void forget() {
    for (const auto& [sql, statement] : prepared_) sqlite3_finalize(statement);
    prepared_.clear();
  }
  static int ask(void* user);
  static int wait(void*, int count);

  std::string path_;
  sqlite3* connection_ = nullptr;
  std::unordered_map<std::string, sqlite3_stmt*> prepared_;
};

// Its own way to wait sleeps longer each time, up to 100 ms.
int SqliteDatabase::wait(void*, int count) {
  if (count >= kMostWaits) return 0;
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return 1;
}

// No exception passes through the engine.
int SqliteDatabase::ask(void* user) {
  try {
    return (*static_cast<const SqlStop*>(user))() ? 1 : 0;
  } catch (...) {
    return 1;
  }
}

SqlOutcome SqliteDatabase::outcome(int result) const {
  using Kind = SqlOutcome::Kind;
  if (result == SQLITE_OK || result == SQLITE_DONE || result == SQLITE_ROW) return {};
  Kind kind = Kind::Failed;
  const int extended = connection_ != nullptr ? sqlite3_extended_errcode(connection_) : result;
  switch (result & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      kind = Kind::Busy;
      break;
    case SQLITE_INTERRUPT:
      kind = Kind::Stopped;
      break;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      kind = Kind::Damaged;
      break;
    case SQLITE_CONSTRAINT:
      if (extended == SQLITE_CONSTRAINT_UNIQUE || extended == SQLITE_CONSTRAINT_PRIMARYKEY)
        kind = Kind::Twice;
      break;
    default:
      break;
  }
  return {kind, path_ + ": " + (connection_ != nullptr ? sqlite3_errmsg(connection_) : "no memory"), 0};
}

SqlOutcome SqliteDatabase::open(const DatabaseOptions& options) {
  if (!options.read_only) {
    if (const int file = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, options.mode); file >= 0)
      ::close(file);
  }
  const int access = options.read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  const int result = sqlite3_open_v2(path_.c_str(), &connection_, access | SQLITE_OPEN_NOMUTEX, nullptr);
  if (result != SQLITE_OK) return outcome(result);
  sqlite3_busy_handler(connection_, wait, nullptr);
  SqlOutcome set = script("PRAGMA foreign_keys = ON");
  if (options.read_only) return set;
  // The engine does not wait by itself for others that make the same file at the same time.
  for (int waits = 0; set.good() || set.kind == SqlOutcome::Kind::Busy; ++waits) {
    set = script("PRAGMA journal_mode = WAL");
    if (set.kind != SqlOutcome::Kind::Busy || wait(nullptr, waits) == 0) break;
  }
  if (set.good()) set = script(options.durable ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
  return set;
}

sqlite3_stmt* SqliteDatabase::prepared(std::string_view sql, bool kept) {
  std::string key;
  if (kept) {
    key = sql;
    if (const auto known = prepared_.find(key); known != prepared_.end()) return known->second;
    if (prepared_.size() >= kMostPrepared) forget();
  }
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v3(connection_, sql.data(), static_cast<int>(sql.size()),
                         kept ? SQLITE_PREPARE_PERSISTENT : 0, &statement, nullptr) != SQLITE_OK)
    return nullptr;
  if (kept) prepared_.emplace(std::move(key), statement);
  return statement;
}

SqlOutcome SqliteDatabase::run(std::string_view sql, std::span<const SqlValue> values, const SqlTaker& take,
                               const SqlStop& stop) {
  const bool kept = sql.size() <= kLongestPrepared;
  sqlite3_stmt* statement = prepared(sql, kept);
  if (statement == nullptr) return outcome(sqlite3_errcode(connection_));
  // Whatever happens, the statement lets go of its locks and of the caller's texts.
  struct Reset {
    sqlite3* connection;
    sqlite3_stmt* statement;
    bool kept;
    ~Reset() {
      sqlite3_progress_handler(connection, 0, nullptr, nullptr);
      sqlite3_reset(statement);
      kept ? sqlite3_clear_bindings(statement) : sqlite3_finalize(statement);
    }
  } const reset{connection_, statement, kept};
  int at = 0;
  for (const SqlValue& value : values) {
    ++at;
    if (value.is_null()) {
      sqlite3_bind_null(statement, at);
    } else if (value.is_number()) {
      sqlite3_bind_int64(statement, at, value.number());
    } else {
      const std::string_view text = value.text().empty() ? "" : value.text();  // no data would be NULL
      sqlite3_bind_text(statement, at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }
  }
  if (stop) sqlite3_progress_handler(connection_, kStepsToAsk, ask, const_cast<SqlStop*>(&stop));
  const int64_t before = sqlite3_total_changes64(connection_);
  int result = sqlite3_step(statement);
  for (const Row row(statement); result == SQLITE_ROW; result = sqlite3_step(statement)) {
    if (take && !take(row)) break;
  }
  SqlOutcome done = outcome(result);
  done.changed = sqlite3_total_changes64(connection_) - before;
  return done;
}

}  // namespace

SqlOutcome open_sqlite(const std::string& path, const DatabaseOptions& options,
                       std::unique_ptr<Database>& database) {
  auto opened = std::make_unique<SqliteDatabase>(path);
  SqlOutcome outcome = opened->open(options);
  if (outcome.good()) database = std::move(opened);
  return outcome;
}

}  // namespace vexal
