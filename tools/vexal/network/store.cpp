// vexal store: send files to a storage SCP.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <deque>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "base/commands.h"
#include "base/json.h"
#include "base/parallel.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "files/file_set.h"
#include "files/files.h"
#include "images/recode.h"
#include "network.h"
#include "sender.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--associations", "N", "associations at once (default 1)"},
    {"--window", "N", "requests under way on an association, where the peer agrees (default 1)"},
    {"--retries", "N", "further tries for a file after a lost association (default 1)"},
    {"--no-convert", nullptr, "send a file in its own transfer syntax or not at all"},
    {"--json", nullptr, "one line of JSON a file, and one for all"},
    {"--deidentify", nullptr, "send without what identifies the patient; the options that follow tell how"},
    VEXAL_DEIDENTIFY_OPTIONS,
    VEXAL_PEER_OPTIONS,
};

constexpr std::size_t kMostContexts = 128;  // PS3.8 section 9.3.2.2: odd identifiers of one byte
struct Job : ObjectFile {
  long tries = 0;
};

struct Outcome {
  const Job* job = nullptr;
  uint16_t status = 0xFFFF;
  std::string problem;  // not empty: not stored
};

// ---- What there is to send ----

// The files that a DICOMDIR refers to: Referenced File ID (0004,1500) of its records, below its own folder.
std::string expand_directory(const std::string& path, std::vector<std::string>& files) {
  DicomFile directory;
  if (directory.open(path, {}) != VX_NORMAL_COMPLETION) return directory.problem();
  for (const int32_t record : sequence_items(directory.id(), tags::kDirectoryRecordSequence)) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    std::string file_id;
    char part[64];
    for (VX_STATUS status = VX_Get_Value_To_String(record, tags::kReferencedFileID, sizeof part, part);
         status == VX_NORMAL_COMPLETION;
         status = VX_Get_Next_Value_To_String(record, tags::kReferencedFileID, sizeof part, part)) {
      std::string word = part;
      while (!word.empty() && word.back() == ' ') word.pop_back();
      if (!is_safe_name(word)) return "refers to a file by a name that is not allowed: " + word;
      file_id += (file_id.empty() ? "" : "/") + word;
    }
    if (file_id.empty()) continue;
    const std::filesystem::path file = find_file(folder, file_id);
    std::error_code ignored;
    if (file.empty() && std::filesystem::exists(folder / file_id, ignored))
      return "refers to what is no file of its own: " + file_id;
    files.push_back((file.empty() ? folder / file_id : file).string());
  }
  return "";
}

// ---- One association's work ----

// What all workers share.
class Queue {
 public:
  Queue(std::vector<Job>& jobs, bool json) : json_(json), progress_(jobs.size()), total_(jobs.size()) {
    for (Job& job : jobs) waiting_.push_back(&job);
  }

  Job* next() {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) return nullptr;
    Job* job = waiting_.front();
    waiting_.pop_front();
    return job;
  }

  bool waiting() {
    const std::lock_guard lock(mutex_);
    return !waiting_.empty();
  }

  // It was not sent, whatever became of the association.
  void put_back(Job* job) {
    const std::lock_guard lock(mutex_);
    waiting_.push_front(job);
  }

  // The association went away under this one.
  void give_back(Job* job, long retries, const std::string& problem) {
    if (job->tries++ >= retries) return finish({job, 0xFFFF, problem});
    job->whole = job->opaque;  // perhaps its bytes were the reason
    const std::lock_guard lock(mutex_);
    waiting_.push_back(job);
  }

  void set_workers(std::size_t count) { workers_ = count; }
  // A worker is done, or can get no association. What the last one leaves behind is not sent.
  void leave(const std::string& problem) {
    {
      const std::lock_guard lock(mutex_);
      if (--workers_ != 0) return;
    }
    while (Job* job = next()) finish({job, 0xFFFF, problem == kNothingTaken ? not_taken(*job) : problem});
  }

  void finish(const Outcome& outcome) {
    const std::lock_guard lock(mutex_);
    ++done_;
    const bool failed = !outcome.problem.empty();
    (failed ? failed_ : stored_) += 1;
    if (!failed) bytes_ += outcome.job->size;
    if (!failed && outcome.status != 0) ++warned_;
    if (json_) {
      print_json(outcome);
    } else if (failed) {
      report(outcome.job->path, outcome.problem);
    } else if (outcome.status != 0) {
      report(outcome.job->path, describe_dimse(outcome.status));
    }
    progress_.step(done_);
  }

  void print_summary(double seconds) {
    progress_.end();
    const double megabytes = static_cast<double>(bytes_) / 1e6;
    if (json_) {
      std::printf(
          "{\"files\":%zu,\"stored\":%zu,\"warnings\":%zu,\"failed\":%zu,\"bytes\":%llu,\"seconds\":%.3f}\n",
          total_, stored_, warned_, total_ - stored_, static_cast<unsigned long long>(bytes_), seconds);
    } else {
      std::printf("%zu of %zu stored, %.1f MB in %.2f s (%.1f MB/s)%s\n", stored_, total_, megabytes, seconds,
                  megabytes / std::max(seconds, 1e-6),
                  warned_ != 0 ? (", " + std::to_string(warned_) + " with a warning").c_str() : "");
    }
  }

  bool all_stored() const { return stored_ == total_; }

 private:
  static void print_json(const Outcome& outcome) {
    std::string line = "{\"file\":";
    append_json(line, outcome.job->path);
    line += ",\"instance\":";
    append_json(line, outcome.job->instance);
    line += ",\"stored\":" + std::string(outcome.problem.empty() ? "true" : "false");
    if (outcome.status != 0xFFFF) line += ",\"status\":" + std::to_string(outcome.status);
    if (!outcome.problem.empty()) {
      line += ",\"problem\":";
      append_json(line, outcome.problem);
    }
    std::printf("%s}\n", line.c_str());
  }

  std::mutex mutex_;
  std::deque<Job*> waiting_;
  std::size_t workers_ = 0;
  bool json_;
  Progress progress_;
  std::size_t total_;
  std::size_t done_ = 0;
  std::size_t stored_ = 0;
  std::size_t failed_ = 0;
  std::size_t warned_ = 0;
  uint64_t bytes_ = 0;
};

struct Settings {
  const Peer& peer;
  const ServiceListName& list;
  bool convert;
  uint16_t window;
  long retries;
  const Deidentifier* deidentifier;
};

class Worker {
 public:
  Worker(const Settings& settings, Queue& queue)
      : settings_(settings), queue_(queue), sender_(settings.convert) {
    sender_.set_deidentifier(settings.deidentifier);
  }

  // False if no association could be had at all. A file is taken when there is one to send it on: where the
  // peer takes fewer associations than were asked for, the others do the work.
  bool run() {
    bool reached = false;
    long refusals = 0;
    while (queue_.waiting() && refusals <= settings_.retries) {
      try {
        if (association_.open(settings_.peer, settings_.list) == VX_NORMAL_COMPLETION) {
          refusals = 0;
          reached = true;
          work();
          association_.close();
          continue;
        }
        problem_ = association_.problem();
      } catch (const std::exception&) {
        if (give_up(words_of(std::current_exception()))) continue;
      }
      if (++refusals <= settings_.retries) std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    queue_.leave(problem_);
    return reached;
  }

 private:
  struct UnderWay {
    Job* job;
    SentRequest request;
  };

  // Another request may go out before the answers to those under way. What has been lost once goes alone, so
  // that a further loss is its own.
  bool may_send(const Job& job) const {
    if (under_way_.empty()) return true;
    const std::size_t window =
        association_.window() == 0 ? settings_.window : std::min(settings_.window, association_.window());
    return under_way_.size() < window && job.tries == 0 && under_way_.front().job->tries == 0;
  }

  // Sends until the queue is empty or the association is lost.
  void work() {
    next_ = queue_.next();
    while (next_ != nullptr || !under_way_.empty()) {
      while (next_ != nullptr && may_send(*next_)) {
        if (!send(*next_)) return;
        next_ = queue_.next();
        // The peer is busy with the last one meanwhile.
        if (next_ != nullptr) sender_.prepare(*next_);
        if (next_ != nullptr && !under_way_.empty() && may_send(*next_) && !read_answer(0)) return lose();
      }
      if (!under_way_.empty() && !read_answer(settings_.peer.timeout)) return lose();
    }
  }

  // Something was thrown. True if the next one had been made ready or sent: it takes the blame.
  bool give_up(const std::string& problem) {
    problem_ = problem;
    Job* job = std::exchange(next_, nullptr);
    if (job != nullptr) queue_.finish({job, 0xFFFF, problem});
    lose();
    return job != nullptr;
  }

  // What is not sent yet has no part in it.
  void lose() {
    if (Job* job = std::exchange(next_, nullptr)) queue_.put_back(job);
    for (const UnderWay& each : under_way_) queue_.give_back(each.job, settings_.retries, problem_);
    under_way_.clear();
    association_.abort();
  }

  // False if the association is lost; the job has then been given back or finished.
  bool send(Job& job) {
    std::string problem;
    switch (sender_.send(association_.id(), association_.accepted(), job, problem)) {
      case ObjectSender::Result::Sent:
        under_way_.push_back({&job, sender_.request()});
        return true;
      case ObjectSender::Result::Refused:
        queue_.finish({&job, 0xFFFF, problem});
        return true;
      case ObjectSender::Result::Lost:
        break;
    }
    if (is_alive(association_.id())) {
      // The file could not be sent to its end: the others have no part in that.
      for (const UnderWay& each : under_way_) queue_.put_back(each.job);
      under_way_.clear();
      problem_ = problem;
    } else {
      problem_ = kLost;
    }
    under_way_.push_back({std::exchange(next_, nullptr), {}});
    lose();
    return false;
  }

  // One answer, waited for up to `timeout` seconds (0: only if it is there). False if the association is
  // lost, or said something that answers none of the requests.
  bool read_answer(int32_t timeout) {
    Message answer;
    const VX_STATUS status = association_.read(timeout, answer);
    if (status == VX_TIMEOUT && timeout == 0) return true;
    if (status != VX_NORMAL_COMPLETION) {
      problem_ = std::string(kLost) + ": " + VX_Error_Message(status);
      return false;
    }
    const uint32_t id = answer.number(tags::kMessageIDBeingRespondedTo, 0);
    auto found = std::find_if(under_way_.begin(), under_way_.end(),
                              [&](const UnderWay& each) { return each.request.id == id; });
    if (found == under_way_.end()) found = under_way_.begin();
    problem_ = mismatch(answer, found->request);
    if (!problem_.empty()) return false;
    Outcome outcome{found->job, answer.status(), ""};
    if (outcome.status != 0 && !is_warning(outcome.status))
      outcome.problem = "the peer did not store it: " + describe_answer(answer);
    under_way_.erase(found);
    queue_.finish(outcome);
    return true;
  }

  static constexpr char kLost[] = "the association was lost";

  const Settings& settings_;
  Queue& queue_;
  Association association_;
  Job* next_ = nullptr;              // taken, not sent
  std::vector<UnderWay> under_way_;  // sent, not answered
  std::string problem_;              // of the association
  ObjectSender sender_;
};

// Sends the jobs, whose contexts fit one association. The exit code.
int send_all(std::vector<Job>& jobs, const Peer& peer, const std::vector<Proposal>& proposals,
             const Args& args, const Deidentifier* deidentifier, long associations, long window, long retries,
             bool& any_failed) {
  ServiceListName list;
  std::vector<std::string> unknown;
  if (!list.make(proposals, static_cast<uint16_t>(window), unknown)) {
    complain("the presentation contexts can not be proposed");
    return kUsage;
  }
  Queue queue(jobs, args.has("--json"));
  const Settings settings{peer,    list,        !args.has("--no-convert"), static_cast<uint16_t>(window),
                          retries, deidentifier};
  const auto start = std::chrono::steady_clock::now();
  std::atomic<bool> reached{list.empty()};
  if (list.empty()) {
    while (Job* job = queue.next())
      queue.finish({job, 0xFFFF, "no service is known for its SOP class " + job->sop_class});
  } else {
    const std::size_t count = std::min<std::size_t>(static_cast<std::size_t>(associations), jobs.size());
    queue.set_workers(count);
    const auto work = [&] {
      Worker worker(settings, queue);
      if (worker.run()) reached = true;
    };
    std::vector<std::jthread> others;
    start_threads(others, count - 1, work);
    // One that the system gives no thread for is done.
    for (std::size_t i = others.size(); i + 1 < count; ++i) queue.leave("");
    work();
  }
  queue.print_summary(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  any_failed = any_failed || !queue.all_stored();
  return reached ? kSuccess : kNetwork;
}

// What the paths hold, each file once; what can not be sent is reported.
std::vector<Job> collect_jobs(const Args& args, const Deidentifier* deidentifier, bool& unreadable) {
  std::vector<std::string> paths =
      expand_paths(std::vector<std::string>(args.paths.begin() + 2, args.paths.end()), unreadable);
  std::vector<Job> jobs;
  std::set<std::string> seen;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    Job job;
    job.path = paths[i];
    if (!seen.insert(std::filesystem::path(job.path).lexically_normal().string()).second) continue;
    std::string error = job.look_at();
    if (error.empty() && job.sop_class == kDirectoryClass) {
      error = expand_directory(job.path, paths);
      if (error.empty()) continue;
    }
    if (error.empty() && deidentifier != nullptr) {
      if (job.opaque) error = "can not be de-identified: nothing but the UID is known of its transfer syntax";
      job.whole = false;
      job.instance = deidentifier->uid(job.instance);
    }
    if (!error.empty()) {
      report(job.path, error);
      unreadable = true;
      continue;
    }
    jobs.push_back(std::move(job));
  }
  return jobs;
}

// The next jobs, from `from` on, whose contexts fit into one association, with what they need.
std::vector<Job> next_round(const std::vector<Job>& jobs, bool convert, std::size_t& from,
                            std::vector<Proposal>& proposals) {
  std::vector<Job> round;
  while (from < jobs.size()) {
    std::size_t to = from;
    while (to < jobs.size() && jobs[to].sop_class == jobs[from].sop_class) ++to;
    std::vector<const ObjectFile*> files;
    for (std::size_t i = from; i < to; ++i) files.push_back(&jobs[i]);
    const std::vector<Proposal> more = proposals_for(files, convert);
    if (!round.empty() && proposals.size() + more.size() > kMostContexts) break;
    proposals.insert(proposals.end(), more.begin(), more.end());
    round.insert(round.end(), jobs.begin() + static_cast<std::ptrdiff_t>(from),
                 jobs.begin() + static_cast<std::ptrdiff_t>(to));
    from = to;
  }
  return round;
}

int run(const Args& args) {
  Peer peer;
  long associations = 1;
  long window = 1;
  long retries = 1;
  if (!peer.read(args) || !args.number("--associations", 1, 256, associations) ||
      !args.number("--window", 1, 65534, window) || !args.number("--retries", 0, 100, retries)) {
    return kUsage;
  }
  if (args.paths.size() < 3) {
    complain("name the files or folders to send; --help tells more");
    return kUsage;
  }
  std::unique_ptr<Deidentifier> deidentifier;
  if (!Deidentifier::read_if_asked(args, deidentifier)) return kUsage;
  bool unreadable = false;
  std::vector<Job> jobs = collect_jobs(args, deidentifier.get(), unreadable);
  prepare_recoding();
  if (jobs.empty()) {
    complain("there is nothing to send");
    return kUsage;
  }
  // Files of one class stay together, so that each round of associations has the contexts it needs.
  std::stable_sort(jobs.begin(), jobs.end(),
                   [](const Job& a, const Job& b) { return a.sop_class < b.sop_class; });
  int exit = kSuccess;
  bool any_failed = false;
  for (std::size_t from = 0; from < jobs.size();) {
    std::vector<Proposal> proposals;
    std::vector<Job> round = next_round(jobs, !args.has("--no-convert"), from, proposals);
    exit = std::max(exit, send_all(round, peer, proposals, args, deidentifier.get(), associations, window,
                                   retries, any_failed));
  }
  if (exit != kSuccess) return exit;
  return unreadable ? kUsage : any_failed ? kFindings : kSuccess;
}

}  // namespace

const Command kStore = {
    "store",
    "HOST PORT PATH... [OPTION...]",
    "send files, folders or what a DICOMDIR lists to a storage server (C-STORE)",
    "Each file goes out in its own transfer syntax where the peer takes it, byte for byte. Where it\n"
    "does not, an uncompressed file is converted to another uncompressed syntax, and compressed\n"
    "pixel data is decompressed. When an association is lost, or the peer's answer is not that of the\n"
    "request, only what was not answered is sent again. Exit status 1: some files were not stored;\n"
    "3: no association could be had.",
    kOptions,
    run};

}  // namespace vexal
