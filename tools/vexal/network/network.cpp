#include "network.h"

#include "base/hex.h"
#include "base/session.h"
#include "base/tags.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdlib>
#include <cstring>

namespace vexal {
namespace {

constexpr int32_t kPduLength = 262144;

struct StatusRow {
  uint16_t low;
  uint16_t high;
  const char* text;
};
// PS3.7 annex C and the service classes of PS3.4; the first row that fits counts.
constexpr StatusRow kStatuses[] = {
    {0x0000, 0x0000, "success"},
    {0x0001, 0x0001, "warning: attributes are missing or unknown"},
    {0x0105, 0x0105, "no such attribute"},
    {0x0106, 0x0106, "invalid attribute value"},
    {0x0107, 0x0107, "warning: attribute list error"},
    {0x0110, 0x0110, "processing failure"},
    {0x0111, 0x0111, "duplicate SOP instance"},
    {0x0112, 0x0112, "no such SOP instance"},
    {0x0113, 0x0113, "no such event type"},
    {0x0114, 0x0114, "no such argument"},
    {0x0115, 0x0115, "invalid argument value"},
    {0x0116, 0x0116, "warning: attribute value out of range"},
    {0x0117, 0x0117, "invalid SOP instance UID"},
    {0x0118, 0x0118, "no such SOP class"},
    {0x0119, 0x0119, "class and instance conflict"},
    {0x0120, 0x0120, "missing attribute"},
    {0x0121, 0x0121, "missing attribute value"},
    {0x0122, 0x0122, "SOP class not supported"},
    {0x0123, 0x0123, "no such action type"},
    {0x0124, 0x0124, "not authorized"},
    {0x0210, 0x0210, "duplicate invocation"},
    {0x0211, 0x0211, "unrecognized operation"},
    {0x0212, 0x0212, "mistyped argument"},
    {0x0213, 0x0213, "resource limitation"},
    {0xA700, 0xA700, "out of resources"},
    {0xA701, 0xA701, "out of resources: number of matches unknown"},
    {0xA702, 0xA702, "out of resources: sub-operations failed"},
    {0xA700, 0xA7FF, "out of resources"},
    {0xA801, 0xA801, "move destination unknown"},
    {0xA900, 0xA9FF, "data set does not match the SOP class"},
    {0xB000, 0xB000, "warning: elements coerced, or sub-operations failed"},
    {0xB006, 0xB006, "warning: elements discarded"},
    {0xB007, 0xB007, "warning: data set does not match the SOP class"},
    {0xB000, 0xBFFF, "warning"},
    {0xC000, 0xCFFF, "can not be understood or processed"},
    {0xFE00, 0xFE00, "cancelled"},
    {0xFF00, 0xFF01, "pending"},
};

// Why an A-ASSOCIATE-RQ was turned down (PS3.8 section 9.3.4), and what helps.
std::string describe_rejection(const LogLines& log, const Peer& peer) {
  struct Reason {
    unsigned source;
    unsigned reason;
    const char* text;
  };
  static constexpr Reason kReasons[] = {
      {1, 2, "it does not support the application context name"},
      {2, 2, "it does not support the protocol version"},
      {3, 1, "it is busy for the time being"},
      {3, 2, "a limit of its own is exceeded"},
  };
  unsigned result = 0;
  unsigned source = 0;
  unsigned reason = 0;
  const char* codes = log.behind("|  Codes: ");
  if (codes == nullptr) {
    log.show();  // what was turned down
    const char* fault = log.behind("Unacceptable association response: ");
    if (fault == nullptr) return VX_Error_Message(VX_ASSOCIATION_REJECTED);
    return std::string_view(fault) == "No Contexts acceptable"
               ? kNothingTaken
               : std::string("the peer's answer can not be used: ") + fault;
  }
  std::sscanf(codes, "Result 0x%x Source 0x%x Reason 0x%x", &result, &source, &reason);
  std::string text = "it gives no reason";
  if (source == 1 && reason == 3)
    text = "it does not know the calling title " + peer.own_title + "; --aet gives another";
  if (source == 1 && reason == 7)
    text = "it does not go by the called title " + peer.title + "; --aec gives another";
  for (const Reason& row : kReasons) {
    if (row.source == source && row.reason == reason) text = row.text;
  }
  return std::string("the peer rejected the association") + (result == 2 ? " for now: " : ": ") + text;
}

// Why no association came about; empty if the library's own lines say it best.
std::string describe_opening(VX_STATUS status, const LogLines& log, const Peer& peer) {
  const char* tls = log.behind("TLS: ");
  if (status == VX_ASSOCIATION_REJECTED) return describe_rejection(log, peer);
  if (status == VX_UNKNOWN_HOST_NAME) return "no such host is known";
  if (status != VX_CONNECTION_FAILED) return "";
  if (tls != nullptr) return std::string("no secure connection: ") + tls;
  if (log.behind("TCP connection timeout") != nullptr)
    return "no connection within " + std::to_string(peer.timeout) + " s (--timeout)";
  // "(first connect call, ...): (10061)Connection refused"
  const char* fault = log.behind("TCP init connection error");
  const char* text = fault != nullptr ? std::strrchr(fault, ')') : nullptr;
  return text != nullptr ? std::string("no connection: ") + (text + 1) : "";
}

std::string unique_name(const char* kind) {
  static std::atomic<uint32_t> counter{0};
  return std::string("vexal ") + kind + " " + std::to_string(counter.fetch_add(1));
}

bool read_title(const Args& args, const char* option, const char* otherwise, std::string& title) {
  title = args.get(option, otherwise);
  if (is_title(title)) return true;
  complain("%s %s: a title has 1 to 16 characters and no backslash", option, title.c_str());
  return false;
}

}  // namespace

const std::vector<VX_TRANSFER_SYNTAX> kPlainSyntaxes = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN};

bool is_title(const std::string& title) {
  return !title.empty() && title.size() <= 16 && title.find_first_not_of(' ') != std::string::npos &&
         std::none_of(title.begin(), title.end(),
                      [](unsigned char c) { return std::iscntrl(c) != 0 || c == '\\' || c >= 0x80; });
}

bool parse_port(const std::string& text, int32_t& port) {
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (!text.empty() && *end == '\0' && number >= 1 && number <= 65535) {
    port = static_cast<int32_t>(number);
    return true;
  }
  complain("%s: a port is a number from 1 to 65535", text.c_str());
  return false;
}

void set_up_network(int32_t timeout) {
  VX_Set_Bool_Config_Value(VX_CFG_TCPIP_DISABLE_NAGLE, 1);
  // The system sizes buffers by what the connection needs.
  VX_Set_Int_Config_Value(VX_CFG_TCPIP_SEND_BUFFER_SIZE, 0);
  VX_Set_Int_Config_Value(VX_CFG_TCPIP_RECEIVE_BUFFER_SIZE, 0);
  VX_Set_Long_Config_Value(VX_CFG_PDU_MAXIMUM_LENGTH, kPduLength);
  VX_Set_Int_Config_Value(VX_CFG_CONNECT_TIMEOUT, timeout);
  VX_Set_Int_Config_Value(VX_CFG_ASSOC_REPLY_TIMEOUT, timeout);
  VX_Set_Int_Config_Value(VX_CFG_WRITE_TIMEOUT, timeout);
  VX_Set_Int_Config_Value(VX_CFG_INACTIVITY_TIMEOUT, timeout);
  VX_Set_Int_Config_Value(VX_CFG_RELEASE_TIMEOUT, timeout);
  VX_Set_Int_Config_Value(VX_CFG_ARTIM_TIMEOUT, timeout);
}

Peer::~Peer() {
  if (application >= 0) VX_Release_Application(&application);
}

bool Peer::read(const Args& args) {
  if (args.paths.size() < 2) {
    complain("give the HOST and the PORT of the peer; --help tells more");
    return false;
  }
  host = args.paths[0];
  long seconds = timeout;
  if (!parse_port(args.paths[1], port) || !args.number("--timeout", 1, 86400, seconds) ||
      !read_title(args, "--aet", "VEXAL", own_title) || !read_title(args, "--aec", "ANY-SCP", title) ||
      !tls.set_up(args, false, host)) {
    return false;
  }
  timeout = static_cast<int32_t>(seconds);
  user = args.get("--user");
  if (const std::size_t colon = user.find(':'); colon != std::string::npos) {
    has_passcode = true;
    passcode = user.substr(colon + 1);
    user.resize(colon);
    if (!tls.on() && !args.has("--quiet"))
      complain("warning: without TLS the passcode can be read on the network; --tls protects it");
  }
  set_up_network(timeout);
  const VX_STATUS status = VX_Register_Application(&application, own_title.c_str());
  if (status == VX_NORMAL_COMPLETION) return true;
  complain("--aet %s: %s", own_title.c_str(), VX_Error_Message(status));
  return false;
}

// ---- Service lists ----

ServiceListName::~ServiceListName() {
  if (!list_.empty()) VX_FreeServiceList(list_.c_str());
  for (const std::string& name : services_) VX_FreeService(name.c_str());
  for (const std::string& name : syntax_lists_) VX_FreeSyntaxList(name.c_str());
}

bool ServiceListName::make(const std::vector<Proposal>& proposals, uint16_t window,
                           std::vector<std::string>& unknown) {
  std::vector<const char*> names;
  const std::vector<VX_TRANSFER_SYNTAX>* last_syntaxes = nullptr;
  for (const Proposal& proposal : proposals) {
    // Neighbours with the same syntaxes share a list.
    if (last_syntaxes == nullptr || *last_syntaxes != proposal.syntaxes) {
      std::vector<VX_TRANSFER_SYNTAX> codes = proposal.syntaxes;
      codes.push_back(0);
      syntax_lists_.push_back(unique_name("syntaxes"));
      if (VX_NewSyntaxList(syntax_lists_.back().c_str(), codes.data()) != VX_NORMAL_COMPLETION) {
        syntax_lists_.pop_back();
        return false;
      }
      last_syntaxes = &proposal.syntaxes;
    }
    const std::string name = unique_name("service");
    const VX_STATUS status =
        VX_NewServiceFromUID(name.c_str(), proposal.sop_class.c_str(), syntax_lists_.back().c_str(),
                             proposal.scu_role, proposal.scp_role);
    if (status == VX_INVALID_SOP_CLASS_UID) {
      unknown.push_back(proposal.sop_class);
      continue;
    }
    if (status != VX_NORMAL_COMPLETION) return false;
    services_.push_back(name);
  }
  if (services_.empty()) return true;
  for (const std::string& name : services_) names.push_back(name.c_str());
  names.push_back(nullptr);
  const std::string list = unique_name("list");
  if (VX_NewProposedServiceListAsync(list.c_str(), names.data(), window, 1) != VX_NORMAL_COMPLETION)
    return false;
  list_ = list;
  return true;
}

// ---- Associations ----

std::vector<AcceptedContext> accepted_contexts(int32_t association) {
  std::vector<AcceptedContext> contexts;
  ServiceInfo service;
  for (VX_STATUS status = VX_Get_First_Acceptable_Service(association, &service);
       status == VX_NORMAL_COMPLETION; status = VX_Get_Next_Acceptable_Service(association, &service)) {
    contexts.push_back({service.ServiceName, service.SopClassUid, service.SyntaxType});
  }
  return contexts;
}

bool is_alive(int32_t association) {
  AssocInfo info;
  return VX_Get_Association_Info(association, &info) != VX_INVALID_ASSOCIATION_ID;
}

SentRequest::SentRequest(const Message& request)
    : command(static_cast<uint16_t>(request.number(tags::kCommandField, 0))),
      id(static_cast<uint16_t>(request.number(tags::kMessageID, 0))),
      sop_class(request.text(tags::kAffectedSOPClassUID)),
      instance(request.text(tags::kAffectedSOPInstanceUID)) {
  if (sop_class.empty()) sop_class = request.text(tags::kRequestedSOPClassUID);
  if (instance.empty()) instance = request.text(tags::kRequestedSOPInstanceUID);
}

std::string mismatch(const Message& message, const SentRequest& request) {
  if (message.command != (request.command | 0x8000U)) return "the peer sent another message than the answer";
  if (message.number(tags::kMessageIDBeingRespondedTo, 0x10000) != request.id)
    return "the peer's answer has a message ID that is not the request's";
  const auto differs = [&](uint32_t tag, const std::string& wanted) {
    const std::string named = message.text(tag);
    return !named.empty() && !wanted.empty() && named != wanted;
  };
  if (differs(tags::kAffectedSOPClassUID, request.sop_class))
    return "the peer's answer is for another SOP class";
  if (differs(tags::kAffectedSOPInstanceUID, request.instance))
    return "the peer's answer is for another SOP instance";
  return "";
}

VX_STATUS Association::open(const Peer& peer, const ServiceListName& list) {
  abort();
  const LogLines log;
  problem_.clear();
  int32_t port = peer.port;
  const int32_t identity = peer.user.empty() ? 0 : peer.has_passcode ? 2 : 1;
  const VX_STATUS status = VX_Open_Association_With_Identity(
      peer.application, &id_, peer.title.c_str(), &port, peer.host.c_str(), list.name(),
      peer.tls.on() ? peer.tls.functions() : nullptr, peer.tls.context(), identity, 0, peer.user.data(),
      static_cast<uint16_t>(peer.user.size()), peer.has_passcode ? peer.passcode.data() : nullptr,
      static_cast<uint16_t>(peer.passcode.size()));
  accepted_.clear();
  if (status != VX_NORMAL_COMPLETION) {
    id_ = -1;
    problem_ = describe_opening(status, log, peer);
    if (!problem_.empty()) return status;
    log.show();
    problem_ = VX_Error_Message(status);
    return status;
  }
  log.show();
  AssocInfo info;
  window_ = VX_Get_Association_Info(id_, &info) == VX_NORMAL_COMPLETION ? info.MaxOperationsInvoked : 1;
  accepted_ = accepted_contexts(id_);
  return VX_NORMAL_COMPLETION;
}

void Association::close() {
  if (id_ >= 0) VX_Close_Association(&id_);
  id_ = -1;
}

void Association::abort() {
  if (id_ >= 0) VX_Abort_Association(&id_);
  id_ = -1;
}

VX_STATUS Association::check(VX_STATUS status) {
  if (status == VX_NORMAL_COMPLETION || id_ < 0) return status;
  if (!is_alive(id_)) id_ = -1;
  return status;
}

VX_STATUS Association::read(int32_t timeout, Message& message, bool head_only) {
  message.reset();
  const char* service = nullptr;
  const VX_STATUS status = check(VX_Read_Message_To_Tag(
      id_, timeout, head_only ? tags::kBehindCommand : tags::kLast, &message.id, &service, &message.command));
  message.service = status == VX_NORMAL_COMPLETION ? service : "";
  return status;
}

std::string Association::read_answer(int32_t timeout, const SentRequest& request, Message& answer) {
  const VX_STATUS status = read(timeout, answer);
  if (status != VX_NORMAL_COMPLETION) return VX_Error_Message(status);
  std::string problem = mismatch(answer, request);
  if (!problem.empty()) abort();
  return problem;
}

// ---- Messages ----

VX_STATUS Message::make(const char* of_service, uint16_t of_command) {
  reset();
  const VX_STATUS status = VX_Open_Empty_Message(&id);
  return status == VX_NORMAL_COMPLETION ? VX_Set_Service_Command(id, of_service, of_command) : status;
}

int network_problem(const Peer& peer, const std::string& text) {
  complain("%s:%d: %s", peer.host.c_str(), peer.port, text.c_str());
  return kNetwork;
}

int open_with_request(Association& association, const Peer& peer, const std::vector<Proposal>& proposals,
                      ServiceListName& list, const Message& request) {
  std::vector<std::string> unknown;
  if (!list.make(proposals, 1, unknown) || list.empty()) {
    complain("the presentation contexts can not be proposed");
    return kUsage;
  }
  if (association.open(peer, list) != VX_NORMAL_COMPLETION)
    return network_problem(peer, association.problem());
  const VX_STATUS status = association.check(VX_Send_Request_Message(association.id(), request.id));
  return status == VX_NORMAL_COMPLETION ? kSuccess : network_problem(peer, VX_Error_Message(status));
}

std::string Message::text(uint32_t tag) const {
  return text_of(id, tag);
}

bool has_data_set(int32_t message) {
  constexpr uint32_t kNone = 0x0101;
  uint32_t kind = kNone;
  return VX_Get_Value_To_UInt(message, tags::kCommandDataSetType, &kind) == VX_NORMAL_COMPLETION &&
         kind != kNone;
}

uint32_t Message::number(uint32_t tag, uint32_t otherwise) const {
  uint32_t value = 0;
  return VX_Get_Value_To_UInt(id, tag, &value) == VX_NORMAL_COMPLETION ? value : otherwise;
}

bool is_pending(uint16_t status) {
  return status == 0xFF00 || status == 0xFF01;
}

bool is_warning(uint16_t status) {
  return status == 0x0001 || status == 0x0107 || status == 0x0116 || (status & 0xF000) == 0xB000;
}

std::string describe_dimse(uint16_t status) {
  const auto* row = std::find_if(std::begin(kStatuses), std::end(kStatuses),
                                 [&](const StatusRow& r) { return status >= r.low && status <= r.high; });
  return "0x" + hex_of(status, 4) + (row != std::end(kStatuses) ? std::string(" (") + row->text + ")" : "");
}

std::string describe_answer(const Message& answer) {
  const std::string comment = answer.text(tags::kErrorComment);
  return describe_dimse(answer.status()) + (comment.empty() ? "" : ": " + comment);
}

}  // namespace vexal
