#include "log_lines.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "json.h"
#include "printable.h"

namespace vexal {
namespace {

std::atomic<bool> in_json{false};
thread_local const LogContext* innermost = nullptr;

void append_member(std::string& line, std::string_view name, std::string_view value) {
  line += line.empty() ? '{' : ',';
  append_json(line, name);
  line += ':';
  append_json(line, value);
}

}  // namespace

std::string utc_now() {
  using namespace std::chrono;
  const auto now = system_clock::now().time_since_epoch();
  const std::time_t seconds = duration_cast<std::chrono::seconds>(now).count();
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[40];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03dZ",
                static_cast<int>(duration_cast<milliseconds>(now).count() % 1000));
  return text;
}

void log_in_json() {
  in_json = true;
}

void put_line(const char* level, std::string_view source, std::string_view text, bool tell_level) {
  std::string line;
  if (in_json.load(std::memory_order_relaxed)) {
    append_member(line, "time", utc_now());
    append_member(line, "level", level);
    append_member(line, "source", source);
    append_member(line, "message", text);
    for (const LogContext* at = innermost; at != nullptr; at = at->outer_)
      append_member(line, at->name_, at->value_);
    line += "}\n";
  } else {
    line = shown(source) + ": " + (tell_level ? std::string(level) + ": " : "") + shown(text) + '\n';
  }
  std::fwrite(line.data(), 1, line.size(), stderr);
}

LogContext::LogContext(const char* name, std::string value)
    : name_(name), value_(std::move(value)), outer_(innermost) {
  innermost = this;
}

LogContext::~LogContext() {
  innermost = outer_;
}

}  // namespace vexal
