// What other objects have to show over an image: segments, contours, dose.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/args.h"
#include "rendering/geometry.h"
#include "rendering/pixel_image.h"

namespace vexal {

#define VEXAL_LAYER_OPTIONS                                                                               \
  {"--segmentation", "FILE", "render, sheet, video: show a segmentation over it (repeated for several)"}, \
      {"--segment", "N|LABEL", "only this segment (repeated for several)"},                               \
      {"--contours", "FILE", "show the contours of a structure set (repeated)"},                          \
      {"--roi", "N|NAME", "only this region of interest (repeated)"},                                     \
      {"--fill", nullptr, "fill closed contours"},                                                        \
      {"--dose", "FILE", "show a dose as a colour wash (repeated)"},                                      \
      {"--dose-range", "LOW,HIGH", "doses of the first and the last colour (default 10 to 100 %)"}, {     \
    "--opacity", "PERCENT", "of what lies over the image (default 50)"                                    \
  }

using Colour = std::array<uint8_t, 3>;

// Colours that are told apart well, for what has none of its own.
Colour distinct_colour(uint32_t number);

// The colour over a pixel of red, green and blue, as much of it as `share` says, from 0 to 1.
inline void blend(uint8_t* pixel, const Colour& colour, double share) {
  for (std::size_t c = 0; c < 3; ++c)
    pixel[c] = static_cast<uint8_t>(pixel[c] + (colour[c] - pixel[c]) * share + 0.5);
}
inline void blend(Picture& picture, std::size_t pixel, const Colour& colour, double share) {
  blend(picture.bytes.data() + 3 * pixel, colour, share);
}

// The numbers and names that an option asks for; without it, all.
class Selection {
 public:
  explicit Selection(std::vector<std::string> wanted) : wanted_(std::move(wanted)), met_(wanted_.size()) {}
  bool all() const { return wanted_.empty(); }
  bool takes(uint32_t number, const std::string& name);
  // Those that nothing had.
  std::vector<std::string> unmet() const;

 private:
  std::vector<std::string> wanted_;
  std::vector<bool> met_;
};

// The image below.
struct Ground {
  std::string instance;
  uint32_t width;
  uint32_t height;
  Planes planes;
};

struct LayerChoices {
  double opacity = 0.5;
  bool fill = false;
  std::optional<std::pair<double, double>> dose_range;
  Selection segments{{}};
  Selection regions{{}};
};

// Each false after a line on standard error.
bool read_layer_choices(const Args& args, LayerChoices& choices);
// Whether there was all that they name, when the layers are open.
bool all_met(const LayerChoices& choices);

// The frame that is shown.
struct Slice {
  uint32_t frame = 0;
  std::optional<ImagePlane> plane;
  std::string no_plane;  // why there is none
};

// What of an object is not as it should be, each once, and of many how many.
class Faults {
 public:
  void add(const std::string& text);
  void tell(const std::string& path) const;
  bool any() const { return !texts_.empty(); }

 private:
  std::set<std::string> texts_;
  std::size_t untold_ = 0;
};

class Layer {
 public:
  virtual ~Layer() = default;
  // Draws what lies in the slice over its picture, which is in colour; true in `drawn` if there was
  // something. An error text, empty on success.
  virtual std::string draw(const Slice& slice, Picture& picture, bool& drawn) = 0;
  const Faults& faults() const { return faults_; }

 protected:
  void fault(const std::string& text) { faults_.add(text); }
  Faults faults_;
};

// Null after an error text. The choices and the ground outlive the layer.
using LayerOpener = std::unique_ptr<Layer>(const std::string& path, const Ground& ground,
                                           LayerChoices& choices, std::string& problem);
LayerOpener open_segmentation;
LayerOpener open_contours;
LayerOpener open_dose;
// What pixel info tells of a dose: its maximum, units and kind.
std::string describe_dose(PixelImage& image);

// How a part of an object (a frame, a contour) refers to the image below.
struct References {
  bool elsewhere = false;        // to others that the object is about
  bool all_frames = false;       // to the whole of the image
  std::vector<uint32_t> frames;  // from 1: to these of it
  bool here(uint32_t frame) const {
    return all_frames || std::find(frames.begin(), frames.end(), frame + 1) != frames.end();
  }
  bool only_here() const { return !elsewhere && (all_frames || !frames.empty()); }
};

// The images that an object says it is about. Where the one below is not among them, or where a part refers
// to none of them, places in the patient decide alone.
class Sources {
 public:
  explicit Sources(const std::string& instance) : instance_(instance) {}
  // References of the whole object: items that hold a Referenced SOP Instance UID.
  void list(const std::vector<int32_t>& items);
  // Those of a part, behind list().
  void read(const std::vector<int32_t>& items, References& references);
  bool known() const { return known_; }
  // Whether a part may belong to the frame.
  bool allows(const References& references, uint32_t frame) const {
    return references.here(frame) || !known_ || (!references.elsewhere && !references.only_here());
  }

 private:
  std::string instance_;
  std::set<std::string> listed_;
  bool known_ = false;
};

// All that the options name.
class Layers {
 public:
  // False after a line on standard error.
  bool open(const Args& args, const PixelImage& image);
  bool empty() const { return layers_.empty(); }
  // Over the picture of a frame, which comes to be in colour. An error text, empty on success.
  std::string draw(uint32_t frame, Picture& picture);
  // Tells what could not be shown, behind the last frame; what the work is worth.
  int judge(int result) const;

 private:
  struct Opened {
    std::string path;
    std::unique_ptr<Layer> layer;
    bool drawn = false;
  };
  std::unique_ptr<Ground> ground_;
  LayerChoices choices_;
  std::vector<Opened> layers_;
};

}  // namespace vexal
