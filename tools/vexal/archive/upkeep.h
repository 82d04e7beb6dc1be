// What the actions of vexal archive share.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/args.h"
#include "holdings/holdings.h"

namespace vexal {

struct Upkeep {
  explicit Upkeep(const Args& arguments) : args(arguments), json(arguments.has("--json")) {}

  const Args& args;
  bool json;
  StorageOptions storage;
  Holdings holdings;
};

// Each gives the exit code.
int check_archive(Upkeep& upkeep);
int move_archive(Upkeep& upkeep);
int export_studies(Upkeep& upkeep);
int delete_studies(Upkeep& upkeep);
int show_usage(Upkeep& upkeep);
int apply_quota(Upkeep& upkeep);

// A study that a query finds, with all that it holds.
struct FoundStudy {
  std::string patient;  // its ID
  std::string date;
  std::string uid;
  std::vector<ObjectFile> objects;
  uint64_t bytes = 0;
};
// The keys of -k at the study level, as the catalog has them. False after a line on standard error.
bool read_study_keys(const Args& args, bool may_be_none, std::vector<CatalogKey>& keys);
// Calls `take` for each study that matches. An error text, empty on success.
std::string each_study(Holdings& holdings, const std::vector<CatalogKey>& keys,
                       const std::function<std::string(FoundStudy&)>& take);
// All rows of the index, a page at a time. An error text, empty on success.
std::string each_row(Catalog& catalog, const std::function<std::string(const ObjectFile&)>& take);

// The bytes of a file into an open sink. An error text, empty on success.
std::string copy_file(const std::string& from, FileSink& sink);

// A line for each thing that is found or done: {"what":...,"key":...} with --json, else the texts in a row.
using Cells = std::vector<std::pair<const char*, std::string>>;
void print_cells(const Upkeep& upkeep, const Cells& cells);

}  // namespace vexal
