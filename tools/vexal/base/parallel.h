// Work on many things at once, results in their order.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "thrown.h"

namespace vexal {

// A line on standard error that tells how far a long work is, once it takes longer than a second. Silent
// where that is no terminal.
class Progress {
 public:
  explicit Progress(std::size_t total, const char* things = "files");
  void step(std::size_t done);
  void end() const;  // takes the line away

 private:
  std::size_t total_;
  const char* things_;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point shown_{};
  bool terminal_;
  bool drawn_ = false;
};

struct FileResult {
  std::string output;  // for standard output
  int exit = 0;
};

struct OrderedWork {
  std::size_t count;
  std::function<FileResult(std::size_t)> work;   // by number, from 0
  std::function<std::string(std::size_t)> name;  // of what an exception is reported
  const char* things;
};
// Runs `work` on up to `threads` threads and prints the outputs in order, each as soon as it is its turn.
// Shows progress on a terminal when it takes long. The worst exit code. What `work` throws is reported, and
// the others go on.
int for_each_in_order(const OrderedWork& all, unsigned threads);
int for_each_file(const std::vector<std::string>& files, unsigned threads,
                  const std::function<FileResult(const std::string&)>& work);

unsigned default_threads();

// Starts threads until there are `number`, or fewer where the system gives no more. An exception that leaves
// `work` ends the program: it catches what it can tell of.
void start_threads(std::vector<std::jthread>& threads, std::size_t number, const std::function<void()>& work);

// Calls work(state, i) for each i below `count`, on several threads, each with a state of its own.
template <typename State, typename Work>
void on_threads(unsigned threads, std::size_t count, Work work) {
  std::atomic<std::size_t> next{0};
  const auto take_part = [&] {
    State state;
    for (std::size_t i = next++; i < count; i = next++) work(state, i);
  };
  std::vector<std::jthread> others;
  const std::size_t wanted = std::min<std::size_t>(threads, count);
  if (wanted > 1) start_threads(others, wanted - 1, take_part);
  take_part();
}

}  // namespace vexal
