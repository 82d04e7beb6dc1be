// dict, undict, keywords: everything that concerns the dictionary alone.

#include <iostream>

#include "bytes.h"
#include "commands.h"
#include "dictionary.h"
#include "model/keyword.h"

namespace vxdata {

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
    vx::Keyword derived_text;
    vx::make_keyword(entry.tag, std::string_view(entry.name).substr(0, vx::kMaxKeywordName), derived_text);
    const std::string derived(derived_text.view());
    if (derived == entry.keyword) continue;
    ++differing;
    std::cout << tag_text(entry.tag) << '\t' << entry.keyword << '\t' << derived << '\t' << entry.name
              << '\n';
  }
  std::cerr << differing << " keywords differ from what their names give\n";
  return 0;
}

}  // namespace vxdata
