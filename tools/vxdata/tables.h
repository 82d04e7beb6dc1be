#pragma once
// All tables together, as the commands on templates read them.

#include <map>
#include <string>
#include <utility>

#include "arguments.h"
#include "dictionary.h"
#include "profile.h"
#include "templates.h"

namespace vxdata {

struct Tables {
  // --dict FILE (several, separated by commas), --services FILE, and the templates as inputs.
  Tables(const Arguments& arguments, Problems& problems);

  const Block* message(const std::string& service, uint16_t command) const;

  Dictionary dictionary;
  Profile profile;
  Templates templates;

 private:
  void index_messages(Problems& problems);
  void check_items(Problems& problems) const;

  std::map<std::pair<std::string, uint16_t>, const Block*> messages_;
};

}  // namespace vxdata
