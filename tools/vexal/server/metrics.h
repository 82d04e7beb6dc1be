// What a server counts of its work, for those who watch it.
#pragma once

#include <cstdint>
#include <string>

namespace vexal {

enum class Metric {
  AssociationsAccepted,
  AssociationsRejected,
  AssociationsOpen,
  ObjectsStored,
  ObjectsRepeated,
  ObjectsReplaced,
  ObjectsKept,
  ObjectsRefused,
  ObjectsFailed,
  BytesReceived,
  Queries,
  Answers,
  ObjectsSent,
  ObjectsNotSent,
  WebRequests,
  WebRefusals,
  WebFaults,
  Count_
};

// Any thread may call these at any time.
void count(Metric metric, int64_t by = 1);
// All of them in the text format of Prometheus, version 0.0.4, with the time of the start.
std::string metrics_text();

// Counts one while it lives.
class Counted {
 public:
  explicit Counted(Metric metric) : metric_(metric) { count(metric_, 1); }
  ~Counted() { count(metric_, -1); }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  Metric metric_;
};

}  // namespace vexal
