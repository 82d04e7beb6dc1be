#include "frames.h"

#include <algorithm>
#include <numeric>

#include "base/session.h"
#include "base/values.h"
#include "http/multipart.h"
#include "images/frame_form.h"
#include "stored_object.h"
#include "work_room.h"

namespace vexal {
namespace {

// Media types of code streams (PS3.18 table 8.7.3-5); the first syntax of a type is meant where none is
// named.
struct StreamType {
  const char* media;
  VX_TRANSFER_SYNTAX syntax;
};
constexpr StreamType kStreamTypes[] = {
    {"image/jpeg", JPEG_LOSSLESS_HIER_14},
    {"image/jpeg", JPEG_BASELINE},
    {"image/jpeg", JPEG_EXTENDED_2_4},
    {"image/jpeg", JPEG_LOSSLESS_NON_HIER_14},
    {"image/jls", JPEG_LS_LOSSLESS},
    {"image/jls", JPEG_LS_LOSSY},
    {"image/jp2", JPEG_2000_LOSSLESS_ONLY},
    {"image/jp2", JPEG_2000},
    {"image/jphc", HTJ2K_LOSSLESS},
    {"image/jphc", HTJ2K_LOSSLESS_RPCL},
    {"image/jphc", HTJ2K},
    {"image/jxl", JPEG_XL_LOSSLESS},
    {"image/jxl", JPEG_XL_RECOMPRESSION},
    {"image/jxl", JPEG_XL},
    {"image/dicom-rle", RLE},
};

const char* media_of(VX_TRANSFER_SYNTAX syntax) {
  const auto* row = std::find_if(std::begin(kStreamTypes), std::end(kStreamTypes),
                                 [&](const StreamType& one) { return one.syntax == syntax; });
  return row != std::end(kStreamTypes) ? row->media : kOctets;
}

// How frames go out.
struct FrameChoice {
  bool parts = true;
  bool streams = false;  // compressed, as they are stored then
  VX_TRANSFER_SYNTAX syntax = EXPLICIT_LITTLE_ENDIAN;
  std::string media = kOctets;
};

bool choose_stream(const MediaRange& range, VX_TRANSFER_SYNTAX stored, FrameChoice& choice) {
  if (range.type == kOctets && range.syntax != "*") return false;
  const bool any = range.syntax == "*" || range.type == "*/*" || range.type == "image/*";
  const auto give = [&](VX_TRANSFER_SYNTAX syntax) {
    choice.streams = true;
    choice.syntax = syntax;
    choice.media = media_of(syntax);
    return true;
  };
  if (!is_uncompressed(stored) && (any || range.takes(media_of(stored))) &&
      (range.syntax.empty() || range.syntax == "*" || range.syntax == uid_of_syntax(stored)))
    return give(stored);
  const auto* row =
      std::find_if(std::begin(kStreamTypes), std::end(kStreamTypes), [&](const StreamType& one) {
        return range.type == one.media && (range.syntax.empty() || range.syntax == uid_of_syntax(one.syntax));
      });
  return row != std::end(kStreamTypes) && can_become(stored, row->syntax) && give(row->syntax);
}

bool choose_bytes(const MediaRange& range, VX_TRANSFER_SYNTAX stored, FrameChoice& choice) {
  constexpr VX_TRANSFER_SYNTAX kNative[] = {EXPLICIT_LITTLE_ENDIAN, IMPLICIT_LITTLE_ENDIAN};
  const bool named = range.syntax.empty() || range.syntax == "*" ||
                     std::any_of(std::begin(kNative), std::end(kNative),
                                 [&](VX_TRANSFER_SYNTAX one) { return range.syntax == uid_of_syntax(one); });
  if (!range.takes(kOctets) || !named) return false;
  if (!is_uncompressed(stored) && !can_decompress(stored)) return false;
  choice = {};
  return true;
}

bool choose_form(const std::vector<MediaRange>& ranges, VX_TRANSFER_SYNTAX stored, bool one,
                 FrameChoice& choice) {
  for (const MediaRange& range : ranges) {
    if (!range.parts && !one && range.type != "*/*") continue;
    if (!choose_stream(range, stored, choice) && !choose_bytes(range, stored, choice)) continue;
    choice.parts = range.parts || range.type == "*/*";
    return true;
  }
  return false;
}

// The frames of one image, one after the other.
class FrameGiver {
 public:
  FrameGiver(Holdings& holdings, ObjectFile object, FrameChoice choice)
      : holdings_(holdings), object_(std::move(object)), choice_(std::move(choice)) {}

  // An error text, empty on success.
  std::string open() {
    auto image = std::make_shared<OpenImage>();
    std::string problem = image->open(holdings_, object_, choice_.streams ? choice_.syntax : 0);
    if (problem.empty()) image_ = std::move(image);
    return problem;
  }
  uint32_t count() const { return image_->image().description().frames; }
  bool is_video() const { return image_->image().is_video(); }

  // Frame `number`, from 0. An error text, empty on success.
  std::string give(uint32_t number, BodyPart& part) {
    std::string problem = image_ == nullptr ? open() : "";
    if (problem.empty()) problem = read(number, part.body);
    // Others wait for one of many parts.
    if (image_ != nullptr && image_->is_crowded()) image_ = nullptr;
    part.headers = {{"Content-Type", choice_.media + "; transfer-syntax=" + uid_of_syntax(choice_.syntax)}};
    return problem;
  }

 private:
  std::string read(uint32_t number, HttpBody& body) {
    PixelImage& image = image_->image();
    const uint64_t size = image_->frame_bytes();
    const ImageDescription& form = image.description();
    // What lies there as it goes out needs no memory.
    if (!image.compressed() && form.allocated % 8 == 0 && form.photometric.find("422") == std::string::npos &&
        (number + 1) * size <= image.value().size() && !image_->is_crowded()) {
      body.length = size;
      body.read = [open = image_, from = number * size, at = uint64_t{0}, size](
                      char* buffer, std::size_t room) mutable -> int64_t {
        const auto count = static_cast<std::size_t>(std::min<uint64_t>(room, size - at));
        if (!open->image().value().read_at(from + at, buffer, count)) return -1;
        at += count;
        return static_cast<int64_t>(count);
      };
      return "";
    }
    const auto spill = std::make_shared<Spill>();
    const WorkRoom room(2 * size);
    Bytes bytes;
    std::string problem = choice_.streams ? image.code_stream(number, bytes) : image.frame(number, bytes);
    if (problem.empty()) problem = spill->append(bytes.data(), bytes.size());
    if (problem.empty()) body = body_of(spill);
    return problem;
  }

  Holdings& holdings_;
  ObjectFile object_;
  FrameChoice choice_;
  std::shared_ptr<OpenImage> image_;
};

}  // namespace

HttpResponse retrieve_frames(const WebContext& context) {
  std::vector<ObjectFile> objects;
  HttpResponse response;
  if (!find_objects(context, objects, response)) return response;
  const ObjectFile& object = objects.front();
  FrameChoice choice;
  const bool one = context.target.frames.size() == 1;
  if (!choose_form(accepted_by(context.request), object.syntax, one, choice))
    return HttpResponse::problem(406, "The frames can not be had in any of these media types.");
  const auto giver = std::make_shared<FrameGiver>(context.holdings, object, choice);
  if (const std::string problem = giver->open(); !problem.empty()) {
    report(object.path, problem);
    return HttpResponse::problem(404, "The object has no frames that can be read: " + problem);
  }
  if (giver->is_video()) return HttpResponse::problem(406, "A video is one stream; retrieve the instance.");
  auto frames = std::make_shared<std::vector<uint32_t>>(context.target.frames);
  if (frames->empty()) {
    frames->resize(giver->count());
    std::iota(frames->begin(), frames->end(), 1);
  }
  const uint32_t last = *std::max_element(frames->begin(), frames->end());
  if (last > giver->count())
    return HttpResponse::problem(404, "The object has " + std::to_string(giver->count()) + " frames.");
  BodyPart first;
  if (const std::string problem = giver->give(frames->front() - 1, first); !problem.empty()) {
    report(object.path, problem);
    return HttpResponse::problem(500, "The frame can not be read.");
  }
  if (!choice.parts) return as_parts(false, choice.media, std::move(first));
  const std::string boundary = new_boundary();
  const std::string where =
      context.root + instance_path(context.target.study, context.target.series, context.target.instance) +
      "/frames/";
  response.with("Content-Type", multipart_type(choice.media, boundary));
  const auto held = std::make_shared<BodyPart>(std::move(first));
  response.body = multipart_body(boundary, [giver, frames, held, where, path = object.path,
                                            at = std::size_t{0}](BodyPart& part) mutable {
    if (at == frames->size()) return 0;
    const uint32_t number = (*frames)[at];
    const std::string problem = at == 0 ? "" : giver->give(number - 1, part);
    if (at++ == 0) part = std::move(*held);
    if (!problem.empty()) report(path, problem);
    part.headers.emplace_back("Content-Location", where + std::to_string(number));
    return problem.empty() ? 1 : -1;
  });
  return response;
}

}  // namespace vexal
