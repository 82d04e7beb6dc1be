// Exported functions that make the nodes of a report and set their content.
#include <initializer_list>

#include "config/services.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "sr/content.h"
#include "vexalkit.h"

using namespace vx;

namespace {

constexpr uint16_t kStoreRequest = 1;
constexpr Code kNoConcept{};

// Hands out the item that `make` opened, also where its value could not be set.
template <typename Make>
VX_STATUS create(int32_t* id, Make make) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(id);
  *id = 0;
  MsgObj* node = nullptr;
  const VX_STATUS status = no_throw([&] { return make(node); });
  if (node != nullptr) *id = node->ID;
  return status;
}

VX_STATUS check_parent(int32_t parent, int32_t relationship) {
  if (relationship < SRH_CONTAINS || relationship > SRH_SELECTED_FROM) return VX_VALUE_NOT_ALLOWED;
  const Guard lock(tree_lock());
  return find_node(parent) != nullptr ? kOk : VX_INVALID_SR_ID;
}

template <typename Make>
VX_STATUS add(int32_t parent, int32_t relationship, int32_t* id, Make make) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(id);
  *id = 0;
  VX_STATUS status = check_parent(parent, relationship);
  if (status == kOk) status = create(id, make);
  if (status != kOk) return status;
  return no_throw([&] { return link_child(parent, relationship, *id); });
}

template <typename Set>
VX_STATUS on_node(int32_t id, Set set) {
  VX_REQUIRE_LIBRARY();
  MsgObj* node = find_object(id);
  return node != nullptr ? no_throw([&] { return set(*node); }) : VX_INVALID_MESSAGE_ID;
}

VX_STATUS make_simple(MsgObj*& node, const Code& name, const char* type, uint32_t tag, const char* value) {
  const VX_STATUS status = open_content(name, type, node);
  return status == kOk ? put_text(*node, tag, value) : status;
}

VX_STATUS make_code(MsgObj*& node, const Code& name, const Code& code) {
  if (!is_complete(code)) return VX_NULL_POINTER_PARM;
  const VX_STATUS status = open_content(name, "CODE", node);
  return status == kOk ? put_code(*node, kConceptCode, "CONCEPT_CODE_SEQUENCE", code) : status;
}

VX_STATUS make_num(MsgObj*& node, const Code& name, const char* value, const Code& unit) {
  if (value != nullptr && !is_complete(unit)) return VX_NULL_POINTER_PARM;
  const VX_STATUS status = open_content(name, "NUM", node);
  if (status != kOk) return status;
  return put_new_item(*node, kMeasured, "MEASURED_VALUE", [&](MsgObj& item) {
    if (value == nullptr) return kOk;
    const VX_STATUS number = put_text(item, kNumber, value);
    return number == kOk ? put_code(item, kUnits, "MEASURING_UNITS", unit) : number;
  });
}

VX_STATUS put_floats(MsgObj& node, std::initializer_list<float> point, bool first) {
  VX_STATUS status = kOk;
  for (const float& value : point) {
    if (status == kOk)
      status = put_value(node, kGraphicData, VX_FLOAT_TYPE, &value, first && &value == point.begin());
  }
  return status;
}

VX_STATUS append_floats(MsgObj& node, int32_t type, std::initializer_list<float> point) {
  int32_t found = -1;
  const VX_STATUS status = node_type(node.ID, found);
  if (status == kOk && found != type) return VX_INVALID_DATA_TYPE;
  return status == kOk ? put_floats(node, point, false) : status;
}

VX_STATUS make_scoord(MsgObj*& node, float x, float y, int32_t type) {
  VX_STATUS status = open_content(kNoConcept, "SCOORD", node);
  if (status == kOk) status = put_term(*node, kGraphicType, spatial_terms(), type);
  return status == kOk ? put_floats(*node, {x, y}, true) : status;
}

VX_STATUS make_scoord3d(MsgObj*& node, const char* frame_of_reference, const SRH_XYZ& point, int32_t type) {
  VX_STATUS status = open_content(kNoConcept, "SCOORD3D", node);
  if (status == kOk && frame_of_reference != nullptr)
    status = put_text(*node, kFrameOfReference, frame_of_reference);
  if (status == kOk) status = put_term(*node, kGraphicType, spatial_terms(), type);
  return status == kOk ? put_floats(*node, {point.X, point.Y, point.Z}, true) : status;
}

VX_STATUS make_tcoord(MsgObj*& node, uint32_t tag, VX_DATA_TYPE data_type, const void* value, int32_t type) {
  if (value == nullptr) return VX_NULL_POINTER_PARM;
  VX_STATUS status = open_content(kNoConcept, "TCOORD", node);
  if (status == kOk) status = put_term(*node, kTemporalType, temporal_terms(), type);
  return status == kOk ? put_value(*node, tag, data_type, value, true) : status;
}

VX_STATUS append_value(MsgObj& node, int32_t type, uint32_t tag, VX_DATA_TYPE data_type, const void* value) {
  if (value == nullptr) return VX_NULL_POINTER_PARM;
  int32_t found = -1;
  const VX_STATUS status = node_type(node.ID, found);
  if (status == kOk && found != type) return VX_INVALID_DATA_TYPE;
  return status == kOk ? put_value(node, tag, data_type, value, false) : status;
}

VX_STATUS make_reference(MsgObj*& node, const char* type, const char* item_name, const char* sop_class,
                         const char* instance, bool required) {
  const bool given = sop_class != nullptr && instance != nullptr;
  if (required && !given) return VX_NULL_POINTER_PARM;
  const VX_STATUS status = open_content(kNoConcept, type, node);
  if (status != kOk || !given) return status;
  return put_new_item(*node, kReferencedSops, item_name, [&](MsgObj& item) {
    const VX_STATUS class_set = put_text(item, kReferencedClass, sop_class);
    return class_set == kOk ? put_text(item, kReferencedInstance, instance) : class_set;
  });
}

VX_STATUS make_container(MsgObj*& node, int32_t continuity, const char* template_id) {
  const VX_STATUS status = open_content(kNoConcept, "CONTAINER", node);
  return status == kOk ? put_continuity(*node, continuity, template_id) : status;
}

// Values of the item that a node refers with.
template <typename Number>
VX_STATUS put_numbers(MsgObj& node, uint32_t tag, VX_DATA_TYPE type, const Number* numbers, int32_t count) {
  if (numbers == nullptr) return VX_NULL_POINTER_PARM;
  if (count < 1) return VX_VALUE_NOT_ALLOWED;
  MsgObj* item = nullptr;
  VX_STATUS status = item_of(node.ID, kReferencedSops, item);
  for (int32_t i = 0; i < count && status == kOk; ++i)
    status = put_value(*item, tag, type, &numbers[i], i == 0);
  return status;
}

}  // namespace

VX_STATUS VX_SRH_Create_SR(const char* ServiceName, const char* TemplateID, int32_t Continuity,
                           const char* ConceptCode, const char* ConceptScheme, const char* ConceptMeaning,
                           int32_t* RootID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(RootID);
  *RootID = 0;
  VX_REQUIRE_POINTER(ServiceName);
  return no_throw([&] {
    MsgObj* message = nullptr;
    VX_STATUS status = open_object(Kind::Message, kNoName, message);
    if (status != kOk) return status;
    set_service_command(*message, ServiceName, kStoreRequest);
    status = put_text(*message, kValueType, "CONTAINER");
    if (status == kOk) status = put_continuity(*message, Continuity, TemplateID);
    if (status == kOk) status = put_concept(*message, {ConceptCode, ConceptScheme, ConceptMeaning});
    if (status == kOk) {
      const Guard lock(tree_lock());
      status = add_root(*message);
    }
    if (status == kOk) {
      *RootID = message->ID;
    } else {
      free_object(*message, "VX_SRH_Create_SR", VX_INVALID_MESSAGE_ID);
    }
    return status;
  });
}

VX_STATUS VX_SRH_Create_TEXT_Node(const char* ConceptCode, const char* ConceptScheme,
                                  const char* ConceptMeaning, const char* Text, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "TEXT", kText, Text);
  });
}

VX_STATUS VX_SRH_Add_TEXT_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                const char* ConceptScheme, const char* ConceptMeaning, const char* Text,
                                int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "TEXT", kText, Text);
  });
}

VX_STATUS VX_SRH_Create_CODE_Node(const char* ConceptCode, const char* ConceptScheme,
                                  const char* ConceptMeaning, const char* CodeValue, const char* CodingScheme,
                                  const char* CodeMeaning, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_code(node, {ConceptCode, ConceptScheme, ConceptMeaning},
                     {CodeValue, CodingScheme, CodeMeaning});
  });
}

VX_STATUS VX_SRH_Add_CODE_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                const char* ConceptScheme, const char* ConceptMeaning, const char* CodeValue,
                                const char* CodingScheme, const char* CodeMeaning, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_code(node, {ConceptCode, ConceptScheme, ConceptMeaning},
                     {CodeValue, CodingScheme, CodeMeaning});
  });
}

VX_STATUS VX_SRH_Create_NUM_Node(const char* ConceptCode, const char* ConceptScheme,
                                 const char* ConceptMeaning, const char* Value, const char* UnitCode,
                                 const char* UnitScheme, const char* UnitMeaning, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_num(node, {ConceptCode, ConceptScheme, ConceptMeaning}, Value,
                    {UnitCode, UnitScheme, UnitMeaning});
  });
}

VX_STATUS VX_SRH_Add_NUM_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                               const char* ConceptScheme, const char* ConceptMeaning, const char* Value,
                               const char* UnitCode, const char* UnitScheme, const char* UnitMeaning,
                               int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_num(node, {ConceptCode, ConceptScheme, ConceptMeaning}, Value,
                    {UnitCode, UnitScheme, UnitMeaning});
  });
}

VX_STATUS VX_SRH_Create_DATETIME_Node(const char* ConceptCode, const char* ConceptScheme,
                                      const char* ConceptMeaning, const char* Value, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "DATETIME", kDateTime, Value);
  });
}

VX_STATUS VX_SRH_Add_DATETIME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                    const char* ConceptScheme, const char* ConceptMeaning, const char* Value,
                                    int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "DATETIME", kDateTime, Value);
  });
}

VX_STATUS VX_SRH_Create_DATE_Node(const char* ConceptCode, const char* ConceptScheme,
                                  const char* ConceptMeaning, const char* Value, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "DATE", kDate, Value);
  });
}

VX_STATUS VX_SRH_Add_DATE_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                const char* ConceptScheme, const char* ConceptMeaning, const char* Value,
                                int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "DATE", kDate, Value);
  });
}

VX_STATUS VX_SRH_Create_TIME_Node(const char* ConceptCode, const char* ConceptScheme,
                                  const char* ConceptMeaning, const char* Value, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "TIME", kTime, Value);
  });
}

VX_STATUS VX_SRH_Add_TIME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                const char* ConceptScheme, const char* ConceptMeaning, const char* Value,
                                int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "TIME", kTime, Value);
  });
}

VX_STATUS VX_SRH_Create_UIDREF_Node(const char* ConceptCode, const char* ConceptScheme,
                                    const char* ConceptMeaning, const char* Value, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "UIDREF", kUid, Value);
  });
}

VX_STATUS VX_SRH_Add_UIDREF_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                  const char* ConceptScheme, const char* ConceptMeaning, const char* Value,
                                  int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "UIDREF", kUid, Value);
  });
}

VX_STATUS VX_SRH_Create_PNAME_Node(const char* ConceptCode, const char* ConceptScheme,
                                   const char* ConceptMeaning, const char* Value, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "PNAME", kPersonName, Value);
  });
}

VX_STATUS VX_SRH_Add_PNAME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                 const char* ConceptScheme, const char* ConceptMeaning, const char* Value,
                                 int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_simple(node, {ConceptCode, ConceptScheme, ConceptMeaning}, "PNAME", kPersonName, Value);
  });
}

VX_STATUS VX_SRH_Create_SCOORD_Node(float X, float Y, int32_t SpatialType, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) { return make_scoord(node, X, Y, SpatialType); });
}

VX_STATUS VX_SRH_Add_SCOORD_Child(int32_t ParentID, int32_t Relationship, float X, float Y,
                                  int32_t SpatialType, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID,
             [&](MsgObj*& node) { return make_scoord(node, X, Y, SpatialType); });
}

VX_STATUS VX_SRH_Create_SCOORD3D_Node(const char* FrameOfReferenceUID, SRH_XYZ Point, int32_t SpatialType,
                                      int32_t* NodeID) {
  return create(NodeID,
                [&](MsgObj*& node) { return make_scoord3d(node, FrameOfReferenceUID, Point, SpatialType); });
}

VX_STATUS VX_SRH_Add_SCOORD3D_Child(int32_t ParentID, int32_t Relationship, const char* FrameOfReferenceUID,
                                    SRH_XYZ Point, int32_t SpatialType, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID,
             [&](MsgObj*& node) { return make_scoord3d(node, FrameOfReferenceUID, Point, SpatialType); });
}

VX_STATUS VX_SRH_Create_TCOORD_R_Node(uint32_t Position, int32_t TemporalType, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_tcoord(node, kPositions, VX_UINT_TYPE, &Position, TemporalType);
  });
}

VX_STATUS VX_SRH_Add_TCOORD_R_Child(int32_t ParentID, int32_t Relationship, uint32_t Position,
                                    int32_t TemporalType, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_tcoord(node, kPositions, VX_UINT_TYPE, &Position, TemporalType);
  });
}

VX_STATUS VX_SRH_Create_TCOORD_O_Node(const char* Offset, int32_t TemporalType, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_tcoord(node, kOffsets, VX_STRING_TYPE, Offset, TemporalType);
  });
}

VX_STATUS VX_SRH_Add_TCOORD_O_Child(int32_t ParentID, int32_t Relationship, const char* Offset,
                                    int32_t TemporalType, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_tcoord(node, kOffsets, VX_STRING_TYPE, Offset, TemporalType);
  });
}

VX_STATUS VX_SRH_Create_TCOORD_D_Node(const char* DateTime, int32_t TemporalType, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_tcoord(node, kDateTimes, VX_STRING_TYPE, DateTime, TemporalType);
  });
}

VX_STATUS VX_SRH_Add_TCOORD_D_Child(int32_t ParentID, int32_t Relationship, const char* DateTime,
                                    int32_t TemporalType, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_tcoord(node, kDateTimes, VX_STRING_TYPE, DateTime, TemporalType);
  });
}

VX_STATUS VX_SRH_Create_COMPOSITE_Node(const char* SopClassUID, const char* SopInstanceUID, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_reference(node, "COMPOSITE", "REF_SOP", SopClassUID, SopInstanceUID, true);
  });
}

VX_STATUS VX_SRH_Add_COMPOSITE_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                     const char* SopInstanceUID, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_reference(node, "COMPOSITE", "REF_SOP", SopClassUID, SopInstanceUID, true);
  });
}

VX_STATUS VX_SRH_Create_IMAGE_Node(const char* SopClassUID, const char* SopInstanceUID, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_reference(node, "IMAGE", "REF_IMAGE", SopClassUID, SopInstanceUID, false);
  });
}

VX_STATUS VX_SRH_Add_IMAGE_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                 const char* SopInstanceUID, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_reference(node, "IMAGE", "REF_IMAGE", SopClassUID, SopInstanceUID, false);
  });
}

VX_STATUS VX_SRH_Create_WAVEFORM_Node(const char* SopClassUID, const char* SopInstanceUID, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) {
    return make_reference(node, "WAVEFORM", "SOURCE_WAVEFORM", SopClassUID, SopInstanceUID, false);
  });
}

VX_STATUS VX_SRH_Add_WAVEFORM_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                    const char* SopInstanceUID, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID, [&](MsgObj*& node) {
    return make_reference(node, "WAVEFORM", "SOURCE_WAVEFORM", SopClassUID, SopInstanceUID, false);
  });
}

VX_STATUS VX_SRH_Create_CONTAINER_Node(int32_t Continuity, const char* TemplateID, int32_t* NodeID) {
  return create(NodeID, [&](MsgObj*& node) { return make_container(node, Continuity, TemplateID); });
}

VX_STATUS VX_SRH_Add_CONTAINER_Child(int32_t ParentID, int32_t Relationship, int32_t Continuity,
                                     const char* TemplateID, int32_t* NodeID) {
  return add(ParentID, Relationship, NodeID,
             [&](MsgObj*& node) { return make_container(node, Continuity, TemplateID); });
}

VX_STATUS VX_SRH_Add_Child(int32_t ParentID, int32_t Relationship, int32_t* NodeID) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(NodeID);
  return no_throw([&] { return link_child(ParentID, Relationship, *NodeID); });
}

VX_STATUS VX_SRH_Add_Reference(int32_t ParentID, int32_t Relationship, int32_t TargetID) {
  VX_REQUIRE_LIBRARY();
  return no_throw([&] { return add_reference(ParentID, Relationship, TargetID); });
}

VX_STATUS VX_SRH_Set_Concept_Name(int32_t NodeID, const char* ConceptCode, const char* ConceptScheme,
                                  const char* ConceptMeaning) {
  return on_node(NodeID, [&](MsgObj& node) -> VX_STATUS {
    return put_concept(node, {ConceptCode, ConceptScheme, ConceptMeaning});
  });
}

VX_STATUS VX_SRH_Set_NUM_Qualifier(int32_t NodeID, const char* Code, const char* Scheme,
                                   const char* Meaning) {
  return on_node(NodeID, [&](MsgObj& node) -> VX_STATUS {
    return put_code(node, kQualifier, "CODE_SEQUENCE_MACRO", {Code, Scheme, Meaning});
  });
}

VX_STATUS VX_SRH_Set_IMAGE_Frames(int32_t NodeID, const int32_t* Frames, int32_t Count) {
  return on_node(NodeID, [&](MsgObj& node) -> VX_STATUS {
    return put_numbers(node, kReferencedFrames, VX_INT_TYPE, Frames, Count);
  });
}

VX_STATUS VX_SRH_Set_WAVEFORM_Channels(int32_t NodeID, const uint16_t* Channels, int32_t Count) {
  return on_node(NodeID, [&](MsgObj& node) -> VX_STATUS {
    return put_numbers(node, kChannels, VX_USHORTINT_TYPE, Channels, Count);
  });
}

VX_STATUS VX_SRH_Set_SCOORD_Next_Data(int32_t NodeID, float X, float Y) {
  return on_node(NodeID, [&](MsgObj& node) -> VX_STATUS { return append_floats(node, SRH_SCOORD, {X, Y}); });
}

VX_STATUS VX_SRH_Set_SCOORD3D_Next_Data(int32_t NodeID, SRH_XYZ Point) {
  return on_node(NodeID, [&](MsgObj& node) -> VX_STATUS {
    return append_floats(node, SRH_SCOORD3D, {Point.X, Point.Y, Point.Z});
  });
}

VX_STATUS VX_SRH_Set_TCOORD_R_Next_Data(int32_t NodeID, uint32_t Position) {
  return on_node(NodeID, [&](MsgObj& node) -> VX_STATUS {
    return append_value(node, SRH_TCOORD_R, kPositions, VX_UINT_TYPE, &Position);
  });
}

VX_STATUS VX_SRH_Set_TCOORD_O_Next_Data(int32_t NodeID, const char* Offset) {
  return on_node(NodeID, [&](MsgObj& node) -> VX_STATUS {
    return append_value(node, SRH_TCOORD_O, kOffsets, VX_STRING_TYPE, Offset);
  });
}

VX_STATUS VX_SRH_Set_TCOORD_D_Next_Data(int32_t NodeID, const char* DateTime) {
  return on_node(NodeID, [&](MsgObj& node) -> VX_STATUS {
    return append_value(node, SRH_TCOORD_D, kDateTimes, VX_STRING_TYPE, DateTime);
  });
}
