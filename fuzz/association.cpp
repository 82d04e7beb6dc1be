// The parameters of an association from hostile A-ASSOCIATE PDUs: a proposal, and an answer to it. What was
// read must be buildable, and read back as what it was.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "connection/pdu.h"
#include "connection/upper_layer.h"
#include "library.h"

namespace {

void require(bool condition) {
  if (!condition) __builtin_trap();
}

using Bytes = std::vector<uint8_t>;

Bytes with_header(vx::PduType type, const uint8_t* data, std::size_t size) {
  const auto length = static_cast<uint32_t>(size);
  Bytes pdu = {type,
               0,
               static_cast<uint8_t>(length >> 24),
               static_cast<uint8_t>(length >> 16),
               static_cast<uint8_t>(length >> 8),
               static_cast<uint8_t>(length)};
  pdu.insert(pdu.end(), data, data + size);
  return pdu;
}

// The second building gives the bytes of the first.
void build_and_read_back(const vx::AssociationParameters& parameters) {
  Bytes first;
  Bytes second;
  if (!vx::Build_Associate_PDU(parameters, vx::kAssociateRq, first)) return;
  vx::AssociationParameters* again = vx::new_association_parameters();
  require(vx::parse_associate(first, *again) == vx::DUL_NORMAL);
  require(vx::Build_Associate_PDU(*again, vx::kAssociateRq, second));
  require(first == second);
  vx::free_association_parameters(again);
}

}  // namespace

// The first two bytes say how many of the rest are the proposal; the others are the answer.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  if (size < 2) return 0;
  const std::size_t proposal = std::min<std::size_t>(std::size_t{data[0]} << 8 | data[1], size - 2);
  vx::AssociationParameters* parameters = vx::new_association_parameters();
  const int32_t status = vx::parse_associate(with_header(vx::kAssociateRq, data + 2, proposal), *parameters);
  if (status == vx::DUL_NORMAL) {
    build_and_read_back(*parameters);
    vx::mark_unanswered(*parameters);
    vx::parse_associate(with_header(vx::kAssociateAc, data + 2 + proposal, size - 2 - proposal), *parameters);
    Bytes answer;
    vx::Build_Associate_PDU(*parameters, vx::kAssociateAc, answer);
  }
  vx::free_association_parameters(parameters);
  return 0;
}
