// Bodies of several parts, as the web services send them (RFC 2046 section 5.1), read and written piece by
// piece.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "http_message.h"

namespace vexal {

// The value of a parameter of a header such as "multipart/related; boundary=abc", without its quotes; "" if
// it has none.
std::string header_parameter(std::string_view header, std::string_view name);

class MultipartReader {
 public:
  // Takes the parts. Each call gives an error text, empty to go on.
  class Taker {
   public:
    Taker() = default;
    virtual ~Taker() = default;
    Taker(const Taker&) = delete;
    Taker& operator=(const Taker&) = delete;
    // `headers`: the lines of the part's headers.
    virtual std::string begin(std::string_view headers) = 0;
    virtual std::string take(std::string_view bytes) = 0;
    virtual std::string end() = 0;
  };

  MultipartReader(std::string_view boundary, Taker& taker);
  // The next bytes of the body. An error text, empty on success.
  std::string feed(std::string_view bytes);
  // True once the delimiter behind the last part has come.
  bool complete() const { return state_ == State::Epilogue; }

 private:
  enum class State { Outside, Delimiter, Headers, Part, Epilogue };
  bool step(std::string& error);
  bool to_delimiter(bool part, std::string& error);
  bool pass_headers(std::string& error);

  Taker& taker_;
  std::string delimiter_;
  std::string pending_;
  std::size_t position_ = 0;  // in `pending_`
  State state_ = State::Outside;
};

// The value of a header among lines of headers; "" if it is not there.
std::string header_in(std::string_view lines, std::string_view name);

struct BodyPart {
  HttpFields headers{};
  HttpBody body{};
};
// Gives the next part: 1 if there is one, 0 at the end, -1 on a failure.
using NextPart = std::function<int(BodyPart& part)>;

// A body of the parts, which are asked for one after the other while it is sent.
HttpBody multipart_body(const std::string& boundary, NextPart next);

}  // namespace vexal
