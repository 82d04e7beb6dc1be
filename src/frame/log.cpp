#include "frame/log.h"

#include <sys/time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string_view>

#include "frame/limits.h"
#include "frame/lock.h"
#include "frame/log_file.h"
#include "frame/named_locks.h"
#include "frame/state.h"
#include "frame/text.h"

namespace vx {
namespace {

constexpr int kFileFailed = 2;
constexpr int kNoText = 4;
constexpr int kNoConfiguration = 7;
constexpr int kNoMemory = 8;

constexpr std::size_t kMostLine = 356;  // characters of a whole line
constexpr std::size_t kRingLine = 256;  // bytes of a line in the ring
constexpr std::size_t kMostPrefix = 10;
constexpr std::size_t kIndent = 15;  // blanks before the later pieces of a line

struct Level {
  uint32_t mask;
  int32_t key;
  const char* word;
  int32_t severity;
  int32_t type;
};

constexpr Level kLevels[] = {
    {VX_LOG_ERROR, VX_CFG_ERROR_MESSAGE, "E", 1, 1}, {VX_LOG_WARNING, VX_CFG_WARNING_MESSAGE, "W", 2, 2},
    {VX_LOG_INFO, VX_CFG_INFO_MESSAGE, "I", 3, 3},   {VX_LOG_T1, VX_CFG_T1_MESSAGE, "T1", 4, 5},
    {VX_LOG_T2, VX_CFG_T2_MESSAGE, "T2", 4, 6},      {VX_LOG_T3, VX_CFG_T3_MESSAGE, "T3", 4, 7},
    {VX_LOG_T4, VX_CFG_T4_MESSAGE, "T4", 4, 8},      {VX_LOG_T5, VX_CFG_T5_MESSAGE, "T5", 4, 9},
    {VX_LOG_T6, VX_CFG_T6_MESSAGE, "T6", 4, 10},     {VX_LOG_T7, VX_CFG_T7_MESSAGE, "T7", 4, 11},
    {VX_LOG_T8, VX_CFG_T8_MESSAGE, "T8", 4, 12},     {VX_LOG_T9, VX_CFG_T9_MESSAGE, "T9", 4, 13},
};
constexpr Level kUnknownLevel = {0, VX_CFG_ERROR_MESSAGE, "UNKN_TYPE", 4, 14};

const Level& find_level(uint32_t mask) {
  for (const Level& level : kLevels) {
    if (level.mask == mask) return level;
  }
  return kUnknownLevel;
}

struct Ring {
  char (*lines)[kRingLine];
  std::size_t capacity;
  std::size_t oldest;
  std::size_t count;
};

LogSettings g_settings;
constinit Lock g_lock;  // logSemaphore: the file, the ring and the prefix
constinit LogFile g_file;
Ring g_ring;
char g_prefix[kMostPrefix + 1];
std::atomic<VX_LOG_FUNCTION> g_function{nullptr};
std::atomic<VX_ENHANCED_LOG_FUNCTION> g_enhanced{nullptr};
std::atomic<bool> g_starting{false};

// While the library starts, a receiver that was named before gets what there is to say, and no file or
// screen: an application that shows messages its own way could not say so earlier.
bool only_to_receivers() {
  return g_starting.load(std::memory_order_relaxed) &&
         (g_enhanced.load(std::memory_order_relaxed) != nullptr ||
          g_function.load(std::memory_order_relaxed) != nullptr);
}

uint32_t destination_of(const Level& level) {
  const uint32_t bits = g_settings.destinations[level.key].load(std::memory_order_relaxed);
  return level.key == VX_CFG_ERROR_MESSAGE ? (bits & ~uint32_t{VX_LOG_OFF}) | VX_LOG_TO_FILE : bits;
}

bool is_off(const Level& level) {
  if ((level.mask & (VX_LOG_ERROR | VX_LOG_WARNING)) != 0 && only_to_receivers()) return false;
  return (destination_of(level) & VX_LOG_OFF) != 0;
}

LogFileLayout layout() {
  constexpr int32_t kMostLines = 30720;
  const int32_t lines = g_settings.file_lines.load(std::memory_order_relaxed);
  return {std::clamp(g_settings.line_length.load(std::memory_order_relaxed), kShortestRecord, kLongestRecord),
          lines < 1 ? 100 : std::min(lines, kMostLines), g_settings.history.load(std::memory_order_relaxed),
          g_settings.backup.load(std::memory_order_relaxed), g_settings.fill.load(std::memory_order_relaxed)};
}

// ---- Pieces of a line ----

// Calls use(piece) for each piece of a line that fits a record; stops at the first false.
template <typename Use>
bool for_each_piece(std::string_view text, std::size_t length, Use use) {
  char piece[kLongestRecord + 1];
  std::size_t indent = 0;
  do {
    // A record of the shortest length has no room behind the indent but for its last character.
    const std::size_t room = std::max<std::size_t>(length - 1, indent + 1);
    const std::size_t taken = std::min(text.size(), room - indent);
    std::memset(piece, ' ', indent);
    std::memcpy(piece + indent, text.data(), taken);
    std::size_t size = indent + taken;
    if (indent + text.size() >= length) {
      const std::size_t blank = std::string_view(piece, size).rfind(' ');
      if (blank != std::string_view::npos && blank > (indent == 0 ? 1 : indent)) size = blank;
    }
    if (!use(std::string_view(piece, size))) return false;
    text = text.substr(std::min(size - indent, text.size()));
    if (!text.empty() && text[0] == ' ') text = trim_left(text);
    indent = kIndent;
  } while (!text.empty());
  return true;
}

bool write_pieces(std::string_view text, uint32_t destination) {
  if ((destination & (VX_LOG_TO_FILE | VX_LOG_TO_SCREEN)) == 0 || text.empty()) return true;
  const LogFileLayout shape = layout();
  return for_each_piece(text, static_cast<std::size_t>(shape.line_length), [&](std::string_view piece) {
    if ((destination & VX_LOG_TO_SCREEN) != 0) {
      std::printf("%.*s\n", static_cast<int>(piece.size()), piece.data());
    }
    if ((destination & VX_LOG_TO_FILE) == 0) return true;
    const Guard guard(g_lock);
    return g_file.write(piece, shape);
  });
}

// ---- The ring ----

// Gives the ring its size; lines that it holds stay as far as they fit. The lock is held.
bool size_ring(std::size_t capacity) {
  if (g_ring.capacity == capacity) return true;
  auto* lines = static_cast<char(*)[kRingLine]>(std::calloc(capacity, kRingLine));
  if (lines == nullptr) return false;
  const std::size_t kept = std::min(g_ring.count, capacity);
  for (std::size_t i = 0; i < kept; ++i) {
    const std::size_t from = (g_ring.oldest + g_ring.count - kept + i) % g_ring.capacity;
    std::memcpy(lines[i], g_ring.lines[from], kRingLine);
  }
  std::free(g_ring.lines);
  g_ring = Ring{lines, capacity, 0, kept};
  return true;
}

int write_to_ring(std::string_view line) {
  const int32_t wanted = g_settings.memory_lines.load(std::memory_order_relaxed);
  const Guard guard(g_lock);
  if (!size_ring(static_cast<std::size_t>(std::max(wanted, 1)))) {
    const LogFileLayout shape = layout();
    const auto write = [&shape](std::string_view piece) { return g_file.write(piece, shape); };
    const auto length = static_cast<std::size_t>(shape.line_length);
    for_each_piece("!!!!! UNABLE TO ACQUIRE MEMORY FOR LOG !!!", length, write);
    for_each_piece(line, length, write);
    return kNoMemory;
  }
  const std::size_t at = (g_ring.oldest + g_ring.count) % g_ring.capacity;
  if (g_ring.count < g_ring.capacity) {
    ++g_ring.count;
  } else {
    g_ring.oldest = (g_ring.oldest + 1) % g_ring.capacity;
  }
  copy_text(g_ring.lines[at], kRingLine, line);
  return 0;
}

// ---- A line ----

// A line under construction; what does not fit is left out.
class LineText {
 public:
  void add(std::string_view part) {
    const std::size_t taken = std::min(part.size(), kMostLine - size_);
    std::memcpy(text_ + size_, part.data(), taken);
    size_ += taken;
    text_[size_] = '\0';
  }
  std::string_view text() const { return {text_, size_}; }
  const char* c_str() const { return text_; }

 private:
  char text_[kMostLine + 1] = {};
  std::size_t size_ = 0;
};

struct Stamp {
  tm parts;
  int32_t hundredths;
  char text[24];
};

Stamp stamp_now() {
  Stamp stamp{};
  timeval now{};
  gettimeofday(&now, nullptr);
  localtime_r(&now.tv_sec, &stamp.parts);
  stamp.hundredths = static_cast<int32_t>(now.tv_usec / 10000);
  std::strftime(stamp.text, sizeof stamp.text, "%m-%d %H:%M:%S", &stamp.parts);
  return stamp;
}

void copy_printable(char* out, std::string_view text) {
  for (const char c : text) {
    if (c >= 0x20 && c < 0x7F) *out++ = c;
  }
  *out = '\0';
}

void call_enhanced(VX_ENHANCED_LOG_FUNCTION receiver, const Level& level, const Stamp& stamp,
                   const char* prefix, const char* function, const char* message) {
  char thread[16];
  std::snprintf(thread, sizeof thread, "%u", current_thread_number());
  const VX_LOG_RECORD record = {level.type,
                                stamp.parts.tm_hour,
                                stamp.parts.tm_min,
                                stamp.parts.tm_sec,
                                stamp.hundredths,
                                stamp.parts.tm_mday,
                                stamp.parts.tm_mon,
                                stamp.parts.tm_year,
                                level.word,
                                prefix,
                                thread,
                                stamp.text,
                                function != nullptr ? function : "",
                                message};
  receiver(&record);
}

// `message` has at most kMostLine characters.
int write_line(const Level& level, const char* function, std::string_view message, bool raw) {
  char prefix[kMostPrefix + 1];
  {
    const Guard guard(g_lock);
    std::memcpy(prefix, g_prefix, sizeof prefix);
  }
  char thread[16];
  std::snprintf(thread, sizeof thread, "(%u) ", current_thread_number());
  const Stamp stamp = stamp_now();
  char text[kMostLine + 1];
  LineText line;
  line.add(prefix);
  line.add(thread);
  if (raw) {
    copy_text(text, sizeof text, message);
    line.add(" ");
  } else {
    copy_printable(text, message);
    char fraction[16];
    std::snprintf(fraction, sizeof fraction, ".%02u VX3", static_cast<unsigned>(stamp.hundredths));
    line.add(stamp.text);
    line.add(fraction);
    if (function != nullptr && *function != '\0') {
      line.add("(");
      line.add(function);
      line.add(")");
    }
    line.add(" ");
    line.add(level.word);
    line.add(": ");
  }
  line.add(text);
  const uint32_t destination = only_to_receivers() ? 0 : destination_of(level);
  if (!write_pieces(line.text(), destination)) return kFileFailed;
  if (auto* enhanced = g_enhanced.load(std::memory_order_acquire); enhanced != nullptr) {
    call_enhanced(enhanced, level, stamp, prefix, function, text);
  }
  if (auto* receiver = g_function.load(std::memory_order_acquire); receiver != nullptr) {
    receiver(level.severity, line.c_str());
  }
  return (destination & VX_LOG_TO_MEMORY) != 0 ? write_to_ring(line.text()) : 0;
}

bool configured() {
  return only_to_receivers() || ConfigState.load(std::memory_order_acquire) == kConfigMark;
}

}  // namespace

LogSettings& log_settings() {
  return g_settings;
}

const Lock& log_lock() {
  return g_lock;
}

void log_set_file(const char* path) {
  const Guard guard(g_lock);
  g_file.set_path(path);
}

bool log_file_started() {
  const Guard guard(g_lock);
  return g_file.started();
}

bool log_enabled(uint32_t level) {
  return !is_off(find_level(level));
}

int log_line(uint32_t level, const char* function, const char* format, ...) {
  va_list values;
  va_start(values, format);
  const int result = log_line_v(level, function, format, values);
  va_end(values);
  return result;
}

int log_line_v(uint32_t level, const char* function, const char* format, va_list values) {
  if (format == nullptr || *format == '\0') return kNoText;
  if (!configured()) return kNoConfiguration;
  const Level& row = find_level(level);
  if (is_off(row)) return 0;
  char buffer[kLogFormatBuffer];
  if (std::vsnprintf(buffer, sizeof buffer, format, values) < 0) return kNoText;
  std::string_view message(buffer);
  if (message.size() > kMaxLogText) {
    log_line(VX_LOG_WARNING, function != nullptr ? "VXlog_Function" : "VXlog",
             "NEXT LOG MESSAGE WAS TRUNCATED");
    message = message.substr(0, kMaxLogText - 1);
  }
  return write_line(row, function, message, false);
}

int log_raw(uint32_t level, const char* text) {
  if (text == nullptr) return kNoText;
  if (!configured()) return kNoConfiguration;
  const Level& row = find_level(level);
  if (is_off(row)) return 0;
  return write_line(row, nullptr, std::string_view(text, strnlen(text, kMostLine)), true);
}

const char* log_set_prefix(const char* prefix) {
  const Guard guard(g_lock);
  std::string_view text = prefix != nullptr ? prefix : "";
  text.remove_prefix(std::min(text.find_first_not_of(" \t\n\r"), text.size()));
  copy_text(g_prefix, sizeof g_prefix, text);
  return g_prefix;
}

void log_register(VX_LOG_FUNCTION function) {
  g_function.store(function, std::memory_order_release);
}

void log_register_enhanced(VX_ENHANCED_LOG_FUNCTION function) {
  g_enhanced.store(function, std::memory_order_release);
}

VX_STATUS log_memory_to_function(bool clear, VX_MEMORY_LOG_READER reader) {
  // The reader may log, so it gets a copy of the ring.
  std::unique_ptr<char[]> lines;
  std::size_t count = 0;
  {
    const Guard guard(g_lock);
    count = g_ring.count;
    if (count == 0) return VX_LOG_EMPTY;
    lines.reset(new (std::nothrow) char[count * kRingLine]);
    if (lines == nullptr) return VX_SYSTEM_ERROR;
    for (std::size_t i = 0; i < count; ++i) {
      std::memcpy(&lines[i * kRingLine], g_ring.lines[(g_ring.oldest + i) % g_ring.capacity], kRingLine);
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (reader(&lines[i * kRingLine], i == 0 ? 1 : 0, i + 1 == count ? 1 : 0) != 1) {
      return VX_CALLBACK_CANNOT_COMPLY;
    }
  }
  if (clear) {
    const Guard guard(g_lock);
    g_ring.oldest = 0;
    g_ring.count = 0;
  }
  return kOk;
}

void log_starting(bool starting) {
  g_starting.store(starting, std::memory_order_relaxed);
}

void log_forget_receivers() {
  g_function.store(nullptr, std::memory_order_release);
  g_enhanced.store(nullptr, std::memory_order_release);
}

void log_close() {
  const Guard guard(g_lock);
  g_file.close();
  g_file.restart();
  std::free(g_ring.lines);
  g_ring = Ring{};
}

}  // namespace vx
