// What names the patient and others, to be found again in texts that the profile does not ask about.
#pragma once

#include <bitset>
#include <compare>
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
    uint32_t begin;    // its first bytes
    std::string text;  // in small letters
    bool apart;        // other letters beside it make it another word
    auto operator<=>(const Word&) const = default;
  };
  void take(std::string_view text);
  void add(std::string_view text, bool apart);
  bool stand_in(std::string_view text) const;
  static bool stands_at(std::string_view text, std::size_t at, const Word& word);

  std::vector<Word> words_;       // ascending
  std::bitset<4096> beginnings_;  // which first bytes may be of a word
};

}  // namespace vx
