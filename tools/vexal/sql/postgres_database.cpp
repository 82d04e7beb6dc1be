#include <libpq-fe.h>
#include <poll.h>

#include <charconv>
#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/opened_library.h"
#include "engines.h"

namespace vexal {
namespace {

constexpr int kAsk = 50;                       // milliseconds between two questions whether to stop
constexpr std::chrono::seconds kSilence(120);  // of a server that is taken for lost then
constexpr int kMostDropped = 1000;             // rows that are passed over before the server is told

struct Postgres {
  decltype(&PQconninfoParse) parse = nullptr;
  decltype(&PQconninfoFree) free_options = nullptr;
  decltype(&PQfreemem) free_memory = nullptr;
  decltype(&PQconnectdbParams) connect = nullptr;
  decltype(&PQfinish) finish = nullptr;
  decltype(&PQstatus) status = nullptr;
  decltype(&PQtransactionStatus) transaction = nullptr;
  decltype(&PQerrorMessage) error_text = nullptr;
  decltype(&PQparameterStatus) parameter = nullptr;
  decltype(&PQsetNoticeProcessor) set_notices = nullptr;
  decltype(&PQsocket) socket = nullptr;
  decltype(&PQconsumeInput) consume = nullptr;
  decltype(&PQisBusy) busy = nullptr;
  decltype(&PQexec) execute = nullptr;
  decltype(&PQprepare) prepare = nullptr;
  decltype(&PQsendQueryPrepared) send = nullptr;
  decltype(&PQsetSingleRowMode) row_by_row = nullptr;
  decltype(&PQgetResult) result = nullptr;
  decltype(&PQgetCancel) get_cancel = nullptr;
  decltype(&PQcancel) cancel = nullptr;
  decltype(&PQfreeCancel) free_cancel = nullptr;
  decltype(&PQresultStatus) result_status = nullptr;
  decltype(&PQresultErrorField) error_field = nullptr;
  decltype(&PQclear) clear = nullptr;
  decltype(&PQntuples) rows = nullptr;
  decltype(&PQcmdTuples) changed = nullptr;
  decltype(&PQgetvalue) value = nullptr;
  decltype(&PQgetlength) length = nullptr;
  decltype(&PQgetisnull) is_null = nullptr;
};
Postgres g_postgres;

// An error text, empty on success.
std::string open_postgres_library() {
  static std::mutex mutex;
  static bool opened = false;
  const std::lock_guard lock(mutex);
  if (opened) return "";
  Postgres& p = g_postgres;
  const SoughtSymbol symbols[] = {{"PQconninfoParse", p.parse},
                                  {"PQconninfoFree", p.free_options},
                                  {"PQfreemem", p.free_memory},
                                  {"PQconnectdbParams", p.connect},
                                  {"PQfinish", p.finish},
                                  {"PQstatus", p.status},
                                  {"PQtransactionStatus", p.transaction},
                                  {"PQerrorMessage", p.error_text},
                                  {"PQparameterStatus", p.parameter},
                                  {"PQsetNoticeProcessor", p.set_notices},
                                  {"PQsocket", p.socket},
                                  {"PQconsumeInput", p.consume},
                                  {"PQisBusy", p.busy},
                                  {"PQexec", p.execute},
                                  {"PQprepare", p.prepare},
                                  {"PQsendQueryPrepared", p.send},
                                  {"PQsetSingleRowMode", p.row_by_row},
                                  {"PQgetResult", p.result},
                                  {"PQgetCancel", p.get_cancel},
                                  {"PQcancel", p.cancel},
                                  {"PQfreeCancel", p.free_cancel},
                                  {"PQresultStatus", p.result_status},
                                  {"PQresultErrorField", p.error_field},
                                  {"PQclear", p.clear},
                                  {"PQntuples", p.rows},
                                  {"PQcmdTuples", p.changed},
                                  {"PQgetvalue", p.value},
                                  {"PQgetlength", p.length},
                                  {"PQgetisnull", p.is_null}};
  const std::string problem = open_library("libpq.so.5", symbols);
  opened = problem.empty();
  return opened ? "" : "PostgreSQL's library can not be opened (libpq5 has it): " + problem;
}

int64_t number_in(std::string_view text) {
  int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

struct Result {
  explicit Result(PGresult* opened) : handle(opened) {}
  ~Result() { g_postgres.clear(handle); }
  Result(const Result&) = delete;
  Result& operator=(const Result&) = delete;
  PGresult* handle;
};

class Row : public SqlRow {
 public:
  Row(const PGresult* result, int row) : result_(result), row_(row) {}
  std::string_view text(int column) const override {
    return {g_postgres.value(result_, row_, column),
            static_cast<std::size_t>(g_postgres.length(result_, row_, column))};
  }
  int64_t number(int column) const override { return number_in(text(column)); }
  bool is_null(int column) const override { return g_postgres.is_null(result_, row_, column) != 0; }

 private:
  const PGresult* result_;
  int row_;
};

// Marks as the server has them: `?` becomes $1, $2 and so on, but in quotes.
std::string numbered(std::string_view sql) {
  std::string out;
  int count = 0;
  char quote = 0;
  for (const char c : sql) {
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '\'' || c == '"') {
      quote = c;
    }
    if (c == '?' && quote == 0) {
      out += "$" + std::to_string(++count);
    } else {
      out += c;
    }
  }
  return out;
}

std::string one_line(const char* text) {
  std::string line = text != nullptr ? text : "";
  for (char& c : line) {
    if (c == '\n' || c == '\t') c = ' ';
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

// Values as the server wants them.
struct Parameters {
  explicit Parameters(std::span<const SqlValue> values) {
    texts.reserve(values.size());
    for (const SqlValue& value : values)
      texts.push_back(value.is_number() ? std::to_string(value.number()) : std::string(value.text()));
    for (std::size_t i = 0; i < values.size(); ++i)
      pointers.push_back(values[i].is_null() ? nullptr : texts[i].c_str());
  }
  std::vector<std::string> texts;
  std::vector<const char*> pointers;
};

class PostgresDatabase : public Database {
 public:
  explicit PostgresDatabase(const std::string& address) : address_(address) {}
  ~PostgresDatabase() override { disconnect(); }
  SqlOutcome connect();
  SqlOutcome run(std::string_view sql, std::span<const SqlValue> values, const SqlTaker& take,
                 const SqlStop& stop) override;
  SqlOutcome script(const std::string& sql) override;
  bool is_server() const override { return true; }
  const char* text_type() const override { return "TEXT COLLATE \"C\""; }
  const char* identity_type() const override { return "BIGINT GENERATED ALWAYS AS IDENTITY PRIMARY KEY"; }
  const char* join_function() const override { return "string_agg"; }
  const char* row_lock() const override { return " FOR UPDATE"; }
  const char* layout_lock() const override { return "SELECT pg_advisory_xact_lock(86398541)"; }
  const std::string& address() const override { return address_; }

 private:
  const char* begin_statement() const override { return "BEGIN"; }
  void disconnect() {
    if (connection_ != nullptr) g_postgres.finish(connection_);
    connection_ = nullptr;
    prepared_.clear();
  }
  SqlOutcome lost(const std::string& reason) {
    if (within_ == Within::Transaction) within_ = Within::LostTransaction;
    disconnect();
    return {SqlOutcome::Kind::Lost, address_ + ": " + reason, 0};
  }
  SqlOutcome ready();
  SqlOutcome prepare(std::string_view sql, const char*& name);
  SqlOutcome ask(std::string_view sql, std::span<const SqlValue> values, const SqlTaker& take,
                 const SqlStop& stop, bool& rows_came);
  SqlOutcome take_results(const SqlTaker& take, const SqlStop& stop, bool& rows_came);
  SqlOutcome wait(const SqlStop& stop, bool& stopped);
  SqlOutcome outcome(const PGresult* result);
  void cancel();

  enum class Within { Nothing, Transaction, LostTransaction };
  std::string address_;
  PGconn* connection_ = nullptr;
  Within within_ = Within::Nothing;
  std::unordered_map<std::string, std::string> prepared_;  // names of statements
  uint64_t names_ = 0;
};

SqlOutcome PostgresDatabase::connect() {
  disconnect();
  const char* const keys[] = {"connect_timeout",
                              "tcp_user_timeout",
                              "keepalives_idle",
                              "dbname",
                              "client_encoding",
                              "fallback_application_name",
                              nullptr};
  const char* const values[] = {"10", "30000", "30", address_.c_str(), "UTF8", "vexal", nullptr};
  connection_ = g_postgres.connect(keys, values, 1);
  if (connection_ == nullptr) return {SqlOutcome::Kind::Failed, address_ + ": no memory", 0};
  if (g_postgres.status(connection_) != CONNECTION_OK)
    return lost(one_line(g_postgres.error_text(connection_)));
  g_postgres.set_notices(
      connection_, [](void*, const char*) {}, nullptr);
  const char* encoding = g_postgres.parameter(connection_, "server_encoding");
  if (encoding == nullptr || std::string_view(encoding) != "UTF8") {
    disconnect();
    return {SqlOutcome::Kind::Failed, address_ + ": make the database with the encoding UTF8", 0};
  }
  return {};
}

// A connection that the server has closed meanwhile is made again.
SqlOutcome PostgresDatabase::ready() {
  if (within_ == Within::LostTransaction) return lost("the connection was lost within the transaction");
  const bool alive = connection_ != nullptr && g_postgres.consume(connection_) != 0 &&
                     g_postgres.status(connection_) == CONNECTION_OK;
  if (alive) return {};
  if (within_ == Within::Transaction) return lost("the connection was lost within the transaction");
  return connect();
}

SqlOutcome PostgresDatabase::outcome(const PGresult* result) {
  using Kind = SqlOutcome::Kind;
  const ExecStatusType status = g_postgres.result_status(result);
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK || status == PGRES_SINGLE_TUPLE ||
      status == PGRES_EMPTY_QUERY)
    return {Kind::Done, "", number_in(g_postgres.changed(const_cast<PGresult*>(result)))};
  const char* text = g_postgres.error_field(result, PG_DIAG_MESSAGE_PRIMARY);
  const char* code_text = g_postgres.error_field(result, PG_DIAG_SQLSTATE);
  const std::string reason = one_line(text != nullptr ? text : g_postgres.error_text(connection_));
  const std::string_view code = code_text != nullptr ? code_text : "";
  // 23503: a row that is referred to is being taken away.
  constexpr struct {
    std::string_view code;  // or its start
    Kind kind;
  } kKinds[] = {{"23505", Kind::Twice},   {"23503", Kind::Busy}, {"40", Kind::Busy}, {"55P03", Kind::Busy},
                {"57014", Kind::Stopped}, {"57P", Kind::Lost},   {"08", Kind::Lost}};
  Kind kind = g_postgres.status(connection_) == CONNECTION_OK ? Kind::Failed : Kind::Lost;
  for (const auto& row : kKinds) {
    if (code.starts_with(row.code)) kind = row.kind;
  }
  return {kind, address_ + ": " + reason, 0};
}

SqlOutcome PostgresDatabase::prepare(std::string_view sql, const char*& name) {
  std::string key(sql);
  if (const auto known = prepared_.find(key); known != prepared_.end()) {
    name = known->second.c_str();
    return {};
  }
  const bool kept = sql.size() <= kLongestPrepared;
  if (kept && prepared_.size() >= kMostPrepared) {
    const Result result(g_postgres.execute(connection_, "DEALLOCATE ALL"));
    if (const SqlOutcome dropped = outcome(result.handle); !dropped.good()) return dropped;
    prepared_.clear();
  }
  const std::string fresh = kept ? "v" + std::to_string(++names_) : "";  // without a name: until the next one
  const Result result(g_postgres.prepare(connection_, fresh.c_str(), numbered(sql).c_str(), 0, nullptr));
  SqlOutcome made = outcome(result.handle);
  if (made.good()) name = kept ? prepared_.emplace(std::move(key), fresh).first->second.c_str() : "";
  return made;
}

void PostgresDatabase::cancel() {
  PGcancel* handle = g_postgres.get_cancel(connection_);
  if (handle == nullptr) return;
  char told[256];
  g_postgres.cancel(handle, told, sizeof told);
  g_postgres.free_cancel(handle);
}

// Until the next result is whole.
SqlOutcome PostgresDatabase::wait(const SqlStop& stop, bool& stopped) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + kSilence;
  while (g_postgres.busy(connection_) != 0) {
    if (stop && !stopped && stop()) {
      stopped = true;
      cancel();
    }
    pollfd socket{g_postgres.socket(connection_), POLLIN, 0};
    if (::poll(&socket, 1, stop ? kAsk : 1000) > 0 && g_postgres.consume(connection_) == 0)
      return lost(one_line(g_postgres.error_text(connection_)));
    if (Clock::now() > end) return lost("does not answer");
  }
  return {};
}

// All that a statement gives: it has to be fetched to its end, whatever becomes of it.
SqlOutcome PostgresDatabase::take_results(const SqlTaker& take, const SqlStop& stop, bool& rows_came) {
  SqlOutcome last;
  bool wanted = true;
  bool stopped = false;
  int dropped = 0;
  for (;;) {
    if (SqlOutcome waited = wait(stop, stopped); !waited.good()) return waited;
    const Result result(g_postgres.result(connection_));
    if (result.handle == nullptr) break;
    SqlOutcome one = outcome(result.handle);
    if (!one.good() || last.good()) last = std::move(one);
    for (int row = 0; row < g_postgres.rows(result.handle); ++row) {
      rows_came = true;
      if (wanted && take) wanted = take(Row(result.handle, row));
      // Within a transaction that would be its end.
      if (!wanted && within_ == Within::Nothing && ++dropped == kMostDropped) cancel();
    }
  }
  if (last.kind == SqlOutcome::Kind::Lost) return lost(last.problem.substr(address_.size() + 2));
  if (stopped) return {SqlOutcome::Kind::Stopped, address_ + ": was stopped", 0};
  if (last.kind == SqlOutcome::Kind::Stopped && !wanted) return {};
  return last;
}

SqlOutcome PostgresDatabase::ask(std::string_view sql, std::span<const SqlValue> values, const SqlTaker& take,
                                 const SqlStop& stop, bool& rows_came) {
  if (SqlOutcome here = ready(); !here.good()) return here;
  const char* name = nullptr;
  SqlOutcome made = prepare(sql, name);
  if (made.kind == SqlOutcome::Kind::Lost) return lost(made.problem.substr(address_.size() + 2));
  if (!made.good()) return made;
  const Parameters parameters(values);
  if (g_postgres.send(connection_, name, static_cast<int>(values.size()), parameters.pointers.data(), nullptr,
                      nullptr, 0) == 0)
    return lost(one_line(g_postgres.error_text(connection_)));
  if (take) g_postgres.row_by_row(connection_);
  try {
    return take_results(take, stop, rows_came);
  } catch (...) {  // the taker's; what else the server sends is nobody's
    lost("");
    throw;
  }
}

SqlOutcome PostgresDatabase::run(std::string_view sql, std::span<const SqlValue> values, const SqlTaker& take,
                                 const SqlStop& stop) {
  if (within_ == Within::LostTransaction && sql == "ROLLBACK") {
    within_ = Within::Nothing;
    return {};
  }
  // The server would end a transaction that has failed, and call that done.
  if (sql == "COMMIT" && connection_ != nullptr && g_postgres.transaction(connection_) == PQTRANS_INERROR)
    return {SqlOutcome::Kind::Failed, address_ + ": a statement of the transaction has failed", 0};
  bool rows_came = false;
  SqlOutcome outcome = ask(sql, values, take, stop, rows_came);
  const bool harmless = within_ == Within::Nothing && sql.starts_with("SELECT") && !rows_came;
  if (outcome.kind == SqlOutcome::Kind::Lost && harmless) outcome = ask(sql, values, take, stop, rows_came);
  if (outcome.good() && sql == begin_statement()) within_ = Within::Transaction;
  if ((outcome.good() && sql == "COMMIT") || (sql == "ROLLBACK" && within_ == Within::Transaction))
    within_ = Within::Nothing;
  return outcome;
}

SqlOutcome PostgresDatabase::script(const std::string& sql) {
  if (SqlOutcome here = ready(); !here.good()) return here;
  const Result result(g_postgres.execute(connection_, sql.c_str()));
  SqlOutcome done = outcome(result.handle);
  return done.kind == SqlOutcome::Kind::Lost ? lost(done.problem.substr(address_.size() + 2)) : done;
}

// Why an address is not taken; empty: it is. What the library says of it could show a password.
std::string fault_of(const std::string& address) {
  char* told = nullptr;
  PQconninfoOption* options = g_postgres.parse(address.c_str(), &told);
  if (told != nullptr) g_postgres.free_memory(told);
  if (options == nullptr) return "the address of the database is no proper postgresql://USER@HOST/DATABASE";
  bool secret = false;
  for (const PQconninfoOption* option = options; option->keyword != nullptr; ++option) {
    const std::string_view key = option->keyword;
    secret = secret || ((key == "password" || key == "sslpassword") && option->val != nullptr);
  }
  g_postgres.free_options(options);
  return secret ? "a password has no place in the address of a database, where others see it: give it in the "
                  "file that PGPASSFILE names, or in PGPASSWORD"
                : "";
}

}  // namespace

SqlOutcome open_postgres(const std::string& address, std::unique_ptr<Database>& database) {
  std::string problem = open_postgres_library();
  if (problem.empty()) problem = fault_of(address);
  if (!problem.empty()) return {SqlOutcome::Kind::Failed, problem, 0};
  auto opened = std::make_unique<PostgresDatabase>(address);
  SqlOutcome outcome = opened->connect();
  if (outcome.good()) database = std::move(opened);
  return outcome;
}

}  // namespace vexal
