// Messages from hostile presentation data values, past the PDUs they come in: the command group, the data set
// in each kind of syntax, stops and continuations, the rest as a stream. The first byte chooses the context,
// the second where reads stop; then each value has its context, its flags and two bytes of length.
#include <cstdint>
#include <cstring>
#include <vector>

#include "association/service_lists.h"
#include "connection/session.h"
#include "connection/upper_layer.h"
#include "frame/pool.h"
#include "frame/text.h"
#include "library.h"

namespace {

void require(bool condition) {
  if (!condition) __builtin_trap();
}

constexpr VX_TRANSFER_SYNTAX kSyntaxes[] = {IMPLICIT_LITTLE_ENDIAN, EXPLICIT_LITTLE_ENDIAN,
                                            EXPLICIT_BIG_ENDIAN, DEFLATED_EXPLICIT_LITTLE_ENDIAN, RLE};
constexpr uint32_t kStops[] = {0xFFFFFFFF, 0x00010000, 0x00080018, 0x00090001, 0x00280010, 0x7FE00010};

std::vector<vx::PdvRecord> cut(const uint8_t* data, std::size_t size) {
  std::vector<vx::PdvRecord> values;
  while (size >= 4) {
    vx::PdvRecord value{};
    value.contextId = static_cast<uint8_t>(2 * (data[0] % std::size(kSyntaxes)) + 1);
    value.isData = (data[1] & 1) == 0;
    value.isLast = (data[1] & 2) != 0;
    value.length =
        std::min<uint32_t>(static_cast<uint32_t>(data[2]) << 8 | data[3], static_cast<uint32_t>(size - 4));
    value.data = data + 4;
    values.push_back(value);
    data += 4 + value.length;
    size -= 4 + value.length;
  }
  return values;
}

// A session whose association holds these values and nothing more to come.
vx::SesObj* make_session(vx::AppObj& app, std::vector<vx::PdvRecord>& values) {
  vx::SesObj* session = vx::new_session(app, true);
  require(session != nullptr && vx::attach_session(*session));
  session->Services = vx::VXI_GetServiceNumbers(vx::kEchoServiceList);
  require(session->Services != nullptr);
  auto* entries =
      static_cast<vx::AcceptedContext*>(vx::allocate(std::size(kSyntaxes) * sizeof(vx::AcceptedContext)));
  const vx::SopObj* service = vx::find_service("STANDARD_ECHO");
  for (std::size_t i = 0; i < std::size(kSyntaxes); ++i) {
    entries[i].ContextId = static_cast<uint8_t>(2 * i + 1);
    entries[i].Service = service;
    entries[i].ServiceNumber = service->number;
    entries[i].TransferSyntax = kSyntaxes[i];
    vx::copy_text(entries[i].SopClassUid, sizeof entries[i].SopClassUid, service->uid);
  }
  session->AcceptedEntries = entries;
  session->AcceptedEntryCount = static_cast<int32_t>(std::size(kSyntaxes));
  session->Dul = vx::new_object<vx::DUL_Association>(vx::Pool::AssocObj);
  session->Dul->tag = vx::kAssociationTag;
  session->Dul->state = vx::State::Idle;
  session->Dul->currentMessage = -1;
  session->Dul->pdvList = values.data();
  session->Dul->pdvCount = static_cast<uint32_t>(values.size());
  require(vx::leave_session(session) == VX_NORMAL_COMPLETION);
  return session;
}

VX_STATUS take(int32_t, void*, uint32_t size, void* data, int32_t, int32_t) {
  // Every byte must be there to be read.
  static std::vector<uint8_t> copy;
  copy.assign(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
  return VX_NORMAL_COMPLETION;
}

// One message, in the steps that `way` says; false when the association has ended.
bool read_one(int32_t association, uint8_t way) {
  const uint32_t stop = kStops[way % std::size(kStops)];
  int32_t id = -1;
  const char* service = nullptr;
  uint16_t command = 0;
  VX_STATUS status = VX_Read_Message_To_Tag(association, 0, stop, &id, &service, &command);
  if (status != VX_NORMAL_COMPLETION) {
    require(id == -1);
    return false;
  }
  if (stop != 0xFFFFFFFF && (way & 0x80) == 0) {
    if ((way & 0x40) != 0)
      VX_Continue_Read_Message_To_Tag(association, kStops[way / 8 % std::size(kStops)], &id);
    if (id >= 0) {
      status = (way & 0x20) != 0 ? VX_Continue_Read_Message_To_Stream(association, &id, nullptr, take)
                                 : VX_Continue_Read_Message(association, &id);
    }
  }
  if (id >= 0) VX_Free_Message(&id);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::start_library();
  static int32_t application = -1;
  if (application < 0) require(VX_Register_Application(&application, "FUZZ") == VX_NORMAL_COMPLETION);
  if (size < 2) return 0;
  std::vector<vx::PdvRecord> values = cut(data + 2, size - 2);
  vx::SesObj* session = make_session(*vx::find_application(application), values);
  const int32_t association = session->AssociationID;
  for (int i = 0; i < 4 && read_one(association, data[i % 2]); ++i) {
  }
  int32_t id = association;
  VX_Abort_Association(&id);
  require(vx::state().sessions.find(association) == nullptr);
  return 0;
}
