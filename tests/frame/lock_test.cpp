#include "frame/lock.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace vx {
namespace {

void run_together(int threads, const std::function<void(int)>& work) {
  std::vector<std::thread> pool;
  for (int i = 0; i < threads; ++i) pool.emplace_back(work, i);
  for (std::thread& thread : pool) thread.join();
}

TEST(Lock, CountsExactlyUnderContentionWithReentry) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 20000;
  Lock lock;
  int64_t plain = 0;  // guarded by nothing but the lock
  run_together(kThreads, [&](int) {
    for (int i = 0; i < kRounds; ++i) {
      const Guard outer(lock);
      ++plain;
      if (i % 3 == 0) {
        const Guard inner(lock);
        ++plain;
      }
      if (i % 64 == 0) std::this_thread::yield();  // others get to sleep on the lock
    }
  });
  constexpr int64_t kReentries = (kRounds + 2) / 3;
  EXPECT_EQ(plain, kThreads * (kRounds + kReentries));
}

// Every turn needs a wake-up of the other thread; a lost one hangs here.
TEST(Lock, NoWakeUpIsLostBetweenTwoThreads) {
  constexpr int kTurns = 4000;
  Lock lock;
  int turn = 0;
  run_together(2, [&](int me) {
    for (int done = 0; done < kTurns;) {
      const Guard guard(lock);
      if (turn % 2 != me) continue;
      ++turn;
      ++done;
    }
  });
  EXPECT_EQ(turn, 2 * kTurns);
}

TEST(Lock, StaysTakenUntilEveryEntryIsLeft) {
  Lock lock;
  const auto other_gets_it = [&lock] {
    bool got = false;
    std::thread([&] {
      got = lock.try_lock();
      if (got) lock.unlock();
    }).join();
    return got;
  };
  ASSERT_TRUE(lock.try_lock());
  lock.lock();
  ASSERT_TRUE(lock.try_lock());
  for (int left = 3; left > 0; --left) {
    EXPECT_FALSE(other_gets_it()) << left;
    lock.unlock();
  }
  EXPECT_TRUE(other_gets_it());
}

TEST(Lock, ThreadsHaveNumbersOfTheirOwn) {
  std::atomic<uint32_t> other{0};
  std::thread([&] { other = current_thread_number(); }).join();
  EXPECT_NE(other.load(), 0U);
  EXPECT_NE(other.load(), current_thread_number());
  EXPECT_EQ(current_thread_number(), static_cast<uint32_t>(::gettid()));
}

}  // namespace
}  // namespace vx
