#include "validate/findings.h"

#include <algorithm>
#include <string_view>

#include "frame/log.h"
#include "frame/pool.h"
#include "model/convert.h"
#include "model/vr.h"

namespace vx {
namespace {

constexpr std::size_t kShown = 30;  // bytes of a value in the log

std::string_view value_shown(const Finding& finding, char (&scratch)[80]) {
  std::string_view text;
  if (finding.value == nullptr || finding.attribute == nullptr) return text;
  if (is_bulk_vr(finding.attribute->VR) || finding.attribute->Storage == Stored::ByCallback) return text;
  if (view_text(*finding.attribute, *finding.value, scratch, text) != kOk) return {};
  return text.substr(0, kShown);
}

void log_finding(const Finding& finding) {
  constexpr const char* kSeverities[] = {"VE", "VW", "VI"};
  char scratch[80];
  char shown[kShown + 1] = "";
  const std::string_view text = value_shown(finding, scratch);
  std::copy(text.begin(), text.end(), shown);
  shown[text.size()] = '\0';
  const bool any = !text.empty();
  log_line(VX_LOG_T5, nullptr, "(%4.4X,%4.4X) %s: %s%s%s%s", tag_group(finding.tag), tag_element(finding.tag),
           kSeverities[finding.severity - kError], any ? "[" : "", shown, any ? "] " : "",
           status_text(finding.status));
}

}  // namespace

VX_STATUS record_finding(const Findings& findings, const Finding& finding) {
  if (findings.level < finding.severity) return kOk;
  auto* record = new_object<ValErrObj>(Pool::ValErrObj);
  if (record == nullptr) return VX_SYSTEM_ERROR;
  *record = {finding.tag, finding.object.ID, finding.value != nullptr ? finding.value->number : 0,
             finding.status};
  if (list_add_tail(findings.holder.ValidationErrors, record) == nullptr) {
    pool_free(Pool::ValErrObj, record);
    return VX_SYSTEM_ERROR;
  }
  if (log_enabled(VX_LOG_T5)) log_finding(finding);
  return kOk;
}

void clear_findings(MsgObj& object) {
  while (object.ValidationErrors.Head != nullptr) {
    pool_free(Pool::ValErrObj, list_remove_head(object.ValidationErrors));
  }
  object.ValidationCursor = nullptr;
}

}  // namespace vx
