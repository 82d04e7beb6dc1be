// What the transport tells the network capture. Null in a build without it; the addresses stand in the
// transport.
#pragma once

#include <cstdint>

#include "net/transport.h"

namespace vx {

// A connection stands: TL_Transport::captureStream is filled. Each gives false when the capture failed and is
// to be switched off.
[[gnu::weak]] bool capture_open_stream(TL_Transport& transport);
[[gnu::weak]] bool capture_close_stream(TL_Transport& transport);
[[gnu::weak]] bool capture_data(TL_Transport& transport, bool sent, const void* data, uint32_t length);

}  // namespace vx
