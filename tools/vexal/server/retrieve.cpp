// vexal get and vexal move: have an archive send what a query names, here or to another node.
#include <unistd.h>

#include <algorithm>

#include "base/commands.h"
#include "base/json.h"
#include "base/session.h"
#include "base/tags.h"
#include "network/network.h"
#include "network/query.h"
#include "storage.h"

namespace vexal {
namespace {

constexpr Option kGetOptions[] = {
    VEXAL_QUERY_OPTIONS,
    {"--dir", "DIR", "folder for the files (default: this one)"},
    {"--tree", nullptr, "folders by study and series below it"},
    {"--class", "CLASS",
     "a storage class to take, by service name or UID; may be repeated (default: all that fit)"},
    {"--json", nullptr, "the result as JSON"},
    VEXAL_PEER_OPTIONS,
};

constexpr Option kMoveOptions[] = {
    VEXAL_QUERY_OPTIONS,
    {"--to", "TITLE", "where the objects go: the title of a node that the archive knows"},
    {"--json", nullptr, "the result as JSON"},
    VEXAL_PEER_OPTIONS,
};

constexpr std::size_t kMostContexts = 128;

// A context has room for no more syntaxes.
constexpr std::size_t kMostSyntaxes = 26;

// What archives keep, the usual first. Videos, which can not be turned into anything else, stand behind
// images.
constexpr VX_TRANSFER_SYNTAX kImageSyntaxes[] = {EXPLICIT_LITTLE_ENDIAN,
                                                 IMPLICIT_LITTLE_ENDIAN,
                                                 DEFLATED_EXPLICIT_LITTLE_ENDIAN,
                                                 JPEG_BASELINE,
                                                 JPEG_EXTENDED_2_4,
                                                 JPEG_LOSSLESS_NON_HIER_14,
                                                 JPEG_LOSSLESS_HIER_14,
                                                 JPEG_LS_LOSSLESS,
                                                 JPEG_LS_LOSSY,
                                                 JPEG_2000_LOSSLESS_ONLY,
                                                 JPEG_2000,
                                                 RLE,
                                                 HTJ2K_LOSSLESS,
                                                 HTJ2K_LOSSLESS_RPCL,
                                                 HTJ2K,
                                                 JPEG_XL_LOSSLESS,
                                                 JPEG_XL_RECOMPRESSION,
                                                 JPEG_XL,
                                                 ENCAPSULATED_UNCOMPRESSED,
                                                 DEFLATED_IMAGE_FRAMES};
constexpr VX_TRANSFER_SYNTAX kVideoSyntaxes[] = {MPEG2_MPML,
                                                 MPEG2_MPHL,
                                                 MPEG4_AVC_H264_HP_LEVEL_4_1,
                                                 MPEG4_AVC_H264_BDC_HP_LEVEL_4_1,
                                                 MPEG4_AVC_H264_HP_LEVEL_4_2_2D,
                                                 HEVC_H265_MP_LEVEL_5_1,
                                                 MPEG4_AVC_H264_HP_LEVEL_4_2_3D,
                                                 MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2,
                                                 HEVC_H265_M10P_LEVEL_5_1,
                                                 FRAGMENTABLE_MPEG2_MPML,
                                                 FRAGMENTABLE_MPEG2_MPHL,
                                                 FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_1,
                                                 FRAGMENTABLE_MPEG4_AVC_H264_BDC_HP_LEVEL_4_1,
                                                 FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_2_2D,
                                                 FRAGMENTABLE_MPEG4_AVC_H264_HP_LEVEL_4_2_3D,
                                                 FRAGMENTABLE_MPEG4_AVC_H264_STEREO_HP_LEVEL_4_2};
constexpr std::string_view kVideoClasses[] = {"1.2.840.10008.5.1.4.1.1.77.1.1.1",
                                              "1.2.840.10008.5.1.4.1.1.77.1.2.1",
                                              "1.2.840.10008.5.1.4.1.1.77.1.4.1"};

struct Tally {
  uint32_t remaining = 0;
  uint32_t completed = 0;
  uint32_t failed = 0;
  uint32_t warning = 0;
  uint32_t lost = 0;  // that came and could not be kept, whatever the archive makes of our answer
  uint16_t status = 0xFFFF;
  std::string text;  // of the final status
};

// The counts of sub-operations that an answer holds (PS3.7 section 9.1.4).
void count(const Message& answer, Tally& tally) {
  tally.remaining = answer.number(tags::kNumberOfRemainingSuboperations, tally.remaining);
  tally.completed = answer.number(tags::kNumberOfCompletedSuboperations, tally.completed);
  tally.failed = answer.number(tags::kNumberOfFailedSuboperations, tally.failed);
  tally.warning = answer.number(tags::kNumberOfWarningSuboperations, tally.warning);
  tally.status = answer.status();
  tally.text = describe_answer(answer);
}

void show_progress(const Tally& tally) {
  if (::isatty(STDERR_FILENO) == 0) return;
  std::fprintf(stderr, "\r%u done, %u failed, %u left ", tally.completed + tally.warning, tally.failed,
               tally.remaining);
}

int print_result(const Args& args, const Peer& peer, const Tally& tally) {
  if (::isatty(STDERR_FILENO) != 0) std::fprintf(stderr, "\r%50s\r", "");
  if (args.has("--json")) {
    std::string line = "{\"completed\":" + std::to_string(tally.completed) +
                       ",\"failed\":" + std::to_string(tally.failed) +
                       ",\"warnings\":" + std::to_string(tally.warning) +
                       ",\"status\":" + std::to_string(tally.status) + ",\"text\":";
    append_json(line, tally.text);
    std::printf("%s}\n", line.c_str());
  } else {
    std::printf("%u retrieved, %u with a warning, %u failed\n", tally.completed + tally.warning,
                tally.warning, tally.failed);
  }
  if (tally.status == 0) return tally.failed + tally.lost == 0 ? kSuccess : kFindings;
  complain("%s:%d: %s", peer.host.c_str(), peer.port, tally.text.c_str());
  return is_warning(tally.status) ? kFindings : kNetwork;
}

// Storage classes to take on a get.
bool wanted_classes(const Args& args, std::vector<std::string>& classes) {
  for (const std::string& word : args.all("--class")) {
    char uid[68] = "";
    const bool name = VX_Get_UID_From_VexalKit_Service(word.c_str(), uid, sizeof uid) == VX_NORMAL_COMPLETION;
    if (!name && VX_Add_Service(word.c_str()) != VX_NORMAL_COMPLETION) {
      complain("--class %s: no such service; vexal lookup finds names", word.c_str());
      return false;
    }
    classes.push_back(name ? uid : word);
  }
  if (classes.empty()) classes = storage_classes(false);
  return true;
}

// The contexts of the classes. An archive takes one syntax of each: where there is room, each syntax has a
// context of its own, so that every object can come as it is kept, and at least videos have one.
std::vector<Proposal> retrieve_contexts(const std::vector<std::string>& classes) {
  constexpr std::size_t kRoom = kMostContexts - 1;  // beside that of the query
  std::vector<VX_TRANSFER_SYNTAX> all(std::begin(kImageSyntaxes), std::end(kImageSyntaxes));
  const std::vector<VX_TRANSFER_SYNTAX> images = all;
  all.insert(all.end(), std::begin(kVideoSyntaxes), std::end(kVideoSyntaxes));
  std::vector<Proposal> contexts;
  const auto add = [&](const std::string& sop_class, std::vector<VX_TRANSFER_SYNTAX> syntaxes) {
    syntaxes.resize(std::min(syntaxes.size(), kMostSyntaxes));
    if (contexts.size() < kRoom) contexts.push_back({sop_class, std::move(syntaxes), 0, 1});
  };
  for (const std::string& sop_class : classes) {
    const bool video =
        std::find(std::begin(kVideoClasses), std::end(kVideoClasses), sop_class) != std::end(kVideoClasses);
    if (classes.size() * all.size() <= kRoom) {
      for (const VX_TRANSFER_SYNTAX syntax : all) add(sop_class, {syntax});
    } else if (video || classes.size() * 2 <= kRoom) {
      add(sop_class, images);
      add(sop_class, {std::begin(kVideoSyntaxes), std::end(kVideoSyntaxes)});
    } else {
      add(sop_class, all);
    }
  }
  return contexts;
}

// Objects that arrive and answers to the get, until the last one. An error text, empty on success.
std::string serve_get(Association& association, const Peer& peer, const SentRequest& asked,
                      ObjectWriter& writer, Tally& tally) {
  for (;;) {
    Message message;
    VX_STATUS status = association.read(peer.timeout, message, true);
    if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
    if (message.command == C_STORE_RQ) {
      const uint32_t request = message.number(tags::kMessageID, 0);
      StoredObject stored;
      const int32_t answer = writer.take(association.id(), message.id, stored);
      message.id = -1;
      if (answer > 0) ++tally.lost;
      if (answer < 0 || !send_response(association.id(), message.service.c_str(), C_STORE_RSP, request,
                                       static_cast<uint16_t>(answer))) {
        association.check(VX_SYSTEM_ERROR);
        return "the association was lost";
      }
      continue;
    }
    const std::string problem = mismatch(message, asked);
    if (!problem.empty()) {
      association.abort();
      return problem;
    }
    // Its data set, the list of what has failed, is decoded: only a request's can be had as bytes.
    if (message.has_data_set())
      status = association.check(VX_Continue_Read_Message(association.id(), &message.id));
    if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
    count(message, tally);
    if (!is_pending(tally.status)) return "";
    show_progress(tally);
  }
}

std::string wait_for_move(Association& association, const Peer& peer, const SentRequest& asked,
                          Tally& tally) {
  for (;;) {
    Message answer;
    const std::string problem = association.read_answer(peer.timeout, asked, answer);
    if (!problem.empty()) return problem;
    count(answer, tally);
    if (!is_pending(tally.status)) return "";
    show_progress(tally);
  }
}

int run_get(const Args& args) {
  Peer peer;
  Query query;
  Message request;
  if (!peer.read(args) || !query.read(args, QueryKind::Get) || !query.fill(request, C_GET_RQ)) return kUsage;
  std::vector<std::string> classes;
  StorageOptions storage;
  if (!wanted_classes(args, classes) || !storage.read(args)) return kUsage;
  std::vector<Proposal> proposals = retrieve_contexts(classes);
  proposals.insert(proposals.begin(), {query.sop_class(), kPlainSyntaxes});
  ServiceListName list;
  Association association;
  if (const int exit = open_with_request(association, peer, proposals, list, request); exit != kSuccess)
    return exit;
  ObjectWriter writer(storage, peer.title);
  Tally tally;
  const std::string error = serve_get(association, peer, SentRequest(request), writer, tally);
  association.close();
  if (!error.empty()) return network_problem(peer, error);
  // Some archives end a retrieval at the first object that they can not send.
  if (tally.status != 0 && classes.size() >= kMostContexts)
    complain(
        "%zu storage classes were not asked for, since an association has no room for them: --class names "
        "those that are needed",
        classes.size() + 1 - kMostContexts);
  return print_result(args, peer, tally);
}

int run_move(const Args& args) {
  Peer peer;
  Query query;
  Message request;
  const std::string destination = args.get("--to");
  if (!is_title(destination)) {
    complain("%s%s: name the node that gets the objects, with a title of 1 to 16 characters",
             args.has("--to") ? "--to " : "--to is missing", destination.c_str());
    return kUsage;
  }
  if (!peer.read(args) || !query.read(args, QueryKind::Move) || !query.fill(request, C_MOVE_RQ))
    return kUsage;
  VX_Set_Value_From_String(request.id, tags::kMoveDestination, destination.c_str());
  ServiceListName list;
  Association association;
  if (const int exit =
          open_with_request(association, peer, {{query.sop_class(), kPlainSyntaxes}}, list, request);
      exit != kSuccess)
    return exit;
  Tally tally;
  const std::string error = wait_for_move(association, peer, SentRequest(request), tally);
  association.close();
  if (error.empty()) return print_result(args, peer, tally);
  return network_problem(peer, error);
}

}  // namespace

const Command kGet = {"get",
                      "HOST PORT --level LEVEL -k KEY=VALUE [OPTION...]",
                      "retrieve objects over the same association (C-GET)",
                      "The objects that the keys name arrive as files, as vexal receive would write them.\n"
                      "Exit status 1: some were not retrieved, or with a warning; 3: the archive failed.",
                      kGetOptions,
                      run_get};

const Command kMove = {
    "move",
    "HOST PORT --to TITLE --level LEVEL -k KEY=VALUE [OPTION...]",
    "have an archive send objects to a node (C-MOVE)",
    "The archive opens an association of its own to the node; vexal receive can be that node.\n"
    "Exit status 1: some were not sent, or with a warning; 3: the archive failed.",
    kMoveOptions,
    run_move};

}  // namespace vexal
