// How the program writes a file, for every subcommand that does.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

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
  std::vector<uint32_t> given;  // attributes of the meta group that stay as they were asked for
  bool read(const Args& args);  // also hands settings to the library; false after a line on standard error
};

// While it lives, a file that is read to be replaced is nobody else's to replace: who comes second reads what
// the first has written. Nothing where `out` is another file, or the file system knows no locks.
class Turn {
 public:
  Turn(const std::string& in, const std::string& out);
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  // Where to write: `out`, or for one name of both what this leads to, so that a link stays one.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  int fd_ = -1;
};

struct Written {
  std::string problem;     // an error text, empty on success
  bool corrected = false;  // the meta group named another object, which was told
};

// Writes the file's object to a path, safely; with the pixels that took the place of its own, if any.
Written write_file(DicomFile& file, const std::string& path, const WriteOptions& options,
                   RecodedPixels* pixels = nullptr);

}  // namespace vexal
