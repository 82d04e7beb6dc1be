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

SqlOutcome read_number(Database& database, std::string_view sql, std::span<const SqlValue> values,
                       int64_t& number, int64_t fallback) {
  number = fallback;
  return database.run(sql, values, [&](const SqlRow& row) {
    number = row.number(0);
    return false;
  });
}

}  // namespace vexal
