#include "session.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "embedded.h"
#include "log_lines.h"
#include "names.h"
#include "printable.h"
#include "settings_source.h"
#include "thrown.h"

namespace vexal {
namespace {

std::string source_text;
std::string ini_file;
bool embedded = false;
thread_local const std::string* current_file = nullptr;
thread_local bool warnings_muted = false;
thread_local bool errors_muted = false;
thread_local StreamFlaws stream_flaws;
thread_local bool values_lost = false;
thread_local LogLines* log_lines = nullptr;
bool quiet = false;
bool verbose = false;

// Lines of the library that are no news: what they tell of is looked after.
constexpr std::string_view kNoNews[] = {"Error. Planar Configuration is not 0",
                                        "There are 1 bytes more than"};

// What it calls errors but goes on after: the outcome does not depend on them, and what does is said besides.
constexpr std::string_view kRemarks[] = {"Error setting File meta storage",
                                         "Specific Character Set doesn't contain code extension"};

bool is_one_of(std::span<const std::string_view> beginnings, std::string_view message) {
  return std::any_of(beginnings.begin(), beginnings.end(),
                     [&](auto text) { return message.starts_with(text); });
}

void print_log(int type, std::string_view message) {
  constexpr int kInfo = 3;  // beyond are traces
  if (quiet || type > kInfo || (type != 1 ? warnings_muted : errors_muted)) return;
  if (is_one_of(kNoNews, message)) return;
  if (type == 1 && is_one_of(kRemarks, message)) type = 2;
  const char* level = type == 1 ? kErrorLevel : type == 2 ? kWarningLevel : kInfoLevel;
  put_line(level, current_file != nullptr ? *current_file : "vexal", message, true);
}

// The library's messages become lines on standard error. The receiver runs on the thread that logged.
void receive_log(const VX_LOG_RECORD* record) {
  const std::string_view message = record->Message;
  if (message.starts_with("Invalid format of JPEG")) stream_flaws.cut_short = true;
  if (message.starts_with("Invalid code stream")) stream_flaws.damaged = true;
  if (message.find("behind the end of the code stream") != std::string_view::npos)
    stream_flaws.goes_on = true;
  if (message.ends_with(" is duplicated") || message.starts_with("Error adding stream tag"))
    values_lost = true;
  if (log_lines != nullptr && log_lines->take(record->Type, record->FunctionName, record->Message)) return;
  print_log(record->Type, message);
}

// What the library says while it starts, before the program can tell it where to.
struct Said {
  bool error;
  std::string text;
};
std::vector<Said> said_at_start;

// The second line of a pair says what is done instead.
bool goes_on(const std::string& text) {
  return text.starts_with('|') || text.starts_with("Must be") || text.starts_with("Defaulting");
}

void note_log(const VX_LOG_RECORD* record) {
  if (record->Type > 2) return;
  const std::string text = record->Message;
  if (goes_on(text) && !said_at_start.empty()) {
    said_at_start.back().text += " " + text.substr(text.starts_with('|') ? 3 : 0);
  } else {
    said_at_start.push_back({record->Type == 1, text});
  }
}

// Warnings of the start, each with its place.
void show_warnings(const SettingPlaces& places) {
  for (const Said& said : said_at_start) {
    const std::string place = places.of_message(said.text, source_text);
    put_line(said.error ? kErrorLevel : kWarningLevel, place, said.text, true);
  }
}

// One line for a start that failed: the place, and what was wrong there.
void show_failure(const SettingPlaces& places, VX_STATUS status) {
  std::string text = VX_Error_Message(status);
  std::string place = source_text;
  for (const Said& said : said_at_start) {
    if (!said.error) continue;
    place = places.of_message(said.text, source_text);
    text += ": " + said.text;
  }
  complain("%s: %s", shown(place).c_str(), shown(text).c_str());
}

// A program for people reads what there is: odd file sizes, private attributes without or with two creators,
// decimal commas. What it hands on stays as it came.
void set_up_reading() {
  VX_Set_Bool_Config_Value(VX_CFG_ORVEN_OPEN_FILE, 1);
  VX_Set_Bool_Config_Value(VX_CFG_ALLOW_INVALID_PRIVATE_ATTRIBUTES, 1);
  VX_Set_Bool_Config_Value(VX_CFG_ALLOW_INVALID_PRIVATE_CREATOR_CODES, 1);
  VX_Set_Bool_Config_Value(VX_CFG_ALLOW_DUPLICATE_CREATOR_CODES, 1);
  VX_Set_Bool_Config_Value(VX_CFG_ALLOW_COMMA_IN_DS_FL_FD_STRINGS, 1);
  VX_Keep_Stream_Form(1);
}

void set_up_log(const Args& args) {
  // Errors go to the log file whatever the settings say, and people's folders stay clean.
  VX_Set_Bool_Config_Value(VX_CFG_BLANK_FILL_LOG_FILE, 0);
  VX_Set_Bool_Config_Value(VX_CFG_LOG_FILE_BACKUP, 0);
  VX_Set_String_Config_Value(VX_CFG_LOG_FILE, "/dev/null");
  for (VX_LOG_KEY key = 0; key < VX_LOG_KEY_COUNT; ++key) VX_Set_Log_Destination(key, VX_LOG_OFF);
  quiet = args.has("--quiet");
  verbose = args.has("--verbose");
  VX_Register_Enhanced_MemoryLog_Function(guarded<receive_log>);
  VX_Set_Log_Destination(VX_CFG_WARNING_MESSAGE, 0);
  if (verbose) VX_Set_Log_Destination(VX_CFG_INFO_MESSAGE, 0);
}

}  // namespace

Session::~Session() {
  if (started_) VX_Library_Release();
}

bool Session::start(const Args& args) {
  const std::string named = args.get("--config");
  const std::string ini = find_ini(named);
  VX_Register_Enhanced_MemoryLog_Function(guarded<note_log>);
  VX_STATUS status = VX_NORMAL_COMPLETION;
  embedded = ini.empty();
  if (embedded) {
    source_text = "built into the program (no vexal.ini on the search path)";
    status = VX_Library_Initialization(embedded_config, embedded_dictionary, nullptr);
  } else {
    source_text = ini;
    if (!named.empty()) VX_Set_VexalINI(named.c_str());
    if (named.empty() && std::getenv("VEXAL_INI") != nullptr) source_text += " (VEXAL_INI)";
    status = VX_Library_Initialization(nullptr, nullptr, nullptr);
  }
  if (!said_at_start.empty() || status != VX_NORMAL_COMPLETION) {
    SettingPlaces places;
    if (!embedded) places.read(ini);
    if (status != VX_NORMAL_COMPLETION) {
      show_failure(places, status);
      VX_Library_Release();
      return false;
    }
    if (!args.has("--quiet")) show_warnings(places);
  }
  started_ = true;
  ini_file = ini;
  set_up_reading();
  set_up_log(args);
  return true;
}

const std::string& configuration_file() {
  return ini_file;
}

const std::string& configuration_source() {
  return source_text;
}

bool is_embedded_configuration() {
  return embedded;
}

CurrentFile::CurrentFile(const std::string& path) {
  current_file = &path;
}
CurrentFile::~CurrentFile() {
  current_file = nullptr;
}

MutedWarnings::MutedWarnings(bool errors_too)
    : warnings_before_(warnings_muted), errors_before_(errors_muted) {
  warnings_muted = true;
  errors_muted = errors_muted || errors_too;
}
MutedWarnings::~MutedWarnings() {
  warnings_muted = warnings_before_;
  errors_muted = errors_before_;
}

StreamFlaws take_stream_flaws() {
  return std::exchange(stream_flaws, {});
}

bool values_were_lost() {
  return std::exchange(values_lost, false);
}

LogLines::LogLines(bool (*passes)(std::string_view function)) : passes_(passes), outer_(log_lines) {
  log_lines = this;
}
LogLines::~LogLines() {
  log_lines = outer_;
}

bool LogLines::take(int type, std::string_view function, const char* line) {
  if (passes_ == nullptr) {
    lines_.emplace_back(type, line);
  } else if (type > 2 || passes_(function)) {
    passed_ += type <= 2 ? 1 : 0;
    return false;
  }
  return !verbose;
}

const char* LogLines::behind(std::string_view words) const {
  for (const auto& [type, line] : lines_) {
    if (line.starts_with(words)) return line.c_str() + words.size();
  }
  return nullptr;
}

void LogLines::show() const {
  if (verbose) return;
  for (const auto& [type, line] : lines_) print_log(type, line);
}

void report(const std::string& path, const std::string& text) {
  put_line(kWarningLevel, path, text);
}

std::string describe_failure(VX_STATUS status, int64_t offset, uint32_t tag) {
  std::string text;
  if (offset >= 0) text += "offset " + std::to_string(offset) + " ";
  if (tag != 0) text += describe_tag(tag) + ": ";
  return text + VX_Error_Message(status);
}

}  // namespace vexal
