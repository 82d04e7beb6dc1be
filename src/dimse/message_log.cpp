// Traces of messages.
#include <algorithm>
#include <cstring>

#include "dimse/dimse.h"
#include "dimse/seams.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "model/attributes.h"
#include "model/convert.h"
#include "model/dictionary.h"
#include "model/values.h"

namespace vx {
namespace {

void log_head(uint32_t level, const MsgObj& message, bool received, uint8_t context_id) {
  const char* verb = received ? "received" : "sent";
  const char* command = command_name(message.Command);
  const bool known = message.ServiceName != nullptr && std::strcmp(message.ServiceName, kNoName) != 0;
  if (known) {
    log_line(level, nullptr, "Message (%s,%s) %s on context %d", message.ServiceName,
             command != nullptr ? command : "", verb, context_id);
  } else {
    log_line(level, nullptr, "Message %s on context %d", verb, context_id);
  }
}

void log_values(const TagObj& attribute) {
  ValueCursor cursor;
  cursor_first(attribute, cursor);
  for (int32_t number = 1; number <= attribute.ValueCount; ++number) {
    char scratch[80];
    std::string_view text;
    const VX_STATUS status = view_text(attribute, cursor, scratch, text);
    if (status == VX_NULL_VALUE) return;
    if (status != kOk) {
      VX_LOG_ERR("VXlog_Command_Group_Elements", "Unable to get attribute (%.04x,%.04x): %s",
                 tag_group(attribute.Tag), tag_element(attribute.Tag), status_text(status));
      return;
    }
    constexpr std::size_t kMost = 127;
    log_line(VX_LOG_T7, nullptr, "    (%d): %.*s", number, static_cast<int>(std::min(text.size(), kMost)),
             text.data());
    if (number < attribute.ValueCount && cursor_next(attribute, cursor) != kOk) return;
  }
}

}  // namespace

void log_command_group(MsgObj& message, bool received, uint8_t context_id) {
  if (!log_enabled(VX_LOG_T7)) return;
  log_head(VX_LOG_T7, message, received, context_id);
  log_line(VX_LOG_T7, nullptr, "Group 0x0000 Elements:");
  for (const TagObj* a = message.FirstTag; a != nullptr && tag_group(a->Tag) == 0; a = a->Next) {
    if (tag_element(a->Tag) == 0) continue;
    char name[kMaxName + 1];
    const bool known = dictionary_name(a->Tag, {}, name, sizeof name) == kOk;
    log_line(VX_LOG_T7, nullptr, "  (%04x,%04x) %s", tag_group(a->Tag), tag_element(a->Tag),
             known ? name : "Non-standard attribute");
    log_values(*a);
  }
}

void log_message(MsgObj& message, bool received, uint8_t context_id) {
  if (!log_enabled(VX_LOG_T2)) return;
  log_head(VX_LOG_T2, message, received, context_id);
  if (list_object != nullptr) list_object(message.ID, nullptr);
}

StepClass procedure_step_class(std::string_view uid) {
  constexpr std::string_view kFamily = "1.2.840.10008.5.1.4.34.6.";
  if (uid.size() != kFamily.size() + 1 || !uid.starts_with(kFamily)) return StepClass::None;
  const int number = uid.back() - '0';
  return number >= 1 && number <= 4 ? static_cast<StepClass>(number) : StepClass::None;
}

}  // namespace vx
