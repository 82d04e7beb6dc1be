#include "codec/message_syntax.h"

#include <string_view>

#include "model/attributes.h"
#include "model/convert.h"
#include "model/seams.h"
#include "model/values.h"

namespace vx {

namespace {

constexpr uint32_t kSyntaxTag = 0x00020010U;
constexpr std::size_t kUidBuffer = 65;

enum class Carrier { None, Object, Meta };

// Where an object keeps its syntax.
Carrier carrier(MsgObj& object) {
  switch (object.ObjectKind) {
    case Kind::Message:
      return Carrier::Object;
    case Kind::File:
    case Kind::Dicomdir:
      return Carrier::Meta;
    case Kind::Item:
      if (find_tag(object, kPixelData) != nullptr) return Carrier::Object;
      return object.PrivateTag != 0 ? Carrier::Meta : Carrier::None;
    case Kind::SrItem:
      break;
  }
  return Carrier::None;
}

VX_STATUS syntax_text(VX_TRANSFER_SYNTAX syntax, char (&uid)[kUidBuffer], std::string_view& text) {
  const std::size_t length = syntax_uid(syntax, uid, sizeof uid);
  if (length == 0) return VX_INVALID_TRANSFER_SYNTAX;
  if (length >= sizeof uid) return VX_BUFFER_TOO_SMALL;
  text = {uid, length};
  return kOk;
}

}  // namespace

VX_STATUS file_syntax(MsgObj& object, VX_TRANSFER_SYNTAX& syntax) {
  const TagObj* attribute = find_tag(object, kSyntaxTag);
  if (attribute == nullptr) return VX_INVALID_TAG;
  int32_t count = 0;
  if (VX_STATUS status = value_count(*attribute, count); status != kOk) return status;
  char scratch[80];
  std::string_view uid;
  ValueCursor cursor;
  cursor_first(*attribute, cursor);
  if (VX_STATUS status = view_text(*attribute, cursor, scratch, uid); status != kOk) {
    return status;
  }
  return syntax_from_uid(uid, syntax);
}

VX_STATUS get_message_syntax(MsgObj& object, VX_TRANSFER_SYNTAX& syntax) {
  switch (carrier(object)) {
    case Carrier::Object:
      if (object.SyntaxSet == 0) return VX_STATE_VIOLATION;
      syntax = object.TransferSyntax;
      return kOk;
    case Carrier::Meta:
      return file_syntax(object, syntax);
    case Carrier::None:
      break;
  }
  return VX_INVALID_MESSAGE_ID;
}

VX_STATUS set_message_syntax(MsgObj& object, VX_TRANSFER_SYNTAX syntax) {
  const Carrier where = carrier(object);
  if (where == Carrier::None) return VX_INVALID_MESSAGE_ID;
  char uid[kUidBuffer];
  std::string_view text;
  VX_STATUS status = syntax_text(syntax, uid, text);
  if (status != kOk) return status;
  if (where == Carrier::Object) {
    object.SyntaxSet = 1;
    object.TransferSyntax = syntax;
    return kOk;
  }
  TagObj* attribute = nullptr;
  status = find_to_change(object, kSyntaxTag, attribute);
  return status == kOk ? set_text(object, *attribute, text, true, nullptr) : status;
}

VX_STATUS reset_message_syntax(MsgObj& object) {
  VX_TRANSFER_SYNTAX syntax = 0;
  switch (carrier(object)) {
    case Carrier::Object:
      object.SyntaxSet = 0;
      object.TransferSyntax = 0;
      return kOk;
    case Carrier::Meta:
      return is_file(object) ? file_syntax(object, syntax) : VX_INVALID_MESSAGE_ID;
    case Carrier::None:
      break;
  }
  return VX_INVALID_MESSAGE_ID;
}

}  // namespace vx
