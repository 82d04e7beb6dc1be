// A peer that sends anything, in any state of the upper layer, and then closes: the first byte chooses the
// state and the side. The machine comes to an end, and PDVs lie within the PDU.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "connection/state_machine.h"
#include "library.h"

namespace {

void require(bool condition) {
  if (!condition) __builtin_trap();
}

constexpr uint32_t kMaximum = 4096;

vx::DUL_Association* handle_over(int socket, int state, bool acceptor) {
  vx::DulStatus status = vx::DUL_NORMAL;
  vx::DUL_Association* dul = vx::Create_Association_Handle(kMaximum, acceptor, status);
  dul->transport = vx::TL_Create_Transport(nullptr, nullptr);
  dul->transport->socket = socket;
  dul->state = static_cast<vx::State>(state);
  return dul;
}

void check_pdvs(const vx::DUL_Association& dul) {
  require(dul.pdvCount > 0);
  const uint8_t* const end = dul.inputBuffer + vx::kPduHeader + dul.pduLength;
  for (uint32_t i = 0; i < dul.pdvCount; ++i) {
    require(dul.pdvList[i].data >= dul.inputBuffer && dul.pdvList[i].data + dul.pdvList[i].length <= end);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  if (size == 0) return 0;
  int ends[2];
  require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0);
  const std::size_t sent = std::min<std::size_t>(size - 1, 100'000);
  if (sent > 0) require(::send(ends[1], data + 1, sent, 0) > 0);
  ::close(ends[1]);
  vx::DUL_Association* dul = handle_over(ends[0], 1 + (data[0] & 0x7F) % vx::kStates, (data[0] & 0x80) != 0);
  vx::AssociationParameters* parameters = vx::new_association_parameters();
  for (std::size_t pdus = 0; vx::dul_alive(dul); ++pdus) {
    require(pdus <= size);
    uint8_t type = 0;
    vx::DulStatus status = vx::VXI_nextPDUtype(*dul, type);
    if (status == vx::DUL_NORMAL) status = vx::process_PDU(type, *dul, parameters);
    if (status == vx::DUL_PDATA_ARRIVED) {
      check_pdvs(*dul);
    } else if (status != vx::DUL_NORMAL && vx::dul_alive(dul)) {
      vx::DUL_drop_association(dul);
    }
  }
  vx::free_association(dul);
  vx::free_association_parameters(parameters);
  return 0;
}
