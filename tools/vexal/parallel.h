// Work on many files at once, results in the order of the files.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vexal {

struct FileResult {
  std::string output;  // for standard output
  int exit = 0;
};

// Runs `work` for each file on up to `threads` threads and prints the outputs in order, each as soon as it is
// its turn. Shows progress on a terminal when it takes long. The worst exit code.
int for_each_file(const std::vector<std::string>& files, unsigned threads,
                  const std::function<FileResult(const std::string&)>& work);

unsigned default_threads();

}  // namespace vexal
