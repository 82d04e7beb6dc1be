#include "parallel.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <mutex>
#include <system_error>

#include "session.h"

namespace vexal {
namespace {

using Clock = std::chrono::steady_clock;

// Prints the outputs in order, each as soon as `result_of` gives it. The worst exit code.
template <typename ResultOf>
int print_all(const OrderedWork& all, ResultOf result_of) {
  int worst = 0;
  Progress progress(all.count, all.things);
  for (std::size_t i = 0; i < all.count; ++i) {
    FileResult result{"", kUsage};
    try {
      result = result_of(i);
    } catch (const std::exception&) {
      report(all.name(i), words_of(std::current_exception()));
    }
    std::fwrite(result.output.data(), 1, result.output.size(), stdout);
    worst = std::max(worst, result.exit);
    progress.step(i + 1);
  }
  progress.end();
  std::fflush(stdout);
  return worst;
}

// Finished results wait for their turn; workers that run far ahead of the printer wait, so that memory is
// bounded.
class OrderedRun {
 public:
  explicit OrderedRun(const OrderedWork& all) : all_(all), places_(kAhead) {}

  void worker() {
    std::unique_lock lock(mutex_);
    while (next_ < all_.count) {
      const std::size_t mine = next_++;
      room_.wait(lock, [&] { return mine < printed_ + kAhead || stopping_; });
      if (stopping_) return;
      lock.unlock();
      Place place{.ready = true};
      try {
        place.result = all_.work(mine);
      } catch (...) {
        place.thrown = std::current_exception();
      }
      lock.lock();
      places_[mine % kAhead] = std::move(place);
      done_.notify_one();
    }
  }

  // Nobody prints any more.
  void stop() {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    room_.notify_all();
  }

  FileResult wait_for(std::size_t number) {
    Place place;
    Place& waiting = places_[number % kAhead];
    {
      std::unique_lock lock(mutex_);
      done_.wait(lock, [&] { return waiting.ready; });
      std::swap(place, waiting);
      printed_ = number + 1;
    }
    room_.notify_all();
    if (place.thrown != nullptr) std::rethrow_exception(place.thrown);
    return std::move(place.result);
  }

 private:
  struct Place {
    FileResult result{};
    std::exception_ptr thrown{};
    bool ready = false;
  };
  static constexpr std::size_t kAhead = 64;
  const OrderedWork& all_;
  std::vector<Place> places_;  // of those that are under way or wait, by the rest of their number
  std::mutex mutex_;
  std::condition_variable done_;
  std::condition_variable room_;
  std::size_t next_ = 0;
  std::size_t printed_ = 0;
  bool stopping_ = false;
};

// Puts a new thread on the `number`-th processor behind the one of its parent. Left to itself, it may share
// that one for several milliseconds while others are idle. Afterwards the system may move it as it likes.
void spread(pthread_t thread, std::size_t number) {
  cpu_set_t allowed;
  if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
  int processor = ::sched_getcpu();
  if (processor < 0 || number >= static_cast<std::size_t>(CPU_COUNT(&allowed))) return;
  while (number != 0) {
    processor = (processor + 1) % CPU_SETSIZE;
    if (CPU_ISSET(processor, &allowed)) --number;
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  if (::pthread_setaffinity_np(thread, sizeof one, &one) == 0)
    ::pthread_setaffinity_np(thread, sizeof allowed, &allowed);
}

}  // namespace

void start_threads(std::vector<std::jthread>& threads, std::size_t number,
                   const std::function<void()>& work) try {
  while (threads.size() < number) {
    threads.emplace_back(work);
    spread(threads.back().native_handle(), threads.size());
  }
} catch (const std::exception&) {
  // Those that are there do the work: neither threads nor memory are left for more.
}

Progress::Progress(std::size_t total, const char* things)
    : total_(total),
      things_(things),
      start_(Clock::now()),
      terminal_(::isatty(STDERR_FILENO) != 0 && ::isatty(STDOUT_FILENO) == 0) {}

void Progress::step(std::size_t done) {
  const auto now = Clock::now();
  if (!terminal_ || now - start_ < std::chrono::seconds(1) || now - shown_ < std::chrono::milliseconds(200))
    return;
  shown_ = now;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double rate = static_cast<double>(done) / seconds;
  std::fprintf(stderr, "\r%zu of %zu %s, %.0f a second, %.0f s left ", done, total_, things_, rate,
               static_cast<double>(total_ - done) / std::max(rate, 1e-9));
  drawn_ = true;
}

void Progress::end() const {
  if (drawn_) std::fprintf(stderr, "\r%60s\r", "");
}

unsigned default_threads() {
  return std::max(1U, std::thread::hardware_concurrency());
}

int for_each_in_order(const OrderedWork& all, unsigned threads) {
  const std::size_t count = std::min<std::size_t>(threads, all.count);
  OrderedRun run(all);
  std::vector<std::jthread> workers;
  if (count > 1) start_threads(workers, count, [&run] { run.worker(); });
  if (workers.empty()) return print_all(all, all.work);
  // Whatever ends the printing, nobody waits for it.
  const struct Stop {
    OrderedRun& run;
    ~Stop() { run.stop(); }
  } stop{run};
  return print_all(all, [&run](std::size_t number) { return run.wait_for(number); });
}

int for_each_file(const std::vector<std::string>& files, unsigned threads,
                  const std::function<FileResult(const std::string&)>& work) {
  return for_each_in_order({files.size(), [&](std::size_t i) { return work(files[i]); },
                            [&](std::size_t i) { return files[i]; }, "files"},
                           threads);
}

}  // namespace vexal
