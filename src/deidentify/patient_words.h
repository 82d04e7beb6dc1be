// What names the patient and others, to be found again in texts that the profile does not ask about.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/object.h"

namespace vx {

// An attribute with a text, which is brought to memory; null if there is none.
TagObj* find_text(MsgObj& object, uint32_t tag);

class PatientWords {
 public:
  // Of what goes under these options.
  PatientWords(MsgObj& object, uint32_t options);
  // True for a text that holds one of them, whatever its case.
  bool stand_in(const TagObj& attribute) const;

 private:
  struct Word {
    std::string text;
    bool apart;  // other letters beside it make it another word
  };
  void take(std::string_view text);
  void add(std::string_view text, bool apart);
  static bool holds(std::string_view text, const Word& word);

  std::vector<Word> words_;
};

}  // namespace vx
