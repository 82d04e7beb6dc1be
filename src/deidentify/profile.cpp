#include "deidentify/profile.h"

#include <algorithm>
#include <iterator>

namespace vx {
namespace {

#include "confidentiality.inc"

// In the order in which they are taken, by what the place needs; what may not happen to it at all stands
// last.
Action first_allowed(uint8_t may, Need need) {
  switch (need) {
    case Need::Value:
      return (may & kMayU) != 0 ? Action::Uid : Action::Dummy;
    case Need::Presence:
      if ((may & kMayZ) != 0) return Action::Empty;
      if ((may & kMayD) != 0) return Action::Dummy;
      return (may & kMayU) != 0 ? Action::Uid : Action::Empty;
    case Need::Unknown:
      if ((may & kMayD) != 0) return Action::Dummy;
      if ((may & kMayU) != 0) return Action::Uid;
      return (may & kMayZ) != 0 ? Action::Empty : Action::Remove;
    case Need::Nothing:
      break;
  }
  if ((may & kMayX) != 0) return Action::Remove;
  if ((may & kMayZ) != 0) return Action::Empty;
  return (may & kMayD) != 0 ? Action::Dummy : Action::Uid;
}

}  // namespace

const ConfidentialityRow* confidentiality_of(uint32_t tag, int32_t vr) {
  const bool repeats = tag >> 24 == 0x50 || tag >> 24 == 0x60;
  const auto* row =
      std::lower_bound(std::begin(kTagRows), std::end(kTagRows), repeats ? tag & 0xFF000000U : tag,
                       [](const ConfidentialityRow& r, uint32_t t) { return r.tag < t; });
  for (; row != std::end(kTagRows) && row->tag >> 24 == tag >> 24; ++row) {
    if ((tag & row->mask) == row->tag) return row;
    if (!repeats) break;
  }
  const auto* of_vr = std::find_if(std::begin(kVrRows), std::end(kVrRows), [vr](const ConfidentialityRow& r) {
    return static_cast<int32_t>(r.tag) == vr;
  });
  return of_vr != std::end(kVrRows) ? of_vr : nullptr;
}

const ConfidentialityRow& private_confidentiality() {
  return kPrivateRow;
}

Action action_of(const ConfidentialityRow& row, uint32_t options, Need need) {
  if ((row.clean & options) != 0) return Action::Clean;
  if ((row.keep & options) != 0) return Action::Keep;
  return first_allowed(row.may, need);
}

bool is_standard_uid(std::string_view uid) {
  return std::binary_search(std::begin(kStandardUids), std::end(kStandardUids), uid);
}

bool is_public_scheme(std::string_view designator) {
  return std::find(std::begin(kPublicSchemes), std::end(kPublicSchemes), designator) !=
         std::end(kPublicSchemes);
}

bool is_safe_private(std::string_view creator, uint16_t group, uint8_t element) {
  return std::any_of(std::begin(kSafePrivate), std::end(kSafePrivate), [&](const SafePrivate& safe) {
    return safe.group == group && safe.element == element && safe.creator == creator;
  });
}

}  // namespace vx
