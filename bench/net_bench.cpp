// Round trips over loopback between two threads: verification, and storage of objects of several sizes.
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support.h"

namespace {

constexpr int32_t kPort = 47113;
constexpr char kList[] = "BENCH_LIST";

// An association whose other end answers everything.
class Link {
 public:
  Link() {
    bench::start_library();
    VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_HOSTNAME, 1);
    VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, 1);
    VX_Set_Bool_Config_Value(VX_CFG_TCPIP_DISABLE_NAGLE, 1);
    bench::require(VX_Register_Application(&app_, "BENCH"), "application");
    make_list();
    server_ = std::thread([this] { serve(); });
    VX_STATUS status = VX_CONNECTION_FAILED;  // until the other end listens
    for (int tries = 0; tries < 1000 && status == VX_CONNECTION_FAILED; ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      status = VX_Open_Association(app_, &id_, "BENCH", &kPort, "127.0.0.1", kList);
    }
    bench::require(status, "open");
  }
  ~Link() {
    VX_Close_Association(&id_);
    server_.join();
    VX_Close_Listen_Port(kPort);
    VX_Release_Application(&app_);
  }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  void send(int32_t message) { bench::require(VX_Send_Request_Message(id_, message), "send"); }
  void take_answer() {
    int32_t answer = -1;
    const char* service = nullptr;
    uint16_t command = 0;
    bench::require(VX_Read_Message(id_, 10, &answer, &service, &command), "read");
    VX_Free_Message(&answer);
  }

 private:
  static void make_list() {
    static const bool made = [] {
      const VX_TRANSFER_SYNTAX syntaxes[] = {EXPLICIT_LITTLE_ENDIAN, 0};
      const char* const names[] = {"BENCH_ECHO", "BENCH_CT", nullptr};
      bench::require(VX_NewSyntaxList("BENCH_SYNTAX", syntaxes), "syntax list");
      bench::require(VX_NewServiceFromName(names[0], "STANDARD_ECHO", "BENCH_SYNTAX", VX_NO_ROLE, VX_NO_ROLE),
                     "service");
      bench::require(VX_NewServiceFromName(names[1], "STANDARD_CT", "BENCH_SYNTAX", VX_NO_ROLE, VX_NO_ROLE),
                     "service");
      bench::require(VX_NewProposedServiceListAsync(kList, names, 64, 64), "service list");
      return true;
    }();
    (void)made;
  }
  void serve() const {
    int32_t id = -1;
    bench::require(VX_Wait_For_Association_On_Port(kList, 10, app_, kPort, &id), "wait");
    bench::require(VX_Accept_Association(id), "accept");
    for (;;) {
      int32_t request = -1;
      const char* service = nullptr;
      uint16_t command = 0;
      if (VX_Read_Message(id, 10, &request, &service, &command) != VX_NORMAL_COMPLETION) return;
      int32_t response = -1;
      bench::require(VX_Open_Message(&response, service, static_cast<uint16_t>(command | 0x8000)),
                     "response");
      bench::require(VX_Send_Response_Message(id, 0, response), "answer");
      VX_Free_Message(&response);
      VX_Free_Message(&request);
    }
  }

  int32_t app_ = -1;
  int32_t id_ = -1;
  std::thread server_;
};

void echo(benchmark::State& state) {
  Link link;
  int32_t message = -1;
  bench::require(VX_Open_Message(&message, "STANDARD_ECHO", C_ECHO_RQ), "message");
  for (auto _ : state) {
    link.send(message);
    link.take_answer();
  }
  state.SetItemsProcessed(state.iterations());
  VX_Free_Message(&message);
}
BENCHMARK(echo)->UseRealTime();

// As many operations in flight as the argument says.
void echo_window(benchmark::State& state) {
  Link link;
  int32_t message = -1;
  bench::require(VX_Open_Message(&message, "STANDARD_ECHO", C_ECHO_RQ), "message");
  for (auto _ : state) {
    for (int64_t i = 0; i < state.range(0); ++i) {
      VX_Set_Value_To_Empty(message, 0x00000110);
      link.send(message);
    }
    for (int64_t i = 0; i < state.range(0); ++i) link.take_answer();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  VX_Free_Message(&message);
}
BENCHMARK(echo_window)->Arg(16)->UseRealTime();

void store(benchmark::State& state) {
  Link link;
  int32_t message = -1;
  bench::require(VX_Open_Message(&message, "STANDARD_CT", C_STORE_RQ), "message");
  VX_Set_Value_From_String(message, 0x00001000, "1.2.3");
  VX_Set_Value_From_String(message, 0x00080018, "1.2.3");
  const std::vector<char> pixels(static_cast<std::size_t>(state.range(0)), 'p');
  VX_Add_Standard_Attribute(message, 0x7FE00010);
  bench::require(
      VX_Set_Value_From_Buffer(message, 0x7FE00010, pixels.data(), static_cast<uint32_t>(pixels.size())),
      "pixels");
  for (auto _ : state) {
    link.send(message);
    link.take_answer();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
  VX_Free_Message(&message);
}
BENCHMARK(store)->Arg(33000)->Arg(1 << 20)->Arg(64 << 20)->UseRealTime();

}  // namespace
