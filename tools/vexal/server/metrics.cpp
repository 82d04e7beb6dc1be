#include "metrics.h"

#include <array>
#include <atomic>
#include <ctime>
#include <string_view>

namespace vexal {
namespace {

constexpr std::size_t kCount = static_cast<std::size_t>(Metric::Count_);

// In the order of the enumeration; rows of one name follow each other.
struct Row {
  std::string_view name;
  std::string_view labels;
  std::string_view help;
  bool gauge = false;
};
constexpr Row kRows[] = {
    {"vexal_associations_total", "result=\"accepted\"", "Associations that were asked for"},
    {"vexal_associations_total", "result=\"rejected\"", ""},
    {"vexal_associations_open", "", "Associations that are served now", true},
    {"vexal_objects_received_total", "outcome=\"stored\"", "Objects that came, by what became of them"},
    {"vexal_objects_received_total", "outcome=\"repeated\"", ""},
    {"vexal_objects_received_total", "outcome=\"replaced\"", ""},
    {"vexal_objects_received_total", "outcome=\"kept\"", ""},
    {"vexal_objects_received_total", "outcome=\"refused\"", ""},
    {"vexal_objects_received_total", "outcome=\"failed\"", ""},
    {"vexal_bytes_received_total", "", "Bytes of data sets that came"},
    {"vexal_queries_total", "", "Queries of archive and worklist by DIMSE"},
    {"vexal_query_answers_total", "", "Answers to these"},
    {"vexal_objects_sent_total", "result=\"sent\"", "Objects that went out by DIMSE"},
    {"vexal_objects_sent_total", "result=\"failed\"", ""},
    {"vexal_web_requests_total", "result=\"done\"", "Requests of web services, by the class of their status"},
    {"vexal_web_requests_total", "result=\"refused\"", ""},
    {"vexal_web_requests_total", "result=\"failed\"", ""},
};
static_assert(std::size(kRows) == kCount);

std::array<std::atomic<int64_t>, kCount> values;
const std::time_t start = std::time(nullptr);

void append_head(std::string& text, std::string_view name, std::string_view help, bool gauge) {
  ((((text += "# HELP ") += name) += ' ') += help) += '\n';
  ((((text += "# TYPE ") += name) += ' ') += gauge ? "gauge" : "counter") += '\n';
}

}  // namespace

void count(Metric metric, int64_t by) {
  values[static_cast<std::size_t>(metric)].fetch_add(by, std::memory_order_relaxed);
}

std::string metrics_text() {
  std::string text;
  std::string_view name;
  for (std::size_t i = 0; i < kCount; ++i) {
    const Row& row = kRows[i];
    if (row.name != name) append_head(text, row.name, row.help, row.gauge);
    name = row.name;
    text += row.name;
    if (!row.labels.empty()) ((text += '{') += row.labels) += '}';
    text += ' ' + std::to_string(values[i].load(std::memory_order_relaxed)) + '\n';
  }
  append_head(text, "process_start_time_seconds", "When the program started, in seconds since 1970", true);
  return text + "process_start_time_seconds " + std::to_string(start) + '\n';
}

}  // namespace vexal
