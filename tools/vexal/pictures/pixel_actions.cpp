#include "pixel_actions.h"

namespace vexal {

// The frames that are asked for.
bool chosen(const Args& args, uint32_t frames, bool all, Choice& choice) {
  long number = 0;
  if (!args.number("--frame", 1, INT32_MAX, number)) return false;
  if (number > static_cast<long>(frames)) {
    complain("--frame %ld: the image has %u", number, frames);
    return false;
  }
  choice = number != 0 ? Choice{static_cast<uint32_t>(number) - 1, 1} : Choice{0, all ? frames : 1};
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
