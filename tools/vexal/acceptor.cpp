#include "acceptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace vexal {
namespace {

using Clock = std::chrono::steady_clock;

// Connections that have not said anything yet. More than this many, and the oldest go.
constexpr std::size_t kMostParked = 2048;

// All descriptors that the system lets this program have; a third of them may be parked.
std::size_t most_parked() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return kMostParked;
  if (limit.rlim_cur < limit.rlim_max) {
    const rlimit raised{limit.rlim_max, limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  return std::clamp<std::size_t>(limit.rlim_cur / 3, 1, kMostParked);
}

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

struct Parked {
  int32_t socket;
  Clock::time_point deadline;
};

// Threads that serve associations, counted.
class Crew {
 public:
  // False if the system has no thread left.
  bool start(std::function<void()> work) {
    {
      const std::lock_guard lock(mutex_);
      ++busy_;
    }
    try {
      std::thread([this, work = std::move(work)] {
        work();
        // The loop has to look again at connections that wait for a free thread.
        finished();
      }).detach();
      return true;
    } catch (const std::system_error&) {
      finished();
      return false;
    }
  }
  std::size_t busy() const {
    const std::lock_guard lock(mutex_);
    return busy_;
  }
  void wait_for_all() {
    std::unique_lock lock(mutex_);
    ended_.wait(lock, [this] { return busy_ == 0; });
  }

 private:
  void finished() {
    const char byte = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(wake_pipe[1], &byte, 1);
    const std::lock_guard lock(mutex_);
    --busy_;
    ended_.notify_all();
  }

  mutable std::mutex mutex_;
  std::condition_variable ended_;
  std::size_t busy_ = 0;
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

int milliseconds_to(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<long>(left, 0, 60000));
}

}  // namespace

bool Acceptor::read(const Args& args) {
  if (args.paths.size() != 1) {
    complain("give the PORT to listen on; --help tells more");
    return false;
  }
  long most = static_cast<long>(most_);
  long idle = idle_;
  long timeout = timeout_;
  title_ = args.get("--aet", "VEXAL");
  if (!is_title(title_)) {
    complain("--aet %s: a title has 1 to 16 characters and no backslash", title_.c_str());
    return false;
  }
  if (!parse_port(args.paths[0], port_) || !args.number("--max-associations", 1, 4096, most) ||
      !args.number("--idle", 1, 86400, idle) || !args.number("--timeout", 1, 86400, timeout) ||
      !tls_.set_up(args, true, "")) {
    return false;
  }
  most_ = static_cast<std::size_t>(most);
  idle_ = static_cast<int32_t>(idle);
  timeout_ = static_cast<int32_t>(timeout);
  address_ = args.get("--address");
  allowed_ = args.all("--allow");
  strict_ = args.has("--strict");
  set_up_network(timeout_);
  VX_Set_Int_Config_Value(VX_CFG_MAX_PENDING_CONNECTIONS, 512);
  VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_HOSTNAME, 1);
  VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, strict_ ? 0 : 1);
  const VX_STATUS status = VX_Register_Application(&application_, title_.c_str());
  if (status == VX_NORMAL_COMPLETION) return true;
  complain("--aet %s: %s", title_.c_str(), VX_Error_Message(status));
  return false;
}

bool Acceptor::is_welcome(int32_t association, Caller& caller) const {
  AssocInfo info;
  if (VX_Get_Association_Info(association, &info) != VX_NORMAL_COMPLETION) return false;
  caller = {info.RemoteApplicationTitle, info.LocalApplicationTitle, info.RemoteIPAddress,
            accepted_contexts(association)};
  return allowed_.empty() ||
         std::find(allowed_.begin(), allowed_.end(), caller.calling_title) != allowed_.end();
}

void Acceptor::serve_socket(int32_t socket, const std::string& service_list, const Handler& handler) {
  int32_t application = -1;
  int32_t association = -1;
  const VX_STATUS status =
      tls_.on() ? VX_Process_Secure_Association_Request(socket, service_list.c_str(), &application,
                                                        &association, tls_.functions(), tls_.context())
                : VX_Process_Association_Request(socket, service_list.c_str(), &application, &association);
  if (status != VX_NORMAL_COMPLETION) return;  // the library has told why, and closed the connection
  Caller caller;
  if (!is_welcome(association, caller)) {
    VX_Reject_Association(association, 2);
    return;
  }
  if (VX_Accept_Association(association) == VX_NORMAL_COMPLETION) handler(association, caller);
}

void Acceptor::serve_messages(int32_t association, const Taker& take) const {
  Clock::time_point last = Clock::now();
  for (;;) {
    int32_t message = -1;
    const char* service = nullptr;
    uint16_t command = 0;
    // Waits in short turns, so that an end of the program is seen.
    const VX_STATUS status = VX_Read_Message_To_Tag(association, 1, 0x00010000, &message, &service, &command);
    if (status == VX_TIMEOUT) {
      if (stopping() || Clock::now() - last > std::chrono::seconds(idle_)) {
        VX_Abort_Association(&association);
        return;
      }
      continue;
    }
    if (status != VX_NORMAL_COMPLETION) return;  // released, aborted or lost: the library has ended it
    if (!take(association, message, service, command)) {
      VX_Abort_Association(&association);
      return;
    }
    last = Clock::now();
  }
}

int Acceptor::run(const std::string& service_list, const Handler& handler) {
  if (!catch_signals()) {
    complain("can not set up signals: %s", std::strerror(errno));
    return kNetwork;
  }
  const char* address = address_.empty() ? nullptr : address_.c_str();
  auto take_connection = [&](int32_t& socket) {
    return address != nullptr ? VX_Wait_For_Connection_On_Address(0, port_, address, &socket)
                              : VX_Wait_For_Connection_On_Port(0, port_, &socket);
  };
  int32_t socket = -1;
  const VX_STATUS first = take_connection(socket);
  int32_t listener = -1;
  if ((first != VX_TIMEOUT && first != VX_NORMAL_COMPLETION) ||
      VX_Get_Listen_Socket_For_Port(port_, &listener) != VX_NORMAL_COMPLETION) {
    complain("port %d: can not listen on it: %s", port_, VX_Error_Message(first));
    return kNetwork;
  }
  Crew crew;
  const std::size_t most = most_parked();
  std::vector<Parked> parked;
  const auto drop_oldest = [&] {
    ::close(parked.front().socket);
    parked.erase(parked.begin());
  };
  const auto park = [&](int32_t taken) {
    if (parked.size() >= most) drop_oldest();
    parked.push_back({taken, Clock::now() + std::chrono::seconds(timeout_)});
  };
  if (first == VX_NORMAL_COMPLETION) park(socket);
  std::vector<pollfd> entries;
  while (!stopping()) {
    const bool room = crew.busy() < most_;
    entries.assign({{wake_pipe[0], POLLIN, 0}, {listener, POLLIN, 0}});
    int wait = 60000;
    for (const Parked& connection : parked) {
      entries.push_back({room ? connection.socket : -1, POLLIN, 0});
      if (room) wait = std::min(wait, milliseconds_to(connection.deadline));
    }
    if (::poll(entries.data(), entries.size(), wait) < 0 && errno != EINTR) break;
    if ((entries[0].revents & POLLIN) != 0 && drain_pipe()) break;
    // Those that have spoken get a thread, as long as there are threads; those that are late go.
    std::vector<Parked> rest;
    std::size_t free = room ? most_ - crew.busy() : 0;
    for (std::size_t i = 0; i < parked.size(); ++i) {
      const Parked connection = parked[i];
      if (entries[i + 2].revents != 0 && free > 0) {
        --free;
        if (!crew.start([&, connection] { serve_socket(connection.socket, service_list, handler); }))
          ::close(connection.socket);
      } else if (room && Clock::now() >= connection.deadline) {
        ::close(connection.socket);
      } else {
        rest.push_back(connection);
      }
    }
    parked.swap(rest);
    if ((entries[1].revents & POLLIN) == 0) continue;
    // Not all at once: who comes in this round is not dropped before it was looked at.
    VX_STATUS status = VX_NORMAL_COMPLETION;
    for (std::size_t i = 0; i < most / 2 + 1; ++i) {
      status = take_connection(socket);
      if (status != VX_NORMAL_COMPLETION) break;
      park(socket);
    }
    if (status == VX_NORMAL_COMPLETION || status == VX_TIMEOUT) continue;
    // No descriptor is left: one that says nothing makes room.
    if (!parked.empty()) {
      drop_oldest();
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  stopping_ = true;
  VX_Close_Listen_Port(port_);
  for (const Parked& connection : parked) ::close(connection.socket);
  crew.wait_for_all();
  if (application_ >= 0) VX_Release_Application(&application_);
  return kSuccess;
}

}  // namespace vexal
