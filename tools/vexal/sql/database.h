// SQLite and PostgreSQL behind one small interface.
//
// What both understand is written once: TEXT (UTF-8, compared by bytes) and BIGINT; `?` for a value;
// INSERT ... ON CONFLICT; RETURNING. Where they differ, Database has the words.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace vexal {

// What became of a statement or a transaction.
struct SqlOutcome {
  enum class Kind {
    Done,
    Twice,    // a key that may be there once only is there
    Busy,     // others are in the way; nothing was changed
    Lost,     // the connection broke; whether a change was made is not known
    Stopped,  // the caller wanted no more of it
    Damaged,  // the file is no database, or a broken one
    Failed,
  };
  Kind kind = Kind::Done;
  std::string problem;  // for people; never holds a password
  int64_t changed = 0;  // rows that the statement changed

  bool good() const { return kind == Kind::Done; }
};

// A value for a `?`. Texts are looked at until the call returns, and are UTF-8 without zero bytes.
class SqlValue {
 public:
  SqlValue(std::nullptr_t) {}
  SqlValue(int64_t number) : kind_(Kind::Number), number_(number) {}
  SqlValue(int number) : SqlValue(int64_t{number}) {}
  SqlValue(std::string_view text) : kind_(Kind::Text), text_(text) {}
  SqlValue(const std::string& text) : SqlValue(std::string_view(text)) {}
  SqlValue(const char* text) : SqlValue(std::string_view(text)) {}

  bool is_null() const { return kind_ == Kind::Null; }
  bool is_number() const { return kind_ == Kind::Number; }
  int64_t number() const { return number_; }
  std::string_view text() const { return text_; }

 private:
  enum class Kind { Null, Number, Text };
  Kind kind_ = Kind::Null;
  int64_t number_ = 0;
  std::string_view text_;
};

// One row of an answer, while it is being taken. Columns count from 0; NULL is "" and 0.
class SqlRow {
 public:
  virtual ~SqlRow() = default;
  virtual std::string_view text(int column) const = 0;  // until the next row
  virtual int64_t number(int column) const = 0;
  virtual bool is_null(int column) const = 0;
};

// Takes one row; false: no more of them. It may not use the database.
using SqlTaker = std::function<bool(const SqlRow&)>;
// Asked now and then while a statement runs, on the thread that waits for it; true ends the statement.
using SqlStop = std::function<bool()>;

struct DatabaseOptions {
  bool durable = false;  // SQLite: what is committed survives a crash of the system, not of the program only
  bool read_only = false;  // SQLite
  mode_t mode = 0600;      // SQLite: of a file that is made
};

// One connection. Not for two threads at once.
class Database {
 public:
  // Whether an address is one of PostgreSQL ("postgresql://user@host/database"), rather than a file.
  static bool is_server(std::string_view address);
  // Makes a file that is not there. A server's password comes from PGPASSWORD, PGPASSFILE or ~/.pgpass; an
  // address that holds one is refused.
  static SqlOutcome open(const std::string& address, const DatabaseOptions& options,
                         std::unique_ptr<Database>& database);
  virtual ~Database() = default;
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // One statement; it stays prepared for the next time. A connection that was lost is made again first. A
  // SELECT outside a transaction that loses it before its first row is asked once more; nothing else is.
  virtual SqlOutcome run(std::string_view sql, std::span<const SqlValue> values = {},
                         const SqlTaker& take = nullptr, const SqlStop& stop = nullptr) = 0;
  SqlOutcome run(std::string_view sql, std::initializer_list<SqlValue> values, const SqlTaker& take = nullptr,
                 const SqlStop& stop = nullptr) {
    return run(sql, std::span<const SqlValue>(values.begin(), values.size()), take, stop);
  }
  // Statements without values, such as those that make tables.
  virtual SqlOutcome script(const std::string& sql) = 0;

  // Runs `work` in a transaction: committed when it is good, otherwise nothing of it is. Where others are in
  // the way, or the connection is lost before the commit, the work is run again, for some seconds; so it has
  // to start from the database each time, and to end with the first statement that is not good. Lost: whether
  // it was committed is not known.
  SqlOutcome transact(const std::function<SqlOutcome()>& work);

  // Words in which the two differ.
  virtual bool is_server() const = 0;
  virtual const char* text_type() const = 0;      // of a column compared by bytes
  virtual const char* identity_type() const = 0;  // of a column that numbers its rows
  virtual const char* join_function() const = 0;  // (text, separator) over rows
  virtual const char* row_lock() const = 0;       // behind a SELECT: others wait with these rows
  virtual const char* layout_lock() const = 0;    // a statement: others wait with it until the commit
  virtual const std::string& address() const = 0;

 protected:
  Database() = default;

 private:
  virtual const char* begin_statement() const = 0;
};

// Tables that belong together under a name, with the version of their form.
struct SqlLayout {
  const char* name;
  int64_t version;
  std::string make;  // statements that make the tables
  std::string drop;  // those that take away what an older version made; empty: it is refused
};
// Makes the tables where there are none, or only older ones; `made` tells it. Newer ones are refused. Any
// number of processes may call it at once.
SqlOutcome make_layout(Database& database, const SqlLayout& layout, bool& made);

// The first number of the first row of a statement; `fallback` where there is none.
SqlOutcome read_number(Database& database, std::string_view sql, std::span<const SqlValue> values,
                       int64_t& number, int64_t fallback = 0);

}  // namespace vexal
