// What vexal pixel does with whole-slide images.
#pragma once

#include <string>
#include <vector>

#include "base/args.h"

namespace vexal {

// The matrix of the files as one picture; these are one image, or parts of its concatenation.
int render_matrix(const Args& args, const std::vector<std::string>& files, const std::string& out);
// The pyramids that images of the files and folders make.
int show_levels(const std::vector<std::string>& paths);

}  // namespace vexal
