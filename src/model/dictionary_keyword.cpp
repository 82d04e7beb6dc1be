// Keywords of attributes, made from their names (PS3.6 section 6).

#include <string_view>

#include "frame/text.h"
#include "model/dictionary.h"
#include "model/object.h"

namespace vx {
namespace {

constexpr std::size_t kMaxNameBuffer = 128;

// Units at the end of a name that begin with a small letter.
constexpr std::string_view kUnits[] = {"uAs", "uA", "uS", "mGy", "mAs", "mA", "ms", "ppm"};

bool is_unit(std::string_view rest) {
  for (const std::string_view unit : kUnits) {
    if (rest == unit) return true;
  }
  return false;
}

constexpr char upper(char letter) {
  return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

// A blank or a hyphen begins a new word, apart from a few names where the keyword runs on.
bool begins_word(uint32_t tag, std::string_view name, std::size_t at) {
  if (name[at] == ' ') return tag != 0x00240068 && tag != 0x40101029;
  const std::string_view before = name.substr(0, at);
  if (tag == 0x00520038 || before.ends_with("de") || before.ends_with("De")) return false;
  if (before.ends_with("pre") || before.ends_with("Pre")) return false;
  return !(before.ends_with("Cut") && at >= 13);
}

class Keyword {
 public:
  void add(std::string_view text) {
    for (const char letter : text) text_[length_++] = letter;
  }
  std::string_view view() const { return {text_, length_}; }

 private:
  char text_[kMaxNameBuffer + 8];
  std::size_t length_ = 0;
};

void make_keyword(uint32_t tag, std::string_view name, Keyword& keyword) {
  std::size_t at = 0;
  if (name.starts_with('3') || name.starts_with('2')) {
    keyword.add(name[0] == '3' ? "Three" : "Two");
    at = 1;
  } else if (name.starts_with("k-")) {
    keyword.add("K");
    at = 1;
  }
  bool raise = false;
  for (; at < name.size(); ++at) {
    const char letter = name[at];
    const char next = at + 1 < name.size() ? name[at + 1] : '\0';
    if (letter == ' ' || letter == '-') {
      if (begins_word(tag, name, at)) raise = true;
    } else if (letter == '/' || letter == '(' || letter == ')') {
      continue;
    } else if (letter == '\'' && next == 's') {
      ++at;
    } else if (letter == 's' && next == '\'') {
      keyword.add("s");
      ++at;
    } else if (raise) {
      const char out = is_unit(name.substr(at)) ? letter : upper(letter);
      keyword.add({&out, 1});
      raise = false;
    } else {
      keyword.add({&letter, 1});
    }
  }
}

}  // namespace

VX_STATUS dictionary_keyword(uint32_t tag, char* buffer, int32_t size) {
  DictInfo info{};
  const VX_STATUS status = dictionary_lookup(tag, {}, info);
  if (status == VX_MISSING_CONFIG_PARM) return status;
  if (is_private(tag)) return VX_INVALID_TAG;
  if (buffer == nullptr) return VX_NULL_POINTER_PARM;
  if (size < 1) return VX_BUFFER_TOO_SMALL;
  if (status != kOk) return status;
  Keyword keyword;
  if (tag == 0x00000800) {
    keyword.add("CommandDataSetType");
  } else {
    const std::string_view name = info.name == nullptr ? std::string_view() : std::string_view(info.name);
    make_keyword(tag, name.substr(0, kMaxNameBuffer - 1), keyword);
  }
  if (keyword.view().size() >= static_cast<std::size_t>(size)) return VX_BUFFER_TOO_SMALL;
  copy_text(buffer, static_cast<std::size_t>(size), keyword.view());
  return kOk;
}

}  // namespace vx
