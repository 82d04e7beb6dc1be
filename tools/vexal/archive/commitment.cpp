// Storage commitment (PS3.4 annex J).
#include "archive.h"

#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "data_sets.h"

namespace vexal {
namespace {

constexpr char kCommitmentInstance[] = "1.2.840.10008.1.20.1.1";

}  // namespace

// N-ACTION of storage commitment: what is here is vouched for, in a report on the same association, or
// where that is gone, on one to the node of that title, now or once it is there again.
bool Archive::commit(const Request& request, int32_t message, const Caller& caller) {
  const std::string transaction = text_of(message, tags::kTransactionUID);
  Message answer;
  if (text_of(message, tags::kRequestedSOPClassUID) != kCommitment || !request.make(answer)) return false;
  uint16_t status = transaction.empty() ? kMissingAttribute : kSuccessStatus;
  uint32_t action = 0;
  VX_Get_Value_To_UInt(message, tags::kActionTypeID, &action);
  if (action != 1) status = kNoSuchAction;
  // The report waits where it stays, before its request is answered.
  Message event;
  int64_t waiting = 0;
  const bool known = nodes_.contains(caller.calling_title);
  if (status == kSuccessStatus && !fill_report(event, message, transaction)) status = kProcessingFailure;
  if (status == kSuccessStatus && known) {
    Parcel parcel{caller.calling_title,
                  kCommitment,
                  kCommitmentInstance,
                  N_EVENT_REPORT_RQ,
                  static_cast<uint16_t>(event.number(tags::kEventTypeID, 0)),
                  ""};
    std::string error = encode_data_set(event.id, parcel.data_set) ? "" : kNoMemory;
    if (error.empty()) error = outbox_.add(parcel, &waiting);
    if (!error.empty()) report("storage commitment", error);
    if (!error.empty()) status = kProcessingFailure;
  }
  VX_Set_Value_From_UShortInt(answer.id, tags::kActionTypeID, static_cast<uint16_t>(action));
  const bool answered = request.send(answer, status);
  if (status != kSuccessStatus) return answered;
  const bool taken = answered && send_report(request.association, event);
  if (known)
    outbox_.finish(waiting, taken);
  else if (!taken)
    report(caller.calling_title, "has not taken its storage commitment report, and is no --node");
  return taken;  // otherwise the association is gone
}

bool Archive::fill_report(Message& out, int32_t request, const std::string& transaction) {
  if (out.make(service_of_class(kCommitment).c_str(), N_EVENT_REPORT_RQ) != VX_NORMAL_COMPLETION)
    return false;
  VX_STATUS status = VX_Set_Value_From_String(out.id, tags::kTransactionUID, transaction.c_str());
  bool all = true;
  for (const int32_t wanted : sequence_items(request, tags::kReferencedSOPSequence)) {
    const std::string sop_class = text_of(wanted, tags::kReferencedSOPClassUID);
    const std::string instance = text_of(wanted, tags::kReferencedSOPInstanceUID);
    const uint16_t reason = vouch(sop_class, instance);
    int32_t item = -1;
    if (status == VX_NORMAL_COMPLETION) status = VX_Open_Empty_Item(&item);
    if (status != VX_NORMAL_COMPLETION) return false;
    VX_Set_Value_From_String(item, tags::kReferencedSOPClassUID, sop_class.c_str());
    VX_Set_Value_From_String(item, tags::kReferencedSOPInstanceUID, instance.c_str());
    if (reason != 0) VX_Set_Value_From_UShortInt(item, tags::kFailureReason, reason);
    status = VX_Set_Next_Value_From_Int(
        out.id, reason == 0 ? tags::kReferencedSOPSequence : tags::kFailedSOPSequence, item);
    all = all && reason == 0;
  }
  VX_Set_Value_From_String(out.id, tags::kAffectedSOPInstanceUID, kCommitmentInstance);
  VX_Set_Value_From_UShortInt(out.id, tags::kEventTypeID, all ? 1 : 2);
  return status == VX_NORMAL_COMPLETION;
}

// 0 if the object is here, as it was stored; otherwise a failure reason (PS3.3 section C.14.1.1).
uint16_t Archive::vouch(const std::string& sop_class, const std::string& instance) {
  std::vector<ObjectFile> files;
  if (instance.empty()) return kNoSuchInstance;
  const std::string error = holdings_.objects({{tags::kSOPInstanceUID, VX_VR_UI, instance}}, nullptr, files);
  if (!error.empty()) {
    report("storage commitment", error);
    return kProcessingFailure;
  }
  if (files.size() != 1) return kNoSuchInstance;
  bool there = false;
  if (const std::string fault = holdings_.look_for(files[0], there); !fault.empty()) {
    report("storage commitment", fault);
    return kProcessingFailure;
  }
  if (!there) return kNoSuchInstance;
  return files[0].sop_class == sop_class ? 0 : kClassInstanceConflict;
}

// False if the association did not take it.
bool Archive::send_report(int32_t association, const Message& message) const {
  if (VX_Send_Request_Message(association, message.id) != VX_NORMAL_COMPLETION) return false;
  Message answer;
  const char* name = nullptr;
  uint16_t command = 0;
  const MessageWatch watch(acceptor_.timeout());
  return VX_Read_Message_To_Tag(association, acceptor_.timeout(), tags::kBehindCommand, &answer.id, &name,
                                &command) == VX_NORMAL_COMPLETION &&
         command == N_EVENT_REPORT_RSP && !answer.has_data_set();
}

}  // namespace vexal
