#include "model/keyword.h"

namespace vx {
namespace {

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

// Words whose hyphen begins no new one.
constexpr std::string_view kJoined[] = {"Multi-energy", "Sub-operations", "A-scan", "B-scan"};

// Names that no rule leads from to the keyword which the standard prints.
struct Given {
  uint32_t tag;
  std::string_view name;
  std::string_view keyword;
};
constexpr Given kGiven[] = {
    {0x00082229, "Anatomic Structure, Space or Region Sequence", "AnatomicStructureSpaceOrRegionSequence"},
    {0x0014511F, "Radius Along the Wedge", "RadiusAlongWedge"},
    {0x0016001E, "ISO Speed Latitude yyy", "ISOSpeedLatitudeyyy"},
    {0x0016001F, "ISO Speed Latitude zzz", "ISOSpeedLatitudezzz"},
    {0x00181180, "Collimator/grid Name", "CollimatorGridName"},
    {0x00281055, "Window Center & Width Explanation", "WindowCenterWidthExplanation"},
    {0x00286020, "Frame Numbers of Interest (FOI)", "FrameNumbersOfInterest"},
    {0x3002010A, "RT Image Frame kV Radiation Acquisition Sequence",
     "RTImageFramekVRadiationAcquisitionSequence"},
};

// A blank or a hyphen begins a new word, apart from a few names where the keyword runs on.
bool begins_word(uint32_t tag, std::string_view name, std::size_t at) {
  if (name[at] == ' ') return tag != 0x00240068 && tag != 0x40101029;
  const std::string_view before = name.substr(0, at);
  if (tag == 0x00520038 || before.ends_with("de") || before.ends_with("De")) return false;
  if (before.ends_with("pre") || before.ends_with("Pre")) return false;
  for (const std::string_view word : kJoined) {
    const std::size_t hyphen = word.find('-');
    if (at >= hyphen && name.substr(at - hyphen).starts_with(word)) return false;
  }
  return !(before.ends_with("Cut") && at >= 13);
}

}  // namespace

void make_keyword(uint32_t tag, std::string_view name, Keyword& keyword) {
  if (tag == 0x00000800) return keyword.add("CommandDataSetType");
  for (const Given& row : kGiven) {
    if (row.tag == tag && row.name == name) return keyword.add(row.keyword);
  }
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

}  // namespace vx
