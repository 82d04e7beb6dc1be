// Exported functions that read the nodes of a report.
#include <cstring>
#include <initializer_list>

#include "frame/pool.h"
#include "frame/state.h"
#include "model/attributes.h"
#include "sr/content.h"
#include "vexalkit.h"

using namespace vx;

namespace {

struct TextBuffer {
  char* text;
  int32_t size;
};

// Where a code goes: value, scheme, meaning.
struct CodeBuffers {
  TextBuffer part[3];

  bool complete() const {
    for (const TextBuffer& buffer : part) {
      if (buffer.text == nullptr) return false;
    }
    return true;
  }
  void clear() const {
    for (const TextBuffer& buffer : part) {
      if (buffer.size > 0) buffer.text[0] = '\0';
    }
  }
  void read(const MsgObj& item) const {
    constexpr uint32_t kTags[] = {0x00080100, 0x00080102, 0x00080104};
    for (std::size_t i = 0; i < 3; ++i) read_part(item, kTags[i], part[i].size, part[i].text);
  }
};

VX_STATUS read_code(int32_t id, uint32_t tag, const CodeBuffers& code) {
  VX_REQUIRE_LIBRARY();
  if (!code.complete()) return VX_NULL_POINTER_PARM;
  code.clear();
  MsgObj* item = nullptr;
  const VX_STATUS status = item_of(id, tag, item);
  if (status == kOk) code.read(*item);
  return status;
}

struct ChildOut {
  int32_t* id;
  int32_t* relationship;
  int32_t* type;
  int32_t* last;
};

VX_STATUS walk(int32_t id, const ChildOut& out,
               VX_STATUS (*step)(int32_t id, int32_t* child, int32_t* last)) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(out.relationship);
  VX_REQUIRE_POINTER(out.type);
  VX_STATUS status = step(id, out.id, out.last);
  if (status != kOk) return status;
  *out.relationship = *out.type = -1;
  if (*out.id == 0) return kOk;
  status = read_term(*out.id, kRelationship, relationship_terms(), *out.relationship);
  const VX_STATUS typed = node_type(*out.id, *out.type);
  return status == kOk ? typed : status;
}

VX_STATUS measured_item(int32_t id, MsgObj*& item) {
  const VX_STATUS status = item_of(id, kMeasured, item);
  return status == VX_INVALID_TAG || status == VX_NULL_VALUE ? VX_EMPTY_VALUE : status;
}

VX_STATUS read_point(int32_t id, bool first, std::initializer_list<float*> point) {
  VX_REQUIRE_LIBRARY();
  VX_STATUS status = kOk;
  for (float* value : point) {
    VX_REQUIRE_POINTER(value);
    if (status == kOk) status = read_number(id, kGraphicData, first, VX_FLOAT_TYPE, value);
    first = false;
  }
  return status;
}

// The first point, the number of points and the type of the region.
VX_STATUS read_region(int32_t id, std::initializer_list<float*> point, int32_t& count, int32_t& type) {
  VX_STATUS status = count_of(id, kGraphicData, count);
  count /= static_cast<int32_t>(point.size());
  if (status == kOk) status = read_point(id, true, point);
  return status == kOk ? read_term(id, kGraphicType, spatial_terms(), type) : status;
}

// The block belongs to the attribute.
VX_STATUS read_frame_of_reference(int32_t id, char*& uid) {
  constexpr int32_t kBlock = 64;
  uid = nullptr;
  MsgObj* object = nullptr;
  TagObj* attribute = nullptr;
  VX_STATUS status = find_attribute(id, kFrameOfReference, object, attribute);
  if (status == VX_INVALID_TAG) return kOk;
  if (status != kOk) return status;
  if (attribute->AuxBuffer == nullptr) attribute->AuxBuffer = allocate(kBlock);
  if (attribute->AuxBuffer == nullptr) return VX_SYSTEM_ERROR;
  auto* block = static_cast<char*>(attribute->AuxBuffer);
  status = read_text(id, kFrameOfReference, true, kBlock, block);
  if (status == VX_EMPTY_VALUE || status == VX_NULL_VALUE) return kOk;
  if (status == kOk) uid = block;
  return status;
}

// A null `count` is for references without numbers.
VX_STATUS read_reference(int32_t id, TextBuffer sop_class, TextBuffer instance, uint32_t numbers,
                         int32_t* count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(sop_class.text);
  VX_REQUIRE_POINTER(instance.text);
  if (sop_class.size > 0) sop_class.text[0] = '\0';
  if (instance.size > 0) instance.text[0] = '\0';
  if (count != nullptr) *count = 0;
  MsgObj* item = nullptr;
  const VX_STATUS status = item_of(id, kReferencedSops, item);
  if (status != kOk) return status;
  read_part(*item, kReferencedClass, sop_class.size, sop_class.text);
  read_part(*item, kReferencedInstance, instance.size, instance.text);
  if (count != nullptr) *count = count_or_none(item->ID, numbers);
  return kOk;
}

template <typename Number>
VX_STATUS read_numbers(int32_t id, uint32_t tag, VX_DATA_TYPE type, Number* numbers, int32_t capacity) {
  VX_REQUIRE_LIBRARY();
  MsgObj* item = nullptr;
  int32_t count = 0;
  VX_STATUS status = item_of(id, kReferencedSops, item);
  if (status == kOk) status = count_of(item->ID, tag, count);
  if (status == kOk && capacity < count) return VX_BUFFER_TOO_SMALL;
  for (int32_t i = 0; i < count && status == kOk; ++i)
    status = read_number(item->ID, tag, i == 0, type, &numbers[i]);
  return status;
}

}  // namespace

VX_STATUS VX_SRH_Get_NodeType(int32_t NodeID, int32_t* NodeType) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(NodeType);
  return node_type(NodeID, *NodeType);
}

VX_STATUS VX_SRH_Get_First_Child(int32_t NodeID, int32_t* ChildID, int32_t* Relationship, int32_t* NodeType,
                                 int32_t* IsLast) {
  return walk(NodeID, {ChildID, Relationship, NodeType, IsLast}, VX_SR_Get_First_Child);
}

VX_STATUS VX_SRH_Get_Next_Child(int32_t NodeID, int32_t* ChildID, int32_t* Relationship, int32_t* NodeType,
                                int32_t* IsLast) {
  return walk(NodeID, {ChildID, Relationship, NodeType, IsLast}, VX_SR_Get_Next_Child);
}

VX_STATUS VX_SRH_Get_Concept_Name(int32_t NodeID, char* Code, int32_t CodeSize, char* Scheme,
                                  int32_t SchemeSize, char* Meaning, int32_t MeaningSize) {
  return read_code(NodeID, kConceptName, {{{Code, CodeSize}, {Scheme, SchemeSize}, {Meaning, MeaningSize}}});
}

VX_STATUS VX_SRH_Get_TEXT_Data(int32_t NodeID, char* Value, int32_t ValueSize) {
  VX_REQUIRE_LIBRARY();
  return read_text(NodeID, kText, true, ValueSize, Value);
}

VX_STATUS VX_SRH_Get_DATETIME_Data(int32_t NodeID, char* Value, int32_t ValueSize) {
  VX_REQUIRE_LIBRARY();
  return read_text(NodeID, kDateTime, true, ValueSize, Value);
}

VX_STATUS VX_SRH_Get_DATE_Data(int32_t NodeID, char* Value, int32_t ValueSize) {
  VX_REQUIRE_LIBRARY();
  return read_text(NodeID, kDate, true, ValueSize, Value);
}

VX_STATUS VX_SRH_Get_TIME_Data(int32_t NodeID, char* Value, int32_t ValueSize) {
  VX_REQUIRE_LIBRARY();
  return read_text(NodeID, kTime, true, ValueSize, Value);
}

VX_STATUS VX_SRH_Get_UIDREF_Data(int32_t NodeID, char* Value, int32_t ValueSize) {
  VX_REQUIRE_LIBRARY();
  return read_text(NodeID, kUid, true, ValueSize, Value);
}

VX_STATUS VX_SRH_Get_PNAME_Data(int32_t NodeID, char* Value, int32_t ValueSize) {
  VX_REQUIRE_LIBRARY();
  return read_text(NodeID, kPersonName, true, ValueSize, Value);
}

VX_STATUS VX_SRH_Get_CODE_Data(int32_t NodeID, char* CodeValue, int32_t CodeValueSize, char* CodingScheme,
                               int32_t CodingSchemeSize, char* CodeMeaning, int32_t CodeMeaningSize) {
  return read_code(
      NodeID, kConceptCode,
      {{{CodeValue, CodeValueSize}, {CodingScheme, CodingSchemeSize}, {CodeMeaning, CodeMeaningSize}}});
}

VX_STATUS VX_SRH_Get_NUM_Data(int32_t NodeID, char* Value, int32_t ValueSize, int32_t* Count, char* UnitCode,
                              int32_t UnitCodeSize, char* UnitScheme, int32_t UnitSchemeSize,
                              char* UnitMeaning, int32_t UnitMeaningSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Value);
  VX_REQUIRE_POINTER(Count);
  const CodeBuffers unit{
      {{UnitCode, UnitCodeSize}, {UnitScheme, UnitSchemeSize}, {UnitMeaning, UnitMeaningSize}}};
  if (!unit.complete()) return VX_NULL_POINTER_PARM;
  unit.clear();
  MsgObj* measured = nullptr;
  const VX_STATUS status = measured_item(NodeID, measured);
  if (status != kOk) return status;
  *Count = count_or_none(measured->ID, kNumber);
  read_part(*measured, kNumber, ValueSize, Value);
  MsgObj* item = nullptr;
  if (item_of(measured->ID, kUnits, item) == kOk) unit.read(*item);
  return kOk;
}

VX_STATUS VX_SRH_Get_NUM_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize) {
  VX_REQUIRE_LIBRARY();
  MsgObj* measured = nullptr;
  const VX_STATUS status = measured_item(NodeID, measured);
  return status == kOk ? read_text(measured->ID, kNumber, false, ValueSize, Value) : status;
}

VX_STATUS VX_SRH_Get_NUM_Qualifier(int32_t NodeID, char* Code, int32_t CodeSize, char* Scheme,
                                   int32_t SchemeSize, char* Meaning, int32_t MeaningSize) {
  return read_code(NodeID, kQualifier, {{{Code, CodeSize}, {Scheme, SchemeSize}, {Meaning, MeaningSize}}});
}

VX_STATUS VX_SRH_Get_SCOORD_First_Data(int32_t NodeID, float* X, float* Y, int32_t* Count,
                                       int32_t* SpatialType) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  VX_REQUIRE_POINTER(SpatialType);
  return read_region(NodeID, {X, Y}, *Count, *SpatialType);
}

VX_STATUS VX_SRH_Get_SCOORD_Next_Data(int32_t NodeID, float* X, float* Y) {
  return read_point(NodeID, false, {X, Y});
}

VX_STATUS VX_SRH_Get_SCOORD3D_First_Data(int32_t NodeID, char** FrameOfReferenceUID, SRH_XYZ* Point,
                                         int32_t* Count, int32_t* SpatialType) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(FrameOfReferenceUID);
  VX_REQUIRE_POINTER(Point);
  VX_REQUIRE_POINTER(Count);
  VX_REQUIRE_POINTER(SpatialType);
  const VX_STATUS status = read_frame_of_reference(NodeID, *FrameOfReferenceUID);
  if (status != kOk) return status;
  return read_region(NodeID, {&Point->X, &Point->Y, &Point->Z}, *Count, *SpatialType);
}

VX_STATUS VX_SRH_Get_SCOORD3D_Next_Data(int32_t NodeID, SRH_XYZ* Point) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Point);
  return read_point(NodeID, false, {&Point->X, &Point->Y, &Point->Z});
}

VX_STATUS VX_SRH_Get_TCOORD_R_First_Data(int32_t NodeID, uint32_t* Position, int32_t* Count,
                                         int32_t* TemporalType) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Position);
  VX_REQUIRE_POINTER(Count);
  VX_REQUIRE_POINTER(TemporalType);
  VX_STATUS status = count_of(NodeID, kPositions, *Count);
  if (status == kOk) status = read_number(NodeID, kPositions, true, VX_UINT_TYPE, Position);
  return status == kOk ? read_term(NodeID, kTemporalType, temporal_terms(), *TemporalType) : status;
}

VX_STATUS VX_SRH_Get_TCOORD_R_Next_Data(int32_t NodeID, uint32_t* Position) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Position);
  return read_number(NodeID, kPositions, false, VX_UINT_TYPE, Position);
}

VX_STATUS VX_SRH_Get_TCOORD_O_First_Data(int32_t NodeID, char* Value, int32_t ValueSize, int32_t* Count,
                                         int32_t* TemporalType) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  VX_REQUIRE_POINTER(TemporalType);
  VX_STATUS status = count_of(NodeID, kOffsets, *Count);
  if (status == kOk) status = read_text(NodeID, kOffsets, true, ValueSize, Value);
  return status == kOk ? read_term(NodeID, kTemporalType, temporal_terms(), *TemporalType) : status;
}

VX_STATUS VX_SRH_Get_TCOORD_O_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize) {
  VX_REQUIRE_LIBRARY();
  return read_text(NodeID, kOffsets, false, ValueSize, Value);
}

VX_STATUS VX_SRH_Get_TCOORD_D_First_Data(int32_t NodeID, char* Value, int32_t ValueSize, int32_t* Count,
                                         int32_t* TemporalType) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  VX_REQUIRE_POINTER(TemporalType);
  VX_STATUS status = count_of(NodeID, kDateTimes, *Count);
  if (status == kOk) status = read_text(NodeID, kDateTimes, true, ValueSize, Value);
  return status == kOk ? read_term(NodeID, kTemporalType, temporal_terms(), *TemporalType) : status;
}

VX_STATUS VX_SRH_Get_TCOORD_D_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize) {
  VX_REQUIRE_LIBRARY();
  return read_text(NodeID, kDateTimes, false, ValueSize, Value);
}

VX_STATUS VX_SRH_Get_COMPOSITE_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                    char* SopInstanceUID, int32_t SopInstanceUIDSize) {
  return read_reference(NodeID, {SopClassUID, SopClassUIDSize}, {SopInstanceUID, SopInstanceUIDSize}, 0,
                        nullptr);
}

VX_STATUS VX_SRH_Get_IMAGE_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                char* SopInstanceUID, int32_t SopInstanceUIDSize, int32_t* Count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  return read_reference(NodeID, {SopClassUID, SopClassUIDSize}, {SopInstanceUID, SopInstanceUIDSize},
                        kReferencedFrames, Count);
}

VX_STATUS VX_SRH_Get_IMAGE_Frames(int32_t NodeID, int32_t* Frames, int32_t Capacity) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Frames);
  return read_numbers(NodeID, kReferencedFrames, VX_INT_TYPE, Frames, Capacity);
}

VX_STATUS VX_SRH_Get_WAVEFORM_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                   char* SopInstanceUID, int32_t SopInstanceUIDSize, int32_t* Count) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Count);
  return read_reference(NodeID, {SopClassUID, SopClassUIDSize}, {SopInstanceUID, SopInstanceUIDSize},
                        kChannels, Count);
}

VX_STATUS VX_SRH_Get_WAVEFORM_Channels(int32_t NodeID, uint16_t* Channels, int32_t Capacity) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Channels);
  return read_numbers(NodeID, kChannels, VX_USHORTINT_TYPE, Channels, Capacity);
}

VX_STATUS VX_SRH_Get_CONTAINER_Data(int32_t NodeID, int32_t* Continuity, char* TemplateID,
                                    int32_t TemplateIDSize) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Continuity);
  VX_REQUIRE_POINTER(TemplateID);
  if (TemplateIDSize > 0) TemplateID[0] = '\0';
  const VX_STATUS status = read_term(NodeID, kContinuity, continuity_terms(), *Continuity);
  if (status != kOk) return status;
  MsgObj* item = nullptr;
  if (item_of(NodeID, kTemplate, item) == kOk) read_part(*item, kTemplateId, TemplateIDSize, TemplateID);
  return kOk;
}

VX_STATUS VX_SRH_Get_Reference(int32_t NodeID, int32_t* TargetID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(TargetID);
  return find_reference(NodeID, *TargetID);
}
