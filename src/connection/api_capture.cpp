// The exported function of the network capture.
#include "connection/capture.h"
#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/state.h"

using namespace vx;

extern "C" VX_STATUS VX_Register_Network_Capture_Callbacks(const NetworkCaptureCallbacks* Callbacks) {
  VX_REQUIRE_LIBRARY();
  return no_throw([&] { return capture_register(Callbacks); });
}
