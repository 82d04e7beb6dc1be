// Handles to objects. A lookup takes the small lock of one stripe of buckets, so that threads that work on
// different objects do not meet.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "frame/lock.h"

namespace vx {

struct HashObj {
  HashObj* Next;
  int32_t ID;
  void* Object;
};

inline constexpr std::size_t kMessageBuckets = 81920;
inline constexpr std::size_t kSmallBuckets = 4096;

// The registry of messages, items and files. Zeroed bytes and set_up() make an empty one.
class MessageRegistry {
 public:
  void set_up();  // IDs start at 100
  // Takes an ID for an object; -1 if IDs or memory ran out. The object is found from now on.
  int32_t add(void* object);
  void* find(int32_t id);
  // Takes the ID out; false, after a line in the log, if it was not there.
  bool remove(int32_t id);
  // Calls visit(object, context) for each object; the registry must not change meanwhile, other than by visit
  // removing the object at hand.
  void for_each(void (*visit)(void* object, void* context), void* context);
  Lock semaphore;  // guards the counter; a leaf

 private:
  static constexpr std::size_t kStripes = 256;
  struct alignas(64) Stripe {
    Lock lock;
  };
  Stripe stripes_[kStripes];
  HashObj* buckets_[kMessageBuckets];
  int32_t last_id_;
};

// Applications and sessions: few objects, found by ID or by a test, the record found moves to the head.
class SmallRegistry {
 public:
  void set_up(int32_t first_id) {
    last_id_ = first_id - 1;
    first_id_ = first_id;
  }
  int32_t add(void* object);
  void* find(int32_t id);
  void* find_if(bool (*test)(const void* object, const void* context), const void* context);
  bool remove(int32_t id);
  Lock semaphore;

 private:
  HashObj* buckets_[kSmallBuckets];
  int32_t last_id_;
  int32_t first_id_;
};

}  // namespace vx
