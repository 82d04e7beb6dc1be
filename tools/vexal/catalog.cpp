#include "catalog.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <unordered_set>

#include "charset.h"
#include "names.h"
#include "session.h"

namespace vexal {
namespace {

// How a key matches besides a single value.
enum class Match { Text, Name, Date, Uid, Number };

struct Column {
  uint32_t tag;
  const char* name;
  Match match;
};

// What is kept of an instance.
constexpr Column kColumns[] = {
    {0x00100010, "PatientName", Match::Name},
    {0x00100020, "PatientID", Match::Text},
    {0x00100030, "PatientBirthDate", Match::Date},
    {0x00100040, "PatientSex", Match::Text},
    {0x0020000D, "StudyInstanceUID", Match::Uid},
    {0x00080020, "StudyDate", Match::Date},
    {0x00080030, "StudyTime", Match::Date},
    {0x00080050, "AccessionNumber", Match::Text},
    {0x00200010, "StudyID", Match::Text},
    {0x00081030, "StudyDescription", Match::Text},
    {0x00080090, "ReferringPhysicianName", Match::Name},
    {0x0020000E, "SeriesInstanceUID", Match::Uid},
    {0x00080060, "Modality", Match::Text},
    {0x00200011, "SeriesNumber", Match::Number},
    {0x0008103E, "SeriesDescription", Match::Text},
    {0x00180015, "BodyPartExamined", Match::Text},
    {0x00080080, "InstitutionName", Match::Text},
    {0x00081010, "StationName", Match::Text},
    {0x00080021, "SeriesDate", Match::Date},
    {0x00080018, "SOPInstanceUID", Match::Uid},
    {0x00080016, "SOPClassUID", Match::Uid},
    {0x00200013, "InstanceNumber", Match::Number},
    {0x00280010, "Rows", Match::Number},
    {0x00280011, "Columns", Match::Number},
    {0x00280008, "NumberOfFrames", Match::Number},
    {0x00080005, "SpecificCharacterSet", Match::Text},
};
constexpr int kColumnCount = static_cast<int>(std::size(kColumns));

// What is counted over the instances of an entity; matched by name only where the expression is a list.
struct Computed {
  uint32_t tag;
  const char* expression;
};
constexpr Computed kComputed[] = {
    {0x00080061, "group_concat(DISTINCT Modality)"},
    {0x00080062, "group_concat(DISTINCT SOPClassUID)"},
    {0x00201200, "count(DISTINCT StudyInstanceUID)"},
    {0x00201202, "count(DISTINCT SeriesInstanceUID)"},
    {0x00201204, "count(*)"},
    {0x00201206, "count(DISTINCT SeriesInstanceUID)"},
    {0x00201208, "count(*)"},
    {0x00201209, "count(*)"},
};

constexpr const char* kGroups[] = {"PatientID", "StudyInstanceUID", "SeriesInstanceUID", "SOPInstanceUID"};

const Column* find_column(uint32_t tag) {
  const auto* column =
      std::find_if(std::begin(kColumns), std::end(kColumns), [&](const Column& c) { return c.tag == tag; });
  return column == std::end(kColumns) ? nullptr : column;
}

const Computed* find_computed(uint32_t tag) {
  const auto* row = std::find_if(std::begin(kComputed), std::end(kComputed),
                                 [&](const Computed& c) { return c.tag == tag; });
  return row == std::end(kComputed) ? nullptr : row;
}

// `*` is any run of characters, `?` any single one.
bool matches_pattern(std::string_view text, std::string_view pattern, bool ignore_case) {
  std::size_t t = 0;
  std::size_t p = 0;
  std::size_t star = std::string_view::npos;
  std::size_t mark = 0;
  const auto same = [&](char a, char b) {
    return a == b || (ignore_case && std::tolower(static_cast<unsigned char>(a)) ==
                                         std::tolower(static_cast<unsigned char>(b)));
  };
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      mark = t;
    } else if (p < pattern.size() && pattern[p] == '?') {
      t += std::max<std::size_t>(utf8_length(text.substr(t)), 1);
      ++p;
    } else if (p < pattern.size() && same(text[t], pattern[p])) {
      ++t;
      ++p;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++mark;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

// "20240101-20240131", open at either end. Dates and times compare as text, the shorter one as far as it
// goes.
bool in_range(const std::string& value, const std::string& key) {
  const std::size_t dash = key.find('-');
  const std::string low = key.substr(0, dash);
  const std::string high = key.substr(dash + 1);
  if (value.empty()) return false;
  const auto compare = [&](const std::string& bound) {
    const std::size_t length = std::min(bound.size(), value.size());
    return value.compare(0, length, bound, 0, length);
  };
  return (low.empty() || compare(low) >= 0) && (high.empty() || compare(high) <= 0);
}

bool matches_one(Match match, const std::string& value, const std::string& key) {
  if (match == Match::Date && key.find('-') != std::string::npos) return in_range(value, key);
  if (match == Match::Uid) return value == key;
  if (match == Match::Number && value != key)
    return std::atol(value.c_str()) == std::atol(key.c_str()) && !value.empty();
  // A name matches without the empty components at its end.
  if (match == Match::Name) {
    std::string bare = value;
    while (!bare.empty() && (bare.back() == '^' || bare.back() == '=')) bare.pop_back();
    return matches_pattern(bare, key, true) || matches_pattern(value, key, true);
  }
  return matches_pattern(value, key, false);
}

// For SQLite: matches_key(value, tag, key).
void sql_matches(sqlite3_context* context, int, sqlite3_value** values) {
  const auto text = [&](int i) {
    const auto* bytes = sqlite3_value_text(values[i]);
    return bytes != nullptr ? std::string(reinterpret_cast<const char*>(bytes)) : std::string();
  };
  sqlite3_result_int(
      context, matches_key(static_cast<uint32_t>(sqlite3_value_int64(values[1])), text(0), text(2)) ? 1 : 0);
}

class Statement {
 public:
  Statement(sqlite3* database, const std::string& sql) {
    sqlite3_prepare_v2(database, sql.c_str(), -1, &statement_, nullptr);
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  explicit operator bool() const { return statement_ != nullptr; }
  void bind(int at, const std::string& text) {
    sqlite3_bind_text(statement_, at, text.c_str(), -1, SQLITE_TRANSIENT);
  }
  int step() { return sqlite3_step(statement_); }
  std::string text(int column) {
    const auto* bytes = sqlite3_column_text(statement_, column);
    return bytes != nullptr ? reinterpret_cast<const char*>(bytes) : "";
  }
  int64_t number(int column) { return sqlite3_column_int64(statement_, column); }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

// The conditions of a query, with their values to be bound from the first on.
std::string conditions(const std::vector<CatalogKey>& keys, std::vector<std::string>& bound) {
  std::string sql;
  for (const CatalogKey& key : keys) {
    const Column* column = find_column(key.tag);
    if (column == nullptr || key.value.empty() || key.value == "*" || key.tag == 0x00080005) continue;
    sql += sql.empty() ? " WHERE " : " AND ";
    // A single UID goes by the index.
    const bool plain = column->match == Match::Uid && key.value.find('\\') == std::string::npos;
    sql += plain ? std::string(column->name) + " = ?"
                 : std::string("matches_key(") + column->name + ", " + std::to_string(key.tag) + ", ?)";
    bound.push_back(key.value);
  }
  return sql;
}

constexpr char kColumnsOfFile[] = "path, SOPClassUID, SOPInstanceUID, syntax, size, whole";

}  // namespace

bool matches_key(uint32_t tag, const std::string& value, const std::string& key) {
  if (key.empty()) return true;
  const Column* column = find_column(tag);
  const Match match = column != nullptr ? column->match : Match::Text;
  // Any of the values may match any of the keys.
  for (std::size_t start = 0; start <= key.size();) {
    const std::size_t end = std::min(key.find('\\', start), key.size());
    const std::string one = key.substr(start, end - start);
    for (std::size_t from = 0; from <= value.size();) {
      const std::size_t to = std::min(value.find('\\', from), value.size());
      if (matches_one(match, value.substr(from, to - from), one)) return true;
      from = to + 1;
    }
    start = end + 1;
  }
  return false;
}

bool Catalog::knows(uint32_t tag) {
  return find_column(tag) != nullptr || find_computed(tag) != nullptr;
}

Catalog::~Catalog() {
  sqlite3_finalize(insert_);
  sqlite3_close(database_);
}

std::string Catalog::problem(const std::string& what) const {
  return what + ": " + (database_ != nullptr ? sqlite3_errmsg(database_) : "no memory");
}

bool Catalog::run(const char* sql) {
  return sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// An index of another version is made anew from the files.
bool Catalog::drop_old_form() {
  constexpr int64_t kForm = 2;  // texts in UTF-8
  int64_t form = 0;
  {
    Statement query(database_, "PRAGMA user_version");
    if (!query || query.step() != SQLITE_ROW) return false;
    form = query.number(0);
  }
  return form == kForm || (run("DROP TABLE IF EXISTS instance") &&
                           run(("PRAGMA user_version = " + std::to_string(kForm)).c_str()));
}

std::string Catalog::open(const std::string& folder, bool durable) {
  folder_ = folder;
  const std::string path = folder + "/index.sqlite";
  if (sqlite3_open_v2(path.c_str(), &database_,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                      nullptr) != SQLITE_OK) {
    return problem(path);
  }
  sqlite3_busy_timeout(database_, 10000);
  sqlite3_create_function(database_, "matches_key", 3, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
                          sql_matches, nullptr, nullptr);
  if (!drop_old_form()) return problem(path);
  std::string table =
      "CREATE TABLE IF NOT EXISTS instance (path TEXT PRIMARY KEY, syntax INTEGER, size INTEGER, whole "
      "INTEGER, modified INTEGER";
  std::string insert = "INSERT OR REPLACE INTO instance VALUES (?, ?, ?, ?, ?";
  for (const Column& column : kColumns) {
    table += std::string(", ") + column.name + " TEXT";
    insert += ", ?";
  }
  table += ")";
  insert += ")";
  if (!run("PRAGMA journal_mode = WAL") ||
      !run(durable ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL") || !run(table.c_str()) ||
      !run("CREATE INDEX IF NOT EXISTS by_study ON instance (StudyInstanceUID)") ||
      !run("CREATE INDEX IF NOT EXISTS by_series ON instance (SeriesInstanceUID)") ||
      !run("CREATE UNIQUE INDEX IF NOT EXISTS by_instance ON instance (SOPInstanceUID)") ||
      sqlite3_prepare_v2(database_, insert.c_str(), -1, &insert_, nullptr) != SQLITE_OK) {
    return problem(path);
  }
  return synchronise();
}

std::string Catalog::synchronise() {
  std::vector<std::string> gone;
  std::unordered_set<std::string> known;
  {
    Statement rows(database_, "SELECT path, size, modified FROM instance");
    while (rows && rows.step() == SQLITE_ROW) {
      struct stat status {};
      const std::string path = rows.text(0);
      const bool same = ::stat((folder_ + "/" + path).c_str(), &status) == 0 &&
                        status.st_size == rows.number(1) && status.st_mtim.tv_sec == rows.number(2);
      if (same) {
        known.insert(path);
      } else {
        gone.push_back(path);
      }
    }
  }
  if (!run("BEGIN")) return problem("index");
  for (const std::string& path : gone) {
    Statement drop(database_, "DELETE FROM instance WHERE path = ?");
    drop.bind(1, path);
    drop.step();
  }
  namespace fs = std::filesystem;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder_, error), end; it != end && !error; it.increment(error)) {
    std::error_code ignored;
    if (!it->is_regular_file(ignored) || it->path().extension() != ".dcm") continue;
    if (known.contains(it->path().lexically_relative(folder_).string())) continue;
    // A file that is no object is not the index's business.
    bool index_failed = false;
    const std::string text = add(it->path().string(), index_failed);
    if (!text.empty()) report(it->path().string(), text);
  }
  return run("COMMIT") ? "" : problem("index");
}

std::string Catalog::add(const std::string& path, bool& index_failed) {
  ObjectFile file;
  file.path = path;
  std::string text = file.look_at();
  if (!text.empty()) return text;
  DicomFile object;
  {
    const MutedWarnings muted;
    if (object.open(path, {true, 0x00280011}) != VX_NORMAL_COMPLETION && !object.readable())
      return object.problem();
  }
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return "has gone";
  const std::string name = std::filesystem::path(path).lexically_relative(folder_).string();
  std::vector<std::string> values;
  for (const Column& column : kColumns) values.push_back(utf8_text_of(object.id(), column.tag));
  // One spelling for all: where the text can be decoded, it is UTF-8 from here on.
  if (std::all_of(values.begin(), values.end(), is_utf8)) {
    values.back() = std::all_of(values.begin(), values.end(), is_ascii) ? "" : "ISO_IR 192";
  } else {
    std::transform(std::begin(kColumns), std::end(kColumns), values.begin(),
                   [&](const Column& column) { return all_text_of(object.id(), column.tag); });
  }
  const std::lock_guard lock(mutex_);
  sqlite3_reset(insert_);
  sqlite3_bind_text(insert_, 1, name.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_int(insert_, 2, file.syntax);
  sqlite3_bind_int64(insert_, 3, static_cast<int64_t>(file.size));
  sqlite3_bind_int(insert_, 4, file.whole ? 1 : 0);
  sqlite3_bind_int64(insert_, 5, status.st_mtim.tv_sec);
  for (int i = 0; i < kColumnCount; ++i) {
    const std::string& value = values[static_cast<std::size_t>(i)];
    sqlite3_bind_text(insert_, 6 + i, value.c_str(), static_cast<int>(value.size()), SQLITE_STATIC);
  }
  const int result = sqlite3_step(insert_);
  sqlite3_reset(insert_);
  index_failed = result != SQLITE_DONE;
  return index_failed ? problem("index") : "";
}

std::string Catalog::find(
    Level level, const std::vector<CatalogKey>& keys,
    const std::function<bool(const std::vector<std::string>& values, const std::string& charset)>& take) {
  std::vector<std::string> bound;
  std::string sql = "SELECT SpecificCharacterSet";
  for (const CatalogKey& key : keys) {
    const Column* column = find_column(key.tag);
    const Computed* computed = find_computed(key.tag);
    sql += std::string(", ") + (column != nullptr     ? column->name
                                : computed != nullptr ? computed->expression
                                                      : "''");
  }
  // What has no identity at this level is no entity of it.
  const std::string group = kGroups[static_cast<int>(level)];
  const std::string where = conditions(keys, bound);
  sql +=
      " FROM instance" + where + (where.empty() ? " WHERE " : " AND ") + group + " <> '' GROUP BY " + group;
  // Rows are gathered first: answers go out at the pace of the peer, and the index is not held that long.
  std::vector<std::vector<std::string>> rows;
  {
    const std::lock_guard lock(mutex_);
    Statement select(database_, sql);
    if (!select) return problem("index");
    for (std::size_t i = 0; i < bound.size(); ++i) select.bind(static_cast<int>(i) + 1, bound[i]);
    while (select.step() == SQLITE_ROW) {
      std::vector<std::string> row;
      for (std::size_t i = 0; i <= keys.size(); ++i) row.push_back(select.text(static_cast<int>(i)));
      rows.push_back(std::move(row));
    }
  }
  for (std::vector<std::string>& row : rows) {
    const std::string charset = row.front();
    row.erase(row.begin());
    bool wanted = true;
    for (std::size_t i = 0; i < keys.size(); ++i) {
      if (find_computed(keys[i].tag) == nullptr) continue;
      std::replace(row[i].begin(), row[i].end(), ',', '\\');
      wanted = wanted && matches_key(keys[i].tag, row[i], keys[i].value);
    }
    if (wanted && !take(row, charset)) break;
  }
  return "";
}

std::string Catalog::files(const std::vector<CatalogKey>& keys, std::vector<ObjectFile>& found) {
  std::vector<std::string> bound;
  const std::string sql =
      std::string("SELECT ") + kColumnsOfFile + " FROM instance" + conditions(keys, bound) + " ORDER BY path";
  const std::lock_guard lock(mutex_);
  Statement select(database_, sql);
  if (!select) return problem("index");
  for (std::size_t i = 0; i < bound.size(); ++i) select.bind(static_cast<int>(i) + 1, bound[i]);
  while (select.step() == SQLITE_ROW) {
    ObjectFile file;
    file.path = folder_ + "/" + select.text(0);
    file.sop_class = select.text(1);
    file.instance = select.text(2);
    file.syntax = static_cast<VX_TRANSFER_SYNTAX>(select.number(3));
    file.size = static_cast<uint64_t>(select.number(4));
    file.whole = select.number(5) != 0;
    found.push_back(std::move(file));
  }
  return "";
}

}  // namespace vexal
