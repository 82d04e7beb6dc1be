#include "steps.h"

#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "base/attributes.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/uid.h"
#include "base/values.h"
#include "data_sets.h"
#include "files/files.h"

namespace vexal {
namespace {

constexpr char kStepClass[] = "1.2.840.10008.3.1.2.3.3";
constexpr mode_t kMode = 0640;

std::vector<uint32_t> tags_of(int32_t object) {
  std::vector<uint32_t> tags;
  for_each_attribute(object, [&](uint32_t tag, VX_VR, int32_t) {
    if (tag > tags::kLastOfCommand) tags.push_back(tag);
  });
  return tags;
}

bool is_final(const std::string& state) {
  return state == "COMPLETED" || state == "DISCONTINUED";
}

// Writes a step, whose data set the message is; it becomes a file. False after a line on standard error.
bool write_step(const std::string& path, const std::string& instance, Message& step) {
  set_all_text(step.id, tags::kSOPClassUID, kStepClass);
  set_all_text(step.id, tags::kSOPInstanceUID, instance);
  const std::string error = write_part10(step, path, {kStepClass, instance, kMode, false});
  if (!error.empty()) report(path, error);
  return error.empty();
}

// A message with the data set of another object.
bool copy_of(int32_t object, Message& copy) {
  std::string bytes;
  return encode_data_set(object, bytes) && VX_Open_Empty_Message(&copy.id) == VX_NORMAL_COMPLETION &&
         decode_data_set(copy.id, bytes);
}

}  // namespace

uint16_t ProcedureSteps::create(int32_t message, std::string& instance) {
  instance = text_of(message, tags::kAffectedSOPInstanceUID);
  if (instance.empty()) instance = new_uid();
  if (!is_safe_name(instance)) return kInvalidValue;
  const std::string state = text_of(message, tags::kPerformedProcedureStepStatus);
  if (state.empty()) return kMissingAttribute;
  if (state != "IN PROGRESS") return kInvalidValue;
  const std::lock_guard lock(mutex_);
  struct stat status {};
  if (::lstat(path_of(instance).c_str(), &status) == 0) return kDuplicateInstance;
  Message step;
  return copy_of(message, step) && write_step(path_of(instance), instance, step) ? kSuccessStatus
                                                                                 : kProcessingFailure;
}

uint16_t ProcedureSteps::set(int32_t message, std::string& instance) {
  instance = text_of(message, tags::kRequestedSOPInstanceUID);
  if (!is_safe_name(instance)) return kNoSuchInstance;
  const std::string wanted = text_of(message, tags::kPerformedProcedureStepStatus);
  if (!wanted.empty() && wanted != "IN PROGRESS" && !is_final(wanted)) return kInvalidValue;
  const std::lock_guard lock(mutex_);
  struct stat status {};
  if (::lstat(path_of(instance).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return kNoSuchInstance;
  DicomFile there;
  if (there.open(path_of(instance), {false}) != VX_NORMAL_COMPLETION) {
    report(path_of(instance), there.problem());
    return kProcessingFailure;
  }
  // One that has ended does not change any more (PS3.4 section F.7.2.2).
  if (is_final(text_of(there.id(), tags::kPerformedProcedureStepStatus))) return kProcessingFailure;
  Message step;
  std::string changes;
  if (there.become_message(service_of_class(kStepClass).c_str(), N_SET_RQ) != VX_NORMAL_COMPLETION ||
      !copy_of(there.id(), step) || !encode_data_set(message, changes))
    return kProcessingFailure;
  for (const uint32_t tag : tags_of(message)) VX_Delete_Attribute(step.id, tag);
  if (!decode_data_set(step.id, changes) || !write_step(path_of(instance), instance, step))
    return kProcessingFailure;
  return kSuccessStatus;
}

void ProcedureSteps::take_back(const std::string& instance) {
  const std::lock_guard lock(mutex_);
  ::unlink(path_of(instance).c_str());
}

}  // namespace vexal
