#include "request.h"

#include "acceptor.h"
#include "base/tags.h"

namespace vexal {

// What comes is read as its command alone: with a data set behind it, it can not be what takes a request
// back, and nothing else may come now.
PeerSays listen_to(int32_t association) {
  Message message;
  const char* name = nullptr;
  uint16_t command = 0;
  VX_STATUS status = VX_NORMAL_COMPLETION;
  {
    const MessageWatch watch;
    status = VX_Read_Message_To_Tag(association, 0, tags::kBehindCommand, &message.id, &name, &command);
  }
  if (status == VX_TIMEOUT) return PeerSays::Nothing;
  if (status != VX_NORMAL_COMPLETION || command != C_CANCEL_RQ || message.has_data_set())
    return PeerSays::Gone;
  return PeerSays::Cancel;
}

}  // namespace vexal
