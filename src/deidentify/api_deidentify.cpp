// Exported functions of de-identification.
#include <cstring>
#include <string>

#include "deidentify/engine.h"
#include "deidentify/pseudonyms.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "frame/text.h"
#include "model/held.h"
#include "vexalkit.h"

using namespace vx;

namespace {

constexpr uint32_t kShortestSecret = 16;
constexpr std::size_t kUidSize = 65;

bool is_usable(const VX_DEIDENTIFICATION& how) {
  constexpr uint32_t kBothDates = VX_RETAIN_FULL_DATES | VX_RETAIN_MODIFIED_DATES;
  return how.SecretSize >= kShortestSecret && (how.Options & kBothDates) != kBothDates;
}

}  // namespace

VX_STATUS VX_Deidentify_Message(int32_t MsgID, const VX_DEIDENTIFICATION* How) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(How);
  VX_REQUIRE_POINTER(How->Secret);
  if (!is_usable(*How)) return VX_VALUE_OUT_OF_RANGE;
  MsgObj* object = find_object(MsgID);
  if (object == nullptr || (object->ObjectKind != Kind::Message && object->ObjectKind != Kind::File))
    return VX_INVALID_MESSAGE_ID;
  if (is_growth_held(*object)) return VX_STATE_VIOLATION;
  return no_throw([&] { return deidentify(*object, *How); });
}

VX_STATUS VX_Deidentified_UID(const VX_DEIDENTIFICATION* How, const char* Uid, char* NewUid) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(How);
  VX_REQUIRE_POINTER(How->Secret);
  VX_REQUIRE_POINTER(Uid);
  VX_REQUIRE_POINTER(NewUid);
  if (!is_usable(*How) || std::strlen(Uid) >= kUidSize) return VX_VALUE_OUT_OF_RANGE;
  return no_throw([&] {
    const bool keep = (How->Options & VX_RETAIN_UIDS) != 0;
    const std::string uid =
        keep ? std::string(Uid)
             : Pseudonyms({static_cast<const char*>(How->Secret), How->SecretSize}).uid(Uid);
    copy_text(NewUid, kUidSize, uid);
    return kOk;
  });
}
