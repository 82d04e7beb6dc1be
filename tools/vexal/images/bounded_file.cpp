#include "bounded_file.h"

#include <chrono>
#include <semaphore>

#include "base/session.h"
#include "files/head_scan.h"
#include "recode.h"

namespace vexal {
namespace {

// Parts as VX_Limit_Decoder counts them: usual objects have some hundred, and some megabytes of them at most.
constexpr uint32_t kFewParts = 4000;
constexpr uint32_t kMostParts = 100000;
constexpr std::ptrdiff_t kTurns = 2;
constexpr std::chrono::seconds kPatience(30);
constexpr int32_t kLargeValue = 1 << 20;  // goes to a file
constexpr uint64_t kMostInflated = 256U << 20;

std::counting_semaphore<kTurns> turns(kTurns);

// The limit holds for what this thread decodes meanwhile.
template <typename Work>
auto within(uint32_t parts, const Work& work) {
  VX_Limit_Decoder(parts);
  auto result = work();
  VX_Limit_Decoder(0);
  return result;
}

}  // namespace

void prepare_bounded_files() {
  prepare_recoding();
  VX_Set_Int_Config_Value(VX_CFG_LARGE_DATA_SIZE, kLargeValue);
}

BoundedFile::~BoundedFile() {
  if (has_turn_) turns.release();
}

VX_STATUS BoundedFile::open(DicomFile& file, const std::string& path, std::string& problem) {
  VX_STATUS status = VX_VALUE_TOO_LARGE;
  problem = open(path, [&]() -> std::string {
    status = file.open(path, {});
    return status == VX_NORMAL_COMPLETION ? "" : file.problem();
  });
  return problem.empty() || status != VX_NORMAL_COMPLETION ? status : VX_CANNOT_COMPLY;
}

std::string BoundedFile::open(const std::string& path, const std::function<std::string()>& work) {
  HeadScan scan;
  std::string problem = scan_file(path, {}, scan, kMostInflated);
  if (!problem.empty()) return problem;
  {
    const MutedWarnings once(true);
    problem = within(kFewParts, work);
  }
  if (problem.empty()) return "";
  has_turn_ = turns.try_acquire_for(kPatience);
  return has_turn_ ? within(kMostParts, work) : "others of many parts are being converted";
}

}  // namespace vexal
