// All frames of an image, converted by several threads.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/parallel.h"
#include "base/session.h"
#include "frame_worker.h"

namespace vexal {

// Several threads that convert all frames but the first and bring each to where it belongs.
class FrameCrew {
 public:
  FrameCrew(const FrameSource& source, const FrameForm& form, const std::string& path, unsigned threads)
      : source_(source), form_(form), path_(path), threads_(threads) {}

  // Takes a frame, in their order, and one at a time while it holds the lock. An error text, empty on
  // success.
  using Taker = std::function<std::string(uint32_t frame, Bytes& bytes, std::unique_lock<std::mutex>& lock)>;
  std::string hand_to(Taker take) {
    take_ = std::move(take);
    waiting_.resize(2 * std::size_t{threads_});
    return run(
        [this](FrameWorker& worker, uint32_t frame, Bytes& bytes) { return hand_on(worker, frame, bytes); });
  }
  // Frames that are to be raw, all of one size, go from the thread that makes them right into the file. The
  // first one is there and marked.
  std::string place_raw(FileSink& sink, uint64_t size) {
    return run([&sink, size](FrameWorker& worker, uint32_t frame, Bytes&) {
      return worker.place(frame, sink, frame * size, size);
    });
  }

 private:
  using Work = std::function<std::string(FrameWorker& worker, uint32_t frame, Bytes& room)>;

  std::string run(const Work& work) {
    {
      std::vector<std::jthread> others;
      start_threads(others, std::min(threads_, source_.count() - 1) - 1, [&] { take_part(work); });
      take_part(work);
    }
    return thrown_ == nullptr ? std::move(problem_) : words_of(thrown_);
  }

  void take_part(const Work& work) try {
    const CurrentFile current(path_);
    FrameWorker worker(source_, form_);
    Bytes bytes;
    for (uint32_t mine = taken_++; mine < source_.count() && !failed_; mine = taken_++) {
      const std::string problem = work(worker, mine, bytes);
      if (!problem.empty()) return fail("frame " + std::to_string(mine + 1) + ": " + problem, nullptr);
    }
  } catch (...) {
    fail({}, std::current_exception());
  }
  void fail(std::string problem, std::exception_ptr thrown) {
    const std::lock_guard lock(mutex_);
    if (!failed_.exchange(true)) {
      problem_.swap(problem);
      thrown_.swap(thrown);
    }
    room_.notify_all();
  }

  // Whoever closes a gap hands on all that waited for it.
  std::string hand_on(FrameWorker& worker, uint32_t frame, Bytes& bytes) {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [&] { return frame < handed_ + waiting_.size() || failed_; });
    if (failed_) return "";
    lock.unlock();
    std::string problem = worker.convert(frame, bytes);
    worker.free_result();
    if (problem.empty() && bytes.empty()) problem = kOtherSize;
    if (!problem.empty()) return problem;
    lock.lock();
    const auto slot_of = [&](uint32_t number) -> Bytes& { return waiting_[number % waiting_.size()]; };
    slot_of(frame).swap(bytes);
    while (problem.empty() && !failed_ && !slot_of(handed_).empty()) {
      bytes.clear();
      bytes.swap(slot_of(handed_));
      room_.notify_all();
      problem = take_(handed_++, bytes, lock);
    }
    return problem;
  }

  const FrameSource& source_;
  const FrameForm& form_;
  const std::string& path_;
  const unsigned threads_;
  std::atomic<uint32_t> taken_{1};
  std::atomic<bool> failed_{false};
  std::mutex mutex_;
  std::condition_variable room_;
  Taker take_;
  uint32_t handed_ = 1;
  std::vector<Bytes> waiting_;  // frames whose predecessors are in the making
  std::string problem_;
  std::exception_ptr thrown_;
};

// Frames come off it in their order, converted by one thread or by several.
class FrameConveyor {
 public:
  FrameConveyor(const FrameSource& source, const FrameForm& form, uint32_t first, unsigned threads,
                const std::string& path)
      : source_(source), form_(form), path_(path), taken_(first), given_(first) {
    threads = std::min(threads, source.count() - first);
    if (threads <= 1) {
      own_ = std::make_unique<FrameWorker>(source, form);
      return;
    }
    // One in the making for each thread, and one that waits for its turn.
    slots_.resize(std::size_t{threads} + 1);
    start_threads(workers_, threads, [this] { work(); });
    if (workers_.empty()) own_ = std::make_unique<FrameWorker>(source, form);
  }
  ~FrameConveyor() {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    room_.notify_all();
  }
  FrameConveyor(const FrameConveyor&) = delete;
  FrameConveyor& operator=(const FrameConveyor&) = delete;

  // An error text, empty on success.
  std::string next(Bytes& frame) {
    const uint32_t number = given_;
    std::string problem = own_ != nullptr ? own_->convert(given_++, frame) : wait(frame);
    if (problem.empty()) return "";
    return source_.count() == 1 ? problem : "frame " + std::to_string(number + 1) + ": " + problem;
  }

 private:
  struct Slot {
    Bytes frame;
    std::string problem;
    bool ready = false;
  };
  Slot& slot_of(uint32_t frame) { return slots_[frame % slots_.size()]; }

  std::string wait(Bytes& frame) {
    std::string problem;
    {
      std::unique_lock lock(mutex_);
      Slot& slot = slot_of(given_);
      done_.wait(lock, [&] { return slot.ready || thrown_ != nullptr; });
      if (thrown_ != nullptr) return words_of(thrown_);
      frame.swap(slot.frame);
      problem.swap(slot.problem);
      slot.ready = false;
      ++given_;
    }
    room_.notify_all();
    return problem;
  }

  void work() try {
    const CurrentFile current(path_);
    FrameWorker worker(source_, form_);
    Bytes frame;
    std::unique_lock lock(mutex_);
    while (taken_ < source_.count()) {
      const uint32_t mine = taken_++;
      room_.wait(lock, [&] { return stopping_ || mine < given_ + slots_.size(); });
      if (stopping_) return;
      lock.unlock();
      std::string problem = worker.convert(mine, frame);
      worker.free_result();
      lock.lock();
      Slot& slot = slot_of(mine);
      slot.frame.swap(frame);
      slot.problem.swap(problem);
      slot.ready = true;
      done_.notify_one();
    }
  } catch (...) {
    const std::lock_guard lock(mutex_);
    thrown_ = std::current_exception();
    done_.notify_one();
  }

  const FrameSource& source_;
  const FrameForm& form_;
  const std::string& path_;
  std::unique_ptr<FrameWorker> own_;  // where there is one thread
  std::mutex mutex_;
  std::condition_variable done_;
  std::condition_variable room_;
  std::vector<Slot> slots_;
  uint32_t taken_;
  uint32_t given_;
  bool stopping_ = false;
  std::exception_ptr thrown_;
  std::vector<std::jthread> workers_;
};

}  // namespace vexal
