// The documents that a text file holds, handed to the readers of the library as they come.
#pragma once

#include <string>
#include <string_view>

#include "files/files.h"

namespace vexal {

// XML is one document. JSON may hold several objects, in an array or one behind the other.
class TextDocuments {
 public:
  enum class Kind { One, Objects };
  TextDocuments(FileSource& source, Kind kind) : source_(source), kind_(kind) {}

  // Goes to the next document. False at the end, or with a text in `problem`.
  bool next(std::string& problem);
  // What comes first of the document, before any of it is given.
  std::string_view head() const { return block_; }
  // The next block of the document. As VX_TEXT_INPUT, with a TextDocuments behind `user`.
  static VX_STATUS give(int32_t id, void* user, uint32_t* size, void** data, int32_t first, int32_t* last);

 private:
  bool fill();
  bool skip_blanks();
  bool next_object(std::string& problem);
  std::size_t object_part();

  FileSource& source_;
  const Kind kind_;
  std::string_view block_;  // not given yet
  bool read_ = false;       // all blocks of the file
  bool failed_ = false;
  bool started_ = false;
  bool in_array_ = false;
  bool whole_ = false;  // the rest of the file is one document
  std::size_t depth_ = 0;
  bool in_string_ = false;
  bool escaped_ = false;
};

}  // namespace vexal
