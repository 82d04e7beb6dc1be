// Faults of the process: what a child process says before it ends, and how it ends.
#include <sys/wait.h>

#include <csignal>

#include <unistd.h>
#include "connection/exception_filter.h"

#include "support.h"

namespace {

using namespace vx;

class Faults : public support::LibraryTest {
 protected:
  std::string ini_lines() override { return ""; }
  // Runs `fault` in a child with the filter on. What it wrote on its standard error, and how it ended.
  static std::string run(void (*fault)(), int& status) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      ::dup2(ends[1], STDERR_FILENO);
      for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) ::signal(signal, SIG_DFL);
      VX_Set_Bool_Config_Value(VX_CFG_ALLOW_LIBRARY_EXCEPTION_HANDLER, 1);
      VX_Set_Library_Exception_Handler([](uint32_t code) {
        if (code == 0xC0000005 && ::write(STDERR_FILENO, "handler called\n", 15) < 0) ::_exit(9);
      });
      fault();
      ::_exit(0);
    }
    ::close(ends[1]);
    std::string text;
    char block[512];
    for (ssize_t got; (got = ::read(ends[0], block, sizeof block)) > 0;)
      text.append(block, static_cast<std::size_t>(got));
    ::close(ends[0]);
    ::waitpid(child, &status, 0);
    return text;
  }
};

[[gnu::no_sanitize("undefined", "address")]] void write_to_null() {
  *static_cast<volatile int*>(nullptr) = 1;
}

int overflow(int depth) {
  volatile char block[4096];
  block[0] = static_cast<char>(depth);
  return depth < 0 ? block[0] : overflow(depth + 1) + block[0];
}

TEST_F(Faults, AreReportedAndEndTheProcessAsBefore) {
  int status = 0;
  std::string text = run(write_to_null, status);
  EXPECT_NE(text.find("SEVERE SYSTEM ERROR"), std::string::npos);
  EXPECT_NE(text.find("SYSTEM EXCEPTION C0000005 (EXCEPTION_ACCESS_VIOLATION) AT ADDRESS 0x0"),
            std::string::npos);
  EXPECT_NE(text.find("handler called"), std::string::npos);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV);

  text = run([] { overflow(1); }, status);
  EXPECT_NE(text.find("C00000FD (EXCEPTION_STACK_OVERFLOW)"), std::string::npos);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV);

  // A signal that somebody sent is none of the library's.
  text = run([] { ::raise(SIGFPE); }, status);
  EXPECT_EQ(text, "");
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGFPE);
}

TEST_F(Faults, TheFilterIsThereOnlyWhenItIsAskedFor) {
  const auto handler = [] {
    struct sigaction now {};
    ::sigaction(SIGILL, nullptr, &now);
    return now.sa_handler;
  };
  const auto before = handler();
  VX_Set_Library_Exception_Handler(nullptr);
  EXPECT_EQ(handler(), before);
  set_bool(VX_CFG_ALLOW_LIBRARY_EXCEPTION_HANDLER, true);
  VX_Set_Library_Exception_Handler(nullptr);
  EXPECT_NE(handler(), before);
  VX_Library_Release();
  EXPECT_EQ(handler(), before);
}

}  // namespace
