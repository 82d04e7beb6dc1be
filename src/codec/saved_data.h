// Stream data that an object keeps undecoded behind its attributes, until somebody asks for a tag in it.
// Records of large directories are held so.
#pragma once

#include <cstdint>

#include "model/deferred.h"
#include "model/object.h"

namespace vx {

// What DirectoryInfo points to with kDeferredStream; the bytes follow.
struct SavedData {
  int32_t Sort;
  uint32_t Length;
  VX_TRANSFER_SYNTAX Syntax;
  uint32_t FirstTag;  // the data hold no lower one

  uint8_t* bytes() { return reinterpret_cast<uint8_t*>(this + 1); }
  const uint8_t* bytes() const { return reinterpret_cast<const uint8_t*>(this + 1); }
};

// Null if there is none.
inline const SavedData* saved_data(const MsgObj& object) {
  const bool held = object.DirectoryInfo != nullptr && directory_sort(object) == kDeferredStream;
  return held ? static_cast<const SavedData*>(object.DirectoryInfo) : nullptr;
}

// Turns the attributes from `first` on into saved data. Nothing happens if there are none, or the object has
// such data already. On failure the attributes stay.
VX_STATUS save_attributes(MsgObj& object, uint32_t first);

}  // namespace vx
