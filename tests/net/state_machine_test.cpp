// The state table against PS3.8 table 9-10, and what the machine really does in each cell with a PDU.
#include <map>
#include <sstream>

#include "net/peers.h"

namespace vx::test {
namespace {

// For each event: states 1 to 13, action/next state.
constexpr const char* kStandard[] = {
    "AE1/4 - - - - - - - - - - - -",                                                    // AssociateRequest
    "- - - AE2/5 - - - - - - - - -",                                                    // TransportConfirm
    "- AA1/13 AA8/13 - AE3/6 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA6/13",  // AssociateAcPdu
    "- AA1/13 AA8/13 - AE4/1 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA6/13",  // AssociateRjPdu
    "AE5/2 - - - - - - - - - - - -",                                                    // TransportIndication
    "- AE6/3or13 AA8/13 - AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA7/13",  // AssociateRqPdu
    "- - AE7/6 - - - - - - - - - -",                                                        // AssociateAccept
    "- - AE8/13 - - - - - - - - - -",                                                       // AssociateReject
    "- - - - - DT1/6 - AR7/8 - - - - -",                                                    // PDataRequest
    "- AA1/13 AA8/13 - AA8/13 DT2/6 AR6/7 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA6/13",       // PDataPdu
    "- - - - - AR1/7 - - - - - - -",                                                        // ReleaseRequest
    "- AA1/13 AA8/13 - AA8/13 AR2/8 AR8/9or10 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA6/13",   // ReleaseRqPdu
    "- AA1/13 AA8/13 - AA8/13 AA8/13 AR3/1 AA8/13 AA8/13 AR10/12 AR3/1 AA8/13 AA6/13",      // ReleaseRpPdu
    "- - - - - - - AR4/13 AR9/11 - - AR4/13 -",                                             // ReleaseResponse
    "- - AA1/13 AA2/1 AA1/13 AA1/13 AA1/13 AA1/13 AA1/13 AA1/13 AA1/13 AA1/13 -",           // AbortRequest
    "- AA2/1 AA3/1 - AA3/1 AA3/1 AA3/1 AA3/1 AA3/1 AA3/1 AA3/1 AA3/1 AA2/1",                // AbortPdu
    "- AA5/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AA4/1 AR5/1",            // TransportClosed
    "- AA2/1 - - - - - - - - - - AA2/1",                                                    // ArtimExpired
    "- AA1/13 AA8/13 - AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA8/13 AA7/13",     // InvalidPdu
};

std::string expected_cell(Event event, int state) {
  // Where the machine differs from the standard's table.
  const bool connected = state != 1 && state != 4;
  if (event == Event::InvalidPdu && connected) return "Close/1";     // without an A-ABORT
  if (event == Event::AssociateRqPdu && state == 2) return "AE6/3";  // a request is always indicated
  if (event == Event::AbortRequest && !connected)
    return state == 1 ? "NotOpen/1" : "-";  // has a status of its own
  std::istringstream cells(kStandard[static_cast<std::size_t>(event)]);
  std::string cell;
  for (int i = 0; i < state; ++i) cells >> cell;
  return cell;
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
  const Bytes user_abort = short_pdu(7, 0, 0, 0);
  const Bytes provider_abort = short_pdu(7, 0, 2, 2);
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
  const Bytes pdus[] = {simple_request(), simple_accept(), short_pdu(3, 1, 2, 3), data_pdu(1, 3, "ab"),
                        short_pdu(5),     short_pdu(6),    short_pdu(7, 0, 2, 0)};
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
        EXPECT_EQ(peer_.heard(alive() ? 0 : 200), effect.sent);
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
    EXPECT_EQ(peer_.heard(), "");
  }
}

TEST_F(StateMachine, LocalRequestsInTheWrongStateChangeNothing) {
  const struct {
    const char* what;
    std::function<DulStatus()> call;
    std::string right;  // states, by letters from a
  } calls[] = {{"accept", [&] { return DUL_associate_accept(dul_, parameters_); }, "c"},
               {"reject", [&] { return DUL_associate_reject(dul_, 1, 1, 1); }, "c"},
               {"release", [&] { return DUL_release_request(dul_); }, "f"},
               {"read", [&] { return DUL_read_pdvs(dul_, 0); }, "fg"},
               {"abort", [&] { return DUL_abort_request(dul_); }, "acefghijkl"}};
  for (int state = 1; state <= kStates; ++state) {
    connect(static_cast<State>(state), false);
    for (const auto& call : calls) {
      if (call.right.find(static_cast<char>('a' + state - 1)) != std::string::npos) continue;
      EXPECT_EQ(call.call(), DUL_WRONG_ORDER) << call.what << " in " << state;
    }
    if (state == 1) {
      EXPECT_EQ(DUL_abort_request(dul_), DUL_TRANSPORT_INIT_ERROR);
    }
    EXPECT_TRUE(alive());
    EXPECT_EQ(static_cast<int>(dul_->state), state);
    EXPECT_EQ(peer_.heard(0), "");
  }
  EXPECT_EQ(DUL_associate_reject(dul_, 1, 8, 1), DUL_UNKNOWN_REJECT_REASON);
  EXPECT_EQ(DUL_associate_reject(dul_, 3, 1, 1), DUL_UNKNOWN_REJECT_RESULT);
  EXPECT_STREQ(DUL_Status_Text(12), "Unknown Upper Layer status: 12");
}

}  // namespace
}  // namespace vx::test
