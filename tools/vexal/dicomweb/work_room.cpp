#include "work_room.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace vexal {
namespace {

constexpr uint64_t kRoom = 24U << 20;

std::mutex mutex;
std::condition_variable freed;
uint64_t taken = 0;

}  // namespace

WorkRoom::WorkRoom(uint64_t bytes) : bytes_(std::clamp<uint64_t>(bytes, 1, kRoom)) {
  std::unique_lock lock(mutex);
  freed.wait(lock, [&] { return taken + bytes_ <= kRoom; });
  taken += bytes_;
}

WorkRoom::~WorkRoom() {
  {
    const std::lock_guard lock(mutex);
    taken -= bytes_;
  }
  freed.notify_all();
}

}  // namespace vexal
