// Exported functions of the validation.
#include "frame/no_throw.h"
#include "frame/state.h"
#include "validate/engine.h"
#include "vexalkit.h"

using namespace vx;

namespace {

// Runs work(object) on the object of an ID, behind the checks that all calls share.
template <typename Work>
VX_STATUS with_object(int32_t id, ValErrObj** finding, Work work) {
  if (finding != nullptr) *finding = nullptr;
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(finding);
  MsgObj* object = find_object(id);
  return object != nullptr ? no_throw([&] { return work(*object); }) : VX_INVALID_MESSAGE_ID;
}

}  // namespace

VX_STATUS VX_Validate_Message(int32_t MsgID, ValErrObj** ErrInfo, ValidationLevel Level) {
  return with_object(MsgID, ErrInfo, [=](MsgObj& object) { return validate_whole(object, Level, *ErrInfo); });
}

VX_STATUS VX_Validate_File(int32_t FileID, ValErrObj** ErrInfo, ValidationLevel Level) {
  return with_object(FileID, ErrInfo,
                     [=](MsgObj& object) { return validate_whole(object, Level, *ErrInfo); });
}

VX_STATUS VX_Validate_Attribute(int32_t MsgID, uint32_t Tag, ValErrObj** ErrInfo, ValidationLevel Level) {
  return with_object(MsgID, ErrInfo,
                     [=](MsgObj& object) { return validate_one(object, Tag, Level, *ErrInfo); });
}

VX_STATUS VX_Get_Next_Validate_Error(int32_t MsgID, ValErrObj** ErrInfo) {
  return with_object(MsgID, ErrInfo, [=](MsgObj& object) { return next_finding(object, *ErrInfo); });
}
