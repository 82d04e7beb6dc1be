// vexal serve: a small archive: storage, query and retrieval, modality worklist.
#include <algorithm>
#include <filesystem>
#include <map>

#include "acceptor.h"
#include "catalog.h"
#include "charset.h"
#include "commands.h"
#include "network.h"
#include "session.h"
#include "storage.h"
#include "tag_path.h"
#include "worklist.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--dir", "DIR", "folder of the objects and their index (default: this one)"},
    {"--worklist", "DIR", "folder of worklist entries, a DICOM file each, for modality worklist queries"},
    {"--node", "TITLE=HOST:PORT", "a node that objects may be moved to; may be repeated"},
    {"--fsync", nullptr, "have each object on the disk before it is acknowledged"},
    {"--max-size", "BYTES", "end an association that sends a larger object"},
    VEXAL_ACCEPTOR_OPTIONS,
};

constexpr char kWorklistFind[] = "1.2.840.10008.5.1.4.31";

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

constexpr uint16_t kSuccessStatus = 0x0000;
constexpr uint16_t kPendingStatus = 0xFF00;
constexpr uint16_t kCancelled = 0xFE00;
constexpr uint16_t kUnknownDestination = 0xA801;
constexpr uint16_t kNoMatch = 0xA900;  // the identifier does not match the SOP class
constexpr uint16_t kOutOfResources = 0xA700;
constexpr uint16_t kUnableToProcess = 0xC000;
constexpr uint16_t kSubOperationsFailed = 0xB000;
constexpr uint16_t kAllFailed = 0xA702;

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

// The identifier of a query as keys of the catalog.
bool read_identifier(int32_t message, bool patient_root, Level& level, std::vector<CatalogKey>& keys) {
  const std::string word = text_of(message, 0x00080052);
  if (word == "PATIENT" && patient_root) {
    level = Level::Patient;
  } else if (word == "STUDY") {
    level = Level::Study;
  } else if (word == "SERIES") {
    level = Level::Series;
  } else if (word == "IMAGE") {
    level = Level::Image;
  } else {
    return false;
  }
  uint32_t tag = 0;
  VX_VR vr = 0;
  std::vector<uint32_t> tags;
  for (VX_STATUS status = VX_Get_First_Attribute(message, &tag, &vr, nullptr); status == VX_NORMAL_COMPLETION;
       status = VX_Get_Next_Attribute(message, &tag, &vr, nullptr)) {
    if (tag > 0x0000FFFFU && tag != 0x00080052U && tag != 0x00080005U && vr != VX_VR_SQ &&
        (tag >> 16) % 2 == 0)
      tags.push_back(tag);
  }
  for (const uint32_t key : tags) keys.push_back({key, utf8_text_of(message, key)});
  return true;
}

// One request of an association, with what its answers need.
struct Request {
  int32_t association;
  std::string service;
  uint16_t response;  // command of the answers
  uint32_t id;

  Request(int32_t on, const char* name, int32_t message, uint16_t command)
      : association(on), service(name), response(static_cast<uint16_t>(command | 0x8000U)), id(0) {
    VX_Get_Value_To_UInt(message, 0x00000110, &id);
  }
  bool make(Message& answer) const {
    if (answer.make(service.c_str(), response) != VX_NORMAL_COMPLETION) return false;
    return VX_Set_Value_From_UInt(answer.id, 0x00000120, id) == VX_NORMAL_COMPLETION;
  }
  bool send(Message& answer, uint16_t status) const {
    return VX_Send_Response_Message(association, status, answer.id) == VX_NORMAL_COMPLETION;
  }
  // True if the peer has taken the request back; `lost` if the association ended meanwhile.
  bool cancelled(bool& lost) const {
    Message message;
    const char* name = nullptr;
    uint16_t command = 0;
    const VX_STATUS status = VX_Read_Message(association, 0, &message.id, &name, &command);
    lost = status != VX_NORMAL_COMPLETION && status != VX_TIMEOUT;
    return status == VX_NORMAL_COMPLETION && command == C_CANCEL_RQ;
  }
};

struct Counts {
  std::size_t remaining = 0;
  std::size_t completed = 0;
  std::size_t failed = 0;
  std::size_t warning = 0;
};

class Archive {
 public:
  Archive(const Args& args, const Acceptor& acceptor, const std::map<std::string, Node>& nodes)
      : acceptor_(acceptor), nodes_(nodes), worklist_(args.get("--worklist")) {
    storage_.folder = args.get("--dir", ".");
    storage_.durable = args.has("--fsync");
    storage_.tree = true;
  }

  StorageOptions& storage() { return storage_; }
  std::string open() { return catalog_.open(storage_.folder, storage_.durable); }

  void serve(int32_t association, const Caller& caller) {
    ObjectWriter writer(storage_, caller.calling_title);
    acceptor_.serve_messages(association,
                             [&](int32_t id, int32_t message, const char* service, uint16_t command) {
                               const Request request(id, service, message, command);
                               if (command == C_STORE_RQ) return store(request, message, writer);
                               Message owner;
                               const VX_STATUS status = read_rest(id, message);
                               owner.id = message;
                               if (status != VX_NORMAL_COMPLETION) return false;
                               switch (command) {
                                 case C_FIND_RQ:
                                   return find(request, message);
                                 case C_MOVE_RQ:
                                   return move(request, message);
                                 case C_GET_RQ:
                                   return get(request, message, caller);
                                 default:
                                   return command == C_CANCEL_RQ;  // of a request that is over
                               }
                             });
  }

 private:
  bool store(const Request& request, int32_t message, ObjectWriter& writer) {
    StoredObject stored;
    int32_t status = writer.take(request.association, message, stored);
    if (status < 0) return false;
    if (!stored.path.empty()) {
      bool index_failed = false;
      const std::string error = catalog_.add(stored.path, index_failed);
      if (!error.empty()) {
        report(stored.path, error);
        status = index_failed ? kOutOfResources : kUnableToProcess;
      }
    }
    return send_response(request.association, request.service.c_str(), request.response, request.id,
                         static_cast<uint16_t>(status));
  }

  bool finish(const Request& request, uint16_t status) {
    return send_response(request.association, request.service.c_str(), request.response, request.id, status);
  }

  bool find(const Request& request, int32_t identifier) {
    const std::string sop_class = text_of(identifier, 0x00000002);
    if (sop_class == kWorklistFind) return find_worklist(request, identifier);
    Level level = Level::Study;
    std::vector<CatalogKey> keys;
    if (!read_identifier(identifier, is_patient_root(sop_class), level, keys))
      return finish(request, kNoMatch);
    const std::string word = text_of(identifier, 0x00080052);
    bool lost = false;
    bool stopped = false;
    const std::string error =
        catalog_.find(level, keys, [&](const std::vector<std::string>& values, const std::string& charset) {
          Message answer;
          if (!request.make(answer)) return false;
          if (!charset.empty()) set_all_text(answer.id, 0x00080005, charset);
          VX_Set_Value_From_String(answer.id, 0x00080052, word.c_str());
          VX_Set_Value_From_String(answer.id, 0x00080054, acceptor_.title().c_str());
          for (std::size_t i = 0; i < keys.size(); ++i) set_all_text(answer.id, keys[i].tag, values[i]);
          lost = !request.send(answer, kPendingStatus);
          stopped = !lost && request.cancelled(lost);
          return !lost && !stopped;
        });
    if (lost) return false;
    if (!error.empty()) report("query", error);
    return finish(request, !error.empty() ? kUnableToProcess : stopped ? kCancelled : kSuccessStatus);
  }

  bool find_worklist(const Request& request, int32_t identifier) {
    bool lost = false;
    bool stopped = false;
    worklist_.find(identifier, [&](const std::function<void(int32_t)>& fill) {
      Message answer;
      if (!request.make(answer)) return false;
      fill(answer.id);
      lost = !request.send(answer, kPendingStatus);
      stopped = !lost && request.cancelled(lost);
      return !lost && !stopped;
    });
    return !lost && finish(request, stopped ? kCancelled : kSuccessStatus);
  }

  static bool is_patient_root(const std::string& sop_class) {
    return std::any_of(std::begin(kQueryServices), std::end(kQueryServices), [&](const QueryService& row) {
      return row.patient_root && sop_class == row.sop_class;
    });
  }

  // The files that a retrieval names. False after an answer that says why there are none.
  bool files_of(const Request& request, int32_t identifier, std::vector<ObjectFile>& files, bool& answered) {
    Level level = Level::Study;
    std::vector<CatalogKey> keys;
    answered = true;
    if (!read_identifier(identifier, is_patient_root(text_of(identifier, 0x00000002)), level, keys))
      return finish(request, kNoMatch);
    // Without a key that narrows it down, it would be the whole archive.
    const bool narrow = std::any_of(keys.begin(), keys.end(), [](const CatalogKey& key) {
      return !key.value.empty() && key.value != "*" && Catalog::knows(key.tag);
    });
    if (!narrow) return finish(request, kNoMatch);
    const std::string error = catalog_.files(keys, files);
    if (!error.empty()) {
      report("retrieval", error);
      return finish(request, kUnableToProcess);
    }
    answered = false;
    return true;
  }

  static void set_counts(Message& answer, const Counts& counts, bool with_remaining) {
    const auto set = [&](uint32_t tag, std::size_t value) {
      VX_Set_Value_From_UShortInt(answer.id, tag,
                                  static_cast<uint16_t>(std::min<std::size_t>(value, 0xFFFF)));
    };
    if (with_remaining) set(0x00001020, counts.remaining);
    set(0x00001021, counts.completed);
    set(0x00001022, counts.failed);
    set(0x00001023, counts.warning);
  }

  bool tell(const Request& request, const Counts& counts, uint16_t status,
            const std::vector<std::string>& failed) {
    Message answer;
    if (!request.make(answer)) return false;
    set_counts(answer, counts, status == kPendingStatus || status == kCancelled);
    if (status != kPendingStatus && !failed.empty()) {
      bool first = true;
      for (const std::string& instance : failed) {
        first ? VX_Set_Value_From_String(answer.id, 0x00080058, instance.c_str())
              : VX_Set_Next_Value_From_String(answer.id, 0x00080058, instance.c_str());
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
                      const std::function<int32_t(const ObjectFile&)>& send_one,
                      const std::function<bool()>& cancelled) {
    Counts counts;
    counts.remaining = files.size();
    std::vector<std::string> failed;
    for (const ObjectFile& file : files) {
      if (acceptor_.stopping()) return false;
      if (cancelled()) return tell(request, counts, kCancelled, failed);
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

  bool move(const Request& request, int32_t identifier) {
    const std::string destination = text_of(identifier, 0x00000600);
    const auto node = nodes_.find(destination);
    if (node == nodes_.end()) return finish(request, kUnknownDestination);
    std::vector<ObjectFile> files;
    bool answered = false;
    if (const bool good = files_of(request, identifier, files, answered); answered) return good;
    if (files.empty()) return tell(request, {}, kSuccessStatus, {});
    Peer peer;
    peer.host = node->second.host;
    peer.port = node->second.port;
    peer.title = destination;
    peer.own_title = acceptor_.title();
    peer.timeout = acceptor_.timeout();
    peer.application = acceptor_.application();
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
    ObjectSender sender(true);
    bool lost = false;
    const bool good = run_operations(
        request, files,
        [&](const ObjectFile& file) -> int32_t {
          if (!association.is_open()) return -1;
          std::string problem;
          const auto result = sender.send(association.id(), association.accepted(), file, problem);
          if (result == ObjectSender::Result::Lost) association.abort();
          if (result != ObjectSender::Result::Sent) {
            report(file.path, problem);
            return -1;
          }
          Message answer;
          const char* name = nullptr;
          uint16_t command = 0;
          status =
              association.check(VX_Read_Message(association.id(), peer.timeout, &answer.id, &name, &command));
          if (status != VX_NORMAL_COMPLETION) association.abort();
          return status == VX_NORMAL_COMPLETION && command == C_STORE_RSP ? answer.status() : -1;
        },
        [&] { return request.cancelled(lost); });
    association.close();
    return good && !lost;
  }

  bool get(const Request& request, int32_t identifier, const Caller& caller) {
    std::vector<ObjectFile> files;
    bool answered = false;
    if (const bool good = files_of(request, identifier, files, answered); answered) return good;
    ObjectSender sender(true);
    bool lost = false;
    bool stopped = false;
    const bool good = run_operations(
        request, files,
        [&](const ObjectFile& file) -> int32_t {
          std::string problem;
          const auto result = sender.send(request.association, caller.contexts, file, problem);
          lost = lost || result == ObjectSender::Result::Lost;
          if (result != ObjectSender::Result::Sent) return -1;
          for (;;) {
            Message answer;
            const char* name = nullptr;
            uint16_t command = 0;
            if (VX_Read_Message(request.association, acceptor_.timeout(), &answer.id, &name, &command) !=
                VX_NORMAL_COMPLETION) {
              lost = true;
              return -1;
            }
            stopped = stopped || command == C_CANCEL_RQ;
            if (command == C_STORE_RSP) return answer.status();
          }
        },
        [&] { return stopped; });
    return good && !lost;
  }

  const Acceptor& acceptor_;
  const std::map<std::string, Node>& nodes_;
  StorageOptions storage_;
  Catalog catalog_;
  Worklist worklist_;
};

int run(const Args& args) {
  Acceptor acceptor;
  std::map<std::string, Node> nodes;
  long most = 0;
  if (!acceptor.read(args) || !read_nodes(args, nodes) ||
      !args.number("--max-size", 1, 0x7FFFFFFFFFFFL, most))
    return kUsage;
  if (std::error_code none;
      args.has("--worklist") && !std::filesystem::is_directory(args.get("--worklist"), none)) {
    complain("--worklist %s: is no folder", args.get("--worklist").c_str());
    return kUsage;
  }
  Archive archive(args, acceptor, nodes);
  archive.storage().most_bytes = static_cast<uint64_t>(most);
  std::error_code failure;
  std::filesystem::create_directories(archive.storage().folder, failure);
  const std::string error = failure ? failure.message() : archive.open();
  if (!error.empty()) {
    complain("--dir %s: %s", archive.storage().folder.c_str(), error.c_str());
    return kUsage;
  }
  // Objects go both ways: in by C-STORE, out on the same association by C-GET.
  std::vector<Proposal> proposals = storage_services(false);
  for (Proposal& proposal : proposals) proposal.scu_role = proposal.scp_role = 1;
  const std::vector<VX_TRANSFER_SYNTAX> plain = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN,
                                                 EXPLICIT_BIG_ENDIAN};
  for (const QueryService& service : kQueryServices) proposals.push_back({service.sop_class, plain});
  if (args.has("--worklist")) proposals.push_back({kWorklistFind, plain});
  ServiceListName list;
  std::vector<std::string> unknown;
  // One request at a time, so that what comes during a query can only take it back.
  if (!list.make(proposals, 1, unknown)) {
    complain("the services can not be offered");
    return kUsage;
  }
  return acceptor.run(list.name(),
                      [&](int32_t association, const Caller& caller) { archive.serve(association, caller); });
}

}  // namespace

const Command kServe = {
    "serve",
    "PORT --dir DIR [OPTION...]",
    "be a small archive: storage, query, retrieval, worklist",
    "Objects lie as files below DIR, STUDY/SERIES/INSTANCE.dcm, with an index beside them that is\n"
    "brought up to date at the start: files may be added or taken away while it is not running. What\n"
    "was acknowledged is there after a crash of the program; with --fsync, after one of the system.",
    kOptions,
    run};

}  // namespace vexal
