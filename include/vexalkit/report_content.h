/** @file
 * Structured reports: the content of nodes. The conventions stand in vexalkit.h.
 *
 * A status of the call that sets or reads an attribute is handed on as it is; what stands at a function are
 * those to reckon with. Concepts, codes and units are triplets of code, coding scheme and meaning. Text goes
 * in and out in the report's character set. Threads may use one report, but not one node.
 *
 * @par Making nodes
 * A Create function makes a free item: VX_SRH_Add_Child makes it a node, VX_Free_Item frees it. An Add
 * function does both steps in one. NodeID is 0 where no item was made; where a value could not be set or
 * broke a rule, NodeID is a free item with what could be set, from an Add function too. Texts are checked
 * before the item is part of the report, and so as text without a (0008,0005).
 */
#ifndef VEXALKIT_REPORT_CONTENT_H
#define VEXALKIT_REPORT_CONTENT_H

#include "reports.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Structured reports: content (PS3.3 section C.17.3) ------------------------------------------------ */

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

/** A point in space, in mm in its frame of reference (PS3.3 section C.18.9). */
typedef struct SRH_XYZ {
  float X;
  float Y;
  float Z;
} SRH_XYZ;

/**
 * Makes a new report: a message as the root of a tree and a container with a title.
 * @param ServiceName  service of the message, such as "STANDARD_COMPREHENSIVE_SR"; not checked.
 * @param TemplateID  template that the report follows, such as "1500"; null: none is named.
 * @param Continuity  one of SRH_CONTINUITY.
 * @param ConceptCode,ConceptScheme,ConceptMeaning  the title: code, coding scheme and meaning; none may be
 *   null.
 * @param RootID  [out] the root, which VX_SRH_Free_SR frees; 0 after a failure.
 * @retval VX_VALUE_NOT_ALLOWED  Continuity is none.
 * @retval VX_INVALID_VALUE_FOR_VR  a text breaks a rule of its VR.
 * @retval VX_INVALID_CHARS_IN_VALUE  a text has characters that its VR does not take.
 */
VX_API VX_STATUS VX_SRH_Create_SR(const char* ServiceName, const char* TemplateID, int32_t Continuity,
                                  const char* ConceptCode, const char* ConceptScheme,
                                  const char* ConceptMeaning, int32_t* RootID);

/**
 * Makes an item with a text.
 * @param ConceptCode,ConceptScheme,ConceptMeaning  the concept name: code, coding scheme and meaning. A null
 *   code: no name; beside a code neither of the others may be null.
 * @param Text  the text, as VR UT. Null is VX_NULL_POINTER_PARM, with an item that has none.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_INVALID_VALUE_FOR_VR  a text breaks a rule of its VR. For one of the concept name there is no
 *   item; any other is set all the same.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Create_TEXT_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* Text, int32_t* NodeID);

/**
 * As VX_SRH_Create_TEXT_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_TEXT_Node
 */
VX_API VX_STATUS VX_SRH_Add_TEXT_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* Text, int32_t* NodeID);

/**
 * Makes an item with a code.
 * @param ConceptCode,ConceptScheme,ConceptMeaning  the concept name, as for VX_SRH_Create_TEXT_Node.
 * @param CodeValue,CodingScheme,CodeMeaning  the code: value, coding scheme and meaning; none may be null.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_INVALID_VALUE_FOR_VR  a text breaks a rule of its VR. For one of the concept name there is no
 *   item, for another one no code in it.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Create_CODE_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* CodeValue,
                                         const char* CodingScheme, const char* CodeMeaning, int32_t* NodeID);

/**
 * As VX_SRH_Create_CODE_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_CODE_Node
 */
VX_API VX_STATUS VX_SRH_Add_CODE_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* CodeValue, const char* CodingScheme,
                                       const char* CodeMeaning, int32_t* NodeID);

/**
 * Makes an item with a number and its unit.
 * @param ConceptCode,ConceptScheme,ConceptMeaning  the concept name, as for VX_SRH_Create_TEXT_Node.
 * @param Value  the number, as VR DS; null makes an empty measurement, without a unit.
 * @param UnitCode,UnitScheme,UnitMeaning  the unit: code, coding scheme and meaning; null only where Value is
 *   null.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_INVALID_VALUE_FOR_VR  a text breaks a rule of its VR. For one of the concept name there is no
 *   item, for another one no measurement in it.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Create_NUM_Node(const char* ConceptCode, const char* ConceptScheme,
                                        const char* ConceptMeaning, const char* Value, const char* UnitCode,
                                        const char* UnitScheme, const char* UnitMeaning, int32_t* NodeID);

/**
 * As VX_SRH_Create_NUM_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_NUM_Node
 */
VX_API VX_STATUS VX_SRH_Add_NUM_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                      const char* ConceptScheme, const char* ConceptMeaning,
                                      const char* Value, const char* UnitCode, const char* UnitScheme,
                                      const char* UnitMeaning, int32_t* NodeID);

/**
 * Makes an item with a date and time, as VR DT.
 * @param ConceptCode,ConceptScheme,ConceptMeaning  the concept name, as for VX_SRH_Create_TEXT_Node.
 * @param Value  the value as text. Null is VX_NULL_POINTER_PARM, with an item that has none.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_INVALID_VALUE_FOR_VR  a text breaks a rule of its VR. For one of the concept name there is no
 *   item; any other is set all the same.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Create_DATETIME_Node(const char* ConceptCode, const char* ConceptScheme,
                                             const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * As VX_SRH_Create_DATETIME_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_DATETIME_Node
 */
VX_API VX_STATUS VX_SRH_Add_DATETIME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                           const char* ConceptScheme, const char* ConceptMeaning,
                                           const char* Value, int32_t* NodeID);

/**
 * Makes an item with a date, as VR DA.
 * @copydetails VX_SRH_Create_DATETIME_Node
 */
VX_API VX_STATUS VX_SRH_Create_DATE_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * As VX_SRH_Create_DATE_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_DATETIME_Node
 */
VX_API VX_STATUS VX_SRH_Add_DATE_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* Value, int32_t* NodeID);

/**
 * Makes an item with a time, as VR TM.
 * @copydetails VX_SRH_Create_DATETIME_Node
 */
VX_API VX_STATUS VX_SRH_Create_TIME_Node(const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * As VX_SRH_Create_TIME_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_DATETIME_Node
 */
VX_API VX_STATUS VX_SRH_Add_TIME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                       const char* ConceptScheme, const char* ConceptMeaning,
                                       const char* Value, int32_t* NodeID);

/**
 * Makes an item with a UID.
 * @copydetails VX_SRH_Create_DATETIME_Node
 */
VX_API VX_STATUS VX_SRH_Create_UIDREF_Node(const char* ConceptCode, const char* ConceptScheme,
                                           const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * As VX_SRH_Create_UIDREF_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_DATETIME_Node
 */
VX_API VX_STATUS VX_SRH_Add_UIDREF_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                         const char* ConceptScheme, const char* ConceptMeaning,
                                         const char* Value, int32_t* NodeID);

/**
 * Makes an item with a person's name, as VR PN.
 * @copydetails VX_SRH_Create_DATETIME_Node
 */
VX_API VX_STATUS VX_SRH_Create_PNAME_Node(const char* ConceptCode, const char* ConceptScheme,
                                          const char* ConceptMeaning, const char* Value, int32_t* NodeID);

/**
 * As VX_SRH_Create_PNAME_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_DATETIME_Node
 */
VX_API VX_STATUS VX_SRH_Add_PNAME_Child(int32_t ParentID, int32_t Relationship, const char* ConceptCode,
                                        const char* ConceptScheme, const char* ConceptMeaning,
                                        const char* Value, int32_t* NodeID);

/**
 * Makes an item with a region of an image, of which it gets the first point.
 * VX_SRH_Set_SCOORD_Next_Data adds the others.
 * @param X  column of the point, in pixels (PS3.3 section C.18.6).
 * @param Y  row of the point.
 * @param SpatialType  one of SRH_SPATIAL_TYPE.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_VALUE_NOT_ALLOWED  SpatialType is none; the item has no region.
 */
VX_API VX_STATUS VX_SRH_Create_SCOORD_Node(float X, float Y, int32_t SpatialType, int32_t* NodeID);

/**
 * As VX_SRH_Create_SCOORD_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_SCOORD_Node
 */
VX_API VX_STATUS VX_SRH_Add_SCOORD_Child(int32_t ParentID, int32_t Relationship, float X, float Y,
                                         int32_t SpatialType, int32_t* NodeID);

/**
 * Makes an item with a region in space, of which it gets the first point.
 * VX_SRH_Set_SCOORD3D_Next_Data adds the others.
 * @param FrameOfReferenceUID  UID of the frame of reference; null: none is named.
 * @param Point  the point.
 * @param SpatialType  one of SRH_SPATIAL_TYPE.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_VALUE_NOT_ALLOWED  SpatialType is none; the item has no region.
 * @retval VX_INVALID_VALUE_FOR_VR  FrameOfReferenceUID is no UID; it is set, but the item has no region.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Create_SCOORD3D_Node(const char* FrameOfReferenceUID, SRH_XYZ Point,
                                             int32_t SpatialType, int32_t* NodeID);

/**
 * As VX_SRH_Create_SCOORD3D_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_SCOORD3D_Node
 */
VX_API VX_STATUS VX_SRH_Add_SCOORD3D_Child(int32_t ParentID, int32_t Relationship,
                                           const char* FrameOfReferenceUID, SRH_XYZ Point,
                                           int32_t SpatialType, int32_t* NodeID);

/**
 * Makes an item with times by the numbers of samples, of which it gets the first.
 * VX_SRH_Set_TCOORD_R_Next_Data adds the others.
 * @param Position  number of the sample, from 1.
 * @param TemporalType  one of SRH_TEMPORAL_TYPE.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_VALUE_NOT_ALLOWED  TemporalType is none; the item has no time.
 */
VX_API VX_STATUS VX_SRH_Create_TCOORD_R_Node(uint32_t Position, int32_t TemporalType, int32_t* NodeID);

/**
 * As VX_SRH_Create_TCOORD_R_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_TCOORD_R_Node
 */
VX_API VX_STATUS VX_SRH_Add_TCOORD_R_Child(int32_t ParentID, int32_t Relationship, uint32_t Position,
                                           int32_t TemporalType, int32_t* NodeID);

/**
 * Makes an item with times by their offsets, of which it gets the first.
 * VX_SRH_Set_TCOORD_O_Next_Data adds the others.
 * @param Offset  the offset in seconds, as VR DS; not null.
 * @param TemporalType  one of SRH_TEMPORAL_TYPE.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_VALUE_NOT_ALLOWED  TemporalType is none; the item has no time.
 * @retval VX_INVALID_VALUE_FOR_VR  Offset breaks a rule of DS, and is set all the same, but for a comma that
 *   the configuration does not allow.
 * @retval VX_INVALID_CHARS_IN_VALUE  Offset has other characters, and is set all the same.
 */
VX_API VX_STATUS VX_SRH_Create_TCOORD_O_Node(const char* Offset, int32_t TemporalType, int32_t* NodeID);

/**
 * As VX_SRH_Create_TCOORD_O_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_TCOORD_O_Node
 */
VX_API VX_STATUS VX_SRH_Add_TCOORD_O_Child(int32_t ParentID, int32_t Relationship, const char* Offset,
                                           int32_t TemporalType, int32_t* NodeID);

/**
 * Makes an item with times as such, of which it gets the first.
 * VX_SRH_Set_TCOORD_D_Next_Data adds the others.
 * @param DateTime  the time, as VR DT; not null.
 * @param TemporalType  one of SRH_TEMPORAL_TYPE.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_VALUE_NOT_ALLOWED  TemporalType is none; the item has no time.
 * @retval VX_INVALID_VALUE_FOR_VR  DateTime breaks a rule of DT, and is set all the same.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Create_TCOORD_D_Node(const char* DateTime, int32_t TemporalType, int32_t* NodeID);

/**
 * As VX_SRH_Create_TCOORD_D_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_TCOORD_D_Node
 */
VX_API VX_STATUS VX_SRH_Add_TCOORD_D_Child(int32_t ParentID, int32_t Relationship, const char* DateTime,
                                           int32_t TemporalType, int32_t* NodeID);

/**
 * Makes an item with a reference to an object.
 * @param SopClassUID  SOP class UID of the object; not null.
 * @param SopInstanceUID  its SOP instance UID; not null.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_INVALID_VALUE_FOR_VR  one of the UIDs is none; the item has no reference.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Create_COMPOSITE_Node(const char* SopClassUID, const char* SopInstanceUID,
                                              int32_t* NodeID);

/**
 * As VX_SRH_Create_COMPOSITE_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_COMPOSITE_Node
 */
VX_API VX_STATUS VX_SRH_Add_COMPOSITE_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                            const char* SopInstanceUID, int32_t* NodeID);

/**
 * Makes an item with a reference to an image.
 * VX_SRH_Set_IMAGE_Frames tells which frames are meant.
 * @param SopClassUID  SOP class UID of the image; null: an item without a reference.
 * @param SopInstanceUID  its SOP instance UID; null: the same.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_INVALID_VALUE_FOR_VR  one of the UIDs is none; the item has no reference.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Create_IMAGE_Node(const char* SopClassUID, const char* SopInstanceUID,
                                          int32_t* NodeID);

/**
 * As VX_SRH_Create_IMAGE_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_IMAGE_Node
 */
VX_API VX_STATUS VX_SRH_Add_IMAGE_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                        const char* SopInstanceUID, int32_t* NodeID);

/**
 * Makes an item with a reference to a waveform, else as VX_SRH_Create_IMAGE_Node.
 * VX_SRH_Set_WAVEFORM_Channels tells which channels are meant.
 * @param SopClassUID,SopInstanceUID  UIDs of the waveform, as for VX_SRH_Create_IMAGE_Node.
 * @param NodeID  [out] the item; 0 where none was made.
 * @return The statuses of VX_SRH_Create_IMAGE_Node.
 */
VX_API VX_STATUS VX_SRH_Create_WAVEFORM_Node(const char* SopClassUID, const char* SopInstanceUID,
                                             int32_t* NodeID);

/**
 * As VX_SRH_Create_WAVEFORM_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_WAVEFORM_Node
 */
VX_API VX_STATUS VX_SRH_Add_WAVEFORM_Child(int32_t ParentID, int32_t Relationship, const char* SopClassUID,
                                           const char* SopInstanceUID, int32_t* NodeID);

/**
 * Makes an item with a heading, which VX_SRH_Set_Concept_Name gives it, for others to lie below.
 * @param Continuity  one of SRH_CONTINUITY.
 * @param TemplateID  template that the content follows, such as "1500"; null: none is named.
 * @param NodeID  [out] the item; 0 where none was made.
 * @retval VX_VALUE_NOT_ALLOWED  Continuity is none; the item has neither.
 * @retval VX_INVALID_VALUE_FOR_VR  TemplateID breaks a rule of its VR, and is not set.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Create_CONTAINER_Node(int32_t Continuity, const char* TemplateID, int32_t* NodeID);

/**
 * As VX_SRH_Create_CONTAINER_Node, and makes the item the last child of a node.
 * @param ParentID  the node; VX_INVALID_SR_ID if it is none.
 * @param Relationship  one of SRH_RELATIONSHIP; VX_VALUE_NOT_ALLOWED if it is none.
 * @copydetails VX_SRH_Create_CONTAINER_Node
 */
VX_API VX_STATUS VX_SRH_Add_CONTAINER_Child(int32_t ParentID, int32_t Relationship, int32_t Continuity,
                                            const char* TemplateID, int32_t* NodeID);

/**
 * Makes a free item the last child of a node.
 * @param ParentID  node that gets the child.
 * @param Relationship  how the child belongs to it, one of SRH_RELATIONSHIP.
 * @param NodeID  the item, which is a node from here on; only read.
 * @retval VX_VALUE_NOT_ALLOWED  Relationship is none.
 * @retval VX_INVALID_SR_ID  ParentID is no node, or NodeID no object.
 * @retval VX_INVALID_ITEM_ID  NodeID is no item, or part of a tree already.
 * @return Also the statuses of VX_SR_Add_Child.
 */
VX_API VX_STATUS VX_SRH_Add_Child(int32_t ParentID, int32_t Relationship, int32_t* NodeID);

/**
 * Adds a reference to another node of the report as the last item of a node's (0040,A730).
 * It names the place that the target has now among the items, and gets no node until the report is read anew.
 * @param ParentID  node that refers to the other one.
 * @param Relationship  how the target belongs to it, one of SRH_RELATIONSHIP.
 * @param TargetID  node that is referred to, of the same report.
 * @retval VX_VALUE_NOT_ALLOWED  Relationship is none.
 * @retval VX_INVALID_SR_ID  ParentID or TargetID is no node, or TargetID has no place among the items.
 */
VX_API VX_STATUS VX_SRH_Add_Reference(int32_t ParentID, int32_t Relationship, int32_t TargetID);

/**
 * Sets the concept name of a node, in place of a former one.
 * @param NodeID  node or free item.
 * @param ConceptCode,ConceptScheme,ConceptMeaning  code, coding scheme and meaning; none may be null.
 * @retval VX_INVALID_VALUE_FOR_VR  a text breaks a rule of its VR; the former name stays.
 * @retval VX_INVALID_CHARS_IN_VALUE  the same of its characters.
 */
VX_API VX_STATUS VX_SRH_Set_Concept_Name(int32_t NodeID, const char* ConceptCode, const char* ConceptScheme,
                                         const char* ConceptMeaning);

/**
 * Sets why a number has no value or what is special about it, (0040,A301), in place of a former one.
 * @param NodeID  node or free item.
 * @param Code,Scheme,Meaning  code, coding scheme and meaning; none may be null.
 * @return The statuses of VX_SRH_Set_Concept_Name.
 */
VX_API VX_STATUS VX_SRH_Set_NUM_Qualifier(int32_t NodeID, const char* Code, const char* Scheme,
                                          const char* Meaning);

/**
 * Sets the frames that an image reference means, in place of former ones.
 * @param NodeID  node or free item with a reference.
 * @param Frames  numbers of the frames, from 1.
 * @param Count  how many there are.
 * @retval VX_VALUE_NOT_ALLOWED  Count is below 1.
 * @retval VX_INVALID_TAG  the node has no reference; VX_EMPTY_VALUE or VX_NULL_VALUE where its sequence is
 *   empty.
 */
VX_API VX_STATUS VX_SRH_Set_IMAGE_Frames(int32_t NodeID, const int32_t* Frames, int32_t Count);

/**
 * Sets the channels that a waveform reference means, in place of former ones.
 * @param NodeID  node or free item with a reference.
 * @param Channels  pairs: number of the multiplex group, from 1, and of the channel in it, from 1, or 0 for
 *   all of the group.
 * @param Count  numbers in Channels, two for each channel.
 * @retval VX_VALUE_NOT_ALLOWED  Count is below 1.
 * @retval VX_INVALID_TAG  as for VX_SRH_Set_IMAGE_Frames, and so are VX_EMPTY_VALUE and VX_NULL_VALUE.
 */
VX_API VX_STATUS VX_SRH_Set_WAVEFORM_Channels(int32_t NodeID, const uint16_t* Channels, int32_t Count);

/**
 * Appends a point to a region of an image.
 * @param NodeID  node or free item of type SRH_SCOORD.
 * @param X  column of the point, in pixels.
 * @param Y  row of the point.
 * @retval VX_INVALID_DATA_TYPE  the node is of another type.
 * @return Also the statuses of VX_SRH_Get_NodeType.
 */
VX_API VX_STATUS VX_SRH_Set_SCOORD_Next_Data(int32_t NodeID, float X, float Y);

/**
 * Appends a point to a region in space.
 * @param NodeID  node or free item of type SRH_SCOORD3D.
 * @param Point  the point.
 * @retval VX_INVALID_DATA_TYPE  the node is of another type.
 * @return Also the statuses of VX_SRH_Get_NodeType.
 */
VX_API VX_STATUS VX_SRH_Set_SCOORD3D_Next_Data(int32_t NodeID, SRH_XYZ Point);

/**
 * Appends a time by the number of a sample.
 * @param NodeID  node or free item of type SRH_TCOORD_R.
 * @param Position  number of the sample, from 1.
 * @retval VX_INVALID_DATA_TYPE  the node is of another type.
 * @return Also the statuses of VX_SRH_Get_NodeType.
 */
VX_API VX_STATUS VX_SRH_Set_TCOORD_R_Next_Data(int32_t NodeID, uint32_t Position);

/**
 * Appends a time by its offset.
 * @param NodeID  node or free item of type SRH_TCOORD_O.
 * @param Offset  the offset in seconds, as VR DS; not null.
 * @retval VX_INVALID_DATA_TYPE  the node is of another type.
 * @return Also the statuses of VX_SRH_Get_NodeType, and those that VX_SRH_Create_TCOORD_O_Node has for
 *   Offset.
 */
VX_API VX_STATUS VX_SRH_Set_TCOORD_O_Next_Data(int32_t NodeID, const char* Offset);

/**
 * Appends a time as such.
 * @param NodeID  node or free item of type SRH_TCOORD_D.
 * @param DateTime  the time, as VR DT; not null.
 * @retval VX_INVALID_DATA_TYPE  the node is of another type.
 * @return Also the statuses of VX_SRH_Get_NodeType, and those that VX_SRH_Create_TCOORD_D_Node has for
 *   DateTime.
 */
VX_API VX_STATUS VX_SRH_Set_TCOORD_D_Next_Data(int32_t NodeID, const char* DateTime);

/**
 * Tells the type of a node.
 * @param NodeID  node or item.
 * @param NodeType  [out] one of SRH_NODE_TYPE; untouched after a failure.
 * @retval VX_INCOMPATIBLE_VALUE  (0040,A040) holds a value type that is not known, or TCOORD for a node
 *   without times.
 * @retval VX_INVALID_TAG  the node has neither a value type nor a relationship, by which a reference is
 *   known; VX_EMPTY_VALUE or VX_NULL_VALUE where (0040,A040) is empty.
 */
VX_API VX_STATUS VX_SRH_Get_NodeType(int32_t NodeID, int32_t* NodeType);

/**
 * Gives the first child of a node as VX_SR_Get_First_Child, with its relationship and type.
 * @param NodeID  node.
 * @param ChildID  [out] the child; 0 if there is none.
 * @param Relationship  [out] one of SRH_RELATIONSHIP; -1 where there is no child or the text is not known.
 * @param NodeType  [out] one of SRH_NODE_TYPE; -1 where there is no child or the type is not known.
 * @param IsLast  [out] 0 if another child follows, else 1.
 * @retval VX_INVALID_SR_ID  NodeID is no node; nothing was written.
 * @return Also the status of reading the relationship, where that fails, or that of VX_SRH_Get_NodeType;
 *   ChildID and IsLast hold all the same.
 */
VX_API VX_STATUS VX_SRH_Get_First_Child(int32_t NodeID, int32_t* ChildID, int32_t* Relationship,
                                        int32_t* NodeType, int32_t* IsLast);

/**
 * Gives the next child of a node as VX_SR_Get_Next_Child, else as VX_SRH_Get_First_Child.
 * @param NodeID  node.
 * @param ChildID  [out] the child; 0 behind the last one.
 * @param Relationship,NodeType,IsLast  [out] as for VX_SRH_Get_First_Child.
 * @retval VX_INVALID_MESSAGE_ID  NodeID is no node; nothing was written.
 * @return Also the statuses of VX_SRH_Get_First_Child for what can not be read.
 */
VX_API VX_STATUS VX_SRH_Get_Next_Child(int32_t NodeID, int32_t* ChildID, int32_t* Relationship,
                                       int32_t* NodeType, int32_t* IsLast);

/**
 * Gives the concept name of a node.
 * @param NodeID  node or item.
 * @param Code,Scheme,Meaning  [out] code, coding scheme and meaning, each cut without notice to what fits;
 *   empty where it can not be read, and after a failure.
 * @param CodeSize,SchemeSize,MeaningSize  bytes of these, the NUL counted, 2 or more.
 * @retval VX_INVALID_TAG  the node has no such attribute.
 * @retval VX_EMPTY_VALUE  it was given no item.
 * @retval VX_NULL_VALUE  it was set to null.
 * @retval VX_INCOMPATIBLE_VR  it is no sequence.
 */
VX_API VX_STATUS VX_SRH_Get_Concept_Name(int32_t NodeID, char* Code, int32_t CodeSize, char* Scheme,
                                         int32_t SchemeSize, char* Meaning, int32_t MeaningSize);

/**
 * Gives the text of a node.
 * @param NodeID  node or item.
 * @param Value  [out] the text; empty after a failure other than VX_BUFFER_TOO_SMALL, that of an unknown
 *   NodeID too.
 * @param ValueSize  bytes of Value, the NUL counted, 2 or more.
 * @retval VX_BUFFER_TOO_SMALL  the text was cut to what fits.
 * @retval VX_INVALID_TAG  the node has no such attribute.
 * @retval VX_EMPTY_VALUE  it has no value.
 * @retval VX_NULL_VALUE  its value is null.
 */
VX_API VX_STATUS VX_SRH_Get_TEXT_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * Gives the date and time of a node, as VR DT.
 * @copydetails VX_SRH_Get_TEXT_Data
 */
VX_API VX_STATUS VX_SRH_Get_DATETIME_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * Gives the date of a node, as VR DA.
 * @copydetails VX_SRH_Get_TEXT_Data
 */
VX_API VX_STATUS VX_SRH_Get_DATE_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * Gives the time of a node, as VR TM.
 * @copydetails VX_SRH_Get_TEXT_Data
 */
VX_API VX_STATUS VX_SRH_Get_TIME_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * Gives the UID of a node.
 * @copydetails VX_SRH_Get_TEXT_Data
 */
VX_API VX_STATUS VX_SRH_Get_UIDREF_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * Gives the person's name of a node, as VR PN.
 * @copydetails VX_SRH_Get_TEXT_Data
 */
VX_API VX_STATUS VX_SRH_Get_PNAME_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * Gives the code of a node.
 * @param NodeID  node or item.
 * @param CodeValue,CodingScheme,CodeMeaning  [out] value, coding scheme and meaning, as for
 *   VX_SRH_Get_Concept_Name.
 * @param CodeValueSize,CodingSchemeSize,CodeMeaningSize  bytes of these, the NUL counted, 2 or more.
 * @return The statuses of VX_SRH_Get_Concept_Name.
 */
VX_API VX_STATUS VX_SRH_Get_CODE_Data(int32_t NodeID, char* CodeValue, int32_t CodeValueSize,
                                      char* CodingScheme, int32_t CodingSchemeSize, char* CodeMeaning,
                                      int32_t CodeMeaningSize);

/**
 * Gives the first value of a number, how many values it has, and its unit.
 * @param NodeID  node or item.
 * @param Value  [out] the value as text, cut without notice to what fits; empty where it is null or absent;
 *   untouched after a failure.
 * @param ValueSize  bytes of Value, the NUL counted, 2 or more.
 * @param Count  [out] number of values, 0 for none; untouched after a failure.
 * @param UnitCode,UnitScheme,UnitMeaning  [out] the unit: code, coding scheme and meaning, as for
 *   VX_SRH_Get_Concept_Name; empty where there is none.
 * @param UnitCodeSize,UnitSchemeSize,UnitMeaningSize  bytes of these, the NUL counted, 2 or more.
 * @retval VX_EMPTY_VALUE  the node has no measured value.
 * @retval VX_INCOMPATIBLE_VR  (0040,A300) is no sequence.
 */
VX_API VX_STATUS VX_SRH_Get_NUM_Data(int32_t NodeID, char* Value, int32_t ValueSize, int32_t* Count,
                                     char* UnitCode, int32_t UnitCodeSize, char* UnitScheme,
                                     int32_t UnitSchemeSize, char* UnitMeaning, int32_t UnitMeaningSize);

/**
 * Gives the next value of a number that has several.
 * @param NodeID  node or item.
 * @param Value  [out] the value as text; empty or untouched after a failure other than VX_BUFFER_TOO_SMALL.
 * @param ValueSize  bytes of Value, the NUL counted, 2 or more.
 * @retval VX_NO_MORE_VALUES  all were given.
 * @retval VX_BUFFER_TOO_SMALL  the text was cut to what fits.
 * @retval VX_EMPTY_VALUE  the node has no measured value.
 * @retval VX_INVALID_TAG  the measured value has no number.
 * @retval VX_NULL_VALUE  the value is null.
 */
VX_API VX_STATUS VX_SRH_Get_NUM_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * Gives the qualifier of a number, (0040,A301).
 * @copydetails VX_SRH_Get_Concept_Name
 */
VX_API VX_STATUS VX_SRH_Get_NUM_Qualifier(int32_t NodeID, char* Code, int32_t CodeSize, char* Scheme,
                                          int32_t SchemeSize, char* Meaning, int32_t MeaningSize);

/**
 * Gives the first point of a region of an image, the number of points and the kind of region.
 * What is written is of no meaning after a failure.
 * @param NodeID  node or item.
 * @param X  [out] column of the point, in pixels.
 * @param Y  [out] row of the point.
 * @param Count  [out] number of points.
 * @param SpatialType  [out] one of SRH_SPATIAL_TYPE.
 * @retval VX_INVALID_TAG  the node has no points or no kind; VX_EMPTY_VALUE or VX_NULL_VALUE where an
 *   attribute is empty.
 * @retval VX_NO_MORE_VALUES  there is no whole point.
 * @retval VX_INCOMPATIBLE_VALUE  the kind is not known.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD_First_Data(int32_t NodeID, float* X, float* Y, int32_t* Count,
                                              int32_t* SpatialType);

/**
 * Gives the next point of a region of an image.
 * @param NodeID  node or item.
 * @param X  [out] column of the point, in pixels; of no meaning after a failure.
 * @param Y  [out] row of the point; the same.
 * @retval VX_NO_MORE_VALUES  all were given.
 * @retval VX_INVALID_TAG  the node has no points; VX_EMPTY_VALUE or VX_NULL_VALUE where the attribute is
 *   empty.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD_Next_Data(int32_t NodeID, float* X, float* Y);

/**
 * Gives the first point of a region in space, the number of points and the kind of region.
 * What is written is of no meaning after a failure.
 * @param NodeID  node or item.
 * @param FrameOfReferenceUID  [out] points to the UID of the frame of reference, the node's, which lasts
 *   until the next such call for it or its end; null if it has none.
 * @param Point  [out] the point.
 * @param Count  [out] number of points.
 * @param SpatialType  [out] one of SRH_SPATIAL_TYPE.
 * @retval VX_BUFFER_TOO_SMALL  the UID has 64 characters or more.
 * @return Also the statuses of VX_SRH_Get_SCOORD_First_Data.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD3D_First_Data(int32_t NodeID, char** FrameOfReferenceUID, SRH_XYZ* Point,
                                                int32_t* Count, int32_t* SpatialType);

/**
 * Gives the next point of a region in space.
 * @param NodeID  node or item.
 * @param Point  [out] the point; of no meaning after a failure.
 * @return The statuses of VX_SRH_Get_SCOORD_Next_Data.
 */
VX_API VX_STATUS VX_SRH_Get_SCOORD3D_Next_Data(int32_t NodeID, SRH_XYZ* Point);

/**
 * Gives the first time by the number of a sample, how many times there are, and their kind.
 * What is written is of no meaning after a failure.
 * @param NodeID  node or item.
 * @param Position  [out] number of the sample, from 1.
 * @param Count  [out] number of times.
 * @param TemporalType  [out] one of SRH_TEMPORAL_TYPE.
 * @retval VX_INVALID_TAG  the node has no such times or no kind; VX_EMPTY_VALUE or VX_NULL_VALUE where an
 *   attribute is empty.
 * @retval VX_INCOMPATIBLE_VALUE  the kind is not known.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_R_First_Data(int32_t NodeID, uint32_t* Position, int32_t* Count,
                                                int32_t* TemporalType);

/**
 * Gives the next time by the number of a sample.
 * @param NodeID  node or item.
 * @param Position  [out] number of the sample, from 1; untouched after a failure.
 * @retval VX_NO_MORE_VALUES  all were given.
 * @retval VX_INVALID_TAG  the node has no such times; VX_EMPTY_VALUE or VX_NULL_VALUE where the attribute is
 *   empty.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_R_Next_Data(int32_t NodeID, uint32_t* Position);

/**
 * Gives the first time by its offset in seconds, how many times there are, and their kind.
 * What is written is of no meaning after a failure.
 * @param NodeID  node or item.
 * @param Value  [out] the value as text.
 * @param ValueSize  bytes of Value, the NUL counted, 2 or more.
 * @param Count  [out] number of times.
 * @param TemporalType  [out] one of SRH_TEMPORAL_TYPE.
 * @retval VX_BUFFER_TOO_SMALL  Value was cut to what fits, and TemporalType not read.
 * @retval VX_INVALID_TAG  the node has no such times or no kind; VX_EMPTY_VALUE or VX_NULL_VALUE where an
 *   attribute is empty.
 * @retval VX_INCOMPATIBLE_VALUE  the kind is not known.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_O_First_Data(int32_t NodeID, char* Value, int32_t ValueSize,
                                                int32_t* Count, int32_t* TemporalType);

/**
 * Gives the next time by its offset in seconds.
 * @param NodeID  node or item.
 * @param Value  [out] the value as text; empty after a failure other than VX_BUFFER_TOO_SMALL.
 * @param ValueSize  bytes of Value, the NUL counted, 2 or more.
 * @retval VX_NO_MORE_VALUES  all were given.
 * @retval VX_BUFFER_TOO_SMALL  Value was cut to what fits.
 * @retval VX_INVALID_TAG  the node has no such times; VX_EMPTY_VALUE or VX_NULL_VALUE where the attribute is
 *   empty.
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_O_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * Gives the first time as VR DT has it, how many times there are, and their kind.
 * @copydetails VX_SRH_Get_TCOORD_O_First_Data
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_D_First_Data(int32_t NodeID, char* Value, int32_t ValueSize,
                                                int32_t* Count, int32_t* TemporalType);

/**
 * Gives the next time as VR DT has it.
 * @copydetails VX_SRH_Get_TCOORD_O_Next_Data
 */
VX_API VX_STATUS VX_SRH_Get_TCOORD_D_Next_Data(int32_t NodeID, char* Value, int32_t ValueSize);

/**
 * Gives the UIDs of the object that a node refers to.
 * @param NodeID  node or item.
 * @param SopClassUID,SopInstanceUID  [out] its SOP class UID and SOP instance UID, each cut without notice to
 *   what fits; empty where it can not be read, and after a failure.
 * @param SopClassUIDSize,SopInstanceUIDSize  bytes of these, the NUL counted; 65 are enough.
 * @retval VX_INVALID_TAG  the node has no reference; VX_EMPTY_VALUE or VX_NULL_VALUE where its sequence is
 *   empty.
 * @retval VX_INCOMPATIBLE_VR  (0008,1199) is no sequence.
 */
VX_API VX_STATUS VX_SRH_Get_COMPOSITE_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                           char* SopInstanceUID, int32_t SopInstanceUIDSize);

/**
 * As VX_SRH_Get_COMPOSITE_Data, with the number of frames that are meant.
 * @param Count  [out] the number for VX_SRH_Get_IMAGE_Frames; 0 where none are named, and after a failure.
 * @copydetails VX_SRH_Get_COMPOSITE_Data
 */
VX_API VX_STATUS VX_SRH_Get_IMAGE_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                       char* SopInstanceUID, int32_t SopInstanceUIDSize, int32_t* Count);

/**
 * Gives all frames that an image reference means.
 * @param NodeID  node or item.
 * @param Frames  [out] numbers of the frames, from 1; of no meaning after a failure.
 * @param Capacity  how many Frames can hold; VX_SRH_Get_IMAGE_Data tells the number.
 * @retval VX_BUFFER_TOO_SMALL  there are more than Capacity; nothing was copied.
 * @retval VX_INVALID_TAG  the node has no reference, or it names none; VX_EMPTY_VALUE or VX_NULL_VALUE where
 *   an attribute is empty.
 */
VX_API VX_STATUS VX_SRH_Get_IMAGE_Frames(int32_t NodeID, int32_t* Frames, int32_t Capacity);

/**
 * As VX_SRH_Get_COMPOSITE_Data, with the channels that are meant.
 * @param Count  [out] values for VX_SRH_Get_WAVEFORM_Channels, two for each channel; 0 where none are named,
 *   and after a failure.
 * @copydetails VX_SRH_Get_COMPOSITE_Data
 */
VX_API VX_STATUS VX_SRH_Get_WAVEFORM_Data(int32_t NodeID, char* SopClassUID, int32_t SopClassUIDSize,
                                          char* SopInstanceUID, int32_t SopInstanceUIDSize, int32_t* Count);

/**
 * Gives all channels that a waveform reference means.
 * @param NodeID  node or item.
 * @param Channels  [out] pairs as for VX_SRH_Set_WAVEFORM_Channels; of no meaning after a failure.
 * @param Capacity  how many numbers Channels can hold; VX_SRH_Get_WAVEFORM_Data tells how many there are.
 * @return The statuses of VX_SRH_Get_IMAGE_Frames.
 */
VX_API VX_STATUS VX_SRH_Get_WAVEFORM_Channels(int32_t NodeID, uint16_t* Channels, int32_t Capacity);

/**
 * Gives the continuity and the template of a container.
 * @param NodeID  node or item.
 * @param Continuity  [out] one of SRH_CONTINUITY; -1 where the text is not known, untouched after another
 *   failure.
 * @param TemplateID  [out] the template, cut without notice to what fits; empty where none is named, and
 *   after a failure.
 * @param TemplateIDSize  bytes of TemplateID, the NUL counted; 17 are enough.
 * @retval VX_INVALID_TAG  the node has no continuity; VX_EMPTY_VALUE or VX_NULL_VALUE where it is empty.
 * @retval VX_INCOMPATIBLE_VALUE  the continuity is not known.
 */
VX_API VX_STATUS VX_SRH_Get_CONTAINER_Data(int32_t NodeID, int32_t* Continuity, char* TemplateID,
                                           int32_t TemplateIDSize);

/**
 * Gives the node that a reference leads to, by the place of each step among the items.
 * @param NodeID  node of type SRH_REFERENCE, or the item of one.
 * @param TargetID  [out] the node; 0 after a failure, that of an unknown NodeID too.
 * @retval VX_EMPTY_VALUE  there is no reference.
 * @retval VX_INVALID_SR_ID  the item belongs to no report.
 * @retval VX_VALUE_OUT_OF_RANGE  there is no node at the place.
 */
VX_API VX_STATUS VX_SRH_Get_Reference(int32_t NodeID, int32_t* TargetID);

#ifdef __cplusplus
}
#endif

#endif
