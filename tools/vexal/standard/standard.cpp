#include "standard.h"

#include <algorithm>
#include <utility>

#include "base/attributes.h"
#include "base/tags.h"
#include "base/values.h"
#include "rules.h"

namespace vexal {
namespace {

// An identifier names no SOP class; its level, or what it asks about, tells the service.
std::string service_of_identifier(int32_t id) {
  const std::string level = text_of(id, tags::kQueryRetrieveLevel);
  if (!level.empty()) return level == "PATIENT" ? "PATIENT_ROOT_QR_FIND" : "STUDY_ROOT_QR_FIND";
  const bool steps = VX_Get_Attribute_Info(id, tags::kScheduledProcedureStepSequence, nullptr, nullptr) ==
                     VX_NORMAL_COMPLETION;
  return steps ? "MODALITY_WORKLIST_FIND" : "";
}

// How many attributes the rules do not know; behind it, how many of those that they always demand are
// missing.
using Misfits = std::pair<std::size_t, std::size_t>;

Misfits count_misfits(int32_t id, const Rules& rules) {
  Misfits count;
  for_each_attribute(id, [&](uint32_t tag, VX_VR, int32_t) {
    if (tag >= tags::kFirstOfDataSet && find_rule(rules, tag) == nullptr) ++count.first;
  });
  for (const Rule& rule : rules) {
    if (rule.type != vxdata::kType1 && rule.type != vxdata::kType2) continue;
    if (VX_Get_Attribute_Info(id, rule.tag, nullptr, nullptr) != VX_NORMAL_COMPLETION) ++count.second;
  }
  return count;
}

// An object does not tell the command that it came with: of the requests the one that it fits best, and of
// equals the one of the highest number, which puts creations and actions before reports.
uint16_t fitting_command(int32_t id, const std::string& service) {
  const RuleBook& book = RuleBook::get();
  uint16_t best = book.usual_command(service);
  if (best == 0 || best == C_STORE_RQ) return C_STORE_RQ;
  Misfits fewest = count_misfits(id, *book.message(service, best));
  for (const uint16_t command : book.commands(service)) {
    if (command >= kResponse) continue;
    const Misfits count = count_misfits(id, *book.message(service, command));
    if (count < fewest || (count == fewest && command > best)) best = command;
    fewest = std::min(fewest, count);
  }
  return best;
}

}  // namespace

std::string Standard::title() const {
  return command == C_STORE_RQ ? service : service + " " + std::string(vxdata::command_name(command));
}

std::string choose_standard(int32_t id, const Standard& named, Standard& standard) {
  standard.service = named.service;
  std::string uid = text_of(id, tags::kSOPClassUID);
  const bool identifier = uid.empty();
  if (identifier) uid = text_of(id, tags::kMediaStorageSOPClassUID);
  if (standard.service.empty()) standard.service = service_of_class(uid);
  if (standard.service.empty() && identifier) standard.service = service_of_identifier(id);
  if (standard.service.empty() && uid.empty()) return "not validated: no SOP class UID; --service names one";
  if (standard.service.empty())
    return "not validated: no service for SOP class " + uid + "; --service names one";
  const RuleBook& book = RuleBook::get();
  standard.command = named.command != 0 ? named.command : fitting_command(id, standard.service);
  if (book.problem().empty() && !book.has(standard.service, standard.command)) {
    return "not validated: no rules for " + standard.title();
  }
  const VX_STATUS status = VX_Set_Service_Command(id, standard.service.c_str(), standard.command);
  return status == VX_NORMAL_COMPLETION ? "" : standard.title() + ": " + VX_Error_Message(status);
}

}  // namespace vexal
