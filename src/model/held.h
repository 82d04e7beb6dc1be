// What the library works with while a function of the caller runs: it may not change or go under the
// library's hands. Functions of the caller run on the thread that called, so each thread keeps a list of its
// own.
#pragma once

#include "model/object.h"

namespace vx {

enum class Hold : uint8_t {
  Value,  // one attribute: it stays, with its value
  Table,  // every attribute of the object stays
  All     // and every value
};

class Held {
 public:
  Held(const MsgObj& object, Hold hold, const TagObj* attribute = nullptr);
  ~Held();
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

 private:
  friend struct HeldList;
  const MsgObj& object_;
  const TagObj* attribute_;
  Hold hold_;
  const Held* outer_;
};

bool anything_held();  // by this thread
// What a function of the caller asks for must wait: VX_STATE_VIOLATION. An item is held with its holder.
bool is_value_held(const MsgObj& object, const TagObj& attribute);
bool is_range_held(const MsgObj& object, uint32_t first, uint32_t last);  // attributes that are to go
bool is_object_held(const MsgObj& object);                                // itself
bool is_growth_held(const MsgObj& object);                                // attributes that are to come

}  // namespace vx
