// Query identifiers: from the options of find, get and move to a request, and from its answers to rows.
#pragma once

#include <string>
#include <vector>

#include "base/args.h"
#include "base/tag_path.h"
#include "network.h"

namespace vexal {

// Rows of an option table.
#define VEXAL_QUERY_OPTIONS                                                                           \
  {"--level", "LEVEL", "patient, study, series or image (default study)"},                            \
      {"--model", "MODEL", "information model: study (default) or patient"}, {                        \
    "-k", "KEY[=VALUE]", "a key to match, or without VALUE one to return; a path as for vexal modify" \
  }

enum class QueryKind { Find, Get, Move };

// One attribute of the identifier.
struct QueryKey {
  std::string text;  // as it was given: the head of its column
  std::vector<PathStep> path;
};

class Query {
 public:
  // Reads the options; false after a line on standard error. Keys that each level should return are added for
  // a find.
  bool read(const Args& args, QueryKind kind);
  const std::string& sop_class() const { return sop_class_; }
  const std::vector<QueryKey>& keys() const { return keys_; }
  const std::vector<std::string>& values() const { return values_; }  // beside keys()
  // The request with its identifier.
  bool fill(Message& request, uint16_t command) const;

 private:
  bool add(const std::string& text);

  std::string sop_class_;
  std::string level_;  // (0008,0052); empty for worklists
  std::vector<QueryKey> keys_;
  std::vector<std::string> values_;  // beside keys_
};

// All values at a path, joined by backslashes; "" if there are none.
std::string values_at(int32_t object, const std::vector<PathStep>& path);

// Answers for people: a row of heads and one for each answer, columns as wide as their longest cell.
void print_table(const std::vector<QueryKey>& keys, const std::vector<std::vector<std::string>>& rows);
// An answer as one line of JSON.
void print_json(const std::vector<QueryKey>& keys, const std::vector<std::string>& row);

}  // namespace vexal
