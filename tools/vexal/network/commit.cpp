// vexal commit: ask an archive to vouch for objects (storage commitment: N-ACTION, N-EVENT-REPORT).
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>

#include "base/commands.h"
#include "base/json.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/uid.h"
#include "files/files.h"
#include "network.h"

namespace vexal {
namespace {

constexpr char kCommitmentClass[] = "1.2.840.10008.1.20.1";
constexpr char kCommitmentInstance[] = "1.2.840.10008.1.20.1.1";  // well known (PS3.4 section J.3.5)
constexpr uint16_t kInvalidArgument = 0x0115;

constexpr Option kOptions[] = {
    {"--wait", "S", "seconds to wait for the archive's report (default 30)"},
    {"--listen", "PORT", "take the report on an association that the archive opens to this port, too"},
    {"--json", nullptr, "the result as JSON"},
    VEXAL_PEER_OPTIONS,
};

struct Reference {
  std::string path;
  std::string sop_class;
  std::string instance;
  int32_t reason = -1;  // 0: vouched for; above: the archive's failure reason; -1: not told
};

std::string look_at(Reference& reference) {
  DicomFile file;
  if (file.open(reference.path, {true, tags::kSOPInstanceUID}) != VX_NORMAL_COMPLETION && !file.readable())
    return file.problem();
  reference.sop_class = text_of(file.id(), tags::kSOPClassUID);
  reference.instance = text_of(file.id(), tags::kSOPInstanceUID);
  return reference.sop_class.empty() || reference.instance.empty()
             ? "has no SOP Class UID or SOP Instance UID"
             : "";
}

// The request's data set: Transaction UID (0008,1195), Referenced SOP Sequence (0008,1199).
VX_STATUS fill(Message& request, const std::vector<Reference>& references, const std::string& transaction) {
  VX_Set_Value_From_String(request.id, tags::kRequestedSOPInstanceUID, kCommitmentInstance);
  VX_Set_Value_From_UShortInt(request.id, tags::kActionTypeID, 1);
  VX_STATUS status = VX_Set_Value_From_String(request.id, tags::kTransactionUID, transaction.c_str());
  for (const Reference& reference : references) {
    int32_t item = -1;
    if (status == VX_NORMAL_COMPLETION) status = VX_Open_Empty_Item(&item);
    if (status != VX_NORMAL_COMPLETION) break;
    VX_Set_Value_From_String(item, tags::kReferencedSOPClassUID, reference.sop_class.c_str());
    VX_Set_Value_From_String(item, tags::kReferencedSOPInstanceUID, reference.instance.c_str());
    status = VX_Set_Next_Value_From_Int(request.id, tags::kReferencedSOPSequence, item);
  }
  return status;
}

// What a report says about each instance: Referenced SOP Sequence, and Failed SOP Sequence (0008,1198) with
// its reasons.
void take_report(int32_t report_id, std::vector<Reference>& references) {
  std::map<std::string, int32_t> told;
  const auto name = [](int32_t item) {
    return text_of(item, tags::kReferencedSOPClassUID) + '\\' +
           text_of(item, tags::kReferencedSOPInstanceUID);
  };
  for (const int32_t item : sequence_items(report_id, tags::kReferencedSOPSequence)) told[name(item)] = 0;
  for (const int32_t item : sequence_items(report_id, tags::kFailedSOPSequence)) {
    uint16_t reason = 0x0110;
    VX_Get_Value_To_UShortInt(item, tags::kFailureReason, &reason);
    told[name(item)] = reason;
  }
  for (Reference& reference : references) {
    if (const auto found = told.find(reference.sop_class + '\\' + reference.instance); found != told.end())
      reference.reason = found->second;
  }
}

// The report, wherever it comes: on the association of the request, or on one that the archive opens to a
// port of ours (PS3.4 section J.3.3).
class ReportWait {
 public:
  ReportWait(const Peer& peer, const std::string& transaction, std::vector<Reference>& references)
      : peer_(peer), transaction_(transaction), references_(references) {}
  ~ReportWait() {
    if (port_ > 0) VX_Close_Listen_Port(port_);
  }
  ReportWait(const ReportWait&) = delete;
  ReportWait& operator=(const ReportWait&) = delete;

  // False after a line on standard error.
  bool listen(const Args& args, const std::string& port);
  // An error text, empty once the report is there.
  std::string wait(Association& association, const SentRequest& request, int32_t seconds);

 private:
  std::string take(Association& association, Message& message);
  std::string read(Association& association, const SentRequest& request, int32_t timeout);
  VX_STATUS take_connection(int32_t timeout, int32_t& id);
  void serve_archive();

  const Peer& peer_;
  const std::string& transaction_;
  std::vector<Reference>& references_;
  int32_t port_ = 0;  // 0: no listening
  ServiceListName list_;
  Tls tls_;
  bool answered_ = false;  // the request
  bool reported_ = false;
};

bool ReportWait::listen(const Args& args, const std::string& port) {
  std::vector<std::string> unknown;
  int32_t number = 0;
  if (!parse_port(port, number) || (peer_.tls.on() && !tls_.set_up(args, true, "")) ||
      !list_.make({{kCommitmentClass, kPlainSyntaxes, 1, 1}}, 1, unknown)) {
    return false;
  }
  VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_APPLICATION_TITLE, 1);
  VX_Set_Bool_Config_Value(VX_CFG_ACCEPT_ANY_HOSTNAME, 1);
  port_ = number;
  int32_t socket = -1;
  if (VX_Wait_For_Connection_On_Port(0, port_, &socket) == VX_NORMAL_COMPLETION) ::close(socket);
  if (VX_Get_Listen_Socket_For_Port(port_, &socket) == VX_NORMAL_COMPLETION && socket >= 0) return true;
  complain("--listen %d: can not listen on this port", port_);
  return false;
}

// Answers a report. One about another transaction is not ours to acknowledge.
std::string ReportWait::take(Association& association, Message& message) {
  const bool ours = message.text(tags::kTransactionUID) == transaction_;
  if (ours) take_report(message.id, references_);
  Message response;
  VX_STATUS status = response.make(message.service.c_str(), N_EVENT_REPORT_RSP);
  VX_Set_Value_From_UInt(response.id, tags::kMessageIDBeingRespondedTo, message.number(tags::kMessageID, 0));
  VX_Set_Value_From_UShortInt(response.id, tags::kEventTypeID,
                              static_cast<uint16_t>(message.number(tags::kEventTypeID, 1)));
  if (status == VX_NORMAL_COMPLETION)
    status = association.check(
        VX_Send_Response_Message(association.id(), ours ? 0 : kInvalidArgument, response.id));
  reported_ = reported_ || ours;
  return ours || status == VX_NORMAL_COMPLETION ? "" : VX_Error_Message(status);
}

// One message on the association of the request.
std::string ReportWait::read(Association& association, const SentRequest& request, int32_t timeout) {
  Message message;
  const VX_STATUS status = association.read(timeout, message);
  if (status == VX_TIMEOUT || (status == VX_ASSOCIATION_CLOSED && answered_ && port_ > 0)) return "";
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  if (message.command == N_EVENT_REPORT_RQ) return take(association, message);
  std::string problem = mismatch(message, request);
  if (!problem.empty() || answered_) {
    association.abort();
    return answered_ ? "the peer sent another message than the report" : problem;
  }
  answered_ = true;
  return message.status() == 0 ? "" : describe_answer(message);
}

VX_STATUS ReportWait::take_connection(int32_t timeout, int32_t& id) {
  const VX_STATUS status =
      tls_.on() ? VX_Wait_For_Secure_Association_On_Port(list_.name(), timeout, peer_.application, port_, &id,
                                                         tls_.functions(), tls_.context())
                : VX_Wait_For_Association_On_Port(list_.name(), timeout, peer_.application, port_, &id);
  return status == VX_NORMAL_COMPLETION ? VX_Accept_Association(id) : status;
}

// One association that the archive opens, if there is one, to its release. What is wrong with it does not end
// the wait for a better one.
void ReportWait::serve_archive() {
  int32_t id = -1;
  if (take_connection(1, id) != VX_NORMAL_COMPLETION) return;
  Association association(id);
  const int32_t farewell = 2;  // seconds that a peer gets to release what it opened
  Message message;
  while (association.read(reported_ ? farewell : peer_.timeout, message) == VX_NORMAL_COMPLETION) {
    const std::string problem = message.command == N_EVENT_REPORT_RQ
                                    ? take(association, message)
                                    : "the archive sent another message than a report";
    if (problem.empty()) continue;
    complain("%s", problem.c_str());
    return;
  }
}

std::string ReportWait::wait(Association& association, const SentRequest& request, int32_t seconds) {
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  const auto deadline = start + std::chrono::seconds(seconds);
  while (!reported_) {
    const auto left = std::chrono::ceil<std::chrono::seconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      return port_ > 0
                 ? "the archive sent no report in time, and opened no association with one"
                 : "the archive sent no report in time; it may want an association of its own for that: "
                   "--listen takes one";
    }
    // Some open theirs only when this one has been released.
    const bool both = port_ > 0 && answered_;
    if (both && Clock::now() - start > std::chrono::seconds(2)) association.close();
    if (association.is_open()) {
      const std::string problem = read(association, request, both ? 0 : static_cast<int32_t>(left));
      if (!problem.empty()) return problem;
    }
    if (both && !reported_) serve_archive();
  }
  return "";
}

int print_result(const Args& args, const std::vector<Reference>& references) {
  std::size_t vouched = 0;
  for (const Reference& reference : references) {
    vouched += reference.reason == 0 ? 1 : 0;
    if (args.has("--json")) {
      std::string line = "{\"file\":";
      append_json(line, reference.path);
      line += ",\"instance\":";
      append_json(line, reference.instance);
      line += reference.reason == 0 ? ",\"committed\":true}" : ",\"committed\":false";
      if (reference.reason > 0) line += ",\"reason\":" + std::to_string(reference.reason);
      std::printf("%s%s\n", line.c_str(), reference.reason == 0 ? "" : "}");
    } else if (reference.reason != 0) {
      report(reference.path,
             reference.reason < 0
                 ? "the report does not name it"
                 : "not committed: " + describe_dimse(static_cast<uint16_t>(reference.reason)));
    }
  }
  if (!args.has("--json")) std::printf("%zu of %zu committed\n", vouched, references.size());
  return vouched == references.size() ? kSuccess : kFindings;
}

int run(const Args& args) {
  Peer peer;
  long wait = 30;
  if (!peer.read(args) || !args.number("--wait", 1, 86400, wait)) return kUsage;
  bool failed = false;
  std::vector<Reference> references;
  for (const std::string& path :
       expand_paths(std::vector<std::string>(args.paths.begin() + 2, args.paths.end()), failed)) {
    Reference reference{path, "", ""};
    const std::string error = look_at(reference);
    if (error.empty()) {
      references.push_back(reference);
    } else {
      report(path, error);
      failed = true;
    }
  }
  if (failed || references.empty()) {
    if (!failed) complain("name the files or folders that the archive should hold");
    return kUsage;
  }
  Message request;
  const std::string service = service_of_class(kCommitmentClass);
  const std::string transaction = new_uid();
  ServiceListName list;
  VX_STATUS status = request.make(service.c_str(), N_ACTION_RQ);
  if (status == VX_NORMAL_COMPLETION) status = fill(request, references, transaction);
  if (status != VX_NORMAL_COMPLETION) {
    complain("%s: %s", service.c_str(), VX_Error_Message(status));
    return kUsage;
  }
  ReportWait report(peer, transaction, references);
  if (args.has("--listen") && !report.listen(args, args.get("--listen"))) return kUsage;
  Association association;
  if (const int exit =
          open_with_request(association, peer, {{kCommitmentClass, kPlainSyntaxes}}, list, request);
      exit != kSuccess) {
    return exit;
  }
  const std::string error = report.wait(association, SentRequest(request), static_cast<int32_t>(wait));
  association.close();
  if (error.empty()) return print_result(args, references);
  return network_problem(peer, error);
}

}  // namespace

const Command kCommit = {
    "commit",
    "HOST PORT PATH... [OPTION...]",
    "ask an archive to vouch for objects (storage commitment)",
    "The archive's report is awaited on the same association, and with --listen on one that it opens\n"
    "itself; it has to know host and port for that. Exit status 1: it does not vouch for all of them.",
    kOptions,
    run};

}  // namespace vexal
