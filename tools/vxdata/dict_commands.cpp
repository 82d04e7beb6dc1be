// dict, undict, keywords: everything that concerns the dictionary alone.

#include <cctype>
#include <iostream>

#include "bytes.h"
#include "commands.h"
#include "dictionary.h"

namespace vxdata {
namespace {

// One word of rule 4 below: a unit at the very end of a name keeps its small letter.
bool unit_at_end(std::string_view name, size_t at) {
  const size_t left = name.size() - at;
  const char first = name[at];
  const char second = left > 1 ? name[at + 1] : '\0';
  if (left == 3) {
    return (first == 'u' && (second == 'A' || second == 's')) ||
           (first == 'm' && (second == 'G' || second == 'y' || second == 'A' || second == 's')) ||
           (first == 'p' && (second == 'p' || second == 'm'));
  }
  if (left == 2) {
    return (first == 'u' && (second == 'A' || second == 'S')) ||
           (first == 'm' && (second == 'A' || second == 's'));
  }
  return false;
}

bool hyphen_joins(uint32_t tag, std::string_view before, size_t at) {
  const auto ends = [&](std::string_view tail) {
    return before.size() >= tail.size() && before.substr(before.size() - tail.size()) == tail;
  };
  return ends("de") || ends("De") || ends("pre") || ends("Pre") || (ends("Cut") && at >= 13) ||
         tag == 0x00520038;
}

// The keyword that the library derives from a name.
std::string keyword_of(uint32_t tag, std::string name) {
  if (tag == 0x00000800) return "CommandDataSetType";
  if (name.rfind('3', 0) == 0) name = "Three" + name.substr(1);
  if (name.rfind('2', 0) == 0) name = "Two" + name.substr(1);
  if (name.rfind("k-", 0) == 0) name[0] = 'K';
  std::string keyword;
  bool raise = false;
  for (size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    const char next = i + 1 < name.size() ? name[i + 1] : '\0';
    if (c == ' ') {
      raise = raise || (tag != 0x00240068 && tag != 0x40101029);
    } else if (c == '-') {
      raise = raise || !hyphen_joins(tag, std::string_view(name).substr(0, i), i);
    } else if (c == '/' || c == '(' || c == ')') {
      continue;
    } else if (c == '\'' && next == 's') {
      ++i;
    } else if (c == 's' && next == '\'') {
      keyword += c;
      ++i;
    } else {
      keyword +=
          raise && !unit_at_end(name, i) ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
      raise = false;
    }
  }
  return keyword;
}

}  // namespace

int run_dict(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"-o"});
  const std::string output = arguments.required("-o");
  Problems problems;
  Dictionary dictionary;
  for (const auto& path : arguments.inputs(1, 1000)) dictionary.read_text(path, problems);
  dictionary.sort(problems);
  if (problems.errors() != 0) return 1;
  write_file(output, dictionary.to_binary());
  return 0;
}

int run_undict(int argc, char** argv) {
  const Arguments arguments(argc, argv, {"-o"});
  const std::string& path = arguments.inputs(1, 1).front();
  Dictionary dictionary;
  dictionary.from_binary(path, read_file(path));
  const std::string text = dictionary.to_text();
  if (const std::string output = arguments.option("-o"); !output.empty()) {
    write_file(output, text);
  } else {
    std::cout << text;
  }
  return 0;
}

int run_keywords(int argc, char** argv) {
  const Arguments arguments(argc, argv, {});
  Problems problems;
  Dictionary dictionary;
  for (const auto& path : arguments.inputs(1, 1000)) dictionary.read_text(path, problems);
  if (problems.errors() != 0) return 1;
  int differing = 0;
  for (const auto& entry : dictionary.entries()) {
    if (entry.keyword.empty()) continue;
    const std::string derived = keyword_of(entry.tag, entry.name);
    if (derived == entry.keyword) continue;
    ++differing;
    std::cout << tag_text(entry.tag) << '\t' << entry.keyword << '\t' << derived << '\t' << entry.name
              << '\n';
  }
  std::cerr << differing << " keywords differ from what their names give\n";
  return 0;
}

}  // namespace vxdata
