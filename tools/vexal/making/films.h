// Films as they become objects.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/args.h"
#include "input.h"
#include "vexalkit.h"

namespace vexal {

struct FilmOptions {
  uint64_t rate = 0;  // frames a second as a fraction, where the stream does not tell; 0: not given
  uint64_t rate_base = 1;
  bool read(const Args& args);  // false after a line on standard error
};
#define VEXAL_FILM_OPTIONS \
  { "--rate", "N", "frames a second of a film whose stream does not tell: 25, 29.97 or 30000/1001" }

// The syntax of a film, and its attributes. An error text, empty on success.
std::string describe_film(const Input& input, const FilmOptions& options, VX_TRANSFER_SYNTAX& syntax,
                          std::vector<std::pair<std::string, std::string>>& attributes);

}  // namespace vexal
