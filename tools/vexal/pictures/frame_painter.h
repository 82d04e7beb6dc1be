// Frames as the command line asks for them: by the image's own attributes or as a presentation state wants
// them, with layers over them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/args.h"
#include "layers.h"
#include "presentation.h"
#include "rendering/pixel_image.h"

namespace vexal {

class FramePainter {
 public:
  // By the options; the image outlives the painter. False after a line on standard error.
  bool open(const Args& args, PixelImage& image, bool all);
  // Those that are asked for, from 0: one, else all, or the first, that the image has or the state is about.
  const std::vector<uint32_t>& frames() const { return frames_; }
  // What to say of others that are asked for and not there.
  const std::string& missing() const { return missing_; }
  // An error text, empty on success.
  std::string paint(uint32_t frame, Picture& picture);
  // Tells what pictures lack, behind the last of them; what the work is worth.
  int judge(const std::string& in, int result) const;

 private:
  bool choose_frames(const Args& args, bool all);
  std::string paint_state(uint32_t frame, Picture& picture);

  PixelImage* image_ = nullptr;
  RenderOptions options_;
  Layers layers_;
  std::string state_path_;
  std::optional<Presentation> state_;
  std::vector<uint32_t> frames_;
  std::string missing_;
  bool square_ = true;
};

}  // namespace vexal
