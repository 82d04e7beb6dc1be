#include "frame/log.h"
#include "frame/no_throw.h"
#include "frame/state.h"
#include "model/held.h"
#include "text/xml.h"
#include "vexalkit.h"

namespace {

VX_STATUS write(int32_t id, vx::XmlForm form, int32_t options, void* user, VX_STREAM_OUTPUT callback) {
  vx::MsgObj* object = vx::find_object(id);
  if (object == nullptr) {
    VX_LOG_ERR(form == vx::XmlForm::Own ? "VX_Message_To_XML" : "VX_Message_To_XML_Native",
               "Failed to convert to XML%s, unknown message type", form == vx::XmlForm::Own ? "" : " Native");
    return VX_INVALID_MESSAGE_ID;
  }
  const vx::Held held(*object, vx::Hold::All);
  return vx::no_throw([&] { return vx::object_to_xml(*object, form, options, user, callback); });
}

VX_STATUS read(int32_t id, vx::XmlForm form, void* user, VX_TEXT_INPUT callback) {
  vx::MsgObj* object = vx::find_object(id);
  if (object == nullptr) {
    VX_LOG_ERR(form == vx::XmlForm::Own ? "VX_XML_To_Message" : "VX_XML_Native_To_Message",
               "Failed to convert XML%s, unknown message type", form == vx::XmlForm::Own ? "" : " Native");
    return VX_INVALID_MESSAGE_ID;
  }
  if (vx::is_range_held(*object, 0, 0xFFFFFFFFU)) return VX_STATE_VIOLATION;
  return vx::no_throw([&] { return vx::xml_to_object(*object, form, user, callback); });
}

}  // namespace

VX_STATUS VX_Message_To_XML(int32_t MsgID, void* UserInfo, int32_t Options, VX_STREAM_OUTPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  return write(MsgID, vx::XmlForm::Own, Options, UserInfo, Callback);
}

VX_STATUS VX_Message_To_XML_Native(int32_t MsgID, void* UserInfo, int32_t Options,
                                   VX_STREAM_OUTPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  return write(MsgID, vx::XmlForm::Native, Options, UserInfo, Callback);
}

VX_STATUS VX_XML_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  return read(MsgID, vx::XmlForm::Own, UserInfo, Callback);
}

VX_STATUS VX_XML_Native_To_Message(int32_t MsgID, void* UserInfo, VX_TEXT_INPUT Callback) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Callback);
  return read(MsgID, vx::XmlForm::Native, UserInfo, Callback);
}
