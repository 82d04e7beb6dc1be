#include "codec/stream_calls.h"

#include "codec/reader.h"
#include "codec/writer.h"
#include "config/config.h"

namespace vx {

bool undefined_lengths_of(const MsgObj& object) {
  return config_bool(object.ObjectKind == Kind::Dicomdir ? VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ_IN_DICOMDIR
                                                         : VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ);
}

VX_STATUS narrow_offset(uint64_t offset, VX_STATUS status, uint32_t& narrow) {
  const bool fits = offset <= 0xFFFFFFFFU;
  narrow = fits ? static_cast<uint32_t>(offset) : 0xFFFFFFFFU;
  return fits || status != kOk ? status : VX_VALUE_TOO_LARGE;
}

VX_STATUS message_to_stream(MsgObj& object, uint32_t first, uint32_t last, VX_TRANSFER_SYNTAX syntax,
                            void* user, VX_STREAM_OUTPUT callback) {
  StreamWriter writer;
  if (VX_STATUS status = syntax_encoding(syntax, writer.encoding); status != kOk) return status;
  writer.MsgID = object.ID;
  writer.MessageCallback = callback;
  writer.UserInfo = user;
  writer.Deflate = is_deflated(syntax);
  writer.BeforeDeflate = writer.Deflate && first < kFirstDeflatedTag;
  writer.UndefinedLengths = config_bool(VX_CFG_EXPORT_UNDEFINED_LENGTH_SQ);
  return encode_object(writer, object, first, last);
}

VX_STATUS stream_to_message(MsgObj& object, uint32_t first, uint32_t last, VX_TRANSFER_SYNTAX syntax,
                            uint32_t& error_tag, uint32_t* offset, void* user, VX_STREAM_INPUT callback) {
  error_tag = 0;
  if (offset != nullptr) *offset = 0;
  ReadRequest request;
  if (VX_STATUS status = syntax_encoding(syntax, request.encoding); status != kOk) return status;
  request.MessageInput = callback;
  request.UserInfo = user;
  request.StartTag = first;
  request.EndTag = last;
  request.Deflate = is_deflated(syntax);
  request.BeforeDeflate = request.Deflate && first < kFirstDeflatedTag;
  const VX_STATUS status = decode_object(object, request);
  error_tag = request.ErrorTag;
  return offset != nullptr ? narrow_offset(request.StopOffset, status, *offset) : status;
}

VX_STATUS stream_length(MsgObj& object, uint32_t first, uint32_t last, VX_TRANSFER_SYNTAX syntax,
                        uint32_t& length) {
  length = 0;
  LengthQuery query;
  if (VX_STATUS status = syntax_encoding(syntax, query.encoding); status != kOk) return status;
  query.undefined_lengths = undefined_lengths_of(object);
  uint64_t wide = 0;
  const VX_STATUS status = run_length(object, first, last, query, wide);
  if (status != kOk) return status;
  if (wide > kUndefinedLength) return VX_VALUE_TOO_LARGE;
  length = static_cast<uint32_t>(wide);
  return status;
}

}  // namespace vx
