#include "text/text_output.h"

#include "codec/stream_output.h"

namespace vx {

VX_STATUS hand_out_text(const MsgObj& object, std::string& text, void* user, VX_STREAM_OUTPUT callback) {
  if (text.size() % 2 != 0) text += ' ';
  StreamWriter writer;
  writer.MsgID = object.ID;
  writer.MessageCallback = callback;
  writer.UserInfo = user;
  StreamOutput out(writer);
  VX_STATUS status = out.open();
  if (status == VX_NORMAL_COMPLETION) status = out.put(text.data(), text.size());
  if (status == VX_NORMAL_COMPLETION) status = out.finish();
  return status == VX_CALLBACK_CANNOT_COMPLY ? VX_STATUS{VX_SYSTEM_ERROR} : status;
}

}  // namespace vx
