#include <png.h>

#include <csetjmp>
#include <vector>

#include "files/files.h"
#include "picture.h"

namespace vexal {
namespace {

void put(png_structp png, png_bytep data, png_size_t size) {
  if (!static_cast<FileSink*>(png_get_io_ptr(png))->write(data, size)) png_error(png, "write");
}
void flush(png_structp /*png*/) {}

// No object with a destructor lives where the library may jump over it.
bool encode(png_structp png, png_infop info, const Picture& picture, png_bytep* rows, FileSink& sink) {
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  png_set_write_fn(png, &sink, put, flush);
  png_set_IHDR(png, info, picture.width, picture.height, 8,
               picture.samples == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(png, 4);
  png_write_info(png, info);
  png_write_image(png, rows);
  png_write_end(png, nullptr);
  return true;
}

}  // namespace

std::string write_png(const Picture& picture, const std::string& path) {
  FileSink sink;
  if (std::string error = sink.open(path); !error.empty()) return error;
  std::vector<png_bytep> rows(picture.height);
  for (std::size_t y = 0; y < rows.size(); ++y) {
    rows[y] = const_cast<png_bytep>(picture.bytes.data() + y * picture.width * picture.samples);
  }
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  const bool done = info != nullptr && encode(png, info, picture, rows.data(), sink);
  png_destroy_write_struct(&png, &info);
  return done ? sink.commit() : "the picture can not be written";
}

}  // namespace vexal
