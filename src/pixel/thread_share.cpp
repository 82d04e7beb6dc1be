#include "pixel/thread_share.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "config/config.h"

namespace vx {
namespace {

// Starting a thread costs what coding some kilobytes does.
constexpr std::size_t kSmallFrame = std::size_t{256} << 10;

std::atomic<unsigned> g_runs{0};
std::atomic<unsigned> g_threads{0};

unsigned most_threads() {
  static const unsigned cores = std::max(std::thread::hardware_concurrency(), 1U);
  const auto wanted = static_cast<unsigned>(std::max(config_int(VX_CFG_COMPRESSION_THREADS), 0));
  return wanted == 0 ? cores : wanted;
}

}  // namespace

SignalsBlocked::SignalsBlocked() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &old_);
}
SignalsBlocked::~SignalsBlocked() {
  pthread_sigmask(SIG_SETMASK, &old_, nullptr);
}

ThreadShare::ThreadShare(std::size_t frame_bytes) : count_(1) {
  const unsigned runs = ++g_runs;
  unsigned taken = g_threads.load(std::memory_order_relaxed);
  do {
    count_ = 1;
    if (frame_bytes < kSmallFrame) continue;
    const unsigned most = most_threads();
    const unsigned left = most > taken ? most - taken : 0;
    count_ = std::clamp(most / runs, 1U, std::max(left, 1U));
  } while (!g_threads.compare_exchange_weak(taken, taken + count_, std::memory_order_relaxed));
}

ThreadShare::~ThreadShare() {
  g_threads -= count_;
  --g_runs;
}

void run_parts(unsigned threads, std::size_t parts, const std::function<void(std::size_t)>& work) {
  std::atomic<std::size_t> next{0};
  std::atomic<bool> failed{false};
  std::exception_ptr thrown;
  const auto take_part = [&]() noexcept {
    try {
      for (std::size_t part = next++; part < parts && !failed; part = next++) work(part);
    } catch (...) {
      if (!failed.exchange(true)) thrown = std::current_exception();
    }
  };
  std::vector<std::jthread> others;
  if (threads > 1 && parts > 1) {
    const SignalsBlocked blocked;
    try {
      const std::size_t wanted = std::min<std::size_t>(threads, parts) - 1;
      others.reserve(wanted);
      while (others.size() < wanted) others.emplace_back(take_part);
    } catch (const std::system_error&) {  // the system gives no more: those that run do it all
    } catch (const std::bad_alloc&) {
    }
  }
  take_part();
  others.clear();
  if (thrown != nullptr) std::rethrow_exception(thrown);
}

}  // namespace vx
