/** @file
 * Messages and items, their attributes. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_OBJECTS_H
#define VEXALKIT_OBJECTS_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Messages and items -------------------------------------------------------------------------------- */

/**
 * Opens a message without service and command; it takes any attribute that the dictionary knows.
 */
VX_API VX_STATUS VX_Open_Empty_Message(int32_t* MsgID);

/**
 * Opens an item without a name.
 */
VX_API VX_STATUS VX_Open_Empty_Item(int32_t* ItemID);

/**
 * Opens a message with the attributes that its template names; it takes no others. A service that the
 * configuration lacks gives an unrestricted message and normal status. VX_INVALID_COMMAND; VX_MSGFILE_ERROR:
 * the template could not be read.
 */
VX_API VX_STATUS VX_Open_Message(int32_t* MsgID, const char* ServiceName, uint16_t Command);

/**
 * Opens an item with the attributes that its template names; it takes no others. A name that the
 * configuration lacks, and any with FORCE_OPEN_EMPTY_ITEM, gives an unrestricted item and normal status.
 * VX_MSGFILE_ERROR: the template could not be read.
 */
VX_API VX_STATUS VX_Open_Item(int32_t* ItemID, const char* ItemName);

/**
 * Frees a message with its values; MsgID becomes -1. Items that no other sequence references go with it.
 */
VX_API VX_STATUS VX_Free_Message(int32_t* MsgID);

/**
 * Frees an item. One that a sequence references lives on until the last such sequence goes, with normal
 * status.
 */
VX_API VX_STATUS VX_Free_Item(int32_t* ItemID);

/**
 * Clears all values; the attributes stay, private creators apart (EMPTY_PRIVATE_CREATOR_CODES).
 */
VX_API VX_STATUS VX_Empty_Message(int32_t MsgID);

/**
 * The same for an item. VX_INVALID_ITEM_ID.
 */
VX_API VX_STATUS VX_Empty_Item(int32_t ItemID);

/**
 * Replaces service and command. Messages and files only, else VX_INVALID_MESSAGE_ID. VX_INVALID_COMMAND.
 */
VX_API VX_STATUS VX_Set_Service_Command(int32_t MsgID, const char* ServiceName, uint16_t Command);

/**
 * Gives the object's own name string, valid until the object is freed or renamed, and its command.
 */
VX_API VX_STATUS VX_Get_Message_Service(int32_t MsgID, const char** ServiceName, uint16_t* Command);

/**
 * Adds an attribute that the dictionary knows, without a value. VX_INVALID_TAG, VX_TAG_ALREADY_EXISTS.
 */
VX_API VX_STATUS VX_Add_Standard_Attribute(int32_t MsgID, uint32_t Tag);

/**
 * Adds an attribute that the dictionary does not know. VX_INVALID_TAG: it does know it; VX_INVALID_VR_CODE,
 * VX_TAG_ALREADY_EXISTS.
 */
VX_API VX_STATUS VX_Add_Nonstandard_Attribute(int32_t MsgID, uint32_t Tag, VX_VR VR);

/**
 * Takes an attribute out with its values. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Delete_Attribute(int32_t MsgID, uint32_t Tag);

/**
 * Takes out every attribute from FirstTag to LastTag, both included; none is no fault.
 */
VX_API VX_STATUS VX_Delete_Range(int32_t MsgID, uint32_t FirstTag, uint32_t LastTag);

/**
 * Starts to walk the attributes in ascending order. Any output may be null. Count is the number of values, 1
 * for a bulk VR. VX_MESSAGE_EMPTY.
 */
VX_API VX_STATUS VX_Get_First_Attribute(int32_t MsgID, uint32_t* Tag, VX_VR* VR, int32_t* Count);

/**
 * The next attribute of the walk. VX_MESSAGE_EMPTY, VX_NO_MORE_ATTRIBUTES.
 */
VX_API VX_STATUS VX_Get_Next_Attribute(int32_t MsgID, uint32_t* Tag, VX_VR* VR, int32_t* Count);

/**
 * VR and value count of one attribute; the walk goes on behind it. VX_INVALID_TAG.
 */
VX_API VX_STATUS VX_Get_Attribute_Info(int32_t MsgID, uint32_t Tag, VX_VR* VR, int32_t* Count);

/**
 * Changes the VR of an attribute. OB, OW, OL, OD and OF become any VR, their bytes staying as they are: as
 * numbers they are cut to the size of the new VR, as text they are one value; only bytes can not turn into
 * items. US and SS become each other, or OW. UN becomes any VR: its bytes are then read as implicit little
 * endian. VX_INVALID_TAG, VX_INVALID_VR_CODE; VX_VR_ALREADY_VALID: any other change; any status of the
 * decoder for a UN value that does not fit, the value then unchanged.
 */
VX_API VX_STATUS VX_Set_Value_Representation(int32_t MsgID, uint32_t Tag, VX_VR VR);

#ifdef __cplusplus
}
#endif

#endif
