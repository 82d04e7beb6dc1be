// The calls that go from associations up to the messages.
#pragma once

namespace vx {

struct SesObj;

// dimse: serves an association that is for verification only, up to its end; the session is gone after it.
void HandleEchoSession(SesObj* session);

}  // namespace vx
