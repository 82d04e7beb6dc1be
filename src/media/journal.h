// The undo journal of a change to a file: what the bytes that change are before. While it lies beside the
// file, the change may be half done.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/file_op.h"

namespace vx {

class Journal {
 public:
  explicit Journal(FileOp& file);
  // Notes what is there now; a stretch may reach beyond the end.
  bool keep(uint64_t offset, uint64_t length);
  // Puts the journal on disk. From here on the file may change.
  bool begin();
  // The change is whole.
  bool end();
  // Puts the old bytes and the old size back. On failure the journal stays for the next one who opens the
  // file.
  bool undo();

  // Undoes what a former change left half done. False: it did, but that failed, or somebody works on it.
  static bool recover(FileOp& file);

 private:
  struct Piece {
    uint64_t offset;
    std::string bytes;
  };
  std::string encode() const;
  bool decode(const std::string& bytes);
  bool restore();

  FileOp& file_;
  std::string path_;
  uint64_t size_;
  std::vector<Piece> pieces_;
};

}  // namespace vx
