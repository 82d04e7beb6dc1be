// Requests to other nodes: what waited in the outbox.
#include <algorithm>

#include "archive.h"
#include "base/tags.h"
#include "data_sets.h"

namespace vexal {
namespace {

// A node that is away holds up the end of the program no longer.
constexpr int32_t kPatience = 10;

// Requests of a normalized service, and where they name the instance (PS3.7 section 10.3).
struct Kind {
  uint16_t command;
  uint32_t instance;
  bool as_provider;  // the one who sends it provides the service
};
constexpr Kind kKinds[] = {
    {N_EVENT_REPORT_RQ, tags::kAffectedSOPInstanceUID, true},
    {N_CREATE_RQ, tags::kAffectedSOPInstanceUID, false},
    {N_SET_RQ, tags::kRequestedSOPInstanceUID, false},
};

Delivery::Result judge(const Parcel& parcel, uint16_t status) {
  using Result = Delivery::Result;
  if (status == kSuccessStatus || is_warning(status)) return Result::Taken;
  // It was there already: an answer got lost.
  if (parcel.command == N_CREATE_RQ && status == kDuplicateInstance) return Result::Taken;
  constexpr uint16_t kResourceLimitation = 0x0213;
  return status == kProcessingFailure || status == kResourceLimitation || status == kOutOfResources
             ? Result::Later
             : Result::Never;
}

bool fill(Message& request, const Kind& kind, const Parcel& parcel) {
  std::string bytes = parcel.data_set;
  if (request.make(service_of_class(parcel.sop_class).c_str(), kind.command) != VX_NORMAL_COMPLETION ||
      !decode_data_set(request.id, bytes))
    return false;
  if (parcel.event != 0) VX_Set_Value_From_UShortInt(request.id, tags::kEventTypeID, parcel.event);
  return VX_Set_Value_From_String(request.id, kind.instance, parcel.instance.c_str()) == VX_NORMAL_COMPLETION;
}

}  // namespace

Delivery Archive::deliver(const Parcel& parcel) const {
  using Result = Delivery::Result;
  const auto node = nodes_.find(parcel.node);
  const auto* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                  [&](const Kind& row) { return row.command == parcel.command; });
  if (node == nodes_.end() || kind == std::end(kKinds)) return {Result::Never, "nobody knows how"};
  Message request;
  if (!fill(request, *kind, parcel)) return {Result::Never, "its request can not be made"};
  Peer peer;
  fill_peer(peer, node->first, node->second);
  peer.timeout = std::min(peer.timeout, kPatience);
  ServiceListName list;
  std::vector<std::string> unknown;
  Association association;
  const Proposal proposal = kind->as_provider ? Proposal{parcel.sop_class, kPlainSyntaxes, 0, 1}
                                              : Proposal{parcel.sop_class, kPlainSyntaxes};
  const bool open = list.make({proposal}, 1, unknown) && !list.empty() &&
                    association.open(peer, list) == VX_NORMAL_COMPLETION;
  peer.application = -1;  // the acceptor's
  if (!open) return {Result::Later, association.problem()};
  if (const VX_STATUS status = association.check(VX_Send_Request_Message(association.id(), request.id));
      status != VX_NORMAL_COMPLETION)
    return {Result::Later, VX_Error_Message(status)};
  Message answer;
  const std::string problem = association.read_answer(peer.timeout, SentRequest(request), answer);
  if (!problem.empty()) return {Result::Later, problem};
  const Delivery delivery{judge(parcel, answer.status()), describe_answer(answer)};
  answer.reset();
  association.close();
  return delivery;
}

}  // namespace vexal
