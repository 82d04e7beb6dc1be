// Lines on standard error: for people, or as JSON for what collects the logs of servers.
#pragma once

#include <string>
#include <string_view>

namespace vexal {

// Words of the levels in JSON lines.
inline constexpr char kErrorLevel[] = "error";
inline constexpr char kWarningLevel[] = "warning";
inline constexpr char kInfoLevel[] = "info";

// From here on lines are JSON, an object each: "time" (UTC), "level", "source", "message", and what the
// LogContexts of the thread add.
void log_in_json();

// One line. For people: "SOURCE: TEXT", or with `tell_level` "SOURCE: LEVEL: TEXT"; what is in it steers no
// terminal. Lines of several threads stay whole.
void put_line(const char* level, std::string_view source, std::string_view text, bool tell_level = false);

// While it lives, JSON lines of this thread have one more member, which tells what they belong to.
class LogContext {
 public:
  LogContext(const char* name, std::string value);
  ~LogContext();
  LogContext(const LogContext&) = delete;
  LogContext& operator=(const LogContext&) = delete;

 private:
  friend void put_line(const char* level, std::string_view source, std::string_view text, bool tell_level);
  const char* name_;
  std::string value_;
  const LogContext* outer_;
};

// "2026-01-31T23:59:59.123Z" of now, as RFC 3339 has it.
std::string utc_now();

}  // namespace vexal
