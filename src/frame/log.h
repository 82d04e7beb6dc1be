// The logger. Levels are the VX_LOG_ bits of the public header.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "frame/status.h"

namespace vx {

// What the logger needs of the configuration; the configuration pushes each change.
struct LogSettings {
  std::atomic<uint32_t> destinations[VX_LOG_KEY_COUNT];  // by VX_LOG_KEY
  std::atomic<int32_t> line_length;
  std::atomic<int32_t> file_lines;
  std::atomic<int32_t> memory_lines;
  std::atomic<int32_t> history;
  std::atomic<bool> backup;
  std::atomic<bool> fill;
};
LogSettings& log_settings();
// Names the log file; another name closes the open file, and the next line starts the new one.
void log_set_file(const char* path);
// True once a line went to the log file, so that the record length is fixed.
bool log_file_started();

// Results: 0, or 2, 4, 7, 8 as VXlog. `function` may be null.
int log_line(uint32_t level, const char* function, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
int log_line_v(uint32_t level, const char* function, const char* format, va_list values);
// A line with only prefix and thread before it, its characters as they are.
int log_raw(uint32_t level, const char* text);
// True unless the level's destination has the off bit; errors are never off. Use it before work for a trace.
bool log_enabled(uint32_t level);

#define VX_LOG_ERR(function, ...) ::vx::log_line(VX_LOG_ERROR, function, __VA_ARGS__)
#define VX_LOG_WARN(function, ...) ::vx::log_line(VX_LOG_WARNING, function, __VA_ARGS__)
#define VX_LOG_INF(function, ...) ::vx::log_line(VX_LOG_INFO, function, __VA_ARGS__)

const char* log_set_prefix(const char* prefix);
void log_register(VX_LOG_FUNCTION function);
void log_register_enhanced(VX_ENHANCED_LOG_FUNCTION function);
VX_STATUS log_memory_to_function(bool clear, VX_MEMORY_LOG_READER reader);

// The trace of a PDU at T9: `pdv` may be null. Result as VXlog.
int log_pdu(const uint8_t* pdu, uint32_t pdu_size, const uint8_t* pdv, uint32_t pdv_size, bool received);

void log_starting(bool starting);  // from the begin of an initialisation to its end
void log_forget_receivers();
void log_close();  // closes the file and frees the ring

}  // namespace vx
