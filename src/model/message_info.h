// Message templates, read from the Message Info File on first use.
#pragma once

#include <cstdint>
#include <string_view>
#include <type_traits>

#include "frame/list.h"
#include "model/object.h"

namespace vx {

// A value that a template allows; its bytes follow it, with a NUL behind them.
struct ValidValueObj {
  uint32_t Length;
  uint16_t ValueNumber;  // from 1
  int32_t IsEnumerated;  // 0: a defined term
  const char* Value;
};

// The rules for one attribute, shared by all objects of a template.
struct ValTagObj {
  CObList ValidValues;             // of ValidValueObj; item names for a sequence
  const char* Condition;           // name of the predicate, or null
  std::string_view ConditionRule;  // what it says; empty for one that nothing can be told of
  uint16_t MaxValueNumber;
  bool MayBePresent;      // also where the condition does not hold
  int32_t AttributeType;  // 0 "1", 1 "1C", 2 "2", 3 "2C", 4 "3", 7 not set
};
enum : int32_t { kType1 = 0, kType1C = 1, kType2 = 2, kType2C = 3, kType3 = 4, kTypeNotSet = 7 };
const char* attribute_type_text(int32_t type);
int32_t attribute_type_from_text(const char* text, std::size_t length);

struct MsgTemplate {
  char* Name;
  uint16_t Command;  // 0 for an item
  TagObj* FirstTag;  // ascending; these lie in no object
};

// The template of a service and command, or of an item (command 0). VX_MSGFILE_ERROR.
VX_STATUS get_template(const char* name, uint16_t command, const MsgTemplate*& out);
// Adds the template's attributes to the object, or (for_validation) puts its rules on the attributes that the
// object has. `filter` limits it to one tag; 0 for all.
VX_STATUS fill_from_template(MsgObj& object, uint32_t filter, bool for_validation);
// The creator code of a private template attribute; empty if there is none.
const char* template_creator(const MsgTemplate& message_template, const TagObj& attribute);

}  // namespace vx
