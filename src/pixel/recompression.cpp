#include "pixel/recompression.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "frame/log.h"
#include "pixel/codec.h"
#include "pixel/encapsulated.h"
#include "pixel/image.h"
#include "pixel/jpeg.h"
#include "pixel/jpegxl.h"
#include "pixel/thread_share.h"

namespace vx {
namespace {

constexpr char kFunction[] = "VX_Duplicate_Message";

// Syntaxes whose streams can be kept, with the last process that each takes (ISO/IEC 10918-1 table B.1).
struct JpegSyntax {
  VX_TRANSFER_SYNTAX syntax;
  uint8_t last_process;
};
constexpr JpegSyntax kJpegSyntaxes[] = {{JPEG_BASELINE, 0xC0},
                                        {JPEG_EXTENDED_2_4, 0xC1},
                                        {JPEG_SPEC_NON_HIER_6_8, 0xC2},
                                        {JPEG_FULL_PROG_NON_HIER_10_12, 0xC2}};
const JpegSyntax* jpeg_syntax(VX_TRANSFER_SYNTAX syntax) {
  const auto* found = std::find_if(std::begin(kJpegSyntaxes), std::end(kJpegSyntaxes),
                                   [&](const JpegSyntax& row) { return row.syntax == syntax; });
  return found != std::end(kJpegSyntaxes) ? found : nullptr;
}

using Bytes = std::vector<uint8_t>;

VX_STATUS gather(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  auto& bytes = *static_cast<Bytes*>(user);
  const auto* from = static_cast<const uint8_t*>(data);
  bytes.insert(bytes.end(), from, from + size);
  return kOk;
}
VX_STATUS give(int32_t, uint32_t, int32_t, void* user, uint32_t* size, void** data, int32_t* last) {
  auto& bytes = *static_cast<Bytes*>(user);
  *size = static_cast<uint32_t>(bytes.size());
  *data = bytes.data();
  *last = 1;
  return kOk;
}

// The stream without the byte that made its fragment even, which comes back by itself.
std::size_t without_pad(const Bytes& stream) {
  std::size_t from = 0;
  const std::size_t end = jpeg::find_end(stream.data(), stream.size(), from);
  return end % 2 != 0 && stream.size() == end + 1 && stream.back() == 0 ? end : stream.size();
}

int to_jpeg_of(const JpegSyntax& syntax, const Bytes& in, Bytes& out) {
  if (int status = jpegxl::to_jpeg(in.data(), in.size(), out); status != kCodecDone) return status;
  jpeg::Shape shape;
  if (jpeg::Fault fault = jpeg::query(out.data(), out.size(), shape); fault != jpeg::kNone) return fault;
  return shape.process <= syntax.last_process ? kCodecDone : kCodecOtherProcess;
}

// While this lives the codecs of an object do not stand between its frames and their streams.
class WithoutCodec {
 public:
  explicit WithoutCodec(void*& codec) : codec_(codec), kept_(std::exchange(codec, nullptr)) {}
  ~WithoutCodec() { codec_ = kept_; }
  WithoutCodec(const WithoutCodec&) = delete;
  WithoutCodec& operator=(const WithoutCodec&) = delete;

 private:
  void*& codec_;
  void* const kept_;
};

}  // namespace

bool keeps_jpeg_streams(VX_TRANSFER_SYNTAX from, VX_TRANSFER_SYNTAX to) {
  return (to == JPEG_XL_RECOMPRESSION && jpeg_syntax(from) != nullptr) ||
         (from == JPEG_XL_RECOMPRESSION && jpeg_syntax(to) != nullptr);
}

VX_STATUS recompress_pixels(MsgObj& source, TagObj& from, MsgObj& target, TagObj& to) {
  const JpegSyntax* jpeg = jpeg_syntax(target.TransferSyntax);
  const WithoutCodec reading(source.Decompressor);
  const WithoutCodec writing(target.Compressor);
  const auto count = static_cast<int32_t>(frame_count(source));
  uint64_t pixels = 0;
  frame_bytes(source, pixels);
  Bytes in;
  Bytes out;
  for (int32_t frame = 0; frame < count; ++frame) {
    in.clear();
    if (VX_STATUS status = get_frame(source, from, frame, &in, gather); status != kOk) return status;
    const ThreadShare share(pixels);
    const int fault = jpeg != nullptr ? to_jpeg_of(*jpeg, in, out)
                                      : jpegxl::from_jpeg(in.data(), without_pad(in), share.count(), out);
    if (fault != kCodecDone) {
      const std::string which =
          count == 1 ? "The frame" : "Frame " + std::to_string(frame + 1) + " of " + std::to_string(count);
      VX_LOG_ERR(kFunction, "%s can not keep its JPEG stream: %s", which.c_str(), codec_text(fault));
      return VX_COMPRESSION_FAILURE;
    }
    if (out.size() % 2 != 0) out.push_back(0);
    const VX_STATUS status = set_encapsulated(target, to, &out, give, frame == 0);
    if (status != kOk) return status;
  }
  return close_encapsulated(target, to);
}

}  // namespace vx
