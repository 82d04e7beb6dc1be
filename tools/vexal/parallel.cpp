#include "parallel.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

namespace vexal {
namespace {

using Clock = std::chrono::steady_clock;

// Finished results wait for their turn; workers that run far ahead of the printer wait, so that memory is
// bounded.
class OrderedRun {
 public:
  OrderedRun(const std::vector<std::string>& files, const std::function<FileResult(const std::string&)>& work)
      : files_(files), work_(work), results_(files.size()), ready_(files.size(), false) {}

  void worker() {
    std::unique_lock lock(mutex_);
    while (next_ < files_.size()) {
      const std::size_t mine = next_++;
      room_.wait(lock, [&] { return mine < printed_ + kAhead; });
      lock.unlock();
      FileResult result = work_(files_[mine]);
      lock.lock();
      results_[mine] = std::move(result);
      ready_[mine] = true;
      done_.notify_one();
    }
  }

  int print_all() {
    int worst = 0;
    Progress progress(files_.size());
    for (std::size_t i = 0; i < files_.size(); ++i) {
      FileResult result;
      {
        std::unique_lock lock(mutex_);
        done_.wait(lock, [&] { return ready_[i]; });
        result = std::move(results_[i]);
        results_[i] = {};
        printed_ = i + 1;
      }
      room_.notify_all();
      std::fwrite(result.output.data(), 1, result.output.size(), stdout);
      worst = std::max(worst, result.exit);
      progress.step(i + 1);
    }
    progress.end();
    std::fflush(stdout);
    return worst;
  }

 private:
  static constexpr std::size_t kAhead = 64;
  const std::vector<std::string>& files_;
  const std::function<FileResult(const std::string&)>& work_;
  std::vector<FileResult> results_;
  std::vector<bool> ready_;
  std::mutex mutex_;
  std::condition_variable done_;
  std::condition_variable room_;
  std::size_t next_ = 0;
  std::size_t printed_ = 0;
};

}  // namespace

Progress::Progress(std::size_t total)
    : total_(total),
      start_(Clock::now()),
      terminal_(::isatty(STDERR_FILENO) != 0 && ::isatty(STDOUT_FILENO) == 0) {}

void Progress::step(std::size_t done) {
  const auto now = Clock::now();
  if (!terminal_ || now - start_ < std::chrono::seconds(1) || now - shown_ < std::chrono::milliseconds(200))
    return;
  shown_ = now;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double rate = static_cast<double>(done) / seconds;
  std::fprintf(stderr, "\r%zu of %zu files, %.0f a second, %.0f s left ", done, total_, rate,
               static_cast<double>(total_ - done) / std::max(rate, 1e-9));
  drawn_ = true;
}

void Progress::end() const {
  if (drawn_) std::fprintf(stderr, "\r%60s\r", "");
}

unsigned default_threads() {
  return std::max(1U, std::thread::hardware_concurrency());
}

int for_each_file(const std::vector<std::string>& files, unsigned threads,
                  const std::function<FileResult(const std::string&)>& work) {
  if (files.size() == 1) {
    const FileResult result = work(files[0]);
    std::fwrite(result.output.data(), 1, result.output.size(), stdout);
    return result.exit;
  }
  OrderedRun run(files, work);
  std::vector<std::jthread> workers;
  const std::size_t count = std::min<std::size_t>(threads, files.size());
  for (std::size_t i = 0; i < count; ++i) workers.emplace_back([&run] { run.worker(); });
  return run.print_all();
}

}  // namespace vexal
