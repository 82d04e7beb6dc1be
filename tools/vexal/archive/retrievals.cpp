// C-MOVE and C-GET (PS3.4 sections C.4.2 and C.4.3).
#include "archive.h"

#include <algorithm>

#include "base/session.h"
#include "base/tags.h"
#include "identifier.h"
#include "server/metrics.h"

namespace vexal {
namespace {

void set_counts(Message& answer, const Counts& counts, bool with_remaining) {
  const auto set = [&](uint32_t tag, std::size_t value) {
    VX_Set_Value_From_UShortInt(answer.id, tag, static_cast<uint16_t>(std::min<std::size_t>(value, 0xFFFF)));
  };
  if (with_remaining) set(tags::kNumberOfRemainingSuboperations, counts.remaining);
  set(tags::kNumberOfCompletedSuboperations, counts.completed);
  set(tags::kNumberOfFailedSuboperations, counts.failed);
  set(tags::kNumberOfWarningSuboperations, counts.warning);
}

uint16_t final_status(const Counts& counts) {
  if (counts.failed == 0) return kSuccessStatus;
  return counts.completed + counts.warning == 0 ? kAllFailed : kSubOperationsFailed;
}

}  // namespace

// The files that a retrieval names. `answered`: the peer has been told why there are none, or has gone.
bool Archive::files_of(const Request& request, int32_t identifier, Retrieval& wanted, bool& answered) {
  Level level = Level::Study;
  std::vector<CatalogKey> keys;
  answered = true;
  if (!read_identifier(identifier, is_patient_root(text_of(identifier, tags::kAffectedSOPClassUID)), level,
                       keys))
    return request.finish(kNotMatching);
  // Without a key that narrows it down, it would be the whole archive.
  if (std::none_of(keys.begin(), keys.end(), narrows)) return request.finish(kNotMatching);
  Patience patience(acceptor_, request.association);
  const std::string error = holdings_.objects(
      keys, [&] { return patience.over(); }, wanted.files);
  if (acceptor_.audit().on()) find_owners(keys, wanted);
  if (patience.ended()) return end_query(request, patience);
  if (!error.empty()) {
    report("retrieval", error);
    return request.finish(kNotUnderstood);
  }
  answered = false;
  return true;
}

// For the audit trail: whose objects these are.
void Archive::find_owners(std::vector<CatalogKey> keys, Retrieval& wanted) {
  const std::size_t count = keys.size();
  for (const uint32_t tag : {tags::kSOPInstanceUID, tags::kStudyInstanceUID, tags::kPatientID})
    keys.push_back({tag, VX_VR_UI, ""});
  const std::string error = holdings_.find(
      Level::Image, keys, nullptr, [&](const std::vector<std::string>& values, const std::string&) {
        wanted.owners[values[count]] = {values[count + 1], values[count + 2]};
        return true;
      });
  if (!error.empty()) report("audit", error);
}

bool Archive::tell(const Request& request, const Counts& counts, uint16_t status,
                   const std::vector<std::string>& failed) {
  Message answer;
  if (!request.make(answer)) return false;
  set_counts(answer, counts, status == kPendingStatus || status == kCancelled);
  if (status != kPendingStatus && !failed.empty()) {
    bool first = true;
    for (const std::string& instance : failed) {
      first ? VX_Set_Value_From_String(answer.id, tags::kFailedSOPInstanceUIDList, instance.c_str())
            : VX_Set_Next_Value_From_String(answer.id, tags::kFailedSOPInstanceUIDList, instance.c_str());
      first = false;
    }
  }
  return request.send(answer, status);
}

// Sub-operations one by one: `send_one` gives the DIMSE status of one, or -1 when the way to the
// destination is lost.
bool Archive::run_operations(const Request& request, const Retrieval& wanted, const AuditParty& to,
                             const std::function<int32_t(const ObjectFile&)>& send_one, Patience& patience) {
  TransferAudit audit(&acceptor_.audit(), acceptor_.self(audit_roles::kSource), to);
  const std::vector<ObjectFile>& files = wanted.files;
  Counts counts;
  counts.remaining = files.size();
  std::vector<std::string> failed;
  for (const ObjectFile& file : files) {
    if (acceptor_.stopping() || patience.gone()) return false;
    if (patience.ended()) return tell(request, counts, kCancelled, failed);
    const int32_t status = send_one(file);
    --counts.remaining;
    const bool went = status == 0 || (status > 0 && is_warning(static_cast<uint16_t>(status)));
    count(went ? Metric::ObjectsSent : Metric::ObjectsNotSent);
    if (const auto owner = wanted.owners.find(file.instance); went && owner != wanted.owners.end())
      audit.add(owner->second.first, owner->second.second, file.sop_class);
    if (status == 0) {
      ++counts.completed;
    } else if (went) {
      ++counts.warning;
    } else {
      ++counts.failed;
      failed.push_back(file.instance);
    }
    if (counts.remaining != 0 && !tell(request, counts, kPendingStatus, failed)) return false;
  }
  return tell(request, counts, final_status(counts), failed);
}

// One that has gone since it was found fails alone.
ObjectSender::Result Archive::send_object(ObjectSender& sender, int32_t association,
                                          const std::vector<AcceptedContext>& accepted,
                                          const ObjectFile& object, std::string& problem) {
  LocalObject local;
  problem = holdings_.fetch(object, local);
  return problem.empty() ? sender.send(association, accepted, local.file(), problem)
                         : ObjectSender::Result::Refused;
}

bool Archive::move(const Request& request, int32_t identifier, const Caller& caller) {
  const std::string destination = text_of(identifier, tags::kMoveDestination);
  const auto node = nodes_.find(destination);
  if (node == nodes_.end()) return request.finish(kUnknownDestination);
  Retrieval wanted;
  const std::vector<ObjectFile>& files = wanted.files;
  bool answered = false;
  if (const bool good = files_of(request, identifier, wanted, answered); answered) return good;
  if (files.empty()) return tell(request, {}, kSuccessStatus, {});
  Peer peer;
  fill_peer(peer, destination, node->second);
  std::vector<const ObjectFile*> pointers;
  for (const ObjectFile& file : files) pointers.push_back(&file);
  std::vector<Proposal> proposals = proposals_for(pointers, true);
  if (proposals.size() > 128) proposals.resize(128);
  ServiceListName list;
  std::vector<std::string> unknown;
  Association association;
  VX_STATUS status =
      list.make(proposals, 1, unknown) && !list.empty() ? association.open(peer, list) : VX_UNKNOWN_SERVICE;
  peer.application = -1;  // the acceptor's
  if (status != VX_NORMAL_COMPLETION) {
    report(destination, VX_Error_Message(status));
    Counts counts;
    counts.failed = files.size();
    return tell(request, counts, kAllFailed, {});
  }
  ObjectSender sender(true, true);
  sender.set_originator(caller.calling_title, static_cast<uint16_t>(request.id));
  Patience patience(acceptor_, request.association);
  const bool good = run_operations(
      request, wanted, {destination, node->second.host, audit_roles::kDestination, false},
      [&](const ObjectFile& file) -> int32_t {
        patience.look();
        if (!association.is_open()) return -1;
        std::string problem;
        const auto result = send_object(sender, association.id(), association.accepted(), file, problem);
        if (result == ObjectSender::Result::Lost) association.abort();
        if (result != ObjectSender::Result::Sent) {
          report(file.path, problem);
          return -1;
        }
        bool cancel = false;
        const int32_t answer = read_store_answer(association.id(), sender.request(), cancel);
        if (answer < 0) association.abort();
        return answer;
      },
      patience);
  association.close();
  return good;
}

void Archive::fill_peer(Peer& peer, const std::string& title, const Node& node) const {
  peer.host = node.host;
  peer.port = node.port;
  peer.title = title;
  peer.own_title = acceptor_.title();
  peer.timeout = acceptor_.timeout();
  peer.application = acceptor_.application();
}

// The status in the answer to the C-STORE of a file, read as its command alone; -1 where something else
// comes. `cancel`: the peer took its own request back meanwhile.
int32_t Archive::read_store_answer(int32_t association, const SentRequest& request, bool& cancel) const {
  for (;;) {
    Message answer;
    const char* name = nullptr;
    const MessageWatch watch(acceptor_.timeout());
    if (VX_Read_Message_To_Tag(association, acceptor_.timeout(), tags::kBehindCommand, &answer.id, &name,
                               &answer.command) != VX_NORMAL_COMPLETION ||
        answer.has_data_set())
      return -1;
    if (answer.command == C_CANCEL_RQ) {
      cancel = true;
      continue;
    }
    return mismatch(answer, request).empty() ? answer.status() : -1;
  }
}

bool Archive::get(const Request& request, int32_t identifier, const Caller& caller) {
  Retrieval wanted;
  bool answered = false;
  if (const bool good = files_of(request, identifier, wanted, answered); answered) return good;
  ObjectSender sender(true, true);
  Patience patience(acceptor_, request.association);
  return run_operations(
      request, wanted, Acceptor::party(caller, audit_roles::kDestination),
      [&](const ObjectFile& file) -> int32_t {
        std::string problem;
        const auto result = send_object(sender, request.association, caller.contexts, file, problem);
        if (result == ObjectSender::Result::Lost) patience.lose();
        if (result != ObjectSender::Result::Sent) return -1;
        bool cancel = false;
        const int32_t status = read_store_answer(request.association, sender.request(), cancel);
        if (cancel) patience.cancel();
        if (status < 0) patience.lose();
        return status;
      },
      patience);
}

}  // namespace vexal
