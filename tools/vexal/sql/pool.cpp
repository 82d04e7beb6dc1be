#include "pool.h"

namespace vexal {

// A connection that is lent to one thread.
class DatabasePool::Lease {
 public:
  explicit Lease(DatabasePool& pool) : pool_(pool) {
    {
      std::unique_lock lock(pool.mutex_);
      pool.returned_.wait(lock, [&] { return pool.lent_ < pool.most_; });
      ++pool.lent_;
      if (!pool.idle_.empty()) {
        database_ = std::move(pool.idle_.back());
        pool.idle_.pop_back();
      }
    }
    try {
      if (database_ == nullptr) opened_ = Database::open(pool.address_, pool.options_, database_);
    } catch (...) {
      give_back();
      throw;
    }
  }
  ~Lease() { give_back(); }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;
  Database* get() const { return database_.get(); }
  const SqlOutcome& opened() const { return opened_; }

 private:
  void give_back() {
    const std::lock_guard lock(pool_.mutex_);
    --pool_.lent_;
    if (database_ != nullptr) pool_.idle_.push_back(std::move(database_));  // there is room: see open()
    pool_.returned_.notify_one();
  }

  DatabasePool& pool_;
  std::unique_ptr<Database> database_;
  SqlOutcome opened_;
};

SqlOutcome DatabasePool::open(const std::string& address, const DatabaseOptions& options, std::size_t most) {
  address_ = address;
  options_ = options;
  most_ = most;
  idle_.reserve(most);
  return read([](Database&) { return SqlOutcome(); });
}

void DatabasePool::close() {
  const std::lock_guard lock(mutex_);
  idle_.clear();
}

SqlOutcome DatabasePool::read(const std::function<SqlOutcome(Database&)>& work) {
  const Lease lease(*this);
  return lease.get() != nullptr ? work(*lease.get()) : lease.opened();
}

SqlOutcome DatabasePool::write(const std::function<SqlOutcome(Database&)>& work) {
  std::unique_lock turn(writing_, std::defer_lock);
  if (!is_server()) turn.lock();  // a turn costs less than finding the file locked
  return read([&](Database& database) { return database.transact([&] { return work(database); }); });
}

}  // namespace vexal
