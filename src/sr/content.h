// Content of the nodes of a report (PS3.3 section C.17.3): which attributes and items a value type has.
#pragma once

#include <cstdint>
#include <span>

#include "frame/status.h"
#include "model/object.h"
#include "sr/tree.h"
#include "vexalkit.h"

namespace vx {

inline constexpr uint32_t kReferencedClass = 0x00081150;
inline constexpr uint32_t kReferencedInstance = 0x00081155;
inline constexpr uint32_t kReferencedFrames = 0x00081160;
inline constexpr uint32_t kReferencedSops = 0x00081199;
inline constexpr uint32_t kFrameOfReference = 0x30060024;
inline constexpr uint32_t kUnits = 0x004008EA;
inline constexpr uint32_t kRelationship = 0x0040A010;
inline constexpr uint32_t kValueType = 0x0040A040;
inline constexpr uint32_t kConceptName = 0x0040A043;
inline constexpr uint32_t kContinuity = 0x0040A050;
inline constexpr uint32_t kChannels = 0x0040A0B0;
inline constexpr uint32_t kDateTime = 0x0040A120;
inline constexpr uint32_t kDate = 0x0040A121;
inline constexpr uint32_t kTime = 0x0040A122;
inline constexpr uint32_t kPersonName = 0x0040A123;
inline constexpr uint32_t kUid = 0x0040A124;
inline constexpr uint32_t kTemporalType = 0x0040A130;
inline constexpr uint32_t kPositions = 0x0040A132;
inline constexpr uint32_t kOffsets = 0x0040A138;
inline constexpr uint32_t kDateTimes = 0x0040A13A;
inline constexpr uint32_t kText = 0x0040A160;
inline constexpr uint32_t kConceptCode = 0x0040A168;
inline constexpr uint32_t kMeasured = 0x0040A300;
inline constexpr uint32_t kQualifier = 0x0040A301;
inline constexpr uint32_t kNumber = 0x0040A30A;
inline constexpr uint32_t kTemplate = 0x0040A504;
inline constexpr uint32_t kMappingResource = 0x00080105;
inline constexpr uint32_t kTemplateId = 0x0040DB00;
inline constexpr uint32_t kContentPath = 0x0040DB73;
inline constexpr uint32_t kGraphicData = 0x00700022;
inline constexpr uint32_t kGraphicType = 0x00700023;

struct Code {
  const char* value;
  const char* scheme;
  const char* meaning;
};
inline bool is_complete(const Code& code) {
  return code.value != nullptr && code.scheme != nullptr && code.meaning != nullptr;
}

// Texts of enumerations; the number is the place in the table.
using Terms = std::span<const char* const>;
Terms relationship_terms();
Terms spatial_terms();
Terms temporal_terms();
Terms continuity_terms();

// --- Setting. A null text gives VX_NULL_POINTER_PARM. ---
VX_STATUS put_text(MsgObj& object, uint32_t tag, const char* text, bool first = true);
VX_STATUS put_value(MsgObj& object, uint32_t tag, VX_DATA_TYPE type, const void* value, bool first);
VX_STATUS put_term(MsgObj& object, uint32_t tag, Terms terms, int32_t number);  // VX_VALUE_NOT_ALLOWED
// The item becomes the one value of a sequence. An item that was there goes.
VX_STATUS put_item(MsgObj& object, uint32_t tag, MsgObj& item);
// Opens an item, has it filled and puts it into a sequence. A failure frees it.
template <typename Fill>
VX_STATUS put_new_item(MsgObj& object, uint32_t tag, const char* name, Fill fill) {
  MsgObj* item = nullptr;
  VX_STATUS status = open_object(Kind::Item, name, item);
  if (status != kOk) return status;
  status = fill(*item);
  if (status == kOk) status = put_item(object, tag, *item);
  if (status != kOk) free_item(*item, false);
  return status;
}
VX_STATUS put_code(MsgObj& object, uint32_t tag, const char* item_name, const Code& code);
VX_STATUS put_concept(MsgObj& object, const Code& code);
VX_STATUS put_continuity(MsgObj& object, int32_t continuity, const char* template_id);
// An item of a value type; null after a failure.
VX_STATUS open_content(const Code& concept_name, const char* value_type, MsgObj*& out);

// Links a free item under a node. VX_VALUE_NOT_ALLOWED, and what add_child() gives.
VX_STATUS link_child(int32_t parent, int32_t relationship, int32_t child);
VX_STATUS add_reference(int32_t parent, int32_t relationship, int32_t target);

// --- Reading ---
VX_STATUS read_text(int32_t id, uint32_t tag, bool first, int32_t size, char* buffer);
VX_STATUS read_number(int32_t id, uint32_t tag, bool first, VX_DATA_TYPE type, void* value);
// An empty text where there is nothing that can be read.
void read_part(const MsgObj& object, uint32_t tag, int32_t size, char* buffer);
VX_STATUS read_term(int32_t id, uint32_t tag, Terms terms, int32_t& number);  // VX_INCOMPATIBLE_VALUE
VX_STATUS count_of(int32_t id, uint32_t tag, int32_t& count);
// 0 for an attribute that is not there, is empty or null.
int32_t count_or_none(int32_t id, uint32_t tag);
VX_STATUS item_of(int32_t id, uint32_t tag, MsgObj*& item);
VX_STATUS node_type(int32_t id, int32_t& type);
VX_STATUS find_reference(int32_t id, int32_t& target);

}  // namespace vx
