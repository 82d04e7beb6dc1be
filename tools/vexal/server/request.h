// One request that an association brought, and its answers.
#pragma once

#include <cstdint>
#include <string>

#include "base/tags.h"
#include "network/network.h"

namespace vexal {

// DIMSE statuses that the servers answer with (PS3.7 annex C, PS3.4).
enum DimseStatus : uint16_t {
  kSuccessStatus = 0x0000,
  kProcessingFailure = 0x0110,
  kInvalidValue = 0x0106,
  kDuplicateInstance = 0x0111,
  kNoSuchInstance = 0x0112,
  kInvalidInstance = 0x0117,
  kClassInstanceConflict = 0x0119,
  kMissingAttribute = 0x0120,
  kNoSuchClass = 0x0122,
  kNotAuthorized = 0x0124,
  kNoSuchAction = 0x0123,
  kOutOfResources = 0xA700,
  kAllFailed = 0xA702,
  kUnknownDestination = 0xA801,
  kNotMatching = 0xA900,
  kSubOperationsFailed = 0xB000,
  kDiscarded = 0xB006,
  kNotUnderstood = 0xC000,
  kSyntaxNotSupported = 0xC122,
  kCancelled = 0xFE00,
  kPendingStatus = 0xFF00,
};

// What a peer has to say while its request is worked on.
enum class PeerSays { Nothing, Cancel, Gone };
PeerSays listen_to(int32_t association);

struct Request {
  int32_t association;
  std::string service;
  uint16_t response;  // command of the answers
  uint32_t id = 0;

  Request(int32_t on, const char* name, int32_t message, uint16_t command)
      : association(on), service(name), response(static_cast<uint16_t>(command | 0x8000U)) {
    VX_Get_Value_To_UInt(message, tags::kMessageID, &id);
  }
  bool make(Message& answer) const {
    if (answer.make(service.c_str(), response) != VX_NORMAL_COMPLETION) return false;
    return VX_Set_Value_From_UInt(answer.id, tags::kMessageIDBeingRespondedTo, id) == VX_NORMAL_COMPLETION;
  }
  bool send(Message& answer, uint16_t status) const {
    return VX_Send_Response_Message(association, status, answer.id) == VX_NORMAL_COMPLETION;
  }
  bool finish(uint16_t status) const {
    Message answer;
    return make(answer) && send(answer, status);
  }
};

}  // namespace vexal
