// Work on many files at once, results in the order of the files.
#pragma once

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
  explicit Progress(std::size_t total);
  void step(std::size_t done);
  void end() const;  // takes the line away

 private:
  std::size_t total_;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point shown_{};
  bool terminal_;
  bool drawn_ = false;
};

struct FileResult {
  std::string output;  // for standard output
  int exit = 0;
};

// Runs `work` for each file on up to `threads` threads and prints the outputs in order, each as soon as it is
// its turn. Shows progress on a terminal when it takes long. The worst exit code. What `work` throws is
// reported of its file, and the others go on.
int for_each_file(const std::vector<std::string>& files, unsigned threads,
                  const std::function<FileResult(const std::string&)>& work);

unsigned default_threads();

// Starts threads until there are `number`, or fewer where the system gives no more. An exception that leaves
// `work` ends the program: it catches what it can tell of.
void start_threads(std::vector<std::jthread>& threads, std::size_t number, const std::function<void()>& work);

}  // namespace vexal
