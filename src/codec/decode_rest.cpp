#include "codec/decode_rest.h"

#include "frame/pool.h"
#include "model/seams.h"

namespace vx {

DecodeRest* new_decode_rest() {
  return static_cast<DecodeRest*>(allocate(sizeof(DecodeRest)));
}

void free_decode_rest(DecodeRest* rest) {
  if (rest == nullptr) return;
  if (rest->Zlib != nullptr) inflateEnd(rest->Zlib);
  release(rest->Zlib);
  release(rest->Plain);
  release(rest->Raw);
  release(rest->Creators);
  release(rest);
}

void release_stream_resume(MsgObj& object) {
  free_decode_rest(static_cast<DecodeRest*>(object.StreamResume));
  object.StreamResume = nullptr;
}

}  // namespace vx
