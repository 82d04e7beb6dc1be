// Bodies of several parts, as the web services send them (RFC 2046 section 5.1), read piece by piece.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

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
    virtual std::string begin() = 0;
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

}  // namespace vexal
