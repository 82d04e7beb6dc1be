// What the index keeps of studies, series and instances, and the tables for it.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/tags.h"
#include "sql/database.h"
#include "vexalkit.h"

namespace vexal {

enum class Level { Patient, Study, Series, Image };

// A table: `s`, `r` and `i` in statements. What is known of patients stands with each study.
enum class CatalogTable { Study, Series, Instance };
inline constexpr std::size_t kCatalogTables = 3;
inline constexpr const char* kTableNames[kCatalogTables] = {"study", "series", "instance"};
inline constexpr const char* kTableLetters[kCatalogTables] = {"s", "r", "i"};

struct CatalogColumn {
  enum class Kind { Text, Date, Uid, Name };
  uint32_t tag;
  const char* name;
  CatalogTable table;
  Kind kind = Kind::Text;
};

// In ascending order of tags: they are looked for in one pass over a data set.
inline constexpr CatalogColumn kColumns[] = {
    {0x00080016, "SOPClassUID", CatalogTable::Instance, CatalogColumn::Kind::Uid},
    {0x00080018, "SOPInstanceUID", CatalogTable::Instance, CatalogColumn::Kind::Uid},
    {0x00080020, "StudyDate", CatalogTable::Study, CatalogColumn::Kind::Date},
    {0x00080021, "SeriesDate", CatalogTable::Series, CatalogColumn::Kind::Date},
    {0x00080030, "StudyTime", CatalogTable::Study},
    {0x00080031, "SeriesTime", CatalogTable::Series},
    {0x00080050, "AccessionNumber", CatalogTable::Study},
    {0x00080060, "Modality", CatalogTable::Series},
    {0x00080080, "InstitutionName", CatalogTable::Series},
    {0x00080090, "ReferringPhysicianName", CatalogTable::Study},
    {0x00080201, "TimezoneOffsetFromUTC", CatalogTable::Study},
    {0x00081010, "StationName", CatalogTable::Series},
    {0x00081030, "StudyDescription", CatalogTable::Study},
    {0x0008103E, "SeriesDescription", CatalogTable::Series},
    {0x00100010, "PatientName", CatalogTable::Study, CatalogColumn::Kind::Name},
    {0x00100020, "PatientID", CatalogTable::Study},
    {0x00100030, "PatientBirthDate", CatalogTable::Study, CatalogColumn::Kind::Date},
    {0x00100040, "PatientSex", CatalogTable::Study},
    {0x00180015, "BodyPartExamined", CatalogTable::Series},
    {0x0020000D, "StudyInstanceUID", CatalogTable::Study, CatalogColumn::Kind::Uid},
    {0x0020000E, "SeriesInstanceUID", CatalogTable::Series, CatalogColumn::Kind::Uid},
    {0x00200010, "StudyID", CatalogTable::Study},
    {0x00200011, "SeriesNumber", CatalogTable::Series},
    {0x00200013, "InstanceNumber", CatalogTable::Instance},
    {0x00280008, "NumberOfFrames", CatalogTable::Instance},
    {0x00280010, "Rows", CatalogTable::Instance},
    {0x00280011, "Columns", CatalogTable::Instance},
    {0x00280100, "BitsAllocated", CatalogTable::Instance},
};
inline constexpr std::size_t kColumnCount = std::size(kColumns);

constexpr std::size_t column_index(uint32_t tag) {
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    if (kColumns[i].tag == tag) return i;
  }
  return kColumnCount;
}
inline const CatalogColumn* find_column(uint32_t tag) {
  const std::size_t at = column_index(tag);
  return at < kColumnCount ? &kColumns[at] : nullptr;
}

// The columns that name the rows of the tables.
inline constexpr std::size_t kUidColumns[kCatalogTables] = {column_index(tags::kStudyInstanceUID),
                                                            column_index(tags::kSeriesInstanceUID),
                                                            column_index(tags::kSOPInstanceUID)};
inline constexpr std::size_t kPatientNameColumn = column_index(0x00100010);

// What an object without an identity has in its place: a mark, and its SOP Instance UID behind it.
inline constexpr char kNoIdentity = '\x01';

// What the index keeps of one object.
struct CatalogRow {
  // Reads it from an object of the library, whose texts become UTF-8 where they can be decoded. What the meta
  // group or the request say of class and instance counts where the data set is silent.
  void read(int32_t object, const std::string& sop_class, const std::string& instance);

  std::array<std::string, kColumnCount> values;
  std::string charset;  // "", or ISO_IR 192; with a mark in front, what cannot be decoded: see plain()
  bool odd[kCatalogTables] = {};  // has values that the engine does not compare as queries do
};
// A stored text as it lies in the object, by the stored character set of its row.
std::string plain(std::string_view stored, bool decoded);
inline bool is_decoded(std::string_view charset) {
  return charset.empty() || charset[0] != kNoIdentity;
}

// The part of a text that queries for names find it by.
std::string folded_name(std::string_view text);

// Makes the tables where there are none. `rebuild`: those of an older version, or damaged ones, may go, as
// they can be filled again; `fresh`: they are empty now. Newer ones are refused.
SqlOutcome make_catalog(Database& database, bool rebuild, bool& fresh);

// Statements for one object; their values follow by add_values().
struct CatalogStatements {
  CatalogStatements();
  std::string add_study;
  std::string add_series;    // the UID of the study last
  std::string add_instance;  // key, syntax, size, whole, modified behind its columns; then series and study
};
const CatalogStatements& catalog_statements();
void add_values(const CatalogRow& row, CatalogTable table, std::vector<SqlValue>& values,
                const std::string& folded);

}  // namespace vexal
