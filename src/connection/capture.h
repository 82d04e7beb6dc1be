// What the transport tells the network capture. Null in a build without it; the addresses stand in the
// transport.
#pragma once

#include <cstdint>

#include "connection/transport.h"

namespace vx {

// A connection stands: TL_Transport::captureStream is filled. Each gives false when the capture failed and is
// to be switched off.
[[gnu::weak]] bool capture_open_stream(TL_Transport& transport);
[[gnu::weak]] bool capture_data(TL_Transport& transport, bool sent, const void* data, uint32_t length);
// Draws the end of the connection if the capture is on, and frees the stream in any case.
[[gnu::weak]] bool capture_close_stream(TL_Transport& transport);

// Null takes the table of the library, which writes capture files.
VX_STATUS capture_register(const NetworkCaptureCallbacks* callbacks);
const NetworkCaptureCallbacks& capture_files();

}  // namespace vx
