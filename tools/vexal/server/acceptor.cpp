#include "acceptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <exception>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "base/log_lines.h"
#include "base/parallel.h"
#include "base/tags.h"
#include "lobby.h"
#include "metrics.h"

namespace vexal {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kVerification[] = "1.2.840.10008.1.1";
constexpr int kLookAfter = 1000;  // milliseconds between two looks at messages that are late

int wake_pipe[2] = {-1, -1};

void on_signal(int) {
  const char byte = 0;
  [[maybe_unused]] const ssize_t ignored = ::write(wake_pipe[1], &byte, 1);
}

bool catch_signals() {
  if (::pipe2(wake_pipe, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  struct sigaction action {};
  action.sa_handler = on_signal;
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  action.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &action, nullptr);
  return true;
}

// Threads that serve associations, counted, also by the host of their peer.
class Crew {
 public:
  // False if the system has no thread or no memory left. `work` throws nothing.
  template <typename Work>
  bool start(const AddressBytes& host, Work work) {
    bool counted = false;
    try {
      {
        const std::lock_guard lock(mutex_);
        ++hosts_[host];
        ++busy_;
        counted = true;
      }
      std::thread([this, host, work = std::move(work)] {
        work();
        // The loop has to look again at connections that wait for a free thread.
        finished(host);
      }).detach();
      return true;
    } catch (const std::exception&) {
      if (counted) finished(host);
      return false;
    }
  }
  std::size_t busy() const {
    const std::lock_guard lock(mutex_);
    return busy_;
  }
  std::size_t busy_for(const AddressBytes& host) const {
    const std::lock_guard lock(mutex_);
    const auto found = hosts_.find(host);
    return found == hosts_.end() ? 0 : found->second;
  }
  // False if they are still at work then.
  bool wait_for_all(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, time, [this] { return busy_ == 0; });
  }

 private:
  void finished(const AddressBytes& host) {
    const std::lock_guard lock(mutex_);
    const char byte = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(wake_pipe[1], &byte, 1);
    --busy_;
    if (--hosts_[host] == 0) hosts_.erase(host);
    ended_.notify_all();
  }

  mutable std::mutex mutex_;
  std::condition_variable ended_;
  std::size_t busy_ = 0;
  std::map<AddressBytes, std::size_t> hosts_;
};

// All associations that are served, to be looked at from the loop.
class Watches {
 public:
  void add(WatchedAssociation& one) {
    const std::lock_guard lock(mutex_);
    all_.push_back(&one);
  }
  void remove(WatchedAssociation& one) {
    const std::lock_guard lock(mutex_);
    std::erase(all_, &one);
  }
  // Ends those whose message is late. The thread that reads it sees the end of the association.
  void end_late() {
    const int64_t now = Clock::now().time_since_epoch().count();
    const std::lock_guard lock(mutex_);
    for (WatchedAssociation* one : all_) {
      const int64_t deadline = one->deadline.load(std::memory_order_relaxed);
      if (deadline == 0 || now < deadline) continue;
      one->deadline.store(0, std::memory_order_relaxed);
      int32_t id = one->id;
      if (id < 0) {
        ::shutdown(one->socket, SHUT_RDWR);
        continue;
      }
      complain("association %d: a message does not come in time: aborted", id);
      VX_Abort_Association(&id);
    }
  }

 private:
  std::mutex mutex_;
  std::vector<WatchedAssociation*> all_;
};

Watches watches;
std::atomic<int32_t> message_seconds{30};
thread_local WatchedAssociation* watched = nullptr;
thread_local int64_t watched_from = 0;
thread_local uint64_t watched_bytes = 0;

constexpr uint64_t kBytesForPatience = 256 * 1024;

int64_t seconds_in_ticks(uint64_t seconds) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::seconds(seconds)).count();
}

void set_deadline() {
  const uint64_t times = 1 + watched_bytes / kBytesForPatience;
  const uint64_t seconds = times * static_cast<uint64_t>(message_seconds.load(std::memory_order_relaxed));
  watched->deadline.store(watched_from + seconds_in_ticks(seconds), std::memory_order_relaxed);
}

// Has one looked at while it lives.
class Watch {
 public:
  explicit Watch(WatchedAssociation& one) : one_(one) { watches.add(one); }
  ~Watch() {
    if (watched == &one_) watched = nullptr;
    watches.remove(one_);
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

 private:
  WatchedAssociation& one_;
};

// What came through the pipe: true if an end was asked for.
bool drain_pipe() {
  bool end = false;
  char bytes[64];
  for (ssize_t got; (got = ::read(wake_pipe[0], bytes, sizeof bytes)) > 0;) {
    end = end || std::memchr(bytes, 0, static_cast<std::size_t>(got)) != nullptr;
  }
  return end;
}

}  // namespace

MessageWatch::MessageWatch(int32_t patience) {
  if (watched == nullptr) return;
  watched_from = Clock::now().time_since_epoch().count() +
                 seconds_in_ticks(static_cast<uint64_t>(std::max(patience, 0)));
  watched_bytes = 0;
  set_deadline();
}

MessageWatch::~MessageWatch() {
  if (watched != nullptr) watched->deadline.store(0, std::memory_order_relaxed);
}

void MessageWatch::progress(std::size_t bytes) {
  if (watched == nullptr) return;
  const uint64_t before = watched_bytes / kBytesForPatience;
  watched_bytes += bytes;
  if (watched_bytes / kBytesForPatience != before) set_deadline();
}

Proposal verification_service() {
  return {kVerification, kPlainSyntaxes};
}

bool send_response(int32_t association, const char* service, uint16_t command, uint32_t request_id,
                   uint16_t status) {
  Message response;
  if (response.make(service, command) != VX_NORMAL_COMPLETION) return false;
  VX_Set_Value_From_UInt(response.id, tags::kMessageIDBeingRespondedTo, request_id);
  return VX_Send_Response_Message(association, status, response.id) == VX_NORMAL_COMPLETION;
}

bool Acceptor::read(const Args& args) {
  if (args.paths.size() != 1) {
    complain("give the PORT to listen on; --help tells more");
    return false;
  }
  long most = static_cast<long>(most_);
  long idle = idle_;
  long timeout = timeout_;
  long most_of_one = 0;
  title_ = args.get("--aet", "VEXAL");
  if (!is_title(title_)) {
    complain("--aet %s: a title has 1 to 16 characters and no backslash", title_.c_str());
    return false;
  }
  if (!parse_port(args.paths[0], port_) || !args.number("--max-associations", 1, 4096, most) ||
      !args.number("--idle", 1, 86400, idle) || !args.number("--timeout", 1, 86400, timeout) ||
      !args.number("--max-per-address", 1, 4096, most_of_one) || !rules_.read(args) ||
      !tls_.set_up(args, true, "") || !audit_.read(args, title_)) {
    return false;
  }
  most_ = static_cast<std::size_t>(most);
  most_of_one_ =
      most_of_one > 0 ? static_cast<std::size_t>(most_of_one) : std::max<std::size_t>(most_ / 2, 1);
  idle_ = static_cast<int32_t>(idle);
  timeout_ = static_cast<int32_t>(timeout);
  message_seconds = timeout_;
  address_ = args.get("--address");
  strict_ = args.has("--strict");
  quiet_ = args.has("--quiet");
  set_up_network(timeout_);
  // Without TLS the request has come before it is read: what is left to wait for is that a peer closes.
  constexpr int32_t kClosing = 5;
  if (!tls_.on()) VX_Set_Int_Config_Value(VX_CFG_ARTIM_TIMEOUT, std::min(timeout_, kClosing));
  VX_Set_Int_Config_Value(VX_CFG_MAX_PENDING_CONNECTIONS, 512);
  VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_HOSTNAME, 1);
  VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, strict_ ? 0 : 1);
  // Titles that end in "_ECHO" would be answered by the library, past the rules.
  if (strict_ || !rules_.empty()) VX_Set_Bool_Config_Value(VX_CFG_AUTO_ECHO_SUPPORT, 0);
  const VX_STATUS status = VX_Register_Application(&application_, title_.c_str());
  if (status == VX_NORMAL_COMPLETION) return true;
  complain("--aet %s: %s", title_.c_str(), VX_Error_Message(status));
  return false;
}

void Acceptor::warn_if_open(const char* what) const {
  if (quiet_ || tls_.on() || !rules_.empty() || address_ == "localhost" || address_ == "::1" ||
      address_.starts_with("127."))
    return;
  complain(
      "notice: everyone who reaches port %d may %s, and all of it goes over the network in the clear; "
      "--allow, --tls and --address restrict it",
      port_, what);
}

int32_t Acceptor::refusal(int32_t association, Caller& caller) const {
  constexpr int32_t kNoReason = 0x7FFF;
  constexpr int32_t kCallingTitle = 2;
  constexpr int32_t kCalledTitle = 5;
  AssocInfo info;
  if (VX_Get_Association_Info(association, &info) != VX_NORMAL_COMPLETION) return kNoReason;
  caller = {info.RemoteApplicationTitle, info.LocalApplicationTitle, info.RemoteIPAddress,
            accepted_contexts(association)};
  // Titles go into files, hooks and lines for people.
  if (!is_title(caller.calling_title)) return kCallingTitle;
  if (!caller.called_title.empty() && !is_title(caller.called_title)) return kCalledTitle;
  caller.rights = rules_.rights_of(caller.calling_title, caller.address);
  return caller.rights == 0 ? kCallingTitle : 0;
}

VX_STATUS Acceptor::take_request(int32_t socket, Clock::duration left, const char* service_list,
                                 int32_t& association) const {
  int32_t application = -1;
  if (!tls_.on()) return VX_Process_Association_Request(socket, service_list, &application, &association);
  // The library counts the time of the handshake and of the request each for itself.
  WatchedAssociation one;
  one.socket = ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
  if (one.socket >= 0) one.deadline = (Clock::now() + left).time_since_epoch().count();
  watches.add(one);
  VX_STATUS status = VX_NORMAL_COMPLETION;
  {
    const Watch watch(one);
    status = VX_Process_Secure_Association_Request(socket, service_list, &application, &association,
                                                   tls_.functions(), tls_.context());
  }
  if (one.socket >= 0) ::close(one.socket);
  return status;
}

void Acceptor::serve_socket(int32_t socket, Clock::duration left, const std::string& service_list,
                            const Handler& handler) {
  int32_t association = -1;
  try {
    // On failure the library has told why, and closed the connection.
    if (take_request(socket, left, service_list.c_str(), association) == VX_NORMAL_COMPLETION)
      serve_association(association, handler);
  } catch (const std::exception&) {
    complain("association %d: %s: aborted", association, words_of(std::current_exception()).c_str());
    VX_Abort_Association(&association);
  }
}

void Acceptor::serve_association(int32_t association, const Handler& handler) const {
  Caller caller;
  if (const int32_t reason = refusal(association, caller); reason != 0) {
    VX_Reject_Association(association, reason);
    count(Metric::AssociationsRejected);
    audit_.tell({audit_events::kSecurityAlert,
                 &audit_types::kNodeAuthentication,
                 'E',
                 false,
                 "an association is rejected",
                 {self(audit_roles::kDestination), party(caller, audit_roles::kSource)},
                 {},
                 "",
                 "",
                 ""});
    return;
  }
  if (VX_Accept_Association(association) != VX_NORMAL_COMPLETION) return;
  count(Metric::AssociationsAccepted);
  const Counted open(Metric::AssociationsOpen);
  WatchedAssociation one;
  one.id = association;
  const Watch watch(one);
  watched = &one;
  const LogContext peer("peer", caller.calling_title + "@" + caller.address);
  const LogContext number("association", std::to_string(association));
  handler(association, caller);
}

namespace {

bool answer_echo(int32_t association, int32_t message) {
  Message request;
  request.id = message;
  char service[64] = "";
  VX_Get_VexalKit_Service(kVerification, service, sizeof service);
  return !request.has_data_set() &&
         send_response(association, service, C_ECHO_RSP, request.number(tags::kMessageID, 0), 0);
}

}  // namespace

void Acceptor::serve_messages(int32_t association, const Taker& take) const {
  Clock::time_point last = Clock::now();
  for (;;) {
    int32_t message = -1;
    const char* service = nullptr;
    uint16_t command = 0;
    VX_STATUS status = VX_NORMAL_COMPLETION;
    {
      // Waits in short turns, so that an end of the program is seen.
      const MessageWatch watch(1);
      status = VX_Read_Message_To_Tag(association, 1, tags::kBehindCommand, &message, &service, &command);
    }
    if (status == VX_TIMEOUT) {
      if (stopping() || Clock::now() - last > std::chrono::seconds(idle_)) {
        VX_Abort_Association(&association);
        return;
      }
      continue;
    }
    if (status != VX_NORMAL_COMPLETION) return;  // released, aborted or lost: the library has ended it
    if (!(command == C_ECHO_RQ ? answer_echo(association, message)
                               : take(association, message, service, command))) {
      VX_Abort_Association(&association);
      return;
    }
    last = Clock::now();
  }
}

VX_STATUS Acceptor::take_connection(int32_t& socket) const {
  return address_.empty() ? VX_Wait_For_Connection_On_Port(0, port_, &socket)
                          : VX_Wait_For_Connection_On_Address(0, port_, address_.c_str(), &socket);
}

// Not all at once: who comes in this round is not dropped before it was looked at.
void Acceptor::let_in(Lobby& lobby) const {
  VX_STATUS status = VX_NORMAL_COMPLETION;
  for (std::size_t i = 0; i < most_ / 2 + 1 && status == VX_NORMAL_COMPLETION; ++i) {
    int32_t socket = -1;
    status = take_connection(socket);
    if (status == VX_NORMAL_COMPLETION) lobby.add(socket);
  }
  if (status == VX_NORMAL_COMPLETION || status == VX_TIMEOUT) return;
  // No descriptor is left: one that says nothing makes room.
  if (!lobby.empty()) {
    lobby.drop_one();
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void Acceptor::tell_activity(const AuditCode& type) const {
  audit_.tell(
      {audit_events::kActivity, &type, 'E', true, "", {self(audit_roles::kApplication)}, {}, "", "", ""});
}

int Acceptor::run(const std::string& service_list, const Handler& handler) {
  if (!catch_signals()) {
    complain("can not set up signals: %s", std::strerror(errno));
    return kNetwork;
  }
  int32_t socket = -1;
  const VX_STATUS first = take_connection(socket);
  int32_t listener = -1;
  if ((first != VX_TIMEOUT && first != VX_NORMAL_COMPLETION) ||
      VX_Get_Listen_Socket_For_Port(port_, &listener) != VX_NORMAL_COMPLETION) {
    complain("port %d: can not listen on it: %s", port_, VX_Error_Message(first));
    return kNetwork;
  }
  tell_activity(audit_types::kStart);
  Crew crew;
  Lobby lobby(tls_.on(), std::chrono::seconds(timeout_));
  if (first == VX_NORMAL_COMPLETION) lobby.add(socket);
  std::vector<pollfd> entries;
  // Waits for peers. False at the end.
  const auto turn = [&] {
    entries.assign({{wake_pipe[0], POLLIN, 0}, {listener, POLLIN, 0}});
    int wait = lobby.prepare(entries);
    if (crew.busy() != 0) wait = std::min(wait, kLookAfter);
    if (::poll(entries.data(), entries.size(), wait) < 0 && errno != EINTR) return false;
    if ((entries[0].revents & POLLIN) != 0 && drain_pipe()) return false;
    watches.end_late();
    lobby.look(entries.data() + 2);
    lobby.hand_out([&](int taken, const AddressBytes& host, Clock::duration left) {
      if (crew.busy() >= most_ || crew.busy_for(host) >= most_of_one_) return false;
      if (!crew.start(host, [&, taken, left] { serve_socket(taken, left, service_list, handler); }))
        ::close(taken);
      return true;
    });
    if ((entries[1].revents & POLLIN) != 0) let_in(lobby);
    return true;
  };
  while (!stopping()) {
    try {
      if (!turn()) break;
    } catch (const std::bad_alloc&) {
      complain(kNoMemory);
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  stopping_ = true;
  VX_Close_Listen_Port(port_);
  while (!crew.wait_for_all(std::chrono::milliseconds(kLookAfter))) watches.end_late();
  if (application_ >= 0) VX_Release_Application(&application_);
  tell_activity(audit_types::kStop);
  return kSuccess;
}

}  // namespace vexal
