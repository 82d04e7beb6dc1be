// The Message Info File: where the records of a template lie in it, and what they say one by one.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "frame/status.h"

namespace vx {

// What a record holds. 1 to 1000 are enumerated values, by the number of the value.
enum Parameter : uint16_t {
  kLastEnumerated = 1000,
  kLastDefined = 1999,  // 1000 more than the number of the value
  kConditionName = 2000,
  kConditionRule = 2001,  // a condition that stands at the place itself
  kOtherwise = 2002,      // "may": be there where the condition does not hold
  kModuleTitle = 2003,
  kVrLetters = 9500,
  kDefaultValue = 9600,
  kCreatorCode = 9700,
  kAttributeType = 9999,
};
inline constexpr std::string_view kNullDefault = "<null>";

struct TemplateRequest {
  const char* path;
  const char* name;
  uint16_t command;  // 0 for an item
  int32_t number;    // of the service or item, -1 if the configuration does not know the name
};

// What the records of a body become.
class RecordTaker {
 public:
  // Ascending by tag. The data has a NUL behind it.
  virtual VX_STATUS record(uint32_t tag, uint16_t parameter, std::string_view data) = 0;
  virtual VX_STATUS finish() = 0;

 protected:
  ~RecordTaker() = default;
};

// Hands over the records of one template, and finishes. Failures are logged: VX_MSGFILE_ERROR,
// VX_SYSTEM_ERROR, and what the taker answers. A file that is not there is as an empty body for what holds
// nothing but the command.
VX_STATUS read_records(const TemplateRequest& request, RecordTaker& taker);
// The commands of a service that have records, in the order of the file; none of one that the file lacks.
VX_STATUS list_commands(const TemplateRequest& request, std::vector<uint16_t>& commands);
// C_STORE_RSP, N_DELETE_RQ, N_DELETE_RSP, C_ECHO_RQ and C_ECHO_RSP hold nothing but the command.
bool has_no_template(uint16_t command);

// Data of records, with a line in the log where it says nothing. VX_MSGFILE_ERROR.
VX_STATUS parse_vr(std::string_view data, int32_t& vr);
VX_STATUS parse_type(std::string_view data, int32_t& type);

}  // namespace vx
