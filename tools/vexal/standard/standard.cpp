#include "standard.h"

#include <algorithm>
#include <utility>

#include "base/attributes.h"
#include "base/tags.h"
#include "base/values.h"
#include "profile.h"
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

Misfits count_misfits(int32_t id, const std::string& service, uint16_t command) {
  Misfits count;
  for_each_attribute(id, [&](uint32_t tag, VX_VR, int32_t) {
    if (tag >= tags::kFirstOfDataSet && find_rule(service.c_str(), command, tag) == nullptr) ++count.first;
  });
  for (const RuleObj& rule : rules_of(service.c_str(), command)) {
    if (rule.Type != VX_RULE_TYPE_1 && rule.Type != VX_RULE_TYPE_2) continue;
    if (VX_Get_Attribute_Info(id, rule.Tag, nullptr, nullptr) != VX_NORMAL_COMPLETION) ++count.second;
  }
  return count;
}

// An object does not tell the command that it came with: of the requests the one that it fits best, and of
// equals the one of the highest number, which puts creations and actions before reports.
uint16_t fitting_command(int32_t id, const std::string& service, const std::vector<uint16_t>& commands) {
  uint16_t best = usual_command(commands);
  if (best == 0 || best == C_STORE_RQ) return C_STORE_RQ;
  Misfits fewest = count_misfits(id, service, best);
  for (const uint16_t command : commands) {
    if (command >= kResponse) continue;
    const Misfits count = count_misfits(id, service, command);
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
  std::vector<uint16_t> commands;
  if (const VX_STATUS status = rule_commands(standard.service.c_str(), commands);
      status != VX_NORMAL_COMPLETION)
    return standard.service + ": " + VX_Error_Message(status);
  standard.command = named.command != 0 ? named.command : fitting_command(id, standard.service, commands);
  if (std::find(commands.begin(), commands.end(), standard.command) == commands.end())
    return "not validated: no rules for " + standard.title();
  const VX_STATUS status = VX_Set_Service_Command(id, standard.service.c_str(), standard.command);
  return status == VX_NORMAL_COMPLETION ? "" : standard.title() + ": " + VX_Error_Message(status);
}

}  // namespace vexal
