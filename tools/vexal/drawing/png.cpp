#include <png.h>

#include <bit>
#include <cmath>
#include <csetjmp>

#include "picture_format.h"

namespace vexal {
namespace {

// The library jumps out of a call that fails: no object with a destructor lives where it may jump over it.
class Png : public PictureFormat {
 public:
  ~Png() override { png_destroy_write_struct(&png_, &info_); }

  std::string begin(FileSink& sink, const PictureForm& form) override {
    row_bytes_ = std::size_t{form.width} * form.samples * (form.bits / 8);
    png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, ignore);
    info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr;
    return info_ != nullptr && write_head(sink, form) ? "" : "a picture of this size can not be a PNG file";
  }

  bool rows(const uint8_t* bytes, uint32_t count) override {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    for (uint32_t i = 0; i < count; ++i) png_write_row(png_, bytes + i * row_bytes_);
    return true;
  }

  bool end() override {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_write_end(png_, nullptr);
    return true;
  }

 private:
  bool write_head(FileSink& sink, const PictureForm& form) {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_set_write_fn(png_, &sink, put, flush);
    png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_IHDR(png_, info_, form.width, form.height, static_cast<int>(form.bits),
                 form.samples == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (form.across > 0 && form.down > 0) {
      png_set_pHYs(png_, info_, per_metre(form.across), per_metre(form.down), PNG_RESOLUTION_METER);
    }
    png_set_compression_level(png_, 4);
    png_write_info(png_, info_);
    if (form.bits == 16 && std::endian::native == std::endian::little) png_set_swap(png_);
    return true;
  }

  static png_uint_32 per_metre(double spacing) {
    return static_cast<png_uint_32>(std::lround(std::fmin(1000 / spacing, 1e9)));
  }
  static void ignore(png_structp, png_const_charp) {}
  static void put(png_structp png, png_bytep data, png_size_t size) {
    if (!static_cast<FileSink*>(png_get_io_ptr(png))->write(data, size)) png_error(png, "write");
  }
  static void flush(png_structp /*png*/) {}

  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  std::size_t row_bytes_ = 0;
};

}  // namespace

std::unique_ptr<PictureFormat> make_png() {
  return std::make_unique<Png>();
}

}  // namespace vexal
