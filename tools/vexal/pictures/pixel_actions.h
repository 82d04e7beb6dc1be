// What vexal pixel can do, and what its actions share.
#pragma once

#include <algorithm>
#include <string>

#include "base/args.h"
#include "base/session.h"
#include "rendering/pixel_image.h"

namespace vexal {

// Frames of an image, from 0.
struct Choice {
  uint32_t first = 0;
  uint32_t count = 0;
  std::string missing;  // what to say of others that are asked for and not there
};

// The frames that are asked for; without --frame `all` or the first. False after a line on standard error.
bool chosen(const Args& args, const PixelImage& image, bool all, Choice& choice);

// What an image whose frames came out of their decoder is worth.
int judge(const PixelImage& image, const std::string& path, int result);

// Calls work(i) for each chosen frame; one that fails does not end the others.
template <typename Work>
int each_frame(const Choice& choice, const std::string& in, Work work) {
  int result = kSuccess;
  for (uint32_t i = 0; i < choice.count; ++i) {
    const std::string problem = work(i);
    if (problem.empty()) continue;
    report(in, "frame " + std::to_string(choice.first + i + 1) + ": " + problem);
    result = kUsage;
  }
  if (choice.missing.empty()) return result;
  report(in, choice.missing);
  return kUsage;
}

// The options of how frames are shown. False after a line on standard error.
bool read_rendering(const Args& args, RenderOptions& options);
bool read_quality(const Args& args, int& quality);
// The pixels of a frame's picture in their true proportions if they are to be `square`, and how large they
// are.
void shape_pixels(const PixelImage& image, uint32_t frame, bool square, Picture& picture);

// Actions on one open image. Those that write get the name that they are to write.
int show_image(const Args& args, PixelImage& image, const std::string& in, const std::string& out);
int check_offsets(const Args& args, PixelImage& image, const std::string& in, const std::string& out);
int extract_frames(const Args& args, PixelImage& image, const std::string& in, const std::string& out);
int compare_images(const Args& args, PixelImage& image, const std::string& in, const std::string& other);
int render_frame(const Args& args, PixelImage& image, const std::string& in, const std::string& out);
int make_video(const Args& args, PixelImage& image, const std::string& in, const std::string& out);
int make_sheet(const Args& args, PixelImage& image, const std::string& in, const std::string& out);

}  // namespace vexal
