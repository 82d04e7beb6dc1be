// vexal pixel info, offsets: what the pixel data is, and the offset table of its fragments.
#include <cstdio>
#include <optional>

#include "base/attributes.h"
#include "base/names.h"
#include "base/tags.h"
#include "images/write_options.h"
#include "layers.h"
#include "pixel_actions.h"
#include "pixel_offsets.h"
#include "video_stream.h"

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
  Written written;
  if (problem.empty()) written = write_file(image.file(), args.get("--repair"), options);
  if (problem.empty()) problem = written.problem;
  if (problem.empty()) return values_were_lost() || written.corrected ? kFindings : kSuccess;
  report(path, problem);
  return kUsage;
}

namespace {

// What the heads of the code streams say, and where that is not what the object says.
void show_streams(const PixelImage& image) {
  const FrameDecoder* decoder = image.decoder();
  if (decoder == nullptr || !decoder->form().head) return;
  const FrameForm& form = decoder->form();
  const CodeStreamObj& first = *form.head;
  say("  code streams of %u x %u, %u sample%s of %u bits%s", first.Columns, first.Rows, first.SamplesPerPixel,
      first.SamplesPerPixel == 1 ? "" : "s", first.BitsPerSample, first.IsSigned == 1 ? ", signed" : "");
  if (!form.notes->corrected.empty())
    say("  contradiction: by its code streams %s", form.notes->corrected.c_str());
  constexpr uint32_t kMostFaults = 20;
  uint32_t faults = 0;
  for (uint32_t i = 1; i < decoder->source().count(); ++i) {
    const std::optional<CodeStreamObj> stream = describe_frame(decoder->source(), form.from, i);
    const std::string fault = stream ? form.fault_of_head(*stream) : "its code stream has no head";
    if (!fault.empty() && ++faults <= kMostFaults) say("  contradiction: frame %u: %s", i + 1, fault.c_str());
  }
  if (faults > kMostFaults) say("  contradiction: %u frames in all", faults);
}

void show_video(const PixelImage& image) {
  const VideoStream video = read_video(image);
  say("  video: %s", describe_video(video).c_str());
  for (const std::string& fault : video_faults(video, image)) say("  contradiction: %s", fault.c_str());
}

}  // namespace

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
    for (const std::string& fault : {image.missing_frames(), image.finding()}) {
      if (!fault.empty()) say("  contradiction: %s", fault.c_str());
    }
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
  if (image.decoder() != nullptr && image.decoder()->is_video()) {
    show_video(image);
  } else {
    show_streams(image);
  }
  return kSuccess;
}

}  // namespace vexal
