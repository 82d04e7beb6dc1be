#include "archive.h"

#include <algorithm>

#include "base/session.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "data_sets.h"

namespace vexal {

void Archive::serve(int32_t association, const Caller& caller) {
  ObjectWriter writer(storage_, caller.calling_title, caller.address);
  acceptor_.serve_messages(association,
                           [&](int32_t id, int32_t message, const char* service, uint16_t command) {
                             const Request request(id, service, message, command);
                             if (command == C_STORE_RQ && (caller.rights & kMayStore) != 0)
                               return store(request, message, writer);
                             return other(request, message, command, caller);
                           });
}

bool Archive::store(const Request& request, int32_t message, ObjectWriter& writer) {
  StoredObject stored;
  const int32_t status = writer.take(request.association, message, stored);
  return status >= 0 && request.finish(static_cast<uint16_t>(status));
}

// Everything but objects: the data set is read first.
bool Archive::other(const Request& request, int32_t message, uint16_t command, const Caller& caller) {
  const auto* service = std::find_if(kServices, kServices + kServiceCount,
                                     [&](const Service& row) { return row.command == command; });
  const bool known = service != kServices + kServiceCount;
  Message owner;
  owner.id = message;
  if (known && (caller.rights & service->right) == 0) {
    report(caller.calling_title, "is not allowed to do that");
    return drop_rest(request.association, owner.id) && request.finish(kNotAuthorized);
  }
  IdentifierRoom room;
  if (read_rest(request.association, owner.id, room) != VX_NORMAL_COMPLETION) return false;
  if (room.crowded) return request.finish(kOutOfResources);
  // A request to cancel what is over; anything else was not negotiated.
  if (!known) return command == C_CANCEL_RQ;
  return (this->*service->answer)(request, owner.id, caller);
}

bool Archive::make_step(const Request& request, int32_t message, const Caller&) {
  return answer_step(request, message, &ProcedureSteps::create);
}

bool Archive::change_step(const Request& request, int32_t message, const Caller&) {
  return answer_step(request, message, &ProcedureSteps::set);
}

bool Archive::answer_step(const Request& request, int32_t message,
                          uint16_t (ProcedureSteps::*work)(int32_t, std::string&)) {
  std::string instance;
  uint16_t status = (steps_.*work)(message, instance);
  if (status == kSuccessStatus) status = pass_on_step(request, message, instance);
  Message answer;
  if (!request.make(answer)) return false;
  if (!instance.empty()) VX_Set_Value_From_String(answer.id, tags::kAffectedSOPInstanceUID, instance.c_str());
  return request.send(answer, status);
}

// What others are to be told of waits where it stays, before it is acknowledged.
uint16_t Archive::pass_on_step(const Request& request, int32_t message, const std::string& instance) {
  Parcel parcel{"", kProcedureStep, instance, static_cast<uint16_t>(request.response & 0x7FFFU), 0, ""};
  if (told_of_steps_.empty()) return kSuccessStatus;
  std::string error = encode_data_set(message, parcel.data_set) ? "" : kNoMemory;
  for (const std::string& node : told_of_steps_) {
    parcel.node = node;
    if (error.empty()) error = outbox_.add(parcel);
  }
  if (error.empty()) return kSuccessStatus;
  report(instance, "can not be handed on: " + error);
  if (parcel.command == N_CREATE_RQ) steps_.take_back(instance);
  return kProcessingFailure;
}

std::string Archive::open(const Args& args) {
  std::string error = holdings_.open(args, storage_);
  if (error.empty() && (!nodes_.empty()))
    error = outbox_.open(storage_.folder + "/outbox.sqlite", storage_.mode);
  if (!error.empty()) return error;
  std::vector<std::string> titles;
  for (const auto& [title, node] : nodes_) titles.push_back(title);
  outbox_.start(titles, [this](const Parcel& parcel) { return deliver(parcel); });
  return "";
}

const Archive::Service Archive::kServices[Archive::kServiceCount] = {
    {C_STORE_RQ, kMayStore, nullptr},  // serve() takes it from those who may
    {C_FIND_RQ, kMayQuery, &Archive::find},
    {C_MOVE_RQ, kMayRetrieve, &Archive::move},
    {C_GET_RQ, kMayRetrieve, &Archive::get},
    {N_ACTION_RQ, kMayStore, &Archive::commit},
    {N_CREATE_RQ, kMayStore, &Archive::make_step},
    {N_SET_RQ, kMayStore, &Archive::change_step},
};

}  // namespace vexal
