// The state machine of the upper layer, PS3.8 table 9-10: what each state does with each event.
#pragma once

#include <array>
#include <cstdint>
#include <iterator>

#include "connection/upper_layer.h"

namespace vx {

enum class Event : uint8_t {
  AssociateRequest,
  TransportConfirm,
  AssociateAcPdu,
  AssociateRjPdu,
  TransportIndication,
  AssociateRqPdu,
  AssociateAccept,
  AssociateReject,
  PDataRequest,
  PDataPdu,
  ReleaseRequest,
  ReleaseRqPdu,
  ReleaseRpPdu,
  ReleaseResponse,
  AbortRequest,
  AbortPdu,
  TransportClosed,
  ArtimExpired,
  InvalidPdu,
};
inline constexpr int kEvents = static_cast<int>(Event::InvalidPdu) + 1;
// The actions of PS3.8 tables 9-6 to 9-9, with two of our own: Close ends the connection without an A-ABORT,
// NotOpen refuses an abort before there is anything to abort.
// clang-format off
enum class Action : uint8_t {
  None,
  AE1, AE2, AE3, AE4, AE5, AE6, AE7, AE8,
  DT1, DT2,
  AR1, AR2, AR3, AR4, AR5, AR6, AR7, AR8, AR9, AR10,
  AA1, AA2, AA3, AA4, AA5, AA6, AA7, AA8,
  Close, NotOpen,
};
// clang-format on
inline constexpr int kActions = static_cast<int>(Action::NotOpen) + 1;

struct Cell {
  Action action = Action::None;
  State next{};
};

// What a run of states does with an event: from, to, action, next state.
struct TableRun {
  Event event;
  State first;
  State last;
  Action action;
  State next;
};
using StateTable = std::array<std::array<Cell, kStates + 1>, kEvents>;

namespace state_rows {
using enum State;
inline constexpr TableRun kRuns[] = {
    {Event::AssociateRequest, Idle, Idle, Action::AE1, AwaitingTransport},
    {Event::TransportConfirm, AwaitingTransport, AwaitingTransport, Action::AE2, AwaitingAnswer},
    {Event::AssociateAcPdu, AwaitingRequest, AwaitingRequest, Action::AA1, AwaitingClose},
    {Event::AssociateAcPdu, AwaitingAccept, AwaitingAccept, Action::AA8, AwaitingClose},
    {Event::AssociateAcPdu, AwaitingAnswer, AwaitingAnswer, Action::AE3, Established},
    {Event::AssociateAcPdu, Established, RepliedAcceptor, Action::AA8, AwaitingClose},
    {Event::AssociateAcPdu, AwaitingClose, AwaitingClose, Action::AA6, AwaitingClose},
    {Event::AssociateRjPdu, AwaitingRequest, AwaitingRequest, Action::AA1, AwaitingClose},
    {Event::AssociateRjPdu, AwaitingAccept, AwaitingAccept, Action::AA8, AwaitingClose},
    {Event::AssociateRjPdu, AwaitingAnswer, AwaitingAnswer, Action::AE4, Idle},
    {Event::AssociateRjPdu, Established, RepliedAcceptor, Action::AA8, AwaitingClose},
    {Event::AssociateRjPdu, AwaitingClose, AwaitingClose, Action::AA6, AwaitingClose},
    {Event::TransportIndication, Idle, Idle, Action::AE5, AwaitingRequest},
    {Event::AssociateRqPdu, AwaitingRequest, AwaitingRequest, Action::AE6, AwaitingAccept},
    {Event::AssociateRqPdu, AwaitingAccept, AwaitingAccept, Action::AA8, AwaitingClose},
    {Event::AssociateRqPdu, AwaitingAnswer, RepliedAcceptor, Action::AA8, AwaitingClose},
    {Event::AssociateRqPdu, AwaitingClose, AwaitingClose, Action::AA7, AwaitingClose},
    {Event::AssociateAccept, AwaitingAccept, AwaitingAccept, Action::AE7, Established},
    {Event::AssociateReject, AwaitingAccept, AwaitingAccept, Action::AE8, AwaitingClose},
    {Event::PDataRequest, Established, Established, Action::DT1, Established},
    {Event::PDataRequest, ReleaseIndicated, ReleaseIndicated, Action::AR7, ReleaseIndicated},
    {Event::PDataPdu, AwaitingRequest, AwaitingRequest, Action::AA1, AwaitingClose},
    {Event::PDataPdu, AwaitingAccept, AwaitingAccept, Action::AA8, AwaitingClose},
    {Event::PDataPdu, AwaitingAnswer, AwaitingAnswer, Action::AA8, AwaitingClose},
    {Event::PDataPdu, Established, Established, Action::DT2, Established},
    {Event::PDataPdu, AwaitingReleaseReply, AwaitingReleaseReply, Action::AR6, AwaitingReleaseReply},
    {Event::PDataPdu, ReleaseIndicated, RepliedAcceptor, Action::AA8, AwaitingClose},
    {Event::PDataPdu, AwaitingClose, AwaitingClose, Action::AA6, AwaitingClose},
    {Event::ReleaseRequest, Established, Established, Action::AR1, AwaitingReleaseReply},
    {Event::ReleaseRqPdu, AwaitingRequest, AwaitingRequest, Action::AA1, AwaitingClose},
    {Event::ReleaseRqPdu, AwaitingAccept, AwaitingAccept, Action::AA8, AwaitingClose},
    {Event::ReleaseRqPdu, AwaitingAnswer, AwaitingAnswer, Action::AA8, AwaitingClose},
    {Event::ReleaseRqPdu, Established, Established, Action::AR2, ReleaseIndicated},
    {Event::ReleaseRqPdu, AwaitingReleaseReply, AwaitingReleaseReply, Action::AR8, ByRole},
    {Event::ReleaseRqPdu, ReleaseIndicated, RepliedAcceptor, Action::AA8, AwaitingClose},
    {Event::ReleaseRqPdu, AwaitingClose, AwaitingClose, Action::AA6, AwaitingClose},
    {Event::ReleaseRpPdu, AwaitingRequest, AwaitingRequest, Action::AA1, AwaitingClose},
    {Event::ReleaseRpPdu, AwaitingAccept, AwaitingAccept, Action::AA8, AwaitingClose},
    {Event::ReleaseRpPdu, AwaitingAnswer, Established, Action::AA8, AwaitingClose},
    {Event::ReleaseRpPdu, AwaitingReleaseReply, AwaitingReleaseReply, Action::AR3, Idle},
    {Event::ReleaseRpPdu, ReleaseIndicated, CollidedRequester, Action::AA8, AwaitingClose},
    {Event::ReleaseRpPdu, CollidedAcceptor, CollidedAcceptor, Action::AR10, RepliedAcceptor},
    {Event::ReleaseRpPdu, RepliedRequester, RepliedRequester, Action::AR3, Idle},
    {Event::ReleaseRpPdu, RepliedAcceptor, RepliedAcceptor, Action::AA8, AwaitingClose},
    {Event::ReleaseRpPdu, AwaitingClose, AwaitingClose, Action::AA6, AwaitingClose},
    {Event::ReleaseResponse, ReleaseIndicated, ReleaseIndicated, Action::AR4, AwaitingClose},
    {Event::ReleaseResponse, CollidedRequester, CollidedRequester, Action::AR9, RepliedRequester},
    {Event::ReleaseResponse, RepliedAcceptor, RepliedAcceptor, Action::AR4, AwaitingClose},
    {Event::AbortRequest, Idle, Idle, Action::NotOpen, Idle},
    {Event::AbortRequest, AwaitingAccept, AwaitingAccept, Action::AA1, AwaitingClose},
    {Event::AbortRequest, AwaitingAnswer, RepliedAcceptor, Action::AA1, AwaitingClose},
    {Event::AbortPdu, AwaitingRequest, AwaitingRequest, Action::AA2, Idle},
    {Event::AbortPdu, AwaitingAccept, AwaitingAccept, Action::AA3, Idle},
    {Event::AbortPdu, AwaitingAnswer, RepliedAcceptor, Action::AA3, Idle},
    {Event::AbortPdu, AwaitingClose, AwaitingClose, Action::AA2, Idle},
    {Event::TransportClosed, AwaitingRequest, AwaitingRequest, Action::AA5, Idle},
    {Event::TransportClosed, AwaitingAccept, RepliedAcceptor, Action::AA4, Idle},
    {Event::TransportClosed, AwaitingClose, AwaitingClose, Action::AR5, Idle},
    {Event::ArtimExpired, AwaitingRequest, AwaitingRequest, Action::AA2, Idle},
    {Event::ArtimExpired, AwaitingClose, AwaitingClose, Action::AA2, Idle},
    {Event::InvalidPdu, AwaitingRequest, AwaitingAccept, Action::Close, Idle},
    {Event::InvalidPdu, AwaitingAnswer, AwaitingClose, Action::Close, Idle},
};
}  // namespace state_rows

constexpr StateTable make_state_table() {
  StateTable table{};
  for (const TableRun& run : state_rows::kRuns) {
    for (auto state = static_cast<std::size_t>(run.first); state <= static_cast<std::size_t>(run.last);
         ++state) {
      table[static_cast<std::size_t>(run.event)][state] = {run.action, run.next};
    }
  }
  return table;
}
inline constexpr StateTable kStateTable = make_state_table();

inline constexpr const char* kEventNames[] = {
    "A_Associate_Request_Event", "Transport_Conn_Confirm_Event", "A_Associate_AC_PDU_Event",
    "A_Associate_RJ_PDU_Event",  "Connection_Indication_Event",  "A_Associate_RQ_PDU_Event",
    "A_Associate_Accept_Event",  "A_Associate_Reject_Event",     "P_DATA_Request_Event",
    "P_DATA_TF_PDU_Event",       "A_Release_Request_Event",      "A_Release_RQ_PDU_Event",
    "A_Release_RP_PDU_Event",    "A_Release_Response_Event",     "A_Abort_Request_Event",
    "A_Abort_PDU_Event",         "Transport_Conn_Closed_Event",  "ARTIM_Timer_Expired_Event",
    "Invalid_PDU_Event",
};
static_assert(std::size(kEventNames) == kEvents);

inline const char* name_of(Event event) {
  return kEventNames[static_cast<std::size_t>(event)];
}

}  // namespace vx
