// How the program writes a file, for every subcommand that does.
#pragma once

#include <string>

#include "base/args.h"
#include "files/files.h"

namespace vexal {

// Rows of an option table.
#define VEXAL_WRITE_OPTIONS                                                                   \
  {"--group-lengths", "on|off", "write the group lengths that the object has (default off)"}, \
      {"--undefined-lengths", nullptr, "write sequences and items with undefined length"},    \
      {"--pad", "N", "pad the file to a multiple of N bytes, an even number"}, {              \
    "--level", "N", "effort of deflation, 0 to 9"                                             \
  }

class RecodedPixels;

struct WriteOptions {
  int32_t pad = 0;
  bool read(const Args& args);  // also hands settings to the library; false after a line on standard error
};

// Writes the file's object to a path, safely; with the pixels that took the place of its own, if any. An
// error text, empty on success.
std::string write_file(DicomFile& file, const std::string& path, const WriteOptions& options,
                       RecodedPixels* pixels = nullptr);

}  // namespace vexal
