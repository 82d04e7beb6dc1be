// Extended negotiation data of an application.
#include "association/service_list_calls.h"
#include "association/service_list_parts.h"
#include "frame/pool.h"

namespace vx {

using namespace service_lists;

NegotiationRecord* find_negotiation_info(AppObj& app, int32_t service_number) {
  for (CNode* node = app.NegotiationInfo.Head; node != nullptr; node = node->Next) {
    auto* record = static_cast<NegotiationRecord*>(node->Data);
    if (record->serviceNumber == service_number) return record;
  }
  return nullptr;
}

VX_STATUS set_negotiation_info(AppObj& app, const SopObj& service, const void* data, uint32_t length) {
  uint8_t* copy = nullptr;
  if (!copy_bytes(data, length, copy)) return VX_SYSTEM_ERROR;
  const Guard guard(app.NegotiationSemaphore);
  NegotiationRecord* record = find_negotiation_info(app, service.number);
  if (record == nullptr) {
    record = new_object<NegotiationRecord>(Pool::ExtInfoObj);
    if (record == nullptr || list_add_tail(app.NegotiationInfo, record) == nullptr) {
      pool_free(Pool::ExtInfoObj, record);
      release(copy);
      return VX_SYSTEM_ERROR;
    }
    record->serviceNumber = service.number;
    record->serviceUid = service.uid;
  }
  release(record->data);
  record->data = copy;
  record->length = length;
  return kOk;
}

VX_STATUS clear_negotiation_info(AppObj& app, const SopObj& service) {
  const Guard guard(app.NegotiationSemaphore);
  NegotiationRecord* record = find_negotiation_info(app, service.number);
  if (record == nullptr) return VX_NO_INFO_REGISTERED;
  unlink_record(app.NegotiationInfo, record);
  release(record->data);
  pool_free(Pool::ExtInfoObj, record);
  return kOk;
}

void free_negotiation_info(AppObj& app) {
  const Guard guard(app.NegotiationSemaphore);
  while (app.NegotiationInfo.Head != nullptr) {
    auto* record = static_cast<NegotiationRecord*>(list_remove_head(app.NegotiationInfo));
    release(record->data);
    pool_free(Pool::ExtInfoObj, record);
  }
}

}  // namespace vx
