/** @file
 * Associations: negotiation, requesting, accepting, listening, secure channels. The conventions stand in
 * vexalkit.h.
 */
#ifndef VEXALKIT_ASSOCIATIONS_H
#define VEXALKIT_ASSOCIATIONS_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Negotiation (PS3.7 annex D.3) --------------------------------------------------------------------- */

enum {
  VX_NO_ROLE = 0xFF,   /* no SCP/SCU role selection */
  VX_NO_WINDOW = 65535 /* no asynchronous operations window */
};

/* ---- Types --------------------------------------------------------------------------------------------- */

/**
 * A secure channel of the caller's making, used in place of plain reads and writes. The library copies the
 * table, not what it points to. The socket is connected and non-blocking, and stays the library's; Role is 0
 * on the side that connected and 1 on the side that accepted; time-outs are in seconds.
 */
typedef struct SS_Functions {
  /* Makes the channel. 0: it stands; anything else fails the connection. */
  int32_t (*SS_Open)(int32_t Socket, int32_t Role, void* ApplicationContext, void** SecureContext);
  /* Reads Length bytes, or fewer if no more are at hand. 0: *Count bytes came; 2: nothing came in time; else
   * failure.
   */
  int32_t (*SS_Read)(void* SecureContext, void* ApplicationContext, void* Buffer, uint32_t Length,
                     uint32_t* Count, int32_t Timeout);
  /* Writes all Length bytes. 0: done; 2: the peer took too long; else failure. */
  int32_t (*SS_Write)(void* SecureContext, void* ApplicationContext, const void* Buffer, uint32_t Length,
                      uint32_t* Count, int32_t Timeout);
  /* Called once, before the socket is closed. */
  void (*SS_Close)(void* SecureContext, void* ApplicationContext);
} SS_Functions;

/* ---- Records of associations --------------------------------------------------------------------------- */

/** What VX_Get_Association_Info tells. */
typedef struct AssocInfo {
  uint32_t NumberOfProposedContexts;
  uint32_t NumberOfAcceptedContexts;
  char RemoteApplicationTitle[20];
  char RemoteHostName[66];
  int32_t Socket; /* the library's; for waiting on it only */
  char RemoteIPAddress[66];
  char LocalApplicationTitle[20];
  char RemoteImplementationClassUID[66];
  char RemoteImplementationVersion[20];
  uint32_t LocalMaximumPDUSize;
  uint32_t RemoteMaximumPDUSize; /* 0: no limit */
  uint16_t MaxOperationsInvoked; /* 1 when no window was negotiated; 0: no limit */
  uint16_t MaxOperationsPerformed;
  int32_t UserIdentityType; /* 0 none, 1 user name, 2 user name and passcode, 3 Kerberos, 4 SAML */
  uint8_t PositiveResponseRequested;
  uint8_t PositiveResponseReceived;
} AssocInfo;

typedef struct RelatedClass {
  char ServiceName[50]; /* empty for a SOP class without a service */
  char SopClassUid[66];
} RelatedClass;

/** What VX_Get_First_Acceptable_Service and its twin tell. */
typedef struct ServiceInfo {
  char ServiceName[52];
  VX_TRANSFER_SYNTAX SyntaxType; /* the accepted one */
  int32_t RoleNegotiated;        /* of this side: 0 SCU, 1 SCP, 2 both */
  int32_t PresentationContextId;
  char SopClassUid[66];
  char BaseServiceClassUid[66]; /* of common extended negotiation */
  int32_t RelatedClassCount;
  RelatedClass RelatedClasses[10];
} ServiceInfo;

typedef int32_t USER_IDENTITY_FIELD_TYPE;
enum { VX_PRIMARY_FIELD = 0, VX_SECONDARY_FIELD = 1, VX_SERVER_RESPONSE = 2 };

/* ---- Service lists and negotiation data (PS3.8 section 7.1, PS3.7 annex D.3) --------------------------- */

/**
 * Names a list of transfer syntaxes, best first; the array ends with 0. VX_DUPLICATE_NAME: the name exists,
 * in memory or in the applications profile; VX_DUPLICATE_SYNTAX; VX_EMPTY_LIST; VX_SYSTEM_ERROR: a syntax
 * without a UID, a name of more than 33 bytes, or no memory.
 */
VX_API VX_STATUS VX_NewSyntaxList(const char* SyntaxListName, const VX_TRANSFER_SYNTAX* Syntaxes);

/**
 * Names a service with what it is proposed or accepted with: a syntax list (null: the four uncompressed
 * syntaxes) and the roles of this side, 0 or 1 each, or VX_NO_ROLE in both for no role selection.
 * VX_DUPLICATE_NAME; VX_INVALID_SOP_CLASS_UID: the service is not in the services profile; VX_SYSTEM_ERROR:
 * a null or too long Name (129 bytes), an unknown syntax list, or no memory.
 */
VX_API VX_STATUS VX_NewServiceFromName(const char* Name, const char* ServiceName, const char* SyntaxListName,
                                       uint8_t SCURole, uint8_t SCPRole);

/**
 * The same for the service with this SOP class UID.
 */
VX_API VX_STATUS VX_NewServiceFromUID(const char* Name, const char* Uid, const char* SyntaxListName,
                                      uint8_t SCURole, uint8_t SCPRole);

/**
 * The same with extended negotiation data (PS3.7 section D.3.3.5), which is copied.
 */
VX_API VX_STATUS VX_NewServiceWithExtInfoFromName(const char* Name, const char* ServiceName,
                                                  const char* SyntaxListName, uint8_t SCURole,
                                                  uint8_t SCPRole, const void* ExtInfo,
                                                  uint32_t ExtInfoLength);

/**
 * The same for the service with this SOP class UID.
 */
VX_API VX_STATUS VX_NewServiceWithExtInfoFromUID(const char* Name, const char* Uid,
                                                 const char* SyntaxListName, uint8_t SCURole, uint8_t SCPRole,
                                                 const void* ExtInfo, uint32_t ExtInfoLength);

/**
 * Names a service list, made of named services in the order of proposal; the array ends with a null pointer.
 * The list keeps copies of them. VX_DUPLICATE_NAME: the list exists, in memory or in the applications
 * profile, or a service comes twice; VX_MISSING_NAME: an unknown service; VX_SYSTEM_ERROR: an empty list or
 * name, or no memory.
 */
VX_API VX_STATUS VX_NewProposedServiceList(const char* ServiceListName, const char* const* ServiceNames);

/**
 * The same with an asynchronous operations window (PS3.7 section D.3.3.3): operations in flight that this
 * side may invoke and perform; 0 is no limit, 1 and 1 negotiate no window.
 */
VX_API VX_STATUS VX_NewProposedServiceListAsync(const char* ServiceListName, const char* const* ServiceNames,
                                                uint16_t MaxOperationsInvoked,
                                                uint16_t MaxOperationsPerformed);

/**
 * Frees a service list; no open association may use it. VX_INVALID_SERVICE_LIST_NAME; VX_SYSTEM_ERROR for
 * null.
 */
VX_API VX_STATUS VX_FreeServiceList(const char* ServiceListName);

/**
 * Frees a named service; lists made from it keep their copies. VX_INVALID_SERVICE_NAME; VX_SYSTEM_ERROR for
 * null.
 */
VX_API VX_STATUS VX_FreeService(const char* Name);

/**
 * Frees a syntax list. VX_INVALID_SYNTAX_NAME; VX_SYNTAX_IN_USE: a named service uses it; VX_SYSTEM_ERROR for
 * null.
 */
VX_API VX_STATUS VX_FreeSyntaxList(const char* SyntaxListName);

/**
 * Extended negotiation data that an application proposes, or answers with, for a service whose list has none;
 * copied, and replaced by a later call. VX_INVALID_APPLICATION_ID, VX_UNKNOWN_SERVICE, VX_SYSTEM_ERROR.
 */
VX_API VX_STATUS VX_Set_Negotiation_Info(int32_t ApplicationID, const char* ServiceName, const void* Data,
                                         uint32_t Length);

/**
 * Takes the data away again. VX_INVALID_APPLICATION_ID, VX_UNKNOWN_SERVICE, VX_NO_INFO_REGISTERED.
 */
VX_API VX_STATUS VX_Clear_Negotiation_Info(int32_t ApplicationID, const char* ServiceName);

/* ---- Listening ports ----------------------------------------------------------------------------------- */

/**
 * The socket that listens on TCPIP_LISTEN_PORT, which starts to listen if it does not yet. It stays the
 * library's: it is for waiting on it. VX_SYSTEM_ERROR: it can not listen.
 */
VX_API VX_STATUS VX_Get_Listen_Socket(int32_t* Socket);

/**
 * The socket of a port that a wait function has opened. VX_INVALID_PORT_NUMBER: there is none.
 */
VX_API VX_STATUS VX_Get_Listen_Socket_For_Port(int32_t Port, int32_t* Socket);

/**
 * Ends listening on a port; a thread that waits on it gets VX_TIMEOUT. Associations that were accepted on it
 * go on. VX_INVALID_PORT_NUMBER: the library does not listen there.
 */
VX_API VX_STATUS VX_Close_Listen_Port(int32_t Port);

/**
 * The same for the port on one local address, or on all addresses. Address may be null.
 */
VX_API VX_STATUS VX_Close_Listen_Port_On_Address(int32_t Port, const char* Address);

/* ---- Accepting associations (PS3.8 section 7.1) -------------------------------------------------------- */

/**
 * Waits for an association on the default port and makes the automatic checks: protocol version, application
 * context, called title, host name and presentation contexts, which are taken from ServiceList in its order.
 * A request that fails them is rejected, and the wait goes on; so it does after an association that is for
 * verification only, which the library serves itself unless the list holds the service. Timeout is in
 * seconds: -1 waits without end, 0 looks once. *ApplicationID is the application of the called title, or the
 * first one. The caller answers with VX_Accept_Association or VX_Reject_Association; until then the reports
 * on the association work.
 *
 * VX_NO_APPLICATIONS_REGISTERED; VX_INVALID_SERVICE_LIST_NAME; VX_TIMEOUT; VX_SYSTEM_CALL_INTERRUPTED;
 * VX_NEGOTIATION_ABORTED: a connection came and ended before its request was complete, or the port can not be
 * had. The listening port stays open between calls. Several threads may wait on one port.
 */
VX_API VX_STATUS VX_Wait_For_Association(const char* ServiceList, int32_t Timeout, int32_t* ApplicationID,
                                         int32_t* AssociationID);

/**
 * The same on a port, which is opened on first use, for one application; -1 is any.
 * VX_INVALID_APPLICATION_ID; VX_INVALID_PORT_NUMBER.
 */
VX_API VX_STATUS VX_Wait_For_Association_On_Port(const char* ServiceList, int32_t Timeout,
                                                 int32_t ApplicationID, int32_t Port, int32_t* AssociationID);

/**
 * The same on one local address. A null Address means all of them, and then a Port below 1 the default one.
 */
VX_API VX_STATUS VX_Wait_For_Association_On_Address(const char* ServiceList, int32_t Timeout,
                                                    int32_t ApplicationID, int32_t Port, const char* Address,
                                                    int32_t* AssociationID);

/**
 * The three again through a secure channel of the caller's. VX_NULL_VALUE: a slot of Functions is null.
 */
VX_API VX_STATUS VX_Wait_For_Secure_Association(const char* ServiceList, int32_t Timeout,
                                                int32_t* ApplicationID, int32_t* AssociationID,
                                                const SS_Functions* Functions, void* ApplicationContext);
VX_API VX_STATUS VX_Wait_For_Secure_Association_On_Port(const char* ServiceList, int32_t Timeout,
                                                        int32_t ApplicationID, int32_t Port,
                                                        int32_t* AssociationID, const SS_Functions* Functions,
                                                        void* ApplicationContext);
VX_API VX_STATUS VX_Wait_For_Secure_Association_On_Address(const char* ServiceList, int32_t Timeout,
                                                           int32_t ApplicationID, int32_t Port,
                                                           const char* Address, int32_t* AssociationID,
                                                           const SS_Functions* Functions,
                                                           void* ApplicationContext);

/**
 * Takes the association request from a socket that was accepted, by VX_Wait_For_Connection for instance, and
 * that is the library's from then on, whatever the result. The request must come within ARTIM_TIMEOUT. As
 * VX_Wait_For_Association, but what would make that wait go on ends the call: VX_ASSOCIATION_REJECTED: the
 * checks have rejected the request; VX_ASSOCIATION_CLOSED: it was for verification, and it is over.
 */
VX_API VX_STATUS VX_Process_Association_Request(int32_t Socket, const char* ServiceList,
                                                int32_t* ApplicationID, int32_t* AssociationID);
VX_API VX_STATUS VX_Process_Secure_Association_Request(int32_t Socket, const char* ServiceList,
                                                       int32_t* ApplicationID, int32_t* AssociationID,
                                                       const SS_Functions* Functions,
                                                       void* ApplicationContext);

/**
 * Waits for a connection on the default port, on a port, or on a port of one local address, and hands its
 * socket over: the caller's, non-blocking, with the configured options, until VX_Process_Association_Request
 * takes it. VX_TIMEOUT; VX_INVALID_PORT_NUMBER; VX_NEGOTIATION_ABORTED; VX_SYSTEM_ERROR: the port can not be
 * had.
 */
VX_API VX_STATUS VX_Wait_For_Connection(int32_t Timeout, int32_t* Socket);
VX_API VX_STATUS VX_Wait_For_Connection_On_Port(int32_t Timeout, int32_t Port, int32_t* Socket);
VX_API VX_STATUS VX_Wait_For_Connection_On_Address(int32_t Timeout, int32_t Port, const char* Address,
                                                   int32_t* Socket);

/**
 * Accepts a pending association; messages may follow, and the reports on the request are over. Extended
 * negotiation data goes back only as the application has set it. VX_NO_REQUEST_PENDING;
 * VX_ASSOCIATION_ABORTED: the answer could not be sent, and the association is gone.
 */
VX_API VX_STATUS VX_Accept_Association(int32_t AssociationID);

/**
 * The same with a positive answer to the peer's user identity; a response is for the types 3 (Kerberos), 4
 * (SAML) and 5 (JSON Web Token) and may be null with length 0 otherwise. VX_STATE_VIOLATION: the request held
 * no identity, or asked for no answer, or its type takes no response. PS3.7 section D.3.3.7.
 */
VX_API VX_STATUS VX_Accept_Association_With_Identity(int32_t AssociationID, const void* ServerResponse,
                                                     uint16_t ServerResponseLength);

/**
 * Rejects a pending association, waits for the peer to close, at most ARTIM_TIMEOUT, and frees it; the ID is
 * dead. Reasons: 1 no reason, transient; 2 calling title not recognized; 3 congestion, 4 local limit
 * exceeded, both transient; 5 called title not recognized; 6 application context not supported; 7 to 15
 * further ones of PS3.8 table 9-21, of which some only close the connection; any other: no reason.
 * VX_NO_REQUEST_PENDING.
 */
VX_API VX_STATUS VX_Reject_Association(int32_t AssociationID, int32_t Reason);

/* ---- Associations (PS3.8 section 7) -------------------------------------------------------------------- */

/**
 * Opens an association as requester: resolves the remote application, connects within CONNECT_TIMEOUT,
 * proposes the service list, and waits for the answer for ASSOC_REPLY_TIMEOUT seconds. Port, host and list
 * that are null come from the applications profile. AssociationID is -1 after a failure.
 *
 * VX_INVALID_APPLICATION_ID, VX_INVALID_PORT_NUMBER, VX_INVALID_SERVICE_LIST_NAME, VX_INVALID_HOST_NAME (more
 * than 39 bytes), VX_INVALID_APPLICATION_TITLE (1 to 16 bytes); VX_CONFIG_INFO_MISSING: the remote
 * application or the list is not configured; VX_CONFIG_INFO_ERROR: a list of more than 128 services;
 * VX_ASSOCIATION_REJECTED: by the peer, or its answer was not acceptable (the log tells);
 * VX_CONNECTION_FAILED; VX_UNKNOWN_HOST_NAME; VX_NEGOTIATION_ABORTED: anything else that ended the
 * negotiation; VX_SYSTEM_ERROR.
 */
VX_API VX_STATUS VX_Open_Association(int32_t ApplicationID, int32_t* AssociationID,
                                     const char* RemoteApplicationTitle, const int32_t* RemotePort,
                                     const char* RemoteHost, const char* ServiceList);

/**
 * The same through a secure channel, whose functions are copied. VX_NULL_VALUE: one of them is missing.
 */
VX_API VX_STATUS VX_Open_Secure_Association(int32_t ApplicationID, int32_t* AssociationID,
                                            const char* RemoteApplicationTitle, const int32_t* RemotePort,
                                            const char* RemoteHost, const char* ServiceList,
                                            const SS_Functions* Functions, void* ApplicationContext);

/**
 * The same with a user identity (PS3.7 section D.3.3.7); Functions null: a plain connection.
 * VX_CONFIG_INFO_MISSING also when the fields do not fit the type: a user name (1), a Kerberos ticket (3) or
 * a SAML assertion (4) go in the primary field alone, a passcode (2) in the secondary one.
 */
VX_API VX_STATUS VX_Open_Association_With_Identity(
    int32_t ApplicationID, int32_t* AssociationID, const char* RemoteApplicationTitle,
    const int32_t* RemotePort, const char* RemoteHost, const char* ServiceList, const SS_Functions* Functions,
    void* ApplicationContext, int32_t UserIdentityType, uint8_t PositiveResponseRequested,
    const void* PrimaryField, uint16_t PrimaryLength, const void* SecondaryField, uint16_t SecondaryLength);

/**
 * Releases an association, waiting for the answer for RELEASE_TIMEOUT seconds; AssociationID becomes -1.
 * VX_INVALID_ASSOCIATION_ID; VX_SYSTEM_ERROR: another thread is inside the association;
 * VX_ASSOCIATION_ABORTED: the release failed, and the association is gone all the same.
 */
VX_API VX_STATUS VX_Close_Association(int32_t* AssociationID);

/**
 * Aborts an association; AssociationID becomes -1. The one function that may be called while another thread
 * is inside the association: that thread's call then ends within about a second with VX_ASSOCIATION_ABORTED.
 * VX_INVALID_ASSOCIATION_ID.
 */
VX_API VX_STATUS VX_Abort_Association(int32_t* AssociationID);

/**
 * Reports on an association: from the open or the wait on, until the first message is sent or the association
 * is accepted. Never blocks. VX_INVALID_ASSOCIATION_ID; VX_STATE_VIOLATION: too late.
 */
VX_API VX_STATUS VX_Get_Association_Info(int32_t AssociationID, AssocInfo* Info);

/**
 * The first accepted service of an association, in the order of proposal; as long as VX_Get_Association_Info.
 * VX_END_OF_LIST, VX_INVALID_ASSOCIATION_ID, VX_STATE_VIOLATION, VX_SYSTEM_ERROR.
 */
VX_API VX_STATUS VX_Get_First_Acceptable_Service(int32_t AssociationID, ServiceInfo* Info);

/**
 * The next one.
 */
VX_API VX_STATUS VX_Get_Next_Acceptable_Service(int32_t AssociationID, ServiceInfo* Info);

/**
 * On a pending association: replaces the extended negotiation data that is answered for a service for which
 * the peer sent some. VX_INVALID_ASSOCIATION_ID, VX_NO_REQUEST_PENDING, VX_UNKNOWN_SERVICE,
 * VX_VALUE_TOO_LARGE above 65535 bytes.
 */
VX_API VX_STATUS VX_Set_Negotiation_Info_For_Association(int32_t AssociationID, const char* ServiceName,
                                                         const void* Data, uint32_t Length);

/**
 * The extended negotiation data of the peer for a service: a pointer into the association, valid as long as
 * VX_Get_Association_Info works. VX_INVALID_ASSOCIATION_ID, VX_UNKNOWN_SERVICE, VX_EXT_INFO_UNAVAILABLE.
 */
VX_API VX_STATUS VX_Get_Negotiation_Info(int32_t AssociationID, const char* ServiceName, const void** Data,
                                         uint32_t* Length);

/**
 * The service of the Meta SOP class under which the last request came. VX_BUFFER_TOO_SMALL,
 * VX_INVALID_ASSOCIATION_ID; VX_NOT_META_SOP; VX_NOT_FOUND: no request is open.
 */
VX_API VX_STATUS VX_Get_Meta_ServiceName(int32_t AssociationID, char* Buffer, int32_t BufferSize);

/**
 * The length of a field of the user identity, 0 if there is none; as long as VX_Get_Association_Info.
 * VX_INVALID_ASSOCIATION_ID, VX_STATE_VIOLATION; VX_SYSTEM_ERROR for another field.
 */
VX_API VX_STATUS VX_Get_User_Identity_Length(int32_t AssociationID, USER_IDENTITY_FIELD_TYPE Field,
                                             uint16_t* Length);

/**
 * Copies a field of the user identity, without a terminator. VX_BUFFER_TOO_SMALL and as above.
 */
VX_API VX_STATUS VX_Get_User_Identity_Info(int32_t AssociationID, USER_IDENTITY_FIELD_TYPE Field,
                                           void* Buffer, uint16_t BufferSize);

#ifdef __cplusplus
}
#endif

#endif
