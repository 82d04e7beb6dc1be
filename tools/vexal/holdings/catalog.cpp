#include "catalog.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unordered_set>

#include "base/names.h"
#include "base/session.h"
#include "base/tags.h"
#include "files/charset.h"
#include "key_match.h"

namespace vexal {
namespace {

// What is kept of an instance.
struct Column {
  uint32_t tag;
  const char* name;
};
constexpr Column kColumns[] = {
    {0x00080005, "SpecificCharacterSet"},
    {0x00080016, "SOPClassUID"},
    {0x00080018, "SOPInstanceUID"},
    {0x00080020, "StudyDate"},
    {0x00080021, "SeriesDate"},
    {0x00080030, "StudyTime"},
    {0x00080050, "AccessionNumber"},
    {0x00080060, "Modality"},
    {0x00080080, "InstitutionName"},
    {0x00080090, "ReferringPhysicianName"},
    {0x00081010, "StationName"},
    {0x00081030, "StudyDescription"},
    {0x0008103E, "SeriesDescription"},
    {0x00100010, "PatientName"},
    {0x00100020, "PatientID"},
    {0x00100030, "PatientBirthDate"},
    {0x00100040, "PatientSex"},
    {0x00180015, "BodyPartExamined"},
    {0x0020000D, "StudyInstanceUID"},
    {0x0020000E, "SeriesInstanceUID"},
    {0x00200010, "StudyID"},
    {0x00200011, "SeriesNumber"},
    {0x00200013, "InstanceNumber"},
    {0x00280008, "NumberOfFrames"},
    {0x00280010, "Rows"},
    {0x00280011, "Columns"},
};
constexpr std::size_t kColumnCount = std::size(kColumns);

constexpr std::size_t column_index(uint32_t tag) {
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    if (kColumns[i].tag == tag) return i;
  }
  return kColumnCount;
}
constexpr std::size_t kCharsetColumn = column_index(tags::kSpecificCharacterSet);
static_assert(kCharsetColumn < kColumnCount && column_index(tags::kSOPClassUID) < kColumnCount &&
              column_index(tags::kSOPInstanceUID) < kColumnCount &&
              column_index(tags::kStudyInstanceUID) < kColumnCount &&
              column_index(tags::kSeriesInstanceUID) < kColumnCount);

constexpr auto kTags = [] {
  std::array<uint32_t, kColumnCount> tags{};
  for (std::size_t i = 0; i < kColumnCount; ++i) tags[i] = kColumns[i].tag;
  return tags;
}();
// They are looked for in one pass over a data set.
static_assert(std::is_sorted(kTags.begin(), kTags.end()));

// A value of more bytes is none that a query could be after.
constexpr std::size_t kLongestValue = 1024;

// What is counted over the instances of an entity; matched by name only where the expression is a list.
struct Computed {
  uint32_t tag;
  const char* expression;
};
constexpr Computed kComputed[] = {
    {tags::kModalitiesInStudy, "group_concat(DISTINCT Modality)"},
    {tags::kSOPClassesInStudy, "group_concat(DISTINCT SOPClassUID)"},
    {tags::kNumberOfPatientRelatedStudies, "count(DISTINCT StudyInstanceUID)"},
    {tags::kNumberOfPatientRelatedSeries, "count(DISTINCT SeriesInstanceUID)"},
    {tags::kNumberOfPatientRelatedInstances, "count(*)"},
    {tags::kNumberOfStudyRelatedSeries, "count(DISTINCT SeriesInstanceUID)"},
    {tags::kNumberOfStudyRelatedInstances, "count(*)"},
    {tags::kNumberOfSeriesRelatedInstances, "count(*)"},
};

constexpr const char* kGroups[] = {"PatientID", "StudyInstanceUID", "SeriesInstanceUID", "SOPInstanceUID"};

const Column* find_column(uint32_t tag) {
  const std::size_t at = column_index(tag);
  return at < kColumnCount ? &kColumns[at] : nullptr;
}

const Computed* find_computed(uint32_t tag) {
  const auto* row = std::find_if(std::begin(kComputed), std::end(kComputed),
                                 [&](const Computed& c) { return c.tag == tag; });
  return row == std::end(kComputed) ? nullptr : row;
}

// For SQLite: matches_key(value, VR, key).
void sql_matches(sqlite3_context* context, int, sqlite3_value** values) try {
  const auto text = [&](int i) {
    const auto* bytes = sqlite3_value_text(values[i]);
    return bytes != nullptr ? std::string(reinterpret_cast<const char*>(bytes)) : std::string();
  };
  sqlite3_result_int(context, matches_key(sqlite3_value_int(values[1]), text(0), text(2)) ? 1 : 0);
} catch (const std::exception&) {
  sqlite3_result_error_nomem(context);
}

class Statement {
 public:
  Statement(sqlite3* database, const std::string& sql) {
    if (database != nullptr) sqlite3_prepare_v2(database, sql.c_str(), -1, &statement_, nullptr);
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  explicit operator bool() const { return statement_ != nullptr; }
  void bind(int at, const std::string& text) {
    sqlite3_bind_text(statement_, at, text.c_str(), -1, SQLITE_TRANSIENT);
  }
  void bind_all(const std::vector<std::string>& texts) {
    for (std::size_t i = 0; i < texts.size(); ++i) bind(static_cast<int>(i) + 1, texts[i]);
  }
  // Whether there is a row, or another. At the end, good() tells whether it is the end.
  bool next() {
    result_ = statement_ != nullptr ? sqlite3_step(statement_) : SQLITE_ERROR;
    return result_ == SQLITE_ROW;
  }
  bool good() const { return result_ == SQLITE_DONE; }
  std::string text(int column) {
    const auto* bytes = sqlite3_column_text(statement_, column);
    return bytes != nullptr ? reinterpret_cast<const char*>(bytes) : "";
  }
  int64_t number(int column) { return sqlite3_column_int64(statement_, column); }

 private:
  sqlite3_stmt* statement_ = nullptr;
  int result_ = SQLITE_OK;
};

// The conditions of a query, with their values to be bound from the first on.
std::string conditions(const std::vector<CatalogKey>& keys, std::vector<std::string>& bound) {
  std::string sql;
  for (const CatalogKey& key : keys) {
    const Column* column = find_column(key.tag);
    if (column == nullptr || key.value.empty() || key.value == "*" || key.tag == tags::kSpecificCharacterSet)
      continue;
    sql += sql.empty() ? " WHERE " : " AND ";
    // UIDs go by the index.
    if (key.vr == VX_VR_UI) {
      sql += std::string(column->name) + " IN (";
      for (const std::string& uid : values_of(key.value)) {
        sql += sql.back() == '(' ? "?" : ", ?";
        bound.push_back(uid);
      }
      sql += ")";
      continue;
    }
    sql += std::string("matches_key(") + column->name + ", " + std::to_string(key.vr) + ", ?)";
    bound.push_back(key.value);
  }
  return sql;
}

constexpr std::size_t kIdleReaders = 2;

constexpr char kColumnsOfFile[] = "path, SOPClassUID, SOPInstanceUID, syntax, size, whole";

// The statements that make an index.
std::string table_sql() {
  std::string table =
      "CREATE TABLE IF NOT EXISTS instance (path TEXT PRIMARY KEY, syntax INTEGER, size INTEGER, whole "
      "INTEGER, modified INTEGER";
  for (const Column& column : kColumns) table += std::string(", ") + column.name + " TEXT";
  return table +
         "); CREATE INDEX IF NOT EXISTS by_patient ON instance (PatientID);"
         "CREATE INDEX IF NOT EXISTS by_study ON instance (StudyInstanceUID);"
         "CREATE INDEX IF NOT EXISTS by_series ON instance (SeriesInstanceUID);"
         "CREATE UNIQUE INDEX IF NOT EXISTS by_instance ON instance (SOPInstanceUID)";
}

// Tells indexes of another make apart: it changes with the statements, and with what is written.
int32_t index_form() {
  uint32_t hash = 2166136261U;
  for (const char c : table_sql() + "; texts in UTF-8, times in nanoseconds")
    hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return static_cast<int32_t>(hash);
}

int64_t modified(const struct stat& status) {
  return status.st_mtim.tv_sec * 1000000000LL + status.st_mtim.tv_nsec;
}

bool is_damage(int result) {
  return result == SQLITE_CORRUPT || result == SQLITE_NOTADB;
}

}  // namespace

bool Catalog::keeps(uint32_t tag) {
  return find_column(tag) != nullptr;
}

std::span<const uint32_t> Catalog::wanted() const {
  return kTags;
}

Catalog::~Catalog() {
  close();
}

void Catalog::close() {
  for (sqlite3* reader : readers_) sqlite3_close(reader);
  readers_.clear();
  sqlite3_finalize(insert_);
  sqlite3_close(database_);
  insert_ = nullptr;
  database_ = nullptr;
}

std::string Catalog::problem(const std::string& what) const {
  return what + ": " + (database_ != nullptr ? sqlite3_errmsg(database_) : "no memory");
}

bool Catalog::run(const std::string& sql) {
  return sqlite3_exec(database_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

// A connection that only reads, for one query at a time: queries wait neither for each other nor for the one
// that writes.
class Catalog::Reader {
 public:
  Reader(Catalog& catalog, Stop stop) : catalog_(catalog), stop_(std::move(stop)) {
    {
      const std::lock_guard lock(catalog.readers_mutex_);
      if (!catalog.readers_.empty()) {
        database_ = catalog.readers_.back();
        catalog.readers_.pop_back();
      }
    }
    if (database_ == nullptr) open();
    constexpr int kSteps = 20;  // a row or two
    if (database_ != nullptr && stop_) sqlite3_progress_handler(database_, kSteps, ask, this);
  }
  ~Reader() {
    if (database_ == nullptr) return;
    sqlite3_progress_handler(database_, 0, nullptr, nullptr);
    {
      const std::lock_guard lock(catalog_.readers_mutex_);
      if (catalog_.readers_.size() < kIdleReaders) {
        catalog_.readers_.push_back(database_);
        return;
      }
    }
    sqlite3_close(database_);
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  sqlite3* get() const { return database_; }
  std::string problem() const {
    return database_ != nullptr ? std::string("index: ") + sqlite3_errmsg(database_)
                                : "index: can not be opened";
  }

 private:
  void open() {
    if (sqlite3_open_v2(catalog_.index_path_.c_str(), &database_, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
      sqlite3_close(database_);
      database_ = nullptr;
      return;
    }
    sqlite3_busy_timeout(database_, 10000);
    sqlite3_create_function(database_, "matches_key", 3, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
                            sql_matches, nullptr, nullptr);
  }
  static int ask(void* user) { return static_cast<Reader*>(user)->stop_() ? 1 : 0; }

  Catalog& catalog_;
  Stop stop_;
  sqlite3* database_ = nullptr;
};

std::string Catalog::open_index(const std::string& path, bool durable, bool& damaged) {
  const auto failed = [&](const std::string& text) {
    damaged = database_ != nullptr && is_damage(sqlite3_errcode(database_));
    return problem(text);
  };
  if (sqlite3_open_v2(path.c_str(), &database_,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                      nullptr) != SQLITE_OK) {
    return failed(path);
  }
  sqlite3_busy_timeout(database_, 10000);
  {
    Statement check(database_, "PRAGMA quick_check(1)");
    const bool row = check.next();
    if (!row) return failed(path);
    if (check.text(0) != "ok") {
      damaged = true;
      return path + ": " + check.text(0);
    }
  }
  int64_t form = 0;
  {
    Statement query(database_, "PRAGMA user_version");
    if (!query.next()) return failed(path);
    form = query.number(0);
  }
  // One of another make is filled anew from the files.
  if (form != index_form() && form != 0 && !of_files_)
    return path +
           ": is of another version; vexal archive check --repair makes it anew where it is taken away";
  if (form != index_form() && (!run("DROP TABLE IF EXISTS instance") ||
                               !run("PRAGMA user_version = " + std::to_string(index_form()))))
    return failed(path);
  std::string insert = "INSERT OR REPLACE INTO instance (path, syntax, size, whole, modified";
  std::string marks = "?, ?, ?, ?, ?";
  for (const Column& column : kColumns) {
    insert += std::string(", ") + column.name;
    marks += ", ?";
  }
  insert += ") VALUES (" + marks + ")";
  if (!run("PRAGMA journal_mode = WAL") ||
      !run(durable ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL") || !run(table_sql()) ||
      sqlite3_prepare_v2(database_, insert.c_str(), -1, &insert_, nullptr) != SQLITE_OK) {
    return failed(path);
  }
  return "";
}

std::string Catalog::open(const std::string& folder, bool durable, mode_t mode, bool of_files) {
  folder_ = folder;
  of_files_ = of_files;
  index_path_ = folder + "/index.sqlite";
  // It holds names of patients: nobody sees more of it than of the objects.
  if (const int file = ::open(index_path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, mode); file >= 0)
    ::close(file);
  bool damaged = false;
  std::string error = open_index(index_path_, durable, damaged);
  if (damaged && of_files_) {
    report(index_path_, "is damaged and made anew from the files: " + error);
    close();
    for (const char* end : {"", "-wal", "-shm"}) ::unlink((index_path_ + end).c_str());
    if (const int file = ::open(index_path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, mode); file >= 0)
      ::close(file);
    error = open_index(index_path_, durable, damaged);
  }
  if (error.empty() && of_files_) error = synchronise();
  if (!error.empty()) return error;
  const Reader readers[kIdleReaders] = {{*this, nullptr}, {*this, nullptr}};
  return readers[0].get() != nullptr ? "" : readers[0].problem();
}

std::string Catalog::drop_row(const std::string& path) {
  Statement drop(database_, "DELETE FROM instance WHERE path = ?");
  drop.bind(1, path);
  return !drop.next() && drop.good() ? "" : problem("index");
}

std::string Catalog::synchronise() {
  std::vector<std::string> gone;
  std::unordered_set<std::string> known;
  {
    Statement rows(database_, "SELECT path, size, modified FROM instance");
    while (rows.next()) {
      struct stat status {};
      const std::string path = rows.text(0);
      const bool same = ::lstat((folder_ + "/" + path).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
                        status.st_size == rows.number(1) && modified(status) == rows.number(2);
      if (same) {
        known.insert(path);
      } else {
        gone.push_back(path);
      }
    }
    if (!rows.good()) return problem("index");
  }
  namespace fs = std::filesystem;
  std::vector<std::string> fresh;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder_, error), end; it != end && !error; it.increment(error)) {
    std::error_code ignored;
    if (it->is_symlink(ignored) || !it->is_regular_file(ignored) || it->path().extension() != ".dcm")
      continue;
    std::string name = it->path().lexically_relative(folder_).string();
    if (!known.contains(name)) fresh.push_back(std::move(name));
  }
  if (error) return folder_ + ": " + error.message();
  // Of two files with one instance the first by name counts, at every start.
  std::sort(fresh.begin(), fresh.end());
  if (!run("BEGIN")) return problem("index");
  for (const std::string& path : gone) {
    if (const std::string text = drop_row(path); !text.empty()) return text;
  }
  for (const std::string& name : fresh) {
    // A file that is no object is not the index's business.
    if (const std::string text = enter_file(name); !text.empty()) report(folder_ + "/" + name, text);
  }
  return run("COMMIT") ? "" : problem("index");
}

// A file that lies in the folder at the start.
std::string Catalog::enter_file(const std::string& name) {
  ObjectFile file;
  file.path = folder_ + "/" + name;
  std::string text = file.look_at();
  if (!text.empty()) return text;
  HeadScan scan;
  const MutedWarnings muted;
  Message kept;
  DicomFile whole;
  int32_t object = -1;
  if (scan_file(file.path, kTags, scan).empty()) object = kept.id = scan.make_message();
  if (object < 0) {  // what is no file of ours, such as one without a meta group
    if (whole.open(file.path, {true, kTags.back()}) != VX_NORMAL_COMPLETION && !whole.readable())
      return whole.problem();
    object = whole.id();
  }
  file.path = name;
  if (insert(file, object, "", text) != Entered::Conflict) return text;
  std::string there;
  text = key_of(file.instance, there);
  return text.empty() ? "has the SOP Instance UID of " + folder_ + "/" + there + ", and can not be found"
                      : text;
}

std::string Catalog::key_of(const std::string& instance, std::string& key) {
  const std::lock_guard lock(mutex_);
  return read_key(instance, key);
}

std::string Catalog::read_key(const std::string& instance, std::string& key) {
  Statement select(database_, "SELECT path FROM instance WHERE SOPInstanceUID = ?");
  select.bind(1, instance);
  key = select.next() ? select.text(0) : "";
  return select.good() || !key.empty() ? "" : problem("index");
}

std::string Catalog::drop(const std::string& instance, const std::string& key) {
  const std::lock_guard lock(mutex_);
  Statement statement(database_, "DELETE FROM instance WHERE SOPInstanceUID = ? AND path = ?");
  statement.bind_all({instance, key});
  statement.next();
  return statement.good() ? "" : problem("index");
}

ObjectIndex::Entered Catalog::enter(const StoredObject& stored, const HeadScan& scan,
                                    const std::string& expected, std::string& error) {
  ObjectFile file{stored.key, stored.sop_class, stored.instance, stored.syntax, false, false, stored.size};
  // The library looks at the data set up to (0008,0018).
  file.whole = scan.first_tag() <= tags::kSOPInstanceUID && stored.bytes % 2 == 0;
  const MutedWarnings muted;
  Message kept;
  kept.id = scan.make_message();
  if (kept.id < 0) error = "its attributes can not be read";
  return error.empty() ? insert(file, kept.id, expected, error) : Entered::Failed;
}

ObjectIndex::Entered Catalog::insert(const ObjectFile& file, int32_t object, const std::string& expected,
                                     std::string& error) {
  struct stat status {};
  ::lstat((folder_ + "/" + file.path).c_str(), &status);
  std::array<std::string, kColumnCount> values;
  const auto fill = [&](std::string (*read)(int32_t, uint32_t)) {
    for (std::size_t i = 0; i < kColumnCount; ++i) {
      values[i] = read(object, kColumns[i].tag);
      if (values[i].size() > kLongestValue) values[i].clear();
    }
  };
  fill(utf8_text_of);
  // One spelling for all: where the text can be decoded, it is UTF-8 from here on.
  if (std::all_of(values.begin(), values.end(), is_utf8)) {
    values[kCharsetColumn] = std::all_of(values.begin(), values.end(), is_ascii) ? "" : "ISO_IR 192";
  } else {
    fill(all_text_of);
  }
  // What the meta group says counts where the data set is silent.
  for (const auto& [tag, uid] :
       {std::pair{tags::kSOPClassUID, &file.sop_class}, {tags::kSOPInstanceUID, &file.instance}}) {
    if (values[column_index(tag)].empty()) values[column_index(tag)] = *uid;
  }
  const std::lock_guard lock(mutex_);
  std::string known;
  if (error = read_key(file.instance, known); !error.empty()) return Entered::Failed;
  if (known != expected) return Entered::Conflict;
  sqlite3_reset(insert_);
  sqlite3_bind_text(insert_, 1, file.path.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_int(insert_, 2, file.syntax);
  sqlite3_bind_int64(insert_, 3, static_cast<sqlite3_int64>(file.size));
  sqlite3_bind_int(insert_, 4, file.whole ? 1 : 0);
  sqlite3_bind_int64(insert_, 5, modified(status));
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    sqlite3_bind_text(insert_, static_cast<int>(6 + i), values[i].c_str(), static_cast<int>(values[i].size()),
                      SQLITE_TRANSIENT);
  }
  if (sqlite3_step(insert_) != SQLITE_DONE) error = problem("index");
  sqlite3_reset(insert_);
  return error.empty() ? Entered::Done : Entered::Failed;
}

std::string Catalog::find(
    Level level, const std::vector<CatalogKey>& keys, const Stop& stop,
    const std::function<bool(const std::vector<std::string>& values, const std::string& charset)>& take) {
  constexpr std::size_t kPage = 256;
  std::vector<std::string> bound;
  const std::string group = kGroups[static_cast<int>(level)];
  std::string sql = "SELECT " + group + ", SpecificCharacterSet";
  for (const CatalogKey& key : keys) {
    const Column* column = find_column(key.tag);
    const Computed* computed = find_computed(key.tag);
    sql += std::string(", ") + (column != nullptr     ? column->name
                                : computed != nullptr ? computed->expression
                                                      : "''");
  }
  // What has no identity at this level is no entity of it.
  const std::string where = conditions(keys, bound);
  sql += " FROM instance" + where + (where.empty() ? " WHERE " : " AND ") + group + " > ? GROUP BY " + group +
         " ORDER BY " + group + " LIMIT " + std::to_string(kPage);
  // A page of rows at a time: answers go out at the pace of the peer, and the index is not held that long.
  bound.emplace_back();
  for (bool more = true; more;) {
    std::vector<std::vector<std::string>> rows;
    {
      const Reader reader(*this, stop);
      Statement select(reader.get(), sql);
      if (!select) return reader.problem();
      select.bind_all(bound);
      while (select.next()) {
        std::vector<std::string> row;
        for (std::size_t i = 0; i < keys.size() + 2; ++i) row.push_back(select.text(static_cast<int>(i)));
        rows.push_back(std::move(row));
      }
      if (!select.good()) return reader.problem();
    }
    more = rows.size() == kPage;
    if (more) bound.back() = rows.back()[0];
    for (std::vector<std::string>& row : rows) {
      const std::string charset = row[1];
      row.erase(row.begin(), row.begin() + 2);
      bool wanted = true;
      for (std::size_t i = 0; i < keys.size(); ++i) {
        if (find_computed(keys[i].tag) == nullptr) continue;
        std::replace(row[i].begin(), row[i].end(), ',', '\\');
        wanted = wanted && matches_key(keys[i].vr, row[i], keys[i].value);
      }
      if (wanted && !take(row, charset)) return "";
    }
  }
  return "";
}

std::string Catalog::files(const std::vector<CatalogKey>& keys, const Stop& stop,
                           std::vector<ObjectFile>& found) {
  std::vector<std::string> bound;
  const std::string where = conditions(keys, bound);
  return select_files(where + " ORDER BY path", bound, stop, found);
}

std::string Catalog::rows_behind(const std::string& instance, std::size_t count,
                                 std::vector<ObjectFile>& found) {
  found.clear();
  return select_files(" WHERE SOPInstanceUID > ? ORDER BY SOPInstanceUID LIMIT " + std::to_string(count),
                      {instance}, nullptr, found);
}

std::string Catalog::select_files(const std::string& rest, const std::vector<std::string>& bound,
                                  const Stop& stop, std::vector<ObjectFile>& found) {
  const Reader reader(*this, stop);
  Statement select(reader.get(), std::string("SELECT ") + kColumnsOfFile + " FROM instance" + rest);
  if (!select) return reader.problem();
  select.bind_all(bound);
  while (select.next()) {
    ObjectFile file;
    file.path = select.text(0);
    file.sop_class = select.text(1);
    file.instance = select.text(2);
    file.syntax = static_cast<VX_TRANSFER_SYNTAX>(select.number(3));
    file.size = static_cast<uint64_t>(select.number(4));
    file.whole = select.number(5) != 0;
    found.push_back(std::move(file));
  }
  return select.good() ? "" : reader.problem();
}

}  // namespace vexal
