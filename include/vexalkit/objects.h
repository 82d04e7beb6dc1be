/** @file
 * Messages and items, their attributes. The conventions stand in vexalkit.h.
 *
 * With DICOMDIR_STREAM_STORAGE a record of a directory may lie encoded until something of it is wanted. A
 * function of this topic or of values that needs it decodes it first; where that fails, it gives the status
 * of the decoder.
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
 * @param MsgID  [out] its handle; -1 after a failure.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Open_Empty_Message(int32_t* MsgID);

/**
 * Opens an item without a name; it takes any attribute that the dictionary knows.
 * @param ItemID  [out] its handle; -1 after a failure.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Open_Empty_Item(int32_t* ItemID);

/**
 * Opens a message with the attributes that the template of its service and command names.
 * Setting a value adds no others then; VX_Add_Standard_Attribute and its kin do. Where the configuration
 * lacks the service, the message has the command attributes alone and takes any attribute, with normal
 * status.
 * @param MsgID  [out] its handle; -1 after a failure.
 * @param ServiceName  name of the service, copied.
 * @param Command  one of the DIMSE commands, C_STORE_RQ for instance.
 * @retval VX_INVALID_COMMAND  there is no such command.
 * @retval VX_MSGFILE_ERROR  the template could not be read.
 */
VX_API VX_STATUS VX_Open_Message(int32_t* MsgID, const char* ServiceName, uint16_t Command);

/**
 * Opens an item with the attributes that the template of its name names.
 * Setting a value adds no others then; VX_Add_Standard_Attribute and its kin do. Where the configuration
 * lacks the name, or FORCE_OPEN_EMPTY_ITEM is on, the item is empty and takes any attribute, with normal
 * status.
 * @param ItemID  [out] its handle; -1 after a failure.
 * @param ItemName  name of the item, copied.
 * @retval VX_MSGFILE_ERROR  the template could not be read.
 */
VX_API VX_STATUS VX_Open_Item(int32_t* ItemID, const char* ItemName);

/**
 * Frees a message with its values.
 * Items that no other sequence references go with it. Frees a file just as well, and an item as VX_Free_Item
 * does.
 * @param MsgID  [in,out] the handle; -1 afterwards, untouched after a failure.
 * @retval VX_INVALID_MESSAGE_ID  also for the object of a report, which VX_SRH_Free_SR frees.
 */
VX_API VX_STATUS VX_Free_Message(int32_t* MsgID);

/**
 * Frees an item. One that a sequence references lives on under its number until the last such sequence lets
 * it go, and the status is normal all the same.
 * @param ItemID  [in,out] the handle; -1 afterwards, untouched after a failure.
 * @retval VX_INVALID_ITEM_ID  also for the object of a report, which VX_SRH_Free_SR frees.
 */
VX_API VX_STATUS VX_Free_Item(int32_t* ItemID);

/**
 * Clears all values of a message.
 * The attributes stay, private creators apart: these go if EMPTY_PRIVATE_CREATOR_CODES is on, else they keep
 * their values. Items that no other sequence references are freed.
 * @param MsgID  message.
 * @retval VX_INVALID_MESSAGE_ID  also for an item or a file.
 */
VX_API VX_STATUS VX_Empty_Message(int32_t MsgID);

/**
 * Clears all values of an item, as VX_Empty_Message those of a message.
 * @param ItemID  item.
 * @retval VX_INVALID_ITEM_ID  also for a message or a file.
 */
VX_API VX_STATUS VX_Empty_Item(int32_t ItemID);

/**
 * Replaces the service and the command of a message or file.
 * The attributes stay as they are. A service name that begins with DICOMDIR makes the object a directory; any
 * other makes a directory a file, without its records.
 * @param MsgID  message or file.
 * @param ServiceName  copied; the configuration may lack it.
 * @param Command  one of the DIMSE commands.
 * @retval VX_INVALID_COMMAND  there is no such command.
 * @retval VX_INVALID_MESSAGE_ID  also for an item.
 */
VX_API VX_STATUS VX_Set_Service_Command(int32_t MsgID, const char* ServiceName, uint16_t Command);

/**
 * Tells the service and the command of a message or file.
 * @param MsgID  message or file.
 * @param ServiceName  [out] the object's own text, valid until it is freed or its service replaced; MOUSE for
 *   an object without a service.
 * @param Command  [out] the command; 65535 for none.
 * @retval VX_INVALID_MESSAGE_ID  also for an item.
 */
VX_API VX_STATUS VX_Get_Message_Service(int32_t MsgID, const char** ServiceName, uint16_t* Command);

/**
 * Adds an attribute that the dictionary knows, with the VR from there and without a value.
 * @param MsgID  message, item or file.
 * @param Tag  its tag.
 * @retval VX_INVALID_TAG  the dictionary lacks it.
 * @retval VX_TAG_ALREADY_EXISTS  the object has it, and it stays as it is.
 */
VX_API VX_STATUS VX_Add_Standard_Attribute(int32_t MsgID, uint32_t Tag);

/**
 * Adds an attribute that the dictionary does not know, without a value.
 * @param MsgID  message, item or file.
 * @param Tag  its tag; a private one is looked for without a creator code, and so is not known.
 * @param VR  its VR.
 * @retval VX_INVALID_TAG  the dictionary knows it, or its group is FFFE.
 * @retval VX_INVALID_VR_CODE  there is no such VR.
 * @retval VX_TAG_ALREADY_EXISTS  the object has it, and it stays as it is.
 */
VX_API VX_STATUS VX_Add_Nonstandard_Attribute(int32_t MsgID, uint32_t Tag, VX_VR VR);

/**
 * Takes an attribute out with its values.
 * Items that no other sequence references are freed. A walk that would give this attribute next starts over.
 * @param MsgID  message, item or file.
 * @param Tag  its tag.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 */
VX_API VX_STATUS VX_Delete_Attribute(int32_t MsgID, uint32_t Tag);

/**
 * Takes out every attribute of a range, as VX_Delete_Attribute; none is no fault.
 * @param MsgID  message, item or file.
 * @param FirstTag  the least tag that goes.
 * @param LastTag  the greatest tag that goes.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Delete_Range(int32_t MsgID, uint32_t FirstTag, uint32_t LastTag);

/**
 * Starts a walk over the attributes in ascending order, and gives the first. An object has one walk.
 * @param MsgID  message, item or file.
 * @param Tag  [out] its tag; may be null, as the next two.
 * @param VR  [out] its VR.
 * @param Count  [out] the number of its values; 1 for a bulk VR, with or without a value.
 * @retval VX_MESSAGE_EMPTY  the object has no attribute; nothing is written.
 */
VX_API VX_STATUS VX_Get_First_Attribute(int32_t MsgID, uint32_t* Tag, VX_VR* VR, int32_t* Count);

/**
 * Gives the next attribute of the walk.
 * @retval VX_NO_MORE_ATTRIBUTES  the walk is at its end, and stays there; nothing is written.
 * @copydetails VX_Get_First_Attribute
 */
VX_API VX_STATUS VX_Get_Next_Attribute(int32_t MsgID, uint32_t* Tag, VX_VR* VR, int32_t* Count);

/**
 * Tells VR and value count of one attribute; the walk goes on behind it.
 * @param MsgID  message, item or file.
 * @param Tag  its tag.
 * @param VR  [out] its VR; may be null.
 * @param Count  [out] the number of its values; 1 for a bulk VR, with or without a value. May be null.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 */
VX_API VX_STATUS VX_Get_Attribute_Info(int32_t MsgID, uint32_t Tag, VX_VR* VR, int32_t* Count);

/**
 * Changes the VR of an attribute.
 * - OB, OW, OL, OD and OF become any VR, their bytes staying as they are: as numbers they are cut to the size
 *   of the new VR, as text they are one value. Only bytes can not turn into items.
 * - US and SS become each other, or OW.
 * - UN becomes any VR: its bytes are then read as implicit little endian.
 *
 * The value cursor is put in front of the first value.
 * @param MsgID  message, item or file.
 * @param Tag  its tag.
 * @param VR  the new VR.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INVALID_VR_CODE  there is no such VR.
 * @retval VX_VR_ALREADY_VALID  any other change; nothing is changed.
 * @retval VX_TEMP_FILE_ERROR  a value on a temporary file could not be read.
 * @return or any status of VX_Stream_To_Message for a UN value that does not fit; it is then unchanged.
 */
VX_API VX_STATUS VX_Set_Value_Representation(int32_t MsgID, uint32_t Tag, VX_VR VR);

#ifdef __cplusplus
}
#endif

#endif
