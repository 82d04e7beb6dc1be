#include "validate_set.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <span>
#include <unordered_map>

#include "base/json.h"
#include "base/names.h"
#include "base/parallel.h"
#include "base/printable.h"
#include "base/severity.h"
#include "base/tags.h"
#include "base/values.h"
#include "directories/dir.h"
#include "files/files.h"
#include "files/ordered_reader.h"
#include "set_checks.h"

namespace vexal {
namespace {

class SetRun {
 public:
  SetRun(const std::vector<std::string>& files, ValidationLevel level, bool json)
      : files_(files), level_(level), json_(json) {}

  int run(unsigned threads) {
    // By their numbers, as the path that stands for a finding must not depend on who reads first.
    std::unordered_map<std::string, std::size_t> numbers;
    for (std::size_t i = 0; i < files_.size(); ++i) numbers.emplace(files_[i], i);
    int worst = for_each_file(files_, threads, [&](const std::string& path) {
      return FileResult{"", read(path, numbers.at(path))};
    });
    std::vector<SetFinding> found = set_.findings(files_);
    for (const std::size_t directory : directories_) worst = std::max(worst, check(directory, found));
    std::stable_sort(found.begin(), found.end(),
                     [](const SetFinding& a, const SetFinding& b) { return a.file < b.file; });
    std::erase_if(found, [this](const SetFinding& one) { return one.severity >= level_; });
    print(found);
    const bool errors = counts_[0] != 0;
    return std::max<int>(worst, errors ? kFindings : kSuccess);
  }

 private:
  int read(const std::string& path, std::size_t number) {
    const CurrentFile current(path);
    DicomFile file;
    std::string out_of_order;
    if (reader_.open(file, path, out_of_order) != VX_NORMAL_COMPLETION) return fail(path, file.problem());
    if (text_of(file.id(), tags::kMediaStorageSOPClassUID) == kDirectoryClass) {
      const std::lock_guard guard(mutex_);
      directories_.push_back(number);
      return kSuccess;
    }
    SetObject object = read_set_object(file);
    if (object.instance.empty()) return fail(path, "not compared: no SOP Instance UID");
    const std::lock_guard guard(mutex_);
    ++objects_;
    set_.add(number, std::move(object));
    return kSuccess;
  }

  int fail(const std::string& path, const std::string& problem) {
    report(path, problem);
    const std::lock_guard guard(mutex_);
    ++failed_;
    return kUsage;
  }

  int check(std::size_t directory, std::vector<SetFinding>& found) {
    std::vector<std::string> faults;
    std::size_t records = 0;
    if (!directory_faults(files_[directory], false, faults, records)) return kUsage;
    for (const std::string& fault : faults)
      found.push_back(
          {directory, 0, tags::kDirectoryRecordSequence, "Directory does not fit", "", "", fault});
    return kSuccess;
  }

  void print(const std::vector<SetFinding>& found) {
    std::string out;
    for (auto first = found.begin(); first != found.end();) {
      const auto end =
          std::find_if(first, found.end(), [&](const SetFinding& one) { return one.file != first->file; });
      std::size_t counts[kLevels] = {};
      for (auto one = first; one != end; ++one) ++counts[one->severity];
      for (int i = 0; i < kLevels; ++i) counts_[i] += counts[i];
      with_errors_ += counts[0] != 0 ? 1 : 0;
      const std::span<const SetFinding> of_file(first, end);
      out += json_ ? json_of(of_file) : text_of_file(of_file, counts);
      first = end;
    }
    out += json_ ? json_summary() : text_summary();
    std::fwrite(out.data(), 1, out.size(), stdout);
  }

  static std::string path_of(const SetFinding& one) {
    return one.path.empty() ? tag_name(one.tag) : one.path;
  }

  std::string text_of_file(std::span<const SetFinding> found, const std::size_t (&counts)[kLevels]) const {
    std::string out = shown(files_[found.front().file]) + ": " + counted(counts, level_) + "\n";
    int severity = kNoSeverity;
    for (const SetFinding& one : found) {
      if (one.severity != severity) out += "  " + std::string(kPlural[one.severity]) + "\n";
      severity = one.severity;
      out += "    " + format_tag(one.tag) + " " + path_of(one);
      if (!one.value.empty()) out += " \"" + shown(one.value) + "\"";
      out += ": " + std::string(one.rule) + " [" + shown(one.reason) + "]";
      if (one.files > 1) out += " (the first of " + std::to_string(one.files) + ")";
      out += "\n";
    }
    return out;
  }

  std::string json_of(std::span<const SetFinding> found) const {
    std::string out = "{\"file\":";
    append_json(out, files_[found.front().file]);
    out += ",\"findings\":[";
    for (const SetFinding& one : found) {
      if (&one != &found.front()) out += ',';
      out += std::string("{\"severity\":\"") + kSingular[one.severity] + "\",\"tag\":\"" + tag_key(one.tag) +
             "\",\"path\":";
      append_json(out, path_of(one));
      if (!one.value.empty()) {
        out += ",\"value\":";
        append_json(out, one.value);
      }
      out += ",\"rule\":";
      append_json(out, std::string_view(one.rule));
      out += ",\"wanted\":";
      append_json(out, one.reason);
      out += ",\"files\":" + std::to_string(one.files) + "}";
    }
    return out + "]}\n";
  }

  std::string text_summary() const {
    std::string out = counted(objects_, "object", "objects") + " of " +
                      counted(set_.count(Entity::kPatient), "patient", "patients") + ", " +
                      counted(set_.count(Entity::kStudy), "study", "studies") + ", " +
                      counted(set_.count(Entity::kSeries), "series", "series") + " compared, " +
                      std::to_string(with_errors_) + " with errors: " + counted(counts_, level_);
    if (failed_ != 0) out += "; " + std::to_string(failed_) + " not compared";
    return out + "\n";
  }

  std::string json_summary() const {
    std::string out = "{\"summary\":{\"compared\":" + std::to_string(objects_) +
                      ",\"patients\":" + std::to_string(set_.count(Entity::kPatient)) +
                      ",\"studies\":" + std::to_string(set_.count(Entity::kStudy)) +
                      ",\"series\":" + std::to_string(set_.count(Entity::kSeries)) +
                      ",\"withErrors\":" + std::to_string(with_errors_) +
                      ",\"notCompared\":" + std::to_string(failed_);
    for (int i = 0; i < level_; ++i)
      out += ",\"" + std::string(kPlural[i]) + "\":" + std::to_string(counts_[i]);
    return out + "}}\n";
  }

  static constexpr int kNoSeverity = -1;
  const std::vector<std::string>& files_;
  const ValidationLevel level_;
  const bool json_;
  OrderedReader reader_;
  std::mutex mutex_;  // what the readers share
  ObjectSet set_;
  std::vector<std::size_t> directories_;
  std::size_t objects_ = 0;
  std::size_t failed_ = 0;
  std::size_t with_errors_ = 0;
  std::size_t counts_[kLevels] = {};
};

}  // namespace

int validate_set(const std::vector<std::string>& files, ValidationLevel level, bool json, unsigned threads) {
  return SetRun(files, level, json).run(threads);
}

}  // namespace vexal
