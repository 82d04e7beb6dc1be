// vexal serve: a small archive: storage, query and retrieval, modality worklist.
#include <filesystem>

#include "archive.h"
#include "base/commands.h"
#include "base/session.h"
#include "dicomweb/web_service.h"
#include "images/bounded_file.h"
#include "mllp.h"
#include "network/network.h"
#include "operation.h"
#include "orders.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--dir", "DIR", "folder of the objects and their index (default: this one)"},
    {"--worklist", "DIR", "folder of worklist entries, a DICOM file each, for modality worklist queries"},
    {"--node", "TITLE=HOST:PORT", "a node that objects may be moved to; may be repeated"},
    {"--hl7", "[ADDRESS:]PORT",
     "take orders (ORM^O01, OMI^O23) by HL7 over MLLP into the worklist; of this machine alone without an "
     "ADDRESS"},
    {"--mpps-to", "TITLE", "tell this --node of procedure steps too, as they come; may be repeated"},
    {"--steps", "DIR", "folder of performed procedure steps, a DICOM file each; without it none are taken"},
    VEXAL_HOLDINGS_OPTIONS,
    VEXAL_STORAGE_OPTIONS,
    VEXAL_ACCEPTOR_OPTIONS,
    VEXAL_SERVICE_OPTIONS,
    VEXAL_WEB_SERVICE_OPTIONS,
};

bool is_folder(const Args& args, const char* option) {
  std::error_code none;
  if (!args.has(option) || std::filesystem::is_directory(args.get(option), none)) return true;
  complain("%s %s: is no folder", option, args.get(option).c_str());
  return false;
}

bool are_nodes(const Args& args, const Nodes& nodes) {
  for (const std::string& title : args.all("--mpps-to")) {
    if (nodes.contains(title) && args.has("--steps")) continue;
    complain("--mpps-to %s: needs --steps, and a --node of that title", title.c_str());
    return false;
  }
  return true;
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

bool start_orders(const Args& args, MllpListener& listener) {
  if (!args.has("--hl7")) return true;
  const Orders orders(args.get("--worklist"));
  const auto take = [orders](const std::string& message) { return orders.take(message); };
  const std::string fault =
      args.has("--worklist") ? listener.start(args.get("--hl7"), take) : "needs --worklist";
  if (!fault.empty()) complain("--hl7 %s: %s", args.get("--hl7").c_str(), fault.c_str());
  return fault.empty();
}

int run(const Args& args) {
  Acceptor acceptor;
  Nodes nodes;
  StorageOptions storage;
  if (!acceptor.read(args) || !read_nodes(args, nodes) || !is_folder(args, "--worklist") ||
      !is_folder(args, "--steps") || !are_nodes(args, nodes) || !storage.read(args, true))
    return kUsage;
  storage.tell(acceptor.audit(), acceptor.title());
  prepare_bounded_files();
  Archive archive(args, acceptor, nodes, storage);
  WebService web(archive.holdings(), storage);
  if (!web.read(args)) return kUsage;
  const std::string error = archive.open(args);
  if (!error.empty()) {
    complain("%s", error.c_str());
    return kUsage;
  }
  ServiceListName list;
  std::vector<std::string> unknown;
  // One request at a time, so that what comes during a query can only take it back.
  if (!list.make(services(args), 1, unknown)) {
    complain("the services can not be offered");
    return kUsage;
  }
  MllpListener listener;
  if (!start_orders(args, listener)) return kUsage;
  acceptor.warn_if_open("store, query and retrieve");
  serve_operation(web, archive.holdings());
  if (!web.start()) return kNetwork;
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
