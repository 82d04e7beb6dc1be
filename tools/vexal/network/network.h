// What the subcommands with a network side share: the peer, associations, messages, status texts.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/args.h"
#include "base/tags.h"
#include "base/values.h"
#include "files/files.h"
#include "tls.h"
#include "vexalkit.h"

namespace vexal {

// Rows of an option table.
#define VEXAL_PEER_OPTIONS                                                                       \
  {"--aet", "TITLE", "own application entity title (default VEXAL)"},                            \
      {"--aec", "TITLE", "title of the peer (default ANY-SCP)"},                                 \
      {"--timeout", "S", "seconds to wait for the connection and for each answer (default 30)"}, \
      {"--user", "NAME[:PASSCODE]", "identify as this user"}, VEXAL_TLS_OPTIONS

// Application entity titles as PS3.8 allows them: up to 16 characters, none of them a control or a backslash.
bool is_title(const std::string& title);

// Whom a requester talks to, and as whom.
struct Peer {
  std::string host;
  int32_t port = 0;
  std::string own_title;
  std::string title;
  int32_t timeout = 30;
  std::string user;
  std::string passcode;
  bool has_passcode = false;
  Tls tls;
  int32_t application = -1;

  Peer() = default;
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  // HOST PORT are the first two paths. Also sets the library up for the network. False after a line on
  // standard error.
  bool read(const Args& args);
};

// Settings of the library that suit a network program.
void set_up_network(int32_t timeout);
// "104" or the like; false after a line on standard error.
bool parse_port(const std::string& text, int32_t& port);

// What any uncompressed data set can be sent in.
extern const std::vector<VX_TRANSFER_SYNTAX> kPlainSyntaxes;
// The problem of an association whose contexts were all turned down.
inline constexpr char kNothingTaken[] = "the peer takes none of the services that were asked for";

// One presentation context to propose or to accept.
struct Proposal {
  std::string sop_class;
  std::vector<VX_TRANSFER_SYNTAX> syntaxes;
  uint8_t scu_role = 0xFF;  // 0 or 1; 0xFF in both: no role selection
  uint8_t scp_role = 0xFF;
};

// A service list of the library, under a name of its own, as long as this lives.
class ServiceListName {
 public:
  ServiceListName() = default;
  ~ServiceListName();
  ServiceListName(const ServiceListName&) = delete;
  ServiceListName& operator=(const ServiceListName&) = delete;
  // Proposals whose class the library does not know are left out and named in `unknown`. False if the library
  // refuses for another reason.
  bool make(const std::vector<Proposal>& proposals, uint16_t window, std::vector<std::string>& unknown);
  const char* name() const { return list_.c_str(); }
  bool empty() const { return services_.empty(); }

 private:
  std::string list_;
  std::vector<std::string> services_;
  std::vector<std::string> syntax_lists_;
};

// One that came to the library while it runs: it can only be handed on.
inline bool is_unknown_syntax(VX_TRANSFER_SYNTAX syntax) {
  return syntax > kLastKnownSyntax;
}

// A class that the peer of an association takes, and how.
struct AcceptedContext {
  std::string service;
  std::string sop_class;
  VX_TRANSFER_SYNTAX syntax;
};
// Of a fresh association, before its first message, or before an acceptor accepts it.
std::vector<AcceptedContext> accepted_contexts(int32_t association);
// False once the library has ended it.
bool is_alive(int32_t association);

// Whether the command of a message says that a data set follows (PS3.7 section E.1).
bool has_data_set(int32_t message);

class Message;

// A request that went out, as its answers have to name it (PS3.7 chapters 9 and 10).
struct SentRequest {
  SentRequest() = default;
  explicit SentRequest(const Message& request);  // that has been sent

  uint16_t command = 0;
  uint16_t id = 0;  // (0000,0110)
  std::string sop_class;
  std::string instance;  // empty: the request names none
};

// Why a message is no answer to this request; empty if it is one.
std::string mismatch(const Message& message, const SentRequest& request);

// An association that this program asked for.
class Association {
 public:
  Association() = default;
  // One that a peer opened, and that was accepted.
  explicit Association(int32_t id) : id_(id) {}
  ~Association() { abort(); }
  Association(const Association&) = delete;
  Association& operator=(const Association&) = delete;

  VX_STATUS open(const Peer& peer, const ServiceListName& list);
  // Why it could not be opened.
  const std::string& problem() const { return problem_; }
  bool is_open() const { return id_ >= 0; }
  int32_t id() const { return id_; }
  void close();
  void abort();
  // The library ends an association itself when a call on it fails; notes that.
  VX_STATUS check(VX_STATUS status);
  // The next message, within so many seconds; with `head_only`, its data set stays on the network.
  VX_STATUS read(int32_t timeout, Message& message, bool head_only = false);
  // Reads an answer to a request. An error text, empty on success; anything else than its answer aborts the
  // association.
  std::string read_answer(int32_t timeout, const SentRequest& request, Message& answer);
  const std::vector<AcceptedContext>& accepted() const { return accepted_; }
  // Requests that may be under way at once; 0: no limit.
  uint16_t window() const { return window_; }

 private:
  int32_t id_ = -1;
  uint16_t window_ = 1;
  std::string problem_;
  std::vector<AcceptedContext> accepted_;
};

// A message of the library, freed at the end.
class Message {
 public:
  Message() = default;
  ~Message() { reset(); }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;
  // An empty one of a service and command.
  VX_STATUS make(const char* of_service, uint16_t of_command);
  void reset() {
    if (id >= 0) VX_Free_Message(&id);
    id = -1;
  }
  std::string text(uint32_t tag) const;
  uint32_t number(uint32_t tag, uint32_t otherwise) const;
  bool has_data_set() const { return vexal::has_data_set(id); }
  // (0000,0900).
  uint16_t status() const { return static_cast<uint16_t>(number(tags::kStatus, 0xFFFF)); }

  int32_t id = -1;
  // Of one that was read:
  std::string service;
  uint16_t command = 0;
};

// Opens an association with these contexts and sends a request on it; kSuccess, or an exit code after a line
// on standard error. The list has to outlive the association.
int open_with_request(Association& association, const Peer& peer, const std::vector<Proposal>& proposals,
                      ServiceListName& list, const Message& request);
// "vexal: HOST:PORT: text" on standard error; kNetwork.
int network_problem(const Peer& peer, const std::string& text);

// Kinds of DIMSE statuses (PS3.7 annex C).
bool is_pending(uint16_t status);
bool is_warning(uint16_t status);
// "0xA700 (out of resources)".
std::string describe_dimse(uint16_t status);
// The status with the peer's own comment (0000,0902), if it sent one.
std::string describe_answer(const Message& answer);

}  // namespace vexal
