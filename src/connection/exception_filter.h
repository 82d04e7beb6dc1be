// What is done when the process faults while ALLOW_LIBRARY_EXCEPTION_HANDLER is on: a line on the standard
// error, the application's handler, the former action of the signal.
#pragma once

#include <atomic>
#include <cstdint>

#include "frame/status.h"

namespace vx {

VX_STATUS set_exception_handler(VX_EXCEPTION_HANDLER handler);
void set_transfer_function(void* user, VX_TRANSFER_FUNCTION function);

// A thread that is about to enter the network gets a stack for the handler, so that an overflow of its own is
// reported as well.
extern std::atomic<bool> filter_installed;
void provide_fault_stack();
inline void before_transfer() {
  if (filter_installed.load(std::memory_order_relaxed)) provide_fault_stack();
}

enum Transfer : int32_t { kWritten = 3, kRead = 4 };
// Tells the application of a transfer of PDVs. Cheap unless it asked for it.
void after_transfer(Transfer transfer, void* record);

// The code and the name of a fault, as handlers know them.
uint32_t exception_code(int signal, int signal_code, bool near_stack);
const char* exception_name(uint32_t code);

}  // namespace vx
