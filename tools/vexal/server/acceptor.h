// The accepting side of the program: one thread takes connections, others serve associations.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "audit.h"
#include "base/args.h"
#include "network/network.h"
#include "network/tls.h"
#include "rights.h"
#include "vexalkit.h"

namespace vexal {

class Lobby;

// Rows of an option table.
#define VEXAL_ACCEPTOR_OPTIONS                                                                           \
  {"--aet", "TITLE", "own application entity title (default VEXAL)"},                                    \
      {"--address", "ADDRESS", "listen on this address only"},                                           \
      {"--strict", nullptr, "turn away peers that call another title than --aet"},                       \
      {"--allow", "[TITLE][@ADDRESS[/BITS]][=RIGHT,...]",                                                \
       "take associations from these only: a calling title, an address or network, or both; the rights " \
       "are store, query and retrieve (default: all); may be repeated"},                                 \
      {"--max-associations", "N", "associations served at once; more wait (default 64)"},                \
      {"--max-per-address", "N", "of these, from one address (default: half of them)"},                  \
      {"--idle", "S", "seconds without a message after which an association is ended (default 300)"},    \
      {"--timeout", "S",                                                                                 \
       "seconds to wait for a request, and for each message, with as many again for each 256 KiB of it " \
       "(default 30)"},                                                                                  \
      VEXAL_AUDIT_OPTIONS, VEXAL_TLS_OPTIONS

// Who is at the other end, as the negotiation told.
struct Caller {
  std::string calling_title;
  std::string called_title;
  std::string address;
  std::vector<AcceptedContext> contexts;
  unsigned rights = kAllRights;
};

// An association that is served, and when the message that it is in the middle of has to be there: of one
// that is not there yet, the request behind a TLS handshake.
struct WatchedAssociation {
  int32_t id = -1;
  int socket = -1;                   // until there is an ID; a descriptor of its own
  std::atomic<int64_t> deadline{0};  // of the steady clock, in its ticks; 0: no message is under way
};

// While it lives, a message is being read on the association that this thread serves: --timeout seconds
// after the last 256 KiB of it, the association is aborted from outside. Does nothing on other threads.
class MessageWatch {
 public:
  // `patience`: seconds for its first byte to come.
  explicit MessageWatch(int32_t patience = 0);
  ~MessageWatch();
  MessageWatch(const MessageWatch&) = delete;
  MessageWatch& operator=(const MessageWatch&) = delete;
  // Bytes of it have come.
  static void progress(std::size_t bytes);
};

class Acceptor {
 public:
  // Serves one association that stands, from its first message to its end, by way of serve_messages() or of
  // its own. Runs on many threads at once.
  using Handler = std::function<void(int32_t association, const Caller& caller)>;

  // Reads the options and sets the library up; PORT is the first path. False after a line on standard error.
  bool read(const Args& args);
  // Serves until a signal (INT, TERM) asks for an end; associations under way get to the end of their
  // message. The exit code.
  int run(const std::string& service_list, const Handler& handler);
  // What is told of to an audit repository; that of the program's start and end is told here.
  AuditTrail& audit() const { return audit_; }
  // This side of a transfer, and the other.
  AuditParty self(AuditCode role) const { return {title_, "", role, false}; }
  static AuditParty party(const Caller& caller, AuditCode role, bool requestor = true) {
    return {caller.calling_title, caller.address, role, requestor};
  }
  // A line on standard error where everyone who reaches the port may do what `what` says.
  void warn_if_open(const char* what) const;

  int32_t port() const { return port_; }
  int32_t timeout() const { return timeout_; }
  const std::string& title() const { return title_; }
  int32_t application() const { return application_; }
  // An end was asked for.
  bool stopping() const { return stopping_.load(std::memory_order_relaxed); }

  // Hands each message of an association to `take` until the peer releases it, falls silent or the program
  // stops. The message arrives as its command group alone, with the data set still on the network; `take`
  // reads that, answers, and frees the message. False from `take` ends the association. Verification is
  // answered here.
  using Taker =
      std::function<bool(int32_t association, int32_t message, const char* service, uint16_t command)>;
  void serve_messages(int32_t association, const Taker& take) const;

 private:
  void serve_socket(int32_t socket, std::chrono::steady_clock::duration left, const std::string& service_list,
                    const Handler& handler);
  void serve_association(int32_t association, const Handler& handler) const;
  VX_STATUS take_connection(int32_t& socket) const;
  void let_in(Lobby& lobby) const;
  VX_STATUS take_request(int32_t socket, std::chrono::steady_clock::duration left, const char* service_list,
                         int32_t& association) const;
  void tell_activity(const AuditCode& type) const;
  // Why an association is turned away, as VX_Reject_Association counts; 0 if it is welcome.
  int32_t refusal(int32_t association, Caller& caller) const;

  int32_t port_ = 0;
  int32_t timeout_ = 30;
  int32_t idle_ = 300;
  std::size_t most_ = 64;
  std::size_t most_of_one_ = 32;
  std::string title_;
  std::string address_;
  AccessRules rules_;
  bool strict_ = false;
  bool quiet_ = false;
  Tls tls_;
  mutable AuditTrail audit_;
  int32_t application_ = -1;
  std::atomic<bool> stopping_{false};
};

// What every acceptor answers: verification.
Proposal verification_service();

// Answers a request with a response of its kind.
bool send_response(int32_t association, const char* service, uint16_t command, uint32_t request_id,
                   uint16_t status);

}  // namespace vexal
