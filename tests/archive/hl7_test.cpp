// What messages of HL7 say.
#include "archive/hl7.h"

#include <gtest/gtest.h>

namespace vexal::test {
namespace {

std::string message_of(const std::string& rest) {
  return "MSH|^~\\&|HIS|H|RIS|R|20240101||ORM^O01|17|P|2.5.1\r" + rest;
}

TEST(Hl7, ValuesHaveTheirEscapesResolved) {
  Hl7Message message;
  ASSERT_EQ(message.read(message_of(
                "PID|1||A&x&y^B~C^D|\\F\\\\S\\\\T\\\\R\\\\E\\|\\X4142\\\\X0\\\\XE9\\\\H\\z\\.br\\z|\"\"|"
                "\\open\rZZZ\n\nYYY|1\r\n")),
            "");
  ASSERT_EQ(message.segments().size(), 4U);
  const Hl7Segment& pid = message.segments()[1];
  const struct {
    std::size_t field, component, repetition;
    const char* value;
  } rows[] = {{1, 1, 0, "1"}, {2, 1, 0, ""},       {3, 1, 0, "A"}, {3, 2, 0, "B"},        {3, 1, 1, "C"},
              {3, 2, 1, "D"}, {3, 3, 1, ""},       {3, 1, 2, ""},  {5, 1, 0, "ABz z"},    {4, 1, 0, "|^&~\\"},
              {6, 1, 0, ""},  {7, 1, 0, "\\open"}, {8, 1, 0, ""},  {9999, 9999, 9999, ""}};
  for (const auto& row : rows)
    EXPECT_EQ(message.value(pid, row.field, row.component, row.repetition), row.value) << row.field;
  EXPECT_EQ(message.type(), "ORM^O01");
  EXPECT_EQ(
      message.answer("AA", "a|b^c\r", "20240102"),
      "MSH|^~\\&|RIS|R|HIS|H|20240102||ACK^O01^ACK|A17|P|2.5.1||||||UNICODE UTF-8\rMSA|AA|17|a b c x0D\r");
}

TEST(Hl7, DelimitersAreThoseOfTheMessageAndTextBecomesUtf8) {
  Hl7Message message;
  ASSERT_EQ(message.read("MSH#*!$%#A#B#C#D#E##OMI*O23#1#P#2.5######8859/1\rPID#\xE9*x!y"), "");
  EXPECT_EQ(message.type(), "OMI^O23");
  EXPECT_EQ(message.value(message.segments()[1], 1, 1), "\xC3\xA9");
  EXPECT_EQ(message.value(message.segments()[1], 1, 1, 1), "y");
  for (const char* bytes :
       {"", "MSH", "MSH|^~\\&", "PID|1", "MSHA^~\\&|", "MSH|^", "MSH|^~\\&|||||||||||||||||\xE9",
        "MSH|^~\\&||||||||||||||||8859/5\rPID|\xE9", "MSH|^~\\&||||||||||||||||UNICODE UTF-8\rPID|\xE9"}) {
    const std::string error = message.read(bytes);
    EXPECT_EQ(error.empty(), std::string(bytes) == "MSH|^~\\&") << bytes;
    EXPECT_NE(message.answer("AR", error, ""), "") << bytes;
  }
}

}  // namespace
}  // namespace vexal::test
