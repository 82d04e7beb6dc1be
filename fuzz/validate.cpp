// Validation of whatever can be decoded. The first bytes choose service, command and transfer syntax; the
// templates are the real ones. A higher level finds what a lower one finds, and each finding has an object.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "real_library.h"

namespace {

using fuzz::require;
using fuzz::Source;

void start_library() {
  static const bool started = [] {
    fuzz::start_real_library();
    VX_Set_Log_Destination(VX_CFG_T5_MESSAGE, VX_LOG_TO_FILE);  // the lines about findings are made as well
    return true;
  }();
  require(started);
}

// The findings of a validation; -1 if it could not be done.
int walk(int32_t id, VX_STATUS status, ValErrObj* finding) {
  if (status != VX_MESSAGE_VALIDATES && status != VX_DOES_NOT_VALIDATE) return -1;
  require((status == VX_DOES_NOT_VALIDATE) == (finding != nullptr));
  int count = 0;
  while (finding != nullptr) {
    ++count;
    require(VX_Get_Attribute_Info(finding->MsgItemID, finding->Tag, nullptr, nullptr) !=
            VX_INVALID_MESSAGE_ID);
    require(finding->ValueNumber >= 0 && VX_Error_Message(finding->Status) != nullptr);
    const VX_STATUS next = VX_Get_Next_Validate_Error(id, &finding);
    require(next == (finding != nullptr ? VX_NORMAL_COMPLETION : VX_END_OF_LIST));
  }
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  constexpr uint16_t kCommands[] = {C_STORE_RQ, C_FIND_RQ,   C_FIND_RSP,        C_MOVE_RQ,
                                    C_GET_RQ,   N_CREATE_RQ, N_EVENT_REPORT_RQ, N_GET_RSP,
                                    N_SET_RQ,   N_ACTION_RQ, C_STORE_RSP};
  constexpr VX_TRANSFER_SYNTAX kSyntaxes[] = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN,
                                              EXPLICIT_BIG_ENDIAN};
  start_library();
  if (size < 3) return 0;
  const char* service = Services[data[0] % std::size(Services)];
  const uint16_t command = kCommands[data[1] % std::size(kCommands)];
  const VX_TRANSFER_SYNTAX syntax = kSyntaxes[data[2] % std::size(kSyntaxes)];
  Source source{{reinterpret_cast<const char*>(data) + 3, (size - 3) & ~std::size_t{1}}};
  int32_t id = -1;
  uint32_t error_tag = 0;
  require(VX_Open_Empty_Message(&id) == VX_NORMAL_COMPLETION);
  VX_Stream_To_Message(id, 0, 0xFFFFFFFFU, syntax, &error_tag, &source, &fuzz::give);
  VX_Set_Service_Command(id, service, command);
  ValErrObj* finding = nullptr;
  int before = 0;
  for (ValidationLevel level = VX_Errors_Only; level <= VX_All_Findings; ++level) {
    const VX_STATUS status = VX_Validate_Message(id, &finding, level);
    const int count = walk(id, status, finding);
    require(count < 0 || count >= before);
    before = std::max(before, count);
  }
  uint32_t tag = 0;
  VX_STATUS status = VX_Get_First_Attribute(id, &tag, nullptr, nullptr);
  for (int i = 0; i < 20 && status == VX_NORMAL_COMPLETION; ++i) {
    const VX_STATUS validated = VX_Validate_Attribute(id, tag, &finding, VX_All_Findings);
    walk(id, validated, finding);
    status = VX_Get_Next_Attribute(id, &tag, nullptr, nullptr);
  }
  VX_Free_Message(&id);
  return 0;
}
