// vexal serve: a small archive: storage, query and retrieval, modality worklist.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>

#include "base/commands.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "catalog.h"
#include "identifier.h"
#include "images/bounded_file.h"
#include "network/network.h"
#include "server/acceptor.h"
#include "server/request.h"
#include "server/storage.h"
#include "steps.h"
#include "worklist.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--dir", "DIR", "folder of the objects and their index (default: this one)"},
    {"--worklist", "DIR", "folder of worklist entries, a DICOM file each, for modality worklist queries"},
    {"--node", "TITLE=HOST:PORT", "a node that objects may be moved to; may be repeated"},
    {"--steps", "DIR", "folder of performed procedure steps, a DICOM file each; without it none are taken"},
    VEXAL_STORAGE_OPTIONS,
    VEXAL_ACCEPTOR_OPTIONS,
};

constexpr char kWorklistFind[] = "1.2.840.10008.5.1.4.31";
constexpr char kCommitment[] = "1.2.840.10008.1.20.1";
constexpr char kProcedureStep[] = "1.2.840.10008.3.1.2.3.3";

// What a query service works on (PS3.4 section C.6).
struct QueryService {
  const char* sop_class;
  bool patient_root;
};
constexpr QueryService kQueryServices[] = {
    {"1.2.840.10008.5.1.4.1.2.1.1", true},  {"1.2.840.10008.5.1.4.1.2.1.2", true},
    {"1.2.840.10008.5.1.4.1.2.1.3", true},  {"1.2.840.10008.5.1.4.1.2.2.1", false},
    {"1.2.840.10008.5.1.4.1.2.2.2", false}, {"1.2.840.10008.5.1.4.1.2.2.3", false},
};

struct Node {
  std::string host;
  int32_t port;
};

bool read_nodes(const Args& args, std::map<std::string, Node>& nodes) {
  for (const std::string& text : args.all("--node")) {
    const std::size_t equals = text.find('=');
    const std::size_t colon = text.rfind(':');
    Node node{};
    if (equals == std::string::npos || colon == std::string::npos || colon < equals ||
        !is_title(text.substr(0, equals))) {
      complain("--node %s: give TITLE=HOST:PORT", text.c_str());
      return false;
    }
    node.host = text.substr(equals + 1, colon - equals - 1);
    if (!parse_port(text.substr(colon + 1), node.port)) return false;
    nodes[text.substr(0, equals)] = node;
  }
  return true;
}

struct Counts {
  std::size_t remaining = 0;
  std::size_t completed = 0;
  std::size_t failed = 0;
  std::size_t warning = 0;
};

// Whether the peer of a request still wants its answers; asked often, it looks now and then.
class Patience {
 public:
  Patience(const Acceptor& acceptor, int32_t association) : acceptor_(acceptor), association_(association) {}

  bool over() {
    if (ended()) return true;
    const Clock::time_point now = Clock::now();
    if (now - last_ < std::chrono::milliseconds(100)) return false;
    last_ = now;
    return look();
  }
  // Looks whatever the time is.
  bool look() {
    if (ended()) return true;
    said_ = acceptor_.stopping() ? PeerSays::Gone : listen_to(association_);
    return ended();
  }
  void lose() { said_ = PeerSays::Gone; }
  void cancel() { said_ = PeerSays::Cancel; }
  bool ended() const { return said_ != PeerSays::Nothing; }
  bool gone() const { return said_ == PeerSays::Gone; }

 private:
  using Clock = std::chrono::steady_clock;
  const Acceptor& acceptor_;
  int32_t association_;
  PeerSays said_ = PeerSays::Nothing;
  Clock::time_point last_ = Clock::now();
};

class Archive {
 public:
  Archive(const Args& args, const Acceptor& acceptor, const std::map<std::string, Node>& nodes,
          StorageOptions& storage)
      : acceptor_(acceptor),
        nodes_(nodes),
        storage_(storage),
        worklist_(args.get("--worklist")),
        steps_(args.get("--steps")) {
    storage_.tree = true;
    storage_.index = &catalog_;
  }

  std::string open() { return catalog_.open(storage_.folder, storage_.durable, storage_.mode); }

  void serve(int32_t association, const Caller& caller) {
    ObjectWriter writer(storage_, caller.calling_title, caller.address);
    acceptor_.serve_messages(association,
                             [&](int32_t id, int32_t message, const char* service, uint16_t command) {
                               const Request request(id, service, message, command);
                               if (command == C_STORE_RQ && (caller.rights & kMayStore) != 0)
                                 return store(request, message, writer);
                               return other(request, message, command, caller);
                             });
  }

 private:
  struct Service {
    uint16_t command;
    unsigned right;
    bool (Archive::*answer)(const Request& request, int32_t message, const Caller& caller);
  };
  static const Service kServices[];

  static bool store(const Request& request, int32_t message, ObjectWriter& writer) {
    StoredObject stored;
    const int32_t status = writer.take(request.association, message, stored);
    return status >= 0 && request.finish(static_cast<uint16_t>(status));
  }

  // Everything but objects: the data set is read first.
  bool other(const Request& request, int32_t message, uint16_t command, const Caller& caller) {
    const auto* service = std::find_if(kServices, kServices + kServiceCount,
                                       [&](const Service& row) { return row.command == command; });
    const bool known = service != kServices + kServiceCount;
    Message owner;
    owner.id = message;
    if (known && (caller.rights & service->right) == 0) {
      report(caller.calling_title, "is not allowed to do that");
      return drop_rest(request.association, owner.id) && request.finish(kNotAuthorized);
    }
    IdentifierRoom room;
    if (read_rest(request.association, owner.id, room) != VX_NORMAL_COMPLETION) return false;
    if (room.crowded) return request.finish(kOutOfResources);
    // A request to cancel what is over; anything else was not negotiated.
    if (!known) return command == C_CANCEL_RQ;
    return (this->*service->answer)(request, owner.id, caller);
  }

  bool find(const Request& request, int32_t identifier, const Caller&) {
    const std::string sop_class = text_of(identifier, tags::kAffectedSOPClassUID);
    if (sop_class == kWorklistFind) return find_worklist(request, identifier);
    Level level = Level::Study;
    std::vector<CatalogKey> keys;
    if (!read_identifier(identifier, is_patient_root(sop_class), level, keys))
      return request.finish(kNotMatching);
    const std::string word = text_of(identifier, tags::kQueryRetrieveLevel);
    Patience patience(acceptor_, request.association);
    const std::string error = catalog_.find(
        level, keys, [&] { return patience.over(); },
        [&](const std::vector<std::string>& values, const std::string& charset) {
          Message answer;
          if (!request.make(answer)) return false;
          if (!charset.empty()) set_all_text(answer.id, tags::kSpecificCharacterSet, charset);
          VX_Set_Value_From_String(answer.id, tags::kQueryRetrieveLevel, word.c_str());
          VX_Set_Value_From_String(answer.id, tags::kRetrieveAETitle, acceptor_.title().c_str());
          for (std::size_t i = 0; i < keys.size(); ++i) set_all_text(answer.id, keys[i].tag, values[i]);
          return send_pending(request, answer, patience);
        });
    if (!error.empty() && !patience.ended()) {
      report("query", error);
      return request.finish(kNotUnderstood);
    }
    return end_query(request, patience);
  }

  static bool send_pending(const Request& request, Message& answer, Patience& patience) {
    if (!request.send(answer, kPendingStatus)) {
      patience.lose();
      return false;
    }
    return !patience.look();
  }

  static bool end_query(const Request& request, const Patience& patience) {
    return !patience.gone() && request.finish(patience.ended() ? kCancelled : kSuccessStatus);
  }

  bool find_worklist(const Request& request, int32_t identifier) {
    Patience patience(acceptor_, request.association);
    worklist_.find(
        identifier, [&] { return patience.over(); },
        [&](const std::function<void(int32_t)>& fill) {
          Message answer;
          if (!request.make(answer)) return false;
          fill(answer.id);
          return send_pending(request, answer, patience);
        });
    return end_query(request, patience);
  }

  static bool is_patient_root(const std::string& sop_class) {
    return std::any_of(std::begin(kQueryServices), std::end(kQueryServices), [&](const QueryService& row) {
      return row.patient_root && sop_class == row.sop_class;
    });
  }

  // The files that a retrieval names. `answered`: the peer has been told why there are none, or has gone.
  bool files_of(const Request& request, int32_t identifier, std::vector<ObjectFile>& files, bool& answered) {
    Level level = Level::Study;
    std::vector<CatalogKey> keys;
    answered = true;
    if (!read_identifier(identifier, is_patient_root(text_of(identifier, tags::kAffectedSOPClassUID)), level,
                         keys))
      return request.finish(kNotMatching);
    // Without a key that narrows it down, it would be the whole archive.
    if (std::none_of(keys.begin(), keys.end(), narrows)) return request.finish(kNotMatching);
    Patience patience(acceptor_, request.association);
    const std::string error = catalog_.files(
        keys, [&] { return patience.over(); }, files);
    if (patience.ended()) return end_query(request, patience);
    if (!error.empty()) {
      report("retrieval", error);
      return request.finish(kNotUnderstood);
    }
    answered = false;
    return true;
  }

  static void set_counts(Message& answer, const Counts& counts, bool with_remaining) {
    const auto set = [&](uint32_t tag, std::size_t value) {
      VX_Set_Value_From_UShortInt(answer.id, tag,
                                  static_cast<uint16_t>(std::min<std::size_t>(value, 0xFFFF)));
    };
    if (with_remaining) set(tags::kNumberOfRemainingSuboperations, counts.remaining);
    set(tags::kNumberOfCompletedSuboperations, counts.completed);
    set(tags::kNumberOfFailedSuboperations, counts.failed);
    set(tags::kNumberOfWarningSuboperations, counts.warning);
  }

  bool tell(const Request& request, const Counts& counts, uint16_t status,
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

  static uint16_t final_status(const Counts& counts) {
    if (counts.failed == 0) return kSuccessStatus;
    return counts.completed + counts.warning == 0 ? kAllFailed : kSubOperationsFailed;
  }

  // Sub-operations one by one: `send_one` gives the DIMSE status of one, or -1 when the way to the
  // destination is lost.
  bool run_operations(const Request& request, const std::vector<ObjectFile>& files,
                      const std::function<int32_t(const ObjectFile&)>& send_one, Patience& patience) {
    Counts counts;
    counts.remaining = files.size();
    std::vector<std::string> failed;
    for (const ObjectFile& file : files) {
      if (acceptor_.stopping() || patience.gone()) return false;
      if (patience.ended()) return tell(request, counts, kCancelled, failed);
      const int32_t status = send_one(file);
      --counts.remaining;
      if (status == 0) {
        ++counts.completed;
      } else if (status > 0 && is_warning(static_cast<uint16_t>(status))) {
        ++counts.warning;
      } else {
        ++counts.failed;
        failed.push_back(file.instance);
      }
      if (counts.remaining != 0 && !tell(request, counts, kPendingStatus, failed)) return false;
    }
    return tell(request, counts, final_status(counts), failed);
  }

  bool move(const Request& request, int32_t identifier, const Caller& caller) {
    const std::string destination = text_of(identifier, tags::kMoveDestination);
    const auto node = nodes_.find(destination);
    if (node == nodes_.end()) return request.finish(kUnknownDestination);
    std::vector<ObjectFile> files;
    bool answered = false;
    if (const bool good = files_of(request, identifier, files, answered); answered) return good;
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
        request, files,
        [&](const ObjectFile& file) -> int32_t {
          patience.look();
          if (!association.is_open()) return -1;
          std::string problem;
          const auto result = sender.send(association.id(), association.accepted(), file, problem);
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

  void fill_peer(Peer& peer, const std::string& title, const Node& node) const {
    peer.host = node.host;
    peer.port = node.port;
    peer.title = title;
    peer.own_title = acceptor_.title();
    peer.timeout = acceptor_.timeout();
    peer.application = acceptor_.application();
  }

  // The status in the answer to the C-STORE of a file, read as its command alone; -1 where something else
  // comes. `cancel`: the peer took its own request back meanwhile.
  int32_t read_store_answer(int32_t association, const SentRequest& request, bool& cancel) const {
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

  bool get(const Request& request, int32_t identifier, const Caller& caller) {
    std::vector<ObjectFile> files;
    bool answered = false;
    if (const bool good = files_of(request, identifier, files, answered); answered) return good;
    ObjectSender sender(true, true);
    Patience patience(acceptor_, request.association);
    return run_operations(
        request, files,
        [&](const ObjectFile& file) -> int32_t {
          std::string problem;
          const auto result = sender.send(request.association, caller.contexts, file, problem);
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

  // N-ACTION of storage commitment: what is here is vouched for, in a report on the same association, or
  // where that is gone, on one to the node of that title.
  bool commit(const Request& request, int32_t message, const Caller& caller) {
    const std::string transaction = text_of(message, tags::kTransactionUID);
    Message answer;
    if (text_of(message, tags::kRequestedSOPClassUID) != kCommitment || !request.make(answer)) return false;
    uint16_t status = transaction.empty() ? kMissingAttribute : kSuccessStatus;
    uint32_t action = 0;
    VX_Get_Value_To_UInt(message, tags::kActionTypeID, &action);
    if (action != 1) status = kNoSuchAction;
    VX_Set_Value_From_UShortInt(answer.id, tags::kActionTypeID, static_cast<uint16_t>(action));
    if (!request.send(answer, status)) return false;
    if (status != kSuccessStatus) return true;
    Message report_message;
    if (!fill_report(report_message, message, transaction)) return false;
    if (send_report(request.association, report_message)) return true;
    const auto node = nodes_.find(caller.calling_title);
    if (node == nodes_.end()) {
      report(caller.calling_title, "has not taken its storage commitment report, and is no --node");
    } else if (!report_to_node(node->first, node->second, report_message)) {
      report(caller.calling_title, "can not be told of its storage commitment");
    }
    return false;  // the association is gone
  }

  bool fill_report(Message& out, int32_t request, const std::string& transaction) {
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
    VX_Set_Value_From_String(out.id, tags::kAffectedSOPInstanceUID, "1.2.840.10008.1.20.1.1");
    VX_Set_Value_From_UShortInt(out.id, tags::kEventTypeID, all ? 1 : 2);
    return status == VX_NORMAL_COMPLETION;
  }

  // 0 if the object is here, as it was stored; otherwise a failure reason (PS3.3 section C.14.1.1).
  uint16_t vouch(const std::string& sop_class, const std::string& instance) {
    std::vector<ObjectFile> files;
    if (instance.empty()) return kNoSuchInstance;
    const std::string error = catalog_.files({{tags::kSOPInstanceUID, VX_VR_UI, instance}}, nullptr, files);
    if (!error.empty()) {
      report("storage commitment", error);
      return kProcessingFailure;
    }
    if (files.size() != 1) return kNoSuchInstance;
    std::error_code failure;
    if (std::filesystem::file_size(files[0].path, failure) != files[0].size || failure)
      return kNoSuchInstance;
    return files[0].sop_class == sop_class ? 0 : kClassInstanceConflict;
  }

  // False if the association did not take it.
  bool send_report(int32_t association, const Message& message) const {
    if (VX_Send_Request_Message(association, message.id) != VX_NORMAL_COMPLETION) return false;
    Message answer;
    const char* name = nullptr;
    uint16_t command = 0;
    const MessageWatch watch(acceptor_.timeout());
    return VX_Read_Message_To_Tag(association, acceptor_.timeout(), tags::kBehindCommand, &answer.id, &name,
                                  &command) == VX_NORMAL_COMPLETION &&
           command == N_EVENT_REPORT_RSP && !answer.has_data_set();
  }

  bool report_to_node(const std::string& title, const Node& node, const Message& message) const {
    Peer peer;
    fill_peer(peer, title, node);
    ServiceListName list;
    std::vector<std::string> unknown;
    Association association;
    // The one who reports is the provider of the service.
    const bool open = list.make({{kCommitment, kPlainSyntaxes, 0, 1}}, 1, unknown) && !list.empty() &&
                      association.open(peer, list) == VX_NORMAL_COMPLETION;
    peer.application = -1;  // the acceptor's
    const bool sent = open && send_report(association.id(), message);
    if (sent) association.close();
    return sent;
  }

  bool make_step(const Request& request, int32_t message, const Caller&) {
    return answer_step(request, message, &ProcedureSteps::create);
  }
  bool change_step(const Request& request, int32_t message, const Caller&) {
    return answer_step(request, message, &ProcedureSteps::set);
  }
  bool answer_step(const Request& request, int32_t message,
                   uint16_t (ProcedureSteps::*work)(int32_t, std::string&)) {
    std::string instance;
    const uint16_t status = (steps_.*work)(message, instance);
    Message answer;
    if (!request.make(answer)) return false;
    if (!instance.empty())
      VX_Set_Value_From_String(answer.id, tags::kAffectedSOPInstanceUID, instance.c_str());
    return request.send(answer, status);
  }

  const Acceptor& acceptor_;
  const std::map<std::string, Node>& nodes_;
  StorageOptions& storage_;
  Catalog catalog_;
  Worklist worklist_;
  ProcedureSteps steps_;
  static constexpr std::size_t kServiceCount = 7;
};

const Archive::Service Archive::kServices[Archive::kServiceCount] = {
    {C_STORE_RQ, kMayStore, nullptr},  // serve() takes it from those who may
    {C_FIND_RQ, kMayQuery, &Archive::find},
    {C_MOVE_RQ, kMayRetrieve, &Archive::move},
    {C_GET_RQ, kMayRetrieve, &Archive::get},
    {N_ACTION_RQ, kMayStore, &Archive::commit},
    {N_CREATE_RQ, kMayStore, &Archive::make_step},
    {N_SET_RQ, kMayStore, &Archive::change_step},
};

bool is_folder(const Args& args, const char* option) {
  std::error_code none;
  if (!args.has(option) || std::filesystem::is_directory(args.get(option), none)) return true;
  complain("%s %s: is no folder", option, args.get(option).c_str());
  return false;
}

// Objects go both ways: in by C-STORE, out on the same association by C-GET.
std::vector<Proposal> services(const Args& args) {
  std::vector<Proposal> proposals = storage_services(false);
  for (Proposal& proposal : proposals) proposal.scu_role = proposal.scp_role = 1;
  const std::vector<VX_TRANSFER_SYNTAX> plain = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN,
                                                 EXPLICIT_BIG_ENDIAN};
  for (const QueryService& service : kQueryServices) proposals.push_back({service.sop_class, plain});
  if (args.has("--worklist")) proposals.push_back({kWorklistFind, plain});
  if (args.has("--steps")) proposals.push_back({kProcedureStep, plain});
  proposals.push_back({kCommitment, plain});
  proposals.push_back(verification_service());
  return proposals;
}

int run(const Args& args) {
  Acceptor acceptor;
  std::map<std::string, Node> nodes;
  StorageOptions storage;
  if (!acceptor.read(args) || !read_nodes(args, nodes) || !is_folder(args, "--worklist") ||
      !is_folder(args, "--steps") || !storage.read(args, true))
    return kUsage;
  prepare_bounded_files();
  Archive archive(args, acceptor, nodes, storage);
  const std::string error = archive.open();
  if (!error.empty()) {
    complain("--dir %s: %s", storage.folder.c_str(), error.c_str());
    return kUsage;
  }
  ServiceListName list;
  std::vector<std::string> unknown;
  // One request at a time, so that what comes during a query can only take it back.
  if (!list.make(services(args), 1, unknown)) {
    complain("the services can not be offered");
    return kUsage;
  }
  acceptor.warn_if_open("store, query and retrieve");
  return acceptor.run(list.name(),
                      [&](int32_t association, const Caller& caller) { archive.serve(association, caller); });
}

}  // namespace

const Command kServe = {
    "serve",
    "PORT --dir DIR [OPTION...]",
    "be a small archive: storage, query, retrieval, worklist, commitment, procedure steps",
    "Objects lie as files below DIR, STUDY/SERIES/INSTANCE.dcm, with an index beside them that is\n"
    "brought up to date at the start: files may be added or taken away while it is not running, and\n"
    "a damaged index is made anew. What was acknowledged is there after a crash of the program; with\n"
    "--fsync, after one of the system. Queries take up to 1024 keys of 1024 bytes (64 KiB for lists of\n"
    "UIDs) in an identifier of 1 MiB. docs/operating.md tells who may do what, and all limits.",
    kOptions,
    run};

}  // namespace vexal
