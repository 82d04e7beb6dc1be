#include "text_documents.h"

#include <algorithm>
#include <cstring>

namespace vexal {

// A block that is not empty; false at the end of the file.
bool TextDocuments::fill() {
  while (block_.empty() && !read_) {
    uint32_t size = 0;
    void* data = nullptr;
    int32_t last = 0;
    failed_ = source_.next(&size, &data, &last) != VX_NORMAL_COMPLETION;
    if (failed_) size = 0;
    read_ = failed_ || last != 0;
    block_ = {static_cast<const char*>(data), size};
  }
  return !block_.empty();
}

// False at the end of the file.
bool TextDocuments::skip_blanks() {
  while (fill()) {
    const std::size_t blanks = std::min(block_.find_first_not_of(" \t\r\n"), block_.size());
    block_.remove_prefix(blanks);
    if (!block_.empty()) return true;
  }
  return false;
}

bool TextDocuments::next(std::string& problem) {
  bool found = false;
  const bool first = !started_;
  started_ = true;
  if (first && fill() && block_.starts_with("\xEF\xBB\xBF")) block_.remove_prefix(3);
  if (kind_ == Kind::One) {
    found = first && fill();
    whole_ = true;
  } else if (!whole_) {
    found = first ? skip_blanks() : true;
    if (found && first && block_.front() == '[') {
      in_array_ = true;
      block_.remove_prefix(1);
      found = skip_blanks() && block_.front() != ']' && block_.front() != ',' && next_object(problem);
    } else if (found && first) {
      whole_ = block_.front() != '{';  // for the library to refuse
    } else if (found) {
      found = next_object(problem);
    }
  }
  if (failed_) problem = "can not be read to its end";
  if (!found && first && problem.empty()) problem = "holds no document";
  return found && problem.empty();
}

// The object behind a comma, a bracket, or another object.
bool TextDocuments::next_object(std::string& problem) {
  if (!skip_blanks()) {
    if (in_array_) problem = "ends inside its array";
    return false;
  }
  if (in_array_ && (block_.front() == ']' || block_.front() == ',')) {
    const bool more = block_.front() == ',';
    block_.remove_prefix(1);
    if (!more) in_array_ = false;
    if (!skip_blanks()) {
      if (more) problem = "ends inside its array";
      return false;
    }
    if (!more) problem = "goes on behind its array";
  }
  if (problem.empty() && block_.front() != '{') problem = "holds something else beside objects";
  return problem.empty();
}

// Bytes of the block that belong to the object.
std::size_t TextDocuments::object_part() {
  std::size_t at = 0;
  std::size_t quote = std::string_view::npos;  // the next one, if it is known and not behind `at`
  while (at < block_.size()) {
    if (escaped_) {
      escaped_ = false;
      ++at;
    } else if (in_string_) {
      if (quote == std::string_view::npos || quote < at)
        quote = std::min(block_.find('"', at), block_.size());
      const void* slash = std::memchr(block_.data() + at, '\\', quote - at);
      escaped_ = slash != nullptr;
      if (!escaped_ && quote == block_.size()) return quote;
      in_string_ = escaped_;
      at = 1 + (escaped_ ? static_cast<std::size_t>(static_cast<const char*>(slash) - block_.data()) : quote);
    } else {
      const char c = block_[at++];
      in_string_ = c == '"';
      if (c == '{' || c == '[') ++depth_;
      if ((c == '}' || c == ']') && --depth_ == 0) return at;
    }
  }
  return at;
}

VX_STATUS TextDocuments::give(int32_t, void* user, uint32_t* size, void** data, int32_t, int32_t* last) {
  auto& documents = *static_cast<TextDocuments*>(user);
  documents.fill();
  if (documents.failed_) return VX_CALLBACK_CANNOT_COMPLY;
  const std::size_t part = documents.whole_ ? documents.block_.size() : documents.object_part();
  *size = static_cast<uint32_t>(part);
  *data = const_cast<char*>(documents.block_.data());
  documents.block_.remove_prefix(part);
  *last =
      (documents.block_.empty() && documents.read_) || (!documents.whole_ && documents.depth_ == 0) ? 1 : 0;
  return VX_NORMAL_COMPLETION;
}

}  // namespace vexal
