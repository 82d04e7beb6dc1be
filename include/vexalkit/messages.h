/** @file
 * DIMSE messages on an association (PS3.7). The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_MESSAGES_H
#define VEXALKIT_MESSAGES_H

#include "streams.h"
#include "values.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Messages on an association (PS3.7) ---------------------------------------------------------------- */

/**
 * One thread at a time may be inside an association: a second one gets VX_SYSTEM_ERROR at once, with a line
 * in the log. VX_ASSOCIATION_ABORTED, VX_ASSOCIATION_CLOSED (the peer released it), VX_NETWORK_SHUT_DOWN,
 * VX_INACTIVITY_TIMEOUT, VX_INVALID_MESSAGE_RECEIVED and, from the functions that read, VX_SYSTEM_ERROR and
 * VX_CALLBACK_CANNOT_COMPLY mean that the association is gone. All give VX_INVALID_ASSOCIATION_ID, and
 * VX_STATE_VIOLATION while an association is waiting to be accepted.
 */

/**
 * Sends a request, or a C-CANCEL-RQ, on the first accepted context of the message's service that fits its
 * transfer syntax, if one is set. Fills what the command group lacks: message ID, classes, priority, data set
 * type. Blocks until the last byte is written; each write waits for WRITE_TIMEOUT at most. The message stays
 * the application's and may be sent again. VX_INVALID_MESSAGE_ID; VX_UNACCEPTABLE_SERVICE: no context fits;
 * VX_MAX_OPERATIONS_EXCEEDED: the operations window is full; VX_REQUIRED_ATTRIBUTE_MISSING; VX_SYSTEM_ERROR.
 * After these the association stands as before.
 */
VX_API VX_STATUS VX_Send_Request_Message(int32_t AssociationID, int32_t MsgID);

/**
 * The same on the context of an entry of the association's service list, for components of a Meta SOP class
 * and where several contexts would fit.
 */
VX_API VX_STATUS VX_Send_Request_Message_For_Service(int32_t AssociationID, int32_t MsgID,
                                                     const char* ServiceName);

/**
 * Sends a response with the low 16 bits of Status. (0000,0120) names the request that it answers; without a
 * value it is the oldest one that is open. A pending C-FIND, C-GET or C-MOVE response (0xFF00, 0xFF01) leaves
 * the request open. Statuses as above.
 */
VX_API VX_STATUS VX_Send_Response_Message(int32_t AssociationID, uint32_t Status, int32_t MsgID);

/**
 * Sends a C-STORE-RQ whose data set comes from the application as encoded bytes of a file (PS3.10), in the
 * transfer syntax of the context. Callback(AssociationID, tag 0xFFFFFFFF, UserInfo, ...) is asked with
 * VX_REQUEST_DATA from the start of the file until the identity of the object is known, then once with
 * VX_REQUEST_DATA_AT_OFFSET, *DataSize holding the offset to go on from, then with VX_REQUEST_DATA to the
 * end. It may not call network functions of the association. VX_UNKNOWN_SERVICE, VX_SYSTEM_ERROR, the
 * statuses of VX_Open_File and those above.
 */
VX_API VX_STATUS VX_Send_Request(int32_t AssociationID, int32_t Reserved, void* UserInfo,
                                 VX_VALUE_CALLBACK Callback);

/**
 * The same for a named service; null as VX_Send_Request.
 */
VX_API VX_STATUS VX_Send_Request_For_Service(int32_t AssociationID, const char* ServiceName, int32_t Reserved,
                                             void* UserInfo, VX_VALUE_CALLBACK Callback);

/**
 * Reads the next message into a new one, which the application frees. Timeout is in seconds: 0 looks once, a
 * negative one waits without a limit; within a message INACTIVITY_TIMEOUT counts. ServiceName is the
 * message's own text and lives as long as it. VX_TIMEOUT: nothing came, and the association stands.
 * VX_MUST_CONTINUE_BEFORE_READING: a message has been read in part. Verification requests are answered here
 * when AUTO_ECHO_SUPPORT is on and the service list does not hold that service; the wait then starts anew.
 */
VX_API VX_STATUS VX_Read_Message(int32_t AssociationID, int32_t Timeout, int32_t* MsgID,
                                 const char** ServiceName, uint16_t* Command);

/**
 * The same up to a tag of the data set, which is the last one read. With 0x00010000 only the command is read.
 * VX_INVALID_TAG below that.
 */
VX_API VX_STATUS VX_Read_Message_To_Tag(int32_t AssociationID, int32_t Timeout, uint32_t StopTag,
                                        int32_t* MsgID, const char** ServiceName, uint16_t* Command);

/**
 * Reads the rest of a message; when it fails, *MsgID becomes -1. VX_INVALID_MESSAGE_ID: it is not one that
 * was read in part.
 */
VX_API VX_STATUS VX_Continue_Read_Message(int32_t AssociationID, int32_t* MsgID);

/**
 * The same up to a tag. VX_INVALID_TAG: the message has been read past it.
 */
VX_API VX_STATUS VX_Continue_Read_Message_To_Tag(int32_t AssociationID, uint32_t StopTag, int32_t* MsgID);

/**
 * Hands over the rest of the data set as encoded bytes, as they came, instead of decoding it: the message
 * keeps what was read of it before, and the application frees it. Of a deflated data set that was decoded in
 * part the rest comes inflated. The blocks are of any length; IsFirst and IsLast span them all. The callback
 * returns VX_NORMAL_COMPLETION to go on, and may not call network functions of the association. If it
 * refuses, VX_CALLBACK_CANNOT_COMPLY, and if the network fails, the message is freed, *MsgID is -1 and the
 * association is gone. VX_INVALID_MESSAGE_ID: there is nothing to go on with, or the request was answered;
 * nothing has changed then.
 */
VX_API VX_STATUS VX_Continue_Read_Message_To_Stream(int32_t AssociationID, int32_t* MsgID, void* UserInfo,
                                                    VX_STREAM_OUTPUT Callback);

/**
 * Reads a C-STORE-RQ and hands over a file of it (PS3.10) without the 132 bytes at its head: the meta group,
 * then the data set as it came. FileName null makes one; it is only for the log. ServiceName is a constant of
 * the configuration. The library frees the message that stands behind it, whatever happens; its response is
 * due from the application. If the callback refuses, VX_CALLBACK_CANNOT_COMPLY: within the data set the
 * association is gone then; within the meta group it stands, and the next read passes over what is left of
 * the message. Otherwise as VX_Read_Message and VX_Continue_Read_Message_To_Stream.
 */
VX_API VX_STATUS VX_Read_To_Stream(int32_t AssociationID, int32_t Timeout, const char** ServiceName,
                                   uint16_t* Command, const char* FileName, void* UserInfo,
                                   VX_STREAM_OUTPUT Callback);

#ifdef __cplusplus
}
#endif

#endif
