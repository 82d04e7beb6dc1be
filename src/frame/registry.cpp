#include "frame/registry.h"

#include "frame/log.h"
#include "frame/pool.h"

namespace vx {
namespace {

constexpr int32_t kFirstMessageId = 100;
constexpr int32_t kLastMessageId = 0x7FFFFF9B;
constexpr int32_t kFirstSessionId = 10000;
constexpr int32_t kLastSmallId = 31000;
constexpr int32_t kSessionSearchEnd = 0x7FFFFFF5;

HashObj* find_record(HashObj* head, int32_t id) {
  while (head != nullptr && head->ID != id) head = head->Next;
  return head;
}

// Takes the record out of its bucket; null if it is not there.
HashObj* unlink_record(HashObj*& bucket, int32_t id) {
  for (HashObj** link = &bucket; *link != nullptr; link = &(*link)->Next) {
    HashObj* record = *link;
    if (record->ID == id) {
      *link = record->Next;
      return record;
    }
  }
  return nullptr;
}

void link_head(HashObj*& bucket, HashObj* record) {
  record->Next = bucket;
  bucket = record;
}

}  // namespace

void MessageRegistry::set_up() {
  last_id_ = kFirstMessageId - 1;
}

int32_t MessageRegistry::add(void* object) {
  auto* record = new_object<HashObj>(Pool::HashObj);
  if (record == nullptr) return -1;
  record->Object = object;
  bool wrapped = false;
  for (;;) {
    int32_t id = -1;
    {
      const Guard guard(semaphore);
      if (last_id_ < kLastMessageId) {
        id = ++last_id_;
      } else if (!wrapped) {
        wrapped = true;
        id = last_id_ = kFirstMessageId;
      }
    }
    if (id < 0) break;
    const std::size_t bucket = static_cast<std::size_t>(id) % kMessageBuckets;
    const Guard guard(stripes_[bucket % kStripes].lock);
    if (find_record(buckets_[bucket], id) != nullptr) continue;
    record->ID = id;
    link_head(buckets_[bucket], record);
    return id;
  }
  pool_free(Pool::HashObj, record);
  VX_LOG_ERR("VXI_newMsgObj", "No message IDs available!!");
  return -1;
}

void* MessageRegistry::find(int32_t id) {
  if (id < 0) return nullptr;
  const std::size_t bucket = static_cast<std::size_t>(id) % kMessageBuckets;
  const Guard guard(stripes_[bucket % kStripes].lock);
  const HashObj* record = find_record(buckets_[bucket], id);
  return record != nullptr ? record->Object : nullptr;
}

bool MessageRegistry::remove(int32_t id) {
  HashObj* record = nullptr;
  bool empty = true;
  if (id >= 0) {
    const std::size_t bucket = static_cast<std::size_t>(id) % kMessageBuckets;
    const Guard guard(stripes_[bucket % kStripes].lock);
    empty = buckets_[bucket] == nullptr;
    record = unlink_record(buckets_[bucket], id);
  }
  if (record == nullptr) {
    VX_LOG_ERR("VXI_releaseMsgObj",
               empty ? "Internal error, could not find hash bucket for message object to free"
                     : "Internal error, could not find message object to free");
    return false;
  }
  pool_free(Pool::HashObj, record);
  return true;
}

void MessageRegistry::for_each(void (*visit)(void* object, void* context), void* context) {
  for (HashObj* record : buckets_) {
    while (record != nullptr) {
      HashObj* next = record->Next;
      visit(record->Object, context);
      record = next;
    }
  }
}

int32_t SmallRegistry::add(void* object) {
  const bool sessions = first_id_ == kFirstSessionId;
  auto* record = new_object<HashObj>(Pool::HashObj);
  if (record == nullptr) return -1;
  record->Object = object;
  const auto taken = [this](int32_t id) {
    return find_record(buckets_[static_cast<std::size_t>(id) % kSmallBuckets], id) != nullptr;
  };
  const Guard guard(semaphore);
  int32_t id = last_id_ < kLastSmallId ? last_id_ + 1 : first_id_;
  if (sessions) {
    while (id < kSessionSearchEnd && taken(id)) ++id;
  } else {
    const int32_t start = id;
    while (taken(id)) {
      id = id < kLastSmallId ? id + 1 : first_id_;
      if (id == start) break;
    }
  }
  if (taken(id)) {
    pool_free(Pool::HashObj, record);
    if (sessions) VX_LOG_ERR("VXI_newSesObj", "Internal error, running out of session object IDs");
    return -1;
  }
  last_id_ = id;
  record->ID = id;
  link_head(buckets_[static_cast<std::size_t>(id) % kSmallBuckets], record);
  return id;
}

void* SmallRegistry::find(int32_t id) {
  if (id < 0) return nullptr;
  const Guard guard(semaphore);
  HashObj*& bucket = buckets_[static_cast<std::size_t>(id) % kSmallBuckets];
  if (bucket != nullptr && bucket->ID == id) return bucket->Object;
  HashObj* record = unlink_record(bucket, id);
  if (record == nullptr) return nullptr;
  link_head(bucket, record);
  return record->Object;
}

void* SmallRegistry::find_if(bool (*test)(const void* object, const void* context), const void* context) {
  const Guard guard(semaphore);
  for (HashObj*& bucket : buckets_) {
    for (HashObj** link = &bucket; *link != nullptr; link = &(*link)->Next) {
      HashObj* record = *link;
      if (!test(record->Object, context)) continue;
      *link = record->Next;
      link_head(bucket, record);
      return record->Object;
    }
  }
  return nullptr;
}

bool SmallRegistry::remove(int32_t id) {
  HashObj* record = nullptr;
  if (id >= 0) {
    const Guard guard(semaphore);
    record = unlink_record(buckets_[static_cast<std::size_t>(id) % kSmallBuckets], id);
  }
  if (record == nullptr) {
    const bool sessions = first_id_ == kFirstSessionId;
    VX_LOG_ERR(sessions ? "VXI_releaseSesObj" : "VXI_releaseAppObj",
               sessions ? "Internal error, could not find session object to free"
                        : "Internal error, could not find application object to free");
    return false;
  }
  pool_free(Pool::HashObj, record);
  return true;
}

}  // namespace vx
