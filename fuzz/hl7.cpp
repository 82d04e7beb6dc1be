// Messages of HL7, whatever their delimiters: every value is UTF-8, and there always is an answer.
#include "archive/hl7.h"

#include <cstdint>
#include <cstdlib>

#include "base/printable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  using namespace vexal;
  Hl7Message message;
  const std::string error = message.read({reinterpret_cast<const char*>(data), size});
  const std::string answer = message.answer(error.empty() ? "AA" : "AR", error, "20240101120000");
  if (answer.find("\rMSA") == std::string::npos) std::abort();
  if (!error.empty()) return 0;
  for (const Hl7Segment& segment : message.segments()) {
    for (std::size_t field = 1; field <= segment.fields.size() && field < 50; ++field) {
      for (std::size_t component = 1; component < 4; ++component) {
        for (std::size_t repetition = 0; repetition < 2; ++repetition)
          if (!is_utf8(message.value(segment, field, component, repetition))) std::abort();
      }
    }
  }
  return 0;
}
