#include "hl7.h"

#include <algorithm>
#include <cctype>

#include "base/printable.h"

namespace vexal {
namespace {

constexpr std::size_t kMostSegments = 10000;

// The part at `index` between delimiters; "" behind the last.
std::string_view part(std::string_view text, char delimiter, std::size_t index) {
  for (; index > 0; --index) {
    const std::size_t at = text.find(delimiter);
    if (at == std::string_view::npos) return "";
    text.remove_prefix(at + 1);
  }
  return text.substr(0, text.find(delimiter));
}

int hex_digit(char c) {
  const int lower = std::tolower(static_cast<unsigned char>(c));
  return lower >= '0' && lower <= '9' ? lower - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Into UTF-8; an error text, empty on success.
std::string decode(const std::string& charset, std::string& text) {
  const auto is = [&](std::string_view name) { return charset == name; };
  if (is("UNICODE UTF-8") || is("UTF-8") || is("")) {
    // Without a name it is to be ASCII; what senders give is often UTF-8 then.
    return is_utf8(text) ? "" : "is not in the character set that MSH-18 names";
  }
  if (is("8859/1")) {
    std::string utf8;
    for (const char c : text) append_utf8(utf8, static_cast<unsigned char>(c));
    text = std::move(utf8);
    return "";
  }
  const bool ascii = std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
  return ascii ? "" : "its character set " + charset + " is not supported";
}

}  // namespace

std::string Hl7Message::read(std::string_view bytes) {
  segments_.clear();
  if (!bytes.starts_with("MSH") || bytes.size() < 8) return "does not begin with MSH";
  field_ = bytes[3];
  const std::string_view marks = part(bytes.substr(4), field_, 0).substr(0, 5);
  const auto is_mark = [](unsigned char c) { return c < 0x80 && std::ispunct(c) != 0; };
  if (!is_mark(static_cast<unsigned char>(field_)) || marks.size() < 2 ||
      !std::all_of(marks.begin(), marks.end(), is_mark))
    return "has no delimiters";
  component_ = marks[0];
  repetition_ = marks[1];
  escape_ = marks.size() > 2 ? marks[2] : '\0';
  subcomponent_ = marks.size() > 3 ? marks[3] : '\0';
  std::string text(bytes);
  const std::string_view head = std::string_view(bytes).substr(0, bytes.find_first_of("\r\n"));
  const std::string_view sets = part(head, field_, 17);
  if (const std::string error = decode(std::string(part(sets, repetition_, 0)), text); !error.empty())
    return error;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t end = std::min(rest.find_first_of("\r\n"), rest.size());
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (line.empty()) continue;
    if (segments_.size() == kMostSegments) return "has too many segments";
    Hl7Segment segment;
    for (std::string_view left = line;;) {
      const std::size_t at = std::min(left.find(field_), left.size());
      segment.fields.emplace_back(left.substr(0, at));
      // The first delimiter of MSH is a field itself.
      if (segment.fields.size() == 1 && left.starts_with("MSH")) segment.fields.emplace_back(1, field_);
      if (at == left.size()) break;
      left.remove_prefix(at + 1);
    }
    segment.name = segment.fields[0];
    segments_.push_back(std::move(segment));
  }
  return "";
}

std::string Hl7Message::value(const Hl7Segment& segment, std::size_t field, std::size_t component,
                              std::size_t repetition) const {
  if (field >= segment.fields.size()) return "";
  const std::string_view text =
      part(part(segment.fields[field], repetition_, repetition), component_, component - 1);
  // Two quotes stand for a value that is to be deleted.
  if (text == "\"\"") return "";
  return unescaped(subcomponent_ != '\0' ? text.substr(0, text.find(subcomponent_)) : text);
}

std::string Hl7Message::unescaped(std::string_view text) const {
  if (escape_ == '\0') return std::string(text);
  std::string plain;
  while (!text.empty()) {
    const std::size_t at = text.find(escape_);
    plain += text.substr(0, at);
    if (at == std::string_view::npos) break;
    const std::size_t end = text.find(escape_, at + 1);
    if (end == std::string_view::npos) {
      plain += text.substr(at);
      break;
    }
    const std::string_view code = text.substr(at + 1, end - at - 1);
    text.remove_prefix(end + 1);
    const std::pair<char, char> kMarks[] = {
        {'F', field_}, {'S', component_}, {'R', repetition_}, {'E', escape_}, {'T', subcomponent_}};
    const auto* mark = std::find_if(std::begin(kMarks), std::end(kMarks), [&](const auto& row) {
      return code.size() == 1 && code[0] == row.first;
    });
    if (mark != std::end(kMarks)) plain += mark->second;
    if (code == ".br") plain += ' ';
    // Bytes in hexadecimal; those beyond ASCII would depend on the character set.
    for (std::size_t i = 1; code.starts_with('X') && i + 1 < code.size(); i += 2) {
      const int byte = hex_digit(code[i]) * 16 + hex_digit(code[i + 1]);
      if (hex_digit(code[i]) >= 0 && hex_digit(code[i + 1]) >= 0 && byte >= 0x20 && byte < 0x7F)
        plain += static_cast<char>(byte);
    }
  }
  return plain;
}

std::string Hl7Message::answer(const char* code, const std::string& text, const std::string& time) const {
  const auto field = [&](std::size_t number) {
    return segments_.empty() || number >= segments_[0].fields.size() ? std::string()
                                                                     : segments_[0].fields[number];
  };
  const std::string bar(1, field_);
  std::string marks = {component_, repetition_};
  if (escape_ != '\0') marks += escape_;
  if (subcomponent_ != '\0') marks += subcomponent_;
  std::string shown_text;
  for (const char c : shown(text)) shown_text += c == field_ || marks.find(c) != std::string::npos ? ' ' : c;
  const std::string trigger = segments_.empty() ? "" : value(segments_[0], 9, 2);
  // The two sides change places.
  return "MSH" + bar + marks + bar + field(5) + bar + field(6) + bar + field(3) + bar + field(4) + bar +
         time + bar + bar + "ACK" + (trigger.empty() ? "" : component_ + trigger + component_ + "ACK") + bar +
         "A" + field(10) + bar + (field(11).empty() ? "P" : field(11)) + bar +
         (field(12).empty() ? "2.5.1" : field(12)) + (bar + bar + bar + bar + bar + bar) +
         "UNICODE UTF-8\rMSA" + bar + code + bar + field(10) + bar + shown_text + "\r";
}

}  // namespace vexal
