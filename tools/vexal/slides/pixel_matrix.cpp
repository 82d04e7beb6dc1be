// vexal pixel render --matrix: the total pixel matrix of a whole-slide image as one picture.
#include <cstdio>

#include "base/parallel.h"
#include "matrix.h"
#include "pictures/pixel_actions.h"
#include "rendering/pixel_shape.h"
#include "whole_slides.h"

namespace vexal {
namespace {

bool read_region(const Args& args, const MatrixForm& form, MatrixView& view) {
  view.width = form.columns;
  view.height = form.rows;
  if (!args.has("--region")) return true;
  const std::string text = args.get("--region");
  unsigned long long n[4];
  char rest = 0;
  if (text.find('-') != std::string::npos ||
      std::sscanf(text.c_str(), "%llu,%llu,%llu,%llu%c", n, n + 1, n + 2, n + 3, &rest) != 4 || n[2] == 0 ||
      n[3] == 0) {
    complain("--region %s: give left, top, width and height in pixels, as in 0,0,1024,768", text.c_str());
    return false;
  }
  if (n[0] >= form.columns || n[1] >= form.rows || n[2] > form.columns - n[0] || n[3] > form.rows - n[1]) {
    complain("--region %s: the matrix has %u x %u pixels", text.c_str(), form.columns, form.rows);
    return false;
  }
  view.x = static_cast<uint32_t>(n[0]);
  view.y = static_cast<uint32_t>(n[1]);
  view.width = static_cast<uint32_t>(n[2]);
  view.height = static_cast<uint32_t>(n[3]);
  return true;
}

bool read_channel(const Args& args, const MatrixForm& form, MatrixView& view) {
  long plane = 1;
  if (!args.number("--focal-plane", 1, INT32_MAX, plane)) return false;
  if (plane > static_cast<long>(form.planes)) {
    complain("--focal-plane %ld: the matrix has %u", plane, form.planes);
    return false;
  }
  view.plane = static_cast<uint32_t>(plane) - 1;
  if (!args.has("--optical-path")) return true;
  const std::string path = args.get("--optical-path");
  const auto found = std::find(form.paths.begin(), form.paths.end(), path);
  if (found == form.paths.end()) {
    std::string names;
    for (const std::string& name : form.paths) names += (names.empty() ? "" : ", ") + name;
    complain("--optical-path %s: the matrix has %s", path.c_str(), names.c_str());
    return false;
  }
  view.path = static_cast<uint32_t>(found - form.paths.begin());
  return true;
}

bool open_layers(const Args& args, const Slide& slide, LayerChoices& choices, unsigned threads,
                 std::vector<std::unique_ptr<MatrixLayer>>& layers) {
  for (const std::string& path : args.all("--segmentation")) {
    layers.push_back(std::make_unique<MatrixLayer>());
    const std::string problem = layers.back()->open(path, slide, choices, threads);
    if (problem.empty()) continue;
    report(path, problem);
    return false;
  }
  return all_met(choices);
}

// What the picture lacks, and what there is to say of its source.
int tell(Slide& slide, const MatrixPainter& painter, const std::string& path) {
  int result = kSuccess;
  const auto note = [&](const std::string& text) {
    report(path, text);
    result = kFindings;
  };
  for (const std::string& finding : slide.findings()) note(finding);
  if (!painter.profile_fault().empty()) note(painter.profile_fault());
  for (uint32_t i = 0; i < slide.parts(); ++i) {
    if (const std::string finding = slide.part(i).finding(); !finding.empty()) note(finding);
  }
  for (const std::string& failure : painter.failures()) complain("%s", failure.c_str());
  if (painter.failed() > painter.failures().size())
    note(std::to_string(painter.failed()) + " frames could not be shown");
  return painter.failed() == 0 ? result : static_cast<int>(kUsage);
}

}  // namespace

int render_matrix(const Args& args, const std::vector<std::string>& files, const std::string& out) {
  Slide slide;
  MatrixView view;
  long scale = 1;
  int quality = 0;
  LayerChoices choices;
  if (!args.number("--scale", 1, MatrixPainter::kMostScale, scale) || !read_rendering(args, view.render) ||
      !read_quality(args, quality) || !read_layer_choices(args, choices))
    return kUsage;
  if (std::string problem = slide.open(files); !problem.empty()) {
    complain("%s", problem.c_str());
    return kUsage;
  }
  if (!read_region(args, slide.form(), view) || !read_channel(args, slide.form(), view)) return kUsage;
  view.scale = static_cast<uint32_t>(scale);
  view.threads = default_threads();
  std::vector<std::unique_ptr<MatrixLayer>> layers;
  if (!open_layers(args, slide, choices, view.threads, layers)) return kUsage;
  MatrixPainter painter(slide, view, layers);
  std::string problem = painter.open();
  if (!problem.empty()) {
    complain("%s", problem.c_str());
    return kUsage;
  }
  PictureForm form{painter.width(), painter.height(), painter.samples()};
  form.quality = quality;
  if (const PixelShape shape = pixel_shape(slide.part(0).file().id(), slide.part(0).groups(), 0);
      shape.in_mm) {
    form.across = shape.across * view.scale;
    form.down = shape.down * view.scale;
  }
  PictureWriter writer;
  problem = writer.open(out, form);
  if (problem.empty())
    problem = painter.paint([&](const uint8_t* bytes, uint32_t rows) { return writer.rows(bytes, rows); });
  if (problem.empty()) problem = writer.commit();
  if (!problem.empty()) {
    report(out, problem);
    return kUsage;
  }
  int result = tell(slide, painter, files[0]);
  for (const auto& layer : layers) result = layer->judge(result);
  return result;
}

}  // namespace vexal
