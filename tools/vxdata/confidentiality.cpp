// confidentiality: the tables of what identifies a patient as C++ source, for the library.

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "bytes.h"
#include "commands.h"
#include "text.h"

namespace vxdata {
namespace {

constexpr uint32_t kWholeTag = 0xFFFFFFFF;
constexpr uint32_t kRepeatingTag = 0xFF00FFFF;
constexpr uint32_t kRepeatingGroup = 0xFF000000;

// "X/Z/U*" as the sum of its letters; empty if it is none.
std::string action_source(const std::string& text) {
  std::string source;
  for (const std::string& part : split(text, '/')) {
    const std::string letter = part == "U*" ? "U" : part;
    if (letter.size() != 1 || std::string_view("DZXU").find(letter) == std::string_view::npos) return "";
    source += (source.empty() ? "kMay" : " | kMay") + letter;
  }
  return source;
}

// The enumerator of an option: the interface's name for the word, which the compiler knows or refuses.
std::string enumerator(const std::string& option) {
  std::string name = "VX_" + option;
  for (char& c : name) c = c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return name;
}

class ConfidentialityTable {
 public:
  ConfidentialityTable(const std::string& path, Problems& problems) : path_(path), problems_(problems) {
    for (const Line& line : read_lines(path)) take(line);
  }
  std::string source() const {
    std::string tags;
    for (const auto& [tag, row] : tags_) tags += row;
    return "constexpr ConfidentialityRow kTagRows[] = {\n" + tags + "};\n" +
           "constexpr ConfidentialityRow kVrRows[] = {\n" + vrs_ + "};\n" +
           "constexpr ConfidentialityRow kPrivateRow =\n" + private_ + ";\n" +
           "constexpr std::string_view kPublicSchemes[] = {\n" + schemes_ + "};\n";
  }
  bool complete() const { return !tags_.empty() && !private_.empty() && !schemes_.empty(); }

 private:
  void take(const Line& line) {
    const std::vector<std::string> columns = split(line.text, '\t');
    const std::string& key = columns[0];
    if (key.starts_with("scheme ")) {
      schemes_ += "    \"" + key.substr(7) + "\",\n";
      return;
    }
    const std::string action = columns.size() >= 3 && columns.size() <= 4 ? action_source(columns[1]) : "";
    if (action.empty()) return fault(line, "not a tag, an action, a keyword and options");
    const std::string rest = rest_of_row(line, action, columns.size() == 4 ? columns[3] : "");
    if (key == "private") {
      private_ = "    {0, 0, " + rest + "}";
    } else if (key.starts_with("vr ")) {
      const std::optional<int> vr = vr_code(key.substr(3));
      if (!vr) return fault(line, "no such VR");
      vrs_ += format("    {%d, 0, ", *vr) + rest + "},\n";
    } else {
      take_tag(line, key.starts_with("also ") ? key.substr(5) : key, rest);
    }
  }
  void take_tag(const Line& line, const std::string& key, const std::string& rest) {
    const bool whole_group = key.ends_with("xx,xxxx");
    const std::optional<TagText> tag = parse_tag(whole_group ? key.substr(0, 5) + "0000" : key);
    if (!tag || tag->block_free) return fault(line, "not a tag");
    const uint32_t mask = whole_group ? kRepeatingGroup : key[2] == 'x' ? kRepeatingTag : kWholeTag;
    const std::string row = format("    {0x%08X, 0x%08X, ", tag->tag, mask) + rest + "},\n";
    if (!tags_.emplace(tag->tag, row).second) fault(line, "the tag has a row already");
  }
  std::string rest_of_row(const Line& line, const std::string& action, const std::string& options) {
    std::string keep, clean, dummy = "false";
    for (const std::string& word : split(options, ' ')) {
      if (word.empty()) continue;
      if (word == "dummy=patient") {
        dummy = "true";
      } else if (word.ends_with("=K") || word.ends_with("=C")) {
        std::string& list = word.back() == 'K' ? keep : clean;
        list += (list.empty() ? "" : " | ") + enumerator(word.substr(0, word.size() - 2));
      } else {
        fault(line, "unknown option " + word);
      }
    }
    return action + ", " + (keep.empty() ? "0" : keep) + ", " + (clean.empty() ? "0" : clean) + ", " + dummy;
  }
  void fault(const Line& line, const std::string& text) { problems_.error(path_, line.number, text); }

  std::string path_;
  Problems& problems_;
  std::map<uint32_t, std::string> tags_;
  std::string vrs_, private_, schemes_;
};

std::string safe_source(const std::string& path, Problems& problems) {
  std::string rows;
  std::string creator;
  for (const Line& line : read_lines(path)) {
    if (line.text.starts_with("@ ")) {
      creator = trim(line.text.substr(2));
      continue;
    }
    const std::optional<TagText> tag = parse_tag(split(line.text, '\t')[0]);
    if (!tag || !tag->block_free || !is_private(tag->tag) || creator.empty()) {
      problems.error(path, line.number, "not a private attribute below its creator");
      continue;
    }
    rows += format("    {\"%s\", 0x%04X, 0x%02X},\n", creator.c_str(), tag->tag >> 16, tag->tag & 0xFF);
  }
  return "constexpr SafePrivate kSafePrivate[] = {\n" + rows + "};\n";
}

// What the standard has given: in the order of their texts, to be looked up.
std::string uids_source(const std::string& path) {
  std::set<std::string> uids;
  for (const Line& line : read_lines(path)) uids.insert(split(line.text, '\t')[0]);
  std::string rows;
  for (const std::string& uid : uids) rows += "    \"" + uid + "\",\n";
  return "constexpr std::string_view kStandardUids[] = {\n" + rows + "};\n";
}

}  // namespace

int run_confidentiality(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"--safe-private", "--uids", "-o"});
  Problems problems;
  const std::string& path = arguments.inputs(1, 1)[0];
  const ConfidentialityTable table(path, problems);
  const std::string safe = safe_source(arguments.required("--safe-private"), problems);
  if (!table.complete()) problems.error(path, 1, "tags, private or schemes are missing");
  if (problems.errors() != 0) return 1;
  write_file(arguments.required("-o"),
             "// Made from the tables under data/ by vxdata confidentiality; not for editing.\n" +
                 table.source() + safe + uids_source(arguments.required("--uids")));
  return 0;
}

}  // namespace vxdata
