// What the layers below call in the network.
#include "frame/seams.h"
#include "net/requester.h"
#include "net/service_lists.h"
#include "net/session.h"

namespace vx {

void release_application_sessions(AppObj& app) {
  end_sessions(app);
  free_negotiation_info(app);
}

void network_drop() {
  drop_sessions();
  drop_remote_applications();
  drop_service_lists();
}

}  // namespace vx
