#include "database.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "engines.h"

namespace vexal {

bool Database::is_server(std::string_view address) {
  return address.starts_with("postgresql://") || address.starts_with("postgres://");
}

SqlOutcome Database::open(const std::string& address, const DatabaseOptions& options,
                          std::unique_ptr<Database>& database) {
  return is_server(address) ? open_postgres(address, database) : open_sqlite(address, options, database);
}

SqlOutcome Database::transact(const std::function<SqlOutcome()>& work) {
  using Clock = std::chrono::steady_clock;
  using Kind = SqlOutcome::Kind;
  // Time for a server to start again.
  const Clock::time_point end = Clock::now() + std::chrono::seconds(10);
  std::chrono::milliseconds wait(2);
  for (;;) {
    SqlOutcome outcome = run(begin_statement());
    if (outcome.good()) {
      try {
        outcome = work();
      } catch (...) {
        run("ROLLBACK");
        throw;
      }
      if (outcome.good()) {
        const int64_t changed = outcome.changed;
        outcome = run("COMMIT");
        outcome.changed = changed;
        if (outcome.kind == Kind::Lost) {
          run("ROLLBACK");
          return outcome;
        }
      }
      if (!outcome.good()) run("ROLLBACK");
    }
    const bool again = outcome.kind == Kind::Busy || outcome.kind == Kind::Lost;
    if (!again || Clock::now() + wait > end) return outcome;
    std::this_thread::sleep_for(wait);
    wait = std::min(wait * 2, std::chrono::milliseconds(500));
  }
}

SqlOutcome make_layout(Database& database, const SqlLayout& layout, bool& made) {
  made = false;
  const auto failed = [&](const std::string& text) {
    return SqlOutcome{SqlOutcome::Kind::Failed, database.address() + ": " + text, 0};
  };
  return database.transact([&] {
    SqlOutcome outcome = database.run(database.layout_lock());
    if (outcome.good())
      outcome = database.script(std::string("CREATE TABLE IF NOT EXISTS vexal_layout (name ") +
                                database.text_type() + " PRIMARY KEY, version BIGINT)");
    int64_t version = 0;
    const SqlValue name[] = {layout.name};
    if (outcome.good())
      outcome = read_number(database, "SELECT version FROM vexal_layout WHERE name = ?", name, version);
    if (!outcome.good() || version == layout.version) return outcome;
    const std::string there = std::string("its tables of the ") + layout.name + " have the form " +
                              std::to_string(version) + ", and this program knows " +
                              std::to_string(layout.version);
    if (version > layout.version) return failed(there + ": use the newer program");
    if (version != 0 && layout.drop.empty()) return failed(there);
    if (!layout.drop.empty()) outcome = database.script(layout.drop);
    if (outcome.good()) outcome = database.script(layout.make);
    if (outcome.good())
      outcome = database.run(
          "INSERT INTO vexal_layout (name, version) VALUES (?, ?) ON CONFLICT (name) DO UPDATE SET version = "
          "excluded.version",
          {layout.name, layout.version});
    made = outcome.good();
    return outcome;
  });
}

SqlOutcome read_number(Database& database, std::string_view sql, std::span<const SqlValue> values,
                       int64_t& number, int64_t fallback) {
  number = fallback;
  return database.run(sql, values, [&](const SqlRow& row) {
    number = row.number(0);
    return false;
  });
}

}  // namespace vexal
