// vexal pixel info, offsets: what the pixel data is, and the offset table of its fragments.
#include <cstdio>

#include "base/attributes.h"
#include "base/names.h"
#include "base/tags.h"
#include "images/write_options.h"
#include "layers.h"
#include "pixel_actions.h"
#include "pixel_offsets.h"

namespace vexal {

int check_offsets(const Args& args, PixelImage& image, const std::string& path, const std::string&) {
  if (!image.compressed()) {
    say("%s: not encapsulated", path.c_str());
    return kSuccess;
  }
  const std::string fault = table_fault(image);
  say("%s: %s", path.c_str(), table_verdict(image, fault).c_str());
  if (!args.has("--repair")) return fault.empty() ? kSuccess : kFindings;
  std::string problem = repair_table(image);
  WriteOptions options;
  if (!options.read(args)) return kUsage;
  if (problem.empty()) problem = write_file(image.file(), args.get("--repair"), options);
  if (problem.empty()) return values_were_lost() ? kFindings : kSuccess;
  report(path, problem);
  return kUsage;
}

int show_image(const Args&, PixelImage& image, const std::string& path, const std::string&) {
  const ImageDescription& d = image.description();
  char uid[80] = "";
  VX_Get_Transfer_Syntax_From_Enum(image.file().syntax(), uid, sizeof uid);
  say("%s", path.c_str());
  say("  %u x %u, %u frame%s, %s, %u sample%s of %u bits in %u%s%s", d.columns, d.rows, d.frames,
      d.frames == 1 ? "" : "s", d.photometric.c_str(), d.samples, d.samples == 1 ? "" : "s", d.stored,
      d.allocated, d.is_signed ? ", signed" : "", d.samples > 1 && d.planar == 1 ? ", planar" : "");
  say("  transfer syntax %s", describe_uid(uid).c_str());
  if (has_attribute(image.file().id(), tags::kDoseGridScaling)) say("  %s", describe_dose(image).c_str());
  if (!image.compressed()) {
    std::printf("  %llu bytes\n", static_cast<unsigned long long>(image.value().size()));
    return kSuccess;
  }
  uint64_t bytes = 0;
  for (const Fragment& fragment : image.fragments().fragments) bytes += fragment.length;
  const uint64_t raw = uint64_t{d.rows} * d.columns * d.samples * d.frames * d.allocated / 8;
  const std::string fault = table_fault(image);
  std::printf("  %zu fragments of %llu bytes, ratio %.2f; %s\n", image.fragments().fragments.size(),
              static_cast<unsigned long long>(bytes),
              bytes != 0 ? static_cast<double>(raw) / static_cast<double>(bytes) : 0.0,
              table_verdict(image, fault).c_str());
  return kSuccess;
}

}  // namespace vexal
