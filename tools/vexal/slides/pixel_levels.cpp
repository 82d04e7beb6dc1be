// vexal pixel levels: the pyramids that whole-slide images make.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "base/names.h"
#include "base/object_values.h"
#include "base/tags.h"
#include "base/values.h"
#include "pictures/pixel_actions.h"
#include "rendering/pixel_shape.h"
#include "slide.h"
#include "whole_slides.h"

namespace vexal {
namespace {

constexpr uint32_t kBeforePixels = 0x7FDFFFFFU;

// One image of a slide: of one file, or of the parts of a concatenation.
struct Level {
  std::vector<std::string> files;
  std::string flavor;  // VOLUME, LABEL, OVERVIEW, THUMBNAIL
  std::string slide;
  std::string space;  // Frame of Reference UID
  std::string concatenation;
  std::string syntax;
  MatrixForm form;
  uint64_t frames = 0;
  PixelShape pixel;
  double width = 0;  // mm that the object says it has
  double height = 0;
  bool volume() const { return flavor == "VOLUME"; }
  double wide() const { return form.columns * pixel.across; }
  double high() const { return form.rows * pixel.down; }
};

std::string flavor_of(int32_t object) {
  const std::string type = all_text_of(object, tags::kImageType);
  for (const char* flavor : {"VOLUME", "LABEL", "OVERVIEW", "THUMBNAIL"}) {
    if (("\\" + type + "\\").find("\\" + std::string(flavor) + "\\") != std::string::npos) return flavor;
  }
  return type.empty() ? "of no kind" : type;
}

// False: the file is no such image.
bool read_level(const std::string& path, Level& level) {
  const CurrentFile current(path);
  DicomFile file;
  OpenOptions options;
  options.last_tag = kBeforePixels;
  if (file.open(path, options) != VX_NORMAL_COMPLETION || !has_matrix(file.id())) return false;
  const int32_t id = file.id();
  if (!read_matrix_form(id, level.form).empty()) return false;
  level.files = {path};
  level.flavor = flavor_of(id);
  level.slide = text_of(id, tags::kContainerIdentifier);
  if (level.slide.empty()) level.slide = "of series " + text_of(id, tags::kSeriesInstanceUID);
  level.space = text_of(id, tags::kFrameOfReferenceUID);
  level.concatenation = text_of(id, tags::kConcatenationUID);
  level.syntax = uid_of_syntax(file.syntax());
  level.frames = number_of(id, tags::kNumberOfFrames, 1);
  level.pixel = pixel_shape(id, FunctionalGroups(id), 0);
  level.width = real_of(id, tags::kImagedVolumeWidth).value_or(0);
  level.height = real_of(id, tags::kImagedVolumeHeight).value_or(0);
  return true;
}

void tell_lengths(const char* side, double is, double told, double pixel, std::vector<std::string>& faults) {
  constexpr double kTolerance = 0.01;
  if (told <= 0 || is <= 0 || std::abs(is - told) <= kTolerance * told + 2 * pixel) return;
  char text[160];
  std::snprintf(text, sizeof text, "its pixels make a %s of %.3f mm, not %.3f", side, is, told);
  faults.emplace_back(text);
}

// What contradicts itself in a level, or the base of its pyramid.
std::vector<std::string> faults_of(const Level& level, const Level* base) {
  std::vector<std::string> faults;
  const MatrixForm& form = level.form;
  if (form.full && level.frames != form.frames_expected())
    faults.push_back("its matrix has " + std::to_string(form.frames_expected()) + " tiles, and it has " +
                     std::to_string(level.frames) + " frames");
  if (level.flavor != "LABEL" && !level.pixel.in_mm)
    faults.emplace_back("it does not tell the size of its pixels");
  if (!level.pixel.in_mm || base == nullptr) return faults;
  tell_lengths("width", level.wide(), level.width, level.pixel.across, faults);
  tell_lengths("height", level.high(), level.height, level.pixel.down, faults);
  if (level.flavor != "VOLUME" && level.flavor != "THUMBNAIL") return faults;
  if (base == &level || !base->pixel.in_mm) return faults;
  if (level.space != base->space) faults.emplace_back("it has another frame of reference than level 0");
  tell_lengths("width", level.wide(), base->wide(), level.pixel.across, faults);
  tell_lengths("height", level.high(), base->high(), level.pixel.down, faults);
  return faults;
}

std::string reduction_of(const Level& level, const Level& base) {
  const double ratio = static_cast<double>(base.form.columns) / level.form.columns;
  char text[48];
  const bool whole = std::abs(ratio - std::round(ratio)) * level.form.columns <= ratio;
  std::snprintf(text, sizeof text, whole ? "1:%.0f" : "1:%.2f", ratio);
  return text;
}

std::string channels_of(const MatrixForm& form) {
  std::string text;
  if (form.paths.size() > 1) text += ", " + std::to_string(form.paths.size()) + " optical paths";
  if (form.planes > 1) text += ", " + std::to_string(form.planes) + " focal planes";
  return text;
}

// Volumes from the finest to the coarsest, then what else is known of the slide.
bool stands_before(const Level& a, const Level& b) {
  const auto rank = [](const Level& level) {
    const char* order[] = {"VOLUME", "THUMBNAIL", "OVERVIEW", "LABEL"};
    return std::find(std::begin(order), std::end(order), level.flavor) - std::begin(order);
  };
  if (rank(a) != rank(b)) return rank(a) < rank(b);
  if (a.form.columns != b.form.columns) return a.form.columns > b.form.columns;
  return a.files < b.files;
}

void show_level(const Level& level, const Level* base, long number) {
  const MatrixForm& form = level.form;
  std::string name = level.flavor;
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  if (level.volume()) name = "level " + std::to_string(number);
  char size[64] = "of unknown size";
  if (level.pixel.in_mm)
    std::snprintf(size, sizeof size, "of %.9g x %.9g mm", level.pixel.across, level.pixel.down);
  const bool reduced = base != nullptr && (level.volume() || level.flavor == "THUMBNAIL");
  say("  %-9s  %u x %u pixels %s%s, %u x %u tiles of %u x %u, %s%s, %llu frame%s, %s, %s%s", name.c_str(),
      form.columns, form.rows, size, reduced ? (", " + reduction_of(level, *base)).c_str() : "",
      form.tiles_across(), form.tiles_down(), form.tile_columns, form.tile_rows,
      form.full ? "full" : "sparse", channels_of(form).c_str(), static_cast<unsigned long long>(level.frames),
      level.frames == 1 ? "" : "s", describe_uid(level.syntax).c_str(), level.files[0].c_str(),
      level.files.size() == 1 ? "" : (" and " + std::to_string(level.files.size() - 1) + " more").c_str());
}

int show_slide(const std::string& name, std::vector<Level>& levels) {
  std::sort(levels.begin(), levels.end(), stands_before);
  const Level* base = levels[0].volume() ? &levels[0] : nullptr;
  say("slide %s", name.c_str());
  int result = kSuccess;
  long number = -1;
  const Level* before = nullptr;
  for (const Level& level : levels) {
    // Other optical paths or focal planes of a level may lie in files of their own.
    if (before == nullptr || before->form.columns != level.form.columns) ++number;
    before = &level;
    show_level(level, base, number);
    for (const std::string& fault : faults_of(level, base)) {
      report(level.files[0], fault);
      result = kFindings;
    }
  }
  if (base == nullptr) {
    report(levels[0].files[0], "its slide has no image of its volume");
    result = kFindings;
  }
  return result;
}

}  // namespace

int show_levels(const std::vector<std::string>& paths) {
  bool failed = false;
  const std::vector<std::string> files = expand_paths(paths, failed);
  std::map<std::string, std::vector<Level>> slides;
  for (const std::string& file : files) {
    Level level;
    if (!read_level(file, level)) continue;
    std::vector<Level>& levels = slides[level.slide];
    const auto part = std::find_if(levels.begin(), levels.end(), [&](const Level& other) {
      return !level.concatenation.empty() && level.concatenation == other.concatenation;
    });
    if (part == levels.end()) {
      levels.push_back(std::move(level));
    } else {
      part->files.push_back(file);
      part->frames += level.frames;
    }
  }
  if (slides.empty()) {
    complain("of %zu files none is an image with a total pixel matrix", files.size());
    return kUsage;
  }
  int worst = failed ? kUsage : kSuccess;
  for (auto& [name, levels] : slides) worst = std::max(worst, show_slide(name, levels));
  return worst;
}

}  // namespace vexal
