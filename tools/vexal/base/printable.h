// Text as a terminal may have it: what would steer the terminal, or is no text at all, becomes visible.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vexal {

// Length of the UTF-8 character at the head of a text, 0 if there is none.
std::size_t utf8_length(std::string_view text);
bool is_utf8(std::string_view text);
// The code point of one such character.
char32_t utf8_code_point(std::string_view character);

// Controls, ends of lines, and what changes the direction of the text behind it.
bool is_steering(char32_t c);

// Appends to a string, up to a number of characters. Control characters and bytes that are no text become
// \xNN, characters that would turn the order of a line around \uNNNN; such an escape is never cut apart.
class ShownText {
 public:
  explicit ShownText(std::string& out, std::size_t limit = 0) : out_(out), limit_(limit) {}  // 0: no limit

  // Up to the first byte beyond ASCII, or an ESC, which may lead there: false then.
  bool add_ascii(std::string_view text);
  void add_bytes(std::string_view text);  // escaped where they are not ASCII
  void add_utf8(std::string_view text);
  void add_unicode(std::u16string_view text);
  void add_byte(char byte);  // escaped
  // More was given than is shown.
  bool is_cut() const { return cut_; }

 private:
  void add_run(std::string_view ascii);
  bool add_plain(std::string_view& text);
  void add_character(std::string_view utf8, std::size_t columns);
  void add_code_point(char32_t c);

  std::string& out_;
  std::size_t limit_;
  std::size_t used_ = 0;
  bool cut_ = false;
};

// Appends bytes that are not all text: the characters among them, all else as \xNN.
void show_broken(ShownText& out, std::string_view bytes, const std::string& charset, bool person_name);
// The whole of it, for messages.
std::string shown(std::string_view utf8);

void append_utf8(std::string& out, char32_t c);
void append_utf16(std::u16string& out, char32_t c);
// The code point at `at`, which moves behind it; a half of a pair by itself stays what it is.
char32_t next_code_point(std::u16string_view text, std::size_t& at);

}  // namespace vexal
