// What other nodes are still to be told: requests that wait in a database until they are taken.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sql/pool.h"

namespace vexal {

// A request of a normalized service.
struct Parcel {
  std::string node;  // title
  std::string sop_class;
  std::string instance;
  uint16_t command = 0;
  uint16_t event = 0;    // of an event report
  std::string data_set;  // explicit little endian
};

struct Delivery {
  enum class Result {
    Taken,
    Later,  // the node is away, or can not now: it is tried again
    Never   // the node will not have it
  };
  Result result = Result::Later;
  std::string problem;
};

// Any number of threads and, on one database, of processes may use it at once: each parcel is delivered at
// least once, those for one node in the order in which they came.
class Outbox {
 public:
  using Deliver = std::function<Delivery(const Parcel& parcel)>;

  Outbox() = default;
  ~Outbox();
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;

  // A file of SQLite, or an address of PostgreSQL. An error text, empty on success.
  std::string open(const std::string& database, mode_t mode);
  // From here on a thread for each node hands on what waits for it, by way of `deliver`, until stop().
  void start(const std::vector<std::string>& nodes, Deliver deliver);
  void stop();

  // A parcel that waits stays whatever becomes of the process. With `number`, it is held back for a minute,
  // and that is what finish() wants. An error text, empty on success.
  std::string add(const Parcel& parcel, int64_t* number = nullptr);
  // A parcel that was held back has been taken, or goes the usual way.
  void finish(int64_t number, bool taken);

 private:
  struct Waiting {
    int64_t number = 0;
    int64_t due = 0;  // milliseconds since 1970
    int64_t attempts = 0;
    int64_t made = 0;
    Parcel parcel;
  };
  void run(const std::string& node);
  // The oldest parcel of a node; `number` is 0 where there is none.
  SqlOutcome oldest(const std::string& node, Waiting& waiting);
  // True if it is this process's to deliver for a while.
  SqlOutcome claim(Waiting& waiting, bool& mine);
  SqlOutcome settle(const Waiting& waiting, const Delivery& delivery);
  // Tries to deliver what is next; how long to wait before the next look.
  std::chrono::milliseconds turn(const std::string& node);

  DatabasePool pool_;
  Deliver deliver_;
  std::mutex mutex_;
  std::condition_variable changed_;
  uint64_t added_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace vexal
