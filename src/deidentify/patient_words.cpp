#include "deidentify/patient_words.h"

#include <algorithm>
#include <iterator>

#include "deidentify/profile.h"
#include "frame/text.h"
#include "model/attributes.h"
#include "model/dictionary.h"
#include "model/file_values.h"
#include "model/values.h"

namespace vx {
namespace {

// Beside names of people: Accession Number, Institution Name and Address, Patient ID, Other Patient IDs, the
// patient's address and telephone numbers, Admission ID.
constexpr uint32_t kNaming[] = {0x00080050, 0x00080080, 0x00080081, 0x00100020,
                                0x00101000, 0x00101040, 0x00102154, 0x00380010};
constexpr char kEscape = '\x1B';
constexpr std::size_t kShortest = 4;  // bytes; what is shorter stands in many texts by chance

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
// Scripts beyond ASCII may write without spaces.
bool belongs_to_word(char c) {
  const char small = lower(c);
  return is_digit(c) || (small >= 'a' && small <= 'z');
}

bool is_prose(int32_t vr) {
  return vr == VX_VR_LO || vr == VX_VR_SH || vr == VX_VR_ST || vr == VX_VR_LT || vr == VX_VR_UT ||
         vr == VX_VR_UC || vr == VX_VR_UR || vr == VX_VR_PN;
}

// The last letter of an escape sequence (ISO 2022) is none of the text.
bool ends_escape(std::string_view text) {
  text.remove_prefix(text.size() - std::min<std::size_t>(text.size(), 4));
  const std::size_t start = text.find_last_of(kEscape);
  return start != std::string_view::npos && text.size() - start >= 3;
}

uint32_t moved_on(uint32_t window, char next) {
  return window << 8 | static_cast<unsigned char>(lower(next));
}
std::size_t slot_of(uint32_t begin) {
  return begin * 2654435761U >> 20;  // Knuth's multiplier; twelve bits
}

}  // namespace

bool PatientWords::stands_at(std::string_view text, std::size_t at, const Word& word) {
  const std::string_view before = text.substr(0, at);
  text.remove_prefix(at);
  const std::string& wanted = word.text;
  const auto same = [](char a, char b) { return a == lower(b); };
  if (text.size() < wanted.size() || !std::equal(wanted.begin(), wanted.end(), text.begin(), same))
    return false;
  if (!word.apart) return true;
  const bool begins = !belongs_to_word(wanted.front()) || before.empty() || !belongs_to_word(before.back()) ||
                      ends_escape(before);
  const bool ends = !belongs_to_word(wanted.back()) || text.size() == wanted.size() ||
                    !belongs_to_word(text[wanted.size()]);
  return begins && ends;
}

// One pass, however many words there are.
bool PatientWords::stand_in(std::string_view text) const {
  uint32_t window = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    window = moved_on(window, text[i]);
    if (i + 1 < kShortest || !beginnings_[slot_of(window)]) continue;
    auto word = std::lower_bound(words_.begin(), words_.end(), window,
                                 [](const Word& one, uint32_t begin) { return one.begin < begin; });
    for (; word != words_.end() && word->begin == window; ++word) {
      if (stands_at(text, i + 1 - kShortest, *word)) return true;
    }
  }
  return false;
}

TagObj* find_text(MsgObj& object, uint32_t tag) {
  TagObj* attribute = find_tag(object, tag);
  if (attribute == nullptr || !is_text_vr(attribute->VR) || attribute->Storage == Stored::ByCallback)
    return nullptr;
  const bool here = attribute->Storage != Stored::InFile || load_file_value(object, *attribute) == kOk;
  return here ? attribute : nullptr;
}

PatientWords::PatientWords(MsgObj& object, uint32_t options) {
  for (const TagObj* attribute = object.FirstTag; attribute != nullptr; attribute = attribute->Next) {
    DictInfo known{};
    const bool unknown = attribute->VR == VX_VR_UN && dictionary_lookup(attribute->Tag, {}, known) == kOk;
    const int32_t vr = unknown ? known.vr : attribute->VR;
    const bool naming =
        vr == VX_VR_PN || std::binary_search(std::begin(kNaming), std::end(kNaming), attribute->Tag);
    if (!naming || !is_text_vr(vr) || attribute->Storage != Stored::InMemory) continue;
    const ConfidentialityRow* row = confidentiality_of(attribute->Tag, vr);
    if (row == nullptr || action_of(*row, options, Need::Nothing) == Action::Keep) continue;
    for (const ValueObj* value = attribute->FirstValue; value != nullptr; value = value->Next) {
      if (value->Data != nullptr) take({static_cast<const char*>(value->Data), value->Length});
    }
  }
  std::sort(words_.begin(), words_.end());
  words_.erase(std::unique(words_.begin(), words_.end()), words_.end());
}

// The components of a name stand for themselves.
void PatientWords::take(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("^="), text.size());
    std::string_view word = trim(text.substr(0, end));
    add(word, true);
    // Behind the escape sequence that makes its letters, and before the next one, two bytes may be a letter.
    if (word.starts_with(kEscape) && word.size() > 3) {
      word.remove_prefix(word[2] >= '(' && word[2] <= ')' ? 4 : 3);
      add(word.substr(0, word.find(kEscape)), false);
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void PatientWords::add(std::string_view text, bool apart) {
  constexpr std::size_t kEscapeBytes = 4;  // which are no letters
  if (text.size() < kShortest || (text.starts_with(kEscape) && text.size() < kShortest + kEscapeBytes))
    return;
  Word word{0, std::string(text), apart};
  std::transform(word.text.begin(), word.text.end(), word.text.begin(), lower);
  for (std::size_t i = 0; i < kShortest; ++i) word.begin = moved_on(word.begin, word.text[i]);
  beginnings_.set(slot_of(word.begin));
  words_.push_back(std::move(word));
}

bool PatientWords::stand_in(const TagObj& attribute) const {
  if (words_.empty() || !is_prose(attribute.VR) || attribute.Storage != Stored::InMemory) return false;
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    if (value->Data != nullptr && stand_in({static_cast<const char*>(value->Data), value->Length}))
      return true;
  }
  return false;
}

}  // namespace vx
