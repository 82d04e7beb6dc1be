#include "frame/lock.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vx {
namespace {

// The kernel's id of a thread does not change, so each thread asks once.
[[gnu::tls_model("initial-exec")]] thread_local uint32_t t_number = 0;

uint32_t ask_thread_number() {
  // A child of fork() runs on under another id.
  static const int registered = pthread_atfork(nullptr, nullptr, [] { t_number = 0; });
  (void)registered;
  t_number = static_cast<uint32_t>(syscall(SYS_gettid));
  return t_number;
}

inline void relax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

// std::atomic<uint32_t> is lock-free and has the layout of its value, which the kernel needs.
static_assert(std::atomic<uint32_t>::is_always_lock_free && sizeof(std::atomic<uint32_t>) == 4);

void futex_wait(std::atomic<uint32_t>& word, uint32_t seen) {
  syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
}

}  // namespace

uint32_t current_thread_number() {
  const uint32_t number = t_number;
  return number != 0 ? number : ask_thread_number();
}

void Lock::lock_slow(uint32_t me) {
  constexpr int kSpins = 100;
  for (int i = 0; i < kSpins; ++i) {
    uint32_t open = 0;
    if (owner_.load(std::memory_order_relaxed) == 0 &&
        owner_.compare_exchange_strong(open, me, std::memory_order_acquire)) {
      return;
    }
    relax();
  }
  // The count goes up before the owner is read, and unlock() opens before it reads the count: one of the two
  // sees the other, so no wake-up is lost.
  waiters_.fetch_add(1, std::memory_order_seq_cst);
  for (;;) {
    uint32_t owner = owner_.load(std::memory_order_seq_cst);
    if (owner != 0) {
      futex_wait(owner_, owner);
    } else if (owner_.compare_exchange_strong(owner, me, std::memory_order_seq_cst)) {
      break;
    }
  }
  waiters_.fetch_sub(1, std::memory_order_relaxed);
}

void Lock::wake_one() {
  syscall(SYS_futex, reinterpret_cast<uint32_t*>(&owner_), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace vx
