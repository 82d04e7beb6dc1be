// Messages of HL7 version 2 in its encoding by delimiters (HL7 2.5.1 chapter 2).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vexal {

// A segment: its name and its fields, as they stand in the message.
struct Hl7Segment {
  std::string name;
  std::vector<std::string> fields;  // from 1 on; 0 is the name
};

class Hl7Message {
 public:
  // An error text, empty on success. Text is UTF-8 then, from the character set that MSH-18 names.
  std::string read(std::string_view bytes);

  const std::vector<Hl7Segment>& segments() const { return segments_; }
  // A component of the first repetition of a field of a segment, its escapes resolved; "" where there is
  // none. Fields and components count from 1; `repetition` from 0.
  std::string value(const Hl7Segment& segment, std::size_t field, std::size_t component,
                    std::size_t repetition = 0) const;
  std::string type() const { return value(segments_[0], 9, 1) + "^" + value(segments_[0], 9, 2); }
  std::string control_id() const { return value(segments_[0], 10, 1); }

  // The acknowledgement: AA, AE or AR, and why.
  std::string answer(const char* code, const std::string& text, const std::string& time) const;

 private:
  std::string unescaped(std::string_view text) const;

  char field_ = '|';
  char component_ = '^';
  char repetition_ = '~';
  char escape_ = '\\';
  char subcomponent_ = '&';
  std::vector<Hl7Segment> segments_;
};

}  // namespace vexal
