#include "model/held.h"

#include "frame/limits.h"

namespace vx {

struct HeldList {
  static thread_local const Held* head;

  // True if test(entry, whether it is for the object itself) holds for an entry of the object or of a holder.
  template <typename Test>
  static bool any(const MsgObj& object, Test test) {
    if (head == nullptr) return false;
    const MsgObj* holder = &object;
    for (int level = 0; holder != nullptr && level <= kMaxNesting; ++level) {
      for (const Held* held = head; held != nullptr; held = held->outer_) {
        if (&held->object_ == holder && test(*held, holder == &object)) return true;
      }
      holder = holder->ParentID > 0 ? find_object(holder->ParentID) : nullptr;
    }
    return false;
  }
  static bool value(const MsgObj& object, const TagObj& attribute) {
    return any(object, [&](const Held& held, bool) {
      return held.hold_ == Hold::All || held.attribute_ == &attribute;
    });
  }
  static bool range(const MsgObj& object, uint32_t first, uint32_t last) {
    return any(object, [=](const Held& held, bool itself) {
      if (held.hold_ != Hold::Value) return true;
      return itself && held.attribute_->Tag >= first && held.attribute_->Tag <= last;
    });
  }
  static bool growth(const MsgObj& object) {
    return any(object, [](const Held& held, bool) { return held.hold_ == Hold::All; });
  }
  static bool whole(const MsgObj& object) {
    for (const Held* held = head; held != nullptr; held = held->outer_) {
      if (&held->object_ == &object) return true;
    }
    return false;
  }
};
[[gnu::tls_model("initial-exec")]] thread_local const Held* HeldList::head = nullptr;

Held::Held(const MsgObj& object, Hold hold, const TagObj* attribute)
    : object_(object), attribute_(attribute), hold_(hold), outer_(HeldList::head) {
  HeldList::head = this;
}

Held::~Held() {
  HeldList::head = outer_;
}

bool anything_held() {
  return HeldList::head != nullptr;
}

bool is_value_held(const MsgObj& object, const TagObj& attribute) {
  return HeldList::value(object, attribute);
}

bool is_range_held(const MsgObj& object, uint32_t first, uint32_t last) {
  return HeldList::range(object, first, last);
}

bool is_object_held(const MsgObj& object) {
  return HeldList::whole(object);
}

bool is_growth_held(const MsgObj& object) {
  return HeldList::growth(object);
}

}  // namespace vx
