#include "pixel_image.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "base/attributes.h"
#include "base/tags.h"
#include "base/thrown.h"
#include "base/values.h"

namespace vexal {
namespace {

constexpr uint64_t kLargestFrame = uint64_t{1} << 31;

VX_STATUS append(int32_t, uint32_t, void* user, uint32_t size, void* data, int32_t, int32_t) {
  if (size != 0) static_cast<std::string*>(user)->append(static_cast<const char*>(data), size);
  return VX_NORMAL_COMPLETION;
}

uint32_t number_of(int32_t id, uint32_t tag, uint32_t otherwise = 0) {
  uint32_t value = 0;
  return VX_Get_Value_To_UInt(id, tag, &value) == VX_NORMAL_COMPLETION ? value : otherwise;
}

std::optional<double> real_of(int32_t id, uint32_t tag, int number = 1) {
  double value = 0;
  VX_STATUS status = VX_Get_Value_To_Double(id, tag, &value);
  for (int i = 1; i < number && status == VX_NORMAL_COMPLETION; ++i) {
    status = VX_Get_Next_Value_To_Double(id, tag, &value);
  }
  if (status != VX_NORMAL_COMPLETION || !std::isfinite(value)) return std::nullopt;
  return value;
}

bool has(int32_t id, uint32_t tag) {
  int32_t count = 0;
  return VX_Get_Value_Count(id, tag, &count) == VX_NORMAL_COMPLETION && count > 0;
}

// Item `number` (from 0) of a sequence, or -1.
int32_t item_of(int32_t id, uint32_t tag, uint32_t number = 0) {
  int32_t item = -1;
  if (VX_Get_Value_To_Int(id, tag, &item) != VX_NORMAL_COMPLETION) return -1;
  for (uint32_t i = 0; i < number; ++i) {
    if (VX_Get_Next_Value_To_Int(id, tag, &item) != VX_NORMAL_COMPLETION) return -1;
  }
  return item;
}

std::vector<int32_t> integers_of(int32_t id, uint32_t tag) {
  std::vector<int32_t> values;
  int32_t value = 0;
  VX_STATUS status = VX_Get_Value_To_Int(id, tag, &value);
  while (status == VX_NORMAL_COMPLETION) {
    values.push_back(value);
    status = VX_Get_Next_Value_To_Int(id, tag, &value);
  }
  return values;
}

std::string bytes_of(int32_t id, uint32_t tag) {
  std::string bytes;
  VX_Get_Value_To_Function(id, tag, &bytes, guarded<append>);
  return bytes;
}

uint32_t load32(const char* at) {
  uint32_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}
uint16_t load16(const char* at) {
  uint16_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

uint8_t clamp8(double value) {
  return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

// Segments of a palette's data into entries, at most `most` of them (PS3.3 section C.7.9.2): discrete ones, a
// line from the last entry to an end, or a copy of earlier segments.
bool expand_segments(const std::string& bytes, std::size_t width, std::size_t most,
                     std::vector<uint16_t>& entries) {
  enum { kDiscrete, kLinear, kIndirect };
  const auto word = [&](std::size_t at) {
    return width == 2 ? load16(bytes.data() + at) : static_cast<uint16_t>(static_cast<uint8_t>(bytes[at]));
  };
  entries.clear();
  // Segments from `at` on; a copy must not hold a copy.
  const auto run = [&](auto& self, std::size_t at, std::size_t segments, bool copying) -> bool {
    for (; segments != 0 && entries.size() < most && at + 3 * width <= bytes.size(); --segments) {
      const uint16_t kind = word(at);
      const std::size_t count = word(at + width);
      if (count == 0) return false;  // each segment has an entry at least, so that their number is bounded
      at += 2 * width;
      if (kind == kDiscrete) {
        if (count * width > bytes.size() - at || count > most - entries.size()) return false;
        for (std::size_t i = 0; i < count; ++i, at += width) entries.push_back(word(at));
      } else if (kind == kLinear) {
        if (entries.empty() || count > most - entries.size()) return false;
        const double from = entries.back();
        const double step = (word(at) - from) / static_cast<double>(count);
        for (std::size_t i = 1; i <= count; ++i)
          entries.push_back(static_cast<uint16_t>(std::lround(from + step * static_cast<double>(i))));
        at += width;
      } else if (kind == kIndirect && !copying) {
        const std::size_t words = 4 / width;  // of the offset, the least significant first
        if (words * width > bytes.size() - at) return false;
        std::size_t target = 0;
        for (std::size_t i = 0; i < words; ++i)
          target |= std::size_t{word(at + i * width)} << (8 * width * i);
        at += words * width;
        if (target >= at || !self(self, target, count, true)) return false;
      } else {
        return false;
      }
    }
    return !copying || segments == 0;
  };
  return run(run, 0, SIZE_MAX, false);
}

// A table of a modality, VOI or palette transformation (PS3.3 section C.11.1).
struct LookupTable {
  int32_t first = 0;
  uint32_t bits = 16;
  std::vector<uint16_t> entries;
  uint16_t at(int64_t value) const {
    const int64_t index = std::clamp<int64_t>(value - first, 0, static_cast<int64_t>(entries.size()) - 1);
    return entries[static_cast<std::size_t>(index)];
  }
  // Of a palette the data may be segmented. False: there is none, or not all of it.
  bool read_palette(int32_t id, uint32_t colour, bool signed_first) {
    if (read(id, tags::kRedPaletteColorLookupTableDescriptor + colour,
             tags::kRedPaletteColorLookupTableData + colour, signed_first))
      return true;
    const std::string bytes = bytes_of(id, tags::kSegmentedRedPaletteColorLookupTableData + colour);
    if (bytes.empty() || entries.empty()) return false;  // the descriptor has given the number of entries
    const std::size_t count = entries.size();
    const bool expanded = expand_segments(bytes, bits <= 8 ? 1 : 2, count, entries);
    return expanded && entries.size() == count;
  }
  bool read(int32_t id, uint32_t descriptor, uint32_t data, bool signed_first) {
    const std::vector<int32_t> words = integers_of(id, descriptor);
    if (words.size() < 3) return false;
    const std::size_t count = (words[0] & 0xFFFF) == 0 ? 65536 : static_cast<std::size_t>(words[0] & 0xFFFF);
    first = signed_first ? static_cast<int16_t>(words[1]) : words[1] & 0xFFFF;
    bits = static_cast<uint32_t>(words[2]);
    if (bits < 1 || bits > 16) bits = 16;
    const std::string bytes = bytes_of(id, data);
    entries.assign(count, 0);
    if (bytes.size() >= 2 * count) {
      for (std::size_t i = 0; i < count; ++i) entries[i] = load16(bytes.data() + 2 * i);
    } else if (bytes.size() >= count) {
      for (std::size_t i = 0; i < count; ++i) entries[i] = static_cast<uint8_t>(bytes[i]);
      bits = 8;
    } else {
      return false;
    }
    return true;
  }
};

// How a value becomes a level from 0 to 1 (PS3.3 section C.11.2).
struct Window {
  enum class Form { kLinear, kExact, kSigmoid } form = Form::kLinear;
  double center = 0;
  double width = 1;
  double level(double value) const {
    if (form == Form::kSigmoid) return 1 / (1 + std::exp(-4 * (value - center) / width));
    const double middle = form == Form::kLinear ? center - 0.5 : center;
    const double range = form == Form::kLinear ? width - 1 : width;
    if (value <= middle - range / 2) return 0;
    if (value > middle + range / 2) return 1;
    return (value - middle) / range + 0.5;
  }
};

struct Rgb {
  double red, green, blue;
};
Rgb from_ybr(double y, double cb, double cr) {
  return {y + 1.402 * (cr - 128), y - 0.344136 * (cb - 128) - 0.714136 * (cr - 128), y + 1.772 * (cb - 128)};
}

}  // namespace

// --- Opening ---

std::string PixelImage::open(const std::string& path) {
  if (file_.open(path, {}) != VX_NORMAL_COMPLETION) return file_.problem();
  for (const uint32_t tag : {tags::kPixelData, tags::kFloatPixelData, tags::kDoubleFloatPixelData}) {
    if (pixels_ == 0 && has_attribute(file_.id(), tag)) pixels_ = tag;
  }
  if (pixels_ == 0) return "it has no Pixel Data";
  if (!file_.has_meta()) file_.set_syntax(file_.syntax());
  if (std::string problem = read_description(); !problem.empty()) return problem;
  compressed_ = !is_uncompressed(file_.syntax());
  if (compressed_ && image_.real) return "floating point pixels are not compressed";
  if (std::string problem = value_.open(file_, file_.id(), pixels_); !problem.empty()) return problem;
  if (compressed_) {
    const auto read = [this](uint64_t offset, void* buffer, std::size_t length) {
      return value_.read_at(offset, buffer, length);
    };
    encapsulated_ = read_items(read, value_.size());
    vexal::find_frames(encapsulated_, image_.frames, read);
  }
  return "";
}

std::string PixelImage::read_description() {
  const int32_t id = file_.id();
  image_.rows = number_of(id, tags::kRows);
  image_.columns = number_of(id, tags::kColumns);
  image_.samples = number_of(id, tags::kSamplesPerPixel, 1);
  image_.allocated = number_of(id, tags::kBitsAllocated);
  image_.stored = number_of(id, tags::kBitsStored, image_.allocated);
  image_.high = number_of(id, tags::kHighBit, image_.stored - 1);
  image_.is_signed = number_of(id, tags::kPixelRepresentation) == 1;
  image_.planar = number_of(id, tags::kPlanarConfiguration);
  image_.frames = std::max(number_of(id, tags::kNumberOfFrames, 1), 1U);
  image_.photometric = text_of(id, tags::kPhotometricInterpretation);
  image_.real = pixels_ != tags::kPixelData;
  if (image_.real) {  // their size is that of the attribute's numbers
    image_.stored = image_.allocated = pixels_ == tags::kFloatPixelData ? 32 : 64;
    image_.high = image_.stored - 1;
  }
  const uint32_t a = image_.allocated;
  const bool possible =
      image_.rows != 0 && image_.columns != 0 && image_.rows <= 65535 && image_.columns <= 65535 &&
      (image_.samples == 1 || image_.samples == 3) &&
      (a == 1 || a == 8 || a == 16 || a == 32 || image_.real) && image_.stored != 0 && image_.stored <= a &&
      image_.high < a && image_.high + 1 >= image_.stored &&
      uint64_t{image_.rows} * image_.columns * image_.samples * ((a + 7) / 8) < kLargestFrame;
  return possible ? "" : "its pixel description is none that can be shown";
}

bool PixelImage::is_planar() const {
  return image_.samples == 3 && image_.planar == 1 &&
         (!compressed_ || file_.syntax() == RLE || holds_native_frames(file_.syntax()));
}

std::string PixelImage::find_frames() {
  if (decoder_ != nullptr) return "";
  auto decoder = std::make_unique<FrameDecoder>();
  std::string problem = decoder->open(file_);
  if (problem.empty()) decoder_ = std::move(decoder);
  return problem;
}

std::string PixelImage::count_streams(uint32_t& count) {
  std::string problem = find_frames();
  if (problem.empty()) count = decoder_->is_video() ? 1 : image_.frames;
  return problem;
}

std::string PixelImage::code_stream(uint32_t number, std::string& bytes) {
  Bytes stream;
  std::string problem = find_frames();
  if (problem.empty()) problem = decoder_->code_stream(number, stream);
  if (problem.empty()) bytes.assign(stream.data(), stream.size());
  return problem;
}

std::string PixelImage::frame(uint32_t number, std::string& bytes) {
  bytes.clear();
  if (number >= image_.frames) return "there is no such frame";
  if (compressed_) {
    Bytes frame;
    std::string problem = find_frames();
    if (problem.empty()) problem = decoder_->frame(number, frame);
    if (!problem.empty()) return problem;
    const uint64_t bits = decoder_->frame_bits();
    if (frame.size() < (bits + 7) / 8) return "the frame is too short";
    bytes.assign(frame.data(), (bits + 7) / 8);
    return "";
  }
  const bool packed =
      image_.photometric.starts_with("YBR_FULL_422") || image_.photometric.starts_with("YBR_PARTIAL_422");
  const uint64_t samples = packed ? 2 : image_.samples;
  const uint64_t bits = uint64_t{image_.rows} * image_.columns * samples * image_.allocated;
  // Frames of single bits follow each other without a gap.
  const uint64_t start = bits * number;
  if ((start + bits + 7) / 8 > value_.size()) return "the value ends before this frame does";
  Bytes frame;
  if (!read_bits(value_, start, bits, frame)) return "can not read";
  bytes.assign(frame.data(), frame.size());
  return "";
}

// --- Rendering ---

int32_t PixelImage::stored_value(const std::string& bytes, std::size_t index) const {
  uint32_t raw = 0;
  const char* data = bytes.data();
  switch (image_.allocated) {
    case 1:
      return (static_cast<uint8_t>(data[index / 8]) >> (index % 8)) & 1;
    case 8:
      raw = static_cast<uint8_t>(data[index]);
      break;
    case 16:
      raw = load16(data + 2 * index);
      break;
    default:
      raw = load32(data + 4 * index);
  }
  raw >>= image_.high + 1 - image_.stored;
  const uint32_t unused = 32 - image_.stored;
  raw <<= unused;
  return image_.is_signed ? static_cast<int32_t>(raw) >> unused : static_cast<int32_t>(raw >> unused);
}

double PixelImage::plain_value(const std::string& bytes, std::size_t index) const {
  if (!image_.real) {
    const int32_t stored = stored_value(bytes, index);
    return image_.is_signed ? stored : static_cast<double>(static_cast<uint32_t>(stored));
  }
  float narrow = 0;
  double value = 0;
  if (image_.allocated == 32) {
    std::memcpy(&narrow, bytes.data() + 4 * index, sizeof narrow);
    value = static_cast<double>(narrow);
  } else {
    std::memcpy(&value, bytes.data() + 8 * index, sizeof value);
  }
  return std::isfinite(value) ? value : 0;
}

int32_t PixelImage::group_item(uint32_t frame, uint32_t sequence) const {
  const int32_t id = file_.id();
  if (const int32_t own = item_of(id, tags::kPerFrameFunctionalGroupsSequence, frame); own >= 0) {
    if (const int32_t item = item_of(own, sequence); item >= 0) return item;
  }
  if (const int32_t shared = item_of(id, tags::kSharedFunctionalGroupsSequence); shared >= 0) {
    if (const int32_t item = item_of(shared, sequence); item >= 0) return item;
  }
  return id;
}

std::string PixelImage::grey(uint32_t number, const std::string& bytes, const RenderOptions& options,
                             Picture& picture) {
  const std::size_t pixels = std::size_t{image_.rows} * image_.columns;
  const int32_t id = file_.id();
  LookupTable modality;
  const int32_t modality_item = item_of(id, tags::kModalityLUTSequence);
  const bool by_table = modality_item >= 0 && !image_.real &&
                        modality.read(modality_item, tags::kLUTDescriptor, tags::kLUTData, image_.is_signed);
  const int32_t rescale = group_item(number, tags::kPixelValueTransformationSequence);
  const double slope = real_of(rescale, tags::kRescaleSlope).value_or(1);
  const double intercept = real_of(rescale, tags::kRescaleIntercept).value_or(0);
  std::vector<double> values(pixels);
  double low = std::numeric_limits<double>::max();
  double high = std::numeric_limits<double>::lowest();
  for (std::size_t i = 0; i < pixels; ++i) {
    const double plain = plain_value(bytes, i);
    values[i] = by_table ? modality.at(static_cast<int64_t>(plain)) : plain * slope + intercept;
    low = std::min(low, values[i]);
    high = std::max(high, values[i]);
  }
  const int32_t voi = group_item(number, tags::kFrameVOILUTSequence);
  Window window;
  LookupTable table;
  const std::optional<double> center = real_of(voi, tags::kWindowCenter, options.window);
  const std::optional<double> width = real_of(voi, tags::kWindowWidth, options.window);
  bool by_voi_table = false;
  if (options.center && options.width) {
    window.center = *options.center;
    window.width = *options.width;
  } else if (options.window > 0 && center && width && *width >= 1) {
    window.center = *center;
    window.width = *width;
    const std::string function = text_of(voi, tags::kVOILUTFunction);
    if (function == "LINEAR_EXACT") window.form = Window::Form::kExact;
    if (function == "SIGMOID") window.form = Window::Form::kSigmoid;
  } else {
    const int32_t item = options.window > 0 ? item_of(id, tags::kVOILUTSequence) : -1;
    by_voi_table = item >= 0 &&
                   table.read(item, tags::kLUTDescriptor, tags::kLUTData, image_.is_signed || intercept < 0);
    window.form = Window::Form::kExact;
    window.center = (low + high) / 2;
    window.width = std::max(high - low, 1e-9);
  }
  if (window.form == Window::Form::kLinear && window.width < 1) return "a window has a width of 1 or more";
  const std::string shape = text_of(id, tags::kPresentationLUTShape);
  const bool inverse = (image_.photometric == "MONOCHROME1" || shape == "INVERSE") != options.invert;
  const double top = by_voi_table ? static_cast<double>((1U << table.bits) - 1) : 1;
  picture.samples = 1;
  picture.bytes.resize(pixels);
  for (std::size_t i = 0; i < pixels; ++i) {
    const double level = by_voi_table ? table.at(std::llround(std::clamp(values[i], -1e9, 1e9))) / top
                                      : window.level(values[i]);
    picture.bytes[i] = clamp8(255 * (inverse ? 1 - level : level));
  }
  return "";
}

std::string PixelImage::palette(const std::string& bytes, Picture& picture) {
  LookupTable tables[3];
  for (uint32_t i = 0; i < 3; ++i) {
    if (!tables[i].read_palette(file_.id(), i, image_.is_signed)) return "its palette is missing or broken";
  }
  const std::size_t pixels = std::size_t{image_.rows} * image_.columns;
  picture.samples = 3;
  picture.bytes.resize(3 * pixels);
  for (std::size_t i = 0; i < pixels; ++i) {
    const int32_t value = stored_value(bytes, i);
    for (std::size_t c = 0; c < 3; ++c) {
      const uint16_t entry = tables[c].at(value);
      picture.bytes[3 * i + c] =
          static_cast<uint8_t>(tables[c].bits > 8 ? entry >> (tables[c].bits - 8) : entry);
    }
  }
  return "";
}

std::string PixelImage::colour(const std::string& bytes, Picture& picture) {
  const std::size_t pixels = std::size_t{image_.rows} * image_.columns;
  const std::string& kind = image_.photometric;
  // The reversible and irreversible transformations of JPEG 2000 are undone by its decoder.
  const bool ybr = kind.rfind("YBR_FULL", 0) == 0 || (kind.rfind("YBR_PARTIAL", 0) == 0);
  const bool packed = bytes.size() < pixels * 3 * ((image_.allocated + 7) / 8);
  if (packed && image_.allocated != 8) return "its colour can not be shown";
  const uint32_t shift = image_.stored > 8 ? image_.stored - 8 : 0;
  const bool planar = is_planar();
  picture.samples = 3;
  picture.bytes.resize(3 * pixels);
  for (std::size_t i = 0; i < pixels; ++i) {
    double part[3];
    for (std::size_t c = 0; c < 3; ++c) {
      if (packed) {
        const std::size_t pair = 4 * (i / 2);
        const std::size_t at = c == 0 ? pair + i % 2 : pair + 1 + c;
        if (at >= bytes.size()) return "the frame is too short";
        part[c] = static_cast<uint8_t>(bytes[at]);
      } else {
        const auto value = static_cast<uint32_t>(stored_value(bytes, planar ? c * pixels + i : 3 * i + c));
        part[c] = static_cast<double>((value >> shift) & 0xFFU);
      }
    }
    const Rgb rgb = ybr ? from_ybr(part[0], part[1], part[2]) : Rgb{part[0], part[1], part[2]};
    picture.bytes[3 * i] = clamp8(rgb.red);
    picture.bytes[3 * i + 1] = clamp8(rgb.green);
    picture.bytes[3 * i + 2] = clamp8(rgb.blue);
  }
  return "";
}

// Overlay planes (PS3.3 section C.9.2) are drawn in white.
void PixelImage::draw_overlays(uint32_t number, const std::string& bytes, Picture& picture) {
  const int32_t id = file_.id();
  for (uint32_t group = 0x60000000; group <= 0x601E0000; group += 0x20000) {
    const uint32_t rows = number_of(id, group | 0x0010);
    const uint32_t columns = number_of(id, group | 0x0011);
    if (rows == 0 || columns == 0 || rows > 65535 || columns > 65535) continue;
    const std::vector<int32_t> origin = integers_of(id, group | 0x0050);
    const int64_t top = origin.empty() ? 0 : int64_t{origin[0]} - 1;
    const int64_t left = origin.size() < 2 ? 0 : int64_t{origin[1]} - 1;
    const uint32_t frames = number_of(id, group | 0x0015, 1);
    const uint32_t first = std::max(number_of(id, group | 0x0051, 1), 1U) - 1;
    const bool planes = has(id, group | 0x0015);
    if (planes && (number < first || number - first >= frames)) continue;
    const std::string plane = bytes_of(id, group | 0x3000);
    const uint32_t bit = number_of(id, group | 0x0102);
    const bool embedded = plane.empty();
    if (embedded && (image_.real || image_.allocated < 8 || bit >= image_.allocated || image_.samples != 1 ||
                     number_of(id, group | 0x0100) != image_.allocated)) {
      continue;
    }
    const uint64_t skip = planes ? uint64_t{number - first} * rows * columns : 0;
    const uint32_t width = image_.allocated / 8;
    for (uint64_t y = 0; y < rows; ++y) {
      for (uint64_t x = 0; x < columns; ++x) {
        const int64_t to_y = top + static_cast<int64_t>(y);
        const int64_t to_x = left + static_cast<int64_t>(x);
        if (to_y < 0 || to_x < 0 || to_y >= int64_t{image_.rows} || to_x >= int64_t{image_.columns}) continue;
        const auto pixel = static_cast<std::size_t>(to_y) * image_.columns + static_cast<std::size_t>(to_x);
        bool set = false;
        if (embedded) {
          set = ((static_cast<uint8_t>(bytes[pixel * width + bit / 8]) >> (bit % 8)) & 1U) != 0;
        } else {
          const uint64_t at = skip + y * columns + x;
          if (at / 8 >= plane.size()) return;
          set = ((static_cast<uint8_t>(plane[at / 8]) >> (at % 8)) & 1U) != 0;
        }
        if (set)
          std::fill_n(picture.bytes.begin() + static_cast<std::ptrdiff_t>(pixel * picture.samples),
                      picture.samples, uint8_t{255});
      }
    }
  }
}

std::string PixelImage::render(uint32_t number, const RenderOptions& options, Picture& picture) {
  std::string bytes;
  std::string problem = frame(number, bytes);
  if (!problem.empty()) return problem;
  picture.width = image_.columns;
  picture.height = image_.rows;
  if (image_.photometric.rfind("MONOCHROME", 0) == 0 && image_.samples == 1) {
    problem = grey(number, bytes, options, picture);
  } else if (image_.photometric.rfind("PALETTE", 0) == 0 && image_.samples == 1) {
    problem = palette(bytes, picture);
  } else if (image_.samples == 3 && image_.allocated >= 8) {
    problem = colour(bytes, picture);
  } else {
    problem = "photometric interpretation " + image_.photometric + " can not be shown";
  }
  if (!problem.empty()) return problem;
  if (options.invert && picture.samples == 3) {
    for (uint8_t& byte : picture.bytes) byte = static_cast<uint8_t>(255 - byte);
  }
  if (options.overlays) draw_overlays(number, bytes, picture);
  return "";
}

}  // namespace vexal
