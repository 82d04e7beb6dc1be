// Connections to one database for any number of threads.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "database.h"

namespace vexal {

// Any number of threads may call all of it at once.
class DatabasePool {
 public:
  // Opens the first connection. `most`: open at once; further threads wait for one.
  SqlOutcome open(const std::string& address, const DatabaseOptions& options, std::size_t most = 8);
  void close();
  const std::string& address() const { return address_; }
  bool is_server() const { return Database::is_server(address_); }

  // Runs `work` with a connection of its own, for reading: what it changes is not put in order with others.
  SqlOutcome read(const std::function<SqlOutcome(Database&)>& work);
  // Runs `work` in a transaction, see Database::transact. Of SQLite one at a time, in the order of arrival
  // as the system has it.
  SqlOutcome write(const std::function<SqlOutcome(Database&)>& work);

 private:
  class Lease;
  std::string address_;
  DatabaseOptions options_;
  std::size_t most_ = 0;
  std::mutex writing_;
  std::mutex mutex_;
  std::condition_variable returned_;
  std::size_t lent_ = 0;
  std::vector<std::unique_ptr<Database>> idle_;
};

}  // namespace vexal
