#include "outbox.h"

#include <algorithm>
#include <chrono>

#include "base/base64.h"
#include "base/session.h"
#include "base/thrown.h"

namespace vexal {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kHeld = seconds(60);  // longer than a delivery may take
constexpr milliseconds kFirstPause = seconds(2);
constexpr milliseconds kLongestPause = std::chrono::minutes(10);
constexpr milliseconds kLook = seconds(5);  // for what other processes have added
constexpr milliseconds kGivenUp = std::chrono::hours(24 * 7);
constexpr char kColumns[] =
    "number, due, attempts, made, node, sop_class, instance, command, event, data_set";

int64_t now() {
  return std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// Twice as long after each failure.
milliseconds pause_after(int64_t attempts) {
  return std::min(kFirstPause * (int64_t{1} << std::clamp<int64_t>(attempts - 1, 0, 20)), kLongestPause);
}

std::string problem_of(const SqlOutcome& outcome) {
  return outcome.good() ? "" : outcome.problem.empty() ? "the database does not take it" : outcome.problem;
}

std::string table_sql(const Database& database) {
  const std::string text = database.text_type();
  return "CREATE TABLE IF NOT EXISTS outbox (number " + std::string(database.identity_type()) +
         ", due BIGINT NOT NULL, attempts BIGINT NOT NULL, made BIGINT NOT NULL, node " + text +
         " NOT NULL, sop_class " + text + " NOT NULL, instance " + text +
         " NOT NULL, command BIGINT NOT NULL, event BIGINT NOT NULL, data_set " + text +
         " NOT NULL);"
         "CREATE INDEX IF NOT EXISTS outbox_by_node ON outbox (node, number)";
}

}  // namespace

Outbox::~Outbox() {
  stop();
}

std::string Outbox::open(const std::string& database, mode_t mode) {
  SqlOutcome outcome = pool_.open(database, {true, false, mode});
  if (outcome.good())
    outcome = pool_.write([](Database& connection) { return connection.script(table_sql(connection)); });
  return problem_of(outcome);
}

void Outbox::start(const std::vector<std::string>& nodes, Deliver deliver) {
  deliver_ = std::move(deliver);
  for (const std::string& node : nodes) threads_.emplace_back(&Outbox::run, this, node);
}

void Outbox::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
}

std::string Outbox::add(const Parcel& parcel, int64_t* number) {
  const int64_t made = now();
  const int64_t due = number != nullptr ? made + kHeld.count() : made;
  const std::string data_set = base64_of(parcel.data_set);
  const SqlOutcome outcome = pool_.write([&](Database& database) {
    return database.run(
        "INSERT INTO outbox (due, attempts, made, node, sop_class, instance, command, event, data_set) "
        "VALUES "
        "(?, 0, ?, ?, ?, ?, ?, ?, ?) RETURNING number",
        {due, made, parcel.node, parcel.sop_class, parcel.instance, int64_t{parcel.command},
         int64_t{parcel.event}, data_set},
        [&](const SqlRow& row) {
          if (number != nullptr) *number = row.number(0);
          return true;
        });
  });
  {
    const std::lock_guard lock(mutex_);
    ++added_;
  }
  changed_.notify_all();
  return problem_of(outcome);
}

void Outbox::finish(int64_t number, bool taken) {
  const SqlOutcome outcome = pool_.write([&](Database& database) {
    return taken ? database.run("DELETE FROM outbox WHERE number = ?", {number})
                 : database.run("UPDATE outbox SET due = ? WHERE number = ?", {now(), number});
  });
  // It is tried again when it is due, then.
  if (!outcome.good()) report("outbox", problem_of(outcome));
  {
    const std::lock_guard lock(mutex_);
    ++added_;
  }
  changed_.notify_all();
}

SqlOutcome Outbox::oldest(const std::string& node, Waiting& waiting) {
  return pool_.read([&](Database& database) {
    return database.run(
        "SELECT " + std::string(kColumns) + " FROM outbox WHERE node = ? ORDER BY number LIMIT 1", {node},
        [&](const SqlRow& row) {
          waiting.number = row.number(0);
          waiting.due = row.number(1);
          waiting.attempts = row.number(2);
          waiting.made = row.number(3);
          Parcel& parcel = waiting.parcel;
          parcel.node = row.text(4);
          parcel.sop_class = row.text(5);
          parcel.instance = row.text(6);
          parcel.command = static_cast<uint16_t>(row.number(7));
          parcel.event = static_cast<uint16_t>(row.number(8));
          from_base64(row.text(9), false, parcel.data_set);
          return false;
        });
  });
}

SqlOutcome Outbox::claim(Waiting& waiting, bool& mine) {
  const int64_t until = now() + kHeld.count();
  const SqlOutcome outcome = pool_.write([&](Database& database) {
    return database.run("UPDATE outbox SET due = ?, attempts = attempts + 1 WHERE number = ? AND due = ?",
                        {until, waiting.number, waiting.due});
  });
  mine = outcome.good() && outcome.changed == 1;
  ++waiting.attempts;
  return outcome;
}

SqlOutcome Outbox::settle(const Waiting& waiting, const Delivery& delivery) {
  using Result = Delivery::Result;
  const Parcel& parcel = waiting.parcel;
  const bool late = now() - waiting.made > kGivenUp.count();
  const bool over = delivery.result != Result::Later || late;
  if (delivery.result == Result::Never || (over && late))
    report(parcel.node, "is not told of " + parcel.instance + ", which is given up: " + delivery.problem);
  else if (!over && waiting.attempts == 1)
    report(parcel.node, "can not be told of " + parcel.instance + " yet: " + delivery.problem);
  return pool_.write([&](Database& database) {
    return over ? database.run("DELETE FROM outbox WHERE number = ?", {waiting.number})
                : database.run("UPDATE outbox SET due = ? WHERE number = ?",
                               {now() + pause_after(waiting.attempts).count(), waiting.number});
  });
}

milliseconds Outbox::turn(const std::string& node) {
  Waiting waiting;
  SqlOutcome outcome = oldest(node, waiting);
  if (outcome.good() && waiting.number == 0) return kLook;
  if (outcome.good() && waiting.due > now())
    return std::min<milliseconds>(milliseconds(waiting.due - now()), kLook);
  bool mine = false;
  if (outcome.good()) outcome = claim(waiting, mine);
  if (outcome.good() && !mine) return milliseconds(100);
  if (outcome.good()) outcome = settle(waiting, deliver_(waiting.parcel));
  if (outcome.good()) return milliseconds(0);
  report("outbox", problem_of(outcome));
  return kLook;
}

void Outbox::run(const std::string& node) {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    const uint64_t seen = added_;
    lock.unlock();
    milliseconds pause = kLook;
    try {
      pause = turn(node);
    } catch (const std::exception&) {
      report(node, words_of(std::current_exception()));
    }
    lock.lock();
    changed_.wait_for(lock, pause, [&] { return stopping_ || added_ != seen; });
  }
}

}  // namespace vexal
