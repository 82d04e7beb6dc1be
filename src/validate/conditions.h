// Conditions of attributes of types 1C and 2C: a named predicate each, with three answers.
#pragma once

#include <cstdint>
#include <string_view>

namespace vx {

enum : int32_t { kConditionFails = 0, kConditionHolds = 1, kConditionUnknown = 2 };

// The object that a condition is asked for, and those around it as far as they are known.
struct Scope {
  int32_t object_id;
  const Scope* outer = nullptr;
};

// `rule` as find_condition gives it, or as it stands in a template; an empty one is unknown. Looks only at
// the objects of the scope, and changes nothing in them but value cursors. `tag` is the attribute that the
// condition belongs to.
int32_t evaluate_condition(std::string_view rule, const Scope& scope, uint32_t tag);

}  // namespace vx
