// The layers that the command line names, and what all of them share.
#include "layers.h"

#include <strings.h>

#include <cstdio>

#include "base/session.h"
#include "base/tags.h"
#include "base/values.h"
#include "rendering/colour.h"

namespace vexal {
namespace {

// In the order in which they are drawn: lines stay visible over areas.
constexpr struct {
  const char* option;
  LayerOpener* open;
} kKinds[] = {{"--dose", open_dose}, {"--segmentation", open_segmentation}, {"--contours", open_contours}};

bool met(const char* option, const Selection& selection) {
  const std::vector<std::string> unmet = selection.unmet();
  for (const std::string& word : unmet) complain("%s %s: there is none", option, word.c_str());
  return unmet.empty();
}

}  // namespace

bool read_layer_choices(const Args& args, LayerChoices& choices) {
  long percent = 50;
  if (!args.number("--opacity", 0, 100, percent)) return false;
  choices.opacity = static_cast<double>(percent) / 100;
  choices.fill = args.has("--fill");
  choices.segments = Selection(args.all("--segment"));
  choices.regions = Selection(args.all("--roi"));
  if (!args.has("--dose-range")) return true;
  const std::string text = args.get("--dose-range");
  double low = 0;
  double high = 0;
  char rest = 0;
  if (std::sscanf(text.c_str(), "%lf,%lf%c", &low, &high, &rest) != 2 || !std::isfinite(low) ||
      !std::isfinite(high) || low >= high) {
    complain("--dose-range %s: give a lower and a higher dose, as in 5,60", text.c_str());
    return false;
  }
  choices.dose_range = {low, high};
  return true;
}

bool all_met(const LayerChoices& choices) {
  const bool segments = met("--segment", choices.segments);
  return met("--roi", choices.regions) && segments;
}

Colour distinct_colour(uint32_t number) {
  static constexpr Colour kColours[] = {{230, 25, 75},  {60, 180, 75},   {255, 225, 25},  {0, 130, 200},
                                        {245, 130, 48}, {145, 30, 180},  {70, 240, 240},  {240, 50, 230},
                                        {210, 245, 60}, {250, 190, 212}, {0, 128, 128},   {220, 190, 255},
                                        {170, 110, 40}, {170, 255, 195}, {255, 215, 180}, {128, 128, 0}};
  return kColours[number % std::size(kColours)];
}

bool Selection::takes(uint32_t number, const std::string& name) {
  bool taken = all();
  for (std::size_t i = 0; i < wanted_.size(); ++i) {
    if (wanted_[i] != std::to_string(number) && strcasecmp(wanted_[i].c_str(), name.c_str()) != 0) continue;
    met_[i] = true;
    taken = true;
  }
  return taken;
}

std::vector<std::string> Selection::unmet() const {
  std::vector<std::string> words;
  for (std::size_t i = 0; i < wanted_.size(); ++i) {
    if (!met_[i]) words.push_back(wanted_[i]);
  }
  return words;
}

void Faults::add(const std::string& text) {
  constexpr std::size_t kMost = 20;
  if (texts_.size() < kMost || texts_.contains(text)) {
    texts_.insert(text);
  } else {
    ++untold_;
  }
}

void Faults::tell(const std::string& path) const {
  for (const std::string& text : texts_) report(path, text);
  if (untold_ != 0) report(path, "and so on, " + std::to_string(untold_) + " times");
}

void Sources::list(const std::vector<int32_t>& items) {
  for (const int32_t item : items) {
    const std::string instance = text_of(item, tags::kReferencedSOPInstanceUID);
    if (instance.empty()) continue;
    known_ = known_ || instance == instance_;
    listed_.insert(instance);
  }
}

void Sources::read(const std::vector<int32_t>& items, References& references) {
  for (const int32_t item : items) {
    const std::string instance = text_of(item, tags::kReferencedSOPInstanceUID);
    if (instance != instance_) {
      references.elsewhere |= !instance.empty() && (listed_.empty() || listed_.contains(instance));
      continue;
    }
    known_ = true;
    const std::vector<double> frames = reals_of(item, tags::kReferencedFrameNumber);
    references.all_frames |= frames.empty();
    for (const double frame : frames) {
      if (frame >= 1 && frame <= UINT32_MAX) references.frames.push_back(static_cast<uint32_t>(frame));
    }
  }
}

bool Layers::open(const Args& args, const PixelImage& image) {
  if (!read_layer_choices(args, choices_)) return false;
  const int32_t id = image.file().id();
  for (const auto& kind : kKinds) {
    for (const std::string& path : args.all(kind.option)) {
      if (ground_ == nullptr) {
        const ImageDescription& d = image.description();
        ground_ = std::make_unique<Ground>(
            Ground{text_of(id, tags::kSOPInstanceUID), d.columns, d.rows, Planes(id, d.frames)});
      }
      const CurrentFile current(path);
      std::string problem;
      std::unique_ptr<Layer> layer = kind.open(path, *ground_, choices_, problem);
      if (layer == nullptr) {
        report(path, problem);
        return false;
      }
      layers_.push_back({path, std::move(layer)});
    }
  }
  return all_met(choices_);
}

std::string Layers::draw(uint32_t frame, Picture& picture) {
  if (layers_.empty()) return "";
  if (picture.width != ground_->width || picture.height != ground_->height)
    return "layers go over whole pictures of the image as it is stored";
  to_colour(picture);
  Slice slice;
  slice.frame = frame;
  ImagePlane plane;
  slice.no_plane = ground_->planes.read(frame, plane);
  if (slice.no_plane.empty()) slice.plane = plane;
  for (Opened& opened : layers_) {
    const CurrentFile current(opened.path);
    bool drawn = false;
    const std::string problem = opened.layer->draw(slice, picture, drawn);
    if (!problem.empty()) return opened.path + ": " + problem;
    opened.drawn |= drawn;
  }
  return "";
}

int Layers::judge(int result) const {
  for (const Opened& opened : layers_) {
    opened.layer->faults().tell(opened.path);
    if (opened.layer->faults().any()) result = std::max(result, static_cast<int>(kFindings));
    if (!opened.drawn) report(opened.path, "nothing of it lies in what is shown");
  }
  return result;
}

}  // namespace vexal
