#include "media/handler.h"

namespace vx {
void release_handler(MsgObj&) {}
void forget_item(MsgObj&) {}
}  // namespace vx
