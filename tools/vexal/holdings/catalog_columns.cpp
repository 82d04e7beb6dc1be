#include "catalog_columns.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include "base/names.h"
#include "base/values.h"
#include "files/charset.h"

namespace vexal {
namespace {

constexpr int64_t kForm = 1;
// A value of more bytes is none that a query could be after.
constexpr std::size_t kLongestValue = 1024;

static_assert([] {
  for (std::size_t i = 1; i < kColumnCount; ++i) {
    if (kColumns[i - 1].tag >= kColumns[i].tag) return false;
  }
  for (const std::size_t at : kUidColumns) {
    if (at == kColumnCount) return false;
  }
  return kPatientNameColumn < kColumnCount && column_index(tags::kSOPClassUID) < kColumnCount;
}());

// Bytes that are no UTF-8, as characters of Latin 1: no server takes them as they are.
std::string as_latin(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      text += c;
    } else {
      text += static_cast<char>(0xC0 | (byte >> 6));
      text += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return text;
}

std::string columns_of(CatalogTable table) {
  std::string names = "charset, odd";
  for (const CatalogColumn& column : kColumns) {
    if (column.table == table) names += std::string(", ") + column.name;
  }
  return names + (table == CatalogTable::Study ? ", folded_name" : "");
}

std::string marks(CatalogTable table, int more) {
  const auto count = std::count_if(std::begin(kColumns), std::end(kColumns),
                                   [&](const CatalogColumn& column) { return column.table == table; });
  std::string text = "?, ?";
  for (auto i = count + more + (table == CatalogTable::Study ? 1 : 0); i > 0; --i) text += ", ?";
  return text;
}

std::string table_sql(const Database& words) {
  const std::string text = words.text_type();
  std::string sql;
  for (std::size_t t = 0; t < kCatalogTables; ++t) {
    const auto table = static_cast<CatalogTable>(t);
    const std::string name = kTableNames[t];
    sql += "CREATE TABLE " + name + " (id " + words.identity_type();
    if (table == CatalogTable::Series) sql += ", study BIGINT NOT NULL REFERENCES study (id)";
    if (table == CatalogTable::Instance)
      sql += ", series BIGINT NOT NULL REFERENCES series (id), object_key " + text +
             " NOT NULL, syntax BIGINT, size BIGINT, whole BIGINT, modified BIGINT";
    sql += ", charset " + text + ", odd BIGINT";
    if (table == CatalogTable::Study) sql += ", folded_name " + text;
    for (const CatalogColumn& column : kColumns) {
      if (column.table == table) sql += std::string(", ") + column.name + " " + text;
    }
    sql += ");";
    // Few rows are odd; conditions have to look at all of these.
    sql += "CREATE INDEX " + name + "_odd ON " + name + " (id) WHERE odd = 1;";
  }
  return sql +
         "CREATE UNIQUE INDEX study_uid ON study (StudyInstanceUID);"
         "CREATE INDEX study_patient ON study (PatientID);"
         "CREATE INDEX study_name ON study (folded_name);"
         "CREATE INDEX study_date ON study (StudyDate);"
         "CREATE INDEX study_accession ON study (AccessionNumber);"
         "CREATE UNIQUE INDEX series_uid ON series (study, SeriesInstanceUID);"
         "CREATE INDEX series_by_uid ON series (SeriesInstanceUID);"
         "CREATE UNIQUE INDEX instance_uid ON instance (SOPInstanceUID);"
         "CREATE INDEX instance_series ON instance (series);"
         "CREATE INDEX instance_key ON instance (object_key)";
}

// Whether the engine would compare a value otherwise than queries do.
bool is_odd(const CatalogColumn& column, const std::string& value) {
  return value.find('\\') != std::string::npos ||
         (column.kind == CatalogColumn::Kind::Date && !value.empty() && value.size() != 8);
}

}  // namespace

std::string plain(std::string_view stored, bool decoded) {
  if (decoded) return std::string(stored);
  std::string bytes;
  for (std::size_t i = 0; i < stored.size(); ++i) {
    const auto byte = static_cast<unsigned char>(stored[i]);
    if (byte >= 0xC2 && i + 1 < stored.size()) {
      bytes += static_cast<char>((byte << 6) | (static_cast<unsigned char>(stored[++i]) & 0x3F));
    } else {
      bytes += stored[i];
    }
  }
  return bytes;
}

std::string folded_name(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

void CatalogRow::read(int32_t object, const std::string& sop_class, const std::string& instance) {
  const auto fill = [&](std::string (*text_of)(int32_t, uint32_t)) {
    for (std::size_t i = 0; i < kColumnCount; ++i) {
      values[i] = text_of(object, kColumns[i].tag);
      values[i].resize(std::min(values[i].find('\0'), values[i].size()));
      if (values[i].size() > kLongestValue) values[i].clear();
    }
  };
  fill(utf8_text_of);
  // One spelling for all: where the text can be decoded, it is UTF-8 from here on.
  bool decoded = std::all_of(values.begin(), values.end(), is_utf8);
  if (decoded) {
    charset = std::all_of(values.begin(), values.end(), is_ascii) ? "" : "ISO_IR 192";
  } else {
    fill(all_text_of);
    charset = kNoIdentity + as_latin(all_text_of(object, tags::kSpecificCharacterSet));
    for (std::string& value : values) value = as_latin(value);
  }
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    bool& table_odd = odd[static_cast<std::size_t>(kColumns[i].table)];
    table_odd = table_odd || !decoded || is_odd(kColumns[i], values[i]);
  }
  std::string& own_class = values[column_index(tags::kSOPClassUID)];
  std::string& own_uid = values[kUidColumns[2]];
  if (own_class.empty()) own_class = sop_class;
  if (own_uid.empty()) own_uid = instance;
  for (std::size_t t = 0; t < kCatalogTables; ++t) {
    std::string& uid = values[kUidColumns[t]];
    if (!uid.empty()) continue;
    uid = kNoIdentity + own_uid;
    odd[t] = true;
  }
}

SqlOutcome make_catalog(Database& database, bool rebuild, bool& fresh) {
  SqlLayout layout{"index", kForm, table_sql(database), ""};
  if (rebuild)
    layout.drop = "DROP TABLE IF EXISTS instance; DROP TABLE IF EXISTS series; DROP TABLE IF EXISTS study";
  return make_layout(database, layout, fresh);
}

CatalogStatements::CatalogStatements()
    : add_study("INSERT INTO study (" + columns_of(CatalogTable::Study) + ") VALUES (" +
                marks(CatalogTable::Study, 0) + ") ON CONFLICT (StudyInstanceUID) DO NOTHING"),
      add_series(
          "INSERT INTO series (" + columns_of(CatalogTable::Series) + ", study) SELECT " +
          marks(CatalogTable::Series, 0) +
          ", id FROM study WHERE StudyInstanceUID = ? ON CONFLICT (study, SeriesInstanceUID) DO NOTHING"),
      add_instance("INSERT INTO instance (" + columns_of(CatalogTable::Instance) +
                   ", object_key, syntax, size, whole, modified, series) SELECT " +
                   marks(CatalogTable::Instance, 5) +
                   ", r.id FROM series r JOIN study s ON r.study = s.id WHERE r.SeriesInstanceUID = ? AND "
                   "s.StudyInstanceUID = ? ON CONFLICT (SOPInstanceUID) DO NOTHING") {}

const CatalogStatements& catalog_statements() {
  static const CatalogStatements statements;
  return statements;
}

void add_values(const CatalogRow& row, CatalogTable table, std::vector<SqlValue>& values,
                const std::string& folded) {
  values.emplace_back(row.charset);
  values.emplace_back(row.odd[static_cast<std::size_t>(table)] ? 1 : 0);
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    if (kColumns[i].table == table) values.emplace_back(row.values[i]);
  }
  if (table == CatalogTable::Study) values.emplace_back(folded);
}

}  // namespace vexal
