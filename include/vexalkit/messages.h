/** @file
 * DIMSE messages on an association (PS3.7). The conventions stand in vexalkit.h.
 *
 * For every function here holds:
 * - One thread at a time may be inside an association: a second one gets VX_SYSTEM_ERROR at once, with a line
 *   in the log, and the first goes on.
 * - VX_STATE_VIOLATION: the association is waiting to be accepted.
 * - VX_ASSOCIATION_ABORTED: the association is gone, and its ID with it. From the functions that read, every
 *   status of the work means that, unless its text says that the association stands.
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
 * Sends a request, or a C-CANCEL-RQ.
 * It goes on the first accepted context of the message's service, of those with its transfer syntax if one is
 * set. What the command group lacks is filled in: message ID, classes, priority, data set type; group 0002 is
 * taken out. Blocks until the last byte is written; each write waits for WRITE_TIMEOUT at most.
 * @param AssociationID  the association.
 * @param MsgID  the message, which has a service and a command; it stays the application's and may be sent
 *     again.
 * @retval VX_INVALID_MESSAGE_ID  also an object that is no message.
 * @retval VX_UNACCEPTABLE_SERVICE  no context fits; nothing was sent, here and for the next three.
 * @retval VX_MAX_OPERATIONS_EXCEEDED  the operations window is full: responses must be read first.
 * @retval VX_REQUIRED_ATTRIBUTE_MISSING  the command group lacks what the application alone can know; the log
 *     names it.
 * @retval VX_SYSTEM_ERROR  the message has no command that can be sent, or its command group can not be
 *     completed.
 * @return Otherwise a status that VX_Message_To_Stream has for values: part of the message may have gone out,
 *     and the association is best aborted.
 */
VX_API VX_STATUS VX_Send_Request_Message(int32_t AssociationID, int32_t MsgID);

/**
 * Sends a request on the context of an entry of the association's service list.
 * For components of a Meta SOP class, and where several contexts would fit.
 * @param ServiceName  name of the entry's service in the services profile; the first entry with it counts.
 * @copydetails VX_Send_Request_Message
 */
VX_API VX_STATUS VX_Send_Request_Message_For_Service(int32_t AssociationID, int32_t MsgID,
                                                     const char* ServiceName);

/**
 * Sends a response.
 * (0000,0120) names the request that it answers; without a value it is the oldest one that is open. A pending
 * C-FIND, C-GET or C-MOVE response (0xFF00, 0xFF01) leaves the request open. The response goes on the context
 * of the request.
 * @param AssociationID  the association.
 * @param Status  value of (0000,0900); its low 16 bits count.
 * @param MsgID  the message, which has a service and a command; it stays the application's.
 * @retval VX_INVALID_MESSAGE_ID  also an object that is no message.
 * @retval VX_UNACCEPTABLE_SERVICE  no context fits; nothing was sent, here and for the next two.
 * @retval VX_REQUIRED_ATTRIBUTE_MISSING  no request is open, or the command group lacks what the application
 *     alone can know; the log names it.
 * @retval VX_SYSTEM_ERROR  the message has no command that can be sent, or its command group can not be
 *     completed.
 * @return Otherwise a status that VX_Message_To_Stream has for values: part of the message may have gone out,
 *     and the association is best aborted.
 */
VX_API VX_STATUS VX_Send_Response_Message(int32_t AssociationID, uint32_t Status, int32_t MsgID);

/**
 * Sends a C-STORE-RQ whose data set comes from the application as encoded bytes of a file (PS3.10).
 * The service is that of the file's SOP class, or else the first of the service list that fits the file's
 * transfer syntax, in which the bytes go out as they come.
 * @param AssociationID  the association.
 * @param Reserved  not used.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  gives the bytes, called with AssociationID in place of an object and tag 0xFFFFFFFF: with
 *     VX_REQUEST_DATA from the start of the file until the identity of the object is known, then once with
 *     VX_REQUEST_DATA_AT_OFFSET, *DataSize holding the offset to go on from, then with VX_REQUEST_DATA to the
 *     end. It may not call network functions of the association.
 * @retval VX_UNKNOWN_SERVICE  no service is known or fits; nothing was sent, here and for the next three.
 * @retval VX_UNACCEPTABLE_SERVICE  no context fits.
 * @retval VX_MAX_OPERATIONS_EXCEEDED  the operations window is full: responses must be read first.
 * @retval VX_REQUIRED_ATTRIBUTE_MISSING  the file does not tell its SOP instance.
 * @retval VX_SYSTEM_ERROR  Callback failed or refused when part of the message had gone out; the association
 *     is best aborted.
 * @return Otherwise a status of VX_Open_File or of VX_Get_Message_Transfer_Syntax: the start of the file
 *     could not be read, and nothing was sent.
 */
VX_API VX_STATUS VX_Send_Request(int32_t AssociationID, int32_t Reserved, void* UserInfo,
                                 VX_VALUE_CALLBACK Callback);

/**
 * Sends a C-STORE-RQ from the application's bytes for a named service.
 * @param ServiceName  name of the service in the services profile; null as VX_Send_Request.
 * @copydetails VX_Send_Request
 */
VX_API VX_STATUS VX_Send_Request_For_Service(int32_t AssociationID, const char* ServiceName, int32_t Reserved,
                                             void* UserInfo, VX_VALUE_CALLBACK Callback);

/**
 * Tells the message ID (0000,0110) of the request that went out last on an association.
 * Its answers name it; that of VX_Send_Request_For_Service is told nowhere else. Never blocks.
 * @param AssociationID  the association.
 * @param MessageID  [out] the ID.
 * @retval VX_STATE_VIOLATION  no request has gone out.
 */
VX_API VX_STATUS VX_Get_Sent_Message_ID(int32_t AssociationID, uint16_t* MessageID);

/**
 * Reads the next message.
 * Verification requests are answered here when AUTO_ECHO_SUPPORT is on and the service list does not hold
 * that service; the wait then starts anew.
 * @param AssociationID  the association.
 * @param Timeout  seconds to wait for the start of a message: 0 looks once, a negative one waits without a
 *     limit; within a message INACTIVITY_TIMEOUT counts.
 * @param MsgID  [out] a new message, which the application frees with VX_Free_Message; -1 after a failure.
 * @param ServiceName  [out] the message's own text, which lives as long as it; null after a failure.
 * @param Command  [out] the command, for instance C_STORE_RQ; without meaning after a failure.
 * @retval VX_TIMEOUT  nothing came, and the association stands.
 * @retval VX_MUST_CONTINUE_BEFORE_READING  a message has been read in part; the association stands.
 * @retval VX_ASSOCIATION_CLOSED  the peer released the association.
 * @retval VX_ASSOCIATION_ABORTED  the peer or another thread aborted it.
 * @retval VX_NETWORK_SHUT_DOWN  the connection ended.
 * @retval VX_INACTIVITY_TIMEOUT  a message began, and its rest did not come.
 * @retval VX_INVALID_MESSAGE_RECEIVED  what came is no message, or not on a context that was accepted for it.
 * @retval VX_CALLBACK_CANNOT_COMPLY  a value callback of the application refused.
 * @retval VX_SYSTEM_ERROR  reading failed otherwise; the log tells.
 */
VX_API VX_STATUS VX_Read_Message(int32_t AssociationID, int32_t Timeout, int32_t* MsgID,
                                 const char** ServiceName, uint16_t* Command);

/**
 * Reads the next message up to a tag of its data set.
 * @param StopTag  the last tag that is read, from 0x00010000, with which only the command is read.
 * @retval VX_INVALID_TAG  StopTag is below that; the association stands.
 * @copydetails VX_Read_Message
 */
VX_API VX_STATUS VX_Read_Message_To_Tag(int32_t AssociationID, int32_t Timeout, uint32_t StopTag,
                                        int32_t* MsgID, const char** ServiceName, uint16_t* Command);

/**
 * Reads the rest of a message that was read in part.
 * @param AssociationID  the association.
 * @param MsgID  [in,out] the message; becomes -1 where the read fails and the message is gone.
 * @retval VX_INVALID_MESSAGE_ID  it is not the message that was read in part; the association stands.
 * @retval VX_ASSOCIATION_CLOSED,VX_ASSOCIATION_ABORTED,VX_NETWORK_SHUT_DOWN,VX_INACTIVITY_TIMEOUT  as
 *     VX_Read_Message.
 * @retval VX_INVALID_MESSAGE_RECEIVED,VX_CALLBACK_CANNOT_COMPLY,VX_SYSTEM_ERROR  as VX_Read_Message.
 */
VX_API VX_STATUS VX_Continue_Read_Message(int32_t AssociationID, int32_t* MsgID);

/**
 * Reads more of a message that was read in part, up to a tag.
 * @param StopTag  the last tag that is read.
 * @retval VX_INVALID_TAG  the message has been read past it; the association stands.
 * @copydetails VX_Continue_Read_Message
 */
VX_API VX_STATUS VX_Continue_Read_Message_To_Tag(int32_t AssociationID, uint32_t StopTag, int32_t* MsgID);

/**
 * Hands over the rest of a data set as encoded bytes, as they came, instead of decoding it.
 * The message keeps what was read of it before, and the application frees it. Of a deflated data set that was
 * decoded in part the rest comes inflated. If Callback refuses or the network fails, the association is gone,
 * and the message with it.
 * @param AssociationID  the association.
 * @param MsgID  [in,out] the message; becomes -1 where it is gone.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  takes the blocks, of any length, IsFirst and IsLast spanning them all. It may not call
 *     network functions of the association.
 * @retval VX_INVALID_MESSAGE_ID  it is not the message that was read in part, or no request is open, as after
 *     its response; nothing has changed.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Callback refused.
 * @retval VX_ASSOCIATION_CLOSED,VX_ASSOCIATION_ABORTED,VX_NETWORK_SHUT_DOWN,VX_INACTIVITY_TIMEOUT  as
 *     VX_Read_Message.
 * @retval VX_INVALID_MESSAGE_RECEIVED,VX_SYSTEM_ERROR  as VX_Read_Message.
 */
VX_API VX_STATUS VX_Continue_Read_Message_To_Stream(int32_t AssociationID, int32_t* MsgID, void* UserInfo,
                                                    VX_STREAM_OUTPUT Callback);

/**
 * Reads a C-STORE-RQ and hands over a file of it (PS3.10) without the 132 bytes at its head.
 * That is the meta group, then the data set as it came. The library frees the message that stands behind it,
 * whatever happens; its response is due from the application.
 * @param AssociationID  the association.
 * @param Timeout  seconds to wait for the start of a message, as for VX_Read_Message.
 * @param ServiceName  [out] the service, a constant of the configuration; empty if it has none, null where no
 *     message was read.
 * @param Command  [out] the command of the message that was read.
 * @param FileName  name of the file for the log; null makes one.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  takes the blocks, of any length, IsFirst and IsLast spanning them all. It may not call
 *     network functions of the association.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Callback refused: within the data set the association is gone; within
 *     the meta group it stands, and the next read passes over what is left of the message.
 * @retval VX_INVALID_TAG,VX_EMPTY_VALUE,VX_NULL_VALUE  the message has no SOP class or instance; the
 *     association stands.
 * @retval VX_INVALID_MESSAGE_ID  the message has no data set; the association stands.
 * @return Otherwise a status of VX_Read_Message.
 */
VX_API VX_STATUS VX_Read_To_Stream(int32_t AssociationID, int32_t Timeout, const char** ServiceName,
                                   uint16_t* Command, const char* FileName, void* UserInfo,
                                   VX_STREAM_OUTPUT Callback);

#ifdef __cplusplus
}
#endif

#endif
