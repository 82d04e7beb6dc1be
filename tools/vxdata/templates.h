#pragma once
// The text form of the templates: blocks of attribute lines that refer to each other.
//
//   module  NAME  title        attributes of the standard's module
//   macro   NAME  title        attributes shared by modules and items
//   item    NAME  title        what an item of a sequence holds; NAME from the services profile
//   iod     NAME  title        the modules of an object definition
//   message SERVICE COMMANDS   what messages of a service hold; several commands with blanks between
//   define  NAME  RULE         part of a rule that several conditions share, as @NAME; it may stand anywhere
//   extend  NAME               further lines for a block that stands elsewhere: what a site adds of its own,
//   extend  SERVICE COMMANDS   or changes, in a file of its own
//
// Lines of a block:
//
//   include NAME               all of another block, as it stands
//   use     NAME  M|C|U  [?CONDITION  [+]]   a module with its usage
//   unknown REASON             the contents are not known, or not all of them; vxdata report lists why
//   GGGG,EEEE  TYPE  KEYWORD  OPTIONS   an attribute; TYPE 1, 1C, 2, 2C or 3, with a "!" behind it where
//                                       the line overrules the other modules of the object
//
// Options, each in a column of its own:
//
//   ?NAME     condition            =A|B    enumerated values       2=A|B  the same for the second value
//   ?(RULE)   the same, as a rule  +       where the condition does not hold, the attribute may be there
//   >A|B      item types           ~A|B    defined terms           2~A|B
//   :VR       VR, for an attribute that the dictionary lacks
//   @CODE     private creator      *TEXT   default value
//   ^TITLE    the module that it comes from, where that is not the block's title
//   !REASON   of a conditional type without a condition: why no object tells whether it holds
//
// Columns are separated by tabs. Within values "\|" is a bar and "\\" a backslash.

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "profile.h"
#include "text.h"

namespace vxdata {

// Codes of the binary file and of the library.
enum AttributeType { kType1, kType1C, kType2, kType2C, kType3 };
std::optional<AttributeType> parse_type(std::string_view text);
std::string_view type_text(AttributeType type);
inline bool is_conditional(AttributeType type) {
  return type == kType1C || type == kType2C;
}

// The condition that only asks whether the attribute has a value: it may be missing and may be there, but not
// be null where type 1C does not allow it. Where the standard says that it "may be present otherwise", and
// where nothing tells whether the condition holds.
inline constexpr const char* kMayBePresent = "LOSSY_COMPRESSION_PERFORMED";

struct ValueList {
  int number = 1;  // of the value in the attribute
  bool enumerated = false;
  std::vector<std::string> values;
};

struct Place {
  const std::string* file = nullptr;
  int line = 0;
};

struct Attribute {
  uint32_t tag = 0;
  AttributeType type = kType3;
  bool overrules = false;
  std::string keyword;
  std::string condition;  // a name, or a rule in parentheses
  bool may = false;       // be there where the condition does not hold
  bool lowered = false;   // of type 1 or 2 in a module that need not be there
  std::string untold;     // why there is no condition
  std::string module;     // title of the module or macro that the type comes from
  std::vector<ValueList> values;
  std::vector<std::string> items;
  std::optional<int> vr;
  std::string creator;
  std::optional<std::string> default_value;
  Place place;
};

struct Reference {
  std::string name;
  char usage = 'M';
  std::string condition;
  Place place;
  bool may = false;  // what the module demands may be there where the condition does not hold
};

enum class BlockKind { kModule, kMacro, kItem, kIod, kMessage, kExtension };

struct Block {
  BlockKind kind = BlockKind::kModule;
  std::string name;  // of a message: the service
  std::string title;
  std::vector<uint16_t> commands;  // of a message, and of what extends one
  std::vector<std::variant<Attribute, Reference>> rows;
  std::vector<std::string> unknown;  // what is not known of the contents
  Place place;
};

// What a message or an item holds, after all references are resolved.
using Body = std::map<uint32_t, Attribute>;

class Templates {
 public:
  void read(const std::string& path, Problems& problems);
  // Adds the lines of all extensions to their blocks and fills in what is defined, once everything is read.
  void join_extensions(Problems& problems);

  const std::deque<Block>& blocks() const { return blocks_; }
  const Block* find(const std::string& name) const;  // any block but messages

  // Every reference, item name, service and command, attribute and value, against the other tables.
  // The result of each block is kept.
  const Body& expand(const Block& block, Problems& problems);

 private:
  void open_block(const std::vector<std::string>& fields, Place place, Problems& problems);
  void read_row(const std::vector<std::string>& fields, Place place, Problems& problems);
  std::vector<Block*> extended_by(const Block& extension);
  void fill_in(std::string& condition, const Place& place, Problems& problems) const;
  void merge_reference(Body& body, const Reference& reference, Problems& problems);

  std::deque<std::string> files_;
  std::deque<Block> blocks_;
  std::unordered_map<std::string, Block*> index_;
  std::unordered_map<std::string, std::string> defined_;
  std::unordered_map<const Block*, Body> bodies_;
  std::unordered_map<const Block*, bool> open_;
};

// "A|B" with its escapes, and back.
std::vector<std::string> split_values(std::string_view text);
std::string join_values(const std::vector<std::string>& values);

std::string attribute_line(const Attribute& attribute);

inline bool is_rule(const std::string& condition) {
  return !condition.empty() && condition.front() == '(';
}
// The attributes that the name of a condition says it reads, or its rule of the object at hand.
std::vector<uint32_t> condition_tags(std::string_view text);

}  // namespace vxdata
