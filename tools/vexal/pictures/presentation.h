// Presentation states (PS3.3 sections A.33 and C.10 to C.11): how someone wants others to see an image.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "drawing/canvas.h"
#include "drawing/picture.h"
#include "files/files.h"
#include "fusion.h"
#include "rendering/pixel_image.h"
#include "rendering/state_items.h"

namespace vexal {

// Where pixels of an image come to lie on what is displayed of it.
struct DisplayedArea {
  int64_t left = 0;  // the part of the image, counted from 0; it may reach beyond the image
  int64_t top = 0;
  uint32_t width = 0;
  uint32_t height = 0;
  double across = 1;  // spacing or proportion of its pixels
  double down = 1;
  bool in_mm = false;
  double magnification = 1;
  uint32_t turns = 0;  // by 90 degrees, clockwise, before the flip
  bool flip = false;
  double scale_x = 1;  // of the picture, before it is turned
  double scale_y = 1;
  // From a place in the image, whose first pixel lies between 0 and 1, to one in the picture of this size.
  Point place(Point image, double picture_width, double picture_height) const;
};

class Presentation {
 public:
  // Of an image, which outlives the state, with `others` that it may lay over that. Each: an error text,
  // empty on success.
  std::string open(const std::string& path, PixelImage& image, const std::vector<std::string>& others = {});
  // Dots in an inch of what the picture is for, to make it as large there as a state in true size wants it.
  void set_resolution(double dpi) { dots_per_mm_ = dpi / 25.4; }
  // The frames of the image that it is about, from 0 and ascending; there is one at least.
  const std::vector<uint32_t>& frames() const { return frames_; }
  // From here on it is about one frame (from 0).
  std::string choose(uint32_t frame);
  // The frame on its own pixels, with shutters.
  std::string render(const RenderOptions& options, Picture& picture);
  // What the state wants displayed of such a picture, with all that is drawn over it.
  void display(Picture& picture);
  // Why colours were taken as they stand; empty if they were not.
  const std::string& profile_fault() const { return profile_fault_; }
  // What of it the pictures so far do not show.
  const std::vector<std::string>& left_out() const { return left_out_; }

 private:
  FrameName name() const { return {instance_, frame_}; }
  std::string show_fused(Picture& picture);
  std::string read_magnification(int32_t item);
  void show_pseudo_colour(Picture& picture, std::string& problem) const;
  std::string read_area();
  void draw_layers(Picture& picture);
  void draw_overlays(const std::string& layer, const std::array<uint8_t, 3>& colour, Picture& picture) const;
  void draw_graphics(int32_t item, const std::array<uint8_t, 3>& colour, Picture& picture);
  void draw_texts(int32_t item, const std::array<uint8_t, 3>& colour, Picture& picture);
  bool outline(const std::string& kind, double arm, std::vector<std::vector<Point>>& strokes);
  // Points of an attribute in the picture; false where their units are none that can be shown.
  bool places_of(int32_t item, uint32_t tag, uint32_t units, const Picture& picture,
                 std::vector<Point>& points);
  void leave_out(const std::string& what);

  DicomFile file_;
  PixelImage* image_ = nullptr;
  std::string instance_;  // of the image
  std::vector<uint32_t> frames_;
  uint32_t frame_ = 0;
  Bytes bytes_;  // of the frame
  std::optional<Fusion> fusion_;
  double dots_per_mm_ = 0;
  DisplayedArea area_;
  std::string profile_fault_;
  std::vector<std::string> left_out_;
};

}  // namespace vexal
