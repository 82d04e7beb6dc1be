// vexal echo: is there a DICOM node, and how fast does it answer?
#include <algorithm>
#include <chrono>

#include "base/commands.h"
#include "base/json.h"
#include "base/tags.h"
#include "network.h"

namespace vexal {
namespace {

constexpr char kVerification[] = "1.2.840.10008.1.1";

constexpr Option kOptions[] = {
    {"--count", "N", "C-ECHO requests to send on the association (default 1)"},
    {"--json", nullptr, "the result as JSON"},
    VEXAL_PEER_OPTIONS,
};

// One request and its answer. An error text, empty on success.
std::string echo_once(Association& association, const Message& request, int32_t timeout) {
  const VX_STATUS status = association.check(VX_Send_Request_Message(association.id(), request.id));
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  Message answer;
  const std::string problem = association.read_answer(timeout, SentRequest(request), answer);
  return !problem.empty() || answer.status() == 0 ? problem : describe_answer(answer);
}

int run(const Args& args) {
  Peer peer;
  long count = 1;
  if (!peer.read(args) || !args.number("--count", 1, 100000000, count)) return kUsage;
  ServiceListName list;
  std::vector<std::string> unknown;
  if (!list.make({{kVerification, {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN}}}, 1, unknown)) {
    complain("the verification service can not be proposed");
    return kUsage;
  }
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  Association association;
  if (association.open(peer, list) != VX_NORMAL_COMPLETION)
    return network_problem(peer, association.problem());
  const auto opened = Clock::now();
  Message request;
  request.make("STANDARD_ECHO", C_ECHO_RQ);
  std::string error;
  long done = 0;
  for (; done < count && error.empty(); ++done) {
    // The message keeps the identifier that its first sending gave it; each request has one of its own.
    if (done != 0) VX_Set_Value_To_Empty(request.id, tags::kMessageID);
    error = echo_once(association, request, peer.timeout);
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - opened).count();
  association.close();
  if (!error.empty()) {
    return network_problem(peer, error);
  }
  const double opening = std::chrono::duration<double, std::milli>(opened - start).count();
  if (args.has("--json")) {
    std::string out = "{\"host\":";
    append_json(out, peer.host);
    out += ",\"port\":" + std::to_string(peer.port) + ",\"title\":";
    append_json(out, peer.title);
    out += ",\"requests\":" + std::to_string(done) + ",\"association_ms\":";
    append_json(out, opening);
    out += ",\"request_ms\":";
    append_json(out, seconds * 1000 / static_cast<double>(done));
    std::printf("%s}\n", out.c_str());
  } else {
    std::printf("%s at %s:%d answers: association in %.1f ms, C-ECHO in %.3f ms", peer.title.c_str(),
                peer.host.c_str(), peer.port, opening, seconds * 1000 / static_cast<double>(done));
    if (done > 1)
      std::printf(" (%ld requests, %.0f a second)", done,
                  static_cast<double>(done) / std::max(seconds, 1e-9));
    std::printf("\n");
  }
  return kSuccess;
}

}  // namespace

const Command kEcho = {"echo",
                       "HOST PORT [OPTION...]",
                       "ask a DICOM node whether it is there (C-ECHO)",
                       "Exit status 0: it answered; 3: it did not.",
                       kOptions,
                       run};

}  // namespace vexal
