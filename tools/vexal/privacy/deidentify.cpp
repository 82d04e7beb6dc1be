// vexal deidentify: files without what identifies the patient.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <set>

#include "base/commands.h"
#include "base/json.h"
#include "base/parallel.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "deidentifier.h"
#include "directories/dir.h"
#include "files/file_set.h"
#include "images/recode.h"

namespace vexal {
namespace {

namespace fs = std::filesystem;

constexpr Option kOptions[] = {
    {"-o", "FOLDER", "where the new files go; it is made"},
    VEXAL_DEIDENTIFY_OPTIONS,
    {"--report", "FILE", "write a JSON line for each change: file, path, action"},
    {"--report-values", nullptr, "with the old names and values: the report then identifies"},
    {"--threads", "N", "files worked on at once (default: the processors)"},
};

bool is_directory_name(const fs::path& path) {
  return upper(path.filename().string()) == "DICOMDIR";
}

// The results must not take the place of the input, nor become the input of the next run. Of a canonical
// folder.
bool lies_in(const fs::path& folder, const fs::path& file) {
  std::error_code error;
  const fs::path below = fs::weakly_canonical(file, error).lexically_relative(folder);
  return !below.empty() && *below.begin() != "..";
}

// The name of a file in a file-set: eight letters and digits (PS3.10 section 8.2) that follow from its
// instance.
std::string file_id(const std::string& instance, unsigned attempt) {
  constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  uint64_t hash = 14695981039346656037U + attempt;  // FNV-1a
  for (const char c : instance) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
  std::string name;
  for (int i = 0; i < 8; ++i, hash /= 36) name += kLetters[hash % 36];
  return name;
}

class Run {
 public:
  bool read(const Args& args);
  int work(const std::vector<std::string>& inputs);

 private:
  FileResult one(const std::string& path, unsigned threads);
  std::string convert(DicomFile& file, const std::string& path, unsigned threads);
  std::string choose_name(const std::string& instance);
  std::string note(const std::string& changes);
  int make_directory();

  Deidentifier deidentifier_;
  std::string folder_;
  bool file_set_ = false;  // the input has a DICOMDIR, and so gets the output
  long threads_ = 1;
  bool values_ = false;
  std::string report_path_;
  FileSink report_;
  std::mutex mutex_;
  std::set<std::string> names_;
  std::atomic<std::size_t> directories_ = 0;  // among the input
  std::vector<std::string> written_;
};

bool Run::read(const Args& args) {
  threads_ = default_threads();
  if (!args.number("--threads", 1, 256, threads_) || !deidentifier_.read(args)) return false;
  folder_ = args.get("-o");
  if (folder_.empty() || args.paths.empty()) {
    complain("deidentify needs files to read and -o FOLDER; --help tells more");
    return false;
  }
  std::error_code error;
  fs::create_directories(folder_, error);
  if (error) {
    complain("-o %s: %s", folder_.c_str(), error.message().c_str());
    return false;
  }
  values_ = args.has("--report-values");
  report_path_ = args.get("--report");
  if (report_path_.empty()) return true;
  std::string problem = object_in_the_way(report_path_);
  if (problem.empty()) problem = report_.open(report_path_, FileSink::kPrivateMode);
  if (!problem.empty()) complain("--report %s: %s", report_path_.c_str(), problem.c_str());
  return problem.empty();
}

// A name that no other file of this run has.
std::string Run::choose_name(const std::string& instance) {
  const std::lock_guard lock(mutex_);
  for (unsigned attempt = 1;; ++attempt) {
    const std::string stem = file_set_      ? "IMAGES/" + file_id(instance, attempt)
                             : attempt == 1 ? instance
                                            : instance + "-" + std::to_string(attempt);
    const std::string name = folder_ + "/" + stem + (file_set_ ? "" : ".dcm");
    if (names_.insert(name).second) return name;
  }
}

std::string Run::note(const std::string& changes) {
  if (report_path_.empty()) return "";
  const std::lock_guard lock(mutex_);
  return report_.write(changes.data(), changes.size()) ? "" : "the report: " + report_.problem();
}

// An error text, empty on success.
std::string Run::convert(DicomFile& file, const std::string& path, unsigned threads) {
  if (values_were_lost()) return "it has a value that an object can not hold";
  const std::string instance = deidentifier_.uid(text_of(file.id(), tags::kSOPInstanceUID));
  if (!is_safe_name(instance)) return "it has no SOP Instance UID";
  const std::string target = choose_name(instance);
  ChangeNotes notes{"{\"file\":", values_};
  append_json(notes.head, target);
  if (values_) notes.head += ",\"from\":";
  if (values_) append_json(notes.head, path);
  const auto write = [&](DicomFile& object, RecodedPixels& pixels) {
    FileSink sink;
    std::string problem = sink.open(target);
    object.prepare_fragments();
    if (problem.empty()) problem = pixels.write(object, sink, 0);
    if (problem.empty()) problem = pixels.finding();
    if (problem.empty()) problem = note(notes.lines);
    return problem.empty() ? sink.commit() : problem;
  };
  const std::string problem = deidentifier_.change(file,
                                                   {deidentifier_.own_syntax(file), folder_ + "/blanked",
                                                    threads, report_path_.empty() ? nullptr : &notes},
                                                   write);
  if (!problem.empty()) return problem;
  const std::lock_guard lock(mutex_);
  written_.push_back(target);
  return "";
}

FileResult Run::one(const std::string& path, unsigned threads) {
  const CurrentFile current(path);
  DicomFile file;
  const bool open = file.open(path, {}) == VX_NORMAL_COMPLETION;
  const bool directory = open && text_of(file.id(), tags::kMediaStorageSOPClassUID) == kDirectoryClass;
  if (directory && is_directory_name(path)) {
    ++directories_;
    return {};
  }
  const std::string problem = !open       ? file.problem()
                              : directory ? "it is a directory under another name than DICOMDIR"
                                          : convert(file, path, threads);
  if (!problem.empty()) report(path, problem + ": not written");
  return {"", problem.empty() ? kSuccess : kFindings};
}

int Run::make_directory() {
  if (written_.empty()) return kSuccess;
  // What a record has to have and the objects may be without.
  const StandIns stand_ins = {{tags::kStudyDate, "19000101"},
                              {tags::kStudyTime, "000000"},
                              {tags::kContentDate, "19000101"},
                              {tags::kContentTime, "000000"},
                              {tags::kStudyID, "1"},
                              {tags::kSeriesNumber, "1"},
                              {tags::kInstanceNumber, "1"},
                              {tags::kObservationDateTime, "19000101000000"},
                              {tags::kPresentationCreationDate, "19000101"},
                              {tags::kPresentationCreationTime, "000000"},
                              {tags::kStructureSetDate, "19000101"},
                              {tags::kStructureSetTime, "000000"}};
  const std::string path = folder_ + "/DICOMDIR";
  Directory directory;
  // One of an earlier run keeps what it has.
  std::error_code ignored;
  const bool ready = fs::exists(path, ignored)
                         ? directory.open_to_change(path)
                         : directory.lock_to_replace(path, false) && directory.make(path, "");
  if (!ready) return kFindings;
  std::sort(written_.begin(), written_.end());
  return add_files(directory, written_, false, stand_ins) == kSuccess ? kSuccess : kFindings;
}

int Run::work(const std::vector<std::string>& inputs) {
  bool failed = false;
  const std::vector<std::string> files = expand_paths(inputs, failed);
  std::error_code ignored;
  const fs::path folder = fs::weakly_canonical(folder_, ignored);
  for (const std::string& file : files) {
    if (!lies_in(folder, file)) continue;
    complain("%s lies in the folder of the results", file.c_str());
    return kUsage;
  }
  file_set_ = std::any_of(files.begin(), files.end(), is_directory_name);
  if (file_set_) fs::create_directories(folder_ + "/IMAGES", ignored);
  const auto at_once =
      std::max<std::size_t>(1, std::min<std::size_t>(files.size(), static_cast<unsigned>(threads_)));
  const auto each = static_cast<unsigned>(static_cast<std::size_t>(threads_) / at_once);
  int worst = for_each_file(files, static_cast<unsigned>(threads_),
                            [&](const std::string& path) { return one(path, each); });
  if (file_set_) worst = std::max(worst, make_directory());
  if (!report_path_.empty()) {
    const std::string problem = report_.commit();
    if (!problem.empty()) report(report_path_, problem);
    if (!problem.empty()) worst = kUsage;
  }
  say("%zu of %zu files written", written_.size(), files.size() - directories_);
  return failed ? static_cast<int>(kUsage) : worst;
}

int run(const Args& args) {
  VX_Set_Bool_Config_Value(VX_CFG_EXPORT_GROUP_LENGTHS_TO_MEDIA, 0);
  VX_Set_Bool_Config_Value(VX_CFG_EXPLICIT_VR_TO_UN_FOR_LENGTH_GT_64K, 1);
  Run deidentification;
  if (!deidentification.read(args)) return kUsage;
  prepare_recoding();
  return deidentification.work(args.paths);
}

}  // namespace

const Command kDeidentify = {
    "deidentify",
    "[OPTION...] FILE|FOLDER... -o FOLDER",
    "write files without what identifies the patient",
    "The basic profile of PS3.15 annex E: what identifies is removed, emptied or replaced, as its table\n"
    "and the type of the attribute in its object ask. UIDs and patients keep their relations within a\n"
    "run, and with --key or --secret from run to run. The new files are named by their new UIDs; a\n"
    "DICOMDIR among the input is made anew. What is in the pixels stays unless it is blanked. A file\n"
    "that can not be handled whole is not written, and the exit status is 1.",
    kOptions,
    run};

}  // namespace vexal
