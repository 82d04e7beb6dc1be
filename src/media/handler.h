// A directory on disk that is read and changed record by record.
#pragma once

#include <cstdint>

#include "model/object.h"

namespace vx {

// Frees what DirectoryInfo of a directory holds, and of a record's item that goes.
void release_handler(MsgObj& directory);
void forget_item(MsgObj& item);

}  // namespace vx
