#include "web_audit.h"

#include "base/session.h"
#include "base/tags.h"

namespace vexal {
namespace {

// What a search asks for, as the client put it.
std::string words_of(const HttpRequest& request) {
  std::string words;
  for (const std::string& segment : request.path) words += "/" + segment;
  char mark = '?';
  for (const auto& [key, value] : request.query) {
    ((words += mark) += key) += '=' + value;
    mark = '&';
  }
  return words;
}

std::string patient_of(Holdings& holdings, const std::string& study) {
  std::string patient;
  const std::string error = holdings.find(
      Level::Study, {{tags::kStudyInstanceUID, VX_VR_UI, study}, {tags::kPatientID, VX_VR_LO, ""}}, nullptr,
      [&](const std::vector<std::string>& values, const std::string&) {
        patient = values[1];
        return false;
      });
  if (!error.empty()) report("audit", error);
  return patient;
}

bool is_search(WebResource resource) {
  return resource == WebResource::Studies || resource == WebResource::Series ||
         resource == WebResource::Instances;
}

}  // namespace

void audit_reading(const WebContext& context, AuditTrail& trail, const std::string& title) {
  constexpr char kStudyRootFind[] = "1.2.840.10008.5.1.4.1.2.2.1";  // the model that searches are made on
  const HttpRequest& request = context.request;
  const bool search = is_search(context.target.resource);
  if (!trail.on() || (!search && context.target.study.empty())) return;
  // Clients without credentials are known by their address alone.
  const AuditParty client = {request.user.empty() ? request.address : request.user, request.address,
                             search ? audit_roles::kSource : audit_roles::kDestination, true};
  AuditEvent event{};
  event.id = search ? audit_events::kQuery : audit_events::kTransferred;
  event.action = search ? 'E' : 'R';
  event.parties = {client, {title, "", search ? audit_roles::kDestination : audit_roles::kSource, false}};
  if (search) {
    event.query_class = kStudyRootFind;
    event.query = words_of(request);
  } else {
    event.studies[context.target.study].patient = patient_of(context.holdings, context.target.study);
  }
  trail.tell(event);
}

}  // namespace vexal
