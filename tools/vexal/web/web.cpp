// vexal web: query, retrieve and store over the web services of an archive (PS3.18).
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>

#include "base/commands.h"
#include "base/json.h"
#include "base/names.h"
#include "base/parallel.h"
#include "base/session.h"
#include "base/tags.h"
#include "base/uid.h"
#include "files/files.h"
#include "files/web_client.h"
#include "http/multipart.h"
#include "network/network.h"
#include "network/query.h"
#include "server/storage.h"
#include "web_json.h"

namespace vexal {
namespace {

constexpr Option kOptions[] = {
    {"--level", "LEVEL", "query: study (default), series or image"},
    {"-k", "KEY[=VALUE]",
     "query: a key to match, or without VALUE one to return; a path as for vexal modify"},
    {"--limit", "N", "query: no more than this many answers"},
    {"--study", "UID", "retrieve: the study"},
    {"--series", "UID", "retrieve: only this series of it"},
    {"--instance", "UID", "retrieve: only this object of the series"},
    {"--dir", "DIR", "retrieve: folder for the files (default: this one)"},
    {"--tree", nullptr, "retrieve: folders by study and series below it"},
    {"--connections", "N", "store: requests at once (default 2)"},
    {"--json", nullptr, "one line of JSON an answer or a file"},
    VEXAL_WEB_OPTIONS,
};

constexpr char kDicomJson[] = "application/dicom+json";

int web_problem(const WebPeer& peer, const std::string& text) {
  report(peer.url, text);
  return kNetwork;
}

// --- query (PS3.18 section 10.6) ---

// "StudyDate" or "00400275.00400009": how a key is named in the query of a URL.
std::string name_in_url(const QueryKey& key) {
  std::string name;
  for (const PathStep& step : key.path) {
    const std::string_view keyword = tag_keyword(step.tag);
    if (!name.empty()) name += '.';
    name += keyword.empty() ? tag_key(step.tag) : std::string(keyword);
  }
  return name;
}

// What a search asks for. A level below the study is searched within the one that is named.
std::string search_resource(const std::string& level, const Query& query, long limit) {
  std::string resource;
  std::string parameters;
  for (std::size_t i = 0; i < query.keys().size(); ++i) {
    const QueryKey& key = query.keys()[i];
    const std::string& value = query.values()[i];
    const bool names_parent = level != "study" && !value.empty() && is_safe_name(value);
    if (names_parent && key.text == "StudyInstanceUID") {
      resource = "/studies/" + percent_encoded(value) + resource;
    } else if (names_parent && level == "image" && key.text == "SeriesInstanceUID") {
      resource += "/series/" + percent_encoded(value);
    } else if (value.empty()) {
      parameters += "&includefield=" + name_in_url(key);
    } else {
      parameters += "&" + name_in_url(key) + "=" + percent_encoded(value);
    }
  }
  // A series can be named only within its study.
  if (resource.starts_with("/series/")) {
    parameters += "&SeriesInstanceUID=" + resource.substr(std::string_view("/series/").size());
    resource.clear();
  }
  resource += level == "study" ? "/studies" : level == "series" ? "/series" : "/instances";
  if (limit > 0) parameters += "&limit=" + std::to_string(limit);
  if (!parameters.empty()) parameters[0] = '?';
  return resource + parameters;
}

int query(const Args& args, const WebPeer& peer) {
  Query query;
  long limit = 0;
  const std::string level = args.get("--level", "study");
  if (level != "study" && level != "series" && level != "image") {
    complain("--level %s: give study, series or image", level.c_str());
    return kUsage;
  }
  if (!query.read(args, QueryKind::Find) || !args.number("--limit", 1, 100000000, limit)) return kUsage;
  WebClient client(peer);
  const WebAnswer answer = client.get(search_resource(level, query, limit), kDicomJson, nullptr);
  if (!answer.good()) return web_problem(peer, answer.describe());
  WebDocument found;
  const std::string error = answer.text.empty() ? "" : found.read(answer.text);
  if (!error.empty()) return web_problem(peer, error);
  std::vector<std::vector<std::string>> rows;
  for (std::size_t i = 0; i < found.size(); ++i) {
    std::vector<std::string> row;
    for (const QueryKey& key : query.keys()) row.push_back(found.values_at(i, key.path));
    if (args.has("--json")) print_json(query.keys(), row);
    rows.push_back(std::move(row));
  }
  if (args.has("--json")) return kSuccess;
  if (!rows.empty()) print_table(query.keys(), rows);
  std::fprintf(stderr, "%zu found\n", found.size());
  return kSuccess;
}

// --- retrieve (PS3.18 section 10.4) ---

// The parts of an answer become files under the names of their instances.
class ObjectTaker final : public MultipartReader::Taker {
 public:
  ObjectTaker(const StorageOptions& options, bool json) : options_(options), json_(json) {}

  std::string begin(std::string_view /*headers*/) override {
    head_.clear();
    stored_ = {};
    return sink_.open(options_.folder + "/incoming");
  }

  std::string take(std::string_view piece) override {
    constexpr std::size_t kHead = 4096;
    if (head_.size() < kHead) head_.append(piece.substr(0, kHead - head_.size()));
    stored_.bytes += piece.size();
    return sink_.write(piece.data(), piece.size()) ? "" : options_.folder + ": can not write";
  }

  // A part that is no object does not keep the others from being stored.
  std::string end() override {
    const FileHead head = inspect_head(head_.data(), head_.size());
    stored_.instance = head.sop_instance_uid;
    stored_.sop_class = head.sop_class_uid;
    std::string error;
    if (!head.has_preamble) {
      error = "a part of the answer is no DICOM file";
    } else if (!is_safe_name(stored_.instance)) {
      error = "its SOP Instance UID can not be a name: " + stored_.instance;
    } else {
      error = place_object(sink_, options_, stored_);
    }
    if (!error.empty()) {
      sink_.drop();
      report(stored_.instance, error);
      ++failed;
      return "";
    }
    ++count;
    bytes += stored_.bytes;
    if (json_) print_stored();
    return "";
  }

  std::size_t count = 0;
  std::size_t failed = 0;
  uint64_t bytes = 0;

 private:
  void print_stored() const {
    std::string line = "{\"file\":";
    append_json(line, stored_.path);
    line += ",\"instance\":";
    append_json(line, stored_.instance);
    std::printf("%s,\"bytes\":%llu}\n", line.c_str(), static_cast<unsigned long long>(stored_.bytes));
  }

  const StorageOptions& options_;
  bool json_;
  FileSink sink_;
  std::string head_;
  StoredObject stored_;
};

// "/studies/1.2/series/3.4"; empty after a line on standard error.
std::string object_resource(const Args& args) {
  constexpr struct {
    const char* option;
    const char* collection;
  } kSteps[] = {{"--study", "/studies/"}, {"--series", "/series/"}, {"--instance", "/instances/"}};
  std::string resource;
  bool ended = false;
  for (const auto& step : kSteps) {
    const std::string uid = args.get(step.option);
    if (uid.empty()) {
      ended = true;
    } else if (ended || !is_safe_name(uid)) {
      complain("%s %s: %s", step.option, uid.c_str(),
               ended ? "name the study, and the series, too" : "that is no UID");
      return "";
    } else {
      resource += step.collection + uid;
    }
  }
  if (resource.empty()) complain("name what is wanted with --study, and --series and --instance below it");
  return resource;
}

int retrieve(const Args& args, const WebPeer& peer) {
  const std::string resource = object_resource(args);
  if (resource.empty()) return kUsage;
  StorageOptions storage;
  if (!storage.read(args)) return kUsage;
  ObjectTaker taker(storage, args.has("--json"));
  std::unique_ptr<MultipartReader> parts;
  bool whole = false;  // the answer is one file
  std::string error;
  WebClient client(peer);
  const WebTaker take = [&](const std::string& type, std::string_view bytes) -> std::string {
    if (!whole && parts == nullptr) {
      const std::string boundary = header_parameter(type, "boundary");
      whole = type.starts_with("application/dicom") && type.find("json") == std::string::npos;
      if (!whole && boundary.empty()) return "answers with " + type + " and not with DICOM files";
      if (whole) error = taker.begin("");
      if (!whole) parts = std::make_unique<MultipartReader>(boundary, taker);
    }
    if (!error.empty()) return error;
    return whole ? taker.take(bytes) : parts->feed(bytes);
  };
  const WebAnswer answer =
      client.get(resource, "multipart/related; type=\"application/dicom\"; transfer-syntax=*", take);
  if (answer.good() && whole) error = taker.end();
  if (!answer.good()) {
    error = answer.describe();
  } else if (parts != nullptr && !parts->complete()) {
    error = "the answer ends in the middle";
  }
  if (!args.has("--json"))
    std::printf("%zu retrieved, %.1f MB\n", taker.count, static_cast<double>(taker.bytes) / 1e6);
  if (!error.empty()) return web_problem(peer, error);
  return taker.failed != 0 ? kFindings : kSuccess;
}

// --- store (PS3.18 section 10.5) ---

// Clients that wait for their next request, so that connections are used again.
class Clients {
 public:
  explicit Clients(const WebPeer& peer) : peer_(peer) {}

  std::unique_ptr<WebClient> take() {
    const std::lock_guard lock(mutex_);
    if (idle_.empty()) return std::make_unique<WebClient>(peer_);
    std::unique_ptr<WebClient> client = std::move(idle_.back());
    idle_.pop_back();
    return client;
  }
  void give_back(std::unique_ptr<WebClient> client) {
    const std::lock_guard lock(mutex_);
    idle_.push_back(std::move(client));
  }

 private:
  const WebPeer& peer_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<WebClient>> idle_;
};

// A file between the head and the tail of a body of one part.
struct FilePart {
  std::string head;
  FileSource source;
  std::string tail;

  int64_t read(uint64_t offset, char* buffer, std::size_t size) const {
    const uint64_t end = head.size() + source.size();
    if (offset >= head.size() && offset < end)
      return source.read_at(offset - head.size(), buffer, std::min<uint64_t>(size, end - offset));
    const std::string& text = offset < end ? head : tail;
    const std::size_t from = offset < end ? offset : std::min<uint64_t>(offset - end, tail.size());
    return static_cast<int64_t>(text.copy(buffer, size, from));
  }
};

// Why the server did not take the one object of a request; empty if it did.
std::string store_problem(const WebAnswer& answer, bool& warned) {
  WebDocument document;
  const bool readable = answer.problem.empty() && document.read(answer.text).empty();
  // (0008,1197) and (0008,1196) of the only item.
  const auto code = [&](uint32_t sequence, uint32_t tag) {
    std::vector<PathStep> path(2);
    path[0].tag = sequence;
    path[0].index = 0;
    path[1].tag = tag;
    return document.values_at(0, path);
  };
  const std::string refused = "the server did not store it: ";
  if (readable && document.items(0, tags::kFailedSOPSequence) > 0) {
    const std::string reason = code(tags::kFailedSOPSequence, tags::kFailureReason);
    if (reason.empty()) return refused + "it does not say why";
    return refused + describe_dimse(static_cast<uint16_t>(std::strtoul(reason.c_str(), nullptr, 10)));
  }
  warned = readable && !code(tags::kReferencedSOPSequence, tags::kWarningReason).empty();
  return answer.good() ? "" : refused + answer.describe();
}

std::string store_file(const std::string& path, Clients& clients, std::string& instance, bool& warned) {
  FilePart part;
  const std::string error = part.source.open(path);
  if (!error.empty()) return error;
  char bytes[4096];
  const int64_t got = part.source.read_at(0, bytes, sizeof bytes);
  const FileHead head = inspect_head(bytes, got > 0 ? static_cast<std::size_t>(got) : 0);
  if (!head.has_preamble) return "is no DICOM file with a meta group; vexal convert makes one";
  instance = head.sop_instance_uid;
  // A UID of our own does not occur in the file.
  const std::string boundary = "vexal-" + new_uid();
  part.head = "--" + boundary + "\r\nContent-Type: application/dicom\r\n\r\n";
  part.tail = "\r\n--" + boundary + "--\r\n";
  WebBody body;
  body.content_type = "multipart/related; type=\"application/dicom\"; boundary=" + boundary;
  body.size = part.head.size() + part.source.size() + part.tail.size();
  body.read = [&](uint64_t offset, char* buffer, std::size_t size) {
    return part.read(offset, buffer, size);
  };
  std::unique_ptr<WebClient> client = clients.take();
  const WebAnswer answer = client->post("/studies", kDicomJson, body);
  clients.give_back(std::move(client));
  return store_problem(answer, warned);
}

int store(const Args& args, const WebPeer& peer) {
  long connections = 2;
  if (!args.number("--connections", 1, 64, connections)) return kUsage;
  if (args.paths.size() < 3) {
    complain("name the files or folders to send; --help tells more");
    return kUsage;
  }
  bool unreadable = false;
  const std::vector<std::string> files =
      expand_paths(std::vector<std::string>(args.paths.begin() + 2, args.paths.end()), unreadable);
  Clients clients(peer);
  std::atomic<std::size_t> stored{0};
  const bool json = args.has("--json");
  const int exit = for_each_file(files, static_cast<unsigned>(connections), [&](const std::string& path) {
    std::string instance;
    bool warned = false;
    const std::string problem = store_file(path, clients, instance, warned);
    stored += problem.empty() ? 1 : 0;
    FileResult result;
    result.exit = problem.empty() ? kSuccess : kFindings;
    if (json) {
      result.output = "{\"file\":";
      append_json(result.output, path);
      result.output += ",\"instance\":";
      append_json(result.output, instance);
      result.output += ",\"stored\":" + std::string(problem.empty() ? "true" : "false");
      if (!problem.empty()) {
        result.output += ",\"problem\":";
        append_json(result.output, problem);
      }
      result.output += "}\n";
    } else if (!problem.empty() || warned) {
      report(path, problem.empty() ? "stored, with a warning of the server" : problem);
    }
    return result;
  });
  if (!json) std::printf("%zu of %zu stored\n", stored.load(), files.size());
  return std::max(exit, unreadable ? static_cast<int>(kFindings) : static_cast<int>(kSuccess));
}

struct Action {
  const char* name;
  int (*run)(const Args& args, const WebPeer& peer);
};
constexpr Action kActions[] = {{"query", query}, {"retrieve", retrieve}, {"store", store}};

int run(const Args& args) {
  if (args.paths.size() < 2) {
    complain("web needs an action and a URL; --help tells more");
    return kUsage;
  }
  for (const Action& action : kActions) {
    if (args.paths[0] != action.name) continue;
    WebPeer peer;
    return peer.read(args, args.paths[1]) ? action.run(args, peer) : kUsage;
  }
  complain("web %s: say what to do: query, retrieve or store", args.paths[0].c_str());
  return kUsage;
}

}  // namespace

const Command kWeb = {"web",
                      "ACTION URL [OPTION...] [PATH...]",
                      "query, retrieve and store over DICOM web services",
                      "query     finds studies, series or objects (QIDO-RS): -k PatientName='Doe*'\n"
                      "retrieve  writes the objects of --study, --series, --instance as files (WADO-RS)\n"
                      "store     sends files and folders (STOW-RS)\n"
                      "The URL is that of the services, such as http://localhost:8042/dicom-web.",
                      kOptions,
                      run};

}  // namespace vexal
