// The session: one for each association, shared by both sides of it; its guard and its registry.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <type_traits>

#include "config/services.h"
#include "config/transfer_syntax.h"
#include "frame/app.h"
#include "frame/lock.h"
#include "frame/state.h"

namespace vx {

struct AssociationParameters;
struct ServiceList;
struct DUL_Association;

inline constexpr uint16_t kNoWindow = 65535;  // no asynchronous operations window is negotiated

// One usable combination of presentation context and service.
struct AcceptedContext {
  uint8_t ContextId;
  int32_t ServiceNumber;
  const SopObj* Service;
  uint32_t ServiceCommands;
  char SopClassUid[68];
  char TransferSyntaxUid[68];
  VX_TRANSFER_SYNTAX TransferSyntax;
  int32_t IsMeta;  // the entry stands for a Meta SOP class or one of its components
};
static_assert(std::is_trivially_destructible_v<AcceptedContext>);

// One outstanding operation.
struct RequestRecord {
  RequestRecord* Next;
  RequestRecord* Previous;
  uint32_t MessageId;
  int32_t ServiceNumber;
  const SopObj* Service;  // of received requests
  uint8_t ContextId;
  char InstanceUid[65];  // of a received request; empty if none
};
static_assert(std::is_trivially_destructible_v<RequestRecord>);

struct RequestList {
  RequestRecord* Head;
  RequestRecord* Tail;
  int32_t Count;
};

struct SesObj {
  int32_t AssociationID;
  AppObj* Application;  // under session_lock(); null once it is released while the session is busy
  int32_t ApplicationID;
  AssociationParameters* Parameters;  // owned; freed by the first send or the accept
  DUL_Association* Dul;               // owned
  int32_t IsRequester;
  int32_t RequestPending;     // between the wait and accept or reject
  int32_t FromSocket;         // made by VX_Process_Association_Request
  int32_t InNetworkFunction;  // under session_lock(): a thread is inside a blocking call
  int32_t AbortRequested;     // under session_lock(): another thread wants it to end
  ServiceList* Services;
  int32_t AcceptedContextCount;
  int32_t ContextCount;
  int32_t AcceptedEntryCount;
  AcceptedContext* AcceptedEntries;  // owned; the components of a Meta SOP class follow it
  uint16_t MaxOperationsInvoked;
  uint16_t MaxOperationsPerformed;
  char RemoteTitle[20];          // once Parameters have gone
  RequestList PendingRequests;   // sent, not yet answered
  RequestList ReceivedRequests;  // received, not yet answered
  Lock RequestSemaphore;         // guards both lists, and the next
  int32_t SentMessageId;         // of the last request that went out; -1 before
  int32_t ReadEnded;             // all of the message that is read in parts has come
  uint8_t* PduBuffer;            // owned; kept from one send to the next
  uint32_t PduBufferSize;
};
static_assert(std::is_trivially_destructible_v<SesObj>);

inline std::span<const AcceptedContext> accepted_of(const SesObj& session) {
  return {session.AcceptedEntries, static_cast<std::size_t>(session.AcceptedEntryCount)};
}

// --- Life ---

// Guards the registry, the busy and abort marks of every session, and all that a report reads: a session is
// unregistered, and its Parameters and transport are taken away, under this lock only.
inline Lock& session_lock() {
  return state().sessions.semaphore;
}
// A registered session, marked busy, of no application's list yet; null after a line in the log.
SesObj* new_session(AppObj& app, bool requester);
// Puts it in the list of its application. False if there is no memory.
bool attach_session(SesObj& session);
// Drops the upper-layer handle and frees all that the session owns. The ID is dead from then on.
void free_session(SesObj* session);
// Sends an A-ABORT if the handle is alive, and frees the session.
void abort_session(SesObj* session);
// Releases the association if the handle is alive, and frees the session. VX_ASSOCIATION_ABORTED.
VX_STATUS close_session(SesObj* session);
// The title of the other side, from the parameters while there are any.
const char* remote_title(const SesObj& session, const AssociationParameters* parameters);
// Takes the parameters away, and frees them.
void drop_parameters(SesObj& session);
bool is_alive(const SesObj& session);  // the upper-layer handle is valid
// Ends the associations of an application. A thread inside one is told to abort, and frees the session
// itself.
void end_sessions(AppObj& app);
// Closes every connection. The records go with their pools.
void drop_sessions();

// --- The guard: one thread at a time inside the blocking calls of a session ---

// Marks the session busy. VX_INVALID_ASSOCIATION_ID; VX_SYSTEM_ERROR, after a line in the log under
// `function`, while another thread is inside.
VX_STATUS enter_session(int32_t id, const char* function, SesObj*& out);
// Takes the mark away. VX_ASSOCIATION_ABORTED: another thread asked for it, and the session is gone.
VX_STATUS leave_session(SesObj* session);
bool abort_was_requested(const SesObj& session);
// The same as enter_session for who wants the session to end: while another thread is inside it is told to
// abort, and the session given is null.
VX_STATUS enter_to_abort(int32_t id, SesObj*& out);
// Aborts the association, here or in the thread that is inside it. VX_INVALID_ASSOCIATION_ID.
VX_STATUS abort_association(int32_t id);
// For reports: the session, or null, while the lock is held.
class SessionReport {
 public:
  explicit SessionReport(int32_t id)
      : guard_(session_lock()), session_(static_cast<SesObj*>(state().sessions.find(id))) {}
  SesObj* get() const { return session_; }
  SesObj* operator->() const { return session_; }

 private:
  Guard guard_;
  SesObj* session_;
};

// --- Requests ---

RequestRecord* new_request();
void free_request(RequestRecord* request);
void add_request(SesObj& session, RequestList& list, RequestRecord* request);
// Takes it out and frees it.
void remove_request(SesObj& session, RequestList& list, RequestRecord* request);
RequestRecord* find_request(SesObj& session, const RequestList& list, uint32_t message_id);

}  // namespace vx
