#include "blanking.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "base/attributes.h"
#include "base/object_values.h"
#include "base/session.h"
#include "base/tag_path.h"
#include "base/tags.h"
#include "base/values.h"
#include "images/recode.h"

namespace vexal {
namespace {

// Left, top, right, bottom.
constexpr uint32_t kRegionEdges[] = {tags::kRegionLocationMinX0, tags::kRegionLocationMinY0,
                                     tags::kRegionLocationMaxX1, tags::kRegionLocationMaxY1};

bool parse_region(const std::string& text, Region& region) {
  const char* at = text.data();
  const char* end = at + text.size();
  uint32_t* const numbers[] = {&region.x, &region.y, &region.width, &region.height};
  for (std::size_t i = 0; i < std::size(numbers); ++i) {
    if (i != 0 && (at == end || *at++ != ',')) return false;
    const auto [behind, error] = std::from_chars(at, end, *numbers[i]);
    if (error != std::errc()) return false;
    at = behind;
  }
  return at == end && region.width != 0 && region.height != 0;
}

bool has_float_pixels(int32_t object) {
  return has_attribute(object, tags::kFloatPixelData) || has_attribute(object, tags::kDoubleFloatPixelData);
}

// How the pixels of an uncompressed image lie, and what black is among them.
struct Layout {
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t samples = 1;
  uint32_t bytes = 1;  // of a sample
  uint32_t frames = 1;
  bool planes = false;
  std::string black;  // one sample of each kind behind the other

  std::string read(int32_t object) {
    rows = number_of(object, tags::kRows, 0);
    columns = number_of(object, tags::kColumns, 0);
    samples = number_of(object, tags::kSamplesPerPixel, 1);
    frames = std::max(1U, number_of(object, tags::kNumberOfFrames, 1));
    planes = samples > 1 && number_of(object, tags::kPlanarConfiguration, 0) == 1;
    const uint32_t bits = number_of(object, tags::kBitsAllocated, 0);
    const std::string photometric = text_of(object, tags::kPhotometricInterpretation);
    if (rows == 0 || columns == 0 || (samples != 1 && samples != 3))
      return "its pixels can not be found to be blanked";
    if (bits != 8 && bits != 16 && bits != 32)
      return "pixels of " + std::to_string(bits) + " bits can not be blanked";
    if (photometric == "YBR_FULL_422" || photometric == "YBR_PARTIAL_422" || photometric == "YBR_PARTIAL_420")
      return "pixels that share their colour can not be blanked without compression";
    bytes = bits / 8;
    const uint32_t stored = std::min(number_of(object, tags::kBitsStored, bits), bits);
    const bool is_signed = number_of(object, tags::kPixelRepresentation, 0) == 1;
    int64_t value = is_signed ? -(int64_t{1} << (stored - 1)) : 0;
    if (photometric == "MONOCHROME1") value = (int64_t{1} << (is_signed ? stored - 1 : stored)) - 1;
    if (samples == 3) value = 0;
    for (uint32_t sample = 0; sample < samples; ++sample) {
      const bool chroma = sample != 0 && photometric.starts_with("YBR");
      const int64_t one = chroma ? int64_t{1} << (stored - 1) : value;
      for (uint32_t byte = 0; byte < bytes; ++byte) black += static_cast<char>(one >> (8 * byte) & 0xFF);
    }
    return "";
  }
  uint64_t frame_bytes() const { return uint64_t{rows} * columns * samples * bytes; }
};

// Runs of black pixels, in the value from its first byte on: `put` writes bytes to a place in it.
template <typename Put>
bool blacken(const Layout& layout, const std::vector<bool>& black, Put put) {
  const uint32_t planes = layout.planes ? layout.samples : 1;
  const uint32_t step = layout.planes ? layout.bytes : layout.bytes * layout.samples;
  for (uint32_t frame = 0; frame < layout.frames; ++frame) {
    for (uint32_t plane = 0; plane < planes; ++plane) {
      const uint64_t start =
          frame * layout.frame_bytes() + uint64_t{plane} * layout.rows * layout.columns * step;
      const std::string pixel =
          layout.planes ? layout.black.substr(plane * layout.bytes, layout.bytes) : layout.black;
      for (std::size_t at = 0; at < black.size();) {
        const bool wanted = black[at];
        const std::size_t row_end = (at / layout.columns + 1) * layout.columns;
        std::size_t end = at;
        while (end < row_end && black[end] == wanted) ++end;
        if (wanted) {
          std::string run;
          run.reserve((end - at) * step);
          for (std::size_t i = at; i < end; ++i) run += pixel;
          if (!put(start + at * step, run)) return false;
        }
        at = end;
      }
    }
  }
  return true;
}

}  // namespace

bool Blanking::read(const Args& args) {
  ultrasound_ = args.has("--blank-ultrasound");
  for (const std::string& text : args.all("--blank")) {
    Region region;
    if (!parse_region(text, region)) {
      complain("--blank %s: give X,Y,W,H in pixels", text.c_str());
      return false;
    }
    regions_.push_back(region);
  }
  return true;
}

bool Blanking::concerns(int32_t object) const {
  if (!has_attribute(object, tags::kPixelData) && !has_float_pixels(object)) return false;
  if (!regions_.empty()) return true;
  if (!blanks_ultrasound(object)) return false;
  // Where the regions leave nothing outside, nothing goes; what can not be told has to be refused.
  std::vector<bool> black;
  return !mask_of(object, black).empty() || std::find(black.begin(), black.end(), true) != black.end();
}

bool Blanking::blanks_ultrasound(int32_t object) const {
  return ultrasound_ && text_of(object, tags::kModality) == "US";
}

// Which pixels of a frame are to be black.
std::string Blanking::mask_of(int32_t object, std::vector<bool>& black) const {
  const uint32_t rows = number_of(object, tags::kRows, 0);
  const uint32_t columns = number_of(object, tags::kColumns, 0);
  black.assign(uint64_t{rows} * columns, false);
  const auto fill = [&](const Region& region, bool value) {
    const auto right = std::min<uint64_t>(columns, uint64_t{region.x} + region.width);
    const auto bottom = std::min<uint64_t>(rows, uint64_t{region.y} + region.height);
    for (uint64_t y = region.y; y < bottom; ++y) {
      for (uint64_t x = region.x; x < right; ++x) black[y * columns + x] = value;
    }
  };
  if (blanks_ultrasound(object)) {
    const std::vector<int32_t> items = sequence_items(object, tags::kSequenceOfUltrasoundRegions);
    if (items.empty())
      return "it does not tell its ultrasound regions: outside of which nothing can be blanked";
    std::fill(black.begin(), black.end(), true);
    for (const int32_t item : items) {
      uint32_t edges[4] = {};
      for (std::size_t i = 0; i < std::size(edges); ++i) edges[i] = number_of(item, kRegionEdges[i], 0);
      if (edges[2] < edges[0] || edges[3] < edges[1]) return "an ultrasound region has no size";
      fill({edges[0], edges[1], edges[2] - edges[0] + 1, edges[3] - edges[1] + 1}, false);
    }
  }
  for (const Region& region : regions_) {
    if (region.x >= columns || region.y >= rows)
      return "--blank " + std::to_string(region.x) + "," + std::to_string(region.y) +
             ",... lies outside of its " + std::to_string(columns) + " x " + std::to_string(rows) + " pixels";
    fill(region, true);
  }
  return "";
}

// The pixels of an uncompressed copy in little endian, where they lie.
std::string Blanking::blank_copy(DicomFile& copy, const std::string& path) const {
  std::vector<bool> black;
  Layout layout;
  std::string problem = layout.read(copy.id());
  if (problem.empty()) problem = mask_of(copy.id(), black);
  if (!problem.empty()) return problem;
  const uint64_t wanted = layout.frame_bytes() * layout.frames;
  if (const KeptValue* kept = copy.kept(copy.id(), tags::kPixelData); kept != nullptr) {
    if (kept->length < wanted) return "its pixel data is too short";
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    const bool done = fd >= 0 && blacken(layout, black, [&](uint64_t at, const std::string& run) {
                        return ::pwrite(fd, run.data(), run.size(), static_cast<off_t>(kept->offset + at)) ==
                               static_cast<ssize_t>(run.size());
                      });
    if (fd >= 0) ::close(fd);
    return done ? "" : "its pixels can not be blanked in a temporary file";
  }
  std::string value(wanted + wanted % 2, '\0');
  uint32_t got = 0;
  const VX_STATUS status = VX_Get_Value_To_Buffer(copy.id(), tags::kPixelData,
                                                  static_cast<uint32_t>(value.size()), value.data(), &got);
  if (status != VX_NORMAL_COMPLETION || got < wanted) return "its pixel data is too short or too long";
  value.resize(got);
  blacken(layout, black, [&](uint64_t at, const std::string& run) {
    value.replace(at, run.size(), run);
    return true;
  });
  return VX_Set_Value_From_Buffer(copy.id(), tags::kPixelData, value.data(), got) == VX_NORMAL_COMPLETION
             ? ""
             : "its pixels can not be blanked";
}

std::string Blanking::apply(DicomFile& file, VX_TRANSFER_SYNTAX syntax, const std::string& beside,
                            unsigned threads, const Taker& take) const {
  if (has_float_pixels(file.id())) return "pixels that are floating point numbers can not be blanked";
  const std::string instance = text_of(file.id(), tags::kSOPInstanceUID);
  FileSink plain;
  RecodedPixels decompressed;
  std::string problem = file.write_fault(EXPLICIT_LITTLE_ENDIAN);
  if (problem.empty() && RecodedPixels::needed(file, EXPLICIT_LITTLE_ENDIAN))
    problem = decompressed.attach(file, EXPLICIT_LITTLE_ENDIAN, threads, RecodedPixels::When::AsWritten);
  if (problem.empty()) problem = plain.open(beside, FileSink::kPrivateMode);
  if (problem.empty() && file.set_syntax(EXPLICIT_LITTLE_ENDIAN) != VX_NORMAL_COMPLETION)
    problem = "can not be written without compression";
  if (problem.empty()) problem = decompressed.write(file, plain, 0);
  if (problem.empty()) problem = decompressed.finding();
  if (problem.empty() && !plain.flush()) problem = plain.problem();
  if (!problem.empty()) return problem;
  const std::string failure = plain.place([&](const std::string& temporary, std::string&) -> std::string {
    DicomFile copy;
    RecodedPixels pixels;
    if (copy.open(temporary, {}) != VX_NORMAL_COMPLETION) return copy.problem();
    std::string fault = blank_copy(copy, temporary);
    if (fault.empty()) fault = copy.write_fault(syntax);
    if (fault.empty() && RecodedPixels::needed(copy, syntax))
      fault = pixels.attach(copy, syntax, threads, RecodedPixels::When::Ahead);
    if (fault.empty() && copy.set_syntax(syntax) != VX_NORMAL_COMPLETION)
      fault = "can not be compressed again";
    // A lossy copy has a UID of chance; what stands for the old one is derived from it.
    for (const uint32_t tag : {tags::kSOPInstanceUID, tags::kMediaStorageSOPInstanceUID})
      set_all_text(copy.id(), tag, instance);
    return fault.empty() ? take(copy, pixels) : fault;
  });
  plain.drop();
  return failure;
}

}  // namespace vexal
