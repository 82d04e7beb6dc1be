// What the layers below call in the network.
#include "association/requester.h"
#include "association/service_lists.h"
#include "connection/session.h"
#include "frame/seams.h"

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
