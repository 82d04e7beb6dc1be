#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>

#include "base/opened_library.h"
#include "picture_format.h"

extern "C" {
#include <jerror.h>
#include <jpeglib.h>
}

namespace vexal {
namespace {

struct JpegLibrary {
  decltype(&::jpeg_std_error) std_error;
  decltype(&::jpeg_CreateCompress) create;
  decltype(&::jpeg_destroy_compress) destroy;
  decltype(&::jpeg_set_defaults) set_defaults;
  decltype(&::jpeg_set_quality) set_quality;
  decltype(&::jpeg_start_compress) start;
  decltype(&::jpeg_write_scanlines) write_scanlines;
  decltype(&::jpeg_finish_compress) finish;
};
JpegLibrary g_jpeg;

const std::string& load_library() {
  static const std::string problem = [] {
    const SoughtSymbol symbols[] = {
        {"jpeg_std_error", g_jpeg.std_error},      {"jpeg_CreateCompress", g_jpeg.create},
        {"jpeg_destroy_compress", g_jpeg.destroy}, {"jpeg_set_defaults", g_jpeg.set_defaults},
        {"jpeg_set_quality", g_jpeg.set_quality},  {"jpeg_start_compress", g_jpeg.start},
        {"jpeg_finish_compress", g_jpeg.finish},   {"jpeg_write_scanlines", g_jpeg.write_scanlines},
    };
    return open_library("libjpeg.so.62", symbols);
  }();
  return problem;
}

// The library jumps out of a call that fails: no object with a destructor lives where it may jump over it.
class Jpeg : public PictureFormat {
 public:
  ~Jpeg() override {
    if (created_) g_jpeg.destroy(&info_);
  }

  std::string begin(FileSink& sink, const PictureForm& form) override {
    if (form.bits != 8) return "a JPEG file holds 8 bits, not " + std::to_string(form.bits);
    if (form.width > JPEG_MAX_DIMENSION || form.height > JPEG_MAX_DIMENSION)
      return "a picture of this size can not be a JPEG file";
    if (!load_library().empty()) return "JPEG files need libjpeg: " + load_library();
    row_bytes_ = std::size_t{form.width} * form.samples;
    sink_ = &sink;
    return start(form) ? "" : "the picture can not be written";
  }

  bool rows(const uint8_t* bytes, uint32_t count) override {
    if (setjmp(out_) != 0) return false;
    for (uint32_t i = 0; i < count; ++i) {
      auto* row = const_cast<JSAMPROW>(bytes + i * row_bytes_);
      g_jpeg.write_scanlines(&info_, &row, 1);
    }
    return true;
  }

  bool end() override {
    if (setjmp(out_) != 0) return false;
    g_jpeg.finish(&info_);
    return true;
  }

 private:
  bool start(const PictureForm& form) {
    if (setjmp(out_) != 0) return false;
    info_.err = g_jpeg.std_error(&errors_);
    errors_.error_exit = leave;
    errors_.output_message = [](j_common_ptr) {};
    info_.client_data = this;
    g_jpeg.create(&info_, JPEG_LIB_VERSION, sizeof info_);
    created_ = true;
    info_.client_data = this;
    info_.dest = &to_;
    to_.init_destination = renew;
    to_.empty_output_buffer = empty;
    to_.term_destination = finish_up;
    info_.image_width = form.width;
    info_.image_height = form.height;
    info_.input_components = static_cast<int>(form.samples);
    info_.in_color_space = form.samples == 3 ? JCS_RGB : JCS_GRAYSCALE;
    g_jpeg.set_defaults(&info_);
    g_jpeg.set_quality(&info_, form.quality, TRUE);
    if (form.quality >= kFullColourFrom)
      info_.comp_info[0].h_samp_factor = info_.comp_info[0].v_samp_factor = 1;
    if (form.across > 0 && form.down > 0) {
      info_.density_unit = 2;  // per cm
      info_.X_density = per_centimetre(form.across);
      info_.Y_density = per_centimetre(form.down);
    }
    g_jpeg.start(&info_, TRUE);
    return true;
  }

  static UINT16 per_centimetre(double spacing) {
    return static_cast<UINT16>(std::clamp(std::lround(std::fmin(10 / spacing, 65535)), 1L, 65535L));
  }
  static Jpeg& self(j_compress_ptr info) { return *static_cast<Jpeg*>(info->client_data); }
  static void leave(j_common_ptr info) { std::longjmp(static_cast<Jpeg*>(info->client_data)->out_, 1); }
  static void renew(j_compress_ptr info) {
    Jpeg& jpeg = self(info);
    jpeg.to_.next_output_byte = jpeg.block_;
    jpeg.to_.free_in_buffer = sizeof jpeg.block_;
  }
  static boolean empty(j_compress_ptr info) {
    Jpeg& jpeg = self(info);
    if (!jpeg.sink_->write(jpeg.block_, sizeof jpeg.block_)) leave(reinterpret_cast<j_common_ptr>(info));
    renew(info);
    return TRUE;
  }
  static void finish_up(j_compress_ptr info) {
    Jpeg& jpeg = self(info);
    if (!jpeg.sink_->write(jpeg.block_, sizeof jpeg.block_ - jpeg.to_.free_in_buffer))
      leave(reinterpret_cast<j_common_ptr>(info));
  }

  static constexpr int kFullColourFrom = 90;  // this quality on, colour is not halved

  FileSink* sink_ = nullptr;
  bool created_ = false;
  std::size_t row_bytes_ = 0;
  jpeg_compress_struct info_{};
  jpeg_error_mgr errors_{};
  jpeg_destination_mgr to_{};
  std::jmp_buf out_{};
  JOCTET block_[16384];
};

}  // namespace

std::unique_ptr<PictureFormat> make_jpeg() {
  return std::make_unique<Jpeg>();
}

}  // namespace vexal
