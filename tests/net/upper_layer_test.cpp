// One association over a connection: data, time-outs, release and its collision, aborts of another thread.
#include "net/peers.h"

#include "connection/socket.h"

namespace vx::test {
namespace {

constexpr int kWholeCommand = kCommand | kLast;

class UpperLayer : public WireTest {
 protected:
  void connect(State state, bool acceptor, uint32_t maximum = 16384) {
    WireTest::connect(state, acceptor, maximum);
    begun_ = Clock::now();
  }
  void established(bool acceptor = true) { connect(State::Established, acceptor); }
  double seconds() const { return seconds_since(begun_); }
  // One PDV in a buffer, with what else it needs in front.
  PdvToSend whole_pdv(std::string_view value, std::string_view before = {}) {
    buffer_ = Bytes(before) + Bytes(kPdvHeader, '\0') + Bytes(value);
    PdvToSend pdv{};
    pdv.ContextId = 7;
    pdv.IsData = pdv.IsLast = true;
    pdv.Buffer = reinterpret_cast<uint8_t*>(buffer_.data());
    pdv.BufferLength = static_cast<uint32_t>(buffer_.size());
    pdv.FragmentStart = pdv.Buffer + before.size();
    pdv.ValueLength = static_cast<uint32_t>(value.size());
    return pdv;
  }
  static void add_tail(PdvToSend& pdv, std::string_view tail) {
    pdv.Tail = reinterpret_cast<const uint8_t*>(tail.data());
    pdv.TailLength = static_cast<uint32_t>(tail.size());
    pdv.ValueLength += pdv.TailLength;
  }
  DulStatus write(const PdvToSend& pdv) {
    handle_ = dul_;
    return DUL_write_pdvs(&handle_, &pdv);
  }
  // As another thread asks for an abort.
  void mark() {
    const Guard guard(session_lock());
    mark_association_abort(*dul_);
  }
  std::thread mark_soon() {
    return std::thread([this] {
      pause(100);
      mark();
    });
  }

  Clock::time_point begun_;
  Bytes buffer_;
  DUL_Association* handle_ = nullptr;
};

TEST_F(UpperLayer, HandsOutThePdvsOfAPdu) {
  established();
  peer_.send(pdu(4, pdv(3, 1, "ab") + pdv(3, 3, "") + pdv(3, 0, "wxyz")) + data_pdu(5, kLast, "end"));
  ASSERT_EQ(DUL_read_pdvs(dul_, 5), DUL_PDATA_ARRIVED);
  std::string got;
  for (const PdvRecord& pdv : std::span(dul_->pdvList, dul_->pdvCount)) {
    got += joined(pdv.contextId, pdv.isData, pdv.isLast,
                  Bytes(reinterpret_cast<const char*>(pdv.data), pdv.length));
  }
  EXPECT_EQ(got, "3,0,0,ab,3,0,1,,3,1,0,wxyz,");
  // Nothing past the PDU was taken from the socket.
  EXPECT_EQ(dul_->midMessage, 1);
  ASSERT_EQ(DUL_read_pdvs(dul_, 0), DUL_PDATA_ARRIVED);
  EXPECT_EQ(joined(dul_->pdvCount, dul_->pdvList->isData, dul_->pdvList->isLast), "1,1,1,");
  // A PDU of the maximum passes, and one byte more does not.
  connect(State::Established, true, 100);
  peer_.send(data_pdu(1, kData, Bytes(94, 'x')) + data_pdu(1, kData, Bytes(95, 'x')));
  EXPECT_EQ(DUL_read_pdvs(dul_, 5), DUL_PDATA_ARRIVED);
  EXPECT_EQ(DUL_read_pdvs(dul_, 5), DUL_PROVIDER_ABORTED);
  EXPECT_FALSE(alive());
}

TEST_F(UpperLayer, SilenceAfterEachByteOfAMessageEndsInTime) {
  const Bytes message = data_pdu(1, kWholeCommand, "cm") + data_pdu(1, kLast, "ds");
  // All stalls at once: each waits in its own thread.
  struct Stall {
    DUL_Association* dul;
    RawPeer peer;
    std::thread thread;
    DulStatus last = DUL_NORMAL;
    double seconds = 0;
  };
  std::vector<Stall> stalls(message.size());
  for (std::size_t length = 0; length < message.size(); ++length) {
    Stall& stall = stalls[length];
    stall.dul = make(State::Established, true, connected(stall.peer));
    stall.peer.send(message.substr(0, length));
    stall.thread = std::thread([&stall] {
      const auto begun = Clock::now();
      do {
        stall.last = DUL_read_pdvs(stall.dul, 1);
      } while (stall.last == DUL_PDATA_ARRIVED);
      stall.seconds = seconds_since(begun);
    });
  }
  for (std::size_t length = 0; length < message.size(); ++length) {
    Stall& stall = stalls[length];
    stall.thread.join();
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
  }
}

TEST_F(UpperLayer, ATimeOutBetweenMessagesChangesNothing) {
  established();
  EXPECT_EQ(DUL_read_pdvs(dul_, 0), DUL_READ_TIMEOUT);
  EXPECT_EQ(dul_->midMessage, 0);
  const Bytes bytes = data_pdu(1, kWholeCommand, "ab");
  peer_.send(bytes.substr(0, 6));
  EXPECT_EQ(DUL_read_pdvs(dul_, 0), DUL_READ_TIMEOUT);
  EXPECT_EQ(dul_->readPhase, ReadPhase::Body);
  peer_.send(bytes.substr(6));
  EXPECT_EQ(DUL_read_pdvs(dul_, 0), DUL_PDATA_ARRIVED);
}

// Data is waited for as long as it drips; a proposal must be there in time.
TEST_F(UpperLayer, APeerThatDrips) {
  std::atomic<bool> stop{false};
  const auto drip = [&](const Bytes& bytes, int milliseconds) {
    return std::thread([&, bytes, milliseconds] {
      for (const char byte : bytes) {
        if (stop) return;
        peer_.send(Bytes(1, byte));
        pause(milliseconds);
      }
    });
  };
  established();
  std::thread data = drip(data_pdu(1, kWholeCommand, "abcd"), 150);
  EXPECT_EQ(DUL_read_pdvs(dul_, 1), DUL_PDATA_ARRIVED);
  data.join();
  connect(State::AwaitingRequest, true);
  dul_->artimTimer.running = true;
  dul_->transport->deadline = monotonic_now() + kSecond;  // as the wait for a request sets it
  std::thread request = drip(simple_request(), 50);
  uint8_t type = 0;
  DulStatus status = VXI_nextPDUtype(*dul_, type);
  if (status == DUL_NORMAL) status = process_PDU(type, *dul_, parameters_);
  EXPECT_NE(status, DUL_NORMAL);
  EXPECT_LT(seconds(), 1.5);
  stop = true;
  request.join();
}

// --- Sending ---

TEST_F(UpperLayer, HeldFragmentsLeaveWithTheNextAndATailWithItsHeader) {
  established(false);
  PdvToSend first = whole_pdv("command!");
  first.IsData = false;
  first.Hold = true;
  ASSERT_EQ(write(first), DUL_NORMAL);
  EXPECT_EQ(peer_.heard(0), "");
  const Bytes held = buffer_;
  PdvToSend second = whole_pdv("da", held);
  add_tail(second, "ta!!");
  ASSERT_EQ(write(second), DUL_NORMAL);
  EXPECT_EQ(peer_.heard(), data_pdu(7, kWholeCommand, "command!") + data_pdu(7, kLast, "data!!"));
}

TEST_F(UpperLayer, APeerThatStopsReadingEndsAWrite) {
  established(false);
  EXPECT_EQ(write(whole_pdv(Bytes(8 << 20, 'x'))), DUL_PROVIDER_ABORTED);
  EXPECT_LT(seconds(), 2.5);
  EXPECT_EQ(handle_, nullptr);
  EXPECT_FALSE(alive());
  EXPECT_TRUE(has_log("Timeout in TL_Write()"));
}

// --- Release ---

TEST_F(UpperLayer, AReleaseCollisionIsSeenThrough) {
  const Bytes reply = short_pdu(kReleaseRp);
  // The requester answers first, then takes the answer to its own request.
  established(false);
  peer_.send(kReleaseRequest);
  std::thread acceptor([&] {
    EXPECT_EQ(peer_.heard(1000, 20), kReleaseRequest + reply);
    peer_.send(reply);
  });
  EXPECT_EQ(DUL_release_request(dul_), DUL_RELEASE_REQUESTED);
  acceptor.join();
  EXPECT_FALSE(alive());
  // The accepting side takes the answer first.
  established();
  peer_.send(kReleaseRequest);
  std::thread requester([&] {
    EXPECT_EQ(peer_.heard(1000, 10), kReleaseRequest);
    peer_.send(reply);
    EXPECT_EQ(peer_.heard(1000, 10), reply);
    peer_.close();
  });
  EXPECT_EQ(DUL_release_request(dul_), DUL_RELEASE_REQUESTED);
  EXPECT_LT(seconds(), 0.9);
  requester.join();
  EXPECT_FALSE(alive());
  // A peer that never goes on does not hold it beyond the time-out.
  established();
  peer_.send(kReleaseRequest);
  EXPECT_EQ(DUL_release_request(dul_), DUL_RELEASE_REQUESTED);
  EXPECT_LT(seconds(), 2.5);
  EXPECT_FALSE(alive());
}

// --- A peer that stalls, resets or floods, state by state ---

TEST_F(UpperLayer, ARequesterWithoutAProperAnswer) {
  struct Case {
    const char* what;
    Bytes answer;
    DulStatus expected;
    bool reset = false, drip = false;
  };
  const Case cases[] = {{"silence", "", DUL_PROVIDER_ABORTED},
                        {"reset", "", DUL_PROVIDER_ABORTED, true},
                        {"half an answer", simple_accept().substr(0, 40), DUL_PROVIDER_ABORTED},
                        {"an answer that drips", simple_accept(), DUL_PROVIDER_ABORTED, false, true},
                        {"no DICOM", "SSH-2.0-OpenSSH\r\n", DUL_PROVIDER_ABORTED},
                        {"a rejection", short_pdu(3, 1, 1, 7), DUL_PEER_REJECTED},
                        {"a short rejection", pdu(3, "ab"), DUL_PROVIDER_ABORTED},
                        {"an abort", short_pdu(7, 0, 2, 1), DUL_PEER_ABORTED}};
  // All at once: each waits in its own thread.
  std::vector<std::thread> threads;
  for (const Case& c : cases) {
    threads.emplace_back([&c] {
      const RawListener listener;
      std::atomic<bool> over{false};
      std::thread acceptor([&] {
        const RawPeer peer = listener.accept();
        if (c.reset) set_linger(peer.socket(), true);
        if (c.reset) return;
        peer.heard(1000, 10);
        for (std::size_t at = 0; at < c.answer.size() && !over; at += c.drip ? 1 : c.answer.size()) {
          peer.send(c.drip ? c.answer.substr(at, 1) : c.answer);
          if (c.drip) pause(100);
        }
        while (!over) pause(10);
      });
      AssociationParameters* proposal = new_association_parameters();
      copy_text(proposal->calledHostName, sizeof proposal->calledHostName, "127.0.0.1");
      copy_text(proposal->calledPort, sizeof proposal->calledPort, std::to_string(listener.port()));
      DUL_Association* handle = nullptr;
      const auto begun = Clock::now();
      EXPECT_EQ(DUL_associate_request(16384, proposal, &handle, nullptr, nullptr), c.expected) << c.what;
      EXPECT_LT(seconds_since(begun), 2.9) << c.what;
      EXPECT_EQ(handle, nullptr) << c.what;
      EXPECT_EQ(proposal->rejectReason, c.expected == DUL_PEER_REJECTED ? 7 : 0) << c.what;
      over = true;
      acceptor.join();
      free_association_parameters(proposal);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(UpperLayer, APeerThatFloodsAnEndedAssociationIsLeftInTime) {
  const Bytes flood = data_pdu(1, kData, Bytes(10000, 'x'));
  for (const State state : {State::AwaitingAccept, State::Established, State::ReleaseIndicated}) {
    SCOPED_TRACE(static_cast<int>(state));
    connect(state, true);
    std::atomic<bool> over{false};
    std::thread sender([&] {
      while (!over) peer_.send(flood);
    });
    if (state == State::AwaitingAccept) {
      EXPECT_EQ(DUL_associate_reject(dul_, 1, 1, 1), DUL_NORMAL);
    } else if (state == State::Established) {
      EXPECT_EQ(DUL_abort_request(dul_), DUL_NORMAL);
    } else {
      EXPECT_EQ(DUL_release_response(dul_), DUL_PROVIDER_ABORTED);
    }
    EXPECT_NEAR(seconds(), 1, 0.8);
    EXPECT_FALSE(alive());
    over = true;
    sender.join();
  }
}

// --- Abort from another thread ---

TEST_F(UpperLayer, AnAbortEndsAReadWithinATickAndLeavesAtABoundary) {
  for (const std::size_t before : {0, 9}) {
    established();
    set_int(VX_CFG_INACTIVITY_TIMEOUT, 30);
    peer_.send(data_pdu(1, kWholeCommand, "abcd").substr(0, before));
    std::thread other = mark_soon();
    EXPECT_EQ(DUL_read_pdvs(dul_, -1), DUL_ABORT_REQUESTED);
    EXPECT_LT(seconds(), 1.3);
    other.join();
    ASSERT_TRUE(alive());
    EXPECT_EQ(DUL_abort_request(dul_), DUL_NORMAL);
    EXPECT_LT(seconds(), 2.5);
    EXPECT_FALSE(alive());
    EXPECT_EQ(peer_.heard(), short_pdu(kAbort));
  }
}

TEST_F(UpperLayer, AnAbortEndsABlockedWriteAndCutsNoPdu) {
  set_int(VX_CFG_WRITE_TIMEOUT, 30);
  established(false);
  const PdvToSend pdv = whole_pdv(Bytes(8 << 20, 'x'));
  std::thread other = mark_soon();
  EXPECT_EQ(write(pdv), DUL_ABORT_REQUESTED);
  EXPECT_LT(seconds(), 2.3);
  other.join();
  EXPECT_EQ(handle_, nullptr);
  const Bytes got = peer_.heard();
  EXPECT_LT(got.size(), buffer_.size());
  EXPECT_EQ(got.find(short_pdu(kAbort)), Bytes::npos);
  // A write after the wish does not begin.
  established(false);
  mark();
  EXPECT_EQ(write(whole_pdv("value!")), DUL_ABORT_REQUESTED);
  EXPECT_EQ(peer_.heard(), short_pdu(kAbort));
}

// --- A secure channel ---

struct Channel {
  int socket = -1;
  int closed = 0;

  static int32_t open(int32_t, int32_t, void*, void**) { return 0; }
  static int32_t read(void*, void* context, void* buffer, uint32_t length, uint32_t* count, int32_t timeout) {
    constexpr uint32_t kAtMost = 3;
    pollfd entry{static_cast<Channel*>(context)->socket, POLLIN, 0};
    if (::poll(&entry, 1, timeout * 1000) <= 0) return kChannelTimedOut;
    const ssize_t got = ::recv(entry.fd, buffer, std::min(length, kAtMost), 0);
    *count = got > 0 ? static_cast<uint32_t>(got) : 0;
    return got > 0 ? 0 : 1;
  }
  static int32_t write(void*, void* context, const void* buffer, uint32_t length, uint32_t* count, int32_t) {
    *count = static_cast<uint32_t>(::send(static_cast<Channel*>(context)->socket, buffer, length, 0));
    return *count == length ? 0 : 1;
  }
  static void close(void*, void* context) { ++static_cast<Channel*>(context)->closed; }
};

TEST_F(UpperLayer, ASecureChannelCarriesPdusAndSeesAnAbort) {
  const SS_Functions functions{Channel::open, Channel::read, Channel::write, Channel::close};
  Channel channel;
  dul_ = make(State::Established, true, connected(peer_, &functions, &channel));
  channel.socket = dul_->transport->socket;
  peer_.send(data_pdu(1, kWholeCommand, "abcdefgh"));
  ASSERT_EQ(DUL_read_pdvs(dul_, 5), DUL_PDATA_ARRIVED);
  EXPECT_EQ(dul_->pdvList->length, 8U);
  PdvToSend pdv = whole_pdv("ab");
  add_tail(pdv, "cd");
  ASSERT_EQ(write(pdv), DUL_NORMAL);
  EXPECT_EQ(peer_.heard(), data_pdu(7, kLast, "abcd"));
  dul_->midMessage = 0;
  std::thread other = mark_soon();
  const auto begun = Clock::now();
  EXPECT_EQ(DUL_read_pdvs(dul_, -1), DUL_ABORT_REQUESTED);
  EXPECT_LT(seconds_since(begun), 1.3);
  other.join();
  DUL_abort_request(dul_);
  EXPECT_EQ(channel.closed, 1);
}

}  // namespace
}  // namespace vx::test
