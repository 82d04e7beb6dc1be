#include "frame_painter.h"

#include <numeric>

#include "pixel_actions.h"

namespace vexal {

bool FramePainter::choose_frames(const Args& args, bool all) {
  if (state_ && !args.has("--frame")) {
    frames_ = state_->frames();
    if (!all) frames_.resize(1);
    return true;
  }
  Choice choice;
  if (!chosen(args, *image_, all, choice)) return false;
  frames_.resize(choice.count);
  std::iota(frames_.begin(), frames_.end(), choice.first);
  missing_ = choice.missing;
  return true;
}

bool FramePainter::open(const Args& args, PixelImage& image, bool all) {
  image_ = &image;
  square_ = !args.has("--no-aspect");
  long bits = 8;
  if (!args.number("--bits", 8, 16, bits)) return false;
  if (bits != 8 && bits != 16) {
    complain("--bits %ld: give 8 or 16", bits);
    return false;
  }
  options_.bits = static_cast<uint32_t>(bits);
  state_path_ = args.get("--presentation");
  for (const char* name : {"--with", "--dpi"}) {
    if (!args.has(name) || !state_path_.empty()) continue;
    complain("%s goes with --presentation", name);
    return false;
  }
  if (!state_path_.empty()) {
    if (const std::string problem = state_.emplace().open(state_path_, image, args.all("--with"));
        !problem.empty()) {
      report(state_path_, problem);
      return false;
    }
  }
  long dpi = 0;
  if (!args.number("--dpi", 1, 10000, dpi)) return false;
  if (state_) state_->set_resolution(static_cast<double>(dpi));
  if (!read_rendering(args, options_) || !choose_frames(args, all) || !layers_.open(args, image))
    return false;
  if (bits == 8 || layers_.empty()) return true;
  complain("--bits 16 is for an image alone");
  return false;
}

// Layers lie below what the state draws.
std::string FramePainter::paint_state(uint32_t frame, Picture& picture) {
  if (std::string problem = state_->choose(frame); !problem.empty()) return state_path_ + ": " + problem;
  std::string problem = state_->render(options_, picture);
  if (problem.empty()) problem = layers_.draw(frame, picture);
  if (problem.empty()) state_->display(picture);
  return problem;
}

std::string FramePainter::paint(uint32_t frame, Picture& picture) {
  if (state_) return paint_state(frame, picture);
  std::string problem = image_->render(frame, options_, picture);
  if (problem.empty()) problem = layers_.draw(frame, picture);
  if (problem.empty()) shape_pixels(*image_, frame, square_, picture);
  return problem;
}

int FramePainter::judge(const std::string& in, int result) const {
  if (state_) {
    std::vector<std::string> lines;
    for (const std::string& what : state_->left_out()) lines.push_back(what + " is not shown");
    if (!state_->profile_fault().empty())
      lines.push_back(state_->profile_fault() + "; its colours are shown as stored");
    for (const std::string& line : lines) report(state_path_, line);
    if (!lines.empty()) result = std::max(result, static_cast<int>(kFindings));
  }
  return vexal::judge(*image_, in, layers_.judge(result));
}

}  // namespace vexal
