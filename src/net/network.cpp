// What the layers below call in the network.
#include "frame/seams.h"
#include "net/service_lists.h"

namespace vx {

void release_application_sessions(AppObj& app) {
  free_negotiation_info(app);
}

void network_drop() {
  drop_service_lists();
}

}  // namespace vx
