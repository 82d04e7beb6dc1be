// A JSON text (RFC 8259) that is checked as a whole before any of it is used, and the values in it where they
// lie. Nothing is built: what a document holds costs its text and a few words for each long bracket.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vx {

// Brackets inside brackets. Each level of sequences has three.
inline constexpr std::size_t kMaxJsonDepth = 1024;

enum class JsonKind { Object, Array, String, Number, True, False, Null };

class JsonText {
 public:
  // Why a text is no JSON; null if it is.
  struct Fault {
    const char* reason = nullptr;
    std::size_t offset = 0;
    std::size_t line = 0;
    std::size_t column = 0;
  };

  explicit JsonText(std::string_view text);
  const Fault& fault() const { return fault_; }

  // What follows holds for a text without fault; a value is named by its offset.
  std::size_t top() const { return top_; }
  JsonKind kind(std::size_t at) const;
  // Offset behind the value.
  std::size_t end(std::size_t at) const;
  // The characters of a string: in the text itself, or in `work` where escapes had to be undone. Empty for
  // any other value.
  std::string_view string(std::size_t at, std::string& work) const;
  // A number as it is written.
  std::string_view number(std::size_t at) const { return text_.substr(at, end(at) - at); }

  // The members of an object, or the elements of an array, in their order:
  //   for (auto place = text.inside(at); text.next(place);) ... place.value
  struct Place {
    std::size_t value = 0;
    std::size_t key = 0;  // offset of the key's string; of an object only
    std::size_t next = 0;
    bool keyed = false;
  };
  Place inside(std::size_t at) const;
  bool next(Place& place) const;

 private:
  void check();
  void refuse(std::size_t at, const char* reason);
  bool check_key(std::size_t& at);
  bool check_scalar(std::size_t& at);
  bool check_string(std::size_t& at);
  bool check_number(std::size_t& at);
  std::size_t skip_blanks(std::size_t at) const;
  std::size_t string_end(std::size_t at) const;

  struct Extent {
    std::size_t begin;
    std::size_t end;
  };
  const std::string_view text_;
  Fault fault_;
  std::size_t top_ = 0;
  std::vector<Extent> long_;  // by their begin
};

}  // namespace vx
