#include "pixel_actions.h"

namespace vexal {

// The frames that are asked for.
bool chosen(const Args& args, const PixelImage& image, bool all, Choice& choice) {
  const uint32_t frames = image.is_video() ? 1 : image.description().frames;
  long number = 0;
  if (!args.number("--frame", 1, INT32_MAX, number)) return false;
  if (number > static_cast<long>(frames)) {
    complain("--frame %ld: the image has %u", number, frames);
    return false;
  }
  if (number != 0) {
    choice = {static_cast<uint32_t>(number) - 1, 1, ""};
  } else {
    all = all && image.decoder_fault().empty();  // it is the same of all frames
    choice = {0, all ? frames : 1, all ? image.missing_frames() : ""};
  }
  return true;
}

// What an image whose frames came out of their decoder is worth.
int judge(const PixelImage& image, const std::string& path, int result) {
  const std::string finding = image.finding();
  if (finding.empty() && image.profile_fault().empty()) return result;
  if (!finding.empty()) report(path, finding);
  if (!image.profile_fault().empty())
    report(path, image.profile_fault() + "; its colours are shown as stored");
  return std::max(result, static_cast<int>(kFindings));
}

}  // namespace vexal
