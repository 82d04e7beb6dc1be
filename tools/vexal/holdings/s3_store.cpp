#include "s3_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <thread>

#include "base/hex.h"
#include "base/uid.h"
#include "files/temp_folder.h"
#include "xml_fields.h"

namespace vexal {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint64_t kMebi = 1U << 20;
constexpr uint64_t kWholeUpTo = 32 * kMebi;
constexpr uint64_t kPart = 16 * kMebi;
constexpr uint64_t kMostParts = 10000;
constexpr long kSilence = 15;  // seconds, of a server
constexpr int kAttempts = 5;
constexpr auto kFirstWait = std::chrono::milliseconds(200);  // then twice as long each time
constexpr auto kNoAttemptAfter = std::chrono::seconds(45);
constexpr std::size_t kIdleClients = 16;
constexpr std::size_t kMostTold = 300;

// The way or the server has a bad moment.
bool is_passing(const WebAnswer& answer) {
  constexpr long kStatuses[] = {408, 429, 500, 502, 503, 504};
  return !answer.problem.empty() ||
         std::find(std::begin(kStatuses), std::end(kStatuses), answer.status) != std::end(kStatuses);
}

class OpenFile {
 public:
  OpenFile(const std::string& path, int flags, mode_t mode = 0)
      : fd_(::open(path.c_str(), flags | O_CLOEXEC, mode)) {}
  explicit OpenFile(int fd) : fd_(fd) {}
  ~OpenFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int fd() const { return fd_; }

 private:
  int fd_;
};

// A stretch of a file as a body.
WebBody body_of(int fd, uint64_t start, uint64_t size) {
  WebBody body;
  body.content_type = "application/dicom";
  body.size = size;
  body.read = [fd, start, size](uint64_t offset, char* buffer, std::size_t room) {
    const auto length = static_cast<std::size_t>(std::min<uint64_t>(room, size - std::min(offset, size)));
    const int64_t got = read_whole(fd, start + offset, buffer, length);
    return got == static_cast<int64_t>(length) ? got : -1;
  };
  return body;
}

WebBody body_of(const std::string& text, const char* type) {
  WebBody body;
  body.content_type = type;
  body.size = text.size();
  body.read = [&text](uint64_t offset, char* buffer, std::size_t room) {
    return static_cast<int64_t>(text.copy(buffer, room, static_cast<std::size_t>(offset)));
  };
  return body;
}

// The path of a key, as it is signed.
std::string encoded(std::string_view text, std::string_view also_plain = "") {
  std::string out;
  for (const char c : text) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '-' || c == '_' || c == '.' || c == '~' ||
                       also_plain.find(c) != std::string_view::npos;
    if (plain) {
      out += c;
    } else {
      out += '%';
      append_hex(out, static_cast<unsigned char>(c), 2);
    }
  }
  return out;
}

// "2026-11-26T18:05:00.000Z"
int64_t seconds_of(const std::string& time) {
  std::tm parts{};
  return ::strptime(time.c_str(), "%Y-%m-%dT%H:%M:%S", &parts) != nullptr ? ::timegm(&parts) : 0;
}

}  // namespace

std::string S3Store::open(const std::string& address) {
  std::string error = place_.read(address);
  if (error.empty()) error = WebPeer::open_library();
  if (error.empty()) error = open_xml();
  place_.peer.timeout = kSilence;
  if (!error.empty()) return error;
  std::signal(SIGPIPE, SIG_IGN);  // TLS on a connection that has ended is an error like others
  const WebAnswer answer = repeat(
      {"GET", resource("", "list-type=2&max-keys=1&prefix=" + encoded(place_.prefix)), {}, nullptr, nullptr});
  return answer.good() ? "" : failure("", answer);
}

std::string S3Store::place_of(const std::string& key) const {
  return "s3://" + place_.bucket + "/" + place_.prefix + key;
}

std::string S3Store::resource(const std::string& key, const std::string& query) const {
  const std::string path = key.empty() ? "" : "/" + encoded(place_.prefix + key, "/");
  return path + (query.empty() ? "" : "?" + query);
}

// With the code that the server gives, and no more of what it says than fits a line.
std::string S3Store::failure(const std::string& key, const WebAnswer& answer) const {
  std::string told;
  if (answer.problem.empty() && !answer.text.empty()) {
    read_xml(answer.text, [&](std::string_view path, std::string_view text) {
      if (path == "Error/Code") told.insert(0, text);
      if (path == "Error/Message") (told += ": ") += text;
    });
  }
  told.resize(std::min(told.size(), kMostTold));
  if (told.empty())
    told = answer.problem.empty() ? "HTTP status " + std::to_string(answer.status) : answer.problem;
  return place_of(key) + ": " + told;
}

std::unique_ptr<WebClient> S3Store::take_client() {
  const std::lock_guard lock(mutex_);
  if (idle_.empty()) return std::make_unique<WebClient>(place_.peer);
  std::unique_ptr<WebClient> client = std::move(idle_.back());
  idle_.pop_back();
  return client;
}

void S3Store::give_back(std::unique_ptr<WebClient> client) {
  const std::lock_guard lock(mutex_);
  if (idle_.size() < kIdleClients) idle_.push_back(std::move(client));
}

WebAnswer S3Store::repeat(const WebRequest& request, const std::function<bool()>& before) {
  const Clock::time_point start = Clock::now();
  auto wait = kFirstWait;
  std::unique_ptr<WebClient> client = take_client();
  for (int attempt = 1;; ++attempt, wait *= 2) {
    WebAnswer answer;
    const bool ready = before == nullptr || before();
    if (ready)
      answer = client->send(request);
    else
      answer.problem = "can not be done again";
    if (!ready || !is_passing(answer) || attempt == kAttempts ||
        Clock::now() + wait - start > kNoAttemptAfter) {
      give_back(std::move(client));
      return answer;
    }
    std::this_thread::sleep_for(wait);
  }
}

void S3Store::clean_up(const std::string& key, const std::string& upload) {
  std::unique_ptr<WebClient> client = take_client();
  bool good = true;
  if (!upload.empty())
    good = client->send({"DELETE", resource(key, "uploadId=" + encoded(upload)), {}, nullptr, nullptr})
               .problem.empty();
  if (good) client->send({"DELETE", resource(key), {}, nullptr, nullptr});
  give_back(std::move(client));
}

std::string S3Store::put(FileSink& sink, const std::string& name, std::string& key) {
  key = name + "-" + random_name() + ".dcm";
  return put_under(sink, key);
}

std::string S3Store::put_under(FileSink& sink, const std::string& key) {
  return sink.place([&](const std::string& temporary, std::string&) {
    const OpenFile file(temporary, O_RDONLY);
    const off_t end = file.fd() < 0 ? -1 : ::lseek(file.fd(), 0, SEEK_END);
    if (end < 0) return std::string("can not be read again: ") + std::strerror(errno);
    const auto size = static_cast<uint64_t>(end);
    return size <= kWholeUpTo ? put_whole(key, file.fd(), size) : put_in_parts(key, file.fd(), size);
  });
}

std::string S3Store::put_whole(const std::string& key, int fd, uint64_t size) {
  const WebBody body = body_of(fd, 0, size);
  const WebAnswer answer = repeat({"PUT", resource(key), {}, &body, nullptr});
  if (answer.good()) return "";
  clean_up(key);  // it may have arrived all the same
  return failure(key, answer);
}

std::string S3Store::put_in_parts(const std::string& key, int fd, uint64_t size) {
  const std::string nothing;
  const WebBody empty = body_of(nothing, "application/dicom");
  const WebAnswer begun = repeat({"POST", resource(key, "uploads="), {}, &empty, nullptr});
  std::string upload;
  std::string error = begun.good() ? read_xml(begun.text,
                                              [&](std::string_view path, std::string_view text) {
                                                if (path == "InitiateMultipartUploadResult/UploadId")
                                                  upload = text;
                                              })
                                   : failure(key, begun);
  if (error.empty() && upload.empty()) error = place_of(key) + ": the server gives no upload";
  if (!error.empty()) return error;
  std::string parts;
  error = put_parts(key, upload, fd, size, parts);
  if (error.empty()) error = complete(key, upload, parts, size);
  if (error.empty()) return "";
  clean_up(key, upload);
  return error;
}

std::string S3Store::put_parts(const std::string& key, const std::string& upload, int fd, uint64_t size,
                               std::string& parts) {
  const uint64_t step = std::max(kPart, (size / kMostParts / kMebi + 1) * kMebi);
  uint64_t number = 1;
  for (uint64_t at = 0; at < size; at += step, ++number) {
    const WebBody body = body_of(fd, at, std::min(step, size - at));
    const std::string query = "partNumber=" + std::to_string(number) + "&uploadId=" + encoded(upload);
    const WebAnswer answer = repeat({"PUT", resource(key, query), {}, &body, nullptr});
    if (!answer.good()) return failure(key, answer);
    if (answer.tag.empty() || answer.tag.find_first_of("<&") != std::string::npos)
      return place_of(key) + ": the server tells no proper tag of a part";
    parts +=
        "<Part><PartNumber>" + std::to_string(number) + "</PartNumber><ETag>" + answer.tag + "</ETag></Part>";
  }
  return "";
}

// The answer may be lost, or come with a good status and be a failure: what counts is the object.
std::string S3Store::complete(const std::string& key, const std::string& upload, const std::string& parts,
                              uint64_t size) {
  const std::string list = "<CompleteMultipartUpload>" + parts + "</CompleteMultipartUpload>";
  const WebBody body = body_of(list, "application/xml");
  const WebAnswer answer = repeat({"POST", resource(key, "uploadId=" + encoded(upload)), {}, &body, nullptr});
  std::optional<uint64_t> there;
  const std::string error = look_for(key, there);
  if (error.empty() && there == size) return "";
  return error.empty() ? failure(key, answer) : error;
}

std::string S3Store::fetch(const std::string& key, LocalCopy& local) {
  std::string path = temp_folder_path() + "/object-XXXXXX";
  const OpenFile file(::mkostemp(path.data(), O_CLOEXEC));
  if (file.fd() < 0) return "can not make a file in " + temp_folder_path() + ": " + std::strerror(errno);
  local.set(path, true);
  std::string fault;  // of our side: no attempt is worth it
  const WebTaker taker = [&](const std::string&, std::string_view bytes) -> std::string {
    while (!bytes.empty()) {
      const ssize_t done = ::write(file.fd(), bytes.data(), bytes.size());
      if (done < 0 && errno == EINTR) continue;
      if (done < 0) return fault = std::string("can not write a copy: ") + std::strerror(errno);
      bytes.remove_prefix(static_cast<std::size_t>(done));
    }
    return "";
  };
  const WebAnswer answer = repeat({"GET", resource(key), {}, nullptr, &taker}, [&] {
    return fault.empty() && ::ftruncate(file.fd(), 0) == 0 && ::lseek(file.fd(), 0, SEEK_SET) == 0;
  });
  if (!fault.empty()) return place_of(key) + ": " + fault;
  return answer.good() ? "" : failure(key, answer);
}

std::string S3Store::read(const std::string& key, uint64_t offset, std::size_t length, std::string& bytes) {
  bytes.clear();
  if (length == 0) return "";
  const WebTaker taker = [&](const std::string&, std::string_view more) -> std::string {
    if (more.size() > length - bytes.size()) return "the server sends more than was asked for";
    bytes += more;
    return "";
  };
  const std::string range =
      "Range: bytes=" + std::to_string(offset) + "-" + std::to_string(offset + length - 1);
  const WebAnswer answer = repeat({"GET", resource(key), {range}, nullptr, &taker}, [&] {
    bytes.clear();
    return true;
  });
  if (answer.problem.empty() && answer.status == 416) return bytes.clear(), "";  // behind its end
  if (!answer.good()) return failure(key, answer);
  return answer.status == 206 || offset == 0 ? "" : place_of(key) + ": the server gives no parts of objects";
}

std::string S3Store::look_for(const std::string& key, std::optional<uint64_t>& size) {
  size.reset();
  const WebAnswer answer = repeat({"HEAD", resource(key), {}, nullptr, nullptr});
  if (answer.problem.empty() && answer.status == 404) return "";
  if (!answer.good()) return failure(key, answer);
  if (answer.length < 0) return place_of(key) + ": the server tells no size";
  size = static_cast<uint64_t>(answer.length);
  return "";
}

std::string S3Store::remove(const std::string& key) {
  const WebAnswer answer = repeat({"DELETE", resource(key), {}, nullptr, nullptr});
  return answer.good() || (answer.problem.empty() && answer.status == 404) ? "" : failure(key, answer);
}

std::string S3Store::list(const std::string& prefix, const std::function<bool(const ListedObject&)>& take) {
  const std::string whole = place_.prefix + prefix;
  std::string token;
  for (;;) {
    const std::string query = (token.empty() ? "" : "continuation-token=" + encoded(token) + "&") +
                              "list-type=2&max-keys=1000&prefix=" + encoded(whole);
    const WebAnswer answer = repeat({"GET", resource("", query), {}, nullptr, nullptr});
    if (!answer.good()) return failure("", answer);
    std::vector<ListedObject> page;
    ListedObject one;
    std::string next;
    bool more = false;
    const std::string error = read_xml(answer.text, [&](std::string_view path, std::string_view text) {
      if (path == "ListBucketResult/Contents/Key") one.key = text;
      if (path == "ListBucketResult/Contents/Size")
        std::from_chars(text.data(), text.data() + text.size(), one.size);
      if (path == "ListBucketResult/Contents/LastModified") one.modified = seconds_of(std::string(text));
      if (path == "ListBucketResult/Contents") page.push_back(std::exchange(one, {}));
      if (path == "ListBucketResult/IsTruncated") more = text == "true";
      if (path == "ListBucketResult/NextContinuationToken") next = text;
    });
    if (!error.empty()) return place_of("") + ": the list of its objects can not be read: " + error;
    for (ListedObject& object : page) {
      if (!object.key.starts_with(whole) || !object.key.ends_with(".dcm")) continue;
      object.key.erase(0, place_.prefix.size());
      if (!take(object)) return "";
    }
    if (!more) return "";
    if (next.empty() || next == token) return place_of("") + ": the list of its objects has no end";
    token = next;
  }
}

}  // namespace vexal
