/** @file
 * Structured reports: the content of nodes. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_REPORT_CONTENT_H
#define VEXALKIT_REPORT_CONTENT_H

#include "reports.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Structured reports: content (PS3.3 section C.17.3) ------------------------------------------------ */

/**
 * What all of these have in common: a status of the call that sets or reads an attribute is handed on as it
 * is, such as VX_INVALID_VALUE_FOR_VR for a text that is stored all the same, or VX_INVALID_TAG and
 * VX_EMPTY_VALUE for content that a node does not have. Concepts and units are triplets of code, coding
 * scheme and meaning. Text goes in and out in the report's character set. Sizes of buffers are in bytes with
 * the closing NUL. None frees what it is given. Threads may use one report, but not one node.
 */

/** Types of nodes. */
enum SRH_NODE_TYPE {
  SRH_TEXT = 0,
  SRH_CODE = 1,
  SRH_NUM = 2,
  SRH_DATETIME = 3,
  SRH_DATE = 4,
  SRH_TIME = 5,
  SRH_UIDREF = 6,
  SRH_PNAME = 7,
  SRH_SCOORD = 8,
  SRH_TCOORD_D = 9,  /* by date and time */
  SRH_TCOORD_O = 10, /* by offsets in seconds */
  SRH_TCOORD_R = 11, /* by numbers of samples */
  SRH_COMPOSITE = 12,
  SRH_IMAGE = 13,
  SRH_WAVEFORM = 14,
  SRH_CONTAINER = 15,
  SRH_REFERENCE = 16, /* leads to another node of the report */
  SRH_SCOORD3D = 17
};

/** How a node belongs to its parent, (0040,A010). */
enum SRH_RELATIONSHIP {
  SRH_CONTAINS = 0,
  SRH_HAS_OBS_CONTEXT = 1,
  SRH_HAS_ACQ_CONTEXT = 2,
  SRH_HAS_CONCEPT_MOD = 3,
  SRH_HAS_PROPERTIES = 4,
  SRH_INFERRED_FROM = 5,
  SRH_SELECTED_FROM = 6
};

/** Graphic Type, (0070,0023). */
enum SRH_SPATIAL_TYPE {
  SRH_SPATIAL_POINT = 0,
  SRH_SPATIAL_MULTIPOINT = 1,
  SRH_SPATIAL_POLYLINE = 2,
  SRH_SPATIAL_CIRCLE = 3,
  SRH_SPATIAL_ELLIPSE = 4,
  SRH_SPATIAL_POLYGON = 5,
  SRH_SPATIAL_ELLIPSOID = 6
};

/** Temporal Range Type, (0040,A130). */
enum SRH_TEMPORAL_TYPE {
  SRH_TEMPORAL_POINT = 0,
  SRH_TEMPORAL_MULTIPOINT = 1,
  SRH_TEMPORAL_SEGMENT = 2,
  SRH_TEMPORAL_MULTISEGMENT = 3,
  SRH_TEMPORAL_BEGIN = 4,
  SRH_TEMPORAL_END = 5
};

/** Continuity Of Content, (0040,A050). */
enum SRH_CONTINUITY { SRH_SEPARATE = 0, SRH_CONTINUOUS = 1 };

/** A point in space. */
typedef struct SRH_XYZ {
  float X;
  float Y;
  float Z;
} SRH_XYZ;

/**
 * A new report: a message of a service such as "STANDARD_COMPREHENSIVE_SR", as the root of a tree and a
 * container with the concept as its title. TemplateID may be null. VX_SRH_Free_SR frees it. RootID is 0 after
 * a failure.
 */
VX_API VX_STATUS VX_SRH_Create_SR(const char* ServiceName, const char* TemplateID, int32_t Continuity,
                                  const char* ConceptCode, const char* ConceptScheme,
                                  const char* ConceptMeaning, int32_t* RootID);

/**
 * An item with a text. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. ConceptCode null: no
 * concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_TEXT_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* Text, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TEXT_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* Text, int32_t* NodeID);

/**
 * An item with a code; none of its three texts may be null. It is free: VX_SRH_Add_Child links it,
 * VX_Free_Item frees it. ConceptCode null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_CODE_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* CodeValue,
                                         const char* CodingScheme, const char* CodeMeaning, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_CODE_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* CodeValue, const char* CodingScheme,
                                       const char* CodeMeaning, int32_t* NodeID);

/**
 * An item with a number with its unit. A null Value makes an empty measurement, without units; with a Value,
 * a null text of the unit is VX_NULL_POINTER_PARM. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees
 * it. ConceptCode null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_NUM_Node(const char* ConceptCode, const char* ConceptScheme,
                                        const char* ConceptMeaning, const char* Value, const char* UnitCode,
                                        const char* UnitScheme, const char* UnitMeaning, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_NUM_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                      const char* ConceptScheme, const char* ConceptMeaning,
                                      const char* Value, const char* UnitCode, const char* UnitScheme,
                                      const char* UnitMeaning, int32_t* NodeID);

/**
 * An item with a date with a time, as VR DT. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it.
 * ConceptCode null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_DATETIME_Node(const char* ConceptCode, const char* ConceptScheme,
                                             const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_DATETIME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                           const char* ConceptScheme, const char* ConceptMeaning,
                                           const char* Value, int32_t* NodeID);

/**
 * An item with a date, as VR DA. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. ConceptCode
 * null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_DATE_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_DATE_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* Value, int32_t* NodeID);

/**
 * An item with a time, as VR TM. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. ConceptCode
 * null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_TIME_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TIME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* Value, int32_t* NodeID);

/**
 * An item with a UID. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. ConceptCode null: no
 * concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_UIDREF_Node(const char* ConceptCode, const char* ConceptScheme,
                                           const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_UIDREF_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                         const char* ConceptScheme, const char* ConceptMeaning,
                                         const char* Value, int32_t* NodeID);

/**
 * An item with a name of a person, as VR PN. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it.
 * ConceptCode null: no concept name. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_PNAME_Node(const char* ConceptCode, const char* ConceptScheme,
                                          const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_PNAME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                        const char* ConceptScheme, const char* ConceptMeaning,
                                        const char* Value, int32_t* NodeID);

/**
 * An item with a region of an image, with its first point: column and row. SpatialType is
 * one of SRH_SPATIAL_TYPE. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no
 * item was made.
 */
VX_API VX_STATUS VX_SRH_Create_SCOORD_Node(float X, float Y, int32_t SpatialType, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_SCOORD_Child(int32_t ParentID, int32_t Relationship, float X, float Y,
                                         int32_t SpatialType, int32_t* NodeID);

/**
 * An item with a region in space, with its first point in millimetres. FrameOfReferenceUID may be null. It is
 * free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_SCOORD3D_Node(const char* FrameOfReferenceUID, SRH_XYZ Point,
                                             int32_t SpatialType, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_SCOORD3D_Child(int32_t ParentID, int32_t Relationship,
                                           const char* FrameOfReferenceUID, SRH_XYZ Point,
                                           int32_t SpatialType, int32_t* NodeID);

/**
 * An item with a time by the number of a sample, from 1. TemporalType is one of
 * SRH_TEMPORAL_TYPE. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item
 * was made.
 */
VX_API VX_STATUS VX_SRH_Create_TCOORD_R_Node(uint32_t Position, int32_t TemporalType, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TCOORD_R_Child(int32_t ParentID, int32_t Relationship, uint32_t Position,
                                           int32_t TemporalType, int32_t* NodeID);

/**
 * An item with a time by its offset in seconds, as VR DS. It is free: VX_SRH_Add_Child links it, VX_Free_Item
 * frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_TCOORD_O_Node(const char* Offset, int32_t TemporalType, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TCOORD_O_Child(int32_t ParentID, int32_t Relationship, const char* Offset,
                                           int32_t TemporalType, int32_t* NodeID);

/**
 * An item with a time as VR DT has it. It is free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID
 * is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_TCOORD_D_Node(const char* DateTime, int32_t TemporalType, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_TCOORD_D_Child(int32_t ParentID, int32_t Relationship, const char* DateTime,
                                           int32_t TemporalType, int32_t* NodeID);

/**
 * An item with a reference to an object; neither UID may be null. It is free: VX_SRH_Add_Child links it,
 * VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_COMPOSITE_Node(const char* SopClassUID, const char* SopInstanceUID,
                                              int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_COMPOSITE_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                            const char* SopInstanceUID, int32_t* NodeID);

/**
 * An item with a reference to an image. A null UID makes a node without a reference. It is free:
 * VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_IMAGE_Node(const char* SopClassUID, const char* SopInstanceUID,
                                          int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_IMAGE_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                        const char* SopInstanceUID, int32_t* NodeID);

/**
 * An item with a reference to a waveform. A null UID makes a node without a reference. It is free:
 * VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_WAVEFORM_Node(const char* SopClassUID, const char* SopInstanceUID,
                                             int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_WAVEFORM_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                           const char* SopInstanceUID, int32_t* NodeID);

/**
 * An item with a heading. Continuity is one of SRH_CONTINUITY; TemplateID, such as "1500", may be null. It is
 * free: VX_SRH_Add_Child links it, VX_Free_Item frees it. NodeID is 0 where no item was made.
 */
VX_API VX_STATUS VX_SRH_Create_CONTAINER_Node(int32_t Continuity, const char* TemplateID, int32_t* NodeID);

/**
 * The same, linked as the last child of a node. VX_VALUE_NOT_ALLOWED: no SRH_RELATIONSHIP; VX_INVALID_SR_ID:
 * no parent.
 */
VX_API VX_STATUS VX_SRH_Add_CONTAINER_Child(int32_t ParentID, int32_t Relationship, int32_t Continuity,
                                            const char* TemplateID, int32_t* NodeID);

/**
 * Links a free item as the last child of a node. VX_VALUE_NOT_ALLOWED, VX_INVALID_SR_ID, VX_INVALID_ITEM_ID.
 */
VX_API VX_STATUS VX_SRH_Add_Child(int32_t ParentID, int32_t Relationship, int32_t* NodeID);

/**
 * Adds a reference to another node of the report as the last item of the parent's (0040,A730). It names the
 * place that the target has now among the items, and gets no node until the report is read anew.
 * VX_VALUE_NOT_ALLOWED, VX_INVALID_SR_ID.
 */
VX_API VX_STATUS VX_SRH_Add_Reference(int32_t ParentID, int32_t Relationship, int32_t TargetID);

/**
 * Sets the concept name of a node. VX_INVALID_MESSAGE_ID; VX_NULL_POINTER_PARM for a null text.
 */
VX_API VX_STATUS VX_SRH_Set_Concept_Name(int32_t NodeID, const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning);

/**
 * Sets (0040,A301), why a number has no value or what is special about it.
 */
VX_API VX_STATUS VX_SRH_Set_NUM_Qualifier(int32_t NodeID, const char* Code, const char* Scheme,
                                          const char* Meaning);

/**
 * Sets the frames, from 1, that an image reference means. VX_VALUE_NOT_ALLOWED: Count below 1.
 */
VX_API VX_STATUS VX_SRH_Set_IMAGE_Frames(int32_t NodeID, const int32_t* Frames, int32_t Count);

/**
 * Sets the channels that a waveform reference means: pairs of group and channel. VX_VALUE_NOT_ALLOWED: Count
 * below 1.
 */
VX_API VX_STATUS VX_SRH_Set_WAVEFORM_Channels(int32_t NodeID, const uint16_t* Channels, int32_t Count);

/**
 * Appends a point. VX_INVALID_DATA_TYPE: the node is no SRH_SCOORD.
 */
VX_API VX_STATUS VX_SRH_Set_SCOORD_Next_Data(int32_t NodeID, float X, float Y);

/**
 * Appends a point. VX_INVALID_DATA_TYPE: the node is no SRH_SCOORD3D.
 */
VX_API VX_STATUS VX_SRH_Set_SCOORD3D_Next_Data(int32_t NodeID, SRH_XYZ Point);

/**
 * Appends a value. VX_INVALID_DATA_TYPE: the node is no SRH_TCOORD_R.
 */
VX_API VX_STATUS VX_SRH_Set_TCOORD_R_Next_Data(int32_t NodeID, uint32_t Position);

/**
 * Appends a value. VX_INVALID_DATA_TYPE: the node is no SRH_TCOORD_O.
 */
VX_API VX_STATUS VX_SRH_Set_TCOORD_O_Next_Data(int32_t NodeID, const char* Offset);

/**
 * Appends a value. VX_INVALID_DATA_TYPE: the node is no SRH_TCOORD_D.
 */
VX_API VX_STATUS VX_SRH_Set_TCOORD_D_Next_Data(int32_t NodeID, const char* DateTime);

/**
 * The type of a node, one of SRH_NODE_TYPE. VX_INCOMPATIBLE_VALUE: a value type that is not known, or a
 * TCOORD without values.
 */
VX_API VX_STATUS VX_SRH_Get_NodeType(int32_t NodeID, int32_t* NodeType);

/**
 * The first child, as VX_SR_Get_First_Child, with its relationship and type; these are -1 where there is no
 * child or where they are not known. The status then tells why, while ChildID and IsLast hold all the same.
 */
VX_API VX_STATUS VX_SRH_Get_First_Child(int32_t NodeID, int32_t* ChildID, int32_t* Relationship,
                                        int32_t* NodeType, int32_t* IsLast);

/**
 * The next child, as VX_SR_Get_Next_Child, with its relationship and type; these are -1 where there is no
 * child or where they are not known. The status then tells why, while ChildID and IsLast hold all the same.
 */
VX_API VX_STATUS VX_SRH_Get_Next_Child(int32_t NodeID, int32_t* ChildID, int32_t* Relationship,
                                       int32_t* NodeType, int32_t* IsLast);

/**
 * The concept name of a node. A part that can not be read is an empty text.
 */
VX_API VX_STATUS VX_SRH_Get_Concept_Name(int32_t NodeID, char* Code, int32_t CodeSize, char* Scheme,
                                         int32_t SchemeSize, char* Meaning, int32_t MeaningSize);

/**
 * The text of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_TEXT_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * The date and time of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_DATETIME_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * The date of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_DATE_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * The time of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_TIME_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * The UID of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_UIDREF_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * The name of a node. VX_BUFFER_TOO_SMALL: the text is cut.
 */
VX_API VX_STATUS VX_SRH_Get_PNAME_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * The code of a node. A part that can not be read is an empty text.
 */
VX_API VX_STATUS VX_SRH_Get_CODE_Data(int32_t NodeID, char* CodeValue, int32_t CodeValueSize,
                                      char* CodingScheme, int32_t CodingSchemeSize, char* CodeMeaning,
                                      int32_t CodeMeaningSize);

/**
 * The first value of a number, how many it has, and its unit. A null value is an empty text. VX_EMPTY_VALUE:
 * no measured value.
 */
VX_API VX_STATUS VX_SRH_Get_NUM_Data(int32_t NodeID, char* Value, int32_t ValueSize, int32_t* Count,
                                     char* UnitCode, int32_t UnitCodeSize, char* UnitScheme,
                                     int32_t UnitSchemeSize, char* UnitMeaning, int32_t UnitMeaningSize);

/**
 * The next value of a number that has several. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_NUM_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * The qualifier of a number.
 */
VX_API VX_STATUS VX_SRH_Get_NUM_Qualifier(int32_t NodeID, char* Code, int32_t CodeSize, char* Scheme,
                                          int32_t SchemeSize, char* Meaning, int32_t MeaningSize);

/**
 * The first point of a region, the number of points and the kind of region, one of SRH_SPATIAL_TYPE.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD_First_Data(int32_t NodeID, float* X, float* Y, int32_t* Count,
                                              int32_t* SpatialType);

/**
 * The next point of a region. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD_Next_Data(int32_t NodeID, float* X, float* Y);

/**
 * The first point of a region in space, the number of points and the kind of region. FrameOfReferenceUID
 * points to 64 bytes that belong to the node and last until the next such call on it or its end; null if it
 * has none.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD3D_First_Data(int32_t NodeID, char** FrameOfReferenceUID, SRH_XYZ* Point,
                                                int32_t* Count, int32_t* SpatialType);

/**
 * The next point of a region in space. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD3D_Next_Data(int32_t NodeID, SRH_XYZ* Point);

/**
 * The first value, how many there are, and their kind, one of SRH_TEMPORAL_TYPE.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_R_First_Data(int32_t NodeID, uint32_t* Position, int32_t* Count,
                                                int32_t* TemporalType);

/**
 * The next value. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_R_Next_Data(int32_t NodeID, uint32_t* Position);

/**
 * The first value, how many there are, and their kind, one of SRH_TEMPORAL_TYPE.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_O_First_Data(int32_t NodeID, char* Value, int32_t ValueSize,
                                                int32_t* Count, int32_t* TemporalType);

/**
 * The next value. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_O_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * The first value, how many there are, and their kind, one of SRH_TEMPORAL_TYPE.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_D_First_Data(int32_t NodeID, char* Value, int32_t ValueSize,
                                                int32_t* Count, int32_t* TemporalType);

/**
 * The next value. VX_NO_MORE_VALUES.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_D_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * The UIDs of the object that is referred to. One that can not be read is an empty text.
 */
VX_API VX_STATUS VX_SRH_Get_COMPOSITE_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                           char* SopInstanceUID, int32_t SopInstanceUIDSize);

/**
 * The same with the number of frames, 0 when there are none.
 */
VX_API VX_STATUS VX_SRH_Get_IMAGE_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                       char* SopInstanceUID, int32_t SopInstanceUIDSize, int32_t* Count);

/**
 * All frames of a reference. VX_BUFFER_TOO_SMALL: Capacity is below their number.
 */
VX_API VX_STATUS VX_SRH_Get_IMAGE_Frames(int32_t NodeID, int32_t* Frames, int32_t Capacity);

/**
 * The same with the number of channels, 0 when there are none.
 */
VX_API VX_STATUS VX_SRH_Get_WAVEFORM_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                          char* SopInstanceUID, int32_t SopInstanceUIDSize, int32_t* Count);

/**
 * All channels of a reference. VX_BUFFER_TOO_SMALL: Capacity is below their number.
 */
VX_API VX_STATUS VX_SRH_Get_WAVEFORM_Channels(int32_t NodeID, uint16_t* Channels, int32_t Capacity);

/**
 * The continuity and the template of a container, an empty text where none is named.
 */
VX_API VX_STATUS VX_SRH_Get_CONTAINER_Data(int32_t NodeID, int32_t* Continuity, char* TemplateID,
                                           int32_t TemplateIDSize);

/**
 * The node that a reference leads to, by the place of each step among the items. TargetID is 0 after a
 * failure. VX_EMPTY_VALUE: no reference; VX_VALUE_OUT_OF_RANGE: there is no such node.
 */
VX_API VX_STATUS VX_SRH_Get_Reference(int32_t NodeID, int32_t* TargetID);

#ifdef __cplusplus
}
#endif

#endif
