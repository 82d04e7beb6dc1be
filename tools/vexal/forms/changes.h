// Changes of attributes, as options ask for them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/args.h"
#include "base/tag_path.h"
#include "images/write_options.h"

namespace vexal {

struct Change {
  enum class Verb { Set, Add, Clear, Delete, NewUid };
  Verb verb = Verb::Set;
  std::string text;  // as given, for messages
  std::vector<PathStep> path;
  std::string value;
};

// What --set, --add, --clear, --delete and --new-uid ask for, in the order given. False after a line on
// standard error.
bool read_changes(const Args& args, std::vector<Change>& changes);

// Makes a change in an object; `path` names its file in messages. False after a line that tells why it is
// refused: values that break the rules of their VR, among others.
bool apply_change(int32_t object, const std::string& path, const Change& change);

// What names the object in the meta group follows what the changes give the data set, or take from it; what
// they give the meta group itself stays.
void bring_meta_in_line(int32_t object, const std::vector<Change>& changes, WriteOptions& options);

// Gives an attribute values from text, parted by backslashes; "" leaves it without one. An error text, empty
// on success.
std::string set_text_at(const Place& place, const std::string& value);

}  // namespace vexal
