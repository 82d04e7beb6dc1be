#include "connection/exception_filter.h"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <iterator>

#include "config/config.h"
#include "frame/lock.h"
#include "frame/seams.h"
#include "frame/text.h"

namespace vx {

std::atomic<bool> filter_installed{false};

namespace {

constexpr uint32_t kStackOverflow = 0xC00000FD;

struct CodeName {
  uint32_t code;
  const char* name;
};
constexpr CodeName kCodeNames[] = {
    {0x80000002, "EXCEPTION_DATATYPE_MISALIGNMENT"},
    {0x80000003, "EXCEPTION_BREAKPOINT"},
    {0x80000004, "EXCEPTION_SINGLE_STEP"},
    {0xC0000005, "EXCEPTION_ACCESS_VIOLATION"},
    {0xC0000006, "EXCEPTION_IN_PAGE_ERROR"},
    {0xC000001D, "EXCEPTION_ILLEGAL_INSTRUCTION"},
    {0xC0000025, "EXCEPTION_NONCONTINUABLE_EXCEPTION"},
    {0xC0000026, "EXCEPTION_INVALID_DISPOSITION"},
    {0xC000008C, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED"},
    {0xC000008D, "EXCEPTION_FLT_DENORMAL_OPERAND"},
    {0xC000008E, "EXCEPTION_FLT_DIVIDE_BY_ZERO"},
    {0xC000008F, "EXCEPTION_FLT_INEXACT_RESULT"},
    {0xC0000090, "EXCEPTION_FLT_INVALID_OPERATION"},
    {0xC0000091, "EXCEPTION_FLT_OVERFLOW"},
    {0xC0000092, "EXCEPTION_FLT_STACK_CHECK"},
    {0xC0000093, "EXCEPTION_FLT_UNDERFLOW"},
    {0xC0000094, "EXCEPTION_INT_DIVIDE_BY_ZERO"},
    {0xC0000095, "EXCEPTION_INT_OVERFLOW"},
    {0xC0000096, "EXCEPTION_PRIV_INSTRUCTION"},
    {kStackOverflow, "EXCEPTION_STACK_OVERFLOW"},
};

struct SignalCode {
  int signal;
  int signal_code;  // 0: any
  uint32_t code;
};
constexpr SignalCode kSignalCodes[] = {
    {SIGSEGV, 0, 0xC0000005},         {SIGBUS, BUS_ADRALN, 0x80000002}, {SIGBUS, 0, 0xC0000006},
    {SIGILL, 0, 0xC000001D},          {SIGFPE, FPE_INTDIV, 0xC0000094}, {SIGFPE, FPE_INTOVF, 0xC0000095},
    {SIGFPE, FPE_FLTDIV, 0xC000008E}, {SIGFPE, FPE_FLTOVF, 0xC0000091}, {SIGFPE, FPE_FLTUND, 0xC0000093},
    {SIGFPE, FPE_FLTRES, 0xC000008F}, {SIGFPE, FPE_FLTINV, 0xC0000090}, {SIGFPE, FPE_FLTSUB, 0xC000008C},
    {SIGFPE, 0, 0xC0000090},
};

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE};
constexpr std::size_t kFaultStack = 64 * 1024;

Lock g_lock;  // installing and removing
struct sigaction g_former[std::size(kSignals)];
std::atomic<VX_EXCEPTION_HANDLER> g_handler{nullptr};
std::atomic<VX_TRANSFER_FUNCTION> g_transfer{nullptr};
std::atomic<void*> g_transfer_user{nullptr};

// --- What a signal handler may do ---

// A line in a buffer of its own: nothing here allocates or locks.
class Line {
 public:
  Line& text(const char* text) {
    while (*text != '\0' && size_ < sizeof bytes_) bytes_[size_++] = *text++;
    return *this;
  }
  Line& number(uint64_t value, unsigned base) {
    char digits[24];
    std::size_t count = 0;
    do {
      digits[count++] = kHexDigits[value % base];
      value /= base;
    } while (value != 0);
    while (count > 0 && size_ < sizeof bytes_) bytes_[size_++] = digits[--count];
    return *this;
  }
  void write() const {
    const ssize_t ignored = ::write(STDERR_FILENO, bytes_, size_);
    (void)ignored;
  }

 private:
  char bytes_[256];
  std::size_t size_ = 0;
};

uintptr_t stack_pointer(const void* context) {
  [[maybe_unused]] const auto* machine = static_cast<const ucontext_t*>(context);
#if defined(__x86_64__)
  return static_cast<uintptr_t>(machine->uc_mcontext.gregs[REG_RSP]);
#elif defined(__aarch64__)
  return static_cast<uintptr_t>(machine->uc_mcontext.sp);
#else
  return 0;
#endif
}

bool is_near_stack(uintptr_t address, uintptr_t stack) {
  constexpr uintptr_t kReach = 64 * 1024;
  return stack != 0 && address + kReach > stack && address < stack + kReach;
}

void run_former(int signal, siginfo_t* info, void* context) {
  const struct sigaction* former = nullptr;
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    if (kSignals[i] == signal) former = &g_former[i];
  }
  if ((former->sa_flags & SA_SIGINFO) != 0 && former->sa_sigaction != nullptr) {
    former->sa_sigaction(signal, info, context);
  } else if (former->sa_handler != SIG_DFL && former->sa_handler != SIG_IGN) {
    former->sa_handler(signal);
  } else {
    // The instruction faults again, or the signal comes again, and the system does what it always did.
    ::sigaction(signal, former, nullptr);
    if (info->si_code <= 0) ::raise(signal);
  }
}

void on_fault(int signal, siginfo_t* info, void* context) {
  static std::atomic<bool> reporting{false};
  // What another process sent is no fault; a fault of the handler itself is not reported again.
  if (info->si_code > 0 && !reporting.exchange(true)) {
    const auto address = reinterpret_cast<uintptr_t>(info->si_addr);
    const uint32_t code =
        exception_code(signal, info->si_code, is_near_stack(address, stack_pointer(context)));
    Line()
        .text(
            "SEVERE SYSTEM ERROR IS REPORTED BY VEXALKIT TOOLKIT. THE APPLICATION NEEDS TO BE SHUT DOWN AND "
            "TOOLKIT REINITIALIZED.\n")
        .write();
    Line()
        .text("SYSTEM EXCEPTION ")
        .number(code, 16)
        .text(" (")
        .text(exception_name(code))
        .text(") AT ADDRESS 0x")
        .number(address, 16)
        .text(", THREAD ")
        .number(static_cast<uint64_t>(::gettid()), 10)
        .text("\n")
        .write();
    const VX_EXCEPTION_HANDLER handler = g_handler.load();
    if (handler != nullptr) handler(code);
    reporting.store(false);
  }
  run_former(signal, info, context);
}

// The alternate stack of a thread, given back when it ends.
class FaultStack {
 public:
  ~FaultStack() {
    if (memory_ == nullptr) return;
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    ::sigaltstack(&none, nullptr);
    ::munmap(memory_, kFaultStack);
  }
  void provide() {
    if (asked_) return;
    asked_ = true;
    stack_t present{};
    if (::sigaltstack(nullptr, &present) == 0 && (present.ss_flags & SS_DISABLE) == 0) return;
    void* memory = ::mmap(nullptr, kFaultStack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    stack_t wanted{};
    wanted.ss_sp = memory;
    wanted.ss_size = kFaultStack;
    if (::sigaltstack(&wanted, nullptr) == 0) {
      memory_ = memory;
    } else {
      ::munmap(memory, kFaultStack);
    }
  }

 private:
  void* memory_ = nullptr;
  bool asked_ = false;
};

}  // namespace

uint32_t exception_code(int signal, int signal_code, bool near_stack) {
  if (signal == SIGSEGV && near_stack) return kStackOverflow;
  for (const SignalCode& row : kSignalCodes) {
    if (row.signal == signal && (row.signal_code == 0 || row.signal_code == signal_code)) return row.code;
  }
  return 0;
}

const char* exception_name(uint32_t code) {
  for (const CodeName& row : kCodeNames) {
    if (row.code == code) return row.name;
  }
  return "UKNOWN SYSTEM EXCEPTION";
}

void provide_fault_stack() {
  thread_local FaultStack stack;
  stack.provide();
}

VX_STATUS prepare_exception_filter() {
  const Guard guard(g_lock);
  if (!config_bool(VX_CFG_ALLOW_LIBRARY_EXCEPTION_HANDLER) || filter_installed.load()) return kOk;
  provide_fault_stack();
  struct sigaction action {};
  action.sa_sigaction = on_fault;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  ::sigemptyset(&action.sa_mask);
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    if (::sigaction(kSignals[i], &action, &g_former[i]) != 0) return VX_SYSTEM_ERROR;
  }
  filter_installed.store(true);
  return kOk;
}

VX_STATUS remove_exception_filter() {
  const Guard guard(g_lock);
  if (!filter_installed.exchange(false)) return kOk;
  VX_STATUS status = kOk;
  for (std::size_t i = 0; i < std::size(kSignals); ++i) {
    struct sigaction present {};
    // What came after ours stays.
    const bool ours = ::sigaction(kSignals[i], nullptr, &present) == 0 && present.sa_sigaction == on_fault;
    if (ours && ::sigaction(kSignals[i], &g_former[i], nullptr) != 0) status = VX_SYSTEM_ERROR;
  }
  return status;
}

VX_STATUS set_exception_handler(VX_EXCEPTION_HANDLER handler) {
  g_handler.store(handler);
  prepare_exception_filter();
  return kOk;
}

void set_transfer_function(void* user, VX_TRANSFER_FUNCTION function) {
  g_transfer_user.store(user);
  g_transfer.store(function);
}

void after_transfer(Transfer transfer, void* record) {
  const VX_TRANSFER_FUNCTION function = g_transfer.load(std::memory_order_relaxed);
  if (function == nullptr || !config_bool(VX_CFG_ALLOW_LIBRARY_EXCEPTION_HANDLER)) return;
  function(transfer, g_transfer_user.load(), record);
}

}  // namespace vx

VX_STATUS VX_Set_Library_Exception_Handler(VX_EXCEPTION_HANDLER Handler) {
  return vx::set_exception_handler(Handler);
}

VX_STATUS VX_Set_Exception(void* UserData, VX_TRANSFER_FUNCTION Function) {
  vx::set_transfer_function(UserData, Function);
  return vx::kOk;
}
