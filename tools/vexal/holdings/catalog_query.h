// Queries of the index as statements: the engine narrows down, key_match decides.
#pragma once

#include <string>
#include <vector>

#include "catalog_columns.h"

namespace vexal {

// A key of a query: an attribute and what it has to match (PS3.4 section C.2.2.2); empty for anything.
struct CatalogKey {
  uint32_t tag = 0;
  VX_VR vr = 0;
  std::string value;
};

// Whether the index counts or lists this over the instances of an entity.
bool is_computed(uint32_t tag);

class CatalogQuery {
 public:
  // For entities of a level, by keys of any level. The keys outlive this.
  CatalogQuery(Level level, const std::vector<CatalogKey>& keys, const Database& words);

  // Where a row stands in the order of rows: the identity of its entity, and the rows of the tables.
  struct Place {
    std::string uid = "\x02";  // behind all that have no identity
    int64_t ids[kCatalogTables] = {};
  };
  // The next rows behind a place. Of one entity there may be several; one that matches is enough.
  SqlOutcome page(Database& database, const Place& last, std::size_t most, const SqlStop& stop,
                  const SqlTaker& take) const;
  // Of a row. False: it does not match after all; otherwise the value of each key, and the
  // character set of the values.
  bool read(const SqlRow& row, std::vector<std::string>& values, std::string& charset) const;
  static Place place_of(const SqlRow& row);
  // How many columns a row has.
  int width() const;
  // Where key, class, UID, syntax, size and `whole` begin in the row of an instance.
  static int first_of_object(std::size_t keys);

 private:
  void narrow(std::size_t key);
  void narrow_list(const CatalogColumn& column, const std::vector<std::string>& parts);
  void narrow_range(std::size_t table, const std::string& name, const std::string& low,
                    const std::string& high, bool filled);
  void set_out_from(std::size_t table, bool by_uid);
  bool narrow_date(const CatalogColumn& column, const std::string& value);
  std::string columns(const std::string& first) const;
  std::string joins() const;
  std::string value_of(const CatalogKey& key) const;
  std::string order(const std::string& prefix) const;

  Level level_;
  const std::vector<CatalogKey>& keys_;
  const Database& words_;
  std::size_t tables_;              // that are looked at: 1 for studies alone
  std::size_t start_;               // the table that SQLite goes out from
  bool by_uid_ = false;             // with UIDs of its rows
  std::string where_;               // "" for all
  std::vector<std::string> bound_;  // values of where_
  std::vector<bool> settled_;       // keys that the engine alone judges, in rows that are not odd
};

}  // namespace vexal
