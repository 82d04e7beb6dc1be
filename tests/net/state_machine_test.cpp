// The state table against PS3.8 table 9-10, and what the machine really does in each cell with a PDU.
#include <map>
#include <sstream>

#include "net/wire.h"

namespace {

using namespace vx;
using namespace wire;

struct StandardRow {
  Event event;
  const char* cells;  // states 1 to 13: action/next state
};
constexpr StandardRow kStandard[] = {
    {Event::AssociateRequest, "AE1/4 - - - - - - - - - - - -"},
    {Event::TransportConfirm, "- - - AE2/5 - - - - - - - - -"},
    {Event::AssociateAcPdu,
     "- AA1/13 AA8/13 - AE3/6 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA6/13"},
    {Event::AssociateRjPdu,
     "- AA1/13 AA8/13 - AE4/1 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA6/13"},
    {Event::TransportIndication, "AE5/2 - - - - - - - - - - - -"},
    {Event::AssociateRqPdu,
     "- AE6/3or13 AA8/13 - AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA7/13"},
    {Event::AssociateAccept, "- - AE7/6 - - - - - - - - - -"},
    {Event::AssociateReject, "- - AE8/13 - - - - - - - - - -"},
    {Event::PDataRequest, "- - - - - DT1/6 - AR7/8 - - - - -"},
    {Event::PDataPdu, "- AA1/13 AA8/13 - AA8/13 DT2/6 AR6/7 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA6/13"},
    {Event::ReleaseRequest, "- - - - - AR1/7 - - - - - - -"},
    {Event::ReleaseRqPdu,
     "- AA1/13 AA8/13 - AA8/13 AR2/8 AR8/9or10 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA6/13"},
    {Event::ReleaseRpPdu, "- AA1/13 AA8/13 - AA8/13 AA8/13 AR3/1 AA8/13 AA8/13 AR10/12 AR3/1 AA8/13 AA6/13"},
    {Event::ReleaseResponse, "- - - - - - - AR4/13 AR9/11 - - AR4/13 -"},
    {Event::AbortRequest, "- - AA1/13 AA2/1 AA1/13 AA1/13 AA1/13 AA1/13 AA1/13 AA1/13 AA1/13 AA1/13 -"},
    {Event::AbortPdu, "- AA2/1 AA3/1 - AA3/1 AA3/1 AA3/1 AA3/1 AA3/1 AA3/1 AA3/1 AA3/1 AA2/1"},
    {Event::TransportClosed, "- AA5/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AR5/1"},
    {Event::ArtimExpired, "- AA2/1 - - - - - - - - - - AA2/1"},
    {Event::InvalidPdu, "- AA1/13 AA8/13 - AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA7/13"},
};

// Where the machine differs from the standard's table, by name.
struct Exception {
  Event event;
  int state;
  const char* ours;
};
constexpr Exception kInvalidPduClosesWithoutAbort[] = {
    {Event::InvalidPdu, 2, "Close/1"},  {Event::InvalidPdu, 3, "Close/1"},
    {Event::InvalidPdu, 5, "Close/1"},  {Event::InvalidPdu, 6, "Close/1"},
    {Event::InvalidPdu, 7, "Close/1"},  {Event::InvalidPdu, 8, "Close/1"},
    {Event::InvalidPdu, 9, "Close/1"},  {Event::InvalidPdu, 10, "Close/1"},
    {Event::InvalidPdu, 11, "Close/1"}, {Event::InvalidPdu, 12, "Close/1"},
    {Event::InvalidPdu, 13, "Close/1"},
};
constexpr Exception kRequestIsAlwaysIndicated[] = {{Event::AssociateRqPdu, 2, "AE6/3"}};
constexpr Exception kAbortRequestGivesItsStatus[] = {{Event::AbortRequest, 1, "NotOpen/1"},
                                                     {Event::AbortRequest, 4, "-"}};

std::string expected_cell(Event event, int state) {
  for (const auto& list : {std::span<const Exception>(kInvalidPduClosesWithoutAbort),
                           std::span<const Exception>(kRequestIsAlwaysIndicated),
                           std::span<const Exception>(kAbortRequestGivesItsStatus)}) {
    for (const Exception& exception : list) {
      if (exception.event == event && exception.state == state) return exception.ours;
    }
  }
  for (const StandardRow& row : kStandard) {
    if (row.event != event) continue;
    std::istringstream cells(row.cells);
    std::string cell;
    for (int i = 0; i < state; ++i) cells >> cell;
    return cell;
  }
  return "?";
}

std::string our_cell(Event event, int state) {
  constexpr const char* kNames[] = {"",    "AE1", "AE2", "AE3", "AE4",  "AE5",   "AE6",    "AE7",
                                    "AE8", "DT1", "DT2", "AR1", "AR2",  "AR3",   "AR4",    "AR5",
                                    "AR6", "AR7", "AR8", "AR9", "AR10", "AA1",   "AA2",    "AA3",
                                    "AA4", "AA5", "AA6", "AA7", "AA8",  "Close", "NotOpen"};
  static_assert(std::size(kNames) == kActions);
  const Cell& cell = kStateTable[static_cast<std::size_t>(event)][static_cast<std::size_t>(state)];
  if (cell.action == Action::None) return "-";
  return std::string(kNames[static_cast<std::size_t>(cell.action)]) + "/" +
         (cell.next == State::ByRole ? "9or10" : std::to_string(static_cast<int>(cell.next)));
}

TEST(StateTable, AgreesWithTheStandardCellByCell) {
  for (int event = 0; event < kEvents; ++event) {
    for (int state = 1; state <= kStates; ++state) {
      EXPECT_EQ(our_cell(static_cast<Event>(event), state), expected_cell(static_cast<Event>(event), state))
          << "event " << event << ", state " << state;
    }
  }
}

// What each action of the standard means to the peer and to the caller.
struct Effect {
  std::string sent;
  bool alive;
  DulStatus status;
};
Effect effect_of(const std::string& action) {
  const std::string user_abort = short_pdu(7, 0, 0, 0);
  const std::string provider_abort = short_pdu(7, 0, 2, 2);
  const std::map<std::string, Effect> effects = {
      {"AE3", {"", true, DUL_NORMAL}},
      {"AE4", {"", false, DUL_PEER_REJECTED}},
      {"AE6", {"", true, DUL_NORMAL}},
      {"DT2", {"", true, DUL_PDATA_ARRIVED}},
      {"AR2", {"", true, DUL_RELEASE_REQUESTED}},
      {"AR3", {"", false, DUL_RELEASE_CONFIRMED}},
      {"AR6", {"", true, DUL_PDATA_ARRIVED}},
      {"AR8", {"", true, DUL_RELEASE_REQUESTED}},
      {"AR10", {"", true, DUL_RELEASE_CONFIRMED}},
      {"AA1", {user_abort, false, DUL_PROVIDER_ABORTED}},
      {"AA2", {"", false, DUL_PEER_ABORTED}},
      {"AA3", {"", false, DUL_PEER_ABORTED}},
      {"AA6", {"", true, DUL_NORMAL}},
      {"AA7", {provider_abort, true, DUL_NORMAL}},
      {"AA8", {provider_abort, false, DUL_PROVIDER_ABORTED}},
      {"-", {"", true, DUL_WRONG_ORDER}},
  };
  return effects.at(action);
}

using StateMachine = WireTest;

TEST_F(StateMachine, DoesInEachStateWithEachPduWhatTheTableSays) {
  const std::string pdus[] = {simple_request(),        simple_accept(), short_pdu(3, 1, 2, 3),
                              pdu(4, pdv(1, 3, "ab")), short_pdu(5),    short_pdu(6),
                              short_pdu(7, 0, 2, 0)};
  constexpr Event kEventOf[] = {Event::AssociateRqPdu, Event::AssociateAcPdu, Event::AssociateRjPdu,
                                Event::PDataPdu,       Event::ReleaseRqPdu,   Event::ReleaseRpPdu,
                                Event::AbortPdu};
  for (const bool acceptor : {false, true}) {
    for (int state = 1; state <= kStates; ++state) {
      for (uint8_t type = 1; type <= 7; ++type) {
        SCOPED_TRACE(testing::Message()
                     << "state " << state << " PDU " << int{type} << " acceptor " << acceptor);
        const std::string cell = expected_cell(kEventOf[type - 1], state);
        const std::string action = cell.substr(0, cell.find('/'));
        const Effect effect = effect_of(action);
        connect(static_cast<State>(state), acceptor);
        peer_.send(pdus[type - 1]);
        peer_.end();
        uint8_t read = 0;
        ASSERT_EQ(VXI_nextPDUtype(*dul_, read), DUL_NORMAL);
        ASSERT_EQ(read, type);
        EXPECT_EQ(process_PDU(type, *dul_, parameters_), effect.status);
        EXPECT_EQ(alive(), effect.alive);
        if (alive() && action != "-") {
          const int next = action == "AR8" ? (acceptor ? 10 : 9) : std::stoi(cell.substr(cell.find('/') + 1));
          EXPECT_EQ(static_cast<int>(dul_->state), next);
          EXPECT_EQ(dul_->readPhase, ReadPhase::Header);
        }
        EXPECT_EQ(peer_.receive(alive() ? 0 : 200), effect.sent);
      }
    }
  }
}

TEST_F(StateMachine, AnInvalidPduClosesWithoutAnAbort) {
  for (const std::string& bytes :
       {std::string("\x08\0\0\0\0\4\0\0\0\0", 10), std::string("\0\0\0\0\0\4\0\0\0\0", 10), pdu(4, "abc"),
        pdu(4, ""), pdu(4, be32(1) + std::string("\1\3", 2)),
        pdu(4, be32(0xFFFFFFFF) + std::string("\1\3", 2)), std::string("\x04\0\xFF\xFF\xFF\xFF", 6)}) {
    connect(State::Established, true);
    peer_.send(bytes);
    EXPECT_EQ(DUL_read_pdvs(dul_, 5), DUL_PROVIDER_ABORTED) << testing::PrintToString(bytes);
    EXPECT_FALSE(alive());
    EXPECT_EQ(peer_.receive(), "");
  }
}

TEST_F(StateMachine, LocalRequestsInTheWrongStateChangeNothing) {
  for (int state = 1; state <= kStates; ++state) {
    connect(static_cast<State>(state), false);
    if (state != 3) {
      EXPECT_EQ(DUL_associate_accept(dul_, parameters_), DUL_WRONG_ORDER) << state;
    }
    if (state != 3) {
      EXPECT_EQ(DUL_associate_reject(dul_, 1, 1, 1), DUL_WRONG_ORDER) << state;
    }
    if (state != 6) {
      EXPECT_EQ(DUL_release_request(dul_), DUL_WRONG_ORDER) << state;
    }
    if (state != 6 && state != 7) {
      EXPECT_EQ(DUL_read_pdvs(dul_, 0), DUL_WRONG_ORDER) << state;
    }
    if (state == 1) {
      EXPECT_EQ(DUL_abort_request(dul_), DUL_TRANSPORT_INIT_ERROR);
    }
    if (state == 2 || state == 4 || state == 13) {
      EXPECT_EQ(DUL_abort_request(dul_), DUL_WRONG_ORDER) << state;
    }
    EXPECT_TRUE(alive());
    EXPECT_EQ(static_cast<int>(dul_->state), state);
    EXPECT_EQ(peer_.receive(0), "");
  }
  EXPECT_EQ(DUL_associate_reject(dul_, 1, 8, 1), DUL_UNKNOWN_REJECT_REASON);
  EXPECT_EQ(DUL_associate_reject(dul_, 3, 1, 1), DUL_UNKNOWN_REJECT_RESULT);
  EXPECT_STREQ(DUL_Status_Text(12), "Unknown Upper Layer status: 12");
}

}  // namespace
