// A peer that sends anything to an acceptor and then closes: association, messages, release, all through the
// public interface. Whatever comes, the session ends and nothing is left.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "library.h"

namespace {

void require(bool condition) {
  if (!condition) __builtin_trap();
}

constexpr char kList[] = "List";

int32_t start_application() {
  fuzz::start_library();
  int32_t app = -1;
  require(VX_Register_Application(&app, "CALLED") == VX_NORMAL_COMPLETION);
  VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, 1);
  VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_HOSTNAME, 1);
  VX_Set_Int_Config_Value(VX_CFG_ARTIM_TIMEOUT, 1);
  VX_Set_Int_Config_Value(VX_CFG_INACTIVITY_TIMEOUT, 1);
  require(VX_NewServiceFromName("Echo", "STANDARD_ECHO", nullptr, 1, 1) == VX_NORMAL_COMPLETION);
  const char* services[] = {"Echo", nullptr};
  require(VX_NewProposedServiceList(kList, services) == VX_NORMAL_COMPLETION);
  return app;
}

// Both ends of a connection over loopback.
void connect_pair(int (&ends)[2]) {
  static const int listener = [] {
    const int made = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    require(::bind(made, reinterpret_cast<sockaddr*>(&any), sizeof any) == 0 && ::listen(made, 4) == 0);
    return made;
  }();
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  // The machine may have no port left for a moment.
  for (int tries = 0;; ++tries) {
    ends[1] = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::connect(ends[1], reinterpret_cast<sockaddr*>(&address), size) == 0) break;
    std::perror("connect");
    require(tries < 1000);
    ::close(ends[1]);
    ::usleep(10'000);
  }
  ends[0] = ::accept(listener, nullptr, nullptr);
  require(ends[0] > 0);
}

// True to go on.
bool answer_next(int32_t association) {
  int32_t message = -1;
  const char* service = nullptr;
  uint16_t command = 0;
  if (VX_Read_Message(association, 0, &message, &service, &command) != VX_NORMAL_COMPLETION) {
    require(message == -1);
    return false;
  }
  require(service != nullptr);
  VX_Free_Message(&message);
  if ((command & 0x8000) != 0 ||
      VX_Open_Message(&message, service, static_cast<uint16_t>(command | 0x8000)) != VX_NORMAL_COMPLETION) {
    return true;
  }
  VX_Send_Response_Message(association, 0, message);
  VX_Free_Message(&message);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const int32_t app = start_application();
  int ends[2];
  connect_pair(ends);
  const std::size_t sent = std::min<std::size_t>(size, 60'000);
  if (sent > 0) require(::send(ends[1], data, sent, 0) > 0);
  ::shutdown(ends[1], SHUT_WR);
  int32_t found = -1;
  int32_t association = -1;
  if (VX_Process_Association_Request(ends[0], kList, &found, &association) == VX_NORMAL_COMPLETION) {
    require(found == app);
    if (VX_Accept_Association(association) == VX_NORMAL_COMPLETION) {
      while (answer_next(association)) {
      }
    }
    VX_Abort_Association(&association);
  }
  // Reset, so that no port stays occupied for a while.
  const linger reset{1, 0};
  ::setsockopt(ends[1], SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  ::close(ends[1]);
  return 0;
}
