#include "multipart.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

namespace vexal {
namespace {

constexpr std::size_t kMostHeaders = 65536;

}  // namespace

std::string header_parameter(std::string_view header, std::string_view name) {
  std::size_t at = header.find(';');
  while (at != std::string_view::npos) {
    header.remove_prefix(at + 1);
    header.remove_prefix(std::min(header.find_first_not_of(" \t"), header.size()));
    const bool found = header.size() > name.size() && header[name.size()] == '=' &&
                       ::strncasecmp(header.data(), name.data(), name.size()) == 0;
    const std::size_t value = found ? name.size() + 1 : 0;
    std::string text;
    bool quoted = false;
    for (at = value; at < header.size() && (quoted || header[at] != ';'); ++at) {
      if (header[at] == '"') {
        quoted = !quoted;
        continue;
      }
      if (header[at] == '\\' && quoted && at + 1 < header.size()) ++at;
      text += header[at];
    }
    if (found) {
      text.erase(text.find_last_not_of(" \t\r\n") + 1);
      return text;
    }
    if (at >= header.size()) break;
  }
  return "";
}

// The line break before a delimiter belongs to it; the first one may stand without.
MultipartReader::MultipartReader(std::string_view boundary, Taker& taker)
    : taker_(taker), delimiter_("\r\n--" + std::string(boundary)), pending_("\r\n") {}

std::string MultipartReader::feed(std::string_view bytes) {
  std::string error;
  if (state_ == State::Epilogue) return error;
  pending_.append(bytes);
  while (error.empty() && step(error)) {
  }
  pending_.erase(0, position_);
  position_ = 0;
  return error;
}

// One step; false where more bytes are needed.
bool MultipartReader::step(std::string& error) {
  switch (state_) {
    case State::Outside:
      return to_delimiter(false, error);
    case State::Delimiter:
      // Two dashes behind a delimiter end it all.
      if (pending_.size() - position_ < 2) return false;
      state_ = pending_.compare(position_, 2, "--") == 0 ? State::Epilogue : State::Headers;
      return true;
    case State::Headers:
      return pass_headers(error);
    case State::Part:
      return to_delimiter(true, error);
    case State::Epilogue:
      break;
  }
  position_ = pending_.size();
  return false;
}

bool MultipartReader::to_delimiter(bool part, std::string& error) {
  const char* start = pending_.data() + position_;
  const std::size_t left = pending_.size() - position_;
  const auto* found = static_cast<const char*>(::memmem(start, left, delimiter_.data(), delimiter_.size()));
  // What may be the head of a delimiter stays for the next time.
  const std::size_t keep = delimiter_.size() - 1;
  const std::size_t length =
      found != nullptr ? static_cast<std::size_t>(found - start) : left - std::min(left, keep);
  if (part && length > 0) error = taker_.take({start, length});
  position_ += length;
  if (found == nullptr || !error.empty()) return false;
  position_ += delimiter_.size();
  state_ = State::Delimiter;
  if (part) error = taker_.end();
  return error.empty();
}

// The end of the delimiter's line is the first of the two line breaks where there are no headers.
bool MultipartReader::pass_headers(std::string& error) {
  const std::size_t end = pending_.find("\r\n\r\n", position_);
  if (end == std::string::npos) {
    if (pending_.size() - position_ > kMostHeaders) error = "a part with too long headers";
    return false;
  }
  const std::string_view headers = std::string_view(pending_).substr(position_, end + 2 - position_);
  state_ = State::Part;
  error = taker_.begin(headers);
  position_ = end + 4;
  return error.empty();
}

std::string header_in(std::string_view lines, std::string_view name) {
  while (!lines.empty()) {
    const std::string_view line = lines.substr(0, lines.find("\r\n"));
    lines.remove_prefix(std::min(line.size() + 2, lines.size()));
    if (line.size() <= name.size() || line[name.size()] != ':' ||
        ::strncasecmp(line.data(), name.data(), name.size()) != 0)
      continue;
    std::string_view value = line.substr(name.size() + 1);
    value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
    return std::string(value.substr(0, value.find_last_not_of(" \t") + 1));
  }
  return "";
}

namespace {

// Where a body of several parts is at.
class PartsSource {
 public:
  PartsSource(std::string boundary, NextPart next) : boundary_(std::move(boundary)), next_(std::move(next)) {}

  int64_t read(char* buffer, std::size_t size) {
    for (;;) {
      if (at_ < text_.size()) {
        const std::size_t count = text_.copy(buffer, size, at_);
        at_ += count;
        return static_cast<int64_t>(count);
      }
      if (part_.body.read) {
        const int64_t got = part_.body.read(buffer, size);
        if (got != 0) return got;
        part_ = {};
        set_text("\r\n");
        continue;
      }
      if (ended_) return 0;
      const int result = next_(part_);
      if (result < 0) return -1;
      ended_ = result == 0;
      set_text("--" + boundary_ + (ended_ ? "--\r\n" : "\r\n"));
      for (const auto& [name, value] : part_.headers) text_ += name + ": " + value + "\r\n";
      if (ended_) continue;
      text_ += "\r\n";
      if (!part_.body.read) part_.body = HttpBody::of_text("");
    }
  }

 private:
  void set_text(std::string text) {
    text_ = std::move(text);
    at_ = 0;
  }
  std::string boundary_;
  NextPart next_;
  BodyPart part_;
  std::string text_;
  std::size_t at_ = 0;
  bool ended_ = false;
};

}  // namespace

HttpBody multipart_body(const std::string& boundary, NextPart next) {
  HttpBody body;
  const auto source = std::make_shared<PartsSource>(boundary, std::move(next));
  body.read = [source](char* buffer, std::size_t size) { return source->read(buffer, size); };
  return body;
}

}  // namespace vexal
