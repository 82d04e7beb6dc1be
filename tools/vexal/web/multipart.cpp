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
  position_ = end + 4;
  state_ = State::Part;
  error = taker_.begin();
  return error.empty();
}

}  // namespace vexal
