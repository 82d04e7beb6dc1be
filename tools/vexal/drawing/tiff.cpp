#include <tiffio.h>

#include <algorithm>
#include <cmath>

#include "base/opened_library.h"
#include "picture_format.h"

namespace vexal {
namespace {

struct TiffLibrary {
  decltype(&::TIFFClientOpen) open;
  decltype(&::TIFFClose) close;
  decltype(&::TIFFFlush) flush;
  decltype(&::TIFFSetField) set;
  decltype(&::TIFFWriteScanline) write_scanline;
  decltype(&::TIFFSetErrorHandler) set_errors;
  decltype(&::TIFFSetWarningHandler) set_warnings;
};
TiffLibrary g_tiff;

const std::string& load_library() {
  static const std::string problem = [] {
    const SoughtSymbol symbols[] = {
        {"TIFFClientOpen", g_tiff.open},
        {"TIFFClose", g_tiff.close},
        {"TIFFFlush", g_tiff.flush},
        {"TIFFSetField", g_tiff.set},
        {"TIFFWriteScanline", g_tiff.write_scanline},
        {"TIFFSetErrorHandler", g_tiff.set_errors},
        {"TIFFSetWarningHandler", g_tiff.set_warnings},
    };
    std::string text = open_library("libtiff.so.6", symbols);
    if (text.empty()) {  // else it prints
      g_tiff.set_errors(nullptr);
      g_tiff.set_warnings(nullptr);
    }
    return text;
  }();
  return problem;
}

// The library goes back to fill in where its directory lies; all else it writes in one go.
class Tiff : public PictureFormat {
 public:
  ~Tiff() override {
    if (tiff_ != nullptr) g_tiff.close(tiff_);
  }

  std::string begin(FileSink& sink, const PictureForm& form) override {
    if (!load_library().empty()) return "TIFF files need libtiff: " + load_library();
    sink_ = &sink;
    row_bytes_ = std::size_t{form.width} * form.samples * (form.bits / 8);
    const bool large = row_bytes_ * form.height > kMostOfClassic;
    tiff_ = g_tiff.open("picture", large ? "w8" : "w", this, read, write, seek, close, size, map, unmap);
    return tiff_ != nullptr && set_fields(form) ? "" : "a picture of this size can not be a TIFF file";
  }

  bool rows(const uint8_t* bytes, uint32_t count) override {
    line_.resize(row_bytes_);  // the library may change what it is given
    for (uint32_t i = 0; i < count; ++i) {
      std::copy_n(bytes + i * row_bytes_, row_bytes_, line_.begin());
      if (g_tiff.write_scanline(tiff_, line_.data(), row_++, 0) != 1) return false;
    }
    return !failed_;
  }

  bool end() override {
    const bool done = g_tiff.flush(tiff_) == 1;
    g_tiff.close(tiff_);
    tiff_ = nullptr;
    return done && !failed_;
  }

 private:
  bool set_fields(const PictureForm& form) {
    const auto rows_of_strip =
        static_cast<uint32_t>(std::clamp<std::size_t>(kStrip / row_bytes_, 1, form.height));
    const auto set = [this](uint32_t tag, auto value) { return g_tiff.set(tiff_, tag, value) == 1; };
    bool good = set(TIFFTAG_IMAGEWIDTH, form.width) && set(TIFFTAG_IMAGELENGTH, form.height) &&
                set(TIFFTAG_BITSPERSAMPLE, form.bits) && set(TIFFTAG_SAMPLESPERPIXEL, form.samples) &&
                set(TIFFTAG_PHOTOMETRIC, form.samples == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK) &&
                set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) && set(TIFFTAG_ROWSPERSTRIP, rows_of_strip) &&
                set(TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE) &&
                set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    if (good && form.across > 0 && form.down > 0) {
      good = set(TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER) && set(TIFFTAG_XRESOLUTION, 10 / form.across) &&
             set(TIFFTAG_YRESOLUTION, 10 / form.down);
    }
    return good;
  }

  static Tiff& self(thandle_t handle) { return *static_cast<Tiff*>(handle); }
  static tmsize_t read(thandle_t, void*, tmsize_t) { return 0; }
  static tmsize_t write(thandle_t handle, void* data, tmsize_t size) {
    Tiff& tiff = self(handle);
    const auto length = static_cast<std::size_t>(size);
    bool done = !tiff.failed_;
    if (tiff.size_ == 0) tiff.sink_->watch(data);
    for (; done && tiff.size_ < tiff.at_; ++tiff.size_)
      done = tiff.sink_->write("", 1);  // up to an even place
    if (done && tiff.at_ == tiff.size_) {
      done = tiff.sink_->write(data, length);
      tiff.size_ += length;
    } else if (done) {
      done = tiff.at_ + length <= tiff.size_ && tiff.sink_->flush() &&
             tiff.sink_->patch(tiff.at_, data, length).empty();
    }
    tiff.at_ += length;
    tiff.failed_ = !done;
    return done ? size : -1;
  }
  static toff_t seek(thandle_t handle, toff_t offset, int whence) {
    Tiff& tiff = self(handle);
    tiff.at_ = offset + (whence == SEEK_CUR ? tiff.at_ : whence == SEEK_END ? tiff.size_ : 0);
    return tiff.at_;
  }
  static toff_t size(thandle_t handle) { return self(handle).size_; }
  static int close(thandle_t) { return 0; }
  static int map(thandle_t, void**, toff_t*) { return 0; }
  static void unmap(thandle_t, void*, toff_t) {}

  static constexpr std::size_t kStrip = 65536;
  static constexpr std::size_t kMostOfClassic = std::size_t{7} << 29;  // its offsets have 32 bits

  FileSink* sink_ = nullptr;
  TIFF* tiff_ = nullptr;
  bool failed_ = false;
  uint64_t at_ = 0;
  uint64_t size_ = 0;
  uint32_t row_ = 0;
  std::size_t row_bytes_ = 0;
  std::vector<uint8_t> line_;
};

}  // namespace

std::unique_ptr<PictureFormat> make_tiff() {
  return std::make_unique<Tiff>();
}

}  // namespace vexal
