// The state machine of the upper layer, PS3.8 table 9-10: what each state does with each event.
#pragma once

#include <array>
#include <cstdint>

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
inline constexpr int kStates = 13;

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

inline constexpr uint8_t kByRole = 0xFF;  // 9 on the requesting side, 10 on the accepting side

struct Cell {
  Action action = Action::None;
  uint8_t next = 0;
};

// Rows of runs of states: from, to, action, next state.
struct TableRun {
  Event event;
  uint8_t first;
  uint8_t last;
  Action action;
  uint8_t next;
};
inline constexpr TableRun kTableRuns[] = {
    {Event::AssociateRequest, 1, 1, Action::AE1, 4},
    {Event::TransportConfirm, 4, 4, Action::AE2, 5},
    {Event::AssociateAcPdu, 2, 2, Action::AA1, 13},
    {Event::AssociateAcPdu, 3, 3, Action::AA8, 13},
    {Event::AssociateAcPdu, 5, 5, Action::AE3, 6},
    {Event::AssociateAcPdu, 6, 12, Action::AA8, 13},
    {Event::AssociateAcPdu, 13, 13, Action::AA6, 13},
    {Event::AssociateRjPdu, 2, 2, Action::AA1, 13},
    {Event::AssociateRjPdu, 3, 3, Action::AA8, 13},
    {Event::AssociateRjPdu, 5, 5, Action::AE4, 1},
    {Event::AssociateRjPdu, 6, 12, Action::AA8, 13},
    {Event::AssociateRjPdu, 13, 13, Action::AA6, 13},
    {Event::TransportIndication, 1, 1, Action::AE5, 2},
    {Event::AssociateRqPdu, 2, 2, Action::AE6, 3},
    {Event::AssociateRqPdu, 3, 3, Action::AA8, 13},
    {Event::AssociateRqPdu, 5, 12, Action::AA8, 13},
    {Event::AssociateRqPdu, 13, 13, Action::AA7, 13},
    {Event::AssociateAccept, 3, 3, Action::AE7, 6},
    {Event::AssociateReject, 3, 3, Action::AE8, 13},
    {Event::PDataRequest, 6, 6, Action::DT1, 6},
    {Event::PDataRequest, 8, 8, Action::AR7, 8},
    {Event::PDataPdu, 2, 2, Action::AA1, 13},
    {Event::PDataPdu, 3, 3, Action::AA8, 13},
    {Event::PDataPdu, 5, 5, Action::AA8, 13},
    {Event::PDataPdu, 6, 6, Action::DT2, 6},
    {Event::PDataPdu, 7, 7, Action::AR6, 7},
    {Event::PDataPdu, 8, 12, Action::AA8, 13},
    {Event::PDataPdu, 13, 13, Action::AA6, 13},
    {Event::ReleaseRequest, 6, 6, Action::AR1, 7},
    {Event::ReleaseRqPdu, 2, 2, Action::AA1, 13},
    {Event::ReleaseRqPdu, 3, 3, Action::AA8, 13},
    {Event::ReleaseRqPdu, 5, 5, Action::AA8, 13},
    {Event::ReleaseRqPdu, 6, 6, Action::AR2, 8},
    {Event::ReleaseRqPdu, 7, 7, Action::AR8, kByRole},
    {Event::ReleaseRqPdu, 8, 12, Action::AA8, 13},
    {Event::ReleaseRqPdu, 13, 13, Action::AA6, 13},
    {Event::ReleaseRpPdu, 2, 2, Action::AA1, 13},
    {Event::ReleaseRpPdu, 3, 3, Action::AA8, 13},
    {Event::ReleaseRpPdu, 5, 6, Action::AA8, 13},
    {Event::ReleaseRpPdu, 7, 7, Action::AR3, 1},
    {Event::ReleaseRpPdu, 8, 9, Action::AA8, 13},
    {Event::ReleaseRpPdu, 10, 10, Action::AR10, 12},
    {Event::ReleaseRpPdu, 11, 11, Action::AR3, 1},
    {Event::ReleaseRpPdu, 12, 12, Action::AA8, 13},
    {Event::ReleaseRpPdu, 13, 13, Action::AA6, 13},
    {Event::ReleaseResponse, 8, 8, Action::AR4, 13},
    {Event::ReleaseResponse, 9, 9, Action::AR9, 11},
    {Event::ReleaseResponse, 12, 12, Action::AR4, 13},
    {Event::AbortRequest, 1, 1, Action::NotOpen, 1},
    {Event::AbortRequest, 3, 3, Action::AA1, 13},
    {Event::AbortRequest, 5, 12, Action::AA1, 13},
    {Event::AbortPdu, 2, 2, Action::AA2, 1},
    {Event::AbortPdu, 3, 3, Action::AA3, 1},
    {Event::AbortPdu, 5, 12, Action::AA3, 1},
    {Event::AbortPdu, 13, 13, Action::AA2, 1},
    {Event::TransportClosed, 2, 2, Action::AA5, 1},
    {Event::TransportClosed, 3, 12, Action::AA4, 1},
    {Event::TransportClosed, 13, 13, Action::AR5, 1},
    {Event::ArtimExpired, 2, 2, Action::AA2, 1},
    {Event::ArtimExpired, 13, 13, Action::AA2, 1},
    {Event::InvalidPdu, 2, 3, Action::Close, 1},
    {Event::InvalidPdu, 5, 13, Action::Close, 1},
};

using StateTable = std::array<std::array<Cell, kStates + 1>, kEvents>;

constexpr StateTable make_state_table() {
  StateTable table{};
  for (const TableRun& run : kTableRuns) {
    for (int state = run.first; state <= run.last; ++state) {
      table[static_cast<std::size_t>(run.event)][static_cast<std::size_t>(state)] = {run.action, run.next};
    }
  }
  return table;
}
inline constexpr StateTable kStateTable = make_state_table();

}  // namespace vx
