#include "connection/session.h"

#include <utility>

#include "connection/pdu.h"
#include "connection/upper_layer.h"
#include "frame/log.h"
#include "frame/pool.h"
#include "frame/text.h"

namespace vx {

// --- Life ---

SesObj* new_session(AppObj& app, bool requester) {
  auto* session = new_object<SesObj>(Pool::SesObj);
  if (session == nullptr) return nullptr;
  session->Application = &app;
  session->ApplicationID = app.ID;
  session->IsRequester = requester ? 1 : 0;
  session->SentMessageId = -1;
  session->InNetworkFunction = 1;
  session->MaxOperationsInvoked = session->MaxOperationsPerformed = kNoWindow;
  const Guard guard(session_lock());
  session->AssociationID = state().sessions.add(session);
  if (session->AssociationID >= 0) return session;
  pool_free(Pool::SesObj, session);
  return nullptr;
}

bool attach_session(SesObj& session) {
  const Guard guard(session_lock());
  const Guard list_guard(session.Application->SessionSemaphore);
  return list_add_tail(session.Application->Sessions, &session) != nullptr;
}

bool is_alive(const SesObj& session) {
  return dul_alive(session.Dul);
}

const char* remote_title(const SesObj& session, const AssociationParameters* parameters) {
  if (parameters == nullptr) return session.RemoteTitle;
  return session.IsRequester != 0 ? parameters->calledTitle : parameters->callingTitle;
}

void drop_parameters(SesObj& session) {
  if (session.Parameters == nullptr) return;
  AssociationParameters* parameters = nullptr;
  {
    const Guard guard(session_lock());
    std::swap(parameters, session.Parameters);
  }
  copy_text(session.RemoteTitle, sizeof session.RemoteTitle, remote_title(session, parameters));
  free_association_parameters(parameters);
}

namespace {

// The caller holds session_lock().
void detach(SesObj& session) {
  if (session.Application == nullptr) return;
  const Guard guard(session.Application->SessionSemaphore);
  CObList& sessions = session.Application->Sessions;
  list_remove(sessions, list_find(sessions, &session));
  session.Application = nullptr;
}

// The thread inside is to end the association. The caller holds session_lock().
void mark_abort(SesObj& session) {
  session.AbortRequested = 1;
  if (is_alive(session)) mark_association_abort(*session.Dul);
}

void empty_list(RequestList& list) {
  while (list.Head != nullptr) {
    RequestRecord* next = list.Head->Next;
    free_request(list.Head);
    list.Head = next;
  }
  list = RequestList{};
}

}  // namespace

void free_session(SesObj* session) {
  if (session == nullptr) return;
  {
    const Guard guard(session_lock());
    state().sessions.remove(session->AssociationID);
    detach(*session);
  }
  // Nobody finds it any more.
  free_association(session->Dul);
  free_association_parameters(session->Parameters);
  release(session->AcceptedEntries);
  release(session->PduBuffer);
  empty_list(session->PendingRequests);
  empty_list(session->ReceivedRequests);
  pool_free(Pool::SesObj, session);
}

void abort_session(SesObj* session) {
  if (is_alive(*session)) {
    const int32_t status = DUL_abort_request(session->Dul);
    if (status != DUL_NORMAL) {
      VX_LOG_ERR("AssocAbort", "DUL_abort_request error: %s", DUL_Status_Text(status));
    }
  }
  free_session(session);
}

VX_STATUS close_session(SesObj* session) {
  VX_STATUS result = kOk;
  if (is_alive(*session)) {
    const int32_t status = DUL_release_request(session->Dul);
    const bool released =
        status == DUL_RELEASE_CONFIRMED || status == DUL_RELEASE_REQUESTED || status == DUL_PDATA_ARRIVED;
    if (!released) {
      VX_LOG_ERR("AssocClose", "DUL_release_request error %s", DUL_Status_Text(status));
      result = VX_ASSOCIATION_ABORTED;
    }
  }
  free_session(session);
  return result;
}

// --- The guard ---

VX_STATUS enter_session(int32_t id, const char* function, SesObj*& out) {
  {
    const Guard guard(session_lock());
    out = static_cast<SesObj*>(state().sessions.find(id));
    if (out == nullptr) return VX_INVALID_ASSOCIATION_ID;
    if (out->InNetworkFunction == 0) {
      out->InNetworkFunction = 1;
      return kOk;
    }
    out = nullptr;
  }
  VX_LOG_ERR(function, "Function call made when another thread was accessing network");
  return VX_SYSTEM_ERROR;
}

VX_STATUS leave_session(SesObj* session) {
  {
    const Guard guard(session_lock());
    if (session->AbortRequested == 0) {
      session->InNetworkFunction = 0;
      return kOk;
    }
  }
  abort_session(session);
  return VX_ASSOCIATION_ABORTED;
}

bool abort_was_requested(const SesObj& session) {
  const Guard guard(session_lock());
  return session.AbortRequested != 0;
}

VX_STATUS enter_to_abort(int32_t id, SesObj*& out) {
  const Guard guard(session_lock());
  out = static_cast<SesObj*>(state().sessions.find(id));
  if (out == nullptr) return VX_INVALID_ASSOCIATION_ID;
  if (out->InNetworkFunction == 0) {
    out->InNetworkFunction = 1;
    return kOk;
  }
  mark_abort(*out);
  out = nullptr;
  return kOk;
}

VX_STATUS abort_association(int32_t id) {
  SesObj* session = nullptr;
  const VX_STATUS status = enter_to_abort(id, session);
  if (session != nullptr) abort_session(session);
  return status;
}

void end_sessions(AppObj& app) {
  for (;;) {
    SesObj* session = nullptr;
    {
      const Guard guard(session_lock());
      if (app.Sessions.Head == nullptr) return;
      auto* first = static_cast<SesObj*>(app.Sessions.Head->Data);
      detach(*first);
      if (first->InNetworkFunction == 0) {
        first->InNetworkFunction = 1;
        session = first;
      } else {
        mark_abort(*first);
      }
    }
    if (session != nullptr) close_session(session);
  }
}

namespace {

bool close_socket(const void* object, const void*) {
  free_association(static_cast<const SesObj*>(object)->Dul);
  return false;
}

}  // namespace

void drop_sessions() {
  state().sessions.find_if(close_socket, nullptr);
}

// --- Requests ---

RequestRecord* new_request() {
  return new_object<RequestRecord>(Pool::SentRcvMsgObj);
}

void free_request(RequestRecord* request) {
  pool_free(Pool::SentRcvMsgObj, request);
}

void add_request(SesObj& session, RequestList& list, RequestRecord* request) {
  const Guard guard(session.RequestSemaphore);
  request->Next = nullptr;
  request->Previous = list.Tail;
  (list.Tail != nullptr ? list.Tail->Next : list.Head) = request;
  list.Tail = request;
  ++list.Count;
}

void remove_request(SesObj& session, RequestList& list, RequestRecord* request) {
  {
    const Guard guard(session.RequestSemaphore);
    (request->Previous != nullptr ? request->Previous->Next : list.Head) = request->Next;
    (request->Next != nullptr ? request->Next->Previous : list.Tail) = request->Previous;
    --list.Count;
  }
  free_request(request);
}

RequestRecord* find_request(SesObj& session, const RequestList& list, uint32_t message_id) {
  const Guard guard(session.RequestSemaphore);
  RequestRecord* request = list.Head;
  while (request != nullptr && request->MessageId != message_id) request = request->Next;
  return request;
}

}  // namespace vx
