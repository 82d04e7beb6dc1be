// Conditions of attributes of types 1C and 2C: a named predicate each, with three answers.
#pragma once

#include <cstdint>
#include <string_view>

namespace vx {

enum : int32_t { kConditionFails = 0, kConditionHolds = 1, kConditionUnknown = 2 };

// `rule` as find_condition gives it; an empty one is unknown. Looks only at the object at hand, and changes
// nothing in it but value cursors. `tag` is the attribute that the condition belongs to.
int32_t evaluate_condition(std::string_view rule, int32_t object_id, uint32_t tag);

}  // namespace vx
