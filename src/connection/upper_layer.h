// The DICOM upper layer (PS3.8 section 9) of one association. All of it runs in the calling thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "connection/pdu.h"
#include "connection/transport.h"
#include "frame/status.h"

namespace vx {

enum DulStatus : int32_t {
  DUL_NORMAL = 1,
  DUL_RELEASE_CONFIRMED = 2,
  DUL_NO_ASSOCIATION = 3,
  DUL_INTERRUPTED = 4,
  DUL_RELEASE_REQUESTED = 5,
  DUL_PDATA_ARRIVED = 6,
  DUL_NULL_PARAMETERS = -999,
  DUL_INVALID_HANDLE = -998,
  DUL_NULL_HANDLE = -997,
  DUL_READ_TIMEOUT = -996,
  DUL_NULL_ABORT_CODE = -995,
  DUL_NULL_PDV_LIST = -994,
  DUL_PEER_ABORTED = -993,
  DUL_PEER_REJECTED = -992,
  DUL_PROVIDER_ABORTED = -991,
  DUL_WRONG_ORDER = -990,
  DUL_UNKNOWN_HOST = -989,
  DUL_UNKNOWN_REJECT_REASON = -988,
  DUL_UNKNOWN_REJECT_RESULT = -987,
  DUL_CANT_CREATE_HANDLE = -1999,
  DUL_DEFORMED_PDU = -1998,
  DUL_NETWORK_ERROR = -1997,
  DUL_TRANSPORT_SHUTDOWN = -1996,
  DUL_WRITE_TIMEOUT = -1995,
  DUL_NO_MEMORY = -1994,
  DUL_UNEXPECTED = -1993,
  DUL_TRANSPORT_INIT_ERROR = -1992,
  DUL_CONNECT_FAILED = -1991,
  DUL_UNKNOWN_PDU = -1990,
  DUL_UNKNOWN_REMOTE_NODE = -1989,
  DUL_ABORT_REQUESTED = -1987
};
const char* DUL_Status_Text(int32_t status);

// One presentation data value of the PDU last read.
struct PdvRecord {
  const uint8_t* data;  // in the input buffer, until the next PDU is read
  uint32_t length;      // of the value
  uint8_t contextId;
  bool isData;
  bool isLast;
};

struct DulTimer {
  int32_t timeout;  // seconds
  bool running;
};

inline constexpr uint32_t kAssociationTag = 0x41535348U;

// The states of PS3.8 section 9.2, Sta1 to Sta13.
enum class State : int32_t {
  Idle = 1,
  AwaitingRequest,       // the connection stands, an A-ASSOCIATE-RQ is to come
  AwaitingAccept,        // ours, or our rejection
  AwaitingTransport,     // our connection is being made
  AwaitingAnswer,        // to our A-ASSOCIATE-RQ
  Established,           // data may go both ways
  AwaitingReleaseReply,  // to our A-RELEASE-RQ
  ReleaseIndicated,      // the peer's A-RELEASE-RQ is to be answered
  // Both sides asked for the release. The requester answers first, the acceptor last.
  CollidedRequester,  // to answer
  CollidedAcceptor,   // the peer is to answer
  RepliedRequester,   // the peer is to answer
  RepliedAcceptor,    // to answer
  AwaitingClose,      // of the connection, by the peer
  ByRole = 0xFF       // in the table: CollidedRequester or CollidedAcceptor
};
inline constexpr int kStates = 13;

enum class ReadPhase : int32_t {
  Header = 1,  // the next read takes a PDU header
  Body = 2     // the header is read, the body is not
};

// The association handle. The session owns its memory; it is alive while the tag stands.
struct DUL_Association {
  uint32_t tag;
  std::atomic<int32_t> abortRequested;  // another thread wants the association to end
  int32_t isAcceptor;
  State state;
  ReadPhase readPhase;
  uint8_t pduHeader[kPduHeader];
  uint8_t pduType;
  uint32_t pduLength;
  bool warnDefaultTimeout;
  PdvRecord* pdvArray;  // owned, kept between PDUs
  uint32_t pdvCapacity;
  DulTimer artimTimer;
  DulTimer replyTimer;
  DulTimer inactivityTimer;
  int32_t midMessage;    // a message has begun to arrive; the reader clears it before each new message
  uint8_t* inputBuffer;  // owned
  uint32_t inputBufferSize;
  uint32_t maximumPduLength;      // ours
  uint32_t pdvCount;              // PDVs of the last P-DATA-TF that are not taken yet
  PdvRecord* pdvList;             // the next of them
  uint32_t peerMaximumPduLength;  // 0: no limit
  TL_Transport* transport;        // owned; cleared under session_lock()
  bool fellSilent;                // the transport was given up as the peer said no more within a PDU
  int32_t currentMessage;         // a message that is read in parts; -1 for none
};
static_assert(std::is_trivially_destructible_v<DUL_Association>);

inline bool dul_alive(const DUL_Association* dul) {
  return dul != nullptr && dul->tag == kAssociationTag;
}

// One PDV to send. The 12 bytes in front of the value in the buffer are for the header.
struct PdvToSend {
  uint8_t ContextId;
  bool IsData;
  bool IsLast;
  bool Hold;               // stays in the buffer: what follows leaves with it
  uint8_t* Buffer;         // with held fragments, if any, first
  uint32_t BufferLength;   // bytes in it
  uint8_t* FragmentStart;  // in the buffer: the 12 bytes of header
  const uint8_t* Tail;     // the rest of the value, which lies elsewhere; null for none
  uint32_t TailLength;
  uint32_t ValueLength;  // all of the value, tail included
};

// --- Both sides ---
//
// A result that is neither success nor a wrong call (DUL_NULL_..., DUL_INVALID_HANDLE, DUL_WRONG_ORDER) nor
// DUL_READ_TIMEOUT has ended the association: the tag is cleared, the transport closed. The memory of the
// handle stays until free_association.
//
// With an abort asked for (mark_association_abort), every failure of a wait, read or write is
// DUL_ABORT_REQUESTED; after a read the handle is still alive then, and DUL_abort_request and
// DUL_drop_association end it.

// Connects, sends the proposal and reads the answer. The handle is set on success only; it is freed on
// failure. DUL_PEER_REJECTED (reason in the parameters), DUL_PEER_ABORTED, DUL_UNKNOWN_HOST,
// DUL_CONNECT_FAILED, or DUL_PROVIDER_ABORTED for the rest. `functions` may be null and is copied.
DulStatus DUL_associate_request(uint32_t maximum_pdu_length, AssociationParameters* parameters,
                                DUL_Association** handle, const SS_Functions* functions,
                                void* application_context);
// Waits on a port (-1: the default one), or takes the accepted socket if it is above 0, and reads the
// A-ASSOCIATE-RQ into the parameters. The handle is set on success only. DUL_NO_ASSOCIATION on time-out,
// DUL_INTERRUPTED, DUL_NO_MEMORY, DUL_UNKNOWN_HOST, or DUL_PROVIDER_ABORTED.
DulStatus DUL_wait_for_associate_RQ(int32_t timeout, int32_t port, const char* address,
                                    uint32_t maximum_pdu_length, AssociationParameters* parameters,
                                    DUL_Association** handle, int accepted_socket,
                                    const SS_Functions* functions, void* application_context);
DulStatus DUL_associate_accept(DUL_Association* dul, AssociationParameters* parameters);
// Reasons 1, 2, 3 and 7 only, which are those of a service user. Waits for the peer to close; the handle is
// dead after it.
DulStatus DUL_associate_reject(DUL_Association* dul, int32_t result, int32_t reason, int32_t source);
// Sends the A-RELEASE-RQ and waits for the answer. DUL_RELEASE_CONFIRMED, or DUL_RELEASE_REQUESTED after a
// collision, which is seen through: the handle is dead. DUL_PDATA_ARRIVED counts as an answer and leaves the
// handle alive: drop it.
DulStatus DUL_release_request(DUL_Association* dul);
// Answers the peer's release and waits for it to close; the handle is dead after it.
DulStatus DUL_release_response(DUL_Association* dul);
// Sends an A-ABORT. DUL_NORMAL: the handle is dead. DUL_WRONG_ORDER, DUL_TRANSPORT_INIT_ERROR: drop it.
DulStatus DUL_abort_request(DUL_Association* dul);
// Sends one PDV, or leaves it in the buffer. When the association died, *handle is cleared; its memory stays
// with the session.
// DUL_NORMAL, DUL_WRONG_ORDER, DUL_ABORT_REQUESTED, DUL_PROVIDER_ABORTED.
DulStatus DUL_write_pdvs(DUL_Association** handle, const PdvToSend* pdv);
// Reads one PDU. The time-out counts until the first one of a message has begun; from then on
// INACTIVITY_TIMEOUT does. DUL_PDATA_ARRIVED: pdvList and pdvCount say what came. DUL_RELEASE_REQUESTED: the
// caller answers with DUL_release_response. DUL_READ_TIMEOUT: nothing came, nothing changed; if midMessage is
// set the peer fell silent within a message. DUL_PEER_ABORTED, DUL_PROVIDER_ABORTED, DUL_ABORT_REQUESTED.
DulStatus DUL_read_pdvs(DUL_Association* dul, int32_t timeout);
// Closes the transport at once, whatever the state.
DulStatus DUL_drop_association(DUL_Association* dul);
// Drops it if it is alive, and gives the memory back. Null is fine.
void free_association(DUL_Association* dul);
// Asks the thread inside the association to end it. The caller holds session_lock().
void mark_association_abort(DUL_Association& dul);

}  // namespace vx
