// Searches: what the index finds, as JSON or XML (PS3.18 section 10.6).
#pragma once

#include <string>
#include <vector>

#include "web_answers.h"

namespace vexal {

// What a search asks for.
struct WebSearch {
  Level level = Level::Study;
  std::vector<CatalogKey> keys;  // to match, to return, or both
  uint64_t limit = 0;
  uint64_t offset = 0;

  // An error text for the client, empty on success.
  std::string read(const WebTarget& target, const HttpFields& query);

 private:
  std::string add_parameter(const std::string& name, const std::string& value);
  std::string add_key(const std::string& name, std::string value);
  std::string include(const std::string& names);
  CatalogKey& key(uint32_t tag);
  // What the index keeps of the levels below `above`, down to the one that is searched.
  void add_kept(Level above, bool all);
};

HttpResponse search(const WebContext& context);

}  // namespace vexal
