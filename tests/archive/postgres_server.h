// A PostgreSQL server of the tests' own, on a socket in a temporary folder.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support.h"

namespace vexal::test {

class PostgresServer {
 public:
  // One for all tests of the process.
  static PostgresServer& get() {
    static PostgresServer server;
    return server;
  }
  bool runs() const { return runs_; }
  bool start() {
    return runs_ = control("start -l " + folder_.path("log") + " -o '-k " + folder_.path() + "'");
  }
  void stop() { control("stop -m immediate"); }
  // A database that is empty.
  std::string fresh() {
    const std::string name = "vexal" + std::to_string(++count_);
    const std::string socket = " -h " + folder_.path() + " -U vexal ";
    EXPECT_TRUE(as_other(bin_ + "/createdb" + socket + name));
    return "postgresql://vexal@/" + name + "?host=" + folder_.path();
  }

 private:
  PostgresServer() {
    std::error_code none;
    for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql", none)) {
      if (std::filesystem::exists(version.path() / "bin/initdb")) bin_ = (version.path() / "bin").string();
    }
    if (bin_.empty()) return;
    // It refuses to run as root.
    if (::geteuid() == 0) user_ = "runuser -u postgres -- ";
    if (!user_.empty() && std::system(("chown postgres " + folder_.path()).c_str()) != 0) return;
    if (!as_other(bin_ + "/initdb -N -U vexal -A trust -E UTF8 --locale=C -D " + data())) return;
    std::ofstream(data() + "/postgresql.conf", std::ios::app) << "listen_addresses = ''\nfsync = off\n";
    start();
  }
  ~PostgresServer() {
    if (runs_) stop();
  }
  std::string data() const { return folder_.path("data"); }
  bool control(const std::string& action) {
    return as_other(bin_ + "/pg_ctl -w -D " + data() + " " + action);
  }
  bool as_other(const std::string& command) {
    return std::system(("cd / && " + user_ + command + " > /dev/null 2>&1").c_str()) == 0;
  }

  support::TempFolder folder_;
  std::string bin_;
  std::string user_;
  bool runs_ = false;
  int count_ = 0;
};

// For each engine: "sqlite", "postgres".
class EngineTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (server() && !PostgresServer::get().runs())
      GTEST_SKIP() << "there is no PostgreSQL that can be started";
    address_ = server() ? PostgresServer::get().fresh() : files_.path("database");
  }
  bool server() const { return std::string(GetParam()) == "postgres"; }

  support::TempFolder files_;
  std::string address_;
};

}  // namespace vexal::test
