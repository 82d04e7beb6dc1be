// The threads of codecs: how many a run may have, and work that is shared out among them.
#pragma once

#include <csignal>
#include <cstddef>
#include <functional>

namespace vx {

// Threads for one frame while this lives: COMPRESSION_THREADS, shared out among the runs that are under way
// in the process, so that frames that are worked on side by side take no more than their cores. A small frame
// has one.
class ThreadShare {
 public:
  explicit ThreadShare(std::size_t frame_bytes);
  ~ThreadShare();
  ThreadShare(const ThreadShare&) = delete;
  ThreadShare& operator=(const ThreadShare&) = delete;
  unsigned count() const { return count_; }

 private:
  unsigned count_;
};

// While this lives, threads that are started get no signals: these are the business of the application's own.
class SignalsBlocked {
 public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t old_;
};

// Calls work(part) for each part below `parts`, on the calling thread and on up to `threads` - 1 others,
// which have ended when it returns. What `work` throws first is thrown here.
void run_parts(unsigned threads, std::size_t parts, const std::function<void(std::size_t)>& work);

}  // namespace vx
