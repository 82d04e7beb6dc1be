// A small re-entrant lock that lives inside records: zeroed bytes are an open lock, and nothing needs to be
// destroyed. Taking an uncontended lock is one compare-and-swap.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

namespace vx {

// The number of the calling thread in log lines and as owner of locks: the kernel's thread id.
uint32_t current_thread_number();

class Lock {
 public:
  void lock() {
    const uint32_t me = current_thread_number();
    if (owner_.load(std::memory_order_relaxed) == me) {
      ++depth_;
      return;
    }
    uint32_t open = 0;
    if (!owner_.compare_exchange_strong(open, me, std::memory_order_acquire)) lock_slow(me);
  }
  bool try_lock() {
    const uint32_t me = current_thread_number();
    if (owner_.load(std::memory_order_relaxed) == me) {
      ++depth_;
      return true;
    }
    uint32_t open = 0;
    return owner_.compare_exchange_strong(open, me, std::memory_order_acquire);
  }
  void unlock() {
    if (depth_ != 0) {
      --depth_;
      return;
    }
    owner_.store(0, std::memory_order_seq_cst);
    if (waiters_.load(std::memory_order_seq_cst) != 0) wake_one();
  }

 private:
  void lock_slow(uint32_t me);
  void wake_one();

  std::atomic<uint32_t> owner_{0};    // thread number, 0 when open
  std::atomic<uint32_t> waiters_{0};  // threads that sleep on owner_
  uint32_t depth_{0};                 // re-entries of the owner
};
static_assert(std::is_trivially_destructible_v<Lock>);

// Holds a lock for a scope.
class Guard {
 public:
  explicit Guard(Lock& lock) : lock_(lock) { lock_.lock(); }
  ~Guard() { lock_.unlock(); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  Lock& lock_;
};

}  // namespace vx
