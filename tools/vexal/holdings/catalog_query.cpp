#include "catalog_query.h"

#include <algorithm>

#include "base/names.h"
#include "base/values.h"
#include "files/charset.h"
#include "key_match.h"

namespace vexal {
namespace {

// %J joins texts over rows.
struct Computed {
  uint32_t tag;
  std::size_t tables;  // that have to be looked at
  const char* expression;
};
constexpr Computed kComputed[] = {
    {tags::kModalitiesInStudy, 1,
     "(SELECT %J(x.m, '\\') FROM (SELECT DISTINCT Modality AS m FROM series WHERE study = s.id AND Modality "
     "<> '' ORDER BY m) AS x)"},
    {tags::kSOPClassesInStudy, 1,
     "(SELECT %J(x.m, '\\') FROM (SELECT DISTINCT SOPClassUID AS m FROM instance JOIN series ON "
     "instance.series = series.id WHERE series.study = s.id ORDER BY m) AS x)"},
    {tags::kNumberOfPatientRelatedStudies, 1,
     "(SELECT count(*) FROM study x WHERE x.PatientID = s.PatientID AND x.PatientID <> '' AND "
     "x.StudyInstanceUID > ' ')"},
    {tags::kNumberOfPatientRelatedSeries, 1,
     "(SELECT count(*) FROM series y JOIN study x ON y.study = x.id WHERE x.PatientID = s.PatientID AND "
     "x.PatientID <> '' AND y.SeriesInstanceUID > ' ')"},
    {tags::kNumberOfPatientRelatedInstances, 1,
     "(SELECT count(*) FROM instance z JOIN series y ON z.series = y.id JOIN study x ON y.study = x.id WHERE "
     "x.PatientID = s.PatientID AND x.PatientID <> '')"},
    {tags::kNumberOfStudyRelatedSeries, 1,
     "(SELECT count(*) FROM series y WHERE y.study = s.id AND y.SeriesInstanceUID > ' ')"},
    {tags::kNumberOfStudyRelatedInstances, 1,
     "(SELECT count(*) FROM instance z JOIN series y ON z.series = y.id WHERE y.study = s.id)"},
    {tags::kNumberOfSeriesRelatedInstances, 2, "(SELECT count(*) FROM instance z WHERE z.series = r.id)"},
};

const Computed* find_computed(uint32_t tag) {
  const auto* row = std::find_if(std::begin(kComputed), std::end(kComputed),
                                 [&](const Computed& c) { return c.tag == tag; });
  return row == std::end(kComputed) ? nullptr : row;
}

// What stands for the identity of an entity, and the tables that its level needs.
constexpr struct {
  const char* uid;
  std::size_t tables;
} kLevels[] = {
    {"s.PatientID", 1}, {"s.StudyInstanceUID", 1}, {"r.SeriesInstanceUID", 2}, {"i.SOPInstanceUID", 3}};

constexpr VX_VR kTextVrs[] = {VX_VR_AE, VX_VR_AS, VX_VR_CS, VX_VR_LO, VX_VR_LT,
                              VX_VR_SH, VX_VR_ST, VX_VR_UC, VX_VR_UR, VX_VR_UT};
constexpr char kHighest[] = "\xF4\x8F\xBF\xBF";  // the last character that there is

// Columns of a row: identity, ids, character sets, whether odd; then the keys.
constexpr int kFirstId = 1;
constexpr int kFirstCharset = kFirstId + static_cast<int>(kCatalogTables);
constexpr int kFirstOdd = kFirstCharset + static_cast<int>(kCatalogTables);
constexpr int kFirstKey = kFirstOdd + static_cast<int>(kCatalogTables);

std::size_t table_index(const CatalogColumn& column) {
  return static_cast<std::size_t>(column.table);
}

bool asks(const CatalogKey& key) {
  return !key.value.empty() && key.value != "*";
}

}  // namespace

bool is_computed(uint32_t tag) {
  return find_computed(tag) != nullptr;
}

CatalogQuery::CatalogQuery(Level level, const std::vector<CatalogKey>& keys, const Database& words)
    : level_(level),
      keys_(keys),
      words_(words),
      tables_(kLevels[static_cast<int>(level)].tables),
      start_(tables_ - 1),
      settled_(keys.size()) {
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (asks(keys[i])) narrow(i);
  }
}

// What the engine can tell of a key. All rows that match have to pass: the odd ones always do.
void CatalogQuery::narrow(std::size_t at) {
  const CatalogKey& key = keys_[at];
  const CatalogColumn* column = find_column(key.tag);
  if (column == nullptr) return;
  tables_ = std::max(tables_, table_index(*column) + 1);
  if (!is_utf8(key.value) || key.value.find('\0') != std::string::npos) return;
  using Kind = CatalogColumn::Kind;
  const std::vector<std::string> parts = values_of(key.value);
  if (column->kind == Kind::Uid && key.vr == VX_VR_UI) {
    if (std::find(parts.begin(), parts.end(), "*") != parts.end()) return;
    narrow_list(*column, parts);
    settled_[at] = true;
    return;
  }
  const std::size_t wild = key.value.find_first_of("*?");
  const bool text = std::find(std::begin(kTextVrs), std::end(kTextVrs), key.vr) != std::end(kTextVrs);
  if (column->kind == Kind::Date && key.vr == VX_VR_DA && wild == key.value.npos && parts.size() == 1) {
    settled_[at] = narrow_date(*column, key.value);
  } else if (column->kind == Kind::Name && key.vr == VX_VR_PN && parts.size() == 1) {
    const std::string prefix = folded_name(key.value.substr(0, wild));
    if (!prefix.empty()) narrow_range(0, "folded_name", prefix, prefix, false);
  } else if (text && wild == key.value.npos) {
    narrow_list(*column, parts);
    settled_[at] = true;
  } else if (text && parts.size() == 1 && wild > 0) {
    const std::string prefix = key.value.substr(0, wild);
    narrow_range(table_index(*column), column->name, prefix, prefix, false);
  }
}

void CatalogQuery::narrow_list(const CatalogColumn& column, const std::vector<std::string>& parts) {
  std::vector<std::string> sorted = parts;
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  set_out_from(table_index(column), column.tag == kColumns[kUidColumns[table_index(column)]].tag);
  const std::string letter = kTableLetters[table_index(column)];
  where_ += (where_.empty() ? "(" : " AND (") + letter + "." + column.name + " IN (?";
  for (std::size_t i = 1; i < sorted.size(); ++i) where_ += ", ?";
  where_ += ") OR " + letter + ".odd = 1)";
  bound_.insert(bound_.end(), sorted.begin(), sorted.end());
}

// From `low` to all that begin with `high`; either may be open.
void CatalogQuery::narrow_range(std::size_t table, const std::string& name, const std::string& low,
                                const std::string& high, bool filled) {
  const std::string letter = kTableLetters[table];
  const std::string column = letter + "." + name;
  std::string condition;
  const auto add = [&](const char* how, const std::string& bound) {
    condition += (condition.empty() ? "" : " AND ") + column + how;
    bound_.push_back(bound);
  };
  if (!low.empty() || filled) add(low.empty() ? " > ?" : " >= ?", low);
  if (!high.empty()) add(" < ?", high + kHighest);
  if (condition.empty()) return;
  set_out_from(table, false);
  where_ += (where_.empty() ? "((" : " AND ((") + condition + ") OR " + letter + ".odd = 1)";
}

// Dates have eight digits here, others are odd; of what is longer, no more counts.
bool CatalogQuery::narrow_date(const CatalogColumn& column, const std::string& value) {
  const std::size_t dash = value.find('-');
  if (dash == value.npos) {
    narrow_list(column, {value});
    return true;
  }
  const std::size_t second = value.find('-', dash + 1);
  if (second != value.npos) return false;
  narrow_range(table_index(column), column.name, value.substr(0, std::min<std::size_t>(dash, 8)),
               value.substr(dash + 1, 8), true);
  return true;
}

// The rows that UIDs name are few; otherwise there are fewer studies than series, and fewer of these than
// instances. Without conditions, it is the table whose order the answers have.
void CatalogQuery::set_out_from(std::size_t table, bool by_uid) {
  if (by_uid_ && (!by_uid || table < start_)) return;
  if (by_uid || where_.empty() || table < start_) start_ = table;
  by_uid_ = by_uid_ || by_uid;
}

// SQLite joins tables in the order in which they are named here.
std::string CatalogQuery::joins() const {
  constexpr const char* kOn[] = {"r.study = s.id", "i.series = r.id"};
  constexpr std::size_t kOrders[][kCatalogTables] = {{0, 1, 2}, {1, 0, 2}, {2, 1, 0}};
  std::string from;
  std::string on;
  for (const std::size_t t : kOrders[start_]) {
    if (t >= tables_) continue;
    from += std::string(from.empty() ? "" : " CROSS JOIN ") + kTableNames[t] + " " + kTableLetters[t];
    if (t > 0) on += std::string(on.empty() ? "" : " AND ") + kOn[t - 1];
  }
  return from + (on.empty() ? " WHERE 1 = 1" : " WHERE " + on);
}

std::string CatalogQuery::value_of(const CatalogKey& key) const {
  const CatalogColumn* column = find_column(key.tag);
  if (column != nullptr && table_index(*column) < tables_)
    return std::string(kTableLetters[table_index(*column)]) + "." + column->name;
  const Computed* computed = find_computed(key.tag);
  if (computed == nullptr || computed->tables > tables_) return "''";
  std::string expression = computed->expression;
  if (const std::size_t mark = expression.find("%J"); mark != expression.npos)
    expression.replace(mark, 2, words_.join_function());
  return expression;
}

std::string CatalogQuery::columns(const std::string& first) const {
  std::string sql = first;
  for (const char* part : {".id", ".charset", ".odd"}) {
    for (std::size_t t = 0; t < kCatalogTables; ++t)
      sql += t < tables_                            ? std::string(", ") + kTableLetters[t] + part
             : part == std::string_view(".charset") ? ", ''"
                                                    : ", 0";
  }
  for (const CatalogKey& key : keys_) sql += ", " + value_of(key);
  if (level_ == Level::Image)
    sql += ", i.object_key, i.SOPClassUID, i.SOPInstanceUID, i.syntax, i.size, i.whole";
  return sql;
}

std::string CatalogQuery::order(const std::string& prefix) const {
  std::string list = prefix + kLevels[static_cast<int>(level_)].uid;
  for (std::size_t t = 0; t < tables_; ++t) list += std::string(", ") + kTableLetters[t] + ".id";
  return list;
}

SqlOutcome CatalogQuery::page(Database& database, const Place& last, std::size_t most, const SqlStop& stop,
                              const SqlTaker& take) const {
  // Where there is a condition, SQLite is to find rows by that, rather than walk through all in order.
  const std::string list = order(where_.empty() || database.is_server() ? "" : "+");
  std::string ids = "?";
  std::string numbers;
  std::string rows;
  std::string match;
  for (std::size_t t = 0; t < tables_; ++t) {
    const std::string letter = kTableLetters[t];
    ids += ", ?";
    numbers += ", " + letter + ".id AS " + letter + "id";
    rows += std::string(" CROSS JOIN ") + kTableNames[t] + " " + letter;
    match += (match.empty() ? " WHERE " : " AND ") + letter + ".id = k." + letter + "id";
  }
  // What costs more is asked for the rows of the page alone.
  const std::string sql = "SELECT " + columns("k.uid") + " FROM (SELECT " +
                          kLevels[static_cast<int>(level_)].uid + " AS uid" + numbers + " FROM " + joins() +
                          " AND (" + list + ") > (" + ids + ")" + (where_.empty() ? "" : " AND ") + where_ +
                          " ORDER BY " + list + " LIMIT ?) AS k" + rows + match + " ORDER BY " + order("");
  std::vector<SqlValue> values = {last.uid};
  for (std::size_t t = 0; t < tables_; ++t) values.emplace_back(last.ids[t]);
  for (const std::string& value : bound_) values.emplace_back(value);
  values.emplace_back(static_cast<int64_t>(most));
  return database.run(sql, values, take, stop);
}

int CatalogQuery::width() const {
  return first_of_object(keys_.size()) + (level_ == Level::Image ? 6 : 0);
}

int CatalogQuery::first_of_object(std::size_t keys) {
  return kFirstKey + static_cast<int>(keys);
}

CatalogQuery::Place CatalogQuery::place_of(const SqlRow& row) {
  Place place;
  place.uid = row.text(0);
  for (std::size_t t = 0; t < kCatalogTables; ++t) place.ids[t] = row.number(kFirstId + static_cast<int>(t));
  return place;
}

bool CatalogQuery::read(const SqlRow& row, std::vector<std::string>& values, std::string& charset) const {
  values.resize(keys_.size());
  charset.clear();
  bool decoded[kCatalogTables];
  bool odd = false;
  for (std::size_t t = 0; t < kCatalogTables; ++t) {
    const std::string_view own = row.text(kFirstCharset + static_cast<int>(t));
    decoded[t] = is_decoded(own);
    odd = odd || row.number(kFirstOdd + static_cast<int>(t)) != 0;
    // What can not be decoded names the sets it is in.
    if (!decoded[t]) charset = plain(own.substr(1), false);
    if (decoded[t] && charset.empty()) charset = own;
  }
  for (std::size_t k = 0; k < keys_.size(); ++k) {
    const CatalogColumn* column = find_column(keys_[k].tag);
    const std::string_view stored = row.text(kFirstKey + static_cast<int>(k));
    values[k] = column != nullptr ? plain(stored, decoded[table_index(*column)]) : std::string(stored);
    if (!values[k].empty() && values[k][0] == kNoIdentity) values[k].clear();
    if (column == nullptr && find_computed(keys_[k].tag) == nullptr) continue;  // nothing is known of it
    if (asks(keys_[k]) && (odd || !settled_[k]) && !matches_key(keys_[k].vr, values[k], keys_[k].value))
      return false;
  }
  return true;
}

}  // namespace vexal
