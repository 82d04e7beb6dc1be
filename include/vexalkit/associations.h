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
 * A secure channel of the caller's making, used in place of plain reads and writes.
 * The library copies the table, not what it points to. All four functions are required; each gets the
 * ApplicationContext of the call that opened or waited for the association. Time-outs are in seconds, 0 being
 * one look.
 */
typedef struct SS_Functions {
  /* Makes the channel on Socket, which is connected and non-blocking, and stays the library's. Role is 0 on
   * the side that connected and 1 on the side that accepted. *SecureContext is the channel's own, handed to
   * the others. 0: it stands; anything else fails the connection, and SS_Close is not called.
   */
  int32_t (*SS_Open)(int32_t Socket, int32_t Role, void* ApplicationContext, void** SecureContext);
  /* Reads Length bytes into Buffer, or fewer if no more are at hand. 0: *Count bytes came, at least one; 2:
   * nothing came in time; else failure.
   */
  int32_t (*SS_Read)(void* SecureContext, void* ApplicationContext, void* Buffer, uint32_t Length,
                     uint32_t* Count, int32_t Timeout);
  /* Writes all Length bytes of Buffer; *Count is not looked at. 0: done; 2: the peer took too long; else
   * failure.
   */
  int32_t (*SS_Write)(void* SecureContext, void* ApplicationContext, const void* Buffer, uint32_t Length,
                      uint32_t* Count, int32_t Timeout);
  /* Called once, before the socket is closed; frees the channel. */
  void (*SS_Close)(void* SecureContext, void* ApplicationContext);
} SS_Functions;

/* ---- Records of associations --------------------------------------------------------------------------- */

/** What VX_Get_Association_Info tells. Texts are NUL-terminated, and empty where nothing is known. */
typedef struct AssocInfo {
  uint32_t NumberOfProposedContexts; /* presentation contexts (PS3.8 section 7.1.1.13) */
  uint32_t NumberOfAcceptedContexts;
  char RemoteApplicationTitle[20];
  char RemoteHostName[66]; /* as the caller named it, or as it was looked up for the peer's address */
  int32_t Socket;          /* the library's; for waiting on it only */
  char RemoteIPAddress[66];
  char LocalApplicationTitle[20];
  char RemoteImplementationClassUID[66];
  char RemoteImplementationVersion[20];
  uint32_t LocalMaximumPDUSize;  /* bytes that this side takes in a PDU */
  uint32_t RemoteMaximumPDUSize; /* that the peer takes; 0: no limit */
  uint16_t MaxOperationsInvoked; /* 1 when no window was negotiated; 0: no limit */
  uint16_t MaxOperationsPerformed;
  int32_t UserIdentityType; /* 0 none, 1 user name, 2 user name and passcode, 3 Kerberos, 4 SAML, 5 JWT */
  uint8_t PositiveResponseRequested; /* 1: the requester asked for an answer to its identity */
  uint8_t PositiveResponseReceived;  /* 1: the acceptor gave one */
} AssocInfo;

/** A related general SOP class of common extended negotiation (PS3.7 section D.3.3.6). */
typedef struct RelatedClass {
  char ServiceName[50]; /* empty for a SOP class without a service */
  char SopClassUid[66];
} RelatedClass;

/** What VX_Get_First_Acceptable_Service and its twin tell. */
typedef struct ServiceInfo {
  char ServiceName[52];          /* of the services profile */
  VX_TRANSFER_SYNTAX SyntaxType; /* the accepted one */
  int32_t RoleNegotiated;        /* of this side: 0 SCU, 1 SCP, 2 both */
  int32_t PresentationContextId; /* an odd number from 1 to 255 */
  char SopClassUid[66];
  char BaseServiceClassUid[66]; /* of common extended negotiation; empty for none */
  int32_t RelatedClassCount;    /* how many of the next are filled in; what goes beyond 10 is left out */
  RelatedClass RelatedClasses[10];
} ServiceInfo;

/** Which field of a user identity (PS3.7 section D.3.3.7) is meant. */
typedef int32_t USER_IDENTITY_FIELD_TYPE;
enum {
  VX_PRIMARY_FIELD = 0,   /* user name, ticket, assertion or token */
  VX_SECONDARY_FIELD = 1, /* passcode */
  VX_SERVER_RESPONSE = 2  /* what the acceptor answered */
};

/* ---- Service lists and negotiation data (PS3.8 section 7.1, PS3.7 annex D.3) --------------------------- */

/**
 * Names a list of transfer syntaxes, best first.
 * @param SyntaxListName  name of the list, 1 to 33 bytes.
 * @param Syntaxes  its codes, ended by 0; copied.
 * @retval VX_DUPLICATE_NAME  a list of this name exists, in memory or in the applications profile.
 * @retval VX_DUPLICATE_SYNTAX  a code comes twice.
 * @retval VX_EMPTY_LIST  there is none in front of the 0.
 * @retval VX_SYSTEM_ERROR  a code is of no syntax or of one without a UID, or the name is too long.
 */
VX_API VX_STATUS VX_NewSyntaxList(const char* SyntaxListName, const VX_TRANSFER_SYNTAX* Syntaxes);

/**
 * Names a service together with what it is proposed or accepted with.
 * @param Name  new name, at most 129 bytes, for the lists that are made of it.
 * @param ServiceName  name of the service in the services profile.
 * @param SyntaxListName  its transfer syntaxes; null: the four uncompressed ones.
 * @param SCURole,SCPRole  1 or 0: this side takes the role or not; VX_NO_ROLE in both: no role selection
 *     (PS3.7 section D.3.3.4).
 * @retval VX_DUPLICATE_NAME  Name exists.
 * @retval VX_INVALID_SOP_CLASS_UID  the services profile has no such service.
 * @retval VX_SYSTEM_ERROR  Name is null or too long, or there is no such syntax list.
 */
VX_API VX_STATUS VX_NewServiceFromName(const char* Name, const char* ServiceName, const char* SyntaxListName,
                                       uint8_t SCURole, uint8_t SCPRole);

/**
 * Adds the service of a storage class that the services profile does not have.
 * For classes that are private or came later: VX_NewServiceFromUID takes the class then,
 * VX_Get_VexalKit_Service gives the name that was made for it, and C-STORE messages of it are sent and read
 * (PS3.4 annex B). A class that has a service keeps it. Until VX_Library_Reset or VX_Library_Release.
 * @param Uid  SOP class UID.
 * @retval VX_INVALID_SOP_CLASS_UID  no UID of up to 64 digits and dots, or 65,536 have been added.
 */
VX_API VX_STATUS VX_Add_Service(const char* Uid);

/**
 * Gives the code of a transfer syntax, also of one that this release does not know.
 * An unknown one gets a code of its own, from 1000 on, which syntax lists and the functions of transfer
 * syntaxes take. Its data sets are handed on unread, by VX_Send_Request_For_Service and
 * VX_Continue_Read_Message_To_Stream; what decodes one takes it for explicit little endian with encapsulated
 * pixel data (PS3.5 section A.4). Until VX_Library_Reset or VX_Library_Release.
 * @param Uid  transfer syntax UID.
 * @param Syntax  [out] the code; 0 after a failure.
 * @retval VX_INVALID_TRANSFER_SYNTAX  no UID of up to 64 digits and dots, or 65,536 have been added.
 */
VX_API VX_STATUS VX_Add_Transfer_Syntax(const char* Uid, VX_TRANSFER_SYNTAX* Syntax);

/**
 * Names the service of a SOP class together with what it is proposed or accepted with.
 * @param Name  new name, at most 129 bytes, for the lists that are made of it.
 * @param Uid  UID of the SOP class.
 * @param SyntaxListName  its transfer syntaxes; null: the four uncompressed ones.
 * @param SCURole,SCPRole  as for VX_NewServiceFromName.
 * @retval VX_DUPLICATE_NAME  Name exists.
 * @retval VX_INVALID_SOP_CLASS_UID  the services profile has no service of this SOP class.
 * @retval VX_SYSTEM_ERROR  Name is null or too long, or there is no such syntax list.
 */
VX_API VX_STATUS VX_NewServiceFromUID(const char* Name, const char* Uid, const char* SyntaxListName,
                                      uint8_t SCURole, uint8_t SCPRole);

/**
 * Names a service with extended negotiation data (PS3.7 section D.3.3.5).
 * @param ExtInfo  the data, copied; null for none.
 * @param ExtInfoLength  its bytes.
 * @copydetails VX_NewServiceFromName
 */
VX_API VX_STATUS VX_NewServiceWithExtInfoFromName(const char* Name, const char* ServiceName,
                                                  const char* SyntaxListName, uint8_t SCURole,
                                                  uint8_t SCPRole, const void* ExtInfo,
                                                  uint32_t ExtInfoLength);

/**
 * Names the service of a SOP class with extended negotiation data.
 * @param ExtInfo  the data, copied; null for none.
 * @param ExtInfoLength  its bytes.
 * @copydetails VX_NewServiceFromUID
 */
VX_API VX_STATUS VX_NewServiceWithExtInfoFromUID(const char* Name, const char* Uid,
                                                 const char* SyntaxListName, uint8_t SCURole, uint8_t SCPRole,
                                                 const void* ExtInfo, uint32_t ExtInfoLength);

/**
 * Names a service list, made of named services in the order of proposal, without an operations window.
 * The list keeps copies of what it is made of.
 * @param ServiceListName  name of the list, 1 to 129 bytes.
 * @param ServiceNames  names from VX_NewServiceFromName and its twins, ended by a null pointer.
 * @retval VX_DUPLICATE_NAME  a list of this name exists, in memory or in the applications profile, or a
 *     service comes twice.
 * @retval VX_MISSING_NAME  there is no service of one of the names.
 * @retval VX_SYSTEM_ERROR  an empty list, or an empty or too long name.
 */
VX_API VX_STATUS VX_NewProposedServiceList(const char* ServiceListName, const char* const* ServiceNames);

/**
 * Names a service list with an asynchronous operations window (PS3.7 section D.3.3.3).
 * @param MaxOperationsInvoked,MaxOperationsPerformed  operations in flight that this side may invoke and
 *     perform; 0: no limit; 1 and 1 negotiate no window.
 * @copydetails VX_NewProposedServiceList
 */
VX_API VX_STATUS VX_NewProposedServiceListAsync(const char* ServiceListName, const char* const* ServiceNames,
                                                uint16_t MaxOperationsInvoked,
                                                uint16_t MaxOperationsPerformed);

/**
 * Frees a service list; no open association may use it.
 * @param ServiceListName  name of a list in memory.
 * @retval VX_INVALID_SERVICE_LIST_NAME  there is none of this name.
 * @retval VX_SYSTEM_ERROR  ServiceListName is null.
 */
VX_API VX_STATUS VX_FreeServiceList(const char* ServiceListName);

/**
 * Frees a named service; lists made from it keep their copies.
 * @param Name  the name that was given to it.
 * @retval VX_INVALID_SERVICE_NAME  there is none of this name.
 * @retval VX_SYSTEM_ERROR  Name is null.
 */
VX_API VX_STATUS VX_FreeService(const char* Name);

/**
 * Frees a syntax list; service lists that use it go on.
 * @param SyntaxListName  name of a list in memory.
 * @retval VX_INVALID_SYNTAX_NAME  there is none of this name.
 * @retval VX_SYNTAX_IN_USE  a named service uses it.
 * @retval VX_SYSTEM_ERROR  SyntaxListName is null.
 */
VX_API VX_STATUS VX_FreeSyntaxList(const char* SyntaxListName);

/**
 * Sets extended negotiation data of an application for a service (PS3.7 section D.3.3.5).
 * As requester it proposes them where the service list has none; as acceptor it answers with them where the
 * peer sent some.
 * @param ApplicationID  the application.
 * @param ServiceName  name of the service in the services profile.
 * @param Data  the data, copied; a later call replaces them.
 * @param Length  bytes of Data; beyond 65535 a proposal is cut and an answer left out.
 * @retval VX_UNKNOWN_SERVICE  the services profile has no such service.
 */
VX_API VX_STATUS VX_Set_Negotiation_Info(int32_t ApplicationID, const char* ServiceName, const void* Data,
                                         uint32_t Length);

/**
 * Takes the extended negotiation data of an application for a service away again.
 * @param ApplicationID  the application.
 * @param ServiceName  name of the service in the services profile.
 * @retval VX_UNKNOWN_SERVICE  the services profile has no such service.
 * @retval VX_NO_INFO_REGISTERED  there is nothing to take away.
 */
VX_API VX_STATUS VX_Clear_Negotiation_Info(int32_t ApplicationID, const char* ServiceName);

/* ---- Listening ports ----------------------------------------------------------------------------------- */

/**
 * Gives the socket that listens on TCPIP_LISTEN_PORT, which starts to listen if it does not yet.
 * @param Socket  [out] the socket, for waiting on it only: it stays the library's; untouched after a failure.
 * @retval VX_SYSTEM_ERROR  it can not listen; the log tells why.
 */
VX_API VX_STATUS VX_Get_Listen_Socket(int32_t* Socket);

/**
 * Gives the socket of a port that a wait function has opened.
 * @param Port  the port.
 * @param Socket  [out] the socket, for waiting on it only: it stays the library's; untouched after a failure.
 * @retval VX_INVALID_PORT_NUMBER  the library does not listen there.
 */
VX_API VX_STATUS VX_Get_Listen_Socket_For_Port(int32_t Port, int32_t* Socket);

/**
 * Ends listening on a port.
 * A thread that waits on it gets VX_TIMEOUT. Associations that were accepted on it go on.
 * @param Port  the port; of several addresses with this port the first that was opened.
 * @retval VX_INVALID_PORT_NUMBER  the library does not listen there.
 */
VX_API VX_STATUS VX_Close_Listen_Port(int32_t Port);

/**
 * Ends listening on a port of one local address.
 * @param Address  as the wait function had it; one that listens on all addresses fits too; null: as
 *     VX_Close_Listen_Port.
 * @copydetails VX_Close_Listen_Port
 */
VX_API VX_STATUS VX_Close_Listen_Port_On_Address(int32_t Port, const char* Address);

/* ---- Accepting associations (PS3.8 section 7.1) -------------------------------------------------------- */

/**
 * Waits for an association on the default port and makes the automatic checks.
 * These are: protocol version, application context, called title, host name and presentation contexts, which
 * are taken from ServiceList in its order. A request that fails them is rejected, and the wait goes on; so it
 * does after an association that is for verification only, which the library serves itself unless the list
 * holds the service. The caller answers the others with VX_Accept_Association or VX_Reject_Association; until
 * then the reports on the association work. The listening port stays open between calls, and several threads
 * may wait on it. A signal does not end the wait.
 * @param ServiceList  name of a service list, from VX_NewProposedServiceList or the applications profile.
 * @param Timeout  seconds to wait: negative without end, 0 looks once.
 * @param ApplicationID  [out] the application of the called title, or the first one; -1 after a failure.
 *     Where there is a Port: [in] the application that the association is for; -1: that of the called title.
 * @param AssociationID  [out] the association, which waits for its answer; -1 after a failure.
 * @retval VX_NO_APPLICATIONS_REGISTERED  the caller has registered no application.
 * @retval VX_INVALID_SERVICE_LIST_NAME  there is no such list.
 * @retval VX_TIMEOUT  nothing came in time, or the port was closed.
 * @retval VX_NEGOTIATION_ABORTED  a connection came and ended before its request was complete, or the port
 *     can not be had.
 */
VX_API VX_STATUS VX_Wait_For_Association(const char* ServiceList, int32_t Timeout, int32_t* ApplicationID,
                                         int32_t* AssociationID);

/**
 * Waits for an association on a port, which is opened on first use.
 * @param Port  1 to 65535. Where there is an Address, and it is null, below 1 the default one.
 * @retval VX_INVALID_PORT_NUMBER  Port is none.
 * @copydetails VX_Wait_For_Association
 */
VX_API VX_STATUS VX_Wait_For_Association_On_Port(const char* ServiceList, int32_t Timeout,
                                                 int32_t ApplicationID, int32_t Port, int32_t* AssociationID);

/**
 * Waits for an association on a port of one local address, which is opened on first use.
 * @param Address  name or number of a local address; null: all of them.
 * @copydetails VX_Wait_For_Association_On_Port
 */
VX_API VX_STATUS VX_Wait_For_Association_On_Address(const char* ServiceList, int32_t Timeout,
                                                    int32_t ApplicationID, int32_t Port, const char* Address,
                                                    int32_t* AssociationID);

/**
 * Waits for an association on the default port, through a secure channel of the caller's.
 * @param Functions  the channel's functions; the table is copied.
 * @param ApplicationContext  handed to them; may be null.
 * @retval VX_NULL_VALUE  a slot of Functions is null.
 * @copydetails VX_Wait_For_Association
 */
VX_API VX_STATUS VX_Wait_For_Secure_Association(const char* ServiceList, int32_t Timeout,
                                                int32_t* ApplicationID, int32_t* AssociationID,
                                                const SS_Functions* Functions, void* ApplicationContext);

/**
 * Waits for an association on a port, through a secure channel of the caller's.
 * @param Functions  the channel's functions; the table is copied.
 * @param ApplicationContext  handed to them; may be null.
 * @retval VX_NULL_VALUE  a slot of Functions is null.
 * @copydetails VX_Wait_For_Association_On_Port
 */
VX_API VX_STATUS VX_Wait_For_Secure_Association_On_Port(const char* ServiceList, int32_t Timeout,
                                                        int32_t ApplicationID, int32_t Port,
                                                        int32_t* AssociationID, const SS_Functions* Functions,
                                                        void* ApplicationContext);

/**
 * Waits for an association on a port of one local address, through a secure channel of the caller's.
 * @param Functions  the channel's functions; the table is copied.
 * @param ApplicationContext  handed to them; may be null.
 * @retval VX_NULL_VALUE  a slot of Functions is null.
 * @copydetails VX_Wait_For_Association_On_Address
 */
VX_API VX_STATUS VX_Wait_For_Secure_Association_On_Address(const char* ServiceList, int32_t Timeout,
                                                           int32_t ApplicationID, int32_t Port,
                                                           const char* Address, int32_t* AssociationID,
                                                           const SS_Functions* Functions,
                                                           void* ApplicationContext);

/**
 * Takes the association request from a socket that was accepted, and makes the automatic checks.
 * They are those of VX_Wait_For_Association, and the caller answers in the same way; but what would make that
 * wait go on ends the call. The request must come within ARTIM_TIMEOUT.
 * @param Socket  the socket, by VX_Wait_For_Connection for instance; once the arguments have passed their
 *     checks it is the library's, whatever the result.
 * @param ServiceList  name of a service list, from VX_NewProposedServiceList or the applications profile.
 * @param ApplicationID  [out] the application of the called title, or the first one; -1 after a failure.
 * @param AssociationID  [out] the association, which waits for its answer; -1 after a failure.
 * @retval VX_SYSTEM_ERROR  Socket is below 1; it stays the caller's, here and for the next two.
 * @retval VX_NO_APPLICATIONS_REGISTERED  the caller has registered no application.
 * @retval VX_INVALID_SERVICE_LIST_NAME  there is no such list.
 * @retval VX_ASSOCIATION_REJECTED  the checks have rejected the request.
 * @retval VX_ASSOCIATION_CLOSED  the association was for verification, and it is over.
 * @retval VX_TIMEOUT  the socket is not connected any more.
 * @retval VX_NEGOTIATION_ABORTED  no complete request came.
 */
VX_API VX_STATUS VX_Process_Association_Request(int32_t Socket, const char* ServiceList,
                                                int32_t* ApplicationID, int32_t* AssociationID);

/**
 * Takes the association request from a socket that was accepted, through a secure channel of the caller's.
 * @param Functions  the channel's functions; the table is copied.
 * @param ApplicationContext  handed to them; may be null.
 * @retval VX_NULL_VALUE  a slot of Functions is null; Socket stays the caller's.
 * @copydetails VX_Process_Association_Request
 */
VX_API VX_STATUS VX_Process_Secure_Association_Request(int32_t Socket, const char* ServiceList,
                                                       int32_t* ApplicationID, int32_t* AssociationID,
                                                       const SS_Functions* Functions,
                                                       void* ApplicationContext);

/**
 * Waits for a connection on the default port and hands its socket over.
 * @param Timeout  seconds to wait: negative without end, 0 looks once.
 * @param Socket  [out] the socket, non-blocking and with the configured options: the caller's until
 *     VX_Process_Association_Request takes it; -1 after a failure.
 * @retval VX_TIMEOUT  nothing came in time, or the port was closed.
 * @retval VX_NEGOTIATION_ABORTED  a connection could not be taken.
 * @retval VX_SYSTEM_ERROR  the port can not be had; the log tells why.
 */
VX_API VX_STATUS VX_Wait_For_Connection(int32_t Timeout, int32_t* Socket);

/**
 * Waits for a connection on a port, which is opened on first use, and hands its socket over.
 * @param Port  1 to 65535. Where there is an Address, and it is null, below 1 the default one.
 * @retval VX_INVALID_PORT_NUMBER  Port is none.
 * @copydetails VX_Wait_For_Connection
 */
VX_API VX_STATUS VX_Wait_For_Connection_On_Port(int32_t Timeout, int32_t Port, int32_t* Socket);

/**
 * Waits for a connection on a port of one local address, which is opened on first use, and hands its socket
 * over.
 * @param Address  name or number of a local address; null: all of them.
 * @copydetails VX_Wait_For_Connection_On_Port
 */
VX_API VX_STATUS VX_Wait_For_Connection_On_Address(int32_t Timeout, int32_t Port, const char* Address,
                                                   int32_t* Socket);

/**
 * Accepts an association that waits for its answer.
 * Messages may follow, and the reports on the request are over. Extended negotiation data goes back only as
 * the application has set it.
 * @param AssociationID  the association.
 * @retval VX_NO_REQUEST_PENDING  it does not wait for an answer.
 * @retval VX_SYSTEM_ERROR  another thread is inside the association.
 * @retval VX_ASSOCIATION_ABORTED  the answer could not be sent, and the association is gone.
 */
VX_API VX_STATUS VX_Accept_Association(int32_t AssociationID);

/**
 * Accepts an association with a positive answer to the peer's user identity (PS3.7 section D.3.3.7).
 * @param ServerResponse  response for the types 3 (Kerberos), 4 (SAML) and 5 (JSON Web Token); null
 *     otherwise.
 * @param ServerResponseLength  its bytes; 0 for none.
 * @retval VX_STATE_VIOLATION  the request held no identity, or asked for no answer, or its type takes no
 *     response.
 * @copydetails VX_Accept_Association
 */
VX_API VX_STATUS VX_Accept_Association_With_Identity(int32_t AssociationID, const void* ServerResponse,
                                                     uint16_t ServerResponseLength);

/**
 * Rejects an association that waits for its answer.
 * Waits for the peer to close, at most ARTIM_TIMEOUT, and frees the association, also where the rejection
 * could not be sent: its ID is dead.
 * @param AssociationID  the association.
 * @param Reason  1 no reason, transient; 2 calling title not recognized; 3 congestion and 4 local limit
 *     exceeded, both transient; 5 called title not recognized; 6 application context not supported; 7 to 15
 *     further ones of PS3.8 table 9-21, of which some only close the connection; any other: no reason.
 * @retval VX_NO_REQUEST_PENDING  it does not wait for an answer.
 * @retval VX_SYSTEM_ERROR  another thread is inside the association.
 */
VX_API VX_STATUS VX_Reject_Association(int32_t AssociationID, int32_t Reason);

/**
 * For storage servers that keep what they do not know: accepts what the service list does not.
 * The waits and process functions of all threads do so from the next request on: a class with no service as
 * if by VX_Add_Service, and one with C-STORE in its commands, as the first entry of the list that has no
 * roles, in the first syntax that this entry shares with the proposal; and where a proposal shares no syntax
 * with its entry, the first one that it offers, as if by VX_Add_Transfer_Syntax.
 * @param Accept  not 0: so; 0, as at the start and after VX_Library_Reset: the list decides.
 * @return VX_NORMAL_COMPLETION.
 */
VX_API VX_STATUS VX_Accept_Unknown_Contexts(int32_t Accept);

/* ---- Associations (PS3.8 section 7) -------------------------------------------------------------------- */

/**
 * Opens an association as requester.
 * Connects within CONNECT_TIMEOUT, proposes the service list, and waits for the answer for
 * ASSOC_REPLY_TIMEOUT seconds. Port, host and list that are null come from the section of the remote title in
 * the applications profile.
 * @param ApplicationID  the application that asks.
 * @param AssociationID  [out] the association; -1 after a failure.
 * @param RemoteApplicationTitle  title of the peer, 1 to 16 bytes.
 * @param RemotePort  its port, 0 to 65535, or null.
 * @param RemoteHost  name or address of its host, 1 to 39 bytes, or null.
 * @param ServiceList  name of a service list, 1 to 129 bytes, from VX_NewProposedServiceList or the profile,
 *     or null.
 * @retval VX_INVALID_APPLICATION_TITLE,VX_INVALID_PORT_NUMBER  the argument is not within these limits.
 * @retval VX_INVALID_HOST_NAME,VX_INVALID_SERVICE_LIST_NAME  the same.
 * @retval VX_CONFIG_INFO_MISSING  the peer or the list is not configured, or a service has more than 26
 *     transfer syntaxes.
 * @retval VX_CONFIG_INFO_ERROR  the list has more than 128 services.
 * @retval VX_UNKNOWN_HOST_NAME  the host has no address.
 * @retval VX_CONNECTION_FAILED  there is no connection to it.
 * @retval VX_ASSOCIATION_REJECTED  by the peer, or its answer was not acceptable; the log tells.
 * @retval VX_NEGOTIATION_ABORTED  anything else ended the negotiation.
 */
VX_API VX_STATUS VX_Open_Association(int32_t ApplicationID, int32_t* AssociationID,
                                     const char* RemoteApplicationTitle, const int32_t* RemotePort,
                                     const char* RemoteHost, const char* ServiceList);

/**
 * Opens an association as requester, through a secure channel of the caller's.
 * @param Functions  the channel's functions; the table is copied.
 * @param ApplicationContext  handed to them; may be null.
 * @retval VX_NULL_VALUE  a slot of Functions is null.
 * @copydetails VX_Open_Association
 */
VX_API VX_STATUS VX_Open_Secure_Association(int32_t ApplicationID, int32_t* AssociationID,
                                            const char* RemoteApplicationTitle, const int32_t* RemotePort,
                                            const char* RemoteHost, const char* ServiceList,
                                            const SS_Functions* Functions, void* ApplicationContext);

/**
 * Opens an association as requester, with a user identity (PS3.7 section D.3.3.7).
 * The fields are copied. VX_CONFIG_INFO_MISSING stands also for fields that do not fit a type of 1 to 4.
 * @param Functions  functions of a secure channel, the table being copied; null: a plain connection.
 * @param ApplicationContext  handed to them; may be null.
 * @param UserIdentityType  0 none, 1 user name, 2 user name and passcode, 3 Kerberos ticket, 4 SAML
 *     assertion, 5 JSON Web Token.
 * @param PositiveResponseRequested  1: the peer is asked for an answer; else 0.
 * @param PrimaryField  user name, ticket, assertion or token.
 * @param PrimaryLength  its bytes.
 * @param SecondaryField  passcode; null for the other types.
 * @param SecondaryLength  its bytes.
 * @retval VX_NULL_VALUE  a slot of Functions is null.
 * @copydetails VX_Open_Association
 */
VX_API VX_STATUS VX_Open_Association_With_Identity(
    int32_t ApplicationID, int32_t* AssociationID, const char* RemoteApplicationTitle,
    const int32_t* RemotePort, const char* RemoteHost, const char* ServiceList, const SS_Functions* Functions,
    void* ApplicationContext, int32_t UserIdentityType, uint8_t PositiveResponseRequested,
    const void* PrimaryField, uint16_t PrimaryLength, const void* SecondaryField, uint16_t SecondaryLength);

/**
 * Releases an association, waiting for the answer for RELEASE_TIMEOUT seconds, and frees it.
 * @param AssociationID  [in,out] the association; becomes -1, also where the release fails.
 * @retval VX_SYSTEM_ERROR  another thread is inside the association, which stands.
 * @retval VX_ASSOCIATION_ABORTED  the release failed, and the association is gone all the same.
 */
VX_API VX_STATUS VX_Close_Association(int32_t* AssociationID);

/**
 * Aborts an association and frees it.
 * The one function that may be called while another thread is inside the association: that thread's call then
 * ends within about a second with VX_ASSOCIATION_ABORTED.
 * @param AssociationID  [in,out] the association; becomes -1.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Abort_Association(int32_t* AssociationID);

/**
 * Reports on an association.
 * This and the other reports work from the open or the wait on, until the first message is sent or the
 * association is accepted. They never block, and any thread may call them.
 * @param AssociationID  the association.
 * @param Info  [out] the report; cleared after a failure.
 * @retval VX_STATE_VIOLATION  it is too late, or the connection has ended.
 */
VX_API VX_STATUS VX_Get_Association_Info(int32_t AssociationID, AssocInfo* Info);

/**
 * Tells the first accepted service of an association, in the order of proposal.
 * @param AssociationID  the association.
 * @param Info  [out] the service; cleared after a failure.
 * @retval VX_END_OF_LIST  there is none.
 * @retval VX_STATE_VIOLATION  it is too late, as for VX_Get_Association_Info.
 * @retval VX_SYSTEM_ERROR  the service has a name that Info can not hold, or was accepted with an unknown
 *     syntax.
 */
VX_API VX_STATUS VX_Get_First_Acceptable_Service(int32_t AssociationID, ServiceInfo* Info);

/**
 * Tells the next accepted service of an association.
 * @copydetails VX_Get_First_Acceptable_Service
 */
VX_API VX_STATUS VX_Get_Next_Acceptable_Service(int32_t AssociationID, ServiceInfo* Info);

/**
 * Sets the extended negotiation data that an association is accepted with, for a service for which the peer
 * sent some.
 * @param AssociationID  the association, which waits for its answer.
 * @param ServiceName  name of the service in the services profile.
 * @param Data  the data, copied.
 * @param Length  bytes of Data, at most 65535.
 * @retval VX_VALUE_TOO_LARGE  Length is above that.
 * @retval VX_NO_REQUEST_PENDING  the association does not wait for an answer.
 * @retval VX_UNKNOWN_SERVICE  no accepted context of this service has data of the peer.
 */
VX_API VX_STATUS VX_Set_Negotiation_Info_For_Association(int32_t AssociationID, const char* ServiceName,
                                                         const void* Data, uint32_t Length);

/**
 * Gives the extended negotiation data of the peer for a service.
 * @param AssociationID  the association.
 * @param ServiceName  name of the service in the services profile.
 * @param Data  [out] pointer into the association, valid as long as VX_Get_Association_Info works; null after
 *     a failure.
 * @param Length  [out] bytes of *Data; 0 after a failure.
 * @retval VX_UNKNOWN_SERVICE  the services profile has no such service.
 * @retval VX_EXT_INFO_UNAVAILABLE  there are none, or it is too late.
 */
VX_API VX_STATUS VX_Get_Negotiation_Info(int32_t AssociationID, const char* ServiceName, const void** Data,
                                         uint32_t* Length);

/**
 * Copies the name of the service of the Meta SOP class under which the last request came.
 * @param AssociationID  the association.
 * @param Buffer  [out] the name; untouched after a failure.
 * @param BufferSize  bytes of Buffer, its NUL counted.
 * @retval VX_BUFFER_TOO_SMALL  nothing was copied.
 * @retval VX_NOT_META_SOP  the request came under a plain SOP class.
 * @retval VX_NOT_FOUND  no request is open.
 */
VX_API VX_STATUS VX_Get_Meta_ServiceName(int32_t AssociationID, char* Buffer, int32_t BufferSize);

/**
 * Tells the length of a field of the user identity; as long as VX_Get_Association_Info works.
 * @param AssociationID  the association.
 * @param Field  VX_PRIMARY_FIELD, VX_SECONDARY_FIELD or VX_SERVER_RESPONSE.
 * @param Length  [out] its bytes, 0 if there is none; untouched after a failure.
 * @retval VX_STATE_VIOLATION  it is too late.
 * @retval VX_SYSTEM_ERROR  Field is none of the three.
 */
VX_API VX_STATUS VX_Get_User_Identity_Length(int32_t AssociationID, USER_IDENTITY_FIELD_TYPE Field,
                                             uint16_t* Length);

/**
 * Copies a field of the user identity; as long as VX_Get_Association_Info works.
 * @param AssociationID  the association.
 * @param Field  VX_PRIMARY_FIELD, VX_SECONDARY_FIELD or VX_SERVER_RESPONSE.
 * @param Buffer  [out] its bytes, without a NUL; untouched after a failure.
 * @param BufferSize  bytes of Buffer.
 * @retval VX_STATE_VIOLATION  it is too late.
 * @retval VX_BUFFER_TOO_SMALL  nothing was copied.
 * @retval VX_SYSTEM_ERROR  Field is none of the three.
 */
VX_API VX_STATUS VX_Get_User_Identity_Info(int32_t AssociationID, USER_IDENTITY_FIELD_TYPE Field,
                                           void* Buffer, uint16_t BufferSize);

#ifdef __cplusplus
}
#endif

#endif
