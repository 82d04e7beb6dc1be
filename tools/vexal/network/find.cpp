// vexal find: what does an archive or a worklist server know?
#include <algorithm>
#include <filesystem>
#include <functional>

#include "base/commands.h"
#include "base/json.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/uid.h"
#include "files/files.h"
#include "images/write_options.h"
#include "network.h"
#include "query.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    VEXAL_QUERY_OPTIONS,
    {"--limit", "N", "cancel after this many answers"},
    {"--json", nullptr, "one line of JSON an answer"},
    {"--out", "DIR", "write each answer as a DICOM file into this folder"},
    VEXAL_PEER_OPTIONS,
};

// The identifier of an answer as a file. An error text, empty on success.
std::string write_answer(Message& answer, const std::string& sop_class, const std::string& path) {
  // Answers above the level of objects are none: they get a name, and the class that was asked for.
  const bool object = !answer.text(tags::kSOPClassUID).empty() && !answer.text(tags::kSOPInstanceUID).empty();
  VX_Delete_Range(answer.id, 0, tags::kLastOfCommand);
  VX_STATUS status = VX_Message_To_File(answer.id, path.c_str());
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Set_Message_Transfer_Syntax(answer.id, EXPLICIT_LITTLE_ENDIAN);
  if (status == VX_NORMAL_COMPLETION && !object) {
    VX_Set_Value_From_String(answer.id, tags::kMediaStorageSOPClassUID, sop_class.c_str());
    VX_Set_Value_From_String(answer.id, tags::kMediaStorageSOPInstanceUID, new_uid().c_str());
  }
  FileSink sink;
  std::string error = sink.open(path);
  if (!error.empty()) return error;
  if (status == VX_NORMAL_COMPLETION)
    status = VX_Write_File(answer.id, 0, &sink, guarded<FileSink::file_output>);
  error = status == VX_NORMAL_COMPLETION ? sink.commit() : VX_Error_Message(status);
  VX_Free_File(&answer.id);
  return error;
}

struct Results {
  const Args& args;
  const std::string& sop_class;  // of the query
  const std::vector<QueryKey>& keys;
  std::vector<std::vector<std::string>> rows;
  std::size_t count = 0;
  bool failed = false;

  void take(Message& answer) {
    ++count;
    std::vector<std::string> row;
    for (const QueryKey& key : keys) row.push_back(values_at(answer.id, key.path));
    if (args.has("--json")) {
      print_json(keys, row);
    } else if (!args.has("--out")) {
      rows.push_back(std::move(row));
    }
    if (!args.has("--out")) return;
    char name[32];
    std::snprintf(name, sizeof name, "/answer%05zu.dcm", count);
    const std::string path = args.get("--out") + name;
    const std::string error = write_answer(answer, sop_class, path);
    if (error.empty()) return;
    report(path, error);
    failed = true;
  }
};

// The answers to the request, one after the other. An error text, empty on success.
std::string read_answers(Association& association, const Peer& peer, const SentRequest& request, long limit,
                         Results& results) {
  bool cancelled = false;
  for (;;) {
    Message answer;
    const std::string problem = association.read_answer(peer.timeout, request, answer);
    if (!problem.empty()) return problem;
    const uint16_t code = answer.status();
    if (!is_pending(code)) return code == 0 || (cancelled && code == 0xFE00) ? "" : describe_answer(answer);
    if (cancelled) continue;
    results.take(answer);
    if (limit == 0 || results.count < static_cast<std::size_t>(limit)) continue;
    Message cancel;
    if (cancel.make(answer.service.c_str(), C_CANCEL_RQ) == VX_NORMAL_COMPLETION)
      VX_Send_Request_Message(association.id(), cancel.id);
    cancelled = true;
  }
}

int run(const Args& args) {
  Peer peer;
  Query query;
  long limit = 0;
  if (!peer.read(args) || !query.read(args, QueryKind::Find) || !args.number("--limit", 1, 100000000, limit))
    return kUsage;
  if (args.has("--out")) {
    std::error_code error;
    std::filesystem::create_directories(args.get("--out"), error);
    if (error) {
      complain("--out %s: %s", args.get("--out").c_str(), error.message().c_str());
      return kUsage;
    }
  }
  Message request;
  ServiceListName list;
  Association association;
  if (!query.fill(request, C_FIND_RQ)) return kUsage;
  if (const int exit =
          open_with_request(association, peer, {{query.sop_class(), kPlainSyntaxes}}, list, request);
      exit != kSuccess) {
    return exit;
  }
  Results results{args, query.sop_class(), query.keys(), {}};
  const std::string error = read_answers(association, peer, SentRequest(request), limit, results);
  association.close();
  if (!args.has("--json") && !results.rows.empty()) print_table(query.keys(), results.rows);
  if (!args.has("--json")) std::fprintf(stderr, "%zu found\n", results.count);
  if (!error.empty()) return network_problem(peer, error);
  return results.failed ? kUsage : kSuccess;
}

}  // namespace

const Command kFind = {"find",
                       "HOST PORT --level LEVEL [-k KEY[=VALUE]...] [OPTION...]",
                       "query an archive or a worklist server (C-FIND)",
                       "Keys with a value are matched, with wildcards * and ? and ranges such as\n"
                       "StudyDate=20240101-20240131; the others come back as columns. --level worklist\n"
                       "queries a modality worklist: -k 'ScheduledProcedureStepSequence[0].Modality=CT'.\n"
                       "Exit status 2: an answer could not be written; 3: not all answers came.",
                       kOptions,
                       run};

}  // namespace vexal
