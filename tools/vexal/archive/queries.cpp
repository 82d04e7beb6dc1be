// Queries of the archive and of worklists (PS3.4 annexes C and K).
#include "archive.h"

#include <algorithm>

#include "base/session.h"
#include "base/tags.h"
#include "data_sets.h"
#include "identifier.h"
#include "server/metrics.h"

namespace vexal {
namespace {

bool send_pending(const Request& request, Message& answer, Patience& patience) {
  count(Metric::Answers);
  if (!request.send(answer, kPendingStatus)) {
    patience.lose();
    return false;
  }
  return !patience.look();
}

}  // namespace

bool end_query(const Request& request, const Patience& patience) {
  return !patience.gone() && request.finish(patience.ended() ? kCancelled : kSuccessStatus);
}

bool is_patient_root(const std::string& sop_class) {
  return std::any_of(std::begin(kQueryServices), std::end(kQueryServices),
                     [&](const QueryService& row) { return row.patient_root && sop_class == row.sop_class; });
}

void Archive::audit_query(int32_t identifier, const std::string& sop_class, const Caller& caller) const {
  if (!acceptor_.audit().on()) return;
  AuditEvent event{audit_events::kQuery,
                   nullptr,
                   'E',
                   true,
                   "",
                   {Acceptor::party(caller, audit_roles::kSource), acceptor_.self(audit_roles::kDestination)},
                   {},
                   sop_class,
                   "",
                   uid_of_syntax(EXPLICIT_LITTLE_ENDIAN)};
  encode_data_set(identifier, event.query);
  acceptor_.audit().tell(event);
}

bool Archive::find(const Request& request, int32_t identifier, const Caller& caller) {
  const std::string sop_class = text_of(identifier, tags::kAffectedSOPClassUID);
  audit_query(identifier, sop_class, caller);
  count(Metric::Queries);
  if (sop_class == kWorklistFind) return find_worklist(request, identifier);
  Level level = Level::Study;
  std::vector<CatalogKey> keys;
  if (!read_identifier(identifier, is_patient_root(sop_class), level, keys))
    return request.finish(kNotMatching);
  const std::string word = text_of(identifier, tags::kQueryRetrieveLevel);
  Patience patience(acceptor_, request.association);
  const std::string error = holdings_.find(
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

bool Archive::find_worklist(const Request& request, int32_t identifier) {
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

}  // namespace vexal
