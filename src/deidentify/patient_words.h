// What names the patient, to be found again in texts that the profile does not ask about.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "model/object.h"

namespace vx {

// An attribute with a text, which is brought to memory; null if there is none.
TagObj* find_text(MsgObj& object, uint32_t tag);

class PatientWords {
 public:
  explicit PatientWords(MsgObj& object);
  // True for a text that holds one of them, whatever its case.
  bool stand_in(const TagObj& attribute) const;

 private:
  void take(std::string_view text);

  std::vector<std::string> words_;
};

}  // namespace vx
