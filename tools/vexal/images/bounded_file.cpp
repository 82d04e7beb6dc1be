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
VX_STATUS open_within(uint32_t parts, DicomFile& file, const std::string& path) {
  VX_Limit_Decoder(parts);
  const VX_STATUS status = file.open(path, {});
  VX_Limit_Decoder(0);
  return status;
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
  HeadScan scan;
  problem = scan_file(path, {}, scan, kMostInflated);
  if (!problem.empty()) return VX_VALUE_TOO_LARGE;
  VX_STATUS status = VX_NORMAL_COMPLETION;
  {
    const MutedWarnings once(true);
    status = open_within(kFewParts, file, path);
  }
  if (status != VX_NORMAL_COMPLETION) {
    has_turn_ = turns.try_acquire_for(kPatience);
    if (!has_turn_) problem = "others of many parts are being converted";
    if (!has_turn_) return VX_CANNOT_COMPLY;
    status = open_within(kMostParts, file, path);
  }
  if (status != VX_NORMAL_COMPLETION) problem = file.problem();
  return status;
}

}  // namespace vexal
