#include "text/text_output.h"

#include "codec/stream_form.h"
#include "frame/limits.h"
#include "frame/log.h"
#include "model/deferred.h"
#include "model/vr.h"

namespace vx {

VX_STATUS prepare_for_text(MsgObj& object, bool& elsewhere, int depth) {
  if (depth > kMaxNesting) return VX_INVALID_VALUE_FOR_VR;
  if (const VX_STATUS status = decode_all(object); status != kOk) return status;
  for (const TagObj* a = object.FirstTag; a != nullptr; a = a->Next) {
    elsewhere = elsewhere || a->Storage != Stored::InMemory;
    if (a->VR != VX_VR_SQ) continue;
    for (const ValueObj* value = a->FirstValue; value != nullptr; value = value->Next) {
      auto* item = static_cast<MsgObj*>(value->Data);
      if (item == nullptr) continue;
      const VX_STATUS status = prepare_for_text(*item, elsewhere, depth + 1);
      if (status != kOk) return status;
    }
  }
  return kOk;
}

void warn_of_rest(const char* function, const TagObj& attribute) {
  if (!says_less_than_kept(attribute)) return;
  VX_LOG_WARN(function, "(%04X,%04X) has other text in its file than its values, such as behind a NUL",
              tag_group(attribute.Tag), tag_element(attribute.Tag));
}

TextOutput::TextOutput(const MsgObj& object, void* user, VX_STREAM_OUTPUT callback, bool wait)
    : out_(writer_), wait_(wait) {
  writer_.MsgID = object.ID;
  writer_.MessageCallback = callback;
  writer_.UserInfo = user;
}

VX_STATUS TextOutput::put(const std::string& text) {
  VX_STATUS status = open_ ? VX_STATUS{kOk} : out_.open();
  open_ = true;
  if (status == kOk) status = out_.put(text.data(), text.size());
  return status == VX_CALLBACK_CANNOT_COMPLY ? VX_STATUS{VX_SYSTEM_ERROR} : status;
}

VX_STATUS TextOutput::hand_on() {
  before_ += text_.size();
  VX_STATUS status = kOk;
  if (wait_) {
    waiting_.push_back(std::move(text_));
    text_ = {};
  } else {
    status = put(text_);
  }
  text_.clear();
  return status;
}

std::size_t TextOutput::cut() {
  hand_on();
  return waiting_.size() - 1;
}

void TextOutput::amend(std::size_t piece, const std::string& text) {
  waiting_[piece] += text;
  before_ += text.size();
}

VX_STATUS TextOutput::finish() {
  if (size() % 2 != 0) text_ += ' ';
  waiting_.push_back(std::move(text_));
  for (std::string& piece : waiting_) {
    if (const VX_STATUS status = put(piece); status != kOk) return status;
    piece = {};
  }
  const VX_STATUS status = out_.finish();
  return status == VX_CALLBACK_CANNOT_COMPLY ? VX_STATUS{VX_SYSTEM_ERROR} : status;
}

}  // namespace vx
