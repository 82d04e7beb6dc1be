// One association over a socket pair: data, time-outs, release and its collision, aborts of another thread.
#include <thread>

#include "connection/socket.h"
#include "net/wire.h"

namespace {

using namespace vx;
using namespace wire;

using UpperLayer = WireTest;

TEST_F(UpperLayer, HandsOutThePdvsOfAPdu) {
  connect(State::Established, true);
  peer_.send(pdu(4, pdv(3, 1, "ab") + pdv(3, 3, "") + pdv(3, 0, "wxyz")) + pdu(4, pdv(5, 2, "end")));
  ASSERT_EQ(DUL_read_pdvs(dul_, 5), DUL_PDATA_ARRIVED);
  ASSERT_EQ(dul_->pdvCount, 3U);
  const struct {
    uint8_t context;
    bool data, last;
    std::string value;
  } expected[] = {{3, false, false, "ab"}, {3, false, true, ""}, {3, true, false, "wxyz"}};
  for (int i = 0; i < 3; ++i) {
    const PdvRecord& got = dul_->pdvList[i];
    EXPECT_EQ(got.contextId, expected[i].context);
    EXPECT_EQ(got.isData, expected[i].data);
    EXPECT_EQ(got.isLast, expected[i].last);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(got.data), got.length), expected[i].value);
  }
  // Nothing past the PDU was taken from the socket.
  EXPECT_EQ(dul_->midMessage, 1);
  ASSERT_EQ(DUL_read_pdvs(dul_, 0), DUL_PDATA_ARRIVED);
  EXPECT_EQ(dul_->pdvCount, 1U);
  EXPECT_TRUE(dul_->pdvList->isData && dul_->pdvList->isLast);
}

TEST_F(UpperLayer, APduOfTheMaximumPassesAndOneByteMoreDoesNot) {
  connect(State::Established, true, 100);
  peer_.send(pdu(4, pdv(1, 0, std::string(94, 'x'))));
  EXPECT_EQ(DUL_read_pdvs(dul_, 5), DUL_PDATA_ARRIVED);
  peer_.send(pdu(4, pdv(1, 0, std::string(95, 'x'))));
  EXPECT_EQ(DUL_read_pdvs(dul_, 5), DUL_PROVIDER_ABORTED);
  EXPECT_FALSE(alive());
}

TEST_F(UpperLayer, SilenceAfterEachByteOfAMessageEndsInTime) {
  const std::string message = pdu(4, pdv(1, 3, "cm")) + pdu(4, pdv(1, 2, "ds"));
  // All stalls at once: each waits in its own thread.
  std::vector<std::thread> threads;
  struct Stall {
    DUL_Association* dul;
    int peer;
    DulStatus last = DUL_NORMAL;
    double seconds = 0;
  };
  std::vector<Stall> stalls(message.size());
  for (std::size_t length = 0; length < message.size(); ++length) {
    int ends[2];
    connected_pair(ends);
    DulStatus status = DUL_NORMAL;
    Stall& stall = stalls[length];
    stall.dul = Create_Association_Handle(16384, true, status);
    stall.dul->transport = TL_Create_Transport(nullptr, nullptr);
    stall.dul->transport->socket = ends[0];
    stall.dul->state = State::Established;
    stall.peer = ends[1];
    ASSERT_EQ(::send(stall.peer, message.data(), length, 0), static_cast<ssize_t>(length));
    threads.emplace_back([&stall] {
      const auto begun = Clock::now();
      do {
        stall.last = DUL_read_pdvs(stall.dul, 1);
      } while (stall.last == DUL_PDATA_ARRIVED);
      stall.seconds = seconds_since(begun);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t length = 0; length < message.size(); ++length) {
    Stall& stall = stalls[length];
    SCOPED_TRACE(length);
    EXPECT_LT(stall.seconds, 2.9);
    // Between the parts of a PDU the connection survives; within one it does not.
    const std::size_t in_pdu = length % 14;
    EXPECT_EQ(stall.last, in_pdu == 0 || in_pdu == 6 ? DUL_READ_TIMEOUT : DUL_PROVIDER_ABORTED);
    EXPECT_EQ(dul_alive(stall.dul), stall.last == DUL_READ_TIMEOUT);
    EXPECT_EQ(stall.dul->midMessage, length >= 6 ? 1 : 0);
    if (in_pdu == 6) {
      EXPECT_EQ(stall.dul->readPhase, ReadPhase::Body);
    }
    free_association(stall.dul);
    ::close(stall.peer);
  }
}

TEST_F(UpperLayer, ATimeOutBetweenMessagesChangesNothing) {
  connect(State::Established, true);
  EXPECT_EQ(DUL_read_pdvs(dul_, 0), DUL_READ_TIMEOUT);
  EXPECT_EQ(dul_->midMessage, 0);
  peer_.send(pdu(4, pdv(1, 3, "ab")).substr(0, 6));
  EXPECT_EQ(DUL_read_pdvs(dul_, 0), DUL_READ_TIMEOUT);
  EXPECT_EQ(dul_->readPhase, ReadPhase::Body);
  peer_.send(pdu(4, pdv(1, 3, "ab")).substr(6));
  EXPECT_EQ(DUL_read_pdvs(dul_, 0), DUL_PDATA_ARRIVED);
}

TEST_F(UpperLayer, APeerThatDripsIsWaitedForAsLongAsItDrips) {
  connect(State::Established, true);
  const std::string bytes = pdu(4, pdv(1, 3, "abcd"));
  std::thread drip([&] {
    for (const char byte : bytes) {
      peer_.send(std::string(1, byte));
      std::this_thread::sleep_for(std::chrono::milliseconds(150));
    }
  });
  EXPECT_EQ(DUL_read_pdvs(dul_, 1), DUL_PDATA_ARRIVED);
  drip.join();
}

TEST_F(UpperLayer, TheProposalMustBeThereInTimeHoweverItDrips) {
  connect(State::AwaitingRequest, true);
  dul_->artimTimer.running = true;
  // As the wait for a request sets it.
  dul_->transport->deadline =
      std::chrono::nanoseconds(Clock::now().time_since_epoch()).count() + 1'000'000'000;
  std::atomic<bool> stop{false};
  std::thread drip([&] {
    for (const char byte : simple_request()) {
      if (stop) return;
      peer_.send(std::string(1, byte));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  });
  const auto begun = Clock::now();
  uint8_t type = 0;
  DulStatus status = VXI_nextPDUtype(*dul_, type);
  if (status == DUL_NORMAL) status = process_PDU(type, *dul_, parameters_);
  EXPECT_NE(status, DUL_NORMAL);
  EXPECT_LT(seconds_since(begun), 1.5);
  stop = true;
  drip.join();
}

TEST_F(UpperLayer, AnIntactConnectionThatClosesOrResets) {
  connect(State::Established, true);
  peer_.close();
  EXPECT_EQ(DUL_read_pdvs(dul_, 5), DUL_PROVIDER_ABORTED);
  EXPECT_TRUE(has_log("Transport unexpectedly closed"));
  connect(State::Established, true);
  peer_.send(short_pdu(7, 0, 0, 0));
  EXPECT_EQ(DUL_read_pdvs(dul_, 5), DUL_PEER_ABORTED);
  EXPECT_FALSE(alive());
}

// --- Sending ---

PdvToSend whole_pdv(std::string& buffer, std::string_view value) {
  buffer.assign(kPdvHeader, '\0');
  buffer += value;
  PdvToSend pdv{};
  pdv.ContextId = 7;
  pdv.IsData = true;
  pdv.IsLast = true;
  pdv.Buffer = reinterpret_cast<uint8_t*>(buffer.data());
  pdv.BufferLength = static_cast<uint32_t>(buffer.size());
  pdv.FragmentStart = pdv.Buffer;
  pdv.ValueLength = static_cast<uint32_t>(value.size());
  return pdv;
}

TEST_F(UpperLayer, HeldFragmentsLeaveWithTheNextAndATailWithItsHeader) {
  connect(State::Established, false);
  std::string buffer;
  PdvToSend first = whole_pdv(buffer, "command!");
  first.IsData = false;
  first.Hold = true;
  DUL_Association* handle = dul_;
  ASSERT_EQ(DUL_write_pdvs(&handle, &first), DUL_NORMAL);
  EXPECT_EQ(peer_.receive(0), "");
  buffer += std::string(kPdvHeader, '\0') + "da";
  const std::string tail = "ta!!";
  PdvToSend second = whole_pdv(buffer, "");
  buffer = std::string(kPdvHeader, '\0') + "command!" + std::string(kPdvHeader, '\0') + "da";
  second.Buffer = reinterpret_cast<uint8_t*>(buffer.data());
  first.Buffer = first.FragmentStart = second.Buffer;
  ASSERT_EQ(DUL_write_pdvs(&handle, &first), DUL_NORMAL);
  second.BufferLength = static_cast<uint32_t>(buffer.size());
  second.FragmentStart = second.Buffer + kPdvHeader + 8;
  second.Tail = reinterpret_cast<const uint8_t*>(tail.data());
  second.TailLength = 4;
  second.ValueLength = 6;
  ASSERT_EQ(DUL_write_pdvs(&handle, &second), DUL_NORMAL);
  EXPECT_EQ(peer_.receive(), pdu(4, pdv(7, 3, "command!")) + pdu(4, pdv(7, 2, "data!!")));
}

TEST_F(UpperLayer, APeerThatStopsReadingEndsAWrite) {
  connect(State::Established, false);
  std::string buffer;
  const PdvToSend pdv = whole_pdv(buffer, std::string(8 << 20, 'x'));
  DUL_Association* handle = dul_;
  const auto begun = Clock::now();
  EXPECT_EQ(DUL_write_pdvs(&handle, &pdv), DUL_PROVIDER_ABORTED);
  EXPECT_LT(seconds_since(begun), 2.5);
  EXPECT_EQ(handle, nullptr);
  EXPECT_FALSE(alive());
  EXPECT_TRUE(has_log("Timeout in TL_Write()"));
}

// --- Release ---

TEST_F(UpperLayer, AReleaseIsAskedForAndConfirmed) {
  connect(State::Established, false);
  peer_.send(short_pdu(6));
  EXPECT_EQ(DUL_release_request(dul_), DUL_RELEASE_CONFIRMED);
  EXPECT_FALSE(alive());
  EXPECT_EQ(peer_.receive(), short_pdu(5));

  connect(State::Established, false);
  peer_.send(pdu(4, pdv(1, 3, "late")));
  EXPECT_EQ(DUL_release_request(dul_), DUL_PDATA_ARRIVED);
  EXPECT_TRUE(alive());

  connect(State::Established, false);
  EXPECT_EQ(DUL_release_request(dul_), DUL_PROVIDER_ABORTED);
  EXPECT_FALSE(alive());

  connect(State::Established, true);
  peer_.send(short_pdu(5));
  EXPECT_EQ(DUL_read_pdvs(dul_, 5), DUL_RELEASE_REQUESTED);
  peer_.end();
  EXPECT_EQ(DUL_release_response(dul_), DUL_PROVIDER_ABORTED);
  EXPECT_FALSE(alive());
  EXPECT_EQ(peer_.receive(), short_pdu(6));
}

TEST_F(UpperLayer, AReleaseCollisionIsSeenThrough) {
  // The requester answers first, then takes the answer to its own request.
  connect(State::Established, false);
  peer_.send(short_pdu(5));
  std::thread acceptor([&] {
    EXPECT_EQ(peer_.receive(1000, 20), short_pdu(5) + short_pdu(6));
    peer_.send(short_pdu(6));
  });
  EXPECT_EQ(DUL_release_request(dul_), DUL_RELEASE_REQUESTED);
  acceptor.join();
  EXPECT_FALSE(alive());
  // The accepting side takes the answer first.
  connect(State::Established, true);
  peer_.send(short_pdu(5));
  std::thread requester([&] {
    EXPECT_EQ(peer_.receive(1000, 10), short_pdu(5));
    peer_.send(short_pdu(6));
    EXPECT_EQ(peer_.receive(1000, 10), short_pdu(6));
    peer_.close();
  });
  const auto begun = Clock::now();
  EXPECT_EQ(DUL_release_request(dul_), DUL_RELEASE_REQUESTED);
  EXPECT_LT(seconds_since(begun), 0.9);
  requester.join();
  EXPECT_FALSE(alive());
  // A peer that never goes on does not hold it beyond the time-out.
  connect(State::Established, true);
  peer_.send(short_pdu(5));
  const auto stalled = Clock::now();
  EXPECT_EQ(DUL_release_request(dul_), DUL_RELEASE_REQUESTED);
  EXPECT_LT(seconds_since(stalled), 2.5);
  EXPECT_FALSE(alive());
}

// --- A peer that stalls, resets or floods, state by state ---

TEST_F(UpperLayer, ARequesterWithoutAProperAnswer) {
  const std::string half = simple_accept().substr(0, 40);
  struct Case {
    const char* what;
    std::string answer;
    bool reset, drip;
    DulStatus expected;
  };
  const Case cases[] = {{"silence", "", false, false, DUL_PROVIDER_ABORTED},
                        {"reset", "", true, false, DUL_PROVIDER_ABORTED},
                        {"half an answer", half, false, false, DUL_PROVIDER_ABORTED},
                        {"an answer that drips", simple_accept(), false, true, DUL_PROVIDER_ABORTED},
                        {"no DICOM", "SSH-2.0-OpenSSH\r\n", false, false, DUL_PROVIDER_ABORTED},
                        {"a rejection", short_pdu(3, 1, 1, 7), false, false, DUL_PEER_REJECTED},
                        {"a short rejection", pdu(3, "ab"), false, false, DUL_PROVIDER_ABORTED},
                        {"an abort", short_pdu(7, 0, 2, 1), false, false, DUL_PEER_ABORTED}};
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::listen(listener, 4), 0);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::atomic<bool> over{false};
    std::thread acceptor([&] {
      const Peer peer(::accept(listener, nullptr, nullptr));
      if (c.reset) set_linger(peer.socket(), true);
      if (c.reset) return;
      peer.receive(1000, 10);
      for (std::size_t at = 0; at < c.answer.size() && !over; at += c.drip ? 1 : c.answer.size()) {
        peer.send(c.drip ? c.answer.substr(at, 1) : c.answer);
        if (c.drip) std::this_thread::sleep_for(std::chrono::milliseconds(100));
      }
      while (!over) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    });
    AssociationParameters* proposal = new_association_parameters();
    std::snprintf(proposal->calledHostName, sizeof proposal->calledHostName, "127.0.0.1");
    std::snprintf(proposal->calledPort, sizeof proposal->calledPort, "%d", ntohs(address.sin_port));
    DUL_Association* handle = nullptr;
    const auto begun = Clock::now();
    EXPECT_EQ(DUL_associate_request(16384, proposal, &handle, nullptr, nullptr), c.expected);
    EXPECT_LT(seconds_since(begun), 2.9);
    EXPECT_EQ(handle, nullptr);
    if (c.expected == DUL_PEER_REJECTED) {
      EXPECT_EQ(proposal->rejectReason, 7);
    }
    over = true;
    acceptor.join();
    free_association_parameters(proposal);
  }
  ::close(listener);
}

TEST_F(UpperLayer, APeerThatFloodsAnEndedAssociationIsLeftInTime) {
  const std::string flood = pdu(4, pdv(1, 0, std::string(10000, 'x')));
  for (const State state : {State::AwaitingAccept, State::Established, State::ReleaseIndicated}) {
    SCOPED_TRACE(static_cast<int>(state));
    connect(state, true);
    std::atomic<bool> over{false};
    std::thread sender([&] {
      while (!over) peer_.send(flood);
    });
    const auto begun = Clock::now();
    if (state == State::AwaitingAccept) {
      EXPECT_EQ(DUL_associate_reject(dul_, 1, 1, 1), DUL_NORMAL);
    } else if (state == State::Established) {
      EXPECT_EQ(DUL_abort_request(dul_), DUL_NORMAL);
    } else {
      EXPECT_EQ(DUL_release_response(dul_), DUL_PROVIDER_ABORTED);
    }
    EXPECT_NEAR(seconds_since(begun), 1, 0.8);
    EXPECT_FALSE(alive());
    over = true;
    sender.join();
  }
}

// --- Abort from another thread ---

void mark(DUL_Association& dul) {
  const Guard guard(session_lock());
  mark_association_abort(dul);
}

TEST_F(UpperLayer, AnAbortEndsAReadWithinATickAndLeavesAtABoundary) {
  const std::string part = pdu(4, pdv(1, 3, "abcd")).substr(0, 9);
  for (const std::string& before : {std::string(), part}) {
    connect(State::Established, true);
    set_int(VX_CFG_INACTIVITY_TIMEOUT, 30);
    peer_.send(before);
    std::thread other([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      mark(*dul_);
    });
    const auto begun = Clock::now();
    EXPECT_EQ(DUL_read_pdvs(dul_, -1), DUL_ABORT_REQUESTED);
    EXPECT_LT(seconds_since(begun), 1.3);
    other.join();
    ASSERT_TRUE(alive());
    EXPECT_EQ(DUL_abort_request(dul_), DUL_NORMAL);
    EXPECT_LT(seconds_since(begun), 2.5);
    EXPECT_FALSE(alive());
    EXPECT_EQ(peer_.receive(), short_pdu(7));
  }
}

TEST_F(UpperLayer, AnAbortEndsABlockedWriteAndCutsNoPdu) {
  connect(State::Established, false);
  set_int(VX_CFG_WRITE_TIMEOUT, 30);
  std::string buffer;
  const PdvToSend pdv = whole_pdv(buffer, std::string(8 << 20, 'x'));
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    mark(*dul_);
  });
  DUL_Association* handle = dul_;
  const auto begun = Clock::now();
  EXPECT_EQ(DUL_write_pdvs(&handle, &pdv), DUL_ABORT_REQUESTED);
  EXPECT_LT(seconds_since(begun), 2.3);
  other.join();
  EXPECT_EQ(handle, nullptr);
  const std::string got = peer_.receive();
  EXPECT_LT(got.size(), buffer.size());
  EXPECT_EQ(got.find(short_pdu(7)), std::string::npos);
}

TEST_F(UpperLayer, AWriteAfterTheWishDoesNotBegin) {
  connect(State::Established, false);
  mark(*dul_);
  std::string buffer;
  const PdvToSend pdv = whole_pdv(buffer, "value!");
  DUL_Association* handle = dul_;
  EXPECT_EQ(DUL_write_pdvs(&handle, &pdv), DUL_ABORT_REQUESTED);
  EXPECT_EQ(peer_.receive(), short_pdu(7));
}

// --- A secure channel ---

struct Channel {
  int socket = -1;
  uint32_t at_most = 3;  // bytes a read gives
  int closed = 0;
};
int32_t channel_read(void*, void* context, void* buffer, uint32_t length, uint32_t* count, int32_t timeout) {
  auto* channel = static_cast<Channel*>(context);
  pollfd entry{channel->socket, POLLIN, 0};
  if (::poll(&entry, 1, timeout * 1000) <= 0) return 2;
  const ssize_t got = ::recv(channel->socket, buffer, std::min(length, channel->at_most), 0);
  *count = got > 0 ? static_cast<uint32_t>(got) : 0;
  return got > 0 ? 0 : 1;
}
int32_t channel_write(void*, void* context, const void* buffer, uint32_t length, uint32_t* count, int32_t) {
  *count = static_cast<uint32_t>(::send(static_cast<Channel*>(context)->socket, buffer, length, 0));
  return *count == length ? 0 : 1;
}
int32_t channel_open(int32_t, int32_t, void*, void**) {
  return 0;
}
void channel_close(void*, void* context) {
  ++static_cast<Channel*>(context)->closed;
}

TEST_F(UpperLayer, ASecureChannelCarriesPdusAndSeesAnAbort) {
  const SS_Functions functions{channel_open, channel_read, channel_write, channel_close};
  connect(State::Established, true);
  Channel channel;
  channel.socket = dul_->transport->socket;
  TL_Transport* secure = TL_Create_Transport(&functions, &channel);
  secure->socket = channel.socket;
  TL_Free_Transport(dul_->transport);
  dul_->transport = secure;
  peer_.send(pdu(4, pdv(1, 3, "abcdefgh")));
  ASSERT_EQ(DUL_read_pdvs(dul_, 5), DUL_PDATA_ARRIVED);
  EXPECT_EQ(dul_->pdvList->length, 8U);
  std::string buffer;
  PdvToSend pdv = whole_pdv(buffer, "ab");
  const std::string tail = "cd";
  pdv.Tail = reinterpret_cast<const uint8_t*>(tail.data());
  pdv.TailLength = 2;
  pdv.ValueLength = 4;
  DUL_Association* handle = dul_;
  ASSERT_EQ(DUL_write_pdvs(&handle, &pdv), DUL_NORMAL);
  EXPECT_EQ(peer_.receive(), wire::pdu(4, wire::pdv(7, 2, "abcd")));
  dul_->midMessage = 0;
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    mark(*dul_);
  });
  const auto begun = Clock::now();
  EXPECT_EQ(DUL_read_pdvs(dul_, -1), DUL_ABORT_REQUESTED);
  EXPECT_LT(seconds_since(begun), 1.3);
  other.join();
  DUL_abort_request(dul_);
  EXPECT_EQ(channel.closed, 1);
}

}  // namespace
