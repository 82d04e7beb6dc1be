// The last step of every writer of a text form: the text goes to the application.
#pragma once

#include <string>
#include <vector>

#include "codec/stream_output.h"
#include "model/object.h"

namespace vx {

// Decodes what is still in stream form, in the items too, and looks whether a value lies elsewhere than in
// memory. VX_INVALID_VALUE_FOR_VR for too many levels.
VX_STATUS prepare_for_text(MsgObj& object, bool& elsewhere, int depth = 0);

// Says so where a text that was kept as it came has more, or other, characters than its values show.
void warn_of_rest(const char* function, const TagObj& attribute);

// Takes the text as it is made. Nothing reaches the application of a text that can not be made: where values
// have to be fetched, which may fail, it waits for the end; otherwise it goes out piece by piece.
class TextOutput {
 public:
  TextOutput(const MsgObj& object, void* user, VX_STREAM_OUTPUT callback, bool wait);
  TextOutput(const TextOutput&) = delete;
  TextOutput& operator=(const TextOutput&) = delete;

  // What was made last; the maker appends to it.
  std::string& text() { return text_; }
  // All that was made.
  std::size_t size() const { return before_ + text_.size(); }
  // What was made so far will not change. VX_SYSTEM_ERROR where the callback refuses.
  VX_STATUS pause() { return text_.size() < kPiece ? VX_STATUS{kOk} : hand_on(); }
  // Where values are fetched: what was made so far becomes a piece, to whose end a text can be added later.
  std::size_t cut();
  void amend(std::size_t piece, const std::string& text);
  // The end, with a blank behind a text of odd length.
  VX_STATUS finish();

 private:
  static constexpr std::size_t kPiece = 64U * 1024U;
  VX_STATUS hand_on();
  VX_STATUS put(const std::string& text);

  StreamWriter writer_;
  StreamOutput out_;
  const bool wait_;
  bool open_ = false;
  std::string text_;
  std::size_t before_ = 0;
  std::vector<std::string> waiting_;
};

}  // namespace vx
