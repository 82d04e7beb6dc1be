#include "audit.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "base/base64.h"
#include "base/log_lines.h"
#include "base/printable.h"
#include "base/thrown.h"
#include "syslog.h"

namespace vexal {
namespace {

constexpr std::size_t kMostWaiting = 10000;
constexpr std::size_t kMostBytes = 32U << 20;  // of these
constexpr std::size_t kMostStudies = 1000;     // in one message
constexpr auto kLastWait = std::chrono::seconds(3);

// Text that XML can hold: what is no UTF-8 or no character of XML becomes U+FFFD.
void append_escaped(std::string& xml, std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    const auto c = static_cast<unsigned char>(text[0]);
    if (length == 0 || (c < 0x20 && c != '\t')) {
      xml += "\xEF\xBF\xBD";
    } else if (c == '&' || c == '<' || c == '>' || c == '"') {
      xml += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : "&quot;";
    } else {
      xml += text.substr(0, length);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
}

void append_attribute(std::string& xml, const char* name, std::string_view value) {
  ((xml += ' ') += name) += "=\"";
  append_escaped(xml, value);
  xml += '"';
}

void append_code(std::string& xml, const char* element, const char* code, const char* scheme,
                 const char* meaning) {
  (xml += '<') += element;
  append_attribute(xml, "csd-code", code);
  append_attribute(xml, "codeSystemName", scheme);
  append_attribute(xml, "originalText", meaning);
  xml += "/>";
}

void append_code(std::string& xml, const char* element, const AuditCode& code) {
  append_code(xml, element, code.code, "DCM", code.meaning);
}

void append_party(std::string& xml, const AuditParty& party) {
  xml += "<ActiveParticipant";
  append_attribute(xml, "UserID", party.user);
  append_attribute(xml, "UserIsRequestor", party.requestor ? "true" : "false");
  if (!party.address.empty()) {
    append_attribute(xml, "NetworkAccessPointID", party.address);
    append_attribute(xml, "NetworkAccessPointTypeCode", "2");  // an IP address
  }
  xml += '>';
  append_code(xml, "RoleIDCode", party.role);
  xml += "</ActiveParticipant>";
}

// What was taken part in: its kind and the part that it plays are numbers of the schema.
void append_object(std::string& xml, const std::string& id, const char* type, const char* role,
                   const AuditCode& id_type, const char* scheme, const std::string& inside) {
  xml += "<ParticipantObjectIdentification";
  append_attribute(xml, "ParticipantObjectID", id);
  append_attribute(xml, "ParticipantObjectTypeCode", type);
  append_attribute(xml, "ParticipantObjectTypeCodeRole", role);
  xml += '>';
  append_code(xml, "ParticipantObjectIDTypeCode", id_type.code, scheme, id_type.meaning);
  xml += inside + "</ParticipantObjectIdentification>";
}

void append_studies(std::string& xml, const std::map<std::string, AuditStudy>& studies) {
  for (const auto& [uid, study] : studies) {
    std::string inside;
    for (const auto& [sop_class, count] : study.classes) {
      inside += "<SOPClass";
      append_attribute(inside, "UID", sop_class);
      append_attribute(inside, "NumberOfInstances", std::to_string(count));
      inside += "/>";
    }
    if (!inside.empty())
      inside = "<ParticipantObjectDescription>" + inside + "</ParticipantObjectDescription>";
    append_object(xml, uid, "2", "3", {"110180", "Study Instance UID"}, "DCM", inside);
  }
  std::map<std::string, bool> patients;
  for (const auto& [uid, study] : studies) {
    if (!study.patient.empty() && patients.try_emplace(study.patient).second)
      append_object(xml, study.patient, "1", "1", {"2", "Patient Number"}, "RFC-3881", "");
  }
}

}  // namespace

std::string audit_message(const AuditEvent& event, const std::string& source, const std::string& time) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><AuditMessage><EventIdentification";
  append_attribute(xml, "EventActionCode", std::string_view(&event.action, 1));
  append_attribute(xml, "EventDateTime", time);
  append_attribute(xml, "EventOutcomeIndicator", event.good ? "0" : "4");
  xml += '>';
  append_code(xml, "EventID", event.id);
  if (event.type != nullptr) append_code(xml, "EventTypeCode", *event.type);
  if (!event.outcome.empty()) {
    xml += "<EventOutcomeDescription>";
    append_escaped(xml, event.outcome);
    xml += "</EventOutcomeDescription>";
  }
  xml += "</EventIdentification>";
  for (const AuditParty& party : event.parties) append_party(xml, party);
  xml += "<AuditSourceIdentification";
  append_attribute(xml, "AuditSourceID", source);
  xml += "/>";
  append_studies(xml, event.studies);
  if (!event.query_class.empty()) {
    std::string inside = "<ParticipantObjectQuery>" + base64_of(event.query) + "</ParticipantObjectQuery>";
    if (!event.query_syntax.empty()) {
      inside += "<ParticipantObjectDetail type=\"TransferSyntax\"";
      append_attribute(inside, "value", base64_of(event.query_syntax));
      inside += "/>";
    }
    append_object(xml, event.query_class, "2", "3", {"110181", "SOP Class UID"}, "DCM", inside);
  }
  return xml + "</AuditMessage>";
}

// One thread hands messages on, in their order; what fails is tried again after a while.
class AuditTrail::Sender {
 public:
  explicit Sender(std::unique_ptr<SyslogTarget> target)
      : target_(std::move(target)), thread_(&Sender::run, this) {}
  ~Sender() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
      end_ = Clock::now() + kLastWait;
    }
    changed_.notify_all();
    thread_.join();
    if (const std::size_t lost = waiting_.size() + lost_; lost != 0)
      complain("--audit: %zu messages have not been told", lost);
  }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  void add(std::string message) {
    {
      const std::lock_guard lock(mutex_);
      // One that can never go would hold up all behind it.
      const char* fault = message.size() > target_->most()
                              ? "a message is longer than the way to the repository takes"
                          : waiting_.size() >= kMostWaiting || bytes_ + message.size() > kMostBytes
                              ? "too many messages wait for the repository"
                              : nullptr;
      if (fault != nullptr) {
        if (lost_++ == 0) complain("--audit: %s: it is lost, as are others to come", fault);
        return;
      }
      bytes_ += message.size();
      waiting_.push_back(std::move(message));
    }
    changed_.notify_all();
  }

 private:
  using Clock = std::chrono::steady_clock;

  void run() {
    std::unique_lock lock(mutex_);
    auto pause = std::chrono::milliseconds(0);
    for (;;) {
      changed_.wait_for(lock, pause, [&] { return ending_; });
      changed_.wait(lock, [&] { return ending_ || !waiting_.empty(); });
      if (waiting_.empty() || (ending_ && Clock::now() > end_)) return;
      const std::string message = waiting_.front();
      lock.unlock();
      const std::string error = try_to_send(message);
      lock.lock();
      if (error.empty()) {
        if (failed_) complain("--audit: the repository takes messages again");
        failed_ = false;
        bytes_ -= message.size();
        waiting_.pop_front();
        pause = {};
        continue;
      }
      if (!failed_) complain("--audit: %s; it is tried again", error.c_str());
      failed_ = true;
      pause = std::clamp(pause * 2, std::chrono::milliseconds(250), std::chrono::milliseconds(30000));
      if (ending_) return;
    }
  }

  std::string try_to_send(const std::string& message) try {
    return target_->send(message);
  } catch (const std::exception&) {
    return words_of(std::current_exception());
  }

  std::unique_ptr<SyslogTarget> target_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::string> waiting_;
  std::size_t bytes_ = 0;  // of what waits
  std::size_t lost_ = 0;
  bool failed_ = false;
  bool ending_ = false;
  Clock::time_point end_;
  std::thread thread_;
};

AuditTrail::AuditTrail() = default;
AuditTrail::~AuditTrail() = default;

bool AuditTrail::read(const Args& args, const std::string& source) {
  source_ = source;
  if (!args.has("--audit")) return true;
  std::string error;
  auto target = open_syslog(
      {args.get("--audit"), args.get("--audit-ca"), args.get("--audit-cert"), args.get("--audit-key")},
      error);
  if (target == nullptr) {
    complain("--audit %s: %s", args.get("--audit").c_str(), error.c_str());
    return false;
  }
  sender_ = std::make_unique<Sender>(std::move(target));
  return true;
}

void AuditTrail::tell(const AuditEvent& event) {
  if (sender_ == nullptr) return;
  const std::string time = utc_now();
  sender_->add(syslog_line(audit_message(event, source_, time), time));
}

void TransferAudit::add(const std::string& study, const std::string& patient, const std::string& sop_class) {
  if (trail_ == nullptr) return;
  AuditStudy& one = studies_[study];
  one.patient = patient;
  ++one.classes[sop_class];
  if (studies_.size() < kMostStudies) return;
  trail_->tell(
      {audit_events::kTransferred, nullptr, 'C', true, "", {from_, to_}, std::move(studies_), "", "", ""});
  studies_.clear();
}

TransferAudit::~TransferAudit() try {
  if (trail_ != nullptr && !studies_.empty())
    trail_->tell(
        {audit_events::kTransferred, nullptr, 'C', true, "", {from_, to_}, std::move(studies_), "", "", ""});
} catch (const std::exception&) {
  complain("--audit: %s", words_of(std::current_exception()).c_str());
}

}  // namespace vexal
