// vexal mpps: tell a server about a modality performed procedure step (N-CREATE, N-SET).
#include <ctime>

#include <algorithm>
#include <iterator>

#include "base/commands.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/uid.h"
#include "files/charset.h"
#include "files/files.h"
#include "network.h"
#include "query.h"

namespace vexal {
namespace {

constexpr char kStepClass[] = "1.2.840.10008.3.1.2.3.3";

constexpr Option kOptions[] = {
    {"--uid", "UID", "the procedure step; create makes one up and prints it"},
    {"-k", "KEY=VALUE", "an attribute to set; a path as for vexal modify; may be repeated"},
    VEXAL_PEER_OPTIONS,
};

struct Verb {
  const char* word;
  uint16_t command;
  const char* state;  // (0040,0252); null: as it is
};
constexpr Verb kVerbs[] = {{"create", N_CREATE_RQ, "IN PROGRESS"},
                           {"set", N_SET_RQ, nullptr},
                           {"complete", N_SET_RQ, "COMPLETED"},
                           {"discontinue", N_SET_RQ, "DISCONTINUED"}};

// What a creation has to hold (PS3.4 table F.7.2-1), with or without a value.
constexpr const char* kRequired[] = {
    "PatientName",
    "PatientID",
    "PatientBirthDate",
    "PatientSex",
    "ReferencedPatientSequence",
    "PerformedProcedureStepEndDate",
    "PerformedProcedureStepEndTime",
    "PerformedStationName",
    "PerformedLocation",
    "PerformedProcedureStepDescription",
    "PerformedProcedureTypeDescription",
    "ProcedureCodeSequence",
    "StudyID",
    "PerformedProtocolCodeSequence",
    "PerformedSeriesSequence",
    "ScheduledStepAttributesSequence[0].StudyInstanceUID",
    "ScheduledStepAttributesSequence[0].ReferencedStudySequence",
    "ScheduledStepAttributesSequence[0].AccessionNumber",
    "ScheduledStepAttributesSequence[0].RequestedProcedureID",
    "ScheduledStepAttributesSequence[0].RequestedProcedureDescription",
    "ScheduledStepAttributesSequence[0].ScheduledProcedureStepID",
    "ScheduledStepAttributesSequence[0].ScheduledProcedureStepDescription",
    "ScheduledStepAttributesSequence[0].ScheduledProtocolCodeSequence",
};

std::string set_key(Message& request, const std::string& text) {
  const std::size_t equals = text.find('=');
  std::vector<PathStep> path;
  std::vector<Place> places;
  std::string error = parse_path(text.substr(0, equals), path);
  if (error.empty()) error = resolve_path(request.id, path, true, places);
  for (const Place& place : places) {
    const std::string value = equals == std::string::npos ? "" : text.substr(equals + 1);
    VX_STATUS status = VX_NORMAL_COMPLETION;
    if (value.empty()) {
      status = VX_Set_Value_To_NULL(place.object, place.tag);
    } else if (!set_typed_text(place.object, place.tag, value, true, status)) {
      return "is not in the character sets of the request";
    }
    if (status != VX_NORMAL_COMPLETION) error = VX_Error_Message(status);
  }
  return error;
}

std::string now(const char* format) {
  char text[32];
  const std::time_t seconds = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  std::strftime(text, sizeof text, format, &parts);
  return text;
}

// The data set of the request; false after a line on standard error.
bool fill(Message& request, const Verb& verb, const Peer& peer, const std::vector<std::string>& keys) {
  std::vector<std::string> all;
  if (verb.command == N_CREATE_RQ) {
    all.assign(std::begin(kRequired), std::end(kRequired));
    all.push_back("PerformedStationAETitle=" + peer.own_title);
    all.push_back("PerformedProcedureStepStartDate=" + now("%Y%m%d"));
    all.push_back("PerformedProcedureStepStartTime=" + now("%H%M%S"));
    all.push_back("PerformedProcedureStepID=" + now("%d%H%M%S"));
    all.push_back("ScheduledStepAttributesSequence[0].StudyInstanceUID=" + new_uid());
    all.emplace_back("Modality=OT");
  } else if (verb.state != nullptr) {
    all.push_back("PerformedProcedureStepEndDate=" + now("%Y%m%d"));
    all.push_back("PerformedProcedureStepEndTime=" + now("%H%M%S"));
  }
  if (verb.state != nullptr) all.push_back(std::string("PerformedProcedureStepStatus=") + verb.state);
  all.insert(all.end(), keys.begin(), keys.end());
  // Text beyond ASCII goes in UTF-8, unless a key that comes first says otherwise.
  if (!std::all_of(all.begin(), all.end(), [](const std::string& key) { return is_ascii(key); }))
    all.insert(all.begin(), "SpecificCharacterSet=ISO_IR 192");
  for (const std::string& key : all) {
    const std::string error = set_key(request, key);
    if (error.empty()) continue;
    complain("-k %s: %s", key.c_str(), error.c_str());
    return false;
  }
  return true;
}

int run(const Args& args) {
  Peer peer;
  if (!peer.read(args)) return kUsage;
  const std::string word = args.paths.size() == 3 ? args.paths[2] : "";
  const auto* verb =
      std::find_if(std::begin(kVerbs), std::end(kVerbs), [&](const Verb& row) { return word == row.word; });
  if (verb == std::end(kVerbs)) {
    complain("say what to do: create, set, complete or discontinue");
    return kUsage;
  }
  const bool create = verb->command == N_CREATE_RQ;
  const std::string uid = args.get("--uid", create ? new_uid() : "");
  if (uid.empty()) {
    complain("%s needs the --uid that create printed", word.c_str());
    return kUsage;
  }
  Message request;
  const std::string service = service_of_class(kStepClass);
  ServiceListName list;
  if (request.make(service.c_str(), verb->command) != VX_NORMAL_COMPLETION ||
      !fill(request, *verb, peer, args.all("-k"))) {
    return kUsage;
  }
  // Affected on a creation, requested on a change.
  VX_Set_Value_From_String(
      request.id, create ? tags::kAffectedSOPInstanceUID : tags::kRequestedSOPInstanceUID, uid.c_str());
  Association association;
  if (const int exit = open_with_request(association, peer, {{kStepClass, kPlainSyntaxes}}, list, request);
      exit != kSuccess) {
    return exit;
  }
  Message answer;
  const std::string problem = association.read_answer(peer.timeout, SentRequest(request), answer);
  if (!problem.empty()) return network_problem(peer, problem);
  const uint16_t code = answer.status();
  const std::string text = describe_answer(answer);
  answer.reset();
  association.close();
  if (code != 0) complain("%s:%d: %s", peer.host.c_str(), peer.port, text.c_str());
  if (code != 0 && !is_warning(code)) return kNetwork;
  std::printf("%s\n", uid.c_str());
  return code == 0 ? kSuccess : kFindings;
}

}  // namespace

const Command kMpps = {
    "mpps",
    "HOST PORT create|set|complete|discontinue [OPTION...]",
    "report a performed procedure step (N-CREATE, N-SET)",
    "create sends what the standard demands, empty where nothing is given, and prints the UID of the\n"
    "step; complete and discontinue end it: vexal mpps HOST PORT complete --uid UID. Exit status 1: done,\n"
    "with a warning; 3: not done.",
    kOptions,
    run};

}  // namespace vexal
