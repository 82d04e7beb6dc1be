// The calls that go from the network to its neighbours. A weak one is null in a build that lacks its layer.
#pragma once

#include <cstdint>
#include <cstdio>

namespace vx {

// text: lists an object at level T2 when the stream is null.
[[gnu::weak]] void list_object(int32_t id, std::FILE* stream);

}  // namespace vx
