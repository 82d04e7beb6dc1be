// Attributes that queries ask for and the index lacks, read from the objects.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "catalog.h"
#include "files/files.h"

namespace vexal {

class Holdings;

// Whether the objects of one entity of a level can be taken to agree on an attribute, so that any of them
// tells it: all of an instance, what describes the series of a series, and so on.
bool tells_entity(uint32_t tag, Level level);

// Completes the answers of one query. The keys outlive this.
class ObjectAttributes {
 public:
  ObjectAttributes(Holdings& holdings, Level level, const std::vector<CatalogKey>& keys);

  // Whether there is anything to complete.
  bool needed() const { return !asked_.empty(); }
  // The keys of the query, and behind them those that name the entity.
  const std::vector<CatalogKey>& keys() const { return all_; }
  // Fills in what is missing, and leaves no more values than the query has keys. False: the entity does not
  // match, or there is a problem.
  bool complete(std::vector<std::string>& values, std::string& charset);
  // Why the query can not go on; empty: it can.
  const std::string& problem() const { return problem_; }

 private:
  bool read(const std::vector<std::string>& values, std::string& charset, std::vector<std::string>& told);

  Holdings& holdings_;
  const std::vector<CatalogKey>& keys_;
  std::vector<CatalogKey> all_;
  std::vector<std::size_t> asked_;  // keys that objects tell
  std::vector<uint32_t> tags_;      // of these, in ascending order, behind (0008,0005)
  std::size_t objects_ = 0;         // that were read
  std::string problem_;
};

}  // namespace vexal
