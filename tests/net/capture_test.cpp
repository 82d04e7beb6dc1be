// The network capture: the files of the library, and an application's own table.
#include "connection/capture.h"

#include <arpa/inet.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <numeric>

#include "net/peers.h"

namespace vx::test {
namespace {

namespace fs = std::filesystem;

uint32_t big(const Bytes& bytes, std::size_t at, std::size_t width) {
  uint32_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value = value << 8 | static_cast<uint8_t>(bytes.at(at + i));
  return value;
}
uint32_t little(const Bytes& bytes, std::size_t at, std::size_t width) {
  const Bytes part = bytes.substr(at, width);
  return big(Bytes(part.rbegin(), part.rend()), 0, width);
}
// The checksum over words that hold a right checksum is zero.
uint32_t checksum(Bytes bytes) {
  bytes.resize(bytes.size() + bytes.size() % 2);
  uint32_t sum = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 2) sum += big(bytes, i, 2);
  while (sum >> 16 != 0) sum = (sum & 0xFFFF) + (sum >> 16);
  return ~sum & 0xFFFF;
}

struct Packet {
  uint32_t source_port, sequence, acknowledge, flags;
  Bytes data;
};

const sockaddr* address(uint16_t port) {
  static thread_local sockaddr_in places[8];
  places[port % 8] = loopback(port);
  return reinterpret_cast<const sockaddr*>(&places[port % 8]);
}

class Capture : public support::LibraryTest {
 protected:
  std::string path(const std::string& name) const { return folder().path(name); }
  // The packets of a file. Checks all that is fixed while it reads.
  std::vector<Packet> packets(const std::string& name) const {
    const Bytes bytes = folder().read(name);
    std::vector<Packet> found;
    EXPECT_GE(bytes.size(), 128U) << name;
    if (bytes.size() < 128) return found;
    EXPECT_EQ(bytes.substr(0, 12), Bytes("XCP\0"
                                         "001.100\0",
                                         12));
    EXPECT_EQ(little(bytes, 60, 4), 10'000'000U);
    std::size_t at = 128;
    while (at + 82 <= bytes.size()) {
      const uint32_t frame = little(bytes, at + 10, 2);
      const Bytes ip = bytes.substr(at + 42, 20);
      const Bytes tcp = bytes.substr(at + 62, frame - 34);
      EXPECT_EQ(big(ip, 2, 2), frame - 14);
      EXPECT_EQ(checksum(ip), 0U);
      EXPECT_EQ(checksum(ip.substr(12, 8) + bytes_of(0, 6) + be16(tcp.size()) + tcp), 0U);
      found.push_back(
          {big(tcp, 0, 2), big(tcp, 4, 4), big(tcp, 8, 4), big(tcp, 12, 2) & 0xFFF, tcp.substr(20)});
      at += 28 + frame;
    }
    EXPECT_EQ(at, bytes.size());
    EXPECT_EQ(little(bytes, 16, 4), found.size());
    return found;
  }
  // The capture begins anew, in another file.
  void restart(const std::string& name) {
    set_bool(VX_CFG_NETWORK_CAPTURE, false);
    set_text(VX_CFG_CAPTURE_FILE, path(name));
    set_bool(VX_CFG_NETWORK_CAPTURE, true);
  }
  void settings(int32_t size, int32_t files, bool rewrite) {
    set_text(VX_CFG_CAPTURE_FILE, path("net.cap"));
    set_long(VX_CFG_CAPTURE_FILE_SIZE, size);
    set_int(VX_CFG_NUMBER_OF_CAP_FILES, files);
    set_bool(VX_CFG_REWRITE_CAPTURE_FILES, rewrite);
    set_bool(VX_CFG_NETWORK_CAPTURE, true);
  }
  // A connection of the library's own table, from port 1 to port 2.
  static void* open() {
    void* stream = capture_files().OpenStream(nullptr, address(1), address(2));
    EXPECT_EQ(capture_files().ConnectionOpened(nullptr, stream, address(1), address(2)), 0);
    return stream;
  }
  static int32_t say(void* stream, uint16_t from, const Bytes& data) {
    return capture_files().DataSent(nullptr, stream, address(from), address(static_cast<uint16_t>(3 - from)),
                                    data.data(), static_cast<int32_t>(data.size()));
  }
  static void close(void* stream) {
    EXPECT_EQ(capture_files().ConnectionClosing(nullptr, stream, address(1), address(2)), 0);
    capture_files().CloseStream(nullptr, stream);
  }
};

TEST_F(Capture, AConnectionIsDrawnWithRightNumbersAndSums) {
  settings(0, 5, true);  // no limit: no rotation
  void* stream = open();
  Bytes data;
  for (int i = 0; i < 70000; ++i) data += static_cast<char>(i * 7);
  EXPECT_EQ(say(stream, 1, data), 0);
  EXPECT_EQ(say(stream, 2, "odd"), 0);
  EXPECT_EQ(say(stream, 2, ""), 0);
  close(stream);
  const std::vector<Packet> all = packets("net.cap");
  ASSERT_EQ(all.size(), 11U);
  EXPECT_EQ(joined(all[0].flags, all[1].flags, all[2].flags, all[7].flags), joined(0x02, 0x12, 0x10, 0x11));
  EXPECT_EQ(all[3].data + all[4].data + all[5].data, data);
  EXPECT_EQ(joined(all[3].data.size(), all[5].data.size(), all[6].source_port, all[6].data),
            "32000,6000,2,odd,");
  EXPECT_EQ(all[1].acknowledge, all[0].sequence + 1);
  EXPECT_EQ(all[5].sequence, all[3].sequence + 64000);
  EXPECT_EQ(all[6].acknowledge, all[0].sequence + 1 + 70000);
  EXPECT_EQ(all[10].acknowledge, all[9].sequence + 1);
  struct stat info {};
  ASSERT_EQ(::stat(path("net.cap").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(Capture, TheRotationEndsOrBeginsAnew) {
  // Numbers go on where an earlier capture of the process ended: a ring of 3 comes to its end within 3.
  settings(100, 3, true);
  const std::string third = path("net003.cap");
  for (int i = 0; i < 3 && !fs::exists(third); ++i) close(open());
  ASSERT_TRUE(fs::exists(third));
  set_bool(VX_CFG_REWRITE_CAPTURE_FILES, false);
  set_int(VX_CFG_NUMBER_OF_CAP_FILES, 6);
  for (int i = 0; i < 5; ++i) {
    void* stream = open();
    EXPECT_EQ(say(stream, 1, std::string(1, static_cast<char>('a' + i))), 0);
    close(stream);
  }
  for (int number = 4; number <= 6; ++number) {
    const std::vector<Packet> all = packets("net00" + std::to_string(number) + ".cap");
    ASSERT_EQ(all.size(), 8U) << number;
    EXPECT_EQ(all[3].data, std::string(1, static_cast<char>('a' + number - 4)));
  }
  EXPECT_FALSE(fs::exists(path("net007.cap")));
  EXPECT_TRUE(config_bool(VX_CFG_NETWORK_CAPTURE)) << "what goes unrecorded does not end the capture";
  set_int(VX_CFG_NUMBER_OF_CAP_FILES, 3);
  // With the key on the next ones begin anew, while a connection that is open keeps its file.
  set_bool(VX_CFG_REWRITE_CAPTURE_FILES, true);
  void* live = open();
  for (int i = 0; i < 3; ++i) close(open());
  EXPECT_EQ(say(live, 1, "still here"), 0);
  close(live);
  for (const char* name : {"net001.cap", "net002.cap", "net003.cap"}) {
    EXPECT_EQ(packets(name).size(), 7U) << name;
  }
}

TEST_F(Capture, SettingsChangeUnderOpenConnections) {
  settings(0, 1, true);
  void* first = open();
  set_text(VX_CFG_CAPTURE_FILE, path("other.cap"));
  void* second = open();
  EXPECT_EQ(say(first, 1, "one"), 0);
  EXPECT_EQ(say(second, 1, "two"), 0);
  close(second);
  set_bool(VX_CFG_NETWORK_CAPTURE, false);
  set_bool(VX_CFG_NETWORK_CAPTURE, true);
  close(first);
  EXPECT_EQ(packets("net.cap").size(), 8U);
  EXPECT_EQ(packets("other.cap").size(), 8U);
  // A stream of a stopped capture is passed over, and the file that another one holds is not taken.
  void* third = open();
  set_bool(VX_CFG_NETWORK_CAPTURE, false);
  EXPECT_EQ(say(third, 1, "unheard"), 0);
  close(third);
  EXPECT_EQ(packets("other.cap").size(), 3U);
}

TEST_F(Capture, ALimitKeepsWhatIsThereAndALinkIsNotFollowed) {
  settings(10, 1, true);  // taken as 32
  void* stream = open();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(say(stream, 1, Bytes(20000, 'x')), 0);
  close(stream);
  EXPECT_EQ(packets("net.cap").size(), 5U);
  // A link, a file with a second name, and one of another user (which only root can make), are not taken
  // over.
  folder().write("victim", "precious");
  folder().write("theirs.cap", "precious");
  fs::create_symlink(path("victim"), path("link.cap"));
  fs::create_hard_link(path("victim"), path("hard.cap"));
  const bool others = ::chown(path("theirs.cap").c_str(), 4711, 4711) == 0;
  for (const char* name : {"link.cap", "hard.cap", others ? "theirs.cap" : "hard.cap"}) {
    clear_log();
    restart(name);
    close(open());
    EXPECT_TRUE(has_log("Unable to open")) << name;
    EXPECT_EQ(folder().read(name), "precious") << name;
  }
}

TEST_F(Capture, WhatIsPassedOverAndWhatEndsTheCapture) {
  settings(0, 1, true);
  sockaddr_in6 sides[2] = {};
  for (sockaddr_in6& side : sides) side.sin6_family = AF_INET6;
  const auto* one = reinterpret_cast<const sockaddr*>(&sides[0]);
  const auto* two = reinterpret_cast<const sockaddr*>(&sides[1]);
  const NetworkCaptureCallbacks& table = capture_files();
  void* stream = table.OpenStream(nullptr, one, two);
  EXPECT_EQ(table.ConnectionOpened(nullptr, stream, one, two), 0);
  EXPECT_EQ(table.DataSent(nullptr, stream, two, one, "text", 4), 0);
  EXPECT_EQ(table.ConnectionClosing(nullptr, stream, one, two), 0);
  table.CloseStream(nullptr, stream);
  table.CloseStream(nullptr, nullptr);
  EXPECT_FALSE(fs::exists(path("net.cap")));
  // A stream that there is not, a length that can not be: failures, which end the capture.
  EXPECT_EQ(table.ConnectionOpened(nullptr, nullptr, address(1), address(2)), 1);
  stream = open();
  EXPECT_EQ(table.DataSent(nullptr, stream, address(1), address(2), "text", -1), 1);
  EXPECT_EQ(say(stream, 1, "unheard"), 0);
  close(stream);
  EXPECT_EQ(packets("net.cap").size(), 3U);
  EXPECT_TRUE(has_log("Invalid data length parm: -1"));
  // A full disk keeps the last whole record.
  set_text(VX_CFG_CAPTURE_FILE, path("full.cap"));
  stream = open();
  rlimit old{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
  const rlimit tight{128 + 3 * 82 + 90, old.rlim_max};
  ::signal(SIGXFSZ, SIG_IGN);
  ::setrlimit(RLIMIT_FSIZE, &tight);
  EXPECT_EQ(say(stream, 1, std::string(100, 'x')), 1);
  ::setrlimit(RLIMIT_FSIZE, &old);
  ::signal(SIGXFSZ, SIG_DFL);
  close(stream);
  EXPECT_EQ(packets("full.cap").size(), 3U);
}

// --- Through the transport ---

// What an application's own table is told.
struct Counts {
  int opened = 0, closing = 0, closed = 0, stopped = 0, settings = 0;
  Bytes data;
  int32_t answer = 0;

  static Counts& of(void* user) { return *static_cast<Counts*>(user); }
  static int32_t initialize(void* c, int32_t, const char*, int32_t, int32_t) { return ++of(c).settings, 1; }
  static void stop(void* c) { ++of(c).stopped; }
  static void* open(void* c, const sockaddr*, const sockaddr*) { return c; }
  static void close(void* c, void*) { ++of(c).closed; }
  static int32_t begun(void* c, void*, const sockaddr*, const sockaddr*) { return ++of(c).opened, 0; }
  static int32_t ends(void* c, void*, const sockaddr*, const sockaddr*) { return ++of(c).closing, 0; }
  static int32_t sent(void* c, void*, const sockaddr*, const sockaddr*, const void* data, int32_t length) {
    of(c).data.append(static_cast<const char*>(data), static_cast<std::size_t>(length));
    return of(c).answer;
  }
};

class CaptureOfTransport : public Capture {
 protected:
  void TearDown() override {
    disconnect();
    if (listener_ != nullptr) release_listen_port(listener_);
    Capture::TearDown();
  }
  void connect() {
    set_bool(VX_CFG_ACCEPT_ANY_HOSTNAME, true);
    while (listener_ == nullptr) TL_Prepare_Listen_Port(port_ = free_port(), "127.0.0.1", listener_);
    client_ = TL_Create_Transport(nullptr, nullptr);
    ASSERT_EQ(TL_Connect(*client_, "127.0.0.1", std::to_string(port_).c_str(), 5), TL_NORMAL);
    ASSERT_EQ(TL_Wait_For_Connection(server_, 5, listener_, 0), TL_NORMAL);
  }
  static TlStatus write_hello(TL_Transport& transport) {
    char text[] = "hello";
    iovec piece{text, 5};
    return TL_Write("test", transport, &piece, 1, 5);
  }
  void say_hello() {
    ASSERT_EQ(write_hello(*client_), TL_NORMAL);
    char got[5];
    uint32_t count = 0;
    ASSERT_EQ(TL_Read(*server_, got, 5, count, 5, 5), TL_NORMAL);
  }
  void disconnect() {
    for (TL_Transport** transport : {&client_, &server_}) {
      if (*transport != nullptr) TL_Close_Transport(std::exchange(*transport, nullptr));
    }
  }
  static bool capturing() { return config_bool(VX_CFG_NETWORK_CAPTURE); }
  int32_t port_ = 0;
  TL_ListenPortObj* listener_ = nullptr;
  TL_Transport* client_ = nullptr;
  TL_Transport* server_ = nullptr;
};

TEST_F(CaptureOfTransport, BothSidesAreRecorded) {
  settings(0, 1, true);
  connect();
  say_hello();
  disconnect();
  const std::vector<Packet> all = packets("net.cap");
  ASSERT_EQ(all.size(), 16U);
  for (const std::size_t i : {6U, 7U}) {
    EXPECT_EQ(all[i].data, "hello");
    EXPECT_EQ(all[i].source_port, all[0].source_port);  // the side that connected
  }
}

TEST_F(CaptureOfTransport, AnApplicationsTableSeesAllAndItsFailureEndsTheCapture) {
  Counts counts;
  NetworkCaptureCallbacks table = {&counts,       Counts::initialize, nullptr,      Counts::open,
                                   Counts::close, Counts::begun,      Counts::ends, Counts::sent};
  EXPECT_EQ(VX_Register_Network_Capture_Callbacks(&table), VX_NULL_POINTER_PARM);
  table.Stop = Counts::stop;
  // A connection that is older than the capture goes unrecorded, and does not end it.
  connect();
  settings(0, 1, true);
  ASSERT_OK(VX_Register_Network_Capture_Callbacks(&table));
  say_hello();
  disconnect();
  EXPECT_EQ(counts.opened + counts.closing + counts.closed, 0);
  EXPECT_TRUE(capturing());
  connect();
  set_int(VX_CFG_NUMBER_OF_CAP_FILES, 7);
  EXPECT_EQ(counts.settings, 2);
  say_hello();
  EXPECT_EQ(counts.data, "hellohello");
  disconnect();
  EXPECT_EQ(joined(counts.opened, counts.closing, counts.closed), "2,2,2,");
  counts.answer = 1;
  connect();
  say_hello();
  EXPECT_FALSE(capturing());
  EXPECT_EQ(counts.stopped, 1);
}

// Connections come, talk and go on threads of their own while rotation, names and the capture itself change;
// each file that is left is whole.
TEST_F(CaptureOfTransport, ManyConnectionsWhileTheSettingsChange) {
  settings(100, 3, true);
  connect();
  disconnect();
  std::atomic<bool> ended{false};
  std::atomic<int> heard{0};
  const auto talk = [&] {
    while (!ended) {
      TL_Transport* client = TL_Create_Transport(nullptr, nullptr);
      const bool there = TL_Connect(*client, "127.0.0.1", std::to_string(port_).c_str(), 5) == TL_NORMAL;
      for (int i = 0; there && i < 20; ++i) write_hello(*client);
      TL_Close_Transport(client);
    }
  };
  const auto listen = [&] {
    while (!ended) {
      TL_Transport* server = nullptr;
      char got[100];
      uint32_t count = 0;
      const bool there = TL_Wait_For_Connection(server, 1, listener_, 0) == TL_NORMAL;
      if (there && TL_Read(*server, got, sizeof got, count, 2, 2) == TL_NORMAL) ++heard;
      if (server != nullptr) TL_Close_Transport(server);
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back(talk);
    threads.emplace_back(listen);
  }
  constexpr const char* kNames[] = {"net.cap", "other.cap", "third.cap"};
  for (int round = 0; round < 60; ++round) {
    set_text(VX_CFG_CAPTURE_FILE, path(kNames[round % 3]));
    set_int(VX_CFG_NUMBER_OF_CAP_FILES, 1 + round % 4);
    set_long(VX_CFG_CAPTURE_FILE_SIZE, round % 5 == 0 ? 0 : 100);
    set_bool(VX_CFG_REWRITE_CAPTURE_FILES, round % 7 != 0);
    set_bool(VX_CFG_NETWORK_CAPTURE, round % 6 != 0);
    if (round % 9 == 0) VX_Register_Network_Capture_Callbacks(nullptr);
    pause(5);
  }
  ended = true;
  for (std::thread& thread : threads) thread.join();
  set_bool(VX_CFG_NETWORK_CAPTURE, false);
  EXPECT_GT(heard, 3);
  std::vector<std::size_t> files;
  for (const auto& entry : fs::directory_iterator(folder().path("."))) {
    if (entry.path().extension() == ".cap") files.push_back(packets(entry.path().filename()).size());
  }
  EXPECT_GT(files.size(), 3U);
  const std::size_t drawn = std::accumulate(files.begin(), files.end(), std::size_t{0});
  EXPECT_GT(drawn, 20U);
}

}  // namespace
}  // namespace vx::test
