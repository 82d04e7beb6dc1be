// What a code stream says of its image, for applications.
#include "frame/no_throw.h"
#include "frame/state.h"
#include "pixel/codec.h"

using namespace vx;

VX_STATUS VX_Describe_Code_Stream(VX_TRANSFER_SYNTAX Syntax, const void* Data, uint32_t Size,
                                  CodeStreamObj* Description) {
  VX_REQUIRE_LIBRARY();
  VX_REQUIRE_POINTER(Data);
  VX_REQUIRE_POINTER(Description);
  const Codec* codec = codec_for(Syntax);
  if (codec == nullptr || codec->keeps_layout) return VX_INVALID_TRANSFER_SYNTAX;
  return no_throw([&]() -> VX_STATUS {
    CodecHead head;
    const int status = codec->query(static_cast<const uint8_t*>(Data), Size, head);
    if (status == kCodecNotLoaded) return VX_CANNOT_COMPLY;
    if (status != kCodecDone) return VX_COMPRESSION_FAILURE;
    *Description = {head.rows, head.columns, head.components, head.precision, head.is_signed};
    return kOk;
  });
}
