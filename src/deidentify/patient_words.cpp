#include "deidentify/patient_words.h"

#include <algorithm>

#include "frame/text.h"
#include "model/attributes.h"
#include "model/file_values.h"
#include "model/values.h"

namespace vx {
namespace {

// Patient's Name, ID, other IDs and names, birth name, Accession Number, Admission ID.
constexpr uint32_t kNaming[] = {0x00100010, 0x00100020, 0x00101000, 0x00101001,
                                0x00101005, 0x00080050, 0x00380010};
constexpr std::size_t kShortest = 4;  // bytes; what is shorter stands in many texts by chance

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
bool belongs_to_word(char c) {
  const char small = lower(c);
  return is_digit(c) || (small >= 'a' && small <= 'z') || static_cast<unsigned char>(c) >= 0x80;
}

bool is_prose(int32_t vr) {
  return vr == VX_VR_LO || vr == VX_VR_SH || vr == VX_VR_ST || vr == VX_VR_LT || vr == VX_VR_UT ||
         vr == VX_VR_UC || vr == VX_VR_UR || vr == VX_VR_PN;
}

bool holds_word(std::string_view text, const std::string& word) {
  const auto same = [](char a, char b) { return lower(a) == b; };
  for (auto from = text.begin();; ++from) {
    from = std::search(from, text.end(), word.begin(), word.end(), same);
    if (from == text.end()) return false;
    const auto behind = from + static_cast<std::ptrdiff_t>(word.size());
    if ((from == text.begin() || !belongs_to_word(from[-1])) &&
        (behind == text.end() || !belongs_to_word(*behind)))
      return true;
  }
}

}  // namespace

TagObj* find_text(MsgObj& object, uint32_t tag) {
  TagObj* attribute = find_tag(object, tag);
  if (attribute == nullptr || !is_text_vr(attribute->VR) || attribute->Storage == Stored::ByCallback)
    return nullptr;
  const bool here = attribute->Storage != Stored::InFile || load_file_value(object, *attribute) == kOk;
  return here ? attribute : nullptr;
}

PatientWords::PatientWords(MsgObj& object) {
  for (const uint32_t tag : kNaming) {
    const TagObj* attribute = find_tag(object, tag);
    if (attribute == nullptr || !is_text_vr(attribute->VR) || attribute->Storage != Stored::InMemory)
      continue;
    for (const ValueObj* value = attribute->FirstValue; value != nullptr; value = value->Next) {
      if (value->Data != nullptr) take({static_cast<const char*>(value->Data), value->Length});
    }
  }
}

// The components of a name stand for themselves.
void PatientWords::take(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("^="), text.size());
    std::string word(trim(text.substr(0, end)));
    std::transform(word.begin(), word.end(), word.begin(), lower);
    if (word.size() >= kShortest) words_.push_back(std::move(word));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

bool PatientWords::stand_in(const TagObj& attribute) const {
  if (words_.empty() || !is_prose(attribute.VR) || attribute.Storage != Stored::InMemory) return false;
  for (const ValueObj* value = attribute.FirstValue; value != nullptr; value = value->Next) {
    if (value->Data == nullptr) continue;
    const std::string_view text(static_cast<const char*>(value->Data), value->Length);
    if (std::any_of(words_.begin(), words_.end(), [&](const auto& word) { return holds_word(text, word); }))
      return true;
  }
  return false;
}

}  // namespace vx
