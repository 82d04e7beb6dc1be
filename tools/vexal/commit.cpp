// vexal commit: ask an archive to vouch for objects (storage commitment: N-ACTION, N-EVENT-REPORT).
#include <algorithm>
#include <chrono>
#include <map>

#include "commands.h"
#include "files.h"
#include "json.h"
#include "network.h"
#include "session.h"
#include "tag_path.h"
#include "uid.h"

namespace vexal {
namespace {

constexpr char kCommitmentClass[] = "1.2.840.10008.1.20.1";
constexpr char kCommitmentInstance[] = "1.2.840.10008.1.20.1.1";  // well known (PS3.4 section J.3.5)

constexpr Option kOptions[] = {
    {"--wait", "S", "seconds to wait for the archive's report (default 30)"},
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
  if (file.open(reference.path, {true, 0x00080018}) != VX_NORMAL_COMPLETION && !file.readable())
    return file.problem();
  reference.sop_class = text_of(file.id(), 0x00080016);
  reference.instance = text_of(file.id(), 0x00080018);
  return reference.sop_class.empty() || reference.instance.empty()
             ? "has no SOP Class UID or SOP Instance UID"
             : "";
}

// The request's data set: Transaction UID (0008,1195), Referenced SOP Sequence (0008,1199).
VX_STATUS fill(Message& request, const std::vector<Reference>& references, const std::string& transaction) {
  VX_Set_Value_From_String(request.id, 0x00001001, kCommitmentInstance);
  VX_Set_Value_From_UShortInt(request.id, 0x00001008, 1);
  VX_STATUS status = VX_Set_Value_From_String(request.id, 0x00081195, transaction.c_str());
  for (const Reference& reference : references) {
    int32_t item = -1;
    if (status == VX_NORMAL_COMPLETION) status = VX_Open_Empty_Item(&item);
    if (status != VX_NORMAL_COMPLETION) break;
    VX_Set_Value_From_String(item, 0x00081150, reference.sop_class.c_str());
    VX_Set_Value_From_String(item, 0x00081155, reference.instance.c_str());
    status = VX_Set_Next_Value_From_Int(request.id, 0x00081199, item);
  }
  return status;
}

// What a report says about each instance: Referenced SOP Sequence, and Failed SOP Sequence (0008,1198) with
// its reasons.
void take_report(int32_t report_id, std::vector<Reference>& references) {
  std::map<std::string, int32_t> told;
  for (const int32_t item : sequence_items(report_id, 0x00081199)) told[text_of(item, 0x00081155)] = 0;
  for (const int32_t item : sequence_items(report_id, 0x00081198)) {
    uint16_t reason = 0x0110;
    VX_Get_Value_To_UShortInt(item, 0x00081197, &reason);
    told[text_of(item, 0x00081155)] = reason;
  }
  for (Reference& reference : references) {
    if (const auto found = told.find(reference.instance); found != told.end())
      reference.reason = found->second;
  }
}

// Waits for the report on the association that carried the request. An error text, empty on success.
std::string wait_for_report(Association& association, int32_t seconds, const std::string& transaction,
                            std::vector<Reference>& references) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::seconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0)
      return "the archive sent no report in time; it may open an association of its own for that later";
    Message message;
    const char* service = nullptr;
    uint16_t command = 0;
    VX_STATUS status = association.check(
        VX_Read_Message(association.id(), static_cast<int32_t>(left), &message.id, &service, &command));
    if (status == VX_TIMEOUT) continue;
    if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
    if (command == N_ACTION_RSP && message.status() != 0) return describe_answer(message);
    if (command != N_EVENT_REPORT_RQ) continue;
    const bool ours = message.text(0x00081195) == transaction;
    if (ours) take_report(message.id, references);
    Message response;
    status = response.make(service, N_EVENT_REPORT_RSP);
    VX_Set_Value_From_UInt(response.id, 0x00000120, message.number(0x00000110, 0));
    VX_Set_Value_From_UShortInt(response.id, 0x00001002,
                                static_cast<uint16_t>(message.number(0x00001002, 1)));
    if (status == VX_NORMAL_COMPLETION)
      status = association.check(VX_Send_Response_Message(association.id(), 0, response.id));
    if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
    if (ours) return "";
  }
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
  Association association;
  if (const int exit =
          open_with_request(association, peer, {{kCommitmentClass, kPlainSyntaxes}}, list, request);
      exit != kSuccess) {
    return exit;
  }
  const std::string error = wait_for_report(association, static_cast<int32_t>(wait), transaction, references);
  association.close();
  if (error.empty()) return print_result(args, references);
  return network_problem(peer, error);
}

}  // namespace

const Command kCommit = {
    "commit",
    "HOST PORT PATH... [OPTION...]",
    "ask an archive to vouch for objects (storage commitment)",
    "The archive's report is awaited on the same association. Exit status 1: it does not vouch\n"
    "for all of them.",
    kOptions,
    run};

}  // namespace vexal
