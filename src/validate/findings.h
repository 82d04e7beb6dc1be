// The findings of a validation: a list on the object that was asked for, and a line each in the log.
#pragma once

#include <cstdint>

#include "model/object.h"
#include "model/values.h"

namespace vx {

// How serious a finding is: the lowest validation level that records it.
enum : int32_t { kError = VX_Errors_Only, kWarning = VX_Errors_And_Warnings, kRemark = VX_All_Findings };

struct Findings {
  MsgObj& holder;
  int32_t level;
};

struct Finding {
  const MsgObj& object;
  uint32_t tag;
  int32_t severity;
  VX_STATUS status;
  const TagObj* attribute = nullptr;   // with `value`: whose text the log shows
  const ValueCursor* value = nullptr;  // null where the attribute as a whole is concerned
};

// Does nothing below the level asked for. VX_SYSTEM_ERROR.
VX_STATUS record_finding(const Findings& findings, const Finding& finding);
// Frees the list and forgets where its reader stands.
void clear_findings(MsgObj& object);

}  // namespace vx
