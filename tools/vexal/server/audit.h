// Audit messages (PS3.15 section A.5): who did what with whose objects, told to a repository by syslog.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/args.h"

namespace vexal {

// Rows of an option table.
#define VEXAL_AUDIT_OPTIONS                                                                        \
  {"--audit", "URL",                                                                               \
   "tell an audit repository who did what: tls://HOST[:PORT] (RFC 5425), tcp://HOST[:PORT], "      \
   "udp://HOST[:PORT] (RFC 5426), or file:PATH, a line each"},                                     \
      {"--audit-ca", "PEM", "trust these authorities for the repository instead of the system's"}, \
      {"--audit-cert", "PEM", "own certificate for it"}, {                                         \
    "--audit-key", "PEM", "key of that certificate"                                                \
  }

// A row of the context groups 400 to 402 of PS3.16.
struct AuditCode {
  const char* code;
  const char* meaning;
};
namespace audit_events {
inline constexpr AuditCode kActivity = {"110100", "Application Activity"};
inline constexpr AuditCode kBeginTransferring = {"110102", "Begin Transferring DICOM Instances"};
inline constexpr AuditCode kTransferred = {"110104", "DICOM Instances Transferred"};
inline constexpr AuditCode kStudyDeleted = {"110105", "DICOM Study Deleted"};
inline constexpr AuditCode kQuery = {"110112", "Query"};
inline constexpr AuditCode kSecurityAlert = {"110113", "Security Alert"};
}  // namespace audit_events
namespace audit_types {
inline constexpr AuditCode kStart = {"110120", "Application Start"};
inline constexpr AuditCode kStop = {"110121", "Application Stop"};
inline constexpr AuditCode kLogin = {"110122", "Login"};
inline constexpr AuditCode kNodeAuthentication = {"110126", "Node Authentication"};
}  // namespace audit_types
namespace audit_roles {
inline constexpr AuditCode kApplication = {"110150", "Application"};
inline constexpr AuditCode kDestination = {"110152", "Destination Role ID"};
inline constexpr AuditCode kSource = {"110153", "Source Role ID"};
}  // namespace audit_roles

struct AuditParty {
  std::string user;     // a title, or the name of a user
  std::string address;  // empty: not known
  AuditCode role;
  bool requestor = false;
};

struct AuditStudy {
  std::string patient;                         // its Patient ID
  std::map<std::string, std::size_t> classes;  // SOP Class UIDs with numbers of objects
};

struct AuditEvent {
  AuditCode id;
  const AuditCode* type = nullptr;
  char action = 'E';  // C, R, U, D or E (execute)
  bool good = true;
  std::string outcome;  // words for what was not good
  std::vector<AuditParty> parties;
  std::map<std::string, AuditStudy> studies;  // by UID
  std::string query_class;                    // SOP Class UID of a query
  std::string query;                          // its keys, as they are; of a web client, path and query
  std::string query_syntax;                   // transfer syntax UID of keys
};

// The AuditMessage of an event in XML (PS3.15 section A.5.1), `source` naming who tells of it.
std::string audit_message(const AuditEvent& event, const std::string& source, const std::string& time);

// Any number of threads may call all but read() at once.
class AuditTrail {
 public:
  AuditTrail();
  ~AuditTrail();  // waits a moment for what is still to go out
  AuditTrail(const AuditTrail&) = delete;
  AuditTrail& operator=(const AuditTrail&) = delete;

  // False after a line on standard error. `source`: the title that tells.
  bool read(const Args& args, const std::string& source);
  bool on() const { return sender_ != nullptr; }
  // Tells of an event; does not wait for the repository. What it does not take waits in memory, up to 10,000
  // messages and 32 MiB; what is lost beyond is counted in a line on standard error.
  void tell(const AuditEvent& event);

 private:
  class Sender;
  std::string source_;
  std::unique_ptr<Sender> sender_;
};

// The objects of one association, told of by study at its end.
class TransferAudit {
 public:
  TransferAudit(AuditTrail* trail, AuditParty from, AuditParty to)
      : trail_(trail != nullptr && trail->on() ? trail : nullptr),
        from_(std::move(from)),
        to_(std::move(to)) {}
  ~TransferAudit();
  TransferAudit(const TransferAudit&) = delete;
  TransferAudit& operator=(const TransferAudit&) = delete;

  bool on() const { return trail_ != nullptr; }
  void add(const std::string& study, const std::string& patient, const std::string& sop_class);

 private:
  AuditTrail* trail_;
  AuditParty from_;
  AuditParty to_;
  std::map<std::string, AuditStudy> studies_;
};

}  // namespace vexal
