#include <png.h>

#include <csetjmp>
#include <vector>

#include "byte_reader.h"
#include "stills.h"

namespace vexal {
namespace {

constexpr std::size_t kMostInterlaced = std::size_t{1} << 30;  // bytes of a picture that is held as a whole

// What lives through the jumps of the library.
struct Work {
  const Input& input;
  RowSink sink;
  Still& still;
  uint64_t at = 0;
  std::string problem{};
  std::vector<uint8_t> rows{};
  std::vector<png_bytep> starts{};
};

void take(png_structp png, png_bytep data, png_size_t size) {
  auto& work = *static_cast<Work*>(png_get_io_ptr(png));
  if (work.input.file->read_at(work.at, data, size) != static_cast<int64_t>(size))
    png_error(png, "ends too early");
  work.at += size;
}

[[noreturn]] void fail(png_structp png, png_const_charp text) {
  auto& work = *static_cast<Work*>(png_get_error_ptr(png));
  if (work.problem.empty())
    work.problem = "offset " + std::to_string(work.at) + ": " + std::string(text) + ": no sound PNG";
  png_longjmp(png, 1);
}
void pass_over(png_structp, png_const_charp) {}

// Ends the reading if the work has a problem, which its holder keeps.
void stop_if_failed(png_structp png, const Work& work) {
  if (!work.problem.empty()) png_longjmp(png, 1);
}

// What is called behind setjmp stays out of its function: strings do not live there.
[[gnu::noinline]] void keep_profile(png_structp png, png_infop info, Still& still) {
  png_charp name = nullptr;
  int compression = 0;
  png_bytep profile = nullptr;
  png_uint_32 length = 0;
  if (png_get_iCCP(png, info, &name, &compression, &profile, &length) != 0)
    still.icc_profile.assign(reinterpret_cast<const char*>(profile), length);
}

[[gnu::noinline]] void begin_rows(png_structp png, png_infop info, Work& work) {
  work.problem = work.sink.begin(png_get_channels(png, info), png_get_bit_depth(png, info) / 8U);
  stop_if_failed(png, work);
}

[[gnu::noinline]] void read_rows(png_structp png, Work& work, std::size_t row_bytes, bool interlaced) {
  const uint32_t height = work.still.height;
  if (!interlaced) {
    work.rows.resize(row_bytes);
    for (uint32_t y = 0; y < height; ++y) {
      png_read_row(png, work.rows.data(), nullptr);
      work.problem = work.sink.row(work.rows.data());
      stop_if_failed(png, work);
    }
    return;
  }
  if (row_bytes > kMostInterlaced / height) work.problem = "is interlaced and has more than 1 GiB of pixels";
  stop_if_failed(png, work);
  work.rows.resize(row_bytes * height);
  work.starts.resize(height);
  for (uint32_t y = 0; y < height; ++y) work.starts[y] = work.rows.data() + y * row_bytes;
  png_read_image(png, work.starts.data());
  for (uint32_t y = 0; y < height && work.problem.empty(); ++y) work.problem = work.sink.row(work.starts[y]);
  stop_if_failed(png, work);
}

// No object with a destructor lives where the library may jump over it.
bool decode(png_structp png, png_infop info, Work& work) {
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  png_set_read_fn(png, &work, take);
  png_set_crc_action(png, PNG_CRC_ERROR_QUIT, PNG_CRC_DEFAULT);
  png_read_info(png, info);
  work.still.width = png_get_image_width(png, info);
  work.still.height = png_get_image_height(png, info);
  const bool interlaced = png_get_interlace_type(png, info) != PNG_INTERLACE_NONE;
  png_set_expand(png);  // palettes, few bits and transparent colours
  if (png_get_bit_depth(png, info) == 16) png_set_swap(png);
  if (interlaced) png_set_interlace_handling(png);
  png_read_update_info(png, info);
  begin_rows(png, info, work);
  keep_profile(png, info, work.still);
  read_rows(png, work, png_get_rowbytes(png, info), interlaced);
  png_read_end(png, nullptr);
  return true;
}

// Its chunks before the pixels.
bool is_animation(const Input& input) {
  ByteReader reader(*input.file, 8, input.size());
  while (reader.left() >= 12) {
    const uint64_t length = reader.big(4);
    const std::string name = reader.text(4);
    if (name == "acTL") return true;
    if (name == "IDAT") break;
    reader.skip(length + 4);
  }
  return false;
}

}  // namespace

std::string read_png(const Input& input, const StillOptions& options, Still& still) {
  if (is_animation(input)) return "is an animation, of which a frame would be lost";
  Work work{input, RowSink(options, still), still};
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &work, fail, pass_over);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  const bool done = info != nullptr && decode(png, info, work);
  png_destroy_read_struct(&png, &info, nullptr);
  if (!done) return work.problem.empty() ? "can not be read" : work.problem;
  work.sink.end();
  if (work.at < input.size())
    still.told = std::to_string(input.size() - work.at) + " bytes behind the picture are left out";
  return "";
}

}  // namespace vexal
