// Exported functions of the rules.
#include <algorithm>

#include "frame/no_throw.h"
#include "frame/state.h"
#include "model/rule_list.h"

using namespace vx;

VX_STATUS VX_Get_Rules(const char* Name, uint16_t Command, const RuleObj** Rules, int32_t* Count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Name);
  VX_REQUIRE_POINTER(Rules);
  VX_REQUIRE_POINTER(Count);
  const RuleList* list = nullptr;
  const VX_STATUS status = get_rules(Name, Command, list);
  *Rules = status == kOk ? list->Rules : nullptr;
  *Count = status == kOk ? list->Count : 0;
  return status;
}

VX_STATUS VX_Find_Rule(const char* Name, uint16_t Command, uint32_t Tag, const RuleObj** Rule) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Name);
  VX_REQUIRE_POINTER(Rule);
  *Rule = nullptr;
  const RuleList* list = nullptr;
  const VX_STATUS status = get_rules(Name, Command, list);
  if (status != kOk) return status;
  *Rule = find_rule(*list, Tag);
  return *Rule != nullptr ? kOk : VX_INVALID_TAG;
}

VX_STATUS VX_Get_Rule_Commands(const char* Service, uint16_t* Commands, int32_t Size, int32_t* Count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Service);
  VX_REQUIRE_POINTER(Commands);
  VX_REQUIRE_POINTER(Count);
  *Count = 0;
  return no_throw([&] {
    std::vector<uint16_t> known;
    const VX_STATUS status = rule_commands(Service, known);
    if (status != kOk) return status;
    *Count = static_cast<int32_t>(known.size());
    const std::size_t room = Size > 0 ? static_cast<std::size_t>(Size) : 0;
    std::copy_n(known.begin(), std::min(room, known.size()), Commands);
    return known.size() > room ? VX_BUFFER_TOO_SMALL : kOk;
  });
}
